// Graphs as texts, as streams and as runs, with each of their allocations failing: what fails leaves the graph as it
// was, and goes well the next time.
#include <gtest/gtest.h>

#include <cstdio>

#include "Faults.h"
#include "pantiq/core/PQGraph.h"
#include "pantiq/core/PQGraphRun.h"
#include "pantiq/design/PQRegister.h"
#include "support/AnyBench.h"

namespace pantiq::test {
namespace {

constexpr const char* kBefore = "TPQJaehneGen Name=old ! TPQMirror Name=flip MirrorType=mtVertical";
constexpr const char* kLine =
    "TPQJaehneGen Name=gen ImageSize.Width=20 ImageSize.Height=12 ! TPQDelay '2' ! TPQColorSplit Name=split "
    "split.OutputPins.'Red' ! merge.InputPins.'Red' TPQColorMerge Name=merge ! TPQQueuedSwitch Name=turn "
    "InputChannels[0].Queuing.Enabled=true turn.OutputPin ! TPQTransparentColor TransparentColors[1].Color=$ff # end";

std::uint64_t SumOf(const std::string& text) {
  std::uint64_t sum = 0;
  for (const char c : text) sum = Mix(sum, static_cast<std::uint8_t>(c));
  return sum;
}

std::string TextOf(const PQGraph& graph) {
  const Undisturbed own;
  std::string text;
  const PQStatus status = graph.SaveText(text);
  return status.Ok() ? text : status.Text();
}

// A graph that held something, and what is to be done to it.
template <class Work>
void Change(Trial& trial, Work work) {
  const char* const name = "the change";
  std::unique_ptr<PQGraph> graph;
  std::string before;
  {
    const Undisturbed own;
    graph = std::make_unique<PQGraph>();
    std::vector<PQFault> faults;
    if (!graph->ParseLaunch(kBefore, faults)) ADD_FAILURE() << faults.front().text;
    before = TextOf(*graph);
  }
  bool done = false;
  const bool returned = trial.Step(name, [&] { done = work(*graph); });
  if (!returned || !done) {
    const Undisturbed own;
    if (!trial.Failed()) ADD_FAILURE() << "the change was refused";
    EXPECT_EQ(TextOf(*graph), before) << "what failed changed the graph";
  }
  if (trial.Persistent()) return;
  trial.Calm();
  if (!done) trial.Step("again", [&] { done = work(*graph); });
  trial.Saw(SumOf(TextOf(*graph)));
}

class Graphs : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    RegisterAll();
    PQGraph graph;
    std::vector<PQFault> faults;
    ASSERT_TRUE(graph.ParseLaunch(kLine, faults)) << faults.front().text;
    ASSERT_TRUE(graph.SaveText(text_).Ok());
    ASSERT_TRUE(graph.SaveBinary(bytes_).Ok());
  }
  static inline std::string text_;
  static inline std::vector<std::uint8_t> bytes_;
};

TEST_F(Graphs, AreParsedLoadedAndEdited) {
  EveryAllocation("a launch line", [](Trial& trial) {
    Change(trial, [](PQGraph& graph) {
      std::vector<PQFault> faults;
      return graph.ParseLaunch(kLine, faults);
    });
  });
  EveryAllocation("a graph file", [](Trial& trial) {
    Change(trial, [](PQGraph& graph) {
      std::vector<PQFault> faults;
      return graph.LoadText(text_, faults);
    });
  });
  EveryAllocation("a binary stream", [](Trial& trial) {
    Change(trial, [](PQGraph& graph) {
      std::vector<PQFault> faults;
      return graph.LoadBinary(bytes_, faults);
    });
  });
  EveryAllocation("a new component", [](Trial& trial) {
    Change(trial, [](PQGraph& graph) { return graph.Add(*PQFindClass("TPQColorMerge"), "more") != nullptr; });
  });
  EveryAllocation("a setting", [](Trial& trial) {
    Change(trial, [](PQGraph& graph) { return graph.Set("flip.MirrorType", "mtBoth").Ok(); });
  });
}

