// The netpbm family (PBM, PGM, PPM, plain and raw, and PAM) through libnetpbm's
// tuple-row interface, with the library's fatal errors turned into returns.
#include <netpbm/pam.h>

#include <algorithm>
#include <climits>
#include <csetjmp>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <string>

#include "tools/codecs.h"
#include "tools/image_metadata.h"
#include "tools/pixel_limit.h"
#include "tools/raster.h"

namespace qeltool {
namespace {

// The part of struct pam this reader uses, up to the tuple type: the
// library's PAM_STRUCT_SIZE computes it through a null pointer, which the
// undefined-behaviour sanitizer reports.
constexpr int kPamSize = static_cast<int>(offsetof(struct pam, tuple_type) + sizeof(pam::tuple_type));

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

// libnetpbm keeps a PAM header's comments in memory of its own while it
// parses, and loses that memory when it abandons a bad header line through
// pm_error (one allocation per bad file, growing with the comments). So the
// header of a PAM file is read here; the library is then handed the same
// header without comments or tuple type, rebuilt in memory with values it
// takes without complaint, and reads the rows from the file itself.
constexpr size_t kLongestPamLine = 4096;

// The numeric fields of a PAM header and the ranges that the reader takes.
struct PamField {
    const char* name;
    long long min, max;
    long long value;
};

// Reads the header lines after the magic "P7" up to ENDHDR into `fields`
// (WIDTH, HEIGHT, DEPTH, MAXVAL) and `tupleType`; false with `error` set on
// anything else.
bool ReadPamHeader(FILE* file, PamField (&fields)[4], std::string* tupleType, std::string* error) {
    std::string line;
    for (bool magicLine = true;; magicLine = false) {
        line.clear();
        int c;
        while ((c = std::getc(file)) != EOF && c != '\n') {
            if (line.size() == kLongestPamLine) {
                *error = "corrupt netpbm file: a PAM header line is longer than " +
                         std::to_string(kLongestPamLine) + " characters";
                return false;
            }
            line += static_cast<char>(c);
        }
        if (c == EOF) {
            *error = "truncated file";
            return false;
        }
        const size_t start = line.find_first_not_of(" \t\r");
        if (start == std::string::npos || line[start] == '#') continue;
        if (magicLine) {
            *error = "corrupt netpbm file: unexpected text after the PAM magic number";
            return false;
        }
        const size_t keyEnd = std::min(line.find_first_of(" \t\r", start), line.size());
        const std::string keyword = line.substr(start, keyEnd - start);
        const size_t valueStart = std::min(line.find_first_not_of(" \t\r", keyEnd), line.size());
        const size_t valueEnd = line.find_last_not_of(" \t\r");
        const std::string value = valueEnd == std::string::npos || valueEnd < valueStart
                                      ? ""
                                      : line.substr(valueStart, valueEnd + 1 - valueStart);
        if (keyword == "ENDHDR") break;
        if (keyword == "TUPLTYPE") {
            *tupleType += (tupleType->empty() ? "" : " ") + value;
            continue;
        }
        PamField* field = nullptr;
        for (PamField& f : fields)
            if (keyword == f.name) field = &f;
        if (field == nullptr) {
            *error = "corrupt netpbm file: unrecognised PAM header line '" + line.substr(0, 40) + "'";
            return false;
        }
        const bool digits = !value.empty() && value.size() <= 18 &&
                            value.find_first_not_of("0123456789") == std::string::npos;
        if (!digits) {
            *error = "corrupt netpbm file: non-numeric value for " + keyword + " in the PAM header: '" +
                     value.substr(0, 40) + "'";
            return false;
        }
        field->value = std::stoll(value);
    }
    for (const PamField& f : fields) {
        if (f.value < 0) {
            *error = std::string("corrupt netpbm file: the PAM header has no ") + f.name;
            return false;
        }
        if (f.value < f.min || f.value > f.max) {
            *error = "unsupported netpbm dimensions, depth or maximum value";
            return false;
        }
    }
    return true;
}

// Starts reading a netpbm file: the library's header parsing for PBM, PGM
// and PPM; for PAM, the header read above and a clean copy given to the library.
bool ReadHeader(FILE* file, struct pam* header, std::string* error) {
    const long start = std::ftell(file);
    char magic[2] = {0, 0};
    const bool pam = std::fread(magic, 1, 2, file) == 2 && magic[0] == 'P' && magic[1] == '7';
    if (!pam) {
        // Every reader is given a file it may rewind (the format is told by
        // its first bytes); the library reads the magic number again.
        std::fseek(file, start, SEEK_SET);
        if (Guarded([&] { pnm_readpaminit(file, header, kPamSize); })) return true;
        *error = ReadFailure(file);
        return false;
    }
    PamField fields[4] = {
        {"WIDTH", 1, INT_MAX, -1}, {"HEIGHT", 1, INT_MAX, -1}, {"DEPTH", 1, 4, -1}, {"MAXVAL", 1, 65535, -1}};
    std::string tupleType;
    if (!ReadPamHeader(file, fields, &tupleType, error)) return false;
    std::string clean = "P7\n";
    for (const PamField& f : fields) clean += std::string(f.name) + " " + std::to_string(f.value) + "\n";
    clean += "ENDHDR\n";
    FILE* cleanFile = fmemopen(&clean[0], clean.size(), "rb");
    if (cleanFile == nullptr) {
        *error = "out of memory";
        return false;
    }
    const bool read = Guarded([&] { pnm_readpaminit(cleanFile, header, kPamSize); });
    std::fclose(cleanFile);
    if (!read) {
        *error = "corrupt netpbm file: " + g_libraryError;
        return false;
    }
    header->file = file;
    std::strncpy(header->tuple_type, tupleType.c_str(), sizeof(header->tuple_type) - 1);
    header->tuple_type[sizeof(header->tuple_type) - 1] = '\0';
    return true;
}

}  // namespace

SmartPtr<IQEL> ReadNetpbm(FILE* file, const qel::Host& host, long long maxPixels, ImageMetadata* metadata,
                          std::string* error) {
    const std::lock_guard<std::mutex> only(g_libraryInUse);
    PrepareLibrary();
    struct pam header;
    std::memset(&header, 0, sizeof(header));
    if (!ReadHeader(file, &header, error)) return SmartPtr<IQEL>();
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
    const bool bilevel = p.bitCount == 1 && IsGreyPalette(PaletteOf(image), 1);  // black and white
    bool grey = kind == 'g' || ((kind == 'n' || kind == 'a') && raster.grey);
    const bool alpha = kind == 'a' && raster.alpha;
    if (alpha) grey = false;  // RGB_ALPHA keeps the layout of 32-bit images
    // PBM takes any image, white where its grey level is at least half.
    const bool bitmapPam = (bilevel && kind == 'a') || kind == 'b';
    if (kind == 'b') grey = true;

    struct pam header;
    std::memset(&header, 0, sizeof(header));
    header.size = sizeof(header);
    header.len = kPamSize;
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
