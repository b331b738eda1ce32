"""RunParams: defaults, the validating setters and their messages."""

import math

import numpy as np
import pytest

import ptmatch


def test_defaults_are_those_of_the_library():
    p = ptmatch.RunParams()
    assert p.min_coverage == 0.5
    np.testing.assert_array_equal(p.start_pose, [[1, 0, 0], [0, 1, 0]])
    assert p.x_range == "full" and p.y_range == "full"
    lo, hi = p.rotation
    assert lo == pytest.approx(-15.0) and hi == pytest.approx(15.0)
    assert p.scale == (0.0, 0.0)
    assert p.grid_size is None and p.capture_range is None
    assert p.max_results == 1


def test_keywords_set_every_field():
    pose = [[0, -1, 5], [1, 0, 6]]
    p = ptmatch.RunParams(min_coverage=0.25, start_pose=pose, x_range=(-5, 5), y_range=(0, 10),
                          rotation=(-90, 90), scale=(-0.5, 0.25), grid_size=2.0,
                          capture_range=0.0, max_results=7)
    assert p.min_coverage == 0.25
    np.testing.assert_array_equal(p.start_pose, pose)
    assert p.x_range == (-5.0, 5.0) and p.y_range == (0.0, 10.0)
    assert p.rotation == pytest.approx((-90.0, 90.0))
    assert p.scale == (-0.5, 0.25)
    assert p.grid_size == 2.0 and p.capture_range == 0.0 and p.max_results == 7


def test_rotation_full_is_the_full_circle():
    assert ptmatch.RunParams(rotation="full").rotation == "full"
    assert ptmatch.RunParams(rotation=(0, 360)).rotation == "full"


@pytest.mark.parametrize("value", [0.0, 1.0])
def test_min_coverage_accepts_its_ends(value):
    assert ptmatch.RunParams(min_coverage=value).min_coverage == value


@pytest.mark.parametrize("value", [1.0000001, -1e-300, math.nan])
def test_min_coverage_outside_zero_to_one_is_refused(value):
    with pytest.raises(ptmatch.BadParams) as err:
        ptmatch.RunParams(min_coverage=value)
    assert err.value.message == "minCoverage must be in [0.0, 1.0]\n"


def test_a_refused_setter_leaves_the_params_unchanged():
    p = ptmatch.RunParams(min_coverage=0.3)
    with pytest.raises(ptmatch.BadParams):
        p.min_coverage = 2.0
    assert p.min_coverage == 0.3
    p.grid_size = 3.0
    with pytest.raises(ptmatch.BadParams, match="gridSize must be >= 0.0"):
        p.grid_size = 0.0
    assert p.grid_size == 3.0


def test_grid_size_zero_is_refused_but_capture_range_zero_accepted():
    with pytest.raises(ptmatch.BadParams) as err:
        ptmatch.RunParams(grid_size=0.0)
    assert err.value.message == "if autoGridSize==false, gridSize must be >= 0.0\n"
    assert ptmatch.RunParams(capture_range=0.0).capture_range == 0.0
    with pytest.raises(ptmatch.BadParams, match="captureRange must be >= 0.0"):
        ptmatch.RunParams(capture_range=-1.0)


def test_empty_ranges_are_refused_with_the_library_messages():
    with pytest.raises(ptmatch.BadParams, match="xTranslationUncertainty range must not be empty"):
        ptmatch.RunParams(x_range=(5, -5))
    with pytest.raises(ptmatch.BadParams, match="yTranslationUncertainty range must not be empty"):
        ptmatch.RunParams(y_range=(5, -5))
    with pytest.raises(ptmatch.BadParams, match="angleUncertainty range must not be empty"):
        ptmatch.RunParams(rotation=(10, -10))


def test_scale_limits():
    assert ptmatch.RunParams(scale=(-0.9, 0.5)).scale == (-0.9, 0.5)
    with pytest.raises(ptmatch.BadParams) as err:
        ptmatch.RunParams(scale=(-0.95, 0.5))
    assert err.value.message == "start of scaleUncertainty scale must be >= -0.9\n"
    with pytest.raises(ptmatch.BadParams, match="scaleUncertainty range must not be full"):
        ptmatch.RunParams(scale="full")


def test_max_results_below_one_is_refused():
    with pytest.raises(ptmatch.BadParams, match="maxNumResults must be >= 1"):
        ptmatch.RunParams(max_results=0)
    with pytest.raises(ValueError, match="32 bits"):
        ptmatch.RunParams(max_results=2**40)


def test_equality_uses_the_library_tolerance():
    assert ptmatch.RunParams(min_coverage=0.5) == ptmatch.RunParams(min_coverage=0.5 + 1e-16)
    assert not ptmatch.RunParams(min_coverage=0.5) == ptmatch.RunParams(min_coverage=0.5 + 1e-14)


def test_ranges_must_be_pairs_or_full():
    with pytest.raises(ValueError):
        ptmatch.RunParams(x_range="everything")
    with pytest.raises(ValueError):
        ptmatch.RunParams(x_range=(1, 2, 3))
    with pytest.raises(ValueError, match="2x3"):
        ptmatch.RunParams(start_pose=np.eye(2))
