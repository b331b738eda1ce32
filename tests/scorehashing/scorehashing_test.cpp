// The bounded best-score store: limits, adding, eviction of the newest lowest entry,
// iteration from the highest score down, and the store with other payloads.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "mvbase/exception.h"
#include "ptmatch/scorehashing.h"

namespace {

mvPair<long> at(long x, long y) { return mvPair<long>(x, y); }

// Walks the whole store, first() then next() until -1: (score, position) in order.
std::vector<std::pair<long, mvPair<long>>> walk(mvScoreHashing& store) {
  std::vector<std::pair<long, mvPair<long>>> out;
  mvPair<long> p;
  for (long s = store.first(p); s != -1; s = store.next(p)) out.emplace_back(s, p);
  return out;
}

std::vector<long> scoresOf(mvScoreHashing& store) {
  std::vector<long> scores;
  for (const auto& e : walk(store)) scores.push_back(e.first);
  return scores;
}

TEST(ScoreHashing, NewStoreIsEmpty) {
  mvScoreHashing store(10, 3);
  EXPECT_EQ(store.numResults(), 0);
  EXPECT_EQ(store.maxScore(), 10);
  EXPECT_EQ(store.maxResults(), 3);
  EXPECT_EQ(store.highestScore(), -1);
  EXPECT_EQ(store.lowestScore(), -1);
  mvPair<long> p(7, 8);
  EXPECT_EQ(store.first(p), -1);
  EXPECT_EQ(p, at(7, 8)) << "first() on an empty store leaves the position alone";
  EXPECT_EQ(store.next(p), -1);
}

TEST(ScoreHashing, LimitsBelowOneAreAssertionFailures) {
  EXPECT_THROW(mvScoreHashing(0, 3), mvAssertionError);
  EXPECT_THROW(mvScoreHashing(10, 0), mvAssertionError);
  EXPECT_THROW(mvScoreHashing(-1, -1), mvAssertionError);
  mvScoreHashing store(10, 3);
  EXPECT_THROW(store.maximums(0, 3), mvAssertionError);
  EXPECT_THROW(store.maximums(10, 0), mvAssertionError);
  EXPECT_EQ(store.maxScore(), 10);
  EXPECT_EQ(store.maxResults(), 3);
}

TEST(ScoreHashing, ScoreZeroIsValidAndScoresOutsideTheRangeAreRefused) {
  mvScoreHashing store(10, 3);
  EXPECT_TRUE(store.add(0, at(1, 1)));
  EXPECT_FALSE(store.add(-1, at(2, 2)));
  EXPECT_FALSE(store.add(11, at(3, 3)));
  EXPECT_TRUE(store.add(10, at(4, 4)));
  EXPECT_EQ(store.numResults(), 2);
  EXPECT_EQ(store.lowestScore(), 0);
  EXPECT_EQ(store.highestScore(), 10);
  EXPECT_EQ(scoresOf(store), (std::vector<long>{10, 0}));
}

TEST(ScoreHashing, AddingTracksLowestAndHighest) {
  mvScoreHashing store(20, 5);
  store.add(7, at(0, 0));
  EXPECT_EQ(store.lowestScore(), 7);
  EXPECT_EQ(store.highestScore(), 7);
  store.add(3, at(0, 0));
  store.add(12, at(0, 0));
  store.add(5, at(0, 0));
  EXPECT_EQ(store.lowestScore(), 3);
  EXPECT_EQ(store.highestScore(), 12);
  EXPECT_EQ(store.numResults(), 4);
}

TEST(ScoreHashing, FullStoreEvictsTheNewestLowestEntryAndRefusesTies) {
  mvScoreHashing store(10, 3);
  EXPECT_TRUE(store.add(5, at(1, 0)));
  EXPECT_TRUE(store.add(7, at(2, 0)));
  EXPECT_TRUE(store.add(5, at(3, 0)));
  EXPECT_EQ(store.numResults(), 3);

  // 9 evicts the newer score-5 entry, (3, 0).
  EXPECT_TRUE(store.add(9, at(4, 0)));
  EXPECT_EQ(store.numResults(), 3);
  EXPECT_EQ(store.lowestScore(), 5);
  EXPECT_EQ(store.highestScore(), 9);
  const auto afterNine = walk(store);
  ASSERT_EQ(afterNine.size(), 3u);
  EXPECT_EQ(afterNine[2].second, at(1, 0));

  // A tie with the lowest stored score never displaces anything.
  EXPECT_FALSE(store.add(5, at(5, 0)));
  EXPECT_EQ(store.numResults(), 3);

  // 6 evicts the remaining score-5 entry; lowest becomes 6.
  EXPECT_TRUE(store.add(6, at(6, 0)));
  EXPECT_EQ(store.lowestScore(), 6);
  EXPECT_EQ(store.highestScore(), 9);
  const auto entries = walk(store);
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0], std::make_pair(9L, at(4, 0)));
  EXPECT_EQ(entries[1], std::make_pair(7L, at(2, 0)));
  EXPECT_EQ(entries[2], std::make_pair(6L, at(6, 0)));
}

