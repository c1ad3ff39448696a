// TPQDSVideoCompressor and TPQDSVideoDecompressor: with a fake that fails where it is told to, and with the real
// engine.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <thread>

#include "media/TestStreams.h"
#include "pantiq/media/PQDSCapDeviceList.h"
#include "pantiq/media/PQDSVideoCompressor.h"
#include "pantiq/media/PQDSVideoDecompressor.h"
#include "support/FakeCodecGraph.h"

namespace pantiq::test {
namespace {

using Lines = std::vector<std::string>;

std::ptrdiff_t CountOf(const Lines& lines, const std::string& line) {
  return std::count(lines.begin(), lines.end(), line);
}

// Writes down what comes on a binary pin.
class BlockSink final : public TComponent {
 public:
  explicit BlockSink(TComponent* owner = nullptr)
      : TComponent(owner), Pin(*this, JCDispatch::To<&BlockSink::Take>(this)) {}
  ~BlockSink() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info = PQDescribe<BlockSink>("BlockSink", "Test", "").Inherits<TComponent>().Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TRWJCBinarySinkPin Pin;
  // Called with each operation, after it was written down.
  std::function<void(IJCNotifyOperation&)> on_op;

  Lines Log() {
    const std::lock_guard lock(mutex_);
    return log_;
  }
  int Blocks() {
    const std::lock_guard lock(mutex_);
    return blocks_;
  }
  void WaitForBlocks(int count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return blocks_ >= count; });
  }
  void WaitFor(const std::string& line) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return std::find(log_.begin(), log_.end(), line) != log_.end(); });
  }

 private:
  void BeforeDestruction() override { Pin.Disconnect(); }
  TJCNotifyResult Take(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    std::string line = op.Tag().Name();
    if (auto* frames = JCOperation<TJCStartFrameOperation>(op)) {
      line = "frames " + std::to_string(frames->Width) + " " + std::to_string(frames->Height);
    } else if (auto* start = JCOperation<TJCStartSampleRateOperation>(op)) {
      line = "start " + std::to_string(start->BlockSize) + " " + std::to_string(std::lround(start->SampleRate));
    } else if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      const IRWDataBuffer& buffer = *supplied->Buffer;
      line = "block " + std::to_string(buffer.GetByteSize()) + " at " +
             std::to_string(buffer.GetTimeStamp().GetBegin()) + " to " + std::to_string(buffer.GetTimeStamp().GetEnd());
      if (buffer.GetSequenceStamp().GetAvailable()) {
        line += " number " + std::to_string(buffer.GetSequenceStamp().GetBufferNumber());
      }
    }
    {
      const std::lock_guard lock(mutex_);
      log_.push_back(line);
      if (JCOperation<TJCSuppliedBufferOperation>(op) != nullptr) ++blocks_;
      changed_.notify_all();
    }
    if (on_op) {
      const auto call = on_op;  // the call may end this object
      call(op);
    }
    return {};
  }
  std::mutex mutex_;
  std::condition_variable changed_;
  Lines log_;
  int blocks_ = 0;
};

class BlockSource final : public TComponent {
 public:
  explicit BlockSource(TComponent* owner = nullptr)
      : TComponent(owner), Pin(*this, JCDispatch::To<&BlockSource::Up>(this)) {}
  ~BlockSource() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info = PQDescribe<BlockSource>("BlockSource", "Test", "").Inherits<TComponent>().Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TRWJCBinarySourcePin Pin;
  std::atomic<int> stops{0};  // that came up

  void Start(int block_size, double rate) { Pin.Notify(*PQMakeRef<TJCStartSampleRateOperation>(block_size, rate)); }
  void Send(int bytes, std::uint8_t fill, std::int64_t begin = -1, std::int64_t end = -1) {
    auto block = PQMakeRef<TRWBlockBuffer>(bytes);
    if (bytes > 0) std::memset(block->Write(), fill, static_cast<std::size_t>(bytes));
    if (begin >= 0) {
      block->GetTimeStamp().SetAvailable(true);
      block->GetTimeStamp().SetBegin(begin);
      block->GetTimeStamp().SetEnd(end);
    }
    Pin.SubmitBuffer(std::move(block));
  }

 private:
  void BeforeDestruction() override { Pin.Disconnect(); }
  TJCNotifyResult Up(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    if (JCOperation<TJCStopOperation>(op) != nullptr) ++stops;
    return {};
  }
};

void AddCodec(TPQDSVideoCompressionItems& items, const std::string& compressor, const std::string& settings = {}) {
  auto* item = static_cast<TDSCompressionItem*>(items.Add());
  item->SetCompressor(compressor);
  ASSERT_TRUE(item->SetSettings(settings).Ok());
}

// --- the compressor on the fake -------------------------------------------------------------------------------------

enum class End { StopFromBelow, Disconnect, Destroy };

// A component between a source and a sink, on the fake.
template <class Codec, class Source, class Sink>
class CodecTest : public ::testing::Test {
 protected:
  void SetUp() override { Make(); }
  virtual void Make() = 0;
  virtual void Start() = 0;
  virtual void Send() = 0;
  virtual int Came() = 0;  // frames or blocks at the sink
  virtual void StopFromBelow() = 0;
  virtual void ListenAtSink() = 0;  // calls Arrived for each frame or block
  virtual void CheckEnd(End) {}

  // While a frame waits inside the graph, and from inside the way down of what came out of it.
  void EveryWaitEnds() {
    ListenAtSink();
    for (const End end : {End::StopFromBelow, End::Disconnect, End::Destroy}) {
      for (const bool on_the_way_down : {false, true}) {
        SCOPED_TRACE(static_cast<int>(end) * 10 + on_the_way_down);
        Make();
        const auto finish = [&] {
          if (end == End::StopFromBelow) StopFromBelow();
          if (end == End::Disconnect) codec->InputPin.Disconnect();
          if (end == End::Destroy) codec.reset();
        };
        const int before = Came();
        std::atomic<bool> ended{false};
        if (on_the_way_down) {
          const std::lock_guard lock(mutex_);
          at_first_arrival_ = [&] {
            finish();
            ended.store(true);
          };
        }
        Start();
        if (on_the_way_down) {
          for (int i = 0; i < 200; ++i) Send();
          while (!ended.load() || Came() == before) std::this_thread::yield();
        } else {
          state.hold.store(true);
          std::thread feeding([&] { Send(); });
          state.WaitForHolding();
          finish();
          feeding.join();
          state.hold.store(false);
        }
        while (state.live.load() > 0) std::this_thread::yield();
        CheckEnd(end);
      }
    }
  }

  void Arrived() {
    std::function<void()> call;
    {
      const std::lock_guard lock(mutex_);
      call.swap(at_first_arrival_);
    }
    if (call) call();
  }

