// One file into another, through filters.
#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

#include "Commands.h"
#include "Console.h"
#include "GraphText.h"
#include "pantiq/host/PQTextLiteral.h"

namespace pantiq::app {
namespace {

// What the logger takes by a file name's ending.
constexpr std::array<std::string_view, 5> kEndings = {".asf", ".wmv", ".mkv", ".mp4", ".avi"};

bool HasContainer(std::string_view name) {
  const std::size_t point = name.rfind('.');
  if (point == std::string_view::npos) return false;
  std::string ending(name.substr(point));
  std::transform(ending.begin(), ending.end(), ending.begin(), [](unsigned char c) { return std::tolower(c); });
  return std::find(kEndings.begin(), kEndings.end(), ending) != kEndings.end();
}

}  // namespace

int ConvertFile(const std::string& in, const std::string& out, RunArguments run) {
  if (!HasContainer(out)) {
    std::string text = "pantiq: '" + out + "' has no ending that names a container; expected one of";
    for (const std::string_view ending : kEndings) text.append(" ").append(ending);
    PrintError(text);
    return kExitRefused;
  }
  std::string line = "TPQASFPlayer Name=input FileName=" + PQQuote(in) + " ! ";
  if (const std::string filters = JoinWords(run.words); !filters.empty()) line += filters + " ! ";
  line += "TPQASFLogger Name=output FileName=" + PQQuote(out) + "  input.AudioOutputPin ! output.AudioInputPin";
  run.words = {line};
  return RunGraph(run);
}

}  // namespace pantiq::app
