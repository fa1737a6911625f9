// Return to the tension cut-off -T - Prs(3): the cut-off alone (area 1), the
// edge Prs(2) = Prs(3) = -T (area 2), and the cut-off with Prs(1) = Prs(2)
// forced by the ordering face (area 3).
#include "kernels/kernels.hpp"
#include "kernels/return_scheme.hpp"

namespace tervak {

namespace {

// Deliberate: the cut-off has no hardening, and the correction of area 1
// divides the multiplier update by the product of its two zero terms (the
// hardening derivative and the modulus). Should rounding leave the first
// step outside the tolerance, the return ends in non-finite stresses.
double zero_cut_off_hardening() {
    const double df3_tracmdqc = 0.0;
    const double xh_trac = 0.0;
    return df3_tracmdqc * xh_trac;
}

// Area 1. The first step lands on the plane; the face loop's passes update
// the stresses from the trial state with the multiplier alone.
rm::ReturnState<1> cut_off_return(const HsMaterial& mt, const KernelCall& k) {
    rm::PlaneSet<1> set(mt, {rm::kTension3});
    rm::ReturnState<1> s;
    rm::first_step(set, k.Prs_E, k.D3, s);
    while (!rm::converged(s)) {
        if (!s.curv.ready) rm::form_curvatures(set, k.D3, s.curv);
        rm::SurfaceTerms<1> t;
        set.terms(s.Prs, s.xLam, t);
        const rm::IterationInverse Ainv = rm::iteration_inverse<1>(s.curv, s.xLam);
        const Vec3 Dm[1] = {k.D3 * t.m[0]};
        const Vec3 An = Ainv * t.n[0];
        const Vec3 r = s.Prs - rm::step_back<1>(k.Prs_E, Dm, s.xLam);
        s.dxLam[0] = (s.f[0] - dot(An, r)) / zero_cut_off_hardening();
        s.xLam[0] = s.xLam[0] + s.dxLam[0];
        s.Prs = rm::step_back<1>(k.Prs_E, Dm, s.xLam);
        set.values(s.Prs, s.f);
        s.it = s.it + 1;
        if (s.it >= rm::kFace.maxPasses) break;
    }
    return s;
}

}  // namespace

KernelOutcome TRAC_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out) {
    out.iPlast = 2;
    switch (k.iArea) {
        case 1:
            return rm::hand_back(cut_off_return(mt, k), k, out.Prs, out.HardPar);
        case 2:
            return rm::hand_back(
                rm::plane_return<2>(mt, {rm::kTension3, rm::kTension2}, k, rm::kEdge), k, out.Prs,
                out.HardPar);
        case 3:
            return rm::hand_back(
                rm::plane_return<2>(mt, {rm::kTension3, rm::kOrdering}, k, rm::kEdge), k, out.Prs,
                out.HardPar);
        default:
            rm::invalid_area("TRAC_plast");
    }
}

}  // namespace tervak
