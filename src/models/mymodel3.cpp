// Model 3: the hardening-soil model of model 1 with the stiffness option 3,
// kernels traced at element 11, point 4, Spanish diagnostics written on
// every call, and no calibration task.
#include "models/hardening_soil.hpp"
#include "models/models.hpp"

namespace tervak {

namespace {
constexpr hs::Variant kModel3{
    /*option=*/3,
    /*iElDbg=*/11,
    /*IntDbg=*/4,
    /*debugAlways=*/true,
    /*headerTime=*/false,
    /*extraValues=*/true,
    /*text=*/&sp::kSpanish,
    /*calibrate=*/nullptr,
};
}  // namespace

void mymodel3(const ModelArgs& a) { hs::hardening_soil(a, kModel3); }

}  // namespace tervak
