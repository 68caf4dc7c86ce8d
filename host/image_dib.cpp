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

#include "host/pixel_block.h"
#include "host/pixel_rows.h"
#include "host/ref_counted.h"

namespace qelhost {
namespace {

constexpr unsigned kMaxPaletteEntries = 256;

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
