// Property objects made of a few numbers: a size, an offset, an anchor, a region. They belong to a component, guard
// themselves with its lock and tell it of changes. Reading a snapshot and writing are allowed on any thread.
#pragma once
#include <atomic>
#include <cstdint>
#include <functional>
#include <utility>

#include "pantiq/core/JCStdTypes.h"

namespace pantiq {

// Numbers that are read and written together. `lock` is the owner's and outlives this object; `changed` runs after a
// change, outside the lock.
template <class Numbers>
class TPQGuardedNumbers : public TPersistent {
 public:
  using Values = Numbers;
  // All values of one moment.
  Values Get() const {
    auto section = lock_.ReadLock();
    return values_;
  }
  void Set(const Values& values) {
    Update([&](Values& v) { v = values; });
  }
  void Assign(const TPersistent& source) override {
    if (source.Tag().Is(Tag())) Set(static_cast<const TPQGuardedNumbers&>(source).Get());
  }

 protected:
  TPQGuardedNumbers(const TJCObject& lock, const Values& initial, std::function<void()> changed)
      : lock_(lock), changed_(std::move(changed)), values_(initial) {}
  template <class Change>
  void Update(Change change) {
    {
      auto section = lock_.WriteLock();
      Values fresh = values_;
      change(fresh);
      if (fresh == values_) return;
      values_ = fresh;
      Stored(fresh);
    }
    if (changed_) changed_();
  }
  // Runs under the lock with what has just been stored.
  virtual void Stored(const Values& values) { (void)values; }

 private:
  const TJCObject& lock_;
  std::function<void()> changed_;
  Values values_;
};

// Width and height in pixels, 0 to 65535.
struct TPQSizeValues {
  std::uint16_t width;
  std::uint16_t height;
  bool operator==(const TPQSizeValues&) const = default;
};
class PQ_EXPORT TPQSize final : public TPQGuardedNumbers<TPQSizeValues> {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  TPQSize(const TJCObject& lock, std::uint16_t width, std::uint16_t height, std::function<void()> changed = {})
      : TPQGuardedNumbers(lock, {width, height}, std::move(changed)) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::uint16_t GetWidth() const { return Get().width; }
  void SetWidth(std::uint16_t width) {
    Update([&](Values& v) { v.width = width; });
  }
  std::uint16_t GetHeight() const { return Get().height; }
  void SetHeight(std::uint16_t height) {
    Update([&](Values& v) { v.height = height; });
  }
};

// A pair of 32-bit integers, in pixels.
struct TPQOffsetValues {
  std::int32_t x;
  std::int32_t y;
  bool operator==(const TPQOffsetValues&) const = default;
};
class PQ_EXPORT TPQOffset final : public TPQGuardedNumbers<TPQOffsetValues> {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  TPQOffset(const TJCObject& lock, std::int32_t x, std::int32_t y, std::function<void()> changed = {})
      : TPQGuardedNumbers(lock, {x, y}, std::move(changed)) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::int32_t GetX() const { return Get().x; }
  void SetX(std::int32_t x) {
    Update([&](Values& v) { v.x = x; });
  }
  std::int32_t GetY() const { return Get().y; }
  void SetY(std::int32_t y) {
    Update([&](Values& v) { v.y = y; });
  }
};

// A place inside a mask, in pixels from its top left, 0 to 65535.
struct TPQAnchorValues {
  std::uint16_t x;
  std::uint16_t y;
  bool operator==(const TPQAnchorValues&) const = default;
};
class PQ_EXPORT TPQAnchor final : public TPQGuardedNumbers<TPQAnchorValues> {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  // `centre`, of any thread, is where a change of the mask's size moves the anchor to.
  TPQAnchor(const TJCObject& lock, std::uint16_t x, std::uint16_t y, std::function<void()> changed = {},
            std::function<Values()> centre = {})
      : TPQGuardedNumbers(lock, {x, y}, std::move(changed)), centre_(std::move(centre)) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::uint16_t GetX() const { return Get().x; }
  void SetX(std::uint16_t x) {
    Update([&](Values& v) { v.x = x; });
  }
  std::uint16_t GetY() const { return Get().y; }
  void SetY(std::uint16_t y) {
    Update([&](Values& v) { v.y = y; });
  }

  // It does not stand in the mask's centre.
  bool IsAway() const { return centre_ && Get() != centre_(); }

 private:
  std::function<Values()> centre_;
};

// A rectangle of a frame, in pixels. Starts disabled, 240 by 180 at the top left corner.
struct TPQRectRegionValues {
  bool enabled;
  std::uint16_t left;
  std::uint16_t top;
  std::uint16_t width;
  std::uint16_t height;
  bool operator==(const TPQRectRegionValues&) const = default;
};
class PQ_EXPORT TPQRectRegion final : public TPQGuardedNumbers<TPQRectRegionValues> {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQRectRegion(const TJCObject& lock, std::function<void()> changed = {})
      : TPQGuardedNumbers(lock, {false, 0, 0, 240, 180}, std::move(changed)) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // One load: lets a frame path skip the lock while the region is off.
  bool GetEnabled() const { return enabled_.load(std::memory_order_relaxed); }
  void SetEnabled(bool enabled) {
    Update([&](Values& v) { v.enabled = enabled; });
  }
  std::uint16_t GetLeft() const { return Get().left; }
  void SetLeft(std::uint16_t left) {
    Update([&](Values& v) { v.left = left; });
  }
  std::uint16_t GetTop() const { return Get().top; }
  void SetTop(std::uint16_t top) {
    Update([&](Values& v) { v.top = top; });
  }
  std::uint16_t GetWidth() const { return Get().width; }
  void SetWidth(std::uint16_t width) {
    Update([&](Values& v) { v.width = width; });
  }
  std::uint16_t GetHeight() const { return Get().height; }
  void SetHeight(std::uint16_t height) {
    Update([&](Values& v) { v.height = height; });
  }

 protected:
  void Stored(const Values& values) override { enabled_.store(values.enabled, std::memory_order_relaxed); }

 private:
  std::atomic<bool> enabled_{false};
};

}  // namespace pantiq
