// What a program and its plug-in host (pantiq-plugin-host) say to each other. Requests and answers are records of fixed
// size on a socket, one answer for each request; texts and frames lie in memory that both have mapped. The first
// request is kOpen.
#pragma once
#include <cstdint>

namespace pantiq {

// Changes with the records: a host of another version is refused.
inline constexpr std::uint32_t kPluginWireVersion = 0x50510001;

// Descriptors of the host's process.
inline constexpr int kPluginSocket = 3, kPluginMemory = 4;

enum class PQPluginWish : std::uint32_t {
  Open,   // text: the file; answered with the reason as text if it cannot be loaded
  Call,   // a function whose answer is a number
  Text,   // a function whose answer is a text
  Info,   // FF_GETEXTENDEDINFO
  Close,  // unload the library
};

struct PQPluginRequest {
  std::uint32_t version = kPluginWireVersion;
  PQPluginWish wish = PQPluginWish::Call;
  std::uint32_t function = 0;
  std::uint32_t frames = 0;  // inputs of FF_PROCESSFRAMECOPY
  std::uint64_t input = 0, instance = 0;
  std::uint64_t memory = 0;                   // bytes of the shared memory by now
  std::uint64_t text_at = 0, text_bytes = 0;  // a text, ended by 0 behind its bytes
  std::uint64_t most_text = 0;                // of the answer
  // Frame i at frames_at + i * frame_step: the inputs, then the output. FF_PROCESSFRAME: one.
  std::uint64_t frames_at = 0, frame_step = 0;
  std::uint32_t values[4] = {};  // VideoInfoStruct; number and value of SetParameterStruct
  std::uint32_t has_text = 0;    // FF_SETPARAMETER: the value is the text
  std::uint32_t unused = 0;
};

struct PQPluginAnswer {
  std::uint64_t result = 0;
  std::uint32_t ok = 0;      // Open: loaded; Text, Info: there is one
  std::uint32_t thrown = 0;  // an exception left the function
  // Texts at the memory's begin, one behind the other.
  std::uint64_t text_bytes = 0, more_text_bytes = 0;
  std::int32_t code = 0;  // Open: the platform's code of a failure
  std::int32_t major = 0, minor = 0;
  std::uint32_t unused = 0;
};

// Room for texts at the memory's begin; the two of an answer fit. Behind it come frames, behind them longer texts.
inline constexpr std::uint64_t kPluginTextRoom = 256 * 1024;

}  // namespace pantiq