  FakeCodecModule module;
  FakeCodecState& state = module.state;
  Reports reports;
  Source source;
  Sink sink;
  std::unique_ptr<Codec> codec;

 private:
  std::mutex mutex_;
  std::function<void()> at_first_arrival_;
};

class CompressorTest : public CodecTest<TPQDSVideoCompressor, StreamSource, BlockSink> {
 protected:
  void Make() override {
    codec = std::make_unique<TPQDSVideoCompressor>();
    ASSERT_TRUE(codec->InputPin.Connect(source.VideoPin).Ok());
    ASSERT_TRUE(sink.Pin.Connect(codec->OutputPin).Ok());
  }
  void Start() override { source.StartVideo(16, 8); }
  void Send() override { source.SendFrame(16, 8, 0); }
  int Came() override { return sink.Blocks(); }
  void StopFromBelow() override { sink.Pin.Notify(*PQMakeRef<TJCStopOperation>()); }
  void ListenAtSink() override {
    sink.on_op = [this](IJCNotifyOperation& op) {
      if (JCOperation<TJCSuppliedBufferOperation>(op) != nullptr) Arrived();
    };
  }
};

const Lines kCompressorHead = {"CreateGraph",
                               "RegisterAdditionalFilters",
                               "CreateCaptureBuilder",
                               "QueryMediaControl",
                               "SetFiltergraph",
                               "Create source",
                               "SetVideoSize 16 8 400000",
                               "Add VideoSource",
                               "Create grabber",
                               "SetBufferSamples grabber",
                               "SetOneShot grabber",
                               "SetCallback grabber",
                               "SetMediaType grabber video"};

