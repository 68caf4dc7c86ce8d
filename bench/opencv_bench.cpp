// The closest single-threaded OpenCV equivalents of the module's benchmarks,
// under the same names, on the same pseudo-random 1920 x 1080 images. Built
// only by bench/compare, never by the project's build.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

// The same generator and seeds as qel_bench, so both see the same bytes.
cv::Mat RandomImage(int type = CV_8UC3, uint64_t seed = 1) {
    cv::Mat image(kHeight, kWidth, type);
    uint64_t state = seed * 0x9E3779B97F4A7C15ull + 1;
    for (int y = 0; y < image.rows; ++y) {
        unsigned char* row = image.ptr<unsigned char>(y);
        for (size_t n = 0; n < image.cols * image.elemSize(); ++n) {
            state ^= state >> 12;
            state ^= state << 25;
            state ^= state >> 27;
            row[n] = static_cast<unsigned char>((state * 0x2545F4914F6CDD1Dull) >> 56);
        }
    }
    return image;
}

// Each call produces a fresh destination, as the module's operations do.
template <class Op>
void Run(benchmark::State& state, Op&& op) {
    for (auto _ : state) {
        cv::Mat dst;
        op(dst);
        benchmark::DoNotOptimize(dst.data);
    }
}

cv::Mat Kernel(const std::vector<float>& weights, int size, float divisor) {
    cv::Mat kernel(size, size, CV_32F);
    for (int n = 0; n < size * size; ++n) kernel.at<float>(n / size, n % size) = weights[n] / divisor;
    return kernel;
}

// The inverting table of the lut benchmarks.
cv::Mat table(1, 256, CV_8U);

// ---- the other operations, at 8, 24 and 32 bits ----------------------------

int TypeFor(int bits) { return bits == 8 ? CV_8UC1 : bits == 32 ? CV_8UC4 : CV_8UC3; }

const cv::Mat& Source(int bits, uint64_t seed = 1) {
    static std::map<std::pair<int, uint64_t>, cv::Mat> images;
    cv::Mat& image = images[{bits, seed}];
    if (image.empty()) image = RandomImage(TypeFor(bits), seed);
    return image;
}

// The module's fixed 3x3 and 5x5 kernels, as OpenCV's float kernels.
const cv::Mat& FixedKernel(const std::string& name) {
    static std::map<std::string, cv::Mat> kernels = {
        {"emboss", Kernel({0, 0, -1, 0, 0, 0, 1, 0, 0}, 3, 1)},
        {"soften", Kernel({1, 1, 1, 1, 8, 1, 1, 1, 1}, 3, 16)},
        {"gauss_level2", Kernel({1, 4, 7, 4, 1, 4, 16, 26, 16, 4, 2, 26, 41, 26, 7, 4, 16, 26, 16, 4, 1, 4, 7, 4, 1},
                                5, 273)},
        {"gauss_level3", Kernel({2, 4, 5, 4, 2, 4, 9, 12, 9, 4, 5, 12, 15, 12, 5, 4, 9, 12, 9, 4, 2, 4, 5, 4, 2},
                                5, 159)},
        {"filter5", Kernel({1, 1, 1, 1, 1, 1, 2, 2, 2, 1, 1, 2, 4, 2, 1, 1, 2, 2, 2, 1, 1, 1, 1, 1, 1}, 5, 36)},
        {"gauss5", Kernel({0, 1, 2, 1, 0, 1, 3, 4, 3, 1, 2, 4, 8, 4, 2, 1, 3, 4, 3, 1, 0, 1, 2, 1, 0}, 5, 52)},
        {"sharpen3", Kernel({-1, -1, -1, -1, 15, -1, -1, -1, -1}, 3, 7)},
    };
    return kernels.at(name);
}

cv::Mat Turn(double degrees, double scale = 1.0) {
    return cv::getRotationMatrix2D(cv::Point2f(kWidth / 2.0f, kHeight / 2.0f), degrees, scale);
}

using Peer = void (*)(int bits, cv::Mat& d);

constexpr int k8 = 1, k24 = 2, k32 = 4, kAllDepths = k8 | k24 | k32;
int DepthBit(int bits) { return bits == 8 ? k8 : bits == 24 ? k24 : k32; }

// The names whose 24-bit row is one of the twenty benchmarks above.
const char* const kTwenty[] = {"blur3", "gauss3", "gauss5", "sharpen3", "median3", "median5", "erode3",
                               "dilate3", "resize_half_area", "resize_double_cubic", "rotate30_cubic", "lut",
                               "gray", "flip_v", "flip_h", "add", "addweighted"};

void BM_peer(benchmark::State& state, int bits, Peer peer) {
    Source(bits);
    Source(bits, 2);
    Run(state, [&](cv::Mat& d) { peer(bits, d); });
}

