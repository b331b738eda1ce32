"""PointMatcher: training, running, results, copies."""

import copy

import numpy as np
import pytest

import ptmatch
from conftest import Scene, apply_pose, rotation_pose

TRIANGLE = [(0.0, 0.0), (10.0, 0.0), (0.0, 10.0)]


# --- training ---


def test_new_matcher_is_untrained():
    m = ptmatch.PointMatcher()
    assert not m.is_trained
    with pytest.raises(ptmatch.NotTrained) as err:
        m.train_mode
    assert err.value.message == "mvPointMatcher tool is not trained\n"


def test_training_from_points_reports_point_to_point_and_keeps_the_points():
    m = ptmatch.PointMatcher()
    m.train(TRIANGLE)
    assert m.is_trained
    assert m.train_mode == "point_to_point"
    np.testing.assert_array_equal(m.model_points, np.array(TRIANGLE))
    np.testing.assert_array_equal(m.weights, [1, 1, 1])


def test_points_may_be_any_array_like():
    for points in (TRIANGLE, np.array(TRIANGLE, dtype=np.float32), [[0, 0], [10, 0], [0, 10]],
                   tuple(TRIANGLE)):
        m = ptmatch.PointMatcher()
        m.train(points)
        np.testing.assert_array_equal(m.model_points, np.array(TRIANGLE))


def test_points_of_the_wrong_shape_are_a_value_error():
    m = ptmatch.PointMatcher()
    with pytest.raises(ValueError, match=r"points must have shape \(N, 2\)"):
        m.train([(0, 0, 0), (1, 1, 1), (2, 2, 2)])
    with pytest.raises(TypeError):
        m.train([("a", "b")] * 3)


def test_weighted_training_keeps_the_weights():
    m = ptmatch.PointMatcher()
    m.train(TRIANGLE, weights=[5, 1, -3])
    np.testing.assert_array_equal(m.weights, [5, 1, -3])


def test_fewer_than_two_positive_weights_are_refused_with_the_library_message():
    m = ptmatch.PointMatcher()
    with pytest.raises(ptmatch.BadParams) as err:
        m.train(TRIANGLE, weights=[5, 0, -3])
    assert str(err.value) == "At least two weights must be positve."
    assert not m.is_trained


def test_weight_count_must_match_point_count():
    with pytest.raises(ptmatch.BadParams, match="equal to the number of weights"):
        ptmatch.PointMatcher().train(TRIANGLE, weights=[1, 1])


def test_two_points_are_too_few():
    with pytest.raises(ptmatch.InsufficientModelPoints) as err:
        ptmatch.PointMatcher().train(TRIANGLE[:2])
    assert err.value.message == "The number of model points must be >= 3\n"
    assert err.value.error_number == 0x10005F04


def test_point_to_point_is_no_training_mode():
    with pytest.raises(ptmatch.BadParams, match="mode must be either"):
        ptmatch.PointMatcher().train(TRIANGLE, mode="point_to_point")
    with pytest.raises(ValueError, match='mode must be "auto" or "exhaustive"'):
        ptmatch.PointMatcher().train(TRIANGLE, mode="fast")


def test_exhaustive_training_refuses_the_weights_accessor():
    m = ptmatch.PointMatcher()
    m.train(TRIANGLE, mode="exhaustive")
    assert m.train_mode == "exhaustive"
    assert len(m.model_points) == 3
    with pytest.raises(ptmatch.NotTrained, match="not trained in mode ePointToPoint"):
        m.weights


def test_untrain_forgets_the_model():
    m = ptmatch.PointMatcher()
    m.train(TRIANGLE)
    m.untrain()
    assert not m.is_trained
    with pytest.raises(ptmatch.NotTrained):
        m.train_mode


def test_pattern_of_a_point_trained_matcher_is_not_trained():
    m = ptmatch.PointMatcher()
    m.train(TRIANGLE)
    with pytest.raises(ptmatch.NotTrained):
        m.pattern


# --- running ---


def test_untrained_run_raises_not_trained():
    with pytest.raises(ptmatch.NotTrained, match="mvPointMatcher tool is not trained"):
        ptmatch.PointMatcher().run(TRIANGLE)


