// HS_CAP_plast_it: the silent shear-hardening-with-cap return of the
// calibration, a Newton closest-point iteration (hs_cap_plast_it.hpp).
#include "kernels/hs_cap_plast_it.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "kernels/cap_surface.hpp"
#include "kernels/kernels.hpp"
#include "toolkit/elastic.hpp"
#include "toolkit/records.hpp"

namespace tervak {

namespace {

constexpr int kMaxUnknowns = 7;  // three stresses, three multipliers, pc
constexpr int kMaxPasses = 100;
constexpr int kMaxHalvings = 10;
// Rounding allowance: this many units of the magnitudes that make up a value.
constexpr double kNoise = 16.0 * DBL_EPSILON;

inline Vec3 mul(const Mat3& A, const Vec3& x) {
    Vec3 y;
    for (int i = 1; i <= 3; ++i) y(i) = A(i, 1) * x(1) + A(i, 2) * x(2) + A(i, 3) * x(3);
    return y;
}

// What an evaluation of the equations at x leaves for the derivatives.
struct Eval {
    double F[kMaxUnknowns];
    double allow[kMaxUnknowns];  // the larger of tolerance and rounding, per equation
    double spsi = 0.0;           // mobilised dilatancy
    Vec3 Dm[2];                  // D3 m_k of the shear faces
    Vec3 nCap;                   // cap gradient
    Vec3 Dn;                     // D3 n_cap
    double p = 0.0;
    double xh = 0.0;             // xh_cap at (p, pc)
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

// The equations of one return and their derivatives. Unknowns x: Prs(1..3),
// the multipliers (shear faces, then the cap), pc.
struct System {
    const HsMaterial& mt;
    const HsParams& hp;
    double delta;         // cap: (3 + sin phi) / (3 - sin phi)
    double alpha2;        // cap shape squared
    const Vec3& Prs_E;
    const Mat3& D3;
    double gamma0;
    double pc0;
    int nShear;           // 1 or 2
    ShearFace face[2];
    int n;                // unknowns: 3 + nShear + 1 + 1
    int iLamCap;          // position of xLam_cap in x
    int iPc;              // position of pc in x
    Mat3 DH;              // D3 times the cap curvature, constant for the call

    System(const HsMaterial& m, const HsParams& h, int iArea, const Vec3& E, const Mat3& D,
           double g0, double p0)
        : mt(m), hp(h), delta(m.delta()), alpha2(m.alpha * m.alpha), Prs_E(E), D3(D),
          gamma0(g0), pc0(p0) {
        nShear = iArea == 1 ? 1 : 2;
        face[0] = kFace13;
        face[1] = edge_face(iArea);
        n = 3 + nShear + 2;
        iLamCap = 3 + nShear;
        iPc = n - 1;
        // D3 times the cap curvature H(l, j) = 2 (c_l c_j / alpha^2 + 1/9).
        const Mat3 H = cap_curvature(delta, alpha2);
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                DH.a[i + 3 * j] = D3.a[i] * H.a[3 * j] + D3.a[i + 3] * H.a[1 + 3 * j] +
                                  D3.a[i + 6] * H.a[2 + 3 * j];
    }

    static Vec3 stresses(const double* x) { return Vec3{{x[0], x[1], x[2]}}; }

    double gamma_of(const double* x) const { return hs_gamma_trial(gamma0, hp.h, x[3]); }

