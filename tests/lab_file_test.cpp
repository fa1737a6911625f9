// Laboratory test files: what the loader builds from a file, and how it
// rejects bad ones (every message names the field).
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>

#include "lab_file.hpp"

using namespace tervak::lab;
namespace fs = std::filesystem;

namespace {

const ModelLibrary& fake() {
    static ModelLibrary lib(LAB_FAKE_LIB);
    return lib;
}

TestFile parse(const std::string& text, const ModelLibrary& lib = fake()) {
    return parse_test_file(text, "/tmp/lab_case.toml", lib);
}

// The loader's message for a bad file; empty if it was accepted.
std::string error_of(const std::string& text, const ModelLibrary& lib = fake()) {
    try {
        parse(text, lib);
    } catch (const LabError& e) {
        return e.what();
    }
    return "";
}

const std::string kHead = R"(
title = "case"
model = 1
[parameters]
E = 20000.0
nu = 0.25
)";

struct TempDir {
    fs::path path;
    TempDir() {
        char tmpl[] = "/tmp/lab_file_XXXXXX";
        path = mkdtemp(tmpl);
    }
    ~TempDir() { fs::remove_all(path); }
    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(path / name) << text;
        return (path / name).string();
    }
};

}  // namespace

TEST(LabFile, BuildsTheStandardTestsInTheHostSign) {
    TestFile f = parse(kHead + R"(
[[test]]
name = "tx"
type = "triaxial"
p0 = 100.0
axial_strain = 0.1
steps = 50
[[test]]
type = "triaxial"
direction = "extension"
drained = false
sigma_v0 = 80.0
k0 = 0.5
[[test]]
name = "oed"
type = "oedometer"
sigma_v0 = 20.0
k0 = 0.5
vertical_stress = [400.0, 100.0, 800.0]
reference_pressure = 100.0
[[test]]
name = "dss"
type = "simple_shear"
sigma_v0 = 100.0
k0 = 1.0
amplitudes = [1e-5, 1e-4]
cycles = 3
steps_per_cycle = 40
)");
    ASSERT_EQ(f.tests.size(), 4u);
    EXPECT_EQ(f.model, 1);
    EXPECT_EQ(f.param_names.at(0), "E");
    EXPECT_EQ(f.statevar_names.at(0), "steps");

    const LabTest& tx = f.tests[0];
    EXPECT_EQ(tx.kind, TestKind::Triaxial);
    EXPECT_EQ(tx.props, (std::vector<double>{20000.0, 0.25}));
    EXPECT_EQ(tx.sig0, (Vec6{-100, -100, -100, 0, 0, 0}));
    ASSERT_EQ(tx.stages.size(), 1u);
    const StagePlan& s = tx.stages[0];
    EXPECT_EQ(s.steps, 50);
    EXPECT_FALSE(s.undrained);
    EXPECT_EQ(s.comp[1].control, Control::Strain);
    EXPECT_DOUBLE_EQ(s.comp[1].value, -0.1);  // compression shortens: negative in the host sign
    EXPECT_EQ(s.comp[0].control, Control::Stress);
    EXPECT_EQ(s.comp[2].control, Control::Stress);
    ASSERT_EQ(s.ties.size(), 1u);
    EXPECT_EQ(s.ties[0], (std::vector<int>{0, 2}));

    const LabTest& te = f.tests[1];
    EXPECT_EQ(te.name, "triaxial2");
    EXPECT_TRUE(te.stages[0].undrained);
    EXPECT_GT(te.stages[0].comp[1].value, 0.0);
    EXPECT_EQ(te.sig0, (Vec6{-40, -80, -40, 0, 0, 0}));

    const LabTest& oed = f.tests[2];
    ASSERT_EQ(oed.stages.size(), 3u);
    EXPECT_EQ(oed.info[0].role, "load");
    EXPECT_EQ(oed.info[1].role, "unload");
    EXPECT_EQ(oed.info[2].role, "reload");
    EXPECT_EQ(oed.stages[1].comp[1].control, Control::Stress);
    EXPECT_FALSE(oed.stages[1].comp[1].relative);
    EXPECT_DOUBLE_EQ(oed.stages[1].comp[1].value, -100.0);
    EXPECT_EQ(oed.stages[1].comp[0].control, Control::Strain);
    EXPECT_DOUBLE_EQ(oed.reference_pressure, 100.0);

    const LabTest& dss = f.tests[3];
    // Per amplitude: a first quarter, then down and up per cycle.
    ASSERT_EQ(dss.stages.size(), 2u * (1 + 2 * 3));
    EXPECT_EQ(dss.stages[0].steps, 10);
    EXPECT_EQ(dss.stages[1].steps, 20);
    EXPECT_DOUBLE_EQ(dss.stages[1].comp[3].value, 1e-5);  // down to -amplitude
    EXPECT_EQ(dss.stages[1].comp[1].control, Control::Stress);
    EXPECT_EQ(dss.info[6].cycle, 3);
}

