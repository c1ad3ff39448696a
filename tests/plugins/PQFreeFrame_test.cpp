#include "pantiq/plugins/PQFreeFrame.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <thread>

#include "pantiq/core/PQFramePool.h"
#include "pantiq/host/PQTextStream.h"
#include "pantiq/plugins/PQPluginProcess.h"
#include "support/PluginBench.h"

namespace pantiq {
namespace {

using test::Bits;
using test::Example;
using test::PluginBench;
using test::Script;
using test::Strings;

// Inverts what FF_PROCESSFRAME brings, `bytes` of it.
auto Inverting(std::size_t bytes) {
  return [bytes](std::uint32_t code, std::uintptr_t input, std::uintptr_t) -> std::optional<std::uintptr_t> {
    if (code != FF_PROCESSFRAME) return std::nullopt;
    auto* const to = reinterpret_cast<std::uint8_t*>(input);
    for (std::size_t i = 0; i < bytes; ++i) to[i] = static_cast<std::uint8_t>(255 - to[i]);
    return FF_SUCCESS;
  };
}

// One row of these bytes.
PQImageRef Frame(const std::vector<int>& bytes) {
  PQImageRef frame = PQMakeRef<TPQImageBuffer>(static_cast<int>(bytes.size() / 3), 1, vfRGB24);
  std::copy(bytes.begin(), bytes.end(), frame->Write());
  return frame;
}

std::vector<int> Complement(std::vector<int> bytes) {
  for (int& byte : bytes) byte = 255 - byte;
  return bytes;
}

TEST(PQFreeFrame, CallsThePlugInInOrderFromTheFileToTheStop) {
  Script script;
  script.parameters = {{FF_TYPE_STANDARD, "Speed", Bits(0.5f)}};
  PluginBench b;
  const Strings load = {"13 0", "10 0", "10 1", "10 2", "10 3", "10 10", "10 11", "10 15", "1 0"};
  b.effect.SetFilterFileName(Script::File());
  Strings expected = load;
  for (const char* call : {"4 0", "15 0", "5 0", "6 0"}) expected.push_back(call);
  EXPECT_EQ(script.Take(), expected);
  b.Start(64, 48);
  expected = {"2 0"};
  expected.insert(expected.end(), load.begin(), load.end());
  for (const char* call : {"11 64x48 depth 1 of 2", "8 [0]=0.5 on 77", "9 0 on 77"}) expected.push_back(call);
  EXPECT_EQ(script.Take(), expected);
  EXPECT_EQ(b.sink.log, Strings{"TJCStartFrameOperation 64x48 400000 0"});
  b.Send(64, 48);
  EXPECT_EQ(script.Take(), Strings{"3 on 77"});
  b.Stop();
  EXPECT_EQ(script.Take(), Strings{"2 0"});
  EXPECT_EQ(b.sink.log.back(), "TJCStopOperation");
  EXPECT_FALSE(b.effect.HasPlugIn());
  EXPECT_EQ(b.effect.Execute(FF_GETNUMPARAMETERS, 0), 0u) << "no library, no call";
  b.effect.GetParameters().GetItem(0)->SetAsSingle(0.25f);
  EXPECT_EQ(script.Take(), Strings{}) << "nor for a parameter, whose value stands";
  b.Start(8, 8);
  expected = load;
  for (const char* call : {"11 8x8 depth 1 of 2", "8 [0]=0.25 on 77", "9 0 on 77"}) expected.push_back(call);
  EXPECT_EQ(script.Take(), expected) << "a start loads anew and sends the values";
  EXPECT_EQ(b.told, Strings{});
}

TEST(PQFreeFrame, AnEndWithoutAStopLeavesOutTheGoodbye) {
  Script script;
  {
    PluginBench b;
    b.effect.SetFilterFileName(Script::File());
    b.Start();
    script.Take();
  }
  EXPECT_EQ(script.Take(), Strings{});
}

TEST(PQFreeFrame, InPlaceCostsTheOneDetach) {
  Script script;
  script.on_call = Inverting(6 * 4 * 3);
  PluginBench b;
  b.effect.SetFilterFileName(Script::File());
  b.Start();
  const PQImageRef frame = MakeFrame(6, 4);
  frame->GetTimeCode().SetFrame(9);
  frame->GetTimeStamp().SetBegin(1234);
  const auto copied = PQFramePool::CopiedBytes();
  const PQImageRef out = b.Send(frame);
  EXPECT_EQ(PQFramePool::CopiedBytes() - copied, 6u * 4 * 3);
  EXPECT_EQ(Bytes(*out), Complement(Bytes(*frame)));
  EXPECT_EQ(out->GetTimeCode().GetFrame(), 9);
  EXPECT_EQ(out->GetTimeStamp().GetBegin(), 1234);
}

TEST(PQFreeFrame, A32BitPlugInCostsTheTwoConversions) {
  for (const int fill : {0x11, 0xEE}) {
    PQFramePool::SetFillByte(fill);
    Script script;
    script.caps[FF_CAP_24BITVIDEO] = 0, script.caps[FF_CAP_32BITVIDEO] = FF_TRUE;
    std::vector<int> fourth;
    script.on_call = [&](std::uint32_t code, std::uintptr_t input, std::uintptr_t) -> std::optional<std::uintptr_t> {
      if (code != FF_PROCESSFRAME) return std::nullopt;
      auto* const pixel = reinterpret_cast<std::uint8_t*>(input);
      for (int i = 0; i < 6 * 4; ++i) {
        fourth.push_back(pixel[4 * i + 3]);
        pixel[4 * i] = static_cast<std::uint8_t>(pixel[4 * i] + 1), pixel[4 * i + 3] = 200;
      }
      return FF_SUCCESS;
    };
    PluginBench b;
    b.effect.SetFilterFileName(Script::File());
    b.Start();
    EXPECT_NE(std::count(script.log.begin(), script.log.end(), "11 6x4 depth 2 of 2"), 0);
    for (const int before : {0, 200}) {
      const PQImageRef frame = MakeFrame(6, 4);
      const auto copied = PQFramePool::CopiedBytes();
      const PQImageRef out = b.Send(frame);
      EXPECT_EQ(PQFramePool::CopiedBytes(), copied) << "nothing is copied beside";
      std::vector<int> wanted = Bytes(*frame);
      for (std::size_t i = 0; i < wanted.size(); i += 3) wanted[i] = (wanted[i] + 1) & 255;
      EXPECT_EQ(Bytes(*out), wanted);
      EXPECT_EQ(std::exchange(fourth, {}), std::vector<int>(24, before));
    }
  }
  PQFramePool::SetFillByte(-1);
}

// A plug-in that prefers to copy gets the frame apart from where its result goes.
TEST(PQFreeFrame, ByCopyWithOneInput) {
  for (const std::size_t size : {3u, 4u}) {
    SCOPED_TRACE(size);
    Script script;
    script.caps[FF_CAP_24BITVIDEO] = size == 3, script.caps[FF_CAP_32BITVIDEO] = size == 4;
    script.caps[FF_CAP_PROCESSFRAMECOPY] = FF_TRUE, script.caps[FF_CAP_COPYORINPLACE] = FF_OPTIMISED_FOR_COPY;
    std::vector<int> in, out_before;
    script.on_call = [&](std::uint32_t code, std::uintptr_t input, std::uintptr_t) -> std::optional<std::uintptr_t> {
      if (code != FF_PROCESSFRAMECOPY) return std::nullopt;
      const auto& record = *reinterpret_cast<const ProcessFrameCopyStruct*>(input);
      const auto* from = static_cast<const std::uint8_t*>(record.ppInputFrames[0]);
      auto* to = static_cast<std::uint8_t*>(record.pOutputFrame);
      in.assign(from, from + 4 * size), out_before.assign(to, to + 4 * size);
      for (std::size_t i = 0; i < 4 * size; ++i) to[i] = static_cast<std::uint8_t>(i);
      return FF_SUCCESS;
    };
    PluginBench b;
    b.effect.SetFilterFileName(Script::File());
    b.Start(2, 2);
    const PQImageRef out = b.Send(MakeFrame(2, 2, vfRGB24, 100));
    ASSERT_TRUE(out);
    std::vector<int> packed = Bytes(*MakeFrame(2, 2, vfRGB24, 100));
    if (size == 3) {
      EXPECT_EQ(in, packed);
      EXPECT_EQ(out_before, packed);
      EXPECT_EQ(Bytes(*out), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
    } else {  // the input is the packed frame all the same, and zeros to the end
      packed.resize(16);
      EXPECT_EQ(in, packed);
      EXPECT_EQ(out_before, (std::vector<int>{100, 101, 102, 0, 103, 104, 105, 0, 106, 107, 108, 0, 109, 110, 111, 0}));
      EXPECT_EQ(Bytes(*out), (std::vector<int>{0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14}));
    }
    EXPECT_EQ(script.log.back(), "14 1 on 77");
  }
}

TEST(PQFreeFrame, WhatFailsPassesAndIsToldOnce) {
  Script script;
  std::uintptr_t answer = FF_FAIL;
  script.on_call = [&](std::uint32_t code, std::uintptr_t input, std::uintptr_t) -> std::optional<std::uintptr_t> {
    if (code != FF_PROCESSFRAME) return std::nullopt;
    *reinterpret_cast<std::uint8_t*>(input) = 99;
    if (answer == 1234) throw 5;
    return answer;
  };
  PluginBench b;
  b.effect.SetFilterFileName(Script::File());
  b.Start();
  const PQImageRef frame = MakeFrame(6, 4);
  EXPECT_EQ(b.Send(frame)->Read(), frame->Read()) << "the frame itself";
  EXPECT_TRUE(b.Told({"failed on a frame"}));
  b.Send(frame);
  EXPECT_EQ(b.told, Strings{});
  answer = 0xFFFF00000000;  // what the upper half holds does not matter
  EXPECT_EQ(b.Send(frame)->Read()[0], 99);
  answer = 1234;
  EXPECT_EQ(b.Send(frame)->Read()[0], 99) << "an exception reads as 0, which is success";
  EXPECT_TRUE(b.Told({"raised an exception", "FF_PROCESSFRAME"}));
  b.Send(frame);
  EXPECT_EQ(b.told, Strings{});
}

TEST(PQFreeFrame, A16BitPlugInPassesFramesAndAnEmptyFrameIsNotShown) {
  Script script;
  PluginBench b;
  script.caps[FF_CAP_24BITVIDEO] = 0, script.caps[FF_CAP_16BITVIDEO] = FF_TRUE;
  b.effect.SetFilterFileName(Script::File());
  b.Start();
  script.Take();
  const PQImageRef frame = MakeFrame(6, 4);
  EXPECT_EQ(b.Send(frame)->Read(), frame->Read());
  script.caps[FF_CAP_24BITVIDEO] = FF_TRUE;
  b.Stop();
  b.Start(0, 0);
  script.Take();
  EXPECT_EQ(b.Send(0, 0)->GetWidth(), 0);
  EXPECT_EQ(script.Take(), Strings{});
  b.Send(6, 4);
  EXPECT_EQ(script.Take(), (Strings{"11 6x4 depth 1 of 2", "3 on 77"}));
}

// An instance never meets a frame of another size than it was made for.
TEST(PQFreeFrame, AnotherSizeGetsAnInstanceOfItsOwn) {
  Script script;
  script.parameters = {{FF_TYPE_BOOLEAN, "On", Bits(1)}};
  PluginBench b;
  b.effect.SetFilterFileName(Script::File());
  b.Start(6, 4);
  script.Take();
  b.Send(6, 4);
  b.Send(3, 2);
  b.Send(3, 2);
  EXPECT_EQ(script.Take(),
            (Strings{"3 on 77", "11 3x2 depth 1 of 2", "8 [0]=1 on 77", "9 0 on 77", "3 on 77", "3 on 77"}));
  script.on_call = [](std::uint32_t code, std::uintptr_t, std::uintptr_t) -> std::optional<std::uintptr_t> {
    if (code == FF_INSTANTIATE) return FF_FAIL;
    return std::nullopt;
  };
  EXPECT_FALSE(b.Send(6, 4)) << "no instance, no plug-in, no frames";
  EXPECT_TRUE(b.Told({"makes no instance", "6 by 4"}));
  EXPECT_FALSE(b.effect.HasPlugIn());
}

// --- parameters -----------------------------------------------------------------------------------------------------

TEST(PQFreeFrame, EveryTypeStartsSendsAndReadsBackInItsWay) {
  struct Case {
    std::uint32_t type;
    std::uintptr_t standard;
    const char *start, *sent;
    std::uintptr_t read;
    const char* after;
  };
  const std::uintptr_t half = Bits(0.5f);
  const Case cases[] = {
      {FF_TYPE_BOOLEAN, half, "True", "1", Bits(0), "False"},
      {FF_TYPE_BOOLEAN, Bits(-0.0f), "False", "0", 1, "True"},  // any bits that are no zero
      {FF_TYPE_EVENT, Bits(1), "Event...", "", half, "Event..."},
      {FF_TYPE_RED, Bits(1), "1", "0.00392156886", half, "128"},  // 127.5 goes to the even neighbour
      {FF_TYPE_GREEN, Bits(255.5f), "0", "0", Bits(1), "255"},    // 256, of which the low byte stays
      {FF_TYPE_BLUE, Bits(-1), "255", "1", Bits(2), "254"},       // 510, likewise
      {FF_TYPE_XPOS, Bits(2.5f), "2", "2", half, "1056964608"},   // the bits are the number
      {FF_TYPE_YPOS, Bits(1e20f), "2147483647", "2.14748365e+09", 7, "7"},
      {FF_TYPE_STANDARD, Bits(0.1f), "0.1", "0.100000001", half, "0.5"},
      {9999, Bits(3), "3", "3", 0xFFFFFFFF00000000 | Bits(-2), "-2"},                // unknown types are standard
      {FF_TYPE_STANDARD, Bits(0.1f), "0.1", "0.100000001", 0x12345FFFFFFFF, "0.1"},  // -1: the value stands
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.type) + " " + c.start);
    Script script;
    script.parameters = {{c.type, "A", c.standard}};
    script.values = {c.read};
    PluginBench b;
    b.effect.SetFilterFileName(Script::File());
    const auto parameter = b.effect.GetParameters().GetItem(0);
    ASSERT_NE(parameter, nullptr);
    EXPECT_EQ(parameter->GetStringValue(), c.start);
    b.Start();
    const Strings log = script.Take();
    const std::string sent = std::string("8 [0]=") + c.sent + " on 77";
    EXPECT_EQ(std::count(log.begin(), log.end(), sent), c.type != FF_TYPE_EVENT) << sent;
    EXPECT_EQ(parameter->GetStringValue(), c.after);
  }
}

TEST(PQFreeFrame, ValuesAreSetInEveryFormAndSentAtOnceWhereTheyAre) {
  Script script;
  script.parameters = {{FF_TYPE_BOOLEAN, "Bool", 0},
                       {FF_TYPE_EVENT, "Event", 0},
                       {FF_TYPE_RED, "Red", 0},
                       {FF_TYPE_XPOS, "X", 0},
                       {FF_TYPE_STANDARD, "Standard", 0}};
  PluginBench b;
  b.effect.SetFilterFileName(Script::File());
  b.Start();
  using P = TPQFreeFrameParameter;
  struct Case {
    int index;
    std::function<void(P&)> set;
    const char *value, *sent;  // nothing sent: ""
  };
  const auto single = [](float v) { return [v](P& p) { p.SetAsSingle(v); }; };
  const auto integer = [](int v) { return [v](P& p) { p.SetAsInteger(v); }; };
  const auto boolean = [](bool v) { return [v](P& p) { p.SetAsBoolean(v); }; };
  const auto text = [](const char* v) { return [v](P& p) { EXPECT_TRUE(p.SetAsString(v).Ok()); }; };
  const Case cases[] = {
      {0, single(0.5f), "True", ""},
      {0, boolean(false), "False", ""},
      {0, text("tRUe"), "True", "1"},
      {0, text("perhaps"), "True", "1"},
      {0, text("FALSE"), "False", "0"},
      {0, integer(3), "True", ""},
      {2, single(2.5f), "2", "0.00784313772"},
      {2, integer(257), "1", "0.00392156886"},
      {2, boolean(true), "255", "1"},
      {2, text("$80"), "128", "0.501960814"},
      {2, text("12a"), "128", "0.501960814"},
      {2, text(" -1"), "255", "1"},
      {3, single(3.5f), "4", ""},
      {3, boolean(true), "4", ""},
      {3, text("-70000"), "-70000", "-70000"},
      {3, text(""), "-70000", "-70000"},
      {3, text("4294967296"), "-70000", "-70000"},
      {3, text("-2147483648"), "-2147483648", "-2.14748365e+09"},
      {4, single(-1.5f), "-1.5", "-1.5"},
      {4, boolean(true), "1", "1"},
      {4, text("1e-3"), "0.001", "0.00100000005"},
      {4, integer(-3), "-3", "-3"},
  };
  script.Take();
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.index) + " " + c.value + " " + c.sent);
    const auto parameter = b.effect.GetParameters().GetItem(c.index);
    c.set(*parameter);
    EXPECT_EQ(parameter->GetAsString(), c.value);
    Strings expected;
    if (*c.sent != 0) expected = {"8 [" + std::to_string(c.index) + "]=" + c.sent + " on 77", "9 0 on 77"};
    EXPECT_EQ(script.Take(), expected);
  }
  const auto standard = b.effect.GetParameters().GetItem(4);
  EXPECT_FALSE(standard->SetStringValue("half").Ok());
  EXPECT_FALSE(standard->SetStringValue("").Ok());
  EXPECT_EQ(standard->GetStringValue(), "-3");
  standard->SetAsSingle(2.5f);
  EXPECT_EQ(standard->GetAsInteger(), 2);
  EXPECT_TRUE(standard->GetAsBoolean());
  script.Take();
  b.effect.GetParameters().GetItem(1)->SetAsBoolean(false);
  EXPECT_EQ(script.Take(), (Strings{"8 [1]=1 on 77", "8 [1]=0 on 77"})) << "the pulse, whatever is set";
  std::string display = "as it came";
  standard->GetDisplayValue(display);
  EXPECT_EQ(display, "as it came");
  EXPECT_EQ(script.Take(), Strings{"7 4 on 77"});
}

