// Calls the library the way finite-element hosts do: loaded with dlopen,
// every routine found by name, the models described through the companion
// routines, then tasks 5 and 4 without state arrays, task 1 per point, and
// in every iteration task 3 followed by task 2 with the total strain
// increment since the last converged state. The host's Props array is
// longer than any model's and zero-padded; the element and point numbers
// are 0; the host's own arguments are null.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "models/parameters.hpp"
#include "support/exports_map.hpp"
#include "support/test_support.hpp"
#include "tervak.h"
#include "tervak_meta.h"

namespace {

namespace P = tervak::params;

using CountFn = tervak_count_fn;
using NameFn = tervak_name_fn;
using ModelCountFn = decltype(&getmodelcount_);
using ModelNameFn = decltype(&getmodelname_);
// The header's declarations and its pointer types agree.
static_assert(std::is_same_v<decltype(&getparamname_), NameFn>);
static_assert(std::is_same_v<decltype(&getstatevarunit_), NameFn>);
static_assert(std::is_same_v<decltype(&getparamcount_), CountFn>);
static_assert(std::is_same_v<decltype(&getstatevarcount_), CountFn>);

class Library {
public:
    Library() : h_(dlopen(TERVAK_LIB_PATH, RTLD_NOW | RTLD_LOCAL)) {}
    ~Library() {
        if (h_) dlclose(h_);
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    bool ok() const { return h_ != nullptr; }
    template <class F>
    F get(const std::string& name) const {
        return reinterpret_cast<F>(dlsym(h_, name.c_str()));
    }

private:
    void* h_;
};

std::string counted(const char* buf) {
    return std::string(buf + 1, static_cast<unsigned char>(buf[0]));
}

TEST(HostCompat, LoadsAndResolvesEveryExport) {
    Library lib;
    ASSERT_TRUE(lib.ok()) << dlerror();
    const auto names = tervak_test::exported_names(tervak_test::exports_map_path());
    ASSERT_FALSE(names.empty());
    for (const auto& n : names) EXPECT_NE(lib.get<void*>(n), nullptr) << n;
    // Internal routines stay hidden.
    EXPECT_EQ(lib.get<void*>("_ZN6tervak8User_ModERKNS_9ModelArgsE"), nullptr);
}

// The descriptions a host's element-test tool reads, through both spellings.
TEST(HostCompat, DescribesEveryModelThroughBothSpellings) {
    Library lib;
    ASSERT_TRUE(lib.ok()) << dlerror();
    for (const std::string suffix : {"_", ""}) {
        SCOPED_TRACE("spelling suffix '" + suffix + "'");
        auto model_count = lib.get<ModelCountFn>("getmodelcount" + suffix);
        auto model_name = lib.get<ModelNameFn>("getmodelname" + suffix);
        auto param_count = lib.get<CountFn>("getparamcount" + suffix);
        auto param_name = lib.get<NameFn>("getparamname" + suffix);
        auto param_unit = lib.get<NameFn>("getparamunit" + suffix);
        auto state_count = lib.get<CountFn>("getstatevarcount" + suffix);
        auto state_name = lib.get<NameFn>("getstatevarname" + suffix);
        auto state_unit = lib.get<NameFn>("getstatevarunit" + suffix);
        ASSERT_TRUE(model_count && model_name && param_count && param_name && param_unit &&
                    state_count && state_name && state_unit);
        int32_t n = -1;
        model_count(&n);
        ASSERT_EQ(n, P::kModelCount);
        for (int32_t m = 1; m <= n; ++m) {
            const P::ModelInfo& info = P::kModels[static_cast<std::size_t>(m - 1)];
            char buf[256];
            model_name(&m, buf, sizeof buf);
            EXPECT_EQ(counted(buf), info.name);
            int32_t np = -1, ns = -1;
            param_count(&m, &np);
            state_count(&m, &ns);
            ASSERT_EQ(np, static_cast<int32_t>(info.props.size()));
            ASSERT_EQ(ns, static_cast<int32_t>(info.state.size()));
            for (int32_t j = 1; j <= np; ++j) {
                param_name(&m, &j, buf, sizeof buf);
                EXPECT_EQ(counted(buf), info.props[static_cast<std::size_t>(j - 1)].name);
                param_unit(&m, &j, buf, sizeof buf);
                EXPECT_EQ(counted(buf), info.props[static_cast<std::size_t>(j - 1)].unit);
            }
            for (int32_t j = 1; j <= ns; ++j) {
                state_name(&m, &j, buf, sizeof buf);
                EXPECT_EQ(counted(buf), info.state[static_cast<std::size_t>(j - 1)].name);
                state_unit(&m, &j, buf, sizeof buf);
                EXPECT_EQ(counted(buf), info.state[static_cast<std::size_t>(j - 1)].unit);
            }
        }
    }
}

TEST(HostCompat, CarelessCallsAreHarmless) {
    Library lib;
    ASSERT_TRUE(lib.ok()) << dlerror();
    auto model_name = lib.get<ModelNameFn>("getmodelname_");
    auto param_name = lib.get<NameFn>("getparamname");
    auto param_count = lib.get<CountFn>("getparamcount_");
    auto model_count = lib.get<ModelCountFn>("getmodelcount");
    ASSERT_TRUE(model_name && param_name && param_count && model_count);
    char buf[16];
    std::memset(buf, '#', sizeof buf);
    int32_t m = 1, j = 6;
    model_name(nullptr, buf, sizeof buf);  // no model number: empty
    EXPECT_EQ(buf[0], '\0');
    std::memset(buf, '#', sizeof buf);
    model_name(&m, buf, 0);  // zero length: nothing written
    model_name(&m, nullptr, 256);
    param_name(&m, &j, nullptr, 256);
    param_name(&m, nullptr, buf, 0);
    for (char c : buf) EXPECT_EQ(c, '#');
    param_name(&m, &j, buf, 3);  // room for the length and two characters
    EXPECT_EQ(buf[0], '\002');
    EXPECT_EQ(std::string(buf + 1, 2), "ph");
    EXPECT_EQ(buf[3], '#');
    param_count(&m, nullptr);
    model_count(nullptr);
    int32_t big = 1 << 30, np = -1;
    param_count(&big, &np);
    EXPECT_EQ(np, 0);
}

// --- Stress points ----------------------------------------------------------

constexpr int kPropsLen = 50;  // the host's fixed, zero-padded Props array
constexpr int kGuard = 8;      // guard values after the state arrays

struct Point {
    tervak_user_mod_fn user_mod = nullptr;
    int32_t iModel = 0;
    int32_t IsUndr = 0, iStep = 0, iTer = 0, iEl = 0, Int = 0;
    double Time0 = 0.0;
    std::array<double, kPropsLen> Props{};
    std::array<double, 6> Sig0{}, dEps{}, Sig{};
    std::array<double, 36> D{};
    double Pw0 = 0.0, Pw = 0.0, BulkW = 0.0;
    int32_t iPlast = 0, nStat = 0, NonSym = -1, StrsDep = -1, TimeDep = -1, Tangent = -1;

