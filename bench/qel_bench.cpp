// Timings of the module's operations on 1920 x 1080 images, called through
// dlopen and the component interfaces as a host calls them. The benchmark
// names pair with those of the comparison program in bench/compare.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
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

// Runs an operation that hands back a new image, releasing it each time as a host would.
template <class Op>
void RunProducing(benchmark::State& state, Op&& op) {
    for (auto _ : state) {
        SmartPtr<IQEL> result;
        const QResult code = op(result.Out());
        if (code < 0) {
            state.SkipWithError("operation failed");
            break;
        }
        benchmark::DoNotOptimize(result.Get());
    }
}

void BM_filter(benchmark::State& state, int which) {
    SmartPtr<IQELImageDIB> image = RandomImage();
    SmartPtr<IQELFilterTransform> filters = Filters();
    IQELFilterTransform* f = Required(filters, state);
    if (f == nullptr) return;
    IQEL* src = image.Get();
    RunProducing(state, [&](IQEL** out) -> QResult {
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
    });
}

void BM_median(benchmark::State& state, int size, int bitCount) {
    SmartPtr<IQELImageDIB> image = RandomImage(bitCount, bitCount == 8 ? QEL_MODEL_MONO : QEL_MODEL_BGR);
    SmartPtr<IQELFilterTransform> filters = Filters();
    IQELFilterTransform* f = Required(filters, state);
    if (f == nullptr) return;
    RunProducing(state, [&](IQEL** out) { return f->Median(image.Get(), size, out); });
}

void BM_resample(benchmark::State& state, int width, int height, int method) {
    SmartPtr<IQELImageDIB> image = RandomImage();
    SmartPtr<IQELTransform> transforms = Transforms();
    IQELTransform* t = Required(transforms, state);
    if (t == nullptr) return;
    RunProducing(state, [&](IQEL** out) { return t->Resample(image.Get(), out, width, height, method, 0); });
}

void BM_rotate30_cubic(benchmark::State& state) {
    SmartPtr<IQELImageDIB> image = RandomImage();
    SmartPtr<IQELTransform> transforms = Transforms();
    IQELTransform* t = Required(transforms, state);
    if (t == nullptr) return;
    RunProducing(state, [&](IQEL** out) { return t->Rotate(image.Get(), out, 30, 3, 0, 1); });
}

void BM_flip(benchmark::State& state, bool vertical) {
    SmartPtr<IQELImageDIB> image = RandomImage();
    SmartPtr<IQELTransform> transforms = Transforms();
    IQELTransform* t = Required(transforms, state);
    if (t == nullptr) return;
    RunProducing(state, [&](IQEL** out) {
        return vertical ? t->Flip(image.Get(), out) : t->Mirror(image.Get(), out);
    });
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
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
