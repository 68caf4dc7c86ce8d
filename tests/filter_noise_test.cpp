// Noise and Jitter: the random offsets, their reproducibility under srand
// and the number of rand results each pixel consumes.
#include <gtest/gtest.h>

#include <cstdlib>

#include "filter/filter_common.h"
#include "support/component_test.h"

namespace {

using namespace qeltest;
using Owned = SmartPtr<BufferImage>;

// A 24-bit image whose every pixel tells where it is.
Owned Positions(int w, int h) {
    Owned image(BufferImage::Make(w, h, 24, QEL_MODEL_BGR, 2));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            unsigned char* p = image->Row(y) + 3 * x;
            p[0] = static_cast<unsigned char>(x), p[1] = static_cast<unsigned char>(y), p[2] = 77;
        }
    return image;
}
// The rand result that follows `draws` results after srand(seed).
int DrawAfter(unsigned seed, int draws) {
    std::srand(seed);
    for (int i = 0; i < draws; ++i) std::rand();
    return std::rand();
}

TEST(Noise, OffsetsFollowTheSeedAndTheirPrecision) {
    Owned image(BufferImage::Make(7, 5, 32, QEL_MODEL_ARGB, 3));
    image->FillRandom(4);
    IQELFilterTransform* filters = Filters();
    SmartPtr<IQEL> first, second;
    std::srand(99);
    ASSERT_EQ(filters->Noise(image.Get(), 100, first.Out()), QEL_OK);
    const int next = std::rand();
    EXPECT_EQ(next, DrawAfter(99, 3 * 7 * 5));
    std::srand(99);
    ASSERT_EQ(filters->Noise(image.Get(), 100, second.Out()), QEL_OK);
    EXPECT_EQ(PixelBytes(first.Get()), PixelBytes(second.Get()));

    // Red, green, blue in that order; the scaled draw is single precision, the rest double.
    std::srand(99);
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 7; ++x) {
            const uint32_t in = ColourAt(image.Get(), x, y);
            int offset[3];
            for (int& o : offset)
                o = static_cast<int>(
                    (static_cast<double>(static_cast<float>(std::rand()) * 4.656613e-10f) - 0.5) * 100.0);
            const uint32_t expected =
                PackColor(ClampToByte(BlueOf(in) + offset[2]), ClampToByte(GreenOf(in) + offset[1]),
                          ClampToByte(RedOf(in) + offset[0]), AlphaOf(in));
            ASSERT_EQ(ColourAt(first.Get(), x, y), expected) << x << "," << y;
        }
    }
    std::srand(5);
    EXPECT_EQ(filters->Noise(nullptr, 10, first.Out()), QEL_E_FAIL);
    const int afterFailure = std::rand();
    EXPECT_EQ(afterFailure, DrawAfter(5, 0));  // nothing drawn
}

TEST(Noise, SmallAmountsKeepTheImageAndExtremesMoveOneWay) {
    IQELFilterTransform* filters = Filters();
    Owned image(BufferImage::Make(9, 4, 24, QEL_MODEL_BGR, 1));
    image->FillRandom(8);
    SmartPtr<IQEL> out;
    for (int amount : {0, 1}) {
        ASSERT_EQ(filters->Noise(image.Get(), amount, out.Out()), QEL_OK);
        EXPECT_EQ(PixelBytes(out.Get()), PixelBytes(image.Get())) << amount;
        ASSERT_EQ(filters->Jitter(image.Get(), 0, out.Out()), QEL_OK);
        EXPECT_EQ(PixelBytes(out.Get()), PixelBytes(image.Get()));
    }
    for (unsigned char level : {0, 255}) {
        Owned flat(BufferImage::Make(16, 16, 8, QEL_MODEL_MONO, 0));
        for (int y = 0; y < 16; ++y) std::fill(flat->Row(y), flat->Row(y) + 16, level);
        ASSERT_EQ(filters->Noise(flat.Get(), 80, out.Out()), QEL_OK);
        int changed = 0;
        for (unsigned char byte : PixelBytes(out.Get())) {
            ASSERT_TRUE(level == 0 ? byte >= level : byte <= level);
            changed += byte != level;
        }
        EXPECT_GT(changed, 100);
    }
}

TEST(Jitter, PixelsMoveWithinTheAmountAndDrawTwicePerPixel) {
    IQELFilterTransform* filters = Filters();
    Owned image = Positions(11, 6);
    SmartPtr<IQEL> out;
    std::srand(123);
    ASSERT_EQ(filters->Jitter(image.Get(), 1, out.Out()), QEL_OK);
    const int next = std::rand();
    EXPECT_EQ(next, DrawAfter(123, 2 * 11 * 6));
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 11; ++x) {
            const uint32_t c = ColourAt(out.Get(), x, y);
            EXPECT_LE(std::abs(BlueOf(c) - x), 1);
            EXPECT_LE(std::abs(GreenOf(c) - y), 1);
        }

    // Replayed by hand: span 2 x amount, horizontal then vertical, and a point
    // outside the image keeps the pixel where it is.
    std::srand(321);
    ASSERT_EQ(filters->Jitter(image.Get(), 4, out.Out()), QEL_OK);
    std::srand(321);
    int moved = 0;
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 11; ++x) {
            int d[2];
            for (int& o : d)
                o = static_cast<int>(
                    (static_cast<double>(static_cast<float>(std::rand()) * 4.656613e-10f) - 0.5) * 8.0);
            const int sx = x + d[0], sy = y + d[1];
            const bool inside = sx >= 0 && sx < 11 && sy >= 0 && sy < 6;
            ASSERT_EQ(ColourAt(out.Get(), x, y), ColourAt(image.Get(), inside ? sx : x, inside ? sy : y))
                << x << "," << y;
            moved += inside && (sx != x || sy != y);
        }
    EXPECT_GT(moved, 20);

    Owned one = Positions(1, 1);
    ASSERT_EQ(filters->Jitter(one.Get(), 1000, nullptr), QEL_OK);
    EXPECT_EQ(ColourAt(one.Get(), 0, 0), 0x004D0000u);
    EXPECT_EQ(one->RefCount(), 1u);
    EXPECT_EQ(filters->Jitter(nullptr, 3, out.Out()), QEL_E_FAIL);
}

}  // namespace
