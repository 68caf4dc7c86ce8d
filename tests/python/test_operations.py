"""Every operation of the package against the same call of the module from
C++: the same result code and the same bytes, at every depth, on odd sizes
with plain, padded and bottom-up rows."""

import math

import numpy as np
import pytest

from conftest import DEPTHS, image_bytes, qi, random_input

MATRIX = (0.9, 0.25, 1.5, -0.25, 0.9, 2.0)
TABLE = [(i * 7 + 3) % 256 ^ 0x5A for i in range(256)]
KERNEL = [0, -1, 0, -1, 6, -1, 0, -1, 1]
KEY = (10, 20, 30)
KEY_PACKED = 10 | 20 << 8 | 30 << 16

# name, the package's call on (source s, partner p, mask m), the module's
# method, its images, its numbers, and which image holds the result
# ("result", or the index of the image the call writes).
CASES = [
    ("colorize", lambda s, p, m: qi.colorize(s, 30, 180, 0.6), "Colorize", "s", [30, 180, 0.6], 0),
    ("lut", lambda s, p, m: qi.lut(s, TABLE), "Lut", "s", TABLE, 0),
    ("negative", lambda s, p, m: qi.negative(s), "Negative", "s", [], 0),
    ("grayscale", lambda s, p, m: qi.grayscale(s), "GrayScale", "s", [], 0),
    ("shift_rgb", lambda s, p, m: qi.shift_rgb(s, 40, -30, 90), "ShiftRGB", "s", [40, -30, 90], 0),
    ("gamma", lambda s, p, m: qi.gamma(s, 1.7), "Gamma", "s", [1.7], 0),
    ("light", lambda s, p, m: qi.light(s, 17, 35), "Light", "s", [17, 35], 0),
    ("set_image_alpha", lambda s, p, m: qi.set_image_alpha(s, 128), "SetImageAlpha", "s", [128], 0),
    ("set_image_alpha_transparency", lambda s, p, m: qi.set_image_alpha_transparency(s, 200, KEY),
     "SetImageAlphaTransparency", "s", [200, KEY_PACKED], 0),
    ("set_image_transparent_pixel", lambda s, p, m: qi.set_image_transparent_pixel(s, KEY),
     "SetImageTransparentPixel", "s", [KEY_PACKED], 0),
    ("threshold", lambda s, p, m: qi.threshold(s, 100), "Threshold", "s", [100], 0),
    ("flip", lambda s, p, m: qi.flip(s), "Flip", "s", [], "result"),
    ("mirror", lambda s, p, m: qi.mirror(s), "Mirror", "s", [], "result"),
    ("rotate", lambda s, p, m: qi.rotate(s, 30), "Rotate", "s", [30, 3, 0, 0], "result"),
    ("rotate lanczos alpha", lambda s, p, m: qi.rotate(s, -45, "lanczos", force_alpha=True), "Rotate", "s",
     [-45, 5, 1, 0], "result"),
    ("rotate keep size", lambda s, p, m: qi.rotate(s, 100, 0, keep_size=True), "Rotate", "s", [100, 0, 0, 1],
     "result"),
    ("skew", lambda s, p, m: qi.skew(s, 0.3, 0.1, pivot=(2, 3)), "Skew", "s", [0.3, 0.1, 2, 3, 0], "result"),
    ("resample", lambda s, p, m: qi.resample(s, (17, 5), method="lanczos"), "Resample", "s", [17, 5, 5, 0],
     "result"),
    ("resample nearest", lambda s, p, m: qi.resample(s, (6, 20), nearest_only=True), "Resample", "s",
     [6, 20, 3, 1], "result"),
    ("increase_bpp 32", lambda s, p, m: qi.increase_bpp(s, 32), "IncreaseBpp", "s", [32, qi.ARGB], "result"),
    ("increase_bpp 24", lambda s, p, m: qi.increase_bpp(s, 24), "IncreaseBpp", "s", [24, qi.BGR], "result"),
    ("rotate_paste", lambda s, p, m: qi.rotate_paste(s, 20, p), "RotatePaste", "sp",
     [20 * math.pi / 180, 3, -1], 1),
    ("flip_bits", lambda s, p, m: qi.flip_bits(s), "FlipBits", "s", [], 0),
    ("quad", lambda s, p, m: qi.quad(s, (1, 1), (8, 0), (0, 6), (7.5, 7)), "Quad", "s",
     [1, 1, 8, 0, 0, 6, 7.5, 7, 0, 0, 0], "result"),
    ("quad sized blend", lambda s, p, m: qi.quad(s, (1, 1), (8, 0), (0, 6), (7, 7), (9, 4), blend=True), "Quad",
     "s", [1, 1, 8, 0, 0, 6, 7, 7, 9, 4, 1], "result"),
    ("transform affine", lambda s, p, m: qi.transform(s, MATRIX, offset=(1, 2), size=(10, 8)), "Transform", "s",
     [1, 2, 10, 8] + list(MATRIX), "result"),
    ("transform callable", lambda s, p, m: qi.transform(
        s, lambda x, y: (MATRIX[0] * x + MATRIX[1] * y + MATRIX[2], MATRIX[3] * x + MATRIX[4] * y + MATRIX[5])),
     "Transform", "s", [0, 0, 0, 0] + list(MATRIX), "result"),
    ("transform_paste", lambda s, p, m: qi.transform_paste(s, MATRIX, p, offset=(1, 1), fill_voids=True),
     "TransformPaste", "sp", [1, 1, 1] + list(MATRIX), 1),
    ("flip_image_and_bits", lambda s, p, m: qi.flip_image_and_bits(s), "FlipImageAndBits", "s", [], 0),
    ("bulge", lambda s, p, m: qi.bulge(s), "CircleTransform", "s", [0, 0, 1.0], 0),
    ("pinch alpha", lambda s, p, m: qi.pinch(s, with_alpha=True), "CircleTransform", "s", [1, 1, 1.0], 0),
    ("swirl", lambda s, p, m: qi.swirl(s, 2.5), "CircleTransform", "s", [2, 0, 2.5], 0),
    ("polar", lambda s, p, m: qi.polar(s), "CircleTransform", "s", [3, 0, 1.0], 0),
    ("fold", lambda s, p, m: qi.fold(s), "CircleTransform", "s", [4, 0, 1.0], 0),
    ("erode", lambda s, p, m: qi.erode(s), "Erode", "s", [3], "result"),
    ("edge", lambda s, p, m: qi.edge(s, 5), "Edge", "s", [5], "result"),
    ("dilate", lambda s, p, m: qi.dilate(s, 3), "Dilate", "s", [3], "result"),
    ("filter", lambda s, p, m: qi.filter(s, KERNEL, offset=4), "Filter", "s", [sum(KERNEL), 4] + KERNEL, "result"),
    ("contour", lambda s, p, m: qi.contour(s), "Contour", "s", [], "result"),
    ("median", lambda s, p, m: qi.median(s, 5), "Median", "s", [5], "result"),
    ("emboss", lambda s, p, m: qi.emboss(s), "Emboss", "s", [], "result"),
    ("blur", lambda s, p, m: qi.blur(s), "Blur", "s", [], "result"),
    ("soften", lambda s, p, m: qi.soften(s), "Soften", "s", [], "result"),
    ("sharpen", lambda s, p, m: qi.sharpen(s), "Sharpen", "s", [], "result"),
    ("gaussian_blur", lambda s, p, m: qi.gaussian_blur(s, 2), "GaussianBlur", "s", [2], "result"),
    ("noise", lambda s, p, m: (qi.seed(7), qi.noise(s, 40))[1], "Noise", "s", [40, 7], "result"),
    ("jitter", lambda s, p, m: (qi.seed(9), qi.jitter(s, 3))[1], "Jitter", "s", [3, 9], "result"),
    ("equal", lambda s, p, m: qi.equal(s, 0x336699), "Equal", "s-", [0x336699], 0),
    ("equal masked", lambda s, p, m: qi.fill(s, -5, mask=m), "Equal", "sm", [-5], 0),
    ("copy", lambda s, p, m: qi.copy(s, p, at=(2, 1)), "Copy", "sp-", [2, 1], 0),
    ("add_scale", lambda s, p, m: qi.add_scale(s, p, 0.6, 0.4, 3), "AddScale", "ssp-", [0.6, 0.4, 3], 0),
    ("add_scale masked", lambda s, p, m: qi.add_scale(s, p, mask=m), "AddScale", "sspm", [0.5, 0.5, 0], 0),
    ("scale", lambda s, p, m: qi.scale(s, 1.5, -4), "Scale", "ss-", [1.5, -4], 0),
    ("subtract", lambda s, p, m: qi.subtract(s, p, absolute=True), "Subtract", "ssp", [1], 0),
    ("create_dest_image", lambda s, p, m: qi.create_dest_image(s), "CreateDestImage", "s", [0, 0], "result"),
    ("add", lambda s, p, m: qi.add(s, p, 2), "Add", "esp", [2], 0),
    ("scale8", lambda s, p, m: qi.scale8(s, 0.25, 3), "Scale8", "es", [3, 0.25], 0),
]


