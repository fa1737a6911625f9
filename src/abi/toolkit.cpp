// Exported toolkit routines: vector and matrix primitives, the inversion,
// principal stresses and the rotation back, the elastic matrices. Every
// argument arrives by reference as a Fortran caller passes it; logical
// results are int32 1 or 0.
#include "abi/export.hpp"
#include "models/material.hpp"
#include "toolkit/elastic.hpp"
#include "toolkit/principal.hpp"
#include "toolkit/usrlib.hpp"

namespace tk = tervak;

TERVAK_API void mzeror_(double* a, const int32_t* n) noexcept { tk::mzeror(a, *n); }
TERVAK_API void mzeroi_(int32_t* a, const int32_t* n) noexcept { tk::mzeroi(a, *n); }
TERVAK_API void setrval_(double* a, const int32_t* n, const double* v) noexcept {
    tk::setrval(a, *n, *v);
}
TERVAK_API void setival_(int32_t* a, const int32_t* n, const int32_t* v) noexcept {
    tk::setival(a, *n, *v);
}
TERVAK_API void copyrvec_(const double* a, double* b, const int32_t* n) noexcept {
    tk::copyrvec(a, b, *n);
}
TERVAK_API void copyivec_(const int32_t* a, int32_t* b, const int32_t* n) noexcept {
    tk::copyivec(a, b, *n);
}
TERVAK_API int32_t is0arr_(const double* a, const int32_t* n) noexcept {
    return tk::is0arr(a, *n) ? 1 : 0;
}
TERVAK_API int32_t is0iarr_(const int32_t* a, const int32_t* n) noexcept {
    return tk::is0iarr(a, *n) ? 1 : 0;
}
TERVAK_API void mulvec_(double* a, const double* f, const int32_t* n) noexcept {
    tk::mulvec(a, *f, *n);
}
TERVAK_API void addvec_(const double* a, const double* b, const double* fa, const double* fb,
                        const int32_t* n, double* c) noexcept {
    tk::addvec(a, b, *fa, *fb, *n, c);
}
TERVAK_API void dinprod_(const double* a, const double* b, const int32_t* n, double* r) noexcept {
    *r = tk::dinprod(a, b, *n);
}
TERVAK_API void matvec_(const double* A, const int32_t* LA, const double* x, const int32_t* n,
                        double* y) noexcept {
    tk::matvec(A, *LA, x, *n, y);
}
TERVAK_API void matmat_(const double* A, const int32_t* LA, const double* B, const int32_t* LB,
                        const int32_t* nRow, const int32_t* nCol, const int32_t* nSum, double* C,
                        const int32_t* LC) noexcept {
    tk::matmat(A, *LA, B, *LB, *nRow, *nCol, *nSum, C, *LC);
}
TERVAK_API void matmatsq_(const int32_t* n, const double* A, const double* B, double* C) noexcept {
    tk::matmatsq(*n, A, B, C);
}
TERVAK_API void crossprod_(const double* a, const double* b, double* c) noexcept {
    tk::crossprod(a, b, c);
}
TERVAK_API double arcsin_(const double* y, int32_t* ierr) noexcept {
    int e = 0;
    const double r = tk::arcsin(*y, e);
    *ierr = e;
    return r;
}
TERVAK_API int32_t lequal_(const double* a, const double* b, const double* tol) noexcept {
    return tk::lequal(*a, *b, *tol) ? 1 : 0;
}
TERVAK_API void setveclen_(double* a, const int32_t* n, const double* len) noexcept {
    tk::setveclen(a, *n, *len);
}
TERVAK_API void matinvpiv_(const double* A, double* Ainv, const int32_t* n) noexcept {
    tk::matinvpiv(A, Ainv, *n);
}

TERVAK_API void eig_3_(const int32_t* iOpt, const double* S, double* xN1, double* xN2,
                       double* xN3, double* S1, double* S2, double* S3, double* P,
                       double* Q) noexcept {
    tk::eig_3(*iOpt, S, xN1, xN2, xN3, *S1, *S2, *S3, *P, *Q);
}
TERVAK_API void eig_3a_(const int32_t* iOpt, const double* S, double* S1, double* S2,
                        double* S3, double* P, double* Q) noexcept {
    tk::eig_3a(*iOpt, S, *S1, *S2, *S3, *P, *Q);
}
TERVAK_API void prnsig_(const int32_t* IOpt, const double* S, double* xN1, double* xN2,
                        double* xN3, double* S1, double* S2, double* S3, double* P,
                        double* Q) noexcept {
    tk::prnsig(*IOpt, S, xN1, xN2, xN3, *S1, *S2, *S3, *P, *Q);
}
TERVAK_API void carsig_(const double* S1, const double* S2, const double* S3, const double* xN1,
                        const double* xN2, const double* xN3, double* Sig) noexcept {
    tk::carsig(*S1, *S2, *S3, xN1, xN2, xN3, Sig);
}

TERVAK_API void matriz3_(const double* Props, const double* stress, double* D3,
                         const int32_t* iModel) noexcept {
    tk::Matriz3(tk::read_material(*iModel, Props), stress, D3);
}
TERVAK_API void matriz6_(const double* Props, const double* stress, double* D,
                         const int32_t* iModel) noexcept {
    tk::Matriz6(tk::read_material(*iModel, Props), stress, D);
}
TERVAK_API void matriz3_nl_(double* D3, const double* K, const double* G) noexcept {
    tk::Matriz3_NL(D3, *K, *G);
}
TERVAK_API void matriz6_nl_(double* D, const double* K, const double* G) noexcept {
    tk::Matriz6_NL(D, *K, *G);
}
TERVAK_API void modul_(const double* v, double* r) noexcept { *r = tk::modul(v); }
TERVAK_API void norm_(const double* v, double* u) noexcept { tk::norm(v, u); }
