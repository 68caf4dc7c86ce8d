"""Every public operation of the module's five components, on arrays or Images.

Arrays in, arrays out: an operation given an array answers an array, one
given an Image answers an Image. Results are views of the image the module
made (no copy); the view keeps that image alive. Operations the module does in
place work on a copy of the input unless ``inplace=True``. Every failure code
raises QelError; a bad array or argument raises ValueError before the module
is called. The GIL is released while the module works.
"""

import math

from . import _core
from ._image import (ARGB, BGR, Image, QelError, _answer, _hand_back, _in_place, _model, _number, _run, _whole,
                     as_image)

# Interpolation methods of rotate, resample and rotate_paste, by name.
METHODS = {
    "nearest": 0, "pixel": 1, "bspline": 2, "cubic": 3, "catmull-rom": 4, "lanczos": 5, "box": 6,
    "hermite": 7, "damped-hermite": 8, "sinc": 9, "cosine-sum": 10, "bessel": 11, "gaussian": 12,
    "quadratic": 13, "mitchell": 14, "catmull-rom-signed": 15,
}


def _method(method):
    if isinstance(method, str):
        if method not in METHODS:
            raise ValueError("unknown method %r (%s)" % (method, ", ".join(METHODS)))
        return METHODS[method]
    return _whole(method, "method")


def _pair(value, name):
    try:
        first, second = value
    except (TypeError, ValueError):
        raise ValueError("%s must be a pair of numbers, got %r" % (name, value)) from None
    return _number(first, name), _number(second, name)


def _colour(value, name, red_high=False):
    """A colour as an int in the module's packing, or (red, green, blue) packed
    with red in the lowest byte as the alpha operations read their key (in the
    highest of three, 0xRRGGBB, with ``red_high``)."""
    if isinstance(value, (tuple, list)):
        red, green, blue = (_whole(v, name, 0, 255) for v in value)
        return red << 16 | green << 8 | blue if red_high else red | green << 8 | blue << 16
    return _whole(value, name, 0, 0xFFFFFF) if red_high else _whole(value, name)


# ---- QELColorTransform: in place -------------------------------------------

def colorize(image, hue, saturation=255, blend=1.0, *, inplace=False):
    """Tints to one hue (0-255 for 0-360 degrees) and saturation, keeping
    lightness; ``blend`` is the share of the tint. 24- and 32-bit pixels
    (alpha kept); 1-, 4- and 8-bit images get their palette tinted."""
    return _in_place("colorize", "Colorize", image,
                     [_whole(hue, "hue", 0, 255), _whole(saturation, "saturation", 0, 255),
                      _number(blend, "blend")], inplace)


def lut(image, table, *, inplace=False):
    """Maps every colour byte through ``table`` (256 values 0-255). 8-, 24-
    and 32-bit images; alpha is kept."""
    values = [_whole(v, "table", 0, 255) for v in list(table)]
    if len(values) != 256:
        raise ValueError("the table has 256 entries, got %d" % len(values))
    return _in_place("lut", "Lut", image, values, inplace)


def negative(image, *, inplace=False):
    """Inverts the colours of 8-, 24- and 32-bit images (alpha kept)."""
    return _in_place("negative", "Negative", image, [], inplace)


def grayscale(image, *, inplace=False):
    """Turns colours to grey, the mean of red, green and blue, on 8-, 24- and
    32-bit images. The module reads two bytes past each 8-bit pixel, so an
    8-bit array is always worked on in a copy (with ``inplace=True`` the
    result is copied back)."""
    if inplace and not isinstance(image, Image) and getattr(image, "ndim", 0) == 2 and image.dtype.itemsize == 1:
        as_image(image, written=True)  # the checks of an in-place call
        image[...] = grayscale(image)
        return image
    return _in_place("grayscale", "GrayScale", image, [], inplace)


def shift_rgb(image, red, green=0, blue=0, *, inplace=False):
    """Adds an offset to red, green and blue. 24- and 32-bit pixels; the
    palette of 1-, 4- and 8-bit images."""
    return _in_place("shift_rgb", "ShiftRGB", image,
                     [_whole(red, "red"), _whole(green, "green"), _whole(blue, "blue")], inplace)


