// The exported toolkit seen from outside: f_abi_caller calls it from
// Fortran, this test makes the same calls from C through the symbols of
// the loaded library, and both must print the same bytes.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <string>

#include "support/test_support.hpp"
#include "toolkit/records.hpp"

namespace {

using tervak::ListRecord;
using i32 = std::int32_t;

class Lib {
public:
    Lib() : h_(dlopen(TERVAK_LIB_PATH, RTLD_NOW | RTLD_LOCAL)) {}
    ~Lib() {
        if (h_) dlclose(h_);
    }
    bool ok() const { return h_ != nullptr; }
    void* sym(const char* name) const { return dlsym(h_, name); }
    template <class F>
    F fn(const char* name) const {
        return reinterpret_cast<F>(sym(name));
    }

private:
    void* h_;
};

ListRecord& operator<<(ListRecord& r, const double (&v)[3]) { return r << v[0] << v[1] << v[2]; }

TEST(AbiCaller, FortranCallerSeesWhatCCallerSees) {
    Lib lib;
    ASSERT_TRUE(lib.ok()) << dlerror();

    int status = -1;
    const std::string fortran =
        tervak_test::run_command(TERVAK_BINARY_DIR "/tests/f_abi_caller", &status);
    ASSERT_EQ(status, 0);

    using V = void;
    auto matinvpiv = lib.fn<V (*)(const double*, double*, const i32*)>("matinvpiv_");
    auto prnsig = lib.fn<V (*)(const i32*, const double*, double*, double*, double*, double*,
                               double*, double*, double*, double*)>("prnsig_");
    auto carsig = lib.fn<V (*)(const double*, const double*, const double*, const double*,
                               const double*, const double*, double*)>("carsig_");
    auto lequal = lib.fn<i32 (*)(const double*, const double*, const double*)>("lequal_");
    auto is0arr = lib.fn<i32 (*)(const double*, const i32*)>("is0arr_");
    auto arcsin = lib.fn<double (*)(const double*, i32*)>("arcsin_");
    auto dinprod = lib.fn<V (*)(const double*, const double*, const i32*, double*)>("dinprod_");
    auto modul = lib.fn<V (*)(const double*, double*)>("modul_");
    auto norm = lib.fn<V (*)(const double*, double*)>("norm_");
    auto addvec = lib.fn<V (*)(const double*, const double*, const double*, const double*,
                               const i32*, double*)>("addvec_");
    auto crossprod = lib.fn<V (*)(const double*, const double*, double*)>("crossprod_");
    auto setveclen = lib.fn<V (*)(double*, const i32*, const double*)>("setveclen_");
    auto matriz3 = lib.fn<V (*)(const double*, const double*, double*, const i32*)>("matriz3_");
    auto matriz6_nl = lib.fn<V (*)(double*, const double*, const double*)>("matriz6_nl_");
    auto wrivec = lib.fn<V (*)(const i32*, const char*, const double*, const i32*, std::size_t)>(
        "wrivec_");
    auto wrivec5 = lib.fn<V (*)(const i32*, const char*, const double*, const i32*, std::size_t)>(
        "wrivec5_");
    auto wrimat = lib.fn<V (*)(const i32*, const char*, const double*, const i32*, const i32*,
                               const i32*, std::size_t)>("wrimat_");
    auto wrival = lib.fn<V (*)(const i32*, const char*, const double*, std::size_t)>("wrival_");
    auto wriivl = lib.fn<V (*)(const i32*, const char*, const i32*, std::size_t)>("wriivl_");
    auto wriivc = lib.fn<V (*)(const i32*, const char*, const i32*, const i32*, std::size_t)>(
        "wriivc_");

    const std::string c = tervak_test::capture_stdout([&] {
        const i32 one = 1, two = 2, three = 3, six = 6, twelve = 12, zero = 0, minus1 = -1;
        const double A[9] = {4, 1, 0.5, 2, 3, 0.2, -1, 0.7, 2};
        double Ainv[9];
        matinvpiv(A, Ainv, &three);
        {
            ListRecord r;
            r << "matinvpiv";
            for (double x : Ainv) r << x;
            r.write();
        }
        const double S[6] = {-120, -250, -90, 15, -8, 4};
        double n1[3], n2[3], n3[3], S1, S2, S3, P, Q, Sig[6];
        prnsig(&one, S, n1, n2, n3, &S1, &S2, &S3, &P, &Q);
        ListRecord() << "prnsig" << S1 << S2 << S3 << P << Q << ListRecord::end;
        {
            ListRecord r;
            r << "dirs" << n1 << n2 << n3;
            r.write();
        }
        carsig(&S1, &S2, &S3, n1, n2, n3, Sig);
        {
            ListRecord r;
            r << "carsig";
            for (double x : Sig) r << x;
            r.write();
        }
        const double d1 = 1.0, d1p = 1.0 + 1e-13, tol = 1e-12, d0 = 0.0;
        ListRecord() << "lequal" << lequal(&d1, &d1p, &tol) << lequal(&d0, &tol, &tol)
                     << ListRecord::end;
        const double zeros[2] = {0.0, -0.0};
        ListRecord() << "is0arr" << is0arr(zeros, &two) << is0arr(S, &six) << ListRecord::end;
        i32 ierr = 99;
        const double y = 1.0000001;
        const double x = arcsin(&y, &ierr);
        ListRecord() << "arcsin" << x << ierr << ListRecord::end;
        double r;
        dinprod(S, S, &six, &r);
        ListRecord() << "dinprod" << r << ListRecord::end;
        double u[6];
        modul(S, &r);
        norm(S, u);
        {
            ListRecord rec;
            rec << "modul" << r;
            for (double v : u) rec << v;
            rec.write();
        }
        double w[6];
        std::memcpy(w, S, sizeof w);
        const double f1 = 1.0, fm = -0.5, len = 2.0;
        addvec(w, S, &f1, &fm, &six, w);
        {
            ListRecord rec;
            rec << "addvec";
            for (double v : w) rec << v;
            rec.write();
        }
        double cp[3];
        crossprod(S, S + 3, cp);
        {
            ListRecord rec;
            rec << "crossprod" << cp;
            rec.write();
        }
        setveclen(w, &six, &len);
        {
            ListRecord rec;
            rec << "setveclen";
            for (double v : w) rec << v;
            rec.write();
        }
        const double Props[9] = {0, 0, 4e4, 0.5, 5, 30, 0, 0.2, 100};
        const double stress[3] = {300, 200, 50};
        double D3[9], D[36];
        matriz3(Props, stress, D3, &one);
        {
            ListRecord rec;
            rec << "matriz3";
            for (double v : D3) rec << v;
            rec.write();
        }
        const double K = 1e4, G = 6e3;
        matriz6_nl(D, &K, &G);

        const i32 u6 = 6, seven = 7;
        wrivec(&u6, "Prs", S, &three, 3);
        wrivec(&u6, "df13_mcmdS", S, &six, 10);
        wrimat(&u6, "D", D, &six, &six, &six, 1);
        wrival(&u6, "gamma_p", &P, 7);
        wriivl(&u6, "it", &seven, 2);
        i32 iv[12];
        for (i32 i = 1; i <= 12; ++i) iv[i - 1] = i * i - 20;
        wriivc(&u6, "iv", iv, &twelve, 2);
        const char* lab = "Prs en primera iteración";
        wrivec5(&u6, lab, S, &six, std::strlen(lab));
        wrivec(&minus1, "silent", S, &six, 6);
        wrimat(&zero, "silent", D, &six, &six, &six, 6);
        ListRecord() << "end" << ListRecord::end;
    });
    EXPECT_EQ(c, fortran);
    EXPECT_NE(fortran.find(" Prs en primera iteración\n"), std::string::npos);
    EXPECT_EQ(fortran.find("silent"), std::string::npos);
}

// A silent writer reads nothing but its unit: null pointers are never
// dereferenced.
TEST(AbiCaller, SilentWriterTouchesNothing) {
    Lib lib;
    ASSERT_TRUE(lib.ok());
    const i32 off[] = {0, -1, -2147483647 - 1};
    const std::string out = tervak_test::capture_stdout([&] {
        for (const i32& unit : off) {
            lib.fn<void (*)(const i32*, const char*, const double*, std::size_t)>("wrival_")(
                &unit, nullptr, nullptr, 99);
            lib.fn<void (*)(const i32*, const char*, const i32*, std::size_t)>("wriivl_")(
                &unit, nullptr, nullptr, 99);
            lib.fn<void (*)(const i32*, const char*, const i32*, const i32*, std::size_t)>(
                "wriivc_")(&unit, nullptr, nullptr, nullptr, 99);
            lib.fn<void (*)(const i32*, const char*, const double*, const i32*, std::size_t)>(
                "wrivec_")(&unit, nullptr, nullptr, nullptr, 99);
            lib.fn<void (*)(const i32*, const char*, const double*, const i32*, std::size_t)>(
                "wrivec5_")(&unit, nullptr, nullptr, nullptr, 99);
            lib.fn<void (*)(const i32*, const char*, const double*, const i32*, const i32*,
                            const i32*, std::size_t)>("wrimat_")(&unit, nullptr, nullptr, nullptr,
                                                                 nullptr, nullptr, 99);
        }
    });
    EXPECT_EQ(out, "");
}

TEST(AbiCaller, EveryToolkitRoutineIsExported) {
    Lib lib;
    ASSERT_TRUE(lib.ok());
    for (const char* name :
         {"mzeror_",   "mzeroi_",    "setrval_",  "setival_",   "copyrvec_",   "copyivec_",
          "is0arr_",   "is0iarr_",   "mulvec_",   "addvec_",    "dinprod_",    "matvec_",
          "matmat_",   "matmatsq_",  "crossprod_", "arcsin_",   "lequal_",     "setveclen_",
          "matinvpiv_", "eig_3_",    "eig_3a_",   "prnsig_",    "carsig_",     "matriz3_",
          "matriz6_",  "matriz3_nl_", "matriz6_nl_", "modul_",  "norm_",       "wrival_",
          "wriivl_",   "wriivc_",    "wrivec_",   "wrivec5_",   "wrimat_"})
        EXPECT_NE(lib.sym(name), nullptr) << name;
    // Internal C++ names stay inside.
    EXPECT_EQ(lib.sym("_ZN6tervak6mzerorEPdi"), nullptr);
}

}  // namespace
