// A bounded store of the best-scoring candidates of a search whose scores are small
// whole numbers. Scores index an array of buckets directly, so adding, evicting and
// iterating need no sorting.
#pragma once

#include <memory>

#include "mvbase/exception.h"
#include "mvbase/geometry.h"

/// Keeps at most maxResults entries with scores in 0..maxScore and hands them back from
/// the highest score down; within one score, newest first. When full, a new entry evicts
/// the newest entry of the lowest score, and a score not above the lowest stored one is
/// refused. Nothing is allocated after construction or maximums(). Not copyable.
///
/// Payload is the entry carried with each score; it must be default-constructible and
/// copy-assignable. mvScoreHashing is the form whose payload is a position.
template <typename Payload>
class mvBasicScoreHashing {
 public:
  /// Both limits must be at least 1 (mvAssertionError otherwise).
  mvBasicScoreHashing(long maxScore, long maxResults) { maximums(maxScore, maxResults); }
  mvBasicScoreHashing(const mvBasicScoreHashing&) = delete;
  mvBasicScoreHashing& operator=(const mvBasicScoreHashing&) = delete;

  /// Sets new limits (both at least 1) and empties the store; an array is reallocated only
  /// when its limit changed.
  void maximums(long maxScore, long maxResults) {
    mvAssert(maxScore >= 1 && maxResults >= 1, "ptmatch/gridcorr", __LINE__);
    if (maxScore != maxScore_) {
      heads_.reset(new Node*[static_cast<std::size_t>(maxScore) + 1]);
      maxScore_ = maxScore;
    }
    if (maxResults != maxResults_) {
      pool_.reset(new Node[static_cast<std::size_t>(maxResults)]);
      maxResults_ = maxResults;
    }
    clear();
  }

  /// Forgets every entry; the pool is kept.
  void clear() {
    numResults_ = 0;
    lowest_ = -1;
    highest_ = -1;
    if (heads_) {
      for (long s = 0; s <= maxScore_; ++s) heads_[s] = nullptr;
    }
    cursor_ = nullptr;
    iterScore_ = -1;
  }

  /// Adds an entry; returns false, changing nothing, when the score lies outside
  /// 0..maxScore or the store is full and the score is not above the lowest one.
  bool add(long score, const Payload& payload) {
    if (score < 0 || score > maxScore_) return false;
    Node* node = nullptr;
    if (numResults_ < maxResults_) {
      if (numResults_ == 0) {
        lowest_ = highest_ = score;
      } else if (score < lowest_) {
        lowest_ = score;
      } else if (score > highest_) {
        highest_ = score;
      }
      node = &pool_[numResults_];
    } else {
      if (score <= lowest_) return false;
      node = evictLowest_();
      if (score < lowest_) {
        lowest_ = score;
      } else if (score > highest_) {
        highest_ = score;
      }
      --numResults_;
    }
    node->payload = payload;
    node->next = heads_[score];
    heads_[score] = node;
    ++numResults_;
    return true;
  }

  /// The highest score, its newest entry copied into payload; -1 (payload untouched) when
  /// empty.
  long first(Payload& payload) {
    if (numResults_ < 1) return -1;
    cursor_ = heads_[highest_];
    iterScore_ = highest_;
    if (cursor_ == nullptr) return -1;  // stale highest score after a capacity-1 eviction
    payload = cursor_->payload;
    return iterScore_;
  }

  /// The following entry in descending score order; -1 when the walk is over.
  long next(Payload& payload) {
    if (cursor_ == nullptr) return -1;
    if (cursor_->next != nullptr) {
      cursor_ = cursor_->next;
    } else {
      if (iterScore_ <= lowest_) return -1;
      do {
        --iterScore_;
      } while (iterScore_ > lowest_ && heads_[iterScore_] == nullptr);
      if (heads_[iterScore_] == nullptr) return -1;  // the walk stopped on an empty bucket
      cursor_ = heads_[iterScore_];
    }
    payload = cursor_->payload;
    return iterScore_;
  }

  /// The entry last returned by first() or next(), without copying it. Only valid after
  /// one of them returned a score.
  const Payload& current() const { return cursor_->payload; }

  long highestScore() const { return highest_; }
  long lowestScore() const { return lowest_; }
  long numResults() const { return numResults_; }
  long maxResults() const { return maxResults_; }
  long maxScore() const { return maxScore_; }

 private:
  struct Node {
    Payload payload{};
    Node* next = nullptr;
  };

  // Unlinks the newest entry of the lowest bucket and walks the lowest score up past
  // buckets left empty.
  Node* evictLowest_() {
    Node* victim = heads_[lowest_];
    if (victim->next != nullptr) {
      heads_[lowest_] = victim->next;
    } else {
      heads_[lowest_] = nullptr;
      ++lowest_;
      while (lowest_ < highest_ && heads_[lowest_] == nullptr) ++lowest_;
    }
    return victim;
  }

  long maxResults_ = 0;
  long maxScore_ = 0;
  long numResults_ = 0;
  Node* cursor_ = nullptr;
  long iterScore_ = -1;
  std::unique_ptr<Node*[]> heads_;
  std::unique_ptr<Node[]> pool_;
  long highest_ = -1;
  long lowest_ = -1;
};

/// The best-score store with a position as its entry.
using mvScoreHashing = mvBasicScoreHashing<mvPair<long>>;
