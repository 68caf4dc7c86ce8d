// Recorded output digests: the shared harness of the digest tests.
#include "support/digest.h"

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace qeltest {
namespace {

struct Shape {
    int width, height, padding;
    bool bottomUp;
};
// Tiny, odd, one-row and one-column shapes, shapes smaller than the largest
// windows, and 40-pixel sides; padded and bottom-up rows among them.
const Shape kShapes[] = {{1, 1, 0, false},   {2, 1, 3, true},    {1, 3, 0, false},   {3, 3, 1, false},
                         {5, 4, 0, true},    {7, 9, 2, false},   {13, 11, 0, false}, {17, 23, 5, true},
                         {40, 37, 0, false}, {31, 40, 3, false}, {40, 1, 0, false},  {1, 40, 2, true}};
uint64_t Mix(uint64_t hash, uint64_t value) {
    for (int n = 0; n < 8; ++n) {
        hash ^= (value >> (8 * n)) & 0xFF;
        hash *= 1099511628211ull;
    }
    return hash;
}

}  // namespace

const int kDigestDepths[6] = {1, 4, 8, 16, 24, 32};

unsigned DigestModelFor(int depth) {
    return depth == 32 ? QEL_MODEL_ARGB : depth >= 16 ? QEL_MODEL_BGR : QEL_MODEL_MONO;
}

// One digest over every shape at one depth: the result code, the result's
// pixel bytes, and the source's (which must not change).
uint64_t DigestOf(const DigestOperation& op, int depth) {
    uint64_t hash = 1469598103934665603ull;
    uint32_t seed = static_cast<uint32_t>(depth) * 1000u;
    for (const Shape& shape : kShapes) {
        SmartPtr<BufferImage> source(BufferImage::Make(shape.width, shape.height, depth,
                                                       DigestModelFor(depth), shape.padding, shape.bottomUp));
        source->FillRandom(++seed);
        SmartPtr<IQEL> result;
        hash = Mix(hash, static_cast<uint32_t>(op(source.Get(), result.Out())));
        hash = Mix(hash, result ? qeltest::PixelDigest(result.Get()) : 0);
        hash = Mix(hash, qeltest::PixelDigest(source.Get()));
    }
    return hash;
}

void CheckDigests(const std::vector<RecordedDigest>& table) {
    const bool record = std::getenv("QEL_DIGEST_RECORD") != nullptr;
    for (const RecordedDigest& entry : table) {
        std::string line = std::string("{\"") + entry.operation + "\", ..., {";
        for (size_t d = 0; d < 6; ++d) {
            const uint64_t digest = DigestOf(entry.run, kDigestDepths[d]);
            char text[32];
            std::snprintf(text, sizeof(text), "0x%016" PRIx64 "ull%s", digest, d < 5 ? ", " : "");
            line += text;
            if (!record) {
                EXPECT_EQ(digest, entry.digests[d])
                    << entry.operation << " at " << kDigestDepths[d] << " bits: got " << text;
            }
        }
        if (record) std::printf("%s}},\n", line.c_str());
    }
}

}  // namespace qeltest
