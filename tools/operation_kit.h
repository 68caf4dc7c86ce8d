// Helpers shared by the component tables (tools/ops_*.cpp): taking a new
// result, bringing second images to the first one's format, masks, paste
// targets and the affine map of transform and transformpaste.
#pragma once

#include <string>
#include <vector>

#include "tools/operations.h"

namespace qeltool {

// What operations accept, for help: every image qel reads, or all but 1- and
// 4-bit ones kept so by --keep-depth.
extern const char* const kAnyImage;
extern const char* const kWholeByteImages;
// The --alpha option of the warps.
extern const Param kAlphaFlag;

// The parts of `text` between separators (one part when there is none).
std::vector<std::string> Split(const std::string& text, char separator);

// Stops a step before the module is called; `why`, when given, replaces the
// note (a loader may already have put its reason there).
QResult Refuse(Call& call, const std::string& why = "");

// Replaces the image by an operation's new result.
QResult TakeResult(QResult result, SmartPtr<IQEL>& image, SmartPtr<IQEL>& made);

// Gives a 32-bit "ARGB" copy of an image that has no alpha channel yet.
void EnsureAlpha(OperationContext& context, SmartPtr<IQEL>& image);

// Brings a second image to the bit count and colour model of the first.
SmartPtr<IQEL> Conform(OperationContext& context, SmartPtr<IQEL> second, IQEL* like);

// An 8-bit mask of at least the image's size.
SmartPtr<IQEL> LoadMask(OperationContext& context, const std::string& name, IQEL* like, std::string* error);

// The mask of an operation's --mask option, if given. False (with `note` set)
// when it was given and cannot be loaded.
bool OptionalMask(Call& call, SmartPtr<IQEL>* mask);

// A copy of the image, used as the destination of in-place arithmetic so that
// pixels the operation leaves alone keep their values.
SmartPtr<IQEL> Destination(OperationContext& context, IQEL* image);

// Where the paste operations draw: the --onto image, or black of the same size.
SmartPtr<IQEL> PasteTarget(OperationContext& context, const Arguments& args, IQEL* image, int minimumBits,
                           std::string* error);

// The affine map of `transform`, `transformpaste`, `crop` and rotation by
// any angle: (x, y) becomes (a x + b y + c, d x + e y + f).
class AffineTransform final : public ITransform {
public:
    explicit AffineTransform(const std::vector<double>& m) : m_(m) {}
    QResult QueryInterface(const IID& iid, void** object) override;
    // Lives on the caller's stack for the duration of one call.
    uint32_t AddRef() override { return ++references_; }
    uint32_t Release() override { return --references_; }
    QResult TransformPoint(double* x, double* y, double* z) override;

private:
    std::vector<double> m_;
    uint32_t references_ = 1;
};

// The six numbers of a "matrix" argument.
std::vector<double> MatrixOf(const Arguments& args);

}  // namespace qeltool
