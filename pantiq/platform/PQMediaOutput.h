// Where video and sound leave for a person: the devices that there are, and a graph that plays to them step by step,
// with the clock that it plays by.
//
// Threads. Building, running, pausing and stopping belong to one thread at a time. SendVideo and SendAudio belong to
// one thread at a time, which may be another one. Interrupt, GetStatistics and the format of a DV encoder may be called
// on any thread.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pantiq/platform/PQMediaGraph.h"
#include "pantiq/platform/PQPlatform.h"

namespace pantiq {

enum class PQDeviceCategory { VideoRenderer, AudioRenderer };

// A device's stored text is "gst:element=NAME", "gst:device=CLASS/ID" or, for digital video, "dv:PATH".
struct PQOutputDevice {
  std::string id;       // stored text
  std::string name;     // what a person reads; no two devices of a category share it
  std::string package;  // what brought it; empty if nobody knows
};

// What a device said when it was opened.
struct PQDeviceTrial {
  PQPlatformResult result;          // Ok: it opens
  std::vector<std::string> limits;  // "pixels BGRx", "1 to 8 channels": what it takes
  bool silent = false;              // opens, but nothing is heard: a stand-in for a device that is missing
};

class PQ_EXPORT PQOutputDevices {
 public:
  virtual ~PQOutputDevices() = default;
  // The devices of a category, the one to be taken by default first.
  virtual PQPlatformResult Enumerate(PQDeviceCategory category, std::vector<PQOutputDevice>& devices) = 0;
  // Opens the device and closes it again. It shows and plays nothing.
  virtual PQDeviceTrial Try(PQDeviceCategory category, const std::string& id) = 0;
};

// The clock that a running graph plays by. Closures come on a thread of the clock; they must not wait and must not call
// the clock. After Unadvise has returned the closure does not run any more.
class PQ_EXPORT PQReferenceClock {
 public:
  virtual ~PQReferenceClock() = default;
  virtual PQPlatformResult GetTime(std::int64_t& now) = 0;  // 100 ns
  // Runs `tick` at `start`, `start` + `period`, ...; `cookie` is above 0.
  virtual PQPlatformResult AdvisePeriodic(std::int64_t start, std::int64_t period, std::function<void()> tick,
                                          std::uint64_t& cookie) = 0;
  // Runs `tick` once at `base` + `delay`.
  virtual PQPlatformResult AdviseTime(std::int64_t base, std::int64_t delay, std::function<void()> tick,
                                      std::uint64_t& cookie) = 0;
  virtual void Unadvise(std::uint64_t cookie) = 0;
};

enum class PQOutputFilter { VideoSource, AudioSource, DVMux, DVEncoder, ColorConverter, AudioWrapper };

// What a running graph tells of its own accord.
enum PQOutputEvent : long {
  kOutputUserAbort = 3,    // a person has closed the window
  kOutputDeviceLost = 31,  // a device is gone, or takes nothing more
};

using PQOutputListener = std::function<void(long event, const PQPlatformResult& why)>;

// What a digital video device offers beside taking the stream.
struct PQDigitalVideoOffer {
  bool transport = false, timecode_reader = false, device = false;
};

// The values that a DV encoder is set by.
struct PQDVEncoderFormat {
  long format = 2000;      // 2000 NTSC, 2001 PAL
  long encoding = 2007;    // 2007 DVSD, 2008 DVHD, 2009 DVSL
  long resolution = 2012;  // 2012 to 2015: 720, 360, 180, 88 columns
};

struct PQOutputStatistics {
  std::int64_t shown = 0, dropped = 0;  // frames since the last Run, at the device
  std::int64_t lateness_95 = 0;         // 100 ns: 95 of 100 of the last frames came no later than this after their time
};

class PQ_EXPORT PQMediaOutput {
 public:
  virtual ~PQMediaOutput() = default;

  // Building. The builder is made before the graph.
  virtual PQPlatformResult CreateCaptureBuilder() = 0;
  virtual PQPlatformResult CreateGraph() = 0;
  virtual PQPlatformResult SetFiltergraph() = 0;
  virtual PQPlatformResult RegisterAdditionalFilters() = 0;
  // Opens the device of this stored text.
  virtual PQPlatformResult BindDevice(PQDeviceCategory category, const std::string& id, PQFilterId& filter) = 0;
  virtual PQPlatformResult QueryMediaControl() = 0;
  // `subtype` is looked at for video sources only.
  virtual PQPlatformResult CreateFilter(PQOutputFilter kind, PQVideoSubtype subtype, PQFilterId& filter) = 0;
  virtual PQPlatformResult AddFilter(PQFilterId filter, const std::string& name) = 0;
  virtual PQPlatformResult SetVideoSize(PQFilterId source, int width, int height, std::int64_t period) = 0;
  virtual PQPlatformResult SetAudioFormat(PQFilterId source, const PQAudioFormat& format) = 0;
  virtual PQDigitalVideoOffer QueryDigitalVideo(PQFilterId render) = 0;
  virtual PQPlatformResult QueryDVEncoder(PQFilterId encoder) = 0;
  virtual PQPlatformResult GetDVFormat(PQFilterId encoder, PQDVEncoderFormat& format) = 0;
  virtual PQPlatformResult SetDVFormat(PQFilterId encoder, const PQDVEncoderFormat& format) = 0;
  // Wires `from` through `via` (0: nothing) into `to`. What is needed between is put there; of DV encoder and
  // multiplexer only what has been added.
  virtual PQPlatformResult Render(PQFilterId from, PQFilterId via, PQFilterId to) = 0;
  // `on_event` comes on a thread of the engine and must not wait or call this object. None after its destruction.
  virtual void SetMediaEvent(PQOutputListener on_event) = 0;
  virtual PQPlatformResult QueryMediaFilter() = 0;

  // Running. The first frame sent after a Stop has the time 0 on the devices' clock.
  virtual PQPlatformResult Run() = 0;
  // Holds picture and sound where they are, until Run. With `senders_wait` frames that find no room wait inside their
  // Send, else they are refused with kPlatformTimeout.
  virtual PQPlatformResult Pause(bool senders_wait) = 0;
  // Ends at once; windows stay open. Harmless at any time.
  virtual PQPlatformResult Stop() = 0;
  // While paused: shows one frame more. kPlatformTimeout while the step before is still under way.
  virtual PQPlatformResult Step() = 0;
  // The clock of the running graph; empty if there is none.
  virtual std::shared_ptr<PQReferenceClock> GetClock() = 0;
  virtual PQOutputStatistics GetStatistics() = 0;

  // Samples. A call waits while the graph has enough to do, at most a second unless senders shall wait: then it answers
  // kPlatformTimeout, and the sample was not taken. After an Interrupt or a failure samples are refused with another
  // code. Of a block of sound the first `taken` bytes, whole samples, were taken.
  virtual PQPlatformResult SendVideo(PQFilterId source, const PQPlatformBlock& frame) = 0;
  virtual PQPlatformResult SendAudio(PQFilterId source, const PQPlatformBlock& block, std::size_t& taken) = 0;

  // No more samples come from this source. After the last source's end, Drain waits until everything has been played,
  // at most `limit_milliseconds`.
  virtual PQPlatformResult EndOfStream(PQFilterId source) = 0;
  virtual PQPlatformResult Drain(int limit_milliseconds) = 0;

  // Ends every wait inside SendVideo, SendAudio and Drain, now and until the next Run.
  virtual void Interrupt() = 0;
};

}  // namespace pantiq
