#include "pantiq/filters/PQGammaFilter.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQGammaFilter::kTag{"TPQGammaFilter", &TPQCommonFilter::kTag};

const PQClassInfo& TPQGammaFilter::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQGammaFilter>("TPQGammaFilter", "PQGammaFilter", "Gamma correction, forward or inverse.")
          .Inherits<TPQCommonFilter>()
          .Property("GammaType", &TPQGammaFilter::GetGammaType, &TPQGammaFilter::SetGammaType, PQDefault(gtForward),
                    PQActs::NextFrame, "gtForward turns linear light into video values (brighter), gtInverse turns them back.")
          .Done();
  return info;
}

void TPQGammaFilter::SetGammaType(TPQGammaType type) {
  if (type == GetGammaType()) return;
  auto section = Lock().WriteLock();
  gamma_type_.store(type, std::memory_order_relaxed);
}

void TPQGammaFilter::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  const IppiSize roi = in->GetSize();
  const std::uint8_t* source = in->Read();
  std::uint8_t* destination = out->Write();
  const int step = out->GetStep();
  const IppStatus status = GetGammaType() == gtForward
                               ? PQ_SLOT(ippiGammaFwd_8u_C3R)(source, step, destination, step, roi)
                               : PQ_SLOT(ippiGammaInv_8u_C3R)(source, step, destination, step, roi);
  if (status < 0) out->Assign(*in);
}

void PQGammaFilter::Register() {
  const PQClassInfo* const classes[] = {&TPQGammaFilter::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