TEST(PQFreeFrame, ReadBackIsOfParameter0UnlessEachHasItsOwn) {
  Script script;
  script.parameters = {{FF_TYPE_STANDARD, "A", Bits(0.25f)},
                       {FF_TYPE_STANDARD, "B", Bits(0.5f)},
                       {FF_TYPE_TEXT, "C", reinterpret_cast<std::uintptr_t>("text")}};
  script.values = {Bits(7), Bits(8), reinterpret_cast<std::uintptr_t>("other")};
  PluginBench b;
  b.effect.SetFilterFileName(Script::File());
  const auto values = [&] {
    Strings texts;
    for (const PQValue& value : b.effect.GetParameters().WriteData()) texts.push_back(*value.Text());
    return texts;
  };
  EXPECT_EQ(values(), (Strings{"0.25", "0.5", "text"}));
  b.Start();
  EXPECT_EQ(values(), (Strings{"7", "7", "text"})) << "a number is no text's address";
  b.Stop();
  b.effect.SetOwnReadBack(true);
  b.Start();
  EXPECT_EQ(values(), (Strings{"7", "8", "other"}));
  EXPECT_TRUE(b.effect.GetParameters().GetItem(2)->SetStringValue("third").Ok());
  EXPECT_EQ(values()[2], "other") << "what the plug-in answers";
  EXPECT_EQ(std::count(script.log.begin(), script.log.end(), "8 [2]='third' on 77"), 1);

  // A text as parameter 0 answers to a text, and says nothing of numbers.
  b.Stop();
  std::swap(script.parameters[0], script.parameters[2]), std::swap(script.values[0], script.values[2]);
  b.effect.SetOwnReadBack(false);
  b.effect.SetFilterFileName(Script::File());
  b.Start();
  EXPECT_EQ(values(), (Strings{"other", "0.5", "0.25"}));
}

