#include "pantiq/plugins/PQFreeFrameParameters.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <limits>
#include <optional>
#include <set>

#include "pantiq/core/PQNumbers.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/plugins/PQFreeFrame.h"

namespace pantiq {

constinit const PQClassTag TPQFreeFrameParameter::kTag{"TPQFreeFrameParameter", &TPersistent::kTag};
constinit const PQClassTag TPQFreeFrameParameters::kTag{"TPQFreeFrameParameters", &TPersistent::kTag};

namespace {

// A whole number as people write it, with blanks before it, $ or 0x for a hexadecimal one; `present` for all else.
std::int32_t ToInteger(std::string_view text, std::int32_t present) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  const bool minus = text.starts_with('-');
  if (minus || text.starts_with('+')) text.remove_prefix(1);
  int base = 10;
  if (text.starts_with('$')) {
    base = 16, text.remove_prefix(1);
  } else if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16, text.remove_prefix(2);
  }
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size()) return present;
  if (base == 16 && number <= 0xFFFFFFFFu && !minus) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(number));
  }
  if (number > 0x80000000u || (!minus && number == 0x80000000u)) return present;
  const auto value = static_cast<std::int64_t>(number);
  return static_cast<std::int32_t>(minus ? -value : value);
}

std::string Upper(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

std::string FloatText(float value) {
  char text[48];
  const auto end = std::to_chars(text, text + sizeof text, value).ptr;
  return std::string(text, end);
}

// A single value of a stored list as text; none for lists and blocks.
std::optional<std::string> TextOf(const PQValue& value) {
  if (const std::string* text = value.Text()) return *text;
  if (const bool* flag = value.Bool()) return *flag ? "True" : "False";
  if (const std::int64_t* number = value.Int()) return std::to_string(*number);
  if (const double* number = value.Float()) return FloatText(static_cast<float>(*number));
  return std::nullopt;
}

// What people can type: bytes that are no printable text become underscores, blanks at the ends go.
std::string Printable(const std::string& name) {
  std::string text;
  for (std::size_t i = 0; i < name.size();) {
    const auto lead = static_cast<unsigned char>(name[i]);
    const std::size_t length = lead < 0x80                    ? 1
                               : lead >= 0xC2 && lead <= 0xDF ? 2
                               : lead >= 0xE0 && lead <= 0xEF ? 3
                               : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                              : 0;
    bool whole = length > 0 && i + length <= name.size() && lead >= 0x20 && lead != 0x7F;
    for (std::size_t k = 1; whole && k < length; ++k) whole = (static_cast<unsigned char>(name[i + k]) & 0xC0) == 0x80;
    text += whole ? name.substr(i, length) : "_";
    i += whole ? length : 1;
  }
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

}  // namespace

// --- TPQFreeFrameParameter ------------------------------------------------------------------------------------------

const PQClassInfo& TPQFreeFrameParameter::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQFreeFrameParameter>("TPQFreeFrameParameter", "PQFreeFrameParameters", "A parameter of a plug-in.")
          .Inherits<TPersistent>()
          .Done();
  return info;
}

TPQFreeFrameParameter::~TPQFreeFrameParameter() {
  if (OutsideCell != nullptr) *OutsideCell = nullptr;
}

void TPQFreeFrameParameter::GetDisplayValue(std::string&) const {
  owner_.ExecuteInstance(FF_GETPARAMETERDISPLAY, index_);
}

std::string TPQFreeFrameParameter::GetDisplayValueProp() const {
  std::string display;
  GetDisplayValue(display);
  return display;
}

std::int32_t TPQFreeFrameParameter::GetAsInteger() const { return pq_round<std::int32_t>(GetAsSingle()); }
bool TPQFreeFrameParameter::GetAsBoolean() const { return GetAsSingle() != 0.0f; }
void TPQFreeFrameParameter::SetAsInteger(std::int32_t value) { SetAsSingle(static_cast<float>(value)); }
void TPQFreeFrameParameter::SetAsBoolean(bool value) { SetAsSingle(value ? 1.0f : 0.0f); }

