#include "pantiq/host/PQTextDocument.h"

#include <algorithm>

#include "pantiq/host/PQComponent.h"
#include "pantiq/host/PQTextLiteral.h"

namespace pantiq {
namespace {

constexpr std::size_t kMostNesting = 64;

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

class Parser {
 public:
  Parser(std::string_view text, const PQTextOptions& options, PQTextNode& root, std::vector<PQFault>& faults)
      : options_(options), root_(root), faults_(faults) {
    if (text.starts_with("\xef\xbb\xbf")) text.remove_prefix(3);
    text_.reserve(text.size() + 1);
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
      text_ += text[i];
    }
    if (!text_.empty() && text_.back() != '\n') text_ += '\n';
  }

  void Run() {
    stack_.push_back(&root_);
    bool header_due = !options_.header.empty();
    while (pos_ < text_.size()) {
      ++line_;
      line_begin_ = pos_;
      line_end_ = text_.find('\n', pos_);
      const std::size_t first = SkipBlanks(pos_);
      if (first == line_end_ || text_[first] == '#') {
        PQTextNode node = Node(PQTextNode::Kind::Trivia, first);
        trivia_.push_back(std::move(node));
        pos_ = line_end_ + 1;
        continue;
      }
      if (header_due) {
        header_due = false;
        if (!ReadHeader(first)) ReadLine(first);
      } else {
        ReadLine(first);
      }
      pos_ = line_end_ + 1;
    }
    if (header_due)
      Fault(1, 1, 1, "the text does not begin with its header",
            "'" + std::string(options_.header) + "' in the first line");
    LeaveCollection();
    while (stack_.size() > 1) {
      const PQTextNode& open = *stack_.back();
      Fault(open.line, open.column, open.kind == PQTextNode::Kind::Item ? 4 : static_cast<int>(open.path.size()),
            "this block is not closed", "a line 'end' behind its last property");
      FlushTrivia();
      Close();
      LeaveCollection();
    }
    FlushTrivia();
  }

 private:
  std::size_t SkipBlanks(std::size_t at) const {
    while (at < line_end_ && IsBlank(text_[at])) ++at;
    return at;
  }
  // True if nothing but a comment follows on the line.
  bool OnlyCommentFrom(std::size_t at) const {
    const std::size_t next = SkipBlanks(at);
    return next == line_end_ || (text_[next] == '#' && next != at);
  }
  int ColumnOf(std::size_t at) const { return static_cast<int>(at - line_begin_) + 1; }

  void Fault(int line, int column, int length, std::string text, std::string expected) {
    PQFault fault;
    fault.line = line, fault.column = column, fault.length = std::max(length, 1);
    fault.text = std::move(text);
    if (!expected.empty()) fault.text += "; expected " + expected;
    fault.expected = std::move(expected);
    faults_.push_back(std::move(fault));
  }
  void FaultHere(std::size_t at, std::size_t end, std::string text, std::string expected) {
    Fault(line_, ColumnOf(at), static_cast<int>(end > at ? end - at : 1), std::move(text), std::move(expected));
  }
  // The line's last byte that is neither blank nor part of a comment, plus one.
  std::size_t WordEnd(std::size_t at) const {
    while (at < line_end_ && !IsBlank(text_[at])) ++at;
    return at;
  }

  PQTextNode Node(PQTextNode::Kind kind, std::size_t at) const {
    PQTextNode node;
    node.kind = kind;
    node.line = line_, node.column = ColumnOf(at);
    node.head = text_.substr(line_begin_, line_end_ - line_begin_);
    return node;
  }
  // Comments before a block's end or after a collection belong to the block, those between items to the collection.
  void FlushTrivia() {
    for (PQTextNode& node : trivia_) stack_.back()->children.push_back(std::move(node));
    trivia_.clear();
  }
  PQTextNode& Append(PQTextNode node) {
    FlushTrivia();
    stack_.back()->children.push_back(std::move(node));
    return stack_.back()->children.back();
  }
  void Open(PQTextNode& node) { stack_.push_back(&node); }
  void Close() { stack_.pop_back(); }
  // A collection has no end of its own: whatever isn't an item ends it.
  void LeaveCollection() {
    if (stack_.back()->kind == PQTextNode::Kind::Collection) Close();
  }

