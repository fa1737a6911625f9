// A small stand-in model library for the lab's tests: the same user_mod_
// interface as libtervak.so, with self-description exports.
//   model 1: linear elasticity (E, nu); state variable 1 counts the
//            committed stress steps (StVar = StVar0 + 1 on every call).
//   model 2: von Mises elasticity-perfect plasticity (E, nu, q_max);
//            state variable 1 accumulates the plastic deviatoric strain.
// Both refuse (NaN stresses) strain increments larger than Props(4) when
// that is positive, to exercise the cutting of increments, and stop the
// process when |Sig_yy| exceeds Props(5) > 0.
// It also keeps a trace of the calls (task, iTer, dEps) that the tests
// read through fake_trace, to check the host's calling order.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#define API extern "C" __attribute__((visibility("default")))

namespace {

std::string g_trace;

void elastic(const double* props, double* D, double& K, double& G) {
    double E = props[0], nu = props[1];
    K = E / (3.0 * (1.0 - 2.0 * nu));
    G = E / (2.0 * (1.0 + nu));
    for (int i = 0; i < 36; ++i) D[i] = 0.0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) D[i + 6 * j] = K - 2.0 * G / 3.0 + (i == j ? 2.0 * G : 0.0);
    for (int i = 3; i < 6; ++i) D[i + 6 * i] = G;
}

[[maybe_unused]] void put(char* buf, size_t len, const char* s) {
    if (len == 0) return;
    size_t n = std::strlen(s);
    if (n > len - 1) n = len - 1;
    if (n > 255) n = 255;
    std::memset(buf, ' ', len);
    buf[0] = static_cast<char>(n);
    std::memcpy(buf + 1, s, n);
}

}  // namespace

API void user_mod_(int32_t* IDTask, int32_t* iModel, int32_t* IsUndr, int32_t* /*iStep*/, int32_t* iTer,
                   int32_t* /*iEl*/, int32_t* /*Int*/, void*, void*, void*, double* /*Time0*/, void*,
                   double* Props, double* Sig0, double* Pw0, double* StVar0, double* dEps, double* D,
                   double* BulkW, double* Sig, double* Pw, double* StVar, int32_t* iPlast, int32_t* nStat,
                   int32_t* NonSym, int32_t* StrsDep, int32_t* TimeDep, int32_t* Tangent, void*, void*,
                   void*) {
    char line[200];
    std::snprintf(line, sizeof line, "%d %d %.17g %.17g %.17g %.17g\n", *IDTask, *iTer, dEps[0], dEps[1],
                  dEps[3], Props[49]);
    g_trace += line;
    if (*iModel != 1 && *iModel != 2) {
        std::fprintf(stderr, "STOP invalid model\n");
        std::_Exit(1);
    }
    double K, G;
    double De[36];
    elastic(Props, De, K, G);
    // Water stiffness for an undrained Poisson's ratio of 0.495.
    double Ku = 2.0 * G * (1.0 + 0.495) / (3.0 * (1.0 - 2.0 * 0.495));
    switch (*IDTask) {
        case 1:
            StVar[0] = StVar0[0];
            break;
        case 2: {
            // Props(4) > 0: increments larger than it are refused (NaN).
            if (Props[3] > 0) {
                for (int i = 0; i < 6; ++i)
                    if (std::fabs(dEps[i]) > Props[3]) {
                        for (int k = 0; k < 6; ++k) Sig[k] = std::nan("");
                        return;
                    }
            }
            double sig[6];
            for (int i = 0; i < 6; ++i) {
                double s = Sig0[i];
                for (int j = 0; j < 6; ++j) s += De[i + 6 * j] * dEps[j];
                sig[i] = s;
            }
            *Pw = *Pw0;
            if (*IsUndr == 1) *Pw += *BulkW * (dEps[0] + dEps[1] + dEps[2]);
            *iPlast = 0;
            StVar[0] = StVar0[0];
            if (*iModel == 1) {
                StVar[0] = StVar0[0] + 1.0;
            } else {
                double p = (sig[0] + sig[1] + sig[2]) / 3.0;
                double s[6] = {sig[0] - p, sig[1] - p, sig[2] - p, sig[3], sig[4], sig[5]};
                double J2 = 0.5 * (s[0] * s[0] + s[1] * s[1] + s[2] * s[2]) + s[3] * s[3] + s[4] * s[4] + s[5] * s[5];
                double q = std::sqrt(3.0 * J2), qmax = Props[2];
                if (q > qmax) {
                    double f = qmax / q;
                    for (int i = 0; i < 6; ++i) s[i] *= f;
                    for (int i = 0; i < 3; ++i) sig[i] = p + s[i];
                    for (int i = 3; i < 6; ++i) sig[i] = s[i];
                    StVar[0] = StVar0[0] + (q - qmax) / (3.0 * G);
                    *iPlast = 1;
                }
            }
            for (int i = 0; i < 6; ++i) Sig[i] = sig[i];
            // Props(5) > 0: the model ends the process, as a library's
            // fatal stop does, when the vertical stress passes it.
            if (Props[4] > 0 && std::fabs(sig[1]) > Props[4]) {
                std::printf("fake model: vertical stress beyond the limit\n");
                std::fflush(stdout);
                std::fprintf(stderr, "STOP fake model gives up\n");
                std::_Exit(1);
            }
            break;
        }
        case 3:
        case 6:
            for (int i = 0; i < 36; ++i) D[i] = De[i];
            *BulkW = (*IsUndr == 1) ? Ku - K : 0.0;
            break;
        case 4: *nStat = 1; break;
        case 5:
            *NonSym = 0;
            *StrsDep = 0;
            *TimeDep = 0;
            *Tangent = 0;
            break;
        default: break;
    }
}

// The call trace, for the tests (not part of the model interface).
API const char* fake_trace() { return g_trace.c_str(); }
API void fake_trace_clear() { g_trace.clear(); }

#ifndef FAKE_NO_METADATA
API void getmodelcount_(int32_t* n) { *n = 2; }
API void getmodelname_(int32_t* m, char* name, size_t len) {
    put(name, len, *m == 1 ? "Linear elastic" : "Von Mises");
}
API void getparamcount_(int32_t* m, int32_t* n) { *n = *m == 1 ? 2 : 3; }
API void getparamname_(int32_t* /*m*/, int32_t* i, char* name, size_t len) {
    const char* names[] = {"E", "nu", "q_max"};
    put(name, len, (*i >= 1 && *i <= 3) ? names[*i - 1] : "");
}
API void getparamunit_(int32_t* /*m*/, int32_t* i, char* unit, size_t len) {
    const char* units[] = {"kPa", "-", "kPa"};
    put(unit, len, (*i >= 1 && *i <= 3) ? units[*i - 1] : "");
}
API void getstatevarcount_(int32_t* /*m*/, int32_t* n) { *n = 1; }
API void getstatevarname_(int32_t* m, int32_t* /*i*/, char* name, size_t len) {
    put(name, len, *m == 1 ? "steps" : "eps_p");
}
API void getstatevarunit_(int32_t* /*m*/, int32_t* /*i*/, char* unit, size_t len) { put(unit, len, "-"); }
// Valid ranges: E > 0, 0 <= nu < 0.5, q_max > 0.
API void getparamrange_(int32_t* /*m*/, int32_t* i, double* lo, double* hi, int32_t* kind) {
    *lo = 0.0;
    *hi = *i == 2 ? 0.5 : INFINITY;
    *kind = *i == 2 ? 1 + 4 : 1 + 2 + 4;
}
#endif
