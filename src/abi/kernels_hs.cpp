// Exported shear-hardening kernels: HS_plast, HS_TRAC_plast, HS_CAP_plast
// and HS_CAP_plast_it, every argument by reference as the host passes it.
// Triples and the 3x3 matrix are copied into value types and the results
// copied back, so a host may pass the same array twice.
#include "abi/export.hpp"
#include "abi/kernel_call.hpp"
#include "kernels/kernels.hpp"

TERVAK_API void hs_plast_(TERVAK_KERNEL16_PARAMS) noexcept {
    tervak::abi::call(tervak::HS_plast, TERVAK_KERNEL16_ARGS);
}

TERVAK_API void hs_trac_plast_(TERVAK_KERNEL16_PARAMS) noexcept {
    tervak::abi::call(tervak::HS_TRAC_plast, TERVAK_KERNEL16_ARGS);
}

TERVAK_API void hs_cap_plast_(TERVAK_KERNEL16_PARAMS) noexcept {
    tervak::abi::call(tervak::HS_CAP_plast, TERVAK_KERNEL16_ARGS);
}

TERVAK_API void hs_cap_plast_it_(int32_t* iArea, double* Props, double* Prs_E, double* Prs,
                                 double* HardPar_E, double* HardPar, int32_t* iRes,
                                 double* Prs_0, int32_t* iModel) noexcept {
    tervak::abi::call(tervak::HS_CAP_plast_it, iArea, Props, Prs_E, Prs, HardPar_E, HardPar, iRes,
                      Prs_0, iModel);
}
