// Exported shear-hardening and cap kernels: HS_plast, HS_TRAC_plast,
// HS_CAP_plast, CAP_plast (16 arguments), MC_CAP_plast (15) and
// HS_CAP_plast_it (9), every argument by reference as the host passes it.
#include "abi/export.hpp"
#include "abi/kernel_call.hpp"
#include "toolkit/records.hpp"

#define TERVAK_HS_FAMILY(name, kernel) \
    TERVAK_KERNEL_EXPORT(name, kernel, TERVAK_KERNEL16_PARAMS, Prs_0, IsUndr, R)

TERVAK_HS_FAMILY(hs_plast_, HS_plast)
TERVAK_HS_FAMILY(hs_trac_plast_, HS_TRAC_plast)
TERVAK_HS_FAMILY(hs_cap_plast_, HS_CAP_plast)
TERVAK_HS_FAMILY(cap_plast_, CAP_plast)

// MC_CAP_plast: the factor in place of IsUndr and R.
TERVAK_API void mc_cap_plast_(int32_t* iEl, int32_t* Int, int32_t* iElDbg, int32_t* IntDbg,
                              int32_t* iArea, double* Props, double* Prs_E, double* Prs,
                              double* HardPar_E, double* HardPar, int32_t* iPlast,
                              double* Prs_0, double* D3, double* factor,
                              int32_t* iModel) noexcept {
    tervak::abi::run(&tervak::MC_CAP_plast,
                     tervak::abi::call_record(iEl, Int, iElDbg, IntDbg, iArea, Prs_E, HardPar_E,
                                              Prs_0, nullptr, D3, factor),
                     iModel, Props, Prs, HardPar, iPlast);
}

// HS_CAP_plast_it: only models 1 to 3 are calibrated; any other number ends
// the run silently.
TERVAK_API void hs_cap_plast_it_(int32_t* iArea, double* Props, double* Prs_E, double* Prs,
                                 double* HardPar_E, double* HardPar, int32_t* iRes,
                                 double* Prs_0, int32_t* iModel) noexcept {
    if (*iModel < 1 || *iModel > 3) tervak::stop_run("");
    const int32_t none = 0;
    tervak::abi::run(&tervak::HS_CAP_plast_it,
                     tervak::abi::call_record(&none, &none, &none, &none, iArea, Prs_E, HardPar_E,
                                              Prs_0, nullptr, nullptr, nullptr),
                     iModel, Props, Prs, HardPar, iRes);
}
