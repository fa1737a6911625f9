#include "tervak_lab.h"

#include <cstring>
#include <memory>

#include "lab_error.hpp"
#include "lab_file.hpp"
#include "lab_run.hpp"

using namespace tervak::lab;

struct tervak_lab_point {
    std::unique_ptr<ModelLibrary> lib;
    std::unique_ptr<PointDriver> drv;
};

extern "C" {

tervak_lab_point* tervak_lab_open(const char* library, int model, const double* props, int nprops,
                                  char* err, size_t errlen) {
    try {
        if (!library) throw LabError("no library path");
        if (nprops < 0 || nprops > 50 || (nprops > 0 && !props)) throw LabError("props: 0 to 50 values");
        auto pt = std::make_unique<tervak_lab_point>();
        pt->lib = std::make_unique<ModelLibrary>(library);
        std::vector<double> p(props, props + nprops);
        pt->drv = std::make_unique<PointDriver>(*pt->lib, model, p);
        return pt.release();
    } catch (const std::exception& e) {
        copy_message(err, errlen, e.what());
        return nullptr;
    }
}

void tervak_lab_close(tervak_lab_point* pt) { delete pt; }

int tervak_lab_initialize(tervak_lab_point* pt, const double sig0[6], double pw0, char* err,
                          size_t errlen) {
    try {
        if (!pt || !sig0) throw LabError("no point or no stresses");
        Vec6 s;
        for (int i = 0; i < 6; ++i) s[i] = sig0[i];
        pt->drv->initialize(s, pw0);
        return 0;
    } catch (const std::exception& e) {
        copy_message(err, errlen, e.what());
        return 1;
    }
}

void tervak_lab_set_solver(tervak_lab_point* pt, double tolerance, int max_iterations, int max_cuts) {
    if (!pt) return;
    SolverOptions s = pt->drv->solver();
    if (tolerance > 0 && tolerance < 1) s.tolerance = tolerance;
    if (max_iterations > 0) s.max_iterations = max_iterations;
    if (max_cuts >= 0 && max_cuts <= 40) s.max_cuts = max_cuts;
    pt->drv->set_solver(s);
}

int tervak_lab_stage(tervak_lab_point* pt, const int control[6], const int relative[6],
                     const double value[6], int steps, int undrained, unsigned tie_mask, char* err,
                     size_t errlen) {
    try {
        if (!pt || !control || !relative || !value) throw LabError("missing stage arrays");
        StagePlan s;
        s.steps = steps;
        s.undrained = undrained != 0;
        for (int i = 0; i < 6; ++i) {
            if (control[i] != TERVAK_LAB_STRAIN && control[i] != TERVAK_LAB_STRESS)
                throw LabError(std::string("control of component ") + kComponentNames[i] + " must be 0 or 1");
            s.comp[i] = ComponentPath{control[i] == TERVAK_LAB_STRAIN ? Control::Strain : Control::Stress,
                                      relative[i] != 0, value[i]};
        }
        std::vector<int> tie;
        for (int i = 0; i < 6; ++i)
            if (tie_mask & (1u << i)) tie.push_back(i);
        if (tie.size() >= 2) s.ties.push_back(tie);
        pt->drv->run_stage(s, 1, nullptr);
        return 0;
    } catch (const std::exception& e) {
        copy_message(err, errlen, e.what());
        return 1;
    }
}

int tervak_lab_state(const tervak_lab_point* pt, double sig[6], double eps[6], double* pw, double* sv,
                     int nsv) {
    if (!pt) return -1;
    const PointState& st = pt->drv->state();
    for (int i = 0; i < 6; ++i) {
        if (sig) sig[i] = st.sig[i];
        if (eps) eps[i] = st.eps[i];
    }
    if (pw) *pw = st.pw;
    int n = static_cast<int>(st.sv.size());
    for (int i = 0; sv && i < n && i < nsv; ++i) sv[i] = st.sv[i];
    return n;
}

int tervak_lab_run_file(const char* test_file, const char* library, const char* out_dir, char* err,
                        size_t errlen) {
    try {
        if (!test_file || !library) throw LabError("no test file or library");
        ModelLibrary lib(library);
        TestFile tf = load_test_file(test_file, lib);
        RunOptions opt;
        if (out_dir) opt.out_dir = out_dir;
        int status = 0;
        std::string first;
        for (const auto& t : tf.tests) {
            TestResult r = run_test(lib, tf, t, opt);
            if (!r.ok) {
                status = 1;
                if (first.empty()) first = r.id + ": " + r.error;
            }
        }
        copy_message(err, errlen, first);
        return status;
    } catch (const std::exception& e) {
        copy_message(err, errlen, e.what());
        return 2;
    }
}

}  // extern "C"
