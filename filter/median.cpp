// Median filter: each pixel becomes the neighbour colour of middle brightness rank.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "filter/filter_kernels.h"
#include "filter/filter_transform.h"

int CompareColors(const void* a, const void* b) {
    const auto* x = static_cast<const RGBQUAD*>(a);
    const auto* y = static_cast<const RGBQUAD*>(b);
    return ColorKey(PackColor(x->rgbBlue, x->rgbGreen, x->rgbRed, 0)) -
           ColorKey(PackColor(y->rgbBlue, y->rgbGreen, y->rgbRed, 0));
}

namespace {

// A histogram of the keys in a window that slides along a row, with the key
// of the wanted rank kept up to date as columns enter and leave (keys range
// over 0 to 255). Every outside neighbour has the same colour, so they are
// counted together under that colour's key instead of one by one.
class SlidingKeyRank {
public:
    explicit SlidingKeyRank(int64_t rank) : rank_(rank) {}

    void Clear() {
        std::memset(counts_, 0, sizeof(counts_));
        key_ = 0;
        below_ = 0;
    }
    void Add(int key, int64_t count) {
        counts_[key] += count;
        if (key < key_) below_ += count;
    }
    // The key at the rank; the window must hold more entries than the rank.
    int Settle() {
        while (below_ + counts_[key_] <= rank_) below_ += counts_[key_++];
        while (below_ > rank_) below_ -= counts_[--key_];
        return key_;
    }
    int64_t CountOf(int key) const { return counts_[key]; }

private:
    int64_t counts_[256];
    int64_t rank_;
    int key_ = 0;
    int64_t below_ = 0;  // entries with a key below key_
};

struct Position {
    int x = 0, y = 0;
};

template <class Kind>
void MedianRows(const ImageView& src, const ImageView& dst, int64_t size) {
    const int64_t half = size / 2, count = size * size;
    const uint32_t outside = OutsideColor(src);
    const int outsideKey = ColorKey(outside);
    SlidingKeyRank window(count / 2);
    // Where each key was last added. Columns enter in increasing order, so
    // while a key is counted inside the window its last addition is inside too:
    // a whole neighbour colour of the chosen key is always at hand.
    Position lastSeen[256];

    for (int y = 0; y < src.height; ++y) {
        const Span rows = ClipWindow(y - half, size, src.height);
        auto column = [&](int64_t x, int64_t sign) {
            if (x < 0 || x >= src.width) return;
            for (int64_t sy = rows.first; sy <= rows.last; ++sy) {
                const int key = ColorKey(Kind::Read(src, static_cast<int>(x), static_cast<int>(sy)));
                window.Add(key, sign);
                if (sign > 0) lastSeen[key] = Position{static_cast<int>(x), static_cast<int>(sy)};
            }
        };
        window.Clear();
        Span cols = ClipWindow(-half, size, src.width);
        for (int64_t sx = cols.first; sx <= cols.last; ++sx) column(sx, 1);
        int64_t outsideCount = count - cols.Count() * rows.Count();
        window.Add(outsideKey, outsideCount);

        for (int x = 0; x < src.width; ++x) {
            if (x > 0) {
                const int64_t left = x - half;
                column(left - 1, -1);
                column(left + size - 1, 1);
                cols = ClipWindow(left, size, src.width);
                const int64_t nowOutside = count - cols.Count() * rows.Count();
                window.Add(outsideKey, nowOutside - outsideCount);
                outsideCount = nowOutside;
            }
            const int key = window.Settle();
            const int64_t insideOfKey = window.CountOf(key) - (key == outsideKey ? outsideCount : 0);
            const uint32_t chosen =
                insideOfKey > 0 ? Kind::Read(src, lastSeen[key].x, lastSeen[key].y) : outside;
            Kind::Write(dst, x, y, chosen);
        }
    }
}

// Grey images: a pixel's key is its own value, and every neighbour of the
// middle key has that very value (the outside neighbour too, read as the grey
// of pixel (0, 0)), so the output is the middle key itself and no position
// needs remembering. Counts and the running rank walk read the bytes directly.
void MedianGreyRows(const ImageView& src, const ImageView& dst, int64_t size) {
    const int64_t half = size / 2, count = size * size, rank = count / 2;
    const int outsideKey = ColorKey(OutsideColor(src));
    int64_t counts[256];
    for (int y = 0; y < src.height; ++y) {
        const Span rows = ClipWindow(y - half, size, src.height);
        const unsigned char* top = src.Row(static_cast<int>(rows.first));
        const ptrdiff_t stride = src.stride;
        const int64_t rowCount = rows.Count();
        int key = 0;
        int64_t below = 0;  // entries with a key below `key`
        auto column = [&](int64_t x, int64_t sign) {
            if (x < 0 || x >= src.width) return;
            const unsigned char* p = top + x;
            for (int64_t r = 0; r < rowCount; ++r, p += stride) {
                const int k = *p;
                counts[k] += sign;
                below += k < key ? sign : 0;
            }
        };
        std::memset(counts, 0, sizeof(counts));
        Span cols = ClipWindow(-half, size, src.width);
        for (int64_t sx = cols.first; sx <= cols.last; ++sx) column(sx, 1);
        int64_t outsideCount = count - cols.Count() * rowCount;
        counts[outsideKey] += outsideCount;
        unsigned char* out = dst.Row(y);
        for (int x = 0; x < src.width; ++x) {
            if (x > 0) {
                const int64_t left = x - half, leaving = left - 1, entering = left + size - 1;
                if (leaving >= 0 && entering < src.width) {
                    // The common case, both columns inside: one pass over the rows.
                    const unsigned char* gone = top + leaving;
                    const unsigned char* come = top + entering;
                    for (int64_t r = 0; r < rowCount; ++r, gone += stride, come += stride) {
                        const int leavingKey = *gone, enteringKey = *come;
                        --counts[leavingKey];
                        ++counts[enteringKey];
                        below += (enteringKey < key ? 1 : 0) - (leavingKey < key ? 1 : 0);
                    }
                } else {
                    column(leaving, -1);
                    column(entering, 1);
                }
                cols = ClipWindow(left, size, src.width);
                const int64_t nowOutside = count - cols.Count() * rowCount;
                counts[outsideKey] += nowOutside - outsideCount;
                below += outsideKey < key ? nowOutside - outsideCount : 0;
                outsideCount = nowOutside;
            }
            while (below + counts[key] <= rank) below += counts[key++];
            while (below > rank) below -= counts[--key];
            out[x] = static_cast<unsigned char>(key);
        }
    }
}

// A median-of-nine exchange network: afterwards p[4] holds the value of rank 4.
// `order` puts the smaller of its two arguments first.
template <class T, class Order>
void MedianOfNine(T p[9], Order order) {
    order(p[1], p[2]), order(p[4], p[5]), order(p[7], p[8]);
    order(p[0], p[1]), order(p[3], p[4]), order(p[6], p[7]);
    order(p[1], p[2]), order(p[4], p[5]), order(p[7], p[8]);
    order(p[0], p[3]), order(p[5], p[8]), order(p[4], p[7]);
    order(p[3], p[6]), order(p[1], p[4]), order(p[2], p[5]);
    order(p[4], p[7]), order(p[4], p[2]), order(p[6], p[4]);
    order(p[4], p[2]);
}

struct OrderInts {
    void operator()(int& a, int& b) const {
        const int low = std::min(a, b);
        b = std::max(a, b);
        a = low;
    }
};

// One 3 x 3 output pixel by the rule the sliding window follows: the key of
// rank 4, and of the inside neighbours with that key the one added last (the
// rightmost column, then the lowest row); the outside colour when none is inside.
uint32_t Median3Pixel(const ImageView& src, uint32_t outside, int x, int y) {
    int keys[9];
    bool inside[9];
    for (int v = 0; v < 9; ++v) {
        const int sx = x - 1 + v / 3, sy = y - 1 + v % 3;
        inside[v] = sx >= 0 && sy >= 0 && sx < src.width && sy < src.height;
        keys[v] = ColorKey(inside[v] ? NeighbourColor(src, sx, sy) : outside);
    }
    int sorted[9];
    std::copy(keys, keys + 9, sorted);
    MedianOfNine(sorted, OrderInts{});
    for (int v = 8; v >= 0; --v)
        if (inside[v] && keys[v] == sorted[4]) return NeighbourColor(src, x - 1 + v / 3, y - 1 + v % 3);
    return outside;
}

#if defined(__SSE2__)
struct OrderBytes {
    void operator()(__m128i& a, __m128i& b) const {
        const __m128i low = _mm_min_epu8(a, b);
        b = _mm_max_epu8(a, b);
        a = low;
    }
};

// Window positions (visiting order: column, then row) of the chosen neighbour
// for 16 outputs at a time, from three rows of keys starting one column left
// of the first output. Returns how many outputs it took.
size_t Median3ChoicesVector(const unsigned char* const keyRows[3], size_t outputs, unsigned char* choices) {
    size_t n = 0;
    for (; n + 16 <= outputs; n += 16) {
        __m128i k[9];
        for (int v = 0; v < 9; ++v)
            k[v] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(keyRows[v % 3] + n + v / 3));
        __m128i p[9];
        std::copy(k, k + 9, p);
        MedianOfNine(p, OrderBytes{});
        __m128i choice = _mm_setzero_si128();
        for (int v = 0; v < 9; ++v) {
            const __m128i match = _mm_cmpeq_epi8(k[v], p[4]);
            choice = _mm_or_si128(_mm_and_si128(match, _mm_set1_epi8(static_cast<char>(v))),
                                  _mm_andnot_si128(match, choice));
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(choices + n), choice);
    }
    return n;
}
#endif

