// Mohr-Coulomb, tension cut-off and combined returns, and the shared
// return-mapping scheme they are built on.
//
// The faces are planes, so a trial state built as a point on the target
// face, edge or corner plus a plastic correction sum lam_i D3 m_i has that
// point as its exact return: the sweeps build trials that way and check the
// kernels find the point again.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <cstring>
#include <string>
#include <vector>

#include "kernels/kernels.hpp"
#include "support/kernel_calls.hpp"
#include "kernels/return_scheme.hpp"
#include "support/test_support.hpp"
#include "toolkit/elastic.hpp"

namespace {

using tervak::Mat3;
using tervak::Vec3;
using tervak_test::capture_stdout;
using tervak_test::run_child;

constexpr double kDeg = 0.017453292519444445;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr const char* kOk = " Return Mapping Ok!\n";
constexpr const char* kProblem = " Numerical problem\n";

using Kernel = void (*)(int, int, int, int, int, const double*, const Vec3&, Vec3&,
                        const double*, double*, int&, const Vec3&, const Mat3&, int);

struct KernelInfo {
    const char* name;
    Kernel fn;
    int iPlast;
};
const KernelInfo kMC{"MC_plast", tervak::MC_plast, 1};
const KernelInfo kTRAC{"TRAC_plast", tervak::TRAC_plast, 2};
const KernelInfo kMCTRAC{"MC_TRAC_plast", tervak::MC_TRAC_plast, 1};

// One parameter set; every Props entry the kernels must not read is NaN.
struct Material {
    int iModel = 1;
    std::array<double, 25> props{};
    double c = 0, phi = 0, psi = 0, sigma_t = 0;
    double sin_phi = 0, sin_psi = 0, c_cos_phi = 0;
    double st() const { return -sigma_t; }
};

Material make_material(int iModel, double c, double phi_deg, double psi_deg, double sigma_t) {
    Material m;
    m.iModel = iModel;
    m.props.fill(kNaN);
    const bool odd = (iModel == 1 || iModel == 3);
    m.props[(odd ? 5 : 14) - 1] = c;
    m.props[(odd ? 6 : 15) - 1] = phi_deg;
    m.props[(odd ? 7 : 16) - 1] = psi_deg;
    m.props[(odd ? 12 : 19) - 1] = sigma_t;
    if (odd) {  // what Matriz3 reads
        m.props[3 - 1] = 4.0e4;
        m.props[4 - 1] = 0.5;
        m.props[8 - 1] = 0.25;
        m.props[9 - 1] = 100.0;
    }
    m.c = c;
    m.phi = phi_deg * kDeg;
    m.psi = psi_deg * kDeg;
    m.sigma_t = sigma_t;
    m.sin_phi = std::sin(m.phi);
    m.sin_psi = std::sin(m.psi);
    m.c_cos_phi = c * std::cos(m.phi);
    return m;
}

// --- faces as the test sees them --------------------------------------------

enum class Face { MC13, MC12, MC23, T3, T2, ORD };

double face_value(const Material& m, Face f, const Vec3& P) {
    auto mc = [&](int i, int j) {
        return (P(i) - P(j)) / 2.0 - (P(i) + P(j)) / 2.0 * m.sin_phi - m.c_cos_phi;
    };
    switch (f) {
        case Face::MC13: return mc(1, 3);
        case Face::MC12: return mc(1, 2);
        case Face::MC23: return mc(2, 3);
        case Face::T3: return m.st() - P(3);
        case Face::T2: return m.st() - P(2);
        case Face::ORD: return P(2) - P(1);
    }
    return 0;
}

// Plastic-potential gradient (flow vector) of a face.
Vec3 flow(const Material& m, Face f) {
    const double a = (1.0 - m.sin_psi) / 2.0, b = -(1.0 + m.sin_psi) / 2.0;
    switch (f) {
        case Face::MC13: return Vec3{{a, 0.0, b}};
        case Face::MC12: return Vec3{{a, b, 0.0}};
        case Face::MC23: return Vec3{{0.0, a, b}};
        case Face::T3: return Vec3{{0.0, 0.0, -1.0}};
        case Face::T2: return Vec3{{0.0, -1.0, 0.0}};
        case Face::ORD: return Vec3{{-1.0, 1.0, 0.0}};
    }
    return Vec3{};
}

Vec3 times(const Mat3& D, const Vec3& x) {
    Vec3 y;
    for (int i = 1; i <= 3; ++i)
        for (int k = 1; k <= 3; ++k) y(i) += D(i, k) * x(k);
    return y;
}

std::vector<Face> faces_of(const KernelInfo& k, int area) {
    if (k.fn == kMC.fn) {
        if (area == 1) return {Face::MC13};
        return {Face::MC13, area == 2 ? Face::MC12 : Face::MC23};
    }
    if (k.fn == kTRAC.fn) {
        if (area == 1) return {Face::T3};
        return {Face::T3, area == 2 ? Face::T2 : Face::ORD};
    }
    if (area == 1) return {Face::MC13, Face::T3};
    return {Face::MC13, area == 2 ? Face::MC12 : Face::MC23, Face::T3};
}

// Major stress on face 13 for a given minor stress.
double s1_on_mc(const Material& m, double s3) {
    return (s3 * (1.0 + m.sin_phi) + 2.0 * m.c_cos_phi) / (1.0 - m.sin_phi);
}

// --- calling a kernel ---------------------------------------------------------

struct Result {
    Vec3 Prs;
    double HardPar[2] = {0, 0};
    int iPlast = -99;
    std::string out;
};

constexpr double kHard1Sentinel = 1234.5678;
const double kHardE[2] = {0.0421, -317.25};

Result call(const KernelInfo& k, int area, const Material& m, const Mat3& D3, const Vec3& Prs_E,
            bool traced) {
    Result r;
    r.Prs = Vec3{{-1.0, -2.0, -3.0}};
    r.HardPar[0] = kHard1Sentinel;
    r.HardPar[1] = 999.0;
    const Vec3 Prs_0{{kNaN, kNaN, kNaN}};  // not read by these kernels
    r.out = capture_stdout([&] {
        k.fn(487, 3, traced ? 487 : -1, traced ? 3 : 0, area, m.props.data(), Prs_E, r.Prs, kHardE,
             r.HardPar, r.iPlast, Prs_0, D3, m.iModel);
    });
    return r;
}

Mat3 d3_for(const Material& m, const Vec3& stress, std::mt19937_64& rng) {
    Mat3 D3;
    if (m.iModel == 1 || m.iModel == 3) {
        tervak::Matriz3(m.props.data(), stress.data(), D3.data(), m.iModel);
    } else {
        std::uniform_real_distribution<double> E(5.0e3, 2.0e5), nu(0.1, 0.4);
        const double e = E(rng), n = nu(rng);
        const double K = e / (3.0 * (1.0 - 2.0 * n)), G = e / (2.0 * (1.0 + n));
        tervak::Matriz3_NL(D3.data(), K, G);
    }
    return D3;
}

// A target point on the faces of the kernel's area.
Vec3 target(const KernelInfo& k, int area, const Material& m, std::mt19937_64& rng) {
    std::uniform_real_distribution<double> u(0.05, 0.95), s3d(-0.5, 400.0), gap(0.5, 300.0);
    const double st = m.st();
    if (k.fn == kMC.fn) {
        const double s3 = std::max(s3d(rng), -0.5 * m.c_cos_phi / std::max(m.sin_phi, 1e-3));
        const double s1 = s1_on_mc(m, s3);
        if (area == 1) return Vec3{{s1, s3 + u(rng) * (s1 - s3), s3}};
        if (area == 2) return Vec3{{s1, s3, s3}};
        return Vec3{{s1, s1, s3}};
    }
    if (k.fn == kTRAC.fn) {
        const double a = st + gap(rng);
        if (area == 1) return Vec3{{a, st + u(rng) * (a - st), st}};
        if (area == 2) return Vec3{{a, st, st}};
        return Vec3{{a, a, st}};
    }
    const double s1 = s1_on_mc(m, st);
    if (area == 1) return Vec3{{s1, st + u(rng) * (s1 - st), st}};
    if (area == 2) return Vec3{{s1, st, st}};
    return Vec3{{s1, s1, st}};
}

Material random_material(const KernelInfo& k, int iModel, std::mt19937_64& rng, bool associated) {
    std::uniform_real_distribution<double> c(0.0, 50.0), phi(20.0, 45.0), u(0.0, 1.0);
    const double cc = c(rng), ph = phi(rng);
    const double ps = associated ? ph : u(rng) * ph;
    // With the Mohr-Coulomb faces the cut-off must lie short of the apex.
    const double cot = std::cos(ph * kDeg) / std::sin(ph * kDeg);
    const double t = (k.fn == kTRAC.fn) ? 20.0 * u(rng) : 0.9 * u(rng) * cc * cot;
    return make_material(iModel, cc, ph, ps, t);
}

double scale_of(const Vec3& a, const Vec3& b) {
    double s = 1.0;
    for (int i = 1; i <= 3; ++i) s = std::max({s, std::fabs(a(i)), std::fabs(b(i))});
    return s;
}

// --- the sweeps ---------------------------------------------------------------

struct SweepCase {
    const KernelInfo* k;
    int area;
};

class PlaneSweep : public ::testing::TestWithParam<SweepCase> {};

TEST_P(PlaneSweep, ReturnsToTheConstructedPointWithOkVerdict) {
    const KernelInfo& k = *GetParam().k;
    const int area = GetParam().area;
    std::mt19937_64 rng(20240611u + 17u * static_cast<unsigned>(area) +
                        static_cast<unsigned>(k.iPlast) * 101u +
                        (k.fn == kMCTRAC.fn ? 7u : 0u));
    std::uniform_real_distribution<double> lam(1e-5, 5e-3);
    int ok = 0, total = 0;
    for (int iModel = 1; iModel <= 4; ++iModel) {
        for (int n = 0; n < 300; ++n) {
            const Material m = random_material(k, iModel, rng, n % 5 == 0);
            const Vec3 P = target(k, area, m, rng);
            const Mat3 D3 = d3_for(m, P, rng);
            const auto faces = faces_of(k, area);
            Vec3 Prs_E = P;
            for (Face f : faces) {
                const Vec3 Dm = times(D3, flow(m, f));
                const double l = lam(rng);
                for (int i = 1; i <= 3; ++i) Prs_E(i) += l * Dm(i);
            }
            SCOPED_TRACE(::testing::Message() << k.name << " area " << area << " model " << iModel
                                              << " case " << n);
            const Result r = call(k, area, m, D3, Prs_E, true);
            ++total;
            ASSERT_TRUE(r.out == kOk || r.out == kProblem) << r.out;
            if (r.out == kOk) ++ok;

            // Back on the constructed point.
            const double scale = scale_of(Prs_E, P);
            for (int i = 1; i <= 3; ++i) EXPECT_NEAR(r.Prs(i), P(i), 1e-9 * scale) << "i=" << i;

            // Every active face within its tolerance when the verdict is Ok.
            if (r.out == kOk) {
                for (Face f : faces) {
                    const double tol = std::fabs(face_value(m, f, Prs_E)) * 1e-12 + 1e-12;
                    EXPECT_LE(std::fabs(face_value(m, f, r.Prs)), tol);
                }
            }
            // Edges: the two principal stresses meet.
            if (area == 2) {
                EXPECT_NEAR(r.Prs(2), r.Prs(3), 1e-10 * scale);
            }
            if (area == 3) {
                EXPECT_NEAR(r.Prs(1), r.Prs(2), 1e-10 * scale);
            }

            // Hardening pair and plasticity code.
            EXPECT_EQ(r.HardPar[0], kHard1Sentinel);
            EXPECT_EQ(r.HardPar[1], kHardE[1]);
            EXPECT_EQ(r.iPlast, k.iPlast);

            // Away from the traced point: same stresses, silent.
            const Result q = call(k, area, m, D3, Prs_E, false);
            EXPECT_EQ(q.out, "");
            EXPECT_EQ(std::memcmp(q.Prs.v, r.Prs.v, sizeof r.Prs.v), 0);
        }
    }
    // Trials built with positive multipliers are plastic: the verdict is Ok.
    EXPECT_EQ(ok, total);
}

std::string sweep_name(const ::testing::TestParamInfo<SweepCase>& info) {
    return std::string(info.param.k->name) + "_area" + std::to_string(info.param.area);
}

INSTANTIATE_TEST_SUITE_P(AllKernelsAllAreas, PlaneSweep,
                         ::testing::Values(SweepCase{&kMC, 1}, SweepCase{&kMC, 2},
                                           SweepCase{&kMC, 3}, SweepCase{&kTRAC, 1},
                                           SweepCase{&kTRAC, 2}, SweepCase{&kTRAC, 3},
                                           SweepCase{&kMCTRAC, 1}, SweepCase{&kMCTRAC, 2},
                                           SweepCase{&kMCTRAC, 3}),
                         sweep_name);

// --- individual properties ----------------------------------------------------

TEST(MCPlast, AssociatedReturnMovesAlongD3TimesTheGradient) {
    std::mt19937_64 rng(77);
    for (int iModel : {1, 2}) {
        for (int n = 0; n < 50; ++n) {
            const Material m = random_material(kMC, iModel, rng, true);
            const Vec3 P = target(kMC, 1, m, rng);
            const Mat3 D3 = d3_for(m, P, rng);
            const Vec3 grad{{(1.0 - m.sin_phi) / 2.0, 0.0, -(1.0 + m.sin_phi) / 2.0}};
            const Vec3 Dn = times(D3, grad);
            // A trial from an arbitrary direction outside the face.
            Vec3 Prs_E = P;
            Prs_E(1) += 200.0;
            Prs_E(2) += 37.0;
            const Result r = call(kMC, 1, m, D3, Prs_E, false);
            Vec3 dP;
            for (int i = 1; i <= 3; ++i) dP(i) = Prs_E(i) - r.Prs(i);
            // dP parallel to D3 n: the cross product vanishes, and dP points along +D3 n.
            const double cx = dP(2) * Dn(3) - dP(3) * Dn(2);
            const double cy = dP(3) * Dn(1) - dP(1) * Dn(3);
            const double cz = dP(1) * Dn(2) - dP(2) * Dn(1);
            const double ref = std::sqrt(
                (dP(1) * dP(1) + dP(2) * dP(2) + dP(3) * dP(3)) * (Dn(1) * Dn(1) + Dn(2) * Dn(2) + Dn(3) * Dn(3)));
            EXPECT_LE(std::sqrt(cx * cx + cy * cy + cz * cz), 1e-12 * ref);
            EXPECT_GT(dP(1) * Dn(1) + dP(2) * Dn(2) + dP(3) * Dn(3), 0.0);
        }
    }
}

TEST(MCPlast, TrialOnTheFaceComesBackUnchanged) {
    const Material m = make_material(1, 10.0, 30.0, 0.0, 0.0);
    // s3 = 100: s1 = (100 * 1.5 + 2 * 10 cos30) / 0.5 with sin30 ~ 0.5.
    const Vec3 Prs_E{{s1_on_mc(m, 100.0), 150.0, 100.0}};
    std::mt19937_64 rng(1);
    const Mat3 D3 = d3_for(m, Prs_E, rng);
    const Result r = call(kMC, 1, m, D3, Prs_E, true);
    EXPECT_EQ(r.out, kOk);
    for (int i = 1; i <= 3; ++i) EXPECT_NEAR(r.Prs(i), Prs_E(i), 1e-12 * Prs_E(1));
}

TEST(MCPlast, ElasticTrialGivesNegativeMultiplierYetLandsOnTheFace) {
    std::mt19937_64 rng(5);
    for (int iModel : {1, 2, 3, 4}) {
        const Material m = make_material(iModel, 15.0, 32.0, 4.0, 0.0);
        const Vec3 P{{s1_on_mc(m, 80.0), 120.0, 80.0}};
        const Mat3 D3 = d3_for(m, P, rng);
        const Vec3 Dm = times(D3, flow(m, Face::MC13));
        Vec3 Prs_E = P;
        for (int i = 1; i <= 3; ++i) Prs_E(i) -= 2e-3 * Dm(i);  // inside the surface
        const Result r = call(kMC, 1, m, D3, Prs_E, true);
        EXPECT_EQ(r.out, kProblem);
        for (int i = 1; i <= 3; ++i) EXPECT_NEAR(r.Prs(i), P(i), 1e-9 * P(1));
    }
}

TEST(MCPlast, ReadsItsParametersByModelNumber) {
    // Props holds one set at 5-7 and another at 14-16: the return must
    // satisfy the set of the model number and violate the other.
    std::array<double, 25> props;
    props.fill(kNaN);
    props[3 - 1] = 4.0e4;
    props[4 - 1] = 0.5;
    props[8 - 1] = 0.25;
    props[9 - 1] = 100.0;
    props[5 - 1] = 5.0, props[6 - 1] = 25.0, props[7 - 1] = 0.0, props[12 - 1] = 0.0;
    props[14 - 1] = 40.0, props[15 - 1] = 38.0, props[16 - 1] = 8.0, props[19 - 1] = 0.0;
    const Material odd = make_material(1, 5.0, 25.0, 0.0, 0.0);
    const Material even = make_material(2, 40.0, 38.0, 8.0, 0.0);
    Mat3 D3;
    tervak::Matriz3_NL(D3.data(), 2.0e4, 1.0e4);
    const Vec3 Prs_E{{900.0, 300.0, 100.0}};
    for (int iModel = 1; iModel <= 4; ++iModel) {
        Material m = make_material(iModel, 0, 0, 0, 0);
        m.props = props;
        const Result r = call(kMC, 1, m, D3, Prs_E, false);
        const Material& own = (iModel % 2 == 1) ? odd : even;
        const Material& other = (iModel % 2 == 1) ? even : odd;
        EXPECT_LE(std::fabs(face_value(own, Face::MC13, r.Prs)), 1e-9) << iModel;
        EXPECT_GT(std::fabs(face_value(other, Face::MC13, r.Prs)), 1.0) << iModel;
    }
}

TEST(TRACPlast, AreaOneWithDiagonalD3LandsExactlyOnTheCutOff) {
    for (double st : {-5.0, 0.0, -12.25, -3.5}) {
        for (double d33 : {2.0e4, 16384.0, 7.5e3}) {
            ASSERT_EQ((1.0 / d33) * d33, 1.0);  // the case the statement is about
            Mat3 D3;
            D3(1, 1) = 3.0e4, D3(2, 2) = 2.5e4, D3(3, 3) = d33;
            const Material m = make_material(1, 0.0, 30.0, 0.0, -st);
            const Vec3 Prs_E{{250.0, 40.0, st - 1.0}};
            const Result r = call(kTRAC, 1, m, D3, Prs_E, true);
            EXPECT_EQ(r.out, kOk);
            EXPECT_EQ(r.Prs(3), st);
            EXPECT_EQ(r.Prs(1), Prs_E(1));  // no off-diagonal terms to move them
            EXPECT_EQ(r.Prs(2), Prs_E(2));
            EXPECT_EQ(r.HardPar[0], kHard1Sentinel);
            EXPECT_EQ(r.iPlast, 2);
        }
    }
}

TEST(TRACPlast, OffDiagonalTermsMoveTheOtherStresses) {
    Mat3 D3;
    tervak::Matriz3_NL(D3.data(), 1.0e4, 6.0e3);
    const Material m = make_material(2, 0.0, 30.0, 0.0, 2.0);
    const Vec3 Prs_E{{100.0, 50.0, -3.0}};
    const Result r = call(kTRAC, 1, m, D3, Prs_E, false);
    EXPECT_NEAR(r.Prs(3), -2.0, 1e-12);
    const double lam = (m.st() - Prs_E(3)) / D3(3, 3);
    EXPECT_NEAR(r.Prs(1), Prs_E(1) + lam * D3(1, 3), 1e-12 * Prs_E(1));
    EXPECT_NEAR(r.Prs(2), Prs_E(2) + lam * D3(2, 3), 1e-12 * Prs_E(1));
}

TEST(TRACPlast, TensileStrengthPositionFollowsTheModelNumber) {
    std::array<double, 25> props;
    props.fill(kNaN);
    props[12 - 1] = 3.0;
    props[19 - 1] = 7.0;
    Mat3 D3;
    tervak::Matriz3_NL(D3.data(), 1.0e4, 5.0e3);
    const Vec3 Prs_E{{60.0, 20.0, -20.0}};
    for (int iModel = 1; iModel <= 4; ++iModel) {
        Material m = make_material(iModel, 0, 0, 0, 0);
        m.props = props;
        const Result r = call(kTRAC, 1, m, D3, Prs_E, false);
        EXPECT_NEAR(r.Prs(3), (iModel % 2 == 1) ? -3.0 : -7.0, 1e-12) << iModel;
    }
}

TEST(TRACPlast, AreaOneWithoutStiffnessOnTheMinorAxisEndsNonFinite) {
    // The first step lands on the plane up to rounding for any finite trial;
    // with D3(3,3) = 0 it cannot, the correction loop runs (its update divides
    // by 0 * 0) and the point comes back non-finite with the failure verdict.
    Mat3 D3;
    D3(1, 1) = 3.0e4, D3(2, 2) = 2.5e4;
    const Material m = make_material(1, 0.0, 30.0, 0.0, 2.0);
    const Vec3 Prs_E{{250.0, 40.0, -3.0}};
    const Result quiet = call(kTRAC, 1, m, D3, Prs_E, false);
    EXPECT_EQ(quiet.out, "");
    EXPECT_FALSE(std::isfinite(quiet.Prs(3)));
    EXPECT_EQ(call(kTRAC, 1, m, D3, Prs_E, true).out, kProblem);
}

TEST(MCTRACPlast, SingularCornerSystemGivesNonFiniteStressesAndOnlyTheVerdict) {
    // phi = psi = 90 degrees makes face 13 the cut-off itself: rows 1 and 3 of
    // the corner system coincide.
    for (int iModel : {1, 2}) {
        const Material m = make_material(iModel, 10.0, 90.0, 90.0, 1.0);
        ASSERT_EQ(m.sin_phi, 1.0);
        Mat3 D3;
        tervak::Matriz3_NL(D3.data(), 2.0e4, 1.0e4);
        const Vec3 Prs_E{{200.0, -5.0, -8.0}};
        for (int area : {2, 3}) {
            const Result quiet = call(kMCTRAC, area, m, D3, Prs_E, false);
            EXPECT_EQ(quiet.out, "");
            bool nonfinite = false;
            for (int i = 1; i <= 3; ++i) nonfinite = nonfinite || !std::isfinite(quiet.Prs(i));
            EXPECT_TRUE(nonfinite);
            const Result traced = call(kMCTRAC, area, m, D3, Prs_E, true);
            EXPECT_EQ(traced.out, kProblem);
        }
    }
}

TEST(AllKernels, NaNTrialNeverConverges) {
    const Material m = make_material(2, 10.0, 30.0, 5.0, 1.0);
    Mat3 D3;
    tervak::Matriz3_NL(D3.data(), 2.0e4, 1.0e4);
    for (const KernelInfo* k : {&kMC, &kTRAC, &kMCTRAC})
        for (int area = 1; area <= 3; ++area) {
            const Result r = call(*k, area, m, D3, Vec3{{100.0, 40.0, kNaN}}, true);
            EXPECT_EQ(r.out, kProblem) << k->name << area;
        }
}

TEST(AllKernels, InvalidAreaStopsWithTheKernelsMessage) {
    const Material m = make_material(1, 10.0, 30.0, 5.0, 1.0);
    Mat3 D3;
    tervak::Matriz3_NL(D3.data(), 2.0e4, 1.0e4);
    for (const KernelInfo* k : {&kMC, &kTRAC, &kMCTRAC}) {
        for (int area : {0, 4, -1}) {
            const auto res = run_child([&] {
                Vec3 Prs;
                double hp[2] = {0, 0};
                int ip = 0;
                k->fn(1, 1, -1, 0, area, m.props.data(), Vec3{{100, 50, 10}}, Prs, kHardE, hp, ip,
                      Vec3{}, D3, 1);
            });
            EXPECT_EQ(res.out, std::string("  incorrect iArea in ") + k->name + "\n");
            EXPECT_EQ(res.err, std::string("STOP incorrect iArea in ") + k->name + "\n");
            EXPECT_NE(res.status, 0);
        }
    }
}

// --- the exported entry points ----------------------------------------------

TEST(Exports, ByReferenceWrappersMatchTheInternalKernels) {
    void* lib = dlopen(TERVAK_LIB_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    using Abi = void (*)(const int*, const int*, const int*, const int*, const int*,
                         const double*, const double*, double*, const double*, double*, int*,
                         const double*, const double*, const int*);
    std::mt19937_64 rng(3);
    for (const KernelInfo* k : {&kMC, &kTRAC, &kMCTRAC}) {
        std::string sym = k->name;
        for (char& ch : sym) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
        sym += "_";
        auto fn = reinterpret_cast<Abi>(dlsym(lib, sym.c_str()));
        ASSERT_NE(fn, nullptr) << sym;
        for (int area = 1; area <= 3; ++area) {
            const Material m = random_material(*k, 2, rng, false);
            const Vec3 P = target(*k, area, m, rng);
            const Mat3 D3 = d3_for(m, P, rng);
            Vec3 Prs_E = P;
            Prs_E(1) += 50.0;
            Prs_E(3) -= 20.0;
            const Result want = call(*k, area, m, D3, Prs_E, true);
            const int iEl = 11, Int = 4, iArea = area, iModel = m.iModel;
            double Prs[3] = {0, 0, 0}, hard[2] = {kHard1Sentinel, 0.0}, prs0[3] = {0, 0, 0};
            int iPlast = -7;
            const std::string out = capture_stdout([&] {
                fn(&iEl, &Int, &iEl, &Int, &iArea, m.props.data(), Prs_E.data(), Prs, kHardE,
                   hard, &iPlast, prs0, D3.data(), &iModel);
            });
            EXPECT_EQ(out, want.out) << sym << area;
            EXPECT_EQ(std::memcmp(Prs, want.Prs.v, sizeof Prs), 0) << sym << area;
            EXPECT_EQ(hard[0], kHard1Sentinel);
            EXPECT_EQ(hard[1], kHardE[1]);
            EXPECT_EQ(iPlast, k->iPlast);
        }
    }
    dlclose(lib);
}

// --- the shared scheme on a scripted surface ----------------------------------

// One surface whose value drops to zero after a given number of hardening
// updates (the first step makes one); gradients of a unit plane.
struct Scripted {
    static constexpr int N = 1;
    int converge_after = 0;
    int updates = 0;
    void values(const Vec3&, double (&f)[N]) const { f[0] = updates > converge_after ? 0.0 : 1.0; }
    void terms(const Vec3&, const double (&)[N], tervak::rm::SurfaceTerms<N>& t) const {
        t.n[0] = Vec3{{1.0, 0.0, 0.0}};
        t.m[0] = Vec3{{1.0, 0.0, 0.0}};
    }
    void harden(const double (&)[N]) { ++updates; }
};

TEST(ReturnScheme, BothLoopFormsCountPassesAndFailAtOneHundredAndOne) {
    namespace rm = tervak::rm;
    const Mat3 D3 = tervak::identity3();
    for (int passes : {0, 1, 2, 57, 100, 101, 150}) {
        for (int form = 0; form < 2; ++form) {
            Scripted set;
            set.converge_after = passes;
            rm::ReturnState<1> s;
            rm::first_step(set, Vec3{{1.0, 0.0, 0.0}}, D3, s);
            if (form == 0)
                rm::run_loop(rm::kFace, set, Vec3{{1.0, 0.0, 0.0}}, D3, s);
            else
                rm::run_loop(rm::kEdge, set, Vec3{{1.0, 0.0, 0.0}}, D3, s);
            EXPECT_EQ(s.it, std::min(passes, 101)) << passes << " form " << form;
            // A converged 101st pass still counts as failure.
            EXPECT_EQ(rm::kEdge.ok(s), passes < 101) << passes;
            EXPECT_EQ(rm::converged(s), passes <= 101) << passes;
        }
    }
}

TEST(ReturnScheme, AfterPassHookEndsTheLoop) {
    namespace rm = tervak::rm;
    Scripted set;
    set.converge_after = 1000;
    rm::ReturnState<1> s;
    rm::first_step(set, Vec3{{1.0, 0.0, 0.0}}, tervak::identity3(), s);
    const bool ended = rm::run_loop(rm::kEdge, set, Vec3{{1.0, 0.0, 0.0}}, tervak::identity3(), s,
                                    [](const rm::ReturnState<1>& st) { return st.it == 3; });
    EXPECT_TRUE(ended);
    EXPECT_EQ(s.it, 3);
}

TEST(ReturnScheme, VerdictRejectsNegativeAndNaNMultipliers) {
    namespace rm = tervak::rm;
    rm::ReturnState<2> s;
    s.xLam[0] = 1.0;
    s.xLam[1] = -0.5e-12;
    EXPECT_TRUE(rm::kEdge.ok(s));
    s.xLam[1] = -1e-12;
    EXPECT_FALSE(rm::kEdge.ok(s));
    s.xLam[1] = kNaN;
    EXPECT_FALSE(rm::kEdge.ok(s));
    s.xLam[1] = 0.0;
    s.f[0] = kNaN;
    s.tol[0] = 1.0;
    EXPECT_FALSE(rm::converged(s));
}

}  // namespace
