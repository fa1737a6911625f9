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

#include "kernels/cap_kernels.hpp"
#include "kernels/cap_surface.hpp"
#include "kernels/return_scheme.hpp"

namespace tervak::capret {

inline constexpr rm::SurfaceLabels kCapLabel{"f_cap", "df_capmdS", "df_capmdS", "dxLam_cap",
                                             "xLam_cap"};

// P3 - P2: keeps the minor stress from passing the intermediate one.
inline constexpr rm::PlaneFace kOrder32{rm::PlaneFace::Ordering, 2, 3,
                                        {"f32", "df32mdS", "dg32mdS", "dxLam32", "xLam32"}};
// P2 - P1: keeps the intermediate stress from passing the major one.
inline constexpr rm::PlaneFace kOrder21{rm::PlaneFace::Ordering, 1, 2,
                                        {"f21", "df21mdS", "dg21mdS", "dxLam21", "xLam21"}};

// The cap (at position ic) and N - 1 plane faces (at the other positions).
template <int NSurf>
struct CapSet {
    static constexpr int N = NSurf;
    rm::SurfaceLabels label[N];
    rm::PlaneFace plane[N];
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
           const rm::PlaneFace* faces, const rm::Trace& tr)
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
                f[s] = rm::plane_value(plane[s], P, mc);
            }
        }
    }

    void terms(const Vec3& P, const double (&xLam)[N], rm::SurfaceTerms<N>& t) {
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
                rm::plane_terms(plane[s], mc, xLam[s], t.n[s], t.m[s]);
            }
        }
    }

    void harden(const double (&xLam)[N]) {
        pc = std::max(pc_E + xLam[ic] * xh, pc_E);
        trace.val("p_p", pc);
    }
};

// The outcome record of a cap return, when one is wanted.
template <int N>
void record(CapOutcome* out, const rm::ReturnState<N>& s, double pc, bool ok) {
    if (out == nullptr) return;
    out->it = s.it;
    out->nLam = N;
    for (int i = 0; i < N; ++i) out->xLam[i] = s.xLam[i];
    out->pc = pc;
    out->ok = ok;
    out->early_exit = false;
}

}  // namespace tervak::capret
