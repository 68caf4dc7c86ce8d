// The netpbm family: PBM, PGM, PPM (plain and raw) and PAM. The formats are a
// short text header followed by samples, so they are read and written here.
#include <cctype>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tools/codecs.h"
#include "tools/raster.h"

namespace qeltool {
namespace {

// Reads one header token, skipping white space and '#' comments.
bool NextToken(FILE* file, std::string* token) {
    token->clear();
    int c = std::fgetc(file);
    for (;;) {
        while (c != EOF && std::isspace(c)) c = std::fgetc(file);
        if (c != '#') break;
        while (c != EOF && c != '\n') c = std::fgetc(file);
    }
    while (c != EOF && !std::isspace(c)) {
        token->push_back(static_cast<char>(c));
        c = std::fgetc(file);
    }
    return !token->empty();  // the single white-space byte after the token is consumed
}

bool NextNumber(FILE* file, long* value) {
    std::string token;
    if (!NextToken(file, &token) || token.size() > 9) return false;
    for (char c : token)
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    *value = std::atol(token.c_str());
    return true;
}

struct Header {
    char kind = 0;  // '1'..'7'
    long width = 0, height = 0, depth = 1, maxval = 1;
    std::string tupleType;
};

bool ReadPamHeader(FILE* file, Header* h, std::string* error) {
    std::string line;
    for (;;) {
        std::string key;
        if (!NextToken(file, &key)) {
            *error = "truncated PAM header";
            return false;
        }
        if (key == "ENDHDR") return true;
        if (key == "TUPLTYPE") {
            // The rest of the line is the tuple type.
            line.clear();
            for (int c = std::fgetc(file); c != EOF && c != '\n'; c = std::fgetc(file)) line.push_back(static_cast<char>(c));
            h->tupleType = line;
            continue;
        }
        long value = 0;
        if (!NextNumber(file, &value)) {
            *error = "bad PAM header value for " + key;
            return false;
        }
        if (key == "WIDTH") h->width = value;
        else if (key == "HEIGHT") h->height = value;
        else if (key == "DEPTH") h->depth = value;
        else if (key == "MAXVAL") h->maxval = value;
        else {
            *error = "unknown PAM header field " + key;
            return false;
        }
    }
}

}  // namespace

SmartPtr<IQEL> ReadNetpbm(FILE* file, const qel::Host& host, std::string* error) {
    Header h;
    std::string magic;
    if (!NextToken(file, &magic) || magic.size() != 2 || magic[0] != 'P' || magic[1] < '1' || magic[1] > '7') {
        *error = "not a netpbm file";
        return SmartPtr<IQEL>();
    }
    h.kind = magic[1];
    const bool bitmap = h.kind == '1' || h.kind == '4';
    const bool plain = h.kind <= '3';
    if (h.kind == '7') {
        if (!ReadPamHeader(file, &h, error)) return SmartPtr<IQEL>();
    } else {
        if (!NextNumber(file, &h.width) || !NextNumber(file, &h.height) || (!bitmap && !NextNumber(file, &h.maxval))) {
            *error = "truncated or corrupt netpbm header";
            return SmartPtr<IQEL>();
        }
        h.depth = (h.kind == '3' || h.kind == '6') ? 3 : 1;
    }
    if (h.width < 1 || h.height < 1 || h.maxval < 1 || h.maxval > 65535 || h.depth < 1 || h.depth > 4 ||
        h.width * h.height > kMaxPixels) {
        *error = "unsupported netpbm dimensions, depth or maximum value";
        return SmartPtr<IQEL>();
    }
    const int width = static_cast<int>(h.width), height = static_cast<int>(h.height);
    const bool blackAndWhite = bitmap || (h.kind == '7' && h.tupleType.rfind("BLACKANDWHITE", 0) == 0);
    // Samples: bitmaps give 1 for black (PBM) or white (PAM); others scale to 0..255.
    const bool alpha = h.depth == 2 || h.depth == 4;
    const bool colour = h.depth >= 3;
    const int bitCount = blackAndWhite && h.depth == 1 ? 1 : alpha ? 32 : colour ? 24 : 8;
    SmartPtr<IQELImageDIB> image = host.NewImage(width, height, bitCount,
                                                 bitCount == 32 ? QEL_MODEL_ARGB : colour ? QEL_MODEL_BGR : QEL_MODEL_MONO);
    if (!image) {
        *error = "cannot make an image of that size";
        return SmartPtr<IQEL>();
    }
    const qel::Pixels p = qel::PixelsOf(image.Get());
    const size_t samplesPerRow = static_cast<size_t>(width) * static_cast<size_t>(h.depth);
    const size_t bytesPerSample = h.maxval > 255 ? 2 : 1;
    std::vector<uint8_t> raw(h.kind == '4' ? (static_cast<size_t>(width) + 7) / 8 : samplesPerRow * bytesPerSample);
    std::vector<unsigned> samples(samplesPerRow);
    for (int y = 0; y < height; ++y) {
        if (plain) {
            for (size_t i = 0; i < samplesPerRow; ++i) {
                long v = 0;
                if (h.kind == '1') {
                    // Plain PBM digits need not be separated.
                    int c = std::fgetc(file);
                    while (c != EOF && (std::isspace(c) || c == '#')) {
                        if (c == '#') while (c != EOF && c != '\n') c = std::fgetc(file);
                        c = std::fgetc(file);
                    }
                    if (c != '0' && c != '1') {
                        *error = c == EOF ? "truncated file" : "corrupt PBM data";
                        return SmartPtr<IQEL>();
                    }
                    v = c - '0';
                } else if (!NextNumber(file, &v) || v > h.maxval) {
                    *error = "truncated or corrupt sample data";
                    return SmartPtr<IQEL>();
                }
                samples[i] = static_cast<unsigned>(v);
            }
        } else {
            if (std::fread(raw.data(), 1, raw.size(), file) != raw.size()) {
                *error = "truncated file";
                return SmartPtr<IQEL>();
            }
            for (size_t i = 0; i < samplesPerRow; ++i) {
                if (h.kind == '4') samples[i] = (raw[i >> 3] >> (7 - (i & 7))) & 1u;
                else samples[i] = bytesPerSample == 2 ? (raw[2 * i] << 8 | raw[2 * i + 1]) : raw[i];
            }
        }
        uint8_t* row = p.Row(y);
        for (int x = 0; x < width; ++x) {
            const unsigned* s = &samples[static_cast<size_t>(x) * static_cast<size_t>(h.depth)];
            if (bitCount == 1) {
                const bool white = bitmap ? s[0] == 0 : s[0] != 0;
                if (white) row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | 0x80 >> (x & 7));
                continue;
            }
            uint8_t v[4];
            for (long c = 0; c < h.depth; ++c) {
                const unsigned sample = std::min<unsigned>(s[c], static_cast<unsigned>(h.maxval));
                v[c] = static_cast<uint8_t>((sample * 255u + static_cast<unsigned>(h.maxval) / 2) / static_cast<unsigned>(h.maxval));
            }
            if (bitCount == 8) row[x] = v[0];
            else if (bitCount == 24) row[3 * x] = v[2], row[3 * x + 1] = v[1], row[3 * x + 2] = v[0];
            else if (colour) row[4 * x] = v[2], row[4 * x + 1] = v[1], row[4 * x + 2] = v[0], row[4 * x + 3] = v[3];
            else row[4 * x] = row[4 * x + 1] = row[4 * x + 2] = v[0], row[4 * x + 3] = v[1];
        }
    }
    return SmartPtr<IQEL>(image.Detach());
}

