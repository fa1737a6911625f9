#include "point_driver.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>

namespace tervak::lab {

const char* const kComponentNames[6] = {"xx", "yy", "zz", "xy", "yz", "zx"};

namespace {

// Stresses are pre-filled with a marked NaN so that "the model wrote
// nothing" can be told from "the model wrote NaN".
constexpr std::uint64_t kUnwrittenBits = 0x7ff8000000a1ab5eULL;
double unwritten() {
    double x;
    std::memcpy(&x, &kUnwrittenBits, sizeof x);
    return x;
}
bool is_unwritten(double x) {
    std::uint64_t b;
    std::memcpy(&b, &x, sizeof b);
    return b == kUnwrittenBits;
}
constexpr size_t kMinProps = 50;  // hosts pass a fixed-length parameter array
constexpr int kStallIterations = 8;

bool is_normal(int i) { return i < 3; }

std::string fmt(const char* f, double x) {
    char buf[64];
    std::snprintf(buf, sizeof buf, f, x);
    return buf;
}

// Solves A x = b in place (n x n, row-major a[i*n+j]) by Gaussian
// elimination with partial pivoting; false when singular.
bool solve(std::vector<double> a, std::vector<double>& b, int n) {
    double scale = 0.0;
    for (double v : a) scale = std::max(scale, std::fabs(v));
    if (!(scale > 0.0) || !std::isfinite(scale)) return false;
    for (int k = 0; k < n; ++k) {
        int p = k;
        for (int i = k + 1; i < n; ++i)
            if (std::fabs(a[i * n + k]) > std::fabs(a[p * n + k])) p = i;
        if (std::fabs(a[p * n + k]) <= 1e-14 * scale) return false;
        if (p != k) {
            for (int j = 0; j < n; ++j) std::swap(a[k * n + j], a[p * n + j]);
            std::swap(b[k], b[p]);
        }
        for (int i = k + 1; i < n; ++i) {
            double f = a[i * n + k] / a[k * n + k];
            if (f == 0.0) continue;
            for (int j = k; j < n; ++j) a[i * n + j] -= f * a[k * n + j];
            b[i] -= f * b[k];
        }
    }
    for (int k = n - 1; k >= 0; --k) {
        double s = b[k];
        for (int j = k + 1; j < n; ++j) s -= a[k * n + j] * b[j];
        b[k] = s / a[k * n + k];
    }
    for (double v : b)
        if (!std::isfinite(v)) return false;
    return true;
}

}  // namespace

void check_model_number(const ModelLibrary& lib, int model) {
    int count = lib.model_count();
    if (count < 0 && lib.is_tervak()) count = 4;
    if (count >= 0 && (model < 1 || model > count)) {
        throw LabError("model = " + std::to_string(model) + " is not a model of '" + lib.path() +
                       "' (it has models 1 to " + std::to_string(count) + ")");
    }
}

PointDriver::PointDriver(const ModelLibrary& lib, int model, std::vector<double> props,
                         HostOptions host, SolverOptions solver)
    : fn_(lib.user_mod()), model_(model), props_(std::move(props)), host_(host),
      solver_(solver) {
    check_model_number(lib, model);
    if (props_.size() < kMinProps) props_.resize(kMinProps, 0.0);
    if (host_.stiffness_task != 3 && host_.stiffness_task != 6)
        throw LabError("stiffness_task must be 3 or 6, not " + std::to_string(host_.stiffness_task));
}

void PointDriver::call(int32_t task, int32_t undrained, int32_t step, int32_t iter,
                       const Vec6& deps, double* D, double& bulkw, Vec6& sig, double& pw,
                       std::vector<double>& sv, int32_t& iplast) {
    int32_t id = task, im = model_, iu = undrained, is = step, it = iter;
    int32_t iel = host_.element, ip = host_.point;
    int32_t nstat = attr_.nstat, nonsym = attr_.nonsym, strsdep = attr_.strsdep;
    int32_t timedep = attr_.timedep, tangent = attr_.tangent;
    double time0 = time_;
    // Host-owned arguments the library never dereferences.
    double arg8 = 0, arg9 = 0, arg10 = 0, arg12 = 0, arg29 = 0, arg30 = 0, arg31 = 0;
    Vec6 sig0 = state_.sig;
    double pw0 = state_.pw;
    std::vector<double> sv0 = state_.sv;
    Vec6 de = deps;
    if (sv0.empty()) sv0.push_back(0.0);
    if (sv.size() < sv0.size()) sv.resize(sv0.size(), 0.0);
    fn_(&id, &im, &iu, &is, &it, &iel, &ip, &arg8, &arg9, &arg10, &time0, &arg12, props_.data(),
        sig0.data(), &pw0, sv0.data(), de.data(), D, &bulkw, sig.data(), &pw, sv.data(), &iplast,
        &nstat, &nonsym, &strsdep, &timedep, &tangent, &arg29, &arg30, &arg31);
}

void PointDriver::stiffness(bool undrained, Mat6& D, double& bulkw) {
    D.fill(0.0);
    bulkw = 0.0;
    Vec6 sig{}, deps{};
    double pw = state_.pw;
    std::vector<double> sv = state_.sv;
    int32_t iplast = 0;
    call(host_.stiffness_task, undrained ? 1 : 0, static_cast<int32_t>(increments_ + 1), 0, deps,
         D.data(), bulkw, sig, pw, sv, iplast);
    bool any = false;
    for (double v : D) {
        if (!std::isfinite(v))
            throw LabError("model " + std::to_string(model_) + " returned a non-finite stiffness matrix (task " +
                           std::to_string(host_.stiffness_task) + ")");
        if (v != 0.0) any = true;
    }
    if (!any)
        throw LabError("model " + std::to_string(model_) + " returned no stiffness matrix (task " +
                       std::to_string(host_.stiffness_task) + " left D zero)");
    if (!std::isfinite(bulkw))
        throw LabError("model " + std::to_string(model_) + " returned a non-finite BulkW");
    if (!undrained) bulkw = 0.0;
}

void PointDriver::initialize(const Vec6& sig0, double pw0, const std::vector<double>& sv0) {
    for (int i = 0; i < 6; ++i)
        if (!std::isfinite(sig0[i]))
            throw LabError(std::string("initial stress component ") + kComponentNames[i] + " is not finite");
    if (!std::isfinite(pw0)) throw LabError("initial pore pressure is not finite");
    int32_t iplast = 0;
    state_.sig = sig0;
    state_.pw = pw0;
    state_.eps.fill(0.0);
    state_.sv.clear();
    read_attributes(sig0);
    if (sv0.size() > static_cast<size_t>(attr_.nstat))
        throw LabError("initial state variables: " + std::to_string(sv0.size()) + " values given but model " +
                       std::to_string(model_) + " has " + std::to_string(attr_.nstat));

    // Task 1 on the host's arrays: StVar0 pre-filled, StVar a copy.
    state_.sv.assign(std::max(attr_.nstat, 1), 0.0);
    std::copy(sv0.begin(), sv0.end(), state_.sv.begin());
    std::vector<double> before = state_.sv;
    std::vector<double> out = state_.sv;
    {
        int32_t id = 1, im = model_, iu = 0, is = 0, it = 0, iel = host_.element, ip = host_.point;
        int32_t nstat = attr_.nstat, nonsym = attr_.nonsym, strsdep = attr_.strsdep;
        int32_t timedep = attr_.timedep, tangent = attr_.tangent;
        double time0 = 0, a8 = 0, a9 = 0, a10 = 0, a12 = 0, a29 = 0, a30 = 0, a31 = 0;
        double p0 = pw0, p = pw0, bw = 0;
        Vec6 s0 = sig0, s = sig0, de{};
        Mat6 DD{};
        fn_(&id, &im, &iu, &is, &it, &iel, &ip, &a8, &a9, &a10, &time0, &a12, props_.data(),
            s0.data(), &p0, state_.sv.data(), de.data(), DD.data(), &bw, s.data(), &p, out.data(),
            &iplast, &nstat, &nonsym, &strsdep, &timedep, &tangent, &a29, &a30, &a31);
    }
    // Some models initialise StVar, some StVar0 in place: take what changed.
    for (size_t i = 0; i < out.size(); ++i)
        if (out[i] != before[i] || std::isnan(out[i]) != std::isnan(before[i])) state_.sv[i] = out[i];
    state_.sv.resize(attr_.nstat);
    for (size_t i = 0; i < state_.sv.size(); ++i)
        if (!std::isfinite(state_.sv[i]))
            throw LabError("model " + std::to_string(model_) + " initialised state variable " +
                           std::to_string(i + 1) + " to a non-finite value (task 1)");
    initialized_ = true;
    time_ = 0.0;
}

// Tasks 4 and 5, once: the number of state variables and the matrix
// attributes.
void PointDriver::read_attributes(const Vec6& sig0) {
    int32_t iplast = 0;
    {
        int32_t id = 4, im = model_, iu = 0, is = 0, it = 0, iel = host_.element, ip = host_.point;
        int32_t nstat = 0, nonsym = 0, strsdep = 0, timedep = 0, tangent = 0;
        double time0 = 0, a8 = 0, a9 = 0, a10 = 0, a12 = 0, a29 = 0, a30 = 0, a31 = 0, p0 = 0, p = 0, bw = 0;
        double sv0b[1] = {0}, svb[1] = {0};
        Vec6 s0 = sig0, s{}, de{};
        Mat6 DD{};
        fn_(&id, &im, &iu, &is, &it, &iel, &ip, &a8, &a9, &a10, &time0, &a12, props_.data(),
            s0.data(), &p0, sv0b, de.data(), DD.data(), &bw, s.data(), &p, svb, &iplast, &nstat,
            &nonsym, &strsdep, &timedep, &tangent, &a29, &a30, &a31);
        if (nstat < 0 || nstat > 100000)
            throw LabError("model " + std::to_string(model_) + " asks for " + std::to_string(nstat) +
                           " state variables (task 4)");
        attr_.nstat = nstat;
        id = 5;
        fn_(&id, &im, &iu, &is, &it, &iel, &ip, &a8, &a9, &a10, &time0, &a12, props_.data(),
            s0.data(), &p0, sv0b, de.data(), DD.data(), &bw, s.data(), &p, svb, &iplast, &nstat,
            &nonsym, &strsdep, &timedep, &tangent, &a29, &a30, &a31);
        attr_.nonsym = nonsym;
        attr_.strsdep = strsdep;
        attr_.timedep = timedep;
        attr_.tangent = tangent;
    }
}

// The unknowns of an increment: one strain per group of stress-controlled
// components, driven until the group's out-of-balance stress vanishes.
struct Unknowns {
    const std::array<Control, 6>& ctl;
    const Vec6& target;
    const std::vector<std::vector<int>>& groups;
    int n() const { return static_cast<int>(groups.size()); }
};

namespace {

// Change of the total stress per unit strain: D, plus BulkW m mT when
// undrained (the total stress is controlled).
double tangent(const Mat6& D, double bulkw, bool undrained, int i, int j) {
    double a = D[i + 6 * j];
    if (undrained && is_normal(i) && is_normal(j)) a += bulkw;
    return a;
}

std::vector<double> group_jacobian(const Unknowns& u, const Mat6& D, double bulkw, bool undrained) {
    const int n = u.n();
    std::vector<double> J(n * n, 0.0);
    for (int g = 0; g < n; ++g)
        for (int h = 0; h < n; ++h)
            for (int i : u.groups[g])
                for (int j : u.groups[h]) J[g * n + h] += tangent(D, bulkw, undrained, i, j);
    return J;
}

// For a single unknown: the nearest strains seen on either side of the
// balance. Once the balance is bracketed, a Newton step that leaves the
// bracket or does not halve the out-of-balance stress is replaced by a
// regula falsi step, or by bisection when one side has moved twice in a
// row, so that a model whose answer has kinks still converges at the
// increment size asked for.
struct Bracket {
    double x[2] = {0, 0}, r[2] = {0, 0};
    bool set[2] = {false, false};
    int last = -1, streak = 0;
    void record(double xv, double rv) {
        int side = rv > 0 ? 0 : 1;
        streak = side == last ? streak + 1 : 1;
        last = side;
        x[side] = xv;
        r[side] = rv;
        set[side] = true;
    }
    bool valid() const { return set[0] && set[1] && r[0] != r[1]; }
    double width() const { return std::fabs(x[1] - x[0]); }
    double next() const { return streak >= 2 ? 0.5 * (x[0] + x[1]) : (x[0] * r[1] - x[1] * r[0]) / (r[1] - r[0]); }
    bool inside(double xv) const { return (xv - x[0]) * (xv - x[1]) < 0.0; }
};

struct Residual {
    std::vector<double> r;
    double worst = 0.0, norm = 0.0;
    int comp = -1;
};

Residual out_of_balance(const Unknowns& u, const Vec6& sig, double pw) {
    Residual res;
    res.r.assign(u.n(), 0.0);
    for (int g = 0; g < u.n(); ++g) {
        double s = 0.0;
        for (int i : u.groups[g]) s += u.target[i] - (sig[i] + (is_normal(i) ? pw : 0.0));
        res.r[g] = s;
        res.norm += s * s;
        double per = std::fabs(s) / static_cast<double>(u.groups[g].size());
        if (per > res.worst) res.worst = per, res.comp = u.groups[g].front();
    }
    return res;
}

// Secant (Broyden) correction of J from the last step dx and the change of
// the residual; back to J0 when the iteration diverges.
void broyden(std::vector<double>& J, const std::vector<double>& J0, const std::vector<double>& dx,
             const std::vector<double>& r_prev, const Residual& res) {
    const int n = static_cast<int>(dx.size());
    double ss = 0.0, prev = 0.0;
    for (int g = 0; g < n; ++g) ss += dx[g] * dx[g], prev += r_prev[g] * r_prev[g];
    if (res.norm > 4.0 * prev) {
        J = J0;
        return;
    }
    if (ss <= 0.0) return;
    for (int g = 0; g < n; ++g) {
        double y = r_prev[g] - res.r[g], Js = 0.0;
        for (int h = 0; h < n; ++h) Js += J[g * n + h] * dx[h];
        double c = (y - Js) / ss;
        for (int h = 0; h < n; ++h) J[g * n + h] += c * dx[h];
    }
}

std::string balance_text(const Residual& res, double tol) {
    return "out-of-balance stress " + fmt("%.4g", res.worst) + " on component " +
           (res.comp >= 0 ? kComponentNames[res.comp] : "?") + " (tolerance " + fmt("%.3g", tol) + ")";
}

}  // namespace

// Linear prediction of the unknown strains from the stiffness.
bool PointDriver::predict(const Unknowns& u, const std::vector<double>& J0, const Mat6& D, double bulkw,
                          bool undrained, Vec6& deps) const {
    for (int i = 0; i < 6; ++i) deps[i] = u.ctl[i] == Control::Strain ? u.target[i] - state_.eps[i] : 0.0;
    if (u.n() == 0) return true;
    std::vector<double> r(u.n(), 0.0);
    for (int g = 0; g < u.n(); ++g)
        for (int i : u.groups[g]) {
            double s = u.target[i] - (state_.sig[i] + (is_normal(i) ? state_.pw : 0.0));
            for (int j = 0; j < 6; ++j)
                if (u.ctl[j] == Control::Strain) s -= tangent(D, bulkw, undrained, i, j) * deps[j];
            r[g] += s;
        }
    if (!solve(J0, r, u.n())) return false;
    for (int g = 0; g < u.n(); ++g)
        for (int i : u.groups[g]) deps[i] = r[g];
    return true;
}

// One stress call (task 2) with the strain increment deps.
bool PointDriver::answer(const Vec6& deps, bool undrained, long step, int it, const Mat6& D, double bulkw,
                         Trial& t, std::string& why) {
    t.sig.fill(unwritten());
    t.pw = state_.pw;
    t.sv = state_.sv;
    t.sv.resize(std::max<size_t>(t.sv.size(), 1));
    int32_t iplast = 0;
    Mat6 Dcall = D;
    double bw = bulkw;
    call(2, undrained ? 1 : 0, static_cast<int32_t>(step), it, deps, Dcall.data(), bw, t.sig, t.pw, t.sv, iplast);
    ++stress_calls_;
    t.sv.resize(state_.sv.size());
    t.iplast = iplast;
    t.iterations = it;
    t.deps = deps;
    bool untouched = true, finite = std::isfinite(t.pw);
    for (double v : t.sig) untouched = untouched && is_unwritten(v), finite = finite && std::isfinite(v);
    if (untouched)
        throw LabError("model " + std::to_string(model_) + " does not answer the stress task (task 2 wrote no stresses)");
    for (double v : t.sv) finite = finite && std::isfinite(v);
    if (!finite) why = "the model returned non-finite stresses or state variables";
    return finite;
}

bool PointDriver::solve_increment(const std::array<Control, 6>& ctl, const Vec6& target,
                                  const std::vector<std::vector<int>>& groups, bool undrained,
                                  long step, Trial& out, std::string& why) {
    const Unknowns u{ctl, target, groups};
    const int n = u.n();
    Mat6 D{};
    double bulkw = 0.0;
    stiffness(undrained, D, bulkw);
    const std::vector<double> J0 = group_jacobian(u, D, bulkw, undrained);
    std::vector<double> J = J0, dx(n, 0.0), r_prev(n, 0.0);
    double scale = 1.0;
    for (int i = 0; i < 6; ++i) {
        scale = std::max(scale, std::fabs(state_.sig[i] + (is_normal(i) ? state_.pw : 0.0)));
        if (ctl[i] == Control::Stress) scale = std::max(scale, std::fabs(target[i]));
    }
    const double tol = solver_.tolerance * scale;
    Vec6 deps{};
    if (!predict(u, J0, D, bulkw, undrained, deps)) {
        why = "the stiffness matrix is singular for the stress-controlled components";
        return false;
    }
    Residual res;
    Bracket bracket;
    double best = HUGE_VAL, width = HUGE_VAL;
    int best_at = 0;
    for (int it = 1; it <= solver_.max_iterations; ++it) {
        if (it > 1) stiffness(undrained, D, bulkw);  // host order: stiffness, then stresses
        Trial t;
        if (!answer(deps, undrained, step, it, D, bulkw, t, why)) return false;
        res = out_of_balance(u, t.sig, t.pw);
        if (!std::isfinite(res.norm)) return why = "non-finite out-of-balance stresses", false;
        if (solver_.trace)
            std::fprintf(stderr, "step %ld iteration %d: out-of-balance %.6g on %s (tolerance %.3g)\n", step, it,
                         res.worst, res.comp >= 0 ? kComponentNames[res.comp] : "-", tol);
        if (res.worst <= tol) return out = std::move(t), true;
        if (n == 1) bracket.record(deps[groups[0].front()], res.r[0]);
        if (bracket.valid() && bracket.width() <= 1e-12 * std::max(std::fabs(bracket.x[0]), 1e-9)) {
            why = "no strain balances the stress: the model's answer jumps from " + fmt("%.4g", bracket.r[0]) +
                  " to " + fmt("%.4g", bracket.r[1]) + " out of balance across a strain interval of " +
                  fmt("%.3g", bracket.width());
            return false;
        }
        bool narrower = bracket.valid() && bracket.width() < 0.5 * width;
        if (narrower) width = bracket.width();
        if (res.worst < best || narrower) {
            best = std::min(best, res.worst), best_at = it;
        } else if (it - best_at >= kStallIterations) {
            why = "the iteration stalled (no progress in " + std::to_string(kStallIterations) + " iterations); " +
                  balance_text(res, tol);
            return false;
        }
        if (solver_.accelerate && it > 1) broyden(J, J0, dx, r_prev, res);
        std::vector<double> step_x = res.r;
        if (!solve(J, step_x, n) && !(J = J0, step_x = res.r, solve(J, step_x, n))) {
            why = "the stiffness matrix is singular for the stress-controlled components";
            return false;
        }
        if (n == 1 && bracket.valid()) {
            double x = deps[groups[0].front()];
            bool slow = it > 1 && std::fabs(res.r[0]) > 0.5 * std::fabs(r_prev[0]);
            if (!bracket.inside(x + step_x[0]) || slow) step_x[0] = bracket.next() - x;
        }
        dx = step_x;
        r_prev = res.r;
        for (int g = 0; g < n; ++g)
            for (int i : groups[g]) deps[i] += dx[g];
    }
    why = "no convergence within " + std::to_string(solver_.max_iterations) + " iterations; " + balance_text(res, tol);
    return false;
}

namespace {

// Controls, start and end values of a stage, and its unknowns: tied
// groups first, every other stress-controlled component alone.
struct StagePath {
    std::array<Control, 6> ctl{};
    Vec6 start{}, end{};
    std::vector<std::vector<int>> groups;
};

StagePath stage_path(const StagePlan& stage, const PointState& st, const std::string& label) {
    StagePath sp;
    for (int i = 0; i < 6; ++i) {
        const ComponentPath& c = stage.comp[i];
        sp.ctl[i] = c.control;
        if (!std::isfinite(c.value))
            throw LabError(label + ": value of component " + kComponentNames[i] + " is not finite");
        sp.start[i] = c.control == Control::Strain ? st.eps[i] : st.sig[i] + (is_normal(i) ? st.pw : 0.0);
        sp.end[i] = c.relative ? sp.start[i] + c.value : c.value;
    }
    std::array<bool, 6> used{};
    for (const auto& tie : stage.ties) {
        std::vector<int> g;
        for (int i : tie) {
            if (i < 0 || i > 5) throw LabError(label + ": tied component out of range");
            if (sp.ctl[i] != Control::Stress)
                throw LabError(label + ": tied component " + kComponentNames[i] + " must be stress-controlled");
            if (used[i]) throw LabError(label + ": component " + std::string(kComponentNames[i]) + " is tied twice");
            used[i] = true;
            g.push_back(i);
        }
        if (!g.empty()) sp.groups.push_back(g);
    }
    for (int i = 0; i < 6; ++i)
        if (sp.ctl[i] == Control::Stress && !used[i]) sp.groups.push_back({i});
    return sp;
}

}  // namespace

void PointDriver::commit(const Trial& t, const StagePlan& stage, int stage_number, int j, double lam, int cuts,
                         const Callback& cb) {
    for (int i = 0; i < 6; ++i) state_.eps[i] += t.deps[i];
    state_.sig = t.sig;
    state_.pw = t.pw;
    state_.sv = t.sv;
    ++increments_;
    time_ = (stage_number - 1) + lam;
    IncrementRecord rec;
    rec.stage = stage_number;
    rec.increment = j;
    rec.increments = stage.steps;
    rec.step = increments_;
    rec.fraction = lam;
    rec.iplast = t.iplast;
    rec.iterations = t.iterations;
    rec.cuts = cuts;
    rec.undrained = stage.undrained;
    if (cb) cb(rec, state_);
}

void PointDriver::run_stage(const StagePlan& stage, int stage_number, const Callback& cb) {
    if (!initialized_) throw LabError("the point is not initialised (task 1 not run)");
    const std::string label = "stage " + std::to_string(stage_number) +
                              (stage.name.empty() ? "" : " '" + stage.name + "'");
    if (stage.steps < 1) throw LabError(label + ": steps must be at least 1");
    const StagePath sp = stage_path(stage, state_, label);
    const int N = stage.steps;
    int j = 1;             // grid increment being worked on
    double lam = 0.0;      // fraction of the stage done
    int cuts = 0, good = 0;
    const double h0 = 1.0 / N;
    while (j <= N) {
        double goal = static_cast<double>(j) / N;
        double lam_try = lam + h0 / static_cast<double>(1L << cuts);
        if (lam_try >= goal - 1e-12 * h0) lam_try = goal;
        Vec6 target;
        for (int i = 0; i < 6; ++i) target[i] = sp.start[i] + lam_try * (sp.end[i] - sp.start[i]);
        if (j == N && lam_try == goal) target = sp.end;
        Trial t;
        std::string why;
        if (solve_increment(sp.ctl, target, sp.groups, stage.undrained, increments_ + 1, t, why)) {
            lam = lam_try;
            commit(t, stage, stage_number, j, lam, cuts, cb);
            if (lam == goal) ++j;
            if (cuts > 0 && ++good >= 2) --cuts, good = 0;
        } else {
            good = 0;
            if (++cuts > solver_.max_cuts)
                throw IncrementFailure(label + ", increment " + std::to_string(j) + " of " + std::to_string(N) + ": " +
                                           why + " after " + std::to_string(solver_.max_cuts) + " cuts of the increment",
                                       stage_number, j);
        }
    }
}

}  // namespace tervak::lab
