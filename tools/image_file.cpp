// Image files: format detection by content on load, by extension on save, the
// write-to-a-temporary-then-rename that keeps failed saves invisible, and the
// standard input and output streams.
#include "tools/image_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/codecs.h"
#include "tools/image_metadata.h"

namespace qeltool {
namespace {

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string LowerExtension(const std::string& path) {
    const size_t slash = path.rfind('/');
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    return Lower(path.substr(dot + 1));
}

struct FileCloser {
    FILE* file;
    ~FileCloser() {
        if (file != nullptr) std::fclose(file);
    }
};

// Copies a stream that cannot seek (a pipe, a terminal) into an anonymous
// temporary file, which every reader can seek in. Returns null on failure.
FILE* SeekableCopy(FILE* stream, std::string* error) {
    FILE* copy = std::tmpfile();
    if (copy == nullptr) {
        *error = std::string("cannot buffer the input: ") + std::strerror(errno);
        return nullptr;
    }
    char buffer[1 << 16];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof(buffer), stream)) > 0) {
        if (std::fwrite(buffer, 1, got, copy) != got) {
            *error = std::string("cannot buffer the input: ") + std::strerror(errno);
            std::fclose(copy);
            return nullptr;
        }
    }
    if (std::ferror(stream)) {
        *error = std::string("read failed: ") + std::strerror(errno);
        std::fclose(copy);
        return nullptr;
    }
    std::fflush(copy);
    std::rewind(copy);
    return copy;
}

// "photo.tif[2]" -> "photo.tif" and page 2, when no file has the full name.
void SplitPage(std::string* path, int* page) {
    if (path->size() < 4 || path->back() != ']') return;
    const size_t open = path->rfind('[');
    if (open == std::string::npos || open + 2 > path->size() - 1) return;
    const std::string digits = path->substr(open + 1, path->size() - open - 2);
    if (digits.empty() || digits.size() > 6 || digits.find_first_not_of("0123456789") != std::string::npos)
        return;
    struct stat info;
    if (stat(path->c_str(), &info) == 0) return;
    *page = std::atoi(digits.c_str());
    path->resize(open);
}

SmartPtr<IQEL> Decode(FILE* file, const qel::Host& host, const LoadOptions& options, int page,
                      ImageMetadata* metadata, std::string* error) {
    unsigned char magic[16] = {0};
    const size_t got = std::fread(magic, 1, sizeof(magic), file);
    std::rewind(file);
    if (got == 0) {
        *error = "empty file";
        return SmartPtr<IQEL>();
    }
    const long long limit = options.maxPixels;
    const bool pages = page != 0;
    static const unsigned char kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    auto singleImage = [&](const char* format) {
        *error = std::string(format) + " files hold one image: there is no page " + std::to_string(page);
        return SmartPtr<IQEL>();
    };
    if (got >= 8 && std::memcmp(magic, kPngSignature, 8) == 0) {
        metadata->format = "PNG";
        return pages ? singleImage("PNG") : ReadPng(file, host, limit, metadata, error);
    }
    if (got >= 3 && magic[0] == 0xFF && magic[1] == 0xD8 && magic[2] == 0xFF) {
        metadata->format = "JPEG";
        return pages ? singleImage("JPEG") : ReadJpeg(file, host, limit, metadata, error);
    }
    if (got >= 4 && ((magic[0] == 'I' && magic[1] == 'I' && (magic[2] == 42 || magic[2] == 43) && magic[3] == 0) ||
                     (magic[0] == 'M' && magic[1] == 'M' && magic[2] == 0 && (magic[3] == 42 || magic[3] == 43)))) {
        metadata->format = "TIFF";
        return ReadTiff(file, host, limit, page, metadata, error);
    }
    if (got >= 12 && std::memcmp(magic, "RIFF", 4) == 0 && std::memcmp(magic + 8, "WEBP", 4) == 0) {
        metadata->format = "WebP";
        return pages ? singleImage("WebP") : ReadWebp(file, host, limit, metadata, error);
    }
    if (got >= 6 && (std::memcmp(magic, "GIF87a", 6) == 0 || std::memcmp(magic, "GIF89a", 6) == 0)) {
        metadata->format = "GIF";
        return ReadGif(file, host, limit, page, metadata, error);
    }
    if (got >= 2 && magic[0] == 'B' && magic[1] == 'M') {
        metadata->format = "BMP";
        return pages ? singleImage("BMP") : ReadBmp(file, host, limit, error);
    }
    if (got >= 2 && magic[0] == 'P' && magic[1] >= '1' && magic[1] <= '7') {
        metadata->format = "netpbm";
        return pages ? singleImage("netpbm") : ReadNetpbm(file, host, limit, metadata, error);
    }
    *error = "unsupported file format (qel reads PNG, JPEG, TIFF, WebP, GIF, BMP, PBM, PGM, PPM and PAM)";
    return SmartPtr<IQEL>();
}

}  // namespace

