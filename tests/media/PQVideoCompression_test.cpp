// Compressor and decompressor of video, with codecs that are none and with real ones.
#include "pantiq/media/PQVideoCompression.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "media/TestStreams.h"
#include "pantiq/host/PQPicture.h"
#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/media/PQVideoCompressor.h"
#include "pantiq/media/PQVideoDecompressor.h"
#include "support/FakeCodec.h"
#include "support/MakeClip.h"

namespace pantiq::test {
namespace {

constexpr std::uint32_t kFake = FakeCodecs::kOwn;
using Lines = std::vector<std::string>;
using Pixels = std::vector<std::uint8_t>;

// Holds what comes down a binary stream, or sends one.
class BinaryEnd final : public TComponent {
 public:
  explicit BinaryEnd(TComponent* owner = nullptr)
      : TComponent(owner),
        In(*this, JCDispatch::To<&BinaryEnd::Take>(this)),
        Out(*this, JCDispatch::To<&BinaryEnd::Up>(this)) {}
  ~BinaryEnd() override { BeforeDestructionOnce(); }
  TRWJCBinarySinkPin In;
  TRWJCBinarySourcePin Out;
  Lines log;  // class names, buffers with their class and bytes
  PQRef<TPQStartVideoCompressionOperation> start;
  std::vector<PQDataBufferRef> buffers;
  std::function<void(IJCNotifyOperation&)> on_op;
  Lines came_up;

 private:
  void BeforeDestruction() override {
    In.Disconnect();
    Out.Disconnect();
  }
  TJCNotifyResult Take(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    std::string line = op.Tag().Name();
    if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      line = std::string(supplied->Buffer->Tag().Name()) + " " + std::to_string(supplied->Buffer->GetByteSize());
      buffers.push_back(supplied->Buffer);
    }
    if (auto* form = JCOperation<TPQStartVideoCompressionOperation>(op)) start = PQRef(form);
    log.push_back(line);
    if (on_op) on_op(op);
    return {};
  }
  TJCNotifyResult Up(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    came_up.push_back(op.Tag().Name());
    return {};
  }
};

// Keeps whole frames.
struct FrameSink {
  FrameSink() {
    sink.on_op = [this](bool, IJCNotifyOperation& op) {
      if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) frames.push_back(supplied->Buffer);
      if (auto* start = JCOperation<TJCStartFrameOperation>(op)) format = start->Format;
    };
  }
  PQRef<TPQImageBuffer> Frame(std::size_t index) const { return PQMakeRef<TPQImageBuffer>(*frames.at(index)); }
  Pixels Bytes(std::size_t index) const {
    const auto frame = Frame(index);
    return {frame->Read(), frame->Read() + frame->GetByteSize()};
  }
  StreamSink sink;
  std::vector<PQDataBufferRef> frames;
  TPQVideoFormat format = vfUnspecified;
};

PQImageRef Numbered(int width, int height, int number) {
  const Pixels pixels = TestPicture(width, height, number);
  auto image = PQMakeRef<TPQImageBuffer>(pixels.data(), width, height, vfRGB24);
  image->GetSequenceStamp().SetBufferNumber(number);
  image->GetTimeCode().SetFrame(number);
  image->GetTimeStamp().SetAvailable(true);
  image->GetTimeStamp().SetBegin(number * 400000);
  image->GetTimeStamp().SetEnd(number * 400000 + 400000);
  return image;
}

Pixels UpsideDown(const Pixels& pixels, int width) {
  const std::size_t step = static_cast<std::size_t>(width) * 3;
  Pixels turned;
  for (auto row = pixels.end(); row != pixels.begin(); row -= static_cast<std::ptrdiff_t>(step)) {
    turned.insert(turned.end(), row - static_cast<std::ptrdiff_t>(step), row);
  }
  return turned;
}

void AddCodec(TPQVideoCompressionItems& items, std::uint32_t tag, std::uint32_t quality = 0) {
  auto* item = static_cast<TPQVideoCompressionItem*>(items.Add());
  item->SetFOURCC(tag);
  item->SetQuality(quality);
}

// --- parts ----------------------------------------------------------------------------------------------------------

TEST(VideoCompression, BitsOfFormatsAndBack) {
  constexpr std::pair<TPQVideoFormat, int> kPairs[] = {
      {vfRGB24, 24}, {vfYUY2, 16}, {vfGrayScale, 8}, {vfUnspecified, -1}};
  for (const auto& [format, bits] : kPairs) {
    EXPECT_EQ(PQVideoFormatToBitCount(format), bits);
    EXPECT_EQ(PQBitCountToVideoFormat(bits), format);
  }
  for (const int bits : {0, 1, 4, 15, 32, 65535}) EXPECT_EQ(PQBitCountToVideoFormat(bits), vfUnspecified);
}

