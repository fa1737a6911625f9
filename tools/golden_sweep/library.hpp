// The exported routines of a libtervak.so, resolved by name with dlsym.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sweep {

using i32 = std::int32_t;

using UserModFn = void (*)(i32*, i32*, i32*, i32*, i32*, i32*, i32*, void*, void*, void*,
                           double*, void*, double*, double*, double*, double*, double*, double*,
                           double*, double*, double*, double*, i32*, i32*, i32*, i32*, i32*,
                           i32*, void*, void*, void*);
using ModelFn = void (*)(i32*, i32*, i32*, i32*, i32*, i32*, i32*, void*, void*, void*, double*,
                         void*, double*, double*, double*, double*, double*, double*, double*,
                         double*, double*, double*, i32*, i32*, i32*, i32*, i32*, i32*, void*);
using Kernel14Fn = void (*)(i32*, i32*, i32*, i32*, i32*, double*, double*, double*, double*,
                            double*, i32*, double*, double*, i32*);
using Kernel16Fn = void (*)(i32*, i32*, i32*, i32*, i32*, double*, double*, double*, double*,
                            double*, i32*, double*, i32*, double*, double*, i32*);
using McCapFn = void (*)(i32*, i32*, i32*, i32*, i32*, double*, double*, double*, double*,
                         double*, i32*, double*, double*, double*, i32*);
using HsCapItFn = void (*)(i32*, double*, double*, double*, double*, double*, i32*, double*,
                           i32*);
using IterativeFn = void (*)(double*, i32*);

struct Library {
    UserModFn user_mod;
    ModelFn mymodel[4];
    Kernel14Fn mc_plast, trac_plast, mc_trac_plast;
    Kernel16Fn hs_plast, hs_trac_plast, hs_cap_plast, cap_plast;
    McCapFn mc_cap_plast;
    HsCapItFn hs_cap_plast_it;
    IterativeFn iterative_hss;
    void* handle;
};

// Loads the library and resolves every routine the sweep calls; exits with
// a message naming a missing symbol.
void load(const char* path);
extern Library lib;
// Any exported symbol by name (toolkit, writers, metadata).
void* symbol(const char* name);

}  // namespace sweep
