// The sections of the golden sweep and the inputs they share.
#pragma once

#include <string>

#include "sweep_support.hpp"

namespace sweep {

// Props of model 1 to 4 (25 values written; models 1 and 3 read 16): the
// bundled soils' values spread over a wide range.
void model_props(Rng& r, int model, double* P);
// Host-sign stresses of a soil element: mostly compression, sometimes tension.
void host_stress(Rng& r, double* Sig);
// A strain increment of random direction and size (sometimes zero).
void strain_increment(Rng& r, double* dEps);

void toolkit_sections();
void writer_sections();
void kernel_sections();
void model_sections();
void calibration_sections(const std::string& soilDir);

// FNV-1a of a double array, for inputs that a call may rewrite.
unsigned long long fnv(const double* a, int n);

}  // namespace sweep
