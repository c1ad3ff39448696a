// A component between sources and sinks of whatever kinds of stream it has: it is fed, asked and watched, whichever it
// is.
#pragma once
#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQTextStream.h"

namespace pantiq::test {

// A source of any kind of stream.
class Feed final : public TComponent {
 public:
  explicit Feed(const JCStreamType& type) : OutputPin(*this, type, JCDispatch::To<&Feed::Dispatch>(this)) {}
  ~Feed() override { BeforeDestructionOnce(); }
  TRWJCSourcePin OutputPin;
  std::function<void(IJCNotifyOperation&)> on_op;  // what comes up

 private:
  void BeforeDestruction() override { OutputPin.Disconnect(); }
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    if (on_op) on_op(op);
    return {};
  }
};

// A sink of any kind of stream.
class Drain final : public TComponent {
 public:
  explicit Drain(const JCStreamType& type) : InputPin(*this, type, JCDispatch::To<&Drain::Dispatch>(this)) {}
  ~Drain() override { BeforeDestructionOnce(); }
  TRWJCSinkPin InputPin;
  std::function<void(IJCNotifyOperation&)> on_op;  // what comes down

 private:
  void BeforeDestruction() override { InputPin.Disconnect(); }
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    if (on_op) on_op(op);
    return {};
  }
};

inline std::uint64_t Mix(std::uint64_t sum, std::uint64_t number) { return (sum ^ number) * 1099511628211u; }

inline std::uint64_t SumOf(const IRWDataBuffer& buffer) {
  std::uint64_t sum = 14695981039346656037u;
  const auto* bytes = static_cast<const std::uint8_t*>(buffer.ReadData());
  for (int i = 0; i < buffer.GetByteSize(); ++i) sum = Mix(sum, bytes[i]);
  if (const auto* image = PQCast<const IPQImageBuffer>(&buffer)) {
    sum = Mix(
        Mix(Mix(sum, static_cast<std::uint64_t>(image->GetWidth())), static_cast<std::uint64_t>(image->GetHeight())),
        image->GetFormat());
  }
  return sum;
}

// A frame that its numbers tell from all others.
inline PQImageRef PatternFrame(int width, int height, int number, int source, TPQVideoFormat format = vfRGB24) {
  auto frame = PQMakeRef<TPQImageBuffer>(width, height, format);
  std::uint32_t state = static_cast<std::uint32_t>(number * 7919 + source * 104729 + 1);
  std::uint8_t* to = frame->Write();
  for (int i = 0; i < frame->GetByteSize(); ++i) {
    state = state * 1664525u + 1013904223u;
    to[i] = static_cast<std::uint8_t>(state >> 24);
  }
  frame->GetTimeCode().SetFrame(number);
  frame->GetSequenceStamp().SetBufferNumber(number);
  frame->GetTimeStamp().SetAvailable(true);
  frame->GetTimeStamp().SetBegin(std::int64_t{number} * 400000);
  frame->GetTimeStamp().SetEnd(std::int64_t{number + 1} * 400000);
  return frame;
}

// What a component has to be set to to do its work; the others do it as they are.
inline std::string SettingsOf(const std::string& name) {
  static const std::map<std::string, std::string> settings = {
      {"TPQApplyMask", "Picture = {}\n"},
      {"TPQBoxFilter", "FilterMode = bfmMedian\n"},
      {"TPQChangeRate", "FrameRate = 60\n"},
      {"TPQColorTwist", "ColorTwists.RedTwist.Green = 1\nColorTwists.GreenTwist.Red = 0.5\n"},
      {"TPQCombine", "Offset.Horizontal = 3\n"},
      {"TPQCrop", "Region.Enabled = true\nRegion.Left = 2\nRegion.Width = 7\nRegion.Height = 5\n"},
      {"TPQDelay", "FrameDelay = 2\n"},
      {"TPQFixedFilter", "FilterType = ftMedianColor\n"},
      {"TPQGaussNoise", "Seed = 77\nStDev = 30\n"},
      {"TPQImageAdjust", "Hue = 20\nContrast = 1.5\n"},
      {"TPQJaehneGen", "ImageSize.Width = 20\nImageSize.Height = 12\n"},
      {"TPQMorphFilter", "MaskSize.Width = 5\nMaskSize.Height = 3\nMorphShape.ShapeType = stEllipse\n"},
      {"TPQQueuedSwitch", "InputChannels\n  item\n    Queuing.Enabled = true\n  end\n  item\n  end\n"},
      {"TPQRealToFrame", "Width = 8\nHight = 4\n"},
      {"TPQResize", "OutputSize.Width = 30\nOutputSize.Height = 9\nInterpolation = imCubic\n"},
      {"TPQRotate", "Angle = 30\n"},
      {"TPQShear", "Region.Enabled = true\nRegion.Left = 1\n"},
      {"TPQSnapshot", "PreserveFrameRate = true\n"},
      {"TPQTransparentColor", "TransparentColors\n  item\n    Color = 255\n  end\n"},
      {"TPQUniformNoise", "Seed = 77\n"},
      {"TPQWienerFilter", "NoiseLevels.Channel1 = 0.01\n"},
  };
  const auto found = settings.find(name);
  return found == settings.end() ? "" : found->second;
}

