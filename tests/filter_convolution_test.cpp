// Convolution filters: fixed kernels, Filter's border and alpha rules, Kernel,
// the result handover, and the fast path against a literal reference.
#include <gtest/gtest.h>

#include <random>

#include "filter/filter_kernels.h"
#include "filter/filter_transform.h"
#include "support/component_test.h"

namespace {

using namespace qeltest;
using Owned = SmartPtr<BufferImage>;

// Every neighbour visited one by one, column by column, through the pixel helpers.
void ReferenceConvolve(IQEL* src, IQEL* dst, const int* kernel, int size, int divisor, int offset) {
    const qel::Pixels s = qel::PixelsOf(src), d = qel::PixelsOf(dst);
    const int half = size / 2;
    for (int y = 0; y < s.height; ++y) {
        for (int x = 0; x < s.width; ++x) {
            int sum[3] = {0, 0, 0};
            uint32_t last = 0;
            for (int i = 0; i < size; ++i) {
                for (int j = 0; j < size; ++j) {
                    last = GetPixelColor(s.bits, x - half + i, y - half + j, s.width, s.height, s.stride,
                                         s.bitCount);
                    const int w = kernel[j * size + i];
                    sum[0] += BlueOf(last) * w;
                    sum[1] += GreenOf(last) * w;
                    sum[2] += RedOf(last) * w;
                }
            }
            for (int& v : sum) v = ClampToByte((divisor != 0 ? v / divisor : v) + offset);
            SetPixelColor(d.bits, x, y, d.width, d.height, d.stride,
                          PackColor(sum[0], sum[1], sum[2], AlphaOf(last)), s.bitCount);
        }
    }
}

TEST(FilterFixedKernels, UniformImagesFollowTheKernelWeights) {
    IQELFilterTransform* filters = Filters();
    ASSERT_TRUE(filters);
    struct Case {
        const char* name;
        QResult (*run)(IQELFilterTransform*, IQEL*, IQEL**);
        uint32_t in, out;
    } cases[] = {
        {"Blur keeps a uniform colour",
         [](IQELFilterTransform* f, IQEL* i, IQEL** r) { return f->Blur(i, r); }, 0x00405060, 0x00405060},
        {"Soften keeps it", [](IQELFilterTransform* f, IQEL* i, IQEL** r) { return f->Soften(i, r); },
         0x00405060, 0x00405060},
        {"Emboss gives 127", [](IQELFilterTransform* f, IQEL* i, IQEL** r) { return f->Emboss(i, r); },
         0x00405060, 0x007F7F7F},
        {"Gaussian level 2 loses 5 of 273",
         [](IQELFilterTransform* f, IQEL* i, IQEL** r) { return f->GaussianBlur(i, 2, r); }, 0x00FFFFFF,
         0x00FAFAFA},
        {"Gaussian level 0 keeps it",
         [](IQELFilterTransform* f, IQEL* i, IQEL** r) { return f->GaussianBlur(i, 0, r); }, 0x00FFFFFF,
         0x00FFFFFF},
    };
    for (const Case& c : cases) {
        for (int bpp : {8, 24}) {
            const uint32_t in = bpp == 8 ? c.in & 0xFF : c.in;
            Owned source = Uniform(9, 7, bpp, in * (bpp == 8 ? 0x010101u : 1u));
            SmartPtr<IQEL> result;
            ASSERT_EQ(c.run(filters, source.Get(), result.Out()), QEL_OK) << c.name;
            const uint32_t expected = bpp == 8 ? (c.out & 0xFF) * 0x010101u : c.out;
            for (int y = 0; y < 7; ++y)
                for (int x = 0; x < 9; ++x)
                    ASSERT_EQ(ColourAt(result.Get(), x, y), expected)
                        << c.name << " bpp " << bpp << " at " << x << "," << y;
            EXPECT_TRUE(source->GuardsIntact());
        }
    }
}

TEST(FilterFixedKernels, OnePixelSharpenAndPaletteDepths) {
    IQELFilterTransform* filters = Filters();
    Owned one = Uniform(1, 1, 24, 0x00C83214);
    SmartPtr<IQEL> sharpened;
    ASSERT_EQ(filters->Sharpen(one.Get(), sharpened.Out()), QEL_OK);
    EXPECT_EQ(ColourAt(sharpened.Get(), 0, 0), 0x00C83214u);

    // Palette depths read grey levels and store the low bits of the nearest one:
    // 127 is nibble 15 and bit 1.
    for (int bpp : {4, 1}) {
        Owned image = Uniform(5, 3, bpp, 0);
        SmartPtr<IQEL> embossed;
        ASSERT_EQ(filters->Emboss(image.Get(), embossed.Out()), QEL_OK);
        const uint32_t expected = bpp == 4 ? 0x0F0F0F : 0x010101;
        for (int x = 0; x < 5; ++x) EXPECT_EQ(ColourAt(embossed.Get(), x, 2), expected) << "bpp " << bpp;
    }
    EXPECT_EQ(filters->GaussianBlur(one.Get(), 4, sharpened.Out()), QEL_E_FAIL);
    EXPECT_EQ(filters->GaussianBlur(one.Get(), -1, sharpened.Out()), QEL_E_FAIL);
    EXPECT_FALSE(sharpened);
    EXPECT_EQ(filters->Blur(nullptr, sharpened.Out()), QEL_E_FAIL);
}

TEST(FilterBorders, OutsideNeighboursTakeTheTopLeftColour) {
    // Red top-left, green elsewhere: Blur mixes red into every border pixel.
    Owned image = Uniform(5, 4, 24, 0x0000FF00);
    const qel::Pixels p = qel::PixelsOf(image.Get());
    SetPixelColor(p.bits, 0, 0, 5, 4, p.stride, 0x00FF0000, 24);
    SmartPtr<IQEL> blurred;
    ASSERT_EQ(Filters()->Blur(image.Get(), blurred.Out()), QEL_OK);
    EXPECT_EQ(ColourAt(blurred.Get(), 0, 0), 0x00AA5500u);  // 6 red of 9: 170, 3 green: 85
    EXPECT_EQ(ColourAt(blurred.Get(), 2, 0), 0x0055AA00u);  // 3 outside red
    EXPECT_EQ(ColourAt(blurred.Get(), 4, 3), 0x008D7100u);  // 5 outside red: 141, 4 green: 113
    EXPECT_EQ(ColourAt(blurred.Get(), 1, 1), 0x001CE200u);  // inside, touching the red pixel
    EXPECT_EQ(ColourAt(blurred.Get(), 3, 2), 0x0000FF00u);  // inner, away from it
}

TEST(FilterBorders, AlphaIsTheBottomRightNeighbours) {
    // The identity kernel copies colours; alpha comes from (x+1, y+1), and is 1 past the last row or column.
    Owned image(BufferImage::Make(4, 3, 32, QEL_MODEL_ARGB, 4));
    image->FillRandom(11);
    int identity[9] = {0, 0, 0, 0, 1, 0, 0, 0, 0};
    SmartPtr<IQEL> result;
    ASSERT_EQ(Filters()->Filter(image.Get(), identity, 3, 0, 0, result.Out()), QEL_OK);
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 4; ++x) {
            const uint32_t in = ColourAt(image.Get(), x, y);
            const uint32_t alpha = x == 3 || y == 2 ? 1u : ColourAt(image.Get(), x + 1, y + 1) >> 24;
            EXPECT_EQ(ColourAt(result.Get(), x, y), (in & 0xFFFFFF) | alpha << 24) << x << "," << y;
        }
    }
}

