#include "pantiq/host/PQDialog.h"

#include <map>
#include <mutex>
#include <utility>

#include "pantiq/host/PQReport.h"

namespace pantiq {
namespace {

struct Dialogs {
  std::mutex mutex;
  std::map<std::string, PQDialog> by_name;
};

Dialogs& All() {
  static auto* const dialogs = new Dialogs;  // never destroyed, like all that programs install
  return *dialogs;
}

PQDialog Find(const std::string& name) {
  const std::lock_guard lock(All().mutex);
  const auto found = All().by_name.find(name);
  return found != All().by_name.end() ? found->second : PQDialog();
}

}  // namespace

void SetDialog(const std::string& name, PQDialog dialog) {
  const std::lock_guard lock(All().mutex);
  All().by_name[name].swap(dialog);
}

bool HasDialog(const std::string& name) { return static_cast<bool>(Find(name)); }

bool ShowDialog(const std::string& name, TComponent& component) {
  if (const PQDialog dialog = Find(name)) return dialog(component);
  Report(&component, PQSeverity::Note, "there is no dialog " + name, 0, "set the properties instead");
  return false;
}

}  // namespace pantiq
