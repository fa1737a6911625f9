// Time of one stress-task call (task 2) of model 1, on the elastic path and
// on each chain of returns, for trial states built to take that path.
#include <benchmark/benchmark.h>

#include <array>

#include "models/models.hpp"
#include "trial_strain.hpp"

namespace {

// One stress point's worth of host arguments.
struct Point {
    int IDTask = 2, iModel = 1, IsUndr = 0, iStep = 1, iTer = 1, iEl = 1, Int = 1;
    int iPlast = 0, nStat = 0, NonSym = 0, StrsDep = 0, TimeDep = 0, Tangent = 0;
    double Time0 = 0.0, Pw0 = 0.0, BulkW = 0.0, Pw = 0.0;
    std::array<double, 20> Props{};
    std::array<double, 6> Sig0{}, dEps{}, Sig{};
    std::array<double, 2> StVar0{}, StVar{};
    std::array<double, 36> D{};

    tervak::ModelArgs args() {
        return tervak::ModelArgs{&IDTask, &iModel,       &IsUndr,      &iStep,    &iTer,
                                 &iEl,    &Int,          nullptr,      nullptr,   nullptr,
                                 &Time0,  nullptr,       Props.data(), Sig0.data(), &Pw0,
                                 StVar0.data(), dEps.data(), D.data(), &BulkW, Sig.data(),
                                 &Pw,     StVar.data(),  &iPlast,      &nStat,    &NonSym,
                                 &StrsDep, &TimeDep,     &Tangent,     nullptr};
    }
    void call(int task) {
        IDTask = task;
        tervak::mymodel1(args());
    }
};

// A dense sand at start stresses sig0 (compression positive, xx yy zz)
// with the hardening pair (gamma, pp), and the strain increment whose
// elastic trial stresses are `trial`.
Point setup(double c, double T, double alpha, std::array<double, 3> sig0, double gamma, double pp,
            std::array<double, 3> trial) {
    Point p;
    const double props[16] = {40000, 40000, 120000, 0.5, c,  38,    8,    0.2,
                              100,   0.3843, 0.9,   T,   72727, alpha, 0.0019, 1.0};
    for (int i = 0; i < 16; ++i) p.Props[static_cast<size_t>(i)] = props[i];
    p.Sig0 = {-sig0[0], -sig0[1], -sig0[2], 0, 0, 0};
    p.StVar0 = {gamma, -pp};
    p.call(3);
    const auto e = tervak_bench::strain_to_trial(p.D.data(), p.Sig0.data(), trial);
    for (int i = 0; i < 3; ++i) p.dEps[static_cast<size_t>(i)] = e[static_cast<size_t>(i)];
    return p;
}

void run(benchmark::State& state, Point p, int expectPlast) {
    const auto D = p.D;
    p.call(2);
    if (p.iPlast != expectPlast) state.SkipWithError("the trial state takes another path");
    for (auto _ : state) {
        p.D = D;
        p.call(2);
        benchmark::DoNotOptimize(p.Sig);
    }
}

void BM_model1_elastic(benchmark::State& s) {
    run(s, setup(1, 0, 1.25, {50, 100, 50}, 1e-2, 200, {51, 103, 51}), 0);
}
void BM_model1_HS(benchmark::State& s) {
    run(s, setup(1, 0, 1.25, {100, 100, 100}, 1e-4, 1000, {100, 250, 170}), 5);
}
void BM_model1_HS_edge(benchmark::State& s) {
    run(s, setup(1, 0, 1.25, {100, 100, 100}, 1e-4, 1000, {100, 250, 100}), 5);
}
void BM_model1_HS_MC(benchmark::State& s) {
    run(s, setup(1, 0, 1.25, {100, 350, 100}, 0.04, 1000, {60, 360, 100}), 1);
}
void BM_model1_MC(benchmark::State& s) {
    run(s, setup(1, 0, 1.25, {100, 200, 100}, 1.0, 1000, {30, 200, 100}), 1);
}
void BM_model1_TRAC(benchmark::State& s) {
    run(s, setup(20, 0, 1.25, {10, 20, 10}, 0.01, 1000, {-5, 20, 10}), 2);
}
void BM_model1_HS_TRAC(benchmark::State& s) {
    run(s, setup(20, 0, 1.25, {20, 40, 20}, 1e-3, 1000, {-30, 80, 20}), 2);
}
void BM_model1_MC_TRAC_chain(benchmark::State& s) {
    run(s, setup(5, 0, 1.25, {20, 40, 20}, 1e-3, 1000, {-60, 30, 10}), 1);
}
void BM_model1_CAP(benchmark::State& s) {
    run(s, setup(1, 0, 1.25, {100, 100, 100}, 0.01, 110, {150, 160, 155}), 3);
}
void BM_model1_HS_CAP_chain(benchmark::State& s) {
    run(s, setup(1, 0, 1.25, {100, 100, 100}, 1e-4, 120, {100, 400, 120}), 4);
}
void BM_model1_MC_CAP_chain(benchmark::State& s) {
    run(s, setup(1, 0, 1.25, {100, 300, 100}, 3e-2, 200, {60, 500, 80}), 1);
}
void BM_model1_CAP_MC_CAP(benchmark::State& s) {
    run(s, setup(1, 0, 4.0, {100, 100, 100}, 1.0, 110, {80, 300, 90}), 1);
}

BENCHMARK(BM_model1_elastic);
BENCHMARK(BM_model1_HS);
BENCHMARK(BM_model1_HS_edge);
BENCHMARK(BM_model1_HS_MC);
BENCHMARK(BM_model1_MC);
BENCHMARK(BM_model1_TRAC);
BENCHMARK(BM_model1_HS_TRAC);
BENCHMARK(BM_model1_MC_TRAC_chain);
BENCHMARK(BM_model1_CAP);
BENCHMARK(BM_model1_HS_CAP_chain);
BENCHMARK(BM_model1_MC_CAP_chain);
BENCHMARK(BM_model1_CAP_MC_CAP);

}  // namespace
