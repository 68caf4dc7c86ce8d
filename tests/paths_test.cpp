// Fast, vector and general paths of the pixel kernels give the same bytes on
// random images of every depth, odd sizes, padded and bottom-up rows, and on
// the hard cases of each (clamped sums, ties, windows beyond the image).
// Filters are also held to a literal neighbour-by-neighbour reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "color/color_kernels.h"
#include "filter/filter_kernels.h"
#include "image/image_view.h"
#include "support/component_test.h"
#include "transform/box_rows.h"
#include "transform/circle_kernel.h"
#include "transform/kernel_grid.h"
#include "transform/skew_quad.h"
#include "transform/turn_drawing.h"
#include "transform/warp_kernels.h"

namespace {

using namespace qeltest;
using Owned = SmartPtr<BufferImage>;

// White with black every fifth column and every seventh row: kernels with
// lobes above one overflow on the white and go below zero beside the black.
Owned HardEdges(int width, int height, int bitCount) {
    Owned image(BufferImage::Make(width, height, bitCount, QEL_MODEL_BGR));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width * bitCount / 8; ++x)
            image->Row(y)[x] =
                static_cast<unsigned char>((x / (bitCount / 8) % 5 == 2 || y % 7 == 3) ? 0 : 255);
    return image;
}

// Runs `run(destination, path)` for each path into a fresh image (paddings 0
// to 3, every other one bottom-up) whose pixels start as the same bytes. Every path must leave the first
// path's pixel bytes (or the reference's) and must not touch row padding or guards. Returns those bytes.
template <class Path, class Run>
Bytes ExpectPathsAgree(const std::string& what, int w, int h, int bpp, unsigned model,
                       std::initializer_list<Path> paths, Run&& run, const Bytes* reference = nullptr) {
    Bytes expected;
    int n = 0;
    for (Path path : paths) {
        Owned dest(BufferImage::Make(w, h, bpp, model, n % 4, n % 2 == 1));
        dest->FillRandom(99);
        Bytes start(PixelBytes(dest.Get()).size());  // zero where a reference was made on a fresh image
        std::mt19937 random(7);
        for (unsigned char& byte : start)
            byte = reference != nullptr ? 0 : static_cast<unsigned char>(random());
        SetPixelBytes(dest.Get(), start);
        const Bytes padding = PaddingOf(dest.Get());
        run(ReadImageView(dest.Get()), path);
        const Bytes bytes = PixelBytes(dest.Get());
        if (n++ == 0) expected = reference != nullptr ? *reference : bytes;
        EXPECT_EQ(bytes, expected) << what << ", path " << n - 1 << ", " << bpp << " bits " << w << "x" << h
                                   << "\n"
                                   << HexRows(bytes, qel::PixelsOf(dest.Get()).RowBytes()) << "expected\n"
                                   << HexRows(expected, qel::PixelsOf(dest.Get()).RowBytes());
        if (bytes != expected) return expected;
        EXPECT_EQ(PaddingOf(dest.Get()), padding) << what << " wrote into row padding";
        EXPECT_TRUE(dest->GuardsIntact()) << what;
    }
    return expected;
}

// Every filter path from one source; the general path first.
template <class Run>
Bytes ExpectFilterPaths(const std::string& what, BufferImage* source, Run&& run,
                        const Bytes* reference = nullptr) {
    const ImageView s = ReadImageView(source);
    const Bytes bytes = ExpectPathsAgree(
        what, s.width, s.height, s.bitCount, ModelFor(s.bitCount),
        {FilterPath::General, FilterPath::Fast, FilterPath::Baseline, FilterPath::Plain},
        [&](const ImageView& to, FilterPath path) { run(s, to, path); }, reference);
    EXPECT_TRUE(source->GuardsIntact());
    return bytes;
}

// ---- literal references: every neighbour visited one by one, columns outer ----

std::vector<uint32_t> Neighbours(IQEL* image, int x, int y, int size) {
    std::vector<uint32_t> colours;
    for (int i = 0; i < size; ++i)
        for (int j = 0; j < size; ++j) colours.push_back(ColourAt(image, x - size / 2 + i, y - size / 2 + j));
    return colours;
}

template <class ColourOf>
Bytes Reference(IQEL* source, ColourOf colourOf) {
    const qel::Pixels s = qel::PixelsOf(source);
    Owned dest(BufferImage::Make(s.width, s.height, s.bitCount, ModelFor(s.bitCount)));
    for (int y = 0; y < s.height; ++y)
        for (int x = 0; x < s.width; ++x) PutColour(dest.Get(), x, y, colourOf(x, y));
    return PixelBytes(dest.Get());
}

Bytes ReferenceConvolution(IQEL* src, const int* kernel, int size, int divisor, int offset) {
    return Reference(src, [&](int x, int y) {
        const std::vector<uint32_t> around = Neighbours(src, x, y, size);
        int sum[3] = {0, 0, 0};
        for (size_t n = 0; n < around.size(); ++n) {
            const int w = kernel[(n % size) * size + n / size];
            sum[0] += BlueOf(around[n]) * w, sum[1] += GreenOf(around[n]) * w, sum[2] += RedOf(around[n]) * w;
        }
        for (int& v : sum) v = ClampToByte((divisor != 0 ? v / divisor : v) + offset);
        return PackColor(sum[0], sum[1], sum[2], around.empty() ? 0 : AlphaOf(around.back()));
    });
}

