// The maths component through its interface on padded images (every row of
// the depth tables with exact bytes), and each row kernel in place against
// the same kernel with every row staged.
#include <cmath>
#include <limits>

#include "maths/maths_kernels.h"
#include "support/component_test.h"

namespace {

using namespace qeltest;

const unsigned M = QEL_MODEL_MONO, B = QEL_MODEL_BGR, A = QEL_MODEL_ARGB;
const unsigned char E = 0xEE;

TEST(MathsAdd, DivisorRulesRowsFormatsAndSmallerSources) {
    // A divisor of 2 multiplies by 4; 0 adds; negative and NaN give 0.
    const float divisors[] = {0, 0, 2, 2, 3, 2.5f, -1, std::nanf("")};
    const Bytes a = {200, 10, 10, 100, 10, 255, 200, 200}, b = {100, 20, 20, 0, 10, 255, 100, 100};
    const Bytes sums = {255, 30, 120, 255, 6, 204, 0, 0};
    for (size_t i = 0; i < a.size(); ++i) {
        auto dest = ImageOf(1, 1, 24, B, {1, 2, 3});
        EXPECT_EQ(Maths()->Add(dest.Get(), ImageOf(1, 1, 8, M, {a[i]}).Get(),
                               ImageOf(1, 1, 8, M, {b[i]}).Get(), divisors[i]),
                  QEL_OK);
        EXPECT_EQ(PixelBytes(dest.Get()), Bytes{sums[i]}) << i;
    }
    // Mismatched formats fail before the destination is re-created.
    auto dest = ImageOf(1, 1, 8, M, {77});
    EXPECT_EQ(Maths()->Add(dest.Get(), ImageOf(2, 1, 24, B, Bytes(6, 1)).Get(),
                           ImageOf(2, 1, 24, 0, Bytes(6, 1)).Get(), 0),
              QEL_E_FAIL);
    ExpectPixels(dest.Get(), {77});
    // 32 bits: the first 3 x width bytes of each row are sums, the last width bytes stay as created.
    auto counted = ImageOf(2, 2, 32, A, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}, 3, true);
    EXPECT_EQ(Maths()->Add(dest.Get(), counted.Get(), ImageOf(2, 2, 32, A, Bytes(16, 100)).Get(), 0.0f),
              QEL_OK);
    ExpectPixels(dest.Get(), {101, 102, 103, 104, 105, 106, 0, 0, 109, 110, 111, 112, 113, 114, 0, 0});
    EXPECT_EQ(qel::PixelsOf(dest.Get()).colourModel, A);
    // Other depths re-create the destination only.
    EXPECT_EQ(Maths()->Add(dest.Get(), ImageOf(2, 1, 16, B, Bytes(4, 9)).Get(),
                           ImageOf(2, 1, 16, B, Bytes(4, 9)).Get(), 0),
              QEL_OK);
    ExpectPixels(dest.Get(), Bytes(4, 0));
    // A second image smaller than the first reads as 0 beyond its own memory.
    SmartPtr<IQELImageDIB> host = TestHost().NewImage();
    EXPECT_EQ(Maths()->Add(host.Get(), ImageOf(2, 3, 8, M, {1, 2, 3, 4, 5, 6}).Get(),
                           ImageOf(1, 1, 8, M, {50}).Get(), 0),
              QEL_OK);
    EXPECT_EQ(PixelBytes(host.Get()), Bytes({51, 2, 3, 4, 5, 6}));
}

