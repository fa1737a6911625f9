#include "lab_run.hpp"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <memory>

namespace tervak::lab {

namespace fs = std::filesystem;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kPi = 3.14159265358979323846;

struct FileCloser {
    void operator()(std::FILE* f) const {
        if (f) std::fclose(f);
    }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

std::string json_escape(const std::string& s) {
    std::string o;
    for (char c : s) {
        switch (c) {
            case '"': o += "\\\""; break;
            case '\\': o += "\\\\"; break;
            case '\n': o += "\\n"; break;
            case '\t': o += "\\t"; break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    char b[8];
                    std::snprintf(b, sizeof b, "\\u%04x", c);
                    o += b;
                } else {
                    o += c;
                }
        }
    }
    return o;
}

std::string jnum(double x) {
    if (!std::isfinite(x)) return "null";
    char b[40];
    std::snprintf(b, sizeof b, "%.10g", x);
    return b;
}

// State-variable columns: "sv_<name>" (the library's name) or "sv<index>".
std::string column_name(const std::string& raw, int index) {
    std::string s;
    for (char c : raw) s += (c == ',' || c == '"' || c == '\n' || c == ' ') ? '_' : c;
    return s.empty() ? "sv" + std::to_string(index) : "sv_" + s;
}

// Linear interpolation of y at x = x0 over a monotone stretch of rows.
double interpolate(const std::vector<double>& xs, const std::vector<double>& ys, double x0) {
    for (size_t i = 1; i < xs.size(); ++i) {
        double a = xs[i - 1], b = xs[i];
        if ((a <= x0 && x0 <= b) || (b <= x0 && x0 <= a)) {
            if (b == a) return ys[i];
            return ys[i - 1] + (ys[i] - ys[i - 1]) * (x0 - a) / (b - a);
        }
    }
    return kNaN;
}

}  // namespace

double ResultRow::q() const {
    double a = sig[0] - sig[1], b = sig[1] - sig[2], c = sig[2] - sig[0];
    return std::sqrt(0.5 * (a * a + b * b + c * c) + 3.0 * (sig[3] * sig[3] + sig[4] * sig[4] + sig[5] * sig[5]));
}

double ResultRow::eps_q() const {
    double m = eps_v() / 3.0;
    double d0 = eps[0] - m, d1 = eps[1] - m, d2 = eps[2] - m;
    double ee = d0 * d0 + d1 * d1 + d2 * d2 + 0.5 * (eps[3] * eps[3] + eps[4] * eps[4] + eps[5] * eps[5]);
    return std::sqrt(2.0 / 3.0 * ee);
}

