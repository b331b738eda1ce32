// A bounded store of the best-scoring candidates of a search whose scores are small
// whole numbers. Scores index an array of buckets directly, so adding, evicting and
// iterating need no sorting.
#pragma once

#include <deque>
#include <memory>
#include <type_traits>
#include <utility>

#include "mvbase/exception.h"
#include "mvbase/geometry.h"

/// Keeps at most maxResults entries with scores in 0..maxScore and hands them back from
/// the highest score down; within one score, newest first. When full, a new entry evicts
/// the newest entry of the lowest score, and a score not above the lowest stored one is
/// refused. The entries' storage grows as entries are added, up to maxResults, so a large
/// capacity costs nothing until it is used; it is kept by clear(). Not copyable.
///
/// Payload is the entry carried with each score; it must be default-constructible and
/// copy-assignable. A payload whose copy may throw (one holding a vector) is copied before
/// the store changes, so a failed copy leaves the store as it was. mvScoreHashing is the
/// form whose payload is a position.
///
/// A store of capacity 1 keeps the limits exactly as the add steps move them: after its
/// entry is replaced by a higher score the lowest score may lie below that entry, on an
/// empty bucket. A full store then compares a new score with the lowest score that holds an
/// entry, and an iteration that reaches the empty lowest bucket ends there (next() gives
/// -1).
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
    // Both arrays are allocated before either is replaced, so a failed allocation leaves
    // the store as it was.
    std::unique_ptr<Node*[]> heads;
    if (maxScore != maxScore_) heads.reset(new Node*[static_cast<std::size_t>(maxScore) + 1]);
    if (heads) {
      heads_ = std::move(heads);
      maxScore_ = maxScore;
    }
    if (maxResults != maxResults_) {
      pool_.clear();
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
    if (numResults_ >= maxResults_ && score <= lowestOccupied_()) return false;
    if constexpr (std::is_nothrow_move_assignable<Payload>::value &&
                  !std::is_nothrow_copy_assignable<Payload>::value) {
      // Copy first: a copy that throws then leaves the store untouched.
      Payload staged(payload);
      link_(score)->payload = std::move(staged);
    } else {
      link_(score)->payload = payload;
    }
    return true;
  }

  /// The highest score, its newest entry copied into payload; -1 (payload untouched) when
  /// empty.
  long first(Payload& payload) {
    if (numResults_ < 1) return -1;
    cursor_ = heads_[highest_];
    iterScore_ = highest_;
    if (cursor_ == nullptr) return -1;  // defensive: the highest bucket always holds an entry
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
  const Payload& current() const {
    mvAssert(cursor_ != nullptr, "ptmatch/gridcorr", __LINE__);
    return cursor_->payload;
  }

  /** @name Counts */
  ///@{
  /// The highest and the lowest stored score (-1 when empty), the entries held, the capacity and
  /// the highest score that may be stored.
  long highestScore() const { return highest_; }
  long lowestScore() const { return lowest_; }
  long numResults() const { return numResults_; }
  long maxResults() const { return maxResults_; }
  long maxScore() const { return maxScore_; }
  ///@}

 private:
  struct Node {
    Payload payload{};
    Node* next = nullptr;
  };

  // Takes the node for a new entry of an accepted score (a free pool node, or the evicted
  // entry when full), updates the lowest and highest scores and pushes the node on the
  // head of the score's bucket.
  Node* link_(long score) {
    Node* node = nullptr;
    // Grown before anything changes, so a failed allocation leaves the store as it was;
    // a deque keeps the nodes in place as it grows.
    if (numResults_ < maxResults_ && numResults_ == static_cast<long>(pool_.size())) {
      pool_.emplace_back();
    }
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
      lowest_ = lowestOccupied_();
      node = evictLowest_();
      // Only these two tests move the limits, so with capacity 1 the lowest score may stay
      // one above the evicted score, below the new entry (see lowestOccupied_).
      if (score < lowest_) {
        lowest_ = score;
      } else if (score > highest_) {
        highest_ = score;
      }
      --numResults_;
    }
    node->next = heads_[score];
    heads_[score] = node;
    ++numResults_;
    return node;
  }

  // Unlinks the newest entry of the lowest bucket and walks the lowest score up past
  // buckets left empty. The caller has moved lowest onto a non-empty bucket.
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

  // The lowest score that holds an entry. It is the lowest score itself, except in a full
  // store of capacity 1 whose only entry was replaced by a higher score: there the lowest
  // score was left one above the evicted score, below the new entry, on an empty bucket.
  long lowestOccupied_() const {
    long score = lowest_;
    while (score < highest_ && heads_[score] == nullptr) ++score;
    return score;
  }

  long maxResults_ = 0;
  long maxScore_ = 0;
  long numResults_ = 0;
  Node* cursor_ = nullptr;
  long iterScore_ = -1;
  std::unique_ptr<Node*[]> heads_;
  std::deque<Node> pool_;
  long highest_ = -1;
  long lowest_ = -1;
};

/// The best-score store with a position as its entry.
using mvScoreHashing = mvBasicScoreHashing<mvPair<long>>;
