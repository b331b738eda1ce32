"""The point families of the side-by-side comparison (run by bench/compare.py).

Per case, in one run: ptmatch.match, the planned search, on one thread and on the
machine's cores; ptmatch.match(exact=True), the written run with its automatic sizes, on
one thread and on the machine's cores; and astroalign.find_transform with its defaults.

Success: every instance of the model in the data (one, or two in the two-instances
family) is found: some returned pose carries the model points to within 1 px RMS of where
the instance's true pose carries them. For a symmetric model every pose that differs by a
symmetry is right, so there each mapped point is compared with the nearest truly mapped
model point. No pose, an exception or a call past the time limit is a failure.

Time: one-thread calls are timed by the process's CPU time, calls on the machine's cores
by the wall clock (their CPU time adds up over the threads).
"""

import math
import os

import numpy as np

from compare_common import by_family, fmt_ratio, median, ms, ratio, timed

POINT_TOLERANCE_PX = 1.0      # RMS of mapped model points against the truth
MATCH_TIMEOUT_S = 10.0        # every ptmatch call is bounded by this (the written run on
                              # large sets takes minutes)
SPEED_GOAL = 20.0             # the planned search at least this much faster than astroalign
MANY_MEDIAN_GOAL_S = 0.05     # many: the planned search's median, one thread
MANY_LARGEST_GOAL_S = 0.2     # many: its largest case, one thread
GROWTH_SLOPE_GOAL = 1.3       # many: the planned search's cost growth over 200-2000 points
THREADS_GAIN_GOAL = 1.8       # two threads against one, written run, on the families below
THREADS_FAMILIES = ("wide", "wide-degraded", "many")


def searches(cores):
    """(key, label, exact, threads) of the four ptmatch calls per case."""
    return [("planned_1", "planned, 1 thread", False, 1),
            ("planned_n", "planned, %d threads" % cores, False, cores),
            ("written_1", "written run, 1 thread", True, 1),
            ("written_n", "written run, %d threads" % cores, True, cores)]


def match_arguments(r, takes_start_pose):
    """The keyword arguments of ptmatch.match for a scenario's declared ranges."""
    kwargs = dict(min_coverage=r["min_coverage"], max_results=r.get("max_results", 1),
                  scale=tuple(r["scale"]),
                  rotation=None if r["full_rotation"] else tuple(r["rotation"]))
    if r["translation"] > 0:
        t = r["translation"]
        sx, sy = r["start"]
        if takes_start_pose:
            kwargs.update(start_pose=[[1.0, 0.0, sx], [0.0, 1.0, sy]], x_range=(-t, t),
                          y_range=(-t, t))
        else:
            # A start pose that only moves: the same translations, stated absolutely.
            kwargs.update(x_range=(sx - t, sx + t), y_range=(sy - t, sy + t))
    return kwargs


def cli_arguments(r):
    """The `ptmatch match` options for a scenario's declared ranges."""
    args = ["--min-coverage", repr(r["min_coverage"]),
            "--max-results", str(r.get("max_results", 1)),
            "--scale", "%r:%r" % tuple(r["scale"]),
            "--rotation", "full" if r["full_rotation"] else "%r:%r" % tuple(r["rotation"])]
    if r["translation"] > 0:
        t = r["translation"]
        args += ["--start-pose", "1,0,0,1,%r,%r" % tuple(r["start"]),
                 "--x-range", "%r:%r" % (-t, t), "--y-range", "%r:%r" % (-t, t)]
    return args


def astroalign_match(aa, s):
    source = np.asarray(s["model"], dtype=float)
    target = np.asarray(s["data"], dtype=float)

    def call():
        transform, _ = aa.find_transform(source, target)
        return [np.asarray(transform.params)[:2, :]]

    return timed(call)


# --- success ---

def pose_error(s, pose, truth):
    """RMS distance, px, between the model under pose and under truth."""
    model = np.asarray(s["model"], dtype=float)
    pose = np.asarray(pose, dtype=float)
    truth = np.asarray(truth, dtype=float)
    found = model @ pose[:, :2].T + pose[:, 2]
    true = model @ truth[:, :2].T + truth[:, 2]
    if s["symmetry"] > 1:
        d = np.sqrt(((found[:, None, :] - true[None, :, :]) ** 2).sum(axis=2)).min(axis=1)
    else:
        d = np.sqrt(((found - true) ** 2).sum(axis=1))
    return float(np.sqrt(np.mean(d ** 2)))


