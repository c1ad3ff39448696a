// The base of ordinary filters: one image in, one image out. A filter is a subclass that says what it does to one frame;
// the base owns the pins, the buffer traffic, the enabled state, start, stop and pump.
//
//   TPQCommonFilter                          one frame in, one frame out
//     TPQCommonROIFilter                     works on a region of the frame
//       TPQCommonROISizeFilter               output of another size
//       TPQCommonROIMatrixFilter             a neighbourhood: mask size and anchor
//         TPQCommonROIMatrixFilterIntermidiate   the frame path of all neighbourhood filters
//
// Threads. Frames are processed on the sender's thread, without a lock: a property is read once per frame and a filter
// sees its old or its new value. Setters run on any thread and take the write lock. A filter with state of its own calls
// SerialiseFrames() in its constructor; its starts, stops and frames then never overlap.
#pragma once
#include <atomic>
#include <memory>

#include "pantiq/core/PQRegion.h"
#include "pantiq/core/PQStreamTypes.h"

namespace pantiq {

class PQ_EXPORT TPQCommonFilter : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQCommonFilter(TComponent* owner);
  ~TPQCommonFilter() override;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 private:
  TJCObject lock_;  // before the pins: they join it

 public:
  TPQJCImageSourcePin OutputPin;
  TPQJCImageSinkPin InputPin;

  bool GetEnabled() const { return enabled_.load(std::memory_order_relaxed); }
  // Takes effect with the next frame; nothing is sent.
  virtual void SetEnabled(bool enabled);

  // True if the filter works in place, so that `in` and `out` may be one buffer.
  virtual bool CanInline() const { return false; }
  // Operations that come up at OutputPin: on, up through InputPin if it is connected.
  virtual TJCNotifyResult SourceDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  // Operations that come down at InputPin.
  virtual TJCNotifyResult SinkDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

 protected:
  // Makes the incoming frame acceptable: the base converts it to vfRGB24. A filter that takes gray frames as they are
  // returns at once for vfGrayScale and calls the inherited operation otherwise (AcceptGray does that).
  virtual void SetVideoFormat(PQImageRef& buffer);
  // One frame, enabled or not. `out` equals `in` at entry, and is `in` itself if the filter works in place or is disabled;
  // `send` false keeps the frame from going out.
  virtual void InternalOperation(const PQImageRef& in, PQImageRef& out, bool enabled, bool& send);
  // One frame while Enabled is false: the base passes the frame itself. An overrider makes a new `out`.
  virtual void ProcessDisabled(const PQImageRef& in, PQImageRef& out);
  // One supplied buffer: view, SetVideoFormat, InternalOperation, submit.
  virtual TJCNotifyResult BufferOperation(TJCSuppliedBufferOperation& op, TJCNotifyFlags flags);
  // The filter's work. Frames without pixels never come here. The base leaves `out` as it is, equal to `in`: filters that
  // have a frame path of their own need nothing else.
  virtual void FilterInternalOperation(const PQImageRef& in, PQImageRef& out);
  // Clears the filter's state; after SetSizeRate, before the start goes on.
  virtual void Reset() {}
  virtual void StartPump();
  // True swallows the stop. The base calls Stop and answers false.
  virtual bool OptionalStop();
  virtual void Stop() {}
  // A new format arrived; may change what is announced downstream. Overriders call the inherited operation last.
  virtual void SetSizeRate(std::int32_t& width, std::int32_t& height, std::int64_t frame_delay);
  virtual void PumpRequest(TJCPumpRequestOperation& op, TJCNotifyFlags flags);
  // Clips a kernel call to the region of interest: size, source and destination pointer. The base changes nothing.
  virtual void ReclaculateRoiAndOffset(IppiSize& size, const std::uint8_t*& source, const IPQImageBuffer& buffer,
                                       std::uint8_t*& destination);
  // Gives `second` the size of `first` again.
  virtual void RestoreBufferSize(const IPQImageBuffer& first, IPQImageBuffer& second);
  void BeforeDestruction() override;

  // The form for in-place use, with one pointer.
  void ReclaculateRoiAndOffsetI(IppiSize& size, const IPQImageBuffer& buffer, std::uint8_t*& pointer);

  // SetVideoFormat of a filter that processes gray frames in their own format.
  void AcceptGray(PQImageRef& buffer) {
    if (buffer->GetFormat() != vfGrayScale) TPQCommonFilter::SetVideoFormat(buffer);
  }
  void SerialiseFrames() { frame_mutex_ = std::make_unique<JCFrameMutex>(); }
  const TJCObject& Lock() const { return lock_; }
  // What was announced downstream by the last start.
  std::int32_t StreamWidth() const { return stream_width_.load(std::memory_order_relaxed); }
  std::int32_t StreamHeight() const { return stream_height_.load(std::memory_order_relaxed); }