TEST(VideoCompression, TagsAsText) {
  const TJCObject lock;
  TPQVideoCompressionItems items(lock);
  auto* item = static_cast<TPQVideoCompressionItem*>(items.Add());
  struct Case {
    const char* text;
    std::uint32_t tag;
    const char* shown;
  };
  const Case cases[] = {{"MJPG", 0x47504a4d, "MJPG"},
                        {"DIB", 0x20424944, "DIB"},
                        {"DIB ", 0x20424944, "DIB"},
                        {"", 0, ""},
                        {"$47504a4d", 0x47504a4d, "MJPG"},
                        {"$00000001", 1, "$00000001"},
                        {"$00000000", 0, ""},
                        {"$", 0x20202024, "$"},
                        {"$20202020", 0x20202020, "$20202020"}};
  for (const Case& one : cases) {
    EXPECT_TRUE(item->SetFourCC(one.text).Ok()) << one.text;
    EXPECT_EQ(item->GetFOURCC(), one.tag) << one.text;
    EXPECT_EQ(item->GetFourCC(), one.shown) << one.text;
    const std::string shown = item->GetFourCC();
    EXPECT_TRUE(item->SetFourCC(shown).Ok());
    EXPECT_EQ(item->GetFOURCC(), one.tag) << one.text;
  }
  for (const char* bad : {"MJPEG", " MJP", "MJ\tG", "$4750", "$4750zzzz", "$147504a4d", "\xc3\xa4"}) {
    item->SetFOURCC(7);
    EXPECT_FALSE(item->SetFourCC(bad).Ok()) << bad;
    EXPECT_EQ(item->GetFOURCC(), 7u) << bad;
  }
  AddCodec(items, kFake, 12);
  TPQVideoCompressor compressor;
  compressor.SetCompressions(items);
  ASSERT_EQ(compressor.GetCompressions().Choices().size(), 2u);
  EXPECT_EQ(compressor.GetCompressions().GetItem(1)->GetQuality(), 12u);
  EXPECT_EQ(compressor.GetCompressions().Choices()[1].tag, kFake);
}

// --- the compressor -------------------------------------------------------------------------------------------------

class Compressing : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(compressor.InputPin.Connect(source.VideoPin).Ok());
    ASSERT_TRUE(end.In.Connect(compressor.OutputPin).Ok());
  }
  FakeCodecs codecs;
  StreamSource source;
  TPQVideoCompressor compressor;
  BinaryEnd end;
  Reports reports;
};

TEST_F(Compressing, CallsEachStepInItsPlace) {
  AddCodec(compressor.GetCompressions(), 0x31313131);
  AddCodec(compressor.GetCompressions(), kFake, 4000);
  AddCodec(compressor.GetCompressions(), 0x32323232);
  source.StartVideo(20, 10, 400000);
  EXPECT_EQ(codecs.log.Calls(), (Lines{"ICLocate 1111 compress", "ICLocate FAKE compress", "ICCompressGetFormat",
                                       "ICCompressGetSize", "GlobalAlloc 600", "GlobalLock", "ICCompressBegin"}));
  ASSERT_EQ(end.log, (Lines{"TPQStartVideoCompressionOperation"}));
  BITMAPINFOHEADER input;
  input.biWidth = 20, input.biHeight = 10, input.biPlanes = 1, input.biBitCount = 24;
  EXPECT_EQ(end.start->InputHeader, input);
  input.biCompression = kFake;
  EXPECT_EQ(end.start->OutputHeader, input);
  EXPECT_EQ(end.start->FourCC, kFake);
  EXPECT_EQ(end.start->BlockSize, 0);
  EXPECT_FLOAT_EQ(end.start->Rate, 25);

  codecs.log.Clear();
  const auto frame = Numbered(20, 10, 5);
  source.VideoPin.SubmitBuffer(frame);
  EXPECT_EQ(codecs.log.Calls(), (Lines{"ICCompress"}));
  const Pixels turned = UpsideDown(TestPicture(20, 10, 5), 20);
  EXPECT_EQ(codecs.pixels, turned);
  EXPECT_EQ(codecs.qualities, (std::vector<std::uint32_t>{4000}));
  ASSERT_EQ(end.log.back(), "TRWBlockBuffer 600");
  const auto* block = static_cast<const std::uint8_t*>(end.buffers[0]->ReadData());
  for (std::size_t i = 0; i < turned.size(); ++i) {
    ASSERT_EQ(block[i], static_cast<std::uint8_t>(turned[i] + FakeCodecs::kShift));
  }
  EXPECT_EQ(end.buffers[0]->GetSequenceStamp().GetBufferNumber(), 5);
  EXPECT_EQ(end.buffers[0]->GetTimeStamp().GetBegin(), 2000000);
  EXPECT_EQ(end.buffers[0]->GetTimeStamp().GetEnd(), 2400000);
  // The frame itself is as it was.
  EXPECT_EQ(0, std::memcmp(frame->Read(), TestPicture(20, 10, 5).data(), 600));

  // The next block is written elsewhere.
  const Pixels first(block, block + 600);
  source.VideoPin.SubmitBuffer(Numbered(20, 10, 6));
  EXPECT_EQ(0, std::memcmp(end.buffers[0]->ReadData(), first.data(), 600));

  codecs.log.Clear();
  source.VideoPin.Stop();
  EXPECT_EQ(codecs.log.Calls(), (Lines{"ICCompressEnd", "ICClose", "GlobalUnlock", "GlobalFree"}));
  EXPECT_EQ(end.log.back(), "TJCStopOperation");
  EXPECT_EQ(codecs.open, 0);
  EXPECT_EQ(codecs.allocated, 0);
  EXPECT_EQ(reports.Texts(), (Lines{"The codec '1111' can't be opened; 'FAKE' compresses."}));
  // With no codec nothing at all happens.
  codecs.log.Clear();
  end.log.clear();
  source.VideoPin.Stop();
  EXPECT_TRUE(codecs.log.Calls().empty());
  EXPECT_TRUE(end.log.empty());
}

