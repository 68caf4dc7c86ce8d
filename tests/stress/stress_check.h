// Randomized stress driver: random images and parameters, and the checks made
// around every call (guard bytes, reference counts, untouched inputs).
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "qel/qel.h"
#include "support/test_image.h"

namespace stress {

// "--seed S --call N" of the running call, so that a report can be replayed.
extern char gCallLabel[128];

// Deterministic draws for one call, seeded from (run seed, call number), or
// read from a fuzzer's input bytes (zeros once they run out), so that the
// fuzzer steers the same operations and checks.
class Draw {
public:
    explicit Draw(uint64_t seed) : engine_(seed) {}
    Draw(const uint8_t* bytes, size_t size) : bytes_(bytes), left_(size) {}
    int Int(int lo, int hi) {
        if (bytes_ != nullptr)
            return static_cast<int>(lo + static_cast<int64_t>(Take(uint64_t(int64_t(hi) - lo + 1))));
        return std::uniform_int_distribution<int>(lo, hi)(engine_);
    }
    bool Chance(double p) {
        // Counted from the top, so that zero bytes (a short input) take the usual way.
        if (bytes_ != nullptr) return static_cast<double>(255 - Take(256)) < p * 256;
        return std::uniform_real_distribution<double>(0, 1)(engine_) < p;
    }
    double Real(double lo, double hi) {
        if (bytes_ != nullptr) return lo + (hi - lo) * static_cast<double>(Take(65536)) / 65535.0;
        return std::uniform_real_distribution<double>(lo, hi)(engine_);
    }
    uint32_t Bits32() {
        return static_cast<uint32_t>(bytes_ != nullptr ? Take(uint64_t(1) << 32) : engine_());
    }
    template <class T>
    T Pick(std::initializer_list<T> choices) {
        return *(choices.begin() + Int(0, static_cast<int>(choices.size()) - 1));
    }
    // Mostly a value in [lo, hi]; now and then an extreme of the int range.
    int Param(int lo, int hi);
    // Mostly a value in [lo, hi]; now and then NaN, an infinity or a huge value.
    double RealParam(double lo, double hi);

private:
    // A value below `range` from as few input bytes as cover it.
    uint64_t Take(uint64_t range) {
        uint64_t value = 0;
        for (uint64_t span = 1; span < range; span <<= 8) {
            value = value << 8 | (left_ > 0 ? *bytes_ : 0u);
            if (left_ > 0) ++bytes_, --left_;
        }
        return value % range;
    }

    std::mt19937_64 engine_;
    const uint8_t* bytes_ = nullptr;
    size_t left_ = 0;
};

// Shape of a random image: every depth and colour model, sizes 0 to 64 each
// way, padded rows, bottom-up rows, 1 to 3 planes.
struct Shape {
    int width = 0, height = 0, bitCount = 8;
    unsigned colourModel = 0;
    int padding = 0;
    bool bottomUp = false;
    int planes = 1;
    std::string Text() const;
};
Shape RandomShape(Draw& draw);

// One operation call: owns its images, remembers their state before the call
// and checks them afterwards. The first failed check ends the run.
class Call {
public:
    Call(const char* operation, uint64_t callSeed, Draw& draw)
        : operation_(operation), seed_(callSeed), draw_(draw) {}
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    // A test-owned image with guard bytes; `changes` says the operation may
    // write it (in-place operations and destinations).
    IQELImageDIB* Image(const Shape& shape, bool changes);
    IQELImageDIB* Image(bool changes) { return Image(RandomShape(draw_), changes); }
    // A runtime image, sometimes with a palette of random length.
    IQELImageDIB* RuntimeImage(bool changes);
    // Any input: mostly a test-owned image, sometimes a runtime one, rarely null.
    IQELImageDIB* Input(bool changes);

    // Where an out-of-place operation hands its result back (Finish checks it).
    SmartPtr<IQEL> result;

    // Checks made after the call: guards intact, reference counts unchanged,
    // unchanged inputs byte for byte; the result (may be null) must hold exactly
    // one reference unless it is one of the inputs, which then holds one more.
    void Finish();
    void Fail(const std::string& what) const;

private:
    struct Held {
        qeltest::BufferImage* buffer = nullptr;  // test-owned, or null
        IQELImageDIB* image = nullptr;
        Shape shape;
        bool changes = false;
        uint32_t refs = 0;
        std::vector<std::vector<unsigned char>> before;  // whole blocks, or pixel rows of a runtime image
    };
    std::vector<unsigned char> Contents(const Held& held, int plane) const;

    const char* operation_;
    uint64_t seed_;
    Draw& draw_;
    std::vector<Held> held_;
};

// Runs call number `index` of a run: one random operation.
void RunOneCall(uint64_t runSeed, uint64_t index);
// Runs the operation `draw` chooses, with its checks; `callSeed` is for reports.
void RunCall(Draw& draw, uint64_t callSeed);

}  // namespace stress
