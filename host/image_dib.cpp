// "QELImageDIB": the runtime's in-memory image. Rows are top-down and padded
// to 4 bytes, zero-filled by Create, one buffer per plane, each followed by a
// few bytes of zeroed slack because some operations read a little past the
// end of a row.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

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

struct PlaneBuffer {
    unsigned char* bytes = nullptr;
    PlaneBuffer() = default;
    PlaneBuffer(const PlaneBuffer&) = delete;
    PlaneBuffer& operator=(const PlaneBuffer&) = delete;
    PlaneBuffer(PlaneBuffer&& other) noexcept : bytes(other.bytes) { other.bytes = nullptr; }
    PlaneBuffer& operator=(PlaneBuffer&& other) noexcept {
        std::swap(bytes, other.bytes);
        return *this;
    }
    ~PlaneBuffer() { std::free(bytes); }
};

// Geometry and storage of one Create call, built aside and swapped in whole,
// so that a failed Create leaves the image as it was.
struct Layout {
    int width = 0;
    int height = 0;
    int planes = 0;
    int bitCount = 0;
    unsigned colourModel = 0;
    int stride = 0;
    std::vector<PlaneBuffer> buffers;
};

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

QResult MakeLayout(int width, int height, int planes, int bitCount, unsigned colourModel, Layout* out) {
    int stride = 0;
    size_t planeBytes = 0;
    const QResult measured = MeasureLayout(width, height, planes, bitCount, &stride, &planeBytes);
    if (measured != QEL_OK) return measured;
    Layout layout;
    layout.width = width;
    layout.height = height;
    layout.planes = planes;
    layout.bitCount = bitCount;
    layout.colourModel = colourModel;
    layout.stride = stride;
    layout.buffers.resize(static_cast<size_t>(planes));
    for (PlaneBuffer& buffer : layout.buffers) {
        buffer.bytes = static_cast<unsigned char*>(std::calloc(planeBytes + kSlackBytes, 1));
        if (buffer.bytes == nullptr) return QEL_E_OUTOFMEMORY;
    }
    *out = std::move(layout);
    return QEL_OK;
}

// True when `layout` already holds buffers for this geometry, so that a new
// content can go into them: same size, planes and bit count give the same
// stride and plane size.
bool SameGeometry(const Layout& layout, int width, int height, int planes, int bitCount) {
    return layout.planes > 0 && layout.width == width && layout.height == height && layout.planes == planes &&
           layout.bitCount == bitCount;
}

