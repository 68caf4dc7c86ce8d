// Grey conversion: the vector rows against the one-pixel-at-a-time loop, and
// the multiply that stands for the division by three over every channel sum.
#include <gtest/gtest.h>

#include <vector>

#include "color/color_kernels.h"
#include "support/kernel_output.h"

namespace {

using qeltest::BufferImage;

std::vector<unsigned char> Grey(BufferImage* source, color::GreyLanes lanes, int padding) {
    const ImageView from = ReadImageView(source);
    return qeltest::KernelOutput(from.width, from.height, from.bitCount, padding,
                                 [&](const ImageView& to) { color::WriteGreyInto(from, to, lanes); });
}

TEST(GreyVectorRows, GiveTheScalarBytesForEveryWidth) {
    if (color::BestGreyLanes() == color::GreyLanes::Scalar) GTEST_SKIP() << "no SSSE3 on this processor";
    uint32_t seed = 7;
    for (int bitCount : {24, 32}) {
        for (int width = 1; width <= 72; ++width) {
            const int height = 1 + width % 5;
            BufferImage* source = BufferImage::Make(width, height, bitCount, QEL_MODEL_BGR,
                                                    static_cast<int>(seed % 4), (seed & 1) != 0);
            source->FillRandom(seed++);
            const std::vector<unsigned char> expected = Grey(source, color::GreyLanes::Scalar, 0);
            for (color::GreyLanes lanes : {color::GreyLanes::Vector, color::BestGreyLanes()}) {
                const std::vector<unsigned char> actual = Grey(source, lanes, 3);
                ASSERT_EQ(actual, expected)
                    << bitCount << "-bit width " << width << "\n"
                    << qeltest::HexRows(actual, static_cast<size_t>(width) * bitCount / 8);
            }
            EXPECT_TRUE(source->GuardsIntact());
            source->Release();
        }
    }
}

// One pixel per channel sum 0..765: every quotient of the division by three
// the vector rows can meet, with alpha carried through at 32 bits.
TEST(GreyVectorRows, EveryChannelSumGivesItsExactThird) {
    for (int bitCount : {24, 32}) {
        const int bytes = bitCount / 8, width = 766;
        BufferImage* source = BufferImage::Make(width, 1, bitCount, QEL_MODEL_BGR);
        unsigned char* row = source->Row(0);
        for (int sum = 0; sum < width; ++sum) {
            row[sum * bytes + 0] = static_cast<unsigned char>(sum > 255 ? 255 : sum);
            row[sum * bytes + 1] = static_cast<unsigned char>(sum > 510 ? 255 : sum > 255 ? sum - 255 : 0);
            row[sum * bytes + 2] = static_cast<unsigned char>(sum > 510 ? sum - 510 : 0);
            if (bytes == 4) row[sum * bytes + 3] = static_cast<unsigned char>(sum * 7);
        }
        for (color::GreyLanes lanes :
             {color::GreyLanes::Scalar, color::GreyLanes::Vector, color::GreyLanes::Wide}) {
            const std::vector<unsigned char> grey = Grey(source, lanes, 0);
            for (int sum = 0; sum < width; ++sum) {
                const unsigned char third = static_cast<unsigned char>(sum / 3);
                ASSERT_EQ(grey[sum * bytes + 0], third) << "sum " << sum;
                ASSERT_EQ(grey[sum * bytes + 1], third) << "sum " << sum;
                ASSERT_EQ(grey[sum * bytes + 2], third) << "sum " << sum;
                if (bytes == 4) {
                    ASSERT_EQ(grey[sum * bytes + 3], static_cast<unsigned char>(sum * 7));
                }
            }
        }
        source->Release();
    }
}

}  // namespace

namespace {

// A table with no structure a lookup could get right by accident: every
// output differs from its index and from its neighbours' outputs.
std::vector<unsigned char> ScrambledTable() {
    std::vector<unsigned char> table(256);
    for (int i = 0; i < 256; ++i)
        table[static_cast<size_t>(i)] = static_cast<unsigned char>((i * 167 + 91) & 0xFF);
    return table;
}

TEST(ByteTableLanes, EveryByteValueMapsThroughTheTable) {
    const std::vector<unsigned char> table = ScrambledTable();
    for (const color::TableLanes lanes :
         {color::TableLanes::Scalar, color::TableLanes::Avx2, color::TableLanes::Avx512}) {
        if (!color::SupportsTableLanes(lanes)) continue;
        // 8-bit, 256 x 2 pixels: each value once per row, the second row reversed.
        BufferImage* image = BufferImage::Make(256, 2, 8, QEL_MODEL_MONO, 3);
        for (int v = 0; v < 256; ++v) {
            image->Row(0)[v] = static_cast<unsigned char>(v);
            image->Row(1)[v] = static_cast<unsigned char>(255 - v);
        }
        color::ApplyByteTable(ReadImageView(image), table.data(), lanes);
        for (int v = 0; v < 256; ++v) {
            ASSERT_EQ(image->Row(0)[v], (v * 167 + 91) & 0xFF) << "value " << v << ", lanes " << int(lanes);
            ASSERT_EQ(image->Row(1)[v], ((255 - v) * 167 + 91) & 0xFF) << "value " << 255 - v;
        }
        EXPECT_TRUE(image->GuardsIntact());
        image->Release();
    }
}

TEST(ByteTableLanes, VectorRowsGiveTheScalarBytesAndKeepAlpha) {
    const std::vector<unsigned char> table = ScrambledTable();
    uint32_t seed = 3;
    for (const color::TableLanes lanes : {color::TableLanes::Avx2, color::TableLanes::Avx512}) {
        if (!color::SupportsTableLanes(lanes)) continue;
        for (const int bitCount : {8, 24, 32}) {
            for (int width = 1; width <= 40; ++width) {
                const int height = 1 + width % 3;
                BufferImage* scalar = BufferImage::Make(width, height, bitCount, QEL_MODEL_BGR, width % 5);
                BufferImage* vector = BufferImage::Make(width, height, bitCount, QEL_MODEL_BGR, width % 5);
                scalar->FillRandom(++seed);
                vector->FillRandom(seed);
                const std::vector<unsigned char> before = scalar->Snapshot();
                color::ApplyByteTable(ReadImageView(scalar), table.data(), color::TableLanes::Scalar);
                color::ApplyByteTable(ReadImageView(vector), table.data(), lanes);
                // Padding untouched, alpha kept, and the same bytes either way.
                EXPECT_EQ(vector->Snapshot(), scalar->Snapshot())
                    << bitCount << " bits, width " << width << ", lanes " << int(lanes);
                if (bitCount == 32) {
                    EXPECT_EQ(scalar->Row(height - 1)[4 * width - 1],
                              before[static_cast<size_t>((height - 1) * scalar->Stride() + 4 * width - 1)]);
                }
                EXPECT_TRUE(vector->GuardsIntact());
                scalar->Release();
                vector->Release();
            }
        }
    }
}

}  // namespace
