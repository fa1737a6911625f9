// Support of the golden sweep: a deterministic generator, hex-exact output
// records, the library's exported routines resolved by name, and the guard
// that runs cases in a child process so that a fatal stop of the library is
// recorded and the sweep goes on with the next case.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace sweep {

// splitmix64: the same stream on every machine and compiler.
class Rng {
public:
    explicit Rng(std::uint64_t seed) : s_(seed) {}
    std::uint64_t next() {
        std::uint64_t z = (s_ += 0x9e3779b97f4a7c15ULL);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }
    // Uniform in [0, 1), from the top 53 bits.
    double u() { return static_cast<double>(next() >> 11) * 0x1p-53; }
    double range(double a, double b) { return a + (b - a) * u(); }
    int pick(int n) { return static_cast<int>(next() % static_cast<std::uint64_t>(n)); }
    bool chance(double p) { return u() < p; }
    // 10^x with x uniform in [lo, hi].
    double decades(double lo, double hi);
    // A value from a small set of awkward reals (zeros, infinities, NaN, tiny, huge).
    double special();

private:
    std::uint64_t s_;
};

// The generator of case k of a section: independent of every other case.
Rng case_rng(std::uint64_t section, std::uint64_t k);

// One output record: "<tag>" followed by fields, written with its newline.
class Out {
public:
    explicit Out(const char* tag);
    Out& d(double x);                  // 16 hex digits of the bits
    Out& v(const double* x, int n);    // n doubles
    Out& i(std::int64_t k);
    Out& iv(const std::int32_t* k, int n);
    Out& s(const char* text);
    Out& bytes(const char* p, int n);  // hex of raw bytes
    void end();

private:
    std::string line_;
};

// Counts every call of a library routine made by the sweep (shared with the
// guard's children).
extern long* g_calls;
void init_shared();

// Runs cases [0, n) of a section, each through `body(k)`, in child processes:
// a case that ends the process is recorded with its exit status, and the
// next child resumes after it. Standard error of the children goes to
// standard output, so stop texts are part of the stream.
void guarded(const char* section, long n, void (*body)(long k));

// Flushes standard output before a library call, so a stop loses nothing.
inline void before_call() {
    std::fflush(stdout);
    ++*g_calls;
}

// The bundled soils: title, model number and Props, read from the examples.
struct Soil {
    std::string name;
    int model = 0;
    std::vector<double> props;
};
std::vector<Soil> read_soils(const std::string& dir);

}  // namespace sweep
