#include "lab_input.hpp"

#include <sys/stat.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace tervak::lab {

namespace fs = std::filesystem;

std::string printable(std::string_view s, std::size_t max) {
    std::string o;
    for (std::size_t i = 0; i < s.size() && i < max; ++i) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (c < 0x20 || c == 0x7f) {
            char b[8];
            std::snprintf(b, sizeof b, "\\x%02x", c);
            o += b;
        } else {
            o += static_cast<char>(c);
        }
    }
    if (s.size() > max) o += "... (" + std::to_string(s.size()) + " bytes)";
    return o;
}

void fail(const std::string& msg) { throw LabError(msg); }

int line_of(const toml::node* n) { return n ? static_cast<int>(n->source().begin.line) : 0; }

std::string Where::head(const toml::node* n) const {
    int l = n ? line_of(n) : line;
    std::string s = file;
    if (l > 0) s += ":" + std::to_string(l);
    if (!section.empty()) s += ": " + section;
    return s;
}

std::string Where::at(std::string_view key, const toml::node* n) const {
    return head(n) + ": '" + printable(key) + "'";
}

Where Where::sub(const std::string& s, const toml::node* n) const {
    return Where{file, section.empty() ? s : section + ": " + s, n ? line_of(n) : line};
}

void Diagnostics::add(const std::string& e) {
    if (errors.size() < kMaxErrors)
        errors.push_back(e);
    else
        ++dropped;
}

bool Diagnostics::run(const std::function<void()>& part) {
    try {
        part();
        return true;
    } catch (const LabError& e) {
        add(e.what());
        return false;
    }
}

void Diagnostics::throw_if_any() const {
    if (errors.empty()) return;
    std::string all;
    for (const auto& e : errors) all += (all.empty() ? "" : "\n") + e;
    if (dropped) all += "\n(" + std::to_string(dropped) + " more error(s) not shown)";
    throw LabError(all);
}

void check_keys(const toml::table& t, std::initializer_list<std::string_view> allowed, const Where& w,
                Diagnostics* d) {
    for (auto&& [k, v] : t) {
        bool ok = false;
        for (auto a : allowed) ok = ok || k.str() == a;
        if (ok) continue;
        std::string list;
        for (auto a : allowed) list += (list.empty() ? "" : ", ") + std::string(a);
        std::string msg = w.at(k.str(), &v) + " is not a known key here (known: " + list + ")";
        if (!d) fail(msg);
        d->add(msg);
    }
}

double as_number(const toml::node& n, const std::string& where) {
    double x = 0.0;
    if (auto f = n.as_floating_point())
        x = f->get();
    else if (auto i = n.as_integer())
        x = static_cast<double>(i->get());
    else
        fail(where + " must be a number");
    if (!std::isfinite(x)) fail(where + " must be a finite number");
    return x;
}

std::optional<double> opt_number(const toml::table& t, std::string_view key, const Where& w) {
    const toml::node* n = t.get(key);
    if (!n) return std::nullopt;
    return as_number(*n, w.at(key, n));
}

std::optional<long long> opt_int(const toml::table& t, std::string_view key, const Where& w) {
    const toml::node* n = t.get(key);
    if (!n) return std::nullopt;
    if (auto i = n->as_integer()) return i->get();
    fail(w.at(key, n) + " must be an integer");
}

std::optional<bool> opt_bool(const toml::table& t, std::string_view key, const Where& w) {
    const toml::node* n = t.get(key);
    if (!n) return std::nullopt;
    if (auto b = n->as_boolean()) return b->get();
    fail(w.at(key, n) + " must be true or false");
}

std::optional<std::string> opt_string(const toml::table& t, std::string_view key, const Where& w) {
    const toml::node* n = t.get(key);
    if (!n) return std::nullopt;
    if (auto s = n->as_string()) return s->get();
    fail(w.at(key, n) + " must be a string");
}

const toml::table* opt_table(const toml::table& t, std::string_view key, const Where& w) {
    const toml::node* n = t.get(key);
    if (!n) return nullptr;
    if (auto tb = n->as_table()) return tb;
    fail(w.at(key, n) + " must be a table");
}

std::optional<std::vector<double>> opt_numbers(const toml::table& t, std::string_view key, const Where& w) {
    const toml::node* n = t.get(key);
    if (!n) return std::nullopt;
    const toml::array* a = n->as_array();
    if (!a) fail(w.at(key, n) + " must be a list of numbers");
    if (a->size() > 10000) fail(w.at(key, n) + " has " + std::to_string(a->size()) + " items; at most 10000");
    std::vector<double> out;
    for (std::size_t i = 0; i < a->size(); ++i)
        out.push_back(as_number(*a->get(i), w.at(key, a->get(i)) + " item " + std::to_string(i + 1)));
    return out;
}