def case_success(s, poses):
    """(every instance found, the error of the best pose against the first instance)."""
    if poses is None or isinstance(poses, Exception) or not len(poses):
        return False, math.nan
    truths = s.get("instances") or [s["truth"]]
    errors = [[pose_error(s, p, t) for p in poses] for t in truths]
    found = all(min(e) <= POINT_TOLERANCE_PX for e in errors)
    return found, min(errors[0])


# --- the runs ---

def run_case(s, ours, aa, cores):
    """One case through every search; a row of outcomes."""
    row = dict(family=s["family"], index=s["index"], model=len(s["model"]), data=len(s["data"]),
               instances=len(s.get("instances") or [1]))
    for key, _, exact, threads in searches(cores):
        poses, seconds = ours.match(s, exact, threads)
        timed_out = isinstance(poses, TimeoutError)
        ok, error = case_success(s, poses)
        row.update({key + "_ok": ok, key + "_error": error, key + "_timeout": timed_out,
                    key + "_s": MATCH_TIMEOUT_S if timed_out else seconds})
    if aa is not None:
        poses, seconds = astroalign_match(aa, s)
        ok, error = case_success(s, poses)
        row.update(astroalign_ok=ok, astroalign_error=error, astroalign_s=seconds,
                   astroalign_timeout=False)
    return row


def run_points(cases, ours, aa, cores, log):
    rows = []
    for s in cases:
        row = run_case(s, ours, aa, cores)
        rows.append(row)
        parts = []
        for key, _, _, _ in searches(cores) + [("astroalign", "", None, None)]:
            if key + "_s" in row:
                parts.append("%s %s %s ms" % (key, "ok  " if row[key + "_ok"] else "FAIL",
                                              time_text(row[key + "_s"], row[key + "_timeout"])))
        log("%-14s %2d  M=%4d D=%4d  %s" % (s["family"], s["index"], row["model"], row["data"],
                                            "  ".join(parts)))
    return rows


# --- the report ---

def time_text(seconds, bound):
    return (">= " if bound else "") + ms(seconds)


