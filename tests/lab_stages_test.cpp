// Stage-aware tests with expectations that do not come from the lab's own
// code: an unload-reload loop rejoins the monotonic curve, strains of a
// stage start at zero, e = e0 - (1 + e0) εv, s_u is half the peak
// deviator, and E50 is reported only when the sample fails.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>

#include "lab_file.hpp"
#include "support/lab_libraries.hpp"
#include "lab_run.hpp"

using namespace tervak::lab;

namespace {

const ModelLibrary& fake() {
    static ModelLibrary lib(LAB_FAKE_LIB);
    return lib;
}

TestResult run(const std::string& text, const ModelLibrary& lib, size_t which = 0) {
    TestFile f = parse_test_file(text, "/tmp/lab_stages.toml", lib);
    RunOptions opt;
    opt.write_files = false;
    TestResult r = run_test(lib, f, f.tests.at(which), opt);
    EXPECT_TRUE(r.ok) << r.error;
    return r;
}

double value(const std::vector<SummaryItem>& items, const std::string& key) {
    for (const auto& s : items)
        if (s.key == key) return s.value;
    return NAN;
}

double qa(const ResultRow& x) { return x.sig[1] - 0.5 * (x.sig[0] + x.sig[2]); }

// q at axial strain ea counted from the first row of stage `from`.
double q_at(const TestResult& r, double ea, int last_stage) {
    for (size_t i = 1; i < r.rows.size(); ++i)
        if (r.rows[i].stage == last_stage && r.rows[i].eps[1] >= ea - 1e-12) return qa(r.rows[i]);
    return NAN;
}

const char* kSoft = "soil = \"" TERVAK_SOURCE_DIR "/examples/soils/soft_clay.toml\"\n";

}  // namespace

TEST(LabStages, UnloadReloadRejoinsTheMonotonicCurve) {
    if (!tervak_lib()) GTEST_SKIP() << "libtervak.so cannot be loaded";
    const std::string tx = "\n[[test]]\ntype = \"triaxial\"\np0 = 100.0\naxial_strain = 0.06\nsteps = 240\n";
    TestResult mono = run(kSoft + tx, *tervak_lib());
    TestResult loop = run(kSoft + tx + "unload_reload = [0.02]\nunload_steps = 40\n", *tervak_lib());
    ASSERT_EQ(loop.stage_summary.size(), 4u);  // shear, unload, reload, shear on
    // The unloading stage ends at q = 0 and the reload comes back to the
    // strain where unloading began.
    EXPECT_NEAR(value(loop.stage_summary[1], "q_end"), 0.0, 1e-6);
    EXPECT_NEAR(value(loop.stage_summary[1], "deps_a"), -value(loop.stage_summary[2], "deps_a"), 1e-12);
    for (double ea : {0.03, 0.045, 0.06})
        EXPECT_NEAR(q_at(loop, ea, 4), q_at(mono, ea, 1), 0.01 * q_at(mono, ea, 1)) << ea;
}

TEST(LabStages, StageStrainsVoidRatioAndUndrainedStrength) {
    if (!tervak_lib()) GTEST_SKIP() << "libtervak.so cannot be loaded";
    TestResult r = run(std::string(kSoft) +
                           "[[test]]\ntype = \"triaxial\"\nsigma_v0 = 25.0\nk0 = 0.5774\ne0 = 1.2\n"
                           "consolidation = { type = \"k0\", stress = 200.0, steps = 100 }\n"
                           "drained = false\naxial_strain = 0.10\nsteps = 200\n",
                       *tervak_lib());
    double eps_v_cons = 0, ea_cons = 0;
    for (size_t i = 1; i < r.rows.size(); ++i) {
        const ResultRow &x = r.rows[i], &prev = r.rows[i - 1];
        EXPECT_NEAR(x.e, 1.2 - 2.2 * x.eps_v(), 1e-12);
        if (x.stage != prev.stage) {  // a stage's own strain starts from zero
            EXPECT_NEAR(x.eps_stage[1], x.eps[1] - prev.eps[1], 1e-15);
        }
        if (x.stage == 1) eps_v_cons = x.eps_v(), ea_cons = x.eps[1];
    }
    EXPECT_GT(ea_cons, 0.05);  // the consolidation strain is large ...
    // ... and is not part of the shear stage's strains or summary.
    EXPECT_NEAR(r.rows.back().eps_stage[1], 0.10, 1e-9);
    EXPECT_NEAR(value(r.summary, "eps_a_peak"), 0.10, 1e-9);
    EXPECT_NEAR(r.rows.back().eps_v(), eps_v_cons, 1e-4);  // undrained: the water allows next to none
    EXPECT_NEAR(value(r.summary, "s_u"), 0.5 * value(r.summary, "q_peak"), 1e-9);
    EXPECT_NEAR(value(r.stage_summary[0], "K_end"), 0.56, 0.05);
}

// The stand-in's von Mises model (q_max = 60) fails; a short test does not.
TEST(LabStages, E50OnlyWhenTheStageFails) {
    const std::string head = "model = 2\n[parameters]\nE = 10000.0\nnu = 0.3\nq_max = 60.0\n";
    struct Case {
        double strain;
        bool fails;
    } cases[] = {{0.02, true}, {0.002, false}};
    for (const Case& c : cases) {
        TestResult r = run(head + "[[test]]\ntype = \"triaxial\"\np0 = 100.0\nsteps = 40\naxial_strain = " +
                               std::to_string(c.strain) + "\n",
                           fake());
        EXPECT_EQ(std::isnan(value(r.summary, "E50")), !c.fails) << c.strain;
        EXPECT_EQ(std::isnan(value(r.summary, "E_sec50")), c.fails) << c.strain;
        EXPECT_NEAR(c.fails ? value(r.summary, "E50") : value(r.summary, "E_sec50"), 10000.0, 1e-6);
        EXPECT_EQ(r.warnings.empty(), c.fails) << c.strain;
    }
}

// Stress cycles in an undrained triaxial reach their deviator targets, and
// `repeat` runs a group of general stages again.
TEST(LabStages, CyclesAndRepeatsFollowTheirTargets) {
    const std::string head = "model = 2\n[parameters]\nE = 10000.0\nnu = 0.3\nq_max = 60.0\n";
    TestResult r = run(head + "[[test]]\ntype = \"triaxial\"\np0 = 100.0\ndrained = false\n"
                              "cyclic = { q_amplitude = 20.0, q_mean = 10.0, cycles = 3, steps_per_cycle = 8 }\n",
                       fake());
    ASSERT_EQ(r.stage_summary.size(), 7u);
    for (size_t k = 0; k < 7; ++k)
        EXPECT_NEAR(value(r.stage_summary[k], "q_end"), k % 2 == 0 ? 30.0 : -10.0, 1e-6) << k;
    TestResult g = run(head + "[[test]]\ntype = \"general\"\np0 = 100.0\n"
                              "[[test.stage]]\nsteps = 4\ndstrain = { yy = 0.001 }\n"
                              "[[test.stage]]\nsteps = 4\ndstrain = { yy = -0.001 }\nrepeat = 3\ngroup = 2\n",
                       fake());
    ASSERT_EQ(g.stage_summary.size(), 6u);
    EXPECT_NEAR(g.rows.back().eps[1], 0.0, 1e-12);
}
