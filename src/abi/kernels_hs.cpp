// Exported shear-hardening kernels: HS_plast, HS_TRAC_plast, HS_CAP_plast
// and HS_CAP_plast_it, every argument by reference as the host passes it.
// Triples and the 3x3 matrix are copied into value types and the results
// copied back, so a host may pass the same array twice.
#include <cstring>

#include "abi/export.hpp"
#include "kernels/kernels.hpp"

namespace {

tervak::Vec3 vec3(const double* p) {
    tervak::Vec3 v;
    std::memcpy(v.data(), p, sizeof v.v);
    return v;
}

tervak::Mat3 mat3(const double* p) {
    tervak::Mat3 m;
    std::memcpy(m.data(), p, sizeof m.a);
    return m;
}

void put(const tervak::Vec3& v, double* p) { std::memcpy(p, v.data(), sizeof v.v); }

using Kernel16 = void (*)(int, int, int, int, int, const double*, const tervak::Vec3&,
                          tervak::Vec3&, const double*, double*, int&, const tervak::Vec3&, int,
                          const tervak::Mat3&, double, int);

void call16(Kernel16 k, const int32_t* iEl, const int32_t* Int, const int32_t* iElDbg,
            const int32_t* IntDbg, const int32_t* iArea, const double* Props, const double* Prs_E,
            double* Prs, const double* HardPar_E, double* HardPar, int32_t* iPlast,
            const double* Prs_0, const int32_t* IsUndr, const double* D3, const double* R,
            const int32_t* iModel) {
    const tervak::Vec3 prsE = vec3(Prs_E);
    const tervak::Vec3 prs0 = vec3(Prs_0);
    const tervak::Mat3 d3 = mat3(D3);
    tervak::Vec3 prs = vec3(Prs);
    int plast = *iPlast;
    k(*iEl, *Int, *iElDbg, *IntDbg, *iArea, Props, prsE, prs, HardPar_E, HardPar, plast, prs0,
      *IsUndr, d3, *R, *iModel);
    put(prs, Prs);
    *iPlast = plast;
}

}  // namespace

#define TERVAK_KERNEL16_PARAMS                                                                \
    int32_t *iEl, int32_t *Int, int32_t *iElDbg, int32_t *IntDbg, int32_t *iArea,            \
        double *Props, double *Prs_E, double *Prs, double *HardPar_E, double *HardPar,       \
        int32_t *iPlast, double *Prs_0, int32_t *IsUndr, double *D3, double *R, int32_t *iModel
#define TERVAK_KERNEL16_ARGS                                                                  \
    iEl, Int, iElDbg, IntDbg, iArea, Props, Prs_E, Prs, HardPar_E, HardPar, iPlast, Prs_0,   \
        IsUndr, D3, R, iModel

TERVAK_API void hs_plast_(TERVAK_KERNEL16_PARAMS) noexcept {
    call16(&tervak::HS_plast, TERVAK_KERNEL16_ARGS);
}

TERVAK_API void hs_trac_plast_(TERVAK_KERNEL16_PARAMS) noexcept {
    call16(&tervak::HS_TRAC_plast, TERVAK_KERNEL16_ARGS);
}

TERVAK_API void hs_cap_plast_(TERVAK_KERNEL16_PARAMS) noexcept {
    call16(&tervak::HS_CAP_plast, TERVAK_KERNEL16_ARGS);
}

TERVAK_API void hs_cap_plast_it_(int32_t* iArea, double* Props, double* Prs_E, double* Prs,
                                 double* HardPar_E, double* HardPar, int32_t* iRes,
                                 double* Prs_0, int32_t* iModel) noexcept {
    const tervak::Vec3 prsE = vec3(Prs_E);
    const tervak::Vec3 prs0 = vec3(Prs_0);
    tervak::Vec3 prs = vec3(Prs);
    int res = *iRes;
    tervak::HS_CAP_plast_it(*iArea, Props, prsE, prs, HardPar_E, HardPar, res, prs0, *iModel);
    put(prs, Prs);
    *iRes = res;
}
