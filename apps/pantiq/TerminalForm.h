// The mask editor on a terminal.
#pragma once
#include <string>

#include "pantiq/platform/PQDialogModule.h"

namespace pantiq::app {

// Shows the form on the terminal, under `title`, and waits for its end. kModalNone and the reason in `result` if there
// is no terminal to read keys from and to draw on. A signal cancels the form; `signal` is then its number, else 0. The
// terminal is left as it was.
PQModalResult ShowOnTerminal(IPQMorphShapeForm& form, const std::string& title, PQPlatformResult& result, int& signal);

}  // namespace pantiq::app
