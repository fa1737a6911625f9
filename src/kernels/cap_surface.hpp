// The volumetric cap in principal-stress space (compression positive),
// shared by the cap kernels: CAP_plast, MC_CAP_plast and HS_CAP_plast.
//
//   p   = (P(1) + P(2) + P(3)) / 3
//   qt  = P(1) + (delta - 1) P(2) - delta P(3)
//   f_cap = qt^2 / alpha^2 + p^2 - pc^2
//
// with delta = (3 + sin phi) / (3 - sin phi), pc the cap pressure (positive
// here, stored negative in the hardening pair) and alpha the cap shape; the
// laws themselves are the material's (toolkit/material.hpp). CAP_plast and
// MC_CAP_plast count deviators below 0.001 as zero; HS_CAP_plast does not.
// The flow is associated; the cap hardens through xh_cap = d pc / d xLam_cap.
#pragma once

#include "toolkit/material.hpp"
#include "toolkit/types.hpp"

namespace tervak {

// Deviators below this value count as zero in the floored cap.
inline constexpr double kCapQtFloor = 0.001;

// Cap data of one kernel call.
struct CapParams {
    double delta = 0.0;   // (3 + sin phi) / (3 - sin phi)
    double alpha2 = 0.0;  // alpha * alpha
    double T = 0.0;       // tension value (positive tensile strength)
    double h = 1.0;       // the hardening factor of the call
};

// The cap data of the material for the ratio R; a material that is not
// known leaves every value 0 and h = 1.
CapParams cap_params(const HsMaterial& mt, double R);

// Cap deviator qt with the 0.001 floor applied.
double cap_qt_floored(const Vec3& P, double delta);

// Gradient (and flow direction) of the floored cap: component i =
// 2 (p/3 + c_i qt / alpha^2), c = (1, delta - 1, -delta).
Vec3 df_capmdS(double qt, double p, double delta, double alpha2);

// Gradient of HS_CAP_plast's cap: component i = 2 c_i qt / alpha^2 + 2 p / 3.
Vec3 hs_df_capmdS(double qt, double p, double delta, double alpha2);

// Second derivatives H(i, j) = 2 (c_i c_j / alpha^2 + 1/9).
Mat3 cap_curvature(double delta, double alpha2);

// Derivative of f_cap with respect to the cap pressure.
inline double df_capmdq(double pc) { return -2.0 * pc; }

}  // namespace tervak
