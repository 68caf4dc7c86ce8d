// A component collection for tests: forwards every call to another
// collection (or answers 0x80004001 without one), counts its own references
// and the lookups made through it.
#pragma once

#include <atomic>

#include "qel/collections.h"

namespace qeltest {

class ForwardingCollection final : public IComponentCollection {
public:
    explicit ForwardingCollection(IComponentCollection* inner = nullptr) : inner_(inner) {}

    std::atomic<int> refs{1};
    std::atomic<int> findItemCalls{0};
    std::atomic<int> createComponentCalls{0};

    QResult QueryInterface(const IID& iid, void** object) override {
        if (inner_ != nullptr) return inner_->QueryInterface(iid, object);
        *object = nullptr;
        return QEL_E_NOINTERFACE;
    }
    uint32_t AddRef() override { return static_cast<uint32_t>(++refs); }
    uint32_t Release() override { return static_cast<uint32_t>(--refs); }
    QResult GetCount(int* count) override { return inner_ ? inner_->GetCount(count) : QEL_E_NOTIMPL; }
    QResult GetItem(int index, IUnknown** item) override {
        return inner_ ? inner_->GetItem(index, item) : QEL_E_NOTIMPL;
    }
    QResult FindItem(IString* name, int* index) override {
        ++findItemCalls;
        return inner_ ? inner_->FindItem(name, index) : QEL_E_NOTIMPL;
    }
    QResult AddItem(tagREFString name, IUnknown* item, int* index) override {
        return inner_ ? inner_->AddItem(name, item, index) : QEL_E_NOTIMPL;
    }
    QResult RemoveItem(int index) override { return inner_ ? inner_->RemoveItem(index) : QEL_E_NOTIMPL; }
    QResult GetItemName(int index, tagREFString* name) override {
        return inner_ ? inner_->GetItemName(index, name) : QEL_E_NOTIMPL;
    }
    QResult RegisterComponent(tagREFString name, tagREFString module, tagREFString component) override {
        return inner_ ? inner_->RegisterComponent(name, module, component) : QEL_E_NOTIMPL;
    }
    QResult Reserved10() override { return QEL_E_NOTIMPL; }
    QResult Reserved11() override { return QEL_E_NOTIMPL; }
    QResult Reserved12() override { return QEL_E_NOTIMPL; }
    QResult Reserved13() override { return QEL_E_NOTIMPL; }
    QResult Reserved14() override { return QEL_E_NOTIMPL; }
    QResult Reserved15() override { return QEL_E_NOTIMPL; }
    QResult CreateComponent(tagREFString name, const IID* iid, void** object) override {
        ++createComponentCalls;
        if (inner_ != nullptr) return inner_->CreateComponent(name, iid, object);
        *object = nullptr;
        return QEL_E_NOTIMPL;
    }

private:
    IComponentCollection* inner_;
};

}  // namespace qeltest
