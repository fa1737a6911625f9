// Reading the lab's input files: where a value sits (file, line, section,
// key) for the messages, typed lookups that throw LabError naming the
// field, the collection of every error of a file, and the size limits.
#pragma once

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <toml++/toml.h>

#include "lab_error.hpp"

namespace tervak::lab {

// Largest test or soil file read, and largest measured-data file.
inline constexpr std::size_t kMaxTomlBytes = 1u << 20;
inline constexpr std::size_t kMaxDataBytes = 16u << 20;
// Errors of one file reported at once.
inline constexpr std::size_t kMaxErrors = 20;

// A name or key as it can be shown: control bytes escaped, long texts cut.
std::string printable(std::string_view s, std::size_t max = 60);

[[noreturn]] void fail(const std::string& msg);

struct Where {
    std::string file;
    std::string section;  // "test 'txc100'", "[solver]", ... ("" at the top)
    int line = 0;         // line of the table, 0 when unknown
    std::string head(const toml::node* n = nullptr) const;  // "file:line: section"
    std::string at(std::string_view key, const toml::node* n = nullptr) const;
    Where sub(const std::string& s, const toml::node* n = nullptr) const;
};
int line_of(const toml::node* n);

// Gathers the errors of a file; run() records a LabError instead of
// letting it through, so that the next part of the file is still checked.
struct Diagnostics {
    std::vector<std::string> errors;
    std::size_t dropped = 0;
    void add(const std::string& e);
    bool run(const std::function<void()>& part);
    void throw_if_any() const;
};

void check_keys(const toml::table& t, std::initializer_list<std::string_view> allowed, const Where& w,
                Diagnostics* d = nullptr);
double as_number(const toml::node& n, const std::string& where);
std::optional<double> opt_number(const toml::table& t, std::string_view key, const Where& w);
std::optional<long long> opt_int(const toml::table& t, std::string_view key, const Where& w);
std::optional<bool> opt_bool(const toml::table& t, std::string_view key, const Where& w);
std::optional<std::string> opt_string(const toml::table& t, std::string_view key, const Where& w);
const toml::table* opt_table(const toml::table& t, std::string_view key, const Where& w);
std::optional<std::vector<double>> opt_numbers(const toml::table& t, std::string_view key, const Where& w);
int bounded_int(const toml::table& t, std::string_view key, const Where& w, int def, int lo = 1,
                int hi = 10000000);
double positive(const toml::table& t, std::string_view key, const Where& w, double def);
std::string lower(std::string s);
std::string num(double x);

// Text of a regular file of at most `limit` bytes; `what` names the field
// that referred to it. Directories, FIFOs and devices are refused unread.
std::string read_limited(const std::string& path, const std::string& what, std::size_t limit);
toml::table parse_toml(const std::string& text, const std::string& path);
// Relative names: beside the referring file, then the working directory.
std::string resolve_path(const std::string& name, const std::string& referrer);

// Checks a measured-data CSV: text, a header, every row the header's
// width and numeric, the named columns present. Errors name file and line.
void check_measured_csv(const std::string& path, const std::vector<std::string>& needed,
                        const std::string& what, Diagnostics& d);

}  // namespace tervak::lab
