#include "pantiq/host/PQPersistent.h"

namespace pantiq {

constinit const PQClassTag TPersistent::kTag{"TPersistent", nullptr};

const PQClassInfo& TPersistent::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPersistent>("TPersistent", "PQPersistent", "An object with published properties.").Done();
  return info;
}

const PQClassInfo& TPersistent::ClassInfo() const { return Class(); }

std::vector<PQProperty> PQAllProperties(const TPersistent& object, const PQProperty* held_by) {
  std::vector<PQProperty> all = object.ClassInfo().Properties();
  for (PQProperty& p : object.InstanceProperties()) all.push_back(std::move(p));
  if (held_by != nullptr && held_by->parts) {
    for (PQProperty& p : held_by->parts(object)) all.push_back(std::move(p));
  }
  return all;
}

std::optional<PQProperty> PQFindProperty(const TPersistent& object, std::string_view name, const PQProperty* held_by) {
  if (const PQProperty* found = object.ClassInfo().Find(name)) return *found;
  for (PQProperty& p : object.InstanceProperties()) {
    if (p.name == name) return std::move(p);
  }
  if (held_by != nullptr && held_by->parts) {
    for (PQProperty& p : held_by->parts(object)) {
      if (p.name == name) return std::move(p);
    }
  }
  return std::nullopt;
}

void TPersistent::Assign(const TPersistent& source) {
  if (&source == this) return;
  for (const PQProperty& mine : PQAllProperties(*this)) {
    if (!mine.stored) continue;
    const std::optional<PQProperty> theirs = PQFindProperty(source, mine.name);
    if (!theirs || theirs->kind != mine.kind || theirs->type_name != mine.type_name) continue;
    switch (mine.kind) {
      case PQKind::Object:
      case PQKind::Collection:
      case PQKind::Picture: {
        TPersistent* to = mine.object ? mine.object(*this) : nullptr;
        // The accessor is not const for the sake of writers; reading through it changes nothing.
        const TPersistent* from = theirs->object ? theirs->object(const_cast<TPersistent&>(source)) : nullptr;
        if (to != nullptr && from != nullptr) to->Assign(*from);
        break;
      }
      case PQKind::Pin:
      case PQKind::PinList:
        break;
      default:
        if (theirs->get && mine.set) mine.set(*this, theirs->get(source)).IgnoreError();
    }
  }
}

}  // namespace pantiq
