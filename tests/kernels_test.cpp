// The return-mapping kernels through their exports, as a Fortran caller
// reaches them. Plane faces: a trial built as a point on the target face,
// edge or corner plus a plastic correction sum lam_i D3 m_i has that point as
// its exact return, so the kernel must find it again. Curved surfaces: the
// returned triple lies on the active surfaces (written out here from their
// definitions) and the hardening pair only grows.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "support/host.hpp"

namespace {

using namespace tervak_test;
using Kernel14 = void(I*, I*, I*, I*, I*, double*, double*, double*, double*, double*, I*, double*, double*, I*);
using Kernel15 = void(I*, I*, I*, I*, I*, double*, double*, double*, double*, double*, I*, double*, double*, double*, I*);

struct Out {
    Triple Prs{};
    double hard[2] = {};
    I iPlast = -9;
    std::string trace;
};

// Calls a kernel by name with the tail its family takes; traced when asked.
Out run(const std::string& name, int model, I area, std::vector<double>& P, Triple trial, const double hardE[2],
        Triple Prs0, const double D3[9], bool traced = false, double R = 1.0, bool capture = true, I undr = 0) {
    Out o;
    I iEl = 1, Int = 1, dbgEl = traced ? 1 : -1, dbgInt = traced ? 1 : 0, m = model;
    double hE[2] = {hardE[0], hardE[1]}, d3[9];
    std::copy(D3, D3 + 9, d3);
    o.hard[0] = hE[0];
    o.hard[1] = hE[1];
    auto call = [&] {
        const std::string s = name + "_";
        if (name == "mc_plast" || name == "trac_plast" || name == "mc_trac_plast")
            sym<Kernel14>(s.c_str())(&iEl, &Int, &dbgEl, &dbgInt, &area, P.data(), trial.data(), o.Prs.data(), hE,
                                     o.hard, &o.iPlast, Prs0.data(), d3, &m);
        else if (name == "hs_cap_plast_it")  // silent, no D3: its own at Prs0
            sym<void(I*, double*, double*, double*, double*, double*, I*, double*, I*)>(s.c_str())(
                &area, P.data(), trial.data(), o.Prs.data(), hE, o.hard, &o.iPlast, Prs0.data(), &m);
        else if (name == "mc_cap_plast")
            sym<Kernel15>(s.c_str())(&iEl, &Int, &dbgEl, &dbgInt, &area, P.data(), trial.data(), o.Prs.data(), hE,
                                     o.hard, &o.iPlast, Prs0.data(), d3, &R, &m);
        else
            sym<Kernel16>(s.c_str())(&iEl, &Int, &dbgEl, &dbgInt, &area, P.data(), trial.data(), o.Prs.data(), hE,
                                     o.hard, &o.iPlast, Prs0.data(), &undr, d3, &R, &m);
    };
    if (capture) o.trace = capture_stdout(call);
    else call();
    return o;
}

std::vector<double> soil(int model, double c, double phi, double psi, double T) {
    std::vector<double> p = model % 2 ? sand(model)
                                      : props(model, {{"K_ref", 5e4}, {"G0_ref", 1e5}, {"Eur_ref", 1.2e5}, {"m", 0.5},
                                                      {"p_ref", 100}, {"K0_nc", 0.3843}, {"R_f", 0.9},
                                                      {"E50_ref", 4e4}, {"alpha", 1.25}, {"beta", 0.0019},
                                                      {"nu_ur", 0.2}, {"m_K", 0.5}});
    auto at = [&](const char* n) -> double& { return p[static_cast<size_t>(param_index(model, n) - 1)]; };
    at("c") = c;
    at("phi") = phi;
    at("psi") = psi;
    at("sigma_t") = T;
    return p;
}

void matriz3_nl(double D3[9], double K, double G) { sym<void(double*, double*, double*)>("matriz3_nl_")(D3, &K, &G); }

Triple plus(Triple x, const double D3[9], double lam, const Triple& m) {
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) x[static_cast<size_t>(i)] += lam * D3[i + 3 * k] * m[static_cast<size_t>(k)];
    return x;
}

// ---- plane faces: the constructed point comes back -------------------------

struct PlaneCase {
    const char* kernel;
    int area;
    // Faces meeting at the target: 13, 12, 23 (Mohr-Coulomb), 3 (cut-off),
    // 2 (second cut-off face), 0 (ordering face P2 - P1).
    std::vector<int> faces;
};

