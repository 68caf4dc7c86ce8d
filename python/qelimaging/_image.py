"""Images, arrays, errors and files: what every operation of the package uses."""

import os

import numpy as np

from . import _core

# Colour-model codes: four characters, the first in the lowest byte.
MONO = 0x4F4E4F4D
BGR = 0x20524742
ARGB = 0x42475241
ABGR = 0x52474241
_MODELS = {"MONO": MONO, "BGR": BGR, "BGR ": BGR, "ARGB": ARGB, "ABGR": ABGR}


def _load():
    """Loads the module and the runtime from the package's folder, or from the
    build's _binLIN64/ when the package runs from a build folder."""
    here = os.path.dirname(os.path.abspath(__file__))
    for folder in (here, os.path.join(here, "_binLIN64"), os.path.join(here, "..", "..", "_binLIN64")):
        if os.path.exists(os.path.join(folder, "QELImaging.so")):
            _core.load(os.path.normpath(folder))
            return
    raise ImportError("qelimaging: QELImaging.so and CollectionsEx.so are neither in %s nor in a build's "
                      "_binLIN64/" % here)


class QelError(RuntimeError):
    """An operation of the module failed. ``operation`` is the package's name
    for it, ``code`` the module's result code (an unsigned 32-bit value) and
    ``reason`` the same description qel prints."""

    def __init__(self, operation, code):
        self.operation = operation
        self.code = code & 0xFFFFFFFF
        self.reason = _core.describe(code)
        super().__init__("%s: failed with %s" % (operation, self.reason))


class Image:
    """An image of the module's host runtime, for what arrays cannot say:
    1- and 4-bit rows, palettes, colour models and several planes.

    ``Image(width, height, bit_count=24, colour_model="BGR", planes=1)``
    makes a zero-filled image; ``Image.from_array(a)`` wraps an array without
    copying. ``.array`` is a view of plane 0 (uint8 HxW at 8 bits, HxWx3 and
    HxWx4 at 24 and 32 bits, int32 HxW for 32-bit "MONO", and the packed row
    bytes, uint8 H x row-bytes, at 1, 4 and 16 bits); the view keeps the image's
    memory alive. An operation that replaces the image's pixels in place with
    ones of another format (``inplace=True``) leaves older views on the old
    memory."""

    _write_back = None  # (the caller's array, the tight copy the module writes)

    def __init__(self, width=0, height=0, bit_count=24, colour_model="BGR", planes=1, *, _wrapped=None):
        if _wrapped is not None:
            self._image = _wrapped
        else:
            self._image = _core.Image.new(_count(width, "width"), _count(height, "height"),
                                          _count(bit_count, "bit_count"), _model(colour_model),
                                          _count(planes, "planes"))

    @classmethod
    def from_array(cls, array):
        """The image over an array's memory (no copy); see ``as_image`` for the layouts."""
        return cls(_wrapped=_core.Image.wrap(np.asarray(array), False))

    width = property(lambda self: self._image.width)
    height = property(lambda self: self._image.height)
    bit_count = property(lambda self: self._image.bit_count)
    colour_model = property(lambda self: self._image.colour_model, doc='"MONO", "BGR ", "ARGB", "ABGR" ...')
    planes = property(lambda self: self._image.planes)
    array = property(lambda self: self._image.plane(0), doc="A view of plane 0 (no copy).")

    def plane(self, index):
        """A view of one plane (no copy)."""
        return self._image.plane(index)

    @property
    def palette(self):
        """The palette as a list of (blue, green, red, alpha) tuples; empty without one."""
        return self._image.palette()

    @palette.setter
    def palette(self, entries):
        self._image.set_palette([tuple(int(v) for v in entry) for entry in entries])

    def copy(self):
        """A runtime image with the same format, palette and pixels."""
        return Image(_wrapped=self._image.copy())

    def __repr__(self):
        return "<qelimaging.Image %dx%d, %d bits, %r, %d plane(s)>" % (
            self.width, self.height, self.bit_count, self.colour_model, self.planes)


def _count(value, name):
    value = _whole(value, name)
    if not 0 <= value < 2 ** 31:
        raise ValueError("%s must be between 0 and 2147483647, got %d" % (name, value))
    return value


def _whole(value, name, low=-2 ** 31, high=2 ** 32 - 1):
    """A whole number as the module's 32-bit parameters take it."""
    if isinstance(value, (float, np.floating)) and float(value).is_integer():
        value = int(value)
    try:
        value = int(value.__index__())
    except (AttributeError, TypeError):
        raise ValueError("%s must be a whole number, got %r" % (name, value)) from None
    if not low <= value <= high:
        raise ValueError("%s must be between %d and %d, got %d" % (name, low, high, value))
    return value


def _number(value, name):
    try:
        return float(value)
    except (TypeError, ValueError):
        raise ValueError("%s must be a number, got %r" % (name, value)) from None


def _model(model):
    if isinstance(model, str):
        key = model if model in _MODELS else model.upper()
        if key not in _MODELS:
            raise ValueError("unknown colour model %r (MONO, BGR, ARGB or ABGR)" % model)
        return _MODELS[key]
    return _whole(model, "colour_model", 0)


