// The colour component through IQELColorTransform, as a host calls it: the
// tone tables and their precision, the grey step reading two bytes past 8-bit
// pixels, palette depths, Colorize's tint, and the alpha operations.
#include <gtest/gtest.h>

#include <functional>
#include <numeric>

#include "color/color_kernels.h"
#include "support/component_test.h"

namespace {

using namespace qeltest;
using Op = std::function<QResult(IQEL*)>;
using C = IQELColorTransform;

// One method of the component with its arguments after the image.
template <class... Params, class... Args>
Op Call(QResult (C::*method)(IQEL*, Params...), Args... args) {
    return [=](IQEL* image) { return (Colours()->*method)(image, static_cast<Params>(args)...); };
}

// The pixel rows after `op` ran on an image of these rows (random padding,
// bottom-up at odd widths). In-place operations must leave every byte outside
// the pixel rows alone.
Bytes After(int width, int height, int bitCount, const Bytes& pixels, const Op& op, bool inPlace = true) {
    auto image = ImageOf(width, height, bitCount, ModelFor(bitCount), pixels, 3, width % 2 == 1);
    const Bytes padding = PaddingOf(image.Get());
    EXPECT_EQ(op(image.Get()), QEL_OK);
    if (inPlace) {
        EXPECT_EQ(PaddingOf(image.Get()), padding) << "padding changed";
    }
    EXPECT_TRUE(image->GuardsIntact());
    EXPECT_EQ(RefCountOf(image.Get()), 1u);
    return PixelBytes(image.Get());
}
Bytes Ramp() {
    Bytes ramp(256);
    std::iota(ramp.begin(), ramp.end(), 0);
    return ramp;
}
// The table a tone operation applied, read back from a 256 x 1 grey ramp.
Bytes TableOf(const Op& op) { return After(256, 1, 8, Ramp(), op); }
// The entries of `table` at `at`.
Bytes Entries(const Bytes& table, std::initializer_list<int> at) {
    Bytes picked;
    for (int i : at) picked.push_back(table[size_t(i)]);
    return picked;
}

TEST(ColourTone, LutNegativeAndPaletteDepths) {
    unsigned char table[256];
    for (int v = 0; v < 256; ++v) table[v] = static_cast<unsigned char>(v * 7 + 3);
    const Op lut = Call(&C::Lut, table), negative = Call(&C::Negative);
    EXPECT_EQ(After(3, 2, 8, {0, 1, 2, 253, 254, 255}, lut), (Bytes{3, 10, 17, 0xEE, 0xF5, 0xFC}));
    EXPECT_EQ(After(2, 1, 32, {1, 2, 3, 0x80, 4, 5, 6, 0}, lut), (Bytes{10, 17, 24, 0x80, 31, 38, 45, 0}));
    EXPECT_EQ(After(1, 2, 24, {1, 2, 3, 200, 100, 50}, negative), (Bytes{254, 253, 252, 55, 155, 205}));
    EXPECT_EQ(After(2, 1, 32, {0, 0xF0, 0xAA, 3, 255, 1, 2, 0xFE}, negative),
              (Bytes{255, 0x0F, 0x55, 3, 0, 254, 253, 0xFE}));
    // Palette indices below 8 bits and three-byte layouts above 24 stay.
    EXPECT_EQ(After(3, 1, 4, {0x12, 0x34}, lut), (Bytes{0x12, 0x34}));
    EXPECT_EQ(After(9, 1, 1, {0x12, 0x80}, negative), (Bytes{0x12, 0x80}));
    EXPECT_EQ(After(1, 1, 25, {1, 2, 3, 4}, negative), (Bytes{1, 2, 3, 4}));
}

TEST(ColourTone, LightAndGammaComputeInSinglePrecision) {
    const auto light = [](int brightness, int contrast) {
        return TableOf(Call(&C::Light, brightness, contrast));
    };
    const auto gamma = [](float g) { return TableOf(Call(&C::Gamma, g)); };
    EXPECT_EQ(light(0, 0), Ramp());
    EXPECT_EQ(gamma(1.0f), Ramp());
    EXPECT_EQ(light(20, -100), Bytes(256, 148));
    EXPECT_EQ(light(0x7FFFFFFF, 0), Bytes(256, 255));
    EXPECT_EQ(light(-0x7FFFFFFF - 1, 0), Bytes(256, 0));
    EXPECT_EQ(gamma(0.0f), Bytes(256, 0));
    EXPECT_EQ(Entries(light(200, 0), {0, 54, 55, 255}), (Bytes{200, 254, 255, 255}));
    // Slope 3, offset -72: the product is not clamped before the offset.
    EXPECT_EQ(Entries(light(-200, 200), {0, 150, 153, 170, 255}), (Bytes{0, 0, 3, 54, 255}));
    // Slope 1.5: values truncate toward zero.
    EXPECT_EQ(Entries(light(0, 50), {43, 44, 127, 129}), (Bytes{0, 2, 126, 129}));
    // 100 x 0.01f rounds to 1 in single precision, stays below 1 in double.
    EXPECT_EQ(light(0, -99)[228], 129);
    EXPECT_EQ(Entries(gamma(2.2f), {0, 1, 2, 3, 4, 5, 6, 7}), (Bytes{0, 20, 28, 33, 38, 42, 46, 49}));
    // An exponent of 1 / 0.43 formed in double would map 255 to 255, of 1 / 0.12 to 254.
    EXPECT_EQ(Entries(gamma(0.43f), {251, 252, 253, 254, 255}), (Bytes{245, 248, 250, 252, 254}));
    EXPECT_EQ(gamma(0.12f)[255], 255);
}

TEST(ColourTone, ShiftRGBClampsChannelsAndPaletteDepthsTakeTheNearestGrey) {
    EXPECT_EQ(
        After(2, 2, 24, {0, 0, 0, 10, 20, 30, 255, 128, 1, 200, 7, 100}, Call(&C::ShiftRGB, 300, 0, -300)),
        (Bytes{0, 0, 255, 0, 20, 255, 0, 128, 255, 0, 7, 255}));
    EXPECT_EQ(After(1, 2, 32, {10, 20, 30, 0x42, 250, 5, 128, 0xFF}, Call(&C::ShiftRGB, -29, 10, 6)),
              (Bytes{16, 30, 1, 0x42, 255, 15, 99, 0xFF}));
    // Palette depths: 4 bits store the new index's low nibble (5 -> 15, 15 -> 25, 0 -> 10).
    EXPECT_EQ(After(3, 1, 4, {0x5F, 0x0A}, Call(&C::ShiftRGB, 30, 0, 0)), (Bytes{0xF9, 0xAA}));
}

TEST(ColourTone, GrayScaleReadsTwoBytesPastEightBitPixelsAndThresholdFollows) {
    const Op grey = Call(&C::GrayScale);
    EXPECT_EQ(After(2, 1, 24, {0, 0, 2, 100, 101, 101}, grey, false), (Bytes{0, 0, 0, 100, 100, 100}));
    // 4 bits are not written: the source takes the new image's zeroes.
    EXPECT_EQ(After(5, 2, 4, {0x12, 0x34, 0x50, 0xFF, 0xEE, 0xD0}, grey, false), Bytes(6, 0));
    // 8 bits mix each byte with the two after it, past the row's last pixel:
    // into the padding, or into the next row without padding.
    auto padded = ImageOf(5, 2, 8, QEL_MODEL_MONO, {0, 0, 100, 200, 40, 255, 255, 255, 255, 255});
    padded->Row(0)[5] = 10, padded->Row(0)[6] = 250, padded->Row(1)[5] = 0, padded->Row(1)[6] = 0;
    EXPECT_EQ(Colours()->GrayScale(padded.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(padded.Get()), (Bytes{29, 118, 140, 49, 85, 255, 255, 255, 178, 29}));
    // Past the last row's pixels the image ends: 0 is read there.
    auto packed = ImageOf(4, 2, 8, QEL_MODEL_MONO, {0, 0, 0, 0, 255, 128, 64, 32}, 0);
    EXPECT_EQ(Colours()->GrayScale(packed.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(packed.Get()), (Bytes{0, 0, 76, 187, 123, 61, 26, 3}));
    // On a runtime image with alpha, then Threshold: grey 66 is not above level 66.
    auto image = HostImage(2, 2, 32, {10, 20, 31, 0x40, 127, 128, 128, 0x41, 200, 0, 0, 0x42, 1, 2, 3, 0x43});
    EXPECT_EQ(Colours()->GrayScale(image.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(image.Get()),
              (Bytes{20, 20, 20, 0x40, 127, 127, 127, 0x41, 66, 66, 66, 0x42, 2, 2, 2, 0x43}));
    EXPECT_EQ(Colours()->Threshold(image.Get(), 66), QEL_OK);
    EXPECT_EQ(PixelBytes(image.Get()),
              (Bytes{0, 0, 0, 0x40, 255, 255, 255, 0x41, 0, 0, 0, 0x42, 0, 0, 0, 0x43}));
    EXPECT_EQ(RefCountOf(image.Get()), 1u);
    EXPECT_EQ(After(3, 1, 24, {127, 127, 127, 120, 130, 134, 0, 0, 2}, Call(&C::Threshold, 127), false),
              (Bytes{0, 0, 0, 255, 255, 255, 0, 0, 0}));
    EXPECT_EQ(After(1, 1, 24, {255, 255, 255}, Call(&C::Threshold, 0x7FFFFFFF), false), (Bytes{0, 0, 0}));
    // 4 and 1 bits are zeroed by the grey step; white is stored as 15 or 1.
    EXPECT_EQ(After(3, 1, 4, {0xF7, 0x30}, Call(&C::Threshold, -1), false), (Bytes{0xFF, 0xF0}));
    EXPECT_EQ(After(3, 1, 4, {0xF7, 0x30}, Call(&C::Threshold, 0), false), (Bytes{0x00, 0x00}));
    EXPECT_EQ(After(9, 1, 1, {0x5A, 0x80}, Call(&C::Threshold, -1), false), (Bytes{0xFF, 0x80}));
}

TEST(ColourColorize, TintsInSinglePrecisionWrapsHueAnglesAndBlendsBelow0999) {
    const Bytes pixel = {40, 100, 200};
    const struct {
        int hue, saturation;
        float blend;
        Bytes in, out;
    } cases[] = {
        {0, 0, 1.0f, {10, 20, 31}, {21, 21, 21}},     {0, 255, 1.0f, {128, 128, 128}, {1, 1, 254}},
        {200, 255, 1.0f, pixel, {240, 0, 169}},  // red angle above 360
        {50, 200, 1.0f, pixel, {25, 214, 180}},  // blue angle below 0
        {170, 200, 1.0f, pixel, {214, 25, 25}},  // red angle exactly 360
        {100, 128, 1.0f, {64, 64, 64}, {54, 96, 31}}, {50, 200, 0.5f, pixel, {32, 157, 190}},
        {200, 255, 0.999f, pixel, {239, 0, 169}},  // mixes, weight 255
        {200, 255, 1.5f, pixel, {240, 0, 169}},       {200, 255, -1.0f, pixel, pixel},
    };
    for (const auto& c : cases)
        EXPECT_EQ(After(1, 1, 24, c.in, Call(&C::Colorize, c.hue, c.saturation, c.blend)), c.out) << c.hue;
    const Op tint = Call(&C::Colorize, 200, 255, 1.0f);
    EXPECT_EQ(After(2, 1, 32, {40, 100, 200, 0x5A, 128, 128, 128, 0}, tint),
              (Bytes{240, 0, 169, 0x5A, 254, 1, 180, 0}));
    // Palette images take the grey nearest to the tinted colour.
    EXPECT_EQ(After(3, 1, 4, {0x05, 0xD7}, tint), (Bytes{0x06, 0xF7}));
}

// The alpha bytes of a 32-bit image after `op`; every other byte must stay.
Bytes AlphaAfter(int width, int height, const Bytes& pixels, const Op& op) {
    Bytes now = After(width, height, 32, pixels, op), kept = pixels, alpha;
    for (size_t n = 3; n < now.size(); n += 4) alpha.push_back(now[n]), kept[n] = now[n];
    EXPECT_EQ(now, kept) << "a byte other than alpha changed";
    return alpha;
}

TEST(ColourAlpha, LowestByteOneForZeroAndTheKeyColour) {
    for (const auto& stored : {std::make_pair(0, 1), {300, 44}, {256, 0}, {-1, 255}})
        EXPECT_EQ(AlphaAfter(3, 2, Bytes(24, 0x6C), Call(&C::SetImageAlpha, stored.first, 99)),
                  Bytes(6, stored.second));
    // The key is red, green, blue from the low byte: pure red, red with green 1,
    // (0x11, 0x22, 0x33), pure blue.
    const Bytes pixels = {0, 0, 255, 0x80, 0, 1, 255, 0x81, 0x33, 0x22, 0x11, 0x82, 255, 0, 0, 0x83};
    const unsigned keys[] = {0x000000FF, 0xFF0000FF, 0x00332211};
    const Bytes keyed[] = {{0x00, 0x81, 0x82, 0x83}, {0x00, 0x81, 0x82, 0x83}, {0x80, 0x81, 0x00, 0x83}};
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(AlphaAfter(2, 2, pixels, Call(&C::SetImageTransparentPixel, keys[k])), keyed[k]) << k;
    const Bytes greys = {255, 255, 255, 0x10, 254, 255, 255, 0x20, 0, 0, 0, 0x30};
    EXPECT_EQ(AlphaAfter(3, 1, greys, Call(&C::SetImageAlphaTransparency, 128, 0xFFFFFF)),
              (Bytes{0, 128, 128}));
    // Alpha 0 becomes 1, so that 0 is left to the key colour alone.
    EXPECT_EQ(AlphaAfter(3, 1, greys, Call(&C::SetImageAlphaTransparency, 0, 0xAB000000u)), (Bytes{1, 1, 0}));
}

TEST(ColourAlpha, DepthsWithoutAlphaAndThreeByteLayouts) {
    const Op alphaOps[] = {Call(&C::SetImageAlpha, 5, 0), Call(&C::SetImageTransparentPixel, 0),
                           Call(&C::SetImageAlphaTransparency, 5, 0)};
    for (int bitCount : {1, 4, 8, 16, 24}) {
        auto image = Random(3, 2, bitCount, 5, 2);
        const Bytes before = image->Snapshot();
        for (const Op& op : alphaOps) EXPECT_EQ(op(image.Get()), QEL_E_FAIL) << bitCount;
        EXPECT_EQ(image->Snapshot(), before) << bitCount;
    }
    EXPECT_EQ(Colours()->SetImageAlpha(Random(4, 0, 32, 1).Get(), 5, 0), QEL_OK);
    // 25 bits, width 6: 20 bytes per row plus 2 of padding. SetImageAlpha walks
    // 4-byte steps over 24 bytes, so the first row in memory reaches byte 1 of
    // the next; the row that ends the block stops at its end. The key
    // operations see three-byte pixels without alpha and change nothing.
    for (bool bottomUp : {false, true}) {
        auto image = Random(6, 2, 25, 6, 2, bottomUp);
        Bytes expected = image->Snapshot();
        for (size_t at = 3; at < 22; at += 4) expected[at] = expected[22 + at] = 5;
        expected[22 + 1] = 5;
        for (const Op& op : alphaOps) EXPECT_EQ(op(image.Get()), QEL_OK) << bottomUp;
        EXPECT_EQ(image->Snapshot(), expected);
        EXPECT_TRUE(image->GuardsIntact());
    }
}

}  // namespace
