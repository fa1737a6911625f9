// The hardening-soil model of models 1 and 3: shear hardening (f13_hs),
// Mohr-Coulomb failure (f13_mc), a cap with density hardening (f_cap) and a
// tension cut-off (f13_trac), all in principal stresses, compression
// positive inside the model. Two state variables: gamma_p and the cap
// pressure stored negative.
#include "models/hardening_soil.hpp"

#include <algorithm>
#include <cmath>

#include "kernels/kernels.hpp"
#include "models/material.hpp"
#include "models/stress_point.hpp"
#include "models/parameters.hpp"
#include "toolkit/elastic.hpp"
#include "toolkit/principal.hpp"
#include "toolkit/records.hpp"
#include "toolkit/types.hpp"
#include "toolkit/usrlib.hpp"
#include "toolkit/writers.hpp"

namespace tervak::hs {

namespace {

using View = tervak::Props;  // 1-based read-only view of a host array

double mean3(const Vec3& x) { return ((x(1) + x(2)) + x(3)) / 3.0; }

// One stress task: the trial state, the yield values and the kernel chain.
class StressPoint {
public:
    StressPoint(const ModelArgs& a, const Variant& v)
        : a_(a),
          v_(v),
          mt_(read_material(v.option, a.Props)),
          dbg_((v.debugAlways || (*a.iEl == 487 && *a.Int == 3)) ? 1 : -1) {}

    void run();

    // The yield values at a principal triple for the driver; f13_hs keeps
    // the strength and stiffness of the start of the step and gamma_p_E, and
    // is 1 at and beyond the strength.
    double operator()(sp::Surface s, const Vec3& P) const {
        switch (s) {
            case sp::Surface::HS: return f13_hs(P);
            case sp::Surface::MC: return mt_.f13_mc(P);
            case sp::Surface::CAP: return mt_.f_cap(P, p_p_E_);
            case sp::Surface::TRAC: break;
        }
        return mt_.f13_trac(P);
    }

private:
    void header() const;
    void start_state();
    void predictor(double (&xN)[3][3]);
    void integrate();
    void extra_values() const;
    void final_rule();
    void elastic();
    void keep_state() const;
    sp::Context context();
    void strain_split(const double* Sig0, const double* Sig) const;

    double f13_hs(const Vec3& P) const {
        const double q = P(1) - P(3);
        if (qf_ <= q) return 1.0;
        return HsMaterial::hyperbola(q, mt_.qa(qf_), mt_.E_hyp * fe_, fe_ * mt_.Eur_ref,
                                     gamma_p_E_);
    }

    const ModelArgs& a_;
    const Variant& v_;
    const HsMaterial mt_;
    const int dbg_;