    void call(int32_t task, double* StVar0, double* StVar) {
        // Arguments 8 to 10, 12 and 29 to 31 belong to the host; null here.
        user_mod(&task, &iModel, &IsUndr, &iStep, &iTer, &iEl, &Int, nullptr, nullptr, nullptr,
                 &Time0, nullptr, Props.data(), Sig0.data(), &Pw0, StVar0, dEps.data(), D.data(),
                 &BulkW, Sig.data(), &Pw, StVar, &iPlast, &nStat, &NonSym, &StrsDep, &TimeDep,
                 &Tangent, nullptr, nullptr, nullptr);
    }
};

// A dense sand in each layout, filled in by name.
void fill_props(int iModel, std::array<double, kPropsLen>& p) {
    p.fill(0.0);
    auto set = [&](int pos, double v) { p[static_cast<std::size_t>(pos - 1)] = v; };
    namespace m1 = tervak::m1;
    namespace m2 = tervak::m2;
    namespace m3 = tervak::m3;
    namespace m4 = tervak::m4;
    if (iModel == 1 || iModel == 3) {
        using namespace m1;
        set(E50_ref, 30000);
        set(Eoed_ref, 30000);
        set(Eur_ref, 90000);
        set(m, 0.5);
        set(c, 1.0);
        set(phi, 35.0);
        set(psi, 5.0);
        set(nu_ur, 0.2);
        set(p_ref, 100.0);
        set(K0_nc, 0.43);
        set(R_f, 0.9);
        set(sigma_t, 0.0);
        set(Ei_ref, 54545.0);
        set(alpha, 1.2);
        if (iModel == 1) set(m1::beta, 1.0);
        else set(m3::Kur_Kc, 3.0);
        set(OCR, 1.0);
    } else {
        using namespace m2;
        set(K_ref, 100000);
        set(G0_ref, 120000);
        set(G0_min, 37500);
        set(gamma_07, 1e-4);
        set(p_ref_K, 100.0);
        set(p_ref_G, 100.0);
        set(m_K, 0.5);
        set(m_G, 0.5);
        set(Eur_ref, 90000);
        set(m, 0.5);
        set(p_ref, 100.0);
        set(c, 1.0);
        set(phi, 35.0);
        set(psi, 5.0);
        set(K0_nc, 0.43);
        set(R_f, 0.9);
        set(sigma_t, 0.0);
        set(E50_ref, 30000);
        set(alpha, 1.2);
        if (iModel == 2) set(m2::beta, 1.0);
        else set(m4::Kt_Kc, 3.0);
        set(nu_ur, 0.2);
        set(OCR, 1.0);
        set(reset, 0.0);
    }
}

bool all_finite(const double* v, int n) {
    for (int i = 0; i < n; ++i)
        if (!std::isfinite(v[i])) return false;
    return true;
}

// What the host leaves in an output before the call: a model that writes
// nothing leaves it there.
constexpr double kUntouched = -7.7e77;

bool untouched(const double* v, int n) {
    for (int i = 0; i < n; ++i)
        if (v[i] != kUntouched) return false;
    return true;
}

class HostModel : public ::testing::TestWithParam<int> {};

TEST_P(HostModel, AttributesAndCountWithoutStateArrays) {
    Library lib;
    ASSERT_TRUE(lib.ok()) << dlerror();
    Point pt;
    pt.user_mod = lib.get<tervak_user_mod_fn>("user_mod_");
    ASSERT_NE(pt.user_mod, nullptr);
    pt.iModel = GetParam();
    fill_props(pt.iModel, pt.Props);
    pt.nStat = 0;
    const std::string out = tervak_test::capture_stdout([&] {
        pt.call(5, nullptr, nullptr);
        pt.call(4, nullptr, nullptr);
    });
    EXPECT_EQ(pt.NonSym, 0);
    EXPECT_EQ(pt.StrsDep, 1);
    EXPECT_EQ(pt.TimeDep, 0);
    EXPECT_EQ(pt.Tangent, 0);
    auto state_count = lib.get<CountFn>("getstatevarcount_");
    ASSERT_NE(state_count, nullptr);
    int32_t m = pt.iModel, n = -1;
    state_count(&m, &n);
    EXPECT_EQ(pt.nStat, n) << "task 4 and GetStateVarCount disagree";
    // Element 0, point 0 is not the first point: no attribute report; and
    // not a traced point either.
    if (pt.iModel != 3) {
        EXPECT_EQ(out, "");
    }
}

TEST_P(HostModel, StepsAndIterationsLikeAHost) {
    Library lib;
    ASSERT_TRUE(lib.ok()) << dlerror();
    Point pt;
    pt.user_mod = lib.get<tervak_user_mod_fn>("user_mod_");
    ASSERT_NE(pt.user_mod, nullptr);
    pt.iModel = GetParam();
    fill_props(pt.iModel, pt.Props);
    const auto props_given = pt.Props;

    pt.call(4, nullptr, nullptr);
    const int n = pt.nStat;
    ASSERT_GT(n, 0);

    // Committed state of the point, with guards after nStat values.
    std::vector<double> committed(static_cast<std::size_t>(n + kGuard), 0.0);
    std::vector<double> out(static_cast<std::size_t>(n + kGuard), kUntouched);
    for (int i = n; i < n + kGuard; ++i) committed[static_cast<std::size_t>(i)] = -12345.0;
    std::array<double, 6> sig_committed = {-43.0, -100.0, -43.0, 0.0, 0.0, 0.0};

    std::string printed;
    bool stress_task_answers = true;
    printed += tervak_test::capture_stdout([&] {
        pt.Sig0 = sig_committed;
        pt.call(1, committed.data(), out.data());
    });
    for (int i = n; i < n + kGuard; ++i) {
        ASSERT_EQ(committed[static_cast<std::size_t>(i)], -12345.0) << "task 1 wrote past nStat";
        ASSERT_EQ(out[static_cast<std::size_t>(i)], kUntouched) << "task 1 wrote past nStat";
    }
    if (all_finite(committed.data(), n) && committed[0] == 0.0 && committed[1] == 0.0)
        GTEST_SKIP() << "model " << pt.iModel << " does not initialise its state yet";
    ASSERT_TRUE(all_finite(committed.data(), n));
    EXPECT_GT(committed[0], 0.0) << "gamma_p after task 1";
    EXPECT_LE(committed[1], -1.0) << "cap pressure after task 1";

    // Oedometric compression, then compression with lateral expansion.
    const std::array<double, 6> oedometer = {0.0, -4e-4, 0.0, 0.0, 0.0, 0.0};
    const std::array<double, 6> shear = {3e-4, -1e-3, 3e-4, 0.0, 0.0, 0.0};
    const double fractions[] = {0.6, 0.95, 1.0};
    double last_vertical = sig_committed[1];

    for (int step = 1; step <= 16 && stress_task_answers; ++step) {
        const auto& inc = step <= 8 ? oedometer : shear;
        pt.iStep = step;
        for (int it = 0; it < 3; ++it) {
            pt.iTer = it + 1;
            for (int k = 0; k < 6; ++k) pt.dEps[static_cast<std::size_t>(k)] = fractions[it] * inc[k];
            std::vector<double> start = committed;  // the host's StVar0 of this step
            pt.Sig0 = sig_committed;
            pt.D.fill(kUntouched);
            pt.BulkW = kUntouched;
            printed += tervak_test::capture_stdout([&] { pt.call(3, start.data(), out.data()); });
            if (untouched(pt.D.data(), 36)) {
                stress_task_answers = false;
                break;
            }
            ASSERT_TRUE(all_finite(pt.D.data(), 36)) << "step " << step;
            for (int a = 0; a < 6; ++a) {
                EXPECT_GT(pt.D[static_cast<std::size_t>(7 * a)], 0.0);
                for (int b = 0; b < 6; ++b)
                    EXPECT_NEAR(pt.D[static_cast<std::size_t>(6 * a + b)],
                                pt.D[static_cast<std::size_t>(6 * b + a)],
                                1e-9 * std::fabs(pt.D[0]));
            }
            EXPECT_EQ(pt.BulkW, 0.0) << "drained point";

            pt.Sig.fill(kUntouched);
            std::fill(out.begin(), out.begin() + n, kUntouched);
            pt.Pw = kUntouched;
            printed += tervak_test::capture_stdout([&] { pt.call(2, start.data(), out.data()); });
            if (untouched(pt.Sig.data(), 6)) {
                stress_task_answers = false;
                break;
            }
            SCOPED_TRACE("step " + std::to_string(step) + " iteration " + std::to_string(it + 1));
            ASSERT_TRUE(all_finite(pt.Sig.data(), 6));
            ASSERT_TRUE(all_finite(out.data(), n));
            EXPECT_EQ(pt.Pw, pt.Pw0) << "drained point";
            EXPECT_EQ(start, committed) << "task 2 changed the host's StVar0";
            for (int i = n; i < n + kGuard; ++i)
                EXPECT_EQ(out[static_cast<std::size_t>(i)], kUntouched) << "wrote past nStat";
            EXPECT_GE(out[0], committed[0]) << "gamma_p decreased";
            EXPECT_LE(out[1], committed[1]) << "cap pressure decreased";
        }
        if (!stress_task_answers) break;
        // Converged: the host commits the last iteration.
        sig_committed = pt.Sig;
        std::copy(out.begin(), out.begin() + n, committed.begin());
        if (step <= 8) {
            EXPECT_LT(sig_committed[1], last_vertical) << "oedometric step " << step;
            last_vertical = sig_committed[1];
        }
    }
    EXPECT_EQ(pt.Props, props_given) << "Props changed by tasks 1 to 6";
    if (pt.iModel != 3) {
        EXPECT_EQ(printed, "") << "printed at a point that is not traced";
    }
    if (!stress_task_answers)
        GTEST_SKIP() << "model " << pt.iModel << " does not answer tasks 3 and 2 yet";
    EXPECT_LT(sig_committed[1], -100.0);
}

INSTANTIATE_TEST_SUITE_P(Models, HostModel, ::testing::Values(1, 2, 3, 4),
                         [](const ::testing::TestParamInfo<int>& i) {
                             return "Model" + std::to_string(i.param);
                         });

}  // namespace
