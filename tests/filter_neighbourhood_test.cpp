// Erode, Dilate, Edge, Contour and Median: the examples of each, the border
// rule, and fast and general paths against literal references.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "filter/filter_kernels.h"
#include "support/component_test.h"

namespace {

using namespace qeltest;
using Owned = SmartPtr<BufferImage>;

// The neighbours of (x, y) in visiting order: columns outer, rows inner.
std::vector<uint32_t> Neighbours(IQEL* image, int x, int y, int size) {
    const qel::Pixels p = qel::PixelsOf(image);
    std::vector<uint32_t> colours;
    for (int i = 0; i < size; ++i)
        for (int j = 0; j < size; ++j)
            colours.push_back(GetPixelColor(p.bits, x - size / 2 + i, y - size / 2 + j, p.width, p.height,
                                            p.stride, p.bitCount));
    return colours;
}

void ReferenceExtremum(IQEL* src, IQEL* dst, Extremum extremum, int size) {
    const qel::Pixels s = qel::PixelsOf(src);
    for (int y = 0; y < s.height; ++y) {
        for (int x = 0; x < s.width; ++x) {
            int low[3] = {255, 255, 255}, high[3] = {0, 0, 0};
            uint32_t last = 0;
            for (uint32_t c : Neighbours(src, x, y, size)) {
                const int ch[3] = {BlueOf(c), GreenOf(c), RedOf(c)};
                for (int k = 0; k < 3; ++k)
                    low[k] = std::min(low[k], ch[k]), high[k] = std::max(high[k], ch[k]);
                last = c;
            }
            int out[3];
            for (int k = 0; k < 3; ++k)
                out[k] = extremum == Extremum::Minimum   ? low[k]
                         : extremum == Extremum::Maximum ? high[k]
                                                         : high[k] - low[k];
            PutColour(dst, x, y, PackColor(out[0], out[1], out[2], AlphaOf(last)));
        }
    }
}

void ReferenceContour(IQEL* src, IQEL* dst) {
    const qel::Pixels s = qel::PixelsOf(src);
    for (int y = 0; y < s.height; ++y) {
        for (int x = 0; x < s.width; ++x) {
            const uint32_t c = ColourAt(src, x, y);
            int t[3] = {0, 0, 0};
            for (uint32_t n : Neighbours(src, x, y, 3)) {
                if (BlueOf(n) - BlueOf(c) > t[0]) t[0] = BlueOf(n);
                if (GreenOf(n) - GreenOf(c) > t[1]) t[1] = GreenOf(n);
                if (RedOf(n) - RedOf(c) > t[2]) t[2] = RedOf(n);
            }
            PutColour(dst, x, y, PackColor(255 - t[0], 255 - t[1], 255 - t[2], AlphaOf(c)));
        }
    }
}

TEST(Morphology, UniformImagesAndASingleWhitePixel) {
    IQELFilterTransform* filters = Filters();
    ASSERT_TRUE(filters);
    Owned uniform = Uniform(6, 5, 24, 0x00304050);
    SmartPtr<IQEL> out;
    ASSERT_EQ(filters->Erode(uniform.Get(), 3, out.Out()), QEL_OK);
    EXPECT_EQ(PixelDigest(out.Get()), PixelDigest(uniform.Get()));
    ASSERT_EQ(filters->Dilate(uniform.Get(), 4, out.Out()), QEL_OK);
    EXPECT_EQ(PixelDigest(out.Get()), PixelDigest(uniform.Get()));
    ASSERT_EQ(filters->Edge(uniform.Get(), 5, out.Out()), QEL_OK);
    for (unsigned char byte : PixelBytes(out.Get())) ASSERT_EQ(byte, 0);

    for (int bpp : {8, 24, 32}) {
        Owned dot = Uniform(7, 7, bpp, 0);
        PutColour(dot.Get(), 3, 3, 0x00FFFFFF);
        SmartPtr<IQEL> dilated, eroded, edge;
        ASSERT_EQ(filters->Dilate(dot.Get(), 3, dilated.Out()), QEL_OK);
        ASSERT_EQ(filters->Erode(dot.Get(), 3, eroded.Out()), QEL_OK);
        ASSERT_EQ(filters->Edge(dot.Get(), 3, edge.Out()), QEL_OK);
        for (int y = 0; y < 7; ++y) {
            for (int x = 0; x < 7; ++x) {
                const uint32_t square = std::abs(x - 3) <= 1 && std::abs(y - 3) <= 1 ? 0xFFFFFFu : 0u;
                EXPECT_EQ(ColourAt(dilated.Get(), x, y) & 0xFFFFFF, square) << bpp << " " << x << "," << y;
                EXPECT_EQ(ColourAt(edge.Get(), x, y) & 0xFFFFFF, square) << bpp << " " << x << "," << y;
                EXPECT_EQ(ColourAt(eroded.Get(), x, y) & 0xFFFFFF, 0u) << bpp << " " << x << "," << y;
            }
        }
    }
}

TEST(Morphology, EvenSizesReachUpAndLeftAndNonPositiveSizesWriteTheStartValues) {
    // Values grow to the right and down, so the minimum of a size-2 window is
    // its upper-left pixel; the first row and column meet the top-left value.
    Owned ramp(BufferImage::Make(4, 4, 8, QEL_MODEL_MONO, 1));
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) ramp->Row(y)[x] = static_cast<unsigned char>(10 + 10 * x + 50 * y);
    SmartPtr<IQEL> out;
    ASSERT_EQ(Filters()->Erode(ramp.Get(), 2, out.Out()), QEL_OK);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(ColourAt(out.Get(), x, y) & 0xFF,
                      x > 0 && y > 0 ? 10u + 10 * (x - 1) + 50 * (y - 1) : 10u);

