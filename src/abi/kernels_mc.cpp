// Exported Mohr-Coulomb family kernels: every argument by reference, the
// principal triples and D3 copied into the library's value types and back.
#include "abi/export.hpp"
#include "abi/kernel_call.hpp"
#include "kernels/kernels.hpp"

TERVAK_API void mc_plast_(TERVAK_KERNEL14_PARAMS) noexcept {
    tervak::abi::call(tervak::MC_plast, TERVAK_KERNEL14_ARGS);
}

TERVAK_API void trac_plast_(TERVAK_KERNEL14_PARAMS) noexcept {
    tervak::abi::call(tervak::TRAC_plast, TERVAK_KERNEL14_ARGS);
}

TERVAK_API void mc_trac_plast_(TERVAK_KERNEL14_PARAMS) noexcept {
    tervak::abi::call(tervak::MC_TRAC_plast, TERVAK_KERNEL14_ARGS);
}
