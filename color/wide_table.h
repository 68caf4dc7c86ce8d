// A 256-entry byte table held in four AVX-512 registers, looked up 64 bytes
// at a time: two-table VBMI permutes look up the low seven bits in each half
// of the table, and bit 7 of the index picks the half.
#pragma once

#include <immintrin.h>

namespace color {

struct WideTable {
    __m512i quarters[4];
};

__attribute__((target("avx512f,avx512bw,avx512vbmi"))) inline WideTable LoadWideTable(
    const unsigned char table[256]) {
    WideTable wide;
    for (int q = 0; q < 4; ++q) wide.quarters[q] = _mm512_loadu_si512(table + 64 * q);
    return wide;
}

__attribute__((target("avx512f,avx512bw,avx512vbmi"))) inline __m512i LookUp(const WideTable& table,
                                                                             __m512i index) {
    const __m512i low = _mm512_permutex2var_epi8(table.quarters[0], index, table.quarters[1]);
    const __m512i high = _mm512_permutex2var_epi8(table.quarters[2], index, table.quarters[3]);
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(index), low, high);
}

}  // namespace color