TEST_F(Compressing, AnyCodecComesLastAndTellsItsTag) {
  struct Case {
    std::vector<std::uint32_t> tags;
    std::uint32_t any, expected, quality;
    std::size_t reported;
  };
  const Case cases[] = {{{}, kFake, kFake, 0, 0},
                        {{0x31313131}, kFake, kFake, 0, 1},
                        {{0}, kFake, kFake, 77, 0},
                        {{}, 0, 0, 0, 1},
                        {{0x31313131}, 0, 0, 0, 1}};
  for (const Case& one : cases) {
    compressor.GetCompressions().Clear();
    for (const auto tag : one.tags) AddCodec(compressor.GetCompressions(), tag, 77);
    codecs.any = one.any;
    end.log.clear();
    codecs.qualities.clear();
    reports.Clear();
    source.StartVideo(8, 4);
    source.VideoPin.SubmitBuffer(Numbered(8, 4, 0));
    if (one.expected == 0) {
      EXPECT_EQ(end.log, (Lines{"TJCStartFrameOperation", "TPQImageBuffer 96"}));
    } else {
      EXPECT_EQ(end.start->FourCC, one.expected);
      EXPECT_EQ(codecs.qualities, (std::vector<std::uint32_t>{one.quality}));
    }
    EXPECT_EQ(reports.All().size(), one.reported);
    source.VideoPin.Stop();
    codecs.log.Clear();
  }
}

// Whichever step of a start fails, frames come through, as blocks or as they are; nothing stays open.
TEST_F(Compressing, EachStepMayFail) {
  AddCodec(compressor.GetCompressions(), kFake);
  AddCodec(compressor.GetCompressions(), kFake);
  for (int call = 1; call <= 20; ++call) {
    codecs.log.Clear();
    codecs.log.FailAt(call);
    end.log.clear();
    reports.Clear();
    source.StartVideo(8, 4);  // no codec is held: the last round has stopped
    codecs.log.FailAt(-1);
    const Lines calls = codecs.log.Calls();
    if (calls.size() < static_cast<std::size_t>(call)) break;  // no step is left
    const std::string failed = calls[static_cast<std::size_t>(call - 1)];
    SCOPED_TRACE(failed);
    ASSERT_FALSE(end.log.empty());
    const bool degraded = failed.rfind("ICLocate", 0) != 0;
    EXPECT_EQ(end.log.back(), degraded ? "TJCStartFrameOperation" : "TPQStartVideoCompressionOperation");
    EXPECT_EQ(codecs.open, degraded ? 0 : 1);
    EXPECT_EQ(codecs.allocated, degraded ? 0 : 1);
    ASSERT_EQ(reports.All().size(), 1u);
    EXPECT_EQ(reports.All()[0].severity, degraded ? PQSeverity::Warning : PQSeverity::Note);
    EXPECT_EQ(reports.All()[0].code, 77);
    EXPECT_NE(reports.All()[0].detail.find(failed), std::string::npos);
    EXPECT_EQ(end.log.front() == "TJCStopOperation", degraded);  // of the codec that was given up
    source.VideoPin.SubmitBuffer(Numbered(8, 4, 0));
    EXPECT_EQ(end.log.back(), degraded ? "TPQImageBuffer 96" : "TRWBlockBuffer 96");
    source.VideoPin.Stop();
    ASSERT_LT(call, 20);
  }
}

