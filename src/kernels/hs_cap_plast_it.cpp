// HS_CAP_plast_it: the silent shear-hardening-with-cap return of the
// calibration, a Newton closest-point iteration (hs_cap_plast_it.hpp).
#include "kernels/hs_cap_plast_it.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "kernels/kernels.hpp"
#include "toolkit/elastic.hpp"
#include "toolkit/records.hpp"

namespace tervak {

namespace {

constexpr int kMaxPasses = 100;
constexpr int kMaxHalvings = 10;
// The largest relative growth of the cap pressure that the first pass takes
// with the cap hardening.
constexpr double kSmallGrowth = 1e-3;
// Rounding allowance: this many units of the magnitudes that make up a value.
constexpr double kNoise = 16.0 * DBL_EPSILON;

// The layout of the unknowns of an area: Prs(1..3), the shear multipliers
// (xLam13_hs, then the second shear one on an edge), xLam_cap, pc.
template <int A>
struct Layout {
    static constexpr int NS = A == 1 ? 1 : 2;  // shear faces
    static constexpr int NL = NS + 1;          // multipliers
    static constexpr int N = 3 + NL + 1;       // unknowns
    static constexpr int iCap = 3 + NS;        // xLam_cap, and the cap's equation
    static constexpr int iPc = N - 1;          // pc, and the hardening equation
    // Zero-based positions (i, j) of each face: q = P(i) - P(j).
    static constexpr int fi[2] = {kFace13.i - 1, edge_face(A).i - 1};
    static constexpr int fj[2] = {kFace13.j - 1, edge_face(A).j - 1};
};

// What an evaluation of the equations at x leaves for the next pass.
template <int A>
struct Eval {
    using L = Layout<A>;
    double F[L::N];
    double allow[L::N];  // the larger of tolerance and rounding, per equation
    double spsi = 0.0;   // mobilised dilatancy
    Vec3 Dm[L::NS];      // D3 m_k of the shear faces
    Vec3 nCap;           // cap gradient
    Vec3 Dn;             // D3 n_cap
    double p = 0.0;
    double xh = 0.0;     // xh_cap at (p, pc)
};

// Slopes of xh_cap with respect to p and pc: the law is a product of
// max(1, p) and a power of the cap pressure (shifted by c cot phi in the
// bulk-ratio law), so both are xh times a logarithmic slope, zero on the
// floors.
void xh_slopes(const HsMaterial& mt, double p, double pc, double xh, double& dp, double& dpc) {
    dp = p > 1.0 ? xh / p : 0.0;
    if (mt.cap_law == CapLaw::BulkRatio) {
        const double s = mt.ccot + pc;
        dpc = s > 1.0 ? mt.m * xh / s : 0.0;
    } else {
        dpc = pc > 1.0 ? mt.m * xh / pc : 0.0;
    }
}

// The equations of one return of area A and their Newton increments.
template <int A>
struct System {
    using L = Layout<A>;
    static constexpr int N = L::N;
    static constexpr int NS = L::NS;
    static constexpr int NL = L::NL;
    static constexpr int iCap = L::iCap;
    static constexpr int iPc = L::iPc;

    const HsMaterial& mt;
    const HsParams& hp;
    double delta;   // cap: (3 + sin phi) / (3 - sin phi)
    double alpha2;  // cap shape squared
    double invAlpha2;  // its reciprocal, for the rounding allowance of the cap
    const Vec3& Prs_E;
    const Mat3& D3;
    double gamma0;
    double pc0;
    double tol[N];          // the tolerance of each equation
    double fourByEur;       // 4 / Eur, for the rounding of the shear functions
    // xh_cap = max(1, p) K(pc), K(pc) = K0 ((pc + shift) / (pc0 + shift))^m
    // while the floor of the law on pc is not reached: K0 at the start.
    double xhShift = 0.0;   // c cot phi in the bulk-ratio law, 0 otherwise
    double xhK0 = 0.0;      // K(pc0) = xh_cap(1, pc0)
    double xhInvBase = 0.0;  // 1 / (pc0 + shift)
    bool xhSeparable = false;
    Mat3 DH;                // D3 times the cap curvature, once xLam_cap is not zero
    bool haveDH = false;

