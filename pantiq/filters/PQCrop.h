// Cuts a rectangle out of each frame.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

// Announces the size of Region as it stands; each frame has the size of the part of Region that lies inside it, so a region
// that reaches beyond the frame is announced larger than it is delivered. A region wholly outside the frame (Left or Top at or
// beyond its width or height) lets the frame pass whole. Region.Enabled is of no meaning here. Gray frames stay gray.
class PQ_EXPORT TPQCrop final : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQCrop(TComponent* owner = nullptr);
  ~TPQCrop() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // The rectangle to keep. Its offsets act with the next frame; the announced size follows at the next start.
  TPQRectRegion& GetRegion() { return region_; }
  void SetRegion(const TPQRectRegion& region) { region_.Assign(region); }

 protected:
  void SetVideoFormat(PQImageRef& buffer) override { AcceptGray(buffer); }
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override;
  void SetSizeRate(std::int32_t& width, std::int32_t& height, std::int64_t frame_delay) override;

 private:
  TPQRectRegion region_;
};

namespace PQCrop {
PQ_EXPORT void Register();
}

}  // namespace pantiq
