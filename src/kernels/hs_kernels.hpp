// Internal entry points of the shear-hardening kernels with an optional
// outcome record, for the tests and benchmarks: the number of correction
// passes, the multipliers and the verdict that the diagnostic point would
// print. Passing nullptr (what the public kernels do) costs one test.
#pragma once

#include "toolkit/types.hpp"

namespace tervak {

struct HsOutcome {
    int it = 0;                  // correction passes done
    int nLam = 0;                // multipliers of the area
    double xLam[3] = {};         // xLam13_hs, then the second shear, the tension or cap one
    bool ok = false;             // "Return Mapping Ok!" (as the diagnostic point would say)
    bool early_exit = false;     // the low-mean-stress exit of HS_CAP_plast was taken
};

void HS_plast_r(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
                const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R, int iModel,
                HsOutcome* out);
void HS_TRAC_plast_r(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
                     const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                     int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R,
                     int iModel, HsOutcome* out);
void HS_CAP_plast_r(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
                    const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                    int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R,
                    int iModel, HsOutcome* out);
void HS_CAP_plast_it_r(int iArea, const double* Props, const Vec3& Prs_E, Vec3& Prs,
                       const double* HardPar_E, double* HardPar, int& iRes, const Vec3& Prs_0,
                       int iModel, HsOutcome* out);

}  // namespace tervak
