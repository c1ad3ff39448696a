#include "pantiq/host/PQRegistry.h"

#include <map>
#include <mutex>

#include "pantiq/host/PQUnregister.h"

namespace pantiq {
namespace {

struct Entry {
  std::string page;
  const PQClassInfo* info;
};

struct Registry {
  std::mutex mutex;
  std::vector<Entry> entries;  // in order of registration
  std::map<std::string, std::size_t, std::less<>> by_name;
};

Registry& TheRegistry() {
  static Registry& registry = *new Registry;  // never destroyed: other static objects may still ask it
  return registry;
}

}  // namespace

void RegisterComponents(std::string_view page, std::span<const PQClassInfo* const> classes) {
  Registry& registry = TheRegistry();
  const std::lock_guard lock(registry.mutex);
  for (const PQClassInfo* info : classes) {
    if (info == nullptr) continue;
    if (registry.by_name.try_emplace(info->Name(), registry.entries.size()).second) {
      registry.entries.push_back({std::string(page), info});
    }
  }
}

void UnregisterPage(std::string_view page) {
  Registry& registry = TheRegistry();
  const std::lock_guard lock(registry.mutex);
  std::erase_if(registry.entries, [page](const Entry& entry) { return entry.page == page; });
  registry.by_name.clear();
  for (std::size_t i = 0; i < registry.entries.size(); ++i) registry.by_name[registry.entries[i].info->Name()] = i;
}

const PQClassInfo* PQFindClass(std::string_view name) {
  Registry& registry = TheRegistry();
  const std::lock_guard lock(registry.mutex);
  const auto found = registry.by_name.find(name);
  return found == registry.by_name.end() ? nullptr : registry.entries[found->second].info;
}

std::vector<const PQClassInfo*> PQRegisteredClasses(std::string_view page) {
  Registry& registry = TheRegistry();
  const std::lock_guard lock(registry.mutex);
  std::vector<const PQClassInfo*> classes;
  for (const Entry& entry : registry.entries) {
    if (page.empty() || entry.page == page) classes.push_back(entry.info);
  }
  return classes;
}

std::string PQPageOf(const PQClassInfo& info) {
  Registry& registry = TheRegistry();
  const std::lock_guard lock(registry.mutex);
  const auto found = registry.by_name.find(info.Name());
  if (found == registry.by_name.end() || registry.entries[found->second].info != &info) return {};
  return registry.entries[found->second].page;
}

PQOwned<TComponent> PQCreateComponent(std::string_view class_name) {
  const PQClassInfo* info = PQFindClass(class_name);
  return PQOwned<TComponent>(info != nullptr ? info->Create(nullptr) : nullptr);
}

}  // namespace pantiq
