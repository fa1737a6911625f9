// Model 1's parameter calibration: finds the initial stiffness of the
// hyperbola (Props(13)) that makes a drained triaxial test at 100.0 reach
// half the failure deviator at the strain the secant modulus Props(1)
// prescribes, then the K0 of normal consolidation (Props(10)) that gives no
// lateral strain on the path sigma3 = K0 sigma1. Both by simulating the
// laboratory paths with the model's own elastic matrix and the silent
// shear-hardening-with-cap return.
//
// The searches have no run limit: they end when the tolerance bands are met.
// Every run is a full simulated test (tens of thousands of load increments,
// each one closest-point return on the triaxial edge), so the loading loops
// below allocate nothing and print nothing; progress is printed once per run.
#include <algorithm>
#include <cmath>

#include "kernels/hs_cap_plast_it.hpp"
#include "kernels/kernels.hpp"
#include "models/material.hpp"
#include "models/models.hpp"
#include "toolkit/elastic.hpp"
#include "toolkit/principal.hpp"
#include "toolkit/records.hpp"
#include "toolkit/types.hpp"
#include "toolkit/usrlib.hpp"

namespace tervak {

namespace {

// A single-precision 0.001 widened to double: the fine step of both phases.
constexpr double kFineStep = 0.0010000000474974513;

// The state of one simulated sample (compression positive).
struct Sample {
    Vec3 prs;            // current principal stresses, descending
    Vec6 sig;            // current stresses, from which the load steps are measured
    Vec6 eps;            // accumulated strains
    double hard[2] = {};  // gamma_p and the cap pressure (positive)
    double lastDSig1 = 0.0;
    double lastDEps1 = 0.0;

    void start(double s1, double s2, double s3, double gamma_p, double cap) {
        prs = Vec3{{s1, s2, s3}};
        sig(1) = s1;
        sig(2) = s2;
        sig(3) = s3;
        hard[0] = gamma_p;
        hard[1] = cap;
    }
};

// The silent kernel on the triaxial edge (area 2), with the strength and
// stiffness of its call hp at the start stresses Prs_0. Only models 1 to 3
// are calibrated; any other option ends the run silently.
void silent_return(const HsMaterial& mt, int option, const HsParams& hp, const Vec3& Prs_E,
                   const Vec3& Prs_0, const double* hard, Vec3& Prs, double* hardOut,
                   int& iRes) {
    if (option < 1 || option > 3) stop_run("");
    KernelCall k;
    k.iArea = 2;
    k.Prs_E = Prs_E;
    k.Prs_0 = Prs_0;
    k.HardPar_E = hard;
    HS_CAP_plast_it(k, mt, KernelOut{Prs, hardOut, iRes}, hp);
}

// One load increment dSig: the strains from the inverse elastic matrix at the
// current principal stresses, the trial stresses split into principal values
// and returned by the silent kernel on the triaxial edge (area 2). With
// rotate, the returned principal values are turned back with the trial
// directions; otherwise they become the axial and lateral stresses directly.
void load_increment(const HsMaterial& mt, int option, Sample& s, const Vec6& dSig,
                    bool rotate) {
    double D[36], C[36];
    Vec6 dEps, trial;
    // The stiffness at the minor stress, once for the elastic matrix and the
    // kernel's call: Matriz6 of that modulus is Matriz6 at s.prs.
    const HsParams hp = hs_params(mt, 1.0, s.prs(3));
    Matriz6_of(mt, hp.Eur, D);
    matinvpiv(D, C, 6);
    matvec(C, 6, dSig.data(), 6, dEps.data());
    addvec(s.eps.data(), dEps.data(), 1.0, 1.0, 6, s.eps.data());
    addvec(s.sig.data(), dSig.data(), 1.0, 1.0, 6, trial.data());
    double xN1[3], xN2[3], xN3[3], S1, S2, S3, P, Q;
    prnsig(1, trial.data(), xN1, xN2, xN3, S1, S2, S3, P, Q);
    const Vec3 Prs_E{{S3, S2, S1}};
    Vec3 Prs;
    double hardOut[2] = {s.hard[0], s.hard[1]};
    int iRes = 0;
    silent_return(mt, option, hp, Prs_E, s.prs, s.hard, Prs, hardOut, iRes);
    s.hard[0] = hardOut[0];
    s.hard[1] = hardOut[1];
    s.prs = Prs;
    if (rotate) {
        carsig(Prs(3), Prs(2), Prs(1), xN1, xN2, xN3, s.sig.data());
    } else {
        s.sig = Vec6{{Prs(1), Prs(2), Prs(3), 0.0, 0.0, 0.0}};
    }
    s.lastDSig1 = dSig(1);
    s.lastDEps1 = dEps(1);
}

// Axial strain at which a drained triaxial test at 100.0 reaches q50: the
// axial stress goes up by 0.01 per increment, the lateral ones are brought
// back to 100.0.
double triaxial_strain_at(const double* Props, int option, double q50) {
    const HsMaterial mt = read_material(option, Props);
    Sample s;
    s.start(100.0, 100.0, 100.0, 1e-09, 100.0);
    if (q50 <= 0.0) return 0.0;
    do {
        const Vec6 dSig{{0.01, 100.0 - s.sig(2), 100.0 - s.sig(3), 0.0, 0.0, 0.0}};
        load_increment(mt, option, s, dSig, false);
    } while (!(std::fabs(s.sig(1) - s.sig(3)) >= q50));
    return s.eps(1);
}


// A search by steps on one parameter: the step shrinks when the direction
// turns, and after a number of runs the counter restarts with the fine step.
struct Search {
    double step;
    int fineAfter;
    int direction = 1;
    int counter = 0;

