// The module's main translation unit: interface identifiers computed at load,
// the two exported entry points and the component factory table.
#include "color/color_transform.h"
#include "filter/filter_transform.h"
#include "maths/maths.h"
#include "module/host_services.h"
#include "module/iids.h"
#include "transform/image_deform.h"
#include "transform/image_transform.h"

#define QEL_EXPORT extern "C" __attribute__((visibility("default")))

const IID IID_NULL = QEL_IID_NULL;
const IID IID_IUnknown = QEL_IID_IUNKNOWN;

#define QEL_DEFINE_MODULE_IID(name) IID IID_##name;
QEL_FOR_EACH_INTERFACE(QEL_DEFINE_MODULE_IID)
#undef QEL_DEFINE_MODULE_IID

namespace {

// Runs once when the library is loaded, before any entry point can be called.
struct InterfaceIdInitialiser {
    InterfaceIdInitialiser() {
#define QEL_COMPUTE_MODULE_IID(name) IID_##name = __IIDOfc(#name);
        QEL_FOR_EACH_INTERFACE(QEL_COMPUTE_MODULE_IID)
#undef QEL_COMPUTE_MODULE_IID
    }
} gInterfaceIdInitialiser;

struct FactoryEntry {
    tagREFString name;
    QELCreateInstanceFn create;
};

// Tried in this order; the order is part of the module's contract.
const FactoryEntry kFactoryTable[] = {
    {CQELFilterTransform::m_ObjectName, &CQELFilterTransform::_CreateInstance},
    {CQELImageDeform::m_ObjectName, &CQELImageDeform::_CreateInstance},
    {CQELImageTransform::m_ObjectName, &CQELImageTransform::_CreateInstance},
    {CQELMaths::m_ObjectName, &CQELMaths::_CreateInstance},
    {CQELColorTransform::m_ObjectName, &CQELColorTransform::_CreateInstance},
};

// Equal lengths (as signed 32-bit values) and, for a positive length, equal
// 32-bit code units; a prefix or an extension never matches.
bool NameMatches(const tagREFString& stored, const tagREFString& asked) {
    const int32_t length = static_cast<int32_t>(stored.length);
    if (length != static_cast<int32_t>(asked.length)) return false;
    for (int32_t i = 0; i < length; ++i)
        if (stored.text[i] != asked.text[i]) return false;
    return true;
}

}  // namespace

QEL_EXPORT QResult InitializeModule(void* /*reserved*/, IComponentCollection* collection) {
    // Reference the new collection before releasing the old one: handing the
    // same collection over twice keeps exactly one reference.
    gGlobalComponentCollection.Share(collection);
    return QEL_OK;
}

QEL_EXPORT QResult CreateFunction(tagREFString name, QELCreateInstanceFn* out) {
    for (const FactoryEntry& entry : kFactoryTable) {
        if (NameMatches(entry.name, name)) {
            *out = entry.create;
            return QEL_OK;
        }
    }
    return QEL_E_FAIL;
}
