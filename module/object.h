// CObject<T> and IObjectInfoImpl<T>: the shape shared by the five components.
//
// A component T derives from CObject<T>, IObjectInfoImpl<T> and its own
// interface, in that order, so the object holds: the primary interface
// pointer, the 32-bit reference count, the IObjectInfo pointer and the own
// interface pointer. T puts QEL_COMPONENT_IUNKNOWN(T) in its body to give the
// three IUnknown slots of all its bases one implementation.
#pragma once

#include <atomic>
#include <new>

#include "module/iids.h"
#include "qel/collections.h"

template <class T>
class CObject : public IUnknown {
public:
    QResult QueryInterface(const IID& iid, void** object) override {
        return InternalQueryInterface(iid, object);
    }
    uint32_t AddRef() override { return InternalAddRef(); }
    uint32_t Release() override { return InternalRelease(); }

    // Life-cycle hooks, after Release in slot order. None of the components needs them.
    virtual QResult FinalConstruct() { return QEL_OK; }
    virtual void FinalRelease() {}
    virtual void Lock() {}
    virtual void Unlock() {}

    // Creation function handed out by CreateFunction: one object, one reference to
    // the requested interface, or the object destroyed when the id is not answered.
    static QResult _CreateInstance(void* /*reserved*/, const IID* iid, void** object) {
        T* created = new (std::nothrow) T();
        if (created == nullptr) return QEL_E_OUTOFMEMORY;
        *object = nullptr;
        const QResult result = created->InternalQueryInterface(*iid, object);
        if (result == QEL_OK) {
            created->InternalRelease();
            return QEL_OK;
        }
        created->FinalRelease();
        delete created;
        return result;
    }

    QResult InternalQueryInterface(const IID& iid, void** object) {
        T* self = static_cast<T*>(this);
        if (iid == IID_IUnknown) {
            InternalAddRef();
            *object = static_cast<IUnknown*>(static_cast<CObject<T>*>(self));
            return QEL_OK;
        }
        *object = nullptr;
        if (iid == IID_IObjectInfo) {
            InternalAddRef();
            *object = static_cast<IObjectInfo*>(self);
            return QEL_OK;
        }
        if (iid == T::OwnInterfaceId()) {
            InternalAddRef();
            *object = static_cast<typename T::OwnInterface*>(self);
            return QEL_OK;
        }
        return QEL_E_NOINTERFACE;
    }

    uint32_t InternalAddRef() { return refCount_.fetch_add(1, std::memory_order_relaxed) + 1; }

    // The destroy decision follows the value this thread's decrement produced,
    // so two racing releases can never both see zero and free the object twice.
    uint32_t InternalRelease() {
        const uint32_t remaining = refCount_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (remaining != 0) return remaining;
        T* self = static_cast<T*>(this);
        self->FinalRelease();
        delete self;
        return 0;
    }

protected:
    CObject() = default;
    ~CObject() = default;

private:
    std::atomic<uint32_t> refCount_{1};
};

template <class T>
class IObjectInfoImpl : public IObjectInfo {
public:
    QResult GetName(int /*index*/, tagREFString* name) override {
        *name = T::m_ObjectName;
        return QEL_OK;
    }

protected:
    ~IObjectInfoImpl() = default;
};

// One implementation of the IUnknown slots for every base of component T.
#define QEL_COMPONENT_IUNKNOWN(T)                                         \
public:                                                                   \
    QResult QueryInterface(const IID& iid, void** object) override {      \
        return CObject<T>::InternalQueryInterface(iid, object);           \
    }                                                                     \
    uint32_t AddRef() override { return CObject<T>::InternalAddRef(); }   \
    uint32_t Release() override { return CObject<T>::InternalRelease(); } \
    static const tagREFString m_ObjectName;
