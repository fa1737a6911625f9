// The hardening-soil material of one call: the parameters every part of
// the library reads (kernels, models, the calibration, the elastic
// matrices), read once from Props by models/material.cpp, and the laws
// written on them once: the failure deviator qf and its asymptote qa, the
// stress factor of the stiffnesses, the yield functions and the cap
// hardening modulus xh_cap.
//
// Principal triples are compression positive, P(1) >= P(2) >= P(3). Every
// formula keeps the library's order of operations (one rounding per
// operation, left to right as written); where two parts of the library
// evaluate a law with different floors, the floor is the caller's and the
// law itself is written here.
#pragma once

#include <algorithm>
#include <cmath>

#include "toolkit/types.hpp"

namespace tervak {

// How the cap hardens (xh_cap = d pc / d xLam_cap).
enum class CapLaw {
    None,       // no model: xh_cap is 0
    Density,    // 2 max(1,p) pref / beta (max(1,pc)/pref)^m
    BulkRatio,  // 2 K / (ratio - 1) max(1,p) ((max(ccot + pc, 1)) / (ccot + pref))^m
};

// How the mobilised dilatancy follows the mobilised friction.
enum class DilatancyLaw {
    Rowe,         // none below 3/4 sin phi, Rowe's law above, never negative
    Contractant,  // contracts below the critical state (friction raised to the K0 value)
};

struct HsMaterial {
    // False for a model number the library does not have: every parameter
    // then reads 0 and the laws below give what zero parameters give.
    bool known = false;
    // Models 1 and 3: the elastic matrices follow Eur at the minor stress;
    // for the others Matriz3 and Matriz6 give zero matrices.
    bool stress_dependent_elasticity = false;
    CapLaw cap_law = CapLaw::None;
    DilatancyLaw dilatancy = DilatancyLaw::Rowe;
    // The hardening factor R^(Eur_ref / E_hyp + 1) applies (models 2 and 4);
    // otherwise the factor is 1.
    bool hardening_from_R = false;

    // Strength.
    double c = 0.0;
    double phi = 0.0;  // radians
    double psi = 0.0;  // radians
    double T = 0.0;    // tensile strength; the cut-off lies at a principal stress of -T
    double sinphi = 0.0;
    double cosphi = 1.0;
    double sinpsi = 0.0;
    double ccos = 0.0;  // c cos(phi)
    double ccot = 0.0;  // c cos(phi) / sin(phi)
    // Stiffness.
    double Eur_ref = 0.0;  // reference unloading-reloading modulus
    double E_hyp = 0.0;    // reference modulus of the hyperbola
    double E50_ref = 0.0;  // reference secant modulus (the calibration's target)
    double m = 0.0;        // stress exponent
    double pref = 0.0;     // reference pressure
    double nu_ur = 0.0;
    double Rf = 0.0;
    double K0 = 0.0;   // earth-pressure ratio in normal consolidation
    double OCR = 0.0;  // scale of the initial vertical stress to the preconsolidation state
    // Cap.
    double alpha = 0.0;
    double cap_stiffness = 0.0;  // beta, or the bulk-modulus ratio of the BulkRatio law
    double cap_K = 0.0;          // the bulk modulus of the BulkRatio law

    // Small-strain stiffness (models 2 and 4; zero otherwise).
    struct SmallStrain {
        double K_ref = 0.0;     // reference secant bulk modulus
        double G0_ref = 0.0;    // reference small-strain shear modulus, upper bound of G0
        double G0_min = 0.0;    // lower bound of G0
        double gamma_07 = 0.0;  // threshold shear strain of the hyperbolic degradation
        double p_ref_K = 0.0;   // reference pressure of the bulk modulus law
        double p_ref_G = 0.0;   // reference pressure of the shear modulus law
        double m_K = 0.0;       // exponent of the bulk modulus law
        double m_G = 0.0;       // exponent of the shear modulus law
        double reset = 0.0;     // exactly 1 clears the strain history in task 1
    };
    SmallStrain ss;

    // The small-strain moduli's stress factors at the mean stress p (floored
    // at a tenth of the reference pressure): (p / p_ref_G)^m_G and
    // (p / p_ref_K)^m_K.
    double ss_shear_factor(double p) const {
        return std::pow(std::max(p, 0.1 * ss.p_ref_G) / ss.p_ref_G, ss.m_G);
    }
    double ss_bulk_factor(double p) const {
        return std::pow(std::max(p, 0.1 * ss.p_ref_K) / ss.p_ref_K, ss.m_K);
    }
    // The reference tangent bulk modulus K_ref / (1 - m_K).
    double ss_Kt_ref() const { return ss.K_ref / (1.0 - ss.m_K); }
    // The reference unloading-reloading shear modulus from Kt_ref and Eur_ref.
    double ss_G_ur_ref() const {
        const double Kt_ref = ss_Kt_ref();
        return 3.0 * Kt_ref * Eur_ref / (9.0 * Kt_ref - Eur_ref);
    }
    // A small-strain shear modulus bounded by G0_min and G0_ref.
    double ss_G0_bounded(double G0) const { return std::min(std::max(G0, ss.G0_min), ss.G0_ref); }
    // The cut-off strain of the hyperbolic degradation for G0.
    double ss_cut_off_strain(double G0, double G_ur_ref) const {
        return (2.0 * ss.gamma_07 / 0.385) * (std::sqrt(G0 / G_ur_ref) - 1.0);
    }

