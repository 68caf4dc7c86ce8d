// Kernel of FillVoids on a plain view, so that it can be run without a host.
#pragma once

#include "image/image_view.h"
#include "qel/types.h"

// Fills the zero samples of the interior of `view` in place, in one raster
// pass. QEL_E_FAIL for bit counts other than 8, 24 and 32.
QResult FillVoidsPixels(const ImageView& view);
