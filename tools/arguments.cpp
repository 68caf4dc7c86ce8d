// Checking and reading the values of a chain step, and the parsing of one step.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "tools/image_file.h"
#include "tools/operation_kit.h"
#include "tools/operations.h"

namespace qeltool {

const std::vector<std::string>& MethodNames() {
    static const std::vector<std::string> names = {
        "nearest",        "pixel",     "bspline",  "cubic",
        "catmull-rom",    "lanczos",   "box",      "hermite",
        "damped-hermite", "sinc",      "cosine",   "bessel",
        "gaussian",       "quadratic", "mitchell", "catmull-rom-signed"};
    return names;
}

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t at = text.find(separator, start);
        parts.push_back(text.substr(start, at == std::string::npos ? std::string::npos : at - start));
        if (at == std::string::npos) return parts;
        start = at + 1;
    }
}

namespace {

// ---- value parsing ---------------------------------------------------------

bool ParseLong(const std::string& text, long long* value) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    const long long v = std::strtoll(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0') return false;
    *value = v;
    return true;
}

bool ParseDouble(const std::string& text, double* value) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (errno != 0 || *end != '\0' || !std::isfinite(v)) return false;
    *value = v;
    return true;
}

// A coordinate: a number, or a percentage of the image's extent.
bool ParseCoordinate(const std::string& text, double* value, bool* percent) {
    *percent = !text.empty() && text.back() == '%';
    return ParseDouble(*percent ? text.substr(0, text.size() - 1) : text, value);
}

bool ParseModel(const std::string& text, unsigned* model) {
    std::string upper;
    for (char c : text) upper.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
    if (upper == "MONO")
        *model = QEL_MODEL_MONO;
    else if (upper == "BGR")
        *model = QEL_MODEL_BGR;
    else if (upper == "ARGB")
        *model = QEL_MODEL_ARGB;
    else if (upper == "ABGR")
        *model = QEL_MODEL_ABGR;
    else if (upper == "0")
        *model = 0;
    else
        return false;
    return true;
}

// The method's number, from its number or its name; -1 when it is neither.
int MethodNumber(const std::string& text) {
    long long number = -1;
    if (ParseLong(text, &number)) return number >= 0 && number <= 15 ? static_cast<int>(number) : -1;
    std::string lower;
    for (char c : text) lower.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    const std::vector<std::string>& names = MethodNames();
    const auto it = std::find(names.begin(), names.end(), lower);
    return it == names.end() ? -1 : static_cast<int>(it - names.begin());
}

