// Transform (backward mapping) and TransformPaste (forward mapping) through a
// caller's ITransform, copying whole pixels without interpolation.
//
// TransformPaste by source depth:
// depth  fillVoids  columns    written
// 8      any        0 to w-2   (dx, dy), its right and lower neighbours
// 24     set        all        (dx, dy) with zero channels raised to 1, then FillVoids
// 24     0          all        (dx, dy) and the horizontal gap back to the row's last write,
//                              that gap also in the row below
// 32     set        all        (dx, dy), an all-black pixel as the value 1, then FillVoids
// 32     0          all        (dx, dy), its right and lower neighbours
#include <algorithm>
#include <cmath>
#include <cstring>

#include "image/destination.h"
#include "image/scratch.h"
#include "module/host_services.h"
#include "transform/image_transform.h"
#include "transform/warp_kernels.h"

namespace {

constexpr int kMaxSize = 65536;  // sizes from here up ask for the source's size

void CopyPixel(unsigned char* to, const unsigned char* from, int bytes) { std::memcpy(to, from, bytes); }

// The points of one row, asked of the caller's transform in order before any
// pixel of the row is drawn, so that the transform and the pixel reads and
// writes do not wait on each other. Empty when the memory cannot be had;
// nothing is then drawn.
class RowPoints {
public:
    explicit RowPoints(int capacity)
        : points_(2 * static_cast<size_t>(std::max(capacity, 0))), capacity_(capacity) {}
    bool Ready() const { return capacity_ <= 0 || points_; }

    // Sends (first + x, y) for x from 0 to count - 1 (at most the capacity)
    // through the transform. Coordinates are doubles: an offset near the int
    // limits must not wrap.
    void Map(ITransform* transform, double first, double y, int count) {
        for (int x = 0; x < count; ++x) {
            double* point = &points_[2 * static_cast<size_t>(x)];
            point[0] = static_cast<double>(x) + first;
            point[1] = y;
            double z = 0;
            transform->TransformPoint(&point[0], &point[1], &z);
        }
    }
    double X(int x) const { return points_[2 * static_cast<size_t>(x)]; }
    double Y(int x) const { return points_[2 * static_cast<size_t>(x) + 1]; }

private:
    ScratchBuffer<double> points_;
    int capacity_;
};

template <int Bytes>
void TransformRows(ITransform* transform, RowPoints& points, ImageView source, ImageView target, int xOffset,
                   int yOffset) {
    const double width = source.width, height = source.height;
    for (int y = 0; y < target.height; ++y) {
        points.Map(transform, xOffset, static_cast<double>(y) + yOffset, target.width);
        unsigned char* out = target.Row(y);
        for (int x = 0; x < target.width; ++x, out += Bytes) {
            const double X = points.X(x), Y = points.Y(x);
            // Written so that NaN fails the test and counts as outside.
            if (!(X >= 0 && X < width && Y >= 0 && Y < height)) continue;
            const unsigned char* in = source.Row(static_cast<int>(Y)) + static_cast<ptrdiff_t>(X) * Bytes;
            CopyPixel(out, in, Bytes);
        }
    }
}

// Where point x of the row lands in the target, rounded half up; false when
// that is outside the target (or not a number). With v the shifted point plus
// one half, floor(v) lies in [0, size) exactly when v does, and is then
// trunc(v), so no floor is taken.
inline bool PasteSpot(const RowPoints& points, int x, int xOffset, int yOffset, int width, int height,
                      int* dx, int* dy) {
    const double vx = xOffset + points.X(x) + 0.5;
    const double vy = yOffset + points.Y(x) + 0.5;
    if (!(vx >= 0 && vy >= 0 && vx < width && vy < height)) return false;
    *dx = static_cast<int>(vx);
    *dy = static_cast<int>(vy);
    return true;
}

unsigned char* PixelAt(const ImageView& view, int x, int y, int bytes) {
    return view.Row(y) + static_cast<ptrdiff_t>(x) * bytes;
}

// 8 and 32 bits without voids to fill: the pixel and its right and lower
// neighbours. The 8-bit path never pastes the source's last column (nor asks
// the transform about it).
template <int Bytes>
void PasteWithNeighbours(ITransform* transform, RowPoints& points, ImageView source, ImageView target,
                         int xOffset, int yOffset) {
    const int columns = Bytes == 1 ? source.width - 1 : source.width;
    for (int y = 0; y < source.height; ++y) {
        points.Map(transform, 0, y, columns);
        for (int x = 0; x < columns; ++x) {
            int dx, dy;
            if (!PasteSpot(points, x, xOffset, yOffset, target.width, target.height, &dx, &dy)) continue;
            const unsigned char* in = PixelAt(source, x, y, Bytes);
            CopyPixel(PixelAt(target, dx, dy, Bytes), in, Bytes);
            if (dx < target.width - 1) CopyPixel(PixelAt(target, dx + 1, dy, Bytes), in, Bytes);
            if (dy < target.height - 1) CopyPixel(PixelAt(target, dx, dy + 1, Bytes), in, Bytes);
        }
    }
}

// 24 bits without voids to fill: closes horizontal gaps back to the previous
// write of the same source row (none before the first write or after a write
// at column 0), in this row and the next.
void PasteClosingGaps(ITransform* transform, RowPoints& points, ImageView source, ImageView target,
                      int xOffset, int yOffset) {
    for (int y = 0; y < source.height; ++y) {
        points.Map(transform, 0, y, source.width);
        int previous = 0;
        for (int x = 0; x < source.width; ++x) {
            int dx, dy;
            if (!PasteSpot(points, x, xOffset, yOffset, target.width, target.height, &dx, &dy)) continue;
            const unsigned char* in = PixelAt(source, x, y, 3);
            CopyPixel(PixelAt(target, dx, dy, 3), in, 3);
            const int gap = dx - previous;
            if (previous > 0 && gap > 0) {
                for (int gx = previous + 1; gx <= dx; ++gx) {
                    CopyPixel(PixelAt(target, gx, dy, 3), in, 3);
                    if (dy < target.height - 1) CopyPixel(PixelAt(target, gx, dy + 1, 3), in, 3);
                }
            }
            previous = dx;
        }
    }
}

// 24 and 32 bits with voids to fill: zero pixels mark unpainted places, so
// nothing written is all zero.
template <int Bytes>
void PasteNeverZero(ITransform* transform, RowPoints& points, ImageView source, ImageView target, int xOffset,
                    int yOffset) {
    for (int y = 0; y < source.height; ++y) {
        points.Map(transform, 0, y, source.width);
        for (int x = 0; x < source.width; ++x) {
            int dx, dy;
            if (!PasteSpot(points, x, xOffset, yOffset, target.width, target.height, &dx, &dy)) continue;
            const unsigned char* in = PixelAt(source, x, y, Bytes);
            unsigned char* out = PixelAt(target, dx, dy, Bytes);
            if (Bytes == 3) {
                for (int c = 0; c < 3; ++c) out[c] = in[c] != 0 ? in[c] : 1;
            } else if (in[0] == 0 && in[1] == 0 && in[2] == 0) {
                const uint32_t one = 1;  // blue 1, the rest 0
                std::memcpy(out, &one, 4);
            } else {
                CopyPixel(out, in, 4);
            }
        }
    }
}

}  // namespace

