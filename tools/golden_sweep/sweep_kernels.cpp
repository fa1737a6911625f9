// Every exported return-mapping kernel, over models, areas, partners and
// trial states from well inside to far outside the surfaces.
#include <algorithm>
#include <cstring>

#include "library.hpp"
#include "sections.hpp"
#include "sweep_support.hpp"

namespace sweep {

namespace {

struct KernelCase {
    i32 iEl = 0, Int = 0, iElDbg = 11, IntDbg = 4, iArea = 1, iPlast = -5, IsUndr = 0, iModel = 1;
    double P[25] = {};
    double Prs_E[3] = {}, Prs[3] = {}, Prs_0[3] = {};
    double H_E[62] = {}, H[62] = {};
    double D3[9] = {};
    double R = 1.0;
};

void sort_desc(double* x) { std::sort(x, x + 3, [](double a, double b) { return a > b; }); }

void principal_states(Rng& r, KernelCase& c) {
    const double p0 = r.decades(0.0, 3.0);
    for (double& x : c.Prs_0) x = p0 * (1.0 + r.range(-0.6, 0.6));
    if (r.chance(0.1)) for (double& x : c.Prs_0) x -= p0 * r.range(0.0, 1.5);
    sort_desc(c.Prs_0);
    const double mag = p0 * r.decades(-4.0, 0.5);
    for (int j = 0; j < 3; ++j) c.Prs_E[j] = c.Prs_0[j] + mag * r.range(-1.0, 1.0);
    if (r.chance(0.3)) c.Prs_E[0] += mag * r.range(0.0, 3.0);
    if (!r.chance(0.04)) sort_desc(c.Prs_E);
    for (int j = 0; j < 3; ++j) c.Prs[j] = r.range(-1.0, 1.0);
    c.H_E[0] = r.chance(0.05) ? 0.0 : r.decades(-7.0, -1.0);
    c.H_E[1] = -(c.Prs_0[0] + c.Prs_0[1] + c.Prs_0[2]) / 3.0 * r.range(0.3, 3.0);
    for (int j = 2; j < 62; ++j) c.H_E[j] = r.range(-1.0, 1.0);
    std::memcpy(c.H, c.H_E, sizeof c.H);
    if (r.chance(0.2)) c.H[0] = c.H[1] = 7.0;
}

void elastic_matrix(Rng& r, KernelCase& c) {
    if (c.iModel == 1 || c.iModel == 3) {
        using MatrizFn = void (*)(const double*, const double*, double*, const i32*);
        const double S[3] = {-c.Prs_0[0], -c.Prs_0[1], -c.Prs_0[0]};
        before_call();
        reinterpret_cast<MatrizFn>(symbol("matriz3_"))(c.P, r.chance(0.5) ? c.Prs_0 : S, c.D3,
                                                       &c.iModel);
        return;
    }
    const double G = r.decades(3.0, 5.0), K = G * r.range(0.7, 3.0);
    before_call();
    reinterpret_cast<void (*)(double*, const double*, const double*)>(symbol("matriz3_nl_"))(
        c.D3, &K, &G);
}

KernelCase make_case(Rng& r) {
    KernelCase c;
    c.iModel = r.chance(0.94) ? 1 + r.pick(4) : (r.chance(0.5) ? 0 : 5);
    model_props(r, c.iModel >= 1 && c.iModel <= 4 ? c.iModel : 1 + r.pick(4), c.P);
    principal_states(r, c);
    elastic_matrix(r, c);
    c.iArea = r.chance(0.015) ? (r.chance(0.5) ? 0 : 4) : 1 + r.pick(3);
    c.IsUndr = r.pick(2);
    c.R = r.chance(0.6) ? 1.0 : r.range(0.3, 1.0);
    const bool trace = r.chance(0.03);
    c.iElDbg = r.chance(0.1) ? -1 : 11;
    c.iEl = trace ? c.iElDbg : 1 + r.pick(900);
    c.Int = trace ? c.IntDbg : 1 + r.pick(12);
    return c;
}

void kernel(long k) {
    Rng r = case_rng(301, static_cast<std::uint64_t>(k));
    KernelCase c = make_case(r);
    const int which = static_cast<int>(k % 9);
    double factor = r.chance(0.5) ? 1.0 : r.range(0.5, 1.5);
    Out("kernel").i(k).i(which).i(c.iModel).i(c.iArea).i(c.IsUndr).i(c.iEl).i(c.Int).end();
    Kernel14Fn k14[] = {lib.mc_plast, lib.trac_plast, lib.mc_trac_plast};
    Kernel16Fn k16[] = {lib.hs_plast, lib.hs_trac_plast, lib.hs_cap_plast, lib.cap_plast};
    before_call();
    if (which < 3) {
        k14[which](&c.iEl, &c.Int, &c.iElDbg, &c.IntDbg, &c.iArea, c.P, c.Prs_E, c.Prs, c.H_E,
                   c.H, &c.iPlast, c.Prs_0, c.D3, &c.iModel);
    } else if (which < 7) {
        k16[which - 3](&c.iEl, &c.Int, &c.iElDbg, &c.IntDbg, &c.iArea, c.P, c.Prs_E, c.Prs, c.H_E,
                       c.H, &c.iPlast, c.Prs_0, &c.IsUndr, c.D3, &c.R, &c.iModel);
    } else if (which == 7) {
        lib.mc_cap_plast(&c.iEl, &c.Int, &c.iElDbg, &c.IntDbg, &c.iArea, c.P, c.Prs_E, c.Prs,
                         c.H_E, c.H, &c.iPlast, c.Prs_0, c.D3, &factor, &c.iModel);
    } else {
        if (c.iModel == 0 || c.iModel == 5 || (c.iModel == 4 && !r.chance(0.1))) c.iModel = 1;
        if (r.chance(0.3)) c.H_E[1] = -c.H_E[1];
        lib.hs_cap_plast_it(&c.iArea, c.P, c.Prs_E, c.Prs, c.H_E, c.H, &c.iPlast, c.Prs_0,
                            &c.iModel);
    }
    Out("out").v(c.Prs, 3).v(c.H, 2).i(c.iPlast).s(std::to_string(fnv(c.H, 62)).c_str())
        .s(std::to_string(fnv(c.H_E, 62) ^ fnv(c.Prs_E, 3) ^ fnv(c.P, 25)).c_str()).end();
}

}  // namespace

void kernel_sections() { guarded("kernels", 108000, kernel); }

}  // namespace sweep
