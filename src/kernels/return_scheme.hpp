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
// The number of passes is the law's; what a pass costs is ours, with every
// result bit kept. So a pass forms nothing twice and nothing that the call
// fixes: D3 H_i is formed once per call (Curvatures), a flat surface (no
// curvature, D3 finite) with a finite multiplier adds nothing to A, and
// when nothing is added A and its inverse are the identity, whose products
// are written out (IterationInverse). The surface sets form their
// call-fixed factors once (HsParams, Dilatancy, the cap curvature). The 3x3
// inversions are matinvpiv's fixed-size elimination, inline, and the
// products, sums and combinations of a pass are unrolled with the NaN that
// each keeps pinned (see pinned:: in toolkit/usrlib.hpp), so that neither
// inlining nor unrolling can change a NaN's sign.
//
// A kernel describes its surfaces with a small "surface set" type and lets
// the driver below run the loop:
//
//   struct MySurfaces {
//       static constexpr int N = 2;                 // active surfaces
//       // values f_i at P with the current (trial) hardening state
//       void values(const Vec3& P, double (&f)[N]);
//       // gradients n_i, flow vectors m_i and the hardening terms d_i on
//       // the diagonal of the multiplier system, at P; xLam are the
//       // multipliers so far (all zero for the first step)
//       void terms(const Vec3& P, const double (&xLam)[N], SurfaceTerms<N>& t);
//       // curvature H_i of surface i, fixed for the call; null when H_i is
//       // zero (plane faces, shear surfaces)
//       const Mat3* curvature(int i) const;
//       // called after every update of the multipliers: advance the trial
//       // hardening variables (gamma_p, pc, ...) so that the next values()
//       // sees them
//       void harden(const double (&xLam)[N]);
//   };
//
//   ReturnState<2> s;                               // zeroed multipliers
//   first_step(set, Prs_E, D3, s);                  // s.Prs, s.f, s.tol
//   run_loop(kEdge, set, Prs_E, D3, s);             // the engine's declared options
//   verdict_line(call, options.ok(s));              // traced point only
//
// first_step / correction_pass and the loops can be used on their own, so a
// kernel with its own quirks (an early exit after the first step or after
// each pass, a loop that updates the stresses differently) keeps the common
// parts and writes only what differs. The loops take an optional callable
// run after every pass; returning true ends the loop at once (the caller
// then decides what the early exit means).
//
// The engine's variants are declared options (EngineOptions): the loop form
// (face, edge or while), the verdict rule, and the pass limit.
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

#include "kernels/kernels.hpp"
#include "toolkit/algebra.hpp"
#include "toolkit/material.hpp"
#include "toolkit/records.hpp"

namespace tervak::rm {

// ---------------------------------------------------------------------------
// Plane faces in principal space.

// Gradient of the Mohr-Coulomb face (i, j) for an angle with sine s; with the
// dilatancy angle it is the flow vector of the face.
inline Vec3 mc_gradient(int i, int j, double s) {
    Vec3 g;
    g(i) = (1.0 - s) / 2.0;
    g(j) = -(1.0 + s) / 2.0;
    return g;
}

// Gradient of the tension cut-off on principal stress k: -e_k.
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
// ---------------------------------------------------------------------------
// Per-surface terms and the state of one return.

template <int N>
struct SurfaceTerms {
    Vec3 n[N];          // yield-function gradients
    Vec3 m[N];          // flow vectors (plastic-potential gradients)
    double d[N] = {};   // hardening terms added to the diagonal of (a_ij)
};

// The products D3 H_i of the call's elastic matrix and the curvatures of the
// potentials. Both are fixed for a whole call, so they are formed once, at
// the first correction pass. A surface without curvature (a plane face, a
// shear surface) is "flat" when D3 is finite as well: D3 H_i is then exactly
// zero and xLam_i (D3 H_i) adds nothing to the iteration matrix while xLam_i
// is finite.
template <int N>
struct Curvatures {
    bool ready = false;
    bool flat[N] = {};
    Mat3 DH[N];
};

template <int N>
struct ReturnState {
    Vec3 Prs;              // the iterate, returned stresses at the end
    double f[N] = {};      // current surface values
    double tol[N] = {};    // |f_trial| 1e-12 + 1e-12
    double xLam[N] = {};   // multipliers
    double dxLam[N] = {};  // last increments
    int it = 0;            // correction passes done
    Curvatures<N> curv;    // D3 H_i of the call
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

// A surface exceeds its tolerance: |f| > tol. A NaN value exceeds nothing.
template <int N>
bool exceeds(const ReturnState<N>& s) {
    for (int i = 0; i < N; ++i)
        if (std::fabs(s.f[i]) > s.tol[i]) return true;
    return false;
}

// ---------------------------------------------------------------------------
// The engine's declared options: the loop form, the verdict rule and the
// pass limit.

enum class LoopForm {
    Face,   // while not converged: a pass, then stop at the limit
    Edge,   // converged? limit reached? then a pass
    While,  // a pass while some |f| > tol and below the limit (a NaN ends it)
};

enum class VerdictRule {
    Strict,   // every multiplier > -1e-12 and the counter short of the limit
    Lenient,  // no multiplier <= -1e-12 (a NaN one passes) and at most limit - 1 passes
};

struct EngineOptions {
    LoopForm loop = LoopForm::Edge;
    VerdictRule verdict = VerdictRule::Strict;
    int maxPasses = 101;