def gamma(image, gamma, *, inplace=False):
    """Gamma correction of 8-, 24- and 32-bit images; above 1 brightens."""
    return _in_place("gamma", "Gamma", image, [_number(gamma, "gamma")], inplace)


def light(image, brightness, contrast=0, *, inplace=False):
    """Changes brightness (added) and contrast (percent) of 8-, 24- and
    32-bit images."""
    return _in_place("light", "Light", image, [_whole(brightness, "brightness"), _whole(contrast, "contrast")],
                     inplace)


def set_image_alpha(image, alpha, *, inplace=False):
    """Sets the alpha byte of every pixel of a 32-bit image (0 is stored as 1).
    Images without alpha are the module's to refuse or convert; qel converts
    them to 32-bit "ARGB" first (``increase_bpp(image, 32)``)."""
    return _in_place("set_image_alpha", "SetImageAlpha", image, [_whole(alpha, "alpha")], inplace)


def set_image_alpha_transparency(image, alpha, key_colour, *, inplace=False):
    """Sets one alpha on every pixel of a 32-bit image and alpha 0 where the
    colour is ``key_colour`` ((red, green, blue), or an int with red in the
    lowest byte)."""
    return _in_place("set_image_alpha_transparency", "SetImageAlphaTransparency", image,
                     [_whole(alpha, "alpha"), _colour(key_colour, "key_colour")], inplace)


def set_image_transparent_pixel(image, key_colour, *, inplace=False):
    """Alpha 0 on every pixel of a 32-bit image whose colour is ``key_colour``
    ((red, green, blue), or an int with red in the lowest byte)."""
    return _in_place("set_image_transparent_pixel", "SetImageTransparentPixel", image,
                     [_colour(key_colour, "key_colour")], inplace)


def threshold(image, level=128, *, inplace=False):
    """Black and white: white where the grey level is above ``level``. 8-,
    24- and 32-bit pixels; the palette of 1- and 4-bit images."""
    return _in_place("threshold", "Threshold", image, [_whole(level, "level")], inplace)


# ---- QELTransform ----------------------------------------------------------

def _made(operation, method, image, numbers, transform=None):
    """An operation that delivers a new image."""
    source = as_image(image)
    _, made = _run(operation, method, [source], numbers, transform)
    return _hand_back(made, image)


def flip(image):
    """Upside down; every depth."""
    return _made("flip", "Flip", image, [])


def mirror(image):
    """Left to right; 8-, 24- and 32-bit images."""
    return _made("mirror", "Mirror", image, [])


def rotate(image, angle, method=3, *, force_alpha=False, keep_size=False):
    """The module's Rotate: turns anticlockwise by whole degrees with an
    interpolation ``method`` (0-15 or a name of METHODS), except that 90 and
    270 turn clockwise by their angle, as the module defines them. The result
    grows to the turned bounding box unless ``keep_size``; ``force_alpha``
    makes it 32-bit with alpha. 8-, 24- and 32-bit images. ``rotate_clockwise``
    turns as people and qel expect."""
    return _made("rotate", "Rotate", image,
                 [_whole(angle, "angle"), _method(method), int(bool(force_alpha)), int(bool(keep_size))])


def rotate_clockwise(image, angle, method=3, *, add_alpha=False, keep_size=False, background=None):
    """Turns clockwise by any ``angle`` in degrees, as qel's rotate word does:
    quarter and half turns exact, whole degrees interpolated by ``method``
    (0-15 or a name of METHODS) with the picture reaching the edges, fractions
    of a degree by the nearest pixel. The result grows to the turned rectangle
    unless ``keep_size``. Uncovered corners are transparent on images with
    alpha, else the top-left pixel's colour, or ``background`` ((red, green,
    blue) or an int 0xRRGGBB); ``add_alpha`` gives an image without alpha one
    first, so that only the corners are clear. 8-, 24- and 32-bit images."""
    source = as_image(image)
    fill = None if background is None else _colour(background, "background", red_high=True)
    answer = _core.rotate_clockwise(source._image, _number(angle, "angle"), _whole(_method(method), "method", 0, 15),
                                    bool(add_alpha), bool(keep_size), fill)
    _, made = _answer("rotate_clockwise", answer)
    return _hand_back(made, image)


