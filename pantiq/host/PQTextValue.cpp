// Text forms of values. Nothing here depends on the process's locale: numbers go through to_chars and from_chars.
#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <optional>

#include "pantiq/host/PQClassInfo.h"
#include "pantiq/host/PQPersistent.h"
#include "pantiq/host/PQPicture.h"
#include "pantiq/host/PQTextLiteral.h"

namespace pantiq {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
  return text;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

template <class F>
std::string ShortestFloat(F value) {
  char buffer[64];
  const auto end = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, end.ptr);
}

constexpr std::uint64_t kPlainNan = 0x7ff8000000000000u;
constexpr std::uint64_t kSignBit = std::uint64_t{1} << 63;

std::string FormatFloat(double value, bool single_precision) {
  if (value != value) {
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(value);
    std::string text = (bits & kSignBit) != 0 ? "-nan" : "nan";
    if ((bits & ~kSignBit) != kPlainNan) {
      char buffer[24];
      const char* const end = std::to_chars(buffer, buffer + sizeof buffer, bits & ~kSignBit, 16).ptr;
      text.append("($").append(buffer, static_cast<std::size_t>(end - buffer)).append(")");
    }
    return text;
  }
  if (single_precision && static_cast<double>(static_cast<float>(value)) == value) {
    return ShortestFloat(static_cast<float>(value));
  }
  return ShortestFloat(value);
}

std::string FormatBytes(const PQBytes& bytes) {
  std::string text = "{";
  text.reserve(bytes.size() * 3 + 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i != 0) text += ' ';
    text += kHexDigits[bytes[i] >> 4];
    text += kHexDigits[bytes[i] & 15];
  }
  return text += '}';
}

// A list tells the kinds of its values apart by their look alone, so a float always shows that it is one.
std::string FormatListed(const PQValue& value) {
  if (const bool* b = value.Bool()) return *b ? "true" : "false";
  if (const std::int64_t* i = value.Int()) return std::to_string(*i);
  if (const double* d = value.Float()) {
    std::string text = FormatFloat(*d, false);
    if (text.find_first_of(".en") == std::string::npos) text += ".0";
    return text;
  }
  if (const std::string* s = value.Text()) return PQQuote(*s);
  if (const PQBytes* bytes = value.Bytes()) return FormatBytes(*bytes);
  std::string text = "(";
  if (const PQValue::List* items = value.Items()) {
    for (const PQValue& item : *items) {
      if (text.size() > 1) text += ' ';
      text += FormatListed(item);
    }
  }
  return text += ')';
}

std::string FormatWord(const PQProperty& property, std::int64_t value) {
  for (const PQWord& word : property.words) {
    if (word.value == value) return std::string(word.name);
  }
  return std::to_string(value);
}

std::optional<std::int64_t> ParseInteger(std::string_view text, bool* overflow = nullptr) {
  bool negative = false;
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  int base = 10;
  if (text.starts_with('$')) {
    base = 16;
    text.remove_prefix(1);
  } else if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  }
  std::uint64_t magnitude = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
  if (result.ptr != text.data() + text.size() || result.ec == std::errc::invalid_argument || text.empty() ||
      HexDigit(text.front()) < 0) {
    return std::nullopt;
  }
  const std::uint64_t limit = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) + (negative ? 1 : 0);
  if (result.ec == std::errc::result_out_of_range || magnitude > limit) {
    if (overflow != nullptr) *overflow = true;
    return std::nullopt;
  }
  return static_cast<std::int64_t>(negative ? 0 - magnitude : magnitude);
}

std::optional<double> ParseNotFinite(std::string_view text) {
  bool negative = false;
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  const std::uint64_t sign = negative ? kSignBit : 0;
  if (text == "inf") return std::bit_cast<double>(sign | 0x7ff0000000000000u);
  if (text == "nan") return std::bit_cast<double>(sign | kPlainNan);
  if (text.starts_with("nan($") && text.ends_with(')')) {
    const std::string_view digits = text.substr(5, text.size() - 6);
    std::uint64_t bits = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), bits, 16);
    if (result.ec == std::errc{} && result.ptr == digits.data() + digits.size() && bits > 0x7ff0000000000000u &&
        bits < kSignBit) {
      return std::bit_cast<double>(sign | bits);
    }
  }
  return std::nullopt;
}