std::uint32_t TPQFreeFrameParameter::DefaultBits() const {
  return static_cast<std::uint32_t>(owner_.Execute(FF_GETPARAMETERDEFAULT, index_));
}

std::string TPQFreeFrameParameter::DefaultText() const {
  const auto library = owner_.Library();
  if (library == nullptr) return {};
  return library->Text(FF_GETPARAMETERDEFAULT, index_, 0, kPQMostPluginText).value_or(std::string());
}

std::uint16_t TPQFreeFrameParameter::ReadBackIndex(bool& is_text) const {
  if (owner_.GetOwnReadBack()) {
    is_text = IsText();
    return index_;
  }
  const auto first = owner_.GetParameters().GetItem(0);
  is_text = first != nullptr && first->IsText();
  return 0;
}

bool TPQFreeFrameParameter::SendAndReadBack(float value, std::uint32_t& read) const {
  const auto library = owner_.Library();
  if (library == nullptr) return false;
  const std::uintptr_t instance = library->instance.load(std::memory_order_acquire);
  if (instance == 0) return false;
  const auto bits = std::bit_cast<std::uint32_t>(value);
  const SetParameterStruct record{index_, bits, bits};
  library->Call(FF_SETPARAMETER, reinterpret_cast<std::uintptr_t>(&record), instance);
  bool is_text = false;
  const std::uint16_t asked = ReadBackIndex(is_text);
  read = static_cast<std::uint32_t>(library->Call(FF_GETPARAMETER, asked, instance));
  return read != FF_FAIL && !is_text;  // a text's address is no number
}

bool TPQFreeFrameParameter::SendAndReadBack(const std::string& value, std::string& read) const {
  const auto library = owner_.Library();
  if (library == nullptr) return false;
  const std::uintptr_t instance = library->instance.load(std::memory_order_acquire);
  if (instance == 0) return false;
  const SetParameterStruct record{index_, 0, reinterpret_cast<std::uintptr_t>(value.c_str())};
  library->Call(FF_SETPARAMETER, reinterpret_cast<std::uintptr_t>(&record), instance);
  bool is_text = false;
  const std::uint16_t asked = ReadBackIndex(is_text);
  if (!is_text) {
    library->Call(FF_GETPARAMETER, asked, instance);  // a number is no text's address
    return false;
  }
  std::optional<std::string> text = library->Text(FF_GETPARAMETER, asked, instance, kPQMostPluginText);
  if (!text) return false;
  read = std::move(*text);
  return true;
}

void TPQFreeFrameParameter::SendPulse() const {
  const auto library = owner_.Library();
  if (library == nullptr) return;
  const std::uintptr_t instance = library->instance.load(std::memory_order_acquire);
  if (instance == 0) return;
  for (const float value : {1.0f, 0.0f}) {
    const auto bits = std::bit_cast<std::uint32_t>(value);
    const SetParameterStruct record{index_, bits, bits};
    library->Call(FF_SETPARAMETER, reinterpret_cast<std::uintptr_t>(&record), instance);
  }
}

// --- boolean and event ----------------------------------------------------------------------------------------------

TPQBooleanFreeFrameParameter::TPQBooleanFreeFrameParameter(std::string name, TPQFreeFrame& owner, std::uint16_t index)
    : TPQFreeFrameParameter(std::move(name), owner, index), value_(std::bit_cast<float>(DefaultBits()) != 0.0f) {}

void TPQBooleanFreeFrameParameter::ApplyCurrentValue() {
  std::uint32_t read = 0;
  if (SendAndReadBack(value_.load(std::memory_order_relaxed) ? 1.0f : 0.0f, read)) {
    value_.store(std::bit_cast<float>(read) != 0.0f, std::memory_order_relaxed);
  }
}

