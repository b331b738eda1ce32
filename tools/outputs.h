// What the commands share: reading data points, turning a result set into a report, and
// writing a report as a table or JSON to standard output and as a picture to --svg.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "args.h"
#include "pointfile.h"
#include "report.h"

namespace ptmatch::cli {

/// Reads a data-point file; data points take no weight column.
PointFile readDataPoints(const std::string& path);

/// The report of a point-trained matcher's run (model-to-data maps from the results).
MatchReport pointMatchReport(const std::string& command, const mvPointMatcher& matcher,
                             const std::vector<mvVector<2>>& model,
                             const std::vector<mvVector<2>>& data,
                             const mvPointMatcherResultSet& resultSet);

/// JSON (--json) or the table to `out`, and the picture to the --svg file when given.
void writeMatchOutputs(std::ostream& out, const ParsedOptions& options, const MatchReport& report,
                       const std::string& title);
/// The same for a grid mapping.
void writeGridOutputs(std::ostream& out, const ParsedOptions& options, const GridReport& report,
                      const std::string& title);

}  // namespace ptmatch::cli
