// Alpha and transparency of images with more than 24 bits per pixel.
//
// bit count      SetImageAlpha                 SetImageTransparentPixel / SetImageAlphaTransparency
// 24 or less     0x80004005                    0x80004005
// 32             alpha of every pixel          alpha from the key test
// 25-31, > 32    every 4th byte, 4 x width     three-byte pixels, no alpha: nothing changes
#include <cstring>

#include "color/color_kernels.h"
#include "color/color_transform.h"

namespace color {

void FillAlphaBytes(const ImageView& image, unsigned char alpha) {
    if (!HasPixels(image)) return;
    // The pixel block ends one stride after its highest row. Three-byte
    // layouts make the 4 x width span spill into the following row; it is
    // cut there so that the last row never writes past the image.
    const ptrdiff_t stride = image.stride;
    unsigned char* const blockEnd =
        (stride >= 0 ? image.Row(image.height - 1) : image.Row(0)) + (stride >= 0 ? stride : -stride);
    const ptrdiff_t span = ptrdiff_t{4} * image.width;
    for (int y = 0; y < image.height; ++y) {
        unsigned char* row = image.Row(y);
        const ptrdiff_t end = std::min(span, blockEnd - row);
        for (ptrdiff_t at = 3; at < end; at += 4) row[at] = alpha;
    }
}

void SetKeyAlpha(const ImageView& image, uint32_t keyBgr, int otherAlpha) {
    if (!HasPixels(image) || image.bitCount != 32) return;
    // Either the old alpha is kept or `otherAlpha` is stored, never both.
    const uint32_t keptAlphaMask = otherAlpha < 0 ? 0xFF000000u : 0;
    const uint32_t other = otherAlpha < 0 ? 0 : static_cast<uint32_t>(otherAlpha & 0xFF) << 24;
    for (int y = 0; y < image.height; ++y) {
        unsigned char* row = image.Row(y);
        for (int x = 0; x < image.width; ++x) {
            uint32_t pixel;  // blue, green, red, alpha in memory order
            std::memcpy(&pixel, row + 4 * x, 4);
            const uint32_t colour = pixel & 0x00FFFFFFu;
            const uint32_t alpha = colour == keyBgr ? 0 : (pixel & keptAlphaMask) | other;
            pixel = colour | alpha;
            std::memcpy(row + 4 * x, &pixel, 4);
        }
    }
}

}  // namespace color

namespace {

// The image's view when it may take alpha: more than 24 bits, the count
// taken as unsigned. Null images and smaller counts are refused.
QResult ReadAlphaImage(IQEL* image, ImageView* view) {
    if (image == nullptr) return QEL_E_FAIL;
    *view = ReadImageView(image);
    if (static_cast<unsigned>(view->bitCount) <= 24) return QEL_E_FAIL;
    return QEL_OK;
}

// 0 is replaced by 1 so that alpha 0 marks exactly the key-colour pixels;
// then only the lowest byte counts.
unsigned char NonZeroAlpha(int alpha) { return static_cast<unsigned char>(alpha == 0 ? 1 : alpha); }

// The key colour carries red in its lowest byte, then green, then blue: the
// reverse of the pixel's memory order. The highest byte is ignored.
uint32_t KeyAsBgr(unsigned int key) { return (key & 0xFFu) << 16 | (key & 0xFF00u) | (key >> 16 & 0xFFu); }

}  // namespace

QResult CQELColorTransform::SetImageAlpha(IQEL* image, int alpha, int /*unused*/) {
    ImageView view;
    const QResult result = ReadAlphaImage(image, &view);
    if (result != QEL_OK) return result;
    color::FillAlphaBytes(view, NonZeroAlpha(alpha));
    return QEL_OK;
}

QResult CQELColorTransform::SetImageAlphaTransparency(IQEL* image, int alpha, unsigned int keyColour) {
    ImageView view;
    const QResult result = ReadAlphaImage(image, &view);
    if (result != QEL_OK) return result;
    color::SetKeyAlpha(view, KeyAsBgr(keyColour), NonZeroAlpha(alpha));
    return QEL_OK;
}

QResult CQELColorTransform::SetImageTransparentPixel(IQEL* image, unsigned int keyColour) {
    ImageView view;
    const QResult result = ReadAlphaImage(image, &view);
    if (result != QEL_OK) return result;
    color::SetKeyAlpha(view, KeyAsBgr(keyColour), -1);
    return QEL_OK;
}
