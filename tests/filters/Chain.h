// One filter between a source that the test drives and a sink that records.
#pragma once
#include "tests/core/TestComponents.h"

namespace pantiq {

template <class Filter>
struct Chain {
  TestSource source;
  Filter filter;
  TestSink sink;
  Chain() {
    EXPECT_TRUE(source.OutputPin.Connect(filter.InputPin).Ok());
    EXPECT_TRUE(filter.OutputPin.Connect(sink.InputPin).Ok());
  }
  // What comes out for one frame; the last one that did if none does.
  PQImageRef Send(PQImageRef frame) {
    source.OutputPin.SubmitBuffer(std::move(frame));
    return sink.last;
  }
};

// A frame of these bytes.
inline PQImageRef Frame(const std::vector<int>& bytes, int width, int height, TPQVideoFormat format = vfRGB24) {
  PQImageRef frame = PQMakeRef<TPQImageBuffer>(width, height, format);
  std::uint8_t* to = frame->Write();
  for (std::size_t i = 0; i < bytes.size(); ++i) to[i] = static_cast<std::uint8_t>(bytes[i]);
  return frame;
}

}  // namespace pantiq
