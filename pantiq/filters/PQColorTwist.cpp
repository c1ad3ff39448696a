#include "pantiq/filters/PQColorTwist.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQColorChannelTwist::kTag{"TPQColorChannelTwist", &TPersistent::kTag};
constinit const PQClassTag TPQColorTwists::kTag{"TPQColorTwists", &TPersistent::kTag};
constinit const PQClassTag TPQColorTwist::kTag{"TPQColorTwist", &TPQCommonFilter::kTag};

const PQClassInfo& TPQColorChannelTwist::Class() {
  using T = TPQColorChannelTwist;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQColorChannelTwist", "PQColorTwist", "What one byte of an output pixel is made of.")
          .Inherits<TPersistent>()
          .Property("Red", &T::GetRed, &T::SetRed, PQDefault(0.0f), PQUseful(-4.0f, 4.0f), "Factor of byte 0 of the pixel.")
          .Property("Green", &T::GetGreen, &T::SetGreen, PQDefault(0.0f), PQUseful(-4.0f, 4.0f), "Factor of byte 1.")
          .Property("Blue", &T::GetBlue, &T::SetBlue, PQDefault(0.0f), PQUseful(-4.0f, 4.0f), "Factor of byte 2.")
          .Property("Offset", &T::GetOffset, &T::SetOffset, PQDefault(0.0f), PQUseful(-255.0f, 255.0f),
                    "What is added to the sum, in steps of the byte.")
          .Done();
  return info;
}

float TPQColorChannelTwist::GetItem(int index) const {
  if (index < 0 || index > 3) return 0;
  auto section = lock_.ReadLock();
  return row_[index];
}

void TPQColorChannelTwist::SetItem(int index, float value) {
  if (index < 0 || index > 3) return;
  auto section = lock_.WriteLock();
  row_[index] = value;
}

void TPQColorChannelTwist::Assign(const TPersistent& source) {
  const auto* other = PQCast<const TPQColorChannelTwist>(&source);
  if (other == nullptr) {
    TPersistent::Assign(source);
    return;
  }
  float values[4];
  for (int i = 0; i < 4; ++i) values[i] = other->GetItem(i);
  auto section = lock_.WriteLock();
  for (int i = 0; i < 4; ++i) SetItem(i, values[i]);
}

const PQClassInfo& TPQColorTwists::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQColorTwists>("TPQColorTwists", "PQColorTwist", "A matrix of three rows over the bytes of a pixel.")
          .Inherits<TPersistent>()
          .Object("RedTwist", &TPQColorTwists::GetRedTwist, "What byte 0 (blue in memory) of the output is made of.")
          .Object("GreenTwist", &TPQColorTwists::GetGreenTwist, "What byte 1 (green) of the output is made of.")
          .Object("BlueTwist", &TPQColorTwists::GetBlueTwist, "What byte 2 (red in memory) of the output is made of.")
          .Done();
  return info;
}

TPQColorTwists::TPQColorTwists(const TJCObject& lock)
    : lock_(lock), red_(lock, twist_.rows[0]), green_(lock, twist_.rows[1]), blue_(lock, twist_.rows[2]) {}

PQTwist TPQColorTwists::Get() const {
  auto section = lock_.ReadLock();
  return twist_;
}

const PQClassInfo& TPQColorTwist::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQColorTwist>("TPQColorTwist", "PQColorTwist", "Makes every colour byte a weighted sum of all three.")
          .Inherits<TPQCommonFilter>()
          .Object("ColorTwists", &TPQColorTwist::GetColorTwists, PQActs::NextFrame,
                  "The matrix. All factors start at 0, which gives black; RedTwist.Red, GreenTwist.Green and BlueTwist.Blue "
                  "at 1 let frames pass.")
          .Done();
  return info;
}

void TPQColorTwist::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  const PQTwist twist = twists_.Get();
  const IppiSize roi = in->GetSize();
  const std::uint8_t* source = in->Read();
  std::uint8_t* destination = out->Write();
  if (PQ_SLOT(ippiColorTwist32f_8u_C3R)(source, in->GetStep(), destination, out->GetStep(), roi, twist.rows) < 0) {
    out->Assign(*in);
  }
}

void PQColorTwist::Register() {
  const PQClassInfo* const classes[] = {&TPQColorTwist::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
