#include "Plot.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>

namespace pantiq::app {
namespace {

constexpr int kWidth = 800, kHeight = 400, kLeft = 72, kRight = 16, kTop = 16, kBottom = 28;
constexpr int kInnerWidth = kWidth - kLeft - kRight, kInnerHeight = kHeight - kTop - kBottom;
constexpr std::size_t kMostColumns = 2 * kInnerWidth;

// Three by five dots each, a row in three bits, the upper row first.
struct Glyph {
  char letter;
  std::array<std::uint8_t, 5> rows;
};
constexpr Glyph kGlyphs[] = {{'0', {7, 5, 5, 5, 7}}, {'1', {2, 6, 2, 2, 7}}, {'2', {7, 1, 7, 4, 7}}, {'3', {7, 1, 7, 1, 7}},
                             {'4', {5, 5, 7, 1, 1}}, {'5', {7, 4, 7, 1, 7}}, {'6', {7, 4, 7, 5, 7}}, {'7', {7, 1, 2, 2, 2}},
                             {'8', {7, 5, 7, 5, 7}}, {'9', {7, 5, 7, 1, 7}}, {'-', {0, 0, 7, 0, 0}}, {'+', {0, 2, 7, 2, 0}},
                             {'.', {0, 0, 0, 0, 2}}, {'e', {0, 3, 7, 4, 3}}};

class Canvas {
 public:
  Canvas() : pixels_(static_cast<std::size_t>(kWidth) * kHeight * 3, 255) {}
  // Clipped; the colour is 0xRRGGBB.
  void Box(int x0, int y0, int x1, int y1, unsigned color) {
    for (int y = std::max(y0, 0); y <= std::min(y1, kHeight - 1); ++y) {
      for (int x = std::max(x0, 0); x <= std::min(x1, kWidth - 1); ++x) {
        std::uint8_t* const to = &pixels_[(static_cast<std::size_t>(y) * kWidth + static_cast<std::size_t>(x)) * 3];
        to[0] = static_cast<std::uint8_t>(color), to[1] = static_cast<std::uint8_t>(color >> 8),
        to[2] = static_cast<std::uint8_t>(color >> 16);
      }
    }
  }
  void Text(int x, int y, const std::string& text) {
    for (const char c : text) {
      for (const Glyph& glyph : kGlyphs) {
        for (int row = 0; glyph.letter == c && row < 5; ++row) {
          for (int dot = 0; dot < 3; ++dot) {
            if ((glyph.rows[static_cast<std::size_t>(row)] >> (2 - dot) & 1) != 0)
              Box(x + 2 * dot, y + 2 * row, x + 2 * dot + 1, y + 2 * row + 1, 0x404040);
          }
        }
      }
      x += 8;
    }
  }
  const std::uint8_t* Data() const { return pixels_.data(); }

 private:
  std::vector<std::uint8_t> pixels_;
};

std::string Label(double value) {
  char text[32];
  const auto [end, error] = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6);
  return {text, end};
}

// A distance of 1, 2 or 5 times a power of ten that cuts the range into about `parts`.
double NiceStep(double range, int parts) {
  const double rough = range / parts, power = std::pow(10.0, std::floor(std::log10(rough)));
  for (const double times : {1.0, 2.0, 5.0}) {
    if (times * power >= rough) return times * power;
  }
  return 10 * power;
}

// Calls `tick(value)` for the round values within low..high.
template <class Tick>
void ForTicks(double low, double high, int parts, Tick tick) {
  const double step = NiceStep(high - low, parts);
  if (!std::isfinite(step) || !(step > 0)) return;
  for (double i = std::ceil(low / step), end = std::floor(high / step); i <= end; ++i) tick(i * step);
}

}  // namespace

