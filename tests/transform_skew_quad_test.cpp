// Skew (pivots, outside fill, forced alpha) and Quad (margins, sizes, blend).
#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "support/host_images.h"
#include "transform/skew_quad.h"

namespace {

using namespace qeltest;

TEST(Skew, ZeroGainsCopyAndForcedAlphaIsOpaque) {
    auto source = Positions(7, 5);
    SmartPtr<IQEL> copy, opaque;
    ASSERT_EQ(Transform()->Skew(source.Get(), copy.Out(), 0, 0, 0, 0, 0, 0), QEL_OK);
    EXPECT_EQ(PixelBytes(copy.Get()), PixelBytes(source.Get()));

    auto bgr = Positions(7, 5, 24);
    ASSERT_EQ(Transform()->Skew(bgr.Get(), opaque.Out(), 0, 0, 0, 0, 0, 1), QEL_OK);
    EXPECT_EQ(qel::PixelsOf(opaque.Get()).bitCount, 32);
    EXPECT_EQ(qel::PixelsOf(opaque.Get()).colourModel, QEL_MODEL_ARGB);
    EXPECT_EQ(PixelOf(opaque.Get(), 6, 4), (Bytes{6, 4, 200, 255}));
}

TEST(Skew, HalfGainShiftsRowsAboutTheCentreAndFillsWithTheOutsideColour) {
    auto source = Positions(100, 100);
    SmartPtr<IQEL> result;
    ASSERT_EQ(Transform()->Skew(source.Get(), result.Out(), 0.5f, 0, 0, 0, 0, 0), QEL_OK);
    const Bytes fill{0, 0, 200, 1};
    for (int x = 0; x < 25; ++x) EXPECT_EQ(PixelOf(result.Get(), x, 0), fill) << x;
    EXPECT_EQ(PixelOf(result.Get(), 25, 0), (Bytes{0, 0, 200, 9}));
    EXPECT_EQ(PixelOf(result.Get(), 99, 0), (Bytes{74, 0, 200, 9}));
    EXPECT_EQ(PixelOf(result.Get(), 0, 50), (Bytes{0, 50, 200, 9}));  // the pivot row stays
    // Row 99 reads x + 24.5, truncated: column 75 reads 99, column 76 is outside.
    EXPECT_EQ(PixelOf(result.Get(), 75, 99), (Bytes{99, 99, 200, 9}));
    EXPECT_EQ(PixelOf(result.Get(), 76, 99), fill);

    // An explicit pivot, and a vertical gain truncated toward zero: -0.9 reads row 0.
    ASSERT_EQ(Transform()->Skew(source.Get(), result.Out(), 0, 0.1f, 10, 0, 0, 1), QEL_OK);
    EXPECT_EQ(PixelOf(result.Get(), 1, 0), (Bytes{1, 0, 200, 255}));
    EXPECT_EQ(PixelOf(result.Get(), 0, 0), fill);  // -1.0 is outside
}

TEST(Skew, FastPathMatchesThePixelHelpers) {
    for (int bpp : {1, 4, 8, 16, 24, 32}) {
        for (int force : {0, 1}) {
            SmartPtr<BufferImage> source(BufferImage::Make(13, 9, bpp, QEL_MODEL_ARGB, 3, bpp == 24));
            source->FillRandom(static_cast<uint32_t>(bpp + force));
            const int outBpp = force ? 32 : bpp;
            SmartPtr<BufferImage> fast(BufferImage::Make(13, 9, outBpp, 0, 1, true));
            SmartPtr<BufferImage> general(BufferImage::Make(13, 9, outBpp, 0, 1, true));
            const SkewParams params{0.37f, -0.61f, 6, 2, force != 0};
            SkewPixels(ReadImageView(source.Get()), ReadImageView(fast.Get()), params, PixelPath::Fast);
            SkewPixels(ReadImageView(source.Get()), ReadImageView(general.Get()), params, PixelPath::General);
            EXPECT_EQ(fast->Snapshot(), general->Snapshot()) << bpp << " " << force;
            EXPECT_TRUE(fast->GuardsIntact());
        }
    }
}

TEST(Skew, WildGainsAndNullPointers) {
    auto source = Positions(6, 4);
    SmartPtr<IQEL> result;
    for (float gain :
         {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), 3e38f}) {
        ASSERT_EQ(Transform()->Skew(source.Get(), result.Out(), gain, gain, 2147483647, 0, 0, 0), QEL_OK);
        EXPECT_EQ(PixelOf(result.Get(), 5, 0), (Bytes{0, 0, 200, 1})) << gain;
    }
    EXPECT_EQ(Transform()->Skew(nullptr, result.Out(), 0, 0, 0, 0, 0, 0), QEL_E_FAIL);
    EXPECT_EQ(Transform()->Skew(source.Get(), nullptr, 0, 0, 0, 0, 0, 0), QEL_E_POINTER);
}

