// Isotropic elastic matrices: 3x3 in principal space and 6x6 Cartesian.
#pragma once

#include "toolkit/material.hpp"

namespace tervak {

// The material's stress-dependent unloading-reloading modulus at the minor
// stress stress(3) (only that entry is read); zero matrices for a material
// without stress-dependent elasticity.
void Matriz3(const HsMaterial& mt, const double* stress, double* D3);
// Matriz3 for a modulus already known: Eur is what Matriz3 computes from the
// minor stress, Eur_ref times the stiffnesses' stress factor there.
void Matriz3_of(const HsMaterial& mt, double Eur, double* D3);
void Matriz6(const HsMaterial& mt, const double* stress, double* D);
// Matriz6 for a modulus already known, as Matriz3_of.
void Matriz6_of(const HsMaterial& mt, double Eur, double* D);
void Matriz3_NL(double* D3, double K, double G);
void Matriz6_NL(double* D, double K, double G);
double modul(const double* v);
void norm(const double* v, double* u);

}  // namespace tervak
