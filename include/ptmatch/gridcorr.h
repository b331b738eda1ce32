// The grid corresponder: finds where a trained pattern of grid nodes lies in a set of
// observed grid nodes. Training turns the model nodes into probe pels (nodes that must be
// set and, for the boundary feature types, empty pels around them that must be clear); a
// run slides the probes over the observed nodes and reports the best translations.
//
// Notes for users:
// - A pattern rectangle spans its corner nodes: its width is maxX - minX and its height
//   maxY - minY (a single row of nodes has height 0).
// - The probe order, the ring pass's read position and the early exit of the probe count
//   are part of the behaviour: they decide which empty pels become probes and which
//   positions are reported at the threshold; the functions that implement them say how.
// - A run checks its preconditions with mvAssert (mvAssertionError): the corresponder
//   must be trained and accept must lie in 0..1; maxNumResults must be at least 1 once
//   the run scans (a run that returns early, on a single node or observed nodes no larger
//   than the pattern, does not look at it).
// - A run on an empty node list reports nothing and returns false, as for a single node.
// - A run with capacity 1 and accept 0 in which no probe agrees anywhere reports one
//   result of score 0 at scan position (0, 0) plus the position offset.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mvbase/archive.h"
#include "mvbase/exception.h"
#include "mvbase/geometry.h"
#include "mvbase/image.h"
#include "ptmatch/export.h"
#include "ptmatch/scorehashing.h"

/// The grid corresponder's feature types and errors.
class PTMATCH_API mv_PointToGridCorresponderDefs {
 public:
  /// Which pels training turns into probes. Any value other than 1 and 2 behaves like
  /// ePointFeatures; the type holds every 32-bit value so that such values survive.
  enum FeatureType : int {
    ePointFeatures = 0,         ///< every model node, expected set
    eBoundaryFeatures = 1,      ///< boundary nodes expected set, empty pels touching them clear
    eThickBoundaryFeatures = 2  ///< as boundary, one layer deeper on both sides
  };

  /// Root of the grid corresponder's errors.
  class PTMATCH_API Errors : public mvErrorOf<Errors, mvExceptionWithString> {
   public:
    /// The library's message for the failure.
    explicit Errors(const std::wstring& message = L"");
  };

  /// A training image with fewer than 3 set pels.
  class PTMATCH_API InsufficientModelPoints : public mvErrorOf<InsufficientModelPoints, Errors> {
   public:
    /// The library's message for the failure.
    explicit InsufficientModelPoints(const std::wstring& message = L"");
    /// This error's number in the library's numbering.
    long errorNumber() const override;
  };

  /// The working memory of a run could not be allocated.
  class PTMATCH_API InsufficientMemory : public mvErrorOf<InsufficientMemory, Errors> {
   public:
    /// The library's message for the failure.
    explicit InsufficientMemory(const std::wstring& message = L"");
    /// This error's number in the library's numbering.
    long errorNumber() const override;
  };
};

/// Persists a feature type: version 1100, then the value as a long.
PTMATCH_API mvArchive& operator||(mvArchive& ar, mv_PointToGridCorresponderDefs::FeatureType& t);

/// How to train a grid corresponder: the grid's layout and the probes to make.
class PTMATCH_API mv_PointToGridCorresponderTrainParams {
 public:
  /// A square grid with boundary features unless told otherwise.
  explicit mv_PointToGridCorresponderTrainParams(
      bool staggered = false, mv_PointToGridCorresponderDefs::FeatureType featureType =
                                  mv_PointToGridCorresponderDefs::eBoundaryFeatures);

  /// True for a staggered grid, whose node neighbours are the four diagonal pels.
  bool staggered() const { return staggered_; }
  /// Sets staggered().
  void staggered(bool v) { staggered_ = v; }
  /// Which pels become probes.
  mv_PointToGridCorresponderDefs::FeatureType featureType() const { return featureType_; }
  /// Sets featureType().
  void featureType(mv_PointToGridCorresponderDefs::FeatureType v) { featureType_ = v; }

  /// Field by field.
  bool operator==(const mv_PointToGridCorresponderTrainParams& o) const {
    return staggered_ == o.staggered_ && featureType_ == o.featureType_;
  }
  /// Not operator==.
  bool operator!=(const mv_PointToGridCorresponderTrainParams& o) const { return !(*this == o); }

  /// Version 1100, staggered (bool), feature type (its own versioned form).
  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mv_PointToGridCorresponderTrainParams& p);

 private:
  bool staggered_;
  mv_PointToGridCorresponderDefs::FeatureType featureType_;
};

/// What a corresponder run reports: how many results and how many agreeing probes make
/// one. Nothing is validated here; the run checks what it relies on.
class PTMATCH_API mv_PointToGridCorresponderRunParams {
 public:
  /// Note the order: the count comes last here although it is stored first.
  explicit mv_PointToGridCorresponderRunParams(double accept = 0.5, double confusion = 1.0,
                                               long maxNumResults = 1);

