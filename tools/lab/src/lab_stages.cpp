// The stages of the built-in tests, in the host's sign (tension positive).
#include <algorithm>
#include <set>

#include "lab_file.hpp"
#include "lab_input.hpp"

namespace tervak::lab {

namespace {

StagePlan blank_stage(const std::string& name, int steps, bool undrained) {
    StagePlan s;
    s.name = name;
    s.steps = steps;
    s.undrained = undrained;
    for (auto& c : s.comp) c = ComponentPath{Control::Stress, true, 0.0};
    return s;
}

void fix_strain(StagePlan& s, int i) { s.comp[i] = ComponentPath{Control::Strain, true, 0.0}; }
void fix_shear(StagePlan& s) {
    for (int i = 3; i < 6; ++i) fix_strain(s, i);
}

void push(LabTest& test, StagePlan s, StageInfo info) {
    info.name = s.name;
    test.stages.push_back(std::move(s));
    test.info.push_back(std::move(info));
}

int component_index(std::string_view name) {
    for (int i = 0; i < 6; ++i)
        if (name == kComponentNames[i]) return i;
    return -1;
}

std::string check_name(const std::string& n, const Where& w, const toml::node* at) {
    if (n.empty()) fail(w.at("name", at) + " is empty");
    if (n.size() > 64) fail(w.at("name", at) + " = '" + printable(n) + "' is longer than 64 characters");
    for (char c : n)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.'))
            fail(w.at("name", at) + " = '" + printable(n) + "' may hold only letters, digits, '_', '-' and '.'");
    return n;
}

// Oedometric loading to a vertical total stress (lateral strains zero).
StagePlan oedometric(const std::string& name, int steps, bool undrained, double sigma_v) {
    StagePlan s = blank_stage(name, steps, undrained);
    s.comp[1] = ComponentPath{Control::Stress, false, -sigma_v};
    fix_strain(s, 0);
    fix_strain(s, 2);
    fix_shear(s);
    return s;
}

// A triaxial stage: the lateral stresses keep their value through one
// shared strain unknown; the axial component is set by the anchor.
// Until it is resolved at the start of the stage, a strain target counts
// from zero strain.
StagePlan triaxial(const std::string& name, int steps, bool undrained, Anchor an = Anchor::None, double target = 0) {
    StagePlan s = blank_stage(name, steps, undrained);
    fix_shear(s);
    s.ties.push_back({0, 2});
    if (an == Anchor::ShearStrain) s.comp[1] = ComponentPath{Control::Strain, false, -target};
    return s;
}

void isotropic_stages(const toml::table& t, const Where& w, LabTest& test, bool undrained) {
    auto pr = opt_numbers(t, "pressures", w);
    if (!pr || pr->empty()) fail(w.at("pressures") + " is missing (isotropic stresses to reach, in order)");
    int steps = bounded_int(t, "steps", w, 100);
    for (double p : *pr) {
        if (p < 0) fail(w.at("pressures", t.get("pressures")) + " must not hold negative values (compression positive)");
        StagePlan s = blank_stage("p" + num(p), steps, undrained);
        for (int i = 0; i < 3; ++i) s.comp[i] = ComponentPath{Control::Stress, false, -p};
        fix_shear(s);
        push(test, s, {"", test.stages.empty() ? "load" : "path"});
    }
}

// consolidation = { type = "k0" | "isotropic", stress = σ'v or p', steps }:
// drained, from the initial state, before shearing.
void consolidation_stage(const toml::table& t, const Where& w, LabTest& test) {
    const toml::table* c = opt_table(t, "consolidation", w);
    if (!c) return;
    Where wc = w.sub("consolidation", t.get("consolidation"));
    check_keys(*c, {"type", "stress", "steps"}, wc);
    std::string ty = lower(opt_string(*c, "type", wc).value_or("k0"));
    if (ty != "k0" && ty != "isotropic") fail(wc.at("type", c->get("type")) + " must be \"k0\" or \"isotropic\"");
    auto st = opt_number(*c, "stress", wc);
    if (!st || !(*st > 0)) fail(wc.at("stress", c->get("stress")) + " must be given and positive (σ'v for k0, p' for isotropic)");
    int steps = bounded_int(*c, "steps", wc, 100);
    double total = *st - test.pw0;  // host sign: pw0 is tension positive
    StagePlan s = ty == "k0" ? oedometric("consolidation", steps, false, total) : blank_stage("consolidation", steps, false);
    if (ty == "isotropic") {
        for (int i = 0; i < 3; ++i) s.comp[i] = ComponentPath{Control::Stress, false, -total};
        fix_shear(s);
    }
    push(test, s, {"", "consolidation"});
}

// Strain-amplitude cycles about the start of shearing, or q cycles about
// q_mean; a quarter cycle first, then down and up per cycle.
void triaxial_cycles(const toml::table& t, const Where& w, LabTest& test, bool undrained) {
    const toml::table* c = opt_table(t, "cyclic", w);
    if (!c) return;
    Where wc = w.sub("cyclic", t.get("cyclic"));
    check_keys(*c, {"strain_amplitude", "q_amplitude", "q_mean", "cycles", "steps_per_cycle"}, wc);
    auto ea = opt_number(*c, "strain_amplitude", wc);
    auto qa = opt_number(*c, "q_amplitude", wc);
    if (ea.has_value() == qa.has_value()) fail(wc.head() + ": give one of 'strain_amplitude' and 'q_amplitude'");
    double amp = ea ? *ea : *qa;
    if (!(amp > 0) || (ea && amp >= 0.5)) fail(wc.head() + ": the amplitude must be positive (a strain below 0.5)");
    double mean = ea ? 0.0 : opt_number(*c, "q_mean", wc).value_or(0.0);
    int cycles = bounded_int(*c, "cycles", wc, 10, 1, 10000);
    int spc = bounded_int(*c, "steps_per_cycle", wc, 40, 4, 100000);
    if (spc % 4 != 0) fail(wc.at("steps_per_cycle") + " must be a multiple of 4");
    Anchor an = ea ? Anchor::ShearStrain : Anchor::Deviator;
    auto stage = [&](const std::string& n, int steps, double target, int cycle) {
        push(test, triaxial(n, steps, undrained, an, target), {"", "cycle", amp, cycle, an, target});
    };
    stage("cyc_start", spc / 4, mean + amp, 0);
    for (int k = 1; k <= cycles; ++k) {
        stage("cyc" + std::to_string(k) + "_down", spc / 2, mean - amp, k);
        stage("cyc" + std::to_string(k) + "_up", spc / 2, mean + amp, k);
    }
}

// Shearing to `axial_strain`, unloaded to q = unload_to at each strain of
// unload_reload and reloaded to that strain before going on.
void triaxial_shear(const toml::table& t, const Where& w, LabTest& test, bool undrained, double sign) {
    double ea = 0.15;
    if (auto a = opt_number(t, "axial_strain", w)) ea = *a;
    else if (t.get("cyclic")) return;  // cyclic only
    if (!(ea > 0 && ea < 1)) fail(w.at("axial_strain", t.get("axial_strain")) + " must lie between 0 and 1 (a magnitude)");
    int steps = bounded_int(t, "steps", w, 300);
    std::vector<double> at = opt_numbers(t, "unload_reload", w).value_or(std::vector<double>{});
    double q_ur = opt_number(t, "unload_to", w).value_or(0.0);
    int ur_steps = bounded_int(t, "unload_steps", w, 50);
    double done = 0.0;
    for (std::size_t k = 0; k < at.size(); ++k) {
        if (!(at[k] > done && at[k] < ea))
            fail(w.at("unload_reload", t.get("unload_reload")) + " must rise and stay below 'axial_strain'");
        int n = std::max(1, static_cast<int>(steps * (at[k] - done) / ea + 0.5));
        std::string tag = std::to_string(k + 1);
        push(test, triaxial("shear" + tag, n, undrained, Anchor::ShearStrain, sign * at[k]), {"", "shear", 0, 0, Anchor::ShearStrain, sign * at[k]});
        push(test, triaxial("unload" + tag, ur_steps, undrained), {"", "unload", 0, 0, Anchor::Deviator, q_ur});
        push(test, triaxial("reload" + tag, ur_steps, undrained, Anchor::ShearStrain, sign * at[k]), {"", "reload", 0, 0, Anchor::ShearStrain, sign * at[k]});
        done = at[k];
    }
    int n = std::max(1, static_cast<int>(steps * (ea - done) / ea + 0.5));
    push(test, triaxial(at.empty() ? "shear" : "shear_end", n, undrained, Anchor::ShearStrain, sign * ea), {"", "shear", 0, 0, Anchor::ShearStrain, sign * ea});
}

void triaxial_stages(const toml::table& t, const Where& w, LabTest& test, bool undrained) {
    std::string dir = lower(opt_string(t, "direction", w).value_or("compression"));
    if (dir != "compression" && dir != "extension")
        fail(w.at("direction", t.get("direction")) + " must be \"compression\" or \"extension\"");
    consolidation_stage(t, w, test);
    triaxial_cycles(t, w, test, undrained);
    triaxial_shear(t, w, test, undrained, dir == "compression" ? 1.0 : -1.0);
}

void oedometer_stages(const toml::table& t, const Where& w, LabTest& test, bool undrained) {
    auto sv = opt_numbers(t, "vertical_stress", w);
    if (!sv || sv->empty()) fail(w.at("vertical_stress") + " is missing (vertical stresses to reach, in order)");
    int steps = bounded_int(t, "steps", w, 100);
    double prev = -test.sig0[1] - test.pw0;
    bool unloaded = false;
    for (double v : *sv) {
        if (v < 0) fail(w.at("vertical_stress", t.get("vertical_stress")) + " must not hold negative values (compression positive)");
        std::string role = v >= prev ? (unloaded ? "reload" : "load") : "unload";
        unloaded = unloaded || role == "unload";
        push(test, oedometric(role + num(v), steps, undrained, v), {"", role});
        prev = v;
    }
    const toml::table* c = opt_table(t, "cyclic", w);
    if (!c) return;
    Where wc = w.sub("cyclic", t.get("cyclic"));
    check_keys(*c, {"amplitude", "cycles", "steps"}, wc);
    double amp = positive(*c, "amplitude", wc, 0.0);
    if (!(amp > 0) || amp >= prev) fail(wc.at("amplitude") + " must be given, positive and below the last vertical stress");
    int cycles = bounded_int(*c, "cycles", wc, 5, 1, 10000);
    int cs = bounded_int(*c, "steps", wc, 20);
    for (int k = 1; k <= cycles; ++k) {
        push(test, oedometric("cyc" + std::to_string(k) + "_down", cs, undrained, prev - amp), {"", "cycle", amp, k});
        push(test, oedometric("cyc" + std::to_string(k) + "_up", cs, undrained, prev), {"", "cycle", amp, k});
    }
}

void simple_shear_stages(const toml::table& t, const Where& w, LabTest& test, bool undrained) {
    auto amps = opt_numbers(t, "amplitudes", w);
    if (!amps || amps->empty()) fail(w.at("amplitudes") + " is missing (single shear strain amplitudes)");
    for (double a : *amps)
        if (!(a > 0 && a < 1)) fail(w.at("amplitudes", t.get("amplitudes")) + " must hold shear strains between 0 and 1");
    int cycles = bounded_int(t, "cycles", w, 2, 1, 1000);
    int spc = bounded_int(t, "steps_per_cycle", w, 40, 4, 1000000);
    if (spc % 4 != 0) fail(w.at("steps_per_cycle") + " must be a multiple of 4");
    if (t.get("G0")) test.g0 = positive(t, "G0", w, 0.0);
    auto shear = [&](const std::string& name, int steps, double gamma) {
        StagePlan s = blank_stage(name, steps, undrained);
        fix_strain(s, 0);
        fix_strain(s, 2);
        fix_strain(s, 4);
        fix_strain(s, 5);
        s.comp[3] = ComponentPath{Control::Strain, false, -gamma};
        return s;
    };
    for (double a : *amps) {
        std::string tag = "g" + num(a);
        push(test, shear(tag + "_start", spc / 4, a), {"", "cycle", a, 0});
        for (int c = 1; c <= cycles; ++c) {
            std::string n = tag + "_c" + std::to_string(c);
            push(test, shear(n + "_down", spc / 2, -a), {"", "cycle", a, c});
            push(test, shear(n + "_up", spc / 2, a), {"", "cycle", a, c});
        }
    }
}

void stage_tie(const toml::table& t, const Where& w, StagePlan& s) {
    const toml::node* tie = t.get("tie");
    if (!tie) return;
    const toml::array* a = tie->as_array();
    if (!a) fail(w.at("tie", tie) + " must be a list of component names, e.g. [\"xx\", \"zz\"]");
    std::vector<int> group;
    for (std::size_t j = 0; j < a->size(); ++j) {
        auto sname = a->get(j)->value<std::string>();
        int i = sname ? component_index(*sname) : -1;
        if (i < 0) fail(w.at("tie", tie) + " item " + std::to_string(j + 1) + " is not a component name");
        if (s.comp[i].control != Control::Stress)
            fail(w.at("tie", tie) + ": component '" + *sname + "' is strain-controlled; only stress-controlled components can be tied");
        if (std::find(group.begin(), group.end(), i) != group.end())
            fail(w.at("tie", tie) + ": component '" + *sname + "' is listed twice");
        group.push_back(i);
    }
    if (group.size() < 2) fail(w.at("tie", tie) + " needs at least two components");
    s.ties.push_back(group);
}

// One general stage from its table.
StagePlan general_stage(const toml::table& t, const Where& w, int index, bool undrained_default) {
    check_keys(t, {"name", "steps", "drained", "strain", "dstrain", "stress", "dstress", "tie", "repeat", "group"}, w);
    std::string name = "stage" + std::to_string(index);
    if (auto n = opt_string(t, "name", w)) name = check_name(*n, w, t.get("name"));
    bool undrained = undrained_default;
    if (auto d = opt_bool(t, "drained", w)) undrained = !*d;
    StagePlan s = blank_stage(name, bounded_int(t, "steps", w, 100), undrained);
    std::array<std::string, 6> set_by{};
    const std::pair<const char*, ComponentPath> kinds[] = {{"strain", {Control::Strain, false, 0}},
                                                           {"dstrain", {Control::Strain, true, 0}},
                                                           {"stress", {Control::Stress, false, 0}},
                                                           {"dstress", {Control::Stress, true, 0}}};
    for (const auto& [key, path] : kinds) {
        const toml::table* tb = opt_table(t, key, w);
        if (!tb) continue;
        Where wk = w.sub(key, t.get(key));
        for (auto&& [k, v] : *tb) {
            int i = component_index(k.str());
            if (i < 0) fail(wk.at(k.str(), &v) + " is not a component (xx, yy, zz, xy, yz, zx)");
            if (!set_by[i].empty()) fail(wk.at(k.str(), &v) + " is already controlled by '" + set_by[i] + "' in this stage");
            set_by[i] = key;
            s.comp[i] = ComponentPath{path.control, path.relative, -as_number(v, wk.at(k.str(), &v))};
        }
    }
    stage_tie(t, w, s);
    return s;
}

// [[test.stage]] tables; `repeat = n` on a stage runs the last `group`
// stages up to it n times in all.
void general_stages(const toml::table& t, const Where& w, LabTest& test, bool undrained) {
    const toml::node* st = t.get("stage");
    if (!st) fail(w.at("stage") + " is missing ([[test.stage]] tables)");
    const toml::array* arr = st->as_array();
    if (!arr || arr->empty()) fail(w.at("stage", st) + " must be a list of tables ([[test.stage]])");
    std::set<std::string> names;
    for (std::size_t j = 0; j < arr->size(); ++j) {
        const toml::table* tb = arr->get(j)->as_table();
        if (!tb) fail(w.at("stage", arr->get(j)) + " item " + std::to_string(j + 1) + " must be a table");
        Where ws = w.sub("stage " + std::to_string(j + 1), tb);
        StagePlan s = general_stage(*tb, ws, static_cast<int>(j) + 1, undrained);
        if (!names.insert(s.name).second) fail(ws.at("name", tb->get("name")) + " = '" + s.name + "' is used twice");
        push(test, s, {"", "path"});
        int times = bounded_int(*tb, "repeat", ws, 1, 1, 10000);
        int group = bounded_int(*tb, "group", ws, 1, 1, static_cast<int>(names.size()));
        std::size_t first = test.stages.size() - static_cast<std::size_t>(group);
        for (int r = 2; r <= times; ++r)
            for (std::size_t k = first; k < first + static_cast<std::size_t>(group); ++k) {
                StagePlan c = test.stages[k];
                c.name += "_r" + std::to_string(r);
                push(test, c, {"", "path", 0.0, r});
            }
        if (test.stages.size() > 100000) fail(ws.at("repeat", tb->get("repeat")) + " makes more than 100000 stages");
    }
}

}  // namespace

std::string checked_name(const std::string& n, const Where& w, const toml::node* at) { return check_name(n, w, at); }

void build_stages(const toml::table& t, const Where& w, const TestFile&, LabTest& test, bool undrained) {
    switch (test.kind) {
        case TestKind::Isotropic: isotropic_stages(t, w, test, undrained); break;
        case TestKind::Triaxial: triaxial_stages(t, w, test, undrained); break;
        case TestKind::Oedometer: oedometer_stages(t, w, test, undrained); break;
        case TestKind::SimpleShear: simple_shear_stages(t, w, test, undrained); break;
        case TestKind::General: general_stages(t, w, test, undrained); break;
    }
}

}  // namespace tervak::lab
