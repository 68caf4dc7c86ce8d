// The one way an operation makes its new image: by which road, in what shape,
// and the view its kernels write through. The view is offered only when the
// host really made the shape asked for, so an odd or failed Create never
// leads to a write outside the image.
#pragma once

#include "image/image_view.h"
#include "qel/image.h"

// The two ways of making a new image; both give the same kind of image.
enum class DestinationRoad { ImageDIB, Collection };

// Whether the caller writes every pixel byte of every row (then the image may
// be made without clearing its pixels) or leaves some as Create made them.
enum class Writes { EveryPixel, SomePixels };

// What a new image is asked to be.
struct ImageShape {
    int width = 0;
    int height = 0;
    int planes = 1;
    int bitCount = 0;
    unsigned int colourModel = 0;
};

// The shape of `view`, to make an image like it.
inline ImageShape ShapeOf(const ImageView& view) {
    return ImageShape{view.width, view.height, view.planes, view.bitCount, view.colourModel};
}

struct Destination {
    SmartPtr<IQELImage> image;     // null when no image could be made
    IQELImageDIB* dib = nullptr;   // the same image, when made by the ImageDIB road (no reference of its own)
    QResult created = QEL_E_FAIL;  // what Create answered
    ImageView view;                // the image as the host made it
    bool writable = false;         // view has the asked size and depth, with pixels

    // The view to write through, or null when the image is not what was asked.
    const ImageView* Canvas() const { return writable ? &view : nullptr; }
};

// Makes a new image of `shape` by `road`. Empty (no image) when the road gave
// none; otherwise `created`, `view` and `writable` say what the host made.
Destination MakeDestination(const ImageShape& shape, DestinationRoad road, Writes writes);
