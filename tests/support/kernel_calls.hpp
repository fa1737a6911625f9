// The kernels with the host's argument list (Props and the model number
// instead of the material), for the unit tests and benchmarks: translated
// into the call record and the material of the call, the elastic matrices by
// model number, and the outcome record by pointer as the tests read it.
#pragma once

#include "kernels/kernels.hpp"
#include "models/material.hpp"
#include "toolkit/records.hpp"
#include "kernels/cap_surface.hpp"
#include "kernels/hs_surfaces.hpp"
#include "toolkit/elastic.hpp"

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

namespace tervak {

using HsOutcome = KernelOutcome;
using CapOutcome = KernelOutcome;

inline void Matriz3(const double* Props, const double* stress, double* D3, int iModel) {
    Matriz3(read_material(iModel, Props), stress, D3);
}
inline void Matriz6(const double* Props, const double* stress, double* D, int iModel) {
    Matriz6(read_material(iModel, Props), stress, D);
}

// The floored cap pieces under their earlier names.
inline double cap_delta(double sinphi) { return (3.0 + sinphi) / (3.0 - sinphi); }
inline double cap_qt(const Vec3& P, double delta) { return cap_qt_floored(P, delta); }
inline double cap_p(const Vec3& P) { return HsMaterial::mean(P); }
inline double f_cap(double qt, double p, double pc, double alpha2) {
    return HsMaterial::f_cap(qt, p, pc, alpha2);
}

#define TERVAK_TEST_R16(name)                                                                    \
    inline void name##_r(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props, \
                         const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar, \
                         int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R,   \
                         int iModel, KernelOutcome* out) {                                       \
        const KernelOutcome o = legacy::run(&tervak::name, iEl, Int, iElDbg, IntDbg, iArea,      \
                                            Props, Prs_E, Prs, HardPar_E, HardPar, iPlast,       \
                                            Prs_0, IsUndr, D3, R, iModel);                       \
        if (out != nullptr) *out = o;                                                            \
    }
TERVAK_TEST_R16(HS_plast)
TERVAK_TEST_R16(HS_TRAC_plast)
TERVAK_TEST_R16(HS_CAP_plast)
TERVAK_TEST_R16(CAP_plast)
#undef TERVAK_TEST_R16

inline void MC_CAP_plast_r(int iEl, int Int, int iElDbg, int IntDbg, int iArea,
                           const double* Props, const Vec3& Prs_E, Vec3& Prs,
                           const double* HardPar_E, double* HardPar, int& iPlast,
                           const Vec3& Prs_0, const Mat3& D3, double factor, int iModel,
                           KernelOutcome* out) {
    const KernelOutcome o = legacy::run(&tervak::MC_CAP_plast, iEl, Int, iElDbg, IntDbg, iArea,
                                        Props, Prs_E, Prs, HardPar_E, HardPar, iPlast, Prs_0, 0,
                                        D3, factor, iModel);
    if (out != nullptr) *out = o;
}

inline void HS_CAP_plast_it_r(int iArea, const double* Props, const Vec3& Prs_E, Vec3& Prs,
                              const double* HardPar_E, double* HardPar, int& iRes,
                              const Vec3& Prs_0, int iModel, KernelOutcome* out) {
    if (iModel < 1 || iModel > 3) stop_run("");
    const KernelOutcome o = legacy::run(&tervak::HS_CAP_plast_it, 0, 0, 0, 0, iArea, Props,
                                        Prs_E, Prs, HardPar_E, HardPar, iRes, Prs_0, 0, Mat3{},
                                        1.0, iModel);
    if (out != nullptr) *out = o;
}

}  // namespace tervak
