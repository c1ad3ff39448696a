#include "pantiq/compose/PQTransparentColor.h"

#include "pantiq/compose/PQColors.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {

constinit const PQClassTag TPQColorRange::kTag{"TPQColorRange", &TCollectionItem::kTag};
constinit const PQClassTag TPQColorRanges::kTag{"TPQColorRanges", &TCollection::kTag};
constinit const PQClassTag TPQTransparentColor::kTag{"TPQTransparentColor", &TPQCommonCombine::kTag};

// --- TPQColorRange --------------------------------------------------------------------------------------------------

const PQClassInfo& TPQColorRange::Class() {
  using T = TPQColorRange;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQColorRange", "PQTransparentColor", "A range of colours.")
          .Inherits<TCollectionItem>()
          .Property("Color", &T::GetColor, &T::SetColor, PQDefault(TColor{0x8000}), PQActs::NextFrame,
                    "The middle of the range, $BBGGRR.")
          .Property("ToleranceRed", &T::GetToleranceRed, &T::SetToleranceRed, PQDefault(std::int32_t{5}),
                    PQUseful(0, 255), PQActs::NextFrame,
                    "How far the blue byte may lie from the middle: red and blue are crossed.")
          .Property("ToleranceGreen", &T::GetToleranceGreen, &T::SetToleranceGreen, PQDefault(std::int32_t{5}),
                    PQUseful(0, 255), PQActs::NextFrame, "How far the green byte may lie from the middle.")
          .Property("ToleranceBlue", &T::GetToleranceBlue, &T::SetToleranceBlue, PQDefault(std::int32_t{5}),
                    PQUseful(0, 255), PQActs::NextFrame,
                    "How far the red byte may lie from the middle: red and blue are crossed.")
          .Done();
  return info;
}

TPQColorRange::TPQColorRange(TPQColorRanges* ranges) : TCollectionItem(ranges), lock_(ranges->Lock()) { CalcRange(); }

void TPQColorRange::Assign(const TPersistent& source) {
  if (const auto* other = PQCast<const TPQColorRange>(&source)) Set(other->Get());
}

TPQColorRange::Values TPQColorRange::Get() const {
  auto section = lock_.ReadLock();
  return values_;
}

void TPQColorRange::CalcRange() {
  const std::int64_t tolerances[3] = {values_.tolerance_blue, values_.tolerance_green, values_.tolerance_red};
  for (int i = 0; i < 3; ++i) {
    const std::int64_t middle = values_.color >> (8 * i) & 0xff, tolerance = tolerances[i];
    low_[i] = static_cast<std::uint8_t>(tolerance < middle ? middle - tolerance : 0);
    high_[i] = static_cast<std::uint8_t>(middle < 255 - tolerance ? middle + tolerance : 255);
  }
}

std::string TPQColorRange::GetDisplayName() const {
  const Values v = Get();
  return ColorToString(v.color) + " " + std::to_string(v.tolerance_red) + ":" + std::to_string(v.tolerance_green) +
         ":" + std::to_string(v.tolerance_blue);
}

bool TPQColorRange::InRage(std::uint32_t pixel) const {
  auto section = lock_.ReadLock();
  for (int i = 0; i < 3; ++i) {
    const auto value = static_cast<std::uint8_t>(pixel >> (16 - 8 * i));
    if (value < low_[i] || value > high_[i]) return false;
  }
  return true;
}

// --- TPQColorRanges -------------------------------------------------------------------------------------------------

const PQClassInfo& TPQColorRanges::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQColorRanges>("TPQColorRanges", "PQTransparentColor", "The colours that count as transparent.")
          .Inherits<TCollection>()
          .Done();
  return info;
}

void TPQColorRanges::Assign(const TPersistent& source) {
  const auto* other = PQCast<const TPQColorRanges>(&source);
  if (other == nullptr || other == this) return;
  std::vector<TPQColorRange::Values> values;  // read before our lock is taken: two may assign crosswise
  for (int i = 0; i < other->GetCount(); ++i) values.push_back(other->GetItem(i)->Get());
  auto section = lock_.WriteLock();
  Clear();
  for (const TPQColorRange::Values& v : values) Add()->Set(v);
}

