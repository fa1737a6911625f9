// The volumetric cap: function, gradient, curvature and hardening modulus.
#include "kernels/cap_surface.hpp"

#include <algorithm>
#include <cmath>

#include "kernels/param_layout.hpp"

namespace tervak {

double cap_delta(double sinphi) { return (3.0 + sinphi) / (3.0 - sinphi); }

double cap_hardening_factor(double R, double Eur_ref, double Ei_ref) {
    return std::pow(R, Eur_ref / Ei_ref + 1.0);
}

CapParams read_cap_params(Props props, int iModel, double R) {
    using rm::Param;
    CapParams cp;
    cp.iModel = iModel;
    if (iModel < 1 || iModel > 4) return cp;
    const double phi = rm::radians(rm::param(props, iModel, Param::phi));
    cp.m = rm::param(props, iModel, Param::m);
    cp.c = rm::param(props, iModel, Param::c);
    cp.pref = rm::param(props, iModel, Param::pref);
    cp.Eur_ref = rm::param(props, iModel, Param::Eur_ref);
    cp.Ei_ref = rm::param(props, iModel, Param::E_hyp);
    cp.T = rm::param(props, iModel, Param::T);
    cp.alpha = rm::param(props, iModel, Param::alpha);
    cp.sinphi = std::sin(phi);
    cp.cosphi = std::cos(phi);
    cp.delta = cap_delta(cp.sinphi);
    cp.alpha2 = cp.alpha * cp.alpha;
    cp.ccot = cp.c * cp.cosphi / cp.sinphi;
    cp.h = cap_hardening_factor(R, cp.Eur_ref, cp.Ei_ref);
    return cp;
}

double cap_p(const Vec3& P) { return (P(1) + P(2) + P(3)) / 3.0; }

double cap_qt(const Vec3& P, double delta) {
    double qt = P(1) + (delta - 1.0) * P(2) - delta * P(3);
    if (qt < kCapQtFloor) qt = 0.0;
    return qt;
}

double f_cap(double qt, double p, double pc, double alpha2) {
    return qt * qt / alpha2 + p * p - pc * pc;
}

Vec3 df_capmdS(double qt, double p, double delta, double alpha2) {
    const double c[3] = {1.0, delta - 1.0, -delta};
    Vec3 n;
    for (int i = 1; i <= 3; ++i) n(i) = 2.0 * (p / 3.0 + c[i - 1] * qt / alpha2);
    return n;
}

Mat3 cap_curvature(double delta, double alpha2) {
    const double c[3] = {1.0, delta - 1.0, -delta};
    Mat3 H;
    for (int j = 1; j <= 3; ++j)
        for (int i = 1; i <= 3; ++i)
            H(i, j) = 2.0 * (c[i - 1] * c[j - 1] / alpha2 + 0.1111111111111111);
    return H;
}

double xh_cap(int iModel, Props props, double p, double pc, double ccot, double h) {
    switch (iModel) {
        case 1: {
            const double pref = props(9);
            return 2.0 * std::max(1.0, p) * pref / props(15) *
                   std::pow(std::max(1.0, pc) / pref, props(4));
        }
        case 2: {
            const double pref = props(13);
            return 2.0 * std::max(1.0, p) * pref / props(22) *
                   std::pow(std::max(1.0, pc) / pref, props(12)) * h;
        }
        case 3: {
            const double pref = props(9);
            return 2.0 * (props(3) / (3.0 * (1.0 - 2.0 * props(8)))) / (props(15) - 1.0) *
                   std::max(1.0, p) *
                   std::pow(std::max(ccot + pc, 1.0) / (ccot + pref), props(4));
        }
        case 4: {
            const double pref = props(13);
            return 2.0 * (props(1) / (1.0 - props(7))) / (props(22) - 1.0) * std::max(1.0, p) *
                   std::pow(std::max(ccot + pc, 1.0) / (ccot + pref), props(12)) * h;
        }
        default:
            return 0.0;
    }
}

}  // namespace tervak
