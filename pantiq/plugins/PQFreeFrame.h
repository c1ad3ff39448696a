// Runs each frame through a video effect of a plug-in, or several frames through one that mixes them.
#pragma once
#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "pantiq/core/PQMultiInput.h"
#include "pantiq/plugins/PQFreeFrameParameters.h"
#include "pantiq/plugins/PQPluginLibrary.h"

namespace pantiq {

// What a plug-in says of FF_PROCESSFRAMECOPY and FF_PROCESSFRAME.
enum TPQFFOptimizedFor : std::uint8_t { ofNone, ofInPlace, ofCopy, ofBoth };

// The plug-in is a shared object with the one function plugMain: pantiq/plugins/abi/freeframe1.h tells how it is
// called, docs/plugins.md how one is written. It is loaded when its file is named, to learn its parameters, and anew at
// every start; the end of the stream unloads it.
//
// Frames go through it as 24-bit colour, or in 32 bits if it has no 24, always in the size that its instance was made
// for. A plug-in with FF_CAP_PROCESSFRAMECOPY that wants more than one frame gets those of the inputs, in their order,
// smaller ones with black to the right and below; with fewer inputs ready than it wants, the first input's frame goes
// through it alone.
//
// Nothing is raised. A frame that the plug-in fails on passes as it came; a mixed frame that it fails on is black.
// Without a plug-in (no file, one that does not load, one that refuses to start) no frames leave; the start reports
// why. With Isolated the plug-in runs in a process of its own: when it crashes there, or does not come back for two
// seconds, that is reported, frames pass as they came, and the next start tries again. A crash in this process is a
// crash.
//
// Threads. Properties may be set on any thread. Setting the file waits for the frame that is on its way.
class PQ_EXPORT TPQFreeFrame final : public TPQMultiInput {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQFreeFrame(TComponent* owner = nullptr);
  ~TPQFreeFrame() override;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // 1 to 20 inputs: connecting the last one adds another, free ones at the end beyond one go.
  TJCSinkPinList InputPins;

  std::string GetFilterFileName() const;
  // Loads the plug-in, makes its parameters and gives them the stored values that wait. While a stream runs the new
  // plug-in takes over with the next frame.
  void SetFilterFileName(const std::string& file);
  TPQFreeFrameParameters& GetParameters() { return parameters_; }
  void SetParameters(const TPQFreeFrameParameters& parameters) { parameters_.Assign(parameters); }
  bool GetIsolated() const { return isolated_.load(std::memory_order_relaxed); }
  void SetIsolated(bool isolated);
  // After a parameter was sent, what the plug-in has is asked for: of parameter 0, or of that parameter itself.
  bool GetOwnReadBack() const { return own_read_back_.load(std::memory_order_relaxed); }
  void SetOwnReadBack(bool own);

  // What the plug-in that was loaded last said of itself.
  std::string GetDescription() const;
  std::string GetAbout() const;
  std::int32_t GetMinorVertion() const;
  std::int32_t GetMajorVertion() const;
  bool GetHasExtendedInfo() const;
  TPQFFOptimizedFor GetVC_OptimizedFor() const;
  // What the frame path makes of its capabilities; all false, 1 and 1 without a plug-in.
  struct Capabilities {
    bool video16 = false, video24 = false, video32 = false, process_copy = false;
    std::uint32_t minimum_inputs = 1, maximum_inputs = 1;
    TPQFFOptimizedFor optimized_for = ofNone;
  };
  Capabilities GetCapabilities() const;
  // True from a load that succeeded to the unload, or until an isolated plug-in is lost.
  bool HasPlugIn() const;

  // Call the plug-in, with no instance or with the present one; 0 without a call if there is no plug-in. An exception
  // in it reads as 0, a call that does not come back as -1. Of an answer that is a pointer nothing can be read if
  // Isolated.
  std::uintptr_t Execute(std::uint32_t function, std::uintptr_t input) const;
  std::uintptr_t ExecuteInstance(std::uint32_t function, std::uintptr_t input) const;
  bool GetPlugInBoolCaps(std::uint32_t code) const;
  std::uint32_t GetPlugInWordCaps(std::uint32_t code) const;
  // True if the file loads and has the function plugMain; nothing else is asked of it. Its constructors run.
  static bool IsValidPlugIn(const std::string& file);

 protected:
  void CalculateSendStart(double rate, std::int32_t width, std::int32_t height) override;
  void CalculateSendOutput() override;
  void IntStop() override;
  void BeforeDestruction() override;

 private:
  friend class TPQFreeFrameParameter;
  friend class TPQFreeFrameParameters;
  using LibraryRef = std::shared_ptr<PQPluginLibrary>;
  LibraryRef Library() const;
  bool HasUntoldParameters() const;

  // All of these under the frame mutex.
  void InitPopulateCaps(bool for_stream);
  void ReadParameters();
  void Unload();
  void SetSize(std::int32_t width, std::int32_t height);
  // The library, with an instance for frames of this size; null if there is none.
  LibraryRef LibraryFor(std::int32_t width, std::int32_t height);
  PQImageRef PrepareOutput();
  void DirectFilter();
  bool Process24Bit(PQPluginLibrary& library, const TPQImageBuffer& source, PQImageRef& frame);
  bool Process32Bit(PQPluginLibrary& library, const TPQImageBuffer& source, PQImageRef& frame);
  bool PrefersCopy() const;
  // A block for 32-bit pixels that lives as long as the instance.
  std::uint8_t* Block(std::size_t number, std::size_t bytes);
  // Reports what the last call brought: an exception, a crash. Once a start each.
  void TellAfter(PQPluginLibrary& library, bool failed);
  void Tell(bool for_stream, std::string what, const std::string& detail);

  TPQFreeFrameParameters parameters_{*this};
  std::atomic<bool> isolated_{false}, own_read_back_{false};
  std::string file_name_;  // under the component's lock, as are:
  Capabilities capabilities_;
  std::optional<PQPluginExtendedInfo> info_;

  mutable std::mutex library_mutex_;  // a leaf: calls hold the library, not this
  LibraryRef library_;
  std::atomic<bool> parameters_read_{false};

  // Under the frame mutex.
  Capabilities caps_;
  bool initialised_ = false, destroying_ = false, convert32_ = false;
  std::int32_t width_ = 0, height_ = 0;                // of the instance
  std::int32_t stream_width_ = 0, stream_height_ = 0;  // of the last start
  PQRef<TRWBlockBuffer> blocks_[2 + 20];
  bool told_failure_ = false, told_exception_ = false, told_lost_ = false;

  std::optional<TJCPinListOwner> inputs_;  // until this object goes
};

namespace PQFreeFrame {
PQ_EXPORT void Register();
}

}  // namespace pantiq
