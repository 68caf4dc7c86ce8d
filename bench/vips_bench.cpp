// The closest libvips operations to the module's benchmarks, under the same
// names, run on one thread (VIPS_CONCURRENCY=1, and set here too) with the
// operation cache off, each evaluated into a fresh memory image. Built only by
// bench/compare, never by the project's build.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>
#include <vips/vips8>

using vips::VImage;

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

// The same generator and seeds as qel_bench, so both see the same bytes.
const VImage& Source(int bits, uint64_t seed = 1) {
    static std::map<std::pair<int, uint64_t>, std::vector<unsigned char>> bytes;
    static std::map<std::pair<int, uint64_t>, VImage> images;
    const auto key = std::make_pair(bits, seed);
    auto found = images.find(key);
    if (found != images.end()) return found->second;
    const int bands = bits / 8;
    std::vector<unsigned char>& data = bytes[key];
    data.resize(static_cast<size_t>(kWidth) * kHeight * bands);
    uint64_t state = seed * 0x9E3779B97F4A7C15ull + 1;
    for (unsigned char& byte : data) {
        state ^= state >> 12;
        state ^= state << 25;
        state ^= state >> 27;
        byte = static_cast<unsigned char>((state * 0x2545F4914F6CDD1Dull) >> 56);
    }
    VImage image = VImage::new_from_memory(data.data(), data.size(), kWidth, kHeight, bands, VIPS_FORMAT_UCHAR);
    image = image.copy(VImage::option()->set("interpretation", bands == 1 ? VIPS_INTERPRETATION_B_W
                                                                          : VIPS_INTERPRETATION_sRGB));
    return images.emplace(key, image).first->second;
}

VImage Mask(const std::vector<double>& weights, int size, double scale, double offset = 0) {
    VImage mask = VImage::new_matrix(size, size, const_cast<double*>(weights.data()), size * size);
    mask.set("scale", scale);
    mask.set("offset", offset);
    return mask;
}

VImage Convolve(const VImage& in, const VImage& mask) {
    return in.conv(mask, VImage::option()->set("precision", VIPS_PRECISION_INTEGER));
}

VImage Uchar(const VImage& in) { return in.cast(VIPS_FORMAT_UCHAR); }

using Peer = VImage (*)(int bits);

// Each call builds the pipeline and evaluates it into new memory.
void BM_peer(benchmark::State& state, int bits, Peer peer) {
    Source(bits);
    Source(bits, 2);
    for (auto _ : state) {
        size_t size = 0;
        void* pixels = peer(bits).write_to_memory(&size);
        benchmark::DoNotOptimize(pixels);
        g_free(pixels);
    }
}

constexpr int k8 = 1, k24 = 2, k32 = 4, kAllDepths = k8 | k24 | k32;
int DepthBit(int bits) { return bits == 8 ? k8 : bits == 24 ? k24 : k32; }

// The names whose 24-bit row keeps its old name (as in qel_bench).
const char* const kTwenty[] = {"blur3", "gauss3", "gauss5", "sharpen3", "median3", "median5", "erode3",
                               "dilate3", "resize_half_area", "resize_double_cubic", "resize_double_lanczos",
                               "rotate30_cubic", "lut", "gray", "flip_v", "flip_h", "add", "addweighted"};

}  // namespace