TEST(MathsSubtract, FlagsPerDepthTallyAndClipping) {
    // a = (5, 10, 7[, 99]), b = (10, 8, 6[, 1]); flags 1 takes the absolute
    // difference, flags 2 drops the alpha byte to 0 instead of 255. The tally
    // counts stored values of 2 or more (not 1), at 24 and 32 bits only.
    const struct {
        int bits, flags;
        Bytes expected;
        QResult tally;
    } cases[] = {{8, 0, {0, 2, 1}, 0},       {8, 3, {5, 2, 1}, 0},     {24, 0, {0, 2, 1}, 1},
                 {24, 1, {5, 2, 1}, 2},      {24, 2, {5, 2, 1}, 2},    {32, 0, {0, 2, 1, 255}, 1},
                 {32, 1, {5, 2, 1, 255}, 2}, {32, 2, {0, 2, 1, 0}, 1}, {32, 3, {5, 2, 1, 0}, 2}};
    for (const auto& c : cases) {
        const int width = c.bits == 8 ? 3 : 1;
        Bytes bytesA = {5, 10, 7}, bytesB = {10, 8, 6};
        if (c.bits == 32) bytesA.push_back(99), bytesB.push_back(1);
        auto dest = ImageOf(width, 1, c.bits, ModelFor(c.bits), Bytes(bytesA.size(), E));
        EXPECT_EQ(
            Maths()->Subtract(dest.Get(), ImageOf(width, 1, c.bits, ModelFor(c.bits), bytesA).Get(),
                              ImageOf(width, 1, c.bits, ModelFor(c.bits), bytesB, 3, true).Get(), c.flags),
            c.tally)
            << c.bits << " bits, flags " << c.flags;
        ExpectPixels(dest.Get(), c.expected);
    }
    const Bytes base(18, 10);
    auto a = ImageOf(3, 2, 24, B, base), dest = ImageOf(3, 2, 24, B, Bytes(18, 0));
    // The common area is the smaller of the two sources; differing formats fail.
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), ImageOf(2, 1, 24, B, Bytes(6, 0)).Get(), 0), 6);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), ImageOf(3, 2, 32, B, Bytes(24, 1)).Get(), 0),
              QEL_E_FAIL);
    EXPECT_EQ(Maths()->Subtract(dest.Get(), a.Get(), ImageOf(3, 2, 24, 0, base).Get(), 0), QEL_E_FAIL);
    // Nothing is written outside a smaller destination.
    auto small = ImageOf(1, 1, 8, M, {0});
    EXPECT_EQ(Maths()->Subtract(small.Get(), ImageOf(3, 3, 8, M, Bytes(9, 50)).Get(),
                                ImageOf(3, 3, 8, M, Bytes(9, 20)).Get(), 0),
              QEL_OK);
    ExpectPixels(small.Get(), {30});
}

TEST(MathsAddScale, SameAndMixedDepthsMasksAndClamping) {
    auto a = ImageOf(2, 1, 24, B, {255, 10, 100, 0, 200, 7});
    auto b = ImageOf(2, 1, 24, A, {254, 30, 100, 0, 200, 8});  // models are not compared
    auto a8 = ImageOf(4, 1, 8, M, {10, 20, 30, 40}), b8 = ImageOf(4, 1, 8, M, {1, 2, 3, 4}, 3, true);
    auto rgb = ImageOf(2, 1, 24, B, {10, 20, 30, 40, 50, 60});
    auto b32 = ImageOf(2, 1, 32, A, {1, 2, 3, 200, 4, 5, 6, 200}), grey = ImageOf(2, 1, 8, M, {1, 2});
    auto right = ImageOf(2, 1, 8, M, {0, 3}), left = ImageOf(2, 1, 8, M, {1, 0});
    const struct {
        int destWidth, destBits;
        BufferImage *a, *b, *mask;
        float factorA, factorB, offset;
        QResult result;
        Bytes expected;
    } cases[] = {
        {2, 24, a.Get(), b.Get(), nullptr, 0.5f, 0.5f, 0, QEL_OK, {254, 20, 100, 0, 200, 7}},
        {2, 24, a.Get(), b.Get(), right.Get(), 1, 1, -100, QEL_OK, {E, E, E, 0, 255, 0}},
        // Clamping and NaN taken as 0, over the common width of 3.
        {3, 8, a8.Get(), b8.Get(), nullptr, std::nanf(""), 1, 0, QEL_OK, {0, 0, 0}},
        {3, 8, a8.Get(), b8.Get(), nullptr, 10, -1, 0.5f, QEL_OK, {99, 198, 255}},
        {3, 8, a8.Get(), b8.Get(), nullptr, -1, 0, 15, QEL_OK, {5, 0, 0}},
        // Mixed depths; with a mask the pixels are written and the call still
        // reports failure. An 8-bit image among mixed depths: nothing written.
        {2, 32, rgb.Get(), b32.Get(), nullptr, 1, 1, 0, QEL_OK, {11, 22, 33, E, 44, 55, 66, E}},
        {2, 32, rgb.Get(), b32.Get(), left.Get(), 1, 1, 0, QEL_E_FAIL, {11, 22, 33, E, E, E, E, E}},
        {2, 32, rgb.Get(), grey.Get(), nullptr, 1, 1, 0, QEL_E_FAIL, Bytes(8, E)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "row " << &c - cases);
        auto dest = ImageOf(c.destWidth, 1, c.destBits, ModelFor(c.destBits), Bytes(c.expected.size(), E));
        EXPECT_EQ(Maths()->AddScale(dest.Get(), c.a, c.b, c.mask, c.factorA, c.factorB, c.offset), c.result);
        ExpectPixels(dest.Get(), c.expected);
    }
}

