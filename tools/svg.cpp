#include "svg.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "errors.h"

namespace ptmatch::cli {

std::string fixed(double v, int decimals) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.*f", decimals, v);
  std::string s(buffer);
  if (s.find('.') != std::string::npos) {
    while (!s.empty() && s.back() == '0') s.pop_back();
    if (!s.empty() && s.back() == '.') s.pop_back();
  }
  if (s == "-0") s = "0";
  return s;
}

std::string xmlEscaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&apos;";
        break;
      default:
        // Control characters other than tab and newline are not allowed in XML 1.0.
        if (static_cast<unsigned char>(c) >= 0x20 || c == '\t' || c == '\n') out += c;
    }
  }
  return out;
}

PlotMapping::PlotMapping(double minX, double minY, double maxX, double maxY, double left,
                         double top, double width, double height) {
  double spanX = maxX - minX;
  double spanY = maxY - minY;
  if (!(spanX > 0.0)) spanX = 1.0;
  if (!(spanY > 0.0)) spanY = 1.0;
  const double span = std::max(spanX, spanY);
  // A margin of 6 % of the larger span keeps marks at the edge inside the frame.
  spanX += 0.12 * span;
  spanY += 0.12 * span;
  scale_ = std::min(width / spanX, height / spanY);
  const double centreX = (minX + maxX) / 2.0;
  const double centreY = (minY + maxY) / 2.0;
  offsetX_ = left + width / 2.0 - centreX * scale_;
  offsetY_ = top + height / 2.0 - centreY * scale_;
}

SvgDocument::SvgDocument(double width, double height) : width_(width), height_(height) {}

void SvgDocument::rect(double x, double y, double w, double h, const std::string& style) {
  body_ += "<rect x=\"" + fixed(x, 2) + "\" y=\"" + fixed(y, 2) + "\" width=\"" + fixed(w, 2) +
           "\" height=\"" + fixed(h, 2) + "\" " + style + "/>\n";
}

void SvgDocument::circle(double cx, double cy, double r, const std::string& style) {
  body_ += "<circle cx=\"" + fixed(cx, 2) + "\" cy=\"" + fixed(cy, 2) + "\" r=\"" + fixed(r, 2) +
           "\" " + style + "/>\n";
}

void SvgDocument::ellipse(double cx, double cy, double rx, double ry, double angleDegrees,
                          const std::string& style) {
  body_ += "<ellipse cx=\"" + fixed(cx, 2) + "\" cy=\"" + fixed(cy, 2) + "\" rx=\"" + fixed(rx, 2) +
           "\" ry=\"" + fixed(ry, 2) + "\" transform=\"rotate(" + fixed(angleDegrees, 2) + " " +
           fixed(cx, 2) + " " + fixed(cy, 2) + ")\" " + style + "/>\n";
}

void SvgDocument::image(double x, double y, double w, double h, const std::string& href) {
  body_ += "<image x=\"" + fixed(x, 2) + "\" y=\"" + fixed(y, 2) + "\" width=\"" + fixed(w, 2) +
           "\" height=\"" + fixed(h, 2) +
           "\" preserveAspectRatio=\"none\" style=\"image-rendering:pixelated\" href=\"" +
           xmlEscaped(href) + "\"/>\n";
}

void SvgDocument::line(double x1, double y1, double x2, double y2, const std::string& style) {
  body_ += "<line x1=\"" + fixed(x1, 2) + "\" y1=\"" + fixed(y1, 2) + "\" x2=\"" + fixed(x2, 2) +
           "\" y2=\"" + fixed(y2, 2) + "\" " + style + "/>\n";
}

void SvgDocument::cross(double cx, double cy, double r, const std::string& style) {
  body_ += "<path d=\"M" + fixed(cx - r, 2) + " " + fixed(cy - r, 2) + "L" + fixed(cx + r, 2) +
           " " + fixed(cy + r, 2) + "M" + fixed(cx - r, 2) + " " + fixed(cy + r, 2) + "L" +
           fixed(cx + r, 2) + " " + fixed(cy - r, 2) + "\" " + style + "/>\n";
}

void SvgDocument::plus(double cx, double cy, double r, const std::string& style) {
  body_ += "<path d=\"M" + fixed(cx - r, 2) + " " + fixed(cy, 2) + "L" + fixed(cx + r, 2) + " " +
           fixed(cy, 2) + "M" + fixed(cx, 2) + " " + fixed(cy - r, 2) + "L" + fixed(cx, 2) + " " +
           fixed(cy + r, 2) + "\" " + style + "/>\n";
}

void SvgDocument::text(double x, double y, const std::string& content, double size,
                       const std::string& style, const std::string& anchor) {
  body_ += "<text x=\"" + fixed(x, 2) + "\" y=\"" + fixed(y, 2) + "\" font-size=\"" +
           fixed(size, 1) + "\"";
  if (anchor != "start") body_ += " text-anchor=\"" + anchor + "\"";
  if (!style.empty()) body_ += " " + style;
  body_ += ">" + xmlEscaped(content) + "</text>\n";
}

void SvgDocument::comment(const std::string& content) {
  std::string safe = content;
  // "--" may not occur inside an XML comment.
  for (std::size_t at = safe.find("--"); at != std::string::npos; at = safe.find("--", at)) {
    safe.replace(at, 2, "- ");
  }
  body_ += "<!-- " + xmlEscaped(safe) + " -->\n";
}

void SvgDocument::beginGroup(const std::string& attributes) {
  body_ += "<g " + attributes + ">\n";
  ++openGroups_;
}

void SvgDocument::endGroup() {
  if (openGroups_ == 0) return;
  body_ += "</g>\n";
  --openGroups_;
}

std::string SvgDocument::str() const {
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  out += "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + fixed(width_, 0) + "\" height=\"" +
         fixed(height_, 0) + "\" viewBox=\"0 0 " + fixed(width_, 0) + " " + fixed(height_, 0) +
         "\" font-family=\"DejaVu Sans, Helvetica, Arial, sans-serif\">\n";
  out += body_;
  for (int i = 0; i < openGroups_; ++i) out += "</g>\n";
  out += "</svg>\n";
  return out;
}

void SvgDocument::save(const std::string& path) const {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!file) throw InputError("cannot write " + path + ": " + std::strerror(errno));
  file << str();
  file.close();
  if (!file) throw InputError("cannot write " + path);
}

}  // namespace ptmatch::cli
