// What a geotechnical engineer checks first, on the example soils, with the
// library driven as a finite-element host drives one stress point: drained
// triaxial compression with a constant cell pressure, and one-dimensional
// compression with unloading and reloading.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "support/soil_file.hpp"
#include "support/user_mod_host.hpp"

namespace {

using tervak_test::HostPoint;

constexpr double kDeg = 0.017453292519444445;

HostPoint soil_point(const std::string& name) {
    const auto soil = tervak_test::read_soil_file(tervak_test::soil_path(name));
    HostPoint h;
    h.iModel = soil.model;
    h.iEl = 1;
    h.Int = 1;
    for (size_t i = 0; i < soil.props.size(); ++i) h.Props[i] = soil.props[i];
    return h;
}

double P(const HostPoint& h, int i) { return h.Props[static_cast<size_t>(i - 1)]; }

// Accepts the step: the end state becomes the start of the next one.
void commit(HostPoint& h) {
    h.Sig0 = h.Sig;
    h.StVar0 = h.StVar;
    h.Pw0 = h.Pw;
}

// Drained triaxial compression at cell pressure sigma3 (compression
// positive), strain-controlled in the vertical (y) direction. Each step
// finds the lateral strains that keep the lateral stresses at sigma3 by a
// Newton iteration whose matrix is the host's D (task 3), to 1e-7 sigma3:
// near the triaxial edge the return switches between the face and the edge
// as the two lateral stresses trade places, which stalls the residual in
// the 1e-8 kPa range.
struct Triaxial {
    HostPoint h;
    double sigma3;
    double epsA = 0.0;  // accumulated axial strain, compression positive
    int maxIterations = 0;

    Triaxial(const std::string& soil, double s3) : h(soil_point(soil)), sigma3(s3) {
        h.Sig0 = {-s3, -s3, -s3, 0, 0, 0};
        h.call(1);  // initial state from the consolidation stresses
    }
    double q() const { return -h.Sig0[1] - sigma3; }

