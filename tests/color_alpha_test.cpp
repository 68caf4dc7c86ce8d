// Alpha and transparency operations of the colour component, through
// IQELColorTransform as a host calls them.
#include <gtest/gtest.h>

#include <vector>

#include "support/component_test.h"

namespace {

using namespace qeltest;

SmartPtr<BufferImage> MakeImage(int width, int height, int bitCount, const Bytes& pixels,
                                bool bottomUp = false) {
    SmartPtr<BufferImage> image(BufferImage::Make(width, height, bitCount, QEL_MODEL_ARGB, 2, bottomUp));
    image->FillRandom(static_cast<uint32_t>(width * 17 + height + bitCount));
    SetPixelBytes(image.Get(), pixels);
    return image;
}

// The alpha bytes of a 32-bit image after `operation`, row by row; every
// other byte of the block must stay as it was.
template <class Operation>
Bytes AlphaAfter(int width, int height, const Bytes& pixels, Operation operation) {
    auto image = MakeImage(width, height, 32, pixels, height > 1);
    const auto colourBytes = [&] {
        Bytes block = image->Snapshot();
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) block[size_t(y * std::abs(image->Stride()) + 4 * x + 3)] = 0;
        return block;
    };
    const Bytes before = colourBytes();
    EXPECT_EQ(operation(image.Get()), QEL_OK);
    EXPECT_EQ(colourBytes(), before) << "a byte other than alpha changed";
    Bytes alpha;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) alpha.push_back(image->Row(y)[4 * x + 3]);
    return alpha;
}

TEST(ColorAlpha, SetImageAlphaStoresTheLowestByteAndOneForZero) {
    const auto alpha = [](int a) {
        return [=](IQEL* image) { return Colours()->SetImageAlpha(image, a, 99); };
    };
    EXPECT_EQ(AlphaAfter(3, 2, {}, alpha(0)), Bytes(6, 1));
    EXPECT_EQ(AlphaAfter(3, 2, {}, alpha(300)), Bytes(6, 44));
    EXPECT_EQ(AlphaAfter(3, 2, {}, alpha(256)), Bytes(6, 0));
    EXPECT_EQ(AlphaAfter(1, 1, {}, alpha(-1)), Bytes(1, 255));
}

TEST(ColorAlpha, KeyColourIsRedGreenBlueFromTheLowByte) {
    // Pure red, red with green 1, red 0x11 green 0x22 blue 0x33, pure blue.
    const Bytes pixels = {0, 0, 255, 0x80, 0, 1, 255, 0x81, 0x33, 0x22, 0x11, 0x82, 255, 0, 0, 0x83};
    const auto transparent = [](unsigned key) {
        return [=](IQEL* image) { return Colours()->SetImageTransparentPixel(image, key); };
    };
    EXPECT_EQ(AlphaAfter(2, 2, pixels, transparent(0x000000FF)), (Bytes{0x00, 0x81, 0x82, 0x83}));
    EXPECT_EQ(AlphaAfter(2, 2, pixels, transparent(0xFF0000FF)), (Bytes{0x00, 0x81, 0x82, 0x83}));
    EXPECT_EQ(AlphaAfter(2, 2, pixels, transparent(0x00332211)), (Bytes{0x80, 0x81, 0x00, 0x83}));

    const auto both = [](int alpha, unsigned key) {
        return [=](IQEL* image) { return Colours()->SetImageAlphaTransparency(image, alpha, key); };
    };
    const Bytes greys = {255, 255, 255, 0x10, 254, 255, 255, 0x20, 0, 0, 0, 0x30};
    EXPECT_EQ(AlphaAfter(3, 1, greys, both(128, 0xFFFFFF)), (Bytes{0, 128, 128}));
    // Alpha 0 becomes 1, so that 0 is left to the key colour alone.
    EXPECT_EQ(AlphaAfter(3, 1, greys, both(0, 0xAB000000)), (Bytes{1, 1, 0}));
}

TEST(ColorAlpha, DepthsWithoutAlphaAndThreeByteLayouts) {
    EXPECT_EQ(Colours()->SetImageAlpha(nullptr, 5, 0), QEL_E_FAIL);
    EXPECT_EQ(Colours()->SetImageTransparentPixel(nullptr, 0), QEL_E_FAIL);
    EXPECT_EQ(Colours()->SetImageAlphaTransparency(nullptr, 5, 0), QEL_E_FAIL);
    for (int bitCount : {1, 4, 8, 16, 24}) {
        auto image = MakeImage(3, 2, bitCount, {});
        const Bytes before = image->Snapshot();
        EXPECT_EQ(Colours()->SetImageAlpha(image.Get(), 5, 0), QEL_E_FAIL) << bitCount;
        EXPECT_EQ(Colours()->SetImageTransparentPixel(image.Get(), 0), QEL_E_FAIL) << bitCount;
        EXPECT_EQ(Colours()->SetImageAlphaTransparency(image.Get(), 5, 0), QEL_E_FAIL) << bitCount;
        EXPECT_EQ(image->Snapshot(), before) << bitCount;
    }
    auto empty = MakeImage(4, 0, 32, {});
    EXPECT_EQ(Colours()->SetImageAlpha(empty.Get(), 5, 0), QEL_OK);

    // 25 bits, width 6: 20 bytes per row plus 2 of padding. SetImageAlpha
    // walks 4-byte steps over 24 bytes, so the first row in memory reaches
    // byte 1 of the next; the row that ends the block stops at its end. The
    // key operations see three-byte pixels without alpha and change nothing.
    for (bool bottomUp : {false, true}) {
        auto image = MakeImage(6, 2, 25, {}, bottomUp);
        Bytes expected = image->Snapshot();
        for (size_t at = 3; at < 22; at += 4) expected[at] = expected[22 + at] = 9;
        expected[22 + 1] = 9;
        EXPECT_EQ(Colours()->SetImageAlpha(image.Get(), 9, 0), QEL_OK);
        EXPECT_EQ(image->Snapshot(), expected);
        EXPECT_TRUE(image->GuardsIntact());
        EXPECT_EQ(Colours()->SetImageTransparentPixel(image.Get(), 0), QEL_OK);
        EXPECT_EQ(Colours()->SetImageAlphaTransparency(image.Get(), 7, 0), QEL_OK);
        EXPECT_EQ(image->Snapshot(), expected);
    }
}

}  // namespace