    double gamma_p_E_ = 0.0, p_p_E_ = 0.0;
    double qf_ = 0.0, fe_ = 0.0;
    Vec3 Prs_0, Prs_E, Prs;
    Mat3 D3;
};

void StressPoint::header() const {
    if (dbg_ < 1) return;
    ListRecord r;
    r << "IDTask:" << *a_.IDTask << "iEl:" << *a_.iEl << "Int:" << *a_.Int << "iStep:" << *a_.iStep
      << "iTer:" << *a_.iTer;
    if (v_.headerTime) r << "Time0:" << *a_.Time0;
    r.write(6);
}

// The hardening pair of the start, copied to the step, and the pore pressure.
void StressPoint::start_state() {
    const View StVar0(a_.StVar0);
    const State StVar(a_.StVar);
    const View dEps(a_.dEps);
    header();
    wriivl(dbg_, "IsUndr", *a_.IsUndr);
    StVar(m1::sv::gamma_p) = StVar0(m1::sv::gamma_p);
    StVar(m1::sv::p_p) = StVar0(m1::sv::p_p);
    gamma_p_E_ = StVar0(m1::sv::gamma_p);
    p_p_E_ = -StVar0(m1::sv::p_p);
    wrival(dbg_, "gamma_p_E", gamma_p_E_);
    wrival(dbg_, "p_p_E", p_p_E_);
    if (*a_.IsUndr == 1) {
        *a_.Pw = *a_.Pw0 + *a_.BulkW * ((dEps(1) + dEps(2)) + dEps(3));
    } else {
        *a_.Pw = *a_.Pw0;
    }
}

// Elastic predictor with the host's matrix: the trial stresses, split into
// principal values (Prs_E) and directions (xN).
void StressPoint::predictor(double (&xN)[3][3]) {
    Vec6 dSig, Sig_E;
    matvec(a_.D, 6, a_.dEps, 6, dSig.data());
    addvec(a_.Sig0, dSig.data(), 1.0, 1.0, 6, Sig_E.data());
    wrimat(dbg_, "D6", a_.D, 6, 6, 6);
    wrival(dbg_, "BulkW", *a_.BulkW);
    wrivec(dbg_, "dEps", a_.dEps, 6);
    wrivec(dbg_, "Sig0", a_.Sig0, 6);
    wrivec(dbg_, "dSig", dSig.data(), 6);
    wrivec(dbg_, "Sig_E", Sig_E.data(), 6);
    Prs_E = compression_triple(Sig_E.data(), xN);
}

void StressPoint::run() {
    start_state();
    Prs_0 = compression_triple(a_.Sig0);
    double xN[3][3] = {};
    predictor(xN);
    if (modul(a_.dEps) < 1e-10) {
        // Nothing to integrate: the start stresses in the trial directions;
        // D, iPlast and the copied state variables stay as they are.
        Prs = Prs_0;
    } else {
        integrate();
    }
    if (!v_.text->finalStress.empty()) {
        if (dbg_ >= 1) say(v_.text->finalStress);
        wrivec(dbg_, "Prs", Prs.data(), 3);
    }
    carsig(-Prs(1), -Prs(2), -Prs(3), xN[0], xN[1], xN[2], a_.Sig);
    if (dbg_ >= 1) strain_split(a_.Sig0, a_.Sig);
}

// The return of a step with strain: the principal elastic matrix, the yield
// values and the kernel chain of the driver.
void StressPoint::integrate() {
    Matriz3(mt_, std::abs(Prs_0(3)) <= 0.01 ? Prs_E.data() : Prs_0.data(), D3.data());
    wrivec(dbg_, "Prs_E", Prs_E.data(), 3);
    wrimat(dbg_, "D3", D3.data(), 3, 3, 3);
    const double Dq = (Prs_E(1) - Prs_E(3)) - (Prs_0(1) - Prs_0(3));
    const double Dp = mean3(Prs_E) - mean3(Prs_0);
    wrival(dbg_, "Dq", Dq);
    wrival(dbg_, "Dp", Dp);
    wrival(dbg_, "Dp/Dq", Dp / Dq);

    // Strength and stiffness from the start-of-step minor stress; the
    // strength's floor is 0 here, where the kernels' is 1.
    qf_ = mt_.qf(std::max(mt_.ccot + Prs_0(3), std::max(0.0, mt_.T + mt_.ccot)));
    fe_ = mt_.stress_factor(Prs_0(3));
    const sp::Trial tr = sp::trial(*this, sp::kHardeningSoil, Prs_E);
    if (v_.extraValues) extra_values();
    if (!sp::run(*this, sp::kHardeningSoil, tr, context(), Prs)) {
        elastic();
        return;
    }
    final_rule();
}

sp::Context StressPoint::context() {
    sp::Context c;
    c.call.iEl = *a_.iEl;
    c.call.Int = *a_.Int;
    c.call.iElDbg = v_.iElDbg;
    c.call.IntDbg = v_.IntDbg;
    c.call.Prs_E = Prs_E;
    c.call.Prs_0 = Prs_0;
    c.call.D3 = D3;
    c.call.HardPar_E = a_.StVar0;
    c.call.IsUndr = *a_.IsUndr;
    c.call.R = 1.0;
    c.mt = &mt_;
    c.HardPar = a_.StVar;
    c.iPlast = a_.iPlast;
    c.unit = dbg_;
    c.text = v_.text;
    return c;
}

void StressPoint::extra_values() const {
    const double q = Prs_E(1) - Prs_E(3);
    const double qa = mt_.qa(qf_);
    const double p = mean3(Prs_E);
    wrival(dbg_, "Prs_E(1)-Prs_E(3)", q);
    wrival(dbg_, "qf", qf_);
    wrival(dbg_, "qa", qa);
    wrival(dbg_, "qa-(Prs_E(1)-Prs_E(3))", qa - q);
    wrival(dbg_, "Ei", mt_.E_hyp * fe_);
    wrival(dbg_, "Eur", mt_.Eur_ref * fe_);
    wrival(dbg_, "alfa", mt_.alpha);
    wrival(dbg_, "beta", mt_.cap_stiffness);
    wrival(dbg_, "xH", mt_.xh_cap(p, p_p_E_, 1.0));
    wrival(dbg_, "delta", mt_.delta());
    wrival(dbg_, "q_m", HsMaterial::cap_qt(Prs_E, mt_.delta()));
    wrival(dbg_, "p", p);
    wrival(dbg_, "gamma_p_E", gamma_p_E_);
    wrival(dbg_, "p_p_E", p_p_E_);
}

// Low mean stress: the point is put on the tension value, unhardened.
void StressPoint::final_rule() {
    if (mean3(Prs) < mt_.T) {
        Prs(1) = mt_.T;
        Prs(2) = mt_.T;
        Prs(3) = mt_.T;
        keep_state();
        *a_.iPlast = 2;
    }
}

// The hardening pair of the start of the step, unchanged.
void StressPoint::keep_state() const {
    const View StVar0(a_.StVar0);
    const State StVar(a_.StVar);
    StVar(m1::sv::gamma_p) = StVar0(m1::sv::gamma_p);
    StVar(m1::sv::p_p) = StVar0(m1::sv::p_p);
}

void StressPoint::elastic() {
    Matriz6(mt_, Prs_0.data(), a_.D);
    *a_.iPlast = 0;
    Prs = Prs_E;
    keep_state();
}

// Diagnostics of the step's strain split into elastic and plastic parts,
// with the matrix as it stands now. Printed only; nothing is returned.
void StressPoint::strain_split(const double* Sig0, const double* Sig) const {
    static constexpr std::string_view kDashes = "------------------------------";
    static constexpr std::string_view kTotal[3] = {"dEps(1)", "dEps(2)", "dEps(3)"};
    static constexpr std::string_view kElastic[3] = {"dEps_el(1)", "dEps_el(2)", "dEps_el(3)"};
    static constexpr std::string_view kPlastic[3] = {"dEps_pl(1)", "dEps_pl(2)", "dEps_pl(3)"};

    const View dEps(a_.dEps);
    Vec6 dSig_real, dEps_el, dEps_pl;
    double Dinv[36];
    addvec(Sig, Sig0, 1.0, -1.0, 6, dSig_real.data());
    matinvpiv(a_.D, Dinv, 6);
    matvec(Dinv, 6, dSig_real.data(), 6, dEps_el.data());
    addvec(a_.dEps, dEps_el.data(), 1.0, -1.0, 6, dEps_pl.data());

    for (int k = 1; k <= 3; ++k) {
        say(kDashes);
        wrival(dbg_, kTotal[k - 1], dEps(k));
        wrival(dbg_, kElastic[k - 1], dEps_el(k));
        wrival(dbg_, kPlastic[k - 1], dEps_pl(k));
    }
    say(kDashes);
    wrival(dbg_, "dEps_vol", (dEps(1) + dEps(2)) + dEps(3));
    wrival(dbg_, "dEps_vol_el", (dEps_el(1) + dEps_el(2)) + dEps_el(3));
    wrival(dbg_, "dEps_vol_pl", (dEps_pl(1) + dEps_pl(2)) + dEps_pl(3));
    say(kDashes);
    wrivec(dbg_, "Prs_0", Prs_0.data(), 3);
    wrivec(dbg_, "Prs", Prs.data(), 3);
    say(kDashes);
    wrival(dbg_, "dSig_real(el)(2)", -dSig_real(2));
    wrival(dbg_, "dSig_real(el)(1)", -dSig_real(1));
    wrival(dbg_, "dSig_real(el)(3)", -dSig_real(3));
}

}  // namespace

// ---------------------------------------------------------------------------
// Task 1: the hardening pair from the initial stresses. The result is also
// written back into the host's start-of-step array.
void initial_state(const ModelArgs& a, const Variant& v) {
    const HsMaterial mt = read_material(v.option, a.Props);
    const View Sig0(a.Sig0);
    const State StVar0(a.StVar0);
    const State StVar(a.StVar);

    const double sv = -Sig0(2);
    const double p0 = -((Sig0(1) + Sig0(2)) + Sig0(3)) / 3.0;
    const double qx = -Sig0(1) + Sig0(3);

    const double pc = std::max((2.0 * mt.K0 + 1.0) / 3.0 * sv * mt.OCR, p0);
    const double qc = std::max((1.0 - mt.K0) * sv * mt.OCR, qx);
    const double t = qc / mt.alpha;
    const double pe = std::pow(pc * pc + t * t, 0.5);

    const double qf = mt.qf(std::max(std::max(mt.T + mt.ccot, mt.ccot - Sig0(3)), 1.0));
    const double qa = mt.qa(qf);
    const double fe = mt.stress_factor_of(mt.ccos - Sig0(3) * mt.sinphi);
    // gamma_p on the hyperbola at the start deviator qc.
    const double gamma_new = HsMaterial::hyperbola_gamma(qc, qa, mt.E_hyp * fe, fe * mt.Eur_ref);

    StVar0(m1::sv::gamma_p) = std::max(gamma_new, std::max(StVar0(m1::sv::gamma_p), 1e-10));
    StVar0(m1::sv::p_p) = std::min(std::min(StVar0(m1::sv::p_p), -1.0), -std::max(mt.ccot, pe));
    StVar(m1::sv::gamma_p) = StVar0(m1::sv::gamma_p);
    StVar(m1::sv::p_p) = StVar0(m1::sv::p_p);
}

// Tasks 3 and 6: the elastic matrix at the start stresses and, for an
// undrained point, the bulk stiffness of the pore water.
void elastic_stiffness(const ModelArgs& a, const Variant& v) {
    const HsMaterial mt = read_material(v.option, a.Props);
    const Vec3 Prs = compression_triple(a.Sig0);
    *a.BulkW = 0.0;
    if (*a.IsUndr == 1) {
        // Eur at the minor stress, floored by the tension value and by 0.
        const double x =
            std::max(std::max(mt.T * mt.sinphi + mt.ccos, Prs(3) * mt.sinphi + mt.ccos), 0.0);
        const double Eur = mt.Eur_ref * mt.stress_ratio_pow(x);
        const double nu = mt.nu_ur;
        const double G = Eur / (2.0 * (1.0 + nu));
        // 149.4999999999999 is (1 + 0.495) / (1 - 2 0.495) in double precision.
        *a.BulkW = 2.0 * G / 3.0 * (149.4999999999999 - (1.0 + nu) / (1.0 - 2.0 * nu));
    }
    Matriz6(mt, Prs.data(), a.D);
}

void stress_task(const ModelArgs& a, const Variant& v) {
    StressPoint point(a, v);
    point.run();
}

void hardening_soil(const ModelArgs& a, const Variant& v) {
    switch (*a.IDTask) {
        case 1: initial_state(a, v); break;
        case 2: stress_task(a, v); break;
        case 3:
        case 6: elastic_stiffness(a, v); break;
        case 4: *a.nStat = m1::sv::nStat; break;
        case 5:
            *a.NonSym = 0;
            *a.StrsDep = 1;
            *a.TimeDep = 0;
            *a.Tangent = 0;
            break;
        case 7:
            if (v.calibrate != nullptr) v.calibrate(a.Props, v.option);
            break;
        default: break;
    }
}

}  // namespace tervak::hs
