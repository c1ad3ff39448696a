#include "pantiq/core/PQGraphRun.h"

#include <gtest/gtest.h>

#include <thread>

#include "pantiq/filters/PQJaehneGen.h"
#include "pantiq/filters/PQMirror.h"
#include "pantiq/filters/PQUniformNoise.h"
#include "pantiq/host/PQRegistry.h"
#include "tests/core/TestComponents.h"

namespace pantiq {
namespace {

struct Notes : IPQRunObserver {
  std::vector<std::string> notes;
  int started = 0, progress = 0;
  std::function<void()> on_progress;
  void OnStarted() override { ++started; }
  void OnNote(const std::string& text) override { notes.push_back(text); }
  void OnProgress(const PQRunProgress&) override {
    ++progress;
    if (on_progress) on_progress();
  }
};

// A source that sends its frames on a thread of its own and then ends, like a reader of a file.
class Reader final : public TComponent {
 public:
  explicit Reader(TComponent* owner = nullptr)
      : TComponent(owner), OutputPin(*this, JCDispatch::To<&Reader::Dispatch>(this)) {}
  ~Reader() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info = PQDescribe<Reader>("Reader", "PQGraphRun_test", "Ends by itself.")
                                         .Inherits<TComponent>()
                                         .Pin("OutputPin", &Reader::OutputPin)
                                         .Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TPQJCImageSourcePin OutputPin;
  int frames = 50;
  std::atomic<int> starts{0}, stops{0};

 private:
  void BeforeDestruction() override {
    End();
    OutputPin.Disconnect();
  }
  void End() {
    ending_ = true;
    if (thread_.joinable()) thread_.join();
    ending_ = false;
  }
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    if (JCOperation<TJCStartSampleRateOperation>(op) != nullptr && frames > 0) {
      ++starts;
      End();
      OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(8, 4, 400000, vfRGB24));
      thread_ = std::thread([this] {
        for (int i = 0; i < frames && !ending_; ++i) {
          PQImageRef frame = MakeFrame(8, 4);
          frame->GetTimeStamp().SetAvailable(true);
          frame->GetTimeStamp().SetBegin(i * 400000);
          frame->GetTimeStamp().SetEnd((i + 1) * 400000);
          OutputPin.SubmitBuffer(frame);
        }
        if (!ending_) OutputPin.Stop();
      });
    } else if (JCOperation<TJCStopOperation>(op) != nullptr) {
      ++stops;
      End();
    }
    return {};
  }
  std::thread thread_;
  std::atomic<bool> ending_{false};
};

template <class T>
T* Add(PQGraph& graph, const std::string& name) {
  PQStatus status;
  auto* made = static_cast<T*>(graph.Add(T::Class(), name, &status));
  EXPECT_NE(made, nullptr) << status.Text();
  return made;
}

int Count(const TestSink& sink, const std::string& what) {
  return static_cast<int>(std::count_if(sink.log.begin(), sink.log.end(),
                                        [&](const std::string& line) { return line.rfind(what, 0) == 0; }));
}

TEST(PQGraphRun, AGeneratorIsAskedForJustTheFramesThatAreWanted) {
  PQGraph graph;
  auto* gen = Add<TPQJaehneGen>(graph, "gen");
  Add<TPQMirror>(graph, "mirror");
  auto* sink = Add<TestSink>(graph, "sink");
  ASSERT_TRUE(graph.Connect("gen.OutputPin", "mirror.InputPin").Ok());
  ASSERT_TRUE(graph.Connect("mirror.OutputPin", "sink.InputPin").Ok());
  gen->SetRate(0.5);  // two seconds a frame, were it not asked
  for (int run = 0; run < 2; ++run) {  // and again
    sink->log.clear();
    Notes notes;
    PQRunOptions options;
    options.frames = 100;
    options.measure = true;
    PQRunResult result = PQGraphRun(graph, options, &notes).Run();
    EXPECT_TRUE(result.status.Ok()) << result.status.Text();
    EXPECT_EQ(result.frames, 100);
    EXPECT_EQ(Count(*sink, "frame"), 100);
    EXPECT_EQ(Count(*sink, "TJCStartFrameOperation"), 1);
    EXPECT_EQ(sink->log.back(), "TJCStopOperation");
    EXPECT_EQ(Count(*sink, "TJCStopOperation"), 1);
    EXPECT_EQ(notes.started, 1);
    EXPECT_TRUE(notes.notes.empty());
    ASSERT_EQ(result.times.size(), 3u);
    EXPECT_EQ(result.times[1].class_name, "TPQMirror");
    EXPECT_EQ(result.times[1].frames, 100);
    EXPECT_GT(result.times[0].seconds, 0) << "the generator's own time";
    EXPECT_GT(result.times[1].seconds, 0);
  }
}

