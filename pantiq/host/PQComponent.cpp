#include "pantiq/host/PQComponent.h"

#include <algorithm>

#include "pantiq/host/PQReport.h"

namespace pantiq {

constinit const PQClassTag TComponent::kTag{"TComponent", &TPersistent::kTag};

const PQClassInfo& TComponent::Class() {
  static const PQClassInfo& info =
      PQDescribe<TComponent>("TComponent", "PQComponent", "The root of all components.").Inherits<TPersistent>().Done();
  return info;
}

TComponent::TComponent(TComponent* owner) : owner_(owner) {
  if (owner_ != nullptr) owner_->components_.push_back(this);
}

TComponent::~TComponent() {
  destroying_ = true;
  while (!components_.empty()) {
    TComponent* last = components_.back();
    last->BeforeDestructionOnce();
    // A component may have destroyed or taken away its siblings just now; it is destroyed only if it is still ours.
    if (std::find(components_.begin(), components_.end(), last) != components_.end()) delete last;
  }
  if (owner_ != nullptr) std::erase(owner_->components_, this);
}

bool PQIsIdentifier(std::string_view text) {
  const auto letter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; };
  if (text.empty() || !letter(text.front())) return false;
  return std::all_of(text.begin(), text.end(), [&](char c) { return letter(c) || (c >= '0' && c <= '9'); });
}

PQStatus TComponent::SetName(const std::string& name) {
  if (name == name_) return {};
  if (!name.empty()) {
    if (!PQIsIdentifier(name)) {
      return {PQCode::BadValue,
              "Name: '" + name + "' is no name; expected letters, digits and underscores, not starting with a digit"};
    }
    if (owner_ != nullptr && owner_->FindComponent(name) != nullptr) {
      return {PQCode::Refused, "Name: '" + name + "' is taken by another component; expected a name of its own"};
    }
  }
  name_ = name;
  return {};
}

TComponent* TComponent::FindComponent(std::string_view name) const {
  if (name.empty()) return nullptr;
  for (TComponent* component : components_) {
    if (component->name_ == name) return component;
  }
  return nullptr;
}

void TComponent::BeforeDestructionOnce() {
  if (destroying_.exchange(true)) return;
  try {
    BeforeDestruction();
  } catch (...) {  // a destructor is under way: there is no caller to tell
    ReportCaught(this, "the end of a component failed");
  }
}

}  // namespace pantiq
