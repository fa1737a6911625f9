// Shared helpers of the tests: capturing standard output, running a body
// in a child process, and calling the library as a host does.
#pragma once

#include <functional>
#include <string>

namespace tervak_test {

// Runs fn with standard output redirected, returns what it wrote.
std::string capture_stdout(const std::function<void()>& fn);

struct ChildResult {
    std::string out;
    std::string err;
    int status = 0;  // exit status, or 128 + signal
};
// Runs fn in a forked child; its stdout, stderr and exit status.
ChildResult run_child(const std::function<void()>& fn);

// Runs a shell command, returns its stdout; status in *status if given.
std::string run_command(const std::string& cmd, int* status = nullptr);

}  // namespace tervak_test
