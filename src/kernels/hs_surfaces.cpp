// Shear-hardening surfaces: strength, yield function, gradients, mobilised
// friction and dilatancy, hardening of gamma_p.
#include "kernels/hs_surfaces.hpp"

#include <algorithm>
#include <cmath>

#include "kernels/param_layout.hpp"
#include "toolkit/records.hpp"

namespace tervak {

void hs_strength(HsParams& hp, double s3) {
    hp.ccos = hp.c * hp.cosphi;
    hp.ccot = hp.ccos / hp.sinphi;
    // The inner floor of 1.0 (stress units) keeps a finite strength at c = 0.
    hp.qf = 2.0 * hp.sinphi / (1.0 - hp.sinphi) *
            std::max(s3 + hp.ccot, std::max(1.0, hp.ccot + hp.T));
    hp.qa = hp.qf / hp.Rf;
    hp.S = std::pow(std::max(s3 * hp.sinphi + hp.ccos, std::max(1.0, hp.ccos)) /
                        (hp.pref * hp.sinphi + hp.ccos),
                    hp.m);
    hp.Ei = hp.Ei_ref * hp.S;
    hp.Eur = hp.Eur_ref * hp.S;
}

HsParams read_hs_params(Props props, int iModel, double R, double s3) {
    using rm::Param;
    HsParams hp;
    hp.iModel = iModel;
    hp.Eur_ref = rm::param(props, iModel, Param::Eur_ref);
    hp.m = rm::param(props, iModel, Param::m);
    hp.c = rm::param(props, iModel, Param::c);
    hp.phi = rm::radians(rm::param(props, iModel, Param::phi));
    hp.psi = rm::radians(rm::param(props, iModel, Param::psi));
    hp.pref = rm::param(props, iModel, Param::pref);
    hp.K0 = rm::param(props, iModel, Param::K0);
    hp.Rf = rm::param(props, iModel, Param::Rf);
    hp.T = rm::param(props, iModel, Param::T);
    hp.Ei_ref = rm::param(props, iModel, Param::E_hyp);
    hp.sinphi = std::sin(hp.phi);
    hp.cosphi = std::cos(hp.phi);
    hp.sinpsi = std::sin(hp.psi);
    // The power is formed for every model; only models 2 and 4 harden by it.
    const double hPow = std::pow(R, hp.Eur_ref / hp.Ei_ref + 1.0);
    hp.h = (iModel == 2 || iModel == 4) ? hPow : 1.0;
    hs_strength(hp, s3);
    return hp;
}

double hs_yield(const HsParams& hp, double q, double gamma_p, bool trace) {
    if (!(hp.qf > q)) {
        if (trace) say(" q > qf ");
        q = hp.qf;
    }
    // |qa - q|: the hyperbolic term keeps its sign beyond the asymptote.
    return q / std::fabs(hp.qa - q) * (2.0 * hp.qa / hp.Ei) - 2.0 * q / hp.Eur - gamma_p;
}

double hs_slope(const HsParams& hp, double q) {
    const double qh = hp.qf > q ? q : hp.qf;
    const double d = hp.qa - qh;
    return 2.0 * (hp.qa * hp.qa) / (hp.Ei * (d * d)) - 2.0 / hp.Eur;
}

Vec3 df_hsmdS(const HsParams& hp, ShearFace fc, const Vec3& P) {
    const double a = hs_slope(hp, face_q(fc, P));
    Vec3 g;
    g(fc.i) = a;
    g(fc.j) = -a;
    return g;
}

double sin_phi_mob(const HsParams& hp, const Vec3& P) {
    // The minus sign before the cohesion term is the law's own.
    double s = (P(1) - P(3)) / (P(1) + P(3) - 2.0 * hp.c * hp.cosphi / hp.sinphi);
    if (hp.iModel == 2 || hp.iModel == 4) {
        const double sK0 =
            (P(1) - hp.K0 * P(1)) / (P(1) + hp.K0 * P(1) - 2.0 * hp.c * hp.cosphi / hp.sinphi);
        s = std::max(s, sK0);
    }
    return std::min(std::max(s, 0.0), hp.sinphi);
}

double sin_phi_cv(const HsParams& hp) {
    return (hp.sinphi - hp.sinpsi) / (1.0 - hp.sinphi * hp.sinpsi);
}

double sin_psi_mob(const HsParams& hp, const Vec3& P) {
    const double spm = sin_phi_mob(hp, P);
    const double spcv = sin_phi_cv(hp);
    if (hp.iModel == 2 || hp.iModel == 4) {
        if (spcv > spm) {
            // Below the critical state the soil contracts.
            if (spm < 1e-10) return 0.0;
            const double p = (P(1) + P(2) + P(3)) / 3.0;
            const double M = 6.0 * spcv / (3.0 - spcv);
            double eta = std::max(P(1) - P(3), 0.0) / p;
            eta = std::min(std::max(eta, 0.0), M);
            eta = std::max(eta, 3.0 * (1.0 - hp.K0) / (1.0 + 2.0 * hp.K0));
            if (std::fabs(eta) < 1e-10) return 0.0;
            const double x = spm * eta * (1.0 - spcv) / (spcv * M * (1.0 - spm));
            return 0.1 * (eta - M * std::exp(std::log(x) * 0.06666666666666667));
        }
        if (hp.psi > 0.0) return std::min((spm - spcv) / (1.0 - spcv * spm), hp.sinpsi);
        return hp.sinpsi;
    }
    if (spm < 0.75 * hp.sinphi) return 0.0;
    if (hp.psi > 0.0) return std::max((spm - spcv) / (1.0 - spcv * spm), 0.0);
    return hp.sinpsi;
}

Vec3 dg_hsmdS(ShearFace fc, double sin_psi_m) {
    Vec3 g;
    g(fc.i) = (1.0 - sin_psi_m) / 2.0;
    g(fc.j) = -(1.0 + sin_psi_m) / 2.0;
    return g;
}

double hs_gamma_trial(double gamma_p0, double h, double xLam13) {
    return std::max(gamma_p0 + h * xLam13, gamma_p0);
}

double hs_cap_qt(const Vec3& P, double delta) {
    return P(1) + (delta - 1.0) * P(2) - delta * P(3);
}

Vec3 hs_df_capmdS(double qt, double p, double delta, double alpha2) {
    const double c[3] = {1.0, delta - 1.0, -delta};
    Vec3 n;
    for (int i = 1; i <= 3; ++i) n(i) = 2.0 * c[i - 1] * qt / alpha2 + 2.0 * p / 3.0;
    return n;
}

}  // namespace tervak
