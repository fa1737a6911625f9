// Return to the Mohr-Coulomb face 13 and the cap together, hardening the
// cap (docs/mc_cap_return.md states the equations):
//
//   area 1  f13_mc and f_cap                     2x2 system, Cramer's rule
//   area 2  f13_mc, f12_mc and f_cap (P2 = P3)   3x3 system, matinvpiv
//   area 3  f13_mc, f23_mc and f_cap (P1 = P2)   3x3 system, matinvpiv
//
// The Mohr-Coulomb faces are perfectly plastic with the dilatancy angle in
// their flow vectors; the cap is associated, curved, and hardens with
// xh_cap, the call's R (the kernel's factor) playing its part in the
// hardening factor. Every area runs the edge loop of the plane kernels.
// gamma_p (HardPar(1)) is left as the caller set it; the cap only grows.
#include <algorithm>

#include "kernels/cap_return.hpp"
#include "kernels/cap_surface.hpp"
#include "kernels/kernels.hpp"
#include "kernels/return_scheme.hpp"

namespace tervak {

namespace {

template <int N>
KernelOutcome mc_cap_area(const rm::PlaneFace (&faces)[N - 1], const HsMaterial& mt,
                          const KernelCall& k, const KernelOut& out) {
    const double h2 = k.HardPar_E[1];
    capret::CapSet<N> set(mt, cap_params(mt, k.R), -h2, N - 1, faces);
    rm::ReturnState<N> s;
    rm::first_step(set, k.Prs_E, k.D3, s);
    rm::run_loop(rm::kEdge, set, k.Prs_E, k.D3, s);
    return capret::hand_back(set, s, k, out, rm::kEdge, h2);
}

}  // namespace

KernelOutcome MC_CAP_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out) {
    out.iPlast = 1;
    switch (k.iArea) {
        case 1: {
            const rm::PlaneFace faces[1] = {rm::kFace13};
            return mc_cap_area<2>(faces, mt, k, out);
        }
        case 2:
        case 3: {
            const rm::PlaneFace faces[2] = {rm::kFace13, rm::mc_edge_face(k.iArea)};
            return mc_cap_area<3>(faces, mt, k, out);
        }
        default:
            rm::invalid_area("MC_CAP_plast");
    }
}

}  // namespace tervak
