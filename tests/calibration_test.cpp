// Model 1's calibration (task 7), checked from outside: from an example soil
// with Ei_ref and K0_nc moved a few per cent off, task 7 must come back to
// values with which a host's own laboratory procedure finds what the
// calibration promises: drained triaxial compression at p_ref reaches half
// the failure deviator at the strain qf / (2 E50_ref), within 0.1 %, and
// loading along sigma3 = K0 sigma1 has no lateral strain, within 1e-4 of the
// axial one. Soils run side by side in child processes; the sanitizer build
// studies one soil from its calibrated values only (one run per search) and
// leaves the laboratory checks to the plain build.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <vector>

#include "support/host.hpp"
#include "support/soil_file.hpp"

namespace {

using namespace tervak_test;

struct Study {
    const char* soil;
    double ei, k0;  // start offsets of Ei_ref and K0_nc
};
constexpr bool kLab = !TERVAK_SANITIZE_BUILD;
#if TERVAK_SANITIZE_BUILD
const std::vector<Study> kStudies = {{"loose_sand", 1.0, 1.0}};
#else
const std::vector<Study> kStudies = {{"dense_sand", 0.98, 1.01}, {"loose_sand", 1.02, 0.992}, {"soft_clay", 1.03, 1.005}};
#endif

double at(const std::vector<double>& p, const char* n) { return p[static_cast<size_t>(param_index(1, n) - 1)]; }

// One stress-controlled step: stiffness (task 3), its inverse turns the
// stress step into strains, stresses (task 2), commit.
void stress_step(Point& h, std::array<double, 6>& eps, const std::array<double, 6>& dS) {
    h.call(3);
    std::vector<double> C(36);
    I six = 6;
    sym<void(double*, double*, I*)>("matinvpiv_")(h.D.data(), C.data(), &six);
    for (size_t i = 0; i < 6; ++i) {
        double e = 0;
        for (size_t j = 0; j < 6; ++j) e += C[i + 6 * j] * dS[j];
        h.dEps[i] = e;
        eps[i] += e;
    }
    h.call(2);
    h.Sig0 = h.Sig;
    h.StVar0 = h.StVar;
}

// Axial strain at which drained compression at 100 reaches q50.
double triaxial_eps50(const std::vector<double>& p, double q50) {
    Point h(1, p);
    h.Sig0 = {-100, -100, -100, 0, 0, 0};
    h.StVar0[0] = 1e-9;
    h.StVar0[1] = -100;
    std::array<double, 6> eps{};
    while (-h.Sig0[1] - std::min(-h.Sig0[0], -h.Sig0[2]) < q50)
        stress_step(h, eps, {-100 - h.Sig0[0], -0.01, -100 - h.Sig0[2], 0, 0, 0});
    return -eps[1];
}

// Lateral over axial strain along sigma3 = K0 sigma1 from sigma1 = 1 to 500,
// from a normally consolidated start (gamma_p on the hyperbola at 1 - K0,
// the cap through the start stresses).
double k0_lateral(const std::vector<double>& p) {
    const double K0 = at(p, "K0_nc"), s = std::sin(at(p, "phi") * kDeg), cc = at(p, "c") * std::cos(at(p, "phi") * kDeg);
    const double qf = 2 * s / (1 - s) * std::max({at(p, "sigma_t") + cc / s, cc / s + K0, 1.0});
    const double q = std::min(1 - K0, qf), qa = qf / at(p, "R_f");
    const double S = std::pow(std::max(s * K0 + cc, std::max(1.0, cc)) / (at(p, "p_ref") * s + cc), at(p, "m"));
    const double pm = (1 + 2 * K0) / 3, a = at(p, "alpha");
    Point h(1, p);
    h.Sig0 = {-K0, -1, -K0, 0, 0, 0};
    h.StVar0[0] = 2 * q / (at(p, "Ei_ref") * S) * qa / (qa - q) - 2 * q / (S * at(p, "Eur_ref"));
    h.StVar0[1] = -std::sqrt((1 - K0) * (1 - K0) / (a * a) + pm * pm);
    std::array<double, 6> eps{};
    while (-h.Sig0[1] < 500) {
        const double s3 = -K0 * -h.Sig0[1];
        stress_step(h, eps, {s3 - h.Sig0[0], -0.01, s3 - h.Sig0[2], 0, 0, 0});
    }
    return std::max(std::abs(eps[0]), std::abs(eps[2])) / std::abs(eps[1]);
}

// The child's findings follow the library's lines after a marker.
std::string study(const Study& st) {
    std::vector<double> p = read_soil_file(soil_path(st.soil)).props;
    p.resize(50, 0.0);
    const std::vector<double> file = p;
    p[static_cast<size_t>(param_index(1, "Ei_ref") - 1)] *= st.ei;
    p[static_cast<size_t>(param_index(1, "K0_nc") - 1)] *= st.k0;
    const std::vector<double> start = p;
    const ChildResult r = run_child([&] {
        Point h(1, p);
        h.call(7);
        std::vector<double> after(h.Props.begin(), h.Props.begin() + 50);
        int changed = 0;
        for (size_t i = 0; i < 50; ++i)
            if (after[i] != start[i]) changed |= i == 9 || i == 12 ? 0 : 1;
        const double s = std::sin(at(after, "phi") * kDeg), ccot = at(after, "c") * std::cos(at(after, "phi") * kDeg) / s;
        const double qf = 2 * s / (1 - s) * std::max(ccot + at(after, "p_ref"), std::max(0.0, ccot - at(after, "sigma_t")));
        const double ratio = kLab ? triaxial_eps50(after, qf / 2) / (qf / (2 * at(after, "E50_ref"))) : 1.0;
        std::printf("@@ %d %.17g %.17g %.17g %.17g\n", changed, ratio, kLab ? k0_lateral(after) : 0.0, at(after, "Ei_ref"),
                    at(after, "Ei_ref") / at(file, "Ei_ref"));
    });
    EXPECT_EQ(r.status, 0) << st.soil;
    return r.out;
}

TEST(Calibration, ComesBackToWhatTheLaboratoryConfirms) {
    std::vector<std::future<std::string>> runs;
    for (const Study& s : kStudies) runs.push_back(std::async(std::launch::async, study, s));
    for (size_t k = 0; k < kStudies.size(); ++k) {
        SCOPED_TRACE(kStudies[k].soil);
        const std::string out = runs[k].get();
        const std::vector<std::string> L = lines(out);
        ASSERT_GE(L.size(), 4u) << out;
        EXPECT_EQ(L[0], " Iterative_hss started");
        EXPECT_EQ(L[1].rfind(" Props ", 0), 0u);
        int changed = 1;
        double ratio = 0, lateral = 1, ei = 0, drift = 0;
        ASSERT_EQ(std::sscanf(L.back().c_str(), "@@ %d %lf %lf %lf %lf", &changed, &ratio, &lateral, &ei, &drift), 5) << out;
        EXPECT_EQ(changed, 0) << "task 7 writes only K0_nc and Ei_ref";
        EXPECT_LE(std::abs(ratio - 1), 1e-3 + 1e-6) << ratio;
        EXPECT_LE(lateral, 1.05e-4) << lateral;
        EXPECT_NEAR(drift, 1.0, 5e-3);  // back near the example file's value
        // The search ends on the value it writes.
        size_t det = 0;
        for (size_t i = 0; i < L.size(); ++i)
            if (L[i].rfind(" Ei_ref_inter is determined:", 0) == 0) det = i;
        ASSERT_GT(det, 1u) << out;
        EXPECT_EQ(std::strtod(L[det].substr(29).c_str(), nullptr), ei);
        if (kStudies[k].ei == 1.0) EXPECT_EQ(det, 2u) << "a calibrated set is recognised in one run";
        for (size_t i = 2; i < det; ++i)
            EXPECT_TRUE(L[i].rfind(" increase Ei_ref_inter to", 0) == 0 || L[i].rfind(" reduce Ei_ref_inter to", 0) == 0) << L[i];
    }
}

// The printed search replayed from its rules: each run moves Ei by the step
// in the direction it prints, the step shrinks by 0.99 at a change of
// direction, and the 101st run starts over with the single-precision 0.001.
// A start far too soft takes more than 100 runs.
TEST(Calibration, SearchFollowsItsStepRules) {
    if (!kLab) GTEST_SKIP() << "the long search runs in the plain build";
    std::vector<double> p = read_soil_file(soil_path("dense_sand")).props;
    p.resize(50, 0.0);
    // A low friction angle keeps each run short (a small failure deviator).
    p[static_cast<size_t>(param_index(1, "phi") - 1)] = 12.0;
    p[static_cast<size_t>(param_index(1, "psi") - 1)] = 0.0;
    p[static_cast<size_t>(param_index(1, "K0_nc") - 1)] = 1.0 - std::sin(12.0 * kDeg);
    p[static_cast<size_t>(param_index(1, "Ei_ref") - 1)] *= 0.3;
    const ChildResult r = run_child([&] { Point(1, p).call(7); });
    ASSERT_EQ(r.status, 0);
    double ei = at(p, "Ei_ref"), step = 0.01, dir = 1;
    int runs = 0, counter = 0;
    for (const std::string& l : lines(r.out)) {
        const bool up = l.rfind(" increase Ei_ref_inter to", 0) == 0, down = l.rfind(" reduce Ei_ref_inter to", 0) == 0;
        if (!up && !down) continue;
        ++runs;
        if (++counter == 101) counter = 0, step = 0.0010000000474974513;
        if ((up && dir < 0) || (down && dir > 0)) step *= 0.99;
        const double expect = (up ? 1 + step : 1 - step) * ei;
        ei = std::strtod(l.substr(l.find(" to") + 3).c_str(), nullptr);
        ASSERT_NEAR(ei, expect, 1e-13 * expect) << "run " << runs << ": " << l;
        dir = up ? 1 : -1;
    }
    EXPECT_GT(runs, 101) << r.out.substr(0, 2000);
}

TEST(Calibration, Model3HasNoCalibrationTask) {
    std::vector<double> p = read_soil_file(soil_path("dense_sand")).props;
    p.resize(50, 0.0);
    Point h(3, p);
    h.iEl = 11;
    h.Int = 4;
    const std::string out = h.traced(7);
    EXPECT_EQ(h.Props, p);
    EXPECT_EQ(out, "");
}

}  // namespace
