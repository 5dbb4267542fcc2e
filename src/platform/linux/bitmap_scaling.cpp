#include "platform/linux/bitmap_scaling.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace tervano {

namespace {

// What one pixel of the result takes from a row or column of the source.
struct Span {
  int first = 0;
  std::vector<float> weights;
};

std::vector<Span> spansFor(int sourceSize, int size) {
  const double ratio = static_cast<double>(sourceSize) / size;
  // The half width of the filter in source pixels: a box where it shrinks, a tent where it grows.
  std::vector<Span> spans(static_cast<std::size_t>(size));
  for (int i = 0; i < size; ++i) {
    Span& span = spans[static_cast<std::size_t>(i)];
    if (ratio >= 1) {
      const double begin = i * ratio;
      const double end = std::min(begin + ratio, static_cast<double>(sourceSize));
      span.first = std::min(static_cast<int>(begin), sourceSize - 1);
      const int last = std::min(static_cast<int>(std::ceil(end)), sourceSize);
      for (int x = span.first; x < last; ++x) {
        const double covered = std::min(end, x + 1.0) - std::max(begin, static_cast<double>(x));
        span.weights.push_back(static_cast<float>(std::max(covered, 0.0) / ratio));
      }
    } else {
      const double centre = std::clamp((i + 0.5) * ratio - 0.5, 0.0, sourceSize - 1.0);
      span.first = static_cast<int>(centre);
      const auto share = static_cast<float>(centre - span.first);
      span.weights.push_back(1 - share);
      if (share > 0) span.weights.push_back(share);
    }
  }
  return spans;
}

std::uint8_t rounded(float value) {
  return static_cast<std::uint8_t>(std::clamp(value + 0.5F, 0.0F, 255.0F));
}

}  // namespace

Bitmap scaledBitmap(const Bitmap& source, int width, int height) {
  if (source.width == width && source.height == height) return source;
  Bitmap result = Bitmap::blank(width, height);
  if (source.width <= 0 || source.height <= 0 || width <= 0 || height <= 0) return result;
  constexpr std::size_t kChannels = 4;
  const auto columns = spansFor(source.width, width);
  const auto rows = spansFor(source.height, height);
  const auto resultRow = static_cast<std::size_t>(width) * kChannels;
  const auto sourceRow = static_cast<std::size_t>(source.width) * kChannels;

  // One source row, stretched across, with colours multiplied by alpha.
  const auto stretchAcross = [&](int y, std::vector<float>& out) {
    const std::uint8_t* line = source.pixels.data() + static_cast<std::size_t>(y) * sourceRow;
    for (std::size_t x = 0; x < columns.size(); ++x) {
      float sum[kChannels] = {};
      const std::uint8_t* pixel = line + static_cast<std::size_t>(columns[x].first) * kChannels;
      for (const float weight : columns[x].weights) {
        const float alpha = weight * static_cast<float>(pixel[3]);
        for (std::size_t channel = 0; channel < 3; ++channel) {
          sum[channel] += alpha * static_cast<float>(pixel[channel]);
        }
        sum[3] += alpha;
        pixel += kChannels;
      }
      std::copy_n(sum, kChannels, out.begin() + static_cast<std::ptrdiff_t>(x * kChannels));
    }
  };

  std::vector<float> across(resultRow);
  std::vector<float> sum(resultRow);
  for (std::size_t y = 0; y < rows.size(); ++y) {
    std::fill(sum.begin(), sum.end(), 0.0F);
    int sourceY = rows[y].first;
    for (const float weight : rows[y].weights) {
      stretchAcross(sourceY++, across);
      for (std::size_t i = 0; i < resultRow; ++i) sum[i] += weight * across[i];
    }
    std::uint8_t* out = result.pixels.data() + y * resultRow;
    for (std::size_t i = 0; i < resultRow; i += kChannels) {
      const float alpha = sum[i + 3];
      if (alpha < 0.5F) continue;
      for (std::size_t channel = 0; channel < 3; ++channel) {
        out[i + channel] = rounded(sum[i + channel] / alpha);
      }
      out[i + 3] = rounded(alpha);
    }
  }
  return result;
}

}  // namespace tervano
