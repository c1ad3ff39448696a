// A component with a property of every kind, for the tests of values and streams.
#pragma once
#include <string>
#include <vector>

#include "pantiq/host/PQCollection.h"
#include "pantiq/host/PQComponent.h"
#include "pantiq/host/PQPicture.h"

namespace pantiq {

enum TestShape : std::uint8_t { tsRound, tsSquare, tsStar };
template <>
struct PQEnumWords<TestShape> {
  static constexpr PQWord words[] = {{"tsRound", tsRound}, {"tsSquare", tsSquare}, {"tsStar", tsStar}};
  static constexpr std::string_view name = "TestShape";
};

class TestRegion : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class() {
    static const PQClassInfo& info =
        PQDescribe<TestRegion>("TestRegion", "TestObjects", "A region.")
            .Property("Left", &TestRegion::GetLeft, &TestRegion::SetLeft, PQDefault(0), "Left side.")
            .Property("Width", &TestRegion::GetWidth, &TestRegion::SetWidth, PQDefault(10), "Width.")
            .Done();
    return info;
  }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  std::int32_t GetLeft() const { return left; }
  void SetLeft(std::int32_t v) { left = v; }
  std::int32_t GetWidth() const { return width; }
  void SetWidth(std::int32_t v) { width = v; }
  std::int32_t left = 0, width = 10;
};
inline constinit const PQClassTag TestRegion::kTag{"TestRegion", &TPersistent::kTag};

class TestItems;
class TestItem : public TCollectionItem {
 public:
  static const PQClassInfo& Class();
  using TCollectionItem::TCollectionItem;
  const PQClassInfo& ClassInfo() const override { return Class(); }
  std::int32_t GetLevel() const { return level; }
  void SetLevel(std::int32_t v) { level = v, Changed(); }
  TestItems& GetInner();
  std::int32_t level = 0;
  std::unique_ptr<TestItems> inner;
};

class TestItems : public TCollection {
 public:
  explicit TestItems(int first = 0) {
    for (int i = 0; i < first; ++i) Add();
  }
  static const PQClassInfo& Class() { return TCollection::Class(); }
  const PQClassInfo& ItemClassInfo() const override { return TestItem::Class(); }
  std::unique_ptr<TCollectionItem> CreateItem() override { return std::make_unique<TestItem>(this); }
  void Update(TCollectionItem*) override { ++updates; }
  int updates = 0;
};

inline TestItems& TestItem::GetInner() {
  if (inner == nullptr) inner = std::make_unique<TestItems>();
  return *inner;
}
inline const PQClassInfo& TestItem::Class() {
  static const PQClassInfo& info =
      PQDescribe<TestItem>("TestItem", "TestObjects", "An item.")
          .Property("Level", &TestItem::GetLevel, &TestItem::SetLevel, PQDefault(0), "A level.")
          .Collection("Inner", &TestItem::GetInner, "Items in items.")
          .Done();
  return info;
}

// A pin only as far as streams know one: it stands for a link.
class TestPin : public TPersistent {
 public:
  static const PQClassTag kTag;
  static constexpr bool kIsPinList = false;
  static constexpr PQPinRole kRole = PQPinRole::Sink;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  std::string GetSaveName() const override { return link; }
  std::string link;
};
inline constinit const PQClassTag TestPin::kTag{"TestPin", &TPersistent::kTag};

class TestPinList : public TPersistent {
 public:
  static const PQClassTag kTag;
  static constexpr bool kIsPinList = true;
  static constexpr PQPinRole kRole = PQPinRole::Sink;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  int GetCount() const { return 3; }
  TestPin* GetPin(int index) const { return &pins[index]; }
  std::string GetPinName(int index) const { return index == 2 ? "Pin *" : "Pin" + std::to_string(index + 1); }
  mutable TestPin pins[3];
};
inline constinit const PQClassTag TestPinList::kTag{"TestPinList", &TPersistent::kTag};

