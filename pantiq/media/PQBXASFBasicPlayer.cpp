#include "pantiq/media/PQBXASFBasicPlayer.h"

#include <algorithm>
#include <condition_variable>
#include <thread>
#include <utility>

#include "pantiq/core/PQNumbers.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/platform/PQModules.h"

namespace pantiq {

constinit const PQClassTag TBXASFBasicPlayer::kTag{"TBXASFBasicPlayer", &TComponent::kTag};

namespace {

constexpr int kMostCredits = 100;

}  // namespace

// Hands on what the reader tells. The reader is closed before the player dies.
// Nothing is thrown through the platform's code: what fails is told and the sample is lost.
class TBXASFBasicPlayer::Events final : public PQMediaReaderEvents {
 public:
  explicit Events(TBXASFBasicPlayer& player) : player_(player) {}
  void OnSample(int output, std::int64_t time, std::int64_t duration, unsigned flags,
                const PQPlatformBlock& sample) override {
    Guarded("a sample was lost", [&] { player_.OnSample(output, time, duration, flags, sample, nullptr); });
  }
  std::shared_ptr<void> AllocateFrame(std::int64_t step, std::int64_t rows, std::uint8_t*& data) override {
    return TPQVideoBufferQueueThread::AllocateFrame(step, rows, data);
  }
  void OnFormat(int output, const PQMediaOutputProps& props) override {
    Guarded("a change of the format was lost", [&] { player_.OnOutputFormat(output, props); });
  }
  void OnEnd(int output) override {
    Guarded("the end of a stream was lost", [&] { player_.OnOutputEnd(output); });
  }
  void OnError(const PQPlatformResult& result) override {
    Guarded("reading stopped",
            [&] { Report(&player_, PQSeverity::Error, "reading stopped", result.code, result.detail); });
  }

