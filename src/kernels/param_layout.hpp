// Where the kernels find their parameters in Props, by model number.
// Models 1 and 3 share one Props layout, models 2 and 4 another; any other
// model number reads nothing (the value is 0).
#pragma once

#include <cstddef>

#include "models/parameters.hpp"
#include "toolkit/types.hpp"

namespace tervak::rm {

enum class Param {
    Eur_ref,    // reference unloading-reloading modulus
    m,          // stress exponent of the stiffness
    c,          // cohesion
    phi,        // friction angle, degrees
    psi,        // dilatancy angle, degrees
    pref,       // reference pressure
    K0,         // earth-pressure ratio in normal consolidation
    Rf,         // failure ratio
    T,          // tensile strength (the cut-off lies at a principal stress of -T)
    E_hyp,      // reference modulus of the hyperbola
    alpha,      // cap shape factor
    cap_ratio,  // cap stiffness ratio
};

// 1-based Props position of a parameter for a model number; 0 for a model
// number other than 1 to 4.
constexpr int param_pos(Param q, int iModel) {
    // Read from the models' own parameter tables, so the kernels and the
    // published metadata cannot drift apart.
    constexpr int odd[] = {m1::Eur_ref, m1::m,     m1::c,       m1::phi,
                           m1::psi,     m1::p_ref, m1::K0_nc,   m1::R_f,
                           m1::sigma_t, m1::Ei_ref, m1::alpha,  m1::beta};  // models 1, 3
    constexpr int even[] = {m2::Eur_ref, m2::m,     m2::c,       m2::phi,
                            m2::psi,     m2::p_ref, m2::K0_nc,   m2::R_f,
                            m2::sigma_t, m2::E50_ref, m2::alpha, m2::beta};  // models 2, 4
    const auto k = static_cast<std::size_t>(q);
    if (iModel == 1 || iModel == 3) return odd[k];
    if (iModel == 2 || iModel == 4) return even[k];
    return 0;
}

static_assert(param_pos(Param::Eur_ref, 1) == 3 && param_pos(Param::cap_ratio, 1) == 15 &&
              param_pos(Param::pref, 3) == 9 && param_pos(Param::E_hyp, 2) == 20 &&
              param_pos(Param::pref, 4) == 13 && param_pos(Param::cap_ratio, 2) == 22);

inline double param(Props P, int iModel, Param q) {
    const int pos = param_pos(q, iModel);
    return pos > 0 ? P(pos) : 0.0;
}

// Angles in Props are degrees; the library's own factor.
inline double radians(double degrees) { return degrees * kDegToRad; }

}  // namespace tervak::rm
