// Return to the Mohr-Coulomb surface: the face 13 alone (area 1), the edge
// Prs(2) = Prs(3) with face 12 (area 2), the edge Prs(1) = Prs(2) with face
// 23 (area 3). Perfectly plastic: the hardening pair only passes through.
#include "kernels/kernels.hpp"
#include "kernels/return_scheme.hpp"

namespace tervak {

KernelOutcome MC_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out) {
    out.iPlast = 1;
    switch (k.iArea) {
        case 1:
            return rm::hand_back(rm::plane_return<1>(mt, {rm::kFace13}, k, rm::kFace), k, out.Prs,
                                 out.HardPar);
        case 2:
        case 3:
            return rm::hand_back(
                rm::plane_return<2>(mt, {rm::kFace13, rm::mc_edge_face(k.iArea)}, k, rm::kEdge),
                k, out.Prs, out.HardPar);
        default:
            rm::invalid_area("MC_plast");
    }
}

}  // namespace tervak