const std::vector<PlaneCase> kPlane = {
    {"mc_plast", 1, {13}}, {"mc_plast", 2, {13, 12}}, {"mc_plast", 3, {13, 23}},
    {"trac_plast", 1, {3}}, {"trac_plast", 2, {3, 2}}, {"trac_plast", 3, {3, 0}},
    {"mc_trac_plast", 1, {13, 3}},
};

TEST(PlaneKernels, ReturnToTheConstructedPoint) {
    const double c = 10, T = 5;
    for (int model : {1, 2})
        for (double phi : {20.0, 35.0})
            for (double psi : {0.0, 10.0})
                for (const PlaneCase& k : kPlane) {
                    SCOPED_TRACE(std::string(k.kernel) + " area " + std::to_string(k.area) + " model " +
                                 std::to_string(model) + " phi " + std::to_string(phi) + " psi " + std::to_string(psi));
                    std::vector<double> P = soil(model, c, phi, psi, T);
                    const double s = std::sin(phi * kDeg), cc = c * std::cos(phi * kDeg), sp = std::sin(psi * kDeg);
                    auto on13 = [&](double p3) { return (p3 * (1 + s) + 2 * cc) / (1 - s); };
                    const bool trac = std::find(k.faces.begin(), k.faces.end(), 3) != k.faces.end();
                    const double p3 = trac ? -T : 40.0;
                    Triple X;
                    if (k.faces == std::vector<int>{13, 23}) X = {on13(p3), on13(p3), p3};
                    else if (k.faces == std::vector<int>{13, 12}) X = {on13(p3), p3, p3};
                    else if (k.faces == std::vector<int>{3, 2}) X = {60, -T, -T};
                    else if (k.faces == std::vector<int>{3, 0}) X = {30, 30, -T};
                    else if (k.faces[0] == 3) X = {60, 20, -T};
                    else X = {on13(p3), 0.5 * (on13(p3) + p3), p3};
                    auto flow = [&](int f) -> Triple {
                        switch (f) {
                            case 13: return {(1 - sp) / 2, 0, -(1 + sp) / 2};
                            case 12: return {(1 - sp) / 2, -(1 + sp) / 2, 0};
                            case 23: return {0, (1 - sp) / 2, -(1 + sp) / 2};
                            case 3: return {0, 0, -1};
                            case 2: return {0, -1, 0};
                            default: return {-1, 1, 0};
                        }
                    };
                    double D3[9];
                    matriz3_nl(D3, 2e4, 1e4);
                    Triple trial = X;
                    double lam = 2e-3;
                    for (int f : k.faces) trial = plus(trial, D3, lam *= 1.5, flow(f));
                    const double hardE[2] = {0.25, -300};
                    const Out o = run(k.kernel, model, k.area, P, trial, hardE, {0, 0, 0}, D3, true);
                    for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(o.Prs[i], X[i], 1e-9 * std::max(1.0, std::abs(X[0])));
                    EXPECT_EQ(o.iPlast, std::string(k.kernel) == "trac_plast" ? 2 : 1);
                    EXPECT_EQ(o.hard[1], hardE[1]);  // the cap is not theirs
                    EXPECT_EQ(o.trace, " Return Mapping Ok!\n");
                }
}

// ---- curved surfaces ---------------------------------------------------------

enum { SHEAR = 1, MCF = 2, TRACF = 4, CAPF = 8 };
struct CurvedCase {
    const char* kernel;
    int area;
    Triple trial;
    double gamma, pc;
    unsigned on;
    int iPlast;
};

const std::vector<CurvedCase> kCurved = {
    {"hs_plast", 1, {250, 170, 100}, 1e-4, 1000, SHEAR, 5},
    {"hs_plast", 2, {250, 100, 100}, 1e-4, 1000, SHEAR, 5},
    {"hs_trac_plast", 1, {60, 30, -4}, 1e-3, 1000, SHEAR | TRACF, 2},
    {"cap_plast", 1, {160, 155, 150}, 1e-2, 110, CAPF, 3},
    {"cap_plast", 2, {200, 150, 150}, 1e-2, 110, CAPF, 3},
    {"hs_cap_plast", 2, {400, 120, 120}, 1e-4, 120, SHEAR | CAPF, 4},
    {"hs_cap_plast_it", 2, {400, 120, 120}, 1e-4, 120, SHEAR | CAPF, 0},  // iRes 0
};