PQStatus TPQBooleanFreeFrameParameter::SetStringValue(const std::string& value) {
  const std::string upper = Upper(value);
  if (upper == "TRUE") value_.store(true, std::memory_order_relaxed);
  if (upper == "FALSE") value_.store(false, std::memory_order_relaxed);
  ApplyCurrentValue();
  return {};
}

void TPQBooleanFreeFrameParameter::SetPublished(const PQValue& value) {
  value_.store(*value.Bool(), std::memory_order_relaxed);
  ApplyCurrentValue();
}

void TPQBooleanFreeFrameParameter::Publish(PQProperty& property) const {
  property.kind = PQKind::Boolean, property.type_name = "Boolean", property.help = "A switch of the plug-in.";
}

void TPQEventFreeFrameParameter::Publish(PQProperty& property) const {
  property.kind = PQKind::Boolean, property.type_name = "Boolean";
  property.help = "An event of the plug-in: true fires it, while a stream runs.";
}

// --- colour ---------------------------------------------------------------------------------------------------------

TPQColorFreeFrameParameter::TPQColorFreeFrameParameter(std::string name, TPQFreeFrame& owner, std::uint16_t index)
    : TPQFreeFrameParameter(std::move(name), owner, index),
      value_(static_cast<std::uint8_t>(pq_round<std::int32_t>(std::bit_cast<float>(DefaultBits())))) {}

void TPQColorFreeFrameParameter::ApplyCurrentValue() {
  std::uint32_t read = 0;
  if (SendAndReadBack(static_cast<float>(value_.load(std::memory_order_relaxed) / 255.0), read)) {
    const double scaled = static_cast<double>(std::bit_cast<float>(read)) * 255.0;
    value_.store(static_cast<std::uint8_t>(pq_round<std::int32_t>(scaled)), std::memory_order_relaxed);
  }
}

void TPQColorFreeFrameParameter::Set(std::int32_t value) {
  value_.store(static_cast<std::uint8_t>(value), std::memory_order_relaxed);
  ApplyCurrentValue();
}

void TPQColorFreeFrameParameter::SetAsSingle(float value) { Set(pq_round<std::int32_t>(value)); }
void TPQColorFreeFrameParameter::SetAsBoolean(bool value) { Set(value ? 255 : 0); }

PQStatus TPQColorFreeFrameParameter::SetStringValue(const std::string& value) {
  Set(ToInteger(value, value_.load(std::memory_order_relaxed)));
  return {};
}

std::string TPQColorFreeFrameParameter::GetStringValue() const {
  return std::to_string(value_.load(std::memory_order_relaxed));
}

void TPQColorFreeFrameParameter::SetPublished(const PQValue& value) { Set(static_cast<std::int32_t>(*value.Int())); }

void TPQColorFreeFrameParameter::Publish(PQProperty& property) const {
  property.kind = PQKind::Integer, property.type_name = "UInt8", property.low = 0, property.high = 255;
  property.help = "A part of a colour, from 0 to 255.";
}

// --- position -------------------------------------------------------------------------------------------------------

TPQPosFreeFrameParameter::TPQPosFreeFrameParameter(std::string name, TPQFreeFrame& owner, std::uint16_t index)
    : TPQFreeFrameParameter(std::move(name), owner, index),
      value_(pq_round<std::int32_t>(std::bit_cast<float>(DefaultBits()))) {}

void TPQPosFreeFrameParameter::ApplyCurrentValue() {
  std::uint32_t read = 0;
  if (SendAndReadBack(static_cast<float>(value_.load(std::memory_order_relaxed)), read)) {
    value_.store(static_cast<std::int32_t>(read), std::memory_order_relaxed);
  }
}

void TPQPosFreeFrameParameter::SetAsSingle(float value) {
  value_.store(pq_round<std::int32_t>(value), std::memory_order_relaxed);
}

