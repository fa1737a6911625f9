// The README's host section cannot drift from the code: its parameter
// tables are the generator's output, the generator tool prints and updates
// the same text, and every exported name is listed there.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "../tools/gen_param_tables/param_tables_md.hpp"
#include "support/exports_map.hpp"
#include "support/test_support.hpp"

namespace {

std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

const std::string kReadme = std::string(TERVAK_SOURCE_DIR) + "/README.md";
const std::string kTool =
    std::string(TERVAK_BINARY_DIR) + "/tools/gen_param_tables/gen_param_tables";

TEST(ReadmeTables, GeneratedSectionMatchesTheTables) {
    const std::string doc = read_file(kReadme);
    std::size_t from = 0, to = 0;
    ASSERT_TRUE(tervak_tools::tables_region(doc, from, to)) << "README has no generated section";
    EXPECT_EQ(doc.substr(from, to - from), tervak_tools::param_tables_markdown())
        << "README's parameter tables are out of date; run " << kTool << " --update README.md";
}

TEST(ReadmeTables, GeneratedTextListsEveryPosition) {
    // The generated text itself, checked independently of its writer: one
    // row per parameter and state variable of every layout.
    const std::string md = tervak_tools::param_tables_markdown();
    for (const auto& m : tervak::params::kModels) {
        EXPECT_NE(md.find(std::string(m.name)), std::string::npos) << m.name;
        for (const auto& e : m.props) {
            const std::string row =
                "| " + std::to_string(e.pos) + " | `" + std::string(e.name) + "` | ";
            EXPECT_NE(md.find(row), std::string::npos) << row;
        }
        for (const auto& e : m.state) {
            const std::string row =
                "| " + std::to_string(e.pos) + " | `" + std::string(e.name) + "` | ";
            EXPECT_NE(md.find(row), std::string::npos) << row;
        }
    }
    EXPECT_NE(md.find("| 6 | `phi` | deg | (0, 90) | friction angle |"), std::string::npos);
    EXPECT_NE(md.find("| 8 | `nu_ur` | - | [0, 0.5) |"), std::string::npos);
    EXPECT_NE(md.find("| 9 | `reserved_9` | - |  | not read by this model |"), std::string::npos);
    EXPECT_NE(md.find("#### Model 1: Hardening soil\n"), std::string::npos);
    // Models 3 and 4 list only the position they read differently.
    EXPECT_NE(md.find("Parameters as model 1, except:"), std::string::npos);
    EXPECT_NE(md.find("Parameters as model 2, except:"), std::string::npos);
    EXPECT_NE(md.find("| 15 | `Kur_Kc` | - | > 1 |"), std::string::npos);
    EXPECT_NE(md.find("| 22 | `Kt_Kc` | - | > 1 |"), std::string::npos);
    EXPECT_NE(md.find("State variables as model 1."), std::string::npos);
    EXPECT_NE(md.find("State variables as model 2."), std::string::npos);
    // Each state variable of the 62 is listed once only.
    EXPECT_EQ(md.find("`xE_e_M_6`"), md.rfind("`xE_e_M_6`"));
}

TEST(ReadmeTables, ToolPrintsTheSameText) {
    int status = -1;
    const std::string out = tervak_test::run_command("'" + kTool + "'", &status);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(out, tervak_tools::param_tables_markdown());
}

TEST(ReadmeTables, ToolRewritesAStaleSection) {
    const std::string doc = read_file(kReadme);
    std::size_t from = 0, to = 0;
    ASSERT_TRUE(tervak_tools::tables_region(doc, from, to));
    std::string stale = doc;
    stale.replace(from, to - from, "\nold tables\n");
    char path[] = "/tmp/tervak_readme_XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    { std::ofstream(path, std::ios::binary) << stale; }
    int status = -1;
    tervak_test::run_command("'" + kTool + "' --update " + path, &status);
    EXPECT_EQ(status, 0);
    const std::string updated = read_file(path);
    std::remove(path);
    // Everything outside the section is kept byte for byte.
    EXPECT_EQ(updated.substr(0, from), doc.substr(0, from));
    std::size_t f2 = 0, t2 = 0;
    ASSERT_TRUE(tervak_tools::tables_region(updated, f2, t2));
    EXPECT_EQ(updated.substr(f2, t2 - f2), tervak_tools::param_tables_markdown());
    EXPECT_EQ(updated.substr(t2), doc.substr(to));
}

TEST(ReadmeTables, ToolRefusesAFileWithoutMarkers) {
    char path[] = "/tmp/tervak_readme_XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    { std::ofstream(path, std::ios::binary) << "# no tables here\n"; }
    int status = -1;
    tervak_test::run_command("'" + kTool + "' --update " + path + " 2>/dev/null", &status);
    EXPECT_NE(status, 0);
    EXPECT_EQ(read_file(path), "# no tables here\n");
    std::remove(path);
}

TEST(ReadmeTables, HostSectionListsEveryExport) {
    const std::string doc = read_file(kReadme);
    const std::size_t b = doc.find("## Using the library in a host");
    ASSERT_NE(b, std::string::npos);
    const std::size_t e = doc.find("\n## ", b + 1);
    const std::string section = doc.substr(b, e == std::string::npos ? std::string::npos : e - b);
    for (const auto& name : tervak_test::exported_names(tervak_test::exports_map_path()))
        EXPECT_NE(section.find("`" + name + "`"), std::string::npos)
            << name << " is exported but not listed in the README";
}

}  // namespace
