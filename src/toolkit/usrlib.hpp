// Dense vector and matrix primitives. Arrays are contiguous and column-major;
// sizes below 1 make every routine a no-operation unless stated.
#pragma once

namespace tervak {

void mzeror(double* a, int n);
void mzeroi(int* a, int n);
void setrval(double* a, int n, double v);
void setival(int* a, int n, int v);
void copyrvec(const double* a, double* b, int n);
void copyivec(const int* a, int* b, int n);
bool is0arr(const double* a, int n);
bool is0iarr(const int* a, int n);
void mulvec(double* a, double f, int n);
// c(i) = fa a(i) + fb b(i); c may be a or b.
void addvec(const double* a, const double* b, double fa, double fb, int n, double* c);
// r = sum a(i) b(i), from zero in ascending index.
double dinprod(const double* a, const double* b, int n);
void matvec(const double* A, int LA, const double* x, int n, double* y);
void matmat(const double* A, int LA, const double* B, int LB, int nRow, int nCol, int nSum,
            double* C, int LC);
void matmatsq(int n, const double* A, const double* B, double* C);
void crossprod(const double* a, const double* b, double* c);
double arcsin(double y, int& ierr);
bool lequal(double a, double b, double tol);
void setveclen(double* a, int n, double len);
// Gauss-Jordan inverse with partial pivoting by rows; no singularity test.
void matinvpiv(const double* A, double* Ainv, int n);

}  // namespace tervak
