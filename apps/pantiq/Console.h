// What the program says. Results go to standard output; what went wrong, notes and progress go to standard error.
#pragma once
#include <cstdio>
#include <string>
#include <string_view>

namespace pantiq::app {

enum ExitCode {
  kExitOk = 0,
  kExitFailed = 1,    // a failure while running
  kExitRefused = 2,   // a bad graph, a missing file, a wrong value, a wrong call
  kExitSignal = 128,  // plus the signal's number: ended by a signal, all files closed properly
};

// Writes to standard output and answers kExitOk, or says on standard error why it could not and answers kExitFailed.
int PrintResult(std::string_view text);

// One line on standard error.
void PrintError(std::string_view line);

bool IsTerminal(std::FILE* file);
// Columns of the terminal behind standard error; 80 if unknown.
int TerminalColumns();

// Lays out `text` from column `indent` on, broken at blanks before column `columns`. The first line is not indented.
std::string Wrapped(std::string_view text, int indent, int columns = 100);
std::string Padded(std::string_view text, std::size_t width);

}  // namespace pantiq::app