// 3 x 3 medians of 24- and 32-bit images: keys computed once per pixel into
// three rolling rows, the chosen position of every interior output found from
// them, then the whole colour (alpha too) copied. The border goes pixel by
// pixel through Median3Pixel. False when no scratch memory could be had.
template <int kBytes>
bool Median3Colour(const ImageView& src, const ImageView& dst, bool vectorise) {
    const int width = src.width, height = src.height;
    const size_t w = static_cast<size_t>(width);
    unsigned char* scratch = static_cast<unsigned char*>(std::malloc(4 * w + 16));
    if (scratch == nullptr) return false;
    const uint32_t outside = OutsideColor(src);
    for (int y = 0; y < height; ++y) {
        const bool borderRow = y == 0 || y == height - 1;
        for (int x = 0; x < width; ++x) {
            if (!borderRow && x == 1 && width > 2) x = width - 1;
            SetPixelColor(dst.bits, x, y, dst.width, dst.height, dst.stride, Median3Pixel(src, outside, x, y),
                          src.bitCount);
        }
    }
    unsigned char* keys[3] = {scratch, scratch + w, scratch + 2 * w};
    unsigned char* choices = scratch + 3 * w;
    auto computeKeys = [&](int y, unsigned char* to) {
        const unsigned char* p = src.Row(y);
        for (size_t x = 0; x < w; ++x, p += kBytes) to[x] = static_cast<unsigned char>((117 * p[0] + 601 * p[1] + 306 * p[2]) >> 10);
    };
    if (width >= 3 && height >= 3) {
        computeKeys(0, keys[0]);
        computeKeys(1, keys[1]);
    }
    const size_t outputs = w >= 2 ? w - 2 : 0;
    for (int y = 1; y + 1 < height && width >= 3; ++y) {
        computeKeys(y + 1, keys[2]);
        const unsigned char* const keyRows[3] = {keys[0], keys[1], keys[2]};
        size_t done = 0;
#if defined(__SSE2__)
        if (vectorise) done = Median3ChoicesVector(keyRows, outputs, choices);
#endif
        for (size_t n = done; n < outputs; ++n) {
            int k[9], sorted[9];
            for (int v = 0; v < 9; ++v) k[v] = sorted[v] = keyRows[v % 3][n + v / 3];
            MedianOfNine(sorted, OrderInts{});
            int v = 8;
            while (k[v] != sorted[4]) --v;
            choices[n] = static_cast<unsigned char>(v);
        }
        unsigned char* out = dst.Row(y) + kBytes;
        const unsigned char* rows[3] = {src.Row(y - 1), src.Row(y), src.Row(y + 1)};
        for (size_t n = 0; n < outputs; ++n, out += kBytes) {
            const int v = choices[n];
            std::memcpy(out, rows[v % 3] + (n + static_cast<size_t>(v / 3)) * kBytes, kBytes);
        }
        std::rotate(keys, keys + 1, keys + 3);
    }
    std::free(scratch);
    return true;
}

}  // namespace

