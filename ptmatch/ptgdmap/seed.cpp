// The seed: the record whose chain of forward links is longest. A record's neighbour
// score is the number of records reached from it through accepted links, each record
// counted by the first chain that reaches it. The chains can run through the whole grid,
// so the depth-first walk keeps its own stack instead of recursing.
#include <vector>

#include "mvbase/attention.h"
#include "ptgdmap/internal.h"

namespace ptmatch::detail::ptgdmap {
namespace {

/// True when a link's direction lies within tau of the reference direction, forward
/// only: a link pointing the opposite way is not accepted.
bool withinTau(const GridMapContext& ctx, double direction, double reference) {
  double diff = direction - reference;
  if (diff < 0.0) diff += 360.0;
  return diff <= ctx.tau || diff >= ctx.tauComplement;
}

/// True when a link follows the grid: along the rotated second axis when the first is
/// unknown, along the first when the second is unknown, else along the first or, failing
/// that, the second.
bool followsGrid(const GridMapContext& ctx, double direction) {
  if (ctx.xv.isNull()) return withinTau(ctx, direction, ctx.alphaY);
  if (ctx.yv.isNull()) return withinTau(ctx, direction, ctx.alphaX);
  return withinTau(ctx, direction, ctx.alphaX) || withinTau(ctx, direction, ctx.alphaY);
}

/// One record being scored: the next link to look at and the score so far.
struct ScoreFrame {
  long record;
  long nextLink;
  long score;
};

/// Scores root and every record first reached from it, in the order of the recursive
/// definition: mark the record visited; for each link in order whose neighbour is still
/// unvisited and whose direction follows the grid, mark the link used and add 1 plus the
/// neighbour's own score. Each record keeps its score.
long scoreChain(GridMapContext& ctx, long root, std::vector<ScoreFrame>& stack) {
  stack.clear();
  ctx.record(root).visited = true;
  stack.push_back(ScoreFrame{root, 0, 0});
  long rootScore = 0;
  while (!stack.empty()) {
    ScoreFrame& top = stack.back();
    GridMapRecord& rec = ctx.record(top.record);
    if (top.nextLink < rec.numLinks) {
      GridMapLink& link = rec.links[top.nextLink++];
      GridMapRecord& neighbour = ctx.record(link.neighbour);
      if (!neighbour.visited && followsGrid(ctx, link.direction)) {
        link.used = true;
        neighbour.visited = true;
        stack.push_back(ScoreFrame{link.neighbour, 0, 0});  // top is not used past here
      }
      continue;
    }
    rec.score = top.score;
    const long finished = top.score;
    stack.pop_back();
    if (stack.empty()) {
      rootScore = finished;
    } else {
      stack.back().score += 1 + finished;
    }
  }
  return rootScore;
}

}  // namespace

long chooseSeed(GridMapContext& ctx) {
  long seed = kNoRecord;
  long best = 0;
  std::vector<ScoreFrame> stack;
  ctx.forEachRecordInBucketOrder([&](long i) {
    mvAttention::pace(16);
    if (ctx.record(i).visited) return;
    // A record reached from an earlier one scores less than that one, so only the first
    // records of chains can win; ties keep the earlier record.
    const long score = scoreChain(ctx, i, stack);
    if (score > best) {
      best = score;
      seed = i;
    }
  });
  return seed;
}

}  // namespace ptmatch::detail::ptgdmap
