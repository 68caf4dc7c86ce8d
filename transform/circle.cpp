// CircleTransform: polar deformations about the image centre (bulge, pinch,
// swirl, polar unwrap, column folding), written back into the source.
#include <cmath>

#include "module/host_services.h"
#include "transform/circle_kernel.h"
#include "transform/image_deform.h"

namespace {

constexpr double kTurn = 6.2831852;  // the unwrap's full turn; slightly below 2 pi

struct CircleKernel {
    const ImageView& source;
    const ImageView& target;
    const CircleParams& params;

    // The source point pixel (x, y) is taken from; (-1, -1) outside the circle.
    void SamplePoint(int x, int y, int cx, int cy, int rmax, float swirlScale, int* sx, int* sy) const {
        *sx = -1;
        *sy = -1;
        const int64_t dx = static_cast<int64_t>(cx) - x, dy = static_cast<int64_t>(cy) - y;
        const double d = std::sqrt(static_cast<float>(dx * dx + dy * dy));
        if (!(d < rmax)) return;
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
                if (params.mode >= 4) {
                    *sx = x - 16 + x % 32;
                    *sy = y;
                    return;
                }
                // Mode 0, and negative modes, which have no mapping of their own: bulge.
                r = d * d / rmax;
                break;
        }
        const int ox = TruncOrNowhere(r * std::cos(a)), oy = TruncOrNowhere(r * std::sin(a));
        if (ox == kNowhere || oy == kNowhere) return;
        *sx = cx - ox;
        *sy = cy - oy;
    }

    template <int SourceDepth, int TargetDepth>
    void Run() {
        const int cx = source.width / 2, cy = source.height / 2;
        const int rmax =
            static_cast<int>(std::sqrt(static_cast<double>(cx) * cx + static_cast<double>(cy) * cy));
        const float swirlScale = static_cast<float>(rmax / 2) * params.factor;
        for (int y = 0; y < target.height; ++y) {
            for (int x = 0; x < target.width; ++x) {
                int sx, sy;
                SamplePoint(x, y, cx, cy, rmax, swirlScale, &sx, &sy);
                uint32_t color = ReadNearest<SourceDepth>(source, sx, sy);
                // Opaque, except colours from outside, which keep their marker 1.
                if (params.withAlpha && AlphaOf(color) != 1) color |= 0xFF000000u;
                WriteNearest<TargetDepth>(target, x, y, color);
            }
        }
    }
};

}  // namespace

void CirclePixels(const ImageView& source, const ImageView& target, const CircleParams& params,
                  PixelPath path) {
    CircleKernel kernel{source, target, params};
    DispatchNearest(kernel, FastDepthOf(source, path), FastDepthOf(target, path));
}

QResult CQELImageDeform::CircleTransform(IQEL* image, int mode, int withAlpha, float factor) {
    if (image == nullptr) return QEL_E_FAIL;
    const ImageView sourceView = ReadImageView(image);
    const int bitCount = withAlpha != 0 ? 32 : sourceView.bitCount;

    SmartPtr<IQELImageDIB> working = NewImageDIB();
    if (!working) return QEL_E_FAIL;
    // The colour model is the source's even when the depth is forced to 32.
    working->Create(sourceView.width, sourceView.height, sourceView.planes, bitCount, sourceView.colourModel);
    const ImageView workingView = ReadImageView(working.Get());
    // A working image without the asked layout cannot be drawn; the source stays.
    if (!HasLayout(workingView, sourceView.width, sourceView.height, bitCount)) return QEL_E_FAIL;

    CircleParams params;
    params.mode = mode;
    params.withAlpha = withAlpha != 0;
    params.factor = factor;
    CirclePixels(sourceView, workingView, params);

    SmartPtr<IQELImage> target = QueryAs<IQELImage>(image, IID_IQELImage);
    if (target) target->Assign(working.Get(), 0);
    return QEL_OK;
}
