// The one exception type of the lab: every message names what was wrong
// (file, field, stage, increment) so that it can be shown as it stands.
#pragma once

#include <stdexcept>
#include <string>

namespace tervak::lab {

struct LabError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace tervak::lab