    System(const HsMaterial& m, const HsParams& h, const Vec3& E, const Mat3& D, double g0,
           double p0)
        : mt(m), hp(h), delta(m.delta()), alpha2(m.alpha * m.alpha), invAlpha2(1.0 / alpha2),
          Prs_E(E), D3(D), gamma0(g0), pc0(p0), fourByEur(4.0 / h.Eur) {
        if (m.cap_law == CapLaw::BulkRatio) xhShift = m.ccot;
        xhSeparable = m.cap_law != CapLaw::None && pc0 + xhShift > 1.0;
        xhK0 = m.xh_cap(1.0, pc0, h.h);
        xhInvBase = 1.0 / (pc0 + xhShift);
    }

    // xh_cap at (p, pc). Near pc0 the power of the pressure ratio 1 + r is
    // its binomial series: for |r| <= 1e-4 the terms left out are below
    // 1e-17 of the value. Elsewhere the law itself.
    double xh_at(double p, double pc) const {
        const double r = (pc - pc0) * xhInvBase;
        if (!xhSeparable || !(std::fabs(r) <= 1e-4) || !(pc + xhShift >= 1.0))
            return mt.xh_cap(p, pc, hp.h);
        const double m = mt.m;
        const double g =
            1.0 + m * r * (1.0 + (m - 1.0) / 2.0 * r *
                                     (1.0 + (m - 2.0) / 3.0 * r * (1.0 + (m - 3.0) / 4.0 * r)));
        return std::max(1.0, p) * (xhK0 * g);
    }

    double gamma_of(const double* x) const { return hs_gamma_trial(gamma0, hp.h, x[3]); }

    // Residual and, for the convergence test, each equation's allowance.
    void residual(const double* x, Eval<A>& e) const {
        const Vec3 P{{x[0], x[1], x[2]}};
        const double gamma = gamma_of(x);
        e.spsi = sin_psi_mob(mt, P);
        e.p = HsMaterial::mean(P);
        const double p = e.p;
        const double qt = HsMaterial::cap_qt(P, delta);
        const double pc = x[iPc];
        const double lamCap = x[iCap];
        double r[3], scale[3];
        #pragma GCC unroll 8
        for (int i = 0; i < 3; ++i) {
            r[i] = P.v[i] - Prs_E.v[i];
            scale[i] = std::fabs(P.v[i]) + std::fabs(Prs_E.v[i]);
        }
        // D3 m_k, m_k = (1 - sin_psi_m)/2 at position i, -(1 + sin_psi_m)/2 at j.
        const double mi = (1.0 - e.spsi) / 2.0;
        const double mj = -(1.0 + e.spsi) / 2.0;
        #pragma GCC unroll 8
        for (int k = 0; k < NS; ++k) {
            const double* Di = D3.a + 3 * L::fi[k];
            const double* Dj = D3.a + 3 * L::fj[k];
            #pragma GCC unroll 8
            for (int i = 0; i < 3; ++i) {
                e.Dm[k].v[i] = Di[i] * mi + Dj[i] * mj;
                const double t = x[3 + k] * e.Dm[k].v[i];
                r[i] = r[i] + t;
                scale[i] += std::fabs(t);
            }
        }
        // Cap gradient 2 c_i qt / alpha^2 + 2 p / 3, c = (1, delta - 1, -delta),
        // with 2 qt / alpha^2 formed once.
        const double g2 = 2.0 * qt / alpha2;
        const double p23 = 2.0 * p / 3.0;
        e.nCap = Vec3{{g2 + p23, (delta - 1.0) * g2 + p23, -delta * g2 + p23}};
        const double* D = D3.a;
        #pragma GCC unroll 8
        for (int i = 0; i < 3; ++i) {
            e.Dn.v[i] = D[i] * e.nCap.v[0] + D[i + 3] * e.nCap.v[1] + D[i + 6] * e.nCap.v[2];
            const double t = lamCap * e.Dn.v[i];
            r[i] = r[i] + t;
            scale[i] += std::fabs(t);
            e.F[i] = r[i];
            e.allow[i] = std::max(tol[i], kNoise * scale[i]);
        }
        #pragma GCC unroll 8
        for (int k = 0; k < NS; ++k) {
            const double q = x[L::fi[k]] - x[L::fj[k]];
            // The shear function (hs_yield, silent), saturated at qf.
            const double f = HsMaterial::hyperbola(hp.qf > q ? q : hp.qf, hp.qa, hp.Ei, hp.Eur, gamma);
            e.F[3 + k] = f;
            e.allow[3 + k] =
                std::max(tol[3 + k], kNoise * (std::fabs(f + gamma) + std::fabs(q) * fourByEur +
                                               std::fabs(gamma)));
        }
        const double qa2 = qt * qt * invAlpha2;
        e.F[iCap] = HsMaterial::f_cap(qt, p, pc, alpha2);
        e.allow[iCap] = std::max(tol[iCap], kNoise * (qa2 + p * p + pc * pc));
        e.xh = xh_at(p, pc);
        e.F[iPc] = pc - std::max(pc0 + lamCap * e.xh, pc0);
        e.allow[iPc] = std::max(tol[iPc], kNoise * (std::fabs(pc) + pc0));
    }