// Copies a 2 x 2 source into a 3 x 2 destination filled with 0xEE at (1, 0):
// each row keeps its first pixel and takes the row's two `copied` pixels.
TEST(MathsCopy, EveryRowOfTheDepthTable) {
    const Bytes grey = {10, 20, 30, 40}, bgr = {255, 255, 254, 1, 1, 0, 3, 4, 5, 9, 9, 9};
    const Bytes bgra = {255, 255, 254, 7, 1, 1, 0, 8, 3, 4, 5, 6, 9, 9, 9, 1};
    // 0xFFFF, 0x001F (blue), 0x07E0 (green), 0xF800 (red); the stride is halved into 16-bit units, so kept
    // even.
    const Bytes rgb565 = {0xFF, 0xFF, 0x1F, 0x00, 0xE0, 0x07, 0x00, 0xF8};
    const struct {
        int sourceBits;
        unsigned sourceModel;
        Bytes source;
        int destBits;
        unsigned destModel;
        QResult result;
        Bytes copied;
    } cases[] = {
        {8, M, grey, 24, B, QEL_OK, {10, 10, 10, 20, 20, 20, 30, 30, 30, 40, 40, 40}},
        {8, M, grey, 32, A, QEL_OK, {10, 10, 10, 255, 20, 20, 20, 255, 30, 30, 30, 255, 40, 40, 40, 255}},
        {24, B, bgr, 32, A, QEL_OK, {255, 255, 254, 255, 1, 1, 0, 255, 3, 4, 5, 255, 9, 9, 9, 255}},
        {24, B, bgr, 8, M, QEL_OK, {254, 0, 4, 9}},
        {32, A, bgra, 24, B, QEL_OK, bgr},
        {32, A, bgra, 8, M, QEL_OK, {254, 0, 4, 9}},
        {24, B, bgr, 24, 0, QEL_OK, bgr},  // equal depths copy bytes whatever the models
        // 5-6-5 pixels are expanded and the call still fails; a destination
        // without a colour model gets red first, any other model nothing.
        {16, B, rgb565, 24, B, QEL_E_FAIL, {248, 252, 248, 248, 0, 0, 0, 252, 0, 0, 0, 248}},
        {16, B, rgb565, 24, 0, QEL_E_FAIL, {248, 252, 248, 0, 0, 248, 0, 252, 0, 248, 0, 0}},
        {16, B, rgb565, 24, A, QEL_E_FAIL, {}},
        // Pairs outside the table write nothing.
        {8, M, grey, 16, B, QEL_E_FAIL, {}},
        {24, B, bgr, 16, B, QEL_E_FAIL, {}},
        {32, A, bgra, 16, B, QEL_E_FAIL, {}},
        {16, B, Bytes(8, 0xFF), 8, M, QEL_E_FAIL, {}},
        {16, M, Bytes(8, 0xFF), 24, B, QEL_E_FAIL, {}},
        {1, M, Bytes(2, 0xFF), 8, M, QEL_E_FAIL, {}},
    };
    for (const auto& c : cases) {
        auto source = ImageOf(2, 2, c.sourceBits, c.sourceModel, c.source, c.sourceBits == 16 ? 2 : 3, true);
        const size_t pixel = static_cast<size_t>(c.destBits / 8);
        auto dest = ImageOf(3, 2, c.destBits, c.destModel, Bytes(6 * pixel, E));
        const Bytes padding = PaddingOf(dest.Get()), sourceBefore = PixelBytes(source.Get());
        Bytes expected = PixelBytes(dest.Get());
        for (size_t i = 0; i < c.copied.size(); ++i)
            expected[pixel + i + i / (2 * pixel) * pixel] = c.copied[i];
        EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), nullptr, 1, 0), c.result)
            << c.sourceBits << " -> " << c.destBits;
        ExpectPixels(dest.Get(), expected);
        EXPECT_EQ(PaddingOf(dest.Get()), padding);
        EXPECT_EQ(PixelBytes(source.Get()), sourceBefore);
    }
    // Stride 5 becomes 2 units of 16 bits: row 1 is read from byte 4, one byte early.
    auto odd = ImageOf(1, 2, 16, B, {0xFF, 0xFF, 0x00, 0xEE}, 1);
    odd->Row(0)[4] = 0x1F;
    auto dest = ImageOf(1, 2, 24, B, Bytes(6, E));
    EXPECT_EQ(Maths()->Copy(dest.Get(), odd.Get(), nullptr, 0, 0), QEL_E_FAIL);
    ExpectPixels(dest.Get(), {248, 252, 248, 248, 0, 0});
}

