// Add, Subtract and AddScale: exact bytes through the interface on padded
// images, and the in-place row road against the staged one.
#include <gtest/gtest.h>

#include <cmath>

#include "maths/maths_kernels.h"
#include "support/test_image.h"

using qeltest::BufferImage;
using qeltest::HexRows;
using qeltest::PixelBytes;
using Bytes = std::vector<unsigned char>;

namespace {

IQELMaths* Maths() {
    static SmartPtr<IQELMaths> maths =
        qeltest::TestHost().Create<IQELMaths>(L"QELMaths", qel::iid::IQELMaths);
    return maths.Get();
}

SmartPtr<BufferImage> Image(int width, int height, int bitCount, unsigned model, const Bytes& bytes,
                            bool bottomUp = false) {
    SmartPtr<BufferImage> image(BufferImage::Make(width, height, bitCount, model, 3, bottomUp));
    image->FillRandom(11);
    qeltest::SetPixelBytes(image.Get(), bytes);
    return image;
}

void ExpectPixels(BufferImage* image, const Bytes& expected) {
    const size_t rowBytes = qel::PixelsOf(image).RowBytes();
    EXPECT_EQ(PixelBytes(image), expected) << "got\n"
                                           << HexRows(PixelBytes(image), rowBytes) << "expected\n"
                                           << HexRows(expected, rowBytes);
    EXPECT_TRUE(image->GuardsIntact());
}

// Add of one 8-bit sample pair with a divisor.
unsigned char AddOne(unsigned char a, unsigned char b, float divisor) {
    auto imageA = Image(1, 1, 8, QEL_MODEL_MONO, {a});
    auto imageB = Image(1, 1, 8, QEL_MODEL_MONO, {b});
    auto dest = Image(1, 1, 24, QEL_MODEL_BGR, {1, 2, 3});
    EXPECT_EQ(Maths()->Add(dest.Get(), imageA.Get(), imageB.Get(), divisor), QEL_OK);
    return PixelBytes(dest.Get()).at(0);
}

}  // namespace

TEST(MathsAdd, AppliesTheDivisorRules) {
    EXPECT_EQ(AddOne(200, 100, 0.0f), 255);
    EXPECT_EQ(AddOne(10, 20, 0.0f), 30);
    EXPECT_EQ(AddOne(10, 20, 2.0f), 120);  // a divisor of 2 multiplies by 4
    EXPECT_EQ(AddOne(100, 0, 2.0f), 255);
    EXPECT_EQ(AddOne(10, 10, 3.0f), 6);
    EXPECT_EQ(AddOne(255, 255, 2.5f), 204);
    EXPECT_EQ(AddOne(200, 100, -1.0f), 0);
    EXPECT_EQ(AddOne(200, 100, std::nanf("")), 0);
}

TEST(MathsAdd, TreatsThirtyTwoBitRowsAsPackedThreeBytePixels) {
    auto a = Image(2, 2, 32, QEL_MODEL_ARGB, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}, true);
    auto b = Image(2, 2, 32, QEL_MODEL_ARGB, Bytes(16, 100));
    auto dest = Image(1, 1, 8, QEL_MODEL_MONO, {77});
    EXPECT_EQ(Maths()->Add(dest.Get(), a.Get(), b.Get(), 0.0f), QEL_OK);
    // The first 3 x width bytes of each row are sums; the last width bytes stay as Create left them.
    ExpectPixels(dest.Get(), {101, 102, 103, 104, 105, 106, 0, 0, 109, 110, 111, 112, 113, 114, 0, 0});
    EXPECT_EQ(qel::PixelsOf(dest.Get()).colourModel, QEL_MODEL_ARGB);
}