    // -------------------------------------------------------------------
    // Failure deviator for the floored term x = max(s3 + ccot, floor).
    double qf(double x) const { return 2.0 * sinphi / (1.0 - sinphi) * x; }
    // The same with the product formed first, (x 2 sin phi) / (1 - sin phi):
    // the order of models 2 and 4 and of the calibration's reference
    // strength. (x 2 is exact, so x 2 sin phi and x (2 sin phi) round alike
    // for every x below half the largest double.)
    double qf_product_first(double x) const { return x * 2.0 * sinphi / (1.0 - sinphi); }
    double qa(double qf_) const { return qf_ / Rf; }

    // The stiffnesses' stress factor for a minor-stress term x = s3 sin(phi)
    // + c cos(phi) already floored: (x / (pref sin(phi) + c cos(phi)))^m.
    double stress_ratio_pow(double x) const { return std::pow(x / (pref * sinphi + ccos), m); }
    // The same with the usual floor max(1, c cos(phi)) on x.
    double stress_factor_of(double x) const {
        return stress_ratio_pow(std::max(x, std::max(1.0, ccos)));
    }
    double stress_factor(double s3) const { return stress_factor_of(s3 * sinphi + ccos); }

    // The hardening factor for the ratio R.
    double hardening_factor(double R) const {
        return hardening_from_R ? std::pow(R, Eur_ref / E_hyp + 1.0) : 1.0;
    }

    // The shear-hardening hyperbola at deviator q below the strength:
    // (q / |qa - q|) (2 qa / Ei) - 2 q / Eur - gamma_p. |qa - q| keeps the
    // hyperbolic term's sign beyond the asymptote.
    static double hyperbola(double q, double qa_, double Ei, double Eur, double gamma_p) {
        return hyperbola_of(q, qa_, 2.0 * qa_ / Ei, Eur, gamma_p);
    }
    // The same with its factor 2 qa / Ei formed by the caller.
    static double hyperbola_of(double q, double qa_, double two_qa_Ei, double Eur,
                               double gamma_p) {
        return q / std::abs(qa_ - q) * two_qa_Ei - 2.0 * q / Eur - gamma_p;
    }

    // gamma_p on the hyperbola at a deviator q below the asymptote:
    // 2 q / Ei qa / (qa - q) - 2 q / Eur (the start state of a point).
    static double hyperbola_gamma(double q, double qa_, double Ei, double Eur) {
        return 2.0 * q / Ei * qa_ / (qa_ - q) - 2.0 * q / Eur;
    }

    // Mohr-Coulomb face on the pair (i, j), i the more compressive stress.
    double f_mc(const Vec3& P, int i, int j) const {
        return (P(i) - P(j)) / 2.0 - (P(i) + P(j)) / 2.0 * sinphi - ccos;
    }
    double f13_mc(const Vec3& P) const { return f_mc(P, 1, 3); }
    // Tension cut-off on principal stress k.
    double f_trac(const Vec3& P, int k) const { return -T - P(k); }
    double f13_trac(const Vec3& P) const { return f_trac(P, 3); }

    // The cap: delta, deviator qt, mean stress and function.
    double delta() const { return (3.0 + sinphi) / (3.0 - sinphi); }
    static double cap_qt(const Vec3& P, double delta_) {
        return P(1) + (delta_ - 1.0) * P(2) - delta_ * P(3);
    }
    static double mean(const Vec3& P) { return (P(1) + P(2) + P(3)) / 3.0; }
    static double f_cap(double qt, double p, double pc, double alpha2) {
        return qt * qt / alpha2 + p * p - pc * pc;
    }
    double f_cap(const Vec3& P, double pc) const {
        return f_cap(cap_qt(P, delta()), mean(P), pc, alpha * alpha);
    }

    // Cap hardening modulus at mean stress p and cap pressure pc, with the
    // hardening factor h of the call.
    double xh_cap(double p, double pc, double h) const {
        double x = 0.0;
        switch (cap_law) {
            case CapLaw::None: return 0.0;
            case CapLaw::Density:
                x = 2.0 * std::max(1.0, p) * pref / cap_stiffness *
                    std::pow(std::max(1.0, pc) / pref, m);
                break;
            case CapLaw::BulkRatio:
                x = 2.0 * cap_K / (cap_stiffness - 1.0) * std::max(1.0, p) *
                    std::pow(std::max(ccot + pc, 1.0) / (ccot + pref), m);
                break;
        }
        return hardening_from_R ? x * h : x;
    }
};

}  // namespace tervak
