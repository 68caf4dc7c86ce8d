// qel: the command-line host of the imaging module. It loads the module and
// the host runtime from _binLIN64/ beside itself, as any host would, reads an
// image (or draws the built-in chart), runs a chain of operations on it and
// writes the result.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tools/gallery.h"
#include "tools/image_file.h"
#include "tools/operations.h"
#include "tools/pixel_limit.h"
#include "tools/raster.h"
#include "tools/sample_chart.h"

namespace {

using qeltool::Step;

constexpr int kExitFailure = 1;  // a file or an operation failed
constexpr int kExitUsage = 2;    // the command line is wrong

const char kUsage[] =
    "qel - run the imaging module's operations on image files\n"
    "\n"
    "usage:\n"
    "  qel [IN] OP [ARGS] [OP [ARGS]...] [OUT]   run operations left to right\n"
    "  qel gallery [IN] -o DIR                   every operation, as a web page\n"
    "  qel list                                  every operation, by component\n"
    "  qel help OP                               one operation in detail\n"
    "\n"
    "IN is a PNG, JPEG, PBM, PGM, PPM or PAM file, or 'sample' for the built-in\n"
    "test chart (also used when IN is left out). OUT is written by its extension:\n"
    ".png, .jpg/.jpeg, .pgm, .ppm, .pnm or .pam. Without OUT, qel prints the\n"
    "result's size and format.\n"
    "\n"
    "options:\n"
    "  --time        print how long each step took\n"
    "  --quality N   JPEG quality, 1-100 (default 90)\n"
    "  --seed N      seed of the random numbers of noise and jitter (default 1)\n"
    "  -o FILE       the output file (or DIR for gallery)\n"
    "  --thumb N     gallery thumbnail size in pixels (default 160)\n"
    "  --max-pixels N  largest image read or made, in pixels (default 268435456)\n"
    "\n"
    "examples:\n"
    "  qel photo.jpg blur rotate 30 gamma 1.4 out.png\n"
    "  qel sample median 5 resample 50% small.png\n"
    "  qel a.png subtract b.png --abs diff.png\n"
    "  qel gallery -o gallery\n";

struct Options {
    bool time = false;
    int quality = 90;
    unsigned seed = 1;
    int thumbnail = 160;
    long long maxPixels = qeltool::kDefaultPixelLimit;
    std::string output;
};

int UsageError(const std::string& message) {
    std::fprintf(stderr, "qel: %s\n", message.c_str());
    return kExitUsage;
}

// Takes a global option at words[*i], if it is one. Returns false on a bad value.
bool TakeGlobalOption(const std::vector<std::string>& words, size_t* i, Options* options, bool* taken,
                      std::string* error) {
    const std::string& word = words[*i];
    *taken = true;
    if (word == "--time") {
        options->time = true;
        ++*i;
        return true;
    }
    const bool valued = word == "--quality" || word == "--seed" || word == "-o" || word == "--thumb" ||
                        word == "--max-pixels";
    if (!valued) {
        *taken = false;
        return true;
    }
    if (*i + 1 >= words.size()) {
        *error = word + " needs a value";
        return false;
    }
    const std::string& value = words[*i + 1];
    char* end = nullptr;
    const long number = std::strtol(value.c_str(), &end, 10);
    const bool isNumber = !value.empty() && *end == '\0';
    if (word == "--max-pixels") {
        if (!qeltool::ParsePixelLimit(value, &options->maxPixels)) {
            *error = "bad --max-pixels '" + value + "': expected a whole number of pixels from 1 up";
            return false;
        }
    } else if (word == "--quality") {
        if (!isNumber || number < 1 || number > 100) {
            *error = "bad --quality '" + value + "': expected a whole number from 1 to 100";
            return false;
        }
        options->quality = static_cast<int>(number);
    } else if (word == "--seed") {
        if (!isNumber || number < 0 || number > 0x7FFFFFFF) {
            *error = "bad --seed '" + value + "': expected a whole number from 0 to 2147483647";
            return false;
        }
        options->seed = static_cast<unsigned>(number);
    } else if (word == "--thumb") {
        if (!isNumber || number < 16 || number > 1024) {
            *error = "bad --thumb '" + value + "': expected a whole number from 16 to 1024";
            return false;
        }
        options->thumbnail = static_cast<int>(number);
    } else {
        options->output = value;
    }
    *i += 2;
    return true;
}

// Whether words[from...] are global options only, so that the word before
// them ends the chain (the output file).
bool OnlyGlobalOptionsFrom(const std::vector<std::string>& words, size_t from) {
    Options scratch;
    for (size_t i = from; i < words.size();) {
        bool taken = false;
        std::string error;
        if (!TakeGlobalOption(words, &i, &scratch, &taken, &error) || !taken) return false;
    }
    return true;
}

SmartPtr<IQEL> LoadInput(const qel::Host& host, const std::string& name, long long maxPixels,
                         std::string* error) {
    if (name == "sample") return qeltool::LoadSampleChart(host, maxPixels, error);
    std::string reason;
    SmartPtr<IQEL> image = qeltool::LoadImageFile(host, name, maxPixels, &reason);
    if (!image) *error = name + ": " + reason;
    return image;
}

bool LoadHost(qel::Host* host) {
    std::string error;
    if (host->Load(qel::FindModuleFolder(), &error)) return true;
    std::fprintf(stderr, "qel: cannot load the imaging module from %s: %s\n",
                 qel::FindModuleFolder().c_str(), error.c_str());
    return false;
}

double Since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

void PrintTime(const Options& options, const std::string& what, double ms) {
    if (options.time) std::fprintf(stderr, "%9.2f ms  %s\n", ms, what.c_str());
}

int Gallery(const std::vector<std::string>& words) {
    Options options;
    std::string input;
    for (size_t i = 1; i < words.size();) {
        bool taken = false;
        std::string error;
        if (!TakeGlobalOption(words, &i, &options, &taken, &error)) return UsageError("gallery: " + error);
        if (taken) continue;
        if (!input.empty() || words[i].rfind("-", 0) == 0)
            return UsageError("gallery: unexpected '" + words[i] + "'");
        input = words[i++];
    }
    if (options.output.empty()) return UsageError("gallery: say where to write it with -o DIR");
    qel::Host host;
    if (!LoadHost(&host)) return kExitFailure;
    std::string error;
    SmartPtr<IQEL> image = LoadInput(host, input.empty() ? "sample" : input, options.maxPixels, &error);
    if (!image) {
        std::fprintf(stderr, "qel: %s\n", error.c_str());
        return kExitFailure;
    }
    std::srand(options.seed);
    qeltool::OperationContext context(host, options.maxPixels);
    qeltool::GalleryOptions gallery;
    gallery.inputName = input.empty() ? "the built-in sample chart" : input;
    gallery.folder = options.output;
    gallery.thumbnailSide = options.thumbnail;
    return qeltool::RunGallery(context, image.Get(), gallery);
}

int Chain(const std::vector<std::string>& words) {
    Options options;
    std::string input;
    std::vector<Step> steps;
    std::string error;
    for (size_t i = 0; i < words.size();) {
        bool taken = false;
        if (!TakeGlobalOption(words, &i, &options, &taken, &error)) return UsageError(error);
        if (taken) continue;
        const std::string& word = words[i];
        if (word.rfind("--", 0) == 0) {
            const std::string after =
                steps.empty() ? "" : " for " + std::string(steps.back().operation->name);
            return UsageError("unknown option '" + word + "'" + after);
        }
        if (qeltool::FindOperation(word) != nullptr) {
            if (input.empty()) input = "sample";
            Step step;
            if (!qeltool::ParseStep(words, &i, &step, &error)) return UsageError(error);
            steps.push_back(std::move(step));
            continue;
        }
        if (input.empty()) {
            input = word;
        } else if (OnlyGlobalOptionsFrom(words, i + 1) && options.output.empty()) {
            options.output = word;
        } else if (OnlyGlobalOptionsFrom(words, i + 1) && word.find('.') != std::string::npos) {
            return UsageError("two output files: '" + options.output + "' and '" + word + "'");
        } else {
            return UsageError("unknown operation '" + word + "' (qel list shows them all)");
        }
        ++i;
    }
    if (!options.output.empty() && !qeltool::IsWritableImageName(options.output))
        return UsageError(
            options.output +
            ": unsupported output format (qel writes .png, .jpg, .jpeg, .pgm, .ppm, .pnm, .pam)");

    qel::Host host;
    if (!LoadHost(&host)) return kExitFailure;
    std::srand(options.seed);
    auto start = std::chrono::steady_clock::now();
    SmartPtr<IQEL> image = LoadInput(host, input, options.maxPixels, &error);
    if (!image) {
        std::fprintf(stderr, "qel: %s\n", error.c_str());
        return kExitFailure;
    }
    PrintTime(options, "read " + input, Since(start));
    qeltool::OperationContext context(host, options.maxPixels);
    for (const Step& step : steps) {
        std::string note;
        start = std::chrono::steady_clock::now();
        if (!qeltool::RunStep(context, step, image, &note, &error)) {
            std::fprintf(stderr, "qel: %s\n", error.c_str());
            return kExitFailure;
        }
        PrintTime(options, step.text, Since(start));
        if (!note.empty()) std::printf("%s: %s\n", step.operation->name, note.c_str());
    }
    if (options.output.empty()) {
        std::printf("%s\n", qeltool::DescribeFormat(image.Get()).c_str());
        return 0;
    }
    start = std::chrono::steady_clock::now();
    if (!qeltool::SaveImageFile(image.Get(), options.output, options.quality, &error)) {
        std::fprintf(stderr, "qel: %s: %s\n", options.output.c_str(), error.c_str());
        return kExitFailure;
    }
    PrintTime(options, "write " + options.output, Since(start));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.empty() || words[0] == "--help" || words[0] == "-h") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (words[0] == "list") {
        qeltool::PrintOperationList(stdout);
        return 0;
    }
    if (words[0] == "help") {
        if (words.size() < 2) {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (qeltool::PrintOperationHelp(stdout, words[1])) return 0;
        return UsageError("unknown operation '" + words[1] + "' (qel list shows them all)");
    }
    if (words[0] == "gallery") return Gallery(words);
    return Chain(words);
}
