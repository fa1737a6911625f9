// The shared object as a host sees it: exactly the names of the version
// script are exported, and (outside sanitizer builds) it depends on nothing
// but the C library, the mathematical library, the loader and the vdso.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/exports_map.hpp"
#include "support/test_support.hpp"

namespace {

using tervak_test::run_command;

struct Symbol {
    char type;
    std::string name;  // with @version when the tool shows one
};

// `nm -D` lines: "<value> <type> <name>" or "<blank> <type> <name>" for
// undefined symbols.
std::vector<Symbol> dynamic_symbols(const std::string& flags) {
    int status = -1;
    const std::string out =
        run_command("nm -D " + flags + " '" + std::string(TERVAK_LIB_PATH) + "' 2>&1", &status);
    EXPECT_EQ(status, 0) << out;
    std::vector<Symbol> syms;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) {
        std::istringstream f(line);
        std::vector<std::string> w;
        for (std::string t; f >> t;) w.push_back(t);
        if (w.size() == 3) syms.push_back({w[1][0], w[2]});
        else if (w.size() == 2) syms.push_back({w[0][0], w[1]});
    }
    return syms;
}

std::string strip_version(const std::string& s) { return s.substr(0, s.find('@')); }

std::string join(const std::set<std::string>& s) {
    std::string r;
    for (const auto& x : s) r += " " + x;
    return r;
}

TEST(AbiSymbols, ExportMapIsReadable) {
    const auto names = tervak_test::exported_names(tervak_test::exports_map_path());
    ASSERT_FALSE(names.empty());
    EXPECT_NE(std::find(names.begin(), names.end(), "user_mod_"), names.end());
    std::set<std::string> unique(names.begin(), names.end());
    EXPECT_EQ(unique.size(), names.size()) << "a name is listed twice";
    for (const auto& n : names) EXPECT_EQ(n.find('*'), std::string::npos) << n;
}

TEST(AbiSymbols, ExactlyTheMappedNamesAreExported) {
    const auto names = tervak_test::exported_names(tervak_test::exports_map_path());
    const std::set<std::string> expected(names.begin(), names.end());
    std::set<std::string> exported;
    for (const Symbol& s : dynamic_symbols("--defined-only")) {
        // Only code and data count; the absolute version-node markers a
        // versioned script would add are not symbols of the library.
        if (s.type == 'A') continue;
        exported.insert(strip_version(s.name));
    }
    std::set<std::string> missing, extra;
    std::set_difference(expected.begin(), expected.end(), exported.begin(), exported.end(),
                        std::inserter(missing, missing.begin()));
    std::set_difference(exported.begin(), exported.end(), expected.begin(), expected.end(),
                        std::inserter(extra, extra.begin()));
    EXPECT_TRUE(missing.empty()) << "listed in exports.map, not exported:" << join(missing);
    EXPECT_TRUE(extra.empty()) << "exported, not listed in exports.map:" << join(extra);
}

TEST(AbiSymbols, ExportedRoutinesAreCode) {
    for (const Symbol& s : dynamic_symbols("--defined-only")) {
        if (s.type == 'A') continue;
        EXPECT_EQ(s.type, 'T') << s.name << " is exported but is not a function";
    }
}

TEST(AbiSymbols, CompanionRoutinesHaveBothSpellings) {
    const auto names = tervak_test::exported_names(tervak_test::exports_map_path());
    const std::set<std::string> set(names.begin(), names.end());
    for (const char* base : {"getmodelcount", "getmodelname", "getparamcount", "getparamname",
                             "getparamunit", "getstatevarcount", "getstatevarname",
                             "getstatevarunit"}) {
        EXPECT_TRUE(set.count(base)) << base;
        EXPECT_TRUE(set.count(std::string(base) + "_")) << base << "_";
    }
}

#if !TERVAK_SANITIZE_BUILD

bool allowed_library(const std::string& soname) {
    return soname.rfind("libc.so.", 0) == 0 || soname.rfind("libm.so.", 0) == 0 ||
           soname.rfind("ld-linux", 0) == 0 || soname.rfind("linux-vdso.so.", 0) == 0;
}

TEST(AbiSymbols, NeedsOnlyTheCAndMathLibraries) {
    int status = -1;
    const std::string out =
        run_command("readelf -d '" + std::string(TERVAK_LIB_PATH) + "' 2>&1", &status);
    ASSERT_EQ(status, 0) << out;
    std::istringstream in(out);
    int needed = 0;
    for (std::string line; std::getline(in, line);) {
        if (line.find("(NEEDED)") == std::string::npos) continue;
        const std::size_t b = line.find('[');
        const std::size_t e = line.find(']', b);
        ASSERT_NE(b, std::string::npos) << line;
        const std::string soname = line.substr(b + 1, e - b - 1);
        ++needed;
        EXPECT_TRUE(allowed_library(soname)) << "needs " << soname;
    }
    EXPECT_GE(needed, 1);
}

TEST(AbiSymbols, LddShowsNoCxxRuntime) {
    int status = -1;
    const std::string out = run_command("ldd '" + std::string(TERVAK_LIB_PATH) + "' 2>&1", &status);
    ASSERT_EQ(status, 0) << out;
    EXPECT_EQ(out.find("libstdc++"), std::string::npos) << out;
    EXPECT_EQ(out.find("libgcc_s"), std::string::npos) << out;
    EXPECT_EQ(out.find("not found"), std::string::npos) << out;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) {
        std::istringstream f(line);
        std::string first;
        if (!(f >> first)) continue;
        // "/lib64/ld-linux-x86-64.so.2 (0x...)" names the loader by path.
        const std::string base = first.substr(first.rfind('/') + 1);
        EXPECT_TRUE(allowed_library(base)) << "ldd lists " << line;
    }
}

TEST(AbiSymbols, ImportsComeOnlyFromTheCLibrary) {
    // Every symbol the library takes from outside carries a glibc version;
    // a C++ runtime symbol (GLIBCXX_, CXXABI_) or libgcc one (GCC_) would
    // mean a dependency on a runtime the host may not have.
    for (const Symbol& s : dynamic_symbols("--undefined-only")) {
        if (s.type == 'w' || s.type == 'v') continue;  // weak, resolved if present
        const std::size_t at = s.name.find('@');
        ASSERT_NE(at, std::string::npos) << s.name << " has no version";
        const std::string version = s.name.substr(at);
        EXPECT_NE(version.find("GLIBC_"), std::string::npos) << s.name;
        EXPECT_EQ(version.find("GLIBCXX"), std::string::npos) << s.name;
        EXPECT_EQ(version.find("CXXABI"), std::string::npos) << s.name;
    }
}

#else

TEST(AbiSymbols, DependenciesAreCheckedInTheReleaseBuild) {
    GTEST_SKIP() << "sanitizer builds link the sanitizer runtimes dynamically";
}

#endif

}  // namespace