TEST(FilterHandover, NullResultReplacesTheSourceThroughAssign) {
    Owned image = Uniform(6, 5, 24, 0x00FFFFFF);
    const qel::Pixels p = qel::PixelsOf(image.Get());
    SetPixelColor(p.bits, 3, 2, 6, 5, p.stride, 0, 24);
    ASSERT_EQ(Filters()->Blur(image.Get(), nullptr), QEL_OK);
    EXPECT_EQ(ColourAt(image.Get(), 3, 2), 0x00E2E2E2u);  // 8 of 9 white
    EXPECT_EQ(ColourAt(image.Get(), 0, 0), 0x00FFFFFFu);
    EXPECT_EQ(image->RefCount(), 1u);
    EXPECT_TRUE(image->GuardsIntact());
}

TEST(FilterKernelOperation, OnlyTheLastTapOfThirtyTwoBitMonoImagesCounts) {
    IQELFilterTransform* created = nullptr;
    ASSERT_EQ(CQELFilterTransform::_CreateInstance(nullptr, &IID_IQELFilterTransform,
                                                   reinterpret_cast<void**>(&created)),
              QEL_OK);
    SmartPtr<IQELFilterTransform> holder(created);
    auto* filters = static_cast<CQELFilterTransform*>(created);
    short kernel[4] = {100, 100, 100, 3};

    // 3 x 40, stride 12 bytes taken as 12 elements: element row r is buffer row 4r.
    Owned mono(BufferImage::Make(3, 40, 32, QEL_MODEL_MONO, 0));
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 3; ++x) reinterpret_cast<int32_t*>(mono->Row(y))[x] = 10 * y + x;
    SmartPtr<IQEL> result;
    ASSERT_EQ(filters->Kernel(mono.Get(), kernel, 2, 2, 1, result.Out()), QEL_OK);
    const qel::Pixels out = qel::PixelsOf(result.Get());
    for (int y = 0; y < 40; ++y) {
        for (int x = 0; x < 3; ++x) {
            // Element (k, 1) for k = 1..9 reads and writes buffer pixel (1, 4k): 3 * v / 2 + 1.
            const bool written = x == 1 && y % 4 == 0 && y >= 4;
            const int expected = written ? ClampToByte(3 * (10 * y + 1) / 2 + 1) : 0;
            EXPECT_EQ(reinterpret_cast<int32_t*>(out.Row(y))[x], expected) << x << "," << y;
        }
    }
    EXPECT_TRUE(mono->GuardsIntact());

    Owned colour = Uniform(4, 4, 24, 0x00FFFFFF);
    ASSERT_EQ(filters->Kernel(colour.Get(), kernel, 2, 1, 0, result.Out()), QEL_OK);
    for (unsigned char byte : PixelBytes(result.Get())) ASSERT_EQ(byte, 0);
    EXPECT_EQ(filters->Kernel(nullptr, kernel, 2, 1, 0, result.Out()), QEL_E_INVALIDARG);
}

