// CreateDestImage and Copy through the component's interface, on padded test images.
#include "support/component_test.h"

namespace {

using namespace qeltest;

// Copies a 2 x 2 source into a 3 x 2 destination filled with 0xEE at (1, 0):
// each row keeps its first pixel and takes the row's two `copied` pixels
// (none when nothing is written).
struct CopyCase {
    int sourceBits;
    unsigned sourceModel;
    Bytes source;
    int destBits;
    unsigned destModel;
    QResult result;
    Bytes copied;
    int sourcePadding = 3;
};

void RunCopyCase(const CopyCase& c) {
    SCOPED_TRACE(testing::Message() << c.sourceBits << " -> " << c.destBits << " model " << c.destModel);
    auto source = ImageOf(2, 2, c.sourceBits, c.sourceModel, c.source, c.sourcePadding, true);
    const size_t pixel = static_cast<size_t>(c.destBits / 8);
    auto dest = ImageOf(3, 2, c.destBits, c.destModel, Bytes(6 * pixel, 0xEE));
    const Bytes padding = PaddingOf(dest.Get()), sourceBefore = PixelBytes(source.Get());
    Bytes expected = PixelBytes(dest.Get());
    for (size_t i = 0; i < c.copied.size(); ++i) expected[pixel + i + i / (2 * pixel) * pixel] = c.copied[i];
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), nullptr, 1, 0), c.result);
    ExpectPixels(dest.Get(), expected);
    EXPECT_EQ(PaddingOf(dest.Get()), padding);
    EXPECT_EQ(PixelBytes(source.Get()), sourceBefore);
}

const Bytes kGrey = {10, 20, 30, 40};
const Bytes kBGR = {255, 255, 254, 1, 1, 0, 3, 4, 5, 9, 9, 9};
const Bytes kBGRA = {255, 255, 254, 7, 1, 1, 0, 8, 3, 4, 5, 6, 9, 9, 9, 1};
// 0xFFFF, 0x001F (blue), 0x07E0 (green), 0xF800 (red), little-endian. The
// source stride is halved into 16-bit units, so it is kept even.
const Bytes k565 = {0xFF, 0xFF, 0x1F, 0x00, 0xE0, 0x07, 0x00, 0xF8};

TEST(MathsCopy, EveryRowOfTheDepthTable) {
    const CopyCase cases[] = {
        {8,
         QEL_MODEL_MONO,
         kGrey,
         24,
         QEL_MODEL_BGR,
         QEL_OK,
         {10, 10, 10, 20, 20, 20, 30, 30, 30, 40, 40, 40}},
        {8,
         QEL_MODEL_MONO,
         kGrey,
         32,
         QEL_MODEL_ARGB,
         QEL_OK,
         {10, 10, 10, 255, 20, 20, 20, 255, 30, 30, 30, 255, 40, 40, 40, 255}},
        {24,
         QEL_MODEL_BGR,
         kBGR,
         32,
         QEL_MODEL_ARGB,
         QEL_OK,
         {255, 255, 254, 255, 1, 1, 0, 255, 3, 4, 5, 255, 9, 9, 9, 255}},
        {24, QEL_MODEL_BGR, kBGR, 8, QEL_MODEL_MONO, QEL_OK, {254, 0, 4, 9}},
        {32, QEL_MODEL_ARGB, kBGRA, 24, QEL_MODEL_BGR, QEL_OK, kBGR},
        {32, QEL_MODEL_ARGB, kBGRA, 8, QEL_MODEL_MONO, QEL_OK, {254, 0, 4, 9}},
        // Equal depths copy bytes whatever the colour models.
        {24, QEL_MODEL_BGR, kBGR, 24, 0, QEL_OK, kBGR},
        // 5-6-5 pixels are expanded and the call still reports failure; a
        // destination without a colour model gets red first, any other model nothing.
        {16,
         QEL_MODEL_BGR,
         k565,
         24,
         QEL_MODEL_BGR,
         QEL_E_FAIL,
         {248, 252, 248, 248, 0, 0, 0, 252, 0, 0, 0, 248},
         2},
        {16, QEL_MODEL_BGR, k565, 24, 0, QEL_E_FAIL, {248, 252, 248, 0, 0, 248, 0, 252, 0, 248, 0, 0}, 2},
        {16, QEL_MODEL_BGR, k565, 24, QEL_MODEL_ARGB, QEL_E_FAIL, {}, 2},
        // Pairs outside the table write nothing.
        {8, QEL_MODEL_MONO, kGrey, 16, QEL_MODEL_BGR, QEL_E_FAIL, {}},
        {24, QEL_MODEL_BGR, kBGR, 16, QEL_MODEL_BGR, QEL_E_FAIL, {}},
        {32, QEL_MODEL_ARGB, kBGRA, 16, QEL_MODEL_BGR, QEL_E_FAIL, {}},
        {16, QEL_MODEL_BGR, Bytes(8, 0xFF), 8, QEL_MODEL_MONO, QEL_E_FAIL, {}},
        {16, QEL_MODEL_MONO, Bytes(8, 0xFF), 24, QEL_MODEL_BGR, QEL_E_FAIL, {}},
        {1, QEL_MODEL_MONO, Bytes(2, 0xFF), 8, QEL_MODEL_MONO, QEL_E_FAIL, {}},
    };
    for (const CopyCase& c : cases) RunCopyCase(c);
}

