// Converts a stream to another frame rate.
#pragma once
#include <vector>

#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

enum TPQRateChangeOperation : std::uint8_t { froUpSample, froDownSample, froNone };

// Going up, the frames between two incoming ones are blends of the last frame that was sent and the new one; going
// down, an outgoing frame is a blend of the two incoming ones around its time. At the rate that comes in, frames pass
// as they are. Blending is in double precision, rounded to nearest, halves to even (PQBlend_8u_C1R); where the rates
// have no common measure the weight of the new frame can exceed 1 and the result is cut off at 0 and 255.
//
// The rate that comes in counts as a whole number: a delay of 333667 is 30 frames a second. A stream that comes with
// less than one frame a second passes as it is. Made frames are numbered from 0 and stamped n / FrameRate seconds after
// the first frame's beginning, without accumulation. Frames are vfRGB24 or gray. Enabled is of no meaning here.
class PQ_EXPORT TPQChangeRate final : public TPQCommonFilter {
 public:
  static constexpr int kMostBuffers = 10000;  // frames made of one that comes
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQChangeRate(TComponent* owner = nullptr);
  ~TPQChangeRate() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // Frames per second that leave; acts at the next start. Not finite or not above 0: none leaves.
  double GetFrameRate() const { return frame_rate_.load(std::memory_order_relaxed); }
  void SetFrameRate(double rate);

  TJCNotifyResult SinkDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) override;

 protected:
  void SetVideoFormat(PQImageRef& buffer) override { AcceptGray(buffer); }
  TJCNotifyResult BufferOperation(TJCSuppliedBufferOperation& op, TJCNotifyFlags flags) override;
  // As many new buffers as the ratio needs; they take the frames' form when something is blended into them.
  void ReCreateFrameBufferArray();
  // `destination` takes the form of `second`, which counts with this weight and `first` with what is left of 1; it may be
  // the object that `first` is.
  void BlendBuffers(const IPQImageBuffer& first, const IPQImageBuffer& second, TPQImageBuffer& destination,
                    double second_weight);

 private:
  void Start(TJCStartFrameOperation& start);
  TJCNotifyResult UpSample(const PQImageRef& frame, TJCNotifyFlags flags);
  TJCNotifyResult DownSample(const PQImageRef& frame, TJCNotifyFlags flags);
  // Sends a view of a buffer, as the next frame.
  TJCNotifyResult Submit(const TPQImageBuffer& made, TJCNotifyFlags flags);

  std::atomic<double> frame_rate_{15.0};

  // Under the frame mutex:
  JCFrameMutex frame_mutex_;
  TPQRateChangeOperation operation_ = froNone;
  std::int32_t counter_ = 0;  // of the frames that were made
  PQImageRef previous_;
  std::vector<PQRef<TPQImageBuffer>> buffers_;
  std::size_t needed_ = 0;
  unsigned stream_ = 0;  // counts the beginnings
  bool silent_ = false;  // no frame leaves
  double output_rate_ = 0;
  double input_interval_ = 0, output_interval_ = 0;     // seconds
  double input_time_ = 0, output_time_ = 0, lead_ = 0;  // seconds since the start
  double weight_step_ = 0;
  std::int64_t origin_ = 0;  // time stamp of the first frame, 100 ns
};

namespace PQChangeRate {
PQ_EXPORT void Register();
}

}  // namespace pantiq
