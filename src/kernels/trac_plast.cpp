// Return to the tension cut-off st - Prs(3): the cut-off alone (area 1), the
// edge Prs(2) = Prs(3) = st (area 2), and the cut-off with Prs(1) = Prs(2)
// forced by the ordering face (area 3).
#include "kernels/kernels.hpp"
#include "kernels/return_scheme.hpp"

namespace tervak {

namespace {

// Area 1. The first step lands on the plane; should rounding leave it outside
// the tolerance, the correction divides the multiplier update by the product
// of two zero terms (the hardening derivative of the cut-off and its modulus)
// and the return ends in non-finite stresses: kept so on purpose.
rm::ReturnState<1> cut_off_return(const rm::MohrCoulomb& mc, const Vec3& Prs_E, const Mat3& D3,
                                  const rm::Trace& trace) {
    rm::PlaneSet<1> set(mc, {rm::kTension3});
    rm::ReturnState<1> s;
    rm::first_step(set, Prs_E, D3, s, trace);
    const double df3_tracmdqc = 0.0;
    const double xh_trac = 0.0;
    trace.val("df3_tracmdqc", df3_tracmdqc);
    while (!rm::converged(s)) {
        rm::SurfaceTerms<1> t;
        set.terms(s.Prs, s.xLam, t);
        const Mat3 Ainv = rm::inverse(rm::iteration_matrix<1>(D3, t, s.xLam));
        const Vec3 Dm[1] = {rm::mul(D3, t.m[0])};
        const Vec3 An = rm::mul(Ainv, t.n[0]);
        const Vec3 r = rm::comb(s.Prs, rm::step_back<1>(Prs_E, Dm, s.xLam), 1.0, -1.0);
        s.dxLam[0] = (s.f[0] - rm::dot(An, r)) / (df3_tracmdqc * xh_trac);
        s.xLam[0] = s.xLam[0] + s.dxLam[0];
        trace.val(set.label[0].dxLam, s.dxLam[0]);
        trace.val(set.label[0].xLam, s.xLam[0]);
        s.Prs = rm::step_back<1>(Prs_E, Dm, s.xLam);
        trace.vec(rm::kPrsPass, s.Prs);
        set.values(s.Prs, s.f);
        s.it = s.it + 1;
        trace.ival("it", s.it);
        if (s.it >= rm::kMaxPasses) break;
    }
    return s;
}

}  // namespace

void TRAC_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props_,
                const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                int& iPlast, const Vec3& /*Prs_0*/, const Mat3& D3, int iModel) {
    const rm::Trace trace;
    iPlast = 2;
    const rm::MohrCoulomb mc = rm::read_mohr_coulomb(Props(Props_), iModel);
    const rm::PlaneOutput out{iEl, Int, iElDbg, IntDbg, Prs, HardPar_E, HardPar};

    switch (iArea) {
        case 1:
            rm::hand_back(cut_off_return(mc, Prs_E, D3, trace), out);
            break;
        case 2:
            rm::hand_back(rm::plane_return<2>(mc, {rm::kTension3, rm::kTension2}, Prs_E, D3,
                                              rm::LoopForm::Edge, trace),
                          out);
            break;
        case 3:
            rm::hand_back(rm::plane_return<2>(mc, {rm::kTension3, rm::kOrdering}, Prs_E, D3,
                                              rm::LoopForm::Edge, trace),
                          out);
            break;
        default:
            rm::invalid_area("TRAC_plast");
    }
}

}  // namespace tervak
