// Return to the Mohr-Coulomb surface: the face 13 alone (area 1), the edge
// Prs(2) = Prs(3) with face 12 (area 2), the edge Prs(1) = Prs(2) with face
// 23 (area 3). Perfectly plastic: the hardening pair only passes through.
#include "kernels/kernels.hpp"
#include "kernels/return_scheme.hpp"

namespace tervak {

void MC_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props_,
              const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
              int& iPlast, const Vec3& /*Prs_0*/, const Mat3& D3, int iModel) {
    const rm::Trace trace;
    iPlast = 1;
    const rm::MohrCoulomb mc = rm::read_mohr_coulomb(Props(Props_), iModel);
    const rm::PlaneOutput out{iEl, Int, iElDbg, IntDbg, Prs, HardPar_E, HardPar};

    switch (iArea) {
        case 1:
            rm::hand_back(rm::plane_return<1>(mc, {rm::kFace13}, Prs_E, D3, rm::LoopForm::Face,
                                              trace),
                          out);
            break;
        case 2:
        case 3:
            rm::hand_back(rm::plane_return<2>(mc, {rm::kFace13, rm::mc_edge_face(iArea)}, Prs_E,
                                              D3, rm::LoopForm::Edge, trace),
                          out);
            break;
        default:
            rm::invalid_area("MC_plast");
    }
}

}  // namespace tervak
