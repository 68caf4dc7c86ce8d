// Kernels of Transform and TransformPaste on plain views, driven by a
// caller's ITransform, so that they can be run without a host.
#pragma once

#include "image/image_view.h"
#include "qel/image.h"

// Backward mapping: every pixel of `target` is copied from the source pixel
// the transform sends (x + xOffset, y + yOffset) to; points outside the
// source, not numbers included, leave the target pixel as it is. 8, 24 and
// 32 bits, source and target of the same depth.
void TransformPixels(ITransform* transform, const ImageView& source, const ImageView& target, int xOffset,
                     int yOffset);

// Forward mapping: every source pixel is written where the transform sends
// it, shifted by the offsets, with the gap rules of its depth. With
// `fillVoids` no written pixel is all zero (24 and 32 bits). Source and
// target of the same depth. Returns true when the target should now be
// passed to FillVoids (24 and 32 bits with fillVoids).
bool TransformPastePixels(ITransform* transform, const ImageView& source, const ImageView& target,
                          int xOffset, int yOffset, bool fillVoids);
