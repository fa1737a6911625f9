// Shear-hardening return mapping: HS_plast (shear surfaces alone),
// HS_TRAC_plast (with the tension cut-off), HS_CAP_plast (with the cap) and
// the silent HS_CAP_plast_it of the calibration.
//
// Every kernel returns the trial triple Prs_E to its active surfaces with
// the common first step and closest-point passes (return_scheme.hpp). Only
// xLam13_hs hardens gamma_p, in every area; the second shear multiplier of an
// edge and the tension multiplier never do. The cap only grows.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "kernels/cap_surface.hpp"
#include "kernels/hs_kernels.hpp"
#include "kernels/hs_surfaces.hpp"
#include "kernels/kernels.hpp"
#include "kernels/return_scheme.hpp"
#include "toolkit/elastic.hpp"
#include "toolkit/records.hpp"

namespace tervak {

namespace {

// The surface that joins the shear surfaces, if any.
enum class Partner { None, Tension, Cap };

constexpr rm::SurfaceLabels kLabel13{"f13_hs", "df13_hsmdS", "dg13_hsmdS", "dxLam13_hs",
                                     "xLam13_hs"};
constexpr rm::SurfaceLabels kLabel12{"f12_hs", "df12_hsmdS", "dg12_hsmdS", "dxLam12_hs",
                                     "xLam12_hs"};
constexpr rm::SurfaceLabels kLabel23{"f23_hs", "df23_hsmdS", "dg23_hsmdS", "dxLam23_hs",
                                     "xLam23_hs"};
constexpr rm::SurfaceLabels kLabelCap{"f_cap", "df_capmdS", "dg_capmdS", "dxLam_cap",
                                      "xLam_cap"};

constexpr rm::SurfaceLabels shear_label(ShearFace fc) {
    if (fc.i == 1 && fc.j == 2) return kLabel12;
    if (fc.i == 2) return kLabel23;
    return kLabel13;
}

// The cap as HS_CAP_plast sees it: no deviator floor, hardening through
// xh_cap at the current mean stress and trial pc.
struct CapPart {
    Props props{nullptr};
    int iModel = 0;
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
    ShearFace face[NShear];
    rm::SurfaceLabels label[N];
    bool trace_qf = false;  // " q > qf " at the diagnostic point
    rm::Trace trace;
    double gamma0 = 0.0;  // gamma_p at the start
    double gamma = 0.0;   // trial gamma_p
    CapPart cap;

    HsSet(const HsParams& params, int iArea, double gamma_p0, bool dbg, const CapPart& cp)
        : hp(params), trace_qf(dbg), gamma0(gamma_p0), gamma(gamma_p0), cap(cp) {
        face[0] = kFace13;
        if constexpr (NShear == 2) face[1] = edge_face(iArea);
        for (int k = 0; k < NShear; ++k) label[k] = shear_label(face[k]);
        if constexpr (X == Partner::Tension) label[N - 1] = rm::kTension3.label;
        if constexpr (X == Partner::Cap) label[N - 1] = kLabelCap;
    }

    void values(const Vec3& P, double (&f)[N]) const {
        for (int k = 0; k < NShear; ++k) f[k] = f_hs(hp, face[k], P, gamma, trace_qf);
        if constexpr (X == Partner::Tension) f[N - 1] = rm::tension_face(P, 3, -hp.T);
        if constexpr (X == Partner::Cap)
            f[N - 1] = f_cap(hs_cap_qt(P, cap.delta), cap_p(P), cap.pc, cap.alpha2);
    }

    void terms(const Vec3& P, const double (&)[N], rm::SurfaceTerms<N>& t) {
        const double spsi = sin_psi_mob(hp, P);
        trace.val("sin_psi_m", spsi);
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
            const double p = cap_p(P);
            t.n[N - 1] = hs_df_capmdS(hs_cap_qt(P, cap.delta), p, cap.delta, cap.alpha2);
            t.m[N - 1] = t.n[N - 1];
            t.H[N - 1] = cap.H;
            cap.xh = xh_cap(cap.iModel, cap.props, p, cap.pc, hp.ccot, hp.h);
            // -2 p_p xh_cap with p_p = -pc: the cap hardening raises the diagonal.
            t.d[N - 1] = 2.0 * cap.pc * cap.xh;
            trace.val("xh_cap", cap.xh);
        }
    }