TEST(LabFile, GeneralStagesTakeEveryKindOfControl) {
    TestFile f = parse(kHead + R"(
[[test]]
name = "g"
type = "general"
drained = false
[test.initial]
stress = { xx = 50.0, yy = 100.0, zz = 50.0 }
pore_pressure = 10.0
state_variables = [3.0]
  [[test.stage]]
  name = "a"
  steps = 7
  strain = { yy = 0.01 }
  dstrain = { xy = 0.002 }
  stress = { xx = 60.0 }
  dstress = { zz = 5.0 }
  tie = ["yz", "zx"]
  [[test.stage]]
  drained = true
)");
    const LabTest& t = f.tests[0];
    EXPECT_EQ(t.sig0, (Vec6{-50, -100, -50, 0, 0, 0}));
    EXPECT_DOUBLE_EQ(t.pw0, -10.0);
    EXPECT_EQ(t.sv0, std::vector<double>{3.0});
    ASSERT_EQ(t.stages.size(), 2u);
    const StagePlan& a = t.stages[0];
    EXPECT_TRUE(a.undrained);
    EXPECT_EQ(a.steps, 7);
    EXPECT_EQ(a.comp[1].control, Control::Strain);
    EXPECT_FALSE(a.comp[1].relative);
    EXPECT_DOUBLE_EQ(a.comp[1].value, -0.01);
    EXPECT_TRUE(a.comp[3].relative);
    EXPECT_EQ(a.comp[0].control, Control::Stress);
    EXPECT_FALSE(a.comp[0].relative);
    EXPECT_DOUBLE_EQ(a.comp[0].value, -60.0);
    EXPECT_TRUE(a.comp[2].relative);
    EXPECT_DOUBLE_EQ(a.comp[2].value, -5.0);
    EXPECT_EQ(a.ties, (std::vector<std::vector<int>>{{4, 5}}));
    // An empty stage holds every stress; drained overrides the test.
    const StagePlan& b = t.stages[1];
    EXPECT_FALSE(b.undrained);
    EXPECT_EQ(b.name, "stage2");
    for (const auto& c : b.comp) {
        EXPECT_EQ(c.control, Control::Stress);
        EXPECT_TRUE(c.relative);
        EXPECT_EQ(c.value, 0.0);
    }
}

TEST(LabFile, SoilFilesAndOverridesByName) {
    TempDir dir;
    dir.write("soil.toml", "title = \"Stiff\"\nmodel = 2\nunits = \"MPa\"\nprops = [50.0, 0.3, 0.1]\n");
    std::string path = dir.write("t.toml", R"(
soil = "soil.toml"
[parameters]
nu = 0.2
[[test]]
name = "a"
type = "isotropic"
p0 = 0.1
pressures = [0.4]
[[test]]
name = "b"
type = "isotropic"
p0 = 0.1
pressures = [0.4]
[test.parameters]
q_max = 0.5
)");
    TestFile f = load_test_file(path, fake());
    EXPECT_EQ(f.model, 2);
    EXPECT_EQ(f.units, "MPa");
    EXPECT_EQ(f.soil_title, "Stiff");
    EXPECT_EQ(f.tests[0].props, (std::vector<double>{50.0, 0.2, 0.1}));
    EXPECT_EQ(f.tests[1].props, (std::vector<double>{50.0, 0.2, 0.5}));
    EXPECT_DOUBLE_EQ(f.tests[0].reference_pressure, 0.1);  // 100 kPa in MPa
}

