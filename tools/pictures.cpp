#include "pictures.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace ptmatch::cli {

namespace {

// Colours: data matched / unmatched, model matched / unmatched, links.
const char* const kDataMatched = "#1f77b4";
const char* const kDataUnmatched = "#9a9a9a";
const char* const kModelMatched = "#ff7f0e";
const char* const kModelUnmatched = "#d62728";
const char* const kLink = "#2ca02c";

constexpr double kPlotTop = 34.0;
constexpr double kPlotSize = 520.0;
constexpr double kMarkSize = 4.0;

std::string fillOnly(const char* colour) {
  return std::string("fill=\"") + colour + "\" stroke=\"none\"";
}

std::string strokeOnly(const char* colour, double width) {
  return std::string("fill=\"none\" stroke=\"") + colour + "\" stroke-width=\"" + fixed(width, 2) +
         "\"";
}

// The box that holds every point given.
struct Box {
  double minX = std::numeric_limits<double>::infinity();
  double minY = std::numeric_limits<double>::infinity();
  double maxX = -std::numeric_limits<double>::infinity();
  double maxY = -std::numeric_limits<double>::infinity();

  void add(const mvVector<2>& p) {
    minX = std::min(minX, p.x());
    minY = std::min(minY, p.y());
    maxX = std::max(maxX, p.x());
    maxY = std::max(maxY, p.y());
  }
  bool empty() const { return !(minX <= maxX); }
};

PlotMapping plotMapping(const Box& box, double left, double top) {
  if (box.empty()) return PlotMapping(0, 0, 1, 1, left + 30, top + kPlotTop, kPlotSize, kPlotSize);
  return PlotMapping(box.minX, box.minY, box.maxX, box.maxY, left + 30, top + kPlotTop, kPlotSize,
                     kPlotSize);
}

// Panel background, frame, title and the data-coordinate range at the frame's corners.
void drawFrame(SvgDocument& svg, double left, double top, const std::string& title,
               const PlotMapping& map) {
  svg.rect(left, top, kPanelWidth, kPanelHeight, "fill=\"#ffffff\" stroke=\"#cccccc\"");
  svg.text(left + 12, top + 22, title, 15, "font-weight=\"bold\"");
  const double x0 = left + 30;
  const double y0 = top + kPlotTop;
  svg.rect(x0, y0, kPlotSize, kPlotSize, "fill=\"#fafafa\" stroke=\"#dddddd\"");
  const double s = map.scale();
  const double dataLeft = (x0 - map.x(0.0)) / s;
  const double dataTop = (y0 - map.y(0.0)) / s;
  svg.text(x0 + 3, y0 + 11, "(" + fixed(dataLeft, 1) + ", " + fixed(dataTop, 1) + ")", 9,
           "fill=\"#888888\"");
  svg.text(x0 + kPlotSize - 3, y0 + kPlotSize - 4,
           "(" + fixed(dataLeft + kPlotSize / s, 1) + ", " + fixed(dataTop + kPlotSize / s, 1) +
               ")  y grows downwards",
           9, "fill=\"#888888\"", "end");
}

// A legend row: a sample mark drawn by `mark` at (x, y), then its label.
template <typename Mark>
void legendRow(SvgDocument& svg, double x, double y, const std::string& label, Mark mark) {
  mark(x + 6, y - 4);
  svg.text(x + 18, y, label, 11);
}

void legendNotes(SvgDocument& svg, double x, double& y, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    svg.text(x, y, line, 11, "font-family=\"DejaVu Sans Mono, Menlo, monospace\"");
    y += 15;
  }
}

}  // namespace

