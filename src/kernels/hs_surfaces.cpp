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
    hp.two_qa_Ei = 2.0 * hp.qa / hp.Ei;
    hp.two_qa2 = 2.0 * (hp.qa * hp.qa);
    hp.two_Eur = 2.0 / hp.Eur;
    return hp;
}

void say_q_above_qf() { say(" q > qf "); }

double sin_phi_cv(const HsMaterial& mt) {
    return (mt.sinphi - mt.sinpsi) / (1.0 - mt.sinphi * mt.sinpsi);
}

Dilatancy::Dilatancy(const HsMaterial& m)
    : mt(&m), cohesion(2.0 * m.c * m.cosphi / m.sinphi), spcv(tervak::sin_phi_cv(m)) {
    if (m.dilatancy == DilatancyLaw::Contractant) {
        M = 6.0 * spcv / (3.0 - spcv);
        etaK0 = 3.0 * (1.0 - m.K0) / (1.0 + 2.0 * m.K0);
    }
}

double Dilatancy::sin_phi_mob(const Vec3& P) const {
    // The minus sign before the cohesion term is the law's own.
    double s = (P(1) - P(3)) / (P(1) + P(3) - cohesion);
    if (mt->dilatancy == DilatancyLaw::Contractant) {
        const double sK0 = (P(1) - mt->K0 * P(1)) / (P(1) + mt->K0 * P(1) - cohesion);
        s = std::max(s, sK0);
    }
    return std::min(std::max(s, 0.0), mt->sinphi);
}

// Below the critical state the soil contracts (the Contractant law).
double Dilatancy::contraction(const Vec3& P, double spm) const {
    if (spm < 1e-10) return 0.0;
    const double p = (P(1) + P(2) + P(3)) / 3.0;
    double eta = std::max(P(1) - P(3), 0.0) / p;
    eta = std::min(std::max(eta, 0.0), M);
    eta = std::max(eta, etaK0);
    if (std::fabs(eta) < 1e-10) return 0.0;
    const double x = spm * eta * (1.0 - spcv) / (spcv * M * (1.0 - spm));
    return 0.1 * (eta - M * std::exp(std::log(x) * 0.06666666666666667));
}

double Dilatancy::sin_psi_mob(const Vec3& P) const {
    const double spm = sin_phi_mob(P);
    if (mt->dilatancy == DilatancyLaw::Contractant) {
        if (spcv > spm) return contraction(P, spm);
        if (mt->psi > 0.0) return std::min((spm - spcv) / (1.0 - spcv * spm), mt->sinpsi);
        return mt->sinpsi;
    }
    if (spm < 0.75 * mt->sinphi) return 0.0;
    if (mt->psi > 0.0) return std::max((spm - spcv) / (1.0 - spcv * spm), 0.0);
    return mt->sinpsi;
}

double sin_phi_mob(const HsMaterial& mt, const Vec3& P) { return Dilatancy(mt).sin_phi_mob(P); }

double sin_psi_mob(const HsMaterial& mt, const Vec3& P) { return Dilatancy(mt).sin_psi_mob(P); }

}  // namespace tervak
