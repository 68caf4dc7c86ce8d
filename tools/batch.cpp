// qel batch: one chain on many files, several at a time. Every worker thread
// has its own components (OperationContext), the module is initialised and
// makes its first image on this thread before the workers start, and a chain
// that draws random numbers runs on one thread, reseeded per file, so that
// each result equals a single run's.
#include "tools/batch.h"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <thread>

#include "tools/image_file.h"
#include "tools/operations.h"
#include "tools/people.h"
#include "tools/pixel_limit.h"
#include "tools/progress.h"

namespace qeltool {
namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

int UsageError(const std::string& message) {
    std::fprintf(stderr, "qel: batch: %s\n", message.c_str());
    return kExitUsage;
}

struct BatchOptions {
    std::vector<std::string> inputs;
    std::string folder;
    std::string format;
    int jobs = 0;  // 0: one per core
    bool quiet = false;
    bool autorotate = true;
    ReadingChoices reading;  // as single runs read: palettes and bilevel images expanded
    unsigned seed = 1;
    long long maxPixels = kDefaultPixelLimit;
    SaveOptions save;
    std::vector<Step> steps;
};

bool ParseWhole(const std::string& text, long low, long high, long* value) {
    char* end = nullptr;
    errno = 0;
    *value = std::strtol(text.c_str(), &end, 10);
    return !text.empty() && *end == '\0' && errno == 0 && *value >= low && *value <= high;
}

// Reads the words before "--" (inputs and options) and the chain after it.
bool ParseBatch(const std::vector<std::string>& words, BatchOptions* options, std::string* error) {
    size_t i = 1;
    for (; i < words.size() && words[i] != "--"; ++i) {
        const std::string& word = words[i];
        if (word == "--quiet") {
            options->quiet = true;
            continue;
        }
        if (word == "--no-autorotate") {
            options->autorotate = false;
            continue;
        }
        if (word == "--keep-palette" || word == "--keep-depth") {
            (word == "--keep-palette" ? options->reading.keepPalette : options->reading.keepDepth) = true;
            continue;
        }
        const bool valued = word == "-o" || word == "--format" || word == "-j" || word == "--quality" ||
                            word == "--seed" || word == "--max-pixels";
        if (!valued) {
            if (word.size() > 1 && word[0] == '-') {
                *error = "unknown option '" + word + "' (the operations come after --)";
                return false;
            }
            options->inputs.push_back(word);
            continue;
        }
        if (i + 1 >= words.size()) {
            *error = word + " needs a value";
            return false;
        }
        const std::string& value = words[++i];
        long number = 0;
        if (word == "-o") {
            options->folder = value;
        } else if (word == "--format") {
            options->format = value;
            if (!IsWritableImageName("x." + value)) {
                *error = "unsupported --format '" + value + "'";
                return false;
            }
        } else if (word == "-j") {
            if (!ParseWhole(value, 1, 256, &number)) {
                *error = "bad -j '" + value + "': expected a whole number from 1 to 256";
                return false;
            }
            options->jobs = static_cast<int>(number);
        } else if (word == "--quality") {
            if (!ParseWhole(value, 1, 100, &number)) {
                *error = "bad --quality '" + value + "': expected a whole number from 1 to 100";
                return false;
            }
            options->save.quality = static_cast<int>(number);
            options->save.webpLossless = false;
        } else if (word == "--seed") {
            if (!ParseWhole(value, 0, 0x7FFFFFFF, &number)) {
                *error = "bad --seed '" + value + "': expected a whole number from 0 to 2147483647";
                return false;
            }
            options->seed = static_cast<unsigned>(number);
        } else if (!ParsePixelLimit(value, &options->maxPixels)) {
            *error = "bad --max-pixels '" + value + "': expected a whole number of pixels from 1 up";
            return false;
        }
    }
    if (options->inputs.empty()) {
        *error = "no input files (qel batch IN... -o DIR -- OP [ARGS]...)";
        return false;
    }
    if (options->folder.empty()) {
        *error = "say where to write the results with -o DIR";
        return false;
    }
    if (i >= words.size()) {
        *error = "put the operations after -- (qel batch IN... -o DIR -- OP [ARGS]...)";
        return false;
    }
    for (++i; i < words.size();) {
        if (FindOperation(words[i]) == nullptr) {
            *error = words[i][0] == '-' ? "the batch's options come before --, not '" + words[i] + "'"
                                        : "unknown operation '" + words[i] + "' (qel list shows them all)";
            return false;
        }
        Step step;
        if (!ParseStep(words, &i, &step, error)) return false;
        options->steps.push_back(std::move(step));
    }
    if (options->steps.empty()) {
        *error = "no operations after --";
        return false;
    }
    return true;
}

std::string OutputName(const BatchOptions& options, const std::string& input) {
    std::string extension = options.format;
    if (extension.empty()) {
        const size_t dot = input.rfind('.');
        const size_t slash = input.rfind('/');
        if (dot != std::string::npos && (slash == std::string::npos || dot > slash))
            extension = input.substr(dot + 1);
        if (!IsWritableImageName("x." + extension)) extension = "png";
    }
    return options.folder + "/" + FileStem(input) + "." + extension;
}

bool UsesRand(const std::vector<Step>& steps) {
    for (const Step& step : steps) {
        const std::string name = step.operation->name;
        if (name == "noise" || name == "jitter") return true;
    }
    return false;
}

// Reads, runs the chain on and writes one file; false with `error` set.
bool ProcessFile(OperationContext& context, const BatchOptions& options, const std::string& input,
                 const std::string& output, bool reseed, ProgressBar* progress, std::string* error) {
    if (reseed) std::srand(options.seed);
    LoadOptions load;
    load.maxPixels = options.maxPixels;
    load.autorotate = options.autorotate;
    ImageMetadata metadata;
    SmartPtr<IQEL> image = LoadImageFile(context.Host(), input, load, &metadata, error);
    if (!image) return false;
    if (!options.quiet)
        for (const std::string& note : metadata.notes) progress->Say("qel: " + input + ": " + note);
    image = ExpandForViewing(context.Host(), std::move(image), options.reading);
    for (const Step& step : options.steps) {
        std::string note;
        if (!RunStep(context, step, image, &note, error)) return false;
    }
    SaveOptions save = options.save;
    save.format = options.format;
    if (!SaveImageFile(image.Get(), output, save, &metadata, error)) {
        *error = output + ": " + *error;
        return false;
    }
    return true;
}

}  // namespace

