// Image files: format detection by content on load, by extension on save, and
// the write-to-a-temporary-then-rename that keeps failed saves invisible.
#include "tools/image_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/codecs.h"

namespace qeltool {
namespace {

std::string LowerExtension(const std::string& path) {
    const size_t slash = path.rfind('/');
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string extension = path.substr(dot + 1);
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

struct FileCloser {
    FILE* file;
    ~FileCloser() {
        if (file != nullptr) std::fclose(file);
    }
};

}  // namespace

SmartPtr<IQEL> LoadImageFile(const qel::Host& host, const std::string& path, long long maxPixels,
                             std::string* error) {
    FileCloser in{std::fopen(path.c_str(), "rb")};
    if (in.file == nullptr) {
        *error = std::string("cannot open: ") + std::strerror(errno);
        return SmartPtr<IQEL>();
    }
    unsigned char magic[8] = {0};
    const size_t got = std::fread(magic, 1, sizeof(magic), in.file);
    std::rewind(in.file);
    if (got == 0) {
        *error = "empty file";
        return SmartPtr<IQEL>();
    }
    static const unsigned char kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (got == 8 && std::memcmp(magic, kPngSignature, 8) == 0)
        return ReadPng(in.file, host, maxPixels, error);
    if (got >= 3 && magic[0] == 0xFF && magic[1] == 0xD8 && magic[2] == 0xFF)
        return ReadJpeg(in.file, host, maxPixels, error);
    if (got >= 2 && magic[0] == 'P' && magic[1] >= '1' && magic[1] <= '7')
        return ReadNetpbm(in.file, host, maxPixels, error);
    *error = "unsupported file format (qel reads PNG, JPEG, PBM, PGM, PPM and PAM)";
    return SmartPtr<IQEL>();
}

bool IsWritableImageName(const std::string& path) {
    const std::string e = LowerExtension(path);
    return e == "png" || e == "jpg" || e == "jpeg" || e == "pgm" || e == "ppm" || e == "pnm" || e == "pam";
}

namespace {

// Runs `write` on a temporary file beside `path` and renames it into place
// when everything succeeded; otherwise removes it.
template <class Write>
bool WriteAtomically(const std::string& path, std::string* error, Write write) {
    std::string temporary = path + ".qel-XXXXXX";
    const int descriptor = mkstemp(&temporary[0]);
    if (descriptor < 0) {
        *error = std::string("cannot create: ") + std::strerror(errno);
        return false;
    }
    FILE* out = fdopen(descriptor, "wb");
    if (out == nullptr) {
        close(descriptor);
        unlink(temporary.c_str());
        *error = std::string("cannot create: ") + std::strerror(errno);
        return false;
    }
    bool ok = write(out);
    if (std::fflush(out) != 0 && ok) {
        *error = std::string("write failed: ") + std::strerror(errno);
        ok = false;
    }
    if (std::fclose(out) != 0 && ok) {
        *error = std::string("write failed: ") + std::strerror(errno);
        ok = false;
    }
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

}  // namespace

bool SaveImageFile(IQEL* image, const std::string& path, int quality, std::string* error) {
    const std::string extension = LowerExtension(path);
    if (!IsWritableImageName(path)) {
        *error =
            "unsupported output format '." + extension + "' (qel writes .png, .jpg, .pgm, .ppm, .pnm, .pam)";
        return false;
    }
    return WriteAtomically(path, error, [&](FILE* out) {
        if (extension == "png") return WritePng(out, image, error);
        if (extension == "jpg" || extension == "jpeg") return WriteJpeg(out, image, quality, error);
        const char kind = extension == "pgm"   ? 'g'
                          : extension == "ppm" ? 'p'
                          : extension == "pam" ? 'a'
                                               : 'n';
        return WriteNetpbm(out, image, kind, error);
    });
}

bool SaveTextFile(const std::string& text, const std::string& path, std::string* error) {
    return WriteAtomically(path, error, [&](FILE* out) {
        if (std::fwrite(text.data(), 1, text.size(), out) == text.size()) return true;
        *error = "write failed";
        return false;
    });
}

}  // namespace qeltool
