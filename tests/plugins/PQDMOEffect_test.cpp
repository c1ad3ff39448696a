#include "pantiq/plugins/PQDMOEffect.h"

#include <gtest/gtest.h>

#include "filters/Chain.h"
#include "pantiq/core/PQFramePool.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/host/PQTextStream.h"
#include "pantiq/plugins/PQDmoSelectForm.h"
#include "support/FakeEffects.h"

namespace pantiq {
namespace {

using Strings = std::vector<std::string>;

std::vector<int> InvertedBytes(const IPQImageBuffer& frame) {
  std::vector<int> bytes = Bytes(frame);
  for (int& byte : bytes) byte = 255 - byte;
  return bytes;
}

struct DMOEffect : testing::Test {
  DMOEffect() {
    SetReportListener([this](const PQReportEntry& entry) {
      EXPECT_EQ(entry.component, &chain.filter);
      EXPECT_NE(entry.severity, PQSeverity::Error);
      told.push_back(entry.text + " | " + entry.detail);
    });
  }
  ~DMOEffect() override { SetReportListener({}); }

  void Start(int width = 6, int height = 4) { chain.source.Start(width, height); }
  void Stop() { chain.source.OutputPin.Stop(); }
  // True if one line was told that has all of the texts; forgets what was told.
  testing::AssertionResult Told(const Strings& texts) {
    const Strings lines = std::exchange(told, {});
    for (const std::string& line : lines) {
      const auto has = [&line](const std::string& text) { return line.find(text) != std::string::npos; };
      if (std::all_of(texts.begin(), texts.end(), has)) {
        return lines.size() == 1 ? testing::AssertionSuccess()
                                 : testing::AssertionFailure() << lines.size() << " lines";
      }
    }
    auto failure = testing::AssertionFailure() << "not told:";
    for (const std::string& line : lines) failure << "\n" << line;
    return failure;
  }
  // Sends a frame that others hold too; tells what became of it.
  enum class Outcome { Passed, Inverted, Other };
  Outcome Send(int width = 6, int height = 4, int first = 0) {
    const PQImageRef frame = MakeFrame(width, height, vfRGB24, first);
    const std::vector<int> before = Bytes(*frame);
    frame->GetTimeCode().SetFrame(first + 7);
    const PQImageRef out = chain.Send(frame);
    EXPECT_EQ(Bytes(*frame), before) << "the source's frame was written to";
    EXPECT_EQ(out->GetTimeCode().GetFrame(), first + 7);
    if (Bytes(*out) == before) return out->Read() == frame->Read() ? Outcome::Passed : Outcome::Other;
    return Bytes(*out) == InvertedBytes(*frame) ? Outcome::Inverted : Outcome::Other;
  }

