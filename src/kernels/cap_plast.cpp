// Return to the cap alone (area 1), or to the cap on an edge of the sorted
// principal triple (areas 2 and 3), hardening the cap. The cap only grows:
// the stored value HardPar(2) = -pc never rises above its start value.
//
//   area 1  the cap; first step, then passes while |f_cap| > tol
//   area 2  the cap and the ordering face P3 - P2 (gradient (0, -1, 1))
//   area 3  the cap and the ordering face P2 - P1 (gradient (-1, 1, 0))
//
// On an edge the first step solves the 2x2 system by Cramer's rule and the
// edge loop of the plane kernels follows (convergence tested first, then the
// count of 101, then a pass). With IsUndr = 1, a first step that brings the
// mean stress below the tension value T abandons the return: the trial
// stresses and the start hardening pair come back, without a verdict.
#include <algorithm>

#include "kernels/cap_return.hpp"
#include "kernels/cap_surface.hpp"
#include "kernels/kernels.hpp"
#include "kernels/return_scheme.hpp"

namespace tervak {

namespace {

// The trial state and the start hardening pair, handed back unchanged.
KernelOutcome give_back(const KernelCall& k, const KernelOut& out) {
    const double h1 = k.HardPar_E[0];
    const double h2 = k.HardPar_E[1];
    out.Prs = k.Prs_E;
    out.HardPar[0] = h1;
    out.HardPar[1] = h2;
    KernelOutcome o;
    o.early_exit = true;
    return o;
}

// One area: first step, early exit test, loop, outputs, verdict. The cap
// alone (area 1) runs the while loop, an edge the edge loop.
template <int N>
KernelOutcome cap_area(capret::CapSet<N>& set, const KernelCall& k, const KernelOut& out) {
    rm::ReturnState<N> s;
    rm::first_step(set, k.Prs_E, k.D3, s);
    if (k.IsUndr == 1 && HsMaterial::mean(s.Prs) < set.cp.T) return give_back(k, out);
    const rm::EngineOptions& o = N == 1 ? rm::kWhile : rm::kEdge;
    rm::run_loop(o, set, k.Prs_E, k.D3, s);
    const double h1 = k.HardPar_E[0];
    const double h2 = k.HardPar_E[1];
    out.HardPar[0] = h1;
    return capret::hand_back(set, s, k, out, o, h2);
}

}  // namespace

KernelOutcome CAP_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out) {
    out.iPlast = 3;
    const CapParams cp = cap_params(mt, k.R);
    const double pc_E = -k.HardPar_E[1];
    switch (k.iArea) {
        case 1: {
            capret::CapSet<1> set(mt, cp, pc_E, 0, nullptr);
            return cap_area(set, k, out);
        }
        case 2:
        case 3: {
            const rm::PlaneFace faces[1] = {k.iArea == 2 ? capret::kOrder32 : capret::kOrder21};
            capret::CapSet<2> set(mt, cp, pc_E, 0, faces);
            return cap_area(set, k, out);
        }
        default:
            rm::invalid_area("CAP_plast");
    }
}

}  // namespace tervak
