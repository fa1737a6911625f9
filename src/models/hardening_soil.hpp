// The hardening-soil model shared by models 1 and 3: one implementation of
// the task answers and the stress-point algorithm, configured by a variant
// (stiffness option, kernel trace point, debug rule, message language and
// the extra diagnostics of model 3).
#pragma once

#include <string_view>

#include "models/models.hpp"

namespace tervak::hs {

// The texts of one step of the kernel chain: its message, the message with
// the area appended (empty when the step has none), and the labels of the
// returned stresses after the first and after the repeated call.
struct StepTexts {
    std::string_view message;
    std::string_view area2;
    std::string_view area3;
    std::string_view label;
    std::string_view labelRepeat;
};

// One language of the stress task's messages.
struct Messages {
    std::string_view elastic;
    StepTexts hs;       // shear hardening alone
    StepTexts mc;       // Mohr-Coulomb alone
    StepTexts trac;     // tension cut-off alone
    StepTexts hs_trac;  // shear hardening and tension cut-off
    StepTexts mc_trac;  // Mohr-Coulomb and tension cut-off
    StepTexts cap;      // cap alone
    StepTexts hs_cap;   // shear hardening and cap
    StepTexts mc_cap;   // Mohr-Coulomb and cap
    std::string_view finalStress;  // empty: no final-stress line
};

extern const Messages kEnglish;
extern const Messages kSpanish;

struct Variant {
    int option;          // option of Matriz3/Matriz6 and the kernels' model number
    int iElDbg;          // the kernels' trace point
    int IntDbg;
    bool debugAlways;    // diagnostics on every call (else only element 487, point 3)
    bool headerTime;     // the header line carries "Time0:"
    bool extraValues;    // the list of intermediate values after the yield values
    const Messages* text;
    void (*calibrate)(double* Props, int option);  // task 7; nullptr: nothing
};

// Answers one call of the host for the given variant.
void hardening_soil(const ModelArgs& a, const Variant& v);

// The task answers, exposed for the benchmarks and tests.
void initial_state(const ModelArgs& a, const Variant& v);     // task 1
void elastic_stiffness(const ModelArgs& a, const Variant& v);  // tasks 3 and 6
void stress_task(const ModelArgs& a, const Variant& v);        // task 2

}  // namespace tervak::hs