std::string FileStem(const std::string& path) {
    const size_t slash = path.rfind('/');
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const size_t dot = name.rfind('.');
    if (dot != std::string::npos && dot > 0) name.resize(dot);
    return name;
}

int BatchCommand(const std::vector<std::string>& words) {
    BatchOptions options;
    std::string error;
    if (!ParseBatch(words, &options, &error)) return UsageError(error);
    std::vector<std::string> outputs;
    std::set<std::string> seen;
    for (const std::string& input : options.inputs) {
        if (input == "-") return UsageError("standard input cannot be part of a batch");
        outputs.push_back(OutputName(options, input));
        if (!seen.insert(outputs.back()).second)
            return UsageError("two inputs would both be written to " + outputs.back());
    }
    if (mkdir(options.folder.c_str(), 0777) != 0 && errno != EEXIST) {
        std::fprintf(stderr, "qel: %s: cannot make the folder: %s\n", options.folder.c_str(), std::strerror(errno));
        return kExitFailure;
    }

    qel::Host host;
    if (!host.Load(qel::DefaultModuleFolder(), &error)) {
        std::fprintf(stderr, "qel: cannot load the imaging module from %s: %s\n",
                     qel::DefaultModuleFolder().c_str(), error.c_str());
        return kExitFailure;
    }
    // The module fills its caches on the first image it makes; do that here,
    // before any worker starts.
    if (!host.NewImage(1, 1, 24, QEL_MODEL_BGR)) {
        std::fprintf(stderr, "qel: the imaging module cannot make an image\n");
        return kExitFailure;
    }
    const int total = static_cast<int>(options.inputs.size());
    int jobs = options.jobs > 0 ? options.jobs : static_cast<int>(std::thread::hardware_concurrency());
    if (jobs < 1) jobs = 1;
    const bool random = UsesRand(options.steps);
    if (random && jobs > 1) {
        if (!options.quiet && options.jobs > 1)
            std::fprintf(stderr, "qel: noise and jitter share one random sequence: running on one thread so "
                                 "that every file gets the result of a single run\n");
        jobs = 1;
    }
    if (jobs > total) jobs = total;

    ProgressBar progress(total, StandardErrorIsTerminal());
    std::atomic<int> next{0}, done{0}, failed{0};
    auto work = [&] {
        OperationContext context(host, options.maxPixels);
        for (int n; (n = next++) < total;) {
            std::string reason;
            const bool ok = ProcessFile(context, options, options.inputs[n], outputs[n], random, &progress, &reason);
            if (!ok) {
                ++failed;
                progress.Say("qel: " + (reason.compare(0, outputs[n].size(), outputs[n]) == 0
                                            ? reason
                                            : options.inputs[n] + ": " + reason));
            }
            const int finished = ++done;
            progress.Update(finished, failed);
        }
    };
    std::vector<std::thread> workers;
    for (int k = 1; k < jobs; ++k) workers.emplace_back(work);
    work();
    for (std::thread& worker : workers) worker.join();
    const double seconds = progress.Seconds();
    progress.Finish();
    const std::string failures = failed > 0 ? ", " + std::to_string(failed.load()) + " failed" : "";
    std::fprintf(stderr, "qel: %d of %d files written to %s%s in %.1f s (%.1f files/s, %d thread%s)\n",
                 total - failed, total, options.folder.c_str(), failures.c_str(), seconds,
                 seconds > 0 ? total / seconds : 0.0, jobs, jobs == 1 ? "" : "s");
    return failed > 0 ? kExitFailure : 0;
}

}  // namespace qeltool
