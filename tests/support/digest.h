// Recorded output digests: an operation run over a fixed set of random
// images (odd sizes from 1 to 40, padded and bottom-up strides) at every
// depth, hashed. Any change in any output byte changes a digest.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "support/test_image.h"

namespace qeltest {

using DigestOperation = std::function<QResult(IQEL* source, IQEL** result)>;

// The depths digests are recorded at, in the order of RecordedDigests::digests.
extern const int kDigestDepths[6];

struct RecordedDigests {
    const char* operation;
    uint64_t digests[6];
};

// ARGB at 32 bits, BGR at 16 and 24, MONO below (the digests depend on it).
unsigned DigestModelFor(int depth);

// One digest over every shape at one depth: the result code, the result's
// pixel bytes, and the source's.
uint64_t DigestOf(const DigestOperation& operation, int depth);

// Expects each operation's digests to equal the recorded ones; with
// QEL_DIGEST_RECORD set in the environment, prints the table instead.
void CheckDigests(const std::vector<std::pair<const char*, DigestOperation>>& operations,
                  const std::vector<RecordedDigests>& recorded);

}  // namespace qeltest
