// Test images and pixel helpers.
#include "support/test_image.h"

#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <random>

namespace qeltest {

qel::Host& TestHost() {
    static qel::Host* host = [] {
        auto* loaded = new qel::Host();
        // By its absolute path: the loader takes a library opened under the
        // same name for the one already loaded, and a test may open a
        // stand-in from another folder as "./_binLIN64/CollectionsEx.so".
        char folder[PATH_MAX];
        const std::string modules = getcwd(folder, sizeof(folder)) != nullptr
                                        ? std::string(folder) + "/_binLIN64"
                                        : std::string("./_binLIN64");
        std::string error;
        if (!loaded->Load(modules, &error)) {
            std::fprintf(stderr, "cannot load the module: %s\n", error.c_str());
            std::abort();
        }
        return loaded;
    }();
    return *host;
}

BufferImage* BufferImage::Make(int width, int height, int bitCount, unsigned colourModel, int padding,
                               bool bottomUp, int planes) {
    auto* image = new BufferImage();
    image->padding_ = padding;
    image->bottomUp_ = bottomUp;
    image->Layout(width, height, planes, bitCount, colourModel);
    return image;
}

void BufferImage::Layout(int width, int height, int planes, int bitCount, unsigned colourModel) {
    width_ = width;
    height_ = height;
    planes_ = planes;
    bitCount_ = bitCount;
    colourModel_ = colourModel;
    const size_t rowBytes = (static_cast<size_t>(width) * static_cast<size_t>(bitCount) + 31) / 32 * 4;
    const size_t stride = rowBytes + static_cast<size_t>(padding_);
    stride_ = bottomUp_ ? -static_cast<int>(stride) : static_cast<int>(stride);
    blockBytes_ = stride * static_cast<size_t>(height);
    storage_.assign(static_cast<size_t>(planes),
                    std::vector<unsigned char>(blockBytes_ + 2 * kGuardBytes, kGuardPattern));
    for (auto& plane : storage_) std::memset(plane.data() + kGuardBytes, 0, blockBytes_);
}

QResult BufferImage::QueryInterface(const IID& iid, void** object) {
    if (iid == qel::iid::IUnknown || iid == qel::iid::IQEL || iid == qel::iid::IQELImage ||
        iid == qel::iid::IQELImageDIB) {
        ++refs_;
        *object = static_cast<IQELImageDIB*>(this);
        return QEL_OK;
    }
    *object = nullptr;
    return QEL_E_NOINTERFACE;
}
uint32_t BufferImage::AddRef() { return ++refs_; }
uint32_t BufferImage::Release() {
    const uint32_t remaining = --refs_;
    if (remaining == 0) delete this;
    return remaining;
}
QResult BufferImage::GetSize(int* width, int* height, int* planes) {
    *width = width_;
    *height = height_;
    *planes = planes_;
    return QEL_OK;
}
QResult BufferImage::GetFormat(int* bitCount, unsigned* colourModel, int* reserved) {
    *bitCount = bitCount_;
    *colourModel = colourModel_;
    if (reserved != nullptr) *reserved = 0;
    return QEL_OK;
}
unsigned char* BufferImage::Row(int y, int plane) {
    unsigned char* block = storage_[static_cast<size_t>(plane)].data() + kGuardBytes;
    unsigned char* first = bottomUp_ ? block + blockBytes_ + stride_ : block;
    return first + static_cast<ptrdiff_t>(y) * stride_;
}
QResult BufferImage::GetBits(int plane, int* reserved, unsigned char** bits, int* stride) {
    if (reserved != nullptr) *reserved = 0;
    if (plane < 0 || plane >= planes_) return QEL_E_INVALIDARG;
    *bits = height_ == 0 ? storage_[static_cast<size_t>(plane)].data() + kGuardBytes : Row(0, plane);
    *stride = stride_;
    return QEL_OK;
}
QResult BufferImage::Create(int width, int height, int planes, int bitCount, unsigned colourModel) {
    if (width < 0 || height < 0 || planes < 1 || bitCount < 1 || bitCount > 32) return QEL_E_INVALIDARG;
    Layout(width, height, planes, bitCount, colourModel);
    return QEL_OK;
}
QResult BufferImage::Assign(IQEL* source, int) {
    int width = 0, height = 0, planes = 0, bitCount = 0, reserved = 0;
    unsigned colourModel = 0;
    source->GetSize(&width, &height, &planes);
    source->GetFormat(&bitCount, &colourModel, &reserved);
    const std::vector<unsigned char> bytes = PixelBytes(source);
    Layout(width, height, planes, bitCount, colourModel);
    SetPixelBytes(this, bytes);
    return QEL_OK;
}
QResult BufferImage::Clear() { return QEL_E_NOTIMPL; }
QResult BufferImage::Fill(unsigned) { return QEL_E_NOTIMPL; }
QResult BufferImage::SetPalette(const RGBQUAD*, unsigned) { return QEL_E_NOTIMPL; }

bool BufferImage::GuardsIntact() const {
    for (const auto& plane : storage_) {
        for (size_t i = 0; i < kGuardBytes; ++i)
            if (plane[i] != kGuardPattern || plane[kGuardBytes + blockBytes_ + i] != kGuardPattern)
                return false;
    }
    return true;
}

void BufferImage::FillRandom(uint32_t seed) {
    std::mt19937 random(seed);
    for (auto& plane : storage_)
        for (size_t i = 0; i < blockBytes_; ++i)
            plane[kGuardBytes + i] = static_cast<unsigned char>(random());
}

std::vector<unsigned char> BufferImage::Snapshot(int plane) const {
    const auto& bytes = storage_[static_cast<size_t>(plane)];
    return std::vector<unsigned char>(bytes.begin() + kGuardBytes, bytes.begin() + kGuardBytes + blockBytes_);
}

std::vector<unsigned char> PixelBytes(IQEL* image) {
    const qel::Pixels p = qel::PixelsOf(image);
    std::vector<unsigned char> bytes;
    if (p.bits == nullptr) return bytes;
    for (int y = 0; y < p.height; ++y) bytes.insert(bytes.end(), p.Row(y), p.Row(y) + p.RowBytes());
    return bytes;
}

void SetPixelBytes(IQEL* image, const std::vector<unsigned char>& bytes) {
    const qel::Pixels p = qel::PixelsOf(image);
    const size_t rowBytes = p.RowBytes();
    if (rowBytes == 0) return;  // zero width: no pixels, and no data pointer to copy from
    for (int y = 0; y < p.height && (static_cast<size_t>(y) + 1) * rowBytes <= bytes.size(); ++y)
        std::memcpy(p.Row(y), bytes.data() + static_cast<size_t>(y) * rowBytes, rowBytes);
}

std::string HexRows(const std::vector<unsigned char>& bytes, size_t rowBytes) {
    std::string text;
    char cell[4];
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(cell, sizeof(cell), "%02X", bytes[i]);
        text += cell;
        text += (rowBytes != 0 && (i + 1) % rowBytes == 0) ? '\n' : ' ';
    }
    return text;
}

uint64_t PixelDigest(IQEL* image) {
    uint64_t hash = 1469598103934665603ull;
    for (const unsigned char byte : PixelBytes(image)) {
        hash ^= byte;
        hash *= 1099511628211ull;
    }
    return hash;
}

uint32_t RefCountOf(IUnknown* object) {
    object->AddRef();
    return object->Release();
}

}  // namespace qeltest
