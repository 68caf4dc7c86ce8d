// Test images: an IQELImage over memory the test owns, with any bit count,
// padded or negative strides and guard bytes around the pixels, plus helpers
// to fill, compare and dump pixels.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "qel/host.h"

namespace qeltest {

// Shared by the integration tests: the module and the runtime from ./_binLIN64.
qel::Host& TestHost();

// An image over a buffer owned by the test. Rows are `stride` bytes apart
// (negative for bottom-up), with `kGuardBytes` of a known pattern before and
// after the pixel block; Create re-lays the buffer out with the same padding.
class BufferImage final : public IQELImageDIB {
public:
    static constexpr size_t kGuardBytes = 64;
    static constexpr unsigned char kGuardPattern = 0xA5;

    // `padding` bytes are added to each row's minimum 4-byte-aligned length.
    static BufferImage* Make(int width, int height, int bitCount, unsigned colourModel, int padding = 0,
                             bool bottomUp = false, int planes = 1);

    QResult QueryInterface(const IID& iid, void** object) override;
    uint32_t AddRef() override;
    uint32_t Release() override;
    QResult GetSize(int* width, int* height, int* planes) override;
    QResult GetFormat(int* bitCount, unsigned* colourModel, int* reserved) override;
    QResult GetBits(int plane, int* reserved, unsigned char** bits, int* stride) override;
    QResult Create(int width, int height, int planes, int bitCount, unsigned colourModel) override;
    QResult Clear() override;
    QResult Assign(IQEL* source, int flags) override;
    QResult Fill(unsigned colour) override;
    QResult SetPalette(const RGBQUAD* entries, unsigned count) override;

    bool GuardsIntact() const;
    // Fills every byte of every row (padding included) from a seeded generator.
    void FillRandom(uint32_t seed);
    unsigned char* Row(int y, int plane = 0);
    int Stride() const { return stride_; }
    // The whole block of a plane, rows in memory order, padding included.
    std::vector<unsigned char> Snapshot(int plane = 0) const;

private:
    BufferImage() = default;
    ~BufferImage() = default;
    void Layout(int width, int height, int planes, int bitCount, unsigned colourModel);

    std::atomic<uint32_t> refs_{1};  // atomic: tests share images across threads
    int width_ = 0, height_ = 0, planes_ = 1, bitCount_ = 0;
    unsigned colourModel_ = 0;
    int padding_ = 0;
    bool bottomUp_ = false;
    int stride_ = 0;
    size_t blockBytes_ = 0;
    std::vector<std::vector<unsigned char>> storage_;  // guard + block + guard per plane
};

// Rows of pixel bytes (without padding) of plane 0, top row first.
std::vector<unsigned char> PixelBytes(IQEL* image);
// Writes rows of pixel bytes (without padding) into plane 0.
void SetPixelBytes(IQEL* image, const std::vector<unsigned char>& bytes);
// Hex dump for failure messages, one line per row.
std::string HexRows(const std::vector<unsigned char>& bytes, size_t rowBytes);
// 64-bit FNV-1a digest of the pixel bytes (not the padding) of plane 0.
uint64_t PixelDigest(IQEL* image);
// Reference count of an object, read by an AddRef/Release pair.
uint32_t RefCountOf(IUnknown* object);

}  // namespace qeltest