TEST(MathsCopy, MaskOffsetsClippingAndCreateDestImage) {
    // A mask equal to the destination fills only its zero bytes; any other mask is a plain copy.
    auto source = ImageOf(2, 1, 24, B, {1, 2, 3, 4, 5, 6});
    auto dest = ImageOf(2, 1, 24, B, {0, 40, 0, 9, 0, 9});
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), dest.Get(), 0, 0), QEL_OK);
    ExpectPixels(dest.Get(), {1, 40, 3, 9, 5, 9});
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), source.Get(), 0, 0), QEL_OK);
    ExpectPixels(dest.Get(), {1, 2, 3, 4, 5, 6});
    // Cut at the right and bottom; x = W - 1 copies a one-pixel column; offsets outside fail.
    auto big = ImageOf(4, 3, 8, M, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    auto grey = ImageOf(3, 3, 8, M, Bytes(9, 0));
    const Bytes padding = PaddingOf(grey.Get());
    EXPECT_EQ(Maths()->Copy(grey.Get(), big.Get(), nullptr, 1, 1), QEL_OK);
    ExpectPixels(grey.Get(), {0, 0, 0, 0, 1, 2, 0, 5, 6});
    EXPECT_EQ(Maths()->Copy(grey.Get(), big.Get(), nullptr, 2, 0), QEL_OK);
    ExpectPixels(grey.Get(), {0, 0, 1, 0, 1, 5, 0, 5, 9});
    EXPECT_EQ(PaddingOf(grey.Get()), padding);
    for (const auto& at : {std::pair<int, int>{3, 0}, {0, 3}, {-1, 0}, {0, -1}})
        EXPECT_EQ(Maths()->Copy(grey.Get(), big.Get(), nullptr, at.first, at.second), QEL_E_FAIL);
    // An empty source copies nothing and succeeds.
    EXPECT_EQ(Maths()->Copy(grey.Get(), ImageOf(2, 0, 16, B, {}).Get(), nullptr, 0, 0), QEL_OK);
    ExpectPixels(grey.Get(), {0, 0, 1, 0, 1, 5, 0, 5, 9});

    SmartPtr<BufferImage> model(BufferImage::Make(5, 3, 32, A, 0, false, 2));
    SmartPtr<IQEL> made;
    ASSERT_EQ(Maths()->CreateDestImage(made.Out(), model.Get(), 0, 0), QEL_OK);
    EXPECT_EQ(SizeAndFormat(made.Get()), std::vector<int>({5, 3, 32, int(A)}));
    EXPECT_EQ(RefCountOf(made.Get()), 1u);
    ASSERT_EQ(Maths()->CreateDestImage(made.Out(), model.Get(), 8, int(M)), QEL_OK);
    EXPECT_EQ(SizeAndFormat(made.Get()), std::vector<int>({5, 3, 8, int(M)}));
    EXPECT_EQ(ReadImageView(made.Get()).planes, 2);
    EXPECT_EQ(RefCountOf(model.Get()), 1u);
}

TEST(MathsEqual, LayoutsPerFormatMasksAndPlanes) {
    auto second = ImageOf(2, 1, 8, M, {0, 1}), dot = ImageOf(1, 1, 8, M, {1});
    auto checker = ImageOf(4, 2, 8, M, {0, 1, 0, 1, 1, 0, 1, 0}, 2, true);
    const int32_t kFill = static_cast<int32_t>(0xEEEEEEEEu);  // an untouched integer
    const struct {
        int width, height, bits;
        unsigned model;
        int padding;
        bool bottomUp;
        BufferImage* mask;
        int64_t value;
        Bytes expected;
    } cases[] = {
        // 24 bits: the value's lowest byte goes last, and the mask is ignored.
        {2, 1, 24, B, 3, true, second.Get(), 0x00112233, {0x11, 0x22, 0x33, 0x11, 0x22, 0x33}},
        // 32 bits: the value as a word, low byte first, under the mask.
        {2, 1, 32, A, 1, false, nullptr, 0x00112233, {0x33, 0x22, 0x11, 0x00, 0x33, 0x22, 0x11, 0x00}},
        {2, 1, 32, A, 1, false, second.Get(), 0xAABBCCDD, {E, E, E, E, 0xDD, 0xCC, 0xBB, 0xAA}},
        {4, 2, 8, B, 3, false, checker.Get(), 0x1FF, {E, 0xFF, E, 0xFF, 0xFF, E, 0xFF, E}},
        {2, 2, 32, M, 4, false, checker.Get(), -2, Ints({kFill, -2, -2, kFill})},
        // 16-bit "MONO" gets a word per pixel, rows stepped in pixels of the stride:
        // row 0's words cover the image, the rest is dropped. Other depths stay.
        {2, 2, 16, M, 0, false, nullptr, 0x01020304, {4, 3, 2, 1, 4, 3, 2, 1}},
        {3, 2, 16, B, 3, false, nullptr, 0x12345678, Bytes(12, E)},
        {9, 1, 1, B, 3, false, nullptr, 1, {E, E}},
        // A smaller mask selects nothing beyond its pixels.
        {3, 2, 8, M, 3, false, dot.Get(), 9, {9, E, E, E, E, E}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "row " << &c - cases);
        auto image =
            ImageOf(c.width, c.height, c.bits, c.model, Bytes(c.expected.size(), E), c.padding, c.bottomUp);
        EXPECT_EQ(Maths()->Equal(image.Get(), c.mask, static_cast<int>(c.value)), QEL_OK);
        ExpectPixels(image.Get(), c.expected);
    }
    // Plane 0 of the mask selects in every plane.
    auto planesMask = ImageOf(2, 1, 8, M, {1, 0}, 3, false, 2);
    planesMask->Row(0, 1)[0] = 0, planesMask->Row(0, 1)[1] = 1;
    auto image = ImageOf(2, 1, 8, M, {E, E}, 3, false, 3);
    for (int p = 0; p < 3; ++p) image->Row(0, p)[1] = E;
    EXPECT_EQ(Maths()->Equal(image.Get(), planesMask.Get(), 7), QEL_OK);
    for (int p = 0; p < 3; ++p) EXPECT_EQ(Bytes(image->Row(0, p), image->Row(0, p) + 2), Bytes({7, E})) << p;
}

