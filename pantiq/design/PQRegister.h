// Puts every class of the library into the registry, in the order of the palette.
#pragma once
#include "pantiq/PQExport.h"

namespace pantiq {

// Any thread, any number of times.
PQ_EXPORT void RegisterAll();

}  // namespace pantiq
