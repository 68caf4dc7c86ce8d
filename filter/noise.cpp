// Random filters: Noise offsets each channel, Jitter displaces each pixel.
#include <cstdlib>

#include "filter/filter_common.h"
#include "filter/filter_transform.h"

namespace {

// One rand result turned into an offset of about -span/2 to +span/2. The
// precisions are fixed so that a given seed always gives the same image:
// scaled in single precision by 2^-31, centred and scaled in double, truncated.
int RandomOffset(int span) {
    const float unit = static_cast<float>(std::rand()) * 0x1p-31f;
    const double centred = static_cast<double>(unit) - 0.5;
    return static_cast<int>(centred * static_cast<double>(span));
}

template <class Kind>
void NoiseRows(const ImageView& src, const ImageView& dst, int amount) {
    for (int y = 0; y < src.height; ++y) {
        for (int x = 0; x < src.width; ++x) {
            const uint32_t c = Kind::Read(src, x, y);
            const int red = ClampToByte(RedOf(c) + RandomOffset(amount));
            const int green = ClampToByte(GreenOf(c) + RandomOffset(amount));
            const int blue = ClampToByte(BlueOf(c) + RandomOffset(amount));
            Kind::Write(dst, x, y, PackColor(blue, green, red, AlphaOf(c)));
        }
    }
}

template <class Kind>
void JitterRows(const ImageView& src, const ImageView& dst, int amount) {
    // Doubled in integers, wrapping like the int it is.
    const int span = static_cast<int>(static_cast<uint32_t>(amount) * 2u);
    for (int y = 0; y < src.height; ++y) {
        for (int x = 0; x < src.width; ++x) {
            const int64_t sx = x + static_cast<int64_t>(RandomOffset(span));
            const int64_t sy = y + static_cast<int64_t>(RandomOffset(span));
            // A sample point outside the image leaves the pixel where it is.
            const bool inside = sx >= 0 && sy >= 0 && sx < src.width && sy < src.height;
            const uint32_t c =
                inside ? Kind::Read(src, static_cast<int>(sx), static_cast<int>(sy)) : Kind::Read(src, x, y);
            Kind::Write(dst, x, y, c);
        }
    }
}

}  // namespace

namespace {

// Runs `rows` (called with the pixel kind, the source and the destination)
// into a new image and hands the result over.
template <class Rows>
QResult RunRandomFilter(IQEL* image, IQEL** result, Rows rows) {
    if (image == nullptr) return QEL_E_FAIL;
    FilterTarget target;
    if (MakeFilterTarget(image, DestinationRoad::ImageDIB, Writes::EveryPixel, &target) != QEL_OK)
        return QEL_E_FAIL;
    if (target.Writable())
        WithPixelKind(target.source, FilterPath::Fast,
                      [&](auto kind) { rows(kind, target.source, target.destination); });
    return HandOverResult(image, &target.image, result);
}

}  // namespace

QResult CQELFilterTransform::Noise(IQEL* image, int amount, IQEL** result) {
    return RunRandomFilter(image, result,
                           [amount](auto kind, const ImageView& source, const ImageView& dest) {
                               NoiseRows<decltype(kind)>(source, dest, amount);
                           });
}

QResult CQELFilterTransform::Jitter(IQEL* image, int amount, IQEL** result) {
    return RunRandomFilter(image, result,
                           [amount](auto kind, const ImageView& source, const ImageView& dest) {
                               JitterRows<decltype(kind)>(source, dest, amount);
                           });
}
