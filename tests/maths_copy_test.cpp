// CreateDestImage and Copy through the component's interface, on padded test images.
#include <gtest/gtest.h>

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

// A test image with padded rows (odd padding by default), its pixel bytes set from `bytes`.
SmartPtr<BufferImage> Image(int width, int height, int bitCount, unsigned model, const Bytes& bytes,
                            bool bottomUp = false, int padding = 3) {
    SmartPtr<BufferImage> image(BufferImage::Make(width, height, bitCount, model, padding, bottomUp));
    image->FillRandom(7);  // the padding keeps these bytes; the pixels are overwritten
    qeltest::SetPixelBytes(image.Get(), bytes);
    return image;
}
Bytes Filled(size_t count, unsigned char value) { return Bytes(count, value); }

// Every row's padding bytes, which no operation may touch.
Bytes Padding(BufferImage* image) {
    const qel::Pixels p = qel::PixelsOf(image);
    Bytes bytes;
    for (int y = 0; y < p.height; ++y)
        bytes.insert(bytes.end(), image->Row(y) + p.RowBytes(), image->Row(y) + std::abs(p.stride));
    return bytes;
}

void ExpectPixels(BufferImage* image, const Bytes& expected, size_t rowBytes) {
    EXPECT_EQ(PixelBytes(image), expected) << "got\n"
                                           << HexRows(PixelBytes(image), rowBytes) << "expected\n"
                                           << HexRows(expected, rowBytes);
    EXPECT_TRUE(image->GuardsIntact());
}

// Copies a 2 x 2 source into a 3 x 2 destination filled with 0xEE at (1, 0).
struct CopyCase {
    int sourceBits;
    unsigned sourceModel;
    Bytes source;
    int destBits;
    unsigned destModel;
    QResult result;
    Bytes expected;  // the destination's pixel bytes afterwards
    int sourcePadding = 3;
};

void RunCopyCase(const CopyCase& c) {
    SCOPED_TRACE(testing::Message() << c.sourceBits << " -> " << c.destBits);
    auto source = Image(2, 2, c.sourceBits, c.sourceModel, c.source, true, c.sourcePadding);
    const size_t destRow = static_cast<size_t>(3 * c.destBits / 8);
    auto dest = Image(3, 2, c.destBits, c.destModel, Filled(2 * destRow, 0xEE));
    const Bytes padding = Padding(dest.Get());
    const Bytes sourceBefore = PixelBytes(source.Get());
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), nullptr, 1, 0), c.result);
    ExpectPixels(dest.Get(), c.expected, destRow);
    EXPECT_EQ(Padding(dest.Get()), padding);
    EXPECT_EQ(PixelBytes(source.Get()), sourceBefore);
}

const Bytes kGrey = {10, 20, 30, 40};
const Bytes kBGR = {255, 255, 254, 1, 1, 0, 3, 4, 5, 9, 9, 9};
const Bytes kBGRA = {255, 255, 254, 7, 1, 1, 0, 8, 3, 4, 5, 6, 9, 9, 9, 1};

}  // namespace

