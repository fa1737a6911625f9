// Exported diagnostic writers. The label arrives as a pointer with its
// length appended after the last argument, as Fortran passes a character
// argument. A unit below 1 returns before any other argument is read.
#include <string_view>

#include "abi/export.hpp"
#include "toolkit/writers.hpp"

namespace {
std::string_view label_of(const char* label, std::size_t len) { return {label, len}; }
}  // namespace

TERVAK_API void wrival_(const int32_t* unit, const char* label, const double* x,
                        std::size_t label_len) noexcept {
    if (*unit < 1) return;
    tervak::wrival(*unit, label_of(label, label_len), *x);
}

TERVAK_API void wriivl_(const int32_t* unit, const char* label, const int32_t* k,
                        std::size_t label_len) noexcept {
    if (*unit < 1) return;
    tervak::wriivl(*unit, label_of(label, label_len), *k);
}

TERVAK_API void wriivc_(const int32_t* unit, const char* label, const int32_t* iv,
                        const int32_t* n, std::size_t label_len) noexcept {
    if (*unit < 1) return;
    tervak::wriivc(*unit, label_of(label, label_len), iv, *n);
}

TERVAK_API void wrivec_(const int32_t* unit, const char* label, const double* v,
                        const int32_t* n, std::size_t label_len) noexcept {
    if (*unit < 1) return;
    tervak::wrivec(*unit, label_of(label, label_len), v, *n);
}

TERVAK_API void wrivec5_(const int32_t* unit, const char* label, const double* v,
                         const int32_t* n, std::size_t label_len) noexcept {
    if (*unit < 1) return;
    tervak::wrivec5(*unit, label_of(label, label_len), v, *n);
}

TERVAK_API void wrimat_(const int32_t* unit, const char* label, const double* A,
                        const int32_t* LA, const int32_t* nRow, const int32_t* nCol,
                        std::size_t label_len) noexcept {
    if (*unit < 1) return;
    tervak::wrimat(*unit, label_of(label, label_len), A, *LA, *nRow, *nCol);
}