TEST(MathsAdd, RejectsMismatchedFormatsAndSkipsOtherDepths) {
    auto a = Image(2, 1, 24, QEL_MODEL_BGR, Bytes(6, 1));
    auto b = Image(2, 1, 24, 0, Bytes(6, 1));
    auto dest = Image(1, 1, 8, QEL_MODEL_MONO, {77});
    EXPECT_EQ(Maths()->Add(dest.Get(), a.Get(), b.Get(), 0.0f), QEL_E_FAIL);
    ExpectPixels(dest.Get(), {77});  // not re-created

    auto a16 = Image(2, 1, 16, QEL_MODEL_BGR, Bytes(4, 9));
    auto b16 = Image(2, 1, 16, QEL_MODEL_BGR, Bytes(4, 9));
    EXPECT_EQ(Maths()->Add(dest.Get(), a16.Get(), b16.Get(), 0.0f), QEL_OK);
    ExpectPixels(dest.Get(), Bytes(4, 0));  // re-created, nothing computed
}

TEST(MathsAdd, ReadsNothingPastASmallerSecondImage) {
    // A second image smaller than the first reads as 0 beyond its own memory.
    auto a = Image(2, 3, 8, QEL_MODEL_MONO, {1, 2, 3, 4, 5, 6});
    auto b = Image(1, 1, 8, QEL_MODEL_MONO, {50});
    SmartPtr<IQELImageDIB> dest = qeltest::TestHost().NewImage();
    EXPECT_EQ(Maths()->Add(dest.Get(), a.Get(), b.Get(), 0.0f), QEL_OK);
    EXPECT_EQ(PixelBytes(dest.Get()), Bytes({51, 2, 3, 4, 5, 6}));
}

TEST(MathsSubtract, FlagsPerDepthAndTheAlphaByte) {
    struct Case {
        int bitCount;
        unsigned model;
        int flags;
        Bytes expected;  // for a = (5, 10, 7[, 99]) and b = (10, 5, 7[, 1])
    };
    const Case cases[] = {
        {8, QEL_MODEL_MONO, 0, {0, 5, 0}},       {8, QEL_MODEL_MONO, 1, {5, 5, 0}},
        {8, QEL_MODEL_MONO, 2, {5, 5, 0}},       {8, QEL_MODEL_MONO, 3, {5, 5, 0}},
        {24, QEL_MODEL_BGR, 0, {0, 5, 0}},       {24, QEL_MODEL_BGR, 1, {5, 5, 0}},
        {24, QEL_MODEL_BGR, 2, {5, 5, 0}},       {24, QEL_MODEL_BGR, 3, {5, 5, 0}},
        {32, QEL_MODEL_ARGB, 0, {0, 5, 0, 255}}, {32, QEL_MODEL_ARGB, 1, {5, 5, 0, 255}},
        {32, QEL_MODEL_ARGB, 2, {0, 5, 0, 0}},   {32, QEL_MODEL_ARGB, 3, {5, 5, 0, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.bitCount << " bits, flags " << c.flags);
        const int width = c.bitCount == 8 ? 3 : 1;
        Bytes bytesA = {5, 10, 7}, bytesB = {10, 5, 7};
        if (c.bitCount == 32) bytesA.push_back(99), bytesB.push_back(1);
        auto a = Image(width, 1, c.bitCount, c.model, bytesA);
        auto b = Image(width, 1, c.bitCount, c.model, bytesB, true);
        auto dest = Image(width, 1, c.bitCount, c.model, Bytes(bytesA.size(), 0xEE));
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
    auto a = Image(3, 2, 24, QEL_MODEL_BGR, base);
    auto dest = Image(3, 2, 24, QEL_MODEL_BGR, Bytes(18, 0));
    auto same = Image(3, 2, 24, QEL_MODEL_BGR, base, true);
    auto one = Image(3, 2, 24, QEL_MODEL_BGR, plusOne);
    auto two = Image(3, 2, 24, QEL_MODEL_BGR, plusTwoOnce);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), same.Get(), 1), 0);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), one.Get(), 1), 0);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), two.Get(), 1), 1);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), one.Get(), a.Get(), 0), 0);
    // The common area is the smaller of the two sources.
    auto small = Image(2, 1, 24, QEL_MODEL_BGR, Bytes(6, 0));
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), small.Get(), 0), 6);
}

