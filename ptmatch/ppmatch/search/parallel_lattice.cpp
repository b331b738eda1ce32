#include "ppmatch/search/parallel_lattice.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>

#include "mvbase/attention.h"
#include "ppmatch/search/lattice.h"
#include "ppmatch/search/peaks.h"

namespace ptmatch {
namespace detail {
namespace {

// Lattice steps per thread below which another thread does not pay for its start.
constexpr std::size_t kStepsPerThread = 8;

// Steps that may be voted ahead of the replay, per thread.
constexpr long kStepsAheadPerThread = 4;

// How long the caller's thread waits for a vote before it looks for an interruption
// request or a passed deadline.
constexpr std::chrono::milliseconds kWaitSlice(2);

// True when check() on the calling thread would throw (the poll function aside).
bool attentionPending() { return mvAttention::isRequested() || mvAttention::secondsLeft() <= 0.0; }

// A Voter like the given one, for another thread.
Voter voterLike(const Voter& voter, const VoteOptions& options) {
  return Voter(voter.modelPoints, voter.dataToGrid, voter.modelCenter, voter.occupancy,
               voter.window, voter.weights, options);
}

// The shared state of one parallel vote. Every field below mutex_ is guarded by it; a
// step's peak list belongs to the thread that voted it until it is marked done, then to
// the caller's thread until the step is replayed.
class ParallelVote {
 public:
  ParallelVote(const std::vector<LatticeStep>& steps, long threads, Voter& voter,
               const VoteOptions& options, long& minScore, HypothesisStore& store)
      : steps_(steps),
        threads_(threads),
        voter_(voter),
        options_(options),
        minScore_(minScore),
        store_(store),
        ahead_(std::max(2L, kStepsAheadPerThread * threads)),
        lists_(static_cast<std::size_t>(ahead_), PeakList(store.maxResults())),
        done_(static_cast<std::size_t>(ahead_), false),
        floor_(minScore) {}

  ParallelVote(const ParallelVote&) = delete;
  ParallelVote& operator=(const ParallelVote&) = delete;

  ~ParallelVote() { stopAndJoin(); }

  void run() {
    startWorkers();
    for (long r = 0; r < numSteps(); ++r) {
      const bool checked = awaitStep(r);
      if (!checked) mvAttention::check();
      replay(r);
    }
    stopAndJoin();
  }

 private:
  long numSteps() const { return static_cast<long>(steps_.size()); }
  std::size_t slot(long k) const { return static_cast<std::size_t>(k % ahead_); }
  // Whether a step may be handed out now (mutex_ held).
  bool mayHandOut(long limit) const { return next_ < numSteps() && next_ < limit; }

  void startWorkers() {
    for (long t = 1; t < threads_; ++t) {
      try {
        workers_.emplace_back([this] { work(); });
      } catch (const std::system_error&) {
        break;  // the threads started (and the caller's) do the work
      }
    }
  }

  void stopAndJoin() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    changed_.notify_all();
    for (std::thread& worker : workers_) worker.join();
    workers_.clear();
  }

  // Votes step k with voter into its list and marks it done (mutex_ held on entry and on
  // return, released while voting).
  void voteStep(long k, Voter& voter, std::unique_lock<std::mutex>& lock) {
    const long floor = floor_;
    PeakList& list = lists_[slot(k)];
    lock.unlock();
    const LatticeStep& step = steps_[static_cast<std::size_t>(k)];
    voter.voteAndRecord(step.scale, mvDegree(step.rotation), floor, list);
    lock.lock();
    done_[slot(k)] = true;
    changed_.notify_all();
  }

  // A worker: votes the steps it is handed until none are left or the vote stops.
  void work() {
    try {
      Voter voter = voterLike(voter_, options_);
      std::unique_lock<std::mutex> lock(mutex_);
      for (;;) {
        changed_.wait(lock, [this] { return stop_ || mayHandOut(replayed_ + ahead_); });
        if (stop_) return;
        voteStep(next_++, voter, lock);
      }
    } catch (...) {
      std::lock_guard<std::mutex> lock(mutex_);
      if (!failure_) failure_ = std::current_exception();
      stop_ = true;
      changed_.notify_all();
    }
  }

  // Votes steps on the caller's thread, or waits, until step r is done; rethrows what a
  // worker threw. True when a pending interruption made it call mvAttention::check()
  // meanwhile (which came back without throwing, the request having been taken by a
  // worker's vote).
  bool awaitStep(long r) {
    bool checked = false;
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      if (failure_) std::rethrow_exception(failure_);
      if (done_[slot(r)]) return checked;
      if (mayHandOut(r + ahead_)) {
        voteStep(next_++, voter_, lock);
        continue;
      }
      changed_.wait_for(lock, kWaitSlice);
      if (!checked && attentionPending()) {
        lock.unlock();
        checked = true;
        mvAttention::check();
        lock.lock();
      }
    }
  }

  // Offers step r's peaks to the store as its vote in one thread would.
  void replay(long r) {
    PeakList& list = lists_[slot(r)];
    if (store_.numResults() == store_.maxResults()) minScore_ = store_.lowestScore() + 1;
    for (const RecordedPeak& peak : list.peaks()) {
      if (peak.value >= minScore_) store_.add(peak.value, peak.hypothesis);
    }
    list.clear();
    std::lock_guard<std::mutex> lock(mutex_);
    done_[slot(r)] = false;
    ++replayed_;
    floor_ = minScore_;
    changed_.notify_all();
  }

  const std::vector<LatticeStep>& steps_;
  const long threads_;
  Voter& voter_;
  const VoteOptions options_;
  long& minScore_;
  HypothesisStore& store_;
  const long ahead_;
  std::vector<PeakList> lists_;
  std::vector<std::thread> workers_;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<bool> done_;
  long next_ = 0;
  long replayed_ = 0;
  long floor_;
  bool stop_ = false;
  std::exception_ptr failure_;
};

}  // namespace

std::vector<LatticeStep> coarseLatticeSteps(const mvPointMatcherRunParams& params, double gridSize,
                                            const mv_PointMatcherModel& model) {
  std::vector<LatticeStep> steps;
  walkLattice(scaleLattice(params.scaleUncertainty(), gridSize, model), [&](double scale) {
    walkLattice(rotationLattice(params.rotationUncertainty(), gridSize, model, scale),
                [&](double rotation) {
                  mvAttention::pace(1);
                  steps.push_back(LatticeStep{scale, rotation});
                });
  });
  return steps;
}

std::size_t coarseLatticeStepsUpTo(const mvPointMatcherRunParams& params, double gridSize,
                                   const mv_PointMatcherModel& model, std::size_t limit) {
  std::size_t steps = 0;
  walkLatticeWhile(scaleLattice(params.scaleUncertainty(), gridSize, model), [&](double scale) {
    walkLatticeWhile(rotationLattice(params.rotationUncertainty(), gridSize, model, scale),
                     [&](double) {
                       mvAttention::pace(1);
                       return ++steps < limit;
                     });
    return steps < limit;
  });
  return steps;
}

long coarseVoteThreads(long requested, std::size_t steps) {
  const auto worthwhile = static_cast<long>(steps / kStepsPerThread);
  return std::max(1L, std::min(requested, worthwhile));
}

void voteStepsInParallel(const std::vector<LatticeStep>& steps, long threads, Voter& voter,
                         const VoteOptions& options, long& minScore, HypothesisStore& store) {
  ParallelVote vote(steps, threads, voter, options, minScore, store);
  vote.run();
}

}  // namespace detail
}  // namespace ptmatch
