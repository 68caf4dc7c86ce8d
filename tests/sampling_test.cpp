// Interpolated sampling: kernel weights, bounds, alpha rules, the Bessel
// function, and the interior fast path against a tap-by-tap reference.
#include "image/sampling.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "image/pixel.h"
#include "support/test_image.h"

namespace {

using qeltest::BufferImage;

struct Buffer {
    BufferImage* image;
    unsigned char* bits = nullptr;
    int stride = 0, width = 0, height = 0, bpp = 0;
    Buffer(int w, int h, int bitCount, int padding = 0, bool bottomUp = false)
        : image(BufferImage::Make(w, h, bitCount, bitCount == 32 ? QEL_MODEL_ARGB : QEL_MODEL_BGR, padding,
                                  bottomUp)),
          width(w),
          height(h),
          bpp(bitCount) {
        int reserved = 0;
        image->GetBits(0, &reserved, &bits, &stride);
    }
    ~Buffer() { image->Release(); }
    uint32_t At(float x, float y, int method) const {
        return GetPixelColorInterpolated(bits, x, y, width, height, stride, method, bpp);
    }
    uint32_t Outside() const { return GetPixelColor(bits, -1, -1, width, height, stride, bpp); }
    void Set(int x, int y, uint32_t colour) { SetPixelColor(bits, x, y, width, height, stride, colour, bpp); }
};

// Every tap through GetPixelColor, accumulated row by row; the alpha sum is
// kept only where the rules keep it: always for the 12x12 window, and for the
// 4x4 kernels only on the interior of 32-bit buffers.
uint32_t ReferenceSample(const Buffer& b, float x, float y, int method) {
    const InterpolatingSampler sampler(b.bits, b.width, b.height, b.stride, method, b.bpp);
    SampleAxis column, row;
    sampler.ComputeAxis(x, &column);
    sampler.ComputeAxis(y, &row);
    const int fx = column.base, fy = row.base;
    const bool window = method == 5;
    const int taps = window ? 12 : 4, back = window ? 5 : 1;
    const bool outside = window ? (fx < -6 || fx - 4 > b.width || fy < -6 || fy - 4 > b.height)
                                : (fx < -2 || fx > b.width || fy < -2 || fy > b.height);
    if (outside) return b.Outside();
    float sums[4] = {};
    for (int j = 0; j < taps; ++j)
        for (int i = 0; i < taps; ++i) {
            const uint32_t c =
                GetPixelColor(b.bits, fx - back + i, fy - back + j, b.width, b.height, b.stride, b.bpp);
            const float w = row.weights[j] * column.weights[i];
            sums[0] += w * static_cast<float>(BlueOf(c));
            sums[1] += w * static_cast<float>(GreenOf(c));
            sums[2] += w * static_cast<float>(RedOf(c));
            sums[3] += w * static_cast<float>(AlphaOf(c));
        }
    const bool interior4 = fx + 2 < b.width && fx > 0 && fy + 2 < b.height && fy >= 1;
    if (!window && !(interior4 && b.bpp == 32)) sums[3] = 0.0f;
    int channel[4];
    for (int k = 0; k < 4; ++k)
        channel[k] = sums[k] > 255.0f ? 255 : sums[k] < 0.0f ? 0 : static_cast<int>(sums[k]);
    return PackColor(channel[0], channel[1], channel[2], channel[3]);
}

TEST(KernelWeights, HalfPixelPositionOfEveryKernel) {
    // At x = 0.5 the taps sit at t = -1.5, -0.5, 0.5, 1.5.
    const double j1Near = std::cyl_bessel_j(1.0, M_PI * 0.5), j1Far = std::cyl_bessel_j(1.0, M_PI * 1.5);
    const struct {
        int method;
        double w[4];
    } cases[] = {
        {2, {0.125 / 6, 2.875 / 6, 2.875 / 6, 0.125 / 6}},
        {3, {-0.125, 0.625, 0.625, -0.125}},
        {4, {-0.0625, 0.5625, 0.5625, -0.0625}},
        {6, {0, 1, 0, 0}},
        {7, {0, 0.5, 0.5, 0}},
        {8, {0, 0.54, 0.54, 0}},
        {9, {-1 / (1.5 * M_PI), 2 / M_PI, 2 / M_PI, -1 / (1.5 * M_PI)}},
        {10, {0.34, 0.34, 0.34, 0.34}},
        {11, {j1Far / 3, j1Near, j1Near, j1Far / 3}},
        {12,
         {0.7978846 * std::exp(-4.5), 0.7978846 * std::exp(-0.5), 0.7978846 * std::exp(-0.5),
          0.7978846 * std::exp(-4.5)}},
        {13, {0, 0.5, 0.5, 0}},
        {14, {-0.0347222, 0.5347222, 0.5347222, -0.0347222}},
        {15, {-0.0625, 0.5625, 0.5625, -0.0625}},
    };
    for (const auto& c : cases) {
        const InterpolatingSampler sampler(nullptr, 8, 8, 8, c.method, 8);
        SampleAxis axis;
        sampler.ComputeAxis(0.5f, &axis);
        EXPECT_EQ(axis.base, 0);
        for (int i = 0; i < 4; ++i)
            EXPECT_NEAR(axis.weights[i], c.w[i], 2e-6) << "method " << c.method << " tap " << i;
    }
}

TEST(KernelWeights, WindowedSincAndWholePositions) {
    const InterpolatingSampler window(nullptr, 8, 8, 8, 5, 8);
    SampleAxis axis;
    window.ComputeAxis(0.5f, &axis);
    for (int i = 0; i < 12; ++i) {
        const double t = (i - 5) - 0.5, u = M_PI * t, v = u / 6;
        EXPECT_NEAR(axis.weights[i], std::sin(u) / u * std::sin(v) / v, 1e-6) << "tap " << i;
    }
    window.ComputeAxis(3.0f, &axis);
    for (int i = 0; i < 12; ++i) EXPECT_NEAR(axis.weights[i], i == 5 ? 1.0f : 0.0f, 1e-7) << "tap " << i;

    // Whole-numbered positions put t at -1, 0, 1, 2; a negative whole number
    // gets a base one lower than its value.
    const InterpolatingSampler cubic(nullptr, 8, 8, 8, 3, 8);
    cubic.ComputeAxis(3.0f, &axis);
    EXPECT_EQ(axis.base, 3);
    EXPECT_EQ(axis.weights[0], 0.0f);
    EXPECT_EQ(axis.weights[1], 1.0f);
    EXPECT_EQ(axis.weights[2], 0.0f);
    EXPECT_EQ(axis.weights[3], 0.0f);
    cubic.ComputeAxis(-1.0f, &axis);
    EXPECT_EQ(axis.base, -2);
    cubic.ComputeAxis(-0.25f, &axis);
    EXPECT_EQ(axis.base, -1);
}

TEST(KernelBessel, MatchesIndependentValuesAndSymmetry) {
    EXPECT_EQ(KernelBessel_Order1(0.0f), 0.0f);
    for (float x : {0.1f, 0.5f, 1.0f, 1.8411838f, 3.0f, 5.5f, 7.9f, 8.0f, 8.5f, 12.0f, 30.0f, 100.0f}) {
        EXPECT_NEAR(KernelBessel_Order1(x), std::cyl_bessel_j(1.0, static_cast<double>(x)), 2e-6) << x;
        EXPECT_EQ(KernelBessel_Order1(-x), -KernelBessel_Order1(x)) << x;
    }
    // The rational form below 8 and the asymptotic form from 8 meet.
    const float below = std::nextafter(8.0f, 0.0f);
    EXPECT_NEAR(KernelBessel_Order1(below), KernelBessel_Order1(8.0f), 1e-6);
}

class SamplingGrey : public ::testing::Test {
protected:
    // 24-bit image: pixel (x, y) = (10x + y, 100, 7y); pixel (0, 0) = (0, 100, 0).
    Buffer image{9, 7, 24};
    void SetUp() override {
        for (int y = 0; y < image.height; ++y)
            for (int x = 0; x < image.width; ++x) image.Set(x, y, PackColor(10 * x + y, 100, 7 * y, 0));
    }
};

TEST_F(SamplingGrey, NearestRoundsByTruncatingHalfUp) {
    EXPECT_EQ(image.At(2.4f, 3.6f, 0), PackColor(24, 100, 28, 0));
    EXPECT_EQ(image.At(-1.2f, 1.0f, 0), PackColor(1, 100, 7, 0));  // trunc(-0.7) = 0
    EXPECT_EQ(image.At(-1.6f, 1.0f, 0), PackColor(0, 100, 0, 1));  // column -1: outside
    EXPECT_EQ(image.At(8.4f, 0.0f, 0), PackColor(80, 100, 0, 0));
    EXPECT_EQ(image.At(8.5f, 0.0f, 0), PackColor(0, 100, 0, 1));
}

TEST_F(SamplingGrey, BilinearAndUnknownMethodsReadTheTruncatedPixel) {
    for (int method : {1, -1, 16, 100}) {
        EXPECT_EQ(image.At(3.9f, 2.9f, method), PackColor(32, 100, 14, 255))
            << method;                                                                 // interior: alpha 255
        EXPECT_EQ(image.At(8.2f, 2.0f, method), PackColor(82, 100, 14, 0)) << method;  // last column
        EXPECT_EQ(image.At(-0.5f, 2.0f, method), PackColor(2, 100, 14, 255)) << method;  // trunc(-0.5) = 0
        EXPECT_EQ(image.At(9.0f, 2.0f, method), PackColor(0, 100, 0, 1)) << method;
    }
}

TEST_F(SamplingGrey, WholePositionOfCubicIsThePixel) {
    EXPECT_EQ(image.At(4.0f, 3.0f, 3), PackColor(43, 100, 21, 0));
    EXPECT_EQ(image.At(0.0f, 0.0f, 3), PackColor(0, 100, 0, 0));  // border path, alpha still 0
}

TEST_F(SamplingGrey, FourByFourBoundsAreMinusTwoAndWidth) {
    // Inside the bounds the sample is computed (alpha 0); beyond them it is the
    // outside value (alpha 1).
    EXPECT_EQ(AlphaOf(image.At(-1.5f, 3.0f, 3)), 0);  // base -2
    EXPECT_EQ(image.At(-2.5f, 3.0f, 3), image.Outside());
    EXPECT_EQ(AlphaOf(image.At(9.5f, 3.0f, 3)), 0);  // base == width
    EXPECT_EQ(image.At(10.0f, 3.0f, 3), image.Outside());
    EXPECT_EQ(AlphaOf(image.At(3.0f, -1.5f, 3)), 0);
    EXPECT_EQ(image.At(3.0f, -2.5f, 3), image.Outside());
    EXPECT_EQ(AlphaOf(image.At(3.0f, 7.5f, 3)), 0);
    EXPECT_EQ(image.At(3.0f, 8.0f, 3), image.Outside());
    // Whole-numbered -1.0 has base -2 and is still computed: taps -3..0 at
    // weights 0, 1, 0, 0 give the outside colour with alpha 0.
    EXPECT_EQ(image.At(-1.0f, 3.0f, 3), PackColor(0, 100, 0, 0));
}

TEST(SamplingWindow, BoundsAreMinusSixAndWidthPlusFour) {
    // Black but for pixel (0, 0) = grey 200, the outside colour. At base 13
    // (width + 4) the sample is still computed: the outside taps' weights sum
    // to 1.0059 and the one inside column is black, so grey 201 with alpha 1.
    Buffer image(9, 7, 24);
    image.Set(0, 0, PackColor(200, 200, 200, 0));
    EXPECT_EQ(image.At(13.5f, 3.0f, 5), PackColor(201, 201, 201, 1));
    EXPECT_EQ(image.At(14.0f, 3.0f, 5), image.Outside());
    EXPECT_EQ(image.At(3.0f, 11.5f, 5), PackColor(201, 201, 201, 1));  // base height + 4
    EXPECT_EQ(image.At(3.0f, 12.0f, 5), image.Outside());
    EXPECT_EQ(image.At(-5.5f, 3.0f, 5), PackColor(201, 201, 201, 1));  // base -6
    EXPECT_EQ(image.At(-6.0f, 3.0f, 5), image.Outside());              // base -7
    EXPECT_EQ(image.At(3.0f, -6.5f, 5), image.Outside());
}

TEST(SamplingBrightness, UnnormalisedCosineSumAddsFourPixels) {
    Buffer grey(8, 8, 24);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) grey.Set(x, y, PackColor(100, 100, 100, 0));
    EXPECT_EQ(grey.At(3.0f, 3.0f, 10), 0x00FFFFFFu);
}

