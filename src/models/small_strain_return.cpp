// The stress-point algorithm of models 2 and 4: the trial principal
// stresses are tested against the shear-hardening surface, the
// Mohr-Coulomb face, the tension cut-off and the cap, and the matching
// return-mapping kernels are chained. Every kernel starts from the trial
// stresses; a result that leaves the descending order is repeated once with
// the edge area 2 or 3.
#include <algorithm>
#include <cmath>
#include <string_view>

#include "kernels/kernels.hpp"
#include "models/parameters.hpp"
#include "models/small_strain.hpp"
#include "toolkit/records.hpp"
#include "toolkit/writers.hpp"

namespace tervak::ss {

namespace {

using View = tervak::Props;

// The texts of one kernel step: its message, the area messages (empty: none)
// and the labels of the returned stresses after the first and the repeated
// call.
struct StepTexts {
    std::string_view message;
    std::string_view area2;
    std::string_view area3;
    std::string_view label;
    std::string_view labelRepeat;
};

constexpr StepTexts kHS{"PUNTO FUERA DE f13_hs", "PUNTO FUERA DE f13_hs, AREA=2",
                        "PUNTO FUERA DE f13_hs, AREA=3", "Prs TRAS RETURN MAPPING EN HS",
                        "Prs TRAS RETURN MAPPING EN HS, AREA 2,3"};
constexpr StepTexts kMC{"PUNTO FUERA DE f13_mc", "PUNTO FUERA DE f13_mc, AREA=2",
                        "PUNTO FUERA DE f13_mc, AREA=3", "Prs TRAS RETURN MAPPING EN MC",
                        "Prs TRAS RETURN MAPPING EN MC, AREA 2,3"};
// The tension step's area-3 message names f12; that is its text.
constexpr StepTexts kTRAC{"PUNTO FUERA DE f13_trac", "PUNTO FUERA DE f13_trac, AREA=2",
                          "PUNTO FUERA DE f12, AREA=3", "Prs TRAS RETURN MAPPING EN TRAC",
                          "Prs TRAS RETURN MAPPING EN TRAC, AREA 2,3"};
constexpr StepTexts kHS_TRAC{"PUNTO FUERA DE f13_hs y f13_trac",
                             "PUNTO FUERA DE f13_hs y f13_trac, AREA=2",
                             "PUNTO FUERA DE f13_hs y f13_trac, AREA=3",
                             "Prs TRAS RETURN MAPPING EN HS Y TRAC",
                             "Prs TRAS RETURN MAPPING EN HS Y TRAC, AREA 2,3"};
// Mohr-Coulomb with tension has no area-2 message.
constexpr StepTexts kMC_TRAC{"PUNTO FUERA DE f13_mc y f13_trac", "",
                             "PUNTO FUERA DE f13_mc y f13_trac, AREA=3",
                             "Prs TRAS RETURN MAPPING EN MC y TRAC",
                             "Prs TRAS RETURN MAPPING EN MC y TRAC, AREA 2,3"};
constexpr StepTexts kCAP{"PUNTO FUERA DE f_cap", "PUNTO FUERA DE f_cap, AREA=2",
                         "PUNTO FUERA DE f_cap, AREA=3", "Prs TRAS RETURN MAPPING EN CAP",
                         "Prs TRAS RETURN MAPPING EN CAP, AREA 2,3"};
constexpr StepTexts kHS_CAP{"PUNTO FUERA DE f13_hs y f_cap", "PUNTO FUERA DE f13_hs y f_cap, AREA=2",
                            "PUNTO FUERA DE f13_hs y f_cap, AREA=3",
                            "Prs TRAS RETURN MAPPING EN HS y CAP",
                            "Prs TRAS RETURN MAPPING EN HS y CAP, AREA 2,3"};
constexpr StepTexts kMC_CAP{"PUNTO FUERA DE f13_mc y f_cap", "PUNTO FUERA DE f13_mc y f_cap, AREA=2",
                            "PUNTO FUERA DE f13_mc y f_cap, AREA=3",
                            "Prs TRAS RETURN MAPPING EN MC y CAP",
                            "Prs TRAS RETURN MAPPING EN MC y CAP, AREA 2,3"};

void message(int io, std::string_view text) {
    if (io >= 1 && !text.empty()) say(text);
}

// The four yield functions as the model evaluates them, with the hardening
// pair of the start of the step.
struct Surfaces {
    double sinphi, cosphi, c, sigma_t, pref, m, E50, Eur, Rf, alpha, k, gamma_p, p_p;