def skew(image, x_gain, y_gain=0.0, *, pivot=(0, 0), force_alpha=False):
    """Shears about ``pivot`` (x, y), keeping the size: each row moves by
    ``x_gain`` per row from the pivot, each column by ``y_gain``. Every depth;
    ``force_alpha`` makes the result 32-bit with alpha."""
    x, y = _pair(pivot, "pivot")
    return _made("skew", "Skew", image, [_number(x_gain, "x_gain"), _number(y_gain, "y_gain"),
                                         _whole(int(x), "pivot"), _whole(int(y), "pivot"), int(bool(force_alpha))])


def resample(image, size, method=3, *, nearest_only=False):
    """Scales to ``size`` (width, height) with an interpolation ``method``
    (0-15 or a name of METHODS); ``nearest_only`` copies nearest pixels.
    Every depth."""
    width, height = _pair(size, "size")
    return _made("resample", "Resample", image, [_whole(width, "width"), _whole(height, "height"),
                                                 _method(method), int(bool(nearest_only))])


def increase_bpp(image, bit_count, colour_model=None):
    """Converts 1-, 4-, 8- and 24-bit images to 24- or 32-bit colour (palette
    colours are used). ``colour_model`` defaults to "ARGB" at 32 bits and
    "BGR " at 24. An image already of that depth comes back as it is."""
    bits = _whole(bit_count, "bit_count")
    model = (ARGB if bits == 32 else BGR) if colour_model is None else _model(colour_model)
    return _made("increase_bpp", "IncreaseBpp", image, [bits, model])


def rotate_paste(image, angle, target=None, method=3, *, key_colour=None, inplace=False):
    """Draws ``image`` rotated anticlockwise by ``angle`` degrees onto
    ``target`` at its top-left corner (24- and 32-bit images; 32-bit blends by
    alpha); ``key_colour`` (an int, RRGGBB) is left undrawn. Without a target,
    draws on black of the image's size (24-bit below 24 bits). The target is
    written in place with ``inplace=True``, else a copy of it."""
    source = as_image(image)
    paste = _paste_target(source, target, 24, inplace)
    _run("rotate_paste", "RotatePaste", [source, paste],
         [_number(angle, "angle") * math.pi / 180.0, _method(method),
          -1 if key_colour is None else _whole(key_colour, "key_colour")])
    return _pasted(paste, target, image, inplace)


def _paste_target(source, target, minimum_bits, inplace):
    if target is None:
        bits = max(source.bit_count, minimum_bits)
        model = source._image.colour_model_code if bits == source.bit_count else BGR
        return Image(source.width, source.height, bits, model)
    paste = as_image(target, written=inplace)
    return paste if inplace else paste.copy()


def _pasted(paste, target, image, inplace):
    if inplace:
        return target
    return _hand_back(paste, target if target is not None else image)


def flip_bits(image, *, inplace=False):
    """Exchanges red and blue of 24- and 32-bit images."""
    return _in_place("flip_bits", "FlipBits", image, [], inplace)


swap_rb = flip_bits


def quad(image, p1, p2, p3, p4, size=None, *, blend=False):
    """Straightens the quadrilateral with corners ``p1`` (top left), ``p2``
    (top right), ``p3`` (bottom left) and ``p4`` (bottom right), each (x, y),
    into a rectangle of ``size`` (width, height); without a size, or a side 0,
    the sides come from the shorter opposite edges. ``blend`` blends
    neighbouring pixels. 8-, 24- and 32-bit images."""
    corners = []
    for name, point in (("p1", p1), ("p2", p2), ("p3", p3), ("p4", p4)):
        corners.extend(_pair(point, name))
    width, height = (0, 0) if size is None else _pair(size, "size")
    return _made("quad", "Quad", image, corners + [_whole(width, "width", 0), _whole(height, "height", 0),
                                                   int(bool(blend))])