// Checks `text` as a value of `param`; on failure says what was expected.
bool CheckValue(const Param& param, const std::string& text, std::string* expected) {
    switch (param.kind) {
        case ParamKind::Int: {
            long long v = 0;
            char range[96];
            std::snprintf(range, sizeof(range), "a whole number from %g to %g", param.min, param.max);
            *expected = range;
            return ParseLong(text, &v) && v >= param.min && v <= param.max;
        }
        case ParamKind::Float: {
            double v = 0;
            char range[96];
            std::snprintf(range, sizeof(range), "a number from %g to %g", param.min, param.max);
            *expected = range;
            return ParseDouble(text, &v) && v >= param.min && v <= param.max;
        }
        case ParamKind::Size: {
            *expected =
                "a size WxH, W x or xH (1 to 32768 each; a missing side keeps the proportions) or a "
                "percentage such as 50%";
            double v = 0;
            if (!text.empty() && text.back() == '%')
                return ParseDouble(text.substr(0, text.size() - 1), &v) && v > 0 && v <= 1000;
            const std::vector<std::string> parts = Split(text, 'x');
            if (parts.size() != 2 || (parts[0].empty() && parts[1].empty())) return false;
            // The pixel count is held to the pixel limit when the step runs.
            return std::all_of(parts.begin(), parts.end(), [](const std::string& side) {
                long long n = 0;
                return side.empty() || (ParseLong(side, &n) && n >= 1 && n <= 32768);
            });
        }
        case ParamKind::Area: {
            *expected = "an area WxH+X+Y (pixels or percentages such as 50%x50%+25%+25%)";
            const std::vector<std::string> parts = Split(text, '+');
            const std::vector<std::string> size = Split(parts[0], 'x');
            if ((parts.size() != 1 && parts.size() != 3) || size.size() != 2) return false;
            const auto extent = [](const std::string& t, bool offset) {
                double v = 0;
                bool percent = false;
                return ParseCoordinate(t, &v, &percent) && (offset ? v >= 0 : v > 0) &&
                       v <= (percent ? 100 : 1e6);
            };
            return extent(size[0], false) && extent(size[1], false) &&
                   (parts.size() == 1 || (extent(parts[1], true) && extent(parts[2], true)));
        }
        case ParamKind::Method: {
            *expected = "a method number 0 to 15 or its name (";
            for (size_t m = 0; m < MethodNames().size(); ++m)
                *expected += (m == 0 ? "" : ", ") + MethodNames()[m];
            *expected += ")";
            return MethodNumber(text) >= 0;
        }
        case ParamKind::Point: {
            *expected = "a point X,Y (pixels, or percentages such as 10%,20%)";
            const std::vector<std::string> parts = Split(text, ',');
            double x = 0, y = 0;
            bool px = false, py = false;
            return parts.size() == 2 && ParseCoordinate(parts[0], &x, &px) &&
                   ParseCoordinate(parts[1], &y, &py) && std::fabs(x) <= 1e6 && std::fabs(y) <= 1e6;
        }
        case ParamKind::IntList: {
            *expected =
                "comma-separated whole numbers, an odd square count of them (1, 9, 25, 49 ... up to 225 "
                "for 15x15)";
            const std::vector<std::string> parts = Split(text, ',');
            for (const std::string& part : parts) {
                long long v = 0;
                if (!ParseLong(part, &v) || v < -100000 || v > 100000) return false;
            }
            const size_t side =
                static_cast<size_t>(std::lround(std::sqrt(static_cast<double>(parts.size()))));
            if (side * side == parts.size() && side % 2 == 1 && side > 15)
                *expected = "a kernel of at most 15x15 (225 weights); this one is " + std::to_string(side) +
                            "x" + std::to_string(side);
            return side * side == parts.size() && side % 2 == 1 && side <= 15;
        }
        case ParamKind::Curve: {
            *expected =
                "points IN:OUT separated by commas, each 0 to 255, IN increasing (such as "
                "0:0,128:200,255:255)";
            long long last = -1;
            for (const std::string& point : Split(text, ',')) {
                const std::vector<std::string> io = Split(point, ':');
                long long in = 0, out = 0;
                if (io.size() != 2 || !ParseLong(io[0], &in) || !ParseLong(io[1], &out) || in <= last ||
                    in > 255 || out < 0 || out > 255)
                    return false;
                last = in;
            }
            return true;
        }
        case ParamKind::Colour: {
            *expected = "a colour RRGGBB in hex (such as FF8000)";
            std::string hex = text;
            if (!hex.empty() && hex[0] == '#') hex.erase(0, 1);
            return hex.size() == 6 && std::all_of(hex.begin(), hex.end(), [](char c) {
                       return std::isxdigit(static_cast<unsigned char>(c)) != 0;
                   });
        }
        case ParamKind::Model: {
            *expected = "a colour model: MONO, BGR, ARGB, ABGR or 0";
            unsigned model = 0;
            return ParseModel(text, &model);
        }
        case ParamKind::Matrix: {
            *expected = "six comma-separated numbers A,B,C,D,E,F";
            const std::vector<std::string> parts = Split(text, ',');
            double v = 0;
            return parts.size() == 6 && std::all_of(parts.begin(), parts.end(), [&](const std::string& p) {
                       return ParseDouble(p, &v) && std::fabs(v) <= 1e6;
                   });
        }
        case ParamKind::File:
            *expected = "an image file, 'sample' or 'pattern'";
            return !text.empty();
        case ParamKind::Flag:
            return true;
    }
    return false;
}

}  // namespace

// ---- Arguments -------------------------------------------------------------

const std::string& Arguments::Text(const std::string& name) const {
    static const std::string empty;
    const auto it = values_.find(name);
    return it == values_.end() ? empty : it->second;
}
// Values up to 0xFFFFFFFF are accepted where a colour is packed into an int.
int Arguments::Int(const std::string& name) const {
    return static_cast<int>(static_cast<uint32_t>(std::strtoll(Text(name).c_str(), nullptr, 0)));
}
double Arguments::Float(const std::string& name) const { return std::strtod(Text(name).c_str(), nullptr); }
void Arguments::Size(const std::string& name, int width, int height, long long* w, long long* h) const {
    const std::string& text = Text(name);
    if (!text.empty() && text.back() == '%') {
        const double percent = std::strtod(text.c_str(), nullptr);
        *w = std::max(1LL, std::llround(width * percent / 100));
        *h = std::max(1LL, std::llround(height * percent / 100));
        return;
    }
    const std::vector<std::string> parts = Split(text, 'x');
    *w = std::atoll(parts[0].c_str());
    *h = std::atoll(parts[1].c_str());
    // One side given: the other keeps the image's proportions.
    if (parts[0].empty())
        *w = std::max(1LL, std::llround(static_cast<double>(*h) * width / std::max(1, height)));
    if (parts[1].empty())
        *h = std::max(1LL, std::llround(static_cast<double>(*w) * height / std::max(1, width)));
}
void Arguments::Area(const std::string& name, int width, int height, long long* x, long long* y, long long* w,
                     long long* h) const {
    const std::vector<std::string> parts = Split(Text(name), '+');
    const std::vector<std::string> size = Split(parts[0], 'x');
    const auto resolve = [](const std::string& text, int extent) {
        double v = 0;
        bool percent = false;
        ParseCoordinate(text, &v, &percent);
        return percent ? std::llround(v * extent / 100) : std::llround(v);
    };
    *w = resolve(size[0], width), *h = resolve(size[1], height);
    *x = parts.size() == 3 ? resolve(parts[1], width) : 0;
    *y = parts.size() == 3 ? resolve(parts[2], height) : 0;
}
void Arguments::Point(const std::string& name, int width, int height, double* x, double* y) const {
    const std::vector<std::string> parts = Split(Text(name), ',');
    bool px = false, py = false;
    ParseCoordinate(parts[0], x, &px);
    ParseCoordinate(parts[1], y, &py);
    if (px) *x = *x * width / 100;
    if (py) *y = *y * height / 100;
}
std::vector<int> Arguments::IntList(const std::string& name) const {
    std::vector<int> list;
    for (const std::string& part : Split(Text(name), ',')) list.push_back(std::atoi(part.c_str()));
    return list;
}
unsigned Arguments::Colour(const std::string& name) const {
    std::string hex = Text(name);
    if (!hex.empty() && hex[0] == '#') hex.erase(0, 1);
    return static_cast<unsigned>(std::strtoul(hex.c_str(), nullptr, 16));
}
unsigned Arguments::Model(const std::string& name) const {
    unsigned model = 0;
    ParseModel(Text(name), &model);
    return model;
}

