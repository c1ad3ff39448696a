#include "pantiq/core/PQGraph.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>

#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/core/RWStreamTypes.h"
#include "pantiq/host/PQCollection.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQTextDocument.h"

namespace pantiq {
namespace {

// --- Components that only have properties and pins ---

enum GraphAxis : std::uint8_t { gaAcross, gaDown };

class GraphGen final : public TComponent {
 public:
  static int alive;
  explicit GraphGen(TComponent* owner) : TComponent(owner), OutputPin(*this, {}) { ++alive; }
  ~GraphGen() override {
    BeforeDestructionOnce();
    --alive;
  }
  static const PQClassInfo& Class();
  const PQClassInfo& ClassInfo() const override { return Class(); }
  void Loaded() override { ++loaded; }
  std::uint16_t GetWidth() const { return width; }
  void SetWidth(std::uint16_t v) { width = v; }
  std::string GetTitle() const { return title; }
  void SetTitle(std::string v) { title = std::move(v); }
  GraphAxis GetAxis() const { return axis; }
  void SetAxis(GraphAxis v) { axis = v; }
  std::uint16_t width = 240;
  std::string title;
  GraphAxis axis = gaAcross;
  int loaded = 0;
  TPQJCImageSourcePin OutputPin;

 private:
  void BeforeDestruction() override { OutputPin.Disconnect(); }
};
int GraphGen::alive = 0;

class GraphFilter final : public TComponent {
 public:
  explicit GraphFilter(TComponent* owner) : TComponent(owner), InputPin(*this, {}), OutputPin(*this, {}) {
    OutputPin.FunctionSinkPins.Add(InputPin, true);
  }
  ~GraphFilter() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info =
        PQDescribe<GraphFilter>("TGraphFilter", "PQGraph_test", "One in, one out.")
            .Inherits<TComponent>()
            .Property("Amount", &GraphFilter::GetAmount, &GraphFilter::SetAmount, PQDefault(1.0))
            .Pin("InputPin", &GraphFilter::InputPin)
            .Pin("OutputPin", &GraphFilter::OutputPin)
            .Pin("EnabledPin", &GraphFilter::EnabledPin)
            .Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  double GetAmount() const { return amount; }
  void SetAmount(double v) { amount = v; }
  double amount = 1;
  TPQJCImageSinkPin InputPin;
  TPQJCImageSourcePin OutputPin;
  TJCBoolStatePin EnabledPin{*this, [](bool) {}, true};

 private:
  void BeforeDestruction() override { InputPin.Disconnect(), OutputPin.Disconnect(), EnabledPin.Disconnect(); }
};

class GraphSplit final : public TComponent {
 public:
  explicit GraphSplit(TComponent* owner) : TComponent(owner), InputPin(*this, {}), Left(*this, {}), Right(*this, {}) {
    OutputPins.Add(Left, "L*");
    OutputPins.Add(Right, "Right");
  }
  ~GraphSplit() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info = PQDescribe<GraphSplit>("TGraphSplit", "PQGraph_test", "One in, two out.")
                                         .Inherits<TComponent>()
                                         .Pin("InputPin", &GraphSplit::InputPin)
                                         .Pin("OutputPins", &GraphSplit::OutputPins)
                                         .Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TPQJCImageSinkPin InputPin;
  TPQJCImageSourcePin Left, Right;
  TJCSourcePinList OutputPins{this, false};

 private:
  void BeforeDestruction() override { InputPin.Disconnect(), OutputPins.Disconnect(); }
};

class GraphMix final : public TComponent {
 public:
  explicit GraphMix(TComponent* owner) : TComponent(owner), OutputPin(*this, {}) {}
  ~GraphMix() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info = PQDescribe<GraphMix>("TGraphMix", "PQGraph_test", "Up to three in, one out.")
                                         .Inherits<TComponent>()
                                         .Pin("InputPins", &GraphMix::InputPins)
                                         .Pin("OutputPin", &GraphMix::OutputPin)
                                         .Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TPQJCImageSourcePin OutputPin;
  TJCSinkPinList InputPins{this, true};
  TJCPinListOwner grows{InputPins, 1, 3, [this] { return std::make_unique<TPQJCImageSinkPin>(*this, JCDispatch()); }};

 private:
  void BeforeDestruction() override { InputPins.Disconnect(), OutputPin.Disconnect(); }
};

class GraphChannel : public TCollectionItem {
 public:
  GraphChannel(TCollection* list, TComponent& owner) : TCollectionItem(list), InputPin(owner, {}) {}
  static const PQClassInfo& Class() {
    static const PQClassInfo& info =
        PQDescribe<GraphChannel>("GraphChannel", "PQGraph_test", "An input.")
            .Property("Threshold", &GraphChannel::GetThreshold, &GraphChannel::SetThreshold, PQDefault(0))
            .Pin("InputPin", &GraphChannel::InputPin)
            .Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  std::int32_t GetThreshold() const { return threshold; }
  void SetThreshold(std::int32_t v) { threshold = v; }
  std::int32_t threshold = 0;
  TPQJCImageSinkPin InputPin;
};

class GraphChannels : public TCollection {
 public:
  explicit GraphChannels(TComponent& owner) : owner_(owner) {}
  const PQClassInfo& ItemClassInfo() const override { return GraphChannel::Class(); }

 protected:
  std::unique_ptr<TCollectionItem> CreateItem() override { return std::make_unique<GraphChannel>(this, owner_); }

