// Exported cap kernels: CAP_plast (16 arguments) and MC_CAP_plast (15),
// every argument by reference as the host passes it. Triples and the 3x3
// matrix are copied into value types and the results copied back, so a host
// may pass the same array twice.
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

}  // namespace

TERVAK_API void cap_plast_(int32_t* iEl, int32_t* Int, int32_t* iElDbg, int32_t* IntDbg,
                           int32_t* iArea, double* Props, double* Prs_E, double* Prs,
                           double* HardPar_E, double* HardPar, int32_t* iPlast, double* Prs_0,
                           int32_t* IsUndr, double* D3, double* R, int32_t* iModel) noexcept {
    const tervak::Vec3 prsE = vec3(Prs_E);
    const tervak::Vec3 prs0 = vec3(Prs_0);
    const tervak::Mat3 d3 = mat3(D3);
    tervak::Vec3 prs = vec3(Prs);
    int plast = *iPlast;
    tervak::CAP_plast(*iEl, *Int, *iElDbg, *IntDbg, *iArea, Props, prsE, prs, HardPar_E, HardPar,
                      plast, prs0, *IsUndr, d3, *R, *iModel);
    put(prs, Prs);
    *iPlast = plast;
}

TERVAK_API void mc_cap_plast_(int32_t* iEl, int32_t* Int, int32_t* iElDbg, int32_t* IntDbg,
                              int32_t* iArea, double* Props, double* Prs_E, double* Prs,
                              double* HardPar_E, double* HardPar, int32_t* iPlast,
                              double* Prs_0, double* D3, double* factor,
                              int32_t* iModel) noexcept {
    const tervak::Vec3 prsE = vec3(Prs_E);
    const tervak::Vec3 prs0 = vec3(Prs_0);
    const tervak::Mat3 d3 = mat3(D3);
    tervak::Vec3 prs = vec3(Prs);
    int plast = *iPlast;
    tervak::MC_CAP_plast(*iEl, *Int, *iElDbg, *IntDbg, *iArea, Props, prsE, prs, HardPar_E,
                         HardPar, plast, prs0, d3, *factor, *iModel);
    put(prs, Prs);
    *iPlast = plast;
}
