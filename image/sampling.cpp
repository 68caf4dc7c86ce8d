// Interpolated sampling: reconstruction kernels, the order-1 Bessel function
// and the sampler that combines them with the pixel readers.
#include "image/sampling.h"

#include <cmath>
#include <cstddef>

#include "image/pixel.h"
#include "image/sampling_kernels.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

// Positions far outside any image are clamped before converting to int, so
// that the conversion stays defined; they land outside every bound test.
constexpr float kPositionLimit = 1.0e9f;

int TruncateToInt(float value) {
    if (!(value > -kPositionLimit)) return -static_cast<int>(kPositionLimit);
    if (value > kPositionLimit) return static_cast<int>(kPositionLimit);
    return static_cast<int>(value);
}

// Truncation toward zero, minus one for negative values (so -1.0 gives -2).
int BaseOf(float value) {
    const int truncated = TruncateToInt(value);
    return value < 0.0f ? truncated - 1 : truncated;
}

// ---- The 4x4 kernels, K(t) in single precision unless noted (2 to 4 in image/sampling_kernels.h) ----

float Box(float t) { return t >= -0.5f && t < 0.5f ? 1.0f : 0.0f; }  // method 6

float Hermite(float t) {  // method 7
    if (t >= -1.0f && t < 0.0f) return (-2.0f * t - 3.0f) * t * t + 1.0f;
    if (t >= 0.0f && t < 1.0f) return (2.0f * t - 3.0f) * t * t + 1.0f;
    return 0.0f;
}

float DampedHermite(float t) {  // method 8
    if (t >= -1.0f && t < 0.0f) return (-2.0f * t - 3.0f) * 0.92f * t * t + 1.0f;
    if (t >= 0.0f && t < 1.0f) return (2.0f * t - 3.0f) * 0.92f * t * t + 1.0f;
    return 0.0f;
}

float Sinc(float t) {  // method 9: no window, the sine in double
    if (t == 0.0f) return 1.0f;
    const double u = kPi * t;
    return static_cast<float>(std::sin(u) / u);
}

float CosineSum(float t) {  // method 10: no cut-off, cosines in double
    return static_cast<float>(0.42 + 0.5 * std::cos(kPi * t) + 0.08 * std::cos(2.0 * kPi * t));
}

float Jinc(float t) {  // method 11
    if (t == 0.0f) return 0.7853982f;
    return KernelBessel_Order1(static_cast<float>(kPi * t)) / (2.0f * t);
}

float Gaussian(float t) { return 0.7978846f * std::exp(-2.0f * t * t); }  // method 12, sigma 0.5

float QuadraticBSpline(float t) {  // method 13
    if (t >= -1.5f && t < -0.5f) return 0.5f * (t + 1.5f) * (t + 1.5f);
    if (t >= -0.5f && t < 0.5f) return 0.75f - t * t;
    if (t >= 0.5f && t < 1.5f) return 0.5f * (t - 1.5f) * (t - 1.5f);
    return 0.0f;
}

float Mitchell(float t) {  // method 14, both shape parameters 1/3
    if (t >= -2.0f && t < -1.0f) return 1.7777778f + 3.3333333f * t + 2.0f * t * t + 0.38888887f * t * t * t;
    if (t >= -1.0f && t < 0.0f) return 0.8888889f - 2.0f * t * t - 1.1666666f * t * t * t;
    if (t >= 0.0f && t < 1.0f) return 0.8888889f - 2.0f * t * t + 1.1666666f * t * t * t;
    if (t >= 1.0f && t < 2.0f) return 1.7777778f - 3.3333333f * t + 2.0f * t * t - 0.38888887f * t * t * t;
    return 0.0f;
}

float CatmullRomSigned(float t) {  // method 15
    if (t >= -2.0f && t < -1.0f) return 0.5f * (t * t * t + 5.0f * t * t + 8.0f * t + 4.0f);
    if (t >= -1.0f && t < 0.0f) return 0.5f * (2.0f - 5.0f * t * t - 3.0f * t * t * t);
    if (t >= 0.0f && t < 1.0f) return 0.5f * (3.0f * t * t * t - 5.0f * t * t + 2.0f);
    if (t >= 1.0f && t < 2.0f) return 0.5f * (-t * t * t + 5.0f * t * t - 8.0f * t + 4.0f);
    return 0.0f;
}

// Indexed by method number; null where the method is not a 4x4 kernel.
using KernelFunction = float (*)(float);
// clang-format off
constexpr KernelFunction kFourByFourKernels[16] = {
    nullptr,   nullptr, CubicBSpline<float>, CubicConvolution<float>, CatmullRomAbsolute<float>,
    nullptr,   Box,     Hermite,             DampedHermite,           Sinc,
    CosineSum, Jinc,    Gaussian,            QuadraticBSpline,        Mitchell,
    CatmullRomSigned};
