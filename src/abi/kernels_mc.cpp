// Exported Mohr-Coulomb family kernels: every argument by reference; the
// host's Props and model number become the material of the call.
#include "abi/export.hpp"
#include "abi/kernel_call.hpp"

namespace {

void mc_family(tervak::abi::Kernel kernel, TERVAK_KERNEL14_PARAMS) {
    static_cast<void>(Prs_0);  // not read by this family
    const tervak::KernelCall k = tervak::abi::call_record(iEl, Int, iElDbg, IntDbg, iArea, Prs_E,
                                                          HardPar_E, D3);
    tervak::abi::run(kernel, k, iModel, Props, Prs, HardPar, iPlast);
}

}  // namespace

#define TERVAK_KERNEL14_ARGS                                                                 \
    iEl, Int, iElDbg, IntDbg, iArea, Props, Prs_E, Prs, HardPar_E, HardPar, iPlast, Prs_0,  \
        D3, iModel

TERVAK_API void mc_plast_(TERVAK_KERNEL14_PARAMS) noexcept {
    mc_family(&tervak::MC_plast, TERVAK_KERNEL14_ARGS);
}

TERVAK_API void trac_plast_(TERVAK_KERNEL14_PARAMS) noexcept {
    mc_family(&tervak::TRAC_plast, TERVAK_KERNEL14_ARGS);
}

TERVAK_API void mc_trac_plast_(TERVAK_KERNEL14_PARAMS) noexcept {
    mc_family(&tervak::MC_TRAC_plast, TERVAK_KERNEL14_ARGS);
}
