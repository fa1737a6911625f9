// Model 1: the hardening-soil model with English diagnostics at one
// hard-wired stress point (element 487, point 3) and the parameter
// calibration as task 7.
#include "models/hardening_soil.hpp"
#include "models/models.hpp"

namespace tervak {

namespace {
constexpr hs::Variant kModel1{
    /*option=*/1,
    /*iElDbg=*/-1,
    /*IntDbg=*/0,
    /*debugAlways=*/false,
    /*headerTime=*/true,
    /*extraValues=*/false,
    /*text=*/&sp::kEnglish,
    /*calibrate=*/&Iterative_hss,  // task 7: Iterative_hss(Props, 1)
};
}  // namespace

void mymodel1(const ModelArgs& a) { hs::hardening_soil(a, kModel1); }

}  // namespace tervak
