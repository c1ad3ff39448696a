#include "pantiq/core/PQRegion.h"

#include "pantiq/host/PQClassInfo.h"

namespace pantiq {

constinit const PQClassTag TPQSize::kTag{"TPQSize", &TPersistent::kTag};
constinit const PQClassTag TPQOffset::kTag{"TPQOffset", &TPersistent::kTag};
constinit const PQClassTag TPQAnchor::kTag{"TPQAnchor", &TPersistent::kTag};
constinit const PQClassTag TPQRectRegion::kTag{"TPQRectRegion", &TPersistent::kTag};

namespace {

// Stores under the owner's write lock what `change` makes of the present values, and tells the owner if anything differs.
template <class Values, class Change>
void Update(const TJCObject& lock, Values& values, const std::function<void()>& changed, Change change) {
  {
    auto section = lock.WriteLock();
    Values fresh = values;
    change(fresh);
    if (!(fresh == values)) {
      values = fresh;
    } else {
      return;
    }
  }
  if (changed) changed();
}

bool operator==(const TPQSize::Values& a, const TPQSize::Values& b) { return a.width == b.width && a.height == b.height; }
bool operator==(const TPQOffset::Values& a, const TPQOffset::Values& b) { return a.x == b.x && a.y == b.y; }
bool operator==(const TPQAnchor::Values& a, const TPQAnchor::Values& b) { return a.x == b.x && a.y == b.y; }
bool operator==(const TPQRectRegion::Values& a, const TPQRectRegion::Values& b) {
  return a.enabled == b.enabled && a.left == b.left && a.top == b.top && a.width == b.width && a.height == b.height;
}

}  // namespace

// --- size -----------------------------------------------------------------------------------------------------------

const PQClassInfo& TPQSize::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQSize>("TPQSize", "PQRegion", "A width and a height.")
          .Property("Width", &TPQSize::GetWidth, &TPQSize::SetWidth, PQDefault(0), PQUseful(0, 16384), PQUnit("pixels"), "Width.")
          .Property("Height", &TPQSize::GetHeight, &TPQSize::SetHeight, PQDefault(0), PQUseful(0, 16384), PQUnit("pixels"), "Height.")
          .Done();
  return info;
}

TPQSize::TPQSize(const TJCObject& lock, std::uint16_t width, std::uint16_t height, std::function<void()> changed)
    : lock_(lock), changed_(std::move(changed)), values_{width, height} {}
TPQSize::Values TPQSize::Get() const {
  auto section = lock_.ReadLock();
  return values_;
}
void TPQSize::Set(Values values) {
  Update(lock_, values_, changed_, [&](Values& v) { v = values; });
}
void TPQSize::SetWidth(std::uint16_t width) {
  Update(lock_, values_, changed_, [&](Values& v) { v.width = width; });
}
void TPQSize::SetHeight(std::uint16_t height) {
  Update(lock_, values_, changed_, [&](Values& v) { v.height = height; });
}
void TPQSize::Assign(const TPersistent& source) {
  if (const auto* other = PQCast<const TPQSize>(&source)) Set(other->Get());
}

// --- offset ---------------------------------------------------------------------------------------------------------

const PQClassInfo& TPQOffset::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQOffset>("TPQOffset", "PQRegion", "A horizontal and a vertical distance.")
          .Property("X", &TPQOffset::GetX, &TPQOffset::SetX, PQDefault(0), PQUseful(-16384, 16384), PQUnit("pixels"), "To the right.")
          .Property("Y", &TPQOffset::GetY, &TPQOffset::SetY, PQDefault(0), PQUseful(-16384, 16384), PQUnit("pixels"), "Downward.")
          .Done();
  return info;
}

TPQOffset::TPQOffset(const TJCObject& lock, std::int32_t x, std::int32_t y, std::function<void()> changed)
    : lock_(lock), changed_(std::move(changed)), values_{x, y} {}
TPQOffset::Values TPQOffset::Get() const {
  auto section = lock_.ReadLock();
  return values_;
}
void TPQOffset::Set(Values values) {
  Update(lock_, values_, changed_, [&](Values& v) { v = values; });
}
void TPQOffset::SetX(std::int32_t x) {
  Update(lock_, values_, changed_, [&](Values& v) { v.x = x; });
}
void TPQOffset::SetY(std::int32_t y) {
  Update(lock_, values_, changed_, [&](Values& v) { v.y = y; });
}
void TPQOffset::Assign(const TPersistent& source) {
  if (const auto* other = PQCast<const TPQOffset>(&source)) Set(other->Get());
}