 private:
  template <class Work>
  void Guarded(const char* lost, Work work) noexcept {
    try {
      work();
    } catch (...) {
      ReportCaught(&player_, lost);
    }
  }
  TBXASFBasicPlayer& player_;
};

// Whether the notify thread is inside the player. Outlives it: whoever waits at the end of a lock section holds it.
struct TBXASFBasicPlayer::Busy {
  std::mutex mutex;
  std::condition_variable changed;
  bool busy = false;
  std::uint64_t left = 0;  // how often it has left
  std::thread::id thread;
};

const PQClassInfo& TBXASFBasicPlayer::Class() {
  using T = TBXASFBasicPlayer;
  static const PQClassInfo& info =
      PQDescribe<T>("TBXASFBasicPlayer", "PQBXASFBasicPlayer", "Base of players of media files.")
          .Inherits<TComponent>()
          .Property("FileName", &T::GetFileName, &T::SetFileName, PQDefault(""), PQBareValue{}, PQFile(PQFileUse::Read),
                    PQActs::NextStart, "File to be played.")
          .Property("Enabled", &T::GetEnabled, &T::SetEnabled, PQDefault(true), PQActs::NextStart,
                    "False answers queries with the wish to do without these streams.")
          .Property("StartTime", &T::GetStartTime, &T::SetStartTime, PQDefault(std::int64_t{0}), PQUnit("100 ns"),
                    PQActs::NextStart, "Where in the file playing starts.")
          .Property("Duration", &T::GetDuration, &T::SetDuration, PQDefault(std::int64_t{0}), PQUnit("100 ns"),
                    PQActs::NextStart, "How much is played; 0 plays to the end.")
          .Gauge("FileDuration", &T::GetFileDuration, PQUnit("100 ns"), "Length of the file.")
          .Gauge("HasAudio", &T::GetHasAudio, "Whether the file has sound.")
          .Gauge("VideoQueued", &T::GetVideoQueued, PQUnit("frames"), "Frames that wait to go out.")
          .Gauge("AudioQueued", &T::GetAudioQueued, PQUnit("blocks"), "Blocks of sound that wait to go out.")
          .Done();
  return info;
}

TBXASFBasicPlayer::TBXASFBasicPlayer(TComponent* owner)
    : TComponent(owner),
      events_(std::make_unique<Events>(*this)),
      busy_(std::make_shared<Busy>()),
      alive_(std::make_shared<std::atomic<bool>>(true)) {
  notify_thread_ = std::make_unique<TRWNotifyThread>([this] { Run(); });
}

TBXASFBasicPlayer::~TBXASFBasicPlayer() = default;

void TBXASFBasicPlayer::Shutdown() {
  if (!alive_->exchange(false)) return;
  try {
    IntStop(false, true);
  } catch (...) {  // the thread and the reader end all the same
    ReportCaught(this, "the stop at the end of a component failed");
  }
  notify_thread_->Terminate();
  Close();
}

void TBXASFBasicPlayer::BeforeDestruction() {
  Shutdown();
  TComponent::BeforeDestruction();
}

std::string TBXASFBasicPlayer::GetFileName() const {
  auto section = lock_.ReadLock();
  return file_name_;
}

void TBXASFBasicPlayer::SetFileName(const std::string& name) {
  auto section = lock_.WriteLock();
  file_name_ = name;
}

void TBXASFBasicPlayer::SetEnabled(bool enabled) {
  auto section = lock_.WriteLock();
  enabled_.store(enabled, std::memory_order_relaxed);
}

// --- the file -------------------------------------------------------------------------------------------------------

bool TBXASFBasicPlayer::Open() {
  const std::string name = GetFileName();
  if (name.empty()) return false;
  const std::lock_guard guard(reader_mutex_);
  if (opened_.load() && !used_.load() && open_name_ == name) return true;
  reader_.reset();
  opened_.store(false);
  PQPlatformResult result;
  PQMediaModule* module = LoadMediaModule(result);
  if (module != nullptr) reader_ = module->CreateReader(result);
  if (reader_ != nullptr && result.Ok()) {
    {
      const std::lock_guard opening(opening_mutex_);
      opening_ = reader_;
    }
    result = reader_->Open(name, events_.get());
    const std::lock_guard opening(opening_mutex_);
    opening_.reset();
  }
  if (reader_ == nullptr || !result.Ok()) {
    reader_.reset();
    if (result.code != kPlatformInterrupted) {
      Report(this, PQSeverity::Error, "cannot open " + name, result.code, result.detail);
    }
    return false;
  }
  open_name_ = name;
  used_.store(false);
  opened_.store(true);
  file_duration_.store(reader_->GetDuration());
  InitStreams();
  IntOpen();
  return true;
}

void TBXASFBasicPlayer::Close() {
  EndQueues();
  const std::lock_guard guard(reader_mutex_);
  EndQueues();
  if (reader_ != nullptr) reader_->Close();
  reader_.reset();
  opened_.store(false);
  running_.store(false);
}

void TBXASFBasicPlayer::Pause() {
  {
    const std::lock_guard guard(reader_mutex_);
    if (reader_ == nullptr || !running_.load() || !reader_->Pause().Ok()) return;
  }
  IntPause();
}

void TBXASFBasicPlayer::Resume() {
  {
    const std::lock_guard guard(reader_mutex_);
    if (reader_ == nullptr || !running_.load() || !reader_->Resume().Ok()) return;
  }
  IntResume();
}

// --- start and stop -------------------------------------------------------------------------------------------------

unsigned TBXASFBasicPlayer::BeginStart() {
  if (running_.load() || starting_.exchange(true)) return 0;
  WaitForNotifyThread(false);
  unsigned run = run_.fetch_add(1) + 1;
  if (run == 0) run = run_.fetch_add(1) + 1;
  return run;
}

bool TBXASFBasicPlayer::StartReader(unsigned run) {
  const std::lock_guard guard(reader_mutex_);
  if (reader_ == nullptr || !IsCurrent(run)) return false;
  started_.store(true);
  RearmQueues();
  PQPlatformResult result;
  if (!user_clock_.load() || clock_mode_.load() == 1) {
    (void)reader_->SetUserProvidedClock(true);
  } else {
    (void)reader_->SetUserProvidedClock(false);
  }
  used_.store(true);
  result = reader_->Start(std::max<std::int64_t>(GetStartTime(), 0), std::max<std::int64_t>(GetDuration(), 0), 1.0);
  if (result.Ok()) return true;
  EndQueues();
  if (started_.load()) (void)reader_->Pause();
  (void)reader_->Stop();
  Report(this, PQSeverity::Error, "cannot play " + open_name_, result.code, result.detail);
  return false;
}

void TBXASFBasicPlayer::SetRunning(unsigned run) {
  const std::lock_guard guard(reader_mutex_);
  if (IsCurrent(run)) running_.store(true);
}

void TBXASFBasicPlayer::EndStart(unsigned) { starting_.store(false); }

bool TBXASFBasicPlayer::EndRun(unsigned run) {
  if (!run_.compare_exchange_strong(run, run + 1)) return false;
  StopReader();
  return true;
}

void TBXASFBasicPlayer::StopReader() {
  EndQueues();
  const std::lock_guard guard(reader_mutex_);
  EndQueues();  // a start may have armed them meanwhile
  if (reader_ != nullptr) (void)reader_->Stop();
  running_.store(false);
  started_.store(false);
}

void TBXASFBasicPlayer::IntStop(bool, bool destroying) {
  run_.fetch_add(1);
  InterruptOpening();
  StopReader();
  WaitForNotifyThread(destroying);
}

void TBXASFBasicPlayer::InterruptOpening() {
  std::shared_ptr<PQMediaReader> opening;
  {
    const std::lock_guard lock(opening_mutex_);
    opening = opening_;
  }
  if (opening != nullptr) opening->Interrupt();
}

void TBXASFBasicPlayer::EndQueues() { audio_queue_.End(); }
void TBXASFBasicPlayer::RearmQueues() { audio_queue_.Rearm(); }

// Until the notify thread has left the frame that was under way. It may need locks that this thread holds, so the wait
// is put to the end of this thread's sections.
void TBXASFBasicPlayer::WaitForNotifyThread(bool here) {
  std::uint64_t left = 0;
  {
    const std::lock_guard lock(busy_->mutex);
    if (!busy_->busy || busy_->thread == std::this_thread::get_id()) return;
    left = busy_->left;
  }
  const auto wait = [busy = busy_, left] {
    std::unique_lock lock(busy->mutex);
    busy->changed.wait(lock, [&] { return busy->left != left; });
  };
  if (here) {
    wait();
  } else {
    JCAtSectionEnd(wait);
  }
}

// On the notify thread.
void TBXASFBasicPlayer::Run() {
  const auto busy = busy_;
  struct Leave {
    Busy& busy;
    ~Leave() {
      const std::lock_guard lock(busy.mutex);
      busy.busy = false;
      ++busy.left;
      busy.thread = {};
      busy.changed.notify_all();
    }
  };
  {
    const std::lock_guard lock(busy->mutex);
    busy->busy = true;
    busy->thread = std::this_thread::get_id();
  }
  const Leave leave{*busy};
  NewThreadFrame(this);
}

// --- pace -----------------------------------------------------------------------------------------------------------

std::int64_t TBXASFBasicPlayer::GetDSTimePerSample(std::int64_t samples, std::int32_t sample_rate) const {
  return sample_rate < 1 ? 0 : pq_round<std::int64_t>(static_cast<double>(samples) * 1e7 / sample_rate);
}

void TBXASFBasicPlayer::RequestPump(TJCPin& pin, Pace& pace) {
  auto request = PQMakeRef<TJCPumpRequestOperation>();
  pin.Notify(*request);
  pace.credits.store(0);
  pace.claimed.store(request->Master != nullptr);
}

void TBXASFBasicPlayer::MasterPump(TJCPin& pin, const void*, int number) {
  Pace* pace = PaceOf(pin);
  if (pace == nullptr || !pace->claimed.load()) return;
  int credits = pace->credits.load();
  while (!pace->credits.compare_exchange_weak(credits, std::min(credits + number, kMostCredits))) {
  }
  notify_thread_->Notify();
}

}  // namespace pantiq