    // The Newton increment d = -J^-1 F at x, with e evaluated at x.
    //
    // J has the layout
    //   stress rows  [ A  B  0 ]   A = I + sum_k xLam_k D3 dm_k/dS + xLam_cap D3 Hcap,
    //   shear rows   [ Ck Ek 0 ]   B = (D3 m_k, D3 n_cap);
    //   cap row      [ n  0 -2pc ]
    //   pc row       [ jp jl t ]   pc - (pc0 + xLam_cap xh_cap(p, pc)) while the cap grows
    // and is solved by eliminating pc from the cap row, then the stresses (A
    // is close to the identity and is the identity while every multiplier
    // is zero), then the NL x NL system of the multipliers with partial
    // pivoting. A singular system gives non-finite increments.
    void increment(const double* x, const Eval<A>& e, int pass, bool grows, double* d) {
        const double lamCap = x[iCap];
        const double pc = x[iPc];

        // Stress block.
        double a[3][3] = {{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}};
        bool identity = true;
        // The turning of the flow vectors is left out of the first two
        // passes: it changes the residual by the multipliers times the
        // change of the dilatancy, which after the first pass is far below
        // what the second pass removes. From the third pass on (large
        // steps, strong turning) it is part of the Newton system.
        bool turning = false;
        if (pass >= 2)
            #pragma GCC unroll 8
            for (int k = 0; k < NS; ++k) turning = turning || x[3 + k] != 0.0;
        if (turning) {
            // The flow vectors turn with the mobilised dilatancy; its slope
            // by differences.
            const Vec3 P{{x[0], x[1], x[2]}};
            double dspsi[3];
            #pragma GCC unroll 8
            for (int j = 0; j < 3; ++j) {
                Vec3 Q = P;
                const double step = 1e-7 * (std::fabs(P.v[j]) + 1.0);
                Q.v[j] = P.v[j] + step;
                dspsi[j] = (sin_psi_mob(mt, Q) - e.spsi) / step;
            }
            #pragma GCC unroll 8
            for (int k = 0; k < NS; ++k) {
                const double lam = x[3 + k];
                if (lam == 0.0) continue;
                // dm/dspsi: -1/2 at both positions of the face.
                const double* Di = D3.a + 3 * L::fi[k];
                const double* Dj = D3.a + 3 * L::fj[k];
                #pragma GCC unroll 8
                for (int i = 0; i < 3; ++i) {
                    const double Ddm = -0.5 * Di[i] - 0.5 * Dj[i];
                    #pragma GCC unroll 8
                    for (int j = 0; j < 3; ++j) a[i][j] += lam * Ddm * dspsi[j];
                }
            }
            identity = false;
        }
        if (lamCap != 0.0) {
            if (!haveDH) {
                // D3 times the cap curvature H = 2 (c c^T / alpha^2 + 1 1^T / 9),
                // c = (1, delta - 1, -delta): 2 (D3 c) c^T / alpha^2 + 2 (D3 1) 1^T / 9.
                const double c[3] = {1.0, delta - 1.0, -delta};
                #pragma GCC unroll 8
                for (int i = 0; i < 3; ++i) {
                    const double* D = D3.a + i;
                    const double dc = 2.0 * (D[0] * c[0] + D[3] * c[1] + D[6] * c[2]) / alpha2;
                    const double d1 = 2.0 * (D[0] + D[3] + D[6]) / 9.0;
                    #pragma GCC unroll 8
                    for (int j = 0; j < 3; ++j) DH.a[i + 3 * j] = dc * c[j] + d1;
                }
                haveDH = true;
            }
            #pragma GCC unroll 8
            for (int i = 0; i < 3; ++i)
                #pragma GCC unroll 8
                for (int j = 0; j < 3; ++j) a[i][j] += lamCap * DH.a[i + 3 * j];
            identity = false;
        }

        // Right-hand side.
        double b[N];
        #pragma GCC unroll 8
        for (int i = 0; i < N; ++i) b[i] = -e.F[i];

        // The pc row, and pc eliminated from the cap row (only it holds pc).
        double jp = 0.0, jl = 0.0, t = 1.0;
        if (grows && e.xh > 0.0) {
            double dxh_dp, dxh_dpc;
            xh_slopes(mt, e.p, pc, e.xh, dxh_dp, dxh_dpc);
            jl = -e.xh;
            jp = -lamCap * dxh_dp / 3.0;
            t = 1.0 - lamCap * dxh_dpc;
        }
        const double it = 1.0 / t;
        const double g = -2.0 * pc * it;
        double Ccap[3];
        #pragma GCC unroll 8
        for (int j = 0; j < 3; ++j) Ccap[j] = e.nCap.v[j] - g * jp;
        const double Ecap = -(g * jl);  // the cap row's xLam_cap entry
        const double bcap = b[iCap] - g * b[iPc];

        // dS = u - V dLam, u = A^-1 bS, V = A^-1 B.
        double u[3], V[3][NL];
        #pragma GCC unroll 8
        for (int i = 0; i < 3; ++i) {
            #pragma GCC unroll 8
            for (int k = 0; k < NS; ++k) V[i][k] = e.Dm[k].v[i];
            V[i][NS] = e.Dn.v[i];
        }
        if (identity) {
            #pragma GCC unroll 8
            for (int i = 0; i < 3; ++i) u[i] = b[i];
        } else {
            // Inverse by cofactors.
            const double c11 = a[1][1] * a[2][2] - a[1][2] * a[2][1];
            const double c12 = a[1][2] * a[2][0] - a[1][0] * a[2][2];
            const double c13 = a[1][0] * a[2][1] - a[1][1] * a[2][0];
            const double det = a[0][0] * c11 + a[0][1] * c12 + a[0][2] * c13;
            const double id = 1.0 / det;
            double Ai[3][3];
            Ai[0][0] = c11 * id;
            Ai[0][1] = (a[0][2] * a[2][1] - a[0][1] * a[2][2]) * id;
            Ai[0][2] = (a[0][1] * a[1][2] - a[0][2] * a[1][1]) * id;
            Ai[1][0] = c12 * id;
            Ai[1][1] = (a[0][0] * a[2][2] - a[0][2] * a[2][0]) * id;
            Ai[1][2] = (a[0][2] * a[1][0] - a[0][0] * a[1][2]) * id;
            Ai[2][0] = c13 * id;
            Ai[2][1] = (a[0][1] * a[2][0] - a[0][0] * a[2][1]) * id;
            Ai[2][2] = (a[0][0] * a[1][1] - a[0][1] * a[1][0]) * id;
            double B[3][NL];
            #pragma GCC unroll 8
            for (int i = 0; i < 3; ++i)
                #pragma GCC unroll 8
                for (int j = 0; j < NL; ++j) B[i][j] = V[i][j];
            #pragma GCC unroll 8
            for (int i = 0; i < 3; ++i) {
                u[i] = Ai[i][0] * b[0] + Ai[i][1] * b[1] + Ai[i][2] * b[2];
                #pragma GCC unroll 8
                for (int j = 0; j < NL; ++j)
                    V[i][j] = Ai[i][0] * B[0][j] + Ai[i][1] * B[1][j] + Ai[i][2] * B[2][j];
            }
        }

        // The multipliers: (E - C V) dLam = bf - C u. A shear row's gradient
        // is a at position i and -a at j; it holds -h in the xLam13_hs
        // column while gamma_p hardens.
        double M[NL][NL], r[NL];
        const double eh = x[3] >= 0.0 ? -hp.h : 0.0;
        #pragma GCC unroll 8
        for (int k = 0; k < NS; ++k) {
            const int i = L::fi[k], j = L::fj[k];
            const double s = hs_slope(hp, x[i] - x[j]);
            r[k] = b[3 + k] - s * (u[i] - u[j]);
            #pragma GCC unroll 8
            for (int l = 0; l < NL; ++l) M[k][l] = -(s * (V[i][l] - V[j][l]));
            M[k][0] += eh;
        }
        r[NS] = bcap - (Ccap[0] * u[0] + Ccap[1] * u[1] + Ccap[2] * u[2]);
        #pragma GCC unroll 8
        for (int l = 0; l < NL; ++l)
            M[NS][l] = -(Ccap[0] * V[0][l] + Ccap[1] * V[1][l] + Ccap[2] * V[2][l]);
        M[NS][NS] += Ecap;
        double inv[NL];  // reciprocals of the pivots
        #pragma GCC unroll 8
        for (int k = 0; k < NL; ++k) {
            int piv = k;
            #pragma GCC unroll 8
            for (int i = k + 1; i < NL; ++i)
                if (std::fabs(M[i][k]) > std::fabs(M[piv][k])) piv = i;
            if (piv != k) {
                #pragma GCC unroll 8
                for (int j = 0; j < NL; ++j) std::swap(M[k][j], M[piv][j]);
                std::swap(r[k], r[piv]);
            }
            inv[k] = 1.0 / M[k][k];
            #pragma GCC unroll 8
            for (int i = k + 1; i < NL; ++i) {
                const double f = M[i][k] * inv[k];
                #pragma GCC unroll 8
                for (int j = k; j < NL; ++j) M[i][j] -= f * M[k][j];
                r[i] -= f * r[k];
            }
        }
        double dl[NL];
        #pragma GCC unroll 8
        for (int i = NL - 1; i >= 0; --i) {
            double sum = r[i];
            #pragma GCC unroll 8
            for (int j = i + 1; j < NL; ++j) sum -= M[i][j] * dl[j];
            dl[i] = sum * inv[i];
        }
        #pragma GCC unroll 8
        for (int i = 0; i < 3; ++i) {
            double ds = u[i];
            #pragma GCC unroll 8
            for (int j = 0; j < NL; ++j) ds -= V[i][j] * dl[j];
            d[i] = ds;
        }
        #pragma GCC unroll 8
        for (int j = 0; j < NL; ++j) d[3 + j] = dl[j];
        d[iPc] = (b[iPc] - (jp * d[0] + jp * d[1] + jp * d[2]) - jl * dl[NS]) * it;
    }
};

// Sum of squares of F in units of the weights (given as reciprocals); and
// whether all are within.
template <int N>
double merit(const double* F, const double* wInv) {
    double s = 0.0;
    #pragma GCC unroll 8
    for (int i = 0; i < N; ++i) {
        const double r = F[i] * wInv[i];
        s += r * r;
    }
    return s;
}

template <int N>
bool within(const double* F, const double* allow) {
    #pragma GCC unroll 8
    for (int i = 0; i < N; ++i)
        if (!(std::fabs(F[i]) <= allow[i])) return false;
    return true;
}

template <int A>
HsCapReturn closest_point(const HsMaterial& mt, const HsParams& hp, const Vec3& Prs_E,
                          const Mat3& D3, double gamma_p0, double pc0) {
    using L = Layout<A>;
    constexpr int n = L::N;
    System<A> sys(mt, hp, Prs_E, D3, gamma_p0, pc0);
    double x[n] = {Prs_E(1), Prs_E(2), Prs_E(3)};
    x[L::iPc] = pc0;

    // Tolerances: the surfaces' own from their trial values; the stresses
    // and the cap pressure relative to their scale.
    const double sE =
        std::max(std::fabs(Prs_E(1)), std::max(std::fabs(Prs_E(2)), std::fabs(Prs_E(3))));
    #pragma GCC unroll 8
    for (int i = 0; i < 3; ++i) sys.tol[i] = 1e-12 * (sE + 1.0);
    #pragma GCC unroll 8
    for (int i = 3; i < n; ++i) sys.tol[i] = 0.0;
    sys.tol[L::iPc] = 1e-12 * (pc0 + 1.0);
    Eval<A> ev[2];
    Eval<A>* e = &ev[0];   // at x
    Eval<A>* et = &ev[1];  // at the state tried
    sys.residual(x, *e);
    #pragma GCC unroll 8
    for (int k = 3; k <= L::iCap; ++k) {
        sys.tol[k] = std::fabs(e->F[k]) * 1e-12 + 1e-12;
        e->allow[k] = std::max(e->allow[k], sys.tol[k]);
    }
    double w[n];
    #pragma GCC unroll 8
    for (int i = 0; i < n; ++i) w[i] = 1.0 / e->allow[i];

    HsCapReturn out;
    out.nLam = L::NL;
    double phi = merit<n>(e->F, w);
    int pass = 0;
    // A trial that is not a number still takes one pass, so that the
    // multipliers say so.
    while (!within<n>(e->F, e->allow) && pass < kMaxPasses && (pass == 0 || std::isfinite(phi))) {
        double d[n];
        // The cap grows while xLam_cap * xh_cap > 0. From the trial state
        // (xLam_cap = 0) the first pass lets it grow when that is a small
        // step: no multiplier comes out negative and pc grows by less than
        // kSmallGrowth of itself. Otherwise (a trial far outside) the first
        // pass holds the cap pressure, the return by the cap alone, and the
        // growth comes in the passes after it.
        const double lamCap = x[L::iCap];
        sys.increment(x, *e, pass, lamCap > 0.0 || (lamCap == 0.0 && pass == 0), d);
        if (pass == 0 && lamCap == 0.0) {
            bool small = std::fabs(d[L::iPc]) <= kSmallGrowth * x[L::iPc];
            #pragma GCC unroll 4
            for (int k = 3; k < L::iPc; ++k) small = small && x[k] + d[k] >= 0.0;
            if (!small) sys.increment(x, *e, pass, false, d);
        }
        // A singular system at a state that is a number ends the search
        // there; a trial that is not a number passes its NaNs on.
        double zero = 0.0;  // not a number when an increment is not finite
        #pragma GCC unroll 8
        for (int i = 0; i < n; ++i) zero += d[i] * 0.0;
        const bool finite = zero == 0.0;
        if (!finite && std::isfinite(phi)) break;
        ++pass;
        double t = 1.0;
        double xt[n];
        bool taken = false;
        for (int h = 0; h <= kMaxHalvings; ++h, t *= 0.5) {
            #pragma GCC unroll 8
            for (int i = 0; i < n; ++i) xt[i] = x[i] + t * d[i];
            sys.residual(xt, *et);
            const double phit = merit<n>(et->F, w);
            if (phit < phi || within<n>(et->F, et->allow) || !std::isfinite(phit)) {
                phi = phit;
                taken = true;
                break;
            }
        }
        if (!taken) break;  // at the rounding floor: nothing left to gain
        #pragma GCC unroll 8
        for (int i = 0; i < n; ++i) x[i] = xt[i];
        std::swap(e, et);
    }
    out.converged = within<n>(e->F, e->allow);
    out.passes = pass;
    out.Prs = Vec3{{x[0], x[1], x[2]}};
    #pragma GCC unroll 8
    for (int k = 0; k < L::NL; ++k) out.xLam[k] = x[3 + k];
    out.gamma_p = sys.gamma_of(x);
    out.pc = x[L::iPc];
    return out;
}

}  // namespace

HsCapReturn hs_cap_closest_point(const HsMaterial& mt, const HsParams& hp, int iArea,
                                 const Vec3& Prs_E, const Mat3& D3, double gamma_p0, double pc0) {
    switch (iArea) {
        case 1: return closest_point<1>(mt, hp, Prs_E, D3, gamma_p0, pc0);
        case 3: return closest_point<3>(mt, hp, Prs_E, D3, gamma_p0, pc0);
        default: return closest_point<2>(mt, hp, Prs_E, D3, gamma_p0, pc0);
    }
}

// ---------------------------------------------------------------------------
// The calibration's kernel, with its own elastic matrix and without any
// output, on the cap pressure as the calibration carries it (a positive
// magnitude; a value stored negative, as the models keep it, is accepted too
// and written back with its sign). iRes = 0 when the first two multipliers
// exceed -1e-06 (xLam13_hs and the second shear one on an edge, xLam13_hs
// and xLam_cap in area 1), 1 when one of them is negative; the state reached
// is returned either way.

KernelOutcome HS_CAP_plast_it(const KernelCall& k, const HsMaterial& mt, const KernelOut& out) {
    if (k.iArea < 1 || k.iArea > 3) stop_run("");
    return HS_CAP_plast_it(k, mt, out, hs_params(mt, 1.0, k.Prs_0(3)));
}

KernelOutcome HS_CAP_plast_it(const KernelCall& k, const HsMaterial& mt, const KernelOut& out,
                              const HsParams& hp) {
    if (k.iArea < 1 || k.iArea > 3) stop_run("");
    // The elastic matrix at the start of the increment, unless its minor
    // stress is too close to zero; then at the trial stresses. At the start
    // stresses it is the matrix of the call's own stiffness Eur.
    Mat3 D3;
    if (std::fabs(k.Prs_0(3)) > 0.01)
        Matriz3_of(mt, hp.Eur, D3.data());
    else
        Matriz3(mt, k.Prs_E.data(), D3.data());

    const double gamma0 = k.HardPar_E[0];
    const double stored = k.HardPar_E[1];
    const double pc0 = std::fabs(stored);

    const HsCapReturn r = hs_cap_closest_point(mt, hp, k.iArea, k.Prs_E, D3, gamma0, pc0);
    out.Prs = r.Prs;
    out.HardPar[0] = std::max(gamma0, r.gamma_p);
    const double grown = std::max(r.pc, pc0);
    out.HardPar[1] = std::signbit(stored) ? -grown : grown;
    KernelOutcome o;
    o.it = r.passes;
    o.nLam = r.nLam;
    o.ok = r.converged;
    for (int i = 0; i < r.nLam; ++i) {
        o.xLam[i] = r.xLam[i];
        o.ok = o.ok && r.xLam[i] > -1e-12;
    }
    o.pc = r.pc;
    const double lam1 = r.xLam[0];
    const double lam2 = r.xLam[1];
    if (lam1 > -1e-06 && lam2 > -1e-06) {
        out.iPlast = 0;
        return o;
    }
    if (std::isnan(lam2)) stop_run("xLam12_hs is a NaN");
    out.iPlast = 1;
    return o;
}

}  // namespace tervak