  test::FakeEffectModule module;
  test::FakeEffectState& fake = module.state;
  Chain<TPQDMOEffect> chain;
  Strings told;
};
using enum DMOEffect::Outcome;

TEST_F(DMOEffect, TakesTheStepsInOrderAndWorksInACopyOfItsOwn) {
  chain.filter.SetDmoName("Invert");
  chain.filter.SetSettings("a=1");
  EXPECT_EQ(fake.log.Calls(), Strings{}) << "nothing is looked up before it is needed";
  Start();
  EXPECT_EQ(fake.log.Calls(),
            (Strings{"CreateEffects", "Enumerate", "CreateEffects", std::string("Create ") + test::kFakeId,
                     "GetStreamCount", "SetSettings a=1", "SetInputType 6x4", "SetOutputType 6x4"}));
  EXPECT_EQ(Send(), Inverted);
  EXPECT_EQ(fake.seen, chain.sink.last->Read()) << "in the memory of the frame that goes on";
  EXPECT_EQ(told, Strings{});
  Stop();
  EXPECT_EQ(fake.live, 0);
  EXPECT_EQ(Send(), Passed) << "stopped";
}

TEST_F(DMOEffect, ByCopyTheResultIsTakenOverWhereItLies) {
  fake.way = PQEffectWay::Copy;
  chain.filter.SetDmoName("Invert");
  Start();
  const auto copied = PQFramePool::CopiedBytes();
  const PQImageRef frame = MakeFrame(6, 4);
  EXPECT_EQ(Bytes(*chain.Send(frame)), InvertedBytes(*frame));
  EXPECT_EQ(fake.seen, frame->Read());
  EXPECT_EQ(PQFramePool::CopiedBytes(), copied);
  fake.own_memory = false;
  EXPECT_EQ(Send(), Inverted);
  EXPECT_NE(chain.sink.last->Read(), fake.kept.data());
  fake.cut = 1;
  EXPECT_EQ(Send(), Passed) << "less than a frame is no frame";
  fake.own_memory = true;
  EXPECT_EQ(Send(), Inverted) << "memory of the frame's size is whole";
  EXPECT_TRUE(Told({"failed on a frame", "less than a whole frame"}));
}

TEST_F(DMOEffect, WithoutWorkTheFrameItselfGoesOn) {
  fake.way = PQEffectWay::Untouched;
  chain.filter.SetDmoName("Invert");
  Start();
  EXPECT_EQ(Send(), Passed);
  EXPECT_EQ(fake.log.Count("Process"), 0);
}

// Every step of the way fails once, in both ways of working, by failing and by throwing.
TEST_F(DMOEffect, AnyFailureLetsFramesPassAndIsToldOnce) {
  struct Case {
    const char* step;
    PQEffectWay way;
    Outcome failing, throwing;
  };
  const std::string create = std::string("Create ") + test::kFakeId;
  const Case cases[] = {
      {"CreateEffects", PQEffectWay::InPlace, Passed, Passed},
      {"Enumerate", PQEffectWay::InPlace, Passed, Passed},
      {create.c_str(), PQEffectWay::InPlace, Passed, Passed},
      {"GetStreamCount", PQEffectWay::InPlace, Passed, Passed},
      {"SetSettings ", PQEffectWay::InPlace, Passed, Passed},
      {"SetInputType 6x4", PQEffectWay::InPlace, Passed, Passed},
      {"SetOutputType 6x4", PQEffectWay::InPlace, Passed, Passed},
      {"Process", PQEffectWay::InPlace, Inverted, Passed},  // in place what was done stands
      {"ProcessInput", PQEffectWay::Copy, Passed, Passed},
      {"ProcessOutput", PQEffectWay::Copy, Passed, Passed},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.step);
    const bool in_frames = std::string(c.step).starts_with("Process");
    fake.way = c.way;
    chain.filter.SetDmoName("");
    chain.filter.SetDmoName("Invert");  // looked up anew
    fake.log.FailStep(c.step);
    Start();
    EXPECT_EQ(Send(), c.failing);
    EXPECT_EQ(Send(), c.failing);
    EXPECT_TRUE(Told({std::string("the fake fails at ") + c.step, in_frames ? "failed on a frame" : "frames pass"}));
    EXPECT_EQ(fake.live, in_frames ? 1 : 0);
    fake.log.FailStep("");
    EXPECT_EQ(Send(), in_frames ? Inverted : Passed) << "the effect stays, or is missing until the next start";

    for (std::string* thrown : {&fake.throw_step, &fake.throw_any_step}) {
      chain.filter.SetDmoName("");
      chain.filter.SetDmoName("Invert");
      *thrown = c.step;
      Start();
      EXPECT_EQ(Send(), c.throwing);
      *thrown = "";
      EXPECT_EQ(Send(), Passed) << "no effect until the next start";
      EXPECT_EQ(fake.live, 0);
      EXPECT_TRUE(Told({"frames pass"}));
    }
    Start();
    EXPECT_EQ(Send(), Inverted);
    EXPECT_EQ(told, Strings{});
    Stop();
  }
}

TEST_F(DMOEffect, OnlyOneInputAndOneOutputWillDo) {
  chain.filter.SetDmoName("Invert");
  for (const auto& [inputs, outputs] : {std::pair{2, 1}, {1, 2}, {0, 1}, {1, 0}}) {
    fake.inputs = inputs, fake.outputs = outputs;
    Start();
    EXPECT_EQ(fake.live, 0);
    EXPECT_EQ(Send(), Passed);
    EXPECT_TRUE(Told({"cannot be used", "only one of each"}));
  }
}

TEST_F(DMOEffect, SizesOfFramesAndStarts) {
  chain.filter.SetDmoName("Invert");
  Start();
  EXPECT_EQ(Send(), Inverted);
  EXPECT_EQ(Send(6, 5), Passed);
  EXPECT_EQ(Send(5, 4), Passed);
  EXPECT_TRUE(Told({"another size", "6 by 5", "6 by 4"})) << "once";
  EXPECT_EQ(Send(8, 3), Inverted) << "as many bytes: not told to the effect";
  EXPECT_EQ(Send(), Inverted);
  EXPECT_EQ(fake.log.Count("Process"), 3);
  fake.log.Clear();
  Start(5, 4);  // without a stop: another effect, for the new size
  EXPECT_EQ(fake.live, 1);
  EXPECT_EQ(fake.log.Count("SetInputType 5x4"), 1);
  EXPECT_EQ(Send(), Passed);
  EXPECT_EQ(Send(5, 4), Inverted);
  chain.filter.SetDmoName("nothing has this name");
  EXPECT_EQ(Send(5, 4), Inverted) << "acts at the next start";
  Start(5, 4);
  EXPECT_EQ(fake.live, 0);
  EXPECT_EQ(Send(5, 4), Passed);
}

TEST_F(DMOEffect, GrayFramesBecomeColourWithAndWithoutAnEffect) {
  const PQImageRef gray = Frame({10, 200}, 2, 1, vfGrayScale);
  EXPECT_EQ(Bytes(*chain.Send(gray)), (std::vector<int>{10, 10, 10, 200, 200, 200}));
  chain.filter.SetDmoName("Invert");
  Start(2, 1);
  EXPECT_EQ(Bytes(*chain.Send(gray)), (std::vector<int>{245, 245, 245, 55, 55, 55}));
  EXPECT_EQ(Bytes(*gray), (std::vector<int>{10, 200}));
  chain.filter.SetEnabled(false);
  EXPECT_EQ(Send(2, 1), Passed);
}

TEST_F(DMOEffect, SettingsChangeBetweenFrames) {
  chain.filter.SetDmoName("Invert");
  Start();
  Send();
  fake.log.Clear();
  chain.filter.SetSettings("hue=0.5");
  Send(), Send();
  EXPECT_EQ(fake.log.Calls(), (Strings{"SetSettings hue=0.5", "Process", "Process"}));
  fake.log.FailStep("SetSettings hue=x");
  chain.filter.SetSettings("hue=x");
  EXPECT_EQ(Send(), Inverted);
  EXPECT_EQ(Send(), Inverted);
  EXPECT_TRUE(Told({"goes on as it was set before", "Settings: the fake fails"}));
  fake.throw_step = "SetSettings bad";
  chain.filter.SetSettings("bad");
  EXPECT_EQ(Send(), Passed);
  EXPECT_EQ(fake.live, 0);
}

TEST_F(DMOEffect, NamesAreComparedExactlyAndTheFirstCounts) {
  EXPECT_EQ(PQGuidToText(TPQDMOEffect::ClassIdFromName("Invert")), test::kFakeId);
  for (const char* name : {"invert", "Inver", "Invert ", "", "INVERT"}) {
    EXPECT_TRUE(PQSameGuid(TPQDMOEffect::ClassIdFromName(name), GUID_NULL)) << name;
  }
  Strings names = {"here before"};
  EXPECT_TRUE(TPQDMOEffect::GetDmoNames(names).Ok());
  EXPECT_EQ(names, (Strings{"here before", "Another", "Invert", "Invert"}));
  fake.log.FailStep("Enumerate");
  EXPECT_FALSE(TPQDMOEffect::GetDmoNames(names).Ok());
  fake.log.FailStep("");
  const std::pair<const char*, const char*> cases[] = {
      {"Invrt", "'Invert'"}, {"another", "'Another'"}, {"xyz", "more come with"}};
  for (const auto& [name, says] : cases) {
    chain.filter.SetDmoName(name);
    Start();
    EXPECT_EQ(Send(), Passed);
    EXPECT_TRUE(Told({std::string("no effect named '") + name + "'", says, "one-package, two-package"}));
  }
}

TEST_F(DMOEffect, TheStoredFormKeepsWhatThisMachineDoesNotKnow) {
  TPQDMOEffect& filter = chain.filter;
  const auto text_of = [&filter] {
    const std::string text = PQWriteText(filter);
    return text.substr(0, text.find("InputPin"));
  };
  const PQProperty* info = TPQDMOEffect::Class().Find("DMOInfo");
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(text_of(), "DMOInfo = ('{00000000-0000-0000-0000-000000000000}' '')\n");
  const std::string stored = "('{0481bcb6-5276-5fb3-9d86-3a9e130f5d19}' 'a name from elsewhere')";
  PQValue value;
  ASSERT_TRUE(PQParseValue(*info, stored, value).Ok());
  ASSERT_TRUE(PQSetProperty(filter, *info, value).Ok());
  EXPECT_EQ(filter.GetDmoName(), "a name from elsewhere");
  EXPECT_EQ(fake.log.Calls(), Strings{}) << "read without a look";
  const std::string text = text_of();
  EXPECT_EQ(text,
            "DMOName = 'a name from elsewhere'\nDMOInfo = ('{0481BCB6-5276-5FB3-9D86-3A9E130F5D19}' "
            "'a name from elsewhere')\n");
  Start();
  EXPECT_EQ(Send(), Inverted) << "the identifier counts";
  filter.SetDmoName("a name from elsewhere");
  Start();
  EXPECT_EQ(Send(), Inverted) << "the same name changes nothing";

  for (const char* bad :
       {"()", "('{0481BCB6-5276-5FB3-9D86-3A9E130F5D19}')", "(1 2)", "('x' 'y')",
        "('{0481BCB6-5276-5FB3-9D86-3A9E130F5D1}' 'y')", "('{0481BCB6-5276-5FB3-9D86-3A9E130F5DXX}' 'y')",
        "('0481BCB6-5276-5FB3-9D86-3A9E130F5D1900' 'y')", "('{0481BCB6-5276-5FB3-9D86-3A9E130F5D19}' 'y' 'z')"}) {
    ASSERT_TRUE(PQParseValue(*info, bad, value).Ok()) << bad;
    EXPECT_FALSE(PQSetProperty(filter, *info, value).Ok()) << bad;
  }
  EXPECT_EQ(text_of(), text) << "what is refused changes nothing";
  const auto read = [&](const char* stored_form) {
    ASSERT_TRUE(PQParseValue(*info, stored_form, value).Ok());
    ASSERT_TRUE(PQSetProperty(filter, *info, value).Ok());
  };
  read("('{FFFFFFFF-5276-5FB3-9D86-3A9E130F5D19}' 'Invert')");
  EXPECT_EQ(filter.WriteData()[0], PQValue("{FFFFFFFF-5276-5FB3-9D86-3A9E130F5D19}")) << "the name's own is another";
  read("('{00000000-0000-0000-0000-000000000000}' 'Invert')");
  Start();
  EXPECT_EQ(Send(), Inverted) << "a name stored where nothing had it is looked up";
  filter.SetDmoName("Another");
  EXPECT_EQ(filter.WriteData()[0], PQValue("{00000000-0000-0000-0000-000000000001}"));
}

TEST_F(DMOEffect, AMissingModuleIsToldAtTheStart) {
  struct NoEffects final : PQMediaModule {
    std::unique_ptr<PQMediaReader> CreateReader(PQPlatformResult&) override { return nullptr; }
    std::unique_ptr<PQMediaGraph> CreateGraph(PQPlatformResult&) override { return nullptr; }
    PQPlatformResult ResolveProfile(const PQRecordingRequest&, PQRecordingProfile&) override { return {}; }
  } none;
  SetMediaModule(&none);
  chain.filter.SetDmoName("Invert");
  Start();
  EXPECT_EQ(Send(), Passed);
  EXPECT_TRUE(Told({"frames pass", "this media module has no effects"}));
  SetMediaModule(&module);
  Start();
  EXPECT_EQ(Send(), Inverted) << "found when it is there";
}

TEST_F(DMOEffect, TheDialogSetsWhatWasAccepted) {
  struct Form final : THTDSDmoSelectForm {
    bool accept;
    int index;
    std::string* shown;
    Form(bool a, int i, std::string* s) : accept(a), index(i), shown(s) {}
    bool Execute(const std::string& name) override {
      *shown = name + "/" + std::to_string(Items.size());
      ItemIndex = index;
      return accept;
    }
  };
  EXPECT_FALSE(chain.filter.ShowDmoSelectDialog());
  EXPECT_TRUE(Told({"no dialog"}));
  std::string shown;
  chain.filter.SetDmoName("Another");
  const std::tuple<bool, int, bool, const char*> cases[] = {{false, 1, false, "Another"},
                                                            {true, -1, false, "Another"},
                                                            {true, 3, false, "Another"},
                                                            {true, 1, true, "Invert"}};
  for (const auto& [accept, index, answer, name] : cases) {
    SetDmoSelectForm([accept, index, &shown] { return std::make_unique<Form>(accept, index, &shown); });
    EXPECT_EQ(chain.filter.ShowDmoSelectDialog(), answer);
    EXPECT_EQ(chain.filter.GetDmoName(), name);
    EXPECT_EQ(shown, "Another/3");
  }
  SetDmoSelectForm({});
}

}  // namespace
}  // namespace pantiq
