// "QELImageDIB": the runtime's in-memory image. Rows are top-down and padded
// to 4 bytes, one buffer per plane, each followed by a few bytes of zeroed
// slack because some operations read a little past the end of a row. Create
// zero-fills; Assign from another runtime image shares its pixels until either
// image hands out its bits.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "host/pixel_memory.h"
#include "host/ref_counted.h"

namespace qelhost {
namespace {

constexpr size_t kSlackBytes = 16;
constexpr int kMaxPlanes = 16;
constexpr unsigned kMaxPaletteEntries = 256;
// Larger images are refused as out of memory before any allocation is tried
// (64 GiB across all planes, well past what a machine here holds).
constexpr unsigned long long kMaxImageBytes = 1ull << 36;

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

// Pixel memory of one geometry: one buffer per plane, each followed by
// kSlackBytes of zeros. Images share a block after one is assigned from the
// other; an image that hands out its bits while the block is shared first
// takes a copy of its own, so that the pixels it is given are its alone.
class PixelBlock {
public:
    // A block of zeros, or with `clearPixels` false one whose row padding and
    // slack are zero and whose pixel bytes are left as the allocator gives them.
    static PixelBlock* Allocate(int planes, int stride, int height, size_t rowBytes, bool clearPixels) {
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

    // A new, unshared block with the same bytes, or null when memory is short.
    PixelBlock* Copy() const {
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

size_t RowBytesOf(int width, int bitCount) {
    return (static_cast<size_t>(width) * static_cast<size_t>(bitCount) + 7) / 8;
}

// Checks a requested geometry and works out its stride and plane size.
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

// True when `layout` holds a block of its own for this geometry, so that new
// content can go into it: same size, planes and bit count give the same
// stride and plane size.
bool ReusableFor(const Layout& layout, int width, int height, int planes, int bitCount) {
    return layout.block != nullptr && !layout.block->Shared() && layout.width == width &&
           layout.height == height && layout.planes == planes && layout.bitCount == bitCount;
}

// True when the rows of a source plane touch a buffer of `bufferBytes` bytes.
bool RowsOverlap(const unsigned char* rows, int stride, int height, size_t rowBytes,
                 const unsigned char* buffer, size_t bufferBytes) {
    if (height <= 0) return false;
    const ptrdiff_t lastRow = static_cast<ptrdiff_t>(height - 1) * stride;
    const auto begin =
        reinterpret_cast<uintptr_t>(rows) + static_cast<uintptr_t>(std::min<ptrdiff_t>(lastRow, 0));
    const auto end = reinterpret_cast<uintptr_t>(rows) +
                     static_cast<uintptr_t>(std::max<ptrdiff_t>(lastRow, 0)) + rowBytes;
    const auto bufferBegin = reinterpret_cast<uintptr_t>(buffer);
    return begin < bufferBegin + bufferBytes && bufferBegin < end;
}

// Writes the packed colour into one row of pixels by bit count.
void FillRow(unsigned char* row, int width, int bitCount, unsigned colour) {
    const auto blue = static_cast<unsigned char>(colour & 0xFF);
    const auto green = static_cast<unsigned char>((colour >> 8) & 0xFF);
    const auto red = static_cast<unsigned char>((colour >> 16) & 0xFF);
    const auto alpha = static_cast<unsigned char>(colour >> 24);
    // Palette depths store the nearest grey of the fixed ramp, as pixel writes do.
    const int grey = (blue + green + red + 1) / 3;
    switch (bitCount) {
        case 32:
            for (int x = 0; x < width; ++x) {
                row[4 * x] = blue;
                row[4 * x + 1] = green;
                row[4 * x + 2] = red;
                row[4 * x + 3] = alpha;
            }
            break;
        case 24:
            for (int x = 0; x < width; ++x) {
                row[3 * x] = blue;
                row[3 * x + 1] = green;
                row[3 * x + 2] = red;
            }
            break;
        case 16: {
            // 5-6-5: red in the top bits, blue in the low bits.
            const unsigned value = static_cast<unsigned>((red >> 3) << 11 | (green >> 2) << 5 | (blue >> 3));
            for (int x = 0; x < width; ++x) {
                row[2 * x] = static_cast<unsigned char>(value & 0xFF);
                row[2 * x + 1] = static_cast<unsigned char>(value >> 8);
            }
            break;
        }
        case 8:
            std::memset(row, grey, static_cast<size_t>(width));
            break;
        case 4:
            std::memset(row, (grey & 0x0F) * 0x11, (static_cast<size_t>(width) + 1) / 2);
            break;
        case 1:
            std::memset(row, (grey & 1) ? 0xFF : 0x00, (static_cast<size_t>(width) + 7) / 8);
            break;
        default:
            break;
    }
}

// One plane of an Assign source, read before anything is changed.
struct SourcePlane {
    unsigned char* bits = nullptr;
    int stride = 0;
};

// Answered only by the runtime's own images, with the object itself, so that
// Assign can share their pixel block instead of copying it.
constexpr IID kRuntimeImageIdentity = {{0x51454C52u, 0x756E7469u, 0x6D65496Du, 0x61676521u}};

class ImageDIB final : public IQELImageDIB, public IQELImagePalette, public IQELImageUninitialised {
public:
    QELHOST_REFCOUNT_METHODS

    QResult QueryInterface(const IID& iid, void** object) override {
        if (object == nullptr) return QEL_E_POINTER;
        if (iid == qel::iid::IUnknown || iid == qel::iid::IQEL || iid == qel::iid::IQELImage ||
            iid == qel::iid::IQELImageDIB)
            return HandOut(static_cast<IQELImageDIB*>(this), object);
        if (iid == qel::iid::IQELImagePalette && !palette_.empty())
            return HandOut(static_cast<IQELImagePalette*>(this), object);
        if (iid == qel::iid::IQELImageUninitialised)
            return HandOut(static_cast<IQELImageUninitialised*>(this), object);
        if (iid == kRuntimeImageIdentity) return HandOut(this, object);
        *object = nullptr;
        return QEL_E_NOINTERFACE;
    }

    QResult GetSize(int* width, int* height, int* planes) override {
        if (width != nullptr) *width = layout_.width;
        if (height != nullptr) *height = layout_.height;
        if (planes != nullptr) *planes = layout_.planes;
        return QEL_OK;
    }

    QResult GetFormat(int* bitCount, unsigned* colourModel, int* reserved) override {
        if (bitCount != nullptr) *bitCount = layout_.bitCount;
        if (colourModel != nullptr) *colourModel = layout_.colourModel;
        if (reserved != nullptr) *reserved = 0;
        return QEL_OK;
    }

    // Whoever asks for the bits may write them, so a shared block is copied first.
    QResult GetBits(int plane, int* reserved, unsigned char** bits, int* stride) override {
        if (reserved != nullptr) *reserved = 0;
        if (bits != nullptr) *bits = nullptr;
        if (stride != nullptr) *stride = 0;
        if (plane < 0 || (plane >= layout_.planes && plane != 0)) return QEL_E_INVALIDARG;
        if (stride != nullptr) *stride = layout_.stride;
        std::lock_guard<std::mutex> lock(blockMutex_);
        if (layout_.block == nullptr) return QEL_OK;
        const QResult owned = OwnBlock();
        if (owned != QEL_OK) return owned;
        if (bits != nullptr) *bits = layout_.block->Plane(plane);
        return QEL_OK;
    }

    QResult Create(int width, int height, int planes, int bitCount, unsigned colourModel) override {
        return Make(width, height, planes, bitCount, colourModel, true);
    }

    QResult CreateUninitialised(int width, int height, int planes, int bitCount,
                                unsigned colourModel) override {
        return Make(width, height, planes, bitCount, colourModel, false);
    }

    QResult Clear() override {
        {
            std::lock_guard<std::mutex> lock(blockMutex_);
            layout_ = Layout();
        }
        palette_.clear();
        return QEL_OK;
    }

    QResult Assign(IQEL* source, int /*flags*/) override {
        if (source == nullptr) return QEL_E_POINTER;
        if (source == static_cast<IQEL*>(this)) return QEL_OK;
        SmartPtr<ImageDIB> runtimeImage;
        source->QueryInterface(kRuntimeImageIdentity, runtimeImage.OutVoid());
        if (runtimeImage) {
            Layout shared = runtimeImage->ShareLayout();
            std::vector<RGBQUAD> palette = runtimeImage->palette_;
            std::lock_guard<std::mutex> lock(blockMutex_);
            layout_ = std::move(shared);
            palette_ = std::move(palette);
            return QEL_OK;
        }
        return CopyFrom(source);
    }
    QResult Fill(unsigned colour) override {
        {
            std::lock_guard<std::mutex> lock(blockMutex_);
            if (layout_.block == nullptr) return QEL_OK;
            const QResult owned = OwnBlock();
            if (owned != QEL_OK) return owned;
        }
        for (int plane = 0; plane < layout_.planes; ++plane) {
            unsigned char* bits = layout_.block->Plane(plane);
            for (int y = 0; y < layout_.height; ++y)
                FillRow(bits + static_cast<ptrdiff_t>(y) * layout_.stride, layout_.width, layout_.bitCount,
                        colour);
        }
        return QEL_OK;
    }

    QResult SetPalette(const RGBQUAD* entries, unsigned count) override {
        if (count > kMaxPaletteEntries) return QEL_E_INVALIDARG;
        if (count > 0 && entries == nullptr) return QEL_E_POINTER;
        palette_.assign(entries, entries + count);
        return QEL_OK;
    }

    QResult GetPalette(RGBQUAD** entries, unsigned* count) override {
        if (entries == nullptr || count == nullptr) return QEL_E_POINTER;
        *entries = palette_.empty() ? nullptr : palette_.data();
        *count = static_cast<unsigned>(palette_.size());
        return QEL_OK;
    }

private:
    ~ImageDIB() = default;

    // Create, with the pixel bytes cleared or left as they are.
    QResult Make(int width, int height, int planes, int bitCount, unsigned colourModel, bool clearPixels) {
        if (ReusableFor(layout_, width, height, planes, bitCount)) {
            // Clearing the block in place costs what calloc's clearing of a
            // reused heap block costs, without the free and the new block.
            if (clearPixels)
                layout_.block->Clear();
            else
                layout_.block->ClearAroundPixels(layout_.stride, height, RowBytesOf(width, bitCount));
            layout_.colourModel = colourModel;
            return QEL_OK;
        }
        Layout layout;
        const QResult result = MakeLayout(width, height, planes, bitCount, colourModel, clearPixels, &layout);
        if (result != QEL_OK) return result;
        std::lock_guard<std::mutex> lock(blockMutex_);
        layout_ = std::move(layout);
        return QEL_OK;
    }

    Layout ShareLayout() {
        std::lock_guard<std::mutex> lock(blockMutex_);
        return layout_.Share();
    }

    // Makes the block this image's alone, copying it when another image
    // shares it; called with blockMutex_ held, so that threads which only
    // read this image may ask for its bits at the same time.
    QResult OwnBlock() {
        if (!layout_.block->Shared()) return QEL_OK;
        PixelBlock* copy = layout_.block->Copy();
        if (copy == nullptr) return QEL_E_OUTOFMEMORY;
        std::exchange(layout_.block, copy)->Release();
        return QEL_OK;
    }

    // Assign from an image of another kind: its rows are copied.
    QResult CopyFrom(IQEL* source) {
        int width = 0, height = 0, planes = 0, bitCount = 0, reserved = 0;
        unsigned colourModel = 0;
        source->GetSize(&width, &height, &planes);
        source->GetFormat(&bitCount, &colourModel, &reserved);
        int stride = 0;
        size_t planeBytes = 0;
        const QResult measured = MeasureLayout(width, height, planes, bitCount, &stride, &planeBytes);
        if (measured != QEL_OK) return measured;
        const size_t rowBytes = RowBytesOf(width, bitCount);
        std::vector<SourcePlane> sourcePlanes(static_cast<size_t>(planes));
        for (int plane = 0; plane < planes; ++plane) {
            SourcePlane& sourcePlane = sourcePlanes[static_cast<size_t>(plane)];
            if (source->GetBits(plane, &reserved, &sourcePlane.bits, &sourcePlane.stride) < 0)
                sourcePlane.bits = nullptr;
        }

        // The same geometry takes the new pixels into the block already
        // held; nothing can fail past this check. Sources whose rows lie in
        // that block take a new one.
        bool reuse = ReusableFor(layout_, width, height, planes, bitCount);
        for (int plane = 0; reuse && plane < planes; ++plane) {
            const SourcePlane& sourcePlane = sourcePlanes[static_cast<size_t>(plane)];
            if (sourcePlane.bits == nullptr) continue;
            for (int own = 0; own < layout_.planes; ++own)
                if (RowsOverlap(sourcePlane.bits, sourcePlane.stride, height, rowBytes,
                                layout_.block->Plane(own), layout_.block->PlaneBytes() + kSlackBytes))
                    reuse = false;
        }
        Layout fresh;
        if (!reuse) {
            const QResult result = MakeLayout(width, height, planes, bitCount, colourModel, true, &fresh);
            if (result != QEL_OK) return result;
        }
        Layout& target = reuse ? layout_ : fresh;
        const size_t padding = static_cast<size_t>(target.stride) - rowBytes;
        for (int plane = 0; plane < planes; ++plane) {
            const SourcePlane& sourcePlane = sourcePlanes[static_cast<size_t>(plane)];
            unsigned char* bits = target.block->Plane(plane);
            if (sourcePlane.bits == nullptr) {
                // A plane the source does not hand out reads as a new image's.
                if (reuse) std::memset(bits, 0, target.block->PlaneBytes() + kSlackBytes);
                continue;
            }
            for (int y = 0; y < height; ++y) {
                unsigned char* row = bits + static_cast<ptrdiff_t>(y) * target.stride;
                std::memcpy(row, sourcePlane.bits + static_cast<ptrdiff_t>(y) * sourcePlane.stride, rowBytes);
                // Row padding and the slack stay zero, as in a new block.
                if (reuse && padding > 0) std::memset(row + rowBytes, 0, padding);
            }
            if (reuse) std::memset(bits + target.block->PlaneBytes(), 0, kSlackBytes);
        }
        std::vector<RGBQUAD> palette;
        SmartPtr<IQELImagePalette> sourcePalette =
            QueryAs<IQELImagePalette>(source, qel::iid::IQELImagePalette);
        if (sourcePalette) {
            RGBQUAD* entries = nullptr;
            unsigned count = 0;
            if (sourcePalette->GetPalette(&entries, &count) >= 0 && entries != nullptr)
                palette.assign(entries, entries + std::min(count, kMaxPaletteEntries));
        }
        if (!reuse) {
            std::lock_guard<std::mutex> lock(blockMutex_);
            layout_ = std::move(fresh);
        }
        layout_.colourModel = colourModel;
        palette_ = std::move(palette);
        return QEL_OK;
    }

    Layout layout_;
    std::vector<RGBQUAD> palette_;
    // Guards the swap of layout_.block against images taking a share of it
    // and against readers of this image copying it at the same time.
    std::mutex blockMutex_;
};

}  // namespace

IQELImageDIB* NewImageDIB() { return new ImageDIB(); }

}  // namespace qelhost
