// Interpolated sampling: the colour of a pixel buffer at a real-valued
// position through one of sixteen reconstruction kernels, and the order-1
// Bessel function one of them needs.
//
// method          treatment
// 0               nearest pixel, GetPixelColor at the rounded position
// 1, <0, >15      GetBilinearColor at the truncated position
// 2-4, 6-15       separable 4x4 kernel, unnormalised weights
// 5               separable 12x12 windowed sinc (radius 6)
#pragma once

#include <cstdint>

#include "image/image_view.h"

// Colour at (x, y); pixel (i, j) sits at integer coordinates (i, j).
uint32_t GetPixelColorInterpolated(unsigned char* bits, float x, float y, int width, int height, int stride,
                                   int method, int bpp);

// J1(x), the Bessel function of the first kind of order 1, in single precision.
float KernelBessel_Order1(float x);

// Tap position and weights of one axis for one sample position. Callers that
// sample many points on a grid compute an axis once per column and once per
// row and pair them up.
struct SampleAxis {
    int base = 0;            // the position truncated toward zero, minus 1 when negative
    float weights[12] = {};  // the first 4 for the 4x4 kernels, all 12 for the windowed sinc
};

// A sampler bound to one buffer and one method: the kernel and the pixel
// reader are chosen once, then every sample runs the same loop.
class InterpolatingSampler {
public:
    InterpolatingSampler(unsigned char* bits, int width, int height, int stride, int method, int bpp);

    // True for the kernel methods (2 to 15), whose weights depend on one axis only.
    bool UsesAxisWeights() const { return kernel_ != Kernel::None; }
    // Weights along one axis at `position`; kernel methods only.
    void ComputeAxis(float position, SampleAxis* axis) const;

    // The colour at (x, y), exactly as GetPixelColorInterpolated gives it.
    uint32_t Sample(float x, float y) const;
    // The colour from precomputed axes; kernel methods only.
    uint32_t Sample(const SampleAxis& column, const SampleAxis& row) const;

private:
    enum class Kernel { None, FourByFour, WindowedSinc };
    using KernelFn = float (*)(float);
    using BlockFn = uint32_t (*)(const InterpolatingSampler&, const SampleAxis&, const SampleAxis&);

    uint32_t Outside() const;
    // Taps read through GetPixelColor, so border and palette pixels follow its rules.
    template <int kTaps, bool kWithAlpha>
    uint32_t SlowBlock(const SampleAxis& column, const SampleAxis& row) const;
    // Taps read straight from a 24- or 32-bit buffer; every tap must be inside.
    template <int kBytes, int kTaps>
    static uint32_t FastBlock(const InterpolatingSampler& self, const SampleAxis& column,
                              const SampleAxis& row);

    ImageView source_;  // the buffer sampled, as a view
    int method_;
    Kernel kernel_ = Kernel::None;
    KernelFn kernelFn_ = nullptr;
    BlockFn fastBlock_ = nullptr;  // interior reader of 24- and 32-bit buffers, else null
};
