// Streaming connected components over runs of mask pels: the rows are fed one at a time,
// runs of the same class that touch (8-connected) are joined by union-find, and each
// component is handed out as soon as a row no longer continues it.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace ptmatch::detail::dots {

/// What the labelling knows of a finished component: its class, its pels' count, sums and
/// extent, and one of its pels.
struct Blob {
  int cls = 0;
  double n = 0.0;
  double sx = 0.0;
  double sy = 0.0;
  double sxx = 0.0;
  double syy = 0.0;
  double sxy = 0.0;
  long x0 = 0;
  long x1 = 0;
  long y0 = 0;
  long y1 = 0;
  long seedX = 0;
  long seedY = 0;
};

/// Joins the runs of consecutive rows into components; finished components go to the sink.
class RunLabeller {
 public:
  using Sink = std::function<void(const Blob&)>;
  explicit RunLabeller(Sink sink) : sink_(std::move(sink)) {}

  /// Takes row y of the mask (class per pel, 0 for background; width pels).
  void addRow(const std::uint8_t* mask, long width, long y);
  /// Hands out every component still open.
  void finish();

 private:
  struct Run {
    long x0;
    long x1;
    int cls;
    std::uint32_t label;
  };

  std::uint32_t newSlot();
  std::uint32_t find(std::uint32_t s);
  std::uint32_t unite(std::uint32_t a, std::uint32_t b);
  void addRunStats(std::uint32_t root, const Run& run, long y);
  void extractRuns(const std::uint8_t* mask, long width);
  void connectRuns(long y);
  void closeFinished(long y);

  Sink sink_;
  std::vector<Run> previous_;
  std::vector<Run> current_;
  std::vector<Blob> blobs_;
  std::vector<std::uint32_t> parent_;
  std::vector<long> lastRow_;
  std::vector<std::uint32_t> used_;
  std::vector<std::uint32_t> free_;
  std::vector<std::uint8_t> live_;
};

}  // namespace ptmatch::detail::dots
