// The kernels called the way the small-strain stress point calls them: the
// host's argument list (Props and the model number instead of the material),
// translated here into the call record and the material of the call.
#pragma once

#include "kernels/kernels.hpp"
#include "models/material.hpp"
#include "toolkit/records.hpp"

namespace tervak::legacy {

inline KernelOutcome run(KernelOutcome (*kernel)(const KernelCall&, const HsMaterial&, const KernelOut&),
                int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
                const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R,
                int iModel) {
    KernelCall k;
    k.iEl = iEl;
    k.Int = Int;
    k.iElDbg = iElDbg;
    k.IntDbg = IntDbg;
    k.iArea = iArea;
    k.Prs_E = Prs_E;
    k.Prs_0 = Prs_0;
    k.D3 = D3;
    k.HardPar_E = HardPar_E;
    k.IsUndr = IsUndr;
    k.R = R;
    return kernel(k, read_material(iModel, Props), KernelOut{Prs, HardPar, iPlast});
}

}  // namespace tervak::legacy

namespace tervak {

#define TERVAK_LEGACY16(name)                                                                   \
    inline void name(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props, \
                     const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,   \
                     int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R,     \
                     int iModel) {                                                             \
        legacy::run(&tervak::name, iEl, Int, iElDbg, IntDbg, iArea, Props, Prs_E, Prs,         \
                    HardPar_E, HardPar, iPlast, Prs_0, IsUndr, D3, R, iModel);                 \
    }
#define TERVAK_LEGACY14(name)                                                                   \
    inline void name(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props, \
                     const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,   \
                     int& iPlast, const Vec3& Prs_0, const Mat3& D3, int iModel) {             \
        legacy::run(&tervak::name, iEl, Int, iElDbg, IntDbg, iArea, Props, Prs_E, Prs,         \
                    HardPar_E, HardPar, iPlast, Prs_0, 0, D3, 1.0, iModel);                    \
    }
TERVAK_LEGACY16(HS_plast)
TERVAK_LEGACY16(HS_TRAC_plast)
TERVAK_LEGACY16(HS_CAP_plast)
TERVAK_LEGACY16(CAP_plast)
TERVAK_LEGACY14(MC_plast)
TERVAK_LEGACY14(TRAC_plast)
TERVAK_LEGACY14(MC_TRAC_plast)
inline void MC_CAP_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
                         const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                         int& iPlast, const Vec3& Prs_0, const Mat3& D3, double factor,
                         int iModel) {
    legacy::run(&tervak::MC_CAP_plast, iEl, Int, iElDbg, IntDbg, iArea, Props, Prs_E, Prs,
                HardPar_E, HardPar, iPlast, Prs_0, 0, D3, factor, iModel);
}
// The calibration's kernel: only models 1 to 3 are calibrated; any other
// number ends the run silently.
inline void HS_CAP_plast_it(int iArea, const double* Props, const Vec3& Prs_E, Vec3& Prs,
                            const double* HardPar_E, double* HardPar, int& iRes,
                            const Vec3& Prs_0, int iModel) {
    if (iModel < 1 || iModel > 3) stop_run("");
    legacy::run(&tervak::HS_CAP_plast_it, 0, 0, 0, 0, iArea, Props, Prs_E, Prs, HardPar_E,
                HardPar, iRes, Prs_0, 0, Mat3{}, 1.0, iModel);
}
#undef TERVAK_LEGACY16
#undef TERVAK_LEGACY14

}  // namespace tervak