bool WriteNetpbm(FILE* file, IQEL* image, char kind, std::string* error) {
    const qel::Pixels p = qel::PixelsOf(image);
    if (p.width <= 0 || p.height <= 0 || p.bits == nullptr) {
        *error = "the image is empty";
        return false;
    }
    const Raster raster = ToRaster(image);
    const bool bilevel = p.bitCount == 1 && PaletteOf(image).empty();
    bool grey = kind == 'g' || ((kind == 'n' || kind == 'a') && raster.grey);
    const bool alpha = kind == 'a' && raster.alpha;
    if (alpha && kind == 'a') grey = false;  // RGB_ALPHA keeps the layout of 32-bit images
    int depth = (grey ? 1 : 3) + (alpha ? 1 : 0);
    if (kind == 'a') {
        const char* tuple = bilevel ? "BLACKANDWHITE" : alpha ? "RGB_ALPHA" : grey ? "GRAYSCALE" : "RGB";
        std::fprintf(file, "P7\nWIDTH %d\nHEIGHT %d\nDEPTH %d\nMAXVAL %d\nTUPLTYPE %s\nENDHDR\n", p.width, p.height,
                     depth, bilevel ? 1 : 255, tuple);
    } else {
        std::fprintf(file, "P%c\n%d %d\n255\n", grey ? '5' : '6', p.width, p.height);
    }
    std::vector<uint8_t> row(static_cast<size_t>(p.width) * static_cast<size_t>(depth));
    for (int y = 0; y < raster.height; ++y) {
        size_t out = 0;
        for (int x = 0; x < raster.width; ++x) {
            const uint8_t* in = raster.At(x, y);
            if (bilevel && kind == 'a') {
                row[out++] = in[0] != 0 ? 1 : 0;
            } else if (grey) {
                row[out++] = raster.grey ? in[0] : static_cast<uint8_t>((77 * in[0] + 150 * in[1] + 29 * in[2] + 128) >> 8);
            } else {
                row[out++] = in[0], row[out++] = in[1], row[out++] = in[2];
            }
            if (alpha) row[out++] = in[3];
        }
        if (std::fwrite(row.data(), 1, out, file) != out) {
            *error = "write failed";
            return false;
        }
    }
    return true;
}

}  // namespace qeltool
