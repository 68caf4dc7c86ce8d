// Medians of 8-bit images, whose keys are the bytes themselves: a running
// histogram along each row for any window, column histograms for large ones.
#include <cstring>
#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "filter/median_algorithms.h"
#include "image/scratch.h"

// Grey images: a pixel's key is its own value, and every neighbour of the
// middle key has that very value (the outside neighbour too, read as the grey
// of pixel (0, 0)), so the output is the middle key itself and no position
// needs remembering. Counts and the running rank walk read the bytes directly.
void MedianGreyRows(const ImageView& src, const ImageView& dst, int64_t size) {
    const int64_t half = size / 2, count = size * size, rank = count / 2;
    const int outsideKey = ColorKey(OutsideColour(src));
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

namespace {

// Grey medians of larger windows by column histograms: every column keeps
// the counts of its `size` window rows (outside positions counted under the
// outside key, whole outside columns entirely so), updated by one leaving and
// one entering pixel per row. The window's histogram then slides one column a
// step by adding the entering column and taking away the leaving one. Counts
// are kept twice: 16 coarse bins (the top four bits of the key) slide every
// step, the 16 fine counts of a coarse bin only when the search lands in it,
// caught up from the step they were last valid at. The median key is found in
// the coarse bins first, then among the 16 keys of the chosen bin.
typedef uint16_t Bins16 __attribute__((vector_size(32)));

template <class T>
__attribute__((always_inline)) inline void LoadBins(T* to, const uint16_t* from) {
    __builtin_memcpy(to, from, sizeof(T));
}
template <class T>
__attribute__((always_inline)) inline void StoreBins(uint16_t* to, const T* from) {
    __builtin_memcpy(to, from, sizeof(T));
}

// Scratch for the column histograms of one image: `columns` columns padded by
// the window's reach on both sides.
struct ColumnHistograms {
    uint16_t* fine = nullptr;    // 256 counts per column
    uint16_t* coarse = nullptr;  // 16 counts per column
};

// Where the entry of rank `rank` lies among 16 counts: the index of its count,
// with the entries of the counts before it added to `below`. Branch-free, as
// the index changes unpredictably from one output to the next.
struct RankInCounts {
    __attribute__((always_inline)) int operator()(const uint16_t* counts, int rank, int* below) const {
        int index = 0, sum = 0, before = 0;
#pragma GCC unroll 16
        for (int i = 0; i < 16; ++i) {
            sum += counts[i];
            const bool passed = sum <= rank;
            index += passed;
            before = passed ? sum : before;
        }
        *below += before;
        return index;
    }
};

#if defined(__x86_64__)
// The same with the running sums of 16 lanes: within each half by shifts, then
// the low half's total added to the high half. Sums stay below 32768.
struct RankInCountsAvx2 {
    __attribute__((target("avx2"))) int operator()(const uint16_t* counts, int rank, int* below) const {
        __m256i sums = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(counts));
        sums = _mm256_add_epi16(sums, _mm256_slli_si256(sums, 2));
        sums = _mm256_add_epi16(sums, _mm256_slli_si256(sums, 4));
        sums = _mm256_add_epi16(sums, _mm256_slli_si256(sums, 8));
        __m256i lowTotal = _mm256_permute2x128_si256(sums, sums, 0x08);
        lowTotal = _mm256_shufflehi_epi16(lowTotal, 0xFF);
        lowTotal = _mm256_unpackhi_epi64(lowTotal, lowTotal);
        sums = _mm256_add_epi16(sums, lowTotal);
        const unsigned over = static_cast<unsigned>(
            _mm256_movemask_epi8(_mm256_cmpgt_epi16(sums, _mm256_set1_epi16(static_cast<short>(rank)))));
        const int index = 16 - __builtin_popcount(over) / 2;
        alignas(32) uint16_t sumsBefore[17];
        sumsBefore[0] = 0;
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(sumsBefore + 1), sums);
        *below += sumsBefore[index];
        return index;
    }
};
#endif

