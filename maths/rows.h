// Row access for the arithmetic kernels: image planes as plain views with the
// byte range they own, scratch staging for rows that reach outside that
// range, and the sample conversions shared by the operations.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "image/clamp.h"
#include "qel/image.h"

// Size and format of an image, read in whatever order an operation needs.
struct ImageInfo {
    int width = 0;
    int height = 0;
    int planes = 0;
    int bitCount = 0;
    unsigned colourModel = 0;
};

inline void ReadSize(IQEL* image, ImageInfo* info) {
    image->GetSize(&info->width, &info->height, &info->planes);
}
inline void ReadFormat(IQEL* image, ImageInfo* info) {
    int reserved = 0;
    image->GetFormat(&info->bitCount, &info->colourModel, &reserved);
}

// Size and format together (the order of the two readings does not matter).
inline void ReadInfo(IQEL* image, ImageInfo* info) {
    ReadSize(image, info);
    ReadFormat(image, info);
}

// Reads both formats; false when the bit counts or colour models differ.
inline bool ReadMatchingFormats(IQEL* a, IQEL* b, ImageInfo* infoA, ImageInfo* infoB) {
    ReadFormat(a, infoA);
    ReadFormat(b, infoB);
    return infoA->bitCount == infoB->bitCount && infoA->colourModel == infoB->colourModel;
}

// The smaller of two sizes, compared as unsigned numbers.
inline int UnsignedMin(int a, int b) { return static_cast<unsigned>(a) < static_cast<unsigned>(b) ? a : b; }

// One plane as the kernels walk it. Row y starts at byte offset y * step from
// bits; step is the stride unless an operation addresses rows in other units.
// The plane owns the bytes at offsets [first, last) from bits: its rows as
// stride and height lay them out, the last row ending with its pixel bytes.
struct MathsPlane {
    unsigned char* bits = nullptr;
    int stride = 0;
    ptrdiff_t step = 0;
    ptrdiff_t first = 0;
    ptrdiff_t last = 0;

    bool Holds(ptrdiff_t offset, size_t count) const {
        return bits != nullptr && offset >= first && offset <= last &&
               count <= static_cast<size_t>(last - offset);
    }
    ptrdiff_t RowOffset(int y) const { return static_cast<ptrdiff_t>(y) * step; }
};

// A view over memory laid out as `info` describes (rows of `stride` bytes).
MathsPlane PlaneOf(unsigned char* bits, int stride, const ImageInfo& info);
// Plane `index` of `image`; bits stay null when the image has no such plane.
MathsPlane GetPlane(IQEL* image, int index, const ImageInfo& info);

// Hands kernels row pointers. A row span that lies inside its plane is used
// in place; one that reaches outside is staged through scratch memory, where
// bytes outside the plane read as 0 and writes to them are dropped. The kernel
// runs the same loop either way, so both roads give the same bytes.
class RowStage {
public:
    enum Slot { kFirstSource, kSecondSource, kMask, kDest, kSlotCount };

    // `alwaysStage` sends every row through scratch memory (for comparisons).
    explicit RowStage(bool alwaysStage = false) : alwaysStage_(alwaysStage) {}
    ~RowStage();
    RowStage(const RowStage&) = delete;
    RowStage& operator=(const RowStage&) = delete;

    // `count` bytes at `offset` of the plane for reading; null only when
    // scratch memory could not be had.
    const unsigned char* Read(Slot slot, const MathsPlane& plane, ptrdiff_t offset, size_t count);
    // `count` bytes at `offset` for reading and writing; EndWrite stores back
    // what a staged row holds inside the plane.
    unsigned char* BeginWrite(Slot slot, const MathsPlane& plane, ptrdiff_t offset, size_t count);
    void EndWrite(Slot slot, const MathsPlane& plane, ptrdiff_t offset, size_t count);

    bool Failed() const { return failed_; }

private:
    unsigned char* Scratch(Slot slot, size_t count);
    static void CopyInside(unsigned char* scratch, const MathsPlane& plane, ptrdiff_t offset, size_t count);

    bool alwaysStage_;
    bool failed_ = false;
    bool staged_[kSlotCount] = {};
    unsigned char* scratch_[kSlotCount] = {};
    size_t capacity_[kSlotCount] = {};
};

// Float to 32-bit integer, truncating toward zero; NaN and values outside the
// 32-bit range give 0x80000000, the processor's own answer for them.
inline int32_t TruncateToInt32(float v) {
    return (v >= -2147483648.0f && v < 2147483648.0f) ? static_cast<int32_t>(v) : INT32_MIN;
}
inline int32_t TruncateToInt32(double v) {
    return (v > -2147483649.0 && v < 2147483648.0) ? static_cast<int32_t>(v) : INT32_MIN;
}

// Below 0 gives 0, otherwise truncation to a 32-bit integer (no upper bound).
inline int32_t ClampBelowToInt32(float v) { return v < 0.0f ? 0 : TruncateToInt32(v); }

// One input or output of a row walk: a plane and the bytes of each row used.
struct RowSpan {
    const MathsPlane* plane = nullptr;
    size_t count = 0;
};

// Calls row(out, first, second, mask) for rows 0..height-1 of the spans; an
// absent span passes null. A row whose scratch memory could not be had is
// skipped (the stage reports the failure).
template <class RowFn>
void WalkRows(RowStage& stage, int height, RowSpan dest, RowSpan first, RowSpan second, RowSpan mask,
              RowFn&& row) {
    for (int y = 0; y < height; ++y) {
        const unsigned char* firstRow = nullptr;
        const unsigned char* secondRow = nullptr;
        const unsigned char* maskRow = nullptr;
        if (first.plane != nullptr)
            firstRow =
                stage.Read(RowStage::kFirstSource, *first.plane, first.plane->RowOffset(y), first.count);
        if (second.plane != nullptr)
            secondRow =
                stage.Read(RowStage::kSecondSource, *second.plane, second.plane->RowOffset(y), second.count);
        if (mask.plane != nullptr)
            maskRow = stage.Read(RowStage::kMask, *mask.plane, mask.plane->RowOffset(y), mask.count);
        const ptrdiff_t destOffset = dest.plane->RowOffset(y);
        unsigned char* out = stage.BeginWrite(RowStage::kDest, *dest.plane, destOffset, dest.count);
        if (out != nullptr && (first.plane == nullptr || firstRow != nullptr) &&
            (second.plane == nullptr || secondRow != nullptr) &&
            (mask.plane == nullptr || maskRow != nullptr))
            row(out, firstRow, secondRow, maskRow);
        stage.EndWrite(RowStage::kDest, *dest.plane, destOffset, dest.count);
    }
}

// 32-bit integers at any byte position (rows addressed in 32-bit units need
// not be aligned to them).
inline int32_t LoadInt32(const unsigned char* p) {
    int32_t v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}
inline void StoreInt32(unsigned char* p, int32_t v) { std::memcpy(p, &v, sizeof(v)); }