void drawMatchPanel(SvgDocument& svg, double left, double top, const std::string& title,
                    const MatchReport& report, const std::vector<std::string>& notes) {
  const FoundMatch* best = report.results.empty() ? nullptr : &report.results.front();
  Box box;
  for (const mvVector<2>& p : report.data) box.add(p);
  if (best != nullptr) {
    for (const mvVector<2>& m : report.model) box.add(best->pose * m);
  }
  const PlotMapping map = plotMapping(box, left, top);
  drawFrame(svg, left, top, title, map);

  std::vector<bool> dataMatched(report.data.size(), false);
  if (best != nullptr) {
    for (const long d : best->map) {
      if (d >= 0 && static_cast<std::size_t>(d) < dataMatched.size()) {
        dataMatched[static_cast<std::size_t>(d)] = true;
      }
    }
  }
  svg.comment("data points: filled when matched, open when not");
  for (std::size_t i = 0; i < report.data.size(); ++i) {
    const mvVector<2>& p = report.data[i];
    if (dataMatched[i]) {
      svg.circle(map.x(p.x()), map.y(p.y()), 3.2, fillOnly(kDataMatched));
    } else {
      svg.circle(map.x(p.x()), map.y(p.y()), 3.2, strokeOnly(kDataUnmatched, 1.3));
    }
  }
  if (best != nullptr) {
    svg.comment("model under the best pose, with a line to each matched data point");
    for (std::size_t i = 0; i < report.model.size(); ++i) {
      const mvVector<2> m = best->pose * report.model[i];
      const long d = i < best->map.size() ? best->map[i] : -1;
      if (d >= 0 && static_cast<std::size_t>(d) < report.data.size()) {
        const mvVector<2>& p = report.data[static_cast<std::size_t>(d)];
        svg.line(map.x(m.x()), map.y(m.y()), map.x(p.x()), map.y(p.y()), strokeOnly(kLink, 1.2));
        svg.plus(map.x(m.x()), map.y(m.y()), kMarkSize + 1, strokeOnly(kModelMatched, 1.6));
      } else {
        svg.cross(map.x(m.x()), map.y(m.y()), kMarkSize, strokeOnly(kModelUnmatched, 1.8));
      }
    }
  }

  const double lx = left + 16;
  double ly = top + kPlotTop + kPlotSize + 22;
  legendRow(svg, lx, ly, "data point, matched",
            [&](double x, double y) { svg.circle(x, y, 3.2, fillOnly(kDataMatched)); });
  legendRow(svg, lx + 190, ly, "data point, unmatched",
            [&](double x, double y) { svg.circle(x, y, 3.2, strokeOnly(kDataUnmatched, 1.3)); });
  legendRow(svg, lx + 380, ly, "correspondence",
            [&](double x, double y) { svg.line(x - 6, y, x + 6, y, strokeOnly(kLink, 1.2)); });
  ly += 17;
  legendRow(svg, lx, ly, "model point, matched", [&](double x, double y) {
    svg.plus(x, y, kMarkSize + 1, strokeOnly(kModelMatched, 1.6));
  });
  legendRow(svg, lx + 190, ly, "model point, unmatched", [&](double x, double y) {
    svg.cross(x, y, kMarkSize, strokeOnly(kModelUnmatched, 1.8));
  });
  ly += 20;
  std::vector<std::string> lines;
  if (best == nullptr) {
    lines.push_back("no pose found (" + std::to_string(report.model.size()) + " model points, " +
                    std::to_string(report.data.size()) + " data points)");
  } else {
    lines.push_back("pose     " + poseText(best->pose, 4));
    lines.push_back("rotation " + fixed(rotationDegrees(best->pose), 3) + " deg, scale " +
                    fixed(similarityScale(best->pose), 5));
    lines.push_back("coverage " + fixed(best->coverage, 4) + " (" +
                    std::to_string(matchedCount(best->map)) + " of " +
                    std::to_string(report.model.size()) + " model points), fit error " +
                    fixed(best->fitError, 4));
  }
  lines.insert(lines.end(), notes.begin(), notes.end());
  legendNotes(svg, lx, ly, lines);
}

