#include "pantiq/host/PQClassInfo.h"

#include "pantiq/host/PQComponent.h"

namespace pantiq {

bool PQClassInfo::Is(const PQClassInfo& ancestor) const {
  for (const PQClassInfo* info = this; info != nullptr; info = info->parent_) {
    if (info == &ancestor) return true;
  }
  return false;
}

const PQProperty* PQClassInfo::Find(std::string_view name) const {
  for (const PQProperty& p : properties_) {
    if (p.name == name) return &p;
  }
  return nullptr;
}

const PQProperty* PQClassInfo::DefaultPin(PQPinRole role) const {
  const PQProperty* first_list = nullptr;
  const PQProperty* first_pin = nullptr;
  for (const PQProperty& p : properties_) {
    if (p.pin_role != role) continue;
    if (p.kind == PQKind::Pin) {
      if (p.name == "InputPin" || p.name == "OutputPin") return &p;
      if (first_pin == nullptr) first_pin = &p;
    } else if (p.kind == PQKind::PinList && first_list == nullptr) {
      first_list = &p;
    }
  }
  return first_list != nullptr ? first_list : first_pin;
}

const PQProperty* PQClassInfo::DefaultProperty() const {
  for (const PQProperty& p : properties_) {
    if (p.is_default_of_class) return &p;
  }
  return nullptr;
}

TComponent* PQClassInfo::Create(TComponent* owner) const { return create_ != nullptr ? create_(owner) : nullptr; }

}  // namespace pantiq
