#include "pantiq/filters/PQMoveFilter.h"

#include <algorithm>

namespace pantiq {

constinit const PQClassTag TPQCommonMoveFilter::kTag{"TPQCommonMoveFilter", &TPQCommonROISizeFilter::kTag};
constinit const PQClassTag TPQCommonSmoothMoveFilter::kTag{"TPQCommonSmoothMoveFilter", &TPQCommonMoveFilter::kTag};

const PQClassInfo& TPQCommonMoveFilter::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQCommonMoveFilter>("TPQCommonMoveFilter", "PQMoveFilter", "Base of filters that move pixels.")
          .Inherits<TPQCommonROISizeFilter>()
          .Done();
  return info;
}

void TPQCommonMoveFilter::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  const IppiSize wanted{StreamWidth(), StreamHeight()};
  if (wanted.width < 1 || wanted.height < 1) {
    out = in;
    return;
  }
  Move move{};
  move.gray = in->GetFormat() == vfGrayScale;
  move.source = in->Read();
  move.source_size = in->GetSize();
  move.source_step = in->GetStep();
  IppiSize roi = in->GetSize();
  std::uint8_t region_pixel;  // only the size of the region counts, no pointer moves with it
  std::uint8_t* unused = &region_pixel;
  const TPQRectRegion::Values region = GetRegion().Get();
  ReclaculateRoiAndOffsetI(roi, *in, unused);
  move.source_rect = {region.enabled ? region.left : 0, region.enabled ? region.top : 0, roi.width, roi.height};
  move.destination_size = wanted;
  move.destination_rect = {0, 0, wanted.width, wanted.height};
  move.code = 1 << std::min<int>(GetInterpolation(), imLanczos);
  if (IsIdentity(move)) {
    out = in;
    return;
  }
  out->SetSize(wanted.width, wanted.height);
  if (LeavesPixels()) out->Clear();
  move.destination = LeavesPixels() ? out->Modify() : out->Write();
  move.destination_step = out->GetStep();
  // A kernel also leaves everything alone where it only warns that nothing meets.
  if (MovePixels(move) != 0 && !LeavesPixels()) out->Clear();
}

const PQClassInfo& TPQCommonSmoothMoveFilter::Class() {
  using T = TPQCommonSmoothMoveFilter;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQCommonSmoothMoveFilter", "PQMoveFilter", "Base of filters that move pixels, with smooth borders.")
          .Inherits<TPQCommonMoveFilter>()
          .Property("SmoothEdge", &T::GetSmoothEdge, &T::SetSmoothEdge, PQDefault(false), PQActs::NextFrame,
                    "True smooths the slanted borders of the picture.")
          .Done();
  return info;
}

void TPQCommonSmoothMoveFilter::SetSmoothEdge(bool smooth) {
  if (smooth == GetSmoothEdge()) return;
  auto section = Lock().WriteLock();
  smooth_edge_.store(smooth, std::memory_order_relaxed);
}

}  // namespace pantiq
