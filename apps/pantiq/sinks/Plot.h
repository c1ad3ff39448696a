// A picture of numbers: bars of the mean of all blocks, or a trace of all numbers in the order of their coming. Memory stays
// bounded however long a trace gets: then several numbers share a column, which shows their least and their greatest.
#pragma once
#include <cstdint>
#include <span>
#include <vector>

#include "pantiq/host/PQPicture.h"
#include "pantiq/host/PQStatus.h"

namespace pantiq::app {

enum NumbersPlot : std::uint8_t { npAuto, npBars, npTrace };

class Plot {
 public:
  void Add(std::span<const double> values);
  std::int64_t Count() const { return count_; }
  // 800 by 400 pixels, with axes and labels. Nothing is drawn of numbers that are not finite.
  TPicture& Draw(bool bars, TPicture& picture) const;

 private:
  struct Column {
    double least, greatest;
  };
  // Of bars.
  std::vector<double> sums_;
  std::vector<std::int64_t> blocks_;
  // Of the trace: finished columns of width_ numbers, and the one in the making.
  std::vector<Column> columns_;
  Column open_{};
  std::int64_t width_ = 1, in_open_ = 0, count_ = 0;
};

}  // namespace pantiq::app
