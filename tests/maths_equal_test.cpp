// Equal: the constant's layout per format, masks, planes and bounded writes.
#include "support/component_test.h"
#include "support/maths_planes.h"

namespace {

using namespace qeltest;

const unsigned char E = 0xEE;

TEST(MathsEqual, ColourLayoutsDiffer) {
    auto mask = ImageOf(2, 1, 8, QEL_MODEL_MONO, {0, 1});
    // 24 bits: the value's lowest byte goes last, and the mask is ignored.
    auto bgr = ImageOf(2, 1, 24, QEL_MODEL_BGR, Bytes(6, E), 3, true);
    EXPECT_EQ(Maths()->Equal(bgr.Get(), mask.Get(), 0x00112233), QEL_OK);
    ExpectPixels(bgr.Get(), {0x11, 0x22, 0x33, 0x11, 0x22, 0x33});
    // 32 bits: the value as a word, low byte first, under the mask.
    auto bgra = ImageOf(2, 1, 32, QEL_MODEL_ARGB, Bytes(8, E), 1);
    EXPECT_EQ(Maths()->Equal(bgra.Get(), nullptr, 0x00112233), QEL_OK);
    ExpectPixels(bgra.Get(), {0x33, 0x22, 0x11, 0x00, 0x33, 0x22, 0x11, 0x00});
    EXPECT_EQ(Maths()->Equal(bgra.Get(), mask.Get(), static_cast<int>(0xAABBCCDDu)), QEL_OK);
    ExpectPixels(bgra.Get(), {0x33, 0x22, 0x11, 0x00, 0xDD, 0xCC, 0xBB, 0xAA});
}

TEST(MathsEqual, BytesIntegersAndOtherDepths) {
    auto mask = ImageOf(4, 2, 8, QEL_MODEL_MONO, {0, 1, 0, 1, 1, 0, 1, 0}, 2, true);
    auto grey = ImageOf(4, 2, 8, QEL_MODEL_BGR, {1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_EQ(Maths()->Equal(grey.Get(), mask.Get(), 0x1FF), QEL_OK);
    ExpectPixels(grey.Get(), {1, 0xFF, 3, 0xFF, 0xFF, 6, 0xFF, 8});
    auto integers = ImageOf(2, 2, 32, QEL_MODEL_MONO, Bytes(16, E), 4);
    EXPECT_EQ(Maths()->Equal(integers.Get(), mask.Get(), -2), QEL_OK);
    ExpectPixels(integers.Get(), {E, E, E, E, 0xFE, 0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF, E, E, E, E});

    // A 16-bit "MONO" image gets a whole word per pixel, rows stepped in
    // pixels of the stride: row 0's words cover the image, the rest is dropped.
    auto words = ImageOf(2, 2, 16, QEL_MODEL_MONO, Bytes(8, E), 0);
    EXPECT_EQ(Maths()->Equal(words.Get(), nullptr, 0x01020304), QEL_OK);
    ExpectPixels(words.Get(), {4, 3, 2, 1, 4, 3, 2, 1});
    // Other depths are left alone.
    auto rgb16 = ImageOf(3, 2, 16, QEL_MODEL_BGR, Bytes(12, E));
    EXPECT_EQ(Maths()->Equal(rgb16.Get(), nullptr, 0x12345678), QEL_OK);
    ExpectPixels(rgb16.Get(), Bytes(12, E));
    auto bits = ImageOf(9, 1, 1, QEL_MODEL_BGR, {E, E});
    EXPECT_EQ(Maths()->Equal(bits.Get(), nullptr, 1), QEL_OK);
    ExpectPixels(bits.Get(), {E, E});
}

TEST(MathsEqual, PlaneZeroOfTheMaskSelectsEveryPlane) {
    auto mask = ImageOf(2, 1, 8, QEL_MODEL_MONO, {1, 0}, 3, false, 2);
    mask->Row(0, 1)[0] = 0, mask->Row(0, 1)[1] = 1;
    auto image = ImageOf(2, 1, 8, QEL_MODEL_MONO, {E, E}, 3, false, 3);
    for (int p = 0; p < 3; ++p) image->Row(0, p)[1] = E;
    EXPECT_EQ(Maths()->Equal(image.Get(), mask.Get(), 7), QEL_OK);
    for (int p = 0; p < 3; ++p) EXPECT_EQ(Bytes(image->Row(0, p), image->Row(0, p) + 2), Bytes({7, E})) << p;
    // A mask smaller than the image selects nothing beyond its own pixels.
    auto small = ImageOf(1, 1, 8, QEL_MODEL_MONO, {1});
    auto grey = ImageOf(3, 2, 8, QEL_MODEL_MONO, Bytes(6, E));
    EXPECT_EQ(Maths()->Equal(grey.Get(), small.Get(), 9), QEL_OK);
    ExpectPixels(grey.Get(), {9, E, E, E, E, E});
    EXPECT_EQ(small->RefCount() + grey->RefCount(), 2u);
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
            mask->FillRandom(31), direct->FillRandom(32), staged->FillRandom(32);
            const MathsPlane planeMask = PlaneOf(mask.Get());
            RowStage inPlace, throughScratch(true);
            for (RowStage* stage : {&inPlace, &throughScratch}) {
                const MathsPlane plane = PlaneOf(stage == &inPlace ? direct.Get() : staged.Get());
                EqualRows(plane, &planeMask, w, h, format.first, format.second, 0x5A6B7C8D, *stage);
                EqualRows(plane, nullptr, (w + 1) / 2, h, format.first, format.second, -77, *stage);
            }
            EXPECT_EQ(direct->Snapshot(), staged->Snapshot());
            EXPECT_TRUE(direct->GuardsIntact() && staged->GuardsIntact());
        }
    }
}

}  // namespace
