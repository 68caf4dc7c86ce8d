// Pixel access on every bit count: reads, the outside marker, nearest-grey
// writes, the write one past the last column, and the integer bilinear sampler.
#include "image/pixel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "support/component_test.h"

namespace {

// A small raw image with a padded stride, optionally bottom-up.
struct Raster {
    int width, height, bpp, stride;
    std::vector<unsigned char> bytes;
    bool bottomUp;
    Raster(int w, int h, int bitCount, int padding = 3, bool upsideDown = false)
        : width(w), height(h), bpp(bitCount), bottomUp(upsideDown) {
        const int rowBytes = (w * bitCount + 7) / 8;
        stride = rowBytes + padding;
        // Pixels start at zero; row padding and one spare row hold 0xEE.
        bytes.assign(static_cast<size_t>(stride) * static_cast<size_t>(h + 1), 0xEE);
        for (int y = 0; y < h; ++y)
            std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(y) * stride, rowBytes, 0);
        if (bottomUp) stride = -stride;
    }
    unsigned char* Bits() {
        return bottomUp ? bytes.data() + static_cast<size_t>(-stride) * static_cast<size_t>(height - 1)
                        : bytes.data();
    }
    unsigned char* Row(int y) { return Bits() + static_cast<ptrdiff_t>(y) * stride; }
    uint32_t Get(int x, int y) { return GetPixelColor(Bits(), x, y, width, height, stride, bpp); }
    void Set(int x, int y, uint32_t color) { SetPixelColor(Bits(), x, y, width, height, stride, color, bpp); }
    uint32_t Bilinear(int x, int y) { return GetBilinearColor(Bits(), x, y, width, height, stride, bpp); }
};

TEST(DefaultPalette, IsAGreyRampWithZeroReserved) {
    for (int i = 0; i < 256; ++i) {
        const RGBQUAD& entry = DefaultPalette[i];
        EXPECT_EQ(std::vector<int>({entry.rgbBlue, entry.rgbGreen, entry.rgbRed, entry.rgbReserved}),
                  std::vector<int>({i, i, i, 0}));
    }
}

TEST(GetPixelColor, ReadsEachDirectColourDepth) {
    Raster rgba(3, 2, 32);
    unsigned char* p = rgba.Row(1) + 4;
    p[0] = 1, p[1] = 2, p[2] = 3, p[3] = 4;
    EXPECT_EQ(rgba.Get(1, 1), 0x04030201u) << "32 bits keep their alpha";

    for (int bpp : {24, 25, 31, 33}) {
        Raster rgb(3, 2, bpp);
        unsigned char* q = rgb.Row(1) + 3 * 2;
        q[0] = 10, q[1] = 20, q[2] = 30;
        EXPECT_EQ(rgb.Get(2, 1), 0x001E140Au) << bpp << " bits read three bytes";
    }
}

TEST(GetPixelColor, ReadsPaletteDepthsThroughTheGreyRamp) {
    Raster grey(2, 1, 8);
    grey.Row(0)[1] = 200;
    EXPECT_EQ(grey.Get(1, 0), 0x00C8C8C8u);

    Raster nibbles(2, 1, 4);
    nibbles.Row(0)[0] = 0xA3;
    EXPECT_EQ(nibbles.Get(0, 0), 0x000A0A0Au) << "even x is the high nibble";
    EXPECT_EQ(nibbles.Get(1, 0), 0x00030303u);

    Raster bits(10, 1, 1);
    bits.Row(0)[0] = 0x80;
    bits.Row(0)[1] = 0x40;
    EXPECT_EQ(bits.Get(0, 0), 0x00010101u) << "leftmost pixel in the top bit";
    EXPECT_EQ(bits.Get(1, 0), 0u);
    EXPECT_EQ(bits.Get(9, 0), 0x00010101u);

    for (int bpp : {2, 16, 23}) {
        Raster other(2, 2, bpp);
        EXPECT_EQ(other.Get(1, 1), 0u) << bpp;
    }
}

