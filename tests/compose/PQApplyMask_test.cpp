#include "pantiq/compose/PQApplyMask.h"

#include <gtest/gtest.h>

#include <thread>

#include "pantiq/host/PQReport.h"
#include "tests/compose/Pair.h"

namespace pantiq {
namespace {

constexpr int K = 0x32;  // the byte of frames

struct Mask {
  TestSource source;
  TPQApplyMask filter;
  TestSink sink;
  explicit Mask(IppiSize size = {4, 3}) : size(size) {
    EXPECT_TRUE(source.OutputPin.Connect(filter.InputPin).Ok());
    EXPECT_TRUE(filter.OutputPin.Connect(sink.InputPin).Ok());
  }
  IppiSize size;
  // The frame that comes out as text, rows apart by '|': '.' where it is as it came, else a digit for the picture's
  // pixels.
  std::string Drawn() {
    source.OutputPin.SubmitBuffer(Filled(size, K * 0x010101));
    const IPQImageBuffer& frame = *sink.last;
    std::string text;
    for (int y = 0; y < frame.GetHeight(); ++y) {
      if (y > 0) text += '|';
      for (int x = 0; x < frame.GetWidth(); ++x) {
        const TColor color = frame.GetPixel(x, y);
        text += color == K * 0x010101 ? '.' : static_cast<char>('0' + (color & 0xff));
      }
    }
    return text;
  }
  // A picture of pixels with these low bytes; their other bytes are 0xa0 and 0xff.
  void Picture(const std::vector<int>& digits, int width) {
    std::vector<std::uint8_t> pixels;
    for (const int digit : digits) {
      for (const int byte : {0xff, 0xa0, digit}) pixels.push_back(static_cast<std::uint8_t>(byte));
    }
    filter.GetPicture().SetPixels(width, static_cast<int>(digits.size()) / width, pixels.data(),
                                  static_cast<std::size_t>(width) * 3);
  }
};

TEST(PQApplyMask, OneColourOfThePictureIsTransparent) {
  Mask m;
  EXPECT_EQ(m.Drawn(), "....|....|....") << "no picture";
  m.Picture({1, 2, 3, 4}, 2);
  EXPECT_EQ(m.Drawn(), ".2..|34..|....");
  EXPECT_EQ(m.sink.last->GetPixel(1, 0), 0xffa002u) << "the picture's own bytes";
  const std::pair<TPQTransparentSource, const char*> sources[] = {{tsTopRight, "1...|34..|...."},
                                                                  {tsBottomLeft, "12..|.4..|...."},
                                                                  {tsBottomRight, "12..|3...|...."},
                                                                  {tsCustom, "12..|34..|...."}};
  for (const auto& [source, drawn] : sources) {
    m.filter.SetTransparentSource(source);
    EXPECT_EQ(m.Drawn(), drawn);
  }
  m.filter.SetTransparentColor(0xffa003);
  EXPECT_EQ(m.Drawn(), "12..|.4..|....");
  m.filter.SetTransparentColor(0x80ffa003);
  EXPECT_EQ(m.Drawn(), "12..|34..|....") << "no pixel has this colour";
  m.filter.SetTransparentSource(tsTopLeft);
  m.Picture({1, 2, 1, 2, 1, 2, 1, 2, 1, 2}, 5);
  EXPECT_EQ(m.Drawn(), ".2.2|2.2.|....") << "wider than the frame";
  m.Picture({1, 2, 3, 4, 5}, 1);
  EXPECT_EQ(m.Drawn(), "....|2...|3...") << "higher than the frame";
  m.filter.SetEnabled(false);
  EXPECT_EQ(m.Drawn(), "....|....|....");
  m.filter.SetEnabled(true);
  m.filter.GetPicture().Clear();
  EXPECT_EQ(m.Drawn(), "....|....|....");
}

TEST(PQApplyMask, LiesInTheRegion) {
  Mask m;
  m.Picture({1, 2, 3, 4, 5, 6}, 3);
  TPQRectRegion& region = m.filter.GetRegion();
  struct Case {
    TPQRectRegion::Values region;
    const char* drawn;
  };
  const Case cases[] = {{{true, 1, 1, 240, 180}, "....|..23|.456"},     {{true, 2, 1, 240, 180}, "....|...2|..45"},
                        {{true, 0, 0, 2, 1}, ".2..|....|...."},         {{true, 3, 2, 2, 2}, "....|....|...."},
                        {{true, 0, 2, 3, 3}, "....|....|.23."},         {{true, 4, 0, 3, 3}, "....|....|...."},
                        {{true, 65535, 65535, 3, 3}, "....|....|...."}, {{true, 1, 1, 0, 0}, "....|....|...."},
                        {{false, 1, 1, 1, 1}, ".23.|456.|...."}};
  for (const Case& c : cases) {
    region.Set(c.region);
    EXPECT_EQ(m.Drawn(), c.drawn) << c.region.left << ", " << c.region.top;
  }
}

TEST(PQApplyMask, IsStretchedIfItChangesWhileTheStreamRuns) {
  Mask m;
  m.filter.SetStretched(true);
  m.filter.SetTransparentSource(tsCustom);
  m.Picture({1, 2, 3, 4}, 2);
  EXPECT_EQ(m.Drawn(), "12..|34..|....") << "nothing runs";
  m.source.Start(4, 3);
  EXPECT_EQ(m.Drawn(), "12..|34..|....") << "a start alone fits nothing";
  m.Picture({1, 2, 3, 4}, 2);
  EXPECT_EQ(m.Drawn(), "1122|1122|3344");
  m.filter.GetRegion().Set({true, 1, 1, 3, 2});
  EXPECT_EQ(m.Drawn(), "....|.112|.112") << "the old fit";
  m.filter.SetTransparentColor(0xffa004);
  EXPECT_EQ(m.Drawn(), "....|.112|.33.");
  m.source.OutputPin.Stop();
  m.filter.SetStretched(false);
  m.filter.SetStretched(true);
  EXPECT_EQ(m.Drawn(), "....|.12.|.3..") << "stopped";

  std::vector<std::string> told;
  SetReportListener([&](const PQReportEntry& entry) { told.push_back(entry.text); });
  m.source.Start(4, 3);
  m.filter.GetRegion().Set({true, 0, 0, 65535, 65535});
  m.filter.SetTransparentColor(1);
  EXPECT_EQ(m.Drawn(), "....|....|....");
  m.filter.GetRegion().Set({true, 0, 0, 0, 5});
  m.filter.SetTransparentColor(2);
  EXPECT_EQ(m.Drawn(), "....|....|....");
  m.filter.GetPicture().Clear();
  m.filter.GetRegion().Set({true, 0, 0, 3, 3});
  m.filter.SetTransparentColor(3);
  EXPECT_EQ(m.Drawn(), "....|....|....") << "nothing is stretched of no picture";
  SetReportListener({});
  EXPECT_EQ(told,
            std::vector<std::string>{"the picture cannot be fitted to 65535 by 65535 pixels, frames pass without it"});
}

TEST(PQApplyMask, FramesOfOthersStayAsTheyAre) {
  Mask m;
  m.filter.SetTransparentSource(tsCustom);
  m.Picture({1}, 1);
  const PQImageRef gray = Frame({5, 6}, 2, 1, vfGrayScale), frame = Frame({1, 2, 3}, 1, 1);
  m.source.OutputPin.SubmitBuffer(gray);
  EXPECT_EQ(Bytes(*m.sink.last), (std::vector<int>{0xff, 0xa0, 1, 6, 6, 6})) << "gray becomes colour";
  m.source.OutputPin.SubmitBuffer(frame);
  EXPECT_EQ(Bytes(*gray), (std::vector<int>{5, 6}));
  EXPECT_EQ(Bytes(*frame), (std::vector<int>{1, 2, 3}));
}

TEST(PQApplyMask, SettingsChangeWhileFramesPass) {
  Mask m;
  m.sink.on_op = [](IJCNotifyOperation&) {};
  m.filter.SetStretched(true);
  std::atomic<bool> end{false};
  std::thread frames([&] {
    for (int n = 0; !end; ++n) {
      if (n % 20 == 0) m.source.Start(4 + n % 3, 3);
      m.source.OutputPin.SubmitBuffer(Filled({4 + n % 3, 3}, K));
      if (n % 50 == 49) m.source.OutputPin.Stop();
    }
  });
  std::thread sources([&] {
    for (int n = 0; n < 300; ++n) m.filter.SetTransparentSource(static_cast<TPQTransparentSource>(n % 5));
  });
  for (int n = 0; n < 300 || m.sink.ops < 300; ++n) {
    m.Picture({n % 7, 2, 3, 4, 5, 6}, 1 + n % 3);
    m.filter.GetRegion().SetEnabled(n % 2 == 0);
    std::this_thread::yield();
  }
  end = true;
  frames.join(), sources.join();
}

}  // namespace
}  // namespace pantiq
