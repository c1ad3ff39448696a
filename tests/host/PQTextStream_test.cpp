#include <gtest/gtest.h>

#include "TestObjects.h"
#include "pantiq/host/PQTextStream.h"

namespace pantiq {
namespace {

std::string FaultsOf(const std::vector<PQFault>& faults) {
  std::string text;
  for (const PQFault& fault : faults) {
    text += std::to_string(fault.line) + ":" + std::to_string(fault.column) + "+" + std::to_string(fault.length) + " " +
            fault.text + "\n";
  }
  return text;
}

std::string Read(std::string_view text, TestComponent& component, std::vector<PQTextLink>* links = nullptr) {
  std::vector<PQTextLink> some;
  std::vector<PQFault> faults;
  PQReadText(text, component, links != nullptr ? *links : some, faults);
  return FaultsOf(faults);
}

// Reads, lets `change` have its way, and writes into what was read.
template <class Change>
std::string Rewritten(const std::string& text, TestComponent& component, Change change) {
  std::vector<PQFault> faults;
  std::vector<PQTextLink> links;
  PQTextNode root;
  PQParseText(text, {}, root, faults);
  PQApplyText(component, {}, PQSettingsOf(root), links, faults);
  for (const PQTextLink& link : links)
    static_cast<TestPin*>(link.pin.property.object(*link.pin.object))->link = link.setting.value;
  EXPECT_EQ(FaultsOf(faults), "");
  change();
  PQTextUpdate how;
  how.indent = 0;
  PQUpdateText(root, component, how);
  return PQTextOf(root);
}

constexpr char kEverything[] = R"(Flag = false
Small = 9
Big = -5
Single = 0.2
Double = 1e+300
Text = 'it''s # no comment'
Shape = tsStar
Bits = [tsRound, 9]
Data = {00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 1e 1f
        20 21}
Values = (1 'two' (3.0))
Even = 4
Region.Left = 3
Items
item
  Level = 1
  Inner
  item
    Level = 5
  end
end
item
end
Index = 2
InputPin = other.OutputPin
InputPins.Pin2 = third.OutputPins.'L *'
InputPins.'Pin *' = fourth.OutputPin
)";

TEST(PQTextStream, EveryKindSurvivesAndTheTextIsStable) {
  TestComponent component;
  std::vector<PQTextLink> links;
  ASSERT_EQ(Read(kEverything, component, &links), "");
  EXPECT_EQ(component.small, 9);
  EXPECT_EQ(component.text, "it's # no comment");
  EXPECT_EQ(component.data.size(), 34u);
  EXPECT_EQ(component.region.left, 3);
  ASSERT_EQ(component.items.GetCount(), 2);
  EXPECT_EQ(static_cast<TestItem*>(component.items.GetItem(0))->GetInner().GetCount(), 1);
  EXPECT_EQ(component.order, "Even Index ");
  ASSERT_EQ(links.size(), 3u);
  EXPECT_EQ(links[1].setting.path, "InputPins.Pin2");
  EXPECT_EQ(links[1].setting.value, "third.OutputPins.'L *'");
  for (const PQTextLink& link : links)
    static_cast<TestPin*>(link.pin.property.object(*link.pin.object))->link = link.setting.value;
  EXPECT_EQ(PQWriteText(component), kEverything);

  TestComponent fresh;
  EXPECT_EQ(PQWriteText(fresh), "");  // nothing but defaults

  TestComponent copy;
  copy.Assign(component);
  component.InputPin.link = component.InputPins.pins[1].link = component.InputPins.pins[2].link = "";
  EXPECT_EQ(PQWriteText(copy), PQWriteText(component));  // links are no values
}

TEST(PQTextStream, ALoadedTextChangesOnlyWhereValuesChange) {
  const std::string text =
      "# top\n"
      "\n"
      "  Small   =  $0c   # twelve\n"
      "  Flag = true\n"  // the default, written all the same
      "  # the region\n"
      "  Region.Left = 3\n"
      "  Items # some\n"
      "  item # first\n"
      "    Level = 1 # one\n"
      "  end # of first\n"
      "  # between\n"
      "  item\n"
      "  end\n"
      "  # behind\n"
      "  InputPin = a.OutputPin # wire\n"
      "# last\n";
  TestComponent same;
  EXPECT_EQ(Rewritten(text, same, [] {}), text);

  TestComponent component;
  const std::string changed = Rewritten(text, component, [&] {
    component.small = 13;
    component.region.left = 0;
    component.region.width = 4;
    component.double_ = 0.5;
    component.items.Delete(1);
    static_cast<TestItem*>(component.items.GetItem(0))->level = 2;
    component.InputPins.pins[0].link = "b.OutputPin";
  });
  EXPECT_EQ(changed,
            "# top\n"
            "\n"
            "  Small   =  13   # twelve\n"
            "  Flag = true\n"
            "  # the region\n"
            "  Items # some\n"
            "  item # first\n"
            "    Level = 2 # one\n"
            "  end # of first\n"
            "  # between\n"
            "  Double = 0.5\n"
            "  Region.Width = 4\n"
            "  # behind\n"
            "  InputPin = a.OutputPin # wire\n"
            "  InputPins.Pin1 = b.OutputPin\n"
            "# last\n");
  TestComponent again;
  EXPECT_EQ(Rewritten(changed, again, [] {}), changed);

  TestComponent unwired;
  EXPECT_EQ(Rewritten("InputPin = a.OutputPin\n", unwired, [&] { unwired.InputPin.link = ""; }), "");
}

TEST(PQTextStream, IndexedLinesStayWhileTheySayEverything) {
  const std::string text = "Items[1].Level = 4 # second\nItems[0].Level = 3\n";
  TestComponent same;
  EXPECT_EQ(Rewritten(text, same, [] {}), text);
  EXPECT_EQ(same.items.GetCount(), 2);
  TestComponent more;
  EXPECT_EQ(Rewritten(text, more, [&] { more.items.Add(); }),
            "Items\nitem\n  Level = 3\nend\nitem\n  Level = 4\nend\nitem\nend\n");
}

TEST(PQTextStream, LineEndsMarksAndForeignProperties) {
  TestComponent component;
  EXPECT_EQ(Read("\xef\xbb\xbfSmall = 3\r\nText = a#b c  # d\r\n", component), "");
  EXPECT_EQ(component.small, 3);
  EXPECT_EQ(component.text, "a#b c");

  // What an object does not know is kept.
  std::vector<PQFault> faults;
  std::vector<PQTextLink> links;
  PQTextNode root;
  PQParseText("Unknown = 5\nSmall = 9", {}, root, faults);
  PQApplyText(component, "c", PQSettingsOf(root), links, faults);
  EXPECT_EQ(faults.size(), 1u);
  component.small = 7;
  component.text = "";
  PQUpdateText(root, component, {});
  EXPECT_EQ(PQTextOf(root), "Unknown = 5\n");

  TestComponent with;
  with.with_instance_property = true;
  EXPECT_EQ(Read("'Blur amount' = 0.5\n", with), "");
  EXPECT_EQ(with.amount, 0.5);
  EXPECT_EQ(PQWriteText(with), "'Blur amount' = 0.5\n");
}

TEST(PQTextStream, EveryFaultIsToldAtItsPlace) {
  struct {
    const char* text;
    const char* faults;
  } const cases[] = {
      {"Smal = 3",
       "1:1+4 there is no property 'Smal' in TestComponent; expected one of Index, Flag, Small, Big, Single, "
       "Double, Text, Shape, Bits, Data, Values, Even, Region, Items, Picture, InputPin, InputPins; nearest "
       "is 'Small'\n"},
      {"\n Small = 300 # x", "2:10+3 Small: '300' is not allowed; expected an integer from 0 to 255\n"},
      {"Region.Lef = 3",
       "1:8+3 Region: there is no property 'Lef' in TestRegion; expected one of Left, Width; nearest is "
       "'Left'\n"},
      {"Region = 3", "1:10+1 Region: takes no value; expected one of its properties, as Region.Property = value\n"},
      {"Small.X = 3", "1:7+1 Small: UInt8 has no properties of its own; expected a value right here\n"},
      {"Small[0] = 3", "1:6+3 Small: UInt8 has no properties of its own; expected a value right here\n"},
      {"Items[0] = 3", "1:6+3 Items[0]: an item alone takes no value; expected a property of it, as [0].Property\n"},
      {"Items[99999].Level = 3", "1:6+7 Items: there is no item [99999]; expected an index from 0 to 1023\n"},
      {"Items[x].Level = 3", "1:6+9 'Items[x].Level' is no path; expected an index from 0 in brackets, as [0]\n"},
      {"Region..Left = 3",
       "1:8+5 'Region..Left' is no path; expected a name of letters, digits and underscores, others in single "
       "quotes\n"},
      {"Even = 3", "1:8+1 Even: '3' is odd; expected an even number\n"},
      {"Small = 3\nSmall = 4",
       "2:1+5 Small: is set twice; expected one value for each property; the first stands in line 1, column 1\n"},
      {"Small 3", "1:7+1 '3' is out of place; expected 'Property = value'\n"},
      {"Small =", "1:7+1 the value of Small is missing; expected a value behind '='\n"},
      {"Small = # 3", "1:8+1 the value of Small is missing; expected a value behind '='\n"},
      {"= 3", "1:1+1 the property's name is missing; expected 'Property = value'\n"},
      {"Text = 'a' b",
       "1:12+1 there is more behind the value of Text; expected one value a line, text with blanks in "
       "single quotes\n"},
      {"Text = 'a", "1:8+2 the text is not closed; expected a single quote at its end, '' for one inside\n"},
      {"Data = {00\nSmall = 3", "1:8+1 '{' is not closed; expected '}' behind the value\n"},
      {"Data = {00\n 0g}\nSmall = x",
       "3:9+1 Small: 'x' is not allowed; expected an integer from 0 to 255\n"
       "1:8+3 Data: '{00#10 0g}' is not allowed; expected bytes as {00 ff}\n"},
      {"item\nLevel = 1\nend",
       "1:1+4 this item belongs to no collection; expected the collection's name in a line "
       "before it\n"},
      {"Items\nitem", "2:1+4 this block is not closed; expected a line 'end' behind its last property\n"},
      {"Items\nitem\nLevel = x\nend\nend",
       "5:1+3 this 'end' closes nothing; expected one 'end' a block\n"
       "3:9+1 Items[0].Level: 'x' is not allowed; expected an integer from -2147483648 to 2147483647\n"},
      {"Small", "1:1+5 Small: the value is missing; expected an integer from 0 to 255\n"},
      {"object a: B", "1:1+6 no object can stand here; expected a property\n"},
      {"'a", "1:1+2 the name in quotes is not closed; expected a single quote behind it\n"},
      {"Picture = 'no such file.png'",
       "1:11+18 Picture: 'no such file.png' cannot be opened: No such file or directory; "
       "expected a picture file\n"},
  };
  for (const auto& c : cases) {
    TestComponent component;
    EXPECT_EQ(Read(c.text, component), c.faults) << c.text;
  }
}

TEST(PQTextStream, PinsThatAListMayGrowAreLeftToWhoeverConnects) {
  TestComponent component;
  std::vector<PQTextLink> links;
  EXPECT_EQ(Read("InputPins[3] = a.B\nInputPins.Pin2 = c.D", component, &links), "");
  ASSERT_EQ(links.size(), 2u);
  EXPECT_EQ(links[0].pin.object, nullptr);
  EXPECT_EQ(links[0].setting.path, "InputPins[3]");
  EXPECT_EQ(links[1].pin.object, &component.InputPins);
}

TEST(PQTextStream, HostileTextIsAnswered) {
  std::string deep;
  for (int i = 0; i < 2000; ++i) deep += "Inner\nitem\n";
  TestComponent component;
  EXPECT_NE(Read("Items\nitem\n" + deep, component), "");
  // Whatever is cut out of a good text is either read or refused.
  const std::string text = kEverything;
  for (std::size_t i = 0; i < text.size(); ++i) {
    TestComponent cut, without, flipped;
    Read(text.substr(0, i), cut);
    Read(text.substr(0, i) + text.substr(i + 1), without);
    std::string other = text;
    other[i] = static_cast<char>(other[i] ^ 0x55);
    Read(other, flipped);
  }
}

TEST(PQTextStream, CaretPointsAtTheFault) {
  PQFault fault;
  fault.line = 2, fault.column = 5, fault.length = 3;
  EXPECT_EQ(PQCaret("first\n\tab cde f\r\nlast", fault), "\tab cde f\n\t   ^~~");
  fault.column = 6;  // columns count bytes, the caret counts characters
  EXPECT_EQ(PQCaret("\n\xc3\xa4\xc3\xb6 cdef", fault), "\xc3\xa4\xc3\xb6 cdef\n   ^~~");
  fault.line = 9;
  EXPECT_EQ(PQCaret("first", fault), "");
}

}  // namespace
}  // namespace pantiq