Bytes ReferenceExtremum(IQEL* src, Extremum extremum, int size) {
    return Reference(src, [&](int x, int y) {
        int low[3] = {255, 255, 255}, high[3] = {0, 0, 0};
        const std::vector<uint32_t> around = Neighbours(src, x, y, size);
        for (uint32_t c : around) {
            const int ch[3] = {BlueOf(c), GreenOf(c), RedOf(c)};
            for (int k = 0; k < 3; ++k) low[k] = std::min(low[k], ch[k]), high[k] = std::max(high[k], ch[k]);
        }
        int out[3];
        for (int k = 0; k < 3; ++k)
            out[k] = extremum == Extremum::Minimum   ? low[k]
                     : extremum == Extremum::Maximum ? high[k]
                                                     : high[k] - low[k];
        return PackColor(out[0], out[1], out[2], around.empty() ? 0 : AlphaOf(around.back()));
    });
}

// The median must be a whole neighbour colour whose key has the middle rank.
void ExpectMedianRanks(IQEL* src, const Bytes& median, int size) {
    const qel::Pixels s = qel::PixelsOf(src);
    Owned out = ImageOf(s.width, s.height, s.bitCount, ModelFor(s.bitCount), median);
    const uint32_t mask = s.bitCount == 32 ? 0xFFFFFFFFu : 0x00FFFFFFu;
    for (int y = 0; y < s.height; ++y)
        for (int x = 0; x < s.width; ++x) {
            const std::vector<uint32_t> records = Neighbours(src, x, y, size);
            std::vector<int> keys;
            for (uint32_t c : records) keys.push_back(ColorKey(c));
            std::nth_element(keys.begin(), keys.begin() + keys.size() / 2, keys.end());
            const int key = keys[keys.size() / 2];
            const uint32_t chosen = ColourAt(out.Get(), x, y) & mask;
            ASSERT_TRUE(std::any_of(records.begin(), records.end(),
                                    [&](uint32_t c) { return ColorKey(c) == key && (c & mask) == chosen; }))
                << s.bitCount << " bits size " << size << " at " << x << "," << y;
        }
}

// ---- filters ----

TEST(FilterPaths, ConvolutionOfEveryDepthMatchesTheLiteralSum) {
    std::mt19937 random(5);
    const int shapes[][2] = {{1, 1}, {2, 3}, {17, 9}, {64, 33}};
    for (int bpp : {1, 4, 8, 24, 32})
        for (const auto& wh : shapes)
            for (int size : {1, 2, 3, 4, 5, 6, 7, 12, 0, -3}) {
                Owned src = Random(wh[0], wh[1], bpp, static_cast<uint32_t>(random()), 3, size == 4);
                std::vector<int> kernel(static_cast<size_t>(size > 0 ? size * size : 1));
                for (int& w : kernel) w = static_cast<int>(random() % 15) - 4;
                const int divisor = static_cast<int>(random() % 20) - 3;
                const int offset = static_cast<int>(random() % 60) - 30;
                const Bytes reference = ReferenceConvolution(src.Get(), kernel.data(), size, divisor, offset);
                ExpectFilterPaths(
                    "convolution size " + std::to_string(size), src.Get(),
                    [&](const ImageView& s, const ImageView& d, FilterPath p) {
                        ConvolveView(s, d, kernel.data(), size, divisor, offset, p);
                    },
                    &reference);
            }
}

TEST(FilterPaths, ConvolutionVectorStepsAroundTheirLimits) {
    struct Kernel {
        std::vector<int> weights;
        int size, divisor, offset;
    };
    std::vector<Kernel> kernels = {
        {{1, 1, 1, 1, 1, 1, 1, 1, 1}, 3, 9, 0},            // 16-bit sums, divided
        {{-1, -1, -1, -1, 15, -1, -1, -1, -1}, 3, 7, 0},   // negative sums
        {{0, 0, -1, 0, 0, 0, 1, 0, 0}, 3, 0, 127},         // no division, offset
        {{2, -3, 5, 1}, 2, 1, -20},                        // even size, divisor 1
        {{1, 2, 1, 2, 4, 2, 1, 2, 1}, 3, -1, 300},         // negative divisor
        {{128, 0, 0, 0, 0, 0, 0, 0, 1}, 3, 3, 0},          // sums just past 16 bits
        {{127, 1, -128, 0, 0, 0, 0, 0, 0}, 3, 2, -40000},  // offset past 16 bits
        {{-128, 0, 0, 0, 0, 0, 0, 0, 0}, 3, 255, 1},       // sum reaching -32640
        {{1, 2, 1, 2, 4, 2, 1, 2, 1}, 3, 16, 0},           // separable, summed down then across
    };
    // Separable 5 x 5 with negative and zero factors: (1, -2, 0, 3, 1) down, (2, 0, -1, 1, 1) across.
    Kernel outer{std::vector<int>(25), 5, 6, 10};
    const int column[5] = {1, -2, 0, 3, 1}, row[5] = {2, 0, -1, 1, 1};
    for (int n = 0; n < 25; ++n) outer.weights[n] = column[n / 5] * row[n % 5];
    kernels.push_back(outer);
    std::mt19937 random(11);
    for (int trial = 0; trial < 4; ++trial) {
        Kernel k{std::vector<int>(25), 5, static_cast<int>(random() % 300) - 20,
                 static_cast<int>(random() % 80) - 40};
        for (int& w : k.weights) w = static_cast<int>(random() % 11) - 5;
        kernels.push_back(k);
    }
    // Two-row images: every window of 3 x 3 and larger reaches above and below.
    for (int bpp : {8, 24, 32})
        for (int width : {1, 5, 16, 17, 18, 22, 33, 34, 35, 47, 70}) {
            Owned src = Random(width, width % 3 == 2 ? 2 : 6, bpp, random(), width % 3, width % 2 == 1);
            for (const Kernel& k : kernels)
                ExpectFilterPaths("convolution", src.Get(),
                                  [&](const ImageView& s, const ImageView& d, FilterPath p) {
                                      ConvolveView(s, d, k.weights.data(), k.size, k.divisor, k.offset, p);
                                  });
        }
    // White, striped and patterned images drive sums to both ends of their range,
    // where a multiply-high division or a power-of-two shift would first go wrong.
    for (int source = 0; source < 3; ++source) {
        Owned src = Random(source == 2 ? 45 : 40, source == 2 ? 4 : 5, 24, 1, 0, false);
        const qel::Pixels p = qel::PixelsOf(src.Get());
        for (int y = 0; y < p.height; ++y)
            for (size_t n = 0; n < p.RowBytes(); ++n)
                p.Row(y)[n] = source == 0   ? 255
                              : source == 1 ? (n % 7 == 0 ? 0 : 255)
                                            : static_cast<unsigned char>((n * 37 + y * 11) % 256);
        const int edge[9] = {16, 16, 16, 16, 0, -16, 16, 16, 16};
        for (int divisor = 2; divisor < 200; divisor += 7)
            ExpectFilterPaths("extreme sums", src.Get(),
                              [&](const ImageView& s, const ImageView& d, FilterPath path) {
                                  ConvolveView(s, d, edge, 3, divisor, 3, path);
                              });
        for (int m : {1, 2, 3}) {
            const int weights[9] = {1, m, 1, m, m * m, m, 1, m, 1};
            for (int divisor : {2, 4, 8, 16, 32, 64})
                ExpectFilterPaths("power-of-two divisor", src.Get(),
                                  [&](const ImageView& s, const ImageView& d, FilterPath path) {
                                      ConvolveView(s, d, weights, 3, divisor, 0, path);
                                  });
        }
    }
}

