// The stress-point driver of every model: the trial stresses are tested
// against the shear-hardening surface, the Mohr-Coulomb face, the cap and the
// tension cut-off, and the matching return-mapping kernels are chained.
//
// What differs between the model families is data: a decision table (rows
// of "if this test holds, run this kernel and go to row `yes`, else go to
// row `no`"), the cap's extra tolerance, whether a near-isotropic cap return
// keeps its order, and the language of the messages. Every kernel starts
// from the trial stresses; a result that leaves the descending order is
// returned once more on the edge it crossed (area 2 or 3).
#pragma once

#include <cmath>
#include <string_view>

#include "kernels/kernels.hpp"
#include "toolkit/material.hpp"
#include "toolkit/types.hpp"

namespace tervak::sp {

// The texts of one kernel step: its message, the message with the area
// appended (empty when the step has none), and the labels of the returned
// stresses after the first and after the repeated call.
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

// The four surfaces, in the order their trial values are taken.
enum class Surface { HS = 0, MC = 1, CAP = 2, TRAC = 3 };

enum class Kernel { None, HS, MC, TRAC, HS_TRAC, MC_TRAC, CAP, HS_CAP, MC_CAP };

// What a row tests: a surface at the current stresses (violated from its
// tolerance up), or the trial verdicts.
enum class Test {
    Always,
    Hs,
    Mc,
    Cap,
    Trac,
    TrialHs,
    TrialMc,
    TrialCap,
    TrialTrac,
    TrialHsNotTrac,  // shear hardening without the cut-off at the trial state
    TrialMcNotHs,    // Mohr-Coulomb without shear hardening at the trial state
};

inline constexpr int kEnd = -1;

struct Row {
    Test test;
    Kernel kernel;  // run when the test holds (None: only branch)
    int yes;        // next row when the test holds
    int no;         // next row otherwise
};

struct Table {
    const Row* rows;
    double capTolExtra;        // added to the cap's tolerance
    bool keepIsotropicCap;     // a cap return with |P1 - P3| <= 0.1 keeps its order
};

// The trial values, their tolerances |f| 1e-10 + 1e-10 (the cap's plus the
// table's extra) and verdicts, indexed by Surface.
struct Trial {
    double f[4] = {};
    double tol[4] = {};
    bool violated[4] = {};
    bool any() const { return violated[0] || violated[1] || violated[2] || violated[3]; }
};

// What the driver needs of the call besides the surfaces.
struct Context {
    KernelCall call;      // point, traced point, Prs_E, Prs_0, D3, HardPar_E, IsUndr, R
    const HsMaterial* mt;
    double* HardPar;      // the returned hardening pair
    int* iPlast;
    int unit;             // diagnostic unit: 1 or more prints
    const Messages* text;
};

inline double tolerance(double f) { return std::abs(f) * 1e-10 + 1e-10; }

// The trial values at Prs_E by the family's yield functions f(Surface, P).
template <class F>
Trial trial(const F& f, const Table& t, const Vec3& Prs_E) {
    Trial tr;
    for (int s = 0; s < 4; ++s) {
        tr.f[s] = f(static_cast<Surface>(s), Prs_E);
        tr.tol[s] = tolerance(tr.f[s]);
    }
    tr.tol[2] = tr.tol[2] + t.capTolExtra;
    for (int s = 0; s < 4; ++s) tr.violated[s] = tr.f[s] >= tr.tol[s];
    return tr;
}

// One kernel step: area 1, the area correction and one repeat.
void step(const Context& c, const Table& t, Kernel k, Vec3& Prs);
// The elastic message at the traced point.
void note(const Context& c, std::string_view text);

// Runs the table from row 0. Returns false (after the elastic message) when
// no surface is violated at the trial state; Prs then holds Prs_E.
template <class F>
bool run(const F& f, const Table& t, const Trial& tr, const Context& c, Vec3& Prs) {
    Prs = c.call.Prs_E;
    if (!tr.any()) {
        note(c, c.text->elastic);
        return false;
    }
    const auto holds = [&](Test test) {
        switch (test) {
            case Test::Always: return true;
            case Test::Hs: return f(Surface::HS, Prs) >= tr.tol[0];
            case Test::Mc: return f(Surface::MC, Prs) >= tr.tol[1];
            case Test::Cap: return f(Surface::CAP, Prs) >= tr.tol[2];
            case Test::Trac: return f(Surface::TRAC, Prs) >= tr.tol[3];
            case Test::TrialHs: return tr.violated[0];
            case Test::TrialMc: return tr.violated[1];
            case Test::TrialCap: return tr.violated[2];
            case Test::TrialTrac: return tr.violated[3];
            case Test::TrialHsNotTrac: return tr.violated[0] && !tr.violated[3];
            case Test::TrialMcNotHs: return !tr.violated[0] && tr.violated[1];
        }
        return false;
    };
    for (int i = 0; i != kEnd;) {
        const Row& r = t.rows[i];
        if (!holds(r.test)) {
            i = r.no;
            continue;
        }
        if (r.kernel != Kernel::None) step(c, t, r.kernel, Prs);
        i = r.yes;
    }
    return true;
}

// Models 1 and 3: the first violated trial surface (shear hardening,
// Mohr-Coulomb, cut-off, cap) decides where the chain starts; the cut-off,
// then the cap follow; a cap entered from the trial state alone tests both
// shear surfaces after its return. A near-isotropic cap return keeps its
// order.
extern const Table kHardeningSoil;
// Models 2 and 4: shear surfaces first (shear hardening with the cut-off
// goes to the combined kernel), then the cut-off alone or with the shear
// surfaces, then the cap; the cap's tolerance carries 0.001 more.
extern const Table kSmallStrain;

}  // namespace tervak::sp