PQStatus TPQPosFreeFrameParameter::SetStringValue(const std::string& value) {
  value_.store(ToInteger(value, value_.load(std::memory_order_relaxed)), std::memory_order_relaxed);
  ApplyCurrentValue();
  return {};
}

std::string TPQPosFreeFrameParameter::GetStringValue() const {
  return std::to_string(value_.load(std::memory_order_relaxed));
}

void TPQPosFreeFrameParameter::SetPublished(const PQValue& value) {
  value_.store(static_cast<std::int32_t>(static_cast<std::uint32_t>(*value.Int())), std::memory_order_relaxed);
  ApplyCurrentValue();
}

void TPQPosFreeFrameParameter::Publish(PQProperty& property) const {
  property.kind = PQKind::Integer, property.type_name = "UInt32", property.low = 0;
  property.high = std::numeric_limits<std::uint32_t>::max();
  property.help = "A place in the frame, a whole number.";
}

// --- standard -------------------------------------------------------------------------------------------------------

TPQStandardFreeFrameParameter::TPQStandardFreeFrameParameter(std::string name, TPQFreeFrame& owner, std::uint16_t index)
    : TPQFreeFrameParameter(std::move(name), owner, index), value_(std::bit_cast<float>(DefaultBits())) {}

void TPQStandardFreeFrameParameter::ApplyCurrentValue() {
  std::uint32_t read = 0;
  if (SendAndReadBack(value_.load(std::memory_order_relaxed), read)) {
    value_.store(std::bit_cast<float>(read), std::memory_order_relaxed);
  }
}

void TPQStandardFreeFrameParameter::SetAsSingle(float value) {
  value_.store(value, std::memory_order_relaxed);
  ApplyCurrentValue();
}

PQStatus TPQStandardFreeFrameParameter::SetStringValue(const std::string& value) {
  float number = 0;
  const char* const begin = value.data() + (value.starts_with('+') ? 1 : 0);
  const char* const end = value.data() + value.size();
  const auto result = std::from_chars(begin, end, number);
  if (result.ptr != end || result.ec != std::errc{} || value.empty()) {
    return {PQCode::BadValue, GetVC_Name() + ": '" + value + "' is no value of it; expected a number"};
  }
  SetAsSingle(number);
  return {};
}

std::string TPQStandardFreeFrameParameter::GetStringValue() const { return FloatText(GetAsSingle()); }

void TPQStandardFreeFrameParameter::Publish(PQProperty& property) const {
  property.kind = PQKind::Float, property.type_name = "Float", property.single_precision = true;
  property.help = "A number of the plug-in, customarily from 0 to 1.";
}

// --- text -----------------------------------------------------------------------------------------------------------

TPQTextFreeFrameParameter::TPQTextFreeFrameParameter(std::string name, TPQFreeFrame& owner, std::uint16_t index)
    : TPQFreeFrameParameter(std::move(name), owner, index), value_(DefaultText()) {}

void TPQTextFreeFrameParameter::ApplyCurrentValue() {
  std::string read;
  if (!SendAndReadBack(GetStringValue(), read)) return;
  const std::lock_guard guard(mutex_);
  value_ = std::move(read);
}

PQStatus TPQTextFreeFrameParameter::SetStringValue(const std::string& value) {
  {
    const std::lock_guard guard(mutex_);
    if (value == value_) return {};
    value_ = value;
  }
  ApplyCurrentValue();
  return {};
}

std::string TPQTextFreeFrameParameter::GetStringValue() const {
  const std::lock_guard guard(mutex_);
  return value_;
}

void TPQTextFreeFrameParameter::Publish(PQProperty& property) const {
  property.kind = PQKind::String, property.type_name = "String", property.help = "A text of the plug-in.";
}

