// The lab on the Tervak models themselves: elastic stiffness, the
// Mohr-Coulomb limit of a drained triaxial test, undrained volume, the
// stiffness degradation of the small-strain model, and the bundled suite.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "lab_file.hpp"
#include "support/lab_libraries.hpp"
#include "lab_run.hpp"
#include "model_library.hpp"
#include "point_driver.hpp"

using namespace tervak::lab;
namespace fs = std::filesystem;

namespace {

// A dense sand for model 1 (positions as the library reads them).
const std::vector<double> kModel1 = {40000.0, 40000.0, 120000.0, 0.5, 2.0,   35.0, 5.0, 0.25,
                                     100.0,   0.426,   0.9,      0.0, 72727.0, 1.2, 0.002, 1.0};
// A sand with small-strain stiffness for model 2.
const std::vector<double> kModel2 = {30000.0, 90000.0, 60000.0, 0.0002, 100.0, 100.0, 0.5, 0.5, 0.0,
                                     0.0,     90000.0, 0.5,     100.0,  1.0,   35.0,  5.0, 0.426,
                                     0.9,     0.0,     54545.0, 1.2,    0.002, 0.2,   1.0, 1.0};

// Empty when the model answers the stiffness and stress tasks.
std::string unanswered(int model, const std::vector<double>& props) {
    if (!tervak_lib()) return "libtervak.so cannot be loaded";
    try {
        PointDriver d(*tervak_lib(), model, props);
        d.initialize({-100, -100, -100, 0, 0, 0}, 0.0);
        StagePlan s;
        for (auto& c : s.comp) c = {Control::Strain, true, 0.0};
        s.comp[1].value = -1e-6;
        d.run_stage(s, 1, nullptr);
    } catch (const LabError& e) {
        return std::string("model ") + std::to_string(model) + " does not answer yet: " + e.what();
    }
    return "";
}

#define REQUIRE_MODEL(m, props)                        \
    do {                                               \
        std::string why = unanswered(m, props);        \
        if (!why.empty()) GTEST_SKIP() << why;         \
    } while (0)

StagePlan triaxial(double axial, int steps, bool undrained) {
    StagePlan s;
    s.name = "shear";
    s.steps = steps;
    s.undrained = undrained;
    s.comp[1] = {Control::Strain, true, axial};
    for (int i = 3; i < 6; ++i) s.comp[i] = {Control::Strain, true, 0.0};
    s.ties = {{0, 2}};
    return s;
}

constexpr double kDeg = 0.017453292519444445;

}  // namespace

// One-dimensional unloading by a tiny strain from a K0 state stays
// elastic; the constrained modulus and the lateral stress ratio give E and
// nu, which must be the unloading-reloading modulus at the minor stress.
TEST(LabModel1, TinyElasticStrainRecoversEAndNu) {
    REQUIRE_MODEL(1, kModel1);
    PointDriver d(*tervak_lib(), 1, kModel1);
    const double sv = 100.0, sh = 50.0;
    d.initialize({-sh, -sv, -sh, 0, 0, 0}, 0.0);
    StagePlan s;
    for (auto& c : s.comp) c = {Control::Strain, true, 0.0};
    s.comp[1].value = 2e-6;  // vertical extension: unloading
    s.steps = 1;
    int iplast = -1;
    d.run_stage(s, 1, [&](const IncrementRecord& r, const PointState&) { iplast = r.iplast; });
    EXPECT_EQ(iplast, 0);
    const PointState& st = d.state();
    double dsv = st.sig[1] + sv, dsh = st.sig[0] + sh, dev = st.eps[1];
    double ratio = dsh / dsv;  // nu / (1 - nu)
    double nu = ratio / (1.0 + ratio);
    double M = dsv / dev;      // E (1 - nu) / ((1 + nu)(1 - 2 nu))
    double E = M * (1 + nu) * (1 - 2 * nu) / (1 - nu);
    double s_ = std::sin(35.0 * kDeg), c_ = std::cos(35.0 * kDeg);
    double Eur = 120000.0 * std::pow((sh * s_ + 2.0 * c_) / (100.0 * s_ + 2.0 * c_), 0.5);
    EXPECT_NEAR(nu, 0.25, 1e-6);
    EXPECT_NEAR(E, Eur, 1e-5 * Eur);
}

