#include "Console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace pantiq::app {

int PrintResult(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return kExitOk;
  PrintError(std::string("pantiq: cannot write to standard output: ") + std::strerror(errno));
  return kExitFailed;
}

void PrintError(std::string_view line) {
  std::string whole(line);
  whole += '\n';
  std::fwrite(whole.data(), 1, whole.size(), stderr);
}

bool IsTerminal(std::FILE* file) { return isatty(fileno(file)) == 1; }

int TerminalColumns() {
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

std::string Padded(std::string_view text, std::size_t width) {
  std::string padded(text);
  if (padded.size() < width) padded.append(width - padded.size(), ' ');
  return padded;
}

std::string Wrapped(std::string_view text, int indent, int columns) {
  std::string laid;
  int column = indent;
  while (!text.empty()) {
    const std::size_t length = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    if (column > indent && column + 1 + static_cast<int>(word.size()) > columns) {
      laid += '\n';
      laid.append(static_cast<std::size_t>(indent), ' ');
      column = indent;
    } else if (column > indent) {
      laid += ' ';
      ++column;
    }
    laid += word;
    column += static_cast<int>(word.size());
  }
  return laid;
}

}  // namespace pantiq::app
