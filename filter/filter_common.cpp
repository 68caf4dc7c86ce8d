// Destination creation and result handover shared by every filter.
#include "filter/filter_common.h"

#include "module/host_services.h"
#include "module/iids.h"

QResult MakeFilterTarget(IQEL* source, DestinationRoad road, Writes writes, FilterTarget* target) {
    target->source = ReadImageView(source);
    if (road == DestinationRoad::ImageDIB) {
        SmartPtr<IQELImageDIB> made = NewImageDIB();
        target->image.Reset(made.Detach());
    } else {
        target->image = NewImageThroughCollection();
    }
    if (!target->image) return QEL_E_FAIL;
    const ImageView& s = target->source;
    const bool directDepth = s.bitCount == 8 || s.bitCount == 24 || s.bitCount == 32;
    if (writes == Writes::EveryPixel && directDepth && s.bits != nullptr)
        CreateToOverwrite(target->image.Get(), s.width, s.height, s.planes, s.bitCount, s.colourModel);
    else
        target->image->Create(s.width, s.height, s.planes, s.bitCount, s.colourModel);
    target->destination = ReadImageView(target->image.Get());
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
