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

#include "kernels/cap_kernels.hpp"
#include "kernels/cap_return.hpp"
#include "kernels/cap_surface.hpp"
#include "kernels/kernels.hpp"
#include "kernels/return_scheme.hpp"

namespace tervak {

namespace {

// The low-mean-stress exit after the first step.
bool low_mean_stress(int IsUndr, const Vec3& Prs, double T) {
    return IsUndr == 1 && cap_p(Prs) < T;
}

void give_back(const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
               CapOutcome* out) {
    const double h1 = HardPar_E[0];
    const double h2 = HardPar_E[1];
    Prs = Prs_E;
    HardPar[0] = h1;
    HardPar[1] = h2;
    if (out != nullptr) {
        *out = CapOutcome{};
        out->early_exit = true;
    }
}

// One area: first step, early exit test, loop, outputs, verdict. The cap
// alone (area 1) runs the while loop, an edge the edge loop.
template <int N>
void cap_area(capret::CapSet<N>& set, int iEl, int Int, int iElDbg, int IntDbg,
              const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
              int IsUndr, const Mat3& D3, const rm::Trace& trace, CapOutcome* out) {
    rm::ReturnState<N> s;
    rm::first_step(set, Prs_E, D3, s, trace);
    trace.vec("Prs after first iteration", s.Prs);
    if (low_mean_stress(IsUndr, s.Prs, set.cp.T)) {
        give_back(Prs_E, Prs, HardPar_E, HardPar, out);
        return;
    }
    if constexpr (N == 1)
        rm::while_loop(set, Prs_E, D3, s, trace);
    else
        rm::edge_loop(set, Prs_E, D3, s, trace);
    trace.vec("Prs during iteration", s.Prs);
    const double h1 = HardPar_E[0];
    const double h2 = HardPar_E[1];
    Prs = s.Prs;
    HardPar[0] = h1;
    HardPar[1] = std::min(-set.pc, h2);
    const bool ok = rm::return_ok(s);
    capret::record(out, s, set.pc, ok);
    rm::verdict_line(iEl, Int, iElDbg, IntDbg, ok);
}

}  // namespace

void CAP_plast_r(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props_,
                 const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                 int& iPlast, const Vec3& /*Prs_0*/, int IsUndr, const Mat3& D3, double R,
                 int iModel, CapOutcome* out) {
    const rm::Trace trace;
    iPlast = 3;
    const Props P(Props_);
    const CapParams cp = read_cap_params(P, iModel, R);
    const rm::MohrCoulomb noMc;
    const double pc_E = -HardPar_E[1];

    switch (iArea) {
        case 1: {
            capret::CapSet<1> set(P, cp, noMc, pc_E, 0, nullptr, trace);
            cap_area(set, iEl, Int, iElDbg, IntDbg, Prs_E, Prs, HardPar_E, HardPar, IsUndr, D3,
                     trace, out);
            break;
        }
        case 2:
        case 3: {
            const rm::PlaneFace faces[1] = {iArea == 2 ? capret::kOrder32 : capret::kOrder21};
            capret::CapSet<2> set(P, cp, noMc, pc_E, 0, faces, trace);
            cap_area(set, iEl, Int, iElDbg, IntDbg, Prs_E, Prs, HardPar_E, HardPar, IsUndr, D3,
                     trace, out);
            break;
        }
        default:
            rm::invalid_area("CAP_plast");
    }
}

void CAP_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props_,
               const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
               int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R, int iModel) {
    CAP_plast_r(iEl, Int, iElDbg, IntDbg, iArea, Props_, Prs_E, Prs, HardPar_E, HardPar, iPlast,
                Prs_0, IsUndr, D3, R, iModel, nullptr);
}

}  // namespace tervak
