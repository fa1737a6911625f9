// Hardening soil with small-strain stiffness and a memory of strain
// reversals: the frame shared by models 2 and 4 (parameters, 62 state
// variables, task answers), the small-strain stiffness of a step and the
// stress-point algorithm that runs the return-mapping kernels.
//
// Model 4 is model 2 with a handful of settled differences; both are this
// one implementation, configured by a Variant.
#pragma once

#include <string_view>

#include "models/models.hpp"
#include "models/parameters.hpp"
#include "toolkit/material.hpp"
#include "toolkit/types.hpp"
#include "toolkit/writers.hpp"

namespace tervak::ss {

// The settled differences between model 2 and model 4.
struct Variant {
    int iModel;               // model number handed to the kernels
    double gammaFloor;        // task 1: floor of the mobilised plastic shear strain
    double capCeiling;        // task 1: the stored cap pressure is at most this
    bool boundedBookkeeping;  // reference-modulus bookkeeping of state variables 52 and 62
    bool guardedMemory;       // the further 1e-10 tests of the reversal memory
};

inline constexpr Variant kModel2{2, 1e-10, -1.0, false, false};
inline constexpr Variant kModel4{4, 1e-08, -10.0, true, true};

// The one stress point that prints diagnostics (also the kernels' trace point).
inline constexpr int kElDbg = 11;
inline constexpr int kIntDbg = 4;

// The writers on the diagnostic unit io, called only at the printing point
// (io >= 1): elsewhere not even the call is made.
inline void trace(int io, std::string_view label, double x) {
    if (io >= 1) wrival(io, label, x);
}
inline void trace(int io, std::string_view label, int k) {
    if (io >= 1) wriivl(io, label, k);
}
inline void trace(int io, std::string_view label, const double* v, int n) {
    if (io >= 1) wrivec(io, label, v, n);
}

inline constexpr int kNStat = m2::sv::nStat;

// The address of a 1-based position of a state array, the start of a
// six-component group or of the memory levels (e.g. at(sv, m2::sv::eps)).
constexpr double* at(double* sv, int pos) { return sv + (pos - 1); }
constexpr const double* at(const double* sv, int pos) { return sv + (pos - 1); }

// Norm of a deviatoric strain vector to octahedral shear strain (2/sqrt(3)).
inline constexpr double kOct = 1.1547005383792515;

// What every routine of a stress point needs to know of the call.
struct Point {
    const double* Props;
    const HsMaterial* mt;  // the material of the call
    int iEl;
    int Int;
    int iTer;
    int IsUndr;
    int io;  // diagnostic unit: 6 at the printing point, -1 elsewhere
    const Variant* var;
};

// The deviatoric part of a strain increment and the norms of both parts,
// when the caller has them already (known); otherwise they are computed
// from the increment.
struct Norms {
    Vec6 de;          // deviatoric part
    double nde = 0.0;  // its norm
    double nd = 0.0;   // norm of the whole increment
    bool known = false;
};

// What a sub-increment leaves to the next: the strain since the reversal at
// its end and the norm of the history vector it stored, which the next one
// would compute again from the same state. Not valid after a cycle closure
// (it rewrites the history and the reversal strains) nor for the first.
struct Carry {
    bool valid = false;
    Vec6 e;            // deviatoric part of the accumulated strain
    Vec6 rel;          // e less the reversal strain
    double nrel = 0.0;  // norm of rel
    double h = 0.0;     // norm of the history vector
};

// The stiffness of one sub-increment, as the elastic predictor uses it.
struct Stiffness {
    double K = 0.0;              // bulk modulus of the elastic matrix
    double G = 0.0;              // shear modulus of the elastic matrix
    double dK = 0.0;             // secant update of the bulk modulus (0 in a linear step)
    double dG = 0.0;             // secant update of the shear modulus (0 in a linear step)
    int npi = 1;                 // 1 linear, 0 non-linear
    bool real = false;           // a deviatoric increment large enough for the memory
    double gamma_alfa_ur = 0.0;  // cut-off strain of the step
    Vec6 e_new;                  // deviatoric strain at the end of the increment
    Vec6 rel;                    // deviatoric strain since the reversal, end of the increment
    double nrel = 0.0;           // its norm
    double h = 0.0;              // norm of the history vector stored
};

// Deviatoric part of a strain vector (normal entries less a third of the
// volumetric strain; shear entries as they are).
Vec6 deviatoric(const double* e);

// Small-strain stiffness of one sub-increment (strain measures, history,
// change of G0, reference-modulus bookkeeping, choice of law, npi, new
// cycle). Reads the start state sv0, writes the step's state sv (positions
// 3 to 15, 22 to 62). p is the floored mean stress, p_raw the unfloored one;
// n holds the norms of dEps when the caller knows them, c what the previous
// sub-increment left.
Stiffness small_strain_stiffness(const Point& pt, double p, double p_raw, const double* dEps,
                                 const Norms& n, const Carry& c, const double* sv0, double* sv);

// Cycle closure at the end of a sub-increment: tests the stored levels
// against the strain travelled since the reversal, restores the history
// and the reversal strains of a closed cycle and pops its levels. True when
// a cycle closed.
bool cycle_closure(const Point& pt, const Stiffness& st, double* sv);

// The return mapping of one trial state: yield tests, kernel chain, area
// correction, the kernels' D3 from the moduli K and G of the trial. sv0 holds
// the hardening pair of the start, sv receives the returned one; iPlast is
// written when a kernel runs (0 when elastic).
void stress_point(const Point& pt, const Vec3& Prs_0, const Vec3& Prs_E, Vec3& Prs,
                  const double* sv0, double* sv, int& iPlast, double K, double G, double R);

// The host's call for model 2 or 4.
void small_strain_model(const ModelArgs& a, const Variant& v);

// Task answers, exposed for tests and benchmarks.
void initial_state(const ModelArgs& a, const Variant& v);     // task 1
void elastic_stiffness(const ModelArgs& a, const Variant& v);  // tasks 3 and 6
void stress_task(const ModelArgs& a, const Variant& v);        // task 2

}  // namespace tervak::ss
