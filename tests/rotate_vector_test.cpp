// Drawing a turned image: the AVX2 step against the one-pixel-at-a-time
// sampler, byte for byte, on random images of both depths, with and without
// alpha in the output, odd sizes, padded and bottom-up strides.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "support/kernel_output.h"
#include "transform/turn_drawing.h"

namespace {

using qeltest::BufferImage;

struct TurnCase {
    int width, height, destWidth, destHeight, degrees;
    bool aboutCentre;
};

// Turns about the centre as Rotate keeps the size, output frames larger and
// smaller than the source, widths that leave a partial group of eight, and
// images barely wider than the drawn margin.
const TurnCase kCases[] = {{37, 29, 37, 29, 30, true},   {40, 40, 57, 57, 45, false},
                           {13, 31, 31, 13, -75, true},  {9, 9, 9, 9, 10, true},
                           {64, 21, 70, 50, 137, false}, {23, 50, 23, 50, 200, true},
                           {8, 8, 12, 12, 3, true},      {51, 17, 19, 41, -33, false}};

TurnGeometry GeometryOf(const TurnCase& c) {
    const float theta = -static_cast<float>(c.degrees) * 1.5707964f / 90.0f;
    TurnGeometry turn;
    turn.k = static_cast<float>(std::cos(static_cast<double>(theta)));
    turn.s = static_cast<float>(std::sin(static_cast<double>(theta)));
    turn.aboutCentre = c.aboutCentre;
    turn.startX = c.aboutCentre ? -static_cast<float>(c.destWidth) * 0.5f
                                : 3.25f - static_cast<float>(c.destWidth) * 0.5f;
    turn.startY = c.aboutCentre ? -static_cast<float>(c.destHeight) * 0.5f : 1.5f;
    return turn;
}

std::vector<unsigned char> Drawn(BufferImage* source, const TurnCase& c, int destBitCount, int method,
                                 TurnLanes lanes, int destPadding) {
    // Pixels outside the drawn area keep the random bytes of seed 99 (same padding, same bytes).
    return qeltest::KernelOutput(
        c.destWidth, c.destHeight, destBitCount, destPadding,
        [&](const ImageView& to) { DrawTurned(ReadImageView(source), to, GeometryOf(c), method, lanes); },
        99);
}

TEST(RotateVectorSteps, EightLanesGiveTheScalarBytesForEveryKernel) {
    if (BestTurnLanes() != TurnLanes::Avx2) GTEST_SKIP() << "no AVX2 on this processor";
    uint32_t seed = 1;
    for (int bitCount : {24, 32}) {
        for (const TurnCase& c : kCases) {
            const bool bottomUp = (seed & 1) != 0;
            BufferImage* source =
                BufferImage::Make(c.width, c.height, bitCount, QEL_MODEL_BGR, seed % 3, bottomUp);
            source->FillRandom(seed++);
            for (int destBitCount : {bitCount, 32}) {
                for (int method = 0; method <= 15; ++method) {
                    const int destPadding = static_cast<int>(seed % 4);
                    const std::vector<unsigned char> expected =
                        Drawn(source, c, destBitCount, method, TurnLanes::Scalar, destPadding);
                    const std::vector<unsigned char> actual =
                        Drawn(source, c, destBitCount, method, TurnLanes::Avx2, destPadding);
                    ASSERT_EQ(actual, expected)
                        << bitCount << "-bit " << c.width << "x" << c.height << " into " << destBitCount
                        << "-bit " << c.destWidth << "x" << c.destHeight << " turned " << c.degrees
                        << " method " << method << "\n"
                        << qeltest::HexRows(actual, static_cast<size_t>(c.destWidth) * destBitCount / 8);
                }
            }
            EXPECT_TRUE(source->GuardsIntact());
            source->Release();
        }
    }
}

// Bright taps under weights above one overflow the byte and clamp; negative
// lobes beside a dark line go below zero and clamp there.
TEST(RotateVectorSteps, ClampedSumsMatchOnHardEdges) {
    if (BestTurnLanes() != TurnLanes::Avx2) GTEST_SKIP() << "no AVX2 on this processor";
    for (int bitCount : {24, 32}) {
        SmartPtr<BufferImage> edges = qeltest::HardEdges(33, 27, bitCount);
        BufferImage* source = edges.Get();
        const TurnCase c{33, 27, 33, 27, 21, true};
        for (int method : {2, 3, 4}) {
            const std::vector<unsigned char> expected =
                Drawn(source, c, bitCount, method, TurnLanes::Scalar, 0);
            EXPECT_EQ(Drawn(source, c, bitCount, method, TurnLanes::Avx2, 0), expected)
                << bitCount << " method " << method;
        }
    }
}

}  // namespace
