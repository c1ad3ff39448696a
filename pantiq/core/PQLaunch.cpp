// Launch lines, as text.
#include <algorithm>
#include <optional>

#include "pantiq/core/PQGraphPlan.h"
#include "pantiq/host/PQComponent.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQTextLiteral.h"

namespace pantiq::detail {
namespace {

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

struct Token {
  enum class Kind { Bang, Word, Setting, Quoted };
  Kind kind = Kind::Word;
  std::string path, value;  // a Word's text is its path
  GraphPlace place, value_place;
};

class Lexer {
 public:
  Lexer(std::string_view text, std::vector<PQFault>& faults) : text_(text), faults_(faults) {
    if (text_.starts_with("\xef\xbb\xbf")) pos_ = line_begin_ = 3;
  }

  std::vector<Token> Run() {
    std::vector<Token> tokens;
    for (;;) {
      while (pos_ < text_.size() && IsSpace(text_[pos_])) Step();
      if (pos_ >= text_.size()) return tokens;
      if (text_[pos_] == '#') {
        while (pos_ < text_.size() && text_[pos_] != '\n') Step();
        continue;
      }
      if (std::optional<Token> token = Read()) tokens.push_back(std::move(*token));
    }
  }

 private:
  void Step() {
    if (text_[pos_] == '\n') ++line_, line_begin_ = pos_ + 1;
    ++pos_;
  }
  void StepTo(std::size_t end) {
    while (pos_ < end) Step();
  }
  GraphPlace Here(std::size_t length) const {
    return {line_, static_cast<int>(pos_ - line_begin_) + 1, static_cast<int>(std::max<std::size_t>(length, 1))};
  }
  std::size_t BareEnd(std::size_t at) const {
    while (at < text_.size() && !IsSpace(text_[at])) ++at;
    return at;
  }
  // The end of a quoted text that begins at `at`, or npos.
  std::size_t QuotedEnd(std::size_t at) const {
    std::string content;
    const std::size_t length = PQUnquote(text_.substr(at), content);
    return length == 0 ? std::string_view::npos : at + length;
  }
  std::nullopt_t FailAndSkip(const GraphPlace& place, std::string text, std::string expected, std::size_t to) {
    faults_.push_back(MakeFault(place, std::move(text), std::move(expected)));
    StepTo(to);
    return std::nullopt;
  }
  std::nullopt_t NotClosed(std::size_t at) {
    StepTo(at);
    const std::size_t line_end = std::min(text_.find('\n', at), text_.size());
    // What follows may be inside the text or not; nothing sure can be said of it.
    return FailAndSkip(Here(line_end - at), "the text is not closed",
                       "a single quote at its end in the same line, '' for one inside", text_.size());
  }

  // Behind the bracket that closes the one at `at`, or npos.
  std::size_t BracketEnd(std::size_t at) const {
    int depth = 0;
    for (; at < text_.size(); ++at) {
      const char c = text_[at];
      if (c == '\'') {
        at = QuotedEnd(at);
        if (at == std::string_view::npos) return at;
        --at;
      } else if (c == '{' || c == '(' || c == '[') {
        ++depth;
      } else if ((c == '}' || c == ')' || c == ']') && --depth == 0) {
        return at + 1;
      }
    }
    return std::string_view::npos;
  }

