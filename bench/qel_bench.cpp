// Timings of the module's operations on 1920 x 1080 images, called through
// dlopen and the component interfaces as a host calls them. The benchmark
// names pair with those of the comparison program in bench/compare.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "qel/host.h"

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

qel::Host& TheHost() {
    static qel::Host host;
    static bool loaded = false;
    if (!loaded) {
        const char* folder = std::getenv("QEL_MODULE_DIR");
        // qel_bench sits in <build>/bench, the module in <build>/_binLIN64.
        std::string path = qel::DefaultModuleFolder();
        path = folder != nullptr ? folder : path.substr(0, path.rfind("/bench/_binLIN64")) + "/_binLIN64";
        std::string error;
        if (!host.Load(path, &error)) {
            std::fprintf(stderr, "cannot load the module from %s: %s\n", path.c_str(), error.c_str());
            std::exit(2);
        }
        loaded = true;
    }
    return host;
}

// Deterministic bytes, the same on every run (xorshift64*).
void FillPseudoRandom(IQEL* image, uint64_t seed) {
    const qel::Pixels p = qel::PixelsOf(image);
    uint64_t state = seed * 0x9E3779B97F4A7C15ull + 1;
    for (int y = 0; y < p.height; ++y) {
        unsigned char* row = p.Row(y);
        for (size_t n = 0; n < p.RowBytes(); ++n) {
            state ^= state >> 12;
            state ^= state << 25;
            state ^= state >> 27;
            row[n] = static_cast<unsigned char>((state * 0x2545F4914F6CDD1Dull) >> 56);
        }
    }
}

SmartPtr<IQELImageDIB> RandomImage(int bitCount = 24, unsigned model = QEL_MODEL_BGR, uint64_t seed = 1) {
    SmartPtr<IQELImageDIB> image = TheHost().NewImage(kWidth, kHeight, bitCount, model);
    if (!image) {
        std::fprintf(stderr, "the host runtime made no image\n");
        std::exit(2);
    }
    FillPseudoRandom(image.Get(), seed);
    return image;
}

SmartPtr<IQELFilterTransform> Filters() {
    return TheHost().Create<IQELFilterTransform>(L"QELFilterTransform", qel::iid::IQELFilterTransform);
}
SmartPtr<IQELTransform> Transforms() {
    return TheHost().Create<IQELTransform>(L"QELTransform", qel::iid::IQELTransform);
}
SmartPtr<IQELColorTransform> Colours() {
    return TheHost().Create<IQELColorTransform>(L"QELColorTransform", qel::iid::IQELColorTransform);
}
SmartPtr<IQELMaths> Maths() { return TheHost().Create<IQELMaths>(L"QELMaths", qel::iid::IQELMaths); }

template <class I>
I* Required(const SmartPtr<I>& component, benchmark::State& state) {
    if (!component) state.SkipWithError("component not available");
    return component.Get();
}

size_t ImageBytes(IQEL* image) {
    const qel::Pixels p = qel::PixelsOf(image);
    return static_cast<size_t>(p.stride < 0 ? -p.stride : p.stride) * static_cast<size_t>(p.height);
}

// The least memory traffic a call needs: every byte it must read and write
// once. bench/compare turns it into a time with the measured copy speed.
void SetFloorBytes(benchmark::State& state, double bytes) { state.counters["floor_bytes"] = bytes; }

// Runs an operation that hands back a new image, releasing it each time as a host would.
template <class Op>
void RunProducing(benchmark::State& state, Op&& op, double sourceBytes = 0) {
    double resultBytes = 0;
    for (auto _ : state) {
        SmartPtr<IQEL> result;
        const QResult code = op(result.Out());
        if (code < 0) {
            state.SkipWithError("operation failed");
            break;
        }
        benchmark::DoNotOptimize(result.Get());
        if (resultBytes == 0 && result) resultBytes = static_cast<double>(ImageBytes(result.Get()));
    }
    if (sourceBytes > 0) SetFloorBytes(state, sourceBytes + resultBytes);
}

