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

namespace {

void json_items(std::FILE* f, const std::vector<SummaryItem>& items) {
    std::fprintf(f, "{");
    for (size_t k = 0; k < items.size(); ++k)
        std::fprintf(f, "%s\"%s\": %s", k ? ", " : "", json_escape(items[k].key).c_str(), jnum(items[k].value).c_str());
    std::fprintf(f, "}");
}

void json_stages(std::FILE* f, const LabTest& test, const TestResult& r) {
    std::fprintf(f, "  \"stages\": [");
    for (size_t k = 0; k < test.info.size(); ++k) {
        const StageInfo& s = test.info[k];
        std::fprintf(f, "%s\n    {\"name\": \"%s\", \"role\": \"%s\", \"amplitude\": %s, \"cycle\": %d, \"steps\": %d, \"undrained\": %s, \"summary\": ",
                     k ? "," : "", json_escape(s.name).c_str(), json_escape(s.role).c_str(), jnum(s.amplitude).c_str(),
                     s.cycle, test.stages[k].steps, test.stages[k].undrained ? "true" : "false");
        json_items(f, k < r.stage_summary.size() ? r.stage_summary[k] : std::vector<SummaryItem>{});
        std::fprintf(f, "}");
    }
    std::fprintf(f, "\n  ],\n");
}

void json_results(std::FILE* f, const LabTest& test, const TestResult& r) {
    std::fprintf(f, "  \"summary\": ");
    json_items(f, r.summary);
    std::fprintf(f, ",\n  \"cyclic\": [");
    for (size_t k = 0; k < r.cyclic.size(); ++k)
        std::fprintf(f, "%s\n    {\"gamma\": %s, \"G\": %s, \"G_ratio\": %s, \"damping\": %s, \"u\": %s}", k ? "," : "",
                     jnum(r.cyclic[k].gamma).c_str(), jnum(r.cyclic[k].G).c_str(), jnum(r.cyclic[k].G_ratio).c_str(),
                     jnum(r.cyclic[k].damping).c_str(), jnum(r.cyclic[k].u).c_str());
    std::fprintf(f, "\n  ],\n  \"warnings\": [");
    for (size_t k = 0; k < r.warnings.size(); ++k)
        std::fprintf(f, "%s\"%s\"", k ? ", " : "", json_escape(r.warnings[k]).c_str());
    std::fprintf(f, "],\n  \"e0\": %s", jnum(test.e0).c_str());
}

void json_parameters(std::FILE* f, const TestFile& file, const LabTest& test) {
    std::fprintf(f, ",\n  \"parameters\": [");
    for (size_t k = 0; k < test.props.size(); ++k)
        std::fprintf(f, "%s[\"%s\", %s]", k ? ", " : "",
                     json_escape(k < file.param_names.size() ? file.param_names[k] : "").c_str(), jnum(test.props[k]).c_str());
    std::fprintf(f, "]");
}

void json_measured(std::FILE* f, const LabTest& test) {
    if (!test.has_measured) return;
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

}  // namespace

void write_summary_json(const TestFile& file, const LabTest& test, const std::string& out_dir, TestResult& r) {
    r.json_path = (fs::path(out_dir) / (r.id + ".json")).string();
    FilePtr js(std::fopen(r.json_path.c_str(), "w"));
    if (!js) return;
    std::FILE* f = js.get();
    std::fprintf(f, "{\n  \"id\": \"%s\",\n", json_escape(r.id).c_str());
    std::fprintf(f, "  \"file\": \"%s\",\n", json_escape(file.path).c_str());
    std::fprintf(f, "  \"title\": \"%s\",\n", json_escape(file.title).c_str());
    std::fprintf(f, "  \"soil\": \"%s\",\n", json_escape(file.soil_title).c_str());
    std::fprintf(f, "  \"test\": \"%s\",\n  \"type\": \"%s\",\n", json_escape(test.name).c_str(), r.kind.c_str());
    std::fprintf(f, "  \"model\": %d,\n  \"units\": \"%s\",\n", test.model, json_escape(r.units).c_str());
    std::fprintf(f, "  \"csv\": \"%s\",\n", json_escape(fs::path(r.csv_path).filename().string()).c_str());
    std::fprintf(f, "  \"status\": \"%s\",\n  \"error\": \"%s\",\n", r.ok ? "ok" : "failed", json_escape(r.error).c_str());
    std::fprintf(f, "  \"increments\": %ld,\n  \"stress_calls\": %ld,\n  \"seconds\": %s,\n", r.increments,
                 r.stress_calls, jnum(r.seconds).c_str());
    bool undrained = false;
    for (size_t k = 0; k < test.stages.size(); ++k)
        undrained = undrained || (test.info[k].role != "consolidation" && test.stages[k].undrained);
    std::fprintf(f, "  \"undrained\": %s,\n", undrained ? "true" : "false");
    std::fprintf(f, "  \"reference_pressure\": %s,\n", jnum(test.reference_pressure).c_str());
    json_stages(f, test, r);
    json_results(f, test, r);
    json_parameters(f, file, test);
    json_measured(f, test);
    std::fprintf(f, "\n}\n");
}

namespace {

const char* const kCsvHead =
    "step,stage,increment,eps_xx,eps_yy,eps_zz,gam_xy,gam_yz,gam_zx,"
    "sig_xx,sig_yy,sig_zz,sig_xy,sig_yz,sig_zx,tsig_xx,tsig_yy,tsig_zz,"
    "u,p,q,eps_v,eps_q,iplast,iterations,eps_yy_stage,eps_v_stage,eps_q_stage,e";

void write_row(std::FILE* f, const ResultRow& x, const std::vector<double>& sv) {
    if (!f) return;
    std::fprintf(f, "%ld,%d,%d", x.step, x.stage, x.increment);
    for (double v : x.eps) std::fprintf(f, ",%.10g", v);
    for (double v : x.sig) std::fprintf(f, ",%.10g", v);
    for (int i = 0; i < 3; ++i) std::fprintf(f, ",%.10g", x.sig[i] + x.u);
    std::fprintf(f, ",%.10g,%.10g,%.10g,%.10g,%.10g,%d,%d", x.u, x.p(), x.q(), x.eps_v(), x.eps_q(), x.iplast,
                 x.iterations);
    ResultRow d;
    d.eps = x.eps_stage;
    std::fprintf(f, ",%.10g,%.10g,%.10g,", x.eps_stage[1], d.eps_v(), d.eps_q());
    if (std::isfinite(x.e)) std::fprintf(f, "%.10g", x.e);
    for (double v : sv) std::fprintf(f, ",%.12g", v);
    std::fputc('\n', f);
    std::fflush(f);
}

// A converged state as a row in the soil-mechanics sign.
ResultRow to_row(const PointState& s, const IncrementRecord& rec, const Vec6& stage_start, double e0) {
    ResultRow x;
    x.stage = rec.stage;
    x.increment = rec.increment;
    x.step = rec.step;
    for (int i = 0; i < 6; ++i) {
        x.eps[i] = -s.eps[i];
        x.sig[i] = -s.sig[i];
        x.eps_stage[i] = x.eps[i] - stage_start[i];
    }
    x.u = -s.pw;
    x.iplast = rec.iplast;
    x.iterations = rec.iterations;
    if (std::isfinite(e0)) x.e = e0 - (1.0 + e0) * x.eps_v();
    return x;
}

Vec6 soil_strain(const PointState& s) {
    Vec6 e;
    for (int i = 0; i < 6; ++i) e[i] = -s.eps[i];
    return e;
}

struct Progress {
    bool show = false;
    long total = 0, done = 0;
    std::chrono::steady_clock::time_point t0, last;
    void tick(const std::string& id, const IncrementRecord& rec, size_t stages, long incs) {
        if (rec.fraction * rec.increments >= rec.increment - 1e-9) ++done;
        if (!show) return;
        auto now = std::chrono::steady_clock::now();
        if (now - last < std::chrono::milliseconds(100)) return;
        last = now;
        double sec = std::chrono::duration<double>(now - t0).count();
        std::fprintf(stderr, "\r%s: stage %d/%zu, increment %d/%d, %.0f%%, %.0f increments/s   ", id.c_str(),
                     rec.stage, stages, rec.increment, rec.increments, 100.0 * done / std::max(1L, total),
                     sec > 0 ? incs / sec : 0.0);
        std::fflush(stderr);
    }
    // A stage that will not run (the amplitude's loop has closed) counts as done.
    void skip(long steps) { done += steps; }
};

// Drives every stage, resolving the targets that depend on the state.
void drive(const ModelLibrary& lib, const TestFile& file, const LabTest& test, std::FILE* csv, Progress& prog,
           TestResult& r) {
    PointDriver drv(lib, test.model, test.props, test.host, test.solver);
    drv.initialize(test.sig0, test.pw0, test.sv0);
    const int nstat = drv.attributes().nstat;
    if (csv) {
        std::fputs(kCsvHead, csv);
        for (int i = 0; i < nstat; ++i)
            std::fprintf(csv, ",%s", column_name(i < static_cast<int>(file.statevar_names.size()) ? file.statevar_names[i] : "", i + 1).c_str());
        std::fputc('\n', csv);
    }
    Vec6 start = soil_strain(drv.state()), shear_start = start;
    r.rows.push_back(to_row(drv.state(), IncrementRecord{}, start, test.e0));
    write_row(csv, r.rows.back(), drv.state().sv);
    bool shearing = false, loop_closed = false;  // loop_closed: the present amplitude's loop has closed
    for (size_t k = 0; k < test.stages.size(); ++k) {
        if (test.info[k].role == "cycle" && test.info[k].cycle == 0) loop_closed = false;
        if (loop_closed && test.info[k].cycle > 0) {
            prog.skip(test.stages[k].steps);
            continue;
        }
        start = soil_strain(drv.state());
        if (!shearing && test.info[k].role != "consolidation") shear_start = start;
        shearing = shearing || test.info[k].role != "consolidation";
        StagePlan plan = resolve_stage(test.stages[k], test.info[k], drv.state(), shear_start);
        drv.run_stage(plan, static_cast<int>(k) + 1, [&](const IncrementRecord& rec, const PointState& st) {
            r.rows.push_back(to_row(st, rec, start, test.e0));
            write_row(csv, r.rows.back(), st.sv);
            if (rec.cuts > 0) ++r.cut_increments;
            r.increments = drv.increments();
            r.stress_calls = drv.stress_calls();
            prog.tick(r.id, rec, test.stages.size(), drv.increments());
        });
        loop_closed = simple_shear_loop_closed(test, r.rows, k);
    }
    r.increments = drv.increments();
    r.stress_calls = drv.stress_calls();
}

}  // namespace

TestResult blank_result(const TestFile& file, const LabTest& test) {
    TestResult r;
    r.file_stem = file.stem;
    r.test_name = test.name;
    r.id = file.stem + "_" + test.name;
    r.kind = kind_name(test.kind);
    r.title = file.title;
    r.units = file.units;
    r.model = test.model;
    return r;
}

TestResult run_test(const ModelLibrary& lib, const TestFile& file, const LabTest& test, const RunOptions& opt) {
    TestResult r = blank_result(file, test);
    Progress prog;
    prog.show = opt.progress;
    prog.t0 = prog.last = std::chrono::steady_clock::now();
    for (const auto& s : test.stages) prog.total += s.steps;
    FilePtr csv;
    try {
        if (opt.write_files) {
            std::error_code ec;
            fs::create_directories(opt.out_dir, ec);
            r.csv_path = (fs::path(opt.out_dir) / (r.id + ".csv")).string();
            csv.reset(std::fopen(r.csv_path.c_str(), "w"));
            if (!csv) throw LabError("cannot write '" + r.csv_path + "'");
        }
        drive(lib, file, test, csv.get(), prog, r);
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
    r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - prog.t0).count();
    csv.reset();
    summarize(test, r);
    if (!r.ok) r.warnings.insert(r.warnings.begin(), "the test did not finish: " + r.error);
    if (r.cut_increments > 0)
        r.warnings.push_back(std::to_string(r.cut_increments) + " increment(s) converged only after cutting");
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
        for (size_t i = r.ok ? 0 : 1; i < r.warnings.size(); ++i)  // a failed test's first warning is its error
            std::fprintf(out, "%*s  warning: %s\n", static_cast<int>(w), "", r.warnings[i].c_str());
        total += r.increments;
        secs += r.seconds;
    }
    std::fprintf(out, "%zu tests, %ld increments in %.2f s (%.0f increments/s)\n", results.size(), total, secs,
                 secs > 0 ? total / secs : 0.0);
}

}  // namespace tervak::lab
