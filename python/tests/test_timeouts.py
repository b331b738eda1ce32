"""timeout= on every run and map call: past the limit the call raises ptmatch.TimeoutError,
which is a ptmatch.Error and a built-in TimeoutError; a generous limit changes nothing."""

import math
import threading
import time

import numpy as np
import pytest

import ptmatch
from conftest import Scene

# A limit far below the work of the calls below: their first interruption check throws.
TINY = 1e-9
GENEROUS = 600.0


@pytest.fixture
def long_exhaustive():
    """An exhaustive run of 8 model points against 12 data points: minutes of work."""
    rng = np.random.default_rng(2)
    m = ptmatch.PointMatcher()
    m.train(rng.uniform(0, 100, (8, 2)), mode="exhaustive")
    return m, rng.uniform(0, 100, (12, 2))


@pytest.fixture
def safety_net():
    """Ends a run that the limit failed to end, so that a failing test fails soon."""
    timer = threading.Timer(20.0, ptmatch.request_interruption)
    timer.daemon = True
    timer.start()
    yield
    timer.cancel()
    ptmatch.clear_interruption()


def grid_dots():
    return [(12 * i + 3, 12 * j + 4) for j in range(6) for i in range(7)]


def test_timeout_error_is_an_error_and_a_builtin_timeout_error():
    assert issubclass(ptmatch.TimeoutError, ptmatch.Error)
    assert issubclass(ptmatch.TimeoutError, TimeoutError)
    assert not issubclass(ptmatch.TimeoutError, KeyboardInterrupt)


def test_a_short_limit_ends_a_long_exhaustive_run(long_exhaustive, safety_net):
    m, data = long_exhaustive
    start = time.monotonic()
    with pytest.raises(ptmatch.TimeoutError) as err:
        m.run(data, min_coverage=0.9, timeout=0.2)
    elapsed = time.monotonic() - start
    assert isinstance(err.value, TimeoutError)
    assert err.value.cpp_class == "mvAttention::TimedOut"
    assert "0.2" in str(err.value)
    assert 0.2 <= elapsed < 10.0
    # The limit was this call's only: the next run has none.
    assert not ptmatch.interruption_requested()
    assert m.run(data[:3], min_coverage=0.0) is not None


def test_a_short_limit_ends_a_run_over_a_huge_window(safety_net):
    """Point-to-point search over a translation window of about 10^7 cells at a tiny grid
    size, at every rotation: seconds of work, ended by the limit inside the lattice."""
    scene = Scene(seed=3, num_model=16, num_clutter=16)
    m = ptmatch.PointMatcher()
    m.train(scene.model)
    start = time.monotonic()
    with pytest.raises(ptmatch.TimeoutError):
        m.run(scene.data, min_coverage=0.99, rotation="full", grid_size=0.1,
              timeout=0.1)
    assert time.monotonic() - start < 5.0


def test_a_tiny_limit_ends_every_kind_of_call():
    scene = Scene(seed=5)
    m = ptmatch.PointMatcher()
    m.train(scene.model)
    with pytest.raises(ptmatch.TimeoutError):
        m.run(scene.data, timeout=TINY)
    with pytest.raises(ptmatch.TimeoutError):
        m.run(scene.data, ptmatch.RunParams(), TINY)
    with pytest.raises(ptmatch.TimeoutError):
        m.run_batch([scene.data, scene.data], threads=2, timeout=TINY)
    with pytest.raises(ptmatch.TimeoutError):
        ptmatch.pt_to_grid_map(grid_dots(), xv=(12, 0), yv=(0, 12), snap_size=11, timeout=TINY)
    with pytest.raises(ptmatch.TimeoutError):
        ptmatch.robust_grid_map(grid_dots(), timeout=TINY)
    g = ptmatch.GridCorresponder()
    g.train([(0, 0), (1, 0), (0, 1), (2, 2)])
    with pytest.raises(ptmatch.TimeoutError):
        g.run([(5, 5), (6, 5), (5, 6), (7, 7)], timeout=TINY)


