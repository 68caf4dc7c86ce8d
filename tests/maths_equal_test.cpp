// Equal: the constant's layout per format, masks, planes and bounded writes.
#include <gtest/gtest.h>

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
                            int padding = 3, bool bottomUp = false, int planes = 1) {
    SmartPtr<BufferImage> image(BufferImage::Make(width, height, bitCount, model, padding, bottomUp, planes));
    image->FillRandom(13);
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

const unsigned char E = 0xEE;

}  // namespace

TEST(MathsEqual, ColourLayoutsDiffer) {
    auto mask = Image(2, 1, 8, QEL_MODEL_MONO, {0, 1});
    // 24 bits: the value's lowest byte goes last, and the mask is ignored.
    auto bgr = Image(2, 1, 24, QEL_MODEL_BGR, Bytes(6, E), 3, true);
    EXPECT_EQ(Maths()->Equal(bgr.Get(), mask.Get(), 0x00112233), QEL_OK);
    ExpectPixels(bgr.Get(), {0x11, 0x22, 0x33, 0x11, 0x22, 0x33});
    // 32 bits: the value as a word, low byte first, under the mask.
    auto bgra = Image(2, 1, 32, QEL_MODEL_ARGB, Bytes(8, E), 1);
    EXPECT_EQ(Maths()->Equal(bgra.Get(), nullptr, 0x00112233), QEL_OK);
    ExpectPixels(bgra.Get(), {0x33, 0x22, 0x11, 0x00, 0x33, 0x22, 0x11, 0x00});
    EXPECT_EQ(Maths()->Equal(bgra.Get(), mask.Get(), static_cast<int>(0xAABBCCDDu)), QEL_OK);
    ExpectPixels(bgra.Get(), {0x33, 0x22, 0x11, 0x00, 0xDD, 0xCC, 0xBB, 0xAA});
}

TEST(MathsEqual, BytesAndIntegersUnderAMask) {
    auto mask = Image(4, 2, 8, QEL_MODEL_MONO, {0, 1, 0, 1, 1, 0, 1, 0}, 2, true);
    auto grey = Image(4, 2, 8, QEL_MODEL_BGR, {1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_EQ(Maths()->Equal(grey.Get(), mask.Get(), 0x1FF), QEL_OK);
    ExpectPixels(grey.Get(), {1, 0xFF, 3, 0xFF, 0xFF, 6, 0xFF, 8});

    auto integers = Image(2, 2, 32, QEL_MODEL_MONO, Bytes(16, E), 4);
    EXPECT_EQ(Maths()->Equal(integers.Get(), mask.Get(), -2), QEL_OK);
    ExpectPixels(integers.Get(), {E, E, E, E, 0xFE, 0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF, E, E, E, E});
}

TEST(MathsEqual, OtherDepthsAreLeftAlone) {
    auto image = Image(3, 2, 16, QEL_MODEL_BGR, Bytes(12, E));
    EXPECT_EQ(Maths()->Equal(image.Get(), nullptr, 0x12345678), QEL_OK);
    ExpectPixels(image.Get(), Bytes(12, E));
    auto bits = Image(9, 1, 1, QEL_MODEL_BGR, {E, E});
    EXPECT_EQ(Maths()->Equal(bits.Get(), nullptr, 1), QEL_OK);
    ExpectPixels(bits.Get(), {E, E});
}

TEST(MathsEqual, MonoWordsWiderThanThePixelStayInsideTheImage) {
    // A 16-bit "MONO" image gets a whole word per pixel, rows stepped in
    // pixels of the stride: row 0's words cover the image, the rest is dropped.
    auto image = Image(2, 2, 16, QEL_MODEL_MONO, Bytes(8, E), 0);
    EXPECT_EQ(Maths()->Equal(image.Get(), nullptr, 0x01020304), QEL_OK);
    ExpectPixels(image.Get(), {4, 3, 2, 1, 4, 3, 2, 1});
}

TEST(MathsEqual, PlaneZeroOfTheMaskSelectsEveryPlane) {
    auto mask = Image(2, 1, 8, QEL_MODEL_MONO, {1, 0}, 3, false, 2);
    mask->Row(0, 1)[0] = 0;
    mask->Row(0, 1)[1] = 1;
    auto image = Image(2, 1, 8, QEL_MODEL_MONO, {E, E}, 3, false, 3);
    for (int p = 0; p < 3; ++p) image->Row(0, p)[1] = E;
    EXPECT_EQ(Maths()->Equal(image.Get(), mask.Get(), 7), QEL_OK);
    for (int p = 0; p < 3; ++p) {
        EXPECT_EQ(image->Row(0, p)[0], 7) << "plane " << p;
        EXPECT_EQ(image->Row(0, p)[1], E) << "plane " << p;
    }
    // A mask smaller than the image selects nothing beyond its own pixels.
    auto small = Image(1, 1, 8, QEL_MODEL_MONO, {1});
    auto grey = Image(3, 2, 8, QEL_MODEL_MONO, Bytes(6, E));
    EXPECT_EQ(Maths()->Equal(grey.Get(), small.Get(), 9), QEL_OK);
    ExpectPixels(grey.Get(), {9, E, E, E, E, E});
    EXPECT_EQ(small->RefCount(), 1u);
    EXPECT_EQ(grey->RefCount(), 1u);
}

TEST(MathsEqualKernel, InPlaceAndStagedRowsAgree) {
    const int sizes[][2] = {{1, 1}, {2, 1}, {1, 3}, {7, 5}, {13, 4}};
    const std::pair<int, unsigned> formats[] = {{8, QEL_MODEL_MONO},  {24, QEL_MODEL_BGR},
                                                {32, QEL_MODEL_ARGB}, {32, QEL_MODEL_MONO},
                                                {16, QEL_MODEL_MONO}, {24, QEL_MODEL_MONO}};
    for (const auto& size : sizes) {
        for (const auto& format : formats) {
            const int w = size[0], h = size[1];
            SCOPED_TRACE(testing::Message() << w << " x " << h << " at " << format.first << " bits");
            SmartPtr<BufferImage> mask(BufferImage::Make(w, h - (h > 1), 8, QEL_MODEL_MONO, 1, true));
            SmartPtr<BufferImage> direct(BufferImage::Make(w, h, format.first, format.second, 3, true));
            SmartPtr<BufferImage> staged(BufferImage::Make(w, h, format.first, format.second, 3, true));
            mask->FillRandom(31);
            direct->FillRandom(32);
            staged->FillRandom(32);
            ImageInfo infoMask, info;
            ReadSize(mask.Get(), &infoMask);
            ReadFormat(mask.Get(), &infoMask);
            ReadSize(direct.Get(), &info);
            ReadFormat(direct.Get(), &info);
            const MathsPlane planeMask = GetPlane(mask.Get(), 0, infoMask);
            RowStage inPlace, throughScratch(true);
            for (RowStage* stage : {&inPlace, &throughScratch}) {
                BufferImage* image = stage == &inPlace ? direct.Get() : staged.Get();
                const MathsPlane plane = GetPlane(image, 0, info);
                EqualRows(plane, &planeMask, w, h, info.bitCount, info.colourModel, 0x5A6B7C8D, *stage);
                EqualRows(plane, nullptr, (w + 1) / 2, h, info.bitCount, info.colourModel, -77, *stage);
            }
            EXPECT_EQ(direct->Snapshot(), staged->Snapshot());
            EXPECT_TRUE(direct->GuardsIntact() && staged->GuardsIntact());
        }
    }
}
