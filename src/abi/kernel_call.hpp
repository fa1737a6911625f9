// Calls a return-mapping kernel with a host's arguments, every one of them
// by reference. Each argument is converted by the kernel's parameter type:
//
//   int            read from the host's int32
//   int&           copied in, and back after the call (iPlast, iRes)
//   double         read from the host's double
//   const double*  double*  passed on as they are (Props, HardPar_E, HardPar)
//   const Vec3&    the host's three values copied in; from a const void*
//                  (an argument the kernel family does not read) a zero
//                  triple, the host's pointer never dereferenced
//   Vec3&          copied in, and back after the call (Prs)
//   const Mat3&    the host's nine values copied in (D3)
//
// Everything is copied in before the kernel runs and copied back in argument
// order after it, so a host may pass the same array twice.
#pragma once

#include <cstdint>
#include <cstring>
#include <tuple>

#include "toolkit/types.hpp"

namespace tervak::abi {

// Nothing to copy back.
struct InOnly {
    void back() const {}
};

// int and double: read from the host's value.
template <class K>
struct Arg : InOnly {
    K v;
    template <class T>
    explicit Arg(const T* p) : v(*p) {}
    K get() const { return v; }
};

// Arrays: passed on.
template <class T>
struct Arg<T*> : InOnly {
    T* p;
    explicit Arg(T* q) : p(q) {}
    T* get() const { return p; }
};

template <>
struct Arg<int&> {
    int v;
    std::int32_t* p;
    explicit Arg(std::int32_t* q) : v(*q), p(q) {}
    int& get() { return v; }
    void back() const { *p = v; }
};

template <>
struct Arg<const Vec3&> : InOnly {
    Vec3 v;
    explicit Arg(const double* p) { std::memcpy(v.v, p, sizeof v.v); }
    explicit Arg(const void* /*not read*/) {}
    const Vec3& get() const { return v; }
};

template <>
struct Arg<Vec3&> {
    Vec3 v;
    double* p;
    explicit Arg(double* q) : p(q) { std::memcpy(v.v, q, sizeof v.v); }
    Vec3& get() { return v; }
    void back() const { std::memcpy(p, v.v, sizeof v.v); }
};

template <>
struct Arg<const Mat3&> : InOnly {
    Mat3 m;
    explicit Arg(const double* p) { std::memcpy(m.a, p, sizeof m.a); }
    const Mat3& get() const { return m; }
};

template <class... K, class... H>
void call(void (*kernel)(K...), H*... host) {
    static_assert(sizeof...(K) == sizeof...(H), "one host argument per kernel parameter");
    std::tuple<Arg<K>...> args{Arg<K>(host)...};
    std::apply([kernel](auto&... a) { kernel(a.get()...); }, args);
    std::apply([](const auto&... a) { (a.back(), ...); }, args);
}

}  // namespace tervak::abi

// The host's parameter lists of the two larger kernel families, and the same
// names as an argument list.
//
// Mohr-Coulomb family, 14 arguments; Prs_0 is not read.
#define TERVAK_KERNEL14_PARAMS                                                               \
    const int32_t *iEl, const int32_t *Int, const int32_t *iElDbg, const int32_t *IntDbg,   \
        const int32_t *iArea, const double *Props, const double *Prs_E, double *Prs,        \
        const double *HardPar_E, double *HardPar, int32_t *iPlast, const void *Prs_0,       \
        const double *D3, const int32_t *iModel
#define TERVAK_KERNEL14_ARGS                                                                 \
    iEl, Int, iElDbg, IntDbg, iArea, Props, Prs_E, Prs, HardPar_E, HardPar, iPlast, Prs_0,  \
        D3, iModel
// Shear-hardening family and the cap, 16 arguments.
#define TERVAK_KERNEL16_PARAMS                                                               \
    int32_t *iEl, int32_t *Int, int32_t *iElDbg, int32_t *IntDbg, int32_t *iArea,           \
        double *Props, double *Prs_E, double *Prs, double *HardPar_E, double *HardPar,      \
        int32_t *iPlast, double *Prs_0, int32_t *IsUndr, double *D3, double *R, int32_t *iModel
#define TERVAK_KERNEL16_ARGS                                                                 \
    iEl, Int, iElDbg, IntDbg, iArea, Props, Prs_E, Prs, HardPar_E, HardPar, iPlast, Prs_0,  \
        IsUndr, D3, R, iModel
