// golden_sweep: a deterministic sweep through every exported routine of a
// libtervak.so, written as a text stream with hex-exact doubles. Two
// libraries that give the same stream compute the same bits.
//
//   golden_sweep <path/to/libtervak.so> <examples/soils> > sweep.txt
//
// The library's own lines (diagnostics, stop texts) are part of the stream;
// the last line counts the library calls.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "library.hpp"
#include "sections.hpp"
#include "sweep_support.hpp"

namespace sweep {

Library lib{};

void* symbol(const char* name) {
    void* p = dlsym(lib.handle, name);
    if (p == nullptr) {
        std::fprintf(stderr, "golden_sweep: symbol %s not found\n", name);
        std::exit(2);
    }
    return p;
}

template <class F>
void resolve(F& f, const char* name) {
    f = reinterpret_cast<F>(symbol(name));
}

void load(const char* path) {
    lib.handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (lib.handle == nullptr) {
        std::fprintf(stderr, "golden_sweep: %s\n", dlerror());
        std::exit(2);
    }
    resolve(lib.user_mod, "user_mod_");
    const char* models[] = {"mymodel1_", "mymodel2_", "mymodel3_", "mymodel4_"};
    for (int k = 0; k < 4; ++k) resolve(lib.mymodel[k], models[k]);
    resolve(lib.mc_plast, "mc_plast_");
    resolve(lib.trac_plast, "trac_plast_");
    resolve(lib.mc_trac_plast, "mc_trac_plast_");
    resolve(lib.hs_plast, "hs_plast_");
    resolve(lib.hs_trac_plast, "hs_trac_plast_");
    resolve(lib.hs_cap_plast, "hs_cap_plast_");
    resolve(lib.cap_plast, "cap_plast_");
    resolve(lib.mc_cap_plast, "mc_cap_plast_");
    resolve(lib.hs_cap_plast_it, "hs_cap_plast_it_");
    resolve(lib.iterative_hss, "iterative_hss_");
}

unsigned long long fnv(const double* a, int n) {
    unsigned long long h = 1469598103934665603ULL;
    const auto* b = reinterpret_cast<const unsigned char*>(a);
    for (std::size_t k = 0; k < static_cast<std::size_t>(n) * sizeof(double); ++k) {
        h ^= b[k];
        h *= 1099511628211ULL;
    }
    return h;
}

namespace {

// The bundled soils' values, from which the sweep's parameters spread.
void base_props(int model, double* P) {
    static const double kHs[16] = {40000.0, 40000.0, 120000.0, 0.5, 1.0,  38.0, 8.0, 0.2,
                                   100.0,   0.415,   0.9,      0.0, 1.1e5, 3.0, 9e-4, 1.0};
    static const double kHss[25] = {1333.0, 20000.0, 15000.0, 2e-4, 100.0,  100.0, 0.8,
                                    0.8,    0.0,     0.0,     12000.0, 1.0, 100.0, 5.0,
                                    25.0,   0.0,     0.5774,  0.9,  0.0,  5455.0, 0.94,
                                    0.039,  0.2,     1.0,     1.0};
    std::memset(P, 0, 25 * sizeof(double));
    if (model == 1 || model == 3) std::memcpy(P, kHs, sizeof kHs);
    else std::memcpy(P, kHss, sizeof kHss);
}

}  // namespace

void model_props(Rng& r, int model, double* P) {
    base_props(model, P);
    for (int j = 0; j < 25; ++j) P[j] *= r.range(0.6, 1.6);
    if (model == 1 || model == 3) {
        P[3] = r.range(0.3, 1.0);                   // m
        P[4] = r.chance(0.2) ? 0.0 : r.range(0.0, 20.0);  // c
        P[5] = r.range(20.0, 45.0);                 // phi
        P[6] = r.range(0.0, P[5] - 18.0 > 0.0 ? P[5] - 18.0 : 0.0);
        P[7] = r.range(0.1, 0.35);
        P[9] = r.range(0.3, 0.8);
        P[10] = r.range(0.7, 1.0);
        P[11] = r.chance(0.6) ? 0.0 : r.range(0.0, 10.0);
        P[13] = r.range(0.5, 3.5);
        P[14] = model == 1 ? r.decades(-4.0, -1.0) : r.range(1.5, 6.0);
        P[15] = r.chance(0.5) ? 1.0 : r.range(1.0, 3.0);
        return;
    }
    P[2] = P[1] * r.range(0.4, 0.95);
    P[3] = r.decades(-4.3, -3.3);
    P[6] = r.range(0.3, 0.9);
    P[7] = r.range(0.3, 1.0);
    P[11] = r.range(0.4, 1.0);
    P[13] = r.chance(0.3) ? 0.0 : r.range(0.0, 20.0);
    P[14] = r.range(20.0, 42.0);
    P[15] = r.range(0.0, P[14] - 18.0 > 0.0 ? P[14] - 18.0 : 0.0);
    P[16] = r.range(0.3, 0.8);
    P[17] = r.range(0.7, 1.0);
    P[18] = r.chance(0.6) ? 0.0 : r.range(0.0, 10.0);
    P[21] = model == 2 ? r.decades(-3.0, -0.5) : r.range(1.5, 6.0);
    P[22] = r.range(0.1, 0.35);
    P[23] = r.chance(0.5) ? 1.0 : r.range(1.0, 3.0);
    P[24] = r.chance(0.7) ? 1.0 : 0.0;
}

void host_stress(Rng& r, double* Sig) {
    const double p = r.decades(0.0, 3.0);
    for (int j = 0; j < 3; ++j) Sig[j] = -p * r.range(0.3, 1.3);
    for (int j = 3; j < 6; ++j) Sig[j] = r.chance(0.5) ? 0.0 : p * r.range(-0.3, 0.3);
    if (r.chance(0.05)) Sig[0] = p * r.range(0.0, 0.2);
    if (r.chance(0.03)) std::memset(Sig, 0, 6 * sizeof(double));
}

void strain_increment(Rng& r, double* dEps) {
    const double a = r.decades(-7.0, -2.3);
    for (int j = 0; j < 6; ++j) dEps[j] = a * r.range(-1.0, 1.0);
    if (r.chance(0.3)) dEps[3] = dEps[4] = dEps[5] = 0.0;
    if (r.chance(0.2)) {
        dEps[0] = -a;
        dEps[1] = dEps[2] = a * 0.3;
    }
}

}  // namespace sweep

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: golden_sweep <libtervak.so> <soil directory>\n");
        return 2;
    }
    sweep::init_shared();
    sweep::load(argv[1]);
    sweep::toolkit_sections();
    sweep::writer_sections();
    sweep::kernel_sections();
    sweep::model_sections();
    sweep::calibration_sections(argv[2]);
    sweep::Out("calls").i(*sweep::g_calls).end();
    std::fflush(stdout);
    std::fprintf(stderr, "golden_sweep: %ld library calls\n", *sweep::g_calls);
    return 0;
}
