// Small-strain stiffness with a memory of strain reversals.
//
// The elastic stiffness of a step follows the deviatoric strain travelled
// since the last reversal, gamma_oct_DR: a hyperbolic secant law from the
// small-strain modulus G0 down to the cut-off strain gamma_alfa_ur, and
// beyond it a straight continuation with the unloading-reloading modulus.
// A strain-history vector detects reversals; six memory levels remember the
// reversal points so that a closed cycle puts the point back on the branch
// it left. docs/small_strain_stiffness.md explains the choices.
#include <algorithm>
#include <cmath>

#include "models/parameters.hpp"
#include "models/small_strain.hpp"
#include "toolkit/elastic.hpp"
#include "toolkit/records.hpp"
#include "toolkit/usrlib.hpp"
#include "toolkit/writers.hpp"

namespace tervak::ss {

namespace {

using View = tervak::Props;

// The memory arrays, level k = 1..6.
double& xH_M(double* sv, int k) { return State(sv)(m2::sv::xH_M + k - 1); }
double& xE_M(double* sv, int k) { return State(sv)(m2::sv::xE_M + k - 1); }
double& xE_e_M(double* sv, int k) { return State(sv)(m2::sv::xE_e_M + k - 1); }

Vec6 load6(const double* sv, int first) {
    Vec6 x;
    copyrvec(at(sv, first), x.data(), 6);
    return x;
}

void store6(double* sv, int first, const Vec6& x) { copyrvec(x.data(), at(sv, first), 6); }

// a + fb b, one addvec.
Vec6 combine(const Vec6& a, const Vec6& b, double fa, double fb) {
    Vec6 c;
    addvec(a.data(), b.data(), fa, fb, 6, c.data());
    return c;
}

// 1 + 0.385 gamma / (2 gamma_0.7): the denominator of the secant law, with
// the threshold doubled as after a reversal.
double hyper(double gamma, double gamma07) { return 1.0 + 0.385 * gamma / (2.0 * gamma07); }

void message(int io, const char* text) {
    if (io >= 1) say(text);
}

// The secant shear modulus of the curve at a strain distance gamma: the
// hyperbola up to the cut-off, then the secant of the hyperbola continued
// by a straight line of slope G_ur_p.
double curve_secant(double gamma, double G0p, double G_ur_p, double gamma_alfa_ur,
                    double gamma07) {
    if (gamma <= gamma_alfa_ur) return G0p / hyper(gamma, gamma07);
    const double Gs_cut = G0p / hyper(gamma_alfa_ur, gamma07);
    return (Gs_cut * gamma_alfa_ur + (gamma - gamma_alfa_ur) * G_ur_p) / gamma;
}

// Pushes a level at a new cycle: the first empty level receives the
// history amplitude, the path length up to this reversal and the elastic
// amplitude. All six full: nothing is written.
void push_level(const Variant& v, double* sv, double h, double gamma_alfa_ur, double branch,
                double elastic) {
    for (int k = 1; k <= m2::sv::nLevels; ++k) {
        bool empty = std::abs(xH_M(sv, k)) < 1e-10;
        if (v.guardedMemory) empty = empty && std::abs(xE_M(sv, k)) < 1e-10;
        if (!empty) continue;
        const double below = k > 1 ? xE_M(sv, k - 1) : 0.0;
        double xh = std::min(h, gamma_alfa_ur / kOct);
        double xe = below + branch;
        double xee = elastic;
        if (v.guardedMemory) {
            xh = xh + 1e-10;
            xe = xe + 1e-10;
            xee = xee + 1e-10;
        }
        xH_M(sv, k) = xh;
        xE_M(sv, k) = xe;
        xE_e_M(sv, k) = xee;
        return;
    }
}

}  // namespace

Vec6 deviatoric(const double* e) {
    double vol = 0.0;
    for (int i = 0; i < 3; ++i) vol = vol + e[i];
    Vec6 d;
    for (int i = 0; i < 3; ++i) d.v[i] = e[i] - vol / 3.0;
    for (int i = 3; i < 6; ++i) d.v[i] = e[i];
    return d;
}

Stiffness small_strain_stiffness(const Point& pt, double p, double p_raw, const double* dEps,
                                 const double* sv0, double* sv) {
    const View P(pt.Props);
    const View S0(sv0);
    State S{sv};
    const Variant& var = *pt.var;
    const int io = pt.io;
    Stiffness st;

    // Stress dependency and the reference moduli of the step.
    const double s = std::pow(std::max(p, 0.1 * P(m2::p_ref_G)) / P(m2::p_ref_G), P(m2::m_G));
    const double fK = std::pow(std::max(p, 0.1 * P(m2::p_ref_K)) / P(m2::p_ref_K), P(m2::m_K));
    const double xKs = P(m2::K_ref) * fK;
    const double xKt = P(m2::K_ref) / (1.0 - P(m2::m_K)) * fK;
    const double Kt_ref = P(m2::K_ref) / (1.0 - P(m2::m_K));
    const double G_ur_ref = 3.0 * Kt_ref * P(m2::Eur_ref) / (9.0 * Kt_ref - P(m2::Eur_ref));
    const double G_ur_p = G_ur_ref * s;
    const double G0 = std::min(std::max(S0(m2::sv::G0), P(m2::G0_min)), P(m2::G0_ref));
    const double gamma_07 = P(m2::gamma_07);  // threshold strain of the hyperbola
    const double gamma_alfa_ur = (2.0 * gamma_07 / 0.385) * (std::sqrt(G0 / G_ur_ref) - 1.0);
    st.gamma_alfa_ur = gamma_alfa_ur;
    wrival(io, "gamma_alfa_ur", gamma_alfa_ur);

    // Strain measures: the deviatoric increment, the present deviatoric
    // strain, the strain since the reversal and the history vector.
    const Vec6 de = deviatoric(dEps);
    const double nde = modul(de.data());
    const double nd = modul(dEps);
    st.real = nde > 0.01 * nd && nde > 1e-12;

    const Vec6 eps_old = load6(sv0, m2::sv::eps);
    Vec6 eps_new;
    addvec(eps_old.data(), dEps, 1.0, 1.0, 6, eps_new.data());
    store6(sv, m2::sv::eps, eps_new);
    const Vec6 e_old = deviatoric(eps_old.data());
    const Vec6 e_new = deviatoric(eps_new.data());
    Vec6 e_R = load6(sv0, m2::sv::eR1);
    const Vec6 rel_old = combine(e_old, e_R, 1.0, -1.0);
    const double gamma_oct_DR = kOct * modul(rel_old.data());
    wrival(io, "gamma_oct_DR", gamma_oct_DR);

    const Vec6 H = load6(sv0, m2::sv::H);
    const double h = modul(H.data());

    // 1. Direction cosines.
    double cosine = 1.0;
    double cos_H = 1.0;
    if (pt.iTer != 0 && nde >= 0.01 * nd && nde >= 1e-12 && gamma_oct_DR >= 1e-08) {
        Vec6 u, uR, uH;
        norm(de.data(), u.data());
        norm(rel_old.data(), uR.data());
        norm(H.data(), uH.data());
        cosine = dinprod(u.data(), uR.data(), 6);
        cos_H = dinprod(u.data(), uH.data(), 6);
    }
    S(m2::sv::cos_H) = cos_H;

    // 2. History factor and the threshold of the cosines.
    double factor = 0.0;
    double threshold = -0.01;
    double r = 0.0;
    if (!(h < 1e-10)) {
        r = std::min(kOct * h, gamma_alfa_ur) / gamma_alfa_ur;
        factor = 1.0 / ((nde / h) * (1.0 - std::pow(r, 100.0)) + 1.0);
        threshold = factor - 0.01;
    }
    S(m2::sv::f_H) = factor;
    const double h_cap = std::min(kOct * h, gamma_alfa_ur);  // h' of the old history

    // New cycle: both cosines below the threshold, away from the reversal.
    const bool newCycle = cosine < threshold && cos_H < threshold && gamma_oct_DR > 1e-08;
    if (newCycle) {
        message(io, "SE INICIA NUEVO CICLO");
        // The branch length is stored a relative 1e-9 short, so that a path
        // that comes back exactly to the reversal closes its cycle whatever
        // the rounding of the accumulated strains.
        const double branch = modul(rel_old.data()) * (1.0 - 1e-9);
        const Vec6 ee = deviatoric(at(sv0, m2::sv::eps_el));
        if (!var.guardedMemory || branch > 1e-10)
            push_level(var, sv, h, gamma_alfa_ur, branch, modul(ee.data()));
        store6(sv, m2::sv::eR2, e_R);
        e_R = e_new;
        store6(sv, m2::sv::eR1, e_R);
    }

    // 3. History update.
    Vec6 Hn = H;
    if (st.real) {
        if (cos_H <= 0.0 && cos_H <= threshold) {
            Hn = de;  // a reversal against the history starts it afresh
        } else {
            Vec6 nH;
            norm(H.data(), nH.data());
            const double along = (h - nde * std::pow(r, 100.0)) * cos_H;
            Hn = combine(de, nH, 1.0, along);
        }
        for (int i = 1; i <= 6; ++i)
            if (std::abs(Hn(i) - H(i)) < 1e-10) Hn(i) = H(i);
        const double hn = modul(Hn.data());
        if (kOct * hn > gamma_alfa_ur) mulvec(Hn.data(), (gamma_alfa_ur / kOct) / hn, 6);
    }
    store6(sv, m2::sv::H, Hn);
    const double gamma_oct_H_new = std::min(kOct * modul(Hn.data()), gamma_alfa_ur);
    S(m2::sv::gamma_oct_H) = gamma_oct_H_new;
    wrival(io, "gamma_oct_H_new", gamma_oct_H_new);

    // 4. Change of G0.
    double d_Gs0_ap_alfa_H = 0.0;
    if (cos_H <= threshold && cos_H <= 0.0) {
        d_Gs0_ap_alfa_H = P(m2::G0_min) - G0;
    } else if (cos_H <= threshold) {
        d_Gs0_ap_alfa_H = (P(m2::G0_min) - G0) * 0.0;
    }
    double G0d = G0 + d_Gs0_ap_alfa_H;
    if (cos_H < threshold) {
        const double old_secant = G0 * s / hyper(h_cap, gamma_07);
        if (G0d * s / hyper(gamma_oct_H_new, gamma_07) < old_secant - 0.1)
            G0d = std::max(hyper(gamma_oct_H_new, gamma_07) * old_secant / s, P(m2::G0_min));
    }
    const double G0n = std::min(std::max(G0d, P(m2::G0_min)), P(m2::G0_ref));
    S(m2::sv::G0) = G0n;
    wrival(io, "d_Gs0_ap_alfa_H", d_Gs0_ap_alfa_H);

    // 5. Reference modulus of the step (bookkeeping of the running minimum).
    const Vec6 rel = combine(e_new, e_R, 1.0, -1.0);
    const double gamma_oct_DR_new = kOct * modul(rel.data());
    const double ga = gamma_oct_DR;
    const double gb = gamma_oct_DR_new;
    double Gt_ap_ref = S0(m2::sv::Gt_ap_ref);
    if (cos_H < threshold && gamma_oct_DR > 1e-08) {
        Gt_ap_ref = G0d;
        if (cos_H > 0.0)
            Gt_ap_ref =
                Gt_ap_ref / (hyper(gamma_oct_H_new, gamma_07) * hyper(gamma_oct_H_new, gamma_07));
        wrival(io, "Gt_ap_ref - caso 1", Gt_ap_ref);
    } else if (st.real) {
        if (ga >= gamma_alfa_ur && gb >= gamma_alfa_ur) {
            Gt_ap_ref = G_ur_ref;
            wrival(io, "Gt_ap_ref - caso 4", Gt_ap_ref);
        } else if (ga < gamma_alfa_ur && gamma_alfa_ur < gb) {
            Gt_ap_ref = G0n / hyper(gamma_alfa_ur, gamma_07) * 0.0 * ga / std::abs(gb - ga) +
                        (gb - gamma_alfa_ur) * G_ur_ref / std::abs(gb - ga);
            Gt_ap_ref = std::fmin(Gt_ap_ref, S0(m2::sv::Gt_ap_ref));
            wrival(io, "Gt_ap_ref - caso 3", Gt_ap_ref);
        } else {
            Gt_ap_ref = std::abs(G0n / hyper(gamma_oct_H_new, gamma_07) * 0.0 * ga / (gb - ga));
            Gt_ap_ref = std::fmin(Gt_ap_ref, S0(m2::sv::Gt_ap_ref));
            wrival(io, "Gt_ap_ref - caso 2", Gt_ap_ref);
        }
    }
    Gt_ap_ref = std::fmin(Gt_ap_ref, P(m2::G0_ref));
    Gt_ap_ref = std::fmax(Gt_ap_ref, G_ur_ref);
    Gt_ap_ref = std::fmin(Gt_ap_ref, S0(m2::sv::G_ref_min));
    if (var.boundedBookkeeping) Gt_ap_ref = std::fmax(Gt_ap_ref, G_ur_ref);
    S(m2::sv::G_ref_min) = Gt_ap_ref;
    wrival(io, "StVar0(55)", S0(m2::sv::Gt_ap_ref));

    // 6. Choice of law by the strain distance at the start of the step.
    const double G0p = G0n * s;
    double Gsec = 0.0;  // the secant modulus of the step's law
    double G = 0.0;     // the modulus of the elastic matrix
    double K = 0.0;
    if (gamma_oct_DR <= gamma_alfa_ur) {
        Gsec = G0p / hyper(gamma_oct_DR, gamma_07);
        G = Gsec;
        K = xKs;
        wrival(io, "Gs_ap APLICADO con gamma_oct_DR .LE. gamma_alfa_ur", Gsec);
        wrival(io, "xKs APLICADO con gamma_oct_DR .LE. gamma_alfa_ur", K);
    } else {
        const double Gs_cut = G0p / hyper(gamma_alfa_ur, gamma_07);
        const double Gt =
            (Gs_cut * gamma_alfa_ur + (gamma_oct_DR - gamma_alfa_ur) * G_ur_p) / gamma_oct_DR;
        Gsec = Gt;
        G = Gt;  // beyond the cut-off the step applies Gt and the tangent bulk modulus
        K = xKt;
        wrival(io, "Gt APLICADO con gamma_oct_DR .GT. gamma_alfa_ur", Gt);
        wrival(io, "xKt APLICADO con gamma_oct_DR .GT. gamma_alfa_ur", K);
    }

    // 7. After a reversal: the secant of the history before the step.
    const double Gs_hist = G0 * s / hyper(h_cap, gamma_07);
    if (cosine < threshold && gamma_oct_DR > 1e-08) {
        Gsec = Gs_hist;
        G = Gsec;
        K = xKs;
        wrival(io, "Gs_ap APLICADO con gamma_oct_H_new tras reversión", Gsec);
    }
    S(m2::sv::G_ap_ref) = Gsec / s;
    S(m2::sv::Gs_H_ref) = Gs_hist / s;

    // 8. Bulk modulus floor.
    const double nu = P(m2::nu_ur);
    const double Kmin = G * (2.0 / 3.0) * (1.0 + nu) / (1.0 - 2.0 * nu);
    if (Kmin > K) K = Kmin;

    // 9. The applied reference modulus and its ratio to G_ur_ref.
    S(m2::sv::Gt_ap_ref) = G / s;
    const double ratio = Gsec / s / G_ur_ref;
    if (var.boundedBookkeeping) {
        // Floored at 1, limited by the ratio of the upper bound of G0.
        double bounded = std::max(ratio, 1.0);
        bounded = std::min(bounded, P(m2::G0_ref) / G_ur_ref);
        S(m2::sv::G_ratio) = std::min(bounded, 10.0);
    } else {
        S(m2::sv::G_ratio) = std::min(ratio, 10.0);
    }

    // Linear or non-linear step.
    int npi = 0;
    if (cos_H < threshold && gamma_oct_DR <= 1e-08) npi = 1;
    if ((cosine < threshold && cos_H < threshold) || pt.iTer == 0 || nde < 1e-12 ||
        gamma_oct_DR > gamma_alfa_ur || p_raw < 1.0)
        npi = 1;
    st.npi = npi;

    // Secant update of a non-linear step: the change of the curve's secant
    // over the step, applied to the strain since the reversal.
    if (npi == 0) {
        if (ga <= gamma_alfa_ur && gb <= gamma_alfa_ur) {
            const double Ga = G0p / hyper(ga, gamma_07);
            const double Gb = G0p / hyper(gb, gamma_07);
            st.dG = -(Ga * Gb) * (0.385 * (gb - ga) / (2.0 * gamma_07 * G0p));
        } else {
            st.dG = curve_secant(gb, G0p, G_ur_p, gamma_alfa_ur, gamma_07) -
                    curve_secant(ga, G0p, G_ur_p, gamma_alfa_ur, gamma_07);
        }
        double mean_old = 0.0;
        double dmean = 0.0;
        for (int i = 0; i < 3; ++i) {
            mean_old = mean_old + eps_old.v[i];
            dmean = dmean + dEps[i];
        }
        mean_old = mean_old / 3.0;
        dmean = dmean / 3.0;
        const double e = -p / (3.0 * P(m2::m_K) * xKs) - mean_old;
        st.dK = std::abs(e) >= 0.1 * std::abs(mean_old) ? xKs * dmean / e : 0.0;
    }

    st.K = K;
    st.G = G;
    st.rel = rel;
    return st;
}

void cycle_closure(const Point& pt, const Stiffness& st, double* sv) {
    const Variant& var = *pt.var;
    const int io = pt.io;
    State S{sv};
    const Vec6 e_new = deviatoric(at(sv, m2::sv::eps));
    const Vec6 e_R = load6(sv, m2::sv::eR1);
    const Vec6 rel = combine(e_new, e_R, 1.0, -1.0);
    double gamma_oct_DR_new = kOct * modul(rel.data());

    if (st.real) {
        int n = 0;  // stored levels, counted from the first
        while (n < m2::sv::nLevels && !(std::abs(xH_M(sv, n + 1)) < 1e-10)) ++n;
        for (int i = 1; i < m2::sv::nLevels; ++i) {
            const double Delta = kOct * (xE_M(sv, i) - xE_M(sv, i + 1));
            bool closes = -Delta <= gamma_oct_DR_new &&
                          std::abs(Delta) <= std::abs(gamma_oct_DR_new) &&
                          std::abs(xE_M(sv, i + 1)) > 1e-10 && i + 1 == n;
            if (var.guardedMemory) closes = closes && std::abs(xE_M(sv, i)) > 1e-10;
            if (!closes) {
                if (i <= 2) message(io, "NO TIENE LUGAR UN CIERRE DE CICLO DE xE_M(i) con i<=2");
                continue;
            }
            message(io,
                    "TIENE LUGAR UN CIERRE DE CICLO. (xE_M(i-1)>gamma_oct_DR_new>xE_M(i), "
                    "con xE_M(i)>1d-10)");
            // The point is back at reversal i and continues on the branch
            // that reached it: the history takes the amplitude it had there,
            // the reversal strain moves back to that branch's origin.
            const double below = i > 1 ? xE_M(sv, i - 1) : 0.0;
            const double L_prev = xE_M(sv, i) - below;
            const double L_cycle = xE_M(sv, i + 1) - xE_M(sv, i);
            const double nr = modul(rel.data());
            const double target = L_prev + std::max(nr - L_cycle, 0.0);

            Vec6 H = load6(sv, m2::sv::H);
            const double hH = modul(H.data());
            bool scaleH = hH > 1e-10;
            if (var.guardedMemory) scaleH = scaleH && xH_M(sv, i) > 1e-10;
            if (scaleH) {
                const double f = var.guardedMemory ? xH_M(sv, i) / (hH + 1e-10) : xH_M(sv, i) / hH;
                mulvec(H.data(), f, 6);
            } else {
                mzeror(H.data(), 6);
            }
            store6(sv, m2::sv::H, H);
            S(m2::sv::gamma_oct_H) = std::min(kOct * modul(H.data()), st.gamma_alfa_ur);

            bool scaleR = nr > 1e-10;
            if (var.guardedMemory) scaleR = scaleR && target > 1e-10;
            Vec6 eR1 = e_new;
            Vec6 eR2;  // zero when no reversal lies before the restored origin
            if (scaleR) {
                const double f = var.guardedMemory ? target / (nr + 1e-10) : target / nr;
                eR1 = combine(e_new, rel, 1.0, -f);
                if (i > 1) {
                    const double below2 = i > 2 ? xE_M(sv, i - 2) : 0.0;
                    const double L_before = xE_M(sv, i - 1) - below2;
                    eR2 = combine(eR1, rel, 1.0, L_before / nr);
                }
            }
            store6(sv, m2::sv::eR1, eR1);
            store6(sv, m2::sv::eR2, eR2);

            for (int k = i; k <= i + 1; ++k) {
                xH_M(sv, k) = 0.0;
                xE_M(sv, k) = 0.0;
                xE_e_M(sv, k) = 0.0;
            }
            gamma_oct_DR_new = kOct * modul(combine(e_new, eR1, 1.0, -1.0).data());
            break;
        }
    }
    S(m2::sv::gamma_oct_DR) = gamma_oct_DR_new;

    wrivec(io, "xH_M(n+1)", at(sv, m2::sv::xH_M), m2::sv::nLevels);
    wrivec(io, "xE_M(n+1)", at(sv, m2::sv::xE_M), m2::sv::nLevels);
    wrivec(io, "xE_e_M(n+1)", at(sv, m2::sv::xE_e_M), m2::sv::nLevels);
}

}  // namespace tervak::ss
