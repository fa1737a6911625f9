// Reads the names listed under "global:" in the linker version script
// src/abi/exports.map (comments removed), in the order they appear.
#pragma once

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace tervak_test {

inline std::vector<std::string> exported_names(const std::string& map_path) {
    std::ifstream in(map_path);
    std::stringstream ss;
    ss << in.rdbuf();
    std::string text = ss.str();
    // Remove /* */ and # comments.
    for (std::size_t b; (b = text.find("/*")) != std::string::npos;) {
        const std::size_t e = text.find("*/", b + 2);
        text.erase(b, e == std::string::npos ? std::string::npos : e + 2 - b);
    }
    std::string clean;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t h = line.find('#');
        clean += (h == std::string::npos ? line : line.substr(0, h)) + "\n";
    }
    const std::size_t g = clean.find("global:");
    const std::size_t l = clean.find("local:");
    if (g == std::string::npos) return {};
    const std::string globals =
        clean.substr(g + 7, l == std::string::npos ? std::string::npos : l - g - 7);
    std::vector<std::string> names;
    std::string cur;
    for (char c : globals) {
        if (c == ';' || c == ' ' || c == '\n' || c == '\t' || c == '\r') {
            if (!cur.empty()) names.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (!cur.empty()) names.push_back(cur);
    return names;
}

inline std::string exports_map_path() {
    return std::string(TERVAK_SOURCE_DIR) + "/src/abi/exports.map";
}

}  // namespace tervak_test
