// The hardening-soil model shared by models 1 and 3: one implementation of
// the task answers and the stress-point algorithm, configured by a variant
// (stiffness option, kernel trace point, debug rule, message language and
// the extra diagnostics of model 3).
#pragma once

#include <string_view>

#include "models/models.hpp"
#include "models/stress_point.hpp"

namespace tervak::hs {

struct Variant {
    int option;          // option of Matriz3/Matriz6 and the kernels' model number
    int iElDbg;          // the kernels' trace point
    int IntDbg;
    bool debugAlways;    // diagnostics on every call (else only element 487, point 3)
    bool headerTime;     // the header line carries "Time0:"
    bool extraValues;    // the list of intermediate values after the yield values
    const sp::Messages* text;
    void (*calibrate)(double* Props, int option);  // task 7; nullptr: nothing
};

// Answers one call of the host for the given variant.
void hardening_soil(const ModelArgs& a, const Variant& v);

// The task answers, exposed for the benchmarks and tests.
void initial_state(const ModelArgs& a, const Variant& v);     // task 1
void elastic_stiffness(const ModelArgs& a, const Variant& v);  // tasks 3 and 6
void stress_task(const ModelArgs& a, const Variant& v);        // task 2

}  // namespace tervak::hs
