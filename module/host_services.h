// Client side of the host's component services: the global collection, the
// loading of sibling modules, component locators, strings and new images.
#pragma once

#include "qel/collections.h"
#include "qel/image.h"

// The host's collection, handed over by InitializeModule or loaded lazily.
extern SmartPtr<IComponentCollection> gGlobalComponentCollection;

// Loads "./_binLIN64/<module>.so" (relative to the working directory) and asks
// it for the creation function of `component`. Null when the module cannot be
// loaded, lacks CreateFunction, or its name would not fit the path buffer.
QELCreateInstanceFn MODULECreateFunction(tagREFString module, tagREFString component);

// The global collection with one new reference for the caller, or null.
IComponentCollection* GLOBALComponents();

// The collection's locator registered under `name`, with one reference, or null.
IComponentString* GetComponentString(IString* name);

struct CREFString {
    // A new, empty string object with one reference, or null.
    static ICreatableString* CreateString();
};

struct QELObject {
    // A new "QELImageDIB" image through the cached locator, or null.
    static IQELImageDIB* CreateImageDIB();
};

// A new "QELImageDIB" image made through the global collection, or null.
IQELImage* CreateImageThroughCollection();

// Create for a caller that then writes every byte of every row: pixels are
// left uncleared when the host image offers that, else this is Create.
QResult CreateToOverwrite(IQEL* image, int width, int height, int planes, int bitCount, unsigned colourModel);

// Holders for the two roads to a new image; empty when no image could be made.
inline SmartPtr<IQELImage> NewImageThroughCollection() {
    return SmartPtr<IQELImage>(CreateImageThroughCollection());
}
inline SmartPtr<IQELImageDIB> NewImageDIB() { return SmartPtr<IQELImageDIB>(QELObject::CreateImageDIB()); }
