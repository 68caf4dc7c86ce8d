"""What the package promises beyond the bytes: no copies, results that own
their memory, errors as exceptions, threads, files, conversions, and its
version and docs/python.md drawn from the project."""

import gc
import importlib.util
import os
import re
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

from conftest import ROOT, qi, random_input


@pytest.fixture
def bgr():
    return np.random.default_rng(3).integers(0, 256, (9, 11, 3), dtype=np.uint8)


class TestMemory:
    def test_inputs_are_wrapped_and_result_arrays_are_the_runtime_images_memory(self, bgr):
        assert qi.Image.from_array(bgr)._image.address() == bgr.ctypes.data
        bottom_up = bgr[::-1]
        assert qi.as_image(bottom_up)._image.address() == bottom_up.ctypes.data
        result = qi.median(qi.Image.from_array(bgr), 3)
        view = result.array
        assert view.__array_interface__["data"][0] == result._image.address()
        view[0, 0] = (1, 2, 3)
        assert result.array[0, 0].tolist() == [1, 2, 3]
        # A read-only array is accepted when only read; writing it is refused (TestErrors).
        assert np.array_equal(qi.negative(np.broadcast_to(bgr, bgr.shape)), 255 - bgr)

    def test_result_outlives_input_and_every_other_object(self, bgr):
        expected = qi.median(bgr, 3).copy()
        image = qi.Image.from_array(bgr.copy())
        result = qi.median(image, 3).array
        del image
        gc.collect()
        assert result.base is not None and np.array_equal(result, expected)
        chained = qi.negative(qi.flip(bgr))
        gc.collect()
        assert np.array_equal(chained, 255 - bgr[::-1])

    def test_inplace_writes_the_callers_array_and_returns_it(self, bgr):
        data = bgr.copy()
        view = data[::-1]
        assert qi.negative(view, inplace=True) is view
        expected = 255 - bgr
        assert np.array_equal(data, expected)
        # The last row of data[:, 2:6] ends 5 pixels before a whole stride: written back from a tight copy.
        qi.negative(data[:, 2:6], inplace=True)
        expected[:, 2:6] = bgr[:, 2:6]
        assert np.array_equal(data, expected)
        # 8-bit grey conversion reads past each pixel, so it works on a copy and writes back.
        grey = bgr[:, :, 0].copy()
        expected = qi.grayscale(grey)
        assert qi.grayscale(grey, inplace=True) is grey and np.array_equal(grey, expected)


class TestErrors:
    def test_module_failure_is_a_qel_error_with_qels_wording(self, bgr):
        with pytest.raises(qi.QelError) as caught:
            qi.scale8(bgr, 0.5)
        assert (caught.value.operation, caught.value.code) == ("scale8", 0xF0040031)
        assert str(caught.value) == "scale8: failed with 0xF0040031 (the image is not MONO)"

    @pytest.mark.parametrize("call, message", [
        (lambda a: qi.median(np.zeros((4, 4), np.float64)), "expected a uint8"),
        (lambda a: qi.median(np.zeros((4, 4, 2), np.uint8)), "expected a uint8"),
        (lambda a: qi.median(np.zeros((4, 4, 3), np.uint8)[:, :, ::-1]), "contiguous"),
        (lambda a: qi.median(np.zeros((4, 8), np.uint8)[:, ::2]), "contiguous"),
        (lambda a: qi.median(np.zeros((0, 4), np.uint8)), "empty"),
        (lambda a: qi.median(np.broadcast_to(np.zeros((1, 4), np.uint8), (3, 4))), "overlap"),
        (lambda a: qi.lut(a, range(255)), "256 entries"),
        (lambda a: qi.filter(a, [1, 2, 3]), "size x size"),
        (lambda a: qi.resample(a, (4,)), "pair"),
        (lambda a: qi.rotate(a, 1.5), "whole number"),
        (lambda a: qi.light(a, 2 ** 40), "between"),
        (lambda a: qi.resample(a, (4, 4), method="blurry"), "unknown method"),
        (lambda a: qi.transform(a, (1, 0, 0)), "six numbers"),
        (lambda a: qi.rotate_clockwise(a, float("inf")), "the angle must be a finite number"),
        (lambda a: qi.rotate_clockwise(qi.Image(), 90), "the image is empty"),
        (lambda a: qi.negative(np.broadcast_to(a, a.shape), inplace=True), "read-only"),
        (lambda a: qi.bulge(a, with_alpha=True, inplace=True), "CircleTransform makes a 32-bit image"),
    ])
    def test_bad_arrays_and_arguments_are_value_errors_that_write_nothing(self, bgr, call, message):
        before = bgr.copy()
        with pytest.raises(ValueError, match=message):
            call(bgr)
        assert np.array_equal(bgr, before)

    def test_an_exception_in_the_coordinate_map_is_raised_after_the_call(self, bgr):
        calls = []

        def broken(x, y):
            calls.append((x, y))
            raise KeyError("no such point")

        with pytest.raises(KeyError, match="no such point"):
            qi.transform(bgr, broken)
        assert len(calls) == 1