  // False if the line is something else than a header.
  bool ReadHeader(std::size_t first) {
    std::size_t end = line_end_;
    for (std::size_t i = first; i < line_end_; ++i) {
      if (text_[i] == '#' && IsBlank(text_[i - 1])) {
        end = i;
        break;
      }
    }
    while (end > first && IsBlank(text_[end - 1])) --end;
    const std::string_view said = std::string_view(text_).substr(first, end - first);
    const std::string_view first_word = options_.header.substr(0, options_.header.find(' '));
    const bool other = !said.starts_with(first_word);
    if (said != options_.header) {
      FaultHere(first, end, "'" + std::string(said.substr(0, 60)) + "' is not the header of such a file",
                "'" + std::string(options_.header) + "' in the first line");
    }
    if (other) return false;
    Append(Node(PQTextNode::Kind::Header, first));
    return true;
  }

  void ReadLine(std::size_t first) {
    const std::size_t word_end = WordEnd(first);
    const std::string_view word = std::string_view(text_).substr(first, word_end - first);
    if (word == "object" && word_end < line_end_ && text_[SkipBlanks(word_end)] != '=' && !OnlyCommentFrom(word_end)) {
      return ReadObject(first, SkipBlanks(word_end));
    }
    if (word == "item" && OnlyCommentFrom(word_end)) return ReadItem(first);
    if (word == "end" && OnlyCommentFrom(word_end)) return ReadEnd(first);
    ReadProperty(first);
  }

  void ReadObject(std::size_t first, std::size_t name) {
    LeaveCollection();
    if (!options_.objects) {
      return FaultHere(first, first + 6, "no object can stand here", "a property");
    }
    while (stack_.size() > 1) {
      const PQTextNode& open = *stack_.back();
      FaultHere(first, first + 6, "the block that begins in line " + std::to_string(open.line) + " is not closed",
                "a line 'end' before the next object");
      FlushTrivia();
      Close();
      LeaveCollection();
    }
    PQTextNode node = Node(PQTextNode::Kind::Object, first);
    std::size_t colon = name;
    while (colon < line_end_ && text_[colon] != ':' && text_[colon] != '#') ++colon;
    if (colon == line_end_ || text_[colon] != ':') {
      FaultHere(name, WordEnd(name), "the object's class is missing", "'object NAME: CLASS'");
      node.path = text_.substr(name, WordEnd(name) - name);
    } else {
      std::size_t name_end = colon;
      while (name_end > name && IsBlank(text_[name_end - 1])) --name_end;
      node.path = text_.substr(name, name_end - name);
      if (!PQIsIdentifier(node.path)) {
        FaultHere(name, name_end, "'" + node.path + "' is no name of a component",
                  "letters, digits and underscores, not starting with a digit");
      }
      node.column = ColumnOf(name);
      const std::size_t class_begin = SkipBlanks(colon + 1);
      const std::size_t class_end = WordEnd(class_begin);
      node.class_name = text_.substr(class_begin, class_end - class_begin);
      node.value_line = line_, node.value_column = ColumnOf(class_begin);
      if (!PQIsIdentifier(node.class_name)) {
        FaultHere(class_begin, class_end, "'" + node.class_name + "' is no name of a class", "'object NAME: CLASS'");
      } else if (!OnlyCommentFrom(class_end)) {
        const std::size_t more = SkipBlanks(class_end);
        FaultHere(more, WordEnd(more), "there is more behind the class", "one 'object NAME: CLASS' a line");
      }
    }
    Open(Append(std::move(node)));
  }

  void ReadItem(std::size_t first) {
    if (stack_.back()->kind != PQTextNode::Kind::Collection) {
      FaultHere(first, first + 4, "this item belongs to no collection", "the collection's name in a line before it");
      // Read on as if it had one, so that its lines are not taken for the object's.
    }
    if (stack_.size() >= kMostNesting) {
      return FaultHere(first, first + 4, "blocks are nested too deeply", "at most 64 levels");
    }
    Open(Append(Node(PQTextNode::Kind::Item, first)));
  }

