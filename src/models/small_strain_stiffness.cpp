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
#include <bit>
#include <cmath>
#include <cstdint>

#include "models/parameters.hpp"
#include "models/small_strain.hpp"
#include "toolkit/algebra.hpp"
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
    std::copy_n(at(sv, first), 6, x.data());
    return x;
}

void store6(double* sv, int first, const Vec6& x) { std::copy_n(x.data(), 6, at(sv, first)); }

// The unit vector of v whose norm r is known: v / r when r exceeds 1e-10,
// else zero (norm's rule).
Vec6 unit(const Vec6& v, double r) {
    Vec6 u;
    if (r > 1e-10)
        for (int i = 0; i < 6; ++i) u.v[i] = v.v[i] / r;
    return u;
}

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

namespace {

// The quantities one sub-increment's steps hand to each other.
struct Step {
    // Moduli of the step.
    double s = 0.0, xKs = 0.0, xKt = 0.0, G_ur_ref = 0.0, G_ur_p = 0.0;
    double G0 = 0.0, gamma_07 = 0.0, gamma_alfa_ur = 0.0;
    // Strain measures.
    Vec6 de, eps_old, eps_new, e_old, e_new, e_R, rel_old, H, Hn, rel;
    double nde = 0.0, nd = 0.0, nrel_old = 0.0, gamma_oct_DR = 0.0, h = 0.0, h_cap = 0.0;
    double nrel = 0.0, hHn = 0.0;
    double gamma_oct_H_new = 0.0, gamma_oct_DR_new = 0.0;
    // Cosines and the history factor.
    double cosine = 1.0, cos_H = 1.0, factor = 0.0, threshold = -0.01, r = 0.0;
    double r100 = 0.0;  // r^100 (r = 0 for an empty history)
    // G0 and the applied moduli.
    double d = 0.0, G0d = 0.0, G0n = 0.0, Gs_hist = 0.0, G = 0.0, K = 0.0;
};

// Stress dependency, the reference moduli and the cut-off strain.
void step_moduli(const Point& pt, double p, const double* sv0, Step& w) {
    const View S0(sv0);
    const HsMaterial& mt = *pt.mt;
    w.s = mt.ss_shear_factor(p);
    // The bulk law's factor is the same power of the same ratio when its
    // reference pressure and exponent are the shear law's, bit for bit.
    const auto bits = [](double x) { return std::bit_cast<std::uint64_t>(x); };
    const bool same =
        bits(mt.ss.p_ref_K) == bits(mt.ss.p_ref_G) && bits(mt.ss.m_K) == bits(mt.ss.m_G);
    const double fK = same ? w.s : mt.ss_bulk_factor(p);
    w.xKs = mt.ss.K_ref * fK;
    w.xKt = mt.ss_Kt_ref() * fK;
    w.G_ur_ref = mt.ss_G_ur_ref();
    w.G_ur_p = w.G_ur_ref * w.s;
    w.G0 = mt.ss_G0_bounded(S0(m2::sv::G0));
    w.gamma_07 = mt.ss.gamma_07;  // threshold strain of the hyperbola
    w.gamma_alfa_ur = mt.ss_cut_off_strain(w.G0, w.G_ur_ref);
    trace(pt.io, "gamma_alfa_ur", w.gamma_alfa_ur);
}

// Strain measures: the deviatoric increment, the present deviatoric
// strain, the strain since the reversal and the history vector.
void strain_measures(const Point& pt, const double* dEps, const Norms& n, const Carry& c,
                     const double* sv0, double* sv, Step& w, Stiffness& st) {
    if (n.known) {
        w.de = n.de;
        w.nde = n.nde;
        w.nd = n.nd;
    } else {
        w.de = deviatoric(dEps);
        w.nde = modul(w.de.data());
        w.nd = modul(dEps);
    }
    st.real = w.nde > 0.01 * w.nd && w.nde > 1e-12;

    w.eps_old = load6(sv0, m2::sv::eps);
    addvec(w.eps_old.data(), dEps, 1.0, 1.0, 6, w.eps_new.data());
    store6(sv, m2::sv::eps, w.eps_new);
    w.e_new = deviatoric(w.eps_new.data());
    w.e_R = load6(sv0, m2::sv::eR1);
    w.H = load6(sv0, m2::sv::H);
    if (c.valid) {
        w.e_old = c.e;
        w.rel_old = c.rel;
        w.nrel_old = c.nrel;
        w.h = c.h;
    } else {
        w.e_old = deviatoric(w.eps_old.data());
        w.rel_old = combine(w.e_old, w.e_R, 1.0, -1.0);
        w.nrel_old = modul(w.rel_old.data());
        w.h = modul(w.H.data());
    }
    w.gamma_oct_DR = kOct * w.nrel_old;
    trace(pt.io, "gamma_oct_DR", w.gamma_oct_DR);
}

// 1. Direction cosines.
void direction_cosines(const Point& pt, State S, Step& w) {
    if (pt.iTer != 0 && w.nde >= 0.01 * w.nd && w.nde >= 1e-12 && w.gamma_oct_DR >= 1e-08) {
        const Vec6 u = unit(w.de, w.nde);
        const Vec6 uR = unit(w.rel_old, w.nrel_old);
        const Vec6 uH = unit(w.H, w.h);
        w.cosine = dinprod(u.data(), uR.data(), 6);
        w.cos_H = dinprod(u.data(), uH.data(), 6);
    }
    S(m2::sv::cos_H) = w.cos_H;
}

// 2. History factor and the threshold of the cosines.
void history_factor(State S, Step& w) {
    if (!(w.h < 1e-10)) {
        w.r = std::min(kOct * w.h, w.gamma_alfa_ur) / w.gamma_alfa_ur;
        w.r100 = std::pow(w.r, 100.0);
        w.factor = 1.0 / ((w.nde / w.h) * (1.0 - w.r100) + 1.0);
        w.threshold = w.factor - 0.01;
    }
    S(m2::sv::f_H) = w.factor;
    w.h_cap = std::min(kOct * w.h, w.gamma_alfa_ur);  // h' of the old history
}

// New cycle: both cosines below the threshold, away from the reversal.
void new_cycle(const Point& pt, const double* sv0, double* sv, Step& w) {
    if (!(w.cosine < w.threshold && w.cos_H < w.threshold && w.gamma_oct_DR > 1e-08)) return;
    const Variant& var = *pt.var;
    message(pt.io, "SE INICIA NUEVO CICLO");
    // The branch length is stored a relative 1e-9 short, so that a path
    // that comes back exactly to the reversal closes its cycle whatever
    // the rounding of the accumulated strains.
    const double branch = w.nrel_old * (1.0 - 1e-9);
    const Vec6 ee = deviatoric(at(sv0, m2::sv::eps_el));
    if (!var.guardedMemory || branch > 1e-10)
        push_level(var, sv, w.h, w.gamma_alfa_ur, branch, modul(ee.data()));
    store6(sv, m2::sv::eR2, w.e_R);
    w.e_R = w.e_new;
    store6(sv, m2::sv::eR1, w.e_R);
}

// 3. History update.
void history_update(const Point& pt, const Stiffness& st, State S, double* sv, Step& w) {
    w.Hn = w.H;
    double hHn = w.h;  // norm of the new history
    if (st.real) {
        if (w.cos_H <= 0.0 && w.cos_H <= w.threshold) {
            w.Hn = w.de;  // a reversal against the history starts it afresh
        } else {
            const Vec6 nH = unit(w.H, w.h);
            const double along = (w.h - w.nde * w.r100) * w.cos_H;
            w.Hn = combine(w.de, nH, 1.0, along);
        }
        for (int i = 1; i <= 6; ++i)
            if (std::abs(w.Hn(i) - w.H(i)) < 1e-10) w.Hn(i) = w.H(i);
        hHn = modul(w.Hn.data());
        if (kOct * hHn > w.gamma_alfa_ur) {
            mulvec(w.Hn.data(), (w.gamma_alfa_ur / kOct) / hHn, 6);
            hHn = modul(w.Hn.data());
        }
    }
    store6(sv, m2::sv::H, w.Hn);
    w.hHn = hHn;
    w.gamma_oct_H_new = std::min(kOct * hHn, w.gamma_alfa_ur);
    S(m2::sv::gamma_oct_H) = w.gamma_oct_H_new;
    trace(pt.io, "gamma_oct_H_new", w.gamma_oct_H_new);
}

// 4. Change of G0.
void change_of_G0(const Point& pt, State S, Step& w) {
    if (w.cos_H <= w.threshold && w.cos_H <= 0.0) {
        w.d = pt.mt->ss.G0_min - w.G0;
    } else if (w.cos_H <= w.threshold) {
        w.d = zero_weighted(pt.mt->ss.G0_min - w.G0);
    }
    w.G0d = w.G0 + w.d;
    if (w.cos_H < w.threshold) {
        const double old_secant = w.G0 * w.s / hyper(w.h_cap, w.gamma_07);
        if (w.G0d * w.s / hyper(w.gamma_oct_H_new, w.gamma_07) < old_secant - 0.1)
            w.G0d = std::max(hyper(w.gamma_oct_H_new, w.gamma_07) * old_secant / w.s,
                             pt.mt->ss.G0_min);
    }
    w.G0n = std::min(std::max(w.G0d, pt.mt->ss.G0_min), pt.mt->ss.G0_ref);
    S(m2::sv::G0) = w.G0n;
    trace(pt.io, "d_Gs0_ap_alfa_H", w.d);
}

// 5. Reference modulus of the step (bookkeeping of the running minimum).
void reference_modulus(const Point& pt, const Stiffness& st, const double* sv0, State S,
                       Step& w) {
    const View S0(sv0);
    const int io = pt.io;
    w.rel = combine(w.e_new, w.e_R, 1.0, -1.0);
    w.nrel = modul(w.rel.data());
    w.gamma_oct_DR_new = kOct * w.nrel;
    const double ga = w.gamma_oct_DR;
    const double gb = w.gamma_oct_DR_new;
    const double gc = w.gamma_alfa_ur;
    double Gt_ap_ref = S0(m2::sv::Gt_ap_ref);
    if (w.cos_H < w.threshold && w.gamma_oct_DR > 1e-08) {
        Gt_ap_ref = w.G0d;
        if (w.cos_H > 0.0)
            Gt_ap_ref = Gt_ap_ref /
                        (hyper(w.gamma_oct_H_new, w.gamma_07) * hyper(w.gamma_oct_H_new, w.gamma_07));
        trace(io, "Gt_ap_ref - caso 1", Gt_ap_ref);
    } else if (st.real) {
        if (ga >= gc && gb >= gc) {
            Gt_ap_ref = w.G_ur_ref;
            trace(io, "Gt_ap_ref - caso 4", Gt_ap_ref);
        } else if (ga < gc && gc < gb) {
            Gt_ap_ref = zero_weighted(w.G0 / hyper(gc, w.gamma_07)) * ga / std::abs(gb - ga) +
                        (gb - gc) * w.G_ur_ref / std::abs(gb - ga);
            Gt_ap_ref = std::fmin(Gt_ap_ref, S0(m2::sv::Gt_ap_ref));
            trace(io, "Gt_ap_ref - caso 3", Gt_ap_ref);
        } else {
            Gt_ap_ref =
                std::abs(zero_weighted(w.G0 / hyper(w.gamma_oct_H_new, w.gamma_07)) * ga / (gb - ga));
            Gt_ap_ref = std::fmin(Gt_ap_ref, S0(m2::sv::Gt_ap_ref));
            trace(io, "Gt_ap_ref - caso 2", Gt_ap_ref);
        }
    }
    Gt_ap_ref = std::fmin(Gt_ap_ref, pt.mt->ss.G0_ref);
    Gt_ap_ref = std::fmax(Gt_ap_ref, w.G_ur_ref);
    Gt_ap_ref = std::fmin(Gt_ap_ref, S0(m2::sv::G_ref_min));
    if (pt.var->boundedBookkeeping) Gt_ap_ref = std::fmax(Gt_ap_ref, w.G_ur_ref);
    S(m2::sv::G_ref_min) = Gt_ap_ref;
    trace(io, "StVar0(55)", S0(m2::sv::Gt_ap_ref));
}

// 6. Choice of law by the strain distance at the start of the step.
void choice_of_law(const Point& pt, Step& w) {
    const int io = pt.io;
    const double G0p = w.G0n * w.s;
    if (w.gamma_oct_DR <= w.gamma_alfa_ur) {
        w.G = G0p / hyper(w.gamma_oct_DR, w.gamma_07);
        w.K = w.xKs;
        trace(io, "Gs_ap APLICADO con gamma_oct_DR .LE. gamma_alfa_ur", w.G);
        trace(io, "xKs APLICADO con gamma_oct_DR .LE. gamma_alfa_ur", w.K);
    } else {
        const double Gs_cut = G0p / hyper(w.gamma_alfa_ur, w.gamma_07);
        const double Gt = (Gs_cut * w.gamma_alfa_ur + (w.gamma_oct_DR - w.gamma_alfa_ur) * w.G_ur_p) /
                          w.gamma_oct_DR;
        w.G = Gt;  // beyond the cut-off the step applies Gt and the tangent bulk modulus
        w.K = w.xKt;
        trace(io, "Gt APLICADO con gamma_oct_DR .GT. gamma_alfa_ur", Gt);
        trace(io, "xKt APLICADO con gamma_oct_DR .GT. gamma_alfa_ur", w.K);
    }
}

// 7. After a reversal: the secant of the history before the step.
void after_reversal(const Point& pt, State S, Step& w) {
    w.Gs_hist = w.G0 * w.s / hyper(w.h_cap, w.gamma_07);
    if (w.cosine < w.threshold && w.gamma_oct_DR > 1e-08) {
        w.G = w.Gs_hist;
        w.K = w.xKs;
        trace(pt.io, "Gs_ap APLICADO con gamma_oct_H_new tras reversión", w.G);
    }
    S(m2::sv::G_ap_ref) = w.G / w.s;
    S(m2::sv::Gs_H_ref) = w.Gs_hist / w.s;
}

// 8. Bulk modulus floor.
void bulk_floor(const Point& pt, Step& w) {
    const double nu = pt.mt->nu_ur;
    const double Kmin = w.G * (2.0 / 3.0) * (1.0 + nu) / (1.0 - 2.0 * nu);
    if (Kmin > w.K) w.K = Kmin;
}

// 9. The applied reference modulus and its ratio to G_ur_ref.
void record_reference(const Point& pt, State S, const Step& w) {
    S(m2::sv::Gt_ap_ref) = w.G / w.s;
    const double ratio = w.G / w.s / w.G_ur_ref;
    if (pt.var->boundedBookkeeping) {
        // Floored at 1, limited by the ratio of the upper bound of G0.
        double bounded = std::max(ratio, 1.0);
        bounded = std::min(bounded, pt.mt->ss.G0_ref / w.G_ur_ref);
        S(m2::sv::G_ratio) = std::min(bounded, 10.0);
    } else {
        S(m2::sv::G_ratio) = std::min(ratio, 10.0);
    }
}

// Linear or non-linear step.
int linearity(const Point& pt, double p_raw, const Step& w) {
    int npi = 0;
    if (w.cos_H < w.threshold && w.gamma_oct_DR <= 1e-08) npi = 1;
    if ((w.cosine < w.threshold && w.cos_H < w.threshold) || pt.iTer == 0 || w.nde < 1e-12 ||
        w.gamma_oct_DR > w.gamma_alfa_ur || p_raw < 1.0)
        npi = 1;
    return npi;
}

// Secant update of a non-linear step: the change of the curve's secant
// over the step, applied to the strain since the reversal.
void secant_update(const Point& pt, double p, const double* dEps, const Step& w, Stiffness& st) {
    const double G0p = w.G0n * w.s;
    const double ga = w.gamma_oct_DR;
    const double gb = w.gamma_oct_DR_new;
    if (ga <= w.gamma_alfa_ur && gb <= w.gamma_alfa_ur) {
        const double Ga = G0p / hyper(ga, w.gamma_07);
        const double Gb = G0p / hyper(gb, w.gamma_07);
        st.dG = -(Ga * Gb) * (0.385 * (gb - ga) / (2.0 * w.gamma_07 * G0p));
    } else {
        st.dG = curve_secant(gb, G0p, w.G_ur_p, w.gamma_alfa_ur, w.gamma_07) -
                curve_secant(ga, G0p, w.G_ur_p, w.gamma_alfa_ur, w.gamma_07);
    }
    double mean_old = 0.0;
    double dmean = 0.0;
    for (int i = 0; i < 3; ++i) {
        mean_old = mean_old + w.eps_old.v[i];
        dmean = dmean + dEps[i];
    }
    mean_old = mean_old / 3.0;
    dmean = dmean / 3.0;
    const double e = -p / (3.0 * pt.mt->ss.m_K * w.xKs) - mean_old;
    st.dK = std::abs(e) >= 0.1 * std::abs(mean_old) ? w.xKs * dmean / e : 0.0;
}

}  // namespace

