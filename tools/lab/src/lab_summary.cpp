// Summary values of a test and of each of its stages, from the converged
// rows (soil-mechanics sign). docs/lab.md defines every value.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lab_run.hpp"

namespace tervak::lab {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kPi = 3.14159265358979323846;

using Items = std::vector<SummaryItem>;
void add(Items& out, const std::string& k, double v, const std::string& unit) {
    if (std::isfinite(v)) out.push_back({k, v, unit});
}

// The axial deviator σa − σr of a cylindrical sample (y is axial).
double qa(const ResultRow& x) { return x.sig[1] - 0.5 * (x.sig[0] + x.sig[2]); }

// Rows of a stretch: the row before its first row (its start) and its rows.
struct Span {
    std::vector<const ResultRow*> rows;  // rows.front() is the start
    bool empty() const { return rows.size() < 2; }
    const ResultRow& start() const { return *rows.front(); }
    const ResultRow& end() const { return *rows.back(); }
};

Span stage_span(const std::vector<ResultRow>& rows, int stage) {
    Span s;
    for (size_t i = 1; i < rows.size(); ++i)
        if (rows[i].stage == stage) {
            if (s.rows.empty()) s.rows.push_back(&rows[i - 1]);
            s.rows.push_back(&rows[i]);
        }
    return s;
}

// Rows from the end of the consolidation stages on.
Span shearing_span(const LabTest& test, const std::vector<ResultRow>& rows) {
    Span s;
    for (size_t i = 0; i < rows.size(); ++i) {
        int st = rows[i].stage;
        bool cons = st >= 1 && test.info[st - 1].role == "consolidation";
        if (st == 0 || cons) {
            s.rows.assign(1, &rows[i]);
            continue;
        }
        s.rows.push_back(&rows[i]);
    }
    return s;
}

// Axial strain where the deviator change from the start first reaches dq
// (linear interpolation); NaN when it never does.
double strain_at(const Span& s, double dq) {
    double q0 = qa(s.start()), e0 = s.start().eps[1];
    for (size_t i = 1; i < s.rows.size(); ++i) {
        double a = qa(*s.rows[i - 1]) - q0, b = qa(*s.rows[i]) - q0;
        if (std::fabs(b) < std::fabs(dq)) continue;
        double t = b == a ? 1.0 : (dq - a) / (b - a);
        return s.rows[i - 1]->eps[1] + t * (s.rows[i]->eps[1] - s.rows[i - 1]->eps[1]) - e0;
    }
    return kNaN;
}

size_t peak_index(const Span& s, bool compression) {
    size_t ip = 0;
    double q0 = qa(s.start());
    for (size_t i = 0; i < s.rows.size(); ++i) {
        double d = qa(*s.rows[i]) - q0, dp = qa(*s.rows[ip]) - q0;
        if (compression ? d > dp : d < dp) ip = i;
    }
    return ip;
}

// A stretch reaches failure when the deviator falls from its peak, or when
// over the last twentieth of its axial strain the tangent is below 1 % of
// the secant to half the peak.
bool reaches_failure(const Span& s, size_t ip, double e_half) {
    double q0 = qa(s.start()), dpk = qa(*s.rows[ip]) - q0, dend = qa(s.end()) - q0;
    if (std::fabs(dend) < 0.99 * std::fabs(dpk)) return true;
    double ea_end = s.end().eps[1], ea0 = s.start().eps[1];
    size_t k = s.rows.size() - 1;
    while (k > 0 && std::fabs(s.rows[k]->eps[1] - ea_end) < 0.05 * std::fabs(ea_end - ea0)) --k;
    double de = ea_end - s.rows[k]->eps[1];
    if (de == 0.0 || !std::isfinite(e_half)) return false;
    return std::fabs((qa(s.end()) - qa(*s.rows[k])) / de) < 0.01 * std::fabs(e_half);
}

// Peak, E50 (only when the stretch fails; otherwise E_sec50, the secant to
// half the largest deviator reached), s_u and pore pressures.
void shear_values(const Span& s, bool compression, bool undrained, const std::string& U, Items& out,
                  std::vector<std::string>* warnings) {
    if (s.empty()) return;
    size_t ip = peak_index(s, compression);
    const ResultRow& pk = *s.rows[ip];
    double half = 0.5 * (qa(pk) - qa(s.start()));
    double ea = strain_at(s, half);
    double e_half = ea != 0.0 ? half / ea : kNaN;
    add(out, "q_peak", qa(pk), U);
    add(out, "eps_a_peak", pk.eps[1] - s.start().eps[1], "-");
    add(out, "p_peak", pk.p(), U);
    if (reaches_failure(s, ip, e_half)) {
        add(out, "E50", e_half, U);
    } else {
        add(out, "E_sec50", e_half, U);
        if (warnings) warnings->push_back("E50 not reached (no failure); E_sec50 is the secant to half the largest deviator");
    }
    if (undrained) {
        add(out, "s_u", 0.5 * std::fabs(qa(pk)), U);
        add(out, "u_peak", pk.u - s.start().u, U);
        add(out, "u_end", s.end().u - s.start().u, U);
    } else {
        add(out, "eps_v_end", s.end().eps_v() - s.start().eps_v(), "-");
    }
}

// G_sec(γ) = Δq / (2γ) with γ = 1.5 εq counted from the start.
void secant_G(const LabTest& test, const Span& s, bool axial, const std::string& U, Items& out) {
    if (test.secant_at.empty() || s.empty()) return;
    std::vector<double> gam, dq;
    const ResultRow& st = s.start();
    auto q = [&](const ResultRow& x) { return axial ? qa(x) : x.q(); };
    for (const ResultRow* x : s.rows) {
        ResultRow d = *x;
        for (int i = 0; i < 6; ++i) d.eps[i] -= st.eps[i];
        gam.push_back(1.5 * d.eps_q());
        dq.push_back(std::fabs(q(*x) - q(st)));
    }
    for (double g : test.secant_at) {
        double v = kNaN;
        for (size_t i = 1; i < gam.size() && std::isnan(v); ++i)
            if ((gam[i - 1] <= g && g <= gam[i]) || (gam[i] <= g && g <= gam[i - 1]))
                v = gam[i] == gam[i - 1] ? dq[i] : dq[i - 1] + (dq[i] - dq[i - 1]) * (g - gam[i - 1]) / (gam[i] - gam[i - 1]);
        char key[64];
        std::snprintf(key, sizeof key, "G_sec(%.3g)", g);
        add(out, key, v / (2.0 * g), U);
    }
}

bool compression_test(const LabTest& test) {
    for (const auto& i : test.info)
        if (i.anchor == Anchor::ShearStrain && i.role == "shear") return i.target > 0;
    return true;
}

void triaxial_summary(const LabTest& test, TestResult& r) {
    Span s = shearing_span(test, r.rows);
    bool undrained = false;
    for (size_t k = 0; k < test.stages.size(); ++k)
        undrained = undrained || (test.info[k].role != "consolidation" && test.stages[k].undrained);
    shear_values(s, compression_test(test), undrained, r.units, r.summary, &r.warnings);
    secant_G(test, s, true, r.units, r.summary);
}

void oedometer_summary(const LabTest& test, TestResult& r) {
    const double pref = test.reference_pressure;
    double eoed = kNaN, eur = kNaN;
    const auto& rows = r.rows;
    for (size_t i = 1; i < rows.size() && std::isnan(eoed); ++i) {
        int st = rows[i].stage;
        if (st < 1 || test.info[st - 1].role != "load") continue;
        double a = rows[i - 1].sig[1], b = rows[i].sig[1], de = rows[i].eps[1] - rows[i - 1].eps[1];
        if (a <= pref && pref <= b && b > a && de != 0.0) eoed = (b - a) / de;
    }
    for (size_t k = 0; k < test.info.size() && std::isnan(eur); ++k) {
        if (test.info[k].role != "unload") continue;
        Span s = stage_span(rows, static_cast<int>(k) + 1);
        if (!s.empty() && s.end().eps[1] != s.start().eps[1])
            eur = (s.end().sig[1] - s.start().sig[1]) / (s.end().eps[1] - s.start().eps[1]);
    }
    add(r.summary, "p_ref", pref, r.units);
    add(r.summary, "Eoed_ref", eoed, r.units);
    add(r.summary, "Eur_oed", eur, r.units);
    double emax = 0;
    for (const auto& x : rows) emax = std::max(emax, x.eps[1]);
    add(r.summary, "eps_a_max", emax, "-");
}

void isotropic_summary(const LabTest& test, TestResult& r) {
    const auto& rows = r.rows;
    Span s1 = stage_span(rows, 1);
    if (!s1.empty() && s1.end().eps_v() != s1.start().eps_v())
        add(r.summary, "K_sec", (s1.end().p() - s1.start().p()) / (s1.end().eps_v() - s1.start().eps_v()), r.units);
    double emax = 0;
    for (const auto& x : rows) emax = std::max(emax, x.eps_v());
    add(r.summary, "eps_v_max", emax, "-");
    add(r.summary, "eps_v_end", rows.back().eps_v(), "-");
    if (test.stages.front().undrained) add(r.summary, "u_end", rows.back().u, r.units);
}

// One loop of a cyclic simple shear: the down and up stages of one cycle.
bool shear_loop(const std::vector<ResultRow>& rows, int sd, double a, double g0, CyclicPoint& c) {
    Span down = stage_span(rows, sd), up = stage_span(rows, sd + 1);
    if (down.empty() || up.empty()) return false;
    const ResultRow& bottom = down.end();
    const ResultRow& top = up.end();
    if (std::fabs(top.eps[3] - a) > 1e-9 * a + 1e-15) return false;  // the up stage did not finish
    std::vector<const ResultRow*> loop = down.rows;
    loop.insert(loop.end(), up.rows.begin() + 1, up.rows.end());
    double tmax = -HUGE_VAL, tmin = HUGE_VAL, w = 0.0;
    for (size_t i = 0; i < loop.size(); ++i) {
        tmax = std::max(tmax, loop[i]->sig[3]);
        tmin = std::min(tmin, loop[i]->sig[3]);
        if (i > 0) w += 0.5 * (loop[i]->sig[3] + loop[i - 1]->sig[3]) * (loop[i]->eps[3] - loop[i - 1]->eps[3]);
    }
    c.gamma = a;
    c.G = (top.sig[3] - bottom.sig[3]) / (top.eps[3] - bottom.eps[3]);
    c.G_ratio = c.G / g0;
    double ta = 0.5 * (tmax - tmin);
    c.damping = ta > 0 ? std::fabs(w) / (2.0 * kPi * ta * a) : kNaN;
    c.u = top.u;
    return true;
}

void simple_shear_summary(const LabTest& test, TestResult& r) {
    const auto& rows = r.rows;
    double g0 = test.g0;
    for (size_t i = 1; i < rows.size() && !std::isfinite(g0); ++i)
        if (rows[i].eps[3] != rows[i - 1].eps[3])
            g0 = (rows[i].sig[3] - rows[i - 1].sig[3]) / (rows[i].eps[3] - rows[i - 1].eps[3]);
    add(r.summary, "G0", g0, r.units);
    // Per amplitude: the loop of its last complete cycle.
    for (size_t k = 0; k + 1 < test.info.size(); ++k) {
        const StageInfo& down = test.info[k];
        bool is_down = down.cycle >= 1 && down.name.size() >= 5 && down.name.substr(down.name.size() - 5) == "_down";
        bool last = k + 2 >= test.info.size() || test.info[k + 2].cycle <= down.cycle;
        CyclicPoint c;
        if (is_down && last && shear_loop(rows, static_cast<int>(k) + 1, down.amplitude, g0, c)) r.cyclic.push_back(c);
    }
    for (const auto& c : r.cyclic) {
        char k1[64], k2[64];
        std::snprintf(k1, sizeof k1, "G/G0(%.3g)", c.gamma);
        std::snprintf(k2, sizeof k2, "D(%.3g)", c.gamma);
        add(r.summary, k1, c.G_ratio, "-");
        add(r.summary, k2, c.damping, "-");
    }
}

void general_summary(const LabTest& test, TestResult& r) {
    const auto& rows = r.rows;
    double qmax = 0;
    for (const auto& x : rows) qmax = std::max(qmax, x.q());
    add(r.summary, "q_max", qmax, r.units);
    add(r.summary, "p_end", rows.back().p(), r.units);
    add(r.summary, "q_end", rows.back().q(), r.units);
    add(r.summary, "eps_v_end", rows.back().eps_v(), "-");
    add(r.summary, "u_end", rows.back().u, r.units);
    Span all;
    for (const auto& x : rows) all.rows.push_back(&x);
    secant_G(test, all, false, r.units, r.summary);
}

// Values of one stage: its strain and stress changes, and what its role
// calls for.
Items stage_values(const LabTest& test, const TestResult& r, size_t k) {
    Items out;
    Span s = stage_span(r.rows, static_cast<int>(k) + 1);
    if (s.empty()) return out;
    const ResultRow &a = s.start(), &b = s.end();
    const std::string& U = r.units;
    const std::string& role = test.info[k].role;
    add(out, "deps_a", b.eps[1] - a.eps[1], "-");
    add(out, "deps_v", b.eps_v() - a.eps_v(), "-");
    add(out, "p_end", b.p(), U);
    add(out, "q_end", qa(b), U);
    if (test.stages[k].undrained) add(out, "du", b.u - a.u, U);
    if (std::isfinite(b.e)) add(out, "e_end", b.e, "-");
    if (role == "consolidation" && b.sig[1] != 0.0) add(out, "K_end", 0.5 * (b.sig[0] + b.sig[2]) / b.sig[1], "-");
    if (test.kind == TestKind::Triaxial && role == "shear")
        shear_values(s, test.info[k].target > 0, test.stages[k].undrained, U, out, nullptr);
    if (test.kind == TestKind::Triaxial && (role == "unload" || role == "reload") && b.eps[1] != a.eps[1])
        add(out, "E_ur", (qa(b) - qa(a)) / (b.eps[1] - a.eps[1]), U);
    return out;
}

}  // namespace

