// Colorize: tint to a hue and saturation with a blend weight.
#include "color/color_kernels.h"
#include "color/color_transform.h"

namespace color {

namespace {

// One channel of the lightness-saturation model at hue angle `angle` in
// degrees, scaled to 0..255 and truncated; only its lowest byte is kept.
unsigned char TintChannel(float low, float high, float angle) {
    float value;
    if (angle < 60.0f) {
        value = low + (high - low) * angle / 60.0f;
    } else if (angle < 180.0f) {
        value = high;
    } else if (angle < 240.0f) {
        value = low + (high - low) * (240.0f - angle) / 60.0f;
    } else {
        value = low;
    }
    return static_cast<unsigned char>(static_cast<int>(255.0f * value));
}

// Brings an angle into range by one turn. An angle of exactly 360 stays.
float WrapOnce(float angle) {
    if (angle > 360.0f) return angle - 360.0f;
    if (angle < 0.0f) return angle + 360.0f;
    return angle;
}

}  // namespace

ColorizeTint::ColorizeTint(unsigned char hue, unsigned char saturation, float blend) {
    if (!(blend >= 0.0f)) {
        blend = 0.0f;  // negative or not a number: keep the old colour
    } else if (blend > 1.0f) {
        blend = 1.0f;
    }
    // Compared in single precision, so a blend of 0.999 still mixes, with weight 255.
    if (blend > 0.999f) {
        newWeight_ = 256;  // the new colour replaces the old one
    } else {
        newWeight_ = static_cast<int>(blend * 256.0f);
    }
    oldWeight_ = 256 - newWeight_;

    const float s = static_cast<float>(saturation) / 255.0f;
    const float h = static_cast<float>(hue) * 360.0f / 255.0f;
    const float redAngle = WrapOnce(h + 120.0f);
    const float greenAngle = h > 360.0f ? h - 360.0f : h;
    const float blueAngle = WrapOnce(h - 120.0f);
    for (int lightness = 0; lightness < 256; ++lightness) {
        const float l = static_cast<float>(lightness) / 255.0f;
        const float high = l <= 0.5f ? (s + 1.0f) * l : (s + l) - s * l;
        const float low = (l + l) - high;
        if (s == 0.0f) {
            const auto grey = static_cast<unsigned char>(static_cast<int>(l * 255.0f));
            tintBlue_[lightness] = tintGreen_[lightness] = tintRed_[lightness] = grey;
        } else {
            tintRed_[lightness] = TintChannel(low, high, redAngle);
            tintGreen_[lightness] = TintChannel(low, high, greenAngle);
            tintBlue_[lightness] = TintChannel(low, high, blueAngle);
        }
    }
}

}  // namespace color

QResult CQELColorTransform::Colorize(IQEL* image, unsigned char hue, unsigned char saturation, float blend) {
    if (image == nullptr) return QEL_E_FAIL;
    color::MapPixels(ReadImageView(image), color::ColorizeTint(hue, saturation, blend));
    return QEL_OK;
}
