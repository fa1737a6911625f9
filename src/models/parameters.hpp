// The parameter and state-variable tables of the four models: one table per
// model (models 3 and 4 derive theirs from models 1 and 2), the single source of the counts, names and units that hosts read
// through the companion routines (GetParamCount, GetParamName, ...), of the
// parameter tables in the README, and of the named positions the model code
// reads Props and StVar with.
//
// Positions are 1-based, as the host numbers them. A position a model does
// not read is still listed (as "reserved_<n>") so that the counts equal the
// length of the array the host must pass.
#pragma once

#include <array>
#include <cstddef>
#include <limits>
#include <span>
#include <string_view>

namespace tervak::params {

inline constexpr double kInf = std::numeric_limits<double>::infinity();

// A valid range as the laboratory knows it; infinite ends mean no limit,
// an open end excludes its value. `known` is false when no range is given.
struct Range {
    double lo = -kInf;
    double hi = kInf;
    bool lo_open = false;
    bool hi_open = false;
    bool known = false;

    constexpr bool contains(double x) const {
        if (!known) return true;
        if (x != x) return false;  // not a number
        if (lo_open ? !(x > lo) : !(x >= lo)) return false;
        if (hi_open ? !(x < hi) : !(x <= hi)) return false;
        return true;
    }
};

// Range shorthands: closed [a, b], open (a, b), and the half-open ones.
constexpr Range closed_range(double a, double b) { return {a, b, false, false, true}; }
constexpr Range open_range(double a, double b) { return {a, b, true, true, true}; }
constexpr Range lopen_range(double a, double b) { return {a, b, true, false, true}; }  // (a, b]
constexpr Range ropen_range(double a, double b) { return {a, b, false, true, true}; }  // [a, b)
inline constexpr Range kPositive = open_range(0.0, kInf);
inline constexpr Range kNonNegative = ropen_range(0.0, kInf);
inline constexpr Range kNoRange{};

// One position of Props or StVar.
struct Entry {
    int pos;                   // 1-based position
    std::string_view name;     // short name, a valid identifier
    std::string_view unit;     // F = force, L = length, T = time; "-" dimensionless
    std::string_view meaning;  // in plain words
    Range range = kNoRange;
};

// Units used in the tables.
inline constexpr std::string_view kStress = "F/L^2";
inline constexpr std::string_view kDeg = "deg";
inline constexpr std::string_view kDimless = "-";

inline constexpr std::string_view kReservedMeaning = "not read by this model";

// ---------------------------------------------------------------------------
// Hardening soil (model 1): 16 parameters.
inline constexpr std::array<Entry, 16> kHsProps{{
    {1, "E50_ref", kStress,
     "reference secant stiffness at half the failure deviator in drained triaxial compression "
     "(the target of the calibration)",
     kPositive},
    {2, "Eoed_ref", kStress,
     "reference oedometric tangent stiffness (read by the calibration, which reports its own "
     "value)",
     kPositive},
    {3, "Eur_ref", kStress, "reference unloading-reloading Young's modulus", kPositive},
    {4, "m", kDimless, "power of the stress dependency of stiffness", closed_range(0.0, 1.0)},
    {5, "c", kStress, "cohesion", kNonNegative},
    {6, "phi", kDeg, "friction angle", open_range(0.0, 90.0)},
    {7, "psi", kDeg, "dilatancy angle", ropen_range(0.0, 90.0)},
    {8, "nu_ur", kDimless, "Poisson's ratio for unloading-reloading", ropen_range(0.0, 0.5)},
    {9, "p_ref", kStress, "reference pressure of the stiffness laws", kPositive},
    {10, "K0_nc", kDimless,
     "coefficient of earth pressure at rest in normal consolidation (rewritten by the "
     "calibration)",
     lopen_range(0.0, 1.0)},
    {11, "R_f", kDimless, "failure ratio: the asymptotic deviator is the failure deviator over R_f",
     lopen_range(0.0, 1.0)},
    {12, "sigma_t", kStress,
     "tensile strength of the tension cut-off, also the floor of the minor principal stress in "
     "the stiffness and strength terms",
     kNonNegative},
    {13, "Ei_ref", kStress,
     "reference initial stiffness of the hyperbolic deviator-strain curve (rewritten by the "
     "calibration)",
     kPositive},
    {14, "alpha", kDimless, "cap shape factor", kPositive},
    {15, "beta", kDimless,
     "cap stiffness parameter: the cap hardening modulus is 2 p p_ref / beta (p_c / p_ref)^m",
     kPositive},
    {16, "OCR", kDimless,
     "ratio by which the initial vertical stress is scaled to give the preconsolidation state",
     ropen_range(1.0, kInf)},
}};

// A table with one entry replaced (at the entry's position).
template <std::size_t N>
constexpr std::array<Entry, N> with_entry(std::array<Entry, N> table, const Entry& e) {
    table[static_cast<std::size_t>(e.pos - 1)] = e;
    return table;
}

// Model 3 reads position 15 as a ratio of bulk moduli instead of beta: its
// cap hardening modulus is 2 Kur / (Kur_Kc - 1) p ((c cot(phi) + p_c) /
// (c cot(phi) + p_ref))^m with Kur = Eur_ref / (3 (1 - 2 nu_ur)).
inline constexpr std::array<Entry, 16> kHsDiagProps = with_entry(
    kHsProps, {15, "Kur_Kc", kDimless,
               "ratio of the unloading-reloading bulk modulus to the bulk modulus on primary "
               "loading of the cap (above 1)",
               open_range(1.0, kInf)});

// Hardening soil (models 1 and 3): 2 state variables.
inline constexpr std::array<Entry, 2> kHsState{{
    {1, "gamma_p", kDimless, "accumulated plastic shear strain, the shear-hardening parameter"},
    {2, "p_p", kStress,
     "preconsolidation pressure of the cap, stored with the host's sign (negative)"},
}};

// ---------------------------------------------------------------------------
// Hardening soil small strain (model 2): 25 parameters.
inline constexpr std::array<Entry, 25> kHssProps{{
    {1, "K_ref", kStress, "reference secant bulk modulus", kPositive},
    {2, "G0_ref", kStress,
     "reference small-strain shear modulus, upper bound of the current G0", kPositive},
    {3, "G0_min", kStress, "lower bound of the current small-strain shear modulus", kPositive},
    {4, "gamma_07", kDimless,
     "threshold shear strain of the hyperbolic degradation (the secant shear modulus is about "
     "0.7 G0 there)",
     kPositive},
    {5, "p_ref_K", kStress, "reference pressure of the bulk modulus law", kPositive},
    {6, "p_ref_G", kStress, "reference pressure of the shear modulus law", kPositive},
    {7, "m_K", kDimless, "exponent of the bulk modulus law", ropen_range(0.0, 1.0)},
    {8, "m_G", kDimless, "exponent of the shear modulus law", closed_range(0.0, 1.0)},
    {9, "reserved_9", kDimless, kReservedMeaning},
    {10, "reserved_10", kDimless, kReservedMeaning},
    {11, "Eur_ref", kStress, "reference unloading-reloading Young's modulus", kPositive},
    {12, "m", kDimless, "power of the stress dependency of the hardening-soil stiffness",
     closed_range(0.0, 1.0)},
    {13, "p_ref", kStress, "reference pressure of the hardening-soil stiffness", kPositive},
    {14, "c", kStress, "cohesion", kNonNegative},
    {15, "phi", kDeg, "friction angle", open_range(0.0, 90.0)},
    {16, "psi", kDeg, "dilatancy angle", ropen_range(0.0, 90.0)},
    {17, "K0_nc", kDimless, "coefficient of earth pressure at rest in normal consolidation",
     lopen_range(0.0, 1.0)},
    {18, "R_f", kDimless, "failure ratio: the asymptotic deviator is the failure deviator over R_f",
     lopen_range(0.0, 1.0)},
    {19, "sigma_t", kStress,
     "tensile strength of the tension cut-off, also a floor of the failure deviator",
     kNonNegative},
    {20, "E50_ref", kStress, "reference secant stiffness of the shear-hardening hyperbola",
     kPositive},
    {21, "alpha", kDimless, "cap shape factor", kPositive},
    {22, "beta", kDimless,
     "cap stiffness parameter: the cap hardening modulus is 2 p p_ref / beta (p_c / p_ref)^m",
     kPositive},
    {23, "nu_ur", kDimless, "Poisson's ratio for unloading-reloading", ropen_range(0.0, 0.5)},
    {24, "OCR", kDimless,
     "over-consolidation multiplier applied to the initial vertical stress",
     ropen_range(1.0, kInf)},
    {25, "reset", kDimless,
     "reset switch: exactly 1 clears the strain history when the state is initialised"},
}};

// Model 4 reads position 22 as a ratio of bulk moduli instead of beta: its
// cap hardening modulus is built from the tangent bulk modulus
// K_ref / (1 - m_K) divided by (Kt_Kc - 1).
inline constexpr std::array<Entry, 25> kHssVariantProps = with_entry(
    kHssProps, {22, "Kt_Kc", kDimless,
                "ratio of the tangent bulk modulus K_ref / (1 - m_K) to the bulk modulus on "
                "primary loading of the cap (above 1)",
                open_range(1.0, kInf)});

// Hardening soil small strain (models 2 and 4): 62 state variables.
inline constexpr std::array<Entry, 62> kHssState{{
    {1, "gamma_p", kDimless, "accumulated plastic shear strain, the shear-hardening parameter"},
    {2, "p_p", kStress,
     "preconsolidation pressure of the cap, stored with the host's sign (negative)"},
    {3, "G0", kStress, "current small-strain shear modulus at the reference pressure"},
    // Strain-history vector (deviatoric, engineering shear).
    {4, "H_xx", kDimless, "strain-history vector, xx"},
    {5, "H_yy", kDimless, "strain-history vector, yy"},
    {6, "H_zz", kDimless, "strain-history vector, zz"},
    {7, "H_xy", kDimless, "strain-history vector, xy"},
    {8, "H_yz", kDimless, "strain-history vector, yz"},
    {9, "H_zx", kDimless, "strain-history vector, zx"},
    // Accumulated total strain.
    {10, "eps_xx", kDimless, "accumulated total strain, xx"},
    {11, "eps_yy", kDimless, "accumulated total strain, yy"},
    {12, "eps_zz", kDimless, "accumulated total strain, zz"},
    {13, "eps_xy", kDimless, "accumulated total strain, xy"},
    {14, "eps_yz", kDimless, "accumulated total strain, yz"},
    {15, "eps_zx", kDimless, "accumulated total strain, zx"},
    // Accumulated elastic strain.
    {16, "eps_el_xx", kDimless, "accumulated elastic strain, xx"},
    {17, "eps_el_yy", kDimless, "accumulated elastic strain, yy"},
    {18, "eps_el_zz", kDimless, "accumulated elastic strain, zz"},
    {19, "eps_el_xy", kDimless, "accumulated elastic strain, xy"},
    {20, "eps_el_yz", kDimless, "accumulated elastic strain, yz"},
    {21, "eps_el_zx", kDimless, "accumulated elastic strain, zx"},
    // Deviatoric strain at the last reversal.
    {22, "eR1_xx", kDimless, "deviatoric strain at the last reversal, xx"},
    {23, "eR1_yy", kDimless, "deviatoric strain at the last reversal, yy"},
    {24, "eR1_zz", kDimless, "deviatoric strain at the last reversal, zz"},
    {25, "eR1_xy", kDimless, "deviatoric strain at the last reversal, xy"},
    {26, "eR1_yz", kDimless, "deviatoric strain at the last reversal, yz"},
    {27, "eR1_zx", kDimless, "deviatoric strain at the last reversal, zx"},
    // Deviatoric strain at the reversal before.
    {28, "eR2_xx", kDimless, "deviatoric strain at the reversal before the last, xx"},
    {29, "eR2_yy", kDimless, "deviatoric strain at the reversal before the last, yy"},
    {30, "eR2_zz", kDimless, "deviatoric strain at the reversal before the last, zz"},
    {31, "eR2_xy", kDimless, "deviatoric strain at the reversal before the last, xy"},
    {32, "eR2_yz", kDimless, "deviatoric strain at the reversal before the last, yz"},
    {33, "eR2_zx", kDimless, "deviatoric strain at the reversal before the last, zx"},
    // Reversal memory, six levels: history amplitude.
    {34, "xH_M_1", kDimless, "reversal memory level 1: history-strain amplitude"},
    {35, "xH_M_2", kDimless, "reversal memory level 2: history-strain amplitude"},
    {36, "xH_M_3", kDimless, "reversal memory level 3: history-strain amplitude"},
    {37, "xH_M_4", kDimless, "reversal memory level 4: history-strain amplitude"},
    {38, "xH_M_5", kDimless, "reversal memory level 5: history-strain amplitude"},
    {39, "xH_M_6", kDimless, "reversal memory level 6: history-strain amplitude"},
    // Reversal memory: octahedral strain amplitude.
    {40, "xE_M_1", kDimless, "reversal memory level 1: octahedral strain amplitude"},
    {41, "xE_M_2", kDimless, "reversal memory level 2: octahedral strain amplitude"},
    {42, "xE_M_3", kDimless, "reversal memory level 3: octahedral strain amplitude"},
    {43, "xE_M_4", kDimless, "reversal memory level 4: octahedral strain amplitude"},
    {44, "xE_M_5", kDimless, "reversal memory level 5: octahedral strain amplitude"},
    {45, "xE_M_6", kDimless, "reversal memory level 6: octahedral strain amplitude"},
    // Reversal memory: elastic strain amplitude.
    {46, "xE_e_M_1", kDimless, "reversal memory level 1: elastic strain amplitude"},
    {47, "xE_e_M_2", kDimless, "reversal memory level 2: elastic strain amplitude"},
    {48, "xE_e_M_3", kDimless, "reversal memory level 3: elastic strain amplitude"},
    {49, "xE_e_M_4", kDimless, "reversal memory level 4: elastic strain amplitude"},
    {50, "xE_e_M_5", kDimless, "reversal memory level 5: elastic strain amplitude"},
    {51, "xE_e_M_6", kDimless, "reversal memory level 6: elastic strain amplitude"},
    // Moduli bookkeeping (at the reference pressure unless observed).
    {52, "G_ref_min", kStress, "running minimum of the reference secant shear modulus"},
    {53, "G_ap_ref", kStress, "shear modulus applied in the last step over the stress factor"},
    {54, "Gs_H_ref", kStress, "secant shear modulus of the strain history over the stress factor"},
    {55, "Gt_ap_ref", kStress,
     "reference shear modulus applied in the last step, also the modulus of the stiffness "
     "tasks"},
    {56, "Gs_obs", kStress, "observed secant shear modulus of the point"},
    {57, "Gt_obs", kStress, "observed tangent shear modulus of the last step"},
    // Strain measures of the last step.
    {58, "gamma_oct_H", kDimless, "octahedral history strain, capped at the cut-off strain"},
    {59, "gamma_oct_DR", kDimless, "octahedral strain travelled since the last reversal"},
    {60, "cos_H", kDimless, "direction cosine between the strain increment and the strain history"},
    {61, "f_H", kDimless, "history factor"},
    {62, "G_ratio", kDimless,
     "applied secant shear modulus over the unloading-reloading one, capped at 10"},
}};

// ---------------------------------------------------------------------------
// The models as the host numbers them.
struct ModelInfo {
    int number;
    std::string_view name;     // shown by hosts, ASCII
    std::string_view summary;  // one sentence in plain words, without the full stop
    std::span<const Entry> props;
    std::span<const Entry> state;
};

inline constexpr int kModelCount = 4;

inline constexpr std::array<ModelInfo, kModelCount> kModels{{
    {1, "Hardening soil",
     "A hardening soil model: stress-dependent stiffness, shear hardening, Mohr-Coulomb failure, "
     "tension cut-off and cap",
     kHsProps, kHsState},
    {2, "Hardening soil small strain",
     "Model 1's plasticity with small-strain stiffness and a memory of strain reversals",
     kHssProps,
     kHssState},
    {3, "Hardening soil (full diagnostics)",
     "Model 1 writing every intermediate value of every stress point, with its own cap "
     "hardening law",
     kHsDiagProps, kHsState},
    {4, "Hardening soil small strain (variant)",
     "Model 2 with higher state floors, its own reference-modulus bookkeeping and its own cap "
     "hardening law",
     kHssVariantProps, kHssState},
}};

// The model of the host's number, or nullptr when there is none.
constexpr const ModelInfo* model(int iMod) {
    return (iMod >= 1 && iMod <= kModelCount) ? &kModels[static_cast<std::size_t>(iMod - 1)]
                                              : nullptr;
}

// The entry at a 1-based position of a table, or nullptr when outside it.
constexpr const Entry* at(std::span<const Entry> table, int pos) {
    return (pos >= 1 && static_cast<std::size_t>(pos) <= table.size())
               ? &table[static_cast<std::size_t>(pos - 1)]
               : nullptr;
}

// The position of a name in a table; a name that is not there does not
// compile where it is used in a constant expression.
consteval int position(std::span<const Entry> table, std::string_view name) {
    for (const Entry& e : table)
        if (e.name == name) return e.pos;
    throw "no such name in the table";
}

// ---------------------------------------------------------------------------
// Structural checks of the tables, made when anything includes this file.
namespace detail {

constexpr bool is_identifier(std::string_view s) {
    if (s.empty()) return false;
    for (std::size_t i = 0; i < s.size(); ++i) {
        const char c = s[i];
        const bool alpha = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
        const bool digit = c >= '0' && c <= '9';
        if (!(alpha || (digit && i > 0))) return false;
    }
    return true;
}

constexpr bool well_formed(std::span<const Entry> table) {
    for (std::size_t i = 0; i < table.size(); ++i) {
        const Entry& e = table[i];
        if (e.pos != static_cast<int>(i) + 1) return false;  // consecutive from 1
        if (!is_identifier(e.name) || e.name.size() > 32) return false;
        if (e.unit.empty() || e.meaning.empty()) return false;
        if (e.range.known && !(e.range.lo < e.range.hi)) return false;
        for (std::size_t j = 0; j < i; ++j)
            if (table[j].name == e.name) return false;  // unique
    }
    return true;
}

}  // namespace detail

static_assert(detail::well_formed(kHsProps));
static_assert(detail::well_formed(kHsState));
static_assert(detail::well_formed(kHssProps));
static_assert(detail::well_formed(kHssState));
static_assert(detail::well_formed(kHsDiagProps));
static_assert(detail::well_formed(kHssVariantProps));

}  // namespace tervak::params