// clang-format on

// Lanczos window of radius 6 (method 5).
float WindowedSinc(float t) {
    if (std::fabs(t) > 6.0f) return 0.0f;
    if (t == 0.0f) return 1.0f;
    const float u = static_cast<float>(kPi * t);
    const float v = u / 6.0f;
    return (std::sin(u) / u) * (std::sin(v) / v);
}

// ---- Rational approximations behind KernelBessel_Order1 ----

double Horner(const double* coefficients, int highest, double s) {
    double sum = coefficients[highest];
    for (int k = highest - 1; k >= 0; --k) sum = sum * s + coefficients[k];
    return sum;
}

// J1(p) / p for p below 8, as a ratio of polynomials in s = p squared.
double KernelBessel_J1(double s) {
    static const double Pone[9] = {5.811993540016061e+20,  -6.672106568924916e+19, 2.3164335806340024e+18,
                                   -3.588817569910106e+16, 290879526383477.56,     -1322983480332.1265,
                                   3413234182.3017006,     -4695753.530642996,     2701.1227108923235};
    static const double Qone[9] = {1.1623987080032122e+21, 1.185770712190321e+19, 6.092061398917522e+16,
                                   208166122130760.75,     524371026216.76495,    1013863514.358674,
                                   1501793.5949985855,     1606.9315734814877,    1.0};
    return Horner(Pone, 8, s) / Horner(Qone, 8, s);
}

// Amplitude terms of the asymptotic form, in s = (8 / p) squared.
double KernelBessel_P1(double s) {
    static const double Pone[6] = {35224.66491336798,  62758.84524716128,  31353.963110915956,
                                   4985.4832060594335, 211.15291828539623, 1.2571716929145342};
    static const double Qone[6] = {35224.66491336798, 62694.34695935605,  31240.406381904104,
                                   4930.396490181089, 203.07751891347593, 1.0};
    return Horner(Pone, 5, s) / Horner(Qone, 5, s);
}

double KernelBessel_Q1(double s) {
    static const double Pone[6] = {351.17519143035526, 721.0391804904475, 425.98730116544425,
                                   83.18989576738508,  4.568171629551227, 0.03532840052740124};
    static const double Qone[6] = {7491.737417180912,  15414.177339265098, 9152.231701516992,
                                   1811.1867005523513, 103.81875854621337, 1.0};
    return Horner(Pone, 5, s) / Horner(Qone, 5, s);
}

// Clamped to [0, 255] and truncated toward zero.
int ChannelOf(float sum) {
    if (sum > 255.0f) return 255;
    if (sum < 0.0f) return 0;
    return static_cast<int>(sum);
}

}  // namespace

float KernelBessel_Order1(float x) {
    if (x == 0.0f) return 0.0f;
    const float p = std::fabs(x);
    if (p < 8.0f) {
        const double s = static_cast<double>(p) * static_cast<double>(p);
        return static_cast<float>(KernelBessel_J1(s)) * x;
    }
    const double z = 8.0 / p;
    const double s = z * z;
    const float p1 = static_cast<float>(KernelBessel_P1(s));
    const float q1 = static_cast<float>(KernelBessel_Q1(s));
    const float sinP = std::sin(p);
    const float cosP = std::cos(p);
    const float h = 0.70710677f;
    const float r = static_cast<float>(std::sqrt(2.0 / (kPi * p)));
    const float result = r * (q1 * (8.0f / p) * (sinP + cosP) * h + (sinP - cosP) * h * p1);
    return x < 0.0f ? -result : result;
}

InterpolatingSampler::InterpolatingSampler(unsigned char* bits, int width, int height, int stride, int method,
                                           int bpp)
    : method_(method) {
    source_.bits = bits;
    source_.width = width;
    source_.height = height;
    source_.stride = stride;
    source_.bitCount = bpp;
    if (method == 5) {
        kernel_ = Kernel::WindowedSinc;
        if (bpp >= 24) fastBlock_ = bpp == 32 ? &FastBlock<4, 12> : &FastBlock<3, 12>;
    } else if (method >= 2 && method <= 15) {
        kernel_ = Kernel::FourByFour;
        kernelFn_ = kFourByFourKernels[method];
        if (bpp >= 24) fastBlock_ = bpp == 32 ? &FastBlock<4, 4> : &FastBlock<3, 4>;
    }
}

