// Model 1's parameter calibration (task 7), checked from outside: the host
// runs task 7 through user_mod_ on each example soil, then loads a sample
// with the calibrated parameters through tasks 3 and 2 the way a host drives
// a stress point, and looks at what the calibration promises:
//
//   - drained triaxial compression at sigma3 = 100 reaches half the failure
//     deviator at the axial strain qf / (2 Props(1)), within 0.1 %;
//   - loading along sigma3 = K0 sigma1 from sigma1 = 1 to 500 with the
//     calibrated K0 gives a lateral strain within 0.0001 |eps1|;
//   - the printed lines, their labels and the sequence of trial values
//     follow the search rules (1 % steps on Ei shrinking by 0.99 at each
//     turn, 0.5 % steps on K0 shrinking by 0.8, the fine step 0.001 after
//     100 runs), and the final lines repeat the values written into Props;
//   - a calibrated set is recognised in one run and left as it is: the
//     example soil files hold the values task 7 finds, so task 7 on a file
//     prints "Ei_ref_inter is determined:" after one run of each search.
//
// The host paths copy the calibration's laboratory procedure, not its code:
// axial stress steps of 0.01, lateral stresses brought back to their target
// in every step, the strain of each step from the inverse of the stiffness
// matrix of task 3, the stress point updated by task 2. That procedure is
// what the bands refer to: the lateral strain of a K0 path depends on the
// step size and on the start state by more than 0.0001 |eps1| (a step of 0.1
// instead of 0.01, or task 1's start state, move it by about 1e-3 |eps1|),
// so only the same procedure can confirm the band; a conventional
// strain-controlled triaxial is checked too, with the tolerance its coarser
// steps need.
//
// The searches start from the file's Ei_ref and K0_nc moved a few per cent
// away (up for some soils, down for others), so each search takes a handful
// of runs (every run is a full simulated test) and must come back into the
// band, close to the file's values. The soils are studied side by side in
// child processes; the sanitizer build studies one soil only.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/soil_file.hpp"
#include "support/test_support.hpp"
#include "support/user_mod_host.hpp"

namespace {

using tervak_test::HostPoint;
using Mat6 = std::array<double, 36>;

constexpr double kDeg = 0.017453292519444445;
const char* const kSoils[] = {"dense_sand", "loose_sand", "soft_clay"};
#if TERVAK_SANITIZE_BUILD
const char* const kStudied[] = {"loose_sand"};
#else
const char* const kStudied[] = {"dense_sand", "loose_sand", "soft_clay"};
#endif

double P(const HostPoint& h, int i) { return h.Props[static_cast<size_t>(i - 1)]; }

HostPoint soil_point(const std::vector<double>& props, int model = 1) {
    HostPoint h;
    h.iModel = model;
    h.iEl = 1;
    h.Int = 1;
    for (size_t i = 0; i < props.size(); ++i) h.Props[i] = props[i];
    return h;
}

std::vector<double> soil_props(const std::string& name) {
    return tervak_test::read_soil_file(tervak_test::soil_path(name)).props;
}

// Start of a study: the soil file with Ei_ref (Props(13)) and K0_nc
// (Props(10)) moved off the calibrated values, in both directions across
// the soils.
std::vector<double> start_props(const std::string& name) {
    struct Offset {
        const char* soil;
        double ei, k0;
    };
    static const Offset offsets[] = {
        {"dense_sand", 0.98, 1.01}, {"loose_sand", 1.02, 0.992}, {"soft_clay", 1.03, 1.005}};
    auto p = soil_props(name);
    for (const auto& o : offsets) {
        if (name != o.soil) continue;
        p[12] *= o.ei;
        p[9] *= o.k0;
    }
    return p;
}

// ---------------------------------------------------------------------------
// Strength and target strain of the triaxial test at sigma3 = pref.

struct Target {
    double qf, q50, eps50;
};

Target triaxial_target(const HostPoint& h) {
    const double s = std::sin(P(h, 6) * kDeg);
    const double ccot = P(h, 5) * std::cos(P(h, 6) * kDeg) / s;
    const double T = P(h, 12);
    const double qf = 2 * s / (1 - s) * std::max(ccot + P(h, 9), std::max(0.0, ccot - T));
    return {qf, qf / 2, qf / (2 * P(h, 1))};
}

// ---------------------------------------------------------------------------
// The host's side of a laboratory test.

// Inverse of a 6x6 column-major matrix: Gauss-Jordan with row pivoting.
Mat6 inverse(const Mat6& A) {
    Mat6 W = A, X{};
    for (int i = 0; i < 6; ++i) X[static_cast<size_t>(i * 7)] = 1.0;
    auto at = [](Mat6& M, int i, int j) -> double& { return M[static_cast<size_t>(i + 6 * j)]; };
    for (int k = 0; k < 6; ++k) {
        int p = k;
        for (int i = k + 1; i < 6; ++i)
            if (std::fabs(at(W, i, k)) > std::fabs(at(W, p, k))) p = i;
        for (int j = 0; j < 6; ++j) {
            std::swap(at(W, k, j), at(W, p, j));
            std::swap(at(X, k, j), at(X, p, j));
        }
        const double pivot = at(W, k, k);
        for (int j = 0; j < 6; ++j) {
            at(W, k, j) /= pivot;
            at(X, k, j) /= pivot;
        }
        for (int i = 0; i < 6; ++i) {
            if (i == k) continue;
            const double f = at(W, i, k);
            for (int j = 0; j < 6; ++j) {
                at(W, i, j) -= f * at(W, k, j);
                at(X, i, j) -= f * at(X, k, j);
            }
        }
    }
    return X;
}

// One stress-controlled step: the host asks for the stiffness (task 3),
// turns the stress step dSig (host sign) into a strain step with its
// inverse, and lets the model update the point (task 2).
struct StressControlled {
    HostPoint h;
    std::array<double, 6> eps{};  // accumulated strain, host sign
    double lastDSigAxial = 0.0, lastDEpsAxial = 0.0;
    long steps = 0;

