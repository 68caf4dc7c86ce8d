// Destination creation and result handover shared by every filter.
#include "filter/filter_common.h"

#include <utility>

#include "module/host_services.h"
#include "module/iids.h"

QResult MakeFilterTarget(IQEL* source, DestinationRoad road, Writes writes, FilterTarget* target) {
    target->source = ReadImageView(source);
    const Writes overwrite =
        writes == Writes::EveryPixel && HasDirectKind(target->source) ? Writes::EveryPixel : Writes::SomePixels;
    Destination made = MakeDestination(ShapeOf(target->source), road, overwrite);
    if (!made.image) return QEL_E_FAIL;
    target->image = std::move(made.image);
    target->destination = made.view;
    target->writable = made.writable;
    return QEL_OK;
}

QResult HandOverResult(IQEL* source, SmartPtr<IQELImage>* image, IQEL** result) {
    if (result != nullptr) {
        *result = image->Detach();
        return QEL_OK;
    }
    SmartPtr<IQELImage> sourceImage = QueryAs<IQELImage>(source, IID_IQELImage);
    if (sourceImage) sourceImage->Assign(image->Get(), 0);
    image->Reset();
    return QEL_OK;
}