 private:
  TJCNotifyResult DispatchDown(IJCNotifyOperation& op, TJCNotifyFlags flags);
  std::unique_ptr<JCFrameMutex> frame_mutex_;
  std::atomic<bool> enabled_{true};
  std::atomic<std::int32_t> stream_width_{0}, stream_height_{0};
};

// Works on a region of the frame; what lies outside keeps the input's values.
class PQ_EXPORT TPQCommonROIFilter : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQCommonROIFilter(TComponent* owner);
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQRectRegion& GetRegion() { return region_; }
  void SetRegion(const TPQRectRegion& region) { region_.Assign(region); }

 protected:
  // Left and Top are clipped to the last column and row, the size to what is left. A frame without pixels, or a region that
  // becomes empty, leaves the pointers and gives a roi of 0 by 0.
  void ReclaculateRoiAndOffset(IppiSize& size, const std::uint8_t*& source, const IPQImageBuffer& buffer,
                               std::uint8_t*& destination) override;
  // Copies what lies outside the roi. `written` is the first pixel of an output of the size of `in`, `destination` the roi's
  // first pixel in it.
  static void CopyRim(const IPQImageBuffer& in, std::uint8_t* written, const std::uint8_t* destination, IppiSize roi);

 private:
  TPQRectRegion region_;
};

enum TPQInterpolation : std::uint8_t { imNearest, imLinear, imCubic, imSuper, imLanczos };
template <>
struct PQEnumWords<TPQInterpolation> {
  static constexpr std::string_view name = "TPQInterpolation";
  static constexpr PQWord words[] = {{"imNearest", 0}, {"imLinear", 1}, {"imCubic", 2}, {"imSuper", 3}, {"imLanczos", 4}};
};

// Output of another size than the input.
class PQ_EXPORT TPQCommonROISizeFilter : public TPQCommonROIFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQCommonROISizeFilter(TComponent* owner);
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQInterpolation GetInterpolation() const { return interpolation_.load(std::memory_order_relaxed); }
  void SetInterpolation(TPQInterpolation interpolation);
  // Wanted size of the output; 0 on an axis keeps the stream's size there.
  TPQSize& GetOutputSize() { return output_size_; }

 protected:
  // The announced size: the input at the top left, black around it.
  void ProcessDisabled(const PQImageRef& in, PQImageRef& out) override;
  void Reset() override { TPQCommonROIFilter::Reset(); }
  void SetSizeRate(std::int32_t& width, std::int32_t& height, std::int64_t frame_delay) override;

 private:
  std::atomic<TPQInterpolation> interpolation_{imLinear};
  TPQSize output_size_;
};

// Has a neighbourhood. Starts with 3 by 3 and the anchor in its middle; an anchor that stands in the middle of the mask
// (width / 2, height / 2) follows a change of the mask's size.
class PQ_EXPORT TPQCommonROIMatrixFilter : public TPQCommonROIFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQCommonROIMatrixFilter(TComponent* owner);
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQSize& GetMaskSize() { return mask_size_; }
  TPQAnchor& GetAnchor() { return anchor_; }

 protected:
  // The mask or the anchor changed; concrete classes also call it once in their constructor.
  virtual void Changed(TPersistent* sender) { (void)sender; }
  // Clips for the region, then for the mask: both pointers move to the anchor, the size shrinks by mask - 1. A roi below
  // 1 by 1 leaves the pointers and becomes 0 by 0. Mask and anchor are those that the kernel will be given: the properties
  // may change meanwhile.
  virtual void ReclaculateRoiAndOffsetInt(IppiSize& size, const std::uint8_t*& source, const IPQImageBuffer& buffer,
                                          std::uint8_t*& destination, IppiSize mask, TPoint anchor);
  // Mask and anchor of one moment.
  void GetMask(IppiSize& mask, TPoint& anchor) const;

 private:
  void MaskSizeChanged();
  TPQSize mask_size_;
  TPQAnchor anchor_;
  TPQSize::Values last_mask_{3, 3};
};

// The frame path of all neighbourhood filters; a subclass writes PerformFilter.
class PQ_EXPORT TPQCommonROIMatrixFilterIntermidiate : public TPQCommonROIMatrixFilter {
 public:
  static const PQClassTag kTag;
  explicit TPQCommonROIMatrixFilterIntermidiate(TComponent* owner) : TPQCommonROIMatrixFilter(owner) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }

 protected:
  // True: what the kernel does not cover keeps the input's values. Only that rim is copied.
  virtual bool GetPreserveBufferData() const { return true; }
  // Runs the kernel and answers its status; a refused frame goes on unfiltered.
  virtual IppStatus PerformFilter(const std::uint8_t* source, int source_step, std::uint8_t* destination,
                                  int destination_step, IppiSize roi, IppiSize mask, TPoint anchor,
                                  TPQVideoFormat format) = 0;
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override;
};

}  // namespace pantiq
