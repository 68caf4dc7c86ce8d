// Pixel access on every bit count (reads, the outside colour, nearest-grey
// writes, the write one past the last column, the integer bilinear sampler)
// and interpolated sampling (weights, bounds, alpha, the Bessel function and
// the interior fast path against a tap-by-tap reference).
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>

#include "image/sampling.h"
#include "support/component_test.h"

namespace {

using namespace qeltest;

// Plane 0 of a test image as the pixel helpers see it; ColourAt and
// PutColour read and write single pixels.
struct Raster {
    SmartPtr<BufferImage> image;
    qel::Pixels p;
    Raster(int w, int h, int bpp, int padding = 3, bool bottomUp = false)
        : image(BufferImage::Make(w, h, bpp, bpp == 32 ? QEL_MODEL_ARGB : QEL_MODEL_BGR, padding, bottomUp)),
          p(qel::PixelsOf(image.Get())) {}
    unsigned char* Row(int y) const { return p.Row(y); }
    uint32_t Get(int x, int y) const { return ColourAt(image.Get(), x, y); }
    void Set(int x, int y, uint32_t c) { PutColour(image.Get(), x, y, c); }
    uint32_t Bilinear(int x, int y) const {
        return GetBilinearColor(p.bits, x, y, p.width, p.height, p.stride, p.bitCount);
    }
    uint32_t At(float x, float y, int method) const {
        return GetPixelColorInterpolated(p.bits, x, y, p.width, p.height, p.stride, method, p.bitCount);
    }
};

TEST(PixelColor, ReadsEveryDepthAndTheOutsideColour) {
    Raster rgba(3, 2, 32);
    std::memcpy(rgba.Row(1) + 4, "\x01\x02\x03\x04", 4);
    EXPECT_EQ(rgba.Get(1, 1), 0x04030201u);  // 32 bits keep their alpha
    for (int bpp : {24, 25, 31, 33}) {
        Raster rgb(3, 2, bpp);
        std::memcpy(rgb.Row(1) + 6, "\x0A\x14\x1E", 3);
        EXPECT_EQ(rgb.Get(2, 1), 0x001E140Au) << bpp << " bits read three bytes";
    }
    Raster grey(2, 1, 8), nibbles(2, 1, 4), bits(10, 1, 1);
    grey.Row(0)[1] = 200, nibbles.Row(0)[0] = 0xA3, bits.Row(0)[0] = 0x80, bits.Row(0)[1] = 0x40;
    EXPECT_EQ(grey.Get(1, 0), 0x00C8C8C8u);
    EXPECT_EQ(nibbles.Get(0, 0), 0x000A0A0Au);  // even x is the high nibble
    EXPECT_EQ(nibbles.Get(1, 0), 0x00030303u);
    EXPECT_EQ(bits.Get(0, 0), 0x00010101u);  // leftmost pixel in the top bit
    EXPECT_EQ(bits.Get(1, 0), 0u);
    EXPECT_EQ(bits.Get(9, 0), 0x00010101u);
    for (int bpp : {2, 16, 23}) EXPECT_EQ(Raster(2, 2, bpp).Get(1, 1), 0u) << bpp;
    // Outside (x == width included) is the top-left colour with reserved 1, stored alpha replaced.
    for (int bpp : {24, 32}) {
        Raster direct(4, 3, bpp, 1, bpp == 32);
        std::memcpy(direct.Row(0), "\x0A\x14\x1E\x4D", 4);
        const int outside[][2] = {{-1, 5}, {4, 0}, {0, 3}, {0, -1}};
        for (const auto& at : outside)
            EXPECT_EQ(direct.Get(at[0], at[1]), 0x011E140Au) << bpp << " at " << at[0] << "," << at[1];
    }
    unsigned char byte = 0x55;
    EXPECT_EQ(GetPixelColor(&byte, 0, 0, 5, 0, 4, 24), 0u);  // empty images
    EXPECT_EQ(GetPixelColor(nullptr, -3, 0, 5, 5, 16, 8), 0x01000000u);
}

TEST(PixelColor, WritesNearestGreysTruncatedAndOnePastTheLastColumn) {
    Raster rgba(2, 2, 32, 2), rgb(2, 2, 24, 2);
    rgba.Set(1, 1, 0x80112233u);
    EXPECT_EQ(Bytes(rgba.Row(1) + 4, rgba.Row(1) + 8), (Bytes{0x33, 0x22, 0x11, 0x80}));
    rgb.Set(1, 0, 0x80112233u);
    // The reserved byte is dropped.
    EXPECT_EQ(Bytes(rgb.Row(0) + 3, rgb.Row(0) + 6), (Bytes{0x33, 0x22, 0x11}));
    Raster grey(3, 2, 8, 4), nibbles(3, 1, 4), bits(9, 1, 1), odd(2, 1, 16);
    grey.Set(0, 0, PackColor(0, 0, 255, 0));
    EXPECT_EQ(grey.Row(0)[0], 85);  // pure red is nearest to grey 85
    nibbles.Row(0)[1] = 0xFF, bits.Row(0)[0] = 0xFF;
    nibbles.Set(0, 0, PackColor(200, 200, 200, 0));
    nibbles.Set(2, 0, PackColor(3, 3, 3, 0));
    // 200 & 15 = 8, the other nibble kept.
    EXPECT_EQ(Bytes(nibbles.Row(0), nibbles.Row(0) + 2), (Bytes{0x80, 0x3F}));
    bits.Set(3, 0, PackColor(200, 200, 200, 0));
    bits.Set(8, 0, PackColor(1, 1, 1, 0));
    EXPECT_EQ(Bytes(bits.Row(0), bits.Row(0) + 2), (Bytes{0xEF, 0x80}));  // 200 & 1 = 0 clears bit 4
    const Bytes before = odd.image->Snapshot();
    odd.Set(0, 0, PackColor(200, 200, 200, 0));
    EXPECT_EQ(odd.image->Snapshot(), before);  // unsupported depths are never written
    // x == width is written (into the padding), further is not; so is y == height.
    grey.image->FillRandom(3);
    Bytes expected = grey.image->Snapshot();
    grey.Set(3, 0, PackColor(7, 7, 7, 0));
    grey.Set(4, 0, PackColor(9, 9, 9, 0));
    grey.Set(-1, 0, 0), grey.Set(0, -1, 0);
    SetPixelColor(nullptr, 0, 0, 3, 2, 7, 0, 8);
    expected[3] = 7;
    EXPECT_EQ(grey.image->Snapshot(), expected);
    EXPECT_TRUE(grey.image->GuardsIntact());
    Bytes raw(12, 0xEE);
    SetPixelColor(raw.data(), 0, 2, 3, 2, 4, PackColor(5, 5, 5, 0), 8);
    EXPECT_EQ(raw[8], 5);
}

TEST(PixelColor, NearestGreyIndexIsTheWalkOverTheRamp) {
    for (int b = 0; b < 256; b += 3)
        for (int g = 0; g < 256; g += 5)
            for (int r = 0; r < 256; r += 7) ASSERT_EQ(NearestGreyIndex(b, g, r), NearestGreyByWalk(b, g, r));
    EXPECT_EQ(NearestGreyIndex(0, 0, 1), 0);
    EXPECT_EQ(NearestGreyIndex(0, 1, 1), 1);
}

TEST(PixelColor, BilinearInteriorOfDirectColourHasAlpha255) {
    Raster rgba(3, 3, 32), grey(3, 3, 8);
    std::memcpy(rgba.Row(1) + 4, "\x01\x02\x03\x28\x05\x00\x00\x3C", 8);
    rgba.Row(2)[3] = 70;
    EXPECT_EQ(rgba.Bilinear(1, 1), 0xFF030201u);  // interior fast path
    EXPECT_EQ(rgba.Bilinear(2, 1), 0x3C000005u);  // the last column keeps the stored alpha
    EXPECT_EQ(rgba.Bilinear(0, 2) >> 24, 70u);    // so does the last row
    grey.Row(1)[1] = 50, grey.Row(0)[0] = 4;
    EXPECT_EQ(grey.Bilinear(1, 1), 0x00323232u);  // palette depths never take the fast path
    EXPECT_EQ(grey.Bilinear(3, 0), 0x01040404u);
    EXPECT_EQ(GetBilinearColor(nullptr, 5, 5, 2, 2, 8, 24), 0x01000000u);
}

TEST(Sampling, KernelWeightsAtHalfAndWholePositions) {
    // At x = 0.5 the taps sit at t = -1.5, -0.5, 0.5, 1.5.
    const double j1Near = std::cyl_bessel_j(1.0, M_PI * 0.5), j1Far = std::cyl_bessel_j(1.0, M_PI * 1.5);
    const double g = 0.7978846 * std::exp(-4.5), h = 0.7978846 * std::exp(-0.5), s = 1 / (1.5 * M_PI);
    const std::pair<int, std::array<double, 4>> cases[] = {
        {2, {0.125 / 6, 2.875 / 6, 2.875 / 6, 0.125 / 6}},
        {3, {-0.125, 0.625, 0.625, -0.125}},
        {4, {-0.0625, 0.5625, 0.5625, -0.0625}},
        {6, {0, 1, 0, 0}},
        {7, {0, 0.5, 0.5, 0}},
        {8, {0, 0.54, 0.54, 0}},
        {9, {-s, 2 / M_PI, 2 / M_PI, -s}},
        {10, {0.34, 0.34, 0.34, 0.34}},
        {11, {j1Far / 3, j1Near, j1Near, j1Far / 3}},
        {12, {g, h, h, g}},
        {13, {0, 0.5, 0.5, 0}},
        {14, {-0.0347222, 0.5347222, 0.5347222, -0.0347222}},
        {15, {-0.0625, 0.5625, 0.5625, -0.0625}}};
    SampleAxis axis;
    for (const auto& c : cases) {
        InterpolatingSampler(nullptr, 8, 8, 8, c.first, 8).ComputeAxis(0.5f, &axis);
        EXPECT_EQ(axis.base, 0);
        for (int i = 0; i < 4; ++i)
            EXPECT_NEAR(axis.weights[i], c.second[i], 2e-6) << c.first << " tap " << i;
    }
    const InterpolatingSampler window(nullptr, 8, 8, 8, 5, 8), cubic(nullptr, 8, 8, 8, 3, 8);
    // sinc(t) sinc(t / 6) at |t| = 0.5, 1.5, ... 5.5, for taps -5.5 to 5.5.
    const double lanczos[6] = {0.6293724, -0.1910531, 0.093954, -0.0479357, 0.0212281, -0.0052014};
    window.ComputeAxis(0.5f, &axis);
    for (int i = 0; i < 12; ++i) EXPECT_NEAR(axis.weights[i], lanczos[std::abs(2 * i - 11) / 2], 1e-6) << i;
    window.ComputeAxis(3.0f, &axis);
    for (int i = 0; i < 12; ++i) EXPECT_NEAR(axis.weights[i], i == 5 ? 1.0f : 0.0f, 1e-7) << "tap " << i;
    // Whole positions put t at -1, 0, 1, 2; a negative whole number gets a base one lower.
    for (const auto& [at, base] : {std::pair{-1.0f, -2}, {-0.25f, -1}, {3.0f, 3}}) {
        cubic.ComputeAxis(at, &axis);
        EXPECT_EQ(axis.base, base) << at;
    }
    EXPECT_EQ(std::vector<float>(axis.weights, axis.weights + 4), (std::vector<float>{0, 1, 0, 0}));
    EXPECT_EQ(KernelBessel_Order1(0.0f), 0.0f);
    for (float x : {0.1f, 0.5f, 1.0f, 1.8411838f, 3.0f, 5.5f, 7.9f, 8.0f, 8.5f, 12.0f, 30.0f, 100.0f}) {
        EXPECT_NEAR(KernelBessel_Order1(x), std::cyl_bessel_j(1.0, static_cast<double>(x)), 2e-6) << x;
        EXPECT_EQ(KernelBessel_Order1(-x), -KernelBessel_Order1(x)) << x;
    }
    // The rational form below 8 and the asymptotic form from 8 meet.
    EXPECT_NEAR(KernelBessel_Order1(std::nextafter(8.0f, 0.0f)), KernelBessel_Order1(8.0f), 1e-6);
}

TEST(Sampling, NearestBilinearBoundsAndAlpha) {
    // Pixel (x, y) = (10x + y, 100, 7y); the outside colour is (0, 100, 0) with alpha 1.
    Raster image(9, 7, 24, 0);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x) image.Set(x, y, PackColor(10 * x + y, 100, 7 * y, 0));
    const uint32_t outside = PackColor(0, 100, 0, 1);
    EXPECT_EQ(image.At(2.4f, 3.6f, 0), PackColor(24, 100, 28, 0));  // nearest rounds by truncating x + 0.5
    EXPECT_EQ(image.At(-1.2f, 1.0f, 0), PackColor(1, 100, 7, 0));   // trunc(-0.7) = 0
    EXPECT_EQ(image.At(-1.6f, 1.0f, 0), outside);
    EXPECT_EQ(image.At(8.4f, 0.0f, 0), PackColor(80, 100, 0, 0));
    EXPECT_EQ(image.At(8.5f, 0.0f, 0), outside);
    for (int method : {1, -1, 16, 100}) {  // bilinear and unknown methods read the truncated pixel
        // The interior has alpha 255.
        EXPECT_EQ(image.At(3.9f, 2.9f, method), PackColor(32, 100, 14, 255)) << method;
        EXPECT_EQ(image.At(8.2f, 2.0f, method), PackColor(82, 100, 14, 0)) << method;  // last column
        EXPECT_EQ(image.At(-0.5f, 2.0f, method), PackColor(2, 100, 14, 255)) << method;
        EXPECT_EQ(image.At(9.0f, 2.0f, method), outside) << method;
    }
    EXPECT_EQ(image.At(4.0f, 3.0f, 3), PackColor(43, 100, 21, 0));  // a whole position of cubic is the pixel
    EXPECT_EQ(image.At(0.0f, 0.0f, 3), PackColor(0, 100, 0, 0));
    // Whole-numbered -1.0 has base -2: taps -3..0 at weights 0, 1, 0, 0 give the outside colour, alpha 0.
    EXPECT_EQ(image.At(-1.0f, 3.0f, 3), PackColor(0, 100, 0, 0));
    // The 12 x 12 window's bounds are -6 and width + 4: black but for a grey 200
    // top-left (the outside colour), whose outside taps weigh 1.0059, give grey 201.
    // At base width + 5 every tap reads the outside colour, but the weights
    // there sum just under 1: only the bound keeps it exactly the outside colour.
    Raster dark(9, 7, 24, 0);
    dark.Set(0, 0, PackColor(200, 200, 200, 0));
    const float inside[][2] = {{13.5f, 3}, {3, 11.5f}, {-5.5f, 3}},
                past[][2] = {{14, 3}, {14, 3.998f}, {3, 12}, {-6, 3}, {3, -6.5f}};
    for (const auto& at : inside) EXPECT_EQ(dark.At(at[0], at[1], 5), PackColor(201, 201, 201, 1)) << at[0];
    for (const auto& at : past) EXPECT_EQ(dark.At(at[0], at[1], 5), PackColor(200, 200, 200, 1)) << at[0];
    // The cosine kernel's weights are not normalised: grey 100 adds up past 255.
    Raster grey(8, 8, 24, 0);
    for (int n = 0; n < 64; ++n) grey.Set(n % 8, n / 8, 0x646464);
    EXPECT_EQ(grey.At(3.0f, 3.0f, 10), 0x00FFFFFFu);
    EXPECT_EQ(GetPixelColorInterpolated(nullptr, 1.0f, 1.0f, 0, 0, 0, 3, 24), 0u);
    EXPECT_EQ(GetPixelColorInterpolated(nullptr, 1e30f, -1e30f, 4, 4, 12, 3, 24), 0x01000000u);
}

