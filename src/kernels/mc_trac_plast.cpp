// Return to the Mohr-Coulomb surface and the tension cut-off together: face
// 13 with the cut-off (area 1), and the corners of faces 13 and 12 (area 2)
// or 13 and 23 (area 3) with the cut-off, three multipliers at once.
#include "kernels/kernels.hpp"
#include "kernels/return_scheme.hpp"

namespace tervak {

void MC_TRAC_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props_,
                   const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                   int& iPlast, const Vec3& /*Prs_0*/, const Mat3& D3, int iModel) {
    const rm::Trace trace;
    iPlast = 1;
    const rm::MohrCoulomb mc = rm::read_mohr_coulomb(Props(Props_), iModel);
    const rm::PlaneOutput out{iEl, Int, iElDbg, IntDbg, Prs, HardPar_E, HardPar};

    switch (iArea) {
        case 1:
            rm::hand_back(rm::plane_return<2>(mc, {rm::kFace13, rm::kTension3}, Prs_E, D3,
                                              rm::LoopForm::Edge, trace),
                          out);
            break;
        case 2:
        case 3:
            rm::hand_back(
                rm::plane_return<3>(mc, {rm::kFace13, rm::mc_edge_face(iArea), rm::kTension3},
                                    Prs_E, D3, rm::LoopForm::Edge, trace),
                out);
            break;
        default:
            rm::invalid_area("MC_TRAC_plast");
    }
}

}  // namespace tervak