// --- anchor ---------------------------------------------------------------------------------------------------------

const PQClassInfo& TPQAnchor::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQAnchor>("TPQAnchor", "PQRegion", "A place inside a mask, from its top left.")
          .Property("X", &TPQAnchor::GetX, &TPQAnchor::SetX, PQDefault(0), PQUseful(0, 255), PQUnit("pixels"), "Column.")
          .Property("Y", &TPQAnchor::GetY, &TPQAnchor::SetY, PQDefault(0), PQUseful(0, 255), PQUnit("pixels"), "Row.")
          .Done();
  return info;
}

TPQAnchor::TPQAnchor(const TJCObject& lock, std::uint16_t x, std::uint16_t y, std::function<void()> changed)
    : lock_(lock), changed_(std::move(changed)), values_{x, y} {}
TPQAnchor::Values TPQAnchor::Get() const {
  auto section = lock_.ReadLock();
  return values_;
}
void TPQAnchor::Set(Values values) {
  Update(lock_, values_, changed_, [&](Values& v) { v = values; });
}
void TPQAnchor::SetX(std::uint16_t x) {
  Update(lock_, values_, changed_, [&](Values& v) { v.x = x; });
}
void TPQAnchor::SetY(std::uint16_t y) {
  Update(lock_, values_, changed_, [&](Values& v) { v.y = y; });
}
void TPQAnchor::Assign(const TPersistent& source) {
  if (const auto* other = PQCast<const TPQAnchor>(&source)) Set(other->Get());
}

// --- region ---------------------------------------------------------------------------------------------------------

const PQClassInfo& TPQRectRegion::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQRectRegion>("TPQRectRegion", "PQRegion", "A rectangle of a frame.")
          .Property("Enabled", &TPQRectRegion::GetEnabled, &TPQRectRegion::SetEnabled, PQDefault(false),
                    "Whether a filter works on the rectangle only.")
          .Property("Width", &TPQRectRegion::GetWidth, &TPQRectRegion::SetWidth, PQDefault(240), PQUseful(1, 16384),
                    PQUnit("pixels"), "Width of the rectangle.")
          .Property("Height", &TPQRectRegion::GetHeight, &TPQRectRegion::SetHeight, PQDefault(180), PQUseful(1, 16384),
                    PQUnit("pixels"), "Height of the rectangle.")
          .Property("Left", &TPQRectRegion::GetLeft, &TPQRectRegion::SetLeft, PQDefault(0), PQUseful(0, 16384),
                    PQUnit("pixels"), "First column.")
          .Property("Top", &TPQRectRegion::GetTop, &TPQRectRegion::SetTop, PQDefault(0), PQUseful(0, 16384),
                    PQUnit("pixels"), "First row.")
          .Done();
  return info;
}

TPQRectRegion::TPQRectRegion(const TJCObject& lock, std::function<void()> changed)
    : lock_(lock), changed_(std::move(changed)), enabled_(false), values_{false, 0, 0, 240, 180} {}
TPQRectRegion::Values TPQRectRegion::Get() const {
  auto section = lock_.ReadLock();
  return values_;
}
void TPQRectRegion::Set(Values values) {
  Update(lock_, values_, changed_, [&](Values& v) {
    v = values;
    enabled_.store(v.enabled, std::memory_order_relaxed);
  });
}
void TPQRectRegion::SetEnabled(bool enabled) {
  Update(lock_, values_, changed_, [&](Values& v) {
    v.enabled = enabled;
    enabled_.store(enabled, std::memory_order_relaxed);
  });
}
void TPQRectRegion::SetLeft(std::uint16_t left) {
  Update(lock_, values_, changed_, [&](Values& v) { v.left = left; });
}
void TPQRectRegion::SetTop(std::uint16_t top) {
  Update(lock_, values_, changed_, [&](Values& v) { v.top = top; });
}
void TPQRectRegion::SetWidth(std::uint16_t width) {
  Update(lock_, values_, changed_, [&](Values& v) { v.width = width; });
}
void TPQRectRegion::SetHeight(std::uint16_t height) {
  Update(lock_, values_, changed_, [&](Values& v) { v.height = height; });
}
void TPQRectRegion::Assign(const TPersistent& source) {
  if (const auto* other = PQCast<const TPQRectRegion>(&source)) Set(other->Get());
}

}  // namespace pantiq
