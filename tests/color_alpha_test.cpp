// Alpha and transparency operations of the colour component, through
// IQELColorTransform as a host calls them.
#include <gtest/gtest.h>

#include <vector>

#include "support/test_image.h"

namespace {

using qeltest::BufferImage;
using qeltest::HexRows;
using qeltest::PixelBytes;
using Bytes = std::vector<unsigned char>;

SmartPtr<IQELColorTransform> Colours() {
    return qeltest::TestHost().Create<IQELColorTransform>(L"QELColorTransform", qel::iid::IQELColorTransform);
}

SmartPtr<BufferImage> MakeImage(int width, int height, int bitCount, const Bytes& pixels, int padding = 2,
                                bool bottomUp = false) {
    SmartPtr<BufferImage> image(
        BufferImage::Make(width, height, bitCount, QEL_MODEL_ARGB, padding, bottomUp));
    image->FillRandom(static_cast<uint32_t>(width * 17 + height + bitCount));
    qeltest::SetPixelBytes(image.Get(), pixels);
    return image;
}

// Bytes of the whole block with byte 3 of every 4-byte pixel replaced by
// `alpha`: what an alpha-only change should leave.
Bytes WithAlphaBytes(Bytes block, int width, int height, int stride, const Bytes& alphas) {
    size_t next = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) block[static_cast<size_t>(y * stride + 4 * x + 3)] = alphas[next++];
    return block;
}

TEST(ColorSetImageAlpha, StoresTheLowestByteAndOneForZero) {
    auto colours = Colours();
    const struct {
        int alpha;
        unsigned char stored;
    } cases[] = {{0, 1}, {300, 44}, {256, 0}, {255, 255}, {-1, 255}, {77, 77}};
    for (const auto& c : cases) {
        auto image = MakeImage(3, 2, 32, {});
        const Bytes expected = WithAlphaBytes(image->Snapshot(), 3, 2, image->Stride(), Bytes(6, c.stored));
        EXPECT_EQ(colours->SetImageAlpha(image.Get(), c.alpha, 12345), QEL_OK);
        EXPECT_EQ(image->Snapshot(), expected) << c.alpha;
    }
}

TEST(ColorSetImageAlpha, RefusesNullAndDepthsWithoutAlpha) {
    auto colours = Colours();
    EXPECT_EQ(colours->SetImageAlpha(nullptr, 5, 0), QEL_E_FAIL);
    EXPECT_EQ(colours->SetImageTransparentPixel(nullptr, 0), QEL_E_FAIL);
    EXPECT_EQ(colours->SetImageAlphaTransparency(nullptr, 5, 0), QEL_E_FAIL);
    for (int bitCount : {1, 4, 8, 16, 24}) {
        auto image = MakeImage(3, 2, bitCount, {});
        const Bytes before = image->Snapshot();
        EXPECT_EQ(colours->SetImageAlpha(image.Get(), 5, 0), QEL_E_FAIL) << bitCount;
        EXPECT_EQ(colours->SetImageTransparentPixel(image.Get(), 0), QEL_E_FAIL) << bitCount;
        EXPECT_EQ(colours->SetImageAlphaTransparency(image.Get(), 5, 0), QEL_E_FAIL) << bitCount;
        EXPECT_EQ(image->Snapshot(), before) << bitCount;
    }
    auto empty = MakeImage(4, 0, 32, {});
    EXPECT_EQ(colours->SetImageAlpha(empty.Get(), 5, 0), QEL_OK);
    EXPECT_EQ(colours->SetImageAlphaTransparency(empty.Get(), 5, 0), QEL_OK);
}

// Three-byte layouts above 24 bits: SetImageAlpha still walks 4-byte steps
// over 4 x width bytes, the key operations change nothing.
TEST(ColorAlphaDepths, ThreeByteLayoutsAboveTwentyFourBits) {
    auto colours = Colours();
    for (bool bottomUp : {false, true}) {
        // Width 6 at 25 bits: 20 bytes per row plus 2 of padding, so the
        // 24-byte span of one row reaches byte 1 of the row after it in
        // memory; the span of the row that ends the block stops at its end.
        auto image = MakeImage(6, 2, 25, {}, 2, bottomUp);
        Bytes expected = image->Snapshot();
        for (size_t row : {size_t{0}, size_t{22}})
            for (size_t at = 3; at < 22; at += 4) expected[row + at] = 9;
        expected[22 + 1] = 9;  // the spill of the first row in memory
        EXPECT_EQ(colours->SetImageAlpha(image.Get(), 9, 0), QEL_OK);
        EXPECT_EQ(image->Snapshot(), expected) << HexRows(image->Snapshot(), 22) << "want\n"
                                               << HexRows(expected, 22);
        EXPECT_TRUE(image->GuardsIntact());

        const Bytes before = image->Snapshot();
        EXPECT_EQ(colours->SetImageTransparentPixel(image.Get(), 0), QEL_OK);
        EXPECT_EQ(colours->SetImageAlphaTransparency(image.Get(), 7, 0), QEL_OK);
        EXPECT_EQ(image->Snapshot(), before);
    }
}

TEST(ColorSetImageTransparentPixel, KeyIsRedGreenBlueFromTheLowByte) {
    auto colours = Colours();
    // Pure red, red with green 1, the key's bytes in memory order, and blue.
    const Bytes pixels = {0, 0, 255, 0x80, 0, 1, 255, 0x81, 0x33, 0x22, 0x11, 0x82, 255, 0, 0, 0x83};
    for (unsigned key : {0x000000FFu, 0xFF0000FFu}) {
        auto image = MakeImage(2, 2, 32, pixels);
        const Bytes expected =
            WithAlphaBytes(image->Snapshot(), 2, 2, image->Stride(), {0x00, 0x81, 0x82, 0x83});
        EXPECT_EQ(colours->SetImageTransparentPixel(image.Get(), key), QEL_OK);
        EXPECT_EQ(image->Snapshot(), expected) << std::hex << key;
    }
    // Red 0x11, green 0x22, blue 0x33: the third pixel, not a byte-order twin.
    auto image = MakeImage(2, 2, 32, pixels, 0, true);
    EXPECT_EQ(colours->SetImageTransparentPixel(image.Get(), 0x00332211u), QEL_OK);
    EXPECT_EQ(PixelBytes(image.Get()),
              (Bytes{0, 0, 255, 0x80, 0, 1, 255, 0x81, 0x33, 0x22, 0x11, 0x00, 255, 0, 0, 0x83}));
}

TEST(ColorSetImageAlphaTransparency, KeyGetsZeroAndOthersTheAlpha) {
    auto colours = Colours();
    const Bytes pixels = {255, 255, 255, 0x10, 254, 255, 255, 0x20, 0, 0, 0, 0x30};
    auto image = MakeImage(3, 1, 32, pixels, 3);
    Bytes expected = WithAlphaBytes(image->Snapshot(), 3, 1, image->Stride(), {0, 128, 128});
    EXPECT_EQ(colours->SetImageAlphaTransparency(image.Get(), 128, 0xFFFFFF), QEL_OK);
    EXPECT_EQ(image->Snapshot(), expected);

    // Alpha 0 becomes 1, so that 0 is left to the key colour alone.
    expected = WithAlphaBytes(image->Snapshot(), 3, 1, image->Stride(), {1, 1, 0});
    EXPECT_EQ(colours->SetImageAlphaTransparency(image.Get(), 0, 0xAB000000), QEL_OK);
    EXPECT_EQ(image->Snapshot(), expected);
    EXPECT_EQ(image->RefCount(), 1u);
}

}  // namespace
