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
#include "models/parameters.hpp"
#include "toolkit/elastic.hpp"
#include "toolkit/principal.hpp"
#include "toolkit/records.hpp"
#include "toolkit/types.hpp"
#include "toolkit/usrlib.hpp"
#include "toolkit/writers.hpp"

namespace tervak::hs {

// ---------------------------------------------------------------------------
// Message tables. A step's texts are its message, the message with ", AREA=2"
// and ", AREA=3" appended, and the two labels of the returned stresses.

#define TERVAK_POINT_EN "POINT OUT OF "
#define TERVAK_PRS_EN "Prs AFTER RETURN MAPPING IN "
#define TERVAK_POINT_ES "PUNTO FUERA DE "
#define TERVAK_PRS_ES "Prs TRAS RETURN MAPPING EN "
#define TERVAK_STEP(POINT, SURF, PRS, X)                                                  \
    StepTexts {                                                                           \
        POINT SURF, POINT SURF ", AREA=2", POINT SURF ", AREA=3", PRS X, PRS X ", AREA 2,3" \
    }

const Messages kEnglish{
    "ELASTIC CALCULATION STEP, WITHIN f13_hs, f13_mc, f_cap and f13_trac",
    TERVAK_STEP(TERVAK_POINT_EN, "f13_hs", TERVAK_PRS_EN, "HS"),
    TERVAK_STEP(TERVAK_POINT_EN, "f13_mc", TERVAK_PRS_EN, "MC"),
    // The tension step's area-3 message names f12; that is its text.
    StepTexts{TERVAK_POINT_EN "f13_trac", TERVAK_POINT_EN "f13_trac, AREA=2",
              TERVAK_POINT_EN "f12, AREA=3", TERVAK_PRS_EN "TRAC", TERVAK_PRS_EN "TRAC, AREA 2,3"},
    TERVAK_STEP(TERVAK_POINT_EN, "f13_hs and f13_trac", TERVAK_PRS_EN, "HS Y TRAC"),
    // Mohr-Coulomb with tension has no area-2 message.
    StepTexts{TERVAK_POINT_EN "f13_mc and f13_trac", "",
              TERVAK_POINT_EN "f13_mc and f13_trac, AREA=3", TERVAK_PRS_EN "MC and TRAC",
              TERVAK_PRS_EN "MC and TRAC, AREA 2,3"},
    TERVAK_STEP(TERVAK_POINT_EN, "f_cap", TERVAK_PRS_EN, "CAP"),
    TERVAK_STEP(TERVAK_POINT_EN, "f13_hs and f_cap", TERVAK_PRS_EN, "HS and CAP"),
    TERVAK_STEP(TERVAK_POINT_EN, "f13_mc and f_cap", TERVAK_PRS_EN, "MC and CAP"),
    ""};

const Messages kSpanish{
    "PASO DE CÁLCULO ELÁSTICO, DENTRO DE f13_hs, f13_mc, f_cap y f13_trac",
    TERVAK_STEP(TERVAK_POINT_ES, "f13_hs", TERVAK_PRS_ES, "HS"),
    TERVAK_STEP(TERVAK_POINT_ES, "f13_mc", TERVAK_PRS_ES, "MC"),
    StepTexts{TERVAK_POINT_ES "f13_trac", TERVAK_POINT_ES "f13_trac, AREA=2",
              TERVAK_POINT_ES "f12, AREA=3", TERVAK_PRS_ES "TRAC", TERVAK_PRS_ES "TRAC, AREA 2,3"},
    TERVAK_STEP(TERVAK_POINT_ES, "f13_hs y f13_trac", TERVAK_PRS_ES, "HS Y TRAC"),
    StepTexts{TERVAK_POINT_ES "f13_mc y f13_trac", "",
              TERVAK_POINT_ES "f13_mc y f13_trac, AREA=3", TERVAK_PRS_ES "MC y TRAC",
              TERVAK_PRS_ES "MC y TRAC, AREA 2,3"},
    TERVAK_STEP(TERVAK_POINT_ES, "f_cap", TERVAK_PRS_ES, "CAP"),
    TERVAK_STEP(TERVAK_POINT_ES, "f13_hs y f_cap", TERVAK_PRS_ES, "HS y CAP"),
    TERVAK_STEP(TERVAK_POINT_ES, "f13_mc y f_cap", TERVAK_PRS_ES, "MC y CAP"),
    "Las tensiones ppales al final de este paso de cálculo son Prs="};

#undef TERVAK_STEP
#undef TERVAK_PRS_ES
#undef TERVAK_POINT_ES
#undef TERVAK_PRS_EN
#undef TERVAK_POINT_EN

namespace {

using View = tervak::Props;  // 1-based read-only view of a host array

double mean3(const Vec3& x) { return ((x(1) + x(2)) + x(3)) / 3.0; }

// A surface counts as violated from its tolerance up.
double tolerance(double f) { return std::abs(f) * 1e-10 + 1e-10; }
bool violated(double f, double tol) { return f >= tol; }

// Principal values of a host-sign stress vector, negated into the
// compression-positive descending triple (values only).
Vec3 principal_values(const double* S) {
    double xN[3] = {0.0, 0.0, 0.0};
    double S1 = 0.0, S2 = 0.0, S3 = 0.0, P = 0.0, Q = 0.0;
    prnsig(0, S, xN, xN, xN, S1, S2, S3, P, Q);
    Vec3 Prs;
    Prs(1) = -S1;
    Prs(2) = -S2;
    Prs(3) = -S3;
    return Prs;
}

enum class Kernel { HS, MC, TRAC, HS_TRAC, MC_TRAC, CAP, HS_CAP, MC_CAP };

// One stress task: the trial state, the yield values and the kernel chain.
class StressPoint {
public:
    StressPoint(const ModelArgs& a, const Variant& v)
        : a_(a),
          v_(v),
          Props(a.Props),
          mt_(read_material(v.option, a.Props)),
          dbg_((v.debugAlways || (*a.iEl == 487 && *a.Int == 3)) ? 1 : -1) {}

