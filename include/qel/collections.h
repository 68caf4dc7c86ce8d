// Host component services: the component collection, component locators and
// strings. The module calls only the slots marked "called by the module";
// the other slots are the host runtime's own, and reserved slots answer
// QEL_E_NOTIMPL so that the positions of later slots stay fixed.
#pragma once

#include "qel/unknown.h"

// A read-only counted string.
struct IString : IUnknown {
    // The text (owned by the string, valid until it changes) and its length.
    virtual QResult GetString(tagREFString* text /*out*/) = 0;  // slot 3
    virtual QResult GetLength(int* length /*out*/) = 0;         // slot 4

protected:
    ~IString() = default;
};

// A string that can be built up.
struct ICreatableString : IString {
    virtual QResult AppendChars(int count, const wchar_t* characters) = 0;  // slot 5, called by the module
    virtual QResult SetString(tagREFString text) = 0;                       // slot 6
    virtual QResult Clear() = 0;                                            // slot 7

protected:
    ~ICreatableString() = default;
};

// Component locator parts used with SetPart/GetPart.
constexpr int QEL_PART_COMPONENT = 1;
constexpr int QEL_PART_MODULE = 4;

// A locator naming a component of a module; its text (IString) is "module:component".
struct IComponentString : IString {
    // Creates an instance of the located component (loading its module on first need).
    virtual QResult CreateInstance(const IID* iid,
                                   void** object /*out*/) = 0;          // slot 5, called by the module
    virtual QResult SetPart(int part, tagREFString text) = 0;           // slot 6, called by the module
    virtual QResult GetPart(int part, tagREFString* text /*out*/) = 0;  // slot 7

protected:
    ~IComponentString() = default;
};

// A collection of named items; the global one holds a locator per component.
struct IComponentCollection : IUnknown {
    virtual QResult GetCount(int* count /*out*/) = 0;                 // slot 3
    virtual QResult GetItem(int index, IUnknown** item /*out*/) = 0;  // slot 4, called by the module
    virtual QResult FindItem(
        IString* name, int* index /*out*/) = 0;  // slot 5, called by the module; negative when not found
    virtual QResult AddItem(tagREFString name, IUnknown* item,
                            int* index /*out, may be null*/) = 0;            // slot 6
    virtual QResult RemoveItem(int index) = 0;                               // slot 7
    virtual QResult GetItemName(int index, tagREFString* name /*out*/) = 0;  // slot 8
    // Registers a locator for `component` of `module` under `name` (replacing one of that name).
    virtual QResult RegisterComponent(tagREFString name, tagREFString module,
                                      tagREFString component) = 0;  // slot 9
    virtual QResult Reserved10() = 0;                               // slot 10
    virtual QResult Reserved11() = 0;                               // slot 11
    virtual QResult Reserved12() = 0;                               // slot 12
    virtual QResult Reserved13() = 0;                               // slot 13
    virtual QResult Reserved14() = 0;                               // slot 14
    virtual QResult Reserved15() = 0;                               // slot 15
    // Creates the named component; a null iid hands back its IComponentString locator.
    virtual QResult CreateComponent(tagREFString name, const IID* iid,
                                    void** object /*out*/) = 0;  // slot 16, called by the module

protected:
    ~IComponentCollection() = default;
};

// The two entry points every module exports.
using QELCreateInstanceFn = QResult (*)(void* reserved, const IID* iid, void** object /*out*/);
using QELCreateFunctionFn = QResult (*)(tagREFString name, QELCreateInstanceFn* out /*out*/);
using QELInitializeModuleFn = QResult (*)(void* reserved, IComponentCollection* collection);
