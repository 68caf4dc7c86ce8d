// The operations of the filter component ("QELFilterTransform"). Each filter
// delivers a new image through its result pointer.
#include <cmath>
#include <vector>

#include "tools/operation_kit.h"
#include "tools/operations.h"

namespace qeltool {
namespace {

using K = ParamKind;
using Filters = IQELFilterTransform;

// How the module treats borders and alpha, which shows on ordinary files.
const char* const kNeighbourhoodDepths =
    "any image; neighbours beyond the border take the top-left pixel's "
    "colour, and each result pixel takes the alpha of the bottom-right pixel of its neighbourhood";
const Param kNeighbourhood{"size", K::Int, "3", 1, 15, "side of the square neighbourhood in pixels"};

// Calls `filter(component, source, result)` and takes its new image.
template <class F>
QResult Filtered(Call& c, F filter) {
    SmartPtr<IQEL> made;
    return TakeResult(filter(c.As<Filters>(), c.image.Get(), made.Out()), c.image, made);
}

}  // namespace

OperationGroup FilterOperations() {
    return {"QELFilterTransform",
            {
                {"erode",
                 "Erode",
                 "Erode",
                 "darken: the minimum of each neighbourhood",
                 {kNeighbourhood},
                 kNeighbourhoodDepths,
                 "qel in.png erode 3 out.png",
                 "erode 3",
                 [](Call& c) {
                     return Filtered(c, [&](Filters* f, IQEL* in, IQEL** out) {
                         return f->Erode(in, c.args.Int("size"), out);
                     });
                 }},
                {"edge",
                 "Edge",
                 "Edge",
                 "edges: maximum minus minimum of each neighbourhood",
                 {kNeighbourhood},
                 kNeighbourhoodDepths,
                 "qel in.png edge 3 out.png",
                 "edge 3",
                 [](Call& c) {
                     return Filtered(c, [&](Filters* f, IQEL* in, IQEL** out) {
                         return f->Edge(in, c.args.Int("size"), out);
                     });
                 }},
                {"dilate",
                 "Dilate",
                 "Dilate",
                 "brighten: the maximum of each neighbourhood",
                 {kNeighbourhood},
                 kNeighbourhoodDepths,
                 "qel in.png dilate 3 out.png",
                 "dilate 3",
                 [](Call& c) {
                     return Filtered(c, [&](Filters* f, IQEL* in, IQEL** out) {
                         return f->Dilate(in, c.args.Int("size"), out);
                     });
                 }},
                {"filter",
                 "convolve Filter",
                 "Filter",
                 "convolve with a square kernel",
                 {{"kernel", K::IntList, nullptr, 0, 0,
                   "weights row by row, comma-separated: 9, 25, 49 ... of them"},
                  {"--divisor", K::Int, nullptr, -100000, 100000,
                   "divides the sums (default the weights' sum; 0 none)"},
                  {"--offset", K::Int, "0", -1000, 1000, "added after dividing"}},
                 kAnyImage,
                 "qel in.png filter 0,-1,0,-1,5,-1,0,-1,0 out.png",
                 "filter 0,-1,0,-1,5,-1,0,-1,0",
                 [](Call& c) {
                     std::vector<int> kernel = c.args.IntList("kernel");
                     const int size =
                         static_cast<int>(std::lround(std::sqrt(static_cast<double>(kernel.size()))));
                     int divisor = 0;
                     if (c.args.Has("--divisor")) {
                         divisor = c.args.Int("--divisor");
                     } else {
                         for (int w : kernel) divisor += w;  // normalise by the weights' sum when it is not 0
                     }
                     return Filtered(c, [&](Filters* f, IQEL* in, IQEL** out) {
                         return f->Filter(in, kernel.data(), size, divisor, c.args.Int("--offset"), out);
                     });
                 }},
                {"contour",
                 "Contour",
                 "Contour",
                 "the negative of the brightest neighbour brighter than each pixel: a light relief, not an "
                 "outline",
                 {},
                 kAnyImage,
                 "qel in.png contour out.png",
                 "contour",
                 [](Call& c) {
                     return Filtered(c, [](Filters* f, IQEL* in, IQEL** out) { return f->Contour(in, out); });
                 }},
                {"jitter",
                 "Jitter",
                 "Jitter",
                 "move every pixel by a random small amount",
                 {{"amount", K::Int, "3", 0, 1000, "largest move in pixels"}},
                 kAnyImage,
                 "qel in.png jitter 4 out.png",
                 "jitter 3",
                 [](Call& c) {
                     return Filtered(c, [&](Filters* f, IQEL* in, IQEL** out) {
                         return f->Jitter(in, c.args.Int("amount"), out);
                     });
                 }},
                {"noise",
                 "Noise",
                 "Noise",
                 "add random noise to every channel",
                 {{"amount", K::Int, "40", 0, 1000, "spread of the noise"}},
                 kAnyImage,
                 "qel in.png noise 40 out.png",
                 "noise 40",
                 [](Call& c) {
                     return Filtered(c, [&](Filters* f, IQEL* in, IQEL** out) {
                         return f->Noise(in, c.args.Int("amount"), out);
                     });
                 }},
                {"median",
                 "Median",
                 "Median",
                 "median of each neighbourhood: removes specks",
                 {kNeighbourhood},
                 kAnyImage,
                 "qel in.png median 5 out.png",
                 "median 5",
                 [](Call& c) {
                     return Filtered(c, [&](Filters* f, IQEL* in, IQEL** out) {
                         return f->Median(in, c.args.Int("size"), out);
                     });
                 }},
                {"emboss",
                 "Emboss",
                 "Emboss",
                 "relief effect",
                 {},
                 kAnyImage,
                 "qel in.png emboss out.png",
                 "emboss",
                 [](Call& c) {
                     return Filtered(c, [](Filters* f, IQEL* in, IQEL** out) { return f->Emboss(in, out); });
                 }},
                {"blur",
                 "Blur",
                 "Blur",
                 "3x3 box blur",
                 {},
                 kAnyImage,
                 "qel in.png blur out.png",
                 "blur",
                 [](Call& c) {
                     return Filtered(c, [](Filters* f, IQEL* in, IQEL** out) { return f->Blur(in, out); });
                 }},
                {"soften",
                 "Soften",
                 "Soften",
                 "gentle 3x3 blur",
                 {},
                 kAnyImage,
                 "qel in.png soften out.png",
                 "soften",
                 [](Call& c) {
                     return Filtered(c, [](Filters* f, IQEL* in, IQEL** out) { return f->Soften(in, out); });
                 }},
                {"sharpen",
                 "Sharpen",
                 "Sharpen",
                 "3x3 sharpening",
                 {},
                 kAnyImage,
                 "qel in.png sharpen out.png",
                 "sharpen",
                 [](Call& c) {
                     return Filtered(c, [](Filters* f, IQEL* in, IQEL** out) { return f->Sharpen(in, out); });
                 }},
                {"gaussian",
                 "gaussianblur GaussianBlur",
                 "GaussianBlur",
                 "Gaussian blur",
                 {{"level", K::Int, "1", 0, 3, "0 (3x3) to 3 (5x5, widest)"}},
                 kAnyImage,
                 "qel in.png gaussian 2 out.png",
                 "gaussian 2",
                 [](Call& c) {
                     return Filtered(c, [&](Filters* f, IQEL* in, IQEL** out) {
                         return f->GaussianBlur(in, c.args.Int("level"), out);
                     });
                 }},
            }};
}

}  // namespace qeltool