// Erode, Dilate, Edge (against the reference), Median (a neighbour of middle
// rank) and Contour of one source, each on every path.
enum Neighbourhoods { kExtremes = 1, kMedian = 2, kContour = 4 };
void ExpectNeighbourhoods(BufferImage* src, std::initializer_list<int> sizes, int which) {
    for (int size : sizes) {
        const std::string at = " size " + std::to_string(size);
        for (Extremum e : {Extremum::Minimum, Extremum::Maximum, Extremum::Range}) {
            if (!(which & kExtremes)) break;
            const Bytes reference = size > 0 ? ReferenceExtremum(src, e, size) : Bytes();
            ExpectFilterPaths(
                "extremum" + at, src,
                [&](const ImageView& s, const ImageView& d, FilterPath p) {
                    MorphologyView(s, d, e, size, p);
                },
                size > 0 ? &reference : nullptr);
        }
        if (which & kMedian) {
            const Bytes median = ExpectFilterPaths(
                "median" + at, src,
                [&](const ImageView& s, const ImageView& d, FilterPath p) { MedianView(s, d, size, p); });
            if (size > 0) ExpectMedianRanks(src, median, size);
        }
    }
    if (which & kContour)
        ExpectFilterPaths("contour", src, [&](const ImageView& s, const ImageView& d, FilterPath p) {
            ContourView(s, d, p);
        });
}

TEST(FilterPaths, NeighbourhoodsOfEveryDepthMatchTheirReferences) {
    std::mt19937 random(17);
    const int shapes[][2] = {{1, 1}, {2, 3}, {17, 9}, {64, 33}};
    for (int bpp : {1, 4, 8, 24, 32})
        for (const auto& wh : shapes) {
            Owned src = Random(wh[0], wh[1], bpp, random(), 3, wh[0] == 17);
            ExpectNeighbourhoods(src.Get(), {1, 2, 3, 4, 5, 6, 7, 12}, kExtremes | kMedian | kContour);
        }
}

TEST(FilterPaths, NeighbourhoodVectorStepsAndBorders) {
    std::mt19937 random(12);
    for (int bpp : {8, 24, 32}) {
        // Heights below the window make rows above and below the image take part.
        for (int width : {3, 16, 18, 21, 34, 50})
            for (int height : {1, 2, 7}) {
                Owned src = Random(width, height, bpp, random(), 2, width % 2 == 0);
                ExpectNeighbourhoods(src.Get(), {-1, 0, 1, 2, 3, 5, 8}, kExtremes);
            }
        // Nearly all border: every pixel meets outside columns, rows or both.
        for (int width = 1; width <= 5; ++width)
            for (int height = 1; height <= 4; ++height) {
                Owned src = Random(width, height, bpp, random(), 3, height % 2 == 0);
                ExpectNeighbourhoods(src.Get(), {2, 3, 4}, kExtremes);
            }
        // Windows wider than the rows the direct border holds.
        Owned wide = Random(67, 3, bpp, random(), 1, false);
        ExpectNeighbourhoods(wide.Get(), {64, 65}, kExtremes);
        // Few distinct keys make ties common: the choice among equal keys counts.
        for (int width : {1, 2, 3, 4, 5, 6, 17, 18, 19, 35, 37, 52, 70})
            for (int height : {1, 3, 5, 6, 9}) {
                Owned src = Random(width, height, bpp, random(), width % 4, height == 6, 0xC3);
                ExpectNeighbourhoods(src.Get(), {3, 2, 5}, kMedian);
            }
    }
    // Grey windows from 7 up take the column histograms: windows beyond the
    // image, even sizes, keys crowded into one coarse bin or spread over all.
    for (int width : {1, 2, 7, 16, 33, 70})
        for (int height : {1, 4, 9, 23})
            for (unsigned char keep : {0xFF, 0x0F, 0x81}) {
                Owned src = Random(width, height, 8, random(), width % 4, height == 4, keep);
                ExpectNeighbourhoods(src.Get(), {7, 8, 15, 40}, kMedian);
            }
}

