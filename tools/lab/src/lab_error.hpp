// The one exception type of the lab: every message names what was wrong
// (file, field, stage, increment) so that it can be shown as it stands.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>

namespace tervak::lab {

struct LabError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Copies a message into a C caller's buffer of n bytes, cut to fit and
// always terminated.
inline void copy_message(char* err, std::size_t n, const std::string& msg) {
    if (!err || n == 0) return;
    std::size_t k = std::min(n - 1, msg.size());
    std::memcpy(err, msg.data(), k);
    err[k] = '\0';
}

}  // namespace tervak::lab