Lines Behind(Lines a, const Lines& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST_F(CompressorTest, BuildsInTheStatedOrder) {
  int before_run = 0, wired = 1;
  codec->GetGraph().SetBeforeRun([&](TComponent& owner) {
    EXPECT_EQ(&owner, codec.get());
    ++before_run;
    EXPECT_EQ(state.log.Count("Render"), wired);
    EXPECT_EQ(state.log.Count("Run"), 0);
  });
  source.StartVideo(16, 8);
  EXPECT_EQ(state.log.Calls(), Behind(kCompressorHead, {"Add SampleGrabler", "Render source grabber", "Run"}));
  EXPECT_TRUE(codec->IsRunning());
  EXPECT_TRUE(codec->GetGraph().IsRegistered());
  EXPECT_EQ(before_run, 1);
  source.VideoPin.Stop();
  EXPECT_FALSE(codec->IsRunning());
  EXPECT_FALSE(codec->GetGraph().IsRegistered());
  EXPECT_EQ(state.live.load(), 0);

  // An item that names nothing is passed over; one that cannot be used makes room for the next.
  AddCodec(codec->GetCompressions(), "");
  AddCodec(codec->GetCompressions(), "gst:element=first");
  AddCodec(codec->GetCompressions(), "second", "quality=3");
  state.log.Clear();
  wired = 2;
  state.log.FailStep("Bind gst:element=first");
  source.StartVideo(16, 8);
  const Lines second = {"Add VideoCompressor", "Render source codec",  "ApplySettings quality=3",
                        "Add SampleGrabler",   "Render codec grabber", "ApplySettings quality=3"};
  EXPECT_EQ(state.log.Calls(), Behind(Behind(kCompressorHead, {"Bind gst:element=first", "Bind gst:element=second"}),
                                      Behind(second, {"Run"})));
  ASSERT_EQ(reports.All().size(), 1u);
  EXPECT_EQ(reports.All()[0].text, "The compressor 'gst:element=first' can't be used; 'second' is.");
  EXPECT_EQ(reports.All()[0].detail, "the fake fails at Bind gst:element=first");
  source.VideoPin.Stop();

  // YUY2 is told to the source, but for pictures with half a pair of pixels in a row.
  state.log.FailStep("");
  state.log.Clear();
  source.StartVideo(16, 8, 400000, vfYUY2);
  EXPECT_EQ(state.log.Count("Create source YUY2"), 1);
  source.VideoPin.Stop();
  state.log.Clear();
  source.StartVideo(15, 8, 400000, vfYUY2);
  EXPECT_EQ(state.log.Count("Create source YUY2"), 0);
}

// Each step that fails ends the build with its own text; frames then leave as blocks of their bytes, and the next start
// builds anew.
TEST_F(CompressorTest, EveryFailureHasItsText) {
  const struct {
    const char* step;
    const char* text;  // null: no text of its own
  } cases[] = {
      {"CreateGraph", nullptr},
      {"CreateCaptureBuilder", "Can't build DirectShow graph builder."},
      {"QueryMediaControl", "Can't obtain IMediaControl."},
      {"SetFiltergraph", "Can't build DirectShow graph builder."},
      {"Create source", "Can't set video source filter."},
      {"SetVideoSize 16 8 400000", "Can't set video source filter."},
      {"Add VideoSource", "Can't set video source filter."},
      {"Create grabber", nullptr},
      {"SetBufferSamples grabber", "Can't set video sample grabber."},
      {"SetOneShot grabber", "Can't set video sample grabber."},
      {"SetCallback grabber", "Can't set video sample grabber."},
      {"SetMediaType grabber video", "Can't set video sample grabber format."},
      {"Add SampleGrabler", "Can't set video sample grabber."},
      {"Render source grabber", "Can't render video output."},
      {"Run", "Can't start logger."},
  };
  int blocks = 0;
  for (const auto& failing : cases) {
    SCOPED_TRACE(failing.step);
    state.log.FailStep(failing.step);
    reports.Clear();
    source.StartVideo(16, 8);
    EXPECT_FALSE(codec->IsRunning());
    EXPECT_FALSE(codec->GetGraph().GetInterface());
    EXPECT_EQ(state.live.load(), 0);
    const auto told = reports.All();
    if (failing.text == nullptr) {
      EXPECT_TRUE(told.empty());
    } else {
      ASSERT_EQ(told.size(), 1u);
      EXPECT_EQ(told[0].text, failing.text);
      EXPECT_EQ(told[0].code, 77);
      EXPECT_EQ(told[0].detail, std::string("the fake fails at ") + failing.step);
      EXPECT_EQ(told[0].severity, PQSeverity::Error);
    }
    source.SendFrame(16, 8, 0x112233);
    EXPECT_EQ(sink.Blocks(), ++blocks);  // at once, on this thread
    EXPECT_EQ(sink.Log().back().rfind("block 384 ", 0), 0u);
    source.VideoPin.Stop();
  }
  EXPECT_EQ(state.log.Count("Stop"), 1);  // of the graph that did not run
  state.log.FailStep("");
  source.StartVideo(16, 8);
  EXPECT_TRUE(codec->IsRunning());
}

// What fails on the way to a compressor leads to the next item, or to frames that are not compressed.
TEST_F(CompressorTest, ACompressorThatFailsIsTakenOutAgain) {
  AddCodec(codec->GetCompressions(), "it");
  const struct {
    const char* step;
    Lines then;
  } cases[] = {
      {"Bind gst:element=it", {}},
      {"Add VideoCompressor", {}},
      {"Render source codec", {"Remove codec"}},
      {"Render codec grabber", {"Remove codec", "Remove grabber"}},
  };
  for (const auto& failing : cases) {
    SCOPED_TRACE(failing.step);
    state.log.FailStep(failing.step);
    state.log.Clear();
    reports.Clear();
    source.StartVideo(16, 8);
    EXPECT_TRUE(codec->IsRunning());
    Lines calls = state.log.Calls();
    calls.erase(calls.begin(), std::find(calls.begin(), calls.end(), failing.step) + 1);
    EXPECT_EQ(calls, Behind(failing.then, {"Add SampleGrabler", "Render source grabber", "Run"}));
    EXPECT_EQ(reports.Texts(),
              (Lines{"The compressor 'it' can't be used, and no other; the stream is not compressed."}));
    source.VideoPin.Stop();
  }
  // Settings that are refused leave the compressor with its own.
  state.log.FailStep("ApplySettings ");
  reports.Clear();
  source.StartVideo(16, 8);
  EXPECT_TRUE(codec->IsRunning());
  EXPECT_EQ(reports.Texts(), (Lines{"The settings of 'it' can't be applied."}));
}

TEST_F(CompressorTest, NoFailingCallLeavesAnythingBehind) {
  AddCodec(codec->GetCompressions(), "one");
  AddCodec(codec->GetCompressions(), "two");
  for (int call = 1; call <= 40; ++call) {
    SCOPED_TRACE(call);
    state.log.Clear();
    state.log.FailAt(call);
    source.StartVideo(16, 8);
    for (int i = 0; i < 5; ++i) source.SendFrame(16, 8, 0x010101);
    if (call % 2 == 0) source.VideoPin.Stop();
    if (call % 3 == 0) source.StartVideo(8, 8);
    source.VideoPin.Stop();
    EXPECT_FALSE(codec->IsRunning());
    EXPECT_EQ(state.live.load(), 0);
    EXPECT_EQ(sink.Log().back(), "TJCStopOperation");
  }
}

// The clock of the stream: lengths and positive gaps count, lost frames leave no hole, a source that begins anew does
// not set it back.
TEST_F(CompressorTest, StampsFollowLengthsAndGaps) {
  struct Frame {
    std::int64_t begin, end;
    int number;
    std::int64_t wanted_begin, wanted_end;
  };
  const struct {
    const char* what;
    std::vector<Frame> frames;
  } cases[] = {
      {"even", {{0, 10, 0, 0, 10}, {10, 20, 1, 10, 20}, {20, 30, 2, 20, 30}}},
      {"begins late", {{500, 510, 7, 0, 10}, {510, 520, 8, 10, 20}}},
      {"a gap", {{0, 10, 0, 0, 10}, {25, 35, 1, 25, 35}}},
      {"frames lost", {{0, 10, 0, 0, 10}, {40, 50, 4, 10, 20}, {50, 60, 5, 20, 30}}},
      {"lost, but no numbers", {{0, 10, -1, 0, 10}, {40, 50, -1, 40, 50}}},
      {"begins anew", {{0, 10, 0, 0, 10}, {10, 20, 1, 10, 20}, {0, 10, 2, 20, 30}, {10, 20, 3, 30, 40}}},
      {"no length", {{0, 0, 0, 0, 400000}, {5, 5, 1, 400005, 800005}}},
  };
  for (const auto& stream : cases) {
    SCOPED_TRACE(stream.what);
    source.StartVideo(16, 8);
    const std::size_t before = state.Sent().size();
    Lines wanted;
    const int first = sink.Blocks();
    for (const Frame& frame : stream.frames) {
      source.SendStamped(frame.begin, frame.end, frame.number);
      wanted.push_back("block 128 at " + std::to_string(frame.wanted_begin) + " to " +
                       std::to_string(frame.wanted_end) +
                       (frame.number >= 0 ? " number " + std::to_string(frame.number) : ""));
    }
    sink.WaitForBlocks(first + static_cast<int>(stream.frames.size()));
    source.VideoPin.Stop();
    EXPECT_EQ(state.Sent().size(), before + stream.frames.size());
    Lines blocks;
    for (const std::string& line : sink.Log()) {
      if (line.rfind("block", 0) == 0) blocks.push_back(line);
    }
    blocks.erase(blocks.begin(), blocks.begin() + first);
    EXPECT_EQ(blocks, wanted);
  }
  // Frames without a stamp are a period long; where none is known, a twenty-fifth of a second.
  for (const std::int64_t period : {std::int64_t{250000}, std::int64_t{0}}) {
    source.StartVideo(16, 8, period);
    source.SendFrame(16, 8, 0);
    source.SendFrame(16, 8, 0);
    source.VideoPin.Stop();
    const FakeSent last = state.Sent().back();
    const std::int64_t length = period > 0 ? period : 400000;
    EXPECT_EQ(last.begin, length);
    EXPECT_EQ(last.end, 2 * length);
  }
}

TEST_F(CompressorTest, StartsGoOutAndFramesFit) {
  source.StartVideo(0, 8);
  source.StartVideo(16, -1);
  EXPECT_TRUE(sink.Log().empty());
  source.StartVideo(16, 8);
  EXPECT_EQ(sink.Log(), (Lines{"start 0 25"}));
  source.SendFrame(32, 4, 0x0000ff);
  source.SendFrame(0, 0, 0);
  source.SendFrame(16, 8, 0x0000ff, vfGrayScale);
  source.VideoPin.Stop();
  const auto sent = state.Sent();
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(sent[0].bytes.size(), 384u);
  EXPECT_EQ(sent[0].bytes[2], 255);         // top left of the larger one
  EXPECT_EQ(sent[0].bytes[4 * 48 + 2], 0);  // and black below it
  EXPECT_EQ(sent[1].bytes.size(), 384u);    // gray became 24 bits
  EXPECT_EQ(sent[1].bytes[0], sent[1].bytes[2]);
  EXPECT_EQ(reports.Texts(), (Lines{"a frame of 32 by 4 came into a stream of 16 by 8: it lies at the top left",
                                    "frames without pixels are left out"}));
}

TEST_F(CompressorTest, DisabledForwardsAllAsItCame) {
  codec->SetEnabled(false);
  source.StartVideo(16, 8);
  source.SendStamped(100, 200, 5);
  source.SendFrame(16, 8, 0, vfGrayScale);
  source.VideoPin.Stop();
  EXPECT_EQ(sink.Log(),
            (Lines{"frames 16 8", "block 384 at 100 to 200 number 5", "block 128 at 0 to 0", "TJCStopOperation"}));
  EXPECT_TRUE(state.log.Calls().empty());
}

// The third block of a component's life tells the consumer to go.
TEST_F(CompressorTest, ResumeIsSentOnce) {
  for (int start = 0; start < 2; ++start) {
    source.StartVideo(16, 8);
    for (int i = 0; i < 5; ++i) source.SendFrame(16, 8, 0);
    source.VideoPin.Stop();
  }
  const Lines log = sink.Log();
  EXPECT_EQ(CountOf(log, "TJCRWResumeOperation"), 1);
  EXPECT_EQ(log.at(4), "TJCRWResumeOperation");  // behind the start and three blocks
}

// A stop that comes down keeps what is inside, however many blocks one wake-up takes.
TEST_F(CompressorTest, TheTailComesBeforeTheStop) {
  state.keep.store(true);
  source.StartVideo(16, 8);
  for (int i = 0; i < 40; ++i) source.SendFrame(16, 8, 0);
  EXPECT_EQ(sink.Blocks(), 0);
  source.VideoPin.Stop();
  EXPECT_EQ(sink.Blocks(), 40);
  EXPECT_EQ(sink.Log().back(), "TJCStopOperation");
  EXPECT_TRUE(reports.Texts().empty());
  // What fails on the way is told.
  for (const char* step : {"EndOfStream source", "Drain"}) {
    reports.Clear();
    state.log.FailStep(step);
    source.StartVideo(16, 8);
    source.VideoPin.Stop();
    EXPECT_EQ(reports.Texts(), (Lines{"the last frames could not be compressed"}));
  }
  // A new start drops it.
  state.log.FailStep("");
  source.StartVideo(16, 8);
  source.SendFrame(16, 8, 0);
  source.StartVideo(16, 8);
  source.VideoPin.Stop();
  EXPECT_EQ(sink.Blocks(), 40);
}

TEST_F(CompressorTest, AFailureWhileItRunsIsToldOnce) {
  source.StartVideo(16, 8);
  state.log.FailStep("SendVideo");
  for (int i = 0; i < 3; ++i) source.SendFrame(16, 8, 0);
  EXPECT_EQ(reports.Texts(), (Lines{"compressing stopped; frames are dropped until the next start"}));
  EXPECT_EQ(sink.Blocks(), 0);
}

// Blocks pile up to a bound; then frames wait.
TEST_F(CompressorTest, ASlowConsumerHoldsTheSource) {
  std::mutex gate;
  gate.lock();
  sink.on_op = [&](IJCNotifyOperation& op) {
    if (JCOperation<TJCSuppliedBufferOperation>(op) != nullptr) const std::lock_guard wait(gate);
  };
  source.StartVideo(16, 8);
  std::atomic<int> sent{0};
  std::thread feeding([&] {
    for (; sent.load() < 300; ++sent) source.SendFrame(16, 8, 0);
  });
  sink.WaitForBlocks(1);
  while (codec->GetQueued() < 64) std::this_thread::yield();
  EXPECT_LE(sent.load(), 75);
  gate.unlock();
  feeding.join();
  source.VideoPin.Stop();
  EXPECT_EQ(sink.Blocks(), 300);
}

TEST_F(CompressorTest, EveryWaitEnds) {
  EveryWaitEnds();
  // After a stop from below the next start works.
  Make();
  source.StartVideo(16, 8);
  sink.Pin.Notify(*PQMakeRef<TJCStopOperation>());
  EXPECT_FALSE(codec->IsRunning());
  source.StartVideo(16, 8);
  const int before = sink.Blocks();
  source.SendFrame(16, 8, 0);
  source.VideoPin.Stop();
  EXPECT_EQ(sink.Blocks(), before + 1);
}

// --- the decompressor on the fake -----------------------------------------------------------------------------------

class DecompressorTest : public CodecTest<TPQDSVideoDecompressor, BlockSource, StreamSink> {
 protected:
  void Make() override {
    codec = std::make_unique<TPQDSVideoDecompressor>();
    codec->SetWidth(16);
    codec->SetHeight(8);
    ASSERT_TRUE(codec->InputPin.Connect(source.Pin).Ok());
    ASSERT_TRUE(sink.VideoPin.Connect(codec->OutputPin).Ok());
  }
  void Start() override {
    stops_ = source.stops.load();
    source.Start(0, 25);
  }
  void Send() override { source.Send(100, 1); }
  int Came() override { return static_cast<int>(sink.Frames().size()); }
  void StopFromBelow() override { StopUp(sink.VideoPin); }
  void ListenAtSink() override {
    sink.on_op = [this](bool, IJCNotifyOperation& op) {
      if (JCOperation<TJCSuppliedBufferOperation>(op) != nullptr) Arrived();
    };
  }
  void CheckEnd(End end) override { EXPECT_EQ(source.stops.load(), stops_ + (end == End::StopFromBelow ? 1 : 0)); }

 private:
  int stops_ = 0;  // that had come up at the start
};

const Lines kDecompressorHead = {"CreateGraph",
                                 "RegisterAdditionalFilters",
                                 "CreateCaptureBuilder",
                                 "QueryMediaControl",
                                 "QueryMediaFilter",
                                 "SetFiltergraph",
                                 "Create grabber",
                                 "SetBufferSamples grabber",
                                 "SetOneShot grabber",
                                 "SetCallback grabber",
                                 "SetMediaType grabber any",
                                 "Remove grabber",
                                 "Create grabber",
                                 "SetMediaType grabber rgb24",
                                 "Create binary",
                                 "Add BinarySource",
                                 "Create source",
                                 "SetVideoSize 16 8 400000",
                                 "Add TmpVideoSource",
                                 "Create null",
                                 "Add NULL Renderer"};
const Lines kGrabberSteps = {"SetBufferSamples grabber", "SetOneShot grabber", "SetCallback grabber"};

TEST_F(DecompressorTest, BuildsInTheStatedOrder) {
  source.Start(0, 25);
  EXPECT_EQ(state.log.Calls(), Behind(Behind(kDecompressorHead, kGrabberSteps),
                                      {"SetStreamForm rgb24 384", "Add SampleGrabler", "Render binary grabber",
                                       "Render grabber null", "Remove source", "Run"}));
  EXPECT_TRUE(codec->IsRunning());
  EXPECT_TRUE(codec->GetGraph().IsRegistered());
  EXPECT_EQ(sink.Log(), (Lines{"v start 16 8 400000"}));
  source.Pin.Stop();
  EXPECT_FALSE(codec->IsRunning());
  EXPECT_EQ(state.live.load(), 0);
  EXPECT_EQ(sink.Log().back(), "v TJCStopOperation");

  AddCodec(codec->GetDecompressions(), "");
  AddCodec(codec->GetDecompressions(), "it", "quality=3");
  const Lines wired = {
      "Bind gst:element=it",  "Add VideoCompressor",   "Render source codec",          "ApplySettings quality=3",
      "Add SampleGrabler",    "Render codec grabber",  "GetConnectionMediaType codec", "DisconnectGetNextFilter codec",
      "SetStreamForm learnt", "Render binary decoder", "Render grabber null"};
  const Lines end = {"Remove source", "Remove codec", "Run"};
  state.log.Clear();
  source.Start(0, 25);
  EXPECT_EQ(state.log.Calls(), Behind(Behind(kDecompressorHead, wired), Behind(kGrabberSteps, end)));
  source.Pin.Stop();
  // Where the grabber cannot be wired on, it is from the decoder.
  state.log.Clear();
  state.log.FailStep("Render grabber null");
  source.Start(0, 25);
  EXPECT_EQ(state.log.Calls(), Behind(Behind(kDecompressorHead, Behind(wired, {"Render decoder by grabber null"})),
                                      Behind(kGrabberSteps, end)));
  EXPECT_TRUE(reports.Texts().empty());
}

TEST_F(DecompressorTest, EveryFailureHasItsText) {
  const struct {
    const char* step;
    const char* text;  // null: no text of its own
  } cases[] = {
      {"CreateGraph", nullptr},
      {"CreateCaptureBuilder", "Can't build DirectShow graph builder."},
      {"QueryMediaControl", "Can't obtain IMediaControl."},
      {"QueryMediaFilter", "Can't obtain IMediaControl."},
      {"SetFiltergraph", "Can't build DirectShow graph builder."},
      {"Create grabber", "Can't set video sample grabber."},
      {"SetBufferSamples grabber", "Can't set video sample grabber."},
      {"SetOneShot grabber", "Can't set video sample grabber."},
      {"SetCallback grabber", "Can't set video sample grabber."},
      {"SetMediaType grabber any", "Can't set video sample grabber format."},
      {"SetMediaType grabber rgb24", "Can't set video sample grabber format."},
      {"Create binary", "Can't set binary source filter."},
      {"Add BinarySource", "Can't set binary source filter."},
      {"Create source", "Can't set video source filter."},
      {"SetVideoSize 16 8 400000", "Can't set video source filter."},
      {"Add TmpVideoSource", "Can't set video source filter."},
      {"Create null", nullptr},
      {"Add NULL Renderer", nullptr},
      {"Add SampleGrabler", "Can't set video sample grabber."},
      {"Render binary grabber", "Can't render video output."},
      {"Run", "Can't start decompressor."},
  };
  for (const auto& failing : cases) {
    SCOPED_TRACE(failing.step);
    state.log.FailStep(failing.step);
    reports.Clear();
    source.Start(0, 25);
    EXPECT_FALSE(codec->IsRunning());
    EXPECT_EQ(state.live.load(), 0);
    const auto told = reports.All();
    if (failing.text == nullptr) {
      EXPECT_TRUE(told.empty());
    } else {
      ASSERT_EQ(told.size(), 1u);
      EXPECT_EQ(told[0].text, failing.text);
      EXPECT_EQ(told[0].code, 77);
      EXPECT_EQ(told[0].detail, std::string("the fake fails at ") + failing.step);
    }
    source.Send(384, 1);
    EXPECT_EQ(Came(), 0);  // dropped
    EXPECT_EQ(CountOf(sink.Log(), "v start 16 8 400000"), 0);
    source.Pin.Stop();
  }
}

TEST_F(DecompressorTest, ACompressorThatFailsIsTakenOutAgain) {
  AddCodec(codec->GetDecompressions(), "it");
  const struct {
    const char* step;
    Lines then;
  } cases[] = {
      {"Bind gst:element=it", {}},
      {"Add VideoCompressor", {}},
      {"Render source codec", {"Remove codec"}},
      {"Render codec grabber", {"Remove codec", "Remove grabber"}},
      {"SetStreamForm learnt", {"Remove codec", "Remove grabber", "Remove decoder"}},
      {"Render binary decoder", {"Remove codec", "Remove grabber", "Remove decoder"}},
  };
  for (const auto& failing : cases) {
    SCOPED_TRACE(failing.step);
    state.log.FailStep(failing.step);
    state.log.Clear();
    reports.Clear();
    source.Start(0, 25);
    EXPECT_TRUE(codec->IsRunning());
    Lines calls = state.log.Calls();
    calls.erase(calls.begin(), std::find(calls.begin(), calls.end(), failing.step) + 1);
    calls.resize(failing.then.size() + kGrabberSteps.size());
    EXPECT_EQ(calls, Behind(failing.then, kGrabberSteps));
    EXPECT_EQ(state.log.Count("SetStreamForm rgb24"), 1);
    EXPECT_EQ(reports.Texts(),
              (Lines{"The compressor 'it' can't be used, and no other; the stream is not compressed."}));
    source.Pin.Stop();
  }
}

TEST_F(DecompressorTest, NoFailingCallLeavesAnythingBehind) {
  AddCodec(codec->GetDecompressions(), "one");
  AddCodec(codec->GetDecompressions(), "two");
  for (int call = 1; call <= 60; ++call) {
    SCOPED_TRACE(call);
    state.log.Clear();
    state.log.FailAt(call);
    source.Start(0, 25);
    for (int i = 0; i < 5; ++i) source.Send(100, 1);
    if (call % 2 == 0) source.Pin.Stop();
    if (call % 3 == 0) source.Start(0, 50);
    source.Pin.Stop();
    EXPECT_FALSE(codec->IsRunning());
    EXPECT_EQ(state.live.load(), 0);
  }
}

// Frames follow each other from 0 on, each as long as its block, or as the start's rate says.
TEST_F(DecompressorTest, FramesHaveStampsAndNumbers) {
  source.Start(0, 20);
  source.Send(100, 7, 5000, 5100);
  source.Send(100, 8, 90000, 90300);
  source.Send(100, 9);
  source.Pin.Stop();
  const auto frames = sink.Frames();
  ASSERT_EQ(frames.size(), 3u);
  const std::int64_t ends[] = {0, 100, 400, 500400};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(frames[i].begin, ends[i]);
    EXPECT_EQ(frames[i].end, ends[i + 1]);
    EXPECT_EQ(frames[i].first, 7 + i);
    EXPECT_EQ(frames[i].frame, static_cast<int>(i));
    EXPECT_EQ(frames[i].number, static_cast<int>(i));
  }
  EXPECT_EQ(sink.Log(), (Lines{"v start 16 8 500000", "v frame", "v TJCRWResumeOperation", "v frame", "v frame",
                               "v TJCStopOperation"}));
  // Anew with each start; without a rate a block is a twenty-fifth of a second.
  source.Start(0, 0);
  source.Send(100, 1);
  source.Pin.Stop();
  EXPECT_EQ(sink.Frames().back().begin, 0);
  EXPECT_EQ(sink.Frames().back().end, 400000);
  EXPECT_EQ(sink.Frames().back().number, 0);
  EXPECT_EQ(CountOf(sink.Log(), "v TJCRWResumeOperation"), 2);
}

