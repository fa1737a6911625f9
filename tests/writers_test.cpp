// The six writers against gfortran: f_writers_ref implements them with
// their Fortran formats, and for the same cases our writers must print
// exactly the same bytes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <unistd.h>
#include <vector>

#include "support/test_support.hpp"
#include "toolkit/writers.hpp"

namespace {

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
    char name[] = "/tmp/tervak_writersXXXXXX";
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

struct Case {
    Case(int k, int u, std::string l) : kind(k), unit(u), label(std::move(l)) {}
    int kind;  // 1 wrival, 2 wriivl, 3 wriivc, 4 wrivec, 5 wrivec5, 6 wrimat
    int unit;
    std::string label;
    int n = 0, la = 0, nrow = 0, ncol = 0;
    std::vector<double> v;
    std::vector<int> iv;
};

void run_ours(const Case& c) {
    switch (c.kind) {
    case 1: tervak::wrival(c.unit, c.label, c.v[0]); break;
    case 2: tervak::wriivl(c.unit, c.label, c.iv[0]); break;
    case 3: tervak::wriivc(c.unit, c.label, c.iv.data(), c.n); break;
    case 4: tervak::wrivec(c.unit, c.label, c.v.data(), c.n); break;
    case 5: tervak::wrivec5(c.unit, c.label, c.v.data(), c.n); break;
    case 6: tervak::wrimat(c.unit, c.label, c.v.data(), c.la, c.nrow, c.ncol); break;
    }
}

void script(std::ostream& os, const Case& c) {
    os << c.kind << ' ' << c.unit << ' ' << c.label.size() << ' ' << c.n << ' ' << c.la << ' '
       << c.nrow << ' ' << c.ncol << '\n'
       << c.label << '\n';
    if (c.kind == 2 || c.kind == 3) {
        for (int k : c.iv) os << k << ' ';
    } else {
        for (double x : c.v) {
            std::int64_t b;
            std::memcpy(&b, &x, sizeof b);
            os << b << ' ';
        }
    }
    os << '\n';
}

std::vector<Case> cases() {
    const double inf = std::numeric_limits<double>::infinity();
    const std::vector<std::string> labels = {
        "Prs", "Prs       ", "df13_mcmdS", "Prs en primera iteración", "", "abcdef", "abcdefg",
        "abcdef ", " x", "Prs" + std::string(30, ' '), "ab  cd", "ab  cde", "f13_mc", "it",
        "ación", "acción", "df13_mcmdS  "};
    const std::vector<int> sizes = {0, 1, 2, 3, 5, 6, 7, 10, 11, 12, 13, 25};
    std::mt19937_64 rng(99u);
    std::uniform_real_distribution<double> mag(-12.0, 12.0);
    auto value = [&](std::size_t i) {
        switch (rng() % 16) {
        case 0: return 0.0;
        case 1: return -0.0;
        case 2: return std::numeric_limits<double>::quiet_NaN();
        case 3: return (i & 1) ? inf : -inf;
        case 4: return 1e-300 * static_cast<double>(rng() % 1000);
        case 5: return -9.99951;
        case 6: return 1.0625;
        default: {
            const double x = std::pow(10.0, mag(rng));
            return (rng() & 1) ? x : -x;
        }
        }
    };
    auto ivalue = [&] {
        static const int special[] = {0, -1, 9999, -999, 10000, -1000, 42, 123456};
        return (rng() % 3 == 0) ? special[rng() % 8]
                                : static_cast<int>(rng() % 2000) - 1000;
    };

    std::vector<Case> out;
    int unitPick = 0;
    for (const auto& lab : labels) {
        for (int n : sizes) {
            // Mostly unit 6; now and then another unit >= 1, or a silent one.
            const int units[] = {6, 6, 1, 6, 0, 6, -1, 7};
            const int unit = units[unitPick++ % 8];
            for (int kind : {3, 4, 5}) {
                Case c{kind, unit, lab};
                c.n = n;
                for (int i = 0; i < n; ++i) {
                    c.v.push_back(value(static_cast<std::size_t>(i)));
                    c.iv.push_back(ivalue());
                }
                if (kind == 3) c.v.clear(); else c.iv.clear();
                out.push_back(c);
            }
        }
        Case r{1, 6, lab};
        r.v = {value(1)};
        out.push_back(r);
        Case k{2, 6, lab};
        k.iv = {ivalue()};
        out.push_back(k);
    }
    // Matrices: square, with a leading dimension larger than the rows, more
    // than six columns, no rows, no columns.
    const int shapes[][3] = {{3, 3, 3}, {6, 6, 6}, {8, 3, 7}, {3, 0, 3}, {3, 3, 0},
                             {1, 1, 1}, {12, 12, 13}, {2, 2, 1}};
    for (const auto& sh : shapes) {
        for (const char* lab : {"D3", "Matriz de rigidez", "DE    "}) {
            Case c{6, 6, lab};
            c.la = sh[0];
            c.nrow = sh[1];
            c.ncol = sh[2];
            for (int i = 0; i < c.la * c.ncol; ++i) c.v.push_back(value(static_cast<std::size_t>(i)));
            out.push_back(c);
        }
    }
    return out;
}

TEST(Writers, MatchTheFortranFormatsByteForByte) {
    const std::vector<Case> cs = cases();
    std::ostringstream in;
    for (const Case& c : cs) script(in, c);
    const std::string path = write_temp(in.str());
    int status = -1;
    const std::string ref = tervak_test::run_command(
        std::string(TERVAK_BINARY_DIR "/tests/f_writers_ref < ") + path, &status);
    unlink(path.c_str());
    ASSERT_EQ(status, 0);
    const std::string ours = tervak_test::capture_stdout([&] {
        for (const Case& c : cs) run_ours(c);
    });
    const auto a = lines_of(ref);
    const auto b = lines_of(ours);
    EXPECT_GT(a.size(), 1000u);
    EXPECT_EQ(a.size(), b.size());
    int bad = 0;
    for (std::size_t i = 0; i < a.size() && i < b.size() && bad < 20; ++i) {
        if (a[i] != b[i]) {
            ++bad;
            ADD_FAILURE() << "line " << i + 1 << "\n gfortran: [" << a[i] << "]\n ours:     ["
                          << b[i] << "]";
        }
    }
}

// The layouts the traces are read by, spelled out.
TEST(Writers, KnownLayouts) {
    const double prs[3] = {1.0625, -2.5e-3, 1.234e5};
    EXPECT_EQ(tervak_test::capture_stdout([&] { tervak::wrivec(6, "Prs", prs, 3); }),
              "Prs      1.062E+00 -2.500E-03  1.234E+05\n");
    EXPECT_EQ(tervak_test::capture_stdout([&] { tervak::wrivec(6, "df13_mcmdS", prs, 3); }),
              " df13_mcmdS\n   1.062E+00 -2.500E-03  1.234E+05\n");
    const double D[9] = {2e4, 5e3, 5e3, 5e3, 2e4, 5e3, 5e3, 5e3, 2e4};
    EXPECT_EQ(tervak_test::capture_stdout([&] { tervak::wrimat(6, "D3", D, 3, 3, 3); }),
              " D3\n"
              "   1     2.000E+04  5.000E+03  5.000E+03\n"
              "   2     5.000E+03  2.000E+04  5.000E+03\n"
              "   3     5.000E+03  5.000E+03  2.000E+04\n");
    int iv[12];
    for (int i = 0; i < 12; ++i) iv[i] = i + 1;
    EXPECT_EQ(tervak_test::capture_stdout([&] { tervak::wriivc(6, "iv", iv, 12); }),
              " iv\n"
              "      1   2   3   4   5      6   7   8   9  10\n"
              "     11  12\n");
    EXPECT_EQ(tervak_test::capture_stdout([&] { tervak::wriivl(6, "it", 5); }),
              " it           5\n");
    EXPECT_EQ(tervak_test::capture_stdout([&] { tervak::wrival(0, "x", 1.0); }), "");
}

}  // namespace