void TransformPixels(ITransform* transform, const ImageView& source, const ImageView& target, int xOffset,
                     int yOffset) {
    if (source.bits == nullptr || target.bits == nullptr || source.bitCount != target.bitCount) return;
    RowPoints points(target.width);
    if (!points.Ready()) return;
    switch (source.bitCount) {
        case 8:
            TransformRows<1>(transform, points, source, target, xOffset, yOffset);
            break;
        case 24:
            TransformRows<3>(transform, points, source, target, xOffset, yOffset);
            break;
        case 32:
            TransformRows<4>(transform, points, source, target, xOffset, yOffset);
            break;
        default:
            break;
    }
}

bool TransformPastePixels(ITransform* transform, const ImageView& source, const ImageView& target,
                          int xOffset, int yOffset, bool fillVoids) {
    const int depth = source.bitCount;
    if (depth != 8 && depth != 24 && depth != 32) return false;
    RowPoints points(source.width);
    if (source.bits != nullptr && target.bits != nullptr && target.bitCount == depth && points.Ready()) {
        if (depth == 8) {
            PasteWithNeighbours<1>(transform, points, source, target, xOffset, yOffset);
        } else if (fillVoids) {
            if (depth == 24)
                PasteNeverZero<3>(transform, points, source, target, xOffset, yOffset);
            else
                PasteNeverZero<4>(transform, points, source, target, xOffset, yOffset);
        } else {
            if (depth == 24)
                PasteClosingGaps(transform, points, source, target, xOffset, yOffset);
            else
                PasteWithNeighbours<4>(transform, points, source, target, xOffset, yOffset);
        }
    }
    return fillVoids && depth != 8;
}

QResult CQELImageTransform::Transform(ITransform* transform, IQEL* source, IQEL** result, int xOffset,
                                      int yOffset, unsigned int newWidth, unsigned int newHeight,
                                      short /*unused1*/, short /*unused2*/) {
    // A null source fails as a null image does elsewhere; a null transform or
    // output pointer is refused.
    if (source == nullptr) return QEL_E_FAIL;
    if (transform == nullptr) return QEL_E_INVALIDARG;
    if (result == nullptr) return QEL_E_POINTER;
    const ImageView sourceView = ReadImageView(source);
    if (sourceView.width <= 0 || sourceView.height <= 0) return QEL_E_FAIL;
    const int width = newWidth > 0 && newWidth < kMaxSize ? static_cast<int>(newWidth) : sourceView.width;
    const int height =
        newHeight > 0 && newHeight < kMaxSize ? static_cast<int>(newHeight) : sourceView.height;

    const ImageShape shape{width, height, 1, sourceView.bitCount, sourceView.colourModel};
    Destination made = MakeDestination(shape, DestinationRoad::ImageDIB, Writes::SomePixels);
    if (!made.image) return QEL_E_FAIL;
    made.dib->Fill(sourceView.HasAlpha() ? 0xFF000000u : 0u);  // opaque black only where there is alpha
    if (const ImageView* canvas = made.Canvas())
        TransformPixels(transform, sourceView, *canvas, xOffset, yOffset);
    *result = made.image.Detach();
    return QEL_OK;
}

QResult CQELImageTransform::TransformPaste(ITransform* transform, IQEL* source, IQEL* target, int xOffset,
                                           int yOffset, short fillVoids, short /*unused*/) {
    if (source == nullptr) return QEL_E_FAIL;
    if (transform == nullptr) return QEL_E_INVALIDARG;
    if (target == nullptr) return QEL_E_POINTER;
    const ImageView sourceView = ReadImageView(source);
    const ImageView targetView = ReadImageView(target);
    // Pixels are copied byte for byte, so a target of another depth than the
    // source's (for the depths that are pasted) is refused rather than overrun.
    const int depth = sourceView.bitCount;
    if ((depth == 8 || depth == 24 || depth == 32) && targetView.bitCount != depth) return QEL_E_INVALIDARG;
    if (TransformPastePixels(transform, sourceView, targetView, xOffset, yOffset, fillVoids != 0))
        FillVoids(target);
    return QEL_OK;
}
