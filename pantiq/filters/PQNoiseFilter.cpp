#include "pantiq/filters/PQNoiseFilter.h"

#include <cstring>

namespace pantiq {

constinit const PQClassTag TPQCommonNoiseFilter::kTag{"TPQCommonNoiseFilter", &TPQCommonROIFilter::kTag};

const PQClassInfo& TPQCommonNoiseFilter::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQCommonNoiseFilter>("TPQCommonNoiseFilter", "PQNoiseFilter", "Base of the filters that add noise.")
          .Inherits<TPQCommonROIFilter>()
          .Property("Seed", &TPQCommonNoiseFilter::GetSeed, &TPQCommonNoiseFilter::SetSeed, PQDefault(31192), PQActs::NextStart,
                    "Where the noise begins at the next start. Moves on with every frame.")
          .Done();
  return info;
}

TPQCommonNoiseFilter::TPQCommonNoiseFilter(TComponent* owner) : TPQCommonROIFilter(owner) { SerialiseFrames(); }

std::uint16_t TPQCommonNoiseFilter::GetSeed() const {
  auto section = Lock().ReadLock();
  return static_cast<std::uint16_t>(seed_ >> 16);
}

void TPQCommonNoiseFilter::SetSeed(std::uint16_t seed) {
  auto section = Lock().WriteLock();
  seed_ = (seed_ & 0xffffu) | (std::uint32_t{seed} << 16);
  seed_set_ = true;
}

void TPQCommonNoiseFilter::Reset() {
  TPQCommonROIFilter::Reset();
  auto section = Lock().WriteLock();
  seed_ = (seed_ & 0xffff0000u) | (seed_ >> 16);
}

void TPQCommonNoiseFilter::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  out->Assign(*in);
  IppiSize roi = in->GetSize();
  std::uint8_t* pixels = out->Modify();
  ReclaculateRoiAndOffsetI(roi, *in, pixels);
  struct {
    alignas(4) std::uint16_t half[2];  // low half first
  } seed;
  {
    auto section = Lock().WriteLock();
    seed.half[0] = static_cast<std::uint16_t>(seed_);
    seed.half[1] = static_cast<std::uint16_t>(seed_ >> 16);
    seed_set_ = false;
  }
  AddNoise(pixels, out->GetStep(), roi, seed.half[0]);
  auto section = Lock().WriteLock();
  const std::uint32_t moved = seed.half[0] | (std::uint32_t{seed.half[1]} << 16);
  seed_ = seed_set_ ? (seed_ & 0xffff0000u) | (moved & 0xffffu) : moved;
}

}  // namespace pantiq
