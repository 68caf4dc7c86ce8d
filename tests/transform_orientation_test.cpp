// Flip, Mirror, FlipBits, FlipImageAndBits and the quarter turns of Rotate4.
#include <gtest/gtest.h>

#include <vector>

#include "module/iids.h"
#include "support/component_test.h"
#include "transform/image_transform.h"

namespace {

using namespace qeltest;

// A source whose pixel bytes count up from 1, so every pixel is recognisable.
BufferImage* Counting(int w, int h, int bpp, int padding = 0, bool bottomUp = false) {
    BufferImage* image =
        BufferImage::Make(w, h, bpp, bpp == 32 ? QEL_MODEL_ARGB : QEL_MODEL_BGR, padding, bottomUp);
    image->FillRandom(7);  // padding bytes get noise
    const size_t rowBytes = (static_cast<size_t>(w) * bpp + 7) / 8;
    Bytes bytes(rowBytes * h);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i + 1);
    SetPixelBytes(image, bytes);
    return image;
}

// Flip and Mirror hand back a new image and leave the source as it was.
TEST(FlipAndMirror, ReverseRowsOrPixelsIntoANewImage) {
    const struct {
        bool mirror;
        int w, h, bpp, padding;
        bool bottomUp;
        Bytes expected;
    } cases[] = {
        {false, 2, 3, 24, 0, false, {13, 14, 15, 16, 17, 18, 7, 8, 9, 10, 11, 12, 1, 2, 3, 4, 5, 6}},
        {false, 5, 1, 8, 0, false, {1, 2, 3, 4, 5}},
        // Mirror moves whole pixels, alpha included.
        {true, 3, 2, 32, 4, false, {9,  10, 11, 12, 5,  6,  7,  8,  1,  2,  3,  4,
                                    21, 22, 23, 24, 17, 18, 19, 20, 13, 14, 15, 16}},
        {true, 3, 1, 24, 0, true, {7, 8, 9, 4, 5, 6, 1, 2, 3}},
        {true, 4, 1, 8, 0, false, {4, 3, 2, 1}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << (c.mirror ? "Mirror " : "Flip ") << c.w << "x" << c.h << " at " << c.bpp);
        SmartPtr<BufferImage> source(Counting(c.w, c.h, c.bpp, c.padding, c.bottomUp));
        const Bytes before = source->Snapshot();
        SmartPtr<IQEL> result;
        ASSERT_EQ(c.mirror ? Transform()->Mirror(source.Get(), result.Out())
                           : Transform()->Flip(source.Get(), result.Out()),
                  QEL_OK);
        EXPECT_EQ(PixelBytes(result.Get()), c.expected) << HexRows(PixelBytes(result.Get()), c.w * c.bpp / 8);
        EXPECT_EQ(source->Snapshot(), before);
        EXPECT_EQ(RefCountOf(result.Get()) + source->RefCount(), 2u);
        EXPECT_EQ(Transform()->Flip(source.Get(), nullptr), QEL_OK);
    }
    IQEL* result = nullptr;
    EXPECT_EQ(Transform()->Flip(nullptr, &result), QEL_E_FAIL);
    EXPECT_EQ(Transform()->Mirror(nullptr, &result), QEL_E_FAIL);
}

TEST(FlipBits, SwapsFirstAndThirdByteInPlace) {
    SmartPtr<BufferImage> image(Counting(2, 2, 32, 3)), grey(Counting(5, 2, 8));
    const Bytes padded = image->Snapshot(), before = grey->Snapshot();
    ASSERT_EQ(Transform()->FlipBits(image.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(image.Get()), (Bytes{3, 2, 1, 4, 7, 6, 5, 8, 11, 10, 9, 12, 15, 14, 13, 16}));
    ASSERT_EQ(Transform()->FlipBits(image.Get()), QEL_OK);
    EXPECT_EQ(image->Snapshot(), padded);  // twice restores, padding untouched
    EXPECT_EQ(Transform()->FlipBits(grey.Get()), QEL_OK);
    EXPECT_EQ(grey->Snapshot(), before);
    EXPECT_EQ(Transform()->FlipBits(nullptr), QEL_E_FAIL);
}

TEST(FlipImageAndBits, SwapsRowsAndBytesButTreatsOnlyHalfTheMiddleRow) {
    // 4 x 3 at 32 bits: rows 0 and 2 trade places with bytes 0 and 2 swapped
    // and alpha staying in its row; in row 1 only pixels 0 and 1 change.
    SmartPtr<BufferImage> image(Counting(4, 3, 32));
    ASSERT_EQ(Transform()->FlipImageAndBits(image.Get()), QEL_OK);
    const Bytes expected = {35, 34, 33, 4,  39, 38, 37, 8,  43, 42, 41, 12, 47, 46, 45, 16,
                            19, 18, 17, 20, 23, 22, 21, 24, 25, 26, 27, 28, 29, 30, 31, 32,
                            3,  2,  1,  36, 7,  6,  5,  40, 11, 10, 9,  44, 15, 14, 13, 48};
    EXPECT_EQ(PixelBytes(image.Get()), expected) << HexRows(PixelBytes(image.Get()), 16);
    // 24 bits: the middle row steps 4 bytes for its first width / 2 positions.
    SmartPtr<BufferImage> rgb(Counting(5, 1, 24));
    ASSERT_EQ(Transform()->FlipImageAndBits(rgb.Get()), QEL_OK);
    EXPECT_EQ(PixelBytes(rgb.Get()), (Bytes{3, 2, 1, 4, 7, 6, 5, 8, 9, 10, 11, 12, 13, 14, 15}));
    EXPECT_EQ(Transform()->FlipImageAndBits(nullptr), QEL_E_FAIL);
}

class Rotate4Test : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override {
        ASSERT_EQ(CQELImageTransform::_CreateInstance(nullptr, &IID_IQELTransform, component_.OutVoid()),
                  QEL_OK);
    }
    CQELImageTransform* Component() { return static_cast<CQELImageTransform*>(component_.Get()); }
    SmartPtr<IQELTransform> component_;
};