    template <int N>
    bool ok(const ReturnState<N>& s) const {
        if (verdict == VerdictRule::Lenient) {
            for (int i = 0; i < N; ++i)
                if (s.xLam[i] <= -1e-12) return false;
            return !(s.it > maxPasses - 1);
        }
        for (int i = 0; i < N; ++i)
            if (!(s.xLam[i] > -1e-12)) return false;
        return s.it != maxPasses;
    }
};

inline constexpr EngineOptions kFace{LoopForm::Face, VerdictRule::Strict, 101};
inline constexpr EngineOptions kEdge{LoopForm::Edge, VerdictRule::Strict, 101};
inline constexpr EngineOptions kWhile{LoopForm::While, VerdictRule::Strict, 101};

// The verdict line, written at the traced point only.
inline void verdict_line(const KernelCall& k, bool ok) {
    if (k.traced()) say(ok ? "Return Mapping Ok!" : "Numerical problem");
}

// The outcome record of a return.
template <int N>
KernelOutcome outcome(const ReturnState<N>& s, bool ok) {
    KernelOutcome o;
    o.it = s.it;
    o.nLam = N;
    for (int i = 0; i < N; ++i) o.xLam[i] = s.xLam[i];
    o.ok = ok;
    return o;
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
        const Vec3 y = inverse(a) * Vec3{{b[0], b[1], b[2]}};
        x[0] = y(1);
        x[1] = y(2);
        x[2] = y(3);
    }
};

template <int N>
void solve(const Mat3& a, const double (&b)[N], double (&x)[N]) {
    Solve<N>::run(a, b, x);
}

// The vector combinations of a pass, entry by entry, with the NaN each
// operation keeps pinned (see pinned:: in toolkit/usrlib.hpp).
//   c = a + fb b over M entries, two at a time: the product keeps b's NaN,
//   the sum the product's
template <int M>
[[gnu::always_inline]] inline void plus_scaled(const double* a, const double* b, double fb,
                                               double* c) {
    int e = 0;
#if defined(__x86_64__) && defined(__SSE2__)
    const pinned::Pair fb2 = {fb, fb};
#pragma GCC unroll 4
    for (; e + 1 < M; e += 2) {
        const pinned::Pair t = pinned::mul(pinned::Pair{b[e], b[e + 1]}, fb2);
        const pinned::Pair r = pinned::add_term(pinned::Pair{a[e], a[e + 1]}, t);
        c[e] = r[0];
        c[e + 1] = r[1];
    }
#endif
    for (; e < M; ++e) c[e] = pinned::add_term(a[e], pinned::mul(b[e], fb));
}
inline Vec3 plus_scaled(const Vec3& a, const Vec3& b, double fb) {
    Vec3 c;
    plus_scaled<3>(a.v, b.v, fb, c.v);
    return c;
}
inline Mat3 plus_scaled(const Mat3& A, const Mat3& B, double fb) {
    Mat3 C;
    plus_scaled<9>(A.a, B.a, fb, C.a);
    return C;
}
//   fb b - a
inline Vec3 scaled_minus(const Vec3& b, double fb, const Vec3& a) {
    Vec3 c;
#pragma GCC unroll 3
    for (int k = 0; k < 3; ++k) c.v[k] = pinned::mul(b.v[k], fb) - a.v[k];
    return c;
}
//   a + b       a's NaN
inline Vec3 plus(const Vec3& a, const Vec3& b) {
    Vec3 c;
#pragma GCC unroll 3
    for (int k = 0; k < 3; ++k) c.v[k] = pinned::add(a.v[k], b.v[k]);
    return c;
}

// Prs_E - xLam_1 D3m_1 - xLam_2 D3m_2 - ..., one term after another.
template <int N>
Vec3 step_back(const Vec3& Prs_E, const Vec3 (&Dm)[N], const double (&xLam)[N]) {
    Vec3 p = Prs_E;
    for (int i = 0; i < N; ++i) p = plus_scaled(p, Dm[i], -xLam[i]);
    return p;
}

inline bool finite(const Vec3& v) {
    return std::isfinite(v(1)) && std::isfinite(v(2)) && std::isfinite(v(3));
}
inline bool finite(const Mat3& A) {
    for (int i = 0; i < 9; ++i)
        if (!std::isfinite(A.a[i])) return false;
    return true;
}

// D3 H_i for every surface; set.curvature(i) is null for a surface without
// curvature (H_i zero).
template <class Set>
void form_curvatures(const Set& set, const Mat3& D3, Curvatures<Set::N>& c) {
    const bool finiteD3 = finite(D3);
    for (int i = 0; i < Set::N; ++i) {
        const Mat3* H = set.curvature(i);
        c.flat[i] = H == nullptr && finiteD3;
        if (!c.flat[i]) c.DH[i] = D3 * (H != nullptr ? *H : Mat3{});
    }
    c.ready = true;
}

// The inverse of the iteration matrix A = I + xLam_1 (D3 H_1) + ...
//
// Deliberate: A is formed in full even when every H is zero, so a non-finite
// multiplier reaches it. A term of a flat surface with a finite multiplier
// is a signed zero. No entry of A is ever -0: the identity's entries are +0
// and 1, and a sum is -0 only when both of its operands are. So such a term
// leaves A as it is and is not added. When no term is added A is the
// identity, and so is its matinvpiv inverse, exactly: Gauss-Jordan on I
// divides by 1 and subtracts zero multiples.
struct IterationInverse {
    Mat3 Ainv;
    bool identity = true;

