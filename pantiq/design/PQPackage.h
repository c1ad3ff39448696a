// The package of all components as a host loads and unloads it: its units, and what happens to each of them.
//
// A host calls PQLoadPackage, then RegisterAll (PQRegister.h), and PQUnloadPackage when it is done with the components.
// A program that is linked with the library and only makes components needs RegisterAll alone: no unit waits for its
// entry.
#pragma once
#include <functional>
#include <span>
#include <string_view>

#include "pantiq/PQExport.h"

namespace pantiq {

// The units by room and name ("kernels/PQDispatcher") in the order of loading: each after those that it needs, kernels
// before their dispatchers, all of these before the components.
PQ_EXPORT std::span<const std::string_view> PQPackageUnits();

// Told of each unit at its turn. It must not load or unload.
using PQUnitVisit = std::function<void(std::string_view unit)>;

// Enters every unit in order. Loads nest: each needs an unload of its own. Any thread; one load or unload runs at a
// time.
PQ_EXPORT void PQLoadPackage(const PQUnitVisit& visit = {});

// Leaves every unit in the opposite order. The last unload first takes the library's classes off their page. False, and
// nothing happens, if the package is not loaded. Components that live stay as they are, and kernels stay bound.
PQ_EXPORT bool PQUnloadPackage(const PQUnitVisit& visit = {});

// How often a unit has been entered and not left; -1 for a name that is none of the package's.
PQ_EXPORT int PQUnitEntries(std::string_view unit);

}  // namespace pantiq
