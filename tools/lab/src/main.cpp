// tervak-lab: runs laboratory tests on a model library through user_mod_.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "lab_file.hpp"
#include "lab_input.hpp"
#include "lab_run.hpp"
#include "lab_tools.hpp"
#include "model_library.hpp"

using namespace tervak::lab;
namespace fs = std::filesystem;

namespace {

std::FILE* g_out = stdout;  // the lab's own standard output

const char* kUsage =
    "usage: tervak-lab [options] TEST.toml|DIR ...\n"
    "       tervak-lab calibrate|fit|study FILE.toml [options]  (see --help after each)\n"
    "Runs the laboratory tests of each file (every *.toml of a directory) on a\n"
    "model library, writes one CSV and one JSON summary per test into the\n"
    "results folder and prints the summary table.\n"
    "\n"
    "options:\n"
    "  --lib PATH           model library (default: libtervak.so beside this program)\n"
    "  --out DIR            results folder (default: results)\n"
    "  --suite DIR          same as giving DIR\n"
    "  --test NAME          run only the tests with this name\n"
    "  --plot               draw PNG figures with plot.py (python3 + matplotlib)\n"
    "  --python PATH        interpreter for plotting (default: /usr/bin/python3)\n"
    "  --plot-script PATH   plotting script (default: the lab's plot.py)\n"
    "  --progress           progress line on standard error (default: when it is a terminal)\n"
    "  --no-progress        no progress line\n"
    "  --model-output FILE  where the library's standard output goes (default: discarded;\n"
    "                       '-' leaves it on standard output)\n"
    "  --check              read and check the files only\n"
    "  --no-isolate         run the tests in this process (default: one child process\n"
    "                       per test, so that a library that ends the process loses\n"
    "                       only its own test)\n"
    "  --list-params        print the library's models, parameters and state variables\n"
    "  -h, --help           this text\n"
    "exit status: 0 all tests ran, 1 a test failed, 2 a file or an option was rejected\n";

std::string default_library() {
    fs::path beside = fs::path(exe_dir()) / "libtervak.so";
    std::error_code ec;
    if (fs::exists(beside, ec)) return beside.string();
#ifdef TERVAK_LAB_DEFAULT_LIB
    if (fs::exists(TERVAK_LAB_DEFAULT_LIB, ec)) return TERVAK_LAB_DEFAULT_LIB;
#endif
    return beside.string();
}

std::string default_plot_script() {
    fs::path beside = fs::path(exe_dir()) / "tervak-lab-plot.py";
    std::error_code ec;
    if (fs::exists(beside, ec)) return beside.string();
#ifdef TERVAK_LAB_PLOT_SCRIPT
    return TERVAK_LAB_PLOT_SCRIPT;
#else
    return beside.string();
#endif
}

int run_plot(const std::string& python, const std::string& script, const std::vector<std::string>& jsons,
             int out_fd) {
    std::vector<std::string> args = {python, script};
    args.insert(args.end(), jsons.begin(), jsons.end());
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    std::fflush(g_out);
    pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) {
        dup2(out_fd, 1);
        execv(python.c_str(), argv.data());
        std::fprintf(stderr, "tervak-lab: cannot run %s: %s\n", python.c_str(), std::strerror(errno));
        _exit(127);
    }
    int st = 0;
    while (waitpid(pid, &st, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
}

// Each test runs in a child process, so that a model library that ends
// the process (a fatal stop) takes only its own test with it. The child
// sends its result back through a pipe as tab-separated lines.
std::string escape(const std::string& s) {
    std::string o;
    for (char c : s) o += (c == '\n' || c == '\t') ? ' ' : c;
    return o;
}

std::string serialize(const TestResult& r) {
    std::string o;
    char b[512];
    std::snprintf(b, sizeof b, "ok\t%d\nincrements\t%ld\ncalls\t%ld\nseconds\t%.17g\n", r.ok ? 1 : 0,
                  r.increments, r.stress_calls, r.seconds);
    o += b;
    o += "error\t" + escape(r.error) + "\ncsv\t" + escape(r.csv_path) + "\njson\t" + escape(r.json_path) + "\n";
    for (const auto& s : r.summary) {
        std::snprintf(b, sizeof b, "S\t%s\t%.17g\t%s\n", escape(s.key).c_str(), s.value, escape(s.unit).c_str());
        o += b;
    }
    for (const auto& c : r.cyclic) {
        std::snprintf(b, sizeof b, "C\t%.17g\t%.17g\t%.17g\t%.17g\t%.17g\n", c.gamma, c.G, c.G_ratio, c.damping, c.u);
        o += b;
    }
    for (const auto& w : r.warnings) o += "W\t" + escape(w) + "\n";
    o += "end\n";
    return o;
}

bool deserialize(const std::string& text, TestResult& r) {
    std::vector<std::string> lines;
    size_t a = 0;
    while (a < text.size()) {
        size_t e = text.find('\n', a);
        if (e == std::string::npos) return false;
        lines.push_back(text.substr(a, e - a));
        a = e + 1;
    }
    if (lines.empty() || lines.back() != "end") return false;
    for (const auto& l : lines) {
        std::vector<std::string> f;
        size_t p = 0;
        while (true) {
            size_t t = l.find('\t', p);
            f.push_back(l.substr(p, t == std::string::npos ? std::string::npos : t - p));
            if (t == std::string::npos) break;
            p = t + 1;
        }
        const std::string& k = f[0];
        if (k == "ok" && f.size() == 2) r.ok = f[1] == "1";
        else if (k == "increments" && f.size() == 2) r.increments = std::atol(f[1].c_str());
        else if (k == "calls" && f.size() == 2) r.stress_calls = std::atol(f[1].c_str());
        else if (k == "seconds" && f.size() == 2) r.seconds = std::atof(f[1].c_str());
        else if (k == "error" && f.size() == 2) r.error = f[1];
        else if (k == "csv" && f.size() == 2) r.csv_path = f[1];
        else if (k == "json" && f.size() == 2) r.json_path = f[1];
        else if (k == "S" && f.size() == 4) r.summary.push_back({f[1], std::atof(f[2].c_str()), f[3]});
        else if (k == "W" && f.size() == 2) r.warnings.push_back(f[1]);
        else if (k == "C" && f.size() == 6)
            r.cyclic.push_back({std::atof(f[1].c_str()), std::atof(f[2].c_str()), std::atof(f[3].c_str()),
                                std::atof(f[4].c_str()), std::atof(f[5].c_str())});
    }
    return true;
}

// The last converged increment in a results CSV: "step S (stage X,
// increment Y)", or "" when there is none.
std::string last_row(const std::string& csv, long* steps) {
    std::FILE* f = std::fopen(csv.c_str(), "r");
    if (!f) return "";
    char line[65536];
    std::string last;
    int n = 0;
    while (std::fgets(line, sizeof line, f)) {
        if (n++ > 0) last = line;
    }
    std::fclose(f);
    long step = -1;
    int stage = 0, inc = 0;
    if (last.empty() || std::sscanf(last.c_str(), "%ld,%d,%d", &step, &stage, &inc) != 3) return "";
    *steps = step;
    return "step " + std::to_string(step) + " (stage " + std::to_string(stage) + ", increment " +
           std::to_string(inc) + ")";
}

void write_all(int fd, const std::string& s) {
    const char* p = s.data();
    size_t left = s.size();
    while (left > 0) {
        ssize_t w = write(fd, p, left);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) break;
        p += w;
        left -= static_cast<size_t>(w);
    }
}

std::string read_all(int fd) {
    std::string text;
    char buf[4096];
    while (true) {
        ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        text.append(buf, static_cast<size_t>(n));
    }
    return text;
}

TestResult run_isolated(const ModelLibrary& lib, const TestFile& tf, const LabTest& t, const RunOptions& opt) {
    int fds[2];
    if (pipe(fds) != 0) return run_test(lib, tf, t, opt);
    std::fflush(g_out);
    std::fflush(stdout);
    std::fflush(stderr);
    pid_t pid = fork();
    if (pid < 0) {
        close(fds[0]);
        close(fds[1]);
        return run_test(lib, tf, t, opt);
    }
    if (pid == 0) {
        close(fds[0]);
        write_all(fds[1], serialize(run_test(lib, tf, t, opt)));
        std::fflush(stdout);
        _exit(0);
    }
    close(fds[1]);
    std::string text = read_all(fds[0]);
    close(fds[0]);
    int st = 0;
    while (waitpid(pid, &st, 0) < 0 && errno == EINTR) {
    }
    TestResult r = blank_result(tf, t);
    if (WIFEXITED(st) && WEXITSTATUS(st) == 0 && deserialize(text, r)) return r;
    std::string how = WIFEXITED(st) ? "with exit status " + std::to_string(WEXITSTATUS(st))
                                    : "by signal " + std::to_string(WTERMSIG(st));
    std::string csv = (fs::path(opt.out_dir) / (r.id + ".csv")).string();
    std::string last = opt.write_files ? last_row(csv, &r.increments) : "";
    r.ok = false;
    r.error = "the model library ended the process " + how +
              (last.empty() ? " before the first increment" : " after " + last) +
              "; the rows converged so far are in " + csv;
    if (opt.write_files) {
        r.csv_path = csv;
        write_summary_json(tf, t, opt.out_dir, r);
    }
    return r;
}

void list_params(const ModelLibrary& lib) {
    int n = lib.model_count();
    if (n < 0) {
        std::fprintf(g_out, "%s does not describe its models (no metadata exports): give 'props' lists.\n",
                     lib.path().c_str());
        return;
    }
    if (!lib.has_ranges()) std::fprintf(g_out, "(the library states no valid ranges: values are not range-checked)\n");
    for (int m = 1; m <= n; ++m) {
        std::fprintf(g_out, "model %d: %s\n", m, lib.model_name(m).c_str());
        auto ps = lib.parameters(m);
        for (size_t i = 0; i < ps.size(); ++i)
            std::fprintf(g_out, "  parameter %2zu  %-16s %-8s %s\n", i + 1, ps[i].name.c_str(), ps[i].unit.c_str(),
                         ps[i].range.text().c_str());
        auto sv = lib.state_variables(m);
        for (size_t i = 0; i < sv.size(); ++i)
            std::fprintf(g_out, "  state var %2zu  %-16s %s\n", i + 1, sv[i].name.c_str(), sv[i].unit.c_str());
    }
}

struct Options {
    std::string lib_path, out_dir = "results", python = "/usr/bin/python3", script = default_plot_script();
    std::string only, model_output;
    bool plot = false, check = false, list = false, isolate = true;
    int progress = -1;
    std::vector<std::string> inputs;
};

// Parses the command line; returns -1 to go on, or the exit status.
int parse_options(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&](std::string& into) {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "tervak-lab: %s needs a value\n%s", a.c_str(), kUsage);
                return false;
            }
            into = argv[++i];
            return true;
        };
        std::string suite;
        bool ok = true;
        if (a == "-h" || a == "--help") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (a == "--lib") ok = value(o.lib_path);
        else if (a == "--out") ok = value(o.out_dir);
        else if (a == "--suite") ok = value(suite), o.inputs.push_back(suite);
        else if (a == "--test") ok = value(o.only);
        else if (a == "--plot") o.plot = true;
        else if (a == "--python") ok = value(o.python);
        else if (a == "--plot-script") ok = value(o.script);
        else if (a == "--progress") o.progress = 1;
        else if (a == "--no-progress") o.progress = 0;
        else if (a == "--model-output") ok = value(o.model_output);
        else if (a == "--check") o.check = true;
        else if (a == "--no-isolate") o.isolate = false;
        else if (a == "--list-params") o.list = true;
        else if (!a.empty() && a[0] == '-') {
            std::fprintf(stderr, "tervak-lab: unknown option '%s'\n%s", printable(a).c_str(), kUsage);
            return 2;
        } else o.inputs.push_back(a);
        if (!ok) return 2;
    }
    if (o.inputs.empty() && !o.list) {
        std::fprintf(stderr, "tervak-lab: no test file given\n%s", kUsage);
        return 2;
    }
    if (o.lib_path.empty()) o.lib_path = default_library();
    if (o.progress < 0) o.progress = isatty(2) ? 1 : 0;
    return -1;
}