TEST(MathsCopy, ConvertsBetweenDepths) {
    const unsigned char E = 0xEE;
    const CopyCase cases[] = {
        {8,
         QEL_MODEL_MONO,
         kGrey,
         24,
         QEL_MODEL_BGR,
         QEL_OK,
         {E, E, E, 10, 10, 10, 20, 20, 20, E, E, E, 30, 30, 30, 40, 40, 40}},
        {8, QEL_MODEL_MONO, kGrey, 32, QEL_MODEL_ARGB, QEL_OK, {E,  E,  E,  E,   10, 10, 10, 255,
                                                                20, 20, 20, 255, E,  E,  E,  E,
                                                                30, 30, 30, 255, 40, 40, 40, 255}},
        {24, QEL_MODEL_BGR, kBGR, 32, QEL_MODEL_ARGB, QEL_OK, {E, E, E, E, 255, 255, 254, 255, 1, 1, 0, 255,
                                                               E, E, E, E, 3,   4,   5,   255, 9, 9, 9, 255}},
        {24, QEL_MODEL_BGR, kBGR, 8, QEL_MODEL_MONO, QEL_OK, {E, 254, 0, E, 4, 9}},
        {32,
         QEL_MODEL_ARGB,
         kBGRA,
         24,
         QEL_MODEL_BGR,
         QEL_OK,
         {E, E, E, 255, 255, 254, 1, 1, 0, E, E, E, 3, 4, 5, 9, 9, 9}},
        {32, QEL_MODEL_ARGB, kBGRA, 8, QEL_MODEL_MONO, QEL_OK, {E, 254, 0, E, 4, 9}},
        // Equal depths copy bytes whatever the colour models.
        {24,
         QEL_MODEL_BGR,
         kBGR,
         24,
         0,
         QEL_OK,
         {E, E, E, 255, 255, 254, 1, 1, 0, E, E, E, 3, 4, 5, 9, 9, 9}},
        // Pairs outside the table write nothing.
        {8, QEL_MODEL_MONO, kGrey, 16, QEL_MODEL_BGR, QEL_E_FAIL, Filled(12, E)},
        {24, QEL_MODEL_BGR, kBGR, 16, QEL_MODEL_BGR, QEL_E_FAIL, Filled(12, E)},
        {32, QEL_MODEL_ARGB, kBGRA, 16, QEL_MODEL_BGR, QEL_E_FAIL, Filled(12, E)},
        {16, QEL_MODEL_BGR, Filled(8, 0xFF), 8, QEL_MODEL_MONO, QEL_E_FAIL, Filled(6, E)},
        {16, QEL_MODEL_MONO, Filled(8, 0xFF), 24, QEL_MODEL_BGR, QEL_E_FAIL, Filled(18, E)},
        {1, QEL_MODEL_MONO, Filled(2, 0xFF), 8, QEL_MODEL_MONO, QEL_E_FAIL, Filled(6, E)},
    };
    for (const CopyCase& c : cases) RunCopyCase(c);
}

TEST(MathsCopy, Expands565AndStillReportsFailure) {
    const unsigned char E = 0xEE;
    // 0xFFFF, 0x001F (blue), 0x07E0 (green), 0xF800 (red), little-endian. The
    // source stride is halved into 16-bit units, so it is kept even here.
    const Bytes source = {0xFF, 0xFF, 0x1F, 0x00, 0xE0, 0x07, 0x00, 0xF8};
    RunCopyCase({16,
                 QEL_MODEL_BGR,
                 source,
                 24,
                 QEL_MODEL_BGR,
                 QEL_E_FAIL,
                 {E, E, E, 248, 252, 248, 248, 0, 0, E, E, E, 0, 252, 0, 0, 0, 248},
                 2});
    // A destination without a colour model gets red first.
    RunCopyCase({16,
                 QEL_MODEL_BGR,
                 source,
                 24,
                 0,
                 QEL_E_FAIL,
                 {E, E, E, 248, 252, 248, 0, 0, 248, E, E, E, 0, 252, 0, 248, 0, 0},
                 2});
    // Any other destination model: nothing written.
    RunCopyCase({16, QEL_MODEL_BGR, source, 24, QEL_MODEL_ARGB, QEL_E_FAIL, Filled(18, E), 2});
}

TEST(MathsCopy, HalvesAnOdd565StrideTowardZero) {
    // Stride 5 becomes 2 units of 16 bits: row 1 is read from byte 4, one byte early.
    SmartPtr<BufferImage> source(BufferImage::Make(1, 2, 16, QEL_MODEL_BGR, 1));
    ASSERT_EQ(source->Stride(), 5);
    source->FillRandom(3);
    source->Row(0)[0] = 0xFF;
    source->Row(0)[1] = 0xFF;
    source->Row(0)[4] = 0x1F;
    source->Row(1)[0] = 0x00;
    auto dest = Image(1, 2, 24, QEL_MODEL_BGR, Filled(6, 0xEE));
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), nullptr, 0, 0), QEL_E_FAIL);
    ExpectPixels(dest.Get(), {248, 252, 248, 248, 0, 0}, 3);
}

TEST(MathsCopy, MaskEqualToDestFillsOnlyZeroBytes) {
    auto source = Image(2, 1, 24, QEL_MODEL_BGR, {1, 2, 3, 4, 5, 6});
    auto dest = Image(2, 1, 24, QEL_MODEL_BGR, {0, 40, 0, 9, 0, 9});
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), dest.Get(), 0, 0), QEL_OK);
    ExpectPixels(dest.Get(), {1, 40, 3, 9, 5, 9}, 6);
    // Any other mask, the source itself included, is a plain copy.
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), source.Get(), 0, 0), QEL_OK);
    ExpectPixels(dest.Get(), {1, 2, 3, 4, 5, 6}, 6);
}

