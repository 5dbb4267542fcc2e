#include "companion/job_texts.h"

#include <array>
#include <ctime>

#include "archive/printable.h"

namespace tervano {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

std::string formattedTime(const struct tm& parts, const char* format) {
  constexpr std::size_t kRoom = 64;
  std::array<char, kRoom> text{};
  return {text.data(), std::strftime(text.data(), text.size(), format, &parts)};
}

}  // namespace

Sentence countOfItems(std::size_t count) {
  return trn("{1} item", "{1} items", count);
}

Sentence nameOfJob(const RecordedJob& job) {
  const std::string& title = job.subject.title;
  return tr("Job {1}, \"{2}\"", job.number,
            title.empty() ? tr("(no title)") : Sentence(printable(title)));
}

Sentence interruptionOf(const RecordedJob& job) {
  const Sentence name = nameOfJob(job);
  if (job.itemsTotal == 0) return tr("{1}, was interrupted.", name);
  return trn("{2}, was interrupted: {3} of {1} item is done.",
             "{2}, was interrupted: {3} of {1} items are done.", job.itemsTotal, name,
             job.itemsDone);
}

std::string localTimeText(std::int64_t nanoseconds) {
  if (nanoseconds == 0) return "";
  const std::time_t seconds = nanoseconds / kNanosecondsPerSecond;
  struct tm parts {};
  localtime_r(&seconds, &parts);
  return formattedTime(parts, "%Y-%m-%d %H:%M:%S");
}

std::string isoTimeText(std::int64_t nanoseconds) {
  if (nanoseconds == 0) return "";
  const std::time_t seconds = nanoseconds / kNanosecondsPerSecond;
  struct tm parts {};
  gmtime_r(&seconds, &parts);
  return formattedTime(parts, "%Y-%m-%dT%H:%M:%SZ");
}

}  // namespace tervano
