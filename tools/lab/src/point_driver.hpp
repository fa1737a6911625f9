// The single-point host simulator: one stress point driven through a
// sequence of stages with the calling order of a finite-element host.
//
// Conventions inside the driver are the host's: tension positive, strain
// components xx, yy, zz, xy, yz, zx with engineering shear strains, pore
// pressure Pw with the same sign as the stresses, so that the total stress
// is Sig + Pw m (m = 1 for the normal components).
#pragma once

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "lab_error.hpp"
#include "model_library.hpp"

namespace tervak::lab {

using Vec6 = std::array<double, 6>;
using Mat6 = std::array<double, 36>;  // column-major, D[i + 6 j]

extern const char* const kComponentNames[6];  // "xx", "yy", "zz", "xy", "yz", "zx"

enum class Control : unsigned char { Strain, Stress };

// What one component does over a stage. Strain control prescribes the
// total strain, stress control the total stress (effective plus pore
// pressure). relative = the value is a change over the stage, otherwise
// the value reached at the end of the stage.
struct ComponentPath {
    Control control = Control::Stress;
    bool relative = true;
    double value = 0.0;
};

struct StagePlan {
    std::string name;
    int steps = 1;
    bool undrained = false;
    std::array<ComponentPath, 6> comp{};
    // Stress-controlled components that share one strain unknown (the two
    // lateral strains of a cylindrical sample); the sum of their
    // out-of-balance stresses is driven to zero.
    std::vector<std::vector<int>> ties;
};

struct HostOptions {
    int element = 1;
    int point = 1;
    int stiffness_task = 3;  // 3 (material stiffness) or 6 (elastic)
};

struct SolverOptions {
    double tolerance = 1e-8;  // relative to the stress level of the increment
    int max_iterations = 60;
    int max_cuts = 12;        // halvings of an increment before giving up
    bool accelerate = true;   // secant (Broyden) updates on top of D
    bool trace = false;       // one line per iteration on standard error
};

struct PointState {
    Vec6 sig{};  // effective stresses
    double pw = 0.0;
    Vec6 eps{};  // total strains since the start of the test
    std::vector<double> sv;
};

struct Attributes {
    int nstat = 0, nonsym = 0, strsdep = 0, timedep = 0, tangent = 0;
};

struct IncrementRecord {
    int stage = 0;       // 1-based stage number (0 = initial state)
    int increment = 0;   // 1-based increment of the stage being worked on
    int increments = 0;  // increments of the stage
    long step = 0;       // converged increments since the start, 1-based
    double fraction = 0.0;  // part of the stage done
    int iplast = 0;
    int iterations = 0;  // stress calls of the converged attempt
    int cuts = 0;        // current halvings of the increment
    bool undrained = false;
};

// Thrown when an increment cannot be brought to balance.
struct IncrementFailure : LabError {
    IncrementFailure(const std::string& what, int stage_, int increment_)
        : LabError(what), stage(stage_), increment(increment_) {}
    int stage;
    int increment;
};

struct Unknowns;  // the stress-controlled unknowns of an increment

class PointDriver {
public:
    using Callback = std::function<void(const IncrementRecord&, const PointState&)>;

    PointDriver(const ModelLibrary& lib, int model, std::vector<double> props,
                HostOptions host = {}, SolverOptions solver = {});

    // Tasks 4, 5 and 1: allocates the state variables, reads the matrix
    // attributes and initialises the state from the initial effective
    // stresses (host sign). sv0 pre-fills the state variables (rest zero).
    void initialize(const Vec6& sig0, double pw0, const std::vector<double>& sv0 = {});

    // Runs one stage; calls cb after every converged increment. Throws
    // IncrementFailure when an increment cannot converge; the state stays
    // at the last converged increment.
    void run_stage(const StagePlan& stage, int stage_number, const Callback& cb);

    const PointState& state() const { return state_; }
    const Attributes& attributes() const { return attr_; }
    int model() const { return model_; }
    const std::vector<double>& props() const { return props_; }
    long increments() const { return increments_; }
    long stress_calls() const { return stress_calls_; }
    void set_solver(const SolverOptions& s) { solver_ = s; }
    const SolverOptions& solver() const { return solver_; }

    // The stiffness answer (task 3 or 6) at the committed state.
    void stiffness(bool undrained, Mat6& D, double& bulkw);

private:
    struct Trial {
        Vec6 sig{};
        double pw = 0.0;
        std::vector<double> sv;
        int iplast = 0;
        int iterations = 0;
        Vec6 deps{};
    };
    void read_attributes(const Vec6& sig0);
    void commit(const Trial& t, const StagePlan& stage, int stage_number, int j, double lam, int cuts,
                const Callback& cb);
    bool predict(const Unknowns& u, const std::vector<double>& J0, const Mat6& D, double bulkw,
                 bool undrained, Vec6& deps) const;
    bool answer(const Vec6& deps, bool undrained, long step, int it, const Mat6& D, double bulkw, Trial& t,
                std::string& why);
    bool solve_increment(const std::array<Control, 6>& ctl, const Vec6& target,
                         const std::vector<std::vector<int>>& groups, bool undrained, long step,
                         Trial& out, std::string& why);
    void call(int32_t task, int32_t undrained, int32_t step, int32_t iter, const Vec6& deps,
              double* D, double& bulkw, Vec6& sig, double& pw, std::vector<double>& sv,
              int32_t& iplast);

    tervak_user_mod_fn fn_;
    int model_;
    std::vector<double> props_;
    HostOptions host_;
    SolverOptions solver_;
    Attributes attr_;
    PointState state_;
    bool initialized_ = false;
    long increments_ = 0;
    long stress_calls_ = 0;
    double time_ = 0.0;
};

// Checks that a model number exists in the library (by its metadata, or
// 1 to 4 for the Tervak library); throws LabError otherwise.
void check_model_number(const ModelLibrary& lib, int model);

}  // namespace tervak::lab
