#include "sweep_support.hpp"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <dirent.h>
#include <algorithm>
#include <fstream>
#include <limits>

namespace sweep {

long* g_calls = nullptr;
namespace {
long* g_progress = nullptr;  // the next case a child is about to run
}  // namespace

void init_shared() {
    void* p = mmap(nullptr, 2 * sizeof(long), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                   -1, 0);
    if (p == MAP_FAILED) {
        std::perror("mmap");
        std::exit(2);
    }
    g_calls = static_cast<long*>(p);
    g_progress = g_calls + 1;
    *g_calls = 0;
}

double Rng::decades(double lo, double hi) { return std::pow(10.0, range(lo, hi)); }

double Rng::special() {
    static const double kSet[] = {0.0,
                                  -0.0,
                                  1.0,
                                  -1.0,
                                  1e-300,
                                  -1e300,
                                  123456.789,
                                  std::numeric_limits<double>::infinity(),
                                  -std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::quiet_NaN(),
                                  std::numeric_limits<double>::denorm_min(),
                                  0.5};
    return kSet[pick(static_cast<int>(sizeof kSet / sizeof kSet[0]))];
}

Rng case_rng(std::uint64_t section, std::uint64_t k) {
    Rng r(section * 0x100000001b3ULL + k * 0x9e3779b97f4a7c15ULL + 12345);
    r.next();
    return r;
}

Out::Out(const char* tag) : line_(tag) {}

Out& Out::d(double x) {
    std::uint64_t b;
    std::memcpy(&b, &x, sizeof b);
    char f[24];
    std::snprintf(f, sizeof f, " %016llx", static_cast<unsigned long long>(b));
    line_ += f;
    return *this;
}

Out& Out::v(const double* x, int n) {
    for (int k = 0; k < n; ++k) d(x[k]);
    return *this;
}

Out& Out::i(std::int64_t k) {
    line_ += ' ';
    line_ += std::to_string(k);
    return *this;
}

Out& Out::iv(const std::int32_t* k, int n) {
    for (int j = 0; j < n; ++j) i(k[j]);
    return *this;
}

Out& Out::s(const char* text) {
    line_ += ' ';
    line_ += text;
    return *this;
}

Out& Out::bytes(const char* p, int n) {
    line_ += " x";
    for (int k = 0; k < n; ++k) {
        char f[4];
        std::snprintf(f, sizeof f, "%02x", static_cast<unsigned char>(p[k]));
        line_ += f;
    }
    return *this;
}

void Out::end() {
    line_ += '\n';
    std::fwrite(line_.data(), 1, line_.size(), stdout);
}

namespace {

// Runs cases from `from` until n in a child; returns the child's status.
int run_child(long from, long n, void (*body)(long)) {
    std::fflush(stdout);
    const pid_t pid = fork();
    if (pid < 0) {
        std::perror("fork");
        std::exit(2);
    }
    if (pid == 0) {
        dup2(1, 2);
        for (long k = from; k < n; ++k) {
            *g_progress = k;
            body(k);
        }
        std::fflush(stdout);
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
}

}  // namespace

void guarded(const char* section, long n, void (*body)(long k)) {
    Out("section").s(section).i(n).end();
    long from = 0;
    while (from < n) {
        *g_progress = from;
        const int status = run_child(from, n, body);
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) break;
        const long at = *g_progress;
        Out o("ended");
        o.s(section).i(at);
        if (WIFEXITED(status)) o.s("exit").i(WEXITSTATUS(status));
        else o.s("signal").i(WTERMSIG(status));
        o.end();
        from = at + 1;
    }
}

std::vector<Soil> read_soils(const std::string& dir) {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d)) {
            const std::string n = e->d_name;
            if (n.size() > 5 && n.substr(n.size() - 5) == ".toml") names.push_back(n);
        }
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    std::vector<Soil> soils;
    for (const std::string& n : names) {
        Soil s;
        s.name = n;
        std::ifstream in(dir + "/" + n);
        std::string line;
        bool inProps = false;
        while (std::getline(in, line)) {
            if (line.rfind("model =", 0) == 0) s.model = std::stoi(line.substr(7));
            if (line.rfind("props = [", 0) == 0) inProps = true;
            else if (inProps && line.rfind("]", 0) == 0) inProps = false;
            else if (inProps) s.props.push_back(std::stod(line));
        }
        soils.push_back(s);
    }
    return soils;
}

}  // namespace sweep
