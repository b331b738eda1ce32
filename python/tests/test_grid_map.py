"""pt_to_grid_map, GridMapParams and GridMapResult."""

import numpy as np

import ptmatch
from conftest import apply_pose, rotation_pose


def grid_points(columns, rows, pitch, degrees, origin):
    nodes = np.array([(i, j) for j in range(rows) for i in range(columns)], float)
    return nodes, apply_pose(rotation_pose(degrees, *origin), nodes * pitch)


def test_regular_grid_is_mapped_and_fitted():
    nodes, points = grid_points(5, 4, 10.0, 5.0, (30.0, 40.0))
    r = ptmatch.pt_to_grid_map(points, xv=(10, 0), yv=(0, 10), snap_size=12.5)
    assert r.valid
    assert r.num_assigned == 20 and r.assigned.all()
    assert r.map.shape == (20, 2) and r.map.dtype == np.int64
    # The node origin depends on the seed, so compare node differences and the fit.
    np.testing.assert_array_equal(r.map - r.map[0], nodes - nodes[0])
    homogeneous = np.hstack([r.map, np.ones((20, 1))])
    np.testing.assert_allclose(homogeneous @ r.grid_to_point.T, points, atol=1e-9)
    # The grid vectors of the fit are the pitch vectors rotated by 5 degrees.
    np.testing.assert_allclose(r.grid_to_point[:, :2], rotation_pose(5.0, scale=10.0)[:, :2],
                               atol=1e-9)
    assert r.time >= 0.0


def test_params_object_gives_the_same_mapping():
    _, points = grid_points(4, 4, 8.0, -3.0, (0.0, 0.0))
    params = ptmatch.GridMapParams(xv=(8, 0), yv=(0, 8), snap_size=10.0)
    a = ptmatch.pt_to_grid_map(points, params)
    b = ptmatch.pt_to_grid_map(points, xv=(8, 0), yv=(0, 8), snap_size=10.0)
    np.testing.assert_array_equal(a.map, b.map)
    np.testing.assert_array_equal(a.grid_to_point, b.grid_to_point)


def test_default_snap_size_finds_no_neighbours():
    _, points = grid_points(4, 4, 10.0, 0.0, (0.0, 0.0))
    r = ptmatch.pt_to_grid_map(points, xv=(10, 0), yv=(0, 10))
    assert not r.valid
    assert r.num_assigned == 0


def test_default_params_and_result():
    p = ptmatch.GridMapParams()
    np.testing.assert_array_equal(p.xv, [0, 0])
    assert not p.staggered and p.snap_size == 0.0
    assert p.size_tol is None and p.angle_tol is None
    r = ptmatch.GridMapResult()
    assert not r.valid and r.time == 0.0 and r.map.shape == (0, 2)
    assert ptmatch.GridMapResult.UNASSIGNED == 2147483647


def test_params_setters_store_without_validation():
    p = ptmatch.GridMapParams()
    p.xv = (3, 1)
    p.staggered = True
    p.snap_size = -1.0
    p.size_tol = (0.9, 1.1)
    p.angle_tol = "full"
    np.testing.assert_array_equal(p.xv, [3, 1])
    assert p.staggered and p.snap_size == -1.0
    assert p.size_tol == (0.9, 1.1) and p.angle_tol == "full"
