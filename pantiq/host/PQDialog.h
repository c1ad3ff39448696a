// Dialogs by name. Who has a window or a terminal brings them; who wants one asks for it here and knows no toolkit.
#pragma once
#include <functional>
#include <string>

#include "pantiq/PQExport.h"

namespace pantiq {

class TComponent;

// Shows itself for a component, waits, and answers whether the person accepted.
using PQDialog = std::function<bool(TComponent& component)>;

// Brings the dialog of this name, or takes it away (empty). One that is being shown stays to its end. Any thread.
PQ_EXPORT void SetDialog(const std::string& name, PQDialog dialog);

// True if there is one. Any thread.
PQ_EXPORT bool HasDialog(const std::string& name);

// Shows the dialog on the calling thread, which should be that of the user interface. Without one the answer is false,
// and a note is reported.
PQ_EXPORT bool ShowDialog(const std::string& name, TComponent& component);

}  // namespace pantiq
