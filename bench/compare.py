#!/usr/bin/python3
"""Side-by-side comparison of ptmatch with the tools a user would pick instead.

On the same seeded scenarios (made by the ptmatch_scenarios program, see
bench/scenarios/scenarios.h), in one run:

  point families  ptmatch.match, the planned search, and ptmatch.match(exact=True), the
                  written run, each on one thread and on the machine's cores (given
                  the ranges each scenario declares), against astroalign.find_transform
                  (which always searches every rotation, scale and translation, and
                  takes no ranges); see bench/compare_points.py;
  grid families   ptmatch's pt_to_grid_map (mfPtToGridMap) and robust_grid_map
                  (mfRobustGridMap) against OpenCV's findCirclesGrid, fed the dot centres
                  directly (no blob detection), in both of its modes (the default and
                  CALIB_CB_CLUSTERING).

Success:
  point case   every instance of the model is found within 1 px RMS (bench/compare_points.py).
  grid case    every dot of the grid comes back at its true node, up to one relabelling
               of the whole grid (a shift of the indices and a turn or mirror of the
               lattice, since both tools choose their own origin). For findCirclesGrid,
               which reports the nodes of the complete pattern in order, each reported
               centre must be its node's dot (nearest input point, within 0.25 pitch);
               with a dot missing it cannot succeed. Strictly, a clutter point given a
               node also makes a case fail; pt_to_grid_map assigns clutter points near
               a node (its snapping test accepts any point within the snap size), so the
               report shows its lenient count beside the strict one.

Time: CPU seconds of this process spent in the call from Python (every library is held to
one thread, so that is the call's own work, however busy the machine is with other
things), the fastest of up to three repeats (repeats stop once 0.2 s are spent); the table
shows each family's median over its cases. ptmatch's calls on the machine's cores are
timed by the wall clock instead. Ratios are the headline: absolute times depend on the
machine.

Usage:
  /usr/bin/python3 bench/compare.py --build BUILD [--count N] [--seed S]
      [--families a,b] [--out docs/performance.md] [--raw FILE]
      [--vote-json FILE] [--sweep-json FILE] [--sweep-plot docs/FILE]
      [--growth-plot docs/FILE]

ptmatch is used through its Python module (BUILD/python) or, when that is not built,
through the command-line tool BUILD/tools/ptmatch with --json (then its reported library
time is used instead of the wall clock, which would count the process start).

The Python module is used through ptmatch.match and ptmatch.set_num_threads; the tool
through `ptmatch match` with --exact and --threads.
"""

import os

# One thread everywhere (numpy's BLAS, OpenCV), so that the process's CPU time is the
# call's own work. Set before numpy is imported.
for _variable in ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "MKL_NUM_THREADS"):
    os.environ.setdefault(_variable, "1")

import argparse
import datetime
import json
import math
import platform
import subprocess
import sys
import tempfile
import time

import numpy as np

import compare_points
from compare_common import by_family, fmt_ratio, median, ms, ratio, timed

GRID_MATCH_PITCH = 0.25       # a reported grid centre must lie this near its dot

# The eight turns and mirrors of a square lattice, as integer matrices on (column, row).
LATTICE_SYMMETRIES = [np.array(m) for m in (
    [[1, 0], [0, 1]], [[0, -1], [1, 0]], [[-1, 0], [0, -1]], [[0, 1], [-1, 0]],
    [[-1, 0], [0, 1]], [[1, 0], [0, -1]], [[0, 1], [1, 0]], [[0, -1], [-1, 0]])]


# --- ptmatch, through the module or the command-line tool ---

