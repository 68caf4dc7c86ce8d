// Equal: pixels set to one constant, all of them or those a mask selects.
//
//   format              written per selected pixel                     mask
//   8 bits, any model   low byte of the value                          yes
//   "MONO", other bits  the value as a 32-bit word, rows in words      yes
//   24 bits             bytes: value bits 16..23, 8..15, 0..7          ignored
//   32 bits             the value as a 32-bit word (low byte first)    yes
#include "maths/maths.h"
#include "maths/maths_kernels.h"

namespace {

enum class FillLayout { kByte, kWord, kReversedBGR, kNone };

template <bool Masked>
void FillBytesRow(unsigned char* out, const unsigned char* mask, int width, unsigned char value) {
    for (int x = 0; x < width; ++x) out[x] = (!Masked || mask[x] != 0) ? value : out[x];
}

template <bool Masked>
void FillWordsRow(unsigned char* out, const unsigned char* mask, int width, int32_t value) {
    for (int x = 0; x < width; ++x)
        if (!Masked || mask[x] != 0) StoreInt32(out + 4 * x, value);
}

void FillReversedBGRRow(unsigned char* out, int width, int32_t value) {
    const auto first = static_cast<unsigned char>(value >> 16);
    const auto second = static_cast<unsigned char>(value >> 8);
    const auto third = static_cast<unsigned char>(value);
    for (int x = 0; x < width; ++x) {
        out[3 * x] = first;
        out[3 * x + 1] = second;
        out[3 * x + 2] = third;
    }
}

}  // namespace

void EqualRows(const MathsPlane& image, const MathsPlane* mask, int width, int height, int bitCount,
               unsigned colourModel, int value, RowStage& stage) {
    if (width <= 0) return;
    FillLayout layout = FillLayout::kNone;
    MathsPlane target = image;
    if (bitCount == 8) {
        layout = FillLayout::kByte;
    } else if (colourModel == QEL_MODEL_MONO) {
        // Rows in 32-bit units: the stride is cut to pixels (signed division)
        // and each pixel takes a whole word, wider than the pixel below 32
        // bits; words that would land outside the image are not written.
        if (bitCount / 8 == 0) return;
        target.step = 4 * static_cast<ptrdiff_t>(image.stride / (bitCount / 8));
        layout = FillLayout::kWord;
    } else if (bitCount == 24) {
        layout = FillLayout::kReversedBGR;
    } else if (bitCount == 32) {
        target.step = 4 * static_cast<ptrdiff_t>(image.stride / 4);
        layout = FillLayout::kWord;
    }
    if (layout == FillLayout::kNone) return;

    const size_t pixels = static_cast<size_t>(width);
    const size_t rowBytes = layout == FillLayout::kByte   ? pixels
                            : layout == FillLayout::kWord ? 4 * pixels
                                                          : 3 * pixels;
    // The 24-bit layout ignores the mask.
    const RowSpan maskSpan =
        (mask != nullptr && layout != FillLayout::kReversedBGR) ? RowSpan{mask, pixels} : RowSpan{};
    const bool masked = maskSpan.plane != nullptr;
    WalkRows(
        stage, height, {&target, rowBytes}, {}, {}, maskSpan,
        [&](unsigned char* out, const unsigned char*, const unsigned char*, const unsigned char* rowMask) {
            switch (layout) {
                case FillLayout::kByte:
                    if (masked)
                        FillBytesRow<true>(out, rowMask, width, static_cast<unsigned char>(value));
                    else
                        FillBytesRow<false>(out, rowMask, width, static_cast<unsigned char>(value));
                    break;
                case FillLayout::kWord:
                    if (masked)
                        FillWordsRow<true>(out, rowMask, width, value);
                    else
                        FillWordsRow<false>(out, rowMask, width, value);
                    break;
                case FillLayout::kReversedBGR:
                    FillReversedBGRRow(out, width, value);
                    break;
                case FillLayout::kNone:
                    break;
            }
        });
}

QResult CQELMaths::Equal(IQEL* image, IQEL* mask, int value) {
    if (image == nullptr) return QEL_E_FAIL;
    ImageView info;
    ReadInfo(image, &info);
    ImageView infoMask;
    if (mask != nullptr) {
        ReadInfo(mask, &infoMask);
    }
    RowStage stage;
    for (int p = 0; p < info.planes; ++p) {
        const MathsPlane plane = GetPlane(image, p, info);
        // Plane 0 of the mask selects the pixels of every plane.
        MathsPlane planeMask;
        if (mask != nullptr) planeMask = GetPlane(mask, 0, infoMask);
        if (plane.bits == nullptr) continue;
        EqualRows(plane, mask != nullptr ? &planeMask : nullptr, info.width, info.height, info.bitCount,
                  info.colourModel, value, stage);
    }
    return QEL_OK;
}
