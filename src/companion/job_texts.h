#pragma once

#include <cstdint>
#include <string>

#include "history/job_history.h"
#include "translation/translation.h"

namespace tervano {

// "1 item", "2 items".
Sentence countOfItems(std::size_t count);
// "Job 12, "Move to Sorted"".
Sentence nameOfJob(const RecordedJob& job);
// A sentence on a job whose process was killed: what it had done by then.
Sentence interruptionOf(const RecordedJob& job);

// A time of the history as the user's clock shows it, and in UTC as ISO 8601 has it; empty for 0.
std::string localTimeText(std::int64_t nanoseconds);
std::string isoTimeText(std::int64_t nanoseconds);

}  // namespace tervano