    // Residual and, for the convergence test, each equation's allowance.
    void residual(const double* x, const double* tol, Eval& e) const {
        const Vec3 P = stresses(x);
        const double gamma = gamma_of(x);
        e.spsi = sin_psi_mob(mt, P);
        e.p = HsMaterial::mean(P);
        const double p = e.p;
        const double qt = HsMaterial::cap_qt(P, delta);
        const double pc = x[iPc];
        const double lamCap = x[iLamCap];
        double r[3], scale[3];
        for (int i = 0; i < 3; ++i) {
            r[i] = P.v[i] - Prs_E.v[i];
            scale[i] = std::fabs(P.v[i]) + std::fabs(Prs_E.v[i]);
        }
        for (int k = 0; k < nShear; ++k) {
            e.Dm[k] = mul(D3, dg_hsmdS(face[k], e.spsi));
            for (int i = 0; i < 3; ++i) {
                const double t = x[3 + k] * e.Dm[k].v[i];
                r[i] = r[i] + t;
                scale[i] += std::fabs(t);
            }
        }
        e.nCap = hs_df_capmdS(qt, p, delta, alpha2);
        e.Dn = mul(D3, e.nCap);
        for (int i = 0; i < 3; ++i) {
            const double t = lamCap * e.Dn.v[i];
            r[i] = r[i] + t;
            scale[i] += std::fabs(t);
            e.F[i] = r[i];
            e.allow[i] = std::max(tol[i], kNoise * scale[i]);
        }
        for (int k = 0; k < nShear; ++k) {
            const double q = face_q(face[k], P);
            const double f = f_hs(hp, face[k], P, gamma, false);
            e.F[3 + k] = f;
            e.allow[3 + k] =
                std::max(tol[3 + k], kNoise * (std::fabs(f + gamma) + 4.0 * std::fabs(q) / hp.Eur +
                                               std::fabs(gamma)));
        }
        const double qa2 = qt * qt / alpha2;
        e.F[iLamCap] = HsMaterial::f_cap(qt, p, pc, alpha2);
        e.allow[iLamCap] = std::max(tol[iLamCap], kNoise * (qa2 + p * p + pc * pc));
        e.xh = mt.xh_cap(p, pc, hp.h);
        e.F[iPc] = pc - std::max(pc0 + lamCap * e.xh, pc0);
        e.allow[iPc] = std::max(tol[iPc], kNoise * (std::fabs(pc) + pc0));
    }

    // Jacobian J (row-major, n x n) at x, with e evaluated at x.
    void jacobian(const double* x, const Eval& e, double (&J)[kMaxUnknowns][kMaxUnknowns]) const {
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) J[i][j] = 0.0;
        const Vec3 P = stresses(x);
        const double pc = x[iPc];
        const double lamCap = x[iLamCap];

        // Stress rows: I + sum_k xLam_k D3 dm_k/dS + xLam_cap D3 Hcap; the
        // multiplier columns D3 m_k and D3 n_cap.
        for (int i = 0; i < 3; ++i) J[i][i] = 1.0;
        bool turning = false;
        for (int k = 0; k < nShear; ++k) turning = turning || x[3 + k] != 0.0;
        Vec3 dspsi;  // slope of the mobilised dilatancy, by differences
        if (turning) {
            for (int j = 1; j <= 3; ++j) {
                Vec3 Q = P;
                const double step = 1e-7 * (std::fabs(P(j)) + 1.0);
                Q(j) = P(j) + step;
                dspsi(j) = (sin_psi_mob(mt, Q) - e.spsi) / step;
            }
        }
        for (int k = 0; k < nShear; ++k) {
            for (int i = 0; i < 3; ++i) J[i][3 + k] = e.Dm[k].v[i];
            if (!turning || x[3 + k] == 0.0) continue;
            // dm/dspsi: -1/2 at both positions of the face.
            const int a = face[k].i, b = face[k].j;
            for (int i = 1; i <= 3; ++i) {
                const double Ddm = -0.5 * D3(i, a) - 0.5 * D3(i, b);
                for (int j = 1; j <= 3; ++j) J[i - 1][j - 1] += x[3 + k] * Ddm * dspsi(j);
            }
        }
        for (int i = 0; i < 3; ++i) J[i][iLamCap] = e.Dn.v[i];
        if (lamCap != 0.0) {
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) J[i][j] += lamCap * DH.a[i + 3 * j];
        }

        // Shear rows: the gradient, and gamma_p through xLam13_hs while it
        // hardens.
        const bool hardens = x[3] >= 0.0;
        for (int k = 0; k < nShear; ++k) {
            const Vec3 g = df_hsmdS(hp, face[k], P);
            for (int j = 0; j < 3; ++j) J[3 + k][j] = g.v[j];
            if (hardens) J[3 + k][3] = -hp.h;
        }

        // Cap row.
        for (int j = 0; j < 3; ++j) J[iLamCap][j] = e.nCap.v[j];
        J[iLamCap][iPc] = -2.0 * pc;