    // One step of axial strain dA (compression positive).
    void step(double dA) {
        double ex = 0.0, ez = 0.0;
        h.call(3);  // the stiffness of the step, at its start stresses
        const auto D = h.D;
        const double a = h.d(1, 1), b = h.d(1, 3), c = h.d(3, 1), d = h.d(3, 3);
        for (int it = 0;; ++it) {
            h.D = D;
            h.dEps = {ex, -dA, ez, 0, 0, 0};
            h.call(2);
            const double rx = h.Sig[0] + sigma3, rz = h.Sig[2] + sigma3;
            if (std::abs(rx) + std::abs(rz) <= 1e-7 * sigma3 || it == 200) {
                maxIterations = std::max(maxIterations, it);
                break;
            }
            const double det = a * d - b * c;
            ex -= (d * rx - b * rz) / det;
            ez -= (a * rz - c * rx) / det;
        }
        commit(h);
        epsA += dA;
    }
};

double mc_failure_deviator(const HostPoint& h, double s3) {
    const double s = std::sin(P(h, 6) * kDeg);
    const double ccot = P(h, 5) * std::cos(P(h, 6) * kDeg) / s;
    return 2 * s / (1 - s) * (s3 + ccot);
}

TEST(Triaxial, DrainedCompressionApproachesMohrCoulombAndNeverExceedsIt) {
    // The sands reach failure within 1 % before 15 % axial strain; the soft,
    // normally consolidated clay, hardening its cap all the way, is within
    // 10 % at 30 %.
    struct Run {
        const char* soil;
        double epsEnd, step, fraction;
    };
    for (const Run r : {Run{"dense_sand", 0.15, 1e-3, 0.99}, Run{"loose_sand", 0.15, 1e-3, 0.99},
                        Run{"soft_clay", 0.30, 2e-3, 0.90}}) {
        SCOPED_TRACE(r.soil);
        Triaxial t(r.soil, 100.0);
        const double qf = mc_failure_deviator(t.h, 100.0);
        double qPrev = 0.0, gammaPrev = t.h.StVar0[0], capPrev = t.h.StVar0[1];
        // Ten steps of flow on the Mohr-Coulomb face end the test early.
        for (int onFace = 0; t.epsA < r.epsEnd && onFace < 10;) {
            t.step(r.step);
            onFace = t.h.iPlast == 1 ? onFace + 1 : 0;
            const double q = t.q();
            // The cell pressure holds (to the Newton tolerance, 1e-5 kPa).
            ASSERT_NEAR(-t.h.Sig0[0], 100.0, 1e-5);
            ASSERT_NEAR(-t.h.Sig0[2], 100.0, 1e-5);
            // Never beyond the Mohr-Coulomb face at the stresses reached, never
            // softening.
            const double s = std::sin(P(t.h, 6) * kDeg);
            const double s1 = -t.h.Sig0[1], s3 = std::min(-t.h.Sig0[0], -t.h.Sig0[2]);
            ASSERT_LE((s1 - s3) / 2 - (s1 + s3) / 2 * s - P(t.h, 5) * std::cos(P(t.h, 6) * kDeg),
                      1e-9 * s1)
                << t.epsA;
            ASSERT_LE(q, qf * (1 + 1e-7)) << t.epsA;
            ASSERT_GE(q, qPrev - 1e-7 * qf) << t.epsA;
            // Hardening variables only grow.
            ASSERT_GE(t.h.StVar0[0], gammaPrev);
            ASSERT_LE(t.h.StVar0[1], capPrev);
            qPrev = q;
            gammaPrev = t.h.StVar0[0];
            capPrev = t.h.StVar0[1];
        }
        EXPECT_GT(t.q(), r.fraction * qf);
        EXPECT_LT(t.maxIterations, 200);
    }
}

TEST(Triaxial, AxialStrainOnTheCompressionEdge) {
    // Triaxial compression returns to the edge of the two shear faces, both
    // flowing, while only the first one hardens gamma_p: below the dilatant
    // range the plastic axial strain is gamma_p itself, so at a deviator q
    // the axial strain is q/Eur + 2q/(Ei (1 - q/qa)) - 2q/Eur. Checked at
    // half the failure deviator with the cap out of the way (within 2 %).
    for (const char* soil : {"dense_sand", "loose_sand"}) {
        SCOPED_TRACE(soil);
        Triaxial t(soil, 100.0);
        t.h.StVar0 = {1e-10, -1e6};  // no previous shearing, no cap
        const double qf = mc_failure_deviator(t.h, 100.0);
        const double qa = qf / P(t.h, 11);
        double qPrev = 0.0, ePrev = 0.0;
        while (t.q() < qf / 2) {
            qPrev = t.q();
            ePrev = t.epsA;
            t.step(1e-5);
        }
        const double e50 = ePrev + (t.epsA - ePrev) * (qf / 2 - qPrev) / (t.q() - qPrev);
        const double q = qf / 2;
        const double Ei = P(t.h, 13), Eur = P(t.h, 3);  // stiffness factor 1 at pref
        const double want = q / Eur + 2 * q / (Ei * (1 - q / qa)) - 2 * q / Eur;
        EXPECT_NEAR(e50, want, 0.02 * want);
        EXPECT_GT(t.h.StVar0[0], 0.0);
    }
}

TEST(Triaxial, UnloadingIsElasticWithTheUnloadingReloadingStiffness) {
    for (const char* soil : {"dense_sand", "loose_sand", "soft_clay"}) {
        SCOPED_TRACE(soil);
        Triaxial t(soil, 100.0);
        const double qf = mc_failure_deviator(t.h, 100.0);
        while (t.q() < 0.6 * qf) t.step(2e-4);
        const double qMax = t.q();
        const auto state = t.h.StVar0;
        // With the cell pressure constant the axial stiffness is Young's
        // modulus itself, here the unloading-reloading modulus at the
        // minor principal stress 100 = pref: Eur_ref (to 1e-4, the lateral
        // stresses being held to 1e-5 kPa).
        for (int i = 0; i < 5; ++i) {
            const double q0 = t.q(), e0 = t.epsA;
            t.step(-1e-4);
            EXPECT_EQ(t.h.iPlast, 0);
            EXPECT_EQ(t.h.StVar0, state);
            EXPECT_NEAR((t.q() - q0) / (t.epsA - e0), P(t.h, 3), 1e-4 * P(t.h, 3));
        }
        // Reloading stays elastic below the previous maximum, then yields.
        while (t.q() < 0.98 * qMax) {
            t.step(5e-5);
            if (t.q() < 0.98 * qMax) {
                EXPECT_EQ(t.h.iPlast, 0) << t.q();
            }
        }
        while (t.q() < 1.02 * qMax) t.step(5e-5);
        EXPECT_NE(t.h.iPlast, 0);
        EXPECT_GT(t.h.StVar0[0], state[0]);
    }
}

// One-dimensional compression: vertical strain only.
struct Oedometer {
    HostPoint h;
    double epsV = 0.0;
    explicit Oedometer(const std::string& soil, double sv0) : h(soil_point(soil)) {
        const double K0 = P(h, 10);
        h.Sig0 = {-K0 * sv0, -sv0, -K0 * sv0, 0, 0, 0};
        h.call(1);
    }
    double sv() const { return -h.Sig0[1]; }
    double sh() const { return -h.Sig0[0]; }
    void step(double d) {
        h.call(3);
        h.dEps = {0, -d, 0, 0, 0, 0};
        h.call(2);
        commit(h);
        epsV += d;
    }
    // Tangent constrained modulus over a small step around the current state.
    double tangent(double d) {
        const double s0 = sv(), e0 = epsV;
        step(d);
        return (sv() - s0) / (epsV - e0);
    }
};

TEST(Oedometer, CapHardensAndReloadingIsStifferThanVirginLoading) {
    for (const char* soil : {"dense_sand", "loose_sand", "soft_clay"}) {
        SCOPED_TRACE(soil);
        Oedometer o(soil, 50.0);
        const double d = 2e-5;
        double capPrev = o.h.StVar0[1];
        double virgin = 0.0;
        while (o.sv() < 400.0) {
            if (virgin == 0.0 && o.sv() >= 300.0) virgin = o.tangent(d);
            else o.step(d);
            ASSERT_LE(o.h.StVar0[1], capPrev);
            capPrev = o.h.StVar0[1];
        }
        const double capMax = o.h.StVar0[1];
        EXPECT_LT(capMax, -300.0 * (1 + 2 * P(o.h, 10)) / 3);  // the cap moved with the load
        // Virgin loading follows the earth-pressure coefficient at rest
        // (within 0.1).
        EXPECT_NEAR(o.sh() / o.sv(), P(o.h, 10), 0.1);
        while (o.sv() > 200.0) {
            o.step(-d);
            EXPECT_EQ(o.h.iPlast, 0);
        }
        double reload = 0.0;
        while (o.sv() < 350.0) {
            if (reload == 0.0 && o.sv() >= 300.0) reload = o.tangent(d);
            else o.step(d);
            EXPECT_EQ(o.h.StVar0[1], capMax);  // below the previous load: no cap growth
        }
        EXPECT_GT(reload, 1.5 * virgin) << "virgin " << virgin << " reload " << reload;
    }
}

TEST(Oedometer, VirginStiffnessAtTheReferencePressureIsEoedRef) {
    // The cap stiffness of the example files is chosen so that the tangent
    // constrained modulus at a vertical stress equal to pref is Eoed_ref
    // (within 10 %).
    for (const char* soil : {"dense_sand", "loose_sand", "soft_clay"}) {
        SCOPED_TRACE(soil);
        Oedometer o(soil, 30.0);
        while (o.sv() < 100.0 - 1.0) o.step(1e-5);
        const double Eoed = o.tangent(2e-5);
        EXPECT_NEAR(Eoed, P(o.h, 2), 0.1 * P(o.h, 2));
    }
}

TEST(SoilFiles, ReadableAndConsistent) {
    for (const char* soil : {"dense_sand", "loose_sand", "soft_clay"}) {
        SCOPED_TRACE(soil);
        const auto f = tervak_test::read_soil_file(tervak_test::soil_path(soil));
        EXPECT_EQ(f.model, 1);
        EXPECT_FALSE(f.title.empty());
        ASSERT_EQ(f.props.size(), 16u);
        const double phi = f.props[5], Rf = f.props[10];
        // K0nc and Ei_ref are the values task 7 finds (calibration_test runs
        // task 7 on the files); here only their range: K0nc within 0.1 of
        // 1 - sin(phi), Ei_ref stiffer than 2 E50_ref / (2 - Rf) (the edge
        // return softens the hyperbola) but within a factor of 2.2 of it.
        EXPECT_NEAR(f.props[9], 1 - std::sin(phi * kDeg), 0.1);  // K0nc
        const double eiHyperbola = 2 * f.props[0] / (2 - Rf);
        EXPECT_GT(f.props[12], eiHyperbola);        // Ei_ref
        EXPECT_LT(f.props[12], 2.2 * eiHyperbola);
        EXPECT_GT(f.props[2], f.props[0]);  // Eur_ref above E50_ref
        EXPECT_GT(phi, f.props[6]);         // dilatancy below friction
    }
}

}  // namespace
