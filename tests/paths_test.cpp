// Fast, vector and general paths of the pixel kernels give the same bytes on
// random images of every depth, odd sizes, padded and bottom-up rows, and on
// the hard cases of each (clamped sums, ties, windows beyond the image).
// Filters are also held to a literal neighbour-by-neighbour reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <tuple>

#include "color/color_kernels.h"
#include "filter/filter_kernels.h"
#include "filter/median_algorithms.h"
#include "image/image_view.h"
#include "support/component_test.h"
#include "transform/circle_kernel.h"
#include "transform/depth.h"
#include "transform/resample_box.h"
#include "transform/resample_grid.h"
#include "transform/rotate_drawing.h"
#include "transform/skew_quad.h"
#include "transform/warp_kernels.h"

namespace {

using namespace qeltest;
using Owned = SmartPtr<BufferImage>;

// Words and numbers joined by spaces: the row a failure message names.
template <class... Parts>
std::string Named(const Parts&... parts) {
    std::ostringstream text;
    ((text << parts << ' '), ...);
    return text.str();
}

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
// to 3, every other one bottom-up) whose pixels start as the same bytes. Every
// path must leave the first path's pixel bytes (or the reference's) and must
// not touch row padding or guards. Returns those bytes.
template <class Path, class Run>
Bytes ExpectPathsAgree(const std::string& what, int w, int h, int bpp, unsigned model,
                       std::initializer_list<Path> paths, Run&& run, const Bytes* reference = nullptr) {
    Bytes expected = reference != nullptr ? *reference : Bytes();
    Bytes start(
        static_cast<size_t>((w * bpp + 7) / 8 * h));  // zero where a reference was made on a fresh image
    std::mt19937 random(7);
    if (reference == nullptr) std::generate(start.begin(), start.end(), std::ref(random));
    int n = 0;
    for (Path path : paths) {
        SCOPED_TRACE(Named(what, "path", n, "of", bpp, "bits", w, "x", h));
        Owned dest = ImageOf(w, h, bpp, model, start, n % 4, n % 2 == 1);
        const Bytes padding = PaddingOf(dest.Get());
        run(ReadImageView(dest.Get()), path);
        if (n++ == 0 && reference == nullptr) expected = PixelBytes(dest.Get());
        ExpectPixels(dest.Get(), expected);
        EXPECT_EQ(PaddingOf(dest.Get()), padding) << "wrote into row padding";
        if (testing::Test::HasFailure()) break;
    }
    return expected;
}

// ---- filters ----

// Every filter path from one source; the general path first.
template <class Run>
Bytes ExpectFilterPaths(const std::string& what, BufferImage* source, Run&& run,
                        const Bytes* reference = nullptr) {
    const ImageView s = ReadImageView(source);
    const Bytes bytes = ExpectPathsAgree(
        what, s.width, s.height, s.bitCount, ModelFor(s.bitCount),
        {FilterPath::General, FilterPath::Fast, FilterPath::Baseline, FilterPath::Plain}, run, reference);
    EXPECT_TRUE(source->GuardsIntact());
    return bytes;
}

struct Kernel {
    std::vector<int> weights;  // size x size, row by row
    int size, divisor, offset;
};

void ExpectConvolution(BufferImage* source, const Kernel& k, const Bytes* reference = nullptr) {
    const ImageView s = ReadImageView(source);
    ExpectFilterPaths(
        Named("convolution size", k.size, "divisor", k.divisor, "offset", k.offset), source,
        [&](const ImageView& d, FilterPath p) {
            ConvolveView(s, d, k.weights.data(), k.size, k.divisor, k.offset, p);
        },
        reference);
}

// ---- literal references: every neighbour visited one by one, columns outer ----

int Channel(uint32_t colour, int k) { return static_cast<int>((colour >> (8 * k)) & 0xFF); }

std::vector<uint32_t> Neighbours(IQEL* image, int x, int y, int size) {
    std::vector<uint32_t> colours;
    for (int i = 0; i < size; ++i)
        for (int j = 0; j < size; ++j) colours.push_back(ColourAt(image, x - size / 2 + i, y - size / 2 + j));
    return colours;
}

// An image of the source's size and depth whose pixel (x, y) has the channels
// `channel(around, k)` of its neighbourhood and the alpha of its centre or of
// its last neighbour.
template <class ChannelOf>
Bytes Reference(IQEL* source, int size, bool centreAlpha, ChannelOf channel) {
    const qel::Pixels s = qel::PixelsOf(source);
    Owned dest(BufferImage::Make(s.width, s.height, s.bitCount, ModelFor(s.bitCount)));
    for (int y = 0; y < s.height; ++y)
        for (int x = 0; x < s.width; ++x) {
            const std::vector<uint32_t> around = Neighbours(source, x, y, size);
            const uint32_t alpha =
                around.empty() ? 0 : around[centreAlpha ? around.size() / 2 : around.size() - 1];
            PutColour(dest.Get(), x, y,
                      PackColor(channel(around, 0), channel(around, 1), channel(around, 2), AlphaOf(alpha)));
        }
    return PixelBytes(dest.Get());
}

Bytes ReferenceConvolution(IQEL* src, const Kernel& k) {
    return Reference(src, k.size, false, [&](const std::vector<uint32_t>& around, int channel) {
        int sum = 0;
        for (size_t n = 0; n < around.size(); ++n)
            sum += Channel(around[n], channel) * k.weights[(n % k.size) * k.size + n / k.size];
        return ClampToByte((k.divisor != 0 ? sum / k.divisor : sum) + k.offset);
    });
}

Bytes ReferenceExtremum(IQEL* src, Extremum extremum, int size) {
    return Reference(src, size, false, [&](const std::vector<uint32_t>& around, int channel) {
        int low = 255, high = 0;
        for (uint32_t c : around) {
            low = std::min(low, Channel(c, channel));
            high = std::max(high, Channel(c, channel));
        }
        return extremum == Extremum::Minimum ? low : extremum == Extremum::Maximum ? high : high - low;
    });
}

// 255 less the last neighbour (columns outer) that exceeds the centre by more than the one before.
Bytes ReferenceContour(IQEL* src) {
    return Reference(src, 3, true, [&](const std::vector<uint32_t>& around, int channel) {
        int t = 0;
        for (uint32_t n : around)
            if (Channel(n, channel) - Channel(around[4], channel) > t) t = Channel(n, channel);
        return 255 - t;
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

// Random sources of every depth x width x height x byte mask (`keep` masks
// every byte: few distinct values make ties), or hard edges; padding and
// bottom-up rows vary from one source to the next.
struct Sources {
    std::vector<int> depths, widths, heights;
    std::vector<unsigned char> keeps = {0xFF};
    bool edges = false;
};

template <class Check>
void ForEachSource(const Sources& sources, Check&& check) {
    int n = 0;
    for (int bpp : sources.depths)
        for (int width : sources.widths)
            for (int height : sources.heights)
                for (unsigned char keep : sources.keeps) {
                    ++n;
                    Owned src = sources.edges
                                    ? HardEdges(width, height, bpp)
                                    : Random(width, height, bpp, 7919u * n + width, n % 4, n % 3 == 1, keep);
                    check(src.Get());
                    EXPECT_TRUE(src->GuardsIntact());
                    if (testing::Test::HasFailure()) return;
                }
}

std::vector<int> Span(int from, int to) {
    std::vector<int> values;
    for (int v = from; v <= to; ++v) values.push_back(v);
    return values;
}

// Convolve by a random kernel and Contour against their references, Erode,
// Dilate, Edge (against the reference), Median (a neighbour of middle rank,
// and the 32- and 16-lane steps of the small windows, which the widest tier
// passes by) of one source, each on every path.
enum Filters { kConvolution = 1, kExtremes = 2, kMedian = 4, kContour = 8, kEveryFilter = 15 };
void ExpectFilters(BufferImage* src, const std::vector<int>& sizes, int which) {
    const ImageView source = ReadImageView(src);
    std::mt19937 random(static_cast<uint32_t>(source.width * 131 + source.height + source.bitCount));
    for (int size : sizes) {
        if (which & kConvolution) {
            Kernel k{std::vector<int>(size > 0 ? size * size : 1), size, static_cast<int>(random() % 20) - 3,
                     static_cast<int>(random() % 60) - 30};
            for (int& w : k.weights) w = static_cast<int>(random() % 15) - 4;
            const Bytes reference = ReferenceConvolution(src, k);
            ExpectConvolution(src, k, &reference);
        }
        for (Extremum e : {Extremum::Minimum, Extremum::Maximum, Extremum::Range}) {
            if (!(which & kExtremes)) break;
            const Bytes reference = size > 0 ? ReferenceExtremum(src, e, size) : Bytes();
            ExpectFilterPaths(
                Named("extremum", static_cast<int>(e), "size", size), src,
                [&](const ImageView& d, FilterPath p) { MorphologyView(source, d, e, size, p); },
                size > 0 ? &reference : nullptr);
        }
        if (!(which & kMedian)) continue;
        const Bytes median =
            ExpectFilterPaths(Named("median size", size), src,
                              [&](const ImageView& d, FilterPath p) { MedianView(source, d, size, p); });
        if (size > 0) ExpectMedianRanks(src, median, size);
        for (SimdTier cap : {SimdTier::Sse2, SimdTier::Avx2})
            if ((size == 3 || size == 5) && source.bitCount >= 8 && SimdRuns(cap))
                ExpectPathsAgree(
                    Named("median", size, "up to", SimdTierName(cap)), source.width, source.height,
                    source.bitCount, ModelFor(source.bitCount), {FilterPath::Fast},
                    [&](const ImageView& d, FilterPath p) {
                        EXPECT_TRUE(MedianSmallWindow(source, d, size, p, cap));
                    },
                    &median);
    }
    if (!(which & kContour)) return;
    const Bytes reference = ReferenceContour(src);
    ExpectFilterPaths(
        "contour", src, [&](const ImageView& d, FilterPath p) { ContourView(source, d, p); }, &reference);
}

// Each row: its sources, the window sizes, the filters.
TEST(FilterPaths, NeighbourhoodsMatchTheirReferencesOnEveryPath) {
    const std::vector<int> every = {1, 2, 3, 4, 5, 6, 7, 12, 0, -3};
    const std::tuple<Sources, std::vector<int>, int> rows[] = {
        // Every depth, size and filter on odd shapes, against the references.
        {{{1, 4, 8, 24, 32}, {1, 2, 17}, {1, 3, 9}}, every, kEveryFilter},
        {{{1, 4, 8, 24, 32}, {64}, {33}}, every, kEveryFilter},
        // Heights below the window make rows above and below the image take part.
        {{{8, 24, 32}, {3, 16, 18, 21, 34, 50}, {1, 2, 7}}, {-1, 0, 1, 2, 3, 5, 8}, kExtremes},
        // Nearly all border: every pixel meets outside columns, rows or both.
        {{{8, 24, 32}, {1, 2, 3, 4, 5}, {1, 2, 3, 4}}, {2, 3, 4}, kExtremes},
        // Windows wider than the rows the direct border holds.
        {{{8, 24, 32}, {67}, {3}}, {64, 65}, kExtremes},
        // Ties: the choice among equal keys counts.
        {{{8, 24, 32}, {1, 2, 3, 4, 5, 6, 17, 18, 19, 35, 37, 52, 70}, {1, 3, 5, 6, 9}, {0xC3}},
         {3, 2, 5},
         kMedian},
        // Grey windows from 7 up take the column histograms: windows beyond the
        // image, even sizes, keys crowded into one coarse bin or spread over all.
        {{{8}, {1, 2, 7, 16, 33, 70}, {1, 4, 9, 23}, {0xFF, 0x0F, 0x81}}, {7, 8, 15, 40}, kMedian},
        // Medians of 3 and 5 around the 64-lane steps and the 16-pixel copies:
        // one step and a partial one, rows ending just past a step.
        {{{8, 24, 32}, {20, 34, 63, 64, 65, 70, 83, 130}, {3, 6}, {0xFF, 0xC3}}, {3, 5}, kMedian},
        // Contour lanes around whole 16- and 64-lane steps, comparisons that tie.
        {{{8, 24, 32}, {3, 4, 7, 8, 18, 19, 22, 23, 66, 67, 68, 70, 131}, {4}, {0xFF, 0xC1}}, {}, kContour},
    };
    for (const auto& row : rows)
        ForEachSource(std::get<0>(row),
                      [&](BufferImage* src) { ExpectFilters(src, std::get<1>(row), std::get<2>(row)); });
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
    ExpectPixels(out.Get(), ReferenceExtremum(src.Get(), Extremum::Maximum, 9));  // 9 covers the image
    EXPECT_TRUE(src->GuardsIntact());
}

// Kernels at the limits of the vector steps (16-bit sums, weights grouped in
// 16-bit lanes, 32-bit sums divided in single precision) on rows around whole
// and partial steps of 16, 32 and 64 lanes, random and hard-edged so that
// sums clamp at both ends; two-row images, where every window of 3 x 3 and
// larger reaches above and below.
TEST(FilterPaths, ConvolutionVectorStepsAtTheirLimits) {
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
        {{1, 1, 1, 1, 8, 1, 1, 1, 1}, 3, 16, 0},
        {{3000, -32768, 20000, -1, 7, 0, 0, 2, -3}, 3, -4093, 77},  // largest weights, negative divisor
        {{300, 0, 0, 0, -300, 0, 0, 0, 300}, 3, 1, 2147483600},     // offset wrapping past INT_MAX
        // Separable with negative and zero factors: (1, -2, 0, 3, 1) down, (2, 0, -1, 1, 1) across.
        {{2, 0, -1, 1, 1, -4, 0, 2, -2, -2, 0, 0, 0, 0, 0, 6, 0, -3, 3, 3, 2, 0, -1, 1, 1}, 5, 6, 10},
        // The fixed gaussians: levels 2 and 3 pass 16 bits.
        {{1, 4, 7, 4, 1, 4, 16, 26, 16, 4, 2, 26, 41, 26, 7, 4, 16, 26, 16, 4, 1, 4, 7, 4, 1}, 5, 273, 0},
        {{2, 4, 5, 4, 2, 4, 9, 12, 9, 4, 5, 12, 15, 12, 5, 4, 9, 12, 9, 4, 2, 4, 5, 4, 2}, 5, 159, 0},
        {{0, 1, 2, 1, 0, 1, 3, 4, 3, 1, 2, 4, 8, 4, 2, 1, 3, 4, 3, 1, 0, 1, 2, 1, 0}, 5, 52, 0},
    };
    std::mt19937 random(11);
    for (int trial = 0; trial < 5; ++trial) {  // random weights; the last large, with huge divisors
        const bool large = trial == 4;
        const int size = large ? 7 : 5, spread = large ? 600 : 5;
        Kernel k{std::vector<int>(size * size), size,
                 static_cast<int>(random() % (large ? 9000 : 300)) - (large ? 4500 : 20),
                 static_cast<int>(random() % 80) - 40};
        for (int& w : k.weights) w = static_cast<int>(random() % (2 * spread + 1)) - spread;
        kernels.push_back(k);
    }
    const std::vector<int> widest = {18, 22, 25, 66, 67, 68, 69, 70, 71, 97, 135};
    for (const Sources& sources :
         {Sources{{8, 24, 32}, {1, 5, 16, 17, 33, 34, 35, 47}, {2, 6}}, Sources{{8, 24, 32}, widest, {2, 6}},
          Sources{{8, 24, 32}, widest, {9}, {0xFF}, true}})
        ForEachSource(sources, [&](BufferImage* src) {
            for (const Kernel& k : kernels) ExpectConvolution(src, k);
        });
    // White, striped and patterned images drive sums to both ends of their range,
    // where a multiply-high division or a power-of-two shift would first go wrong.
    Owned extremes[] = {Uniform(40, 5, 24, 0xFFFFFF), HardEdges(40, 5, 24), Random(45, 4, 24, 3)};
    for (Owned& src : extremes) {
        for (int divisor = 2; divisor < 200; divisor += 7)
            ExpectConvolution(src.Get(), {{16, 16, 16, 16, 0, -16, 16, 16, 16}, 3, divisor, 3});
        for (int m : {1, 2, 3})
            for (int divisor : {2, 4, 8, 16, 32, 64})
                ExpectConvolution(src.Get(), {{1, m, 1, m, m * m, m, 1, m, 1}, 3, divisor, 0});
    }
}

// ---- transforms ----

// Skew and the circle remaps (folding from mode 4) of every depth, with and
// without added alpha: Skew's 16-pixel rows with and without a remainder, rows
// of 4 to 6 bytes (the narrowest its gathers take), points beyond int and NaN,
// pivots far outside; folded runs beyond two 32-column blocks and whole rows
// outside the circle; 32-bit sources whose own alpha is the outside marker 1.
TEST(TransformPaths, SkewAndCircleOfEveryDepth) {
    const float nan = std::nanf("");
    const SkewParams shears[] = {{0.37f, -0.61f, 6, 2, false},     {0.2f, 0.0f, 20, 11, false},
                                 {-3.5f, 0.05f, -40, 100, false},  {nan, 0.0f, 5, 5, false},
                                 {0.0f, nan, 5, 5, false},         {3e9f, 1e-3f, 1, 1, false},
                                 {0.01f, 7e8f, 1000000, -9, false}};
    const int shapes[][2] = {{13, 9}, {37, 23}, {16, 5}, {50, 3}, {4, 40},
                             {2, 19}, {77, 41}, {70, 3}, {3, 70}, {1, 1}};
    int n = 0;
    for (int bpp : {1, 4, 8, 16, 24, 32})
        for (const auto& wh : shapes)
            for (bool alpha : {false, true}) {
                const int w = wh[0], h = wh[1], outBpp = alpha ? 32 : bpp;
                Owned src = Random(w, h, bpp, static_cast<uint32_t>(n + 1), n % 4, n % 3 == 1);
                ++n;
                if (bpp == 32)
                    for (int y = 0; y < h; y += 2) src->Row(y)[4 * (y % w) + 3] = 1;
                const ImageView s = ReadImageView(src.Get());
                for (SkewParams shear : shears) {
                    shear.forceAlpha = alpha;
                    ExpectPathsAgree(Named("skew gain", shear.xGain, shear.yGain), w, h, outBpp, 0,
                                     {PixelPath::General, PixelPath::Fast},
                                     [&](const ImageView& d, PixelPath p) { SkewPixels(s, d, shear, p); });
                }
                for (int mode = 0; mode <= 4; ++mode)
                    ExpectPathsAgree(Named("circle mode", mode), w, h, outBpp, 0,
                                     {PixelPath::General, PixelPath::Fast},
                                     [&](const ImageView& d, PixelPath p) {
                                         CirclePixels(s, d, CircleParams{mode, alpha, 0.7f}, p);
                                     });
            }
}

// A caller's transform: records each point asked, then answers with `map`.
struct RecordedPoints final : ITransform {
    std::function<void(double*, double*, double*)> map;
    std::vector<std::array<double, 3>> asked;
    QResult QueryInterface(const IID&, void** object) override {
        *object = nullptr;
        return QEL_E_NOINTERFACE;
    }
    uint32_t AddRef() override { return 2; }
    uint32_t Release() override { return 1; }
    QResult TransformPoint(double* x, double* y, double* z) override {
        asked.push_back({*x, *y, *z});
        map(x, y, z);
        return QEL_OK;
    }
};

// The caller's transform through the kernels. They ask a row's points before
// drawing it, yet the transform must see each point once, in row order, with
// z 0, whatever it writes back (here a doubling that sends most points
// outside). TransformPaste rounds half up without taking a floor: points a
// hair either side of the halves at both edges of the target, held to floor itself.
TEST(TransformPaths, CallersTransformAskedInRowOrderAndRoundedHalfUp) {
    auto rowOrder = [](int columns, int rows, int xOffset, int yOffset) {
        std::vector<std::array<double, 3>> points;
        for (int y = 0; y < rows; ++y)
            for (int x = 0; x < columns; ++x)
                points.push_back({double(x + xOffset), double(y + yOffset), 0.0});
        return points;
    };
    RecordedPoints map;
    map.map = [](double* x, double* y, double* z) {
        *x *= 2;
        *y *= 2;
        *z = 7;
    };
    for (int bpp : {8, 24, 32}) {
        Owned src(BufferImage::Make(5, 3, bpp, QEL_MODEL_BGR)),
            dest(BufferImage::Make(4, 2, bpp, QEL_MODEL_BGR));
        map.asked.clear();
        TransformPixels(&map, ReadImageView(src.Get()), ReadImageView(dest.Get()), -2, 1);
        EXPECT_EQ(map.asked, rowOrder(4, 2, -2, 1)) << bpp;
        for (bool fillVoids : {false, true}) {
            map.asked.clear();
            TransformPastePixels(&map, ReadImageView(src.Get()), ReadImageView(dest.Get()), 3, 3, fillVoids);
            // 8 bits never paste, nor ask about, the last source column.
            EXPECT_EQ(map.asked, rowOrder(bpp == 8 ? 4 : 5, 3, 0, 0)) << bpp;
        }
    }
    std::vector<double> columns;
    const double below = std::nextafter(-0.5, -1.0), above = std::nextafter(-0.5, 0.0);
    for (double edge : {0.0, 6.0})  // the left edge, then the right (target width 7, offset -1)
        for (double v : {below, -0.5, above, 0.4999999999999999, 1.5, -1.5}) columns.push_back(edge + v);
    columns.push_back(std::nan(""));
    map.map = [&](double* x, double* y, double*) {
        *x = columns[static_cast<size_t>(*x)];
        *y = *x / 3;
    };
    const int count = static_cast<int>(columns.size());
    Owned src(BufferImage::Make(count, 1, 32, QEL_MODEL_BGR)),
        dest(BufferImage::Make(7, 5, 32, QEL_MODEL_BGR, 1, true)),
        expected(BufferImage::Make(7, 5, 32, QEL_MODEL_BGR));
    src->FillRandom(5);
    TransformPastePixels(&map, ReadImageView(src.Get()), ReadImageView(dest.Get()), 1, 0, false);
    for (int x = 0; x < count; ++x) {
        const double dx = std::floor(1 + columns[size_t(x)] + 0.5),
                     dy = std::floor(columns[size_t(x)] / 3 + 0.5);
        if (!(dx >= 0 && dy >= 0 && dx < 7 && dy < 5)) continue;
        for (auto [px, py] : {std::pair{dx, dy}, std::pair{dx + 1, dy}, std::pair{dx, dy + 1}})
            if (px < 7 && py < 5) PutColour(expected.Get(), int(px), int(py), ColourAt(src.Get(), x, 0));
    }
    ExpectPixels(dest.Get(), PixelBytes(expected.Get()));
}

// The sampler's lanes against its scalar loop in each drawing. Resample:
// enlarging by whole and odd factors, one axis shrinking while the other
// grows, images barely larger than the 12-tap window, widths leaving a partial
// group of eight (and of sixteen grey pixels); whole ratios repeat weight sets
// (kept column x row products) and doubling makes sliding groups, 30 x 13 to
// 60 x 75 has more kinds of row than are kept, 50 x 10 to 33 x 31 spreads a
// grey block's taps over more than sixteen pixels. Rotate: turns about the
// centre keeping the size, or shifted into frames larger and smaller than the
// source, into the source's depth and into 32 bits. RotatePaste reaches the
// source's edges, where the lanes hand pixels back to the sampler: whole
// frames and frames cropped by the target, a key colour that occurs (white on
// the hard edges, a grey level of the random images) and blending by random
// alpha, onto 24- and 32-bit targets. The 33 x 27 and 31 x 23 sources have
// hard edges: weights above one clamp at 255, lobes beside black at 0.
TEST(TransformPaths, SamplerLanesGiveTheScalarBytes) {
    QEL_NEEDS_TIER(SimdTier::Avx2);
    enum Drawing { kGrid, kTurn, kShift, kPaste };
    // Each drawing's methods, result depths (0: the source's) and lanes: Resample's reach AVX-512.
    const struct {
        const char* name;
        int firstMethod, lastMethod;
        std::vector<int> depths;
        std::initializer_list<SimdTier> lanes;
    } drawings[] = {{"resample", 2, 15, {0}, {SimdTier::Scalar, SimdTier::Avx2, SimdTier::Avx512}},
                    {"turn about the centre", 0, 15, {0, 32}, {SimdTier::Scalar, SimdTier::Avx2}},
                    {"shifted turn", 0, 15, {0, 32}, {SimdTier::Scalar, SimdTier::Avx2}},
                    {"paste", 1, 5, {24, 32}, {SimdTier::Scalar, SimdTier::Avx2}}};
    // Source size, result size, angle in degrees, drawing.
    const int cases[][6] = {
        {13, 11, 26, 22, 0, kGrid},    {40, 37, 83, 75, 0, kGrid},    {17, 29, 51, 30, 0, kGrid},
        {64, 9, 23, 40, 0, kGrid},     {12, 12, 29, 31, 0, kGrid},    {5, 7, 19, 17, 0, kGrid},
        {33, 20, 80, 20, 0, kGrid},    {9, 40, 20, 117, 0, kGrid},    {50, 30, 100, 60, 0, kGrid},
        {31, 26, 93, 78, 0, kGrid},    {21, 20, 84, 80, 0, kGrid},    {30, 13, 60, 75, 0, kGrid},
        {50, 10, 33, 31, 0, kGrid},    {31, 23, 70, 61, 0, kGrid},    {31, 23, 62, 46, 0, kGrid},
        {37, 29, 37, 29, 30, kTurn},   {40, 40, 57, 57, 45, kShift},  {13, 31, 31, 13, -75, kTurn},
        {9, 9, 9, 9, 10, kTurn},       {64, 21, 70, 50, 137, kShift}, {23, 50, 23, 50, 200, kTurn},
        {8, 8, 12, 12, 3, kTurn},      {51, 17, 19, 41, -33, kShift}, {33, 27, 33, 27, 21, kTurn},
        {37, 29, 60, 50, 30, kPaste},  {40, 40, 30, 70, -45, kPaste}, {9, 9, 20, 20, 10, kPaste},
        {64, 21, 70, 60, 137, kPaste}, {6, 5, 9, 9, 200, kPaste},     {33, 27, 50, 50, 21, kPaste}};
    uint32_t seed = 1;
    for (int bpp : {8, 24, 32})
        for (const auto& c : cases) {
            const bool edges = (c[0] == 33 && c[1] == 27) || (c[0] == 31 && c[1] == 23);
            Owned src =
                edges ? HardEdges(c[0], c[1], bpp) : Random(c[0], c[1], bpp, seed, seed % 3, seed % 2);
            ++seed;
            const ImageView s = ReadImageView(src.Get());
            const Drawing drawing = static_cast<Drawing>(c[5]);
            // Rotate turns the result's points back into the source; a paste turns its frame forward.
            const double angle = drawing == kPaste ? c[4] * 0.017453292519943295
                                                   : -static_cast<float>(c[4]) * 1.5707964f / 90.0f;
            const float cosine = static_cast<float>(std::cos(angle)),
                        sine = static_cast<float>(std::sin(angle));
            const float halfW = static_cast<float>(c[2]) * 0.5f, halfH = static_cast<float>(c[3]) * 0.5f;
            const TurnedFrame frame = TurnRectangle(c[0], c[1], cosine, sine);
            const TurnMap turn = drawing == kPaste   ? TurnMap{cosine, sine, frame.startX, frame.startY}
                                 : drawing == kShift ? TurnMap{cosine, sine, 3.25f - halfW, 1.5f}
                                                     : TurnMap{cosine, sine, -halfW, -halfH, halfW, halfH};
            const uint32_t key = edges ? 0xFFFFFFu : bpp == 8 ? 0x808080u : 0x123456u;
            auto draw = [&](const ImageView& d, SimdTier lanes, int method) {
                if (drawing == kGrid)
                    InterpolateGrid(s, d, float(c[0]) / float(c[2]), float(c[1]) / float(c[3]), method,
                                    lanes);
                else if (drawing == kPaste)
                    PasteRotated(s, d, turn, frame.width, frame.height, method, key, lanes);
                else
                    DrawRotated(s, d, turn, method, lanes);
            };
            const auto& row = drawings[drawing];
            for (int destBpp : row.depths)
                for (int method = row.firstMethod; method <= row.lastMethod; ++method)
                    ExpectPathsAgree(Named(row.name, c[4], "method", method), c[2], c[3],
                                     destBpp != 0 ? destBpp : bpp, QEL_MODEL_BGR, row.lanes,
                                     [&](const ImageView& d, SimdTier lanes) { draw(d, lanes, method); });
            EXPECT_TRUE(src->GuardsIntact());
        }
}

// Grey and palette images of widths around the 64- and 16-pixel steps, padded and
// bottom-up, into 24 and 32 bits, against a pixel-by-pixel reference: grey
// gains alpha 255, a palette colour leaves the fourth byte, and indices past
// a short palette read as grey.
TEST(TransformPaths, IndexExpansionGivesTheReferenceBytes) {
    RGBQUAD palette[200];
    for (int i = 0; i < 200; ++i)
        palette[i] = {static_cast<unsigned char>(255 - i), static_cast<unsigned char>(3 * i),
                      static_cast<unsigned char>(i ^ 0x5A), 0x77};
    ForEachSource({{8}, {1, 15, 16, 17, 64, 79, 130}, {3}}, [&](BufferImage* src) {
        for (bool withPalette : {false, true})
            for (int destBpp : {24, 32}) {
                const IndexColours colours{withPalette ? palette : nullptr, withPalette ? 200u : 0u};
                Bytes reference;
                for (unsigned char index : PixelBytes(src)) {
                    const bool grey = !withPalette || index >= 200;
                    const RGBQUAD entry = grey ? RGBQUAD{index, index, index, 0} : palette[index];
                    reference.insert(reference.end(), {entry.rgbBlue, entry.rgbGreen, entry.rgbRed});
                    if (destBpp == 32) reference.push_back(withPalette ? 0 : 255);
                }
                const ImageView s = ReadImageView(src);
                ExpectPathsAgree(
                    Named("expansion, palette", withPalette), s.width, 3, destBpp, QEL_MODEL_BGR,
                    {SimdTier::Scalar, SimdTier::Avx512},
                    [&](const ImageView& d, SimdTier lanes) { ExpandIndices(s, d, colours, lanes); },
                    &reference);
            }
    });
}

// Rows of every width up to 60 output pixels (several 30- and 32-byte steps
// and every tail), from a 2-row source that ends at its guards; four bytes of
// 255 sum to 1020, the most a 16-bit lane holds here.
TEST(TransformPaths, HalvingRowsGiveTheScalarBytes) {
    QEL_NEEDS_TIER(SimdTier::Ssse3);
    ForEachSource({{8, 24, 32}, Span(2, 121), {2}}, [&](BufferImage* src) {
        const ImageView s = ReadImageView(src);
        const int bytes = s.bitCount / 8, width = s.width / 2;
        std::vector<ptrdiff_t> starts(static_cast<size_t>(width));
        for (int x = 0; x < width; ++x) starts[size_t(x)] = ptrdiff_t{2} * x * bytes;
        ASSERT_TRUE(BlocksFollowEachOther(starts.data(), width, bytes));
        auto expectHalves = [&](const Bytes* reference) {
            ExpectPathsAgree(
                Named("halving", bytes, "bytes"), width, 1, s.bitCount, QEL_MODEL_BGR,
                {SimdTier::Scalar, SimdTier::Ssse3, SimdTier::Avx512},
                [&](const ImageView& d, SimdTier lanes) {
                    HalveRow(s.Row(0), s.Row(1), starts.data(), d.Row(0), width, bytes, lanes);
                },
                reference);
        };
        expectHalves(nullptr);
        // The extremes: first bytes sum 1 + 0 + 1 + 1 (truncated to 0), the others 4 x 255; alpha stays.
        Bytes reference;
        for (int n = 0; n < 2 * width * bytes; ++n) {
            const bool first = n % bytes == 0;
            s.Row(0)[n] = first ? (n / bytes % 2 ? 0 : 1) : 255;
            s.Row(1)[n] = first ? 1 : 255;
            if (n < width * bytes) reference.push_back(first || n % bytes == 3 ? 0 : 255);
        }
        expectHalves(&reference);
    });
    const ptrdiff_t overlapping[] = {0, 3, 6}, skipping[] = {0, 6, 15};
    EXPECT_FALSE(BlocksFollowEachOther(overlapping, 3, 3));
    EXPECT_FALSE(BlocksFollowEachOther(skipping, 3, 3));
}

// Mirror steps 16 grey, 4 (storing past the step) 24-bit and 4 32-bit pixels
// at a time: every width 1-40.
TEST(TransformPaths, MirrorRowsOfEveryWidth) {
    ForEachSource({{8, 24, 32}, Span(1, 40), {1, 2, 3}}, [&](BufferImage* src) {
        const ImageView s = ReadImageView(src);
        SmartPtr<IQEL> mirrored;
        ASSERT_EQ(Transform()->Mirror(src, mirrored.Out()), QEL_OK);
        for (int y = 0; y < s.height; ++y)
            for (int x = 0; x < s.width; ++x)
                ASSERT_EQ(ColourAt(mirrored.Get(), x, y), ColourAt(src, s.width - 1 - x, y)) << x << "," << y;
    });
}

// ---- colour: the byte-wise maps against a walk through the pixel helpers ----

TEST(ColourPaths, ByteWiseMapsMatchThePixelHelpers) {
    auto expectMap = [](const auto& map) {
        ForEachSource({{1, 4, 8, 16, 24, 25, 32}, {1, 2, 5, 9, 17, 33}, {1, 3, 4}}, [&](BufferImage* src) {
            const ImageView s = ReadImageView(src);
            Owned plain = ImageOf(s.width, s.height, s.bitCount, ModelFor(s.bitCount), PixelBytes(src));
            for (int y = 0; y < s.height; ++y)
                for (int x = 0; x < s.width; ++x) {
                    const uint32_t c = ColourAt(plain.Get(), x, y);
                    unsigned char bgr[3] = {(unsigned char)BlueOf(c), (unsigned char)GreenOf(c),
                                            (unsigned char)RedOf(c)};
                    map(bgr);
                    PutColour(plain.Get(), x, y, PackColor(bgr[0], bgr[1], bgr[2], AlphaOf(c)));
                }
            const Bytes padding = PaddingOf(src);
            color::MapPixels(s, map);
            ExpectPixels(src, PixelBytes(plain.Get()));
            EXPECT_EQ(PaddingOf(src), padding);
        });
    };
    expectMap(color::ChannelShift(37, -20, 5));
    expectMap(color::BlackWhiteThreshold(100));
    expectMap(color::ColorizeTint(200, 255, 0.7f));
    expectMap(color::ColorizeTint(13, 90, 1.0f));
}

// The grey and table lanes of one tier against one pixel at a time: SSSE3
// grey rows, AVX2 table rows, and at AVX-512 the VBMI grey, table, colorize
// and channel-shift rows and the 8-bit grey rows. Then one pixel per channel
// sum 0..765: the multiply standing for the division by three gives the
// exact third of each, alpha carried through at 32 bits.
class ColourLanes : public testing::TestWithParam<SimdTier> {};

TEST_P(ColourLanes, GreyRowsAndByteTablesOfEveryWidth) {
    const SimdTier tier = GetParam();
    QEL_NEEDS_TIER(tier);
    unsigned char table[256];  // every output differs from its index and its neighbours' outputs
    for (int i = 0; i < 256; ++i) table[i] = static_cast<unsigned char>(i * 167 + 91);
    const bool grey = tier != SimdTier::Avx2, tables = tier != SimdTier::Ssse3;
    ForEachSource({{8, 24, 32}, Span(1, 72), {1, 4}}, [&](BufferImage* src) {
        const ImageView s = ReadImageView(src);
        auto expectLanes = [&](const char* what, auto run) {
            ExpectPathsAgree(what, s.width, s.height, s.bitCount, QEL_MODEL_BGR, {SimdTier::Scalar, tier},
                             run);
        };
        if (grey && (s.bitCount != 8 || tier == SimdTier::Avx512))
            expectLanes("grey", [&](const ImageView& d, SimdTier l) { color::WriteGreyInto(s, d, l); });
        if (tables) {
            expectLanes("byte table",
                        [&](const ImageView& d, SimdTier l) { color::ApplyByteTable(d, table, l); });
            expectLanes("byte table into another image", [&](const ImageView& d, SimdTier l) {
                for (int y = 0; y < s.height; ++y)
                    color::LookupBytes(d.Row(y), s.Row(y), s.RowBytes(), table, l);
            });
        }
        if (tier != SimdTier::Avx512) return;
        const int seed = s.width * 3 + s.height + s.bitCount;
        const color::ColorizeTint tint(static_cast<unsigned char>(seed * 37), 200, seed % 2 ? 0.6f : 1.0f);
        const color::ChannelShift shift(seed % 300 - 150, 40, -70);
        expectLanes("colorize", [&](const ImageView& d, SimdTier l) { color::ColorizePixels(d, tint, l); });
        expectLanes("shift", [&](const ImageView& d, SimdTier l) { color::ShiftChannels(d, shift, l); });
    });
    if (!grey) return;
    for (int bytes : {3, 4}) {
        Owned src(BufferImage::Make(766, 1, 8 * bytes, QEL_MODEL_BGR));
        Bytes thirds;
        for (int sum = 0; sum < 766; ++sum) {
            unsigned char* pixel = src->Row(0) + sum * bytes;
            for (int k = 0; k < 3; ++k)
                pixel[k] = static_cast<unsigned char>(std::clamp(sum - 255 * k, 0, 255));
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

// The cap: each name lowers the processor's tier to itself and never raises
// it; unknown values and no value leave it alone.
TEST(SimdCap, NamesLowerTheTierAndNothingElseChangesIt) {
    using Tier = SimdTier;
    const std::tuple<Tier, const char*, Tier> rows[] = {
        {Tier::Avx512, "scalar", Tier::Scalar}, {Tier::Avx512, "sse2", Tier::Sse2},
        {Tier::Avx512, "ssse3", Tier::Ssse3},   {Tier::Avx512, "avx2", Tier::Avx2},
        {Tier::Avx512, "avx512", Tier::Avx512}, {Tier::Ssse3, "avx512", Tier::Ssse3},
        {Tier::Avx512, "AVX2", Tier::Avx512},   {Tier::Avx2, "sse", Tier::Avx2},
        {Tier::Avx2, "", Tier::Avx2},           {Tier::Avx2, nullptr, Tier::Avx2}};
    for (const auto& [processor, cap, expected] : rows)
        EXPECT_EQ(CapSimdTier(processor, cap), expected) << (cap ? cap : "no cap");
    EXPECT_LE(ActiveSimdTier(), ProcessorSimdTier());
    // CI compares this line with the tier it expects of the processor and cap.
    std::printf("vector tier in use: %s\n", SimdTierName(ActiveSimdTier()));
}

}  // namespace
