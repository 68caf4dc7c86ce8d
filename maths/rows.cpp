// Plane views and row staging for the arithmetic kernels.
#include "maths/rows.h"

#include <cstring>

MathsPlane PlaneOf(const ImageView& view) {
    MathsPlane plane;
    static_cast<ImageView&>(plane) = view;
    plane.step = view.stride;
    if (view.bits == nullptr || view.width <= 0 || view.height <= 0 || view.bitCount <= 0) return plane;
    const auto rowBytes = static_cast<ptrdiff_t>(view.RowBytes());
    const ptrdiff_t lastRow = static_cast<ptrdiff_t>(view.height - 1) * view.stride;
    plane.first = lastRow < 0 ? lastRow : 0;
    plane.last = (lastRow < 0 ? 0 : lastRow) + rowBytes;
    return plane;
}

MathsPlane GetPlane(IQEL* image, int index, const ImageView& info) {
    ImageView view = info;
    int reserved = 0;
    if (image->GetBits(index, &reserved, &view.bits, &view.stride) < 0) view.bits = nullptr;
    return PlaneOf(view);
}

unsigned char* RowStage::Scratch(Slot slot, size_t count) {
    if (count == 0) count = 1;
    if (scratch_[slot].Size() < count && !scratch_[slot].Resize(count)) failed_ = true;
    return scratch_[slot].Data();
}

// Fills `scratch` with the span's bytes that lie inside the plane, 0 elsewhere.
void RowStage::CopyInside(unsigned char* scratch, const MathsPlane& plane, ptrdiff_t offset, size_t count) {
    std::memset(scratch, 0, count);
    if (plane.bits == nullptr) return;
    const ptrdiff_t begin = offset > plane.first ? offset : plane.first;
    const ptrdiff_t spanEnd = offset + static_cast<ptrdiff_t>(count);
    const ptrdiff_t end = spanEnd < plane.last ? spanEnd : plane.last;
    if (begin < end)
        std::memcpy(scratch + (begin - offset), plane.bits + begin, static_cast<size_t>(end - begin));
}

const unsigned char* RowStage::Read(Slot slot, const MathsPlane& plane, ptrdiff_t offset, size_t count) {
    if (!alwaysStage_ && plane.Holds(offset, count)) return plane.bits + offset;
    unsigned char* scratch = Scratch(slot, count);
    if (scratch != nullptr) CopyInside(scratch, plane, offset, count);
    return scratch;
}

unsigned char* RowStage::BeginWrite(Slot slot, const MathsPlane& plane, ptrdiff_t offset, size_t count) {
    staged_[slot] = alwaysStage_ || !plane.Holds(offset, count);
    if (!staged_[slot]) return plane.bits + offset;
    unsigned char* scratch = Scratch(slot, count);
    if (scratch != nullptr) CopyInside(scratch, plane, offset, count);
    return scratch;
}

void RowStage::EndWrite(Slot slot, const MathsPlane& plane, ptrdiff_t offset, size_t count) {
    if (!staged_[slot] || !scratch_[slot] || plane.bits == nullptr) return;
    staged_[slot] = false;
    const ptrdiff_t begin = offset > plane.first ? offset : plane.first;
    const ptrdiff_t spanEnd = offset + static_cast<ptrdiff_t>(count);
    const ptrdiff_t end = spanEnd < plane.last ? spanEnd : plane.last;
    if (begin < end)
        std::memcpy(plane.bits + begin, scratch_[slot].Data() + (begin - offset),
                    static_cast<size_t>(end - begin));
}
