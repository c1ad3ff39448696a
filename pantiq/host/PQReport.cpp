#include "pantiq/host/PQReport.h"

#include <exception>
#include <mutex>

namespace pantiq {
namespace {

std::atomic<bool> g_listening{false};
thread_local bool t_telling = false;

struct Listener {
  std::mutex mutex;
  PQReportListener call;
};

Listener& TheListener() {
  static Listener& listener = *new Listener;  // never destroyed: threads may report while the process ends
  return listener;
}

}  // namespace

void SetReportListener(PQReportListener listener) {
  Listener& the = TheListener();
  const std::lock_guard lock(the.mutex);
  the.call = std::move(listener);
  g_listening.store(static_cast<bool>(the.call), std::memory_order_release);
}

bool HasReportListener() noexcept { return g_listening.load(std::memory_order_relaxed); }

void Report(const TComponent* component, PQSeverity severity, std::string text, long code, std::string detail) {
  if (!HasReportListener() || t_telling) return;
  const PQReportEntry entry{component, severity, std::move(text), code, std::move(detail)};
  Listener& the = TheListener();
  const std::lock_guard lock(the.mutex);
  if (!the.call) return;
  t_telling = true;
  try {
    the.call(entry);
  } catch (...) {
    // What a listener does wrong must not reach the component that tells it something.
  }
  t_telling = false;
}

void ReportCaught(const TComponent* component, const char* text) noexcept {
  if (!HasReportListener()) return;
  try {
    std::string what;
    try {
      throw;
    } catch (const std::exception& error) {
      what = error.what();
    } catch (...) {
      what = "an exception of an unknown class";
    }
    Report(component, PQSeverity::Error, text, 0, std::move(what));
  } catch (...) {  // no memory to tell it
  }
}

}  // namespace pantiq