  std::optional<Token> Read() {
    Token token;
    token.place = Here(1);
    const std::size_t begin = pos_;
    std::size_t end = begin;
    if (text_[begin] == '!' && BareEnd(begin) == begin + 1) {
      token.kind = Token::Kind::Bang;
      StepTo(begin + 1);
      return token;
    }
    // A path: up to a blank or '=' outside quotes.
    while (end < text_.size() && !IsSpace(text_[end]) && text_[end] != '=') {
      if (text_[end] == '\'') {
        const std::size_t close = QuotedEnd(end);
        if (close == std::string_view::npos) return NotClosed(end);
        end = close;
      } else {
        ++end;
      }
    }
    token.path = text_.substr(begin, end - begin);
    token.place.length = static_cast<int>(end - begin);
    std::size_t equals = end;
    while (equals < text_.size() && (text_[equals] == ' ' || text_[equals] == '\t')) ++equals;
    if (equals != end && equals < text_.size() && text_[equals] == '=') {
      std::size_t value = equals + 1;
      while (value < text_.size() && (text_[value] == ' ' || text_[value] == '\t')) ++value;
      return FailAndSkip(Here(equals + 1 - begin), token.path + ": a blank stands before '='", token.path + "=value",
                         BareEnd(value));
    }
    if (end >= text_.size() || text_[end] != '=') {
      if (text_[begin] == '\'') {
        token.kind = Token::Kind::Quoted;
        token.value = token.path, token.value_place = token.place;
        if (QuotedEnd(begin) != end) {
          return FailAndSkip(token.place, "there is more behind the text", "a blank behind the closing quote", end);
        }
      }
      StepTo(end);
      return token;
    }
    if (end == begin) {
      return FailAndSkip(Here(BareEnd(begin) - begin), "the property's name is missing", "Property=value",
                         BareEnd(begin));
    }
    token.kind = Token::Kind::Setting;
    return ReadValue(token, end + 1);
  }

  std::optional<Token> ReadValue(Token& token, std::size_t begin) {
    std::size_t end = BareEnd(begin);
    const char first = begin < text_.size() ? text_[begin] : ' ';
    if (end == begin) {
      return FailAndSkip({token.place.line, token.place.column, token.place.length + 1},
                         "the value of " + token.path + " is missing", "a value right behind '='", begin);
    }
    if (first == '\'') {
      end = QuotedEnd(begin);
      if (end == std::string_view::npos) return NotClosed(begin);
    } else if (first == '{' || first == '(' || first == '[') {
      end = BracketEnd(begin);
      if (end == std::string_view::npos) {
        StepTo(begin);
        const char close = first == '{' ? '}' : first == '(' ? ')' : ']';
        return FailAndSkip(Here(1), std::string("'") + first + "' is not closed",
                           std::string("'") + close + "' behind the value", text_.size());
      }
    }
    StepTo(begin);
    token.value_place = Here(end - begin);
    token.value = text_.substr(begin, end - begin);
    StepTo(end);
    if (end < text_.size() && !IsSpace(text_[end])) {
      const std::size_t more = BareEnd(end);
      return FailAndSkip(Here(more - end), "there is more behind the value of " + token.path,
                         "a blank behind the value, text with blanks in single quotes", more);
    }
    return token;
  }

  std::string_view text_;
  std::vector<PQFault>& faults_;
  std::size_t pos_ = 0, line_begin_ = 0;
  int line_ = 1;
};

class Reader {
 public:
  Reader(GraphPlan& plan, std::vector<PQFault>& faults) : plan_(plan), faults_(faults) {}

  void Run(const std::vector<Token>& tokens) {
    // Names first: a line may refer to a component that comes later.
    for (const Token& token : tokens) {
      std::string name;
      if (token.kind == Token::Kind::Setting && token.path == "Name" && Unquoted(token.value, name))
        names_.push_back(name);
    }
    for (const Token& token : tokens) {
      switch (token.kind) {
        case Token::Kind::Bang:
          ReadBang(token);
          break;
        case Token::Kind::Word:
          ReadWord(token);
          break;
        case Token::Kind::Setting:
        case Token::Kind::Quoted:
          ReadSetting(token);
          break;
      }
    }
    if (pending_) {
      faults_.push_back(MakeFault(bang_, "nothing stands on the right of '!'", "a component or a sink pin"));
    }
    EndLeft();
  }

 private:
  static constexpr int kNone = -1, kBroken = -2;  // of open_: what stands there was no component

  static bool Unquoted(const std::string& value, std::string& text) {
    if (!value.starts_with('\'')) {
      text = value;
      return true;
    }
    return PQUnquote(value, text) == value.size();
  }

  void ReadBang(const Token& token) {
    if (pending_) {
      faults_.push_back(MakeFault(token.place, "two '!' in a row", "a component or a pin between them"));
      return;
    }
    if (!left_ && open_ != kBroken) {
      faults_.push_back(MakeFault(token.place, "nothing stands on the left of '!'", "a component or a source pin"));
    }
    linked_ = true;
    pending_ = true, bang_ = token.place;
  }

