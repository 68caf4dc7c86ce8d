// The operation table: every public operation of the module's five
// components under a short name, its parameters with defaults, the parser
// for one step of a chain (tools/arguments.cpp), the running of a step
// (tools/chain.cpp) and the help (tools/operation_help.cpp).
#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "qel/host.h"
#include "tools/people.h"

namespace qeltool {

enum class ParamKind {
    Int,      // whole number, also 0x hex
    Float,    // decimal number
    Size,     // WxH, W x (height kept in proportion), xH, or N% of the current image
    Point,    // X,Y; each coordinate a number or a percentage of the image
    IntList,  // comma-separated whole numbers
    Curve,    // in:out,in:out,... lookup-table points
    File,     // an image file, or the built-in "sample" or "pattern"
    Colour,   // RRGGBB in hex
    Flag,     // an option without a value
    Model,    // MONO, BGR, ARGB, ABGR or 0
    Matrix,   // six comma-separated numbers of an affine map
    Method,   // an interpolation method, by number or by name
    Area,     // WxH+X+Y, each a number or a percentage of the image
};

// The interpolation methods by number, as the module numbers them.
const std::vector<std::string>& MethodNames();

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
    // An area WxH+X+Y resolved against the image; percentages round to pixels.
    void Area(const std::string& name, int width, int height, long long* x, long long* y, long long* w,
              long long* h) const;
    std::vector<int> IntList(const std::string& name) const;
    unsigned Colour(const std::string& name) const;  // 0x00RRGGBB
    unsigned Model(const std::string& name) const;
    void Set(const std::string& name, const std::string& value) { values_[name] = value; }

private:
    std::map<std::string, std::string> values_;
};

// What an operation's call receives: its component, its checked arguments and
// the image, which it replaces when the operation makes a new one. `note` may
// receive a line to show (or, on failure, the reason).
struct Call {
    OperationContext& context;
    const Arguments& args;
    SmartPtr<IQEL>& image;
    std::string* note;
    IUnknown* component;  // the operation's component, already created
    // Set when the step stopped before calling the module (a second image that
    // cannot be read, an area outside the image); `note` says why.
    bool refused = false;
    // Each component interface derives from IUnknown alone.
    template <class I>
    I* As() const {
        return static_cast<I*>(component);
    }
};

// The size of an image an operation makes, in 64 bits so that no argument can
// wrap it before it is checked against the pixel limit.
struct Extent {
    long long width = 0, height = 0;
};

// Runs the operation; returns the module's result code.
using RunFunction = QResult (*)(Call& call);
// The result's size for operations whose arguments decide it.
using ExtentFunction = Extent (*)(const Arguments& args, const qel::Pixels& image);

// One entry of the operation table. Each component's entries live in their own
// file (tools/ops_*.cpp); the component name is given once per file.
struct OperationSpec {
    const char* name;
    const char* aliases;  // space-separated other names, the method's own name among them
    const char* method;   // the interface operation called
    const char* summary;
    std::vector<Param> params;
    const char* accepts;  // what it gives on each kind of image, for help
    const char* example;  // a command line
    const char* gallery;  // representative step for the gallery
    RunFunction run;
    ExtentFunction extent = nullptr;  // null: the result is the input's size or a second image's
    const char* component = "";       // object name of the component, set from the group
};

// The entries of one component.
struct OperationGroup {
    const char* component;
    std::vector<OperationSpec> operations;
};
OperationGroup ColourOperations();
OperationGroup TransformOperations();
OperationGroup DeformOperations();
OperationGroup FilterOperations();
OperationGroup MathsOperations();

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
    // How second images are read (palettes and bilevel images expanded unless kept).
    void SetReading(const ReadingChoices& choices) { reading_ = choices; }
    const ReadingChoices& Reading() const { return reading_; }
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
    ReadingChoices reading_;
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
