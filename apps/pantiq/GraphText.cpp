#include "GraphText.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "Console.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQTextDocument.h"
#include "pantiq/host/PQTextLiteral.h"

namespace pantiq::app {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n'; }

bool HasBlank(std::string_view text) { return std::any_of(text.begin(), text.end(), IsBlank); }

// True for a piece of a launch line, false for one value that the shell took out of its quotes.
bool IsLaunchText(const std::string& word) {
  const std::string first(word.begin(), std::find_if(word.begin(), word.end(), IsBlank));
  return first == "!" || first == "#" || PQFindClass(first) != nullptr || word.find(" ! ") != std::string::npos ||
         word.ends_with(" !");
}

bool IsQuotedOrBracketed(std::string_view value) {
  return !value.empty() && std::string_view("'[({").find(value.front()) != std::string_view::npos;
}

// A name, a class, or a path to a pin.
bool LooksLikeEnd(std::string_view word) {
  return PQIsIdentifier(word.substr(0, std::min(word.find_first_of(".["), word.size())));
}

// `alone`: no ! stands beside the word, so that it can be no pin.
std::string Requoted(const std::string& word, bool alone) {
  if (word.empty()) return "''";
  if (word == "!" || IsQuotedOrBracketed(word)) return word;
  const std::size_t equals = word.find('=');
  const std::string_view path = std::string_view(word).substr(0, equals == std::string::npos ? 0 : equals);
  if (equals != std::string::npos && LooksLikeEnd(path) &&
      (!HasBlank(path) || path.find('\'') != std::string_view::npos)) {
    const std::string_view value = std::string_view(word).substr(equals + 1);
    if (!HasBlank(value) || IsQuotedOrBracketed(value)) return word;
    return std::string(path) + "=" + PQQuote(value);
  }
  if (HasBlank(word)) return IsLaunchText(word) ? word : PQQuote(word);
  if (!LooksLikeEnd(word)) return PQQuote(word);
  const bool path_word = word.find_first_of(".[") != std::string::npos;
  return alone && path_word ? PQQuote(word) : word;
}

bool NamesFile(const std::string& word) {
  if (word.ends_with(".pqg")) return true;
  std::error_code error;
  return !HasBlank(word) && PQFindClass(word) == nullptr && std::filesystem::is_regular_file(word, error);
}

PQFault FileFault(const std::string& file, const std::string& why) {
  PQFault fault;
  fault.value = file;
  fault.expected = "a graph file";
  fault.text = "'" + file + "': " + why + "; expected a graph file";
  return fault;
}

bool ReadText(GivenGraph& given) {
  std::error_code error;
  const std::filesystem::file_status kind = std::filesystem::status(given.file, error);
  if (std::filesystem::is_directory(kind)) {
    given.faults.push_back(FileFault(given.file, "that is a folder"));
    return false;
  }
  errno = 0;
  std::ifstream file(given.file, std::ios::binary);
  const bool opened = file.is_open();
  char block[65536];
  while (file.read(block, sizeof block), file.gcount() > 0) {
    given.source.append(block, static_cast<std::size_t>(file.gcount()));
    if (given.source.size() > std::size_t{1} << 30) {  // a device has no end
      given.faults.push_back(FileFault(given.file, "the file is too long (more than 1 GiB)"));
      return false;
    }
  }
  if (!opened || file.bad()) {
    const int code = errno != 0 ? errno : EIO;
    given.faults.push_back(FileFault(given.file, code == ENOENT ? "there is no such file" : std::strerror(code)));
    return false;
  }
  if (given.source.empty()) given.faults.push_back(FileFault(given.file, "the file is empty (0 bytes)"));
  return !given.source.empty();
}

// Adds to the message what it leaves out.
std::string WholeText(const PQFault& fault) {
  std::string text = fault.text;
  const auto lacks = [&](const std::string& part) { return !part.empty() && text.find(part) == std::string::npos; };
  if (lacks(fault.expected)) text += "; expected " + fault.expected;
  if (lacks(fault.nearest)) text += "; the nearest is " + fault.nearest;
  if (lacks(fault.component)) text = fault.component + ": " + text;
  return text;
}

}  // namespace

bool GivenGraph::Faultless() const {
  return graph != nullptr && std::none_of(faults.begin(), faults.end(),
                                          [](const PQFault& fault) { return fault.severity == PQSeverity::Error; });
}

