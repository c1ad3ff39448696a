// Result of an operation that can fail for its caller: a code and, on failure, one line of text that names the thing,
// the value and what was expected. Success costs a null pointer.
#pragma once
#include <memory>
#include <string>
#include <utility>

#include "pantiq/PQExport.h"

namespace pantiq {

enum class PQCode {
  Ok = 0,
  BadValue,   // a value that the type cannot hold, or text that is no value
  NotFound,   // no such class, property, pin, file
  Refused,    // understood and not allowed (a cycle, two sinks, an existing output)
  BadFormat,  // text or bytes that are not of the expected form
  Io,         // the operating system said no
  Missing,    // a part of the platform is not installed
  Failed,     // anything else
};

class [[nodiscard, gnu::visibility("default")]] PQStatus {
 public:
  PQStatus() noexcept = default;
  PQStatus(PQCode code, std::string text) : state_(std::make_unique<State>(State{code, std::move(text)})) {}
  PQStatus(const PQStatus& other) : state_(other.state_ ? std::make_unique<State>(*other.state_) : nullptr) {}
  PQStatus(PQStatus &&) noexcept = default;
  PQStatus& operator=(const PQStatus& other) {
    state_ = other.state_ ? std::make_unique<State>(*other.state_) : nullptr;
    return *this;
  }
  PQStatus& operator=(PQStatus&&) noexcept = default;

  bool Ok() const noexcept { return state_ == nullptr; }
  PQCode Code() const noexcept { return state_ ? state_->code : PQCode::Ok; }
  const std::string& Text() const noexcept { return state_ ? state_->text : Empty(); }
  void IgnoreError() const noexcept {}  // says in the code that the result is of no interest

 private:
  struct State {
    PQCode code;
    std::string text;
  };
  static const std::string& Empty() noexcept;
  std::unique_ptr<State> state_;
};

}  // namespace pantiq
