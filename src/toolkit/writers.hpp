// Labelled diagnostic writers. A unit below 1 switches a call off; any unit
// of 1 or more writes to standard output.
#pragma once

#include <string_view>

namespace tervak {

void wrival(int unit, std::string_view label, double x);
void wriivl(int unit, std::string_view label, int k);
void wriivc(int unit, std::string_view label, const int* iv, int n);
void wrivec(int unit, std::string_view label, const double* v, int n);
void wrivec5(int unit, std::string_view label, const double* v, int n);
void wrimat(int unit, std::string_view label, const double* A, int LA, int nRow, int nCol);

}  // namespace tervak
