"""Every operation of the package against the same call of the module from
C++: the same result code and the same bytes, at every depth, on odd sizes
with plain, padded and bottom-up rows."""

import numpy as np
import pytest

from conftest import DEPTHS, qi, random_input, raw, reference

MATRIX = (0.9, 0.25, 1.5, -0.25, 0.9, 2.0)
TABLE = [(i * 7 + 3) % 256 ^ 0x5A for i in range(256)]
KERNEL = [0, -1, 0, -1, 6, -1, 0, -1, 1]
KEY = (10, 20, 30)  # 0x1E140A as the module packs it
# What the calls below see: the package's names, the tables above and the
# images s (source), p (partner) and m (mask).
NAMES = dict(vars(qi), MATRIX=MATRIX, TABLE=TABLE, KERNEL=KERNEL, KEY=KEY)

# The package's call, the module's method, its images (s, p, m, "-" for none,
# "e" for an empty image) and its numbers. The package's result is the image
# in capitals after the call, or the image the module delivered when none is
# in capitals.
CASES = [
    ("colorize(s, 30, 180, 0.6)", "Colorize", "S", [30, 180, 0.6]),
    ("lut(s, TABLE)", "Lut", "S", TABLE),
    ("shift_rgb(s, 40, -30, 90)", "ShiftRGB", "S", [40, -30, 90]),
    ("gamma(s, 1.7)", "Gamma", "S", [1.7]),
    ("light(s, 17, 35)", "Light", "S", [17, 35]),
    ("set_image_alpha(s, 128)", "SetImageAlpha", "S", [128]),
    ("set_image_alpha_transparency(s, 200, KEY)", "SetImageAlphaTransparency", "S", [200, 0x1E140A]),
    ("set_image_transparent_pixel(s, KEY)", "SetImageTransparentPixel", "S", [0x1E140A]),
    ("threshold(s, 100)", "Threshold", "S", [100]),
    ("rotate(s, 30)", "Rotate", "s", [30, 3, 0, 0]),
    ("rotate(s, -45, 'lanczos', force_alpha=True)", "Rotate", "s", [-45, 5, 1, 0]),
    ("rotate(s, 100, 0, keep_size=True)", "Rotate", "s", [100, 0, 0, 1]),
    ("skew(s, 0.3, 0.1, pivot=(2, 3))", "Skew", "s", [0.3, 0.1, 2, 3, 0]),
    ("resample(s, (17, 5), method='lanczos')", "Resample", "s", [17, 5, 5, 0]),
    ("resample(s, (6, 20), nearest_only=True)", "Resample", "s", [6, 20, 3, 1]),
    ("increase_bpp(s, 32)", "IncreaseBpp", "s", [32, qi.ARGB]),
    ("increase_bpp(s, 24)", "IncreaseBpp", "s", [24, qi.BGR]),
    ("rotate_paste(s, 20, p)", "RotatePaste", "sP", [0.3490658503988659, 3, -1]),
    ("quad(s, (1, 1), (8, 0), (0, 6), (7.5, 7))", "Quad", "s", [1, 1, 8, 0, 0, 6, 7.5, 7, 0, 0, 0]),
    ("quad(s, (1, 1), (8, 0), (0, 6), (7, 7), (9, 4), blend=True)", "Quad", "s",
     [1, 1, 8, 0, 0, 6, 7, 7, 9, 4, 1]),
    ("transform(s, MATRIX, offset=(1, 2), size=(10, 8))", "Transform", "s", [1, 2, 10, 8] + list(MATRIX)),
    ("transform(s, lambda x, y: (0.9 * x + 0.25 * y + 1.5, -0.25 * x + 0.9 * y + 2))", "Transform", "s",
     [0, 0, 0, 0] + list(MATRIX)),
    ("transform_paste(s, MATRIX, p, offset=(1, 1), fill_voids=True)", "TransformPaste", "sP",
     [1, 1, 1] + list(MATRIX)),
    ("bulge(s)", "CircleTransform", "S", [0, 0, 1.0]),
    ("pinch(s, with_alpha=True)", "CircleTransform", "S", [1, 1, 1.0]),
    ("swirl(s, 2.5)", "CircleTransform", "S", [2, 0, 2.5]),
    ("polar(s)", "CircleTransform", "S", [3, 0, 1.0]),
    ("fold(s)", "CircleTransform", "S", [4, 0, 1.0]),
    ("erode(s)", "Erode", "s", [3]),
    ("edge(s, 5)", "Edge", "s", [5]),
    ("dilate(s, 3)", "Dilate", "s", [3]),
    ("filter(s, KERNEL, offset=4)", "Filter", "s", [3, 4, 3] + KERNEL),
    ("median(s, 5)", "Median", "s", [5]),
    ("gaussian_blur(s, 2)", "GaussianBlur", "s", [2]),
    ("(seed(7), noise(s, 40))[1]", "Noise", "s", [40, 7]),
    ("(seed(9), jitter(s, 3))[1]", "Jitter", "s", [3, 9]),
    ("equal(s, 0x336699)", "Equal", "S-", [0x336699]),
    ("fill(s, -5, mask=m)", "Equal", "Sm", [-5]),
    ("copy(s, p, at=(2, 1))", "Copy", "Sp-", [2, 1]),
    ("add_scale(s, p, 0.6, 0.4, 3)", "AddScale", "Ssp-", [0.6, 0.4, 3]),
    ("add_scale(s, p, mask=m)", "AddScale", "Sspm", [0.5, 0.5, 0]),
    ("scale(s, 1.5, -4)", "Scale", "Ss-", [1.5, -4]),
    ("subtract(s, p, absolute=True)", "Subtract", "Ssp", [1]),
    ("create_dest_image(s)", "CreateDestImage", "s", [0, 0]),
    ("add(s, p, 2)", "Add", "Esp", [2]),
    ("scale8(s, 0.25, 3)", "Scale8", "Es", [3, 0.25]),
]
# Operations without numbers: (the package's function, the module's method, its images).
PLAIN = [("negative", "Negative", "S"), ("grayscale", "GrayScale", "S"), ("flip_bits", "FlipBits", "S"),
         ("flip_image_and_bits", "FlipImageAndBits", "S"), ("flip", "Flip", "s"), ("mirror", "Mirror", "s"),
         ("contour", "Contour", "s"), ("emboss", "Emboss", "s"), ("blur", "Blur", "s"),
         ("soften", "Soften", "s"), ("sharpen", "Sharpen", "s")]