void InterpolatingSampler::ComputeAxis(float position, SampleAxis* axis) const {
    axis->base = BaseOf(position);
    if (kernel_ == Kernel::WindowedSinc) {
        for (int i = 0; i < 12; ++i)
            axis->weights[i] = WindowedSinc(static_cast<float>(axis->base - 5 + i) - position);
    } else {
        for (int i = 0; i < 4; ++i)
            axis->weights[i] = kernelFn_(static_cast<float>(axis->base - 1 + i) - position);
    }
}

uint32_t InterpolatingSampler::Sample(float x, float y) const {
    if (kernel_ == Kernel::None) {
        if (method_ == 0)
            return GetPixelColor(source_.bits, TruncateToInt(x + 0.5f), TruncateToInt(y + 0.5f),
                                 source_.width, source_.height, source_.stride, source_.bitCount);
        return GetBilinearColor(source_.bits, TruncateToInt(x), TruncateToInt(y), source_.width,
                                source_.height, source_.stride, source_.bitCount);
    }
    SampleAxis column, row;
    ComputeAxis(x, &column);
    ComputeAxis(y, &row);
    return Sample(column, row);
}

uint32_t InterpolatingSampler::Sample(const SampleAxis& column, const SampleAxis& row) const {
    const int fx = column.base, fy = row.base;
    if (kernel_ == Kernel::WindowedSinc) {
        // The window reaches 6 taps back but the bound above is 4: kept as it is.
        if (fx < -6 || fx - 4 > source_.width || fy < -6 || fy - 4 > source_.height) return Outside();
        if (fastBlock_ != nullptr && source_.width > fx + 6 && fx > 4 && fy + 6 < source_.height && fy >= 5)
            return fastBlock_(*this, column, row);
        return SlowBlock<12, true>(column, row);
    }
    if (fx < -2 || fx > source_.width || fy < -2 || fy > source_.height) return Outside();
    if (fastBlock_ != nullptr && fx + 2 < source_.width && fx > 0 && fy + 2 < source_.height && fy >= 1)
        return fastBlock_(*this, column, row);
    // The 4x4 border path leaves alpha out, unlike the interior path.
    return SlowBlock<4, false>(column, row);
}

uint32_t InterpolatingSampler::Outside() const { return OutsideColour(source_); }

template <int kTaps, bool kWithAlpha>
uint32_t InterpolatingSampler::SlowBlock(const SampleAxis& column, const SampleAxis& row) const {
    constexpr int kBack = kTaps == 4 ? 1 : 5;  // taps before the base position
    float blue = 0.0f, green = 0.0f, red = 0.0f, alpha = 0.0f;
    for (int j = 0; j < kTaps; ++j) {
        const int y = row.base - kBack + j;
        for (int i = 0; i < kTaps; ++i) {
            const uint32_t colour = GetPixelColor(source_.bits, column.base - kBack + i, y, source_.width,
                                                  source_.height, source_.stride, source_.bitCount);
            const float weight = row.weights[j] * column.weights[i];
            blue += weight * static_cast<float>(BlueOf(colour));
            green += weight * static_cast<float>(GreenOf(colour));
            red += weight * static_cast<float>(RedOf(colour));
            if (kWithAlpha) alpha += weight * static_cast<float>(AlphaOf(colour));
        }
    }
    return PackColor(ChannelOf(blue), ChannelOf(green), ChannelOf(red), ChannelOf(alpha));
}

template <int kBytes, int kTaps>
uint32_t InterpolatingSampler::FastBlock(const InterpolatingSampler& self, const SampleAxis& column,
                                         const SampleAxis& row) {
    constexpr int kBack = kTaps == 4 ? 1 : 5;
    const unsigned char* first = RowAt(self.source_.bits, row.base - kBack, self.source_.stride) +
                                 static_cast<ptrdiff_t>(column.base - kBack) * kBytes;
    float blue = 0.0f, green = 0.0f, red = 0.0f, alpha = 0.0f;
    for (int j = 0; j < kTaps; ++j) {
        const unsigned char* pixel = first + static_cast<ptrdiff_t>(j) * self.source_.stride;
        const float rowWeight = row.weights[j];
        for (int i = 0; i < kTaps; ++i, pixel += kBytes) {
            const float weight = column.weights[i] * rowWeight;
            blue += weight * static_cast<float>(pixel[0]);
            green += weight * static_cast<float>(pixel[1]);
            red += weight * static_cast<float>(pixel[2]);
            if (kBytes == 4) alpha += weight * static_cast<float>(pixel[3]);
        }
    }
    return PackColor(ChannelOf(blue), ChannelOf(green), ChannelOf(red), ChannelOf(alpha));
}

uint32_t GetPixelColorInterpolated(unsigned char* bits, float x, float y, int width, int height, int stride,
                                   int method, int bpp) {
    return InterpolatingSampler(bits, width, height, stride, method, bpp).Sample(x, y);
}
