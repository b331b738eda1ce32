"""Every result and parameter record shows its key fields in its repr."""

import re

import numpy as np

import ptmatch


def fields(text):
    """The field names of a repr 'Name(a=..., b=...)'."""
    return re.findall(r"(\w+)=", text)


def test_run_params_repr_shows_every_field():
    p = ptmatch.RunParams(min_coverage=0.7, start_pose=[[1, 0, 3], [0, 1, 4]],
                          rotation=(-20, 20), grid_size=2.5, max_results=3)
    text = repr(p)
    assert text.startswith("RunParams(")
    assert fields(text) == ["min_coverage", "start_pose", "x_range", "y_range", "rotation",
                            "scale", "grid_size", "capture_range", "max_results"]
    assert "min_coverage=0.7" in text and "grid_size=2.5" in text and "max_results=3" in text
    assert "start_pose=[[1.0, 0.0, 3.0], [0.0, 1.0, 4.0]]" in text
    assert "capture_range=None" in text and "x_range='full'" in text


def test_point_matcher_result_and_results_reprs():
    m = ptmatch.PointMatcher()
    assert repr(m) == "PointMatcher(untrained)"
    m.train([(0, 0), (10, 0), (0, 7), (3, 9)])
    assert repr(m) == "PointMatcher(point_to_point)"
    results = m.run([(5, 5), (15, 5), (5, 12), (8, 14)], min_coverage=0.9)
    text = repr(results[0])
    assert fields(text) == ["run_mode", "coverage", "fit_error", "pose"]
    assert "coverage=1.0" in text and "run_mode='point_to_point'" in text
    assert repr(results).startswith("Results([PointMatcherResult(") and "time=" in repr(results)


def test_grid_map_reprs():
    p = ptmatch.GridMapParams(xv=(12, 0), yv=(0, 12), snap_size=11, staggered=True)
    assert fields(repr(p)) == ["xv", "yv", "staggered", "snap_size", "size_tol", "angle_tol"]
    assert "xv=(12.0, 0.0)" in repr(p) and "snap_size=11.0" in repr(p)
    dots = [(12 * i, 12 * j) for j in range(3) for i in range(3)]
    r = ptmatch.pt_to_grid_map(dots, xv=(12, 0), yv=(0, 12), snap_size=11)
    assert fields(repr(r)) == ["valid", "num_assigned", "grid_to_point"]
    assert "valid=True" in repr(r) and "num_assigned=9" in repr(r)


def test_grid_corresponder_reprs():
    t = ptmatch.GridCorresponderTrainParams(staggered=True, feature_type="point")
    assert fields(repr(t)) == ["staggered", "feature_type"] and "POINT" in repr(t)
    r = ptmatch.GridCorresponderRunParams(accept=0.8, max_results=4)
    assert fields(repr(r)) == ["accept", "confusion", "max_results"]
    assert "accept=0.8" in repr(r) and "max_results=4" in repr(r)
    c = ptmatch.GridCorresponder()
    c.train([(0, 0), (1, 0), (2, 0), (0, 1), (2, 2)])
    found = c.run([(10, 5), (11, 5), (12, 5), (10, 6), (12, 7)], accept=0.9)
    assert fields(repr(found[0])) == ["score", "position"]
    assert "position=(10, 5)" in repr(found[0])


def test_transform_and_store_reprs_show_their_state():
    tm = ptmatch.PtMatchTm2([(0, 0), (10, 0), (0, 10)], [(5, 5), (15, 5), (5, 15)], dof=4)
    assert repr(tm).startswith("PtMatchTm2(a2b=[[") and "5.0" in repr(tm)
    s = ptmatch.ScoreHashing(max_score=10, max_results=3)
    s.add(4, (1, 1))
    assert repr(s) == "ScoreHashing(max_score=10, max_results=3, num_results=1)"
    assert repr(ptmatch.PseudoInverse(3)) == "PseudoInverse(num_params=3)"
    assert np.allclose(eval(repr(ptmatch.MatrixExt([[1.0, 2.0]])).replace(
        "MatrixExt", "np.array")), [[1.0, 2.0]])