TEST(ScoreHashing, FullStoreRefusesScoresBelowTheLowest) {
  mvScoreHashing store(10, 2);
  store.add(4, at(0, 0));
  store.add(6, at(0, 0));
  EXPECT_FALSE(store.add(3, at(9, 9)));
  EXPECT_FALSE(store.add(0, at(9, 9)));
  EXPECT_EQ(scoresOf(store), (std::vector<long>{6, 4}));
}

TEST(ScoreHashing, EvictionWalksTheLowestScoreUpPastEmptyBuckets) {
  mvScoreHashing store(20, 3);
  store.add(2, at(0, 0));
  store.add(9, at(0, 0));
  store.add(15, at(0, 0));
  EXPECT_TRUE(store.add(12, at(0, 0)));  // evicts 2; lowest walks 3, 4, ... up to 9
  EXPECT_EQ(store.lowestScore(), 9);
  EXPECT_EQ(store.highestScore(), 15);
  EXPECT_EQ(scoresOf(store), (std::vector<long>{15, 12, 9}));
}

TEST(ScoreHashing, AScoreBelowTheWalkedUpLowestBecomesTheLowest) {
  mvScoreHashing store(20, 2);
  store.add(2, at(0, 0));
  store.add(10, at(0, 0));
  EXPECT_TRUE(store.add(5, at(0, 0)));  // evicts 2, lowest walks to 10, then 5 < 10
  EXPECT_EQ(store.lowestScore(), 5);
  EXPECT_EQ(store.highestScore(), 10);
  EXPECT_EQ(scoresOf(store), (std::vector<long>{10, 5}));
}

TEST(ScoreHashing, IterationGivesEntriesOfOneScoreNewestFirst) {
  mvScoreHashing store(10, 6);
  store.add(4, at(1, 0));
  store.add(8, at(2, 0));
  store.add(4, at(3, 0));
  store.add(4, at(4, 0));
  store.add(8, at(5, 0));
  const auto entries = walk(store);
  ASSERT_EQ(entries.size(), 5u);
  EXPECT_EQ(entries[0], std::make_pair(8L, at(5, 0)));
  EXPECT_EQ(entries[1], std::make_pair(8L, at(2, 0)));
  EXPECT_EQ(entries[2], std::make_pair(4L, at(4, 0)));
  EXPECT_EQ(entries[3], std::make_pair(4L, at(3, 0)));
  EXPECT_EQ(entries[4], std::make_pair(4L, at(1, 0)));
}

TEST(ScoreHashing, NextKeepsReturningMinusOneAfterTheLastEntry) {
  mvScoreHashing store(10, 4);
  store.add(3, at(1, 0));
  store.add(3, at(2, 0));
  mvPair<long> p;
  EXPECT_EQ(store.first(p), 3);
  EXPECT_EQ(store.next(p), 3);
  EXPECT_EQ(p, at(1, 0));
  EXPECT_EQ(store.next(p), -1);
  EXPECT_EQ(p, at(1, 0)) << "an exhausted walk leaves the position alone";
  EXPECT_EQ(store.next(p), -1);
  EXPECT_EQ(store.next(p), -1);
}

TEST(ScoreHashing, NextBeforeFirstReturnsMinusOne) {
  mvScoreHashing store(10, 4);
  store.add(3, at(1, 0));
  mvPair<long> p;
  EXPECT_EQ(store.next(p), -1);
}

