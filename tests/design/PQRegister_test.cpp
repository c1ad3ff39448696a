#include "pantiq/design/PQRegister.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <set>

#include "pantiq/core/JCPins.h"
#include "pantiq/host/PQBinaryStream.h"
#include "pantiq/host/PQCollection.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQTextStream.h"

namespace pantiq {
namespace {

bool IsSimple(const PQProperty& p) { return p.get != nullptr && !p.gauge; }

// A value of the type other than the present one, within the useful range where there is one.
PQValue Another(const PQProperty& p, const PQValue& present) {
  switch (p.kind) {
    case PQKind::Boolean:
      return PQValue(!*present.Bool());
    case PQKind::Enumeration:
      for (const PQWord& word : p.words) {
        if (word.value != *present.Int()) return PQValue(word.value);
      }
      return present;
    case PQKind::Integer: {
      const std::int64_t low = p.useful_low.Int() != nullptr ? *p.useful_low.Int() : p.low;
      const std::int64_t high = p.useful_high.Int() != nullptr ? *p.useful_high.Int() : p.high;
      return PQValue(*present.Int() == high ? low : high);
    }
    case PQKind::Float: {
      const double high = p.useful_high.Float() != nullptr ? *p.useful_high.Float() : 3.5;
      return PQValue(*present.Float() == high ? high / 2 : high);
    }
    case PQKind::String:
      return PQValue("it's a name.asf");
    case PQKind::Binary:
      return PQValue(PQBytes{1, 2, 254});
    default:
      return present;
  }
}

// Walks the properties of an object, of the objects inside it and of the items of its collections.
template <class Visit>
void Walk(TPersistent& object, const PQProperty* outer, const std::string& path, Visit visit) {
  for (const PQProperty& own : object.ClassInfo().Properties()) {
    const PQProperty p = PQWithOuterDefault(outer, own);
    visit(object, p, path + p.name);
    if (p.kind == PQKind::Object) Walk(*p.object(object), &p, path + p.name + ".", visit);
    auto* const items = p.kind == PQKind::Collection ? PQCast<TCollection>(p.object(object)) : nullptr;
    for (int i = 0; items != nullptr && i < items->GetCount(); ++i) {
      Walk(*items->GetItem(i), nullptr, path + p.name + "[" + std::to_string(i) + "].", visit);
    }
  }
}

// Gives every collection an item.
void FillCollections(TPersistent& object) {
  for (const PQProperty& p : object.ClassInfo().Properties()) {
    if (p.kind == PQKind::Object) FillCollections(*p.object(object));
    if (p.kind == PQKind::Collection) PQCast<TCollection>(p.object(object))->Add();
  }
}

struct EveryClass : testing::Test {
  static void SetUpTestSuite() { RegisterAll(); }
};

TEST_F(EveryClass, StandsOnThePageOnceInTheOrderOfThePalette) {
  RegisterAll();  // again
  const std::vector<std::string> palette = {
      "TPQDSVideoDecompressor", "TPQRealToFrame", "TPQChangeRate", "TPQColorsToReal", "TPQASFPlayer", "TPQSwitch",
      "TPQChangeFormat", "TPQDSVideoCompressor", "TPQSnapshot", "TPQMorphFilter", "TPQImageAdjust", "TPQFreeFrame", "TPQUniformNoise", "TPQBoxFilter",
      "TPQFixedFilter", "TPQGaussNoise", "TPQGrayScale", "TPQHistogram", "TPQJaehneGen", "TPQColorTwist",
      "TPQGammaFilter", "TPQMirror", "TPQRotate", "TPQShear", "TPQResize", "TPQWarp", "TPQCombine",
      "TPQImageGen", "TPQFrameChange", "TPQColorSplit", "TPQApplyMask", "TPQTransparentColor",
      "TPQWienerFilter", "TPQDMOEffect", "TPQDSVideoOut", "TPQVideoDecompressor", "TPQVideoCompressor",
      "TPQThreshold", "TPQCrop", "TPQHistogramEqualize", "TPQASFLogger", "TPQDelay", "TPQQueuedSwitch",
      "TPQColorMerge"};
  std::vector<std::string> names;
  for (const PQClassInfo* info : PQRegisteredClasses(kPantiqPage)) names.push_back(info->Name());
  EXPECT_EQ(names, palette);
}

TEST_F(EveryClass, ReadsItsDefaultsTakesValuesAndSurvivesBothStreams) {
  for (const PQClassInfo* info : PQRegisteredClasses(kPantiqPage)) {
    SCOPED_TRACE(info->Name());
    EXPECT_FALSE(info->Help().empty());
    PQOwned<TComponent> fresh = PQCreateComponent(info->Name());
    ASSERT_TRUE(fresh);
    EXPECT_EQ(&fresh->ClassInfo(), info);
    // What equals its default is not written; a drawn mask and an effect's identifier have none.
    const std::map<std::string, std::string> always = {
        {"TPQMorphFilter", "MorphShape.MatrixData = (9 0 0 0 0 0 0 0 0 0)\n"},
        {"TPQDMOEffect", "DMOInfo = ('{00000000-0000-0000-0000-000000000000}' '')\n"}};
    const auto written = always.find(info->Name());
    EXPECT_EQ(PQWriteText(*fresh), written != always.end() ? written->second : "");
    Walk(*fresh, nullptr, "", [&](TPersistent& object, const PQProperty& p, const std::string& path) {
      if (IsSimple(p) && p.stored && p.kind != PQKind::List) {
        EXPECT_EQ(p.get(object), p.default_value) << path << " reads its default";
      }
    });

    PQOwned<TComponent> changed = PQCreateComponent(info->Name());
    FillCollections(*changed);
    std::set<std::string> names;
    Walk(*changed, nullptr, "", [&](TPersistent& object, const PQProperty& p, const std::string& path) {
      SCOPED_TRACE(path);
      EXPECT_TRUE(names.insert(path).second) << "described twice";
      EXPECT_FALSE(p.help.empty());
      if (p.kind == PQKind::Pin) {
        auto* pin = PQCast<TJCPin>(p.object(object));
        ASSERT_NE(pin, nullptr);
        EXPECT_EQ(pin->GetName(), path);
        EXPECT_EQ(pin->GetPinType(), p.pin_role);
      }
      if (!IsSimple(p)) return;
      const PQValue other_kind = p.kind == PQKind::List ? PQValue(1.5) : PQValue(PQValue::List{});
      EXPECT_FALSE(PQSetProperty(object, p, other_kind).Ok()) << "a value of another kind";
      if (!p.stored) return;  // takes what older streams hold, in a form of its own
      PQValue parsed;
      if (p.kind != PQKind::String) {
        const PQStatus status = PQParseValue(p, "no such word", parsed);
        EXPECT_FALSE(status.Ok());
        EXPECT_NE(status.Text().find("expected"), std::string::npos) << status.Text();
      }
      if (path == "ActiveChannelIndex") return;  // kept within the channels
      const PQValue wanted = p.name == "FourCC"               ? PQValue("MJPG")
                             : path.ends_with("].Settings") ? PQValue("quality=90 name='a b'")
                                                            : Another(p, p.get(object));
      EXPECT_TRUE(PQSetProperty(object, p, wanted).Ok());
      EXPECT_EQ(p.get(object), wanted);
      EXPECT_TRUE(PQParseValue(p, PQFormatValue(p, wanted), parsed).Ok());
      EXPECT_EQ(parsed, wanted) << "text reads back";
    });

    const std::string text = PQWriteText(*changed);
    PQOwned<TComponent> from_text = PQCreateComponent(info->Name()), from_bytes = PQCreateComponent(info->Name()),
                        assigned = PQCreateComponent(info->Name());
    std::vector<PQTextLink> links;
    std::vector<PQFault> faults;
    PQReadText(text, *from_text, links, faults);
    EXPECT_TRUE(faults.empty()) << faults.front().text;
    EXPECT_EQ(PQWriteText(*from_text), text);
    std::vector<PQBinaryLink> binary_links;
    EXPECT_TRUE(PQReadBinary(PQWriteBinary(*changed), *from_bytes, binary_links, faults));
    EXPECT_EQ(PQWriteText(*from_bytes), text);
    assigned->Assign(*changed);
    EXPECT_EQ(PQWriteText(*assigned), text);
  }
}

}  // namespace
}  // namespace pantiq
