// CircleTransform: polar deformations about the image centre (bulge, pinch,
// swirl, polar unwrap, column folding), written back into the source.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "image/pixel_kinds.h"
#include "module/host_services.h"
#include "transform/circle_kernel.h"
#include "transform/image_deform.h"

namespace {

constexpr double kTurn = 6.2831852;  // the unwrap's full turn; slightly below 2 pi

struct CircleKernel {
    const ImageView& source;
    const ImageView& target;
    const CircleParams& params;
    PixelPath path;

    // Distance of (cx - dx, cy - dy) from the centre: the float root of the
    // integer square sum, as every mode measures it.
    static double Distance(int64_t dx, int64_t dy) {
        return std::sqrt(static_cast<float>(dx * dx + dy * dy));
    }
    // Column folding: each run of 32 columns samples every other column of
    // the 64 about its centre.
    static int FoldedColumn(int x) { return x - 16 + x % 32; }

    // The source point pixel (x, y) is taken from; (-1, -1) outside the circle.
    void SamplePoint(int x, int y, int cx, int cy, int rmax, float swirlScale, int* sx, int* sy) const {
        *sx = -1;
        *sy = -1;
        const int64_t dx = static_cast<int64_t>(cx) - x, dy = static_cast<int64_t>(cy) - y;
        const double d = Distance(dx, dy);
        if (!(d < rmax)) return;
        if (params.mode >= 4) {  // folding needs no angle
            *sx = FoldedColumn(x);
            *sy = y;
            return;
        }
        double a = std::atan2(static_cast<double>(dy), static_cast<double>(dx));
        double r;
        switch (params.mode) {
            case 1:
                r = std::sqrt(rmax * d);
                break;
            case 2:
                // A zero swirl scale turns by an infinite angle; the point then
                // lands nowhere, which reads as outside.
                a += d / static_cast<double>(swirlScale);
                r = d;
                break;
            case 3:
                *sx = TruncOrNowhere(std::fabs(source.width * a / kTurn));
                *sy = TruncOrNowhere(std::fabs(source.height * d / rmax));
                return;
            default:
                // Mode 0, and negative modes, which have no mapping of their own: bulge.
                r = d * d / rmax;
                break;
        }
        const int ox = TruncOrNowhere(r * std::cos(a)), oy = TruncOrNowhere(r * std::sin(a));
        if (ox == kNowhere || oy == kNowhere) return;
        *sx = cx - ox;
        *sy = cy - oy;
    }

    // Opaque, except colours from outside, which keep their marker.
    uint32_t WithAlpha(uint32_t color) const {
        return params.withAlpha && AlphaOf(color) != kOutsideAlpha ? color | 0xFF000000u : color;
    }

    // Folding row by row: the pixels inside the circle are one run about the
    // centre column, since the distance grows with |cx - x|; the run's end is
    // found by bisection on the same distance test the pixels use.
    template <class SourceKind, class TargetKind>
    void FoldRows(int cx, int cy, int rmax) {
        const uint32_t outside = WithAlpha(OutsideColour(source));
        constexpr bool kSameKind = std::is_same_v<SourceKind, TargetKind> && SourceKind::kBytes != 0;
        const bool copies =
            kSameKind && !params.withAlpha && source.width == target.width && source.height == target.height;
        for (int y = 0; y < target.height; ++y) {
            const int64_t dy = static_cast<int64_t>(cy) - y;
            int64_t inside = -1;  // largest |cx - x| inside the circle; -1 for none
            if (Distance(0, dy) < rmax) {
                int64_t out =
                    static_cast<int64_t>(target.width) + 1;  // beyond every column: outside or absent
                inside = 0;
                while (out - inside > 1) {
                    const int64_t middle = inside + (out - inside) / 2;
                    (Distance(middle, dy) < rmax ? inside : out) = middle;
                }
            }
            const int begin = static_cast<int>(std::clamp<int64_t>(cx - inside, 0, target.width));
            const int end = static_cast<int>(std::clamp<int64_t>(cx + inside + 1, begin, target.width));
            // Columns 8 to width - 16 fold onto columns of the source; where
            // the depths match and alpha stays, those pixels are byte copies.
            int copyBegin = end, copyEnd = end;
            if (copies) {
                copyBegin = std::clamp(8, begin, end);
                copyEnd = std::clamp(source.width - 15, copyBegin, end);
            }
            int x = 0;
            for (; x < begin; ++x) TargetKind::Write(target, x, y, outside);
            for (; x < copyBegin; ++x) FoldPixel<SourceKind, TargetKind>(x, y);
            if (copyBegin < copyEnd)
                FoldCopy<SourceKind::kBytes>(source.Row(y), target.Row(y), copyBegin, copyEnd);
            for (x = copyEnd; x < end; ++x) FoldPixel<SourceKind, TargetKind>(x, y);
            for (; x < target.width; ++x) TargetKind::Write(target, x, y, outside);
        }
    }