void summarize(const LabTest& test, TestResult& r) {
    r.summary.clear();
    r.cyclic.clear();
    const auto& rows = r.rows;
    if (rows.empty()) return;
    const std::string& U = r.units;
    auto add = [&](const std::string& k, double v, const std::string& unit) {
        if (std::isfinite(v)) r.summary.push_back({k, v, unit});
    };
    auto secant_G = [&](const std::vector<const ResultRow*>& path, bool axial) {
        if (test.secant_at.empty() || path.size() < 2) return;
        std::vector<double> gam, dq;
        const ResultRow& s = *path.front();
        double q0 = axial ? s.sig[1] - 0.5 * (s.sig[0] + s.sig[2]) : s.q();
        for (const ResultRow* x : path) {
            // Shear strain gamma = 1.5 eps_q (= eps_a - eps_r in a triaxial test).
            ResultRow d = *x;
            for (int i = 0; i < 6; ++i) d.eps[i] -= s.eps[i];
            gam.push_back(1.5 * d.eps_q());
            double q = axial ? x->sig[1] - 0.5 * (x->sig[0] + x->sig[2]) : x->q();
            dq.push_back(std::fabs(q - q0));
        }
        for (double g : test.secant_at) {
            double q = interpolate(gam, dq, g);
            char key[64];
            std::snprintf(key, sizeof key, "G_sec(%.3g)", g);
            add(key, q / (2.0 * g), U);
        }
    };

    switch (test.kind) {
        case TestKind::Triaxial: {
            std::vector<const ResultRow*> path;
            for (const auto& x : rows) path.push_back(&x);
            const ResultRow& s = rows.front();
            auto qa = [](const ResultRow& x) { return x.sig[1] - 0.5 * (x.sig[0] + x.sig[2]); };
            double q0 = qa(s);
            bool comp = test.stages.front().comp[1].value < 0;  // host sign: compression negative
            size_t ip = 0;
            for (size_t i = 0; i < rows.size(); ++i) {
                double d = qa(rows[i]) - q0, dp = qa(rows[ip]) - q0;
                if (comp ? d > dp : d < dp) ip = i;
            }
            const ResultRow& pk = rows[ip];
            add("q_peak", qa(pk), U);
            add("eps_a_peak", pk.eps[1] - s.eps[1], "-");
            double half = 0.5 * (qa(pk) - q0);
            double e50 = kNaN;
            for (size_t i = 1; i <= ip; ++i) {
                double a = qa(rows[i - 1]) - q0, b = qa(rows[i]) - q0;
                if (std::fabs(b) >= std::fabs(half)) {
                    double t = (b == a) ? 1.0 : (half - a) / (b - a);
                    double ea = rows[i - 1].eps[1] + t * (rows[i].eps[1] - rows[i - 1].eps[1]) - s.eps[1];
                    if (ea != 0.0) e50 = half / ea;
                    break;
                }
            }
            add("E50", e50, U);
            add("p_peak", pk.p(), U);
            if (test.stages.front().undrained) {
                add("u_peak", pk.u - s.u, U);
                add("s_u", 0.5 * std::fabs(qa(pk) - q0), U);
                add("u_end", rows.back().u - s.u, U);
            } else {
                add("eps_v_end", rows.back().eps_v() - s.eps_v(), "-");
            }
            secant_G(path, true);
            break;
        }
        case TestKind::Oedometer: {
            const double pref = test.reference_pressure;
            double eoed = kNaN, eur = kNaN;
            // Tangent on the first loading branch at the reference pressure.
            for (size_t i = 1; i < rows.size(); ++i) {
                int st = rows[i].stage;
                if (st < 1 || test.info[st - 1].role != "load") continue;
                double a = rows[i - 1].sig[1], b = rows[i].sig[1];
                if (a <= pref && pref <= b && b > a) {
                    double de = rows[i].eps[1] - rows[i - 1].eps[1];
                    if (de != 0.0) eoed = (b - a) / de;
                    break;
                }
            }
            // Secant of the first unloading stage.
            for (size_t k = 0; k < test.info.size(); ++k) {
                if (test.info[k].role != "unload") continue;
                const ResultRow* first = nullptr;
                const ResultRow* last = nullptr;
                for (size_t i = 0; i < rows.size(); ++i)
                    if (rows[i].stage == static_cast<int>(k) + 1) {
                        if (!first && i > 0) first = &rows[i - 1];
                        last = &rows[i];
                    }
                if (first && last && last->eps[1] != first->eps[1])
                    eur = (last->sig[1] - first->sig[1]) / (last->eps[1] - first->eps[1]);
                break;
            }
            add("p_ref", pref, U);
            add("Eoed_ref", eoed, U);
            add("Eur_oed", eur, U);
            double emax = 0;
            for (const auto& x : rows) emax = std::max(emax, x.eps[1]);
            add("eps_a_max", emax, "-");
            break;
        }
        case TestKind::Isotropic: {
            const ResultRow& s = rows.front();
            const ResultRow* end1 = nullptr;
            for (const auto& x : rows)
                if (x.stage == 1) end1 = &x;
            if (end1 && end1->eps_v() != s.eps_v())
                add("K_sec", (end1->p() - s.p()) / (end1->eps_v() - s.eps_v()), U);
            double emax = 0;
            for (const auto& x : rows) emax = std::max(emax, x.eps_v());
            add("eps_v_max", emax, "-");
            add("eps_v_end", rows.back().eps_v(), "-");
            if (test.stages.front().undrained) add("u_end", rows.back().u, U);
            break;
        }
        case TestKind::SimpleShear: {
            double g0 = test.g0;
            if (!std::isfinite(g0)) {
                // Tangent of the first increment of shearing.
                for (size_t i = 1; i < rows.size(); ++i)
                    if (rows[i].eps[3] != rows[i - 1].eps[3]) {
                        g0 = (rows[i].sig[3] - rows[i - 1].sig[3]) / (rows[i].eps[3] - rows[i - 1].eps[3]);
                        break;
                    }
            }
            add("G0", g0, U);
            // Per amplitude: the loop of its last complete cycle.
            for (size_t k = 0; k < test.info.size(); ++k) {
                const StageInfo& down = test.info[k];
                if (down.cycle < 1 || down.name.size() < 5 || down.name.substr(down.name.size() - 5) != "_down")
                    continue;
                if (k + 1 >= test.info.size()) continue;
                bool last_cycle = k + 2 >= test.info.size() || test.info[k + 2].cycle <= down.cycle;
                if (!last_cycle) continue;
                int sd = static_cast<int>(k) + 1, su = sd + 1;
                std::vector<const ResultRow*> loop;
                for (size_t i = 0; i < rows.size(); ++i) {
                    if (rows[i].stage == sd && loop.empty() && i > 0) loop.push_back(&rows[i - 1]);
                    if (rows[i].stage == sd || rows[i].stage == su) loop.push_back(&rows[i]);
                }
                if (loop.size() < 3 || loop.back()->stage != su) continue;
                // Complete only if the up stage reached its end.
                const ResultRow* bottom = nullptr;
                for (const ResultRow* x : loop)
                    if (x->stage == sd) bottom = x;
                const ResultRow* top = loop.back();
                if (!bottom || std::fabs(top->eps[3] - down.amplitude) > 1e-9 * down.amplitude + 1e-15) continue;
                double a = down.amplitude;
                double tmax = -HUGE_VAL, tmin = HUGE_VAL, w = 0.0;
                for (size_t i = 0; i < loop.size(); ++i) {
                    tmax = std::max(tmax, loop[i]->sig[3]);
                    tmin = std::min(tmin, loop[i]->sig[3]);
                    if (i > 0) w += 0.5 * (loop[i]->sig[3] + loop[i - 1]->sig[3]) * (loop[i]->eps[3] - loop[i - 1]->eps[3]);
                }
                // Closed loops only: the cycle must come back to the shear
                // stress it started from (within 1 % of the loop's height).
                if (std::fabs(top->sig[3] - loop.front()->sig[3]) > 0.01 * (tmax - tmin)) continue;
                CyclicPoint c;
                c.gamma = a;
                c.G = (top->sig[3] - bottom->sig[3]) / (top->eps[3] - bottom->eps[3]);
                c.G_ratio = c.G / g0;
                double ta = 0.5 * (tmax - tmin);
                c.damping = ta > 0 ? std::fabs(w) / (2.0 * kPi * ta * a) : kNaN;
                c.u = top->u;
                r.cyclic.push_back(c);
            }
            for (const auto& c : r.cyclic) {
                char k1[64], k2[64];
                std::snprintf(k1, sizeof k1, "G/G0(%.3g)", c.gamma);
                std::snprintf(k2, sizeof k2, "D(%.3g)", c.gamma);
                add(k1, c.G_ratio, "-");
                add(k2, c.damping, "-");
            }
            break;
        }
        case TestKind::General: {
            std::vector<const ResultRow*> path;
            for (const auto& x : rows) path.push_back(&x);
            double qmax = 0;
            for (const auto& x : rows) qmax = std::max(qmax, x.q());
            add("q_max", qmax, U);
            add("p_end", rows.back().p(), U);
            add("q_end", rows.back().q(), U);
            add("eps_v_end", rows.back().eps_v(), "-");
            add("u_end", rows.back().u, U);
            secant_G(path, false);
            break;
        }
    }
}

