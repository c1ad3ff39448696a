#include "pantiq/host/PQStatus.h"

namespace pantiq {

const std::string& PQStatus::Empty() noexcept {
  static const std::string& empty = *new std::string;
  return empty;
}

}  // namespace pantiq