template <class Rank>
__attribute__((always_inline)) inline void MedianGreyHistogramRows(const ImageView& src, const ImageView& dst,
                                                                   int size, const ColumnHistograms& h) {
    const Rank rankIn;
    const int half = size / 2, width = src.width, height = src.height;
    const int rank = size * size / 2;
    const int columns = width + size - 1;  // padded column c holds image column c - half
    const int outsideKey = ColorKey(OutsideColour(src));
    uint16_t* const fine = h.fine;
    uint16_t* const coarse = h.coarse;

    // Columns for output row 0: rows -half .. size - 1 - half.
    std::memset(fine, 0, static_cast<size_t>(columns) * 256 * sizeof(uint16_t));
    std::memset(coarse, 0, static_cast<size_t>(columns) * 16 * sizeof(uint16_t));
    const Span firstRows = ClipWindow(-half, size, height);
    const int outsideRows = size - static_cast<int>(firstRows.Count());
    for (int c = 0; c < columns; ++c) {
        const bool insideColumn = c >= half && c < half + width;
        const int outsideCount = insideColumn ? outsideRows : size;
        fine[c * 256 + outsideKey] = static_cast<uint16_t>(outsideCount);
        coarse[c * 16 + (outsideKey >> 4)] = static_cast<uint16_t>(outsideCount);
    }
    for (int64_t sy = firstRows.first; sy <= firstRows.last; ++sy) {
        const unsigned char* row = src.Row(static_cast<int>(sy));
        for (int x = 0; x < width; ++x) {
            const int c = x + half, k = row[x];
            ++fine[c * 256 + k];
            ++coarse[c * 16 + (k >> 4)];
        }
    }

    uint16_t fineWindow[16 * 16];
    int validAt[16];  // the step each coarse bin's fine counts were last made for
    for (int y = 0; y < height; ++y) {
        if (y > 0) {
            // The row leaving the columns and the row entering them, either
            // possibly outside (then counted under the outside key).
            const int leaving = y - half - 1, entering = y - half + size - 1;
            const bool leavingInside = leaving >= 0 && leaving < height;
            const bool enteringInside = entering >= 0 && entering < height;
            if (leavingInside || enteringInside) {
                const unsigned char* gone = leavingInside ? src.Row(leaving) : nullptr;
                const unsigned char* come = enteringInside ? src.Row(entering) : nullptr;
                for (int x = 0; x < width; ++x) {
                    const int c = x + half;
                    const int leavingKey = gone != nullptr ? gone[x] : outsideKey;
                    const int enteringKey = come != nullptr ? come[x] : outsideKey;
                    --fine[c * 256 + leavingKey];
                    --coarse[c * 16 + (leavingKey >> 4)];
                    ++fine[c * 256 + enteringKey];
                    ++coarse[c * 16 + (enteringKey >> 4)];
                }
            }
        }

        Bins16 coarseWindow = Bins16{};
        for (int c = 0; c < size; ++c) {
            Bins16 column;
            LoadBins(&column, coarse + c * 16);
            coarseWindow += column;
        }
        for (int b = 0; b < 16; ++b) validAt[b] = -1;
        unsigned char* out = dst.Row(y);
        for (int x = 0; x < width; ++x) {
            // The window of output x spans padded columns x .. x + size - 1.
            if (x > 0) {
                Bins16 entering, leaving;
                LoadBins(&entering, coarse + (x + size - 1) * 16);
                LoadBins(&leaving, coarse + (x - 1) * 16);
                coarseWindow += entering - leaving;
            }
            int below = 0;
            alignas(32) uint16_t coarseCounts[16];
            StoreBins(coarseCounts, &coarseWindow);
            const int bin = rankIn(coarseCounts, rank, &below);

            uint16_t* const bins = fineWindow + bin * 16;
            Bins16 fineCounts;
            const int since = validAt[bin];
            // Catching up costs two columns a step, starting afresh `size`.
            if (since < 0 || 2 * (x - since) >= size) {
                fineCounts = Bins16{};
                for (int c = x; c < x + size; ++c) {
                    Bins16 column;
                    LoadBins(&column, fine + c * 256 + bin * 16);
                    fineCounts += column;
                }
            } else {
                LoadBins(&fineCounts, bins);
                for (int step = since + 1; step <= x; ++step) {
                    Bins16 entering, leaving;
                    LoadBins(&entering, fine + (step + size - 1) * 256 + bin * 16);
                    LoadBins(&leaving, fine + (step - 1) * 256 + bin * 16);
                    fineCounts += entering - leaving;
                }
            }
            StoreBins(bins, &fineCounts);
            validAt[bin] = x;
            const int key = rankIn(bins, rank - below, &below);
            out[x] = static_cast<unsigned char>(bin * 16 + key);
        }
    }
}

#if defined(__x86_64__)
__attribute__((target("avx2"), flatten)) void MedianGreyHistogramRowsAvx2(const ImageView& src,
                                                                          const ImageView& dst, int size,
                                                                          const ColumnHistograms& h) {
    MedianGreyHistogramRows<RankInCountsAvx2>(src, dst, size, h);
}
#endif
void MedianGreyHistogramRowsBase(const ImageView& src, const ImageView& dst, int size,
                                 const ColumnHistograms& h) {
    MedianGreyHistogramRows<RankInCounts>(src, dst, size, h);
}

}  // namespace

bool MedianGreyHistograms(const ImageView& src, const ImageView& dst, int64_t size, FilterPath path) {
    if (size > 181) return false;
    const size_t columns = static_cast<size_t>(src.width) + static_cast<size_t>(size) - 1;
    ScratchBuffer<uint16_t> counts(columns * (256 + 16));
    if (!counts) return false;
    const ColumnHistograms h{counts.Data(), counts.Data() + columns * 256};
#if defined(__x86_64__)
    if (StepsOf(path).wide)
        MedianGreyHistogramRowsAvx2(src, dst, static_cast<int>(size), h);
    else
#endif
        MedianGreyHistogramRowsBase(src, dst, static_cast<int>(size), h);
    return true;
}