namespace {

std::shared_ptr<TPQFreeFrameParameter> Make(std::uint32_t type, std::string name, TPQFreeFrame& owner,
                                            std::uint16_t index) {
  switch (type) {
    case FF_TYPE_BOOLEAN:
      return std::make_shared<TPQBooleanFreeFrameParameter>(std::move(name), owner, index);
    case FF_TYPE_EVENT:
      return std::make_shared<TPQEventFreeFrameParameter>(std::move(name), owner, index);
    case FF_TYPE_RED:
      return std::make_shared<TPQRedFreeFrameParameter>(std::move(name), owner, index);
    case FF_TYPE_GREEN:
      return std::make_shared<TPQGreenFreeFrameParameter>(std::move(name), owner, index);
    case FF_TYPE_BLUE:
      return std::make_shared<TPQBlueFreeFrameParameter>(std::move(name), owner, index);
    case FF_TYPE_XPOS:
      return std::make_shared<TPQXPosFreeFrameParameter>(std::move(name), owner, index);
    case FF_TYPE_YPOS:
      return std::make_shared<TPQYPosFreeFrameParameter>(std::move(name), owner, index);
    case FF_TYPE_TEXT:
      return std::make_shared<TPQTextFreeFrameParameter>(std::move(name), owner, index);
    default:
      return std::make_shared<TPQStandardFreeFrameParameter>(std::move(name), owner, index);
  }
}

}  // namespace

std::shared_ptr<TPQFreeFrameParameter> PQMakeFreeFrameParameter(std::uint32_t type, std::string name,
                                                                TPQFreeFrame& owner, std::uint16_t index) {
  auto parameter = Make(type, std::move(name), owner, index);
  parameter->PublishedDefault = parameter->GetPublished();
  return parameter;
}

// --- TPQFreeFrameParameters -----------------------------------------------------------------------------------------

const PQClassInfo& TPQFreeFrameParameters::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQFreeFrameParameters>("TPQFreeFrameParameters", "PQFreeFrameParameters",
                                         "The parameters of a plug-in.")
          .Inherits<TPersistent>()
          .Property("StrValue", &TPQFreeFrameParameters::WriteData, &TPQFreeFrameParameters::ReadData,
                    PQDefault(PQValue::List{}), PQActs::Now,
                    "The values of all parameters in the plug-in's order, as streams hold them. Each parameter can be "
                    "set by its name, too: Parameters.Speed=0.5; pantiq inspect --plugin=FILE shows the names.")
          .Done();
  return info;
}

int TPQFreeFrameParameters::GetCount() const {
  const std::lock_guard guard(mutex_);
  return static_cast<int>(items_.size());
}

std::shared_ptr<TPQFreeFrameParameter> TPQFreeFrameParameters::GetItem(int index) const {
  const std::lock_guard guard(mutex_);
  if (index < 0 || index >= static_cast<int>(items_.size())) return nullptr;
  return items_[static_cast<std::size_t>(index)];
}

std::vector<std::shared_ptr<TPQFreeFrameParameter>> TPQFreeFrameParameters::Items() const {
  const std::lock_guard guard(mutex_);
  return items_;
}

std::shared_ptr<TPQFreeFrameParameter> TPQFreeFrameParameters::Find(const std::string& name) const {
  const std::vector<std::string> names = PublishedNames();
  const auto found = std::find(names.begin(), names.end(), name);
  return found == names.end() ? nullptr : GetItem(static_cast<int>(found - names.begin()));
}

void TPQFreeFrameParameters::Clear() {
  std::vector<std::shared_ptr<TPQFreeFrameParameter>> old;
  const std::lock_guard guard(mutex_);
  items_.swap(old);
}

void TPQFreeFrameParameters::Add(std::shared_ptr<TPQFreeFrameParameter> parameter) {
  const std::lock_guard guard(mutex_);
  items_.push_back(std::move(parameter));
}