TEST(GetPixelColor, OutsideIsTheTopLeftColourWithReservedOne) {
    for (bool bottomUp : {false, true}) {
        Raster rgb(4, 3, 24, 1, bottomUp);
        rgb.Row(0)[0] = 10, rgb.Row(0)[1] = 20, rgb.Row(0)[2] = 30;
        EXPECT_EQ(rgb.Get(-1, 5), 0x011E140Au);
        EXPECT_EQ(rgb.Get(4, 0), 0x011E140Au) << "x == width is outside for reads";
        EXPECT_EQ(rgb.Get(0, 3), 0x011E140Au);
        EXPECT_EQ(rgb.Get(0, -1), 0x011E140Au);
    }
    Raster rgba(2, 2, 32);
    rgba.Row(0)[3] = 77;
    EXPECT_EQ(rgba.Get(2, 0) >> 24, 1u) << "the stored alpha is replaced by 1";
    Raster grey(2, 2, 8);
    grey.Row(0)[0] = 9;
    EXPECT_EQ(grey.Get(-5, -5), 0x01090909u);
}

TEST(GetPixelColor, EmptyImagesAndNullBuffers) {
    unsigned char byte = 0x55;
    EXPECT_EQ(GetPixelColor(&byte, 0, 0, 0, 0, 4, 24), 0u);
    EXPECT_EQ(GetPixelColor(&byte, 0, 0, 5, 0, 4, 24), 0u);
    EXPECT_EQ(GetPixelColor(nullptr, 0, 0, 5, 5, 16, 24), 0x01000000u);
    EXPECT_EQ(GetPixelColor(nullptr, -3, 0, 5, 5, 16, 8), 0x01000000u);
}

TEST(SetPixelColor, WritesDirectColourDepths) {
    Raster rgba(2, 2, 32, 2);
    rgba.Set(1, 1, 0x80112233u);
    const unsigned char* p = rgba.Row(1) + 4;
    EXPECT_EQ(std::vector<unsigned char>(p, p + 4), (std::vector<unsigned char>{0x33, 0x22, 0x11, 0x80}));

    Raster rgb(2, 2, 24, 2);
    rgb.Set(1, 0, 0x80112233u);
    EXPECT_EQ(rgb.Row(0)[3], 0x33);
    EXPECT_EQ(rgb.Row(0)[5], 0x11);
    EXPECT_EQ(rgb.Row(0)[6], 0xEE) << "the reserved byte is dropped, padding kept";
}

TEST(SetPixelColor, PaletteDepthsStoreTheNearestGreyTruncated) {
    const uint32_t lightGrey = PackColor(200, 200, 200, 0);
    Raster grey(2, 1, 8);
    grey.Set(0, 0, lightGrey);
    EXPECT_EQ(grey.Row(0)[0], 200);
    grey.Set(1, 0, PackColor(0, 0, 255, 0));
    EXPECT_EQ(grey.Row(0)[1], 85) << "pure red is nearest to grey 85";

    Raster nibbles(3, 1, 4);
    nibbles.Row(0)[0] = 0x00;
    nibbles.Row(0)[1] = 0xFF;
    nibbles.Set(0, 0, lightGrey);
    EXPECT_EQ(nibbles.Row(0)[0], 0x80) << "200 & 15 = 8 into the high nibble";
    nibbles.Set(2, 0, PackColor(3, 3, 3, 0));
    EXPECT_EQ(nibbles.Row(0)[1], 0x3F) << "the other nibble is kept";

    Raster bits(9, 1, 1);
    bits.Row(0)[0] = 0xFF;
    bits.Set(3, 0, lightGrey);
    EXPECT_EQ(bits.Row(0)[0], 0xEF) << "200 & 1 = 0 clears bit 4";
    bits.Set(8, 0, PackColor(1, 1, 1, 0));
    EXPECT_EQ(bits.Row(0)[1], 0x80);

    Raster odd(2, 1, 16);
    const std::vector<unsigned char> before = odd.bytes;
    odd.Set(0, 0, lightGrey);
    EXPECT_EQ(odd.bytes, before) << "unsupported depths are never written";
}

