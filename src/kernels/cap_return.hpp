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
// Plane faces have constant gradients, no curvature and no hardening.
#pragma once

#include <algorithm>

#include "kernels/cap_surface.hpp"
#include "kernels/return_scheme.hpp"

namespace tervak::capret {

// P3 - P2: keeps the minor stress from passing the intermediate one.
inline constexpr rm::PlaneFace kOrder32{rm::PlaneFace::Ordering, 2, 3};
// P2 - P1: keeps the intermediate stress from passing the major one.
inline constexpr rm::PlaneFace kOrder21{rm::PlaneFace::Ordering, 1, 2};

// The cap (at position ic) and N - 1 plane faces (at the other positions).
template <int NSurf>
struct CapSet {
    static constexpr int N = NSurf;
    rm::PlaneFace plane[N];
    int ic = 0;
    const HsMaterial& mt;
    CapParams cp;
    Mat3 H;              // cap curvature, constant for the call
    double pc_E = 0.0;   // start cap pressure (positive)
    double pc = 0.0;     // trial cap pressure
    double xh = 0.0;     // xh_cap of the latest gradient evaluation

    // faces: the N - 1 plane faces in order (may be null for the cap alone);
    // the cap takes position capAt.
    CapSet(const HsMaterial& m, const CapParams& cap, double pcE, int capAt,
           const rm::PlaneFace* faces)
        : ic(capAt), mt(m), cp(cap), pc_E(pcE), pc(pcE) {
        H = cap_curvature(cp.delta, cp.alpha2);
        int k = 0;
        for (int s = 0; s < N; ++s)
            if (s != ic) plane[s] = faces[k++];
    }

    void values(const Vec3& P, double (&f)[N]) const {
        for (int s = 0; s < N; ++s) {
            if (s == ic)
                f[s] = HsMaterial::f_cap(cap_qt_floored(P, cp.delta), HsMaterial::mean(P), pc,
                                         cp.alpha2);
            else
                f[s] = rm::plane_value(plane[s], P, mt);
        }
    }

    [[gnu::always_inline]] void terms(const Vec3& P, const double (&xLam)[N],
                                      rm::SurfaceTerms<N>& t) {
        for (int s = 0; s < N; ++s) {
            if (s == ic) {
                const double qt = cap_qt_floored(P, cp.delta);
                const double p = HsMaterial::mean(P);
                t.n[s] = df_capmdS(qt, p, cp.delta, cp.alpha2);
                t.m[s] = t.n[s];
                xh = mt.xh_cap(p, pc, cp.h);
                t.d[s] = -(df_capmdq(pc) * xh);
            } else {
                rm::plane_terms(plane[s], mt, xLam[s], t.n[s], t.m[s]);
            }
        }
    }

    const Mat3* curvature(int s) const { return s == ic ? &H : nullptr; }

    void harden(const double (&xLam)[N]) { pc = std::max(pc_E + xLam[ic] * xh, pc_E); }
};

// Hands a cap return back: the stresses, the cap (which only grows from its
// stored start value h2), the outcome with the trial cap pressure, and the
// verdict line at the traced point.
template <int N>
KernelOutcome hand_back(const CapSet<N>& set, const rm::ReturnState<N>& s, const KernelCall& k,
                        const KernelOut& out, const rm::EngineOptions& o, double h2) {
    out.Prs = s.Prs;
    out.HardPar[1] = std::min(-set.pc, h2);
    const bool ok = o.ok(s);
    KernelOutcome r = rm::outcome(s, ok);
    r.pc = set.pc;
    rm::verdict_line(k, ok);
    return r;
}

}  // namespace tervak::capret