    void step(const std::array<double, 6>& dSig) {
        h.call(3);
        const Mat6 C = inverse(h.D);
        for (size_t i = 0; i < 6; ++i) {
            double e = 0.0;
            for (size_t j = 0; j < 6; ++j) e += C[i + 6 * j] * dSig[j];
            h.dEps[i] = e;
        }
        h.call(2);
        for (size_t i = 0; i < 6; ++i) eps[i] += h.dEps[i];
        lastDSigAxial = dSig[1];
        lastDEpsAxial = h.dEps[1];
        h.Sig0 = h.Sig;
        h.StVar0 = h.StVar;
        h.Pw0 = h.Pw;
        ++steps;
    }
    // Compression positive: axial (y) and lateral (x, z) stresses.
    double axial() const { return -h.Sig0[1]; }
    double lateral_x() const { return -h.Sig0[0]; }
    double lateral_z() const { return -h.Sig0[2]; }
};

// Drained triaxial compression at 100 from an isotropic state with no
// shear history and the cap at 100 (the calibration's sample), axial stress
// steps of 0.01 with the cell pressure restored in every step. Returns the
// axial strain (compression positive) of the first step that reaches q50.
double triaxial_strain_at_q50(const std::vector<double>& props, double q50, long* steps = nullptr) {
    StressControlled t{soil_point(props)};
    t.h.Sig0 = {-100.0, -100.0, -100.0, 0, 0, 0};
    t.h.StVar0 = {1e-09, -100.0};
    do {
        t.step({-100.0 + t.lateral_x(), -0.01, -100.0 + t.lateral_z(), 0, 0, 0});
    } while (t.axial() - std::min(t.lateral_x(), t.lateral_z()) < q50);
    if (steps != nullptr) *steps = t.steps;
    return -t.eps[1];
}

// The same test strain-controlled as a finite-element host would run it:
// axial strain steps dA, the lateral strains found by Newton iteration on
// the cell pressure with the task-3 matrix. The axial strain at q50 by
// linear interpolation.
double triaxial_strain_controlled(const std::vector<double>& props, double q50, double dA) {
    HostPoint h = soil_point(props);
    h.Sig0 = {-100.0, -100.0, -100.0, 0, 0, 0};
    h.StVar0 = {1e-09, -100.0};
    double epsA = 0.0, qPrev = 0.0, ePrev = 0.0;
    auto q = [&] { return -h.Sig0[1] - 100.0; };
    while (q() < q50) {
        qPrev = q();
        ePrev = epsA;
        h.call(3);
        const auto D = h.D;
        const double a = h.d(1, 1), b = h.d(1, 3), c = h.d(3, 1), d = h.d(3, 3);
        double ex = 0.0, ez = 0.0;
        for (int it = 0; it < 100; ++it) {
            h.D = D;
            h.dEps = {ex, -dA, ez, 0, 0, 0};
            h.call(2);
            const double rx = h.Sig[0] + 100.0, rz = h.Sig[2] + 100.0;
            if (std::fabs(rx) + std::fabs(rz) <= 1e-8) break;
            const double det = a * d - b * c;
            ex -= (d * rx - b * rz) / det;
            ez -= (a * rz - c * rx) / det;
        }
        h.Sig0 = h.Sig;
        h.StVar0 = h.StVar;
        epsA += dA;
    }
    return ePrev + (epsA - ePrev) * (q50 - qPrev) / (q() - qPrev);
}

// Loading along sigma3 = K0 sigma1 (K0 = Props(10)) from (1, K0, K0) to
// sigma1 = 500, axial stress steps of 0.01, lateral stresses set to K0 times
// the axial one in every step. The start state is that of a normally
// consolidated sample: gamma_p on the hyperbola at the deviator 1 - K0
// (at most the failure deviator), the cap through the start stresses.
struct K0Result {
    double epsAxial, epsX, epsZ;  // compression positive
    double eoed;                  // last step's constrained modulus, referred to pref
    long steps;
};

K0Result k0_path(const std::vector<double>& props) {
    StressControlled t{soil_point(props)};
    const HostPoint& h = t.h;
    const double K0 = P(h, 10);
    const double s = std::sin(P(h, 6) * kDeg), cc = P(h, 5) * std::cos(P(h, 6) * kDeg);
    const double ccot = cc / s;
    const double qf = 2 * s / (1 - s) * std::max({P(h, 12) + ccot, ccot + K0, 1.0});
    const double q = std::min(1.0 - K0, qf), qa = qf / P(h, 11);
    const double S =
        std::pow(std::max(s * K0 + cc, std::max(1.0, cc)) / (P(h, 9) * s + cc), P(h, 4));
    const double gamma = 2 * q / (P(h, 13) * S) * qa / (qa - q) - 2 * q / (S * P(h, 3));
    const double p = (1 + 2 * K0) / 3, alpha = P(h, 14);
    t.h.Sig0 = {-K0, -1.0, -K0, 0, 0, 0};
    t.h.StVar0 = {gamma, -std::sqrt((1 - K0) * (1 - K0) / (alpha * alpha) + p * p)};
    do {
        const double s3 = K0 * t.axial();
        t.step({-s3 + t.lateral_x(), -0.01, -s3 + t.lateral_z(), 0, 0, 0});
    } while (t.axial() < 500.0);
    const double s1 = t.lateral_z() / K0;
    const double factor = std::pow((s1 * s + cc) / (P(h, 9) * s + cc), P(h, 4));
    return {-t.eps[1], -t.eps[0], -t.eps[2], t.lastDSigAxial / t.lastDEpsAxial / factor, t.steps};
}

// ---------------------------------------------------------------------------
// Child processes: the calibrations run side by side. A child writes the
// library's standard output to one file and its findings, as "name value"
// lines, to another.

int temp_fd() {
    char name[] = "/tmp/tervak_calibXXXXXX";
    const int fd = mkstemp(name);
    unlink(name);
    return fd;
}

std::string slurp(int fd) {
    std::string s;
    char buf[4096];
    ssize_t n;
    for (off_t at = 0; (n = pread(fd, buf, sizeof buf, at)) > 0; at += n)
        s.append(buf, static_cast<size_t>(n));
    return s;
}

struct Child {
    pid_t pid = -1;
    int outFd = -1, resFd = -1;
};

using Findings = std::map<std::string, double>;

void put(int fd, const std::string& name, double v) {
    char line[128];
    const int n = std::snprintf(line, sizeof line, "%s %a\n", name.c_str(), v);
    if (write(fd, line, static_cast<size_t>(n)) != n) std::_Exit(3);
}

Child spawn(const std::function<void(int resFd)>& body) {
    std::fflush(stdout);
    std::fflush(stderr);
    Child c;
    c.outFd = temp_fd();
    c.resFd = temp_fd();
    c.pid = fork();
    if (c.pid == 0) {
        dup2(c.outFd, 1);
        body(c.resFd);
        std::fflush(stdout);
        std::_Exit(0);
    }
    return c;
}

struct ChildOutput {
    std::string out;
    Findings found;
    int status = -1;
};

ChildOutput collect(Child& c) {
    int st = 0;
    waitpid(c.pid, &st, 0);
    ChildOutput r;
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    r.out = slurp(c.outFd);
    std::istringstream in(slurp(c.resFd));
    std::string name, value;
    while (in >> name >> value) r.found[name] = std::strtod(value.c_str(), nullptr);
    close(c.outFd);
    close(c.resFd);
    return r;
}

// Runs task 7 on props in the calling process; returns the props after.
std::vector<double> task7(const std::vector<double>& props, int model = 1) {
    HostPoint h = soil_point(props, model);
    h.call(7);
    return std::vector<double>(h.Props.begin(), h.Props.begin() + 50);
}

// ---------------------------------------------------------------------------
// Reading the printed lines.

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> v;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) v.push_back(l);
    return v;
}

