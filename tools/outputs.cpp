#include "outputs.h"

#include "errors.h"
#include "pictures.h"

namespace ptmatch::cli {

PointFile readDataPoints(const std::string& path) {
  PointFile data = readPointFile(path);
  if (!data.weights.empty()) throw InputError(path + ": these points take no weight column");
  return data;
}

MatchReport pointMatchReport(const std::string& command, const mvPointMatcher& matcher,
                             const std::vector<mvVector<2>>& model,
                             const std::vector<mvVector<2>>& data,
                             const mvPointMatcherResultSet& resultSet) {
  MatchReport report;
  report.command = command;
  report.mode = modeName(matcher.trainMode());
  report.time = resultSet.time();
  report.model = model;
  report.data = data;
  for (const mvPointMatcherResult& r : resultSet.results()) {
    FoundMatch found;
    found.pose = r.modelToDataXform();
    found.coverage = r.coverage();
    found.fitError = r.fitError();
    found.map = r.modelToDataMap();
    report.results.push_back(found);
  }
  return report;
}

void writeMatchOutputs(std::ostream& out, const ParsedOptions& options, const MatchReport& report,
                       const std::string& title) {
  // The picture first: a file that cannot be written is an error, and then nothing has
  // been printed.
  if (options.has("--svg")) matchPicture(title, report).save(options.value("--svg"));
  if (options.has("--json")) {
    out << matchJson(report).dump();
    return;
  }
  printMatchTable(out, report);
  if (options.has("--svg")) out << "picture: " << options.value("--svg") << "\n";
}

void writeGridOutputs(std::ostream& out, const ParsedOptions& options, const GridReport& report,
                      const std::string& title) {
  if (options.has("--svg")) gridPicture(title, report).save(options.value("--svg"));
  if (options.has("--json")) {
    out << gridJson(report).dump();
    return;
  }
  printGridTable(out, report);
  if (options.has("--svg")) out << "picture: " << options.value("--svg") << "\n";
}

}  // namespace ptmatch::cli