    Owned image(BufferImage::Make(3, 2, 32, QEL_MODEL_ARGB, 0));
    image->FillRandom(3);
    const struct {
        QResult (IQELFilterTransform::*run)(IQEL*, int, IQEL**);
        uint32_t expected;
    } cases[] = {{&IQELFilterTransform::Erode, 0x00FFFFFF},
                 {&IQELFilterTransform::Dilate, 0},
                 {&IQELFilterTransform::Edge, 0x00FFFFFF}};
    IQELFilterTransform* filters = Filters();
    for (const auto& c : cases) {
        for (int size : {0, -2}) {
            ASSERT_EQ((filters->*c.run)(image.Get(), size, out.Out()), QEL_OK);
            for (int x = 0; x < 3; ++x) EXPECT_EQ(ColourAt(out.Get(), x, 1), c.expected) << size;
        }
    }
    EXPECT_EQ(filters->Erode(nullptr, 3, out.Out()), QEL_E_FAIL);
    EXPECT_EQ(filters->Contour(nullptr, out.Out()), QEL_E_FAIL);
}

TEST(Contour, UniformIsWhiteAndAGreyDotMarksItsNeighbours) {
    IQELFilterTransform* filters = Filters();
    Owned uniform = Uniform(5, 4, 24, 0x00808080);
    SmartPtr<IQEL> out;
    ASSERT_EQ(filters->Contour(uniform.Get(), out.Out()), QEL_OK);
    for (unsigned char byte : PixelBytes(out.Get())) ASSERT_EQ(byte, 255);

    Owned dot = Uniform(7, 6, 8, 0);
    PutColour(dot.Get(), 4, 2, 0x00646464);
    ASSERT_EQ(filters->Contour(dot.Get(), out.Out()), QEL_OK);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 7; ++x) {
            const bool ring = std::abs(x - 4) <= 1 && std::abs(y - 2) <= 1 && !(x == 4 && y == 2);
            EXPECT_EQ(ColourAt(out.Get(), x, y), ring ? 0x9B9B9Bu : 0xFFFFFFu) << x << "," << y;
        }
}

