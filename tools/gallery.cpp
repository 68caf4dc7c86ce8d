// The gallery page and contact sheet.
#include "tools/gallery.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "tools/image_file.h"
#include "tools/raster.h"
#include "tools/sample_chart.h"

namespace qeltool {
namespace {

struct Entry {
    std::string name;
    std::string step;
    std::string file;  // thumbnail of the result, empty when the step failed
    std::string outcome;
    double milliseconds = 0;
    Raster thumbnail;
};

bool MakeFolders(const std::string& folder, std::string* error) {
    for (size_t at = 1; at <= folder.size(); ++at) {
        if (at != folder.size() && folder[at] != '/') continue;
        const std::string prefix = folder.substr(0, at);
        if (mkdir(prefix.c_str(), 0777) != 0 && errno != EEXIST) {
            *error = prefix + ": cannot create folder: " + std::strerror(errno);
            return false;
        }
    }
    return true;
}

std::string Html(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out.push_back(c);
        }
    }
    return out;
}

std::string Milliseconds(double ms) {
    char text[32];
    std::snprintf(text, sizeof(text), ms < 10 ? "%.2f ms" : "%.1f ms", ms);
    return text;
}

// Images the representative step needs: an integer "MONO" image for Scale8,
// a 24-bit one for the depth increase.
SmartPtr<IQEL> PrepareInput(OperationContext& context, IQEL* input, const std::string& name) {
    if (name == "scale8") {
        Raster grey = ToRaster(input);
        SmartPtr<IQEL> mono = FromRaster(context.Host(), grey, 32, QEL_MODEL_MONO);
        const qel::Pixels p = qel::PixelsOf(mono.Get());
        for (int y = 0; y < p.height; ++y)
            for (int x = 0; x < p.width; ++x) {
                int32_t v;
                std::memcpy(&v, p.Row(y) + 4 * x, 4);
                v *= 4;  // integers up to 1020, brought back by the factor 0.25
                std::memcpy(p.Row(y) + 4 * x, &v, 4);
            }
        return mono;
    }
    if (name == "depth") return FromRaster(context.Host(), ToRaster(input), 24, QEL_MODEL_BGR);
    return CopyImage(context.Host(), input);
}

// Alpha shows as a light and dark checkerboard.
void Composite(const Raster& thumb, Raster* sheet, int left, int top) {
    for (int y = 0; y < thumb.height; ++y)
        for (int x = 0; x < thumb.width; ++x) {
            const uint8_t* s = thumb.At(x, y);
            uint8_t* d = sheet->At(left + x, top + y);
            const int backdrop = ((x / 8) + (y / 8)) % 2 ? 200 : 150;
            for (int c = 0; c < 3; ++c)
                d[c] = static_cast<uint8_t>((s[c] * s[3] + backdrop * (255 - s[3]) + 127) / 255);
            d[3] = 255;
        }
}

bool WriteContactSheet(OperationContext& context, const Raster& original, const std::vector<Entry>& entries,
                       const std::string& path, int side, std::string* error) {
    const int columns = 8, label = 12, gap = 6;
    const int cells = static_cast<int>(entries.size()) + 1;
    const int rows = (cells + columns - 1) / columns;
    Raster sheet(columns * (side + gap) + gap, rows * (side + label + gap) + gap);
    sheet.grey = false;
    for (size_t i = 0; i < sheet.rgba.size(); i += 4)
        sheet.rgba[i] = 40, sheet.rgba[i + 1] = 44, sheet.rgba[i + 2] = 52, sheet.rgba[i + 3] = 255;
    const uint8_t white[4] = {235, 235, 235, 255}, red[4] = {255, 110, 100, 255};
    for (int cell = 0; cell < cells; ++cell) {
        const int left = gap + (cell % columns) * (side + gap),
                  top = gap + (cell / columns) * (side + label + gap);
        const Entry* entry = cell == 0 ? nullptr : &entries[static_cast<size_t>(cell - 1)];
        const Raster& thumb = entry == nullptr ? original : entry->thumbnail;
        if (thumb.width > 0)
            Composite(thumb, &sheet, left + (side - thumb.width) / 2, top + (side - thumb.height) / 2);
        const std::string caption = entry == nullptr ? "ORIGINAL" : entry->name;
        DrawText(&sheet, left, top + side + 3, caption.substr(0, static_cast<size_t>(side / 6)),
                 entry != nullptr && entry->file.empty() ? red : white);
    }
    SmartPtr<IQEL> image = FromRaster(context.Host(), sheet, 24, QEL_MODEL_BGR);
    return image && SaveImageFile(image.Get(), path, 90, error);
}

}  // namespace