TEST(PQFreeFrame, StoredValuesWaitAndBindByPosition) {
  Script script;
  PluginBench b;
  TPQFreeFrameParameters& parameters = b.effect.GetParameters();
  const PQValue::List stored = {"TRUE", "0.75", "surplus"};
  EXPECT_TRUE(parameters.ReadData(stored).Ok());
  b.effect.SetFilterFileName("/no/such/file.so");
  EXPECT_TRUE(b.Told({"'/no/such/file.so' cannot be used", "no such file"}));
  EXPECT_EQ(parameters.GetCount(), 0);
  EXPECT_EQ(parameters.WriteData(), stored) << "kept without the plug-in";
  EXPECT_NE(PQWriteText(b.effect).find("Parameters.StrValue = ('TRUE' '0.75' 'surplus')"), std::string::npos);
  script.parameters = {{FF_TYPE_BOOLEAN, "A", 0}, {FF_TYPE_STANDARD, "B", 0}};
  b.effect.SetFilterFileName(Script::File());
  EXPECT_EQ(parameters.WriteData(), (PQValue::List{"True", "0.75"}));
  b.effect.SetFilterFileName(Script::File());
  EXPECT_EQ(parameters.WriteData(), (PQValue::List{"False", "0"})) << "they were used up";
  EXPECT_TRUE(parameters.ReadData({true, "much"}).Ok());
  EXPECT_EQ(parameters.WriteData(), (PQValue::List{"True", "0"}));
  EXPECT_TRUE(b.Told({"stored value was refused", "'much'", "a number"}));
  EXPECT_FALSE(parameters.ReadData(PQValue::List(1, PQValue(PQValue::List{}))).Ok());

  TPQFreeFrame other;
  other.Assign(b.effect);
  EXPECT_EQ(other.GetFilterFileName(), Script::File());
  EXPECT_EQ(other.GetParameters().WriteData(), (PQValue::List{"True", "0"}));
}

