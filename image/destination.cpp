#include "image/destination.h"

#include "module/host_services.h"

Destination MakeDestination(const ImageShape& shape, DestinationRoad road, Writes writes) {
    Destination made;
    if (road == DestinationRoad::ImageDIB) {
        SmartPtr<IQELImageDIB> dib = NewImageDIB();
        made.dib = dib.Get();
        made.image.Reset(dib.Detach());
    } else {
        made.image = NewImageThroughCollection();
    }
    if (!made.image) return made;
    made.created = writes == Writes::EveryPixel
                       ? CreateToOverwrite(made.image.Get(), shape.width, shape.height, shape.planes,
                                           shape.bitCount, shape.colourModel)
                       : made.image->Create(shape.width, shape.height, shape.planes, shape.bitCount,
                                            shape.colourModel);
    made.view = ReadImageView(made.image.Get());
    made.writable = made.view.bits != nullptr && shape.width > 0 && shape.height > 0 &&
                    made.view.width == shape.width && made.view.height == shape.height &&
                    made.view.bitCount == shape.bitCount;
    return made;
}
