// Rotate and RotatePaste: turning an image by any angle through the shared sampler.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "image/image_view.h"
#include "image/sampling.h"
#include "module/host_services.h"
#include "transform/image_transform.h"
#include "transform/turn_drawing.h"

namespace {

// The rectangle of a w x h image turned by (cosine k, sine s): the size of its
// bounding box and where output pixel (0, 0) lies in the turned frame.
struct TurnedFrame {
    int width = 0, height = 0;
    float startX = 0.0f, startY = 0.0f;
};

// A whole number of pixels; a turn by a NaN or infinite angle has no extent
// and covers nothing.
int PixelSpan(float span) { return span >= 0.0f && span < 2147483520.0f ? static_cast<int>(span) : 0; }

TurnedFrame TurnRectangle(int w, int h, float k, float s) {
    // Corners at the pixel edges, not the pixel centres.
    const float right = static_cast<float>(w) - 0.5f, bottom = static_cast<float>(h) - 0.5f;
    const float cornerX[4] = {-0.5f, right, -0.5f, right};
    const float cornerY[4] = {-0.5f, -0.5f, bottom, bottom};
    float minX = 0.0f, maxX = 0.0f, minY = 0.0f, maxY = 0.0f;
    for (int i = 0; i < 4; ++i) {
        const float x = k * cornerX[i] - s * cornerY[i];
        const float y = s * cornerX[i] + k * cornerY[i];
        if (i == 0 || x < minX) minX = x;
        if (i == 0 || x > maxX) maxX = x;
        if (i == 0 || y < minY) minY = y;
        if (i == 0 || y > maxY) maxY = y;
    }
    TurnedFrame frame;
    frame.width = PixelSpan(std::floor(maxX - minX + 0.5f));
    frame.height = PixelSpan(std::floor(maxY - minY + 0.5f));
    frame.startX = (minX + maxX - static_cast<float>(frame.width - 1)) * 0.5f;
    frame.startY = (minY + maxY - static_cast<float>(frame.height - 1)) * 0.5f;
    return frame;
}

// Pastes the turned source over the target's top-left area. Sources with
// alpha blend by it; shallower sources skip the key colour.
template <int kTargetBytes>
void PasteTurned(const ImageView& source, const ImageView& target, float k, float s, const TurnedFrame& frame,
                 int method, uint32_t keyColour) {
    const InterpolatingSampler sampler(source.bits, source.width, source.height, source.stride, method,
                                       source.bitCount);
    const int width = std::min(target.width, frame.width), height = std::min(target.height, frame.height);
    const float sourceWidth = static_cast<float>(source.width),
                sourceHeight = static_cast<float>(source.height);
    const bool blend = source.bitCount > 24;
    for (int j = 0; j < height; ++j) {
        const float turnedY = frame.startY + static_cast<float>(j);
        unsigned char* pixel = target.Row(j);
        for (int i = 0; i < width; ++i, pixel += kTargetBytes) {
            const float turnedX = frame.startX + static_cast<float>(i);
            const float sx = k * turnedX + s * turnedY;
            const float sy = k * turnedY - s * turnedX;
            if (!(sx >= 0.0f && sx <= sourceWidth && sy >= 0.0f && sy <= sourceHeight)) continue;
            const uint32_t colour = sampler.Sample(sx, sy);
            const int alpha = AlphaOf(colour);
            if (blend) {
                const double a = alpha / 255.0, b = (255 - alpha) / 255.0;
                pixel[0] = static_cast<unsigned char>(static_cast<int>(BlueOf(colour) * a + pixel[0] * b));
                pixel[1] = static_cast<unsigned char>(static_cast<int>(GreenOf(colour) * a + pixel[1] * b));
                pixel[2] = static_cast<unsigned char>(static_cast<int>(RedOf(colour) * a + pixel[2] * b));
            } else {
                if ((colour & 0x00FFFFFFu) == keyColour) continue;
                pixel[0] = static_cast<unsigned char>(BlueOf(colour));
                pixel[1] = static_cast<unsigned char>(GreenOf(colour));
                pixel[2] = static_cast<unsigned char>(RedOf(colour));
            }
            if (kTargetBytes == 4) pixel[3] = static_cast<unsigned char>(alpha);
        }
    }
}

}  // namespace