// Each bad file is rejected with a message naming the field at fault.
TEST(LabFile, RejectsBadFilesNamingTheField) {
    const std::string tx = "\n[[test]]\nname = \"t\"\ntype = \"triaxial\"\np0 = 100.0\n";
    struct Case {
        std::string text, expect;
    } cases[] = {
        {kHead + tx + "axial_strain = \"lots\"\n", "'axial_strain' must be a number"},
        {kHead + tx + "axial_strain = -0.1\n", "'axial_strain'"},
        {kHead + tx + "stepz = 10\n", "'stepz' is not a key of a triaxial test"},
        {kHead + tx + "steps = 0\n", "'steps' must be between 1"},
        {kHead + tx + "direction = \"sideways\"\n", "'direction'"},
        {"colour = 3\n" + kHead + tx, "'colour' is not a known key"},
        {"model = 1\n[parameters]\nE = 1.0\nnu = 0.2\nEE = 3.0\n" + tx, "'EE' is not a parameter of model 1 (E, nu)"},
        {"model = 1\n[parameters]\nE = 1.0\n" + tx, "missing: nu"},
        {"model = 1\n[parameters]\nE = \"stiff\"\nnu = 0.2\n" + tx, "'E' must be a number"},
        {"model = 7\nprops = [1.0, 0.2]\n" + tx, "'model': model = 7 is not a model"},
        {"props = [1.0, 0.2]\n" + tx, "'model' is missing"},
        {"model = 1\nprops = [" + std::string(51 * 4, ' ') + "]\n" + tx, "'props'"},
        {kHead + "\n[[test]]\ntype = \"triaxial\"\n", "initial state is missing"},
        {kHead + "\n[[test]]\np0 = 1.0\n", "'type' is missing"},
        {kHead + "\n[[test]]\ntype = \"shaking\"\np0 = 1.0\n", "'type' = 'shaking' is not a test type"},
        {kHead + tx + "sigma_v0 = 50.0\n", "give the initial state once"},
        {kHead + "\n[[test]]\ntype = \"oedometer\"\nsigma_v0 = 50.0\nvertical_stress = [100.0]\n", "'k0' is missing"},
        {kHead + "\n[[test]]\ntype = \"oedometer\"\np0 = 50.0\n", "'vertical_stress' is missing"},
        {kHead + "\n[[test]]\ntype = \"simple_shear\"\np0 = 50.0\namplitudes = [1e-4]\nsteps_per_cycle = 10\n",
         "'steps_per_cycle' must be a multiple of 4"},
        {kHead + tx + "[[test]]\nname = \"t\"\ntype = \"isotropic\"\np0 = 1.0\npressures = [2.0]\n",
         "'name' = 't' is used by an earlier test"},
        {kHead + "\n[[test]]\nname = \"a b\"\ntype = \"isotropic\"\np0 = 1.0\npressures = [2.0]\n", "'name' = 'a b'"},
        {kHead + "\n[[test]]\ntype = \"general\"\np0 = 1.0\n[[test.stage]]\nstrain = { yy = 0.1 }\nstress = { yy = 5.0 }\n",
         "'yy' is already controlled by 'strain'"},
        {kHead + "\n[[test]]\ntype = \"general\"\np0 = 1.0\n[[test.stage]]\nstrain = { ww = 0.1 }\n",
         "'ww' is not a component"},
        {kHead + "\n[[test]]\ntype = \"general\"\np0 = 1.0\n[[test.stage]]\nstrain = { xx = 0.1 }\ntie = [\"xx\", \"zz\"]\n",
         "component 'xx' is strain-controlled"},
        {kHead + "\n[[test]]\ntype = \"general\"\np0 = 1.0\n[[test.stage]]\nstepz = 3\n", "stage 1: 'stepz' is not a known key"},
        {kHead + "\n[[test]]\ntype = \"general\"\np0 = 1.0\n", "'stage' is missing"},
        {kHead + tx + "[test.initial]\nstress = { xx = 1.0 }\n", "give the initial state once"},
        {kHead + "\n[[test]]\ntype = \"isotropic\"\npressures = [2.0]\n[test.initial]\nstress = { qq = 1.0 }\n",
         "'qq' is not a known key"},
        {kHead + tx + "[test.solver]\ntolerance = 2.0\n", "'tolerance' must lie between 0 and 1"},
        {kHead + tx + "[test.host]\nstiffness_task = 4\n", "'stiffness_task' must be 3"},
        {kHead + tx + "[test.measured]\nfile = \"/no/such/file.csv\"\n", "'file': no such file"},
        {kHead + "[[test]]\n", "'type' is missing"},
        {kHead, "'test' is missing"},
        {"test = 5\n" + kHead, "'test' must be [[test]] tables"},
        {kHead + tx + "[test.initial]\n", "give the initial state once"},
        {"title = \"unterminated\n", "/tmp/lab_case.toml:1:"},
    };
    for (const auto& c : cases) {
        std::string e = error_of(c.text);
        EXPECT_NE(e.find(c.expect), std::string::npos) << "expected '" << c.expect << "' in: " << e << "\nfile:\n" << c.text;
        EXPECT_NE(e.find("/tmp/lab_case.toml"), std::string::npos) << e;
    }
}