namespace {

// A value as echoed in a message: long kernels are cut short.
std::string Shown(const std::string& value) {
    return value.size() <= 40 ? value : value.substr(0, 37) + "...";
}

bool CheckParam(const Param& param, const std::string& text, std::string* expected) {
    return CheckValue(param, text, expected);
}

// Whether a word can be an optional positional value (and not the next operation or the output).
bool LooksLikeValue(const Param& param, const std::string& word) {
    std::string expected;
    if (param.kind == ParamKind::File) return false;
    return CheckParam(param, word, &expected);
}

}  // namespace

bool ParseStep(const std::vector<std::string>& words, size_t* index, Step* step, std::string* error) {
    const std::string& name = words[*index];
    const OperationSpec* op = FindOperation(name);
    if (op == nullptr) {
        *error = "unknown operation '" + name + "' (qel list shows them all)";
        return false;
    }
    step->operation = op;
    step->args = Arguments();
    step->text = op->name;
    size_t i = *index + 1;
    for (const Param& param : op->params) {
        if (param.name[0] == '-') {
            if (param.defaultValue != nullptr) step->args.Set(param.name, param.defaultValue);
            continue;
        }
        std::string expected;
        const bool present = i < words.size() && words[i].rfind("--", 0) != 0;
        if (present && param.defaultValue == nullptr && words[i] == "-o") {
            *error = std::string(op->name) + ": missing " + param.name + " (" + param.help + ")";
            return false;
        }
        if (param.defaultValue == nullptr) {
            if (!present) {
                *error = std::string(op->name) + ": missing " + param.name + " (" + param.help +
                         "; see qel help " + op->name + ")";
                return false;
            }
            if (!CheckParam(param, words[i], &expected)) {
                *error = std::string(op->name) + ": bad " + param.name + " '" + Shown(words[i]) + "': expected " +
                         expected;
                return false;
            }
        } else {
            // An optional value is there unless the word is the next operation
            // or the output file.
            const bool isOutput = i < words.size() && words[i].find('.') != std::string::npos &&
                                  IsWritableImageName(words[i]) && !LooksLikeValue(param, words[i]);
            if (!present || words[i] == "-o" || FindOperation(words[i]) != nullptr || isOutput) {
                step->args.Set(param.name, param.defaultValue);
                continue;
            }
            if (!CheckParam(param, words[i], &expected)) {
                *error = std::string(op->name) + ": bad " + param.name + " '" + Shown(words[i]) + "': expected " +
                         expected;
                return false;
            }
        }
        step->args.Set(param.name, words[i]);
        step->text += " " + words[i];
        ++i;
    }
    // Options of this operation, in any order.
    while (i < words.size() && words[i].rfind("--", 0) == 0) {
        const Param* option = nullptr;
        for (const Param& param : op->params)
            if (words[i] == param.name) option = &param;
        if (option == nullptr) break;  // perhaps a global option; the caller decides
        step->text += " " + words[i];
        if (option->kind == ParamKind::Flag) {
            step->args.Set(option->name, "1");
            ++i;
            continue;
        }
        std::string expected;
        if (i + 1 >= words.size()) {
            *error = std::string(op->name) + ": " + option->name + " needs a value (" + option->help + ")";
            return false;
        }
        if (!CheckParam(*option, words[i + 1], &expected)) {
            *error = std::string(op->name) + ": bad " + option->name + " '" + Shown(words[i + 1]) + "': expected " +
                     expected;
            return false;
        }
        // Methods are kept by number, whichever way they were written.
        step->args.Set(option->name, option->kind == ParamKind::Method
                                         ? std::to_string(MethodNumber(words[i + 1]))
                                         : words[i + 1]);
        step->text += " " + words[i + 1];
        i += 2;
    }
    *index = i;
    return true;
}

}  // namespace qeltool
