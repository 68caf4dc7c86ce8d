// Randomized stress driver: random images and parameters, and the checks made
// around every call (guard bytes, reference counts, untouched inputs).
#pragma once

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "qel/qel.h"
#include "support/test_image.h"

namespace stress {

// "--seed S --call N" of the running call, so that a report can be replayed.
inline char gCallLabel[128] = "before the first call";

// Deterministic draws for one call, seeded from (run seed, call number), or
// read from a fuzzer's input bytes (zeros once they run out), so that the
// fuzzer steers the same operations and checks.
class Draw {
public:
    Draw(uint64_t runSeed, uint64_t index) {
        std::seed_seq seeds{uint32_t(runSeed), uint32_t(runSeed >> 32), uint32_t(index),
                            uint32_t(index >> 32)};
        engine_.seed(seeds);
    }
    Draw(const uint8_t* bytes, size_t size) : bytes_(bytes), left_(size) {}
    int Int(int lo, int hi) { return static_cast<int>(lo + int64_t(Below(int64_t(hi) - lo + 1))); }
    // Counted from the top, so that zero bytes (a short input) take the usual way.
    bool Chance(double p) { return static_cast<double>(255 - Below(256)) < p * 256; }
    double Real(double lo, double hi) { return lo + (hi - lo) * static_cast<double>(Below(65536)) / 65535.0; }
    uint32_t Bits32() { return static_cast<uint32_t>(Below(uint64_t(1) << 32)); }
    template <class T>
    T Pick(std::initializer_list<T> choices) {
        return choices.begin()[Int(0, int(choices.size()) - 1)];
    }
    // Mostly a value in [lo, hi]; now and then an extreme of the int range.
    int Param(int lo, int hi) {
        return Chance(0.04) ? Pick<int>({INT_MIN, INT_MAX, -1, 0, 1 << 30}) : Int(lo, hi);
    }
    // Mostly a value in [lo, hi]; now and then NaN, an infinity or a huge value.
    double RealParam(double lo, double hi) {
        return Chance(0.05) ? Pick<double>({NAN, INFINITY, -INFINITY, 1e30, -1e30, 0.0, 1e-30})
                            : Real(lo, hi);
    }

private:
    // A value below `range`: from the generator, or from as few input bytes as cover it.
    uint64_t Below(uint64_t range) {
        if (bytes_ == nullptr) return std::uniform_int_distribution<uint64_t>(0, range - 1)(engine_);
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
// way (small ones favoured: borders meet), padded rows, bottom-up rows, 1 to 3 planes.
struct Shape {
    int width, height, bitCount, padding, planes;
    unsigned colourModel;
    bool bottomUp;

    explicit Shape(Draw& draw)
        : width(draw.Chance(0.5) ? draw.Int(0, 5) : draw.Int(0, 64)),
          height(draw.Chance(0.5) ? draw.Int(0, 5) : draw.Int(0, 64)),
          bitCount(draw.Pick<int>({1, 4, 8, 8, 16, 24, 24, 32, 32})),
          padding(draw.Chance(0.5) ? 0 : draw.Int(1, 13)),
          planes(draw.Chance(0.8) ? 1 : draw.Int(2, 3)),
          colourModel(
              draw.Pick<unsigned>({QEL_MODEL_MONO, QEL_MODEL_BGR, QEL_MODEL_ARGB, QEL_MODEL_ABGR, 0u})),
          bottomUp(draw.Chance(0.3)) {}
    std::string Text() const {
        char text[160];
        std::snprintf(text, sizeof(text), "%dx%d %d-bit model 0x%08X padding %d %s %d plane(s)", width,
                      height, bitCount, colourModel, padding, bottomUp ? "bottom-up" : "top-down", planes);
        return text;
    }
};

// One operation call: draws its images and parameters, owns its images,
// remembers their state before the call and checks them afterwards. The first
// failed check ends the run.
class Call : public Draw {
public:
    Call(const char* operation, const Draw& draw) : Draw(draw), operation_(operation) {}
    ~Call() {
        for (Held& held : held_) held.image->Release();
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    // A test-owned image with guard bytes; `changes` says the operation may
    // write it (in-place operations and destinations).
    IQELImageDIB* Image(const Shape& shape, bool changes) {
        qeltest::BufferImage* buffer =
            qeltest::BufferImage::Make(shape.width, shape.height, shape.bitCount, shape.colourModel,
                                       shape.padding, shape.bottomUp, shape.planes);
        buffer->FillRandom(Bits32());
        return Keep(buffer, buffer, shape, changes);
    }
    // A runtime image (top-down, unpadded), sometimes with a palette of random
    // length, which may be shorter than the indices in the image.
    IQELImageDIB* RuntimeImage(bool changes) {
        Shape shape(*this);
        shape.padding = 0;
        shape.bottomUp = false;
        SmartPtr<IQELImageDIB> image = qeltest::TestHost().NewImage(shape.width, shape.height, shape.bitCount,
                                                                    shape.colourModel, shape.planes);
        if (!image) Fail("the runtime made no image of " + shape.Text());
        for (int p = 0; p < shape.planes; ++p) {
            unsigned char* bits = nullptr;
            int stride = 0, reserved = 0;
            image->GetBits(p, &reserved, &bits, &stride);
            for (int64_t i = 0; i < static_cast<int64_t>(stride) * shape.height; ++i)
                bits[i] = static_cast<unsigned char>(Bits32());
        }
        if (Chance(0.5)) {
            std::vector<RGBQUAD> entries(static_cast<size_t>(Int(0, 256)));
            for (RGBQUAD& entry : entries)
                entry = RGBQUAD{uint8_t(Bits32()), uint8_t(Bits32()), uint8_t(Bits32()), 0};
            image->SetPalette(entries.data(), static_cast<unsigned>(entries.size()));
        }
        return Keep(nullptr, image.Detach(), shape, changes);
    }
    // Any input: mostly a test-owned image, sometimes a runtime one, rarely null.
    IQELImageDIB* Input(bool changes) {
        if (Chance(0.03)) return nullptr;
        return Chance(0.15) ? RuntimeImage(changes) : Image(Shape(*this), changes);
    }

    // Where an out-of-place operation hands its result back (Finish checks it).
    SmartPtr<IQEL> result;

    // The images of a maths call: a destination, then up to two operands and
    // sometimes a mask, each often of the destination's size, format or model.
    IQELImageDIB *dest = nullptr, *a = nullptr, *b = nullptr, *mask = nullptr;
    void MakeOperands(int operands, double maskChance) {
        const Shape shape(*this);
        const auto like = [&] {
            Shape other(*this);
            if (Chance(0.6)) other.width = shape.width, other.height = shape.height;
            if (Chance(0.4)) other.bitCount = shape.bitCount;
            if (Chance(0.4)) other.colourModel = shape.colourModel;
            return Image(other, false);
        };
        dest = Image(shape, true);
        a = operands > 0 ? like() : nullptr;
        b = operands > 1 ? like() : nullptr;
        mask = Chance(maskChance) ? like() : nullptr;
    }

    // Checks made after the call: guards intact, reference counts unchanged,
    // unchanged inputs byte for byte; the result (may be null) must hold exactly
    // one reference unless it is one of the inputs, which then holds one more.
    void Finish() {
        IQEL* output = result.Get();
        bool outputIsInput = false;
        for (Held& held : held_) outputIsInput = outputIsInput || static_cast<IQEL*>(held.image) == output;
        if (output != nullptr && !outputIsInput && qeltest::RefCountOf(output) != 1)
            Fail("the image handed back holds " + std::to_string(qeltest::RefCountOf(output)) +
                 " references, not 1");
        for (size_t i = 0; i < held_.size(); ++i) {
            const Held& held = held_[i];
            const std::string which = "image " + std::to_string(i) + " (" + held.shape.Text() + ")";
            if (held.buffer != nullptr && !held.buffer->GuardsIntact())
                Fail("guard bytes overwritten around " + which);
            const uint32_t expected = held.refs + (static_cast<IQEL*>(held.image) == output ? 1 : 0);
            const uint32_t refs = qeltest::RefCountOf(held.image);
            if (refs != expected)
                Fail(which + " holds " + std::to_string(refs) + " references, expected " +
                     std::to_string(expected));
            for (int p = 0; p < held.shape.planes && !held.changes; ++p)
                if (Contents(held, p) != held.before[static_cast<size_t>(p)])
                    Fail("input " + which + " changed in plane " + std::to_string(p));
        }
    }
    void Fail(const std::string& what) const {
        std::fprintf(stderr, "FAULT in %s (%s): %s\n", operation_, gCallLabel, what.c_str());
        for (size_t i = 0; i < held_.size(); ++i)
            std::fprintf(stderr, "  image %zu: %s%s\n", i, held_[i].shape.Text().c_str(),
                         held_[i].buffer == nullptr ? " (runtime image)" : "");
        std::fflush(stderr);
        std::exit(1);
    }

private:
    struct Held {
        qeltest::BufferImage* buffer;  // test-owned, or null
        IQELImageDIB* image;
        Shape shape;
        bool changes;
        uint32_t refs;
        std::vector<std::vector<unsigned char>> before;  // whole blocks, or pixel rows of a runtime image
    };
    IQELImageDIB* Keep(qeltest::BufferImage* buffer, IQELImageDIB* image, const Shape& shape, bool changes) {
        Held held{buffer, image, shape, changes, qeltest::RefCountOf(image), {}};
        for (int p = 0; p < shape.planes; ++p) held.before.push_back(Contents(held, p));
        held_.push_back(held);
        return image;
    }
    std::vector<unsigned char> Contents(const Held& held, int plane) const {
        if (held.buffer != nullptr) return held.buffer->Snapshot(plane);
        unsigned char* bits = nullptr;
        int stride = 0, reserved = 0;
        held.image->GetBits(plane, &reserved, &bits, &stride);
        if (bits == nullptr) return {};
        return std::vector<unsigned char>(bits, bits + static_cast<int64_t>(stride) * held.shape.height);
    }

    const char* operation_;
    std::vector<Held> held_;
};

// Runs the operation `draw` chooses, with its checks: call `index` of a run is
// RunCall(Draw(runSeed, index)).
void RunCall(Draw draw);

}  // namespace stress
