// The pictures of --svg: a match (data points, the model under the best pose, a line per
// correspondence, unmatched points marked, a legend) and a grid mapping (every point
// labelled with its node, unassigned points marked, links between neighbouring nodes).
#pragma once

#include <string>
#include <vector>

#include "report.h"
#include "svg.h"

namespace ptmatch::cli {

/// Size of one panel in picture pixels.
constexpr double kPanelWidth = 580.0;
constexpr double kPanelHeight = 690.0;

/// Draws a match into the panel whose upper-left corner is (left, top); `notes` are extra
/// legend lines (e.g. the true pose of a demo).
void drawMatchPanel(SvgDocument& svg, double left, double top, const std::string& title,
                    const MatchReport& report, const std::vector<std::string>& notes);
/// Draws a grid mapping into the panel at (left, top).
void drawGridPanel(SvgDocument& svg, double left, double top, const std::string& title,
                   const GridReport& report, const std::vector<std::string>& notes);

/// A document holding one match panel.
SvgDocument matchPicture(const std::string& title, const MatchReport& report,
                         const std::vector<std::string>& notes = {});
/// A document holding one grid panel.
SvgDocument gridPicture(const std::string& title, const GridReport& report,
                        const std::vector<std::string>& notes = {});

}  // namespace ptmatch::cli