// Samples of any size become frames of the size: what is missing is black.
TEST_F(DecompressorTest, SamplesOfAnotherSizeFit) {
  for (const int rows : {0, 4, 20}) {
    state.height = rows;
    source.Start(0, 25);
    source.Send(10, 5);
    source.Pin.Stop();
    const SeenFrame frame = sink.Frames().back();
    EXPECT_EQ(frame.width, 16);
    EXPECT_EQ(frame.height, 8);
    EXPECT_EQ(frame.first, rows > 0 ? 5 : 0);
    EXPECT_EQ(frame.last, rows > 8 ? 5 : 0);
  }
}

TEST_F(DecompressorTest, TheGraphDoesNotRunAhead) {
  std::mutex gate;
  gate.lock();
  sink.on_op = [&](bool, IJCNotifyOperation& op) {
    if (JCOperation<TJCSuppliedBufferOperation>(op) != nullptr) const std::lock_guard wait(gate);
  };
  source.Start(0, 25);
  std::thread feeding([&] {
    for (int i = 0; i < 50; ++i) source.Send(100, 1);
  });
  sink.WaitForFrames(1);
  while (codec->GetQueued() < 1) std::this_thread::yield();
  EXPECT_LE(state.delivered.load(), 1);  // the second waits
  EXPECT_EQ(codec->GetQueued(), 1);
  gate.unlock();
  feeding.join();
  source.Pin.Stop();
  EXPECT_EQ(Came(), 50);
  EXPECT_EQ(sink.Log().back(), "v TJCStopOperation");
}