// A drained triaxial compression at constant cell pressure ends on the
// Mohr-Coulomb deviator 2 sin(phi) / (1 - sin(phi)) (sigma3 + c cot(phi)).
TEST(LabModel1, DrainedTriaxialFailsAtTheMohrCoulombDeviator) {
    REQUIRE_MODEL(1, kModel1);
    for (double s3 : {50.0, 200.0}) {
        PointDriver d(*tervak_lib(), 1, kModel1);
        d.initialize({-s3, -s3, -s3, 0, 0, 0}, 0.0);
        double qmax = 0.0, lateral = 0.0;
        d.run_stage(triaxial(-0.12, 240, false), 1, [&](const IncrementRecord&, const PointState& st) {
            qmax = std::max(qmax, st.sig[0] - st.sig[1]);
            lateral = std::max(lateral, std::fabs(st.sig[0] + s3) + std::fabs(st.sig[2] + s3));
        });
        double s = std::sin(35.0 * kDeg), c = 2.0;
        double qf = 2 * s / (1 - s) * (s3 + c * std::cos(35.0 * kDeg) / s);
        EXPECT_NEAR(qmax, qf, 0.005 * qf) << "cell pressure " << s3;
        EXPECT_LT(lateral, 1e-4) << "cell pressure " << s3;
    }
}

// Undrained compression: the volume stays nearly constant and the pore
// pressure takes up the difference between total and effective stress.
TEST(LabModel1, UndrainedTriaxialKeepsVolumeAndBuildsPorePressure) {
    REQUIRE_MODEL(1, kModel1);
    PointDriver d(*tervak_lib(), 1, kModel1);
    d.initialize({-100, -100, -100, 0, 0, 0}, 0.0);
    double worst_ratio = 0.0;
    d.run_stage(triaxial(-0.02, 100, true), 1, [&](const IncrementRecord&, const PointState& st) {
        double ev = st.eps[0] + st.eps[1] + st.eps[2];
        worst_ratio = std::max(worst_ratio, std::fabs(ev / st.eps[1]));
        // Total lateral stress at the cell pressure.
        EXPECT_NEAR(st.sig[0] + st.pw, -100.0, 1e-4);
    });
    const PointState& st = d.state();
    EXPECT_LT(worst_ratio, 0.02);
    EXPECT_GT(std::fabs(st.pw), 1.0);
    // Total stress = effective stress + pore pressure, axially too.
    double q = st.sig[0] - st.sig[1];
    EXPECT_GT(q, 10.0);
}

// Stress control on model 1: an oedometer stage hits its vertical stress.
TEST(LabModel1, StressControlledOedometerHitsItsTarget) {
    REQUIRE_MODEL(1, kModel1);
    PointDriver d(*tervak_lib(), 1, kModel1);
    d.initialize({-25, -50, -25, 0, 0, 0}, 0.0);
    StagePlan s;
    for (auto& c : s.comp) c = {Control::Strain, true, 0.0};
    s.comp[1] = {Control::Stress, false, -400.0};
    s.steps = 50;
    d.run_stage(s, 1, nullptr);
    EXPECT_NEAR(d.state().sig[1], -400.0, 1e-8 * 400.0 * 1.0001);
    EXPECT_LT(d.state().eps[1], 0.0);
    EXPECT_EQ(d.state().eps[0], 0.0);
}

