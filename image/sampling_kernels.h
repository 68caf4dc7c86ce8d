// The cubic kernels of interpolation methods 2 to 4, written once for one
// position (float) and for a vector of positions (GCC vector types such as
// __m256), so that the sampler and the vector drawers compute the same
// weights term for term. Both branches of a piecewise kernel are evaluated and
// one is selected; the selected value is the one the branch would give.
#pragma once

#include <cmath>
#include <cstdint>

// GCC reports the ABI of vector arguments on every instantiation; these are
// always inlined, so no vector crosses a call.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpsabi"

#define QEL_KERNEL inline __attribute__((always_inline))

QEL_KERNEL float AbsoluteOf(float t) { return std::fabs(t); }
template <class V>
QEL_KERNEL V AbsoluteOf(V t) {
    typedef int32_t Bits __attribute__((vector_size(sizeof(V))));
    return (V)((Bits)t & 0x7FFFFFFF);
}

// `when` ? `chosen` : `otherwise`, lane by lane for vectors.
QEL_KERNEL float Choose(bool when, float chosen, float otherwise) { return when ? chosen : otherwise; }
template <class Mask, class V>
QEL_KERNEL V Choose(Mask when, V chosen, V otherwise) {
    return when ? chosen : otherwise;
}

template <class V>
QEL_KERNEL V CubedIfPositive(V u) {
    return Choose(u > 0.0f, u * u * u, V{});
}

// Method 2.
template <class V>
QEL_KERNEL V CubicBSpline(V t) {
    const V sum = CubedIfPositive(t + 2.0f) - 4.0f * CubedIfPositive(t + 1.0f) + 6.0f * CubedIfPositive(t) -
                  4.0f * CubedIfPositive(t - 1.0f);
    return Choose(t > 2.0f, V{}, 0.16666667f * sum);
}

// Method 3, a = -1.
template <class V>
QEL_KERNEL V CubicConvolution(V t) {
    const V a = AbsoluteOf(t);
    const V nearPiece = 1.0f - 2.0f * t * t + a * a * a;
    const V farPiece = 4.0f - 8.0f * a + 5.0f * t * t - a * a * a;
    return Choose(a < 1.0f, nearPiece, Choose(a < 2.0f, farPiece, V{}));
}

// Method 4.
template <class V>
QEL_KERNEL V CatmullRomAbsolute(V t) {
    const V a = AbsoluteOf(t);
    const V nearPiece = 1.5f * a * a * a - 2.5f * t * t + 1.0f;
    const V farPiece = -0.5f * a * a * a + 2.5f * t * t - 4.0f * a + 2.0f;
    return Choose(a < 1.0f, nearPiece, Choose(a < 2.0f, farPiece, V{}));
}

// The kernel of `kMethod` (2, 3 or 4).
template <int kMethod, class V>
QEL_KERNEL V CubicWeight(V t) {
    static_assert(kMethod >= 2 && kMethod <= 4, "only the cubic kernels have vector forms");
    if (kMethod == 2) return CubicBSpline(t);
    if (kMethod == 3) return CubicConvolution(t);
    return CatmullRomAbsolute(t);
}

#undef QEL_KERNEL
#pragma GCC diagnostic pop