class TestComponent final : public TComponent {
 public:
  explicit TestComponent(TComponent* owner = nullptr) : TComponent(owner) {}
  ~TestComponent() override { BeforeDestructionOnce(); }
  static const PQClassInfo& Class();
  const PQClassInfo& ClassInfo() const override { return Class(); }
  std::vector<PQProperty> InstanceProperties() const override {
    if (!with_instance_property) return {};
    PQProperty p;
    p.name = "Blur amount", p.kind = PQKind::Float, p.type_name = "Double", p.default_value = PQValue(0.0);
    p.get = [](const TPersistent& o) { return PQValue(static_cast<const TestComponent&>(o).amount); };
    p.set = [](TPersistent& o, const PQValue& v) -> PQStatus {
      static_cast<TestComponent&>(o).amount = *v.Float();
      return {};
    };
    return {p};
  }

#define TEST_PROPERTY(Type, Name, member, start)    \
  Type Get##Name() const { return member; }         \
  void Set##Name(Type v) { member = std::move(v); } \
  Type member = start;
  TEST_PROPERTY(bool, Flag, flag, true)
  TEST_PROPERTY(std::uint8_t, Small, small, 7)
  TEST_PROPERTY(std::int64_t, Big, big, 0)
  TEST_PROPERTY(float, Single, single, 0.1f)
  TEST_PROPERTY(double, Double, double_, 0)
  TEST_PROPERTY(std::string, Text, text, "")
  TEST_PROPERTY(TestShape, Shape, shape, tsRound)
  TEST_PROPERTY(PQBytes, Data, data, {})
  TEST_PROPERTY(PQValue::List, Values, values, {})
#undef TEST_PROPERTY
  // A setter with a rule of its own.
  std::int32_t GetEven() const { return even; }
  PQStatus SetEven(std::int32_t v) {
    if (v % 2 != 0) return {PQCode::BadValue, "'" + std::to_string(v) + "' is odd; expected an even number"};
    even = v;
    order += "Even ";
    return {};
  }
  std::int32_t GetIndex() const { return index; }
  void SetIndex(std::int32_t v) { index = v, order += "Index "; }
  TestRegion& GetRegion() { return region; }
  TestItems& GetItems() { return items; }
  TPicture& GetPicture() { return picture; }

  std::int32_t even = 0, index = 0;
  std::uint64_t bits = 0;
  double amount = 0;
  std::string order;  // in which properties were set
  bool with_instance_property = false;
  TestRegion region;
  TestItems items;
  TPicture picture;
  TestPin InputPin;
  TestPinList InputPins;
};

inline const PQClassInfo& TestComponent::Class() {
  static const PQClassInfo& info = []() -> const PQClassInfo& {
    PQProperty bits;
    bits.name = "Bits", bits.kind = PQKind::Set, bits.type_name = "TestShapes", bits.default_value = PQValue(0);
    bits.words.assign(std::begin(PQEnumWords<TestShape>::words), std::end(PQEnumWords<TestShape>::words));
    bits.get = [](const TPersistent& o) { return PQValue(static_cast<const TestComponent&>(o).bits); };
    bits.set = [](TPersistent& o, const PQValue& v) -> PQStatus {
      static_cast<TestComponent&>(o).bits = static_cast<std::uint64_t>(*v.Int());
      return {};
    };
    using T = TestComponent;
    return PQDescribe<T>("TestComponent", "TestObjects", "Every kind of property.")
        .Inherits<TComponent>()
        .Property("Index", &T::GetIndex, &T::SetIndex, PQDefault(0), PQOrder(5), "Set after the others.")
        .Property("Flag", &T::GetFlag, &T::SetFlag, PQDefault(true), "A flag.")
        .Property("Small", &T::GetSmall, &T::SetSmall, PQDefault(7), PQUseful(0, 10), "A byte.")
        .Property("Big", &T::GetBig, &T::SetBig, PQDefault(0), "64 bits.")
        .Property("Single", &T::GetSingle, &T::SetSingle, PQDefault(0.1), "32-bit float.")
        .Property("Double", &T::GetDouble, &T::SetDouble, PQDefault(0.0), "64-bit float.")
        .Property("Text", &T::GetText, &T::SetText, PQDefault(""), PQBareValue{}, "Text.")
        .Property("Shape", &T::GetShape, &T::SetShape, PQDefault(tsRound), "A shape.")
        .Custom(bits)
        .Property("Data", &T::GetData, &T::SetData, PQDefault(PQBytes{}), "Bytes.")
        .Property("Values", &T::GetValues, &T::SetValues, PQDefault(PQValue::List{}), "A list.")
        .Property("Even", &T::GetEven, &T::SetEven, PQDefault(0), "An even number.")
        .Object("Region", &T::GetRegion, PQObjectDefaults{{{"Left", PQValue(0)}, {"Width", PQValue(10)}}}, "A region.")
        .Collection("Items", &T::GetItems, "Items.")
        .Picture("Picture", &T::GetPicture, "A picture.")
        .Pin("InputPin", &T::InputPin, "A pin.")
        .Pin("InputPins", &T::InputPins, "Pins.")
        .Done();
  }();
  return info;
}

}  // namespace pantiq
