// Dot detection: finds the dots (fiducials, holes, printed marks) of an 8-bit or 16-bit grey
// image and measures each one to a fraction of a pel.
//
// Pel convention. The pel at column x, row y of a buffer has its centre at (x, y) of the
// buffer's own frame (the buffer's offset() is added, so a window keeps the coordinates of
// the image it windows into). A dot covering pels 10 to 12 of row 5 alone has its centre
// at (11, 5). This is the frame of the image-trained matcher's pel positions.
//
// How it works. A first pass decides, per pel, whether it belongs to a dot: its grey value
// is compared with a threshold that is either given, found by Otsu's method on the grey
// histogram, or (local mode) found on the difference between each pel and the mean grey of
// the window around it, which follows uneven illumination. While the pels are classified,
// runs of dot pels are joined into 8-connected components row by row (union-find on runs,
// each component closed as soon as a row no longer continues it), so the image is read
// once and the only memory in proportion to its size is one byte per pel (the mask). Each
// component that passes the area filter is then measured from the grey values around it:
// a plane is fitted to a ring of background pels around the dot, subtracted, and the
// centre is the centroid of what is left over the dot and a margin around it (the dot's
// blurred edge included, other dots' pels left out).
//
// Dot order. Dots come sorted by the row of their centre rounded to the nearest whole pel,
// then by the x of their centre.
#pragma once

#include <string>
#include <vector>

#include "mvbase/archive.h"
#include "mvbase/exception.h"
#include "mvbase/image.h"
#include "ptmatch/export.h"

/// The dot detector's errors and choices.
class PTMATCH_API mvDotDefs {
 public:
  /// A parameter out of its range, or an image the detector cannot work with (unbound).
  class PTMATCH_API BadInput : public mvErrorOf<BadInput, mvExceptionWithString> {
   public:
    /// The library's message for the failure.
    explicit BadInput(const std::wstring& message = L"The dot detector input is bad.");
  };

  /// Which dots to look for: darker than their surroundings, brighter, or both.
  enum Polarity { eDark = 0, eBright = 1, eEither = 2 };

  /// How the dot pels are told from the background.
  /// - eAuto: one threshold for the whole image, by Otsu's method on the part of its
  ///   histogram on the dots' side of the median grey (with eEither: on the distances of
  ///   the grey values from the median). Dots must cover less than half the image.
  /// - eFixed: the given grey value; with eDark the pels below it are dot pels, with eBright
  ///   those above it, with eEither both (the background then forms a component of its own,
  ///   which the maximum area removes).
  /// - eLocal: each pel is compared with the mean grey of the window around it (see
  ///   localWindow()); the margin between a dot pel and that mean is found by Otsu's method.
  enum Threshold { eAuto = 0, eFixed = 1, eLocal = 2 };
};

/// What to look for and which dots to keep. Every setter checks its value and throws
/// mvDotDefs::BadInput, leaving the parameters as they were, when it is out of range.
class PTMATCH_API mvDotDetectParams {
 public:
  /// Dark dots, automatic threshold, local window automatic, areas 4 to 100000 pels, any
  /// roundness, contrast at least 0, dots at the border kept (and flagged).
  mvDotDetectParams() = default;

  /// Which dots are looked for; eDark by default.
  mvDotDefs::Polarity polarity() const { return polarity_; }
  /// How dot pels are told from the background; eAuto by default.
  mvDotDefs::Threshold threshold() const { return threshold_; }
  /// The grey value of eFixed (ignored by the other modes); 128 by default.
  double fixedThreshold() const { return fixedThreshold_; }
  /// Side in pels of the window of eLocal; 0 chooses an eighth of the image's shorter side,
  /// at least 16. Give several dot pitches.
  long localWindow() const { return localWindow_; }
  /// Smallest accepted area, in pels of the dot's mask; 4 by default.
  double minArea() const { return minArea_; }
  /// Largest accepted area, in pels of the dot's mask; 100000 by default.
  double maxArea() const { return maxArea_; }
  /// Smallest accepted roundness (see mvDot::roundness()), 0 to 1.
  double minRoundness() const { return minRoundness_; }
  /// Smallest accepted contrast, in grey levels.
  double minContrast() const { return minContrast_; }
  /// When true, dots whose mask touches the image's edge are dropped; when false (the
  /// default) they are returned with mvDot::touchesBorder() set.
  bool dropBorderDots() const { return dropBorderDots_; }