    // Ainv v. With Ainv = I and v finite, entry i is 0 + v(i) (the sum's
    // first term; the terms 0 v(k) that follow add a signed zero to a value
    // that is not -0).
    Vec3 operator*(const Vec3& v) const {
        if (identity && finite(v)) return Vec3{{0.0 + v(1), 0.0 + v(2), 0.0 + v(3)}};
        return Ainv * v;
    }
};

template <int N>
[[gnu::always_inline]] inline IterationInverse iteration_inverse(const Curvatures<N>& c,
                                                             const double (&xLam)[N]) {
    IterationInverse r;
    Mat3 A = identity3();
    for (int i = 0; i < N; ++i) {
        if (c.flat[i] && std::isfinite(xLam[i])) continue;
        A = plus_scaled(A, c.DH[i], xLam[i]);
        r.identity = false;
    }
    r.Ainv = r.identity ? A : inverse(A);
    return r;
}

// ---------------------------------------------------------------------------
// The two stages.

// First step at the trial state: trial values and tolerances, the closed-form
// multipliers, Prs, hardening, values at Prs. s.xLam must be zero on entry.
template <class Set>
void first_step(Set& set, const Vec3& Prs_E, const Mat3& D3, ReturnState<Set::N>& s) {
    constexpr int N = Set::N;
    set.values(Prs_E, s.f);
    for (int i = 0; i < N; ++i) s.tol[i] = tolerance(s.f[i]);
    SurfaceTerms<N> t;
    set.terms(Prs_E, s.xLam, t);
    Vec3 Dm[N];
    for (int j = 0; j < N; ++j) Dm[j] = D3 * t.m[j];
    Mat3 a;
    for (int i = 0; i < N; ++i) {
        for (int j = 0; j < N; ++j) a(i + 1, j + 1) = dot(t.n[i], Dm[j]);
        a(i + 1, i + 1) = a(i + 1, i + 1) + t.d[i];
    }
    solve<N>(a, s.f, s.dxLam);
    for (int i = 0; i < N; ++i) s.xLam[i] = s.dxLam[i];
    s.Prs = step_back<N>(Prs_E, Dm, s.xLam);
    set.harden(s.xLam);
    set.values(s.Prs, s.f);
}

// One closest-point pass from the current iterate; counts itself.
template <class Set>
void correction_pass(Set& set, const Vec3& Prs_E, const Mat3& D3, ReturnState<Set::N>& s) {
    constexpr int N = Set::N;
    if (!s.curv.ready) form_curvatures(set, D3, s.curv);
    SurfaceTerms<N> t;
    set.terms(s.Prs, s.xLam, t);
    const IterationInverse Ainv = iteration_inverse<N>(s.curv, s.xLam);
    Vec3 Dm[N], An[N];
    for (int i = 0; i < N; ++i) {
        Dm[i] = D3 * t.m[i];
        An[i] = Ainv * t.n[i];
    }
    Mat3 a;
    for (int i = 0; i < N; ++i) {
        for (int j = 0; j < N; ++j) a(i + 1, j + 1) = dot(Dm[j], An[i]);
        a(i + 1, i + 1) = a(i + 1, i + 1) + t.d[i];
    }
    const Vec3 r = s.Prs - step_back<N>(Prs_E, Dm, s.xLam);
    double b[N];
    for (int i = 0; i < N; ++i) b[i] = s.f[i] - dot(An[i], r);
    solve<N>(a, b, s.dxLam);
    for (int i = 0; i < N; ++i) s.xLam[i] = s.xLam[i] + s.dxLam[i];
    // -r - dxLam_1 D3m_1 - ...
    Vec3 u = scaled_minus(Dm[0], -s.dxLam[0], r);
    for (int i = 1; i < N; ++i) u = plus_scaled(u, Dm[i], -s.dxLam[i]);
    s.Prs = plus(s.Prs, Ainv * u);
    set.harden(s.xLam);
    set.values(s.Prs, s.f);
    s.it = s.it + 1;
}

struct NoHook {
    template <class State>
    constexpr bool operator()(const State&) const {
        return false;
    }
};

// The correction loop of the given options. The hook runs after every pass;
// returning true ends the loop at once, and run_loop returns true.
template <class Set, class Hook = NoHook>
bool run_loop(const EngineOptions& o, Set& set, const Vec3& Prs_E, const Mat3& D3,
              ReturnState<Set::N>& s, Hook&& after_pass = Hook{}) {
    switch (o.loop) {
        case LoopForm::Face:
            while (!converged(s)) {
                correction_pass(set, Prs_E, D3, s);
                if (after_pass(s)) return true;
                if (s.it >= o.maxPasses) break;
            }
            return false;
        case LoopForm::Edge:
            for (;;) {
                if (converged(s)) break;
                if (s.it >= o.maxPasses) break;
                correction_pass(set, Prs_E, D3, s);
                if (after_pass(s)) return true;
            }
            return false;
        case LoopForm::While:
            while (exceeds(s) && s.it < o.maxPasses) {
                correction_pass(set, Prs_E, D3, s);
                if (after_pass(s)) return true;
            }
            return false;
    }
    return false;
}

// ---------------------------------------------------------------------------
// Plane surfaces: Mohr-Coulomb, tension and ordering faces with constant
// gradients, zero curvature and no hardening.

struct PlaneFace {
    enum Kind { MohrCoulomb, Tension, Ordering };
    Kind kind = MohrCoulomb;
    int i = 1, j = 3;  // the Mohr-Coulomb or ordering pair, or i the tension index
};

inline constexpr PlaneFace kFace13{PlaneFace::MohrCoulomb, 1, 3};
inline constexpr PlaneFace kFace12{PlaneFace::MohrCoulomb, 1, 2};
inline constexpr PlaneFace kFace23{PlaneFace::MohrCoulomb, 2, 3};
inline constexpr PlaneFace kTension3{PlaneFace::Tension, 3, 0};
inline constexpr PlaneFace kTension2{PlaneFace::Tension, 2, 0};
inline constexpr PlaneFace kOrdering{PlaneFace::Ordering, 1, 2};

// The second Mohr-Coulomb face of an edge: face 12 on the edge Prs(2) =
// Prs(3) (area 2), face 23 on the edge Prs(1) = Prs(2) (area 3).
constexpr PlaneFace mc_edge_face(int iArea) { return iArea == 2 ? kFace12 : kFace23; }

inline double plane_value(const PlaneFace& fc, const Vec3& P, const HsMaterial& mt) {
    switch (fc.kind) {
        case PlaneFace::MohrCoulomb: return mt.f_mc(P, fc.i, fc.j);
        case PlaneFace::Tension: return mt.f_trac(P, fc.i);
        case PlaneFace::Ordering: return ordering_face(P, fc.i, fc.j);
    }
    return 0.0;
}

// Deliberate: a plane face's flow vector carries a zero-weight hardening
// term, g + (0 xLam) z with z cleared, so a non-finite multiplier turns it
// to NaN as the law is written.
inline Vec3 with_zero_weight_term(const Vec3& g, double xLam) {
    const Vec3 z;
    return comb(g, z, 1.0, zero_weighted(xLam));
}

// Gradient n and flow vector m of a face; the Mohr-Coulomb faces flow with
// the dilatancy angle, the others are associated. xLam is the face's
// multiplier.
inline void plane_terms(const PlaneFace& fc, const HsMaterial& mt, double xLam, Vec3& n,
                        Vec3& m) {
    Vec3 g;
    switch (fc.kind) {
        case PlaneFace::MohrCoulomb:
            n = mc_gradient(fc.i, fc.j, mt.sinphi);
            g = mc_gradient(fc.i, fc.j, mt.sinpsi);
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
    m = with_zero_weight_term(g, xLam);
}

template <int NFaces>
struct PlaneSet {
    static constexpr int N = NFaces;
    const HsMaterial& mt;
    PlaneFace face[N];

    PlaneSet(const HsMaterial& m, const PlaneFace (&faces)[N]) : mt(m) {
        for (int k = 0; k < N; ++k) face[k] = faces[k];
    }

    void values(const Vec3& P, double (&f)[N]) const {
        for (int k = 0; k < N; ++k) f[k] = plane_value(face[k], P, mt);
    }

    void terms(const Vec3&, const double (&xLam)[N], SurfaceTerms<N>& t) const {
        for (int k = 0; k < N; ++k) plane_terms(face[k], mt, xLam[k], t.n[k], t.m[k]);
    }

    void harden(const double (&)[N]) const {}

    static const Mat3* curvature(int) { return nullptr; }
};

// A complete return to plane faces: first step, then the loop of the
// options. Used by MC_plast, TRAC_plast and MC_TRAC_plast.
template <int N>
ReturnState<N> plane_return(const HsMaterial& mt, const PlaneFace (&faces)[N],
                            const KernelCall& k, const EngineOptions& o) {
    PlaneSet<N> set(mt, faces);
    ReturnState<N> s;
    first_step(set, k.Prs_E, k.D3, s);
    run_loop(o, set, k.Prs_E, k.D3, s);
    return s;
}

// Hands a plane return back: the stresses, the cap value passed through
// (the plane faces do not harden), the verdict at the traced point.
template <int N>
KernelOutcome hand_back(const ReturnState<N>& s, const KernelCall& k, Vec3& Prs,
                        double* HardPar) {
    Prs = s.Prs;
    HardPar[1] = k.HardPar_E[1];
    const bool ok = kEdge.ok(s);
    verdict_line(k, ok);
    return outcome(s, ok);
}

}  // namespace tervak::rm