    void harden(const double (&xLam)[N]) {
        gamma = hs_gamma_trial(gamma0, hp.h, xLam[0]);
        trace.val("gamma_p", gamma);
        if constexpr (X == Partner::Cap) {
            cap.pc = std::max(cap.pc0 + xLam[N - 1] * cap.xh, cap.pc0);
            trace.val("p_p", cap.pc);
        }
    }
};

template <int N>
void record(HsOutcome* out, const rm::ReturnState<N>& s, bool ok) {
    if (out == nullptr) return;
    out->it = s.it;
    out->nLam = N;
    for (int i = 0; i < N; ++i) out->xLam[i] = s.xLam[i];
    out->ok = ok;
}

void copy_bits(double* to, const double* from) { std::memcpy(to, from, sizeof(double)); }

bool at_debug_point(int iEl, int Int, int iElDbg, int IntDbg) {
    return iEl == iElDbg && Int == IntDbg;
}

// HS_TRAC_plast's verdict: a multiplier at or below -1e-12 or more than 100
// passes is a problem (a NaN multiplier is not).
template <int N>
bool trac_ok(const rm::ReturnState<N>& s) {
    for (int i = 0; i < N; ++i)
        if (s.xLam[i] <= -1e-12) return false;
    return !(s.it > 100);
}

// The cap part of HS_CAP_plast for the model's Props layout.
CapPart read_cap_part(Props P, int iModel, const HsParams& hp, double pc0) {
    CapPart cp;
    cp.props = P;
    cp.iModel = iModel;
    cp.delta = cap_delta(hp.sinphi);
    const double alpha = rm::param(P, iModel, rm::Param::alpha);
    cp.alpha2 = alpha * alpha;
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
    rm::Trace trace;
};

enum class Loop { While, Edge };

// The return of one area: the first step, then the loop. With lowMean set,
// a pass that leaves the mean stress below T abandons the return. done(set,
// s, abandoned) receives the surface set and the state reached.
template <int NShear, Partner X, class Done>
void area_return(const ShearCall& k, int iArea, Loop loop, bool lowMean, Done&& done) {
    HsSet<NShear, X> set(k.hp, iArea, k.gamma0, k.dbg, k.cap);
    rm::ReturnState<HsSet<NShear, X>::N> s;
    rm::first_step(set, k.Prs_E, k.D3, s, k.trace);
    bool abandoned = false;
    if (loop == Loop::Edge) {
        rm::edge_loop(set, k.Prs_E, k.D3, s, k.trace);
    } else {
        const double T = k.hp.T;
        const auto low_mean = [&](const rm::ReturnState<HsSet<NShear, X>::N>& st) {
            return lowMean && cap_p(st.Prs) < T;
        };
        abandoned = rm::while_loop(set, k.Prs_E, k.D3, s, k.trace, low_mean);
    }
    done(set, s, abandoned);
}

// Area 1 (face 13 with the partner) runs the while loop; an edge, areas 2
// and 3, the loop given. The caller has checked the area.
template <Partner X, class Done>
void shear_return(const ShearCall& k, int iArea, Loop edgeLoop, bool lowMeanOnEdge,
                  Done&& done) {
    if (iArea == 1)
        area_return<1, X>(k, iArea, Loop::While, false, done);
    else
        area_return<2, X>(k, iArea, edgeLoop, lowMeanOnEdge, done);
}

// HS_plast and HS_TRAC_plast (partner None or Tension): gamma_p never
// decreases, the stored cap value passes through bit for bit, and the
// diagnostic point gets the verdict that verdict_of(s) gives.
template <Partner X, class Verdict>
void shear_kernel(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props_,
                  const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                  const Vec3& Prs_0, const Mat3& D3, double R, int iModel, Loop edgeLoop,
                  Verdict verdict_of, HsOutcome* out) {
    const bool dbg = at_debug_point(iEl, Int, iElDbg, IntDbg);
    const double gamma0 = HardPar_E[0];
    double capValue;
    copy_bits(&capValue, &HardPar_E[1]);
    const HsParams hp = read_hs_params(Props(Props_), iModel, R, Prs_0(3));
    const ShearCall k{hp, gamma0, dbg, CapPart{}, Prs_E, D3, rm::Trace{}};

    double gamma = gamma0;
    bool ok = false;
    shear_return<X>(k, iArea, edgeLoop, false, [&](const auto& set, const auto& s, bool) {
        Prs = s.Prs;
        gamma = set.gamma;
        ok = verdict_of(s);
        record(out, s, ok);
    });
    HardPar[0] = std::max(gamma0, gamma);
    copy_bits(&HardPar[1], &capValue);
    if (dbg) rm::verdict_line(iEl, Int, iElDbg, IntDbg, ok);
}

}  // namespace