void summarize(const LabTest& test, TestResult& r) {
    r.summary.clear();
    r.cyclic.clear();
    r.stage_summary.clear();
    if (r.rows.empty()) return;
    switch (test.kind) {
        case TestKind::Triaxial: triaxial_summary(test, r); break;
        case TestKind::Oedometer: oedometer_summary(test, r); break;
        case TestKind::Isotropic: isotropic_summary(test, r); break;
        case TestKind::SimpleShear: simple_shear_summary(test, r); break;
        case TestKind::General: general_summary(test, r); break;
    }
    if (std::isfinite(r.rows.back().e)) add(r.summary, "e_end", r.rows.back().e, "-");
    for (size_t k = 0; k < test.stages.size(); ++k) r.stage_summary.push_back(stage_values(test, r, k));
}

StagePlan resolve_stage(const StagePlan& plan, const StageInfo& info, const PointState& st, const Vec6& shear_start) {
    StagePlan s = plan;
    if (info.anchor == Anchor::ShearStrain) {
        s.comp[1] = ComponentPath{Control::Strain, false, -(shear_start[1] + info.target)};
    } else if (info.anchor == Anchor::Deviator) {
        double lateral = 0.5 * (st.sig[0] + st.sig[2]) + st.pw;  // host sign, total
        s.comp[1] = ComponentPath{Control::Stress, false, lateral - info.target};
    }
    return s;
}

}  // namespace tervak::lab
