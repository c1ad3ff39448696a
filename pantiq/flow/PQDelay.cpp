#include "pantiq/flow/PQDelay.h"

#include <algorithm>

#include "pantiq/host/PQRegistry.h"

namespace pantiq {

constinit const PQClassTag TPQDelay::kTag{"TPQDelay", &TPQCommonFilter::kTag};

const PQClassInfo& TPQDelay::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQDelay>("TPQDelay", "PQDelay", "Holds a number of frames back.")
          .Inherits<TPQCommonFilter>()
          .Property("FrameDelay", &TPQDelay::GetFrameDelay, &TPQDelay::SetFrameDelay, PQDefault(30), PQUseful(0, 1000),
                    PQUnit("frames"), PQActs::NextFrame, PQBareValue(),
                    "Frames held back. They take memory: a frame of 1280 by 720 is 2.8 MB.")
          .Gauge("FramesHeld", &TPQDelay::GetFramesHeld, PQUnit("frames"), "Frames held now.")
          .Done();
  return info;
}

TPQDelay::TPQDelay(TComponent* owner) : TPQCommonFilter(owner), held_(&Lock()) { SerialiseFrames(); }

void TPQDelay::SetFrameDelay(std::int32_t frames) {
  auto section = Lock().WriteLock();
  frame_delay_.store(frames, std::memory_order_relaxed);
}

TJCNotifyResult TPQDelay::BufferOperation(TJCSuppliedBufferOperation& op, TJCNotifyFlags flags) {
  TJCNotifyResult result;
  held_.Push(PQOperationRef(&op));
  while (held_.ItemsCount() > std::max(GetFrameDelay(), 0)) {
    const PQOperationRef oldest = held_.Pop();
    if (!oldest) break;
    auto& supplied = *JCOperation<TJCSuppliedBufferOperation>(*oldest);  // nothing else is pushed
    PQImageRef frame = supplied.Buffer ? PQMakeRef<TPQImageBuffer>(*supplied.Buffer) : PQMakeRef<TPQImageBuffer>();
    result |= OutputPin.SubmitBuffer(std::move(frame), flags);
  }
  return result;
}

void PQDelay::Register() {
  const PQClassInfo* const classes[] = {&TPQDelay::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
