// Return to the Mohr-Coulomb surface and the tension cut-off together: face
// 13 with the cut-off (area 1), and the corners of faces 13 and 12 (area 2)
// or 13 and 23 (area 3) with the cut-off, three multipliers at once.
#include "kernels/kernels.hpp"
#include "kernels/return_scheme.hpp"

namespace tervak {

KernelOutcome MC_TRAC_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out) {
    out.iPlast = 1;
    switch (k.iArea) {
        case 1:
            return rm::hand_back(
                rm::plane_return<2>(mt, {rm::kFace13, rm::kTension3}, k, rm::kEdge), k, out.Prs,
                out.HardPar);
        case 2:
        case 3:
            return rm::hand_back(
                rm::plane_return<3>(mt, {rm::kFace13, rm::mc_edge_face(k.iArea), rm::kTension3},
                                    k, rm::kEdge),
                k, out.Prs, out.HardPar);
        default:
            rm::invalid_area("MC_TRAC_plast");
    }
}

}  // namespace tervak
