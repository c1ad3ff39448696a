// A launch line that shows a class at work.
#pragma once
#include <string>

#include "pantiq/host/PQClassInfo.h"

namespace pantiq::app {

// Empty if none can be made of the class's description. What it gives has no faults.
std::string ExampleOf(const PQClassInfo& info);

}  // namespace pantiq::app
