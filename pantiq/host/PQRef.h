// Intrusive reference counting for what travels between threads: buffers, operations, connections.
//
// PQRefCounted starts with a count of 1 that the creator owns; hand it over with PQAdopt or PQMakeRef. The count is
// atomic; AddRef and Release may be called on any thread.
#pragma once
#include <atomic>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "pantiq/PQExport.h"

namespace pantiq {

class PQ_EXPORT PQRefCounted {
 public:
  PQRefCounted() noexcept = default;
  PQRefCounted(const PQRefCounted&) = delete;
  PQRefCounted& operator=(const PQRefCounted&) = delete;

  void AddRef() const noexcept { count_.fetch_add(1, std::memory_order_relaxed); }

  void Release() const noexcept {
    // The last holder needs no atomic subtraction: nobody else can add a reference any more.
    if (count_.load(std::memory_order_acquire) == 1 || count_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      delete this;
    }
  }

  // True if the caller's reference is the only one; what other threads wrote before they let go is then visible.
  bool IsSoleReference() const noexcept { return count_.load(std::memory_order_acquire) == 1; }

 protected:
  virtual ~PQRefCounted() = default;

 private:
  mutable std::atomic<std::int32_t> count_{1};
};

// Smart reference to a PQRefCounted descendant (or anything with AddRef and Release). May be empty.
template <class T>
class PQRef {
 public:
  constexpr PQRef() noexcept = default;
  constexpr PQRef(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor)
  explicit PQRef(T* object) noexcept : object_(object) {
    if (object_ != nullptr) object_->AddRef();
  }
  PQRef(const PQRef& other) noexcept : PQRef(other.object_) {}
  PQRef(PQRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  PQRef(const PQRef<U>& other) noexcept : PQRef(other.Get()) {}  // NOLINT(google-explicit-constructor)
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  PQRef(PQRef<U>&& other) noexcept : object_(other.Detach()) {}  // NOLINT(google-explicit-constructor)
  ~PQRef() {
    if (object_ != nullptr) object_->Release();
  }
  PQRef& operator=(PQRef other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  T* Get() const noexcept { return object_; }
  T* operator->() const noexcept { return object_; }
  T& operator*() const noexcept { return *object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }
  bool operator==(const PQRef& other) const noexcept { return object_ == other.object_; }
  bool operator==(const T* other) const noexcept { return object_ == other; }

  // Gives the reference away; the receiver has to release it.
  T* Detach() noexcept { return std::exchange(object_, nullptr); }

  // Takes over a reference that the caller already owns.
  static PQRef Adopt(T* object) noexcept {
    PQRef ref;
    ref.object_ = object;
    return ref;
  }

 private:
  T* object_ = nullptr;
};

template <class T, class... Args>
PQRef<T> PQMakeRef(Args&&... args) {
  return PQRef<T>::Adopt(new T(std::forward<Args>(args)...));
}

}  // namespace pantiq
