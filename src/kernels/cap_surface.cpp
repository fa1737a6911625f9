// The volumetric cap: gradients, curvature and the data of a call.
#include "kernels/cap_surface.hpp"

namespace tervak {

CapParams cap_params(const HsMaterial& mt, double R) {
    CapParams cp;
    if (!mt.known) return cp;
    cp.delta = mt.delta();
    cp.alpha2 = mt.alpha * mt.alpha;
    cp.T = mt.T;
    cp.h = mt.hardening_factor(R);
    return cp;
}

double cap_qt_floored(const Vec3& P, double delta) {
    double qt = HsMaterial::cap_qt(P, delta);
    if (qt < kCapQtFloor) qt = 0.0;
    return qt;
}

Vec3 df_capmdS(double qt, double p, double delta, double alpha2) {
    const double c[3] = {1.0, delta - 1.0, -delta};
    Vec3 n;
    for (int i = 1; i <= 3; ++i) n(i) = 2.0 * (p / 3.0 + c[i - 1] * qt / alpha2);
    return n;
}

Vec3 hs_df_capmdS(double qt, double p, double delta, double alpha2) {
    const double c[3] = {1.0, delta - 1.0, -delta};
    Vec3 n;
    for (int i = 1; i <= 3; ++i) n(i) = 2.0 * c[i - 1] * qt / alpha2 + 2.0 * p / 3.0;
    return n;
}

Mat3 cap_curvature(double delta, double alpha2) {
    const double c[3] = {1.0, delta - 1.0, -delta};
    Mat3 H;
    for (int j = 1; j <= 3; ++j)
        for (int i = 1; i <= 3; ++i)
            H(i, j) = 2.0 * (c[i - 1] * c[j - 1] / alpha2 + 0.1111111111111111);
    return H;
}

}  // namespace tervak
