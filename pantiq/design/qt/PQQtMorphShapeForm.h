// The mask editor as a window.
#pragma once
#include "pantiq/platform/PQDialogModule.h"

namespace pantiq::qt {

// Shows the form on this thread, which is the application's, and waits for its end.
PQModalResult ShowMorphShapeForm(IPQMorphShapeForm& form);

}  // namespace pantiq::qt
