// Skew (shear about a pivot, nearest pixel) and Quad (quadrilateral to
// rectangle in 16.16 fixed point).
#include "transform/skew_quad.h"

#include <climits>
#include <cmath>

#include "module/host_services.h"
#include "transform/image_transform.h"

namespace {

constexpr uint32_t kOutsideAlpha = 1;  // reserved byte GetPixelColor gives a point outside

struct SkewKernel {
    const ImageView& source;
    const ImageView& target;
    const SkewParams& params;

    template <int SourceDepth, int TargetDepth>
    void Run() {
        for (int y = 0; y < target.height; ++y) {
            // Distances from the pivots in 64 bits: a pivot far out must not overflow.
            const float rowShift = static_cast<float>(static_cast<int64_t>(y) - params.yPivot) * params.xGain;
            for (int x = 0; x < target.width; ++x) {
                const float columnShift =
                    static_cast<float>(static_cast<int64_t>(x) - params.xPivot) * params.yGain;
                const int sx = TruncOrNowhere(static_cast<float>(x) + rowShift);
                const int sy = TruncOrNowhere(static_cast<float>(y) + columnShift);
                uint32_t color = ReadNearest<SourceDepth>(source, sx, sy);
                if (params.forceAlpha && static_cast<uint32_t>(AlphaOf(color)) != kOutsideAlpha)
                    color |= 0xFF000000u;
                WriteNearest<TargetDepth>(target, x, y, color);
            }
        }
    }
};

// 16.16 fixed point. Values are clamped to +-2^40 (far outside any image) so
// that NaN or huge points cannot overflow the walkers, which stay in 64 bits.
constexpr double kFixedLimit = 1099511627776.0;  // 2^40
int64_t ToFixed(double v) {
    double scaled = v * 65536.0 + 0.5;
    if (!(scaled > -kFixedLimit)) scaled = -kFixedLimit;  // also NaN
    if (scaled > kFixedLimit) scaled = kFixedLimit;
    return static_cast<int64_t>(scaled);
}

// Step that walks the vector (dx, dy) in `count` steps. The divisor is
// written as length / (length / count), which is count for a real edge; for a
// degenerate edge (divisor at most 0.001, or NaN for a zero length) the walker
// does not move: a zero step keeps every sample on the start point.
struct FixedStep {
    int64_t x = 0, y = 0;
};
FixedStep StepAlong(double dx, double dy, double count) {
    const double length = std::sqrt(dx * dx + dy * dy);
    const double divisor = length / (length / count);
    FixedStep step;
    if (divisor > 0.001) {
        step.x = ToFixed(dx / divisor);
        step.y = ToFixed(dy / divisor);
    }
    return step;
}

// Samples of 1 to 4 bytes per pixel; every byte is copied or blended alike.
template <int Bytes>
void QuadRows(const ImageView& source, const ImageView& target, const QuadCorners& c, bool blend) {
    const int width = target.width;
    const int height = target.height;
    int64_t leftX = ToFixed(c.x1), leftY = ToFixed(c.y1);
    int64_t rightX = ToFixed(c.x2), rightY = ToFixed(c.y2);
    const FixedStep leftStep = StepAlong(c.x3 - c.x1, c.y3 - c.y1, height);
    const FixedStep rightStep = StepAlong(c.x4 - c.x2, c.y4 - c.y2, height);
    // Samples are taken only from rows and columns 1 to size - 2, so the
    // blend's right and lower neighbours are always inside.
    const int64_t lastX = static_cast<int64_t>(source.width) - 2;
    const int64_t lastY = static_cast<int64_t>(source.height) - 2;

    for (int r = 0; r < height; ++r) {
        // Integer parts, truncated toward zero.
        const int64_t lx = leftX / 65536, ly = leftY / 65536;
        const int64_t rx = rightX / 65536, ry = rightY / 65536;
        const FixedStep scan = StepAlong(static_cast<double>(rx - lx), static_cast<double>(ry - ly), width);
        int64_t X = lx * 65536, Y = ly * 65536;
        unsigned char* out = target.Row(r);
        for (int col = 0; col < width; ++col, X += scan.x, Y += scan.y, out += Bytes) {
            const int64_t sx = (X + 32768) >> 16;
            const int64_t sy = (Y + 32768) >> 16;
            if (sx < 1 || sx > lastX || sy < 1 || sy > lastY) {
                for (int b = 0; b < Bytes; ++b) out[b] = 0;
                continue;
            }
            if (!blend) {
                const unsigned char* p = source.Row(static_cast<int>(sy)) + sx * Bytes;
                for (int b = 0; b < Bytes; ++b) out[b] = p[b];
                continue;
            }
            // Four one-axis blends averaged: the weights are sums, not products.
            const int fx = static_cast<int>(X & 0xFFFF);
            const int fy = static_cast<int>(Y & 0xFFFF);
            const int w00 = (65536 - fx) + (65536 - fy);
            const int w10 = fx + (65536 - fy);
            const int w01 = (65536 - fx) + fy;
            const int w11 = fx + fy;
            const unsigned char* p0 = source.Row(static_cast<int>(Y >> 16)) + (X >> 16) * Bytes;
            const unsigned char* p1 = source.Row(static_cast<int>(Y >> 16) + 1) + (X >> 16) * Bytes;
            for (int b = 0; b < Bytes; ++b) {
                const int sum = p0[b] * w00 + p0[Bytes + b] * w10 + p1[b] * w01 + p1[Bytes + b] * w11;
                out[b] = static_cast<unsigned char>(((sum >> 2) + 32768) >> 16);
            }
        }
        leftX += leftStep.x;
        leftY += leftStep.y;
        rightX += rightStep.x;
        rightY += rightStep.y;
    }
}

}  // namespace

