#include "pantiq/core/PQConcerns.h"

#include <mutex>

namespace pantiq {

namespace {

struct Concerns {
  std::mutex mutex;
  std::vector<std::pair<const PQClassInfo*, PQConcernOf>> entries;
};

Concerns& TheTable() {
  static Concerns& table = *new Concerns;  // lives as long as the process, like the descriptions
  return table;
}

}  // namespace

void PQRegisterConcern(const PQClassInfo& info, PQConcernOf concern) {
  Concerns& table = TheTable();
  std::lock_guard guard(table.mutex);
  for (const auto& entry : table.entries) {
    if (entry.first == &info && entry.second == concern) return;
  }
  table.entries.emplace_back(&info, concern);
}

std::vector<PQConcern> PQConcernsOf(const TComponent& component) {
  std::vector<PQConcernOf> asked;
  {
    Concerns& table = TheTable();
    std::lock_guard guard(table.mutex);
    for (const auto& [info, concern] : table.entries) {
      if (component.ClassInfo().Is(*info)) asked.push_back(concern);
    }
  }
  std::vector<PQConcern> concerns;
  for (const PQConcernOf concern : asked) {
    if (PQConcern told = concern(component); !told.text.empty()) concerns.push_back(std::move(told));
  }
  return concerns;
}

}  // namespace pantiq