        // Cap pressure row: pc - (pc0 + xLam_cap xh_cap(p, pc)) while it grows.
        J[iPc][iPc] = 1.0;
        if (lamCap * e.xh > 0.0) {
            double dxh_dp, dxh_dpc;
            xh_slopes(mt, e.p, pc, e.xh, dxh_dp, dxh_dpc);
            J[iPc][iLamCap] = -e.xh;
            for (int j = 0; j < 3; ++j) J[iPc][j] = -lamCap * dxh_dp / 3.0;
            J[iPc][iPc] = 1.0 - lamCap * dxh_dpc;
        }
    }
};

// Solves J d = b for the layout of System (stresses, NL multipliers, pc) by
// eliminating pc (its row is scalar), then the stresses (a 3x3 block close
// to the identity, inverted by cofactors), and solving the NL x NL system of
// the multipliers with partial pivoting. A singular system gives non-finite
// increments.
template <int NL>
void solve(const double (&J)[kMaxUnknowns][kMaxUnknowns], double* b) {
    constexpr int iP = 3 + NL;  // pc
    const double t = J[iP][iP];
    // f rows without pc: C' dS + E' dLam = bf'.
    double C[NL][3], E[NL][NL], bf[NL];
    for (int i = 0; i < NL; ++i) {
        const double g = J[3 + i][iP] / t;
        for (int j = 0; j < 3; ++j) C[i][j] = J[3 + i][j] - g * J[iP][j];
        for (int j = 0; j < NL; ++j) E[i][j] = J[3 + i][3 + j] - g * J[iP][3 + j];
        bf[i] = b[3 + i] - g * b[iP];
    }
    // Inverse of the stress block by cofactors.
    const double a11 = J[0][0], a12 = J[0][1], a13 = J[0][2];
    const double a21 = J[1][0], a22 = J[1][1], a23 = J[1][2];
    const double a31 = J[2][0], a32 = J[2][1], a33 = J[2][2];
    const double c11 = a22 * a33 - a23 * a32, c12 = a23 * a31 - a21 * a33,
                 c13 = a21 * a32 - a22 * a31;
    const double det = a11 * c11 + a12 * c12 + a13 * c13;
    double Ai[3][3];
    Ai[0][0] = c11 / det;
    Ai[0][1] = (a13 * a32 - a12 * a33) / det;
    Ai[0][2] = (a12 * a23 - a13 * a22) / det;
    Ai[1][0] = c12 / det;
    Ai[1][1] = (a11 * a33 - a13 * a31) / det;
    Ai[1][2] = (a13 * a21 - a11 * a23) / det;
    Ai[2][0] = c13 / det;
    Ai[2][1] = (a12 * a31 - a11 * a32) / det;
    Ai[2][2] = (a11 * a22 - a12 * a21) / det;
    // dS = Ai bS - (Ai B) dLam.
    double u[3], V[3][NL];
    for (int i = 0; i < 3; ++i) {
        u[i] = Ai[i][0] * b[0] + Ai[i][1] * b[1] + Ai[i][2] * b[2];
        for (int j = 0; j < NL; ++j)
            V[i][j] = Ai[i][0] * J[0][3 + j] + Ai[i][1] * J[1][3 + j] + Ai[i][2] * J[2][3 + j];
    }
    // (E' - C' V) dLam = bf' - C' u.
    double M[NL][NL], r[NL];
    for (int i = 0; i < NL; ++i) {
        r[i] = bf[i] - (C[i][0] * u[0] + C[i][1] * u[1] + C[i][2] * u[2]);
        for (int j = 0; j < NL; ++j)
            M[i][j] = E[i][j] - (C[i][0] * V[0][j] + C[i][1] * V[1][j] + C[i][2] * V[2][j]);
    }
    for (int k = 0; k < NL; ++k) {
        int piv = k;
        for (int i = k + 1; i < NL; ++i)
            if (std::fabs(M[i][k]) > std::fabs(M[piv][k])) piv = i;
        if (piv != k) {
            for (int j = 0; j < NL; ++j) std::swap(M[k][j], M[piv][j]);
            std::swap(r[k], r[piv]);
        }
        for (int i = k + 1; i < NL; ++i) {
            const double f = M[i][k] / M[k][k];
            for (int j = k; j < NL; ++j) M[i][j] -= f * M[k][j];
            r[i] -= f * r[k];
        }
    }
    double dl[NL];
    for (int i = NL - 1; i >= 0; --i) {
        double sum = r[i];
        for (int j = i + 1; j < NL; ++j) sum -= M[i][j] * dl[j];
        dl[i] = sum / M[i][i];
    }
    double ds[3];
    for (int i = 0; i < 3; ++i) {
        ds[i] = u[i];
        for (int j = 0; j < NL; ++j) ds[i] -= V[i][j] * dl[j];
    }
    double bp = b[iP];
    for (int j = 0; j < 3; ++j) bp -= J[iP][j] * ds[j];
    for (int j = 0; j < NL; ++j) bp -= J[iP][3 + j] * dl[j];
    for (int i = 0; i < 3; ++i) b[i] = ds[i];
    for (int j = 0; j < NL; ++j) b[3 + j] = dl[j];
    b[iP] = bp / t;
}

void solve(const double (&J)[kMaxUnknowns][kMaxUnknowns], double* b, int n) {
    if (n == 7)
        solve<3>(J, b);
    else
        solve<2>(J, b);
}

// Sum of squares of F in units of the weights; and whether all are within.
double merit(const double* F, const double* w, int n) {
    double s = 0.0;
    for (int i = 0; i < n; ++i) {
        const double r = F[i] / w[i];
        s += r * r;
    }
    return s;
}

bool within(const double* F, const double* allow, int n) {
    for (int i = 0; i < n; ++i)
        if (!(std::fabs(F[i]) <= allow[i])) return false;
    return true;
}

}  // namespace

