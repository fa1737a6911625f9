// Shear-hardening return mapping: HS_plast (shear surfaces alone),
// HS_TRAC_plast (with the tension cut-off) and HS_CAP_plast (with the cap).
// The calibration's HS_CAP_plast_it has its own file.
//
// Every kernel returns the trial triple Prs_E to its active surfaces with
// the common first step and closest-point passes (return_scheme.hpp). Only
// xLam13_hs hardens gamma_p, in every area; the second shear multiplier of an
// edge and the tension multiplier never do. The cap only grows.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "kernels/cap_surface.hpp"
#include "kernels/hs_surfaces.hpp"
#include "kernels/kernels.hpp"
#include "kernels/return_scheme.hpp"
#include "toolkit/elastic.hpp"
#include "toolkit/records.hpp"

namespace tervak {

namespace {

// The surface that joins the shear surfaces, if any.
enum class Partner { None, Tension, Cap };

// The cap as HS_CAP_plast sees it: no deviator floor, hardening through
// xh_cap at the current mean stress and trial pc.
struct CapPart {
    double delta = 0.0;
    double alpha2 = 0.0;
    double pc0 = 0.0;  // start value of the cap pressure (positive)
    double pc = 0.0;   // trial value
    double xh = 0.0;   // xh_cap of the latest gradient evaluation
    Mat3 H;            // curvature, constant for the call
};

// Shear face 13 and, on an edge (NShear = 2), the area's second face, with
// an optional partner. Surface order: the shear faces, then the partner.
template <int NShear, Partner X>
struct HsSet {
    static constexpr int N = NShear + (X == Partner::None ? 0 : 1);
    HsParams hp;
    Dilatancy dil;
    ShearFace face[NShear];
    bool trace_qf = false;  // " q > qf " at the diagnostic point
    double gamma0 = 0.0;  // gamma_p at the start
    double gamma = 0.0;   // trial gamma_p
    CapPart cap;

    HsSet(const HsParams& params, int iArea, double gamma_p0, bool dbg, const CapPart& cp)
        : hp(params), dil(*params.mt), trace_qf(dbg), gamma0(gamma_p0), gamma(gamma_p0), cap(cp) {
        face[0] = kFace13;
        if constexpr (NShear == 2) face[1] = edge_face(iArea);
    }

    void values(const Vec3& P, double (&f)[N]) const {
        for (int k = 0; k < NShear; ++k) f[k] = f_hs(hp, face[k], P, gamma, trace_qf);
        if constexpr (X == Partner::Tension) f[N - 1] = hp.mt->f_trac(P, 3);
        if constexpr (X == Partner::Cap)
            f[N - 1] = HsMaterial::f_cap(HsMaterial::cap_qt(P, cap.delta), HsMaterial::mean(P),
                                         cap.pc, cap.alpha2);
    }

    [[gnu::always_inline]] void terms(const Vec3& P, const double (&)[N], rm::SurfaceTerms<N>& t) {
        const double spsi = dil.sin_psi_mob(P);
        for (int k = 0; k < NShear; ++k) {
            t.n[k] = df_hsmdS(hp, face[k], P);
            t.m[k] = dg_hsmdS(face[k], spsi);
            t.d[k] = hp.h;
        }
        if constexpr (X == Partner::Tension) {
            t.n[N - 1] = rm::tension_gradient(3);
            t.m[N - 1] = t.n[N - 1];
        }
        if constexpr (X == Partner::Cap) {
            const double p = HsMaterial::mean(P);
            t.n[N - 1] = hs_df_capmdS(HsMaterial::cap_qt(P, cap.delta), p, cap.delta, cap.alpha2);
            t.m[N - 1] = t.n[N - 1];
            cap.xh = hp.mt->xh_cap(p, cap.pc, hp.h);
            // -2 p_p xh_cap with p_p = -pc: the cap hardening raises the diagonal.
            t.d[N - 1] = 2.0 * cap.pc * cap.xh;
        }
    }

    const Mat3* curvature(int i) const {
        return X == Partner::Cap && i == N - 1 ? &cap.H : nullptr;
    }