TEST(MathsCopy, HalvesAnOdd565StrideTowardZero) {
    // Stride 5 becomes 2 units of 16 bits: row 1 is read from byte 4, one byte early.
    SmartPtr<BufferImage> source(BufferImage::Make(1, 2, 16, QEL_MODEL_BGR, 1));
    ASSERT_EQ(source->Stride(), 5);
    source->FillRandom(3);
    source->Row(0)[0] = 0xFF, source->Row(0)[1] = 0xFF, source->Row(0)[4] = 0x1F, source->Row(1)[0] = 0x00;
    auto dest = ImageOf(1, 2, 24, QEL_MODEL_BGR, Bytes(6, 0xEE));
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), nullptr, 0, 0), QEL_E_FAIL);
    ExpectPixels(dest.Get(), {248, 252, 248, 248, 0, 0});
}

TEST(MathsCopy, MaskEqualToDestFillsOnlyZeroBytes) {
    auto source = ImageOf(2, 1, 24, QEL_MODEL_BGR, {1, 2, 3, 4, 5, 6});
    auto dest = ImageOf(2, 1, 24, QEL_MODEL_BGR, {0, 40, 0, 9, 0, 9});
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), dest.Get(), 0, 0), QEL_OK);
    ExpectPixels(dest.Get(), {1, 40, 3, 9, 5, 9});
    // Any other mask, the source itself included, is a plain copy.
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), source.Get(), 0, 0), QEL_OK);
    ExpectPixels(dest.Get(), {1, 2, 3, 4, 5, 6});
}

TEST(MathsCopy, ClipsToTheDestinationAndRejectsOffsetsOutsideIt) {
    auto source = ImageOf(4, 3, 8, QEL_MODEL_MONO, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    auto dest = ImageOf(3, 3, 8, QEL_MODEL_MONO, Bytes(9, 0));
    const Bytes padding = PaddingOf(dest.Get());
    // Cut at the right and bottom; left of x and above y untouched.
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), nullptr, 1, 1), QEL_OK);
    ExpectPixels(dest.Get(), {0, 0, 0, 0, 1, 2, 0, 5, 6});
    // x = W - 1 copies a one-pixel column.
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), nullptr, 2, 0), QEL_OK);
    ExpectPixels(dest.Get(), {0, 0, 1, 0, 1, 5, 0, 5, 9});
    EXPECT_EQ(PaddingOf(dest.Get()), padding);

    for (const auto& at : {std::pair<int, int>{3, 0}, {0, 3}, {-1, 0}, {0, -1}})
        EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), nullptr, at.first, at.second), QEL_E_FAIL);
    // An empty source copies nothing, whatever the depths.
    EXPECT_EQ(Maths()->Copy(dest.Get(), ImageOf(2, 0, 16, QEL_MODEL_BGR, {}).Get(), nullptr, 0, 0), QEL_OK);
    ExpectPixels(dest.Get(), {0, 0, 1, 0, 1, 5, 0, 5, 9});
    EXPECT_EQ(source->RefCount() + dest->RefCount(), 2u);
}

TEST(MathsCreateDestImage, CopiesTheModelsShapeWithOverrides) {
    SmartPtr<BufferImage> model(BufferImage::Make(5, 3, 32, QEL_MODEL_ARGB, 0, false, 2));
    SmartPtr<IQEL> made;
    const auto shape = [&] {
        int width = 0, height = 0, planes = 0, bits = 0, reserved = 0;
        unsigned colourModel = 0;
        made->GetSize(&width, &height, &planes);
        made->GetFormat(&bits, &colourModel, &reserved);
        return std::vector<int>({width, height, planes, bits, static_cast<int>(colourModel)});
    };
    ASSERT_EQ(Maths()->CreateDestImage(made.Out(), model.Get(), 0, 0), QEL_OK);
    EXPECT_EQ(shape(), std::vector<int>({5, 3, 2, 32, QEL_MODEL_ARGB}));
    EXPECT_EQ(RefCountOf(made.Get()), 1u);
    ASSERT_EQ(Maths()->CreateDestImage(made.Out(), model.Get(), 8, static_cast<int>(QEL_MODEL_MONO)), QEL_OK);
    EXPECT_EQ(shape(), std::vector<int>({5, 3, 2, 8, QEL_MODEL_MONO}));
    EXPECT_EQ(model->RefCount(), 1u);

    IQEL* untouched = reinterpret_cast<IQEL*>(0x1);
    EXPECT_EQ(Maths()->CreateDestImage(&untouched, nullptr, 0, 0), QEL_E_INVALIDARG);
    EXPECT_EQ(untouched, reinterpret_cast<IQEL*>(0x1));
    EXPECT_EQ(Maths()->CreateDestImage(nullptr, model.Get(), 0, 0), QEL_E_POINTER);
}

}  // namespace
