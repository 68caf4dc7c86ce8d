// Working memory of one call, freed when the call ends: the module's one way
// to borrow memory for a kernel. Uninitialised, and empty when the memory
// cannot be had (callers then leave the work undone rather than fail later).
#pragma once

#include <cstddef>
#include <cstdlib>

template <class T>
class ScratchBuffer {
public:
    ScratchBuffer() = default;
    explicit ScratchBuffer(size_t count) { Resize(count); }
    ScratchBuffer(const ScratchBuffer&) = delete;
    ScratchBuffer& operator=(const ScratchBuffer&) = delete;
    ~ScratchBuffer() { std::free(data_); }

    // Room for `count` values; what was held before is not kept. False when
    // the memory cannot be had (the buffer is then empty).
    bool Resize(size_t count) {
        std::free(data_);
        const bool fits = count <= static_cast<size_t>(-1) / sizeof(T);
        data_ = count == 0 || !fits ? nullptr : static_cast<T*>(std::malloc(count * sizeof(T)));
        size_ = data_ != nullptr ? count : 0;
        return data_ != nullptr || count == 0;
    }

    T* Data() const { return data_; }
    size_t Size() const { return size_; }
    T& operator[](size_t i) const { return data_[i]; }
    explicit operator bool() const { return data_ != nullptr; }

private:
    T* data_ = nullptr;
    size_t size_ = 0;
};
