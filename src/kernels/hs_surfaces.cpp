// Shear-hardening surfaces: strength, yield function, gradients, mobilised
// friction and dilatancy, hardening of gamma_p.
#include "kernels/hs_surfaces.hpp"

#include <algorithm>
#include <cmath>

#include "toolkit/records.hpp"

namespace tervak {

double kernel_qf(const HsMaterial& mt, double s3) {
    return mt.qf(std::max(s3 + mt.ccot, std::max(1.0, mt.ccot + mt.T)));
}

HsParams hs_params(const HsMaterial& mt, double R, double s3) {
    HsParams hp;
    hp.mt = &mt;
    hp.h = mt.hardening_factor(R);
    hp.qf = kernel_qf(mt, s3);
    hp.qa = mt.qa(hp.qf);
    hp.S = mt.stress_factor(s3);
    hp.Ei = mt.E_hyp * hp.S;
    hp.Eur = mt.Eur_ref * hp.S;
    return hp;
}

double hs_yield(const HsParams& hp, double q, double gamma_p, bool trace) {
    if (!(hp.qf > q)) {
        if (trace) say(" q > qf ");
        q = hp.qf;
    }
    return HsMaterial::hyperbola(q, hp.qa, hp.Ei, hp.Eur, gamma_p);
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

double sin_phi_mob(const HsMaterial& mt, const Vec3& P) {
    // The minus sign before the cohesion term is the law's own.
    double s = (P(1) - P(3)) / (P(1) + P(3) - 2.0 * mt.c * mt.cosphi / mt.sinphi);
    if (mt.dilatancy == DilatancyLaw::Contractant) {
        const double sK0 =
            (P(1) - mt.K0 * P(1)) / (P(1) + mt.K0 * P(1) - 2.0 * mt.c * mt.cosphi / mt.sinphi);
        s = std::max(s, sK0);
    }
    return std::min(std::max(s, 0.0), mt.sinphi);
}

double sin_phi_cv(const HsMaterial& mt) {
    return (mt.sinphi - mt.sinpsi) / (1.0 - mt.sinphi * mt.sinpsi);
}

namespace {

// Below the critical state the soil contracts (the Contractant law).
double contraction(const HsMaterial& mt, const Vec3& P, double spm, double spcv) {
    if (spm < 1e-10) return 0.0;
    const double p = (P(1) + P(2) + P(3)) / 3.0;
    const double M = 6.0 * spcv / (3.0 - spcv);
    double eta = std::max(P(1) - P(3), 0.0) / p;
    eta = std::min(std::max(eta, 0.0), M);
    eta = std::max(eta, 3.0 * (1.0 - mt.K0) / (1.0 + 2.0 * mt.K0));
    if (std::fabs(eta) < 1e-10) return 0.0;
    const double x = spm * eta * (1.0 - spcv) / (spcv * M * (1.0 - spm));
    return 0.1 * (eta - M * std::exp(std::log(x) * 0.06666666666666667));
}

}  // namespace

double sin_psi_mob(const HsMaterial& mt, const Vec3& P) {
    const double spm = sin_phi_mob(mt, P);
    const double spcv = sin_phi_cv(mt);
    if (mt.dilatancy == DilatancyLaw::Contractant) {
        if (spcv > spm) return contraction(mt, P, spm, spcv);
        if (mt.psi > 0.0) return std::min((spm - spcv) / (1.0 - spcv * spm), mt.sinpsi);
        return mt.sinpsi;
    }
    if (spm < 0.75 * mt.sinphi) return 0.0;
    if (mt.psi > 0.0) return std::max((spm - spcv) / (1.0 - spcv * spm), 0.0);
    return mt.sinpsi;
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

}  // namespace tervak
