// Counts the values of each frame.
#pragma once
#include "pantiq/filters/PQColorPlanes.h"

namespace pantiq {

// For each frame, each output carries the histogram of one channel of ColorMode: a block of UpperLevel - LowerLevel + 1
// numbers, one for each value. A block has the time stamp of its frame.
class PQ_EXPORT TPQHistogram final : public TPQCommonPlaneSink {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQHistogram(TComponent* owner = nullptr);
  ~TPQHistogram() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // First and last value counted; above 255 counts as 255. The lower one is never above the upper one: whichever is set
  // moves the other along.
  std::uint16_t GetLowerLevel() const { return GetLevels().lower; }
  void SetLowerLevel(std::uint16_t level);
  std::uint16_t GetUpperLevel() const { return GetLevels().upper; }
  void SetUpperLevel(std::uint16_t level);

 protected:
  void ProcessImage(PQImageRef buffer) override;
  void SendStart(TJCStartFrameOperation& start) override;

 private:
  struct Levels {
    std::uint16_t lower, upper;
    int Count() const { return upper - lower + 1; }
  };
  Levels GetLevels() const {
    auto section = Lock().ReadLock();
    return levels_;
  }
  Levels levels_{0, 255};  // under the lock
};

namespace PQHistogram {
PQ_EXPORT void Register();
}

}  // namespace pantiq
