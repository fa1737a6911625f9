// What the tests know of the library: only its exported routines, reached
// by name from the loaded shared object, and its parameter tables as the
// metadata routines publish them. Nothing here includes the library's
// internal headers, so the suite holds across rewrites of src/.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/test_support.hpp"
#include "support/user_mod_host.hpp"

namespace tervak_test {

constexpr double kDeg = 0.017453292519444445;  // the library's degree factor
using I = int32_t;
using Triple = std::array<double, 3>;

// An exported routine by name; aborts when it is missing.
template <class F>
F* sym(const char* name) {
    static void* h = dlopen(TERVAK_LIB_PATH, RTLD_NOW | RTLD_LOCAL);
    void* p = h ? dlsym(h, name) : nullptr;
    if (p == nullptr) {
        std::fprintf(stderr, "missing export %s\n", name);
        std::abort();
    }
    return reinterpret_cast<F*>(p);
}

// The return-mapping kernels' exported signature (16 arguments).
using Kernel16 = void(I*, I*, I*, I*, I*, double*, double*, double*, double*, double*, I*,
                      double*, I*, double*, double*, I*);

// Parameter positions by name, as getparamname_ reports them.
inline std::string counted(const char* buf) { return std::string(buf + 1, static_cast<unsigned char>(buf[0])); }
inline int param_index(int model, const std::string& name) {
    static auto* count = sym<void(I*, I*)>("getparamcount_");
    static auto* pname = sym<void(I*, I*, char*, size_t)>("getparamname_");
    I m = model, n = 0;
    count(&m, &n);
    for (I i = 1; i <= n; ++i) {
        char buf[64] = {};
        pname(&m, &i, buf, sizeof buf);
        if (counted(buf) == name) return i;
    }
    ADD_FAILURE() << "model " << model << " has no parameter " << name;
    return 50;
}

// Props of a model from named values; everything else zero.
inline std::vector<double> props(int model, std::initializer_list<std::pair<const char*, double>> v) {
    std::vector<double> p(50, 0.0);
    for (const auto& [name, x] : v) p[static_cast<size_t>(param_index(model, name) - 1)] = x;
    return p;
}

// A dense sand for models 1 and 3 (c, phi, psi and sigma_t set per case).
inline std::vector<double> sand(int model = 1) {
    return props(model, {{"E50_ref", 4e4}, {"Eoed_ref", 4e4}, {"Eur_ref", 1.2e5}, {"m", 0.5},
                         {"c", 1.0}, {"phi", 38.0}, {"psi", 8.0}, {"nu_ur", 0.2},
                         {"p_ref", 100.0}, {"K0_nc", 0.3843}, {"R_f", 0.9}, {"Ei_ref", 72727.0},
                         {"alpha", 1.25}, {model == 3 ? "Kur_Kc" : "beta", model == 3 ? 2.0 : 0.0019}});
}

// One stress point of any model, called as a host calls it.
struct Point {
    I IDTask = 0, iModel = 1, IsUndr = 0, iStep = 1, iTer = 1, iEl = 1, Int = 1;
    I Arg8 = 0, Arg9 = 0, Arg10 = 0, Arg12 = 0, Arg29 = 0, Arg30 = 0, Arg31 = 0;
    double Time0 = 0.0;
    std::vector<double> Props;
    std::array<double, 6> Sig0{}, dEps{}, Sig{};
    double Pw0 = 0.0, BulkW = 0.0, Pw = 0.0;
    std::array<double, 62> StVar0{}, StVar{};
    std::array<double, 36> D{};
    I iPlast = -99, nStat = -99, NonSym = -99, StrsDep = -99, TimeDep = -99, Tangent = -99;

