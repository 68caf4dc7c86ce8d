// The vector step of AddScale rows against the scalar rule on every pair of
// byte values, for factors that round, clamp, overflow and give NaN; large
// Add results, written with streaming stores, against the clamped sums.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "maths/maths_kernels.h"
#include "support/test_image.h"

namespace {

unsigned char ScalarMix(const LinearMix& mix, unsigned char a, unsigned char b) {
    const float v = static_cast<float>(a) * mix.factorA + static_cast<float>(b) * mix.factorB + mix.offset;
    if (!(v > 0.0f)) return 0;
    return static_cast<unsigned char>(static_cast<int>(v < 255.0f ? v : 255.0f));
}

TEST(MathsVectorSteps, MixRowEqualsScalarRuleOnEveryBytePair) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const LinearMix mixes[] = {
        {0.5f, 0.5f, 0.0f},    {0.7f, -0.3f, 12.5f},    {1.0f / 3.0f, 2.0f / 3.0f, 0.49999997f},
        {-1.0f, 1.0f, 255.0f}, {1e30f, 1e-30f, -1e30f}, {inf, 0.0f, 0.0f},
        {nan, 1.0f, 0.0f},     {0.1f, 0.2f, -0.0f},     {3.0e-8f, 0.99999994f, 0.5f}};
    // Row lengths whose remainders after 32-byte steps reach the 16-byte step and the scalar loop.
    std::vector<unsigned char> a(65536 + 31), b(65536 + 31), out(65536 + 31);
    for (size_t i = 0; i < 65536; ++i)
        a[i] = static_cast<unsigned char>(i >> 8), b[i] = static_cast<unsigned char>(i);
    for (const LinearMix& mix : mixes) {
        for (size_t count : {size_t{65536}, size_t{65536 + 31}, size_t{7}, size_t{33}, size_t{48}}) {
            MixRow(out.data(), a.data(), b.data(), count, mix);
            for (size_t i = 0; i < count; ++i) {
                ASSERT_EQ(out[i], ScalarMix(mix, a[i], b[i]))
                    << "a " << int(a[i]) << " b " << int(b[i]) << " factors " << mix.factorA << ", "
                    << mix.factorB << " offset " << mix.offset;
            }
        }
    }
}

TEST(MathsVectorSteps, VectorStepStopsBeforeAPartialBlock) {
    std::vector<unsigned char> a(40, 200), b(40, 100), out(40, 0);
    const size_t done = MixRowVector(out.data(), a.data(), b.data(), 40, {1.0f, 1.0f, 0.0f});
    EXPECT_TRUE(done == 0 || done == 32);
    for (size_t i = 0; i < done; ++i) ASSERT_EQ(out[i], 255);
    for (size_t i = done; i < 40; ++i) ASSERT_EQ(out[i], 0);
}

}  // namespace

namespace {

// Results past the cache-sized threshold are written with streaming stores
// from the first 16-byte boundary of each row: rows of 1203 pixels start at
// every alignment. Every byte must still be the clamped sum (divisor 0) or
// the clamped four-fold sum (divisor 2).
TEST(MathsVectorSteps, LargeAddsGiveTheClampedSumsOnEveryRow) {
    const int width = 1203, height = 1200;
    SmartPtr<IQELMaths> maths = qeltest::TestHost().Create<IQELMaths>(L"QELMaths", qel::iid::IQELMaths);
    SmartPtr<IQELImageDIB> a = qeltest::TestHost().NewImage(width, height, 24, QEL_MODEL_BGR);
    SmartPtr<IQELImageDIB> b = qeltest::TestHost().NewImage(width, height, 24, QEL_MODEL_BGR);
    const qel::Pixels pa = qel::PixelsOf(a.Get()), pb = qel::PixelsOf(b.Get());
    uint32_t state = 12345;
    for (int y = 0; y < height; ++y)
        for (size_t n = 0; n < pa.RowBytes(); ++n) {
            state = state * 1103515245u + 12345u;
            pa.Row(y)[n] = static_cast<unsigned char>(state >> 24);
            pb.Row(y)[n] = static_cast<unsigned char>(state >> 16);
        }
    for (const float divisor : {0.0f, 2.0f}) {
        SmartPtr<IQELImageDIB> dest = qeltest::TestHost().NewImage();
        ASSERT_EQ(maths->Add(dest.Get(), a.Get(), b.Get(), divisor), QEL_OK);
        const qel::Pixels pd = qel::PixelsOf(dest.Get());
        ASSERT_EQ(pd.width, width);
        for (int y = 0; y < height; ++y)
            for (size_t n = 0; n < pd.RowBytes(); ++n) {
                const int sum = (pa.Row(y)[n] + pb.Row(y)[n]) * (divisor == 2.0f ? 4 : 1);
                ASSERT_EQ(pd.Row(y)[n], sum > 255 ? 255 : sum) << "row " << y << " byte " << n;
            }
    }
}

}  // namespace