// In-place peers work on a copy made once, as the module's in-place operations do.
void BM_in_place_peer(benchmark::State& state, int bits, Peer peer) {
    cv::Mat image = Source(bits).clone();
    for (auto _ : state) {
        peer(bits, image);
        benchmark::ClobberMemory();
    }
}

void RegisterPeers() {
    const struct {
        const char* name;
        Peer peer;
        bool inPlace;
        int depths = kAllDepths;
    } peers[] = {
        {"lut", [](int b, cv::Mat& d) { cv::LUT(Source(b), table, d); }, false},
        {"negative", [](int b, cv::Mat& d) { cv::bitwise_not(Source(b), d); }, false},
        {"gray", [](int b, cv::Mat& d) { cv::cvtColor(Source(b), d, cv::COLOR_BGRA2GRAY); }, false, k32},
        {"shiftrgb", [](int b, cv::Mat& d) { cv::add(Source(b), cv::Scalar(5, -10, 20, 0), d); }, false},
        {"gamma", [](int b, cv::Mat& d) {
             cv::Mat curve(1, 256, CV_8U);
             for (int i = 0; i < 256; ++i)
                 curve.at<unsigned char>(i) = cv::saturate_cast<unsigned char>(255.0 * std::pow(i / 255.0, 1 / 1.4));
             cv::LUT(Source(b), curve, d);
         }, false},
        {"light", [](int b, cv::Mat& d) { Source(b).convertTo(d, -1, 1.3, 20); }, false},
        {"threshold", [](int b, cv::Mat& d) { cv::threshold(Source(b), d, 128, 255, cv::THRESH_BINARY); }, false},
        {"flipbits", [](int, cv::Mat& d) { cv::flip(d, d, 0); }, true},
        {"flipimageandbits", [](int b, cv::Mat& d) {
             cv::flip(d, d, 0);
             cv::cvtColor(d, d, b == 32 ? cv::COLOR_BGRA2RGBA : cv::COLOR_BGR2RGB);
         }, true, k24 | k32},
        {"polar", [](int b, cv::Mat& d) {
             cv::warpPolar(Source(b), d, cv::Size(kWidth, kHeight), cv::Point2f(kWidth / 2.0f, kHeight / 2.0f),
                           1101, cv::INTER_NEAREST | cv::WARP_POLAR_LINEAR);
         }, false},
        {"flip_v", [](int b, cv::Mat& d) { cv::flip(Source(b), d, 0); }, false},
        {"flip_h", [](int b, cv::Mat& d) { cv::flip(Source(b), d, 1); }, false},
        {"rotate90", [](int b, cv::Mat& d) { cv::rotate(Source(b), d, cv::ROTATE_90_CLOCKWISE); }, false},
        {"rotate30_cubic", [](int b, cv::Mat& d) {
             cv::warpAffine(Source(b), d, Turn(30), Source(b).size(), cv::INTER_CUBIC);
         }, false},
        {"skew", [](int b, cv::Mat& d) {
             const cv::Mat shear = (cv::Mat_<double>(2, 3) << 1, 0.2, -0.2 * kHeight / 2, 0, 1, 0);
             cv::warpAffine(Source(b), d, shear, Source(b).size(), cv::INTER_NEAREST);
         }, false},
        {"resize_half_area", [](int b, cv::Mat& d) {
             cv::resize(Source(b), d, cv::Size(960, 540), 0, 0, cv::INTER_AREA);
         }, false},
        {"resize_up150_cubic", [](int b, cv::Mat& d) {
             cv::resize(Source(b), d, cv::Size(kWidth * 3 / 2, kHeight * 3 / 2), 0, 0, cv::INTER_CUBIC);
         }, false},
        {"resize_double_cubic", [](int b, cv::Mat& d) {
             cv::resize(Source(b), d, cv::Size(3840, 2160), 0, 0, cv::INTER_CUBIC);
         }, false},
        {"depth_to24", [](int b, cv::Mat& d) { cv::cvtColor(Source(b), d, cv::COLOR_GRAY2BGR); }, false, k8},
        {"depth_to32", [](int b, cv::Mat& d) {
             cv::cvtColor(Source(b), d, b == 8 ? cv::COLOR_GRAY2BGRA : cv::COLOR_BGR2BGRA);
         }, false, k8 | k24},
        {"quad", [](int b, cv::Mat& d) {
             const cv::Point2f from[4] = {{40, 30}, {kWidth - 80.0f, 10}, {kWidth - 30.0f, kHeight - 20.0f},
                                          {20, kHeight - 40.0f}};
             const cv::Point2f to[4] = {{0, 0}, {kWidth, 0}, {kWidth, kHeight}, {0, kHeight}};
             cv::warpPerspective(Source(b), d, cv::getPerspectiveTransform(to, from), Source(b).size(),
                                 cv::INTER_NEAREST | cv::WARP_INVERSE_MAP);
         }, false},
        {"erode3", [](int b, cv::Mat& d) { cv::erode(Source(b), d, cv::Mat()); }, false},
        {"dilate3", [](int b, cv::Mat& d) { cv::dilate(Source(b), d, cv::Mat()); }, false},
        {"edge3", [](int b, cv::Mat& d) {
             cv::morphologyEx(Source(b), d, cv::MORPH_GRADIENT, cv::Mat::ones(3, 3, CV_8U));
         }, false},
        {"filter5", [](int b, cv::Mat& d) { cv::filter2D(Source(b), d, -1, FixedKernel("filter5")); }, false},
        {"noise", [](int b, cv::Mat& d) {
             cv::Mat offsets(kHeight, kWidth, CV_16SC(Source(b).channels()));
             cv::randu(offsets, -20, 20);
             cv::add(Source(b), offsets, d, cv::noArray(), Source(b).type());
         }, false},
        {"median3", [](int b, cv::Mat& d) { cv::medianBlur(Source(b), d, 3); }, false},
        {"median5", [](int b, cv::Mat& d) { cv::medianBlur(Source(b), d, 5); }, false},
        {"emboss", [](int b, cv::Mat& d) {
             cv::filter2D(Source(b), d, -1, FixedKernel("emboss"), cv::Point(-1, -1), 127);
         }, false},
        {"blur3", [](int b, cv::Mat& d) { cv::blur(Source(b), d, cv::Size(3, 3)); }, false},
        {"soften", [](int b, cv::Mat& d) { cv::filter2D(Source(b), d, -1, FixedKernel("soften")); }, false},
        {"sharpen3", [](int b, cv::Mat& d) { cv::filter2D(Source(b), d, -1, FixedKernel("sharpen3")); }, false},
        {"gauss3", [](int b, cv::Mat& d) { cv::GaussianBlur(Source(b), d, cv::Size(3, 3), 0); }, false},
        {"gauss5", [](int b, cv::Mat& d) { cv::filter2D(Source(b), d, -1, FixedKernel("gauss5")); }, false},
        {"gauss_level2", [](int b, cv::Mat& d) {
             cv::filter2D(Source(b), d, -1, FixedKernel("gauss_level2"));
         }, false},
        {"gauss_level3", [](int b, cv::Mat& d) {
             cv::filter2D(Source(b), d, -1, FixedKernel("gauss_level3"));
         }, false},
        {"rotatepaste", [](int b, cv::Mat& d) {
             cv::warpAffine(Source(b), d, Turn(-30), d.size(), cv::INTER_CUBIC, cv::BORDER_TRANSPARENT);
         }, true},
        {"transformpaste", [](int b, cv::Mat& d) {
             cv::warpAffine(Source(b), d, Turn(-10), d.size(), cv::INTER_NEAREST, cv::BORDER_TRANSPARENT);
         }, true},
        {"transform", [](int b, cv::Mat& d) {
             cv::warpAffine(Source(b), d, Turn(-10), Source(b).size(), cv::INTER_NEAREST | cv::WARP_INVERSE_MAP);
         }, false},
        {"createdest", [](int b, cv::Mat& d) { d = cv::Mat::zeros(kHeight, kWidth, TypeFor(b)); }, false},
        {"fill", [](int, cv::Mat& d) { d.setTo(cv::Scalar(0x99, 0x66, 0x33, 0)); }, true},
        {"copy", [](int b, cv::Mat& d) { Source(b).copyTo(d); }, true},
        {"addweighted", [](int b, cv::Mat& d) { cv::addWeighted(Source(b), 0.5, Source(b, 2), 0.5, 0, d); }, false},
        {"scale", [](int b, cv::Mat& d) { Source(b).convertTo(d, -1, 0.75, 16); }, false},
        {"subtract", [](int b, cv::Mat& d) { cv::subtract(Source(b), Source(b, 2), d); }, false},
        {"add", [](int b, cv::Mat& d) { cv::add(Source(b), Source(b, 2), d); }, false},
    };
    auto registered = [](const std::string& name) {
        for (const char* old : kTwenty)
            if (name == old) return true;
        return false;
    };
    for (int bits : {8, 24, 32})
        for (const auto& p : peers) {
            if (!(p.depths & DepthBit(bits)) || (bits == 24 && registered(p.name))) continue;
            const std::string name = std::string(p.name) + "_" + std::to_string(bits);
            benchmark::RegisterBenchmark(name.c_str(), p.inPlace ? BM_in_place_peer : BM_peer, bits, p.peer)
                ->Unit(benchmark::kMillisecond);
        }
    benchmark::RegisterBenchmark("scale8_32mono", [](benchmark::State& s) {
        const cv::Mat values = RandomImage(CV_32SC1);
        Run(s, [&](cv::Mat& d) { values.convertTo(d, CV_8U, 1.0 / (1 << 24)); });
    })->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
    cv::setNumThreads(1);
    using benchmark::State;
    static const cv::Mat bgr = RandomImage();
    static const cv::Mat other = RandomImage(CV_8UC3, 2);
    static const cv::Mat grey = RandomImage(CV_8UC1);
    static const cv::Mat gauss5 =
        Kernel({0, 1, 2, 1, 0, 1, 3, 4, 3, 1, 2, 4, 8, 4, 2, 1, 3, 4, 3, 1, 0, 1, 2, 1, 0}, 5, 52);
    static const cv::Mat sharpen = Kernel({-1, -1, -1, -1, 15, -1, -1, -1, -1}, 3, 7);
    for (int i = 0; i < 256; ++i) table.at<unsigned char>(i) = static_cast<unsigned char>(255 - i);

    const struct {
        const char* name;
        void (*run)(State&);
    } entries[] = {
        {"blur3", [](State& s) { Run(s, [](cv::Mat& d) { cv::blur(bgr, d, cv::Size(3, 3)); }); }},
        {"gauss3", [](State& s) { Run(s, [](cv::Mat& d) { cv::GaussianBlur(bgr, d, cv::Size(3, 3), 0); }); }},
        {"gauss5", [](State& s) { Run(s, [](cv::Mat& d) { cv::filter2D(bgr, d, -1, gauss5); }); }},
        {"sharpen3", [](State& s) { Run(s, [](cv::Mat& d) { cv::filter2D(bgr, d, -1, sharpen); }); }},
        {"median3", [](State& s) { Run(s, [](cv::Mat& d) { cv::medianBlur(bgr, d, 3); }); }},
        {"median5", [](State& s) { Run(s, [](cv::Mat& d) { cv::medianBlur(bgr, d, 5); }); }},
        {"median15_gray", [](State& s) { Run(s, [](cv::Mat& d) { cv::medianBlur(grey, d, 15); }); }},
        {"erode3", [](State& s) { Run(s, [](cv::Mat& d) { cv::erode(bgr, d, cv::Mat()); }); }},
        {"dilate3", [](State& s) { Run(s, [](cv::Mat& d) { cv::dilate(bgr, d, cv::Mat()); }); }},
        {"resize_half_area",
         [](State& s) {
             Run(s, [](cv::Mat& d) { cv::resize(bgr, d, cv::Size(960, 540), 0, 0, cv::INTER_AREA); });
         }},
        {"resize_double_cubic",
         [](State& s) {
             Run(s, [](cv::Mat& d) { cv::resize(bgr, d, cv::Size(3840, 2160), 0, 0, cv::INTER_CUBIC); });
         }},
        {"resize_double_lanczos",
         [](State& s) {
             Run(s, [](cv::Mat& d) { cv::resize(bgr, d, cv::Size(3840, 2160), 0, 0, cv::INTER_LANCZOS4); });
         }},
        {"rotate30_cubic",
         [](State& s) {
             const cv::Mat turn =
                 cv::getRotationMatrix2D(cv::Point2f(kWidth / 2.0f, kHeight / 2.0f), 30, 1.0);
             Run(s, [&](cv::Mat& d) { cv::warpAffine(bgr, d, turn, bgr.size(), cv::INTER_CUBIC); });
         }},
        {"lut", [](State& s) { Run(s, [](cv::Mat& d) { cv::LUT(bgr, table, d); }); }},
        {"gray", [](State& s) { Run(s, [](cv::Mat& d) { cv::cvtColor(bgr, d, cv::COLOR_BGR2GRAY); }); }},
        {"flip_v", [](State& s) { Run(s, [](cv::Mat& d) { cv::flip(bgr, d, 0); }); }},
        {"flip_h", [](State& s) { Run(s, [](cv::Mat& d) { cv::flip(bgr, d, 1); }); }},
        {"add", [](State& s) { Run(s, [](cv::Mat& d) { cv::add(bgr, other, d); }); }},
        {"addweighted",
         [](State& s) { Run(s, [](cv::Mat& d) { cv::addWeighted(bgr, 0.5, other, 0.5, 0, d); }); }},
        {"memcpy_full",
         [](State& s) {
             std::vector<unsigned char> copy(bgr.total() * bgr.elemSize());
             for (auto _ : s) {
                 std::memcpy(copy.data(), bgr.data, copy.size());
                 benchmark::ClobberMemory();
             }
         }},
    };
    for (const auto& entry : entries)
        benchmark::RegisterBenchmark(entry.name, entry.run)->Unit(benchmark::kMillisecond);
    RegisterPeers();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