void write_summary_json(const TestFile& file, const LabTest& test, const std::string& out_dir, TestResult& r) {
    {
        r.json_path = (fs::path(out_dir) / (r.id + ".json")).string();
        FilePtr js(std::fopen(r.json_path.c_str(), "w"));
        if (js) {
            std::FILE* f = js.get();
            std::fprintf(f, "{\n  \"id\": \"%s\",\n", json_escape(r.id).c_str());
            std::fprintf(f, "  \"file\": \"%s\",\n", json_escape(file.path).c_str());
            std::fprintf(f, "  \"title\": \"%s\",\n", json_escape(file.title).c_str());
            std::fprintf(f, "  \"soil\": \"%s\",\n", json_escape(file.soil_title).c_str());
            std::fprintf(f, "  \"test\": \"%s\",\n  \"type\": \"%s\",\n", json_escape(test.name).c_str(), r.kind.c_str());
            std::fprintf(f, "  \"model\": %d,\n  \"units\": \"%s\",\n", test.model, json_escape(r.units).c_str());
            std::fprintf(f, "  \"csv\": \"%s\",\n", json_escape(fs::path(r.csv_path).filename().string()).c_str());
            std::fprintf(f, "  \"status\": \"%s\",\n  \"error\": \"%s\",\n", r.ok ? "ok" : "failed",
                         json_escape(r.error).c_str());
            std::fprintf(f, "  \"increments\": %ld,\n  \"stress_calls\": %ld,\n  \"seconds\": %s,\n", r.increments,
                         r.stress_calls, jnum(r.seconds).c_str());
            std::fprintf(f, "  \"undrained\": %s,\n",
                         (!test.stages.empty() && test.stages.front().undrained) ? "true" : "false");
            std::fprintf(f, "  \"reference_pressure\": %s,\n", jnum(test.reference_pressure).c_str());
            std::fprintf(f, "  \"stages\": [");
            for (size_t k = 0; k < test.info.size(); ++k)
                std::fprintf(f, "%s\n    {\"name\": \"%s\", \"role\": \"%s\", \"amplitude\": %s, \"cycle\": %d, \"steps\": %d, \"undrained\": %s}",
                             k ? "," : "", json_escape(test.info[k].name).c_str(), json_escape(test.info[k].role).c_str(),
                             jnum(test.info[k].amplitude).c_str(), test.info[k].cycle, test.stages[k].steps,
                             test.stages[k].undrained ? "true" : "false");
            std::fprintf(f, "\n  ],\n  \"summary\": {");
            for (size_t k = 0; k < r.summary.size(); ++k)
                std::fprintf(f, "%s\n    \"%s\": %s", k ? "," : "", json_escape(r.summary[k].key).c_str(),
                             jnum(r.summary[k].value).c_str());
            std::fprintf(f, "\n  },\n  \"cyclic\": [");
            for (size_t k = 0; k < r.cyclic.size(); ++k)
                std::fprintf(f, "%s\n    {\"gamma\": %s, \"G\": %s, \"G_ratio\": %s, \"damping\": %s, \"u\": %s}",
                             k ? "," : "", jnum(r.cyclic[k].gamma).c_str(), jnum(r.cyclic[k].G).c_str(),
                             jnum(r.cyclic[k].G_ratio).c_str(), jnum(r.cyclic[k].damping).c_str(),
                             jnum(r.cyclic[k].u).c_str());
            std::fprintf(f, "\n  ]");
            if (test.has_measured) {
                std::fprintf(f, ",\n  \"measured\": {\"file\": \"%s\", \"columns\": {",
                             json_escape(fs::absolute(test.measured.file).string()).c_str());
                for (size_t k = 0; k < test.measured.columns.size(); ++k)
                    std::fprintf(f, "%s\"%s\": \"%s\"", k ? ", " : "", json_escape(test.measured.columns[k].first).c_str(),
                                 json_escape(test.measured.columns[k].second).c_str());
                std::fprintf(f, "}, \"scale\": {");
                for (size_t k = 0; k < test.measured.scale.size(); ++k)
                    std::fprintf(f, "%s\"%s\": %s", k ? ", " : "", json_escape(test.measured.scale[k].first).c_str(),
                                 jnum(test.measured.scale[k].second).c_str());
                std::fprintf(f, "}}");
            }
            std::fprintf(f, "\n}\n");
        }
    }
}

