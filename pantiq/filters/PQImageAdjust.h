// Brightness, contrast, saturation, hue and lightness, each also on a pin.
#pragma once
#include "pantiq/filters/PQColorTwist.h"

namespace pantiq {

// A frame goes to HLS, through a first twist, back to RGB and through a second twist. The setters write cells of these
// twists:
//   Brightness  the three offsets of the first (so it shifts hue and saturation as well)
//   Hue         the offset of the first one's hue row: the same cell as Brightness, whichever was set last holds
//   Lightness   the gain of L, Saturation the gain of S
//   Contrast    the gain of all three channels in the second
// Hue saturates at 0 and 255 and does not wrap around.
class PQ_EXPORT TPQImageAdjust final : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQImageAdjust(TComponent* owner = nullptr);
  ~TPQImageAdjust() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  float GetBrightness() const { return Get(brightness_); }
  void SetBrightness(float value);
  float GetContrast() const { return Get(contrast_); }
  void SetContrast(float value);
  float GetSaturation() const { return Get(saturation_); }
  void SetSaturation(float value);
  float GetHue() const { return Get(hue_); }
  void SetHue(float value);
  float GetLightness() const { return Get(lightness_); }
  void SetLightness(float value);

  TJCFloatStatePin BrightnessPin, ContrastPin, SaturationPin, HuePin, LightnessPin;

 protected:
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override;
  void BeforeDestruction() override;

 private:
  float Get(const float& field) const {
    auto section = Lock().ReadLock();
    return field;
  }
  float brightness_ = 0, contrast_ = 1, saturation_ = 1, hue_ = 0, lightness_ = 1;  // all under the lock
  PQTwist first_{{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}}};   // over H, L, S
  PQTwist second_{{{0, 0, 1, 0}, {0, 1, 0, 0}, {1, 0, 0, 0}}};  // R, G, B to B, G, R
};

namespace PQImageAdjust {
PQ_EXPORT void Register();
}

}  // namespace pantiq
