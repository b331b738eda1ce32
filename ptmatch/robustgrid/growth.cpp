// The growth: nodes visited best supported first, each taking the free point nearest its
// prediction inside a gate that narrows to the robust noise level of the residuals.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <queue>
#include <utility>

#include "mvbase/attention.h"
#include "robustgrid/internal.h"

namespace ptmatch::detail::robustgrid {

namespace {

/// The first gate, in local pitches, and its widest and narrowest.
constexpr double kFirstGate = 0.3;
constexpr double kWidestGate = 0.45;
constexpr double kNarrowestGate = 0.12;
/// Residuals after which the gate follows the noise, and the gate in noise levels.
constexpr long kResidualsForNoise = 20;
constexpr double kGateSigmas = 4.5;
/// Empty nodes in a row that the growth steps over.
constexpr long kMaxGap = 2;
/// More assigned neighbours than at its last try that make a node worth another try.
constexpr long kRetrySupport = 2;
/// The median distance of a 2-D normal error over its per-axis sigma, sqrt(2 ln 2).
constexpr double kMedianOverSigma = 1.1774100225154747;

/// A node waiting to be visited: more assigned neighbours first, then fewer empty nodes
/// stepped over, then the order of pushing.
struct Candidate {
  long support;
  long gap;
  std::uint64_t order;
  long p;
  long q;
  long dp;  ///< the step by which it was reached
  long dq;
  // std::priority_queue pops the largest, so the best candidate compares largest.
  bool operator<(const Candidate& o) const {
    if (support != o.support) return support < o.support;
    if (gap != o.gap) return gap > o.gap;
    return order > o.order;
  }
};

class Grower {
 public:
  Grower(const PointIndex& index, const Seed& seed, Growth& growth)
      : index_(index), seed_(seed), growth_(growth) {}

  void run() {
    assign_(0, 0, seed_.point, 0.0);
    while (!queue_.empty()) {
      mvAttention::check();
      const Candidate c = queue_.top();
      queue_.pop();
      visit_(c);
    }
  }

 private:
  void visit_(const Candidate& c) {
    if (growth_.nodes.at(c.p, c.q) != kNone) return;
    const long support = growth_.nodes.support(c.p, c.q);
    // A node tried before is tried again only with clearly more support, or reached with
    // fewer empty nodes stepped over.
    const long before = growth_.nodes.triedSupport(c.p, c.q);
    if (before >= 0 && support < before + kRetrySupport &&
        growth_.nodes.triedGap(c.p, c.q) <= c.gap) {
      return;
    }
    growth_.nodes.tried(c.p, c.q, support, c.gap);

    Prediction prediction;
    if (!predictNode(growth_, index_.points(), seed_.local, c.p, c.q, sigma_, prediction)) return;
    const long point =
        index_.nearestFree(prediction.position, gate_(prediction.pitch), &growth_.taken);
    if (point != kNone) {
      const double residual =
          (index_.points()[static_cast<std::size_t>(point)] - prediction.position).len();
      assign_(c.p, c.q, point, residual);
    } else if (c.gap < kMaxGap) {
      // An empty node passes the growth on straight ahead only, across a hole or a row.
      push_(c.p + c.dp, c.q + c.dq, c.dp, c.dq, c.gap + 1);
    }
  }

  double gate_(double pitch) {
    const long n = static_cast<long>(residuals_.size());
    if (n < kResidualsForNoise) return kFirstGate * pitch;
    // The noise level is renewed each time the residuals have grown by a tenth.
    if (n >= sigmaCount_ + std::max(1L, sigmaCount_ / 10)) {
      std::vector<double> r(residuals_);
      std::nth_element(r.begin(), r.begin() + n / 2, r.end());
      sigma_ = r[static_cast<std::size_t>(n / 2)] / kMedianOverSigma;
      sigmaCount_ = n;
    }
    return std::min(kWidestGate * pitch, std::max(kNarrowestGate * pitch, kGateSigmas * sigma_));
  }

  void assign_(long p, long q, long point, double residual) {
    growth_.nodes.set(p, q, point);
    growth_.nodeP[static_cast<std::size_t>(point)] = p;
    growth_.nodeQ[static_cast<std::size_t>(point)] = q;
    growth_.taken[static_cast<std::size_t>(point)] = 1;
    ++growth_.count;
    if (p != 0 || q != 0) residuals_.push_back(residual);
    pushAround_(p, q, 0);
  }

  void pushAround_(long p, long q, long gap) {
    static constexpr long kAround[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
    for (const auto& d : kAround) push_(p + d[0], q + d[1], d[0], d[1], gap);
  }

  void push_(long p, long q, long dp, long dq, long gap) {
    if (!growth_.nodes.inside(p, q) || growth_.nodes.at(p, q) != kNone) return;
    queue_.push({growth_.nodes.support(p, q), gap, order_++, p, q, dp, dq});
  }

  const PointIndex& index_;
  const Seed& seed_;
  Growth& growth_;
  std::priority_queue<Candidate> queue_;
  std::vector<double> residuals_;
  std::uint64_t order_ = 0;
  double sigma_ = 0.0;   ///< robust noise level of the residuals
  long sigmaCount_ = 0;  ///< residuals behind sigma_
};

}  // namespace

void grow(const PointIndex& index, const Seed& seed, Growth& growth) {
  Grower(index, seed, growth).run();
}

}  // namespace ptmatch::detail::robustgrid
