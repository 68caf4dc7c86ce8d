// A stand-in for the collections module, loaded by the host services test
// from a folder of its own: its one component, "ComponentString", makes a
// string locator that counts its references and records the parts set on it;
// it makes no strings. The test reads the count and the parts through the two
// functions at the end.
#include <atomic>
#include <cstdio>
#include <string>

#include "qel/collections.h"

namespace {

std::atomic<int> gLocatorReferences{0};
std::wstring gPartsSet;  // "part:text;" for each SetPart, in order

class CountingLocator final : public IComponentString {
public:
    QResult QueryInterface(const IID&, void**) override { return QEL_E_NOINTERFACE; }
    uint32_t AddRef() override { return static_cast<uint32_t>(++gLocatorReferences); }
    uint32_t Release() override {
        const int left = --gLocatorReferences;
        if (left == 0) {
            std::printf("string locator destroyed\n");
            delete this;
        }
        return static_cast<uint32_t>(left);
    }
    QResult GetString(tagREFString*) override { return QEL_E_NOTIMPL; }
    QResult GetLength(int*) override { return QEL_E_NOTIMPL; }
    QResult CreateInstance(const IID*, void** object) override {
        *object = nullptr;
        return QEL_E_NOTIMPL;
    }
    QResult SetPart(int part, tagREFString text) override {
        gPartsSet +=
            std::to_wstring(part) + L":" + std::wstring(text.text, static_cast<size_t>(text.length)) + L";";
        return QEL_OK;
    }
    QResult GetPart(int, tagREFString*) override { return QEL_E_NOTIMPL; }
};

QResult CreateLocator(void*, const IID*, void** object) {
    auto* locator = new CountingLocator;
    locator->AddRef();
    *object = static_cast<IComponentString*>(locator);
    return QEL_OK;
}

}  // namespace

#define COUNTING_EXPORT extern "C" __attribute__((visibility("default")))

COUNTING_EXPORT QResult CreateFunction(tagREFString name, QELCreateInstanceFn* out) {
    const bool locator = std::wstring(name.text, static_cast<size_t>(name.length)) == L"ComponentString";
    *out = locator ? &CreateLocator : nullptr;
    return locator ? QEL_OK : QEL_E_NOTIMPL;
}

COUNTING_EXPORT int CountingLocatorReferences() { return gLocatorReferences; }
COUNTING_EXPORT const wchar_t* CountingLocatorParts() { return gPartsSet.c_str(); }
