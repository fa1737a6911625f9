// Records against the Fortran runtime: the reference program f_records_ref
// writes the same values with gfortran's own list-directed output and edit
// descriptors, and every line must match byte for byte.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "support/test_support.hpp"
#include "toolkit/records.hpp"

namespace {

using tervak::ListRecord;

std::int64_t bits_of(double x) {
    std::int64_t b;
    std::memcpy(&b, &x, sizeof b);
    return b;
}

double from_bits(std::uint64_t b) {
    double x;
    std::memcpy(&x, &b, sizeof x);
    return x;
}

std::vector<std::string> lines_of(const std::string& s) {
    std::vector<std::string> v;
    std::size_t start = 0;
    while (start < s.size()) {
        std::size_t nl = s.find('\n', start);
        if (nl == std::string::npos) nl = s.size();
        v.push_back(s.substr(start, nl - start));
        start = nl + 1;
    }
    return v;
}

std::string write_temp(const std::string& text) {
    char name[] = "/tmp/tervak_recordsXXXXXX";
    const int fd = mkstemp(name);
    EXPECT_GE(fd, 0);
    std::size_t off = 0;
    while (off < text.size()) {
        const ssize_t n = ::write(fd, text.data() + off, text.size() - off);
        if (n <= 0) break;
        off += static_cast<std::size_t>(n);
    }
    close(fd);
    return name;
}

// Every value worth a look: specials, both sides of the layout boundaries,
// ties on the exact binary value, carries into the next decade, every
// power of ten with its neighbours, and random values of three kinds.
std::vector<double> real_cases() {
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> v = {0.0,     -0.0,       nan,        -nan,       inf,
                             -inf,    DBL_MIN,    -DBL_MIN,   DBL_MAX,    -DBL_MAX,
                             DBL_TRUE_MIN, -DBL_TRUE_MIN, DBL_MIN - DBL_TRUE_MIN,
                             1e-300,  -1e-300,    1e300,      -1e300,     1e-100,
                             1e100,   9.9996e99,  9.9994e99,  -9.99951e-100,
                             9.99949e-100, 9.9995e-10, 0.1,   -0.1,       1e17,
                             -1e17,   1e16,       99999999999999984.0, 0.09999999999999999,
                             1.0,     -1.0,       1.0625,     -1.0625,    -9.99951,
                             9.9995,  0.99995,    9.999995,   9.9999950000000001,
                             123456.5, 2.5e-3,    -2.5e-3,    1.234e5,    0.5,
                             1.5,     2.5,        1e-5,       1e23,       5e-324,
                             4.9999999999999999e-100, 1.00005, 1.000005, 0.999999999999999944,
                             9.99999999999999999e16, 12345678901234567.0};
    // Dyadic values hit exact ties at many digit positions.
    for (int k = 0; k <= 22; ++k)
        for (int j = 1; j <= 130; ++j) v.push_back(std::ldexp(static_cast<double>(j), -k));
    for (int e = -323; e <= 308; ++e) {
        const double p = std::pow(10.0, e);
        v.push_back(p);
        v.push_back(std::nextafter(p, 0.0));
        v.push_back(-std::nextafter(p, inf));
        v.push_back(9.9995 * p);
        v.push_back(-9.999995 * p);
    }
    std::mt19937_64 rng(20240611u);
    for (int i = 0; i < 3000; ++i) v.push_back(from_bits(rng()));
    std::uniform_real_distribution<double> dec(-14.0, 20.0);
    for (int i = 0; i < 3000; ++i) {
        const double x = std::pow(10.0, dec(rng));
        v.push_back((rng() & 1) ? x : -x);
    }
    // Near a decimal rounding point of 4 or 6 significant digits.
    std::uniform_int_distribution<int> mant(100000, 999999);
    std::uniform_int_distribution<int> ex(-60, 60);
    for (int i = 0; i < 2000; ++i) {
        const double m = (mant(rng) / 10 * 10 + 5) * 1e-5;  // d.dddd5
        v.push_back(m * std::pow(10.0, ex(rng)));
        v.push_back((mant(rng) * 10 + 5) * 1e-6 * std::pow(10.0, ex(rng)));
    }
    return v;
}

std::vector<std::int32_t> int_cases() {
    std::vector<std::int32_t> v = {0,     1,      -1,   9,     -9,    99,         -99,
                                   999,   -999,   1000, -1000, 9999,  10000,      -10000,
                                   12345, 123456, 1234567890, std::numeric_limits<std::int32_t>::max(),
                                   std::numeric_limits<std::int32_t>::min(), 487, 11};
    std::mt19937 rng(7u);
    for (int i = 0; i < 500; ++i) {
        const int digits = static_cast<int>(rng() % 10);
        std::int32_t k = static_cast<std::int32_t>(rng() % static_cast<unsigned>(std::pow(10, digits) + 1));
        v.push_back((rng() & 1) ? k : -k);
    }
    return v;
}

void emit_field(const char* f, int w) {
    std::fwrite(f, 1, static_cast<std::size_t>(w), stdout);
    std::fputc('\n', stdout);
}

TEST(Records, MatchTheFortranRuntimeByteForByte) {
    const std::vector<double> xs = real_cases();
    const std::vector<std::int32_t> ks = int_cases();

    std::ostringstream in;
    in << xs.size() << '\n';
    for (double x : xs) in << bits_of(x) << '\n';
    in << ks.size() << '\n';
    for (std::int32_t k : ks) in << k << '\n';
    const std::string path = write_temp(in.str());

    int status = -1;
    const std::string ref = tervak_test::run_command(
        std::string(TERVAK_BINARY_DIR "/tests/f_records_ref < ") + path, &status);
    unlink(path.c_str());
    ASSERT_EQ(status, 0);

    const std::string ours = tervak_test::capture_stdout([&] {
        char f[32];
        for (double x : xs) {
            ListRecord() << x << ListRecord::end;
            tervak::format_1pe(f, 10, 3, x);
            emit_field(f, 10);
            tervak::format_1pe(f, 12, 5, x);
            emit_field(f, 12);
        }
        for (std::int32_t k : ks) {
            ListRecord() << k << ListRecord::end;
            tervak::format_i(f, 4, k);
            emit_field(f, 4);
        }
        for (std::size_t i = 0; i < xs.size(); ++i) {
            const std::int32_t k = ks[i % ks.size()];
            ListRecord() << "Prs" << xs[i] << k << "a" << "bc " << xs[i] << ListRecord::end;
            ListRecord() << k << k << "Prs en primera iteración" << "x" << ListRecord::end;
        }
        ListRecord() << ListRecord::end;
        ListRecord() << "solo" << ListRecord::end;
        ListRecord() << "" << "" << ListRecord::end;
    });

    const auto a = lines_of(ref);
    const auto b = lines_of(ours);
    ASSERT_EQ(a.size(), b.size());
    int bad = 0;
    for (std::size_t i = 0; i < a.size() && bad < 20; ++i) {
        if (a[i] != b[i]) {
            ++bad;
            ADD_FAILURE() << "line " << i + 1 << "\n gfortran: [" << a[i] << "]\n ours:     ["
                          << b[i] << "]";
        }
    }
    EXPECT_EQ(bad, 0);
    // Spot checks of layouts that must never drift.
    char f[32];
    tervak::format_1pe(f, 10, 3, 1e-300);
    EXPECT_EQ(std::string(f, 10), " 1.000-300");
    tervak::format_i(f, 4, -1000);
    EXPECT_EQ(std::string(f, 4), "****");
}

TEST(Records, SayAndStop) {
    EXPECT_EQ(tervak_test::capture_stdout([] { tervak::say("Return Mapping Ok!"); }),
              " Return Mapping Ok!\n");
    const auto r = tervak_test::run_child([] {
        tervak::say("invalid model number in UsrMod");
        tervak::stop_run("invalid model number in UsrMod");
    });
    EXPECT_EQ(r.out, " invalid model number in UsrMod\n");
    EXPECT_EQ(r.err, "STOP invalid model number in UsrMod\n");
    EXPECT_NE(r.status, 0);
}

TEST(Records, RecordLongerThanTheBufferIsWrittenWhole) {
    const std::string label(10000, 'q');
    const std::string out = tervak_test::capture_stdout(
        [&] { ListRecord() << label << std::int32_t{5} << ListRecord::end; });
    EXPECT_EQ(out, " " + label + "           5\n");
}

}  // namespace
