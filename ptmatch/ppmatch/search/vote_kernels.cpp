#include "ppmatch/search/vote_kernels.h"

#include <limits>

namespace ptmatch {
namespace detail {
namespace {

// The loop bodies are written plainly, in whole blocks, so that the compiler vectorises
// them for the instruction set of the function they are inlined into: once an SSE2
// function, once an AVX2 one.
#if defined(__GNUC__)
#define PTMATCH_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define PTMATCH_ALWAYS_INLINE inline
#endif

PTMATCH_ALWAYS_INLINE void addWindowRowsBody(const WindowRows& w, std::uint16_t weight) {
  const long cells = w.blocks * kVoteBlock;
  for (long r = 0; r < w.rows; ++r) {
    std::uint16_t* acc = w.acc + r * w.accStride;
    const unsigned char* occupancy = w.occupancy + r * w.occupancyStride;
    if (weight == 1) {
      for (long i = 0; i < cells; ++i) acc[i] = static_cast<std::uint16_t>(acc[i] + occupancy[i]);
    } else {
      for (long i = 0; i < cells; ++i) {
        acc[i] = static_cast<std::uint16_t>(acc[i] + occupancy[i] * weight);
      }
    }
  }
}

PTMATCH_ALWAYS_INLINE long nextExceedingRowBody(const std::int16_t* row0, long stride, long first,
                                                long last, long blocks, std::int16_t threshold) {
  for (long v = first; v <= last; ++v) {
    const std::int16_t* row = row0 + v * stride;
    // A maximum over the row, without an early exit, vectorises to whole registers.
    std::int16_t highest = std::numeric_limits<std::int16_t>::min();
    for (long i = 0; i < blocks * kVoteBlock; ++i) highest = row[i] > highest ? row[i] : highest;
    if (highest > threshold) return v;
  }
  return last + 1;
}

// Zeroes cells from..from + count - 1 and up to 7 cells after them. Explicit stores, since
// a plain loop becomes a library call, which costs more than these short rows.
PTMATCH_ALWAYS_INLINE void clearCells(std::uint16_t* from, long count) {
#ifdef PTMATCH_VOTE_SSE2
  for (long i = 0; i < count; i += 8) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(from + i), _mm_setzero_si128());
  }
#else
  for (long i = 0; i < count; ++i) from[i] = 0;
#endif
}

// Horizontal 3-sums of one centre row into out; the centre cells read are cleared (and up
// to 7 after them, which lie in the row's padding).
PTMATCH_ALWAYS_INLINE void takeRowTripleSums(std::uint16_t* centres, long cells,
                                             std::uint16_t* out) {
  for (long i = 0; i < cells; ++i) {
    out[i] = static_cast<std::uint16_t>(centres[i - 1] + centres[i] + centres[i + 1]);
  }
  clearCells(centres - 1, cells + 2);
}

// Row r of the box sums: acc (set or added to) from the horizontal sums of the centre rows
// above, at and below; returns the row's largest value.
template <bool kAssign>
PTMATCH_ALWAYS_INLINE std::int16_t boxRow(std::uint16_t* acc, const std::uint16_t* above,
                                          const std::uint16_t* at, const std::uint16_t* below,
                                          long cells) {
  std::int16_t highest = std::numeric_limits<std::int16_t>::min();
  for (long i = 0; i < cells; ++i) {
    const auto sum =
        static_cast<std::uint16_t>((kAssign ? 0 : acc[i]) + above[i] + at[i] + below[i]);
    acc[i] = sum;
    const auto value = static_cast<std::int16_t>(sum);  // modulo 2^16
    highest = value > highest ? value : highest;
  }
  return highest;
}

PTMATCH_ALWAYS_INLINE void addBoxSumsBody(const BoxSums& b) {
  // Everything in locals: the stores below could otherwise alias the parameter block, and
  // every row would load it again.
  const long cells = b.blocks * kVoteBlock;
  const long rows = b.rows;
  const long accStride = b.accStride;
  const long centreStride = b.centreStride;
  const bool assign = b.assign;
  std::uint16_t* const acc = b.acc;
  std::uint16_t* const centres = b.centres;
  std::int16_t* const rowMax = b.rowMax;
  // Horizontal sums of the centre rows above, at and below the accumulator row at hand.
  std::uint16_t* above = b.scratch;
  std::uint16_t* at = b.scratch + b.scratchStride;
  std::uint16_t* below = b.scratch + 2 * b.scratchStride;
  takeRowTripleSums(centres - centreStride, cells, above);
  takeRowTripleSums(centres, cells, at);
  for (long r = 0; r < rows; ++r) {
    takeRowTripleSums(centres + (r + 1) * centreStride, cells, below);
    std::uint16_t* row = acc + r * accStride;
    // The row's maximum is taken on the way, so that the peak scan need not read the row.
    rowMax[r] = assign ? boxRow<true>(row, above, at, below, cells)
                       : boxRow<false>(row, above, at, below, cells);
    std::uint16_t* const free = above;
    above = at;
    at = below;
    below = free;
  }
}

void addWindowRowsBaseline(const WindowRows& w, std::uint16_t weight) {
  addWindowRowsBody(w, weight);
}

long nextExceedingRowBaseline(const std::int16_t* row0, long stride, long first, long last,
                              long blocks, std::int16_t threshold) {
  return nextExceedingRowBody(row0, stride, first, last, blocks, threshold);
}

void addBoxSumsBaseline(const BoxSums& b) { addBoxSumsBody(b); }

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#define PTMATCH_VOTE_AVX2 1

__attribute__((target("avx2"))) void addWindowRowsAvx2(const WindowRows& w, std::uint16_t weight) {
  addWindowRowsBody(w, weight);
}

__attribute__((target("avx2"))) long nextExceedingRowAvx2(const std::int16_t* row0, long stride,
                                                          long first, long last, long blocks,
                                                          std::int16_t threshold) {
  return nextExceedingRowBody(row0, stride, first, last, blocks, threshold);
}

__attribute__((target("avx2"))) void addBoxSumsAvx2(const BoxSums& b) { addBoxSumsBody(b); }

bool hasAvx2() {
  static const bool has = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
  }();
  return has;
}
#endif

#ifdef PTMATCH_VOTE_AVX2
bool useAvx2(VoteKernels kernels) { return kernels == VoteKernels::eBest && hasAvx2(); }
#endif

}  // namespace

void addWindowRows(const WindowRows& w, std::uint16_t weight, VoteKernels kernels) {
#ifdef PTMATCH_VOTE_AVX2
  if (useAvx2(kernels)) return addWindowRowsAvx2(w, weight);
#endif
  addWindowRowsBaseline(w, weight);
}

long nextExceedingRow(const std::int16_t* row0, long stride, long first, long last, long blocks,
                      std::int16_t threshold, VoteKernels kernels) {
#ifdef PTMATCH_VOTE_AVX2
  if (useAvx2(kernels)) return nextExceedingRowAvx2(row0, stride, first, last, blocks, threshold);
#endif
  return nextExceedingRowBaseline(row0, stride, first, last, blocks, threshold);
}

void addBoxSums(const BoxSums& b, VoteKernels kernels) {
#ifdef PTMATCH_VOTE_AVX2
  if (useAvx2(kernels)) return addBoxSumsAvx2(b);
#endif
  addBoxSumsBaseline(b);
}

}  // namespace detail
}  // namespace ptmatch