TEST_F(Compressing, TheFrameCounterCountsEveryFrameFromEachStart) {
  source.StartVideo(8, 4);
  const auto send = [&](int width, int height) { source.SendFrame(width, height, 0x102030); };
  send(8, 4);
  codecs.log.FailStep("ICCompress");
  send(8, 4);
  EXPECT_EQ(end.log.back(), "TPQImageBuffer 96");
  send(8, 4);
  codecs.log.FailStep("");
  send(8, 5);  // another size than announced goes to no codec
  EXPECT_EQ(end.log.back(), "TPQImageBuffer 120");
  send(8, 4);
  EXPECT_EQ(codecs.numbers, (std::vector<std::int32_t>{0, 1, 2, 4}));
  EXPECT_EQ(reports.Texts(), (Lines{"A frame can't be compressed and passes as it is."}));  // once a start
  codecs.numbers.clear();
  end.log.clear();
  source.StartVideo(6, 6);  // a change of size, without a stop
  source.SendFrame(6, 6, 0);
  EXPECT_EQ(codecs.numbers, (std::vector<std::int32_t>{0}));
  EXPECT_EQ(end.log, (Lines{"TJCStopOperation", "TPQStartVideoCompressionOperation", "TRWBlockBuffer 108"}));
  EXPECT_EQ(codecs.open, 1);
}

TEST_F(Compressing, EnabledActsAtTheNextStartOnly) {
  TJCBoolSourcePin button(source);
  ASSERT_TRUE(compressor.EnablePin.Connect(button).Ok());
  source.StartVideo(8, 4);
  button.Send(false);
  EXPECT_FALSE(compressor.GetEnabled());
  source.SendFrame(8, 4, 0);
  EXPECT_EQ(end.log.back(), "TRWBlockBuffer 96");
  source.StartVideo(8, 4);
  source.SendFrame(8, 4, 0);
  EXPECT_EQ(end.log, (Lines{"TPQStartVideoCompressionOperation", "TRWBlockBuffer 96", "TJCStopOperation",
                            "TJCStartFrameOperation", "TPQImageBuffer 96"}));
  button.Send(true);
  source.SendFrame(8, 4, 0);
  EXPECT_EQ(end.log.back(), "TPQImageBuffer 96");
  source.StartVideo(8, 4);
  EXPECT_EQ(end.log.back(), "TPQStartVideoCompressionOperation");
  button.Disconnect();
}

// What was announced stands in the header; the codec gets 24 bits whatever comes.
TEST_F(Compressing, OtherFormatsReachTheCodecInTwentyFourBits) {
  for (const TPQVideoFormat announced : {vfRGB24, vfYUY2, vfGrayScale}) {
    for (const TPQVideoFormat format : {vfRGB24, vfYUY2, vfGrayScale}) {
      source.StartVideo(8, 4, 400000, announced);
      EXPECT_EQ(end.start->InputHeader.biBitCount, PQVideoFormatToBitCount(announced));
      source.SendFrame(8, 4, 0x6080a0, format);
      EXPECT_EQ(codecs.compress_input.biBitCount, 24);
      auto expected = PQMakeRef<TPQImageBuffer>(8, 4, vfRGB24);
      expected->Fill(0x6080a0);
      expected->SetFormat(format);
      expected->SetFormat(vfRGB24);
      EXPECT_EQ(codecs.pixels, Pixels(expected->Read(), expected->Read() + 96));
    }
  }
  source.StartVideo(8, 4, 400000, vfUnspecified);
  EXPECT_EQ(end.log.back(), "TJCStartFrameOperation");
}

TEST_F(Compressing, HostileAnswersAndSizes) {
  codecs.capacity = 50;
  codecs.claimed = 4000000000u;  // more than the memory has
  source.StartVideo(8, 4);
  source.SendFrame(8, 4, 0);
  EXPECT_EQ(end.log.back(), "TRWBlockBuffer 50");
  constexpr int kMost = 2147483647;
  for (const auto& size :
       {std::pair(0, 4), std::pair(-8, 4), std::pair(8, -4), std::pair(32768, 4), std::pair(kMost, kMost)}) {
    codecs.log.Clear();
    source.StartVideo(size.first, size.second);
    EXPECT_EQ(end.log.back(), "TJCStartFrameOperation");
    EXPECT_EQ(codecs.log.Count("ICLocate"), 0);
  }
  codecs.claimed = codecs.capacity = 0;
  source.StartVideo(8, 4);
  source.VideoPin.SubmitBuffer(PQMakeRef<TRWBlockBuffer>(5));  // no frame
  EXPECT_EQ(end.log.back(), "TRWBlockBuffer 5");
  EXPECT_EQ(codecs.numbers.size(), 1u);  // of the frame before
}

