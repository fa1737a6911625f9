// Exported Mohr-Coulomb family kernels: every argument by reference; the
// host's Props and model number become the material of the call. Prs_0 is
// not read.
#include "abi/export.hpp"
#include "abi/kernel_call.hpp"

namespace {
// The family's Prs_0 is not read: a zero triple stands for it.
constexpr const double* unread(const void* /*Prs_0*/) { return nullptr; }
}  // namespace

#define TERVAK_MC_FAMILY(name, kernel) \
    TERVAK_KERNEL_EXPORT(name, kernel, TERVAK_KERNEL14_PARAMS, unread(Prs_0), nullptr, nullptr)

TERVAK_MC_FAMILY(mc_plast_, MC_plast)
TERVAK_MC_FAMILY(trac_plast_, TRAC_plast)
TERVAK_MC_FAMILY(mc_trac_plast_, MC_TRAC_plast)
