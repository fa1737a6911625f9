// Laboratory test files (TOML): the soil (model number and parameters),
// the tests with their initial state and stages. Values in the files are
// in the soil-mechanics sign (compression positive); the loader converts
// them into the host's stage descriptions.
#pragma once

#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <toml++/toml.h>

#include "model_library.hpp"
#include "point_driver.hpp"

namespace tervak::lab {

enum class TestKind { Isotropic, Triaxial, Oedometer, SimpleShear, General };
const char* kind_name(TestKind k);

// A target that is known only when the stage starts: the axial strain
// counted from the start of shearing, or the deviator q = σa − σr over the
// lateral total stress reached then (soil-mechanics sign).
enum class Anchor { None, ShearStrain, Deviator };

// What the summary and the plots need to know about a stage.
struct StageInfo {
    std::string name;
    std::string role;        // "consolidation", "shear", "load", "unload", "reload", "cycle", "path"
    double amplitude = 0.0;  // cyclic: single amplitude (strain, or q for stress cycles)
    int cycle = 0;           // cyclic: 1-based cycle number, 0 for the first quarter
    Anchor anchor = Anchor::None;
    double target = 0.0;     // axial strain or q of the anchor
};

struct Measured {
    std::string file;  // resolved path
    std::vector<std::pair<std::string, std::string>> columns;  // lab column -> file column
    std::vector<std::pair<std::string, double>> scale;         // lab column -> factor
};

struct LabTest {
    std::string name;
    TestKind kind = TestKind::General;
    int model = 0;
    std::vector<double> props;
    // Initial state in the host's sign.
    Vec6 sig0{};
    double pw0 = 0.0;
    std::vector<double> sv0;
    std::vector<StagePlan> stages;
    std::vector<StageInfo> info;
    HostOptions host;
    SolverOptions solver;
    // Summary settings.
    double reference_pressure = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> secant_at;  // shear strains for secant G
    double g0 = std::numeric_limits<double>::quiet_NaN();
    double e0 = std::numeric_limits<double>::quiet_NaN();  // initial void ratio
    bool has_measured = false;
    Measured measured;
};

struct TestFile {
    std::string path;
    std::string stem;   // file name without directory and extension
    std::string title;
    std::string soil_title;
    std::string soil_path;
    std::string units;  // stress unit of the soil ("kPa" when not given)
    int model = 0;
    std::vector<std::string> param_names;  // by position, "" when unknown
    std::vector<std::string> statevar_names;
    std::vector<LabTest> tests;
};

// Reads and checks a test file against the library; throws LabError with
// a message naming the file and the field.
TestFile load_test_file(const std::string& path, const ModelLibrary& lib);

// Parses a test file from text (path is used for messages and for
// resolving relative file names).
TestFile parse_test_file(const std::string& text, const std::string& path, const ModelLibrary& lib);

// The stages of a built-in test from its table (lab_stages.cpp); `w`
// names the test for messages.
struct Where;
void build_stages(const toml::table& t, const Where& w, const TestFile& file, LabTest& test, bool undrained);

}  // namespace tervak::lab