QResult CQELImageTransform::Rotate(IQEL* source, IQEL** result, int angle, int method, int forceAlpha,
                                   int keepSize) {
    if (source == nullptr) return QEL_E_FAIL;
    if (result == nullptr) return QEL_E_POINTER;
    if (angle == 0) {
        source->AddRef();
        *result = source;
        return QEL_OK;
    }
    if (angle == -90) angle = 270;
    if (angle == 90 || angle == 180 || angle == 270) {
        SmartPtr<IQELImageDIB> turned = NewImageDIB();
        if (!turned) return QEL_E_FAIL;
        const QResult rotated = Rotate4(source, turned.Get(), angle);
        *result = turned.Detach();
        return rotated;
    }

    // Whole degrees, turned the other way in this frame.
    const float theta = -static_cast<float>(angle) * 1.5707964f / 90.0f;
    const float k = static_cast<float>(std::cos(static_cast<double>(theta)));
    const float s = static_cast<float>(std::sin(static_cast<double>(theta)));

    const ImageView from = ReadImageView(source);
    const int outBitCount = forceAlpha != 0 ? 32 : from.bitCount;
    const unsigned int outModel = forceAlpha != 0 ? 0u : from.colourModel;
    TurnedFrame frame;
    if (keepSize != 0) {
        // The unturned rectangle starts at 0; the turn is about the centre.
        frame.width = from.width;
        frame.height = from.height;
        frame.startX = -static_cast<float>(from.width) * 0.5f;
        frame.startY = -static_cast<float>(from.height) * 0.5f;
    } else {
        frame = TurnRectangle(from.width, from.height, k, s);
    }

    SmartPtr<IQELImageDIB> turned = NewImageDIB();
    if (!turned) return QEL_E_FAIL;
    if (turned->Create(frame.width, frame.height, from.planes, outBitCount, outModel) < 0) {
        *result = turned.Detach();  // handed over undrawn
        return QEL_OK;
    }
    const ImageView to = ReadImageView(turned.Get());
    turned->Fill(GetPixelColor(from.bits, 0, 0, from.width, from.height, from.stride, from.bitCount) |
                 0xFF000000u);
    if (to.bits != nullptr && to.width == frame.width && to.height == frame.height) {
        TurnGeometry turn;
        turn.k = k;
        turn.s = s;
        turn.startX = frame.startX;
        turn.startY = frame.startY;
        turn.aboutCentre = keepSize != 0;
        DrawTurned(from, to, turn, method);
    }
    *result = turned.Detach();
    return QEL_OK;
}

QResult CQELImageTransform::RotatePaste(IQEL* source, IQEL* target, double angle, int method, int keyColour) {
    if (source == nullptr) return QEL_E_FAIL;
    if (target == nullptr) return QEL_E_POINTER;
    const float k = static_cast<float>(std::cos(angle));
    const float s = static_cast<float>(std::sin(angle));
    const ImageView from = ReadImageView(source);
    const ImageView to = ReadImageView(target);
    // Pixels are written as 3 or 4 bytes: other target depths would be overrun.
    if (to.bitCount != 24 && to.bitCount != 32) return QEL_E_INVALIDARG;
    if (to.bits == nullptr) return QEL_OK;
    const TurnedFrame frame = TurnRectangle(from.width, from.height, k, s);
    const uint32_t key = static_cast<uint32_t>(keyColour);
    if (to.bitCount == 32)
        PasteTurned<4>(from, to, k, s, frame, method, key);
    else
        PasteTurned<3>(from, to, k, s, frame, method, key);
    return QEL_OK;
}