Stiffness small_strain_stiffness(const Point& pt, double p, double p_raw, const double* dEps,
                                 const Norms& n, const Carry& c, const double* sv0, double* sv) {
    State S{sv};
    Stiffness st;
    Step w;
    step_moduli(pt, p, sv0, w);
    st.gamma_alfa_ur = w.gamma_alfa_ur;
    strain_measures(pt, dEps, n, c, sv0, sv, w, st);
    direction_cosines(pt, S, w);
    history_factor(S, w);
    new_cycle(pt, sv0, sv, w);
    history_update(pt, st, S, sv, w);
    change_of_G0(pt, S, w);
    reference_modulus(pt, st, sv0, S, w);
    choice_of_law(pt, w);
    after_reversal(pt, S, w);
    bulk_floor(pt, w);
    record_reference(pt, S, w);
    st.npi = linearity(pt, p_raw, w);
    if (st.npi == 0) secant_update(pt, p, dEps, w, st);
    st.K = w.K;
    st.G = w.G;
    st.e_new = w.e_new;
    st.rel = w.rel;
    st.nrel = w.nrel;
    st.h = w.hHn;
    return st;
}

namespace {

// The closure test of level i against the distance travelled since the
// reversal: the running branch has come back the length of the branch
// R_i -> R_(i+1), tested for the innermost stored pair.
bool closes(const Variant& var, double* sv, int i, int n, double gamma_oct_DR_new) {
    if (i + 1 != n) return false;  // only the innermost stored pair
    const double Delta = kOct * (xE_M(sv, i) - xE_M(sv, i + 1));
    bool c = -Delta <= gamma_oct_DR_new && std::abs(Delta) <= std::abs(gamma_oct_DR_new) &&
             std::abs(xE_M(sv, i + 1)) > 1e-10;
    if (var.guardedMemory) c = c && std::abs(xE_M(sv, i)) > 1e-10;
    return c;
}

// A closed cycle at level i: the point is back at reversal i and continues
// on the branch that reached it. The history takes the amplitude it had
// there, the reversal strain moves back to that branch's origin, both
// levels of the cycle pop. Returns the new distance from the reversal.
double close_cycle(const Variant& var, const Stiffness& st, double* sv, int i) {
    State S{sv};
    const Vec6& e_new = st.e_new;
    const Vec6& rel = st.rel;
    const double below = i > 1 ? xE_M(sv, i - 1) : 0.0;
    const double L_prev = xE_M(sv, i) - below;
    const double L_cycle = xE_M(sv, i + 1) - xE_M(sv, i);
    const double nr = st.nrel;
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
    return kOct * modul(combine(e_new, eR1, 1.0, -1.0).data());
}

}  // namespace