// ---------------------------------------------------------------------------
// Named positions, derived from the tables, one namespace per model (m1 to
// m4); `sv` holds the state-variable positions (models 3 and 4 share those
// of models 1 and 2).
#define TERVAK_PROP(table, id) inline constexpr int id = ::tervak::params::position(table, #id)

// Positions that models 1 and 3 (and 2 and 4) read alike.
#define TERVAK_HS_PROPS(T)     \
    TERVAK_PROP(T, E50_ref);   \
    TERVAK_PROP(T, Eoed_ref);  \
    TERVAK_PROP(T, Eur_ref);   \
    TERVAK_PROP(T, m);         \
    TERVAK_PROP(T, c);         \
    TERVAK_PROP(T, phi);       \
    TERVAK_PROP(T, psi);       \
    TERVAK_PROP(T, nu_ur);     \
    TERVAK_PROP(T, p_ref);     \
    TERVAK_PROP(T, K0_nc);     \
    TERVAK_PROP(T, R_f);       \
    TERVAK_PROP(T, sigma_t);   \
    TERVAK_PROP(T, Ei_ref);    \
    TERVAK_PROP(T, alpha);     \
    TERVAK_PROP(T, OCR);       \
    inline constexpr int nProps = static_cast<int>(T.size())

#define TERVAK_HSS_PROPS(T)    \
    TERVAK_PROP(T, K_ref);     \
    TERVAK_PROP(T, G0_ref);    \
    TERVAK_PROP(T, G0_min);    \
    TERVAK_PROP(T, gamma_07);  \
    TERVAK_PROP(T, p_ref_K);   \
    TERVAK_PROP(T, p_ref_G);   \
    TERVAK_PROP(T, m_K);       \
    TERVAK_PROP(T, m_G);       \
    TERVAK_PROP(T, Eur_ref);   \
    TERVAK_PROP(T, m);         \
    TERVAK_PROP(T, p_ref);     \
    TERVAK_PROP(T, c);         \
    TERVAK_PROP(T, phi);       \
    TERVAK_PROP(T, psi);       \
    TERVAK_PROP(T, K0_nc);     \
    TERVAK_PROP(T, R_f);       \
    TERVAK_PROP(T, sigma_t);   \
    TERVAK_PROP(T, E50_ref);   \
    TERVAK_PROP(T, alpha);     \
    TERVAK_PROP(T, nu_ur);     \
    TERVAK_PROP(T, OCR);       \
    TERVAK_PROP(T, reset);     \
    inline constexpr int nProps = static_cast<int>(T.size())

