// Helpers shared by the component tests: the components as a host creates
// them, padded test images with given pixel bytes, colour access through the
// pixel helpers, and exact comparisons with a hex dump on failure.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <initializer_list>
#include <vector>

#include "image/cpu.h"
#include "image/pixel.h"
#include "support/test_image.h"

// Skips a lane test whose lanes the tier in use lacks, naming the tier; CI
// reads these lines to prove that no tier it provides was skipped.
#define QEL_NEEDS_TIER(tier)                           \
    if (!SimdRuns(tier))                               \
    GTEST_SKIP() << "needs the " << SimdTierName(tier) \
                 << " tier (in use: " << SimdTierName(ActiveSimdTier()) << ")"

class CQELImageTransform;
class CQELFilterTransform;

namespace qeltest {

using Bytes = std::vector<unsigned char>;

// Each component created once through the host and kept for the whole program.
IQELMaths* Maths();
IQELFilterTransform* Filters();
IQELTransform* Transform();
IQELColorTransform* Colours();
IQELDeform* Deform();
// The transform and filter classes linked in, for the methods a host cannot
// reach (FillVoids, Rotate4, Kernel).
CQELImageTransform* TransformClass();
CQELFilterTransform* FilterClass();

// A caller's transform over a function of (x, y), owned by the test: `refs`
// is back at 1 when the module has released what it took. The module must
// pass z as 0.
struct PointMap final : ITransform {
    std::function<void(double& x, double& y)> map;
    std::atomic<uint32_t> refs{1};
    explicit PointMap(std::function<void(double& x, double& y)> f) : map(std::move(f)) {}
    QResult QueryInterface(const IID& iid, void** object) override;
    uint32_t AddRef() override { return ++refs; }
    uint32_t Release() override { return --refs; }
    QResult TransformPoint(double* x, double* y, double* z) override;
};

// ARGB at 32 bits, BGR at 24 to 31, MONO below.
unsigned ModelFor(int bitCount);

// A padded test image (random padding) with its pixel rows set from `bytes`.
SmartPtr<BufferImage> ImageOf(int width, int height, int bitCount, unsigned model, const Bytes& bytes,
                              int padding = 3, bool bottomUp = false, int planes = 1);
// A test image of random bytes, padding included; `keep` masks every byte
// (few distinct values make ties).
SmartPtr<BufferImage> Random(int width, int height, int bitCount, uint32_t seed, int padding = 0,
                             bool bottomUp = false, unsigned char keep = 0xFF);
// A padded test image of one colour, written through SetPixelColor.
SmartPtr<BufferImage> Uniform(int width, int height, int bitCount, uint32_t colour, int padding = 3);

uint32_t ColourAt(IQEL* image, int x, int y);
void PutColour(IQEL* image, int x, int y, uint32_t colour);

// Little-endian bytes of 32-bit integers.
Bytes Ints(std::initializer_list<int32_t> values);
// Every row's padding bytes, which no operation may touch.
Bytes PaddingOf(BufferImage* image);
// The nearest DefaultPalette entry found by walking the ramp: an exact match
// ends the walk, ties keep the lower index.
int NearestGreyByWalk(int blue, int green, int red);

// The image's pixel bytes equal `expected` (hex rows on failure) and its guards are intact.
void ExpectPixels(BufferImage* image, const Bytes& expected);

// A runtime image of ModelFor(bitCount), its pixel rows set from `bytes` unless empty.
SmartPtr<IQELImageDIB> HostImage(int width, int height, int bitCount, const Bytes& bytes);
// Pixel (x, y) is blue x, green y, red 200 (alpha 9 at 32 bits): a result's
// colours name the source pixel they came from.
SmartPtr<IQELImageDIB> Positions(int width, int height, int bitCount = 32);
// Width, height, bit count and colour model, compared in one check.
std::vector<int> SizeAndFormat(IQEL* image);
// The bytes of pixel (x, y) of an image of 8 bits or more.
Bytes PixelOf(IQEL* image, int x, int y);

}  // namespace qeltest
