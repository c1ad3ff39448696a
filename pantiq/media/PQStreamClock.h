// Places frames on a clock of their own: that of a recording, or of the stream into an encoder.
#pragma once
#include <cstdint>

#include "pantiq/core/RWDataBuffer.h"

namespace pantiq {

// In 100 ns; stands in where nobody tells a frame rate.
inline constexpr std::int64_t kPQUnknownPeriod = 400000;
constexpr std::int64_t PQKnownPeriod(std::int64_t period) { return period > 0 ? period : kPQUnknownPeriod; }

// Only the frames' lengths and the gaps between them count: the clock begins at 0 and never goes back when a source begins
// anew, and frames that were lost on the way leave no hole.
class PQStreamClock {
 public:
  void Reset() { *this = {}; }
  // A source begins anew: no gap before its first frame.
  void BeginAnew() { first_ = true; }

  // The interval of the next frame, in 100 ns. A frame without a stamp lasts a period.
  void Next(const IRWDataBuffer& frame, std::int64_t period, std::int64_t& begin, std::int64_t& end) {
    period = PQKnownPeriod(period);
    std::int64_t gap = 0, duration = period;
    const TBXTimeStamp& stamp = frame.GetTimeStamp();
    if (stamp.GetAvailable()) {
      const TRWSequenceStamp& sequence = frame.GetSequenceStamp();
      if (first_) {
        first_ = false;
      } else if (!sequence.GetAvailable() || sequence.GetBufferNumber() <= last_number_ + 1) {
        gap = stamp.GetBegin() - last_end_;
      }
      if (sequence.GetAvailable()) last_number_ = sequence.GetBufferNumber();
      last_end_ = stamp.GetEnd();
      const std::int64_t length = stamp.GetEnd() - stamp.GetBegin();
      if (length > 0) duration = length;
    }
    if (gap > 0) now_ += gap;
    begin = now_;
    now_ += duration;
    end = now_;
  }

 private:
  bool first_ = true;
  std::int64_t last_end_ = 0, last_number_ = 0;  // of the last frame with a stamp
  std::int64_t now_ = 0;
};

}  // namespace pantiq
