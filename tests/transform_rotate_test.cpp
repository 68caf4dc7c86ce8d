// Rotate and RotatePaste: sizes, quarter turns, background and margin,
// alpha, blending and the key colour.
#include <gtest/gtest.h>

#include <vector>

#include "image/pixel.h"
#include "support/component_test.h"

namespace {

using namespace qeltest;

// Uniform colour with a different top-left pixel, the background of Rotate.
SmartPtr<IQELImageDIB> Plain(int w, int h, int bpp, uint32_t colour, uint32_t topLeft) {
    SmartPtr<IQELImageDIB> image = TestHost().NewImage(w, h, bpp, bpp == 32 ? QEL_MODEL_ARGB : QEL_MODEL_BGR);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) PutColour(image.Get(), x, y, colour);
    PutColour(image.Get(), 0, 0, topLeft);
    return image;
}

TEST(Rotate, ZeroHandsBackTheSourceAndQuarterTurnsUseTheCopyPath) {
    BufferImage* source = BufferImage::Make(3, 2, 24, QEL_MODEL_BGR);
    source->FillRandom(4);
    SmartPtr<IQEL> same;
    ASSERT_EQ(Transform()->Rotate(source, same.Out(), 0, 3, 0, 0), QEL_OK);
    EXPECT_EQ(same.Get(), static_cast<IQEL*>(source));
    EXPECT_EQ(source->RefCount(), 2u);

    SmartPtr<IQEL> minus90, plus270, plus90;
    ASSERT_EQ(Transform()->Rotate(source, minus90.Out(), -90, 3, 0, 0), QEL_OK);
    ASSERT_EQ(Transform()->Rotate(source, plus270.Out(), 270, 3, 0, 0), QEL_OK);
    ASSERT_EQ(Transform()->Rotate(source, plus90.Out(), 90, 3, 1, 1), QEL_OK);  // flags ignored
    EXPECT_EQ(PixelBytes(minus90.Get()), PixelBytes(plus270.Get()));
    EXPECT_EQ(qel::PixelsOf(plus90.Get()).width, 2);
    EXPECT_EQ(qel::PixelsOf(plus90.Get()).bitCount, 24);
    EXPECT_EQ(ColourAt(plus90.Get(), 0, 0), ColourAt(source, 0, 1));  // bottom-left to top-left
    EXPECT_EQ(RefCountOf(minus90.Get()), 1u);

    SmartPtr<IQEL> none;
    EXPECT_EQ(Transform()->Rotate(nullptr, none.Out(), 45, 3, 0, 0), QEL_E_FAIL);
    EXPECT_EQ(Transform()->Rotate(source, nullptr, 45, 3, 0, 0), QEL_E_POINTER);
    EXPECT_EQ(source->RefCount(), 2u);
    source->Release();  // `same` holds the last reference
}

TEST(Rotate, FullTurnTakesTheGeneralPathWithAFourPixelMargin) {
    SmartPtr<IQELImageDIB> source = TestHost().NewImage(20, 12, 24, QEL_MODEL_BGR);
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 20; ++x) PutColour(source.Get(), x, y, PackColor(10 * x, 20 * y, 7, 0));
    SmartPtr<IQEL> turned;
    ASSERT_EQ(Transform()->Rotate(source.Get(), turned.Out(), 360, 0, 0, 0), QEL_OK);
    const qel::Pixels p = qel::PixelsOf(turned.Get());
    ASSERT_EQ(p.width, 20);
    ASSERT_EQ(p.height, 12);
    // The turn is not exact in single precision, so the margin's inner edge
    // (source positions within a hair of 3 or width - 4) may go either way.
    const uint32_t background = PackColor(0, 0, 7, 0);
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 20; ++x) {
            const uint32_t pixel = ColourAt(turned.Get(), x, y);
            if (x <= 2 || x >= 17 || y <= 2 || y >= 9)
                EXPECT_EQ(pixel, background) << x << "," << y;
            else if (x >= 4 && x <= 15 && y >= 4 && y <= 7)
                EXPECT_EQ(pixel, ColourAt(source.Get(), x, y)) << x << "," << y;
            else
                EXPECT_TRUE(pixel == background || pixel == ColourAt(source.Get(), x, y)) << x << "," << y;
        }
}

