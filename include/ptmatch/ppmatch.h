// The point matcher: trained with model points (optionally weighted) or a dot-pattern
// image, it finds the poses that carry the model onto measured data points, with the
// point correspondence, the coverage and the fit error of each.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mvbase/archive.h"
#include "mvbase/exception.h"
#include "mvbase/geometry.h"
#include "mvbase/image.h"
#include "ptmatch/export.h"

class mvPointMatcher;

/// The point matcher's modes and errors.
class PTMATCH_API mvPointMatcherDefs {
 public:
  /// How a matcher was trained and how a result was found.
  enum Mode {
    ePointToPoint = 1,    ///< model points matched to data points one to one
    ePointToGrid = 2,     ///< a dot pattern learned from an image, data mapped onto its grid
    eExhaustiveMode = 3,  ///< every pairing of a small model with small data is tried
    eAutoDetect = 4       ///< train-time choice; a point-trained matcher then runs point to point
  };

  /// Root of the point matcher's errors.
  class PTMATCH_API Errors : public mvErrorOf<Errors, mvExceptionWithString> {
   public:
    /// The library's message for the failure.
    explicit Errors(const std::wstring& message);
    /// A new instance with an empty message, for the instantiator.
    static mvPersistent* make();
  };

  /// A rejected parameter or training input.
  class PTMATCH_API BadParams : public mvErrorOf<BadParams, Errors> {
   public:
    /// The library's message for the failure.
    explicit BadParams(const std::wstring& message = L"");
    /// This error's number in the library's numbering.
    long errorNumber() const override;
  };

  /// The matcher is not trained, or not trained in the mode asked for.
  class PTMATCH_API NotTrained : public mvErrorOf<NotTrained, Errors> {
   public:
    /// The library's message for the failure.
    explicit NotTrained(const std::wstring& message = L"");
    /// This error's number in the library's numbering.
    long errorNumber() const override;
  };

  /// A result accessor used for a result of another mode.
  class PTMATCH_API NotRun : public mvErrorOf<NotRun, Errors> {
   public:
    /// The library's message for the failure.
    explicit NotRun(const std::wstring& message = L"");
    /// This error's number in the library's numbering.
    long errorNumber() const override;
  };

  /// Too few model points (or set pattern pixels) to train.
  class PTMATCH_API InsufficientModelPoints : public mvErrorOf<InsufficientModelPoints, Errors> {
   public:
    /// The library's message for the failure.
    explicit InsufficientModelPoints(const std::wstring& message = L"");
    /// This error's number in the library's numbering.
    long errorNumber() const override;
  };
};

/// What a run looks for: the least coverage, the start pose and the uncertainty ranges
/// around it, the grid size and capture range of the search, and how many results to
/// keep. Every setter validates and throws BadParams, leaving the object unchanged.
class PTMATCH_API mvPointMatcherRunParams {
 public:
  /// Coverage 0.5, identity start pose, full translation ranges, rotation +-15 degrees,
  /// scale 0:0, automatic grid size and capture range, one result.
  mvPointMatcherRunParams();
  /// Sets the fields through their setters in this argument order; the first setter that
  /// throws aborts the construction.
  mvPointMatcherRunParams(double minCoverage, const mvXform<2>& startPose,
                          const mvRange& xTranslationUncertainty,
                          const mvRange& yTranslationUncertainty,
                          const mvAngleRange& rotationUncertainty, const mvRange& scaleUncertainty,
                          bool autoGridSize, double gridSize, bool autoCaptureRange,
                          double captureRange, long maxNumResults);

  /** @name Fields */
  ///@{
  /// The fields, as the setters below accept them.
  double minCoverage() const { return minCoverage_; }
  mvXform<2> startPose() const { return startPose_; }
  mvAngleRange rotationUncertainty() const { return rotationUncertainty_; }
  mvRange xTranslationUncertainty() const { return xTranslationUncertainty_; }
  mvRange yTranslationUncertainty() const { return yTranslationUncertainty_; }
  mvRange scaleUncertainty() const { return scaleUncertainty_; }
  bool autoGridSize() const { return autoGridSize_; }
  double gridSize() const { return gridSize_; }
  bool autoCaptureRange() const { return autoCaptureRange_; }
  double captureRange() const { return captureRange_; }
  long maxNumResults() const { return maxNumResults_; }
  ///@}

  /// In [0, 1].
  void minCoverage(double v);
  /// The nominal model-to-data pose about which the uncertainties are taken; any pose.
  void startPose(const mvXform<2>& pose);
  /// Not empty.
  void xTranslationUncertainty(const mvRange& r);
  /// Not empty.
  void yTranslationUncertainty(const mvRange& r);
  /// Not empty.
  void rotationUncertainty(const mvAngleRange& r);
  /// Relative scale change: not empty, not full, start at least -0.9.
  void scaleUncertainty(const mvRange& r);
  /// True computes the grid size from the model and ignores gridSize().
  void autoGridSize(bool v);
  /// Above 0 unless autoGridSize.
  void gridSize(double v);
  /// True computes the capture range and ignores captureRange().
  void autoCaptureRange(bool v);
  /// At least 0 unless autoCaptureRange.
  void captureRange(double v);
  /// At least 1.
  void maxNumResults(long v);