TEST(LabFile, WithoutMetadataOnlyRawPropsAreAccepted) {
    ModelLibrary plain(LAB_FAKE_PLAIN_LIB);
    std::string tx = "\n[[test]]\ntype = \"isotropic\"\np0 = 1.0\npressures = [2.0]\n";
    EXPECT_EQ(error_of("model = 1\nprops = [1000.0, 0.3]\n" + tx, plain), "");
    std::string e = error_of(kHead + tx, plain);
    EXPECT_NE(e.find("give a 'props' list"), std::string::npos) << e;
    // Without metadata the lab cannot know how many models there are.
    EXPECT_EQ(error_of("model = 2\nprops = [1000.0, 0.3, 5.0]\n" + tx, plain), "");
}

TEST(LabFile, MissingSoilAndTestFilesAreNamed) {
    TempDir dir;
    std::string path = dir.write("t.toml", "soil = \"nowhere.toml\"\n[[test]]\ntype = \"isotropic\"\np0 = 1.0\npressures = [2.0]\n");
    try {
        load_test_file(path, fake());
        FAIL();
    } catch (const LabError& e) {
        EXPECT_NE(std::string(e.what()).find("'soil': no such file"), std::string::npos) << e.what();
    }
    try {
        load_test_file((dir.path / "absent.toml").string(), fake());
        FAIL();
    } catch (const LabError& e) {
        EXPECT_NE(std::string(e.what()).find("absent.toml'"), std::string::npos) << e.what();
    }
    dir.write("bad_soil.toml", "model = 1\nprops = [1.0, 0.2]\nflavour = \"sweet\"\n");
    path = dir.write("u.toml", "soil = \"bad_soil.toml\"\n[[test]]\ntype = \"isotropic\"\np0 = 1.0\npressures = [2.0]\n");
    try {
        load_test_file(path, fake());
        FAIL();
    } catch (const LabError& e) {
        EXPECT_NE(std::string(e.what()).find("bad_soil.toml:3: 'flavour' is not a known key"), std::string::npos) << e.what();
    }
}

// Ranges are the library's own: the stand-in states 0 <= nu < 0.5 and
// E > 0; a library without the range routine is checked by names only.
TEST(LabFile, RangesComeFromTheLibrary) {
    ModelLibrary plain(LAB_FAKE_PLAIN_LIB);
    struct Case {
        const char* params;
        const ModelLibrary* lib;
        const char* error;  // "" = accepted
    } cases[] = {
        {"E = 1000.0\nnu = 0.49", &fake(), ""},
        {"E = 1000.0\nnu = 0.5", &fake(), "parameter 2 'nu' = 0.5 is outside its valid range 0 <= value < 0.5"},
        {"E = 0.0\nnu = 0.2", &fake(), "parameter 1 'E' = 0 is outside its valid range 0 < value"},
    };
    for (const Case& c : cases) {
        std::string e = error_of(std::string("model = 1\n[parameters]\n") + c.params +
                                 "\n[[test]]\ntype = \"isotropic\"\np0 = 1.0\npressures = [2.0]\n", *c.lib);
        if (*c.error == 0)
            EXPECT_EQ(e, "") << c.params;
        else
            EXPECT_NE(e.find(c.error), std::string::npos) << c.params << "\n" << e;
    }
    EXPECT_EQ(error_of("model = 1\nprops = [1000.0, 0.7]\n[[test]]\ntype = \"isotropic\"\np0 = 1.0\npressures = [2.0]\n", plain), "");
    EXPECT_FALSE(plain.has_ranges());
}

// With the Tervak library itself the ranges are applied to its files.
TEST(LabFile, RejectsOutOfRangeTervakParameters) {
    std::unique_ptr<ModelLibrary> lib;
    try {
        lib = std::make_unique<ModelLibrary>(TERVAK_LIB_PATH);
    } catch (const LabError& e) {
        GTEST_SKIP() << e.what();
    }
    std::string soil = TERVAK_SOURCE_DIR "/examples/soils/dense_sand.toml";
    std::string tx = "\n[[test]]\ntype = \"isotropic\"\np0 = 1.0\npressures = [2.0]\n";
    EXPECT_EQ(error_of("soil = \"" + soil + "\"\n" + tx, *lib), "");
    std::string e = error_of("soil = \"" + soil + "\"\n[parameters]\nphi = 95.0\n" + tx, *lib);
    if (lib->has_metadata()) {
        EXPECT_NE(e.find("parameter 6 'phi' = 95 is outside its valid range"), std::string::npos) << e;
    }
    e = error_of("model = 1\nprops = [40000, 40000, 120000, 0.5, 0, 38, 8, 0.7]\n" + tx, *lib);
    EXPECT_NE(e.find("parameter 8"), std::string::npos) << e;
    EXPECT_NE(e.find("outside its valid range"), std::string::npos) << e;
    e = error_of("model = 5\nprops = [1.0]\n" + tx, *lib);
    EXPECT_NE(e.find("'model'"), std::string::npos) << e;
}