// What needs a platform is tested with fakes of it.
inline bool NeedsAPlatform(const std::string& name) {
  static const char* const names[] = {"TPQDSVideoDecompressor", "TPQASFPlayer",       "TPQDSVideoCompressor",
                                      "TPQFreeFrame",           "TPQDMOEffect",       "TPQDSVideoOut",
                                      "TPQVideoDecompressor",   "TPQVideoCompressor", "TPQASFLogger"};
  return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

class Bench {
 public:
  PQOwned<TComponent> component;
  std::vector<std::unique_ptr<Feed>> feeds;
  std::vector<std::unique_ptr<Drain>> drains;
  std::function<void(IJCNotifyOperation&)> on_op;  // what comes down at any drain
  TPQVideoFormat format = vfRGB24;

  // Makes the component, sets it, and wires every pin of a stream that it has.
  void Build(const std::string& class_name, const std::string& settings) {
    component = PQCreateComponent(class_name);
    Set(settings);
    Wire();
  }
  void Set(const std::string& settings) {
    std::vector<PQTextLink> links;
    std::vector<PQFault> faults;
    PQReadText(settings, *component, links, faults);
    if (!faults.empty()) throw std::logic_error(faults.front().text);
  }
  void Wire() {
    for (TJCPin* pin : JCPublishedPins(*component)) {
      const bool stream = pin->Tag().Is(TRWJCSinkPin::kTag) || pin->Tag().Is(TRWJCSourcePin::kTag);
      if (pin->IsConnected() || (!stream && !pin->Tag().Is(TJCClockSinkPin::kTag))) continue;
      if (pin->GetPinType() == PQPinRole::Sink) {
        feeds.push_back(std::make_unique<Feed>(pin->GetStreamType()));
        Check(feeds.back()->OutputPin.Connect(*pin));
      } else {
        drains.push_back(std::make_unique<Drain>(pin->GetStreamType()));
        drains.back()->on_op = [this](IJCNotifyOperation& op) { OnOp(op); };
        Check(pin->Connect(drains.back()->InputPin));
      }
    }
  }
  void AskToStart() {
    for (const auto& drain : drains) drain->InputPin.Notify(*PQMakeRef<TJCStartSampleRateOperation>(0, 0.0));
  }
  void Start(int width, int height) {
    for (const auto& feed : feeds) {
      const JCStreamType& type = feed->OutputPin.GetStreamType();
      if (&type == &kJCClockStream) continue;
      if (&type == &kPQImageStream) {
        feed->OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(width, height, 400000, format));
      } else if (&type == &kHTAudioStream) {
        feed->OutputPin.Notify(*PQMakeRef<TJCStartWaveOperation>(25.0, THTWaveFormat{2, 16, 8000}));
      } else {
        feed->OutputPin.Notify(*PQMakeRef<TJCStartSampleRateOperation>(width, 25.0 * width));
      }
      feed->OutputPin.Notify(*PQMakeRef<TJCStartPumpOperation>());
    }
  }
  // A buffer from every feed, and a pump from every drain.
  template <class Making>
  void Send(int width, int height, int number) {
    int source = 0;
    for (const auto& feed : feeds) SendTo<Making>(*feed, width, height, number, ++source);
    for (const auto& drain : drains) drain->InputPin.MasterPump(this);
    if (auto* pacer = dynamic_cast<IPQPacer*>(component.get())) pacer->Drain();
  }
  template <class Making>
  void SendTo(Feed& feed, int width, int height, int number, int source) {
    const JCStreamType& type = feed.OutputPin.GetStreamType();
    if (&type == &kJCClockStream) {
      feed.OutputPin.Notify(*PQMakeRef<TJCClockOperation>());
    } else if (PQDataBufferRef buffer = Make<Making>(type, width, height, number, source)) {
      feed.OutputPin.SubmitBuffer(std::move(buffer));
    }
  }
  void StopFromAbove() {
    for (const auto& feed : feeds) feed->OutputPin.Stop();
  }
  void StopFromBelow() {
    for (const auto& drain : drains) drain->InputPin.Notify(*PQMakeRef<TJCStopOperation>());
  }

 private:
  static void Check(const PQStatus& status) {
    if (!status.Ok()) throw std::logic_error(status.Text());
  }
  template <class Making>
  PQDataBufferRef Make(const JCStreamType& type, int width, int height, int number, int source) {
    [[maybe_unused]] const Making own;
    if (&type == &kPQImageStream) return PatternFrame(width, height, number, source, format);
    if (&type == &kRWRealStream) {
      auto reals = PQMakeRef<TRWRealBuffer>(width);
      for (int i = 0; i < width; ++i) reals->SetElement(i, (number * 37 + i * 11) % 256);
      return reals;
    }
    if (&type == &kHTAudioStream) {
      auto sound = PQMakeRef<THTAudioBuffer>(320, 2, 16);
      std::fill_n(static_cast<std::uint8_t*>(sound->WriteData()), sound->GetByteSize(),
                  static_cast<std::uint8_t>(number));
      sound->SetFormat(8000);
      return sound;
    }
    if (&type == &kRWBinaryStream) {
      auto block = PQMakeRef<TRWBlockBuffer>(width * height * 3);
      std::fill_n(block->Write(), block->GetByteSize(), static_cast<std::uint8_t>(number));
      return block;
    }
    return {};
  }
  // Takes the pace, so that nothing runs by a clock.
  void OnOp(IJCNotifyOperation& op) {
    if (auto* request = JCOperation<TJCPumpRequestOperation>(op))
      request->Master = this, request->Kind = 3, request->Level = 0;
    if (on_op) on_op(op);
  }
};

}  // namespace pantiq::test