int RunGallery(OperationContext& context, IQEL* input, const GalleryOptions& options) {
    std::string error;
    if (!MakeFolders(options.folder, &error)) {
        std::fprintf(stderr, "qel: %s\n", error.c_str());
        return 1;
    }
    const std::string folder = options.folder.back() == '/' ? options.folder : options.folder + "/";
    const int side = options.thumbnailSide;
    const Raster original = Thumbnail(ToRaster(input), side);
    SmartPtr<IQEL> originalImage = FromRaster(context.Host(), original, 32, QEL_MODEL_ARGB);
    if (!originalImage || !SaveImageFile(originalImage.Get(), folder + "original.png", 90, &error)) {
        std::fprintf(stderr, "qel: %soriginal.png: %s\n", folder.c_str(), error.c_str());
        return 1;
    }
    const bool terminal = isatty(STDERR_FILENO) != 0;
    std::vector<Entry> entries;
    const std::vector<OperationSpec>& operations = Operations();
    int failures = 0;
    for (size_t n = 0; n < operations.size(); ++n) {
        const OperationSpec& op = operations[n];
        if (terminal)
            std::fprintf(stderr, "\r\033[K[%2zu/%zu] %s", n + 1, operations.size(), op.gallery),
                std::fflush(stderr);
        Entry entry;
        entry.name = op.name;
        entry.step = op.gallery;
        std::vector<std::string> words;
        for (size_t start = 0, end; start < entry.step.size(); start = end + 1) {
            end = entry.step.find(' ', start);
            if (end == std::string::npos) end = entry.step.size();
            words.push_back(entry.step.substr(start, end - start));
        }
        Step step;
        size_t index = 0;
        std::string note;
        SmartPtr<IQEL> image = PrepareInput(context, input, op.name);
        bool ok = ParseStep(words, &index, &step, &error) && image;
        if (ok) {
            const auto start = std::chrono::steady_clock::now();
            ok = RunStep(context, step, image, &note, &error);
            entry.milliseconds =
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        }
        if (ok) {
            entry.thumbnail = Thumbnail(ToRaster(image.Get()), side);
            SmartPtr<IQEL> thumb = FromRaster(context.Host(), entry.thumbnail, 32, QEL_MODEL_ARGB);
            char file[64];
            std::snprintf(file, sizeof(file), "%02zu-%s.png", n + 1, op.name);
            if (thumb && entry.thumbnail.width > 0 && SaveImageFile(thumb.Get(), folder + file, 90, &error)) {
                entry.file = file;
                entry.outcome = Milliseconds(entry.milliseconds) + (note.empty() ? "" : ", " + note);
            } else {
                entry.outcome =
                    "no picture: " + (entry.thumbnail.width > 0 ? error : std::string("empty result"));
                ++failures;
            }
        } else {
            entry.outcome = "failed: " + error;
            ++failures;
        }
        entries.push_back(std::move(entry));
    }
    if (terminal) std::fprintf(stderr, "\r\033[K");

    if (!WriteContactSheet(context, original, entries, folder + "contact-sheet.png", side, &error)) {
        std::fprintf(stderr, "qel: %scontact-sheet.png: %s\n", folder.c_str(), error.c_str());
        return 1;
    }
    std::string page =
        "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>qel gallery</title>\n<style>\n"
        "body{font-family:sans-serif;background:#20242c;color:#e8e8e8;margin:2em}\n"
        "figure{display:inline-block;margin:0 1em 1.5em "
        "0;padding:.6em;background:#2c313c;border-radius:6px;vertical-align:top}\n"
        "img{background:repeating-conic-gradient(#999 0 25%,#c8c8c8 0 50%) 0 0/16px 16px;margin-right:4px}\n"
        "figcaption{max-width:" +
        std::to_string(2 * side + 8) +
        "px;font-size:13px;margin-top:.4em}\n"
        "code{color:#ffd479}.failed{color:#ff7a70}\n</style></head><body>\n"
        "<h1>qel gallery</h1>\n<p>Input: " +
        Html(options.inputName) + " (" + Html(DescribeFormat(input)) + "). " +
        std::to_string(entries.size() - static_cast<size_t>(failures)) + " of " +
        std::to_string(entries.size()) +
        " operations ran. <a href=\"contact-sheet.png\">Contact sheet</a>.</p>\n";
    for (const Entry& entry : entries) {
        page += "<figure><img src=\"original.png\" alt=\"original\">";
        if (!entry.file.empty()) page += "<img src=\"" + entry.file + "\" alt=\"" + Html(entry.name) + "\">";
        page += "<figcaption><b>" + Html(entry.name) + "</b> <code>" + Html(entry.step) + "</code><br>";
        page += entry.file.empty() ? "<span class=\"failed\">" + Html(entry.outcome) + "</span>"
                                   : Html(entry.outcome);
        page += "</figcaption></figure>\n";
    }
    page += "</body></html>\n";
    if (!SaveTextFile(page, folder + "index.html", &error)) {
        std::fprintf(stderr, "qel: %sindex.html: %s\n", folder.c_str(), error.c_str());
        return 1;
    }
    std::printf("gallery: %sindex.html, %zu operations, %d without a result\n", folder.c_str(),
                entries.size(), failures);
    return 0;
}

}  // namespace qeltool