// A 2 x 2 source scaled into a 2 x 2 destination filled with 0xEE, for each destination format.
struct ScaleRow {
    int destBits;
    unsigned destModel;
    float factor, offset;
    QResult result;
    Bytes expected;
};
void ExpectScaleRows(int sourceBits, unsigned sourceModel, const Bytes& source,
                     std::initializer_list<ScaleRow> rows) {
    for (const ScaleRow& c : rows) {
        // Word-addressed images keep a stride of whole words; the others get odd padding.
        auto image = ImageOf(2, 2, sourceBits, sourceModel, source,
                             sourceBits == 32 && sourceModel == M ? 4 : 3, true);
        auto dest = ImageOf(2, 2, c.destBits, c.destModel, Bytes(c.destBits / 2, E),
                            c.destBits == 32 && c.destModel == M ? 8 : 1);
        EXPECT_EQ(Maths()->Scale(dest.Get(), image.Get(), nullptr, c.factor, c.offset), c.result)
            << sourceBits << " -> " << c.destBits;
        ExpectPixels(dest.Get(), c.expected);
    }
}

TEST(MathsScale, EveryRowOfTheDepthTable) {
    ExpectScaleRows(32, M, Ints({-5, 100, 300, 7}),
                    {{8, M, 1, 0.5f, QEL_OK, {0, 100, 255, 7}},
                     {24, B, 1, 0, QEL_OK, {0, 0, 0, 100, 100, 100, 255, 255, 255, 7, 7, 7}},
                     {32, A, 1, 0, QEL_OK, {0, 0, 0, E, 100, 100, 100, E, 255, 255, 255, E, 7, 7, 7, E}},
                     {32, M, 3, 0.25f, QEL_OK, Ints({0, 300, 900, 21})},
                     {16, M, 1, 0, QEL_E_FAIL, Bytes(8, E)}});
    // Colour to grey: the factor is divided by 3 and applied to b + g + r. 32
    // to 32 scales every byte, alpha too; values above 255 keep their low 8 bits.
    const Bytes everyByte = {143, 1, 255, 199, 0, 253, 5, 99, 19, 39, 59, 79, 9, 11, 13, 15};
    ExpectScaleRows(32, A, {200, 1, 128, 100, 0, 255, 3, 50, 10, 20, 30, 40, 5, 6, 7, 8},
                    {{8, M, 1.5f, 0, QEL_OK, {164, 129, 30, 9}},
                     {24, B, 2, -10, QEL_OK, {255, 0, 246, 0, 255, 0, 10, 30, 50, 0, 2, 4}},
                     {32, QEL_MODEL_ABGR, 2, -1, QEL_OK, everyByte},
                     {16, B, 1, 0, QEL_E_FAIL, Bytes(8, E)}});
    // 24 to 32 bits: only the first pixel of each row, wrapping above 255.
    const Bytes rgb = {10, 20, 30, 255, 255, 255, 1, 1, 1, 0, 0, 3};
    ExpectScaleRows(24, B, rgb,
                    {{8, M, 1.5f, 0, QEL_OK, {30, 255, 1, 1}},
                     {24, B, 2, -10, QEL_OK, {10, 30, 50, 255, 255, 255, 0, 0, 0, 0, 0, 0}},
                     {32, A, 20, 0, QEL_OK, {200, 144, 88, E, E, E, E, E, 20, 20, 20, E, E, E, E, E}}});
    ExpectScaleRows(8, M, {5, 100, 200, 7},
                    {{8, M, 2, -10, QEL_OK, {0, 190, 255, 4}},
                     {24, B, 2, -10, QEL_OK, {0, 0, 0, 190, 190, 190, 255, 255, 255, 4, 4, 4}},
                     {32, A, 1, 0, QEL_E_FAIL, Bytes(16, E)}});
    for (const auto& source : {std::make_pair(24, M), std::make_pair(16, M), std::make_pair(1, M)})
        ExpectScaleRows(source.first, source.second, Bytes(12, 1), {{8, M, 1, 0, QEL_E_FAIL, Bytes(4, E)}});
}