  /// Field by field, reals within 1e-15.
  bool operator==(const mvPointMatcherRunParams& o) const;

  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mvPointMatcherRunParams& p);

 private:
  double minCoverage_;
  mvXform<2> startPose_;
  mvAngleRange rotationUncertainty_;
  mvRange xTranslationUncertainty_;
  mvRange yTranslationUncertainty_;
  mvRange scaleUncertainty_;
  bool autoGridSize_;
  double gridSize_;
  bool autoCaptureRange_;
  double captureRange_;
  long maxNumResults_;
};

namespace ptmatch {
namespace detail {
struct ResultWriter;
}  // namespace detail
}  // namespace ptmatch

/// One match: its pose, its model-to-data map (or grid-to-data map for a pattern-trained
/// matcher), its coverage and its fit error.
class PTMATCH_API mvPointMatcherResult {
 public:
  mvPointMatcherResult();

  /// How the result was found: ePointToPoint, ePointToGrid or eExhaustiveMode.
  mvPointMatcherDefs::Mode runMode() const { return runMode_; }
  /// The model-to-data pose.
  const mvXform<2>& modelToDataXform() const { return modelToDataXform_; }
  /// Index of the matched data point per model point, negative when unmatched. Throws
  /// NotRun unless the result was found point to point or exhaustively.
  const std::vector<long>& modelToDataMap() const;
  /// Matched model weight over total model weight.
  double coverage() const { return coverage_; }
  /// Root-mean-square distance of the matched pairs under the pose. A result of a dense
  /// pattern holds instead the mean squared distance between each labelled data point,
  /// mapped back by the pose, and its pixel's position; one of a sparse pattern holds the
  /// nested point search's fit error.
  double fitError() const { return fitError_; }
  /// Index of the data point in a grid cell (pattern frame). Throws NotRun unless the
  /// result is a point-to-grid one.
  long gridToDataMap(const mvPair<long>& cell) const;
  /// The whole grid-to-data label image (unbound unless point-to-grid).
  const mvPelBuffer_const<long>& gridToDataImage() const { return gridToData_; }

  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mvPointMatcherResult& r);

 private:
  friend class mvPointMatcher;
  friend struct ptmatch::detail::ResultWriter;
  void setRunMode_(mvPointMatcherDefs::Mode m) { runMode_ = m; }
  void setModelToDataXform_(const mvXform<2>& x) { modelToDataXform_ = x; }
  void setModelToDataMap_(const std::vector<long>& m) { modelToDataMap_ = m; }
  void setModelToDataMap_(std::vector<long>&& m) { modelToDataMap_ = std::move(m); }
  void setCoverage_(double c) { coverage_ = c; }
  void setFitError_(double e) { fitError_ = e; }
  void setGridToData_(const mvPelBuffer_const<long>& g) { gridToData_ = g; }

  mvPointMatcherDefs::Mode runMode_;
  mvXform<2> modelToDataXform_;
  std::vector<long> modelToDataMap_;
  double coverage_;
  double fitError_;
  mvPelBuffer_const<long> gridToData_;
};

/// The results of one run, best first, and the seconds it took.
class PTMATCH_API mvPointMatcherResultSet {
 public:
  mvPointMatcherResultSet();
  /// The results, best first (greater coverage, then smaller fit error).
  const std::vector<mvPointMatcherResult>& results() const { return results_; }
  /// Seconds the run took.
  double time() const { return time_; }

  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mvPointMatcherResultSet& s);

 private:
  friend class mvPointMatcher;
  friend struct ptmatch::detail::ResultWriter;
  std::vector<mvPointMatcherResult>& getResults_() { return results_; }
  void setTime_(double t) { time_ = t; }

  std::vector<mvPointMatcherResult> results_;
  double time_;
};

/// The size of a point-to-point run, known before it starts (mvPointMatcher::estimateCost).
/// The coarse search projects every model point at every lattice step and votes over the
/// translation window, so its work grows as latticeSteps x windowCells x modelPoints:
/// a smaller grid size gives more steps and more cells, narrower rotation, scale and
/// translation ranges fewer.
struct PTMATCH_API mvPointMatcherCost {
  /// Scale and rotation steps of the coarse search.
  long long latticeSteps = 0;
  /// Translation offsets, in grid cells, voted on at each step.
  long long windowCells = 0;
  /// Model points projected at each step.
  long long modelPoints = 0;
  /// The grid size the run would use (the model's own when the params ask for automatic).
  double gridSize = 0.0;
  /// latticeSteps x windowCells x modelPoints. One core does about 1.5e10 such units a
  /// second (measured on a 2-core x86-64 build machine), so 1.5e11 is about ten seconds.
  double work() const {
    return static_cast<double>(latticeSteps) * static_cast<double>(windowCells) *
           static_cast<double>(modelPoints);
  }
};

