// TPQFreeFrame between sources that the test drives and a sink that records, and a plug-in that the test plays.
#pragma once
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "core/TestComponents.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/plugins/PQFreeFrame.h"

namespace pantiq::test {

using Strings = std::vector<std::string>;

inline std::string Example(const std::string& name) { return PANTIQ_EXAMPLE_PLUGINS "/" + name + ".so"; }

// What plays the plug-in: capabilities and parameters as tables, the rest as a function.
struct Script {
  std::array<std::uintptr_t, 16> caps{};
  struct Parameter {
    std::uint32_t type;
    const char* name;
    std::uintptr_t standard;
  };
  std::vector<Parameter> parameters;
  std::vector<std::uintptr_t> values;  // what FF_GETPARAMETER answers; FF_FAIL beyond its end
  // Called first; an answer other than none is the plug-in's.
  std::function<std::optional<std::uintptr_t>(std::uint32_t, std::uintptr_t, std::uintptr_t)> on_call;
  Strings log;  // "11 64x48 depth 1 of 2", "8 [1]=0.5 on 77", "3 on 77"
  std::mutex mutex;

  Script();
  ~Script();
  Script(const Script&) = delete;
  Script& operator=(const Script&) = delete;
  static std::string File() { return PANTIQ_TEST_PLUGINS "/plugin_scripted.so"; }
  std::uintptr_t Play(std::uint32_t code, std::uintptr_t input, std::uintptr_t instance);
  Strings Take() {
    const std::lock_guard guard(mutex);
    return std::exchange(log, {});
  }
};

inline Script*& PlayedScript() {
  static Script* script = nullptr;
  return script;
}

inline Script::Script() {
  caps[FF_CAP_24BITVIDEO] = FF_TRUE;
  PlayedScript() = this;
  const FF_Main main = [](std::uint32_t code, std::uintptr_t input, std::uintptr_t instance) {
    return PlayedScript()->Play(code, input, instance);
  };
  char address[32];
  std::snprintf(address, sizeof address, "%zx", reinterpret_cast<std::size_t>(main));
  setenv("PANTIQ_TEST_PLUGIN", address, 1);
}
inline Script::~Script() { PlayedScript() = nullptr; }

inline std::uintptr_t Script::Play(std::uint32_t code, std::uintptr_t input, std::uintptr_t instance) {
  std::string line = std::to_string(code);
  char text[96];
  if (code == FF_SETPARAMETER) {
    const auto& set = *reinterpret_cast<const SetParameterStruct*>(input);
    const bool is_text =
        set.ParameterNumber < parameters.size() && parameters[set.ParameterNumber].type == FF_TYPE_TEXT;
    if (is_text) {
      std::snprintf(text, sizeof text, " [%u]='%s'", set.ParameterNumber,
                    reinterpret_cast<const char*>(set.NewParameterTextOrBits));
    } else {
      std::snprintf(text, sizeof text, " [%u]=%.9g", set.ParameterNumber, FF_FloatOf(set.NewParameterValue));
      EXPECT_EQ(set.NewParameterTextOrBits, set.NewParameterValue);
    }
    line += text;
  } else if (code == FF_INSTANTIATE) {
    const auto& video = *reinterpret_cast<const VideoInfoStruct*>(input);
    std::snprintf(text, sizeof text, " %ux%u depth %u of %u", video.FrameWidth, video.FrameHeight, video.BitDepth,
                  video.Orientation);
    line += text;
  } else if (code == FF_PROCESSFRAMECOPY) {
    line += " " + std::to_string(reinterpret_cast<const ProcessFrameCopyStruct*>(input)->numInputFrames);
  } else if (code != FF_PROCESSFRAME) {
    line += " " + std::to_string(input);
  }
  if (instance != 0) line += " on " + std::to_string(instance);
  {
    const std::lock_guard guard(mutex);
    log.push_back(line);
  }
  if (on_call) {
    if (const auto answer = on_call(code, input, instance)) return *answer;
  }
  switch (code) {
    case FF_GETPLUGINCAPS:
      return input < caps.size() ? caps[input] : 0;
    case FF_GETNUMPARAMETERS:
      return parameters.size();
    case FF_GETPARAMETERTYPE:
      return parameters.at(input).type;
    case FF_GETPARAMETERNAME:
      return reinterpret_cast<std::uintptr_t>(parameters.at(input).name);
    case FF_GETPARAMETERDEFAULT:
      return parameters.at(input).standard;
    case FF_GETPARAMETER:
      return input < values.size() ? values[input] : std::uintptr_t{FF_FAIL};
    case FF_INSTANTIATE:
      return 77;
    case FF_GETEXTENDEDINFO:
      return FF_FAIL;
    default:
      return FF_SUCCESS;
  }
}

inline std::uintptr_t Bits(float value) { return std::bit_cast<std::uint32_t>(value); }

struct PluginBench {
  TestSource sources[2];
  TPQFreeFrame effect;
  TestSink sink;
  Strings told;
  explicit PluginBench(int inputs = 1) {
    SetReportListener([this](const PQReportEntry& entry) { told.push_back(entry.text + " | " + entry.detail); });
    for (int i = 0; i < inputs; ++i) EXPECT_TRUE(sources[i].OutputPin.Connect(*effect.InputPins.GetPin(i)).Ok());
    EXPECT_TRUE(effect.OutputPin.Connect(sink.InputPin).Ok());
  }
  ~PluginBench() { SetReportListener({}); }
  PluginBench(const PluginBench&) = delete;
  PluginBench& operator=(const PluginBench&) = delete;

  void Start(int width = 6, int height = 4) {
    for (TestSource& source : sources) {
      if (source.OutputPin.IsConnected()) source.Start(width, height);
    }
  }
  void Stop() {
    for (TestSource& source : sources) source.OutputPin.Stop();
  }
  // What comes out for a frame on the first input; null if nothing does.
  PQImageRef Send(const PQImageRef& frame, int input = 0) {
    sink.last = {};
    const std::vector<int> before = Bytes(*frame);
    sources[input].OutputPin.SubmitBuffer(frame);
    EXPECT_EQ(Bytes(*frame), before) << "the source's frame was written to";
    return sink.last;
  }
  PQImageRef Send(int width = 6, int height = 4) { return Send(MakeFrame(width, height)); }
  // True if one line was told that has all of the texts; forgets what was told.
  testing::AssertionResult Told(const Strings& texts) {
    const Strings lines = std::exchange(told, {});
    for (const std::string& line : lines) {
      const auto has = [&line](const std::string& text) { return line.find(text) != std::string::npos; };
      if (std::all_of(texts.begin(), texts.end(), has)) return testing::AssertionSuccess();
    }
    auto failure = testing::AssertionFailure() << "not told:";
    for (const std::string& line : lines) failure << "\n" << line;
    return failure;
  }
};

}  // namespace pantiq::test
