// Darkens frames. A filter to start from: rename.sh makes a copy under another name.
#pragma once
#include <atomic>
#include <cstdint>

#include "pantiq/core/PQCommonFilter.h"

class TSkeleton final : public pantiq::TPQCommonFilter {
 public:
  static const pantiq::PQClassTag kTag;
  static const pantiq::PQClassInfo& Class();
  explicit TSkeleton(pantiq::TComponent* owner = nullptr) : TPQCommonFilter(owner) {}
  ~TSkeleton() override { BeforeDestructionOnce(); }
  const pantiq::PQClassTag& Tag() const noexcept override { return kTag; }
  const pantiq::PQClassInfo& ClassInfo() const override { return Class(); }

  // 0 leaves frames as they are, 255 makes them black. Any thread; the next frame sees it.
  std::uint8_t GetAmount() const { return amount_.load(std::memory_order_relaxed); }
  void SetAmount(std::uint8_t amount);

 protected:
  void FilterInternalOperation(const pantiq::PQImageRef& in, pantiq::PQImageRef& out) override;

 private:
  std::atomic<std::uint8_t> amount_{128};
};