def _mapping(mapping):
    """An affine matrix (six numbers a..f, or 2x3 / 3x3 rows) runs without
    Python per pixel; any other callable is called with (x, y) per pixel."""
    if callable(mapping):
        return mapping
    try:
        values = [float(v) for row in mapping for v in (row if hasattr(row, "__len__") else [row])]
    except TypeError:
        raise ValueError("the mapping must be a callable or an affine matrix") from None
    if len(values) == 9:
        values = values[:6]
    if len(values) != 6:
        raise ValueError("an affine matrix has six numbers (a, b, c, d, e, f) or 2x3 or 3x3 rows")
    return tuple(values)


def transform(image, mapping, *, offset=(0, 0), size=None):
    """Warps by ``mapping`` from result to source coordinates: a callable
    ``(x, y) -> (x, y)`` called for each result pixel (with the GIL), or an
    affine matrix (a, b, c, d, e, f): x' = a x + b y + c, y' = d x + e y + f,
    applied without Python. ``offset`` is added to result coordinates before
    mapping; ``size`` (width, height) defaults to the image's. 8-, 24- and
    32-bit images. An exception in the callable is raised after the call."""
    ox, oy = _pair(offset, "offset")
    width, height = (0, 0) if size is None else _pair(size, "size")
    return _made("transform", "Transform", image,
                 [_whole(int(ox), "offset"), _whole(int(oy), "offset"), _whole(width, "width", 0),
                  _whole(height, "height", 0)], _mapping(mapping))


def transform_paste(image, mapping, target=None, *, offset=(0, 0), fill_voids=False, inplace=False):
    """Pastes ``image`` forwards through ``mapping`` (a callable or an affine
    matrix, as for ``transform``) onto ``target``; ``offset`` is added to the
    mapped coordinates and ``fill_voids`` fills the holes the mapping leaves.
    Without a target, draws on black of the image's size and format. The target
    is written in place with ``inplace=True``, else a copy of it. 8-, 24- and
    32-bit images."""
    source = as_image(image)
    paste = _paste_target(source, target, 8, inplace)
    ox, oy = _pair(offset, "offset")
    _run("transform_paste", "TransformPaste", [source, paste],
         [_whole(int(ox), "offset"), _whole(int(oy), "offset"), int(bool(fill_voids))], _mapping(mapping))
    return _pasted(paste, target, image, inplace)


def flip_image_and_bits(image, *, inplace=False):
    """Upside down and red exchanged with blue, in place; 24- and 32-bit images."""
    return _in_place("flip_image_and_bits", "FlipImageAndBits", image, [], inplace)


# ---- QELDeform -------------------------------------------------------------

def circle_transform(image, mode, *, with_alpha=False, factor=1.0, inplace=False):
    """The circle deforms by mode: 0 bulge, 1 pinch, 2 swirl (``factor``:
    larger twists less), 3 polar unwrap, 4 fold in strips of 32 pixels. Every
    depth; ``with_alpha`` makes the image 32-bit with opaque alpha (an array
    written in place cannot change its format: ValueError, array unchanged)."""
    return _in_place("circle_transform", "CircleTransform", image,
                     [_whole(mode, "mode"), int(bool(with_alpha)), _number(factor, "factor")], inplace)


def bulge(image, *, with_alpha=False, inplace=False):
    """Magnifies the centre like a lens (circle_transform mode 0)."""
    return circle_transform(image, 0, with_alpha=with_alpha, inplace=inplace)


def pinch(image, *, with_alpha=False, inplace=False):
    """Pulls the picture in towards the centre (circle_transform mode 1)."""
    return circle_transform(image, 1, with_alpha=with_alpha, inplace=inplace)


def swirl(image, factor=1.0, *, with_alpha=False, inplace=False):
    """Twists around the centre; larger factors twist less (mode 2)."""
    return circle_transform(image, 2, with_alpha=with_alpha, factor=factor, inplace=inplace)


def polar(image, *, with_alpha=False, inplace=False):
    """Unwraps the picture from polar coordinates (circle_transform mode 3)."""
    return circle_transform(image, 3, with_alpha=with_alpha, inplace=inplace)


