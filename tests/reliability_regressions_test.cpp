// Regressions found by the randomized stress driver and the fuzzers, one
// test per defect, each named after it.
#include <gtest/gtest.h>

// gcc says __SANITIZE_ADDRESS__, clang __has_feature(address_sanitizer).
#if defined(__SANITIZE_ADDRESS__)
#define QEL_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QEL_ADDRESS_SANITIZER 1
#endif
#endif
#if defined(QEL_ADDRESS_SANITIZER)
// The sanitizer runtime's allocator interface (gcc ships no header for it).
extern "C" size_t __sanitizer_get_current_allocated_bytes();
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*, size_t),
                                                         void (*free_hook)(const volatile void*));
#else
#include <malloc.h>
#endif

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "support/component_test.h"
#include "tools/codecs.h"

namespace {

using namespace qeltest;

// A NaN or infinite angle gave the turned rectangle a size of INT_MIN (a float
// to int conversion of NaN), and its centring overflowed.
TEST(Regression, RotatePasteByNonFiniteAngleDrawsNothing) {
    SmartPtr<BufferImage> source = Random(6, 5, 24, 1, 2);
    for (const double angle :
         {std::nan(""), std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()}) {
        SmartPtr<BufferImage> target = Random(7, 4, 32, 2, 2);
        const std::vector<unsigned char> before = target->Snapshot();
        EXPECT_EQ(Transform()->RotatePaste(source.Get(), target.Get(), angle, 3, 0), QEL_OK) << angle;
        EXPECT_EQ(target->Snapshot(), before) << angle;
    }
}

// Bytes in use on the heap (the sanitizer's allocator keeps its own count).
size_t HeapBytesInUse() {
#if defined(QEL_ADDRESS_SANITIZER)
    return __sanitizer_get_current_allocated_bytes();
#else
    return mallinfo2().uordblks;
#endif
}

// The largest single allocation made while `gWatching` is set (sanitized
// builds only: the sanitizer's allocator reports every allocation).
#if defined(QEL_ADDRESS_SANITIZER)
bool gWatching = false;
size_t gLargestAllocation = 0;
void NoteAllocation(const volatile void*, size_t size) {
    if (gWatching && size > gLargestAllocation) gLargestAllocation = size;
}
void NoteFree(const volatile void*) {}
#endif

using Reader = SmartPtr<IQEL> (*)(FILE*, const qel::Host&, long long, qeltool::ImageMetadata*, std::string*);

// Reads `bytes` through a memory file; the error, or "" with the image in `image` when given.
std::string ReadBytes(const std::string& bytes, Reader reader = qeltool::ReadNetpbm,
                      SmartPtr<IQEL>* image = nullptr) {
    std::string copy = bytes, error;
    qeltool::ImageMetadata metadata;
    FILE* file = fmemopen(&copy[0], copy.size(), "rb");
    SmartPtr<IQEL> read = reader(file, TestHost(), 1 << 20, &metadata, &error);
    std::fclose(file);
    if (!read) return error;
    if (image != nullptr) *image = std::move(read);
    return "";
}

// PAM headers as the reader reads them: comments and blank lines anywhere,
// TUPLTYPE lines joined, each mistake named ("" for a file read whole; a
// message of the corrupt prefix alone checks only that prefix).
const std::string kCorrupt = "corrupt netpbm file: ",
                  kUnsupported = "unsupported netpbm dimensions, depth or maximum value";
const std::pair<std::string, std::string> kPamCases[] = {
    {"P7\n# a\n\n  WIDTH 3 \nHEIGHT 1\n#b\nDEPTH 1\nMAXVAL 1\nTUPLTYPE BLACKANDWHITE\nENDHDR\n" +
         std::string("\1\0\1", 3),
     ""},
    {"P7\nWIDTH 2\nHEIGHT x\nDEPTH 1\nMAXVAL 255\nENDHDR\n",
     kCorrupt + "non-numeric value for HEIGHT in the PAM header: 'x'"},
    {"P7\nWIDTH -2\n", kCorrupt + "non-numeric value for WIDTH in the PAM header: '-2'"},
    {"P7\nWIDTH\n", kCorrupt + "non-numeric value for WIDTH in the PAM header: ''"},
    {"P7\nWIDTH 2\nBOGUS 1\nENDHDR\n", kCorrupt + "unrecognised PAM header line 'BOGUS 1'"},
    {"P7 WIDTH 2\n", kCorrupt + "unexpected text after the PAM magic number"},
    {"P7\nWIDTH 2\nHEIGHT 2\nMAXVAL 255\nENDHDR\n", kCorrupt + "the PAM header has no DEPTH"},
    {"P7\nWIDTH 2\nHEIGHT 2\nDEPTH 5\nMAXVAL 255\nENDHDR\n", kUnsupported},
    {"P7\nWIDTH 2\nHEIGHT 0\nDEPTH 1\nMAXVAL 255\nENDHDR\n", kUnsupported},
    {"P7\nWIDTH 2147483648\nHEIGHT 1\nDEPTH 1\nMAXVAL 255\nENDHDR\n", kUnsupported},
    {"P7\nWIDTH 2\nHEIGHT 2\nDEPTH 1\nMAXVAL 65536\nENDHDR\n", kUnsupported},
    {"P7\nWIDTH 2048\nHEIGHT 1024\nDEPTH 1\nMAXVAL 255\nENDHDR\n",
     "image 2048x1024 is above the pixel limit 1048576 (--max-pixels)"},
    {"P7\nWIDTH 2\nHEIGHT 2\n", "truncated file"},
    {"P7\nWIDTH 2\nHEIGHT 2\nDEPTH 1\nMAXVAL 255\nENDHDR\nabc", "truncated file"},
    {"P7\n" + std::string(5000, ' ') + "\n", kCorrupt + "a PAM header line is longer than 4096 characters"},
    // Other netpbm kinds still go through the library's own header reading.
    {"P5\n2 1\n255\nab", ""},
    {"P6\n2 x\n", kCorrupt}};

// libnetpbm lost the comments it had gathered (one allocation, as long as the
// comments) whenever it gave up on a bad PAM header line, so a host reading
// many bad files grew without bound.
TEST(Regression, BadPamHeaderLosesNoMemory) {
    // Every bad PAM header of the table above, with the comments after its magic number.
    std::vector<std::string> headers;
    for (const auto& c : kPamCases)
        if (c.second != "" && c.first.rfind("P7\n", 0) == 0)
            headers.push_back("P7\n# " + std::string(3000, 'c') + "\n# more\n" + c.first.substr(3));
    for (const std::string& header : headers) EXPECT_NE(ReadBytes(header), "") << header;
    const size_t before = HeapBytesInUse();
    for (int round = 0; round < 100; ++round)
        for (const std::string& header : headers) ReadBytes(header);
    // Lost comments would be over a megabyte by now.
    EXPECT_LT(HeapBytesInUse(), before + 16384);
}

// A 6x2 palette PNG followed by a chunk whose length field reads "tRNS"
// (1.95 GB): libpng allocated the whole length before reading a byte of it.
TEST(Regression, PngChunkLengthDoesNotSizeAnAllocation) {
#if !defined(QEL_ADDRESS_SANITIZER)
    GTEST_SKIP() << "allocations are watched in the sanitized build";
#else
    const std::string header(
        "\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\0\0\x06\0\0\0\x02\x04\x03\0\0\0\x89\x73\xb0\x6d", 33);
    __sanitizer_install_malloc_and_free_hooks(NoteAllocation, NoteFree);
    gWatching = true;
    const std::string error = ReadBytes(header + "tRNSsPLT" + std::string(16, 'x'), qeltool::ReadPng);
    gWatching = false;
    EXPECT_EQ(error.rfind("corrupt or truncated PNG (", 0), 0u) << error;
    EXPECT_LT(gLargestAllocation, size_t(16) << 20);
#endif
}

TEST(NetpbmReader, PamHeaderMistakesAreNamed) {
    for (const auto& c : kPamCases) {
        const std::string error = ReadBytes(c.first);
        EXPECT_EQ(c.second == kCorrupt ? error.substr(0, kCorrupt.size()) : error, c.second) << c.first;
    }
    // The first case's tuple type survives the header's rebuilding: a 1-bit image, white where set.
    SmartPtr<IQEL> image;
    ASSERT_EQ(ReadBytes(kPamCases[0].first, qeltool::ReadNetpbm, &image), "");
    const qel::Pixels p = qel::PixelsOf(image.Get());
    EXPECT_EQ(std::vector<int>({p.width, p.bitCount, p.Row(0)[0]}), std::vector<int>({3, 1, 0xA0}));
}

}  // namespace