SmartPtr<IQEL> LoadImageFile(const qel::Host& host, const std::string& path, const LoadOptions& options,
                             ImageMetadata* metadata, std::string* error) {
    ImageMetadata scratch;
    if (metadata == nullptr) metadata = &scratch;
    *metadata = ImageMetadata();
    std::string name = path;
    int page = options.page;
    SplitPage(&name, &page);
    FileCloser in{name == "-" ? nullptr : std::fopen(name.c_str(), "rb")};
    if (name != "-" && in.file == nullptr) {
        *error = std::string("cannot open: ") + std::strerror(errno);
        return SmartPtr<IQEL>();
    }
    // Pipes (standard input, /dev/stdin, a FIFO) cannot seek; buffer them.
    FILE* source = name == "-" ? stdin : in.file;
    if (name == "-" || std::fseek(source, 0, SEEK_SET) != 0) {
        FILE* copy = SeekableCopy(source, error);
        if (copy == nullptr) return SmartPtr<IQEL>();
        if (in.file != nullptr) std::fclose(in.file);
        in.file = copy;
    }
    SmartPtr<IQEL> image = Decode(in.file, host, options, page, metadata, error);
    if (!image) return image;
    if (!metadata->exif.empty() && metadata->orientation == 1)
        metadata->orientation = ExifOrientation(metadata->exif);
    if (metadata->bitsPerSample > 8)
        metadata->notes.push_back(std::to_string(metadata->bitsPerSample) +
                                  "-bit samples read as 8-bit (the module works on 8-bit channels)");
    if (options.autorotate && metadata->orientation != 1) {
        SmartPtr<IQEL> turned = ApplyOrientation(host, image.Get(), metadata->orientation);
        if (!turned) {
            *error = "cannot turn the image as its EXIF orientation says";
            return SmartPtr<IQEL>();
        }
        metadata->orientation = 1;
        return turned;
    }
    return image;
}

SmartPtr<IQEL> LoadImageFile(const qel::Host& host, const std::string& path, long long maxPixels,
                             std::string* error) {
    LoadOptions options;
    options.maxPixels = maxPixels;
    return LoadImageFile(host, path, options, nullptr, error);
}

const std::vector<std::string>& WritableExtensions() {
    static const std::vector<std::string> extensions = {"png", "jpg", "jpeg", "tif", "tiff", "webp", "gif",
                                                        "bmp", "pbm", "pgm", "ppm", "pnm", "pam"};
    return extensions;
}

