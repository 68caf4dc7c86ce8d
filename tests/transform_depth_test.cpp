// IncreaseBpp: grey, palette and 24-bit images to deeper formats.
#include <gtest/gtest.h>

#include <vector>

#include "support/host_images.h"

namespace {

using namespace qeltest;

TEST(IncreaseBpp, NoDeeperFormatHandsBackTheSource) {
    SmartPtr<IQELImageDIB> source = HostImage(2, 1, 24, {1, 2, 3, 4, 5, 6});
    for (int bitCount : {24, 8, 0}) {
        IQEL* result = nullptr;
        EXPECT_EQ(Transform()->IncreaseBpp(source.Get(), &result, bitCount, QEL_MODEL_ARGB),
                  QEL_NOTHING_TO_DO);
        EXPECT_EQ(result, static_cast<IQEL*>(source.Get()));
        EXPECT_EQ(RefCountOf(source.Get()), 2u);
        result->Release();
    }
    IQEL* result = nullptr;
    EXPECT_EQ(Transform()->IncreaseBpp(nullptr, &result, 32, 0), QEL_E_FAIL);
}

TEST(IncreaseBpp, GreyIndicesBecomeGreyPixels) {
    SmartPtr<IQELImageDIB> source = HostImage(3, 2, 8, {0, 7, 255, 128, 1, 2});
    IQEL* result = nullptr;
    ASSERT_EQ(Transform()->IncreaseBpp(source.Get(), &result, 24, QEL_MODEL_BGR), QEL_OK);
    EXPECT_EQ(PixelBytes(result), (Bytes{0, 0, 0, 7, 7, 7, 255, 255, 255, 128, 128, 128, 1, 1, 1, 2, 2, 2}));
    EXPECT_EQ(RefCountOf(result), 1u);
    result->Release();

    ASSERT_EQ(Transform()->IncreaseBpp(source.Get(), &result, 32, 0), QEL_OK);
    const qel::Pixels p = qel::PixelsOf(result);
    EXPECT_EQ(p.bitCount, 32);
    EXPECT_EQ(p.colourModel, 0u);  // the requested model as it stands
    EXPECT_EQ(PixelBytes(result), (Bytes{0,   0,   0,   255, 7, 7, 7, 255, 255, 255, 255, 255,
                                         128, 128, 128, 255, 1, 1, 1, 255, 2,   2,   2,   255}));
    result->Release();
    EXPECT_EQ(RefCountOf(source.Get()), 1u);
}

TEST(IncreaseBpp, PaletteColoursIndicesAndLeavesAlphaAsCreated) {
    SmartPtr<IQELImageDIB> source = HostImage(3, 1, 8, {5, 1, 5});
    RGBQUAD palette[6] = {};
    palette[1] = RGBQUAD{200, 150, 100, 77};
    palette[5] = RGBQUAD{10, 20, 30, 99};
    ASSERT_EQ(source->SetPalette(palette, 6), QEL_OK);

    IQEL* result = nullptr;
    ASSERT_EQ(Transform()->IncreaseBpp(source.Get(), &result, 24, QEL_MODEL_BGR), QEL_OK);
    EXPECT_EQ(PixelBytes(result), (Bytes{10, 20, 30, 200, 150, 100, 10, 20, 30}));
    result->Release();

    ASSERT_EQ(Transform()->IncreaseBpp(source.Get(), &result, 32, QEL_MODEL_ARGB), QEL_OK);
    EXPECT_EQ(PixelBytes(result), (Bytes{10, 20, 30, 0, 200, 150, 100, 0, 10, 20, 30, 0}));
    EXPECT_EQ(RefCountOf(result), 1u);
    result->Release();
    EXPECT_EQ(RefCountOf(source.Get()), 1u);  // the palette interface was released
}

TEST(IncreaseBpp, TwentyFourBitsGainOpaqueAlphaOtherDepthsStayBlank) {
    SmartPtr<IQELImageDIB> source = HostImage(2, 2, 24, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    IQEL* result = nullptr;
    ASSERT_EQ(Transform()->IncreaseBpp(source.Get(), &result, 32, QEL_MODEL_ARGB), QEL_OK);
    EXPECT_EQ(PixelBytes(result), (Bytes{1, 2, 3, 255, 4, 5, 6, 255, 7, 8, 9, 255, 10, 11, 12, 255}));
    result->Release();

    SmartPtr<IQELImageDIB> wide = TestHost().NewImage(2, 1, 16, 0);
    SetPixelBytes(wide.Get(), {9, 9, 9, 9});
    ASSERT_EQ(Transform()->IncreaseBpp(wide.Get(), &result, 24, QEL_MODEL_BGR), QEL_OK);
    EXPECT_EQ(PixelBytes(result), Bytes(6, 0));
    result->Release();

    // A negative count compares as a huge one: a conversion the image refuses.
    EXPECT_LT(Transform()->IncreaseBpp(source.Get(), &result, -1, 0), 0);
    EXPECT_EQ(RefCountOf(source.Get()), 1u);
}

}  // namespace
