// Lays a still picture over frames; one colour of it is transparent.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

// Where the transparent colour comes from: a corner of the picture, or the property TransparentColor.
enum TPQTransparentSource : std::uint8_t { tsTopLeft, tsTopRight, tsBottomLeft, tsBottomRight, tsCustom };

template <>
struct PQEnumWords<TPQTransparentSource> {
  static constexpr std::string_view name = "TPQTransparentSource";
  static constexpr PQWord words[] = {{"tsTopLeft", tsTopLeft},
                                     {"tsTopRight", tsTopRight},
                                     {"tsBottomLeft", tsBottomLeft},
                                     {"tsBottomRight", tsBottomRight},
                                     {"tsCustom", tsCustom}};
};

// The picture lies with its upper left corner in that of the frame, or of the region. It is prepared when it or a
// setting changes, on the thread that changes it: with Stretched it is fitted to the region, or to the stream, if the
// stream runs at that moment; a later change of the stream's size or of the region leaves it as it is. Frames become
// vfRGB24.
class PQ_EXPORT TPQApplyMask final : public TPQCommonROIFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQApplyMask(TComponent* owner = nullptr);
  ~TPQApplyMask() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // Changed by one thread at a time. All act on the next frame.
  TPicture& GetPicture() { return picture_; }
  void SetPicture(const TPicture& picture);
  // $BBGGRR. Used with tsCustom.
  TColor GetTransparentColor() const { return transparent_color_.load(std::memory_order_relaxed); }
  void SetTransparentColor(TColor color);
  bool GetStretched() const { return stretched_.load(std::memory_order_relaxed); }
  void SetStretched(bool stretched);
  // A number that is no source acts as tsCustom.
  TPQTransparentSource GetTransparentSource() const { return transparent_source_.load(std::memory_order_relaxed); }
  void SetTransparentSource(TPQTransparentSource source);

  bool CanInline() const override { return true; }

 protected:
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override;
  void Stop() override;
  void SetSizeRate(std::int32_t& width, std::int32_t& height, std::int64_t frame_delay) override;

 private:
  void PictureChanged();
  // Builds overlay and mask; says in `refused` what could not be.
  void Prepare(std::string& refused);
  // What the picture is fitted to, in pixels.
  std::int32_t GetMaskWidth();
  std::int32_t GetMaskHeight();

  TPicture picture_;
  std::atomic<TColor> transparent_color_{0};
  std::atomic<bool> stretched_{false};
  std::atomic<TPQTransparentSource> transparent_source_{tsTopLeft};
  std::atomic<bool> running_{false};
  std::mutex preparing_;  // one PictureChanged at a time; taken before the component's lock
  // Replaced together under the lock; never written once they stand here.
  PQRef<TPQImageBuffer> overlay_, mask_;
};

namespace PQApplyMask {
PQ_EXPORT void Register();
}

}  // namespace pantiq
