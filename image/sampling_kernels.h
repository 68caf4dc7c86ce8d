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

// Method 3, a = -1: the piece for |t| below 1 and the piece for 1 to 2.
template <class V>
QEL_KERNEL V CubicConvolutionNear(V t, V a) {
    return 1.0f - 2.0f * t * t + a * a * a;
}
template <class V>
QEL_KERNEL V CubicConvolutionFar(V t, V a) {
    return 4.0f - 8.0f * a + 5.0f * t * t - a * a * a;
}
template <class V>
QEL_KERNEL V CubicConvolution(V t) {
    const V a = AbsoluteOf(t);
    return Choose(a < 1.0f, CubicConvolutionNear(t, a), Choose(a < 2.0f, CubicConvolutionFar(t, a), V{}));
}

// Method 4, in the same two pieces.
template <class V>
QEL_KERNEL V CatmullRomAbsoluteNear(V t, V a) {
    return 1.5f * a * a * a - 2.5f * t * t + 1.0f;
}
template <class V>
QEL_KERNEL V CatmullRomAbsoluteFar(V t, V a) {
    return -0.5f * a * a * a + 2.5f * t * t - 4.0f * a + 2.0f;
}
template <class V>
QEL_KERNEL V CatmullRomAbsolute(V t) {
    const V a = AbsoluteOf(t);
    return Choose(a < 1.0f, CatmullRomAbsoluteNear(t, a), Choose(a < 2.0f, CatmullRomAbsoluteFar(t, a), V{}));
}

// The weight of tap `kTap` (0 to 3, at base - 1 to base + 2) for a position
// of at least 1, whose t = tap - position is then exact: t lies in (-2, -1]
// for tap 0, (-1, 0] for tap 1, (0, 1] for tap 2 and (1, 2] for tap 3. The
// piecewise kernels need one piece per tap: where t reaches a join (|t| = 1
// or 2) both pieces give exactly 0, as the full kernel does.
template <int kMethod, int kTap, class V>
QEL_KERNEL V CubicTapWeight(V t) {
    if (kMethod == 2) return CubicBSpline(t);
    const V a = AbsoluteOf(t);
    const bool outer = kTap == 0 || kTap == 3;
    if (kMethod == 3) return outer ? CubicConvolutionFar(t, a) : CubicConvolutionNear(t, a);
    return outer ? CatmullRomAbsoluteFar(t, a) : CatmullRomAbsoluteNear(t, a);
}

#undef QEL_KERNEL
#pragma GCC diagnostic pop