TEST(MathsCopy, ClipsToTheDestinationAndRejectsOffsetsOutsideIt) {
    Bytes sourceBytes(4 * 3);
    for (size_t i = 0; i < sourceBytes.size(); ++i) sourceBytes[i] = static_cast<unsigned char>(i + 1);
    auto source = Image(4, 3, 8, QEL_MODEL_MONO, sourceBytes);
    auto dest = Image(3, 3, 8, QEL_MODEL_MONO, Filled(9, 0));
    const Bytes padding = Padding(dest.Get());
    // Cut at the right and bottom; left of x and above y untouched.
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), nullptr, 1, 1), QEL_OK);
    ExpectPixels(dest.Get(), {0, 0, 0, 0, 1, 2, 0, 5, 6}, 3);
    // x = W - 1 copies a one-pixel column.
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), nullptr, 2, 0), QEL_OK);
    ExpectPixels(dest.Get(), {0, 0, 1, 0, 1, 5, 0, 5, 9}, 3);
    EXPECT_EQ(Padding(dest.Get()), padding);

    const Bytes before = PixelBytes(dest.Get());
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), nullptr, 3, 0), QEL_E_FAIL);
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), nullptr, 0, 3), QEL_E_FAIL);
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), nullptr, -1, 0), QEL_E_FAIL);
    EXPECT_EQ(Maths()->Copy(dest.Get(), source.Get(), nullptr, 0, -1), QEL_E_FAIL);
    EXPECT_EQ(PixelBytes(dest.Get()), before);
    // An empty source copies nothing, whatever the depths.
    auto empty = Image(2, 0, 16, QEL_MODEL_BGR, {});
    EXPECT_EQ(Maths()->Copy(dest.Get(), empty.Get(), nullptr, 0, 0), QEL_OK);
    EXPECT_EQ(PixelBytes(dest.Get()), before);
    EXPECT_EQ(source->RefCount(), 1u);
    EXPECT_EQ(dest->RefCount(), 1u);
}

TEST(MathsCreateDestImage, CopiesTheModelsShapeWithOverrides) {
    SmartPtr<BufferImage> model(BufferImage::Make(5, 3, 32, QEL_MODEL_ARGB, 0, false, 2));
    SmartPtr<IQEL> made;
    ASSERT_EQ(Maths()->CreateDestImage(made.Out(), model.Get(), 0, 0), QEL_OK);
    ASSERT_TRUE(made);
    int width = 0, height = 0, planes = 0, bits = 0, reserved = 0;
    unsigned colourModel = 0;
    made->GetSize(&width, &height, &planes);
    made->GetFormat(&bits, &colourModel, &reserved);
    EXPECT_EQ(std::vector<int>({width, height, planes, bits}), std::vector<int>({5, 3, 2, 32}));
    EXPECT_EQ(colourModel, QEL_MODEL_ARGB);
    EXPECT_EQ(qeltest::RefCountOf(made.Get()), 1u);

    ASSERT_EQ(Maths()->CreateDestImage(made.Out(), model.Get(), 8, static_cast<int>(QEL_MODEL_MONO)), QEL_OK);
    made->GetSize(&width, &height, &planes);
    made->GetFormat(&bits, &colourModel, &reserved);
    EXPECT_EQ(std::vector<int>({width, height, planes, bits}), std::vector<int>({5, 3, 2, 8}));
    EXPECT_EQ(colourModel, QEL_MODEL_MONO);
    EXPECT_EQ(model->RefCount(), 1u);

    IQEL* untouched = reinterpret_cast<IQEL*>(0x1);
    EXPECT_EQ(Maths()->CreateDestImage(&untouched, nullptr, 0, 0), QEL_E_INVALIDARG);
    EXPECT_EQ(untouched, reinterpret_cast<IQEL*>(0x1));
    EXPECT_EQ(Maths()->CreateDestImage(nullptr, model.Get(), 0, 0), QEL_E_POINTER);
}
