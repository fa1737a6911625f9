// Model 2: hardening soil with small-strain stiffness and a memory of strain
// reversals, diagnostics at element 11, point 4.
#include "models/models.hpp"
#include "models/small_strain.hpp"

namespace tervak {

void mymodel2(const ModelArgs& a) { ss::small_strain_model(a, ss::kModel2); }

}  // namespace tervak