TEST(ScoreHashing, FirstRestartsTheWalk) {
  mvScoreHashing store(10, 4);
  store.add(3, at(1, 0));
  store.add(6, at(2, 0));
  mvPair<long> p;
  store.first(p);
  store.next(p);
  EXPECT_EQ(store.next(p), -1);
  EXPECT_EQ(store.first(p), 6);
  EXPECT_EQ(p, at(2, 0));
  EXPECT_EQ(store.next(p), 3);
}

TEST(ScoreHashing, CurrentIsTheEntryLastReturned) {
  mvScoreHashing store(10, 4);
  store.add(3, at(1, 0));
  store.add(6, at(2, 0));
  EXPECT_THROW(store.current(), mvAssertionError);
  mvPair<long> p;
  store.first(p);
  EXPECT_EQ(store.current(), at(2, 0));
  store.next(p);
  EXPECT_EQ(store.current(), at(1, 0));
}

TEST(ScoreHashing, ClearEmptiesTheStoreAndEndsTheWalk) {
  mvScoreHashing store(10, 3);
  store.add(3, at(1, 0));
  store.add(6, at(2, 0));
  mvPair<long> p;
  store.first(p);
  store.clear();
  EXPECT_EQ(store.numResults(), 0);
  EXPECT_EQ(store.lowestScore(), -1);
  EXPECT_EQ(store.highestScore(), -1);
  EXPECT_EQ(store.next(p), -1);
  EXPECT_EQ(store.first(p), -1);
  // The pool is kept: the store fills up again to its capacity.
  EXPECT_TRUE(store.add(1, at(3, 0)));
  EXPECT_TRUE(store.add(2, at(4, 0)));
  EXPECT_TRUE(store.add(3, at(5, 0)));
  EXPECT_EQ(store.numResults(), 3);
  EXPECT_EQ(scoresOf(store), (std::vector<long>{3, 2, 1}));
}

TEST(ScoreHashing, MaximumsWithUnchangedValuesEmptiesTheStore) {
  mvScoreHashing store(10, 3);
  store.add(3, at(1, 0));
  store.add(6, at(2, 0));
  store.maximums(10, 3);
  EXPECT_EQ(store.numResults(), 0);
  EXPECT_EQ(store.highestScore(), -1);
  EXPECT_EQ(store.lowestScore(), -1);
  mvPair<long> p;
  EXPECT_EQ(store.first(p), -1);
  EXPECT_EQ(store.maxScore(), 10);
  EXPECT_EQ(store.maxResults(), 3);
}

TEST(ScoreHashing, MaximumsWithNewValuesResizesAndEmpties) {
  mvScoreHashing store(10, 2);
  store.add(3, at(1, 0));
  store.maximums(100, 4);
  EXPECT_EQ(store.numResults(), 0);
  EXPECT_EQ(store.maxScore(), 100);
  EXPECT_EQ(store.maxResults(), 4);
  EXPECT_TRUE(store.add(100, at(1, 0)));
  EXPECT_TRUE(store.add(50, at(2, 0)));
  EXPECT_TRUE(store.add(60, at(3, 0)));
  EXPECT_TRUE(store.add(70, at(4, 0)));
  EXPECT_EQ(store.numResults(), 4);
  EXPECT_FALSE(store.add(101, at(5, 0)));
  EXPECT_EQ(scoresOf(store), (std::vector<long>{100, 70, 60, 50}));
}

// Capacity 1: the add steps move the limits only by their two tests.
TEST(ScoreHashing, CapacityOneReplacesItsEntryByAHigherScore) {
  mvScoreHashing store(10, 1);
  EXPECT_TRUE(store.add(5, at(1, 0)));
  EXPECT_FALSE(store.add(5, at(2, 0)));
  EXPECT_FALSE(store.add(4, at(2, 0)));
  // Eviction leaves lowest at 6, one above the old score; 6 is not below it, and is above
  // the old highest 5, so highest becomes 6.
  EXPECT_TRUE(store.add(6, at(3, 0)));
  EXPECT_EQ(store.numResults(), 1);
  EXPECT_EQ(store.lowestScore(), 6);
  EXPECT_EQ(store.highestScore(), 6);
  EXPECT_EQ(walk(store), (std::vector<std::pair<long, mvPair<long>>>{{6, at(3, 0)}}));
}