PQStatus TPQFreeFrameParameters::ReadData(const PQValue::List& data) {
  std::vector<std::string> texts;
  for (const PQValue& value : data) {
    std::optional<std::string> text = TextOf(value);
    if (!text) {
      return {PQCode::BadFormat,
              "StrValue: a list or a block stands among the values; expected a text for each "
              "parameter, as ('0.5' 'True')"};
    }
    texts.push_back(std::move(*text));
  }
  {
    const std::lock_guard guard(mutex_);
    stored_ = std::move(texts);
  }
  TryApplyValues();
  return {};
}

PQValue::List TPQFreeFrameParameters::WriteData() const {
  PQValue::List data;
  const auto items = Items();
  for (const auto& item : items) data.emplace_back(item->GetStringValue());
  if (!items.empty()) return data;
  const std::lock_guard guard(mutex_);
  for (const std::string& text : stored_) data.emplace_back(text);
  return data;
}

void TPQFreeFrameParameters::TryApplyValues() {
  std::vector<std::string> stored;
  {
    const std::lock_guard guard(mutex_);
    if (items_.empty() || stored_.empty()) return;
    stored.swap(stored_);
  }
  const auto items = Items();
  for (std::size_t i = 0; i < std::min(stored.size(), items.size()); ++i) {
    if (const PQStatus status = items[i]->SetStringValue(stored[i]); !status.Ok()) {
      Report(&owner_, PQSeverity::Warning, "a stored value was refused; the parameter keeps its own", 0, status.Text());
    }
  }
}

std::vector<std::string> TPQFreeFrameParameters::PublishedNames() const {
  std::vector<std::string> names;
  std::set<std::string> taken;
  const auto items = Items();
  for (const auto& item : items) {
    std::string name = Printable(item->GetVC_Name());
    if (name.empty()) name = "Parameter" + std::to_string(item->GetIndex());
    std::string unique = name;
    if (Class().Find(unique) != nullptr || !taken.insert(unique).second) {
      unique += " " + std::to_string(item->GetIndex());
      while (!taken.insert(unique).second) unique += '_';
    }
    names.push_back(std::move(unique));
  }
  return names;
}

std::vector<PQProperty> TPQFreeFrameParameters::InstanceProperties() const {
  const std::vector<std::string> names = PublishedNames();
  const auto items = Items();
  std::vector<PQProperty> properties;
  properties.reserve(items.size());
  for (std::size_t i = 0; i < std::min(names.size(), items.size()); ++i) {
    PQProperty p;
    p.name = names[i];
    p.acts = PQActs::Now;
    p.stored = false;  // StrValue holds them
    items[i]->Publish(p);
    p.default_value = items[i]->PublishedDefault;
    // The plug-in may have been changed since: the number leads to a parameter of the same kind, or to none.
    const auto find = [index = static_cast<int>(i), kind = p.kind](const TPersistent& object) {
      auto item = static_cast<const TPQFreeFrameParameters&>(object).GetItem(index);
      PQProperty now;
      if (item != nullptr) item->Publish(now);
      return item != nullptr && now.kind == kind ? item : nullptr;
    };
    p.get = [find](const TPersistent& object) {
      const auto item = find(object);
      return item != nullptr ? item->GetPublished() : PQValue();
    };
    p.set = [find](TPersistent& object, const PQValue& value) -> PQStatus {
      const auto item = find(object);
      if (item == nullptr) return {PQCode::NotFound, "the plug-in was changed, and this parameter is gone"};
      item->SetPublished(value);
      return {};
    };
    properties.push_back(std::move(p));
  }
  return properties;
}

bool TPQFreeFrameParameters::HasUntoldProperties() const { return owner_.HasUntoldParameters(); }

void TPQFreeFrameParameters::Assign(const TPersistent& source) {
  if (&source == this) return;
  const auto* other = PQCast<const TPQFreeFrameParameters>(&source);
  if (other == nullptr) {
    TPersistent::Assign(source);
    return;
  }
  ReadData(other->WriteData()).IgnoreError();
}

}  // namespace pantiq
