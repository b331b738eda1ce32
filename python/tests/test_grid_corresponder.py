"""GridCorresponder and its records."""

import numpy as np
import pytest

import ptmatch

PATTERN = [(0, 0), (1, 0), (2, 0), (0, 1), (2, 2)]


def test_new_corresponder_is_untrained_and_refuses_to_run():
    c = ptmatch.GridCorresponder()
    assert not c.is_trained
    assert c.train_params == ptmatch.GridCorresponderTrainParams()
    with pytest.raises(ptmatch.AssertionFailed, match="isTrained"):
        c.run(PATTERN)


def test_pattern_is_found_at_its_translation():
    c = ptmatch.GridCorresponder()
    c.train(PATTERN, feature_type="point")
    assert c.is_trained
    np.testing.assert_array_equal(c.pattern, [[1, 1, 1], [1, 0, 0], [0, 0, 1]])
    observed = [(x + 5, y + 3) for x, y in PATTERN] + [(0, 0), (9, 9)]
    results = c.run(observed, accept=0.9, max_results=3)
    assert isinstance(results, ptmatch.Results)
    assert len(results) == 1
    assert results[0].score == 1.0
    assert results[0].position == (5, 3)


def test_observed_image_gives_the_same_position():
    c = ptmatch.GridCorresponder()
    c.train(PATTERN, feature_type="point")
    image = np.zeros((10, 12), np.uint8)
    for x, y in PATTERN:
        image[y + 4, x + 6] = 1
    results = c.run_image(image, accept=1.0)
    assert [r.position for r in results] == [(6, 4)]


def test_training_from_an_image_keeps_the_pattern_and_its_offset():
    image = np.zeros((6, 6), np.uint8)
    image[1, 1] = image[1, 2] = image[3, 4] = image[4, 4] = 1
    c = ptmatch.GridCorresponder()
    c.train_image(image, staggered=False, feature_type=ptmatch.FeatureType.BOUNDARY)
    assert c.pattern_offset == (1, 1)
    np.testing.assert_array_equal(c.pattern, image[1:5, 1:5])
    assert c.train_params.feature_type == ptmatch.FeatureType.BOUNDARY


def test_untrain_keeps_the_pattern():
    c = ptmatch.GridCorresponder()
    c.train(PATTERN)
    c.untrain()
    assert not c.is_trained
    assert c.pattern.sum() == len(PATTERN)


def test_run_preconditions_are_assertions():
    c = ptmatch.GridCorresponder()
    c.train(PATTERN)
    with pytest.raises(ptmatch.AssertionFailed):
        c.run(PATTERN, max_results=0)
    with pytest.raises(ptmatch.AssertionFailed):
        c.run(PATTERN, accept=1.5)


def test_empty_observation_reports_nothing():
    c = ptmatch.GridCorresponder()
    c.train(PATTERN)
    assert c.run([]) == []


def test_feature_types_by_name_number_and_enum():
    assert ptmatch.GridCorresponderTrainParams(feature_type="thick_boundary").feature_type == 2
    assert ptmatch.GridCorresponderTrainParams(feature_type=0).feature_type == \
        ptmatch.FeatureType.POINT
    odd = ptmatch.GridCorresponderTrainParams(feature_type=7)
    assert int(odd.feature_type) == 7
    with pytest.raises(ValueError):
        ptmatch.GridCorresponderTrainParams(feature_type="ring")


def test_run_params_record():
    p = ptmatch.GridCorresponderRunParams(accept=0.75, confusion=0.5, max_results=4)
    assert (p.accept, p.confusion, p.max_results) == (0.75, 0.5, 4)
    default = ptmatch.GridCorresponderResult()
    assert default.score == 0.0 and default.position == (0, 0)
