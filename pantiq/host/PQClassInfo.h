// One description a class. A class says once, in its own unit, what it is and what it publishes; streams, launch lines,
// graph files, listings, reference pages, completion and tests read it from here.
//
//   const PQClassInfo& TPQMirror::Class() {
//     static const PQClassInfo& info =
//         PQDescribe<TPQMirror>("TPQMirror", "PQMirror", "Flips each frame about an axis.")
//             .Inherits<TPQCommonFilter>()
//             .Property("MirrorType", &TPQMirror::GetMirrorType, &TPQMirror::SetMirrorType,
//                       PQDefault(mtHorizontal), PQActs::NextFrame, "Axis of the flip.")
//             .Done();
//     return info;
//   }
//
// Enumerations publish the names of their values by a specialisation of PQEnumWords<E>.
#pragma once
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "pantiq/host/PQStatus.h"
#include "pantiq/host/PQValue.h"

namespace pantiq {

class TPersistent;
class TComponent;
class PQClassInfo;

enum class PQKind : std::uint8_t {
  Boolean,
  Integer,
  Float,
  String,
  Enumeration,  // an integer with names
  Set,          // bits of an enumeration, "[a, b]" in text
  Binary,       // a block of bytes, "{00 ff}" in text
  List,         // a list of values, "(1 2 3)" in text
  Object,       // a set of sub-properties, "Region.Left"
  Collection,   // items with properties of their own
  Picture,      // a TPicture: a file's name, or the picture itself as a binary block
  Pin,          // one pin
  PinList,      // a list of pins
};

// When a change of a property takes effect.
enum class PQActs : std::uint8_t { Now, NextFrame, NextStart };

// Which way operations pass a pin.
enum class PQPinRole : std::uint8_t { None, Sink, Source, State };

// What a text property that names a file is used for.
enum class PQFileUse : std::uint8_t { None, Read, Write };

struct PQWord {
  std::string_view name;
  std::int64_t value;
};

// Specialise for each published enumeration: static constexpr PQWord words[] = {{"mtHorizontal", 0}, ...} and
// static constexpr std::string_view name = "TPQMirrorType".
template <class E>
struct PQEnumWords;

struct PQProperty {
  std::string name;
  std::string type_name;  // as a developer writes it: "Integer", "TPQMirrorType", "TPQJCImageSinkPin"
  std::string unit;       // "pixels", "100 ns", "degrees"; empty if none
  std::string help;
  PQKind kind = PQKind::Integer;
  PQActs acts = PQActs::NextFrame;
  PQPinRole pin_role = PQPinRole::None;
  bool stored = true;  // false: shown and settable, never written by a stream
  bool gauge = false;  // read only: a figure that moves while a graph runs (depth of a queue, frames dropped)
  PQFileUse file_use = PQFileUse::None;
  bool is_default_of_class = false;  // the property that a bare value in a launch line sets
  int order = 0;                     // graphs set properties in rising order, then in order of declaration
  std::int64_t low = 0, high = 0;    // what the type holds (integers)
  bool single_precision = false;     // floats: 32 bits
  PQValue default_value;
  PQValue useful_low, useful_high;  // guides people; clamps nothing
  std::vector<PQWord> words;
  std::vector<std::pair<std::string, PQValue>> object_defaults;  // Object: defaults other than the class's own

  // If it is there and says so, the value is stored although it is the default: where loading something else moves it.
  bool (*kept)(const TPersistent&) = nullptr;

  // Simple kinds. `get` and `set` are null for objects, collections and pins. `set` is given a value of the right kind.
  std::function<PQValue(const TPersistent&)> get;
  std::function<PQStatus(TPersistent&, const PQValue&)> set;
  // Objects, collections, pictures and pins: the thing itself.
  std::function<TPersistent*(TPersistent&)> object;
  // Lists of pins: a property for each pin of the list that `object` gave, in the list's order.
  std::function<std::vector<PQProperty>(const TPersistent&)> parts;
};

// What is odd about a component as it is set, and what would be expected instead; an empty text if nothing is.
struct PQConcern {
  std::string text;      // "Offset.Horizontal = 5: ..."
  std::string expected;  // "a negative one"
};
using PQConcernOf = PQConcern (*)(const TComponent& component);

class PQ_EXPORT PQClassInfo {
 public:
  const std::string& Name() const { return name_; }
  const std::string& Unit() const { return unit_; }
  const std::string& Help() const { return help_; }
  const PQClassInfo* Parent() const { return parent_; }
  bool Is(const PQClassInfo& ancestor) const;