  // A path without a '!' on either side is no pin that somebody meant.
  void EndLeft() {
    if (!left_ || linked_ || left_->path.find_first_of(".[") == std::string::npos) return;
    faults_.push_back(MakeFault(left_->place, "'" + left_->path + "' connects nothing",
                                "'!' before or behind a pin; a value that stands alone in single quotes"));
  }

  void ReadWord(const Token& token) {
    if (!pending_) EndLeft();
    linked_ = pending_;
    PlannedEnd end;
    end.place = token.place;
    const bool is_path = token.path.find_first_of(".[") != std::string::npos;
    if (!is_path && PQFindClass(token.path) == nullptr &&
        std::find(names_.begin(), names_.end(), token.path) != names_.end()) {
      end.path = token.path;  // a component by its name
      open_ = kNone;
    } else if (is_path) {
      end.path = token.path;
      open_ = kNone;
    } else if (PQIsIdentifier(token.path)) {
      PlannedComponent component;
      component.class_name = token.path;
      component.class_place = token.place;
      open_ = end.component = static_cast<int>(plan_.components.size());
      plan_.components.push_back(std::move(component));
    } else {
      faults_.push_back(
          MakeFault(token.place, "'" + token.path + "' is out of place", "a class, a pin, Property=value or '!'"));
      open_ = kBroken;
      pending_ = false;
      left_.reset();
      return;
    }
    if (pending_ && left_) plan_.links.push_back({*left_, end});
    pending_ = false;
    left_ = end;
  }

  void ReadSetting(const Token& token) {
    if (open_ < 0) {
      if (open_ == kBroken) return;  // what it belongs to has been told
      faults_.push_back(MakeFault(
          token.kind == Token::Kind::Quoted ? token.value_place : token.place,
          (token.kind == Token::Kind::Quoted ? token.value : token.path) + ": this setting belongs to no component",
          "it behind the class of its component"));
      return;
    }
    if (pending_) {
      faults_.push_back(
          MakeFault(token.place, token.path + ": a setting stands behind '!'", "a component or a sink pin"));
      return;
    }
    PlannedComponent& component = plan_.components[static_cast<std::size_t>(open_)];
    PQTextSetting setting;
    setting.path = token.path, setting.value = token.value;
    setting.line = token.place.line, setting.column = token.place.column;
    setting.value_line = token.value_place.line, setting.value_column = token.value_place.column;
    if (token.kind == Token::Kind::Quoted) {
      setting.path.clear();
      component.bare.push_back(std::move(setting));
    } else if (token.path == "Name" && !PublishesName(component.class_name)) {
      std::string name;
      if (!component.name.empty()) {
        faults_.push_back(MakeFault(token.place, "Name: is set twice", "one name for each component"));
      } else if (Unquoted(token.value, name) && !name.empty()) {
        component.name = name, component.name_place = token.value_place;
      } else {
        faults_.push_back(MakeFault(token.value_place, "Name: " + token.value + " is no name of a component",
                                    "letters, digits and underscores, not starting with a digit"));
      }
    } else {
      component.settings.push_back(std::move(setting));
    }
  }

  static bool PublishesName(const std::string& class_name) {
    const PQClassInfo* const info = PQFindClass(class_name);
    return info != nullptr && info->Find("Name") != nullptr;
  }

  GraphPlan& plan_;
  std::vector<PQFault>& faults_;
  std::vector<std::string> names_;
  std::optional<PlannedEnd> left_;  // what a '!' would connect from
  bool linked_ = false;             // a '!' stands before or behind it
  bool pending_ = false;            // a '!' waits for its right side
  GraphPlace bang_;
  int open_ = kNone;  // the component that settings belong to
};

}  // namespace

void ReadLaunch(std::string_view text, GraphPlan& plan, std::vector<PQFault>& faults) {
  const std::vector<Token> tokens = Lexer(text, faults).Run();
  Reader(plan, faults).Run(tokens);
}

}  // namespace pantiq::detail
