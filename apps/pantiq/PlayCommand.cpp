// Playing a file to a person: screen, sound and keys.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <mutex>

#include "Commands.h"
#include "Console.h"
#include "DeviceTrial.h"
#include "FileCheck.h"
#include "RunOutput.h"
#include "Terminal.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/media/PQASFPlayer.h"
#include "pantiq/media/PQDSVideoOut.h"

namespace pantiq::app {
namespace {

constexpr std::int64_t kJump = 50000000;  // of the arrow keys, 100 ns
constexpr int kLook = 50;                 // ms between two looks at what happens
constexpr int kLookAtSteps = 5;           // while frames are wanted one by one

std::atomic<int> g_play_signal{0};

// The first signal ends the playing properly, the second one the process.
extern "C" void OnPlaySignal(int number) {
  int none = 0;
  if (g_play_signal.compare_exchange_strong(none, number)) return;
  Keys::Restore();
  std::signal(number, SIG_DFL);
  std::raise(number);
}

// What reaches the screen: counts, limits, the end.
class Watch final : public IJCPinProbe {
 public:
  Watch(const PlayArguments& limits, bool is_video) : limits_(limits), is_video_(is_video) {}

  bool Before(TJCPin&, IJCNotifyOperation& op) override {
    if (auto* start = JCOperation<TJCStartFrameOperation>(op)) {
      if (start->Width < 1 || start->Height < 1) no_picture_.store(true);
      return true;
    }
    auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op);
    if (supplied == nullptr || !supplied->Buffer) return true;
    if (full_.load()) return false;
    const TBXTimeStamp& stamp = supplied->Buffer->GetTimeStamp();
    std::int64_t unset = -1;
    first_.compare_exchange_strong(unset, stamp.GetBegin());
    const bool over =
        limits_.seconds > 0 && static_cast<double>(stamp.GetBegin() - first_.load()) >= limits_.seconds * 1e7 - 0.5;
    if (over) {
      full_.store(true);
      return false;
    }
    if (is_video_) position_.store(stamp.GetBegin());
    frames_.fetch_add(1);
    return true;
  }
  void After(TJCPin&, IJCNotifyOperation& op) override {
    if (limits_.frames > 0 && is_video_ && frames_.load() >= limits_.frames) full_.store(true);
    if (JCOperation<TJCStopOperation>(op) != nullptr) ended_.store(true);
  }
  // Before a start at another place, which counts as reached: a person may jump on before a frame has come.
  void Again(std::int64_t place) {
    first_.store(-1);
    ended_.store(false);
    position_.store(place);
  }
  bool Over() const { return ended_.load() || full_.load(); }
  bool NoPicture() const { return no_picture_.load(); }
  std::int64_t Frames() const { return frames_.load(); }
  std::int64_t Position() const { return position_.load(); }

 private:
  const PlayArguments& limits_;
  const bool is_video_;
  std::atomic<std::int64_t> frames_{0}, first_{-1}, position_{0};
  std::atomic<bool> full_{false}, ended_{false}, no_picture_{false};
};

class Player {
 public:
  explicit Player(const PlayArguments& arguments)
      : arguments_(arguments), video_(arguments, true), audio_(arguments, false) {}
  int Play();

 private:
  int CheckFile();
  int CheckDevices();
  void Start(std::int64_t from);
  void End(bool play_tail);
  void Jump(std::int64_t by);
  void Act(Key key);
  void Show(bool last);
  std::string Failure() {
    const std::lock_guard lock(mutex_);
    return failure_;
  }

