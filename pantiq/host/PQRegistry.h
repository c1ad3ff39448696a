// The registry of classes by name. Each unit's `Register` puts its class on a page; RegisterAll (pantiq/PQRegister.h)
// calls them all. Registering twice is harmless. Any thread.
#pragma once
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pantiq/host/PQComponent.h"

namespace pantiq {

// The palette page of the library's own components.
inline constexpr std::string_view kPantiqPage = "Pantiq";

// Puts classes on a page. A class keeps the page and place of its first registration.
PQ_EXPORT void RegisterComponents(std::string_view page, std::span<const PQClassInfo* const> classes);

// Null if no class of that name is registered. Case matters.
PQ_EXPORT const PQClassInfo* PQFindClass(std::string_view name);

// The classes of a page in order of registration; of all pages if `page` is empty.
PQ_EXPORT std::vector<const PQClassInfo*> PQRegisteredClasses(std::string_view page = {});

// The page of a registered class; empty if the class is not registered.
PQ_EXPORT std::string PQPageOf(const PQClassInfo& info);

// Makes a component by class name; empty if the name is unknown or the class cannot be created.
PQ_EXPORT PQOwned<TComponent> PQCreateComponent(std::string_view class_name);

}  // namespace pantiq
