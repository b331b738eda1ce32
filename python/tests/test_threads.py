"""Runs release the GIL: threads run matchers in parallel, and Ctrl-C (or
request_interruption) ends a long run through the library's interruption check."""

import os
import signal
import threading
import time
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

import ptmatch
from conftest import Scene

# An exhaustive run of 8 model points against 12 data points tries 13^8 pairings, minutes of
# work: long enough that only an interruption ends it within the tests' patience.
LONG_RUN_SECONDS_ALLOWED = 10.0


@pytest.fixture(autouse=True)
def no_pending_interruption():
    ptmatch.clear_interruption()
    yield
    ptmatch.clear_interruption()


@pytest.fixture
def long_exhaustive():
    rng = np.random.default_rng(2)
    m = ptmatch.PointMatcher()
    m.train(rng.uniform(0, 100, (8, 2)), mode="exhaustive")
    return m, rng.uniform(0, 100, (12, 2))


@pytest.fixture
def safety_net():
    """Ends a long run that an interruption failed to end, so a failing test fails soon
    instead of running for minutes; cancelled when the test ends."""
    timer = threading.Timer(2 * LONG_RUN_SECONDS_ALLOWED, ptmatch.request_interruption)
    timer.daemon = True
    timer.start()
    yield timer
    timer.cancel()


def test_parallel_runs_give_the_sequential_results():
    scenes = [Scene(seed=s, degrees=d) for s, d in [(1, 5), (2, -8), (3, 12), (4, 0)]]
    matchers = []
    for s in scenes:
        m = ptmatch.PointMatcher()
        m.train(s.model)
        matchers.append(m)
    expected = [m.run(s.data, min_coverage=0.8)[0].pose for m, s in zip(matchers, scenes)]
    jobs = [(m, s) for m, s in zip(matchers, scenes)] * 4
    with ThreadPoolExecutor(max_workers=4) as pool:
        poses = list(pool.map(lambda job: job[0].run(job[1].data, min_coverage=0.8)[0].pose, jobs))
    for i, pose in enumerate(poses):
        np.testing.assert_array_equal(pose, expected[i % 4])


def test_one_matcher_runs_in_several_threads_at_once():
    s = Scene(seed=9)
    m = ptmatch.PointMatcher()
    m.train(s.model)
    with ThreadPoolExecutor(max_workers=4) as pool:
        poses = list(pool.map(lambda _: m.run(s.data, min_coverage=0.8)[0].pose, range(8)))
    for pose in poses:
        np.testing.assert_allclose(pose, s.pose, atol=1e-9)


def test_grid_calls_in_parallel_threads():
    nodes = np.array([(i, j) for j in range(6) for i in range(6)], float)
    with ThreadPoolExecutor(max_workers=4) as pool:
        results = list(pool.map(
            lambda k: ptmatch.pt_to_grid_map(nodes * 10 + k, xv=(10, 0), yv=(0, 10),
                                             snap_size=12.0), range(8)))
    for r in results:
        assert r.valid and r.num_assigned == 36


def test_other_threads_run_python_while_a_run_is_in_progress(long_exhaustive, safety_net):
    m, data = long_exhaustive
    outcome = {}

    def work():
        try:
            m.run(data, min_coverage=0.9)
            outcome["end"] = "finished"
        except ptmatch.Interrupted as e:
            outcome["end"] = e

    start = time.monotonic()
    worker = threading.Thread(target=work)
    worker.start()
    ticks = 0
    while ticks < 1000:  # Python work on this thread while the worker is inside the run
        ticks += 1
        time.sleep(0)
    assert worker.is_alive()
    ptmatch.request_interruption()
    worker.join()
    assert isinstance(outcome["end"], ptmatch.Interrupted)
    assert str(outcome["end"]) == "The run was interrupted."
    assert time.monotonic() - start < LONG_RUN_SECONDS_ALLOWED


def test_a_running_matcher_refuses_to_be_retrained(long_exhaustive, safety_net):
    m, data = long_exhaustive
    worker = threading.Thread(target=lambda: pytest.raises(ptmatch.Interrupted, m.run, data))
    worker.start()
    time.sleep(0.2)
    try:
        with pytest.raises(RuntimeError, match="being run by another thread"):
            m.train([(0, 0), (1, 0), (0, 1)])
        with pytest.raises(RuntimeError):
            m.untrain()
    finally:
        ptmatch.request_interruption()
        worker.join()
    assert m.train_mode == "exhaustive"


def test_ctrl_c_ends_a_long_run_with_interrupted(long_exhaustive, safety_net):
    m, data = long_exhaustive
    threading.Timer(0.2, os.kill, (os.getpid(), signal.SIGINT)).start()
    start = time.monotonic()
    with pytest.raises(KeyboardInterrupt) as err:
        m.run(data, min_coverage=0.9)
    assert isinstance(err.value, ptmatch.Interrupted)
    assert time.monotonic() - start < LONG_RUN_SECONDS_ALLOWED
    # The matcher stays usable and the interruption was consumed.
    assert not ptmatch.interruption_requested()
    assert m.run(data[:3], min_coverage=0.0) is not None


def test_an_exception_of_a_signal_handler_ends_the_run_as_it_is(long_exhaustive, safety_net):
    m, data = long_exhaustive

    class Stop(Exception):
        pass

    def handler(signum, frame):
        raise Stop("stop now")

    previous = signal.signal(signal.SIGUSR1, handler)
    try:
        threading.Timer(0.2, os.kill, (os.getpid(), signal.SIGUSR1)).start()
        with pytest.raises(Stop, match="stop now"):
            m.run(data, min_coverage=0.9)
    finally:
        signal.signal(signal.SIGUSR1, previous)


def test_request_interruption_from_another_thread_ends_a_run_here(long_exhaustive, safety_net):
    m, data = long_exhaustive
    threading.Timer(0.2, ptmatch.request_interruption).start()
    start = time.monotonic()
    with pytest.raises(ptmatch.Interrupted):
        m.run(data, min_coverage=0.9)
    assert time.monotonic() - start < LONG_RUN_SECONDS_ALLOWED


def test_a_withdrawn_request_interrupts_nothing():
    ptmatch.request_interruption()
    assert ptmatch.interruption_requested()
    ptmatch.clear_interruption()
    assert not ptmatch.interruption_requested()
    s = Scene(seed=7)
    m = ptmatch.PointMatcher()
    m.train(s.model)
    assert len(m.run(s.data, min_coverage=0.8)) == 1