  /// The most results to report.
  long maxNumResults() const { return maxNumResults_; }
  /// Sets maxNumResults().
  void maxNumResults(long v) { maxNumResults_ = v; }
  /// The fraction of probes (0..1) that must agree for a position to be reported.
  double accept() const { return accept_; }
  /// Sets accept().
  void accept(double v) { accept_ = v; }
  /// Kept, copied and persisted; a run does not consult it.
  double confusion() const { return confusion_; }
  /// Sets confusion().
  void confusion(double v) { confusion_ = v; }

  /// Version 1100, maxNumResults (long), accept, confusion (double).
  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mv_PointToGridCorresponderRunParams& p);

 private:
  long maxNumResults_;
  double accept_;
  double confusion_;
};

/// One position where the pattern was found.
class PTMATCH_API mv_PointToGridCorresponderResult {
 public:
  /// Not found, score 0, position (0, 0).
  mv_PointToGridCorresponderResult() = default;

  /// The fraction of probes that agreed, 0..1.
  double score() const { return score_; }
  /// The translation, in grid positions, that carries the model nodes onto the observed
  /// nodes.
  mvPair<long> position() const { return position_; }

  /// Version 1100, found flag (bool), score (double), position (mvPair<long>).
  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mv_PointToGridCorresponderResult& r);

 private:
  friend class mv_PointToGridCorresponder;
  mv_PointToGridCorresponderResult(double score, const mvPair<long>& position)
      : found_(true), score_(score), position_(position) {}

  bool found_ = false;  // true in every result that a run reports
  double score_ = 0.0;
  mvPair<long> position_;
};

/// The results of one corresponder run, best first, and its duration.
class PTMATCH_API mv_PointToGridCorresponderResultSet {
 public:
  mv_PointToGridCorresponderResultSet() = default;

  /// Seconds taken by the last run.
  double time() const { return time_; }
  /// The results, best first.
  const std::vector<mv_PointToGridCorresponderResult>& results() const { return results_; }

  /// Version 1100, time (double), results (format byte 0, count, each result).
  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mv_PointToGridCorresponderResultSet& s);

 private:
  friend class mv_PointToGridCorresponder;
  double time_ = 0.0;
  std::vector<mv_PointToGridCorresponderResult> results_;
};

/// Finds where a trained pattern of grid nodes lies in a set of observed grid nodes.
/// Untrained (no probes) after construction and untrain(); a training replaces everything.
class PTMATCH_API mv_PointToGridCorresponder {
 public:
  /// Untrained: square grid, boundary features, no pattern, no probes.
  mv_PointToGridCorresponder();
  /// Copies every field; the pattern shares its pels as image buffers do.
  mv_PointToGridCorresponder(const mv_PointToGridCorresponder& o);
  /// Copies every field, as the copy constructor.
  mv_PointToGridCorresponder& operator=(const mv_PointToGridCorresponder& o);
  ~mv_PointToGridCorresponder();

  /// Trains from an image whose nonzero pels are the model nodes. Fewer than 3 of them
  /// throw InsufficientModelPoints (the train parameters are replaced even then).
  void train(const mvPelBuffer_const<unsigned char>& image,
             const mv_PointToGridCorresponderTrainParams& params);
  /// Trains from node positions (at least one); the transform becomes the pattern's
  /// client-from-image transform.
  void train(const std::vector<mvPair<long>>& nodes,
             const mv_PointToGridCorresponderTrainParams& params,
             const mvXform<2>& clientFromImage);
  /// Forgets the probes; the train parameters and the pattern stay.
  void untrain();
  /// True when training left at least one probe.
  bool isTrained() const;
  /// The model nodes as an image: 1 at each node, offset at the model's upper-left node.
  const mvPelBuffer_const<unsigned char>& pattern() const;
  /// The parameters of the last training.
  const mv_PointToGridCorresponderTrainParams& trainParams() const;

  /// Finds the pattern among observed grid positions. Fills results best first and
  /// returns true when at least one was reported; results are always cleared and timed.
  bool run(const std::vector<mvPair<long>>& nodes,
           const mv_PointToGridCorresponderRunParams& params,
           mv_PointToGridCorresponderResultSet& results) const;
  /// Finds the pattern in an image holding 1 at each observed node and 0 elsewhere.
  bool run(const mvPelBuffer_const<unsigned char>& image,
           const mv_PointToGridCorresponderRunParams& params,
           mv_PointToGridCorresponderResultSet& results) const;

  /// Version 1100, train parameters, pattern, pattern rectangle, probe count (long), then
  /// each probe's position (mvPair<long>) and expected value (unsigned char).
  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mv_PointToGridCorresponder& c);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};
