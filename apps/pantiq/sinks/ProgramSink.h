// Sinks of the program itself: they end a graph in a file or on standard output, to look at, to compare, to pipe on.
// They live on a registry page of their own and are no part of stored graphs.
//
// A sink opens its output with the stream and closes it when the stream stops; a stream that starts again goes on where
// the last one ended. What goes wrong is reported once, as an error of the component; frames are then dropped until the
// next start.
#pragma once
#include <string>
#include <string_view>

#include "OutputFile.h"
#include "pantiq/core/PQStreamTypes.h"

namespace pantiq::app {

inline constexpr std::string_view kProgramPage = "Program";

// Puts the program's classes on their page.
void RegisterSinks();

class ProgramSink : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::string GetFileName() const;
  // Takes effect with the next start of a stream that has no output open. "-" is standard output.
  virtual PQStatus SetFileName(const std::string& name);

  bool WritesToStandardOutput() const { return GetFileName() == "-"; }

  TJCNotifyResult SinkDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

 protected:
  ProgramSink(TComponent* owner, std::string file_name);
  // A start, of whatever class; may come again at any time.
  virtual PQStatus Start(TJCStartOperation& op) = 0;
  virtual PQStatus Receive(IJCNotifyOperation& op) = 0;
  virtual PQStatus Stop() = 0;
  const TJCObject& Lock() const { return lock_; }
  // Ends what is open; for the overriders of BeforeDestruction, after their pin is disconnected.
  void Finish();

 private:
  // Says what is wrong and closes the output.
  void Fail(const PQStatus& status);
  TJCObject lock_;
  JCFrameMutex mutex_;
  std::string file_name_;
  bool failed_ = false;
};

// A sink of frames.
class ImageSink : public ProgramSink {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQJCImageSinkPin InputPin;

 protected:
  ImageSink(TComponent* owner, std::string file_name);
  // One frame, in whatever format it came; `number` counts the frames that this sink has had, from 0.
  virtual PQStatus Frame(const TPQImageBuffer& frame, std::int64_t number) = 0;
  PQStatus Start(TJCStartOperation& op) override;
  PQStatus Receive(IJCNotifyOperation& op) final;
  void BeforeDestruction() override;
  // Time between frames in 100 ns as the stream announced it; 0 if it did not.
  std::int64_t FrameDelay() const { return frame_delay_; }

 private:
  std::int64_t number_ = 0, frame_delay_ = 0;
};

// "640x480"
std::string SizeText(const IPQImageBuffer& frame);

}  // namespace pantiq::app
