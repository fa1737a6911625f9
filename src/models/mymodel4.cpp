// Model 4: model 2 with its settled differences (higher floors of the
// initial hardening pair, the bounded reference-modulus bookkeeping and the
// further zero tests of the reversal memory); kernels receive model number 4.
#include "models/models.hpp"
#include "models/small_strain.hpp"

namespace tervak {

void mymodel4(const ModelArgs& a) { ss::small_strain_model(a, ss::kModel4); }

}  // namespace tervak
