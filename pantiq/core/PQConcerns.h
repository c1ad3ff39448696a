// What a class knows of its own settings that makes a graph odd: PQGraph::Check tells it as a warning.
#pragma once
#include "pantiq/host/PQComponent.h"

namespace pantiq {

// What is odd about a component, and what would be expected instead; an empty text if nothing is.
struct PQConcern {
  std::string text;      // "Offset.Horizontal = 5: ..."
  std::string expected;  // "a negative one"
};
using PQConcernOf = PQConcern (*)(const TComponent& component);

// `concern` is asked for components of this class and its descendants. Once for a class, again does nothing. Any
// thread.
PQ_EXPORT void PQRegisterConcern(const PQClassInfo& info, PQConcernOf concern);

// What the classes of a component have to say of it.
PQ_EXPORT std::vector<PQConcern> PQConcernsOf(const TComponent& component);

}  // namespace pantiq