namespace tervak::m1 {
TERVAK_HS_PROPS(params::kHsProps);
TERVAK_PROP(params::kHsProps, beta);
namespace sv {
TERVAK_PROP(params::kHsState, gamma_p);
TERVAK_PROP(params::kHsState, p_p);
inline constexpr int nStat = static_cast<int>(params::kHsState.size());
}  // namespace sv
}  // namespace tervak::m1

namespace tervak::m3 {
TERVAK_HS_PROPS(params::kHsDiagProps);
TERVAK_PROP(params::kHsDiagProps, Kur_Kc);
namespace sv = m1::sv;
}  // namespace tervak::m3

namespace tervak::m2 {
TERVAK_HSS_PROPS(params::kHssProps);
TERVAK_PROP(params::kHssProps, beta);
namespace sv {
TERVAK_PROP(params::kHssState, gamma_p);
TERVAK_PROP(params::kHssState, p_p);
TERVAK_PROP(params::kHssState, G0);
// First positions of the six-component vectors (xx, yy, zz, xy, yz, zx).
inline constexpr int H = params::position(params::kHssState, "H_xx");
inline constexpr int eps = params::position(params::kHssState, "eps_xx");
inline constexpr int eps_el = params::position(params::kHssState, "eps_el_xx");
inline constexpr int eR1 = params::position(params::kHssState, "eR1_xx");
inline constexpr int eR2 = params::position(params::kHssState, "eR2_xx");
// First positions of the six levels of the reversal memory.
inline constexpr int xH_M = params::position(params::kHssState, "xH_M_1");
inline constexpr int xE_M = params::position(params::kHssState, "xE_M_1");
inline constexpr int xE_e_M = params::position(params::kHssState, "xE_e_M_1");
inline constexpr int nLevels = xE_M - xH_M;
TERVAK_PROP(params::kHssState, G_ref_min);
TERVAK_PROP(params::kHssState, G_ap_ref);
TERVAK_PROP(params::kHssState, Gs_H_ref);
TERVAK_PROP(params::kHssState, Gt_ap_ref);
TERVAK_PROP(params::kHssState, Gs_obs);
TERVAK_PROP(params::kHssState, Gt_obs);
TERVAK_PROP(params::kHssState, gamma_oct_H);
TERVAK_PROP(params::kHssState, gamma_oct_DR);
TERVAK_PROP(params::kHssState, cos_H);
TERVAK_PROP(params::kHssState, f_H);
TERVAK_PROP(params::kHssState, G_ratio);
inline constexpr int nStat = static_cast<int>(params::kHssState.size());
}  // namespace sv
}  // namespace tervak::m2

