"""robust_grid_map: dot boards under perspective, with clutter and noise, one point per node,
the clutter left without a node, and failures that say why."""

import numpy as np
import pytest

import ptmatch


def board(columns=10, rows=8, pitch=20.0, degrees=0.0, tilt=0.0, noise=0.0, clutter=0,
          seed=1):
    """Dot centres of a board, their true nodes, and clutter points (true node None) at the
    centres of cells, where no dot is. `tilt` bends the board by a perspective weight."""
    rng = np.random.default_rng(seed)
    a = np.radians(degrees)
    rot = np.array([[np.cos(a), -np.sin(a)], [np.sin(a), np.cos(a)]])
    def place(u, v):
        w = 1.0 + tilt * u / columns
        return rot @ (np.array([u, v]) * pitch / w) + np.array([300.0, 200.0])
    points, truth = [], []
    for v in range(rows):
        for u in range(columns):
            points.append(place(u, v) + rng.normal(0.0, noise, 2))
            truth.append((u, v))
    cells = [(u + 0.5, v + 0.5) for v in range(rows - 1) for u in range(columns - 1)]
    for k in rng.choice(len(cells), clutter, replace=False):
        points.append(place(*cells[k]))
        truth.append(None)
    return np.array(points), truth


def test_clean_board_gets_its_nodes_from_zero():
    points, truth = board(degrees=7.0)
    r = ptmatch.robust_grid_map(points, xv=(20, 0), yv=(0, 20))
    assert r.valid and r.reason == "ok" and r.failure == "none"
    assert r.num_assigned == 80 and r.num_unassigned == 0
    assert r.map.tolist() == [list(t) for t in truth]
    assert r.assigned.all()
    np.testing.assert_allclose(r.residuals, 0.0, atol=1e-6)
    # The homography maps node (9, 7) onto its dot.
    h = r.homography_matrix
    assert h.shape == (3, 3) and h[2, 2] == 1.0
    x = h @ np.array([9.0, 7.0, 1.0])
    np.testing.assert_allclose(x[:2] / x[2], points[79], atol=1e-6)
    np.testing.assert_allclose(r.homography.a2b((9.0, 7.0)), points[79], atol=1e-6)
    np.testing.assert_allclose(np.linalg.norm(r.xv), 20.0, atol=1e-6)
    assert r.time >= 0.0


def test_clutter_gets_no_node_where_the_plain_mapping_gives_it_one():
    points, truth = board(noise=0.3, clutter=15, seed=3)
    plain = ptmatch.pt_to_grid_map(points, xv=(20, 0), yv=(0, 20), snap_size=18.0)
    robust = ptmatch.robust_grid_map(points, xv=(20, 0), yv=(0, 20))
    clutter = np.array([t is None for t in truth])
    assert plain.assigned[clutter].any()
    assert robust.valid
    assert not robust.assigned[clutter].any()
    assert robust.assigned[~clutter].all()
    assert (robust.residuals[clutter] == -1.0).all()
    nodes = robust.map[robust.assigned]
    assert len({tuple(n) for n in nodes.tolist()}) == len(nodes)


def test_perspective_and_noise_without_vectors():
    points, truth = board(columns=12, rows=9, degrees=-25.0, tilt=0.4, noise=0.5, seed=4)
    r = ptmatch.robust_grid_map(points)
    assert r.valid, r.reason
    got = r.map
    want = np.array(truth)
    shift = got[0] - want[0]
    assert (got - want == shift).all()
    assert 0.3 < r.sigma < 0.8


def test_params_record_and_staggered():
    p = ptmatch.RobustGridMapParams(xv=(10, 0), yv=(0, 10), staggered=True, reject_sigmas=3.0,
                                    min_nodes=9)
    assert p.staggered and p.reject_sigmas == 3.0 and p.min_nodes == 9
    assert p.xv.tolist() == [10.0, 0.0]
    p.set_vectors(None, None)
    assert p.xv.tolist() == [0.0, 0.0]
    assert "RobustGridMapParams" in repr(p)
    pts = np.array([(10.0 * u, 10.0 * v) for v in range(7) for u in range(9) if (u + v) % 2 == 0])
    r = ptmatch.robust_grid_map(pts, ptmatch.RobustGridMapParams(xv=(10, 0), yv=(0, 10),
                                                                  staggered=True))
    assert r.valid, r.reason
    assert ((r.map.sum(axis=1) % 2) == 0).all()
    assert r.num_assigned == len(pts)


def test_bad_arguments_raise():
    with pytest.raises(ptmatch.RobustGridBadInput):
        ptmatch.RobustGridMapParams(xv=(1, 0))
    with pytest.raises(ptmatch.RobustGridBadInput):
        ptmatch.RobustGridMapParams(xv=(1, 0), yv=(2, 0))
    with pytest.raises(ValueError):
        ptmatch.RobustGridMapParams(reject_sigmas=0.0)
    with pytest.raises(ptmatch.RobustGridBadInput):
        ptmatch.RobustGridMapParams(min_nodes=3)
    points, _ = board()
    points[3, 0] = np.nan
    with pytest.raises(ptmatch.RobustGridBadInput):
        ptmatch.robust_grid_map(points)


def test_failure_says_why():
    r = ptmatch.robust_grid_map([(0, 0), (1, 0), (0, 1)])
    assert not r.valid
    assert r.failure == "too_few_points"
    assert r.reason != "ok"
    assert (r.map == ptmatch.RobustGridMapResult.UNASSIGNED).all()
    assert ptmatch.RobustGridMapResult().reason == "not run"
