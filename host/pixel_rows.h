// Row work of the runtime's images: filling a row with one colour at any bit
// count, and whether a source's rows lie in a buffer.
#pragma once

#include <cstddef>

namespace qelhost {

// True when the rows of a source plane touch a buffer of `bufferBytes` bytes.
bool RowsOverlap(const unsigned char* rows, int stride, int height, size_t rowBytes,
                 const unsigned char* buffer, size_t bufferBytes);

// Writes the packed colour into one row of pixels by bit count.
void FillRow(unsigned char* row, int width, int bitCount, unsigned colour);

}  // namespace qelhost
