// Skew, Quad, Transform, TransformPaste and CircleTransform through the
// interfaces, on images whose colours name the source pixel they came from.
#include <gtest/gtest.h>

#include <limits>

#include "support/component_test.h"

namespace {

using namespace qeltest;

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();
// A position image's pixel that came from the outside: alpha 1.
const Bytes kOutside{0, 0, 200, 1};

TEST(Skew, ShiftsRowsAboutTheCentreAndFillsWithTheOutsideColour) {
    auto source = Positions(100, 100);
    SmartPtr<IQEL> result;
    ASSERT_EQ(Transform()->Skew(source.Get(), result.Out(), 0, 0, 0, 0, 0, 0), QEL_OK);
    EXPECT_EQ(PixelBytes(result.Get()), PixelBytes(source.Get()));
    ASSERT_EQ(Transform()->Skew(source.Get(), result.Out(), 0.5f, 0, 0, 0, 0, 0), QEL_OK);
    for (int x = 0; x < 25; ++x) EXPECT_EQ(PixelOf(result.Get(), x, 0), kOutside) << x;
    EXPECT_EQ(PixelOf(result.Get(), 25, 0), (Bytes{0, 0, 200, 9}));
    EXPECT_EQ(PixelOf(result.Get(), 99, 0), (Bytes{74, 0, 200, 9}));
    EXPECT_EQ(PixelOf(result.Get(), 0, 50), (Bytes{0, 50, 200, 9}));  // the pivot row stays
    // Row 99 reads x + 24.5, truncated: column 75 reads 99, column 76 is outside.
    EXPECT_EQ(PixelOf(result.Get(), 75, 99), (Bytes{99, 99, 200, 9}));
    EXPECT_EQ(PixelOf(result.Get(), 76, 99), kOutside);
    // An explicit pivot, a vertical gain truncated toward zero (-0.9 reads row 0), forced opaque alpha.
    ASSERT_EQ(Transform()->Skew(source.Get(), result.Out(), 0, 0.1f, 10, 0, 0, 1), QEL_OK);
    EXPECT_EQ(PixelOf(result.Get(), 1, 0), (Bytes{1, 0, 200, 255}));
    EXPECT_EQ(PixelOf(result.Get(), 0, 0), kOutside);  // -1.0 is outside
    ASSERT_EQ(Transform()->Skew(Positions(7, 5, 24).Get(), result.Out(), 0, 0, 0, 0, 0, 1), QEL_OK);
    EXPECT_EQ(qel::PixelsOf(result.Get()).colourModel, QEL_MODEL_ARGB);
    EXPECT_EQ(PixelOf(result.Get(), 6, 4), (Bytes{6, 4, 200, 255}));
    for (float gain : {float(kNaN), float(kInf), 3e38f}) {
        ASSERT_EQ(Transform()->Skew(source.Get(), result.Out(), gain, gain, 2147483647, 0, 0, 0), QEL_OK);
        EXPECT_EQ(PixelOf(result.Get(), 5, 0), kOutside) << gain;
    }
}

TEST(Quad, AlignedRectangleMarginSizesBlendingOfFourAndWildCorners) {
    auto source = Positions(100, 50);
    SmartPtr<IQEL> result;
    ASSERT_EQ(Transform()->Quad(source.Get(), result.Out(), 0, 0, 100, 0, 0, 50, 100, 50, 0, 0, 0), QEL_OK);
    ASSERT_EQ(SizeAndFormat(result.Get()), (std::vector<int>{100, 50, 32, QEL_MODEL_ARGB}));
    for (int y = 0; y < 50; ++y)
        for (int x = 0; x < 100; ++x) {
            const bool margin = x == 0 || y == 0 || x == 99 || y == 49;
            ASSERT_EQ(PixelOf(result.Get(), x, y), margin ? Bytes(4, 0) : PixelOf(source.Get(), x, y))
                << x << "," << y;
        }
    // A width of 65536 or more is derived from the shorter of the top and bottom edges.
    ASSERT_EQ(Transform()->Quad(source.Get(), result.Out(), 0, 0, 100, 0, 0, 50, 100, 50, 70000, 20, 0),
              QEL_OK);
    EXPECT_EQ(SizeAndFormat(result.Get()), (std::vector<int>{100, 20, 32, QEL_MODEL_ARGB}));
    // Top 30, bottom 44.7; left 20, right 41.2.
    ASSERT_EQ(Transform()->Quad(source.Get(), result.Out(), 0, 0, 30, 0, 0, 20, 40, 40, 0, 65536, 0), QEL_OK);
    EXPECT_EQ(SizeAndFormat(result.Get()), (std::vector<int>{30, 20, 32, QEL_MODEL_ARGB}));
    // Four neighbours blended around (2, 2).
    auto four = Uniform(6, 6, 24, 0);
    PutColour(four.Get(), 2, 2, PackColor(100, 0, 255, 0));   // p00
    PutColour(four.Get(), 3, 2, PackColor(20, 255, 255, 0));  // p10
    PutColour(four.Get(), 2, 3, PackColor(40, 0, 255, 0));    // p01
    PutColour(four.Get(), 3, 3, PackColor(8, 0, 0, 0));       // p11
    // The scan runs from (2, 2) to (4, 2) in four steps of half a pixel.
    SmartPtr<IQEL> blended, copied;
    ASSERT_EQ(Transform()->Quad(four.Get(), blended.Out(), 2, 2, 4, 2, 2, 3, 4, 3, 4, 1, 1), QEL_OK);
    ASSERT_EQ(Transform()->Quad(four.Get(), copied.Out(), 2, 2, 4, 2, 2, 3, 4, 3, 4, 1, 0), QEL_OK);
    // (3 * p00 + 3 * p10 + p01 + p11) / 8, rounded: blue 408 / 8, green 765 / 8, red 1785 / 8.
    EXPECT_EQ(PixelOf(blended.Get(), 1, 0), (Bytes{51, 96, 223}));
    EXPECT_EQ(PixelOf(copied.Get(), 1, 0), (Bytes{20, 255, 255}));  // rounded to column 3
    // At a whole position it is still no copy: (2 * p00 + p10 + p01) / 4.
    EXPECT_EQ(PixelOf(blended.Get(), 0, 0), (Bytes{65, 64, 255}));

    auto positions = Positions(8, 8);
    // Zero-length edges step nowhere: every pixel samples the start point.
    ASSERT_EQ(Transform()->Quad(positions.Get(), result.Out(), 3, 4, 3, 4, 3, 4, 3, 4, 3, 2, 0), QEL_OK);
    EXPECT_EQ(PixelBytes(result.Get()), PixelBytes(Uniform(3, 2, 32, PackColor(3, 4, 200, 9)).Get()));
    for (double wild : {kNaN, 1e300, -1e300, kInf}) {
        ASSERT_EQ(Transform()->Quad(positions.Get(), result.Out(), 1, 1, wild, 1, 1, wild, 6, 6, 4, 4, 1),
                  QEL_OK);
        EXPECT_EQ(PixelOf(result.Get(), 3, 3), Bytes(4, 0)) << wild;
    }
    ASSERT_EQ(Transform()->Quad(positions.Get(), result.Out(), kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN,
                                0, 0, 0),
              QEL_OK);
    EXPECT_EQ(qel::PixelsOf(result.Get()).width, 0);
}

PointMap Identity([](double&, double&) {});
PointMap Doubling([](double& x, double& y) { x *= 2, y *= 2; });

TEST(Transform, IdentityShiftDoublingAndWildMapsAtEveryDepthAlsoPasted) {
    for (int bpp : {8, 24, 32}) {
        SmartPtr<BufferImage> source = Random(16, 7, bpp, bpp, 3, true), target = Random(5, 4, bpp, 8, 2);
        const Bytes before = target->Snapshot();
        const Bytes fill = bpp == 32 ? Bytes{0, 0, 0, 0xFF} : Bytes(static_cast<size_t>(bpp / 8), 0);
        SmartPtr<IQEL> copy, shifted, doubled;
        ASSERT_EQ(Transform()->Transform(&Identity, source.Get(), copy.Out(), 0, 0, 0, 0, 0, 0), QEL_OK);
        EXPECT_EQ(PixelBytes(copy.Get()), PixelBytes(source.Get()));
        ASSERT_EQ(Transform()->Transform(&Identity, source.Get(), shifted.Out(), 10, 0, 65536, 0, 0, 0),
                  QEL_OK);
        ASSERT_EQ(Transform()->Transform(&Doubling, source.Get(), doubled.Out(), 0, 0, 0, 0, 0, 0), QEL_OK);
        for (int y = 0; y < 7; ++y)
            for (int x = 0; x < 16; ++x) {
                EXPECT_EQ(PixelOf(shifted.Get(), x, y), x < 6 ? PixelOf(source.Get(), x + 10, y) : fill)
                    << bpp;
                EXPECT_EQ(PixelOf(doubled.Get(), x, y),
                          x < 8 && y < 4 ? PixelOf(source.Get(), 2 * x, 2 * y) : fill);
            }
        // Points that are not numbers or far away count as outside; pasting them writes nothing.
        for (double wild : {kNaN, kInf, -kInf, 1e300, -1e300, 2147483648.0, -2147483649.0}) {
            PointMap map([wild](double& x, double& y) { x = wild, y = y * wild; });
            SmartPtr<IQEL> result;
            ASSERT_EQ(Transform()->Transform(&map, source.Get(), result.Out(), 0, 0, 5, 3, 0, 0), QEL_OK);
            for (int n = 0; n < 15; ++n) EXPECT_EQ(PixelOf(result.Get(), n % 5, n / 5), fill) << wild;
            EXPECT_EQ(Transform()->TransformPaste(&map, source.Get(), target.Get(), 3, 3, 0, 0), QEL_OK);
        }
        EXPECT_EQ(target->Snapshot(), before) << bpp;
        EXPECT_TRUE(source->GuardsIntact() && target->GuardsIntact());
        EXPECT_EQ(RefCountOf(source.Get()), 1u);
    }
    auto noAlpha = TestHost().NewImage(2, 2, 32, QEL_MODEL_BGR);
    SmartPtr<IQEL> result;
    ASSERT_EQ(Transform()->Transform(&Identity, noAlpha.Get(), result.Out(), 10, 0, 0, 0, 0, 0), QEL_OK);
    EXPECT_EQ(PixelBytes(result.Get()), Bytes(16, 0));  // no alpha model: black fill
    auto empty = TestHost().NewImage(0, 3, 24, QEL_MODEL_BGR);
    EXPECT_EQ(Transform()->Transform(&Identity, empty.Get(), result.Out(), 0, 0, 0, 0, 0, 0), QEL_E_FAIL);
}

// A blank target's pixel bytes after pasting the source into it.
Bytes Pasted(ITransform* map, IQEL* source, int width, int height, int x, int y, short fillVoids) {
    SmartPtr<IQELImageDIB> target = HostImage(width, height, qel::PixelsOf(source).bitCount, {});
    EXPECT_EQ(Transform()->TransformPaste(map, source, target.Get(), x, y, fillVoids, 0), QEL_OK);
    return PixelBytes(target.Get());
}

TEST(TransformPaste, GapRulesOfEachDepthFillVoidsAndMatchingDepths) {
    // 8 bits write a neighbour too, but never into the last column.
    EXPECT_EQ(Pasted(&Identity, HostImage(4, 2, 8, {1, 2, 3, 4, 5, 6, 7, 8}).Get(), 5, 3, 0, 0, 1),
              (Bytes{1, 2, 3, 3, 0, 5, 6, 7, 7, 0, 5, 6, 7, 0, 0}));
    EXPECT_EQ(Pasted(&Identity, HostImage(1, 2, 8, {9, 9}).Get(), 2, 2, 0, 0, 0), Bytes(4, 0));
    // 24 bits close gaps after the first write beyond column zero.
    PointMap stretch([](double& x, double&) { x *= 2; });
    Bytes expected;
    for (int v : {1, 0, 2, 3, 3, 4, 4, 0, 0, 0, 0, 3, 3, 4, 4, 0}) expected.insert(expected.end(), 3, v);
    EXPECT_EQ(
        Pasted(&stretch, HostImage(4, 1, 24, {1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4}).Get(), 8, 2, 0, 0, 0),
        expected);
    // Doubling 32 bits paints even rows and columns, leaving the odd corners blank.
    const int a = int(0xFF000000);  // opaque
    const Bytes grid = Ints({a + 1, a + 2, a + 3, a + 4, a + 5, a + 6, a + 7, a + 8, a + 9});
    EXPECT_EQ(Pasted(&Doubling, HostImage(3, 3, 32, grid).Get(), 6, 6, 0, 0, 0),
              Ints({a + 1, a + 1, a + 2, a + 2, a + 3, a + 3, a + 1, 0, a + 2, 0, a + 3, 0,
                    a + 4, a + 4, a + 5, a + 5, a + 6, a + 6, a + 4, 0, a + 5, 0, a + 6, 0,
                    a + 7, a + 7, a + 8, a + 8, a + 9, a + 9, a + 7, 0, a + 8, 0, a + 9, 0}));
    // Filling voids never writes zero: a black pixel becomes the value 1. At
    // 32 bits the hole at (2, 1) is then filled from its right neighbour, made
    // opaque (the target has alpha).
    EXPECT_EQ(Pasted(&Identity, HostImage(1, 1, 24, {0, 7, 0}).Get(), 2, 2, 1, 1, 1),
              (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 7, 1}));
    PointMap spread([](double& x, double& y) { x = 2 * x + 1, y = 1; });
    EXPECT_EQ(Pasted(&spread, HostImage(2, 1, 32, {0, 0, 0, 0x80, 10, 20, 30, 0x40}).Get(), 4, 3, 0, 0, 1),
              Ints({0, 0, 0, 0, 0, 1, int(0xFF1E140A), 0x401E140A, 0, 0, 0, 0}));
    EXPECT_EQ(Transform()->TransformPaste(&Identity, HostImage(2, 2, 32, {}).Get(),
                                          HostImage(2, 2, 24, {}).Get(), 0, 0, 0, 0),
              QEL_E_INVALIDARG);  // depths must match
}