TEST(MathsSubtract, RejectsNullAndMismatchedImages) {
    auto a = Image(1, 1, 24, QEL_MODEL_BGR, {1, 2, 3});
    auto b32 = Image(1, 1, 32, QEL_MODEL_BGR, {1, 2, 3, 4});
    auto bOther = Image(1, 1, 24, 0, {1, 2, 3});
    auto dest = Image(1, 1, 24, QEL_MODEL_BGR, {9, 9, 9});
    EXPECT_EQ(Maths()->Subtract(nullptr, a.Get(), a.Get(), 0), QEL_E_INVALIDARG);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), nullptr, a.Get(), 0), QEL_E_INVALIDARG);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), nullptr, 0), QEL_E_INVALIDARG);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), b32.Get(), 0), QEL_E_FAIL);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), bOther.Get(), 0), QEL_E_FAIL);
    ExpectPixels(dest.Get(), {9, 9, 9});
}

TEST(MathsSubtract, WritesNothingOutsideASmallerDestination) {
    auto a = Image(3, 3, 8, QEL_MODEL_MONO, Bytes(9, 50));
    auto b = Image(3, 3, 8, QEL_MODEL_MONO, Bytes(9, 20));
    auto dest = Image(1, 1, 8, QEL_MODEL_MONO, {0});
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), b.Get(), 0), QEL_OK);
    ExpectPixels(dest.Get(), {30});
}

TEST(MathsAddScale, SameDepthWithAndWithoutMask) {
    auto a = Image(2, 1, 24, QEL_MODEL_BGR, {255, 10, 100, 0, 200, 7});
    auto b = Image(2, 1, 24, QEL_MODEL_ARGB, {254, 30, 100, 0, 200, 8});  // models are not compared
    auto dest = Image(2, 1, 24, QEL_MODEL_BGR, Bytes(6, 0xEE));
    EXPECT_EQ(Maths()->AddScale(dest.Get(), a.Get(), b.Get(), nullptr, 0.5f, 0.5f, 0.0f), QEL_OK);
    ExpectPixels(dest.Get(), {254, 20, 100, 0, 200, 7});

    auto mask = Image(2, 1, 8, QEL_MODEL_MONO, {0, 3});
    auto masked = Image(2, 1, 24, QEL_MODEL_BGR, Bytes(6, 0xEE));
    EXPECT_EQ(Maths()->AddScale(masked.Get(), a.Get(), b.Get(), mask.Get(), 1.0f, 1.0f, -100.0f), QEL_OK);
    ExpectPixels(masked.Get(), {0xEE, 0xEE, 0xEE, 0, 255, 0});
}

TEST(MathsAddScale, ClampsAndTreatsNaNAsZero) {
    auto a = Image(4, 1, 8, QEL_MODEL_MONO, {10, 20, 30, 40});
    auto b = Image(4, 1, 8, QEL_MODEL_MONO, {1, 2, 3, 4}, true);
    auto dest = Image(3, 1, 8, QEL_MODEL_MONO, {0xEE, 0xEE, 0xEE});  // the common width is 3
    EXPECT_EQ(Maths()->AddScale(dest.Get(), a.Get(), b.Get(), nullptr, std::nanf(""), 1.0f, 0.0f), QEL_OK);
    ExpectPixels(dest.Get(), {0, 0, 0});
    EXPECT_EQ(Maths()->AddScale(dest.Get(), a.Get(), b.Get(), nullptr, 10.0f, -1.0f, 0.5f), QEL_OK);
    ExpectPixels(dest.Get(), {99, 198, 255});
    EXPECT_EQ(Maths()->AddScale(dest.Get(), a.Get(), b.Get(), nullptr, -1.0f, 0.0f, 15.0f), QEL_OK);
    ExpectPixels(dest.Get(), {5, 0, 0});
}

