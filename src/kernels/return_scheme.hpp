// The return-mapping scheme shared by every kernel.
//
// A kernel returns a trial principal triple Prs_E (compression positive,
// Prs_E(1) >= Prs_E(2) >= Prs_E(3)) to N active surfaces at once (N = 1, 2
// or 3) in two stages:
//
//   first step   one closed-form solve of the linearised multiplier system
//                at the trial state: a_ij = n_i . (D3 m_j) (+ a hardening
//                term on the diagonal), Cramer's rule for two surfaces, the
//                matinvpiv inverse of (a_ij) times (f_1, f_2, f_3) for three;
//                Prs = Prs_E - xLam_1 D3 m_1 - xLam_2 D3 m_2 - ...
//   correction   closest-point passes while a surface lies outside its
//                tolerance |f_trial| 1e-12 + 1e-12, at most 101 of them:
//                A = I + sum xLam_i (D3 H_i), inverted with matinvpiv even
//                when every H_i is zero; residual r = Prs - (Prs_E - sum
//                xLam_i D3 m_i); a_ij = (D3 m_j) . (Ainv n_i); right-hand
//                sides f_i - (Ainv n_i) . r; increments solved as in the
//                first step; Prs += Ainv (-r - sum dxLam_i D3 m_i).
//
// A kernel describes its surfaces with a small "surface set" type and lets
// the driver below run the loop:
//
//   struct MySurfaces {
//       static constexpr int N = 2;                 // active surfaces
//       SurfaceLabels label[N];                     // trace names
//       // values f_i at P with the current (trial) hardening state
//       void values(const Vec3& P, double (&f)[N]);
//       // gradients n_i, flow vectors m_i, curvatures H_i and the hardening
//       // terms d_i on the diagonal of the multiplier system, at P; xLam are
//       // the multipliers so far (all zero for the first step)
//       void terms(const Vec3& P, const double (&xLam)[N], SurfaceTerms<N>& t);
//       // called after every update of the multipliers: advance the trial
//       // hardening variables (gamma_p, pc, ...) so that the next values()
//       // sees them
//       void harden(const double (&xLam)[N]);
//   };
//
//   ReturnState<2> s;                               // zeroed multipliers
//   first_step(set, Prs_E, D3, s, trace);           // s.Prs, s.f, s.tol
//   edge_loop(set, Prs_E, D3, s, trace);            // or face_loop, while_loop
//   verdict(iEl, Int, iElDbg, IntDbg, s);           // traced point only
//
// first_step / correction_pass and the loops can be used on their
// own, so a kernel with its own quirks (an early exit after the first step
// or after each pass, a loop that updates the stresses differently) keeps
// the common parts and writes only what differs. The loops take an optional
// callable run after every pass; returning true ends the loop at once (the
// caller then decides what the early exit means).
//
// The arithmetic is the library's own, one rounding per operation: sums start
// from zero in ascending index (matmat, dinprod), vector combinations are
// applied one addvec-style term after another, D3 times the unscaled vector
// first and then the multiplier. Iterates near yield at high stress run on
// rounding noise, so the order below decides the verdict lines there.
//
// Everything lives on the stack; nothing here allocates or keeps state.
#pragma once

#include <cmath>
#include <string_view>

#include "kernels/param_layout.hpp"
#include "toolkit/records.hpp"
#include "toolkit/types.hpp"
#include "toolkit/usrlib.hpp"
#include "toolkit/writers.hpp"

