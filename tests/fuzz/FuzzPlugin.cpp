// A plug-in that answers anything: any number where a number is due, no text or one without an end where a text is due,
// sizes, failures, exceptions; and a host that goes on asking. The plug-in stays within what the interface lends it: a
// pointer that leads nowhere, or a frame overrun, ends the process that runs it, which is what TPQFreeFrame's Isolated
// is for.
#include <pantiq/plugins/abi/freeframe1.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>

#include "pantiq/core/PQFramePool.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/host/PQTextStream.h"
#include "pantiq/plugins/PQFreeFrame.h"
#include "tests/core/TestComponents.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzTargets.h"

namespace pantiq::fuzz {
namespace {

class Hostile {
 public:
  explicit Hostile(FuzzInput& in) : in_(in) {}

  std::uintptr_t Answer(std::uint32_t code, std::uintptr_t input) {
    if (code == FF_GETPARAMETERTYPE && input < text_.size()) text_[input] = false;
    if (in_.OneIn(24)) {
      if (in_.OneIn(2)) throw 5;
      throw std::runtime_error("of the plug-in");
    }
    switch (code) {
      case FF_GETEXTENDEDINFO:
        return Info();
      case FF_GETNUMPARAMETERS:
        return in_.OneIn(64) ? Any() : static_cast<std::uintptr_t>(in_.Below(6));
      case FF_GETPARAMETERTYPE: {
        const std::uintptr_t type = in_.OneIn(6) ? Any() : in_.Pick(kTypes);
        if (input < text_.size()) text_[input] = static_cast<std::uint32_t>(type) == FF_TYPE_TEXT;
        return type;
      }
      case FF_GETPARAMETERNAME:
      case FF_GETPARAMETERDISPLAY:
        return Text(16);
      case FF_GETPARAMETERDEFAULT:
      case FF_GETPARAMETER:
        return input < text_.size() && text_[input] ? Text(0) : Any();
      case FF_SETPARAMETER: {
        const auto& set = *reinterpret_cast<const SetParameterStruct*>(input);
        if (set.ParameterNumber < text_.size() && text_[set.ParameterNumber])
          Read(reinterpret_cast<const char*>(set.NewParameterTextOrBits));
        return Any();
      }
      case FF_INSTANTIATE: {
        const auto& video = *reinterpret_cast<const VideoInfoStruct*>(input);
        pixels_ = static_cast<std::size_t>(video.FrameWidth) * video.FrameHeight;
        depth_ = video.BitDepth == FF_DEPTH_32 ? 4 : video.BitDepth == FF_DEPTH_24 ? 3 : 2;
        return in_.OneIn(4) ? FF_FAIL : Any();
      }
      case FF_PROCESSFRAME:
        std::memset(reinterpret_cast<void*>(input), in_.Byte(), pixels_ * depth_);
        return Done();
      case FF_PROCESSFRAMECOPY: {
        const auto& copy = *reinterpret_cast<const ProcessFrameCopyStruct*>(input);
        auto* const out = static_cast<std::uint8_t*>(copy.pOutputFrame);
        for (std::uint32_t i = 0; i < copy.numInputFrames; ++i) {
          const auto* from = static_cast<const std::uint8_t*>(copy.ppInputFrames[i]);
          for (std::size_t at = 0; at < pixels_ * depth_; ++at) out[at] = static_cast<std::uint8_t>(out[at] ^ from[at]);
        }
        return Done();
      }
      case FF_GETPLUGINCAPS:
        return in_.OneIn(6) ? Any() : static_cast<std::uintptr_t>(in_.Below(3));
      default:
        return Done();
    }
  }

 private:
  static constexpr std::uintptr_t kTypes[] = {0, 1, 2, 3, 4, 5, 6, 10, 100, 100};
  std::uintptr_t Any() {
    return in_.OneIn(2) ? static_cast<std::uintptr_t>(in_.Integer()) : static_cast<std::uintptr_t>(in_.Number(8));
  }
  std::uintptr_t Done() { return in_.OneIn(4) ? Any() : FF_SUCCESS; }
  static void Read(const char* text) { Hold(text != nullptr && std::strlen(text) <= 65535, "a text that is none"); }
  // A text at the end of its memory; with `room` it need not end if it fills that.
  std::uintptr_t Text(std::size_t room) {
    if (in_.OneIn(8)) return in_.OneIn(2) ? 0 : in_.OneIn(2) ? FF_FAIL : ~std::uintptr_t{0};
    std::string text = in_.Text(20);
    if (room == 0 && in_.OneIn(16)) text.assign(70000, 'x');
    if (room == 0 || text.size() < room) text.push_back('\0');
    texts_.push_back(std::make_unique<char[]>(text.size()));
    std::memcpy(texts_.back().get(), text.data(), text.size());
    return reinterpret_cast<std::uintptr_t>(texts_.back().get());
  }
  std::uintptr_t Info() {
    if (in_.OneIn(4)) return in_.OneIn(2) ? 0 : FF_FAIL;
    info_ = {static_cast<std::uint32_t>(Any()), static_cast<std::uint32_t>(Any()), TextOrNone(), TextOrNone()};
    return reinterpret_cast<std::uintptr_t>(&info_);
  }
  const char* TextOrNone() {
    const std::uintptr_t text = Text(0);
    return static_cast<std::uint32_t>(text) == FF_FAIL ? nullptr : reinterpret_cast<const char*>(text);
  }

