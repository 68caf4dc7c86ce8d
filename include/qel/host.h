// Host-side convenience layer: load the imaging module and the host runtime
// from a folder with dlopen, hand the module the runtime's collection, create
// components by name and make images. Header-only; link with -ldl.
//
//   qel::Host host;
//   std::string error;
//   if (!host.Load(qel::FindModuleFolder(), &error)) { ... }
//   SmartPtr<IQELFilterTransform> filters =
//       host.Create<IQELFilterTransform>(L"QELFilterTransform", qel::iid::IQELFilterTransform);
//   SmartPtr<IQELImageDIB> image = host.NewImage(640, 480, 24, QEL_MODEL_BGR);
#pragma once

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>

#include "qel/qel.h"

// An installed copy of this header has the installation's module folder beside it.
#if defined(__has_include)
#if __has_include("install_dirs.h")
#include "install_dirs.h"
#endif
#endif

namespace qel {

// The folder of the running executable; "." when it cannot be read.
inline std::string ExecutableFolder() {
    char path[4096];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path) - 1);
    if (length <= 0) return ".";
    path[length] = '\0';
    const std::string executable(path);
    const size_t slash = executable.rfind('/');
    return slash == std::string::npos ? std::string(".") : executable.substr(0, slash);
}

// "<folder of the running executable>/_binLIN64": where the build tree keeps
// the module and the runtime beside qel.
inline std::string DefaultModuleFolder() { return ExecutableFolder() + "/_binLIN64"; }

inline bool HoldsModule(const std::string& folder) {
    return access((folder + "/QELImaging.so").c_str(), F_OK) == 0;
}

// The folder to load the module from, the first of:
//   1. `chosen` ($QEL_MODULE_DIR) when not empty: the user asked for that one;
//   2. <executableFolder>/_binLIN64 when it holds the module (the build tree);
//   3. <executableFolder>/<relative> when it holds the module, for a program
//      installed with it ("../lib/qelimaging" from bin/);
//   4. `installed`, the folder of the installation the host was built against;
//   5. <executableFolder>/_binLIN64, which the load error then names.
inline std::string ChooseModuleFolder(const char* chosen, const std::string& executableFolder,
                                      const char* relative, const char* installed) {
    if (chosen != nullptr && *chosen != '\0') return chosen;
    const std::string buildTree = executableFolder + "/_binLIN64";
    if (HoldsModule(buildTree)) return buildTree;
    if (relative != nullptr && *relative != '\0' && HoldsModule(executableFolder + "/" + relative))
        return executableFolder + "/" + relative;
    if (installed != nullptr && *installed != '\0') return installed;
    return buildTree;
}

// The module folder for this program. QELIMAGING_MODULE_DIR comes from the
// installed package (the CMake target QELImaging::host, or the installed
// qel/install_dirs.h that pkg-config users include through this header);
// QELIMAGING_RELATIVE_MODULE_DIR is set for programs installed beside the
// module, such as qel.
inline std::string FindModuleFolder() {
#ifdef QELIMAGING_RELATIVE_MODULE_DIR
    const char* relative = QELIMAGING_RELATIVE_MODULE_DIR;
#else
    const char* relative = nullptr;
#endif
#ifdef QELIMAGING_MODULE_DIR
    const char* installed = QELIMAGING_MODULE_DIR;
#else
    const char* installed = nullptr;
#endif
    return ChooseModuleFolder(std::getenv("QEL_MODULE_DIR"), ExecutableFolder(), relative, installed);
}

inline tagREFString REF(const wchar_t* text) { return tagREFString{std::wcslen(text), text}; }

