// qel: the command-line host of the imaging module. It loads the module and
// the host runtime from _binLIN64/ beside itself, as any host would, reads an
// image (or draws the built-in chart), runs a chain of operations on it and
// writes the result.
#include <sys/stat.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qel/version.h"
#include "tools/batch.h"
#include "tools/gallery.h"
#include "tools/image_file.h"
#include "tools/operations.h"
#include "tools/people.h"
#include "tools/pixel_limit.h"
#include "tools/progress.h"
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
    "  qel IN OP [ARGS] [OP [ARGS]...] [OUT]     run operations left to right\n"
    "  qel sample OP [ARGS]... [OUT]             the same on the built-in test chart\n"
    "  qel gallery [IN] -o DIR                   every operation, as a web page\n"
    "  qel list                                  every operation, by component\n"
    "  qel help OP    (or qel OP --help)         one operation in detail\n"
    "  qel batch IN... -o DIR [-j N] -- OP [ARGS]...  one chain on many files\n"
    "  qel info FILE... [--json]                 size, depth, alpha, metadata\n"
    "  qel --version\n"
    "\n"
    "IN is a PNG, JPEG, TIFF (page N as FILE[N]), WebP, GIF, BMP, PBM, PGM, PPM or\n"
    "PAM file, '-' for standard input, or 'sample' for the built-in test chart\n"
    "(also used when IN is left out; then qel never writes over an existing\n"
    "file). OUT is written by its extension: .png, .jpg/.jpeg, .tif/.tiff, .webp,\n"
    ".gif, .bmp, .pbm, .pgm, .ppm, .pnm or .pam; '-' writes standard output in\n"
    "the --format given. Without OUT, qel prints the result's size and format.\n"
    "\n"
    "qel shows what a person means: palette images are read as colour and 1-bit\n"
    "images as grey 0/255, alpha survives resample, rotate, add and copy, and\n"
    "rotate turns clockwise by any angle (docs/qel.md lists the details).\n"
    "\n"
    "options:\n"
    "  --time          print how long each step took\n"
    "  --quality N     JPEG quality, 1-100 (default 90)\n"
    "  --seed N        seed of the random numbers of noise and jitter (default 1)\n"
    "  -o FILE         the output file (or DIR for gallery)\n"
    "  --thumb N       gallery thumbnail size in pixels (default 160)\n"
    "  --max-pixels N  largest image read or made, in pixels (default 268435456)\n"
    "  --keep-palette  work on palette indices as the module reads them\n"
    "  --keep-depth    keep 1- and 4-bit images at their depth\n"
    "  --format EXT    the output's format (png, jpg, tif, webp, ...), needed for '-'\n"
    "  --quiet         no notes (such as 16-bit samples read as 8-bit)\n"
    "  --no-autorotate keep the pixels as stored, whatever the EXIF orientation\n"
    "\n"
    "examples:\n"
    "  qel photo.jpg blur rotate 30 gamma 1.4 out.png\n"
    "  qel sample median 5 resample 50% small.png\n"
    "  qel photo.jpg resample 800x800 --fit crop 50%x50%+25%+25% out.jpg\n"
    "  qel a.png subtract b.png --abs diff.png\n"
    "  qel gallery -o gallery\n";