void BM_filter(benchmark::State& state, int which) {
    SmartPtr<IQELImageDIB> image = RandomImage();
    SmartPtr<IQELFilterTransform> filters = Filters();
    IQELFilterTransform* f = Required(filters, state);
    if (f == nullptr) return;
    IQEL* src = image.Get();
    RunProducing(
        state,
        [&](IQEL** out) -> QResult {
            switch (which) {
                case 0:
                    return f->Blur(src, out);
                case 1:
                    return f->GaussianBlur(src, 0, out);
                case 2:
                    return f->GaussianBlur(src, 1, out);
                case 3:
                    return f->Sharpen(src, out);
                case 4:
                    return f->Erode(src, 3, out);
                default:
                    return f->Dilate(src, 3, out);
            }
        },
        ImageBytes(src));
}

void BM_median(benchmark::State& state, int size, int bitCount) {
    SmartPtr<IQELImageDIB> image = RandomImage(bitCount, bitCount == 8 ? QEL_MODEL_MONO : QEL_MODEL_BGR);
    SmartPtr<IQELFilterTransform> filters = Filters();
    IQELFilterTransform* f = Required(filters, state);
    if (f == nullptr) return;
    RunProducing(
        state, [&](IQEL** out) { return f->Median(image.Get(), size, out); }, ImageBytes(image.Get()));
}

void BM_resample(benchmark::State& state, int width, int height, int method) {
    SmartPtr<IQELImageDIB> image = RandomImage();
    SmartPtr<IQELTransform> transforms = Transforms();
    IQELTransform* t = Required(transforms, state);
    if (t == nullptr) return;
    RunProducing(
        state, [&](IQEL** out) { return t->Resample(image.Get(), out, width, height, method, 0); },
        ImageBytes(image.Get()));
}

void BM_rotate30_cubic(benchmark::State& state) {
    SmartPtr<IQELImageDIB> image = RandomImage();
    SmartPtr<IQELTransform> transforms = Transforms();
    IQELTransform* t = Required(transforms, state);
    if (t == nullptr) return;
    RunProducing(
        state, [&](IQEL** out) { return t->Rotate(image.Get(), out, 30, 3, 0, 1); }, ImageBytes(image.Get()));
}

void BM_flip(benchmark::State& state, bool vertical) {
    SmartPtr<IQELImageDIB> image = RandomImage();
    SmartPtr<IQELTransform> transforms = Transforms();
    IQELTransform* t = Required(transforms, state);
    if (t == nullptr) return;
    RunProducing(
        state, [&](IQEL** out) { return vertical ? t->Flip(image.Get(), out) : t->Mirror(image.Get(), out); },
        ImageBytes(image.Get()));
}

// In-place operations: the image changes between repetitions, their cost does not.
void BM_lut(benchmark::State& state) {
    SmartPtr<IQELImageDIB> image = RandomImage();
    SmartPtr<IQELColorTransform> colours = Colours();
    IQELColorTransform* c = Required(colours, state);
    if (c == nullptr) return;
    unsigned char table[256];
    for (int i = 0; i < 256; ++i) table[i] = static_cast<unsigned char>(255 - i);
    for (auto _ : state) {
        c->Lut(image.Get(), table);
        benchmark::ClobberMemory();
    }
    SetFloorBytes(state, 2.0 * ImageBytes(image.Get()));
}

void BM_gray(benchmark::State& state) {
    SmartPtr<IQELImageDIB> image = RandomImage();
    SmartPtr<IQELColorTransform> colours = Colours();
    IQELColorTransform* c = Required(colours, state);
    if (c == nullptr) return;
    for (auto _ : state) {
        c->GrayScale(image.Get());
        benchmark::ClobberMemory();
    }
    SetFloorBytes(state, 2.0 * ImageBytes(image.Get()));
}

void BM_add(benchmark::State& state) {
    SmartPtr<IQELImageDIB> a = RandomImage(24, QEL_MODEL_BGR, 1), b = RandomImage(24, QEL_MODEL_BGR, 2);
    SmartPtr<IQELImageDIB> dest = TheHost().NewImage();
    SmartPtr<IQELMaths> maths = Maths();
    IQELMaths* m = Required(maths, state);
    if (m == nullptr) return;
    for (auto _ : state) {
        m->Add(dest.Get(), a.Get(), b.Get(), 0.0f);
        benchmark::ClobberMemory();
    }
    SetFloorBytes(state, 3.0 * ImageBytes(a.Get()));
}