  // Every property, the ancestors' first, in order of declaration.
  const std::vector<PQProperty>& Properties() const { return properties_; }
  // By name, case matters; null if there is none.
  const PQProperty* Find(std::string_view name) const;
  // The pin that `!` connects, by role: the first pin of that role which is named InputPin or OutputPin, else the
  // first pin list of that role, else the first pin of that role; null if there is none.
  const PQProperty* DefaultPin(PQPinRole role) const;
  // The property that a bare value sets; null if there is none.
  const PQProperty* DefaultProperty() const;

  // What the class, and its ancestors before it, may have to say of a component's settings: warnings of a graph's check.
  const std::vector<PQConcernOf>& Concerns() const { return concerns_; }

  // Makes an object of this class; null factory for classes that only serve as bases or parts.
  TComponent* Create(TComponent* owner) const;
  bool CanCreate() const { return create_ != nullptr; }

 private:
  template <class T>
  friend class PQDescribe;
  std::string name_, unit_, help_;
  const PQClassInfo* parent_ = nullptr;
  std::vector<PQProperty> properties_;
  std::vector<PQConcernOf> concerns_;
  TComponent* (*create_)(TComponent*) = nullptr;
};

// Options of a described property, in any order; the help line is a plain text.
template <class V>
struct PQDefault {
  V value;
  explicit PQDefault(V v) : value(std::move(v)) {}
};
PQDefault(const char*)->PQDefault<std::string>;
template <class V>
struct PQUseful {
  V low, high;
  PQUseful(V l, V h) : low(l), high(h) {}
};
struct PQUnit {
  const char* text;
  explicit PQUnit(const char* t) : text(t) {}
};
struct PQOrder {
  int order;
  explicit PQOrder(int o) : order(o) {}
};
struct PQNotStored {};
struct PQKept {  // stored although it is the default if `when` says so
  bool (*when)(const TPersistent&);
  explicit PQKept(bool (*w)(const TPersistent&)) : when(w) {}
};
struct PQBareValue {};  // this property takes a bare value in a launch line
struct PQFile {         // this text names a file that is read, or one that is written
  PQFileUse use;
  explicit PQFile(PQFileUse u) : use(u) {}
};
struct PQObjectDefaults {
  std::vector<std::pair<std::string, PQValue>> values;
};

namespace detail {

template <class V>
PQValue ToValue(const V& v) {
  if constexpr (std::is_enum_v<V>) {
    return PQValue(static_cast<std::int64_t>(v));
  } else {
    return PQValue(v);
  }
}

template <class V>
V FromValue(const PQValue& value) {
  if constexpr (std::is_same_v<V, bool>) {
    return *value.Bool();
  } else if constexpr (std::is_enum_v<V> || std::is_integral_v<V>) {
    return static_cast<V>(*value.Int());
  } else if constexpr (std::is_floating_point_v<V>) {
    return static_cast<V>(*value.Float());
  } else if constexpr (std::is_same_v<V, std::string>) {
    return *value.Text();
  } else if constexpr (std::is_same_v<V, PQBytes>) {
    return *value.Bytes();
  } else {
    static_assert(std::is_same_v<V, PQValue::List>, "a property of this type cannot be published");
    return *value.Items();
  }
}

template <class V>
void DescribeType(PQProperty& p) {
  if constexpr (std::is_same_v<V, bool>) {
    p.kind = PQKind::Boolean, p.type_name = "Boolean";
  } else if constexpr (std::is_enum_v<V>) {
    p.kind = PQKind::Enumeration, p.type_name = std::string(PQEnumWords<V>::name);
    p.words.assign(std::begin(PQEnumWords<V>::words), std::end(PQEnumWords<V>::words));
    using U = std::underlying_type_t<V>;
    p.low = static_cast<std::int64_t>(std::numeric_limits<U>::min());
    p.high = static_cast<std::int64_t>(std::numeric_limits<U>::max());
  } else if constexpr (std::is_integral_v<V>) {
    p.kind = PQKind::Integer;
    p.type_name = std::string(std::is_signed_v<V> ? "Int" : "UInt") + std::to_string(8 * sizeof(V));
    p.low = static_cast<std::int64_t>(std::numeric_limits<V>::min());
    p.high = sizeof(V) == 8 ? std::numeric_limits<std::int64_t>::max()
                            : static_cast<std::int64_t>(std::numeric_limits<V>::max());
  } else if constexpr (std::is_floating_point_v<V>) {
    p.kind = PQKind::Float, p.type_name = sizeof(V) == 4 ? "Float" : "Double", p.single_precision = sizeof(V) == 4;
  } else if constexpr (std::is_same_v<V, std::string>) {
    p.kind = PQKind::String, p.type_name = "String";
  } else if constexpr (std::is_same_v<V, PQBytes>) {
    p.kind = PQKind::Binary, p.type_name = "Binary";
  } else {
    p.kind = PQKind::List, p.type_name = "List";
  }
}

template <class V>
void ApplyOption(PQProperty& p, const PQDefault<V>& o) {
  if (p.kind == PQKind::Float) {
    if constexpr (std::is_arithmetic_v<V>) p.default_value = PQValue(static_cast<double>(o.value));
  } else {
    p.default_value = ToValue(o.value);
  }
}
template <class V>
void ApplyOption(PQProperty& p, const PQUseful<V>& o) {
  if (p.kind == PQKind::Float) {
    p.useful_low = PQValue(static_cast<double>(o.low)), p.useful_high = PQValue(static_cast<double>(o.high));
  } else {
    p.useful_low = ToValue(o.low), p.useful_high = ToValue(o.high);
  }
}
// The pins of a list as properties of it: "InputPins.Pin1".
template <class P>
std::vector<PQProperty> PinParts(const TPersistent& persistent) {
  const P& list = static_cast<const P&>(persistent);
  std::vector<PQProperty> parts;
  for (int i = 0; i < list.GetCount(); ++i) {
    auto* const pin = list.GetPin(i);
    if (pin == nullptr) continue;
    PQProperty p;
    p.name = list.GetPinName(i), p.type_name = pin->Tag().Name();
    p.kind = PQKind::Pin, p.pin_role = P::kRole, p.acts = PQActs::Now;
    p.object = [pin](TPersistent&) -> TPersistent* { return pin; };
    parts.push_back(std::move(p));
  }
  return parts;
}

inline void ApplyOption(PQProperty& p, const PQUnit& o) { p.unit = o.text; }
inline void ApplyOption(PQProperty& p, const PQOrder& o) { p.order = o.order; }
inline void ApplyOption(PQProperty& p, PQNotStored) { p.stored = false; }
inline void ApplyOption(PQProperty& p, PQKept o) { p.kept = o.when; }
inline void ApplyOption(PQProperty& p, PQBareValue) { p.is_default_of_class = true; }
inline void ApplyOption(PQProperty& p, PQFile o) { p.file_use = o.use; }
inline void ApplyOption(PQProperty& p, PQActs o) { p.acts = o; }
inline void ApplyOption(PQProperty& p, const PQObjectDefaults& o) { p.object_defaults = o.values; }
inline void ApplyOption(PQProperty& p, const char* help) { p.help = help; }

}  // namespace detail

template <class T>
class PQDescribe {
 public:
  PQDescribe(const char* name, const char* unit, const char* help) : info_(new PQClassInfo) {
    info_->name_ = name, info_->unit_ = unit, info_->help_ = help;
    if constexpr (std::is_base_of_v<TComponent, T> && !std::is_abstract_v<T> && std::is_final_v<T>) {
      info_->create_ = [](TComponent* owner) -> TComponent* { return new T(owner); };
    }
  }