TEST_F(DecompressorTest, EveryWaitEnds) { EveryWaitEnds(); }

TEST_F(DecompressorTest, ABlockThatCannotBeSentIsToldOnce) {
  source.Start(0, 25);
  source.Send(0, 0);
  source.Send(0, 0);
  ASSERT_EQ(reports.All().size(), 1u);
  EXPECT_EQ(reports.All()[0].text, "a block can't be decompressed and is dropped");
  EXPECT_EQ(reports.All()[0].detail, "the block is empty");
  // Blocks that are larger than a sample go in pieces, the length in the first.
  source.Start(1, 25);
  const std::size_t before = state.Sent().size();
  source.Send(10000, 3, 0, 500);
  const auto sent = state.Sent();
  ASSERT_EQ(sent.size(), before + 3);
  EXPECT_EQ(sent[before].bytes.size() + sent[before + 1].bytes.size() + sent[before + 2].bytes.size(), 10000u);
  EXPECT_EQ(sent[before].end, 500);
  EXPECT_EQ(sent[before + 1].begin, 500);
  EXPECT_EQ(sent[before + 2].end, 500);
}

TEST(BinarySource, AnswersAsAPinDoes) {
  TMyFilter filter("BinarySource", TMyFilter::kClassId);
  EXPECT_EQ(filter.GetPinCount(), 1);
  EXPECT_EQ(filter.GetPin(0), &filter.Pin());
  EXPECT_EQ(filter.GetPin(1), nullptr);
  TMyBinarySourceStreamPin& pin = filter.Pin();
  PQStreamForm form, got;
  form.text = "something";
  EXPECT_EQ(pin.SetMediaType(nullptr), E_POINTER);
  EXPECT_EQ(pin.SetMediaType(&form), S_OK);
  EXPECT_EQ(pin.GetMediaType(-1, &got), E_INVALIDARG);
  EXPECT_EQ(pin.GetMediaType(1, &got), VFW_S_NO_MORE_ITEMS);
  EXPECT_TRUE(got.text.empty());
  EXPECT_EQ(pin.GetMediaType(0, &got), S_OK);
  EXPECT_EQ(got.text, "something");
  EXPECT_EQ(pin.CheckMediaType(nullptr), E_POINTER);
  EXPECT_EQ(pin.CheckMediaType(&form), S_OK);

  class Mean final : public TDSMemAllocator {
   public:
    HRESULT SetProperties(const ALLOCATOR_PROPERTIES& request, ALLOCATOR_PROPERTIES& actual) override {
      asked = request;
      actual = request;
      actual.cbBuffer = gives;
      return fails ? E_INVALIDARG : S_OK;
    }
    ALLOCATOR_PROPERTIES asked;
    int gives = 0;
    bool fails = false;
  } mean;
  ALLOCATOR_PROPERTIES request;
  pin.SetBlockSize(100);
  EXPECT_EQ(pin.DecideBufferSize(nullptr, &request), E_POINTER);
  mean.gives = 99;
  EXPECT_EQ(pin.DecideBufferSize(&mean, &request), E_FAIL);
  EXPECT_EQ(mean.asked.cBuffers, 1);
  EXPECT_EQ(mean.asked.cbBuffer, 100);
  mean.gives = 100;
  EXPECT_EQ(pin.DecideBufferSize(&mean, &request), S_OK);
  mean.fails = true;
  EXPECT_EQ(pin.DecideBufferSize(&mean, &request), E_INVALIDARG);

  PQPlatformResult result;
  const char byte = 1;
  EXPECT_FALSE(pin.Send(&byte, 1, 0, 1, true, result));  // not active
  EXPECT_EQ(pin.Active(nullptr, 1), E_POINTER);
  FakeCodecState state;
  ASSERT_EQ(pin.Active(std::make_shared<FakeCodecGraph>(state), 1), S_OK);
  EXPECT_TRUE(pin.Send(&byte, 1, 0, 1, true, result));
  EXPECT_FALSE(pin.Send(&byte, 0, 0, 1, true, result));
  state.log.FailStep("SendBlock");
  EXPECT_FALSE(pin.Send(&byte, 1, 0, 1, true, result));
  EXPECT_EQ(result.detail, "the fake fails at SendBlock");
  pin.Inactive();
  EXPECT_FALSE(pin.Send(&byte, 1, 0, 1, true, result));
}

