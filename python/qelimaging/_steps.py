"""Chains of qel's operation words run through the package.

    steps = parse_steps(["median", "5", "gamma", "1.4"])
    image = run_steps(read("in.png"), steps)

The words, their values in order and their ``--options`` are those of the qel
command line, so a batch written for qel runs here unchanged. This is the one
place where the cluster code meets the package's operations.
"""

import functools
import math
import string

import numpy as np

from . import _core
from . import _operations as ops
from ._image import Image, seed


class StepError(ValueError):
    """A chain word, value or option that qel would refuse as a usage error."""


def _int(text):
    try:
        return int(text, 0)
    except ValueError:
        raise StepError("bad whole number %r" % text) from None


def _float(text):
    try:
        value = float(text)
    except ValueError:
        raise StepError("bad number %r" % text) from None
    if not math.isfinite(value):
        raise StepError("bad number %r" % text)
    return value


def _ints(text):
    return [_int(part) for part in text.split(",") if part.strip()]


def _point(text):
    parts = text.split(",")
    if len(parts) != 2:
        raise StepError("bad point %r: expected X,Y" % text)
    return (_float(parts[0]), _float(parts[1]))


def _colour(text):
    digits = text[1:] if text.startswith("#") else text
    if len(digits) != 6 or not set(digits) <= set(string.hexdigits):
        raise StepError("bad colour %r: expected RRGGBB" % text)
    value = int(digits, 16)
    return (value >> 16 & 255, value >> 8 & 255, value & 255)


def _method(text):
    """An interpolation method as qel takes it: 0-15, or qel's name for it in any case."""
    names = _core.method_names()
    if text.lower() in names:
        return names.index(text.lower())
    try:
        number = int(text, 0)
    except ValueError:
        number = -1
    if not 0 <= number < len(names):
        raise StepError("bad method %r: expected 0 to %d or one of %s" % (text, len(names) - 1, ", ".join(names)))
    return number


_FLAG = object()

# qel word: (package function, [(name, parser, default or None when required)],
#            {option: (keyword, parser or _FLAG)})
_WORDS = {
    "colorize": ("colorize", [("hue", _int, None), ("saturation", _int, 255)], {"--blend": ("blend", _float)}),
    "negative": ("negative", [], {}),
    "grayscale": ("grayscale", [], {}),
    "shiftrgb": ("shift_rgb", [("red", _int, None), ("green", _int, 0), ("blue", _int, 0)], {}),
    "gamma": ("gamma", [("gamma", _float, None)], {}),
    "light": ("light", [("brightness", _int, None), ("contrast", _int, 0)], {}),
    "alpha": ("set_image_alpha", [("alpha", _int, None)], {}),
    "alphakey": ("set_image_alpha_transparency", [("alpha", _int, None), ("key_colour", _colour, None)], {}),
    "transparent": ("set_image_transparent_pixel", [("key_colour", _colour, None)], {}),
    "threshold": ("threshold", [("level", _int, 128)], {}),
    "flip": ("flip", [], {}),
    "mirror": ("mirror", [], {}),
    "swaprb": ("flip_bits", [], {}),
    "flipall": ("flip_image_and_bits", [], {}),
    "rotate": ("rotate_clockwise", [("angle", _float, None)],
               {"--alpha": ("add_alpha", _FLAG), "--keep-size": ("keep_size", _FLAG), "--method": ("method", _method),
                "--background": ("background", _colour)}),
    "skew": ("skew", [("x_gain", _float, None), ("y_gain", _float, 0.0)],
             {"--pivot": ("pivot", _point), "--alpha": ("force_alpha", _FLAG)}),
    "bulge": ("bulge", [], {"--alpha": ("with_alpha", _FLAG)}),
    "pinch": ("pinch", [], {"--alpha": ("with_alpha", _FLAG)}),
    "swirl": ("swirl", [("factor", _float, 1.0)], {"--alpha": ("with_alpha", _FLAG)}),
    "polar": ("polar", [], {"--alpha": ("with_alpha", _FLAG)}),
    "fold": ("fold", [], {"--alpha": ("with_alpha", _FLAG)}),
    "erode": ("erode", [("size", _int, 3)], {}),
    "edge": ("edge", [("size", _int, 3)], {}),
    "dilate": ("dilate", [("size", _int, 3)], {}),
    "median": ("median", [("size", _int, 3)], {}),
    "filter": ("filter", [("kernel", _ints, None)], {"--divisor": ("divisor", _int), "--offset": ("offset", _int)}),
    "contour": ("contour", [], {}),
    "jitter": ("jitter", [("amount", _int, 3)], {}),
    "noise": ("noise", [("amount", _int, 40)], {}),
    "emboss": ("emboss", [], {}),
    "blur": ("blur", [], {}),
    "soften": ("soften", [], {}),
    "sharpen": ("sharpen", [], {}),
    "gaussian": ("gaussian_blur", [("level", _int, 1)], {}),
}
WORDS = tuple(sorted(_WORDS))