template <class F>
std::errc FromChars(std::string_view text, F& value) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  // Names of not-finite numbers have been dealt with; from_chars knows more of them than we do.
  const std::string_view digits = text.starts_with('-') ? text.substr(1) : text;
  if (digits.empty() || (digits.front() != '.' && (digits.front() < '0' || digits.front() > '9'))) {
    return std::errc::invalid_argument;
  }
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc{} && result.ptr != text.data() + text.size()) return std::errc::invalid_argument;
  if (result.ec == std::errc::result_out_of_range && result.ptr != text.data() + text.size()) {
    return std::errc::invalid_argument;
  }
  return result.ec;
}

// A number too small for the type becomes its nearest value, zero or the smallest one; a number too large is refused.
std::optional<double> ParseFloat(std::string_view text, bool single_precision) {
  if (const std::optional<double> value = ParseNotFinite(text)) return value;
  if (single_precision) {
    float single = 0;
    const std::errc answer = FromChars(text, single);
    if (answer == std::errc{}) return single;
    double wide = 0;
    if (answer == std::errc::result_out_of_range && FromChars(text, wide) == std::errc{} && std::fabs(wide) < 1) {
      return static_cast<float>(wide);
    }
    if (answer != std::errc::result_out_of_range || !(std::fabs(wide) < 1)) return std::nullopt;
  }
  double value = 0;
  const std::errc answer = FromChars(text, value);
  if (answer == std::errc{}) return value;
  if (answer == std::errc::result_out_of_range) {
    const std::size_t exponent = text.find_first_of("eE");
    if (exponent != std::string_view::npos && text.substr(exponent + 1).starts_with('-')) {
      return text.starts_with('-') ? -0.0 : 0.0;
    }
  }
  return std::nullopt;
}

// Reads one value after another out of a text that may span lines.
class LiteralReader {
 public:
  explicit LiteralReader(std::string_view text) : text_(text) {}

  void SkipSpace() {
    while (pos_ < text_.size() && IsSpace(text_[pos_])) ++pos_;
  }
  bool AtEnd() const { return pos_ >= text_.size(); }
  char Peek() const { return text_[pos_]; }

  bool ReadBytes(PQBytes& bytes) {
    if (!Take('{')) return false;
    int high = -1;
    for (; pos_ < text_.size(); ++pos_) {
      const char c = text_[pos_];
      if (c == '}') {
        ++pos_;
        return high < 0;
      }
      if (IsSpace(c)) {
        if (high >= 0) return false;  // a byte is not split
        continue;
      }
      const int digit = HexDigit(c);
      if (digit < 0) return false;
      if (high < 0) {
        high = digit;
      } else {
        bytes.push_back(static_cast<std::uint8_t>(high * 16 + digit));
        high = -1;
      }
    }
    return false;
  }

  bool ReadList(PQValue::List& items, int depth) {
    if (depth > kMaxNesting || !Take('(')) return false;
    for (;;) {
      SkipSpace();
      if (AtEnd()) return false;
      if (Take(')')) return true;
      PQValue value;
      if (!ReadListed(value, depth)) return false;
      items.push_back(std::move(value));
      if (!AtEnd() && !IsSpace(Peek()) && Peek() != ')') return false;
    }
  }

  bool ReadQuoted(std::string& text) {
    const std::size_t length = PQUnquote(text_.substr(pos_), text);
    pos_ += length;
    return length != 0;
  }

 private:
  static constexpr int kMaxNesting = 64;

  bool Take(char c) {
    if (AtEnd() || text_[pos_] != c) return false;
    ++pos_;
    return true;
  }

  bool ReadListed(PQValue& value, int depth) {
    switch (Peek()) {
      case '\'': {
        std::string text;
        if (!ReadQuoted(text)) return false;
        value = PQValue(std::move(text));
        return true;
      }
      case '{': {
        PQBytes bytes;
        if (!ReadBytes(bytes)) return false;
        value = PQValue(std::move(bytes));
        return true;
      }
      case '(': {
        PQValue::List items;
        if (!ReadList(items, depth + 1)) return false;
        value = PQValue(std::move(items));
        return true;
      }
      default:
        break;
    }
    const std::size_t start = pos_;
    int parentheses = 0;  // those of nan($...)
    for (; pos_ < text_.size() && !IsSpace(text_[pos_]); ++pos_) {
      if (text_[pos_] == '(') ++parentheses;
      if (text_[pos_] == ')' && parentheses-- == 0) break;
    }
    const std::string_view word = text_.substr(start, pos_ - start);
    if (word == "true" || word == "false") {
      value = PQValue(word == "true");
      return true;
    }
    if (const std::optional<std::int64_t> integer = ParseInteger(word)) {
      value = PQValue(*integer);
      return true;
    }
    const std::optional<double> number = ParseFloat(word, false);
    if (number) value = PQValue(*number);
    return number.has_value();
  }

