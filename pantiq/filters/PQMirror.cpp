#include "pantiq/filters/PQMirror.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {

constinit const PQClassTag TPQMirror::kTag{"TPQMirror", &TPQCommonFilter::kTag};

const PQClassInfo& TPQMirror::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQMirror>("TPQMirror", "PQMirror", "Flips each frame about an axis.")
          .Inherits<TPQCommonFilter>()
          .Property("MirrorType", &TPQMirror::GetMirrorType, &TPQMirror::SetMirrorType, PQDefault(mtHorizontal),
                    PQActs::NextFrame,
                    "Axis of the flip: mtHorizontal exchanges top and bottom, mtVertical left and right, mtBoth does both.")
          .Done();
  return info;
}

void TPQMirror::SetMirrorType(TPQMirrorType type) {
  if (type == GetMirrorType()) return;
  auto section = Lock().WriteLock();
  mirror_type_.store(type, std::memory_order_relaxed);
}

void TPQMirror::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  out->Assign(*in);
  const IppiSize roi = in->GetSize();
  const std::uint8_t* source = in->Read();
  std::uint8_t* destination = out->Write();
  const int step = out->GetStep();
  const int axis = GetMirrorType();
  const IppStatus status = in->GetFormat() == vfGrayScale ? ippiMirror_8u_C1R(source, step, destination, step, roi, axis)
                                                          : ippiMirror_8u_C3R(source, step, destination, step, roi, axis);
  if (status < 0) out->Assign(*in);  // nothing was drawn into the fresh block
}

void PQMirror::Register() {
  const PQClassInfo* const classes[] = {&TPQMirror::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
