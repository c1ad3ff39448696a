#include "Skeleton.h"

using namespace pantiq;

constinit const PQClassTag TSkeleton::kTag{"TSkeleton", &TPQCommonFilter::kTag};

const PQClassInfo& TSkeleton::Class() {
  static const PQClassInfo& info =
      PQDescribe<TSkeleton>("TSkeleton", "Skeleton", "Darkens frames.")
          .Inherits<TPQCommonFilter>()
          .Property("Amount", &TSkeleton::GetAmount, &TSkeleton::SetAmount, PQDefault(128), PQUseful(0, 255),
                    PQActs::NextFrame, "How dark: 0 leaves frames as they are, 255 makes them black.")
          .Done();
  return info;
}

void TSkeleton::SetAmount(std::uint8_t amount) {
  auto section = Lock().WriteLock();
  amount_.store(amount, std::memory_order_relaxed);
}

void TSkeleton::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  const int left = 255 - GetAmount();  // read once: it may change while the frame is worked on
  const std::uint8_t* const from = in->Read();
  std::uint8_t* const to = out->Write();
  for (std::int32_t i = 0; i < in->GetByteSize(); ++i) to[i] = static_cast<std::uint8_t>(from[i] * left / 255);
}
