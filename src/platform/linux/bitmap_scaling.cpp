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

constexpr std::size_t kScaledChannels = 4;

// Adds a source row to `sum`, with colours multiplied by alpha.
void addRow(const std::uint8_t* row, float weight, std::vector<float>& sum) {
  for (std::size_t i = 0; i < sum.size(); i += kScaledChannels) {
    const float alpha = weight * static_cast<float>(row[i + 3]);
    for (std::size_t channel = 0; channel < 3; ++channel) {
      sum[i + channel] += alpha * static_cast<float>(row[i + channel]);
    }
    sum[i + 3] += alpha;
  }
}

void stretchAcross(const std::vector<float>& row, const std::vector<Span>& columns,
                   std::vector<float>& out) {
  auto* pixel = out.data();
  for (const auto& column : columns) {
    float sum[kScaledChannels] = {};
    const float* source = row.data() + static_cast<std::size_t>(column.first) * kScaledChannels;
    for (const float weight : column.weights) {
      for (float& channel : sum) channel += weight * *source++;
    }
    pixel = std::copy_n(sum, kScaledChannels, pixel);
  }
}

void storeRow(const std::vector<float>& row, std::uint8_t* out) {
  for (std::size_t i = 0; i < row.size(); i += kScaledChannels) {
    const float alpha = row[i + 3];
    if (alpha < 0.5F) continue;
    for (std::size_t channel = 0; channel < 3; ++channel) {
      out[i + channel] = rounded(row[i + channel] / alpha);
    }
    out[i + 3] = rounded(alpha);
  }
}

}  // namespace

Bitmap scaledBitmap(const Bitmap& source, int width, int height) {
  if (source.width == width && source.height == height) return source;
  Bitmap result = Bitmap::blank(width, height);
  if (source.width <= 0 || source.height <= 0 || width <= 0 || height <= 0) return result;
  const auto columns = spansFor(source.width, width);
  const auto rows = spansFor(source.height, height);
  const auto sourceRow = static_cast<std::size_t>(source.width) * kScaledChannels;
  const auto resultRow = static_cast<std::size_t>(width) * kScaledChannels;
  const auto sourceRowAt = [&](int y) {
    return source.pixels.data() + static_cast<std::size_t>(y) * sourceRow;
  };
  std::vector<float> sum(resultRow);

  if (height <= source.height) {
    // Down first, so that every source pixel is visited once, however odd the shape.
    std::vector<float> whole(sourceRow);
    for (std::size_t y = 0; y < rows.size(); ++y) {
      std::fill(whole.begin(), whole.end(), 0.0F);
      int sourceY = rows[y].first;
      for (const float weight : rows[y].weights) addRow(sourceRowAt(sourceY++), weight, whole);
      stretchAcross(whole, columns, sum);
      storeRow(sum, result.pixels.data() + y * resultRow);
    }
    return result;
  }
  // Across first: a source row goes into several rows of the result.
  std::vector<std::vector<float>> across(static_cast<std::size_t>(source.height),
                                         std::vector<float>(resultRow));
  std::vector<float> whole(sourceRow);
  for (int y = 0; y < source.height; ++y) {
    std::fill(whole.begin(), whole.end(), 0.0F);
    addRow(sourceRowAt(y), 1, whole);
    stretchAcross(whole, columns, across[static_cast<std::size_t>(y)]);
  }
  for (std::size_t y = 0; y < rows.size(); ++y) {
    std::fill(sum.begin(), sum.end(), 0.0F);
    auto sourceY = static_cast<std::size_t>(rows[y].first);
    for (const float weight : rows[y].weights) {
      const auto& row = across[sourceY++];
      for (std::size_t i = 0; i < resultRow; ++i) sum[i] += weight * row[i];
    }
    storeRow(sum, result.pixels.data() + y * resultRow);
  }
  return result;
}

}  // namespace tervano