TEST(Rotate, FortyFiveDegreesGrowsTheImageAndForcesAlpha) {
    SmartPtr<IQELImageDIB> source = Plain(100, 100, 24, PackColor(30, 60, 90, 0), PackColor(1, 2, 3, 0));
    SmartPtr<IQEL> plain, alpha;
    ASSERT_EQ(Transform()->Rotate(source.Get(), plain.Out(), 45, 0, 0, 0), QEL_OK);
    qel::Pixels p = qel::PixelsOf(plain.Get());
    EXPECT_EQ(p.width, 141);
    EXPECT_EQ(p.height, 141);
    EXPECT_EQ(p.bitCount, 24);
    EXPECT_EQ(p.colourModel, QEL_MODEL_BGR);
    EXPECT_EQ(ColourAt(plain.Get(), 0, 0), PackColor(1, 2, 3, 0));
    EXPECT_EQ(ColourAt(plain.Get(), 140, 140), PackColor(1, 2, 3, 0));
    EXPECT_EQ(ColourAt(plain.Get(), 70, 70), PackColor(30, 60, 90, 0));
    EXPECT_EQ(ColourAt(plain.Get(), 70, 4), PackColor(1, 2, 3, 0));  // near the top corner, inside the margin
    EXPECT_EQ(ColourAt(plain.Get(), 70, 12), PackColor(30, 60, 90, 0));
    EXPECT_EQ(RefCountOf(plain.Get()), 1u);

    // Method 3 of a 24-bit source carries alpha 0 from its interior samples.
    ASSERT_EQ(Transform()->Rotate(source.Get(), alpha.Out(), 45, 3, 1, 0), QEL_OK);
    p = qel::PixelsOf(alpha.Get());
    EXPECT_EQ(p.bitCount, 32);
    EXPECT_EQ(p.colourModel, 0u);
    EXPECT_EQ(ColourAt(alpha.Get(), 0, 0), PackColor(1, 2, 3, 255));
    EXPECT_EQ(AlphaOf(ColourAt(alpha.Get(), 70, 70)), 0);
}

TEST(Rotate, KeepSizeTurnsAboutTheCentre) {
    SmartPtr<IQELImageDIB> source = TestHost().NewImage(100, 60, 24, QEL_MODEL_BGR);
    for (int y = 0; y < 60; ++y)
        for (int x = 0; x < 100; ++x) PutColour(source.Get(), x, y, PackColor(2 * x, 3 * y, 5, 0));
    SmartPtr<IQEL> turned;
    ASSERT_EQ(Transform()->Rotate(source.Get(), turned.Out(), 30, 0, 0, 1), QEL_OK);
    const qel::Pixels p = qel::PixelsOf(turned.Get());
    EXPECT_EQ(p.width, 100);
    EXPECT_EQ(p.height, 60);
    EXPECT_EQ(ColourAt(turned.Get(), 50, 30), ColourAt(source.Get(), 50, 30));
    EXPECT_EQ(ColourAt(turned.Get(), 0, 0), PackColor(0, 0, 5, 0));
    // Ten pixels right of the centre reads (50 + 10 cos 30, 30 + 10 sin 30)
    // = (58.66, 35), rounded to (59, 35).
    EXPECT_EQ(ColourAt(turned.Get(), 60, 30), ColourAt(source.Get(), 59, 35));
}

