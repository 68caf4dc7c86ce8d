#include "host/pixel_block.h"

#include <climits>
#include <cstdint>

namespace qelhost {
namespace {

bool SupportedBitCount(int bitCount) {
    switch (bitCount) {
        case 1:
        case 4:
        case 8:
        case 16:
        case 24:
        case 32:
            return true;
        default:
            return false;
    }
}

}  // namespace

PixelBlock* PixelBlock::Allocate(int planes, int stride, int height, size_t rowBytes, bool clearPixels) {
    const size_t planeBytes = static_cast<size_t>(stride) * static_cast<size_t>(height);
    auto* block = new (std::nothrow) PixelBlock();
    if (block == nullptr) return nullptr;
    block->planeBytes_ = planeBytes;
    block->planes_.reserve(static_cast<size_t>(planes));
    for (int plane = 0; plane < planes; ++plane) {
        unsigned char* bytes = AcquirePixelMemory(planeBytes + kSlackBytes, clearPixels);
        if (bytes == nullptr) {
            block->Release();
            return nullptr;
        }
        block->planes_.push_back(bytes);
        if (!clearPixels) block->ClearAroundRows(bytes, stride, height, rowBytes);
    }
    return block;
}

PixelBlock* PixelBlock::Copy() const {
    auto* copy = new (std::nothrow) PixelBlock();
    if (copy == nullptr) return nullptr;
    copy->planeBytes_ = planeBytes_;
    copy->planes_.reserve(planes_.size());
    for (const unsigned char* bytes : planes_) {
        unsigned char* duplicate = AcquirePixelMemory(planeBytes_ + kSlackBytes, false);
        if (duplicate == nullptr) {
            copy->Release();
            return nullptr;
        }
        std::memcpy(duplicate, bytes, planeBytes_ + kSlackBytes);
        copy->planes_.push_back(duplicate);
    }
    return copy;
}

size_t RowBytesOf(int width, int bitCount) {
    return (static_cast<size_t>(width) * static_cast<size_t>(bitCount) + 7) / 8;
}

QResult MeasureLayout(int width, int height, int planes, int bitCount, int* stride, size_t* planeBytes) {
    if (width < 0 || height < 0 || planes < 1 || planes > kMaxPlanes || !SupportedBitCount(bitCount))
        return QEL_E_INVALIDARG;
    const unsigned long long rowBits =
        static_cast<unsigned long long>(width) * static_cast<unsigned>(bitCount);
    const unsigned long long rowStride = (rowBits + 31) / 32 * 4;
    if (rowStride > static_cast<unsigned long long>(INT_MAX)) return QEL_E_INVALIDARG;
    const unsigned long long bytes = rowStride * static_cast<unsigned long long>(height);
    if (bytes > (static_cast<unsigned long long>(PTRDIFF_MAX) - kSlackBytes) / static_cast<unsigned>(planes))
        return QEL_E_INVALIDARG;
    if (bytes * static_cast<unsigned>(planes) > kMaxImageBytes) return QEL_E_OUTOFMEMORY;
    *stride = static_cast<int>(rowStride);
    *planeBytes = static_cast<size_t>(bytes);
    return QEL_OK;
}

QResult MakeLayout(int width, int height, int planes, int bitCount, unsigned colourModel, bool clearPixels,
                   Layout* out) {
    int stride = 0;
    size_t planeBytes = 0;
    const QResult measured = MeasureLayout(width, height, planes, bitCount, &stride, &planeBytes);
    if (measured != QEL_OK) return measured;
    Layout layout;
    static_cast<Geometry&>(layout) = Geometry{width, height, planes, bitCount, colourModel, stride};
    layout.block = PixelBlock::Allocate(planes, stride, height, RowBytesOf(width, bitCount), clearPixels);
    if (layout.block == nullptr) return QEL_E_OUTOFMEMORY;
    *out = std::move(layout);
    return QEL_OK;
}

bool ReusableFor(const Layout& layout, int width, int height, int planes, int bitCount) {
    return layout.block != nullptr && !layout.block->Shared() && layout.width == width &&
           layout.height == height && layout.planes == planes && layout.bitCount == bitCount;
}

}  // namespace qelhost
