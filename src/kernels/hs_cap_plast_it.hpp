// The calibration's shear-hardening-with-cap return, HS_CAP_plast_it, and
// the closest-point solver behind it.
//
// The solver returns a trial triple to the shear surfaces of an area (f13_hs
// alone in area 1, f13_hs with f12_hs in area 2, with f23_hs in area 3) and
// the cap at once, by Newton's method on the full set of equations:
//
//   Prs - Prs_E + sum_k xLam_k D3 m_k(Prs) + xLam_cap D3 n_cap(Prs) = 0
//   f_k(Prs, gamma_p) = 0 for each shear face,   f_cap(Prs, pc) = 0
//   pc - max(pc0 + xLam_cap xh_cap(p, pc), pc0) = 0
//
// with gamma_p = max(gamma_p0 + h xLam13_hs, gamma_p0) and m_k the shear
// flow vectors at the mobilised dilatancy of Prs. Its first pass from the
// trial state is the closed-form first step of the cap kernels, with the
// cap hardening through xh_cap when that is a small step (no negative
// multiplier, pc growing by less than 0.1 %) and with pc held otherwise; the
// following ones carry the curvature of the cap and the dependence of xh_cap
// on p and pc, and from the third pass on the turning of the flow vectors
// with the dilatancy, so a small step closes in two passes. A pass is
// shortened (halved, at most ten times) when it would not reduce the
// residual, measured in units of each equation's tolerance.
//
// Converged: every surface within |f_trial| 1e-12 + 1e-12, the stresses and
// the cap pressure within 1e-12 of their scale; where rounding in the
// evaluation of a function is larger than that (the cap at high stress for a
// barely violated trial), within a few units of that rounding instead. At
// most 100 passes; a pass that cannot reduce the residual ends the search at
// the state reached.
//
// Everything is on the stack; nothing is printed.
#pragma once

#include "kernels/hs_surfaces.hpp"
#include "kernels/kernels.hpp"
#include "toolkit/material.hpp"
#include "toolkit/types.hpp"

namespace tervak {

struct HsCapReturn {
    Vec3 Prs;                 // returned triple
    double gamma_p = 0.0;     // trial gamma_p (not yet held against the start value)
    double pc = 0.0;          // trial cap pressure (positive)
    int nLam = 0;             // multipliers of the area
    double xLam[3] = {};      // xLam13_hs, the second shear one (areas 2, 3), xLam_cap last
    int passes = 0;           // Newton passes after the trial state
    bool converged = false;   // every equation within its tolerance
};

// The closest point of area iArea (1 to 3) for the material, the call's
// strength and stiffness hp (fixed from the start of the step), the trial
// triple Prs_E, the start hardening pair (gamma_p0, pc0 > 0) and the
// principal elastic matrix.
HsCapReturn hs_cap_closest_point(const HsMaterial& mt, const HsParams& hp, int iArea,
                                 const Vec3& Prs_E, const Mat3& D3, double gamma_p0, double pc0);

// HS_CAP_plast_it with the call's strength and stiffness already fixed:
// hp = hs_params(mt, 1.0, k.Prs_0(3)), as the calibration has it from the
// elastic matrix of its increment.
KernelOutcome HS_CAP_plast_it(const KernelCall& k, const HsMaterial& mt, const KernelOut& out,
                              const HsParams& hp);

}  // namespace tervak