  std::string_view text_;
  std::size_t pos_ = 0;
};

// The value of an enumeration's word or number; a set's words name bits.
std::optional<std::int64_t> ParseWord(const PQProperty& property, std::string_view text) {
  for (const PQWord& word : property.words) {
    if (word.name == text) return word.value;
  }
  return ParseInteger(text);
}

// `bad_word` gets the first member that is none.
std::optional<std::int64_t> ParseSet(const PQProperty& property, std::string_view text, std::string_view& bad_word) {
  if (!text.starts_with('[') || !text.ends_with(']') || text.size() < 2) return std::nullopt;
  text = Trim(text.substr(1, text.size() - 2));
  std::uint64_t bits = 0;
  bool comma = false;
  while (!text.empty() || comma) {
    const std::size_t end = text.find(',');
    const std::string_view word = Trim(text.substr(0, end));
    const std::optional<std::int64_t> bit = ParseWord(property, word);
    if (!bit || *bit < 0 || *bit > 63) {
      bad_word = word;
      return std::nullopt;
    }
    bits |= std::uint64_t{1} << *bit;
    comma = end != std::string_view::npos;
    text = comma ? text.substr(end + 1) : std::string_view{};
  }
  return static_cast<std::int64_t>(bits);
}

std::string JoinWords(const PQProperty& property) {
  std::string text;
  for (const PQWord& word : property.words) {
    if (!text.empty()) text += ", ";
    text += word.name;
  }
  return text;
}

// A value in an error text: long ones are cut, control characters are shown as their number.
std::string Shown(std::string_view text) {
  std::string shown;
  for (const char c : text.substr(0, 60)) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 32 || byte == 127) {
      shown.append("#").append(std::to_string(byte));
    } else {
      shown += c;
    }
  }
  if (text.size() > 60) shown += "...";
  return shown;
}

PQStatus NoValue(const PQProperty& property, std::string_view text) {
  std::string message = "'";
  message.append(Shown(text)).append("' is not allowed; expected ").append(PQExpected(property));
  if (const std::string nearest = PQNearestWord(property, text); !nearest.empty()) {
    message.append("; nearest is '").append(nearest).append("'");
  }
  return {PQCode::BadValue, std::move(message)};
}

int EditDistance(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  // Optimal string alignment: insertions, deletions, replacements and swaps of neighbours; letters match in any case.
  std::vector<int> before(b.size() + 1), last(b.size() + 1), now(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) last[j] = static_cast<int>(j);
  for (std::size_t i = 1; i <= a.size(); ++i) {
    now[0] = static_cast<int>(i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const bool same = lower(a[i - 1]) == lower(b[j - 1]);
      now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (same ? 0 : 1)});
      if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) && lower(a[i - 2]) == lower(b[j - 1])) {
        now[j] = std::min(now[j], before[j - 2] + 1);
      }
    }
    before.swap(last);
    last.swap(now);
  }
  return last[b.size()];
}

}  // namespace

std::string PQQuote(std::string_view text) {
  const auto plain_length = [&](std::size_t i) -> std::size_t {  // of the UTF-8 character at i, 0 if it needs a number
    const auto at = [&](std::size_t k) { return k < text.size() ? static_cast<unsigned char>(text[k]) : 0u; };
    const auto tail = [&](std::size_t k) { return (at(k) & 0xc0u) == 0x80u; };
    const unsigned c = at(i);
    if (c < 0x80) return c >= 32 && c != 127 ? 1 : 0;
    if (c >= 0xc2 && c <= 0xdf) return tail(i + 1) ? 2 : 0;
    if (c >= 0xe0 && c <= 0xef) {
      const bool ok =
          tail(i + 1) && tail(i + 2) && !(c == 0xe0 && at(i + 1) < 0xa0) && !(c == 0xed && at(i + 1) > 0x9f);
      return ok ? 3 : 0;
    }
    if (c >= 0xf0 && c <= 0xf4) {
      const bool ok = tail(i + 1) && tail(i + 2) && tail(i + 3) && !(c == 0xf0 && at(i + 1) < 0x90) &&
                      !(c == 0xf4 && at(i + 1) > 0x8f);
      return ok ? 4 : 0;
    }
    return 0;
  };
  std::string quoted = "'";
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = plain_length(i);
    if (length == 0) {
      quoted.append("'#").append(std::to_string(static_cast<unsigned char>(text[i]))).append("'");
      ++i;
    } else {
      if (text[i] == '\'') quoted += '\'';
      quoted += text.substr(i, length);
      i += length;
    }
  }
  return quoted += '\'';
}

