// CircleTransform: each mode's centre, corners and sampled ranges, alpha, and
// the fast path against the pixel helpers.
#include <gtest/gtest.h>

#include "support/host_images.h"
#include "transform/circle_kernel.h"

namespace {

using namespace qeltest;

// Runs a mode with alpha on the position image: the result names, for each
// pixel, the source pixel it came from (alpha 255) or the outside (alpha 1).
SmartPtr<IQELImageDIB> Deformed(int mode, float factor = 1) {
    auto image = Positions(100, 100, 24);
    EXPECT_EQ(Deform()->CircleTransform(image.Get(), mode, 1, factor), QEL_OK);
    return image;
}

Bytes From(int x, int y) { return {static_cast<unsigned char>(x), static_cast<unsigned char>(y), 200, 255}; }
const Bytes kOutside{0, 0, 200, 1};

// Centre (50, 50), Rmax 70: (0, 0), (99, 0) and (0, 99) lie beyond it
// ((99, 99), at 69.3, does not).
void ExpectCorners(IQEL* image) {
    EXPECT_EQ(PixelOf(image, 0, 0), kOutside);
    EXPECT_EQ(PixelOf(image, 99, 0), kOutside);
    EXPECT_EQ(PixelOf(image, 0, 99), kOutside);
}

TEST(CircleTransform, BulgeAndPinchKeepTheCentreAndMoveAlongTheRadius) {
    auto bulge = Deformed(0);
    EXPECT_EQ(qel::PixelsOf(bulge.Get()).bitCount, 32);  // withAlpha turns 24 bits into 32
    EXPECT_EQ(PixelOf(bulge.Get(), 50, 50), From(50, 50));
    EXPECT_EQ(PixelOf(bulge.Get(), 50, 15), From(50, 33));  // r = 35 * 35 / 70 = 17.5
    EXPECT_EQ(PixelOf(bulge.Get(), 85, 50), From(67, 50));
    ExpectCorners(bulge.Get());

    auto pinch = Deformed(1);
    EXPECT_EQ(PixelOf(pinch.Get(), 50, 50), From(50, 50));
    EXPECT_EQ(PixelOf(pinch.Get(), 50, 15), From(50, 1));  // r = sqrt(70 * 35) = 49.5
    EXPECT_EQ(PixelOf(pinch.Get(), 85, 50), From(99, 50));
    ExpectCorners(pinch.Get());

    // A negative mode bulges.
    EXPECT_EQ(PixelBytes(Deformed(-3).Get()), PixelBytes(bulge.Get()));
}

TEST(CircleTransform, SwirlTurnsByDistanceOverHalfTheRadius) {
    auto swirl = Deformed(2);
    EXPECT_EQ(PixelOf(swirl.Get(), 50, 50), From(50, 50));
    // d = 35 turns by 35 / 35 = 1 radian from straight up: 35 (sin 1, cos 1) = (29.45, 18.91).
    EXPECT_EQ(PixelOf(swirl.Get(), 50, 15), From(79, 32));
    ExpectCorners(swirl.Get());

    // Factor 0: the angle is infinite (or NaN at the centre), every point is outside.
    auto flat = Deformed(2, 0);
    for (int y = 0; y < 100; y += 7)
        for (int x = 0; x < 100; x += 7) EXPECT_EQ(PixelOf(flat.Get(), x, y), kOutside) << x << "," << y;
}

TEST(CircleTransform, PolarUnwrapSamplesOnlyTheLeftHalf) {
    auto unwrap = Deformed(3);
    EXPECT_EQ(PixelOf(unwrap.Get(), 50, 50), From(0, 0));    // angle 0, radius 0
    EXPECT_EQ(PixelOf(unwrap.Get(), 50, 15), From(25, 50));  // a quarter turn, half the radius
    EXPECT_EQ(PixelOf(unwrap.Get(), 85, 50), From(50, 50));  // a half turn
    ExpectCorners(unwrap.Get());
    int widest = 0;
    const qel::Pixels p = qel::PixelsOf(unwrap.Get());
    for (int y = 0; y < 100; ++y)
        for (int x = 0; x < 100; ++x)
            if (p.Row(y)[4 * x + 3] == 255) widest = std::max<int>(widest, p.Row(y)[4 * x]);
    EXPECT_EQ(widest, 50);
}

TEST(CircleTransform, FoldingReadsColumnsFromTheirBlock) {
    auto fold = Deformed(4);
    for (int x = 0; x < 8; ++x) EXPECT_EQ(PixelOf(fold.Get(), x, 50), kOutside) << x;
    EXPECT_EQ(PixelOf(fold.Get(), 8, 50), From(0, 50));
    EXPECT_EQ(PixelOf(fold.Get(), 15, 50), From(14, 50));
    EXPECT_EQ(PixelOf(fold.Get(), 16, 50), From(16, 50));
    EXPECT_EQ(PixelOf(fold.Get(), 31, 50), From(46, 50));
    EXPECT_EQ(PixelOf(fold.Get(), 32, 50), From(16, 50));
    ExpectCorners(fold.Get());
    EXPECT_EQ(PixelBytes(Deformed(9).Get()), PixelBytes(fold.Get()));
}

TEST(CircleTransform, WithoutAlphaKeepsTheDepthAndTinyImagesTakeTheOutsideColour) {
    auto image = Positions(100, 100, 24);
    ASSERT_EQ(Deform()->CircleTransform(image.Get(), 0, 0, 1), QEL_OK);
    EXPECT_EQ(qel::PixelsOf(image.Get()).bitCount, 24);
    EXPECT_EQ(PixelOf(image.Get(), 99, 0), (Bytes{0, 0, 200}));
    EXPECT_EQ(PixelOf(image.Get(), 85, 50), (Bytes{67, 50, 200}));

    auto single = TestHost().NewImage(1, 1, 32, QEL_MODEL_ARGB);
    SetPixelBytes(single.Get(), {10, 20, 30, 40});
    ASSERT_EQ(Deform()->CircleTransform(single.Get(), 1, 0, 1), QEL_OK);
    EXPECT_EQ(PixelBytes(single.Get()), (Bytes{10, 20, 30, 1}));
    EXPECT_EQ(Deform()->CircleTransform(nullptr, 0, 0, 1), QEL_E_FAIL);
}

TEST(CircleTransform, FastPathMatchesThePixelHelpers) {
    for (int bpp : {1, 4, 8, 16, 24, 32}) {
        for (int mode : {0, 1, 2, 3, 4}) {
            for (int alpha : {0, 1}) {
                SmartPtr<BufferImage> source(
                    BufferImage::Make(17, 11, bpp, QEL_MODEL_ARGB, 2, mode % 2 == 1));
                source->FillRandom(static_cast<uint32_t>(bpp * 10 + mode));
                const int outBpp = alpha ? 32 : bpp;
                SmartPtr<BufferImage> fast(BufferImage::Make(17, 11, outBpp, 0, 3));
                SmartPtr<BufferImage> general(BufferImage::Make(17, 11, outBpp, 0, 3));
                const CircleParams params{mode, alpha != 0, 0.7f};
                CirclePixels(ReadImageView(source.Get()), ReadImageView(fast.Get()), params, PixelPath::Fast);
                CirclePixels(ReadImageView(source.Get()), ReadImageView(general.Get()), params,
                             PixelPath::General);
                EXPECT_EQ(fast->Snapshot(), general->Snapshot())
                    << bpp << " mode " << mode << " alpha " << alpha;
                EXPECT_TRUE(fast->GuardsIntact());
            }
        }
    }
}

}  // namespace
