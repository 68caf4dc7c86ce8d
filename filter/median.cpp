// Median filter: each pixel becomes the neighbour colour of middle brightness
// rank. The interface method and the choice of algorithm; the algorithms live
// in median_vector.cpp, median_grey.cpp and median_colour.cpp.
#include "filter/filter_transform.h"
#include "filter/median_algorithms.h"

int CompareColors(const void* a, const void* b) {
    const auto* x = static_cast<const RGBQUAD*>(a);
    const auto* y = static_cast<const RGBQUAD*>(b);
    return ColorKey(PackColor(x->rgbBlue, x->rgbGreen, x->rgbRed, 0)) -
           ColorKey(PackColor(y->rgbBlue, y->rgbGreen, y->rgbRed, 0));
}


namespace {

// The algorithms in the order they are tried: the first that serves the call
// and succeeds writes the result. The last serves every call.
struct MedianAlgorithm {
    bool (*serves)(const ImageView& source, int64_t size, FilterPath path);
    bool (*run)(const ImageView& source, const ImageView& destination, int64_t size, FilterPath path);
};

bool Direct(const ImageView& source, FilterPath path) { return path != FilterPath::General && source.bits != nullptr; }
bool DirectGrey(const ImageView& source, FilterPath path) { return Direct(source, path) && source.bitCount == 8; }

constexpr MedianAlgorithm kMedianAlgorithms[] = {
    {[](const ImageView& s, int64_t size, FilterPath p) { return Direct(s, p) && (size == 3 || size == 5); },
     [](const ImageView& s, const ImageView& d, int64_t size, FilterPath p) { return MedianSmallWindow(s, d, size, p); }},
    {[](const ImageView& s, int64_t size, FilterPath p) { return DirectGrey(s, p) && size >= kGreyHistogramSize; },
     MedianGreyHistograms},
    {[](const ImageView& s, int64_t, FilterPath p) { return DirectGrey(s, p); },
     [](const ImageView& s, const ImageView& d, int64_t size, FilterPath) {
         MedianGreyRows(s, d, size);
         return true;
     }},
    {[](const ImageView&, int64_t, FilterPath) { return true; },
     [](const ImageView& s, const ImageView& d, int64_t size, FilterPath p) {
         MedianSlidingRows(s, d, size, p);
         return true;
     }},
};

}  // namespace

void MedianView(const ImageView& src, const ImageView& dst, int size, FilterPath path) {
    // Without neighbours there is nothing to rank; the pixel itself is kept.
    const int64_t effectiveSize = size > 0 ? size : 1;
    for (const MedianAlgorithm& algorithm : kMedianAlgorithms)
        if (algorithm.serves(src, effectiveSize, path) && algorithm.run(src, dst, effectiveSize, path)) return;
}

QResult CQELFilterTransform::Median(IQEL* image, int size, IQEL** result) {
    if (image == nullptr) return QEL_E_FAIL;
    FilterTarget target;
    if (MakeFilterTarget(image, DestinationRoad::ImageDIB, Writes::EveryPixel, &target) != QEL_OK)
        return QEL_E_FAIL;
    if (target.Writable()) MedianView(target.source, target.destination, size, FilterPath::Fast);
    return HandOverResult(image, &target.image, result);
}
