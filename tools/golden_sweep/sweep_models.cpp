// user_mod_ and the model routines: every task of every model, strain paths
// of many steps with the state carried from step to step, traced points,
// undrained points, and the bundled soils' calibration.
#include <cstring>

#include "library.hpp"
#include "sections.hpp"
#include "sweep_support.hpp"

namespace sweep {

namespace {

// The host's arrays of one stress point.
struct Point {
    i32 IDTask = 0, iModel = 1, IsUndr = 0, iStep = 1, iTer = 1, iEl = 1, Int = 1;
    double Time0 = 0.0;
    double Props[25] = {};
    double Sig0[6] = {}, Pw0 = 0.0, StVar0[62] = {}, dEps[6] = {}, D[36] = {}, BulkW = 0.0;
    double Sig[6] = {}, Pw = 0.0, StVar[62] = {};
    i32 iPlast = -3, nStat = -3, NonSym = -3, StrsDep = -3, TimeDep = -3, Tangent = -3;
    bool direct = false;  // through mymodelN_ instead of user_mod_
};

void call(Point& p, i32 task) {
    p.IDTask = task;
    before_call();
    if (p.direct && p.iModel >= 1 && p.iModel <= 4) {
        lib.mymodel[p.iModel - 1](&p.IDTask, &p.iModel, &p.IsUndr, &p.iStep, &p.iTer, &p.iEl,
                                  &p.Int, nullptr, nullptr, nullptr, &p.Time0, nullptr, p.Props,
                                  p.Sig0, &p.Pw0, p.StVar0, p.dEps, p.D, &p.BulkW, p.Sig, &p.Pw,
                                  p.StVar, &p.iPlast, &p.nStat, &p.NonSym, &p.StrsDep,
                                  &p.TimeDep, &p.Tangent, nullptr);
        return;
    }
    lib.user_mod(&p.IDTask, &p.iModel, &p.IsUndr, &p.iStep, &p.iTer, &p.iEl, &p.Int, nullptr,
                 nullptr, nullptr, &p.Time0, nullptr, p.Props, p.Sig0, &p.Pw0, p.StVar0, p.dEps,
                 p.D, &p.BulkW, p.Sig, &p.Pw, p.StVar, &p.iPlast, &p.nStat, &p.NonSym,
                 &p.StrsDep, &p.TimeDep, &p.Tangent, nullptr, nullptr, nullptr);
}

int state_count(int model) { return (model == 2 || model == 4) ? 62 : 2; }

void report(const char* tag, const Point& p, bool matrix) {
    const int n = state_count(p.iModel);
    Out o(tag);
    o.i(p.IDTask).v(p.Sig, 6).d(p.Pw).v(p.StVar, n).v(p.StVar0, n).i(p.iPlast).d(p.BulkW);
    if (matrix) o.v(p.D, 36);
    else o.s(std::to_string(fnv(p.D, 36)).c_str());
    o.end();
}

// Sets up a point of the given model: parameters, start stresses, trace.
Point start_point(Rng& r, int model) {
    Point p;
    p.iModel = model;
    model_props(r, model, p.Props);
    host_stress(r, p.Sig0);
    p.IsUndr = r.chance(0.2) ? 1 : 0;
    p.Pw0 = r.chance(0.5) ? 0.0 : r.range(-50.0, 0.0);
    p.Time0 = r.range(0.0, 100.0);
    p.direct = r.chance(0.1);
    const bool trace = r.chance(model == 1 ? 0.08 : 0.04);
    p.iEl = trace ? (model == 1 ? 487 : 11) : 1 + r.pick(600);
    p.Int = trace ? (model == 1 ? 3 : 4) : 1 + r.pick(12);
    if (r.chance(0.3)) {
        p.StVar0[0] = r.decades(-6.0, -2.0);
        p.StVar0[1] = -r.decades(0.0, 3.0);
    }
    for (double& x : p.Sig) x = 99.0;
    for (double& x : p.StVar) x = 77.0;
    return p;
}

// One strain step of a cyclic path: a fixed direction whose sign turns
// every few steps, with noise; sometimes no strain at all.
void next_strain(Rng& r, const double* dir, int step, int period, double amp, double* dEps) {
    const double sign = ((step / period) % 2 == 0) ? 1.0 : -1.0;
    for (int j = 0; j < 6; ++j) dEps[j] = sign * amp * dir[j] + amp * 0.1 * r.range(-1.0, 1.0);
    if (r.chance(0.04)) std::memset(dEps, 0, 6 * sizeof(double));
}

void path(long k, int model, int steps) {
    Rng r = case_rng(400 + static_cast<std::uint64_t>(model), static_cast<std::uint64_t>(k));
    Point p = start_point(r, model);
    Out("path").i(model).i(k).i(p.iEl).i(p.Int).i(p.IsUndr).end();
    call(p, 1);
    report("task1", p, false);
    double dir[6];
    strain_increment(r, dir);
    const double amp = r.decades(-6.0, -2.5);
    const int period = 1 + r.pick(6);
    for (int s = 0; s < steps; ++s) {
        p.iStep = s + 1;
        p.iTer = 1 + r.pick(3);
        call(p, r.chance(0.8) ? 6 : 3);
        report("stiff", p, true);
        if (r.chance(0.15)) strain_increment(r, p.dEps);
        else next_strain(r, dir, s, period, amp, p.dEps);
        call(p, 2);
        report("step", p, false);
        std::memcpy(p.Sig0, p.Sig, sizeof p.Sig);
        std::memcpy(p.StVar0, p.StVar, sizeof p.StVar);
        p.Pw0 = p.Pw;
    }
}

void path1(long k) { path(k, 1, 12); }
void path2(long k) { path(k, 2, 14); }
void path3(long k) { path(k, 3, 3); }
void path4(long k) { path(k, 4, 14); }

// Tasks 4 and 5, the attribute report, and model numbers that do not exist.
void attributes(long k) {
    Rng r = case_rng(450, static_cast<std::uint64_t>(k));
    Point p;
    const i32 models[] = {1, 2, 3, 4, 0, 5, -1};
    p.iModel = models[k % 7];
    const i32 pairs[][2] = {{1, 1}, {2, 0}, {0, 2}, {5, 5}};
    p.iEl = pairs[(k / 7) % 4][0];
    p.Int = pairs[(k / 7) % 4][1];
    p.direct = r.chance(0.3);
    const i32 tasks[] = {4, 5, 0, 8};
    const i32 task = tasks[(k / 28) % 4];
    Out("attributes").i(p.iModel).i(p.iEl).i(p.Int).i(task).end();
    call(p, task);
    Out("answer").i(p.nStat).i(p.NonSym).i(p.StrsDep).i(p.TimeDep).i(p.Tangent).end();
}

}  // namespace

void model_sections() {
    guarded("attributes", 112, attributes);
    guarded("model1", 3000, path1);
    guarded("model2", 1300, path2);
    guarded("model3", 500, path3);
    guarded("model4", 1300, path4);
}

void calibration_sections(const std::string& soilDir) {
    Out("section").s("calibration").end();
    for (const Soil& s : read_soils(soilDir)) {
        for (int model = 1; model <= 4; ++model) {
            if ((model == 1 || model == 3) != (s.model == 1 || s.model == 3)) continue;
            if (model == 3) continue;  // model 3 has no calibration; task 7 is tried below
            Point p;
            p.iModel = model;
            std::memcpy(p.Props, s.props.data(), s.props.size() * sizeof(double));
            for (int nudge = 0; nudge < 2; ++nudge) {
                // Nudged away from the calibrated values, the searches run.
                if (nudge == 1 && model == 1) {
                    p.Props[9] = s.props[9] * 0.98;
                    p.Props[12] = s.props[12] * 1.02;
                }
                Out("soil").s(s.name.c_str()).i(model).i(nudge).end();
                call(p, 7);
                Out("props").v(p.Props, 25).end();
            }
        }
    }
    for (const Soil& s : read_soils(soilDir)) {
        if (s.model != 1) continue;
        double P[25] = {};
        std::memcpy(P, s.props.data(), s.props.size() * sizeof(double));
        i32 option = 1;
        Out("iterative_hss").s(s.name.c_str()).end();
        before_call();
        lib.iterative_hss(P, &option);
        Out("props").v(P, 25).end();
        break;
    }
    Point p;
    p.iModel = 3;
    Out("soil").s("model3").end();
    call(p, 7);
    Out("props").v(p.Props, 25).end();
}

}  // namespace sweep