TEST(ScoreHashing, CapacityOneJumpLeavesTheLowestScoreOnAnEmptyBucket) {
  mvScoreHashing store(10, 1);
  store.add(5, at(1, 0));
  EXPECT_TRUE(store.add(8, at(2, 0)));
  EXPECT_EQ(store.lowestScore(), 6) << "one above the evicted score";
  EXPECT_EQ(store.highestScore(), 8);

  // The walk goes down from 8 and stops at the lowest score, 6, whose bucket is empty.
  mvPair<long> p;
  EXPECT_EQ(store.first(p), 8);
  EXPECT_EQ(p, at(2, 0));
  EXPECT_EQ(store.next(p), -1);
  EXPECT_EQ(p, at(2, 0));
  EXPECT_EQ(store.next(p), -1);

  // The stored entry (8) still decides: 7 is refused, 9 replaces it.
  EXPECT_FALSE(store.add(7, at(3, 0)));
  EXPECT_FALSE(store.add(8, at(3, 0)));
  EXPECT_EQ(store.lowestScore(), 6) << "a refused add changes nothing";
  EXPECT_TRUE(store.add(9, at(4, 0)));
  EXPECT_EQ(store.numResults(), 1);
  EXPECT_EQ(store.lowestScore(), 9);
  EXPECT_EQ(store.highestScore(), 9);
  EXPECT_EQ(walk(store), (std::vector<std::pair<long, mvPair<long>>>{{9, at(4, 0)}}));
}

TEST(ScoreHashing, CapacityOneAtTheTopScore) {
  mvScoreHashing store(3, 1);
  store.add(1, at(1, 0));
  EXPECT_TRUE(store.add(3, at(2, 0)));
  EXPECT_FALSE(store.add(3, at(3, 0)));
  EXPECT_FALSE(store.add(4, at(3, 0)));
  EXPECT_EQ(walk(store), (std::vector<std::pair<long, mvPair<long>>>{{3, at(2, 0)}}));
}

TEST(ScoreHashing, ManyAddsNeverExceedTheCapacityAndKeepTheBest) {
  mvScoreHashing store(50, 4);
  for (long i = 0; i < 51; ++i) store.add((i * 37) % 51, at(i, 0));  // each score 0..50 once
  EXPECT_EQ(store.numResults(), 4);
  EXPECT_EQ(scoresOf(store), (std::vector<long>{50, 49, 48, 47}));
}

// The same store with the heavier payloads the point matcher keeps.
struct PoseAndMap {
  mvXform<2> pose;
  std::vector<long> map;
};

TEST(ScoreHashing, GenericStoreKeepsVectorPayloads) {
  mvBasicScoreHashing<PoseAndMap> store(10, 2);
  PoseAndMap a{mvXform<2>(mvMatrix<2>(), mvVector<2>(1, 2)), {0, 1, -1}};
  PoseAndMap b{mvXform<2>(mvMatrix<2>(), mvVector<2>(3, 4)), {2, -1, 0}};
  PoseAndMap c{mvXform<2>(mvMatrix<2>(), mvVector<2>(5, 6)), {1, 0, 2}};
  store.add(3, a);
  store.add(5, b);
  store.add(7, c);  // evicts a
  PoseAndMap out;
  EXPECT_EQ(store.first(out), 7);
  EXPECT_EQ(out.map, c.map);
  EXPECT_EQ(out.pose, c.pose);
  EXPECT_EQ(store.next(out), 5);
  EXPECT_EQ(out.map, b.map);
  EXPECT_EQ(store.next(out), -1);
}

TEST(ScoreHashing, GenericStoreWithAStringPayload) {
  mvBasicScoreHashing<std::string> store(4, 3);
  store.add(2, "two");
  store.add(4, "four");
  store.add(2, "two again");
  std::string s;
  EXPECT_EQ(store.first(s), 4);
  EXPECT_EQ(s, "four");
  EXPECT_EQ(store.next(s), 2);
  EXPECT_EQ(s, "two again");
  EXPECT_EQ(store.next(s), 2);
  EXPECT_EQ(s, "two");
}

}  // namespace
