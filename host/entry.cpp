// Entry points of the host runtime module "CollectionsEx" and its table of
// built-in components.
#include <string>

#include "host/ref_counted.h"

#define QELHOST_EXPORT extern "C" __attribute__((visibility("default")))

namespace qelhost {

IQELImageDIB* NewImageDIB();

namespace {

// Hands out the requested interface of a freshly made object, dropping the
// creation reference.
QResult Deliver(IUnknown* created, const IID* iid, void** object) {
    SmartPtr<IUnknown> holder(created);
    if (object == nullptr) return QEL_E_POINTER;
    *object = nullptr;
    if (iid == nullptr) return QEL_E_INVALIDARG;
    return holder->QueryInterface(*iid, object);
}

QResult CreateCollection(void*, const IID* iid, void** object) {
    return Deliver(GlobalCollection(), iid, object);
}
QResult CreateComponentString(void*, const IID* iid, void** object) {
    return Deliver(NewComponentString(L"", L""), iid, object);
}
QResult CreateCreatableString(void*, const IID* iid, void** object) {
    return Deliver(NewCreatableString(), iid, object);
}
QResult CreateImageDIB(void*, const IID* iid, void** object) { return Deliver(NewImageDIB(), iid, object); }

struct BuiltIn {
    const wchar_t* name;
    QELCreateInstanceFn create;
};

const BuiltIn kBuiltIns[] = {
    {L"GlobalComponentCollection", &CreateCollection},
    {L"ComponentString", &CreateComponentString},
    {L"CreatableString", &CreateCreatableString},
    {L"QELImageDIB", &CreateImageDIB},
};

QELCreateInstanceFn FindBuiltIn(const std::wstring& name) {
    for (const BuiltIn& entry : kBuiltIns)
        if (name == entry.name) return entry.create;
    return nullptr;
}

}  // namespace

QResult CreateBuiltInComponent(const std::wstring& component, const IID* iid, void** object) {
    QELCreateInstanceFn create = FindBuiltIn(component);
    if (create == nullptr) return QEL_E_FAIL;
    return create(nullptr, iid, object);
}

}  // namespace qelhost

// The runtime owns the global collection itself, so a collection handed over
// here is not kept; the call is accepted for symmetry with other modules.
QELHOST_EXPORT QResult InitializeModule(void* /*reserved*/, IComponentCollection* /*collection*/) {
    return QEL_OK;
}

QELHOST_EXPORT QResult CreateFunction(tagREFString name, QELCreateInstanceFn* out) {
    const uint32_t length = static_cast<uint32_t>(name.length);
    if (out == nullptr || (length > 0 && name.text == nullptr)) return QEL_E_FAIL;
    QELCreateInstanceFn create = qelhost::FindBuiltIn(std::wstring(name.text, length));
    if (create == nullptr) return QEL_E_FAIL;
    *out = create;
    return QEL_OK;
}
