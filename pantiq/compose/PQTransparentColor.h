// A colour key: where the foreground has one of some colours, the background shows through.
#pragma once
#include "pantiq/compose/PQCommonCombine.h"
#include "pantiq/host/PQCollection.h"

namespace pantiq {

class TPQColorRanges;

// A range of colours: a middle and how far each channel may lie from it. The tolerances go crosswise: ToleranceBlue
// bounds the red byte of a colour and ToleranceRed the blue one.
class PQ_EXPORT TPQColorRange final : public TCollectionItem {
 public:
  struct Values {
    TColor color = 0x8000;
    std::int32_t tolerance_red = 5, tolerance_green = 5, tolerance_blue = 5;
    bool operator==(const Values&) const = default;
  };
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQColorRange(TPQColorRanges* ranges);
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  void Assign(const TPersistent& source) override;

  // $BBGGRR. Every value acts on the next frame.
  TColor GetColor() const { return Get().color; }
  void SetColor(TColor color) {
    Update([&](Values& v) { v.color = color; });
  }
  std::int32_t GetToleranceRed() const { return Get().tolerance_red; }
  void SetToleranceRed(std::int32_t tolerance) {
    Update([&](Values& v) { v.tolerance_red = tolerance; });
  }
  std::int32_t GetToleranceGreen() const { return Get().tolerance_green; }
  void SetToleranceGreen(std::int32_t tolerance) {
    Update([&](Values& v) { v.tolerance_green = tolerance; });
  }
  std::int32_t GetToleranceBlue() const { return Get().tolerance_blue; }
  void SetToleranceBlue(std::int32_t tolerance) {
    Update([&](Values& v) { v.tolerance_blue = tolerance; });
  }
  // All values of one moment.
  Values Get() const;
  void Set(const Values& values) {
    Update([&](Values& v) { v = values; });
  }

  // "clGreen 5:5:5": the colour and the tolerances of red, green and blue.
  std::string GetDisplayName() const;
  // True if the colour of a pixel lies in the range; byte 0 of the word is its blue, byte 1 its green, byte 2 its red.
  bool InRage(std::uint32_t pixel) const;
  // The lowest and highest values that match, as red, green, blue. Under the lock of the ranges.
  const std::uint8_t* Low() const { return low_; }
  const std::uint8_t* High() const { return high_; }

 private:
  template <class Change>
  void Update(Change change) {
    auto section = lock_.WriteLock();
    Values fresh = values_;
    change(fresh);
    if (fresh == values_) return;
    values_ = fresh;
    CalcRange();
    Changed();
  }
  void CalcRange();

  const TJCObject& lock_;
  Values values_;
  std::uint8_t low_[3], high_[3];
};

// The colours that count as transparent.
class PQ_EXPORT TPQColorRanges final : public TCollection {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  // `lock` is the owner's and outlives the collection.
  TPQColorRanges(TComponent* owner, const TJCObject& lock) : owner_(owner), lock_(lock) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  const PQClassInfo& ItemClassInfo() const override { return TPQColorRange::Class(); }
  // A frame sees the old ranges or the new ones.
  void Assign(const TPersistent& source) override;

  TComponent* GetOwner() const { return owner_; }
  // Null outside 0..count-1.
  TPQColorRange* GetItem(int index) const;
  // Makes the item equal to `range`; an index outside 0..count-1 is ignored.
  void SetItem(int index, const TPQColorRange& range);
  TPQColorRange* Add();
  // True if any range holds the pixel's colour.
  bool InRage(std::uint32_t pixel) const;

  const TJCObject& Lock() const { return lock_; }
  // The ranges as the kernel takes them, three bytes each: blue, green, red. Under the lock.
  const std::vector<std::uint8_t>& Lows() const { return lows_; }
  const std::vector<std::uint8_t>& Highs() const { return highs_; }

 protected:
  std::unique_ptr<TCollectionItem> CreateItem() override { return std::make_unique<TPQColorRange>(this); }
  void Update(TCollectionItem* item) override;

 private:
  TComponent* owner_;
  const TJCObject& lock_;
  std::vector<std::uint8_t> lows_, highs_;
};

// Lays the foreground (InputPin, image 1) over the background (BackgroundInputPin, image 2) where they overlap, except
// where it has one of TransparentColors. A stop that comes down ends here: the output goes on with what still comes,
// and with the size it had.
class PQ_EXPORT TPQTransparentColor final : public TPQCommonCombine {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQTransparentColor(TComponent* owner = nullptr);
  ~TPQTransparentColor() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 private:
  TPQColorRanges ranges_;
  std::atomic<bool> enabled_{true};

 public:
  TPQJCQueuedImageSinkPin InputPin, BackgroundInputPin;
  TJCBoolStatePin EnablePin;  // carries Enabled

  TPQColorRanges& GetTransparentColors() { return ranges_; }
  void SetTransparentColors(const TPQColorRanges& ranges) { ranges_.Assign(ranges); }
  // Stored for applications; the key works either way.
  bool GetEnabled() const { return enabled_.load(std::memory_order_relaxed); }
  void SetEnabled(bool enabled);

 protected:
  void DoCombineOp(const std::uint8_t* a, int a_step, const std::uint8_t* b, int b_step, std::uint8_t* dst,
                   int dst_step, IppiSize size, int pixel_size) override;
  void IntStop() override {}
  void BeforeDestruction() override;
};

namespace PQTransparentColor {
PQ_EXPORT void Register();
}

}  // namespace pantiq