// A line " <label>" followed by exactly one number: the number, else NaN.
double labelled_value(const std::string& line, const std::string& label) {
    const std::string head = " " + label;
    if (line.compare(0, head.size(), head) != 0) return std::nan("");
    const std::string rest = line.substr(head.size());
    if (rest.empty() || rest[0] != ' ') return std::nan("");
    char* end = nullptr;
    const double v = std::strtod(rest.c_str(), &end);
    if (end == rest.c_str()) return std::nan("");
    for (; *end != '\0'; ++end)
        if (*end != ' ') return std::nan("");
    return v;
}

// The values on a line after its label.
std::vector<double> values_after(const std::string& line, const std::string& label) {
    std::vector<double> v;
    if (line.compare(0, label.size(), label) != 0) return v;
    std::istringstream in(line.substr(label.size()));
    for (std::string tok; in >> tok;) v.push_back(std::strtod(tok.c_str(), nullptr));
    return v;
}

// The calibration's printed lines, taken apart.
struct Transcript {
    bool ok = false;  // every line has its expected label, in order
    std::string error;
    std::vector<double> propsLine;
    std::vector<std::pair<int, double>> eiSteps;  // +1 increase, -1 reduce
    double eiDetermined = NAN;
    std::vector<std::pair<int, double>> k0Steps;
    double ei = NAN, beta = NAN, alfa = NAN, k0 = NAN, eoed = NAN;
};