bool cycle_closure(const Point& pt, const Stiffness& st, double* sv) {
    const Variant& var = *pt.var;
    const int io = pt.io;
    State S{sv};
    // The strain since the reversal is the stiffness's: the accumulated
    // strain and the reversal strain in sv are the ones it wrote.
    double gamma_oct_DR_new = kOct * st.nrel;
    bool closed = false;

    if (st.real) {
        int n = 0;  // stored levels, counted from the first
        while (n < m2::sv::nLevels && !(std::abs(xH_M(sv, n + 1)) < 1e-10)) ++n;
        for (int i = 1; i < m2::sv::nLevels; ++i) {
            if (!closes(var, sv, i, n, gamma_oct_DR_new)) {
                if (i <= 2) message(io, "NO TIENE LUGAR UN CIERRE DE CICLO DE xE_M(i) con i<=2");
                continue;
            }
            message(io,
                    "TIENE LUGAR UN CIERRE DE CICLO. (xE_M(i-1)>gamma_oct_DR_new>xE_M(i), "
                    "con xE_M(i)>1d-10)");
            gamma_oct_DR_new = close_cycle(var, st, sv, i);
            closed = true;
            break;
        }
    }
    S(m2::sv::gamma_oct_DR) = gamma_oct_DR_new;

    trace(io, "xH_M(n+1)", at(sv, m2::sv::xH_M), m2::sv::nLevels);
    trace(io, "xE_M(n+1)", at(sv, m2::sv::xE_M), m2::sv::nLevels);
    trace(io, "xE_e_M(n+1)", at(sv, m2::sv::xE_e_M), m2::sv::nLevels);
    return closed;
}

}  // namespace tervak::ss