TEST(CompressionItems, NameTheirFilter) {
  FakeCodecModule module;
  module.state.filters = {{"gst:element=aenc", "An encoder"}, {"gst:element=benc", "Another"}};
  const struct {
    const char* text;
    const char* moniker;
  } cases[] = {{"", ""},
               {"gst:element=x", "gst:element=x"},
               {"jpegenc", "gst:element=jpegenc"},
               {"avenc_h263p", "gst:element=avenc_h263p"},
               {"Another", "gst:element=benc"},
               {"No such name", "No such name"}};
  for (const auto& item : cases) EXPECT_EQ((TDSCompressionChoice{item.text, ""}).GetMoniker(), item.moniker);
  TJCObject lock;
  TPQDSVideoCompressionItems items(lock);
  AddCodec(items, "a");
  auto* item = items.GetItem(0);
  EXPECT_FALSE(item->SetSettings("quality").Ok());
  EXPECT_FALSE(item->SetSettings("a=1 a=2").Ok());
  EXPECT_TRUE(item->SetSettings("a=1 b='2 3'").Ok());
  EXPECT_EQ(items.Choices().at(0).settings, "a=1 b='2 3'");
  TPQDSVideoCompressionItems copy(lock);
  AddCodec(copy, "c");
  copy.Assign(items);
  ASSERT_EQ(copy.Choices().size(), 1u);
  EXPECT_EQ(copy.Choices()[0].compressor, "a");

  TPQDSCapDeviceList list;
  ASSERT_TRUE(list.EnumFilters(PQFilterCategory::VideoCompressors).Ok());
  ASSERT_EQ(list.GetCount(), 2);
  EXPECT_EQ(list.GetItem(1).name, "Another");
  EXPECT_EQ(list.GetMonikerByDeviceName("An encoder"), "gst:element=aenc");
  EXPECT_EQ(list.GetMonikerByString("gst:element=benc"), "gst:element=benc");
  EXPECT_EQ(list.GetMonikerByString("gst:element=cenc"), "");
  EXPECT_EQ(list.GetDeviceNameByString("gst:element=benc"), "Another");
  EXPECT_EQ(list.GetStringByDeviceName("nobody"), "");
}

