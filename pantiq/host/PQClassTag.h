// Run-time class identity without RTTI: every class that is told apart at run time carries one tag.
//
//   struct TFoo : TBar { static const PQClassTag kTag; ... };
//   constinit const PQClassTag TFoo::kTag{"TFoo", &TBar::kTag};
//
// A test walks from the object's tag towards the root and compares addresses: two or three loads. A descendant passes
// the test for each of its ancestors. Any thread may test; tags never change.
#pragma once
#include "pantiq/PQExport.h"

namespace pantiq {

class PQ_EXPORT PQClassTag {
 public:
  constexpr PQClassTag(const char* name, const PQClassTag* parent) noexcept : name_(name), parent_(parent) {}
  PQClassTag(const PQClassTag&) = delete;
  PQClassTag& operator=(const PQClassTag&) = delete;

  const char* Name() const noexcept { return name_; }
  const PQClassTag* Parent() const noexcept { return parent_; }

  // True for the class itself and for each of its descendants.
  bool Is(const PQClassTag& ancestor) const noexcept {
    for (const PQClassTag* tag = this; tag != nullptr; tag = tag->parent_) {
      if (tag == &ancestor) return true;
    }
    return false;
  }

 private:
  const char* name_;
  const PQClassTag* parent_;
};

// Checked cast by class tag: null if the object is null or of another class. Works for every class that has `Tag()`.
template <class To, class From>
To* PQCast(From* object) noexcept {
  return object != nullptr && object->Tag().Is(To::kTag) ? static_cast<To*>(object) : nullptr;
}

}  // namespace pantiq
