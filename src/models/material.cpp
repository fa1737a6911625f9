// Props, position by name, into the material of the call. Models 1 and 3
// share one layout and models 2 and 4 another; each pair differs in its cap
// law (position 15, and 22: beta or a ratio of bulk moduli).
#include "models/material.hpp"

#include <cmath>

#include "models/parameters.hpp"

namespace tervak {

namespace {

// The values derived once from the strength parameters.
void derive(HsMaterial& mt, double phi_deg, double psi_deg) {
    mt.phi = phi_deg * kDegToRad;
    mt.psi = psi_deg * kDegToRad;
    mt.sinphi = std::sin(mt.phi);
    mt.cosphi = std::cos(mt.phi);
    mt.sinpsi = std::sin(mt.psi);
    mt.ccos = mt.c * mt.cosphi;
    mt.ccot = mt.ccos / mt.sinphi;
}

// Models 1 and 3: the hardening-soil layout (model 3 reads position 15 as a
// ratio of bulk moduli, model 1 as beta).
void read_hs(HsMaterial& mt, Props P, int iModel) {
    mt.c = P(m1::c);
    mt.T = P(m1::sigma_t);
    mt.Eur_ref = P(m1::Eur_ref);
    mt.E_hyp = P(m1::Ei_ref);
    mt.E50_ref = P(m1::E50_ref);
    mt.m = P(m1::m);
    mt.pref = P(m1::p_ref);
    mt.nu_ur = P(m1::nu_ur);
    mt.Rf = P(m1::R_f);
    mt.K0 = P(m1::K0_nc);
    mt.OCR = P(m1::OCR);
    mt.alpha = P(m1::alpha);
    derive(mt, P(m1::phi), P(m1::psi));
    mt.stress_dependent_elasticity = true;
    if (iModel == 1) {
        mt.cap_law = CapLaw::Density;
        mt.cap_stiffness = P(m1::beta);
    } else {
        static_assert(m3::Kur_Kc == m1::beta && m3::Eur_ref == m1::Eur_ref);
        mt.cap_law = CapLaw::BulkRatio;
        mt.cap_stiffness = P(m3::Kur_Kc);
        mt.cap_K = P(m3::Eur_ref) / (3.0 * (1.0 - 2.0 * P(m3::nu_ur)));
    }
}

// Models 2 and 4: the small-strain layout (model 4 reads position 22 as a
// ratio of bulk moduli, model 2 as beta). Both harden by the factor R.
void read_hss(HsMaterial& mt, Props P, int iModel) {
    mt.c = P(m2::c);
    mt.T = P(m2::sigma_t);
    mt.Eur_ref = P(m2::Eur_ref);
    mt.E_hyp = P(m2::E50_ref);
    mt.E50_ref = P(m2::E50_ref);
    mt.m = P(m2::m);
    mt.pref = P(m2::p_ref);
    mt.nu_ur = P(m2::nu_ur);
    mt.Rf = P(m2::R_f);
    mt.K0 = P(m2::K0_nc);
    mt.OCR = P(m2::OCR);
    mt.alpha = P(m2::alpha);
    derive(mt, P(m2::phi), P(m2::psi));
    mt.dilatancy = DilatancyLaw::Contractant;
    mt.hardening_from_R = true;
    if (iModel == 2) {
        mt.cap_law = CapLaw::Density;
        mt.cap_stiffness = P(m2::beta);
    } else {
        static_assert(m4::Kt_Kc == m2::beta && m4::K_ref == m2::K_ref && m4::m_K == m2::m_K);
        mt.cap_law = CapLaw::BulkRatio;
        mt.cap_stiffness = P(m4::Kt_Kc);
        mt.cap_K = P(m4::K_ref) / (1.0 - P(m4::m_K));
    }
}

}  // namespace

HsMaterial read_material(int iModel, const double* Props_) {
    HsMaterial mt;
    const Props P(Props_);
    if (iModel == 1 || iModel == 3) {
        read_hs(mt, P, iModel);
    } else if (iModel == 2 || iModel == 4) {
        read_hss(mt, P, iModel);
    } else {
        derive(mt, 0.0, 0.0);
        return mt;
    }
    mt.known = true;
    return mt;
}

}  // namespace tervak