def test_a_generous_limit_gives_the_result_of_no_limit():
    scene = Scene(seed=7)
    m = ptmatch.PointMatcher()
    m.train(scene.model)
    free = m.run(scene.data, min_coverage=0.9)
    limited = m.run(scene.data, min_coverage=0.9, timeout=GENEROUS)
    assert len(free) == len(limited) == 1
    np.testing.assert_array_equal(free[0].pose, limited[0].pose)
    np.testing.assert_array_equal(free[0].model_to_data_map, limited[0].model_to_data_map)
    np.testing.assert_allclose(free[0].pose, scene.pose, atol=1e-6)

    batch = m.run_batch([scene.data], min_coverage=0.9, timeout=GENEROUS)
    np.testing.assert_array_equal(batch[0][0].pose, free[0].pose)

    plain = ptmatch.pt_to_grid_map(grid_dots(), xv=(12, 0), yv=(0, 12), snap_size=11)
    timed = ptmatch.pt_to_grid_map(grid_dots(), xv=(12, 0), yv=(0, 12), snap_size=11,
                                   timeout=GENEROUS)
    assert plain.num_assigned == timed.num_assigned == 42
    np.testing.assert_array_equal(plain.map, timed.map)

    robust = ptmatch.robust_grid_map(grid_dots(), timeout=GENEROUS)
    np.testing.assert_array_equal(robust.map, ptmatch.robust_grid_map(grid_dots()).map)

    g = ptmatch.GridCorresponder()
    g.train([(0, 0), (1, 0), (0, 1), (2, 2)])
    nodes = [(5, 5), (6, 5), (5, 6), (7, 7)]
    assert g.run(nodes, timeout=GENEROUS)[0].position == g.run(nodes)[0].position


@pytest.mark.parametrize("bad", [0, 0.0, -1.0, math.nan])
def test_bad_limits_raise_value_error(bad):
    scene = Scene(seed=7)
    m = ptmatch.PointMatcher()
    m.train(scene.model)
    with pytest.raises(ValueError, match="timeout"):
        m.run(scene.data, timeout=bad)
    with pytest.raises(ValueError, match="timeout"):
        ptmatch.pt_to_grid_map(grid_dots(), timeout=bad)
    with pytest.raises(ValueError, match="timeout"):
        ptmatch.robust_grid_map(grid_dots(), timeout=bad)


@pytest.mark.parametrize("bad", ["1", True, [1.0]])
def test_limits_that_are_no_numbers_raise_type_error(bad):
    m = ptmatch.PointMatcher()
    m.train(Scene(seed=7).model)
    with pytest.raises(TypeError, match="timeout"):
        m.run([(0, 0), (1, 0), (0, 1)], timeout=bad)


def test_an_infinite_limit_is_no_limit():
    scene = Scene(seed=7)
    m = ptmatch.PointMatcher()
    m.train(scene.model)
    assert len(m.run(scene.data, min_coverage=0.9, timeout=math.inf)) == 1


# --- the cost estimate ---

DIAMOND = [(0, 30), (120, 30), (60, 0), (60, 60)]


def test_estimate_cost_counted_by_hand():
    """Grid size 5: the centre maps to cell (13, 7); +-10 units are offsets -2 ... 2 on each
    axis, 25 cells; no rotation or scale range, one step; four model points."""
    m = ptmatch.PointMatcher()
    m.train(DIAMOND)
    cost = m.estimate_cost(DIAMOND, x_range=(-10, 10), y_range=(-10, 10), rotation=(0, 0),
                           grid_size=5)
    assert cost == {"lattice_steps": 1, "window_cells": 25, "model_points": 4,
                    "grid_size": 5.0, "work": 100.0}
    wide = m.estimate_cost(DIAMOND, ptmatch.RunParams(x_range=(-20, 20), y_range=(-10, 10),
                                                      rotation=(0, 0), grid_size=5))
    assert wide["window_cells"] == 45 and wide["work"] == 180.0
    # Rotation step atan2(10, 60) = 9.46 degrees: [10, 40] is 2 steps either side of 25.
    turned = m.estimate_cost(DIAMOND, x_range=(-10, 10), y_range=(-10, 10), rotation=(10, 40),
                             grid_size=5)
    assert turned["lattice_steps"] == 5 and turned["work"] == 500.0


def test_estimate_cost_grows_as_the_run_does():
    scene = Scene(seed=3, num_model=16, num_clutter=16)
    m = ptmatch.PointMatcher()
    m.train(scene.model)
    coarse = m.estimate_cost(scene.data, rotation="full", grid_size=2.0)
    fine = m.estimate_cost(scene.data, rotation="full", grid_size=1.0)
    # Half the grid size: twice the rotations, four times the cells.
    assert 6.0 < fine["work"] / coarse["work"] < 10.0


def test_estimate_cost_refuses_other_modes():
    m = ptmatch.PointMatcher()
    with pytest.raises(ptmatch.NotTrained):
        m.estimate_cost(DIAMOND)
    m.train(DIAMOND, mode="exhaustive")
    with pytest.raises(ptmatch.NotTrained):
        m.estimate_cost(DIAMOND)
