// Compatibility pins. Everything in this file is a deliberate quirk that
// hosts and their logs depend on, kept as the system has always had it; a
// failure here means a quirk was "fixed", not that behaviour is wrong.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "support/host.hpp"

namespace {

using namespace tervak_test;

// The degree factor 0.017453292519444445 differs from pi/180 from the
// thirteenth decimal on, and it is the one used: the elastic modulus of
// model 1 carries its bits.
TEST(Quirks, DegreeFactorIsTheWrittenOne) {
    std::vector<double> P = sand();
    P[5] = 33.0;  // phi
    double st[3] = {0, 0, 57.0}, D3[9];
    I one = 1;
    sym<void(double*, double*, double*, I*)>("matriz3_")(P.data(), st, D3, &one);
    auto E_with = [&](double f) {
        const double phi = 33.0 * f, s = std::sin(phi), co = std::cos(phi), c = 1.0;
        return 1.2e5 * std::pow(std::max(c * co + 57.0 * s, std::max(c * co, 1.0)) / (c * co + 100.0 * s), 0.5);
    };
    const double nu = 0.2, E = (D3[0] - D3[3]) * (D3[0] + 2 * D3[3]) / (D3[0] + D3[3]);
    (void)nu;
    ASSERT_NE(E_with(kDeg), E_with(M_PI / 180.0));
    EXPECT_NEAR(E, E_with(kDeg), 1e-15 * E);
    EXPECT_GT(std::abs(E - E_with(M_PI / 180.0)), std::abs(E - E_with(kDeg)));
}

// Messages that read oddly and stay: the Mohr-Coulomb-with-tension step has
// no area-2 line; the shear
// kernel's saturation line keeps its blanks.
TEST(Quirks, MessagesKeptAsTheyStand) {
    // A trial below the cut-off that runs the whole tension chain.
    Point h(1, sand());
    h.Props[4] = 5;  // c
    h.iEl = 487;
    h.Int = 3;
    h.Sig0 = {-20, -40, -20, 0, 0, 0};
    h.StVar0[0] = 1e-3;
    h.StVar0[1] = -1000;
    h.call(3);
    h.dEps = h.strain_for({80, 10, 10});
    const std::string out = h.traced(2);
    Point m3 = h;
    m3.iModel = 3;
    m3.Props[14] = 2.0;
    m3.iEl = 11;
    m3.Int = 4;
    const std::string es = m3.traced(2);
    EXPECT_NE(out.find("\n POINT OUT OF f13_mc and f13_trac\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("f13_mc and f13_trac, AREA=2"), std::string::npos);
    EXPECT_NE(es.find("\n  q > qf \n"), std::string::npos) << es;
    EXPECT_EQ(es.find("\n q > qf\n"), std::string::npos);
}

// An invalid area in HS_TRAC_plast stops without a message; HS_CAP_plast's
// message names HS_plast.
TEST(Quirks, InvalidAreaMessagesOfTheShearKernels) {
    std::vector<double> P = sand();
    double D3[9], K = 2e4, G = 1e4;
    sym<void(double*, double*, double*)>("matriz3_nl_")(D3, &K, &G);
    for (const char* k : {"hs_trac_plast_", "hs_cap_plast_"}) {
        const ChildResult r = run_child([&] {
            I e = 1, i = 1, de = -1, di = 0, area = 4, ip = 0, u = 0, m = 1;
            double trial[3] = {100, 50, 10}, prs[3], hE[2] = {0, -100}, h[2], p0[3] = {50, 50, 50}, R = 1;
            sym<Kernel16>(k)(&e, &i, &de, &di, &area, P.data(), trial, prs, hE, h, &ip, p0, &u, D3, &R, &m);
        });
        EXPECT_NE(r.status, 0);
        EXPECT_EQ(r.out, std::string(k) == "hs_trac_plast_" ? "" : "  incorrect iArea in HS_plast\n");
    }
}

// The undrained bulk modulus of water is built on 149.4999999999999, the
// double of (1 + 0.495) / (1 - 2 0.495) as it was once printed.
TEST(Quirks, UndrainedWaterStiffnessConstant) {
    Point h(1, sand());
    h.IsUndr = 1;
    h.Sig0 = {-100, -100, -100, 0, 0, 0};
    h.call(3);
    const double G = h.d(4, 4), nu = 0.2;
    EXPECT_EQ(h.BulkW, 2.0 * G / 3.0 * (149.4999999999999 - (1.0 + nu) / (1.0 - 2.0 * nu)));
}

}  // namespace
