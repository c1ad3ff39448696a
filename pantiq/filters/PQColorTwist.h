// A matrix over the three bytes of every pixel.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

// Three rows of four factors, as the twist kernels take them.
struct PQTwist {
  float rows[3][4] = {};
};

// One row of a twist: what one byte of the output pixel is made of.
class PQ_EXPORT TPQColorChannelTwist final : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  // `row` points to four floats that are guarded by `lock`; both outlive this object.
  TPQColorChannelTwist(const TJCObject& lock, float* row) : lock_(lock), row_(row) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  void Assign(const TPersistent& source) override;

  // 0 Red, 1 Green, 2 Blue, 3 Offset; another index reads as 0 and writes nothing.
  float GetItem(int index) const;
  void SetItem(int index, float value);

  float GetRed() const { return GetItem(0); }
  void SetRed(float value) { SetItem(0, value); }
  float GetGreen() const { return GetItem(1); }
  void SetGreen(float value) { SetItem(1, value); }
  float GetBlue() const { return GetItem(2); }
  void SetBlue(float value) { SetItem(2, value); }
  float GetOffset() const { return GetItem(3); }
  void SetOffset(float value) { SetItem(3, value); }

 private:
  const TJCObject& lock_;
  float* row_;
};

class PQ_EXPORT TPQColorTwists final : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQColorTwists(const TJCObject& lock);
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQColorChannelTwist& GetRedTwist() { return red_; }
  TPQColorChannelTwist& GetGreenTwist() { return green_; }
  TPQColorChannelTwist& GetBlueTwist() { return blue_; }
  // All twelve values of one moment.
  PQTwist Get() const;

 private:
  const TJCObject& lock_;
  PQTwist twist_;
  TPQColorChannelTwist red_, green_, blue_;
};

// Byte k of an output pixel is Red * byte 0 + Green * byte 1 + Blue * byte 2 + Offset with the factors of row k (RedTwist is
// row 0), in single precision, rounded and saturated. Frames store blue first, so the names tell position, not colour. All
// factors start at 0: black.
class PQ_EXPORT TPQColorTwist final : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQColorTwist(TComponent* owner = nullptr) : TPQCommonFilter(owner), twists_(Lock()) {}
  ~TPQColorTwist() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQColorTwists& GetColorTwists() { return twists_; }
  void SetColorTwists(const TPQColorTwists& twists) { twists_.Assign(twists); }

 protected:
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override;

 private:
  TPQColorTwists twists_;
};

namespace PQColorTwist {
PQ_EXPORT void Register();
}

}  // namespace pantiq