class TestThreads:
    def test_four_threads_give_the_bytes_of_one(self):
        rng = np.random.default_rng(11)
        images = [rng.integers(0, 256, (64, 80, 3), dtype=np.uint8) for _ in range(4)]

        def work(a):
            return qi.median(a, 5), qi.rotate(a, 30), qi.transform(a, lambda x, y: (y, x))

        expected = [work(a) for a in images]
        with ThreadPoolExecutor(4) as pool:
            got = list(pool.map(work, images * 5))
        for index, results in enumerate(got):
            assert all(np.array_equal(g, e) for g, e in zip(results, expected[index % 4])), index


class TestFiles:
    @pytest.mark.parametrize("name, bits", [("a.png", 24), ("a.pam", 32), ("a.pgm", 8)])
    def test_written_files_read_back_the_same(self, tmp_path, name, bits):
        image = random_input(np.random.default_rng(bits), 7, 5, bits, qi.MONO if bits == 8 else qi.BGR)
        qi.write(image, tmp_path / name)
        assert np.array_equal(qi.read(tmp_path / name), image)

    def test_a_palette_image_converts_and_reads_back_as_colour_or_with_its_palette(self, tmp_path):
        indexed = qi.Image(3, 2, 8, "MONO")
        indexed.palette = [(0, 0, 0, 0), (255, 128, 1, 0)]
        assert indexed.palette == [(0, 0, 0, 0), (255, 128, 1, 0)]
        indexed.array[0] = (1, 0, 7)
        # Index 7 lies past the palette's two entries.
        assert qi.increase_bpp(indexed, 24).array[0].tolist() == [[255, 128, 1], [0, 0, 0], [7, 7, 7]]
        indexed.palette = indexed.palette + [(i, i, i, 0) for i in range(2, 256)]
        qi.write(indexed, tmp_path / "p.png")
        read = qi.read(tmp_path / "p.png", keep_palette=True)
        assert isinstance(read, qi.Image) and read.palette[:2] == [(0, 0, 0, 0), (255, 128, 1, 0)]
        assert read.array.tolist() == [[1, 0, 7], [0, 0, 0]]
        # As qel shows it: the palette's colours, bytes B, G, R.
        colour = qi.read(tmp_path / "p.png")
        assert colour.shape == (2, 3, 3) and colour[0, :2].tolist() == [[255, 128, 1], [0, 0, 0]]

    def test_file_mistakes_are_os_errors_that_leave_nothing(self, tmp_path, bgr):
        with pytest.raises(OSError, match=re.escape(str(tmp_path / "none.png"))):
            qi.read(tmp_path / "none.png")
        with pytest.raises(OSError):
            qi.write(bgr, tmp_path / "a.xyz")
        assert os.listdir(tmp_path) == []
        qi.write(bgr, tmp_path / "a.png")
        with pytest.raises(OSError):  # 99 pixels, one over the limit
            qi.read(tmp_path / "a.png", max_pixels=98)


class TestImage:
    def test_rgb_helpers_swap_red_and_blue(self):
        rgba = np.array([[[1, 2, 3, 4], [5, 6, 7, 8]]], np.uint8)
        assert qi.from_rgb(rgba).tolist() == [[[3, 2, 1, 4], [7, 6, 5, 8]]]
        assert qi.to_rgb(qi.from_rgb(rgba[:, :, :3])).tolist() == [[[1, 2, 3], [5, 6, 7]]]

    def test_packed_depth_is_bytes_of_two_pixels(self):
        packed = qi.Image(10, 3, 4, "MONO")
        assert (packed.array.shape, packed.bit_count, packed.colour_model, packed.palette) == ((3, 5), 4, "MONO", [])

    def test_every_plane_is_its_own_view(self):
        image = qi.Image(4, 3, 8, "MONO", planes=2)
        image.plane(1)[...] = 9
        assert (image.planes, image.plane(0).sum(), image.plane(1).sum()) == (2, 0, 9 * 12)
        with pytest.raises(IndexError):
            image.plane(2)


class TestDescription:
    def test_version_is_the_projects(self):
        text = open(os.path.join(ROOT, "CMakeLists.txt")).read()
        assert qi.__version__ == re.search(r"project\(QELImaging VERSION ([0-9.]+)", text).group(1)

    def test_docs_are_generated_from_the_docstrings_of_every_public_name(self):
        maker = os.path.join(ROOT, "python", "make_docs.py")
        found = importlib.util.spec_from_file_location("make_docs", maker)
        make_docs = importlib.util.module_from_spec(found)
        found.loader.exec_module(make_docs)
        with open(os.path.join(ROOT, "docs", "python.md")) as current:
            assert current.read() == make_docs.render(), "run python/make_docs.py"
        documented = {name for _, names in make_docs.GROUPS for name in names} | set(make_docs.ALIASES)
        assert documented == set(qi.__all__) - {"METHODS", "MONO", "BGR", "ARGB", "ABGR", "__version__"}