TEST(CurvedKernels, LandOnTheActiveSurfacesAndOnlyHarden) {
    for (const CurvedCase& k : kCurved) {
        SCOPED_TRACE(std::string(k.kernel) + " area " + std::to_string(k.area));
        std::vector<double> P = soil(1, 1, 38, 8, 0);
        P[static_cast<size_t>(param_index(1, "sigma_t") - 1)] = k.on & TRACF ? 2.0 : 0.0;
        const Triple Prs0 = {100, 100, 100};
        double D3[9];
        I one = 1;
        sym<void(double*, double*, double*, I*)>("matriz3_")(P.data(), const_cast<double*>(Prs0.data()), D3, &one);
        const double hardE[2] = {k.gamma, -k.pc};
        const Out o = run(k.kernel, 1, k.area, P, k.trial, hardE, Prs0, D3, true);
        const Surfaces f{P, 1};
        const double sc = std::max(1.0, o.Prs[0]);
        EXPECT_EQ(o.iPlast, k.iPlast);
        const bool silent = std::string(k.kernel) == "hs_cap_plast_it";
        if (silent) EXPECT_EQ(o.trace, "");
        else EXPECT_TRUE(o.trace.ends_with(" Return Mapping Ok!\n")) << o.trace;
        EXPECT_GE(o.hard[0], hardE[0]);
        EXPECT_LE(o.hard[1], hardE[1]);
        if (!(k.on & SHEAR)) EXPECT_EQ(o.hard[0], hardE[0]);
        if (!(k.on & CAPF)) EXPECT_EQ(o.hard[1], hardE[1]);
        if (k.on & SHEAR) EXPECT_NEAR(f.hs(o.Prs, 100, o.hard[0]), 0, 1e-9 * std::max(o.hard[0], 1e-3));
        if (k.on & MCF) EXPECT_NEAR(f.mc(o.Prs), 0, 1e-8 * sc);
        if (k.on & TRACF) EXPECT_NEAR(o.Prs[2], -2.0, 1e-8 * sc);
        if (k.on & CAPF) EXPECT_NEAR(f.cap(o.Prs, -o.hard[1]), 0, 1e-8 * sc * sc);
        if (k.area == 2) EXPECT_NEAR(o.Prs[1], o.Prs[2], 1e-8 * sc);
        // Away from the traced point the same bits, silently; undrained the
        // same return while the mean stress stays above the tension value.
        const Out q = run(k.kernel, 1, k.area, P, k.trial, hardE, Prs0, D3, false);
        EXPECT_EQ(q.trace, "");
        EXPECT_EQ(q.Prs, o.Prs);
        const Out u = run(k.kernel, 1, k.area, P, k.trial, hardE, Prs0, D3, false, 1.0, true, 1);
        EXPECT_EQ(u.Prs, o.Prs);
        EXPECT_EQ(u.hard[1], o.hard[1]);
    }
}