 private:
  TComponent& owner_;
};

class GraphSwitch final : public TComponent {
 public:
  explicit GraphSwitch(TComponent* owner) : TComponent(owner), OutputPin(*this, {}) {}
  ~GraphSwitch() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info =
        PQDescribe<GraphSwitch>("TGraphSwitch", "PQGraph_test", "Channels in, one out.")
            .Inherits<TComponent>()
            .Property("Active", &GraphSwitch::GetActive, &GraphSwitch::SetActive, PQDefault(0), PQOrder(1))
            .Collection("Channels", &GraphSwitch::GetChannels)
            .Pin("OutputPin", &GraphSwitch::OutputPin)
            .Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  std::int32_t GetActive() const { return active; }
  PQStatus SetActive(std::int32_t v) {
    if (v < 0 || (v > 0 && v >= channels.GetCount())) {
      return {PQCode::BadValue,
              std::to_string(v) + " is no channel; expected 0 to " + std::to_string(channels.GetCount() - 1)};
    }
    active = v;
    return {};
  }
  GraphChannels& GetChannels() { return channels; }
  std::int32_t active = 0;
  GraphChannels channels{*this};
  TPQJCImageSourcePin OutputPin;

 private:
  void BeforeDestruction() override { OutputPin.Disconnect(); }
};

class GraphReals final : public TComponent {
 public:
  explicit GraphReals(TComponent* owner) : TComponent(owner), InputPin(*this, {}) {}
  ~GraphReals() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info = PQDescribe<GraphReals>("TGraphReals", "PQGraph_test", "Takes numbers.")
                                         .Inherits<TComponent>()
                                         .Pin("InputPin", &GraphReals::InputPin)
                                         .Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TRWJCComboRealSinkPin InputPin;

 private:
  void BeforeDestruction() override { InputPin.Disconnect(); }
};

class GraphSink final : public TComponent {
 public:
  explicit GraphSink(TComponent* owner) : TComponent(owner), InputPin(*this, {}) {}
  ~GraphSink() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info = PQDescribe<GraphSink>("graphsink", "PQGraph_test", "A sink of a program.")
                                         .Inherits<TComponent>()
                                         .Pin("InputPin", &GraphSink::InputPin)
                                         .Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TPQJCImageSinkPin InputPin;