// --- the real engine ------------------------------------------------------------------------------------------------

class RealCodecs : public ::testing::Test {
 protected:
  void SetUp() override {
    PQPlatformResult result;
    if (LoadMediaModule(result) == nullptr) GTEST_SKIP() << result.detail;
    Make();
  }
  void Make() {
    compressor = std::make_unique<TPQDSVideoCompressor>();
    decompressor = std::make_unique<TPQDSVideoDecompressor>();
    ASSERT_TRUE(compressor->InputPin.Connect(source.VideoPin).Ok());
    ASSERT_TRUE(decompressor->InputPin.Connect(compressor->OutputPin).Ok());
    ASSERT_TRUE(sink.VideoPin.Connect(decompressor->OutputPin).Ok());
    sink.on_op = [this](bool, IJCNotifyOperation& op) {
      auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op);
      if (supplied == nullptr) return;
      const auto image = PQMakeRef<TPQImageBuffer>(*supplied->Buffer);
      const std::lock_guard lock(mutex);
      came.emplace_back(image->Read(), image->Read() + image->GetByteSize());
    };
  }
  void Use(const std::string& name, const std::string& settings, int width, int height) {
    compressor->GetCompressions().Clear();
    decompressor->GetDecompressions().Clear();
    if (!name.empty()) {
      AddCodec(compressor->GetCompressions(), name, settings);
      AddCodec(decompressor->GetDecompressions(), name, settings);
    }
    decompressor->SetWidth(width);
    decompressor->SetHeight(height);
    went.clear();
    came.clear();
    begun = sink.Frames().size();
  }
  // A smooth picture that moves.
  void Send(int width, int height, int number) {
    auto image = PQMakeRef<TPQImageBuffer>(width, height, vfRGB24);
    std::uint8_t* pixel = image->Write();
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x, pixel += 3) {
        pixel[0] = static_cast<std::uint8_t>(40 + x * 170 / width);
        pixel[1] = static_cast<std::uint8_t>(40 + y * 170 / height);
        pixel[2] = static_cast<std::uint8_t>(128 + 60 * std::sin((x + y + 3 * number) * 0.05));
      }
    }
    image->GetTimeStamp().SetAvailable(true);
    image->GetTimeStamp().SetBegin(number * std::int64_t{400000});
    image->GetTimeStamp().SetEnd((number + 1) * std::int64_t{400000});
    image->GetSequenceStamp().SetBufferNumber(number);
    went.emplace_back(image->Read(), image->Read() + image->GetByteSize());
    source.VideoPin.SubmitBuffer(std::move(image));
  }
  // Decibel of the worst frame; 100 if all are equal.
  double Worst() {
    double worst = 100;
    for (std::size_t i = 0; i < std::min(went.size(), came.size()); ++i) {
      if (went[i].size() != came[i].size()) return 0;
      double sum = 0;
      for (std::size_t k = 0; k < went[i].size(); ++k) {
        const double difference = went[i][k] - came[i][k];
        sum += difference * difference;
      }
      if (sum > 0) worst = std::min(worst, 10 * std::log10(65025.0 * static_cast<double>(went[i].size()) / sum));
    }
    return worst;
  }
  Reports reports;
  StreamSource source;
  std::unique_ptr<TPQDSVideoCompressor> compressor;
  std::unique_ptr<TPQDSVideoDecompressor> decompressor;
  StreamSink sink;
  std::mutex mutex;
  std::vector<std::vector<std::uint8_t>> went, came;
  std::size_t begun = 0;
};

TEST_F(RealCodecs, FramesComeBackInOrderWithTheirStamps) {
  const struct {
    const char* name;
    const char* settings;
    double decibel;  // at the least
  } cases[] = {
      {"", "", 100},
      {"pngenc", "", 100},
      {"avenc_ffv1", "", 100},
      {"gst:element=avenc_huffyuv", "", 100},
      {"JPEG image encoder", "quality=95", 40},
      {"avenc_mpeg4", "", 33},
      {"avenc_mpeg4", "qmin=2 qmax=2", 34},
      {"avenc_wmv2", "", 33},
      {"x264enc", "", 34},
      {"vp8enc", "", 28},
  };
  for (const auto& codec : cases) {
    SCOPED_TRACE(std::string(codec.name) + " " + codec.settings);
    PQPlatformResult result;
    reports.Clear();
    for (int run = 0; run < 2; ++run) {  // and again
      Use(codec.name, codec.settings, 96, 64);
      source.StartVideo(96, 64);
      if (!reports.Texts().empty() && reports.All()[0].code == kPlatformMissing) break;  // not installed here
      for (int i = 0; i < 30; ++i) Send(96, 64, i);
      source.VideoPin.Stop();
      EXPECT_TRUE(reports.Texts().empty()) << reports.All()[0].text << ": " << reports.All()[0].detail;
      EXPECT_EQ(came.size(), 30u);
      EXPECT_GE(Worst(), codec.decibel);
      const auto frames = sink.Frames();
      for (std::size_t i = begun; i < frames.size(); ++i) {
        const auto number = static_cast<std::int64_t>(i - begun);
        EXPECT_EQ(frames[i].begin, number * 400000);
        EXPECT_EQ(frames[i].end, (number + 1) * 400000);
      }
      EXPECT_EQ(sink.Log().back(), "v TJCStopOperation");
    }
  }
}