Transcript read_transcript(const std::string& text) {
    Transcript t;
    const auto L = lines_of(text);
    size_t i = 0;
    auto fail = [&](const std::string& why) {
        t.error = why + " at line " + std::to_string(i + 1) + ": \"" +
                  (i < L.size() ? L[i] : std::string("<end>")) + "\"";
        return t;
    };
    if (i >= L.size() || L[i] != " Iterative_hss started") return fail("start line");
    ++i;
    if (i >= L.size()) return fail("Props line");
    t.propsLine = values_after(L[i], " Props ");
    if (t.propsLine.size() != 15) return fail("Props line with 15 values");
    ++i;
    for (;; ++i) {
        if (i >= L.size()) return fail("Ei search");
        double v;
        if (!std::isnan(v = labelled_value(L[i], "increase Ei_ref_inter to")))
            t.eiSteps.push_back({+1, v});
        else if (!std::isnan(v = labelled_value(L[i], "reduce Ei_ref_inter to")))
            t.eiSteps.push_back({-1, v});
        else if (!std::isnan(v = labelled_value(L[i], "Ei_ref_inter is determined:"))) {
            t.eiDetermined = v;
            ++i;
            break;
        } else
            return fail("Ei search line");
    }
    for (;; ++i) {
        if (i >= L.size()) return fail("K0 search");
        double v;
        if (!std::isnan(v = labelled_value(L[i], "reduce K0_nc_inter to")))
            t.k0Steps.push_back({-1, v});
        else if (!std::isnan(v = labelled_value(L[i], "increase K0_nc_inter to")))
            t.k0Steps.push_back({+1, v});
        else
            break;
    }
    const std::pair<const char*, double*> tail[] = {{"Ei_ref_inter", &t.ei},
                                                    {"beta", &t.beta},
                                                    {"alfa", &t.alfa},
                                                    {"xK0_nc_inter", &t.k0},
                                                    {"Eoed_ref_inter", &t.eoed}};
    for (const auto& [label, out] : tail) {
        if (i >= L.size()) return fail(std::string("final line ") + label);
        *out = labelled_value(L[i], label);
        if (std::isnan(*out)) return fail(std::string("final line ") + label);
        ++i;
    }
    if (i != L.size()) return fail("end of output");
    t.ok = true;
    return t;
}