TEST(MathsAddScale, MixedDepths) {
    auto a = Image(2, 1, 24, QEL_MODEL_BGR, {10, 20, 30, 40, 50, 60});
    auto b = Image(2, 1, 32, QEL_MODEL_ARGB, {1, 2, 3, 200, 4, 5, 6, 200});
    auto dest = Image(2, 1, 32, QEL_MODEL_ARGB, Bytes(8, 0xEE));
    EXPECT_EQ(Maths()->AddScale(dest.Get(), a.Get(), b.Get(), nullptr, 1.0f, 1.0f, 0.0f), QEL_OK);
    ExpectPixels(dest.Get(), {11, 22, 33, 0xEE, 44, 55, 66, 0xEE});

    // With a mask the pixels are written and the call still reports failure.
    auto mask = Image(2, 1, 8, QEL_MODEL_MONO, {1, 0});
    auto masked = Image(2, 1, 32, QEL_MODEL_ARGB, Bytes(8, 0xEE));
    EXPECT_EQ(Maths()->AddScale(masked.Get(), a.Get(), b.Get(), mask.Get(), 1.0f, 1.0f, 0.0f), QEL_E_FAIL);
    ExpectPixels(masked.Get(), {11, 22, 33, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});

    // An 8-bit image among mixed depths: nothing written.
    auto grey = Image(2, 1, 8, QEL_MODEL_MONO, {1, 2});
    EXPECT_EQ(Maths()->AddScale(masked.Get(), a.Get(), grey.Get(), nullptr, 1.0f, 1.0f, 0.0f), QEL_E_FAIL);
    ExpectPixels(masked.Get(), {11, 22, 33, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
}

namespace {

MathsPlane PlaneOfImage(BufferImage* image) {
    ImageInfo info;
    ReadSize(image, &info);
    ReadFormat(image, &info);
    return GetPlane(image, 0, info);
}

// Runs `kernel(dest, a, b, mask, stage)` on two identical destinations, once
// in place and once with every row staged, and compares all their bytes.
template <class Kernel>
void ExpectSameBytesOnBothRoads(int width, int height, int bitCount, int destWidth, Kernel kernel) {
    SCOPED_TRACE(testing::Message() << width << " x " << height << " at " << bitCount << " bits");
    SmartPtr<BufferImage> a(BufferImage::Make(width, height, bitCount, QEL_MODEL_BGR, 3, false));
    SmartPtr<BufferImage> b(BufferImage::Make(width + 1, height, bitCount, QEL_MODEL_BGR, 1, true));
    SmartPtr<BufferImage> mask(BufferImage::Make(width, height, 8, QEL_MODEL_MONO, 2, true));
    a->FillRandom(1);
    b->FillRandom(2);
    mask->FillRandom(3);
    SmartPtr<BufferImage> direct(BufferImage::Make(destWidth, height, bitCount, QEL_MODEL_BGR, 5, true));
    SmartPtr<BufferImage> staged(BufferImage::Make(destWidth, height, bitCount, QEL_MODEL_BGR, 5, true));
    direct->FillRandom(4);
    staged->FillRandom(4);
    const MathsPlane planeA = PlaneOfImage(a.Get()), planeB = PlaneOfImage(b.Get());
    const MathsPlane planeMask = PlaneOfImage(mask.Get());
    RowStage inPlace, throughScratch(true);
    const auto first = kernel(PlaneOfImage(direct.Get()), planeA, planeB, planeMask, inPlace);
    const auto second = kernel(PlaneOfImage(staged.Get()), planeA, planeB, planeMask, throughScratch);
    EXPECT_EQ(first, second);
    EXPECT_EQ(direct->Snapshot(), staged->Snapshot());
    EXPECT_TRUE(direct->GuardsIntact());
    EXPECT_TRUE(staged->GuardsIntact());
}

}  // namespace

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
                return 0;
            });
            ExpectSameBytesOnBothRoads(w, h, bits, w, [&](auto d, auto a, auto b, auto m, RowStage& s) {
                const int step = bits == 32 ? 4 : 3;
                if (bits != 8) AddScaleMixedDepth(d, a, b, &m, w, h, step, step, step, mix, s);
                return 0;
            });
        }
    }
}
