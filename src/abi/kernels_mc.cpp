// Exported Mohr-Coulomb family kernels: every argument by reference; the
// host's Props and model number become the material of the call. Prs_0 is
// not read.
#include "abi/export.hpp"
#include "abi/kernel_call.hpp"

#define TERVAK_MC_FAMILY(name, kernel)                                                         \
    TERVAK_API void name(TERVAK_KERNEL14_PARAMS) noexcept {                                    \
        static_cast<void>(Prs_0);                                                              \
        tervak::abi::run(&tervak::kernel,                                                      \
                         tervak::abi::call_record(iEl, Int, iElDbg, IntDbg, iArea, Prs_E,      \
                                                  HardPar_E, nullptr, nullptr, D3, nullptr),   \
                         iModel, Props, Prs, HardPar, iPlast);                                 \
    }

TERVAK_MC_FAMILY(mc_plast_, MC_plast)
TERVAK_MC_FAMILY(trac_plast_, TRAC_plast)
TERVAK_MC_FAMILY(mc_trac_plast_, MC_TRAC_plast)
