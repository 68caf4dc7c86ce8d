// Add, Subtract and AddScale: exact bytes through the interface on padded
// images, and the in-place row road against the staged one.
#include <cmath>

#include "support/component_test.h"
#include "support/maths_planes.h"

namespace {

using namespace qeltest;

// Add of one 8-bit sample pair with a divisor.
unsigned char AddOne(unsigned char a, unsigned char b, float divisor) {
    auto dest = ImageOf(1, 1, 24, QEL_MODEL_BGR, {1, 2, 3});
    EXPECT_EQ(Maths()->Add(dest.Get(), ImageOf(1, 1, 8, QEL_MODEL_MONO, {a}).Get(),
                           ImageOf(1, 1, 8, QEL_MODEL_MONO, {b}).Get(), divisor),
              QEL_OK);
    return PixelBytes(dest.Get()).at(0);
}

TEST(MathsAdd, AppliesTheDivisorRules) {
    // A divisor of 2 multiplies by 4; 0 adds; negative and NaN give 0.
    EXPECT_EQ((Bytes{AddOne(200, 100, 0.0f), AddOne(10, 20, 0.0f), AddOne(10, 20, 2.0f), AddOne(100, 0, 2.0f),
                     AddOne(10, 10, 3.0f), AddOne(255, 255, 2.5f), AddOne(200, 100, -1.0f),
                     AddOne(200, 100, std::nanf(""))}),
              (Bytes{255, 30, 120, 255, 6, 204, 0, 0}));
}

TEST(MathsAdd, ThirtyTwoBitRowsFormatsAndSmallerSources) {
    auto a =
        ImageOf(2, 2, 32, QEL_MODEL_ARGB, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}, 3, true);
    auto b = ImageOf(2, 2, 32, QEL_MODEL_ARGB, Bytes(16, 100));
    auto dest = ImageOf(1, 1, 8, QEL_MODEL_MONO, {77});
    EXPECT_EQ(Maths()->Add(dest.Get(), a.Get(), b.Get(), 0.0f), QEL_OK);
    // The first 3 x width bytes of each row are sums; the last width bytes stay as Create left them.
    ExpectPixels(dest.Get(), {101, 102, 103, 104, 105, 106, 0, 0, 109, 110, 111, 112, 113, 114, 0, 0});
    EXPECT_EQ(qel::PixelsOf(dest.Get()).colourModel, QEL_MODEL_ARGB);

    // Mismatched formats fail before the destination is re-created.
    auto rgb = ImageOf(2, 1, 24, QEL_MODEL_BGR, Bytes(6, 1)), noModel = ImageOf(2, 1, 24, 0, Bytes(6, 1));
    auto grey = ImageOf(1, 1, 8, QEL_MODEL_MONO, {77});
    EXPECT_EQ(Maths()->Add(grey.Get(), rgb.Get(), noModel.Get(), 0.0f), QEL_E_FAIL);
    ExpectPixels(grey.Get(), {77});
    // Other depths: re-created, nothing computed.
    auto a16 = ImageOf(2, 1, 16, QEL_MODEL_BGR, Bytes(4, 9)),
         b16 = ImageOf(2, 1, 16, QEL_MODEL_BGR, Bytes(4, 9));
    EXPECT_EQ(Maths()->Add(grey.Get(), a16.Get(), b16.Get(), 0.0f), QEL_OK);
    ExpectPixels(grey.Get(), Bytes(4, 0));

    // A second image smaller than the first reads as 0 beyond its own memory.
    SmartPtr<IQELImageDIB> host = TestHost().NewImage();
    EXPECT_EQ(Maths()->Add(host.Get(), ImageOf(2, 3, 8, QEL_MODEL_MONO, {1, 2, 3, 4, 5, 6}).Get(),
                           ImageOf(1, 1, 8, QEL_MODEL_MONO, {50}).Get(), 0.0f),
              QEL_OK);
    EXPECT_EQ(PixelBytes(host.Get()), Bytes({51, 2, 3, 4, 5, 6}));
}

