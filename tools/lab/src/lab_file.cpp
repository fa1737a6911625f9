#include "lab_file.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>

#include <toml++/toml.h>

namespace tervak::lab {

namespace fs = std::filesystem;

const char* kind_name(TestKind k) {
    switch (k) {
        case TestKind::Isotropic: return "isotropic";
        case TestKind::Triaxial: return "triaxial";
        case TestKind::Oedometer: return "oedometer";
        case TestKind::SimpleShear: return "simple_shear";
        case TestKind::General: return "general";
    }
    return "general";
}

// ---------------------------------------------------------------------------
// What the lab knows about the Tervak parameter layouts.

namespace {

struct Range {
    int pos;
    const char* name;
    double lo, hi;
    bool lo_open, hi_open;
    bool check;
};

constexpr double kInf = std::numeric_limits<double>::infinity();

// Models 1 and 3.
const Range kHardening[] = {
    {1, "E50_ref", 0, kInf, true, true, true},    {2, "Eoed_ref", 0, kInf, true, true, true},
    {3, "Eur_ref", 0, kInf, true, true, true},    {4, "m", 0, 1, false, false, true},
    {5, "c", 0, kInf, false, true, true},         {6, "phi", 0, 90, true, true, true},
    {7, "psi", -90, 90, true, true, true},        {8, "nu_ur", 0, 0.5, false, true, true},
    {9, "p_ref", 0, kInf, true, true, true},      {10, "K0_nc", 0, kInf, true, true, true},
    {11, "R_f", 0, 1, true, false, true},         {12, "sigma_t", 0, kInf, false, true, true},
    {13, "Ei_ref", 0, kInf, true, true, true},    {14, "alpha", 0, kInf, true, true, true},
    {15, "beta", 0, 0, false, false, false},      {16, "OCR", 0, kInf, true, true, true},
};
// Models 2 and 4.
const Range kSmallStrain[] = {
    {1, "K_ref", 0, kInf, true, true, true},      {2, "G0_ref", 0, kInf, true, true, true},
    {3, "G0_min", 0, kInf, true, true, true},     {4, "gamma_07", 0, kInf, true, true, true},
    {5, "p_ref_K", 0, kInf, true, true, true},    {6, "p_ref_G", 0, kInf, true, true, true},
    {7, "n_K", 0, 1, false, true, true},          {8, "n_G", 0, 1, false, false, true},
    {11, "Eur_ref", 0, kInf, true, true, true},   {12, "m", 0, 1, false, false, true},
    {13, "p_ref", 0, kInf, true, true, true},     {14, "c", 0, kInf, false, true, true},
    {15, "phi", 0, 90, true, true, true},         {16, "psi", -90, 90, true, true, true},
    {17, "K0_nc", 0, kInf, true, true, true},     {18, "R_f", 0, 1, true, false, true},
    {19, "sigma_t", 0, kInf, false, true, true},  {20, "E50_ref", 0, kInf, true, true, true},
    {21, "alpha", 0, kInf, true, true, true},     {23, "nu_ur", 0, 0.5, false, true, true},
    {24, "OCR", 0, kInf, true, true, true},       {25, "reset", 0, 0, false, false, false},
};

const Range* find_range(int model, int pos) {
    if (model == 1 || model == 3) {
        for (const Range& r : kHardening)
            if (r.pos == pos) return &r;
    } else if (model == 2 || model == 4) {
        for (const Range& r : kSmallStrain)
            if (r.pos == pos) return &r;
    }
    return nullptr;
}

std::string num(double x) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.10g", x);
    return buf;
}

}  // namespace

std::string builtin_parameter_name(int model, int position) {
    const Range* r = find_range(model, position);
    return r ? r->name : "";
}

std::string check_parameter_range(int model, int position, double value) {
    const Range* r = find_range(model, position);
    if (!r || !r->check) return {};
    bool ok_lo = r->lo_open ? value > r->lo : value >= r->lo;
    bool ok_hi = r->hi == kInf || (r->hi_open ? value < r->hi : value <= r->hi);
    if (ok_lo && ok_hi) return {};
    std::string range = num(r->lo) + (r->lo_open ? " < " : " <= ") + "value";
    if (r->hi != kInf) range += (r->hi_open ? " < " : " <= ") + num(r->hi);
    return "is outside its valid range " + range;
}

// ---------------------------------------------------------------------------
// TOML helpers with messages that name the field.

