// A plug-in at hand: its library loaded in this process or in one of its own, and the one way to call it.
#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "pantiq/platform/PQPlatform.h"
#include "pantiq/plugins/abi/freeframe1.h"

namespace pantiq {

// What of a text is read at most, without its end.
inline constexpr std::size_t kPQMostPluginText = 65535;

// "FF_PROCESSFRAME", for messages; "function 99" for a code that there is none of.
PQ_EXPORT std::string PQPluginFunctionName(std::uint32_t function);

// True for the answer -1: only the low half of an answer that is a number counts.
constexpr bool PQIsPluginFailure(std::uintptr_t answer) noexcept {
  return static_cast<std::uint32_t>(answer) == FF_FAIL;
}

struct PQPluginExtendedInfo {
  std::int32_t major = 0, minor = 0;
  std::string description, about;
};

// Calls may come from several threads at once. Nothing that a plug-in does in a call leaves it as an exception, and
// the floating-point modes of the calling thread are after it as they were before.
class PQPluginLibrary {
 public:
  virtual ~PQPluginLibrary() = default;
  PQPluginLibrary(const PQPluginLibrary&) = delete;
  PQPluginLibrary& operator=(const PQPluginLibrary&) = delete;

  // The plug-in's answer. Inputs that are records or frames are pointers into this process, whatever process the
  // plug-in is in; what comes back changed is changed there. An exception reads as 0, a call that does not come back as
  // FF_FAIL. Answers that are pointers mean nothing here: the next two are for them.
  virtual std::uintptr_t Call(std::uint32_t function, std::uintptr_t input, std::uintptr_t instance) noexcept = 0;
  // The answer as text: at most `most` bytes up to the first zero. None for 0 and -1.
  virtual std::optional<std::string> Text(std::uint32_t function, std::uintptr_t input, std::uintptr_t instance,
                                          std::size_t most) = 0;
  // The record of FF_GETEXTENDEDINFO; none for 0 and -1.
  virtual std::optional<PQPluginExtendedInfo> ExtendedInfo() = 0;

  // Where a frame of this size may be put to be handed to FF_PROCESSFRAME without a copy, zeroed for each instance and
  // otherwise left alone; good until the size changes or an instance is made. Null: anywhere.
  virtual std::uint8_t* FrameMemory(std::size_t bytes) {
    (void)bytes;
    return nullptr;
  }

  // Why no call reaches the plug-in any more, "it crashed in FF_PROCESSFRAME (Segmentation fault)"; empty while they
  // do.
  virtual std::string WhyLost() const { return {}; }
  virtual bool IsLost() const noexcept { return false; }

  // The function that raised an exception since this was asked last; none if none did.
  std::optional<std::uint32_t> TakeException() noexcept;

  // The instance that FF_INSTANTIATE made of this library; 0 before. An identifier thus never meets another library.
  std::atomic<std::uintptr_t> instance{0};

 protected:
  PQPluginLibrary() = default;
  void NoteException(std::uint32_t function) noexcept { thrown_.store(function, std::memory_order_relaxed); }

 private:
  static constexpr std::uint32_t kNothing = 0xFFFFFFFF;
  std::atomic<std::uint32_t> thrown_{kNothing};
};

// Loads the plug-in into this process. Null with a result if the file does not load or has no entry; nothing of the
// plug-in has been called then, apart from its constructors.
std::shared_ptr<PQPluginLibrary> PQLoadPlugin(const std::string& file, PQPlatformResult& result);

}  // namespace pantiq