  template <class Parent>
  PQDescribe& Inherits() {
    info_->parent_ = &Parent::Class();
    info_->properties_ = info_->parent_->Properties();
    info_->concerns_ = info_->parent_->Concerns();
    return *this;
  }

  // A value with getter and setter: V Get() const (or const V&) and void or PQStatus Set(V or const V&).
  template <class G, class S, class C1, class C2, class R, class... Options>
  PQDescribe& Property(const char* name, G (C1::*get)() const, R (C2::*set)(S), const Options&... options) {
    using V = std::remove_cvref_t<S>;
    PQProperty p;
    p.name = name;
    detail::DescribeType<V>(p);
    p.get = [get](const TPersistent& object) { return detail::ToValue<V>((static_cast<const T&>(object).*get)()); };
    p.set = [set](TPersistent& object, const PQValue& value) -> PQStatus {
      if constexpr (std::is_same_v<R, PQStatus>) {
        return (static_cast<T&>(object).*set)(detail::FromValue<V>(value));
      } else {
        (static_cast<T&>(object).*set)(detail::FromValue<V>(value));
        return {};
      }
    };
    (detail::ApplyOption(p, options), ...);
    return Add(std::move(p));
  }

  // A figure that a running component shows: read only, never stored.
  template <class G, class C, class... Options>
  PQDescribe& Gauge(const char* name, G (C::*get)() const, const Options&... options) {
    PQProperty p;
    p.name = name, p.stored = false, p.gauge = true, p.acts = PQActs::Now;
    detail::DescribeType<std::remove_cvref_t<G>>(p);
    p.get = [get](const TPersistent& object) {
      return detail::ToValue<std::remove_cvref_t<G>>((static_cast<const T&>(object).*get)());
    };
    (detail::ApplyOption(p, options), ...);
    return Add(std::move(p));
  }

