// Paths to properties: "Region.Left", "InputChannels[0].InputPin", "InputPins.Pin1", "Parameters.'Blur amount'",
// "Parameters[2]". An index picks an item of a collection, and elsewhere the object's own property of that number.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "pantiq/host/PQFault.h"
#include "pantiq/host/PQPersistent.h"

namespace pantiq {

struct PQPathStep {
  std::string name;  // empty for an index
  int index = -1;
  std::size_t begin = 0, length = 0;  // where the step stands in the path's text, an index with its brackets
};

// Splits a path. On failure the status says why and `steps` holds those before the fault; `fault_at` is its place.
PQ_EXPORT PQStatus PQParsePath(std::string_view text, std::vector<PQPathStep>& steps, std::size_t* fault_at = nullptr);

// The text of a step by name, in quotes where it is no identifier.
PQ_EXPORT std::string PQPathName(std::string_view name);

// The property that a path leads to, and the object that holds it.
struct PQPathEnd {
  TPersistent* object = nullptr;
  PQProperty property;
};

// Follows a path from `root`. With `make_items` missing items of collections are added up to the index, at most
// kPQMostItems. A failure fills the fault's text, property, value, expected and nearest; its column and length are
// those of the offending step within the path (column 1 is the path's first byte). Where an object's properties cannot
// be told (HasUntoldProperties) the fault is only a note.
inline constexpr int kPQMostItems = 1024;
PQ_EXPORT bool PQFollowPath(TPersistent& root, const std::vector<PQPathStep>& steps, bool make_items, PQPathEnd& end,
                            PQFault& fault);

// Follows a path to a pin or a list of pins; messages name pins only.
PQ_EXPORT bool PQFollowPinPath(TPersistent& root, const std::vector<PQPathStep>& steps, bool make_items, PQPathEnd& end,
                               PQFault& fault);

// Orders settings: by PQProperty::order, then by declaration, at each level of sets of sub-properties. Settings of
// unknown names come last.
PQ_EXPORT std::vector<std::pair<int, int>> PQPathOrder(TPersistent& root, const std::vector<PQPathStep>& steps);

}  // namespace pantiq