int main(int argc, char** argv) {
    if (VIPS_INIT(argv[0])) return 2;
    vips_concurrency_set(1);
    vips_cache_set_max(0);
    const struct {
        const char* name;
        Peer peer;
        int depths = kAllDepths;
    } peers[] = {
        {"lut", [](int b) {
             std::vector<double> inverse(256);
             for (int i = 0; i < 256; ++i) inverse[i] = 255 - i;
             return Source(b).maplut(Uchar(VImage::new_matrix(256, 1, inverse.data(), 256)));
         }},
        {"negative", [](int b) { return Source(b).invert(); }},
        {"gray", [](int b) { return Source(b).colourspace(VIPS_INTERPRETATION_B_W); }, k24 | k32},
        {"gamma", [](int b) { return Source(b).gamma(VImage::option()->set("exponent", 1.4)); }},
        {"light", [](int b) { return Source(b).linear(1.3, 20, VImage::option()->set("uchar", true)); }},
        {"threshold", [](int b) { return Source(b) >= 128; }},
        {"flip_v", [](int b) { return Source(b).flip(VIPS_DIRECTION_VERTICAL); }},
        {"flip_h", [](int b) { return Source(b).flip(VIPS_DIRECTION_HORIZONTAL); }},
        {"rotate90", [](int b) { return Source(b).rot(VIPS_ANGLE_D90); }},
        {"rotate30_cubic", [](int b) {
             return Source(b).similarity(VImage::option()->set("angle", 30.0)->set(
                 "interpolate", vips::VInterpolate::new_from_name("bicubic")));
         }},
        {"transform", [](int b) {
             return Source(b).affine({0.98480775, -0.17364818, 0.17364818, 0.98480775},
                                     VImage::option()->set("interpolate",
                                                           vips::VInterpolate::new_from_name("nearest")));
         }},
        {"resize_half_area", [](int b) { return Source(b).shrink(2, 2); }},
        {"resize_up150_cubic", [](int b) {
             return Source(b).resize(1.5, VImage::option()->set("kernel", VIPS_KERNEL_CUBIC));
         }},
        {"resize_double_cubic", [](int b) {
             return Source(b).resize(2, VImage::option()->set("kernel", VIPS_KERNEL_CUBIC));
         }},
        {"resize_double_lanczos", [](int b) {
             return Source(b).resize(2, VImage::option()->set("kernel", VIPS_KERNEL_LANCZOS3));
         }, k24},
        {"depth_to24", [](int b) { return Source(b).bandjoin({Source(b), Source(b)}); }, k8},
        {"depth_to32", [](int b) {
             const VImage colour = b == 8 ? Source(b).bandjoin({Source(b), Source(b)}) : Source(b);
             return colour.bandjoin_const({255});
         }, k8 | k24},
        {"erode3", [](int b) { return Source(b).rank(3, 3, 0); }},
        {"dilate3", [](int b) { return Source(b).rank(3, 3, 8); }},
        {"median3", [](int b) { return Source(b).rank(3, 3, 4); }},
        {"median5", [](int b) { return Source(b).rank(5, 5, 12); }},
        {"blur3", [](int b) { return Convolve(Source(b), Mask({1, 1, 1, 1, 1, 1, 1, 1, 1}, 3, 9)); }},
        {"soften", [](int b) { return Convolve(Source(b), Mask({1, 1, 1, 1, 8, 1, 1, 1, 1}, 3, 16)); }},
        {"sharpen3", [](int b) {
             return Convolve(Source(b), Mask({-1, -1, -1, -1, 15, -1, -1, -1, -1}, 3, 7));
         }},
        {"emboss", [](int b) { return Convolve(Source(b), Mask({0, 0, -1, 0, 0, 0, 1, 0, 0}, 3, 1, 127)); }},
        {"gauss3", [](int b) { return Convolve(Source(b), Mask({1, 2, 1, 2, 4, 2, 1, 2, 1}, 3, 16)); }},
        {"gauss5", [](int b) {
             return Convolve(Source(b), Mask({0, 1, 2, 1, 0, 1, 3, 4, 3, 1, 2, 4, 8, 4, 2, 1, 3, 4, 3, 1, 0, 1, 2, 1, 0},
                                             5, 52));
         }},
        {"gauss_level2", [](int b) {
             return Convolve(Source(b), Mask({1, 4, 7, 4, 1, 4, 16, 26, 16, 4, 2, 26, 41, 26, 7, 4, 16, 26, 16, 4,
                                              1, 4, 7, 4, 1},
                                             5, 273));
         }},
        {"gauss_level3", [](int b) {
             return Convolve(Source(b), Mask({2, 4, 5, 4, 2, 4, 9, 12, 9, 4, 5, 12, 15, 12, 5, 4, 9, 12, 9, 4, 2, 4,
                                              5, 4, 2},
                                             5, 159));
         }},
        {"filter5", [](int b) {
             return Convolve(Source(b), Mask({1, 1, 1, 1, 1, 1, 2, 2, 2, 1, 1, 2, 4, 2, 1, 1, 2, 2, 2, 1, 1, 1, 1, 1, 1},
                                             5, 36));
         }},
        {"noise", [](int b) {
             return Uchar(Source(b) + VImage::gaussnoise(kWidth, kHeight, VImage::option()->set("sigma", 12.0)));
         }},
        {"createdest", [](int b) { return Uchar(VImage::black(kWidth, kHeight, VImage::option()->set("bands", b / 8))); }},
        {"copy", [](int b) { return Source(b).copy(); }},
        {"add", [](int b) { return Uchar(Source(b) + Source(b, 2)); }},
        {"subtract", [](int b) { return Uchar(Source(b) - Source(b, 2)); }},
        {"addweighted", [](int b) { return Uchar(Source(b) * 0.5 + Source(b, 2) * 0.5); }},
        {"scale", [](int b) { return Source(b).linear(0.75, 16, VImage::option()->set("uchar", true)); }},
    };
    auto registered = [](const std::string& name) {
        for (const char* old : kTwenty)
            if (name == old) return true;
        return false;
    };
    for (int bits : {8, 24, 32})
        for (const auto& p : peers) {
            if (!(p.depths & DepthBit(bits))) continue;
            const std::string name =
                bits == 24 && registered(p.name) ? std::string(p.name) : std::string(p.name) + "_" + std::to_string(bits);
            // The work runs on libvips's worker thread: count the whole process.
            benchmark::RegisterBenchmark(name.c_str(), BM_peer, bits, p.peer)
                ->Unit(benchmark::kMillisecond)
                ->MeasureProcessCPUTime();
        }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    vips_shutdown();
    return 0;
}
