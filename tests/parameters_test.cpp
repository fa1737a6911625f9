// The model description tables and the answers built from them: counts,
// names, units and ranges, the named positions, and the counted-string
// writer that hands texts to hosts.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "entry/metadata.hpp"
#include "models/parameters.hpp"

namespace {

namespace P = tervak::params;
namespace meta = tervak::meta;

TEST(Parameters, FourModelsWithTheirCounts) {
    EXPECT_EQ(meta::model_count(), 4);
    const int props[] = {16, 25, 16, 25};
    const int state[] = {2, 62, 2, 62};
    for (int i = 1; i <= 4; ++i) {
        EXPECT_EQ(meta::param_count(i), props[i - 1]) << "model " << i;
        EXPECT_EQ(meta::state_count(i), state[i - 1]) << "model " << i;
    }
}

TEST(Parameters, ModelNamesAreDistinctPrintableAndShort) {
    std::set<std::string> names;
    for (int i = 1; i <= 4; ++i) {
        const auto n = meta::model_name(i);
        ASSERT_FALSE(n.empty());
        EXPECT_LE(n.size(), 64u);
        for (char c : n) EXPECT_TRUE(c >= 0x20 && c < 0x7f) << n;
        names.insert(std::string(n));
    }
    EXPECT_EQ(names.size(), 4u);
    EXPECT_EQ(meta::model_name(1), "Hardening soil");
    EXPECT_EQ(meta::model_name(2), "Hardening soil small strain");
}

TEST(Parameters, ModelsShareTheirLayoutsButForTheCapRatio) {
    // Models 3 and 4 read the cap parameter as a ratio of bulk moduli
    // (position 15 and 22); every other position means the same.
    const int differing[] = {15, 22};
    for (int pair : {1, 2}) {
        ASSERT_EQ(meta::param_count(pair), meta::param_count(pair + 2));
        for (int j = 1; j <= meta::param_count(pair); ++j) {
            if (j == differing[pair - 1]) {
                EXPECT_EQ(meta::param_name(pair, j), "beta");
                EXPECT_NE(meta::param_name(pair + 2, j), "beta");
                continue;
            }
            EXPECT_EQ(meta::param_name(pair, j), meta::param_name(pair + 2, j));
            EXPECT_EQ(meta::param_unit(pair, j), meta::param_unit(pair + 2, j));
        }
        for (int j = 1; j <= meta::state_count(pair); ++j)
            EXPECT_EQ(meta::state_name(pair, j), meta::state_name(pair + 2, j));
    }
    EXPECT_EQ(meta::param_name(3, 15), "Kur_Kc");
    EXPECT_EQ(meta::param_name(4, 22), "Kt_Kc");
    // A ratio of 1 would give an infinite cap hardening modulus.
    EXPECT_FALSE(P::kHsDiagProps[14].range.contains(1.0));
    EXPECT_TRUE(P::kHsDiagProps[14].range.contains(3.0));
    EXPECT_FALSE(P::kHssVariantProps[21].range.contains(1.0));
}

TEST(Parameters, UnitsAreForceLengthTime) {
    const std::set<std::string> allowed = {"F/L^2", "deg", "-"};
    for (int i = 1; i <= 4; ++i) {
        for (int j = 1; j <= meta::param_count(i); ++j)
            EXPECT_TRUE(allowed.count(std::string(meta::param_unit(i, j))))
                << "model " << i << " param " << j << ": " << meta::param_unit(i, j);
        for (int j = 1; j <= meta::state_count(i); ++j)
            EXPECT_TRUE(allowed.count(std::string(meta::state_unit(i, j))))
                << "model " << i << " state " << j;
    }
    // Angles in degrees, stresses and moduli in stress units.
    EXPECT_EQ(meta::param_unit(1, 6), "deg");
    EXPECT_EQ(meta::param_unit(1, 7), "deg");
    EXPECT_EQ(meta::param_unit(2, 15), "deg");
    EXPECT_EQ(meta::param_unit(2, 16), "deg");
    for (int j : {1, 2, 3, 5, 9, 12, 13}) EXPECT_EQ(meta::param_unit(1, j), "F/L^2") << j;
    for (int j : {4, 8, 10, 11, 14, 15, 16}) EXPECT_EQ(meta::param_unit(1, j), "-") << j;
    for (int j : {1, 2, 3, 5, 6, 11, 13, 14, 19, 20}) EXPECT_EQ(meta::param_unit(2, j), "F/L^2") << j;
    EXPECT_EQ(meta::state_unit(1, 2), "F/L^2");
    EXPECT_EQ(meta::state_unit(2, 3), "F/L^2");
    EXPECT_EQ(meta::state_unit(2, 55), "F/L^2");
    EXPECT_EQ(meta::state_unit(2, 60), "-");
}

TEST(Parameters, UnreadPositionsAreReserved) {
    // Model 2 reads neither position 9 nor 10; model 1 reads all sixteen
    // (positions 1, 2, 7 and 15 through its kernels and calibration).
    EXPECT_EQ(meta::param_name(2, 9), "reserved_9");
    EXPECT_EQ(meta::param_name(2, 10), "reserved_10");
    int reserved = 0;
    for (int j = 1; j <= 16; ++j)
        reserved += meta::param_name(1, j).substr(0, 9) == "reserved_";
    EXPECT_EQ(reserved, 0);
}

TEST(Parameters, KeyPositionsOfTheLayouts) {
    // The positions the models read, as a host fills them in.
    EXPECT_EQ(meta::param_name(1, 3), "Eur_ref");
    EXPECT_EQ(meta::param_name(1, 6), "phi");
    EXPECT_EQ(meta::param_name(1, 13), "Ei_ref");
    EXPECT_EQ(meta::param_name(1, 16), "OCR");
    EXPECT_EQ(meta::param_name(2, 4), "gamma_07");
    EXPECT_EQ(meta::param_name(2, 20), "E50_ref");
    EXPECT_EQ(meta::param_name(2, 25), "reset");
    EXPECT_EQ(meta::state_name(1, 1), "gamma_p");
    EXPECT_EQ(meta::state_name(1, 2), "p_p");
    EXPECT_EQ(meta::state_name(2, 4), "H_xx");
    EXPECT_EQ(meta::state_name(2, 9), "H_zx");
    EXPECT_EQ(meta::state_name(2, 15), "eps_zx");
    EXPECT_EQ(meta::state_name(2, 21), "eps_el_zx");
    EXPECT_EQ(meta::state_name(2, 62), "G_ratio");
}

TEST(Parameters, MemoryLevelsAreNumberedOneToSix) {
    const char* groups[] = {"xH_M_", "xE_M_", "xE_e_M_"};
    for (int g = 0; g < 3; ++g)
        for (int level = 1; level <= 6; ++level)
            EXPECT_EQ(meta::state_name(2, 34 + 6 * g + level - 1),
                      std::string(groups[g]) + std::to_string(level));
    const char* comp[] = {"xx", "yy", "zz", "xy", "yz", "zx"};
    const char* vectors[] = {"H_", "eps_", "eps_el_", "eR1_", "eR2_"};
    for (int v = 0; v < 5; ++v)
        for (int k = 0; k < 6; ++k)
            EXPECT_EQ(meta::state_name(2, 4 + 6 * v + k), std::string(vectors[v]) + comp[k]);
}

TEST(Parameters, NamedPositionsFollowTheTables) {
    EXPECT_EQ(tervak::m1::phi, 6);
    EXPECT_EQ(tervak::m3::phi, 6);
    EXPECT_EQ(tervak::m3::Kur_Kc, 15);
    EXPECT_EQ(tervak::m4::Kt_Kc, 22);
    EXPECT_EQ(tervak::m1::beta, 15);
    EXPECT_EQ(tervak::m2::beta, 22);
    EXPECT_EQ(tervak::m2::phi, 15);
    EXPECT_EQ(tervak::m4::sv::Gt_ap_ref, 55);
    EXPECT_EQ(meta::param_name(1, tervak::m1::sigma_t), "sigma_t");
    EXPECT_EQ(meta::param_name(2, tervak::m2::sigma_t), "sigma_t");
    EXPECT_EQ(meta::state_name(2, tervak::m2::sv::xE_e_M), "xE_e_M_1");
    EXPECT_EQ(tervak::m1::nProps, meta::param_count(1));
    EXPECT_EQ(tervak::m2::sv::nStat, meta::state_count(2));
}

TEST(Parameters, OutOfRangeAnswersNothing) {
    for (int iMod : {0, -1, 5, 99, INT_MIN, INT_MAX}) {
        EXPECT_TRUE(meta::model_name(iMod).empty()) << iMod;
        EXPECT_EQ(meta::param_count(iMod), 0) << iMod;
        EXPECT_EQ(meta::state_count(iMod), 0) << iMod;
        EXPECT_TRUE(meta::param_name(iMod, 1).empty());
        EXPECT_TRUE(meta::state_unit(iMod, 1).empty());
    }
    for (int j : {0, -1, 17, INT_MIN, INT_MAX}) {
        EXPECT_TRUE(meta::param_name(1, j).empty()) << j;
        EXPECT_TRUE(meta::param_unit(1, j).empty()) << j;
    }
    EXPECT_FALSE(meta::param_name(2, 17).empty());
    EXPECT_TRUE(meta::param_name(2, 26).empty());
    EXPECT_TRUE(meta::state_name(1, 3).empty());
    EXPECT_TRUE(meta::state_name(2, 63).empty());
    EXPECT_TRUE(meta::state_unit(2, 0).empty());
}

TEST(Parameters, RangesAcceptTheirInteriorAndRejectTheirEnds) {
    const auto& phi = P::kHsProps[5].range;
    EXPECT_FALSE(phi.contains(0.0));
    EXPECT_TRUE(phi.contains(30.0));
    EXPECT_FALSE(phi.contains(90.0));
    EXPECT_FALSE(phi.contains(std::nan("")));
    const auto& nu = P::kHsProps[7].range;
    EXPECT_TRUE(nu.contains(0.0));
    EXPECT_TRUE(nu.contains(0.499));
    EXPECT_FALSE(nu.contains(0.5));
    const auto& rf = P::kHsProps[10].range;
    EXPECT_FALSE(rf.contains(0.0));
    EXPECT_TRUE(rf.contains(1.0));
    EXPECT_FALSE(rf.contains(1.01));
    EXPECT_TRUE(P::kHsProps[4].range.contains(0.0));  // cohesion may be zero
    EXPECT_FALSE(P::kHsProps[2].range.contains(0.0));  // a modulus may not
    EXPECT_TRUE(P::kHssProps[8].range.contains(-1e30));  // reserved: anything
}

// A dense sand as a laboratory would describe it: every value lies in its
// table's range, and nothing looks like a range written the wrong way round.
TEST(Parameters, ATypicalSandLiesWithinEveryRange) {
    const std::vector<double> hs = {30000, 30000, 90000, 0.5, 1,    35,  5,   0.2,
                                    100,   0.43,  0.9,   0,   54545, 1.2, 1.0, 1.0};
    ASSERT_EQ(hs.size(), P::kHsProps.size());
    for (std::size_t i = 0; i < hs.size(); ++i)
        EXPECT_TRUE(P::kHsProps[i].range.contains(hs[i])) << P::kHsProps[i].name;
    const std::vector<double> hss = {100000, 120000, 37500, 1e-4, 100, 100,  0.5, 0.5, 0,
                                     0,      90000,  0.5,   100,  1,   35,   5,   0.43, 0.9,
                                     0,      30000,  1.2,   1.0,  0.2, 1.0,  0};
    ASSERT_EQ(hss.size(), P::kHssProps.size());
    for (std::size_t i = 0; i < hss.size(); ++i)
        EXPECT_TRUE(P::kHssProps[i].range.contains(hss[i])) << P::kHssProps[i].name;
}

TEST(Parameters, EveryEntryIsDescribed) {
    for (const auto& m : P::kModels) {
        for (const auto& e : m.props) EXPECT_GE(e.meaning.size(), 5u) << e.name;
        for (const auto& e : m.state) EXPECT_GE(e.meaning.size(), 5u) << e.name;
        // Every stress-like parameter that the lab measures has a range.
        for (const auto& e : m.props)
            if (e.name.substr(0, 9) != "reserved_" && e.name != "reset") {
                EXPECT_TRUE(e.range.known) << e.name;
            }
    }
}

// The counted-string writer, with guard bytes around the buffer.
struct Guarded {
    char mem[320];
    Guarded() { std::memset(mem, '#', sizeof mem); }
    char* buf() { return mem + 8; }
    bool untouched(std::size_t from, std::size_t to) const {
        for (std::size_t i = from; i < to; ++i)
            if (mem[i] != '#') return false;
        return true;
    }
};

TEST(CountedString, WritesLengthThenText) {
    Guarded g;
    meta::put_counted(g.buf(), 256, "phi");
    EXPECT_EQ(static_cast<unsigned char>(g.buf()[0]), 3);
    EXPECT_EQ(std::string(g.buf() + 1, 3), "phi");
    EXPECT_TRUE(g.untouched(0, 8));
    EXPECT_TRUE(g.untouched(8 + 4, sizeof g.mem)) << "wrote past the text";
}

TEST(CountedString, EmptyTextWritesAZeroLength) {
    Guarded g;
    meta::put_counted(g.buf(), 10, "");
    EXPECT_EQ(g.buf()[0], '\0');
    EXPECT_TRUE(g.untouched(9, sizeof g.mem));
}

TEST(CountedString, ShortBuffersGetAShortenedText) {
    for (std::size_t len = 1; len <= 5; ++len) {
        Guarded g;
        meta::put_counted(g.buf(), len, "Hardening soil");
        const std::size_t n = len - 1;
        EXPECT_EQ(static_cast<std::size_t>(static_cast<unsigned char>(g.buf()[0])), n);
        EXPECT_EQ(std::string(g.buf() + 1, n), std::string("Hardening soil").substr(0, n));
        EXPECT_TRUE(g.untouched(8 + len, sizeof g.mem)) << "len " << len;
    }
}

TEST(CountedString, ZeroLengthOrNullWritesNothing) {
    Guarded g;
    meta::put_counted(g.buf(), 0, "phi");
    EXPECT_TRUE(g.untouched(0, sizeof g.mem));
    meta::put_counted(nullptr, 256, "phi");  // must not crash
}

TEST(CountedString, AtMost255Characters) {
    Guarded g;
    const std::string longer(300, 'a');
    meta::put_counted(g.buf(), 300, longer);
    EXPECT_EQ(static_cast<unsigned char>(g.buf()[0]), 255);
    EXPECT_EQ(g.buf()[255], 'a');
    EXPECT_TRUE(g.untouched(8 + 256, sizeof g.mem));
}

}  // namespace
