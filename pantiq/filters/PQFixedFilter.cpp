#include "pantiq/filters/PQFixedFilter.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQFixedFilter::kTag{"TPQFixedFilter", &TPQCommonROIFilter::kTag};

const PQClassInfo& TPQFixedFilter::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQFixedFilter>("TPQFixedFilter", "PQFixedFilter", "Edges, smoothing, sharpening and medians of fixed masks.")
          .Inherits<TPQCommonROIFilter>()
          .Property("MaskSize", &TPQFixedFilter::GetMaskSize, &TPQFixedFilter::SetMaskSize, PQDefault(fms3x3),
                    PQActs::NextFrame,
                    "Size of the mask, for the types that have two: ftLaplace, ftGauss, ftHipass, ftLowpass, ftMedianCross "
                    "and ftMedianColor.")
          .Property("FilterType", &TPQFixedFilter::GetFilterType, &TPQFixedFilter::SetFilterType, PQDefault(ftPrewittHoriz),
                    PQActs::NextFrame, "Which filter runs.")
          .Done();
  return info;
}

void TPQFixedFilter::SetMaskSize(TPQFixedMaskSize size) {
  if (size == GetMaskSize()) return;
  auto section = Lock().WriteLock();
  mask_size_.store(size, std::memory_order_relaxed);
}

void TPQFixedFilter::SetFilterType(TPQFixedFilterType type) {
  if (type == GetFilterType()) return;
  auto section = Lock().WriteLock();
  filter_type_.store(type, std::memory_order_relaxed);
}

void TPQFixedFilter::ReclaculateRoiAndOffset(IppiSize& size, const std::uint8_t*& source, const IPQImageBuffer& buffer,
                                             std::uint8_t*& destination) {
  Clip(size, source, buffer, destination, GetFilterType(), GetMaskSize());
}

// For a mask of 3 the roi begins 2 pixels inside and is 3 smaller, for one of 5 it begins 3 inside and is 5 smaller. The two
// medians count as 3 also where their window is 5: it then reaches one pixel past the right and lower end of the picture,
// where a frame's memory holds zeros.
void TPQFixedFilter::Clip(IppiSize& size, const std::uint8_t*& source, const IPQImageBuffer& buffer,
                          std::uint8_t*& destination, TPQFixedFilterType type, TPQFixedMaskSize mask_size) {
  const std::ptrdiff_t width = size.width;
  TPQCommonROIFilter::ReclaculateRoiAndOffset(size, source, buffer, destination);
  const int mask = mask_size == fms5x5 && type >= ftLaplace && type <= ftLowpass ? 5 : 3;
  if (size.width - mask < 1 || size.height - mask < 1) {
    size = {0, 0};
    return;
  }
  const int inside = (mask + 1) / 2;
  const std::ptrdiff_t offset = inside * 3 + inside * 3 * width;
  source += offset;
  destination += offset;
  size.width -= mask;
  size.height -= mask;
}

void TPQFixedFilter::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  const TPQFixedFilterType type = GetFilterType();
  const TPQFixedMaskSize mask_size = GetMaskSize();
  const std::uint8_t* from = in->Read();
  IppiSize roi = in->GetSize();
  std::uint8_t* const written = out->Write();
  std::uint8_t* to = written;
  Clip(roi, from, *in, to, type, mask_size);
  const int code = mask_size == fms3x3 ? 33 : 55;
  const int step = in->GetStep(), to_step = out->GetStep();
  IppStatus status = 1;
  switch (type) {
    case ftPrewittHoriz: status = PQ_SLOT(ippiFilterPrewittHoriz_8u_C3R)(from, step, to, to_step, roi); break;
    case ftPrewittVert: status = PQ_SLOT(ippiFilterPrewittVert_8u_C3R)(from, step, to, to_step, roi); break;
    case ftSobelHoriz: status = PQ_SLOT(ippiFilterSobelHoriz_8u_C3R)(from, step, to, to_step, roi); break;
    case ftSobelVert: status = PQ_SLOT(ippiFilterSobelVert_8u_C3R)(from, step, to, to_step, roi); break;
    case ftRobertsDown: status = PQ_SLOT(ippiFilterRobertsDown_8u_C3R)(from, step, to, to_step, roi); break;
    case ftRobertsUp: status = PQ_SLOT(ippiFilterRobertsUp_8u_C3R)(from, step, to, to_step, roi); break;
    case ftLaplace: status = PQ_SLOT(ippiFilterLaplace_8u_C3R)(from, step, to, to_step, roi, code); break;
    case ftGauss: status = PQ_SLOT(ippiFilterGauss_8u_C3R)(from, step, to, to_step, roi, code); break;
    case ftHipass: status = PQ_SLOT(ippiFilterHipass_8u_C3R)(from, step, to, to_step, roi, code); break;
    case ftLowpass: status = PQ_SLOT(ippiFilterLowpass_8u_C3R)(from, step, to, to_step, roi, code); break;
    case ftSharpen: status = PQ_SLOT(ippiFilterSharpen_8u_C3R)(from, step, to, to_step, roi); break;
    case ftMedianCross: status = PQ_SLOT(ippiFilterMedianCross_8u_C3R)(from, step, to, to_step, roi, code); break;
    case ftMedianColor: status = PQ_SLOT(ippiFilterMedianColor_8u_C3R)(from, step, to, to_step, roi, code); break;
  }
  if (status != 0) {
    out = in;  // refused: the frame goes on unfiltered
  } else {
    CopyRim(*in, written, to, roi);
  }
}

void PQFixedFilter::Register() {
  const PQClassInfo* const classes[] = {&TPQFixedFilter::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
