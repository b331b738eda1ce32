#include "ppmatch/search/vote_kernels.h"

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

PTMATCH_ALWAYS_INLINE bool rowExceedsBody(const std::int16_t* row, long blocks,
                                          std::int16_t threshold) {
  // An or over the comparisons, without an early exit, vectorises to whole registers.
  int exceeds = 0;
  for (long i = 0; i < blocks * kVoteBlock; ++i) exceeds |= row[i] > threshold ? 1 : 0;
  return exceeds != 0;
}

void addWindowRowsBaseline(const WindowRows& w, std::uint16_t weight) {
  addWindowRowsBody(w, weight);
}

bool rowExceedsBaseline(const std::int16_t* row, long blocks, std::int16_t threshold) {
  return rowExceedsBody(row, blocks, threshold);
}

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#define PTMATCH_VOTE_AVX2 1

__attribute__((target("avx2"))) void addWindowRowsAvx2(const WindowRows& w,
                                                       std::uint16_t weight) {
  addWindowRowsBody(w, weight);
}

__attribute__((target("avx2"))) bool rowExceedsAvx2(const std::int16_t* row, long blocks,
                                                    std::int16_t threshold) {
  return rowExceedsBody(row, blocks, threshold);
}

bool hasAvx2() {
  static const bool has = __builtin_cpu_supports("avx2") != 0;
  return has;
}
#endif

}  // namespace

void addWindowRows(const WindowRows& w, std::uint16_t weight) {
#ifdef PTMATCH_VOTE_AVX2
  if (hasAvx2()) return addWindowRowsAvx2(w, weight);
#endif
  addWindowRowsBaseline(w, weight);
}

bool rowExceeds(const std::int16_t* row, long blocks, std::int16_t threshold) {
#ifdef PTMATCH_VOTE_AVX2
  if (hasAvx2()) return rowExceedsAvx2(row, blocks, threshold);
#endif
  return rowExceedsBaseline(row, blocks, threshold);
}

}  // namespace detail
}  // namespace ptmatch