void MedianView(const ImageView& src, const ImageView& dst, int size, FilterPath path) {
    // Without neighbours there is nothing to rank; the pixel itself is kept.
    const int64_t effectiveSize = size > 0 ? size : 1;
    if (path != FilterPath::General && src.bits != nullptr && src.bitCount == 8) {
        MedianGreyRows(src, dst, effectiveSize);
        return;
    }
    if (path != FilterPath::General && src.bits != nullptr && effectiveSize == 3) {
        const bool vectorise = path == FilterPath::Fast;
        if (src.bitCount == 24 && Median3Colour<3>(src, dst, vectorise)) return;
        if (src.bitCount == 32 && Median3Colour<4>(src, dst, vectorise)) return;
    }
    WithPixelKind(src, path, [&](auto kind) { MedianRows<decltype(kind)>(src, dst, effectiveSize); });
}

QResult CQELFilterTransform::Median(IQEL* image, int size, IQEL** result) {
    if (image == nullptr) return QEL_E_FAIL;
    FilterTarget target;
    if (MakeFilterTarget(image, DestinationRoad::ImageDIB, &target) != QEL_OK) return QEL_E_FAIL;
    if (target.Writable()) MedianView(target.source, target.destination, size, FilterPath::Fast);
    return HandOverResult(image, &target.image, result);
}
