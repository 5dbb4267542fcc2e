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
  const char* heading;
};

constexpr DoneKind kDoneKinds[] = {
    {"TVMoveToAction", JobChange::Kind::moved, trMark("Moved before the end")},
    {"TVCopyToAction", JobChange::Kind::copied, trMark("Copied before the end")},
    {"TVConvertImageAction", JobChange::Kind::made, trMark("Made before the end")},
};

Sentence sentenceOfDone(JobChange::Kind kind, std::size_t done, std::size_t total,
                        const Sentence& names) {
  const Sentence items = trn("{1} item", "{1} items", total);
  switch (kind) {
    case JobChange::Kind::moved:
      return trn("{1} of {2} was moved: {3}.", "{1} of {2} were moved: {3}.", done, items, names);
    case JobChange::Kind::copied:
      return trn("{1} of {2} was copied: {3}.", "{1} of {2} were copied: {3}.", done, items, names);
    default:
      return trn("{1} of {2} was converted: {3}.", "{1} of {2} were converted: {3}.", done, items,
                 names);
  }
}

}  // namespace

Sentence itemNamesOf(const std::vector<std::string>& paths) {
  std::string names;
  const std::size_t shown = std::min(paths.size(), kMostNamedItems);
  for (std::size_t at = 0; at < shown; ++at) {
    if (at > 0) names += ", ";
    names += printable(lastPathComponent(paths[at]));
  }
  if (shown == paths.size()) return names;
  return trn("{2} and one more", "{2} and {1} more", paths.size() - shown, names);
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
    report.text = sentenceOfDone(kind.change, sources.size(), total, itemNamesOf(sources));
    report.items.push_back({translated(kind.heading), std::move(results)});
  }
  return report;
}

}  // namespace tervano