TEST(FilterPaths, SizesFarBeyondTheImageReadOnlyInside) {
    Owned src = Random(5, 4, 24, 2, 1, false);
    Owned out(BufferImage::Make(5, 4, 24, QEL_MODEL_BGR, 1));
    // Nearly every neighbour is outside: the top-left colour's key is the median's.
    MedianView(ReadImageView(src.Get()), ReadImageView(out.Get()), 1 << 20, FilterPath::Fast);
    for (int x = 0; x < 5; ++x)
        EXPECT_EQ(ColorKey(ColourAt(out.Get(), x, 3)), ColorKey(ColourAt(src.Get(), 0, 0)));
    MorphologyView(ReadImageView(src.Get()), ReadImageView(out.Get()), Extremum::Maximum, 1 << 30,
                   FilterPath::Fast);
    EXPECT_EQ(PixelBytes(out.Get()),
              ReferenceExtremum(src.Get(), Extremum::Maximum, 9));  // 9 covers the image
    EXPECT_TRUE(out->GuardsIntact() && src->GuardsIntact());
}

// Rows of 64 lanes and more take the widest steps: weights grouped in 16-bit
// lanes, or 32-bit sums divided in single precision. Widths around whole and
// partial steps, the fixed kernels (gaussian levels 2 and 3 pass 16 bits),
// large signed weights with negative and huge divisors, on hard edges where
// sums clamp at both ends.
TEST(FilterPaths, ConvolutionWidestStepsOfEveryKernelKind) {
    struct Kernel {
        std::vector<int> weights;
        int size, divisor, offset;
    };
    std::vector<Kernel> kernels = {
        {{1, 4, 7, 4, 1, 4, 16, 26, 16, 4, 2, 26, 41, 26, 7, 4, 16, 26, 16, 4, 1, 4, 7, 4, 1}, 5, 273, 0},
        {{2, 4, 5, 4, 2, 4, 9, 12, 9, 4, 5, 12, 15, 12, 5, 4, 9, 12, 9, 4, 2, 4, 5, 4, 2}, 5, 159, 0},
        {{0, 1, 2, 1, 0, 1, 3, 4, 3, 1, 2, 4, 8, 4, 2, 1, 3, 4, 3, 1, 0, 1, 2, 1, 0}, 5, 52, 0},
        {{-1, -1, -1, -1, 15, -1, -1, -1, -1}, 3, 7, 0},
        {{1, 1, 1, 1, 8, 1, 1, 1, 1}, 3, 16, 0},
        {{0, 0, -1, 0, 0, 0, 1, 0, 0}, 3, 0, 127},
        {{3000, -32768, 20000, -1, 7, 0, 0, 2, -3}, 3, -4093, 77},  // largest weights, negative divisor
        {{300, 0, 0, 0, -300, 0, 0, 0, 300}, 3, 1, 2147483600},  // offset wrapping past INT_MAX
    };
    std::mt19937 random(23);
    Kernel large{std::vector<int>(49), 7, static_cast<int>(random() % 9000) - 4500, -90};
    for (int& w : large.weights) w = static_cast<int>(random() % 1200) - 600;
    kernels.push_back(large);
    for (int bpp : {8, 24, 32})
        for (int width : {18, 22, 25, 66, 67, 68, 69, 70, 71, 97, 135}) {
            for (int source = 0; source < 2; ++source) {
                Owned src = source == 0 ? HardEdges(width, 9, bpp)
                                        : Random(width, 6, bpp, random(), width % 4, width % 2 == 1);
                for (const Kernel& k : kernels)
                    ExpectFilterPaths("widest convolution size " + std::to_string(k.size), src.Get(),
                                      [&](const ImageView& s, const ImageView& d, FilterPath p) {
                                          ConvolveView(s, d, k.weights.data(), k.size, k.divisor, k.offset, p);
                                      });
            }
        }
}

// Contour lanes: widths around whole 16- and 64-lane steps, bytes drawn from
// few values so that comparisons tie, and the literal rule at every pixel.
TEST(FilterPaths, ContourLanesOfEveryWidth) {
    std::mt19937 random(31);
    for (int bpp : {8, 24, 32})
        for (int width : {3, 4, 7, 8, 18, 19, 22, 23, 66, 67, 68, 70, 131})
            for (unsigned char keep : {0xFF, 0xC1}) {
                Owned src = Random(width, 4, bpp, random(), width % 4, width % 2 == 0, keep);
                const Bytes reference = Reference(src.Get(), [&](int x, int y) {
                    const std::vector<uint32_t> around = Neighbours(src.Get(), x, y, 3);
                    const uint32_t centre = ColourAt(src.Get(), x, y);
                    int t[3] = {0, 0, 0};
                    for (uint32_t n : around) {
                        const int dn[3] = {BlueOf(n) - BlueOf(centre), GreenOf(n) - GreenOf(centre),
                                           RedOf(n) - RedOf(centre)};
                        const int nb[3] = {BlueOf(n), GreenOf(n), RedOf(n)};
                        for (int k = 0; k < 3; ++k)
                            if (dn[k] > t[k]) t[k] = nb[k];
                    }
                    return PackColor(255 - t[0], 255 - t[1], 255 - t[2], AlphaOf(centre));
                });
                ExpectFilterPaths(
                    "contour", src.Get(),
                    [&](const ImageView& s, const ImageView& d, FilterPath p) { ContourView(s, d, p); },
                    &reference);
            }
}

// ---- transforms ----

