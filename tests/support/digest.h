// Recorded output digests: an operation run over a fixed set of random
// images (odd sizes from 1 to 40, padded and bottom-up strides) at every
// depth, hashed. Any change in any output byte changes a digest.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "support/test_image.h"

namespace qeltest {

using DigestOperation = std::function<QResult(IQEL* source, IQEL** result)>;

// The depths digests are recorded at, in the order of RecordedDigest::digests.
extern const int kDigestDepths[6];

struct RecordedDigest {
    const char* operation;
    DigestOperation run;
    uint64_t digests[6];
};

// ARGB at 32 bits, BGR at 16 and 24, MONO below (the digests depend on it).
unsigned DigestModelFor(int depth);

// Expects each operation's digest at every depth (over every shape: the result
// code, the result's pixel bytes and the source's) to equal the recorded one;
// with QEL_DIGEST_RECORD set in the environment, prints the table instead.
void CheckDigests(const std::vector<RecordedDigest>& table);

}  // namespace qeltest
