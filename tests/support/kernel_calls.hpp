// The kernels with the host's argument list, for the unit tests: the
// library's adapter (models/kernel_calls.hpp), the elastic matrices by
// model number, and the outcome record by pointer as the tests read it.
#pragma once

#include "models/kernel_calls.hpp"
#include "models/material.hpp"
#include "kernels/cap_surface.hpp"
#include "kernels/hs_surfaces.hpp"
#include "toolkit/elastic.hpp"

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
