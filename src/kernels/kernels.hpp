// Return-mapping kernels in principal-stress space (compression positive,
// Prs(1) >= Prs(2) >= Prs(3)). Kernels own nothing: each receives the call
// record and the material of the call, starts from the trial stresses
// Prs_E, writes the returned triple, the hardening pair and the plasticity
// code, and returns an outcome record (passes, multipliers, verdict) that the
// traced point's verdict line is written from.
//
// HardPar_E / HardPar point at the host's state arrays (at least two values:
// gamma_p, and the cap pressure stored negative); they may be the same array.
#pragma once

#include "toolkit/material.hpp"
#include "toolkit/types.hpp"

namespace tervak {

// What one kernel call reads besides the material.
struct KernelCall {
    int iEl = 0;  // the point
    int Int = 0;
    int iElDbg = 0;  // the traced point
    int IntDbg = 0;
    int iArea = 1;   // 1 a face, 2 and 3 an edge
    Vec3 Prs_E;      // trial stresses
    Vec3 Prs_0;      // stresses at the start of the step
    Mat3 D3;         // principal elastic matrix
    const double* HardPar_E = nullptr;
    int IsUndr = 0;
    double R = 1.0;  // ratio of the hardening factor (MC_CAP_plast: its factor)

    bool traced() const { return iEl == iElDbg && Int == IntDbg; }
};

// What a kernel call did.
struct KernelOutcome {
    int it = 0;               // correction passes done
    int nLam = 0;             // multipliers of the area
    double xLam[3] = {};      // in the order of the area's surfaces
    double pc = 0.0;          // trial cap pressure at the end (cap kernels)
    bool ok = false;          // "Return Mapping Ok!" as the traced point would say
    bool early_exit = false;  // a low-mean-stress exit handed back the trial state
};

// The outputs of a kernel call.
struct KernelOut {
    Vec3& Prs;
    double* HardPar;
    int& iPlast;  // HS_CAP_plast_it: iRes
};

// Mohr-Coulomb family.
KernelOutcome MC_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out);
KernelOutcome TRAC_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out);
KernelOutcome MC_TRAC_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out);

// Shear-hardening family and the cap.
KernelOutcome HS_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out);
KernelOutcome HS_TRAC_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out);
KernelOutcome HS_CAP_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out);
KernelOutcome CAP_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out);
KernelOutcome MC_CAP_plast(const KernelCall& k, const HsMaterial& mt, const KernelOut& out);

// Silent shear-hardening-with-cap return used by the calibration (its own
// elastic matrix, no trace); out.iPlast receives iRes.
KernelOutcome HS_CAP_plast_it(const KernelCall& k, const HsMaterial& mt, const KernelOut& out);

}  // namespace tervak