TEST(MathsScale, WordRowsMaskPlanesCommonAreaAndScale8) {
    // An 8-bit source into integers: row r is read at 4 * r * stride, so row 0
    // takes the first eight bytes as two integers and row 1 lies past the image.
    SmartPtr<BufferImage> grey = Random(2, 2, 8, 9, 4);
    const Bytes firstRow = Ints({258, -5});
    std::copy(firstRow.begin(), firstRow.end(), grey->Row(0));
    auto integers = ImageOf(2, 2, 32, M, Bytes(16, E), 0);
    EXPECT_EQ(Maths()->Scale(integers.Get(), grey.Get(), nullptr, 1.0f, 7.0f), QEL_OK);
    ExpectPixels(integers.Get(), Ints({265, 2, 7, 7}));
    // Stride 7 is cut to one word: row 1 is read from byte 4, in the padding of row 0.
    auto source = ImageOf(1, 2, 32, M, Ints({40, 0}), 3);
    source->Row(0)[4] = 10, source->Row(0)[5] = source->Row(0)[6] = 0;
    auto dest = ImageOf(1, 2, 8, M, {E, E});
    EXPECT_EQ(Maths()->Scale(dest.Get(), source.Get(), nullptr, 1.0f, 0.0f), QEL_OK);
    ExpectPixels(dest.Get(), {40, 10});
    // 8 to 8 works on plane 0 under the mask; the area is the smaller of the two images.
    auto two = ImageOf(2, 2, 8, M, {5, 100, 200, 7}, 3, false, 2);
    auto planes = ImageOf(2, 2, 8, M, Bytes(4, E), 1, false, 2);
    const Bytes secondPlane = planes->Snapshot(1);
    auto mask = ImageOf(2, 2, 8, M, {0, 1, 9, 0}, 2, true);
    EXPECT_EQ(Maths()->Scale(planes.Get(), two.Get(), mask.Get(), 2, -10), QEL_OK);
    ExpectPixels(planes.Get(), {E, 190, 255, E});
    EXPECT_EQ(planes->Snapshot(1), secondPlane);
    auto tall = ImageOf(1, 3, 24, B, Bytes(9, E), 3, false, 2);
    EXPECT_EQ(Maths()->Scale(tall.Get(), two.Get(), nullptr, 1.0f, 1.0f), QEL_OK);
    ExpectPixels(tall.Get(), {6, 6, 6, 201, 201, 201, E, E, E});
    // Scale8: integers to grey bytes, 10.5 -> 10 and -10.5 -> -10 before the offset.
    SmartPtr<IQELImageDIB> bytes = TestHost().NewImage(1, 1, 24, B);
    auto samples = ImageOf(3, 2, 32, M, Ints({101, -100, 1000, 0, 21, -21}), 4, true);
    EXPECT_EQ(Maths()->Scale8(bytes.Get(), samples.Get(), 10, 0.5), QEL_OK);
    EXPECT_EQ(SizeAndFormat(bytes.Get()), std::vector<int>({3, 2, 8, int(M)}));
    EXPECT_EQ(PixelBytes(bytes.Get()), Bytes({60, 0, 255, 10, 20, 0}));
    // A 16-bit "MONO" source is read as integers too, zero past its end; an 8-bit one gives a blank image.
    auto words = ImageOf(2, 1, 16, M, {0x10, 0, 0x20, 0}, 0);
    EXPECT_EQ(Maths()->Scale8(bytes.Get(), words.Get(), 1, 1.0 / 65536.0), QEL_OK);
    EXPECT_EQ(PixelBytes(bytes.Get()), Bytes({33, 1}));
    EXPECT_EQ(Maths()->Scale8(bytes.Get(), ImageOf(2, 1, 8, M, {50, 60}).Get(), 10, 1.0), QEL_OK);
    EXPECT_EQ(PixelBytes(bytes.Get()), Bytes({0, 0}));
    EXPECT_EQ(Maths()->Scale8(bytes.Get(), ImageOf(4, 4, 32, A, Bytes(64, 1), 0).Get(), 10, 1.0),
              QEL_E_NOT_MONO);
    EXPECT_EQ(qel::PixelsOf(bytes.Get()).width, 2);  // left as it was
}

