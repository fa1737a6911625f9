// The C API's checking and calibration entries (tervak_lab.h).
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "lab_error.hpp"
#include "lab_file.hpp"
#include "tervak_lab.h"

using namespace tervak::lab;

extern "C" {

int tervak_lab_check_file(const char* test_file, const char* library, char* err, size_t errlen) {
    try {
        if (!test_file || !library) throw LabError("no test file or library");
        ModelLibrary lib(library);
        (void)load_test_file(test_file, lib);
        copy_message(err, errlen, "");
        return 0;
    } catch (const std::exception& e) {
        copy_message(err, errlen, e.what());
        return 2;
    }
}

int tervak_lab_calibrate(const char* library, int model, double* props, int nprops, char* err,
                         size_t errlen) {
    try {
        if (!library) throw LabError("no library path");
        if (nprops < 1 || nprops > 50 || !props) throw LabError("props: 1 to 50 values");
        ModelLibrary lib(library);
        // The host's call for task 7: only the task, the model and the
        // parameters matter; everything else is a zeroed placeholder.
        std::vector<double> p(50, 0.0);
        std::copy(props, props + nprops, p.begin());
        int32_t id = 7, im = model, iu = 0, is = 0, it = 0, iel = 1, ip = 1;
        int32_t iplast = 0, nstat = 0, nonsym = 0, strsdep = 0, timedep = 0, tangent = 0;
        double time0 = 0, pw0 = 0, pw = 0, bulkw = 0, host = 0;
        double sig0[6] = {}, sig[6] = {}, deps[6] = {}, D[36] = {}, sv0[1] = {}, sv[1] = {};
        lib.user_mod()(&id, &im, &iu, &is, &it, &iel, &ip, &host, &host, &host, &time0, &host, p.data(), sig0,
                       &pw0, sv0, deps, D, &bulkw, sig, &pw, sv, &iplast, &nstat, &nonsym, &strsdep, &timedep,
                       &tangent, &host, &host, &host);
        std::fflush(stdout);
        std::copy(p.begin(), p.begin() + nprops, props);
        copy_message(err, errlen, "");
        return 0;
    } catch (const std::exception& e) {
        copy_message(err, errlen, e.what());
        return 2;
    }
}

}  // extern "C"
