// TPersistent: the root of everything that has published properties: components, pins, regions, collections.
#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pantiq/host/PQClassInfo.h"
#include "pantiq/host/PQClassTag.h"
#include "pantiq/host/PQStatus.h"

namespace pantiq {

class PQ_EXPORT TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  TPersistent() = default;
  TPersistent(const TPersistent&) = delete;
  TPersistent& operator=(const TPersistent&) = delete;
  virtual ~TPersistent() = default;

  virtual const PQClassTag& Tag() const noexcept { return kTag; }

  // The description of the object's class. Owned by the class, lives for ever.
  virtual const PQClassInfo& ClassInfo() const;

  // Properties that this one object has beside those of its class: parameters of a plug-in, pins of a list.
  virtual std::vector<PQProperty> InstanceProperties() const { return {}; }

  // True if there are properties that cannot be told now: the parameters of a plug-in that isn't loaded. Settings of
  // unknown names are then passed over with a note.
  virtual bool HasUntoldProperties() const { return false; }

  // Makes this object's stored values equal to the source's, through the setters, property by property; what the
  // source does not publish under the same name and kind stays. Nested objects and collections are assigned in turn.
  virtual void Assign(const TPersistent& source);

  // For objects that stand for a link to another one (connected pins): its text form, "Name.OutputPin"; empty if none.
  virtual std::string GetSaveName() const { return {}; }
};

// The properties of the object's class, then those that this one object has. `held_by` is the property that the object
// is the thing of, if there is one: the pins of a list are known by it.
PQ_EXPORT std::vector<PQProperty> PQAllProperties(const TPersistent& object, const PQProperty* held_by = nullptr);

// A property of the class or of this one object, by name, case matters; empty if there is none.
PQ_EXPORT std::optional<PQProperty> PQFindProperty(const TPersistent& object, std::string_view name,
                                                   const PQProperty* held_by = nullptr);

}  // namespace pantiq