std::size_t PQUnquote(std::string_view text, std::string& content) {
  if (!text.starts_with('\'')) return 0;
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == '\n') return 0;
    if (text[i] != '\'') {
      content += text[i];
      continue;
    }
    if (i + 1 < text.size() && text[i + 1] == '\'') {
      content += '\'';
      ++i;
      continue;
    }
    // '#10' between two quotes stands for the byte of that number.
    if (i + 1 < text.size() && text[i + 1] == '#') {
      unsigned byte = 0;
      const char* const end = text.data() + text.size();
      const auto result = std::from_chars(text.data() + i + 2, end, byte);
      if (result.ec == std::errc{} && result.ptr != end && *result.ptr == '\'' && byte < 256) {
        content += static_cast<char>(byte);
        i = static_cast<std::size_t>(result.ptr - text.data());
        continue;
      }
    }
    return i + 1;
  }
  return 0;
}

std::string PQFormatValue(const PQProperty& property, const PQValue& value) {
  switch (property.kind) {
    case PQKind::Boolean:
      if (const bool* b = value.Bool()) return *b ? "true" : "false";
      break;
    case PQKind::Integer:
      if (const std::int64_t* i = value.Int()) return std::to_string(*i);
      break;
    case PQKind::Float:
      if (const double* d = value.Float()) return FormatFloat(*d, property.single_precision);
      break;
    case PQKind::Enumeration:
      if (const std::int64_t* i = value.Int()) return FormatWord(property, *i);
      break;
    case PQKind::Set:
      if (const std::int64_t* i = value.Int()) {
        std::string text = "[";
        for (int bit = 0; bit < 64; ++bit) {
          if ((static_cast<std::uint64_t>(*i) >> bit & 1) == 0) continue;
          if (text.size() > 1) text += ", ";
          text += FormatWord(property, bit);
        }
        return text += ']';
      }
      break;
    case PQKind::Pin:
    case PQKind::PinList:
      if (const std::string* s = value.Text()) return *s;
      break;
    default:
      break;
  }
  return value.IsEmpty() ? std::string() : FormatListed(value);
}

PQStatus PQParseValue(const PQProperty& property, std::string_view text, PQValue& value) {
  text = Trim(text);
  switch (property.kind) {
    case PQKind::Boolean:
      if (text == "true" || text == "false") {
        value = PQValue(text == "true");
        return {};
      }
      break;
    case PQKind::Integer:
      if (const std::optional<std::int64_t> i = ParseInteger(text); i && *i >= property.low && *i <= property.high) {
        value = PQValue(*i);
        return {};
      }
      break;
    case PQKind::Float:
      if (const std::optional<double> d = ParseFloat(text, property.single_precision)) {
        value = PQValue(*d);
        return {};
      }
      break;
    case PQKind::Enumeration:
      if (const std::optional<std::int64_t> i = ParseWord(property, text);
          i && *i >= property.low && *i <= property.high) {
        value = PQValue(*i);
        return {};
      }
      break;
    case PQKind::Set: {
      std::string_view bad_word;
      if (const std::optional<std::int64_t> i = ParseSet(property, text, bad_word);
          i && (property.low >= property.high || (*i >= property.low && *i <= property.high))) {
        value = PQValue(*i);
        return {};
      }
      break;
    }
    case PQKind::String:
    case PQKind::Picture: {
      std::string content;
      if (text.starts_with('\'')) {
        if (PQUnquote(text, content) != text.size()) break;
        value = PQValue(std::move(content));
        return {};
      }
      if (property.kind == PQKind::Picture && text.starts_with('{')) {
        PQBytes bytes;
        LiteralReader reader(text);
        if (!reader.ReadBytes(bytes) || !reader.AtEnd()) break;
        value = PQValue(std::move(bytes));
        return {};
      }
      value = PQValue(std::string(text));
      return {};
    }
    case PQKind::Binary: {
      PQBytes bytes;
      LiteralReader reader(text);
      if (!reader.ReadBytes(bytes) || !reader.AtEnd()) break;
      value = PQValue(std::move(bytes));
      return {};
    }
    case PQKind::List: {
      PQValue::List items;
      LiteralReader reader(text);
      if (!reader.ReadList(items, 1) || !reader.AtEnd()) break;
      value = PQValue(std::move(items));
      return {};
    }
    case PQKind::Pin:
      if (!text.empty()) {
        value = PQValue(std::string(text));
        return {};
      }
      break;
    case PQKind::Object:
    case PQKind::Collection:
    case PQKind::PinList:
      break;
  }
  return NoValue(property, text);
}

