// A Fortran host reads the model descriptions through the companion
// routines; what it prints must be exactly the library's tables.
#include <gtest/gtest.h>

#include <string>

#include "models/parameters.hpp"
#include "support/test_support.hpp"

namespace {

const std::string kHost = std::string(TERVAK_BINARY_DIR) + "/tests/f_metadata_host";

std::string expected_listing() {
    using namespace tervak::params;
    std::string out = "models " + std::to_string(kModelCount) + "\n";
    for (const ModelInfo& m : kModels) {
        out += "model " + std::to_string(m.number) + " " + std::string(m.name) + "\n";
        out += "parameters " + std::to_string(m.props.size()) + "\n";
        for (const Entry& e : m.props)
            out += "param " + std::to_string(e.pos) + " " + std::string(e.name) + " " +
                   std::string(e.unit) + "\n";
        out += "statevars " + std::to_string(m.state.size()) + "\n";
        for (const Entry& e : m.state)
            out += "statevar " + std::to_string(e.pos) + " " + std::string(e.name) + " " +
                   std::string(e.unit) + "\n";
    }
    return out;
}

std::string run_host() {
    int status = -1;
    const std::string out = tervak_test::run_command("'" + kHost + "' 2>&1", &status);
    EXPECT_EQ(status, 0) << out;
    return out;
}

TEST(MetadataHost, ListsEveryModelAsTheTablesDo) {
    const std::string out = run_host();
    const std::string expected = expected_listing();
    ASSERT_GE(out.size(), expected.size()) << out;
    EXPECT_EQ(out.substr(0, expected.size()), expected);
}

TEST(MetadataHost, OutOfRangeNumbersAnswerEmptyAndZero) {
    const std::string out = run_host();
    EXPECT_NE(out.find("outside model 0 namelen 0 parameters 0 statevars 0\n"), std::string::npos)
        << out;
    EXPECT_NE(out.find("outside model 5 namelen 0 parameters 0 statevars 0\n"), std::string::npos);
    EXPECT_NE(out.find("outside param 0 namelen 0 unitlen 0\n"), std::string::npos);
    EXPECT_NE(out.find("outside param 17 namelen 0 unitlen 0\n"), std::string::npos);
}

TEST(MetadataHost, ShortBufferKeepsItsLength) {
    // A character(len=4) buffer: the length byte and three characters.
    const std::string out = run_host();
    EXPECT_NE(out.find("short 3 Har\n"), std::string::npos) << out;
}

}  // namespace