TEST_F(Compressing, GoesUpwardsAndDiesInAnyState) {
  source.StartVideo(8, 4);
  EXPECT_TRUE(end.In.IsConnected());
  end.In.Notify(*PQMakeRef<TJCStopOperation>());  // to the source, which ignores it
  EXPECT_EQ(codecs.open, 1);
  {
    TPQVideoCompressor other;
    BinaryEnd below;
    ASSERT_TRUE(below.In.Connect(other.OutputPin).Ok());
    // Without a source the compressor takes what comes up.
    below.In.Notify(*PQMakeRef<TJCStartFrameOperation>(8, 4, 400000, vfRGB24));
    EXPECT_EQ(below.log, (Lines{"TPQStartVideoCompressionOperation"}));
    EXPECT_EQ(codecs.open, 2);
    other.BeforeDestructionOnce();
    EXPECT_EQ(below.log.back(), "TJCStopOperation");
  }
  EXPECT_EQ(codecs.open, 1);
  codecs.log.Clear();
  // Operations that are none of its business end here.
  source.VideoPin.Notify(*PQMakeRef<TJCPumpRequestOperation>());
  source.VideoPin.Notify(*PQMakeRef<TJCStartSampleRateOperation>(0, 0.0));
  EXPECT_EQ(end.log, (Lines{"TPQStartVideoCompressionOperation"}));
  EXPECT_TRUE(codecs.log.Calls().empty());
}

// --- the decompressor -----------------------------------------------------------------------------------------------

class Decompressing : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(decompressor.InputPin.Connect(end.Out).Ok());
    ASSERT_TRUE(out.sink.VideoPin.Connect(decompressor.OutputPin).Ok());
  }
  void Announce(int width, int height, int bits = 24, float rate = 25) {
    BITMAPINFOHEADER frames;
    frames.biWidth = width, frames.biHeight = height, frames.biPlanes = 1;
    frames.biBitCount = static_cast<std::uint16_t>(bits);
    BITMAPINFOHEADER blocks = frames;
    blocks.biCompression = kFake, blocks.biBitCount = 24;
    end.Out.Notify(*PQMakeRef<TPQStartVideoCompressionOperation>(0, rate, kFake, frames, blocks));
  }
  void Send(const Pixels& bytes, int number = -1) {
    auto block = PQMakeRef<TRWBlockBuffer>(bytes.data(), static_cast<int>(bytes.size()));
    if (number >= 0) block->GetSequenceStamp().SetBufferNumber(number);
    block->GetTimeStamp().SetAvailable(true);
    block->GetTimeStamp().SetBegin(number * 100);
    block->GetTimeStamp().SetEnd(number * 100 + 100);
    end.Out.SubmitBuffer(block);
  }
  static Pixels Block(const Pixels& pixels, int width) {
    Pixels block = UpsideDown(pixels, width);
    for (auto& byte : block) byte = static_cast<std::uint8_t>(byte + FakeCodecs::kShift);
    return block;
  }
  Lines Calls() {
    Lines calls = codecs.log.Calls();
    codecs.log.Clear();
    return calls;
  }
  FakeCodecs codecs;
  BinaryEnd end;
  TPQVideoDecompressor decompressor;
  FrameSink out;
  Reports reports;
};

TEST_F(Decompressing, AnAnnouncedStream) {
  Announce(20, 10);
  EXPECT_EQ(Calls(), (Lines{"ICLocate FAKE decompress both", "ICDecompressBegin"}));
  EXPECT_EQ(out.sink.Log(), (Lines{"v start 20 10 0"}));
  EXPECT_EQ(out.format, vfRGB24);
  const Pixels a = TestPicture(20, 10, 1), b = TestPicture(20, 10, 2);
  Send(Block(a, 20), 40);
  Send(Block(b, 20), 41);
  EXPECT_EQ(codecs.decompress_input.biSizeImage, 600u);
  EXPECT_EQ(Calls(), (Lines{"ICDecompress", "ICDecompress"}));
  ASSERT_EQ(out.frames.size(), 2u);
  EXPECT_EQ(out.Bytes(0), a);  // held while the next was made
  EXPECT_EQ(out.Bytes(1), b);
  EXPECT_EQ(out.Frame(1)->GetSequenceStamp().GetBufferNumber(), 41);
  EXPECT_EQ(out.Frame(1)->GetTimeCode().GetFrame(), 41);
  EXPECT_EQ(out.Frame(1)->GetTimeStamp().GetBegin(), 4100);
  // A block that fails is dropped, and told once.
  Send({1, 2, 3});
  Send({1, 2, 3, 4});
  EXPECT_EQ(out.frames.size(), 2u);
  EXPECT_EQ(reports.Texts(), (Lines{"A block can't be decompressed and is dropped."}));
  Calls();
  end.Out.Stop();
  EXPECT_EQ(Calls(), (Lines{"ICDecompressEnd", "ICClose"}));
  EXPECT_EQ(codecs.open, 0);
  EXPECT_EQ(out.sink.Log().back(), "v TJCStopOperation");
  end.Out.Stop();  // goes on in every case
  EXPECT_EQ(out.sink.Log().size(), 5u);
}

