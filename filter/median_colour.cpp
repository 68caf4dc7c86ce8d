// Median of any depth and window: a histogram of keys slides along each row,
// and the chosen colour is read back from where its key was last seen.
#include <cstring>

#include "filter/median_algorithms.h"

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
    const uint32_t outside = OutsideColour(src);
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

}  // namespace

void MedianSlidingRows(const ImageView& src, const ImageView& dst, int64_t size, FilterPath path) {
    WithPixelKind(src, path, [&](auto kind) { MedianRows<decltype(kind)>(src, dst, size); });
}