TEST(RotatePaste, AtAngleZeroDrawsAtTopLeftAndSkipsTheKeyColour) {
    SmartPtr<IQELImageDIB> source = Plain(8, 6, 24, PackColor(40, 50, 60, 0), PackColor(40, 50, 60, 0));
    PutColour(source.Get(), 2, 3, PackColor(255, 0, 0, 0));  // blue: the key colour
    SmartPtr<IQELImageDIB> target = Plain(12, 9, 24, PackColor(9, 9, 9, 0), PackColor(9, 9, 9, 0));
    ASSERT_EQ(Transform()->RotatePaste(source.Get(), target.Get(), 0.0, 0, 0x0000FF), QEL_OK);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 12; ++x) {
            const bool drawn = x < 8 && y < 6 && !(x == 2 && y == 3);
            EXPECT_EQ(ColourAt(target.Get(), x, y), drawn ? PackColor(40, 50, 60, 0) : PackColor(9, 9, 9, 0))
                << x << "," << y;
        }

    // With the source's own colour as key nothing of it is drawn but the blue pixel.
    SmartPtr<IQELImageDIB> keyed = Plain(12, 9, 32, PackColor(9, 9, 9, 77), PackColor(9, 9, 9, 77));
    ASSERT_EQ(Transform()->RotatePaste(source.Get(), keyed.Get(), 0.0, 0, 0x3C3228), QEL_OK);
    EXPECT_EQ(ColourAt(keyed.Get(), 2, 3), PackColor(255, 0, 0, 0));  // alpha byte written too
    EXPECT_EQ(ColourAt(keyed.Get(), 3, 3), PackColor(9, 9, 9, 77));
    EXPECT_EQ(RefCountOf(source.Get()), 1u);
    EXPECT_EQ(RefCountOf(keyed.Get()), 1u);
}

TEST(RotatePaste, AlphaSourcesBlendIntoTheTarget) {
    SmartPtr<IQELImageDIB> source = Plain(6, 6, 32, PackColor(200, 100, 0, 128), PackColor(200, 100, 0, 128));
    SmartPtr<IQELImageDIB> opaque = Plain(6, 6, 24, PackColor(0, 50, 100, 0), PackColor(0, 50, 100, 0));
    ASSERT_EQ(Transform()->RotatePaste(source.Get(), opaque.Get(), 0.0, 0, 0), QEL_OK);
    // trunc(s * 128/255 + t * 127/255) per channel.
    EXPECT_EQ(ColourAt(opaque.Get(), 3, 2), PackColor(100, 75, 49, 0));

    SmartPtr<IQELImageDIB> withAlpha = Plain(6, 6, 32, PackColor(0, 50, 100, 9), PackColor(0, 50, 100, 9));
    ASSERT_EQ(Transform()->RotatePaste(source.Get(), withAlpha.Get(), 0.0, 0, 0), QEL_OK);
    EXPECT_EQ(ColourAt(withAlpha.Get(), 3, 2), PackColor(100, 75, 49, 128));

    SmartPtr<IQELImageDIB> grey = Plain(6, 6, 8, PackColor(5, 5, 5, 0), PackColor(5, 5, 5, 0));
    const std::vector<unsigned char> before = PixelBytes(grey.Get());
    EXPECT_EQ(Transform()->RotatePaste(source.Get(), grey.Get(), 0.0, 0, 0), QEL_E_INVALIDARG);
    EXPECT_EQ(PixelBytes(grey.Get()), before);
    EXPECT_EQ(Transform()->RotatePaste(nullptr, grey.Get(), 0.0, 0, 0), QEL_E_FAIL);
    EXPECT_EQ(Transform()->RotatePaste(source.Get(), nullptr, 0.0, 0, 0), QEL_E_POINTER);
}

TEST(RotatePaste, TurnedSourceCoversTheBoundingBox) {
    // A quarter turn in radians of a 10 x 4 source fills a 4 x 10 area.
    SmartPtr<IQELImageDIB> source = Plain(10, 4, 24, PackColor(70, 80, 90, 0), PackColor(70, 80, 90, 0));
    SmartPtr<IQELImageDIB> target = Plain(8, 12, 24, PackColor(1, 1, 1, 0), PackColor(1, 1, 1, 0));
    ASSERT_EQ(Transform()->RotatePaste(source.Get(), target.Get(), 1.5707963267948966, 0, 0), QEL_OK);
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 8; ++x) {
            // The single-precision cosine of the quarter turn is a hair above 0,
            // which puts the top row's first three positions just below x = 0.
            const bool drawn = x < 4 && y < 10 && !(y == 0 && x < 3);
            EXPECT_EQ(ColourAt(target.Get(), x, y), drawn ? PackColor(70, 80, 90, 0) : PackColor(1, 1, 1, 0))
                << x << "," << y;
        }
}

}  // namespace