void BM_addweighted(benchmark::State& state) {
    SmartPtr<IQELImageDIB> a = RandomImage(24, QEL_MODEL_BGR, 1), b = RandomImage(24, QEL_MODEL_BGR, 2);
    SmartPtr<IQELImageDIB> dest = TheHost().NewImage(kWidth, kHeight, 24, QEL_MODEL_BGR);
    SmartPtr<IQELMaths> maths = Maths();
    IQELMaths* m = Required(maths, state);
    if (m == nullptr) return;
    for (auto _ : state) {
        m->AddScale(dest.Get(), a.Get(), b.Get(), nullptr, 0.5f, 0.5f, 0.0f);
        benchmark::ClobberMemory();
    }
    SetFloorBytes(state, 3.0 * ImageBytes(a.Get()));
}

// The bandwidth floor: one plain copy of the image's bytes.
void BM_memcpy_full(benchmark::State& state) {
    SmartPtr<IQELImageDIB> image = RandomImage();
    const qel::Pixels p = qel::PixelsOf(image.Get());
    const size_t bytes = static_cast<size_t>(p.stride) * p.height;
    std::vector<unsigned char> copy(bytes);
    for (auto _ : state) {
        std::memcpy(copy.data(), p.bits, bytes);
        benchmark::ClobberMemory();
    }
    SetFloorBytes(state, 2.0 * static_cast<double>(bytes));
}

// ---- every public operation, at the depths people use ----------------------

unsigned ModelFor(int bits) { return bits == 8 ? QEL_MODEL_MONO : bits == 32 ? QEL_MODEL_ARGB : QEL_MODEL_BGR; }

SmartPtr<IQELDeform> Deforms() { return TheHost().Create<IQELDeform>(L"QELDeform", qel::iid::IQELDeform); }

// The five components, made once.
struct Components {
    SmartPtr<IQELColorTransform> colours = Colours();
    SmartPtr<IQELTransform> transforms = Transforms();
    SmartPtr<IQELDeform> deform = Deforms();
    SmartPtr<IQELFilterTransform> filters = Filters();
    SmartPtr<IQELMaths> maths = Maths();
};
const Components& Kit() {
    static const Components kit;
    return kit;
}

// An operation that makes a new image from `source`.
using Producing = QResult (*)(const Components&, IQEL* source, IQEL** out);
// An operation that changes `image` in place.
using InPlace = QResult (*)(const Components&, IQEL* image);

void BM_producing(benchmark::State& state, int bits, Producing op) {
    SmartPtr<IQELImageDIB> image = RandomImage(bits, ModelFor(bits));
    const Components& kit = Kit();
    RunProducing(state, [&](IQEL** out) { return op(kit, image.Get(), out); }, ImageBytes(image.Get()));
}

// The image changes between repetitions; the cost of these operations does not.
void BM_in_place(benchmark::State& state, int bits, InPlace op) {
    SmartPtr<IQELImageDIB> image = RandomImage(bits, ModelFor(bits));
    const Components& kit = Kit();
    for (auto _ : state) {
        if (op(kit, image.Get()) < 0) {
            state.SkipWithError("operation failed");
            break;
        }
        benchmark::ClobberMemory();
    }
    SetFloorBytes(state, 2.0 * ImageBytes(image.Get()));
}

// A coordinate map for Transform and TransformPaste: a turn of 10 degrees
// about the image's centre, read as result position to source position.
class TurnAboutCentre final : public ITransform {
public:
    QResult QueryInterface(const IID& iid, void** object) override {
        if (object == nullptr) return QEL_E_POINTER;
        *object = nullptr;
        if (!(iid == qel::iid::IUnknown || iid == qel::iid::ITransform)) return QEL_E_NOINTERFACE;
        *object = static_cast<ITransform*>(this);
        return QEL_OK;
    }
    // Lives as long as the benchmark; counting is not needed.
    uint32_t AddRef() override { return 1; }
    uint32_t Release() override { return 1; }
    QResult TransformPoint(double* x, double* y, double*) override {
        const double dx = *x - kWidth / 2.0, dy = *y - kHeight / 2.0;
        *x = kCos * dx - kSin * dy + kWidth / 2.0;
        *y = kSin * dx + kCos * dy + kHeight / 2.0;
        return QEL_OK;
    }
    static constexpr double kCos = 0.98480775301220802, kSin = 0.17364817766693033;
};

