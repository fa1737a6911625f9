// The stress-point driver's steps, its decision tables and its messages.
#include "models/stress_point.hpp"

#include "toolkit/records.hpp"
#include "toolkit/writers.hpp"

namespace tervak::sp {

// ---------------------------------------------------------------------------
// Message tables. A step's texts are its message, the message with ", AREA=2"
// and ", AREA=3" appended, and the two labels of the returned stresses.

#define TERVAK_STEP(POINT, SURF, PRS, X)                                                  \
    StepTexts {                                                                           \
        POINT SURF, POINT SURF ", AREA=2", POINT SURF ", AREA=3", PRS X, PRS X ", AREA 2,3" \
    }
// One language: the elastic message, the words before a surface and before
// the returned stresses, the conjunction, and the final-stress line. The
// tension step's area-3 message names f12, Mohr-Coulomb with tension has no
// area-2 message, and "HS Y TRAC" keeps its capital Y in both languages:
// those are their texts.
#define TERVAK_MESSAGES(ELASTIC, POINT, PRS, AND, FINAL)                                   \
    Messages {                                                                             \
        ELASTIC, TERVAK_STEP(POINT, "f13_hs", PRS, "HS"),                                  \
            TERVAK_STEP(POINT, "f13_mc", PRS, "MC"),                                       \
            StepTexts{POINT "f13_trac", POINT "f13_trac, AREA=2", POINT "f12, AREA=3",     \
                      PRS "TRAC", PRS "TRAC, AREA 2,3"},                                   \
            TERVAK_STEP(POINT, "f13_hs " AND " f13_trac", PRS, "HS Y TRAC"),               \
            StepTexts{POINT "f13_mc " AND " f13_trac", "",                                 \
                      POINT "f13_mc " AND " f13_trac, AREA=3", PRS "MC " AND " TRAC",      \
                      PRS "MC " AND " TRAC, AREA 2,3"},                                    \
            TERVAK_STEP(POINT, "f_cap", PRS, "CAP"),                                       \
            TERVAK_STEP(POINT, "f13_hs " AND " f_cap", PRS, "HS " AND " CAP"),             \
            TERVAK_STEP(POINT, "f13_mc " AND " f_cap", PRS, "MC " AND " CAP"), FINAL       \
    }

const Messages kEnglish = TERVAK_MESSAGES(
    "ELASTIC CALCULATION STEP, WITHIN f13_hs, f13_mc, f_cap and f13_trac", "POINT OUT OF ",
    "Prs AFTER RETURN MAPPING IN ", "and", "");

const Messages kSpanish = TERVAK_MESSAGES(
    "PASO DE CÁLCULO ELÁSTICO, DENTRO DE f13_hs, f13_mc, f_cap y f13_trac", "PUNTO FUERA DE ",
    "Prs TRAS RETURN MAPPING EN ", "y", "Las tensiones ppales al final de este paso de cálculo son Prs=");

#undef TERVAK_MESSAGES
#undef TERVAK_STEP

// ---------------------------------------------------------------------------
// Decision tables.

namespace {

using K = Kernel;
using T = Test;

constexpr Row kHsRows[] = {
    /* 0 */ {T::TrialHs, K::HS, 1, 2},
    /* 1 */ {T::Mc, K::MC, 5, 5},
    /* 2 */ {T::TrialMc, K::MC, 5, 3},
    /* 3 */ {T::TrialTrac, K::None, 5, 4},
    /* 4 cap alone at the trial state */ {T::TrialCap, K::CAP, 11, kEnd},
    /* 5 cut-off */ {T::Trac, K::TRAC, 6, 8},
    /* 6 */ {T::Hs, K::HS_TRAC, 7, 8},
    /* 7 */ {T::Mc, K::MC_TRAC, 8, 8},
    /* 8 cap after the shear or cut-off returns */ {T::Cap, K::CAP, 9, kEnd},
    /* 9 */ {T::Hs, K::HS_CAP, 10, kEnd},
    /* 10 */ {T::Mc, K::MC_CAP, kEnd, kEnd},
    /* 11 after a cap entered alone: both shear tests */ {T::Hs, K::HS_CAP, 12, 12},
    /* 12 */ {T::Mc, K::MC_CAP, kEnd, kEnd},
};

constexpr Row kSsRows[] = {
    /* 0 */ {T::TrialHsNotTrac, K::HS, 1, 2},
    /* 1 */ {T::Mc, K::MC, 3, 3},
    /* 2 */ {T::TrialMcNotHs, K::MC, 3, 3},
    /* 3 cut-off */ {T::Trac, K::None, 4, 11},
    /* 4 with shear hardening? */ {T::TrialHs, K::None, 8, 5},
    /* 5 */ {T::Hs, K::None, 8, 6},
    /* 6 the cut-off alone */ {T::Always, K::TRAC, 7, 7},
    /* 7 */ {T::Hs, K::None, 8, 10},
    /* 8 with shear hardening */ {T::Always, K::HS_TRAC, 9, 9},
    /* 9 */ {T::Mc, K::MC_TRAC, 11, 11},
    /* 10 */ {T::Mc, K::MC_TRAC, 11, 11},
    /* 11 cap */ {T::Cap, K::CAP, 12, kEnd},
    /* 12 */ {T::Hs, K::HS_CAP, 13, 13},
    /* 13 */ {T::Mc, K::MC_CAP, kEnd, kEnd},
};

const StepTexts& texts_of(const Messages& m, Kernel k) {
    switch (k) {
        case K::MC: return m.mc;
        case K::TRAC: return m.trac;
        case K::HS_TRAC: return m.hs_trac;
        case K::MC_TRAC: return m.mc_trac;
        case K::CAP: return m.cap;
        case K::HS_CAP: return m.hs_cap;
        case K::MC_CAP: return m.mc_cap;
        case K::None:
        case K::HS: break;
    }
    return m.hs;
}

using KernelFn = KernelOutcome (*)(const KernelCall&, const HsMaterial&, const KernelOut&);

KernelFn kernel_of(Kernel k) {
    switch (k) {
        case K::MC: return &MC_plast;
        case K::TRAC: return &TRAC_plast;
        case K::HS_TRAC: return &HS_TRAC_plast;
        case K::MC_TRAC: return &MC_TRAC_plast;
        case K::CAP: return &CAP_plast;
        case K::HS_CAP: return &HS_CAP_plast;
        case K::MC_CAP: return &MC_CAP_plast;
        case K::None:
        case K::HS: break;
    }
    return &HS_plast;
}

// The area after an area-1 return, with its message: 2 when the minor stress
// passed the intermediate one, 3 when the major one fell below it.
int area_after(const Context& c, const StepTexts& t, const Vec3& Prs) {
    int iArea = 1;
    if (Prs(3) > Prs(2)) {
        iArea = 2;
        note(c, t.area2);
        if (Prs(1) < Prs(2)) {
            iArea = 3;
            note(c, t.area3);
        }
    } else if (Prs(1) < Prs(2)) {
        iArea = 3;
        note(c, t.area3);
    }
    return iArea;
}

}  // namespace

const Table kHardeningSoil{kHsRows, 0.0, true};
const Table kSmallStrain{kSsRows, 0.001, false};

void note(const Context& c, std::string_view text) {
    if (c.unit >= 1 && !text.empty()) say(text);
}

void step(const Context& c, const Table& t, Kernel k, Vec3& Prs) {
    const StepTexts& tx = texts_of(*c.text, k);
    const KernelFn kernel = kernel_of(k);
    note(c, tx.message);
    KernelCall call = c.call;
    call.iArea = 1;
    kernel(call, *c.mt, KernelOut{Prs, c.HardPar, *c.iPlast});
    wrivec(c.unit, tx.label, Prs.data(), 3);
    if (k == K::CAP && t.keepIsotropicCap && !(std::abs(Prs(1) - Prs(3)) > 0.1)) return;
    call.iArea = area_after(c, tx, Prs);
    if (call.iArea == 1) return;
    kernel(call, *c.mt, KernelOut{Prs, c.HardPar, *c.iPlast});
    wrivec(c.unit, tx.labelRepeat, Prs.data(), 3);
}

}  // namespace tervak::sp
