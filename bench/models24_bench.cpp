// Time of one stress task (task 2) of the small-strain models 2 and 4:
// an elastic small-strain step on the hyperbolic branch, and a plastic step
// with shear hardening. Each iteration repeats the same call from the same
// start state, as a host's iteration does.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <vector>

#include "models/models.hpp"

namespace {

// A stiff sand with strength and cap out of reach: elastic in simple shear.
const std::vector<double> kElastic{5.0e4, 1.0e5, 1.0e5, 1.5e-4, 100.0, 100.0, 0.5,   0.5, 0.0,
                                   0.0,   9.0e4, 0.5,   100.0,  1.0e4, 30.0,  0.0,   0.5, 0.9,
                                   1.0e5, 1.0e9, 100.0, 1.0,    0.2,   10.0,  1.0};
// The dense sand of examples/soils/dense_sand_small_strain.toml.
const std::vector<double> kDenseSand{25000.0, 100000.0, 75000.0, 0.00015, 100.0, 100.0, 0.5,
                                     0.5,     0.0,      0.0,     90000.0, 0.5,   100.0, 1.0,
                                     38.0,    8.0,      0.3843,  0.9,     0.0,   54545.0,
                                     1.25,    0.0019,   0.2,     1.0,     1.0};

struct Call {
    int32_t IDTask = 0, iModel = 2, IsUndr = 0, iStep = 1, iTer = 1, iEl = 1, Int = 1;
    int32_t dummy = 0;
    double Time0 = 0.0;
    std::vector<double> Props;
    std::array<double, 6> Sig0{}, dEps{}, Sig{};
    std::array<double, 62> StVar0{}, StVar{};
    std::array<double, 36> D{};
    double Pw0 = 0.0, Pw = 0.0, BulkW = 0.0;
    int32_t iPlast = 0, nStat = 0, NonSym = 0, StrsDep = 0, TimeDep = 0, Tangent = 0;

    tervak::ModelArgs args() {
        return tervak::ModelArgs{&IDTask, &iModel, &IsUndr, &iStep,  &iTer,  &iEl,
                                 &Int,    &dummy,  &dummy,  &dummy,  &Time0, &dummy,
                                 Props.data(),     Sig0.data(),      &Pw0,  StVar0.data(),
                                 dEps.data(),      D.data(),         &BulkW, Sig.data(),
                                 &Pw,     StVar.data(),     &iPlast, &nStat, &NonSym,
                                 &StrsDep, &TimeDep, &Tangent, &dummy};
    }
    void call(int task) {
        IDTask = task;
        const tervak::ModelArgs a = args();
        if (iModel == 2) tervak::mymodel2(a);
        else tervak::mymodel4(a);
    }
    void commit() {
        Sig0 = Sig;
        StVar0 = StVar;
    }
};

Call prepared(int model, const std::vector<double>& props, const std::array<double, 6>& sig,
              const std::array<double, 6>& step, int steps) {
    Call c;
    c.iModel = model;
    c.Props = props;
    c.Sig0 = sig;
    c.call(1);
    c.dEps = step;
    for (int i = 0; i < steps; ++i) {
        c.call(2);
        c.commit();
    }
    return c;
}

void run(benchmark::State& state, Call c) {
    for (auto _ : state) {
        c.call(2);
        benchmark::DoNotOptimize(c.Sig);
    }
    state.counters["iPlast"] = c.iPlast;
}

void BM_model2_elastic(benchmark::State& state) {
    run(state, prepared(2, kElastic, {-200, -200, -200, 0, 0, 0}, {0, 0, 0, 1e-5, 0, 0}, 20));
}
BENCHMARK(BM_model2_elastic);

void BM_model4_elastic(benchmark::State& state) {
    run(state, prepared(4, kElastic, {-200, -200, -200, 0, 0, 0}, {0, 0, 0, 1e-5, 0, 0}, 20));
}
BENCHMARK(BM_model4_elastic);

// Shear hardening and cap together (normally consolidated sand).
void BM_model2_plastic_cap(benchmark::State& state) {
    run(state, prepared(2, kDenseSand, {-38.43, -100, -38.43, 0, 0, 0},
                        {0, -1e-5, 0, 5e-5, 0, 0}, 20));
}
BENCHMARK(BM_model2_plastic_cap);

// Shear hardening alone (the cap kept away by a high over-consolidation).
Call shear_hardening(int model) {
    auto props = kDenseSand;
    props[23] = 20.0;
    return prepared(model, props, {-38.43, -100, -38.43, 0, 0, 0}, {0, -1e-5, 0, 5e-5, 0, 0}, 20);
}

void BM_model2_plastic(benchmark::State& state) { run(state, shear_hardening(2)); }
BENCHMARK(BM_model2_plastic);

void BM_model4_plastic(benchmark::State& state) { run(state, shear_hardening(4)); }
BENCHMARK(BM_model4_plastic);

}  // namespace