    void count() {
        counter = counter + 1;
        if (counter == fineAfter) {
            counter = 0;
            step = kFineStep;
        }
    }
};

// Initial stiffness of the hyperbola: triaxial runs until the strain at q50
// lies within 0.1 % of eps_t. Writes every trial value to Props(13).
double find_Ei(double* Props_, int option, double q50, double eps_t) {
    double Ei = Props_[12];
    Search sr{0.01, 101};
    for (;;) {
        sr.count();
        const double eps1 = triaxial_strain_at(Props_, option, q50);
        if (eps1 > 1.001 * eps_t) {
            if (sr.direction < 0) sr.step = sr.step * 0.99;
            Ei = (1.0 + sr.step) * Ei;
            Props_[12] = Ei;
            ListRecord() << "increase Ei_ref_inter to" << Ei << ListRecord::end;
            sr.direction = 1;
        } else if (eps1 < 0.999 * eps_t) {
            if (sr.direction > 0) sr.step = sr.step * 0.99;
            Ei = (1.0 - sr.step) * Ei;
            Props_[12] = Ei;
            ListRecord() << "reduce Ei_ref_inter to" << Ei << ListRecord::end;
            sr.direction = -1;
        } else {
            ListRecord() << "Ei_ref_inter is determined:" << Ei << ListRecord::end;
            Props_[12] = Ei;
            return Ei;
        }
    }
}

// Hardening pair of the start state (1.0, K0, K0): the hyperbolic gamma_p at
// the start deviator (capped at the failure deviator) and the cap through
// that state.
void start_pair(const double* Props_, double K0, double& gamma_p, double& cap) {
    const HsMaterial now = read_material(1, Props_);
    const double qf = now.qf(std::max(std::max(now.T + now.ccot, now.ccot + K0), 1.0));
    const double q = std::min(1.0 - K0, qf);
    const double qa = now.qa(qf);
    const double fe = now.stress_factor(K0);
    gamma_p = HsMaterial::hyperbola_gamma(q, qa, now.E_hyp * fe, fe * now.Eur_ref);
    const double qt = HsMaterial::cap_qt(Vec3{{1.0, K0, K0}}, now.delta());
    const double p = (1.0 + 2.0 * K0) / 3.0;
    cap = std::pow(qt * qt / (now.alpha * now.alpha) + p * p, 0.5);
}

// A one-dimensional loading on the path sigma3 = K0 sigma1 up to 500.0.
void oedometer_run(const double* Props_, int option, double K0, Sample& smp) {
    double gamma_p, cap;
    start_pair(Props_, K0, gamma_p, cap);
    const HsMaterial mt = read_material(option, Props_);
    smp = Sample{};
    smp.start(1.0, K0, K0, gamma_p, cap);
    do {
        const Vec6 dSig{{0.01, K0 * smp.sig(1) - smp.sig(2), K0 * smp.sig(1) - smp.sig(3), 0.0,
                         0.0, 0.0}};
        load_increment(mt, option, smp, dSig, true);
    } while (!(smp.sig(1) >= 500.0));
}

// Earth-pressure coefficient of normal consolidation: oedometer runs until
// the lateral strain is within 0.01 % of the axial one. Writes every trial
// value to Props(10); smp keeps the last run.
double find_K0(double* Props_, int option, Sample& smp) {
    double K0 = Props_[9];
    Search sr{0.005, 61};
    for (;;) {
        sr.count();
        oedometer_run(Props_, option, K0, smp);
        const double eps1 = smp.eps(1);
        const double eps3 = smp.eps(3);
        const double tol = 0.0001 * std::fabs(eps1);
        if (eps3 > tol) {
            if (sr.direction < 0) sr.step = std::max(sr.step * 0.8, 1e-07);
            K0 = K0 * (1.0 - sr.step);
            Props_[9] = K0;
            ListRecord() << "reduce K0_nc_inter to" << K0 << ListRecord::end;
            sr.direction = 1;
        } else if (eps3 < -tol) {
            if (sr.direction > 0) sr.step = std::max(sr.step * 0.8, 1e-07);
            K0 = K0 * (1.0 + sr.step);
            Props_[9] = K0;
            ListRecord() << "increase K0_nc_inter to" << K0 << ListRecord::end;
            sr.direction = -1;
        } else {
            return K0;
        }
    }
}

}  // namespace

void Iterative_hss(double* Props_, int option) {
    const Props P(Props_);
    say("Iterative_hss started");
    {
        ListRecord r;
        r << "Props";
        for (int i = 1; i <= 15; ++i) r << P(i);
        r.write(6);
    }
    // The calibration reads model 1's layout whatever the option.
    const HsMaterial hs = read_material(1, Props_);
    const double qf_ref =
        hs.qf_product_first(std::max(hs.ccot + hs.pref, std::max(0.0, hs.ccot - hs.T)));
    const double q50 = qf_ref / 2.0;
    const double eps_t = qf_ref / (2.0 * hs.E50_ref);

    const double Ei = find_Ei(Props_, option, q50, eps_t);
    Sample smp;  // the last run's sample gives Eoed
    const double K0 = find_K0(Props_, option, smp);

    // Oedometric stiffness of the last increment, brought back to pref.
    const double sigma1 = smp.sig(3) / K0;
    const double Eoed =
        (smp.lastDSig1 / smp.lastDEps1) / hs.stress_ratio_pow(sigma1 * hs.sinphi + hs.ccos);

    ListRecord() << "Ei_ref_inter" << Ei << ListRecord::end;
    if (option == 1) ListRecord() << "beta" << P(15) << ListRecord::end;
    if (option == 3) ListRecord() << "xKtmKc" << P(15) << ListRecord::end;
    ListRecord() << "alfa" << P(14) << ListRecord::end;
    ListRecord() << "xK0_nc_inter" << K0 << ListRecord::end;
    ListRecord() << "Eoed_ref_inter" << Eoed << ListRecord::end;
}

}  // namespace tervak
