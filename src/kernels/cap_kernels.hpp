// Internal entry points of the cap kernels with an optional outcome record,
// for the tests and benchmarks: the passes used, the multipliers, the verdict
// the traced point would print, and whether the low-mean-stress exit of
// CAP_plast was taken. The public kernels pass nullptr.
#pragma once

#include "toolkit/types.hpp"

namespace tervak {

struct CapOutcome {
    int it = 0;               // correction passes done
    int nLam = 0;             // multipliers of the area
    double xLam[3] = {};      // in the order of the area's surfaces
    double pc = 0.0;          // trial cap pressure at the end (positive)
    bool ok = false;          // "Return Mapping Ok!" as the traced point would say
    bool early_exit = false;  // CAP_plast handed back the trial state
};

void CAP_plast_r(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
                 const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                 int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R,
                 int iModel, CapOutcome* out);

void MC_CAP_plast_r(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
                    const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                    int& iPlast, const Vec3& Prs_0, const Mat3& D3, double factor, int iModel,
                    CapOutcome* out);

}  // namespace tervak