TEST(Quad, AxisAlignedRectangleKeepsPixelsInsideABlackMargin) {
    auto source = Positions(100, 50);
    SmartPtr<IQEL> result, wide;
    ASSERT_EQ(Transform()->Quad(source.Get(), result.Out(), 0, 0, 100, 0, 0, 50, 100, 50, 0, 0, 0), QEL_OK);
    const qel::Pixels p = qel::PixelsOf(result.Get());
    ASSERT_EQ(p.width, 100);
    ASSERT_EQ(p.height, 50);
    for (int y = 0; y < 50; ++y)
        for (int x = 0; x < 100; ++x) {
            const bool margin = x == 0 || y == 0 || x == 99 || y == 49;
            ASSERT_EQ(PixelOf(result.Get(), x, y), margin ? Bytes(4, 0) : PixelOf(source.Get(), x, y))
                << x << "," << y;
        }
    ASSERT_EQ(Transform()->Quad(source.Get(), wide.Out(), 0, 0, 100, 0, 0, 50, 100, 50, 70000, 20, 0),
              QEL_OK);
    EXPECT_EQ(qel::PixelsOf(wide.Get()).width, 100);
    EXPECT_EQ(qel::PixelsOf(wide.Get()).height, 20);
}

TEST(Quad, DerivedSizesTakeTheShorterOfOppositeEdges) {
    auto source = Positions(50, 50);
    SmartPtr<IQEL> result;
    ASSERT_EQ(Transform()->Quad(source.Get(), result.Out(), 0, 0, 30, 0, 0, 20, 40, 40, 0, 65536, 0), QEL_OK);
    EXPECT_EQ(qel::PixelsOf(result.Get()).width, 30);   // top 30, bottom 44.7
    EXPECT_EQ(qel::PixelsOf(result.Get()).height, 20);  // left 20, right 41.2
}

TEST(Quad, BlendAveragesFourOneAxisBlends) {
    auto source = TestHost().NewImage(6, 6, 24, QEL_MODEL_BGR);
    const qel::Pixels p = qel::PixelsOf(source.Get());
    const unsigned char p00[3] = {100, 0, 255}, p10[3] = {20, 255, 255}, p01[3] = {40, 0, 255},
                        p11[3] = {8, 0, 0};
    std::memcpy(p.Row(2) + 6, p00, 3), std::memcpy(p.Row(2) + 9, p10, 3);
    std::memcpy(p.Row(3) + 6, p01, 3), std::memcpy(p.Row(3) + 9, p11, 3);
    // The scan runs from (2, 2) to (4, 2) in four steps of half a pixel.
    SmartPtr<IQEL> blended, copied;
    ASSERT_EQ(Transform()->Quad(source.Get(), blended.Out(), 2, 2, 4, 2, 2, 3, 4, 3, 4, 1, 1), QEL_OK);
    ASSERT_EQ(Transform()->Quad(source.Get(), copied.Out(), 2, 2, 4, 2, 2, 3, 4, 3, 4, 1, 0), QEL_OK);
    // (3 * p00 + 3 * p10 + p01 + p11) / 8, rounded: blue 408 / 8, green 765 / 8, red 1785 / 8.
    EXPECT_EQ(PixelOf(blended.Get(), 1, 0), (Bytes{51, 96, 223}));
    EXPECT_EQ(PixelOf(copied.Get(), 1, 0), (Bytes{20, 255, 255}));  // rounded to column 3
    // At a whole position it is still no copy: (2 * p00 + p10 + p01) / 4.
    EXPECT_EQ(PixelOf(blended.Get(), 0, 0), (Bytes{65, 64, 255}));
}

TEST(Quad, DegenerateAndWildCornersStayInside) {
    auto source = Positions(8, 8);
    SmartPtr<IQEL> result;
    // Zero-length edges step nowhere: every pixel samples the start point.
    ASSERT_EQ(Transform()->Quad(source.Get(), result.Out(), 3, 4, 3, 4, 3, 4, 3, 4, 3, 2, 0), QEL_OK);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x) EXPECT_EQ(PixelOf(result.Get(), x, y), (Bytes{3, 4, 200, 9}));

    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (double wild : {nan, 1e300, -1e300, std::numeric_limits<double>::infinity()}) {
        ASSERT_EQ(Transform()->Quad(source.Get(), result.Out(), 1, 1, wild, 1, 1, wild, 6, 6, 4, 4, 1),
                  QEL_OK);
        EXPECT_EQ(PixelOf(result.Get(), 3, 3), Bytes(4, 0)) << wild;
    }
    ASSERT_EQ(Transform()->Quad(source.Get(), result.Out(), nan, nan, nan, nan, nan, nan, nan, nan, 0, 0, 0),
              QEL_OK);
    EXPECT_EQ(qel::PixelsOf(result.Get()).width, 0);
    EXPECT_EQ(Transform()->Quad(nullptr, result.Out(), 0, 0, 1, 0, 0, 1, 1, 1, 0, 0, 0), QEL_E_FAIL);
    EXPECT_EQ(Transform()->Quad(source.Get(), nullptr, 0, 0, 1, 0, 0, 1, 1, 1, 0, 0, 0), QEL_E_POINTER);
}

}  // namespace