TEST_F(Graphs, WithFaultsAndWithoutAreTold) {
  EveryAllocation("a line with faults", [](Trial& trial) {
    std::uint64_t sum = 0;
    const auto check = [&] {
      sum = 0;
      for (const PQFault& fault :
           PQGraph::CheckLaunch("TPQJaehneGe ! TPQMirror MirrorTyp=1 ! TPQDelay FrameDelay=x ! y")) {
        const Undisturbed own;
        sum = Mix(sum, SumOf(PQFaultText(fault, "")));
      }
    };
    trial.Step("check", check);
    if (trial.Persistent()) return;
    trial.Calm();
    trial.Step("check again", check);
    trial.Saw(sum);
  });
}

TEST_F(Graphs, AreSavedAndDrawn) {
  EveryAllocation("the forms of a graph", [&](Trial& trial) {
    std::unique_ptr<PQGraph> graph;
    {
      const Undisturbed own;
      graph = std::make_unique<PQGraph>();
      std::vector<PQFault> faults;
      if (!graph->LoadText(text_, faults)) ADD_FAILURE() << faults.front().text;
    }
    std::uint64_t sum = 0;
    const auto save = [&] {
      std::string text;
      std::vector<std::uint8_t> bytes;
      const bool good = graph->SaveText(text).Ok() && graph->SaveBinary(bytes).Ok();
      sum = Mix(Mix(SumOf(text + graph->ToDot()), bytes.size()), good);
    };
    trial.Step("save", save);
    if (trial.Persistent()) return;
    trial.Calm();
    trial.Step("save again", save);
    trial.Saw(sum);
  });
  const std::string file = testing::TempDir() + "pantiq-faults-graph.pqg";
  EveryAllocation("a file that is saved", [&](Trial& trial) {
    std::unique_ptr<PQGraph> graph;
    {
      const Undisturbed own;
      graph = std::make_unique<PQGraph>();
      std::vector<PQFault> faults;
      if (!graph->ParseLaunch("TPQMirror Name=flip", faults)) ADD_FAILURE() << faults.front().text;
    }
    bool saved = false;
    const auto save = [&] { saved = graph->Save(file).Ok(); };
    trial.Step("save", save);
    if (trial.Persistent()) return;
    trial.Calm();
    trial.Step("save again", save);
    trial.Saw(saved);
  });
  std::remove(file.c_str());
}

TEST_F(Graphs, Run) {
  for (const bool measure : {false, true}) {
    EveryAllocation(measure ? "a measured run" : "a run", [&](Trial& trial) {
      std::unique_ptr<PQGraph> graph;
      {
        const Undisturbed own;
        graph = std::make_unique<PQGraph>();
        std::vector<PQFault> faults;
        const bool good = graph->ParseLaunch(
            "TPQJaehneGen Name=gen ImageSize.Width=20 ImageSize.Height=12 ! TPQDelay '2' ! TPQColorSplit Name=split "
            "split.OutputPins.'Red' ! merge.InputPins.'Red' TPQColorMerge Name=merge ! TPQMirror Name=flip",
            faults);
        if (!good) ADD_FAILURE() << faults.front().text;
      }
      std::int64_t frames = 0;
      bool failed = false;
      const auto run = [&] {
        PQRunOptions options;
        options.frames = 3, options.measure = measure, options.progress_every = 60;
        PQGraphRun the_run(*graph, options);
        if (!the_run.At(0.04, "flip.MirrorType=mtBoth").Ok()) throw std::logic_error("the moment is refused");
        const PQRunResult result = the_run.Run();
        frames = result.frames;
        failed = !result.status.Ok();
      };
      trial.Step("run", run);
      if (trial.Persistent()) return;
      trial.Calm();
      trial.Step("run again", run);
      trial.Saw(static_cast<std::uint64_t>(frames) * 2 + failed);
    });
  }
}

}  // namespace
}  // namespace pantiq::test