TEST(PQFreeFrame, ParametersArePropertiesByNameAndNumber) {
  Script script;
  script.parameters = {{FF_TYPE_STANDARD, "Speed           ", Bits(0.5f)},
                       {FF_TYPE_RED, "Speed", Bits(9)},
                       {FF_TYPE_XPOS, "Left edge", 0},
                       {FF_TYPE_BOOLEAN, "", 0},
                       {FF_TYPE_EVENT, "St\xFFr\x01", 0},
                       {FF_TYPE_BOOLEAN, "StrValue", Bits(1)},
                       {FF_TYPE_TEXT, "Sixteen letters!", 0}};
  PluginBench b;
  std::vector<PQTextLink> links;
  std::vector<PQFault> faults;
  PQReadText(
      "FilterFileName = '" + Script::File() +
          "'\nParameters.Speed = 0.25\nParameters[1] = 200\nParameters.'Left edge' = 4294967295\nParameters.Parameter3 "
          "= true\nParameters.'Sixteen letters!' = 'it''s'\nParameters.St_r_ = true\nParameters.'StrValue 5' = false\n",
      b.effect, links, faults);
  EXPECT_EQ(faults.size(), 0u) << faults.front().text;
  EXPECT_EQ(b.effect.GetParameters().WriteData(),
            (PQValue::List{"0.25", "200", "-1", "True", "Event...", "False", "it's"}));
  EXPECT_EQ(b.effect.GetParameters().Find("Speed 1"), b.effect.GetParameters().GetItem(1));
  for (const char* wrong : {"Parameters.Sped = 1\n", "Parameters[1] = 256\n", "Parameters.Speed = fast\n",
                            "Parameters[7] = 1\n", "Parameters.Parameter3 = 0.5\n"}) {
    faults.clear();
    PQReadText(wrong, b.effect, links, faults);
    ASSERT_EQ(faults.size(), 1u) << wrong;
    EXPECT_EQ(faults[0].severity, PQSeverity::Error);
    EXPECT_NE(faults[0].text.find("expected"), std::string::npos) << faults[0].text;
  }

  // What is known only with the plug-in is passed over while it is not loaded.
  TPQFreeFrame designed;
  designed.SetDesigning(true);
  script.Take();
  faults.clear();
  PQReadText("FilterFileName = '" + Script::File() + "'\nParameters.Speed = 0.25\n", designed, links, faults);
  ASSERT_EQ(faults.size(), 1u);
  EXPECT_EQ(faults[0].severity, PQSeverity::Note);
  EXPECT_EQ(script.Take(), Strings{}) << "who looks at a graph loads no plug-in";
}

// --- several inputs -------------------------------------------------------------------------------------------------