  // A set of sub-properties: O& GetO() (the object lives as long as its owner and is never replaced).
  template <class O, class C, class... Options>
  PQDescribe& Object(const char* name, O& (C::*get)(), const Options&... options) {
    return AddObject<O>(name, PQKind::Object, get, options...);
  }
  template <class O, class C, class... Options>
  PQDescribe& Collection(const char* name, O& (C::*get)(), const Options&... options) {
    return AddObject<O>(name, PQKind::Collection, get, options...);
  }
  template <class O, class C, class... Options>
  PQDescribe& Picture(const char* name, O& (C::*get)(), const Options&... options) {
    return AddObject<O>(name, PQKind::Picture, get, options...);
  }

  // A pin or a list of pins that the object publishes as a public member or through a getter.
  template <class P, class C, class... Options>
  PQDescribe& Pin(const char* name, P C::*pin, const Options&... options) {
    PQProperty p;
    p.name = name, p.kind = P::kIsPinList ? PQKind::PinList : PQKind::Pin;
    p.type_name = P::kTag.Name(), p.pin_role = P::kRole, p.acts = PQActs::Now;
    p.object = [pin](TPersistent& object) -> TPersistent* { return &(static_cast<T&>(object).*pin); };
    if constexpr (P::kIsPinList) p.parts = [](const TPersistent& list) { return detail::PinParts<P>(list); };
    (detail::ApplyOption(p, options), ...);
    return Add(std::move(p));
  }

  // A pin that lives elsewhere and is reached through a getter.
  template <class P, class C, class... Options>
  PQDescribe& Pin(const char* name, P& (C::*get)(), const Options&... options) {
    PQProperty p;
    p.name = name, p.kind = PQKind::Pin, p.type_name = P::kTag.Name(), p.pin_role = P::kRole, p.acts = PQActs::Now;
    p.object = [get](TPersistent& object) -> TPersistent* { return &(static_cast<T&>(object).*get)(); };
    (detail::ApplyOption(p, options), ...);
    return Add(std::move(p));
  }

  PQDescribe& Concern(PQConcernOf concern) {
    info_->concerns_.push_back(concern);
    return *this;
  }

  // A property with accessors of its own: stored forms that no C++ type expresses.
  PQDescribe& Custom(PQProperty property) { return Add(std::move(property)); }

  const PQClassInfo& Done() { return *info_; }

 private:
  template <class O, class C, class... Options>
  PQDescribe& AddObject(const char* name, PQKind kind, O& (C::*get)(), const Options&... options) {
    PQProperty p;
    p.name = name, p.kind = kind, p.type_name = O::Class().Name();
    p.object = [get](TPersistent& object) -> TPersistent* { return &(static_cast<T&>(object).*get)(); };
    (detail::ApplyOption(p, options), ...);
    return Add(std::move(p));
  }
  PQDescribe& Add(PQProperty p) {
    for (PQProperty& inherited : info_->properties_) {
      if (inherited.name == p.name) {  // a class may describe an inherited property anew
        inherited = std::move(p);
        return *this;
      }
    }
    info_->properties_.push_back(std::move(p));
    return *this;
  }
  PQClassInfo* info_;  // never destroyed: descriptions live as long as the process
};

// Sets a property by its description: the value's kind and the type's bounds are checked here, then the setter runs.
// A failure names the property, the value and what was expected.
PQ_EXPORT PQStatus PQSetProperty(TPersistent& object, const PQProperty& property, const PQValue& value);

// Text forms of values, used by graph files, launch lines and listings alike:
//   true false | 12 -3 $ff | 0.5 1e-3 nan inf | 'text', '' for one quote | mtVertical | [a, b] | {00 ff} | (1 2 'x')
// PQParseValue also takes bare text for strings and answers what was expected when it refuses.
PQ_EXPORT std::string PQFormatValue(const PQProperty& property, const PQValue& value);
PQ_EXPORT PQStatus PQParseValue(const PQProperty& property, std::string_view text, PQValue& value);

// What a property takes, for error texts and listings: "an integer from 0 to 255", "one of mtHorizontal, mtVertical".
PQ_EXPORT std::string PQExpected(const PQProperty& property);

// The nearest of `names` to a misspelt `name` (at most a third of its letters off); empty if none comes close.
PQ_EXPORT std::string PQNearest(std::string_view name, std::span<const std::string> names);

}  // namespace pantiq