void Plot::Add(std::span<const double> values) {
  if (sums_.size() < values.size()) sums_.resize(values.size()), blocks_.resize(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    const double v = values[i];
    ++count_;
    if (std::isfinite(v)) sums_[i] += v, ++blocks_[i];
    const double nan = std::numeric_limits<double>::quiet_NaN();
    if (in_open_ == 0) open_ = {nan, nan};
    if (std::isfinite(v)) open_ = {std::fmin(open_.least, v), std::fmax(open_.greatest, v)};
    if (++in_open_ < width_) continue;
    in_open_ = 0;
    columns_.push_back(open_);
    if (columns_.size() < kMostColumns) continue;
    for (std::size_t k = 0; k < kMostColumns / 2; ++k) {
      columns_[k] = {std::fmin(columns_[2 * k].least, columns_[2 * k + 1].least),
                     std::fmax(columns_[2 * k].greatest, columns_[2 * k + 1].greatest)};
    }
    columns_.resize(kMostColumns / 2);
    width_ *= 2;
  }
}

TPicture& Plot::Draw(bool bars, TPicture& picture) const {
  std::vector<Column> columns;
  if (bars) {
    for (std::size_t i = 0; i < sums_.size(); ++i) {
      const double mean = sums_[i] / static_cast<double>(blocks_[i]);  // not a number without blocks
      columns.push_back({std::fmin(mean, 0), std::fmax(mean, 0)});
    }
  } else {
    columns = columns_;
    if (in_open_ > 0) columns.push_back(open_);
  }
  double low = bars ? 0 : std::numeric_limits<double>::infinity(), high = bars ? 0 : -low;
  for (const Column& column : columns) low = std::fmin(low, column.least), high = std::fmax(high, column.greatest);
  if (!(low <= high)) low = high = 0;
  if (low == high) low -= bars ? 0 : 0.5, high += bars ? 1 : 0.5;

  Canvas canvas;
  const auto row = [&](double value) { return kTop + static_cast<int>(std::lround((high - value) / (high - low) * kInnerHeight)); };
  const double span = static_cast<double>(bars ? columns.size() : std::max<std::int64_t>(count_, 1));  // numbers along the axis
  const auto place = [&](double number) { return kLeft + static_cast<int>(number / span * kInnerWidth); };
  ForTicks(low, high, 6, [&](double value) {
    canvas.Box(kLeft, row(value), kWidth - kRight, row(value), 0xdddddd);
    const std::string text = Label(value);
    canvas.Text(kLeft - 6 - 8 * static_cast<int>(text.size()), row(value) - 5, text);
  });
  ForTicks(0, std::max(span - 1, 1.0), 8, [&](double number) {
    const int x = place(number);
    canvas.Box(x, kTop + kInnerHeight, x, kTop + kInnerHeight + 4, 0x404040);
    const std::string text = Label(number);
    canvas.Text(x - 4 * static_cast<int>(text.size()) + 1, kHeight - kBottom + 10, text);
  });
  const double numbers = bars ? 1 : static_cast<double>(width_);  // in a column
  int before = -1;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const Column& column = columns[i];
    if (std::isnan(column.least)) {
      before = -1;
      continue;
    }
    const int x0 = place(static_cast<double>(i) * numbers);
    const int x1 = std::max(x0, std::min(place(static_cast<double>(i + 1) * numbers), kWidth - kRight) - 1);
    int top = row(column.greatest), bottom = row(column.least);
    if (!bars && before >= 0) canvas.Box(x0, std::min(before, top), x0, std::max(before, bottom), 0x1f5fa8);
    canvas.Box(x0, top, x1, bottom, 0x1f5fa8);
    before = (top + bottom) / 2;
  }
  canvas.Box(kLeft, kTop, kLeft, kTop + kInnerHeight, 0x404040);
  canvas.Box(kLeft, row(std::clamp(0.0, low, high)), kWidth - kRight, row(std::clamp(0.0, low, high)), 0x404040);
  picture.SetPixels(kWidth, kHeight, canvas.Data(), static_cast<std::size_t>(kWidth) * 3);
  return picture;
}

}  // namespace pantiq::app
