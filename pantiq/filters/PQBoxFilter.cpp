#include "pantiq/filters/PQBoxFilter.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQBoxFilter::kTag{"TPQBoxFilter", &TPQCommonROIMatrixFilterIntermidiate::kTag};

const PQClassInfo& TPQBoxFilter::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQBoxFilter>("TPQBoxFilter", "PQBoxFilter", "Average, minimum, maximum or median round each pixel.")
          .Inherits<TPQCommonROIMatrixFilter>()
          .Property("FilterMode", &TPQBoxFilter::GetFilterMode, &TPQBoxFilter::SetFilterMode, PQDefault(bfmAverage),
                    PQActs::NextFrame,
                    "What a pixel becomes: the average, the least, the greatest or the middle value of each channel over "
                    "MaskSize. bfmMedian wants odd sides; with an even one frames pass unfiltered.")
          .Done();
  return info;
}

TPQBoxFilter::TPQBoxFilter(TComponent* owner) : TPQCommonROIMatrixFilterIntermidiate(owner) { Changed(this); }

void TPQBoxFilter::SetFilterMode(TPQBoxFilterMode mode) {
  if (mode == GetFilterMode()) return;
  auto section = Lock().WriteLock();
  filter_mode_.store(mode, std::memory_order_relaxed);
}

IppStatus TPQBoxFilter::PerformFilter(const std::uint8_t* source, int source_step, std::uint8_t* destination,
                                      int destination_step, IppiSize roi, IppiSize mask, TPoint anchor, TPQVideoFormat) {
  switch (GetFilterMode()) {
    case bfmMin:
      return PQ_SLOT(ippiFilterMin_8u_C3R)(source, source_step, destination, destination_step, roi, mask, anchor);
    case bfmMax:
      return PQ_SLOT(ippiFilterMax_8u_C3R)(source, source_step, destination, destination_step, roi, mask, anchor);
    case bfmMedian:
      return PQ_SLOT(ippiFilterMedian_8u_C3R)(source, source_step, destination, destination_step, roi, mask, anchor);
    default:
      return PQ_SLOT(ippiFilterBox_8u_C3R)(source, source_step, destination, destination_step, roi, mask, anchor);
  }
}

void PQBoxFilter::Register() {
  const PQClassInfo* const classes[] = {&TPQBoxFilter::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
