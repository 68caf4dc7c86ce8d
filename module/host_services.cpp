// Host component services: finding the global collection, loading sibling
// modules by the folder rule, and the two roads to a new image.
#include "module/host_services.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "module/iids.h"

namespace {

constexpr char kModuleFolder[] = "./_binLIN64/";
constexpr char kModuleSuffix[] = ".so";
constexpr size_t kPathBufferSize = 264;
constexpr size_t kFolderLength = sizeof(kModuleFolder) - 1;  // 12
constexpr size_t kSuffixLength = sizeof(kModuleSuffix) - 1;  // 3
// Longest module name whose path, suffix and terminating zero fit the buffer.
constexpr size_t kMaxModuleNameLength = kPathBufferSize - kFolderLength - kSuffixLength - 1;

constexpr wchar_t kCollectionsModule[] = L"CollectionsEx";
constexpr wchar_t kGlobalCollectionName[] = L"GlobalComponentCollection";
constexpr wchar_t kComponentStringName[] = L"ComponentString";
constexpr wchar_t kCreatableStringName[] = L"CreatableString";
constexpr wchar_t kStringModuleName[] = L"Collections";
constexpr wchar_t kImageDIBName[] = L"QELImageDIB";

// Writes "./_binLIN64/<name>.so" into `path`. False when the name is too long
// or does not convert to exactly one byte per character.
bool BuildModulePath(tagREFString module, char (&path)[kPathBufferSize]) {
    const uint32_t length = static_cast<uint32_t>(module.length);
    if (length > kMaxModuleNameLength || (length > 0 && module.text == nullptr)) return false;
    wchar_t name[kMaxModuleNameLength + 1];
    for (uint32_t i = 0; i < length; ++i) name[i] = module.text[i];
    name[length] = L'\0';
    std::memcpy(path, kModuleFolder, kFolderLength);
    const size_t converted = std::wcstombs(path + kFolderLength, name, length);
    if (converted != length) return false;
    std::memcpy(path + kFolderLength + length, kModuleSuffix, kSuffixLength + 1);
    return true;
}

}  // namespace

SmartPtr<IComponentCollection> gGlobalComponentCollection;

QELCreateInstanceFn MODULECreateFunction(tagREFString module, tagREFString component) {
    char path[kPathBufferSize];
    if (!BuildModulePath(module, path)) return nullptr;

    void* library = dlopen(path, RTLD_NOW);
    if (library == nullptr) {
        const char* error = dlerror();
        std::printf("Module not available %s, error %s\n", path, error != nullptr ? error : "");
        std::fflush(stdout);
        dlerror();
        return nullptr;
    }
    // The handle is never closed: loaded modules live as long as the process.
    auto createFunction = reinterpret_cast<QELCreateFunctionFn>(dlsym(library, "CreateFunction"));
    auto initializeModule = reinterpret_cast<QELInitializeModuleFn>(dlsym(library, "InitializeModule"));
    if (createFunction == nullptr) return nullptr;
    if (initializeModule != nullptr && gGlobalComponentCollection)
        initializeModule(nullptr, gGlobalComponentCollection.Get());

    QELCreateInstanceFn result = nullptr;
    createFunction(component, &result);
    return result;
}

IComponentCollection* GLOBALComponents() {
    if (!gGlobalComponentCollection) {
        QELCreateInstanceFn create =
            MODULECreateFunction(MakeREFString(kCollectionsModule), MakeREFString(kGlobalCollectionName));
        if (create != nullptr) {
            IComponentCollection* collection = nullptr;
            create(nullptr, &IID_IComponentCollection, reinterpret_cast<void**>(&collection));
            gGlobalComponentCollection.Reset(collection);
        }
        if (!gGlobalComponentCollection) return nullptr;
    }
    gGlobalComponentCollection->AddRef();
    return gGlobalComponentCollection.Get();
}

IComponentString* GetComponentString(IString* name) {
    SmartPtr<IComponentCollection> collection(GLOBALComponents());
    if (!collection) return nullptr;
    int index = -1;
    if (collection->FindItem(name, &index) < 0) return nullptr;
    SmartPtr<IUnknown> item;
    collection->GetItem(index, item.Out());
    if (!item) return nullptr;
    IComponentString* locator = nullptr;
    item->QueryInterface(IID_IComponentString, reinterpret_cast<void**>(&locator));
    return locator;
}

// The reference CreateString takes for the life of the process on the
// locator it makes itself; a module global, so the store stays.
IComponentString* gStringLocatorKept = nullptr;

ICreatableString* CREFString::CreateString() {
    static SmartPtr<IComponentString> gStringComponent;
    if (!gStringComponent && gGlobalComponentCollection) {
        gGlobalComponentCollection->CreateComponent(MakeREFString(kCreatableStringName), nullptr,
                                                    gStringComponent.OutVoid());
    }
    if (!gStringComponent) {
        QELCreateInstanceFn create =
            MODULECreateFunction(MakeREFString(kCollectionsModule), MakeREFString(kComponentStringName));
        if (create == nullptr) return nullptr;
        IComponentString* locator = nullptr;
        create(nullptr, &IID_IComponentString, reinterpret_cast<void**>(&locator));
        if (locator == nullptr) return nullptr;
        // This locator lives as long as the process: the extra reference,
        // held by a plain pointer, is never released, so the holder's release
        // at unload leaves it alive (and leak checkers still see it held).
        locator->AddRef();
        gStringLocatorKept = locator;
        gStringComponent.Reset(locator);
        gStringComponent->SetPart(QEL_PART_MODULE, MakeREFString(kStringModuleName));
        gStringComponent->SetPart(QEL_PART_COMPONENT, MakeREFString(kCreatableStringName));
    }
    ICreatableString* text = nullptr;
    gStringComponent->CreateInstance(&IID_ICreatableString, reinterpret_cast<void**>(&text));
    return text;
}

IQELImageDIB* QELObject::CreateImageDIB() {
    static SmartPtr<IComponentString> gQELImageDIB;
    if (!gQELImageDIB) {
        SmartPtr<ICreatableString> name(CREFString::CreateString());
        if (!name) return nullptr;
        // The component name is ASCII, so each byte decodes to one wide character.
        for (const wchar_t character : kImageDIBName) {
            if (character == L'\0') break;
            name->AppendChars(1, &character);
        }
        gQELImageDIB.Reset(GetComponentString(name.Get()));
        if (!gQELImageDIB) return nullptr;
    }
    IQELImageDIB* image = nullptr;
    gQELImageDIB->CreateInstance(&IID_IQELImageDIB, reinterpret_cast<void**>(&image));
    return image;
}

IQELImage* CreateImageThroughCollection() {
    SmartPtr<IComponentCollection> collection(GLOBALComponents());
    if (!collection) return nullptr;
    IQELImage* image = nullptr;
    collection->CreateComponent(MakeREFString(kImageDIBName), &IID_IQELImage,
                                reinterpret_cast<void**>(&image));
    return image;
}

QResult CreateToOverwrite(IQEL* image, int width, int height, int planes, int bitCount,
                          unsigned colourModel) {
    SmartPtr<IQELImageUninitialised> uninitialised =
        QueryAs<IQELImageUninitialised>(image, IID_IQELImageUninitialised);
    if (uninitialised)
        return uninitialised->CreateUninitialised(width, height, planes, bitCount, colourModel);
    return image->Create(width, height, planes, bitCount, colourModel);
}
