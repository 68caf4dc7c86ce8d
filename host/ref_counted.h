// Reference counting for the host runtime's objects.
#pragma once

#include <atomic>
#include <string>

#include "qel/qel.h"

namespace qelhost {

// Atomic count starting at 1; the object deletes itself at zero.
class RefCount {
public:
    uint32_t Increment() { return count_.fetch_add(1, std::memory_order_relaxed) + 1; }
    // The count after this release; zero means the last reference is gone.
    uint32_t Decrement() { return count_.fetch_sub(1, std::memory_order_acq_rel) - 1; }

private:
    std::atomic<uint32_t> count_{1};
};

#define QELHOST_REFCOUNT_METHODS                                 \
    uint32_t AddRef() override { return refCount_.Increment(); } \
    uint32_t Release() override {                                \
        const uint32_t remaining = refCount_.Decrement();        \
        if (remaining == 0) delete this;                         \
        return remaining;                                        \
    }                                                            \
                                                                 \
private:                                                         \
    RefCount refCount_;                                          \
                                                                 \
public:

// Copies a counted string (only the low 32 bits of its length count).
inline std::wstring ToWide(tagREFString text) {
    const uint32_t length = static_cast<uint32_t>(text.length);
    if (length == 0 || text.text == nullptr) return std::wstring();
    return std::wstring(text.text, length);
}

// A counted view of a string's text, valid while the string is unchanged.
inline tagREFString ToREF(const std::wstring& text) { return tagREFString{text.size(), text.c_str()}; }

// Hands `object` out through `out` with one new reference.
template <class I>
QResult HandOut(I* object, void** out) {
    object->AddRef();
    *out = object;
    return QEL_OK;
}

// Creates a built-in component of the runtime by name; QEL_E_FAIL when the
// runtime has no component of that name.
QResult CreateBuiltInComponent(const std::wstring& component, const IID* iid, void** object);

// The process-wide collection, with one new reference.
IComponentCollection* GlobalCollection();

// A new, empty string with one reference.
ICreatableString* NewCreatableString();

// A new component locator with one reference.
IComponentString* NewComponentString(const std::wstring& module, const std::wstring& component);

}  // namespace qelhost
