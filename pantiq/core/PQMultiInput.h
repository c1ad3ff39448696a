// The base of components with several image inputs and one image output. It keeps the latest frame of every input, decides
// when enough has arrived to make one output frame, and when the output stream starts and stops. A subclass says how a start
// is announced (CalculateSendStart) and how a frame is made (CalculateSendOutput).
//
// Pace. Inputs of equal rate give one output for each complete set of frames. With unequal rates the fastest input sets the
// pace and the last frames of the slower ones are used again. Inputs that are not connected take no part.
//
// Threads. The inputs may be driven by different threads: starts, stops and frames of one component never overlap, what they
// send downstream included. Operations that go up pass without a lock.
#pragma once
#include "pantiq/core/PQStreamTypes.h"

namespace pantiq {

// An input of a multi-input component and what is known of its stream. The fields belong to that component: they change
// and are read while it dispatches.
class PQ_EXPORT TPQJCQueuedImageSinkPin final : public TPQJCImageSinkPin {
 public:
  static const PQClassTag kTag;
  TPQJCQueuedImageSinkPin(TComponent& owner, JCDispatch dispatch) : TPQJCImageSinkPin(owner, dispatch) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }

  double Rate = 0;                  // of the last start, frames per second
  std::int32_t FrameDelay = 0;      // of the last start, 100 ns
  bool HasFrame = false;            // a frame has arrived since one was last used
  PQImageRef Buffer;                // the last frame, in vfRGB24; none before the first
  bool Started = false;             // a start was seen and no stop since
  std::int32_t Width = 0, Height = 0;  // of the last start, pixels
  TPQVideoFormat Format = vfRGB24;  // as the last start announced it
};

class PQ_EXPORT TPQMultiInput : public TComponent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQMultiInput(TComponent* owner);
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 private:
  TJCObject lock_;

 public:
  TPQJCImageSourcePin OutputPin;

  // Operations that come down at an input. Anything that comes with a pin that is none of the inputs only goes on down.
  virtual TJCNotifyResult SinkDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);
  // Operations that come up at OutputPin: on, up through every connected input. With no input connected a start makes a
  // pump request go out, and the operation itself goes down again on OutputPin.
  virtual TJCNotifyResult SourceDispatch(TJCPin& pin, const TGUID* id, IJCNotifyOperation& op, TJCNotifyFlags flags);

 protected:
  // Announces the output: the largest rate (frames per second), width and height of the started inputs. The base notes that
  // the output runs; overriders send the start and call it last.
  virtual void CalculateSendStart(double rate, std::int32_t width, std::int32_t height);
  virtual void TrySendStop();
  // Makes and sends one frame.
  virtual void CalculateSendOutput() {}
  // Ends the output stream: a stop on OutputPin.
  virtual void IntStop();
  // True: the output stops with the last input, false: with the first.
  virtual bool GetStopOnAll() const { return true; }
  // True: the output starts with the first input and frames go out at once as long as a connected input has not started.
  virtual bool StartIfNotAllRunning() const { return false; }
  void BeforeDestruction() override;

  // Makes `pin` an input: it joins the lock, and the output is known to depend on it. The descendant owns the pin.
  void AddInput(TPQJCQueuedImageSinkPin& pin);
  void RemoveInput(TPQJCQueuedImageSinkPin& pin);
  // The inputs in order; connected ones only.
  std::vector<TPQJCQueuedImageSinkPin*> Inputs() const;
  std::vector<TPQJCQueuedImageSinkPin*> ConnectedInputs() const;

  const TJCObject& Lock() const { return lock_; }
  JCFrameMutex& FrameMutex() { return frame_mutex_; }
  // Read and written while the component dispatches.
  bool Running = false;

 private:
  void Start(TPQJCQueuedImageSinkPin& pin, const TJCStartFrameOperation& start);
  void Supplied(TPQJCQueuedImageSinkPin& pin, const IRWDataBuffer& buffer);
  TJCPinList pins_{nullptr, false};  // owned by the descendants
  JCFrameMutex frame_mutex_;
};

}  // namespace pantiq