TEST(PQGraphRun, LimitsByTimeAndLeavesOutTheBeginning) {
  PQGraph graph;
  Add<TPQJaehneGen>(graph, "gen");
  auto* sink = Add<TestSink>(graph, "sink");
  ASSERT_TRUE(graph.Connect("gen.OutputPin", "sink.InputPin").Ok());
  PQRunOptions options;
  options.seconds = 1.0;
  options.from = 0.4;
  EXPECT_EQ(PQGraphRun(graph, options).Run().frames, 25);
  EXPECT_EQ(sink->last->GetTimeCode().GetFrame(), 34);
}

TEST(PQGraphRun, ASourceThatEndsEndsTheRun) {
  PQGraph graph;
  auto* reader = Add<Reader>(graph, "reader");
  auto* one = Add<TestSink>(graph, "one");
  auto* two = Add<TestSink>(graph, "two");
  ASSERT_TRUE(graph.Connect("reader.OutputPin", "one.InputPin").Ok());
  ASSERT_TRUE(graph.Connect("reader.OutputPin", "two.InputPin").Ok());
  PQRunResult result = PQGraphRun(graph, {}).Run();
  EXPECT_EQ(result.frames, 50);
  EXPECT_EQ(Count(*one, "frame"), 50);
  EXPECT_EQ(Count(*two, "frame"), 50);
  EXPECT_EQ(reader->starts, 1) << "one start, though there are two sinks";
  EXPECT_EQ(Count(*two, "TJCStopOperation"), 1);
  EXPECT_FALSE(result.stopped);

  PQRunOptions options;
  options.frames = 7;
  reader->frames = 100000000;
  one->log.clear();
  result = PQGraphRun(graph, options).Run();
  EXPECT_EQ(Count(*one, "frame"), 7);
  EXPECT_EQ(one->log.back(), "TJCStopOperation") << "the sink is closed";
  EXPECT_GE(reader->stops, 1);
}

TEST(PQGraphRun, StopsFailsAndSaysSo) {
  PQGraph graph;
  auto* gen = Add<TPQJaehneGen>(graph, "gen");
  auto* sink = Add<TestSink>(graph, "sink");
  ASSERT_TRUE(graph.Connect("gen.OutputPin", "sink.InputPin").Ok());
  gen->SetRate(200);
  Notes notes;
  PQRunOptions options;
  options.realtime = true;
  options.progress_every = 0.01;
  {
    PQGraphRun run(graph, options, &notes);
    notes.on_progress = [&] {
      if (notes.progress == 3) run.RequestStop();
    };
    PQRunResult result = run.Run();
    EXPECT_TRUE(result.stopped);
    EXPECT_TRUE(result.status.Ok());
    ASSERT_EQ(notes.notes.size(), 1u);
    EXPECT_NE(notes.notes[0].find("gen has no end"), std::string::npos);
    EXPECT_EQ(sink->log.back(), "TJCStopOperation");
  }
  {
    PQGraphRun run(graph, options, &notes);
    notes.on_progress = [&] {
      run.Fail({PQCode::Io, "the disk is full"});
      run.Fail({PQCode::Io, "later"});
    };
    PQRunResult result = run.Run();
    EXPECT_EQ(result.status.Text(), "the disk is full");
    EXPECT_EQ(sink->log.back(), "TJCStopOperation");
  }
  {
    PQGraphRun run(graph, options);
    run.RequestStop();
    EXPECT_TRUE(run.Run().stopped);
  }
}

TEST(PQGraphRun, NothingToRunIsAnAnswer) {
  PQGraph graph;
  EXPECT_NE(PQGraphRun(graph, {}).Run().status.Text().find("no source"), std::string::npos);
  auto* reader = Add<Reader>(graph, "reader");
  Add<TestSink>(graph, "sink");
  ASSERT_TRUE(graph.Connect("reader.OutputPin", "sink.InputPin").Ok());
  reader->frames = 0;
  EXPECT_NE(PQGraphRun(graph, {}).Run().status.Text().find("no source answered"), std::string::npos);
}

}  // namespace
}  // namespace pantiq