    Surfaces(const double* Props, const double* sv0) {
        const View P(Props);
        const View S0(sv0);
        const double phi = P(m2::phi) * kDegToRad;
        sinphi = std::sin(phi);
        cosphi = std::cos(phi);
        c = P(m2::c);
        sigma_t = P(m2::sigma_t);
        pref = P(m2::p_ref);
        m = P(m2::m);
        E50 = P(m2::E50_ref);
        Eur = P(m2::Eur_ref);
        Rf = P(m2::R_f);
        alpha = P(m2::alpha);
        k = (3.0 + sinphi) / (3.0 - sinphi);
        gamma_p = S0(m2::sv::gamma_p);
        p_p = S0(m2::sv::p_p);
    }

    double f13_hs(const Vec3& s) const {
        const double q = s(1) - s(3);
        const double ccot = c * cosphi / sinphi;
        const double qf = std::max({s(3) + ccot, ccot + sigma_t, 1.0}) * 2.0 * sinphi / (1.0 - sinphi);
        if (!(q < qf)) return 1.0;
        const double qa = qf / Rf;
        const double fac =
            std::pow(std::max(s(3) * sinphi + c * cosphi, std::max(c * cosphi, 1.0)) /
                         (pref * sinphi + c * cosphi),
                     m);
        return (q / std::abs(qa - q)) * (2.0 * qa / (E50 * fac)) - 2.0 * q / (fac * Eur) - gamma_p;
    }
    double f13_mc(const Vec3& s) const {
        return (s(1) - s(3)) / 2.0 - (s(1) + s(3)) / 2.0 * sinphi - c * cosphi;
    }
    double f_cap(const Vec3& s) const {
        const double p = (s(1) + s(2) + s(3)) / 3.0;
        const double qt = (k - 1.0) * s(2) + s(1) - k * s(3);
        return p * p + qt * qt / (alpha * alpha) - p_p * p_p;
    }
    double f13_trac(const Vec3& s) const { return -sigma_t - s(3); }
};

// A surface counts as violated from its tolerance up.
double tolerance(double f) { return std::abs(f) * 1e-10 + 1e-10; }

// One kernel step: area 1, then the area correction and one repeat.
template <class Kernel>
void run_step(int io, const StepTexts& t, Vec3& Prs, Kernel&& kernel) {
    message(io, t.message);
    kernel(1);
    wrivec(io, t.label, Prs.data(), 3);
    int iArea = 1;
    if (Prs(3) > Prs(2)) {
        iArea = 2;
        message(io, t.area2);
        if (Prs(1) < Prs(2)) {
            iArea = 3;
            message(io, t.area3);
        }
    } else if (Prs(1) < Prs(2)) {
        iArea = 3;
        message(io, t.area3);
    }
    if (iArea != 1) {
        kernel(iArea);
        wrivec(io, t.labelRepeat, Prs.data(), 3);
    }
}

// The eight kernels of the test sequence, each called from the trial
// stresses with the common arguments and the tail of its kind.
struct Kernels {
    const Point& pt;
    const Vec3& Prs_0;
    const Vec3& Prs_E;
    Vec3& Prs;
    const double* sv0;
    double* sv;
    int& iPlast;
    const Mat3& D3;
    double R;

