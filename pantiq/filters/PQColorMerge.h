// Puts three gray planes together into colour frames.
#pragma once
#include "pantiq/core/PQMultiInput.h"
#include "pantiq/core/PQRegion.h"

namespace pantiq {

// Whether what lies beside a plane is shown; kept for applications that store it.
enum TPQColorMergeShow : std::uint8_t { psFalse, psTrue, psBackground };

struct TPQFrameOffsetValues {
  std::uint32_t x;
  std::uint32_t y;
  bool operator==(const TPQFrameOffsetValues&) const = default;
};
// Where a plane's top left corner stands in the frame, in pixels.
class PQ_EXPORT TPQFrameOffset final : public TPQGuardedNumbers<TPQFrameOffsetValues> {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQFrameOffset(const TJCObject& lock) : TPQGuardedNumbers(lock, {0, 0}, {}) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::uint32_t GetX() const { return Get().x; }
  void SetX(std::uint32_t x) {
    Update([&](Values& v) { v.x = x; });
  }
  std::uint32_t GetY() const { return Get().y; }
  void SetY(std::uint32_t y) {
    Update([&](Values& v) { v.y = y; });
  }
};

// The offsets of the three planes.
class PQ_EXPORT TPQMergeChannels final : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQMergeChannels(const TJCObject& lock) : lock_(lock), channels_{TPQFrameOffset(lock), TPQFrameOffset(lock), TPQFrameOffset(lock)} {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  void Assign(const TPersistent& source) override;

  TPQFrameOffset& GetChannel1() { return channels_[0]; }
  TPQFrameOffset& GetChannel2() { return channels_[1]; }
  TPQFrameOffset& GetChannel3() { return channels_[2]; }
  // 0 to 2.
  const TPQFrameOffset& Channel(int index) const { return channels_[index]; }

 private:
  const TJCObject& lock_;
  TPQFrameOffset channels_[3];
};

// Each input brings one channel of ColorMode as gray frames. A frame goes out when every connected input that has started has
// brought one; a second frame on an input before that is dropped. Planes are counted among the connected inputs: with the
// first input free, the second brings the first channel. The size of the output is fixed when an input starts: all planes at
// their offsets find room. Inputs are taken as gray, whatever they are.
class PQ_EXPORT TPQColorMerge final : public TPQMultiInput {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQColorMerge(TComponent* owner = nullptr);
  ~TPQColorMerge() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TJCSinkPinList InputPins;

  // What stands where no plane reaches: the low byte is channel 0 of ColorMode, the next one channel 1, the third channel 2.
  TColor GetBackgroundColor() const { return background_.load(std::memory_order_relaxed); }
  void SetBackgroundColor(TColor color);
  TPQMergeChannels& GetChannels() { return channels_; }
  void SetChannels(const TPQMergeChannels& channels) { channels_.Assign(channels); }
  TPQColorMode GetColorMode() const { return color_mode_.load(std::memory_order_relaxed); }
  void SetColorMode(TPQColorMode mode);

  TJCNotifyResult SinkDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags) override;

 private:
  // What is known of the plane on an input; the index counts connected inputs.
  struct Plane {
    std::int32_t width = 0, height = 0;
    std::uint32_t x = 0, y = 0;  // as taken at the start
    bool started = false, received = false;
  };
  void UpdatePinNames();
  // The place of the pin among the connected inputs; -1 if it is none of them.
  int IndexOf(const TJCPin& pin) const;
  // Takes the form of a plane; gives the size that the frame needs, in pixels.
  void FindMaxFrameSize(int index, const TJCStartFrameOperation& start, std::int64_t& width, std::int64_t& height);
  void Start(int index, const TJCStartFrameOperation& start);
  void ProcessImage(const IPQImageBuffer& buffer, int index);
  void FillBackground();

  TPQMergeChannels channels_;
  std::atomic<TColor> background_{0};
  std::atomic<TPQColorMode> color_mode_{cmRGB};
  // Under the frame mutex:
  Plane planes_[3];
  PQImageRef output_;  // the frame in the making; none if it would be too large
};

namespace PQColorMerge {
PQ_EXPORT void Register();
}

}  // namespace pantiq
