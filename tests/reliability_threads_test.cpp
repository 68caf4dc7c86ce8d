// Concurrent use: operations running at once on several threads, on their own
// images and on shared components and shared sources, give the same bytes as
// when run alone and leave every reference count balanced. Run under
// ThreadSanitizer by tests/run_all.sh.
#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

#include "support/test_image.h"

namespace {

using qeltest::BufferImage;
using qeltest::PixelDigest;
using qeltest::RefCountOf;
using qeltest::TestHost;

constexpr int kThreads = 4;
constexpr int kRounds = 20;

struct Components {
    SmartPtr<IQELColorTransform> colour;
    SmartPtr<IQELTransform> transform;
    SmartPtr<IQELDeform> deform;
    SmartPtr<IQELFilterTransform> filter;
    SmartPtr<IQELMaths> maths;
};

Components MakeComponents() {
    Components c;
    qel::Host& host = TestHost();
    c.colour = host.Create<IQELColorTransform>(L"QELColorTransform", qel::iid::IQELColorTransform);
    c.transform = host.Create<IQELTransform>(L"QELTransform", qel::iid::IQELTransform);
    c.deform = host.Create<IQELDeform>(L"QELDeform", qel::iid::IQELDeform);
    c.filter = host.Create<IQELFilterTransform>(L"QELFilterTransform", qel::iid::IQELFilterTransform);
    c.maths = host.Create<IQELMaths>(L"QELMaths", qel::iid::IQELMaths);
    return c;
}

// The module fills its caches of the runtime's image locators without a lock,
// so a host makes its first image-creating calls from one thread. Both roads
// (the collection and the cached image locator) are taken here once.
const Components& Shared() {
    static const Components shared = [] {
        Components c = MakeComponents();
        SmartPtr<BufferImage> warm(BufferImage::Make(3, 3, 24, QEL_MODEL_BGR));
        SmartPtr<IQEL> out;
        c.filter->Blur(warm.Get(), out.Out());
        c.filter->Erode(warm.Get(), 3, out.Out());
        return c;
    }();
    return shared;
}

SmartPtr<BufferImage> RandomImage(int width, int height, int bitCount, unsigned model, uint32_t seed) {
    SmartPtr<BufferImage> image(BufferImage::Make(width, height, bitCount, model, 3, seed % 2 == 1));
    image->FillRandom(seed);
    return image;
}

// One thread's work on its own source: a chain of out-of-place and in-place
// operations whose outcome is a list of pixel digests.
std::vector<uint64_t> Work(const Components& c, int seed) {
    std::vector<uint64_t> digests;
    const int bitCount = seed % 3 == 0 ? 8 : seed % 3 == 1 ? 24 : 32;
    const unsigned model = bitCount == 8 ? QEL_MODEL_MONO : bitCount == 24 ? QEL_MODEL_BGR : QEL_MODEL_ARGB;
    SmartPtr<BufferImage> source = RandomImage(23 + seed, 17 + seed, bitCount, model, 1000u + seed);
    SmartPtr<IQEL> out;
    c.filter->Median(source.Get(), 3, out.Out());
    digests.push_back(PixelDigest(out.Get()));
    c.filter->GaussianBlur(source.Get(), 2, out.Out());
    digests.push_back(PixelDigest(out.Get()));
    c.transform->Rotate(source.Get(), out.Out(), 30 + seed, 3, 0, 0);
    digests.push_back(PixelDigest(out.Get()));
    c.transform->Resample(source.Get(), out.Out(), 40, 9, 4, 0);
    digests.push_back(PixelDigest(out.Get()));
    c.transform->Skew(source.Get(), out.Out(), 0.25f, -0.5f, 0, 0, 0, 1);
    digests.push_back(PixelDigest(out.Get()));
    SmartPtr<IQELImageDIB> sum = TestHost().NewImage();
    c.maths->Add(sum.Get(), source.Get(), out.Get(), 2.0f);
    digests.push_back(PixelDigest(sum.Get()));
    // Noise draws from the process-wide rand: its bytes depend on the other
    // threads, so only its safety is checked here.
    c.filter->Noise(source.Get(), 20, out.Out());
    c.colour->Light(source.Get(), 20, 10);
    c.deform->CircleTransform(source.Get(), seed % 4, 0, 2.0f);
    c.colour->Negative(source.Get());
    digests.push_back(PixelDigest(source.Get()));
    return digests;
}

void RunOnThreads(const std::function<void(int)>& body) {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) threads.emplace_back(body, t);
    for (std::thread& thread : threads) thread.join();
}