// The values the search must have tried, from its rules and the directions
// it printed. Ei: 1 % steps, times 0.99 at each turn (the first run counts as
// coming from an increase), 0.0010000000474974513 at the 101st run and
// every 101 runs after. K0: 0.5 % steps, times 0.8 at each turn but not below
// 1e-07, the fine step at the 61st run and every 61 runs after.
std::vector<double> replay_ei(double ei, const std::vector<std::pair<int, double>>& steps) {
    std::vector<double> v;
    double step = 0.01;
    int direction = 1, counter = 0;
    for (const auto& [dir, printed] : steps) {
        if (++counter == 101) {
            counter = 0;
            step = 0.0010000000474974513;
        }
        if (dir != direction) step = step * 0.99;
        ei = dir > 0 ? (1.0 + step) * ei : (1.0 - step) * ei;
        direction = dir;
        v.push_back(ei);
        (void)printed;
    }
    return v;
}

std::vector<double> replay_k0(double k0, const std::vector<std::pair<int, double>>& steps) {
    std::vector<double> v;
    double step = 0.005;
    int direction = 1, counter = 0;  // +1: came from a reduction
    for (const auto& [dir, printed] : steps) {
        if (++counter == 61) {
            counter = 0;
            step = 0.0010000000474974513;
        }
        const int d = dir > 0 ? -1 : +1;  // an increase is printed after direction -1
        if (d != direction) step = std::max(step * 0.8, 1e-07);
        k0 = dir > 0 ? k0 * (1.0 + step) : k0 * (1.0 - step);
        direction = d;
        v.push_back(k0);
        (void)printed;
    }
    return v;
}

// ---------------------------------------------------------------------------
// One example soil, studied in a child process.

struct Study {
    std::vector<double> bundled, before, after, again;
    std::string out, outAgain;
    Findings found;
    int status = -1;
};

std::map<std::string, Study>& studies() {
    static std::map<std::string, Study> s;
    return s;
}

void study_child(const std::string& soil, int res) {
    using clock = std::chrono::steady_clock;
    const auto before = start_props(soil);
    // Task 7 through user_mod_, with everything else the host passes marked.
    HostPoint h = soil_point(before);
    h.Sig0 = {1, 2, 3, 4, 5, 6};
    h.StVar0 = {7, 8};
    h.D.fill(9.0);
    h.BulkW = 10.0;
    const auto t0 = clock::now();
    const auto cpu0 = std::clock();
    h.call(7);
    const auto t1 = clock::now();
    put(res, "wall", std::chrono::duration<double>(t1 - t0).count());
    put(res, "cpu", double(std::clock() - cpu0) / CLOCKS_PER_SEC);
    std::fflush(stdout);
    const bool untouched = h.Sig0 == std::array<double, 6>{1, 2, 3, 4, 5, 6} &&
                           h.StVar0 == std::array<double, 2>{7, 8} &&
                           std::all_of(h.D.begin(), h.D.end(), [](double x) { return x == 9.0; }) &&
                           h.BulkW == 10.0 && h.Sig == std::array<double, 6>{} &&
                           h.StVar == std::array<double, 2>{} && h.iPlast == -99 &&
                           h.nStat == -99 && h.NonSym == -99 && h.Tangent == -99;
    put(res, "untouched", untouched ? 1.0 : 0.0);
    for (int i = 0; i < 50; ++i) put(res, "P" + std::to_string(i + 1), h.Props[size_t(i)]);
    const std::vector<double> after(h.Props.begin(), h.Props.begin() + 50);

    // The soil file as it is: calibrated, one run of each search.
    std::printf("----\n");
    std::fflush(stdout);
    const auto t2 = clock::now();
    const auto again = task7(soil_props(soil));
    put(res, "wallAgain", std::chrono::duration<double>(clock::now() - t2).count());
    for (int i = 0; i < 50; ++i) put(res, "A" + std::to_string(i + 1), again[size_t(i)]);

    // The laboratory tests with the calibrated parameters.
    const Target tg = triaxial_target(soil_point(after));
    long steps = 0;
    put(res, "eps50", triaxial_strain_at_q50(after, tg.q50, &steps));
    put(res, "txSteps", double(steps));
    const auto t3 = clock::now();
    put(res, "eps50Strain", triaxial_strain_controlled(after, tg.q50, 1e-5));
    put(res, "wallStrain", std::chrono::duration<double>(clock::now() - t3).count());
    // That the bands are sharp is a property of the procedure: one soil
    // shows it.
    const bool sharp = soil == kStudied[0];
    if (sharp) {
        auto stiffer = after;
        stiffer[12] *= 1.005;
        put(res, "eps50Stiffer", triaxial_strain_at_q50(stiffer, tg.q50));
    }
    const K0Result k = k0_path(after);
    put(res, "k0Axial", k.epsAxial);
    put(res, "k0X", k.epsX);
    put(res, "k0Z", k.epsZ);
    put(res, "k0Eoed", k.eoed);
    put(res, "k0Steps", double(k.steps));
    if (sharp) {
        auto higher = after;
        higher[9] *= 1.001;
        const K0Result kh = k0_path(higher);
        put(res, "k0HigherAxial", kh.epsAxial);
        put(res, "k0HigherX", kh.epsX);
    }
    put(res, "wallLab", std::chrono::duration<double>(clock::now() - t3).count());
    put(res, "done", 1.0);
}

