// The operation table: every public operation of the module's five
// components under a short name, its parameters with defaults, the parser
// for one step of a chain, and the runner that calls the component.
#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "qel/host.h"

namespace qeltool {

enum class ParamKind {
    Int,      // whole number, also 0x hex
    Float,    // decimal number
    Size,     // WxH, or N% of the current image
    Point,    // X,Y; each coordinate a number or a percentage of the image
    IntList,  // comma-separated whole numbers
    Curve,    // in:out,in:out,... lookup-table points
    File,     // an image file, or the built-in "sample" or "pattern"
    Colour,   // RRGGBB in hex
    Flag,     // an option without a value
    Model,    // MONO, BGR, ARGB, ABGR or 0
    Matrix,   // six comma-separated numbers of an affine map
};

struct Param {
    const char* name;  // "angle" for a positional value, "--method" for an option
    ParamKind kind;
    const char* defaultValue;  // nullptr: required (positional) or absent (option)
    double min, max;           // for Int and Float
    const char* help;
};

class OperationContext;

// Parsed values by parameter name, each already checked.
class Arguments {
public:
    bool Has(const std::string& name) const { return values_.count(name) != 0; }
    const std::string& Text(const std::string& name) const;
    int Int(const std::string& name) const;
    double Float(const std::string& name) const;
    // Sizes and points resolve percentages against the image's width and height.
    // A percentage of a large image can exceed an int, hence 64 bits.
    void Size(const std::string& name, int width, int height, long long* w, long long* h) const;
    void Point(const std::string& name, int width, int height, double* x, double* y) const;
    std::vector<int> IntList(const std::string& name) const;
    unsigned Colour(const std::string& name) const;  // 0x00RRGGBB
    unsigned Model(const std::string& name) const;
    void Set(const std::string& name, const std::string& value) { values_[name] = value; }

private:
    std::map<std::string, std::string> values_;
};

// Runs the operation on `image` (replacing it when the operation makes a new
// one). Returns the module's result code; `note` may receive a line to show.
using RunFunction = QResult (*)(OperationContext& context, const Arguments& args, SmartPtr<IQEL>& image,
                                std::string* note);

struct OperationSpec {
    const char* name;
    const char* aliases;    // space-separated other names, the method's own name among them
    const char* component;  // object name of the component
    const char* method;     // the interface operation called
    const char* summary;
    std::vector<Param> params;
    const char* accepts;  // image formats that give a meaningful result
    const char* example;  // a command line
    const char* gallery;  // representative step for the gallery
    RunFunction run;
};

const std::vector<OperationSpec>& Operations();
const OperationSpec* FindOperation(const std::string& name);

// One step of a chain: an operation and its checked arguments.
struct Step {
    const OperationSpec* operation = nullptr;
    Arguments args;
    std::string text;  // the words it was parsed from, for messages and captions
};

// Parses the step starting at words[*index] (an operation name) and advances
// *index past it. Options it does not know are left for the caller.
bool ParseStep(const std::vector<std::string>& words, size_t* index, Step* step, std::string* error);

// The components, created on first use, and the loading of second images.
class OperationContext {
public:
    OperationContext(const qel::Host& host, long long pixelLimit) : host_(host), pixelLimit_(pixelLimit) {}
    const qel::Host& Host() const { return host_; }
    // The largest image, in pixels, that a file read or an operation may make.
    long long PixelLimit() const { return pixelLimit_; }
    // The component's interface, or null with `error` set.
    IUnknown* Component(const char* objectName, std::string* error);
    // Loads a second input: a file, "sample" (the chart) or "pattern" (made
    // at the size of `like`).
    SmartPtr<IQEL> LoadSecond(const std::string& name, IQEL* like, std::string* error);

private:
    const qel::Host& host_;
    long long pixelLimit_;
    std::map<std::string, SmartPtr<IUnknown>> components_;
};

// Runs a parsed step; on failure `error` names the operation and the reason.
// A step whose result would be above the context's pixel limit is refused
// before the module is called.
bool RunStep(OperationContext& context, const Step& step, SmartPtr<IQEL>& image, std::string* note,
             std::string* error);

// "0x80004001 (not implemented ...)" for messages.
std::string DescribeResult(QResult result);

void PrintOperationList(FILE* out);
bool PrintOperationHelp(FILE* out, const std::string& name);

}  // namespace qeltool