TEST(ReliabilityThreads, OperationsOnOwnImagesGiveTheSameBytesAsAlone) {
    const Components& c = Shared();
    std::vector<std::vector<uint64_t>> alone;
    for (int t = 0; t < kThreads; ++t) alone.push_back(Work(c, t));

    std::vector<std::vector<std::vector<uint64_t>>> together(kThreads);
    RunOnThreads([&](int t) {
        for (int round = 0; round < kRounds; ++round) together[t].push_back(Work(c, t));
    });
    for (int t = 0; t < kThreads; ++t)
        for (int round = 0; round < kRounds; ++round)
            EXPECT_EQ(together[t][round], alone[t]) << "thread " << t << " round " << round;
}

TEST(ReliabilityThreads, SharedSourceAndComponentsKeepReferencesBalanced) {
    const Components& c = Shared();
    SmartPtr<BufferImage> source = RandomImage(31, 19, 24, QEL_MODEL_BGR, 77);
    const std::vector<unsigned char> before = source->Snapshot();
    const uint32_t sourceRefs = source->RefCount();
    const uint32_t filterRefs = RefCountOf(c.filter.Get());

    SmartPtr<IQEL> expected;
    c.filter->Sharpen(source.Get(), expected.Out());
    const uint64_t expectedDigest = PixelDigest(expected.Get());

    // Every thread takes its own references to the shared component and the
    // shared source, and hands its results to the next thread to release.
    std::vector<std::vector<IQEL*>> handedOver(kThreads);
    std::vector<std::vector<uint64_t>> digests(kThreads);
    RunOnThreads([&](int t) {
        for (int round = 0; round < kRounds * 4; ++round) {
            SmartPtr<IQELFilterTransform> filter;
            filter.Share(c.filter.Get());
            SmartPtr<IQEL> input;
            input.Share(source.Get());
            SmartPtr<IQEL> out;
            filter->Sharpen(input.Get(), out.Out());
            digests[t].push_back(PixelDigest(out.Get()));
            handedOver[t].push_back(out.Detach());
            SmartPtr<IQELTransform> transform =
                QueryAs<IQELTransform>(c.transform.Get(), qel::iid::IQELTransform);
            transform->Mirror(input.Get(), out.Out());
        }
    });
    RunOnThreads([&](int t) {
        for (IQEL* image : handedOver[(t + 1) % kThreads]) EXPECT_EQ(image->Release(), 0u);
    });

    for (int t = 0; t < kThreads; ++t)
        for (const uint64_t digest : digests[t]) EXPECT_EQ(digest, expectedDigest) << "thread " << t;
    EXPECT_EQ(source->RefCount(), sourceRefs);
    EXPECT_EQ(RefCountOf(c.filter.Get()), filterRefs);
    EXPECT_EQ(source->Snapshot(), before);
    EXPECT_TRUE(source->GuardsIntact());
}

TEST(ReliabilityThreads, ComponentsCreatedAndReleasedOnEveryThread) {
    Shared();
    std::vector<uint64_t> digests(kThreads);
    RunOnThreads([&](int t) {
        for (int round = 0; round < kRounds; ++round) {
            Components own = MakeComponents();
            ASSERT_TRUE(own.maths && own.colour && own.transform && own.deform && own.filter);
            SmartPtr<IQEL> dest;
            SmartPtr<BufferImage> model = RandomImage(9, 5, 24, QEL_MODEL_BGR, 5u + t);
            own.maths->CreateDestImage(dest.Out(), model.Get(), 32, QEL_MODEL_ARGB);
            own.maths->Equal(dest.Get(), nullptr, 0x11223344 + t);
            digests[t] = PixelDigest(dest.Get());
            EXPECT_EQ(RefCountOf(dest.Get()), 1u);
        }
    });
    for (int t = 0; t < kThreads; ++t) {
        std::vector<unsigned char> pixel = {static_cast<unsigned char>(0x44 + t), 0x33, 0x22, 0x11};
        std::vector<unsigned char> all;
        for (int i = 0; i < 9 * 5; ++i) all.insert(all.end(), pixel.begin(), pixel.end());
        SmartPtr<BufferImage> reference(BufferImage::Make(9, 5, 32, QEL_MODEL_ARGB));
        qeltest::SetPixelBytes(reference.Get(), all);
        EXPECT_EQ(digests[t], PixelDigest(reference.Get())) << "thread " << t;
    }
}

}  // namespace
