// Property objects made of a few numbers: a size, an offset, a region, an anchor. They belong to a component, guard
// themselves with its lock and tell it of changes. Reading a snapshot and writing are allowed on any thread.
#pragma once
#include <atomic>
#include <cstdint>
#include <functional>

#include "pantiq/core/JCStdTypes.h"

namespace pantiq {

// Width and height in pixels, 0 to 65535.
class PQ_EXPORT TPQSize final : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  struct Values {
    std::uint16_t width, height;
  };
  // `lock` is the owner's and outlives this object; `changed` runs after a change, outside the lock.
  TPQSize(const TJCObject& lock, std::uint16_t width, std::uint16_t height, std::function<void()> changed = {});
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::uint16_t GetWidth() const { return Get().width; }
  void SetWidth(std::uint16_t width);
  std::uint16_t GetHeight() const { return Get().height; }
  void SetHeight(std::uint16_t height);
  Values Get() const;
  void Set(Values values);
  void Assign(const TPersistent& source) override;

 private:
  const TJCObject& lock_;
  std::function<void()> changed_;
  Values values_;
};

// A pair of 32-bit integers, in pixels.
class PQ_EXPORT TPQOffset final : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  struct Values {
    std::int32_t x, y;
  };
  TPQOffset(const TJCObject& lock, std::int32_t x, std::int32_t y, std::function<void()> changed = {});
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::int32_t GetX() const { return Get().x; }
  void SetX(std::int32_t x);
  std::int32_t GetY() const { return Get().y; }
  void SetY(std::int32_t y);
  Values Get() const;
  void Set(Values values);
  void Assign(const TPersistent& source) override;

 private:
  const TJCObject& lock_;
  std::function<void()> changed_;
  Values values_;
};

// A place inside a mask, in pixels from its top left, 0 to 65535.
class PQ_EXPORT TPQAnchor final : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  struct Values {
    std::uint16_t x, y;
  };
  TPQAnchor(const TJCObject& lock, std::uint16_t x, std::uint16_t y, std::function<void()> changed = {});
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::uint16_t GetX() const { return Get().x; }
  void SetX(std::uint16_t x);
  std::uint16_t GetY() const { return Get().y; }
  void SetY(std::uint16_t y);
  Values Get() const;
  void Set(Values values);
  void Assign(const TPersistent& source) override;

 private:
  const TJCObject& lock_;
  std::function<void()> changed_;
  Values values_;
};

// A rectangle of a frame, in pixels. Starts disabled, 240 by 180 at the top left corner.
class PQ_EXPORT TPQRectRegion final : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  struct Values {
    bool enabled;
    std::uint16_t left, top, width, height;
  };
  explicit TPQRectRegion(const TJCObject& lock, std::function<void()> changed = {});
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // One load: lets a frame path skip the lock while the region is off.
  bool GetEnabled() const { return enabled_.load(std::memory_order_relaxed); }
  void SetEnabled(bool enabled);
  std::uint16_t GetLeft() const { return Get().left; }
  void SetLeft(std::uint16_t left);
  std::uint16_t GetTop() const { return Get().top; }
  void SetTop(std::uint16_t top);
  std::uint16_t GetWidth() const { return Get().width; }
  void SetWidth(std::uint16_t width);
  std::uint16_t GetHeight() const { return Get().height; }
  void SetHeight(std::uint16_t height);
  // All values of one moment.
  Values Get() const;
  void Set(Values values);
  void Assign(const TPersistent& source) override;

 private:
  const TJCObject& lock_;
  std::function<void()> changed_;
  std::atomic<bool> enabled_;
  Values values_;
};

}  // namespace pantiq
