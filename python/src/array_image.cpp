// The image over a numpy array's memory.
#include "array_image.h"

#include <cstring>

namespace qelpy {

ArrayImage* ArrayImage::Make(unsigned char* bits, int stride, int width, int height, int bitCount,
                             unsigned colourModel) {
    ArrayImage* image = new ArrayImage();
    image->bits_ = bits;
    image->stride_ = stride;
    image->width_ = width;
    image->height_ = height;
    image->bitCount_ = bitCount;
    image->colourModel_ = colourModel;
    return image;
}

QResult ArrayImage::QueryInterface(const IID& iid, void** object) {
    if (object == nullptr) return QEL_E_POINTER;
    if (iid == qel::iid::IUnknown || iid == qel::iid::IQEL || iid == qel::iid::IQELImage ||
        iid == qel::iid::IQELImageDIB) {
        *object = static_cast<IQELImageDIB*>(this);
        AddRef();
        return QEL_OK;
    }
    *object = nullptr;
    return QEL_E_NOINTERFACE;
}

uint32_t ArrayImage::AddRef() { return ++refs_; }

uint32_t ArrayImage::Release() {
    const uint32_t left = --refs_;
    if (left == 0) delete this;
    return left;
}

QResult ArrayImage::GetSize(int* width, int* height, int* planes) {
    if (width != nullptr) *width = width_;
    if (height != nullptr) *height = height_;
    if (planes != nullptr) *planes = 1;
    return QEL_OK;
}

QResult ArrayImage::GetFormat(int* bitCount, unsigned* colourModel, int* reserved) {
    if (bitCount != nullptr) *bitCount = bitCount_;
    if (colourModel != nullptr) *colourModel = colourModel_;
    if (reserved != nullptr) *reserved = 0;
    return QEL_OK;
}

QResult ArrayImage::GetBits(int plane, int*, unsigned char** bits, int* stride) {
    if (plane != 0) return QEL_E_INVALIDARG;
    if (bits != nullptr) *bits = bits_;
    if (stride != nullptr) *stride = stride_;
    return QEL_OK;
}

bool ArrayImage::SameLayout(int width, int height, int planes, int bitCount, unsigned colourModel) const {
    return width == width_ && height == height_ && planes == 1 && bitCount == bitCount_ &&
           colourModel == colourModel_;
}

size_t ArrayImage::RowBytes() const {
    return (static_cast<size_t>(width_) * static_cast<size_t>(bitCount_) + 7) / 8;
}

// The module re-creates an image it writes whole; the array can take only its own format.
QResult ArrayImage::Create(int width, int height, int planes, int bitCount, unsigned colourModel) {
    if (!SameLayout(width, height, planes, bitCount, colourModel)) {
        refusedBitCount_ = bitCount;
        return QEL_E_INVALIDARG;
    }
    for (int y = 0; y < height_; ++y) std::memset(bits_ + static_cast<ptrdiff_t>(y) * stride_, 0, RowBytes());
    return QEL_OK;
}

QResult ArrayImage::Clear() { return QEL_E_NOTIMPL; }

QResult ArrayImage::Assign(IQEL* source, int) {
    if (source == nullptr) return QEL_E_POINTER;
    if (source == this) return QEL_OK;
    const qel::Pixels p = qel::PixelsOf(source);
    int planes = 0;
    source->GetSize(nullptr, nullptr, &planes);
    if (!SameLayout(p.width, p.height, planes, p.bitCount, p.colourModel) || p.bits == nullptr) {
        refusedBitCount_ = p.bitCount;
        return QEL_E_INVALIDARG;
    }
    for (int y = 0; y < height_; ++y)
        std::memmove(bits_ + static_cast<ptrdiff_t>(y) * stride_, p.Row(y), RowBytes());
    return QEL_OK;
}

QResult ArrayImage::Fill(unsigned colour) {
    if (bitCount_ != 8 && bitCount_ != 24 && bitCount_ != 32) return QEL_E_NOTIMPL;
    const int bytes = bitCount_ / 8;
    unsigned char pixel[4];
    for (int i = 0; i < 4; ++i) pixel[i] = static_cast<unsigned char>(colour >> (8 * i));
    for (int y = 0; y < height_; ++y) {
        unsigned char* row = bits_ + static_cast<ptrdiff_t>(y) * stride_;
        for (int x = 0; x < width_; ++x) std::memcpy(row + static_cast<size_t>(x) * bytes, pixel, bytes);
    }
    return QEL_OK;
}

// Arrays carry no palette.
QResult ArrayImage::SetPalette(const RGBQUAD*, unsigned count) { return count == 0 ? QEL_OK : QEL_E_NOTIMPL; }

}  // namespace qelpy