// A size that the compressor refuses, a name that nobody knows, a filter that does not compress: the stream goes on, as
// it is, on both sides.
TEST_F(RealCodecs, WhatCannotBeUsedLeavesFramesAsTheyAre) {
  const struct {
    const char* name;
    const char* settings;
    int width, height;
    const char* detail;
  } cases[] = {
      {"avenc_wmv2", "", 33, 17, "avenc_wmv2 does not take 33 by 17 pixels"},
      {"nosuchenc", "", 32, 16, "the GStreamer element nosuchenc is not installed"},
      {"appsrc", "", 32, 16, "the GStreamer element appsrc does not compress video"},
      {"No such encoder", "", 32, 16, "'No such encoder' names no compressor; expected gst:element=NAME"},
  };
  for (const auto& codec : cases) {
    SCOPED_TRACE(codec.name);
    reports.Clear();
    Use(codec.name, codec.settings, codec.width, codec.height);
    source.StartVideo(codec.width, codec.height);
    for (int i = 0; i < 5; ++i) Send(codec.width, codec.height, i);
    source.VideoPin.Stop();
    EXPECT_EQ(came, went);
    ASSERT_EQ(reports.All().size(), 2u);
    for (const auto& told : reports.All()) {
      EXPECT_EQ(told.text, std::string("The compressor '") + codec.name +
                               "' can't be used, and no other; the stream is not compressed.");
      EXPECT_EQ(told.detail.rfind(codec.detail, 0), 0u) << told.detail;
    }
  }
  // Settings that do not exist are told with what there is.
  reports.Clear();
  Use("jpegenc", "qualty=3", 32, 16);
  source.StartVideo(32, 16);
  source.VideoPin.Stop();
  ASSERT_EQ(reports.All().size(), 2u);
  EXPECT_EQ(reports.All()[0].text, "The settings of 'jpegenc' can't be applied.");
  EXPECT_NE(reports.All()[0].detail.find("quality: an integer from 0 to 100"), std::string::npos);
}

TEST_F(RealCodecs, OddAndLargeAndYuy2) {
  const struct {
    const char* name;
    int width, height;
    TPQVideoFormat format;
  } cases[] = {{"pngenc", 3, 2, vfRGB24},           {"", 33, 17, vfRGB24},          {"x264enc", 33, 17, vfRGB24},
               {"pngenc", 33, 17, vfYUY2},          {"avenc_ffv1", 34, 18, vfYUY2}, {"jpegenc", 1281, 721, vfRGB24},
               {"avenc_huffyuv", 640, 360, vfRGB24}};
  for (const auto& shape : cases) {
    SCOPED_TRACE(std::string(shape.name) + " " + std::to_string(shape.width));
    reports.Clear();
    Use(shape.name, "", shape.width, shape.height);
    source.StartVideo(shape.width, shape.height, 400000, shape.format);
    for (int i = 0; i < 4; ++i) Send(shape.width, shape.height, i);
    source.VideoPin.Stop();
    EXPECT_TRUE(reports.Texts().empty()) << reports.All()[0].detail;
    ASSERT_EQ(came.size(), 4u);
    EXPECT_EQ(came[0].size(), went[0].size());
    EXPECT_GE(Worst(), shape.format == vfYUY2 ? 20 : 30);
  }
}

// Blocks that are no pictures, or stop in the middle.
TEST_F(RealCodecs, BadBlocksDoNotHang) {
  BlockSource blocks;
  for (const char* name : {"jpegenc", "pngenc", "avenc_ffv1", "avenc_mpeg4", "x264enc"}) {
    SCOPED_TRACE(name);
    Use(name, "", 64, 48);
    decompressor->InputPin.Disconnect();
    ASSERT_TRUE(decompressor->InputPin.Connect(blocks.Pin).Ok());
    blocks.Start(0, 25);
    for (int i = 0; i < 40; ++i) blocks.Send(1 + i * 37, static_cast<std::uint8_t>(i * 11));
    blocks.Pin.Stop();
    EXPECT_FALSE(decompressor->IsRunning());
    EXPECT_EQ(sink.Log().back(), "v TJCStopOperation");
  }
}

TEST_F(RealCodecs, EndsAtEveryTime) {
  for (int round = 0; round < 12; ++round) {
    SCOPED_TRACE(round);
    Use(round % 2 == 0 ? "jpegenc" : "x264enc", "", 96, 64);
    source.StartVideo(96, 64);
    std::atomic<bool> over{false};
    std::thread feeding([&] {
      for (int i = 0; !over.load() && i < 2000; ++i) source.SendFrame(96, 64, i);
    });
    sink.WaitForFrames(begun + static_cast<std::size_t>(round % 4));
    switch (round % 3) {
      case 0:
        StopUp(sink.VideoPin);
        break;
      case 1:
        decompressor.reset();
        break;
      default:
        compressor.reset();
        break;
    }
    over.store(true);
    feeding.join();
    Make();
  }
}

TEST_F(RealCodecs, AreListedAndTried) {
  TPQDSCapDeviceList list;
  ASSERT_TRUE(list.EnumFilters(PQFilterCategory::VideoCompressors).Ok());
  std::vector<std::string> names;
  for (int i = 0; i < list.GetCount(); ++i) {
    names.push_back(list.GetItem(i).name);
    EXPECT_EQ(list.GetStringByDeviceName(names.back()), list.GetItem(i).moniker);
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
  ASSERT_FALSE(list.GetDeviceNameByString("gst:element=jpegenc").empty());

  PQCompressorTrial trial;
  ASSERT_TRUE(PQTryCompressor("gst:element=pngenc", "", trial).Ok());
  EXPECT_TRUE(trial.Usable() && trial.lossless && trial.at_once);
  ASSERT_TRUE(PQTryCompressor("gst:element=jpegenc", "quality=50", trial).Ok());
  EXPECT_TRUE(trial.Usable() && !trial.lossless);
  const auto bytes = trial.bytes;
  ASSERT_TRUE(PQTryCompressor("gst:element=jpegenc", "quality=95", trial).Ok());
  EXPECT_GT(trial.bytes, bytes);
  EXPECT_FALSE(PQTryCompressor("gst:element=jpegenc", "quality=101", trial).Ok());
  EXPECT_FALSE(PQTryCompressor("gst:element=nosuchenc", "", trial).Ok());
  EXPECT_FALSE(trial.Usable());
}

}  // namespace
}  // namespace pantiq::test
