// Replaces the values above and below two limits.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

struct TPQThresholdNumbers {
  TColor threshold;
  TColor value;
  bool enabled;
  bool operator==(const TPQThresholdNumbers&) const = default;
};

// A limit and what takes the place of values beyond it, a byte for each channel: the low byte of the colour belongs to byte 0
// of the pixel, which is blue in memory.
class PQ_EXPORT TPQThresholdValue : public TPQGuardedNumbers<TPQThresholdNumbers> {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TColor GetThreshold() const { return Get().threshold; }
  void SetThreshold(TColor threshold) {
    Update([&](Values& v) { v.threshold = threshold; });
  }
  TColor GetValue() const { return Get().value; }
  void SetValue(TColor value) {
    Update([&](Values& v) { v.value = value; });
  }
  bool GetEnabled() const { return Get().enabled; }
  void SetEnabled(bool enabled) {
    Update([&](Values& v) { v.enabled = enabled; });
  }

 protected:
  TPQThresholdValue(const TJCObject& lock, TColor threshold) : TPQGuardedNumbers(lock, {threshold, 0, true}, {}) {}
};

class PQ_EXPORT TPQThresholdValueTop final : public TPQThresholdValue {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQThresholdValueTop(const TJCObject& lock) : TPQThresholdValue(lock, 0x808080) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
};

class PQ_EXPORT TPQThresholdValueBottom final : public TPQThresholdValue {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQThresholdValueBottom(const TJCObject& lock) : TPQThresholdValue(lock, 0) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
};

// A low limit above the high one in any channel: frames pass unchanged.
class PQ_EXPORT TPQThreshold final : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQThreshold(TComponent* owner = nullptr) : TPQCommonFilter(owner), top_(Lock()), bottom_(Lock()) {}
  ~TPQThreshold() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQThresholdValueTop& GetThresholdTop() { return top_; }
  void SetThresholdTop(const TPQThresholdValueTop& value) { top_.Assign(value); }
  TPQThresholdValueBottom& GetThresholdBottom() { return bottom_; }
  void SetThresholdBottom(const TPQThresholdValueBottom& value) { bottom_.Assign(value); }

 protected:
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override;

 private:
  TPQThresholdValueTop top_;
  TPQThresholdValueBottom bottom_;
};

namespace PQThreshold {
PQ_EXPORT void Register();
}

}  // namespace pantiq
