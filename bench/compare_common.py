"""Timing and table helpers of the side-by-side comparison (bench/compare.py and
bench/compare_points.py)."""

import math
import statistics
import time

REPEAT_BUDGET_S = 0.2
MAX_REPEATS = 3


def timed(call, clock=time.process_time):
    """Runs call() up to MAX_REPEATS times (stopping once REPEAT_BUDGET_S is spent) and
    returns (its first result, the fastest run's seconds by `clock`). An exception is a
    result."""
    first = None
    best = math.inf
    spent = 0.0
    for repeat in range(MAX_REPEATS):
        start = clock()
        try:
            outcome = call()
        except Exception as error:  # a tool's failure is a failed case, not a crash
            outcome = error
        seconds = clock() - start
        if repeat == 0:
            first = outcome
        best = min(best, seconds)
        spent += seconds
        if spent >= REPEAT_BUDGET_S:
            break
    return first, best


def median(values):
    values = [v for v in values if v == v]
    return statistics.median(values) if values else math.nan


def by_family(rows):
    families = {}
    for r in rows:
        families.setdefault(r["family"], []).append(r)
    return families


def ms(seconds):
    if seconds != seconds:
        return "n/a"
    v = 1e3 * seconds
    return "%.3g" % v if v < 100 else "%.0f" % v


def ratio(a, b):
    return a / b if a == a and b == b and b > 0 else math.nan


def fmt_ratio(r):
    return "n/a" if r != r else ("%.0fx" % r if r >= 10 else "%.1fx" % r)
