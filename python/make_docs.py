"""Writes docs/python.md from the package's docstrings (the tests check that
the file is current):  PYTHONPATH=build/python /usr/bin/python3 python/make_docs.py"""

import inspect
import os
import sys

if __name__ == "__main__":
    sys.path.pop(0)  # this folder holds the package's sources, not the built package
import qelimaging as qi  # noqa: E402

GROUPS = [
    ("Images, arrays and files", ["Image", "as_image", "from_rgb", "to_rgb", "read", "write", "seed", "QelError"]),
    ("Colour (\"QELColorTransform\")", ["colorize", "lut", "negative", "grayscale", "shift_rgb", "gamma", "light",
                                       "set_image_alpha", "set_image_alpha_transparency",
                                       "set_image_transparent_pixel", "threshold"]),
    ("Geometry (\"QELTransform\")", ["flip", "mirror", "rotate", "rotate_clockwise", "skew", "resample", "increase_bpp", "rotate_paste",
                                    "flip_bits", "quad", "transform", "transform_paste", "flip_image_and_bits"]),
    ("Deforms (\"QELDeform\")", ["circle_transform", "bulge", "pinch", "swirl", "polar", "fold"]),
    ("Filters (\"QELFilterTransform\")", ["erode", "edge", "dilate", "filter", "contour", "jitter", "noise", "median",
                                         "emboss", "blur", "soften", "sharpen", "gaussian_blur"]),
    ("Arithmetic (\"QELMaths\")", ["equal", "copy", "add_scale", "scale", "subtract", "create_dest_image", "add",
                                  "scale8"]),
]
ALIASES = {"fill": "equal", "swap_rb": "flip_bits"}

INTRO = """# The Python package `qelimaging`

Every operation of the module on numpy arrays, for Debian's `/usr/bin/python3`
(with `python3-numpy`). After the README's build command:

    PYTHONPATH=build/python /usr/bin/python3 -c "import qelimaging"

`cmake --install build` puts the package, with the module and the runtime in
its folder, where Debian's Python finds it (`lib/python3/dist-packages` under
the `/usr` prefix, `lib/python3.X/dist-packages` under others).

```python
import qelimaging as qi
image = qi.read("photo.jpg")                  # uint8 HxWx3, bytes B, G, R
smooth = qi.median(image, 5)                  # a view of the module's result
turned = qi.rotate_clockwise(smooth, 30, method="lanczos")
qi.write(turned, "out.png")
```

- **Arrays in, arrays out.** uint8 HxW is 8-bit grey, HxWx3 and HxWx4 are
  24- and 32-bit colour in the module's byte order (B, G, R[, A], as OpenCV
  keeps them), int32 HxW is the 32-bit "MONO" integer format. `Image` covers
  1- and 4-bit rows, palettes, colour models and planes; an operation given an
  Image answers an Image. `from_rgb` and `to_rgb` convert Pillow's and
  imageio's order.
- **No copies.** Inputs are read where they lie (padded and bottom-up rows
  too, as long as each row's pixels are contiguous). Results are views of the
  image the module made; the view keeps it alive. The copies made: an
  operation the module does in place copies its input unless `inplace=True`
  (destinations and paste targets likewise); `grayscale` works on a copy of
  8-bit input, since the module reads two bytes past each pixel; `from_rgb`
  and `to_rgb` make new arrays.
- **Threads.** The GIL is released while the module works, and importing makes
  the module's first image-creating call, so threads may run operations at the
  same time on different images. An image written by a call (in place,
  destinations, paste targets) must not be used by another thread meanwhile.
  `noise` and `jitter` draw from the process-wide C `rand` (`seed` sets it).
- **Errors.** A failure code raises `QelError` with the operation, the code
  and qel's wording (`median: failed with 0x80004005 (...)`); a bad array or
  argument raises `ValueError` before the module is called; files raise
  `OSError`.
- Defaults are `qel`'s: `median(img, 5)`, `rotate(img, 30, method=3)`,
  `resample(img, (640, 480), method="lanczos")`, `add(a, b, divisor=2)`.
  Interpolation methods by name: """


def entry(name):
    obj = getattr(qi, name)
    doc = inspect.cleandoc(obj.__doc__ or "")
    if inspect.isclass(obj):
        signature = "class %s" % name
        full = inspect.signature(obj.__init__)
        shown = [p for p in full.parameters.values() if p.name != "self" and not p.name.startswith("_")]
        signature += str(full.replace(parameters=shown))
    else:
        signature = name + str(inspect.signature(obj))
    text = "### `%s`\n\n%s\n" % (signature, doc)
    aliases = [alias for alias, target in ALIASES.items() if target == name]
    if aliases:
        text += "\nAlso available as %s.\n" % ", ".join("`%s`" % a for a in aliases)
    return text


def render():
    parts = [INTRO + ", ".join("`%s` (%d)" % item for item in qi.METHODS.items()) + ".\n"]
    for title, names in GROUPS:
        parts.append("## %s\n" % title)
        parts.extend(entry(name) for name in names)
    return "\n".join(parts)


if __name__ == "__main__":
    target = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "docs", "python.md")
    with open(sys.argv[1] if len(sys.argv) > 1 else target, "w") as out:
        out.write(render())