def median_bound(rows, key):
    """The median seconds of a search over rows, and whether it is only a lower bound (a
    call past the time limit, counted at the limit, reaches the median)."""
    values = sorted((r[key + "_s"], r[key + "_timeout"]) for r in rows
                    if key + "_s" in r and r[key + "_s"] == r[key + "_s"])
    if not values:
        return math.nan, False
    n = len(values)
    middle = values[(n - 1) // 2:n // 2 + 1]
    return sum(v for v, _ in middle) / len(middle), any(t for _, t in middle)


def successes(rows, key):
    return sum(bool(r.get(key + "_ok")) for r in rows)


def family_goal(family, fam, key_fast="planned_1"):
    """The goals of the planned search on one thread in one family: at least SPEED_GOAL
    times astroalign's speed, at least astroalign's and the written run's success; on many
    also every case, a median under 50 ms and the largest case under 200 ms."""
    n = len(fam)
    t_fast, bound = median_bound(fam, key_fast)
    t_aa, _ = median_bound(fam, "astroalign")
    ok = successes(fam, key_fast)
    met = (not bound and ratio(t_aa, t_fast) >= SPEED_GOAL and ok >= successes(fam, "astroalign")
           and ok >= successes(fam, "written_1"))
    if family == "many":
        largest = max(fam, key=lambda r: r["model"])
        met = (met and ok == n and t_fast < MANY_MEDIAN_GOAL_S
               and not largest[key_fast + "_timeout"]
               and largest[key_fast + "_s"] < MANY_LARGEST_GOAL_S)
    return met


def threads_gain(fam, key):
    """One-thread median (CPU time) over the cores' median (wall clock); nan where either
    is only a bound."""
    one, one_bound = median_bound(fam, key + "_1")
    many, many_bound = median_bound(fam, key + "_n")
    return math.nan if one_bound or many_bound else ratio(one, many)


def point_tables(rows, cores):
    keys = [key for key, _, _, _ in searches(cores)] + ["astroalign"]
    labels = [label for _, label, _, _ in searches(cores)] + ["astroalign"]
    success = ["| family | cases | " + " | ".join(labels) + " |",
               "|---|---|" + "---|" * len(labels)]
    times = ["| family | " + " | ".join(labels) + " | astroalign / planned (1 thread) | "
             "written / planned (1 thread) | written / planned (%d threads) | threads gain, "
             "planned / written | goal (planned, 1 thread) |" % cores,
             "|---|" + "---|" * (len(labels) + 5)]
    verdicts = []
    for family, fam in by_family(rows).items():
        n = len(fam)
        success.append("| %s | %d | %s |" % (family, n, " | ".join(
            "%d/%d" % (successes(fam, k), n) for k in keys)))
        medians = {k: median_bound(fam, k) for k in keys}
        met = family_goal(family, fam)
        verdicts.append((family, met))

        def over(a, b):
            (ta, ba), (tb, bb) = medians[a], medians[b]
            r = fmt_ratio(ratio(ta, tb))
            return (">= " + r) if ba and not bb and r != "n/a" else ("n/a" if bb else r)

        times.append("| %s | %s | %s | %s | %s | %s / %s | %s |" % (
            family, " | ".join(time_text(*medians[k]) for k in keys),
            over("astroalign", "planned_1"), over("written_1", "planned_1"),
            over("written_n", "planned_n"), fmt_ratio(threads_gain(fam, "planned")),
            fmt_ratio(threads_gain(fam, "written")), "met" if met else "**not met**"))
    return success, times, verdicts


def threads_verdicts(rows, cores):
    """Two threads at least THREADS_GAIN_GOAL times one for the written run."""
    lines = []
    families = by_family(rows)
    for family in THREADS_FAMILIES:
        if family not in families or cores < 2:
            continue
        gain = threads_gain(families[family], "written")
        lines.append("- written run, %d threads against one, family %s: %s (goal %gx): %s" % (
            cores, family, fmt_ratio(gain), THREADS_GAIN_GOAL,
            "n/a (calls past the time limit)" if gain != gain else
            ("met" if gain >= THREADS_GAIN_GOAL else "not met")))
    return lines


def slope(sizes, times):
    if len(sizes) < 2:
        return math.nan
    return float(np.polyfit(np.log(sizes), np.log(times), 1)[0])


def growth_series(rows):
    """Per search on one thread over the many family: (sizes, seconds, slope) of the calls
    that finished, and the sizes of those past the time limit."""
    many = sorted((r for r in rows if r["family"] == "many"), key=lambda r: r["model"])
    series = {}
    for key, label in (("planned_1", "planned search"), ("written_1", "written run")):
        done = [r for r in many if not r[key + "_timeout"] and r[key + "_s"] == r[key + "_s"]]
        sizes = [r["model"] for r in done]
        times = [r[key + "_s"] for r in done]
        series[key] = dict(label=label, sizes=sizes, times=times, slope=slope(sizes, times),
                           timed_out=[r["model"] for r in many if r[key + "_timeout"]])
    return series


def growth_plot(series, path):
    import matplotlib
    matplotlib.use("Agg")
    matplotlib.rcParams["svg.fonttype"] = "none"  # text stays text: a small, greppable file
    import matplotlib.pyplot as plt

    fig, ax = plt.subplots(figsize=(7.0, 4.6))
    for (key, s), marker in zip(series.items(), "os"):
        line = ax.loglog(s["sizes"], [1e3 * t for t in s["times"]], marker=marker,
                         label="%s, 1 thread (slope %.2f)" % (s["label"], s["slope"]))[0]
        if s["timed_out"]:
            ax.loglog(s["timed_out"], [1e3 * MATCH_TIMEOUT_S] * len(s["timed_out"]),
                      marker="^", linestyle="none", color=line.get_color(), fillstyle="none",
                      label="%s past the %g s limit" % (s["label"], MATCH_TIMEOUT_S))
    ax.set_xlabel("model points (data: the same, 5 % missing, 5 % clutter)")
    ax.set_ylabel("CPU time per call, ms")
    ax.set_title("many: rotation +-45 deg, scale 0.9-1.1, free translation")
    ax.grid(True, which="both", alpha=0.3)
    ax.legend(fontsize=8)
    fig.tight_layout()
    fig.savefig(path, metadata={"Date": None} if path.endswith(".svg") else None)
    plt.close(fig)


def growth_verdicts(rows):
    """The cost-growth goal of the planned search over the many family, as a goals line."""
    planned = growth_series(rows)["planned_1"]
    if not planned["sizes"] and not planned["timed_out"]:
        return []
    met = planned["slope"] <= GROWTH_SLOPE_GOAL and not planned["timed_out"]
    return ["- planned search, 1 thread, cost growth over the many family: slope %.2f (goal "
            "<= %g, every case finished): %s" % (planned["slope"], GROWTH_SLOPE_GOAL,
                                                 "met" if met else "not met")]


def growth_section(rows, plot):
    lines = ["## Cost growth over 200 to 2000 points", ""]
    series = growth_series(rows)
    if not any(s["sizes"] or s["timed_out"] for s in series.values()):
        return lines + ["The many family was not run.", ""]
    lines += ["The many family's one-thread CPU times per case (model sizes 200 to 2000, data "
              "of the same size) on log-log axes, with the slope of log time against log size "
              "fitted by least squares over the calls that finished within %g s. Goal for the "
              "planned search: a slope of at most %g." % (MATCH_TIMEOUT_S, GROWTH_SLOPE_GOAL),
              "", "| search | sizes finished | slope | time at the largest finished, ms | "
              "past the limit |", "|---|---|---|---|---|"]
    for s in series.values():
        lines.append("| %s, 1 thread | %s | %.2f | %s | %s |" % (
            s["label"], "%d to %d" % (min(s["sizes"]), max(s["sizes"])) if s["sizes"] else
            "none", s["slope"], ms(s["times"][-1]) if s["times"] else "n/a",
            ", ".join(str(n) for n in s["timed_out"]) or "none"))
    lines += [""] + growth_verdicts(rows)
    if plot:
        growth_plot(series, plot)
        lines += ["", "![cost growth of the many family](%s)" % os.path.basename(plot)]
    return lines + [""]


def point_section(rows, count, seed, cores):
    """The point-matching section of docs/performance.md, and its per-family verdicts."""
    success, times, verdicts = point_tables(rows, cores)
    load = os.getloadavg()[0] if hasattr(os, "getloadavg") else math.nan
    text = [
        "## Point matching: ptmatch against astroalign", "",
        "%d seeded cases per family (seed %d), from `bench/scenarios` (their families are "
        "described in `bench/scenarios/scenarios.h`; every family but narrow-many leaves the "
        "translation free over the whole data). Each case runs, one after the other in this "
        "one process: `ptmatch.match` (the planned search) on one thread and on the machine's "
        "%d cores, `ptmatch.match(exact=True)` (the written run with its automatic sizes) "
        "likewise, and astroalign's `find_transform(model, data)` with its defaults (it "
        "searches every pose and takes no ranges). ptmatch is given the rotation, scale and "
        "translation ranges each scenario declares, its least coverage and the number of "
        "instances as the results asked for; every ptmatch call is bounded by timeout=%g s, "
        "and a call past it is a failure, counted at %g s in the medians (shown as >=). A case "
        "succeeds when every instance of the model is found: a returned pose puts the model "
        "points within %g px RMS of the truth (for symmetric models up to the symmetry)." % (
            count, seed, cores, MATCH_TIMEOUT_S, MATCH_TIMEOUT_S, POINT_TOLERANCE_PX), "",
        "Successes:", ""] + success + [
        "", "Median times in ms over the family's cases: one-thread calls (and astroalign, held "
        "to one thread) by the process's CPU time, calls on %d threads by the wall clock; each "
        "call's fastest of up to three repeats. The threads gain is the one-thread median "
        "over the %d-thread median; it needs idle cores (the one-minute load average "
        "was %.1f on %d cores when the report was written). The goal column checks the "
        "planned search on one "
        "thread: at least %gx astroalign's speed, at least astroalign's and the written run's "
        "success, and on many every case, a median under %g ms and the 2000-point case "
        "under %g ms." % (cores, cores, load, os.cpu_count() or 0, SPEED_GOAL,
                          1e3 * MANY_MEDIAN_GOAL_S,
                          1e3 * MANY_LARGEST_GOAL_S), ""] + times + [""]
    return text, verdicts


NOTES = [
    "- astroalign runs with its defaults, which use at most 50 control points of each set; on "
    "the many families that is a small part of the points. narrow-many tells ptmatch the "
    "part's placement to +-50 px (a start pose and translation ranges), as a fixture gives "
    "it; astroalign has no such input.",
    "- astroalign returns one transform per call, so it cannot find both instances of the "
    "two-instances family; ptmatch is asked for two results there.",
    "- The written run searches a lattice of rotations and scales at its automatic grid size "
    "(a quarter of the model's smallest point spacing), so its cost grows steeply with the "
    "model's size and the rotation and scale ranges; the planned search chooses its sizes "
    "from the data and verifies what it finds at the fine capture range.",
]
