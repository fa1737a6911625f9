// The cap together with plane faces, as a surface set of the common return
// scheme (return_scheme.hpp): used by CAP_plast (the cap alone, or with an
// ordering face on an edge) and MC_CAP_plast (the cap with Mohr-Coulomb
// faces).
//
// The cap is associated and curved: its flow vector is its gradient at the
// current state, its curvature H enters the iteration matrix, and it hardens
// with xh_cap, which sits on the diagonal of the multiplier system as
// -df_capmdq xh_cap = 2 pc xh_cap. After every multiplier update the trial
// cap pressure is pc = max(pc_E + xLam_cap xh_cap, pc_E), with the xh_cap of
// the latest gradient evaluation, before the surfaces are evaluated again.
//
// Plane faces have constant gradients, no curvature and no hardening; as in
// the other plane kernels their flow vector carries a zero-weight hardening
// term, m + (0 xLam) z with z cleared.
#pragma once

#include <algorithm>
#include <cmath>

#include "kernels/cap_surface.hpp"
#include "kernels/return_scheme.hpp"

namespace tervak::capret {

inline constexpr rm::SurfaceLabels kCapLabel{"f_cap", "df_capmdS", "df_capmdS", "dxLam_cap",
                                             "xLam_cap"};

// A plane face that meets the cap.
struct CapPlane {
    enum Kind {
        MohrCoulomb,  // Mohr-Coulomb face on the pair (i, j)
        Ordering,     // P(j) - P(i), gradient -1 at i and +1 at j
    };
    Kind kind = MohrCoulomb;
    int i = 1;
    int j = 3;
    rm::SurfaceLabels label{};
};

inline constexpr CapPlane kMc13{CapPlane::MohrCoulomb, 1, 3,
                                {"f13_mc", "df13_mcmdS", "dg13_mcmdS", "dxLam13_mc", "xLam13_mc"}};
inline constexpr CapPlane kMc12{CapPlane::MohrCoulomb, 1, 2,
                                {"f12_mc", "df12_mcmdS", "dg12_mcmdS", "dxLam12_mc", "xLam12_mc"}};
inline constexpr CapPlane kMc23{CapPlane::MohrCoulomb, 2, 3,
                                {"f23_mc", "df23_mcmdS", "dg23_mcmdS", "dxLam23_mc", "xLam23_mc"}};
// P3 - P2: keeps the minor stress from passing the intermediate one.
inline constexpr CapPlane kOrder32{CapPlane::Ordering, 2, 3,
                                   {"f32", "df32mdS", "dg32mdS", "dxLam32", "xLam32"}};
// P2 - P1: keeps the intermediate stress from passing the major one.
inline constexpr CapPlane kOrder21{CapPlane::Ordering, 1, 2,
                                   {"f21", "df21mdS", "dg21mdS", "dxLam21", "xLam21"}};

inline double plane_value(const CapPlane& fc, const Vec3& P, const rm::MohrCoulomb& mc) {
    if (fc.kind == CapPlane::MohrCoulomb) return rm::mc_face(P, fc.i, fc.j, mc.sin_phi, mc.c_cos_phi);
    return P(fc.j) - P(fc.i);
}

inline Vec3 plane_gradient(const CapPlane& fc, const rm::MohrCoulomb& mc) {
    if (fc.kind == CapPlane::MohrCoulomb) return rm::mc_gradient(fc.i, fc.j, mc.sin_phi);
    Vec3 g;
    g(fc.i) = -1.0;
    g(fc.j) = 1.0;
    return g;
}

inline Vec3 plane_flow(const CapPlane& fc, const rm::MohrCoulomb& mc) {
    if (fc.kind == CapPlane::MohrCoulomb) return rm::mc_gradient(fc.i, fc.j, mc.sin_psi);
    return plane_gradient(fc, mc);
}

// The cap (at position ic) and N - 1 plane faces (at the other positions).
template <int NSurf>
struct CapSet {
    static constexpr int N = NSurf;
    rm::SurfaceLabels label[N];
    CapPlane plane[N];
    int ic = 0;
    Props props;
    CapParams cp;
    rm::MohrCoulomb mc;
    Mat3 H;              // cap curvature, constant for the call
    double pc_E = 0.0;   // start cap pressure (positive)
    double pc = 0.0;     // trial cap pressure
    double xh = 0.0;     // xh_cap of the latest gradient evaluation
    rm::Trace trace;

    // faces: the N - 1 plane faces in order (may be null for the cap alone);
    // the cap takes position capAt.
    CapSet(Props P, const CapParams& cap, const rm::MohrCoulomb& mcp, double pcE, int capAt,
           const CapPlane* faces, const rm::Trace& tr)
        : ic(capAt), props(P), cp(cap), mc(mcp), pc_E(pcE), pc(pcE), trace(tr) {
        H = cap_curvature(cp.delta, cp.alpha2);
        int k = 0;
        for (int s = 0; s < N; ++s) {
            if (s == ic) {
                label[s] = kCapLabel;
            } else {
                plane[s] = faces[k++];
                label[s] = plane[s].label;
            }
        }
    }

    void values(const Vec3& P, double (&f)[N]) const {
        for (int s = 0; s < N; ++s) {
            if (s == ic) {
                const double qt = cap_qt(P, cp.delta);
                const double p = cap_p(P);
                trace.val("q_m", qt);
                trace.val("p", p);
                f[s] = f_cap(qt, p, pc, cp.alpha2);
            } else {
                f[s] = plane_value(plane[s], P, mc);
            }
        }
    }

    void terms(const Vec3& P, const double (&xLam)[N], rm::SurfaceTerms<N>& t) {
        const Vec3 z;
        for (int s = 0; s < N; ++s) {
            if (s == ic) {
                const double qt = cap_qt(P, cp.delta);
                const double p = cap_p(P);
                t.n[s] = df_capmdS(qt, p, cp.delta, cp.alpha2);
                t.m[s] = t.n[s];
                t.H[s] = H;
                xh = xh_cap(props, cp, p, pc);
                t.d[s] = -(df_capmdq(pc) * xh);
                trace.val("alfa", cp.alpha);
                trace.val("df_capmdq", df_capmdq(pc));
                trace.val("xh_cap", xh);
            } else {
                t.n[s] = plane_gradient(plane[s], mc);
                t.m[s] = rm::comb(plane_flow(plane[s], mc), z, 1.0, 0.0 * xLam[s]);
            }
        }
    }

    void harden(const double (&xLam)[N]) {
        pc = std::max(pc_E + xLam[ic] * xh, pc_E);
        trace.val("p_p", pc);
    }
};

// "While |f| > tol, at most 101 passes in all": a pass is made while some
// surface exceeds its tolerance and fewer than 101 passes were made. (A NaN
// value exceeds nothing and ends the loop.)
template <int N>
bool exceeds(const rm::ReturnState<N>& s) {
    for (int i = 0; i < N; ++i)
        if (std::fabs(s.f[i]) > s.tol[i]) return true;
    return false;
}

template <class Set>
void while_loop(Set& set, const Vec3& Prs_E, const Mat3& D3, rm::ReturnState<Set::N>& s,
                const rm::Trace& trace) {
    while (exceeds(s) && s.it < rm::kMaxPasses) rm::correction_pass(set, Prs_E, D3, s, trace);
}

}  // namespace tervak::capret
