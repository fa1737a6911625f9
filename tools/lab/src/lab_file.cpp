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

#include "lab_input.hpp"

namespace tervak::lab {

namespace fs = std::filesystem;

// A test or stage name: letters, digits, '_', '-', '.' (lab_stages.cpp).
std::string checked_name(const std::string& n, const Where& w, const toml::node* at);

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
// Parameters: names, units and valid ranges come from the library.

namespace {

struct ParamContext {
    int model = 0;
    const ModelLibrary* lib = nullptr;
    std::vector<FieldInfo> meta;
};

std::string param_label(const ParamContext& pc, int pos) {
    std::string name;
    if (pos >= 1 && static_cast<size_t>(pos) <= pc.meta.size()) name = pc.meta[pos - 1].name;
    return "parameter " + std::to_string(pos) + (name.empty() ? "" : " '" + name + "'");
}

std::vector<double> props_list(const toml::table& t, const Where& w) {
    auto v = opt_numbers(t, "props", w);
    if (v->empty()) fail(w.at("props", t.get("props")) + " is empty");
    if (v->size() > 50) fail(w.at("props", t.get("props")) + " has " + std::to_string(v->size()) + " values; at most 50");
    return *v;
}

int param_position(const ParamContext& pc, const std::string& key) {
    for (size_t i = 0; i < pc.meta.size(); ++i)
        if (pc.meta[i].name == key) return static_cast<int>(i) + 1;
    for (size_t i = 0; i < pc.meta.size(); ++i)
        if (lower(pc.meta[i].name) == lower(key)) return static_cast<int>(i) + 1;
    return -1;
}

// Applies a [parameters] table by name onto props; `given` marks the
// positions set so far.
void apply_named(const toml::table& params, const ParamContext& pc, const Where& w,
                 std::vector<double>& props, std::vector<bool>& given, Diagnostics& d) {
    if (pc.meta.empty())
        fail(w.head() + ": parameters by name need a library that describes its parameters; '" +
             pc.lib->path() + "' does not, so give a 'props' list");
    for (auto&& kv : params) {
        d.run([&, &k = kv.first, &v = kv.second] {
            std::string key(k.str());
            int pos = param_position(pc, key);
            if (pos < 0) {
                std::string list;
                for (const auto& f : pc.meta) list += (list.empty() ? "" : ", ") + f.name;
                fail(w.at(key, &v) + " is not a parameter of model " + std::to_string(pc.model) + " (" + list + ")");
            }
            double x = as_number(v, w.at(key, &v));
            if (props.size() < static_cast<size_t>(pos)) {
                props.resize(pos, 0.0);
                given.resize(pos, false);
            }
            props[pos - 1] = x;
            given[pos - 1] = true;
        });
    }
}

void check_props(const std::vector<double>& props, const std::vector<bool>& given, const ParamContext& pc,
                 const Where& w, Diagnostics& d) {
    if (props.empty()) fail(w.head() + ": no parameters (give 'soil', 'props' or [parameters])");
    if (!pc.meta.empty()) {
        std::string missing;
        for (size_t i = 0; i < pc.meta.size(); ++i)
            if (i >= given.size() || !given[i]) missing += (missing.empty() ? "" : ", ") + pc.meta[i].name;
        if (!missing.empty())
            d.add(w.head() + ": " + std::to_string(props.size()) + " parameter value(s) given; model " +
                  std::to_string(pc.model) + " reads " + std::to_string(pc.meta.size()) + ", missing: " + missing);
        if (props.size() > pc.meta.size())
            d.add(w.head() + ": " + std::to_string(props.size()) + " parameter values given but model " +
                  std::to_string(pc.model) + " has " + std::to_string(pc.meta.size()));
    }
    for (size_t i = 0; i < props.size(); ++i) {
        const ValidRange r = i < pc.meta.size() ? pc.meta[i].range : ValidRange{};
        if (!r.contains(props[i]))
            d.add(w.head() + ": " + param_label(pc, static_cast<int>(i) + 1) + " = " + num(props[i]) +
                  " is outside its valid range " + r.text());
    }
}

double named_value(const LabTest& t, const std::vector<std::string>& names, const char* name) {
    for (size_t i = 0; i < names.size() && i < t.props.size(); ++i)
        if (names[i] == name) return t.props[i];
    return std::numeric_limits<double>::quiet_NaN();
}

// The reference pressure of the summaries: the model's own (a parameter
// named p_ref), else 100 kPa in the file's units.
double default_reference_pressure(const TestFile& f, const LabTest& t) {
    double p = named_value(t, f.param_names, "p_ref");
    if (p > 0) return p;
    std::string u = lower(f.units);
    if (u == "kpa" || u == "kn/m2" || u == "kn/m^2") return 100.0;
    if (u == "pa" || u == "n/m2" || u == "n/m^2") return 1.0e5;
    if (u == "mpa") return 0.1;
    return std::numeric_limits<double>::quiet_NaN();
}

const std::set<std::string>& lab_columns() {
    static const std::set<std::string> cols = {
        "eps_xx", "eps_yy", "eps_zz", "gam_xy", "gam_yz", "gam_zx", "sig_xx", "sig_yy", "sig_zz",
        "sig_xy", "sig_yz", "sig_zx", "tsig_xx", "tsig_yy", "tsig_zz", "u", "p", "q", "eps_v", "eps_q", "e"};
    return cols;
}

void measured_pairs(const toml::table* c, const Where& w, bool names, LabTest& test) {
    if (!c) return;
    for (auto&& [k, v] : *c) {
        std::string key(k.str());
        if (!lab_columns().count(key)) fail(w.at(key, &v) + " is not a result column of the lab");
        if (!names) {
            test.measured.scale.emplace_back(key, as_number(v, w.at(key, &v)));
            continue;
        }
        auto s = v.value<std::string>();
        if (!s) fail(w.at(key, &v) + " must be the name of a column of the measured file");
        test.measured.columns.emplace_back(key, *s);
    }
}

// [measured]: the file is read and checked now, not when plotting.
void parse_measured(const toml::table& t, const Where& w, const std::string& file_path, LabTest& test,
                    Diagnostics& d) {
    const toml::table* m = opt_table(t, "measured", w);
    if (!m) return;
    Where wm = w.sub("[measured]", t.get("measured"));
    check_keys(*m, {"file", "columns", "scale"}, wm);
    auto f = opt_string(*m, "file", wm);
    if (!f) fail(wm.at("file") + " is missing");
    test.measured.file = resolve_path(*f, file_path);
    measured_pairs(opt_table(*m, "columns", wm), wm.sub("columns"), true, test);
    measured_pairs(opt_table(*m, "scale", wm), wm.sub("scale"), false, test);
    std::vector<std::string> needed;
    for (const auto& [lab, col] : test.measured.columns) needed.push_back(col);
    check_measured_csv(test.measured.file, needed, wm.at("file", m->get("file")), d);
    test.has_measured = true;
}

void parse_solver(const toml::table* t, const Where& w, SolverOptions& s) {
    if (!t) return;
    Where ws = w.sub("[solver]", t);
    check_keys(*t, {"tolerance", "max_iterations", "max_cuts", "accelerate", "trace"}, ws);
    if (auto v = opt_number(*t, "tolerance", ws)) {
        if (!(*v > 0 && *v < 1)) fail(ws.at("tolerance", t->get("tolerance")) + " must lie between 0 and 1 (relative)");
        s.tolerance = *v;
    }
    s.max_iterations = bounded_int(*t, "max_iterations", ws, s.max_iterations, 1, 100000);
    s.max_cuts = bounded_int(*t, "max_cuts", ws, s.max_cuts, 0, 40);
    if (auto v = opt_bool(*t, "accelerate", ws)) s.accelerate = *v;
    if (auto v = opt_bool(*t, "trace", ws)) s.trace = *v;
}

void parse_host(const toml::table* t, const Where& w, HostOptions& h) {
    if (!t) return;
    Where wh = w.sub("[host]", t);
    check_keys(*t, {"element", "point", "stiffness_task"}, wh);
    h.element = bounded_int(*t, "element", wh, h.element, 0, 2000000000);
    h.point = bounded_int(*t, "point", wh, h.point, 0, 2000000000);
    h.stiffness_task = bounded_int(*t, "stiffness_task", wh, h.stiffness_task, 3, 6);
    if (h.stiffness_task != 3 && h.stiffness_task != 6)
        fail(wh.at("stiffness_task", t->get("stiffness_task")) + " must be 3 (material stiffness) or 6 (elastic stiffness)");
}

void parse_initial(const toml::table& t, const Where& w, LabTest& test) {
    auto p0 = opt_number(t, "p0", w);
    auto sv0 = opt_number(t, "sigma_v0", w);
    auto k0 = opt_number(t, "k0", w);
    const toml::table* init = opt_table(t, "initial", w);
    int ways = (p0 ? 1 : 0) + (sv0 ? 1 : 0) + (init ? 1 : 0);
    if (ways > 1) fail(w.head() + ": give the initial state once: 'p0', 'sigma_v0' with 'k0', or [initial]");
    if (ways == 0) fail(w.head() + ": the initial state is missing: give 'p0', 'sigma_v0' with 'k0', or [initial] stress");
    if (k0 && !sv0) fail(w.at("k0", t.get("k0")) + " needs 'sigma_v0'");
    test.sig0.fill(0.0);
    test.pw0 = 0.0;
    if (p0) {
        if (*p0 < 0) fail(w.at("p0", t.get("p0")) + " must not be negative (compression positive)");
        for (int i = 0; i < 3; ++i) test.sig0[i] = -*p0;
    } else if (sv0) {
        if (*sv0 < 0) fail(w.at("sigma_v0", t.get("sigma_v0")) + " must not be negative (compression positive)");
        if (!k0) fail(w.at("k0") + " is missing (lateral to vertical effective stress ratio)");
        if (*k0 < 0) fail(w.at("k0", t.get("k0")) + " must not be negative");
        test.sig0 = {-*k0 * *sv0, -*sv0, -*k0 * *sv0, 0, 0, 0};
    } else {
        Where wi = w.sub("[initial]", t.get("initial"));
        check_keys(*init, {"stress", "pore_pressure", "state_variables"}, wi);
        const toml::table* st = opt_table(*init, "stress", wi);
        if (!st) fail(wi.at("stress") + " is missing (effective stresses, compression positive)");
        Where ws = wi.sub("stress", init->get("stress"));
        check_keys(*st, {"xx", "yy", "zz", "xy", "yz", "zx"}, ws);
        for (int i = 0; i < 6; ++i)
            if (auto v = opt_number(*st, kComponentNames[i], ws)) test.sig0[i] = -*v;
        if (auto u = opt_number(*init, "pore_pressure", wi)) test.pw0 = -*u;
        if (auto sv = opt_numbers(*init, "state_variables", wi)) test.sv0 = *sv;
    }
}

TestKind parse_kind(const toml::table& t, const Where& w) {
    auto type = opt_string(t, "type", w);
    if (!type) fail(w.at("type") + " is missing (isotropic, triaxial, oedometer, simple_shear, general)");
    std::string ty = lower(*type);
    if (ty == "isotropic") return TestKind::Isotropic;
    if (ty == "triaxial") return TestKind::Triaxial;
    if (ty == "oedometer") return TestKind::Oedometer;
    if (ty == "simple_shear" || ty == "dss" || ty == "cyclic_simple_shear") return TestKind::SimpleShear;
    if (ty == "general") return TestKind::General;
    fail(w.at("type", t.get("type")) + " = '" + printable(*type) +
         "' is not a test type (isotropic, triaxial, oedometer, simple_shear, general)");
}

void check_test_keys(const toml::table& t, const Where& w, TestKind kind, Diagnostics& d) {
    std::vector<std::string_view> keys = {"name", "type", "drained", "parameters", "solver", "host",
                                          "measured", "initial", "p0", "sigma_v0", "k0", "e0"};
    switch (kind) {
        case TestKind::Isotropic: keys.insert(keys.end(), {"pressures", "steps"}); break;
        case TestKind::Triaxial:
            keys.insert(keys.end(), {"direction", "axial_strain", "steps", "secant_at", "consolidation",
                                     "unload_reload", "unload_to", "unload_steps", "cyclic"});
            break;
        case TestKind::Oedometer: keys.insert(keys.end(), {"vertical_stress", "steps", "reference_pressure", "cyclic"}); break;
        case TestKind::SimpleShear: keys.insert(keys.end(), {"amplitudes", "cycles", "steps_per_cycle", "G0"}); break;
        case TestKind::General: keys.insert(keys.end(), {"stage", "secant_at"}); break;
    }
    for (auto&& [k, v] : t) {
        if (std::find(keys.begin(), keys.end(), k.str()) != keys.end()) continue;
        std::string list;
        for (auto a : keys) list += (list.empty() ? "" : ", ") + std::string(a);
        d.add(w.at(k.str(), &v) + " is not a key of a " + kind_name(kind) + " test (known: " + list + ")");
    }
}

// What every test has: parameters, solver and host settings, measured
// data, the initial state, e0 and the secant strains.
struct FileDefaults {
    const ParamContext* pc;
    std::vector<double> props;
    std::vector<bool> given;
    SolverOptions solver;
    HostOptions host;
};

void parse_common(const toml::table& t, const Where& w, const TestFile& file, const FileDefaults& fd,
                  LabTest& test, Diagnostics& d) {
    test.model = fd.pc->model;
    test.props = fd.props;
    std::vector<bool> given = fd.given;
    d.run([&] {
        if (const toml::table* p = opt_table(t, "parameters", w))
            apply_named(*p, *fd.pc, w.sub("[parameters]", t.get("parameters")), test.props, given, d);
        check_props(test.props, given, *fd.pc, w, d);
    });
    test.solver = fd.solver;
    test.host = fd.host;
    d.run([&] { parse_solver(opt_table(t, "solver", w), w, test.solver); });
    d.run([&] { parse_host(opt_table(t, "host", w), w, test.host); });
    d.run([&] { parse_measured(t, w, file.path, test, d); });
    d.run([&] { parse_initial(t, w, test); });
    if (test.sv0.size() > file.statevar_names.size() && !file.statevar_names.empty())
        d.add(w.sub("[initial]").at("state_variables") + " has " + std::to_string(test.sv0.size()) +
              " values; the model has " + std::to_string(file.statevar_names.size()));
    d.run([&] {
        if (auto e = opt_number(t, "e0", w)) {
            if (!(*e > 0 && *e < 20)) fail(w.at("e0", t.get("e0")) + " must lie between 0 and 20 (a void ratio)");
            test.e0 = *e;
        }
    });
    d.run([&] {
        if (auto s = opt_numbers(t, "secant_at", w)) {
            for (double x : *s)
                if (!(x > 0)) fail(w.at("secant_at", t.get("secant_at")) + " must hold positive shear strains");
            test.secant_at = *s;
        }
    });
}

LabTest parse_test(const toml::table& t, int index, const TestFile& file, const FileDefaults& fd, Diagnostics& d) {
    LabTest test;
    Where w0{file.path, "test " + std::to_string(index), line_of(&t)};
    test.kind = parse_kind(t, w0);
    test.name = std::string(kind_name(test.kind)) + std::to_string(index);
    if (auto n = opt_string(t, "name", w0)) test.name = checked_name(*n, w0, t.get("name"));
    Where w{file.path, "test '" + test.name + "'", line_of(&t)};
    check_test_keys(t, w, test.kind, d);
    parse_common(t, w, file, fd, test, d);
    bool undrained = !opt_bool(t, "drained", w).value_or(true);
    d.run([&] { build_stages(t, w, file, test, undrained); });
    d.run([&] {
        if (auto r = opt_number(t, "reference_pressure", w)) {
            if (!(*r > 0)) fail(w.at("reference_pressure", t.get("reference_pressure")) + " must be positive");
            test.reference_pressure = *r;
        } else {
            test.reference_pressure = default_reference_pressure(file, test);
        }
    });
    return test;
}

// ---------------------------------------------------------------------------
// The file: the soil, the file-level settings, then every test.

struct SoilPart {
    std::optional<long long> model;
    std::vector<double> props;
    std::vector<bool> given;
    toml::table root;
    const toml::table* params = nullptr;
    std::string path;
};

void read_soil(const toml::table& root, const Where& w, TestFile& f, SoilPart& soil) {
    auto s = opt_string(root, "soil", w);
    if (!s) return;
    soil.path = resolve_path(*s, f.path);
    f.soil_path = soil.path;
    soil.root = parse_toml(read_limited(soil.path, w.at("soil", root.get("soil")), kMaxTomlBytes), soil.path);
    Where ws{soil.path, "", 0};
    check_keys(soil.root, {"title", "model", "units", "props", "parameters", "description", "notes", "source"}, ws);
    f.soil_title = opt_string(soil.root, "title", ws).value_or(fs::path(soil.path).stem().string());
    soil.model = opt_int(soil.root, "model", ws);
    if (!soil.model) fail(ws.at("model") + " is missing");
    f.units = opt_string(soil.root, "units", ws).value_or("");
    if (soil.root.get("props")) {
        soil.props = props_list(soil.root, ws);
        soil.given.assign(soil.props.size(), true);
    }
    soil.params = opt_table(soil.root, "parameters", ws);
    if (!soil.root.get("props") && !soil.params) fail(ws.head() + ": the soil has neither 'props' nor [parameters]");
}

void resolve_model(const toml::table& root, const Where& w, const ModelLibrary& lib, const SoilPart& soil, TestFile& f) {
    auto model = opt_int(root, "model", w);
    if (model && soil.model && *model != *soil.model)
        fail(w.at("model", root.get("model")) + " = " + std::to_string(*model) + " differs from the soil file's model " +
             std::to_string(*soil.model));
    if (!model) model = soil.model;
    if (!model) fail(w.at("model") + " is missing (or give 'soil')");
    if (*model < 0 || *model > 1000000) fail(w.at("model", root.get("model")) + " = " + std::to_string(*model) + " is not a model number");
    f.model = static_cast<int>(*model);
    try {
        check_model_number(lib, f.model);
    } catch (const LabError& e) {
        fail(w.at("model", root.get("model")) + ": " + e.what());
    }
    if (auto u = opt_string(root, "units", w)) f.units = *u;
    if (f.units.empty()) f.units = "kPa";
}

void file_parameters(const toml::table& root, const Where& w, SoilPart& soil, FileDefaults& fd, Diagnostics& d) {
    fd.props = soil.props;
    fd.given = soil.given;
    const toml::table* soil_params = soil.params;
    if (root.get("props")) {
        fd.props = props_list(root, w);
        fd.given.assign(fd.props.size(), true);
        soil_params = nullptr;
    }
    if (soil_params) apply_named(*soil_params, *fd.pc, Where{soil.path, "", 0}.sub("[parameters]", soil_params), fd.props, fd.given, d);
    if (const toml::table* p = opt_table(root, "parameters", w))
        apply_named(*p, *fd.pc, w.sub("[parameters]", p), fd.props, fd.given, d);
}

std::vector<const toml::table*> test_tables(const toml::table& root, const Where& w) {
    const toml::node* tests = root.get("test");
    if (!tests) fail(w.at("test") + " is missing (one [[test]] table per test)");
    std::vector<const toml::table*> list;
    if (const toml::table* one = tests->as_table()) return {one};
    const toml::array* arr = tests->as_array();
    if (!arr) fail(w.at("test", tests) + " must be [[test]] tables");
    for (size_t i = 0; i < arr->size(); ++i) {
        const toml::table* tb = arr->get(i)->as_table();
        if (!tb) fail(w.at("test", arr->get(i)) + " item " + std::to_string(i + 1) + " must be a table");
        list.push_back(tb);
    }
    if (list.empty()) fail(w.at("test", tests) + " holds no tests");
    return list;
}

}  // namespace

TestFile parse_test_file(const std::string& text, const std::string& path, const ModelLibrary& lib) {
    TestFile f;
    f.path = path;
    f.stem = fs::path(path).stem().string();
    toml::table root = parse_toml(text, path);
    Where w{path, "", 0};
    Diagnostics d;
    check_keys(root, {"title", "soil", "model", "units", "props", "parameters", "solver", "host", "test"}, w, &d);
    d.run([&] { f.title = opt_string(root, "title", w).value_or(f.stem); });
    SoilPart soil;
    if (!d.run([&] { read_soil(root, w, f, soil); }) || !d.run([&] { resolve_model(root, w, lib, soil, f); }))
        d.throw_if_any();
    ParamContext pc{f.model, &lib, lib.parameters(f.model)};
    FileDefaults fd{&pc, {}, {}, {}, {}};
    d.run([&] { file_parameters(root, w, soil, fd, d); });
    for (size_t i = 0; i < std::max(pc.meta.size(), fd.props.size()); ++i)
        f.param_names.push_back(i < pc.meta.size() ? pc.meta[i].name : "");
    for (const auto& sv : lib.state_variables(f.model)) f.statevar_names.push_back(sv.name);
    d.run([&] { parse_solver(opt_table(root, "solver", w), w, fd.solver); });
    d.run([&] { parse_host(opt_table(root, "host", w), w, fd.host); });
    std::vector<const toml::table*> list;
    d.run([&] { list = test_tables(root, w); });
    std::set<std::string> names;
    for (size_t i = 0; i < list.size(); ++i) {
        d.run([&] {
            LabTest t = parse_test(*list[i], static_cast<int>(i) + 1, f, fd, d);
            if (!names.insert(t.name).second)
                fail(Where{path, "test " + std::to_string(i + 1), line_of(list[i])}.head() + ": 'name' = '" + t.name +
                     "' is used by an earlier test");
            f.tests.push_back(std::move(t));
        });
    }
    d.throw_if_any();
    return f;
}

TestFile load_test_file(const std::string& path, const ModelLibrary& lib) {
    return parse_test_file(read_limited(path, "test file", kMaxTomlBytes), path, lib);
}

}  // namespace tervak::lab
