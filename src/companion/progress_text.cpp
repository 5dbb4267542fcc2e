#include "companion/progress_text.h"
#include "translation/translation.h"

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
  if (bytes < static_cast<std::uint64_t>(kUnit)) return trn("{1} byte", "{1} bytes", bytes);
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
  const auto unitsOf = [](std::int64_t count, std::int64_t unit) {
    return static_cast<std::size_t>(std::max<std::int64_t>((count + unit - 1) / unit, 0));
  };
  const std::int64_t seconds = remaining.count();
  constexpr std::int64_t kMinute = 60;
  constexpr std::int64_t kHour = 60 * kMinute;
  if (seconds > 2 * kHour) {
    return trn("about {1} hour left", "about {1} hours left", unitsOf(seconds, kHour));
  }
  if (seconds >= kMinute) {
    return trn("about {1} minute left", "about {1} minutes left", unitsOf(seconds, kMinute));
  }
  return trn("about {1} second left", "about {1} seconds left",
             unitsOf(seconds, kSecondsStep) * kSecondsStep);
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
    add(tr("{1} of {2} items", progress.itemsDone, progress.itemsTotal));
  }
  if (progress.bytes.bytesTotal > 0) {
    const std::string done = sizeText(progress.bytes.bytesDone);
    const std::string total = sizeText(progress.bytes.bytesTotal);
    add(isOfSeveral && progress.bytesAreOfOneItem ? tr("{1} of {2} of the next", done, total)
                                                  : tr("{1} of {2}", done, total));
  }
  if (remaining && !text.empty()) add(remainingText(*remaining));
  return text;
}

}  // namespace tervano