namespace {

[[noreturn]] void fail(const std::string& msg) { throw LabError(msg); }

struct Where {
    std::string prefix;  // "file: section"
    std::string at(std::string_view key) const { return prefix + ": '" + std::string(key) + "'"; }
    Where sub(const std::string& s) const { return Where{prefix + ": " + s}; }
};

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

void check_keys(const toml::table& t, std::initializer_list<std::string_view> allowed, const Where& w) {
    for (auto&& [k, v] : t) {
        (void)v;
        bool ok = false;
        for (auto a : allowed)
            if (k.str() == a) ok = true;
        if (!ok) {
            std::string list;
            for (auto a : allowed) list += (list.empty() ? "" : ", ") + std::string(a);
            fail(w.at(k.str()) + " is not a known key here (known: " + list + ")");
        }
    }
}

double as_number(const toml::node& n, const std::string& where) {
    double x;
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
    return as_number(*n, w.at(key));
}

std::optional<long long> opt_int(const toml::table& t, std::string_view key, const Where& w) {
    const toml::node* n = t.get(key);
    if (!n) return std::nullopt;
    if (auto i = n->as_integer()) return i->get();
    fail(w.at(key) + " must be an integer");
}

std::optional<bool> opt_bool(const toml::table& t, std::string_view key, const Where& w) {
    const toml::node* n = t.get(key);
    if (!n) return std::nullopt;
    if (auto b = n->as_boolean()) return b->get();
    fail(w.at(key) + " must be true or false");
}

std::optional<std::string> opt_string(const toml::table& t, std::string_view key, const Where& w) {
    const toml::node* n = t.get(key);
    if (!n) return std::nullopt;
    if (auto s = n->as_string()) return s->get();
    fail(w.at(key) + " must be a string");
}

const toml::table* opt_table(const toml::table& t, std::string_view key, const Where& w) {
    const toml::node* n = t.get(key);
    if (!n) return nullptr;
    if (auto tb = n->as_table()) return tb;
    fail(w.at(key) + " must be a table");
}

std::optional<std::vector<double>> opt_numbers(const toml::table& t, std::string_view key,
                                               const Where& w) {
    const toml::node* n = t.get(key);
    if (!n) return std::nullopt;
    const toml::array* a = n->as_array();
    if (!a) fail(w.at(key) + " must be a list of numbers");
    std::vector<double> out;
    for (size_t i = 0; i < a->size(); ++i)
        out.push_back(as_number(*a->get(i), w.at(key) + " item " + std::to_string(i + 1)));
    return out;
}

int positive_int(const toml::table& t, std::string_view key, const Where& w, int def, int lo = 1,
                 int hi = 10000000) {
    auto v = opt_int(t, key, w);
    if (!v) return def;
    if (*v < lo || *v > hi)
        fail(w.at(key) + " must be between " + std::to_string(lo) + " and " + std::to_string(hi) +
             " (got " + std::to_string(*v) + ")");
    return static_cast<int>(*v);
}

int component_index(std::string_view name) {
    for (int i = 0; i < 6; ++i)
        if (name == kComponentNames[i]) return i;
    return -1;
}

toml::table parse_toml(const std::string& text, const std::string& path) {
    try {
        return toml::parse(text, path);
    } catch (const toml::parse_error& e) {
        std::ostringstream os;
        os << path << ":" << e.source().begin.line << ":" << e.source().begin.column << ": "
           << e.description();
        fail(os.str());
    }
}

std::string read_file(const std::string& path, const std::string& what) {
    std::ifstream in(path, std::ios::binary);
    if (!in) fail(what + ": cannot read file '" + path + "'");
    std::ostringstream os;
    os << in.rdbuf();
    return os.str();
}

// Relative file names: beside the referring file first, then the working
// directory, then the source tree.
std::string resolve_path(const std::string& name, const std::string& referrer) {
    fs::path p(name);
    if (p.is_absolute()) return name;
    fs::path beside = fs::path(referrer).parent_path() / p;
    std::error_code ec;
    if (fs::exists(beside, ec)) return beside.lexically_normal().string();
    if (fs::exists(p, ec)) return p.string();
#ifdef TERVAK_SOURCE_DIR
    fs::path src = fs::path(TERVAK_SOURCE_DIR) / p;
    if (fs::exists(src, ec)) return src.string();
#endif
    return beside.lexically_normal().string();
}

// ---------------------------------------------------------------------------
// Parameters.

struct ParamContext {
    int model = 0;
    const ModelLibrary* lib = nullptr;
    std::vector<FieldInfo> meta;
};

std::string param_label(const ParamContext& pc, int pos) {
    std::string name;
    if (pos >= 1 && static_cast<size_t>(pos) <= pc.meta.size()) name = pc.meta[pos - 1].name;
    if (name.empty() && pc.lib->is_tervak()) name = builtin_parameter_name(pc.model, pos);
    return "parameter " + std::to_string(pos) + (name.empty() ? "" : " '" + name + "'");
}

std::vector<double> props_list(const toml::table& t, const Where& w) {
    auto v = opt_numbers(t, "props", w);
    if (v->empty()) fail(w.at("props") + " is empty");
    if (v->size() > 50) fail(w.at("props") + " has " + std::to_string(v->size()) + " values; at most 50");
    return *v;
}

// Applies a [parameters] table by name onto props; `given` marks the
// positions set so far.
void apply_named(const toml::table& params, const ParamContext& pc, const Where& w,
                 std::vector<double>& props, std::vector<bool>& given) {
    if (pc.meta.empty())
        fail(w.prefix + ": parameters by name need a library that describes its parameters; '" +
             pc.lib->path() + "' does not, so give a 'props' list");
    for (auto&& [k, v] : params) {
        std::string key(k.str());
        int pos = -1;
        for (size_t i = 0; i < pc.meta.size(); ++i)
            if (pc.meta[i].name == key) pos = static_cast<int>(i) + 1;
        if (pos < 0)
            for (size_t i = 0; i < pc.meta.size(); ++i)
                if (lower(pc.meta[i].name) == lower(key)) pos = static_cast<int>(i) + 1;
        if (pos < 0) {
            std::string list;
            for (const auto& f : pc.meta) list += (list.empty() ? "" : ", ") + f.name;
            fail(w.at(key) + " is not a parameter of model " + std::to_string(pc.model) + " (" + list + ")");
        }
        double x = as_number(v, w.at(key));
        if (props.size() < static_cast<size_t>(pos)) {
            props.resize(pos, 0.0);
            given.resize(pos, false);
        }
        props[pos - 1] = x;
        given[pos - 1] = true;
    }
}

void check_props(const std::vector<double>& props, const std::vector<bool>& given,
                 const ParamContext& pc, const Where& w) {
    if (!pc.meta.empty()) {
        std::string missing;
        for (size_t i = 0; i < pc.meta.size(); ++i)
            if (i >= given.size() || !given[i]) missing += (missing.empty() ? "" : ", ") + pc.meta[i].name;
        if (!missing.empty())
            fail(w.prefix + ": missing parameter(s) of model " + std::to_string(pc.model) + ": " + missing);
        if (props.size() > pc.meta.size())
            fail(w.prefix + ": " + std::to_string(props.size()) + " parameter values given but model " +
                 std::to_string(pc.model) + " has " + std::to_string(pc.meta.size()));
    }
    if (props.empty()) fail(w.prefix + ": no parameters (give 'soil', 'props' or [parameters])");
    for (size_t i = 0; i < props.size(); ++i) {
        if (!std::isfinite(props[i])) fail(w.prefix + ": " + param_label(pc, i + 1) + " is not finite");
        if (pc.lib->is_tervak()) {
            std::string why = check_parameter_range(pc.model, static_cast<int>(i) + 1, props[i]);
            if (!why.empty())
                fail(w.prefix + ": " + param_label(pc, i + 1) + " = " + num(props[i]) + " " + why);
        }
    }
    if (pc.lib->is_tervak() && (pc.model == 2 || pc.model == 4) && props.size() >= 3 &&
        props[2] > props[1])
        fail(w.prefix + ": " + param_label(pc, 3) + " = " + num(props[2]) + " exceeds " +
             param_label(pc, 2) + " = " + num(props[1]));
}

// ---------------------------------------------------------------------------
// Stages.

StagePlan blank_stage(const std::string& name, int steps, bool undrained) {
    StagePlan s;
    s.name = name;
    s.steps = steps;
    s.undrained = undrained;
    for (auto& c : s.comp) c = ComponentPath{Control::Stress, true, 0.0};
    return s;
}

void fix_strain(StagePlan& s, int i) { s.comp[i] = ComponentPath{Control::Strain, true, 0.0}; }

std::string check_name(const std::string& n, const Where& w) {
    if (n.empty()) fail(w.at("name") + " is empty");
    for (char c : n)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.'))
            fail(w.at("name") + " = '" + n + "' may hold only letters, digits, '_', '-' and '.'");
    return n;
}

void parse_initial(const toml::table& t, const Where& w, LabTest& test, bool& have) {
    auto p0 = opt_number(t, "p0", w);
    auto sv0 = opt_number(t, "sigma_v0", w);
    auto k0 = opt_number(t, "k0", w);
    const toml::table* init = opt_table(t, "initial", w);
    int ways = (p0 ? 1 : 0) + (sv0 ? 1 : 0) + (init ? 1 : 0);
    if (ways > 1) fail(w.prefix + ": give the initial state once: 'p0', 'sigma_v0' with 'k0', or [initial]");
    if (k0 && !sv0) fail(w.at("k0") + " needs 'sigma_v0'");
    test.sig0.fill(0.0);
    test.pw0 = 0.0;
    have = ways == 1;
    if (p0) {
        if (*p0 < 0) fail(w.at("p0") + " must not be negative (compression positive)");
        for (int i = 0; i < 3; ++i) test.sig0[i] = -*p0;
    } else if (sv0) {
        if (*sv0 < 0) fail(w.at("sigma_v0") + " must not be negative (compression positive)");
        if (!k0) fail(w.at("k0") + " is missing (lateral to vertical effective stress ratio)");
        if (*k0 < 0) fail(w.at("k0") + " must not be negative");
        test.sig0 = {-*k0 * *sv0, -*sv0, -*k0 * *sv0, 0, 0, 0};
    } else if (init) {
        Where wi = w.sub("[initial]");
        check_keys(*init, {"stress", "pore_pressure", "state_variables"}, wi);
        const toml::table* st = opt_table(*init, "stress", wi);
        if (!st) fail(wi.at("stress") + " is missing (effective stresses, compression positive)");
        Where ws = wi.sub("stress");
        for (auto&& [k, v] : *st) {
            int i = component_index(k.str());
            if (i < 0) fail(ws.at(k.str()) + " is not a stress component (xx, yy, zz, xy, yz, zx)");
            test.sig0[i] = -as_number(v, ws.at(k.str()));
        }
        if (auto u = opt_number(*init, "pore_pressure", wi)) test.pw0 = -*u;
        if (auto sv = opt_numbers(*init, "state_variables", wi)) test.sv0 = *sv;
    }
}

// One general stage from its table.
StagePlan parse_stage(const toml::table& t, const Where& w, int index, bool undrained_default) {
    check_keys(t, {"name", "steps", "drained", "strain", "dstrain", "stress", "dstress", "tie"}, w);
    std::string name = "stage" + std::to_string(index);
    if (auto n = opt_string(t, "name", w)) name = check_name(*n, w);
    int steps = positive_int(t, "steps", w, 100);
    bool undrained = undrained_default;
    if (auto d = opt_bool(t, "drained", w)) undrained = !*d;
    StagePlan s = blank_stage(name, steps, undrained);
    std::array<std::string, 6> set_by{};
    struct Kind {
        const char* key;
        Control ctl;
        bool relative;
    };
    const Kind kinds[] = {{"strain", Control::Strain, false},
                          {"dstrain", Control::Strain, true},
                          {"stress", Control::Stress, false},
                          {"dstress", Control::Stress, true}};
    for (const Kind& kd : kinds) {
        const toml::table* tb = opt_table(t, kd.key, w);
        if (!tb) continue;
        Where wk = w.sub(kd.key);
        for (auto&& [k, v] : *tb) {
            int i = component_index(k.str());
            if (i < 0) fail(wk.at(k.str()) + " is not a component (xx, yy, zz, xy, yz, zx)");
            if (!set_by[i].empty())
                fail(wk.at(k.str()) + " is already controlled by '" + set_by[i] + "' in this stage");
            set_by[i] = kd.key;
            s.comp[i] = ComponentPath{kd.ctl, kd.relative, -as_number(v, wk.at(k.str()))};
        }
    }
    if (const toml::node* tie = t.get("tie")) {
        const toml::array* a = tie->as_array();
        if (!a) fail(w.at("tie") + " must be a list of component names, e.g. [\"xx\", \"zz\"]");
        std::vector<int> group;
        for (size_t j = 0; j < a->size(); ++j) {
            auto sname = a->get(j)->value<std::string>();
            int i = sname ? component_index(*sname) : -1;
            if (i < 0) fail(w.at("tie") + " item " + std::to_string(j + 1) + " is not a component name");
            if (s.comp[i].control != Control::Stress)
                fail(w.at("tie") + ": component '" + *sname + "' is strain-controlled; only stress-controlled components can be tied");
            if (std::find(group.begin(), group.end(), i) != group.end())
                fail(w.at("tie") + ": component '" + *sname + "' is listed twice");
            group.push_back(i);
        }
        if (group.size() < 2) fail(w.at("tie") + " needs at least two components");
        s.ties.push_back(group);
    }
    return s;
}

double default_reference_pressure(const TestFile& f, const LabTest& t, const ModelLibrary& lib) {
    if (lib.is_tervak()) {
        if ((t.model == 1 || t.model == 3) && t.props.size() >= 9 && t.props[8] > 0) return t.props[8];
        if ((t.model == 2 || t.model == 4) && t.props.size() >= 13 && t.props[12] > 0) return t.props[12];
    }
    std::string u = lower(f.units);
    if (u == "kpa" || u == "kn/m2" || u == "kn/m^2") return 100.0;
    if (u == "pa" || u == "n/m2" || u == "n/m^2") return 1.0e5;
    if (u == "mpa") return 0.1;
    return std::numeric_limits<double>::quiet_NaN();
}

const std::set<std::string>& lab_columns() {
    static const std::set<std::string> cols = {
        "eps_xx", "eps_yy", "eps_zz", "gam_xy", "gam_yz", "gam_zx", "sig_xx", "sig_yy", "sig_zz",
        "sig_xy", "sig_yz", "sig_zx", "tsig_xx", "tsig_yy", "tsig_zz", "u", "p", "q", "eps_v", "eps_q"};
    return cols;
}

void parse_measured(const toml::table& t, const Where& w, const std::string& file_path, LabTest& test) {
    const toml::table* m = opt_table(t, "measured", w);
    if (!m) return;
    Where wm = w.sub("[measured]");
    check_keys(*m, {"file", "columns", "scale"}, wm);
    auto f = opt_string(*m, "file", wm);
    if (!f) fail(wm.at("file") + " is missing");
    test.measured.file = resolve_path(*f, file_path);
    std::error_code ec;
    if (!fs::exists(test.measured.file, ec)) fail(wm.at("file") + ": no such file '" + *f + "'");
    test.has_measured = true;
    if (const toml::table* c = opt_table(*m, "columns", wm)) {
        for (auto&& [k, v] : *c) {
            std::string key(k.str());
            if (!lab_columns().count(key)) fail(wm.sub("columns").at(key) + " is not a result column of the lab");
            auto s = v.value<std::string>();
            if (!s) fail(wm.sub("columns").at(key) + " must be the name of a column of the measured file");
            test.measured.columns.emplace_back(key, *s);
        }
    }
    if (const toml::table* c = opt_table(*m, "scale", wm)) {
        for (auto&& [k, v] : *c) {
            std::string key(k.str());
            if (!lab_columns().count(key)) fail(wm.sub("scale").at(key) + " is not a result column of the lab");
            test.measured.scale.emplace_back(key, as_number(v, wm.sub("scale").at(key)));
        }
    }
}

void parse_solver(const toml::table* t, const Where& w, SolverOptions& s) {
    if (!t) return;
    Where ws = w.sub("[solver]");
    check_keys(*t, {"tolerance", "max_iterations", "max_cuts", "accelerate", "trace"}, ws);
    if (auto v = opt_number(*t, "tolerance", ws)) {
        if (!(*v > 0 && *v < 1)) fail(ws.at("tolerance") + " must lie between 0 and 1 (relative)");
        s.tolerance = *v;
    }
    s.max_iterations = positive_int(*t, "max_iterations", ws, s.max_iterations, 1, 100000);
    s.max_cuts = positive_int(*t, "max_cuts", ws, s.max_cuts, 0, 40);
    if (auto v = opt_bool(*t, "accelerate", ws)) s.accelerate = *v;
    if (auto v = opt_bool(*t, "trace", ws)) s.trace = *v;
}

void parse_host(const toml::table* t, const Where& w, HostOptions& h) {
    if (!t) return;
    Where wh = w.sub("[host]");
    check_keys(*t, {"element", "point", "stiffness_task"}, wh);
    h.element = positive_int(*t, "element", wh, h.element, 0, 2000000000);
    h.point = positive_int(*t, "point", wh, h.point, 0, 2000000000);
    h.stiffness_task = positive_int(*t, "stiffness_task", wh, h.stiffness_task, 3, 6);
    if (h.stiffness_task != 3 && h.stiffness_task != 6)
        fail(wh.at("stiffness_task") + " must be 3 (material stiffness) or 6 (elastic stiffness)");
}

LabTest parse_test(const toml::table& t, int index, const TestFile& file, const ParamContext& pc,
                   const std::vector<double>& base_props, const std::vector<bool>& base_given,
                   const SolverOptions& solver, const HostOptions& host, const ModelLibrary& lib) {
    LabTest test;
    Where w0{file.path + ": test " + std::to_string(index)};
    auto type = opt_string(t, "type", w0);
    if (!type) fail(w0.at("type") + " is missing (isotropic, triaxial, oedometer, simple_shear, general)");
    std::string ty = lower(*type);
    if (ty == "isotropic") test.kind = TestKind::Isotropic;
    else if (ty == "triaxial") test.kind = TestKind::Triaxial;
    else if (ty == "oedometer") test.kind = TestKind::Oedometer;
    else if (ty == "simple_shear" || ty == "dss" || ty == "cyclic_simple_shear") test.kind = TestKind::SimpleShear;
    else if (ty == "general") test.kind = TestKind::General;
    else fail(w0.at("type") + " = '" + *type + "' is not a test type (isotropic, triaxial, oedometer, simple_shear, general)");

    test.name = std::string(kind_name(test.kind)) + std::to_string(index);
    if (auto n = opt_string(t, "name", w0)) test.name = check_name(*n, w0);
    Where w{file.path + ": test '" + test.name + "'"};

    std::vector<std::string_view> keys = {"name", "type", "drained", "parameters", "solver", "host",
                                          "measured", "initial", "p0", "sigma_v0", "k0"};
    switch (test.kind) {
        case TestKind::Isotropic: keys.insert(keys.end(), {"pressures", "steps"}); break;
        case TestKind::Triaxial:
            keys.insert(keys.end(), {"direction", "axial_strain", "steps", "secant_at"});
            break;
        case TestKind::Oedometer:
            keys.insert(keys.end(), {"vertical_stress", "steps", "reference_pressure"});
            break;
        case TestKind::SimpleShear:
            keys.insert(keys.end(), {"amplitudes", "cycles", "steps_per_cycle", "G0"});
            break;
        case TestKind::General: keys.insert(keys.end(), {"stage", "secant_at"}); break;
    }
    for (auto&& [k, v] : t) {
        (void)v;
        if (std::find(keys.begin(), keys.end(), k.str()) == keys.end()) {
            std::string list;
            for (auto a : keys) list += (list.empty() ? "" : ", ") + std::string(a);
            fail(w.at(k.str()) + " is not a key of a " + kind_name(test.kind) + " test (known: " + list + ")");
        }
    }

    // Parameters: the file's, then this test's overrides by name.
    test.model = pc.model;
    test.props = base_props;
    std::vector<bool> given = base_given;
    if (const toml::table* p = opt_table(t, "parameters", w)) apply_named(*p, pc, w.sub("[parameters]"), test.props, given);
    check_props(test.props, given, pc, w);

    test.solver = solver;
    test.host = host;
    parse_solver(opt_table(t, "solver", w), w, test.solver);
    parse_host(opt_table(t, "host", w), w, test.host);
    parse_measured(t, w, file.path, test);

    bool have_initial = false;
    parse_initial(t, w, test, have_initial);
    if (!have_initial)
        fail(w.prefix + ": the initial state is missing: give 'p0', 'sigma_v0' with 'k0', or [initial] stress");
    if (test.sv0.size() > file.statevar_names.size() && !file.statevar_names.empty())
        fail(w.sub("[initial]").at("state_variables") + " has " + std::to_string(test.sv0.size()) +
             " values; the model has " + std::to_string(file.statevar_names.size()));
    bool undrained = false;
    if (auto d = opt_bool(t, "drained", w)) undrained = !*d;
    if (auto s = opt_numbers(t, "secant_at", w)) {
        for (double x : *s)
            if (!(x > 0)) fail(w.at("secant_at") + " must hold positive shear strains");
        test.secant_at = *s;
    }

    switch (test.kind) {
        case TestKind::Isotropic: {
            auto pr = opt_numbers(t, "pressures", w);
            if (!pr || pr->empty()) fail(w.at("pressures") + " is missing (isotropic stresses to reach, in order)");
            int steps = positive_int(t, "steps", w, 100);
            int k = 0;
            for (double p : *pr) {
                if (p < 0) fail(w.at("pressures") + " must not hold negative values (compression positive)");
                StagePlan s = blank_stage("p" + num(p), steps, undrained);
                for (int i = 0; i < 3; ++i) s.comp[i] = ComponentPath{Control::Stress, false, -p};
                for (int i = 3; i < 6; ++i) fix_strain(s, i);
                test.stages.push_back(s);
                test.info.push_back({s.name, ++k == 1 ? "load" : "path", 0.0, 0});
            }
            break;
        }
        case TestKind::Triaxial: {
            std::string dir = "compression";
            if (auto d = opt_string(t, "direction", w)) dir = lower(*d);
            if (dir != "compression" && dir != "extension")
                fail(w.at("direction") + " must be \"compression\" or \"extension\"");
            double ea = 0.15;
            if (auto a = opt_number(t, "axial_strain", w)) ea = *a;
            if (!(ea > 0 && ea < 1)) fail(w.at("axial_strain") + " must lie between 0 and 1 (a magnitude)");
            int steps = positive_int(t, "steps", w, 300);
            StagePlan s = blank_stage("shear", steps, undrained);
            s.comp[1] = ComponentPath{Control::Strain, true, dir == "compression" ? -ea : ea};
            for (int i = 3; i < 6; ++i) fix_strain(s, i);
            s.ties.push_back({0, 2});
            test.stages.push_back(s);
            test.info.push_back({"shear", dir, 0.0, 0});
            break;
        }
        case TestKind::Oedometer: {
            auto sv = opt_numbers(t, "vertical_stress", w);
            if (!sv || sv->empty()) fail(w.at("vertical_stress") + " is missing (vertical stresses to reach, in order)");
            int steps = positive_int(t, "steps", w, 100);
            double prev = -test.sig0[1] - test.pw0;
            bool unloaded = false;
            for (double v : *sv) {
                if (v < 0) fail(w.at("vertical_stress") + " must not hold negative values (compression positive)");
                std::string role = v >= prev ? (unloaded ? "reload" : "load") : "unload";
                if (role == "unload") unloaded = true;
                StagePlan s = blank_stage(role + num(v), steps, undrained);
                s.comp[1] = ComponentPath{Control::Stress, false, -v};
                fix_strain(s, 0);
                fix_strain(s, 2);
                for (int i = 3; i < 6; ++i) fix_strain(s, i);
                test.stages.push_back(s);
                test.info.push_back({s.name, role, 0.0, 0});
                prev = v;
            }
            if (auto r = opt_number(t, "reference_pressure", w)) {
                if (!(*r > 0)) fail(w.at("reference_pressure") + " must be positive");
                test.reference_pressure = *r;
            } else {
                test.reference_pressure = default_reference_pressure(file, test, lib);
            }
            break;
        }
        case TestKind::SimpleShear: {
            auto amps = opt_numbers(t, "amplitudes", w);
            if (!amps || amps->empty()) fail(w.at("amplitudes") + " is missing (single shear strain amplitudes)");
            for (double a : *amps)
                if (!(a > 0 && a < 1)) fail(w.at("amplitudes") + " must hold shear strains between 0 and 1");
            int cycles = positive_int(t, "cycles", w, 200, 1, 1000);
            int spc = positive_int(t, "steps_per_cycle", w, 40, 4, 1000000);
            if (spc % 4 != 0) fail(w.at("steps_per_cycle") + " must be a multiple of 4");
            if (auto g = opt_number(t, "G0", w)) {
                if (!(*g > 0)) fail(w.at("G0") + " must be positive");
                test.g0 = *g;
            }
            auto shear_stage = [&](const std::string& name, int steps, double gamma) {
                StagePlan s = blank_stage(name, steps, undrained);
                s.comp[1] = ComponentPath{Control::Stress, true, 0.0};
                fix_strain(s, 0);
                fix_strain(s, 2);
                fix_strain(s, 4);
                fix_strain(s, 5);
                s.comp[3] = ComponentPath{Control::Strain, false, -gamma};
                return s;
            };
            // Each half cycle starts with its first step cut into
            // kReversalSteps increments: the step that reverses the strain
            // takes the secant of the whole previous branch, and its error
            // stays in the loop for the rest of the branch, so it is the
            // step that decides how well a loop closes.
            constexpr int kReversalSteps = 16;
            const int half = spc / 2;
            for (double a : *amps) {
                std::string tag = "g" + num(a);
                test.stages.push_back(shear_stage(tag + "_start", spc / 4, a));
                test.info.push_back({tag + "_start", "cycle", a, 0});
                for (int c = 1; c <= cycles; ++c) {
                    std::string n = tag + "_c" + std::to_string(c);
                    for (double to : {-a, a}) {
                        std::string h = n + (to < 0 ? "_down" : "_up");
                        test.stages.push_back(shear_stage(h + "_rev", kReversalSteps, -to + 2.0 * to / half));
                        test.info.push_back({h + "_rev", "cycle", a, c});
                        test.stages.push_back(shear_stage(h, half - 1, to));
                        test.info.push_back({h, "cycle", a, c});
                    }
                }
            }
            break;
        }
        case TestKind::General: {
            const toml::node* st = t.get("stage");
            if (!st) fail(w.at("stage") + " is missing ([[test.stage]] tables)");
            const toml::array* arr = st->as_array();
            if (!arr || arr->empty()) fail(w.at("stage") + " must be a list of tables ([[test.stage]])");
            std::set<std::string> names;
            for (size_t j = 0; j < arr->size(); ++j) {
                const toml::table* tb = arr->get(j)->as_table();
                if (!tb) fail(w.at("stage") + " item " + std::to_string(j + 1) + " must be a table");
                Where ws = w.sub("stage " + std::to_string(j + 1));
                StagePlan s = parse_stage(*tb, ws, static_cast<int>(j) + 1, undrained);
                if (!names.insert(s.name).second) fail(ws.at("name") + " = '" + s.name + "' is used twice");
                test.stages.push_back(s);
                test.info.push_back({s.name, "path", 0.0, 0});
            }
            break;
        }
    }
    if (!(test.reference_pressure > 0)) {
        double r = default_reference_pressure(file, test, lib);
        if (test.kind != TestKind::Oedometer || std::isnan(test.reference_pressure)) test.reference_pressure = r;
    }
    return test;
}

}  // namespace

