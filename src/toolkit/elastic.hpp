// Isotropic elastic matrices: 3x3 in principal space and 6x6 Cartesian.
#pragma once

namespace tervak {

// Stress-dependent modulus from Props (models 1 and 3); only stress(3) is read.
void Matriz3(const double* Props, const double* stress, double* D3, int iModel);
void Matriz6(const double* Props, const double* stress, double* D, int iModel);
void Matriz3_NL(double* D3, double K, double G);
void Matriz6_NL(double* D, double K, double G);
double modul(const double* v);
void norm(const double* v, double* u);

}  // namespace tervak
