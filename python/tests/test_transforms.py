"""PtMatchTm2, PerspectiveTm2 and PtMatchTm3."""

import copy
import math

import numpy as np
import pytest

import ptmatch
from conftest import apply_pose

AFFINE = np.array([[2.0, 0.5, 3.0], [-0.25, 1.5, -4.0]])
SQUARE = np.array([(0, 0), (10, 0), (10, 10), (0, 10), (5, 3)], float)


def test_pt_match_tm2_fits_an_affine_transform_and_keeps_its_inverse():
    tm = ptmatch.PtMatchTm2(SQUARE, apply_pose(AFFINE, SQUARE), 6)
    np.testing.assert_allclose(tm.a2b_xform, AFFINE, atol=1e-12)
    inverse = np.linalg.inv(np.vstack([AFFINE, [0, 0, 1]]))[:2]
    np.testing.assert_allclose(tm.b2a_xform, inverse, atol=1e-12)
    np.testing.assert_allclose(tm.a2b((1, 2)), apply_pose(AFFINE, [(1, 2)])[0])
    np.testing.assert_allclose(tm.b2a(tm.a2b(SQUARE)), SQUARE, atol=1e-12)


def test_pt_match_tm2_from_a_pose_and_identity():
    assert ptmatch.PtMatchTm2() == [[1, 0, 0], [0, 1, 0]]
    tm = ptmatch.PtMatchTm2(AFFINE)
    assert tm == AFFINE
    assert tm == ptmatch.PtMatchTm2(a2b=AFFINE)
    tm.identity()
    assert tm == ptmatch.PtMatchTm2()


def test_pt_match_tm2_similarity_fit_of_incremental_pairs():
    tm = ptmatch.PtMatchTm2()
    b = apply_pose(np.array([[0.0, -2.0, 13.0], [2.0, 0.0, 8.0]]), SQUARE)
    for p, q in zip(SQUARE, b):
        tm.update(p, q)
    tm.fit(4)
    np.testing.assert_allclose(tm.a2b_xform, [[0, -2, 13], [2, 0, 8]], atol=1e-12)


def test_pt_match_tm2_edits():
    tm = ptmatch.PtMatchTm2()
    tm.translate((1, 2))
    np.testing.assert_allclose(tm.a2b((0, 0)), (1, 2))
    tm.identity()
    tm.rotate(math.pi / 2)
    np.testing.assert_allclose(tm.a2b((1, 0)), (0, 1), atol=1e-15)
    assert tm.a2b_angle(0.0) == pytest.approx(math.pi / 2)
    assert tm.b2a_angle(math.pi / 2) == pytest.approx(0.0)
    tm.identity()
    tm.scale(3)
    np.testing.assert_allclose(tm.a2b((1, 1)), (3, 3))
    tm.scale((1, 2))
    np.testing.assert_allclose(tm.a2b((1, 1)), (3, 6))
    shift = ptmatch.PtMatchTm2([[1, 0, 5], [0, 1, 0]])
    double = ptmatch.PtMatchTm2([[2, 0, 0], [0, 2, 0]])
    a = ptmatch.PtMatchTm2()
    a.append(double)
    a.concat(shift)  # shift first, then double
    np.testing.assert_allclose(a.a2b((0, 0)), (10, 0))


def test_pt_match_tm2_copy_keeps_the_pairs_but_a_pickle_does_not():
    import pickle
    tm = ptmatch.PtMatchTm2()
    tm.update(SQUARE, apply_pose(AFFINE, SQUARE))
    copied = copy.copy(tm)
    copied.fit(6)
    np.testing.assert_allclose(copied.a2b_xform, AFFINE, atol=1e-12)
    unpickled = pickle.loads(pickle.dumps(tm))
    with pytest.raises(ptmatch.FitError):
        unpickled.fit(6)  # no pairs came along


def test_perspective_tm2_fits_a_homography():
    h = np.array([[1.2, 0.1, 5.0], [-0.05, 0.9, 2.0], [0.001, 0.002, 1.0]])
    a = np.array([(x, y) for x in range(0, 50, 10) for y in range(0, 50, 10)], float)
    w = a @ h[2, :2] + 1.0
    b = np.stack([(a @ h[0, :2] + h[0, 2]) / w, (a @ h[1, :2] + h[1, 2]) / w], axis=1)
    tm = ptmatch.PerspectiveTm2(a, b)
    np.testing.assert_allclose(tm.a2b(a), b, atol=1e-6)
    np.testing.assert_allclose(tm.b2a(b), a, atol=1e-4)
    assert tm.a2b_xform.shape == (2, 3)
    assert isinstance(tm.a2b_tm, ptmatch.PtMatchTm2)


def test_perspective_tm2_from_an_affine_transform():
    tm = ptmatch.PerspectiveTm2(ptmatch.PtMatchTm2(AFFINE))
    np.testing.assert_allclose(tm.a2b(SQUARE), apply_pose(AFFINE, SQUARE), atol=1e-9)
    tm.identity()
    np.testing.assert_allclose(tm.a2b((3, 4)), (3, 4))


def test_pt_match_tm3_fits_a_3d_affine_transform():
    m = np.array([[1.0, 0.2, 0.0, 4.0], [0.0, 2.0, 0.1, -1.0], [0.3, 0.0, 0.5, 2.0]])
    a = np.array([(x, y, z) for x in (0, 1, 3) for y in (0, 2) for z in (0, 1, 5)], float)
    b = a @ m[:, :3].T + m[:, 3]
    tm = ptmatch.PtMatchTm3()
    tm.fit(a, b)
    np.testing.assert_allclose(tm.a2b_matrix, m, atol=1e-9)
    np.testing.assert_allclose(tm.b2a(tm.a2b(a)), a, atol=1e-9)
    np.testing.assert_allclose(tm.a2b((1, 1, 1)), m[:, :3].sum(axis=1) + m[:, 3], atol=1e-9)


def test_pt_match_tm3_constructor_with_points_is_the_identity():
    a = np.eye(3)
    tm = ptmatch.PtMatchTm3(a, 2 * a)
    np.testing.assert_allclose(tm.a2b_matrix, np.hstack([np.eye(3), np.zeros((3, 1))]))


def test_pt_match_tm3_rotations_keep_the_translation():
    tm = ptmatch.PtMatchTm3()
    tm.translate((1, 2, 3))
    tm.rotate_on_z(math.pi / 2)
    np.testing.assert_allclose(tm.a2b((0, 0, 0)), (1, 2, 3), atol=1e-12)
    np.testing.assert_allclose(tm.a2b((1, 0, 0)) - tm.a2b((0, 0, 0)), (0, 1, 0), atol=1e-12)
    tm.scale(2)
    np.testing.assert_allclose(tm.a2b((1, 0, 0)) - tm.a2b((0, 0, 0)), (0, 2, 0), atol=1e-12)


def test_pt_match_tm3_without_pairs_is_singular():
    with pytest.raises(ptmatch.SingularMatrix):
        ptmatch.PtMatchTm3().fit()
