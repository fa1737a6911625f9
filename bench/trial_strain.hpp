// The normal strain increment that takes a model 1 point from its start
// stresses to a chosen elastic trial state, through the host's stiffness
// matrix: D (6x6, column-major) times dEps = trial - Sig0 on the normal
// components, solved by Cramer's rule. Trial stresses compression positive,
// Sig0 in the host's sign.
#pragma once

#include <array>
#include <cstddef>

namespace tervak_bench {

inline double det3(const double M[3][3]) {
    return M[0][0] * (M[1][1] * M[2][2] - M[1][2] * M[2][1]) -
           M[0][1] * (M[1][0] * M[2][2] - M[1][2] * M[2][0]) +
           M[0][2] * (M[1][0] * M[2][1] - M[1][1] * M[2][0]);
}

inline std::array<double, 3> strain_to_trial(const double* D, const double* Sig0,
                                             const std::array<double, 3>& trial) {
    double A[3][3], b[3];
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) A[i][j] = D[i + 6 * j];
        b[i] = -trial[static_cast<std::size_t>(i)] - Sig0[i];
    }
    const double det = det3(A);
    std::array<double, 3> e{};
    for (int col = 0; col < 3; ++col) {
        double M[3][3];
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) M[i][j] = j == col ? b[i] : A[i][j];
        e[static_cast<std::size_t>(col)] = det3(M) / det;
    }
    return e;
}

}  // namespace tervak_bench