TEST(SetPixelColor, OnePastTheEndIsWrittenFurtherIsNot) {
    Raster grey(3, 2, 8, 4);
    grey.Set(3, 0, PackColor(7, 7, 7, 0));
    EXPECT_EQ(grey.Row(0)[3], 7) << "x == width is written (into the padding)";
    grey.Set(4, 0, PackColor(9, 9, 9, 0));
    EXPECT_EQ(grey.Row(0)[4], 0xEE);
    grey.Set(0, 2, PackColor(5, 5, 5, 0));
    EXPECT_EQ(grey.Row(2)[0], 5) << "y == height is written";
    grey.Row(0)[0] = 0x33;
    grey.Set(-1, 0, 0);
    grey.Set(0, -1, 0);
    SetPixelColor(nullptr, 0, 0, 3, 2, 7, 0, 8);
    EXPECT_EQ(grey.Row(0)[0], 0x33);
    EXPECT_EQ(grey.bytes[0], 0x33) << "nothing written before the first row";
}

TEST(NearestGreyIndex, AgreesWithTheWalkOverTheRamp) {
    for (int b = 0; b < 256; b += 3)
        for (int g = 0; g < 256; g += 5)
            for (int r = 0; r < 256; r += 7)
                ASSERT_EQ(NearestGreyIndex(b, g, r), qeltest::NearestGreyByWalk(b, g, r));
    std::mt19937 random(7);
    for (int i = 0; i < 20000; ++i) {
        const int b = static_cast<int>(random() & 255), g = static_cast<int>(random() & 255),
                  r = static_cast<int>(random() & 255);
        ASSERT_EQ(NearestGreyIndex(b, g, r), qeltest::NearestGreyByWalk(b, g, r))
            << b << ' ' << g << ' ' << r;
    }
    EXPECT_EQ(NearestGreyIndex(255, 255, 255), 255);
    EXPECT_EQ(NearestGreyIndex(0, 0, 1), 0);
    EXPECT_EQ(NearestGreyIndex(0, 1, 1), 1);
}

TEST(GetBilinearColor, InteriorOfDirectColourHasAlpha255) {
    Raster rgba(3, 3, 32);
    unsigned char* p = rgba.Row(1) + 4;
    p[0] = 1, p[1] = 2, p[2] = 3, p[3] = 40;
    EXPECT_EQ(rgba.Get(1, 1), 0x28030201u);
    EXPECT_EQ(rgba.Bilinear(1, 1), 0xFF030201u) << "interior fast path";
    unsigned char* last = rgba.Row(1) + 8;
    last[0] = 5, last[3] = 60;
    EXPECT_EQ(rgba.Bilinear(2, 1), 0x3C000005u) << "last column keeps the stored alpha";
    unsigned char* bottom = rgba.Row(2);
    bottom[3] = 70;
    EXPECT_EQ(rgba.Bilinear(0, 2) >> 24, 70u) << "last row keeps the stored alpha";

    Raster rgb(2, 2, 24);
    rgb.Row(0)[0] = 9;
    EXPECT_EQ(rgb.Bilinear(0, 0), 0xFF000009u);
    EXPECT_EQ(rgb.Bilinear(1, 1), 0u);
}

TEST(GetBilinearColor, PaletteDepthsAndOutside) {
    Raster grey(3, 3, 8);
    grey.Row(1)[1] = 50;
    grey.Row(0)[0] = 4;
    EXPECT_EQ(grey.Bilinear(1, 1), 0x00323232u) << "palette depths never take the fast path";
    EXPECT_EQ(grey.Bilinear(3, 0), 0x01040404u);
    EXPECT_EQ(grey.Bilinear(0, -1), 0x01040404u);
    EXPECT_EQ(GetBilinearColor(nullptr, 0, 0, 0, 0, 0, 24), 0u);
    EXPECT_EQ(GetBilinearColor(nullptr, 5, 5, 2, 2, 8, 24), 0x01000000u);
}

}  // namespace
