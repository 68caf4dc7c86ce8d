// Large pixel blocks from huge-page mappings, and the few freed ones kept for
// reuse. Under AddressSanitizer kept blocks and the unused tail of a block are
// poisoned, and blocks handed out uninitialised are filled with the byte the
// sanitizer stage gives malloc's blocks, so that unwritten pixels still show.
#include "host/pixel_memory.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define QELHOST_ADDRESS_SANITIZER 1
#else
#define QELHOST_ADDRESS_SANITIZER 0
#endif

namespace qelhost {
namespace {

constexpr size_t kMiB = size_t{1} << 20;
constexpr size_t kLargeBlockBytes = 1 * kMiB;
constexpr size_t kHugePageBytes = 2 * kMiB;
// Bounds of what is kept: enough for a chain's source, result and a second
// image of each of two sizes, never more than this many bytes.
constexpr size_t kMaxKeptBlocks = 8;
constexpr size_t kMaxKeptBytes = 256 * kMiB;

#if QELHOST_ADDRESS_SANITIZER
// Room past the end that the sanitizer watches, so a block never ends exactly
// where the mapping does.
constexpr size_t kGuardBytes = 64;
// What the sanitizer stage has malloc fill its blocks with, and how far.
constexpr unsigned char kUnwrittenFill = 0xbe;
constexpr size_t kMaxUnwrittenFillBytes = 64 * kMiB;
#else
constexpr size_t kGuardBytes = 0;
#endif

size_t MappedBytesFor(size_t bytes) {
    return (bytes + kGuardBytes + kHugePageBytes - 1) / kHugePageBytes * kHugePageBytes;
}

void Poison(unsigned char* memory, size_t bytes) {
#if QELHOST_ADDRESS_SANITIZER
    ASAN_POISON_MEMORY_REGION(memory, bytes);
#else
    (void)memory;
    (void)bytes;
#endif
}

void Unpoison(unsigned char* memory, size_t bytes) {
#if QELHOST_ADDRESS_SANITIZER
    ASAN_UNPOISON_MEMORY_REGION(memory, bytes);
#else
    (void)memory;
    (void)bytes;
#endif
}

// A fresh 2 MiB-aligned mapping of `mappedBytes` (a multiple of 2 MiB), which
// the kernel hands out zeroed; null when there is no room.
unsigned char* MapAligned(size_t mappedBytes) {
    const size_t spanBytes = mappedBytes + kHugePageBytes;
    void* span = mmap(nullptr, spanBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (span == MAP_FAILED) return nullptr;
    const auto begin = reinterpret_cast<uintptr_t>(span);
    const uintptr_t aligned = (begin + kHugePageBytes - 1) & ~(uintptr_t{kHugePageBytes} - 1);
    if (aligned > begin) munmap(span, aligned - begin);
    const uintptr_t end = aligned + mappedBytes;
    if (begin + spanBytes > end) munmap(reinterpret_cast<void*>(end), begin + spanBytes - end);
    auto* memory = reinterpret_cast<unsigned char*>(aligned);
    // Advice only: without transparent huge pages the block still works.
    madvise(memory, mappedBytes, MADV_HUGEPAGE);
    return memory;
}

void Unmap(unsigned char* memory, size_t mappedBytes) {
    // The sanitizer's marks must not outlive the mapping: the addresses may
    // come back from another allocator.
    Unpoison(memory, mappedBytes);
    munmap(memory, mappedBytes);
}

struct KeptBlock {
    unsigned char* memory;
    size_t mappedBytes;
};

class KeptBlocks {
public:
    // The most recently kept block of this mapped size, or null. Sizes match
    // exactly, so that the size a block is given back with names its mapping.
    unsigned char* Take(size_t mappedBytes) {
        std::lock_guard<std::mutex> lock(mutex_);
        for (size_t n = blocks_.size(); n-- > 0;) {
            const KeptBlock block = blocks_[n];
            if (block.mappedBytes != mappedBytes) continue;
            blocks_.erase(blocks_.begin() + static_cast<ptrdiff_t>(n));
            keptBytes_ -= block.mappedBytes;
            return block.memory;
        }
        return nullptr;
    }

    // Keeps a block, giving back the oldest ones beyond the bounds.
    void Keep(unsigned char* memory, size_t mappedBytes) {
        std::vector<KeptBlock> released;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            blocks_.push_back({memory, mappedBytes});
            keptBytes_ += mappedBytes;
            while (blocks_.size() > kMaxKeptBlocks || keptBytes_ > kMaxKeptBytes) {
                released.push_back(blocks_.front());
                keptBytes_ -= blocks_.front().mappedBytes;
                blocks_.erase(blocks_.begin());
            }
        }
        // Unmapping takes the kernel a while; other threads need not wait.
        for (const KeptBlock& block : released) Unmap(block.memory, block.mappedBytes);
    }

    void ReleaseAll() {
        std::vector<KeptBlock> released;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            released.swap(blocks_);
            keptBytes_ = 0;
        }
        for (const KeptBlock& block : released) Unmap(block.memory, block.mappedBytes);
    }

    KeptPixelMemory Now() {
        std::lock_guard<std::mutex> lock(mutex_);
        return {blocks_.size(), keptBytes_};
    }

private:
    std::mutex mutex_;
    std::vector<KeptBlock> blocks_;
    size_t keptBytes_ = 0;
};

// Never destroyed: images released by other libraries' static destructors
// may still give their blocks back at exit.
KeptBlocks& Kept() {
    static KeptBlocks* kept = new KeptBlocks();
    return *kept;
}

}  // namespace

unsigned char* AcquirePixelMemory(size_t bytes, bool zeroed) {
    if (bytes < kLargeBlockBytes)
        return static_cast<unsigned char*>(zeroed ? std::calloc(bytes, 1) : std::malloc(bytes));
    const size_t mappedBytes = MappedBytesFor(bytes);
    if (mappedBytes < bytes) return nullptr;  // a size near SIZE_MAX
    unsigned char* memory = Kept().Take(mappedBytes);
    const bool reused = memory != nullptr;
    if (!reused) memory = MapAligned(mappedBytes);
    if (memory == nullptr) {
        // Kept blocks of other sizes may be what stands in the way.
        ReleaseKeptPixelMemory();
        memory = MapAligned(mappedBytes);
        if (memory == nullptr) return nullptr;
    }
    Unpoison(memory, bytes);
    Poison(memory + bytes, mappedBytes - bytes);
    if (zeroed) {
        // A new mapping is zero already; only a reused block needs clearing.
        if (reused) std::memset(memory, 0, bytes);
    } else {
#if QELHOST_ADDRESS_SANITIZER
        std::memset(memory, kUnwrittenFill, bytes < kMaxUnwrittenFillBytes ? bytes : kMaxUnwrittenFillBytes);
#endif
    }
    return memory;
}

void ReleasePixelMemory(unsigned char* memory, size_t bytes) {
    if (memory == nullptr) return;
    if (bytes < kLargeBlockBytes) {
        std::free(memory);
        return;
    }
    const size_t mappedBytes = MappedBytesFor(bytes);
    if (mappedBytes > kMaxKeptBytes) {
        Unmap(memory, mappedBytes);
        return;
    }
    Poison(memory, mappedBytes);
    Kept().Keep(memory, mappedBytes);
}

void ReleaseKeptPixelMemory() { Kept().ReleaseAll(); }

KeptPixelMemory KeptPixelMemoryNow() { return Kept().Now(); }

}  // namespace qelhost