class PtmatchModule:
    """ptmatch through its Python module."""

    name = "python module"

    def __init__(self, module):
        self.ptmatch = module

    def match(self, s, exact, threads):
        """The poses ptmatch.match finds in scenario s on `threads` threads (or the
        exception it raised) and the call's seconds."""
        model = np.asarray(s["model"])
        data = np.asarray(s["data"])
        takes_start_pose = "start_pose" in (self.ptmatch.match.__doc__ or "")
        kwargs = compare_points.match_arguments(s["ranges"], takes_start_pose)
        clock = time.process_time if threads == 1 else time.perf_counter
        self.ptmatch.set_num_threads(threads)
        try:
            results, seconds = timed(lambda: self.ptmatch.match(
                model, data, exact=exact, timeout=compare_points.MATCH_TIMEOUT_S, **kwargs),
                clock)
        finally:
            self.ptmatch.set_num_threads(0)
        if isinstance(results, Exception):
            return results, seconds
        return [np.asarray(r.pose) for r in results], seconds

    def grid(self, g, snap):
        points = np.asarray(g["points"])

        r, seconds = timed(lambda: self.ptmatch.pt_to_grid_map(
            points, xv=tuple(g["xv"]), yv=tuple(g["yv"]), staggered=g["staggered"],
            snap_size=snap))
        if isinstance(r, Exception) or not r.valid:
            return None, seconds
        nodes = np.asarray(r.map).tolist()
        return [tuple(n) if ok else None for n, ok in zip(nodes, r.assigned)], seconds

    def robust_grid(self, g):
        points = np.asarray(g["points"])

        r, seconds = timed(lambda: self.ptmatch.robust_grid_map(
            points, xv=tuple(g["xv"]), yv=tuple(g["yv"]), staggered=g["staggered"]))
        if isinstance(r, Exception) or not r.valid:
            return None, seconds
        nodes = np.asarray(r.map).tolist()
        return [tuple(n) if ok else None for n, ok in zip(nodes, r.assigned)], seconds


class PtmatchCli:
    """ptmatch through the command-line tool's --json output; times are the library's."""

    name = "command-line tool"

    def __init__(self, program):
        self.program = program
        self.scratch = tempfile.mkdtemp(prefix="ptmatch-compare-")

    def _write(self, name, points):
        path = os.path.join(self.scratch, name)
        with open(path, "w") as f:
            for x, y in points:
                f.write("%.17g %.17g\n" % (x, y))
        return path

    def _run(self, args, timeout=None):
        out = subprocess.run([self.program] + args + ["--json"], capture_output=True, text=True,
                             timeout=timeout)
        return json.loads(out.stdout) if out.stdout.strip() else None

    def match(self, s, exact, threads):
        """As PtmatchModule.match, through `ptmatch match --json`; the time is the one the
        tool reports (the whole search)."""
        limit = compare_points.MATCH_TIMEOUT_S
        args = ["match", "--model", self._write("model.txt", s["model"]),
                "--data", self._write("data.txt", s["data"]), "--threads", str(threads),
                "--time-limit", repr(limit)] + compare_points.cli_arguments(s["ranges"])
        if exact:
            args.append("--exact")
        try:
            report = self._run(args, timeout=limit + 30.0)
        except subprocess.TimeoutExpired:
            report = None
        if not report or report.get("error"):
            message = (report or {}).get("error", "no report")
            error = TimeoutError(message) if "time" in str(message).lower() else RuntimeError(
                message)
            return error, limit
        poses = [np.array([[p["a00"], p["a01"], p["tx"]], [p["a10"], p["a11"], p["ty"]]])
                 for p in (r["pose"] for r in report.get("results", []))]
        return poses, report["time"]

    def grid(self, g, snap):
        return self._grid(g, ["--plain", "--snap", repr(snap)])

    def robust_grid(self, g):
        return self._grid(g, [])

    def _grid(self, g, extra):
        args = ["grid", "--points", self._write("grid.txt", g["points"]),
                "--xv", "%r,%r" % tuple(g["xv"]), "--yv", "%r,%r" % tuple(g["yv"])] + extra
        if g["staggered"]:
            args.append("--staggered")
        report = self._run(args)
        if not report or not report.get("valid"):
            return None, (report or {}).get("time", math.nan)
        return [tuple(n) if n is not None else None for n in report["map"]], report["time"]


def load_ptmatch(build):
    sys.path.insert(0, os.path.join(build, "python"))
    try:
        import ptmatch  # noqa: E402
        return PtmatchModule(ptmatch)
    except ImportError:
        program = os.path.join(build, "tools", "ptmatch")
        if os.access(program, os.X_OK):
            return PtmatchCli(program)
    sys.exit("compare.py: neither the ptmatch Python module (%s/python) nor the tool "
             "(%s) is built" % (build, program))


# --- the other tools ---

def opencv_grid(cv2, g, clustering):
    points = np.asarray(g["points"], dtype=np.float32).reshape(-1, 1, 2)
    flags = cv2.CALIB_CB_ASYMMETRIC_GRID if g["staggered"] else cv2.CALIB_CB_SYMMETRIC_GRID
    if clustering:
        flags |= cv2.CALIB_CB_CLUSTERING
    parameters = cv2.CirclesGridFinderParameters()
    size = (g["columns"], g["rows"])

    # No blob detector: the points themselves are the candidate centres.
    (found, centres), seconds = timed(
        lambda: cv2.findCirclesGrid(points, size, flags, None, parameters))
    return (centres.reshape(-1, 2) if found and centres is not None else None), seconds


