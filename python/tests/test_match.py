"""ptmatch.match: the planned search in one call, against PointMatcher.run; and the thread
setting."""

import numpy as np
import pytest

import ptmatch


def scene(seed=4, points=30, clutter=8):
    rng = np.random.default_rng(seed)
    model = rng.uniform(0, 300, (points, 2))
    angle = np.deg2rad(130.0)
    turn = 1.15 * np.array([[np.cos(angle), -np.sin(angle)], [np.sin(angle), np.cos(angle)]])
    data = np.vstack([model @ turn.T + [500.0, 400.0], rng.uniform(0, 900, (clutter, 2))])
    return model, data


def test_match_finds_the_model_as_the_written_run_does():
    model, data = scene()
    planned = ptmatch.match(model, data, scale=(-0.2, 0.25), min_coverage=0.7)
    matcher = ptmatch.PointMatcher()
    matcher.train(model)
    written = matcher.run(data, rotation="full", scale=(-0.2, 0.25), min_coverage=0.7)
    assert len(planned) == 1 and len(written) == 1
    assert planned[0].coverage == 1.0
    assert list(planned[0].model_to_data_map) == list(range(30))
    assert list(planned[0].model_to_data_map) == list(written[0].model_to_data_map)
    assert planned[0].fit_error == written[0].fit_error
    assert planned.time > 0.0


def test_exact_gives_the_written_run():
    model, data = scene(points=12, clutter=2)
    exact = ptmatch.match(model, data, scale=(-0.2, 0.25), exact=True)
    matcher = ptmatch.PointMatcher()
    matcher.train(model)
    written = matcher.run(data, rotation="full", scale=(-0.2, 0.25))
    assert [list(r.model_to_data_map) for r in exact] == \
        [list(r.model_to_data_map) for r in written]
    assert [r.coverage for r in exact] == [r.coverage for r in written]


def test_match_refuses_bad_arguments_with_the_library_errors():
    model, data = scene()
    with pytest.raises(ptmatch.BadParams):
        ptmatch.match(model, data, min_coverage=1.5)
    with pytest.raises(ptmatch.InsufficientModelPoints):
        ptmatch.match(model[:1], data)
    with pytest.raises(ValueError):
        ptmatch.match(model, data, timeout=-1)


def test_a_timeout_stops_the_exact_run():
    model, data = scene(points=60, clutter=200)
    with pytest.raises(ptmatch.TimeoutError):
        ptmatch.match(model, data, scale=(-0.2, 0.25), exact=True, timeout=0.001)


def test_set_num_threads_is_read_back_and_checked():
    try:
        ptmatch.set_num_threads(3)
        assert ptmatch.get_num_threads() == 3
        model, data = scene()
        assert ptmatch.match(model, data, scale=(-0.2, 0.25))[0].coverage == 1.0
        ptmatch.set_num_threads(0)
        assert ptmatch.get_num_threads() in (0,) or ptmatch.get_num_threads() > 0
        with pytest.raises(ValueError):
            ptmatch.set_num_threads(-1)
        with pytest.raises(ValueError):
            ptmatch.set_num_threads(5000)
    finally:
        ptmatch.set_num_threads(0)
