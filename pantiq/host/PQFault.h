// One thing that is wrong with a text or a stream of properties. Readers collect all of them before they give up.
#pragma once
#include <cstddef>
#include <string>

#include "pantiq/host/PQReport.h"

namespace pantiq {

struct PQFault {
  PQSeverity severity = PQSeverity::Error;
  int line = 0;            // from 1; 0 if the fault has no place in a text
  int column = 0;          // from 1, in bytes
  int length = 1;          // bytes that the fault spans on its line
  std::size_t offset = 0;  // in a binary stream
  std::string text;        // the whole message in one line, without the place

  // The parts of the message, empty where they don't apply.
  std::string component;  // the component's name, or its class where it has none
  std::string property;   // path of the property or pin
  std::string value;      // what stood there
  std::string expected;   // what is allowed
  std::string nearest;    // the nearest known name
};

}  // namespace pantiq