// Cyclic simple shear on model 2: the secant shear modulus of the loops
// falls with the amplitude, the damping grows at first. G0 cannot fall at a
// reversal (G0_min = G0_ref), so the elastic loops close at once; the loop at
// 1e-3 hardens the point plastically, does not close in two cycles and is
// reported as a warning instead.
TEST(LabModel2, CyclicSimpleShearShowsStiffnessDegradation) {
    REQUIRE_MODEL(2, kModel2);
    ModelLibrary& lib = *tervak_lib();
    std::string text = R"(
model = 2
props = [30000.0, 90000.0, 90000.0, 0.0002, 100.0, 100.0, 0.5, 0.5, 0.0, 0.0, 90000.0, 0.5, 100.0,
         1.0, 35.0, 5.0, 0.426, 0.9, 0.0, 54545.0, 1.2, 0.002, 0.2, 1.0, 1.0]
[[test]]
name = "dss"
type = "simple_shear"
sigma_v0 = 100.0
k0 = 0.426
amplitudes = [1e-6, 1e-5, 1e-4, 1e-3]
cycles = 2
steps_per_cycle = 40
)";
    TestFile f = parse_test_file(text, "/tmp/lab_dss.toml", lib);
    RunOptions opt;
    opt.write_files = false;
    TestResult r = run_test(lib, f, f.tests[0], opt);
    ASSERT_TRUE(r.ok) << r.error;
    ASSERT_EQ(r.cyclic.size(), 3u);
    EXPECT_EQ(r.cyclic.back().gamma, 1e-4);
    ASSERT_EQ(r.warnings.size(), 1u);
    EXPECT_NE(r.warnings[0].find("amplitude 0.001: no closed loop in 2 cycles"), std::string::npos) << r.warnings[0];
    for (size_t i = 1; i < r.cyclic.size(); ++i)
        EXPECT_LT(r.cyclic[i].G_ratio, r.cyclic[i - 1].G_ratio) << "amplitude " << r.cyclic[i].gamma;
    EXPECT_GT(r.cyclic.front().G_ratio, 0.9);
    EXPECT_LT(r.cyclic.back().G_ratio, 0.9);
    EXPECT_GT(r.cyclic[2].damping, r.cyclic[0].damping);
    // The loops' moduli are the model's: G0 near G0_ref at p' = (1 + 2 K0) / 3 sigma_v.
    double p = (1 + 2 * 0.426) / 3 * 100.0;
    double g0 = 90000.0 * std::pow(p / 100.0, 0.5);
    EXPECT_NEAR(r.cyclic.front().G, g0, 0.25 * g0);
}

// The bundled small-strain soils: G0 falls at every reversal towards G0_min,
// so the smallest amplitudes need many cycles before a loop closes. Every
// amplitude is reported from a closed loop, the sweep has no holes, G/G0
// falls and the damping grows with the amplitude up to the cut-off.
TEST(LabModel2, BundledSweepsReportEveryAmplitude) {
    REQUIRE_MODEL(2, kModel2);
    for (const char* name : {"soft_clay_small_strain", "dense_sand_small_strain"}) {
        SCOPED_TRACE(name);
        fs::path path = fs::path(TERVAK_SOURCE_DIR) / "examples" / "lab" / (std::string(name) + ".toml");
        TestFile f = load_test_file(path.string(), *tervak_lib());
        RunOptions opt;
        opt.write_files = false;
        auto dss = std::find_if(f.tests.begin(), f.tests.end(), [](const LabTest& t) { return t.name == "dss"; });
        ASSERT_NE(dss, f.tests.end());
        TestResult r = run_test(*tervak_lib(), f, *dss, opt);
        ASSERT_TRUE(r.ok) << r.error;
        for (const auto& w : r.warnings) EXPECT_EQ(w.find("closed loop"), std::string::npos) << w;
        ASSERT_EQ(r.cyclic.size(), 7u);
        for (size_t i = 1; i < r.cyclic.size(); ++i) {
            EXPECT_LT(r.cyclic[i].G_ratio, r.cyclic[i - 1].G_ratio) << r.cyclic[i].gamma;
            if (r.cyclic[i].gamma <= 1e-4) {
                EXPECT_GT(r.cyclic[i].damping, 2.0 * r.cyclic[i - 1].damping) << r.cyclic[i].gamma;
            }
        }
    }
}

// Every bundled test file is accepted by the loader.
TEST(LabSuite, BundledTestFilesAreValid) {
    if (!tervak_lib()) GTEST_SKIP() << "libtervak.so cannot be loaded";
    fs::path dir = fs::path(TERVAK_SOURCE_DIR) / "examples" / "lab";
    int n = 0;
    for (const auto& e : fs::directory_iterator(dir)) {
        if (e.path().extension() != ".toml") continue;
        ++n;
        try {
            TestFile f = load_test_file(e.path().string(), *tervak_lib());
            EXPECT_FALSE(f.tests.empty()) << e.path();
        } catch (const LabError& err) {
            ADD_FAILURE() << err.what();
        }
    }
    EXPECT_GE(n, 4);
}
