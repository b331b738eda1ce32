"""ScoreHashing, the bounded best-score store."""

import pytest

import ptmatch


def test_new_store_is_empty():
    s = ptmatch.ScoreHashing(10, 3)
    assert s.num_results == 0 and len(s) == 0
    assert s.first() is None
    assert s.highest_score == -1 and s.lowest_score == -1
    assert (s.max_score, s.max_results) == (10, 3)


def test_scores_outside_zero_to_max_are_refused():
    s = ptmatch.ScoreHashing(10, 3)
    assert s.add(0, (1, 1))
    assert not s.add(-1, (1, 1))
    assert not s.add(11, (1, 1))
    assert s.num_results == 1


def test_full_store_evicts_the_newest_of_the_lowest_score():
    s = ptmatch.ScoreHashing(10, 3)
    assert s.add(5, (1, 0)) and s.add(7, (2, 0)) and s.add(5, (3, 0))
    assert s.add(9, (4, 0))  # evicts the newer score-5 entry, (3, 0)
    assert not s.add(5, (5, 0))  # a tie with the lowest never displaces anything
    assert s.add(6, (6, 0))  # evicts the remaining score-5 entry
    assert s.lowest_score == 6
    assert s.items() == [(9, (4, 0)), (7, (2, 0)), (6, (6, 0))]


def test_iteration_within_one_score_is_newest_first_and_ends_with_none():
    s = ptmatch.ScoreHashing(5, 4)
    for x in range(3):
        s.add(2, (x, 0))
    assert s.first() == (2, (2, 0))
    assert s.current == (2, 0)
    assert s.next() == (2, (1, 0))
    assert s.next() == (2, (0, 0))
    assert s.next() is None
    assert s.next() is None
    assert list(s) == [(2, (2, 0)), (2, (1, 0)), (2, (0, 0))]


def test_maximums_empties_the_store():
    s = ptmatch.ScoreHashing(5, 4)
    s.add(3, (1, 1))
    s.maximums(5, 4)
    assert s.num_results == 0
    s.maximums(20, 2)
    assert (s.max_score, s.max_results) == (20, 2)
    s.clear()
    assert s.first() is None


def test_limits_below_one_fail_the_assertion():
    with pytest.raises(ptmatch.AssertionFailed):
        ptmatch.ScoreHashing(5, 0)
    s = ptmatch.ScoreHashing(5, 1)
    with pytest.raises(ptmatch.AssertionFailed):
        s.maximums(0, 1)
    with pytest.raises(ptmatch.AssertionFailed):
        s.current  # nothing returned yet