# --- success ---

def consistent_relabelling(pairs):
    """True when one lattice turn or mirror plus one shift carries every true node of the
    (true, found) pairs to its found node."""
    if not pairs:
        return False
    true = np.array([p[0] for p in pairs])
    found = np.array([p[1] for p in pairs])
    for m in LATTICE_SYMMETRIES:
        shift = found - true @ m.T
        if (shift == shift[0]).all():
            return True
    return False


def ptmatch_grid_success(g, labels):
    """Every dot assigned, all at their true nodes under one relabelling; also returns the
    number of clutter points that were given a node."""
    if labels is None or isinstance(labels, Exception):
        return False, 0
    pairs = []
    clutter = 0
    for true, found in zip(g["nodes"], labels):
        if true is None:
            clutter += found is not None
        elif found is None:
            return False, clutter
        else:
            pairs.append((true, found))
    return consistent_relabelling(pairs), clutter


def opencv_pattern_nodes(g):
    """OpenCV's node of each reported centre, in its order, on our lattice."""
    nodes = []
    for k in range(g["columns"] * g["rows"]):
        i, j = k % g["columns"], k // g["columns"]
        nodes.append((2 * i + j % 2, j) if g["staggered"] else (i, j))
    return nodes


def opencv_grid_success(g, centres):
    if centres is None or isinstance(centres, Exception):
        return False
    points = np.asarray(g["points"], dtype=float)
    dots = sum(n is not None for n in g["nodes"])
    if len(centres) != g["columns"] * g["rows"] or dots != len(centres):
        return False
    pairs = []
    for centre, label in zip(centres, opencv_pattern_nodes(g)):
        d = np.sqrt(((points - centre) ** 2).sum(axis=1))
        j = int(np.argmin(d))
        if d[j] > GRID_MATCH_PITCH * g["pitch"] or g["nodes"][j] is None:
            return False
        pairs.append((tuple(g["nodes"][j]), label))
    return consistent_relabelling(pairs)


# --- the runs ---

def snap_size(g):
    """0.9 of the pitch of the grid the mapping links along: the diagonal xv + yv for a
    staggered grid, the longer pitch otherwise (see include/ptmatch/ptgdmap.h)."""
    xv, yv = np.asarray(g["xv"]), np.asarray(g["yv"])
    pitch = np.linalg.norm(xv + yv) if g["staggered"] else max(np.linalg.norm(xv),
                                                               np.linalg.norm(yv))
    return 0.9 * float(pitch)


def run_grids(cases, ours, cv2, log):
    rows = []
    for g in cases:
        labels, t_ours = ours.grid(g, snap_size(g))
        ok_ours, clutter_assigned = ptmatch_grid_success(g, labels)
        labels, t_robust = ours.robust_grid(g)
        ok_robust, robust_clutter = ptmatch_grid_success(g, labels)
        row = dict(family=g["family"], index=g["index"], points=len(g["points"]),
                   staggered=g["staggered"], ours_ok=ok_ours, ours_s=t_ours,
                   clutter_assigned=clutter_assigned,
                   ours_strict=ok_ours and clutter_assigned == 0,
                   robust_ok=ok_robust and robust_clutter == 0, robust_s=t_robust,
                   robust_clutter=robust_clutter)
        if cv2 is not None:
            for mode, clustering in (("default", False), ("clustering", True)):
                centres, t = opencv_grid(cv2, g, clustering)
                row["cv_%s_ok" % mode] = opencv_grid_success(g, centres)
                row["cv_%s_s" % mode] = t
        rows.append(row)
        log("%-24s %2d  N=%4d %s  plain %s %7.3f ms  robust %s %7.3f ms  findCirclesGrid %s "
            "%7.3f ms / clustering %s %7.3f ms" % (
                g["family"], g["index"], row["points"], "stag" if g["staggered"] else "sym ",
                "ok  " if row["ours_strict"] else "FAIL", 1e3 * t_ours,
                "ok  " if row["robust_ok"] else "FAIL", 1e3 * t_robust,
                "ok  " if row.get("cv_default_ok") else "FAIL",
                1e3 * row.get("cv_default_s", math.nan),
                "ok  " if row.get("cv_clustering_ok") else "FAIL",
                1e3 * row.get("cv_clustering_s", math.nan)))
    return rows