TEST(Median, ExamplesAndTheOutsideRecord) {
    IQELFilterTransform* filters = Filters();
    Owned image(BufferImage::Make(9, 7, 32, QEL_MODEL_ARGB, 2));
    image->FillRandom(9);
    SmartPtr<IQEL> out;
    ASSERT_EQ(filters->Median(image.Get(), 1, out.Out()), QEL_OK);
    EXPECT_EQ(PixelBytes(out.Get()), PixelBytes(image.Get()));

    // Isolated salt and pepper on grey disappear.
    Owned sprinkled = Uniform(9, 7, 24, 0x00808080);
    PutColour(sprinkled.Get(), 2, 2, 0x00FFFFFF);
    PutColour(sprinkled.Get(), 6, 4, 0);
    PutColour(sprinkled.Get(), 8, 0, 0x00FFFFFF);
    ASSERT_EQ(filters->Median(sprinkled.Get(), 3, out.Out()), QEL_OK);
    for (unsigned char byte : PixelBytes(out.Get())) ASSERT_EQ(byte, 0x80);

    // Size 2 takes index 2 of the pixel, its left, upper and upper-left neighbours.
    Owned four(BufferImage::Make(2, 2, 8, QEL_MODEL_MONO, 0));
    four->Row(0)[0] = 40, four->Row(0)[1] = 10, four->Row(1)[0] = 30, four->Row(1)[1] = 20;
    ASSERT_EQ(filters->Median(four.Get(), 2, out.Out()), QEL_OK);
    EXPECT_EQ(ColourAt(out.Get(), 1, 1), 0x1E1E1Eu);  // 10 20 30 40 -> 30
    EXPECT_EQ(ColourAt(out.Get(), 1, 0), 0x282828u);  // 10 40 40 40 -> 40

    // The bottom-right corner sees five outside records of the top-left colour:
    // it is chosen, with alpha 1.
    Owned corner = Uniform(5, 5, 32, 0x07C8C8C8);
    PutColour(corner.Get(), 0, 0, 0x07102030);
    ASSERT_EQ(filters->Median(corner.Get(), 3, out.Out()), QEL_OK);
    EXPECT_EQ(ColourAt(out.Get(), 4, 4), 0x01102030u);
    EXPECT_EQ(ColourAt(out.Get(), 2, 2), 0x07C8C8C8u);

    const RGBQUAD red{0, 0, 255, 9}, grey76{76, 76, 76, 0}, grey100{100, 100, 100, 0};
    EXPECT_EQ(CompareColors(&red, &grey76), 0);
    EXPECT_EQ(CompareColors(&grey100, &grey76), 24);
    EXPECT_EQ(filters->Median(nullptr, 3, out.Out()), QEL_E_FAIL);
}

// The median must be a whole neighbour colour whose key has the middle rank.
void ExpectMedianRanks(IQEL* src, IQEL* dst, int size) {
    const qel::Pixels s = qel::PixelsOf(src);
    for (int y = 0; y < s.height; ++y) {
        for (int x = 0; x < s.width; ++x) {
            std::vector<uint32_t> records = Neighbours(src, x, y, size);
            std::vector<int> keys;
            for (uint32_t c : records) keys.push_back(ColorKey(c));
            std::sort(keys.begin(), keys.end());
            const int key = keys[keys.size() / 2];
            const uint32_t mask = s.bitCount == 32 ? 0xFFFFFFFFu : 0x00FFFFFFu;
            const uint32_t chosen = ColourAt(dst, x, y) & mask;
            const bool found = std::any_of(records.begin(), records.end(), [&](uint32_t c) {
                return ColorKey(c) == key && (c & mask) == chosen;
            });
            ASSERT_TRUE(found) << "bpp " << s.bitCount << " size " << size << " at " << x << "," << y
                               << " chose " << std::hex << chosen << " for key " << std::dec << key;
        }
    }
}