class Calibration : public ::testing::TestWithParam<const char*> {
protected:
    static void SetUpTestSuite() {
        if (!studies().empty()) return;
        std::vector<std::pair<std::string, Child>> running;
        for (const char* soil : kStudied)
            running.push_back({soil, spawn([soil](int res) { study_child(soil, res); })});
        for (auto& [soil, child] : running) {
            ChildOutput r = collect(child);
            Study st;
            st.status = r.status;
            st.bundled = soil_props(soil);
            st.before = start_props(soil);
            st.found = r.found;
            const auto cut = r.out.find("----\n");
            st.out = r.out.substr(0, cut);
            st.outAgain = cut == std::string::npos ? std::string() : r.out.substr(cut + 5);
            for (int i = 1; i <= 50; ++i) {
                st.after.push_back(r.found["P" + std::to_string(i)]);
                st.again.push_back(r.found["A" + std::to_string(i)]);
            }
            auto& f = r.found;  // printed; missing values read as 0
            std::printf(
                "[ calibration ] %-10s task 7: %.1f s wall, %.1f s cpu; %zu + 1 runs for "
                "Ei, %zu + 1 runs for K0; soil file: %.1f s; host tests: %.1f s "
                "(strain-controlled %.1f s)\n",
                soil.c_str(), f["wall"], f["cpu"],
                read_transcript(st.out).eiSteps.size(), read_transcript(st.out).k0Steps.size(),
                f["wallAgain"], f["wallLab"], f["wallStrain"]);
            const double eps50 = triaxial_target(soil_point(st.after)).eps50;
            std::printf(
                "[ calibration ] %-10s Ei %.6g -> %.6g, K0 %.6g -> %.6g; eps at q50 / "
                "target: %.6f (strain-controlled %.6f, Ei +0.5 %% %.6f); K0 path "
                "eps_x/eps1 %.3g, eps_z/eps1 %.3g (K0 +0.1 %% %.3g)\n",
                soil.c_str(), st.before[12], st.after[12], st.before[9], st.after[9],
                f["eps50"] / eps50, f["eps50Strain"] / eps50,
                f["eps50Stiffer"] / eps50, f["k0X"] / f["k0Axial"],
                f["k0Z"] / f["k0Axial"],
                f["k0HigherX"] / f["k0HigherAxial"]);
            studies()[soil] = std::move(st);
        }
    }
    const Study& study() { return studies().at(GetParam()); }
};

TEST_P(Calibration, ChildCompleted) {
    const Study& s = study();
    ASSERT_EQ(s.status, 0);
    EXPECT_EQ(s.found.count("done"), 1u) << "the child ended early";
}

TEST_P(Calibration, WritesOnlyPositions10And13) {
    const Study& s = study();
    ASSERT_EQ(s.status, 0);
    EXPECT_EQ(s.found.at("untouched"), 1.0);
    for (size_t i = 0; i < 50; ++i) {
        if (i == 9 || i == 12) continue;
        const double was = i < s.before.size() ? s.before[i] : 0.0;
        EXPECT_EQ(s.after[i], was) << "Props(" << i + 1 << ")";
    }
    EXPECT_NE(s.after[12], s.before[12]) << "the start is off the calibrated Ei";
    EXPECT_NE(s.after[9], s.before[9]) << "the start is off the calibrated K0";
}