CASES += [(name + "(s)", method, kinds, []) for name, method, kinds in PLAIN]

# 1- and 4-bit images are the runtime's own, never arrays: plain rows only.
LAYOUTS = [(depth, layout) for depth in DEPTHS for layout in ("plain", "padded", "bottom-up")
           if layout == "plain" or depth[1] not in (1, 4)]


def test_every_method_of_the_module_is_compared():
    assert sorted({method for _, method, _, _ in CASES}) == sorted(qi._core.methods())


@pytest.mark.parametrize("depth, layout", LAYOUTS, ids=["%s-%s" % (d[0], l) for d, l in LAYOUTS])
@pytest.mark.parametrize("call, method, kinds, numbers", CASES, ids=[case[0] for case in CASES])
def test_operation_gives_the_modules_code_and_bytes(call, method, kinds, numbers, depth, layout):
    _, bits, model = depth
    width, height = 13, 11
    rng = np.random.default_rng(bits * 10 + (model == qi.MONO) + len(layout))
    source, partner = (random_input(rng, width, height, bits, model, layout) for _ in range(2))
    mask = rng.integers(0, 2, (height, width), dtype=np.uint8) * 255
    if model != qi.MONO:
        source[1, 2:5, :3] = (30, 20, 10)  # KEY's bytes B, G, R: the key operations find it
    untouched = raw(source)
    given = {"s": source, "p": partner, "m": mask, "-": None, "e": "empty"}
    code, after, made = reference(method, [given[k.lower()] for k in kinds], numbers)
    written = [after[index] for index, kind in enumerate(kinds) if kind.isupper()]
    expected = (code & 0xFFFFFFFF, None) if code < 0 else (0, written[0] if written else made)
    try:
        got = (0, raw(eval(call, dict(NAMES, s=source, p=partner, m=mask))))
    except qi.QelError as error:
        got = (error.code, None)
    assert got == expected
    assert raw(source) == untouched, "the call wrote its input"
