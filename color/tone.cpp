// Tone and lookup operations: Lut, Light, Gamma, Negative, ShiftRGB, GrayScale, Threshold.
#include <cmath>
#include <cstring>

#include "color/color_kernels.h"
#include "color/color_transform.h"
#include "module/host_services.h"

namespace color {

void ApplyByteTable(const ImageView& image, const unsigned char table[256]) {
    if (!HasPixels(image)) return;
    if (image.bitCount == 8 || image.bitCount == 24) {
        const int rowBytes = image.width * (image.bitCount / 8);
        for (int y = 0; y < image.height; ++y) {
            unsigned char* row = image.Row(y);
            for (int i = 0; i < rowBytes; ++i) row[i] = table[row[i]];
        }
    } else if (image.bitCount == 32) {
        for (int y = 0; y < image.height; ++y) {
            unsigned char* pixel = image.Row(y);
            for (int x = 0; x < image.width; ++x, pixel += 4) {
                pixel[0] = table[pixel[0]];
                pixel[1] = table[pixel[1]];
                pixel[2] = table[pixel[2]];
            }
        }
    }
}

void InvertColourBytes(const ImageView& image) {
    if (!HasPixels(image)) return;
    if (image.bitCount == 8 || image.bitCount == 24) {
        const int rowBytes = image.width * (image.bitCount / 8);
        for (int y = 0; y < image.height; ++y) {
            unsigned char* row = image.Row(y);
            for (int i = 0; i < rowBytes; ++i) row[i] = static_cast<unsigned char>(~row[i]);
        }
    } else if (image.bitCount == 32) {
        for (int y = 0; y < image.height; ++y) {
            unsigned char* row = image.Row(y);
            for (int x = 0; x < image.width; ++x) {
                uint32_t pixel;  // blue, green, red, alpha in memory order
                std::memcpy(&pixel, row + 4 * x, 4);
                pixel ^= 0x00FFFFFFu;
                std::memcpy(row + 4 * x, &pixel, 4);
            }
        }
    }
}

ChannelShift::ChannelShift(int red, int green, int blue) {
    for (int value = 0; value < 256; ++value) {
        red_[value] = ClampToByte(int64_t{value} + red);
        green_[value] = ClampToByte(int64_t{value} + green);
        blue_[value] = ClampToByte(int64_t{value} + blue);
    }
}

void WriteGreyInto(const ImageView& source, const ImageView& grey) {
    if (!HasPixels(source)) return;
    switch (source.bitCount) {
        case 8:
            // The weights sum to 1024. Each pixel is mixed with the two bytes
            // after it, so the last two pixels of a row read past its width.
            for (int y = 0; y < source.height; ++y) {
                const unsigned char* in = source.Row(y);
                unsigned char* out = grey.Row(y);
                for (int x = 0; x < source.width; ++x)
                    out[x] =
                        static_cast<unsigned char>((117 * in[x] + 601 * in[x + 1] + 306 * in[x + 2]) >> 10);
            }
            break;
        case 24:
            for (int y = 0; y < source.height; ++y) {
                const unsigned char* in = source.Row(y);
                unsigned char* out = grey.Row(y);
                for (int x = 0; x < source.width; ++x, in += 3, out += 3)
                    out[0] = out[1] = out[2] = static_cast<unsigned char>((in[0] + in[1] + in[2]) / 3);
            }
            break;
        case 32:
            for (int y = 0; y < source.height; ++y) {
                const unsigned char* in = source.Row(y);
                unsigned char* out = grey.Row(y);
                for (int x = 0; x < source.width; ++x, in += 4, out += 4) {
                    out[0] = out[1] = out[2] = static_cast<unsigned char>((in[0] + in[1] + in[2]) / 3);
                    out[3] = in[3];
                }
            }
            break;
        default:
            break;  // the new image keeps what Create gave it
    }
}

}  // namespace color

namespace {

// The truncation toward zero of `value`, clamped to a byte. Values that do
// not compare (NaN) become 0.
template <class Real>
unsigned char TruncateToByte(Real value) {
    if (value >= Real(256)) return 255;
    if (value > Real(-1)) return static_cast<unsigned char>(static_cast<int>(value));
    return 0;
}

}  // namespace

QResult CQELColorTransform::Lut(IQEL* image, unsigned char* table) {
    if (image == nullptr || table == nullptr) return QEL_E_FAIL;
    color::ApplyByteTable(ReadImageView(image), table);
    return QEL_OK;
}

QResult CQELColorTransform::Light(IQEL* image, int brightness, int contrast) {
    // Single precision throughout: the slope and offset are floats.
    const float slope = static_cast<float>(int64_t{contrast} + 100) / 100.0f;
    const float offset = static_cast<float>(int64_t{brightness} + 128);
    unsigned char table[256];
    for (int i = 0; i < 256; ++i) table[i] = TruncateToByte(static_cast<float>(i - 128) * slope + offset);
    return static_cast<IQELColorTransform*>(this)->Lut(image, table);
}

QResult CQELColorTransform::Gamma(IQEL* image, float gamma) {
    // The exponent is formed in single precision and only then widened; the
    // curve itself is evaluated in double.
    const double exponent = static_cast<double>(1.0f / gamma);
    const double scale = std::pow(255.0, exponent) / 255.0;
    unsigned char table[256];
    for (int i = 0; i < 256; ++i)
        table[i] = TruncateToByte(std::pow(static_cast<double>(i), exponent) / scale);
    return static_cast<IQELColorTransform*>(this)->Lut(image, table);
}

QResult CQELColorTransform::Negative(IQEL* image) {
    if (image == nullptr) return QEL_E_FAIL;
    color::InvertColourBytes(ReadImageView(image));
    return QEL_OK;
}

QResult CQELColorTransform::ShiftRGB(IQEL* image, int red, int green, int blue) {
    if (image == nullptr) return QEL_E_FAIL;
    color::MapPixels(ReadImageView(image), color::ChannelShift(red, green, blue));
    return QEL_OK;
}

QResult CQELColorTransform::GrayScale(IQEL* image) {
    if (image == nullptr) return QEL_E_FAIL;
    const ImageView source = ReadImageView(image);
    if (source.width <= 0 || source.height <= 0) return QEL_OK;

    SmartPtr<IQELImage> grey = NewImageThroughCollection();
    if (!grey) return QEL_E_FAIL;
    grey->Create(source.width, source.height, source.planes, source.bitCount, source.colourModel);
    const ImageView target = ReadImageView(grey.Get());
    // Written only when the host made what was asked for.
    if (target.bits != nullptr && target.width == source.width && target.height == source.height &&
        target.bitCount == source.bitCount)
        color::WriteGreyInto(source, target);

    // The source takes over the new image's content, also for bit counts
    // that were not written.
    SmartPtr<IQELImage> sourceImage = QueryAs<IQELImage>(image, IID_IQELImage);
    if (sourceImage) sourceImage->Assign(grey.Get(), 0);
    return QEL_OK;
}

QResult CQELColorTransform::Threshold(IQEL* image, int level) {
    if (image == nullptr) return QEL_E_FAIL;
    static_cast<IQELColorTransform*>(this)->GrayScale(image);
    // GrayScale may have replaced the pixel memory: read the image again.
    color::MapPixels(ReadImageView(image), color::BlackWhiteThreshold(level));
    return QEL_OK;
}
