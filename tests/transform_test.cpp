// The transform component's orientation, depth, FillVoids, Resample and
// Rotate operations, with exact bytes through the interface.
#include <gtest/gtest.h>

#include "image/sampling.h"
#include "support/component_test.h"
#include "transform/image_transform.h"

namespace {

using namespace qeltest;
using Owned = SmartPtr<BufferImage>;

// Pixel bytes counting up from 1 (padding random), so every pixel is recognisable.
Owned Counting(int w, int h, int bpp, int padding = 0, bool bottomUp = false) {
    Bytes bytes((static_cast<size_t>(w) * bpp + 7) / 8 * h);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i + 1);
    return ImageOf(w, h, bpp, bpp == 32 ? QEL_MODEL_ARGB : QEL_MODEL_BGR, bytes, padding, bottomUp);
}

// The orientation operations as one call shape; in-place ones leave the result unset.
QResult Flip(IQEL* s, IQEL** r) { return Transform()->Flip(s, r); }
QResult Mirror(IQEL* s, IQEL** r) { return Transform()->Mirror(s, r); }
QResult FlipBits(IQEL* s, IQEL**) { return Transform()->FlipBits(s); }
QResult FlipBoth(IQEL* s, IQEL**) { return Transform()->FlipImageAndBits(s); }