// Fast path, general path and the literal reference on random images.
TEST(FilterPaths, FastGeneralAndReferenceAgree) {
    std::mt19937 random(5);
    const int sizes[][2] = {{1, 1}, {2, 3}, {17, 9}, {64, 33}};
    for (int bpp : {1, 4, 8, 24, 32}) {
        for (const auto& wh : sizes) {
            for (int size : {1, 2, 3, 4, 5, 6, 7, 12, 0, -3}) {
                Owned src(BufferImage::Make(wh[0], wh[1], bpp, ModelFor(bpp), 3, size == 4));
                src->FillRandom(static_cast<uint32_t>(random()));
                std::vector<int> kernel(static_cast<size_t>(size > 0 ? size * size : 1));
                for (int& w : kernel) w = static_cast<int>(random() % 15) - 4;
                const int divisor = static_cast<int>(random() % 20) - 3;
                const int offset = static_cast<int>(random() % 60) - 30;
                Owned fast(BufferImage::Make(wh[0], wh[1], bpp, ModelFor(bpp), 1));
                Owned general(BufferImage::Make(wh[0], wh[1], bpp, ModelFor(bpp), 2));
                Owned reference(BufferImage::Make(wh[0], wh[1], bpp, ModelFor(bpp), 0));
                const ImageView s = ReadImageView(src.Get());
                ConvolveView(s, ReadImageView(fast.Get()), kernel.data(), size, divisor, offset,
                             FilterPath::Fast);
                ConvolveView(s, ReadImageView(general.Get()), kernel.data(), size, divisor, offset,
                             FilterPath::General);
                ReferenceConvolve(src.Get(), reference.Get(), kernel.data(), size, divisor, offset);
                const size_t rowBytes = qel::PixelsOf(src.Get()).RowBytes();
                const auto expected = PixelBytes(reference.Get());
                ASSERT_EQ(PixelBytes(fast.Get()), expected)
                    << "bpp " << bpp << " " << wh[0] << "x" << wh[1] << " size " << size << "\n"
                    << HexRows(PixelBytes(fast.Get()), rowBytes) << "expected\n"
                    << HexRows(expected, rowBytes);
                ASSERT_EQ(PixelBytes(general.Get()), expected) << "bpp " << bpp << " size " << size;
                ASSERT_TRUE(fast->GuardsIntact() && general->GuardsIntact() && src->GuardsIntact());
            }
        }
    }
}

}  // namespace
