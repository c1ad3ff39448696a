#include "pantiq/host/PQBinaryStream.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "pantiq/host/PQCollection.h"
#include "pantiq/host/PQPicture.h"
#include "pantiq/host/PQTextLiteral.h"
#include "pantiq/host/PQTextStream.h"

namespace pantiq {
namespace {

constexpr char kMagic[] = {'P', 'Q', 'B', 'S'};

std::string_view WordOf(const PQProperty& property, std::int64_t value) {
  for (const PQWord& word : property.words) {
    if (word.value == value) return word.name;
  }
  return {};
}

bool FindWord(const PQProperty& property, std::string_view name, std::int64_t& value) {
  for (const PQWord& word : property.words) {
    if (word.name == name) {
      value = word.value;
      return true;
    }
  }
  return false;
}

}  // namespace

// --- Writing ---

PQBinaryWriter::PQBinaryWriter() {
  bytes_.assign(std::begin(kMagic), std::end(kMagic));
  bytes_.push_back(kPQBinaryVersion & 255), bytes_.push_back(kPQBinaryVersion >> 8);
  bytes_.push_back(0), bytes_.push_back(0);
}

void PQBinaryWriter::Integer(std::int64_t value) {
  const auto fits = [value]<class T>(T) {
    return value >= std::numeric_limits<T>::min() && value <= std::numeric_limits<T>::max();
  };
  const int size = fits(std::int8_t{}) ? 1 : fits(std::int16_t{}) ? 2 : fits(std::int32_t{}) ? 4 : 8;
  Tag(size == 1 ? PQTag::Int8 : size == 2 ? PQTag::Int16 : size == 4 ? PQTag::Int32 : PQTag::Int64);
  for (int i = 0; i < size; ++i) bytes_.push_back(static_cast<std::uint8_t>(value >> 8 * i));
}

void PQBinaryWriter::Float(double value, bool single_precision) {
  const float narrow = static_cast<float>(value);
  const bool single = single_precision &&
                      std::bit_cast<std::uint64_t>(static_cast<double>(narrow)) == std::bit_cast<std::uint64_t>(value);
  Tag(single ? PQTag::Float32 : PQTag::Float64);
  const std::uint64_t bits = single ? std::bit_cast<std::uint32_t>(narrow) : std::bit_cast<std::uint64_t>(value);
  for (int i = 0; i < (single ? 4 : 8); ++i) bytes_.push_back(static_cast<std::uint8_t>(bits >> 8 * i));
}

void PQBinaryWriter::Text(PQTag tag, std::string_view text) {
  Tag(tag);
  for (int i = 0; i < 4; ++i) bytes_.push_back(static_cast<std::uint8_t>(text.size() >> 8 * i));
  bytes_.insert(bytes_.end(), text.begin(), text.end());
}

void PQBinaryWriter::Bytes(std::span<const std::uint8_t> bytes) {
  Text(PQTag::Bytes, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

void PQBinaryWriter::Value(const PQValue& value) {
  if (const bool* b = value.Bool()) {
    Tag(*b ? PQTag::True : PQTag::False);
  } else if (const std::int64_t* i = value.Int()) {
    Integer(*i);
  } else if (const double* d = value.Float()) {
    Float(*d, false);
  } else if (const std::string* s = value.Text()) {
    Text(PQTag::Text, *s);
  } else if (const PQBytes* bytes = value.Bytes()) {
    Bytes(*bytes);
  } else {
    Tag(PQTag::List);
    if (const PQValue::List* items = value.Items()) {
      for (const PQValue& item : *items) Value(item);
    }
    Tag(PQTag::End);
  }
}

// The accessors of parts are not const for the sake of writers; only their getters are called here.
void PQBinaryWriter::Object(const TPersistent& object) { Properties(const_cast<TPersistent&>(object), nullptr); }

void PQBinaryWriter::Properties(TPersistent& object, const PQProperty* outer) {
  Tag(PQTag::Properties);
  std::vector<PQProperty> all = PQAllProperties(object, outer);
  std::stable_sort(all.begin(), all.end(), [](const PQProperty& a, const PQProperty& b) { return a.order < b.order; });
  for (PQProperty& property : all) {
    if (property.stored) Property(object, PQWithOuterDefault(outer, std::move(property)));
  }
  Tag(PQTag::End);
}

void PQBinaryWriter::Property(TPersistent& object, const PQProperty& property) {
  TPersistent* const part = property.object ? property.object(object) : nullptr;
  switch (property.kind) {
    case PQKind::Object:
    case PQKind::PinList: {
      if (part == nullptr) return;
      const std::size_t begin = bytes_.size();
      Text(PQTag::Text, property.name);
      const std::size_t body = bytes_.size();
      Properties(*part, &property);
      if (bytes_.size() == body + 2) bytes_.resize(begin);  // nothing inside
      return;
    }
    case PQKind::Collection: {
      const TCollection* const collection = PQCast<TCollection>(part);
      if (collection == nullptr) return;
      Text(PQTag::Text, property.name);
      Tag(PQTag::Collection);
      for (int i = 0; i < collection->GetCount(); ++i) Properties(*collection->GetItem(i), nullptr);
      Tag(PQTag::End);
      return;
    }
    case PQKind::Picture: {
      const TPicture* const picture = PQCast<TPicture>(part);
      const PQValue stored = picture != nullptr ? picture->GetStored() : PQValue();
      if (stored.IsEmpty()) return;
      Text(PQTag::Text, property.name);
      Value(stored);
      return;
    }
    case PQKind::Pin: {
      const std::string link = part != nullptr && property.pin_role != PQPinRole::Source ? part->GetSaveName() : "";
      if (link.empty()) return;
      Text(PQTag::Text, property.name);
      Text(PQTag::Link, link);
      return;
    }
    default:
      break;
  }
  if (!property.get || !property.set) return;
  const PQValue value = property.get(object);
  if (PQIsDefault(property, object, value)) return;
  Text(PQTag::Text, property.name);
  if (property.kind == PQKind::Enumeration && value.Int() != nullptr) {
    const std::string_view word = WordOf(property, *value.Int());
    if (!word.empty()) return Text(PQTag::Word, word);
  } else if (property.kind == PQKind::Set && value.Int() != nullptr) {
    Tag(PQTag::Set);
    for (int bit = 0; bit < 64; ++bit) {
      if ((static_cast<std::uint64_t>(*value.Int()) >> bit & 1) == 0) continue;
      const std::string_view word = WordOf(property, bit);
      word.empty() ? Integer(bit) : Text(PQTag::Text, word);
    }
    return Tag(PQTag::End);
  } else if (property.kind == PQKind::Float && value.Float() != nullptr) {
    return Float(*value.Float(), property.single_precision);
  }
  Value(value);
}

// --- Reading ---

PQBinaryReader::PQBinaryReader(std::span<const std::uint8_t> bytes, std::vector<PQFault>& faults)
    : bytes_(bytes), faults_(faults) {
  std::uint64_t version = 0, reserved = 0;
  if (bytes.size() < sizeof kMagic || !std::equal(std::begin(kMagic), std::end(kMagic), bytes.begin())) {
    Malformed("the content is no component stream", "'PQBS' at its beginning");
    return;
  }
  pos_ = sizeof kMagic;
  if (!ReadRaw(2, version) || !ReadRaw(2, reserved)) return;
  if (version != kPQBinaryVersion) {
    Malformed("the stream has version " + std::to_string(version), "version " + std::to_string(kPQBinaryVersion));
  }
}

bool PQBinaryReader::Malformed(const std::string& what, const std::string& expected) {
  if (!ok_) return false;
  ok_ = false;
  PQFault fault;
  fault.offset = pos_;
  fault.expected = expected;
  fault.text = "at byte " + std::to_string(pos_) + ": " + what + "; expected " + expected;
  faults_.push_back(std::move(fault));
  return false;
}

bool PQBinaryReader::ReadRaw(std::size_t count, std::uint64_t& value) {
  if (!ok_) return false;
  if (bytes_.size() - pos_ < count)
    return Malformed("the stream ends too early", std::to_string(count) + " more bytes");
  value = 0;
  for (std::size_t i = 0; i < count; ++i) value |= std::uint64_t{bytes_[pos_ + i]} << 8 * i;
  pos_ += count;
  return true;
}

bool PQBinaryReader::ReadTag(PQTag& tag) {
  std::uint64_t byte = 0;
  if (!ReadRaw(1, byte)) return false;
  if (byte > static_cast<std::uint64_t>(PQTag::Link)) {
    --pos_;
    return Malformed("there is no tag " + std::to_string(byte), "a tag from 0 to 16");
  }
  tag = static_cast<PQTag>(byte);
  return true;
}

bool PQBinaryReader::Take(PQTag tag) {
  if (!ok_ || AtEnd() || bytes_[pos_] != static_cast<std::uint8_t>(tag)) return false;
  ++pos_;
  return true;
}

bool PQBinaryReader::ReadCounted(std::string_view& bytes) {
  std::uint64_t count = 0;
  if (!ReadRaw(4, count)) return false;
  if (count > bytes_.size() - pos_) {
    return Malformed("a block of " + std::to_string(count) + " bytes goes beyond the end",
                     "at most " + std::to_string(bytes_.size() - pos_));
  }
  bytes = {reinterpret_cast<const char*>(bytes_.data()) + pos_, static_cast<std::size_t>(count)};
  pos_ += static_cast<std::size_t>(count);
  return true;
}

bool PQBinaryReader::ReadText(std::string& text) {
  if (!Take(PQTag::Text)) return Malformed("a text is missing", "tag 9");
  std::string_view bytes;
  if (!ReadCounted(bytes)) return false;
  text = bytes;
  return true;
}

bool PQBinaryReader::ReadValue(PQValue& value) {
  PQTag tag;
  return ReadTag(tag) && ReadValueOf(tag, value, 1);
}

bool PQBinaryReader::ReadValueOf(PQTag tag, PQValue& value, int depth) {
  std::uint64_t raw = 0;
  std::string_view bytes;
  switch (tag) {
    case PQTag::False:
    case PQTag::True:
      value = PQValue(tag == PQTag::True);
      return true;
    case PQTag::Int8:
      if (!ReadRaw(1, raw)) return false;
      value = PQValue(static_cast<std::int8_t>(raw));
      return true;
    case PQTag::Int16:
      if (!ReadRaw(2, raw)) return false;
      value = PQValue(static_cast<std::int16_t>(raw));
      return true;
    case PQTag::Int32:
      if (!ReadRaw(4, raw)) return false;
      value = PQValue(static_cast<std::int32_t>(raw));
      return true;
    case PQTag::Int64:
      if (!ReadRaw(8, raw)) return false;
      value = PQValue(static_cast<std::int64_t>(raw));
      return true;
    case PQTag::Float32:
      if (!ReadRaw(4, raw)) return false;
      value = PQValue(static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(raw))));
      return true;
    case PQTag::Float64:
      if (!ReadRaw(8, raw)) return false;
      value = PQValue(std::bit_cast<double>(raw));
      return true;
    case PQTag::Text:
      if (!ReadCounted(bytes)) return false;
      value = PQValue(std::string(bytes));
      return true;
    case PQTag::Bytes:
      if (!ReadCounted(bytes)) return false;
      value = PQValue(PQBytes(bytes.begin(), bytes.end()));
      return true;
    case PQTag::List: {
      if (depth > kPQMostNesting) return Malformed("lists are nested too deeply", "at most 64 levels");
      PQValue::List items;
      for (;;) {
        if (!ReadTag(tag)) return false;
        if (tag == PQTag::End) break;
        if (!ReadValueOf(tag, items.emplace_back(), depth + 1)) return false;
      }
      value = PQValue(std::move(items));
      return true;
    }
    default:
      return Malformed("tag " + std::to_string(static_cast<int>(tag)) + " is no value of a list", "a simple value");
  }
}

bool PQBinaryReader::Skip() {
  PQTag tag;
  return ReadTag(tag) && SkipValue(tag, 1);
}

bool PQBinaryReader::SkipValue(PQTag tag, int depth) {
  std::uint64_t raw = 0;
  std::string_view bytes;
  switch (tag) {
    case PQTag::False:
    case PQTag::True:
      return true;
    case PQTag::Int8:
      return ReadRaw(1, raw);
    case PQTag::Int16:
      return ReadRaw(2, raw);
    case PQTag::Int32:
    case PQTag::Float32:
      return ReadRaw(4, raw);
    case PQTag::Int64:
    case PQTag::Float64:
      return ReadRaw(8, raw);
    case PQTag::Text:
    case PQTag::Word:
    case PQTag::Bytes:
    case PQTag::Link:
      return ReadCounted(bytes);
    case PQTag::Set:
    case PQTag::List:
    case PQTag::Properties:  // names and values in turn, which needn't be told apart here
    case PQTag::Collection:
      if (depth > kPQMostNesting) return Malformed("values are nested too deeply", "at most 64 levels");
      for (;;) {
        if (!ReadTag(tag)) return false;
        if (tag == PQTag::End) return true;
        if (!SkipValue(tag, depth + 1)) return false;
      }
    case PQTag::End:
      break;
  }
  return Malformed("a value is missing", "any tag but 0");
}

void PQBinaryReader::BadProperty(const Place& place, const std::string& path, std::size_t offset,
                                 const std::string& what, const PQProperty* property) {
  PQFault fault;
  fault.offset = offset;
  fault.component = place.component;
  fault.property = place.prefix + path;
  if (property != nullptr) fault.expected = PQExpected(*property);
  fault.text = (place.component.empty() ? std::string() : place.component + ".") + fault.property + ": " + what;
  faults_.push_back(std::move(fault));
}

bool PQBinaryReader::ReadObject(TPersistent& object, std::string_view name, std::vector<PQBinaryLink>& links) {
  if (!Take(PQTag::Properties)) return Malformed("an object's properties are missing", "tag 14");
  return ReadProperties(object, nullptr, {std::string(name), {}}, links, 1);
}

bool PQBinaryReader::ReadProperties(TPersistent& object, const PQProperty* held_by, const Place& place,
                                    std::vector<PQBinaryLink>& links, int depth) {
  if (depth > kPQMostNesting) return Malformed("objects are nested too deeply", "at most 64 levels");
  while (!Take(PQTag::End)) {
    const std::size_t offset = pos_;
    std::string name;
    if (!ReadText(name)) return false;
    const std::optional<PQProperty> property = PQFindProperty(object, name, held_by);
    if (!property && held_by != nullptr && held_by->kind == PQKind::PinList && Take(PQTag::Link)) {
      std::string_view target;
      if (!ReadCounted(target)) return false;
      PQBinaryLink& link = links.emplace_back();
      link.component = place.component, link.path = place.prefix + PQPathName(name);
      link.target = target, link.offset = offset;
      continue;
    }
    if (!property) {
      std::vector<std::string> names;
      for (PQProperty& known : PQAllProperties(object, held_by)) names.push_back(std::move(known.name));
      const std::string nearest = PQNearest(name, names);
      const std::string shown = PQPathName(std::string_view(name).substr(0, 60));
      BadProperty(place, shown, offset,
                  "there is no such property in " + object.ClassInfo().Name() +
                      (nearest.empty() ? std::string() : "; nearest is '" + nearest + "'"),
                  nullptr);
      faults_.back().nearest = nearest;
      if (!Skip()) return false;
      continue;
    }
    if (!ReadProperty(object, *property, place, PQPathName(name), links, depth)) return false;
  }
  return ok_;
}

bool PQBinaryReader::ReadSet(const PQProperty& property, PQValue& value, std::string& unknown) {
  std::uint64_t bits = 0;
  while (!Take(PQTag::End)) {
    PQValue member;
    if (!ReadValue(member)) return false;
    std::int64_t bit = -1;
    if (const std::string* word = member.Text()) {
      if (!FindWord(property, *word, bit)) unknown = *word;
    } else if (const std::int64_t* number = member.Int()) {
      bit = *number;
    }
    if (bit >= 0 && bit < 64) {
      bits |= std::uint64_t{1} << bit;
    } else if (unknown.empty()) {
      unknown = "?";
    }
  }
  value = PQValue(static_cast<std::int64_t>(bits));
  return ok_;
}

bool PQBinaryReader::ReadProperty(TPersistent& object, const PQProperty& property, const Place& place,
                                  const std::string& path, std::vector<PQBinaryLink>& links, int depth) {
  const std::size_t offset = pos_;
  PQTag tag;
  if (!ReadTag(tag)) return false;
  TPersistent* const part = property.object ? property.object(object) : nullptr;
  const auto unfit = [&] {
    BadProperty(place, path, offset, "the stored value is of another kind; expected " + PQExpected(property),
                &property);
    return SkipValue(tag, depth + 1);
  };
  switch (property.kind) {
    case PQKind::Object:
    case PQKind::PinList:
      if (tag != PQTag::Properties || part == nullptr) return unfit();
      return ReadProperties(*part, &property, {place.component, place.prefix + path + "."}, links, depth + 1);
    case PQKind::Collection: {
      TCollection* const collection = PQCast<TCollection>(part);
      if (tag != PQTag::Collection || collection == nullptr) return unfit();
      collection->Clear();
      for (int index = 0; !Take(PQTag::End); ++index) {
        if (!Take(PQTag::Properties)) return Malformed("an item's properties are missing", "tag 14 or 0");
        if (++items_ > kPQMostStreamItems) {
          return Malformed("there are too many items", "at most " + std::to_string(kPQMostStreamItems));
        }
        const std::string prefix = place.prefix + path + "[" + std::to_string(index) + "].";
        if (!ReadProperties(*collection->Add(), nullptr, {place.component, prefix}, links, depth + 1)) return false;
      }
      return ok_;
    }
    case PQKind::Pin: {
      if (tag != PQTag::Link || property.pin_role == PQPinRole::Source) return unfit();
      std::string_view target;
      if (!ReadCounted(target)) return false;
      links.push_back({{&object, property}, place.component, place.prefix + path, std::string(target), offset});
      return true;
    }
    default:
      break;
  }
  PQValue value;
  if (tag == PQTag::Word) {
    std::string_view word;
    if (!ReadCounted(word)) return false;
    std::int64_t number = 0;
    if (property.kind != PQKind::Enumeration || !FindWord(property, word, number)) {
      std::string what = PQQuote(word.substr(0, 60)) + " is not allowed; expected " + PQExpected(property);
      const std::string nearest = PQNearestWord(property, word);
      if (!nearest.empty()) what += "; nearest is '" + nearest + "'";
      BadProperty(place, path, offset, what, &property);
      faults_.back().nearest = nearest;
      return true;
    }
    value = PQValue(number);
  } else if (tag == PQTag::Set) {
    std::string unknown;
    if (!ReadSet(property, value, unknown)) return false;
    if (property.kind != PQKind::Set || !unknown.empty()) {
      BadProperty(place, path, offset,
                  PQQuote(unknown.substr(0, 60)) + " is not allowed; expected " + PQExpected(property), &property);
      return true;
    }
  } else if (tag == PQTag::Properties || tag == PQTag::Collection || tag == PQTag::Link) {
    return unfit();
  } else {
    if (!ReadValueOf(tag, value, depth + 1)) return false;
  }
  if (const PQStatus status = PQSetProperty(object, property, value); !status.Ok()) {
    std::string_view text = status.Text();
    if (text.starts_with(property.name + ": ")) text.remove_prefix(property.name.size() + 2);
    BadProperty(place, path, offset, std::string(text), &property);
  }
  return true;
}

PQBytes PQWriteBinary(const TPersistent& object) {
  PQBinaryWriter writer;
  writer.Object(object);
  return writer.Result();
}

bool PQReadBinary(std::span<const std::uint8_t> bytes, TPersistent& object, std::vector<PQBinaryLink>& links,
                  std::vector<PQFault>& faults) {
  const std::size_t before = faults.size();
  PQBinaryReader reader(bytes, faults);
  if (reader.ReadObject(object, {}, links) && !reader.AtEnd())
    reader.Malformed("there is more behind the object", "the end");
  return faults.size() == before;
}

}  // namespace pantiq