// Operations on a second image: a destination of the source's format, or
// the other operand. Floors count each image read or written once.
void BM_paste(benchmark::State& state, int bits, bool throughTransform) {
    SmartPtr<IQELImageDIB> image = RandomImage(bits, ModelFor(bits));
    // RotatePaste draws onto 24- and 32-bit targets only.
    const int targetBits = throughTransform ? bits : (bits == 32 ? 32 : 24);
    SmartPtr<IQELImageDIB> target = RandomImage(targetBits, ModelFor(targetBits), 2);
    const Components& kit = Kit();
    TurnAboutCentre turn;
    for (auto _ : state) {
        const QResult code = throughTransform
                                 ? kit.transforms->TransformPaste(&turn, image.Get(), target.Get(), 0, 0, 0, 0)
                                 : kit.transforms->RotatePaste(image.Get(), target.Get(), 0.5235987755982988, 3, -1);
        if (code < 0) {
            state.SkipWithError("operation failed");
            break;
        }
        benchmark::ClobberMemory();
    }
    SetFloorBytes(state, static_cast<double>(ImageBytes(image.Get()) + 2 * ImageBytes(target.Get())));
}

void BM_transform(benchmark::State& state, int bits) {
    SmartPtr<IQELImageDIB> image = RandomImage(bits, ModelFor(bits));
    const Components& kit = Kit();
    TurnAboutCentre turn;
    RunProducing(
        state,
        [&](IQEL** out) {
            return kit.transforms->Transform(&turn, image.Get(), out, 0, 0, kWidth, kHeight, 0, 0);
        },
        ImageBytes(image.Get()));
}

enum class MathsOp { kFill, kCopy, kAddWeighted, kScale, kSubtract, kAdd };

void BM_maths(benchmark::State& state, int bits, MathsOp op) {
    SmartPtr<IQELImageDIB> a = RandomImage(bits, ModelFor(bits), 1), b = RandomImage(bits, ModelFor(bits), 2);
    SmartPtr<IQELImageDIB> dest = TheHost().NewImage(kWidth, kHeight, bits, ModelFor(bits));
    IQELMaths* m = Kit().maths.Get();
    double images = 3;  // two read, one written
    for (auto _ : state) {
        switch (op) {
            case MathsOp::kFill:
                m->Equal(dest.Get(), nullptr, 0x336699);
                images = 1;
                break;
            case MathsOp::kCopy:
                m->Copy(dest.Get(), a.Get(), nullptr, 0, 0);
                images = 2;
                break;
            case MathsOp::kAddWeighted:
                m->AddScale(dest.Get(), a.Get(), b.Get(), nullptr, 0.5f, 0.5f, 0.0f);
                break;
            case MathsOp::kScale:
                m->Scale(dest.Get(), a.Get(), nullptr, 0.75f, 16.0f);
                images = 2;
                break;
            case MathsOp::kSubtract:
                m->Subtract(dest.Get(), a.Get(), b.Get(), 0);
                break;
            case MathsOp::kAdd:
                m->Add(dest.Get(), a.Get(), b.Get(), 0.0f);
                break;
        }
        benchmark::ClobberMemory();
    }
    SetFloorBytes(state, images * ImageBytes(a.Get()));
}

// Scale8 reads one signed 32-bit value per pixel of a "MONO" image.
void BM_scale8(benchmark::State& state) {
    SmartPtr<IQELImageDIB> source = RandomImage(32, QEL_MODEL_MONO);
    SmartPtr<IQELImageDIB> dest = TheHost().NewImage();
    IQELMaths* m = Kit().maths.Get();
    for (auto _ : state) {
        if (m->Scale8(dest.Get(), source.Get(), 0, 1.0 / (1 << 24)) < 0) {
            state.SkipWithError("operation failed");
            break;
        }
        benchmark::ClobberMemory();
    }
    SetFloorBytes(state, static_cast<double>(ImageBytes(source.Get()) + ImageBytes(dest.Get())));
}

void BM_create_dest(benchmark::State& state, int bits) {
    SmartPtr<IQELImageDIB> model = RandomImage(bits, ModelFor(bits));
    IQELMaths* m = Kit().maths.Get();
    RunProducing(
        state, [&](IQEL** out) { return m->CreateDestImage(out, model.Get(), bits, static_cast<int>(ModelFor(bits))); },
        0.0);
    SetFloorBytes(state, static_cast<double>(ImageBytes(model.Get())));  // a zeroed image is written once
}

