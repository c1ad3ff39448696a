#include "pantiq/filters/PQThreshold.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQThresholdValue::kTag{"TPQThresholdValue", &TPersistent::kTag};
constinit const PQClassTag TPQThresholdValueTop::kTag{"TPQThresholdValueTop", &TPQThresholdValue::kTag};
constinit const PQClassTag TPQThresholdValueBottom::kTag{"TPQThresholdValueBottom", &TPQThresholdValue::kTag};
constinit const PQClassTag TPQThreshold::kTag{"TPQThreshold", &TPQCommonFilter::kTag};

namespace {

struct ThreeBytes {
  explicit ThreeBytes(TColor color)
      : bytes{static_cast<std::uint8_t>(color), static_cast<std::uint8_t>(color >> 8), static_cast<std::uint8_t>(color >> 16)} {}
  std::uint8_t bytes[3];
};

}  // namespace

const PQClassInfo& TPQThresholdValue::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQThresholdValue>("TPQThresholdValue", "PQThreshold", "A limit and what values beyond it become.")
          .Inherits<TPersistent>()
          .Property("Threshold", &TPQThresholdValue::GetThreshold, &TPQThresholdValue::SetThreshold, PQDefault(TColor{0}),
                    PQActs::NextFrame,
                    "The limit, a byte for each channel: $RRGGBB compares RR with byte 2 of the pixel, GG with byte 1, BB with "
                    "byte 0. The limit itself is not beyond it.")
          .Property("Value", &TPQThresholdValue::GetValue, &TPQThresholdValue::SetValue, PQDefault(TColor{0}),
                    PQActs::NextFrame, "What values beyond the limit become, a byte for each channel.")
          .Property("Enabled", &TPQThresholdValue::GetEnabled, &TPQThresholdValue::SetEnabled, PQDefault(true),
                    PQActs::NextFrame, "False leaves this limit out.")
          .Done();
  return info;
}

const PQClassInfo& TPQThresholdValueTop::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQThresholdValueTop>("TPQThresholdValueTop", "PQThreshold", "The limit for values above it.")
          .Inherits<TPQThresholdValue>()
          .Property("Threshold", &TPQThresholdValue::GetThreshold, &TPQThresholdValue::SetThreshold,
                    PQDefault(TColor{0x808080}), PQActs::NextFrame,
                    "Values above this are replaced, a byte for each channel: $RRGGBB compares RR with byte 2 of the pixel, GG "
                    "with byte 1, BB with byte 0.")
          .Done();
  return info;
}

const PQClassInfo& TPQThresholdValueBottom::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQThresholdValueBottom>("TPQThresholdValueBottom", "PQThreshold", "The limit for values below it.")
          .Inherits<TPQThresholdValue>()
          .Done();
  return info;
}

const PQClassInfo& TPQThreshold::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQThreshold>("TPQThreshold", "PQThreshold", "Replaces the values above and below two limits.")
          .Inherits<TPQCommonFilter>()
          .Object("ThresholdTop", &TPQThreshold::GetThresholdTop, PQActs::NextFrame, "The limit for values above it.")
          .Object("ThresholdBottom", &TPQThreshold::GetThresholdBottom, PQActs::NextFrame,
                  "The limit for values below it. With both limits on, it must not lie above the other one in any channel; "
                  "frames then pass unchanged.")
          .Done();
  return info;
}

void TPQThreshold::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  const TPQThresholdNumbers top = top_.Get(), bottom = bottom_.Get();
  if (!top.enabled && !bottom.enabled) return;
  const ThreeBytes high(top.threshold), high_value(top.value), low(bottom.threshold), low_value(bottom.value);
  const IppiSize roi = in->GetSize();
  const std::uint8_t* source = in->Read();
  std::uint8_t* destination = out->Write();
  const int from = in->GetStep(), to = out->GetStep();
  IppStatus status;
  if (top.enabled && bottom.enabled) {
    status = PQ_SLOT(ippiThreshold_LTValGTVal_8u_C3R)(source, from, destination, to, roi, low.bytes, low_value.bytes,
                                                      high.bytes, high_value.bytes);
  } else if (top.enabled) {
    status = PQ_SLOT(ippiThreshold_GTVal_8u_C3R)(source, from, destination, to, roi, high.bytes, high_value.bytes);
  } else {
    status = PQ_SLOT(ippiThreshold_LTVal_8u_C3R)(source, from, destination, to, roi, low.bytes, low_value.bytes);
  }
  if (status < 0) out->Assign(*in);
}

void PQThreshold::Register() {
  const PQClassInfo* const classes[] = {&TPQThreshold::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