TestResult run_test(const ModelLibrary& lib, const TestFile& file, const LabTest& test,
                    const RunOptions& opt) {
    TestResult r;
    r.file_stem = file.stem;
    r.test_name = test.name;
    r.id = file.stem + "_" + test.name;
    r.kind = kind_name(test.kind);
    r.title = file.title;
    r.units = file.units;
    r.model = test.model;

    FilePtr csv;
    std::vector<std::string> svnames;
    auto t0 = std::chrono::steady_clock::now();
    auto last_progress = t0;
    long total_steps = 0;
    for (const auto& s : test.stages) total_steps += s.steps;
    long grid_done = 0;
    int nstat = 0;

    auto write_row = [&](const ResultRow& x, const std::vector<double>& sv) {
        if (!csv) return;
        std::FILE* f = csv.get();
        std::fprintf(f, "%ld,%d,%d", x.step, x.stage, x.increment);
        for (double v : x.eps) std::fprintf(f, ",%.10g", v);
        for (double v : x.sig) std::fprintf(f, ",%.10g", v);
        for (int i = 0; i < 3; ++i) std::fprintf(f, ",%.10g", x.sig[i] + x.u);
        std::fprintf(f, ",%.10g,%.10g,%.10g,%.10g,%.10g,%d,%d", x.u, x.p(), x.q(), x.eps_v(), x.eps_q(),
                     x.iplast, x.iterations);
        for (double v : sv) std::fprintf(f, ",%.12g", v);
        std::fputc('\n', f);
        std::fflush(f);
    };
    auto to_row = [](const PointState& s, int stage, int inc, long step, int iplast, int its) {
        ResultRow x;
        x.stage = stage;
        x.increment = inc;
        x.step = step;
        for (int i = 0; i < 6; ++i) {
            x.eps[i] = -s.eps[i];
            x.sig[i] = -s.sig[i];
        }
        x.u = -s.pw;
        x.iplast = iplast;
        x.iterations = its;
        return x;
    };

    try {
        if (opt.write_files) {
            std::error_code ec;
            fs::create_directories(opt.out_dir, ec);
            r.csv_path = (fs::path(opt.out_dir) / (r.id + ".csv")).string();
            csv.reset(std::fopen(r.csv_path.c_str(), "w"));
            if (!csv) throw LabError("cannot write '" + r.csv_path + "'");
        }
        PointDriver drv(lib, test.model, test.props, test.host, test.solver);
        drv.initialize(test.sig0, test.pw0, test.sv0);
        nstat = drv.attributes().nstat;
        for (int i = 0; i < nstat; ++i)
            svnames.push_back(column_name(i < static_cast<int>(file.statevar_names.size()) ? file.statevar_names[i] : "",
                                          i + 1));
        if (csv) {
            std::FILE* f = csv.get();
            std::fprintf(f, "step,stage,increment,eps_xx,eps_yy,eps_zz,gam_xy,gam_yz,gam_zx,"
                            "sig_xx,sig_yy,sig_zz,sig_xy,sig_yz,sig_zx,tsig_xx,tsig_yy,tsig_zz,"
                            "u,p,q,eps_v,eps_q,iplast,iterations");
            for (const auto& n : svnames) std::fprintf(f, ",%s", n.c_str());
            std::fputc('\n', f);
        }
        ResultRow first = to_row(drv.state(), 0, 0, 0, 0, 0);
        r.rows.push_back(first);
        write_row(first, drv.state().sv);

        const bool show = opt.progress;
        for (size_t k = 0; k < test.stages.size(); ++k) {
            drv.run_stage(test.stages[k], static_cast<int>(k) + 1,
                          [&](const IncrementRecord& rec, const PointState& st) {
                              ResultRow x = to_row(st, rec.stage, rec.increment, rec.step, rec.iplast, rec.iterations);
                              r.rows.push_back(x);
                              write_row(x, st.sv);
                              if (rec.fraction * rec.increments >= rec.increment - 1e-9) ++grid_done;
                              r.increments = drv.increments();
                              r.stress_calls = drv.stress_calls();
                              if (show) {
                                  auto now = std::chrono::steady_clock::now();
                                  if (now - last_progress > std::chrono::milliseconds(100)) {
                                      last_progress = now;
                                      double sec = std::chrono::duration<double>(now - t0).count();
                                      std::fprintf(stderr, "\r%s: stage %d/%zu, increment %d/%d, %.0f%%, %.0f increments/s   ",
                                                   r.id.c_str(), rec.stage, test.stages.size(), rec.increment,
                                                   rec.increments, 100.0 * grid_done / std::max(1L, total_steps),
                                                   sec > 0 ? drv.increments() / sec : 0.0);
                                      std::fflush(stderr);
                                  }
                              }
                          });
        }
        r.increments = drv.increments();
        r.stress_calls = drv.stress_calls();
        r.ok = true;
    } catch (const LabError& e) {
        r.error = e.what();
    } catch (const std::exception& e) {
        r.error = std::string("internal error: ") + e.what();
    }
    if (opt.progress) {
        std::fprintf(stderr, "\r%*s\r", 100, "");
        std::fflush(stderr);
    }
    r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    csv.reset();
    summarize(test, r);

    if (opt.write_files) write_summary_json(file, test, opt.out_dir, r);
    return r;
}

