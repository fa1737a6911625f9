// The material of a call, read from the host's Props through the models'
// named parameter tables.
#pragma once

#include "toolkit/material.hpp"

namespace tervak {

// The hardening-soil material of model iModel (1 to 4). Any other number
// gives a material that is not `known`, every parameter 0.
HsMaterial read_material(int iModel, const double* Props);

}  // namespace tervak
