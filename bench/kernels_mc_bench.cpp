// Nanoseconds per call of the Mohr-Coulomb family kernels, one plastic
// trial per kernel and area (each returned in the first step, as in use).
#include <benchmark/benchmark.h>

#include <cmath>

#include "kernels/kernels.hpp"
#include "support/kernel_calls.hpp"
#include "toolkit/elastic.hpp"

namespace {

using tervak::Mat3;
using tervak::Vec3;

using Kernel = void (*)(int, int, int, int, int, const double*, const Vec3&, Vec3&,
                        const double*, double*, int&, const Vec3&, const Mat3&, int);

struct Setup {
    double props[16] = {0, 0, 4.0e4, 0.5, 10.0, 32.0, 4.0, 0.25, 100.0, 0.5, 0.9, 2.0,
                        3.0e4, 1.2, 1.5, 1.0};
    Mat3 D3;
    Vec3 Prs_E;
};

// A point on the area's faces pushed outward along D3 times the flow vectors.
Setup make(Kernel k, int area) {
    Setup s;
    const double sp = std::sin(32.0 * 0.017453292519444445);
    const double cc = 10.0 * std::cos(32.0 * 0.017453292519444445);
    const double sq = std::sin(4.0 * 0.017453292519444445);
    const double st = -2.0;
    const bool tension_only = (k == static_cast<Kernel>(tervak::TRAC_plast));
    const bool with_cut_off = (k == static_cast<Kernel>(tervak::MC_TRAC_plast));
    const double s3 = (tension_only || with_cut_off) ? st : 80.0;
    const double s1 = tension_only ? 150.0 : (s3 * (1.0 + sp) + 2.0 * cc) / (1.0 - sp);
    Vec3 P{{s1, area == 1 ? 0.5 * (s1 + s3) : (area == 2 ? s3 : s1), s3}};
    tervak::Matriz3(s.props, P.data(), s.D3.data(), 1);
    const Vec3 mc13{{(1.0 - sq) / 2.0, 0.0, -(1.0 + sq) / 2.0}};
    const Vec3 second = area == 2 ? Vec3{{(1.0 - sq) / 2.0, -(1.0 + sq) / 2.0, 0.0}}
                                  : Vec3{{0.0, (1.0 - sq) / 2.0, -(1.0 + sq) / 2.0}};
    const Vec3 cut{{0.0, 0.0, -1.0}};
    auto push = [&](const Vec3& m, double lam) {
        for (int i = 1; i <= 3; ++i)
            for (int j = 1; j <= 3; ++j) P(i) += lam * s.D3(i, j) * m(j);
    };
    if (tension_only) {
        push(cut, 1e-4);
        if (area == 2) push(Vec3{{0.0, -1.0, 0.0}}, 1e-4);
        if (area == 3) push(Vec3{{-1.0, 1.0, 0.0}}, 1e-4);
    } else {
        push(mc13, 1e-3);
        if (area != 1) push(second, 5e-4);
        if (with_cut_off) push(cut, 1e-4);
    }
    s.Prs_E = P;
    return s;
}

void run(benchmark::State& state, Kernel k) {
    const int area = static_cast<int>(state.range(0));
    const Setup s = make(k, area);
    const double hardE[2] = {0.01, -150.0};
    const Vec3 Prs_0;
    for (auto _ : state) {
        Vec3 Prs;
        double hard[2] = {0.0, 0.0};
        int iPlast = 0;
        k(1, 1, -1, 0, area, s.props, s.Prs_E, Prs, hardE, hard, iPlast, Prs_0, s.D3, 1);
        benchmark::DoNotOptimize(Prs);
        benchmark::DoNotOptimize(hard);
    }
}

void BM_MC_plast(benchmark::State& state) { run(state, tervak::MC_plast); }
void BM_TRAC_plast(benchmark::State& state) { run(state, tervak::TRAC_plast); }
void BM_MC_TRAC_plast(benchmark::State& state) { run(state, tervak::MC_TRAC_plast); }

BENCHMARK(BM_MC_plast)->DenseRange(1, 3);
BENCHMARK(BM_TRAC_plast)->DenseRange(1, 3);
BENCHMARK(BM_MC_TRAC_plast)->DenseRange(1, 3);

}  // namespace