TestFile parse_test_file(const std::string& text, const std::string& path, const ModelLibrary& lib) {
    TestFile f;
    f.path = path;
    f.stem = fs::path(path).stem().string();
    toml::table root = parse_toml(text, path);
    Where w{path};
    check_keys(root, {"title", "soil", "model", "units", "props", "parameters", "solver", "host", "test"}, w);
    f.title = opt_string(root, "title", w).value_or(f.stem);

    // The soil: a bundled soil file, then this file's own settings.
    std::optional<long long> soil_model;
    std::vector<double> props;
    std::vector<bool> given;
    const toml::table* soil_params = nullptr;
    toml::table soil_root;
    std::string soil_where;
    if (auto s = opt_string(root, "soil", w)) {
        f.soil_path = resolve_path(*s, path);
        std::error_code ec;
        if (!fs::exists(f.soil_path, ec)) fail(w.at("soil") + ": no such soil file '" + *s + "'");
        soil_root = parse_toml(read_file(f.soil_path, w.at("soil")), f.soil_path);
        Where ws{f.soil_path};
        soil_where = f.soil_path;
        check_keys(soil_root, {"title", "model", "units", "props", "parameters", "description", "notes", "source"}, ws);
        f.soil_title = opt_string(soil_root, "title", ws).value_or(fs::path(f.soil_path).stem().string());
        soil_model = opt_int(soil_root, "model", ws);
        if (!soil_model) fail(ws.at("model") + " is missing");
        f.units = opt_string(soil_root, "units", ws).value_or("");
        if (soil_root.get("props")) {
            props = props_list(soil_root, ws);
            given.assign(props.size(), true);
        }
        soil_params = opt_table(soil_root, "parameters", ws);
        if (!soil_root.get("props") && !soil_params) fail(ws.prefix + ": the soil has neither 'props' nor [parameters]");
    }
    auto model = opt_int(root, "model", w);
    if (model && soil_model && *model != *soil_model)
        fail(w.at("model") + " = " + std::to_string(*model) + " differs from the soil file's model " +
             std::to_string(*soil_model));
    if (!model) model = soil_model;
    if (!model) fail(w.at("model") + " is missing (or give 'soil')");
    if (*model < 0 || *model > 1000000) fail(w.at("model") + " = " + std::to_string(*model) + " is not a model number");
    f.model = static_cast<int>(*model);
    try {
        check_model_number(lib, f.model);
    } catch (const LabError& e) {
        fail(w.at("model") + ": " + e.what());
    }
    if (auto u = opt_string(root, "units", w)) f.units = *u;
    if (f.units.empty()) f.units = "kPa";

    ParamContext pc;
    pc.model = f.model;
    pc.lib = &lib;
    pc.meta = lib.parameters(f.model);
    if (root.get("props")) {
        props = props_list(root, w);
        given.assign(props.size(), true);
        soil_params = nullptr;
    }
    // A raw list counts as complete: the host pads it with zeros.
    if (!given.empty() && given.size() < pc.meta.size()) given.resize(pc.meta.size(), true);
    if (soil_params) apply_named(*soil_params, pc, Where{soil_where}.sub("[parameters]"), props, given);
    if (const toml::table* p = opt_table(root, "parameters", w)) apply_named(*p, pc, w.sub("[parameters]"), props, given);

    for (size_t i = 0; i < std::max(pc.meta.size(), props.size()); ++i) {
        std::string n = i < pc.meta.size() ? pc.meta[i].name : "";
        if (n.empty() && lib.is_tervak()) n = builtin_parameter_name(f.model, static_cast<int>(i) + 1);
        f.param_names.push_back(n);
    }
    for (const auto& sv : lib.state_variables(f.model)) f.statevar_names.push_back(sv.name);

    SolverOptions solver;
    HostOptions host;
    parse_solver(opt_table(root, "solver", w), w, solver);
    parse_host(opt_table(root, "host", w), w, host);

    const toml::node* tests = root.get("test");
    if (!tests) fail(w.at("test") + " is missing (one [[test]] table per test)");
    std::vector<const toml::table*> list;
    if (const toml::table* one = tests->as_table()) {
        list.push_back(one);
    } else if (const toml::array* arr = tests->as_array()) {
        for (size_t i = 0; i < arr->size(); ++i) {
            const toml::table* tb = arr->get(i)->as_table();
            if (!tb) fail(w.at("test") + " item " + std::to_string(i + 1) + " must be a table");
            list.push_back(tb);
        }
    } else {
        fail(w.at("test") + " must be [[test]] tables");
    }
    if (list.empty()) fail(w.at("test") + " holds no tests");
    std::set<std::string> names;
    for (size_t i = 0; i < list.size(); ++i) {
        LabTest t = parse_test(*list[i], static_cast<int>(i) + 1, f, pc, props, given, solver, host, lib);
        if (!names.insert(t.name).second)
            fail(path + ": test " + std::to_string(i + 1) + ": 'name' = '" + t.name + "' is used by an earlier test");
        f.tests.push_back(std::move(t));
    }
    return f;
}

TestFile load_test_file(const std::string& path, const ModelLibrary& lib) {
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) fail(path + ": no such test file");
    return parse_test_file(read_file(path, path), path, lib);
}

}  // namespace tervak::lab
