// The netpbm family (PBM, PGM, PPM, plain and raw, and PAM) through libnetpbm's
// tuple-row interface, with the library's fatal errors turned into returns.
#include <netpbm/pam.h>

#include <csetjmp>
#include <mutex>
#include <cstring>
#include <string>

#include "tools/codecs.h"
#include "tools/pixel_limit.h"
#include "tools/raster.h"

namespace qeltool {
namespace {

// The last message libnetpbm reported through pm_error, with its line breaks
// folded so that it fits the tool's one-line error.
std::string g_libraryError;

void KeepLibraryError(const char* message) {
    g_libraryError = message != nullptr ? message : "";
    while (!g_libraryError.empty() && (g_libraryError.back() == '\n' || g_libraryError.back() == ' '))
        g_libraryError.pop_back();
    for (char& c : g_libraryError)
        if (c == '\n') c = ' ';
}

void IgnoreLibraryMessage(const char*) {}

// libnetpbm keeps its error handling in globals, so one thread at a time uses it.
std::mutex g_libraryInUse;

// libnetpbm prints its errors and exits the process unless told otherwise;
// here errors are kept for the caller and informational messages dropped.
void PrepareLibrary() {
    static bool prepared = false;
    if (prepared) return;
    prepared = true;
    pm_init("qel", 0);
    pm_setusererrormsgfn(KeepLibraryError);
    pm_setusermessagefn(IgnoreLibraryMessage);
}

// Runs one libnetpbm call; returns false when the library reported an error.
// pm_error leaves through longjmp, so `call` must create no object with a
// destructor: it is a thin lambda around a single library function.
template <class Call>
bool Guarded(Call call) {
    std::jmp_buf recovery;
    std::jmp_buf* previous = nullptr;
    pm_setjmpbufsave(&recovery, &previous);
    if (setjmp(recovery) != 0) {
        pm_setjmpbuf(previous);
        return false;
    }
    call();
    pm_setjmpbuf(previous);
    return true;
}

// A tuple row from pnm_allocpamrow, freed on every way out.
struct TupleRow {
    tuple* samples = nullptr;
    ~TupleRow() {
        if (samples != nullptr) pnm_freepamrow(samples);
    }
};

// A read failure at the end of the file is a truncation; anything else is
// whatever the library found wrong.
std::string ReadFailure(FILE* file) {
    if (std::feof(file)) return "truncated file";
    return "corrupt netpbm file: " + g_libraryError;
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__)
// libnetpbm loses a one-byte comment buffer when it abandons a bad PAM header
// through longjmp; the leak checker of sanitized builds is told to expect it.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:libnetpbm.so\n";
}
// Without a note about the expected leak on standard error, whose single line
// is the tool's error message.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_options() {
    return "print_suppressions=0";
}
#endif

SmartPtr<IQEL> ReadNetpbm(FILE* file, const qel::Host& host, long long maxPixels, ImageMetadata* metadata,
                          std::string* error) {
    const std::lock_guard<std::mutex> only(g_libraryInUse);
    PrepareLibrary();
    struct pam header;
    std::memset(&header, 0, sizeof(header));
    if (!Guarded([&] { pnm_readpaminit(file, &header, PAM_STRUCT_SIZE(tuple_type)); })) {
        *error = ReadFailure(file);
        return SmartPtr<IQEL>();
    }
    if (header.width < 1 || header.height < 1 || header.maxval < 1 || header.maxval > 65535 ||
        header.depth < 1 || header.depth > 4) {
        *error = "unsupported netpbm dimensions, depth or maximum value";
        return SmartPtr<IQEL>();
    }
    if (!WithinPixelLimit(header.width, header.height, maxPixels, "image", error)) return SmartPtr<IQEL>();
    const int width = header.width, height = header.height;
    const unsigned depth = header.depth;
    const unsigned maxval = static_cast<unsigned>(header.maxval);
    metadata->bitsPerSample = 1;
    while (metadata->bitsPerSample < 16 && (maxval >> metadata->bitsPerSample) != 0) ++metadata->bitsPerSample;
    // PBM arrives as a BLACKANDWHITE view whose samples are 1 for white.
    const bool blackAndWhite =
        std::strncmp(header.tuple_type, PAM_PBM_TUPLETYPE, std::strlen(PAM_PBM_TUPLETYPE)) == 0;
    const bool alpha = depth == 2 || depth == 4;
    const bool colour = depth >= 3;
    const int bitCount = blackAndWhite && depth == 1 ? 1 : alpha ? 32 : colour ? 24 : 8;
    SmartPtr<IQELImageDIB> image = host.NewImage(width, height, bitCount,
                                                 bitCount == 32 ? QEL_MODEL_ARGB
                                                 : colour       ? QEL_MODEL_BGR
                                                                : QEL_MODEL_MONO);
    if (!image) {
        *error = "cannot make an image of that size";
        return SmartPtr<IQEL>();
    }
    TupleRow tuples;
    if (!Guarded([&] { tuples.samples = pnm_allocpamrow(&header); })) {
        *error = "out of memory: " + g_libraryError;
        return SmartPtr<IQEL>();
    }
    const qel::Pixels p = qel::PixelsOf(image.Get());
    for (int y = 0; y < height; ++y) {
        if (!Guarded([&] { pnm_readpamrow(&header, tuples.samples); })) {
            *error = ReadFailure(file);
            return SmartPtr<IQEL>();
        }
        uint8_t* row = p.Row(y);
        for (int x = 0; x < width; ++x) {
            const sample* s = tuples.samples[x];
            if (bitCount == 1) {
                if (s[0] != PAM_BLACK) row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | 0x80 >> (x & 7));
                continue;
            }
            // Samples scale from 0..maxval to 0..255, rounded.
            uint8_t v[4];
            for (unsigned c = 0; c < depth; ++c) {
                const unsigned value = s[c] < maxval ? static_cast<unsigned>(s[c]) : maxval;
                v[c] = static_cast<uint8_t>((value * 255u + maxval / 2) / maxval);
            }
            if (bitCount == 8)
                row[x] = v[0];
            else if (bitCount == 24)
                row[3 * x] = v[2], row[3 * x + 1] = v[1], row[3 * x + 2] = v[0];
            else if (colour)
                row[4 * x] = v[2], row[4 * x + 1] = v[1], row[4 * x + 2] = v[0], row[4 * x + 3] = v[3];
            else
                row[4 * x] = row[4 * x + 1] = row[4 * x + 2] = v[0], row[4 * x + 3] = v[1];
        }
    }
    return SmartPtr<IQEL>(image.Detach());
}