void drawGridPanel(SvgDocument& svg, double left, double top, const std::string& title,
                   const GridReport& report, const std::vector<std::string>& notes) {
  Box box;
  for (const mvVector<2>& p : report.points) box.add(p);
  const PlotMapping map = plotMapping(box, left, top);
  drawFrame(svg, left, top, title, map);

  svg.comment("links between points on neighbouring nodes");
  for (std::size_t i = 0; i < report.points.size(); ++i) {
    for (std::size_t j = i + 1; j < report.points.size(); ++j) {
      if (!report.assigned(i) || !report.assigned(j)) continue;
      const long du = std::labs(report.map[i].x() - report.map[j].x());
      const long dv = std::labs(report.map[i].y() - report.map[j].y());
      const bool neighbours = report.staggered ? (du == 1 && dv == 1) : (du + dv == 1);
      if (!neighbours) continue;
      const mvVector<2>& a = report.points[i];
      const mvVector<2>& b = report.points[j];
      svg.line(map.x(a.x()), map.y(a.y()), map.x(b.x()), map.y(b.y()), strokeOnly("#c7dcef", 1.0));
    }
  }
  svg.comment("points: labelled with their node (u,v), or crossed out when unassigned");
  for (std::size_t i = 0; i < report.points.size(); ++i) {
    const mvVector<2>& p = report.points[i];
    const double x = map.x(p.x());
    const double y = map.y(p.y());
    if (report.assigned(i)) {
      svg.circle(x, y, 3.2, fillOnly(kDataMatched));
      svg.text(x + 4, y - 4,
               std::to_string(report.map[i].x()) + "," + std::to_string(report.map[i].y()), 8,
               "fill=\"#333333\"");
    } else {
      svg.circle(x, y, 3.2, strokeOnly(kDataUnmatched, 1.3));
      svg.cross(x, y, kMarkSize + 1, strokeOnly(kModelUnmatched, 1.8));
    }
  }

  const double lx = left + 16;
  double ly = top + kPlotTop + kPlotSize + 22;
  legendRow(svg, lx, ly, "point on node u,v",
            [&](double x, double y) { svg.circle(x, y, 3.2, fillOnly(kDataMatched)); });
  legendRow(svg, lx + 190, ly, report.robust ? "rejected point (no node)" : "point without a node",
            [&](double x, double y) {
              svg.circle(x, y, 3.2, strokeOnly(kDataUnmatched, 1.3));
              svg.cross(x, y, kMarkSize + 1, strokeOnly(kModelUnmatched, 1.8));
            });
  legendRow(svg, lx + 380, ly, "neighbouring nodes",
            [&](double x, double y) { svg.line(x - 6, y, x + 6, y, strokeOnly("#c7dcef", 1.5)); });
  ly += 20;
  std::vector<std::string> lines;
  lines.push_back(std::string(report.valid ? "valid" : "not valid") + ": " +
                  std::to_string(report.count) + " of " + std::to_string(report.points.size()) +
                  " points on grid nodes" + (report.staggered ? " (staggered grid)" : ""));
  if (report.valid) {
    lines.push_back("grid to point " + poseText(report.grid2point, 4));
    lines.push_back("fit error " + fixed(gridFitError(report), 4) + " (rms distance from nodes)");
  }
  lines.insert(lines.end(), notes.begin(), notes.end());
  legendNotes(svg, lx, ly, lines);
}

SvgDocument matchPicture(const std::string& title, const MatchReport& report,
                         const std::vector<std::string>& notes) {
  SvgDocument svg(kPanelWidth, kPanelHeight);
  drawMatchPanel(svg, 0, 0, title, report, notes);
  return svg;
}

SvgDocument gridPicture(const std::string& title, const GridReport& report,
                        const std::vector<std::string>& notes) {
  SvgDocument svg(kPanelWidth, kPanelHeight);
  drawGridPanel(svg, 0, 0, title, report, notes);
  return svg;
}

}  // namespace ptmatch::cli
