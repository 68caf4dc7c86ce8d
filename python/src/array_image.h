// An image over memory that Python owns (a numpy array's buffer): the module
// reads and writes the array's pixels in place, without a copy.
#pragma once

#include <atomic>

#include "qel/host.h"

namespace qelpy {

// Rows are `stride` bytes apart (negative for bottom-up rows). The memory is
// the caller's: Create and Assign succeed only for the image's own format and
// size, since the memory cannot grow or change its layout.
class ArrayImage final : public IQELImageDIB {
public:
    static ArrayImage* Make(unsigned char* bits, int stride, int width, int height, int bitCount,
                            unsigned colourModel);

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

    // The bit count of the last Create or Assign refused for another format
    // (0: none), so that the caller can report an in-place change it lost.
    int RefusedBitCount() const { return refusedBitCount_; }
    void ForgetRefusal() { refusedBitCount_ = 0; }

private:
    ArrayImage() = default;
    ~ArrayImage() = default;
    bool SameLayout(int width, int height, int planes, int bitCount, unsigned colourModel) const;
    size_t RowBytes() const;

    std::atomic<uint32_t> refs_{1};
    unsigned char* bits_ = nullptr;
    int stride_ = 0;
    int width_ = 0, height_ = 0, bitCount_ = 0;
    unsigned colourModel_ = 0;
    std::atomic<int> refusedBitCount_{0};  // sources shared by threads see only 0 written
};

}  // namespace qelpy