// The library's own standard output must not mix with the tables: the
// lab writes to a copy of standard output, the library's goes elsewhere.
int redirect_model_output(const Options& o, int& own_fd) {
    std::fflush(stdout);
    own_fd = dup(1);
    if (own_fd >= 0) g_out = fdopen(own_fd, "w");
    if (!g_out) {
        g_out = stdout;
        own_fd = 1;
        return -1;
    }
    if (o.model_output == "-") return -1;
    const char* target = o.model_output.empty() ? "/dev/null" : o.model_output.c_str();
    int fd = open(target, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) {
        std::fprintf(stderr, "tervak-lab: cannot open --model-output '%s': %s\n", target, std::strerror(errno));
        return 2;
    }
    dup2(fd, 1);
    close(fd);
    return -1;
}

// The results folder must take files before anything runs.
bool check_out_dir(const std::string& dir) {
    std::error_code ec;
    fs::create_directories(dir, ec);
    std::string probe = (fs::path(dir) / ".tervak-lab-probe").string();
    std::FILE* f = ec ? nullptr : std::fopen(probe.c_str(), "w");
    if (f) {
        std::fclose(f);
        std::remove(probe.c_str());
        return true;
    }
    std::fprintf(stderr, "tervak-lab: --out '%s': the results folder cannot be written%s%s\n", printable(dir, 200).c_str(),
                 ec ? ": " : "", ec ? ec.message().c_str() : "");
    return false;
}

