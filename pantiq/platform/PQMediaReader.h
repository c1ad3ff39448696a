// Reads a media file: lists its outputs with their types, then delivers decoded samples on threads of its own.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "pantiq/platform/PQPlatform.h"

namespace pantiq {

enum class PQMediaType { Other, Video, Audio };
enum class PQMediaSubtype {
  Other,
  Rgb24,
  Pcm
};  // Rgb24: blue, green, red, top row first; Pcm: signed 16 bits, interleaved
enum class PQMediaFormatType { Other, VideoInfo, WaveFormat };

// What one output delivers. Video fields are 0 for sound and the other way round.
struct PQMediaOutputProps {
  PQMediaType major_type = PQMediaType::Other;
  PQMediaSubtype subtype = PQMediaSubtype::Other;
  PQMediaFormatType format_type = PQMediaFormatType::Other;
  int width = 0, height = 0;        // pixels
  std::int64_t time_per_frame = 0;  // 100 ns; 0 if the file does not tell and the stamps do not either
  int channels = 0;                 // 1 to 8
  int bits_per_sample = 0;          // of one channel
  int block_align = 0;              // bytes of one sample of all channels
  int sample_rate = 0;              // samples a second
  int sample_size = 0;              // bytes of one frame, or block_align
  std::vector<std::string> notes;   // conversions worth telling: "interlaced video is converted to frames"
};

// Called on the reader's own threads, one thread an output; two outputs may call at the same time. No lock of the
// platform is held meanwhile, and a call may wait as long as it wants: the reader is held back by it.
class PQ_EXPORT PQMediaReaderEvents {
 public:
  virtual ~PQMediaReaderEvents() = default;
  // `time` and `duration` in 100 ns from the start of the file. Flags: 1 = the first sample after a gap or a start.
  virtual void OnSample(int output, std::int64_t time, std::int64_t duration, unsigned flags,
                        const PQPlatformBlock& sample) = 0;
  // The following samples of this output have other properties (another size or rate).
  virtual void OnFormat(int output, const PQMediaOutputProps& props) = 0;
  // The output has given its last sample, also after an error. Not called when Stop ends it.
  virtual void OnEnd(int output) = 0;
  // Memory for a frame of `rows` rows of `step` bytes, asked for before the frame is decoded into it, on any thread;
  // null leaves it to the reader. Frames come in it where the reader can do so, see PQPlatformBlock::own.
  virtual std::shared_ptr<void> AllocateFrame(std::int64_t step, std::int64_t rows, std::uint8_t*& data) {
    (void)step, (void)rows, (void)data;
    return nullptr;
  }
  // Something failed while running; OnEnd follows for each output that has not ended.
  virtual void OnError(const PQPlatformResult& result) = 0;
};

// Every call belongs to one thread at a time. Stop returns when no event runs any more, so it must not be called from
// an event, nor while holding anything that an event waits for.
class PQ_EXPORT PQMediaReader {
 public:
  virtual ~PQMediaReader() = default;

  // Opens the file and finds its outputs. `events` must live until Close or the destructor has returned.
  virtual PQPlatformResult Open(const std::string& path, PQMediaReaderEvents* events) = 0;
  virtual void Close() = 0;

  // Valid between Open and Close.
  virtual PQPlatformResult GetOutputCount(int& count) = 0;
  virtual PQPlatformResult GetOutputProps(int output, PQMediaOutputProps& props) = 0;
  virtual std::int64_t GetDuration() = 0;  // 100 ns, 0 if unknown
  virtual bool IsSeekable() = 0;

  // True (the start value): samples come as fast as they are taken. False: at the pace of the file.
  virtual PQPlatformResult SetUserProvidedClock(bool on) = 0;

  // `start` and `duration` in 100 ns; duration 0 means to the end; rate 1.0 is normal speed.
  virtual PQPlatformResult Start(std::int64_t start, std::int64_t duration, double rate) = 0;
  virtual PQPlatformResult Pause() = 0;
  virtual PQPlatformResult Resume() = 0;
  virtual PQPlatformResult Stop() = 0;

  // Ends a wait inside Open or Start, which then fails. Any thread, at any time.
  virtual void Interrupt() = 0;
};

}  // namespace pantiq