// ---- the libm and rand work some exact results require, as floors ----------

// atan2 and sincos (modes 0 to 2 of CircleTransform) or atan2 alone (mode 3)
// at every pixel of the circle of the deforms.
void BM_floor_trig(benchmark::State& state, bool withSincos) {
    const int cx = kWidth / 2, cy = kHeight / 2;
    const int limit = static_cast<int>(std::sqrt(double(cx) * cx + double(cy) * cy));
    for (auto _ : state) {
        double sum = 0;
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                const int dx = cx - x, dy = cy - y;
                const double d = std::sqrt(static_cast<float>(dx * dx + dy * dy));
                if (d >= limit) continue;
                const double a = std::atan2(static_cast<double>(dy), static_cast<double>(dx));
                if (withSincos) {
                    double s, c;
                    sincos(a + d, &s, &c);
                    sum += s + c;
                } else {
                    sum += a;
                }
            }
        benchmark::DoNotOptimize(sum);
    }
}

// `perPixel` calls of rand for every pixel (Noise draws three, Jitter two).
void BM_floor_rand(benchmark::State& state, int perPixel) {
    for (auto _ : state) {
        unsigned sum = 0;
        for (long n = 0; n < static_cast<long>(kWidth) * kHeight * perPixel; ++n) sum += std::rand();
        benchmark::DoNotOptimize(sum);
    }
}

}  // namespace

