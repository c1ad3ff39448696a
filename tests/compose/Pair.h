// Two sources, a component that joins them, a sink that records.
#pragma once
#include "tests/core/TestComponents.h"

namespace pantiq {

template <class Component>
TJCPin& InputOf(Component& component, int index) {
  if constexpr (requires { component.InputPins; }) {
    return *component.InputPins.GetPin(index);
  } else {
    return index == 0 ? component.InputPin : component.BackgroundInputPin;
  }
}

template <class Component>
struct Pair {
  TestSource one, two;
  Component mix;
  TestSink sink;
  Pair() {
    EXPECT_TRUE(one.OutputPin.Connect(InputOf(mix, 0)).Ok());
    EXPECT_TRUE(two.OutputPin.Connect(InputOf(mix, 1)).Ok());
    EXPECT_TRUE(mix.OutputPin.Connect(sink.InputPin).Ok());
  }
  // Starts the output with both sizes known: an input remembers its size over a stop.
  void Start(IppiSize first, IppiSize second) {
    StartBoth(first, second);
    one.OutputPin.Stop(), two.OutputPin.Stop();
    sink.log.clear();
    StartBoth(first, second);
  }
  void StartBoth(IppiSize first, IppiSize second) {
    one.Start(first.width, first.height);
    two.Start(second.width, second.height);
  }
  // What comes out for a frame of each; the last one that did if none does.
  PQImageRef Send(PQImageRef first, PQImageRef second) {
    one.OutputPin.SubmitBuffer(std::move(first));
    two.OutputPin.SubmitBuffer(std::move(second));
    return sink.last;
  }
};

inline PQImageRef Filled(IppiSize size, TColor color) {
  auto frame = PQMakeRef<TPQImageBuffer>(size.width, size.height, vfRGB24);
  frame->Fill(color);
  return frame;
}

// A frame of these bytes.
inline PQImageRef Frame(const std::vector<int>& bytes, int width, int height, TPQVideoFormat format = vfRGB24) {
  PQImageRef frame = PQMakeRef<TPQImageBuffer>(width, height, format);
  std::uint8_t* to = frame->Write();
  for (std::size_t i = 0; i < bytes.size(); ++i) to[i] = static_cast<std::uint8_t>(bytes[i]);
  return frame;
}

}  // namespace pantiq
