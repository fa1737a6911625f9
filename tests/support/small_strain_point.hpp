// A stress point of the small-strain models (2 and 4) driven as a host
// drives it: task 1 once, then per step task 3 (stiffness) and task 2
// (stresses), the result committed as the start of the next step.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "support/host.hpp"

namespace tervak_test::small_strain {

inline constexpr double kOct = 1.1547005383792515;  // deviatoric strain norm -> octahedral

// The host's point (support/host.hpp) with the small-strain state read back.
struct Point : tervak_test::Point {
    Point(int model, std::vector<double> props) : tervak_test::Point(model, std::move(props)) {}

    void initialise(const std::array<double, 6>& sig) {
        Sig0 = sig;
        call(1);
        Sig = Sig0;
        StVar = StVar0;
    }
    void shear(double dgamma) { step({0, 0, 0, dgamma, 0, 0}); }
    double sv(int i) const { return StVar0[static_cast<size_t>(i - 1)]; }
    // Stored reversal levels (history amplitudes 34 to 39 non-empty).
    int levels() const {
        int n = 0;
        for (int i = 34; i <= 39; ++i) n += std::abs(sv(i)) >= 1e-10;
        return n;
    }
};

// A stiff sand whose strength, tensile strength, shear-hardening stiffness
// and cap lie far away: simple shear shows the stiffness law alone.
inline std::vector<double> elastic_sand() {
    // K_ref, G0_ref, G0_min, gamma_0.7, p_ref K, p_ref G, m_K, m_G, -, -, Eur_ref, m, p_ref, c,
    // phi, psi, K0nc, R_f, sigma_t, E50_ref, alpha, beta, nu_ur, OCR, reset
    return {5.0e4, 1.0e5, 1.0e5, 1.5e-4, 100.0, 100.0, 0.5, 0.5, 0.0, 0.0, 9.0e4, 0.5, 100.0,
            1.0e4, 30.0,  0.0,   0.5,    0.9,   1.0e5, 1.0e9, 100.0, 1.0, 0.2, 10.0, 1.0};
}

inline double prop(const std::vector<double>& p, int i) { return p[static_cast<size_t>(i - 1)]; }

// The stiffness laws computed from the parameters (reference moduli, the
// cut-off, the stress factor at p).
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
    double hyper(double g) const { return 1.0 + 0.385 * g / (2.0 * gamma07); }
    // Secant shear modulus of the curve at the octahedral strain g.
    double secant(double g) const {
        if (g <= gamma_c) return s * G0 / hyper(g);
        return (s * G0 / hyper(gamma_c) * gamma_c + (g - gamma_c) * s * G_ur) / g;
    }
};

inline const std::array<double, 6> kIsotropic200{-200, -200, -200, 0, 0, 0};

// Simple shear from gamma to target in equal steps of at most dg.
inline double shear_to(Point& pt, double gamma, double target, double dg) {
    const int n = static_cast<int>(std::ceil(std::abs(target - gamma) / dg - 1e-9));
    for (int i = 0; i < n; ++i) pt.shear((target - gamma) / n);
    return target;
}

}  // namespace tervak_test::small_strain
