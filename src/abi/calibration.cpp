// Exported calibration routine (model 1, task 7).
#include "abi/export.hpp"
#include "models/models.hpp"

TERVAK_API void iterative_hss_(double* Props, int32_t* option) noexcept {
    tervak::Iterative_hss(Props, *option);
}