namespace {

bool IsWritableExtension(const std::string& extension) {
    for (const std::string& known : WritableExtensions())
        if (extension == known) return true;
    return false;
}

bool CloseOutput(FILE* out, bool ok, std::string* error) {
    if (std::fflush(out) != 0 && ok) {
        *error = std::string("write failed: ") + std::strerror(errno);
        ok = false;
    }
    if (std::fclose(out) != 0 && ok) {
        *error = std::string("write failed: ") + std::strerror(errno);
        ok = false;
    }
    return ok;
}

// Runs `write` on a temporary file beside `path` and renames it into place
// when everything succeeded; otherwise removes it. For "-", the file is
// encoded into an anonymous temporary file and copied to standard output
// only when complete (some encoders seek back while writing).
template <class Write>
bool WriteAtomically(const std::string& path, std::string* error, Write write) {
    if (path == "-") {
        FILE* buffer = std::tmpfile();
        if (buffer == nullptr) {
            *error = std::string("cannot buffer the output: ") + std::strerror(errno);
            return false;
        }
        bool ok = write(buffer) && std::fflush(buffer) == 0;
        std::rewind(buffer);
        char chunk[1 << 16];
        size_t got;
        while (ok && (got = std::fread(chunk, 1, sizeof(chunk), buffer)) > 0)
            ok = std::fwrite(chunk, 1, got, stdout) == got;
        std::fclose(buffer);
        if (ok && std::fflush(stdout) != 0) ok = false;
        if (!ok && error->empty()) *error = std::string("write failed: ") + std::strerror(errno);
        return ok;
    }
    std::string temporary = path + ".qel-XXXXXX";
    const int descriptor = mkstemp(&temporary[0]);
    if (descriptor < 0) {
        *error = std::string("cannot create: ") + std::strerror(errno);
        return false;
    }
    FILE* out = fdopen(descriptor, "w+b");
    if (out == nullptr) {
        close(descriptor);
        unlink(temporary.c_str());
        *error = std::string("cannot create: ") + std::strerror(errno);
        return false;
    }
    bool ok = CloseOutput(out, write(out), error);
    // mkstemp makes the file private; give it the permissions of a normal new file.
    const mode_t mask = umask(0);
    umask(mask);
    if (ok) chmod(temporary.c_str(), 0666 & ~mask);
    if (ok && std::rename(temporary.c_str(), path.c_str()) != 0) {
        *error = std::string("cannot rename into place: ") + std::strerror(errno);
        ok = false;
    }
    if (!ok) unlink(temporary.c_str());
    return ok;
}

std::string WritableList() {
    std::string list;
    for (const std::string& extension : WritableExtensions()) list += (list.empty() ? "." : ", .") + extension;
    return list;
}

}  // namespace

bool IsWritableImageName(const std::string& path) { return IsWritableExtension(LowerExtension(path)); }

bool SaveImageFile(IQEL* image, const std::string& path, const SaveOptions& options,
                   const ImageMetadata* metadata, std::string* error) {
    const std::string extension = options.format.empty() ? LowerExtension(path) : Lower(options.format);
    if (path == "-" && options.format.empty()) {
        *error = "say the format of standard output with --format (png, jpg, tif, webp, ...)";
        return false;
    }
    if (!IsWritableExtension(extension)) {
        *error = "unsupported output format '." + extension + "' (qel writes " + WritableList() + ")";
        return false;
    }
    return WriteAtomically(path, error, [&](FILE* out) {
        if (extension == "png") return WritePng(out, image, metadata, error);
        if (extension == "jpg" || extension == "jpeg") return WriteJpeg(out, image, options.quality, metadata, error);
        if (extension == "tif" || extension == "tiff") return WriteTiff(out, image, metadata, error);
        if (extension == "webp")
            return WriteWebp(out, image, options.quality, options.webpLossless, metadata, error);
        if (extension == "gif") return WriteGif(out, image, error);
        if (extension == "bmp") return WriteBmp(out, image, error);
        const char kind = extension == "pbm"   ? 'b'
                          : extension == "pgm" ? 'g'
                          : extension == "ppm" ? 'p'
                          : extension == "pam" ? 'a'
                                               : 'n';
        return WriteNetpbm(out, image, kind, error);
    });
}

bool SaveImageFile(IQEL* image, const std::string& path, int quality, std::string* error) {
    SaveOptions options;
    options.quality = quality;
    return SaveImageFile(image, path, options, nullptr, error);
}

SmartPtr<IQELImageDIB> NewReadImage(const qel::Host& host, long long width, long long height, int bitCount,
                                    std::string* error) {
    const unsigned model = bitCount == 32 ? QEL_MODEL_ARGB : bitCount == 24 ? QEL_MODEL_BGR : QEL_MODEL_MONO;
    SmartPtr<IQELImageDIB> image = host.NewImage(static_cast<int>(width), static_cast<int>(height), bitCount, model);
    if (!image) *error = "cannot make an image of that size";
    return image;
}

void PackRasterRow(const Raster& raster, int y, uint8_t* out) {
    for (int x = 0; x < raster.width; ++x) {
        const uint8_t* c = raster.At(x, y);
        *out++ = c[0];
        if (!raster.grey) *out++ = c[1], *out++ = c[2];
        if (raster.alpha) *out++ = c[3];
    }
}

bool SaveTextFile(const std::string& text, const std::string& path, std::string* error) {
    return WriteAtomically(path, error, [&](FILE* out) {
        if (std::fwrite(text.data(), 1, text.size(), out) == text.size()) return true;
        *error = "write failed";
        return false;
    });
}

}  // namespace qeltool
