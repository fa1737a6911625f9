#include <benchmark/benchmark.h>

#include "toolkit/principal.hpp"
#include "toolkit/usrlib.hpp"

namespace {

void BM_prnsig_carsig(benchmark::State& state) {
    const double S[6] = {-120.0, -250.0, -90.0, 15.0, -8.0, 4.0};
    for (auto _ : state) {
        double n1[3], n2[3], n3[3], s1, s2, s3, p, q, out[6];
        tervak::prnsig(1, S, n1, n2, n3, s1, s2, s3, p, q);
        tervak::carsig(s1, s2, s3, n1, n2, n3, out);
        benchmark::DoNotOptimize(out);
    }
}
BENCHMARK(BM_prnsig_carsig);

void BM_matinvpiv3(benchmark::State& state) {
    const double A[9] = {4.0, 1.0, 0.5, 1.0, 3.0, 0.2, 0.5, 0.2, 2.0};
    for (auto _ : state) {
        double Ainv[9];
        tervak::matinvpiv(A, Ainv, 3);
        benchmark::DoNotOptimize(Ainv);
    }
}
BENCHMARK(BM_matinvpiv3);

}  // namespace
