// A stress point of the small-strain models (2 and 4) driven as a host
// drives it: user_mod_ from the loaded library, task 1 once, then per step
// task 3 (stiffness) and task 2 (stresses), the result committed as the
// start of the next step. Shared by the tests of models 2 and 4.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "support/user_mod_host.hpp"

namespace tervak_test::small_strain {

inline constexpr double kOct = 1.1547005383792515;  // deviatoric strain norm -> octahedral

// One stress point of a small-strain model with its 62 state variables.
struct Point {
    int32_t IDTask = 0, iModel = 2, IsUndr = 0, iStep = 1, iTer = 1, iEl = 1, Int = 1;
    int32_t Arg8 = 0, Arg9 = 0, Arg10 = 0, Arg12 = 0, Arg29 = 0, Arg30 = 0, Arg31 = 0;
    double Time0 = 0.0;
    std::vector<double> Props;
    std::array<double, 6> Sig0{};
    double Pw0 = 0.0;
    std::array<double, 62> StVar0{};
    std::array<double, 6> dEps{};
    std::array<double, 36> D{};
    double BulkW = 0.0;
    std::array<double, 6> Sig{};
    double Pw = 0.0;
    std::array<double, 62> StVar{};
    int32_t iPlast = -99, nStat = -99, NonSym = -99, StrsDep = -99, TimeDep = -99,
            Tangent = -99;

    Point(int model, std::vector<double> props) : iModel(model), Props(std::move(props)) {}

    void call(int32_t task) {
        IDTask = task;
        tervak_test::user_mod_entry()(
            &IDTask, &iModel, &IsUndr, &iStep, &iTer, &iEl, &Int, &Arg8, &Arg9, &Arg10, &Time0,
            &Arg12, Props.data(), Sig0.data(), &Pw0, StVar0.data(), dEps.data(), D.data(),
            &BulkW, Sig.data(), &Pw, StVar.data(), &iPlast, &nStat, &NonSym, &StrsDep,
            &TimeDep, &Tangent, &Arg29, &Arg30, &Arg31);
    }
    // Task 1 at the given initial stresses (host sign).
    void initialise(const std::array<double, 6>& sig) {
        Sig0 = sig;
        call(1);
        Sig = Sig0;
        StVar = StVar0;
    }
    // One step: stiffness (task 3), stresses (task 2), then the host commits.
    void step(const std::array<double, 6>& deps) {
        dEps = deps;
        call(3);
        call(2);
        Sig0 = Sig;
        StVar0 = StVar;
        Pw0 = Pw;
        ++iStep;
    }
    void shear(double dgamma) { step({0, 0, 0, dgamma, 0, 0}); }
    double sv(int i) const { return StVar0[static_cast<size_t>(i - 1)]; }
    // Stored reversal levels (history amplitudes 34 to 39 non-empty).
    int levels() const {
        int n = 0;
        for (int k = 0; k < 6; ++k)
            if (std::abs(StVar0[static_cast<size_t>(33 + k)]) >= 1e-10) ++n;
        return n;
    }
    std::array<double, 6> memory(int first) const {
        std::array<double, 6> m{};
        for (int k = 0; k < 6; ++k) m[static_cast<size_t>(k)] = StVar0[static_cast<size_t>(first - 1 + k)];
        return m;
    }
};

// A stiff sand whose strength, tensile strength, shear-hardening stiffness
// and cap lie far away, so that simple shear stays elastic and shows the
// stiffness law alone.
inline std::vector<double> elastic_sand() {
    return {
        5.0e4,   //  1 K_ref
        1.0e5,   //  2 G0_ref
        1.0e5,   //  3 G0_min
        1.5e-4,  //  4 gamma_0.7
        100.0,   //  5 p_ref of K
        100.0,   //  6 p_ref of G
        0.5,     //  7 m_K
        0.5,     //  8 m_G
        0.0,     //  9
        0.0,     // 10
        9.0e4,   // 11 Eur_ref
        0.5,     // 12 m
        100.0,   // 13 p_ref
        1.0e4,   // 14 c
        30.0,    // 15 phi
        0.0,     // 16 psi
        0.5,     // 17 K0nc
        0.9,     // 18 R_f
        1.0e5,   // 19 sigma_t
        1.0e9,   // 20 E50_ref
        100.0,   // 21 alpha
        1.0,     // 22 beta
        0.2,     // 23 nu_ur
        10.0,    // 24 OCR
        1.0,     // 25 reset
    };
}

inline double prop(const std::vector<double>& p, int i) { return p[static_cast<size_t>(i - 1)]; }

// Reference moduli of the stiffness laws, computed from the parameters.
struct Law {
    double G0, G_ur, gamma07, gamma_c, s;
    Law(const std::vector<double>& P, double G0_ref, double p) {
        const double Kt = prop(P, 1) / (1.0 - prop(P, 7));
        G_ur = 3.0 * Kt * prop(P, 11) / (9.0 * Kt - prop(P, 11));
        G0 = G0_ref;
        gamma07 = prop(P, 4);
        gamma_c = (2.0 * gamma07 / 0.385) * (std::sqrt(G0 / G_ur) - 1.0);
        s = std::pow(std::max(p, 0.1 * prop(P, 6)) / prop(P, 6), prop(P, 8));
    }
    // Secant shear modulus of the curve at the octahedral strain g.
    double secant(double g) const {
        const double hyp = s * G0 / (1.0 + 0.385 * g / (2.0 * gamma07));
        if (g <= gamma_c) return hyp;
        const double cut = s * G0 / (1.0 + 0.385 * gamma_c / (2.0 * gamma07));
        return (cut * gamma_c + (g - gamma_c) * s * G_ur) / g;
    }
};

inline const std::array<double, 6> kIsotropic200{-200, -200, -200, 0, 0, 0};

// Drives a point in simple shear from strain gamma to target in equal steps
// of at most dg; returns the target.
inline double shear_to(Point& pt, double gamma, double target, double dg) {
    const int n = static_cast<int>(std::ceil(std::abs(target - gamma) / dg - 1e-9));
    const double d = (target - gamma) / n;
    for (int i = 0; i < n; ++i) pt.shear(d);
    return target;
}

}  // namespace tervak_test::small_strain
