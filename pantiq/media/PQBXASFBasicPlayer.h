// TBXASFBasicPlayer: the base of players of media files. Owns the reader, the file's name, the notify thread and the
// pace.
//
// The reader delivers on threads of its own; what it delivers waits in queues until the notify thread has taken it,
// which hands everything downstream. A stop first ends the queues, so that nothing waits, then the reader.
//
// Threads. Setters, starts and stops on any thread; a stop may come from inside a frame's way down. One start runs at a
// time: a start while the player runs is ignored.
#pragma once
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "pantiq/core/RWStreamTypes.h"
#include "pantiq/core/RWThreads.h"
#include "pantiq/media/PQDSQueues.h"
#include "pantiq/platform/PQMediaReader.h"

namespace pantiq {

class PQ_EXPORT TBXASFBasicPlayer : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TBXASFBasicPlayer(TComponent* owner);
  ~TBXASFBasicPlayer() override;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::string GetFileName() const;
  void SetFileName(const std::string& name);  // acts at the next start
  bool GetEnabled() const { return enabled_.load(std::memory_order_relaxed); }
  void SetEnabled(bool enabled);
  // Where playing starts, and how much is played, in 100 ns; 0: from the beginning, to the end.
  std::int64_t GetStartTime() const { return start_time_.load(std::memory_order_relaxed); }
  void SetStartTime(std::int64_t time) { start_time_.store(time, std::memory_order_relaxed); }
  std::int64_t GetDuration() const { return duration_.load(std::memory_order_relaxed); }
  void SetDuration(std::int64_t duration) { duration_.store(duration, std::memory_order_relaxed); }

  // Not published. With a user clock and a clock mode other than 1 samples come at the pace of the file.
  void SetUserClock(bool on) { user_clock_.store(on); }
  void SetClockMode(int mode) { clock_mode_.store(mode); }

  // Length of the open file in 100 ns, 0 if unknown; whether it has sound; depths of the queues.
  std::int64_t GetFileDuration() const { return file_duration_.load(std::memory_order_relaxed); }
  bool GetHasAudio() const { return has_audio_.load(std::memory_order_relaxed); }
  virtual std::int32_t GetVideoQueued() const { return 0; }
  std::int32_t GetAudioQueued() const { return audio_queue_.ItemsCount(); }

  // Opens the file and finds its streams; a failure is reported. Starts do this by themselves.
  bool Open();
  void Close();
  bool IsOpened() const { return opened_.load(); }
  bool IsRunning() const { return running_.load(); }
  // Hold and release the reader, and tell those downstream.
  void Pause();
  void Resume();

 protected:
  // Operations that a player overrides. `from_below`: an operation asked for it; `destroying`: the component dies.
  virtual void IntStart(bool from_below) = 0;
  virtual void IntStop(bool from_below, bool destroying);
  virtual void IntOpen() = 0;  // the streams are known
  virtual void IntPause() = 0;
  virtual void IntResume() = 0;
  virtual void InitStreams() = 0;
  virtual void NewThreadFrame(TPersistent* sender) = 0;  // on the notify thread
  virtual long OnSample(int output, std::int64_t time, std::int64_t duration, unsigned flags,
                        const PQPlatformBlock& sample, void* context) = 0;  // on a thread of the reader
  virtual void OnOutputFormat(int output, const PQMediaOutputProps& props) = 0;
  virtual void OnOutputEnd(int output) = 0;
  virtual void EndQueues();
  virtual void RearmQueues();
  // Ends the reader and the notify thread; the first thing a player does when it dies. The pins come after it.
  void Shutdown();
  void BeforeDestruction() override;

  // Duration of that many samples of the audio stream, 100 ns.
  std::int64_t GetDSTimePerSample(std::int64_t samples, std::int32_t sample_rate) const;
  // A pump of a pin whose pace is set from below: `number` more buffers may go out. Credits are kept up to 100.
  void MasterPump(TJCPin& pin, const void* sender, int number);

  // The pace of one pin: a claimed one gives a buffer for each pump, another one pushes.
  struct Pace {
    std::atomic<bool> claimed{false};
    std::atomic<int> credits{0};
    bool MayGive() const { return !claimed.load() || credits.load() > 0; }
    void Given() {
      if (claimed.load()) credits.fetch_sub(1);
    }
  };
  // Sends a pump request down and remembers the answer.
  void RequestPump(TJCPin& pin, Pace& pace);
  virtual Pace* PaceOf(const TJCPin& pin) = 0;

  // One start: a number that no other start has; 0 if the player runs already. A stop makes the number stale.
  unsigned BeginStart();
  bool IsCurrent(unsigned run) const { return run_.load() == run; }
  // Arms the queues and starts the reader; false if that failed (then the reader is stopped) or the run is stale.
  bool StartReader(unsigned run);
  void SetRunning(unsigned run);
  void EndStart(unsigned run);
  // Ends what has come to its own end. On the notify thread.
  bool EndRun(unsigned run);
  unsigned CurrentRun() const { return run_.load(); }

  // False once the player has died; a copy outlives it.
  std::shared_ptr<const std::atomic<bool>> Alive() const { return alive_; }

  const TJCObject& Lock() const { return lock_; }
  TRWNotifyThread& NotifyThread() { return *notify_thread_; }
  // The reader of the open file, for IntOpen and InitStreams; null if none is open.
  PQMediaReader* Reader() const { return reader_.get(); }

  TPQDSBufferQueue audio_queue_{20000000};  // two seconds of sound
  std::atomic<bool> has_audio_{false};
  std::int64_t time_per_sample_ = 0;  // 100 ns

 private:
  class Events;
  struct Busy;
  void Run();
  void StopReader();
  void WaitForNotifyThread(bool here);
  void InterruptOpening();

  TJCObject lock_;
  std::string file_name_;  // under the lock
  std::string open_name_;
  std::atomic<bool> enabled_{true}, user_clock_{false};
  std::atomic<int> clock_mode_{0};
  std::atomic<std::int64_t> start_time_{0}, duration_{0}, file_duration_{0};
  std::atomic<bool> opened_{false}, running_{false}, started_{false}, used_{false};
  std::atomic<bool> starting_{false};
  std::atomic<unsigned> run_{0};
  std::mutex reader_mutex_;  // calls of the reader; the reader's own threads never take it
  std::unique_ptr<Events> events_;
  std::shared_ptr<PQMediaReader> reader_;
  std::mutex opening_mutex_;                // a leaf
  std::shared_ptr<PQMediaReader> opening_;  // while a file is being opened
  std::shared_ptr<Busy> busy_;
  std::shared_ptr<std::atomic<bool>> alive_;
  std::unique_ptr<TRWNotifyThread> notify_thread_;
};

}  // namespace pantiq
