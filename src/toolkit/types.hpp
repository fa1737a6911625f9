// Small value types the whole library is written in: 3-vectors and 3x3
// matrices in principal-stress space, 6-vectors of stresses and strains, and
// a 1-based view of a host array. Their algebra, and the fixed order in
// which it evaluates, is in toolkit/algebra.hpp.
#pragma once

namespace tervak {

// A principal triple or any other 3-vector; v(1..3) reads like the formulas.
struct Vec3 {
    double v[3] = {0.0, 0.0, 0.0};

    constexpr double& operator()(int i) { return v[i - 1]; }
    constexpr double operator()(int i) const { return v[i - 1]; }
    constexpr double* data() { return v; }
    constexpr const double* data() const { return v; }
};

// A six-component stress or strain vector, xx, yy, zz, xy, yz, zx; v(1..6).
struct Vec6 {
    double v[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0};

    constexpr double& operator()(int i) { return v[i - 1]; }
    constexpr double operator()(int i) const { return v[i - 1]; }
    constexpr double* data() { return v; }
    constexpr const double* data() const { return v; }
};

// A 3x3 matrix stored column-major, element (i, j) at a[(i-1) + 3 (j-1)].
struct Mat3 {
    double a[9] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0};

    constexpr double& operator()(int i, int j) { return a[(i - 1) + 3 * (j - 1)]; }
    constexpr double operator()(int i, int j) const { return a[(i - 1) + 3 * (j - 1)]; }
    constexpr double* data() { return a; }
    constexpr const double* data() const { return a; }
};

// Read-only 1-based view of a host's real array (Props, StVar0, ...).
class Props {
public:
    constexpr explicit Props(const double* p) : p_(p) {}
    constexpr double operator()(int i) const { return p_[i - 1]; }
    constexpr const double* data() const { return p_; }

private:
    const double* p_;
};

// The degree-to-radian factor the library uses everywhere, with its own digits.
inline constexpr double kDegToRad = 0.017453292519444445;

}  // namespace tervak
