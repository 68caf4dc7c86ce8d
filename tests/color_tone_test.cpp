// Tone, lookup and colorize operations of the colour component, driven
// through IQELColorTransform as a host calls them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "color/color_kernels.h"
#include "support/component_test.h"

namespace {

using namespace qeltest;

SmartPtr<BufferImage> MakeImage(int width, int height, int bitCount, const Bytes& pixels, int padding = 3,
                                bool bottomUp = false) {
    SmartPtr<BufferImage> image(
        BufferImage::Make(width, height, bitCount, ModelFor(bitCount), padding, bottomUp));
    image->FillRandom(static_cast<uint32_t>(width * 131 + height * 7 + bitCount));
    SetPixelBytes(image.Get(), pixels);
    return image;
}

// The block of an image with the rows' pixel bytes zeroed: what an
// in-place operation must leave as it was.
Bytes OutsidePixels(BufferImage* image, int width, int height, int bitCount) {
    Bytes block = image->Snapshot();
    const size_t rowBytes = (static_cast<size_t>(width) * bitCount + 7) / 8;
    unsigned char* lowest = image->Stride() > 0 ? image->Row(0) : image->Row(height - 1);
    for (int y = 0; y < height; ++y) std::fill_n(block.begin() + (image->Row(y) - lowest), rowBytes, 0);
    return block;
}

// The pixel rows after `operation` ran on an image of the given rows with
// random padding (bottom-up for odd widths). Set `inPlace` to false for
// operations that hand their result over through Assign.
template <class Operation>
Bytes After(int width, int height, int bitCount, const Bytes& pixels, Operation operation,
            bool inPlace = true) {
    auto image = MakeImage(width, height, bitCount, pixels, 3, width % 2 == 1);
    const Bytes outside = OutsidePixels(image.Get(), width, height, bitCount);
    EXPECT_EQ(operation(image.Get()), QEL_OK);
    if (inPlace) {
        EXPECT_EQ(OutsidePixels(image.Get(), width, height, bitCount), outside) << "padding changed";
    }
    EXPECT_TRUE(image->GuardsIntact());
    EXPECT_EQ(image->RefCount(), 1u);
    return PixelBytes(image.Get());
}

Bytes Ramp() {
    Bytes ramp(256);
    for (int v = 0; v < 256; ++v) ramp[static_cast<size_t>(v)] = static_cast<unsigned char>(v);
    return ramp;
}

// The table a tone operation applied, read back from a 256 x 1 grey ramp.
template <class Operation>
Bytes TableOf(Operation operation) {
    return After(256, 1, 8, Ramp(), operation);
}

TEST(ColorTone, NullArgumentsFail) {
    unsigned char table[256] = {};
    auto image = MakeImage(2, 2, 24, {});
    const Bytes before = image->Snapshot();
    EXPECT_EQ(Colours()->Lut(nullptr, table), QEL_E_FAIL);
    EXPECT_EQ(Colours()->Lut(image.Get(), nullptr), QEL_E_FAIL);
    EXPECT_EQ(Colours()->Light(nullptr, 5, 5), QEL_E_FAIL);
    EXPECT_EQ(Colours()->Gamma(nullptr, 2.0f), QEL_E_FAIL);
    EXPECT_EQ(Colours()->Negative(nullptr), QEL_E_FAIL);
    EXPECT_EQ(Colours()->ShiftRGB(nullptr, 1, 1, 1), QEL_E_FAIL);
    EXPECT_EQ(Colours()->GrayScale(nullptr), QEL_E_FAIL);
    EXPECT_EQ(Colours()->Threshold(nullptr, 1), QEL_E_FAIL);
    EXPECT_EQ(Colours()->Colorize(nullptr, 1, 2, 1.0f), QEL_E_FAIL);
    EXPECT_EQ(image->Snapshot(), before);
}

TEST(ColorTone, LutAndNegativeChangeColourBytesOnly) {
    unsigned char table[256];
    for (int v = 0; v < 256; ++v) table[v] = static_cast<unsigned char>(v * 7 + 3);
    const auto lut = [&](IQEL* image) { return Colours()->Lut(image, table); };
    const auto negative = [](IQEL* image) { return Colours()->Negative(image); };
    EXPECT_EQ(After(3, 2, 8, {0, 1, 2, 253, 254, 255}, lut), (Bytes{3, 10, 17, 0xEE, 0xF5, 0xFC}));
    EXPECT_EQ(After(2, 1, 24, {1, 2, 3, 4, 5, 6}, lut), (Bytes{10, 17, 24, 31, 38, 45}));
    EXPECT_EQ(After(2, 1, 32, {1, 2, 3, 0x80, 4, 5, 6, 0}, lut), (Bytes{10, 17, 24, 0x80, 31, 38, 45, 0}));
    EXPECT_EQ(After(5, 1, 8, {0, 1, 127, 128, 255}, negative), (Bytes{255, 254, 128, 127, 0}));
    EXPECT_EQ(After(1, 2, 24, {1, 2, 3, 200, 100, 50}, negative), (Bytes{254, 253, 252, 55, 155, 205}));
    EXPECT_EQ(After(2, 1, 32, {0, 0xF0, 0xAA, 3, 255, 1, 2, 0xFE}, negative),
              (Bytes{255, 0x0F, 0x55, 3, 0, 254, 253, 0xFE}));
    // Palette indices below 8 bits and three-byte layouts above 24 stay.
    EXPECT_EQ(After(3, 1, 4, {0x12, 0x34}, lut), (Bytes{0x12, 0x34}));
    EXPECT_EQ(After(9, 1, 1, {0x12, 0x80}, negative), (Bytes{0x12, 0x80}));
    EXPECT_EQ(After(1, 1, 25, {1, 2, 3, 4}, negative), (Bytes{1, 2, 3, 4}));
}

TEST(ColorTone, LightAddsTheOffsetBeforeClampingInSinglePrecision) {
    const auto light = [](int brightness, int contrast) {
        return TableOf([=](IQEL* image) { return Colours()->Light(image, brightness, contrast); });
    };
    EXPECT_EQ(light(0, 0), Ramp());
    EXPECT_EQ(light(20, -100), Bytes(256, 148));
    const Bytes brighter = light(200, 0);
    EXPECT_EQ((Bytes{brighter[0], brighter[54], brighter[55], brighter[255]}), (Bytes{200, 254, 255, 255}));
    // Slope 3, offset -72: the product is not clamped before the offset.
    const Bytes steep = light(-200, 200);
    EXPECT_EQ((Bytes{steep[0], steep[150], steep[153], steep[170], steep[255]}), (Bytes{0, 0, 3, 54, 255}));
    // Slope 1.5: values truncate toward zero.
    const Bytes half = light(0, 50);
    EXPECT_EQ((Bytes{half[43], half[44], half[127], half[129]}), (Bytes{0, 2, 126, 129}));
    // 100 x 0.01f rounds to 1 in single precision, stays below 1 in double.
    EXPECT_EQ(light(0, -99)[228], 129);
    EXPECT_EQ(light(0x7FFFFFFF, 0), Bytes(256, 255));
    EXPECT_EQ(light(-0x7FFFFFFF - 1, 0), Bytes(256, 0));
}

TEST(ColorTone, GammaFormsTheExponentInSinglePrecision) {
    const auto gamma = [](float g) {
        return TableOf([=](IQEL* image) { return Colours()->Gamma(image, g); });
    };
    EXPECT_EQ(gamma(1.0f), Ramp());
    EXPECT_EQ(gamma(0.0f), Bytes(256, 0));
    const Bytes bright = gamma(2.2f);
    EXPECT_EQ(Bytes(bright.begin(), bright.begin() + 8), (Bytes{0, 20, 28, 33, 38, 42, 46, 49}));
    // An exponent of 1 / 0.43 formed in double would map 255 to 255, of 1 / 0.12 to 254.
    const Bytes dark = gamma(0.43f);
    EXPECT_EQ(Bytes(dark.begin() + 251, dark.end()), (Bytes{245, 248, 250, 252, 254}));
    EXPECT_EQ(gamma(0.12f)[255], 255);
}

TEST(ColorTone, ShiftRGBClampsChannelsAndPaletteTakesTheNearestGrey) {
    const auto shift = [](int r, int g, int b) {
        return [=](IQEL* i) { return Colours()->ShiftRGB(i, r, g, b); };
    };
    EXPECT_EQ(After(2, 2, 24, {0, 0, 0, 10, 20, 30, 255, 128, 1, 200, 7, 100}, shift(300, 0, -300)),
              (Bytes{0, 0, 255, 0, 20, 255, 0, 128, 255, 0, 7, 255}));
    EXPECT_EQ(After(1, 2, 32, {10, 20, 30, 0x42, 250, 5, 128, 0xFF}, shift(-29, 10, 6)),
              (Bytes{16, 30, 1, 0x42, 255, 15, 99, 0xFF}));
    // (100, 100, 101) is nearest to 100, (100, 101, 101) to 101.
    EXPECT_EQ(After(3, 1, 8, {100, 0, 255}, shift(1, 0, 0)), (Bytes{100, 0, 255}));
    EXPECT_EQ(After(3, 1, 8, {100, 0, 255}, shift(1, 1, 0)), (Bytes{101, 1, 255}));
    for (const auto& s : {std::array<int, 3>{10, 20, -40}, {300, -2, 0}, {-255, 255, 1}, {0, 2, -1}}) {
        Bytes expected(256);
        for (int v = 0; v < 256; ++v)
            expected[size_t(v)] = static_cast<unsigned char>(NearestGreyByWalk(
                color::ClampToByte(v + s[2]), color::ClampToByte(v + s[1]), color::ClampToByte(v + s[0])));
        EXPECT_EQ(TableOf(shift(s[0], s[1], s[2])), expected) << s[0] << " " << s[1] << " " << s[2];
    }
    // 4 bits store the new index's low nibble (5 -> 15, 15 -> 25, 0 -> 10),
    // 1 bit its low bit (1 -> 2, 0 -> 1); unused low bits of a row's last byte stay.
    EXPECT_EQ(After(3, 1, 4, {0x5F, 0x0A}, shift(30, 0, 0)), (Bytes{0xF9, 0xAA}));
    EXPECT_EQ(After(10, 1, 1, {0xA5, 0xBF}, shift(3, 0, 0)), (Bytes{0x5A, 0x7F}));
}

TEST(ColorTone, GrayScaleHandsTheNewImageOverThroughAssign) {
    const auto grey = [](IQEL* image) { return Colours()->GrayScale(image); };
    EXPECT_EQ(After(2, 1, 32, {10, 20, 31, 0x33, 255, 255, 254, 0xC0}, grey, false),
              (Bytes{20, 20, 20, 0x33, 254, 254, 254, 0xC0}));
    EXPECT_EQ(After(2, 1, 24, {0, 0, 2, 100, 101, 101}, grey, false), (Bytes{0, 0, 0, 100, 100, 100}));
    // 4 bits are not written: the source takes the new image's zeroes.
    EXPECT_EQ(After(5, 2, 4, {0x12, 0x34, 0x50, 0xFF, 0xEE, 0xD0}, grey, false), Bytes(6, 0));

    // 8 bits mix each byte with the two after it, past the row's last pixel:
    // into the padding, or into the next row without padding.
    auto padded = MakeImage(5, 2, 8, {0, 0, 100, 200, 40, 255, 255, 255, 255, 255});
    padded->Row(0)[5] = 10, padded->Row(0)[6] = 250, padded->Row(1)[5] = 0, padded->Row(1)[6] = 0;
    EXPECT_EQ(Colours()->GrayScale(padded.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(padded.Get()), (Bytes{29, 118, 140, 49, 85, 255, 255, 255, 178, 29}));
    auto packed = MakeImage(4, 2, 8, {0, 0, 0, 0, 255, 128, 0, 0}, 0);
    EXPECT_EQ(Colours()->GrayScale(packed.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(packed.Get()).at(2), 76);   // 306 x 255 >> 10
    EXPECT_EQ(PixelBytes(packed.Get()).at(3), 187);  // (601 x 255 + 306 x 128) >> 10

    // A host image, then Threshold on it: grey 66 is not above level 66.
    SmartPtr<IQELImageDIB> image = TestHost().NewImage(2, 2, 32, QEL_MODEL_ARGB);
    SetPixelBytes(image.Get(), {10, 20, 31, 0x40, 127, 128, 128, 0x41, 200, 0, 0, 0x42, 1, 2, 3, 0x43});
    EXPECT_EQ(Colours()->GrayScale(image.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(image.Get()),
              (Bytes{20, 20, 20, 0x40, 127, 127, 127, 0x41, 66, 66, 66, 0x42, 2, 2, 2, 0x43}));
    EXPECT_EQ(Colours()->Threshold(image.Get(), 66), QEL_OK);
    EXPECT_EQ(PixelBytes(image.Get()),
              (Bytes{0, 0, 0, 0x40, 255, 255, 255, 0x41, 0, 0, 0, 0x42, 0, 0, 0, 0x43}));
    EXPECT_EQ(RefCountOf(image.Get()), 1u);
}

TEST(ColorTone, ThresholdTurnsGreysAboveTheLevelWhite) {
    const auto threshold = [](int level) { return [=](IQEL* i) { return Colours()->Threshold(i, level); }; };
    EXPECT_EQ(After(3, 1, 24, {127, 127, 127, 120, 130, 134, 0, 0, 2}, threshold(127), false),
              (Bytes{0, 0, 0, 255, 255, 255, 0, 0, 0}));
    EXPECT_EQ(After(2, 1, 32, {128, 128, 128, 0x11, 127, 127, 127, 0x22}, threshold(127), false),
              (Bytes{255, 255, 255, 0x11, 0, 0, 0, 0x22}));
    EXPECT_EQ(After(1, 1, 24, {255, 255, 255}, threshold(0x7FFFFFFF), false), (Bytes{0, 0, 0}));
    // 8 bits: rows of 127 and 128 with padding alike, so the grey mix keeps them.
    auto grey = MakeImage(3, 2, 8, {127, 127, 127, 128, 128, 128});
    for (int i = 3; i < grey->Stride(); ++i) grey->Row(0)[i] = 127, grey->Row(1)[i] = 128;
    EXPECT_EQ(Colours()->Threshold(grey.Get(), 127), QEL_OK);
    EXPECT_EQ(PixelBytes(grey.Get()), (Bytes{0, 0, 0, 255, 255, 255}));
    // 4 and 1 bits are zeroed by the grey step; white is stored as 15 or 1.
    EXPECT_EQ(After(3, 1, 4, {0xF7, 0x30}, threshold(-1), false), (Bytes{0xFF, 0xF0}));
    EXPECT_EQ(After(3, 1, 4, {0xF7, 0x30}, threshold(0), false), (Bytes{0x00, 0x00}));
    EXPECT_EQ(After(9, 1, 1, {0x5A, 0x80}, threshold(-1), false), (Bytes{0xFF, 0x80}));
}

TEST(ColorColorize, TintsInSinglePrecisionAndWrapsHueAngles) {
    const auto tint = [](int hue, int saturation, float blend) {
        return [=](IQEL* i) {
            return Colours()->Colorize(i, (unsigned char)hue, (unsigned char)saturation, blend);
        };
    };
    const Bytes pixel = {40, 100, 200};
    EXPECT_EQ(After(1, 1, 24, {10, 20, 31}, tint(0, 0, 1.0f)), (Bytes{21, 21, 21}));
    EXPECT_EQ(After(1, 1, 24, {128, 128, 128}, tint(0, 255, 1.0f)), (Bytes{1, 1, 254}));
    EXPECT_EQ(After(1, 1, 24, pixel, tint(200, 255, 1.0f)), (Bytes{240, 0, 169}));  // red angle above 360
    EXPECT_EQ(After(1, 1, 24, pixel, tint(50, 200, 1.0f)), (Bytes{25, 214, 180}));  // blue angle below 0
    EXPECT_EQ(After(1, 1, 24, pixel, tint(170, 200, 1.0f)), (Bytes{214, 25, 25}));  // red angle exactly 360
    EXPECT_EQ(After(1, 1, 24, {64, 64, 64}, tint(100, 128, 1.0f)), (Bytes{54, 96, 31}));
    EXPECT_EQ(After(1, 1, 24, pixel, tint(50, 200, 0.5f)), (Bytes{32, 157, 190}));
    EXPECT_EQ(After(1, 1, 24, pixel, tint(200, 255, 0.999f)), (Bytes{239, 0, 169}));  // mixes, weight 255
    EXPECT_EQ(After(1, 1, 24, pixel, tint(200, 255, 1.5f)), (Bytes{240, 0, 169}));
    EXPECT_EQ(After(1, 1, 24, pixel, tint(200, 255, -1.0f)), pixel);
    EXPECT_EQ(After(2, 1, 32, {40, 100, 200, 0x5A, 128, 128, 128, 0}, tint(200, 255, 1.0f)),
              (Bytes{240, 0, 169, 0x5A, 254, 1, 180, 0}));
    // Palette images take the grey nearest to the tinted colour.
    EXPECT_EQ(After(8, 1, 8, {0, 17, 34, 51, 68, 85, 238, 255}, tint(200, 255, 0.5f)),
              (Bytes{0, 18, 36, 54, 72, 90, 239, 255}));
    EXPECT_EQ(After(3, 1, 4, {0x05, 0xD7}, tint(200, 255, 1.0f)), (Bytes{0x06, 0xF7}));
}

// The byte-wise kernels against a walk through GetPixelColor / SetPixelColor.
template <class Map>
void ExpectSameAsPixelHelpers(const Map& map) {
    for (int bitCount : {1, 4, 8, 16, 24, 25, 32})
        for (const auto& size : {std::array<int, 2>{1, 1}, {2, 1}, {1, 3}, {5, 2}, {9, 4}, {17, 3}, {33, 2}})
            for (int padding : {0, 3}) {
                const int w = size[0], h = size[1];
                SmartPtr<BufferImage> fast(BufferImage::Make(w, h, bitCount, 0, padding, padding == 0));
                SmartPtr<BufferImage> plain(BufferImage::Make(w, h, bitCount, 0, padding, padding == 0));
                fast->FillRandom(static_cast<uint32_t>(bitCount * 1000 + w * 10 + h));
                plain->FillRandom(static_cast<uint32_t>(bitCount * 1000 + w * 10 + h));
                color::MapPixels(ReadImageView(fast.Get()), map);
                const ImageView v = ReadImageView(plain.Get());
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x) {
                        const uint32_t c = GetPixelColor(v.bits, x, y, w, h, v.stride, bitCount);
                        unsigned char bgr[3] = {(unsigned char)BlueOf(c), (unsigned char)GreenOf(c),
                                                (unsigned char)RedOf(c)};
                        map(bgr);
                        SetPixelColor(v.bits, x, y, w, h, v.stride,
                                      PackColor(bgr[0], bgr[1], bgr[2], AlphaOf(c)), bitCount);
                    }
                ASSERT_EQ(fast->Snapshot(), plain->Snapshot()) << bitCount << " bits " << w << "x" << h;
            }
}

TEST(ColorPixelMaps, ByteWiseKernelsMatchThePixelHelpers) {
    ExpectSameAsPixelHelpers(color::ChannelShift(37, -20, 5));
    ExpectSameAsPixelHelpers(color::BlackWhiteThreshold(100));
    ExpectSameAsPixelHelpers(color::ColorizeTint(200, 255, 0.7f));
    ExpectSameAsPixelHelpers(color::ColorizeTint(13, 90, 1.0f));
}

}  // namespace