std::string PQExpected(const PQProperty& property) {
  switch (property.kind) {
    case PQKind::Boolean:
      return "true or false";
    case PQKind::Integer:
      return "an integer from " + std::to_string(property.low) + " to " + std::to_string(property.high);
    case PQKind::Float:
      return property.single_precision ? "a number up to 3.4028235e+38" : "a number up to 1.7976931348623157e+308";
    case PQKind::String:
      return "text, with spaces in single quotes";
    case PQKind::Enumeration:
      return "one of " + JoinWords(property);
    case PQKind::Set:
      return "some of " + JoinWords(property) + " in brackets";
    case PQKind::Binary:
      return "bytes as {00 ff}";
    case PQKind::List:
      return "a list as (1 2 'x')";
    case PQKind::Object:
      return "one of its properties, as " + property.name + ".Property = value";
    case PQKind::Collection:
      return "one of its items, as " + property.name + "[0].Property = value";
    case PQKind::Picture:
      return "the name of a picture file, or a picture's bytes as {89 50}";
    case PQKind::Pin:
      return "a pin of another component, as Name.OutputPin";
    case PQKind::PinList:
      return "one of its pins, as " + property.name + "[0] = Name.OutputPin";
  }
  return {};
}

std::string PQNearestWord(const PQProperty& property, std::string_view text) {
  if (property.kind == PQKind::Boolean) {
    const std::string words[] = {"true", "false"};
    return PQNearest(text, words);
  }
  std::string_view wrong = text;
  if (property.kind == PQKind::Set) {
    wrong = {};
    if (ParseSet(property, Trim(text), wrong) || wrong.empty()) return {};
  }
  std::vector<std::string> words;
  words.reserve(property.words.size());
  for (const PQWord& word : property.words) words.emplace_back(word.name);
  return PQNearest(wrong, words);
}

std::string PQNearest(std::string_view name, std::span<const std::string> names) {
  if (name.empty() || name.size() > 100) return {};
  const std::string* best = nullptr;
  int best_distance = std::max(static_cast<int>(name.size()) / 3, name.size() > 1 ? 1 : 0);
  for (const std::string& candidate : names) {
    if (candidate.size() > name.size() + 40 || candidate == name) continue;
    const int distance = EditDistance(name, candidate);
    if (distance < best_distance || (distance == best_distance && best == nullptr)) {
      best = &candidate, best_distance = distance;
    }
  }
  return best != nullptr ? *best : std::string();
}

namespace {

bool HoldsKind(const PQProperty& p, const PQValue& value) {
  switch (p.kind) {
    case PQKind::Boolean:
      return value.Bool() != nullptr;
    case PQKind::Integer:
    case PQKind::Enumeration:
      return value.Int() != nullptr && *value.Int() >= p.low && *value.Int() <= p.high;
    case PQKind::Set:
      return value.Int() != nullptr && (p.low >= p.high || (*value.Int() >= p.low && *value.Int() <= p.high));
    case PQKind::Float: {
      const double* d = value.Float();
      return d != nullptr && (!p.single_precision || !std::isfinite(*d) || std::isfinite(static_cast<float>(*d)));
    }
    case PQKind::String:
      return value.Text() != nullptr;
    case PQKind::Binary:
      return value.Bytes() != nullptr;
    case PQKind::List:
      return value.Items() != nullptr;
    default:
      return false;
  }
}

}  // namespace

PQStatus PQSetProperty(TPersistent& object, const PQProperty& property, const PQValue& value) {
  const auto named = [&](const PQStatus& status) -> PQStatus {
    if (status.Ok() || status.Text().starts_with(property.name + ":")) return status;
    return {status.Code(), property.name + ": " + status.Text()};
  };
  if (property.kind == PQKind::Picture && property.object) {
    TPicture* const picture = PQCast<TPicture>(property.object(object));
    if (picture != nullptr && (value.Text() != nullptr || value.Bytes() != nullptr)) {
      return named(picture->SetStored(value));
    }
    return named(NoValue(property, FormatListed(value)));
  }
  if (!property.set) {
    return {PQCode::Refused, property.name + ": cannot be set" + (property.get ? "; it is only read" : "") +
                                 "; expected " + (property.get ? "a property that can be set" : PQExpected(property))};
  }
  const PQValue* given = &value;
  PQValue widened;
  if (property.kind == PQKind::Float && value.Int() != nullptr) {
    widened = PQValue(static_cast<double>(*value.Int()));
    given = &widened;
  }
  if (!HoldsKind(property, *given)) return named(NoValue(property, FormatListed(value)));
  return named(property.set(object, *given));
}

}  // namespace pantiq
