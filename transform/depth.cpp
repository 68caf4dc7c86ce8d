// IncreaseBpp: conversion of grey, palette and 24-bit images to deeper formats.
#include <cstddef>

#include "image/image_view.h"
#include "module/host_services.h"
#include "transform/image_transform.h"

namespace {

// Colours of palette indices; without a palette an index is a grey level.
struct IndexColours {
    const RGBQUAD* entries = nullptr;
    unsigned int count = 0;
    bool HasPalette() const { return entries != nullptr && count != 0; }
};

// One byte per pixel is read from depths of 8 bits or less. Below 8 bits that
// runs past the packed row; bytes beyond the pixel block read as 0.
class IndexReader {
public:
    explicit IndexReader(const ImageView& source) : source_(source) {
        const ptrdiff_t stride = source.stride;
        firstOffset_ = stride >= 0 ? 0 : stride * (source.height - 1);
        endOffset_ = firstOffset_ + (stride >= 0 ? stride : -stride) * source.height;
    }
    unsigned char At(int x, int y) const {
        const ptrdiff_t offset = static_cast<ptrdiff_t>(y) * source_.stride + x;
        return offset >= firstOffset_ && offset < endOffset_ ? source_.bits[offset] : 0;
    }

private:
    const ImageView& source_;
    ptrdiff_t firstOffset_ = 0, endOffset_ = 0;
};

template <int kDestBytes>
void ExpandIndices(const ImageView& source, const ImageView& dest, const IndexColours& colours) {
    const IndexReader reader(source);
    for (int y = 0; y < source.height; ++y) {
        unsigned char* to = dest.Row(y);
        for (int x = 0; x < source.width; ++x, to += kDestBytes) {
            const unsigned char index = reader.At(x, y);
            if (!colours.HasPalette()) {
                to[0] = to[1] = to[2] = index;
                if (kDestBytes == 4) to[3] = 255;
                continue;
            }
            // Indices past the palette's end have no colour of their own: grey.
            const RGBQUAD entry = index < colours.count ? colours.entries[index] : DefaultPalette[index];
            to[0] = entry.rgbBlue;
            to[1] = entry.rgbGreen;
            to[2] = entry.rgbRed;
            // The fourth byte of a palette colour is left as created.
        }
    }
}

void AddOpaqueAlpha(const ImageView& source, const ImageView& dest) {
    for (int y = 0; y < source.height; ++y) {
        const unsigned char* from = source.Row(y);
        unsigned char* to = dest.Row(y);
        for (int x = 0; x < source.width; ++x, from += 3, to += 4) {
            to[0] = from[0];
            to[1] = from[1];
            to[2] = from[2];
            to[3] = 255;
        }
    }
}

}  // namespace

QResult CQELImageTransform::IncreaseBpp(IQEL* source, IQEL** result, int bitCount, unsigned int colourModel) {
    if (source == nullptr) return QEL_E_FAIL;
    if (result == nullptr) return QEL_E_POINTER;
    const ImageView from = ReadImageView(source);
    // Compared unsigned: a negative count asks for a conversion.
    if (static_cast<unsigned int>(bitCount) <= static_cast<unsigned int>(from.bitCount)) {
        source->AddRef();
        *result = source;
        return QEL_NOTHING_TO_DO;
    }

    SmartPtr<IQELImage> converted = NewImageThroughCollection();
    SmartPtr<IQELImagePalette> palette = QueryAs<IQELImagePalette>(source, IID_IQELImagePalette);
    IndexColours colours;
    if (palette) {
        RGBQUAD* entries = nullptr;
        palette->GetPalette(&entries, &colours.count);
        colours.entries = entries;
    }
    if (!converted) return QEL_E_FAIL;
    const QResult created = converted->Create(from.width, from.height, from.planes, bitCount, colourModel);
    if (created < 0) return created;

    const ImageView to = ReadImageView(converted.Get());
    if (from.bits != nullptr && to.bits != nullptr && to.width == from.width && to.height == from.height) {
        if (from.bitCount <= 8 && bitCount == 24) ExpandIndices<3>(from, to, colours);
        if (from.bitCount <= 8 && bitCount == 32) ExpandIndices<4>(from, to, colours);
        if (from.bitCount == 24 && bitCount == 32) AddOpaqueAlpha(from, to);
    }
    *result = converted.Detach();
    return QEL_OK;
}