TPQColorRange* TPQColorRanges::GetItem(int index) const {
  auto section = lock_.ReadLock();
  return static_cast<TPQColorRange*>(TCollection::GetItem(index));
}

void TPQColorRanges::SetItem(int index, const TPQColorRange& range) {
  if (TPQColorRange* item = GetItem(index)) item->Assign(range);
}

TPQColorRange* TPQColorRanges::Add() {
  auto section = lock_.WriteLock();
  return static_cast<TPQColorRange*>(TCollection::Add());
}

bool TPQColorRanges::InRage(std::uint32_t pixel) const {
  auto section = lock_.ReadLock();
  for (int i = 0; i < GetCount(); ++i) {
    if (GetItem(i)->InRage(pixel)) return true;
  }
  return false;
}

void TPQColorRanges::Update(TCollectionItem*) {
  std::vector<std::uint8_t> lows, highs;
  auto section = lock_.WriteLock();
  for (int i = 0; i < GetCount(); ++i) {
    const TPQColorRange& range = *GetItem(i);
    for (int channel = 2; channel >= 0; --channel) {
      lows.push_back(range.Low()[channel]);
      highs.push_back(range.High()[channel]);
    }
  }
  lows_ = std::move(lows), highs_ = std::move(highs);
}

// --- TPQTransparentColor --------------------------------------------------------------------------------------------

const PQClassInfo& TPQTransparentColor::Class() {
  using T = TPQTransparentColor;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQTransparentColor", "PQTransparentColor",
                    "Lays one stream over another; some colours of it are transparent.")
          .Inherits<TPQCommonCombine>()
          .Collection("TransparentColors", &T::GetTransparentColors, PQActs::NextFrame,
                      "The colours of the foreground that let the background through. Without any the foreground "
                      "covers it.")
          .Property("Enabled", &T::GetEnabled, &T::SetEnabled, PQDefault(true), PQActs::Now,
                    "Kept for applications: the colours are transparent either way.")
          .Pin("InputPin", &T::InputPin, "The foreground, image 1.")
          .Pin("BackgroundInputPin", &T::BackgroundInputPin, "The background, image 2.")
          .Pin("EnablePin", &T::EnablePin, "Carries Enabled.")
          .Done();
  return info;
}

TPQTransparentColor::TPQTransparentColor(TComponent* owner)
    : TPQCommonCombine(owner),
      ranges_(this, Lock()),
      InputPin(*this, JCDispatch::To<&TPQMultiInput::SinkDispatch>(this)),
      BackgroundInputPin(*this, JCDispatch::To<&TPQMultiInput::SinkDispatch>(this)),
      EnablePin(
          *this, [this](bool value) { SetEnabled(value); }, true) {
  AddInput(InputPin);
  AddInput(BackgroundInputPin);
  EnablePin.AddShareLock(Lock());
}

void TPQTransparentColor::BeforeDestruction() {
  EnablePin.Disconnect();
  TPQCommonCombine::BeforeDestruction();
}

void TPQTransparentColor::SetEnabled(bool enabled) {
  {
    auto section = Lock().WriteLock();
    enabled_.store(enabled, std::memory_order_relaxed);
  }
  EnablePin.SetValue(enabled);
}

void TPQTransparentColor::DoCombineOp(const std::uint8_t* a, int a_step, const std::uint8_t* b, int b_step,
                                      std::uint8_t* dst, int dst_step, IppiSize size, int /*pixel_size*/) {
  if (a == nullptr || b == nullptr) return;
  const std::vector<std::uint8_t>&lows = ranges_.Lows(), &highs = ranges_.Highs();
  PQKeyRanges_8u_C3R(a, a_step, b, b_step, dst, dst_step, size, lows.data(), highs.data(),
                     static_cast<int>(lows.size() / 3));
}

void PQTransparentColor::Register() {
  const PQClassInfo* const classes[] = {&TPQTransparentColor::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
