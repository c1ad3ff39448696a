// The one place where something worth knowing is told: what was refused, replaced, missing or lost while the library
// went on as it must. The library never prints; a program listens here. Without a listener a report costs a branch and
// its text is never built. A report never changes what a component does.
#pragma once
#include <atomic>
#include <functional>
#include <string>

#include "pantiq/PQExport.h"

namespace pantiq {

class TComponent;

enum class PQSeverity { Note, Warning, Error };

struct PQReportEntry {
  const TComponent* component = nullptr;  // who tells it; null if no component does
  PQSeverity severity = PQSeverity::Note;
  std::string text;    // one line
  long code = 0;       // the platform's or kernel's result, 0 if there is none
  std::string detail;  // what the platform said and what a person can do; may be empty
};

using PQReportListener = std::function<void(const PQReportEntry&)>;

// Installs the listener (empty: none). It is called on the thread that reports, one report at a time, and must not
// report itself.
PQ_EXPORT void SetReportListener(PQReportListener listener);

PQ_EXPORT bool HasReportListener() noexcept;

PQ_EXPORT void Report(const TComponent* component, PQSeverity severity, std::string text, long code = 0,
                      std::string detail = {});

// Inside a catch block: reports the exception that is being handled, with what it says of itself as the detail. Never
// throws: where there is no memory for a report there is none.
PQ_EXPORT void ReportCaught(const TComponent* component, const char* text) noexcept;

}  // namespace pantiq