namespace tervak::m4 {
TERVAK_HSS_PROPS(params::kHssVariantProps);
TERVAK_PROP(params::kHssVariantProps, Kt_Kc);
namespace sv = m2::sv;
}  // namespace tervak::m4

#undef TERVAK_HS_PROPS
#undef TERVAK_HSS_PROPS
#undef TERVAK_PROP

// The layout the host relies on, written out once more: reordering a table
// would silently move what the host passes, so it must not compile.
namespace tervak::params::detail {
static_assert(m1::E50_ref == 1 && m1::Eoed_ref == 2 && m1::Eur_ref == 3 && m1::m == 4);
static_assert(m1::c == 5 && m1::phi == 6 && m1::psi == 7 && m1::nu_ur == 8);
static_assert(m1::p_ref == 9 && m1::K0_nc == 10 && m1::R_f == 11 && m1::sigma_t == 12);
static_assert(m1::Ei_ref == 13 && m1::alpha == 14 && m1::beta == 15 && m1::OCR == 16);
static_assert(m1::nProps == 16 && m1::sv::gamma_p == 1 && m1::sv::p_p == 2 && m1::sv::nStat == 2);
static_assert(m2::K_ref == 1 && m2::G0_ref == 2 && m2::G0_min == 3 && m2::gamma_07 == 4);
static_assert(m2::p_ref_K == 5 && m2::p_ref_G == 6 && m2::m_K == 7 && m2::m_G == 8);
static_assert(m2::Eur_ref == 11 && m2::m == 12 && m2::p_ref == 13 && m2::c == 14);
static_assert(m2::phi == 15 && m2::psi == 16 && m2::K0_nc == 17 && m2::R_f == 18);
static_assert(m2::sigma_t == 19 && m2::E50_ref == 20 && m2::alpha == 21 && m2::beta == 22);
static_assert(m2::nu_ur == 23 && m2::OCR == 24 && m2::reset == 25 && m2::nProps == 25);
static_assert(m2::sv::gamma_p == 1 && m2::sv::p_p == 2 && m2::sv::G0 == 3 && m2::sv::H == 4);
static_assert(m2::sv::eps == 10 && m2::sv::eps_el == 16 && m2::sv::eR1 == 22 &&
              m2::sv::eR2 == 28);
static_assert(m2::sv::xH_M == 34 && m2::sv::xE_M == 40 && m2::sv::xE_e_M == 46 &&
              m2::sv::nLevels == 6);
static_assert(m2::sv::G_ref_min == 52 && m2::sv::G_ap_ref == 53 && m2::sv::Gs_H_ref == 54 &&
              m2::sv::Gt_ap_ref == 55 && m2::sv::Gs_obs == 56 && m2::sv::Gt_obs == 57);
static_assert(m3::E50_ref == 1 && m3::phi == 6 && m3::Kur_Kc == 15 && m3::OCR == 16 &&
              m3::nProps == 16 && m3::sv::nStat == 2);
static_assert(m4::K_ref == 1 && m4::phi == 15 && m4::Kt_Kc == 22 && m4::reset == 25 &&
              m4::nProps == 25 && m4::sv::nStat == 62);
static_assert(m2::sv::gamma_oct_H == 58 && m2::sv::gamma_oct_DR == 59 && m2::sv::cos_H == 60 &&
              m2::sv::f_H == 61 && m2::sv::G_ratio == 62 && m2::sv::nStat == 62);
}  // namespace tervak::params::detail