  FuzzInput& in_;
  std::vector<bool> text_ = std::vector<bool>(65536);  // parameters that it called texts
  std::size_t pixels_ = 0, depth_ = 3;
  PluginExtendedInfoStruct info_{};
  std::vector<std::unique_ptr<char[]>> texts_;
};

Hostile* g_played = nullptr;

std::uintptr_t Play(std::uint32_t code, std::uintptr_t input, std::uintptr_t) {
  return g_played != nullptr ? g_played->Answer(code, input) : FF_FAIL;
}

void Announce() {
  char address[32];
  std::snprintf(address, sizeof address, "%zx", reinterpret_cast<std::size_t>(static_cast<FF_Main>(Play)));
  setenv("PANTIQ_TEST_PLUGIN", address, 1);
}

// Any property of the effect, or of one of its parameters.
void Write(FuzzInput& in, TPersistent& object, int depth) {
  const std::vector<PQProperty> properties = PQAllProperties(object);
  if (properties.empty()) return;
  const PQProperty& property = in.Pick(properties);
  if (property.kind == PQKind::Object && depth < 4) return Write(in, *property.object(object), depth + 1);
  if (property.set == nullptr || property.gauge || property.name == "Isolated" || property.name == "FilterFileName")
    return;
  PQValue value(in.Integer());
  if (property.kind == PQKind::Boolean) value = PQValue(in.OneIn(2));
  if (property.kind == PQKind::Float) value = PQValue(in.Float());
  if (property.kind == PQKind::String) value = PQValue(in.Text(20));
  PQSetProperty(object, property, value).Ok();
  property.get(object);
}

}  // namespace

void FuzzPlugin(Input bytes) {
  static const bool announced = (Announce(), true);
  (void)announced;
  SetReportListener([](const PQReportEntry&) {});
  PQFramePool::SetMostBytes(4 << 20);
  FuzzInput in(bytes);
  Hostile hostile(in);
  g_played = &hostile;
  {
    TestSource sources[3];
    TPQFreeFrame effect;
    TestSink sink;
    sink.record = false;
    for (TestSource& source : sources) {
      if (TJCPin* const pin = effect.InputPins.FirstFree(); pin != nullptr && !in.OneIn(3))
        source.OutputPin.Connect(*pin).Ok();
    }
    effect.OutputPin.Connect(sink.InputPin).Ok();
    const auto side = [&] { return in.OneIn(6) ? in.Below(2) : 1 + in.Below(24); };
    for (int steps = 0; steps < 60 && in.Left() > 0; ++steps) {
      TestSource& source = in.Pick(sources);
      try {
        switch (in.Below(12)) {
          case 0:
            effect.SetFilterFileName(in.OneIn(3) ? "none" : PANTIQ_FUZZ_PLUGIN);
            break;
          case 1:
          case 2:
            source.Start(side(), in.OneIn(12) ? static_cast<int>(in.Integer()) : side());
            break;
          case 3:
            source.OutputPin.Stop();
            break;
          case 4:
          case 5:
            Write(in, effect, 0);
            break;
          case 6:
            effect.Execute(static_cast<std::uint32_t>(FF_GETNUMPARAMETERS), 0);
            break;
          case 7:
            PQWriteText(effect);
            break;
          case 8:
            if (TJCPin* const pin = effect.InputPins.FirstFree(); pin != nullptr) source.OutputPin.Connect(*pin).Ok();
            break;
          case 9:
            if (in.OneIn(3)) source.OutputPin.Disconnect();
            break;
          default:
            source.OutputPin.SubmitBuffer(
                MakeFrame(side(), side(), static_cast<TPQVideoFormat>(in.Below(4)), in.Byte()));
        }
      } catch (const std::bad_alloc&) {  // of a frame that was announced and is too large
      }
      if (steps == 0) effect.SetFilterFileName(PANTIQ_FUZZ_PLUGIN);
    }
  }
  g_played = nullptr;
  PQFramePool::SetMostBytes(PQFrameBlock::kMostBytes);
  SetReportListener({});
}

}  // namespace pantiq::fuzz
