// The stress point of models 2 and 4 on the common driver (stress_point.hpp):
// the yield functions as these models evaluate them, with the hardening
// pair of the start of the step, and the small-strain decision table.
#include <algorithm>
#include <cmath>

#include "models/material.hpp"
#include "models/parameters.hpp"
#include "models/small_strain.hpp"
#include "models/stress_point.hpp"
#include "toolkit/elastic.hpp"
#include "toolkit/writers.hpp"

namespace tervak::ss {

namespace {

// The four yield functions. f13_hs takes its strength and stiffness from the
// minor stress of the triple it is evaluated at, and is 1 at and beyond the
// strength.
struct Surfaces {
    const HsMaterial& mt;
    double gamma_p;
    double p_p;  // the stored (negative) cap value; only its square is read

    double f13_hs(const Vec3& s) const {
        const double q = s(1) - s(3);
        const double qf = mt.qf_product_first(std::max({s(3) + mt.ccot, mt.ccot + mt.T, 1.0}));
        if (!(q < qf)) return 1.0;
        const double fac = mt.stress_factor(s(3));
        return HsMaterial::hyperbola(q, mt.qa(qf), mt.E_hyp * fac, fac * mt.Eur_ref, gamma_p);
    }

    double operator()(sp::Surface which, const Vec3& s) const {
        switch (which) {
            case sp::Surface::HS: return f13_hs(s);
            case sp::Surface::MC: return mt.f13_mc(s);
            case sp::Surface::CAP: return mt.f_cap(s, p_p);
            case sp::Surface::TRAC: break;
        }
        return mt.f13_trac(s);
    }
};

}  // namespace

void stress_point(const Point& pt, const Vec3& Prs_0, const Vec3& Prs_E, Vec3& Prs,
                  const double* sv0, double* sv, int& iPlast, double K, double G, double R) {
    const HsMaterial& mt = *pt.mt;
    const Props S0(sv0);
    const Surfaces f{mt, S0(m2::sv::gamma_p), S0(m2::sv::p_p)};
    const sp::Trial tr = sp::trial(f, sp::kSmallStrain, Prs_E);
    trace(pt.io, "f13_hs", tr.f[0]);
    trace(pt.io, "f13_mc", tr.f[1]);
    trace(pt.io, "f_cap", tr.f[2]);
    trace(pt.io, "f13_trac", tr.f[3]);

    sp::Context c;
    c.call.iEl = pt.iEl;
    c.call.Int = pt.Int;
    c.call.iElDbg = kElDbg;
    c.call.IntDbg = kIntDbg;
    c.call.Prs_E = Prs_E;
    c.call.Prs_0 = Prs_0;
    // The kernels' principal elastic matrix, built when one of them runs.
    if (tr.any()) Matriz3_NL(c.call.D3.data(), K, G);
    c.call.HardPar_E = sv0;
    c.call.IsUndr = pt.IsUndr;
    // The Mohr-Coulomb-with-cap kernel hardens its cap with the same modulus
    // ratio as the cap kernels, so it receives R as its factor.
    c.call.R = R;
    c.mt = &mt;
    c.HardPar = sv;
    c.iPlast = &iPlast;
    c.unit = pt.io;
    c.text = &sp::kSpanish;
    if (!sp::run(f, sp::kSmallStrain, tr, c, Prs)) iPlast = 0;
}

}  // namespace tervak::ss
