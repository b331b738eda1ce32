"""ptmatch: find where a trained 2-D point pattern lies among measured points.

Train a PointMatcher with model points (optionally weighted) or an 8-bit dot-pattern
image, run it on data points with the uncertainty of translation, rotation and scale
around a start pose, and read each result's pose, coverage, fit error and point
correspondence::

    import numpy as np
    import ptmatch

    matcher = ptmatch.PointMatcher()
    matcher.train(model_points)                    # (N, 2) array-like
    results = matcher.run(data_points, min_coverage=0.7, rotation=(-30, 30))
    best = results[0]
    best.pose                # 2x3 model-to-data transform
    best.model_to_data_map   # per model point its data point index, -1 unmatched

ptmatch.match(model_points, data_points, rotation=..., scale=...) does both in one call
with the planned search (many times faster on wide searches and large point sets;
exact=True runs the written search). ptmatch.set_num_threads(n) sets the threads of
every search.

matcher.run_batch(list_of_data, ...) runs one trained matcher over many data sets on
several threads, results in input order. ptmatch.__version__ is the library's version.

Beside the matcher: pt_to_grid_map (points to the nodes of a regular grid),
robust_grid_map (the same under perspective, clutter and noise, one point per node),
GridCorresponder (a dot pattern in a grid of nodes), ScoreHashing (a bounded best-score
store), PtMatchTm2 / PerspectiveTm2 / PtMatchTm3 (least-squares point-match transforms),
PseudoInverse and MatrixExt (the numerics underneath).

Conventions: points are any (N, 2) array-like of numbers; poses are 2x3 arrays
[[a00, a01, tx], [a10, a11, ty]]; images are 2-D arrays whose rows are y; the run
parameters take angles in degrees, the transforms in radians. Runs release the GIL and
end with ptmatch.Interrupted (a KeyboardInterrupt) on Ctrl-C; each takes timeout= (seconds)
and raises ptmatch.TimeoutError (also a TimeoutError) past it. The library's errors are
raised as subclasses of ptmatch.Error carrying the library's message. Every class
pickles through the library's archive (and has to_bytes/from_bytes for the raw archive).
Each docstring names the C++ class or member it stands for.
"""

from typing import List, TypeVar

from ._ptmatch import (
    # errors
    Error,
    ArchiveError,
    UnknownVersion,
    EndOfData,
    BadData,
    MathError,
    NotSquareMatrix,
    SingularMatrix,
    AssertionFailed,
    FitError,
    MatcherError,
    BadParams,
    NotTrained,
    NotRun,
    InsufficientModelPoints,
    BadInput,
    RobustGridBadInput,
    GridCorresponderError,
    GridInsufficientModelPoints,
    InsufficientMemory,
    BadArgs,
    PtMatchTm2BadArgs,
    PerspectiveTm2BadArgs,
    PtMatchTm3BadArgs,
    Interrupted,
    TimeoutError,
    # interruption
    request_interruption,
    clear_interruption,
    interruption_requested,
    # point matcher
    PointMatcher,
    RunParams,
    PointMatcherResult,
    match,
    set_num_threads,
    get_num_threads,
    # point-to-grid mapping
    pt_to_grid_map,
    GridMapParams,
    GridMapResult,
    # robust grid mapping
    robust_grid_map,
    RobustGridMapParams,
    RobustGridMapResult,
    # grid corresponder and score store
    GridCorresponder,
    GridCorresponderTrainParams,
    GridCorresponderRunParams,
    GridCorresponderResult,
    FeatureType,
    ScoreHashing,
    # transforms and numerics
    PtMatchTm2,
    PerspectiveTm2,
    PtMatchTm3,
    PseudoInverse,
    MatrixExt,
    # dots and image files
    DotError,
    ImageFileError,
    find_dots,
    read_image,
)
from . import _batch, _ptmatch
from ._ptmatch import __version__  # the library's version, as in CMakeLists.txt


_T = TypeVar("_T")


class Results(List[_T]):
    """The results of one run, best first: a list, with the run's duration in seconds in
    ``time`` (mvPointMatcherResultSet, mv_PointToGridCorresponderResultSet)."""

    time = 0.0

    def __repr__(self):
        return "Results(%s, time=%r)" % (list.__repr__(self), self.time)


_ptmatch._set_results_type(Results)

# One trained matcher over many data sets on several threads (python/ptmatch/_batch.py).
PointMatcher.run_batch = _batch.run_batch  # type: ignore

# The transforms' errors, also reachable as nested names, as in C++.
PtMatchTm2.BadArgs = PtMatchTm2BadArgs
PerspectiveTm2.BadArgs = PerspectiveTm2BadArgs
PtMatchTm3.BadArgs = PtMatchTm3BadArgs

__all__ = [
    "match",
    "set_num_threads",
    "get_num_threads",
    "DotError",
    "ImageFileError",
    "find_dots",
    "read_image",
    "Error",
    "ArchiveError",
    "UnknownVersion",
    "EndOfData",
    "BadData",
    "MathError",
    "NotSquareMatrix",
    "SingularMatrix",
    "AssertionFailed",
    "FitError",
    "MatcherError",
    "BadParams",
    "NotTrained",
    "NotRun",
    "InsufficientModelPoints",
    "BadInput",
    "RobustGridBadInput",
    "GridCorresponderError",
    "GridInsufficientModelPoints",
    "InsufficientMemory",
    "BadArgs",
    "PtMatchTm2BadArgs",
    "PerspectiveTm2BadArgs",
    "PtMatchTm3BadArgs",
    "Interrupted",
    "TimeoutError",
    "request_interruption",
    "clear_interruption",
    "interruption_requested",
    "PointMatcher",
    "RunParams",
    "PointMatcherResult",
    "pt_to_grid_map",
    "GridMapParams",
    "GridMapResult",
    "robust_grid_map",
    "RobustGridMapParams",
    "RobustGridMapResult",
    "GridCorresponder",
    "GridCorresponderTrainParams",
    "GridCorresponderRunParams",
    "GridCorresponderResult",
    "FeatureType",
    "ScoreHashing",
    "PtMatchTm2",
    "PerspectiveTm2",
    "PtMatchTm3",
    "PseudoInverse",
    "MatrixExt",
    "Results",
]

# The classes present themselves as members of this package (their pickles name it).
for _name in __all__:
    _obj = globals()[_name]
    if isinstance(_obj, type) and getattr(_obj, "__module__", None) == "ptmatch._ptmatch":
        try:
            _obj.__module__ = "ptmatch"
        except (AttributeError, TypeError):
            pass
del _name, _obj