  const PlayArguments& arguments_;
  TPQASFPlayer player_{nullptr};
  TPQDSVideoOut out_{nullptr};
  Watch video_, audio_;
  bool live_ = false, quit_ = false, held_ = false;
  std::atomic<bool> closed_{false};
  std::mutex mutex_;
  std::string failure_;
  int steps_ = 0;  // that a person wants and that have not begun
};

int Player::CheckFile() {
  player_.SetFileName(arguments_.file);
  std::vector<PQFault> faults;
  TComponent* const components[] = {&player_};
  CheckFiles(components, false, faults);
  for (const PQFault& fault : faults) PrintError("pantiq: " + fault.text);
  if (!faults.empty()) return kExitRefused;
  // Opened here, so that it is known whether a device of sound is needed.
  if (player_.Open()) return kExitOk;
  PrintError("pantiq: " + (Failure().empty() ? "cannot open " + arguments_.file : Failure()));
  return kExitFailed;
}

int Player::CheckDevices() {
  const auto refused = [](const std::string& what, const std::string& why, const std::string& cure) {
    PrintError("pantiq: " + what + ": " + why + "; " + cure + "; pantiq list --devices shows what there is");
    return kExitRefused;
  };
  std::string name, id;
  PQPlatformResult why;
  out_.GetVideoOutputDevice().SetDevice(arguments_.video);
  if (!out_.GetVideoOutputDevice().GetMoniker(name, id, why)) {
    return refused("there is no display to play on", why.detail, "choose another with --video");
  }
  PQDeviceTrial trial = TryDevice(PQDeviceCategory::VideoRenderer, id);
  if (!trial.result.Ok()) {
    return refused("there is no display to play on", trial.result.detail + " (" + name + ")",
                   "set DISPLAY to a display that can be reached");
  }
  if (arguments_.mute || !player_.GetHasAudio()) return kExitOk;
  out_.GetAudioOutputDevice().SetDevice(arguments_.audio);
  if (!out_.GetAudioOutputDevice().GetMoniker(name, id, why)) {
    return refused("there is no device for the sound", why.detail, "choose another with --audio, or play with --mute");
  }
  trial = TryDevice(PQDeviceCategory::AudioRenderer, id);
  if (!trial.result.Ok() || trial.silent) {
    return refused("there is no device for the sound",
                   (trial.result.Ok() ? "none opens" : trial.result.detail) + " (" + name + ")",
                   "start a sound server, or install gstreamer1.0-alsa for a sound card, or play with --mute");
  }
  return kExitOk;
}

void Player::Start(std::int64_t from) {
  player_.SetStartTime(from);
  video_.Again(from);
  audio_.Again(from);
  out_.InputPin.Notify(*PQMakeRef<TJCStartSampleRateOperation>(0, 0.0));
}

void Player::End(bool play_tail) {
  if (!play_tail) out_.Flush();
  out_.InputPin.Notify(*PQMakeRef<TJCStopOperation>());
  if (!play_tail) out_.Flush();
  out_.InputPin.DispatchData(out_.InputPin.GetConnectionID(), *PQMakeRef<TJCStopOperation>(), {});
}

// The window stays; what is inside of the old place is dropped.
void Player::Jump(std::int64_t by) {
  const std::int64_t length = player_.GetFileDuration();
  std::int64_t to = std::max<std::int64_t>(video_.Position() + by, 0);
  if (length > 0 && to >= length) to = std::max<std::int64_t>(length - 10000000, 0);
  out_.Flush();
  out_.InputPin.Notify(*PQMakeRef<TJCStopOperation>());
  out_.Flush();
  Start(to);
}

void Player::Act(Key key) {
  if (key != Key::None && key != Key::Step) steps_ = 0;
  switch (key) {
    case Key::Pause:
      held_ = !held_;
      out_.Hold(held_);
      break;
    case Key::Step:
      if (!held_) out_.Hold(held_ = true);
      ++steps_;
      break;
    case Key::Back:
      Jump(-kJump);
      break;
    case Key::Forward:
      Jump(kJump);
      break;
    case Key::Quit:
      quit_ = true;
      break;
    case Key::None:
      break;
  }
}

void Player::Show(bool last) {
  if (!live_) return;
  std::string text = TimeText(static_cast<double>(video_.Position()) / 1e7);
  if (player_.GetFileDuration() > 0) text += "/" + TimeText(static_cast<double>(player_.GetFileDuration()) / 1e7);
  if (held_) text += "  paused";
  if (const std::int64_t dropped = out_.GetFramesDropped(); dropped > 0)
    text += "  " + std::to_string(dropped) + " dropped";
  if (last) text = "";
  const std::string line = "\r" + text + "\x1b[K";
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

int Player::Play() {
  SetReportListener([this](const PQReportEntry& entry) {
    if (entry.severity == PQSeverity::Error) {
      const std::string text = ReportText(entry);
      const std::lock_guard lock(mutex_);
      if (failure_.empty()) failure_ = text.substr(text.find(' ') + 1);
    } else if (entry.component == &out_ && entry.code == kOutputUserAbort) {
      closed_.store(true);
    } else if (!arguments_.quiet) {
      PrintError(ReportText(entry));
    }
  });
  struct Unlisten {
    ~Unlisten() { SetReportListener({}); }
  } unlisten;
  (void)player_.SetName("player");
  (void)out_.SetName("out");
  if (const int code = CheckFile(); code != kExitOk) return code;
  if (const int code = CheckDevices(); code != kExitOk) return code;

  PQStatus wired = player_.OutputPin.Connect(out_.InputPin);
  if (wired.Ok() && !arguments_.mute) wired = player_.AudioOutputPin.Connect(out_.AudioInputPin);
  if (!wired.Ok()) {
    PrintError("pantiq: " + wired.Text());
    return kExitFailed;
  }
  out_.InputPin.SetProbe(&video_);
  out_.AudioInputPin.SetProbe(&audio_);
  g_play_signal.store(0);
  struct sigaction action {};
  action.sa_handler = OnPlaySignal;
  sigemptyset(&action.sa_mask);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);

  const auto begin = std::chrono::steady_clock::now();
  live_ = IsTerminal(stderr) && !arguments_.quiet;
  {
    Keys keys;
    if (live_ && keys.Any()) PrintError("space pauses, arrows jump by 5 seconds, . shows the next frame, q quits");
    Start(static_cast<std::int64_t>(arguments_.from * 1e7 + 0.5));
    while (!quit_ && !closed_.load() && g_play_signal.load() == 0 && Failure().empty() && !video_.NoPicture()) {
      if (video_.Over() && !held_) break;
      Act(keys.Next(steps_ > 0 ? kLookAtSteps : kLook));
      if (steps_ > 0 && out_.Step()) --steps_;
      Show(false);
    }
    const bool to_the_end = Failure().empty() && !quit_ && !closed_.load() && g_play_signal.load() == 0;
    End(to_the_end);
    Show(true);
  }
  const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  out_.InputPin.SetProbe(nullptr);
  out_.AudioInputPin.SetProbe(nullptr);
  if (video_.NoPicture() && Failure().empty()) {
    PrintError("pantiq: " + arguments_.file + " has no video that could be shown");
    return kExitFailed;
  }
  if (!Failure().empty()) {
    PrintError("pantiq: " + Failure());
    return kExitFailed;
  }
  if (!arguments_.quiet) {
    char text[128];
    std::snprintf(text, sizeof text, "played %lld frames in %.2f s%s", static_cast<long long>(video_.Frames()), elapsed,
                  closed_.load() ? "; the window was closed" : "");
    PrintError(text);
  }
  return g_play_signal.load() != 0 ? kExitSignal + g_play_signal.load() : kExitOk;
}

}  // namespace

int PlayFile(const PlayArguments& arguments) { return Player(arguments).Play(); }

}  // namespace pantiq::app
