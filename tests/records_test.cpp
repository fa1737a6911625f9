// Record layouts against gfortran. One table of writer calls; one Fortran
// program, generated from the table and compiled once, writes every case
// twice: with its own Fortran formats (the reference), and by calling the
// library's writer as a Fortran caller does (hidden label lengths, values
// by reference). The C++ caller's output must equal both byte for byte.
// The same program calls user_mod_ and prints what it got, which a C
// caller must see too.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "support/host.hpp"

namespace {

using namespace tervak_test;

enum Kind { VAL, IVL, IVC, VEC, VEC5, MAT };
const char* kName[] = {"wrival", "wriivl", "wriivc", "wrivec", "wrivec5", "wrimat"};

struct Case {
    Kind kind;
    std::string label;
    std::vector<double> v;  // reals (column-major for wrimat)
    std::vector<int> iv;    // integers
    int nrow = 0, ncol = 0;  // wrimat
};

const double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();

// Values around every layout boundary: fixed/exponent switch at 0.1 and
// 1e17, ties, carries, three-digit exponents, signed zero, non-finite.
const std::vector<double> kEdges = {0.0, -0.0, 1.0, -0.1, 0.1, 0.09999999999999999, 9.9999999999999992e-2,
                                    1e16, 1e17, 99999999999999984.0, 1.0625, -9.99951, 123456.5, 1e-300,
                                    -1e100, 9.99996e99, 2.5e-3, 1.0 / 3.0, -2.0 / 3.0, 5e-324,
                                    1.7976931348623157e308, kNaN, kInf, -kInf};

std::vector<Case> cases() {
    std::vector<Case> c;
    for (double x : kEdges) c.push_back({VAL, "Prs", {x}, {}});
    c.push_back({VAL, "Prs en primera iteración", {-12.5}, {}});
    c.push_back({VAL, "", {1.0}, {}});
    for (int k : {0, 7, -1, 2147483647, -2147483647 - 1}) c.push_back({IVL, "it", {}, {k}});
    c.push_back({IVC, "iv", {}, {1, -1999, 99999, -999, 0, 42, 7, 123, 5, 6, 7, 8}});
    c.push_back({IVC, "none", {}, {}});
    c.push_back({VEC, "Prs", kEdges, {}});           // label within 6: T7 layout
    c.push_back({VEC, "Prs   ", {1.0}, {}});        // trailing blanks overwritten by T7
    c.push_back({VEC, "Prs_E", {}, {}});           // no values: the label alone
    c.push_back({VEC, "df13_mcmdS", {0.5, 0.0, -0.75}, {}});  // over 6: values on the next record
    c.push_back({VEC, "Prs(1)", {1.5, -2.5}, {}});           // 6 and 7 characters: the boundary
    c.push_back({VEC, "Prs_E_1", {1.5, -2.5}, {}});
    c.push_back({VEC, "longer label", kEdges, {}});
    c.push_back({VEC5, "xN", kEdges, {}});
    c.push_back({VEC5, "empty", {}, {}});
    c.push_back({MAT, "D3", {2e4, 5e3, 5e3, 5e3, 2e4, 5e3, 5e3, 5e3, 2e4}, {}, 3, 3});
    c.push_back({MAT, "D", std::vector<double>(kEdges.begin(), kEdges.begin() + 24), {}, 3, 8});
    c.push_back({MAT, "no columns", {}, {}, 2, 0});
    return c;
}

// The library's writer, called from C++ through its export.
std::string ours(const Case& k) {
    return capture_stdout([&] {
        I unit = 6, n = static_cast<I>(k.kind == IVL || k.kind == IVC ? k.iv.size() : k.v.size());
        I la = k.nrow, nr = k.nrow, nc = k.ncol, iv0 = k.iv.empty() ? 0 : k.iv[0];
        const char* l = k.label.data();
        const size_t len = k.label.size();
        double* v = const_cast<double*>(k.v.data());
        I* iv = const_cast<I*>(reinterpret_cast<const I*>(k.iv.data()));
        switch (k.kind) {
            case VAL: sym<void(I*, const char*, double*, size_t)>("wrival_")(&unit, l, v, len); break;
            case IVL: sym<void(I*, const char*, I*, size_t)>("wriivl_")(&unit, l, &iv0, len); break;
            case IVC: sym<void(I*, const char*, I*, I*, size_t)>("wriivc_")(&unit, l, iv, &n, len); break;
            case VEC: sym<void(I*, const char*, double*, I*, size_t)>("wrivec_")(&unit, l, v, &n, len); break;
            case VEC5: sym<void(I*, const char*, double*, I*, size_t)>("wrivec5_")(&unit, l, v, &n, len); break;
            case MAT:
                sym<void(I*, const char*, double*, I*, I*, I*, size_t)>("wrimat_")(&unit, l, v, &la, &nr, &nc, len);
                break;
        }
    });
}

std::string flit(double x) {
    int64_t b;
    std::memcpy(&b, &x, 8);
    const std::string lit = b == INT64_MIN ? "(-9223372036854775807_8 - 1_8)" : std::to_string(b) + "_8";
    return "transfer(" + lit + ", 1d0)";
}

// The Fortran program: for case i, "@ref i", the reference records,
// "@lib i", the records of the library's writer called from Fortran.
std::string program(const std::vector<Case>& cs) {
    std::ostringstream f;
    f << "program records\n  implicit none\n  double precision :: v(64), D(36), Sig(6), StV(2), Props(50), dE(6), S0(6)\n"
         "  integer :: iv(16), n, i, j\n  integer :: ip, ns, a5(4)\n  double precision :: bw, pw\n";
    for (size_t c = 0; c < cs.size(); ++c) {
        const Case& k = cs[c];
        std::string lab = "'";
        for (char ch : k.label) lab += ch == '\'' ? std::string("''") : std::string(1, ch);
        lab += "'";
        const size_t n = k.kind == IVL || k.kind == IVC ? k.iv.size() : k.v.size();
        f << "  n = " << n << "\n";
        for (size_t i = 0; i < k.v.size(); ++i) f << "  v(" << i + 1 << ") = " << flit(k.v[i]) << "\n";
        for (size_t i = 0; i < k.iv.size(); ++i) f << "  iv(" << i + 1 << ") = " << (k.iv[i] == INT32_MIN ? std::string("-2147483647 - 1") : std::to_string(k.iv[i])) << "\n";
        f << "  write(6,'(a)') '@ref " << c << "'\n";
        switch (k.kind) {
            case VAL: f << "  write(6,*) " << lab << ", v(1)\n"; break;
            case IVL: f << "  write(6,*) " << lab << ", iv(1)\n"; break;
            case IVC: f << "  write(6,*) " << lab << "\n  write(6,'((2(3x,5i4)))') (iv(i), i = 1, n)\n"; break;
            case VEC:
                if (k.label.find_last_not_of(' ') + 1 > 6 && k.label.find_last_not_of(' ') != std::string::npos)
                    f << "  write(6,*) " << lab << "\n  write(6,'((2(1x,3(1x,1p,e10.3))))') (v(i), i = 1, n)\n";
                else
                    f << "  write(6,'(A,(T7,2(1x,3(1x,1p,e10.3))))') " << lab << ", (v(i), i = 1, n)\n";
                break;
            case VEC5: f << "  write(6,*) " << lab << "\n  write(6,'(5(1x,1p,e12.5))') (v(i), i = 1, n)\n"; break;
            case MAT:
                f << "  write(6,*) " << lab << "\n  do i = 1, " << k.nrow << "\n    write(6,'(i4,(T7,2(1x,3(1x,1p,e10.3))))') i, (v(i + "
                  << k.nrow << " * (j - 1)), j = 1, " << k.ncol << ")\n  end do\n";
                break;
        }
        f << "  write(6,'(a)') '@lib " << c << "'\n";
        switch (k.kind) {
            case VAL: f << "  call wrival(6, " << lab << ", v(1))\n"; break;
            case IVL: f << "  call wriivl(6, " << lab << ", iv(1))\n"; break;
            case MAT: f << "  call wrimat(6, " << lab << ", v, " << k.nrow << ", " << k.nrow << ", " << k.ncol << ")\n"; break;
            case IVC: f << "  call wriivc(6, " << lab << ", iv, n)\n"; break;
            default: f << "  call " << kName[k.kind] << "(6, " << lab << ", v, n)\n";
        }
    }
    // A host written in Fortran: elastic matrix and one stress step of model 1.
    f << "  write(6,'(a)') '@host'\n  Props = 0d0\n";
    const auto p = sand();
    for (size_t i = 0; i < 16; ++i) f << "  Props(" << i + 1 << ") = " << flit(p[i]) << "\n";
    f << "  S0 = [-50d0, -100d0, -50d0, 0d0, 0d0, 0d0]\n  StV = [1d-2, -200d0]\n  dE = [2d-4, -1d-3, 1d-4, 3d-4, 0d0, 0d0]\n"
         "  call user_mod_host(6, S0, StV, dE, Props, D, bw, Sig, pw, ip, ns, a5)\n"
         "  call user_mod_host(2, S0, StV, dE, Props, D, bw, Sig, pw, ip, ns, a5)\n"
         "  write(6,'(6(z16.16,1x))') D, Sig, StV\n  write(6,*) ip\n"
         "contains\n  subroutine user_mod_host(task, S0, StV, dE, Props, D, bw, Sig, pw, ip, ns, a5)\n"
         "    integer :: task, ip, ns, a5(4), z\n    double precision :: S0(6), StV(2), dE(6), Props(50), D(36), bw, Sig(6), pw, pw0, t0, sv(2)\n"
         "    z = 0\n    pw0 = 0d0\n    t0 = 0d0\n"
         "    call user_mod(task, 1, z, 1, 1, 1, 1, z, z, z, t0, z, Props, S0, pw0, StV, dE, D, bw, Sig, pw, sv, ip, ns, &\n"
         "                  a5(1), a5(2), a5(3), a5(4), z, z, z)\n    if (task == 2) StV = sv\n  end subroutine\n"
         "end program records\n";
    return f.str();
}

TEST(Records, WritersMatchGfortranAndAFortranCaller) {
    const std::vector<Case> cs = cases();
    const std::string out = run_fortran("records_ref", program(cs));
    // Split the program's output into its sections.
    std::vector<std::string> ref(cs.size()), lib(cs.size());
    std::string host, *cur = nullptr;
    for (const std::string& l : lines(out)) {
        if (l.rfind("@ref ", 0) == 0) cur = &ref[std::stoul(l.substr(5))];
        else if (l.rfind("@lib ", 0) == 0) cur = &lib[std::stoul(l.substr(5))];
        else if (l == "@host") cur = &host;
        else if (cur) *cur += l + "\n";
    }
    for (size_t c = 0; c < cs.size(); ++c) {
        SCOPED_TRACE(std::string(kName[cs[c].kind]) + " '" + cs[c].label + "' case " + std::to_string(c));
        ASSERT_FALSE(ref[c].empty());
        EXPECT_EQ(ours(cs[c]), ref[c]);
        EXPECT_EQ(lib[c], ref[c]);
    }
    // The same host call from C++.
    Point h(1, sand());
    h.Sig0 = {-50, -100, -50, 0, 0, 0};
    h.StVar0[0] = 1e-2;
    h.StVar0[1] = -200;
    h.dEps = {2e-4, -1e-3, 1e-4, 3e-4, 0, 0};
    h.call(6);
    h.call(2);
    std::string mine;
    auto hex = [&](double x, int& col) {
        uint64_t b;
        std::memcpy(&b, &x, 8);
        char s[24];
        std::snprintf(s, sizeof s, "%016" PRIX64, b);
        mine += s;
        mine += ++col % 6 == 0 ? "\n" : " ";
    };
    int col = 0;
    for (double x : h.D) hex(x, col);
    for (double x : h.Sig) hex(x, col);
    hex(h.StVar[0], col);
    hex(h.StVar[1], col);
    // gfortran ends the short last record without the trailing blank.
    mine.back() = '\n';
    std::ostringstream ip;
    ip << "           " << h.iPlast;
    mine += " " + ip.str().substr(ip.str().size() - 11) + "\n";
    EXPECT_EQ(host, mine);
}

// A negative or zero unit writes nothing, whatever the writer.
TEST(Records, SilentUnits) {
    for (I unit : {0, -1}) {
        double v[3] = {1, 2, 3};
        I n = 3, k = 1;
        const std::string out = capture_stdout([&] {
            sym<void(I*, const char*, double*, size_t)>("wrival_")(&unit, "x", v, 1);
            sym<void(I*, const char*, I*, size_t)>("wriivl_")(&unit, "x", &k, 1);
            sym<void(I*, const char*, double*, I*, size_t)>("wrivec_")(&unit, "x", v, &n, 1);
            sym<void(I*, const char*, double*, I*, size_t)>("wrivec5_")(&unit, "x", v, &n, 1);
            sym<void(I*, const char*, double*, I*, I*, I*, size_t)>("wrimat_")(&unit, "x", v, &k, &k, &k, 1);
        });
        EXPECT_EQ(out, "");
    }
}

}  // namespace
