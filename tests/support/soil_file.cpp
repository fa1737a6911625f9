#include "support/soil_file.hpp"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tervak_test {

namespace {
std::string strip_comment(const std::string& line) {
    const auto hash = line.find('#');
    return hash == std::string::npos ? line : line.substr(0, hash);
}

std::string trim(const std::string& s) {
    const auto b = s.find_first_not_of(" \t\r");
    if (b == std::string::npos) return {};
    const auto e = s.find_last_not_of(" \t\r");
    return s.substr(b, e - b + 1);
}

// Value of `key = value` on a line, or empty.
std::string value_of(const std::string& line, const std::string& key) {
    const auto eq = line.find('=');
    if (eq == std::string::npos || trim(line.substr(0, eq)) != key) return {};
    return trim(line.substr(eq + 1));
}
}  // namespace

SoilFile read_soil_file(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot open " + path);
    SoilFile soil;
    std::string line;
    bool inProps = false;
    while (std::getline(in, line)) {
        const std::string body = trim(strip_comment(line));
        if (inProps) {
            std::string rest = body;
            const auto close = rest.find(']');
            if (close != std::string::npos) rest = rest.substr(0, close);
            std::stringstream items(rest);
            std::string item;
            while (std::getline(items, item, ',')) {
                item = trim(item);
                if (!item.empty()) soil.props.push_back(std::strtod(item.c_str(), nullptr));
            }
            if (close != std::string::npos) inProps = false;
            continue;
        }
        if (const auto v = value_of(body, "model"); !v.empty()) soil.model = std::atoi(v.c_str());
        if (const auto v = value_of(body, "title"); !v.empty()) {
            soil.title = v.size() >= 2 && v.front() == '"' ? v.substr(1, v.size() - 2) : v;
        }
        if (const auto v = value_of(body, "props"); !v.empty() && v.front() == '[') {
            inProps = true;
            const std::string rest = v.substr(1);
            if (!trim(rest).empty()) {
                // Values on the opening line: read them as a line of the list.
                std::stringstream items(rest.substr(0, rest.find(']')));
                std::string item;
                while (std::getline(items, item, ',')) {
                    item = trim(item);
                    if (!item.empty()) soil.props.push_back(std::strtod(item.c_str(), nullptr));
                }
                if (rest.find(']') != std::string::npos) inProps = false;
            }
        }
    }
    if (soil.props.empty()) throw std::runtime_error("no props in " + path);
    return soil;
}

std::string soil_path(const std::string& name) {
    return std::string(TERVAK_SOURCE_DIR) + "/examples/soils/" + name + ".toml";
}

}  // namespace tervak_test