 private:
  void BeforeDestruction() override { InputPin.Disconnect(); }
};

class GraphBroken final : public TComponent {
 public:
  explicit GraphBroken(TComponent* owner) : TComponent(owner) { throw std::runtime_error("no luck"); }
  ~GraphBroken() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class() {
    static const PQClassInfo& info =
        PQDescribe<GraphBroken>("TGraphBroken", "PQGraph_test", "Throws.").Inherits<TComponent>().Done();
    return info;
  }
  const PQClassInfo& ClassInfo() const override { return Class(); }
};

}  // namespace

template <>
struct PQEnumWords<GraphAxis> {
  static constexpr PQWord words[] = {{"gaAcross", gaAcross}, {"gaDown", gaDown}};
  static constexpr std::string_view name = "GraphAxis";
};

namespace {

const PQClassInfo& GraphGen::Class() {
  static const PQClassInfo& info =
      PQDescribe<GraphGen>("TGraphGen", "PQGraph_test", "One out.")
          .Inherits<TComponent>()
          .Property("Width", &GraphGen::GetWidth, &GraphGen::SetWidth, PQDefault(240), PQUnit("pixels"))
          .Property("Title", &GraphGen::GetTitle, &GraphGen::SetTitle, PQDefault(""), PQBareValue{})
          .Property("Axis", &GraphGen::GetAxis, &GraphGen::SetAxis, PQDefault(gaAcross))
          .Pin("OutputPin", &GraphGen::OutputPin)
          .Done();
  return info;
}

class PQGraphTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    const PQClassInfo* const classes[] = {&GraphGen::Class(),    &GraphFilter::Class(), &GraphSplit::Class(),
                                          &GraphMix::Class(),    &GraphSwitch::Class(), &GraphReals::Class(),
                                          &GraphBroken::Class(), &TComponent::Class()};
    RegisterComponents(kPantiqPage, classes);
    const PQClassInfo* const of_program[] = {&GraphSink::Class()};
    RegisterComponents("PQGraph_test", of_program);
  }
};

std::string Told(const std::vector<PQFault>& faults) {
  std::string text;
  for (const PQFault& fault : faults) {
    text += std::to_string(fault.line) + ":" + std::to_string(fault.column) + "+" + std::to_string(fault.length) + " " +
            (fault.severity == PQSeverity::Error     ? ""
             : fault.severity == PQSeverity::Warning ? "warning: "
                                                     : "note: ") +
            fault.text + "\n";
  }
  return text;
}

std::string Launch(PQGraph& graph, std::string_view text) {
  std::vector<PQFault> faults;
  EXPECT_EQ(graph.ParseLaunch(text, faults), faults.empty()) << text;
  return Told(faults);
}

std::string Saved(const PQGraph& graph) {
  std::string text;
  const PQStatus status = graph.SaveText(text);
  EXPECT_TRUE(status.Ok()) << status.Text();
  return text;
}

TEST_F(PQGraphTest, EveryFaultOfALaunchLineIsToldAtItsPlace) {
  struct {
    const char* launch;
    const char* faults;
  } const cases[] = {
      {"", "0:0+1 the graph is empty; expected a source and a sink, as 'TPQImageGen ! ...'\n"},
      {"# nothing", "0:0+1 the graph is empty; expected a source and a sink, as 'TPQImageGen ! ...'\n"},
      {"!",
       "1:1+1 nothing stands on the left of '!'; expected a component or a source pin\n"
       "1:1+1 nothing stands on the right of '!'; expected a component or a sink pin\n"},
      {"TGraphGen !", "1:11+1 nothing stands on the right of '!'; expected a component or a sink pin\n"},
      {"! TGraphFilter", "1:1+1 nothing stands on the left of '!'; expected a component or a source pin\n"},
      {"TGraphGen ! ! TGraphFilter", "1:13+1 two '!' in a row; expected a component or a pin between them\n"},
      {"TGraphGen Width=300 TGraphFilter",
       "1:1+9 warning: GraphGen1 is not connected to anything; expected a connection, as 'GraphGen1 ! ...'\n"
       "1:21+12 warning: GraphFilter1 is not connected to anything; expected a connection, as 'GraphFilter1 ! ...'\n"
       "0:0+1 the graph has no sink; expected a component whose input is connected\n"},
      {"TGrafGen ! TGraphFilter",
       "1:1+8 there is no class 'TGrafGen'; expected the name of a component's class; nearest is 'TGraphGen'\n"},
      {"GraphGen ! GraphFilter",
       "1:1+8 there is no class 'GraphGen'; expected the name of a component's class; nearest is 'TGraphGen'\n"
       "1:12+11 there is no class 'GraphFilter'; expected the name of a component's class; nearest is "
       "'TGraphFilter'\n"},
      {"x y",
       "1:1+1 there is no class 'x'; expected the name of a component's class\n"
       "1:3+1 there is no class 'y'; expected the name of a component's class\n"},
      {"TGraphGen Width=70000 ! TGraphFilter",
       "1:17+5 GraphGen1.Width: '70000' is not allowed; expected an integer from 0 to 65535\n"},
      {"TGraphGen Width = 3 ! TGraphFilter", "1:11+7 Width: a blank stands before '='; expected Width=value\n"},
      {"TGraphGen Widht=3 ! TGraphFilter",
       "1:11+5 GraphGen1: there is no property 'Widht' in TGraphGen; expected one of Width, Title, Axis, OutputPin; "
       "nearest is 'Width'\n"},
      {"TGraphGen Axis=gaDwon ! TGraphFilter Amount=much",
       "1:16+6 GraphGen1.Axis: 'gaDwon' is not allowed; expected one of gaAcross, gaDown; nearest is 'gaDown'\n"
       "1:45+4 GraphFilter1.Amount: 'much' is not allowed; expected a number up to 1.7976931348623157e+308\n"},
      {"TGraphGen Title='a\nb' ! TGraphFilter",
       "1:17+2 the text is not closed; expected a single quote at its end in the same line, '' for one inside\n"},
      {"TGraphGen Title='a'b ! TGraphFilter",
       "1:20+1 there is more behind the value of Title; expected a blank behind the value, text with blanks in single "
       "quotes\n"},
      {"TGraphGen 'a'b ! TGraphFilter",
       "1:11+4 there is more behind the text; expected a blank behind the closing quote\n"},
      {"TGraphGen Width= ! TGraphFilter", "1:11+6 the value of Width is missing; expected a value right behind '='\n"},
      {"TGraphGen =3 ! TGraphFilter",
       "1:1+11 TGraphGen: a blank stands before '='; expected TGraphGen=value\n"
       "1:14+1 nothing stands on the left of '!'; expected a component or a source pin\n"},
      {"TGraphGen ! TGraphFilter 'x'",
       "1:26+3 GraphFilter1: TGraphFilter takes no value without a property; expected Property=value\n"},
      {"TGraphGen Title=1 'x' ! TGraphFilter",
       "1:19+5 GraphGen1.Title: is set twice; expected one value for each property; the first stands in line 1, column "
       "11\n"},
      {"Width=3 TGraphGen ! TGraphFilter",
       "1:1+5 Width: this setting belongs to no component; expected it behind the class of its component\n"},
      {"'x' TGraphGen ! TGraphFilter",
       "1:1+3 'x': this setting belongs to no component; expected it behind the class of its component\n"},
      {"TGraphGen ! Width=3 TGraphFilter",
       "1:13+5 Width: a setting stands behind '!'; expected a component or a sink pin\n"},
      {"TGraphGen Name=a ! TGraphFilter Name=a",
       "1:38+1 the name 'a' is taken; expected a name of its own; the first stands in line 1, column 16\n"},
      {"TGraphGen Name=1a ! TGraphFilter",
       "1:16+2 '1a' is no name of a component; expected letters, digits and underscores, not starting with a digit\n"},
      {"TGraphGen Name=a Name=b ! TGraphFilter", "1:18+4 Name: is set twice; expected one name for each component\n"},
      {"TGraphGen Name='' ! TGraphFilter",
       "1:16+2 Name: '' is no name of a component; expected letters, digits and underscores, not starting with a "
       "digit\n"},
      {"TGraphGen ! nobody.InputPin", "1:13+6 there is no component 'nobody'; expected one of GraphGen1\n"},
      {"TGraphGen Name=gen ! TGraphFilter  gne.OutputPin ! TGraphFilter",
       "1:36+3 there is no component 'gne'; expected one of gen, GraphFilter1, GraphFilter2; nearest is 'gen'\n"},
      {"TGraphGen Name=gen ! TGraphFilter  gen.OutputPni ! TGraphFilter",
       "1:40+9 gen: there is no pin 'OutputPni' in TGraphGen; expected one of OutputPin; nearest is 'OutputPin'\n"},
      {"TGraphGen Name=gen ! TGraphFilter gen.Width ! TGraphFilter",
       "1:39+5 gen.Width: this is no pin; expected one of OutputPin\n"},
      {"TGraphGen Name=gen ! TGraphFilter gen. ! TGraphFilter",
       "1:38+1 gen.: the pin's name is missing; expected a pin, as gen.OutputPin\n"},
      {"TGraphGen Name=gen ! TGraphFilter gen[0] ! TGraphFilter",
       "1:38+3 gen[0]: the pin's name is missing; expected a pin, as gen.OutputPin\n"},
      {"TGraphFilter ! TGraphGen",
       "1:16+9 GraphGen1: TGraphGen has no sink (input) pin; expected a component with one; it has one of OutputPin\n"},
      {"TGraphGen Name=g ! g.OutputPin", "1:20+11 cannot connect g.OutputPin to itself\n"},
      {"TGraphFilter Name=f TGraphFilter Name=g f.InputPin ! g.InputPin",
       "1:54+10 cannot connect f.InputPin to g.InputPin: both are sinks (inputs); expected one source and one sink\n"},
      {"TGraphGen Name=g TGraphFilter Name=f  f.InputPin ! g.OutputPin",
       "1:52+11 f.InputPin is a sink (input); expected a source (output), connected to a sink\n"},
      {"TGraphGen ! TGraphReals",
       "1:13+11 cannot connect GraphGen1.OutputPin (image) to GraphReals1.InputPin (real): expected pins of the same "
       "stream type\n"},
      {"TGraphFilter Name=f ! TGraphFilter ! f",
       "1:38+1 cannot connect GraphFilter1.OutputPin to f.InputPin: the stream would feed itself (a cycle)\n"},
      {"TGraphFilter Name=f ! f",
       "1:23+1 cannot connect f.OutputPin to f.InputPin: the stream would feed itself (a cycle)\n"},
      {"TGraphGen ! TGraphFilter Name=f  TGraphGen ! f",
       "1:46+1 f.InputPin is connected twice, to GraphGen1.OutputPin and to GraphGen2.OutputPin; expected one "
       "connection a sink; the first stands in line 1, column 13\n"},
      {"TGraphGen ! TGraphSplit Name=s ! TGraphFilter  s ! TGraphFilter  s ! TGraphFilter",
       "1:66+1 s.OutputPins: all of its 2 pins are connected; expected a pin by its number or name, as "
       "OutputPins[0]\n"},
      {"TGraphGen ! TGraphSplit Name=s  s.OutputPins[2] ! TGraphFilter",
       "1:45+3 s.OutputPins: there is nothing of number 2; expected an index from 0 to 1\n"},
      {"TGraphGen ! TGraphSplit Name=s  s.OutputPins.'R*' ! TGraphFilter",
       "1:46+4 s.OutputPins: there is no pin 'R*'; expected one of 'L*', Right; nearest is 'L*'\n"},
      {"TGraphGen ! TGraphSplit Name=s  s.OutputPins.Rigt ! TGraphFilter",
       "1:46+4 s.OutputPins: there is no pin 'Rigt'; expected one of 'L*', Right; nearest is 'Right'\n"},
      {"TGraphGen ! TGraphSplit Name=s  s.OutputPins.'L* ! TGraphFilter",
       "1:46+18 the text is not closed; expected a single quote at its end in the same line, '' for one inside\n"},
      {"TGraphGen ! TGraphSwitch Channels[0]=3",
       "1:13+12 GraphSwitch1: TGraphSwitch has no sink (input) pin; expected a component with one; it has one of "
       "OutputPin\n"
       "1:34+3 GraphSwitch1.Channels[0]: an item alone takes no value; expected a property of it, as [0].Property\n"},
      {"TGraphGen Name=g  TGraphSwitch Name=s Channels[0].Threshold=x Channels.Threshold=3 ! TGraphFilter",
       "1:61+1 s.Channels[0].Threshold: 'x' is not allowed; expected an integer from -2147483648 to 2147483647\n"
       "1:72+9 s.Channels: this is a collection; expected the number of an item first, as [0].Threshold\n"},
      {"TGraphGen ! TGraphSwitch",
       "1:13+12 GraphSwitch1: TGraphSwitch has no sink (input) pin; expected a component with one; it has one of "
       "OutputPin\n"},
      {"TGraphSwitch Active=1 ! TGraphFilter", "1:21+1 GraphSwitch1.Active: 1 is no channel; expected 0 to -1\n"},
      {"TGraphBroken ! TGraphFilter", "1:1+12 TGraphBroken cannot be made: no luck\n"},
      {"TComponent ! TGraphFilter",
       "1:1+10 TComponent cannot be made: it only serves as a base; expected a class of its own\n"},
      {"TGraphGen InputPin=x ! TGraphFilter InputPin=y.OutputPin",
       "1:11+8 GraphGen1: there is no property 'InputPin' in TGraphGen; expected one of Width, Title, Axis, OutputPin\n"
       "1:46+1 there is no component 'y'; expected one of GraphGen1, GraphFilter1\n"},
      {"TGraphGen Name=g  TGraphFilter OutputPin=g.OutputPin",
       "1:32+9 GraphFilter1.OutputPin: is a source pin; expected the connection at the sink, as InputPin = "
       "Name.OutputPin\n"},
      {"TGraphGen ! TGraphFilter a-b ! c",
       "1:26+3 'a-b' is out of place; expected a class, a pin, Property=value or '!'\n"
       "1:32+1 there is no class 'c'; expected the name of a component's class\n"},
      {"TGraphGen Width=(1 ! TGraphFilter", "1:17+1 '(' is not closed; expected ')' behind the value\n"},
      {"TGraphGen Width=[1] ! TGraphFilter",
       "1:17+3 GraphGen1.Width: '[1]' is not allowed; expected an integer from 0 to 65535\n"},
      {"TGraphGen Width=1 Width=2 ! TGraphFilter",
       "1:19+5 GraphGen1.Width: is set twice; expected one value for each property; the first stands in line 1, column "
       "11\n"},
      {"TGraphGen Width=70000\n  ! TGraphFiltr  # no\n  ! TGraphFilter Amount=x",
       "1:17+5 GraphGen1.Width: '70000' is not allowed; expected an integer from 0 to 65535\n"
       "2:5+11 there is no class 'TGraphFiltr'; expected the name of a component's class; nearest is 'TGraphFilter'\n"
       "3:25+1 GraphFilter1.Amount: 'x' is not allowed; expected a number up to 1.7976931348623157e+308\n"},
      {"TGraphFilter ! TGraphFilter",
       "1:1+12 warning: GraphFilter1: nothing arrives, no input is connected; expected a source at "
       "GraphFilter1.InputPin\n"
       "0:0+1 the graph has no source; expected a component that gives a stream of its own\n"},
      {"TGraphGen",
       "1:1+9 warning: GraphGen1 is not connected to anything; expected a connection, as 'GraphGen1 ! ...'\n"
       "0:0+1 the graph has no sink; expected a component whose input is connected\n"},
      {"TGraphGen ! TGraphFilter TGraphFilter",
       "1:26+12 warning: GraphFilter2 is not connected to anything; expected a connection, as 'GraphFilter2 ! ...'\n"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Told(PQGraph::CheckLaunch(c.launch)), c.faults) << c.launch;
    EXPECT_EQ(GraphGen::alive, 0);
  }
}

TEST_F(PQGraphTest, EveryFaultOfAFileIsToldAtItsPlace) {
  struct {
    const char* file;
    const char* faults;
  } const cases[] = {
      {"", "1:1+1 the text does not begin with its header; expected 'pantiq graph 1' in the first line\n"},
      {"pantiq graph 2\n",
       "1:1+14 'pantiq graph 2' is not the header of such a file; expected 'pantiq graph 1' in the first line\n"},
      {"object a: TGraphGen\nend\n",
       "1:1+19 'object a: TGraphGen' is not the header of such a file; expected 'pantiq graph 1' in the first line\n"},
      {"pantiq graph 1\nobject a TGraphGen\nend\n",
       "2:8+1 the object's class is missing; expected 'object NAME: CLASS'\n"},
      {"pantiq graph 1\nobject 1a: TGraphGen\nend\n",
       "2:8+2 '1a' is no name of a component; expected letters, digits and underscores, not starting with a digit\n"},
      {"pantiq graph 1\nobject a: TGraphGe\nend\n",
       "2:11+8 there is no class 'TGraphGe'; expected the name of a component's class; nearest is 'TGraphGen'\n"},
      {"pantiq graph 1\nobject a: T-G\nend\n", "2:11+3 'T-G' is no name of a class; expected 'object NAME: CLASS'\n"},
      {"pantiq graph 1\nobject a: TGraphGen x\nend\n",
       "2:21+1 there is more behind the class; expected one 'object NAME: CLASS' a line\n"},
      {"pantiq graph 1\nWidth = 3\n",
       "2:1+5 'Width' stands outside of all objects; expected 'object NAME: CLASS' before it\n"},
      {"pantiq graph 1\nobject a: TGraphGen\nobject b: TGraphFilter\n  InputPin = a.OutputPin\n",
       "3:1+6 the block that begins in line 2 is not closed; expected a line 'end' before the next object\n"
       "3:8+1 this block is not closed; expected a line 'end' behind its last property\n"},
      {"pantiq graph 1\nobject a: TGraphGen\nend\nobject a: TGraphGen\nend\n",
       "4:8+1 the name 'a' is taken; expected a name of its own; the first stands in line 2, column 8\n"},
      {"pantiq graph 1\nobject a: TGraphGen\nend\nobject b: TGraphFilter\n  InputPin = a.OutputPni\nend\n",
       "5:16+9 a: there is no pin 'OutputPni' in TGraphGen; expected one of OutputPin; nearest is 'OutputPin'\n"},
      {"pantiq graph 1\nobject a: TGraphGen\nend\nobject b: TGraphFilter\n  InputPin = c.OutputPin\n  Amount = x # "
       "no\nend\n",
       "5:14+1 there is no component 'c'; expected one of a, b\n"
       "6:12+1 b.Amount: 'x' is not allowed; expected a number up to 1.7976931348623157e+308\n"},
      {"pantiq graph 1\nobject a: TGraphGen\n  OutputPin = b.InputPin\nend\nobject b: TGraphFilter\nend\n",
       "3:3+9 a.OutputPin: is a source pin; expected the connection at the sink, as InputPin = Name.OutputPin\n"},
      {"pantiq graph 1\nobject b: TGraphFilter\n  InputPin = b.OutputPin\nend\n",
       "3:14+11 cannot connect b.OutputPin to b.InputPin: the stream would feed itself (a cycle)\n"},
      {"pantiq graph 1\nobject b: TGraphFilter\n  InputPin = c.InputPin\nend\nobject c: TGraphFilter\nend\n",
       "3:14+10 cannot connect c.InputPin to b.InputPin: both are sinks (inputs); expected one source and one sink\n"},
      {"pantiq graph 1\nobject s: TGraphSwitch\n  Channels\n  item\n    InputPin = b.OutputPin\n    Treshold = 3\n  "
       "end\n  item\n    InputPin = q.OutputPin\n  end\nend\nend\n",
       "5:16+1 there is no component 'b'; expected one of s\n"
       "6:5+8 s.Channels[0]: there is no property 'Treshold' in GraphChannel; expected one of Threshold, InputPin; "
       "nearest is 'Threshold'\n"
       "9:16+1 there is no component 'q'; expected one of s\n"
       "12:1+3 this 'end' closes nothing; expected one 'end' a block\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(Told(PQGraph::CheckText(c.file)), c.faults) << c.file;
}

TEST_F(PQGraphTest, FaultsAreShownWithTheirLineAndACaret) {
  const std::string launch = "TGraphGen\n  Width=70000 ! TGraphFilter";
  const std::vector<PQFault> faults = PQGraph::CheckLaunch(launch);
  ASSERT_EQ(faults.size(), 1u);
  EXPECT_EQ(PQFaultText(faults[0], launch),
            "2:9: error: GraphGen1.Width: '70000' is not allowed; expected an integer from 0 to 65535\n"
            "  Width=70000 ! TGraphFilter\n"
            "        ^~~~~");
  EXPECT_EQ(faults[0].component, "GraphGen1");
  EXPECT_EQ(faults[0].property, "Width");
  EXPECT_EQ(faults[0].value, "70000");
  EXPECT_EQ(faults[0].expected, "an integer from 0 to 65535");
  const std::vector<PQFault> nearest = PQGraph::CheckLaunch("TGraphGen Widht=1 ! TGraphFilter");
  ASSERT_EQ(nearest.size(), 1u);
  EXPECT_EQ(nearest[0].property, "Widht");
  EXPECT_EQ(nearest[0].nearest, "Width");
}

constexpr char kLaunch[] =
    "TGraphGen Name=gen Width=320 'it''s a title' # the source\n"
    "  ! TGraphSplit Name=split ! TGraphMix\n"
    "TGraphGen Axis=gaDown Title=second ! GraphMix1.InputPins[1]\n"
    "split.OutputPins.Right ! TGraphFilter Name=late Amount=0.5 EnabledPin=early.EnabledPin\n"
    "gen.OutputPin ! early  gen ! TGraphFilter Name=early\n"
    "gen ! sw.Channels[1].InputPin  TGraphSwitch Name=sw Active=1 Channels[1].Threshold=7 Channels[0].Threshold=3\n"
    "sw ! TGraphFilter  early ! sw.Channels[0].InputPin";

constexpr char kFile[] =
    "pantiq graph 1\n"
    "\n"
    "object gen: TGraphGen\n"
    "  Width = 320\n"
    "  Title = 'it''s a title'\n"
    "end\n"
    "\n"
    "object split: TGraphSplit\n"
    "  InputPin = gen.OutputPin\n"
    "end\n"
    "\n"
    "object GraphMix1: TGraphMix\n"
    "  InputPins.Pin1 = split.OutputPins.'L*'\n"
    "  InputPins.Pin2 = GraphGen1.OutputPin\n"
    "end\n"
    "\n"
    "object GraphGen1: TGraphGen\n"
    "  Title = 'second'\n"
    "  Axis = gaDown\n"
    "end\n"
    "\n"
    "object late: TGraphFilter\n"
    "  Amount = 0.5\n"
    "  InputPin = split.OutputPins.Right\n"
    "  EnabledPin = early.EnabledPin\n"
    "end\n"
    "\n"
    "object early: TGraphFilter\n"
    "  InputPin = gen.OutputPin\n"
    "end\n"
    "\n"
    "object sw: TGraphSwitch\n"
    "  Channels\n"
    "  item\n"
    "    Threshold = 3\n"
    "    InputPin = early.OutputPin\n"
    "  end\n"
    "  item\n"
    "    Threshold = 7\n"
    "    InputPin = gen.OutputPin\n"
    "  end\n"
    "  Active = 1\n"
    "end\n"
    "\n"
    "object GraphFilter1: TGraphFilter\n"
    "  InputPin = sw.OutputPin\n"
    "end\n";

TEST_F(PQGraphTest, LaunchLineFileAndBinaryStreamSayTheSame) {
  PQGraph graph;
  const std::string launch = std::string(kLaunch).replace(std::string(kLaunch).find("gen.OutputPin ! early  "), 23, "");
  ASSERT_EQ(Launch(graph, launch), "");
  EXPECT_EQ(Saved(graph), kFile);
  EXPECT_EQ(Told(graph.Check()), "");
  for (TComponent* component : graph.GetComponents()) {
    if (const GraphGen* gen = dynamic_cast<GraphGen*>(component)) {
      EXPECT_EQ(gen->loaded, 1);
    }
    EXPECT_FALSE(component->IsLoading());
  }

  std::vector<PQFault> faults;
  PQGraph loaded, from_binary;
  ASSERT_TRUE(loaded.LoadText(kFile, faults)) << Told(faults);
  EXPECT_EQ(Saved(loaded), kFile);
  EXPECT_EQ(loaded.ToDot(), graph.ToDot());

  std::vector<std::uint8_t> bytes, again;
  ASSERT_TRUE(graph.SaveBinary(bytes).Ok());
  ASSERT_TRUE(from_binary.LoadBinary(bytes, faults)) << Told(faults);
  EXPECT_EQ(Saved(from_binary), kFile);
  ASSERT_TRUE(from_binary.SaveBinary(again).Ok());
  EXPECT_EQ(again, bytes);
  EXPECT_TRUE(faults.empty());
}

TEST_F(PQGraphTest, ListsOfPinsGrowInWhateverOrderTheirPinsAreNamed) {
  const std::string objects = "pantiq graph 1\nobject g: TGraphGen\nend\nobject m: TGraphMix\n";
  PQGraph graph;
  std::vector<PQFault> faults;
  EXPECT_TRUE(graph.LoadText(
      objects + "InputPins[2] = g.OutputPin\nInputPins.Pin2 = g.OutputPin\nInputPins.Pin1 = g.OutputPin\nend\n",
      faults))
      << Told(faults);
  EXPECT_EQ(static_cast<GraphGen*>(graph.Find("g"))->OutputPin.GetConnectedPinCount(), 3);
  EXPECT_EQ(Told(PQGraph::CheckText(objects + "  InputPins.Pin3 = g.OutputPin\n  InputPins.Pin1 = g.OutputPin\nend\n")),
            "5:13+4 m.InputPins: there is no pin 'Pin3'; expected one of Pin1, Pin2; nearest is 'Pin1'\n");
  EXPECT_EQ(Launch(graph, "TGraphGen ! m.InputPins[1]  TGraphGen ! TGraphMix Name=m"), "");
}

TEST_F(PQGraphTest, ASinkTakesOneConnectionHoweverItIsSaid) {
  EXPECT_EQ(
      Told(PQGraph::CheckLaunch(kLaunch)),
      "5:30+12 early.InputPin is connected twice, to gen.OutputPin and to gen.OutputPin; expected one connection a "
      "sink; the first stands in line 5, column 17\n");
}

TEST_F(PQGraphTest, ALoadedFileKeepsItsOrderAndComments) {
  const std::string text =
      "# mine\n"
      "pantiq graph 1 # first\n"
      "object f: TGraphFilter # the filter\n"
      "    InputPin = s.OutputPins[1] # by number\n"
      "\tAmount   =  1.50\n"
      "end # f\n"
      "\n"
      "object s: TGraphSplit\n"
      "  InputPin = g\n"
      "end\n"
      "# generators\n"
      "object g: TGraphGen\n"
      "  Width = 240 # the default\n"
      "end\n"
      "# behind\n";
  PQGraph graph;
  std::vector<PQFault> faults;
  ASSERT_TRUE(graph.LoadText(text, faults)) << Told(faults);
  EXPECT_EQ(Saved(graph), text);

  ASSERT_TRUE(graph.Set("f.Amount", "2").Ok());
  ASSERT_TRUE(graph.Connect("s.OutputPins.'L*'", "f").Ok());
  PQStatus status;
  TComponent* const added = graph.Add(GraphFilter::Class(), {}, &status);
  ASSERT_NE(added, nullptr) << status.Text();
  EXPECT_EQ(added->GetName(), "GraphFilter1");
  ASSERT_TRUE(graph.Set("GraphFilter1.InputPin", "g.OutputPin").Ok());
  const std::string changed = Saved(graph);
  EXPECT_EQ(changed,
            "# mine\n"
            "pantiq graph 1 # first\n"
            "object f: TGraphFilter # the filter\n"
            "    InputPin = s.OutputPins.'L*' # by number\n"
            "\tAmount   =  2\n"
            "end # f\n"
            "\n"
            "object s: TGraphSplit\n"
            "  InputPin = g\n"
            "end\n"
            "# generators\n"
            "object g: TGraphGen\n"
            "  Width = 240 # the default\n"
            "end\n"
            "# behind\n"
            "\n"
            "object GraphFilter1: TGraphFilter\n"
            "  InputPin = g.OutputPin\n"
            "end\n");
  ASSERT_TRUE(graph.LoadText(changed, faults)) << Told(faults);
  EXPECT_EQ(Saved(graph), changed);
  graph.Remove(*graph.Find("s"));
  EXPECT_EQ(Saved(graph).find("s.OutputPins"), std::string::npos);
  EXPECT_EQ(Saved(graph).find("object s"), std::string::npos);

  PQGraph windows;
  ASSERT_TRUE(windows.LoadText("pantiq graph 1\r\nobject g: TGraphGen\r\n  Width = 3\r\nend\r\n", faults));
  EXPECT_EQ(Saved(windows), "pantiq graph 1\nobject g: TGraphGen\n  Width = 3\nend\n");
}

TEST_F(PQGraphTest, AFailureLeavesTheGraphAsItWas) {
  PQGraph graph;
  ASSERT_EQ(Launch(graph, "TGraphGen Name=g ! TGraphFilter"), "");
  const std::string before = Saved(graph);
  TComponent* const g = graph.Find("g");
  std::vector<PQFault> faults;
  EXPECT_FALSE(graph.ParseLaunch("TGraphGen ! TGraphFilter Amount=x", faults));
  EXPECT_FALSE(graph.LoadText("pantiq graph 1\nobject a: TGraphGen\n", faults));
  EXPECT_FALSE(graph.LoadBinary(std::vector<std::uint8_t>{1, 2}, faults));
  EXPECT_FALSE(graph.Load("/no/such/file.pqg", faults));
  EXPECT_FALSE(graph.Load(testing::TempDir(), faults));
  EXPECT_EQ(faults.size(), 5u);
  EXPECT_EQ(graph.Find("g"), g);
  EXPECT_EQ(Saved(graph), before);
  EXPECT_EQ(GraphGen::alive, 1);
  graph.Clear();
  EXPECT_EQ(GraphGen::alive, 0);
}

TEST_F(PQGraphTest, ComponentsOfAProgramAreNotStored) {
  PQGraph graph;
  ASSERT_EQ(Launch(graph, "TGraphGen ! graphsink"), "");
  std::string text = "old";
  std::vector<std::uint8_t> bytes;
  const PQStatus status = graph.SaveText(text);
  EXPECT_EQ(status.Code(), PQCode::Refused);
  EXPECT_EQ(status.Text(),
            "graphsink1: graphsink is no component of the library and cannot be stored; expected classes of "
            "the page Pantiq");
  EXPECT_EQ(graph.SaveBinary(bytes).Code(), PQCode::Refused);
  EXPECT_EQ(text, "old");
}

TEST_F(PQGraphTest, SavesToFilesAndReplacesOnlyWhatIsWhole) {
  const std::filesystem::path folder = std::filesystem::path(testing::TempDir()) / "pantiq_graph_test";
  std::filesystem::create_directories(folder);
  const std::string name = (folder / "g.pqg").string();
  PQGraph graph, loaded;
  ASSERT_EQ(Launch(graph, "TGraphGen Name=g ! TGraphFilter"), "");
  ASSERT_TRUE(graph.Save(name).Ok());
  ASSERT_TRUE(graph.Set("g.Width", "5").Ok());
  ASSERT_TRUE(graph.Save(name).Ok());
  std::vector<PQFault> faults;
  ASSERT_TRUE(loaded.Load(name, faults)) << Told(faults);
  EXPECT_EQ(Saved(loaded), Saved(graph));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);
  const PQStatus status = graph.Save((folder / "none" / "g.pqg").string());
  EXPECT_EQ(status.Code(), PQCode::Io);
  std::filesystem::remove_all(folder);
}

TEST_F(PQGraphTest, DrawsItself) {
  PQGraph graph;
  ASSERT_EQ(Launch(graph, "TGraphGen Name=g ! TGraphSplit Name=s  s.OutputPins.'L*' ! TGraphFilter Name=f"), "");
  EXPECT_EQ(graph.ToDot(),
            "digraph pantiq {\n"
            "  rankdir=LR;\n"
            "  node [shape=box];\n"
            "  \"g\" [label=\"g\\nTGraphGen\"];\n"
            "  \"s\" [label=\"s\\nTGraphSplit\"];\n"
            "  \"f\" [label=\"f\\nTGraphFilter\"];\n"
            "  \"g\" -> \"s\" [label=\"OutputPin > InputPin\\nimage\"];\n"
            "  \"s\" -> \"f\" [label=\"OutputPins.'L*' > InputPin\\nimage\"];\n"
            "}\n");
}

TEST_F(PQGraphTest, ProgramsSetFindAndConnect) {
  PQGraph graph;
  ASSERT_EQ(Launch(graph, "TGraphGen Name=g ! TGraphFilter Name=f"), "");
  EXPECT_EQ(graph.Set("g.Width", "x").Text(), "g.Width: 'x' is not allowed; expected an integer from 0 to 65535");
  EXPECT_EQ(graph.Set("h.Width", "3").Text(), "there is no component 'h'; expected one of g, f");
  EXPECT_FALSE(graph.Set("g", "3").Ok());
  EXPECT_FALSE(graph.Connect("f", "f").Ok());
  EXPECT_FALSE(graph.Connect("g.Nothing", "f").Ok());
  PQStatus status;
  EXPECT_EQ(graph.FindPin("f.Amount", PQPinRole::Sink, &status), nullptr);
  EXPECT_EQ(status.Code(), PQCode::NotFound);
  EXPECT_EQ(graph.FindPin("f", PQPinRole::Sink), &static_cast<GraphFilter*>(graph.Find("f"))->InputPin);
  EXPECT_EQ(graph.Add(GraphGen::Class(), "g", &status), nullptr);
  EXPECT_EQ(graph.Add(GraphBroken::Class(), "b", &status), nullptr);
  EXPECT_EQ(status.Text(), "TGraphBroken cannot be made: no luck");
  EXPECT_EQ(graph.GetComponents().size(), 2u);
  TComponent stranger;
  graph.Remove(stranger);
}

TEST_F(PQGraphTest, HostileTextAndStreamsAreAnswered) {
  PQGraph graph;
  const std::string launch = kLaunch;
  const std::string file = kFile;
  for (const std::string& text : {launch, file}) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      std::string flipped = text;
      flipped[i] = static_cast<char>(flipped[i] ^ 0x15);
      for (const std::string& bad :
           {text.substr(0, i), text.substr(i), text.substr(0, i) + text.substr(i + 1), flipped}) {
        std::vector<PQFault> faults;
        for (const PQFault& fault : &text == &launch ? PQGraph::CheckLaunch(bad) : PQGraph::CheckText(bad)) {
          EXPECT_FALSE(fault.text.empty());
          if (fault.line > 0) {
            EXPECT_NE(PQCaret(bad, fault), "") << bad << "\n" << fault.text;
          }
        }
        graph.ParseLaunch(bad, faults);
        graph.LoadText(bad, faults);
      }
    }
  }
  std::vector<PQFault> faults;
  ASSERT_TRUE(graph.LoadText(file, faults)) << Told(faults);
  std::vector<std::uint8_t> bytes;
  ASSERT_TRUE(graph.SaveBinary(bytes).Ok());
  PQGraph other;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    faults.clear();
    EXPECT_FALSE(other.LoadBinary(std::span(bytes).first(i), faults)) << i;
    EXPECT_TRUE(other.GetComponents().empty());
    std::vector<std::uint8_t> flipped = bytes;
    flipped[i] ^= 0x41;
    PQGraph any;
    any.LoadBinary(flipped, faults);
  }
}

}  // namespace
}  // namespace pantiq
