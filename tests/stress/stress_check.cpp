// Random images and parameters for the stress driver, and the checks made
// after every call.
#include "stress/stress_check.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace stress {

char gCallLabel[128] = "before the first call";

int Draw::Param(int lo, int hi) {
    if (Chance(0.04))
        return Pick<int>({std::numeric_limits<int>::min(), std::numeric_limits<int>::max(), -1, 0, 1 << 30});
    return Int(lo, hi);
}

double Draw::RealParam(double lo, double hi) {
    if (Chance(0.05)) {
        const double inf = std::numeric_limits<double>::infinity();
        return Pick<double>({std::nan(""), inf, -inf, 1e30, -1e30, 0.0, 1e-30});
    }
    return Real(lo, hi);
}

std::string Shape::Text() const {
    char text[160];
    std::snprintf(text, sizeof(text), "%dx%d %d-bit model 0x%08X padding %d %s %d plane(s)", width, height,
                  bitCount, colourModel, padding, bottomUp ? "bottom-up" : "top-down", planes);
    return text;
}

Shape RandomShape(Draw& draw) {
    Shape shape;
    // Small sizes are the interesting ones (borders meet), so favour them.
    shape.width = draw.Chance(0.5) ? draw.Int(0, 5) : draw.Int(0, 64);
    shape.height = draw.Chance(0.5) ? draw.Int(0, 5) : draw.Int(0, 64);
    shape.bitCount = draw.Pick<int>({1, 4, 8, 8, 16, 24, 24, 32, 32});
    shape.colourModel =
        draw.Pick<unsigned>({QEL_MODEL_MONO, QEL_MODEL_BGR, QEL_MODEL_ARGB, QEL_MODEL_ABGR, 0u});
    shape.padding = draw.Chance(0.5) ? 0 : draw.Int(1, 13);
    shape.bottomUp = draw.Chance(0.3);
    shape.planes = draw.Chance(0.8) ? 1 : draw.Int(2, 3);
    return shape;
}

Call::~Call() {
    for (Held& held : held_)
        if (held.image != nullptr) held.image->Release();
}

IQELImageDIB* Call::Image(const Shape& shape, bool changes) {
    Held held;
    held.shape = shape;
    held.changes = changes;
    held.buffer = qeltest::BufferImage::Make(shape.width, shape.height, shape.bitCount, shape.colourModel,
                                             shape.padding, shape.bottomUp, shape.planes);
    held.buffer->FillRandom(draw_.Bits32());
    held.image = held.buffer;
    held.refs = qeltest::RefCountOf(held.buffer);
    for (int p = 0; p < shape.planes; ++p) held.before.push_back(Contents(held, p));
    held_.push_back(held);
    return held.image;
}

IQELImageDIB* Call::RuntimeImage(bool changes) {
    Held held;
    held.shape = RandomShape(draw_);
    held.shape.padding = 0;
    held.shape.bottomUp = false;
    held.changes = changes;
    SmartPtr<IQELImageDIB> image = qeltest::TestHost().NewImage(
        held.shape.width, held.shape.height, held.shape.bitCount, held.shape.colourModel, held.shape.planes);
    if (!image) Fail("the runtime made no image of " + held.shape.Text());
    for (int p = 0; p < held.shape.planes; ++p) {
        unsigned char* bits = nullptr;
        int stride = 0, reserved = 0;
        image->GetBits(p, &reserved, &bits, &stride);
        for (int64_t i = 0; i < static_cast<int64_t>(stride) * held.shape.height; ++i)
            bits[i] = static_cast<unsigned char>(draw_.Bits32());
    }
    if (draw_.Chance(0.5)) {
        // A palette that may be shorter than the indices in the image.
        std::vector<RGBQUAD> entries(static_cast<size_t>(draw_.Int(0, 256)));
        for (RGBQUAD& entry : entries) {
            const uint32_t c = draw_.Bits32();
            entry = RGBQUAD{static_cast<unsigned char>(c), static_cast<unsigned char>(c >> 8),
                            static_cast<unsigned char>(c >> 16), 0};
        }
        image->SetPalette(entries.data(), static_cast<unsigned>(entries.size()));
    }
    held.image = image.Detach();
    held.refs = qeltest::RefCountOf(held.image);
    for (int p = 0; p < held.shape.planes; ++p) held.before.push_back(Contents(held, p));
    held_.push_back(held);
    return held.image;
}

IQELImageDIB* Call::Input(bool changes) {
    if (draw_.Chance(0.03)) return nullptr;
    return draw_.Chance(0.15) ? RuntimeImage(changes) : Image(changes);
}

std::vector<unsigned char> Call::Contents(const Held& held, int plane) const {
    if (held.buffer != nullptr) return held.buffer->Snapshot(plane);
    unsigned char* bits = nullptr;
    int stride = 0, reserved = 0;
    held.image->GetBits(plane, &reserved, &bits, &stride);
    if (bits == nullptr) return {};
    return std::vector<unsigned char>(bits, bits + static_cast<int64_t>(stride) * held.shape.height);
}

void Call::Finish() {
    IQEL* output = result.Get();
    uint32_t outputRefs = 0;
    bool outputIsInput = false;
    if (output != nullptr) {
        for (Held& held : held_) outputIsInput = outputIsInput || static_cast<IQEL*>(held.image) == output;
        outputRefs = qeltest::RefCountOf(output);
        if (!outputIsInput && outputRefs != 1)
            Fail("the image handed back holds " + std::to_string(outputRefs) + " references, not 1");
    }
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
        if (held.changes) continue;
        for (int p = 0; p < held.shape.planes; ++p)
            if (Contents(held, p) != held.before[static_cast<size_t>(p)])
                Fail("input " + which + " changed in plane " + std::to_string(p));
    }
}

void Call::Fail(const std::string& what) const {
    std::fprintf(stderr, "FAULT in %s (%s, call seed %llu): %s\n", operation_, gCallLabel,
                 static_cast<unsigned long long>(seed_), what.c_str());
    for (size_t i = 0; i < held_.size(); ++i)
        std::fprintf(stderr, "  image %zu: %s%s\n", i, held_[i].shape.Text().c_str(),
                     held_[i].buffer == nullptr ? " (runtime image)" : "");
    std::fflush(stderr);
    std::exit(1);
}

}  // namespace stress