    void harden(const double (&xLam)[N]) {
        gamma = hs_gamma_trial(gamma0, hp.h, xLam[0]);
        if constexpr (X == Partner::Cap) cap.pc = std::max(cap.pc0 + xLam[N - 1] * cap.xh, cap.pc0);
    }
};

// Deliberate: a value passed through bit for bit (a NaN keeps its payload).
void copy_bits(double* to, const double* from) { std::memcpy(to, from, sizeof(double)); }

// HS_TRAC_plast's verdict: a multiplier at or below -1e-12 or more than 100
// passes is a problem (a NaN multiplier is not).
constexpr rm::EngineOptions kTracVerdict{rm::LoopForm::While, rm::VerdictRule::Lenient, 101};

// The cap part of HS_CAP_plast.
CapPart cap_part(const HsMaterial& mt, double pc0) {
    CapPart cp;
    cp.delta = mt.delta();
    cp.alpha2 = mt.alpha * mt.alpha;
    cp.pc0 = pc0;
    cp.pc = pc0;
    cp.H = cap_curvature(cp.delta, cp.alpha2);
    return cp;
}

// What the areas of one kernel call share.
struct ShearCall {
    const HsParams& hp;
    double gamma0;  // gamma_p at the start
    bool dbg;       // the diagnostic point
    CapPart cap;    // the cap partner's data (cap kernels only)
    const Vec3& Prs_E;
    const Mat3& D3;
};

// The return of one area: the first step, then the loop of the options.
// With lowMean set, a pass that leaves the mean stress below T abandons the
// return. done(set, s, abandoned) receives the surface set and the state
// reached.
template <int NShear, Partner X, class Done>
void area_return(const ShearCall& k, int iArea, const rm::EngineOptions& o, bool lowMean,
                 Done&& done) {
    HsSet<NShear, X> set(k.hp, iArea, k.gamma0, k.dbg, k.cap);
    rm::ReturnState<HsSet<NShear, X>::N> s;
    rm::first_step(set, k.Prs_E, k.D3, s);
    const double T = k.hp.mt->T;
    const auto low_mean = [&](const rm::ReturnState<HsSet<NShear, X>::N>& st) {
        return lowMean && HsMaterial::mean(st.Prs) < T;
    };
    const bool abandoned = rm::run_loop(o, set, k.Prs_E, k.D3, s, low_mean);
    done(set, s, abandoned);
}

// Area 1 (face 13 with the partner) runs the while loop; an edge, areas 2
// and 3, the loop given. The caller has checked the area.
template <Partner X, class Done>
void shear_return(const ShearCall& k, int iArea, const rm::EngineOptions& edge,
                  bool lowMeanOnEdge, Done&& done) {
    if (iArea == 1)
        area_return<1, X>(k, iArea, rm::kWhile, false, done);
    else
        area_return<2, X>(k, iArea, edge, lowMeanOnEdge, done);
}

// HS_plast and HS_TRAC_plast (partner None or Tension): gamma_p never
// decreases, the stored cap value passes through bit for bit, and the
// diagnostic point gets the verdict of the options' rule.
template <Partner X>
KernelOutcome shear_kernel(const KernelCall& k, const HsMaterial& mt, const KernelOut& out,
                           const rm::EngineOptions& edge, const rm::EngineOptions& verdict) {
    const bool dbg = k.traced();
    const double gamma0 = k.HardPar_E[0];
    double capValue;
    copy_bits(&capValue, &k.HardPar_E[1]);
    const HsParams hp = hs_params(mt, k.R, k.Prs_0(3));
    const ShearCall c{hp, gamma0, dbg, CapPart{}, k.Prs_E, k.D3};

    double gamma = gamma0;
    KernelOutcome r;
    shear_return<X>(c, k.iArea, edge, false, [&](const auto& set, const auto& s, bool) {
        out.Prs = s.Prs;
        gamma = set.gamma;
        r = rm::outcome(s, verdict.ok(s));
    });
    out.HardPar[0] = std::max(gamma0, gamma);
    copy_bits(&out.HardPar[1], &capValue);
    if (dbg) rm::verdict_line(k, r.ok);
    return r;
}

}  // namespace

// ---------------------------------------------------------------------------

KernelOutcome HS_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out) {
    out.iPlast = 5;
    if (k.iArea < 1 || k.iArea > 3) rm::invalid_area("HS_plast");
    // h on both diagonals of an edge, as for the face itself.
    return shear_kernel<Partner::None>(k, mt, out, rm::kEdge, rm::kEdge);
}

KernelOutcome HS_TRAC_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out) {
    out.iPlast = 2;
    // An unknown area ends the run without a line on standard output.
    if (k.iArea < 1 || k.iArea > 3) stop_run("");
    return shear_kernel<Partner::Tension>(k, mt, out, rm::kWhile, kTracVerdict);
}

// ---------------------------------------------------------------------------

KernelOutcome HS_CAP_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out) {
    out.iPlast = 4;
    // The message names the shear kernel; the host's logs are read with it.
    if (k.iArea < 1 || k.iArea > 3) rm::invalid_area("HS_plast");
    const bool dbg = k.traced();
    const double gamma0 = k.HardPar_E[0];
    const double pp0 = k.HardPar_E[1];
    double start[2];
    copy_bits(&start[0], &k.HardPar_E[0]);
    copy_bits(&start[1], &k.HardPar_E[1]);
    const HsParams hp = hs_params(mt, k.R, k.Prs_0(3));
    const ShearCall c{hp, gamma0, dbg, cap_part(mt, -pp0), k.Prs_E, k.D3};

    double gamma = gamma0;
    double pc = c.cap.pc0;
    KernelOutcome r;
    bool abandoned = false;
    shear_return<Partner::Cap>(c, k.iArea, rm::kWhile, k.IsUndr == 1,
                               [&](const auto& set, const auto& s, bool lowMean) {
                                   abandoned = lowMean;
                                   r = rm::outcome(s, !lowMean && rm::kWhile.ok(s));
                                   r.early_exit = lowMean;
                                   if (lowMean) return;
                                   out.Prs = s.Prs;
                                   gamma = set.gamma;
                                   pc = set.cap.pc;
                               });
    if (abandoned) {
        // The mean stress fell below T on an edge: the return is abandoned.
        out.Prs = k.Prs_E;
        copy_bits(&out.HardPar[0], &start[0]);
        copy_bits(&out.HardPar[1], &start[1]);
        return r;
    }
    out.HardPar[0] = std::max(gamma0, gamma);
    out.HardPar[1] = std::min(-pc, pp0);
    if (dbg) rm::verdict_line(k, r.ok);
    return r;
}

}  // namespace tervak