def test_run_recovers_a_generated_pose_among_clutter(scene):
    m = ptmatch.PointMatcher()
    m.train(scene.model)
    results = m.run(scene.data, min_coverage=0.8)
    assert isinstance(results, list) and isinstance(results, ptmatch.Results)
    assert len(results) == 1
    best = results[0]
    assert best.run_mode == "point_to_point"
    assert best.coverage == pytest.approx(1.0)
    np.testing.assert_allclose(best.pose, scene.pose, atol=1e-9)
    np.testing.assert_array_equal(best.model_to_data_map, scene.where)
    assert best.fit_error < 1e-9
    assert results.time >= 0.0


def test_run_recovers_a_noisy_scaled_pose():
    s = Scene(seed=11, degrees=-20.0, tx=-30.0, ty=60.0, scale=1.1, noise=0.2)
    m = ptmatch.PointMatcher()
    m.train(s.model)
    results = m.run(s.data, min_coverage=0.8, rotation=(-30, 30), scale=(-0.2, 0.2))
    assert results, "the pose was not found"
    best = results[0]
    np.testing.assert_allclose(best.pose[:, :2], s.pose[:, :2], atol=0.01)
    np.testing.assert_allclose(best.pose[:, 2], s.pose[:, 2], atol=1.0)
    matched = best.model_to_data_map >= 0
    assert matched.mean() >= 0.8
    np.testing.assert_array_equal(best.model_to_data_map[matched], s.where[matched])
    # The fit error is the root-mean-square distance of the matched pairs under the pose.
    moved = apply_pose(best.pose, s.model[matched])
    rms = np.sqrt(np.mean(np.sum((moved - s.data[best.model_to_data_map[matched]]) ** 2, axis=1)))
    assert best.fit_error == pytest.approx(rms, rel=1e-9)


def test_rotation_outside_the_range_is_not_reported(scene):
    m = ptmatch.PointMatcher()
    m.train(scene.model)
    assert m.run(scene.data, min_coverage=0.8, rotation=(20, 40)) == []


def test_rotation_full_finds_a_large_rotation():
    s = Scene(seed=3, degrees=150.0)
    m = ptmatch.PointMatcher()
    m.train(s.model)
    results = m.run(s.data, min_coverage=0.8, rotation="full")
    np.testing.assert_allclose(results[0].pose, s.pose, atol=1e-6)


def test_result_pose_is_absolute_when_the_start_pose_is_not_the_identity(scene):
    m = ptmatch.PointMatcher()
    m.train(scene.model)
    start = rotation_pose(10.0, 35.0, -20.0)
    results = m.run(scene.data, min_coverage=0.8, start_pose=start, rotation=(-5, 5))
    np.testing.assert_allclose(results[0].pose, scene.pose, atol=1e-9)


def test_too_few_data_points_give_no_results_quickly():
    m = ptmatch.PointMatcher()
    m.train(np.arange(20.0).reshape(10, 2) * [1, 3])
    assert m.run(TRIANGLE + [(5, 5)], min_coverage=0.5) == []


def test_max_results_bounds_the_results():
    rng = np.random.default_rng(5)
    model = rng.uniform(0, 100, (6, 2))
    # Two copies of the model far apart: two poses of full coverage.
    data = np.vstack([model + [500, 0], model + [0, 500]])
    m = ptmatch.PointMatcher()
    m.train(model)
    both = m.run(data, min_coverage=0.9, max_results=2)
    assert len(both) == 2
    assert sorted(round(r.pose[0, 2] + r.pose[1, 2]) for r in both) == [500, 500]
    assert len(m.run(data, min_coverage=0.9, max_results=1)) == 1


def test_exhaustive_run_matches_a_small_model():
    model = np.array([(0, 0), (10, 0), (0, 7), (4, 4)], float)
    pose = rotation_pose(5.0, 3.0, 4.0)
    data = np.vstack([apply_pose(pose, model)[[2, 0, 3, 1]], [(50, 50)]])
    m = ptmatch.PointMatcher()
    m.train(model, mode="exhaustive")
    results = m.run(data, min_coverage=0.9)
    assert results[0].run_mode == "exhaustive"
    np.testing.assert_allclose(results[0].pose, pose, atol=1e-9)
    np.testing.assert_array_equal(results[0].model_to_data_map, [1, 3, 0, 2])


