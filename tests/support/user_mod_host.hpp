// A host as a finite-element program is one: it loads libtervak.so, resolves
// user_mod_ and calls it with the 31 arguments, all by reference. One
// stress point's worth of arguments lives in the struct.
#pragma once

#include <dlfcn.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace tervak_test {

using UserModFn = void(int32_t*, int32_t*, int32_t*, int32_t*, int32_t*, int32_t*, int32_t*,
                       void*, void*, void*, double*, void*, double*, double*, double*, double*,
                       double*, double*, double*, double*, double*, double*, int32_t*, int32_t*,
                       int32_t*, int32_t*, int32_t*, int32_t*, void*, void*, void*);

// The library's entry, loaded once per test program.
inline UserModFn* user_mod_entry() {
    static UserModFn* fn = [] {
        void* h = dlopen(TERVAK_LIB_PATH, RTLD_NOW | RTLD_LOCAL);
        if (h == nullptr) {
            std::fprintf(stderr, "dlopen: %s\n", dlerror());
            std::abort();
        }
        auto* f = reinterpret_cast<UserModFn*>(dlsym(h, "user_mod_"));
        if (f == nullptr) std::abort();
        return f;
    }();
    return fn;
}

struct HostPoint {
    int32_t IDTask = 0, iModel = 1, IsUndr = 0, iStep = 1, iTer = 1, iEl = 1, Int = 1;
    int32_t Arg8 = 0, Arg9 = 0, Arg10 = 0, Arg12 = 0, Arg29 = 0, Arg30 = 0, Arg31 = 0;
    double Time0 = 0.0;
    std::vector<double> Props = std::vector<double>(50, 0.0);
    std::array<double, 6> Sig0{};
    double Pw0 = 0.0;
    std::array<double, 2> StVar0{};
    std::array<double, 6> dEps{};
    std::array<double, 36> D{};
    double BulkW = 0.0;
    std::array<double, 6> Sig{};
    double Pw = 0.0;
    std::array<double, 2> StVar{};
    int32_t iPlast = -99, nStat = -99, NonSym = -99, StrsDep = -99, TimeDep = -99,
            Tangent = -99;

    void call(int32_t task) {
        IDTask = task;
        user_mod_entry()(&IDTask, &iModel, &IsUndr, &iStep, &iTer, &iEl, &Int, &Arg8, &Arg9,
                         &Arg10, &Time0, &Arg12, Props.data(), Sig0.data(), &Pw0, StVar0.data(),
                         dEps.data(), D.data(), &BulkW, Sig.data(), &Pw, StVar.data(), &iPlast,
                         &nStat, &NonSym, &StrsDep, &TimeDep, &Tangent, &Arg29, &Arg30, &Arg31);
    }
    double& d(int i, int j) { return D[static_cast<size_t>((i - 1) + 6 * (j - 1))]; }
};

}  // namespace tervak_test
