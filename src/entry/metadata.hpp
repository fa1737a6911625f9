// What the companion routines answer: the number of models, their names,
// and the names, units and counts of their parameters and state variables,
// all read from the tables in models/parameters.hpp. Anything out of range
// answers an empty text and a count of zero.
#pragma once

#include <cstddef>
#include <string_view>

namespace tervak::meta {

int model_count();
std::string_view model_name(int iMod);
int param_count(int iMod);
std::string_view param_name(int iMod, int iParam);
std::string_view param_unit(int iMod, int iParam);
int state_count(int iMod);
std::string_view state_name(int iMod, int iVar);
std::string_view state_unit(int iMod, int iVar);

// The valid range of a parameter: kind 0 when none is known, otherwise
// 1 + 2 (lower end open) + 4 (upper end open); infinite ends mean no limit.
struct ParamRange {
    double lo, hi;
    int kind;
};
ParamRange param_range(int iMod, int iParam);

// Writes text into a length-prefixed character buffer of `len` bytes: the
// first byte holds the number of characters that follow. Writes at most
// `len` bytes (and at most 255 characters), nothing when `buf` is null or
// `len` is 0, and never touches the bytes after the text.
void put_counted(char* buf, std::size_t len, std::string_view text);

}  // namespace tervak::meta