// Plane 0 of a test image as the row kernels see it.
MathsPlane PlaneOf(BufferImage* image) { return ::PlaneOf(ReadImageView(image)); }

// Runs `kernel(dest, stage)` once in place and once with every row staged, on
// two identical destinations; both must end alike, padding and guards included.
template <class Kernel>
void ExpectRoadsAgree(int w, int h, int bits, unsigned model, Kernel kernel) {
    SmartPtr<BufferImage> direct = Random(w, h, bits, 4, 5, true), staged = Random(w, h, bits, 4, 5, true);
    RowStage inPlace, throughScratch(true);
    EXPECT_EQ(kernel(PlaneOf(direct.Get()), inPlace), kernel(PlaneOf(staged.Get()), throughScratch));
    EXPECT_EQ(direct->Snapshot(), staged->Snapshot())
        << w << "x" << h << " " << bits << " bits model " << model;
    EXPECT_TRUE(direct->GuardsIntact() && staged->GuardsIntact());
}

TEST(MathsKernels, InPlaceAndStagedRowsAgree) {
    const int sizes[][2] = {{1, 1}, {2, 1}, {1, 3}, {7, 5}, {13, 4}};
    const std::pair<int, unsigned> formats[] = {{8, M}, {24, B}, {32, A}, {32, M}, {16, M}, {24, M}, {1, M}};
    for (const auto& size : sizes) {
        const int w = size[0], h = size[1];
        for (const auto& to : formats) {
            const int bits = to.first;
            SmartPtr<BufferImage> a = Random(w, h, bits, 1, 3), b = Random(w + 1, h, bits, 2, 1, true);
            SmartPtr<BufferImage> mask = Random(w, h, 8, 3, 2, true),
                                  shortMask = Random(w, h - (h > 1), 8, 31, 1, true);
            const MathsPlane pa = PlaneOf(a.Get()), pb = PlaneOf(b.Get()), pm = PlaneOf(mask.Get()),
                             ps = PlaneOf(shortMask.Get());
            ExpectRoadsAgree(w, h, bits, to.second, [&](MathsPlane d, RowStage& s) {
                EqualRows(d, &ps, w, h, bits, to.second, 0x5A6B7C8D, s);
                EqualRows(d, nullptr, (w + 1) / 2, h, bits, to.second, -77, s);
                return 0;
            });
            for (const auto& from : formats) {
                SmartPtr<BufferImage> source = Random(w, h, from.first, 21, 3, true);
                SmartPtr<BufferImage> narrowMask = Random(w - (w > 1), h, 8, 22, 1);
                // The case from the row's own formats: Random gives the source ModelFor's model.
                const ScaleCase scaleCase =
                    ChooseScaleCase(ImageView{nullptr, 0, w, h, 1, from.first, from.second},
                                    ImageView{nullptr, 0, w, h, 1, bits, to.second});
                const MathsPlane ps8 = PlaneOf(source.Get()), pn = PlaneOf(narrowMask.Get());
                ExpectRoadsAgree(w, h, bits, to.second, [&](MathsPlane d, RowStage& s) {
                    // Unmasked first, so the masked call's pixels are not written over.
                    ScaleRows(scaleCase, d, ps8, nullptr, w, h, -0.3f, 300.0f, s);
                    ScaleRows(scaleCase, d, ps8, &pn, w, h, 1.7f, -20.5f, s);
                    return 0;
                });
                // On its own destination: Scale8 writes every byte Scale wrote at 8 bits.
                if (from.second == M && from.first >= 8)
                    ExpectRoadsAgree(w, h, bits, to.second, [&](MathsPlane d, RowStage& s) {
                        Scale8Rows(d, ps8, w, h, from.first, -3, 1e-3, s);
                        return 0;
                    });
            }
            if (bits != 8 && bits != 24 && bits != 32) continue;
            for (const float divisor : {0.0f, 2.0f, 3.0f, -0.7f})
                ExpectRoadsAgree(w, h, bits, B, [&](MathsPlane d, RowStage& s) {
                    AddRows(d, pa, pb, h, static_cast<size_t>(w) * (bits == 8 ? 1 : 3), divisor, s);
                    return 0;
                });
            // A destination narrower than the sources: its rows reach past it.
            for (const int flags : {0, 1, 2, 3})
                ExpectRoadsAgree((w + 1) / 2, h, bits, B, [&](MathsPlane d, RowStage& s) {
                    return SubtractRows(d, pa, pb, w, h, bits, flags, s);
                });
            ExpectRoadsAgree(w, h, bits, B, [&](MathsPlane d, RowStage& s) {
                const int step = bits == 32 ? 4 : 3;
                AddScaleSameDepth(d, pa, pb, nullptr, w, h, bits / 8, LinearMix{0.75f, -0.5f, 40.25f}, s);
                AddScaleSameDepth(d, pb, pa, &pm, w, h, bits / 8, LinearMix{1.5f, 1.0f, -3.0f}, s);
                if (bits != 8)
                    AddScaleMixedDepth(d, pa, pb, &pm, w, h, step, step, step,
                                       LinearMix{0.75f, -0.5f, 40.25f}, s);
                return 0;
            });
        }
    }
}