// Every tap through GetPixelColor, row by row; alpha is summed always for
// the 12 x 12 window, for 4 x 4 kernels only in the interior of 32 bits.
uint32_t ReferenceSample(const Raster& b, float x, float y, int method) {
    const InterpolatingSampler sampler(b.p.bits, b.p.width, b.p.height, b.p.stride, method, b.p.bitCount);
    SampleAxis column, row;
    sampler.ComputeAxis(x, &column);
    sampler.ComputeAxis(y, &row);
    const int fx = column.base, fy = row.base, w = b.p.width, h = b.p.height;
    const bool window = method == 5;
    const int taps = window ? 12 : 4, back = window ? 5 : 1;
    if (window ? (fx < -6 || fx - 4 > w || fy < -6 || fy - 4 > h) : (fx < -2 || fx > w || fy < -2 || fy > h))
        return b.Get(-1, -1);
    float sums[4] = {};
    for (int j = 0; j < taps; ++j)
        for (int i = 0; i < taps; ++i) {
            const uint32_t c = b.Get(fx - back + i, fy - back + j);
            const float weight = row.weights[j] * column.weights[i];
            for (int k = 0; k < 4; ++k) sums[k] += weight * static_cast<float>((c >> (8 * k)) & 0xFF);
        }
    if (!window && !(fx + 2 < w && fx > 0 && fy + 2 < h && fy >= 1 && b.p.bitCount == 32)) sums[3] = 0.0f;
    int channel[4];
    for (int k = 0; k < 4; ++k)
        channel[k] = sums[k] > 255.0f ? 255 : sums[k] < 0.0f ? 0 : static_cast<int>(sums[k]);
    return PackColor(channel[0], channel[1], channel[2], channel[3]);
}

