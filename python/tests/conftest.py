"""Shared helpers of the ptmatch tests: generated scenes with a known pose."""

import numpy as np
import pytest


def rotation_pose(degrees, tx=0.0, ty=0.0, scale=1.0):
    """The 2x3 pose rotating by `degrees`, scaling by `scale`, then translating."""
    t = np.radians(degrees)
    c, s = np.cos(t) * scale, np.sin(t) * scale
    return np.array([[c, -s, tx], [s, c, ty]])


def apply_pose(pose, points):
    """Maps (N, 2) points through a 2x3 pose."""
    points = np.asarray(points, dtype=float)
    return points @ pose[:, :2].T + pose[:, 2]


class Scene:
    """Model points, the pose that carries them into the data, and the data: the moved
    model points (with noise) in a shuffled order followed by clutter points."""

    def __init__(self, seed, num_model=15, num_clutter=6, degrees=12.0, tx=40.0, ty=-25.0,
                 scale=1.0, noise=0.0):
        rng = np.random.default_rng(seed)
        self.model = rng.uniform(0.0, 200.0, size=(num_model, 2))
        self.pose = rotation_pose(degrees, tx, ty, scale)
        moved = apply_pose(self.pose, self.model) + rng.normal(0.0, noise, size=(num_model, 2))
        clutter = rng.uniform(-50.0, 300.0, size=(num_clutter, 2))
        self.order = rng.permutation(num_model)  # data index of model point i is where[i]
        self.data = np.vstack([moved[self.order], clutter])
        self.where = np.argsort(self.order)


@pytest.fixture
def scene():
    return Scene(seed=7)