struct Mixing : testing::Test {
  Mixing() {
    script.caps[FF_CAP_PROCESSFRAMECOPY] = FF_TRUE;
    script.caps[FF_CAP_MINIMUMINPUTFRAMES] = script.caps[FF_CAP_MAXIMUMINPUTFRAMES] = 2;
    script.on_call = [this](std::uint32_t code, std::uintptr_t input, std::uintptr_t) -> std::optional<std::uintptr_t> {
      if (code != FF_PROCESSFRAMECOPY) return std::nullopt;
      const auto& record = *reinterpret_cast<const ProcessFrameCopyStruct*>(input);
      seen.clear();
      for (std::uint32_t i = 0; i < record.numInputFrames; ++i) {
        const auto* from = static_cast<const std::uint8_t*>(record.ppInputFrames[i]);
        seen.emplace_back(from, from + bytes);
      }
      auto* const to = static_cast<std::uint8_t*>(record.pOutputFrame);
      for (std::size_t i = 0; i < written; ++i) to[i] = static_cast<std::uint8_t>(i + 1);
      return answer;
    };
  }
  Script script;
  std::vector<std::vector<int>> seen;
  std::size_t bytes = 0, written = 0;
  std::uintptr_t answer = FF_SUCCESS;
};

TEST_F(Mixing, SmallerFramesGetBlackToTheRightAndBelow) {
  PluginBench b(2);
  b.effect.SetFilterFileName(Script::File());
  b.sources[0].Start(3, 1);
  EXPECT_EQ(b.sink.log, Strings{}) << "starts with the last input";
  b.sources[1].Start(2, 2);
  EXPECT_EQ(b.sink.log, Strings{"TJCStartFrameOperation 3x2 400000 0"});
  script.Take();
  bytes = written = 3 * 2 * 3;
  EXPECT_FALSE(b.Send(MakeFrame(3, 1, vfRGB24, 10)));
  const PQImageRef first = MakeFrame(3, 1, vfRGB24, 10);
  first->GetTimeCode().SetFrame(5);
  b.sources[0].OutputPin.SubmitBuffer(first);
  const PQImageRef out = b.Send(MakeFrame(2, 2, vfRGB24, 50), 1);
  ASSERT_TRUE(out);
  EXPECT_EQ(script.Take(), Strings{"14 2 on 77"});
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0], (std::vector<int>{10, 11, 12, 13, 14, 15, 16, 17, 18, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(seen[1], (std::vector<int>{50, 51, 52, 53, 54, 55, 0, 0, 0, 56, 57, 58, 59, 60, 61, 0, 0, 0}));
  EXPECT_EQ(Bytes(*out), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18}));
  EXPECT_EQ(out->GetTimeCode().GetFrame(), 5) << "the stamps of the first input";
}

TEST_F(Mixing, WhatItLeavesOutOrFailsOnIsBlack) {
  for (const int fill : {0x11, 0xEE}) {
    PQFramePool::SetFillByte(fill);
    PluginBench b(2);
    b.effect.SetFilterFileName(Script::File());
    b.Start(2, 1);
    written = 2, answer = FF_SUCCESS;
    b.Send(2, 1);
    EXPECT_EQ(Bytes(*b.Send(MakeFrame(2, 1), 1)), (std::vector<int>{1, 2, 0, 0, 0, 0}));
    answer = 3;
    b.Send(2, 1);
    EXPECT_EQ(Bytes(*b.Send(MakeFrame(2, 1), 1)), std::vector<int>(6, 0));
  }
  PQFramePool::SetFillByte(-1);
}

TEST_F(Mixing, In32Bits) {
  script.caps[FF_CAP_24BITVIDEO] = 0, script.caps[FF_CAP_32BITVIDEO] = FF_TRUE;
  PluginBench b(2);
  b.effect.SetFilterFileName(Script::File());
  b.Start(1, 2);
  bytes = written = 8;
  b.Send(MakeFrame(1, 2, vfRGB24, 10));
  const PQImageRef out = b.Send(MakeFrame(1, 2, vfRGB24, 20), 1);
  EXPECT_EQ(seen, (std::vector<std::vector<int>>{{10, 11, 12, 0, 13, 14, 15, 0}, {20, 21, 22, 0, 23, 24, 25, 0}}));
  EXPECT_EQ(Bytes(*out), (std::vector<int>{1, 2, 3, 5, 6, 7}));
}

// Once a plug-in had 32 bits alone, a mixer that comes after it gets its frames so, whatever it has.
TEST_F(Mixing, ThirtyTwoBitsStay) {
  for (const bool isolated : {false, true}) {
    PluginBench b(2);
    b.effect.SetIsolated(isolated);
    b.effect.SetFilterFileName(Example("sepia32"));
    b.effect.SetFilterFileName(Example("crossfade"));
    b.Start(2, 1);
    b.Send(Frame({10, 20, 30, 40, 50, 60}));
    // Six bytes of the blocks are mixed: two pixels without a fourth byte are none any more.
    EXPECT_EQ(Bytes(*b.Send(Frame({30, 40, 50, 60, 70, 80}), 1)), (std::vector<int>{20, 30, 40, 50, 60, 0}));
  }
}

TEST_F(Mixing, WithTooFewInputsTheFirstGoesThroughAlone) {
  PluginBench b;
  b.effect.SetFilterFileName(Script::File());
  b.Start();
  script.Take();
  EXPECT_TRUE(b.Send());
  EXPECT_EQ(script.Take(), Strings{"3 on 77"});
}

TEST_F(Mixing, NumbersOfInputsAreTakenAsTheyAreMeant) {
  struct Case {
    bool copy;
    std::uintptr_t least, most;
    std::uint32_t taken_least, taken_most;
  };
  for (const Case& c : {Case{true, 0, 0, 1, 1}, Case{true, 3, 0, 3, 3}, Case{true, 0, 4, 4, 4}, Case{true, 2, 5, 2, 5},
                        Case{false, 2, 5, 1, 1}, Case{true, 0xABCD00000000, 1, 1, 1}}) {
    script.caps[FF_CAP_PROCESSFRAMECOPY] = c.copy;
    script.caps[FF_CAP_MINIMUMINPUTFRAMES] = c.least, script.caps[FF_CAP_MAXIMUMINPUTFRAMES] = c.most;
    TPQFreeFrame effect;
    effect.SetFilterFileName(Script::File());
    EXPECT_EQ(effect.GetCapabilities().minimum_inputs, c.taken_least) << c.least << " " << c.most;
    EXPECT_EQ(effect.GetCapabilities().maximum_inputs, c.taken_most) << c.least << " " << c.most;
  }
}