TEST(MathsSubtract, FlagsPerDepthAndTheAlphaByte) {
    struct Case {
        int bitCount, flags;
        Bytes expected;  // for a = (5, 10, 7[, 99]) and b = (10, 5, 7[, 1])
    };
    const Case cases[] = {
        {8, 0, {0, 5, 0}},       {8, 1, {5, 5, 0}},       {8, 2, {5, 5, 0}},     {8, 3, {5, 5, 0}},
        {24, 0, {0, 5, 0}},      {24, 1, {5, 5, 0}},      {24, 2, {5, 5, 0}},    {24, 3, {5, 5, 0}},
        {32, 0, {0, 5, 0, 255}}, {32, 1, {5, 5, 0, 255}}, {32, 2, {0, 5, 0, 0}}, {32, 3, {5, 5, 0, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.bitCount << " bits, flags " << c.flags);
        const int width = c.bitCount == 8 ? 3 : 1;
        const unsigned model = ModelFor(c.bitCount);
        Bytes bytesA = {5, 10, 7}, bytesB = {10, 5, 7};
        if (c.bitCount == 32) bytesA.push_back(99), bytesB.push_back(1);
        auto a = ImageOf(width, 1, c.bitCount, model, bytesA);
        auto b = ImageOf(width, 1, c.bitCount, model, bytesB, 3, true);
        auto dest = ImageOf(width, 1, c.bitCount, model, Bytes(bytesA.size(), 0xEE));
        // The tally counts stored values of 2 or more, at 24 and 32 bits only.
        const QResult tally = c.bitCount == 8 ? 0 : (c.expected[0] >= 2) + (c.expected[1] >= 2);
        EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), b.Get(), c.flags), tally);
        ExpectPixels(dest.Get(), c.expected);
    }
}

TEST(MathsSubtract, TallyMeasuresTheDifference) {
    Bytes base(3 * 3 * 2);
    for (size_t i = 0; i < base.size(); ++i) base[i] = static_cast<unsigned char>(10 * i + 3);
    Bytes plusOne = base, plusTwoOnce = base;
    for (auto& v : plusOne) ++v;
    plusTwoOnce[7] += 2;
    auto a = ImageOf(3, 2, 24, QEL_MODEL_BGR, base);
    auto dest = ImageOf(3, 2, 24, QEL_MODEL_BGR, Bytes(18, 0));
    auto one = ImageOf(3, 2, 24, QEL_MODEL_BGR, plusOne);
    EXPECT_EQ(
        Maths()->Subtract(dest.Get(), a.Get(), ImageOf(3, 2, 24, QEL_MODEL_BGR, base, 3, true).Get(), 1), 0);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), one.Get(), 1), 0);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), ImageOf(3, 2, 24, QEL_MODEL_BGR, plusTwoOnce).Get(), 1),
              1);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), one.Get(), a.Get(), 0), 0);
    // The common area is the smaller of the two sources.
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), ImageOf(2, 1, 24, QEL_MODEL_BGR, Bytes(6, 0)).Get(), 0),
              6);
}

TEST(MathsSubtract, RejectsNullAndMismatchedImagesAndClipsToTheDestination) {
    auto a = ImageOf(1, 1, 24, QEL_MODEL_BGR, {1, 2, 3});
    auto dest = ImageOf(1, 1, 24, QEL_MODEL_BGR, {9, 9, 9});
    EXPECT_EQ(Maths()->Subtract(nullptr, a.Get(), a.Get(), 0), QEL_E_INVALIDARG);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), nullptr, a.Get(), 0), QEL_E_INVALIDARG);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), nullptr, 0), QEL_E_INVALIDARG);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), ImageOf(1, 1, 32, QEL_MODEL_BGR, {1, 2, 3, 4}).Get(), 0),
              QEL_E_FAIL);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), ImageOf(1, 1, 24, 0, {1, 2, 3}).Get(), 0), QEL_E_FAIL);
    ExpectPixels(dest.Get(), {9, 9, 9});

    // Nothing is written outside a smaller destination.
    auto small = ImageOf(1, 1, 8, QEL_MODEL_MONO, {0});
    EXPECT_EQ(Maths()->Subtract(small.Get(), ImageOf(3, 3, 8, QEL_MODEL_MONO, Bytes(9, 50)).Get(),
                                ImageOf(3, 3, 8, QEL_MODEL_MONO, Bytes(9, 20)).Get(), 0),
              QEL_OK);
    ExpectPixels(small.Get(), {30});
}