int main(int argc, char** argv) {
    using benchmark::RegisterBenchmark;
    using benchmark::State;
    const struct {
        const char* name;
        void (*run)(State&);
    } table[] = {
        {"blur3", [](State& s) { BM_filter(s, 0); }},
        {"gauss3", [](State& s) { BM_filter(s, 1); }},
        {"gauss5", [](State& s) { BM_filter(s, 2); }},
        {"sharpen3", [](State& s) { BM_filter(s, 3); }},
        {"median3", [](State& s) { BM_median(s, 3, 24); }},
        {"median5", [](State& s) { BM_median(s, 5, 24); }},
        {"median15_gray", [](State& s) { BM_median(s, 15, 8); }},
        {"erode3", [](State& s) { BM_filter(s, 4); }},
        {"dilate3", [](State& s) { BM_filter(s, 5); }},
        {"resize_half_area", [](State& s) { BM_resample(s, 960, 540, 0); }},
        {"resize_double_cubic", [](State& s) { BM_resample(s, 3840, 2160, 3); }},
        {"resize_double_lanczos", [](State& s) { BM_resample(s, 3840, 2160, 5); }},
        {"rotate30_cubic", BM_rotate30_cubic},
        {"lut", BM_lut},
        {"gray", BM_gray},
        {"flip_v", [](State& s) { BM_flip(s, true); }},
        {"flip_h", [](State& s) { BM_flip(s, false); }},
        {"add", BM_add},
        {"addweighted", BM_addweighted},
        {"memcpy_full", BM_memcpy_full},
    };
    for (const auto& entry : table) RegisterBenchmark(entry.name, entry.run)->Unit(benchmark::kMillisecond);

    // Every other public operation as <name>_<bits>, and the twenty above at
    // their other depths. A depth an operation refuses shows as an error.
    using C = const Components&;
    const struct {
        const char* name;
        InPlace apply;
    } inPlace[] = {
        {"colorize", [](C k, IQEL* i) { return k.colours->Colorize(i, 160, 200, 0.5f); }},
        {"lut", [](C k, IQEL* i) {
             static unsigned char inverse[256];
             for (int n = 0; n < 256; ++n) inverse[n] = static_cast<unsigned char>(255 - n);
             return k.colours->Lut(i, inverse);
         }},
        {"negative", [](C k, IQEL* i) { return k.colours->Negative(i); }},
        {"gray", [](C k, IQEL* i) { return k.colours->GrayScale(i); }},
        {"shiftrgb", [](C k, IQEL* i) { return k.colours->ShiftRGB(i, 20, -10, 5); }},
        {"gamma", [](C k, IQEL* i) { return k.colours->Gamma(i, 1.4f); }},
        {"light", [](C k, IQEL* i) { return k.colours->Light(i, 20, 30); }},
        {"alpha", [](C k, IQEL* i) { return k.colours->SetImageAlpha(i, 128, 0); }},
        {"alphakey", [](C k, IQEL* i) { return k.colours->SetImageAlphaTransparency(i, 200, 0x336699); }},
        {"transparent", [](C k, IQEL* i) { return k.colours->SetImageTransparentPixel(i, 0x336699); }},
        {"threshold", [](C k, IQEL* i) { return k.colours->Threshold(i, 128); }},
        {"flipbits", [](C k, IQEL* i) { return k.transforms->FlipBits(i); }},
        {"flipimageandbits", [](C k, IQEL* i) { return k.transforms->FlipImageAndBits(i); }},
        {"bulge", [](C k, IQEL* i) { return k.deform->CircleTransform(i, 0, 0, 1.0f); }},
        {"pinch", [](C k, IQEL* i) { return k.deform->CircleTransform(i, 1, 0, 1.0f); }},
        {"swirl", [](C k, IQEL* i) { return k.deform->CircleTransform(i, 2, 0, 1.5f); }},
        {"polar", [](C k, IQEL* i) { return k.deform->CircleTransform(i, 3, 0, 1.0f); }},
        {"fold", [](C k, IQEL* i) { return k.deform->CircleTransform(i, 4, 0, 1.0f); }},
    };
    static const int kernel5[25] = {1, 1, 1, 1, 1, 1, 2, 2, 2, 1, 1, 2, 4, 2, 1, 1, 2, 2, 2, 1, 1, 1, 1, 1, 1};
    const struct {
        const char* name;
        Producing make;
    } producing[] = {
        {"flip_v", [](C k, IQEL* s, IQEL** o) { return k.transforms->Flip(s, o); }},
        {"flip_h", [](C k, IQEL* s, IQEL** o) { return k.transforms->Mirror(s, o); }},
        {"rotate90", [](C k, IQEL* s, IQEL** o) { return k.transforms->Rotate(s, o, 90, 3, 0, 0); }},
        {"rotate30_cubic", [](C k, IQEL* s, IQEL** o) { return k.transforms->Rotate(s, o, 30, 3, 0, 1); }},
        {"skew", [](C k, IQEL* s, IQEL** o) {
             return k.transforms->Skew(s, o, 0.2f, 0.0f, kWidth / 2, kHeight / 2, 0, 0);
         }},
        {"resize_half_area", [](C k, IQEL* s, IQEL** o) { return k.transforms->Resample(s, o, 960, 540, 0, 0); }},
        {"resize_up150_cubic", [](C k, IQEL* s, IQEL** o) {
             return k.transforms->Resample(s, o, kWidth * 3 / 2, kHeight * 3 / 2, 3, 0);
         }},
        {"resize_double_cubic", [](C k, IQEL* s, IQEL** o) { return k.transforms->Resample(s, o, 3840, 2160, 3, 0); }},
        {"depth_to24", [](C k, IQEL* s, IQEL** o) { return k.transforms->IncreaseBpp(s, o, 24, QEL_MODEL_BGR); }},
        {"depth_to32", [](C k, IQEL* s, IQEL** o) { return k.transforms->IncreaseBpp(s, o, 32, QEL_MODEL_ARGB); }},
        {"quad", [](C k, IQEL* s, IQEL** o) {
             return k.transforms->Quad(s, o, 40, 30, kWidth - 80, 10, 20, kHeight - 40, kWidth - 30, kHeight - 20,
                                       kWidth, kHeight, 0);
         }},
        {"erode3", [](C k, IQEL* s, IQEL** o) { return k.filters->Erode(s, 3, o); }},
        {"dilate3", [](C k, IQEL* s, IQEL** o) { return k.filters->Dilate(s, 3, o); }},
        {"edge3", [](C k, IQEL* s, IQEL** o) { return k.filters->Edge(s, 3, o); }},
        {"filter5", [](C k, IQEL* s, IQEL** o) { return k.filters->Filter(s, const_cast<int*>(kernel5), 5, 36, 0, o); }},
        {"contour", [](C k, IQEL* s, IQEL** o) { return k.filters->Contour(s, o); }},
        {"jitter", [](C k, IQEL* s, IQEL** o) { return k.filters->Jitter(s, 3, o); }},
        {"noise", [](C k, IQEL* s, IQEL** o) { return k.filters->Noise(s, 40, o); }},
        {"median3", [](C k, IQEL* s, IQEL** o) { return k.filters->Median(s, 3, o); }},
        {"median5", [](C k, IQEL* s, IQEL** o) { return k.filters->Median(s, 5, o); }},
        {"emboss", [](C k, IQEL* s, IQEL** o) { return k.filters->Emboss(s, o); }},
        {"blur3", [](C k, IQEL* s, IQEL** o) { return k.filters->Blur(s, o); }},
        {"soften", [](C k, IQEL* s, IQEL** o) { return k.filters->Soften(s, o); }},
        {"sharpen3", [](C k, IQEL* s, IQEL** o) { return k.filters->Sharpen(s, o); }},
        {"gauss3", [](C k, IQEL* s, IQEL** o) { return k.filters->GaussianBlur(s, 0, o); }},
        {"gauss5", [](C k, IQEL* s, IQEL** o) { return k.filters->GaussianBlur(s, 1, o); }},
        {"gauss_level2", [](C k, IQEL* s, IQEL** o) { return k.filters->GaussianBlur(s, 2, o); }},
        {"gauss_level3", [](C k, IQEL* s, IQEL** o) { return k.filters->GaussianBlur(s, 3, o); }},
    };
    // The twenty names above keep their meaning at 24 bits (median15_gray at 8).
    auto registered = [&table](const std::string& name) {
        for (const auto& entry : table)
            if (name == entry.name) return true;
        return false;
    };
    for (int bits : {8, 24, 32}) {
        const std::string suffix = "_" + std::to_string(bits);
        // Empty for a 24-bit row that one of the twenty already measures.
        auto named = [&](const char* name) {
            return bits == 24 && registered(name) ? std::string() : std::string(name) + suffix;
        };
        for (const auto& op : inPlace) {
            // The alpha operations work on 32-bit images only.
            if (bits != 32 && std::strncmp(op.name, "alpha", 5) == 0) continue;
            if (bits != 32 && std::strcmp(op.name, "transparent") == 0) continue;
            const std::string name = named(op.name);
            if (!name.empty()) RegisterBenchmark(name.c_str(), BM_in_place, bits, op.apply)->Unit(benchmark::kMillisecond);
        }
        for (const auto& op : producing) {
            const std::string name = named(op.name);
            if (name.empty()) continue;
            if ((std::strcmp(op.name, "depth_to24") == 0 && bits != 8) ||
                (std::strcmp(op.name, "depth_to32") == 0 && bits == 32))
                continue;
            RegisterBenchmark(name.c_str(), BM_producing, bits, op.make)->Unit(benchmark::kMillisecond);
        }
        RegisterBenchmark(("rotatepaste" + suffix).c_str(), BM_paste, bits, false)->Unit(benchmark::kMillisecond);
        RegisterBenchmark(("transformpaste" + suffix).c_str(), BM_paste, bits, true)->Unit(benchmark::kMillisecond);
        RegisterBenchmark(("transform" + suffix).c_str(), BM_transform, bits)->Unit(benchmark::kMillisecond);
        RegisterBenchmark(("createdest" + suffix).c_str(), BM_create_dest, bits)->Unit(benchmark::kMillisecond);
        const struct {
            const char* name;
            MathsOp op;
        } maths[] = {{"fill", MathsOp::kFill},         {"copy", MathsOp::kCopy},
                     {"addweighted", MathsOp::kAddWeighted}, {"scale", MathsOp::kScale},
                     {"subtract", MathsOp::kSubtract}, {"add", MathsOp::kAdd}};
        for (const auto& op : maths) {
            const std::string name = named(op.name);
            if (!name.empty()) RegisterBenchmark(name.c_str(), BM_maths, bits, op.op)->Unit(benchmark::kMillisecond);
        }
    }
    RegisterBenchmark("scale8_32mono", BM_scale8)->Unit(benchmark::kMillisecond);
    RegisterBenchmark("floor_atan2_sincos", BM_floor_trig, true)->Unit(benchmark::kMillisecond);
    RegisterBenchmark("floor_atan2", BM_floor_trig, false)->Unit(benchmark::kMillisecond);
    RegisterBenchmark("floor_rand3", BM_floor_rand, 3)->Unit(benchmark::kMillisecond);
    RegisterBenchmark("floor_rand2", BM_floor_rand, 2)->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
