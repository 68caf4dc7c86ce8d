// Pixel memory of the runtime's images: the block of planes an image holds
// (shared between images after Assign), its geometry, and the checks a
// requested geometry passes before any memory is taken.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "host/pixel_memory.h"
#include "qel/types.h"

namespace qelhost {

inline constexpr size_t kSlackBytes = 16;
inline constexpr int kMaxPlanes = 16;
// Larger images are refused as out of memory before any allocation is tried
// (64 GiB across all planes, well past what a machine here holds).
inline constexpr unsigned long long kMaxImageBytes = 1ull << 36;

// Pixel memory of one geometry: one buffer per plane, each followed by
// kSlackBytes of zeros. Images share a block after one is assigned from the
// other; an image that hands out its bits while the block is shared first
// takes a copy of its own, so that the pixels it is given are its alone.
class PixelBlock {
public:
    // A block of zeros, or with `clearPixels` false one whose row padding and
    // slack are zero and whose pixel bytes are left as the allocator gives them.
    static PixelBlock* Allocate(int planes, int stride, int height, size_t rowBytes, bool clearPixels);
    // A new, unshared block with the same bytes, or null when memory is short.
    PixelBlock* Copy() const;

    PixelBlock* Share() {
        references_.fetch_add(1, std::memory_order_relaxed);
        return this;
    }
    void Release() {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }
    bool Shared() const { return references_.load(std::memory_order_acquire) > 1; }
    void Clear() {
        for (unsigned char* bytes : planes_) std::memset(bytes, 0, planeBytes_ + kSlackBytes);
    }
    // Zeroes only what lies outside the rows' pixel bytes.
    void ClearAroundPixels(int stride, int height, size_t rowBytes) {
        for (unsigned char* bytes : planes_) ClearAroundRows(bytes, stride, height, rowBytes);
    }

    unsigned char* Plane(int plane) const { return planes_[static_cast<size_t>(plane)]; }
    size_t PlaneBytes() const { return planeBytes_; }

private:
    PixelBlock() = default;
    void ClearAroundRows(unsigned char* bytes, int stride, int height, size_t rowBytes) const {
        if (static_cast<size_t>(stride) > rowBytes)
            for (int y = 0; y < height; ++y)
                std::memset(bytes + static_cast<ptrdiff_t>(y) * stride + rowBytes, 0, stride - rowBytes);
        std::memset(bytes + planeBytes_, 0, kSlackBytes);
    }
    ~PixelBlock() {
        for (unsigned char* bytes : planes_) ReleasePixelMemory(bytes, planeBytes_ + kSlackBytes);
    }

    std::atomic<int> references_{1};
    size_t planeBytes_ = 0;
    std::vector<unsigned char*> planes_;
};

struct Geometry {
    int width = 0;
    int height = 0;
    int planes = 0;
    int bitCount = 0;
    unsigned colourModel = 0;
    int stride = 0;
};

// Geometry of an image and the block holding its pixels (one reference).
struct Layout : Geometry {
    PixelBlock* block = nullptr;

    Layout() = default;
    Layout(const Layout&) = delete;
    Layout& operator=(const Layout&) = delete;
    Layout(Layout&& other) noexcept { *this = std::move(other); }
    Layout& operator=(Layout&& other) noexcept {
        if (this != &other) {
            if (block != nullptr) block->Release();
            static_cast<Geometry&>(*this) = other;
            block = std::exchange(other.block, nullptr);
        }
        return *this;
    }
    ~Layout() {
        if (block != nullptr) block->Release();
    }

    // The same layout over a shared block.
    Layout Share() const {
        Layout shared;
        static_cast<Geometry&>(shared) = *this;
        shared.block = block != nullptr ? block->Share() : nullptr;
        return shared;
    }
};

// Bytes of one row's pixels, without padding.
size_t RowBytesOf(int width, int bitCount);

// Checks a requested geometry and works out its stride and plane size.
QResult MeasureLayout(int width, int height, int planes, int bitCount, int* stride /*out*/,
                      size_t* planeBytes /*out*/);

// A layout of that geometry over a new block (cleared, or with only its
// padding and slack cleared).
QResult MakeLayout(int width, int height, int planes, int bitCount, unsigned colourModel, bool clearPixels,
                   Layout* out /*out*/);

// True when `layout` holds a block of its own for this geometry, so that new
// content can go into it: same size, planes and bit count give the same
// stride and plane size.
bool ReusableFor(const Layout& layout, int width, int height, int planes, int bitCount);

}  // namespace qelhost