// ---------------------------------------------------------------------------

void HS_plast_r(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props_,
                const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                int& iPlast, const Vec3& Prs_0, int /*IsUndr*/, const Mat3& D3, double R,
                int iModel, HsOutcome* out) {
    iPlast = 5;
    if (iArea < 1 || iArea > 3) rm::invalid_area("HS_plast");
    // h on both diagonals of an edge, as for the face itself.
    shear_kernel<Partner::None>(
        iEl, Int, iElDbg, IntDbg, iArea, Props_, Prs_E, Prs, HardPar_E, HardPar, Prs_0, D3, R,
        iModel, Loop::Edge, [](const auto& s) { return rm::return_ok(s); }, out);
}

void HS_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
              const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
              int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R, int iModel) {
    HS_plast_r(iEl, Int, iElDbg, IntDbg, iArea, Props, Prs_E, Prs, HardPar_E, HardPar, iPlast,
               Prs_0, IsUndr, D3, R, iModel, nullptr);
}

// ---------------------------------------------------------------------------

void HS_TRAC_plast_r(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props_,
                     const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                     int& iPlast, const Vec3& Prs_0, int /*IsUndr*/, const Mat3& D3, double R,
                     int iModel, HsOutcome* out) {
    iPlast = 2;
    // An unknown area ends the run without a line on standard output.
    if (iArea < 1 || iArea > 3) stop_run("");
    shear_kernel<Partner::Tension>(
        iEl, Int, iElDbg, IntDbg, iArea, Props_, Prs_E, Prs, HardPar_E, HardPar, Prs_0, D3, R,
        iModel, Loop::While, [](const auto& s) { return trac_ok(s); }, out);
}

void HS_TRAC_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
                   const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                   int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R,
                   int iModel) {
    HS_TRAC_plast_r(iEl, Int, iElDbg, IntDbg, iArea, Props, Prs_E, Prs, HardPar_E, HardPar,
                    iPlast, Prs_0, IsUndr, D3, R, iModel, nullptr);
}

// ---------------------------------------------------------------------------

void HS_CAP_plast_r(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props_,
                    const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                    int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R,
                    int iModel, HsOutcome* out) {
    iPlast = 4;
    // The message names the shear kernel; the host's logs are read with it.
    if (iArea < 1 || iArea > 3) rm::invalid_area("HS_plast");
    const Props P(Props_);
    const bool dbg = at_debug_point(iEl, Int, iElDbg, IntDbg);
    const double gamma0 = HardPar_E[0];
    const double pp0 = HardPar_E[1];
    double start[2];
    copy_bits(&start[0], &HardPar_E[0]);
    copy_bits(&start[1], &HardPar_E[1]);
    const HsParams hp = read_hs_params(P, iModel, R, Prs_0(3));
    const ShearCall k{hp, gamma0, dbg, read_cap_part(P, iModel, hp, -pp0), Prs_E, D3,
                      rm::Trace{}};

    double gamma = gamma0;
    double pc = k.cap.pc0;
    bool ok = false;
    bool abandoned = false;
    const auto done = [&](const auto& set, const auto& s, bool lowMean) {
        abandoned = lowMean;
        if (lowMean) {
            if (out != nullptr) {
                record(out, s, false);
                out->early_exit = true;
            }
            return;
        }
        Prs = s.Prs;
        gamma = set.gamma;
        pc = set.cap.pc;
        ok = rm::return_ok(s);
        record(out, s, ok);
    };
    shear_return<Partner::Cap>(k, iArea, Loop::While, IsUndr == 1, done);
    if (abandoned) {
        // The mean stress fell below T on an edge: the return is abandoned.
        Prs = Prs_E;
        copy_bits(&HardPar[0], &start[0]);
        copy_bits(&HardPar[1], &start[1]);
        return;
    }
    HardPar[0] = std::max(gamma0, gamma);
    HardPar[1] = std::min(-pc, pp0);
    if (dbg) rm::verdict_line(iEl, Int, iElDbg, IntDbg, ok);
}