// A mode with alpha on the position image: each pixel names the source pixel
// it came from (alpha 255) or the outside (alpha 1).
SmartPtr<IQELImageDIB> Deformed(int mode, float factor = 1) {
    auto image = Positions(100, 100, 24);
    EXPECT_EQ(Deform()->CircleTransform(image.Get(), mode, 1, factor), QEL_OK);
    return image;
}
Bytes From(int x, int y) { return {static_cast<unsigned char>(x), static_cast<unsigned char>(y), 200, 255}; }

TEST(CircleTransform, EachModesCentreRadiusCornersFoldingWithoutAlphaAndTinyImages) {
    // Centre (50, 50), Rmax 70: three corners lie beyond it ((99, 99), at 69.3, does not).
    const struct {
        int mode;
        Bytes centre, up35, right35;
    } cases[] = {
        {0, From(50, 50), From(50, 33), From(67, 50)},  // bulge: r = 35 * 35 / 70 = 17.5
        {1, From(50, 50), From(50, 1), From(99, 50)},   // pinch: r = sqrt(70 * 35) = 49.5
        // Swirl: d = 35 turns by 35 / 35 = 1 radian: from straight up by 35 (sin 1, cos 1) =
        // (29.45, 18.91), from the right by 35 (cos 1, sin 1).
        {2, From(50, 50), From(79, 32), From(68, 79)},
        // Polar unwrap: angle 0 radius 0 at the centre, a quarter turn at half the radius.
        {3, From(0, 0), From(25, 50), From(50, 50)},
    };
    for (const auto& c : cases) {
        auto image = Deformed(c.mode);  // withAlpha turns 24 bits into 32: four bytes a pixel
        EXPECT_EQ(PixelOf(image.Get(), 50, 50), c.centre) << c.mode;
        EXPECT_EQ(PixelOf(image.Get(), 50, 15), c.up35) << c.mode;
        EXPECT_EQ(PixelOf(image.Get(), 85, 50), c.right35) << c.mode;
        const int corners[][2] = {{0, 0}, {99, 0}, {0, 99}};
        for (const auto& corner : corners)
            EXPECT_EQ(PixelOf(image.Get(), corner[0], corner[1]), kOutside) << c.mode;
    }
    EXPECT_EQ(PixelBytes(Deformed(-3).Get()), PixelBytes(Deformed(0).Get()));  // a negative mode bulges
    // The unwrap samples only the left half.
    auto unwrap = Deformed(3);
    int widest = 0;
    for (int y = 0; y < 100; ++y)
        for (int x = 0; x < 100; ++x)
            if (PixelOf(unwrap.Get(), x, y)[3] == 255)
                widest = std::max<int>(widest, PixelOf(unwrap.Get(), x, y)[0]);
    EXPECT_EQ(widest, 50);
    // Swirl factor 0: the angle is infinite (NaN at the centre), every point is outside.
    auto flat = Deformed(2, 0);
    EXPECT_EQ(PixelBytes(flat.Get()), PixelBytes(Uniform(100, 100, 32, PackColor(0, 0, 200, 1)).Get()));
    // Mode 4 and above fold columns within their block.
    auto fold = Deformed(4);
    for (int x = 0; x < 8; ++x) EXPECT_EQ(PixelOf(fold.Get(), x, 50), kOutside) << x;
    const int columns[][2] = {{8, 0}, {15, 14}, {16, 16}, {31, 46}, {32, 16}};
    for (const auto& c : columns) EXPECT_EQ(PixelOf(fold.Get(), c[0], 50), From(c[1], 50)) << c[0];
    EXPECT_EQ(PixelBytes(Deformed(9).Get()), PixelBytes(fold.Get()));
    auto image = Positions(100, 100, 24);
    ASSERT_EQ(Deform()->CircleTransform(image.Get(), 0, 0, 1), QEL_OK);  // stays 24 bits: three bytes a pixel
    EXPECT_EQ(PixelOf(image.Get(), 99, 0), (Bytes{0, 0, 200}));
    EXPECT_EQ(PixelOf(image.Get(), 85, 50), (Bytes{67, 50, 200}));
    auto single = HostImage(1, 1, 32, {10, 20, 30, 40});
    ASSERT_EQ(Deform()->CircleTransform(single.Get(), 1, 0, 1), QEL_OK);
    EXPECT_EQ(PixelBytes(single.Get()), (Bytes{10, 20, 30, 1}));
}

}  // namespace
