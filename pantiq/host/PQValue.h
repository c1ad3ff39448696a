// The value of a published property in transit: between setters, streams, launch lines and editors.
#pragma once
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "pantiq/PQExport.h"

namespace pantiq {

using PQBytes = std::vector<std::uint8_t>;

// One of: nothing, boolean, integer (also enumerations and sets, as their number), float, text, bytes, list of values.
class PQ_EXPORT PQValue {
 public:
  using List = std::vector<PQValue>;
  PQValue() = default;
  // By assignment: a variant of these types that throws while it is copied into being destroys what it does not hold
  // yet (libstdc++ 12 and older).
  PQValue(const PQValue& other) { data_ = other.data_; }
  PQValue(PQValue&&) noexcept = default;
  PQValue& operator=(const PQValue&) = default;
  PQValue& operator=(PQValue&&) noexcept = default;
  ~PQValue() = default;
  PQValue(bool value) : data_(value) {}  // NOLINT(google-explicit-constructor)
  template <class Int, class = std::enable_if_t<std::is_integral_v<Int> && !std::is_same_v<Int, bool>>>
  PQValue(Int value) : data_(static_cast<std::int64_t>(value)) {}  // NOLINT(google-explicit-constructor)
  PQValue(float value) : data_(static_cast<double>(value)) {}      // NOLINT(google-explicit-constructor)
  PQValue(double value) : data_(value) {}                          // NOLINT(google-explicit-constructor)
  PQValue(std::string value) : data_(std::move(value)) {}          // NOLINT(google-explicit-constructor)
  PQValue(const char* value) : data_(std::string(value)) {}        // NOLINT(google-explicit-constructor)
  PQValue(PQBytes value) : data_(std::move(value)) {}              // NOLINT(google-explicit-constructor)
  PQValue(List value) : data_(std::move(value)) {}                 // NOLINT(google-explicit-constructor)

  bool IsEmpty() const noexcept { return data_.index() == 0; }
  const bool* Bool() const noexcept { return std::get_if<bool>(&data_); }
  const std::int64_t* Int() const noexcept { return std::get_if<std::int64_t>(&data_); }
  const double* Float() const noexcept { return std::get_if<double>(&data_); }
  const std::string* Text() const noexcept { return std::get_if<std::string>(&data_); }
  const PQBytes* Bytes() const noexcept { return std::get_if<PQBytes>(&data_); }
  const List* Items() const noexcept { return std::get_if<List>(&data_); }

  // Floats compare by their bits, so that a not-a-number equals itself and -0.0 differs from 0.0.
  bool operator==(const PQValue& other) const noexcept;

 private:
  std::variant<std::monostate, bool, std::int64_t, double, std::string, PQBytes, List> data_;
};

}  // namespace pantiq