    void run();

private:
    void header() const;
    void yield_values();
    void extra_values() const;
    void plastic_return();
    void chain_C();
    void chain_D();
    void chain_E();
    void final_rule();
    void elastic();
    void keep_state() const;
    void step(Kernel k, const StepTexts& t, bool capReturn);
    void call(Kernel k, int iArea);
    void note(std::string_view text) const {
        if (dbg_ >= 1 && !text.empty()) say(text);
    }
    void strain_split(const double* Sig0, const double* Sig) const;

    // Yield values at a principal triple; f13_hs keeps the strength and
    // stiffness of the start of the step and gamma_p_E, and is 1 at and
    // beyond the strength.
    double f13_hs(const Vec3& P) const {
        const double q = P(1) - P(3);
        if (qf_ <= q) return 1.0;
        return HsMaterial::hyperbola(q, mt_.qa(qf_), mt_.E_hyp * fe_, fe_ * mt_.Eur_ref,
                                     gamma_p_E_);
    }
    double f13_mc(const Vec3& P) const { return mt_.f13_mc(P); }
    double f_cap(const Vec3& P) const { return mt_.f_cap(P, p_p_E_); }
    double f13_trac(const Vec3& P) const { return mt_.f13_trac(P); }

    const ModelArgs& a_;
    const Variant& v_;
    const View Props;
    const HsMaterial mt_;
    const int dbg_;