def fold(image, *, with_alpha=False, inplace=False):
    """Folds the columns in strips of 32 pixels (circle_transform mode 4)."""
    return circle_transform(image, 4, with_alpha=with_alpha, inplace=inplace)


# ---- QELFilterTransform: a new image ---------------------------------------

def erode(image, size=3):
    """Darkens: the minimum of each ``size`` x ``size`` neighbourhood. Every depth."""
    return _made("erode", "Erode", image, [_whole(size, "size")])


def edge(image, size=3):
    """Edges: maximum minus minimum of each neighbourhood. Every depth."""
    return _made("edge", "Edge", image, [_whole(size, "size")])


def dilate(image, size=3):
    """Brightens: the maximum of each neighbourhood. Every depth."""
    return _made("dilate", "Dilate", image, [_whole(size, "size")])


def filter(image, kernel, divisor=None, offset=0):  # noqa: A001 - the module's name
    """Convolves with a square kernel (size x size weights, row by row, as a
    flat list or rows). The sums are divided by ``divisor`` (default the
    weights' sum; 0 divides by nothing) and ``offset`` is added. Every depth."""
    weights = [_whole(v, "kernel") for row in kernel for v in (row if hasattr(row, "__len__") else [row])]
    size = math.isqrt(len(weights))
    if size == 0 or size * size != len(weights):
        raise ValueError("the kernel has size x size weights, got %d" % len(weights))
    divisor = sum(weights) if divisor is None else _whole(divisor, "divisor")
    return _made("filter", "Filter", image, [divisor, _whole(offset, "offset")] + weights)


def contour(image):
    """Dark outlines of the shapes. Every depth."""
    return _made("contour", "Contour", image, [])


def jitter(image, amount=3):
    """Moves every pixel by a random amount up to ``amount`` pixels. Every
    depth. Draws from the process-wide C ``rand`` (see ``seed``), shared with
    every other user of it in the process."""
    return _made("jitter", "Jitter", image, [_whole(amount, "amount")])


def noise(image, amount=40):
    """Adds random noise of spread ``amount`` to every channel. Every depth.
    Draws from the process-wide C ``rand`` (see ``seed``), shared with every
    other user of it in the process."""
    return _made("noise", "Noise", image, [_whole(amount, "amount")])


def median(image, size=3):
    """The median of each ``size`` x ``size`` neighbourhood: removes specks. Every depth."""
    return _made("median", "Median", image, [_whole(size, "size")])


def emboss(image):
    """Relief effect. Every depth."""
    return _made("emboss", "Emboss", image, [])


def blur(image):
    """3x3 box blur. Every depth."""
    return _made("blur", "Blur", image, [])


def soften(image):
    """Gentle 3x3 blur. Every depth."""
    return _made("soften", "Soften", image, [])


def sharpen(image):
    """3x3 sharpening. Every depth."""
    return _made("sharpen", "Sharpen", image, [])


def gaussian_blur(image, level=1):
    """Gaussian blur, ``level`` 0 (3x3) to 3 (5x5, widest). Every depth."""
    return _made("gaussian_blur", "GaussianBlur", image, [_whole(level, "level")])


# ---- QELMaths --------------------------------------------------------------

def _mask(mask):
    return None if mask is None else as_image(mask)


def equal(image, value, *, mask=None, inplace=False):
    """Sets every pixel (or those where the 8-bit ``mask`` is not 0) to
    ``value``, packed as the image's pixels are (0x336699 is red 33, green 66,
    blue 99 at 24 bits). 8-, 24- and 32-bit images, 32-bit "MONO" integers."""
    target = as_image(image, written=inplace)
    if not inplace:
        target = target.copy()
    _run("equal", "Equal", [target, _mask(mask)], [_whole(value, "value")])
    return image if inplace else _hand_back(target, image)


fill = equal