TEST(MathsAddScale, SameDepthWithAndWithoutMask) {
    auto a = ImageOf(2, 1, 24, QEL_MODEL_BGR, {255, 10, 100, 0, 200, 7});
    auto b = ImageOf(2, 1, 24, QEL_MODEL_ARGB, {254, 30, 100, 0, 200, 8});  // models are not compared
    auto dest = ImageOf(2, 1, 24, QEL_MODEL_BGR, Bytes(6, 0xEE));
    EXPECT_EQ(Maths()->AddScale(dest.Get(), a.Get(), b.Get(), nullptr, 0.5f, 0.5f, 0.0f), QEL_OK);
    ExpectPixels(dest.Get(), {254, 20, 100, 0, 200, 7});
    auto masked = ImageOf(2, 1, 24, QEL_MODEL_BGR, Bytes(6, 0xEE));
    auto mask = ImageOf(2, 1, 8, QEL_MODEL_MONO, {0, 3});
    EXPECT_EQ(Maths()->AddScale(masked.Get(), a.Get(), b.Get(), mask.Get(), 1.0f, 1.0f, -100.0f), QEL_OK);
    ExpectPixels(masked.Get(), {0xEE, 0xEE, 0xEE, 0, 255, 0});

    // Clamping, NaN taken as 0, and the common width of 3.
    auto a8 = ImageOf(4, 1, 8, QEL_MODEL_MONO, {10, 20, 30, 40});
    auto b8 = ImageOf(4, 1, 8, QEL_MODEL_MONO, {1, 2, 3, 4}, 3, true);
    auto dest8 = ImageOf(3, 1, 8, QEL_MODEL_MONO, {0xEE, 0xEE, 0xEE});
    EXPECT_EQ(Maths()->AddScale(dest8.Get(), a8.Get(), b8.Get(), nullptr, std::nanf(""), 1.0f, 0.0f), QEL_OK);
    ExpectPixels(dest8.Get(), {0, 0, 0});
    EXPECT_EQ(Maths()->AddScale(dest8.Get(), a8.Get(), b8.Get(), nullptr, 10.0f, -1.0f, 0.5f), QEL_OK);
    ExpectPixels(dest8.Get(), {99, 198, 255});
    EXPECT_EQ(Maths()->AddScale(dest8.Get(), a8.Get(), b8.Get(), nullptr, -1.0f, 0.0f, 15.0f), QEL_OK);
    ExpectPixels(dest8.Get(), {5, 0, 0});
}