// The calibration's kernel on its own kind of step: a start state on the
// shear edge and the cap at once (P2 = P3), the trial a small axial push
// beyond both. The return lands on f13, f12 and the cap; the plastic strain
// D3^-1 (trial - returned), split into the three flow directions (no
// dilatancy at this mobilised friction), gives positive multipliers, and
// the cap pressure has grown by xLam_cap times xh_cap at the returned state.
TEST(CurvedKernels, CalibrationKernelClosesSmallSteps) {
    std::vector<double> P = soil(1, 1, 38, 8, 0);
    const Surfaces f{P, 1};
    const double none[9] = {};
    double D3[9], C[9];
    I one = 1, three = 3;
    Triple at100 = {100, 100, 100};
    sym<void(double*, double*, double*, I*)>("matriz3_")(P.data(), at100.data(), D3, &one);
    sym<void(double*, double*, I*)>("matinvpiv_")(D3, C, &three);
    const double s = f.s(), d = (3 + s) / (3 - s), a2 = f.P("alpha") * f.P("alpha");
    const double pref = f.P("p_ref"), m = f.P("m"), beta = f.P("beta");
    auto det3 = [](const double (&M)[3][3]) {
        return M[0][0] * (M[1][1] * M[2][2] - M[1][2] * M[2][1]) - M[0][1] * (M[1][0] * M[2][2] - M[1][2] * M[2][0]) +
               M[0][2] * (M[1][0] * M[2][1] - M[1][1] * M[2][0]);
    };
    for (double s1 : {150.0, 260.0})
    for (double push : {1e-6, 0.01, 1.0}) {
        SCOPED_TRACE("s1 " + std::to_string(s1) + " push " + std::to_string(push));
        const Triple Prs0 = {s1, 100, 100};
        const double gamma0 = f.hs(Prs0, 100, 0), pc0 = std::sqrt(f.cap(Prs0, 0));
        const double hardE[2] = {gamma0, -pc0};
        const Out o = run("hs_cap_plast_it", 1, 2, P, {s1 + push, 100, 100}, hardE, Prs0, none);
        EXPECT_EQ(o.iPlast, 0);
        EXPECT_EQ(o.trace, "");
        EXPECT_GT(o.hard[0], hardE[0]);
        EXPECT_LT(o.hard[1], hardE[1]);
        EXPECT_NEAR(f.hs(o.Prs, 100, o.hard[0]), 0, 1e-9 * o.hard[0]);
        EXPECT_NEAR(f.hs({o.Prs[0], o.Prs[2], o.Prs[1]}, 100, o.hard[0]), 0, 1e-9 * o.hard[0]);
        EXPECT_NEAR(f.cap(o.Prs, -o.hard[1]), 0, 1e-10 * pc0 * pc0);
        EXPECT_LT(o.Prs[0], s1 + push);
        // Plastic strain and its split: columns m13, m12, n_cap.
        const Triple trial = {s1 + push, 100, 100};
        double ep[3] = {};
        for (int i = 0; i < 3; ++i)
            for (int k = 0; k < 3; ++k) ep[i] += C[i + 3 * k] * (trial[static_cast<size_t>(k)] - o.Prs[static_cast<size_t>(k)]);
        const double qt = o.Prs[0] + (d - 1) * o.Prs[1] - d * o.Prs[2], pm = (o.Prs[0] + o.Prs[1] + o.Prs[2]) / 3;
        const double n[3] = {2 * qt / a2 + 2 * pm / 3, 2 * (d - 1) * qt / a2 + 2 * pm / 3, -2 * d * qt / a2 + 2 * pm / 3};
        const double M[3][3] = {{0.5, 0.5, n[0]}, {0, -0.5, n[1]}, {-0.5, 0, n[2]}};
        double lam[3];
        for (int j = 0; j < 3; ++j) {
            double Mj[3][3];
            for (int i = 0; i < 3; ++i)
                for (int k = 0; k < 3; ++k) Mj[i][k] = k == j ? ep[i] : M[i][k];
            lam[j] = det3(Mj) / det3(M);
        }
        for (double l : lam) EXPECT_GT(l, 0);
        const double pc = -o.hard[1];
        const double xh = 2 * std::max(1.0, pm) * pref / beta * std::pow(pc / pref, m);
        EXPECT_NEAR(pc - pc0, lam[2] * xh, 1e-6 * (pc - pc0));
    }
}

// A trial inside the surface it is sent to gives a negative multiplier:
// the verdict says so.
TEST(CurvedKernels, ElasticTrialIsANumericalProblem) {
    std::vector<double> P = soil(1, 1, 38, 8, 0);
    const Triple Prs0 = {100, 100, 100};
    double D3[9];
    matriz3_nl(D3, 5e4, 4e4);
    const double hardE[2] = {1e-2, -1000};
    const Out o = run("hs_plast", 1, 1, P, {120, 110, 100}, hardE, Prs0, D3, true);
    EXPECT_TRUE(o.trace.ends_with(" Numerical problem\n")) << o.trace;
    EXPECT_EQ(o.hard[0], hardE[0]);  // gamma_p never decreases
}

// Cap hardening by model: with R = 1, models 2 and 4 harden as 1 and 3 do
// when their parameters agree; R scales the hardening of models 2 and 4 only.
TEST(CurvedKernels, CapHardeningFactorActsOnModelsTwoAndFour) {
    double D3[9];
    matriz3_nl(D3, 5e4, 3e4);
    const double hardE[2] = {1e-2, -110};
    std::vector<double> p2 = soil(2, 1, 38, 8, 0);
    const Out a = run("cap_plast", 2, 1, p2, {160, 155, 150}, hardE, {100, 100, 100}, D3, false, 1.0);
    const Out b = run("cap_plast", 2, 1, p2, {160, 155, 150}, hardE, {100, 100, 100}, D3, false, 0.5);
    std::vector<double> p1 = soil(1, 1, 38, 8, 0);
    const Out c = run("cap_plast", 1, 1, p1, {160, 155, 150}, hardE, {100, 100, 100}, D3, false, 0.5);
    const Out d = run("cap_plast", 1, 1, p1, {160, 155, 150}, hardE, {100, 100, 100}, D3, false, 1.0);
    EXPECT_NE(a.hard[1], b.hard[1]);
    EXPECT_EQ(c.hard[1], d.hard[1]);
    const Surfaces f{p1, 1};
    EXPECT_NEAR(f.cap(b.Prs, -b.hard[1]), 0, 1e-8 * 160 * 160);
}