namespace tervak::rm {

// ---------------------------------------------------------------------------
// Small algebra in the library's order of operations.

// matmat with nCol = 1: y(i) = sum_k A(i,k) x(k), from zero, k ascending.
inline Vec3 mul(const Mat3& A, const Vec3& x) {
    Vec3 y;
    for (int i = 1; i <= 3; ++i) {
        double s = 0.0;
        for (int k = 1; k <= 3; ++k) s = s + A(i, k) * x(k);
        y(i) = s;
    }
    return y;
}

// matmat of two 3x3 matrices.
inline Mat3 mul(const Mat3& A, const Mat3& B) {
    Mat3 C;
    for (int j = 1; j <= 3; ++j)
        for (int i = 1; i <= 3; ++i) {
            double s = 0.0;
            for (int k = 1; k <= 3; ++k) s = s + A(i, k) * B(k, j);
            C(i, j) = s;
        }
    return C;
}

// dinprod: sum a(i) b(i) from zero.
inline double dot(const Vec3& a, const Vec3& b) {
    double s = 0.0;
    for (int i = 1; i <= 3; ++i) s = s + a(i) * b(i);
    return s;
}

// addvec: fa a + fb b, element by element.
inline Vec3 comb(const Vec3& a, const Vec3& b, double fa, double fb) {
    Vec3 c;
    for (int i = 0; i < 3; ++i) c.v[i] = fa * a.v[i] + fb * b.v[i];
    return c;
}
inline Mat3 comb(const Mat3& a, const Mat3& b, double fa, double fb) {
    Mat3 c;
    for (int i = 0; i < 9; ++i) c.a[i] = fa * a.a[i] + fb * b.a[i];
    return c;
}

inline Mat3 identity() {
    Mat3 I;
    I(1, 1) = 1.0;
    I(2, 2) = 1.0;
    I(3, 3) = 1.0;
    return I;
}

// matinvpiv on a 3x3 matrix.
inline Mat3 inverse(const Mat3& A) {
    Mat3 Ainv;
    matinvpiv(A.data(), Ainv.data(), 3);
    return Ainv;
}

// ---------------------------------------------------------------------------
// The Mohr-Coulomb and tension constants of the plane kernels.
struct MohrCoulomb {
    double c = 0.0;
    double phi = 0.0;  // radians
    double psi = 0.0;  // radians
    double st = 0.0;   // tensile limit: minus the tensile strength
    double sin_phi = 0.0;
    double cos_phi = 0.0;
    double sin_psi = 0.0;
    double c_cos_phi = 0.0;
};

// Reads c, phi, psi and the tensile limit for the model number and takes
// sin phi, cos phi, sin psi and c cos phi once.
inline MohrCoulomb read_mohr_coulomb(Props P, int iModel) {
    MohrCoulomb mc;
    mc.c = param(P, iModel, Param::c);
    mc.phi = radians(param(P, iModel, Param::phi));
    mc.psi = radians(param(P, iModel, Param::psi));
    mc.st = -param(P, iModel, Param::T);
    mc.sin_phi = std::sin(mc.phi);
    mc.cos_phi = std::cos(mc.phi);
    mc.sin_psi = std::sin(mc.psi);
    mc.c_cos_phi = mc.c * mc.cos_phi;
    return mc;
}

// ---------------------------------------------------------------------------
// Plane faces in principal space.

// Mohr-Coulomb face on the pair (i, j), i the more compressive stress:
// (si - sj)/2 - (si + sj)/2 sin(phi) - c cos(phi).
inline double mc_face(const Vec3& P, int i, int j, double sin_phi, double c_cos_phi) {
    return (P(i) - P(j)) / 2.0 - (P(i) + P(j)) / 2.0 * sin_phi - c_cos_phi;
}

// Gradient of the Mohr-Coulomb face (i, j) for an angle with sine s; with the
// dilatancy angle it is the flow vector of the face.
inline Vec3 mc_gradient(int i, int j, double s) {
    Vec3 g;
    g(i) = (1.0 - s) / 2.0;
    g(j) = -(1.0 + s) / 2.0;
    return g;
}

// Tension cut-off on principal stress k: st - P(k), gradient -e_k.
inline double tension_face(const Vec3& P, int k, double st) { return st - P(k); }
inline Vec3 tension_gradient(int k) {
    Vec3 g;
    g(k) = -1.0;
    return g;
}

// An ordering face P(j) - P(i), i < j, gradient -1 at i and +1 at j: keeps
// P(j) from passing P(i).
inline double ordering_face(const Vec3& P, int i, int j) { return P(j) - P(i); }
inline Vec3 ordering_gradient(int i, int j) {
    Vec3 g;
    g(i) = -1.0;
    g(j) = 1.0;
    return g;
}

// ---------------------------------------------------------------------------
// Trace switch. The writers are kept in place with a unit held at -1; a unit
// of 1 or more turns the kernel's trace on.

struct Trace {
    int unit = -1;
    void val(std::string_view label, double x) const {
        if (unit >= 1) wrival(unit, label, x);
    }
    void ival(std::string_view label, int k) const {
        if (unit >= 1) wriivl(unit, label, k);
    }
    void vec(std::string_view label, const Vec3& v) const {
        if (unit >= 1) wrivec(unit, label, v.data(), 3);
    }
    void mat(std::string_view label, const Mat3& A) const {
        if (unit >= 1) wrimat(unit, label, A.data(), 3, 3, 3);
    }
};

// Names under which a surface's quantities are traced.
struct SurfaceLabels {
    std::string_view f;      // "f13_mc"
    std::string_view df;     // "df13_mcmdS"
    std::string_view dg;     // "dg13_mcmdS"
    std::string_view dxLam;  // "dxLam13_mc"
    std::string_view xLam;   // "xLam13_mc"
};

// ---------------------------------------------------------------------------
// Per-surface terms and the state of one return.

template <int N>
struct SurfaceTerms {
    Vec3 n[N];          // yield-function gradients
    Vec3 m[N];          // flow vectors (plastic-potential gradients)
    Mat3 H[N];          // curvature of the potentials (zero for planes)
    double d[N] = {};   // hardening terms added to the diagonal of (a_ij)
};

inline constexpr int kMaxPasses = 101;

template <int N>
struct ReturnState {
    Vec3 Prs;              // the iterate, returned stresses at the end
    double f[N] = {};      // current surface values
    double tol[N] = {};    // |f_trial| 1e-12 + 1e-12
    double xLam[N] = {};   // multipliers
    double dxLam[N] = {};  // last increments
    int it = 0;            // correction passes done
};

inline double tolerance(double f_trial) { return std::fabs(f_trial) * 1e-12 + 1e-12; }

// Converged when every active surface lies within its tolerance; a NaN
// never converges.
template <int N>
bool converged(const ReturnState<N>& s) {
    for (int i = 0; i < N; ++i)
        if (!(std::fabs(s.f[i]) <= s.tol[i])) return false;
    return true;
}

// Verdict: every multiplier > -1e-12 and the counter short of 101.
template <int N>
bool return_ok(const ReturnState<N>& s) {
    for (int i = 0; i < N; ++i)
        if (!(s.xLam[i] > -1e-12)) return false;
    return s.it != kMaxPasses;
}

// The verdict line, written at the traced point only.
inline void verdict_line(int iEl, int Int, int iElDbg, int IntDbg, bool ok) {
    if (iEl == iElDbg && Int == IntDbg) say(ok ? "Return Mapping Ok!" : "Numerical problem");
}
template <int N>
void verdict(int iEl, int Int, int iElDbg, int IntDbg, const ReturnState<N>& s) {
    verdict_line(iEl, Int, iElDbg, IntDbg, return_ok(s));
}

// An area the kernel does not know: " incorrect iArea in <kernel>" on
// standard output, then the program stops.
[[noreturn]] void invalid_area(std::string_view kernel);

// ---------------------------------------------------------------------------
// Linear solves of the multiplier system. (a_ij) is held with row i the
// surface whose value is b_i.

template <int N>
struct Solve;

template <>
struct Solve<1> {
    static void run(const Mat3& a, const double (&b)[1], double (&x)[1]) { x[0] = b[0] / a(1, 1); }
};

// Cramer's rule, no test of the determinant.
template <>
struct Solve<2> {
    static void run(const Mat3& a, const double (&b)[2], double (&x)[2]) {
        const double det = a(1, 1) * a(2, 2) - a(1, 2) * a(2, 1);
        x[0] = (a(2, 2) * b[0] - a(1, 2) * b[1]) / det;
        x[1] = (a(1, 1) * b[1] - a(2, 1) * b[0]) / det;
    }
};

// The matinvpiv inverse of the full 3x3 matrix times the right-hand side.
template <>
struct Solve<3> {
    static void run(const Mat3& a, const double (&b)[3], double (&x)[3]) {
        const Mat3 ainv = inverse(a);
        const Vec3 y = mul(ainv, Vec3{{b[0], b[1], b[2]}});
        x[0] = y(1);
        x[1] = y(2);
        x[2] = y(3);
    }
};

template <int N>
void solve(const Mat3& a, const double (&b)[N], double (&x)[N]) {
    Solve<N>::run(a, b, x);
}

// Prs_E - xLam_1 D3m_1 - xLam_2 D3m_2 - ..., one term after another.
template <int N>
Vec3 step_back(const Vec3& Prs_E, const Vec3 (&Dm)[N], const double (&xLam)[N]) {
    Vec3 p = Prs_E;
    for (int i = 0; i < N; ++i) p = comb(p, Dm[i], 1.0, -xLam[i]);
    return p;
}

// The iteration matrix I + xLam_1 (D3 H_1) + xLam_2 (D3 H_2) + ..., formed in
// full even when every H is zero.
template <int N>
Mat3 iteration_matrix(const Mat3& D3, const SurfaceTerms<N>& t, const double (&xLam)[N]) {
    Mat3 A = identity();
    for (int i = 0; i < N; ++i) A = comb(A, mul(D3, t.H[i]), 1.0, xLam[i]);
    return A;
}

// ---------------------------------------------------------------------------
// The two stages.

inline constexpr std::string_view kPrsFirst = "Prs en primera iteración";
inline constexpr std::string_view kPrsFirstPass = "Prs durante primera iteración";
inline constexpr std::string_view kPrsPass = "Prs durante iteración";

// First step at the trial state: trial values and tolerances, the closed-form
// multipliers, Prs, hardening, values at Prs. s.xLam must be zero on entry.
template <class Set>
void first_step(Set& set, const Vec3& Prs_E, const Mat3& D3, ReturnState<Set::N>& s,
                const Trace& trace) {
    constexpr int N = Set::N;
    set.values(Prs_E, s.f);
    for (int i = 0; i < N; ++i) {
        s.tol[i] = tolerance(s.f[i]);
        trace.val(set.label[i].f, s.f[i]);
    }
    SurfaceTerms<N> t;
    set.terms(Prs_E, s.xLam, t);
    Vec3 Dm[N];
    for (int j = 0; j < N; ++j) Dm[j] = mul(D3, t.m[j]);
    Mat3 a;
    for (int i = 0; i < N; ++i) {
        trace.vec(set.label[i].df, t.n[i]);
        trace.vec(set.label[i].dg, t.m[i]);
        for (int j = 0; j < N; ++j) a(i + 1, j + 1) = dot(t.n[i], Dm[j]);
        a(i + 1, i + 1) = a(i + 1, i + 1) + t.d[i];
    }
    solve<N>(a, s.f, s.dxLam);
    for (int i = 0; i < N; ++i) {
        s.xLam[i] = s.dxLam[i];
        trace.val(set.label[i].dxLam, s.dxLam[i]);
    }
    s.Prs = step_back<N>(Prs_E, Dm, s.xLam);
    trace.vec(kPrsFirst, s.Prs);
    set.harden(s.xLam);
    set.values(s.Prs, s.f);
    for (int i = 0; i < N; ++i) trace.val(set.label[i].f, s.f[i]);
}

// One closest-point pass from the current iterate; counts itself.
template <class Set>
void correction_pass(Set& set, const Vec3& Prs_E, const Mat3& D3, ReturnState<Set::N>& s,
                     const Trace& trace) {
    constexpr int N = Set::N;
    SurfaceTerms<N> t;
    set.terms(s.Prs, s.xLam, t);
    const Mat3 A = iteration_matrix<N>(D3, t, s.xLam);
    const Mat3 Ainv = inverse(A);
    Vec3 Dm[N], An[N];
    for (int i = 0; i < N; ++i) {
        Dm[i] = mul(D3, t.m[i]);
        An[i] = mul(Ainv, t.n[i]);
        trace.vec(set.label[i].df, t.n[i]);
        trace.vec(set.label[i].dg, t.m[i]);
    }
    Mat3 a;
    for (int i = 0; i < N; ++i) {
        for (int j = 0; j < N; ++j) a(i + 1, j + 1) = dot(Dm[j], An[i]);
        a(i + 1, i + 1) = a(i + 1, i + 1) + t.d[i];
    }
    const Vec3 r = comb(s.Prs, step_back<N>(Prs_E, Dm, s.xLam), 1.0, -1.0);
    double b[N];
    for (int i = 0; i < N; ++i) b[i] = s.f[i] - dot(An[i], r);
    solve<N>(a, b, s.dxLam);
    for (int i = 0; i < N; ++i) {
        s.xLam[i] = s.xLam[i] + s.dxLam[i];
        trace.val(set.label[i].dxLam, s.dxLam[i]);
        trace.val(set.label[i].xLam, s.xLam[i]);
    }
    Vec3 u = comb(r, Dm[0], -1.0, -s.dxLam[0]);
    for (int i = 1; i < N; ++i) u = comb(u, Dm[i], 1.0, -s.dxLam[i]);
    s.Prs = comb(s.Prs, mul(Ainv, u), 1.0, 1.0);
    trace.vec(s.it == 0 ? kPrsFirstPass : kPrsPass, s.Prs);
    set.harden(s.xLam);
    set.values(s.Prs, s.f);
    s.it = s.it + 1;
    for (int i = 0; i < N; ++i) trace.val(set.label[i].f, s.f[i]);
    trace.ival("it", s.it);
}

struct NoHook {
    template <class State>
    constexpr bool operator()(const State&) const {
        return false;
    }
};

// Face loop: while not converged, do a pass and count it; stop when the
// counter reaches 101. Returns true when the after-pass hook ended it.
template <class Set, class Hook = NoHook>
bool face_loop(Set& set, const Vec3& Prs_E, const Mat3& D3, ReturnState<Set::N>& s,
               const Trace& trace, Hook&& after_pass = Hook{}) {
    while (!converged(s)) {
        correction_pass(set, Prs_E, D3, s, trace);
        if (after_pass(s)) return true;
        if (s.it >= kMaxPasses) break;
    }
    return false;
}

// Edge loop: test convergence, then the counter, then do a pass and count it.
template <class Set, class Hook = NoHook>
bool edge_loop(Set& set, const Vec3& Prs_E, const Mat3& D3, ReturnState<Set::N>& s,
               const Trace& trace, Hook&& after_pass = Hook{}) {
    for (;;) {
        if (converged(s)) break;
        if (s.it >= kMaxPasses) break;
        correction_pass(set, Prs_E, D3, s, trace);
        if (after_pass(s)) return true;
    }
    return false;
}

// A surface exceeds its tolerance: |f| > tol. A NaN value exceeds nothing.
template <int N>
bool exceeds(const ReturnState<N>& s) {
    for (int i = 0; i < N; ++i)
        if (std::fabs(s.f[i]) > s.tol[i]) return true;
    return false;
}

// While loop: a pass while some surface exceeds its tolerance and fewer than
// 101 passes were made (a NaN value ends the loop, where the face and edge
// loops go on).
template <class Set, class Hook = NoHook>
bool while_loop(Set& set, const Vec3& Prs_E, const Mat3& D3, ReturnState<Set::N>& s,
                const Trace& trace, Hook&& after_pass = Hook{}) {
    while (exceeds(s) && s.it < kMaxPasses) {
        correction_pass(set, Prs_E, D3, s, trace);
        if (after_pass(s)) return true;
    }
    return false;
}

// ---------------------------------------------------------------------------
// Plane surfaces: Mohr-Coulomb, tension and ordering faces with constant
// gradients, zero curvature and no hardening. In each pass the flow vector
// is m + (0 xLam) z with z cleared, a zero-weight hardening term.

struct PlaneFace {
    enum Kind { MohrCoulomb, Tension, Ordering };
    Kind kind = MohrCoulomb;
    int i = 1, j = 3;  // the Mohr-Coulomb or ordering pair, or i the tension index
    SurfaceLabels label;
};

inline constexpr PlaneFace kFace13{PlaneFace::MohrCoulomb, 1, 3,
                                   {"f13_mc", "df13_mcmdS", "dg13_mcmdS", "dxLam13_mc",
                                    "xLam13_mc"}};
inline constexpr PlaneFace kFace12{PlaneFace::MohrCoulomb, 1, 2,
                                   {"f12_mc", "df12_mcmdS", "dg12_mcmdS", "dxLam12_mc",
                                    "xLam12_mc"}};
inline constexpr PlaneFace kFace23{PlaneFace::MohrCoulomb, 2, 3,
                                   {"f23_mc", "df23_mcmdS", "dg23_mcmdS", "dxLam23_mc",
                                    "xLam23_mc"}};
inline constexpr PlaneFace kTension3{PlaneFace::Tension, 3, 0,
                                     {"f3_trac", "df3_tracmdS", "dg3_tracmdS", "dxLam3_trac",
                                      "xLam3_trac"}};
inline constexpr PlaneFace kTension2{PlaneFace::Tension, 2, 0,
                                     {"f2_trac", "df2_tracmdS", "dg2_tracmdS", "dxLam2_trac",
                                      "xLam2_trac"}};
inline constexpr PlaneFace kOrdering{PlaneFace::Ordering, 1, 2,
                                     {"f12_trac", "df12_tracmdS", "dg12_tracmdS",
                                      "dxLam12_trac", "xLam12_trac"}};

// The second Mohr-Coulomb face of an edge: face 12 on the edge Prs(2) =
// Prs(3) (area 2), face 23 on the edge Prs(1) = Prs(2) (area 3).
constexpr PlaneFace mc_edge_face(int iArea) { return iArea == 2 ? kFace12 : kFace23; }

inline double plane_value(const PlaneFace& fc, const Vec3& P, const MohrCoulomb& mc) {
    switch (fc.kind) {
        case PlaneFace::MohrCoulomb: return mc_face(P, fc.i, fc.j, mc.sin_phi, mc.c_cos_phi);
        case PlaneFace::Tension: return tension_face(P, fc.i, mc.st);
        case PlaneFace::Ordering: return ordering_face(P, fc.i, fc.j);
    }
    return 0.0;
}

// Gradient n and flow vector m of a face; the Mohr-Coulomb faces flow with
// the dilatancy angle, the others are associated. xLam is the face's
// multiplier (the weight of the zero hardening term).
inline void plane_terms(const PlaneFace& fc, const MohrCoulomb& mc, double xLam, Vec3& n,
                        Vec3& m) {
    const Vec3 z;
    Vec3 g;
    switch (fc.kind) {
        case PlaneFace::MohrCoulomb:
            n = mc_gradient(fc.i, fc.j, mc.sin_phi);
            g = mc_gradient(fc.i, fc.j, mc.sin_psi);
            break;
        case PlaneFace::Tension:
            n = tension_gradient(fc.i);
            g = n;
            break;
        case PlaneFace::Ordering:
            n = ordering_gradient(fc.i, fc.j);
            g = n;
            break;
    }
    m = comb(g, z, 1.0, 0.0 * xLam);
}

template <int NFaces>
struct PlaneSet {
    static constexpr int N = NFaces;
    MohrCoulomb mc;
    PlaneFace face[N];
    SurfaceLabels label[N];