int bounded_int(const toml::table& t, std::string_view key, const Where& w, int def, int lo, int hi) {
    auto v = opt_int(t, key, w);
    if (!v) return def;
    if (*v < lo || *v > hi)
        fail(w.at(key, t.get(key)) + " must be between " + std::to_string(lo) + " and " + std::to_string(hi) +
             " (got " + std::to_string(*v) + ")");
    return static_cast<int>(*v);
}

double positive(const toml::table& t, std::string_view key, const Where& w, double def) {
    auto v = opt_number(t, key, w);
    if (!v) return def;
    if (!(*v > 0)) fail(w.at(key, t.get(key)) + " must be positive");
    return *v;
}

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string num(double x) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.10g", x);
    return buf;
}

std::string read_limited(const std::string& path, const std::string& what, std::size_t limit) {
    if (path.find('\0') != std::string::npos) fail(what + ": the file name holds a NUL byte");
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) fail(what + ": no such file '" + printable(path, 200) + "'");
    if (S_ISDIR(st.st_mode)) fail(what + ": '" + printable(path, 200) + "' is a directory, not a file");
    if (!S_ISREG(st.st_mode))
        fail(what + ": '" + printable(path, 200) + "' is not a regular file (a FIFO, socket or device)");
    if (static_cast<std::size_t>(st.st_size) > limit)
        fail(what + ": '" + printable(path, 200) + "' has " + std::to_string(st.st_size) + " bytes; at most " +
             std::to_string(limit) + " are read");
    std::ifstream in(path, std::ios::binary);
    if (!in) fail(what + ": cannot read file '" + printable(path, 200) + "'");
    std::string text(limit + 1, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    if (text.size() > limit) fail(what + ": '" + printable(path, 200) + "' is larger than " + std::to_string(limit) + " bytes");
    return text;
}

toml::table parse_toml(const std::string& text, const std::string& path) {
    if (text.find('\0') != std::string::npos) fail(path + ": not a text file (it holds NUL bytes)");
    try {
        return toml::parse(text, path);
    } catch (const toml::parse_error& e) {
        std::ostringstream os;
        os << path << ":" << e.source().begin.line << ":" << e.source().begin.column << ": "
           << printable(e.description(), 200);
        fail(os.str());
    }
}

std::string resolve_path(const std::string& name, const std::string& referrer) {
    fs::path p(name);
    if (p.is_absolute()) return name;
    fs::path beside = fs::path(referrer).parent_path() / p;
    std::error_code ec;
    if (fs::exists(beside, ec)) return beside.lexically_normal().string();
    if (fs::exists(p, ec)) return p.string();
    return beside.lexically_normal().string();
}

namespace {

std::vector<std::string> split_csv(const std::string& line) {
    std::vector<std::string> out(1);
    for (char c : line) {
        if (c == ',')
            out.emplace_back();
        else if (c != '\r')
            out.back() += c;
    }
    for (auto& f : out) {
        while (!f.empty() && std::isspace(static_cast<unsigned char>(f.front()))) f.erase(f.begin());
        while (!f.empty() && std::isspace(static_cast<unsigned char>(f.back()))) f.pop_back();
    }
    return out;
}

bool is_number(const std::string& s) {
    if (s.empty()) return false;
    char* end = nullptr;
    double x = std::strtod(s.c_str(), &end);
    return end && *end == '\0' && std::isfinite(x);
}

}  // namespace

void check_measured_csv(const std::string& path, const std::vector<std::string>& needed,
                        const std::string& what, Diagnostics& d) {
    std::string text = read_limited(path, what, kMaxDataBytes);
    if (text.find('\0') != std::string::npos) fail(what + ": '" + printable(path, 200) + "' is not a text file");
    std::istringstream in(text);
    std::string line;
    std::vector<std::string> head;
    int n = 0, rows = 0;
    while (std::getline(in, line)) {
        ++n;
        std::string t = line;
        if (t.find_first_not_of(" \t\r") == std::string::npos || t[t.find_first_not_of(" \t")] == '#') continue;
        auto f = split_csv(t);
        if (head.empty()) {
            head = f;
            continue;
        }
        std::string at = path + ":" + std::to_string(n) + ": ";
        if (f.size() != head.size())
            d.add(at + std::to_string(f.size()) + " fields, the header has " + std::to_string(head.size()));
        else
            for (std::size_t i = 0; i < f.size(); ++i)
                if (!is_number(f[i])) d.add(at + "column '" + printable(head[i]) + "': '" + printable(f[i]) + "' is not a number");
        ++rows;
    }
    if (head.empty() || rows == 0) fail(what + ": '" + printable(path, 200) + "' holds no header and data rows");
    for (const auto& c : needed) {
        bool found = false;
        for (const auto& h : head) found = found || h == c;
        if (!found) d.add(what + ": '" + printable(path, 200) + "' has no column '" + printable(c) + "'");
    }
}

}  // namespace tervak::lab
