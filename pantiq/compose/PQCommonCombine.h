// The base of components that lay two images over one another at an offset.
#pragma once
#include "pantiq/compose/PQCombinePanes.h"
#include "pantiq/core/PQMultiInput.h"

namespace pantiq {

// What size frames have: of the part that both images cover, of the rectangle round both, of the one in one direction
// and the other in the other, or a size of one's own.
enum TPQCombineSizeMode : std::uint8_t {
  smIntersect,
  smWrappingRect,
  smVerticalIntersect,
  smHorizontalIntersect,
  smCustom
};

template <>
struct PQEnumWords<TPQCombineSizeMode> {
  static constexpr std::string_view name = "TPQCombineSizeMode";
  static constexpr PQWord words[] = {{"smIntersect", smIntersect},
                                     {"smWrappingRect", smWrappingRect},
                                     {"smVerticalIntersect", smVerticalIntersect},
                                     {"smHorizontalIntersect", smHorizontalIntersect},
                                     {"smCustom", smCustom}};
};

// The rule for the size of frames. Each setter makes the owner plan its panes anew. Any thread.
class PQ_EXPORT TPQCombineFrameSize final : public TPersistent {
 public:
  struct Values {
    std::uint32_t width, height;  // pixels, used with `custom`
    bool custom, extend_horizontal, extend_vertical;
  };
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  // `lock` is the owner's and outlives this object; `changed` runs at the end of each setter, outside the lock.
  TPQCombineFrameSize(const TJCObject& lock, std::function<void()> changed)
      : lock_(lock), changed_(std::move(changed)) {
    SetMode(smWrappingRect);
  }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  // Takes from an object of its own class alone.
  void Assign(const TPersistent& source) override;

  std::uint32_t GetWidth() const { return Get().width; }
  void SetWidth(std::uint32_t width);
  std::uint32_t GetHeight() const { return Get().height; }
  void SetHeight(std::uint32_t height);
  TPQCombineSizeMode GetSizeMode() const;
  // A number that is no mode is ignored.
  void SetSizeMode(TPQCombineSizeMode mode);
  // All of one moment.
  Values Get() const;

 private:
  void SetMode(TPQCombineSizeMode mode);
  const TJCObject& lock_;
  std::function<void()> changed_;
  Values values_{240, 180, false, true, true};
};

// Where image 1 lies, as seen from image 2, in pixels. Each setter makes the owner plan its panes anew. Any thread.
class PQ_EXPORT TPQCombineOffset final : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  TPQCombineOffset(const TJCObject& lock, std::function<void()> changed) : lock_(lock), changed_(std::move(changed)) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  // Takes from an object of its own class alone.
  void Assign(const TPersistent& source) override;

  std::int32_t GetHorizontal() const { return horizontal_.load(std::memory_order_relaxed); }
  void SetHorizontal(std::int32_t horizontal);
  std::int32_t GetVertical() const { return vertical_.load(std::memory_order_relaxed); }
  void SetVertical(std::int32_t vertical);

 private:
  const TJCObject& lock_;
  std::function<void()> changed_;
  std::atomic<std::int32_t> horizontal_{0}, vertical_{0};
};

// Joins the first input, image 1, and the second, image 2. Where they overlap a subclass decides the pixels
// (DoCombineOp); where one lies alone it is copied; the rest is the background.
//
// The size of frames follows from the images as they were at the start of the output, which is the start of the first
// input: an input that has not started then has no size. It stays until the next start; images and offsets that change
// meanwhile are cut to it on the right and below, and what they leave free is background. Until both connected inputs
// run each frame of the other makes one output; an input that has stopped shows the background in its size.
//
// A frame carries the stamps of the newest frame in it: of the faster input, image 1 at equal rates; its date and time
// are not available.
class PQ_EXPORT TPQCommonCombine : public TPQMultiInput {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQCommonCombine(TComponent* owner);
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // Acts at the next start; a change also has the panes planned anew with the next frame.
  TPQCombineFrameSize& GetFrameSize() { return frame_size_; }
  void SetFrameSize(const TPQCombineFrameSize& size) { frame_size_.Assign(size); }
  // Acts on the next frame; the size of frames follows at the next start.
  TPQCombineOffset& GetOffset() { return offset_; }
  const TPQCombineOffset& Offset() const { return offset_; }
  void SetOffset(const TPQCombineOffset& offset) { offset_.Assign(offset); }
  // A colour, or one of the system (0x80000000 and its number). Acts on the next frame.
  TColor GetBackgroundColor() const { return background_.load(std::memory_order_relaxed); }
  void SetBackgroundColor(TColor color);

  // Has the panes planned anew with the next frame. Any thread.
  void UnInitializeFramePanes();

 protected:
  // Makes every pixel of `size` of `dst` from the pixels of image 1 (`a`) and image 2 (`b`) at the same place, pixels
  // of `pixel_size` bytes, steps in bytes, the three apart. Runs under the component's write lock: sends nothing, waits
  // for nothing.
  virtual void DoCombineOp(const std::uint8_t* a, int a_step, const std::uint8_t* b, int b_step, std::uint8_t* dst,
                           int dst_step, IppiSize size, int pixel_size) = 0;
  void CalculateSendStart(double rate, std::int32_t width, std::int32_t height) override;
  void CalculateSendOutput() override;
  void IntStop() override;
  bool StartIfNotAllRunning() const override { return true; }

 private:
  // Under the write lock:
  void InitializeFramePanes(bool set_frame_size, IppiSize image1, IppiSize image2);
  void DrawApart(const IPQImageBuffer& image1, const IPQImageBuffer& image2, IPQImageBuffer& out,
                 const std::uint8_t* color);
  void DrawPanes(const IPQImageBuffer& image1, const IPQImageBuffer& image2, IPQImageBuffer& out,
                 const std::uint8_t* color);
  bool FrameFits() const;

  TPQCombineFrameSize frame_size_;
  TPQCombineOffset offset_;
  std::atomic<TColor> background_{0};
  // Under the write lock:
  PQCombinePanes panes_;
  IppiSize planned1_{0, 0}, planned2_{0, 0};  // the images that the plan was made for
  bool panes_valid_ = false;
};

}  // namespace pantiq
