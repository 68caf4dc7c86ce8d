// Resample: the choice of treatment and each treatment's exact bytes.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "image/pixel.h"
#include "image/sampling.h"
#include "support/component_test.h"

namespace {

using namespace qeltest;

BufferImage* Random(int w, int h, int bpp, unsigned seed, int padding = 0, bool bottomUp = false) {
    BufferImage* image =
        BufferImage::Make(w, h, bpp, bpp == 32 ? QEL_MODEL_ARGB : QEL_MODEL_BGR, padding, bottomUp);
    image->FillRandom(seed);
    return image;
}

struct Scaled {
    IQEL* image = nullptr;
    qel::Pixels p;
    ~Scaled() {
        if (image != nullptr) image->Release();
    }
};

void Resample(IQEL* source, int w, int h, int method, int nearestOnly, Scaled* out) {
    ASSERT_EQ(Transform()->Resample(source, &out->image, w, h, method, nearestOnly), QEL_OK);
    ASSERT_NE(out->image, nullptr);
    EXPECT_EQ(RefCountOf(out->image), 1u);
    out->p = qel::PixelsOf(out->image);
    ASSERT_EQ(out->p.width, w);
    ASSERT_EQ(out->p.height, h);
}

TEST(Resample, SameSizeIsACopyWhateverTheMethod) {
    BufferImage* source = Random(13, 7, 24, 1, 3);
    for (int method : {0, 3, 5}) {
        Scaled out;
        Resample(source, 13, 7, method, 0, &out);
        EXPECT_EQ(PixelBytes(out.image), PixelBytes(source));
    }
    EXPECT_EQ(source->RefCount(), 1u);
    source->Release();
}

TEST(Resample, EnlargingWithMethodZeroCopiesNearestPixels) {
    for (int bpp : {8, 24, 32}) {
        BufferImage* source = Random(100, 100, bpp, 2, 0, bpp == 24);
        Scaled out;
        Resample(source, 200, 200, 0, 0, &out);
        for (int y = 0; y < 200; y += 7)
            for (int x = 0; x < 200; ++x)
                ASSERT_EQ(ColourAt(out.image, x, y), ColourAt(source, x / 2, y / 2))
                    << bpp << " at " << x << "," << y;
        source->Release();
    }
}

TEST(Resample, NearestOnlyCopiesIndicesWhenShrinking) {
    BufferImage* source = Random(9, 9, 8, 3);
    Scaled out;
    Resample(source, 3, 4, 5, 1, &out);
    const qel::Pixels in = qel::PixelsOf(source);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 3; ++x)
            EXPECT_EQ(out.p.Row(y)[x], in.Row(static_cast<int>(std::floor(y * 2.25f)))[x * 3])
                << x << "," << y;
    source->Release();
}

TEST(Resample, ShrinkingAveragesTruncatedBlocks) {
    // 4 x 2 to 2 x 1: 2 x 2 blocks, sums divided with truncation; alpha stays as created.
    BufferImage* source = BufferImage::Make(4, 2, 32, QEL_MODEL_ARGB);
    SetPixelBytes(source, {10, 0, 255, 9, 11, 1, 254, 9, 100, 0, 0, 9, 200, 0, 0, 9,
                           12, 2, 255, 9, 13, 2, 254, 9, 0,   0, 0, 9, 1,   0, 0, 9});
    Scaled out;
    Resample(source, 2, 1, 7, 0, &out);
    EXPECT_EQ(PixelBytes(out.image), (Bytes{11, 1, 254, 0, 75, 0, 0, 0}));
    source->Release();

    // A scale of 2.5 averages 2 columns starting at floor(2.5 x); column 4 is never read.
    BufferImage* row = BufferImage::Make(5, 1, 8, QEL_MODEL_MONO);
    SetPixelBytes(row, {10, 20, 255, 40, 51});
    Scaled narrow;
    Resample(row, 2, 1, 3, 0, &narrow);
    EXPECT_EQ(PixelBytes(narrow.image), (Bytes{15, 147}));
    row->Release();
}

// Kernel interpolation samples at aligned pixel centres; the per-column
// weights must give the bytes of sampling each point on its own.
TEST(Resample, KernelInterpolationMatchesPointSampling) {
    const struct {
        int w, h, bpp, newW, newH, method, padding;
    } cases[] = {{100, 100, 24, 200, 200, 3, 0}, {31, 17, 32, 57, 40, 5, 4}, {31, 17, 24, 17, 40, 2, 1},
                 {100, 100, 24, 200, 50, 3, 0},  {12, 9, 8, 25, 19, 11, 0},  {12, 9, 32, 25, 7, 1, 0},
                 {20, 20, 24, 41, 41, 16, 0},    {9, 5, 4, 20, 11, 4, 0}};
    unsigned seed = 10;
    for (const auto& c : cases) {
        BufferImage* source = Random(c.w, c.h, c.bpp, seed++, c.padding);
        const qel::Pixels in = qel::PixelsOf(source);
        Scaled out;
        Resample(source, c.newW, c.newH, c.method, 0, &out);
        const float xScale = static_cast<float>(c.w) / static_cast<float>(c.newW);
        const float yScale = static_cast<float>(c.h) / static_cast<float>(c.newH);
        BufferImage* expected = BufferImage::Make(c.newW, c.newH, c.bpp, 0);
        const qel::Pixels e = qel::PixelsOf(expected);
        for (int y = 0; y < c.newH; ++y)
            for (int x = 0; x < c.newW; ++x) {
                const uint32_t colour =
                    GetPixelColorInterpolated(in.bits, (x + 0.5f) * xScale - 0.5f, (y + 0.5f) * yScale - 0.5f,
                                              c.w, c.h, in.stride, c.method, c.bpp);
                SetPixelColor(e.bits, x, y, e.width, e.height, e.stride, colour, c.bpp);
            }
        EXPECT_EQ(PixelBytes(out.image), PixelBytes(expected)) << c.w << "x" << c.h << " method " << c.method;
        EXPECT_TRUE(source->GuardsIntact());
        expected->Release();
        source->Release();
    }
}

TEST(Resample, EmptyTargetsAndFailures) {
    BufferImage* source = Random(6, 6, 24, 5);
    Scaled flat;
    ASSERT_EQ(Transform()->Resample(source, &flat.image, 6, 0, 3, 0), QEL_OK);
    ASSERT_NE(flat.image, nullptr);
    EXPECT_EQ(qel::PixelsOf(flat.image).height, 0);
    IQEL* result = reinterpret_cast<IQEL*>(0x1);
    EXPECT_EQ(Transform()->Resample(nullptr, &result, 4, 4, 3, 0), QEL_E_FAIL);
    EXPECT_EQ(result, reinterpret_cast<IQEL*>(0x1));
    EXPECT_EQ(source->RefCount(), 1u);
    source->Release();
}

}  // namespace
