// Principal stresses by Jacobi rotations, and the rotation back.
#pragma once

#include "toolkit/types.hpp"

namespace tervak {

void eig_3(int iOpt, const double* S, double* xN1, double* xN2, double* xN3, double& S1,
           double& S2, double& S3, double& P, double& Q);
void eig_3a(int iOpt, const double* S, double& S1, double& S2, double& S3, double& P, double& Q);
void prnsig(int IOpt, const double* S, double* xN1, double* xN2, double* xN3, double& S1,
            double& S2, double& S3, double& P, double& Q);
void carsig(double S1, double S2, double S3, const double* xN1, const double* xN2,
            const double* xN3, double* Sig);

// The compression-positive descending triple (-S1, -S2, -S3) of a host-sign
// (tension positive) stress vector: values only (prnsig with IOpt 0), or
// with the principal directions (IOpt 1) when xN is given.
Vec3 compression_triple(const double* S);
Vec3 compression_triple(const double* S, double (&xN)[3][3]);

}  // namespace tervak
