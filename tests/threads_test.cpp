// Hosts call the library from many threads at once. The same stress points,
// called on one thread and then on two threads at the same time, give the
// same bits; and no call of task 2 (models 1 and 2, every path) or of the
// calibration's kernel takes memory from the heap.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "support/small_strain_point.hpp"
#include "support/user_mod_host.hpp"

// Every malloc of the process passes here; a thread counts its own while
// `counting` is set. (The sanitizer build has its own allocator.)
namespace {
thread_local bool counting = false;
thread_local long allocations = 0;
}  // namespace

#if !TERVAK_SANITIZE_BUILD
extern "C" void* __libc_malloc(size_t);
extern "C" void* malloc(size_t n) {
    if (counting) ++allocations;
    return __libc_malloc(n);
}
#endif

namespace {

using HsCapIt = void(const int32_t*, const double*, const double*, double*, const double*,
                     double*, int32_t*, const double*, const int32_t*);

HsCapIt* hs_cap_plast_it() {
    void* h = dlopen(TERVAK_LIB_PATH, RTLD_NOW | RTLD_LOCAL);
    if (h == nullptr) return nullptr;
    return reinterpret_cast<HsCapIt*>(dlsym(h, "hs_cap_plast_it_"));
}

// One call and what it returned.
struct Job {
    int model = 1;
    std::vector<double> props;
    std::array<double, 6> sig0{}, dEps{};
    std::array<double, 62> stVar0{};
    // calibration kernel arguments (model 0 here)
    std::array<double, 3> prsE{}, prs0{};
    std::array<double, 2> hard{};
};

struct Result {
    std::array<double, 6> sig{};
    std::array<double, 62> stVar{};
    int32_t iPlast = 0;
    long allocations = 0;
};

const std::vector<double> kSand1{40000, 40000, 120000, 0.5, 1.0,  38,   8,      0.2,
                                 100,   0.3843, 0.9,   0.0, 72727, 1.25, 0.0019, 1.0};

std::vector<Job> jobs() {
    std::mt19937_64 g(2024u);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    std::vector<Job> out;
    for (int k = 0; k < 600; ++k) {
        Job j;
        const double s3 = 20.0 + 280.0 * u(g);
        const double s1 = s3 * (1.0 + 3.0 * u(g));
        const double s2 = s3 + (s1 - s3) * u(g);
        const double p = (s1 + s2 + s3) / 3.0;
        if (k % 3 == 2) {
            // The calibration's kernel on the triaxial edge.
            j.model = 0;
            j.props = kSand1;
            j.prs0 = {s1, s3, s3};
            j.prsE = {s1 * (1.0 + 0.05 * u(g)), s3, s3};
            j.hard = {1e-4 * u(g), p * (0.9 + 0.2 * u(g))};
            out.push_back(j);
            continue;
        }
        j.model = k % 3 == 0 ? 1 : 2;
        j.props = j.model == 1 ? kSand1 : tervak_test::small_strain::elastic_sand();
        if (j.model == 2) {
            j.props[13] = 1.0;     // c
            j.props[14] = 38.0;    // phi
            j.props[15] = 8.0;     // psi
            j.props[19] = 54545.0; // hyperbola
            j.props[20] = 1.25;    // alpha
            j.props[21] = 0.0019;  // beta
        }
        j.sig0 = {-s2, -s1, -s3, 0, 0, 0};
        const double scale = j.model == 1 ? 2e-3 : 0.5 * 1.5e-4;
        for (int i = 0; i < 4; ++i) j.dEps[static_cast<size_t>(i)] = scale * (2.0 * u(g) - 1.0);
        j.stVar0[0] = std::pow(10.0, -5.0 + 4.0 * u(g));
        j.stVar0[1] = -p * (0.8 + 0.6 * u(g));
        out.push_back(j);
    }
    return out;
}

Result run(const Job& j) {
    Result r;
    if (j.model == 0) {
        static HsCapIt* const it = hs_cap_plast_it();
        const int32_t area = 2, model = 1;
        double prs[3], hardOut[2];
        int32_t iRes = 0;
        counting = true;
        it(&area, j.props.data(), j.prsE.data(), prs, j.hard.data(), hardOut, &iRes, j.prs0.data(),
           &model);
        counting = false;
        for (int i = 0; i < 3; ++i) r.sig[static_cast<size_t>(i)] = prs[i];
        r.stVar[0] = hardOut[0];
        r.stVar[1] = hardOut[1];
        r.iPlast = iRes;
    } else if (j.model == 1) {
        tervak_test::HostPoint h;
        for (size_t i = 0; i < j.props.size(); ++i) h.Props[i] = j.props[i];
        h.Sig0 = j.sig0;
        h.StVar0 = {j.stVar0[0], j.stVar0[1]};
        h.call(3);
        h.dEps = j.dEps;
        counting = true;
        h.call(2);
        counting = false;
        r.sig = h.Sig;
        r.stVar[0] = h.StVar[0];
        r.stVar[1] = h.StVar[1];
        r.iPlast = h.iPlast;
    } else {
        tervak_test::small_strain::Point pt(2, j.props);
        pt.initialise(j.sig0);
        pt.StVar0[0] = j.stVar0[0];
        pt.StVar0[1] = j.stVar0[1];
        pt.dEps = j.dEps;
        counting = true;
        pt.call(2);
        counting = false;
        r.sig = pt.Sig;
        r.stVar = pt.StVar;
        r.iPlast = pt.iPlast;
    }
    r.allocations = allocations;
    allocations = 0;
    return r;
}

bool same(const Result& a, const Result& b) {
    return std::memcmp(a.sig.data(), b.sig.data(), sizeof a.sig) == 0 &&
           std::memcmp(a.stVar.data(), b.stVar.data(), sizeof a.stVar) == 0 &&
           a.iPlast == b.iPlast;
}

#if !TERVAK_SANITIZE_BUILD
// The counter sees the library's own allocations: the inversion of a matrix
// larger than the stack work array takes its work array from the heap.
TEST(Threads, CounterSeesTheLibrarysHeap) {
    void* h = dlopen(TERVAK_LIB_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(h, nullptr);
    using Inv = void(const double*, double*, const int32_t*);
    auto* inv = reinterpret_cast<Inv*>(dlsym(h, "matinvpiv_"));
    ASSERT_NE(inv, nullptr);
    for (int32_t n : {6, 12}) {
        std::vector<double> A(static_cast<size_t>(n * n), 0.0), X(A.size());
        for (int i = 0; i < n; ++i) A[static_cast<size_t>(i + i * n)] = 2.0;
        counting = true;
        inv(A.data(), X.data(), &n);
        counting = false;
        EXPECT_EQ(allocations > 0, n > 9) << n;
        allocations = 0;
    }
}
#endif

TEST(Threads, TwoThreadsGiveOneThreadsBitsWithoutHeap) {
    const std::vector<Job> all = jobs();
    std::vector<Result> one;
    std::set<int> paths[3];
    for (const Job& j : all) {
        one.push_back(run(j));
        paths[j.model].insert(one.back().iPlast);
#if !TERVAK_SANITIZE_BUILD
        EXPECT_EQ(one.back().allocations, 0) << "model " << j.model;
#endif
    }
    // Every path of model 1 was taken: elastic, the Mohr-Coulomb family,
    // tension, cap, HS with cap, HS.
    EXPECT_EQ(paths[1], (std::set<int>{0, 1, 2, 3, 4, 5}));
    EXPECT_GE(paths[2].size(), 4u);

    std::vector<Result> two[2];
    std::atomic<bool> go{false};
    std::vector<std::thread> pool;
    for (int t = 0; t < 2; ++t)
        pool.emplace_back([&, t] {
            while (!go.load()) {
            }
            // The two threads walk the list in opposite directions.
            const size_t n = all.size();
            two[t].resize(n);
            for (size_t k = 0; k < n; ++k) {
                const size_t i = t == 0 ? k : n - 1 - k;
                two[t][i] = run(all[i]);
            }
        });
    go = true;
    for (auto& th : pool) th.join();
    for (int t = 0; t < 2; ++t)
        for (size_t i = 0; i < all.size(); ++i)
            EXPECT_TRUE(same(one[i], two[t][i])) << "thread " << t << " job " << i;
}

}  // namespace
