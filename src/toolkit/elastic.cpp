#include "toolkit/elastic.hpp"

#include <algorithm>
#include <cmath>

#include "toolkit/types.hpp"
#include "toolkit/usrlib.hpp"

namespace tervak {

namespace {

// Normal diagonal and off-diagonal entries of an isotropic matrix from E, nu.
void isotropic_entries(double E, double nu, double& G, double& diag, double& off) {
    G = E / (2.0 * (1.0 + nu));
    diag = ((2.0 * G) * (1.0 - nu)) / (1.0 - 2.0 * nu);
    off = ((2.0 * G) * nu) / (1.0 - 2.0 * nu);
}

// The stress-dependent unloading-reloading modulus at the minor stress s3.
double stress_dependent_E(const HsMaterial& mt, double s3) {
    return mt.Eur_ref * mt.stress_factor_of(mt.ccos + s3 * mt.sinphi);
}

// The entries of an n x n isotropic matrix (n = 3: principal, n = 6:
// Cartesian) already cleared: diag and off in the normal block, G on the
// shear diagonal.
void fill_isotropic(double* D, int n, double diag, double off, double G) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) D[i + n * j] = (i == j) ? diag : off;
    for (int i = 3; i < n; ++i) D[i + n * i] = G;
}

// The stress-dependent matrix of the material, or zeros. D is cleared
// before the stresses are read.
void stress_dependent(const HsMaterial& mt, const double* stress, double* D, int n) {
    mzeror(D, n * n);
    if (!mt.stress_dependent_elasticity) return;
    const double E = stress_dependent_E(mt, stress[2]);
    double G, diag, off;
    isotropic_entries(E, mt.nu_ur, G, diag, off);
    fill_isotropic(D, n, diag, off, G);
}

// The matrix from the bulk and shear moduli.
void from_moduli(double* D, int n, double K, double G) {
    mzeror(D, n * n);
    const double diag = K + 1.3333333333333333 * G;
    const double off = K - 0.6666666666666666 * G;
    fill_isotropic(D, n, diag, off, G);
}

}  // namespace

void Matriz3(const HsMaterial& mt, const double* stress, double* D3) {
    stress_dependent(mt, stress, D3, 3);
}

void Matriz6(const HsMaterial& mt, const double* stress, double* D) {
    stress_dependent(mt, stress, D, 6);
}

void Matriz3_NL(double* D3, double K, double G) { from_moduli(D3, 3, K, G); }

void Matriz6_NL(double* D, double K, double G) { from_moduli(D, 6, K, G); }

double modul(const double* v) {
    double s = 0.0;
    for (int i = 0; i < 6; ++i) s = s + v[i] * v[i];
    return std::pow(s, 0.5);
}

void norm(const double* v, double* u) {
    mzeror(u, 6);
    const double r = modul(v);
    if (r > 1e-10)
        for (int i = 0; i < 6; ++i) u[i] = v[i] / r;
}

}  // namespace tervak