    double gamma_p_E_ = 0.0, p_p_E_ = 0.0;
    double qf_ = 0.0, fe_ = 0.0;
    double tol_hs_ = 0.0, tol_mc_ = 0.0, tol_cap_ = 0.0, tol_trac_ = 0.0;
    bool hs_ = false, mc_ = false, cap_ = false, trac_ = false;
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

void StressPoint::run() {
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

    Prs_0 = principal_values(a_.Sig0);

    // Elastic predictor with the host's matrix.
    double dSig[6];
    double Sig_E[6];
    matvec(a_.D, 6, a_.dEps, 6, dSig);
    addvec(a_.Sig0, dSig, 1.0, 1.0, 6, Sig_E);
    wrimat(dbg_, "D6", a_.D, 6, 6, 6);
    wrival(dbg_, "BulkW", *a_.BulkW);
    wrivec(dbg_, "dEps", a_.dEps, 6);
    wrivec(dbg_, "Sig0", a_.Sig0, 6);
    wrivec(dbg_, "dSig", dSig, 6);
    wrivec(dbg_, "Sig_E", Sig_E, 6);

    double xN1[3] = {0.0, 0.0, 0.0}, xN2[3] = {0.0, 0.0, 0.0}, xN3[3] = {0.0, 0.0, 0.0};
    double S1 = 0.0, S2 = 0.0, S3 = 0.0, P = 0.0, Q = 0.0;
    prnsig(1, Sig_E, xN1, xN2, xN3, S1, S2, S3, P, Q);
    Prs_E(1) = -S1;
    Prs_E(2) = -S2;
    Prs_E(3) = -S3;

    if (modul(a_.dEps) < 1e-10) {
        // Nothing to integrate: the start stresses in the trial directions;
        // D, iPlast and the copied state variables stay as they are.
        Prs = Prs_0;
    } else {
        Matriz3(mt_, std::abs(Prs_0(3)) <= 0.01 ? Prs_E.data() : Prs_0.data(), D3.data());
        wrivec(dbg_, "Prs_E", Prs_E.data(), 3);
        wrimat(dbg_, "D3", D3.data(), 3, 3, 3);

        const double Dq = (Prs_E(1) - Prs_E(3)) - (Prs_0(1) - Prs_0(3));
        const double Dp = mean3(Prs_E) - mean3(Prs_0);
        wrival(dbg_, "Dq", Dq);
        wrival(dbg_, "Dp", Dp);
        wrival(dbg_, "Dp/Dq", Dp / Dq);

        yield_values();
        if (v_.extraValues) extra_values();
        plastic_return();
    }

    if (!v_.text->finalStress.empty()) {
        note(v_.text->finalStress);
        wrivec(dbg_, "Prs", Prs.data(), 3);
    }

    carsig(-Prs(1), -Prs(2), -Prs(3), xN1, xN2, xN3, a_.Sig);

    if (dbg_ >= 1) strain_split(a_.Sig0, a_.Sig);
}

void StressPoint::yield_values() {
    // Strength and stiffness from the start-of-step minor stress; the
    // strength's floor is 0 here, where the kernels' is 1.
    qf_ = mt_.qf(std::max(mt_.ccot + Prs_0(3), std::max(0.0, mt_.T + mt_.ccot)));
    fe_ = mt_.stress_factor(Prs_0(3));

    const double f_hs = f13_hs(Prs_E);
    const double f_mc = f13_mc(Prs_E);
    const double f_cp = f_cap(Prs_E);
    const double f_tr = f13_trac(Prs_E);
    tol_hs_ = tolerance(f_hs);
    tol_mc_ = tolerance(f_mc);
    tol_cap_ = tolerance(f_cp);
    tol_trac_ = tolerance(f_tr);
    hs_ = violated(f_hs, tol_hs_);
    mc_ = violated(f_mc, tol_mc_);
    cap_ = violated(f_cp, tol_cap_);
    trac_ = violated(f_tr, tol_trac_);
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

// The entry table: the first violated surface decides where the chain starts.
void StressPoint::plastic_return() {
    Prs = Prs_E;  // the tension check of an entry at C reads the trial stresses
    if (hs_) {
        step(Kernel::HS, v_.text->hs, false);
        if (violated(f13_mc(Prs), tol_mc_)) step(Kernel::MC, v_.text->mc, false);
        chain_C();
    } else if (mc_) {
        step(Kernel::MC, v_.text->mc, false);
        chain_C();
    } else if (trac_) {
        chain_C();
    } else if (cap_) {
        chain_E();
        final_rule();
        return;
    } else {
        elastic();
        return;
    }
    chain_D();
    final_rule();
}

// C: tension cut-off, alone or with a shear surface; then D.
void StressPoint::chain_C() {
    if (!violated(f13_trac(Prs), tol_trac_)) return;
    step(Kernel::TRAC, v_.text->trac, false);
    if (!violated(f13_hs(Prs), tol_hs_)) return;
    step(Kernel::HS_TRAC, v_.text->hs_trac, false);
    if (!violated(f13_mc(Prs), tol_mc_)) return;
    step(Kernel::MC_TRAC, v_.text->mc_trac, false);
}

// D: the cap after a shear or tension return; a cap return that leaves the
// shear surface satisfied ends the chain here.
void StressPoint::chain_D() {
    if (!violated(f_cap(Prs), tol_cap_)) return;
    step(Kernel::CAP, v_.text->cap, true);
    if (!violated(f13_hs(Prs), tol_hs_)) return;
    step(Kernel::HS_CAP, v_.text->hs_cap, false);
    if (!violated(f13_mc(Prs), tol_mc_)) return;
    step(Kernel::MC_CAP, v_.text->mc_cap, false);
}

// E: the trial state violates the cap alone; after the cap return the
// Mohr-Coulomb face is tested whichever way the shear test went.
void StressPoint::chain_E() {
    step(Kernel::CAP, v_.text->cap, true);
    if (violated(f13_hs(Prs), tol_hs_)) step(Kernel::HS_CAP, v_.text->hs_cap, false);
    if (violated(f13_mc(Prs), tol_mc_)) step(Kernel::MC_CAP, v_.text->mc_cap, false);
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
    note(v_.text->elastic);
    Matriz6(mt_, Prs_0.data(), a_.D);
    *a_.iPlast = 0;
    Prs = Prs_E;
    keep_state();
}

// One kernel call with its area correction: a returned triple that left the
// descending order is returned once more on the edge it crossed.
void StressPoint::step(Kernel k, const StepTexts& t, bool capReturn) {
    note(t.message);
    int iArea = 1;
    call(k, iArea);
    wrivec(dbg_, t.label, Prs.data(), 3);
    // A near-isotropic cap return keeps its order as it is.
    if (capReturn && !(std::abs(Prs(1) - Prs(3)) > 0.1)) return;
    if (Prs(3) > Prs(2)) {
        iArea = 2;
        note(t.area2);
        if (Prs(1) < Prs(2)) {
            iArea = 3;
            note(t.area3);
        }
    } else if (Prs(1) < Prs(2)) {
        iArea = 3;
        note(t.area3);
    } else if (iArea == 1) {
        // The kernels receive the area by value and cannot ask for an edge
        // themselves; an unchanged area keeps the result.
        return;
    }
    call(k, iArea);
    wrivec(dbg_, t.labelRepeat, Prs.data(), 3);
}

// Every kernel starts from the trial stresses and the start-of-step state.
void StressPoint::call(Kernel k, int iArea) {
    KernelCall c;
    c.iEl = *a_.iEl;
    c.Int = *a_.Int;
    c.iElDbg = v_.iElDbg;
    c.IntDbg = v_.IntDbg;
    c.iArea = iArea;
    c.Prs_E = Prs_E;
    c.Prs_0 = Prs_0;
    c.D3 = D3;
    c.HardPar_E = a_.StVar0;
    c.IsUndr = *a_.IsUndr;
    c.R = 1.0;
    static constexpr KernelOutcome (*kKernels[])(const KernelCall&, const HsMaterial&,
                                                 const KernelOut&) = {
        &HS_plast, &MC_plast, &TRAC_plast, &HS_TRAC_plast,
        &MC_TRAC_plast, &CAP_plast, &HS_CAP_plast, &MC_CAP_plast};
    kKernels[static_cast<int>(k)](c, mt_, KernelOut{Prs, a_.StVar, *a_.iPlast});
}

// Diagnostics of the step's strain split into elastic and plastic parts,
// with the matrix as it stands now. Printed only; nothing is returned.
void StressPoint::strain_split(const double* Sig0, const double* Sig) const {
    static constexpr std::string_view kDashes = "------------------------------";
    static constexpr std::string_view kTotal[3] = {"dEps(1)", "dEps(2)", "dEps(3)"};
    static constexpr std::string_view kElastic[3] = {"dEps_el(1)", "dEps_el(2)", "dEps_el(3)"};
    static constexpr std::string_view kPlastic[3] = {"dEps_pl(1)", "dEps_pl(2)", "dEps_pl(3)"};

    double dSig_real[6];
    double Dinv[36];
    double dEps_el[6];
    double dEps_pl[6];
    addvec(Sig, Sig0, 1.0, -1.0, 6, dSig_real);
    matinvpiv(a_.D, Dinv, 6);
    matvec(Dinv, 6, dSig_real, 6, dEps_el);
    addvec(a_.dEps, dEps_el, 1.0, -1.0, 6, dEps_pl);

    for (int k = 0; k < 3; ++k) {
        say(kDashes);
        wrival(dbg_, kTotal[k], a_.dEps[k]);
        wrival(dbg_, kElastic[k], dEps_el[k]);
        wrival(dbg_, kPlastic[k], dEps_pl[k]);
    }
    say(kDashes);
    wrival(dbg_, "dEps_vol", (a_.dEps[0] + a_.dEps[1]) + a_.dEps[2]);
    wrival(dbg_, "dEps_vol_el", (dEps_el[0] + dEps_el[1]) + dEps_el[2]);
    wrival(dbg_, "dEps_vol_pl", (dEps_pl[0] + dEps_pl[1]) + dEps_pl[2]);
    say(kDashes);
    wrivec(dbg_, "Prs_0", Prs_0.data(), 3);
    wrivec(dbg_, "Prs", Prs.data(), 3);
    say(kDashes);
    wrival(dbg_, "dSig_real(el)(2)", -dSig_real[1]);
    wrival(dbg_, "dSig_real(el)(1)", -dSig_real[0]);
    wrival(dbg_, "dSig_real(el)(3)", -dSig_real[2]);
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
    const double gamma_new =
        2.0 * qc / (mt.E_hyp * fe) * qa / (qa - qc) - 2.0 * qc / (fe * mt.Eur_ref);

    StVar0(m1::sv::gamma_p) = std::max(gamma_new, std::max(StVar0(m1::sv::gamma_p), 1e-10));
    StVar0(m1::sv::p_p) = std::min(std::min(StVar0(m1::sv::p_p), -1.0), -std::max(mt.ccot, pe));
    StVar(m1::sv::gamma_p) = StVar0(m1::sv::gamma_p);
    StVar(m1::sv::p_p) = StVar0(m1::sv::p_p);
}

// Tasks 3 and 6: the elastic matrix at the start stresses and, for an
// undrained point, the bulk stiffness of the pore water.
void elastic_stiffness(const ModelArgs& a, const Variant& v) {
    const HsMaterial mt = read_material(v.option, a.Props);
    const Vec3 Prs = principal_values(a.Sig0);
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