  /// eDark, eBright or eEither.
  void polarity(mvDotDefs::Polarity p);
  /// eAuto, eFixed or eLocal.
  void threshold(mvDotDefs::Threshold t);
  /// Sets eFixed and the grey value (finite, 0 to 65535).
  void fixedThreshold(double grey);
  /// 0 (automatic) or 3 to 1000000 pels.
  void localWindow(long pels);
  /// Finite, at least 1 and at most maxArea().
  void minArea(double pels);
  /// Finite and at least minArea().
  void maxArea(double pels);
  /// 0 to 1.
  void minRoundness(double r);
  /// Finite, at least 0.
  void minContrast(double grey);
  /// Drops (true) or keeps and flags (false) the dots that touch the image's edge.
  void dropBorderDots(bool drop) { dropBorderDots_ = drop; }

 private:
  mvDotDefs::Polarity polarity_ = mvDotDefs::eDark;
  mvDotDefs::Threshold threshold_ = mvDotDefs::eAuto;
  double fixedThreshold_ = 128.0;
  long localWindow_ = 0;
  double minArea_ = 4.0;
  double maxArea_ = 100000.0;
  double minRoundness_ = 0.0;
  double minContrast_ = 0.0;
  bool dropBorderDots_ = false;
};

/// One dot found by mfFindDots. All positions in the buffer's frame (see the file comment).
class PTMATCH_API mvDot {
 public:
  mvDot() = default;

  /// x of the centre, measured to a fraction of a pel from the grey values.
  double x() const { return x_; }
  /// y of the centre, measured the same way.
  double y() const { return y_; }
  /// Pels in the dot's mask.
  double area() const { return area_; }
  /// The dot's strongest departure from the local background, in grey levels (positive).
  double contrast() const { return contrast_; }
  /// Minor over major axis of the ellipse of the mask's second moments: 1 for a disc,
  /// smaller for elongated shapes (an ellipse seen at 60 degrees of tilt gives 0.5).
  double roundness() const { return roundness_; }
  /// Smallest pel rectangle holding the mask.
  const mvPelRect& box() const { return box_; }
  /// True when the mask reaches the image's edge: the dot may be cut, its centre biased.
  bool touchesBorder() const { return touchesBorder_; }
  /// True for a dot brighter than its surroundings.
  bool bright() const { return bright_; }
  /// Central second moment of the mask along x, in pels squared.
  double mxx() const { return mxx_; }
  /// Central second moment of the mask along y, in pels squared.
  double myy() const { return myy_; }
  /// Central cross moment of the mask (x times y), in pels squared.
  double mxy() const { return mxy_; }
  /// Full length (diameter) of the major axis of the ellipse with the mask's second
  /// moments, in pels.
  double majorAxis() const { return majorAxis_; }
  /// Full length (diameter) of that ellipse's minor axis, in pels.
  double minorAxis() const { return minorAxis_; }
  /// Direction of the major axis, radians in (-pi/2, pi/2], from +x towards +y.
  double angle() const { return angle_; }

 private:
  friend class mvDotBuilder_;
  double x_ = 0.0;
  double y_ = 0.0;
  double area_ = 0.0;
  double contrast_ = 0.0;
  double roundness_ = 0.0;
  mvPelRect box_;
  bool touchesBorder_ = false;
  bool bright_ = false;
  double mxx_ = 0.0;
  double myy_ = 0.0;
  double mxy_ = 0.0;
  double majorAxis_ = 0.0;
  double minorAxis_ = 0.0;
  double angle_ = 0.0;
};

/// Finds the dots of an 8-bit grey image (see the file comment for the method, the frame
/// and the order). Throws mvDotDefs::BadInput for an unbound image; an interruption
/// requested through mvAttention throws mvAttention::Interrupted.
PTMATCH_API std::vector<mvDot> mfFindDots(const mvPelBuffer_const<unsigned char>& image,
                                          const mvDotDetectParams& params = mvDotDetectParams());
/// The same for a 16-bit grey image.
PTMATCH_API std::vector<mvDot> mfFindDots(const mvPelBuffer_const<unsigned short>& image,
                                          const mvDotDetectParams& params = mvDotDetectParams());
