"""Pickling of every value class and tool through the library's archive."""

import pickle

import numpy as np
import pytest

import ptmatch
from conftest import Scene, apply_pose


def round_trip(obj):
    copy = pickle.loads(pickle.dumps(obj))
    assert type(copy) is type(obj)
    return copy


def trained_matcher(scene, **kw):
    m = ptmatch.PointMatcher()
    m.train(scene.model, **kw)
    return m


def values():
    """One instance of each class that pickles through the archive, with content."""
    scene = Scene(seed=7)
    matcher = trained_matcher(scene)
    result = matcher.run(scene.data, min_coverage=0.8)[0]
    grid = np.array([(i, j) for j in range(3) for i in range(4)], float) * 10
    corresponder = ptmatch.GridCorresponder()
    corresponder.train([(0, 0), (1, 0), (2, 1)], staggered=True, feature_type="thick_boundary")
    tm2 = ptmatch.PtMatchTm2([[2, 0, 1], [0, 3, -1]])
    pseudo = ptmatch.PseudoInverse(2)
    pseudo.update([1, 2], 3)
    tm3 = ptmatch.PtMatchTm3()
    tm3.update((1, 2, 3), (2, 3, 4))
    return [
        ptmatch.RunParams(min_coverage=0.7, x_range=(-5, 5), rotation="full", grid_size=2.5,
                          max_results=3),
        result,
        matcher,
        ptmatch.GridMapParams(xv=(10, 0), yv=(0, 10), staggered=True, snap_size=12.0,
                              size_tol=(0.9, 1.1), angle_tol=(-5, 5)),
        ptmatch.pt_to_grid_map(grid, xv=(10, 0), yv=(0, 10), snap_size=12.0),
        ptmatch.GridCorresponderTrainParams(staggered=True, feature_type=7),
        ptmatch.GridCorresponderRunParams(accept=0.6, confusion=0.2, max_results=5),
        corresponder.run([(3, 3), (4, 3), (5, 4)], accept=1.0)[0],
        corresponder,
        tm2,
        ptmatch.PerspectiveTm2(tm2),
        tm3,
        pseudo,
        ptmatch.MatrixExt([[1.0, 2.0, 3.0], [4.0, 5.0, 6.0]]),
    ]


@pytest.mark.parametrize("obj", values(), ids=lambda o: type(o).__name__)
def test_pickle_round_trip_gives_the_same_archive(obj):
    copy = round_trip(obj)
    assert copy.to_bytes() == obj.to_bytes()
    assert type(obj).from_bytes(obj.to_bytes()).to_bytes() == obj.to_bytes()


def test_unpickled_matcher_finds_the_same_pose():
    scene = Scene(seed=7)
    copy = round_trip(trained_matcher(scene))
    np.testing.assert_allclose(copy.run(scene.data, min_coverage=0.8)[0].pose, scene.pose,
                               atol=1e-9)


def test_unpickled_weighted_matcher_keeps_its_weights():
    scene = Scene(seed=7)
    weights = np.arange(len(scene.model)) % 4 - 1  # -1, 0, 1, 2, ...
    copy = round_trip(trained_matcher(scene, weights=weights))
    np.testing.assert_array_equal(copy.weights, weights)


def test_unpickled_exhaustive_matcher_keeps_its_mode():
    m = ptmatch.PointMatcher()
    m.train([(0, 0), (3, 0), (0, 4)], mode="exhaustive")
    assert round_trip(m).train_mode == "exhaustive"
    # The bare archive does not hold the mode, as in C++.
    assert ptmatch.PointMatcher.from_bytes(m.to_bytes()).train_mode == "point_to_point"


def test_unpickled_untrained_matcher_is_untrained():
    assert not round_trip(ptmatch.PointMatcher()).is_trained


def test_unpickled_result_keeps_every_field():
    scene = Scene(seed=7)
    result = trained_matcher(scene).run(scene.data, min_coverage=0.8)[0]
    copy = round_trip(result)
    assert copy.run_mode == result.run_mode
    assert copy.coverage == result.coverage and copy.fit_error == result.fit_error
    np.testing.assert_array_equal(copy.pose, result.pose)
    np.testing.assert_array_equal(copy.model_to_data_map, result.model_to_data_map)


def test_results_list_pickles_with_its_time():
    scene = Scene(seed=7)
    results = trained_matcher(scene).run(scene.data, min_coverage=0.8)
    copy = round_trip(results)
    assert copy.time == results.time
    assert [r.to_bytes() for r in copy] == [r.to_bytes() for r in results]


def test_unpickled_params_compare_equal():
    p = ptmatch.RunParams(min_coverage=0.7, scale=(-0.1, 0.2), capture_range=1.5)
    assert round_trip(p) == p
    t = ptmatch.GridCorresponderTrainParams(staggered=True)
    assert round_trip(t) == t


def test_unpickled_transforms_map_alike():
    tm = ptmatch.PtMatchTm2([[2, 0, 1], [0, 3, -1]])
    np.testing.assert_array_equal(round_trip(tm).a2b((1, 1)), tm.a2b((1, 1)))
    pts = np.array([(0, 0), (4, 0), (4, 4), (0, 4), (2, 1)], float)
    persp = ptmatch.PerspectiveTm2(pts, apply_pose(np.array([[1, 0.1, 2], [0, 1, 3]]), pts))
    np.testing.assert_allclose(round_trip(persp).a2b(pts), persp.a2b(pts))


def test_unpickled_score_store_iterates_alike():
    s = ptmatch.ScoreHashing(10, 4)
    for score, x in [(5, 1), (7, 2), (5, 3), (2, 4)]:
        s.add(score, (x, 0))
    copy = round_trip(s)
    assert (copy.max_score, copy.max_results) == (10, 4)
    assert copy.items() == s.items()
    assert copy.lowest_score == s.lowest_score and copy.highest_score == s.highest_score


def test_unpickled_corresponder_finds_the_same_position():
    c = ptmatch.GridCorresponder()
    c.train([(0, 0), (1, 0), (2, 0), (0, 1)], feature_type="point")
    copy = round_trip(c)
    observed = [(5, 5), (6, 5), (7, 5), (5, 6)]
    assert [r.position for r in copy.run(observed, accept=1.0)] == [(5, 5)]


def test_unpickled_image_trained_matcher_keeps_its_pattern_and_finds_it():
    image = np.ones((4, 5), np.uint8)
    image[1, 3] = 0
    m = ptmatch.PointMatcher()
    m.train_image(image)
    copy = round_trip(m)
    assert copy.train_mode == "point_to_grid"
    np.testing.assert_array_equal(copy.pattern, image)
    data = np.argwhere(image)[:, ::-1] + [7.0, 3.0]
    best = copy.run(data, min_coverage=0.9, capture_range=1.2)[0]
    np.testing.assert_allclose(best.pose, [[1, 0, 7], [0, 1, 3]], atol=1e-9)
    np.testing.assert_array_equal(round_trip(best).grid_to_data_map, best.grid_to_data_map)