def copy(dest, source, *, at=(0, 0), mask=None, inplace=False):
    """Pastes ``source`` into ``dest`` with its top-left corner ``at`` (x, y),
    converting its depth; where a ``mask`` is given only where it is not 0
    (``mask=dest`` writes only into zero bytes). 8-, 24- and 32-bit images.
    ``dest`` is written in place with ``inplace=True``, else a copy of it."""
    target = as_image(dest, written=inplace)
    if not inplace:
        target = target.copy()
    x, y = _pair(at, "at")
    given_mask = target if mask is dest and mask is not None else _mask(mask)
    _run("copy", "Copy", [target, as_image(source), given_mask], [_whole(int(x), "at"), _whole(int(y), "at")])
    return dest if inplace else _hand_back(target, dest)


def _destination(dest, like):
    """The caller's destination (written in place), or a copy of ``like``, as
    qel makes one."""
    return as_image(dest, written=True) if dest is not None else as_image(like).copy()


def add_scale(a, b, factor_a=0.5, factor_b=0.5, offset=0.0, *, mask=None, dest=None):
    """``a`` x factor_a + ``b`` x factor_b + offset, per sample, where the
    8-bit ``mask`` (if given) is not 0, into ``dest`` (default a copy of
    ``a``). 8-, 24- and 32-bit images of one format."""
    target = _destination(dest, a)
    _run("add_scale", "AddScale", [target, as_image(a), as_image(b), _mask(mask)],
         [_number(factor_a, "factor_a"), _number(factor_b, "factor_b"), _number(offset, "offset")])
    return dest if dest is not None else _hand_back(target, a)


def scale(image, factor, offset=0.0, *, mask=None, dest=None):
    """Every sample x ``factor`` + ``offset`` into ``dest`` (default a copy of
    the image; a destination of another depth or model converts). 8-, 24- and
    32-bit images and 32-bit "MONO" integers; the mask is for 8-bit images."""
    target = _destination(dest, image)
    _run("scale", "Scale", [target, as_image(image), _mask(mask)],
         [_number(factor, "factor"), _number(offset, "offset")])
    return dest if dest is not None else _hand_back(target, image)


def subtract(a, b, flags=0, *, absolute=False, dest=None, return_count=False):
    """``a`` - ``b`` per sample into ``dest`` (default a copy of ``a``);
    ``flags`` 1 (or ``absolute``) takes the absolute difference, 2 makes a
    32-bit result transparent where equal. 8-, 24- and 32-bit images of one
    format. With ``return_count``, answers (result, the module's count of
    samples differing by 2 or more at 24 and 32 bits)."""
    target = _destination(dest, a)
    code, _ = _run("subtract", "Subtract", [target, as_image(a), as_image(b)],
                   [_whole(flags, "flags") | (1 if absolute else 0)])
    result = dest if dest is not None else _hand_back(target, a)
    return (result, code) if return_count else result


def create_dest_image(image, bit_count=0, colour_model=0):
    """An empty (zero) image of the image's size; ``bit_count`` and
    ``colour_model`` 0 keep the image's. Any depth."""
    return _made("create_dest_image", "CreateDestImage", image,
                 [_whole(bit_count, "bit_count"), _model(colour_model) if colour_model else 0])


def add(a, b, divisor=0.0, *, dest=None):
    """(``a`` + ``b``) / ``divisor`` per sample (0 divides by nothing; 2 is a
    special case that brightens), into a new image or ``dest``. ``b`` must be
    at least as large as ``a``. 8-, 24- and 32-bit images."""
    target = as_image(dest, written=True) if dest is not None else Image()
    _run("add", "Add", [target, as_image(a), as_image(b)], [_number(divisor, "divisor")])
    return dest if dest is not None else _hand_back(target, a)


def scale8(image, factor, offset=0, *, dest=None):
    """32-bit "MONO" integers (an int32 array) to 8-bit grey: sample x
    ``factor`` + ``offset``, into a new image or ``dest``. Other images fail
    with the module's code 0xF0040031 (not MONO)."""
    target = as_image(dest, written=True) if dest is not None else Image()
    _run("scale8", "Scale8", [target, as_image(image)], [_whole(offset, "offset"), _number(factor, "factor")])
    return dest if dest is not None else _hand_back(target, image)


__all__ = [name for name in dir() if not name.startswith("_") and name not in (
    "math", "ARGB", "BGR", "Image", "QelError", "as_image")]
