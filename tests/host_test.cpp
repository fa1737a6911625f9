// What a host sees of libtervak.so: exactly the mapped exports, no C++
// runtime, the model descriptions (counted strings) and the README's
// tables generated from them, and careless but legal calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/host.hpp"
#include "tervak_meta.h"

namespace {

using namespace tervak_test;

std::string slurp(const std::string& p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// The names under "global:" of the version script.
std::set<std::string> mapped() {
    std::string t = slurp(std::string(TERVAK_SOURCE_DIR) + "/src/abi/exports.map");
    for (size_t b; (b = t.find("/*")) != std::string::npos;) t.erase(b, t.find("*/", b) + 2 - b);
    t = t.substr(t.find("global:") + 7, t.find("local:") - t.find("global:") - 7);
    for (char& c : t)
        if (c == ';') c = ' ';
    std::istringstream in(t);
    std::set<std::string> s;
    for (std::string w; in >> w;) s.insert(w);
    return s;
}

TEST(Host, ExactlyTheMappedRoutinesAreExported) {
    int st = 0;
    const std::string out = run_command("nm -D --defined-only '" + std::string(TERVAK_LIB_PATH) + "'", &st);
    ASSERT_EQ(st, 0);
    std::set<std::string> exported;
    for (const std::string& l : lines(out)) {
        std::istringstream in(l);
        std::string addr, type, name;
        in >> addr >> type >> name;
        if (type == "T") exported.insert(name);
        else if (!TERVAK_SANITIZE_BUILD) EXPECT_TRUE(type == "A" || (type == "B" && name.rfind("__", 0) == 0)) << l;
    }
    const std::set<std::string> want = mapped();
    EXPECT_GE(want.size(), 60u);
    for (const auto& n : want) EXPECT_TRUE(exported.count(n)) << "not exported: " << n;
    if (!TERVAK_SANITIZE_BUILD)
        for (const auto& n : exported) EXPECT_TRUE(want.count(n)) << "exported, not mapped: " << n;
    for (const char* n : {"user_mod_", "mymodel1_", "mymodel4_", "hs_cap_plast_it_", "iterative_hss_", "getparamname"})
        EXPECT_TRUE(want.count(n)) << n;
}

TEST(Host, NoCxxRuntimeAtLoadTime) {
    if (TERVAK_SANITIZE_BUILD) GTEST_SKIP() << "sanitizer runtimes are linked dynamically";
    int st = 0;
    const std::string out = run_command("readelf -d '" + std::string(TERVAK_LIB_PATH) + "'", &st);
    for (const std::string& l : lines(out))
        if (l.find("(NEEDED)") != std::string::npos)
            EXPECT_TRUE(l.find("[libc.so") != std::string::npos || l.find("[libm.so") != std::string::npos ||
                        l.find("[ld-linux") != std::string::npos)
                << l;
    const std::string undef = run_command("nm -D --undefined-only '" + std::string(TERVAK_LIB_PATH) + "'", &st);
    EXPECT_EQ(undef.find("GLIBCXX"), std::string::npos);
    EXPECT_EQ(undef.find("CXXABI"), std::string::npos);
}

std::string text(void (*fn)(int32_t*, int32_t*, char*, size_t), int m, int i) {
    char buf[300] = {};
    I mm = m, ii = i;
    fn(&mm, &ii, buf, sizeof buf);
    return counted(buf);
}

TEST(Host, ModelsDescribeThemselves) {
    I n = 0;
    getmodelcount_(&n);
    EXPECT_EQ(n, 4);
    const int nParam[] = {16, 25, 16, 25}, nState[] = {2, 62, 2, 62};
    std::set<std::string> models;
    for (I m = 1; m <= 4; ++m) {
        char buf[300] = {};
        getmodelname_(&m, buf, sizeof buf);
        models.insert(counted(buf));
        I np = 0, ns = 0;
        getparamcount_(&m, &np);
        sym<void(I*, I*)>("getstatevarcount")(&m, &ns);  // the spelling without underscore answers too
        EXPECT_EQ(np, nParam[m - 1]);
        EXPECT_EQ(ns, nState[m - 1]);
        std::set<std::string> names;
        for (int i = 1; i <= np; ++i) {
            const std::string name = text(getparamname_, m, i);
            EXPECT_FALSE(name.empty());
            EXPECT_TRUE(names.insert(name).second) << name;
            EXPECT_FALSE(text(getparamunit_, m, i).empty());
        }
        for (int i = 1; i <= ns; ++i) EXPECT_FALSE(text(getstatevarname_, m, i).empty());
        // Out of range: empty text, zero count.
        EXPECT_EQ(text(getparamname_, m, 0), "");
        EXPECT_EQ(text(getparamname_, m, np + 1), "");
        // The user_mod_ count agrees with the description.
        Point h(m, std::vector<double>(50, 0.0));
        h.call(4);
        EXPECT_EQ(h.nStat, ns);
    }
    EXPECT_EQ(models.size(), 4u);
    I bad = 5, np = 7;
    getparamcount_(&bad, &np);
    EXPECT_EQ(np, 0);
    // Named positions the models' formulas read.
    EXPECT_EQ(param_index(1, "phi"), 6);
    EXPECT_EQ(param_index(1, "sigma_t"), 12);
    EXPECT_EQ(param_index(3, "Kur_Kc"), 15);
    EXPECT_EQ(param_index(2, "phi"), 15);
    EXPECT_EQ(param_index(2, "sigma_t"), 19);
    // A short buffer keeps its length: at most len - 1 characters.
    char shortb[5] = {9, 9, 9, 9, 9};
    I one = 1, six = 6;
    getparamname_(&one, &six, shortb, 4);
    EXPECT_EQ(shortb[0], 3);
    EXPECT_EQ(std::string(shortb + 1, 3), "phi");
    EXPECT_EQ(shortb[4], 9);
    getparamname_(&one, &six, nullptr, 10);  // nothing written, no crash
}

TEST(Host, ReadmeTablesAreTheGeneratedOnes) {
    int st = 0;
    const std::string tool = std::string(TERVAK_BINARY_DIR) + "/tools/gen_param_tables/gen_param_tables";
    const std::string md = run_command("'" + tool + "'", &st);
    ASSERT_EQ(st, 0);
    EXPECT_NE(slurp(std::string(TERVAK_SOURCE_DIR) + "/README.md").find(md), std::string::npos)
        << "README's parameter tables are stale: run " << tool << " --update README.md";
    for (I m = 1; m <= 2; ++m) {
        I np = 0;
        getparamcount_(&m, &np);
        for (int i = 1; i <= np; ++i) {
            const std::string row = "| " + std::to_string(i) + " | `" + text(getparamname_, m, i) + "` |";
            EXPECT_NE(md.find(row), std::string::npos) << row;
        }
    }
    const std::string readme = slurp(std::string(TERVAK_SOURCE_DIR) + "/README.md");
    for (const auto& n : mapped()) EXPECT_NE(readme.find(n), std::string::npos) << "README does not list " << n;
}

// Legal but careless host calls: task 4 and 5 without state arrays, repeated
// iterations of one step, the same array passed twice to a kernel.
TEST(Host, CarelessCallsAreHarmless) {
    for (I m = 1; m <= 4; ++m) {
        I task = 5, zero = 0, nStat = -1, a[4] = {-1, -1, -1, -1};
        auto* um = user_mod_entry();
        um(&task, &m, &zero, &zero, &zero, &zero, &zero, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
           nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &nStat, &a[0],
           &a[1], &a[2], &a[3], nullptr, nullptr, nullptr);
        EXPECT_EQ(nStat, -1);
        EXPECT_NE(a[1], -1);
    }
    Point h(1, sand());
    h.Sig0 = {-100, -100, -100, 0, 0, 0};
    h.call(1);
    h.dEps = {1e-4, -2e-3, 1e-4, 0, 0, 0};
    h.call(3);
    Point again = h;
    h.call(2);
    again.iTer = 2;
    again.call(2);
    again.call(2);
    EXPECT_EQ(again.Sig, h.Sig);
    EXPECT_EQ(again.StVar, h.StVar);
}

}  // namespace
