#include "pantiq/filters/PQImageAdjust.h"

#include <algorithm>

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/kernels/PQConvDispatcher.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQImageAdjust::kTag{"TPQImageAdjust", &TPQCommonFilter::kTag};

const PQClassInfo& TPQImageAdjust::Class() {
  using T = TPQImageAdjust;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQImageAdjust", "PQImageAdjust", "Adjusts brightness, contrast, saturation, hue and lightness.")
          .Inherits<TPQCommonFilter>()
          .Property("Brightness", &T::GetBrightness, &T::SetBrightness, PQDefault(0.0f), PQUseful(-255.0f, 255.0f),
                    PQActs::NextFrame,
                    "Added to hue, lightness and saturation, in steps of a byte. A Hue that is set later replaces the part "
                    "that acts on hue.")
          .Property("Contrast", &T::GetContrast, &T::SetContrast, PQDefault(1.0f), PQUseful(0.0f, 4.0f), PQActs::NextFrame,
                    "Gain of red, green and blue about black; 1 changes nothing.")
          .Property("Saturation", &T::GetSaturation, &T::SetSaturation, PQDefault(1.0f), PQUseful(0.0f, 4.0f),
                    PQActs::NextFrame, "Gain of the saturation; 0 gives gray.")
          .Property("Hue", &T::GetHue, &T::SetHue, PQDefault(0.0f), PQUseful(-255.0f, 255.0f), PQActs::NextFrame,
                    "Added to the hue, where 256 is the whole circle; stops at 0 and 255.")
          .Property("Lightness", &T::GetLightness, &T::SetLightness, PQDefault(1.0f), PQUseful(0.0f, 4.0f), PQActs::NextFrame,
                    "Gain of the lightness.")
          .Pin("BrightnessPin", &T::BrightnessPin, "Carries Brightness.")
          .Pin("ContrastPin", &T::ContrastPin, "Carries Contrast.")
          .Pin("SaturationPin", &T::SaturationPin, "Carries Saturation.")
          .Pin("HuePin", &T::HuePin, "Carries Hue.")
          .Pin("LightnessPin", &T::LightnessPin, "Carries Lightness.")
          .Done();
  return info;
}

TPQImageAdjust::TPQImageAdjust(TComponent* owner)
    : TPQCommonFilter(owner),
      BrightnessPin(*this, [this](float value) { SetBrightness(value); }, 0),
      ContrastPin(*this, [this](float value) { SetContrast(value); }, 1),
      SaturationPin(*this, [this](float value) { SetSaturation(value); }, 1),
      HuePin(*this, [this](float value) { SetHue(value); }, 0),
      LightnessPin(*this, [this](float value) { SetLightness(value); }, 1) {}

void TPQImageAdjust::BeforeDestruction() {
  for (TJCPin* pin : std::initializer_list<TJCPin*>{&BrightnessPin, &ContrastPin, &SaturationPin, &HuePin, &LightnessPin}) {
    pin->Disconnect();
  }
  TPQCommonFilter::BeforeDestruction();
}

void TPQImageAdjust::SetBrightness(float value) {
  {
    auto section = Lock().WriteLock();
    brightness_ = first_.rows[0][3] = first_.rows[1][3] = first_.rows[2][3] = value;
  }
  BrightnessPin.SetValue(value);
}

void TPQImageAdjust::SetContrast(float value) {
  {
    auto section = Lock().WriteLock();
    contrast_ = second_.rows[0][2] = second_.rows[1][1] = second_.rows[2][0] = value;
  }
  ContrastPin.SetValue(value);
}

void TPQImageAdjust::SetSaturation(float value) {
  {
    auto section = Lock().WriteLock();
    saturation_ = first_.rows[2][2] = value;
  }
  SaturationPin.SetValue(value);
}

void TPQImageAdjust::SetHue(float value) {
  {
    auto section = Lock().WriteLock();
    hue_ = first_.rows[0][3] = value;
  }
  HuePin.SetValue(value);
}

void TPQImageAdjust::SetLightness(float value) {
  {
    auto section = Lock().WriteLock();
    lightness_ = first_.rows[1][1] = value;
  }
  LightnessPin.SetValue(value);
}

void TPQImageAdjust::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  static constexpr int kOrder[3] = {2, 1, 0};
  PQTwist first, second;
  {
    auto section = Lock().ReadLock();
    first = first_;
    second = second_;
  }
  const IppiSize size = in->GetSize();
  const std::ptrdiff_t step = in->GetStep();
  const std::uint8_t* source = in->Read();
  std::uint8_t* destination = out->Write();
  // Every step works on one pixel at a time, so a strip of rows goes through all five while it is in the nearest cache.
  const int strip = std::max(1, static_cast<int>(16384 / step));
  for (int y = 0; y < size.height; y += strip) {
    const IppiSize roi{size.width, std::min(strip, size.height - y)};
    std::uint8_t* const rows = destination + y * step;
    const int row_step = static_cast<int>(step);
    ippiSwapChannels_8u_C3R(source + y * step, row_step, rows, row_step, roi, kOrder);
    PQ_SLOT(ippiRGBToHLS_8u_C3R)(rows, row_step, rows, row_step, roi);
    ippiColorTwist32f_8u_C3IR(rows, row_step, roi, first.rows);
    PQ_SLOT(ippiHLSToRGB_8u_C3R)(rows, row_step, rows, row_step, roi);
    ippiColorTwist32f_8u_C3IR(rows, row_step, roi, second.rows);
  }
}

void PQImageAdjust::Register() {
  const PQClassInfo* const classes[] = {&TPQImageAdjust::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
