// Return to the Mohr-Coulomb face 13 and the cap together, hardening the
// cap (docs/mc_cap_return.md states the equations):
//
//   area 1  f13_mc and f_cap                     2x2 system, Cramer's rule
//   area 2  f13_mc, f12_mc and f_cap (P2 = P3)   3x3 system, matinvpiv
//   area 3  f13_mc, f23_mc and f_cap (P1 = P2)   3x3 system, matinvpiv
//
// The Mohr-Coulomb faces are perfectly plastic with the dilatancy angle in
// their flow vectors; the cap is associated, curved, and hardens with
// xh_cap, the factor argument playing the part of R in the hardening factor.
// Every area runs the edge loop of the plane kernels. gamma_p (HardPar(1))
// is left as the caller set it; the cap only grows.
#include <algorithm>

#include "kernels/cap_kernels.hpp"
#include "kernels/cap_return.hpp"
#include "kernels/cap_surface.hpp"
#include "kernels/kernels.hpp"
#include "kernels/return_scheme.hpp"

namespace tervak {

namespace {

template <int N>
void mc_cap_area(const rm::PlaneFace (&faces)[N - 1], Props P, const CapParams& cp,
                 const rm::MohrCoulomb& mc, int iEl, int Int, int iElDbg, int IntDbg,
                 const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                 const Mat3& D3, const rm::Trace& trace, CapOutcome* out) {
    const double h2 = HardPar_E[1];
    capret::CapSet<N> set(P, cp, mc, -h2, N - 1, faces, trace);
    rm::ReturnState<N> s;
    rm::first_step(set, Prs_E, D3, s, trace);
    rm::edge_loop(set, Prs_E, D3, s, trace);
    Prs = s.Prs;
    HardPar[1] = std::min(-set.pc, h2);
    const bool ok = rm::return_ok(s);
    // A fresh record: multipliers past the area's count read zero.
    if (out != nullptr) *out = CapOutcome{};
    capret::record(out, s, set.pc, ok);
    rm::verdict_line(iEl, Int, iElDbg, IntDbg, ok);
}

}  // namespace

void MC_CAP_plast_r(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props_,
                    const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                    int& iPlast, const Vec3& /*Prs_0*/, const Mat3& D3, double factor, int iModel,
                    CapOutcome* out) {
    const rm::Trace trace;
    iPlast = 1;
    const Props P(Props_);
    const rm::MohrCoulomb mc = rm::read_mohr_coulomb(P, iModel);
    const CapParams cp = read_cap_params(P, iModel, factor);

    switch (iArea) {
        case 1: {
            const rm::PlaneFace faces[1] = {rm::kFace13};
            mc_cap_area<2>(faces, P, cp, mc, iEl, Int, iElDbg, IntDbg, Prs_E, Prs, HardPar_E,
                           HardPar, D3, trace, out);
            break;
        }
        case 2:
        case 3: {
            const rm::PlaneFace faces[2] = {rm::kFace13, rm::mc_edge_face(iArea)};
            mc_cap_area<3>(faces, P, cp, mc, iEl, Int, iElDbg, IntDbg, Prs_E, Prs, HardPar_E,
                           HardPar, D3, trace, out);
            break;
        }
        default:
            rm::invalid_area("MC_CAP_plast");
    }
}

void MC_CAP_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props_,
                  const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                  int& iPlast, const Vec3& Prs_0, const Mat3& D3, double factor, int iModel) {
    MC_CAP_plast_r(iEl, Int, iElDbg, IntDbg, iArea, Props_, Prs_E, Prs, HardPar_E, HardPar,
                   iPlast, Prs_0, D3, factor, iModel, nullptr);
}

}  // namespace tervak