# --- the report ---

def grid_table(rows):
    """Strict success (every dot at its true node under one relabelling and no clutter
    point on any node) of the plain mapper, the robust mapper and findCirclesGrid, and
    the median times."""
    lines = ["| family | cases | plain strict (lenient) | robust strict | findCirclesGrid "
             "(default / clustering) | plain median ms | robust median ms | findCirclesGrid "
             "median ms of its successes (default / clustering) | robust / plain time | "
             "clutter given a node (plain / robust) | goal |",
             "|---|---|---|---|---|---|---|---|---|---|---|"]
    verdicts = []
    for family, fam in by_family(rows).items():
        n = len(fam)
        plain = sum(r["ours_strict"] for r in fam)
        lenient = sum(r["ours_ok"] for r in fam)
        robust = sum(r["robust_ok"] for r in fam)
        t_plain = median([r["ours_s"] for r in fam])
        t_robust = median([r["robust_s"] for r in fam])
        successes, times = [], []
        for mode in ("default", "clustering"):
            successes.append(sum(bool(r.get("cv_%s_ok" % mode)) for r in fam))
            # A failed call may be a quick refusal (fewer points than the pattern has), so
            # only the calls that found the grid are timed.
            times.append(median([r["cv_%s_s" % mode] for r in fam if r.get("cv_%s_ok" % mode)]))
        # Goals: strict success >= 9/10 and never behind findCirclesGrid; within 3x of the
        # plain mapper's time; faster than findCirclesGrid's points mode where it succeeds
        # and no slower than its clustering mode where that succeeds.
        rr = ratio(t_robust, t_plain)
        faster = all(t != t or t_robust <= t for t in times)
        met = 10 * robust >= 9 * n and robust >= max(successes) and rr <= 3.0 and faster
        verdicts.append((family, met))
        lines.append("| %s | %d | %d/%d (%d/%d) | %d/%d | %d/%d / %d/%d | %s | %s | %s / %s | "
                     "%s | %d / %d | %s |" % (
                         family, n, plain, n, lenient, n, robust, n, successes[0], n,
                         successes[1], n, ms(t_plain), ms(t_robust), ms(times[0]), ms(times[1]),
                         fmt_ratio(rr), sum(r["clutter_assigned"] for r in fam),
                         sum(r["robust_clutter"] for r in fam), "met" if met else "**not met**"))
    return lines, verdicts


def machine_lines(build, ours):
    cpu = platform.processor() or "unknown"
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    cpu = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    compiler = "unknown"
    try:
        with open(os.path.join(build, "CMakeCache.txt")) as f:
            for line in f:
                if line.startswith("CMAKE_CXX_COMPILER:"):
                    path = line.split("=", 1)[1].strip()
                    compiler = subprocess.run([path, "--version"], capture_output=True,
                                              text=True).stdout.splitlines()[0]
    except (OSError, IndexError):
        pass
    versions = ["numpy %s" % np.__version__]
    for name in ("astroalign", "cv2"):
        try:
            module = __import__(name)
            versions.append("%s %s" % ("OpenCV" if name == "cv2" else name,
                                       getattr(module, "__version__", "?")))
        except ImportError:
            versions.append("%s not installed" % name)
    return ["- CPU: %s, %d logical cores (shared with other work; every tool ran in the "
            "same process, one after the other, case by case)" % (cpu, os.cpu_count() or 0),
            "- System: %s %s, Python %s" % (platform.system(), platform.release(),
                                            platform.python_version()),
            "- ptmatch: Release build with %s, used through its %s" % (compiler, ours.name),
            "- Others: %s" % ", ".join(versions),
            "- Date: %s" % datetime.date.today().isoformat()]


