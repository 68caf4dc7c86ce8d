// The closest single-threaded OpenCV equivalents of the module's benchmarks,
// under the same names, on the same pseudo-random 1920 x 1080 images. Built
// only by bench/compare, never by the project's build.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
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
    static cv::Mat table(1, 256, CV_8U);
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
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