    Point(int model, std::vector<double> p) : iModel(model), Props(std::move(p)) {}
    void call(I task) {
        IDTask = task;
        user_mod_entry()(&IDTask, &iModel, &IsUndr, &iStep, &iTer, &iEl, &Int, &Arg8, &Arg9,
                         &Arg10, &Time0, &Arg12, Props.data(), Sig0.data(), &Pw0, StVar0.data(),
                         dEps.data(), D.data(), &BulkW, Sig.data(), &Pw, StVar.data(), &iPlast,
                         &nStat, &NonSym, &StrsDep, &TimeDep, &Tangent, &Arg29, &Arg30, &Arg31);
    }
    std::string traced(I task) {
        return capture_stdout([&] { call(task); });
    }
    double d(int i, int j) const { return D[static_cast<size_t>((i - 1) + 6 * (j - 1))]; }
    // One host step: stiffness, stresses, then commit.
    void step(const std::array<double, 6>& de) {
        dEps = de;
        call(3);
        call(2);
        Sig0 = Sig;
        StVar0 = StVar;
        Pw0 = Pw;
        ++iStep;
    }
    // The strain increment that the current D maps onto the given change of
    // the normal stresses (host sign), by Cramer's rule.
    std::array<double, 6> strain_for(const Triple& dS) const {
        auto det = [](const double M[3][3]) {
            return M[0][0] * (M[1][1] * M[2][2] - M[1][2] * M[2][1]) -
                   M[0][1] * (M[1][0] * M[2][2] - M[1][2] * M[2][0]) +
                   M[0][2] * (M[1][0] * M[2][1] - M[1][1] * M[2][0]);
        };
        double A[3][3];
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) A[i][j] = d(i + 1, j + 1);
        std::array<double, 6> e{};
        for (int c = 0; c < 3; ++c) {
            double M[3][3];
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) M[i][j] = j == c ? dS[static_cast<size_t>(i)] : A[i][j];
            e[static_cast<size_t>(c)] = det(M) / det(A);
        }
        return e;
    }
};

// Compiles a Fortran program against libtervak.so once and runs it.
inline std::string run_fortran(const std::string& name, const std::string& source) {
    const std::string dir = std::string(TERVAK_BINARY_DIR) + "/tests";
    const std::string src = dir + "/" + name + ".f90", exe = dir + "/" + name;
    std::ofstream(src) << source;
    const std::string lib = TERVAK_LIB_PATH;
    const std::string libdir = lib.substr(0, lib.rfind('/'));
    int st = 0;
    // Under the sanitizers the program carries their runtimes first, as the library expects.
    const std::string san = TERVAK_SANITIZE_BUILD ? " -fsanitize=address,undefined" : "";
    const std::string log = run_command(std::string(TERVAK_FC) + san + " -o " + exe + " " + src + " " + lib +
                                            " -Wl,-rpath," + libdir + " 2>&1",
                                        &st);
    EXPECT_EQ(st, 0) << log;
    return run_command(exe, &st);
}

inline std::vector<std::string> lines(const std::string& s) {
    std::vector<std::string> v;
    std::istringstream in(s);
    for (std::string l; std::getline(in, l);) v.push_back(l);
    return v;
}

// The yield surfaces written out from their definitions, independently of
// the library, to check that returned stresses lie on them.
struct Surfaces {
    std::vector<double> p;
    int model;
    double P(const char* n) const { return p[static_cast<size_t>(param_index(model, n) - 1)]; }
    double s() const { return std::sin(P("phi") * kDeg); }
    double mc(const Triple& S) const {
        return (S[0] - S[2]) / 2 - (S[0] + S[2]) / 2 * s() - P("c") * std::cos(P("phi") * kDeg);
    }
    double trac(const Triple& S) const { return -P("sigma_t") - S[2]; }
    double cap(const Triple& S, double pc) const {
        const double d = (3 + s()) / (3 - s());
        double qt = S[0] + (d - 1) * S[1] - d * S[2];
        if (qt < 0.001) qt = 0;
        const double pm = (S[0] + S[1] + S[2]) / 3;
        return qt * qt / (P("alpha") * P("alpha")) + pm * pm - pc * pc;
    }
    double hs(const Triple& S, double s3_0, double gamma) const {
        const double co = std::cos(P("phi") * kDeg), c = P("c"), ccot = c * co / s();
        const double qf = 2 * s() / (1 - s()) * std::max(s3_0 + ccot, std::max(1.0, ccot + P("sigma_t")));
        const double qa = qf / P("R_f");
        const double f = std::pow(std::max(s3_0 * s() + c * co, std::max(1.0, c * co)) / (P("p_ref") * s() + c * co),
                                  P("m"));
        const double q = std::min(S[0] - S[2], qf);
        return q / std::abs(qa - q) * 2 * qa / (P("Ei_ref") * f) - 2 * q / (P("Eur_ref") * f) - gamma;
    }
};

}  // namespace tervak_test