TEST(SamplingAlpha, FourByFourInteriorCarriesAlphaBorderDoesNot) {
    Buffer image(8, 8, 32);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) image.Set(x, y, PackColor(60, 60, 60, 200));
    EXPECT_EQ(ReferenceSample(image, 3.0f, 3.0f, 2), image.At(3.0f, 3.0f, 2));
    EXPECT_GE(AlphaOf(image.At(3.0f, 3.0f, 2)), 199);
    EXPECT_EQ(AlphaOf(image.At(1.0f, 0.5f, 2)), 0);  // one pixel from the top: border path
    EXPECT_EQ(AlphaOf(image.At(3.0f, 3.0f, 3)), 200);
}

// The interior fast paths must give the same bytes as the tap-by-tap reading
// through GetPixelColor, on every depth, odd sizes, padded and bottom-up rows.
TEST(SamplingPaths, FastPathMatchesReferenceOnRandomImages) {
    const struct {
        int w, h, bpp, padding;
        bool bottomUp;
    } images[] = {{1, 1, 24, 0, false},  {2, 3, 32, 0, false},   {13, 9, 24, 3, false}, {13, 9, 32, 5, true},
                  {17, 15, 24, 0, true}, {19, 14, 32, 0, false}, {11, 7, 8, 1, false},  {9, 9, 4, 0, true},
                  {21, 5, 1, 2, false},  {6, 6, 16, 0, false},   {10, 8, 28, 0, false}};
    unsigned seed = 1;
    for (const auto& d : images) {
        Buffer image(d.w, d.h, d.bpp, d.padding, d.bottomUp);
        image.image->FillRandom(seed++);
        const std::vector<unsigned char> before = image.image->Snapshot();
        for (int method = 2; method <= 15; ++method)
            for (float y = -8.25f; y < d.h + 7.0f; y += 0.75f)
                for (float x = -8.5f; x < d.w + 7.0f; x += 0.625f) {
                    ASSERT_EQ(image.At(x, y, method), ReferenceSample(image, x, y, method))
                        << d.w << "x" << d.h << " bpp " << d.bpp << " method " << method << " at " << x << ","
                        << y;
                }
        EXPECT_EQ(image.image->Snapshot(), before);
        EXPECT_TRUE(image.image->GuardsIntact());
    }
}

TEST(SamplingEmpty, EmptyAndNullBuffers) {
    EXPECT_EQ(GetPixelColorInterpolated(nullptr, 1.0f, 1.0f, 0, 0, 0, 3, 24), 0u);
    EXPECT_EQ(GetPixelColorInterpolated(nullptr, 1.0f, 1.0f, 4, 4, 12, 0, 24), 0x01000000u);
    EXPECT_EQ(GetPixelColorInterpolated(nullptr, 50.0f, 1.0f, 4, 4, 12, 5, 24), 0x01000000u);
    EXPECT_EQ(GetPixelColorInterpolated(nullptr, 1e30f, -1e30f, 4, 4, 12, 3, 24), 0x01000000u);
}

}  // namespace
