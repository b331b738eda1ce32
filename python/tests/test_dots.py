"""find_dots and read_image on images rendered here with known dot centres."""

import os
import threading

import numpy as np
import pytest

import ptmatch


def render(shape, dots, background, step, supersample=8, dtype=np.uint8):
    """Discs (x, y, radius) anti-aliased by supersampling, grey `background` plus `step`
    inside them."""
    h, w = shape
    offsets = (np.arange(supersample) + 0.5) / supersample - 0.5
    ys, xs = np.mgrid[0:h, 0:w].astype(float)
    cover = np.zeros(shape)
    for x, y, r in dots:
        for dy in offsets:
            for dx in offsets:
                cover += ((xs + dx - x) ** 2 + (ys + dy - y) ** 2 <= r * r)
    cover /= supersample * supersample
    return np.clip(np.round(background + step * cover), 0, np.iinfo(dtype).max).astype(dtype)


DOTS = [(20.3, 15.6, 5.0), (50.7, 14.2, 4.0), (80.1, 16.9, 6.0), (35.5, 45.25, 5.5)]


def check_centres(found, dots, tolerance):
    centres = found["centres"]
    assert centres.shape == (len(dots), 2)
    for x, y, _ in dots:
        d = np.hypot(centres[:, 0] - x, centres[:, 1] - y)
        assert d.min() < tolerance


def test_dark_dots_of_an_eight_bit_image():
    image = render((60, 100), DOTS, 200, -150)
    found = ptmatch.find_dots(image)
    check_centres(found, DOTS, 0.02)
    # Sorted by the row of the rounded centre, then x.
    assert list(np.round(found["centres"][:, 1])) == [14, 16, 17, 45]
    assert found["area"].shape == (4,)
    assert abs(found["area"][0] - np.pi * 16) < 4
    assert np.all(found["roundness"] > 0.9)
    assert np.all(np.abs(found["contrast"] - 150) < 6)
    assert found["box"].dtype == np.int64 and found["box"].shape == (4, 4)
    assert not found["touches_border"].any()
    assert not found["bright"].any()
    assert found["time"] >= 0.0


def test_sixteen_bits_any_strides_and_bright_dots():
    image = render((60, 100), DOTS, 1000, 30000, dtype=np.uint16)
    found = ptmatch.find_dots(image, polarity="bright", threshold="local")
    check_centres(found, DOTS, 0.02)
    assert found["bright"].all()
    # A transposed view (column strides) gives the transposed centres.
    t = ptmatch.find_dots(image.T, polarity="bright")
    check_centres(t, [(y, x, r) for x, y, r in DOTS], 0.02)
    # Every second pel of a larger image.
    big = np.zeros((120, 200), dtype=np.uint16)
    big[::2, ::2] = image
    big[1::2, :] = 7
    check_centres(ptmatch.find_dots(big[::2, ::2], polarity="bright", threshold=16000), DOTS, 0.02)


def test_filters_and_bad_arguments():
    image = render((60, 100), DOTS, 200, -150)
    assert len(ptmatch.find_dots(image, min_area=70)["area"]) == 3
    assert len(ptmatch.find_dots(image, max_area=60)["area"]) == 1
    assert len(ptmatch.find_dots(image, polarity="bright")["area"]) == 0
    with pytest.raises(ptmatch.DotError):
        ptmatch.find_dots(image, min_roundness=2.0)
    with pytest.raises(ValueError):
        ptmatch.find_dots(image, min_area=0.0)
    with pytest.raises(ValueError):
        ptmatch.find_dots(image, polarity="grey")
    with pytest.raises(ValueError):
        ptmatch.find_dots(image, threshold="otsu")
    with pytest.raises(ValueError):
        ptmatch.find_dots(image[0])
    with pytest.raises(TypeError):
        ptmatch.find_dots(image.astype(np.float32))


def test_runs_from_threads_at_once():
    image = render((60, 100), DOTS, 200, -150)
    results = [None] * 4

    def work(i):
        results[i] = ptmatch.find_dots(image)["centres"]

    threads = [threading.Thread(target=work, args=(i,)) for i in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    for r in results:
        np.testing.assert_array_equal(r, results[0])


def test_read_image_round_trip(tmp_path):
    image = render((60, 100), DOTS, 200, -150)
    path = tmp_path / "d.pgm"
    path.write_bytes(b"P5\n100 60\n255\n" + image.tobytes())
    read = ptmatch.read_image(str(path))
    assert read.dtype == np.uint8
    np.testing.assert_array_equal(read, image)
    wide = (image.astype(np.uint16) * 200).byteswap()
    path16 = tmp_path / "d16.pgm"
    path16.write_bytes(b"P5\n100 60\n65535\n" + wide.tobytes())
    read16 = ptmatch.read_image(str(path16))
    assert read16.dtype == np.uint16
    np.testing.assert_array_equal(read16, image.astype(np.uint16) * 200)


def test_read_image_errors_name_the_file(tmp_path):
    bad = tmp_path / "bad.pgm"
    bad.write_bytes(b"P5\n4 4\n255\nab")
    with pytest.raises(ptmatch.ImageFileError, match="bad.pgm: the PGM raster is truncated"):
        ptmatch.read_image(str(bad))
    with pytest.raises(ValueError, match="cannot open the file"):
        ptmatch.read_image(os.path.join(str(tmp_path), "none.png"))
