#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>

#include "TestObjects.h"
#include "pantiq/host/PQBinaryStream.h"
#include "pantiq/host/PQTextStream.h"

namespace pantiq {
namespace {

void Fill(TestComponent& c) {
  c.flag = false, c.small = 200, c.big = std::int64_t{1} << 60, c.single = 0.3f, c.double_ = -1e-300;
  c.text = std::string("a\0b", 3), c.shape = tsSquare, c.bits = 5 | std::uint64_t{1} << 63, c.data = {1, 2, 3};
  c.values = {1, 2.5, "x", PQBytes{9}, PQValue::List{true, -70000}};
  c.even = 4, c.index = -129;
  c.region.width = 11;
  for (int i = 0; i < 3; ++i) static_cast<TestItem*>(c.items.Add())->level = i;
  static_cast<TestItem*>(static_cast<TestItem*>(c.items.GetItem(1))->GetInner().Add())->level = 77;
  TBitmap bitmap(2, 1);
  bitmap.Data()[0] = 200;
  c.picture.SetBitmap(bitmap);
  c.InputPin.link = "other.OutputPin";
  c.InputPins.pins[1].link = "third.OutputPin";
}

TEST(PQBinaryStream, EveryKindSurvives) {
  TestComponent full;
  Fill(full);
  const PQBytes bytes = PQWriteBinary(full);
  TestComponent copy;
  std::vector<PQBinaryLink> links;
  std::vector<PQFault> faults;
  ASSERT_TRUE(PQReadBinary(bytes, copy, links, faults)) << faults.at(0).text;
  ASSERT_EQ(links.size(), 2u);
  EXPECT_EQ(links[1].path, "InputPins.Pin2");
  EXPECT_EQ(links[1].target, "third.OutputPin");
  for (const PQBinaryLink& link : links) {
    static_cast<TestPin*>(link.pin.property.object(*link.pin.object))->link = link.target;
  }
  EXPECT_EQ(PQWriteText(copy), PQWriteText(full));
  EXPECT_EQ(*copy.picture.GetSnapshot(), *full.picture.GetSnapshot());
  EXPECT_EQ(PQWriteBinary(copy), bytes);
  ASSERT_TRUE(PQReadBinary(bytes, copy, links, faults));
  EXPECT_EQ(PQWriteBinary(copy), bytes) << "what is read takes the place of the items that were there";
  EXPECT_EQ(PQWriteBinary(TestComponent()).size(), 8u + 2 + 5 + 5 + 2);  // nothing but the empty collection
}

TEST(PQBinaryStream, TheFormIsTheDocumentedOne) {
  PQBinaryWriter writer;
  writer.Tag(PQTag::List);
  writer.Integer(-1), writer.Integer(300), writer.Integer(70000);
  writer.Float(0.5, true);
  writer.Text(PQTag::Text, "ab");
  writer.Tag(PQTag::End);
  const PQBytes expected = {'P',  'Q', 'B', 'S', 1, 0, 0, 0,    13, 3, 0xff, 4, 0x2c, 1,   5,   0x70,
                            0x11, 1,   0,   7,   0, 0, 0, 0x3f, 9,  2, 0,    0, 0,    'a', 'b', 0};
  EXPECT_EQ(writer.Result(), expected);
  std::vector<PQFault> faults;
  PQBinaryReader reader(writer.Result(), faults);
  PQValue value;
  ASSERT_TRUE(reader.ReadValue(value));
  EXPECT_TRUE(value == PQValue(PQValue::List{-1, 300, 70000, 0.5, "ab"}));
  EXPECT_TRUE(reader.AtEnd());
}

TEST(PQBinaryStream, FloatsKeepTheirBits) {
  std::mt19937_64 random(3);
  for (int round = 0; round < 2000; ++round) {
    TestComponent component, copy;
    const std::uint64_t bits = random();
    component.double_ = std::bit_cast<double>(bits);
    component.single = std::bit_cast<float>(static_cast<std::uint32_t>(bits));
    if (std::isnan(component.single)) component.single = 1;  // widening quiets a signalling not-a-number
    std::vector<PQBinaryLink> links;
    std::vector<PQFault> faults;
    ASSERT_TRUE(PQReadBinary(PQWriteBinary(component), copy, links, faults));
    EXPECT_EQ(std::bit_cast<std::uint64_t>(copy.double_), bits);
    EXPECT_EQ(std::bit_cast<std::uint32_t>(copy.single), std::bit_cast<std::uint32_t>(component.single));
  }
}

std::string FaultOf(const PQBytes& bytes) {
  TestComponent component;
  std::vector<PQBinaryLink> links;
  std::vector<PQFault> faults;
  EXPECT_FALSE(PQReadBinary(bytes, component, links, faults));
  return faults.empty() ? std::string() : faults.front().text;
}

PQBytes Stream(std::initializer_list<int> tail) {
  PQBytes bytes = {'P', 'Q', 'B', 'S', 1, 0, 0, 0};
  for (const int byte : tail) bytes.push_back(static_cast<std::uint8_t>(byte));
  return bytes;
}

TEST(PQBinaryStream, FaultsNameTheirPlace) {
  EXPECT_EQ(FaultOf({}), "at byte 0: the content is no component stream; expected 'PQBS' at its beginning");
  EXPECT_EQ(FaultOf({'P', 'Q', 'B', 'S', 2, 0, 0, 0}), "at byte 8: the stream has version 2; expected version 1");
  EXPECT_EQ(FaultOf(Stream({14})), "at byte 9: a text is missing; expected tag 9");
  EXPECT_EQ(FaultOf(Stream({14, 9, 255, 255, 255, 255})),
            "at byte 14: a block of 4294967295 bytes goes beyond the end; expected at most 0");
  EXPECT_EQ(FaultOf(Stream({14, 99})), "at byte 9: a text is missing; expected tag 9");
  EXPECT_EQ(FaultOf(Stream({14, 0, 0})), "at byte 10: there is more behind the object; expected the end");
  EXPECT_EQ(FaultOf(Stream({14, 9, 1, 0, 0, 0, 'X', 77})), "X: there is no such property in TestComponent");
  EXPECT_EQ(FaultOf(Stream({14, 9, 4, 0, 0, 0, 'F', 'l', 'a', 'g', 3, 1, 0})),
            "Flag: '1' is not allowed; expected true or false");
  EXPECT_EQ(
      FaultOf(Stream({14, 9, 5, 0, 0, 0, 'S', 'h', 'a', 'p', 'e', 10, 6, 0, 0, 0, 't', 's', 'S', 't', 'a', 'R', 0})),
      "Shape: 'tsStaR' is not allowed; expected one of tsRound, tsSquare, tsStar; nearest is 'tsStar'");
  EXPECT_EQ(FaultOf(Stream({14, 9, 5, 0, 0, 0, 'I', 't', 'e', 'm', 's', 3, 1, 0})),
            "Items: the stored value is of another kind; expected one of its items, as Items[0].Property = value");
  // Values of unknown properties are stepped over, whatever they are.
  TestComponent component;
  std::vector<PQBinaryLink> links;
  std::vector<PQFault> faults;
  PQReadBinary(Stream({14, 9, 1, 0, 0, 0,   'X', 15,  14,  9,   0, 0, 0, 0, 13, 0, 0, 14, 0, 0,  //
                       9,  5, 0, 0, 0, 'S', 'm', 'a', 'l', 'l', 3, 9, 0}),
               component, links, faults);
  EXPECT_EQ(faults.size(), 1u);
  EXPECT_EQ(component.small, 9);
}

TEST(PQBinaryStream, HostileInputIsAnswered) {
  TestComponent full;
  Fill(full);
  const PQBytes bytes = PQWriteBinary(full);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    EXPECT_NE(FaultOf(PQBytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(i))), "") << i;
  }
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    for (const int flip : {1, 2, 16, 128, 255}) {
      PQBytes other = bytes;
      other[i] = static_cast<std::uint8_t>(other[i] ^ flip);
      TestComponent component;
      std::vector<PQBinaryLink> links;
      std::vector<PQFault> faults;
      PQReadBinary(other, component, links, faults);
      if (i < 6) {
        EXPECT_EQ(faults.size(), 1u);  // magic and version
      }
    }
  }
  // Deep nesting: lists, and unknown values that have to be stepped over.
  PQBytes deep = Stream({14, 9, 6, 0, 0, 0, 'V', 'a', 'l', 'u', 'e', 's'});
  deep.insert(deep.end(), 1000000, static_cast<std::uint8_t>(PQTag::List));
  EXPECT_EQ(FaultOf(deep), "at byte 84: lists are nested too deeply; expected at most 64 levels");
  deep = Stream({14, 9, 1, 0, 0, 0, 'X'});
  deep.insert(deep.end(), 1000000, static_cast<std::uint8_t>(PQTag::Set));
  EXPECT_NE(FaultOf(deep), "");
  // More items than any stream has.
  PQBytes many = Stream({14, 9, 5, 0, 0, 0, 'I', 't', 'e', 'm', 's', 15});
  for (int i = 0; i < 100000; ++i) many.push_back(14), many.push_back(0);
  EXPECT_EQ(FaultOf(many).substr(0, 46), "at byte 131093: there are too many items; expe");
}

}  // namespace
}  // namespace pantiq
