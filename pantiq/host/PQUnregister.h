// The way out of the registry, for who unloads what registered classes.
#pragma once
#include <string_view>

#include "pantiq/PQExport.h"

namespace pantiq {

// Takes all classes off a page; from then on they are neither found nor created by name. Components of theirs that live
// are not touched, and a class may register again. Any thread.
PQ_EXPORT void UnregisterPage(std::string_view page);

}  // namespace pantiq