TEST_P(Calibration, TriaxialWithCalibratedEiReachesHalfTheFailureDeviatorAtTheTargetStrain) {
    const Study& s = study();
    ASSERT_EQ(s.status, 0);
    const Target tg = triaxial_target(soil_point(s.after));
    // The host's procedure repeats the calibration's one, so its strain is
    // in the calibration's band; the two differ only by rounding (the model
    // and the calibration return through different kernels to the same
    // corner), measured below 1e-8, allowed 1e-6.
    const double ratio = s.found.at("eps50") / tg.eps50;
    EXPECT_LE(std::fabs(ratio - 1.0), 1e-3 + 1e-6) << "eps50 / target = " << ratio;
    // The band is sharp: 0.5 % more Ei leaves it (shown on one soil).
    if (s.found.count("eps50Stiffer")) {
        const double stiffer = s.found.at("eps50Stiffer") / tg.eps50;
        EXPECT_LT(stiffer, 1.0 - 1e-3) << stiffer;
    }
    // A strain-controlled test with steps of 1e-5 and the cell pressure
    // held by Newton iteration, as a finite-element host runs it: the
    // discretisation differs, measured within 1e-4 of the fine path; the
    // band is widened by 2e-4.
    const double strainControlled = s.found.at("eps50Strain") / tg.eps50;
    EXPECT_LE(std::fabs(strainControlled - 1.0), 1e-3 + 2e-4) << strainControlled;
    EXPECT_NEAR(strainControlled, ratio, 2e-4);
}

TEST_P(Calibration, K0PathWithCalibratedK0HasNoLateralStrain) {
    const Study& s = study();
    ASSERT_EQ(s.status, 0);
    const double e1 = s.found.at("k0Axial"), ex = s.found.at("k0X"), ez = s.found.at("k0Z");
    EXPECT_GT(e1, 0.0);
    // The calibration measures one lateral component; the host's two lateral
    // components differ by the rounding of the edge return, a few per cent
    // of the band (measured), allowed 5 %.
    EXPECT_LE(std::fabs(ex), 1.05e-4 * std::fabs(e1)) << "eps_x / eps1 = " << ex / e1;
    EXPECT_LE(std::fabs(ez), 1.05e-4 * std::fabs(e1)) << "eps_z / eps1 = " << ez / e1;
    // The band is sharp: K0 0.1 % higher gives lateral compression well
    // beyond it (shown on one soil).
    if (s.found.count("k0HigherX")) {
        const double higher = s.found.at("k0HigherX") / s.found.at("k0HigherAxial");
        EXPECT_GT(higher, 2e-4) << higher;
    }
}

TEST_P(Calibration, PrintedLinesHaveTheirLabelsAndFollowTheSearchRules) {
    const Study& s = study();
    ASSERT_EQ(s.status, 0);
    const Transcript t = read_transcript(s.out);
    ASSERT_TRUE(t.ok) << t.error << "\n" << s.out;
    for (size_t i = 0; i < 15; ++i)
        EXPECT_EQ(t.propsLine[i], s.before[i]) << "Props(" << i + 1 << ")";

    const auto ei = replay_ei(s.before[12], t.eiSteps);
    for (size_t i = 0; i < ei.size(); ++i)
        EXPECT_EQ(t.eiSteps[i].second, ei[i]) << "Ei run " << i + 1;
    const double eiEnd = ei.empty() ? s.before[12] : ei.back();
    EXPECT_EQ(t.eiDetermined, eiEnd);
    EXPECT_EQ(s.after[12], eiEnd);

    const auto k0 = replay_k0(s.before[9], t.k0Steps);
    for (size_t i = 0; i < k0.size(); ++i)
        EXPECT_EQ(t.k0Steps[i].second, k0[i]) << "K0 run " << i + 1;
    EXPECT_EQ(s.after[9], k0.empty() ? s.before[9] : k0.back());

    EXPECT_EQ(t.ei, s.after[12]);
    EXPECT_EQ(t.beta, s.after[14]);
    EXPECT_EQ(t.alfa, s.after[13]);
    EXPECT_EQ(t.k0, s.after[9]);
    // Eoed: the last step's constrained modulus of the K0 path, referred to
    // pref; the host's path repeats it (rounding only).
    EXPECT_NEAR(t.eoed, s.found.at("k0Eoed"), 1e-6 * t.eoed);
}

