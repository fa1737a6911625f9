// The shear-hardening surfaces in principal-stress space (compression
// positive, P(1) >= P(2) >= P(3)), shared by HS_plast, HS_TRAC_plast,
// HS_CAP_plast and HS_CAP_plast_it.
//
// For a deviator q between two principal stresses and the hardening
// variable gamma_p:
//
//   f = (q / |qa - q|) (2 qa / Ei) - 2 q / Eur - gamma_p      (qf > q)
//
// and q is replaced by qf once it reaches the strength (the function
// saturates). qf, qa, Ei and Eur are fixed for a whole kernel call from the
// minor stress s3 of the start of the step; they do not follow Prs.
//
// Three shear surfaces exist, one per pair of principal stresses: f13 on
// P1 - P3 (always active), f12 on P1 - P2 (edge P2 = P3) and f23 on P2 - P3
// (edge P1 = P2). All share the mobilised dilatancy of the current state.
#pragma once

#include <algorithm>

#include "toolkit/material.hpp"
#include "toolkit/types.hpp"

namespace tervak {

// The material and the strength and stiffness of one kernel call, fixed
// from the minor stress s3 of the start of the step.
struct HsParams {
    const HsMaterial* mt = nullptr;
    double h = 1.0;    // hardening factor of the call
    double qf = 0.0;   // failure deviator
    double qa = 0.0;   // asymptote qf / Rf
    double S = 0.0;    // stress factor of the stiffnesses
    double Ei = 0.0;
    double Eur = 0.0;
    // Factors of the yield function and its slope, fixed with the above.
    double two_qa_Ei = 0.0;  // 2 qa / Ei
    double two_qa2 = 0.0;    // 2 (qa qa)
    double two_Eur = 0.0;    // 2 / Eur
};

// The kernel's strength: qf with the floor max(1, ccot + T) on s3 + ccot.
// The inner floor of 1.0 (stress units) keeps a finite strength at c = 0.
double kernel_qf(const HsMaterial& mt, double s3);

// Fixes qf, qa, the stress factor, Ei and Eur from s3, and the hardening
// factor from R.
HsParams hs_params(const HsMaterial& mt, double R, double s3);

// A shear surface on the pair of principal stresses (i, j), i < j:
// q = P(i) - P(j).
struct ShearFace {
    int i;
    int j;
};
inline constexpr ShearFace kFace13{1, 3};
inline constexpr ShearFace kFace12{1, 2};
inline constexpr ShearFace kFace23{2, 3};

// The second shear face of an edge return: f12 in area 2, f23 in area 3.
inline constexpr ShearFace edge_face(int iArea) { return iArea == 3 ? kFace23 : kFace12; }

inline double face_q(ShearFace fc, const Vec3& P) { return P(fc.i) - P(fc.j); }

// The line " q > qf " of the diagnostic point.
void say_q_above_qf();

// The yield function of a deviator q at gamma_p. When saturated (q >= qf) the
// line " q > qf " is written if trace is set (the diagnostic point).
inline double hs_yield(const HsParams& hp, double q, double gamma_p, bool trace) {
    if (!(hp.qf > q)) {
        if (trace) say_q_above_qf();
        q = hp.qf;
    }
    return HsMaterial::hyperbola_of(q, hp.qa, hp.two_qa_Ei, hp.Eur, gamma_p);
}

// f of a face at P.
inline double f_hs(const HsParams& hp, ShearFace fc, const Vec3& P, double gamma_p,
                   bool trace) {
    return hs_yield(hp, face_q(fc, P), gamma_p, trace);
}

// The slope df/dq = 2 qa^2 / (Ei (qa - q^)^2) - 2 / Eur, with q^ = q below
// the strength and qf at or beyond it.
inline double hs_slope(const HsParams& hp, double q) {
    const double qh = hp.qf > q ? q : hp.qf;
    const double d = hp.qa - qh;
    return hp.two_qa2 / (hp.Ei * (d * d)) - hp.two_Eur;
}

// Gradient of a face at P: a at position i, -a at position j.
inline Vec3 df_hsmdS(const HsParams& hp, ShearFace fc, const Vec3& P) {
    const double a = hs_slope(hp, face_q(fc, P));
    Vec3 g;
    g(fc.i) = a;
    g(fc.j) = -a;
    return g;
}

// Mobilised friction, clamped to [0, sin phi] (the Contractant law raises it
// to the K0 value first).
double sin_phi_mob(const HsMaterial& mt, const Vec3& P);

// Critical-state friction (sin phi - sin psi) / (1 - sin phi sin psi).
double sin_phi_cv(const HsMaterial& mt);

// Mobilised dilatancy by the material's law, at P.
double sin_psi_mob(const HsMaterial& mt, const Vec3& P);

// The mobilised friction and dilatancy of a material with the terms that do
// not depend on the stresses formed once (a kernel call asks at every pass).
struct Dilatancy {
    const HsMaterial* mt;
    double cohesion;  // 2 c cos(phi) / sin(phi), as the friction law writes it
    double spcv;      // sin_phi_cv
    double M = 0.0;       // 6 spcv / (3 - spcv)          (Contractant law)
    double etaK0 = 0.0;   // 3 (1 - K0) / (1 + 2 K0)      (Contractant law)

    explicit Dilatancy(const HsMaterial& m);
    double sin_phi_mob(const Vec3& P) const;
    double sin_psi_mob(const Vec3& P) const;

private:
    double contraction(const Vec3& P, double spm) const;
};

// Flow vector of a face: (1 - sin_psi_m)/2 at position i, -(1 + sin_psi_m)/2
// at position j.
inline Vec3 dg_hsmdS(ShearFace fc, double sin_psi_m) {
    Vec3 g;
    g(fc.i) = (1.0 - sin_psi_m) / 2.0;
    g(fc.j) = -(1.0 + sin_psi_m) / 2.0;
    return g;
}

// Trial gamma_p after a shear multiplier: the variable never decreases.
inline double hs_gamma_trial(double gamma_p0, double h, double xLam13) {
    return std::max(gamma_p0 + h * xLam13, gamma_p0);
}

}  // namespace tervak
