// Props, position by name, into the material of the call. Models 1 and 3
// share one layout and models 2 and 4 another; each pair differs in its cap
// law.
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

// Where one layout keeps the parameters every model reads.
struct Layout {
    int c, sigma_t, Eur_ref, E_hyp, E50_ref, m, p_ref, nu_ur, R_f, K0_nc, OCR, alpha, phi, psi;
};

// Models 1 and 3: the hardening-soil layout; the hyperbola's modulus is Ei_ref.
constexpr Layout kHs{m1::c,     m1::sigma_t, m1::Eur_ref, m1::Ei_ref, m1::E50_ref,
                     m1::m,     m1::p_ref,   m1::nu_ur,   m1::R_f,    m1::K0_nc,
                     m1::OCR,   m1::alpha,   m1::phi,     m1::psi};
// Models 2 and 4: the small-strain layout; the hyperbola's modulus is E50_ref.
constexpr Layout kHss{m2::c,     m2::sigma_t, m2::Eur_ref, m2::E50_ref, m2::E50_ref,
                      m2::m,     m2::p_ref,   m2::nu_ur,   m2::R_f,     m2::K0_nc,
                      m2::OCR,   m2::alpha,   m2::phi,     m2::psi};

void read_common(HsMaterial& mt, Props P, const Layout& L) {
    mt.c = P(L.c);
    mt.T = P(L.sigma_t);
    mt.Eur_ref = P(L.Eur_ref);
    mt.E_hyp = P(L.E_hyp);
    mt.E50_ref = P(L.E50_ref);
    mt.m = P(L.m);
    mt.pref = P(L.p_ref);
    mt.nu_ur = P(L.nu_ur);
    mt.Rf = P(L.R_f);
    mt.K0 = P(L.K0_nc);
    mt.OCR = P(L.OCR);
    mt.alpha = P(L.alpha);
    derive(mt, P(L.phi), P(L.psi));
}

// The laws of each model: model 1 reads position 15 as beta, model 3 as a
// ratio of bulk moduli; model 2 reads position 22 as beta, model 4 as a
// ratio of bulk moduli; models 2 and 4 harden by the factor R and contract
// below the critical state.
void read_laws(HsMaterial& mt, Props P, int iModel) {
    static_assert(m3::Kur_Kc == m1::beta && m3::Eur_ref == m1::Eur_ref && m3::nu_ur == m1::nu_ur);
    static_assert(m4::Kt_Kc == m2::beta && m4::K_ref == m2::K_ref && m4::m_K == m2::m_K);
    mt.stress_dependent_elasticity = iModel == 1 || iModel == 3;
    mt.hardening_from_R = iModel == 2 || iModel == 4;
    mt.dilatancy = mt.hardening_from_R ? DilatancyLaw::Contractant : DilatancyLaw::Rowe;
    switch (iModel) {
        case 1:
            mt.cap_law = CapLaw::Density;
            mt.cap_stiffness = P(m1::beta);
            break;
        case 2:
            mt.cap_law = CapLaw::Density;
            mt.cap_stiffness = P(m2::beta);
            break;
        case 3:
            mt.cap_law = CapLaw::BulkRatio;
            mt.cap_stiffness = P(m3::Kur_Kc);
            mt.cap_K = P(m3::Eur_ref) / (3.0 * (1.0 - 2.0 * P(m3::nu_ur)));
            break;
        default:
            mt.cap_law = CapLaw::BulkRatio;
            mt.cap_stiffness = P(m4::Kt_Kc);
            mt.cap_K = P(m4::K_ref) / (1.0 - P(m4::m_K));
            break;
    }
}

// The small-strain stiffness of models 2 and 4.
HsMaterial::SmallStrain read_small_strain(Props P) {
    HsMaterial::SmallStrain ss;
    ss.K_ref = P(m2::K_ref);
    ss.G0_ref = P(m2::G0_ref);
    ss.G0_min = P(m2::G0_min);
    ss.gamma_07 = P(m2::gamma_07);
    ss.p_ref_K = P(m2::p_ref_K);
    ss.p_ref_G = P(m2::p_ref_G);
    ss.m_K = P(m2::m_K);
    ss.m_G = P(m2::m_G);
    ss.reset = P(m2::reset);
    return ss;
}

}  // namespace

HsMaterial read_material(int iModel, const double* Props_) {
    HsMaterial mt;
    const Props P(Props_);
    if (iModel < 1 || iModel > 4) {
        derive(mt, 0.0, 0.0);
        return mt;
    }
    read_common(mt, P, (iModel == 1 || iModel == 3) ? kHs : kHss);
    read_laws(mt, P, iModel);
    if (iModel == 2 || iModel == 4) mt.ss = read_small_strain(P);
    mt.known = true;
    return mt;
}

}  // namespace tervak
