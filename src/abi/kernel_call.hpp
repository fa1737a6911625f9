// Calls a return-mapping kernel with a host's arguments, every one of them
// by reference: the host's Props and model number become the material of
// the call, the other inputs the call record (triples and the 3x3 matrix
// copied in, so a host may pass the same array twice; a triple the kernel
// family does not read is a zero triple and the host's pointer is never
// dereferenced). Prs and the plasticity code are copied in before the
// kernel runs and copied back, in that order, after it; HardPar is written
// in place.
#pragma once

#include <cstdint>
#include <cstring>

#include "kernels/kernels.hpp"
#include "models/material.hpp"
#include "toolkit/types.hpp"

namespace tervak::abi {

using Kernel = KernelOutcome (*)(const KernelCall&, const HsMaterial&, const KernelOut&);

inline Vec3 triple(const double* p) {
    Vec3 v;
    std::memcpy(v.v, p, sizeof v.v);
    return v;
}

// The call record of a host's arguments. Prs_0, IsUndr and R are null where
// the kernel family has no such argument (a zero triple, 0 and 1 are used).
inline KernelCall call_record(const int32_t* iEl, const int32_t* Int, const int32_t* iElDbg,
                              const int32_t* IntDbg, const int32_t* iArea, const double* Prs_E,
                              const double* HardPar_E, const double* Prs_0,
                              const int32_t* IsUndr, const double* D3, const double* R) {
    KernelCall k;
    k.iEl = *iEl;
    k.Int = *Int;
    k.iElDbg = *iElDbg;
    k.IntDbg = *IntDbg;
    k.iArea = *iArea;
    k.Prs_E = triple(Prs_E);
    k.HardPar_E = HardPar_E;
    if (Prs_0 != nullptr) k.Prs_0 = triple(Prs_0);
    if (IsUndr != nullptr) k.IsUndr = *IsUndr;
    if (D3 != nullptr) std::memcpy(k.D3.a, D3, sizeof k.D3.a);
    if (R != nullptr) k.R = *R;
    return k;
}

// Runs the kernel on the material of (iModel, Props) and copies Prs and the
// plasticity code back.
inline void run(Kernel kernel, const KernelCall& k, const int32_t* iModel, const double* Props,
                double* Prs, double* HardPar, int32_t* iPlast) {
    const HsMaterial mt = read_material(*iModel, Props);
    Vec3 P = triple(Prs);
    int code = *iPlast;
    kernel(k, mt, KernelOut{P, HardPar, code});
    std::memcpy(Prs, P.v, sizeof P.v);
    *iPlast = code;
}

}  // namespace tervak::abi

// The host's parameter lists of the two larger kernel families.
//
// Mohr-Coulomb family, 14 arguments; Prs_0 is not read.
#define TERVAK_KERNEL14_PARAMS                                                               \
    const int32_t *iEl, const int32_t *Int, const int32_t *iElDbg, const int32_t *IntDbg,   \
        const int32_t *iArea, const double *Props, const double *Prs_E, double *Prs,        \
        const double *HardPar_E, double *HardPar, int32_t *iPlast, const void *Prs_0,       \
        const double *D3, const int32_t *iModel
// Shear-hardening family and the cap, 16 arguments.
#define TERVAK_KERNEL16_PARAMS                                                               \
    int32_t *iEl, int32_t *Int, int32_t *iElDbg, int32_t *IntDbg, int32_t *iArea,           \
        double *Props, double *Prs_E, double *Prs, double *HardPar_E, double *HardPar,      \
        int32_t *iPlast, double *Prs_0, int32_t *IsUndr, double *D3, double *R, int32_t *iModel

// One exported kernel of a family: its parameter list, and what stands for
// Prs_0, IsUndr and R (nullptr where the family has no such argument).
#define TERVAK_KERNEL_EXPORT(name, kernel, PARAMS, PRS_0, IS_UNDR, R_)                         \
    TERVAK_API void name(PARAMS) noexcept {                                                    \
        tervak::abi::run(&tervak::kernel,                                                      \
                         tervak::abi::call_record(iEl, Int, iElDbg, IntDbg, iArea, Prs_E,      \
                                                  HardPar_E, PRS_0, IS_UNDR, D3, R_),          \
                         iModel, Props, Prs, HardPar, iPlast);                                 \
    }