def as_image(image, written=False):
    """The package's Image for an Image or an array, without a copy.

    Arrays: uint8 HxW is 8-bit grey ("MONO"), uint8 HxWx3 is 24-bit "BGR "
    (bytes B, G, R), uint8 HxWx4 is 32-bit "ARGB" (bytes B, G, R, A) and
    int32 HxW is 32-bit "MONO" integers. Each row's pixels must be contiguous
    (rows may be padded or run bottom-up, as with a[::-1]); other layouts,
    other dtypes and empty arrays raise ValueError, as does a read-only array
    that the operation would write. A view of part of each row whose last row
    ends before a whole stride of its buffer is copied (and copied back when
    the operation writes it)."""
    if isinstance(image, Image):
        return image
    if not isinstance(image, np.ndarray):
        raise ValueError("expected a numpy array or a qelimaging.Image, got %s" % type(image).__name__)
    wrapped = _core.Image.wrap(image, written)  # checks dtype, shape and strides first
    if _block_in_buffer(image):
        return Image(_wrapped=wrapped)
    tight = np.ascontiguousarray(image)
    result = Image(_wrapped=_core.Image.wrap(tight, written))
    if written:
        result._write_back = (image, tight)
    return result


def _block_in_buffer(array):
    """Whether |row stride| x height bytes from the first row, the block the
    module may read, lie inside the array's buffer. A view of every other
    column or of part of each row may end short of its last row's stride; such
    an array is worked on in a tight copy (copied back when written)."""
    height, stride = array.shape[0], array.strides[0]
    row = array.strides[1] * array.shape[1]
    if height == 1 or abs(stride) == row:
        return True
    start = array.__array_interface__["data"][0]
    low = start + min(0, (height - 1) * stride)
    high = low + abs(stride) * height
    base = array
    while isinstance(base.base, np.ndarray):
        base = base.base
    if not base.flags.owndata:
        return False
    first = base.__array_interface__["data"][0]
    return first <= low and high <= first + base.nbytes


def _hand_back(result, like):
    """The result in the kind of the caller's input: an array view or an Image."""
    return result if isinstance(like, Image) else result.array


def _run(operation, method, images, numbers, transform=None):
    """Calls the module's method (GIL released). Raises QelError on a failure
    code; returns (code, delivered Image or None)."""
    raw = [None if image is None else image._image for image in images]
    return _answer(operation, _core.call(method, raw, [float(n) for n in numbers], transform), images)


def _answer(operation, answer, images=()):
    """The (code, delivered image) of a call of the extension: raises QelError
    on a failure code, copies tight copies the call wrote back to their arrays."""
    code, made = answer
    if code < 0:
        raise QelError(operation, code)
    for image in images:
        if image is not None and image._write_back is not None:
            original, tight = image._write_back
            original[...] = tight
    return code, (None if made is None else Image(_wrapped=made))


def _in_place(operation, method, image, numbers, inplace):
    """An operation the module does in place: on the caller's image with
    ``inplace=True``, else on a copy (the one copy such an operation makes)."""
    target = as_image(image, written=inplace)
    if not inplace:
        target = target.copy()
    _run(operation, method, [target], numbers)
    return image if inplace else _hand_back(target, image)


def seed(value):
    """Seeds the process-wide C ``rand`` that ``noise`` and ``jitter`` draw
    from (they share it with every other user of ``rand`` in the process)."""
    _core.seed(_whole(value, "seed", 0))


def from_rgb(array):
    """An RGB or RGBA array (Pillow, imageio, matplotlib) in the module's byte
    order B, G, R[, A]. Always a new contiguous array (a copy)."""
    array = np.asarray(array)
    if array.dtype != np.uint8 or array.ndim != 3 or array.shape[2] not in (3, 4):
        raise ValueError("expected a uint8 HxWx3 or HxWx4 array")
    order = [2, 1, 0] if array.shape[2] == 3 else [2, 1, 0, 3]
    return np.ascontiguousarray(array[:, :, order])


def to_rgb(array):
    """The module's B, G, R[, A] array as R, G, B[, A] for Pillow or imageio
    (a copy); grey arrays come back unchanged."""
    if isinstance(array, Image):
        array = array.array
    array = np.asarray(array)
    if array.ndim == 2:
        return array
    return from_rgb(array)  # the same swap of the first and third byte


def read(path, max_pixels=1 << 28, keep_palette=False, keep_depth=False, autorotate=True):
    """Reads an image file through the same readers as qel (PNG, JPEG, TIFF
    (``file.tif[N]`` for page N), WebP, GIF, BMP and the netpbm formats) and
    as qel shows it: the EXIF orientation applied (``autorotate=False`` keeps
    the pixels as stored), palette images expanded to 24-bit "BGR " (32-bit
    "ARGB" when the palette holds transparency) unless ``keep_palette``, and
    1- and 4-bit images to 8-bit grey (bilevel as 0 and 255) unless
    ``keep_depth``. Otherwise grey is 8-bit "MONO", RGB 24-bit "BGR ", RGBA,
    grey with alpha and transparency 32-bit "ARGB", 16-bit samples reduced
    to 8. Returns an array for 8-, 24- and 32-bit images; an Image for kept
    palettes and 1- or 4-bit pixels. A file of more than ``max_pixels``
    pixels is refused before its pixels are allocated. Failures raise OSError
    with qel's reason."""
    try:
        image = Image(_wrapped=_core.read(os.fspath(path), int(max_pixels), bool(keep_palette),
                                          bool(keep_depth), bool(autorotate)))
    except RuntimeError as error:
        raise OSError(str(error)) from None
    if image.palette or image.bit_count not in (8, 24, 32):
        return image
    return image.array


def write(image, path, quality=90):
    """Writes an array or Image to ``path`` by its extension (.png, .jpg,
    .jpeg, .pgm, .ppm, .pnm, .pam), through a temporary file renamed into place
    when complete, as qel does. ``quality`` (1-100) is used for JPEG."""
    try:
        _core.write(as_image(image)._image, os.fspath(path), _whole(quality, "quality", 1, 100))
    except RuntimeError as error:
        raise OSError(str(error)) from None