# The alpha words give an image without alpha one first, opaque, as qel does.
_ALPHA = {"set_image_alpha", "set_image_alpha_transparency", "set_image_transparent_pixel"}


def _with_alpha(image):
    if isinstance(image, Image):
        return image if image.bit_count == 32 and image.colour_model != "MONO" else ops.increase_bpp(image, 32)
    if image.dtype != np.uint8 or image.ndim == 3 and image.shape[2] == 4:
        return image  # with alpha already, or 32-bit "MONO" integers, which the module refuses itself
    colour = np.repeat(image[:, :, None], 3, axis=2) if image.ndim == 2 else image
    return np.concatenate([colour, np.full(colour.shape[:2] + (1,), 255, dtype=np.uint8)], axis=2)


def _is_grey(image):
    return isinstance(image, np.ndarray) and image.ndim == 2 and image.dtype == np.uint8


class Step:
    """One operation of a chain: the package function's name and its arguments."""

    def __init__(self, word, function, params):
        self.word, self.function, self.params = word, function, params

    def __call__(self, image):
        if self.function in _ALPHA:
            image = _with_alpha(image)
        if self.function in ("grayscale", "threshold") and _is_grey(image):
            # As qel does: the module's 8-bit GrayScale, which Threshold starts
            # with, mixes each byte with the two after it; grey stays as it is,
            # and threshold runs on the 24-bit twin and comes back grey.
            if self.function == "grayscale":
                return image
            twin = np.repeat(image[:, :, None], 3, axis=2)
            return np.ascontiguousarray(ops.threshold(twin, **self.params)[:, :, 0])
        return getattr(ops, self.function)(image, **self.params)

    def __repr__(self):
        values = ", ".join("%s=%r" % item for item in self.params.items())
        return "%s(%s)" % (self.function, values)

    def __eq__(self, other):
        return isinstance(other, Step) and (self.function, self.params) == (other.function, other.params)


def parse_steps(words):
    """Steps of a list of qel words (a string is split on spaces). Raises
    StepError naming the word for an unknown operation, a missing value or an
    unknown option."""
    if isinstance(words, str):
        words = words.split()
    words = list(words)
    steps, at = [], 0
    while at < len(words):
        word = words[at]
        if word not in _WORDS:
            raise StepError("unknown operation %r (known: %s)" % (word, " ".join(WORDS)))
        function, values, options = _WORDS[word]
        at += 1
        params = {}
        for name, parse, default in values:
            if at < len(words) and words[at] not in _WORDS and not words[at].startswith("--"):
                params[name] = _parsed(word, parse, words[at])
                at += 1
            elif default is None:
                raise StepError("%s: missing %s" % (word, name))
        while at < len(words) and words[at].startswith("--"):
            if words[at] not in options:
                raise StepError("%s: unknown option %s" % (word, words[at]))
            keyword, parse = options[words[at]]
            if parse is _FLAG:
                params[keyword] = True
                at += 1
            else:
                if at + 1 >= len(words):
                    raise StepError("%s: %s needs a value" % (word, words[at]))
                params[keyword] = _parsed(word, parse, words[at + 1])
                at += 2
        steps.append(Step(word, function, params))
    if not steps:
        raise StepError("no operation given")
    return steps


def _parsed(word, parse, text):
    try:
        return parse(text)
    except StepError as error:
        raise StepError("%s: %s" % (word, error)) from None


def run_steps(image, steps):
    """The image after every step in turn. The random operations draw from a
    generator seeded with 1 for each image, as qel seeds it for each run."""
    seed(1)
    return functools.reduce(lambda current, step: step(current), steps, image)
