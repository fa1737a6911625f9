// The lab's host simulator driven on the stand-in model library: calling
// order, mixed control, undrained points, failure reports.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "model_library.hpp"
#include "point_driver.hpp"
#include "tervak_lab.h"

using namespace tervak::lab;

namespace {

// Host sign: tension positive.
StagePlan triaxial(double axial_strain, int steps, bool undrained = false) {
    StagePlan s;
    s.name = "shear";
    s.steps = steps;
    s.undrained = undrained;
    s.comp[0] = {Control::Stress, true, 0.0};
    s.comp[1] = {Control::Strain, true, axial_strain};
    s.comp[2] = {Control::Stress, true, 0.0};
    for (int i = 3; i < 6; ++i) s.comp[i] = {Control::Strain, true, 0.0};
    s.ties = {{0, 2}};
    return s;
}

struct Row {
    IncrementRecord rec;
    PointState st;
};

std::vector<Row> run(PointDriver& d, const StagePlan& s, int n = 1) {
    std::vector<Row> rows;
    d.run_stage(s, n, [&](const IncrementRecord& r, const PointState& st) { rows.push_back({r, st}); });
    return rows;
}

struct TraceLine {
    int task, iter;
    double de0, de1, de3, props50;
};

std::vector<TraceLine> read_trace() {
    void* h = dlopen(LAB_FAKE_LIB, RTLD_NOW | RTLD_NOLOAD);
    EXPECT_NE(h, nullptr);
    auto fn = reinterpret_cast<const char* (*)()>(dlsym(h, "fake_trace"));
    std::vector<TraceLine> out;
    std::istringstream in(fn());
    TraceLine t;
    while (in >> t.task >> t.iter >> t.de0 >> t.de1 >> t.de3 >> t.props50) out.push_back(t);
    dlclose(h);
    return out;
}

void clear_trace() {
    void* h = dlopen(LAB_FAKE_LIB, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(h, nullptr);
    reinterpret_cast<void (*)()>(dlsym(h, "fake_trace_clear"))();
    dlclose(h);
}

}  // namespace

TEST(LabLibrary, ReadsTheLibrarysOwnDescription) {
    ModelLibrary lib(LAB_FAKE_LIB);
    EXPECT_TRUE(lib.has_metadata());
    EXPECT_FALSE(lib.is_tervak());
    EXPECT_EQ(lib.model_count(), 2);
    EXPECT_EQ(lib.model_name(2), "Von Mises");
    auto p = lib.parameters(2);
    ASSERT_EQ(p.size(), 3u);
    EXPECT_EQ(p[0].name, "E");
    EXPECT_EQ(p[0].unit, "kPa");
    EXPECT_EQ(p[2].name, "q_max");
    auto sv = lib.state_variables(1);
    ASSERT_EQ(sv.size(), 1u);
    EXPECT_EQ(sv[0].name, "steps");

    ModelLibrary plain(LAB_FAKE_PLAIN_LIB);
    EXPECT_FALSE(plain.has_metadata());
    EXPECT_EQ(plain.model_count(), -1);
    EXPECT_TRUE(plain.parameters(1).empty());
}

TEST(LabLibrary, CountedStringsAreDecodedByTheirLength) {
    char buf[8] = {3, 'a', 'b', 'c', 'x', 'y', 'z', 'w'};
    EXPECT_EQ(decode_counted(buf, sizeof buf), "abc");
    char over[4] = {100, 'a', 'b', 'c'};
    EXPECT_EQ(decode_counted(over, sizeof over), "abc");
}

TEST(LabLibrary, RejectsMissingLibraryAndUnknownModel) {
    try {
        ModelLibrary lib("/nonexistent/libnothing.so");
        FAIL() << "no error";
    } catch (const LabError& e) {
        EXPECT_NE(std::string(e.what()).find("/nonexistent/libnothing.so"), std::string::npos);
    }
    ModelLibrary lib(LAB_FAKE_LIB);
    try {
        PointDriver d(lib, 3, {1000.0, 0.3});
        FAIL() << "no error";
    } catch (const LabError& e) {
        EXPECT_NE(std::string(e.what()).find("model = 3"), std::string::npos) << e.what();
    }
}

// Drained triaxial on linear elasticity: E = d(sig_a)/d(eps_a) and
// nu = -d(eps_r)/d(eps_a), computed from the point's answers.
TEST(LabDriver, ElasticTriaxialRecoversEAndNu) {
    ModelLibrary lib(LAB_FAKE_PLAIN_LIB);  // no metadata: raw props
    const double E = 52000.0, nu = 0.28;
    PointDriver d(lib, 1, {E, nu});
    d.initialize({-100, -100, -100, 0, 0, 0}, 0.0);
    auto rows = run(d, triaxial(-0.002, 20));
    ASSERT_EQ(rows.size(), 20u);
    const PointState& s = rows.back().st;
    double dsa = s.sig[1] - (-100.0), dea = s.eps[1];
    EXPECT_NEAR(dsa / dea, E, 1e-6 * E);
    EXPECT_NEAR(-s.eps[0] / dea, nu, 1e-9);
    EXPECT_NEAR(s.eps[0], s.eps[2], 1e-15);
    // The lateral stresses stay at the cell pressure.
    EXPECT_NEAR(s.sig[0], -100.0, 1e-5);
    EXPECT_NEAR(s.sig[2], -100.0, 1e-5);
}

// The host's calling order: tasks 4, 5, 1; then per iteration the
// stiffness task and the stress task; iTer counts from 1; Props padded to
// 50 values; the stress task receives the total increment.
TEST(LabDriver, FollowsTheHostCallingOrder) {
    ModelLibrary lib(LAB_FAKE_LIB);
    clear_trace();
    PointDriver d(lib, 1, {10000.0, 0.25});
    d.initialize({-50, -50, -50, 0, 0, 0}, 0.0);
    StagePlan s;
    s.steps = 4;
    for (int i = 0; i < 6; ++i) s.comp[i] = {Control::Strain, true, 0.0};
    s.comp[1] = {Control::Strain, true, -0.004};
    run(d, s);
    auto t = read_trace();
    ASSERT_GE(t.size(), 3u + 8u);
    EXPECT_EQ(t[0].task, 4);
    EXPECT_EQ(t[1].task, 5);
    EXPECT_EQ(t[2].task, 1);
    for (size_t k = 3; k < t.size(); k += 2) {
        EXPECT_EQ(t[k].task, 3);
        EXPECT_EQ(t[k + 1].task, 2);
        EXPECT_EQ(t[k + 1].iter, 1);
        EXPECT_DOUBLE_EQ(t[k + 1].de1, -0.001);
        EXPECT_EQ(t[k + 1].props50, 0.0);
    }
    // State variable 1 counts the stress steps that were committed.
    EXPECT_EQ(d.state().sv.at(0), 4.0);
    EXPECT_EQ(d.increments(), 4);
}

// Stress control of every normal component and a shear component on an
// elastic point: the targets are hit within the tolerance, and the strains
// agree with the compliance.
TEST(LabDriver, StressControlledStageHitsItsTargets) {
    ModelLibrary lib(LAB_FAKE_LIB);
    const double E = 30000.0, nu = 0.2;
    PointDriver d(lib, 1, {E, nu});
    SolverOptions so;
    so.tolerance = 1e-10;
    d.set_solver(so);
    d.initialize({-80, -100, -60, 0, 0, 0}, 0.0);
    StagePlan s;
    s.steps = 5;
    s.comp[0] = {Control::Stress, false, -150.0};
    s.comp[1] = {Control::Stress, true, -20.0};
    s.comp[2] = {Control::Stress, false, -90.0};
    s.comp[3] = {Control::Stress, false, 12.0};
    s.comp[4] = {Control::Strain, true, 0.0};
    s.comp[5] = {Control::Strain, true, 0.0};
    run(d, s);
    const PointState& st = d.state();
    const double tol = 1e-10 * 150.0;
    EXPECT_NEAR(st.sig[0], -150.0, tol);
    EXPECT_NEAR(st.sig[1], -120.0, tol);
    EXPECT_NEAR(st.sig[2], -90.0, tol);
    EXPECT_NEAR(st.sig[3], 12.0, tol);
    // Hooke's law on the changes.
    double ds[3] = {-70.0, -20.0, -30.0};
    for (int i = 0; i < 3; ++i) {
        double e = (ds[i] - nu * (ds[(i + 1) % 3] + ds[(i + 2) % 3])) / E;
        EXPECT_NEAR(st.eps[i], e, 1e-12);
    }
    EXPECT_NEAR(st.eps[3], 12.0 / (E / (2 * (1 + nu))), 1e-12);
}

// Undrained triaxial: the volume stays (nearly) constant, the pore
// pressure carries the difference between total and effective stress.
TEST(LabDriver, UndrainedStageKeepsVolumeAndBuildsPorePressure) {
    ModelLibrary lib(LAB_FAKE_LIB);
    PointDriver d(lib, 1, {20000.0, 0.3});
    d.initialize({-100, -100, -100, 0, 0, 0}, 0.0);
    auto rows = run(d, triaxial(-0.01, 50, true));
    const PointState& s = rows.back().st;
    double ev = s.eps[0] + s.eps[1] + s.eps[2];
    EXPECT_LT(std::fabs(ev), 0.0101 * 0.01);  // 1 - 2 * 0.495 of the axial strain
    EXPECT_LT(s.pw, 0.0);                     // compressive pore pressure (host sign)
    // Total lateral stress stays at the cell pressure.
    EXPECT_NEAR(s.sig[0] + s.pw, -100.0, 1e-5);
    EXPECT_NEAR(s.sig[2] + s.pw, -100.0, 1e-5);
    // Elastic: no change of mean effective stress beyond K * eps_v, and
    // the total mean stress rises by a third of the axial stress change.
    double K = 20000.0 / (3 * (1 - 2 * 0.3));
    double dp_eff = (s.sig[0] + s.sig[1] + s.sig[2]) / 3.0 + 100.0;
    EXPECT_NEAR(dp_eff, K * ev, 1e-6 * std::fabs(s.sig[1]));
    double dp_tot = dp_eff + s.pw;
    EXPECT_NEAR(dp_tot, (s.sig[1] + s.pw + 100.0) / 3.0, 1e-5);
}

// Perfect plasticity: a strain-controlled stage beyond yield converges
// with several iterations per increment, and the plastic strain in the
// state variable is what the strains say (committed once per increment).
TEST(LabDriver, CommitsStateVariablesOnlyAtConvergence) {
    ModelLibrary lib(LAB_FAKE_LIB);
    const double E = 10000.0, nu = 0.3, qmax = 60.0;
    PointDriver d(lib, 2, {E, nu, qmax});
    d.initialize({-100, -100, -100, 0, 0, 0}, 0.0);
    auto rows = run(d, triaxial(-0.03, 60));
    const PointState& s = rows.back().st;
    int many = 0;
    for (const auto& r : rows) many += r.rec.iterations > 1;
    EXPECT_GT(many, 10);
    double q = std::fabs(s.sig[1] - s.sig[0]);
    EXPECT_NEAR(q, qmax, 1e-5 * qmax);
    double G = E / (2 * (1 + nu));
    double eq = 2.0 / 3.0 * std::fabs(s.eps[1] - s.eps[0]);
    EXPECT_NEAR(s.sv[0], eq - qmax / (3 * G), 1e-6);
}

// A stage that asks for more than the material can carry fails with a
// report naming stage, increment and out-of-balance stress; what was done
// before stays, and the state is the last converged one.
TEST(LabDriver, UnreachableTargetIsReportedNotInvented) {
    ModelLibrary lib(LAB_FAKE_LIB);
    PointDriver d(lib, 2, {10000.0, 0.3, 60.0});
    SolverOptions so;
    so.max_cuts = 4;
    so.max_iterations = 20;
    d.set_solver(so);
    d.initialize({-100, -100, -100, 0, 0, 0}, 0.0);
    std::vector<Row> all;
    auto cb = [&](const IncrementRecord& r, const PointState& st) { all.push_back({r, st}); };
    d.run_stage(triaxial(-0.001, 10), 1, cb);
    ASSERT_EQ(all.size(), 10u);
    StagePlan s2;
    s2.name = "overload";
    s2.steps = 10;
    s2.comp[0] = {Control::Stress, true, 0.0};
    s2.comp[1] = {Control::Stress, false, -200.0};  // q = 100 > q_max
    s2.comp[2] = {Control::Stress, true, 0.0};
    for (int i = 3; i < 6; ++i) s2.comp[i] = {Control::Strain, true, 0.0};
    try {
        d.run_stage(s2, 2, cb);
        FAIL() << "no failure";
    } catch (const IncrementFailure& e) {
        std::string m = e.what();
        EXPECT_EQ(e.stage, 2);
        EXPECT_NE(m.find("stage 2 'overload'"), std::string::npos) << m;
        EXPECT_NE(m.find("increment"), std::string::npos) << m;
        EXPECT_NE(m.find("out-of-balance"), std::string::npos) << m;
        EXPECT_GE(e.increment, 1);
    }
    ASSERT_GT(all.size(), 10u);
    const PointState& last = all.back().st;
    EXPECT_EQ(d.state().sig, last.sig);
    EXPECT_EQ(d.state().eps, last.eps);
    EXPECT_LE(std::fabs(last.sig[1] - last.sig[0]), 60.0 * (1 + 1e-9));
}

// Increments larger than the model accepts are cut until they pass, and
// the stage still ends exactly at its target.
TEST(LabDriver, CutsIncrementsThatDoNotConverge) {
    ModelLibrary lib(LAB_FAKE_PLAIN_LIB);
    PointDriver d(lib, 1, {10000.0, 0.3, 0.0, 0.003});
    d.initialize({-100, -100, -100, 0, 0, 0}, 0.0);
    auto rows = run(d, triaxial(-0.02, 2));
    int cut = 0;
    for (const auto& r : rows) cut = std::max(cut, r.rec.cuts);
    EXPECT_EQ(rows.size(), 8u);
    EXPECT_EQ(cut, 2);
    EXPECT_DOUBLE_EQ(rows.back().st.eps[1], -0.02);
    EXPECT_EQ(rows.back().rec.increment, 2);
    EXPECT_EQ(rows[3].rec.increment, 1);
    EXPECT_DOUBLE_EQ(rows[3].st.eps[1], -0.01);
    // Too strict a limit: the report says so.
    PointDriver d2(lib, 1, {10000.0, 0.3, 0.0, 1e-9});
    SolverOptions so;
    so.max_cuts = 3;
    d2.set_solver(so);
    d2.initialize({-100, -100, -100, 0, 0, 0}, 0.0);
    try {
        run(d2, triaxial(-0.02, 2));
        FAIL();
    } catch (const IncrementFailure& e) {
        EXPECT_NE(std::string(e.what()).find("non-finite"), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find("increment 1 of 2"), std::string::npos) << e.what();
    }
}

TEST(LabDriver, RejectsBadStages) {
    ModelLibrary lib(LAB_FAKE_LIB);
    PointDriver d(lib, 1, {10000.0, 0.25});
    StagePlan s = triaxial(-0.01, 10);
    EXPECT_THROW(d.run_stage(s, 1, nullptr), LabError);  // not initialised
    d.initialize({-50, -50, -50, 0, 0, 0}, 0.0);
    s.steps = 0;
    EXPECT_THROW(d.run_stage(s, 1, nullptr), LabError);
    s.steps = 5;
    s.ties = {{0, 1}};  // yy is strain-controlled
    try {
        d.run_stage(s, 1, nullptr);
        FAIL();
    } catch (const LabError& e) {
        EXPECT_NE(std::string(e.what()).find("yy"), std::string::npos);
    }
    s.ties = {};
    s.comp[1].value = std::nan("");
    EXPECT_THROW(d.run_stage(s, 1, nullptr), LabError);
}

// The C interface drives the same point.
TEST(LabCApi, RunsAStageAndReportsErrors) {
    char err[256] = "";
    double props[2] = {10000.0, 0.25};
    EXPECT_EQ(tervak_lab_open("/no/such/lib.so", 1, props, 2, err, sizeof err), nullptr);
    EXPECT_NE(std::string(err).find("/no/such/lib.so"), std::string::npos) << err;
    EXPECT_EQ(tervak_lab_open(LAB_FAKE_LIB, 9, props, 2, err, sizeof err), nullptr);
    EXPECT_NE(std::string(err).find("model = 9"), std::string::npos) << err;

    tervak_lab_point* pt = tervak_lab_open(LAB_FAKE_LIB, 1, props, 2, err, sizeof err);
    ASSERT_NE(pt, nullptr) << err;
    double sig0[6] = {-100, -100, -100, 0, 0, 0};
    ASSERT_EQ(tervak_lab_initialize(pt, sig0, 0.0, err, sizeof err), 0) << err;
    int control[6] = {TERVAK_LAB_STRESS, TERVAK_LAB_STRAIN, TERVAK_LAB_STRESS,
                      TERVAK_LAB_STRAIN, TERVAK_LAB_STRAIN, TERVAK_LAB_STRAIN};
    int relative[6] = {1, 1, 1, 1, 1, 1};
    double value[6] = {0, -0.001, 0, 0, 0, 0};
    ASSERT_EQ(tervak_lab_stage(pt, control, relative, value, 10, 0, 0x5u, err, sizeof err), 0) << err;
    double sig[6], eps[6], pw = 1.0, sv[4] = {0, 0, 0, 0};
    EXPECT_EQ(tervak_lab_state(pt, sig, eps, &pw, sv, 4), 1);
    EXPECT_NEAR(sig[1], -100.0 - 10.0, 1e-9);
    EXPECT_NEAR(eps[0], 0.25 * 0.001, 1e-12);
    EXPECT_EQ(pw, 0.0);
    EXPECT_EQ(sv[0], 10.0);
    control[0] = 7;
    EXPECT_NE(tervak_lab_stage(pt, control, relative, value, 10, 0, 0u, err, sizeof err), 0);
    EXPECT_NE(std::string(err).find("xx"), std::string::npos) << err;
    tervak_lab_close(pt);
}