TEST(TransformPaths, SkewAndCircleOfEveryDepth) {
    for (int bpp : {1, 4, 8, 16, 24, 32})
        for (int alpha : {0, 1}) {
            Owned src(BufferImage::Make(13, 9, bpp, QEL_MODEL_ARGB, 3, bpp == 24));
            src->FillRandom(static_cast<uint32_t>(bpp + alpha));
            const ImageView s = ReadImageView(src.Get());
            const int outBpp = alpha ? 32 : bpp;
            const SkewParams skew{0.37f, -0.61f, 6, 2, alpha != 0};
            ExpectPathsAgree("skew", 13, 9, outBpp, 0, {PixelPath::General, PixelPath::Fast},
                             [&](const ImageView& d, PixelPath p) { SkewPixels(s, d, skew, p); });
            for (int mode : {0, 1, 2, 3, 4}) {
                const CircleParams circle{mode, alpha != 0, 0.7f};
                ExpectPathsAgree("circle mode " + std::to_string(mode), 13, 9, outBpp, 0,
                                 {PixelPath::General, PixelPath::Fast},
                                 [&](const ImageView& d, PixelPath p) { CirclePixels(s, d, circle, p); });
            }
        }
}

// Skew's 16-pixel rows: widths with and without a remainder, rows of 4 to 6
// bytes (the narrowest the gathers take), points beyond int and NaN, pivots
// far outside, and 32-bit sources whose own alpha is the outside marker 1.
TEST(TransformPaths, SkewRowsOfSixteen) {
    const float nan = std::nanf("");
    const SkewParams shears[] = {{0.37f, -0.61f, 6, 2, false},     {0.2f, 0.0f, 20, 11, false},
                                 {-3.5f, 0.05f, -40, 100, false},  {nan, 0.0f, 5, 5, false},
                                 {0.0f, nan, 5, 5, false},         {3e9f, 1e-3f, 1, 1, false},
                                 {0.01f, 7e8f, 1000000, -9, false}};
    for (int bpp : {8, 24, 32})
        for (auto [w, h] :
             {std::pair{37, 23}, std::pair{16, 5}, std::pair{50, 3}, std::pair{4, 40}, std::pair{2, 19}})
            for (int alpha : {0, 1}) {
                Owned src(BufferImage::Make(w, h, bpp, QEL_MODEL_ARGB, 2, bpp != 24));
                src->FillRandom(static_cast<uint32_t>(bpp + w));
                if (bpp == 32)
                    for (int y = 0; y < h; y += 2) src->Row(y)[4 * (y % w) + 3] = 1;
                const ImageView s = ReadImageView(src.Get());
                for (SkewParams shear : shears) {
                    shear.forceAlpha = alpha != 0;
                    ExpectPathsAgree("skew " + std::to_string(w) + "x" + std::to_string(h) + " gain " +
                                         std::to_string(shear.xGain) + "," + std::to_string(shear.yGain),
                                     w, h, alpha ? 32 : bpp, 0, {PixelPath::General, PixelPath::Fast},
                                     [&](const ImageView& d, PixelPath p) { SkewPixels(s, d, shear, p); });
                }
            }
}

// TransformPaste rounds half up without taking a floor: points a hair either
// side of the halves at both edges of the target, held to floor itself.
struct ListedColumns final : ITransform {
    std::vector<double> columns;
    QResult QueryInterface(const IID&, void** object) override {
        *object = nullptr;
        return QEL_E_NOINTERFACE;
    }
    uint32_t AddRef() override { return 2; }
    uint32_t Release() override { return 1; }
    QResult TransformPoint(double* x, double* y, double*) override {
        *x = columns[static_cast<size_t>(*x)];
        *y = *x / 3;
        return QEL_OK;
    }
};

TEST(TransformPaths, PasteRoundsHalfUpAtTheEdges) {
    ListedColumns map;
    const double below = std::nextafter(-0.5, -1.0), above = std::nextafter(-0.5, 0.0);
    for (double edge : {0.0, 6.0})  // the left edge, then the right (target width 7, offset -1)
        for (double v : {below, -0.5, above, 0.4999999999999999, 1.5, -1.5}) map.columns.push_back(edge + v);
    map.columns.push_back(std::nan(""));
    const int count = static_cast<int>(map.columns.size());
    Owned src(BufferImage::Make(count, 1, 32, QEL_MODEL_BGR));
    src->FillRandom(5);
    Owned dest(BufferImage::Make(7, 5, 32, QEL_MODEL_BGR, 1, true)),
        expected(BufferImage::Make(7, 5, 32, QEL_MODEL_BGR));
    TransformPastePixels(&map, ReadImageView(src.Get()), ReadImageView(dest.Get()), 1, 0, false);
    for (int x = 0; x < count; ++x) {
        const double X = map.columns[static_cast<size_t>(x)];
        const double dx = std::floor(1 + X + 0.5), dy = std::floor(X / 3 + 0.5);
        if (!(dx >= 0 && dy >= 0 && dx < 7 && dy < 5)) continue;
        for (auto [px, py] : {std::pair{dx, dy}, std::pair{dx + 1, dy}, std::pair{dx, dy + 1}})
            if (px < 7 && py < 5) PutColour(expected.Get(), int(px), int(py), ColourAt(src.Get(), x, 0));
    }
    EXPECT_EQ(PixelBytes(dest.Get()), PixelBytes(expected.Get()))
        << HexRows(PixelBytes(dest.Get()), 28) << "expected\n"
        << HexRows(PixelBytes(expected.Get()), 28);
}

// The kernels ask a row's points before drawing it; the caller's transform
// must still see each point once, in row order, with z 0, whatever it
// writes back (here a doubling that sends most points outside).
struct RecordedPoints final : ITransform {
    std::vector<std::array<double, 3>> asked;
    QResult QueryInterface(const IID&, void** object) override {
        *object = nullptr;
        return QEL_E_NOINTERFACE;
    }
    uint32_t AddRef() override { return 2; }
    uint32_t Release() override { return 1; }
    QResult TransformPoint(double* x, double* y, double* z) override {
        asked.push_back({*x, *y, *z});
        *x *= 2, *y *= 2, *z = 7;
        return QEL_OK;
    }
};