void SkewPixels(const ImageView& source, const ImageView& target, const SkewParams& params, PixelPath path) {
    SkewKernel kernel{source, target, params};
    DispatchNearest(kernel, FastDepthOf(source, path), FastDepthOf(target, path));
}

int QuadSideLength(double ax, double ay, double bx, double by, double cx, double cy, double dx, double dy) {
    const double first = std::sqrt((bx - ax) * (bx - ax) + (by - ay) * (by - ay));
    const double second = std::sqrt((dx - cx) * (dx - cx) + (dy - cy) * (dy - cy));
    const double shorter = std::fmin(first, second);  // fmin ignores one NaN edge
    if (!(shorter >= 0)) return 0;
    if (shorter >= static_cast<double>(INT_MAX)) return INT_MAX;
    return static_cast<int>(shorter);
}

void QuadPixels(const ImageView& source, const ImageView& target, const QuadCorners& corners, bool blend) {
    if (source.bits == nullptr || target.bits == nullptr) return;
    switch (source.bitCount / 8) {
        case 1:
            QuadRows<1>(source, target, corners, blend);
            break;
        case 2:
            QuadRows<2>(source, target, corners, blend);
            break;
        case 3:
            QuadRows<3>(source, target, corners, blend);
            break;
        case 4:
            QuadRows<4>(source, target, corners, blend);
            break;
        default:
            break;  // below 8 or above 39 bits: not sampled
    }
}

QResult CQELImageTransform::Skew(IQEL* source, IQEL** result, float xGain, float yGain, int xPivot,
                                 int yPivot, int /*reserved*/, int forceAlpha) {
    if (source == nullptr) return QEL_E_FAIL;
    // A null output pointer is refused before any image is made.
    if (result == nullptr) return QEL_E_POINTER;
    const ImageView sourceView = ReadImageView(source);
    const int bitCount = forceAlpha != 0 ? 32 : sourceView.bitCount;
    const unsigned model = forceAlpha != 0 ? QEL_MODEL_ARGB : sourceView.colourModel;

    SmartPtr<IQELImage> image = NewImageThroughCollection();
    if (!image) return QEL_E_FAIL;
    image->Create(sourceView.width, sourceView.height, sourceView.planes, bitCount, model);
    const ImageView targetView = ReadImageView(image.Get());

    SkewParams params;
    params.xGain = xGain;
    params.yGain = yGain;
    // Unsigned halving of the size: a pivot at row or column 0 means the centre.
    params.xPivot = xPivot != 0 ? xPivot : static_cast<int>(static_cast<unsigned>(sourceView.width) / 2);
    params.yPivot = yPivot != 0 ? yPivot : static_cast<int>(static_cast<unsigned>(sourceView.height) / 2);
    params.forceAlpha = forceAlpha != 0;
    // A Create that did not give the asked layout is left undrawn.
    if (HasLayout(targetView, sourceView.width, sourceView.height, bitCount))
        SkewPixels(sourceView, targetView, params);
    *result = image.Detach();
    return QEL_OK;
}

QResult CQELImageTransform::Quad(IQEL* source, IQEL** result, double x1, double y1, double x2, double y2,
                                 double x3, double y3, double x4, double y4, unsigned int newWidth,
                                 unsigned int newHeight, short blend) {
    // Quad reports no failure of its own; a null source fails like a failed
    // image creation, and a null output pointer is refused.
    if (source == nullptr) return QEL_E_FAIL;
    if (result == nullptr) return QEL_E_POINTER;
    const ImageView sourceView = ReadImageView(source);
    const QuadCorners corners{x1, y1, x2, y2, x3, y3, x4, y4};
    const int width = newWidth == 0 || newWidth >= 65536 ? QuadSideLength(x1, y1, x2, y2, x3, y3, x4, y4)
                                                         : static_cast<int>(newWidth);
    const int height = newHeight == 0 || newHeight >= 65536 ? QuadSideLength(x1, y1, x3, y3, x2, y2, x4, y4)
                                                            : static_cast<int>(newHeight);

    SmartPtr<IQELImageDIB> image = NewImageDIB();
    if (!image) return QEL_E_FAIL;
    image->Create(width, height, 1, sourceView.bitCount, sourceView.colourModel);
    const ImageView targetView = ReadImageView(image.Get());
    if (HasLayout(targetView, width, height, sourceView.bitCount))
        QuadPixels(sourceView, targetView, corners, blend != 0 && sourceView.bitCount > 8);
    *result = image.Detach();
    return QEL_OK;
}