TEST_F(Decompressing, AStreamThatIsNotAnnounced) {
  AddCodec(decompressor.GetDecompressions(), 0x31313131);
  AddCodec(decompressor.GetDecompressions(), kFake);
  decompressor.SetWidth(20);
  decompressor.SetHeight(10);
  auto start = PQMakeRef<TJCStartSampleRateOperation>(0, 0.0);
  start->Rate = 25;
  end.Out.Notify(*start);
  EXPECT_EQ(Calls(),
            (Lines{"ICLocate 1111 compress", "ICLocate FAKE compress", "ICCompressGetFormat", "ICDecompressBegin"}));
  EXPECT_EQ(codecs.decompress_input.biCompression, kFake);
  EXPECT_EQ(codecs.decompress_output.biCompression, 0u);
  EXPECT_EQ(out.sink.Log(), (Lines{"v start 20 10 0"}));
  Send(Block(TestPicture(20, 10, 9), 20));
  Send(Block(TestPicture(20, 10, 9), 20));
  ASSERT_EQ(out.frames.size(), 2u);
  EXPECT_EQ(out.Bytes(0), TestPicture(20, 10, 9));
  EXPECT_EQ(out.Frame(0)->GetTimeCode().GetFrame(), 0);  // counted where the blocks have no numbers
  EXPECT_EQ(out.Frame(1)->GetTimeCode().GetFrame(), 1);
  // Each step may fail; then no start goes out.
  for (const char* step : {"ICLocate FAKE compress", "ICCompressGetFormat", "ICDecompressBegin"}) {
    codecs.log.FailStep(step);
    end.Out.Notify(*start);
    codecs.log.FailStep("");
    EXPECT_EQ(codecs.open, 0) << step;
    EXPECT_EQ(out.sink.Log().back(), "v TJCStopOperation") << step;
    EXPECT_NE(reports.All().back().detail.find("fails"), std::string::npos) << step;
    end.Out.Notify(*start);
    EXPECT_EQ(codecs.open, 1);
  }
  decompressor.SetVideoFormat(vfUnspecified);
  Calls();
  end.Out.Notify(*start);
  EXPECT_EQ(Calls(), (Lines{"ICDecompressEnd", "ICClose"}));
}

TEST_F(Decompressing, EachStepOfAnAnnouncedStartMayFail) {
  for (const char* step : {"ICLocate FAKE decompress both", "ICDecompressBegin"}) {
    codecs.log.FailStep(step);
    codecs.refuses_output = std::string(step).rfind("ICLocate", 0) == 0;
    Announce(8, 4);
    codecs.log.FailStep("");
    const bool again = codecs.refuses_output;
    EXPECT_EQ(out.sink.Log(), again ? (Lines{"v start 8 4 0"}) : (Lines{"v start 8 4 0", "v TJCStopOperation"}))
        << step;
    EXPECT_EQ(codecs.open, again ? 1 : 0) << step;
  }
  // Found at the second try: what the codec gives is asked for. Found not at all: the questions are put all the same.
  codecs.refuses_output = true;
  Calls();
  Announce(8, 4);
  EXPECT_EQ(Calls(), (Lines{"ICLocate FAKE decompress both", "ICLocate FAKE decompress", "ICCompressGetFormat",
                            "ICGetInfo", "ICDecompressBegin"}));
  codecs.tags.clear();
  Announce(8, 4);
  EXPECT_EQ(Calls(), (Lines{"ICDecompressEnd", "ICClose", "ICLocate FAKE decompress both", "ICLocate FAKE decompress",
                            "ICCompressGetFormat of nothing", "ICGetInfo of nothing"}));
  EXPECT_EQ(reports.Texts().back(), "No codec can be opened; no frames are announced.");
}

TEST_F(Decompressing, HostileHeadersOpenNothing) {
  struct Case {
    int width, height, bits;
    bool opens;
    TPQVideoFormat format = vfUnspecified;
  };
  constexpr int kMost = 2147483647, kLeast = -kMost - 1;
  constexpr Case kCases[] = {{8, 4, 24, true, vfRGB24}, {8, -4, 24, true, vfRGB24}, {8, 4, 8, true, vfGrayScale},
                             {8, 4, 16, true, vfYUY2},  {8, 4, 32, false},          {8, 4, 0, false},
                             {0, 4, 24, false},         {8, 0, 24, false},          {-8, 4, 24, false},
                             {32768, 4, 24, false},     {8, kLeast, 24, false},     {kMost, kMost, 24, false},
                             {32767, 32767, 24, false}};
  for (const Case& one : kCases) {
    SCOPED_TRACE(std::to_string(one.width) + "x" + std::to_string(one.height) + "x" + std::to_string(one.bits));
    out.format = vfUnspecified;
    Announce(one.width, one.height, one.bits);
    EXPECT_EQ(codecs.open, one.opens ? 1 : 0);
    EXPECT_EQ(out.format, one.format);
    if (one.opens) {
      out.frames.clear();
      Send(Block(TestPicture(8, 4, 3), 8));
      ASSERT_EQ(out.frames.size(), 1u);
      EXPECT_EQ(out.Bytes(0), TestPicture(8, 4, 3));  // in 24 bits, upright, whatever was announced
    } else {
      EXPECT_EQ(reports.Texts().back(), "No codec can be opened; no frames are announced.");
    }
    end.Out.Stop();
  }
  // Frames that are compressed before they are compressed.
  BITMAPINFOHEADER odd;
  odd.biWidth = 8, odd.biHeight = 4, odd.biBitCount = 24, odd.biCompression = kFake;
  Calls();
  end.Out.Notify(*PQMakeRef<TPQStartVideoCompressionOperation>(0, 25.0f, kFake, odd, odd));
  EXPECT_TRUE(Calls().empty());
  EXPECT_EQ(reports.Texts().back(), "Assertion failure");
  EXPECT_EQ(reports.All().back().severity, PQSeverity::Error);
  EXPECT_EQ(reports.All().back().detail.rfind("PQVideoDecompressor, line 330", 0), 0u);
}

