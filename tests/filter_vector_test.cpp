// Vector steps of the filters against their plain scalar loops and the
// general path: widths around the 16- and 32-lane steps, kernels on both sides
// of the 16-bit sum limit, every divisor kind, padded and bottom-up rows.
#include <gtest/gtest.h>

#include <random>

#include "filter/filter_kernels.h"
#include "support/test_image.h"

namespace {

using qeltest::BufferImage;
using qeltest::HexRows;
using qeltest::PixelBytes;

struct Released {
    void operator()(IUnknown* p) const { p->Release(); }
};
using Owned = std::unique_ptr<BufferImage, Released>;

unsigned ModelFor(int bpp) { return bpp == 32 ? QEL_MODEL_ARGB : bpp == 24 ? QEL_MODEL_BGR : QEL_MODEL_MONO; }

// Runs `run` on every path into fresh images and expects identical bytes.
template <class Run>
void ExpectPathsAgree(IQEL* source, const char* what, Run&& run) {
    const qel::Pixels p = qel::PixelsOf(source);
    Owned fast(BufferImage::Make(p.width, p.height, p.bitCount, ModelFor(p.bitCount), 1));
    Owned plain(BufferImage::Make(p.width, p.height, p.bitCount, ModelFor(p.bitCount), 2, true));
    Owned general(BufferImage::Make(p.width, p.height, p.bitCount, ModelFor(p.bitCount), 0));
    Owned baseline(BufferImage::Make(p.width, p.height, p.bitCount, ModelFor(p.bitCount), 3));
    const ImageView s = ReadImageView(source);
    run(s, ReadImageView(fast.get()), FilterPath::Fast);
    run(s, ReadImageView(baseline.get()), FilterPath::Baseline);
    run(s, ReadImageView(plain.get()), FilterPath::Plain);
    run(s, ReadImageView(general.get()), FilterPath::General);
    const auto expected = PixelBytes(general.get());
    ASSERT_EQ(PixelBytes(plain.get()), expected)
        << what << " plain, " << p.bitCount << " bits, " << p.width << "x" << p.height;
    ASSERT_EQ(PixelBytes(fast.get()), expected)
        << what << " fast, " << p.bitCount << " bits, " << p.width << "x" << p.height << "\n"
        << HexRows(PixelBytes(fast.get()), p.RowBytes()) << "expected\n"
        << HexRows(expected, p.RowBytes());
    ASSERT_EQ(PixelBytes(baseline.get()), expected)
        << what << " baseline, " << p.bitCount << " bits, " << p.width << "x" << p.height;
    ASSERT_TRUE(fast->GuardsIntact() && plain->GuardsIntact() && general->GuardsIntact() &&
                baseline->GuardsIntact());
}

TEST(FilterVectorSteps, ConvolutionMatchesScalarLoops) {
    std::mt19937 random(11);
    struct Kernel {
        std::vector<int> weights;
        int size, divisor, offset;
    };
    const std::vector<Kernel> kernels = {
        {{1, 1, 1, 1, 1, 1, 1, 1, 1}, 3, 9, 0},            // 16-bit sums, divided
        {{-1, -1, -1, -1, 15, -1, -1, -1, -1}, 3, 7, 0},   // negative sums
        {{0, 0, -1, 0, 0, 0, 1, 0, 0}, 3, 0, 127},         // no division, offset
        {{2, -3, 5, 1}, 2, 1, -20},                        // even size, divisor 1
        {{1, 2, 1, 2, 4, 2, 1, 2, 1}, 3, -1, 300},         // negative divisor: scalar
        {{128, 0, 0, 0, 0, 0, 0, 0, 1}, 3, 3, 0},          // sums just past 16 bits
        {{127, 1, -128, 0, 0, 0, 0, 0, 0}, 3, 2, -40000},  // offset past 16 bits
        {{-128, 0, 0, 0, 0, 0, 0, 0, 0}, 3, 255, 1},       // sum reaching -32640
        {{1, 2, 1, 2, 4, 2, 1, 2, 1}, 3, 16, 0},           // separable, summed down then across
    };
    // A separable 5 x 5 kernel with negative and zero factors: column (1, -2, 0, 3, 1)
    // times row (2, 0, -1, 1, 1).
    Kernel outer{std::vector<int>(25), 5, 6, 10};
    const int column[5] = {1, -2, 0, 3, 1}, row[5] = {2, 0, -1, 1, 1};
    for (int j = 0; j < 5; ++j)
        for (int i = 0; i < 5; ++i) outer.weights[j * 5 + i] = column[j] * row[i];
    std::vector<Kernel> all = kernels;
    all.push_back(outer);
    for (int bpp : {8, 24, 32}) {
        for (int width : {1, 5, 16, 17, 18, 22, 33, 34, 35, 47, 70}) {
            // Two rows: every window of 3 x 3 and larger reaches above or below the image.
            const int height = width % 3 == 2 ? 2 : 6;
            Owned src(BufferImage::Make(width, height, bpp, ModelFor(bpp), width % 3, width % 2 == 1));
            src->FillRandom(static_cast<uint32_t>(random()));
            for (const Kernel& k : all) {
                ExpectPathsAgree(src.get(), "convolution",
                                 [&](const ImageView& s, const ImageView& d, FilterPath p) {
                                     ConvolveView(s, d, k.weights.data(), k.size, k.divisor, k.offset, p);
                                 });
            }
            // Every weight pattern of a 5 x 5 kernel within 16-bit sums, random divisors.
            for (int trial = 0; trial < 4; ++trial) {
                std::vector<int> weights(25);
                for (int& w : weights) w = static_cast<int>(random() % 11) - 5;
                const int divisor = static_cast<int>(random() % 300) - 20,
                          offset = static_cast<int>(random() % 80) - 40;
                ExpectPathsAgree(src.get(), "random 5x5",
                                 [&](const ImageView& s, const ImageView& d, FilterPath p) {
                                     ConvolveView(s, d, weights.data(), 5, divisor, offset, p);
                                 });
            }
        }
    }
}

TEST(FilterVectorSteps, ConvolutionExtremeSumsDivideExactly) {
    // All-white and all-black images drive the sums to both ends of their range,
    // where a multiply-high division would first go wrong.
    for (uint32_t seed : {0u, 1u}) {
        Owned src(BufferImage::Make(40, 5, 24, QEL_MODEL_BGR));
        const qel::Pixels p = qel::PixelsOf(src.get());
        for (int y = 0; y < p.height; ++y)
            for (size_t n = 0; n < p.RowBytes(); ++n) p.Row(y)[n] = seed == 0 ? 255 : (n % 7 == 0 ? 0 : 255);
        for (int divisor = 2; divisor < 200; divisor += 7) {
            const int weights[9] = {16, 16, 16, 16, 0, -16, 16, 16, 16};
            ExpectPathsAgree(src.get(), "extreme sums",
                             [&](const ImageView& s, const ImageView& d, FilterPath path) {
                                 ConvolveView(s, d, weights, 3, divisor, 3, path);
                             });
        }
    }
}

TEST(FilterVectorSteps, PowerOfTwoDivisorsShiftExactly) {
    // Non-negative weights over power-of-two divisors take the shift in place of
    // the multiply-high; white images give the largest sums, stripes every remainder.
    for (uint32_t seed : {0u, 1u}) {
        Owned src(BufferImage::Make(45, 4, 24, QEL_MODEL_BGR));
        const qel::Pixels p = qel::PixelsOf(src.get());
        for (int y = 0; y < p.height; ++y)
            for (size_t n = 0; n < p.RowBytes(); ++n)
                p.Row(y)[n] = seed == 0 ? 255 : static_cast<unsigned char>((n * 37 + y * 11) % 256);
        for (int middle : {1, 2, 3}) {
            const int weights[9] = {1, middle, 1, middle, middle * middle, middle, 1, middle, 1};
            for (int divisor : {2, 4, 8, 16, 32, 64}) {
                ExpectPathsAgree(src.get(), "power-of-two divisor",
                                 [&](const ImageView& s, const ImageView& d, FilterPath path) {
                                     ConvolveView(s, d, weights, 3, divisor, 0, path);
                                 });
            }
        }
    }
}

TEST(FilterVectorSteps, ExtremesMatchScalarLoops) {
    // Heights below the window make rows above and below the image take part
    // (read from the outside colour on the direct paths).
    std::mt19937 random(12);
    for (int bpp : {8, 24, 32}) {
        for (int width : {3, 16, 18, 21, 34, 50}) {
            for (int height : {1, 2, 7}) {
                Owned src(BufferImage::Make(width, height, bpp, ModelFor(bpp), 2, width % 2 == 0));
                src->FillRandom(static_cast<uint32_t>(random()));
                for (int size : {-1, 0, 1, 2, 3, 5, 8}) {
                    for (Extremum e : {Extremum::Minimum, Extremum::Maximum, Extremum::Range}) {
                        auto run = [&](const ImageView& s, const ImageView& d, FilterPath p) {
                            MorphologyView(s, d, e, size, p);
                        };
                        ExpectPathsAgree(src.get(), "extremum", run);
                    }
                }
            }
        }
    }
}

TEST(FilterVectorSteps, ExtremeBordersMatchGeneralPixels) {
    // Narrow and short images are nearly all border: every border pixel meets
    // outside columns, outside rows or both. A 32-bit pixel's alpha comes from
    // its bottom-right neighbour, the outside alpha where that lies outside.
    // The widest window is beyond the rows the direct border holds.
    std::mt19937 random(31);
    for (int bpp : {8, 24, 32}) {
        for (int width = 1; width <= 5; ++width) {
            for (int height = 1; height <= 4; ++height) {
                Owned src(BufferImage::Make(width, height, bpp, ModelFor(bpp), 3, height % 2 == 0));
                src->FillRandom(static_cast<uint32_t>(random()));
                for (int size : {2, 3, 4}) {
                    for (Extremum e : {Extremum::Minimum, Extremum::Maximum, Extremum::Range}) {
                        auto run = [&](const ImageView& s, const ImageView& d, FilterPath p) {
                            MorphologyView(s, d, e, size, p);
                        };
                        ExpectPathsAgree(src.get(), "extremum border", run);
                    }
                }
            }
        }
        Owned wide(BufferImage::Make(67, 3, bpp, ModelFor(bpp), 1));
        wide->FillRandom(static_cast<uint32_t>(random()));
        for (int size : {64, 65}) {
            auto run = [&](const ImageView& s, const ImageView& d, FilterPath p) {
                MorphologyView(s, d, Extremum::Range, size, p);
            };
            ExpectPathsAgree(wide.get(), "extremum wide window", run);
        }
    }
}

TEST(FilterVectorSteps, MediansMatchScalarLoops) {
    // Few distinct keys make ties common, so the choice among equal keys is
    // tested, not only the middle key.
    std::mt19937 random(13);
    for (int bpp : {8, 24, 32}) {
        for (int width : {1, 2, 3, 4, 5, 6, 17, 18, 19, 35, 37, 52, 70}) {
            for (int height : {1, 3, 5, 6, 9}) {
                Owned src(BufferImage::Make(width, height, bpp, ModelFor(bpp), width % 4, height == 6));
                src->FillRandom(static_cast<uint32_t>(random()));
                const qel::Pixels p = qel::PixelsOf(src.get());
                for (int y = 0; y < height; ++y)
                    for (size_t n = 0; n < p.RowBytes(); ++n) p.Row(y)[n] &= 0xC3;
                for (int size : {3, 2, 5}) {
                    ExpectPathsAgree(src.get(), "median",
                                     [&](const ImageView& s, const ImageView& d, FilterPath path) {
                                         MedianView(s, d, size, path);
                                     });
                }
            }
        }
    }
}

TEST(FilterVectorSteps, LargeGreyMediansMatchRunningHistogram) {
    // Windows from 7 up take the column histograms; windows wider and taller
    // than the image, even sizes and keys crowded into one coarse bin or
    // spread over all of them must give the running histogram's bytes.
    std::mt19937 random(29);
    for (int width : {1, 2, 7, 16, 33, 70}) {
        for (int height : {1, 4, 9, 23}) {
            for (unsigned char mask : {0xFF, 0x0F, 0x81}) {
                Owned src(BufferImage::Make(width, height, 8, QEL_MODEL_MONO, width % 4, height == 4));
                src->FillRandom(static_cast<uint32_t>(random()));
                const qel::Pixels p = qel::PixelsOf(src.get());
                for (int y = 0; y < height; ++y)
                    for (size_t n = 0; n < p.RowBytes(); ++n) p.Row(y)[n] &= mask;
                for (int size : {7, 8, 15, 40}) {
                    ExpectPathsAgree(src.get(), "large grey median",
                                     [&](const ImageView& s, const ImageView& d, FilterPath path) {
                                         MedianView(s, d, size, path);
                                     });
                }
            }
        }
    }
}

}  // namespace