size_t PlaneBytesOf(const Layout& layout) {
    return static_cast<size_t>(layout.stride) * static_cast<size_t>(layout.height);
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

class ImageDIB final : public IQELImageDIB, public IQELImagePalette {
public:
    QELHOST_REFCOUNT_METHODS

    QResult QueryInterface(const IID& iid, void** object) override {
        if (object == nullptr) return QEL_E_POINTER;
        if (iid == qel::iid::IUnknown || iid == qel::iid::IQEL || iid == qel::iid::IQELImage ||
            iid == qel::iid::IQELImageDIB)
            return HandOut(static_cast<IQELImageDIB*>(this), object);
        if (iid == qel::iid::IQELImagePalette && !palette_.empty())
            return HandOut(static_cast<IQELImagePalette*>(this), object);
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

    QResult GetBits(int plane, int* reserved, unsigned char** bits, int* stride) override {
        if (reserved != nullptr) *reserved = 0;
        if (plane < 0 || (plane >= layout_.planes && plane != 0)) {
            if (bits != nullptr) *bits = nullptr;
            if (stride != nullptr) *stride = 0;
            return QEL_E_INVALIDARG;
        }
        if (bits != nullptr)
            *bits = layout_.planes == 0 ? nullptr : layout_.buffers[static_cast<size_t>(plane)].bytes;
        if (stride != nullptr) *stride = layout_.stride;
        return QEL_OK;
    }

    QResult Create(int width, int height, int planes, int bitCount, unsigned colourModel) override {
        if (SameGeometry(layout_, width, height, planes, bitCount)) {
            // Clearing the buffers in place costs what calloc's clearing of a
            // reused heap block costs, without the free and the new block.
            for (PlaneBuffer& buffer : layout_.buffers)
                std::memset(buffer.bytes, 0, PlaneBytesOf(layout_) + kSlackBytes);
            layout_.colourModel = colourModel;
            return QEL_OK;
        }
        Layout layout;
        const QResult result = MakeLayout(width, height, planes, bitCount, colourModel, &layout);
        if (result != QEL_OK) return result;
        layout_ = std::move(layout);
        return QEL_OK;
    }

    QResult Clear() override {
        layout_ = Layout();
        palette_.clear();
        return QEL_OK;
    }

    QResult Assign(IQEL* source, int /*flags*/) override {
        if (source == nullptr) return QEL_E_POINTER;
        if (source == static_cast<IQEL*>(this)) return QEL_OK;
        int width = 0, height = 0, planes = 0, bitCount = 0, reserved = 0;
        unsigned colourModel = 0;
        source->GetSize(&width, &height, &planes);
        source->GetFormat(&bitCount, &colourModel, &reserved);
        int stride = 0;
        size_t planeBytes = 0;
        const QResult measured = MeasureLayout(width, height, planes, bitCount, &stride, &planeBytes);
        if (measured != QEL_OK) return measured;
        const size_t rowBytes = (static_cast<size_t>(width) * static_cast<size_t>(bitCount) + 7) / 8;
        std::vector<SourcePlane> sourcePlanes(static_cast<size_t>(planes));
        for (int plane = 0; plane < planes; ++plane) {
            SourcePlane& sourcePlane = sourcePlanes[static_cast<size_t>(plane)];
            if (source->GetBits(plane, &reserved, &sourcePlane.bits, &sourcePlane.stride) < 0)
                sourcePlane.bits = nullptr;
        }

        // The same geometry takes the new pixels into the buffers already
        // held, saving a cleared allocation; nothing can fail past this
        // check. Sources whose rows lie in those buffers take a new one.
        bool reuse = SameGeometry(layout_, width, height, planes, bitCount);
        for (int plane = 0; reuse && plane < planes; ++plane) {
            const SourcePlane& sourcePlane = sourcePlanes[static_cast<size_t>(plane)];
            if (sourcePlane.bits == nullptr) continue;
            for (const PlaneBuffer& buffer : layout_.buffers)
                if (RowsOverlap(sourcePlane.bits, sourcePlane.stride, height, rowBytes, buffer.bytes,
                                PlaneBytesOf(layout_) + kSlackBytes))
                    reuse = false;
        }
        Layout fresh;
        if (!reuse) {
            const QResult result = MakeLayout(width, height, planes, bitCount, colourModel, &fresh);
            if (result != QEL_OK) return result;
        }
        Layout& target = reuse ? layout_ : fresh;
        const size_t padding = static_cast<size_t>(target.stride) - rowBytes;
        for (int plane = 0; plane < planes; ++plane) {
            const SourcePlane& sourcePlane = sourcePlanes[static_cast<size_t>(plane)];
            unsigned char* bits = target.buffers[static_cast<size_t>(plane)].bytes;
            if (sourcePlane.bits == nullptr) {
                // A plane the source does not hand out reads as a new image's.
                if (reuse) std::memset(bits, 0, PlaneBytesOf(target) + kSlackBytes);
                continue;
            }
            for (int y = 0; y < height; ++y) {
                unsigned char* row = bits + static_cast<ptrdiff_t>(y) * target.stride;
                std::memcpy(row, sourcePlane.bits + static_cast<ptrdiff_t>(y) * sourcePlane.stride, rowBytes);
                // Row padding and the slack stay zero, as in a new buffer.
                if (reuse && padding > 0) std::memset(row + rowBytes, 0, padding);
            }
            if (reuse) std::memset(bits + PlaneBytesOf(target), 0, kSlackBytes);
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
        if (!reuse) layout_ = std::move(fresh);
        layout_.colourModel = colourModel;
        palette_ = std::move(palette);
        return QEL_OK;
    }

    QResult Fill(unsigned colour) override {
        for (int plane = 0; plane < layout_.planes; ++plane) {
            unsigned char* bits = layout_.buffers[static_cast<size_t>(plane)].bytes;
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

    Layout layout_;
    std::vector<RGBQUAD> palette_;
};

}  // namespace

IQELImageDIB* NewImageDIB() { return new ImageDIB(); }

}  // namespace qelhost