def test_run_accepts_a_run_params_object(scene):
    m = ptmatch.PointMatcher()
    m.train(scene.model)
    params = ptmatch.RunParams(min_coverage=0.8)
    np.testing.assert_allclose(m.run(scene.data, params)[0].pose, scene.pose, atol=1e-9)


def test_bad_run_parameters_raise_bad_params_before_running(scene):
    m = ptmatch.PointMatcher()
    m.train(scene.model)
    with pytest.raises(ptmatch.BadParams, match="maxNumResults must be >= 1"):
        m.run(scene.data, max_results=0)


# --- results ---


def test_default_result_has_an_empty_map_and_no_grid_map():
    r = ptmatch.PointMatcherResult()
    assert r.run_mode == "point_to_point"
    assert len(r.model_to_data_map) == 0
    np.testing.assert_array_equal(r.pose, [[1, 0, 0], [0, 1, 0]])
    with pytest.raises(ptmatch.NotRun) as err:
        r.grid_to_data((0, 0))
    assert err.value.message == "mvPointMatcherResult was not run in mode ePointToGrid\n"
    with pytest.raises(ptmatch.NotRun):
        r.grid_to_data_map


# --- copies ---


def test_copy_keeps_the_exhaustive_train_mode():
    m = ptmatch.PointMatcher()
    m.train(TRIANGLE, mode="exhaustive")
    for c in (copy.copy(m), copy.deepcopy(m)):
        assert c.train_mode == "exhaustive"
        np.testing.assert_array_equal(c.model_points, m.model_points)


def test_copy_is_independent_of_the_original(scene):
    m = ptmatch.PointMatcher()
    m.train(scene.model)
    c = copy.deepcopy(m)
    m.untrain()
    assert c.is_trained and not m.is_trained
    np.testing.assert_allclose(c.run(scene.data, min_coverage=0.8)[0].pose, scene.pose, atol=1e-9)


# --- training from an image ---


def _train_image_or_skip(m, image, **kw):
    try:
        m.train_image(image, **kw)
    except ptmatch.Error as e:
        if "not available" in str(e):
            pytest.skip("training from an image is not in this build of the library yet")
        raise


def test_image_training_reports_point_to_grid_and_keeps_the_pattern():
    image = np.zeros((4, 4), np.uint8)
    image[:, :] = 1
    m = ptmatch.PointMatcher()
    _train_image_or_skip(m, image)
    assert m.train_mode == "point_to_grid"
    np.testing.assert_array_equal(m.pattern, image)


def test_image_with_two_set_pels_is_too_few():
    image = np.zeros((3, 3), np.uint8)
    image[0, 0] = image[2, 2] = 1
    m = ptmatch.PointMatcher()
    with pytest.raises(ptmatch.Error) as err:
        m.train_image(image)
    if "not available" in str(err.value):
        pytest.skip("training from an image is not in this build of the library yet")
    assert isinstance(err.value, ptmatch.InsufficientModelPoints)
    assert not m.is_trained


def test_image_trained_run_finds_the_moved_pattern_on_its_grid():
    image = np.zeros((4, 5), np.uint8)
    image[:, :] = 1
    image[1, 3] = 0
    m = ptmatch.PointMatcher()
    _train_image_or_skip(m, image)
    cells = np.argwhere(image)[:, ::-1].astype(float)  # (x, y) of the set pels
    data = cells + [7.0, 3.0]
    results = m.run(data, min_coverage=0.9, capture_range=1.2)
    assert results and results[0].run_mode == "point_to_grid"
    best = results[0]
    assert best.coverage == pytest.approx(1.0)
    assert best.fit_error == pytest.approx(0.0, abs=1e-12)
    np.testing.assert_allclose(best.pose, [[1, 0, 7], [0, 1, 3]], atol=1e-9)
    labels = best.grid_to_data_map
    assert labels.shape == image.shape
    assert labels[1, 3] == -1
    with pytest.raises(ptmatch.NotRun):
        best.model_to_data_map


def test_image_pels_must_be_bytes():
    m = ptmatch.PointMatcher()
    with pytest.raises(ValueError, match="0..255"):
        m.train_image(np.full((3, 3), 300))
    with pytest.raises(TypeError):
        m.train_image(np.ones((3, 3)) * 0.5)
