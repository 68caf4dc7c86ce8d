// qel info: what each file holds, as stored (orientation not applied), one
// line per file or a JSON array.
#include <cstdio>

#include "tools/batch.h"
#include "tools/image_file.h"
#include "tools/pixel_limit.h"
#include "tools/raster.h"

namespace qeltool {
namespace {

struct FileFacts {
    std::string file, format, model;
    int width = 0, height = 0, bitsPerSample = 8, bitCount = 0, paletteSize = 0, orientation = 1, pages = 1;
    bool alpha = false;
    size_t icc = 0, exif = 0, xmp = 0;
};

FileFacts Describe(const std::string& file, IQEL* image, const ImageMetadata& metadata) {
    const qel::Pixels p = qel::PixelsOf(image);
    FileFacts f;
    f.file = file;
    f.format = metadata.format;
    f.width = p.width, f.height = p.height;
    f.bitsPerSample = metadata.bitsPerSample;
    f.bitCount = p.bitCount;
    f.model = ModelName(p.colourModel);
    f.paletteSize = static_cast<int>(PaletteOf(image).size());
    f.alpha = p.bitCount == 32 && (p.colourModel == QEL_MODEL_ARGB || p.colourModel == QEL_MODEL_ABGR);
    f.orientation = metadata.orientation;
    f.pages = metadata.pages;
    f.icc = metadata.icc.size(), f.exif = metadata.exif.size(), f.xmp = metadata.xmp.size();
    return f;
}

std::string Line(const FileFacts& f) {
    char text[512];
    std::snprintf(text, sizeof(text), "%s: %s %dx%d, %d bits per sample, read as %d-bit %s", f.file.c_str(),
                  f.format.c_str(), f.width, f.height, f.bitsPerSample, f.bitCount, f.model.c_str());
    std::string line = text;
    line += f.paletteSize > 0 ? ", palette of " + std::to_string(f.paletteSize) : ", no palette";
    line += f.alpha ? ", alpha" : ", no alpha";
    line += ", orientation " + std::to_string(f.orientation);
    if (f.orientation >= 5) line += " (shown " + std::to_string(f.height) + "x" + std::to_string(f.width) + ")";
    line += f.icc > 0 ? ", ICC profile " + std::to_string(f.icc) + " bytes" : ", no ICC profile";
    if (f.exif > 0) line += ", EXIF " + std::to_string(f.exif) + " bytes";
    if (f.xmp > 0) line += ", XMP " + std::to_string(f.xmp) + " bytes";
    if (f.pages > 1) line += ", " + std::to_string(f.pages) + " pages";
    return line;
}

std::string Json(const FileFacts& f) {
    return "{\"file\": " + JsonString(f.file) + ", \"format\": " + JsonString(f.format) +
           ", \"width\": " + std::to_string(f.width) + ", \"height\": " + std::to_string(f.height) +
           ", \"bits_per_sample\": " + std::to_string(f.bitsPerSample) +
           ", \"bit_count\": " + std::to_string(f.bitCount) + ", \"colour_model\": " + JsonString(f.model) +
           ", \"palette\": " + std::to_string(f.paletteSize) + ", \"alpha\": " + (f.alpha ? "true" : "false") +
           ", \"orientation\": " + std::to_string(f.orientation) + ", \"icc_bytes\": " + std::to_string(f.icc) +
           ", \"exif_bytes\": " + std::to_string(f.exif) + ", \"xmp_bytes\": " + std::to_string(f.xmp) +
           ", \"pages\": " + std::to_string(f.pages) + "}";
}

}  // namespace

std::string JsonString(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\', out += c;
        } else if (byte < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\u%04x", byte);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

int InfoCommand(const std::vector<std::string>& words) {
    bool json = false;
    LoadOptions options;
    options.maxPixels = kDefaultPixelLimit;
    options.autorotate = false;
    std::vector<std::string> files;
    for (size_t i = 1; i < words.size(); ++i) {
        if (words[i] == "--json") {
            json = true;
        } else if (words[i] == "--max-pixels" && i + 1 < words.size()) {
            if (!ParsePixelLimit(words[++i], &options.maxPixels)) {
                std::fprintf(stderr, "qel: info: bad --max-pixels '%s'\n", words[i].c_str());
                return 2;
            }
        } else if (words[i].size() > 1 && words[i][0] == '-') {
            std::fprintf(stderr, "qel: info: unknown option '%s'\n", words[i].c_str());
            return 2;
        } else {
            files.push_back(words[i]);
        }
    }
    if (files.empty()) {
        std::fprintf(stderr, "qel: info: name the files to describe (qel info FILE... [--json])\n");
        return 2;
    }
    qel::Host host;
    std::string error;
    if (!host.Load(qel::DefaultModuleFolder(), &error)) {
        std::fprintf(stderr, "qel: cannot load the imaging module from %s: %s\n",
                     qel::DefaultModuleFolder().c_str(), error.c_str());
        return 1;
    }
    int status = 0;
    bool first = true;
    if (json) std::printf("[");
    for (const std::string& file : files) {
        ImageMetadata metadata;
        SmartPtr<IQEL> image = LoadImageFile(host, file, options, &metadata, &error);
        if (!image) {
            std::fprintf(stderr, "qel: %s: %s\n", file.c_str(), error.c_str());
            status = 1;
            continue;
        }
        const FileFacts facts = Describe(file, image.Get(), metadata);
        if (json)
            std::printf("%s\n  %s", first ? "" : ",", Json(facts).c_str());
        else
            std::printf("%s\n", Line(facts).c_str());
        first = false;
    }
    if (json) std::printf("%s]\n", first ? "" : "\n");
    return status;
}

}  // namespace qeltool
