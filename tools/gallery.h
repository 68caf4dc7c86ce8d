// The gallery: every operation applied with representative parameters,
// written as DIR/index.html (original beside result, with timings) and one
// contact-sheet PNG.
#pragma once

#include <string>

#include "tools/operations.h"

namespace qeltool {

struct GalleryOptions {
    std::string inputName;  // shown on the page
    std::string folder;
    int thumbnailSide = 160;
};

// Returns the process exit status; prints its own messages.
int RunGallery(OperationContext& context, IQEL* input, const GalleryOptions& options);

}  // namespace qeltool