    PlaneSet(const MohrCoulomb& m, const PlaneFace (&faces)[N]) : mc(m) {
        for (int k = 0; k < N; ++k) {
            face[k] = faces[k];
            label[k] = faces[k].label;
        }
    }

    void values(const Vec3& P, double (&f)[N]) const {
        for (int k = 0; k < N; ++k) f[k] = plane_value(face[k], P, mc);
    }

    void terms(const Vec3&, const double (&xLam)[N], SurfaceTerms<N>& t) const {
        for (int k = 0; k < N; ++k) plane_terms(face[k], mc, xLam[k], t.n[k], t.m[k]);
    }

    void harden(const double (&)[N]) const {}
};

enum class LoopForm { Face, Edge };

// A complete return to plane faces: first step, then the loop of the given
// form. Used by MC_plast, TRAC_plast and MC_TRAC_plast.
template <int N>
ReturnState<N> plane_return(const MohrCoulomb& mc, const PlaneFace (&faces)[N],
                            const Vec3& Prs_E, const Mat3& D3, LoopForm form,
                            const Trace& trace) {
    PlaneSet<N> set(mc, faces);
    ReturnState<N> s;
    first_step(set, Prs_E, D3, s, trace);
    if (form == LoopForm::Face)
        face_loop(set, Prs_E, D3, s, trace);
    else
        edge_loop(set, Prs_E, D3, s, trace);
    return s;
}

// The outputs of a plane kernel's call.
struct PlaneOutput {
    int iEl, Int, iElDbg, IntDbg;  // the point and the traced point
    Vec3& Prs;
    const double* HardPar_E;
    double* HardPar;
};

// Hands a plane return back: the stresses, the cap value passed through
// (the plane faces do not harden), the verdict at the traced point.
template <int N>
void hand_back(const ReturnState<N>& s, const PlaneOutput& out) {
    out.Prs = s.Prs;
    out.HardPar[1] = out.HardPar_E[1];
    verdict(out.iEl, out.Int, out.iElDbg, out.IntDbg, s);
}

}  // namespace tervak::rm
