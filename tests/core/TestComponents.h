// Small components for tests of the stream core: a source that the test drives, a sink that records, filters that do next
// to nothing.
#pragma once
#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

class TestSource final : public TComponent {
 public:
  explicit TestSource(TComponent* owner = nullptr)
      : TComponent(owner), OutputPin(*this, JCDispatch::To<&TestSource::Dispatch>(this)) {}
  ~TestSource() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info = PQDescribe<TestSource>("TestSource", "TestComponents", "Driven by a test.")
                                         .Inherits<TComponent>()
                                         .Pin("OutputPin", &TestSource::OutputPin)
                                         .Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TPQJCImageSourcePin OutputPin;
  std::function<void(IJCNotifyOperation&)> on_op;  // what comes up
  std::vector<std::string> came_up;

  void Start(int width, int height, std::int64_t delay = 400000, TPQVideoFormat format = vfRGB24) {
    OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(width, height, delay, format));
  }

 private:
  void BeforeDestruction() override { OutputPin.Disconnect(); }
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    came_up.push_back(op.Tag().Name());
    if (on_op) on_op(op);
    return {};
  }
};

class TestSink final : public TComponent {
 public:
  explicit TestSink(TComponent* owner = nullptr)
      : TComponent(owner), InputPin(*this, JCDispatch::To<&TestSink::Dispatch>(this)) {}
  ~TestSink() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info = PQDescribe<TestSink>("TestSink", "TestComponents", "Records what comes down.")
                                         .Inherits<TComponent>()
                                         .Pin("InputPin", &TestSink::InputPin)
                                         .Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TPQJCImageSinkPin InputPin;
  std::function<void(IJCNotifyOperation&)> on_op;
  TJCNotifyResult result;
  std::atomic<int> ops{0};
  bool record = true;
  std::vector<std::string> log;  // class names; a start with its form, a frame with its size
  PQImageRef last;               // a view of the latest frame
  const IRWDataBuffer* last_object = nullptr;

 private:
  void BeforeDestruction() override { InputPin.Disconnect(); }
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    const TJCNotifyResult answer = result;  // on_op may destroy this object
    if (record && on_op == nullptr) Record(op);
    ++ops;
    if (on_op) {
      auto call = on_op;
      call(op);
    }
    return answer;
  }
  void Record(IJCNotifyOperation& op) {
    std::string line = op.Tag().Name();
    if (const auto* start = JCOperation<TJCStartFrameOperation>(op)) {
      line += " " + std::to_string(start->Width) + "x" + std::to_string(start->Height) + " " + std::to_string(start->FrameDelay) +
              " " + std::to_string(start->Format);
    } else if (const auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      last_object = supplied->Buffer.Get();
      last = PQMakeRef<TPQImageBuffer>(*supplied->Buffer);
      line = "frame " + std::to_string(last->GetWidth()) + "x" + std::to_string(last->GetHeight()) + " " +
             std::to_string(last->GetFormat());
    }
    log.push_back(line);
  }
};

// Enabled and does nothing: the frame goes on as it came.
class PassFilter final : public TPQCommonFilter {
 public:
  explicit PassFilter(TComponent* owner = nullptr) : TPQCommonFilter(owner) {}
  ~PassFilter() override { BeforeDestructionOnce(); }
};

// A frame whose bytes count up from `first`.
inline PQImageRef MakeFrame(int width, int height, TPQVideoFormat format = vfRGB24, int first = 0) {
  PQImageRef frame = PQMakeRef<TPQImageBuffer>(width, height, format);
  std::uint8_t* to = frame->Write();
  for (int i = 0; i < frame->GetByteSize(); ++i) to[i] = static_cast<std::uint8_t>(first + i);
  return frame;
}

inline std::vector<int> Bytes(const IPQImageBuffer& frame) {
  return std::vector<int>(frame.Read(), frame.Read() + frame.GetByteSize());
}

}  // namespace pantiq
