"""PointMatcher.run_batch: one trained matcher over many data sets on several threads."""

import numpy as np
import pytest

import ptmatch
from conftest import Scene, apply_pose, rotation_pose


def datasets_for(model, count, seed=3):
    """count data sets: the model moved by a different pose each (point i stays data point
    i), with clutter after it."""
    rng = np.random.default_rng(seed)
    sets, poses = [], []
    for i in range(count):
        pose = rotation_pose(-10.0 + 2.5 * i, 30.0 * i, -7.0 * i)
        clutter = rng.uniform(2000.0, 2300.0, size=(5, 2))  # far from every match
        sets.append(np.vstack([apply_pose(pose, model), clutter]))
        poses.append(pose)
    return sets, poses


def same_results(a, b):
    assert len(a) == len(b)
    for x, y in zip(a, b):
        assert x.run_mode == y.run_mode
        assert x.coverage == y.coverage and x.fit_error == y.fit_error
        np.testing.assert_array_equal(x.pose, y.pose)
        if x.run_mode == "point_to_grid":
            np.testing.assert_array_equal(x.grid_to_data_map, y.grid_to_data_map)
        else:
            np.testing.assert_array_equal(x.model_to_data_map, y.model_to_data_map)


@pytest.fixture
def matcher(scene):
    m = ptmatch.PointMatcher()
    m.train(scene.model)
    return m


def test_results_come_in_input_order_and_equal_single_runs(matcher, scene):
    sets, poses = datasets_for(scene.model, 8)
    batch = matcher.run_batch(sets, threads=4, min_coverage=0.8, max_results=2)
    assert len(batch) == 8
    for data, pose, results in zip(sets, poses, batch):
        assert isinstance(results, ptmatch.Results) and results.time >= 0.0
        np.testing.assert_array_equal(results[0].model_to_data_map, np.arange(len(scene.model)))
        np.testing.assert_allclose(results[0].pose, pose, atol=0.5)
        same_results(results, matcher.run(data, min_coverage=0.8, max_results=2))


def test_params_record_and_one_thread_give_the_same(matcher, scene):
    sets, _ = datasets_for(scene.model, 5)
    params = ptmatch.RunParams(min_coverage=0.8, rotation=(-20, 20))
    parallel = matcher.run_batch(sets, params)
    serial = matcher.run_batch(sets, params, threads=1)
    for a, b, data in zip(parallel, serial, sets):
        same_results(a, b)
        same_results(a, matcher.run(data, params))


def test_more_threads_than_data_sets_and_no_data_sets(matcher, scene):
    sets, poses = datasets_for(scene.model, 2)
    batch = matcher.run_batch(sets, threads=16, min_coverage=0.8)
    np.testing.assert_allclose(batch[1][0].pose, poses[1], atol=0.5)
    assert matcher.run_batch([], min_coverage=0.8) == []
    assert matcher.run_batch(iter(sets[:1]), min_coverage=0.8)[0][0].coverage == 1.0


def test_a_data_set_without_a_match_gives_an_empty_list(matcher, scene):
    sets, _ = datasets_for(scene.model, 3)
    sets[1] = sets[1][:2]  # two points cannot cover 80 % of the model
    batch = matcher.run_batch(sets, min_coverage=0.8)
    assert [len(r) for r in batch] == [1, 0, 1]


def test_bad_arguments_are_refused(matcher, scene):
    sets, _ = datasets_for(scene.model, 2)
    with pytest.raises(ValueError, match="params or run keywords"):
        matcher.run_batch(sets, ptmatch.RunParams(), min_coverage=0.5)
    for threads in (0, -1, 1.5, True):
        with pytest.raises(ValueError, match="threads"):
            matcher.run_batch(sets, threads=threads)
    with pytest.raises(ptmatch.BadParams):
        matcher.run_batch(sets, min_coverage=1.5)
    with pytest.raises(TypeError):
        matcher.run_batch(sets, no_such_keyword=1)


def test_the_first_failing_data_set_in_input_order_raises(matcher, scene):
    sets, _ = datasets_for(scene.model, 4)
    sets[1] = np.zeros((3, 3))  # ValueError: not (N, 2)
    sets[3] = "not points"  # TypeError
    with pytest.raises(ValueError, match=r"shape \(N, 2\), not \(3, 3\)"):
        matcher.run_batch(sets, threads=4)
    sets[1], sets[3] = sets[3], sets[1]
    with pytest.raises(TypeError, match="numbers"):
        matcher.run_batch(sets, threads=4)


def test_an_untrained_matcher_raises_not_trained():
    with pytest.raises(ptmatch.NotTrained):
        ptmatch.PointMatcher().run_batch([[(0, 0), (1, 0), (0, 1)]] * 3, threads=2)


def test_grid_trained_matcher_runs_in_a_batch():
    image = np.zeros((5, 5), np.uint8)
    image[[0, 0, 2, 4], [0, 3, 1, 4]] = 1
    m = ptmatch.PointMatcher()
    m.train_image(image)
    data = [np.array([(0, 0), (3, 0), (1, 2), (4, 4)], float) + (dx, 0) for dx in (0, 10, 20)]
    batch = m.run_batch(data, threads=3, min_coverage=0.9, rotation=(0, 0))
    for one, d in zip(batch, data):
        assert one[0].run_mode == "point_to_grid"
        same_results(one, m.run(d, min_coverage=0.9, rotation=(0, 0)))
        assert one[0].pose[0][2] == pytest.approx(d[0][0], abs=1e-6), one


def test_scene_fixture_matches_in_a_batch_of_one():
    s = Scene(seed=11)
    m = ptmatch.PointMatcher()
    m.train(s.model)
    (results,) = m.run_batch([s.data], threads=2, min_coverage=0.7, rotation=(-30, 30))
    np.testing.assert_array_equal(results[0].model_to_data_map, s.where)
