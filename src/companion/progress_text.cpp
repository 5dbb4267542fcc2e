#include "companion/progress_text.h"

#include <array>
#include <cmath>
#include <cstdio>

namespace tervano {

namespace {

constexpr double kUnit = 1000;
constexpr std::chrono::seconds kShortestWatch(3);
constexpr std::chrono::seconds kRecentTime(10);
constexpr double kLeastFraction = 0.02;
constexpr double kSteadiness = 2;
constexpr int kSecondsStep = 5;

double secondsBetween(RemainingTime::Clock::time_point from, RemainingTime::Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

}  // namespace

std::string sizeText(std::uint64_t bytes) {
  if (bytes == 1) return "1 byte";
  if (bytes < static_cast<std::uint64_t>(kUnit)) return std::to_string(bytes) + " bytes";
  constexpr std::array<const char*, 6> kNames{"kB", "MB", "GB", "TB", "PB", "EB"};
  double size = static_cast<double>(bytes) / kUnit;
  std::size_t unit = 0;
  // What would be rounded to the next unit is of that one.
  constexpr double kRoundedUp = 999.95;
  while (size >= kRoundedUp && unit + 1 < kNames.size()) {
    size /= kUnit;
    ++unit;
  }
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", size);
  std::string result = text.data();
  // No locale of the user's.
  if (const auto point = result.find(','); point != std::string::npos) result[point] = '.';
  return result + " " + kNames[unit];
}

void RemainingTime::add(double fraction, Clock::time_point now) {
  if (!first_) first_ = {fraction, now};
  recent_.push_back({fraction, now});
  while (recent_.size() > 2 && now - recent_.front().time > kRecentTime) recent_.pop_front();
}

std::optional<std::chrono::seconds> RemainingTime::remaining() const {
  if (!first_ || recent_.size() < 2) return std::nullopt;
  const Sample& now = recent_.back();
  if (now.time - first_->time < kShortestWatch ||
      now.fraction - first_->fraction < kLeastFraction) {
    return std::nullopt;
  }
  const double allAlong =
      (now.fraction - first_->fraction) / secondsBetween(first_->time, now.time);
  const double lately =
      (now.fraction - recent_.front().fraction) / secondsBetween(recent_.front().time, now.time);
  if (lately * kSteadiness < allAlong || lately > allAlong * kSteadiness) return std::nullopt;
  return std::chrono::seconds(std::lround((1 - now.fraction) / lately));
}

std::string remainingText(std::chrono::seconds remaining) {
  const auto counted = [](std::int64_t count, const std::string& what) {
    return "about " + std::to_string(count) + " " + what + (count == 1 ? "" : "s") + " left";
  };
  const std::int64_t seconds = remaining.count();
  constexpr std::int64_t kMinute = 60;
  constexpr std::int64_t kHour = 60 * kMinute;
  if (seconds > 2 * kHour) return counted((seconds + kHour - 1) / kHour, "hour");
  if (seconds >= kMinute) return counted((seconds + kMinute - 1) / kMinute, "minute");
  return counted((seconds + kSecondsStep - 1) / kSecondsStep * kSecondsStep, "second");
}

std::string progressText(const Job& job, std::optional<std::chrono::seconds> remaining) {
  const JobProgress progress = job.progress();
  std::string text;
  const auto add = [&](const std::string& part) {
    if (!text.empty()) text += ", ";
    text += part;
  };
  // An archive is one whole.
  const bool countsItems = job.subject().className != "TVCompressPasswordAction";
  const bool isOfSeveral = countsItems && progress.itemsTotal > 1;
  if (isOfSeveral) {
    add(std::to_string(progress.itemsDone) + " of " + std::to_string(progress.itemsTotal) +
        " items");
  }
  if (progress.bytes.bytesTotal > 0) {
    add(sizeText(progress.bytes.bytesDone) + " of " + sizeText(progress.bytes.bytesTotal) +
        (isOfSeveral && progress.bytesAreOfOneItem ? " of the next" : ""));
  }
  if (remaining && !text.empty()) add(remainingText(*remaining));
  return text;
}

}  // namespace tervano
