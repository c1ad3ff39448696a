#include "pantiq/filters/PQCrop.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {

constinit const PQClassTag TPQCrop::kTag{"TPQCrop", &TPQCommonFilter::kTag};

const PQClassInfo& TPQCrop::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQCrop>("TPQCrop", "PQCrop", "Cuts a rectangle out of each frame.")
          .Inherits<TPQCommonFilter>()
          .Object("Region", &TPQCrop::GetRegion, PQActs::NextFrame,
                  "The rectangle to keep, clipped to the frame at the right and at the bottom. Its size is announced "
                  "downstream at the next start.")
          .Done();
  return info;
}

TPQCrop::TPQCrop(TComponent* owner) : TPQCommonFilter(owner), region_(Lock()) {}

void TPQCrop::SetSizeRate(std::int32_t& width, std::int32_t& height, std::int64_t frame_delay) {
  const TPQRectRegion::Values region = region_.Get();
  width = region.width;
  height = region.height;
  TPQCommonFilter::SetSizeRate(width, height, frame_delay);
}

void TPQCrop::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  const std::uint8_t* source = in->Read();
  const TPQRectRegion::Values region = region_.Get();
  int width = region.width, height = region.height;
  if (in->GetHeight() <= region.top || in->GetWidth() <= region.left) return;
  if (in->GetWidth() - region.left < width) width = in->GetWidth() - region.left;
  if (in->GetHeight() - region.top < height) height = in->GetHeight() - region.top;
  out->SetSize(width, height);
  std::uint8_t* destination = out->Write();
  source += (std::ptrdiff_t{in->GetRowPixels()} * region.top + region.left) * out->GetPixelSize();
  const IppiSize roi{width, height};
  if (in->GetFormat() == vfGrayScale) {
    ippiCopy_8u_C1R(source, in->GetStep(), destination, out->GetStep(), roi);
  } else {
    ippiCopy_8u_C3R(source, in->GetStep(), destination, out->GetStep(), roi);
  }
}

void PQCrop::Register() {
  const PQClassInfo* const classes[] = {&TPQCrop::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
