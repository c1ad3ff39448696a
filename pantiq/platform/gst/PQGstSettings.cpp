#include "pantiq/platform/gst/PQGstSettings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>

#include "pantiq/platform/PQSettings.h"

namespace pantiq::gst {
namespace {

class Value {
 public:
  explicit Value(GType type) { g_value_init(&value_, type); }
  ~Value() { g_value_unset(&value_); }
  Value(const Value&) = delete;
  Value& operator=(const Value&) = delete;
  GValue* Get() { return &value_; }

 private:
  GValue value_ = G_VALUE_INIT;
};

// The shortest text that reads back as this number.
std::string Number(double number) {
  std::array<char, 32> text{};
  const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() ? std::string(text.data(), end) : "?";
}

// Bounds that are the type's own say nothing.
template <class Bound>
std::string Range(const char* what, Bound low, Bound high) {
  using Limits = std::numeric_limits<Bound>;
  const bool from = low != Limits::lowest() || std::is_unsigned_v<Bound>, to = high != Limits::max();
  std::string text = what;
  if (from) text += " from " + Number(static_cast<double>(low));
  if (to) text += (from ? " to " : " up to ") + Number(static_cast<double>(high));
  return text;
}

template <class Entry>
std::string Words(const Entry* entries, unsigned count, const char* between) {
  std::string text;
  for (unsigned i = 0; i < count; ++i) {
    if (i > 0) text += between;
    text += entries[i].value_nick;
  }
  return text;
}

// What the property takes; empty for one that no text can set.
std::string Expected(GParamSpec* spec) {
  if (G_IS_PARAM_SPEC_BOOLEAN(spec)) return "true or false";
  if (G_IS_PARAM_SPEC_STRING(spec)) return "a text";
  if (const auto* p = G_IS_PARAM_SPEC_ENUM(spec) ? G_PARAM_SPEC_ENUM(spec) : nullptr) {
    return "one of " + Words(p->enum_class->values, p->enum_class->n_values, ", ");
  }
  if (const auto* p = G_IS_PARAM_SPEC_FLAGS(spec) ? G_PARAM_SPEC_FLAGS(spec) : nullptr) {
    return "some of " + Words(p->flags_class->values, p->flags_class->n_values, "+");
  }
  if (const auto* p = G_IS_PARAM_SPEC_DOUBLE(spec) ? G_PARAM_SPEC_DOUBLE(spec) : nullptr) {
    return Range("a number", p->minimum, p->maximum);
  }
  if (const auto* p = G_IS_PARAM_SPEC_FLOAT(spec) ? G_PARAM_SPEC_FLOAT(spec) : nullptr) {
    return Range("a number", p->minimum, p->maximum);
  }
  if (const auto* p = G_IS_PARAM_SPEC_INT(spec) ? G_PARAM_SPEC_INT(spec) : nullptr) {
    return Range("an integer", p->minimum, p->maximum);
  }
  if (const auto* p = G_IS_PARAM_SPEC_UINT(spec) ? G_PARAM_SPEC_UINT(spec) : nullptr) {
    return Range("an integer", p->minimum, p->maximum);
  }
  if (const auto* p = G_IS_PARAM_SPEC_INT64(spec) ? G_PARAM_SPEC_INT64(spec) : nullptr) {
    return Range("an integer", p->minimum, p->maximum);
  }
  if (const auto* p = G_IS_PARAM_SPEC_UINT64(spec) ? G_PARAM_SPEC_UINT64(spec) : nullptr) {
    return Range("an integer", p->minimum, p->maximum);
  }
  if (GST_IS_PARAM_SPEC_FRACTION(spec)) return "a fraction, 1/2";
  return {};
}

bool IsSetting(GParamSpec* spec) {
  if ((spec->flags & G_PARAM_WRITABLE) == 0 || (spec->flags & G_PARAM_CONSTRUCT_ONLY) != 0) return false;
  for (const char* name : {"GstObject", "GstElement", "GstBaseTransform"}) {
    if (g_strcmp0(g_type_name(spec->owner_type), name) == 0) return false;
  }
  return !Expected(spec).empty();
}

std::vector<GParamSpec*> Specs(GstElement* element) {
  guint count = 0;
  GParamSpec** all = g_object_class_list_properties(G_OBJECT_GET_CLASS(element), &count);
  std::vector<GParamSpec*> specs;
  for (guint i = 0; i < count; ++i) {
    GParamSpec* const target = g_param_spec_get_redirect_target(all[i]);  // a property of an interface
    GParamSpec* const spec = target != nullptr ? target : all[i];
    if (IsSetting(spec)) specs.push_back(spec);
  }
  g_free(all);
  return specs;
}

std::string TextOf(GParamSpec* spec, const GValue* value) {
  if (G_VALUE_HOLDS_STRING(value)) {
    const char* text = g_value_get_string(value);
    return text != nullptr ? text : "";
  }
  if (G_VALUE_HOLDS_DOUBLE(value)) return Number(g_value_get_double(value));
  if (G_VALUE_HOLDS_FLOAT(value)) {
    std::array<char, 32> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), g_value_get_float(value)).ptr};
  }
  if (G_IS_PARAM_SPEC_ENUM(spec)) {
    const GEnumValue* word = g_enum_get_value(G_PARAM_SPEC_ENUM(spec)->enum_class, g_value_get_enum(value));
    if (word != nullptr) return word->value_nick;
  }
  gchar* text = gst_value_serialize(value);
  std::string result = text != nullptr ? text : "";
  g_free(text);
  return result;
}

