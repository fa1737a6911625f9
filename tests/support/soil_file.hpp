// Reader of the example soil parameter files (examples/soils/*.toml): the
// model number and the raw 1-based Props array written between
// `props = [` and `]`, one value per line with `#` comments.
#pragma once

#include <string>
#include <vector>

namespace tervak_test {

struct SoilFile {
    std::string title;
    int model = 0;
    std::vector<double> props;  // props[0] is Props(1)
};

// Reads a soil file; throws std::runtime_error when it cannot be read or
// holds no props.
SoilFile read_soil_file(const std::string& path);

// The example soil file of the given name (without directory and suffix).
std::string soil_path(const std::string& name);

}  // namespace tervak_test
