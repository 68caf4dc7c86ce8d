"""qelimaging: the QELImaging module on numpy arrays.

    import qelimaging as qi
    image = qi.read("photo.jpg")          # uint8 HxWx3, bytes B, G, R
    qi.write(qi.median(image, 5), "out.png")

Importing loads the module and its host runtime from the package's folder (or
a build's _binLIN64/) and makes the module's first image-creating call, so
that operations may then run on any thread at the same time (on different
images; the GIL is released while the module works).
"""

from . import _core
from ._image import (ABGR, ARGB, BGR, MONO, Image, QelError, _load, as_image, from_rgb, read, seed, to_rgb,
                     write)

_load()

from ._operations import *  # noqa: E402,F401,F403 - every operation at the package's top
from ._operations import METHODS, __all__ as _operation_names  # noqa: E402

__version__ = _core.__version__

__all__ = ["Image", "QelError", "as_image", "from_rgb", "to_rgb", "read", "write", "seed", "METHODS",
           "MONO", "BGR", "ARGB", "ABGR", "__version__"] + list(_operation_names)