  void ReadEnd(std::size_t first) {
    LeaveCollection();
    if (stack_.size() <= 1) {
      return FaultHere(first, first + 3, "this 'end' closes nothing", "one 'end' a block");
    }
    FlushTrivia();
    stack_.back()->foot = text_.substr(line_begin_, line_end_ - line_begin_);
    Close();
  }

  void ReadProperty(std::size_t first) {
    LeaveCollection();
    // The path ends at a blank or '=' outside quotes.
    std::size_t end = first;
    while (end < line_end_ && !IsBlank(text_[end]) && text_[end] != '=') {
      if (text_[end] == '\'') {
        std::string content;
        const std::size_t length = PQUnquote(std::string_view(text_).substr(end, line_end_ - end), content);
        if (length == 0) {
          return FaultHere(end, line_end_, "the name in quotes is not closed", "a single quote behind it");
        }
        end += length;
      } else {
        ++end;
      }
    }
    const std::string path = text_.substr(first, end - first);
    const std::size_t next = SkipBlanks(end);
    if (options_.objects && stack_.size() == 1) {
      return FaultHere(first, end, "'" + path + "' stands outside of all objects", "'object NAME: CLASS' before it");
    }
    if (path.empty()) return FaultHere(first, first + 1, "the property's name is missing", "'Property = value'");
    if (OnlyCommentFrom(end)) {
      if (stack_.size() >= kMostNesting) {
        return FaultHere(first, end, "blocks are nested too deeply", "at most 64 levels");
      }
      PQTextNode node = Node(PQTextNode::Kind::Collection, first);
      node.path = path;
      Open(Append(std::move(node)));
      return;
    }
    if (text_[next] != '=') {
      return FaultHere(next, WordEnd(next), "'" + text_.substr(next, WordEnd(next) - next) + "' is out of place",
                       "'Property = value'");
    }
    ReadValue(first, path, SkipBlanks(next + 1));
  }

  void ReadValue(std::size_t first, const std::string& path, std::size_t begin) {
    PQTextNode node = Node(PQTextNode::Kind::Value, first);
    node.path = path;
    node.value_line = line_, node.value_column = ColumnOf(begin);
    node.head = text_.substr(line_begin_, begin - line_begin_);
    std::size_t end = begin;
    const char opener = begin < line_end_ ? text_[begin] : '\n';
    if (opener == '\'') {
      std::string content;
      const std::size_t length = PQUnquote(std::string_view(text_).substr(begin, line_end_ - begin), content);
      if (length == 0) {
        return FaultHere(begin, line_end_, "the text is not closed", "a single quote at its end, '' for one inside");
      }
      end = begin + length;
    } else if (opener == '{' || opener == '(' || opener == '[') {
      end = BracketEnd(begin);
      if (end == std::string::npos) {
        const char closer = opener == '{' ? '}' : opener == '(' ? ')' : ']';
        return FaultHere(begin, begin + 1, std::string("'") + opener + "' is not closed",
                         std::string("'") + closer + "' behind the value");
      }
    } else {
      end = BareEnd(begin);
      if (end == begin) {
        return FaultHere(begin > line_begin_ ? begin - 1 : begin, begin, "the value of " + path + " is missing",
                         "a value behind '='");
      }
    }
    node.value = text_.substr(begin, end - begin);
    for (std::size_t i = begin; i < end; ++i) {  // the rest of the line is that of the value's last line
      if (text_[i] == '\n') ++line_, line_begin_ = i + 1;
    }
    line_end_ = text_.find('\n', end);
    if (end < line_end_ && !IsBlank(text_[end])) {
      FaultHere(end, WordEnd(end), "there is more behind the value of " + path, "one value, or a blank before '#'");
    } else if (!OnlyCommentFrom(end)) {
      const std::size_t more = SkipBlanks(end);
      FaultHere(more, WordEnd(more), "there is more behind the value of " + path,
                "one value a line, text with blanks in single quotes");
    }
    node.tail = text_.substr(end, line_end_ - end);
    Append(std::move(node));
  }

