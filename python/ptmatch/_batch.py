"""PointMatcher.run_batch: one trained matcher over many data sets on several threads."""

import concurrent.futures
import os

from . import _ptmatch


def run_batch(matcher, datasets, params=None, threads=None, timeout=None, **keywords):
    """Runs the trained matcher on each data set, several at once; returns one results list
    per data set, in the order of ``datasets``.

    datasets  sequence of data point sets, each an (N, 2) array-like of numbers
    params    a RunParams for every run, or None to build one from the keywords
    threads   most runs at once; None means the number of processors (and never more than
              the number of data sets), 1 runs them one after the other
    timeout   seconds allowed for each run, None for no limit (see run())
    keywords  the keywords of run() (min_coverage, rotation, max_results, ...), when no
              params are given

    Each run is exactly ``matcher.run(data, params, timeout)``: the results equal those of runs one
    by one. The runs release the GIL, so they use several cores.

    Raises ValueError for threads below 1 or for both params and keywords; ptmatch.BadParams
    for rejected keywords; the first error of a run, in input order (the other runs finish
    first); ptmatch.TimeoutError for a run past timeout; ptmatch.Interrupted on Ctrl-C, after the runs in progress have ended.

    Example::

        matcher = ptmatch.PointMatcher()
        matcher.train(model)
        for results in matcher.run_batch([scene1, scene2, scene3], min_coverage=0.7):
            print(results[0].pose if results else None)
    """
    if params is not None and keywords:
        raise ValueError("give either params or run keywords, not both")
    if params is None:
        params = _ptmatch.RunParams(**keywords)
    datasets = list(datasets)
    if threads is None:
        threads = os.cpu_count() or 1
    if not isinstance(threads, int) or isinstance(threads, bool) or threads < 1:
        raise ValueError("threads must be a whole number of at least 1, not %r" % (threads,))
    threads = max(1, min(threads, len(datasets)))
    if threads == 1:
        return [matcher.run(data, params, timeout) for data in datasets]
    pool = concurrent.futures.ThreadPoolExecutor(max_workers=threads,
                                                 thread_name_prefix="ptmatch-batch")
    futures: list = []
    try:
        futures.extend(pool.submit(matcher.run, data, params, timeout) for data in datasets)
        concurrent.futures.wait(futures)
    except KeyboardInterrupt:
        # Ctrl-C reaches this thread only: end the workers' runs as well.
        for future in futures:
            future.cancel()
        _ptmatch.request_interruption()
        pool.shutdown(wait=True)
        _ptmatch.clear_interruption()
        raise _ptmatch.Interrupted() from None
    finally:
        pool.shutdown(wait=True)
    return [future.result() for future in futures]