    void hs(int a) const {
        HS_plast(pt.iEl, pt.Int, kElDbg, kIntDbg, a, pt.Props, Prs_E, Prs, sv0, sv, iPlast, Prs_0,
                 pt.IsUndr, D3, R, pt.var->iModel);
    }
    void mc(int a) const {
        MC_plast(pt.iEl, pt.Int, kElDbg, kIntDbg, a, pt.Props, Prs_E, Prs, sv0, sv, iPlast, Prs_0,
                 D3, pt.var->iModel);
    }
    void trac(int a) const {
        TRAC_plast(pt.iEl, pt.Int, kElDbg, kIntDbg, a, pt.Props, Prs_E, Prs, sv0, sv, iPlast,
                   Prs_0, D3, pt.var->iModel);
    }
    void hs_trac(int a) const {
        HS_TRAC_plast(pt.iEl, pt.Int, kElDbg, kIntDbg, a, pt.Props, Prs_E, Prs, sv0, sv, iPlast,
                      Prs_0, pt.IsUndr, D3, R, pt.var->iModel);
    }
    void mc_trac(int a) const {
        MC_TRAC_plast(pt.iEl, pt.Int, kElDbg, kIntDbg, a, pt.Props, Prs_E, Prs, sv0, sv, iPlast,
                      Prs_0, D3, pt.var->iModel);
    }
    void cap(int a) const {
        CAP_plast(pt.iEl, pt.Int, kElDbg, kIntDbg, a, pt.Props, Prs_E, Prs, sv0, sv, iPlast,
                  Prs_0, pt.IsUndr, D3, R, pt.var->iModel);
    }
    void hs_cap(int a) const {
        HS_CAP_plast(pt.iEl, pt.Int, kElDbg, kIntDbg, a, pt.Props, Prs_E, Prs, sv0, sv, iPlast,
                     Prs_0, pt.IsUndr, D3, R, pt.var->iModel);
    }
    // The Mohr-Coulomb-with-cap kernel hardens its cap with the same
    // modulus ratio as the cap kernels, so it receives R as its factor.
    void mc_cap(int a) const {
        MC_CAP_plast(pt.iEl, pt.Int, kElDbg, kIntDbg, a, pt.Props, Prs_E, Prs, sv0, sv, iPlast,
                     Prs_0, D3, R, pt.var->iModel);
    }
};

// The yield tests, with tolerances fixed from the trial values (the cap's
// carries 0.001 more).
struct Tests {
    const Surfaces& f;
    double tol_hs, tol_mc, tol_cap, tol_trac;
    bool hs(const Vec3& s) const { return f.f13_hs(s) >= tol_hs; }
    bool mc(const Vec3& s) const { return f.f13_mc(s) >= tol_mc; }
    bool cap(const Vec3& s) const { return f.f_cap(s) >= tol_cap; }
    bool trac(const Vec3& s) const { return f.f13_trac(s) >= tol_trac; }
};

// The kernel chain once the trial state violates a surface.
void kernel_sequence(int io, const Tests& t, bool hs0, bool mc0, bool trac0, Vec3& Prs,
                     const Kernels& k) {
    auto step = [&](const StepTexts& texts, void (Kernels::*kernel)(int) const) {
        run_step(io, texts, Prs, [&](int a) { (k.*kernel)(a); });
    };
    // Shear surfaces alone (shear hardening first, then Mohr-Coulomb on its
    // result). Shear hardening together with tension goes to the combined
    // kernel directly.
    if (hs0 && !trac0) {
        step(kHS, &Kernels::hs);
        if (t.mc(Prs)) step(kMC, &Kernels::mc);
    } else if (!hs0 && mc0) {
        step(kMC, &Kernels::mc);
    }

    // Tension cut-off, alone or with the shear surfaces.
    if (t.trac(Prs)) {
        bool with_hs = hs0 || t.hs(Prs);
        if (!with_hs) {
            step(kTRAC, &Kernels::trac);
            with_hs = t.hs(Prs);
            if (!with_hs && t.mc(Prs)) step(kMC_TRAC, &Kernels::mc_trac);
        }
        if (with_hs) {
            step(kHS_TRAC, &Kernels::hs_trac);
            if (t.mc(Prs)) step(kMC_TRAC, &Kernels::mc_trac);
        }
    }

    // Cap, then the shear surfaces on the cap's result.
    if (t.cap(Prs)) {
        step(kCAP, &Kernels::cap);
        if (t.hs(Prs)) step(kHS_CAP, &Kernels::hs_cap);
        if (t.mc(Prs)) step(kMC_CAP, &Kernels::mc_cap);
    }
}

}  // namespace

void stress_point(const Point& pt, const Vec3& Prs_0, const Vec3& Prs_E, Vec3& Prs,
                  const double* sv0, double* sv, int& iPlast, const Mat3& D3, double R) {
    const int io = pt.io;
    const Surfaces f(pt.Props, sv0);

    const double hs_E = f.f13_hs(Prs_E);
    const double mc_E = f.f13_mc(Prs_E);
    const double cap_E = f.f_cap(Prs_E);
    const double trac_E = f.f13_trac(Prs_E);
    wrival(io, "f13_hs", hs_E);
    wrival(io, "f13_mc", mc_E);
    wrival(io, "f_cap", cap_E);
    wrival(io, "f13_trac", trac_E);
    const Tests t{f, tolerance(hs_E), tolerance(mc_E), tolerance(cap_E) + 0.001,
                  tolerance(trac_E)};

    Prs = Prs_E;
    const bool hs0 = hs_E >= t.tol_hs;
    const bool mc0 = mc_E >= t.tol_mc;
    const bool cap0 = cap_E >= t.tol_cap;
    const bool trac0 = trac_E >= t.tol_trac;
    if (!(hs0 || mc0 || cap0 || trac0)) {
        message(io, "PASO DE CÁLCULO ELÁSTICO, DENTRO DE f13_hs, f13_mc, f_cap y f13_trac");
        iPlast = 0;
        return;
    }
    const Kernels k{pt, Prs_0, Prs_E, Prs, sv0, sv, iPlast, D3, R};
    kernel_sequence(io, t, hs0, mc0, trac0, Prs, k);
}

}  // namespace tervak::ss
