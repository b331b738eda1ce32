// The inner loops of the scatter vote, with SIMD: SSE2 (every x86-64 processor has it)
// and AVX2 versions of the dense loops, chosen at run time where the processor has AVX2.
// Every kernel computes exactly what its plain scalar loop computes (16-bit sums wrap
// modulo 65536), so the choice never changes a result.
#pragma once

#include <cstdint>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define PTMATCH_VOTE_SSE2 1
#endif

namespace ptmatch {
namespace detail {

/// Which kernels run: the best the processor has, or the SSE2 ones only. Runs use eBest;
/// the differential tests pick eBaseline to test the SSE2 kernels on processors that have
/// AVX2 too.
enum class VoteKernels { eBest, eBaseline };

/// Cells handled per block by the dense kernels; they read and write whole blocks, so
/// their buffers have this many cells of room after each row.
constexpr long kVoteBlock = 16;

/// A window of rows to add: rows rows of blocks x kVoteBlock cells; row r of the
/// accumulator starts at acc + r x accStride, its occupancy row (cells 0 or 1) at
/// occupancy + r x occupancyStride.
struct WindowRows {
  std::uint16_t* acc;
  long accStride;
  const unsigned char* occupancy;
  long occupancyStride;
  long rows;
  long blocks;
};

/// Adds weight x occupancy to every cell of the window's rows, modulo 2^16.
void addWindowRows(const WindowRows& w, std::uint16_t weight, VoteKernels kernels);

/// The first of rows first..last (row v starting at row0 + v x stride) in which one of the
/// blocks x kVoteBlock values exceeds threshold; last + 1 when none does.
long nextExceedingRow(const std::int16_t* row0, long stride, long first, long last, long blocks,
                      std::int16_t threshold, VoteKernels kernels);

/// Adds 3 x 3 box sums of a centre accumulator to rows of an accumulator: accumulator row
/// r (at acc + r x accStride) gets, in each of its blocks x kVoteBlock cells u, the sum of
/// the centre cells u - 1 .. u + 1 of centre rows r - 1 .. r + 1 (centre row c at centres
/// + c x centreStride, for c = -1 .. rows), modulo 2^16; with assign set, the accumulator
/// cells are set to the sums instead (what they held before does not matter). The centre
/// cells read (u = -1 .. blocks x kVoteBlock of every centre row) are zero afterwards, and
/// so may be up to 7 cells after them.
/// scratch holds 3 rows of scratchStride >= blocks x kVoteBlock cells. rowMax[r] receives
/// the largest value of accumulator row r's blocks afterwards (as signed 16-bit values).
struct BoxSums {
  std::uint16_t* acc;
  long accStride;
  std::uint16_t* centres;
  long centreStride;
  std::uint16_t* scratch;
  long scratchStride;
  long rows;
  long blocks;
  bool assign;
  std::int16_t* rowMax;
};
void addBoxSums(const BoxSums& b, VoteKernels kernels);

/// The addends of one occupied piece of 1 to 4 cells, by length: lanes 0 .. length - 1
/// hold the weight, the others 0.
struct PieceAddends {
#ifdef PTMATCH_VOTE_SSE2
  __m128i lanes[5];
#else
  std::uint16_t lanes[5][4];
#endif
  explicit PieceAddends(std::uint16_t weight) {
    for (int length = 0; length <= 4; ++length) {
#ifdef PTMATCH_VOTE_SSE2
      const auto w = static_cast<short>(weight);
      lanes[length] = _mm_setr_epi16(length > 0 ? w : 0, length > 1 ? w : 0, length > 2 ? w : 0,
                                     length > 3 ? w : 0, 0, 0, 0, 0);
#else
      for (int lane = 0; lane < 4; ++lane) lanes[length][lane] = lane < length ? weight : 0;
#endif
    }
  }
};

/// Adds a piece's addends to the 4 accumulator cells from cells on, modulo 2^16 each.
inline void addPiece(std::uint16_t* cells, const PieceAddends& addends, unsigned length) {
#ifdef PTMATCH_VOTE_SSE2
  __m128i* at = reinterpret_cast<__m128i*>(cells);
  _mm_storel_epi64(at, _mm_add_epi16(_mm_loadl_epi64(at), addends.lanes[length]));
#else
  for (int lane = 0; lane < 4; ++lane) {
    cells[lane] = static_cast<std::uint16_t>(cells[lane] + addends.lanes[length][lane]);
  }
#endif
}

}  // namespace detail
}  // namespace ptmatch
