#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "TestObjects.h"
#include "pantiq/host/PQTextLiteral.h"

namespace pantiq {
namespace {

const PQProperty& Property(const char* name) {
  const PQProperty* p = TestComponent::Class().Find(name);
  EXPECT_NE(p, nullptr) << name;
  return *p;
}

// Text to value and back; the value has to survive.
void ExpectRoundTrip(const char* name, const PQValue& value, const char* text = nullptr) {
  const PQProperty& p = Property(name);
  const std::string written = PQFormatValue(p, value);
  if (text != nullptr) {
    EXPECT_EQ(written, text);
  }
  PQValue read;
  const PQStatus status = PQParseValue(p, written, read);
  EXPECT_TRUE(status.Ok()) << status.Text();
  EXPECT_TRUE(read == value) << written << " became " << PQFormatValue(p, read);
}

TEST(PQTextValue, EveryKindReadsBackWhatItWrote) {
  ExpectRoundTrip("Flag", true, "true");
  ExpectRoundTrip("Flag", false, "false");
  ExpectRoundTrip("Small", 255, "255");
  ExpectRoundTrip("Big", std::numeric_limits<std::int64_t>::min(), "-9223372036854775808");
  ExpectRoundTrip("Big", std::numeric_limits<std::int64_t>::max());
  ExpectRoundTrip("Shape", 2, "tsStar");
  ExpectRoundTrip("Shape", 200, "200");  // a value that has no name stays a number
  ExpectRoundTrip("Bits", 0, "[]");
  ExpectRoundTrip("Bits", 5, "[tsRound, tsStar]");
  ExpectRoundTrip("Bits", std::int64_t{1} << 40 | 2, "[tsSquare, 40]");
  ExpectRoundTrip("Bits", std::numeric_limits<std::int64_t>::min());
  ExpectRoundTrip("Data", PQBytes{0, 255, 16}, "{00 ff 10}");
  ExpectRoundTrip("Data", PQBytes{}, "{}");
  ExpectRoundTrip("Values", PQValue::List{}, "()");
  ExpectRoundTrip("Values",
                  PQValue::List{1, -2.0, 1e300, "it's", true, PQBytes{7}, PQValue::List{PQValue::List{}, 3}, 0.5f},
                  "(1 -2.0 1e+300 'it''s' true {07} (() 3) 0.5)");
  ExpectRoundTrip("Values", PQValue::List{std::nan(""), -std::numeric_limits<double>::infinity(), -0.0},
                  "(nan -inf -0.0)");
}

TEST(PQTextValue, EveryStringOfBytesHasATextForm) {
  ExpectRoundTrip("Text", "it's", "'it''s'");
  ExpectRoundTrip("Text", "", "''");
  ExpectRoundTrip("Text", std::string("a\nb\0c", 5), "'a'#10'b'#0'c'");
  ExpectRoundTrip("Text", "'#10'");
  ExpectRoundTrip("Text", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x8e\xa5", "'\xc3\xa4\xe2\x82\xac\xf0\x9f\x8e\xa5'");
  ExpectRoundTrip("Text", "\xff\xc0\x80\xed\xa0\x80\xe2\x82");  // not UTF-8
  std::mt19937 random(7);
  for (int round = 0; round < 2000; ++round) {
    std::string text(random() % 12, '\0');
    for (char& c : text) c = "'#1\n\x80\xe2 "[random() % 7];
    ExpectRoundTrip("Text", text);
  }
}

TEST(PQTextValue, FloatsReadBackToTheSameBits) {
  std::mt19937_64 random(1);
  for (int round = 0; round < 20000; ++round) {
    const std::uint64_t bits = random();
    ExpectRoundTrip("Double", std::bit_cast<double>(bits));
    const float single = std::bit_cast<float>(static_cast<std::uint32_t>(bits));
    if (single == single) ExpectRoundTrip("Single", single);  // widening quiets a signalling not-a-number
  }
  ExpectRoundTrip("Single", 0.1f, "0.1");
  ExpectRoundTrip("Double", static_cast<double>(0.1f), "0.10000000149011612");
  ExpectRoundTrip("Double", std::bit_cast<double>(0xfff8000000000000u), "-nan");
  ExpectRoundTrip("Double", std::bit_cast<double>(0x7ff0000000000001u), "nan($7ff0000000000001)");
  ExpectRoundTrip("Double", std::numeric_limits<double>::denorm_min());
  ExpectRoundTrip("Double", -0.0, "-0");
}

TEST(PQTextValue, ReadsWhatPeopleWrite) {
  struct {
    const char* property;
    const char* text;
    PQValue value;
  } const cases[] = {
      {"Small", "$ff", 255},
      {"Small", "0xFf", 255},
      {"Small", " 12 ", 12},
      {"Big", "-$10", -16},
      {"Big", "+5", 5},
      {"Single", "1e-60", 0.0},  // smaller than the type's smallest
      {"Single", "3", 3.0},
      {"Double", ".5", 0.5},
      {"Double", "1e-400", 0.0},
      {"Double", "-1e-400", -0.0},
      {"Shape", "1", 1},
      {"Bits", "[ tsStar ,tsRound ]", 5},
      {"Data", "{00ff\n 10}", PQBytes{0, 255, 16}},
      {"Values", "( 1\n2 )", PQValue::List{1, 2}},
      {"Text", "in.mp4", "in.mp4"},
      {"Picture", "'a b.png'", "a b.png"},
      {"Picture", "{01}", PQBytes{1}},
  };
  for (const auto& c : cases) {
    PQValue value;
    const PQStatus status = PQParseValue(Property(c.property), c.text, value);
    EXPECT_TRUE(status.Ok()) << c.text << ": " << status.Text();
    EXPECT_TRUE(value == c.value) << c.property << " = " << c.text;
  }
}

TEST(PQTextValue, RefusesWhatTheTypeCannotHold) {
  struct {
    const char* property;
    const char* text;
    const char* message;
  } const cases[] = {
      {"Small", "256", "'256' is not allowed; expected an integer from 0 to 255"},
      {"Small", "-1", "'-1' is not allowed; expected an integer from 0 to 255"},
      {"Small", "1.5", "'1.5' is not allowed; expected an integer from 0 to 255"},
      {"Small", "", "'' is not allowed; expected an integer from 0 to 255"},
      {"Small", "$", "'$' is not allowed; expected an integer from 0 to 255"},
      {"Small", "0x", "'0x' is not allowed; expected an integer from 0 to 255"},
      {"Small", "--1", "'--1' is not allowed; expected an integer from 0 to 255"},
      {"Small", "$-1", "'$-1' is not allowed; expected an integer from 0 to 255"},
      {"Big", "9223372036854775808",
       "'9223372036854775808' is not allowed; expected an integer from -9223372036854775808 to 9223372036854775807"},
      {"Flag", "True", "'True' is not allowed; expected true or false; nearest is 'true'"},
      {"Flag", "1", "'1' is not allowed; expected true or false"},
      {"Single", "1e39", "'1e39' is not allowed; expected a number up to 3.4028235e+38"},
      {"Double", "1e309", "'1e309' is not allowed; expected a number up to 1.7976931348623157e+308"},
      {"Double", "1,5", "'1,5' is not allowed; expected a number up to 1.7976931348623157e+308"},
      {"Double", "infinity", "'infinity' is not allowed; expected a number up to 1.7976931348623157e+308"},
      {"Double", "nan($7ff0000000000000)",
       "'nan($7ff0000000000000)' is not allowed; expected a number up to 1.7976931348623157e+308"},
      {"Shape", "tsSqare",
       "'tsSqare' is not allowed; expected one of tsRound, tsSquare, tsStar; nearest is 'tsSquare'"},
      {"Shape", "256", "'256' is not allowed; expected one of tsRound, tsSquare, tsStar"},
      {"Bits", "[tsStarr]",
       "'[tsStarr]' is not allowed; expected some of tsRound, tsSquare, tsStar in brackets; nearest is 'tsStar'"},
      {"Bits", "[tsStar,]", "'[tsStar,]' is not allowed; expected some of tsRound, tsSquare, tsStar in brackets"},
      {"Bits", "[64]", "'[64]' is not allowed; expected some of tsRound, tsSquare, tsStar in brackets"},
      {"Bits", "tsStar", "'tsStar' is not allowed; expected some of tsRound, tsSquare, tsStar in brackets"},
      {"Data", "{0}", "'{0}' is not allowed; expected bytes as {00 ff}"},
      {"Data", "{0 0}", "'{0 0}' is not allowed; expected bytes as {00 ff}"},
      {"Data", "{00} 1", "'{00} 1' is not allowed; expected bytes as {00 ff}"},
      {"Values", "(1 2", "'(1 2' is not allowed; expected a list as (1 2 'x')"},
      {"Values", "(1'a')", "'(1'a')' is not allowed; expected a list as (1 2 'x')"},
      {"Values", "(word)", "'(word)' is not allowed; expected a list as (1 2 'x')"},
      {"Text", "'open", "''open' is not allowed; expected text, with spaces in single quotes"},
      {"Text", "'a' b", "''a' b' is not allowed; expected text, with spaces in single quotes"},
      {"Region", "3", "'3' is not allowed; expected one of its properties, as Region.Property = value"},
      {"Items", "3", "'3' is not allowed; expected one of its items, as Items[0].Property = value"},
  };
  for (const auto& c : cases) {
    PQValue value;
    const PQStatus status = PQParseValue(Property(c.property), c.text, value);
    EXPECT_EQ(status.Code(), PQCode::BadValue) << c.property << " = " << c.text;
    EXPECT_EQ(status.Text(), c.message);
    EXPECT_TRUE(value.IsEmpty());
  }
  // Lists nest as deep as streams do, and no deeper.
  PQValue value;
  EXPECT_TRUE(PQParseValue(Property("Values"), std::string(64, '(') + std::string(64, ')'), value).Ok());
  EXPECT_FALSE(PQParseValue(Property("Values"), std::string(65, '(') + std::string(65, ')'), value).Ok());
  EXPECT_FALSE(PQParseValue(Property("Values"), std::string(1000000, '('), value).Ok());
}

TEST(PQTextValue, SettersAreCalledWithinTheTypeAndTheirRefusalNamesTheProperty) {
  TestComponent component;
  const auto set = [&](const char* name, const PQValue& value) {
    return PQSetProperty(component, Property(name), value);
  };
  EXPECT_TRUE(set("Small", 200).Ok());  // beyond the useful range, within the type
  EXPECT_EQ(component.small, 200);
  EXPECT_TRUE(set("Double", 3).Ok());  // an integer is a number too
  EXPECT_EQ(component.double_, 3.0);
  EXPECT_EQ(set("Small", 256).Text(), "Small: '256' is not allowed; expected an integer from 0 to 255");
  EXPECT_EQ(set("Small", 1.0).Text(), "Small: '1.0' is not allowed; expected an integer from 0 to 255");
  EXPECT_EQ(set("Single", 1e39).Text(), "Single: '1e+39' is not allowed; expected a number up to 3.4028235e+38");
  EXPECT_EQ(set("Even", 3).Text(), "Even: '3' is odd; expected an even number");
  EXPECT_EQ(set("Region", 3).Text(),
            "Region: cannot be set; expected one of its properties, as Region.Property = value");
  EXPECT_EQ(component.small, 200);
  EXPECT_EQ(component.even, 0);
}

TEST(PQTextValue, NearestNames) {
  const std::string names[] = {"MirrorType", "InputPin", "OutputPin", "ROI"};
  struct {
    const char* name;
    const char* nearest;
  } const cases[] = {{"MirorType", "MirrorType"},
                     {"mirrortype", "MirrorType"},
                     {"InptuPin", "InputPin"},
                     {"roi", "ROI"},
                     {"Contrast", ""},
                     {"", ""},
                     {"X", ""},
                     {"MirrorTipe", "MirrorType"}};
  for (const auto& c : cases) EXPECT_EQ(PQNearest(c.name, names), c.nearest) << c.name;
  EXPECT_EQ(PQNearest(std::string(100000, 'x'), names), "");
}

}  // namespace
}  // namespace pantiq