/// The point-matching tool. Train it once, then run it any number of times; running never
/// changes the trained state, so one trained matcher may be run from several threads.
class PTMATCH_API mvPointMatcher {
 public:
  /// Untrained.
  mvPointMatcher();
  /// Deep copy of the trained state; the train mode travels only through training, so the
  /// copy starts in ePointToPoint (a copy of an exhaustive-mode matcher runs point to point).
  mvPointMatcher(const mvPointMatcher& other);
  /// Deep copy of the trained state; the target keeps its own train mode.
  mvPointMatcher& operator=(const mvPointMatcher& other);
  ~mvPointMatcher();

  /// Trains from model points in mode eExhaustiveMode or eAutoDetect.
  void train(const std::vector<mvVector<2>>& points, mvPointMatcherDefs::Mode mode);
  /// Trains from weighted model points; a matched point of negative weight counts against
  /// a pose, one of weight 0 counts for nothing.
  void train(const std::vector<mvVector<2>>& points, const std::vector<long>& weights,
             mvPointMatcherDefs::Mode mode);
  /// Trains from an 8-bit dot-pattern image: every nonzero pel is one model point.
  void train(const mvPelBuffer_const<unsigned char>& image);
  /// The training image of a pattern-trained matcher.
  const mvPelBuffer_const<unsigned char>& pattern() const;
  /// Forgets the model.
  void untrain();
  /// True once a training succeeded and until untrain().
  bool isTrained() const;
  /// ePointToPoint, ePointToGrid or eExhaustiveMode; throws NotTrained when untrained.
  mvPointMatcherDefs::Mode trainMode() const;
  /// The model points, in training order.
  const std::vector<mvVector<2>>& modelPoints() const;
  /// The weights of the model points (1 each when trained without weights).
  std::vector<long> weights() const;

  /// Finds the poses that carry the model onto the data points; fills the result set,
  /// best first (greater coverage, then smaller fit error).
  ///
  /// A matcher trained in eExhaustiveMode tries every one-to-one pairing of the smaller
  /// point set (A points) with the larger one (B points): the work grows as (B + 1) ^ A,
  /// so keep both sets small. The search polls mvAttention::check() regularly, so a caller
  /// can always interrupt it (mvAttention::requestInterruption()).
  ///
  /// A matcher trained from an image runs in one of two ways. A sparse pattern (fewer than
  /// 10 dots, or no dot with two grid neighbours) is searched point to point by a nested
  /// matcher; its result poses map pattern pixel positions (not client points) onto the
  /// data. A dense pattern is found by mapping the data onto the pattern's pixel grid,
  /// whose snap size is the capture range only when autoCaptureRange() is false and
  /// captureRange() is above 0; otherwise the mapping snaps within a fifth of the pitch,
  /// finds no neighbour and the run reports nothing. So give a dense pattern an explicit
  /// capture range of about a pitch or more (in data units), and a scale uncertainty that
  /// admits the data's pitch (the mapping accepts pitches of 1 + scaleUncertainty times
  /// the pattern's).
  void run(const std::vector<mvVector<2>>& dataPoints, const mvPointMatcherRunParams& params,
           mvPointMatcherResultSet& resultSet) const;

  /// The size of run(dataPoints, params) before it starts, from the run's own set-up
  /// (which allocates the data's occupancy raster, as the run does). A run that cannot
  /// reach the coverage costs nothing. Throws NotTrained unless trained from points in
  /// point-to-point mode, and what run() throws for non-finite input or a grid size that
  /// spans too many cells.
  mvPointMatcherCost estimateCost(const std::vector<mvVector<2>>& dataPoints,
                                  const mvPointMatcherRunParams& params) const;

  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mvPointMatcher& m);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// Does nothing, by design: it reads none of its arguments and fills neither output list
/// (both are const and stay exactly as they were). It is kept only so that code calling it
/// still builds and links. To get the matched point pairs, read result.modelToDataMap():
/// model point i of matcher.modelPoints() matches dataPoints[map[i]] wherever map[i] >= 0.
PTMATCH_API void mfExtractPointsFromPointMatcherResults(
    const mvPointMatcher& matcher, const std::vector<mvVector<2>>& dataPoints,
    const mvPointMatcherResult& result, const std::vector<mvVector<2>>& modelPointsOut,
    const std::vector<mvVector<2>>& dataPointsOut);
