// FillVoids: the neighbour rules of 8, 24 and 32 bits, in place and in raster order.
#include <gtest/gtest.h>

#include "support/component_test.h"
#include "transform/image_transform.h"

namespace {

using namespace qeltest;

struct FillVoidsTest : ::testing::Test {
    SmartPtr<IQELTransform> component;
    CQELImageTransform* transform = nullptr;
    void SetUp() override {
        ASSERT_EQ(CQELImageTransform::_CreateInstance(nullptr, &IID_IQELTransform, component.OutVoid()),
                  QEL_OK);
        transform = static_cast<CQELImageTransform*>(component.Get());
    }
    static SmartPtr<IQELImageDIB> Image(int w, int h, int bpp, unsigned model, const Bytes& bytes) {
        SmartPtr<IQELImageDIB> image = TestHost().NewImage(w, h, bpp, model);
        SetPixelBytes(image.Get(), bytes);
        return image;
    }
};

TEST_F(FillVoidsTest, EightBitsFillsFromOneNeighbourAndRunsLeftToRight) {
    auto single = Image(3, 3, 8, QEL_MODEL_MONO, {0, 90, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(transform->FillVoids(single.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(single.Get()), (Bytes{0, 90, 0, 0, 90, 0, 0, 0, 0}));

    // Each filled value feeds the next; the border zeros stay.
    auto run = Image(5, 3, 8, QEL_MODEL_MONO, {0, 0, 0, 0, 0, 100, 0, 0, 0, 40, 0, 0, 0, 0, 0});
    EXPECT_EQ(transform->FillVoids(run.Get()), QEL_OK);
    const Bytes expected{0, 0, 0, 0, 0, 100, 100, 100, 70, 40, 0, 0, 0, 0, 0};
    EXPECT_EQ(PixelBytes(run.Get()), expected) << HexRows(PixelBytes(run.Get()), 5);
}

TEST_F(FillVoidsTest, TwentyFourBitsNeedsThreeNeighboursPerChannel) {
    auto single = Image(3, 3, 24, QEL_MODEL_BGR, {0, 0, 0, 90, 90, 90, 0, 0, 0,  //
                                                  0, 0, 0, 0,  0,  0,  0, 0, 0,  //
                                                  0, 0, 0, 0,  0,  0,  0, 0, 0});
    const Bytes before = PixelBytes(single.Get());
    EXPECT_EQ(transform->FillVoids(single.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(single.Get()), before);

    // Blue: left 10, right 20, above 30 -> 20. Green: only two neighbours -> stays 0.
    // Red: all four (4, 8, 12, 16) -> 10.
    auto three = Image(3, 3, 24, QEL_MODEL_BGR, {0,  0, 0, 30, 0, 12, 0,  0, 0,  //
                                                 10, 5, 4, 0,  0, 0,  20, 5, 8,  //
                                                 0,  0, 0, 0,  0, 16, 0,  0, 0});
    EXPECT_EQ(transform->FillVoids(three.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(three.Get())[12], 20);
    EXPECT_EQ(PixelBytes(three.Get())[13], 0);
    EXPECT_EQ(PixelBytes(three.Get())[14], 10);
}

Bytes Pixels32(std::initializer_list<uint32_t> values) {
    Bytes bytes;
    for (uint32_t v : values)
        for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<unsigned char>(v >> (8 * i)));
    return bytes;
}

TEST_F(FillVoidsTest, ThirtyTwoBitsCopiesRightThenBelowOpaqueOnlyWithAlpha) {
    auto argb = Image(3, 3, 32, QEL_MODEL_ARGB, Pixels32({0, 0x07, 0, 0x09, 0, 0x00102030, 0, 0x05, 0}));
    EXPECT_EQ(transform->FillVoids(argb.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(argb.Get()), Pixels32({0, 0x07, 0, 0x09, 0xFF102030, 0x00102030, 0, 0x05, 0}));

    // No alpha: copied unchanged; the right neighbour is 0, so the one below is taken.
    auto plain = Image(3, 3, 32, 0, Pixels32({0, 0, 0, 0, 0, 0, 0, 0x44332211, 0}));
    EXPECT_EQ(transform->FillVoids(plain.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(plain.Get()), Pixels32({0, 0, 0, 0, 0x44332211, 0, 0, 0x44332211, 0}));
}

TEST_F(FillVoidsTest, UnsupportedDepthFailsAndSmallImagesStay) {
    SmartPtr<BufferImage> sixteen(BufferImage::Make(4, 4, 16, 0));
    EXPECT_EQ(transform->FillVoids(sixteen.Get()), QEL_E_FAIL);
    auto flat = Image(4, 2, 8, QEL_MODEL_MONO, {0, 50, 50, 0, 50, 0, 0, 50});
    EXPECT_EQ(transform->FillVoids(flat.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(flat.Get()), (Bytes{0, 50, 50, 0, 50, 0, 0, 50}));
    EXPECT_EQ(transform->FillVoids(nullptr), QEL_E_FAIL);
}

}  // namespace