TEST_P(Calibration, SoilFileIsCalibratedDeterminedInOneRunAndLeftAsItIs) {
    const Study& s = study();
    ASSERT_EQ(s.status, 0);
    const Transcript t = read_transcript(s.outAgain);
    ASSERT_TRUE(t.ok) << t.error << "\n" << s.outAgain;
    EXPECT_TRUE(t.eiSteps.empty());
    EXPECT_TRUE(t.k0Steps.empty());
    const auto L = lines_of(s.outAgain);
    ASSERT_EQ(L.size(), 8u);
    EXPECT_EQ(labelled_value(L[2], "Ei_ref_inter is determined:"), s.bundled[12]);
    for (size_t i = 0; i < 50; ++i) {
        const double was = i < s.bundled.size() ? s.bundled[i] : 0.0;
        EXPECT_EQ(s.again[i], was) << "Props(" << i + 1 << ")";
    }
    // The search from the moved start comes back next to the file's values:
    // the bands are some 0.5 % wide in Ei and 0.1 % in K0.
    EXPECT_NEAR(s.after[12], s.bundled[12], 5e-3 * s.bundled[12]);
    EXPECT_NEAR(s.after[9], s.bundled[9], 1e-3 * s.bundled[9]);
}

INSTANTIATE_TEST_SUITE_P(ExampleSoils, Calibration, ::testing::ValuesIn(kStudied),
                         [](const ::testing::TestParamInfo<const char*>& i) {
                             return std::string(i.param);
                         });

// ---------------------------------------------------------------------------

TEST(CalibrationTask, Model3DoesNothing) {
    for (const char* soil : kSoils) {
        SCOPED_TRACE(soil);
        HostPoint h = soil_point(soil_props(soil), 3);
        const auto before = h.Props;
        h.Sig0 = {1, 2, 3, 4, 5, 6};
        h.StVar0 = {7, 8};
        const HostPoint copy = h;
        const std::string out = tervak_test::capture_stdout([&] { h.call(7); });
        EXPECT_EQ(out, "");
        EXPECT_EQ(h.Props, before);
        EXPECT_EQ(h.Sig0, copy.Sig0);
        EXPECT_EQ(h.StVar0, copy.StVar0);
        EXPECT_EQ(h.Sig, copy.Sig);
        EXPECT_EQ(h.StVar, copy.StVar);
        EXPECT_EQ(h.D, copy.D);
        EXPECT_EQ(h.iPlast, copy.iPlast);
        EXPECT_EQ(h.nStat, copy.nStat);
    }
}

TEST(CalibrationTask, AfterHundredRunsTheEiStepDropsToTheFineStep) {
    // A set whose runs are short (reference pressure 0.5: q50 is tiny) and
    // whose Ei starts so far off that 100 steps of 1 % do not reach the band.
    // Only the Ei search is watched: the child is stopped once it is done.
    std::vector<double> props = soil_props("loose_sand");
    props[8] = 0.5;
    props[12] = 2200.0;
    Child c = spawn([&](int) { task7(props); });
    std::string out;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    for (;;) {
        out = slurp(c.outFd);
        if (out.find("Ei_ref_inter is determined:") != std::string::npos) break;
        int st = 0;
        if (waitpid(c.pid, &st, WNOHANG) == c.pid || std::chrono::steady_clock::now() > deadline) {
            c.pid = -1;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (c.pid > 0) {
        kill(c.pid, SIGKILL);
        waitpid(c.pid, nullptr, 0);
    }
    close(c.outFd);
    close(c.resFd);
    ASSERT_NE(out.find("Ei_ref_inter is determined:"), std::string::npos) << out;
    const auto L = lines_of(out);
    std::vector<std::pair<int, double>> steps;
    for (size_t i = 2; i < L.size(); ++i) {
        double v;
        if (!std::isnan(v = labelled_value(L[i], "increase Ei_ref_inter to")))
            steps.push_back({+1, v});
        else if (!std::isnan(v = labelled_value(L[i], "reduce Ei_ref_inter to")))
            steps.push_back({-1, v});
        else
            break;
    }
    ASSERT_GT(steps.size(), 101u) << "the set no longer needs more than 100 runs";
    // Runs 1 to 100 step by 1 % (all increases here), run 101 by the fine step.
    EXPECT_EQ(steps[99].second, (1.0 + 0.01) * steps[98].second);
    EXPECT_EQ(steps[100].second, (1.0 + 0.0010000000474974513) * steps[99].second);
    const auto ei = replay_ei(props[12], steps);
    for (size_t i = 0; i < ei.size(); ++i) EXPECT_EQ(steps[i].second, ei[i]) << "run " << i + 1;
}

}  // namespace
