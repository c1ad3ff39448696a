#include "pantiq/flow/PQSnapshot.h"

#include <exception>
#include <string>

#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"

namespace pantiq {

constinit const PQClassTag TPQSnapshot::kTag{"TPQSnapshot", &TPQCommonFilter::kTag};

const PQClassInfo& TPQSnapshot::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQSnapshot>("TPQSnapshot", "PQSnapshot",
                              "Freezes a stream: a pulse takes the newest frame as the picture.")
          .Inherits<TPQCommonFilter>()
          .Pin("SnapshotPin", &TPQSnapshot::SnapshotPin, "Each pulse takes a snapshot.")
          .Property(
              "PreserveFrameRate", &TPQSnapshot::GetPreserveFrameRate, &TPQSnapshot::SetPreserveFrameRate,
              PQDefault(false), PQActs::NextFrame,
              "True sends the picture for every frame that comes, black before the first pulse; false sends it once "
              "for each pulse.")
          .Done();
  return info;
}

TPQSnapshot::TPQSnapshot(TComponent* owner) : TPQCommonFilter(owner), SnapshotPin(*this, [this] { OnClockEvent(); }) {}

void TPQSnapshot::BeforeDestruction() {
  SnapshotPin.Disconnect();
  TPQCommonFilter::BeforeDestruction();
}

void TPQSnapshot::SetPreserveFrameRate(bool preserve) {
  auto section = Lock().WriteLock();
  preserve_.store(preserve, std::memory_order_relaxed);
}

PQImageRef TPQSnapshot::Current() {
  if (black_width_ > 0) {
    try {
      current_.SetSize(black_width_, black_height_);
      current_.Fill(0);
    } catch (const std::exception&) {
      current_.Assign(TPQImageBuffer());
      return {};
    }
    black_width_ = black_height_ = 0;
  }
  return PQMakeRef<TPQImageBuffer>(current_);
}

void TPQSnapshot::InternalOperation(const PQImageRef& in, PQImageRef&, bool, bool& send) {
  send = false;
  PQImageRef picture;
  {
    std::lock_guard guard(mutex_);
    latest_.Assign(*in);
    frame_waiting_ = true;
    if (!GetPreserveFrameRate()) return;
    picture = Current();
  }
  if (!picture) {
    if (!told_.exchange(true)) {
      Report(this, PQSeverity::Warning,
             "no black picture of " + std::to_string(StreamWidth()) + " by " + std::to_string(StreamHeight()) +
                 " can be made; nothing leaves before the first snapshot",
             0, "The size is what was announced: a TPQCrop before it announces its whole region.");
    }
    return;
  }
  PQCopyStamps(*in, *picture);
  OutputPin.SubmitBuffer(std::move(picture));
}

bool TPQSnapshot::TakeSnapshot() {
  PQImageRef picture;
  {
    std::lock_guard guard(mutex_);
    if (!frame_waiting_) return false;
    current_.Assign(latest_);
    black_width_ = black_height_ = 0;
    if (GetPreserveFrameRate()) {
      if (running_) return true;  // the next frame carries it out
      frame_waiting_ = false;
    }
    picture = Current();
  }
  OutputPin.SubmitBuffer(std::move(picture));
  return true;
}

void TPQSnapshot::Reset() {
  {
    std::lock_guard guard(mutex_);
    frame_waiting_ = false, running_ = true;
  }
  TPQCommonFilter::Reset();
}

void TPQSnapshot::Stop() {
  {
    std::lock_guard guard(mutex_);
    running_ = false;
  }
  TPQCommonFilter::Stop();
}

void TPQSnapshot::SetSizeRate(std::int32_t& width, std::int32_t& height, std::int64_t frame_delay) {
  {
    // What is announced may be far larger than what comes: the black picture is made when somebody asks for it.
    std::lock_guard guard(mutex_);
    current_.Assign(TPQImageBuffer());
    const bool pixels = width > 0 && height > 0;
    black_width_ = pixels ? width : 0, black_height_ = pixels ? height : 0;
  }
  told_ = false;
  TPQCommonFilter::SetSizeRate(width, height, frame_delay);
}

void PQSnapshot::Register() {
  const PQClassInfo* const classes[] = {&TPQSnapshot::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
