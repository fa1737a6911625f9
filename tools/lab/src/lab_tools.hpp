// The engineer's commands of tervak-lab beside running test files:
// calibrate (task 7 of the library), fit and study (the Python package).
#pragma once

#include <string>

namespace tervak::lab {

// True when argv[1] names one of these commands.
bool is_tool_command(const char* word);
// Runs the command; argv[0] is the command word. Returns the exit status.
int run_tool_command(int argc, char** argv);
// The folder of the running executable ("." when it cannot be read).
std::string exe_dir();

}  // namespace tervak::lab
