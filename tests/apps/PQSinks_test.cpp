// The program's sinks, driven through their pins.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "GraphText.h"
#include "pantiq/design/PQRegister.h"
#include "pantiq/host/PQReport.h"
#include "sinks/ChecksumSink.h"
#include "sinks/FramesSink.h"
#include "sinks/Hash.h"
#include "sinks/NumbersSink.h"
#include "sinks/Plot.h"
#include "sinks/Y4mSink.h"

namespace pantiq::app {
namespace {

// A folder of its own for each test, and what was reported.
class Sinks : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "pantiq_sinks_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    SetReportListener([this](const PQReportEntry& entry) { reports_.push_back(entry.text); });
  }
  void TearDown() override {
    SetReportListener({});
    std::filesystem::remove_all(folder_);
  }
  std::string File(const std::string& name) const { return (folder_ / name).string(); }
  std::string Read(const std::string& name) const {
    std::ifstream file(File(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::filesystem::path folder_;
  std::vector<std::string> reports_;
};

template <class Pin>
void Send(Pin& pin, PQRef<IJCNotifyOperation> op) {
  pin.DispatchData(pin.GetConnectionID(), *op, {});
}
template <class Pin>
void SendStart(Pin& pin, int width, int height, std::int64_t delay = 400000) {
  Send(pin, PQMakeRef<TJCStartFrameOperation>(width, height, delay, vfRGB24));
}
template <class Pin>
void SendStop(Pin& pin) {
  Send(pin, PQMakeRef<TJCStopOperation>());
}
template <class Pin>
void SendFrame(Pin& pin, int width, int height, TPQVideoFormat format, const std::vector<std::uint8_t>& bytes) {
  PQDataBufferRef frame = PQMakeRef<TPQImageBuffer>(bytes.data(), width, height, format);
  Send(pin, PQMakeRef<TJCSuppliedBufferOperation>(std::move(frame)));
}

TEST(Hash, GivesThePublishedFigures) {
  const auto hash = [](std::string_view text) { return Xxh64(text.data(), text.size()); };
  EXPECT_EQ(hash(""), 0xef46db3751d8e999u);
  EXPECT_EQ(hash("a"), 0xd24ec4f1a98c6e5bu);
  EXPECT_EQ(hash("abc"), 0x44bc2cf5ad770999u);
  EXPECT_EQ(hash("Nobody inspects the spammish repetition"), 0xfbcea83c8a378bf1u);
}

TEST(NamePattern, TakesOneNumberFormAndKnowsItsNames) {
  struct Case {
    const char* text;
    const char* name7;  // null: refused
    std::vector<const char*> matches, strangers;
  };
  const Case cases[] = {
      {"out-%04d.png", "out-0007.png", {"out-0000.png", "out-12345.png"}, {"out-007.png", "out-00x7.png", "out-.png"}},
      {"%d.bmp", "7.bmp", {"0.bmp", "42.bmp"}, {"07.bmp", "-1.bmp", "7.bmp2", ".bmp"}},
      {"a%%b%3d.jpg", "a%b  7.jpg", {"a%b100.jpg"}, {"a%b007.jpg", "a%b   .jpg"}},
      {"out.png", nullptr, {}, {}},
      {"%d-%d.png", nullptr, {}, {}},
      {"%s.png", nullptr, {}, {}},
      {"%.png", nullptr, {}, {}},
      {"%99d.png", nullptr, {}, {}},
      {"%d%", nullptr, {}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    NamePattern pattern;
    ASSERT_EQ(NamePattern::Parse(c.text, pattern).Ok(), c.name7 != nullptr);
    if (c.name7 == nullptr) continue;
    EXPECT_EQ(pattern.Name(7), c.name7);
    for (const char* name : c.matches) EXPECT_TRUE(pattern.Matches(name)) << name;
    for (const char* name : c.strangers) EXPECT_FALSE(pattern.Matches(name)) << name;
  }
}

TEST(Y4m, RecognisesTheUsualRates) {
  const std::int64_t cases[][3] = {{400000, 25, 1},  {333333, 30, 1},       {333667, 30000, 1001},
                                   {416667, 24, 1},  {417083, 24000, 1001}, {166833, 60000, 1001},
                                   {10000000, 1, 1}, {20000000, 1, 2},      {0, 0, 0}};
  for (const auto& [delay, numerator, denominator] : cases) {
    EXPECT_EQ(FrameRateOf(delay).numerator, numerator) << delay;
    EXPECT_EQ(FrameRateOf(delay).denominator, denominator) << delay;
  }
  const FrameRate odd = FrameRateOf(123456);
  EXPECT_EQ(odd.numerator * 123456, odd.denominator * 10000000);
}

TEST(Y4m, PlanesAreTheMatrixRoundedToNearest) {
  std::vector<std::uint8_t> bgr;
  for (int r = 0; r < 256; r += 15) {
    for (int g = 0; g < 256; g += 17) {
      for (int b = 0; b < 256; b += 5) bgr.insert(bgr.end(), {std::uint8_t(b), std::uint8_t(g), std::uint8_t(r)});
    }
  }
  const std::size_t pixels = bgr.size() / 3;
  std::vector<std::uint8_t> planes(3 * pixels);
  PlanesOf(bgr.data(), pixels, planes.data());
  for (std::size_t i = 0; i < pixels; ++i) {
    const double b = bgr[3 * i], g = bgr[3 * i + 1], r = bgr[3 * i + 2];
    const double y = 0.299 * r + 0.587 * g + 0.114 * b;
    const double want[] = {y, 128 + (b - y) / 1.772, 128 + (r - y) / 1.402};
    // A coefficient of 16 bits is off by at most 2^-17, three of them by less than 0.006 of a level.
    for (std::size_t p = 0; p < 3; ++p) {
      ASSERT_LE(std::abs(planes[p * pixels + i] - std::min(want[p], 255.0)), 0.506)
          << "plane " << p << " of pixel " << i;
    }
  }
}

TEST_F(Sinks, ChecksumWritesALineAFrameAndGoesOnAfterARestart) {
  const PQOwned<ChecksumSink> sink = PQMake<ChecksumSink>();
  ASSERT_TRUE(sink->SetFileName(File("sums")).Ok());
  SendStart(sink->InputPin, 1, 1);
  SendFrame(sink->InputPin, 1, 1, vfGrayScale, {'a'});
  SendFrame(sink->InputPin, 1, 1, vfRGB24, {'a', 'b', 'c'});
  SendStop(sink->InputPin);
  const std::string first = "0 1x1 vfGrayScale d24ec4f1a98c6e5b\n1 1x1 vfRGB24 44bc2cf5ad770999\n";
  EXPECT_EQ(Read("sums"), first);
  SendStop(sink->InputPin);
  SendStart(sink->InputPin, 3, 1);
  SendFrame(sink->InputPin, 3, 1, vfGrayScale, {'a', 'b', 'c'});
  SendStop(sink->InputPin);
  EXPECT_EQ(Read("sums"), first + "2 3x1 vfGrayScale 44bc2cf5ad770999\n");
  EXPECT_TRUE(reports_.empty());
}

TEST_F(Sinks, Y4mWritesHeaderAndPlanes) {
  const PQOwned<Y4mSink> colour = PQMake<Y4mSink>(), gray = PQMake<Y4mSink>();
  ASSERT_TRUE(colour->SetFileName(File("c.y4m")).Ok());
  SendStart(colour->InputPin, 2, 1, 333667);
  SendFrame(colour->InputPin, 2, 1, vfRGB24, {0, 0, 0, 255, 255, 255});
  SendFrame(colour->InputPin, 2, 1, vfRGB24, {0, 0, 255, 255, 0, 0});  // red, blue
  SendStop(colour->InputPin);
  EXPECT_EQ(Read("c.y4m"), "YUV4MPEG2 W2 H1 F30000:1001 Ip A1:1 C444 XCOLORRANGE=FULL\nFRAME\n" +
                               std::string("\x00\xff\x80\x80\x80\x80", 6) + "FRAME\n" +
                               std::string("\x4c\x1d\x55\xff\xff\x6b", 6));
  ASSERT_TRUE(gray->SetFileName(File("g.y4m")).Ok());
  SendStart(gray->InputPin, 2, 1);
  SendFrame(gray->InputPin, 2, 1, vfGrayScale, {7, 8});
  SendStop(gray->InputPin);
  EXPECT_EQ(Read("g.y4m"), "YUV4MPEG2 W2 H1 F25:1 Ip A1:1 Cmono XCOLORRANGE=FULL\nFRAME\n\x07\x08");
  EXPECT_TRUE(reports_.empty());
}

TEST_F(Sinks, Y4mRefusesAnotherSizeOnceAndKeepsWhatItHas) {
  const PQOwned<Y4mSink> sink = PQMake<Y4mSink>();
  ASSERT_TRUE(sink->SetFileName(File("a.y4m")).Ok());
  SendStart(sink->InputPin, 1, 1);
  SendFrame(sink->InputPin, 1, 1, vfGrayScale, {1});
  SendStart(sink->InputPin, 2, 1);
  SendFrame(sink->InputPin, 2, 1, vfGrayScale, {1, 2});
  SendFrame(sink->InputPin, 2, 1, vfGrayScale, {1, 2});
  ASSERT_EQ(reports_.size(), 1u);
  EXPECT_NE(reports_[0].find("frame 1 is 2x1 in gray in a stream of 1x1 in gray"), std::string::npos) << reports_[0];
  EXPECT_EQ(Read("a.y4m"), "YUV4MPEG2 W1 H1 F25:1 Ip A1:1 Cmono XCOLORRANGE=FULL\nFRAME\n\x01");
}

TEST_F(Sinks, FramesWritesPicturesOfEachSize) {
  const PQOwned<FramesSink> sink = PQMake<FramesSink>();
  ASSERT_TRUE(sink->SetFileName(File("f%02d.bmp")).Ok());
  SendStart(sink->InputPin, 2, 1);
  SendFrame(sink->InputPin, 2, 1, vfRGB24, {1, 2, 3, 4, 5, 6});
  SendFrame(sink->InputPin, 1, 2, vfGrayScale, {9, 10});
  SendStop(sink->InputPin);
  TPicture picture;
  ASSERT_TRUE(picture.LoadFromFile(File("f00.bmp")).Ok());
  ASSERT_EQ(picture.GetWidth(), 2);
  EXPECT_EQ(std::vector<std::uint8_t>(picture.GetSnapshot()->Data(), picture.GetSnapshot()->Data() + 6),
            (std::vector<std::uint8_t>{1, 2, 3, 4, 5, 6}));
  ASSERT_TRUE(picture.LoadFromFile(File("f01.bmp")).Ok());
  ASSERT_EQ(picture.GetHeight(), 2);
  EXPECT_EQ(picture.GetSnapshot()->Row(1)[0], 10);
  EXPECT_EQ(sink->ExistingOutputs(), (std::vector<std::string>{File("f00.bmp"), File("f01.bmp")}));
  EXPECT_FALSE(sink->SetFileName("f.bmp").Ok());
  EXPECT_FALSE(sink->SetFileName("f%d.gif").Ok());
  EXPECT_FALSE(sink->SetFileName("f%d/a.png").Ok());
}

TEST_F(Sinks, NumbersWritesBlocksAndSingleValues) {
  const PQOwned<NumbersSink> blocks = PQMake<NumbersSink>(), singles = PQMake<NumbersSink>();
  ASSERT_TRUE(blocks->SetFileName(File("b.csv")).Ok());
  Send(blocks->InputPin, PQMakeRef<TJCStartSampleRateOperation>(2, 50.0));
  for (int i = 0; i < 2; ++i) {
    auto block = PQMakeRef<TRWRealBuffer>(2);
    block->SetElement(0, 0.1 + i);
    block->SetElement(1, -1e300);
    if (i == 1) block->GetTimeStamp().SetAvailable(true), block->GetTimeStamp().SetBegin(400000);
    Send(blocks->InputPin, PQMakeRef<TJCSuppliedBufferOperation>(PQDataBufferRef(block)));
  }
  SendStop(blocks->InputPin);
  EXPECT_EQ(Read("b.csv"), "number,time,0,1\n0,,0.1,-1e+300\n1,0.04,1.1,-1e+300\n");
  ASSERT_TRUE(singles->SetFileName(File("s.csv")).Ok());
  Send(singles->InputPin, PQMakeRef<TJCSuppliedRealOperation>(1.0 / 3));
  Send(singles->InputPin, PQMakeRef<TJCSuppliedSingleOperation>(0.5f));
  SendStop(singles->InputPin);
  EXPECT_EQ(Read("s.csv"), "number,time,value\n0,,0.3333333333333333\n1,,0.5\n");
}

TEST_F(Sinks, AFileThatCannotBeMadeIsSaidOnceAStart) {
  const PQOwned<ChecksumSink> sink = PQMake<ChecksumSink>();
  ASSERT_TRUE(sink->SetFileName(File("no/such/folder")).Ok());
  for (int start = 1; start <= 2; ++start) {
    SendStart(sink->InputPin, 1, 1);
    SendFrame(sink->InputPin, 1, 1, vfGrayScale, {1});
    SendFrame(sink->InputPin, 1, 1, vfGrayScale, {1});
    EXPECT_EQ(reports_.size(), static_cast<std::size_t>(start));
  }
  EXPECT_NE(reports_[0].find("cannot create '" + File("no/such/folder")), std::string::npos) << reports_[0];
}

TEST(JoinWords, GivesValuesTheirQuotesBack) {
  RegisterAll();
  RegisterSinks();
  struct Case {
    std::vector<std::string> words;
    const char* line;
  };
  const Case cases[] = {
      {{"TPQMirror ! y4m 'a b'"}, "TPQMirror ! y4m 'a b'"},
      {{"TPQJaehneGen", "!", "y4m", "-"}, "TPQJaehneGen ! y4m '-'"},
      {{"TPQJaehneGen", "!", "frames", "my out-%d.png"}, "TPQJaehneGen ! frames 'my out-%d.png'"},
      {{"TPQJaehneGen", "!", "checksum", "out.txt"}, "TPQJaehneGen ! checksum 'out.txt'"},
      {{"checksum", "FileName=it's mine"}, "checksum FileName='it''s mine'"},
      {{"checksum", "FileName='a b'"}, "checksum FileName='a b'"},
      {{"TPQJaehneGen Rate=5", "!", "checksum"}, "TPQJaehneGen Rate=5 ! checksum"},
      {{"TPQJaehneGen", "Name=g", "g.OutputPin", "!", "checksum"}, "TPQJaehneGen Name=g g.OutputPin ! checksum"},
      {{"a.OutputPin", "!", "b.InputPin"}, "a.OutputPin ! b.InputPin"},
      {{"TPQCrop", "Region.Left=3", "! checksum"}, "TPQCrop Region.Left=3 ! checksum"},
  };
  for (const Case& c : cases) EXPECT_EQ(JoinWords(c.words), c.line);
}

// Blue dots in a column of pixels.
int Blue(TPicture& picture, int x) {
  const auto bitmap = picture.GetSnapshot();
  int count = 0;
  for (int y = 0; y < bitmap->GetHeight(); ++y) {
    const std::uint8_t* pixel = bitmap->Row(y) + 3 * x;
    count += pixel[0] == 0xa8 && pixel[1] == 0x5f && pixel[2] == 0x1f;
  }
  return count;
}

TEST(Plot, BarsShowTheMeanOfAllBlocks) {
  Plot plot;
  for (int i = 0; i < 4; ++i) plot.Add(std::vector<double>{0, i * 2.0, std::nan(""), 6});
  TPicture picture;
  plot.Draw(true, picture);
  EXPECT_LE(Blue(picture, 100), 1) << "0: the axis stands on it";
  EXPECT_NEAR(Blue(picture, 330), 356 / 2, 2) << "a mean of 3 where the highest is 6";
  EXPECT_LE(Blue(picture, 500), 1) << "no number";
  EXPECT_NEAR(Blue(picture, 700), 356, 2);
}

TEST(Plot, LongTracesStayBoundedAndShowTheirPeaks) {
  Plot plot;
  std::vector<double> block(1000, 1.0);
  for (int i = 0; i < 1000; ++i) {
    block[500] = i == 500 ? 10 : 1;
    plot.Add(block);
  }
  TPicture picture;
  plot.Draw(false, picture);
  int high = 0;
  for (int x = 80; x < 780; ++x) high += Blue(picture, x) > 300;
  EXPECT_GE(high, 1);
  EXPECT_LE(high, 3);
  Plot().Draw(false, picture);  // nothing to draw
  Plot nothing;
  nothing.Add(std::vector<double>{std::nan(""), INFINITY});
  nothing.Draw(true, picture);
  nothing.Draw(false, picture);
}

}  // namespace
}  // namespace pantiq::app
