// Least-squares fit of a 2-D transform to point pairs.
#pragma once

#include <vector>

#include "mvbase/exception.h"
#include "mvbase/export.h"
#include "mvbase/geometry.h"

/// Accumulates point pairs and fits the transform that carries each pair's second point
/// onto its first point, in the least-squares sense.
class MVBASE_API mvLSPointToPointFitter {
 public:
  /// The pairs do not determine a transform of the asked family.
  class MVBASE_API Errors : public mvErrorOf<Errors, mvExceptionWithString> {
   public:
    Errors();
    /// With the library's message.
    explicit Errors(const std::wstring& message);
  };

  mvLSPointToPointFitter() = default;
  /// Adds the pairs (first[i], second[i]); the lists must be equally long.
  mvLSPointToPointFitter(const std::vector<mvVector<2>>& first,
                         const std::vector<mvVector<2>>& second);
  /// Forgets every pair.
  void reset();
  /// Adds one pair.
  void update(const mvVector<2>& first, const mvVector<2>& second);
  /// Number of pairs held.
  long numPairs() const { return static_cast<long>(first_.size()); }
  /// Fits: dof 3 rigid, 4 similarity, 5 rotation with two axis scales, 6 affine. Throws
  /// Errors when the pairs do not determine the family: fewer than 2 pairs or coincident
  /// second points for 3 and 4 (for 3 also coincident first points); fewer than 3 pairs or
  /// collinear second points for 5 and 6; any other dof.
  mvXform<2> fit(int dof) const;

 private:
  std::vector<mvVector<2>> first_;
  std::vector<mvVector<2>> second_;
};