    template <class SourceKind, class TargetKind>
    void FoldPixel(int x, int y) const {
        TargetKind::Write(target, x, y, WithAlpha(ReadOrOutside<SourceKind>(source, FoldedColumn(x), y)));
    }

    // Within each block of 32 columns the folded column steps by two.
    template <int Bytes>
    static void FoldCopy(const unsigned char* in, unsigned char* out, int begin, int end) {
        for (int x = begin; x < end;) {
            const int blockEnd = std::min(end, (x | 31) + 1);
            const unsigned char* from = in + static_cast<ptrdiff_t>(FoldedColumn(x)) * Bytes;
            unsigned char* to = out + static_cast<ptrdiff_t>(x) * Bytes;
            const int count = blockEnd - x;
            for (int i = 0; i < count; ++i) std::memcpy(to + i * Bytes, from + 2 * i * Bytes, Bytes);
            x = blockEnd;
        }
    }

    template <class SourceKind, class TargetKind>
    void Run() {
        const int cx = source.width / 2, cy = source.height / 2;
        const int rmax =
            static_cast<int>(std::sqrt(static_cast<double>(cx) * cx + static_cast<double>(cy) * cy));
        if (params.mode >= 4 && path == PixelPath::Fast)
            return FoldRows<SourceKind, TargetKind>(cx, cy, rmax);
        const float swirlScale = static_cast<float>(rmax / 2) * params.factor;
        for (int y = 0; y < target.height; ++y) {
            for (int x = 0; x < target.width; ++x) {
                int sx, sy;
                SamplePoint(x, y, cx, cy, rmax, swirlScale, &sx, &sy);
                TargetKind::Write(target, x, y, WithAlpha(ReadOrOutside<SourceKind>(source, sx, sy)));
            }
        }
    }
};

}  // namespace

void CirclePixels(const ImageView& source, const ImageView& target, const CircleParams& params,
                  PixelPath path) {
    CircleKernel kernel{source, target, params, path};
    WithPixelKinds(source, target, path == PixelPath::Fast, [&](auto sourceKind, auto targetKind) {
        kernel.Run<decltype(sourceKind), decltype(targetKind)>();
    });
}

QResult CQELImageDeform::CircleTransform(IQEL* image, int mode, int withAlpha, float factor) {
    if (image == nullptr) return QEL_E_FAIL;
    const ImageView sourceView = ReadImageView(image);
    const int bitCount = withAlpha != 0 ? 32 : sourceView.bitCount;

    // The colour model is the source's even when the depth is forced to 32.
    ImageShape shape = ShapeOf(sourceView);
    shape.bitCount = bitCount;
    Destination working = MakeDestination(shape, DestinationRoad::ImageDIB, WarpWrites(bitCount));
    if (!working.image) return QEL_E_FAIL;
    // A working image without the asked layout cannot be drawn; the source
    // stays. An empty image made as asked has nothing to draw and is handed over.
    const ImageView& made = working.view;
    const bool emptyAsAsked = sourceView.Empty() && made.width == shape.width && made.height == shape.height &&
                              made.bitCount == bitCount;
    if (working.Canvas() == nullptr && !emptyAsAsked) return QEL_E_FAIL;

    if (working.Canvas() != nullptr) {
        CircleParams params;
        params.mode = mode;
        params.withAlpha = withAlpha != 0;
        params.factor = factor;
        CirclePixels(sourceView, made, params);
    }

    SmartPtr<IQELImage> target = QueryAs<IQELImage>(image, IID_IQELImage);
    if (target) target->Assign(working.image.Get(), 0);
    return QEL_OK;
}
