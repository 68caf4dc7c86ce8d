// String components: "CreatableString" and the component locator "ComponentString".
#include <dlfcn.h>

#include <mutex>
#include <string>

#include "host/ref_counted.h"

namespace qelhost {
namespace {

// The text, reference count and interface lookup shared by both string
// kinds; `Interface` is ICreatableString or IComponentString.
template <class Interface>
class StringObject : public Interface {
public:
    QELHOST_REFCOUNT_METHODS

    QResult QueryInterface(const IID& iid, void** object) override {
        if (object == nullptr) return QEL_E_POINTER;
        if (iid == qel::iid::IUnknown || iid == qel::iid::IString || iid == OwnInterfaceId())
            return HandOut(static_cast<Interface*>(this), object);
        *object = nullptr;
        return QEL_E_NOINTERFACE;
    }
    QResult GetString(tagREFString* text) override {
        if (text == nullptr) return QEL_E_POINTER;
        *text = ToREF(text_);
        return QEL_OK;
    }
    QResult GetLength(int* length) override {
        if (length == nullptr) return QEL_E_POINTER;
        *length = static_cast<int>(text_.size());
        return QEL_OK;
    }

protected:
    virtual ~StringObject() = default;
    virtual const IID& OwnInterfaceId() const = 0;
    std::wstring text_;
};

class CreatableString final : public StringObject<ICreatableString> {
public:
    QResult AppendChars(int count, const wchar_t* characters) override {
        if (count < 0) return QEL_E_INVALIDARG;
        if (count > 0 && characters == nullptr) return QEL_E_POINTER;
        text_.append(characters, static_cast<size_t>(count));
        return QEL_OK;
    }
    QResult SetString(tagREFString text) override {
        text_ = ToWide(text);
        return QEL_OK;
    }
    QResult Clear() override {
        text_.clear();
        return QEL_OK;
    }

private:
    const IID& OwnInterfaceId() const override { return qel::iid::ICreatableString; }
};

// Names under which the runtime's own components are located.
bool IsRuntimeModule(const std::wstring& module) {
    return module.empty() || module == L"CollectionsEx" || module == L"Collections";
}

std::string Narrow(const std::wstring& text) {
    std::string result;
    for (const wchar_t c : text) result.push_back(c < 128 ? static_cast<char>(c) : '?');
    return result;
}

// Folder this runtime library was loaded from, with a trailing slash.
std::string RuntimeFolder() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&RuntimeFolder), &info) == 0 || info.dli_fname == nullptr) return "";
    const std::string path = info.dli_fname;
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

// Loads a sibling module: from the runtime's own folder first, then from
// "./_binLIN64/" relative to the working directory.
void* LoadModule(const std::wstring& module) {
    const std::string name = Narrow(module) + ".so";
    const std::string folder = RuntimeFolder();
    if (!folder.empty()) {
        if (void* library = dlopen((folder + name).c_str(), RTLD_NOW)) return library;
    }
    return dlopen(("./_binLIN64/" + name).c_str(), RTLD_NOW);
}

class ComponentString final : public StringObject<IComponentString> {
public:
    ComponentString(std::wstring module, std::wstring component)
        : module_(std::move(module)), component_(std::move(component)) {
        UpdateText();
    }

    QResult CreateInstance(const IID* iid, void** object) override {
        if (object == nullptr) return QEL_E_POINTER;
        *object = nullptr;
        if (iid == nullptr) return QEL_E_INVALIDARG;
        std::wstring module;
        std::wstring component;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            module = module_;
            component = component_;
        }
        if (IsRuntimeModule(module)) return CreateBuiltInComponent(component, iid, object);
        QELCreateInstanceFn create = Resolve();
        if (create == nullptr) return QEL_E_FAIL;
        return create(nullptr, iid, object);
    }
    QResult SetPart(int part, tagREFString text) override {
        std::lock_guard<std::mutex> lock(mutex_);
        if (part == QEL_PART_MODULE) {
            module_ = ToWide(text);
        } else if (part == QEL_PART_COMPONENT) {
            component_ = ToWide(text);
        } else {
            return QEL_E_INVALIDARG;
        }
        resolved_ = nullptr;
        UpdateText();
        return QEL_OK;
    }
    QResult GetPart(int part, tagREFString* text) override {
        if (text == nullptr) return QEL_E_POINTER;
        if (part == QEL_PART_MODULE) {
            *text = ToREF(module_);
        } else if (part == QEL_PART_COMPONENT) {
            *text = ToREF(component_);
        } else {
            return QEL_E_INVALIDARG;
        }
        return QEL_OK;
    }

private:
    const IID& OwnInterfaceId() const override { return qel::iid::IComponentString; }

    void UpdateText() { text_ = module_ + L":" + component_; }

    // Loads the module once, hands it the global collection and keeps the
    // component's creation function.
    QELCreateInstanceFn Resolve() {
        std::lock_guard<std::mutex> lock(mutex_);
        if (resolved_ != nullptr) return resolved_;
        void* library = LoadModule(module_);
        if (library == nullptr) return nullptr;
        auto createFunction = reinterpret_cast<QELCreateFunctionFn>(dlsym(library, "CreateFunction"));
        auto initialize = reinterpret_cast<QELInitializeModuleFn>(dlsym(library, "InitializeModule"));
        if (createFunction == nullptr) return nullptr;
        if (initialize != nullptr) {
            SmartPtr<IComponentCollection> collection(GlobalCollection());
            initialize(nullptr, collection.Get());
        }
        QELCreateInstanceFn create = nullptr;
        if (createFunction(ToREF(component_), &create) < 0) return nullptr;
        resolved_ = create;
        return resolved_;
    }

    std::mutex mutex_;
    std::wstring module_;
    std::wstring component_;
    QELCreateInstanceFn resolved_ = nullptr;
};

}  // namespace

ICreatableString* NewCreatableString() { return new CreatableString(); }

IComponentString* NewComponentString(const std::wstring& module, const std::wstring& component) {
    return new ComponentString(module, component);
}

}  // namespace qelhost