TEST(TransformPaths, TransformAsksEachPointOnceInRowOrder) {
    auto rowOrder = [](int columns, int rows, int xOffset, int yOffset) {
        std::vector<std::array<double, 3>> points;
        for (int y = 0; y < rows; ++y)
            for (int x = 0; x < columns; ++x)
                points.push_back({double(x + xOffset), double(y + yOffset), 0.0});
        return points;
    };
    for (int bpp : {8, 24, 32}) {
        Owned src(BufferImage::Make(5, 3, bpp, QEL_MODEL_BGR)),
            dest(BufferImage::Make(4, 2, bpp, QEL_MODEL_BGR));
        RecordedPoints map;
        TransformPixels(&map, ReadImageView(src.Get()), ReadImageView(dest.Get()), -2, 1);
        EXPECT_EQ(map.asked, rowOrder(4, 2, -2, 1)) << bpp;
        for (bool fillVoids : {false, true}) {
            map.asked.clear();
            TransformPastePixels(&map, ReadImageView(src.Get()), ReadImageView(dest.Get()), 3, 3, fillVoids);
            // 8 bits never paste, nor ask about, the last source column.
            EXPECT_EQ(map.asked, rowOrder(bpp == 8 ? 4 : 5, 3, 0, 0)) << bpp;
        }
    }
}

// Folding draws whole runs per row: widths beyond two 32-column blocks, so
// that runs fold onto columns past the right edge, and a height taller than
// wide, so that whole rows lie outside the circle.
TEST(TransformPaths, FoldRunsOfEveryDepth) {
    for (int bpp : {1, 8, 24, 32})
        for (int alpha : {0, 1})
            for (auto [w, h] : {std::pair{77, 41}, std::pair{70, 3}, std::pair{3, 70}, std::pair{1, 1}}) {
                Owned src(BufferImage::Make(w, h, bpp, QEL_MODEL_ARGB, 1, bpp == 8));
                src->FillRandom(static_cast<uint32_t>(bpp * 3 + alpha));
                const ImageView s = ReadImageView(src.Get());
                const CircleParams fold{5, alpha != 0, 1.0f};
                ExpectPathsAgree("fold " + std::to_string(w) + "x" + std::to_string(h), w, h,
                                 alpha ? 32 : bpp, 0, {PixelPath::General, PixelPath::Fast},
                                 [&](const ImageView& d, PixelPath p) { CirclePixels(s, d, fold, p); });
            }
}

// Enlarging by whole and odd factors, one axis shrinking while the other
// grows, images barely larger than the 12-tap window, widths leaving a partial
// group of eight; whole ratios repeat weight sets (kept column x row
// products), 30 x 13 to 60 x 75 has more kinds of row than are kept.
TEST(TransformPaths, KernelGridLanesGiveTheScalarBytes) {
    QEL_NEEDS_TIER(SimdTier::Avx2);
    const int cases[][4] = {{13, 11, 26, 22},  {40, 37, 83, 75}, {17, 29, 51, 30}, {64, 9, 23, 40},
                            {12, 12, 29, 31},  {5, 7, 19, 17},   {33, 20, 80, 20}, {9, 40, 20, 117},
                            {50, 30, 100, 60}, {31, 26, 93, 78}, {21, 20, 84, 80}, {30, 13, 60, 75},
                            {31, 23, 70, 61},  {31, 23, 62, 46}};
    uint32_t seed = 1;
    for (int bpp : {24, 32})
        for (const auto& c : cases) {
            // The last two read hard edges: weights above one clamp at 255, lobes beside black at 0.
            const bool edges = c[2] == 70 || c[2] == 62;
            Owned src =
                edges ? HardEdges(c[0], c[1], bpp) : Random(c[0], c[1], bpp, seed, seed % 3, seed % 2);
            ++seed;
            const ImageView s = ReadImageView(src.Get());
            for (int method = 2; method <= 15; ++method)
                ExpectPathsAgree("grid method " + std::to_string(method), c[2], c[3], bpp, QEL_MODEL_BGR,
                                 {SimdTier::Scalar, SimdTier::Avx2}, [&](const ImageView& d, SimdTier lanes) {
                                     InterpolateGrid(s, d, float(c[0]) / float(c[2]),
                                                     float(c[1]) / float(c[3]), method, lanes);
                                 });
            EXPECT_TRUE(src->GuardsIntact());
        }
}