def vote_section(path):
    lines = ["## The voting step against its least work", ""]
    if not path or not os.path.exists(path):
        return lines + ["Not measured in this run (bench/vote_bench was not run).", ""]
    with open(path) as f:
        report = json.load(f)
    runs = {b["name"]: b for b in report.get("benchmarks", []) if b.get("run_type") != "aggregate"}
    lines += [
        "`bench/vote_bench` runs 16 lattice steps of a scene's search through the search's "
        "Voter (projection, clearing, voting and peak collection into a coarse store, all "
        "included), on the occupancy raster and translation window the search builds for "
        "realistic scenes; in the same run a plain loop does the least work those steps need: "
        "one 16-bit increment per vote, at its precomputed place, in the order the votes are "
        "cast, into an accumulator of the same size. One vote is one model point meeting one "
        "occupied cell inside its translation window. The voting step adds a 3 x 3 block of "
        "occupied cells around an isolated data point as one vote at its centre plus a box "
        "sum, or a run of up to 4 cells as one 4-lane addition, so it can need fewer memory "
        "operations than votes. Times are CPU times; the goal is a time ratio of at most 2.",
        "", "| scene | votes per 16 steps | accumulator cells | votes/s, voting step | "
        "votes/s, plain loop | time, voting step / plain loop | time, reference vote / plain "
        "loop |", "|---|---|---|---|---|---|---|"]
    worst = 0.0
    for name, b in runs.items():
        if not name.startswith("BM_VoteStep/"):
            continue
        scene = name.split("/", 1)[1]
        plain = runs.get("BM_PlainIncrements/" + scene, {})
        reference = runs.get("BM_VoteStepReference/" + scene, {})
        step_ratio = ratio(b.get("cpu_time", math.nan), plain.get("cpu_time", math.nan))
        worst = max(worst, step_ratio) if step_ratio == step_ratio else worst
        lines.append("| %s | %d | %d | %.3g | %.3g | %.2f | %.2f |" % (
            b.get("label") or scene, int(b.get("votes", 0)), int(b.get("cells", 0)),
            b.get("votes_per_second", math.nan), plain.get("votes_per_second", math.nan),
            step_ratio, ratio(reference.get("cpu_time", math.nan),
                              plain.get("cpu_time", math.nan))))
    lines += ["", "Goal (voting step within 2x of the plain loop in every scene): %s (worst "
              "ratio %.2f)." % ("met" if worst <= 2.0 else "not met", worst)]
    return lines + [""]


def sweep_section(path, plot):
    lines = ["## Cost growth", ""]
    if not path or not os.path.exists(path):
        return lines + ["Not measured in this run (bench/sweep_bench was not run).", ""]
    with open(path) as f:
        sweep = json.load(f)
    lines += [sweep.get("description", ""), "",
              "| sweep | sizes | slope, all sizes | slope, largest four | time at the largest, "
              "ms |", "|---|---|---|---|---|"]
    for s in sweep.get("series", []):
        lines.append("| %s | %g to %g | %.2f | %.2f | %.3g |" % (
            s["name"], min(s["sizes"]), max(s["sizes"]), s["slope"], s["slope_large"],
            s["times_ms"][-1]))
    if plot:
        lines += ["", "![cost growth](%s)" % os.path.basename(plot)]
    return lines + [""]


NOTES = [
    "## Notes", "",
] + compare_points.NOTES + [
    "- pt_to_grid_map gives every point within the snap size of a node that node, clutter "
    "included (the column \"clutter given a node\"), so it fails the strict criterion "
    "wherever clutter lies near a node; robust_grid_map gives each node at most one point "
    "and rejects the rest by their residuals against the noise level.",
    "- findCirclesGrid reports the nodes of the complete pattern only, so it cannot succeed "
    "with a dot missing; a failed call may also be a quick refusal, so only its successful "
    "calls are timed. Its clustering mode is its fast one.",
    "- The perspective of the grid-perspective family is mild (the local pitch changes by 4 "
    "to 10 % from the centre to the far edge): pt_to_grid_map fits an affine grid as it "
    "grows, and with about twice that change some rows near the far corners got the wrong "
    "index in trials.", ""]


