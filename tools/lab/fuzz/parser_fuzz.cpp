// libFuzzer target: the test-file parser must answer any input with a
// test file or a LabError, never a crash, a hang or another exception.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "lab_file.hpp"

using namespace tervak::lab;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ModelLibrary lib(std::getenv("LAB_FUZZ_LIB") ? std::getenv("LAB_FUZZ_LIB") : "libtervak.so");
    std::string text(reinterpret_cast<const char*>(data), size);
    try {
        parse_test_file(text, "/nonexistent/fuzz/case.toml", lib);
    } catch (const LabError&) {
    }
    return 0;
}
