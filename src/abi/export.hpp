// The one place that marks symbols for export. Everything exported is
// extern "C", takes every argument by reference, and never lets a C++
// exception escape.
#pragma once

#include <cstddef>
#include <cstdint>

#define TERVAK_API extern "C" __attribute__((visibility("default")))