TEST(NeighbourhoodPaths, FastGeneralAndReferenceAgree) {
    std::mt19937 random(17);
    const int sizes[][2] = {{1, 1}, {2, 3}, {17, 9}, {64, 33}};
    for (int bpp : {1, 4, 8, 24, 32}) {
        for (const auto& wh : sizes) {
            Owned src(BufferImage::Make(wh[0], wh[1], bpp, ModelFor(bpp), 3, wh[0] == 17));
            src->FillRandom(static_cast<uint32_t>(random()));
            const ImageView s = ReadImageView(src.Get());
            auto blank = [&](int padding) {
                return Owned(BufferImage::Make(wh[0], wh[1], bpp, ModelFor(bpp), padding));
            };
            auto check = [&](const char* what, int size, Owned& fast, Owned& general, Owned& reference) {
                const size_t rowBytes = qel::PixelsOf(src.Get()).RowBytes();
                const auto expected = PixelBytes(reference.Get());
                ASSERT_EQ(PixelBytes(fast.Get()), expected)
                    << what << " bpp " << bpp << " " << wh[0] << "x" << wh[1] << " size " << size << "\n"
                    << HexRows(PixelBytes(fast.Get()), rowBytes) << "expected\n"
                    << HexRows(expected, rowBytes);
                ASSERT_EQ(PixelBytes(general.Get()), expected) << what << " bpp " << bpp << " size " << size;
                ASSERT_TRUE(fast->GuardsIntact() && general->GuardsIntact());
            };
            for (int size : {1, 2, 3, 4, 5, 6, 7, 12}) {
                for (Extremum e : {Extremum::Minimum, Extremum::Maximum, Extremum::Range}) {
                    Owned fast = blank(1), general = blank(2), reference = blank(0);
                    MorphologyView(s, ReadImageView(fast.Get()), e, size, FilterPath::Fast);
                    MorphologyView(s, ReadImageView(general.Get()), e, size, FilterPath::General);
                    ReferenceExtremum(src.Get(), reference.Get(), e, size);
                    check("extremum", size, fast, general, reference);
                }
                Owned fast = blank(1), general = blank(2);
                MedianView(s, ReadImageView(fast.Get()), size, FilterPath::Fast);
                MedianView(s, ReadImageView(general.Get()), size, FilterPath::General);
                ASSERT_EQ(PixelBytes(fast.Get()), PixelBytes(general.Get()))
                    << "median bpp " << bpp << " size " << size;
                ExpectMedianRanks(src.Get(), fast.Get(), size);
            }
            Owned fast = blank(1), general = blank(2), reference = blank(0);
            ContourView(s, ReadImageView(fast.Get()), FilterPath::Fast);
            ContourView(s, ReadImageView(general.Get()), FilterPath::General);
            ReferenceContour(src.Get(), reference.Get());
            check("contour", 3, fast, general, reference);
        }
    }
}

TEST(NeighbourhoodPaths, SizesFarBeyondTheImageReadOnlyInside) {
    Owned src(BufferImage::Make(5, 4, 24, QEL_MODEL_BGR, 1));
    src->FillRandom(2);
    Owned out(BufferImage::Make(5, 4, 24, QEL_MODEL_BGR, 1));
    // Nearly every neighbour is outside: the top-left colour's key is the median's.
    MedianView(ReadImageView(src.Get()), ReadImageView(out.Get()), 1 << 20, FilterPath::Fast);
    for (int x = 0; x < 5; ++x)
        EXPECT_EQ(ColorKey(ColourAt(out.Get(), x, 3)), ColorKey(ColourAt(src.Get(), 0, 0)));
    MorphologyView(ReadImageView(src.Get()), ReadImageView(out.Get()), Extremum::Maximum, 1 << 30,
                   FilterPath::Fast);
    Owned reference(BufferImage::Make(5, 4, 24, QEL_MODEL_BGR, 0));
    ReferenceExtremum(src.Get(), reference.Get(), Extremum::Maximum, 9);  // 9 already covers the image
    EXPECT_EQ(PixelBytes(out.Get()), PixelBytes(reference.Get()));
    EXPECT_TRUE(out->GuardsIntact() && src->GuardsIntact());
}

}  // namespace