std::string JoinWords(std::span<const std::string> words) {
  if (words.size() == 1) return words.front();
  std::string line;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const bool bang_before = i > 0 && (words[i - 1] == "!" || words[i - 1].ends_with(" !"));
    const bool bang_behind = i + 1 < words.size() && (words[i + 1] == "!" || words[i + 1].starts_with("! "));
    line += (line.empty() ? "" : " ") + Requoted(words[i], i > 0 && !bang_before && !bang_behind);
  }
  return line;
}

namespace {

// What a check without plug-ins finds is added to what the graph itself said, but for its notes on single settings:
// those are of parameters that could not be told there.
void AddChecked(std::vector<PQFault>& faults, std::vector<PQFault> checked) {
  const auto before = static_cast<std::ptrdiff_t>(faults.size());
  for (PQFault& fault : checked) {
    if (fault.severity == PQSeverity::Note && !fault.property.empty()) continue;
    const bool known = std::any_of(faults.begin(), faults.begin() + before,
                                   [&](const PQFault& told) { return told.text == fault.text; });
    if (!known) faults.push_back(std::move(fault));
  }
  std::stable_sort(faults.begin(), faults.end(), [](const PQFault& a, const PQFault& b) {
    return std::pair(a.line, a.column) < std::pair(b.line, b.column);
  });
}

void TakeGraph(GivenGraph& given, std::unique_ptr<PQGraph> graph) {
  for (PQFault& fault : graph->Check()) given.faults.push_back(std::move(fault));
  given.graph = std::move(graph);
}

}  // namespace

GivenGraph ReadGraphFile(const std::string& file, bool designing) {
  GivenGraph given;
  given.file = file;
  if (!ReadText(given)) return given;
  auto graph = std::make_unique<PQGraph>(designing);
  if (graph->LoadText(given.source, given.faults)) {
    TakeGraph(given, std::move(graph));
  } else {
    AddChecked(given.faults, PQGraph::CheckText(given.source));
  }
  return given;
}

GivenGraph ReadGraph(std::span<const std::string> words, bool designing) {
  if (words.size() == 1 && NamesFile(words.front())) return ReadGraphFile(words.front(), designing);
  GivenGraph given;
  given.source = JoinWords(words);
  auto graph = std::make_unique<PQGraph>(designing);
  if (graph->ParseLaunch(given.source, given.faults)) {
    TakeGraph(given, std::move(graph));
  } else {
    AddChecked(given.faults, PQGraph::CheckLaunch(given.source));
  }
  return given;
}

bool IsFaultless(const std::string& line) { return PQGraph::CheckLaunch(line).empty(); }

std::string FaultText(const GivenGraph& given, const PQFault& fault) {
  std::string place = "pantiq: ";
  if (!given.file.empty() && fault.line > 0) {
    place = given.file + ":" + std::to_string(fault.line) + ":" + std::to_string(fault.column) + ": ";
  }
  const char* severity = fault.severity == PQSeverity::Warning ? "warning: "
                         : fault.severity == PQSeverity::Note  ? "note: "
                                                               : "";
  std::string text = place + severity + WholeText(fault);
  std::string caret = PQCaret(given.source, fault);
  while (caret.ends_with('\n')) caret.pop_back();
  if (!caret.empty()) text += "\n" + caret;
  return text;
}

void PrintFaults(const GivenGraph& given) {
  for (const PQFault& fault : given.faults) PrintError(FaultText(given, fault));
}

void FindPlaces(std::string_view source, std::span<PQFault> faults) {
  for (PQFault& fault : faults) {
    if (fault.line > 0 || fault.value.empty()) continue;
    const std::string quoted = PQQuote(fault.value);
    const std::string_view text =
        source.find(quoted) != std::string_view::npos ? std::string_view(quoted) : fault.value;
    const std::size_t at = source.find(text);
    if (at == std::string_view::npos || source.find(text, at + 1) != std::string_view::npos) continue;
    const std::size_t begin = source.rfind('\n', at) == std::string_view::npos ? 0 : source.rfind('\n', at) + 1;
    fault.line =
        1 + static_cast<int>(std::count(source.begin(), source.begin() + static_cast<std::ptrdiff_t>(at), '\n'));
    fault.column = 1 + static_cast<int>(at - begin);
    fault.length = static_cast<int>(text.size());
  }
}

}  // namespace pantiq::app