class Host {
public:
    Host() = default;
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // Loads "CollectionsEx.so" and "QELImaging.so" from `folder` and hands the
    // module the runtime's global collection. Library handles stay open.
    bool Load(const std::string& folder, std::string* error /*out, may be null*/) {
        runtime_ = dlopen((folder + "/CollectionsEx.so").c_str(), RTLD_NOW);
        if (runtime_ == nullptr) return Fail(error);
        module_ = dlopen((folder + "/QELImaging.so").c_str(), RTLD_NOW);
        if (module_ == nullptr) return Fail(error);
        runtimeCreate_ = reinterpret_cast<QELCreateFunctionFn>(dlsym(runtime_, "CreateFunction"));
        moduleCreate_ = reinterpret_cast<QELCreateFunctionFn>(dlsym(module_, "CreateFunction"));
        moduleInitialize_ = reinterpret_cast<QELInitializeModuleFn>(dlsym(module_, "InitializeModule"));
        if (runtimeCreate_ == nullptr || moduleCreate_ == nullptr || moduleInitialize_ == nullptr) {
            if (error != nullptr) *error = "a library lacks CreateFunction or InitializeModule";
            return false;
        }
        QELCreateInstanceFn createCollection = nullptr;
        if (runtimeCreate_(REF(L"GlobalComponentCollection"), &createCollection) < 0 ||
            createCollection(nullptr, &iid::IComponentCollection, collection_.OutVoid()) < 0) {
            if (error != nullptr) *error = "the host runtime made no component collection";
            return false;
        }
        moduleInitialize_(nullptr, collection_.Get());
        return true;
    }

    IComponentCollection* Collection() const { return collection_.Get(); }
    void* ModuleHandle() const { return module_; }
    QELCreateFunctionFn ModuleCreateFunction() const { return moduleCreate_; }
    QELInitializeModuleFn ModuleInitialize() const { return moduleInitialize_; }

    // A component of the imaging module, asked for by name through CreateFunction.
    template <class I>
    SmartPtr<I> Create(const wchar_t* name, const IID& iid) const {
        SmartPtr<I> result;
        QELCreateInstanceFn create = nullptr;
        if (moduleCreate_ != nullptr && moduleCreate_(REF(name), &create) == QEL_OK)
            create(nullptr, &iid, result.OutVoid());
        return result;
    }

    // A new runtime image, created with that format when width and height are given.
    SmartPtr<IQELImageDIB> NewImage(int width = 0, int height = 0, int bitCount = 24,
                                    unsigned colourModel = QEL_MODEL_BGR, int planes = 1) const {
        SmartPtr<IQELImageDIB> image;
        if (collection_)
            collection_->CreateComponent(REF(L"QELImageDIB"), &iid::IQELImageDIB, image.OutVoid());
        if (image && (width > 0 || height > 0) &&
            image->Create(width, height, planes, bitCount, colourModel) != QEL_OK)
            image.Reset();
        return image;
    }

private:
    bool Fail(std::string* error /*out, may be null*/) {
        const char* text = dlerror();
        if (error != nullptr) *error = text != nullptr ? text : "dlopen failed";
        return false;
    }

    void* runtime_ = nullptr;
    void* module_ = nullptr;
    QELCreateFunctionFn runtimeCreate_ = nullptr;
    QELCreateFunctionFn moduleCreate_ = nullptr;
    QELInitializeModuleFn moduleInitialize_ = nullptr;
    SmartPtr<IComponentCollection> collection_;
};

// Plain view of plane 0 of an image, for host code that walks pixels.
struct Pixels {
    unsigned char* bits = nullptr;
    int stride = 0;
    int width = 0;
    int height = 0;
    int bitCount = 0;
    unsigned colourModel = 0;
    unsigned char* Row(int y) const { return bits + static_cast<ptrdiff_t>(y) * stride; }
    size_t RowBytes() const { return (static_cast<size_t>(width) * static_cast<size_t>(bitCount) + 7) / 8; }
};

inline Pixels PixelsOf(IQEL* image) {
    Pixels p;
    int planes = 0, reserved = 0;
    image->GetSize(&p.width, &p.height, &planes);
    image->GetFormat(&p.bitCount, &p.colourModel, &reserved);
    image->GetBits(0, &reserved, &p.bits, &p.stride);
    return p;
}

}  // namespace qel