// A row mixed in one call must equal the same row mixed one byte per call,
// which no vector step takes.
TEST(MathsVectorSteps, MixRowEqualsTheScalarRuleOnEveryBytePair) {
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    const LinearMix mixes[] = {
        {0.5f, 0.5f, 0.0f},    {0.7f, -0.3f, 12.5f},    {1.0f / 3.0f, 2.0f / 3.0f, 0.49999997f},
        {-1.0f, 1.0f, 255.0f}, {1e30f, 1e-30f, -1e30f}, {inf, 0.0f, 0.0f},
        {nan, 1.0f, 0.0f},     {0.1f, 0.2f, -0.0f},     {3.0e-8f, 0.99999994f, 0.5f}};
    // Row lengths whose remainders after 32-byte steps reach the 16-byte step and the scalar loop.
    Bytes a(65536 + 31), b(65536 + 31), out(65536 + 31), one(1);
    for (size_t i = 0; i < 65536; ++i)
        a[i] = static_cast<unsigned char>(i >> 8), b[i] = static_cast<unsigned char>(i);
    for (const LinearMix& mix : mixes)
        for (size_t count : {size_t{65536}, size_t{65536 + 31}, size_t{7}, size_t{33}, size_t{48}}) {
            MixRow(out.data(), a.data(), b.data(), count, mix);
            for (size_t i = 0; i < count; ++i) {
                MixRow(one.data(), &a[i], &b[i], 1, mix);
                ASSERT_EQ(out[i], one[0]) << "a " << int(a[i]) << " b " << int(b[i]) << " factors "
                                          << mix.factorA << ", " << mix.factorB << " offset " << mix.offset;
            }
        }
    // The vector step alone stops before a partial block of 32.
    Bytes high(40, 200), low(40, 100), sums(40, 0);
    const size_t done = MixRowVector(sums.data(), high.data(), low.data(), 40, {1.0f, 1.0f, 0.0f});
    EXPECT_TRUE(done == 0 || done == 32);
    for (size_t i = 0; i < 40; ++i) ASSERT_EQ(sums[i], i < done ? 255 : 0);
}

// Results past the cache-sized threshold are written with streaming stores
// from the first 64-byte boundary of each row: rows of 1203 pixels start at
// every alignment. Every byte must still be the clamped sum (divisor 0) or
// the clamped four-fold sum (divisor 2).
TEST(MathsVectorSteps, LargeAddsGiveTheClampedSumsOnEveryRow) {
    const int width = 1203, height = 1200;
    SmartPtr<BufferImage> a = Random(width, height, 24, 1, 3), b = Random(width, height, 24, 2, 1, true);
    const qel::Pixels pa = qel::PixelsOf(a.Get()), pb = qel::PixelsOf(b.Get());
    for (const float divisor : {0.0f, 2.0f}) {
        SmartPtr<IQELImageDIB> dest = TestHost().NewImage();
        ASSERT_EQ(Maths()->Add(dest.Get(), a.Get(), b.Get(), divisor), QEL_OK);
        const qel::Pixels pd = qel::PixelsOf(dest.Get());
        ASSERT_EQ(pd.width, width);
        for (int y = 0; y < height; ++y)
            for (size_t n = 0; n < pd.RowBytes(); ++n) {
                const int sum = (pa.Row(y)[n] + pb.Row(y)[n]) * (divisor == 2.0f ? 4 : 1);
                ASSERT_EQ(pd.Row(y)[n], sum > 255 ? 255 : sum) << "row " << y << " byte " << n;
            }
    }
}

}  // namespace
