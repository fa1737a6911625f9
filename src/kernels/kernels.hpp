// Return-mapping kernels in principal-stress space (compression positive,
// Prs(1) >= Prs(2) >= Prs(3)). Kernels own nothing: everything arrives by
// argument, every call starts from the trial stresses Prs_E.
//
// HardPar_E / HardPar point at the host's state arrays (at least two values:
// gamma_p, and the cap pressure stored negative).
#pragma once

#include "toolkit/types.hpp"

namespace tervak {

// Mohr-Coulomb family: 14 arguments.
void MC_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
              const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
              int& iPlast, const Vec3& Prs_0, const Mat3& D3, int iModel);
void TRAC_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
                const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                int& iPlast, const Vec3& Prs_0, const Mat3& D3, int iModel);
void MC_TRAC_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
                   const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                   int& iPlast, const Vec3& Prs_0, const Mat3& D3, int iModel);

// Shear-hardening family and the cap: 16 arguments.
void HS_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
              const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
              int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R, int iModel);
void HS_TRAC_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
                   const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                   int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R,
                   int iModel);
void HS_CAP_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
                  const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                  int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R,
                  int iModel);
void CAP_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
               const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
               int& iPlast, const Vec3& Prs_0, int IsUndr, const Mat3& D3, double R, int iModel);

// Mohr-Coulomb with cap: 15 arguments.
void MC_CAP_plast(int iEl, int Int, int iElDbg, int IntDbg, int iArea, const double* Props,
                  const Vec3& Prs_E, Vec3& Prs, const double* HardPar_E, double* HardPar,
                  int& iPlast, const Vec3& Prs_0, const Mat3& D3, double factor, int iModel);

// Silent shear-hardening-with-cap return used by the calibration: 9 arguments.
void HS_CAP_plast_it(int iArea, const double* Props, const Vec3& Prs_E, Vec3& Prs,
                     const double* HardPar_E, double* HardPar, int& iRes, const Vec3& Prs_0,
                     int iModel);

}  // namespace tervak