TEST(PQFreeFrame, InputsComeAndGo) {
  TestSource sources[25];
  TPQFreeFrame effect;
  EXPECT_EQ(effect.InputPins.GetCount(), 1);
  for (int i = 0; i < 20; ++i) {
    ASSERT_NE(effect.InputPins.FirstFree(), nullptr) << i;
    EXPECT_TRUE(sources[i].OutputPin.Connect(*effect.InputPins.FirstFree()).Ok());
    EXPECT_EQ(effect.InputPins.GetCount(), std::min(i + 2, 20));
  }
  EXPECT_EQ(effect.InputPins.FirstFree(), nullptr);
  for (int i = 19; i >= 1; --i) sources[i].OutputPin.Disconnect();
  EXPECT_EQ(effect.InputPins.GetCount(), 2);
  sources[0].OutputPin.Disconnect();
  EXPECT_EQ(effect.InputPins.GetCount(), 1);
  EXPECT_TRUE(effect.OutputPin.DependsOn(*effect.InputPins.GetPin(0)));
}

// --- bad files and changes under way --------------------------------------------------------------------------------

std::string WriteFile(const std::string& name, const std::string& bytes) {
  const std::string path = testing::TempDir() + name;
  std::ofstream(path, std::ios::binary) << bytes;
  return path;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

TEST(PQFreeFrame, FilesThatAreNoPlugIn) {
  const std::string good = ReadFile(Script::File());
  ASSERT_GT(good.size(), 4000u);
  std::string other = good, small = good;
  other[18] = 40, other[19] = 0;  // the kind of processor
  small[4] = 1;                   // 32 bits
  struct Case {
    std::string file, why;
  };
  const Case cases[] = {
      {"", "FilterFileName"},
      {testing::TempDir() + "absent.so", "no such file"},
      {testing::TempDir(), "a folder"},
      {"/dev/zero", "no regular file"},
      {WriteFile("empty.so", ""), "no shared object"},
      {WriteFile("text.so", "not what it seems\n"), "no shared object"},
      {WriteFile("other.so", other), "another kind of processor"},
      {WriteFile("small.so", small), "another kind of processor"},
      {WriteFile("cut.so", good.substr(0, good.size() / 2)), "cut short"},
      {WriteFile("head.so", good.substr(0, 40)), "cut short"},
      {PANTIQ_TEST_PLUGINS "/plugin_none.so", "plugMain"},
      {std::string("a\0b", 3), "zero byte"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    EXPECT_FALSE(TPQFreeFrame::IsValidPlugIn(c.file));
    PluginBench b;
    b.effect.SetFilterFileName(c.file);
    EXPECT_EQ(b.effect.GetFilterFileName(), c.file);
    b.told.clear();
    b.Start();
    EXPECT_TRUE(b.Told({"no frames leave", c.why}));
    EXPECT_FALSE(b.Send());
    EXPECT_EQ(b.sink.log.front(), "TJCStartFrameOperation 6x4 400000 0");
    b.effect.SetFilterFileName(Example("waves"));
    EXPECT_TRUE(b.Send()) << "a plug-in that comes while the stream runs takes over";
    b.Stop();
  }
  EXPECT_TRUE(TPQFreeFrame::IsValidPlugIn(Script::File()));
}

TEST(PQFreeFrame, AFileThatAppearsLaterIsTakenWithTheNextStart) {
  const std::string path = testing::TempDir() + "later.so";
  std::remove(path.c_str());
  PluginBench b;
  EXPECT_TRUE(b.effect.GetParameters().ReadData({"0.75"}).Ok());
  b.effect.SetFilterFileName(path);
  EXPECT_EQ(b.effect.GetParameters().GetCount(), 0);
  WriteFile("later.so", ReadFile(Example("sepia32")));
  b.Start();
  EXPECT_EQ(b.effect.GetParameters().WriteData(), PQValue::List{"0.75"});
  EXPECT_TRUE(b.Send());
}

struct Misbehaving : testing::Test {
  ~Misbehaving() override { unsetenv("PANTIQ_MISBEHAVE"); }
  static void Misbehave(const std::string& words) { setenv("PANTIQ_MISBEHAVE", words.c_str(), 1); }
};

TEST_F(Misbehaving, InThisProcess) {
  enum class Outcome { Inverted, Passed, Black, None };
  using enum Outcome;
  struct Case {
    const char* words;
    Outcome outcome;
    const char* told;
  };
  const Case cases[] = {
      {"", Inverted, ""},
      {"copy", Inverted, ""},
      {"copy 32bit", Inverted, ""},
      {"32bit", Inverted, ""},
      {"zero-inputs", Inverted, ""},
      {"lying-inputs", Inverted, ""},
      {"16bit", Passed, ""},
      {"no-depth", None, "neither 16, 24 nor 32"},
      {"minus-one-caps", None, "neither 16, 24 nor 32"},
      {"fail:1", None, "FF_INITIALISE"},
      {"high-init", Inverted, ""},
      {"fail:11", None, "makes no instance"},
      {"fail:3", Passed, "failed on a frame"},
      {"dirty-failure", Passed, "failed on a frame"},
      {"fail:13 empty-info", Inverted, ""},
      {"empty-info", Inverted, ""},
      {"throw:1", Inverted, "FF_INITIALISE"},
      {"throw:10", None, "neither 16, 24 nor 32"},
      {"throw:11", Passed, "failed on a frame"},  // the instance 0 is none that it knows
      {"throw:3", Passed, "FF_PROCESSFRAME"},     // counts as success of what it left as it came
      {"throw:4 throw:13", Inverted, "exception"},
      {"names throw:5 throw:6 throw:15", Inverted, "exception"},
      {"copy writes-nothing", Black, ""},
      {"zero-inputs writes-nothing", Passed, ""},
      {"copy dirty-failure", Black, "failed on a frame"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.words);
    Misbehave(c.words);
    PluginBench b;
    b.effect.SetFilterFileName(Example("misbehave"));
    b.Start();
    const PQImageRef frame = MakeFrame(6, 4), out = b.Send(frame);
    EXPECT_TRUE(b.Told({c.told}) || (*c.told == 0 && b.told.empty()));
    ASSERT_EQ(out.Get() == nullptr, c.outcome == None);
    if (c.outcome == Inverted) {
      EXPECT_EQ(Bytes(*out), Complement(Bytes(*frame)));
    }
    if (c.outcome == Black) {
      EXPECT_EQ(Bytes(*out), std::vector<int>(6 * 4 * 3, 0));
    }
    if (c.outcome == Passed) {
      EXPECT_EQ(Bytes(*out), Bytes(*frame));
    }
    b.Stop();
  }
}

// What a plug-in does in a process of its own is the same, parameters and pixels.
TEST_F(Misbehaving, IsolatedGivesTheSame) {
  struct Run {
    std::vector<std::vector<int>> frames;
    PQValue::List values;
    Strings told;
  };
  const auto run = [](const std::string& file, bool isolated, int inputs, const PQValue::List& values) {
    Run result;
    PluginBench b(inputs);
    b.effect.SetIsolated(isolated);
    b.effect.SetOwnReadBack(true);
    b.effect.SetFilterFileName(file);
    EXPECT_TRUE(b.effect.GetParameters().ReadData(values).Ok());
    for (const int width : {40, 23}) {
      for (int i = 0; i < inputs; ++i) b.sources[i].Start(width + 3 * i, 30);
      for (int n = 0; n < 3; ++n) {
        for (int i = 0; i < inputs; ++i) {
          if (const PQImageRef out = b.Send(MakeFrame(width + 3 * i, 30, vfRGB24, 7 * n), i)) {
            result.frames.push_back(Bytes(*out));
          }
        }
        if (n == 1 && !values.empty()) {
          EXPECT_TRUE(b.effect.GetParameters().GetItem(0)->SetStringValue("0.5").Ok());
          b.effect.GetParameters().GetItem(b.effect.GetParameters().GetCount() / 2)->SetAsBoolean(true);
        }
      }
      b.Stop();
    }
    result.values = b.effect.GetParameters().WriteData();
    result.values.emplace_back(b.effect.GetDescription());
    result.values.emplace_back(b.effect.GetMajorVertion() * 10 + b.effect.GetMinorVertion());
    result.told = b.told;
    return result;
  };
  struct Case {
    std::string file, misbehave;
    int inputs;
    PQValue::List values;
  };
  const std::string long_text(300000, 'x');
  for (const Case& c : {Case{"waves", "", 1, {"0.5", "1"}}, Case{"sepia32", "", 1, {"0.75"}},
                        Case{"badge", "", 1, {"True", "", "1", "2", "250", "9", "3", "0.6", long_text}},
                        Case{"crossfade", "", 2, {"0.25"}}, Case{"misbehave", "copy", 1, {}},
                        Case{"misbehave", "copy 32bit", 2, {}}, Case{"misbehave", "zero-inputs 32bit", 1, {}},
                        Case{"misbehave", "names throw:5 throw:3 throw:8", 1, {"0.5", "0.5", "0.5"}},
                        Case{"misbehave", "dirty-failure", 1, {}}, Case{"misbehave", "empty-info", 1, {}},
                        Case{"misbehave", "fail:11", 1, {}}, Case{"misbehave", "no-depth", 1, {}}}) {
    SCOPED_TRACE(c.file + " " + c.misbehave);
    Misbehave(c.misbehave);
    const Run here = run(Example(c.file), false, c.inputs, c.values);
    const Run there = run(Example(c.file), true, c.inputs, c.values);
    EXPECT_EQ(here.frames, there.frames);
    EXPECT_EQ(here.values, there.values);
    EXPECT_EQ(here.told, there.told);
    const bool works = c.misbehave != "fail:11" && c.misbehave != "no-depth";
    EXPECT_EQ(here.frames.size(), works ? 6u : 0u);
  }
}

// Crashes, hangs and ends of the process in every call: frames pass, the reason is told, the next start tries again.
TEST_F(Misbehaving, IsolatedSurvives) {
  const std::string mark = testing::TempDir() + "it_hangs";
  setenv("PANTIQ_MISBEHAVE_MARK", mark.c_str(), 1);
  SetPluginWait([&mark](int descriptor) {
    for (;;) {
      pollfd entry{descriptor, POLLIN, 0};
      if (poll(&entry, 1, 1) > 0) return true;
      if (access(mark.c_str(), F_OK) == 0) return false;
    }
  });
  const std::pair<const char*, const char*> ways[] = {
      {"crash", "it crashed in "}, {"hang", "did not come back within two seconds in "}, {"exit", "(exit code 3)"}};
  for (const auto& [way, why] : ways) {
    for (const std::uint32_t function : {13, 10, 1, 4, 15, 5, 6, 11, 8, 9, 3, 14}) {
      SCOPED_TRACE(std::string(way) + " in " + PQPluginFunctionName(function));
      std::remove(mark.c_str());
      PluginBench b;
      b.effect.SetIsolated(true);
      Misbehave(std::string(function == 14 ? "zero-inputs " : "") + "names " + way + ":" + std::to_string(function));
      b.effect.SetFilterFileName(Example("misbehave"));
      std::remove(mark.c_str());
      b.Start();
      const PQImageRef frame = MakeFrame(6, 4);
      const PQImageRef out = b.Send(frame);
      EXPECT_TRUE(b.Told({"lost; frames pass unchanged", why, "in " + PQPluginFunctionName(function)}));
      const bool in_parameters = function == 4 || function == 5 || function == 6 || function == 15;
      ASSERT_TRUE(out);
      EXPECT_EQ(out->Read(), frame->Read());
      EXPECT_EQ(b.effect.GetParameters().GetCount(),
                function == 13 || function == 10 || function == 1 || in_parameters ? 0 : 3);
      b.Send(frame);
      EXPECT_EQ(b.told, Strings{}) << "told once";
      if (b.effect.GetParameters().GetCount() > 0) {
        b.effect.GetParameters().GetItem(0)->SetAsSingle(0.5f);
        EXPECT_EQ(b.effect.GetParameters().GetItem(0)->GetAsSingle(), 0.5f);
      }
      b.Stop();
      std::remove(mark.c_str());
      Misbehave("names");
      b.Start();
      EXPECT_EQ(Bytes(*b.Send(frame)), Complement(Bytes(*frame))) << "the next start tries again";
      EXPECT_EQ(b.effect.GetParameters().GetCount(), 3);
      EXPECT_EQ(b.told, Strings{});
    }
  }
  SetPluginWait({});
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process is left";
  EXPECT_EQ(errno, ECHILD);
  unsetenv("PANTIQ_MISBEHAVE_MARK");
}

TEST_F(Misbehaving, TheWatchdogGivesUpAndAGoodbyeMayFail) {
  Misbehave("hang:3");
  {
    PluginBench b;
    b.effect.SetIsolated(true);
    b.effect.SetFilterFileName(Example("misbehave"));
    b.Start();
    const PQImageRef frame = MakeFrame(6, 4);
    EXPECT_EQ(b.Send(frame)->Read(), frame->Read());
    EXPECT_TRUE(b.Told({"lost", "within two seconds in FF_PROCESSFRAME"}));
    Misbehave("crash:2 million");
    b.Stop();
    EXPECT_EQ(b.told, Strings{}) << "it was lost before";
    b.Start();
    EXPECT_EQ(Bytes(*b.Send(frame)), Complement(Bytes(*frame)));
    b.told.clear();
    b.Stop();
    EXPECT_TRUE(b.Told({"lost when it was let go of", "it crashed in FF_DEINITIALISE"}));
  }
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process is left";
}

TEST_F(Misbehaving, WithoutThePluginHostNoFramesLeave) {
  setenv("PANTIQ_PLUGIN_HOST", "/no/such/host", 1);
  PluginBench b;
  b.effect.SetIsolated(true);
  b.effect.SetFilterFileName(Example("waves"));
  EXPECT_TRUE(b.Told({"cannot be used", "pantiq-plugin-host", "/no/such/host", "PANTIQ_PLUGIN_HOST"}));
  b.Start();
  EXPECT_FALSE(b.Send());
  setenv("PANTIQ_PLUGIN_HOST", "/bin/true", 1);
  b.Stop();
  b.Start();
  EXPECT_TRUE(b.Send()) << "lost like any other";
  EXPECT_TRUE(b.Told({"lost", "/bin/true"}));
  unsetenv("PANTIQ_PLUGIN_HOST");
}

TEST_F(Misbehaving, NamesWithoutAnEndAndAMillionParameters) {
  Misbehave("names");
  TPQFreeFrame effect;
  effect.SetFilterFileName(Example("misbehave"));
  ASSERT_EQ(effect.GetParameters().GetCount(), 3);
  EXPECT_EQ(effect.GetParameters().GetItem(0)->GetVC_Name(), "");
  EXPECT_EQ(effect.GetParameters().GetItem(1)->GetVC_Name(), "");
  EXPECT_EQ(effect.GetParameters().GetItem(2)->GetVC_Name(), "No end to this n");
  Misbehave("million");
  PluginBench b;
  b.effect.SetFilterFileName(Example("misbehave"));
  EXPECT_EQ(b.effect.GetParameters().GetCount(), 65535);
  EXPECT_TRUE(b.Told({"too many parameters", "1000000"}));
  EXPECT_EQ(b.effect.GetParameters().InstanceProperties().size(), 65535u);
  Misbehave("fail:4");
  b.effect.SetFilterFileName(Example("misbehave"));
  EXPECT_EQ(b.effect.GetParameters().GetCount(), 0);
  Misbehave("empty-info");
  b.effect.SetFilterFileName(Example("misbehave"));
  EXPECT_TRUE(b.effect.GetHasExtendedInfo());
  EXPECT_EQ(b.effect.GetMajorVertion() * 100 + b.effect.GetMinorVertion(), 709);
  EXPECT_EQ(b.effect.GetDescription() + b.effect.GetAbout(), "");
}

TEST(PQFreeFrame, ThePlugInMayBeChangedWhileAStreamRuns) {
  PluginBench b;
  b.effect.SetFilterFileName(Example("badge"));
  EXPECT_EQ(b.effect.GetDescription(), "Puts a badge into the picture");
  EXPECT_EQ(b.effect.GetAbout(), "An example of Pantiq");
  EXPECT_EQ(b.effect.GetParameters().GetCount(), 9);
  b.Start(40, 30);
  const PQImageRef badge = b.Send(40, 30);
  b.effect.SetFilterFileName(Example("waves"));
  EXPECT_EQ(b.effect.GetVC_OptimizedFor(), ofInPlace);
  EXPECT_EQ(b.effect.GetParameters().WriteData(), (PQValue::List{"0.25", "0.5"}));
  const PQImageRef waves = b.Send(40, 30);
  ASSERT_TRUE(badge && waves);
  EXPECT_NE(Bytes(*badge), Bytes(*waves));
  b.effect.SetFilterFileName("");
  EXPECT_FALSE(b.effect.GetHasExtendedInfo());
  EXPECT_FALSE(b.Send(40, 30));
  EXPECT_EQ(b.sink.log.back().substr(0, 5), "frame") << "the stream itself goes on";
}

// Values, files, starts and stops from other threads, against frames.
void ThreadsMeet(bool isolated, int rounds) {
  PluginBench b;
  b.effect.SetIsolated(isolated);
  b.sink.record = false;
  b.effect.SetFilterFileName(Example("badge"));
  std::atomic<bool> done{false};
  std::thread setter([&] {
    for (int i = 0; !done; ++i) {
      if (const auto item = b.effect.GetParameters().GetItem(i % 9)) {
        item->SetStringValue(std::to_string(i % 256)).IgnoreError();
        item->GetStringValue();
      }
      b.effect.GetParameters().WriteData();
      b.effect.GetDescription();
    }
  });
  std::thread changer([&] {
    for (int i = 0; !done; ++i) {
      b.effect.SetFilterFileName(Example(i % 2 == 0 ? "badge" : "sepia32"));
      TestSource more;
      EXPECT_TRUE(more.OutputPin.Connect(*b.effect.InputPins.GetPin(1)).Ok());
    }
  });
  for (int i = 0; i < rounds; ++i) {
    b.Start(32, 16);
    for (int k = 0; k < 5; ++k) b.sources[0].OutputPin.SubmitBuffer(MakeFrame(32, 16));
    b.Stop();
  }
  done = true;
  setter.join();
  changer.join();
}
TEST(PQFreeFrame, ThreadsMayMeet) { ThreadsMeet(false, 60); }
TEST(PQFreeFrame, ThreadsMayMeetInTheProcessOfAPlugIn) { ThreadsMeet(true, 15); }

}  // namespace
}  // namespace pantiq