HsCapReturn hs_cap_closest_point(const HsMaterial& mt, const HsParams& hp, int iArea,
                                 const Vec3& Prs_E, const Mat3& D3, double gamma_p0, double pc0) {
    const System sys(mt, hp, iArea, Prs_E, D3, gamma_p0, pc0);
    const int n = sys.n;
    double x[kMaxUnknowns] = {Prs_E(1), Prs_E(2), Prs_E(3)};
    x[sys.iPc] = pc0;

    // Tolerances: the surfaces' own from their trial values; the stresses
    // and the cap pressure relative to their scale.
    double tol[kMaxUnknowns];
    const double sE =
        std::max(std::fabs(Prs_E(1)), std::max(std::fabs(Prs_E(2)), std::fabs(Prs_E(3))));
    for (int i = 0; i < 3; ++i) tol[i] = 1e-12 * (sE + 1.0);
    for (int i = 3; i < n; ++i) tol[i] = 0.0;
    tol[sys.iPc] = 1e-12 * (pc0 + 1.0);
    Eval e;
    sys.residual(x, tol, e);
    for (int k = 0; k <= sys.nShear; ++k) {
        tol[3 + k] = std::fabs(e.F[3 + k]) * 1e-12 + 1e-12;
        e.allow[3 + k] = std::max(e.allow[3 + k], tol[3 + k]);
    }
    double w[kMaxUnknowns];
    for (int i = 0; i < n; ++i) w[i] = e.allow[i];

    HsCapReturn out;
    out.nLam = sys.nShear + 1;
    double phi = merit(e.F, w, n);
    int pass = 0;
    // A trial that is not a number still takes one pass, so that the
    // multipliers say so.
    while (!within(e.F, e.allow, n) && pass < kMaxPasses && (pass == 0 || std::isfinite(phi))) {
        double J[kMaxUnknowns][kMaxUnknowns];
        sys.jacobian(x, e, J);
        double d[kMaxUnknowns];
        for (int i = 0; i < n; ++i) d[i] = -e.F[i];
        solve(J, d, n);
        // A singular system at a state that is a number ends the search
        // there; a trial that is not a number passes its NaNs on.
        bool finite = true;
        for (int i = 0; i < n; ++i) finite = finite && std::isfinite(d[i]);
        if (!finite && std::isfinite(phi)) break;
        ++pass;
        double t = 1.0;
        double xt[kMaxUnknowns];
        Eval et;
        bool taken = false;
        for (int h = 0; h <= kMaxHalvings; ++h, t *= 0.5) {
            for (int i = 0; i < n; ++i) xt[i] = x[i] + t * d[i];
            sys.residual(xt, tol, et);
            const double phit = merit(et.F, w, n);
            if (phit < phi || within(et.F, et.allow, n) || !std::isfinite(phit)) {
                phi = phit;
                taken = true;
                break;
            }
        }
        if (!taken) break;  // at the rounding floor: nothing left to gain
        for (int i = 0; i < n; ++i) x[i] = xt[i];
        e = et;
    }
    out.converged = within(e.F, e.allow, n);
    out.passes = pass;
    out.Prs = System::stresses(x);
    for (int k = 0; k < out.nLam; ++k) out.xLam[k] = x[3 + k];
    out.gamma_p = sys.gamma_of(x);
    out.pc = x[sys.iPc];
    return out;
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
    // The elastic matrix at the start of the increment, unless its minor
    // stress is too close to zero; then at the trial stresses.
    const Vec3& x = std::fabs(k.Prs_0(3)) > 0.01 ? k.Prs_0 : k.Prs_E;
    Mat3 D3;
    Matriz3(mt, x.data(), D3.data());

    const double gamma0 = k.HardPar_E[0];
    const double stored = k.HardPar_E[1];
    const double pc0 = std::fabs(stored);
    const HsParams hp = hs_params(mt, 1.0, k.Prs_0(3));

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
