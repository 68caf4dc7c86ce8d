// Transform and TransformPaste through a caller's coordinate transform.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

#include "support/host_images.h"

namespace {

using namespace qeltest;

// A caller's transform over a function of (x, y); lives on the stack.
struct PointMap final : ITransform {
    std::function<void(double&, double&)> map;
    explicit PointMap(std::function<void(double&, double&)> f) : map(std::move(f)) {}
    QResult QueryInterface(const IID&, void** object) override {
        *object = nullptr;
        return QEL_E_NOINTERFACE;
    }
    uint32_t AddRef() override { return 2; }
    uint32_t Release() override { return 1; }
    QResult TransformPoint(double* x, double* y, double* z) override {
        EXPECT_EQ(*z, 0.0);
        map(*x, *y);
        return QEL_OK;
    }
};

PointMap Identity([](double&, double&) {});
PointMap Doubling([](double& x, double& y) { x *= 2, y *= 2; });
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

class TransformDepth : public ::testing::TestWithParam<int> {};

TEST_P(TransformDepth, IdentityShiftDoublingAndWildMaps) {
    const int bpp = GetParam();
    SmartPtr<BufferImage> source(BufferImage::Make(16, 7, bpp, ModelFor(bpp), 3, true));
    source->FillRandom(bpp);
    const Bytes fill = bpp == 32 ? Bytes{0, 0, 0, 0xFF} : Bytes(static_cast<size_t>(bpp / 8), 0);
    auto transforms = Transform();

    SmartPtr<IQEL> copy, shifted, doubled;
    ASSERT_EQ(transforms->Transform(&Identity, source.Get(), copy.Out(), 0, 0, 0, 0, 0, 0), QEL_OK);
    EXPECT_EQ(PixelBytes(copy.Get()), PixelBytes(source.Get()));

    ASSERT_EQ(transforms->Transform(&Identity, source.Get(), shifted.Out(), 10, 0, 65536, 0, 0, 0), QEL_OK);
    ASSERT_EQ(transforms->Transform(&Doubling, source.Get(), doubled.Out(), 0, 0, 0, 0, 0, 0), QEL_OK);
    for (int y = 0; y < 7; ++y) {
        for (int x = 0; x < 16; ++x) {
            EXPECT_EQ(PixelOf(shifted.Get(), x, y), x < 6 ? PixelOf(source.Get(), x + 10, y) : fill)
                << x << "," << y;
            EXPECT_EQ(PixelOf(doubled.Get(), x, y),
                      x < 8 && y < 4 ? PixelOf(source.Get(), 2 * x, 2 * y) : fill);
        }
    }

    // Points that are not numbers or far away count as outside.
    for (double wild : {kNaN, kInf, -kInf, 1e300, -1e300, 2147483648.0}) {
        PointMap map([wild](double& x, double& y) { x = wild, y = y * wild; });
        SmartPtr<IQEL> result;
        ASSERT_EQ(transforms->Transform(&map, source.Get(), result.Out(), 0, 0, 5, 3, 0, 0), QEL_OK);
        EXPECT_EQ(PixelBytes(result.Get()), [&] {
            Bytes all;
            for (int i = 0; i < 15; ++i) all.insert(all.end(), fill.begin(), fill.end());
            return all;
        }()) << wild;
    }
    EXPECT_TRUE(source->GuardsIntact());
    EXPECT_EQ(source->RefCount(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Depths, TransformDepth, ::testing::Values(8, 24, 32));

TEST(Transform, FillByColourModelAndFailures) {
    auto transforms = Transform();
    auto noAlpha = TestHost().NewImage(2, 2, 32, QEL_MODEL_BGR);
    SmartPtr<IQEL> result;
    PointMap away([](double& x, double&) { x = -1; });
    ASSERT_EQ(transforms->Transform(&away, noAlpha.Get(), result.Out(), 0, 0, 0, 0, 0, 0), QEL_OK);
    EXPECT_EQ(PixelBytes(result.Get()), Bytes(16, 0));

    auto empty = TestHost().NewImage(0, 3, 24, QEL_MODEL_BGR);
    EXPECT_EQ(transforms->Transform(&Identity, empty.Get(), result.Out(), 0, 0, 0, 0, 0, 0), QEL_E_FAIL);
    EXPECT_EQ(transforms->Transform(&Identity, nullptr, result.Out(), 0, 0, 0, 0, 0, 0), QEL_E_FAIL);
    EXPECT_EQ(transforms->Transform(nullptr, noAlpha.Get(), result.Out(), 0, 0, 0, 0, 0, 0),
              QEL_E_INVALIDARG);
    EXPECT_EQ(transforms->Transform(&Identity, noAlpha.Get(), nullptr, 0, 0, 0, 0, 0, 0), QEL_E_POINTER);
}

TEST(TransformPaste, EightBitsWritesNeighboursButNeverTheLastColumn) {
    auto source = HostImage(4, 2, 8, {1, 2, 3, 4, 5, 6, 7, 8});
    auto target = HostImage(5, 3, 8, {});
    ASSERT_EQ(Transform()->TransformPaste(&Identity, source.Get(), target.Get(), 0, 0, 1, 0), QEL_OK);
    EXPECT_EQ(PixelBytes(target.Get()), (Bytes{1, 2, 3, 3, 0, 5, 6, 7, 7, 0, 5, 6, 7, 0, 0}));

    auto narrow = HostImage(1, 2, 8, {9, 9});
    auto untouched = HostImage(2, 2, 8, {});
    ASSERT_EQ(Transform()->TransformPaste(&Identity, narrow.Get(), untouched.Get(), 0, 0, 0, 0), QEL_OK);
    EXPECT_EQ(PixelBytes(untouched.Get()), Bytes(4, 0));
}

TEST(TransformPaste, TwentyFourBitsClosesGapsAfterTheFirstWriteBeyondColumnZero) {
    auto source = HostImage(4, 1, 24, {1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4});
    auto target = HostImage(8, 2, 24, {});
    PointMap stretch([](double& x, double&) { x *= 2; });
    ASSERT_EQ(Transform()->TransformPaste(&stretch, source.Get(), target.Get(), 0, 0, 0, 0), QEL_OK);
    Bytes expected;
    for (int v : {1, 0, 2, 3, 3, 4, 4, 0, 0, 0, 0, 3, 3, 4, 4, 0}) expected.insert(expected.end(), 3, v);
    EXPECT_EQ(PixelBytes(target.Get()), expected) << HexRows(PixelBytes(target.Get()), 24);
}

TEST(TransformPaste, FillVoidsNeverWritesZeroAndThenFills) {
    auto black24 = HostImage(1, 1, 24, {0, 7, 0});
    auto target24 = HostImage(2, 2, 24, {});
    ASSERT_EQ(Transform()->TransformPaste(&Identity, black24.Get(), target24.Get(), 1, 1, 1, 0), QEL_OK);
    EXPECT_EQ(PixelOf(target24.Get(), 1, 1), (Bytes{1, 7, 1}));

    // A black 32-bit pixel becomes the value 1; the hole at (2, 1) is then
    // filled from its right neighbour, made opaque (the target has alpha).
    auto source32 = HostImage(2, 1, 32, {0, 0, 0, 0x80, 10, 20, 30, 0x40});
    auto target32 = HostImage(4, 3, 32, {});
    PointMap spread([](double& x, double& y) { x = 2 * x + 1, y = 1; });
    ASSERT_EQ(Transform()->TransformPaste(&spread, source32.Get(), target32.Get(), 0, 0, 1, 0), QEL_OK);
    EXPECT_EQ(PixelOf(target32.Get(), 1, 1), (Bytes{1, 0, 0, 0}));
    EXPECT_EQ(PixelOf(target32.Get(), 2, 1), (Bytes{10, 20, 30, 0xFF}));
    EXPECT_EQ(PixelOf(target32.Get(), 3, 1), (Bytes{10, 20, 30, 0x40}));
}

TEST(TransformPaste, DoublingThirtyTwoBitsLeavesTheOddCornersUnpainted) {
    Bytes pixels;
    for (int i = 1; i <= 9; ++i) pixels.insert(pixels.end(), {static_cast<unsigned char>(i), 0, 0, 0xFF});
    auto source = HostImage(3, 3, 32, pixels);
    auto target = HostImage(6, 6, 32, {});
    ASSERT_EQ(Transform()->TransformPaste(&Doubling, source.Get(), target.Get(), 0, 0, 0, 0), QEL_OK);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 6; ++x) {
            const bool painted = x % 2 == 0 || y % 2 == 0;
            const auto value = static_cast<unsigned char>(painted ? 1 + x / 2 + 3 * (y / 2) : 0);
            EXPECT_EQ(PixelOf(target.Get(), x, y),
                      (Bytes{value, 0, 0, static_cast<unsigned char>(painted ? 0xFF : 0)}))
                << x << "," << y;
        }
}

TEST(TransformPaste, WildMapsAndMismatchedTargetsWriteNothing) {
    for (int bpp : {8, 24, 32}) {
        SmartPtr<BufferImage> source(BufferImage::Make(5, 4, bpp, ModelFor(bpp), 1, true));
        SmartPtr<BufferImage> target(BufferImage::Make(5, 4, bpp, ModelFor(bpp), 2));
        source->FillRandom(7);
        const Bytes before = target->Snapshot();
        for (double wild : {kNaN, kInf, -kInf, 1e300, -2147483649.0}) {
            PointMap map([wild](double& x, double& y) { x = wild, y *= wild; });
            EXPECT_EQ(Transform()->TransformPaste(&map, source.Get(), target.Get(), 3, 3, 0, 0), QEL_OK);
        }
        EXPECT_EQ(target->Snapshot(), before) << bpp;
        EXPECT_TRUE(target->GuardsIntact());
    }
    auto source = HostImage(2, 2, 32, {});
    auto target = HostImage(2, 2, 24, {});
    EXPECT_EQ(Transform()->TransformPaste(&Identity, source.Get(), target.Get(), 0, 0, 0, 0),
              QEL_E_INVALIDARG);
}

}  // namespace
