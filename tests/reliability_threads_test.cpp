// Concurrent use: operations running at once on several threads, on their own
// images and on shared components and shared sources, give the same bytes as
// when run alone and leave every reference count balanced. Run under
// ThreadSanitizer by tests/run_all.sh.
#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

#include "support/component_test.h"

namespace {

using namespace qeltest;

constexpr int kThreads = 4;
constexpr int kRounds = 20;

// The module fills its caches of the runtime's image locators without a lock,
// so a host makes its first image-creating calls from one thread. Both roads
// (the collection and the cached image locator) are taken here once.
void WarmUp() {
    SmartPtr<BufferImage> image(BufferImage::Make(3, 3, 24, QEL_MODEL_BGR));
    SmartPtr<IQEL> out;
    Filters()->Blur(image.Get(), out.Out());
    Filters()->Erode(image.Get(), 3, out.Out());
}

// One thread's work on its own source, a call into each component and
// components of its own: a chain of out-of-place and in-place operations whose
// outcome is a list of pixel digests.
std::vector<uint64_t> Work(int seed) {
    const int bitCount = seed % 3 == 0 ? 8 : seed % 3 == 1 ? 24 : 32;
    SmartPtr<BufferImage> source = Random(23 + seed, 17 + seed, bitCount, 1000u + seed, 3, seed % 2 == 1);
    SmartPtr<IQEL> median, turned, filled, noisy;
    Filters()->Median(source.Get(), 3, median.Out());
    Transform()->Rotate(source.Get(), turned.Out(), 30 + seed, 3, 0, 0);
    SmartPtr<IQELImageDIB> sum = TestHost().NewImage();
    Maths()->Add(sum.Get(), source.Get(), median.Get(), 2.0f);
    // Components made and released on this thread; the maths one fills a destination of its own.
    for (const wchar_t* name : {L"QELColorTransform", L"QELTransform", L"QELDeform", L"QELFilterTransform"})
        EXPECT_TRUE(TestHost().Create<IUnknown>(name, qel::iid::IUnknown)) << seed;
    SmartPtr<IQELMaths> maths = TestHost().Create<IQELMaths>(L"QELMaths", qel::iid::IQELMaths);
    maths->CreateDestImage(filled.Out(), source.Get(), 32, QEL_MODEL_ARGB);
    maths->Equal(filled.Get(), nullptr, 0x11223344u + seed);
    EXPECT_EQ(RefCountOf(filled.Get()), 1u);
    // Noise draws from the process-wide rand: its bytes depend on the other
    // threads, so only its safety is checked here.
    Filters()->Noise(source.Get(), 20, noisy.Out());
    Colours()->Light(source.Get(), 20, 10);
    Deform()->CircleTransform(source.Get(), seed % 4, 0, 2.0f);
    return {PixelDigest(median.Get()), PixelDigest(turned.Get()), PixelDigest(sum.Get()),
            PixelDigest(filled.Get()), PixelDigest(source.Get())};
}

void RunOnThreads(const std::function<void(int)>& body) {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) threads.emplace_back(body, t);
    for (std::thread& thread : threads) thread.join();
}

TEST(ReliabilityThreads, OperationsOnOwnImagesGiveTheSameBytesAsAlone) {
    WarmUp();
    std::vector<std::vector<uint64_t>> alone;
    for (int t = 0; t < kThreads; ++t) alone.push_back(Work(t));

    RunOnThreads([&](int t) {
        for (int round = 0; round < kRounds; ++round)
            EXPECT_EQ(Work(t), alone[t]) << "thread " << t << " round " << round;
    });
}

TEST(ReliabilityThreads, SharedSourceAndComponentsKeepReferencesBalanced) {
    WarmUp();
    SmartPtr<BufferImage> source = Random(31, 19, 24, 77, 3, true);
    const std::vector<unsigned char> before = source->Snapshot();
    const uint32_t sourceRefs = RefCountOf(source.Get());
    const uint32_t filterRefs = RefCountOf(Filters());

    SmartPtr<IQEL> expected;
    Filters()->Sharpen(source.Get(), expected.Out());
    const uint64_t expectedDigest = PixelDigest(expected.Get());

    // Every thread takes its own references to the shared component and the
    // shared source, and hands its results to the next thread to release.
    std::vector<std::vector<IQEL*>> handedOver(kThreads);
    RunOnThreads([&](int t) {
        for (int round = 0; round < kRounds * 4; ++round) {
            SmartPtr<IQELFilterTransform> filter;
            filter.Share(Filters());
            SmartPtr<IQEL> input;
            input.Share(source.Get());
            SmartPtr<IQEL> out;
            filter->Sharpen(input.Get(), out.Out());
            EXPECT_EQ(PixelDigest(out.Get()), expectedDigest) << "thread " << t << " round " << round;
            handedOver[t].push_back(out.Detach());
            SmartPtr<IQELTransform> transform = QueryAs<IQELTransform>(Transform(), qel::iid::IQELTransform);
            transform->Mirror(input.Get(), out.Out());
        }
    });
    RunOnThreads([&](int t) {
        for (IQEL* image : handedOver[(t + 1) % kThreads]) EXPECT_EQ(image->Release(), 0u);
    });

    EXPECT_EQ(RefCountOf(source.Get()), sourceRefs);
    EXPECT_EQ(RefCountOf(Filters()), filterRefs);
    EXPECT_EQ(source->Snapshot(), before);
    EXPECT_TRUE(source->GuardsIntact());
}

}  // namespace