std::string DefaultOf(GParamSpec* spec) { return TextOf(spec, g_param_spec_get_default_value(spec)); }

PQPlatformResult Accepted(GstElement* element, const std::string& wrong) {
  std::string all;
  for (GParamSpec* spec : Specs(element)) {
    all += (all.empty() ? "" : "; ") + std::string(spec->name) + ": " + Expected(spec) + " (default " +
           DefaultOf(spec) + ")";
  }
  const std::string name = GST_OBJECT_NAME(gst_element_get_factory(element));
  return {kPlatformFormat,
          wrong + " is no setting of " + name + (all.empty() ? ", which has none" : "; it has " + all)};
}

// True if the text is a value of the property.
bool Read(GParamSpec* spec, const std::string& text, GValue* value) {
  if (G_IS_PARAM_SPEC_STRING(spec)) {
    g_value_set_string(value, text.c_str());
  } else if (text.empty() || !gst_value_deserialize(value, text.c_str())) {
    return false;
  }
  return !g_param_value_validate(spec, value);  // true: it would have to be changed to fit
}

}  // namespace

std::vector<PQEffectSetting> ListSettings(GstElement* element) {
  std::vector<PQEffectSetting> settings;
  for (GParamSpec* spec : Specs(element)) {
    const char* help = g_param_spec_get_blurb(spec);
    settings.push_back({spec->name, help != nullptr ? help : "", Expected(spec), DefaultOf(spec)});
  }
  return settings;
}

PQPlatformResult ApplySettings(GstElement* element, const std::string& text, std::vector<std::string>& set_before) {
  PQSettingsList list;
  if (auto result = PQParseSettings(text, list); !result.Ok()) return result;
  const std::vector<GParamSpec*> specs = Specs(element);
  const auto find = [&specs](const std::string& name) -> GParamSpec* {
    const auto at = std::find_if(specs.begin(), specs.end(), [&](GParamSpec* spec) { return name == spec->name; });
    return at != specs.end() ? *at : nullptr;
  };
  std::vector<std::pair<GParamSpec*, std::unique_ptr<Value>>> values;
  for (const auto& [name, value_text] : list) {
    GParamSpec* spec = find(name);
    if (spec == nullptr) return Accepted(element, "'" + name + "'");
    auto value = std::make_unique<Value>(spec->value_type);
    if (!Read(spec, value_text, value->Get())) {
      return {kPlatformFormat, name + ": '" + value_text + "' is not allowed; expected " + Expected(spec)};
    }
    values.emplace_back(spec, std::move(value));
  }
  for (const std::string& name : set_before) {
    const bool again = std::any_of(list.begin(), list.end(), [&](const auto& entry) { return entry.first == name; });
    if (GParamSpec* spec = again ? nullptr : find(name)) {
      g_object_set_property(G_OBJECT(element), spec->name, g_param_spec_get_default_value(spec));
    }
  }
  set_before.clear();
  for (const auto& [spec, value] : values) {
    g_object_set_property(G_OBJECT(element), spec->name, value->Get());
    set_before.emplace_back(spec->name);
  }
  return {};
}

}  // namespace pantiq::gst