// Turns about the centre as Rotate keeps the size, frames larger and smaller
// than the source, partial groups of eight, images barely wider than the
// margin, and hard edges; into the source's depth and into 32 bits.
TEST(TransformPaths, TurnDrawingLanesGiveTheScalarBytes) {
    QEL_NEEDS_TIER(SimdTier::Avx2);
    const int cases[][6] = {{37, 29, 37, 29, 30, 1}, {40, 40, 57, 57, 45, 0},  {13, 31, 31, 13, -75, 1},
                            {9, 9, 9, 9, 10, 1},     {64, 21, 70, 50, 137, 0}, {23, 50, 23, 50, 200, 1},
                            {8, 8, 12, 12, 3, 1},    {51, 17, 19, 41, -33, 0}, {33, 27, 33, 27, 21, 1}};
    uint32_t seed = 1;
    for (int bpp : {24, 32})
        for (const auto& c : cases) {
            Owned src =
                c[0] == 33 ? HardEdges(33, 27, bpp) : Random(c[0], c[1], bpp, seed, seed % 3, seed % 2);
            ++seed;
            const float theta = -static_cast<float>(c[4]) * 1.5707964f / 90.0f;
            TurnGeometry turn;
            turn.k = static_cast<float>(std::cos(static_cast<double>(theta)));
            turn.s = static_cast<float>(std::sin(static_cast<double>(theta)));
            turn.aboutCentre = c[5] != 0;
            turn.startX = (turn.aboutCentre ? 0.0f : 3.25f) - static_cast<float>(c[2]) * 0.5f;
            turn.startY = turn.aboutCentre ? -static_cast<float>(c[3]) * 0.5f : 1.5f;
            for (int destBpp : {bpp, 32})
                for (int method = 0; method <= 15; ++method)
                    ExpectPathsAgree("turn " + std::to_string(c[4]) + " method " + std::to_string(method),
                                     c[2], c[3], destBpp, QEL_MODEL_BGR, {SimdTier::Scalar, SimdTier::Avx2},
                                     [&](const ImageView& d, SimdTier lanes) {
                                         DrawTurned(ReadImageView(src.Get()), d, turn, method, lanes);
                                     });
        }
}

// Rows of every width up to 60 output pixels, from a 2-row source that ends
// at its guards; four bytes of 255 sum to 1020, the most a 16-bit lane holds here.
TEST(TransformPaths, HalvingRowsGiveTheScalarBytes) {
    QEL_NEEDS_TIER(SimdTier::Ssse3);
    uint32_t seed = 3;
    for (int bytes : {1, 3, 4})
        for (int width = 1; width <= 60; ++width)
            for (unsigned char keep : {0xFF, 0x01}) {
                Owned src = Random(2 * width, 2, 8 * bytes, seed, 0, seed % 2 == 1);
                ++seed;
                // The extremes: first bytes sum 1 + 0 + 1 + 1 (truncated to 0), the others 4 x 255; alpha
                // stays.
                for (int n = 0; n < 2 * width * bytes && keep == 0x01; ++n) {
                    const bool first = n % bytes == 0;
                    src->Row(0)[n] = first ? (n / bytes % 2 ? 0 : 1) : 255;
                    src->Row(1)[n] = first ? 1 : 255;
                }
                std::vector<ptrdiff_t> starts(static_cast<size_t>(width));
                for (int x = 0; x < width; ++x) starts[size_t(x)] = ptrdiff_t{2} * x * bytes;
                ASSERT_TRUE(BlocksFollowEachOther(starts.data(), width, bytes));
                Bytes expected(static_cast<size_t>(width) * bytes, 0x5A), actual = expected;
                HalveRow(src->Row(0), src->Row(1), starts.data(), expected.data(), width, bytes,
                         SimdTier::Scalar);
                HalveRow(src->Row(0), src->Row(1), starts.data(), actual.data(), width, bytes,
                         SimdTier::Ssse3);
                ASSERT_EQ(actual, expected) << bytes << " bytes, width " << width;
                for (size_t n = 0; n < expected.size() && keep == 0x01; ++n)
                    ASSERT_EQ(expected[n], n % bytes == 0   ? 0
                                           : n % bytes == 3 ? 0x5A
                                                            : 255)
                        << bytes << " bytes, width " << width;
                EXPECT_TRUE(src->GuardsIntact());
            }
    const ptrdiff_t overlapping[] = {0, 3, 6}, skipping[] = {0, 6, 15};
    EXPECT_FALSE(BlocksFollowEachOther(overlapping, 3, 3));
    EXPECT_FALSE(BlocksFollowEachOther(skipping, 3, 3));
}

// 24-bit Mirror stores four pixels a step, past the step: every width 1-40.
TEST(TransformPaths, MirrorRowsOfEveryWidth) {
    for (int width = 1; width <= 40; ++width) {
        Owned src = Random(width, 1 + width % 3, 24, width, width % 4, width % 2);
        SmartPtr<IQEL> mirrored;
        ASSERT_EQ(Transform()->Mirror(src.Get(), mirrored.Out()), QEL_OK);
        for (int y = 0; y < 1 + width % 3; ++y)
            for (int x = 0; x < width; ++x)
                ASSERT_EQ(ColourAt(mirrored.Get(), x, y), ColourAt(src.Get(), width - 1 - x, y)) << width;
        EXPECT_TRUE(src->GuardsIntact());
    }
}

// ---- colour: the byte-wise maps against a walk through the pixel helpers ----

template <class Map>
void ExpectMapMatchesPixelHelpers(const Map& map) {
    const int sizes[][2] = {{1, 1}, {2, 1}, {1, 3}, {5, 2}, {9, 4}, {17, 3}, {33, 2}};
    for (int bpp : {1, 4, 8, 16, 24, 25, 32})
        for (const auto& size : sizes)
            for (int padding : {0, 3}) {
                const int w = size[0], h = size[1];
                const uint32_t seed = static_cast<uint32_t>(bpp * 1000 + w * 10 + h);
                Owned fast = Random(w, h, bpp, seed, padding, padding == 0),
                      plain = Random(w, h, bpp, seed, padding, padding == 0);
                color::MapPixels(ReadImageView(fast.Get()), map);
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x) {
                        const uint32_t c = ColourAt(plain.Get(), x, y);
                        unsigned char bgr[3] = {(unsigned char)BlueOf(c), (unsigned char)GreenOf(c),
                                                (unsigned char)RedOf(c)};
                        map(bgr);
                        PutColour(plain.Get(), x, y, PackColor(bgr[0], bgr[1], bgr[2], AlphaOf(c)));
                    }
                ASSERT_EQ(fast->Snapshot(), plain->Snapshot()) << bpp << " bits " << w << "x" << h;
            }
}

