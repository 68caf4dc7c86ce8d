// "GlobalComponentCollection": the process-wide collection of named items.
// It starts with a locator for every component the runtime and the imaging
// module offer, so CreateComponent works for all of them by name.
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/ref_counted.h"

namespace qelhost {
namespace {

class ComponentCollection final : public IComponentCollection {
public:
    QELHOST_REFCOUNT_METHODS

    ComponentCollection() {
        const wchar_t* const runtimeComponents[] = {L"QELImageDIB", L"CreatableString", L"ComponentString",
                                                    L"GlobalComponentCollection"};
        for (const wchar_t* name : runtimeComponents) Register(name, L"CollectionsEx", name);
        const wchar_t* const moduleComponents[] = {L"QELFilterTransform", L"QELDeform", L"QELTransform",
                                                   L"QELMaths", L"QELColorTransform"};
        for (const wchar_t* name : moduleComponents) Register(name, L"QELImaging", name);
    }

    QResult QueryInterface(const IID& iid, void** object) override {
        if (object == nullptr) return QEL_E_POINTER;
        if (iid == qel::iid::IUnknown || iid == qel::iid::IComponentCollection)
            return HandOut(static_cast<IComponentCollection*>(this), object);
        *object = nullptr;
        return QEL_E_NOINTERFACE;
    }

    QResult GetCount(int* count) override {
        if (count == nullptr) return QEL_E_POINTER;
        std::lock_guard<std::mutex> lock(mutex_);
        *count = static_cast<int>(items_.size());
        return QEL_OK;
    }

    QResult GetItem(int index, IUnknown** item) override {
        if (item == nullptr) return QEL_E_POINTER;
        *item = nullptr;
        std::lock_guard<std::mutex> lock(mutex_);
        if (index < 0 || static_cast<size_t>(index) >= items_.size()) return QEL_E_INVALIDARG;
        IUnknown* found = items_[static_cast<size_t>(index)].item.Get();
        found->AddRef();
        *item = found;
        return QEL_OK;
    }

    QResult FindItem(IString* name, int* index) override {
        if (index == nullptr) return QEL_E_POINTER;
        *index = -1;
        if (name == nullptr) return QEL_E_POINTER;
        tagREFString text{};
        if (name->GetString(&text) < 0) return QEL_E_FAIL;
        const int found = IndexOf(ToWide(text));
        if (found < 0) return QEL_E_FAIL;
        *index = found;
        return QEL_OK;
    }

    QResult AddItem(tagREFString name, IUnknown* item, int* index) override {
        if (item == nullptr) return QEL_E_POINTER;
        std::lock_guard<std::mutex> lock(mutex_);
        Entry entry;
        entry.name = ToWide(name);
        entry.item.Share(item);
        items_.push_back(std::move(entry));
        if (index != nullptr) *index = static_cast<int>(items_.size() - 1);
        return QEL_OK;
    }

    QResult RemoveItem(int index) override {
        SmartPtr<IUnknown> removed;  // released after the lock is dropped
        std::lock_guard<std::mutex> lock(mutex_);
        if (index < 0 || static_cast<size_t>(index) >= items_.size()) return QEL_E_INVALIDARG;
        removed = std::move(items_[static_cast<size_t>(index)].item);
        items_.erase(items_.begin() + index);
        return QEL_OK;
    }

    QResult GetItemName(int index, tagREFString* name) override {
        if (name == nullptr) return QEL_E_POINTER;
        std::lock_guard<std::mutex> lock(mutex_);
        if (index < 0 || static_cast<size_t>(index) >= items_.size()) return QEL_E_INVALIDARG;
        const std::wstring& text = items_[static_cast<size_t>(index)].name;
        *name = ToREF(text);
        return QEL_OK;
    }

    QResult RegisterComponent(tagREFString name, tagREFString module, tagREFString component) override {
        Register(ToWide(name), ToWide(module), ToWide(component));
        return QEL_OK;
    }

    QResult Reserved10() override { return QEL_E_NOTIMPL; }
    QResult Reserved11() override { return QEL_E_NOTIMPL; }
    QResult Reserved12() override { return QEL_E_NOTIMPL; }
    QResult Reserved13() override { return QEL_E_NOTIMPL; }
    QResult Reserved14() override { return QEL_E_NOTIMPL; }
    QResult Reserved15() override { return QEL_E_NOTIMPL; }

    QResult CreateComponent(tagREFString name, const IID* iid, void** object) override {
        if (object == nullptr) return QEL_E_POINTER;
        *object = nullptr;
        SmartPtr<IComponentString> locator;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            const int index = IndexOfLocked(ToWide(name));
            if (index < 0) return QEL_E_FAIL;
            items_[static_cast<size_t>(index)].item->QueryInterface(qel::iid::IComponentString,
                                                                    locator.OutVoid());
        }
        if (!locator) return QEL_E_NOINTERFACE;
        if (iid == nullptr) {
            *object = locator.Detach();
            return QEL_OK;
        }
        return locator->CreateInstance(iid, object);
    }

private:
    struct Entry {
        std::wstring name;
        SmartPtr<IUnknown> item;
    };

    ~ComponentCollection() = default;

    int IndexOf(const std::wstring& name) {
        std::lock_guard<std::mutex> lock(mutex_);
        return IndexOfLocked(name);
    }
    int IndexOfLocked(const std::wstring& name) const {
        for (size_t i = 0; i < items_.size(); ++i)
            if (items_[i].name == name) return static_cast<int>(i);
        return -1;
    }

    void Register(const std::wstring& name, const std::wstring& module, const std::wstring& component) {
        SmartPtr<IComponentString> locator(NewComponentString(module, component));
        SmartPtr<IUnknown> replaced;  // released after the lock is dropped
        std::lock_guard<std::mutex> lock(mutex_);
        const int index = IndexOfLocked(name);
        if (index >= 0) {
            replaced = std::move(items_[static_cast<size_t>(index)].item);
            items_[static_cast<size_t>(index)].item.Reset(locator.Detach());
            return;
        }
        Entry entry;
        entry.name = name;
        entry.item.Reset(locator.Detach());
        items_.push_back(std::move(entry));
    }

    std::mutex mutex_;
    std::vector<Entry> items_;
};

}  // namespace

IComponentCollection* GlobalCollection() {
    // Created on first use and kept for the life of the process: modules
    // release their references to it from their own unload code, which may
    // run after this library's static objects are gone.
    static ComponentCollection* const collection = new ComponentCollection();
    collection->AddRef();
    return collection;
}

}  // namespace qelhost
