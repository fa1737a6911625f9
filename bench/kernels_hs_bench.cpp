// Time per call of the shear-hardening kernels, by kernel, model and area.
// Each benchmark cycles through a fixed set of seeded trial states that
// violate the kernel's surfaces (prepared outside the timed loop).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "support/kernel_calls.hpp"
#include "kernels/kernels.hpp"
#include "toolkit/elastic.hpp"

namespace {

using tervak::Mat3;
using tervak::Vec3;

enum class Kind { HS, HS_TRAC, HS_CAP, HS_CAP_IT };

struct Case {
    std::array<double, 25> props{};
    Vec3 Prs_0, Prs_E;
    double hard[2] = {};
    Mat3 D3;
    double R = 1.0;
};

// Props for model 1 (odd layout) or 2 (even layout), mid-range soil.
std::array<double, 25> soil(int iModel) {
    std::array<double, 25> p{};
    auto P = [&](int i) -> double& { return p[static_cast<std::size_t>(i - 1)]; };
    const double E50 = 4e4, Eur = 1.2e5, Ei = 2.0 * E50 / 1.1;
    if (iModel == 1 || iModel == 3) {
        P(1) = E50; P(2) = E50; P(3) = Eur; P(4) = 0.7; P(5) = 10.0; P(6) = 32.0; P(7) = 4.0;
        P(8) = 0.2; P(9) = 100.0; P(10) = 0.5; P(11) = 0.9; P(12) = 2.0; P(13) = Ei;
        P(14) = 1.5; P(15) = 2.0;
    } else {
        P(1) = Eur / 1.8; P(7) = 0.5; P(11) = Eur; P(12) = 0.7; P(13) = 100.0; P(14) = 10.0;
        P(15) = 32.0; P(16) = 4.0; P(17) = 0.5; P(18) = 0.9; P(19) = 2.0; P(20) = E50;
        P(21) = 1.5; P(22) = 2.0;
    }
    return p;
}

// Shear function with qf, qa, Ei, Eur of the start stress s3 (models 1/3 layout
// or 2/4 layout), used to place the start on the surface.
double f_shear(const std::array<double, 25>& p, int iModel, double s3, double q, double g) {
    const bool odd = iModel == 1 || iModel == 3;
    auto P = [&](int i) { return p[static_cast<std::size_t>(i - 1)]; };
    const double c = odd ? P(5) : P(14), phi = (odd ? P(6) : P(15)) * 0.017453292519444445;
    const double pref = odd ? P(9) : P(13), m = odd ? P(4) : P(12), Rf = odd ? P(11) : P(18);
    const double T = odd ? P(12) : P(19), Eh = odd ? P(13) : P(20), Eu = odd ? P(3) : P(11);
    const double s = std::sin(phi), cc = c * std::cos(phi), ccot = cc / s;
    const double qf = 2.0 * s / (1.0 - s) * std::max(s3 + ccot, std::max(1.0, ccot + T));
    const double qa = qf / Rf;
    const double S = std::pow(std::max(s3 * s + cc, std::max(1.0, cc)) / (pref * s + cc), m);
    q = std::min(q, qf);
    return q / std::fabs(qa - q) * (2.0 * qa / (Eh * S)) - 2.0 * q / (Eu * S) - g;
}

std::vector<Case> make_cases(Kind kind, int iModel, int area) {
    std::mt19937_64 g(1000 + 10 * iModel + area + 100 * static_cast<int>(kind));
    auto u = [&](double a, double b) { return std::uniform_real_distribution<double>(a, b)(g); };
    std::vector<Case> cases;
    const std::array<double, 25> props = soil(iModel);
    for (int k = 0; k < 20000 && cases.size() < 256; ++k) {
        Case c;
        c.props = props;
        c.R = (iModel == 2 || iModel == 4) ? 1.2 : 1.0;
        const bool tension = kind == Kind::HS_TRAC;
        const double s3 = tension ? u(0.5, 10.0) : u(30.0, 300.0);
        const double q = u(0.1, 0.5) * (s3 + 30.0) * 2.0;
        double s2 = s3 + u(0.1, 0.9) * q;
        if (area == 2) s2 = s3;
        if (area == 3) s2 = s3 + q;
        c.Prs_0 = Vec3{{s3 + q, s2, s3}};
        c.hard[0] = std::max(f_shear(props, iModel, s3, q, 0.0), 1e-10);
        const double sp = std::sin(32.0 * 0.017453292519444445), delta = (3.0 + sp) / (3.0 - sp);
        const double qt = c.Prs_0(1) + (delta - 1.0) * c.Prs_0(2) - delta * c.Prs_0(3);
        const double p = (c.Prs_0(1) + c.Prs_0(2) + c.Prs_0(3)) / 3.0;
        c.hard[1] = -std::sqrt(qt * qt / 2.25 + p * p) * 1.05;
        // Elastic matrix at the start stress (models 1/3 formula for all four).
        std::array<double, 25> odd = soil(1);
        tervak::Matriz3(odd.data(), c.Prs_0.data(), c.D3.data(), 1);
        const double e = u(2e-4, 1.5e-3);
        const double vol = kind == Kind::HS_TRAC ? -0.6 : (kind == Kind::HS ? 0.0 : 0.8);
        Vec3 de{{e, (u(-0.5, 0.5) + vol) * e, (u(-0.5, 0.2) + vol) * e}};
        if (area == 2) {
            const double lat = (u(-0.45, 0.2) + vol) * e;
            de = Vec3{{e, lat, lat}};
        }
        if (area == 3) {
            const double ax = (u(-0.45, 0.2) + vol) * e;
            de = Vec3{{ax, ax, -e}};
        }
        for (int i = 1; i <= 3; ++i) {
            double s = 0.0;
            for (int j = 1; j <= 3; ++j) s += c.D3(i, j) * de(j);
            c.Prs_E(i) = c.Prs_0(i) + s;
        }
        if (!(c.Prs_E(1) >= c.Prs_E(2) && c.Prs_E(2) >= c.Prs_E(3))) continue;
        // Keep the states whose return is accepted: the typical call.
        tervak::HsOutcome out;
        Vec3 Prs;
        double hard[2];
        int iPlast = 0, iRes = 0;
        switch (kind) {
            case Kind::HS:
                tervak::HS_plast_r(1, 1, -1, 0, area, c.props.data(), c.Prs_E, Prs, c.hard, hard,
                                   iPlast, c.Prs_0, 0, c.D3, c.R, iModel, &out);
                break;
            case Kind::HS_TRAC:
                tervak::HS_TRAC_plast_r(1, 1, -1, 0, area, c.props.data(), c.Prs_E, Prs, c.hard,
                                        hard, iPlast, c.Prs_0, 0, c.D3, c.R, iModel, &out);
                break;
            case Kind::HS_CAP:
                tervak::HS_CAP_plast_r(1, 1, -1, 0, area, c.props.data(), c.Prs_E, Prs, c.hard,
                                       hard, iPlast, c.Prs_0, 0, c.D3, c.R, iModel, &out);
                break;
            case Kind::HS_CAP_IT:
                tervak::HS_CAP_plast_it_r(area, c.props.data(), c.Prs_E, Prs, c.hard, hard, iRes,
                                          c.Prs_0, iModel, &out);
                break;
        }
        if (out.ok) cases.push_back(c);
    }
    return cases;
}

void run(benchmark::State& state, Kind kind, int iModel, int area) {
    const std::vector<Case> cases = make_cases(kind, iModel, area);
    if (cases.empty()) {
        state.SkipWithError("no accepted trial states");
        return;
    }
    std::size_t k = 0;
    long passes = 0;
    for (auto _ : state) {
        const Case& c = cases[k];
        k = (k + 1) % cases.size();
        Vec3 Prs;
        double hard[2];
        int iPlast = 0;
        switch (kind) {
            case Kind::HS:
                tervak::HS_plast(1, 1, -1, 0, area, c.props.data(), c.Prs_E, Prs, c.hard, hard,
                                 iPlast, c.Prs_0, 0, c.D3, c.R, iModel);
                break;
            case Kind::HS_TRAC:
                tervak::HS_TRAC_plast(1, 1, -1, 0, area, c.props.data(), c.Prs_E, Prs, c.hard,
                                      hard, iPlast, c.Prs_0, 0, c.D3, c.R, iModel);
                break;
            case Kind::HS_CAP:
                tervak::HS_CAP_plast(1, 1, -1, 0, area, c.props.data(), c.Prs_E, Prs, c.hard,
                                     hard, iPlast, c.Prs_0, 0, c.D3, c.R, iModel);
                break;
            case Kind::HS_CAP_IT:
                tervak::HS_CAP_plast_it(area, c.props.data(), c.Prs_E, Prs, c.hard, hard, iPlast,
                                        c.Prs_0, iModel);
                break;
        }
        benchmark::DoNotOptimize(Prs);
        benchmark::DoNotOptimize(hard);
    }
    // Mean correction passes over the case set, for reading the timings.
    for (const Case& c : cases) {
        tervak::HsOutcome out;
        Vec3 Prs;
        double hard[2];
        int iPlast = 0;
        if (kind == Kind::HS)
            tervak::HS_plast_r(1, 1, -1, 0, area, c.props.data(), c.Prs_E, Prs, c.hard, hard,
                               iPlast, c.Prs_0, 0, c.D3, c.R, iModel, &out);
        else if (kind == Kind::HS_TRAC)
            tervak::HS_TRAC_plast_r(1, 1, -1, 0, area, c.props.data(), c.Prs_E, Prs, c.hard, hard,
                                    iPlast, c.Prs_0, 0, c.D3, c.R, iModel, &out);
        else if (kind == Kind::HS_CAP)
            tervak::HS_CAP_plast_r(1, 1, -1, 0, area, c.props.data(), c.Prs_E, Prs, c.hard, hard,
                                   iPlast, c.Prs_0, 0, c.D3, c.R, iModel, &out);
        else
            tervak::HS_CAP_plast_it_r(area, c.props.data(), c.Prs_E, Prs, c.hard, hard, iPlast,
                                      c.Prs_0, iModel, &out);
        passes += out.it;
    }
    state.counters["passes"] = static_cast<double>(passes) / static_cast<double>(cases.size());
    state.counters["states"] = static_cast<double>(cases.size());
}

void BM_HS_plast(benchmark::State& s) {
    run(s, Kind::HS, static_cast<int>(s.range(0)), static_cast<int>(s.range(1)));
}
void BM_HS_TRAC_plast(benchmark::State& s) {
    run(s, Kind::HS_TRAC, static_cast<int>(s.range(0)), static_cast<int>(s.range(1)));
}
void BM_HS_CAP_plast(benchmark::State& s) {
    run(s, Kind::HS_CAP, static_cast<int>(s.range(0)), static_cast<int>(s.range(1)));
}
void BM_HS_CAP_plast_it(benchmark::State& s) {
    run(s, Kind::HS_CAP_IT, static_cast<int>(s.range(0)), static_cast<int>(s.range(1)));
}

BENCHMARK(BM_HS_plast)->ArgsProduct({{1, 2}, {1, 2, 3}})->ArgNames({"model", "area"});
BENCHMARK(BM_HS_TRAC_plast)->ArgsProduct({{1, 2}, {1, 2, 3}})->ArgNames({"model", "area"});
BENCHMARK(BM_HS_CAP_plast)->ArgsProduct({{1, 2}, {1, 2, 3}})->ArgNames({"model", "area"});
BENCHMARK(BM_HS_CAP_plast_it)->ArgsProduct({{1}, {2}})->ArgNames({"model", "area"});

}  // namespace
