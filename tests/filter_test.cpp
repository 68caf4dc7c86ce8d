// The filter component as a host calls it: fixed kernels, the border rule and
// the in-place handover, Kernel's element rows, morphology, Median, and the
// random draws of Noise and Jitter. Every path of the kernels is held to a
// literal reference in paths_test.cpp; here the interface's own choices.
#include <gtest/gtest.h>

#include <cstdlib>

#include "filter/filter_kernels.h"
#include "filter/filter_transform.h"
#include "support/component_test.h"

namespace {

using namespace qeltest;
using Owned = SmartPtr<BufferImage>;
using F = IQELFilterTransform;

// Every pixel of `image` is `colour` (24 bits, or the grey of its blue at 8).
void ExpectAll(IQEL* image, uint32_t colour, const std::string& what) {
    const qel::Pixels p = qel::PixelsOf(image);
    for (int y = 0; y < p.height; ++y)
        for (int x = 0; x < p.width; ++x)
            ASSERT_EQ(ColourAt(image, x, y), colour) << what << " " << x << "," << y;
}

TEST(FilterKernels, UniformImagesFollowTheKernelWeights) {
    // Rows without a fixed kernel run GaussianBlur of `size`.
    const struct {
        const char* name;
        QResult (F::*fixed)(IQEL*, IQEL**);
        int size;
        uint32_t in, out;
    } cases[] = {
        {"Blur", &F::Blur, 0, 0x405060, 0x405060},
        {"Soften", &F::Soften, 0, 0x405060, 0x405060},
        {"Emboss gives 127", &F::Emboss, 0, 0x405060, 0x7F7F7F},
        {"Contour gives white", &F::Contour, 0, 0x405060, 0xFFFFFF},
        {"Gaussian 2 loses 5 of 273", nullptr, 2, 0xFFFFFF, 0xFAFAFA},
        {"Gaussian 0", nullptr, 0, 0xFFFFFF, 0xFFFFFF},
    };
    SmartPtr<IQEL> out;
    for (const auto& c : cases)
        for (int bpp : {8, 24}) {
            Owned image = Uniform(9, 7, bpp, bpp == 8 ? (c.in & 0xFF) * 0x010101u : c.in);
            ASSERT_EQ(c.fixed ? (Filters()->*c.fixed)(image.Get(), out.Out())
                              : Filters()->GaussianBlur(image.Get(), c.size, out.Out()),
                      QEL_OK)
                << c.name;
            ExpectAll(out.Get(), bpp == 8 ? (c.out & 0xFF) * 0x010101u : c.out, c.name + std::to_string(bpp));
        }
    // Palette depths store the low bits of the nearest grey: 127 is nibble 15 and bit 1.
    for (int bpp : {4, 1}) {
        ASSERT_EQ(Filters()->Emboss(Uniform(5, 3, bpp, 0).Get(), out.Out()), QEL_OK);
        ExpectAll(out.Get(), bpp == 4 ? 0x0F0F0F : 0x010101, "palette Emboss");
    }
    Owned one = Uniform(1, 1, 24, 0x00C83214);
    ASSERT_EQ(Filters()->Sharpen(one.Get(), out.Out()), QEL_OK);
    EXPECT_EQ(ColourAt(out.Get(), 0, 0), 0x00C83214u);
    EXPECT_EQ(Filters()->GaussianBlur(one.Get(), 4, out.Out()), QEL_E_FAIL);
    EXPECT_EQ(Filters()->GaussianBlur(one.Get(), -1, out.Out()), QEL_E_FAIL);
    EXPECT_FALSE(out);
}

// Without a result pointer the filtered image replaces the source through Assign.
TEST(FilterBorders, OutsideIsTheTopLeftColourAndANullResultFiltersInPlace) {
    // Red top-left, green elsewhere: Blur mixes red into every border pixel.
    Owned image = Uniform(5, 4, 24, 0x0000FF00);
    PutColour(image.Get(), 0, 0, 0x00FF0000);
    ASSERT_EQ(Filters()->Blur(image.Get(), nullptr), QEL_OK);
    EXPECT_EQ(ColourAt(image.Get(), 0, 0), 0x00AA5500u);  // 6 red of 9: 170, 3 green: 85
    EXPECT_EQ(ColourAt(image.Get(), 2, 0), 0x0055AA00u);  // 3 outside red
    EXPECT_EQ(ColourAt(image.Get(), 4, 3), 0x008D7100u);  // 5 outside red: 141, 4 green: 113
    EXPECT_EQ(ColourAt(image.Get(), 1, 1), 0x001CE200u);  // inside, touching the red pixel
    EXPECT_EQ(ColourAt(image.Get(), 3, 2), 0x0000FF00u);
    EXPECT_EQ(RefCountOf(image.Get()), 1u);
    EXPECT_TRUE(image->GuardsIntact());
}

TEST(FilterKernelOperation, OnlyTheLastTapOfThirtyTwoBitMonoImagesCounts) {
    short kernel[4] = {100, 100, 100, 3};
    // 3 x 40, stride 12 bytes taken as 12 elements: element row r is buffer row 4r.
    // Bottom-up, the stride of -12 elements walks the rows the same way.
    SmartPtr<IQEL> result;
    for (const bool bottomUp : {false, true}) {
        Owned mono(BufferImage::Make(3, 40, 32, QEL_MODEL_MONO, 0, bottomUp));
        for (int y = 0; y < 40; ++y)
            for (int x = 0; x < 3; ++x) reinterpret_cast<int32_t*>(mono->Row(y))[x] = 10 * y + x;
        ASSERT_EQ(FilterClass()->Kernel(mono.Get(), kernel, 2, 2, 1, result.Out()), QEL_OK);
        const qel::Pixels out = qel::PixelsOf(result.Get());
        for (int y = 0; y < 40; ++y)
            for (int x = 0; x < 3; ++x) {
                // Element (k, 1) for k = 1..9 reads and writes buffer pixel (1, 4k): 3 * v / 2 + 1.
                const bool written = x == 1 && y % 4 == 0 && y >= 4;
                EXPECT_EQ(reinterpret_cast<int32_t*>(out.Row(y))[x],
                          written ? ClampToByte(3 * (10 * y + 1) / 2 + 1) : 0)
                    << x << "," << y << (bottomUp ? " bottom-up" : "");
            }
        EXPECT_TRUE(mono->GuardsIntact());
    }
    ASSERT_EQ(FilterClass()->Kernel(Uniform(4, 4, 24, 0xFFFFFF).Get(), kernel, 2, 1, 0, result.Out()),
              QEL_OK);
    EXPECT_EQ(PixelBytes(result.Get()), Bytes(48, 0));
}

TEST(Morphology, ASingleWhitePixelAndNonPositiveSizes) {
    // Dilate and Edge grow the dot to a 3 x 3 square, Erode removes it; sizes
    // of 0 and below write the start value over the whole image.
    const struct {
        QResult (F::*run)(IQEL*, int, IQEL**);
        bool grows;
        uint32_t start;
    } cases[] = {{&F::Dilate, true, 0}, {&F::Edge, true, 0x00FFFFFF}, {&F::Erode, false, 0x00FFFFFF}};
    SmartPtr<IQEL> out;
    for (int bpp : {8, 24, 32}) {
        Owned dot = Uniform(7, 7, bpp, 0);
        PutColour(dot.Get(), 3, 3, 0x00FFFFFF);
        for (const auto& c : cases) {
            ASSERT_EQ((Filters()->*c.run)(dot.Get(), 3, out.Out()), QEL_OK);
            for (int y = 0; y < 7; ++y)
                for (int x = 0; x < 7; ++x) {
                    const bool square = c.grows && std::abs(x - 3) <= 1 && std::abs(y - 3) <= 1;
                    EXPECT_EQ(ColourAt(out.Get(), x, y) & 0xFFFFFF, square ? 0xFFFFFFu : 0u)
                        << bpp << " " << c.grows << " " << x << "," << y;
                }
            for (int size : {0, -2}) {
                ASSERT_EQ((Filters()->*c.run)(dot.Get(), size, out.Out()), QEL_OK);
                ExpectAll(out.Get(), c.start, "start value at " + std::to_string(bpp));
            }
        }
    }
}

TEST(Median, SaltAndPepperAndTheColourOrder) {
    // Isolated salt and pepper on grey disappear, the corner one too.
    Owned sprinkled = Uniform(9, 7, 24, 0x00808080);
    PutColour(sprinkled.Get(), 2, 2, 0x00FFFFFF), PutColour(sprinkled.Get(), 6, 4, 0);
    PutColour(sprinkled.Get(), 8, 0, 0x00FFFFFF);
    SmartPtr<IQEL> out;
    ASSERT_EQ(Filters()->Median(sprinkled.Get(), 3, out.Out()), QEL_OK);
    ExpectAll(out.Get(), 0x808080, "salt and pepper");
    // Records compare by their grey key: pure red weighs as grey 76.
    const RGBQUAD red{0, 0, 255, 9}, grey76{76, 76, 76, 0}, grey100{100, 100, 100, 0};
    EXPECT_EQ(CompareColors(&red, &grey76), 0);
    EXPECT_EQ(CompareColors(&grey100, &grey76), 24);
}

// One offset as both operations scale it: the draw in single precision, the rest in double.
int Offset(int amount) {
    return static_cast<int>((static_cast<double>(static_cast<float>(std::rand()) * 4.656613e-10f) - 0.5) *
                            amount);
}

TEST(Noise, ReplaysRedGreenBlueDrawsAndClampsAtTheEnds) {
    SmartPtr<IQEL> out;
    // Offsets of up to 50 either way reach past black and white on random
    // bytes; 8 bits store the grey nearest to the offset colour.
    for (int bpp : {32, 8}) {
        Owned image = Random(7, 5, bpp, 4, 3);
        std::srand(99);
        ASSERT_EQ(Filters()->Noise(image.Get(), 100, out.Out()), QEL_OK);
        const int next = std::rand();  // the draw after the module's own
        std::srand(99);
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 7; ++x) {
                const uint32_t in = ColourAt(image.Get(), x, y);
                const int red = ClampToByte(RedOf(in) + Offset(100)),
                          green = ClampToByte(GreenOf(in) + Offset(100)),
                          blue = ClampToByte(BlueOf(in) + Offset(100));
                ASSERT_EQ(ColourAt(out.Get(), x, y), bpp == 8
                                                         ? 0x010101u * NearestGreyByWalk(blue, green, red)
                                                         : PackColor(blue, green, red, AlphaOf(in)))
                    << bpp << " bits " << x << "," << y;
            }
        EXPECT_EQ(std::rand(), next) << "three draws a pixel at " << bpp << " bits";
        for (int amount : {0, 1}) {
            ASSERT_EQ(Filters()->Noise(image.Get(), amount, out.Out()), QEL_OK);
            EXPECT_EQ(PixelBytes(out.Get()), PixelBytes(image.Get())) << amount;
        }
    }
}

TEST(Jitter, ReplaysHorizontalThenVerticalDrawsAndKeepsPointsOutside) {
    SmartPtr<IQELImageDIB> image = Positions(11, 6, 24);
    SmartPtr<IQEL> out;
    std::srand(321);
    ASSERT_EQ(Filters()->Jitter(image.Get(), 4, out.Out()), QEL_OK);
    const int next = std::rand();  // the draw after the module's own
    std::srand(321);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 11; ++x) {
            const int sx = x + Offset(8), sy = y + Offset(8);
            const bool inside = sx >= 0 && sx < 11 && sy >= 0 && sy < 6;
            ASSERT_EQ(ColourAt(out.Get(), x, y), ColourAt(image.Get(), inside ? sx : x, inside ? sy : y))
                << x << "," << y;
        }
    EXPECT_EQ(std::rand(), next) << "two draws a pixel";
    ASSERT_EQ(Filters()->Jitter(image.Get(), 0, out.Out()), QEL_OK);
    EXPECT_EQ(PixelBytes(out.Get()), PixelBytes(image.Get()));
}

}  // namespace
