// The runtime's pixel memory: alignment of large blocks, which kept block
// serves which request, and the bounds on what is kept.
#include "host/pixel_memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

namespace {

using namespace qelhost;

constexpr size_t kMiB = size_t{1} << 20;

// A request that maps `mebibytes` (even): a little less, so that a sanitized
// build's guard bytes still fit.
size_t Mapping(size_t mebibytes) { return mebibytes * kMiB - 4096; }

// Blocks kept, and their size in MiB.
std::vector<size_t> Kept() {
    const KeptPixelMemory kept = KeptPixelMemoryNow();
    return {kept.blocks, kept.bytes / kMiB};
}

class PixelMemory : public ::testing::Test {
protected:
    void SetUp() override { ReleaseKeptPixelMemory(); }
    void TearDown() override { ReleaseKeptPixelMemory(); }
};

TEST_F(PixelMemory, KeptBlocksAreHugePageAlignedAndServeOnlyRequestsOfTheirMappedSize) {
    // Below a MiB blocks are malloc's: neither they nor a null block are kept.
    unsigned char* small = AcquirePixelMemory(kMiB - 1, true);
    ASSERT_NE(small, nullptr);
    EXPECT_EQ(small[kMiB - 2], 0);
    ReleasePixelMemory(small, kMiB - 1);
    ReleasePixelMemory(nullptr, Mapping(8));
    EXPECT_EQ(Kept(), std::vector<size_t>({0, 0}));

    unsigned char* eight = AcquirePixelMemory(Mapping(8), true);
    ASSERT_NE(eight, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(eight) % (2 * kMiB), 0u);
    EXPECT_EQ(eight[0] + eight[Mapping(8) - 1], 0);
    ReleasePixelMemory(eight, Mapping(8));
    unsigned char* two = AcquirePixelMemory(Mapping(2), false);
    unsigned char* ten = AcquirePixelMemory(Mapping(10), false);
    EXPECT_EQ(Kept(), std::vector<size_t>({1, 8})) << "neither request is served by the 8 MiB block";
    ReleasePixelMemory(two, Mapping(2));
    ReleasePixelMemory(ten, Mapping(10));
    EXPECT_EQ(Kept(), std::vector<size_t>({3, 20}));
    EXPECT_EQ(AcquirePixelMemory(Mapping(10), false), ten);
    EXPECT_EQ(AcquirePixelMemory(7 * kMiB + 1, false), eight) << "7 MiB and a byte map 8 MiB too";
    EXPECT_EQ(Kept(), std::vector<size_t>({1, 2}));
    ReleasePixelMemory(ten, Mapping(10));
    ReleasePixelMemory(eight, 7 * kMiB + 1);
}

TEST_F(PixelMemory, KeepsAtMostEightBlocksAndAQuarterGiBTheOldestGoingFirst) {
    std::vector<unsigned char*> blocks;
    for (int n = 0; n < 9; ++n) blocks.push_back(AcquirePixelMemory(Mapping(2), false));
    for (unsigned char* block : blocks) ReleasePixelMemory(block, Mapping(2));
    EXPECT_EQ(Kept(), std::vector<size_t>({8, 16}));
    EXPECT_EQ(AcquirePixelMemory(Mapping(2), false), blocks[8]);
    ReleasePixelMemory(blocks[8], Mapping(2));

    // Fresh mappings are zero already: untouched, they cost address space only.
    ReleaseKeptPixelMemory();
    std::vector<unsigned char*> big;
    for (int n = 0; n < 3; ++n) big.push_back(AcquirePixelMemory(Mapping(100), true));
    for (unsigned char* block : big) ReleasePixelMemory(block, Mapping(100));
    EXPECT_EQ(Kept(), std::vector<size_t>({2, 200}));
    EXPECT_EQ(AcquirePixelMemory(Mapping(100), false), big[2]);
    EXPECT_EQ(AcquirePixelMemory(Mapping(100), false), big[1]);
    EXPECT_EQ(Kept(), std::vector<size_t>({0, 0}));
    ReleasePixelMemory(big[1], Mapping(100));
    ReleasePixelMemory(big[2], Mapping(100));

    unsigned char* huge = AcquirePixelMemory(Mapping(300), true);
    ReleasePixelMemory(huge, Mapping(300));
    EXPECT_EQ(Kept(), std::vector<size_t>({2, 200})) << "a block above the whole bound is given back";
    ReleaseKeptPixelMemory();
    EXPECT_EQ(Kept(), std::vector<size_t>({0, 0}));
}

TEST_F(PixelMemory, ThreadsTakingAndKeepingBlocksNeverShareOne) {
    std::vector<std::thread> threads;
    std::vector<int> faults(4, 0);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t, &faults] {
            const size_t bytes = Mapping(2 + t % 2 * 2);
            for (int round = 0; round < 200; ++round) {
                unsigned char* block = AcquirePixelMemory(bytes, round % 2 == 0);
                // Whoever holds a block alone sees its own marks survive.
                block[0] = static_cast<unsigned char>(t);
                block[bytes - 1] = static_cast<unsigned char>(round);
                std::this_thread::yield();
                if (block[0] != t || block[bytes - 1] != static_cast<unsigned char>(round)) ++faults[t];
                ReleasePixelMemory(block, bytes);
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(faults, std::vector<int>(4, 0));
    EXPECT_LE(KeptPixelMemoryNow().blocks, 4u);
}

#if defined(__SANITIZE_ADDRESS__)
// A sanitized build still catches reads past an image's slack and reads of a
// block after its image gave it back.
TEST_F(PixelMemory, TheSanitizerSeesPastTheEndAndIntoKeptBlocks) {
    const size_t bytes = Mapping(2);
    unsigned char* block = AcquirePixelMemory(bytes, false);
    EXPECT_EQ(block[0], 0xbe) << "unwritten bytes look as malloc's do under the sanitizer stage";
    volatile unsigned char* past = block + bytes;
    EXPECT_DEATH((void)*past, "use-after-poison");
    ReleasePixelMemory(block, bytes);
    volatile unsigned char* kept = block;
    EXPECT_DEATH((void)*kept, "use-after-poison");
}
#endif

}  // namespace