// Files, and every *.toml of a directory in name order.
std::vector<std::string> expand_inputs(const std::vector<std::string>& inputs, int& status) {
    std::vector<std::string> files;
    for (const auto& in : inputs) {
        std::error_code ec;
        if (!fs::is_directory(in, ec)) {
            files.push_back(in);
            continue;
        }
        std::vector<std::string> found;
        for (const auto& e : fs::directory_iterator(in, ec))
            if (e.path().extension() == ".toml") found.push_back(e.path().string());
        std::sort(found.begin(), found.end());
        if (found.empty()) {
            std::fprintf(stderr, "tervak-lab: no *.toml files in '%s'\n", printable(in, 200).c_str());
            status = 2;
        }
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

// Every file is read and checked before any test runs.
std::vector<TestFile> load_all(const ModelLibrary& lib, const std::vector<std::string>& files, int& status) {
    std::vector<TestFile> out;
    for (const auto& path : files) {
        try {
            out.push_back(load_test_file(path, lib));
        } catch (const LabError& e) {
            std::string msg = e.what();
            size_t a = 0;
            while (a <= msg.size()) {
                size_t b = msg.find('\n', a);
                if (b == std::string::npos) b = msg.size();
                std::fprintf(stderr, "tervak-lab: %s\n", msg.substr(a, b - a).c_str());
                a = b + 1;
            }
            status = 2;
        }
    }
    return out;
}

std::vector<TestResult> run_all(const ModelLibrary& lib, const std::vector<TestFile>& files, const Options& o,
                                std::vector<std::string>& jsons, int& status) {
    std::vector<TestResult> results;
    RunOptions opt;
    opt.out_dir = o.out_dir;
    opt.progress = o.progress == 1;
    for (const auto& tf : files)
        for (const auto& t : tf.tests) {
            if (!o.only.empty() && t.name != o.only) continue;
            TestResult r = o.isolate ? run_isolated(lib, tf, t, opt) : run_test(lib, tf, t, opt);
            if (!r.ok) {
                std::fprintf(stderr, "tervak-lab: %s: %s\n", r.id.c_str(), r.error.c_str());
                if (status == 0) status = 1;
            }
            if (!r.json_path.empty()) jsons.push_back(r.json_path);
            r.rows.clear();
            r.rows.shrink_to_fit();
            results.push_back(std::move(r));
        }
    return results;
}

int run_files(const ModelLibrary& lib, const Options& o, int own_fd) {
    int status = 0;
    std::vector<TestFile> files = load_all(lib, expand_inputs(o.inputs, status), status);
    if (o.check) {
        for (const auto& tf : files)
            std::fprintf(g_out, "%s: ok, model %d, %zu test(s)\n", tf.path.c_str(), tf.model, tf.tests.size());
        return status;
    }
    if (status != 0) return status;  // nothing runs when a file was rejected
    if (!check_out_dir(o.out_dir)) return 2;
    std::vector<std::string> jsons;
    std::vector<TestResult> results = run_all(lib, files, o, jsons, status);
    if (results.empty()) {
        std::fprintf(stderr, "tervak-lab: no test matched\n");
        return 2;
    }
    print_summary_table(g_out, results);
    std::fflush(g_out);
    if (o.plot && !jsons.empty()) {
        int rc = run_plot(o.python, o.script, jsons, own_fd);
        if (rc != 0) {
            std::fprintf(stderr, "tervak-lab: plotting failed (%s %s, status %d)\n", o.python.c_str(), o.script.c_str(), rc);
            if (status == 0) status = 1;
        }
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && is_tool_command(argv[1])) return run_tool_command(argc - 1, argv + 1);
    Options o;
    int rc = parse_options(argc, argv, o);
    if (rc >= 0) return rc;
    int own_fd = 1;
    if ((rc = redirect_model_output(o, own_fd)) >= 0) return rc;
    try {
        ModelLibrary lib(o.lib_path);
        if (o.list) {
            list_params(lib);
            std::fflush(g_out);
            if (o.inputs.empty()) return 0;
        }
        int status = run_files(lib, o, own_fd);
        std::fflush(g_out);
        return status;
    } catch (const LabError& e) {
        std::fprintf(stderr, "tervak-lab: %s\n", e.what());
        return 2;
    }
}
