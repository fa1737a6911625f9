// The frame of models 2 and 4: task answers, the initial state, the
// elastic matrix of the stiffness tasks and the stress task with its
// sub-increment loop. Principal stresses are compression positive inside;
// the host's stresses and strains are tension positive.
#include "models/small_strain.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "models/material.hpp"
#include "models/parameters.hpp"
#include "toolkit/elastic.hpp"
#include "toolkit/principal.hpp"
#include "toolkit/records.hpp"
#include "toolkit/usrlib.hpp"
#include "toolkit/writers.hpp"

namespace tervak::ss {

namespace {

using View = tervak::Props;

int debug_unit(const ModelArgs& a) { return (*a.iEl == kElDbg && *a.Int == kIntDbg) ? 6 : -1; }

void header(const ModelArgs& a, int io) {
    if (io < 1) return;
    ListRecord() << "IDTask:" << *a.IDTask << "iEl:" << *a.iEl << "Int:" << *a.Int
                 << "iStep:" << *a.iStep << "iTer:" << *a.iTer << ListRecord::end;
    trace(io, "IsUndr", *a.IsUndr);
    say("____________________________________________________________");
}

// The floored and unfloored mean stress.
double mean_stress(const Vec3& Prs) { return (Prs(1) + Prs(2) + Prs(3)) / 3.0; }

double floored(double p) { return p <= 1.0 ? 1.0 : p; }

// D x for a matrix D of Matriz6_NL (column-major 6x6: the normal block
// holds the diagonal and off-diagonal entries, the shear diagonal the shear
// modulus, every other entry is zero), with matvec's result: each entry the
// sum from zero of D(i,j) x(j), j ascending. When D and x are finite it is
// formed here: the products with the zero entries are +-0, and they leave
// the running sum as it is, since that sum starts at +0 and a sum rounded to
// nearest is -0 only when both of its terms are; the only NaN that can arise
// is the processor's default one, so the compiler's operand order cannot
// change a bit either. Otherwise matvec forms it.
Vec6 times6(const double* D, const double* x) {
    Vec6 y;
    const double distinct[3] = {D[0], D[6], D[21]};
    if (!all_finite(distinct, 3) || !all_finite(x, 6)) {
        matvec(D, 6, x, 6, y.data());
        return y;
    }
#pragma GCC unroll 3
    for (int i = 0; i < 3; ++i) {
        double s = 0.0;
#pragma GCC unroll 3
        for (int j = 0; j < 3; ++j) s = s + D[i + 6 * j] * x[j];
        y.v[i] = s;
    }
#pragma GCC unroll 3
    for (int i = 3; i < 6; ++i) y.v[i] = 0.0 + D[i + 6 * i] * x[i];
    return y;
}

// Strain of an isotropic material of moduli K, G under the stress x
// (engineering shear strains out).
Vec6 compliance(double K, double G, const double* x) {
    const double m = (x[0] + x[1] + x[2]) / 3.0;
    Vec6 e;
    for (int i = 0; i < 3; ++i) e.v[i] = m / (3.0 * K) + (x[i] - m) / (2.0 * G);
    for (int i = 3; i < 6; ++i) e.v[i] = x[i] / G;
    return e;
}

// Sum of the squares of the three deviatoric normal components and the
// three shear components of a vector.
double deviator_squares(const double* x) {
    const Vec6 d = [&] {
        double m = 0.0;
        for (int i = 0; i < 3; ++i) m = m + x[i];
        m = m / 3.0;
        Vec6 r;
        for (int i = 0; i < 3; ++i) r.v[i] = x[i] - m;
        for (int i = 3; i < 6; ++i) r.v[i] = x[i];
        return r;
    }();
    double s = 0.0;
    for (int i = 0; i < 6; ++i) s = s + d.v[i] * d.v[i];
    return s;
}

double tau_m(const double* sig) { return std::sqrt((1.0 / 3.0) * deviator_squares(sig)); }
double gamma_m(const double* eps) { return std::sqrt((4.0 / 3.0) * deviator_squares(eps)); }

// One sub-increment: stiffness, elastic predictor, return mapping, strain
// bookkeeping and cycle closure. sig0/sv0 at the start, sig/sv at the end;
// c holds what the previous sub-increment left and receives what this one
// leaves when more follow.
void sub_increment(const Point& pt, const double* sig0, const double* sv0, const double* dEps,
                   const Norms& n, Carry& c, bool more, double* sig, double* sv, double* D,
                   int& npi, int& iPlast) {
    const int io = pt.io;
    std::memcpy(sv, sv0, sizeof(double) * kNStat);

    const Vec3 Prs_0 = compression_triple(sig0);
    trace(io, "Prs_0", Prs_0.data(), 3);
    const double p_raw = mean_stress(Prs_0);
    const double p = floored(p_raw);

    const Stiffness st = small_strain_stiffness(pt, p, p_raw, dEps, n, c, sv0, sv);
    npi = st.npi;
    trace(io, npi == 1 ? "ELÁSTICO LINEAL, npi=" : "ELÁSTICO NO LINEAL, npi=", npi);

    // Elastic predictor.
    Matriz6_NL(D, st.K, st.G);
    const Vec6 dSig = times6(D, dEps);
    Vec6 sig_E;
    addvec(sig0, dSig.data(), 1.0, 1.0, 6, sig_E.data());
    if (npi == 0) {
        double dD[36];
        Matriz6_NL(dD, st.dK, st.dG);
        const Vec6 dSec = times6(dD, st.rel.data());
        addvec(sig_E.data(), dSec.data(), 1.0, 1.0, 6, sig_E.data());
    }

    double xN[3][3];
    const Vec3 Prs_E = compression_triple(sig_E.data(), xN);
    trace(io, "Prs_E", Prs_E.data(), 3);

    // Return mapping with the modulus ratio floored at 1.
    const double R = std::max(View(sv)(m2::sv::G_ratio), 1.0);
    Vec3 Prs;
    int kernel = 0;
    stress_point(pt, Prs_0, Prs_E, Prs, sv0, sv, kernel, st.K, st.G, R);
    if (kernel != 0) iPlast = kernel;
    trace(io, "Las tensiones ppales al final de este paso de cálculo son Prs=", Prs.data(), 3);
    carsig(-Prs(1), -Prs(2), -Prs(3), xN[0], xN[1], xN[2], sig);

    // Elastic strain: the increment less the plastic strain of the return.
    Vec6 dEpsPl;
    if (kernel != 0) {
        Vec6 dSigPl;
        addvec(sig_E.data(), sig, 1.0, -1.0, 6, dSigPl.data());
        dEpsPl = compliance(st.K, st.G, dSigPl.data());
    }
    double* eps_el = at(sv, m2::sv::eps_el);
    for (int i = 0; i < 6; ++i) eps_el[i] = eps_el[i] + (dEps[i] - dEpsPl.v[i]);

    const bool closed = cycle_closure(pt, st, sv);
    c.valid = more && !closed;
    if (c.valid) c = Carry{true, st.e_new, st.rel, st.nrel, st.h};
}

// Sub-increments: each carries at most half the threshold strain
// gamma_0.7 of octahedral shear strain, and there are at most 100.
double sub_fraction(const HsMaterial& mt, double nde) {
    const double gamma = kOct * nde;
    const double limit = 0.5 * mt.ss.gamma_07;
    if (!(limit > 0.0) || !(gamma > limit)) return 1.0;
    const double n = std::min(std::ceil(gamma / limit), 100.0);
    return 1.0 / n;
}

}  // namespace

void initial_state(const ModelArgs& a, const Variant& v) {
    const HsMaterial mt = read_material(v.iModel, a.Props);
    const State S(a.StVar0);

    // Initial stresses, compression positive.
    const double sxx = -a.Sig0[0];
    const double syy = -a.Sig0[1];
    const double szz = -a.Sig0[2];
    const double p0 = (sxx + syy + szz) / 3.0;
    double p_eq = (2.0 * mt.K0 + 1.0) / 3.0 * syy * mt.OCR;
    if (p_eq < p0) p_eq = p0;
    double q_eq = (1.0 - mt.K0) * syy * mt.OCR;
    if (q_eq < sxx - szz) q_eq = sxx - szz;
    const double p_p = std::sqrt(p_eq * p_eq + (q_eq / mt.alpha) * (q_eq / mt.alpha));

    const double qf = mt.qf_product_first(std::max({mt.ccot + mt.T, mt.ccot + szz, 1.0}));
    const double qa = mt.qa(qf);
    const double factor = mt.stress_factor_of(mt.ccos + szz * mt.sinphi);
    const double q = q_eq;
    const double gamma_new =
        HsMaterial::hyperbola_gamma(q, qa, factor * mt.E_hyp, factor * mt.Eur_ref);
    S(m2::sv::gamma_p) = std::max(gamma_new, std::max(v.gammaFloor, S(m2::sv::gamma_p)));
    S(m2::sv::p_p) = std::min({S(m2::sv::p_p), v.capCeiling, -p_p});

    // The small-strain memory: G0 and, on reset, the strain history.
    const bool reset = mt.ss.reset == 1.0;
    if (S(m2::sv::G0) < 1.0 || reset) S(m2::sv::G0) = mt.ss.G0_ref;
    if (reset) mzeror(at(a.StVar0, m2::sv::H), m2::sv::xH_M - m2::sv::H);
    for (int i = m2::sv::xH_M; i < m2::sv::G_ref_min; ++i)
        S(i) = reset ? 0.0 : std::max(S(i), 0.0);
    for (int i = m2::sv::G_ref_min; i <= m2::sv::Gt_obs; ++i)
        if (S(i) < 1.0 || reset) S(i) = mt.ss.G0_ref;

    copyrvec(a.StVar0, a.StVar, kNStat);
}

void elastic_stiffness(const ModelArgs& a, const Variant& v) {
    const HsMaterial mt = read_material(v.iModel, a.Props);
    const View S0(a.StVar0);
    const int io = debug_unit(a);

    const double p = floored(mean_stress(compression_triple(a.Sig0)));
    const double s = mt.ss_shear_factor(p);
    const double G_ur_ref = mt.ss_G_ur_ref();
    const double G0 = mt.ss_G0_bounded(S0(m2::sv::G0));
    const double gamma_alfa_ur = mt.ss_cut_off_strain(G0, G_ur_ref);

    // Strain distance from the last reversal.
    const Vec6 e = deviatoric(at(a.StVar0, m2::sv::eps));
    Vec6 rel;
    addvec(e.data(), at(a.StVar0, m2::sv::eR1), 1.0, -1.0, 6, rel.data());
    const double gamma_oct_DR = kOct * modul(rel.data());
    const double G = s * (gamma_oct_DR >= gamma_alfa_ur ? G_ur_ref : S0(m2::sv::Gt_ap_ref));

    const double K_s = mt.ss.K_ref * mt.ss_bulk_factor(p);
    const double mean = (S0(m2::sv::eps) + S0(m2::sv::eps + 1) + S0(m2::sv::eps + 2)) / 3.0;
    const double e_ref = -p / (3.0 * mt.ss.m_K * K_s) - mean;
    double K = std::abs(e_ref) > 0.1 * std::abs(mean) ? (mean / e_ref + 1.0) * K_s
                                                       : K_s / (1.0 - mt.ss.m_K);
    const double nu = mt.nu_ur;
    const double Kmin = G * (2.0 / 3.0) * (1.0 + nu) / (1.0 - 2.0 * nu);
    if (Kmin > K) K = Kmin;

    Matriz6_NL(a.D, K, G);
    *a.BulkW = 0.0;
    if (*a.IsUndr == 1) *a.BulkW = 2.0 * G * 1.495 / 0.030000000000000027 - K;
    wrimat(io, "D6 en Task3,6", a.D, 6, 6, 6);
}

void stress_task(const ModelArgs& a, const Variant& v) {
    const int io = debug_unit(a);
    const HsMaterial mt = read_material(v.iModel, a.Props);
    const Point pt{a.Props, &mt, *a.iEl, *a.Int, *a.iTer, *a.IsUndr, io, &v};

    *a.Pw = *a.Pw0;
    if (*a.IsUndr == 1) *a.Pw = *a.Pw0 + *a.BulkW * (a.dEps[0] + a.dEps[1] + a.dEps[2]);

    // The state of the step lives in two buffers that take turns: each
    // sub-increment starts from the state the previous one wrote (the first
    // from StVar0) and writes the other buffer. The last one writes StVar
    // itself, unless the host passed one array for StVar and StVar0.
    Vec6 sig0, sig;
    double buf[2][kNStat];
    const double* sv0 = a.StVar0;
    double* sv = buf[0];
    const auto address = [](const double* x) { return reinterpret_cast<std::uintptr_t>(x); };
    const bool apart = address(a.StVar + kNStat) <= address(a.StVar0) ||
                       address(a.StVar0 + kNStat) <= address(a.StVar);
    const auto target = [&](bool last) { return last && apart ? a.StVar : sv; };
    std::copy_n(a.Sig0, 6, sig0.data());
    int npi = 1;
    int iPlast = 0;
    Carry carry;
    double* last = nullptr;  // the state the last sub-increment wrote
    const auto next = [&](double* written) {
        sig0 = sig;
        sv0 = last = written;
        sv = written == buf[0] ? buf[1] : buf[0];
    };

    const Vec6 de = deviatoric(a.dEps);
    const double nde = modul(de.data());
    const double nd = modul(a.dEps);
    if (nde > 0.01 * nd) {
        const double step = sub_fraction(mt, nde);
        double remaining = 1.0;
        for (int it = 1; remaining > 0.001; ++it) {
            double fraction = std::min(step, remaining);
            if (remaining - fraction <= 0.001) fraction = remaining;
            Vec6 dEps;
            for (int i = 1; i <= 6; ++i) dEps(i) = fraction * a.dEps[i - 1];
            // A whole increment is the host's: its norms are those above.
            const Norms n = fraction == 1.0 ? Norms{de, nde, nd, true} : Norms{};
            const bool more = fraction != remaining;
            double* const out = target(!more);
            sub_increment(pt, sig0.data(), sv0, dEps.data(), n, carry, more, sig.data(), out, a.D,
                          npi, iPlast);
            next(out);
            remaining = remaining - fraction;
        }
    } else {
        double* const out = target(true);
        sub_increment(pt, sig0.data(), sv0, a.dEps, Norms{de, nde, nd, true}, carry, false,
                      sig.data(), out, a.D, npi, iPlast);
        next(out);
    }
    trace(io, npi == 1 ? "PASO ELÁSTICO LINEAL, npi=" : "PASO ELÁSTICO NO LINEAL, npi=", npi);

    // Observed secant and tangent shear moduli of the point.
    const double tm = tau_m(sig0.data());
    const double gm = gamma_m(at(last, m2::sv::eps));
    const State S(last);
    if (gm > 1e-07) S(m2::sv::Gs_obs) = tm / gm;
    const double gm0 = gamma_m(at(a.StVar0, m2::sv::eps));
    if (std::abs(gm - gm0) > 1e-10)
        S(m2::sv::Gt_obs) = std::abs(tm - tau_m(a.Sig0)) / std::abs(gm - gm0);

    std::copy_n(sig0.data(), 6, a.Sig);
    if (last != a.StVar) std::memcpy(a.StVar, last, sizeof(double) * kNStat);
    *a.iPlast = iPlast;
}

void small_strain_model(const ModelArgs& a, const Variant& v) {
    const int io = debug_unit(a);
    header(a, io);
    switch (*a.IDTask) {
        case 1: initial_state(a, v); break;
        case 2: stress_task(a, v); break;
        case 3:
        case 6: elastic_stiffness(a, v); break;
        case 4:
            *a.nStat = kNStat;
            trace(io, "nStat", *a.nStat);
            break;
        case 5:
            *a.NonSym = 0;
            *a.StrsDep = 1;
            *a.TimeDep = 0;
            *a.Tangent = 0;
            break;
        default: break;
    }
}

}  // namespace tervak::ss
