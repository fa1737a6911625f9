// Principal stresses by Jacobi rotations, and the rotation back.
#pragma once

namespace tervak {

void eig_3(int iOpt, const double* S, double* xN1, double* xN2, double* xN3, double& S1,
           double& S2, double& S3, double& P, double& Q);
void eig_3a(int iOpt, const double* S, double& S1, double& S2, double& S3, double& P, double& Q);
void prnsig(int IOpt, const double* S, double* xN1, double* xN2, double* xN3, double& S1,
            double& S2, double& S3, double& P, double& Q);
void carsig(double S1, double S2, double S3, const double* xN1, const double* xN2,
            const double* xN3, double* Sig);

}  // namespace tervak
