#!/usr/bin/python3
"""Finds a trained point pattern among noisy, cluttered measurements with the ptmatch
Python module, maps a dot grid onto its nodes, and draws both (when matplotlib is there).

    scripts/test.sh                                   # builds build/python/ptmatch
    PYTHONPATH=build/python /usr/bin/python3 examples/python_demo.py [--picture demo.png]

Without PYTHONPATH the demo looks for the module in build/python of this checkout.
"""

import argparse
import os
import sys

import numpy as np

try:
    import ptmatch
except ImportError:
    here = os.path.dirname(os.path.abspath(__file__))
    sys.path.insert(0, os.path.join(here, "..", "build", "python"))
    import ptmatch


def pose(degrees, tx, ty, scale=1.0):
    """The 2x3 pose that rotates by degrees, scales, then translates."""
    t = np.radians(degrees)
    c, s = scale * np.cos(t), scale * np.sin(t)
    return np.array([[c, -s, tx], [s, c, ty]])


def apply(p, points):
    return np.asarray(points) @ p[:, :2].T + p[:, 2]


def make_scene(rng):
    """A model of 25 points; the data: the model moved by a known pose with 0.3 px noise,
    5 model points lost and 15 clutter points added, in random order."""
    model = rng.uniform(0.0, 100.0, size=(25, 2))
    truth = pose(23.0, 140.0, 60.0, scale=1.08)
    moved = apply(truth, model) + rng.normal(0.0, 0.3, size=model.shape)
    kept = rng.permutation(len(model))[5:]
    clutter = rng.uniform(80.0, 280.0, size=(15, 2))
    data = np.vstack([moved[kept], clutter])
    return model, truth, data[rng.permutation(len(data))]


def match_points(model, truth, data):
    matcher = ptmatch.PointMatcher()
    matcher.train(model)
    results = matcher.run(data, min_coverage=0.6, rotation=(-45, 45), scale=(-0.2, 0.2),
                          max_results=3)
    print("point matcher: %d result(s) in %.1f ms" % (len(results), 1000 * results.time))
    for r in results:
        matched = int((r.model_to_data_map >= 0).sum())
        print("  coverage %.2f (%d of %d points), fit error %.3f" %
              (r.coverage, matched, len(model), r.fit_error))
    best = results[0]
    angle = np.degrees(np.arctan2(best.pose[1, 0], best.pose[0, 0]))
    scale = np.hypot(best.pose[0, 0], best.pose[1, 0])
    print("  found: rotation %.2f deg, scale %.4f, translation (%.2f, %.2f)" %
          (angle, scale, best.pose[0, 2], best.pose[1, 2]))
    print("  truth: rotation 23.00 deg, scale 1.0800, translation (140.00, 60.00)")
    return best


def map_grid(rng):
    """A 7 x 5 dot grid of pitch 12, rotated by 4 degrees, with noise and two dots lost."""
    nodes = np.array([(i, j) for j in range(5) for i in range(7)], float)
    points = apply(pose(4.0, 20.0, 30.0, scale=12.0), nodes)
    points = np.delete(points + rng.normal(0.0, 0.4, size=points.shape), [3, 17], axis=0)
    result = ptmatch.pt_to_grid_map(points, xv=(12, 0), yv=(0, 12), snap_size=15.0)
    pitch = np.hypot(*result.grid_to_point[:, 0])
    print("grid map: %d of %d points on nodes, pitch %.3f, valid %s" %
          (result.num_assigned, len(points), pitch, result.valid))
    return points, result


def draw(path, model, data, best, grid_points, grid):
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    fig, (left, right) = plt.subplots(1, 2, figsize=(12, 5.5))
    moved = apply(best.pose, model)
    left.scatter(data[:, 0], data[:, 1], s=18, c="0.6", label="data points")
    left.scatter(moved[:, 0], moved[:, 1], s=60, facecolors="none", edgecolors="tab:red",
                 label="model under the found pose")
    for i, k in enumerate(best.model_to_data_map):
        if k >= 0:
            left.plot([moved[i, 0], data[k, 0]], [moved[i, 1], data[k, 1]], c="tab:red", lw=0.8)
    left.set_title("PointMatcher: coverage %.2f, fit error %.2f" % (best.coverage, best.fit_error))
    left.set_aspect("equal")
    left.legend(loc="upper left", fontsize=8)

    on = grid.assigned
    right.scatter(grid_points[on, 0], grid_points[on, 1], s=18, c="tab:blue")
    for (x, y), (i, j) in zip(grid_points[on], grid.map[on]):
        right.annotate("%d,%d" % (i, j), (x, y), fontsize=6, xytext=(2, 2),
                       textcoords="offset points")
    right.set_title("pt_to_grid_map: %d points on nodes" % grid.num_assigned)
    right.set_aspect("equal")
    fig.tight_layout()
    fig.savefig(path, dpi=110)
    print("picture written to %s" % path)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--picture", default="python_demo.png",
                        help="where to draw the picture (default: python_demo.png)")
    parser.add_argument("--no-picture", action="store_true", help="draw nothing")
    parser.add_argument("--seed", type=int, default=4, help="seed of the generated scene")
    args = parser.parse_args()

    rng = np.random.default_rng(args.seed)
    model, truth, data = make_scene(rng)
    best = match_points(model, truth, data)
    grid_points, grid = map_grid(rng)
    if args.no_picture:
        return
    try:
        import matplotlib  # noqa: F401
    except ImportError:
        print("matplotlib is not installed (python3-matplotlib): no picture")
        return
    draw(args.picture, model, data, best, grid_points, grid)


if __name__ == "__main__":
    main()
