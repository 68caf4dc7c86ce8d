// Median filter: each pixel becomes the neighbour colour of middle brightness rank.
#include <cstring>

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

}  // namespace

void MedianView(const ImageView& src, const ImageView& dst, int size, FilterPath path) {
    // Without neighbours there is nothing to rank; the pixel itself is kept.
    const int64_t effectiveSize = size > 0 ? size : 1;
    if (path != FilterPath::General && src.bits != nullptr && src.bitCount == 8) {
        MedianGreyRows(src, dst, effectiveSize);
        return;
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
