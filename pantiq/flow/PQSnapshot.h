// Freezes a stream on demand.
#pragma once
#include <mutex>

#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

// Keeps the newest frame and sends nothing by itself. A pulse, on SnapshotPin or by Snapshot, makes the newest frame
// the current picture. With PreserveFrameRate the current picture, black until the first pulse, leaves for every frame
// that comes, with that frame's stamps; without it, one picture leaves for each pulse, as often as pulses come.
// Pictures are vfRGB24. Enabled is of no meaning here.
//
// Threads. Frames, pulses, starts and stops come on any threads; a picture goes out on the thread that causes it.
class PQ_EXPORT TPQSnapshot final : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQSnapshot(TComponent* owner = nullptr);
  ~TPQSnapshot() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TJCClockSinkPin SnapshotPin;

  bool GetPreserveFrameRate() const { return preserve_.load(std::memory_order_relaxed); }
  void SetPreserveFrameRate(bool preserve);

  // Takes a snapshot. False if there is none to take: no frame has come since the start, or after a stop the last one
  // has been fetched.
  bool Snapshot() { return TakeSnapshot(); }
  // A pulse at SnapshotPin.
  void OnClockEvent() { Snapshot(); }

 protected:
  void InternalOperation(const PQImageRef& in, PQImageRef& out, bool enabled, bool& send) override;
  void Reset() override;
  void Stop() override;
  void SetSizeRate(std::int32_t& width, std::int32_t& height, std::int64_t frame_delay) override;
  void BeforeDestruction() override;

 private:
  bool TakeSnapshot();
  // A view of the current picture, to be sent; null if it is too large to be made. With the mutex held.
  PQImageRef Current();

  std::atomic<bool> preserve_{false}, told_{false};
  std::mutex mutex_;  // a leaf: nothing is called under it. It guards what follows.
  TPQImageBuffer latest_, current_;
  std::int32_t black_width_ = 0,
               black_height_ = 0;  // of a current picture that nobody has asked for yet; 0: it is there
  bool frame_waiting_ = false, running_ = false;
};

namespace PQSnapshot {
PQ_EXPORT void Register();
}

}  // namespace pantiq
