// Kernel interpolation of a grid: the AVX2 sums against the one-pixel-at-a-
// time sampler, byte for byte, on random images of both depths, odd sizes
// and strides; the halving box rows against their scalar loop.
#include <gtest/gtest.h>

#include <vector>

#include "support/kernel_output.h"
#include "transform/box_rows.h"
#include "transform/kernel_grid.h"

namespace {

using qeltest::BufferImage;

struct GridCase {
    int width, height, newWidth, newHeight;
};

// Enlarging, enlarging by odd factors, one axis shrinking while the other
// grows, images barely larger than the 12-tap window, and widths that leave
// a partial group of eight at the row end.
// Whole ratios (2x, 3x, 4x) repeat a few weight sets, so they take the kept
// column x row products; 30 x 13 to 60 x 75 keeps the column products but
// has more kinds of row than are kept.
const GridCase kCases[] = {{13, 11, 26, 22},  {40, 37, 83, 75}, {17, 29, 51, 30}, {64, 9, 23, 40},
                           {12, 12, 29, 31},  {5, 7, 19, 17},   {33, 20, 80, 20}, {9, 40, 20, 117},
                           {50, 30, 100, 60}, {31, 26, 93, 78}, {21, 20, 84, 80}, {30, 13, 60, 75}};

std::vector<unsigned char> Grid(BufferImage* source, const GridCase& c, int method, GridLanes lanes,
                                int destPadding) {
    const ImageView from = ReadImageView(source);
    return qeltest::KernelOutput(
        c.newWidth, c.newHeight, from.bitCount, destPadding, [&](const ImageView& to) {
            InterpolateGrid(from, to, static_cast<float>(c.width) / static_cast<float>(c.newWidth),
                            static_cast<float>(c.height) / static_cast<float>(c.newHeight), method, lanes);
        });
}

TEST(ResampleVectorSteps, PairedLanesGiveTheScalarBytesForEveryKernel) {
    if (BestGridLanes() != GridLanes::Avx2) GTEST_SKIP() << "no AVX2 on this processor";
    uint32_t seed = 1;
    for (int bitCount : {24, 32}) {
        for (const GridCase& c : kCases) {
            const bool bottomUp = (seed & 1) != 0;
            BufferImage* source =
                BufferImage::Make(c.width, c.height, bitCount, QEL_MODEL_BGR, seed % 3, bottomUp);
            source->FillRandom(seed++);
            for (int method = 2; method <= 15; ++method) {
                const std::vector<unsigned char> expected = Grid(source, c, method, GridLanes::Scalar, 0);
                const std::vector<unsigned char> actual = Grid(source, c, method, GridLanes::Avx2, 3);
                ASSERT_EQ(actual, expected)
                    << bitCount << "-bit " << c.width << "x" << c.height << " to " << c.newWidth << "x"
                    << c.newHeight << " method " << method << "\n"
                    << qeltest::HexRows(actual, static_cast<size_t>(c.newWidth) * bitCount / 8);
            }
            EXPECT_TRUE(source->GuardsIntact());
            source->Release();
        }
    }
}

// Taps of 255 under weights above one overflow the byte and clamp; negative
// lobes beside a dark line go below zero and clamp there.
TEST(ResampleVectorSteps, ClampedSumsMatchOnHardEdges) {
    if (BestGridLanes() != GridLanes::Avx2) GTEST_SKIP() << "no AVX2 on this processor";
    for (int bitCount : {24, 32}) {
        SmartPtr<BufferImage> edges = qeltest::HardEdges(31, 23, bitCount);
        BufferImage* source = edges.Get();
        for (const GridCase& c : {GridCase{31, 23, 70, 61}, GridCase{31, 23, 62, 46}}) {
            for (int method : {3, 4, 5, 9, 15}) {
                const std::vector<unsigned char> expected = Grid(source, c, method, GridLanes::Scalar, 0);
                EXPECT_EQ(Grid(source, c, method, GridLanes::Avx2, 0), expected)
                    << bitCount << " method " << method << " to " << c.newWidth << "x" << c.newHeight;
            }
        }
    }
}

// Rows of every width up to 60 output pixels (whole steps, partial steps and
// none), read from the two rows of a 2-row source that ends at its guards.
TEST(ResampleVectorSteps, HalvingRowsGiveTheScalarBytes) {
    if (BestBoxLanes() != BoxLanes::Ssse3) GTEST_SKIP() << "no SSSE3 on this processor";
    uint32_t seed = 3;
    for (int bytes : {1, 3, 4}) {
        for (int width = 1; width <= 60; ++width) {
            BufferImage* source =
                BufferImage::Make(2 * width, 2, 8 * bytes, QEL_MODEL_BGR, 0, (seed & 1) != 0);
            source->FillRandom(seed++);
            std::vector<ptrdiff_t> starts(static_cast<size_t>(width));
            for (int x = 0; x < width; ++x)
                starts[static_cast<size_t>(x)] = static_cast<ptrdiff_t>(2) * x * bytes;
            ASSERT_TRUE(BlocksFollowEachOther(starts.data(), width, bytes));
            std::vector<unsigned char> expected(static_cast<size_t>(width) * bytes, 0x5A), actual = expected;
            HalveRow(source->Row(0), source->Row(1), starts.data(), expected.data(), width, bytes,
                     BoxLanes::Scalar);
            HalveRow(source->Row(0), source->Row(1), starts.data(), actual.data(), width, bytes,
                     BoxLanes::Ssse3);
            ASSERT_EQ(actual, expected) << bytes << " bytes, width " << width;
            EXPECT_TRUE(source->GuardsIntact());
            source->Release();
        }
    }
    // Blocks that overlap or skip are not a run of neighbours.
    const ptrdiff_t overlapping[] = {0, 3, 6}, skipping[] = {0, 6, 15};
    EXPECT_FALSE(BlocksFollowEachOther(overlapping, 3, 3));
    EXPECT_FALSE(BlocksFollowEachOther(skipping, 3, 3));
}

// Four bytes of 255 sum to 1020, the largest sum a 16-bit lane holds here; the
// mean stays 255, and 1 + 1 + 1 + 0 truncates to 0.
TEST(ResampleVectorSteps, HalvingRowsAtTheExtremes) {
    const int width = 24;
    std::vector<unsigned char> top(2 * width * 3, 255), bottom(2 * width * 3, 255);
    for (size_t n = 0; n < top.size(); n += 6) {
        top[n] = bottom[n] = bottom[n + 3] = 1;
        top[n + 3] = 0;
    }
    std::vector<ptrdiff_t> starts(width);
    for (int x = 0; x < width; ++x) starts[static_cast<size_t>(x)] = 6 * x;
    for (BoxLanes lanes : {BoxLanes::Scalar, BestBoxLanes()}) {
        std::vector<unsigned char> out(width * 3, 0x5A);
        HalveRow(top.data(), bottom.data(), starts.data(), out.data(), width, 3, lanes);
        for (int x = 0; x < width; ++x) {
            EXPECT_EQ(out[3 * x], 0) << x;
            EXPECT_EQ(out[3 * x + 1], 255) << x;
            EXPECT_EQ(out[3 * x + 2], 255) << x;
        }
    }
}

}  // namespace