def write_report(path, build, ours, args, cores, point_rows, grid_rows):
    p_lines, p_verdicts = compare_points.point_section(point_rows, args.count, args.seed,
                                                       cores)
    g_lines, g_verdicts = grid_table(grid_rows)
    text = [
        "# Performance", "",
        "Written by `scripts/bench.sh` (through `bench/compare.py`); do not edit by hand. "
        "Timings on a shared machine are noisy: every comparison here is made side by side "
        "in one run, and the ratios are the result, not the absolute times.", "",
        "## Machine", ""] + machine_lines(build, ours) + [
        "",
    ] + p_lines + [
        "## Grid mapping: pt_to_grid_map, robust_grid_map and findCirclesGrid", "",
        "All get the dot centres (OpenCV's findCirclesGrid without a blob detector, so no "
        "image processing is timed) and what a user knows: the plain mapper (pt_to_grid_map, "
        "mfPtToGridMap) the nominal pitch vectors and a snap size of 0.9 of the linking pitch, "
        "the robust mapper (robust_grid_map, mfRobustGridMap) the nominal pitch vectors, "
        "OpenCV the pattern size and kind. Strict success: every dot is reported at its true "
        "node under one relabelling of the whole grid and no clutter point is given a node "
        "(for findCirclesGrid, every reported centre is its node's dot). The lenient count "
        "of the plain mapper lets clutter sit on nodes. The goal column checks the robust "
        "mapper: strict success at least 9 of 10 and never behind findCirclesGrid, at most 3 "
        "times the plain mapper's median time, and no slower than a findCirclesGrid mode "
        "where that mode succeeds.",
        ""] + g_lines + ["", "## Goals", ""]
    for family, met in p_verdicts:
        text.append("- point family %s: %s" % (family, "met" if met else "not met"))
    text += compare_points.threads_verdicts(point_rows, cores)
    text += compare_points.growth_verdicts(point_rows)
    for family, met in g_verdicts:
        text.append("- grid family %s: %s" % (family, "met" if met else "not met"))
    text += [""] + NOTES
    text += compare_points.growth_section(point_rows, args.growth_plot)
    text += vote_section(args.vote_json)
    text += sweep_section(args.sweep_json, args.sweep_plot)
    with open(path, "w") as f:
        f.write("\n".join(text).rstrip() + "\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", required=True, help="the Release build directory")
    parser.add_argument("--count", type=int, default=10, help="cases per family")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--families", default="", help="comma-separated families (default all)")
    parser.add_argument("--out", help="write the report here (docs/performance.md)")
    parser.add_argument("--raw", help="write every case's outcome here as JSON")
    parser.add_argument("--vote-json", help="Google Benchmark JSON of bench/vote_bench")
    parser.add_argument("--sweep-json", help="fits written by bench/sweep_fit.py")
    parser.add_argument("--sweep-plot", help="the plot bench/sweep_fit.py drew")
    parser.add_argument("--growth-plot", help="draw the many family's cost growth here")
    parser.add_argument("--threads", type=int, default=os.cpu_count() or 1,
                        help="threads of the multi-threaded calls (default: the cores)")
    parser.add_argument("--quiet", action="store_true")
    args = parser.parse_args()
    log = (lambda line: None) if args.quiet else (lambda line: print(line, flush=True))

    ours = load_ptmatch(args.build)
    try:
        import astroalign as aa
    except ImportError:
        aa = None
        print("compare.py: astroalign is not installed; point cases run ptmatch only")
    try:
        import cv2
        cv2.setNumThreads(1)
    except ImportError:
        cv2 = None
        print("compare.py: OpenCV (cv2) is not installed; grid cases run ptmatch only")

    program = os.path.join(args.build, "bench", "scenarios", "ptmatch_scenarios")
    command = [program, "--count", str(args.count), "--seed", str(args.seed)]
    if args.families:
        command += ["--families", args.families]
    scenarios = json.loads(subprocess.run(command, check=True, capture_output=True,
                                          text=True).stdout)
    log("ptmatch through its %s; %d point and %d grid cases" % (
        ours.name, len(scenarios["points"]), len(scenarios["grids"])))

    # Warm every tool up once (imports, first-call set-up) before anything is timed.
    if scenarios["points"]:
        ours.match(scenarios["points"][0], False, 1)
        if aa is not None:
            compare_points.astroalign_match(aa, scenarios["points"][0])
    if scenarios["grids"]:
        ours.grid(scenarios["grids"][0], snap_size(scenarios["grids"][0]))
        ours.robust_grid(scenarios["grids"][0])
        if cv2 is not None:
            opencv_grid(cv2, scenarios["grids"][0], False)

    point_rows = compare_points.run_points(scenarios["points"], ours, aa, args.threads, log)
    grid_rows = run_grids(scenarios["grids"], ours, cv2, log)
    if args.raw:
        with open(args.raw, "w") as f:
            json.dump(dict(points=point_rows, grids=grid_rows), f, indent=1, default=str)
    if args.out:
        write_report(args.out, args.build, ours, args, args.threads, point_rows, grid_rows)
        log("wrote %s" % args.out)
    success, times, _ = compare_points.point_tables(point_rows, args.threads)
    for line in success + [""] + times + [""] + grid_table(grid_rows)[0]:
        log(line)


if __name__ == "__main__":
    main()
