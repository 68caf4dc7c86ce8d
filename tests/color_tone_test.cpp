// Tone, lookup and colorize operations of the colour component, driven
// through IQELColorTransform as a host calls them.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "color/color_kernels.h"
#include "image/pixel.h"
#include "support/test_image.h"

namespace {

using qeltest::BufferImage;
using qeltest::HexRows;
using qeltest::PixelBytes;
using Bytes = std::vector<unsigned char>;

SmartPtr<IQELColorTransform> Colours() {
    return qeltest::TestHost().Create<IQELColorTransform>(L"QELColorTransform", qel::iid::IQELColorTransform);
}

unsigned ModelFor(int bitCount) {
    return bitCount == 32 ? QEL_MODEL_ARGB : bitCount >= 24 ? QEL_MODEL_BGR : QEL_MODEL_MONO;
}

// An image with random padding bytes (three per row) and the given pixel rows.
SmartPtr<BufferImage> MakeImage(int width, int height, int bitCount, const Bytes& pixels, int padding = 3,
                                bool bottomUp = false) {
    SmartPtr<BufferImage> image(
        BufferImage::Make(width, height, bitCount, ModelFor(bitCount), padding, bottomUp));
    image->FillRandom(static_cast<uint32_t>(width * 131 + height * 7 + bitCount));
    qeltest::SetPixelBytes(image.Get(), pixels);
    return image;
}

size_t RowBytes(int width, int bitCount) { return (static_cast<size_t>(width) * bitCount + 7) / 8; }

// Every byte of the block that is not part of a row's pixels, in memory order.
Bytes PaddingOf(const BufferImage* image, int width, int bitCount) {
    const Bytes block = image->Snapshot();
    const size_t stride = static_cast<size_t>(std::abs(const_cast<BufferImage*>(image)->Stride()));
    Bytes padding;
    for (size_t row = 0; row < block.size(); row += stride)
        padding.insert(padding.end(), block.begin() + row + RowBytes(width, bitCount),
                       block.begin() + row + stride);
    return padding;
}

#define EXPECT_PIXELS(image, width, bitCount, expected)                      \
    EXPECT_EQ(PixelBytes(image), expected)                                   \
        << "got\n"                                                           \
        << HexRows(PixelBytes(image), RowBytes(width, bitCount)) << "want\n" \
        << HexRows(expected, RowBytes(width, bitCount))

// The nearest DefaultPalette entry found by walking the ramp, as palette
// writes are defined: exact match ends the walk, ties keep the lower index.
int NearestGreyByWalk(int blue, int green, int red) {
    int best = 0, bestDistance = 200000;
    for (int i = 0; i < 256; ++i) {
        const int distance = (i - blue) * (i - blue) + (i - green) * (i - green) + (i - red) * (i - red);
        if (distance == 0) return i;
        if (distance < bestDistance) best = i, bestDistance = distance;
    }
    return best;
}

// ---- Lut and Negative ----------------------------------------------------------

TEST(ColorLut, MapsColourBytesOfEachDepthAndKeepsAlphaAndPadding) {
    unsigned char table[256];
    for (int v = 0; v < 256; ++v) table[v] = static_cast<unsigned char>(v * 7 + 3);
    auto colours = Colours();

    auto grey = MakeImage(3, 2, 8, {0, 1, 2, 253, 254, 255});
    const Bytes greyPadding = PaddingOf(grey.Get(), 3, 8);
    EXPECT_EQ(colours->Lut(grey.Get(), table), QEL_OK);
    EXPECT_PIXELS(grey.Get(), 3, 8, (Bytes{3, 10, 17, 0xEE, 0xF5, 0xFC}));
    EXPECT_EQ(PaddingOf(grey.Get(), 3, 8), greyPadding);

    auto bgr = MakeImage(2, 1, 24, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(colours->Lut(bgr.Get(), table), QEL_OK);
    EXPECT_PIXELS(bgr.Get(), 2, 24, (Bytes{10, 17, 24, 31, 38, 45}));

    auto argb = MakeImage(2, 1, 32, {1, 2, 3, 0x80, 4, 5, 6, 0x00});
    const Bytes argbPadding = PaddingOf(argb.Get(), 2, 32);
    EXPECT_EQ(colours->Lut(argb.Get(), table), QEL_OK);
    EXPECT_PIXELS(argb.Get(), 2, 32, (Bytes{10, 17, 24, 0x80, 31, 38, 45, 0x00}));
    EXPECT_EQ(PaddingOf(argb.Get(), 2, 32), argbPadding);

    // Only 8, 24 and 32 bits go through the table.
    for (int bitCount : {1, 4, 16, 25}) {
        auto other = MakeImage(5, 2, bitCount, {});
        const Bytes before = other->Snapshot();
        EXPECT_EQ(colours->Lut(other.Get(), table), QEL_OK);
        EXPECT_EQ(other->Snapshot(), before) << bitCount;
    }
}

TEST(ColorLut, NullArgumentsFailAndTouchNothing) {
    unsigned char table[256] = {};
    auto colours = Colours();
    auto image = MakeImage(2, 2, 24, {});
    const Bytes before = image->Snapshot();
    EXPECT_EQ(colours->Lut(nullptr, table), QEL_E_FAIL);
    EXPECT_EQ(colours->Lut(image.Get(), nullptr), QEL_E_FAIL);
    EXPECT_EQ(colours->Negative(nullptr), QEL_E_FAIL);
    EXPECT_EQ(colours->ShiftRGB(nullptr, 1, 1, 1), QEL_E_FAIL);
    EXPECT_EQ(colours->GrayScale(nullptr), QEL_E_FAIL);
    EXPECT_EQ(colours->Threshold(nullptr, 1), QEL_E_FAIL);
    EXPECT_EQ(colours->Light(image.Get(), 0, 0), QEL_OK);
    EXPECT_EQ(colours->Light(nullptr, 5, 5), QEL_E_FAIL);
    EXPECT_EQ(colours->Gamma(nullptr, 2.0f), QEL_E_FAIL);
    EXPECT_EQ(image->Snapshot(), before);
    EXPECT_EQ(image->RefCount(), 1u);
}

TEST(ColorNegative, InvertsColourBytesOnlyAndTwiceRestores) {
    auto colours = Colours();
    auto argb = MakeImage(3, 2, 32, {0,   1,   2,   3,   0xF0, 0x0F, 0xAA, 0x55, 9,    8,    7,    6,  //
                                     255, 254, 253, 252, 10,   20,   30,   40,   0x80, 0x7F, 0x01, 0xFE});
    const Bytes before = argb->Snapshot();
    EXPECT_EQ(colours->Negative(argb.Get()), QEL_OK);
    EXPECT_PIXELS(argb.Get(), 3, 32,
                  (Bytes{255, 254, 253, 3,   0x0F, 0xF0, 0x55, 0x55, 246,  247,  248,  6,  //
                         0,   1,   2,   252, 245,  235,  225,  40,   0x7F, 0x80, 0xFE, 0xFE}));
    EXPECT_EQ(colours->Negative(argb.Get()), QEL_OK);
    EXPECT_EQ(argb->Snapshot(), before);

    auto grey = MakeImage(5, 1, 8, {0, 1, 127, 128, 255});
    colours->Negative(grey.Get());
    EXPECT_PIXELS(grey.Get(), 5, 8, (Bytes{255, 254, 128, 127, 0}));

    auto bgr = MakeImage(1, 2, 24, {1, 2, 3, 200, 100, 50}, 1, true);
    const Bytes padding = PaddingOf(bgr.Get(), 1, 24);
    colours->Negative(bgr.Get());
    EXPECT_PIXELS(bgr.Get(), 1, 24, (Bytes{254, 253, 252, 55, 155, 205}));
    EXPECT_EQ(PaddingOf(bgr.Get(), 1, 24), padding);

    auto nibbles = MakeImage(3, 1, 4, {0x12, 0x30});
    const Bytes nibblesBefore = nibbles->Snapshot();
    colours->Negative(nibbles.Get());
    EXPECT_EQ(nibbles->Snapshot(), nibblesBefore);
}

// ---- Light and Gamma build their tables and hand them to Lut ---------------------

Bytes Ramp() {
    Bytes ramp(256);
    for (int v = 0; v < 256; ++v) ramp[static_cast<size_t>(v)] = static_cast<unsigned char>(v);
    return ramp;
}

// The table an operation applied, read back from a 256 x 1 grey ramp.
template <class Operation>
Bytes TableOf(Operation operation) {
    auto ramp = MakeImage(256, 1, 8, Ramp());
    EXPECT_EQ(operation(ramp.Get()), QEL_OK);
    return PixelBytes(ramp.Get());
}

TEST(ColorLight, OffsetIsAddedBeforeClampingAndValuesTruncate) {
    auto colours = Colours();
    EXPECT_EQ(TableOf([&](IQEL* i) { return colours->Light(i, 0, 0); }), Ramp());

    const Bytes brighter = TableOf([&](IQEL* i) { return colours->Light(i, 200, 0); });
    EXPECT_EQ(brighter[0], 200);
    EXPECT_EQ(brighter[54], 254);
    EXPECT_EQ(brighter[55], 255);
    EXPECT_EQ(brighter[255], 255);

    // Slope 3, offset -72: the product is not clamped before the offset.
    const Bytes steep = TableOf([&](IQEL* i) { return colours->Light(i, -200, 200); });
    EXPECT_EQ(steep[255], 255);  // 381 - 72
    EXPECT_EQ(steep[170], 54);   // 126 - 72
    EXPECT_EQ(steep[153], 3);
    EXPECT_EQ(steep[150], 0);  // 66 - 72
    EXPECT_EQ(steep[0], 0);

    // Slope 1.5: half values truncate toward zero.
    const Bytes half = TableOf([&](IQEL* i) { return colours->Light(i, 0, 50); });
    EXPECT_EQ(half[129], 129);  // 129.5
    EXPECT_EQ(half[127], 126);  // 126.5
    EXPECT_EQ(half[44], 2);     // 2.0
    EXPECT_EQ(half[43], 0);     // 0.5

    // Single precision: 100 x 0.01f rounds to 1 in float, stays below 1 in double.
    EXPECT_EQ(TableOf([&](IQEL* i) { return colours->Light(i, 0, -99); })[228], 129);

    const Bytes flat = TableOf([&](IQEL* i) { return colours->Light(i, 20, -100); });
    EXPECT_EQ(flat, Bytes(256, 148));

    // Huge offsets saturate instead of overflowing.
    EXPECT_EQ(TableOf([&](IQEL* i) { return colours->Light(i, 0x7FFFFFFF, 0); }), Bytes(256, 255));
    EXPECT_EQ(TableOf([&](IQEL* i) { return colours->Light(i, -0x7FFFFFFF - 1, 0); }), Bytes(256, 0));
}

TEST(ColorGamma, ExponentIsSinglePrecisionAndCurveDouble) {
    auto colours = Colours();
    EXPECT_EQ(TableOf([&](IQEL* i) { return colours->Gamma(i, 1.0f); }), Ramp());
    EXPECT_EQ(TableOf([&](IQEL* i) { return colours->Gamma(i, 0.0f); }), Bytes(256, 0));

    const Bytes bright = TableOf([&](IQEL* i) { return colours->Gamma(i, 2.2f); });
    EXPECT_EQ(Bytes(bright.begin(), bright.begin() + 10), (Bytes{0, 20, 28, 33, 38, 42, 46, 49, 52, 55}));
    // Where the exponent's precision shows: an exponent from 1/0.43 in double
    // would map 255 to 255, from 1/0.12 to 254.
    const Bytes dark = TableOf([&](IQEL* i) { return colours->Gamma(i, 0.43f); });
    EXPECT_EQ(Bytes(dark.begin() + 250, dark.end()), (Bytes{243, 245, 248, 250, 252, 254}));
    EXPECT_EQ(TableOf([&](IQEL* i) { return colours->Gamma(i, 0.12f); })[255], 255);

    auto argb = MakeImage(1, 1, 32, {0, 255, 128, 77});
    colours->Gamma(argb.Get(), 0.0f);
    EXPECT_PIXELS(argb.Get(), 1, 32, (Bytes{0, 0, 0, 77}));
}

// ---- ShiftRGB ---------------------------------------------------------------------

TEST(ColorShiftRGB, ClampsEachChannelAndKeepsAlpha) {
    auto colours = Colours();
    auto bgr = MakeImage(2, 2, 24, {0, 0, 0, 10, 20, 30, 255, 128, 1, 200, 7, 100}, 2);
    const Bytes padding = PaddingOf(bgr.Get(), 2, 24);
    EXPECT_EQ(colours->ShiftRGB(bgr.Get(), 300, 0, -300), QEL_OK);
    EXPECT_PIXELS(bgr.Get(), 2, 24, (Bytes{0, 0, 255, 0, 20, 255, 0, 128, 255, 0, 7, 255}));
    EXPECT_EQ(PaddingOf(bgr.Get(), 2, 24), padding);

    auto argb = MakeImage(1, 2, 32, {10, 20, 30, 0x42, 250, 5, 128, 0xFF});
    colours->ShiftRGB(argb.Get(), -29, 10, 6);
    EXPECT_PIXELS(argb.Get(), 1, 32, (Bytes{16, 30, 1, 0x42, 255, 15, 99, 0xFF}));
}

TEST(ColorShiftRGB, PalettePixelsTakeTheNearestGrey) {
    auto colours = Colours();
    // (100, 100, 101) is nearest to 100, (100, 101, 101) to 101: the mean rounds.
    auto grey = MakeImage(4, 1, 8, {100, 0, 255, 50});
    colours->ShiftRGB(grey.Get(), 1, 0, 0);
    EXPECT_PIXELS(grey.Get(), 4, 8, (Bytes{100, 0, 255, 50}));
    colours->ShiftRGB(grey.Get(), 1, 1, 0);
    EXPECT_PIXELS(grey.Get(), 4, 8, (Bytes{101, 1, 255, 51}));

    // Every grey under several shifts against the walk over the ramp.
    const int shifts[][3] = {{1, 1, 0}, {-1, 0, 0}, {10, 20, -40}, {300, -2, 0}, {-255, 255, 1}, {0, 2, -1}};
    for (const auto& shift : shifts) {
        auto ramp = MakeImage(256, 1, 8, Ramp());
        colours->ShiftRGB(ramp.Get(), shift[0], shift[1], shift[2]);
        Bytes expected(256);
        for (int v = 0; v < 256; ++v)
            expected[static_cast<size_t>(v)] = static_cast<unsigned char>(
                NearestGreyByWalk(color::ClampToByte(v + shift[2]), color::ClampToByte(v + shift[1]),
                                  color::ClampToByte(v + shift[0])));
        EXPECT_EQ(PixelBytes(ramp.Get()), expected) << shift[0] << "," << shift[1] << "," << shift[2];
    }

    // 4 bits keep the low nibble of the new index, 1 bit its low bit; the
    // unused low nibble of an odd-width row stays.
    auto nibbles = MakeImage(3, 1, 4, {0x5F, 0x0A});
    colours->ShiftRGB(nibbles.Get(), 30, 0, 0);  // 5 -> 15, 15 -> 25 & 15, 0 -> 10
    EXPECT_PIXELS(nibbles.Get(), 3, 4, (Bytes{0xF9, 0xAA}));

    auto bits = MakeImage(10, 1, 1, {0xA5, 0xBF});
    colours->ShiftRGB(bits.Get(), 3, 0, 0);  // 1 -> 2 & 1 = 0, 0 -> 1
    EXPECT_PIXELS(bits.Get(), 10, 1, (Bytes{0x5A, 0x7F}));
}

// ---- GrayScale --------------------------------------------------------------------

// An IQELImage over a BufferImage that counts Assign calls and can refuse
// to answer IQELImage, to see how GrayScale hands its result over.
class ForwardingImage final : public IQELImage {
public:
    ForwardingImage(BufferImage* inner, bool answersImage) : inner_(inner), answersImage_(answersImage) {}
    QResult QueryInterface(const IID& iid, void** object) override {
        if (iid == qel::iid::IUnknown || iid == qel::iid::IQEL ||
            (answersImage_ && iid == qel::iid::IQELImage)) {
            ++refs_;
            *object = static_cast<IQELImage*>(this);
            return QEL_OK;
        }
        *object = nullptr;
        return QEL_E_NOINTERFACE;
    }
    uint32_t AddRef() override { return ++refs_; }
    uint32_t Release() override { return --refs_; }  // lives on the test's stack
    QResult GetSize(int* w, int* h, int* p) override { return inner_->GetSize(w, h, p); }
    QResult GetFormat(int* b, unsigned* m, int* r) override { return inner_->GetFormat(b, m, r); }
    QResult GetBits(int i, int* r, unsigned char** b, int* s) override { return inner_->GetBits(i, r, b, s); }
    QResult Create(int w, int h, int p, int b, unsigned m) override { return inner_->Create(w, h, p, b, m); }
    QResult Clear() override { return inner_->Clear(); }
    QResult Assign(IQEL* source, int flags) override {
        ++assigns_;
        return inner_->Assign(source, flags);
    }
    uint32_t refs_ = 1;
    int assigns_ = 0;

private:
    BufferImage* inner_;
    bool answersImage_;
};

TEST(ColorGrayScale, DirectColourTakesTheChannelMeanThroughAssign) {
    auto colours = Colours();
    auto argb = MakeImage(2, 1, 32, {10, 20, 31, 0x33, 255, 255, 254, 0xC0});
    ForwardingImage forwarding(argb.Get(), true);
    EXPECT_EQ(colours->GrayScale(&forwarding), QEL_OK);
    EXPECT_EQ(forwarding.assigns_, 1);
    EXPECT_EQ(forwarding.refs_, 1u);
    EXPECT_PIXELS(argb.Get(), 2, 32, (Bytes{20, 20, 20, 0x33, 254, 254, 254, 0xC0}));

    auto bgr = MakeImage(3, 1, 24, {10, 20, 31, 0, 0, 2, 100, 101, 101});
    EXPECT_EQ(colours->GrayScale(bgr.Get()), QEL_OK);
    EXPECT_PIXELS(bgr.Get(), 3, 24, (Bytes{20, 20, 20, 0, 0, 0, 100, 100, 100}));
    EXPECT_EQ(bgr->RefCount(), 1u);

    // Without IQELImage the result cannot be handed over: the source stays.
    auto kept = MakeImage(1, 1, 24, {10, 20, 31});
    ForwardingImage refusing(kept.Get(), false);
    EXPECT_EQ(colours->GrayScale(&refusing), QEL_OK);
    EXPECT_EQ(refusing.assigns_, 0);
    EXPECT_PIXELS(kept.Get(), 1, 24, (Bytes{10, 20, 31}));
}

TEST(ColorGrayScale, HostImagesTakeTheResultAndThresholdFollows) {
    auto colours = Colours();
    SmartPtr<IQELImageDIB> image = qeltest::TestHost().NewImage(2, 2, 32, QEL_MODEL_ARGB);
    ASSERT_TRUE(image);
    qeltest::SetPixelBytes(image.Get(),
                           {10, 20, 31, 0x40, 127, 128, 128, 0x41, 200, 0, 0, 0x42, 1, 2, 3, 0x43});
    EXPECT_EQ(colours->GrayScale(image.Get()), QEL_OK);
    EXPECT_PIXELS(image.Get(), 2, 32,
                  (Bytes{20, 20, 20, 0x40, 127, 127, 127, 0x41, 66, 66, 66, 0x42, 2, 2, 2, 0x43}));
    EXPECT_EQ(colours->Threshold(image.Get(), 66), QEL_OK);
    EXPECT_PIXELS(image.Get(), 2, 32,
                  (Bytes{0, 0, 0, 0x40, 255, 255, 255, 0x41, 0, 0, 0, 0x42, 0, 0, 0, 0x43}));
    EXPECT_EQ(qeltest::RefCountOf(image.Get()), 1u);
}

TEST(ColorGrayScale, GreyPixelsMixWithTheTwoBytesAfterThem) {
    auto colours = Colours();
    // Width 5, stride 8 + 3: the last two pixels of a row read its padding.
    auto grey = MakeImage(5, 2, 8, {0, 0, 100, 200, 40, 255, 255, 255, 255, 255});
    grey->Row(0)[5] = 10, grey->Row(0)[6] = 250;
    grey->Row(1)[5] = 0, grey->Row(1)[6] = 0;
    EXPECT_EQ(colours->GrayScale(grey.Get()), QEL_OK);
    // (117 a + 601 b + 306 c) >> 10 over each byte and the two after it.
    EXPECT_PIXELS(grey.Get(), 5, 8, (Bytes{29, 118, 140, 49, 85, 255, 255, 255, 178, 29}));

    // Width 4 without padding: row 0's last pixels read the start of row 1.
    auto packed = MakeImage(4, 2, 8, {0, 0, 0, 0, 255, 128, 0, 0}, 0);
    colours->GrayScale(packed.Get());
    EXPECT_EQ(PixelBytes(packed.Get())[2], 76);   // 306 * 255 >> 10
    EXPECT_EQ(PixelBytes(packed.Get())[3], 187);  // (601 * 255 + 306 * 128) >> 10
}

TEST(ColorGrayScale, OtherDepthsTakeTheUnwrittenNewImage) {
    auto colours = Colours();
    auto nibbles = MakeImage(5, 2, 4, {0x12, 0x34, 0x50, 0xFF, 0xEE, 0xD0});
    EXPECT_EQ(colours->GrayScale(nibbles.Get()), QEL_OK);
    EXPECT_PIXELS(nibbles.Get(), 5, 4, Bytes(6, 0));

    auto empty = MakeImage(0, 3, 24, {});
    EXPECT_EQ(colours->GrayScale(empty.Get()), QEL_OK);
}

// ---- Threshold --------------------------------------------------------------------

TEST(ColorThreshold, GreyAboveTheLevelTurnsWhite) {
    auto colours = Colours();
    // Greys 127 and 128 (channel sums 381 and 384).
    auto bgr = MakeImage(3, 1, 24, {127, 127, 127, 120, 130, 134, 0, 0, 2});
    EXPECT_EQ(colours->Threshold(bgr.Get(), 127), QEL_OK);
    EXPECT_PIXELS(bgr.Get(), 3, 24, (Bytes{0, 0, 0, 255, 255, 255, 0, 0, 0}));

    auto argb = MakeImage(2, 1, 32, {128, 128, 128, 0x11, 127, 127, 127, 0x22});
    colours->Threshold(argb.Get(), 127);
    EXPECT_PIXELS(argb.Get(), 2, 32, (Bytes{255, 255, 255, 0x11, 0, 0, 0, 0x22}));

    // 8 bits: rows of 127 and 128, padding alike so the mix keeps them.
    auto grey = MakeImage(3, 2, 8, {127, 127, 127, 128, 128, 128});
    for (int i = 3; i < grey->Stride(); ++i) grey->Row(0)[i] = 127, grey->Row(1)[i] = 128;
    colours->Threshold(grey.Get(), 127);
    EXPECT_PIXELS(grey.Get(), 3, 8, (Bytes{0, 0, 0, 255, 255, 255}));

    // A huge level cannot overflow into a negative bound.
    auto white = MakeImage(1, 1, 24, {255, 255, 255});
    colours->Threshold(white.Get(), 0x7FFFFFFF);
    EXPECT_PIXELS(white.Get(), 1, 24, (Bytes{0, 0, 0}));
}

TEST(ColorThreshold, PaletteDepthsThresholdTheGreyScaledImage) {
    auto colours = Colours();
    // GrayScale leaves 4- and 1-bit images zeroed; white is stored as 15 or 1.
    auto nibbles = MakeImage(3, 1, 4, {0xF7, 0x30});
    colours->Threshold(nibbles.Get(), -1);
    EXPECT_PIXELS(nibbles.Get(), 3, 4, (Bytes{0xFF, 0xF0}));
    colours->Threshold(nibbles.Get(), 0);
    EXPECT_PIXELS(nibbles.Get(), 3, 4, (Bytes{0x00, 0x00}));

    auto bits = MakeImage(9, 1, 1, {0x5A, 0x80});
    colours->Threshold(bits.Get(), -1);
    EXPECT_PIXELS(bits.Get(), 9, 1, (Bytes{0xFF, 0x80}));
}

// ---- Colorize -----------------------------------------------------------------------

TEST(ColorColorize, TintsToHueAndSaturationInSinglePrecision) {
    auto colours = Colours();
    struct Case {
        Bytes pixel;  // blue, green, red
        unsigned char hue, saturation;
        float blend;
        Bytes expected;
    } cases[] = {
        {{10, 20, 31}, 0, 0, 1.0f, {21, 21, 21}},         // grey at the lightness
        {{128, 128, 128}, 0, 255, 1.0f, {1, 1, 254}},     // red from the high value
        {{40, 100, 200}, 200, 255, 1.0f, {240, 0, 169}},  // red angle wraps above 360
        {{40, 100, 200}, 50, 200, 1.0f, {25, 214, 180}},  // blue angle wraps below 0
        {{40, 100, 200}, 170, 200, 1.0f, {214, 25, 25}},  // red angle exactly 360: low value
        {{200, 200, 200}, 200, 255, 1.0f, {254, 145, 222}}, {{64, 64, 64}, 100, 128, 1.0f, {54, 96, 31}},
        {{40, 100, 200}, 50, 200, 0.5f, {32, 157, 190}},    // weight 128
        {{40, 100, 200}, 200, 255, 0.999f, {239, 0, 169}},  // still mixes, weight 255
        {{40, 100, 200}, 200, 255, 1.5f, {240, 0, 169}},    // clamped to 1
        {{40, 100, 200}, 200, 255, -1.0f, {40, 100, 200}},  // clamped to 0
    };
    for (const Case& c : cases) {
        auto bgr = MakeImage(1, 1, 24, c.pixel);
        EXPECT_EQ(colours->Colorize(bgr.Get(), c.hue, c.saturation, c.blend), QEL_OK);
        EXPECT_PIXELS(bgr.Get(), 1, 24, c.expected)
            << int{c.hue} << " " << int{c.saturation} << " " << c.blend;
    }
    EXPECT_EQ(colours->Colorize(nullptr, 1, 2, 1.0f), QEL_E_FAIL);
}

TEST(ColorColorize, KeepsAlphaAndPaletteImagesStayGrey) {
    auto colours = Colours();
    auto argb = MakeImage(2, 1, 32, {40, 100, 200, 0x5A, 128, 128, 128, 0x00}, 1, true);
    const Bytes padding = PaddingOf(argb.Get(), 2, 32);
    colours->Colorize(argb.Get(), 200, 255, 1.0f);
    EXPECT_PIXELS(argb.Get(), 2, 32, (Bytes{240, 0, 169, 0x5A, 254, 1, 180, 0x00}));
    EXPECT_EQ(PaddingOf(argb.Get(), 2, 32), padding);

    // Grey i tints to a colour whose nearest grey is stored.
    auto grey =
        MakeImage(16, 1, 8, {0, 17, 34, 51, 68, 85, 102, 119, 136, 153, 170, 187, 204, 221, 238, 255});
    colours->Colorize(grey.Get(), 200, 255, 0.5f);
    EXPECT_PIXELS(grey.Get(), 16, 8,
                  (Bytes{0, 18, 36, 54, 72, 90, 109, 127, 144, 160, 175, 191, 207, 223, 239, 255}));

    auto nibbles = MakeImage(3, 1, 4, {0x05, 0xD7});
    colours->Colorize(nibbles.Get(), 200, 255, 1.0f);  // 0 -> 0, 5 -> 6, 13 -> 15
    EXPECT_PIXELS(nibbles.Get(), 3, 4, (Bytes{0x06, 0xF7}));

    auto noChange = MakeImage(7, 3, 24, {});
    const Bytes before = noChange->Snapshot();
    colours->Colorize(noChange.Get(), 99, 99, 0.0f);
    EXPECT_EQ(noChange->Snapshot(), before);
}

// ---- The byte-wise kernels against the pixel helpers ---------------------------------

// The plain walk every map must agree with: each pixel read and written
// through GetPixelColor / SetPixelColor.
template <class Map>
void MapThroughPixelHelpers(const ImageView& image, const Map& map) {
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x) {
            const uint32_t colour =
                GetPixelColor(image.bits, x, y, image.width, image.height, image.stride, image.bitCount);
            unsigned char bgr[3] = {static_cast<unsigned char>(BlueOf(colour)),
                                    static_cast<unsigned char>(GreenOf(colour)),
                                    static_cast<unsigned char>(RedOf(colour))};
            map(bgr);
            SetPixelColor(image.bits, x, y, image.width, image.height, image.stride,
                          PackColor(bgr[0], bgr[1], bgr[2], AlphaOf(colour)), image.bitCount);
        }
}

template <class Map>
void ExpectSameAsPixelHelpers(const Map& map, const char* name) {
    const int sizes[][2] = {{1, 1}, {2, 1}, {1, 3}, {3, 3}, {5, 2}, {9, 4}, {17, 3}, {33, 2}};
    for (int bitCount : {1, 4, 8, 16, 24, 25, 32})
        for (const auto& size : sizes)
            for (int padding : {0, 3})
                for (bool bottomUp : {false, true}) {
                    SmartPtr<BufferImage> fast(
                        BufferImage::Make(size[0], size[1], bitCount, ModelFor(bitCount), padding, bottomUp));
                    SmartPtr<BufferImage> plain(
                        BufferImage::Make(size[0], size[1], bitCount, ModelFor(bitCount), padding, bottomUp));
                    const uint32_t seed = static_cast<uint32_t>(bitCount * 1000 + size[0] * 10 + size[1]);
                    fast->FillRandom(seed);
                    plain->FillRandom(seed);
                    color::MapPixels(ReadImageView(fast.Get()), map);
                    MapThroughPixelHelpers(ReadImageView(plain.Get()), map);
                    ASSERT_EQ(fast->Snapshot(), plain->Snapshot())
                        << name << " " << bitCount << " bits " << size[0] << "x" << size[1] << " padding "
                        << padding << (bottomUp ? " bottom-up" : "");
                    ASSERT_TRUE(fast->GuardsIntact());
                }
}

TEST(ColorPixelMaps, ByteWiseKernelsMatchThePixelHelpers) {
    ExpectSameAsPixelHelpers(color::ChannelShift(37, -20, 5), "shift");
    ExpectSameAsPixelHelpers(color::ChannelShift(-300, 0, 300), "shift");
    ExpectSameAsPixelHelpers(color::BlackWhiteThreshold(100), "threshold");
    ExpectSameAsPixelHelpers(color::BlackWhiteThreshold(3), "threshold");
    ExpectSameAsPixelHelpers(color::ColorizeTint(200, 255, 0.7f), "colorize");
    ExpectSameAsPixelHelpers(color::ColorizeTint(13, 90, 1.0f), "colorize");
}

}  // namespace