void print_summary_table(std::FILE* out, const std::vector<TestResult>& results) {
    size_t w = 4;
    for (const auto& r : results) w = std::max(w, r.id.size());
    std::fprintf(out, "%-*s %5s %-12s %6s %8s %10s  %s\n", static_cast<int>(w), "test", "model", "type", "status",
                 "incs", "incs/s", "results");
    long total = 0;
    double secs = 0;
    for (const auto& r : results) {
        std::string res;
        for (const auto& s : r.summary) {
            char b[96];
            std::snprintf(b, sizeof b, "%s%s=%.4g", res.empty() ? "" : " ", s.key.c_str(), s.value);
            res += b;
        }
        std::fprintf(out, "%-*s %5d %-12s %6s %8ld %10.0f  %s\n", static_cast<int>(w), r.id.c_str(), r.model,
                     r.kind.c_str(), r.ok ? "ok" : "FAILED", r.increments,
                     r.seconds > 0 ? r.increments / r.seconds : 0.0, res.c_str());
        if (!r.ok) std::fprintf(out, "%*s  error: %s\n", static_cast<int>(w), "", r.error.c_str());
        total += r.increments;
        secs += r.seconds;
    }
    std::fprintf(out, "%zu tests, %ld increments in %.2f s (%.0f increments/s)\n", results.size(), total, secs,
                 secs > 0 ? total / secs : 0.0);
}

}  // namespace tervak::lab
