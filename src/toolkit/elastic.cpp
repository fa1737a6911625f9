#include "toolkit/elastic.hpp"

#include <algorithm>
#include <cmath>
#include <functional>

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

// Every entry of an n x n isotropic matrix (n = 3: principal, n = 6:
// Cartesian): diag and off in the normal block, G on the shear diagonal,
// zeros elsewhere.
template <int n>
void fill_isotropic(double* D, double diag, double off, double G) {
    for (int i = 0; i < n * n; ++i) D[i] = 0.0;
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 3; ++i) D[i + n * j] = i == j ? diag : off;
    for (int i = 3; i < n; ++i) D[i + n * i] = G;
}

// The matrix of the modulus E (stress-dependent elasticity), or zeros.
template <int n>
void of_modulus(const HsMaterial& mt, double E, double* D) {
    if (!mt.stress_dependent_elasticity) {
        fill_isotropic<n>(D, 0.0, 0.0, 0.0);
        return;
    }
    double G, diag, off;
    isotropic_entries(E, mt.nu_ur, G, diag, off);
    fill_isotropic<n>(D, diag, off, G);
}

// The stress-dependent matrix of the material, or zeros. The matrix is
// cleared before the stresses are read: a stress array that is the matrix
// itself reads zero.
template <int n>
void stress_dependent(const HsMaterial& mt, const double* stress, double* D) {
    if (!mt.stress_dependent_elasticity) {
        fill_isotropic<n>(D, 0.0, 0.0, 0.0);
        return;
    }
    const double* s3 = stress + 2;
    const bool cleared = std::less_equal<const double*>{}(D, s3) &&
                         std::less<const double*>{}(s3, D + n * n);
    of_modulus<n>(mt, stress_dependent_E(mt, cleared ? 0.0 : *s3), D);
}

// The matrix from the bulk and shear moduli.
template <int n>
void from_moduli(double* D, double K, double G) {
    const double diag = K + 1.3333333333333333 * G;
    const double off = K - 0.6666666666666666 * G;
    fill_isotropic<n>(D, diag, off, G);
}

}  // namespace

void Matriz3(const HsMaterial& mt, const double* stress, double* D3) {
    stress_dependent<3>(mt, stress, D3);
}

void Matriz3_of(const HsMaterial& mt, double Eur, double* D3) { of_modulus<3>(mt, Eur, D3); }

void Matriz6(const HsMaterial& mt, const double* stress, double* D) {
    stress_dependent<6>(mt, stress, D);
}

void Matriz6_of(const HsMaterial& mt, double Eur, double* D) { of_modulus<6>(mt, Eur, D); }

void Matriz3_NL(double* D3, double K, double G) { from_moduli<3>(D3, K, G); }

void Matriz6_NL(double* D, double K, double G) { from_moduli<6>(D, K, G); }

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