// The flow rules seen in the plastic strain D3^-1 (trial - returned). The
// cap: a deviator below its 0.001 floor counts as none, so an isotropic D3
// returns along the hydrostatic axis. Shear hardening (models 1 and 3): no
// dilatancy below 0.75 sin(phi) of mobilised friction, above it
// max((spm - scv) / (1 - scv spm), 0).
TEST(CurvedKernels, FlowRules) {
    double D3[9], C[9];
    matriz3_nl(D3, 5e4, 3e4);
    I three = 3;
    sym<void(double*, double*, I*)>("matinvpiv_")(D3, C, &three);
    auto plastic = [&](const Triple& t, const Triple& p) {
        Triple e{};
        for (int i = 0; i < 3; ++i)
            for (int k = 0; k < 3; ++k) e[static_cast<size_t>(i)] += C[i + 3 * k] * (t[static_cast<size_t>(k)] - p[static_cast<size_t>(k)]);
        return e;
    };
    std::vector<double> P = soil(1, 1, 38, 20, 0);
    const double capE[2] = {1e-2, -110};
    const Out c = run("cap_plast", 1, 1, P, {150.0002, 150, 150}, capE, {100, 100, 100}, D3);
    EXPECT_NEAR(c.Prs[0] - c.Prs[2], 0.0002, 1e-9);
    EXPECT_NEAR(c.Prs[1], c.Prs[2], 1e-9);
    const double s = std::sin(38 * kDeg), sp = std::sin(20 * kDeg), scv = (s - sp) / (1 - s * sp);
    int dilating = 0, not_dilating = 0;
    for (double g : {1e-4, 3e-3, 1e-2})
    for (double t1 : {180.0, 230.0, 300.0, 400.0, 500.0}) {
        const Triple trial = {t1, 120, 100};
        const double hsE[2] = {g, -1000};
        const Out o = run("hs_plast", 1, 1, P, trial, hsE, {100, 100, 100}, D3);
        const double spm = std::min(std::max((o.Prs[0] - o.Prs[2]) / (o.Prs[0] + o.Prs[2] - 2 * std::cos(38 * kDeg) / s), 0.0), s);
        const double psi_m = spm < 0.75 * s ? 0.0 : std::max((spm - scv) / (1 - scv * spm), 0.0);
        if (std::abs(spm - 0.75 * s) < 1e-3) continue;  // too close to the switch to tell
        (psi_m > 0 ? dilating : not_dilating) += 1;
        const Triple e = plastic(trial, o.Prs);
        EXPECT_NEAR(e[1], 0.0, 1e-9 * std::abs(e[0]));
        EXPECT_NEAR((e[0] + e[2]) / (e[0] - e[2]), -psi_m, 1e-6) << t1 << " spm " << spm;
    }
    EXPECT_GT(not_dilating, 0);
    EXPECT_GT(dilating, 0);
}

// A trial that is not a number never converges: the problem verdict.
TEST(Kernels, NaNTrialIsANumericalProblem) {
    double D3[9];
    matriz3_nl(D3, 2e4, 1e4);
    std::vector<double> P = soil(1, 10, 30, 5, 1);
    const double hardE[2] = {0, -100}, nan = std::nan("");
    for (const char* k : {"mc_plast", "trac_plast", "mc_trac_plast", "cap_plast", "hs_plast"})
        EXPECT_TRUE(run(k, 1, 1, P, {nan, nan, nan}, hardE, {50, 50, 50}, D3, true).trace.ends_with(" Numerical problem\n")) << k;
}

// An unknown area stops the process with the kernel's message (the pins of
// the two kernels whose message differs are in quirks_test).
TEST(Kernels, UnknownAreaStops) {
    double D3[9];
    matriz3_nl(D3, 2e4, 1e4);
    std::vector<double> P = soil(1, 10, 30, 5, 1);
    const double hardE[2] = {0, -100};
    for (const char* k : {"mc_plast", "trac_plast", "mc_trac_plast", "cap_plast", "mc_cap_plast", "hs_plast"})
        for (I area : {0, 4}) {
            const ChildResult r = run_child([&] { run(k, 1, area, P, {100, 50, 10}, hardE, {50, 50, 50}, D3, false, 1.0, false); });
            std::string name = k;
            for (auto& ch : name) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
            name.replace(name.size() - 5, 5, "plast");
            EXPECT_EQ(r.out, "  incorrect iArea in " + name + "\n");
            EXPECT_EQ(r.err, "STOP incorrect iArea in " + name + "\n");
            EXPECT_NE(r.status, 0);
        }
}

}  // namespace
