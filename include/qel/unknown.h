// IUnknown, IObjectInfo and SmartPtr: the reference-counting base of every
// interface. Interfaces are called by slot position, so they declare only
// pure virtual operations in binding order and no virtual destructor (it would
// shift every slot). Destructors are protected: nobody deletes through them.
#pragma once

#include "qel/types.h"

struct IUnknown {
    virtual QResult QueryInterface(const IID& iid, void** object /*out*/) = 0;  // slot 0
    virtual uint32_t AddRef() = 0;                                              // slot 1
    virtual uint32_t Release() = 0;                                             // slot 2

protected:
    ~IUnknown() = default;
};

struct IObjectInfo : IUnknown {
    // Copies the object's static name (not owned by the caller); index is ignored.
    virtual QResult GetName(int index, tagREFString* name /*out*/) = 0;  // slot 3

protected:
    ~IObjectInfo() = default;
};

// Owning holder of one interface pointer. Resetting or destroying it nulls the
// holder first and then releases the pointer it held.
template <class T>
class SmartPtr {
public:
    SmartPtr() = default;
    // Takes over the caller's reference; does not AddRef.
    explicit SmartPtr(T* adopted) : ptr_(adopted) {}
    SmartPtr(const SmartPtr&) = delete;
    SmartPtr& operator=(const SmartPtr&) = delete;
    SmartPtr(SmartPtr&& other) noexcept : ptr_(other.Detach()) {}
    SmartPtr& operator=(SmartPtr&& other) noexcept {
        if (this != &other) Reset(other.Detach());
        return *this;
    }
    ~SmartPtr() { Reset(); }

    // Holds `adopted` (taking over its reference) and releases the old pointer.
    void Reset(T* adopted = nullptr) {
        T* old = ptr_;
        ptr_ = adopted;
        if (old != nullptr) old->Release();
    }
    // Holds `shared` with a reference of its own.
    void Share(T* shared) {
        if (shared != nullptr) shared->AddRef();
        Reset(shared);
    }
    // Gives up ownership without releasing.
    T* Detach() {
        T* p = ptr_;
        ptr_ = nullptr;
        return p;
    }
    // Releases what is held and exposes the slot to an out parameter.
    T** Out() {
        Reset();
        return &ptr_;
    }
    void** OutVoid() { return reinterpret_cast<void**>(Out()); }

    T* Get() const { return ptr_; }
    T* operator->() const { return ptr_; }
    explicit operator bool() const { return ptr_ != nullptr; }

private:
    T* ptr_ = nullptr;
};

// Queries `source` for interface I. The result holds one reference or is empty.
template <class I>
SmartPtr<I> QueryAs(IUnknown* source, const IID& iid) {
    SmartPtr<I> result;
    if (source != nullptr) source->QueryInterface(iid, result.OutVoid());
    return result;
}
