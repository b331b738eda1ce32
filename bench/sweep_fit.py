#!/usr/bin/python3
"""Fits the cost growth of bench/sweep_bench and draws it on log-log axes.

Reads sweep_bench's Google Benchmark JSON (--benchmark_out_format=json), groups the runs
into series (the point search over model size, over data size, the grid mapping over grid
size, symmetric and staggered), fits log(time) = a + slope x log(size) by least squares,
over all sizes and over the largest four, and writes

  --json FILE   {"description", "series": [{"name", "sizes", "times_ms", "slope",
                 "slope_large"}]} for bench/compare.py, and
  --plot FILE   the log-log plot (SVG or PNG by the file's extension).

Times are CPU times per call (the machine is shared; CPU time is steadier than wall time).

  /usr/bin/python3 bench/sweep_fit.py sweep.json --json fits.json --plot docs/growth.svg
"""

import argparse
import json
import math

import numpy as np

# (series name, benchmark name prefix, counter holding the size, size label)
SERIES = [
    ("point search, model size (1000 data points)", "BM_SearchModelSize/", "model",
     "model points"),
    ("point search, data size (10-point model)", "BM_SearchDataSize/", "data", "data points"),
    ("mfPtToGridMap, symmetric grid", "BM_GridMapSize/", "points", "grid points"),
    ("mfPtToGridMap, staggered grid", "BM_GridMapSize/", "points", "grid points"),
]


def slope(sizes, times):
    if len(sizes) < 2:
        return math.nan
    return float(np.polyfit(np.log(sizes), np.log(times), 1)[0])


def collect(report):
    runs = [b for b in report["benchmarks"] if b.get("run_type", "iteration") == "iteration"]
    series = []
    for name, prefix, counter, label in SERIES:
        staggered = name.endswith("staggered grid")
        points = []
        for b in runs:
            if not b["name"].startswith(prefix):
                continue
            if prefix == "BM_GridMapSize/" and b["name"].endswith("/1") != staggered:
                continue
            scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[b.get("time_unit", "ns")]
            points.append((float(b[counter]), b["cpu_time"] * scale))
        points.sort()
        if not points:
            continue
        sizes = [p[0] for p in points]
        times = [p[1] for p in points]
        series.append(dict(name=name, label=label, sizes=sizes, times_ms=times,
                           slope=slope(sizes, times), slope_large=slope(sizes[-4:], times[-4:])))
    return series


def plot(series, path):
    import matplotlib
    matplotlib.use("Agg")
    matplotlib.rcParams["svg.fonttype"] = "none"  # text stays text: a small, greppable file
    import matplotlib.pyplot as plt

    fig, ax = plt.subplots(figsize=(7.0, 4.6))
    for s, marker in zip(series, "osD^"):
        ax.loglog(s["sizes"], s["times_ms"], marker=marker, label="%s (slope %.2f)" % (
            s["name"], s["slope"]))
    ax.set_xlabel("points (model, data or grid points: see the legend)")
    ax.set_ylabel("CPU time per call, ms")
    ax.set_title("ptmatch cost growth")
    ax.grid(True, which="both", alpha=0.3)
    ax.legend(fontsize=8)
    fig.tight_layout()
    fig.savefig(path, metadata={"Date": None} if path.endswith(".svg") else None)
    plt.close(fig)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("benchmark_json")
    parser.add_argument("--json", required=True)
    parser.add_argument("--plot")
    args = parser.parse_args()
    with open(args.benchmark_json) as f:
        series = collect(json.load(f))
    description = (
        "`bench/sweep_bench` (CPU time per call, one point density throughout, so a bigger "
        "set covers a bigger area): the point search with rotation +-15 degrees, no scale "
        "change, free translation, coverage 0.5, over model size at 1000 data points and over "
        "data size with a 10-point model; mfPtToGridMap over grids of 10 x 10 to 300 x 300 "
        "nodes with 10 % missing dots, 10 % clutter and noise of 0.05 pitch. The slope is "
        "that of log time against log size, fitted over all sizes and over the largest four.")
    with open(args.json, "w") as f:
        json.dump(dict(description=description, series=series), f, indent=1)
    if args.plot:
        plot(series, args.plot)
    for s in series:
        print("%-45s slope %.2f (largest four: %.2f)" % (s["name"], s["slope"], s["slope_large"]))


if __name__ == "__main__":
    main()
