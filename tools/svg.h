// A minimal SVG writer: a document of a fixed pixel size, shapes and text with explicit
// style attributes, groups, and a mapping from data coordinates into a plot rectangle.
#pragma once

#include <string>

#include "mvbase/geometry.h"

namespace ptmatch::cli {

/// Maps data coordinates into a rectangle of the picture, keeping the aspect ratio; y
/// grows downwards as in images.
class PlotMapping {
 public:
  /// Fits the data box [minX, maxX] x [minY, maxY] (widened by a margin) centred into the
  /// picture rectangle (left, top, width, height).
  PlotMapping(double minX, double minY, double maxX, double maxY, double left, double top,
              double width, double height);
  double x(double dataX) const { return offsetX_ + dataX * scale_; }
  double y(double dataY) const { return offsetY_ + dataY * scale_; }
  /// Picture pixels per data unit.
  double scale() const { return scale_; }

 private:
  double scale_;
  double offsetX_;
  double offsetY_;
};

/// An SVG document being written; str() closes it.
class SvgDocument {
 public:
  SvgDocument(double width, double height);

  /// style: extra attributes written as given, e.g. `fill="#888" stroke="none"`.
  void rect(double x, double y, double w, double h, const std::string& style);
  void circle(double cx, double cy, double r, const std::string& style);
  void line(double x1, double y1, double x2, double y2, const std::string& style);
  /// An ellipse with semi-axes rx and ry, its rx axis turned by angleDegrees.
  void ellipse(double cx, double cy, double rx, double ry, double angleDegrees,
               const std::string& style);
  /// An embedded picture (href: a data URI) stretched over the rectangle, pels unsmoothed.
  void image(double x, double y, double w, double h, const std::string& href);
  /// An x-shaped mark of half-size r.
  void cross(double cx, double cy, double r, const std::string& style);
  /// A +-shaped mark of half-size r.
  void plus(double cx, double cy, double r, const std::string& style);
  /// Text escaped for XML; anchor is "start", "middle" or "end".
  void text(double x, double y, const std::string& content, double size,
            const std::string& style = "", const std::string& anchor = "start");
  /// A comment inside the document (the text is made safe for a comment).
  void comment(const std::string& content);
  void beginGroup(const std::string& attributes);
  void endGroup();

  /// The complete document.
  std::string str() const;
  /// Writes the document; throws InputError naming the file when it cannot be written.
  void save(const std::string& path) const;

 private:
  double width_;
  double height_;
  std::string body_;
  int openGroups_ = 0;
};

/// Text made safe inside XML character data and attribute values.
std::string xmlEscaped(const std::string& text);
/// A number with at most `decimals` decimals and no trailing zeros.
std::string fixed(double v, int decimals);

}  // namespace ptmatch::cli