def call_package(call, s, p, m):
    """(code, bytes): the package's result, or the failure code it raised."""
    try:
        return 0, image_bytes(call(s, p, m))
    except qi.QelError as error:
        return error.code, None


# 1- and 4-bit images are the runtime's own, never arrays: plain rows only.
LAYOUTS = [(depth, layout) for depth in DEPTHS for layout in ("plain", "padded", "bottom-up")
           if layout == "plain" or depth[1] not in (1, 4)]


@pytest.mark.parametrize("depth, layout", LAYOUTS, ids=["%s-%s" % (d[0], l) for d, l in LAYOUTS])
def test_every_operation_gives_the_modules_bytes(reference, depth, layout):
    _, bits, model = depth
    rng = np.random.default_rng(bits * 10 + (model == qi.MONO) + len(layout))
    width, height = 13, 11
    source = random_input(rng, width, height, bits, model, layout)
    partner = random_input(rng, width, height, bits, model, layout)
    mask = np.where(rng.integers(0, 2, (height, width)) > 0, 255, 0).astype(np.uint8)
    untouched = image_bytes(source)
    mismatches = []
    for name, call, method, kinds, numbers, output in CASES:
        given = {"s": source, "p": partner, "m": mask, "-": None, "e": "empty"}
        code, after, made = reference(method, [given[k] for k in kinds], numbers)
        expected = made if output == "result" else after[output]
        got_code, got = call_package(call, source, partner, mask)
        if code < 0:
            if got_code != code & 0xFFFFFFFF:
                mismatches.append("%s: the module failed with %#x, the package gave %#x" % (name, code & 0xFFFFFFFF, got_code))
        elif got != expected:
            mismatches.append("%s: result %s differs from the module's %s" % (
                name, None if got is None else (got[0], len(got[1])), (expected[0], len(expected[1]))))
        assert image_bytes(source) == untouched, name + " wrote its input"
    assert mismatches == []
