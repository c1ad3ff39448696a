// Video effects of the platform: which there are, and one of them at work on frames, synchronously, on the caller's
// thread. Frames are blue, green, red bytes, rows from the top without padding: the step is 3 * width bytes.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pantiq/platform/PQPlatform.h"

namespace pantiq {

struct PQEffectInfo {
  std::string id;       // "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" in capitals, the same on every machine
  std::string name;     // what a person reads; no two effects of a list share it
  std::string factory;  // what the platform calls it
  std::string package;  // the package that it came with; empty if nobody knows
  std::string help;     // one line
};

// One setting of an effect, as SetSettings takes it.
struct PQEffectSetting {
  std::string name, help;
  std::string expected;       // "a number from 0.01 to 10", "one of none, heat, sepia"
  std::string default_value;  // in the form that SetSettings takes
};

// A package that is not installed and would bring effects.
struct PQEffectPackage {
  std::string package;
  std::string brings;  // "29 effects: bulge, circle, ..."
};

struct PQEffectType {
  int width = 0, height = 0;  // pixels
};

// How the next frame will be worked on.
enum class PQEffectWay {
  Copy,       // from one frame into another: ProcessInput, ProcessOutput
  InPlace,    // in the frame's own memory: Process
  Untouched,  // not at all: the effect is set so that it changes nothing
};

// Memory for a frame of `rows` rows of `step` bytes, or null; see PQMediaReaderEvents::AllocateFrame.
using PQFrameMemory = std::function<std::shared_ptr<void>(std::int64_t step, std::int64_t rows, std::uint8_t*& data)>;

// One effect. Every call belongs to one thread at a time. In order: settings (if any), both types, then frames;
// settings may change between two frames.
class PQ_EXPORT PQEffect {
 public:
  virtual ~PQEffect() = default;

  virtual PQPlatformResult GetStreamCount(int& inputs, int& outputs) = 0;
  virtual PQPlatformResult GetSettings(std::vector<PQEffectSetting>& settings) = 0;
  // "contrast=1.3 hue=0.1"; a value with blanks stands in quotes, name="a b". What an earlier call set and this one
  // does not name goes back to its default. An unknown name or a bad value changes nothing; the detail tells what is
  // accepted.
  virtual PQPlatformResult SetSettings(const std::string& settings) = 0;

  virtual PQPlatformResult SetInputType(const PQEffectType& type) = 0;
  // The effect is ready for frames when this has succeeded. The output has the input's size.
  virtual PQPlatformResult SetOutputType(const PQEffectType& type) = 0;

  virtual PQEffectWay Way() = 0;

  // Changes the frame in its own memory, which nobody else may look at meanwhile. After a failure the pixels may be
  // partly changed.
  virtual PQPlatformResult Process(const PQPlatformBlock& frame) = 0;

  // Takes a frame, which stays as it is; the effect may look at it until the block's keep_alive is gone.
  virtual PQPlatformResult ProcessInput(const PQPlatformBlock& frame) = 0;
  // Gives what became of it. Memory is asked for by `memory`, possibly more often than once; `frame.own` tells whether
  // the frame lies in memory that came from there.
  virtual PQPlatformResult ProcessOutput(const PQFrameMemory& memory, PQPlatformBlock& frame) = 0;
};

// Any thread.
class PQ_EXPORT PQEffects {
 public:
  virtual ~PQEffects() = default;
  // Every effect with one input and one output, by name.
  virtual PQPlatformResult Enumerate(std::vector<PQEffectInfo>& effects) = 0;
  // Null with a result if there is none of this identifier; the detail names the package where it is known.
  virtual std::unique_ptr<PQEffect> Create(const std::string& id, PQPlatformResult& result) = 0;
  // What could be installed.
  virtual void MorePackages(std::vector<PQEffectPackage>& packages) = 0;
};

}  // namespace pantiq
