// The volumetric cap in principal-stress space (compression positive),
// shared by the cap kernels: CAP_plast, MC_CAP_plast and HS_CAP_plast.
//
//   p   = (P(1) + P(2) + P(3)) / 3
//   qt  = P(1) + (delta - 1) P(2) - delta P(3),  taken as 0 below 0.001
//   f_cap = qt^2 / alpha^2 + p^2 - pc^2
//
// with delta = (3 + sin phi) / (3 - sin phi), pc the cap pressure (positive
// here, stored negative in the hardening pair) and alpha the cap shape.
// The flow is associated; the cap hardens through xh_cap = d pc / d xLam_cap.
#pragma once

#include "toolkit/types.hpp"

namespace tervak {

// Deviators below this value count as zero in every cap evaluation.
inline constexpr double kCapQtFloor = 0.001;

// Cap data of one model, read from Props once per kernel call.
struct CapParams {
    int iModel = 0;
    double sinphi = 0.0;
    double cosphi = 0.0;
    double delta = 0.0;   // (3 + sin phi) / (3 - sin phi)
    double alpha = 0.0;   // cap shape
    double alpha2 = 0.0;  // alpha * alpha
    double c = 0.0;       // cohesion
    double ccot = 0.0;    // c cos phi / sin phi
    double pref = 0.0;    // reference pressure
    double m = 0.0;       // stress exponent
    double Eur_ref = 0.0; // reference unloading-reloading modulus
    double Ei_ref = 0.0;  // reference modulus of the hyperbola
    double T = 0.0;       // tension value (positive tensile strength)
    double h = 1.0;       // hardening factor R^(Eur_ref / Ei_ref + 1.0)
};

// Reads the cap data for model iModel (1 to 4; any other number reads
// nothing and leaves zeros) and forms h from the factor R.
CapParams read_cap_params(Props props, int iModel, double R);

// delta = (3 + sin phi) / (3 - sin phi).
double cap_delta(double sinphi);

// Hardening factor h = R^(Eur_ref / Ei_ref + 1.0).
double cap_hardening_factor(double R, double Eur_ref, double Ei_ref);

// Mean stress (P(1) + P(2) + P(3)) / 3.
double cap_p(const Vec3& P);

// Cap deviator qt with the 0.001 floor applied.
double cap_qt(const Vec3& P, double delta);

// f_cap = qt^2 / alpha^2 + p^2 - pc^2 (qt already floored).
double f_cap(double qt, double p, double pc, double alpha2);

// Gradient (and flow direction): component i = 2 (p/3 + c_i qt / alpha^2),
// c = (1, delta - 1, -delta).
Vec3 df_capmdS(double qt, double p, double delta, double alpha2);

// Second derivatives H(i, j) = 2 (c_i c_j / alpha^2 + 1/9).
Mat3 cap_curvature(double delta, double alpha2);

// Derivative of f_cap with respect to the cap pressure.
inline double df_capmdq(double pc) { return -2.0 * pc; }

// Cap hardening modulus d pc / d xLam_cap by model number, at the mean
// stress p and cap pressure pc. ccot = c cos phi / sin phi (read by models
// 3 and 4), h the hardening factor (models 2 and 4). Other model numbers
// give 0.
//   1: 2 max(1,p) pref / Props(15) (max(1,pc)/pref)^m
//   2: 2 max(1,p) pref / Props(22) (max(1,pc)/pref)^m h
//   3: 2 (Props(3)/(3 (1 - 2 Props(8)))) / (Props(15) - 1) max(1,p)
//        (max(ccot + pc, 1) / (ccot + pref))^m
//   4: 2 (Props(1)/(1 - Props(7))) / (Props(22) - 1) max(1,p)
//        (max(ccot + pc, 1) / (ccot + pref))^m h
double xh_cap(int iModel, Props props, double p, double pc, double ccot, double h);

// Same, with the data already read.
inline double xh_cap(Props props, const CapParams& cp, double p, double pc) {
    return xh_cap(cp.iModel, props, p, pc, cp.ccot, cp.h);
}

}  // namespace tervak
