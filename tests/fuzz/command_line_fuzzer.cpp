// qel's command line in-process: the fuzzer's bytes are words (split at
// white space) run as a chain through ParseStep and RunStep on a small image,
// as qel runs them. A refused word or step is qel's status 2 or 1 and must say
// why on one line; a crash, a hang or a step that consumes no word is a finding.
//
// With QEL_FUZZ_PRINT_DICTIONARY set, the target prints a libFuzzer
// dictionary of every operation and parameter name instead, so that the
// dictionary follows the operation table.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_image.h"
#include "tools/operations.h"
#include "tools/raster.h"
#include "tools/sample_chart.h"

namespace {

// Results stay small so that each chain is quick under the sanitizers.
constexpr long long kPixelLimit = 1 << 16;

void PrintDictionary() {
    for (const qeltool::OperationSpec& op : qeltool::Operations()) {
        std::printf("\"%s\"\n", op.name);
        for (const qeltool::Param& param : op.params)
            if (param.name[0] == '-') std::printf("\"%s\"\n", param.name);
    }
    for (const char* value : {"sample", "pattern", "50%", "3x2", "1,2", "0:0,255:255", "ff8000", "MONO",
                              "ARGB", "nan", "inf", "-1", "0", "2147483648", "1e999", "0x10"})
        std::printf("\"%s\"\n", value);
}

// Second inputs are the built-in images only: file names from the fuzzer
// could name devices that never end.
void KeepToBuiltInImages(qeltool::Step* step) {
    for (const qeltool::Param& param : step->operation->params)
        if (param.kind == qeltool::ParamKind::File && step->args.Has(param.name) &&
            step->args.Text(param.name) != "sample")
            step->args.Set(param.name, "pattern");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (std::getenv("QEL_FUZZ_PRINT_DICTIONARY") != nullptr) {
        PrintDictionary();
        std::exit(0);
    }
    qeltest::TestHost();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // A NUL ends no word on a command line: there it is white space too.
    std::string text(reinterpret_cast<const char*>(data), size);
    std::replace(text.begin(), text.end(), '\0', ' ');
    std::istringstream in(text);
    const std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
    const qel::Host& host = qeltest::TestHost();
    qeltool::OperationContext context(host, kPixelLimit);
    SmartPtr<IQEL> image = qeltool::FromRaster(host, qeltool::SamplePattern(19, 13), 32, QEL_MODEL_ARGB);
    std::srand(1);
    for (size_t i = 0; i < words.size();) {
        if (qeltool::FindOperation(words[i]) == nullptr) {
            ++i;  // qel: an unknown word, status 2
            continue;
        }
        const size_t start = i;
        qeltool::Step step;
        std::string error, note;
        // A refused step ends the chain, as in qel (status 2 for its words, 1
        // for running it), and says why on one line.
        const bool parsed = qeltool::ParseStep(words, &i, &step, &error);
        if (parsed && (i <= start || step.operation == nullptr)) std::abort();
        if (parsed) KeepToBuiltInImages(&step);
        if (!parsed || !qeltool::RunStep(context, step, image, &note, &error)) {
            if (error.empty() || error.find('\n') != std::string::npos) std::abort();
            return 0;
        }
        if (!image) std::abort();
    }
    return 0;
}