// The source pixel a destination pixel of a quarter turn takes.
void SourceOf(int angle, int w, int h, int x, int y, int* sx, int* sy) {
    if (angle == 90) *sx = y, *sy = h - 1 - x;
    if (angle == 270) *sx = w - 1 - y, *sy = x;
    if (angle == 180) *sx = w - 1 - x, *sy = h - 1 - y;
}

TEST_P(Rotate4Test, QuarterTurnsMoveWholePixels) {
    const int bpp = GetParam(), bytes = bpp / 8;
    const int w = 5, h = 3;
    for (int angle : {90, 180, 270}) {
        BufferImage* source = Counting(w, h, bpp, bytes == 4 ? 4 : 2);  // word-sized strides at 32 bits
        SmartPtr<IQELImageDIB> dest = TestHost().NewImage();
        ASSERT_EQ(Component()->Rotate4(source, dest.Get(), angle), QEL_OK);
        const qel::Pixels turned = qel::PixelsOf(dest.Get());
        ASSERT_EQ(turned.width, angle == 180 ? w : h);
        ASSERT_EQ(turned.height, angle == 180 ? h : w);
        const Bytes from = PixelBytes(source), to = PixelBytes(dest.Get());
        for (int y = 0; y < turned.height; ++y)
            for (int x = 0; x < turned.width; ++x) {
                int sx = 0, sy = 0;
                SourceOf(angle, w, h, x, y, &sx, &sy);
                if (angle == 180 && bytes == 3) sx -= 1;  // the 3-byte half turn reads one pixel left
                for (int b = 0; b < bytes; ++b) {
                    const size_t at = (static_cast<size_t>(y) * turned.width + x) * bytes + b;
                    if (sx < 0) {
                        // Bytes before the source row: its padding for rows below the
                        // first, nothing (as created) for the first row.
                        const unsigned char expected = sy == 0 ? 0 : source->Row(sy)[b - bytes];
                        EXPECT_EQ(to[at], expected) << angle << " at " << x << "," << y;
                    } else {
                        EXPECT_EQ(to[at], from[(static_cast<size_t>(sy) * w + sx) * bytes + b])
                            << angle << " at " << x << "," << y;
                    }
                }
            }
        EXPECT_EQ(RefCountOf(dest.Get()), 1u);
        source->Release();
    }
}

TEST_P(Rotate4Test, OppositeTurnsRestoreAndOtherAnglesDoNothing) {
    const int bpp = GetParam();
    BufferImage* source = Counting(4, 7, bpp, 0, true);
    SmartPtr<IQELImageDIB> a = TestHost().NewImage(), b = TestHost().NewImage();
    ASSERT_EQ(Component()->Rotate4(source, a.Get(), 90), QEL_OK);
    ASSERT_EQ(Component()->Rotate4(a.Get(), b.Get(), 270), QEL_OK);
    EXPECT_EQ(PixelBytes(b.Get()), PixelBytes(source));
    if (bpp != 24) {  // the 3-byte half turn is shifted and does not undo itself
        ASSERT_EQ(Component()->Rotate4(source, a.Get(), 180), QEL_OK);
        ASSERT_EQ(Component()->Rotate4(a.Get(), b.Get(), 180), QEL_OK);
        EXPECT_EQ(PixelBytes(b.Get()), PixelBytes(source));
    }

    SmartPtr<IQELImageDIB> untouched = TestHost().NewImage(2, 2, 8, QEL_MODEL_MONO);
    EXPECT_EQ(Component()->Rotate4(source, untouched.Get(), 45), QEL_OK);
    EXPECT_EQ(qel::PixelsOf(untouched.Get()).width, 2);
    EXPECT_EQ(source->RefCount(), 1u);
    source->Release();
}

INSTANTIATE_TEST_SUITE_P(PixelSizes, Rotate4Test, ::testing::Values(8, 24, 32));

TEST(Rotate4Spot, NinetyAndTwoSeventyOfThreeByTwo) {
    SmartPtr<IQELTransform> component;
    ASSERT_EQ(CQELImageTransform::_CreateInstance(nullptr, &IID_IQELTransform, component.OutVoid()), QEL_OK);
    auto* transform = static_cast<CQELImageTransform*>(component.Get());
    BufferImage* source = Counting(3, 2, 8);  // rows 1 2 3 / 4 5 6
    SmartPtr<IQELImageDIB> dest = TestHost().NewImage();
    ASSERT_EQ(transform->Rotate4(source, dest.Get(), 90), QEL_OK);
    EXPECT_EQ(PixelBytes(dest.Get()), (Bytes{4, 1, 5, 2, 6, 3}));  // top-left: bottom-left
    ASSERT_EQ(transform->Rotate4(source, dest.Get(), 270), QEL_OK);
    EXPECT_EQ(PixelBytes(dest.Get()), (Bytes{3, 6, 2, 5, 1, 4}));  // top-left: top-right
    source->Release();
}

}  // namespace