TEST_F(Decompressing, WithoutACodecBlocksAreTakenForPixels) {
  decompressor.SetWidth(5);
  decompressor.SetHeight(2);
  Pixels bytes(40);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i + 1);
  for (const std::size_t size : {std::size_t{30}, std::size_t{0}, std::size_t{7}, std::size_t{40}}) {
    Send(Pixels(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)));
    Pixels expected(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(size, 30)));
    expected.resize(30);
    ASSERT_EQ(out.Bytes(out.frames.size() - 1), expected) << size;
  }
  EXPECT_EQ(out.Bytes(0), Pixels(bytes.begin(), bytes.begin() + 30));  // still
  EXPECT_EQ(reports.All().size(), 1u);
  for (const auto& size : {std::pair(0, 7), std::pair(-5, 3), std::pair(-5, -3)}) {
    decompressor.SetWidth(size.first);
    decompressor.SetHeight(size.second);
    Send(bytes);
    EXPECT_EQ(out.Frame(out.frames.size() - 1)->GetByteSize(), 0);
  }
  const std::size_t before = out.frames.size();
  decompressor.SetWidth(2147483647);
  decompressor.SetHeight(2147483647);
  Send(bytes);
  EXPECT_EQ(out.frames.size(), before);
  EXPECT_TRUE(codecs.log.Calls().empty());
}

TEST_F(Decompressing, EnabledFalseOpensNothing) {
  decompressor.SetEnabled(false);
  Announce(8, 4);
  end.Out.Notify(*PQMakeRef<TJCStartSampleRateOperation>(0, 0.0));
  EXPECT_TRUE(codecs.log.Calls().empty());
  EXPECT_TRUE(out.sink.Log().empty());
  TJCBoolSourcePin button(end);
  ASSERT_TRUE(decompressor.EnablePin.Connect(button).Ok());
  button.Send(true);
  EXPECT_TRUE(decompressor.GetEnabled());
  Announce(8, 4, 24, 0);
  EXPECT_EQ(out.sink.Log(), (Lines{"v start 8 4 0"}));  // a rate of nothing is a delay of nothing
  Announce(8, 4, 24, 1e-9f);
  EXPECT_EQ(out.sink.Log().back(), "v start 8 4 1000000");
  button.Disconnect();
}

// --- both -----------------------------------------------------------------------------------------------------------

class Chain : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(compressor->InputPin.Connect(source.VideoPin).Ok());
    ASSERT_TRUE(decompressor->InputPin.Connect(compressor->OutputPin).Ok());
    ASSERT_TRUE(out.sink.VideoPin.Connect(decompressor->OutputPin).Ok());
  }
  bool HaveCodecs() {
    PQPlatformResult result;
    return LoadCodecManager(result) != nullptr;
  }
  StreamSource source;
  std::unique_ptr<TPQVideoCompressor> compressor = std::make_unique<TPQVideoCompressor>();
  std::unique_ptr<TPQVideoDecompressor> decompressor = std::make_unique<TPQVideoDecompressor>();
  FrameSink out;
};