TEST(Sampling, FastPathsMatchTheTapByTapReferenceOnRandomImages) {
    const int images[][5] = {{1, 1, 24, 0, 0},   {2, 3, 32, 0, 0},   {13, 9, 24, 3, 0}, {13, 9, 32, 5, 1},
                             {17, 15, 24, 0, 1}, {19, 14, 32, 0, 0}, {11, 7, 8, 1, 0},  {9, 9, 4, 0, 1},
                             {21, 5, 1, 2, 0},   {6, 6, 16, 0, 0},   {10, 8, 28, 0, 0}};
    for (const auto& d : images) {
        Raster image(d[0], d[1], d[2], d[3], d[4] != 0);
        image.image->FillRandom(static_cast<uint32_t>(d[0] * 100 + d[2]));
        const Bytes before = image.image->Snapshot();
        for (int method = 2; method <= 15; ++method)
            for (float y = -8.25f; y < d[1] + 7.0f; y += 0.75f)
                for (float x = -8.5f; x < d[0] + 7.0f; x += 0.625f)
                    ASSERT_EQ(image.At(x, y, method), ReferenceSample(image, x, y, method))
                        << d[0] << "x" << d[1] << " bpp " << d[2] << " method " << method << " at " << x
                        << "," << y;
        EXPECT_EQ(image.image->Snapshot(), before);
        EXPECT_TRUE(image.image->GuardsIntact());
    }
}

}  // namespace
