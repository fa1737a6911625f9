#include "lab_tools.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "lab_error.hpp"
#include "lab_file.hpp"
#include "lab_run.hpp"
#include "tervak_lab.h"

namespace tervak::lab {

namespace fs = std::filesystem;

namespace {

const char* kCalibrateUsage =
    "usage: tervak-lab calibrate [--lib PATH] [--out FILE] [--no-check] SOIL.toml\n"
    "Runs the library's task 7 on a model 1 soil (it adjusts Ei_ref and K0_nc),\n"
    "shows its progress, writes the calibrated soil file (default:\n"
    "SOIL_calibrated.toml beside SOIL.toml) and checks it in a drained triaxial\n"
    "and an oedometer test at the reference pressure.\n";

const char* kPythonUsage =
    "usage: tervak-lab fit FILE.toml [options]   (fitting to measured data)\n"
    "       tervak-lab study FILE.toml [options] (parameter study on dask.distributed)\n"
    "Both run the Python package tervak with /usr/bin/python3; --help after the\n"
    "command lists their options.\n";

std::string first_existing(const std::vector<std::string>& paths) {
    std::error_code ec;
    for (const auto& p : paths)
        if (!p.empty() && fs::exists(p, ec)) return p;
    return paths.empty() ? "" : paths.front();
}

std::string library_path(const std::string& given) {
    if (!given.empty()) return given;
    return first_existing({(fs::path(exe_dir()) / "libtervak.so").string(),
#ifdef TERVAK_LAB_DEFAULT_LIB
                           TERVAK_LAB_DEFAULT_LIB
#endif
    });
}

std::string num17(double x) {
    char b[40];
    std::snprintf(b, sizeof b, "%.17g", x);
    std::string s = b;
    if (s.find_first_of(".eEni") == std::string::npos) s += ".0";
    return s;
}

std::string toml_string(const std::string& s) {
    std::string o = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') o += '\\';
        if (c == '\n') {
            o += "\\n";
            continue;
        }
        o += c;
    }
    return o + "\"";
}

void write_text(const std::string& path, const std::string& text) {
    std::ofstream f(path, std::ios::binary);
    f << text;
    if (!f) throw LabError("cannot write '" + path + "'");
}

// Task 7 in a child process, so that a fatal stop of the library ends the
// child only; its progress lines go to our standard output as they come.
std::vector<double> calibrate_isolated(const std::string& lib, int model, const std::vector<double>& props) {
    int fds[2];
    if (pipe(fds) != 0) throw LabError(std::string("pipe: ") + std::strerror(errno));
    std::fflush(stdout);
    std::fflush(stderr);
    pid_t pid = fork();
    if (pid < 0) throw LabError(std::string("fork: ") + std::strerror(errno));
    if (pid == 0) {
        close(fds[0]);
        std::vector<double> p = props;
        char err[512] = "";
        int rc = tervak_lab_calibrate(lib.c_str(), model, p.data(), static_cast<int>(p.size()), err, sizeof err);
        std::fflush(stdout);
        if (rc != 0) {
            std::fprintf(stderr, "tervak-lab calibrate: %s\n", err);
            _exit(2);
        }
        const char* b = reinterpret_cast<const char*>(p.data());
        size_t left = p.size() * sizeof(double);
        while (left > 0) {
            ssize_t w = write(fds[1], b, left);
            if (w < 0 && errno == EINTR) continue;
            if (w <= 0) _exit(3);
            b += w;
            left -= static_cast<size_t>(w);
        }
        _exit(0);
    }
    close(fds[1]);
    std::vector<double> out(props.size());
    std::string got;
    char buf[4096];
    while (true) {
        ssize_t n = read(fds[0], buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got.append(buf, static_cast<size_t>(n));
    }
    close(fds[0]);
    int st = 0;
    while (waitpid(pid, &st, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(st) || WEXITSTATUS(st) != 0 || got.size() != out.size() * sizeof(double))
        throw LabError("task 7 did not finish: the model library ended the process " +
                       (WIFEXITED(st) ? "with exit status " + std::to_string(WEXITSTATUS(st))
                                      : "by signal " + std::to_string(WTERMSIG(st))));
    std::memcpy(out.data(), got.data(), got.size());
    return out;
}

std::string soil_text(const TestFile& tf, const std::string& source, const std::vector<double>& props) {
    std::string o = "# " + tf.soil_title + ": parameters after the library's task 7 (tervak-lab calibrate " +
                    fs::path(source).filename().string() + ")\n";
    o += "title = " + toml_string(tf.soil_title) + "\n";
    o += "model = " + std::to_string(tf.model) + "\n";
    o += "units = " + toml_string(tf.units) + "\n";
    o += "props = [\n";
    for (size_t i = 0; i < props.size(); ++i) {
        std::string name = i < tf.param_names.size() ? tf.param_names[i] : "";
        char b[32];
        std::snprintf(b, sizeof b, "  # %2zu", i + 1);
        o += "  " + num17(props[i]) + "," + b + (name.empty() ? "" : "  " + name) + "\n";
    }
    o += "]\n";
    return o;
}

int calibrate(int argc, char** argv) {
    std::string lib, out, soil;
    bool check = true;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "-h" || a == "--help") {
            std::fputs(kCalibrateUsage, stdout);
            return 0;
        } else if ((a == "--lib" || a == "--out") && i + 1 < argc) {
            (a == "--lib" ? lib : out) = argv[++i];
        } else if (a == "--no-check") {
            check = false;
        } else if (!a.empty() && a[0] != '-' && soil.empty()) {
            soil = a;
        } else {
            std::fprintf(stderr, "tervak-lab calibrate: unexpected argument '%s'\n%s", a.c_str(), kCalibrateUsage);
            return 2;
        }
    }
    if (soil.empty()) {
        std::fprintf(stderr, "tervak-lab calibrate: no soil file given\n%s", kCalibrateUsage);
        return 2;
    }
    lib = library_path(lib);
    if (out.empty()) out = (fs::path(soil).parent_path() / (fs::path(soil).stem().string() + "_calibrated.toml")).string();
    std::error_code ec;
    fs::path tmp = fs::temp_directory_path(ec) / ("tervak-calibrate-" + std::to_string(getpid()));
    fs::create_directories(tmp, ec);
    struct Cleanup {
        fs::path p;
        ~Cleanup() {
            std::error_code e;
            fs::remove_all(p, e);
        }
    } cleanup{tmp};
    try {
        ModelLibrary ml(lib);
        // The soil is read by the lab's own reader (names, ranges, units),
        // through a test file that only refers to it.
        std::string probe = (tmp / "soil.toml").string();
        write_text(probe, "soil = " + toml_string(fs::absolute(soil).string()) +
                              "\n[[test]]\nname = \"probe\"\ntype = \"isotropic\"\np0 = 1.0\npressures = [2.0]\n");
        TestFile tf;
        try {
            tf = load_test_file(probe, ml);
        } catch (const LabError& e) {
            std::string m = e.what();
            for (size_t at; (at = m.find(probe)) != std::string::npos;) m.replace(at, probe.size(), soil);
            throw LabError(m);
        }
        if (tf.model != 1)
            throw LabError(soil + ": 'model' = " + std::to_string(tf.model) +
                           ": task 7 calibrates model 1 (hardening soil) only");
        std::vector<double> before = tf.tests.front().props;
        if (before.size() < 16) throw LabError(soil + ": model 1 needs 16 parameters");
        std::vector<double> after = calibrate_isolated(lib, tf.model, before);
        write_text(out, soil_text(tf, soil, after));
        std::printf("Ei_ref (13): %s -> %s\nK0_nc (10): %s -> %s\ncalibrated soil written to %s\n",
                    num17(before[12]).c_str(), num17(after[12]).c_str(), num17(before[9]).c_str(),
                    num17(after[9]).c_str(), out.c_str());
        if (!check) return 0;

        // The lab's own tests at the reference pressure on the written file.
        const double pref = after[8], k0 = after[9];
        std::string tests = (tmp / "check.toml").string();
        write_text(tests, "soil = " + toml_string(fs::absolute(out).string()) +
                              "\n[[test]]\nname = \"txc\"\ntype = \"triaxial\"\np0 = " + num17(pref) +
                              "\naxial_strain = 0.1\nsteps = 400\n"
                              "[[test]]\nname = \"oed\"\ntype = \"oedometer\"\nsigma_v0 = " + num17(0.1 * pref) +
                              "\nk0 = " + num17(k0) + "\nvertical_stress = [" + num17(2.0 * pref) +
                              "]\nsteps = 400\n");
        TestFile cf = load_test_file(tests, ml);
        RunOptions opt;
        opt.write_files = false;
        struct Target {
            const char* key;
            double want;
            const char* label;
            const char* drivers;
        } targets[] = {
            {"E50", after[0], "E50_ref (1)", "Ei_ref (13), R_f (11), phi (6), c (5), m (4)"},
            {"Eoed_ref", after[1], "Eoed_ref (2)", "beta (15) and alpha (14) of the cap, K0_nc (10), m (4)"},
        };
        int status = 0;
        for (size_t k = 0; k < cf.tests.size(); ++k) {
            // The library's own lines of these runs are not part of the report.
            std::fflush(stdout);
            int saved = dup(1), null = open("/dev/null", O_WRONLY);
            if (null >= 0) dup2(null, 1);
            TestResult r = run_test(ml, cf, cf.tests[k], opt);
            std::fflush(stdout);
            if (saved >= 0) dup2(saved, 1);
            if (saved >= 0) close(saved);
            if (null >= 0) close(null);
            if (!r.ok) {
                std::fprintf(stderr, "tervak-lab calibrate: check %s failed: %s\n", r.test_name.c_str(), r.error.c_str());
                status = 1;
                continue;
            }
            const Target& t = targets[k];
            double got = std::nan("");
            for (const auto& s : r.summary)
                if (s.key == t.key) got = s.value;
            double dev = (got - t.want) / t.want;
            std::printf("check %-4s %-8s = %.6g %s, target %s = %.6g (%+.1f %%)\n", r.test_name.c_str(), t.key, got,
                        tf.units.c_str(), t.label, t.want, 100.0 * dev);
            if (!std::isfinite(dev) || std::fabs(dev) > 0.10)
                std::printf("warning: %s differs from %s by more than 10 %%; it is driven by %s\n", t.key, t.label,
                            t.drivers);
        }
        return status;
    } catch (const LabError& e) {
        std::fprintf(stderr, "tervak-lab calibrate: %s\n", e.what());
        return 2;
    }
}

// fit and study: the Python package, with this program's library.
int python_command(int argc, char** argv) {
    std::string py = "/usr/bin/python3";
    if (const char* e = std::getenv("TERVAK_PYTHON")) py = e;
    std::string pkg = first_existing({(fs::path(exe_dir()) / "python").string(),
#ifdef TERVAK_PY_DIR
                                      TERVAK_PY_DIR
#endif
    });
    std::string pp = pkg;
    if (const char* e = std::getenv("PYTHONPATH"); e && *e) pp += std::string(":") + e;
    setenv("PYTHONPATH", pp.c_str(), 1);
    std::string lib;
    for (int i = 1; i + 1 < argc; ++i)
        if (std::string(argv[i]) == "--lib") lib = argv[i + 1];
    if (!std::getenv("TERVAK_LIB")) setenv("TERVAK_LIB", library_path(lib).c_str(), 1);
    std::string lablib = first_existing({(fs::path(exe_dir()) / "tools/lab/libtervak-lab.so").string(),
                                         (fs::path(exe_dir()) / "libtervak-lab.so").string(),
#ifdef TERVAK_LAB_SHARED_LIB
                                         TERVAK_LAB_SHARED_LIB
#endif
    });
    if (!std::getenv("TERVAK_LAB_LIB")) setenv("TERVAK_LAB_LIB", lablib.c_str(), 1);
    std::vector<std::string> args = {py, "-m", "tervak"};
    for (int i = 0; i < argc; ++i) args.push_back(argv[i]);
    std::vector<char*> av;
    for (auto& a : args) av.push_back(a.data());
    av.push_back(nullptr);
    std::fflush(stdout);
    execv(py.c_str(), av.data());
    std::fprintf(stderr, "tervak-lab %s: cannot run %s: %s\n%s", argv[0], py.c_str(), std::strerror(errno), kPythonUsage);
    return 2;
}

}  // namespace

bool is_tool_command(const char* word) {
    return word && (!std::strcmp(word, "calibrate") || !std::strcmp(word, "fit") || !std::strcmp(word, "study"));
}

int run_tool_command(int argc, char** argv) {
    if (!std::strcmp(argv[0], "calibrate")) return calibrate(argc, argv);
    return python_command(argc, argv);
}

std::string exe_dir() {
    std::error_code ec;
    fs::path p = fs::read_symlink("/proc/self/exe", ec);
    return ec ? std::string(".") : p.parent_path().string();
}

}  // namespace tervak::lab