TEST(MathsAddScale, MixedDepths) {
    auto a = ImageOf(2, 1, 24, QEL_MODEL_BGR, {10, 20, 30, 40, 50, 60});
    auto b = ImageOf(2, 1, 32, QEL_MODEL_ARGB, {1, 2, 3, 200, 4, 5, 6, 200});
    auto dest = ImageOf(2, 1, 32, QEL_MODEL_ARGB, Bytes(8, 0xEE));
    EXPECT_EQ(Maths()->AddScale(dest.Get(), a.Get(), b.Get(), nullptr, 1.0f, 1.0f, 0.0f), QEL_OK);
    ExpectPixels(dest.Get(), {11, 22, 33, 0xEE, 44, 55, 66, 0xEE});

    // With a mask the pixels are written and the call still reports failure.
    auto masked = ImageOf(2, 1, 32, QEL_MODEL_ARGB, Bytes(8, 0xEE));
    auto mask = ImageOf(2, 1, 8, QEL_MODEL_MONO, {1, 0});
    EXPECT_EQ(Maths()->AddScale(masked.Get(), a.Get(), b.Get(), mask.Get(), 1.0f, 1.0f, 0.0f), QEL_E_FAIL);
    ExpectPixels(masked.Get(), {11, 22, 33, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
    // An 8-bit image among mixed depths: nothing written.
    auto grey = ImageOf(2, 1, 8, QEL_MODEL_MONO, {1, 2});
    EXPECT_EQ(Maths()->AddScale(masked.Get(), a.Get(), grey.Get(), nullptr, 1.0f, 1.0f, 0.0f), QEL_E_FAIL);
    ExpectPixels(masked.Get(), {11, 22, 33, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
}

// Runs `kernel(dest, a, b, mask, stage)` on two identical destinations, once
// in place and once with every row staged, and compares all their bytes.
template <class Kernel>
void ExpectSameBytesOnBothRoads(int width, int height, int bitCount, int destWidth, Kernel kernel) {
    SCOPED_TRACE(testing::Message() << width << " x " << height << " at " << bitCount << " bits");
    SmartPtr<BufferImage> a(BufferImage::Make(width, height, bitCount, QEL_MODEL_BGR, 3, false));
    SmartPtr<BufferImage> b(BufferImage::Make(width + 1, height, bitCount, QEL_MODEL_BGR, 1, true));
    SmartPtr<BufferImage> mask(BufferImage::Make(width, height, 8, QEL_MODEL_MONO, 2, true));
    SmartPtr<BufferImage> direct(BufferImage::Make(destWidth, height, bitCount, QEL_MODEL_BGR, 5, true));
    SmartPtr<BufferImage> staged(BufferImage::Make(destWidth, height, bitCount, QEL_MODEL_BGR, 5, true));
    a->FillRandom(1), b->FillRandom(2), mask->FillRandom(3), direct->FillRandom(4), staged->FillRandom(4);
    RowStage inPlace, throughScratch(true);
    const auto first =
        kernel(PlaneOf(direct.Get()), PlaneOf(a.Get()), PlaneOf(b.Get()), PlaneOf(mask.Get()), inPlace);
    const auto second = kernel(PlaneOf(staged.Get()), PlaneOf(a.Get()), PlaneOf(b.Get()), PlaneOf(mask.Get()),
                               throughScratch);
    EXPECT_EQ(first, second);
    EXPECT_EQ(direct->Snapshot(), staged->Snapshot());
    EXPECT_TRUE(direct->GuardsIntact() && staged->GuardsIntact());
}

TEST(MathsArithmeticKernels, InPlaceAndStagedRowsAgree) {
    const int sizes[][2] = {{1, 1}, {2, 1}, {1, 3}, {7, 5}, {13, 4}};
    for (const auto& size : sizes) {
        const int w = size[0], h = size[1];
        for (const int bits : {8, 24, 32}) {
            const int bytes = bits / 8;
            for (const float divisor : {0.0f, 2.0f, 3.0f, -0.7f}) {
                ExpectSameBytesOnBothRoads(w, h, bits, w, [&](auto d, auto a, auto b, auto, RowStage& s) {
                    AddRows(d, a, b, h, static_cast<size_t>(w) * (bits == 8 ? 1 : 3), divisor, s);
                    return 0;
                });
            }
            for (const int flags : {0, 1, 2, 3}) {
                // A destination narrower than the sources: its rows reach past it.
                ExpectSameBytesOnBothRoads(w, h, bits, (w + 1) / 2,
                                           [&](auto d, auto a, auto b, auto, RowStage& s) {
                                               return SubtractRows(d, a, b, w, h, bits, flags, s);
                                           });
            }
            const LinearMix mix{0.75f, -0.5f, 40.25f};
            ExpectSameBytesOnBothRoads(w, h, bits, w, [&](auto d, auto a, auto b, auto m, RowStage& s) {
                AddScaleSameDepth(d, a, b, nullptr, w, h, bytes, mix, s);
                AddScaleSameDepth(d, b, a, &m, w, h, bytes, LinearMix{1.5f, 1.0f, -3.0f}, s);
                const int step = bits == 32 ? 4 : 3;
                if (bits != 8) AddScaleMixedDepth(d, a, b, &m, w, h, step, step, step, mix, s);
                return 0;
            });
        }
    }
}

}  // namespace
