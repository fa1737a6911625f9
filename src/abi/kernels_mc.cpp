// Exported Mohr-Coulomb family kernels: every argument by reference, the
// principal triples and D3 copied into the library's value types and back.
#include <cstring>

#include "abi/export.hpp"
#include "kernels/kernels.hpp"

namespace {

using tervak::Mat3;
using tervak::Vec3;

Vec3 load3(const double* p) {
    Vec3 v;
    std::memcpy(v.v, p, sizeof v.v);
    return v;
}

Mat3 load33(const double* p) {
    Mat3 m;
    std::memcpy(m.a, p, sizeof m.a);
    return m;
}

using Kernel14 = void (*)(int, int, int, int, int, const double*, const Vec3&, Vec3&,
                          const double*, double*, int&, const Vec3&, const Mat3&, int);

void call14(Kernel14 kernel, const int32_t* iEl, const int32_t* Int, const int32_t* iElDbg,
            const int32_t* IntDbg, const int32_t* iArea, const double* Props,
            const double* Prs_E, double* Prs, const double* HardPar_E, double* HardPar,
            int32_t* iPlast, const double* D3, const int32_t* iModel) {
    const Vec3 prs_e = load3(Prs_E);
    const Mat3 d3 = load33(D3);
    const Vec3 unused;  // argument 12 is not read by these kernels
    Vec3 prs = load3(Prs);
    int plast = *iPlast;
    kernel(*iEl, *Int, *iElDbg, *IntDbg, *iArea, Props, prs_e, prs, HardPar_E, HardPar, plast,
           unused, d3, *iModel);
    std::memcpy(Prs, prs.v, sizeof prs.v);
    *iPlast = plast;
}

}  // namespace

TERVAK_API void mc_plast_(const int32_t* iEl, const int32_t* Int, const int32_t* iElDbg,
                          const int32_t* IntDbg, const int32_t* iArea, const double* Props,
                          const double* Prs_E, double* Prs, const double* HardPar_E,
                          double* HardPar, int32_t* iPlast, const void* /*Prs_0*/,
                          const double* D3, const int32_t* iModel) noexcept {
    call14(tervak::MC_plast, iEl, Int, iElDbg, IntDbg, iArea, Props, Prs_E, Prs, HardPar_E,
           HardPar, iPlast, D3, iModel);
}

TERVAK_API void trac_plast_(const int32_t* iEl, const int32_t* Int, const int32_t* iElDbg,
                            const int32_t* IntDbg, const int32_t* iArea, const double* Props,
                            const double* Prs_E, double* Prs, const double* HardPar_E,
                            double* HardPar, int32_t* iPlast, const void* /*Prs_0*/,
                            const double* D3, const int32_t* iModel) noexcept {
    call14(tervak::TRAC_plast, iEl, Int, iElDbg, IntDbg, iArea, Props, Prs_E, Prs, HardPar_E,
           HardPar, iPlast, D3, iModel);
}

TERVAK_API void mc_trac_plast_(const int32_t* iEl, const int32_t* Int, const int32_t* iElDbg,
                               const int32_t* IntDbg, const int32_t* iArea, const double* Props,
                               const double* Prs_E, double* Prs, const double* HardPar_E,
                               double* HardPar, int32_t* iPlast, const void* /*Prs_0*/,
                               const double* D3, const int32_t* iModel) noexcept {
    call14(tervak::MC_TRAC_plast, iEl, Int, iElDbg, IntDbg, iArea, Props, Prs_E, Prs,
           HardPar_E, HardPar, iPlast, D3, iModel);
}
