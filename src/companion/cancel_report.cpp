#include "companion/cancel_report.h"

#include <algorithm>

#include "archive/printable.h"
#include "archive/url.h"

namespace tervano {

namespace {

constexpr std::size_t kMostNamedItems = 5;

struct DoneKind {
  const char* className;
  JobChange::Kind change;
  const char* done;
  const char* heading;
};

constexpr DoneKind kDoneKinds[] = {
    {"TVMoveToAction", JobChange::Kind::moved, "moved", "Moved before the end"},
    {"TVCopyToAction", JobChange::Kind::copied, "copied", "Copied before the end"},
    {"TVConvertImageAction", JobChange::Kind::made, "converted", "Made before the end"},
};

}  // namespace

std::string itemNamesOf(const std::vector<std::string>& paths) {
  std::string names;
  const std::size_t shown = std::min(paths.size(), kMostNamedItems);
  for (std::size_t at = 0; at < shown; ++at) {
    if (at > 0) names += ", ";
    names += printable(lastPathComponent(paths[at]));
  }
  if (shown < paths.size()) names += " and " + std::to_string(paths.size() - shown) + " more";
  return names;
}

CancelReport cancelReportOf(const Job& job) {
  CancelReport report;
  for (const auto& kind : kDoneKinds) {
    if (job.subject().className != kind.className) continue;
    std::vector<std::string> sources;
    std::vector<std::string> results;
    for (const auto& change : job.changes()) {
      if (change.kind != kind.change) continue;
      sources.push_back(change.from);
      results.push_back(change.to);
    }
    if (sources.empty()) continue;
    const std::size_t total = std::max(job.subject().paths.size(), sources.size());
    report.text = std::to_string(sources.size()) + " of " + std::to_string(total) +
                  (total == 1 ? " item " : " items ") + (sources.size() == 1 ? "was " : "were ") +
                  kind.done + ": " + itemNamesOf(sources) + ".";
    report.items.push_back({kind.heading, std::move(results)});
  }
  return report;
}

}  // namespace tervano