TEST(Orientation, RowsWholePixelsOrBytesMoveAndTwiceGivesTheSourceBack) {
    const struct {
        const char* name;
        QResult (*run)(IQEL* source, IQEL** result);
        int w, h, bpp, padding;
        Bytes expected;
        bool bottomUp = false;
    } cases[] = {
        {"Flip", Flip, 2, 3, 24, 0, {13, 14, 15, 16, 17, 18, 7, 8, 9, 10, 11, 12, 1, 2, 3, 4, 5, 6}},
        {"Mirror", Mirror, 3, 2, 32, 4, {9,  10, 11, 12, 5,  6,  7,  8,  1,  2,  3,  4,
                                         21, 22, 23, 24, 17, 18, 19, 20, 13, 14, 15, 16}},
        {"Mirror", Mirror, 3, 1, 24, 0, {7, 8, 9, 4, 5, 6, 1, 2, 3}, true},
        {"Mirror", Mirror, 4, 1, 8, 0, {4, 3, 2, 1}},
        // FlipBits swaps the first and third bytes of each pixel, and leaves grey alone.
        {"FlipBits", FlipBits, 2, 2, 32, 3, {3, 2, 1, 4, 7, 6, 5, 8, 11, 10, 9, 12, 15, 14, 13, 16}},
        {"FlipBits", FlipBits, 5, 2, 8, 0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
        // Rows 0 and 2 trade places with bytes 0 and 2 swapped and alpha staying
        // in its row; in the middle row only pixels 0 and 1 change.
        {"FlipImageAndBits", FlipBoth, 4, 3, 32, 0, {35, 34, 33, 4,  39, 38, 37, 8,  43, 42, 41, 12,
                                                     47, 46, 45, 16, 19, 18, 17, 20, 23, 22, 21, 24,
                                                     25, 26, 27, 28, 29, 30, 31, 32, 3,  2,  1,  36,
                                                     7,  6,  5,  40, 11, 10, 9,  44, 15, 14, 13, 48}},
        // 24 bits: the middle row steps 4 bytes for its first width / 2 positions.
        {"FlipImageAndBits", FlipBoth, 5, 1, 24, 0, {3, 2, 1, 4, 7, 6, 5, 8, 9, 10, 11, 12, 13, 14, 15}},
    };
    for (const auto& c : cases) {
        Owned source = Counting(c.w, c.h, c.bpp, c.padding, c.bottomUp);
        const Bytes before = source->Snapshot(), original = PixelBytes(source.Get());
        SmartPtr<IQEL> result, back;
        ASSERT_EQ(c.run(source.Get(), result.Out()), QEL_OK) << c.name;
        IQEL* const changed = result ? result.Get() : source.Get();
        EXPECT_EQ(PixelBytes(changed), c.expected) << c.name << " " << c.bpp;
        EXPECT_EQ(RefCountOf(changed) + RefCountOf(source.Get()), 2u) << c.name;
        ASSERT_EQ(c.run(changed, back.Out()), QEL_OK) << c.name;
        EXPECT_EQ(PixelBytes(back ? back.Get() : changed), original) << c.name << " " << c.bpp;
        EXPECT_EQ(source->Snapshot(), before) << c.name;  // a new image, or padding untouched in place
    }
}

TEST(Rotate4, QuarterTurnsMoveWholePixelsAndTheThreeByteHalfTurnReadsOneLeft) {
    const auto turned = [](IQEL* source, int angle) {
        SmartPtr<IQELImageDIB> made = TestHost().NewImage();
        EXPECT_EQ(TransformClass()->Rotate4(source, made.Get(), angle), QEL_OK);
        EXPECT_EQ(RefCountOf(made.Get()), 1u);
        return made;
    };
    Owned small = Counting(3, 2, 8);                                                  // rows 1 2 3 / 4 5 6
    EXPECT_EQ(PixelBytes(turned(small.Get(), 90).Get()), (Bytes{4, 1, 5, 2, 6, 3}));  // top-left: bottom-left
    EXPECT_EQ(PixelBytes(turned(small.Get(), 270).Get()), (Bytes{3, 6, 2, 5, 1, 4}));  // top-left: top-right
    SmartPtr<IQELImageDIB> kept = HostImage(2, 1, 8, {7, 9});
    ASSERT_EQ(TransformClass()->Rotate4(small.Get(), kept.Get(), 45), QEL_OK);
    EXPECT_EQ(PixelBytes(kept.Get()), (Bytes{7, 9}));  // other angles do nothing
    // Identities on odd sizes with padded rows: four quarter turns, or a quarter
    // turn each way, give the source back; two quarter turns are the half turn
    // but at three bytes, whose half turn reads one pixel to the left.
    for (int bpp : {8, 24, 32}) {
        Owned source = Counting(5, 3, bpp, bpp == 32 ? 4 : 2);
        const Bytes original = PixelBytes(source.Get());
        SmartPtr<IQELImageDIB> once = turned(source.Get(), 90), twice = turned(once.Get(), 90);
        EXPECT_EQ(SizeAndFormat(once.Get()), SizeAndFormat(Counting(3, 5, bpp).Get()));
        EXPECT_EQ(PixelBytes(turned(turned(twice.Get(), 90).Get(), 90).Get()), original) << bpp;
        EXPECT_EQ(PixelBytes(turned(once.Get(), 270).Get()), original) << bpp;
        if (bpp != 24) {
            EXPECT_EQ(PixelBytes(turned(source.Get(), 180).Get()), PixelBytes(twice.Get())) << bpp;
        }
    }
    // 4 x 2 at 24 bits: each pixel takes the one left of its mirror image; the
    // last reads the three bytes before its source row (zero before the first).
    Owned rgb = Counting(4, 2, 24, 2);
    const unsigned char* before = rgb->Row(1) - 3;
    EXPECT_EQ(PixelBytes(turned(rgb.Get(), 180).Get()),
              (Bytes{19, 20, 21, 16, 17, 18, 13, 14, 15, before[0], before[1], before[2],
                     7,  8,  9,  4,  5,  6,  1,  2,  3,  0,         0,         0}));
}

TEST(IncreaseBpp, GreyPaletteAndThreeByteImagesGainDepth) {
    SmartPtr<IQELImageDIB> rgb = HostImage(2, 1, 24, {1, 2, 3, 4, 5, 6}),
                           grey = HostImage(3, 1, 8, {0, 7, 255});
    for (int bitCount : {24, 8, 0}) {  // nothing deeper: the source comes back
        IQEL* result = nullptr;
        EXPECT_EQ(Transform()->IncreaseBpp(rgb.Get(), &result, bitCount, QEL_MODEL_ARGB), QEL_NOTHING_TO_DO);
        EXPECT_EQ(result, static_cast<IQEL*>(rgb.Get()));
        EXPECT_EQ(result->Release(), 1u);
    }
    // A palette colours the indices with alpha as created; the palette interface is released.
    SmartPtr<IQELImageDIB> indexed = HostImage(3, 1, 8, {5, 1, 5}), wide = HostImage(2, 1, 16, {9, 9, 9, 9});
    RGBQUAD palette[6] = {};
    palette[1] = RGBQUAD{200, 150, 100, 77}, palette[5] = RGBQUAD{10, 20, 30, 99};
    ASSERT_EQ(indexed->SetPalette(palette, 6), QEL_OK);
    const struct {
        IQEL* source;
        int bitCount;
        unsigned model;  // the requested model as it stands
        Bytes expected;
    } cases[] = {
        {rgb.Get(), 32, QEL_MODEL_ARGB, {1, 2, 3, 255, 4, 5, 6, 255}},
        {grey.Get(), 24, QEL_MODEL_BGR, {0, 0, 0, 7, 7, 7, 255, 255, 255}},
        {grey.Get(), 32, 0, {0, 0, 0, 255, 7, 7, 7, 255, 255, 255, 255, 255}},
        {indexed.Get(), 32, QEL_MODEL_ARGB, {10, 20, 30, 0, 200, 150, 100, 0, 10, 20, 30, 0}},
        {wide.Get(), 24, QEL_MODEL_BGR, Bytes(6, 0)},  // other depths stay blank
    };
    for (const auto& c : cases) {
        SmartPtr<IQEL> result;
        ASSERT_EQ(Transform()->IncreaseBpp(c.source, result.Out(), c.bitCount, c.model), QEL_OK);
        EXPECT_EQ(PixelBytes(result.Get()), c.expected)
            << c.bitCount << " from " << SizeAndFormat(c.source)[2];
        const int width = qel::PixelsOf(c.source).width;
        EXPECT_EQ(SizeAndFormat(result.Get()), (std::vector<int>{width, 1, c.bitCount, int(c.model)}));
        EXPECT_EQ(RefCountOf(result.Get()) + RefCountOf(c.source), 2u);
    }
    // A negative count compares as a huge one the image refuses.
    SmartPtr<IQEL> result;
    EXPECT_LT(Transform()->IncreaseBpp(rgb.Get(), result.Out(), -1, 0), 0);
}

TEST(FillVoids, NeighbourRulesOfEachDepthInRasterOrder) {
    // 8 bits: one neighbour fills, each filled value feeds the next, border zeros stay.
    auto run = HostImage(5, 3, 8, {0, 0, 0, 0, 0, 100, 0, 0, 0, 40, 0, 0, 0, 0, 0});
    EXPECT_EQ(TransformClass()->FillVoids(run.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(run.Get()), (Bytes{0, 0, 0, 0, 0, 100, 100, 100, 70, 40, 0, 0, 0, 0, 0}));
    // 24 bits, per channel: blue has three neighbours (10, 20, 30) -> 20, green
    // only two -> stays 0, red all four (4, 8, 12, 16) -> 10.
    auto three = HostImage(
        3, 3, 24, {0, 0, 0, 30, 0, 12, 0, 0, 0, 10, 5, 4, 0, 0, 0, 20, 5, 8, 0, 0, 0, 0, 0, 16, 0, 0, 0});
    EXPECT_EQ(TransformClass()->FillVoids(three.Get()), QEL_OK);
    EXPECT_EQ(PixelOf(three.Get(), 1, 1), (Bytes{20, 0, 10}));
    // 32 bits copy the right, else the lower neighbour, made opaque when the image has alpha.
    auto argb = HostImage(3, 3, 32, Ints({0, 0x07, 0, 0x09, 0, 0x00102030, 0, 0x05, 0}));
    EXPECT_EQ(TransformClass()->FillVoids(argb.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(argb.Get()), Ints({0, 0x07, 0, 0x09, int(0xFF102030), 0x00102030, 0, 0x05, 0}));
    Owned plain = ImageOf(3, 3, 32, 0, Ints({0, 0, 0, 0, 0, 0, 0, 0x44332211, 0}));
    EXPECT_EQ(TransformClass()->FillVoids(plain.Get()), QEL_OK);
    EXPECT_EQ(PixelOf(plain.Get(), 1, 1), Ints({0x44332211}));
    EXPECT_EQ(TransformClass()->FillVoids(HostImage(4, 4, 16, {}).Get()), QEL_E_FAIL);
}

// Resamples and checks the result's size and single reference.
SmartPtr<IQEL> Resampled(IQEL* source, int w, int h, int method, int nearestOnly = 0) {
    SmartPtr<IQEL> out;
    EXPECT_EQ(Transform()->Resample(source, out.Out(), w, h, method, nearestOnly), QEL_OK);
    EXPECT_EQ(qel::PixelsOf(out.Get()).width * 1000 + qel::PixelsOf(out.Get()).height, w * 1000 + h);
    EXPECT_EQ(RefCountOf(out.Get()), 1u);
    return out;
}

TEST(Resample, CopiesNearestPixelsAndAveragesTruncatedBlocksAtEveryDepth) {
    Owned source = Random(13, 7, 24, 1, 3);
    for (int method : {0, 3, 5})
        EXPECT_EQ(PixelBytes(Resampled(source.Get(), 13, 7, method).Get()), PixelBytes(source.Get()));
    // Enlarging with method 0 copies nearest pixels; nearest-only copies indices when shrinking.
    Owned big = Random(100, 100, 32, 2, 0, true);
    SmartPtr<IQEL> doubled = Resampled(big.Get(), 200, 200, 0);
    for (int y = 0; y < 200; y += 7)
        for (int x = 0; x < 200; ++x)
            ASSERT_EQ(ColourAt(doubled.Get(), x, y), ColourAt(big.Get(), x / 2, y / 2));
    // 9 x 9 to 3 x 4 reads rows 0, 2, 4 and 6 (floor of 2.25 y), columns 0, 3 and 6.
    EXPECT_EQ(PixelBytes(Resampled(Counting(9, 9, 8, 3).Get(), 3, 4, 5, 1).Get()),
              (Bytes{1, 4, 7, 19, 22, 25, 37, 40, 43, 55, 58, 61}));
    // 4 x 2 to 2 x 1: 2 x 2 blocks, sums divided with truncation; alpha stays as created.
    Owned blocks =
        ImageOf(4, 2, 32, QEL_MODEL_ARGB, {10, 0, 255, 9, 11, 1, 254, 9, 100, 0, 0, 9, 200, 0, 0, 9,
                                           12, 2, 255, 9, 13, 2, 254, 9, 0,   0, 0, 9, 1,   0, 0, 9});
    EXPECT_EQ(PixelBytes(Resampled(blocks.Get(), 2, 1, 7).Get()), (Bytes{11, 1, 254, 0, 75, 0, 0, 0}));
    // A scale of 2.5 averages 2 columns from floor(2.5 x); column 4 is never read.
    Owned row = ImageOf(5, 1, 8, QEL_MODEL_MONO, {10, 20, 255, 40, 51}, 0);
    EXPECT_EQ(PixelBytes(Resampled(row.Get(), 2, 1, 3).Get()), (Bytes{15, 147}));
    EXPECT_EQ(qel::PixelsOf(Resampled(source.Get(), 6, 0, 3).Get()).height, 0);
    // Box averaging of 4- and 1-bit images reads and writes one byte per pixel,
    // as at 8 bits; it used to leave them unwritten. Source byte i of row r is
    // 10 r + i (4 bits) or 1 + 16 r + i (1 bit), padding included. The 4-bit
    // source's 12-byte rows hold every byte its blocks read; the 1-bit source's
    // last row ends after 2 bytes, so the bytes past it read as 0. Writes land in
    // the destination's memory (row padding, the next rows' bytes, which later
    // rows write again) and are dropped past the last row's pixel bytes.
    auto resampleMemory = [](int width, int height, int bitCount, int padding, int value0, int rowStep,
                             int newWidth, int newHeight) {
        Owned packed(BufferImage::Make(width, height, bitCount, QEL_MODEL_MONO, padding));
        for (int y = 0; y < height; ++y)
            for (int i = 0; i < packed->Stride(); ++i)
                packed->Row(y)[i] = static_cast<unsigned char>(value0 + rowStep * y + i);
        SmartPtr<IQEL> out = Resampled(packed.Get(), newWidth, newHeight, 1);
        EXPECT_TRUE(packed->GuardsIntact());
        const qel::Pixels p = qel::PixelsOf(out.Get());
        return Bytes(p.Row(0), p.Row(0) + static_cast<ptrdiff_t>(p.stride) * p.height);
    };
    // 8 x 7 to 4 x 3: 2 x 2 blocks from rows 0, 2 and 4; (40 row + 8 x + 22) / 4.
    EXPECT_EQ(resampleMemory(8, 7, 4, 8, 0, 10, 4, 3), (Bytes{5, 7, 9, 11, 25, 27, 29, 31, 45, 47, 0, 0}));
    // 16 x 4 to 8 x 2 (4-byte rows): everything past byte 4, the last row's
    // one pixel byte, is dropped; (33 + 34 + 49 + 50) / 4 = 41.
    EXPECT_EQ(resampleMemory(16, 4, 1, 12, 1, 16, 8, 2), (Bytes{9, 11, 13, 15, 41, 0, 0, 0}));
}

// Kernel interpolation samples at aligned pixel centres; the per-column
// weights must give the bytes of sampling each point on its own.
TEST(Resample, KernelInterpolationMatchesPointSampling) {
    const int cases[][7] = {{100, 100, 24, 200, 200, 3, 0}, {31, 17, 32, 57, 40, 5, 4},
                            {31, 17, 24, 17, 40, 2, 1},     {100, 100, 24, 200, 50, 3, 0},
                            {12, 9, 8, 25, 19, 11, 0},      {12, 9, 32, 25, 7, 1, 0},
                            {20, 20, 24, 41, 41, 16, 0},    {9, 5, 4, 20, 11, 4, 0}};
    for (const auto& c : cases) {
        Owned source = Random(c[0], c[1], c[2], c[0] + c[3], c[6]);
        const qel::Pixels in = qel::PixelsOf(source.Get());
        SmartPtr<IQEL> out = Resampled(source.Get(), c[3], c[4], c[5]);
        Owned expected(BufferImage::Make(c[3], c[4], c[2], 0));
        const float xScale = float(c[0]) / float(c[3]), yScale = float(c[1]) / float(c[4]);
        for (int y = 0; y < c[4]; ++y)
            for (int x = 0; x < c[3]; ++x)
                PutColour(
                    expected.Get(), x, y,
                    GetPixelColorInterpolated(in.bits, (x + 0.5f) * xScale - 0.5f, (y + 0.5f) * yScale - 0.5f,
                                              c[0], c[1], in.stride, c[5], c[2]));
        EXPECT_EQ(PixelBytes(out.Get()), PixelBytes(expected.Get()))
            << c[0] << "x" << c[1] << " method " << c[5];
        EXPECT_TRUE(source->GuardsIntact());
    }
}

TEST(Rotate, ZeroHandsBackTheSourceQuarterTurnsCopyAndOtherAnglesKeepAMargin) {
    SmartPtr<IQELImageDIB> source = Positions(20, 12, 24);
    SmartPtr<IQEL> same, minus90, plus270, turned;
    ASSERT_EQ(Transform()->Rotate(source.Get(), same.Out(), 0, 3, 0, 0), QEL_OK);
    EXPECT_EQ(same.Get(), static_cast<IQEL*>(source.Get()));
    EXPECT_EQ(RefCountOf(source.Get()), 2u);
    ASSERT_EQ(Transform()->Rotate(source.Get(), minus90.Out(), -90, 3, 0, 0), QEL_OK);
    ASSERT_EQ(Transform()->Rotate(source.Get(), plus270.Out(), 270, 3, 0, 0), QEL_OK);
    ASSERT_EQ(Transform()->Rotate(source.Get(), turned.Out(), 90, 3, 1, 1), QEL_OK);  // flags ignored
    EXPECT_EQ(PixelBytes(minus90.Get()), PixelBytes(plus270.Get()));
    EXPECT_EQ(SizeAndFormat(turned.Get()), (std::vector<int>{12, 20, 24, QEL_MODEL_BGR}));
    EXPECT_EQ(ColourAt(turned.Get(), 0, 0), ColourAt(source.Get(), 0, 11));  // bottom-left to top-left
    EXPECT_EQ(RefCountOf(minus90.Get()), 1u);
    ASSERT_EQ(Transform()->Rotate(source.Get(), turned.Out(), 360, 0, 0, 0), QEL_OK);
    // The turn is not exact in single precision: the margin's inner edge may
    // go either way. The margin takes the top-left pixel's colour.
    const uint32_t background = ColourAt(source.Get(), 0, 0);
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 20; ++x) {
            const uint32_t pixel = ColourAt(turned.Get(), x, y), inside = ColourAt(source.Get(), x, y);
            if (x <= 2 || x >= 17 || y <= 2 || y >= 9)
                EXPECT_EQ(pixel, background) << x << "," << y;
            else if (x >= 4 && x <= 15 && y >= 4 && y <= 7)
                EXPECT_EQ(pixel, inside) << x << "," << y;
            else
                EXPECT_TRUE(pixel == background || pixel == inside) << x << "," << y;
        }
    Owned square = Uniform(100, 100, 24, PackColor(30, 60, 90, 0));
    PutColour(square.Get(), 0, 0, PackColor(1, 2, 3, 0));
    ASSERT_EQ(Transform()->Rotate(square.Get(), turned.Out(), 45, 0, 0, 0), QEL_OK);
    EXPECT_EQ(SizeAndFormat(turned.Get()), (std::vector<int>{141, 141, 24, QEL_MODEL_BGR}));
    EXPECT_EQ(ColourAt(turned.Get(), 140, 140), PackColor(1, 2, 3, 0));
    EXPECT_EQ(ColourAt(turned.Get(), 70, 70), PackColor(30, 60, 90, 0));
    EXPECT_EQ(ColourAt(turned.Get(), 70, 4), PackColor(1, 2, 3, 0));  // near the top corner, in the margin
    EXPECT_EQ(ColourAt(turned.Get(), 70, 12), PackColor(30, 60, 90, 0));
    // With alpha: 32 bits, model 0; method 3 of a 24-bit source carries alpha 0 from its interior.
    ASSERT_EQ(Transform()->Rotate(square.Get(), turned.Out(), 45, 3, 1, 0), QEL_OK);
    EXPECT_EQ(SizeAndFormat(turned.Get()), (std::vector<int>{141, 141, 32, 0}));
    EXPECT_EQ(ColourAt(turned.Get(), 0, 0), PackColor(1, 2, 3, 255));
    EXPECT_EQ(AlphaOf(ColourAt(turned.Get(), 70, 70)), 0);
    // Keeping the size turns about the centre: ten pixels right of it reads
    // (50 + 10 cos 30, 30 + 10 sin 30) = (58.66, 35), rounded to (59, 35).
    SmartPtr<IQELImageDIB> wide = Positions(100, 60, 24);
    ASSERT_EQ(Transform()->Rotate(wide.Get(), turned.Out(), 30, 0, 0, 1), QEL_OK);
    EXPECT_EQ(SizeAndFormat(turned.Get()), (std::vector<int>{100, 60, 24, QEL_MODEL_BGR}));
    EXPECT_EQ(ColourAt(turned.Get(), 50, 30), ColourAt(wide.Get(), 50, 30));
    EXPECT_EQ(ColourAt(turned.Get(), 0, 0), ColourAt(wide.Get(), 0, 0));
    EXPECT_EQ(ColourAt(turned.Get(), 60, 30), ColourAt(wide.Get(), 59, 35));
}

TEST(RotatePaste, KeyColourBlendingAndTheTurnedBoundingBox) {
    Owned source = Uniform(8, 6, 24, PackColor(40, 50, 60, 0));
    PutColour(source.Get(), 2, 3, PackColor(255, 0, 0, 0));  // blue: the key colour
    Owned target = Uniform(12, 9, 24, PackColor(9, 9, 9, 0));
    ASSERT_EQ(Transform()->RotatePaste(source.Get(), target.Get(), 0.0, 0, 0x0000FF), QEL_OK);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 12; ++x)
            EXPECT_EQ(ColourAt(target.Get(), x, y), x < 8 && y < 6 && !(x == 2 && y == 3)
                                                        ? PackColor(40, 50, 60, 0)
                                                        : PackColor(9, 9, 9, 0));
    // The source's own colour as key: only the blue pixel is drawn, alpha byte too.
    Owned keyed = Uniform(12, 9, 32, PackColor(9, 9, 9, 77));
    ASSERT_EQ(Transform()->RotatePaste(source.Get(), keyed.Get(), 0.0, 0, 0x3C3228), QEL_OK);
    EXPECT_EQ(ColourAt(keyed.Get(), 2, 3), PackColor(255, 0, 0, 0));
    EXPECT_EQ(ColourAt(keyed.Get(), 3, 3), PackColor(9, 9, 9, 77));
    // Alpha sources blend: trunc(s * 128/255 + t * 127/255); a target with alpha takes the source's.
    Owned half = Uniform(6, 6, 32, PackColor(200, 100, 0, 128));
    for (uint32_t alpha : {0u, 9u}) {
        Owned under = Uniform(6, 6, alpha ? 32 : 24, PackColor(0, 50, 100, alpha));
        ASSERT_EQ(Transform()->RotatePaste(half.Get(), under.Get(), 0.0, 0, 0), QEL_OK);
        EXPECT_EQ(ColourAt(under.Get(), 3, 2), PackColor(100, 75, 49, alpha ? 128 : 0));
    }
    // A quarter turn in radians of 10 x 4 fills 4 x 10; the single-precision
    // cosine is a hair above 0, putting the top row's first three just left of 0.
    Owned bar = Uniform(10, 4, 24, PackColor(70, 80, 90, 0));
    Owned tall = Uniform(8, 12, 24, PackColor(1, 1, 1, 0));
    ASSERT_EQ(Transform()->RotatePaste(bar.Get(), tall.Get(), 1.5707963267948966, 0, 0), QEL_OK);
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 8; ++x)
            EXPECT_EQ(ColourAt(tall.Get(), x, y), x < 4 && y < 10 && !(y == 0 && x < 3)
                                                      ? PackColor(70, 80, 90, 0)
                                                      : PackColor(1, 1, 1, 0))
                << x << "," << y;
    Owned grey = Uniform(6, 6, 8, PackColor(5, 5, 5, 0));
    EXPECT_EQ(Transform()->RotatePaste(half.Get(), grey.Get(), 0.0, 0, 0), QEL_E_INVALIDARG);
    EXPECT_EQ(PixelBytes(grey.Get()), Bytes(36, 5));
    EXPECT_EQ(RefCountOf(keyed.Get()), 1u);
}

}  // namespace
