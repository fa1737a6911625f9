// Exported cap kernels: CAP_plast (16 arguments) and MC_CAP_plast (15),
// every argument by reference as the host passes it. Triples and the 3x3
// matrix are copied into value types and the results copied back, so a host
// may pass the same array twice.
#include "abi/export.hpp"
#include "abi/kernel_call.hpp"
#include "kernels/kernels.hpp"

TERVAK_API void cap_plast_(TERVAK_KERNEL16_PARAMS) noexcept {
    tervak::abi::call(tervak::CAP_plast, TERVAK_KERNEL16_ARGS);
}

TERVAK_API void mc_cap_plast_(int32_t* iEl, int32_t* Int, int32_t* iElDbg, int32_t* IntDbg,
                              int32_t* iArea, double* Props, double* Prs_E, double* Prs,
                              double* HardPar_E, double* HardPar, int32_t* iPlast,
                              double* Prs_0, double* D3, double* factor,
                              int32_t* iModel) noexcept {
    tervak::abi::call(tervak::MC_CAP_plast, iEl, Int, iElDbg, IntDbg, iArea, Props, Prs_E, Prs,
                      HardPar_E, HardPar, iPlast, Prs_0, D3, factor, iModel);
}