  // Bare text ends at the line's end or before a comment; quotes inside (names of pins) hide what they hold.
  std::size_t BareEnd(std::size_t begin) const {
    std::size_t end = begin;
    for (std::size_t i = begin; i < line_end_; ++i) {
      if (text_[i] == '#' && (i == begin || IsBlank(text_[i - 1]))) break;
      if (text_[i] == '\'') {
        std::string content;
        const std::size_t length = PQUnquote(std::string_view(text_).substr(i, line_end_ - i), content);
        if (length > 1) i += length - 1;
      }
      if (!IsBlank(text_[i])) end = i + 1;
    }
    return end;
  }

  // Behind the bracket that closes the one at `begin`, or npos. Quotes inside hide what they hold.
  std::size_t BracketEnd(std::size_t begin) const {
    int depth = 0;
    for (std::size_t i = begin; i < text_.size(); ++i) {
      switch (text_[i]) {
        case '\'': {
          std::string content;
          const std::size_t length = PQUnquote(std::string_view(text_).substr(i), content);
          if (length == 0) return std::string::npos;
          i += length - 1;
          break;
        }
        case '{':
        case '(':
        case '[':
          ++depth;
          break;
        case '}':
        case ')':
        case ']':
          if (--depth == 0) return i + 1;
          break;
        case '=':  // no value holds one: the bracket was never closed and this is the next property
          return std::string::npos;
        default:
          break;
      }
    }
    return std::string::npos;
  }

  const PQTextOptions& options_;
  PQTextNode& root_;
  std::vector<PQFault>& faults_;
  std::string text_;
  std::size_t pos_ = 0, line_begin_ = 0, line_end_ = 0;
  int line_ = 0;
  std::vector<PQTextNode*> stack_;  // only the last child of each node is open, so that growing moves no open node
  std::vector<PQTextNode> trivia_;
};

void Write(const PQTextNode& node, std::string& out) {
  if (node.kind != PQTextNode::Kind::Root) {
    out += node.head;
    out += node.value;
    out += node.tail;
    out += '\n';
  }
  for (const PQTextNode& child : node.children) Write(child, out);
  if (node.kind == PQTextNode::Kind::Item || node.kind == PQTextNode::Kind::Object) {
    out += node.foot;
    out += '\n';
  }
}

}  // namespace

void PQParseText(std::string_view text, const PQTextOptions& options, PQTextNode& root, std::vector<PQFault>& faults) {
  root = PQTextNode{};
  Parser(text, options, root, faults).Run();
}

std::string PQTextOf(const PQTextNode& root) {
  std::string out;
  Write(root, out);
  return out;
}

std::string PQCaret(std::string_view source, const PQFault& fault) {
  if (fault.line <= 0 || fault.column <= 0) return {};
  std::size_t begin = 0;
  for (int line = 1; line < fault.line; ++line) {
    const std::size_t end = source.find('\n', begin);
    if (end == std::string_view::npos) return {};
    begin = end + 1;
  }
  std::string_view line = source.substr(begin, source.find('\n', begin) - begin);
  if (line.ends_with('\r')) line.remove_suffix(1);
  std::string caret;
  const std::size_t at = static_cast<std::size_t>(fault.column) - 1;
  const auto is_tail = [&](std::size_t i) { return (static_cast<unsigned char>(line[i]) & 0xc0u) == 0x80u; };
  for (std::size_t i = 0; i < at && i < line.size(); ++i) {
    if (!is_tail(i)) caret += line[i] == '\t' ? '\t' : ' ';
  }
  caret += '^';
  for (std::size_t i = at + 1; i < at + static_cast<std::size_t>(std::max(fault.length, 1)) && i < line.size(); ++i) {
    if (!is_tail(i)) caret += '~';
  }
  return std::string(line) + "\n" + caret;
}

}  // namespace pantiq