bool WriteNetpbm(FILE* file, IQEL* image, char kind, std::string* error) {
    const std::lock_guard<std::mutex> only(g_libraryInUse);
    PrepareLibrary();
    const qel::Pixels p = qel::PixelsOf(image);
    if (p.width <= 0 || p.height <= 0 || p.bits == nullptr) {
        *error = "the image is empty";
        return false;
    }
    const Raster raster = ToRaster(image);
    const bool bilevel = p.bitCount == 1 && PaletteOf(image).empty();
    bool grey = kind == 'g' || ((kind == 'n' || kind == 'a') && raster.grey);
    const bool alpha = kind == 'a' && raster.alpha;
    if (alpha) grey = false;  // RGB_ALPHA keeps the layout of 32-bit images
    // PBM takes any image, white where its grey level is at least half.
    const bool bitmapPam = (bilevel && kind == 'a') || kind == 'b';
    if (kind == 'b') grey = true;

    struct pam header;
    std::memset(&header, 0, sizeof(header));
    header.size = sizeof(header);
    header.len = PAM_STRUCT_SIZE(tuple_type);
    header.file = file;
    header.format = kind == 'a' ? PAM_FORMAT : kind == 'b' ? RPBM_FORMAT : grey ? RPGM_FORMAT : RPPM_FORMAT;
    header.plainformat = 0;
    header.width = raster.width;
    header.height = raster.height;
    header.depth = (grey ? 1 : 3) + (alpha ? 1 : 0);
    header.maxval = bitmapPam ? 1 : 255;
    const char* tupleType = bitmapPam ? PAM_PBM_TUPLETYPE
                            : alpha   ? PAM_PPM_ALPHA_TUPLETYPE
                            : grey    ? PAM_PGM_TUPLETYPE
                                      : PAM_PPM_TUPLETYPE;
    std::strncpy(header.tuple_type, tupleType, sizeof(header.tuple_type) - 1);

    TupleRow tuples;
    if (!Guarded([&] { tuples.samples = pnm_allocpamrow(&header); })) {
        *error = "out of memory: " + g_libraryError;
        return false;
    }
    if (!Guarded([&] { pnm_writepaminit(&header); })) {
        *error = "write failed: " + g_libraryError;
        return false;
    }
    for (int y = 0; y < raster.height; ++y) {
        for (int x = 0; x < raster.width; ++x) {
            const uint8_t* in = raster.At(x, y);
            sample* out = tuples.samples[x];
            unsigned c = 0;
            if (bitmapPam) {
                const unsigned level =
                    raster.grey ? in[0] : (77u * in[0] + 150u * in[1] + 29u * in[2] + 128u) >> 8;
                out[c++] = (bilevel ? level != 0 : level >= 128) ? PAM_BW_WHITE : PAM_BLACK;
            } else if (grey) {
                out[c++] = raster.grey ? in[0] : (77u * in[0] + 150u * in[1] + 29u * in[2] + 128u) >> 8;
            } else {
                out[c++] = in[0], out[c++] = in[1], out[c++] = in[2];
            }
            if (alpha) out[c] = in[3];
        }
        if (!Guarded([&] { pnm_writepamrow(&header, tuples.samples); })) {
            *error = "write failed: " + g_libraryError;
            return false;
        }
    }
    return true;
}

}  // namespace qeltool
