// The module's public operations by name, for the Python layer to call with
// its images and numbers already checked.
#pragma once

#include <string>
#include <vector>

#include "qel/host.h"

namespace qelpy {

struct Components {
    SmartPtr<IQELColorTransform> colours;
    SmartPtr<IQELTransform> transform;
    SmartPtr<IQELDeform> deform;
    SmartPtr<IQELFilterTransform> filters;
    SmartPtr<IQELMaths> maths;
};

// One call's inputs in the order of the interface method: images (null where
// the caller passes none), numbers, and the coordinate map of the warps.
struct CallArguments {
    std::vector<IQEL*> images;
    std::vector<double> numbers;
    ITransform* transform = nullptr;
};

// Runs the named interface method. Returns false for an unknown name or a
// wrong count of images or numbers; otherwise sets `result` to the module's
// code and `made` to the image the method delivered, if any.
bool RunOperation(const Components& components, const std::string& method, const CallArguments& args,
                  QResult* result, SmartPtr<IQEL>* made);

// The method names RunOperation knows, sorted.
std::vector<std::string> OperationNames();

// (x, y) becomes (a x + b y + c, d x + e y + f), with no Python per pixel.
class AffineTransform final : public ITransform {
public:
    explicit AffineTransform(const double (&m)[6]);
    QResult QueryInterface(const IID& iid, void** object) override;
    uint32_t AddRef() override { return 2; }  // lives on the caller's stack for one call
    uint32_t Release() override { return 1; }
    QResult TransformPoint(double* x, double* y, double* z) override;

private:
    double m_[6];
};

}  // namespace qelpy