TEST_F(Chain, WithoutLossFramesComeBackThroughSizesAndRestarts) {
  if (!HaveCodecs()) GTEST_SKIP();
  for (const char* tag : {"FFV1", "HFYU", "MPNG", "DIB"}) {
    SCOPED_TRACE(tag);
    compressor->GetCompressions().Clear();
    ASSERT_TRUE(static_cast<TPQVideoCompressionItem*>(compressor->GetCompressions().Add())->SetFourCC(tag).Ok());
    for (const auto& size : {std::pair(64, 48), std::pair(33, 21), std::pair(1, 1), std::pair(64, 48)}) {
      out.frames.clear();
      source.StartVideo(size.first, size.second);  // the first one apart, without a stop before
      for (int i = 0; i < 14; ++i) source.VideoPin.SubmitBuffer(Numbered(size.first, size.second, i));
      ASSERT_EQ(out.frames.size(), 14u);
      for (int i = 0; i < 14; ++i) {
        ASSERT_EQ(out.Bytes(static_cast<std::size_t>(i)), TestPicture(size.first, size.second, i)) << i;
        EXPECT_EQ(out.Frame(static_cast<std::size_t>(i))->GetTimeCode().GetFrame(), i);
        EXPECT_EQ(out.Frame(static_cast<std::size_t>(i))->GetTimeStamp().GetEnd(), i * 400000 + 400000);
      }
    }
    source.VideoPin.Stop();
    EXPECT_EQ(out.sink.Log().back(), "v TJCStopOperation");
  }
}

// What the blocks are is no matter of our own decoder: another library reads them.
TEST_F(Chain, BlocksArePicturesOfTheirKind) {
  if (!HaveCodecs()) GTEST_SKIP();
  struct Case {
    const char* tag;
    double most;  // mean difference
  };
  for (const Case& one : {Case{"MPNG", 0}, Case{"MJPG", 2.5}}) {
    SCOPED_TRACE(one.tag);
    compressor->GetCompressions().Clear();
    auto* item = static_cast<TPQVideoCompressionItem*>(compressor->GetCompressions().Add());
    ASSERT_TRUE(item->SetFourCC(one.tag).Ok());
    item->SetQuality(kBestCodecQuality);
    BinaryEnd end;
    ASSERT_TRUE(end.In.Connect(compressor->OutputPin).Ok());
    source.StartVideo(64, 48);
    source.VideoPin.SubmitBuffer(Numbered(64, 48, 77));
    ASSERT_EQ(end.buffers.size(), 1u);
    TPicture picture;
    const auto* bytes = static_cast<const std::uint8_t*>(end.buffers[0]->ReadData());
    const PQStatus status = picture.LoadFromMemory({bytes, static_cast<std::size_t>(end.buffers[0]->GetByteSize())});
    if (!status.Ok()) GTEST_SKIP() << status.Text();  // built without picture files
    auto frame = PQMakeRef<TPQImageBuffer>();
    frame->LoadBitmap(*picture.GetSnapshot());
    const Pixels expected = TestPicture(64, 48, 77);
    ASSERT_EQ(frame->GetByteSize(), static_cast<int>(expected.size()));
    double sum = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) sum += std::abs(frame->Read()[i] - expected[i]);
    EXPECT_LE(sum / static_cast<double>(expected.size()), one.most);
  }
}

// Announced as gray, sent as gray: the frames come back in 24 bits, and look the same.
TEST_F(Chain, GrayStreamsPass) {
  if (!HaveCodecs()) GTEST_SKIP();
  AddCodec(compressor->GetCompressions(), PQFourCC('F', 'F', 'V', '1'));
  source.StartVideo(16, 8, 400000, vfGrayScale);
  source.SendFrame(16, 8, 0x404040, vfGrayScale);
  ASSERT_EQ(out.frames.size(), 1u);
  EXPECT_EQ(out.format, vfGrayScale);
  EXPECT_EQ(out.Frame(0)->GetFormat(), vfRGB24);
  EXPECT_EQ(out.Frame(0)->GetPixel(3, 3), 0x404040u);
}

TEST_F(Chain, WithoutACodecTheChainIsRaw) {
  compressor->SetEnabled(false);
  decompressor->SetWidth(8);
  decompressor->SetHeight(4);
  source.StartVideo(8, 6, 400000);
  source.VideoPin.SubmitBuffer(Numbered(8, 6, 12));
  EXPECT_EQ(out.sink.Log(), (Lines{"v start 8 6 400000", "v frame"}));
  Pixels expected = TestPicture(8, 6, 12);
  expected.resize(96);  // cut to Width by Height
  EXPECT_EQ(out.Bytes(0), expected);
  EXPECT_EQ(out.Frame(0)->GetTimeCode().GetFrame(), 12);
  source.VideoPin.Stop();  // is held back
  EXPECT_EQ(out.sink.Log().size(), 2u);
}

TEST_F(Chain, PartsDieInAnyOrderWhileItRuns) {
  if (!HaveCodecs()) GTEST_SKIP();
  for (const bool compressor_first : {true, false}) {
    source.StartVideo(16, 8);
    source.SendFrame(16, 8, 0);
    if (compressor_first) {
      compressor.reset();
      EXPECT_EQ(out.sink.Log().back(), "v TJCStopOperation");
    } else {
      decompressor.reset();
      source.SendFrame(16, 8, 0);
    }
    compressor = std::make_unique<TPQVideoCompressor>();
    decompressor = std::make_unique<TPQVideoDecompressor>();
    SetUp();
  }
}

}  // namespace
}  // namespace pantiq::test
