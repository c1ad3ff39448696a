#include "pantiq/host/PQValue.h"

#include <bit>

namespace pantiq {

bool PQValue::operator==(const PQValue& other) const noexcept {
  if (data_.index() != other.data_.index()) return false;
  if (const double* mine = Float()) {
    return std::bit_cast<std::uint64_t>(*mine) == std::bit_cast<std::uint64_t>(*other.Float());
  }
  return data_ == other.data_;
}

}  // namespace pantiq
