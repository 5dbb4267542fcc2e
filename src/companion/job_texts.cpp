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

std::string countOfItems(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " item" : " items");
}

std::string nameOfJob(const RecordedJob& job) {
  const std::string& title = job.subject.title;
  return "Job " + std::to_string(job.number) + ", \"" +
         (title.empty() ? "(no title)" : printable(title)) + "\"";
}

std::string interruptionOf(const RecordedJob& job) {
  std::string text = nameOfJob(job) + ", was interrupted";
  if (job.itemsTotal == 0) return text + ".";
  text += ": " + std::to_string(job.itemsDone) + " of " + countOfItems(job.itemsTotal);
  return text + (job.itemsTotal == 1 ? " is done." : " are done.");
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
