// Toolkit, writer and metadata routines, called as a Fortran host calls them.
#include <cstring>

#include "library.hpp"
#include "sections.hpp"
#include "sweep_support.hpp"

namespace sweep {

namespace {

using VecFn = void (*)(double*, const i32*);
using IVecFn = void (*)(i32*, const i32*);

void fill(Rng& r, double* a, int n) {
    for (int k = 0; k < n; ++k) a[k] = r.chance(0.03) ? r.special() : r.range(-10.0, 10.0);
}

// A symmetric stress vector: sometimes isotropic, sometimes with equal pairs.
void stress(Rng& r, double* S) {
    const int kind = r.pick(5);
    for (int k = 0; k < 3; ++k) S[k] = -r.decades(-1.0, 3.0);
    for (int k = 3; k < 6; ++k) S[k] = r.range(-0.4, 0.4) * S[0];
    if (kind == 1) S[1] = S[2] = S[0];
    if (kind <= 2) S[3] = S[4] = S[5] = 0.0;
    if (kind == 2) S[2] = S[1];
    if (kind == 3) S[4] = S[5] = 0.0;
}

void arrays(long k) {
    Rng r = case_rng(101, static_cast<std::uint64_t>(k));
    const i32 n = r.pick(9) - 1;
    double a[8] = {}, b[8] = {}, c[8] = {};
    i32 ia[8] = {}, ib[8] = {};
    fill(r, a, 8);
    fill(r, b, 8);
    for (int j = 0; j < 8; ++j) ia[j] = r.pick(5) == 0 ? 0 : static_cast<i32>(r.next());
    const double f = r.range(-3.0, 3.0), g = r.range(-3.0, 3.0);
    Out o("arrays");
    o.i(k);
    switch (r.pick(12)) {
        case 0: before_call(); reinterpret_cast<VecFn>(symbol("mzeror_"))(a, &n); break;
        case 1: before_call(); reinterpret_cast<IVecFn>(symbol("mzeroi_"))(ia, &n); break;
        case 2:
            before_call();
            reinterpret_cast<void (*)(double*, const i32*, const double*)>(symbol("setrval_"))(
                a, &n, &f);
            break;
        case 3: {
            const i32 v = static_cast<i32>(r.next());
            before_call();
            reinterpret_cast<void (*)(i32*, const i32*, const i32*)>(symbol("setival_"))(ia, &n,
                                                                                         &v);
            break;
        }
        case 4:
            before_call();
            reinterpret_cast<void (*)(const double*, double*, const i32*)>(symbol("copyrvec_"))(
                a, b, &n);
            break;
        case 5:
            before_call();
            reinterpret_cast<void (*)(const i32*, i32*, const i32*)>(symbol("copyivec_"))(ia, ib,
                                                                                          &n);
            break;
        case 6: {
            if (r.chance(0.5)) std::memset(a, 0, sizeof a);
            if (r.chance(0.3)) a[0] = -0.0;
            before_call();
            o.i(reinterpret_cast<i32 (*)(const double*, const i32*)>(symbol("is0arr_"))(a, &n));
            break;
        }
        case 7: {
            if (r.chance(0.5)) std::memset(ia, 0, sizeof ia);
            before_call();
            o.i(reinterpret_cast<i32 (*)(const i32*, const i32*)>(symbol("is0iarr_"))(ia, &n));
            break;
        }
        case 8:
            before_call();
            reinterpret_cast<void (*)(double*, const double*, const i32*)>(symbol("mulvec_"))(
                a, &f, &n);
            break;
        case 9: {
            double* out = r.chance(0.3) ? a : c;
            before_call();
            reinterpret_cast<void (*)(const double*, const double*, const double*, const double*,
                                      const i32*, double*)>(symbol("addvec_"))(a, b, &f, &g, &n,
                                                                               out);
            break;
        }
        case 10: {
            double d = 0.0;
            before_call();
            reinterpret_cast<void (*)(const double*, const double*, const i32*, double*)>(
                symbol("dinprod_"))(a, b, &n, &d);
            o.d(d);
            break;
        }
        default: {
            const i32 len = r.pick(4);
            before_call();
            reinterpret_cast<void (*)(double*, const i32*, const double*)>(symbol("setveclen_"))(
                a, &len, &f);
            break;
        }
    }
    o.i(n).v(a, 8).v(b, 8).v(c, 8).iv(ia, 8).iv(ib, 8).end();
}

void matrices(long k) {
    Rng r = case_rng(102, static_cast<std::uint64_t>(k));
    double A[36], B[36], C[36] = {}, x[6], y[6] = {};
    fill(r, A, 36);
    fill(r, B, 36);
    fill(r, x, 6);
    Out o("matrices");
    o.i(k);
    const int which = r.pick(6);
    o.i(which);
    if (which == 0) {
        const i32 LA = 6, n = r.pick(7);
        before_call();
        reinterpret_cast<void (*)(const double*, const i32*, const double*, const i32*, double*)>(
            symbol("matvec_"))(A, &LA, x, &n, y);
        o.i(n).v(y, 6);
    } else if (which == 1) {
        const i32 L = 6, nr = r.pick(7), nc = r.pick(7), ns = r.pick(7);
        before_call();
        reinterpret_cast<void (*)(const double*, const i32*, const double*, const i32*,
                                  const i32*, const i32*, const i32*, double*, const i32*)>(
            symbol("matmat_"))(A, &L, B, &L, &nr, &nc, &ns, C, &L);
        o.i(nr).i(nc).i(ns).v(C, 36);
    } else if (which == 2) {
        const i32 n = r.pick(7);
        before_call();
        reinterpret_cast<void (*)(const i32*, const double*, const double*, double*)>(
            symbol("matmatsq_"))(&n, A, B, C);
        o.i(n).v(C, 36);
    } else if (which == 3) {
        before_call();
        reinterpret_cast<void (*)(const double*, const double*, double*)>(symbol("crossprod_"))(
            A, B, C);
        o.v(C, 3);
    } else if (which == 4) {
        const i32 n = 1 + r.pick(6);
        for (int j = 0; j < 36; ++j) A[j] = r.range(-1.0, 1.0) + (j % 7 == 0 ? 3.0 : 0.0);
        if (r.chance(0.05)) std::memset(A, 0, sizeof A);
        before_call();
        reinterpret_cast<void (*)(const double*, double*, const i32*)>(symbol("matinvpiv_"))(
            A, C, &n);
        o.i(n).v(C, n * n);
    } else {
        double u[6];
        if (r.chance(0.2)) {
            for (double& e : x) e *= 1e-12;
        }
        before_call();
        double m = 0.0;
        reinterpret_cast<void (*)(const double*, double*)>(symbol("modul_"))(x, &m);
        before_call();
        reinterpret_cast<void (*)(const double*, double*)>(symbol("norm_"))(x, u);
        o.d(m).v(u, 6);
    }
    o.end();
}

void scalars(long k) {
    Rng r = case_rng(103, static_cast<std::uint64_t>(k));
    const double y = r.chance(0.05) ? r.special() : r.range(-1.2, 1.2);
    const double b = r.chance(0.3) ? y : y + r.range(-1e-6, 1e-6);
    const double tol = r.decades(-12.0, -3.0);
    i32 ierr = -7;
    before_call();
    const double as = reinterpret_cast<double (*)(const double*, i32*)>(symbol("arcsin_"))(&y,
                                                                                          &ierr);
    before_call();
    const i32 eq = reinterpret_cast<i32 (*)(const double*, const double*, const double*)>(
        symbol("lequal_"))(&y, &b, &tol);
    Out("scalars").i(k).d(as).i(ierr).i(eq).end();
}

using EigFn = void (*)(const i32*, const double*, double*, double*, double*, double*, double*,
                       double*, double*, double*);
using Eig3aFn = void (*)(const i32*, const double*, double*, double*, double*, double*,
                         double*);
using CarsigFn = void (*)(const double*, const double*, const double*, const double*,
                          const double*, const double*, double*);

void principal(long k) {
    Rng r = case_rng(104, static_cast<std::uint64_t>(k));
    double S[6];
    stress(r, S);
    const i32 opt = r.pick(2);
    double n1[3] = {}, n2[3] = {}, n3[3] = {}, s1 = 0, s2 = 0, s3 = 0, p = 0, q = 0;
    const int which = r.pick(3);
    before_call();
    if (which == 0) reinterpret_cast<EigFn>(symbol("eig_3_"))(&opt, S, n1, n2, n3, &s1, &s2, &s3, &p, &q);
    else if (which == 1) reinterpret_cast<Eig3aFn>(symbol("eig_3a_"))(&opt, S, &s1, &s2, &s3, &p, &q);
    else reinterpret_cast<EigFn>(symbol("prnsig_"))(&opt, S, n1, n2, n3, &s1, &s2, &s3, &p, &q);
    double back[6] = {};
    before_call();
    reinterpret_cast<CarsigFn>(symbol("carsig_"))(&s1, &s2, &s3, n1, n2, n3, back);
    Out("principal").i(k).i(which).i(opt).v(n1, 3).v(n2, 3).v(n3, 3).d(s1).d(s2).d(s3).d(p).d(q)
        .v(back, 6).end();
}

void elastic(long k) {
    Rng r = case_rng(105, static_cast<std::uint64_t>(k));
    double P[25];
    const i32 model = r.pick(6);
    model_props(r, model == 0 || model == 5 ? 1 + r.pick(4) : model, P);
    double S[6], D[36] = {};
    stress(r, S);
    for (double& s : S) s = -s;
    using MatrizFn = void (*)(const double*, const double*, double*, const i32*);
    using NlFn = void (*)(double*, const double*, const double*);
    const double K = r.decades(2.0, 5.0), G = r.decades(2.0, 5.0);
    Out o("elastic");
    o.i(k).i(model);
    before_call();
    switch (r.pick(4)) {
        case 0: reinterpret_cast<MatrizFn>(symbol("matriz3_"))(P, S, D, &model); o.v(D, 9); break;
        case 1: reinterpret_cast<MatrizFn>(symbol("matriz6_"))(P, S, D, &model); o.v(D, 36); break;
        case 2: reinterpret_cast<NlFn>(symbol("matriz3_nl_"))(D, &K, &G); o.v(D, 9); break;
        default: reinterpret_cast<NlFn>(symbol("matriz6_nl_"))(D, &K, &G); o.v(D, 36); break;
    }
    o.end();
}

}  // namespace

void toolkit_sections() {
    guarded("arrays", 24000, arrays);
    guarded("matrices", 18000, matrices);
    guarded("scalars", 6000, scalars);
    guarded("principal", 12000, principal);
    guarded("elastic", 12000, elastic);
}

}  // namespace sweep
