#pragma once

#include <string>
#include <vector>

#include "jobs/job.h"
#include "translation/translation.h"

namespace tervano {

// What became of the items of a run that was cancelled.
struct CancelReport {
  struct Items {
    // Such as "Moved before the end".
    Sentence heading;
    // Where they are now, or were.
    std::vector<std::string> paths;
  };

  // In sentences, a few items by name: "2 of 5 items were moved: a, b." Empty when nothing was
  // done.
  Sentence text;
  // All of them.
  std::vector<Items> items;
};

// Names of the paths' items for a sentence; of many the first and how many more there are.
Sentence itemNamesOf(const std::vector<std::string>& paths);

// Of a job that moved, copied or converted: what it finished.
CancelReport cancelReportOf(const Job& job);

}  // namespace tervano