void HS_CAP_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
                  const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                  int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R,
                  int iModel) {
    HS_CAP_plast_r(iEl, Int, iElDbg, IntDbg, iArea, Props, Prs_E, Prs, HardPar_E, HardPar,
                   iPlast, Prs_0, IsUndr, D3, R, iModel, nullptr);
}

// ---------------------------------------------------------------------------
// The calibration's kernel. It returns like HS_CAP_plast (the calibration
// uses area 2, the triaxial edge P2 = P3), with its own elastic matrix and
// without any output. The calibration carries the cap pressure as a
// positive magnitude; a value stored negative, as the models keep it, is
// accepted too and written back with its sign. iRes = 0 when both shear
// multipliers exceed -1e-06 (in area 1: xLam13_hs and xLam_cap), 1 when a
// negative multiplier was found; the state reached is returned either way.

void HS_CAP_plast_it_r(int iArea, const double* Props_, const Vec3& Prs_E, Vec3& Prs,
                       const double* HardPar_E, double* HardPar, int& iRes, const Vec3& Prs_0,
                       int iModel, HsOutcome* out) {
    // Only models 1 to 3 are calibrated; anything else ends the run silently.
    if (iModel < 1 || iModel > 3) stop_run("");
    if (iArea < 1 || iArea > 3) stop_run("");
    const Props P(Props_);
    // The elastic matrix at the start of the increment, unless its minor
    // stress is too close to zero; then at the trial stresses.
    const Vec3& x = std::fabs(Prs_0(3)) > 0.01 ? Prs_0 : Prs_E;
    Mat3 D3;
    Matriz3(Props_, x.data(), D3.data(), iModel);

    const double gamma0 = HardPar_E[0];
    const double stored = HardPar_E[1];
    const double pc0 = std::fabs(stored);
    const HsParams hp = read_hs_params(P, iModel, 1.0, Prs_0(3));
    const ShearCall k{hp, gamma0, false, read_cap_part(P, iModel, hp, pc0), Prs_E, D3,
                      rm::Trace{}};

    double gamma = gamma0;
    double pc = pc0;
    double lam1 = 0.0, lam2 = 0.0;
    const auto done = [&](const auto& set, const auto& s, bool) {
        Prs = s.Prs;
        gamma = set.gamma;
        pc = set.cap.pc;
        lam1 = s.xLam[0];
        lam2 = s.xLam[1];
        record(out, s, rm::return_ok(s));
    };
    shear_return<Partner::Cap>(k, iArea, Loop::While, false, done);
    HardPar[0] = std::max(gamma0, gamma);
    const double grown = std::max(pc, pc0);
    HardPar[1] = std::signbit(stored) ? -grown : grown;
    if (lam1 > -1e-06 && lam2 > -1e-06) {
        iRes = 0;
        return;
    }
    if (std::isnan(lam2)) stop_run("xLam12_hs is a NaN");
    iRes = 1;
}

void HS_CAP_plast_it(int iArea, const double* Props, const Vec3& Prs_E, Vec3& Prs,
                     const double* HardPar_E, double* HardPar, int& iRes, const Vec3& Prs_0,
                     int iModel) {
    HS_CAP_plast_it_r(iArea, Props, Prs_E, Prs, HardPar_E, HardPar, iRes, Prs_0, iModel, nullptr);
}

}  // namespace tervak
