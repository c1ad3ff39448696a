#include "pantiq/core/PQCommonGen.h"

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <thread>

#include "pantiq/host/PQReport.h"

namespace pantiq {

constinit const PQClassTag TPQCommonGen::kTag{"TPQCommonGen", &TComponent::kTag};

// The generator's own thread. It outlives the generator by the rest of one call if the generator dies inside a frame's way.
struct TPQCommonGen::Loop final : JCSectionWork {
  TPQCommonGen* gen;
  std::mutex mutex;
  std::condition_variable wake;
  bool ending = false;
  std::thread thread;
  std::shared_ptr<Loop> waited_for;  // itself, until its end has been waited for
  void Run() noexcept override {
    const auto self = std::move(waited_for);
    thread.join();
  }
};

const PQClassInfo& TPQCommonGen::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQCommonGen>("TPQCommonGen", "PQCommonGen", "Base of sources that make frames.")
          .Inherits<TComponent>()
          .Object("ImageSize", &TPQCommonGen::GetImageSizeObject, PQActs::NextStart,
                  PQObjectDefaults{{{"Width", PQValue(240)}, {"Height", PQValue(180)}}}, "Size of the frames.")
          .Property("Rate", &TPQCommonGen::GetRate, &TPQCommonGen::SetRate, PQDefault(25.0), PQUseful(0.1, 1000.0),
                    PQUnit("frames per second"), PQActs::NextStart, "Frames per second.")
          .Pin("OutputPin", &TPQCommonGen::OutputPin, "Frames out.")
          .Done();
  return info;
}

TPQCommonGen::TPQCommonGen(TComponent* owner)
    : TComponent(owner),
      OutputPin(*this, JCDispatch::To<&TPQCommonGen::DispatchOperation>(this)),
      image_size_(lock_, 240, 180) {
  OutputPin.AddShareLock(lock_);
}

TPQCommonGen::~TPQCommonGen() = default;

void TPQCommonGen::BeforeDestruction() {
  running_.store(false);
  EndLoop(true);
  OutputPin.Disconnect();
  TComponent::BeforeDestruction();
}

void TPQCommonGen::SetRate(double rate) {
  if (!std::isfinite(rate) || rate <= 0) return;
  auto section = lock_.WriteLock();
  rate_.store(rate, std::memory_order_relaxed);
}

TJCNotifyResult TPQCommonGen::DispatchOperation(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
  if (JCOperation<TJCStartOperation>(op) != nullptr) {
    IntStart();
  } else if (JCOperation<TJCStopOperation>(op) != nullptr) {
    IntStop();
  } else if (JCOperation<TJCMasterPumpOperation>(op) != nullptr) {
    if (running_.load()) Pump();
  }
  return {};
}

bool TPQCommonGen::RequestPump() {
  auto request = PQMakeRef<TJCPumpRequestOperation>();
  OutputPin.Notify(*request);
  master_.store(request->Master);
  return request->Master != nullptr;
}

void TPQCommonGen::IntStart() {
  EndLoop();
  const TPQSize::Values size = GetImageSize();
  const std::int64_t delay = pq_delay(GetRate());
  frame_number_.store(0);
  delay_.store(delay);
  const bool claimed = RequestPump();
  running_.store(true);
  OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(size.width, size.height, delay, vfRGB24));
  OutputPin.Notify(*PQMakeRef<TJCStartPumpOperation>());
  if (claimed || !running_.load()) return;  // a stop may have come from inside the start
  auto loop = std::make_shared<Loop>();
  loop->gen = this;
  {
    std::lock_guard guard(state_mutex_);
    if (loop_ != nullptr) return;  // a start from inside the start has made one
    loop->thread = std::thread([loop] { Run(loop); });
    loop_ = loop;
  }
}

void TPQCommonGen::IntStop() {
  if (!running_.exchange(false)) return;
  EndLoop();
  OutputPin.Stop();
}

void TPQCommonGen::EndLoop(bool wait_here) {
  std::shared_ptr<Loop> loop;
  {
    std::lock_guard guard(state_mutex_);
    loop.swap(loop_);
  }
  if (loop == nullptr) return;
  {
    std::lock_guard guard(loop->mutex);
    loop->ending = true;
    loop->wake.notify_all();
  }
  if (loop->thread.get_id() == std::this_thread::get_id()) {
    loop->thread.detach();  // the call came down from a frame: the loop leaves when that has returned
    return;
  }
  if (wait_here) {
    loop->thread.join();
  } else {  // the frame under way may need locks that this thread holds: wait when it holds none
    loop->waited_for = loop;
    JCAtSectionEnd(*loop);
  }
}

void TPQCommonGen::Run(const std::shared_ptr<Loop>& loop) {
  using Clock = std::chrono::steady_clock;
  auto next = Clock::now();
  for (;;) {
    {
      std::lock_guard guard(loop->mutex);
      if (loop->ending) return;
    }
    // Until the thread is told to end the generator is alive: its end waits for this thread.
    TPQCommonGen* gen = loop->gen;
    const auto period = std::chrono::nanoseconds(static_cast<std::int64_t>(1e9 / gen->GetRate()));
    if (gen->IsConnected()) {
      try {
        gen->SendFrame();
      } catch (...) {  // this frame is lost, the stream goes on
        bool ended;
        {
          std::lock_guard guard(loop->mutex);
          ended = loop->ending;
        }
        ReportCaught(ended ? nullptr : gen, "a frame was lost");
      }
    }
    next += period;
    const auto now = Clock::now();
    if (next < now) next = now;  // late: no hurry to catch up
    std::unique_lock guard(loop->mutex);
    loop->wake.wait_until(guard, next, [&] { return loop->ending; });
    if (loop->ending) return;
  }
}

void TPQCommonGen::Pump() {
  // One call makes frames at a time; pumps that come meanwhile, also from inside the frame's way down, are repeated by it.
  if (pumps_.fetch_add(1) > 0) return;
  do {
    if (running_.load()) {
      try {
        SendFrame();
      } catch (...) {
        pumps_.store(0);
        throw;
      }
    }
  } while (pumps_.fetch_sub(1) > 1);
}

void TPQCommonGen::SendFrame() {
  const TPQSize::Values size = GetImageSize();
  PQImageRef buffer = PQMakeRef<TPQImageBuffer>(size.width, size.height, vfRGB24);
  GenerateFrame(buffer);
  const std::int64_t number = frame_number_.fetch_add(1), delay = delay_.load();
  buffer->GetTimeCode().SetFrame(static_cast<std::int32_t>(number));
  buffer->GetSequenceStamp().SetBufferNumber(static_cast<std::int32_t>(number));
  buffer->GetTimeStamp().SetAvailable(true);
  buffer->GetTimeStamp().SetBegin(number * delay);
  buffer->GetTimeStamp().SetEnd((number + 1) * delay);
  buffer->GetDateTime().SetAvailable(false);
  OutputPin.SubmitBuffer(std::move(buffer));
}

}  // namespace pantiq