struct Options {
    bool time = false;
    qeltool::ReadingChoices reading;
    int quality = 90;
    unsigned seed = 1;
    int thumbnail = 160;
    long long maxPixels = qeltool::kDefaultPixelLimit;
    std::string output;
    bool quiet = false;
    bool autorotate = true;
    bool qualityGiven = false;  // WebP is then written lossy
    std::string format;
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
    if (word == "--no-autorotate") {
        options->autorotate = false;
        ++*i;
        return true;
    }
    bool* flag = word == "--time"           ? &options->time
                 : word == "--quiet"        ? &options->quiet
                 : word == "--keep-palette" ? &options->reading.keepPalette
                 : word == "--keep-depth"   ? &options->reading.keepDepth
                                            : nullptr;
    if (flag != nullptr) {
        *flag = true;
        ++*i;
        return true;
    }
    const bool valued = word == "--quality" || word == "--seed" || word == "-o" || word == "--thumb" ||
                        word == "--max-pixels" || word == "--format";
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
        options->qualityGiven = true;
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
    } else if (word == "--format") {
        if (!qeltool::IsWritableImageName("x." + value)) {
            *error = "unsupported --format '" + value + "'";
            return false;
        }
        options->format = value;
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

// The image as a person sees it (see tools/people.h), or the built-in chart.
SmartPtr<IQEL> LoadInput(const qel::Host& host, const std::string& name, const Options& options,
                         qeltool::ImageMetadata* metadata, std::string* error) {
    if (name == "sample") return qeltool::LoadSampleChart(host, options.maxPixels, error);
    std::string reason;
    qeltool::LoadOptions load;
    load.maxPixels = options.maxPixels;
    load.autorotate = options.autorotate;
    SmartPtr<IQEL> image = qeltool::LoadImageFile(host, name, load, metadata, &reason);
    if (!image) {
        *error = name + ": " + reason;
        return image;
    }
    if (!options.quiet)
        for (const std::string& note : metadata->notes) std::fprintf(stderr, "qel: %s: %s\n", name.c_str(), note.c_str());
    return qeltool::ExpandForViewing(host, std::move(image), options.reading);
}

bool FileExists(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

// Whether a stray word looks like a value rather than an operation's name.
bool LooksLikeValue(const std::string& word) {
    return !word.empty() && (std::isdigit(static_cast<unsigned char>(word[0])) || word[0] == '-' ||
                             word[0] == '.' || word.find_first_of(",:%") != std::string::npos);
}

// "blur takes no value" or "median takes 1 value", for a value too many.
std::string ValueTooMany(const qeltool::OperationSpec& op, const std::string& word) {
    int values = 0;
    for (const qeltool::Param& param : op.params) values += param.name[0] != '-';
    const std::string name = op.name;
    if (values == 0) return name + " takes no value, so '" + word + "' is left over (qel help " + name + ")";
    return name + " takes " + std::to_string(values) + (values == 1 ? " value" : " values") + "; '" + word +
           "' is one too many (qel help " + name + ")";
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
    qeltool::ImageMetadata metadata;
    SmartPtr<IQEL> image = LoadInput(host, input.empty() ? "sample" : input, options, &metadata, &error);
    if (!image) {
        std::fprintf(stderr, "qel: %s\n", error.c_str());
        return kExitFailure;
    }
    std::srand(options.seed);
    qeltool::OperationContext context(host, options.maxPixels);
    context.SetReading(options.reading);
    qeltool::GalleryOptions gallery;
    gallery.inputName = input.empty() ? "the built-in sample chart" : input;
    gallery.folder = options.output;
    gallery.thumbnailSide = options.thumbnail;
    return qeltool::RunGallery(context, image.Get(), gallery);
}

int Chain(const std::vector<std::string>& words) {
    // "qel blur --help": the help of the operation before it.
    for (size_t i = 0; i < words.size(); ++i) {
        if (words[i] != "--help" && words[i] != "-h") continue;
        for (size_t j = i; j-- > 0;)
            if (qeltool::FindOperation(words[j]) != nullptr) {
                qeltool::PrintOperationHelp(stdout, words[j]);
                return 0;
            }
        std::fputs(kUsage, stdout);
        return 0;
    }
    Options options;
    std::string input;
    bool inputLeftOut = false;
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
            if (input.empty()) input = "sample", inputLeftOut = true;
            Step step;
            if (!qeltool::ParseStep(words, &i, &step, &error)) return UsageError(error);
            steps.push_back(std::move(step));
            continue;
        }
        if (input.empty()) {
            input = word;
        } else if (OnlyGlobalOptionsFrom(words, i + 1) && options.output.empty() &&
                   (word == "-" || word.find('.') != std::string::npos || steps.empty() ||
                    !LooksLikeValue(word))) {
            options.output = word;
        } else if (OnlyGlobalOptionsFrom(words, i + 1) && word.find('.') != std::string::npos) {
            return UsageError("two output files: '" + options.output + "' and '" + word + "'");
        } else if (!steps.empty() && LooksLikeValue(word)) {
            return UsageError(ValueTooMany(*steps.back().operation, word));
        } else {
            return UsageError("unknown operation '" + word + "' (qel list shows them all)");
        }
        ++i;
    }
    if (options.output == "-" && options.format.empty())
        return UsageError("say the format of standard output with --format (png, jpg, tif, webp, ...)");
    if (!options.output.empty() && options.format.empty() && !qeltool::IsWritableImageName(options.output)) {
        // "qel photo.png info": a command put after the file it should take.
        if (options.output == "info" || options.output == "batch" || options.output == "gallery")
            return UsageError(options.output + " is a command, not an operation: qel " + options.output + " " +
                              (options.output == "info" ? input : "...") + " (qel --help)");
        if (options.output.find('.') == std::string::npos)
            return UsageError("unknown operation '" + options.output + "' (qel list shows them all)");
        return UsageError(options.output +
                          ": unsupported output format (qel writes .png, .jpg, .jpeg, .tif, .tiff, .webp, "
                          ".gif, .bmp, .pbm, .pgm, .ppm, .pnm, .pam)");
    }
    // Without IN, the word in OUT's place is most likely the picture meant as
    // input: never write over it.
    if (inputLeftOut && !options.output.empty() && options.output != "-" && FileExists(options.output)) {
        std::string meant = "qel " + options.output;
        for (const Step& step : steps) meant += " " + step.text;
        return UsageError("no input was given and " + options.output +
                          " exists, so it is not written over; did you mean '" + meant +
                          " OUT'? (name 'sample' as IN to draw on the built-in chart)");
    }

    qel::Host host;
    if (!LoadHost(&host)) return kExitFailure;
    std::srand(options.seed);
    auto start = std::chrono::steady_clock::now();
    qeltool::ImageMetadata metadata;
    SmartPtr<IQEL> image = LoadInput(host, input, options, &metadata, &error);
    if (!image) {
        std::fprintf(stderr, "qel: %s\n", error.c_str());
        return kExitFailure;
    }
    PrintTime(options, "read " + input, Since(start));
    qeltool::OperationContext context(host, options.maxPixels);
    context.SetReading(options.reading);
    for (const Step& step : steps) {
        std::string note;
        start = std::chrono::steady_clock::now();
        bool ran = false;
        {
            const qeltool::SlowStepNotice slow(step.text, qeltool::StandardErrorIsTerminal());
            ran = qeltool::RunStep(context, step, image, &note, &error);
        }
        if (!ran) {
            std::fprintf(stderr, "qel: %s\n", error.c_str());
            return kExitFailure;
        }
        PrintTime(options, step.text, Since(start));
        // Standard output may be carrying the image.
        if (!note.empty())
            std::fprintf(options.output == "-" ? stderr : stdout, "%s: %s\n", step.operation->name, note.c_str());
    }
    if (options.output.empty()) {
        std::printf("%s\n", qeltool::DescribeFormat(image.Get()).c_str());
        return 0;
    }
    start = std::chrono::steady_clock::now();
    qeltool::SaveOptions save;
    save.quality = options.quality;
    save.webpLossless = !options.qualityGiven;
    save.format = options.format;
    bool saved = false;
    {
        const qeltool::SlowStepNotice slow("write " + options.output, qeltool::StandardErrorIsTerminal());
        saved = qeltool::SaveImageFile(image.Get(), options.output, save, &metadata, &error);
    }
    if (!saved) {
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
    if (words[0] == "--version") {
        std::printf("qel %s\n", QEL_VERSION);
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
    if (words[0] == "batch") return qeltool::BatchCommand(words);
    if (words[0] == "info") return qeltool::InfoCommand(words);
    return Chain(words);
}