TEST(ColourPaths, ByteWiseMapsMatchThePixelHelpers) {
    ExpectMapMatchesPixelHelpers(color::ChannelShift(37, -20, 5));
    ExpectMapMatchesPixelHelpers(color::BlackWhiteThreshold(100));
    ExpectMapMatchesPixelHelpers(color::ColorizeTint(200, 255, 0.7f));
    ExpectMapMatchesPixelHelpers(color::ColorizeTint(13, 90, 1.0f));
}

// ---- colour: grey rows and byte tables, each tier's lanes against one pixel at a time ----

// The grey and table lanes of one tier: SSSE3 grey rows, AVX2 table rows,
// and at AVX-512 the VBMI grey and table rows.
class ColourLanes : public testing::TestWithParam<SimdTier> {};

TEST_P(ColourLanes, GreyRowsAndByteTablesOfEveryWidth) {
    const SimdTier tier = GetParam();
    QEL_NEEDS_TIER(tier);
    unsigned char table[256];  // every output differs from its index and its neighbours' outputs
    for (int i = 0; i < 256; ++i) table[i] = static_cast<unsigned char>(i * 167 + 91);
    uint32_t seed = 7;
    for (int bpp : {8, 24, 32})
        for (int width = 1; width <= 72; ++width, ++seed) {
            const int height = 1 + width % 5;
            Owned src = Random(width, height, bpp, seed, seed % 4, seed % 2 == 1);
            const ImageView s = ReadImageView(src.Get());
            if (bpp != 8 && tier != SimdTier::Avx2)
                ExpectPathsAgree(
                    "grey", width, height, bpp, QEL_MODEL_BGR, {SimdTier::Scalar, tier},
                    [&](const ImageView& d, SimdTier lanes) { color::WriteGreyInto(s, d, lanes); });
            if (tier != SimdTier::Ssse3)
                ExpectPathsAgree(
                    "byte table", width, height, bpp, QEL_MODEL_BGR, {SimdTier::Scalar, tier},
                    [&](const ImageView& d, SimdTier lanes) { color::ApplyByteTable(d, table, lanes); });
        }
}

// One pixel per channel sum 0..765: the multiply standing for the division by
// three gives the exact third of each, alpha carried through at 32 bits.
class GreyLanes : public testing::TestWithParam<SimdTier> {};

TEST_P(GreyLanes, EveryChannelSumGreysToItsExactThird) {
    const SimdTier tier = GetParam();
    QEL_NEEDS_TIER(tier);
    for (int bytes : {3, 4}) {
        Owned src(BufferImage::Make(766, 1, 8 * bytes, QEL_MODEL_BGR));
        Bytes thirds;
        for (int sum = 0; sum < 766; ++sum) {
            unsigned char* pixel = src->Row(0) + sum * bytes;
            pixel[0] = static_cast<unsigned char>(std::min(sum, 255));
            pixel[1] = static_cast<unsigned char>(std::min(std::max(sum - 255, 0), 255));
            pixel[2] = static_cast<unsigned char>(std::max(sum - 510, 0));
            thirds.insert(thirds.end(), 3, static_cast<unsigned char>(sum / 3));
            if (bytes == 4) thirds.push_back(pixel[3] = static_cast<unsigned char>(sum * 7));
        }
        const ImageView s = ReadImageView(src.Get());
        ExpectPathsAgree(
            "grey thirds", 766, 1, 8 * bytes, QEL_MODEL_BGR, {SimdTier::Scalar, tier},
            [&](const ImageView& d, SimdTier lanes) { color::WriteGreyInto(s, d, lanes); }, &thirds);
    }
}

std::string TierName(const testing::TestParamInfo<SimdTier>& tier) { return SimdTierName(tier.param); }
INSTANTIATE_TEST_SUITE_P(Tiers, ColourLanes,
                         testing::Values(SimdTier::Ssse3, SimdTier::Avx2, SimdTier::Avx512), TierName);
INSTANTIATE_TEST_SUITE_P(Tiers, GreyLanes, testing::Values(SimdTier::Ssse3, SimdTier::Avx512), TierName);

// The cap: each name lowers the processor's tier to itself and never raises
// it; unknown values and no value leave it alone.
TEST(SimdCap, NamesLowerTheTierAndNothingElseChangesIt) {
    EXPECT_EQ(CapSimdTier(SimdTier::Avx512, "scalar"), SimdTier::Scalar);
    EXPECT_EQ(CapSimdTier(SimdTier::Avx512, "sse2"), SimdTier::Sse2);
    EXPECT_EQ(CapSimdTier(SimdTier::Avx512, "ssse3"), SimdTier::Ssse3);
    EXPECT_EQ(CapSimdTier(SimdTier::Avx512, "avx2"), SimdTier::Avx2);
    EXPECT_EQ(CapSimdTier(SimdTier::Avx512, "avx512"), SimdTier::Avx512);
    EXPECT_EQ(CapSimdTier(SimdTier::Ssse3, "avx512"), SimdTier::Ssse3);
    EXPECT_EQ(CapSimdTier(SimdTier::Avx512, "AVX2"), SimdTier::Avx512);
    EXPECT_EQ(CapSimdTier(SimdTier::Avx2, "sse"), SimdTier::Avx2);
    EXPECT_EQ(CapSimdTier(SimdTier::Avx2, ""), SimdTier::Avx2);
    EXPECT_EQ(CapSimdTier(SimdTier::Avx2, nullptr), SimdTier::Avx2);
    EXPECT_LE(ActiveSimdTier(), ProcessorSimdTier());
    // CI compares this line with the tier it expects of the processor and cap.
    std::printf("vector tier in use: %s\n", SimdTierName(ActiveSimdTier()));
}

}  // namespace
