#include "pantiq/filters/PQWienerFilter.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {

constinit const PQClassTag TPQWienerNoiseLevels::kTag{"TPQWienerNoiseLevels", &TPersistent::kTag};
constinit const PQClassTag TPQWienerFilter::kTag{"TPQWienerFilter", &TPQCommonROIMatrixFilterIntermidiate::kTag};

const PQClassInfo& TPQWienerNoiseLevels::Class() {
  using T = TPQWienerNoiseLevels;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQWienerNoiseLevels", "PQWienerFilter", "The variance of the noise of each channel.")
          .Inherits<TPersistent>()
          .Property("Channel1", &T::GetChannel1, &T::SetChannel1, PQDefault(0.0f), PQUseful(0.0f, 0.1f), PQActs::NextFrame,
                    "Of blue, and of gray frames, for intensities scaled to 0..1; 0 estimates it from the frame.")
          .Property("Channel2", &T::GetChannel2, &T::SetChannel2, PQDefault(0.0f), PQUseful(0.0f, 0.1f), PQActs::NextFrame,
                    "Of green.")
          .Property("Channel3", &T::GetChannel3, &T::SetChannel3, PQDefault(0.0f), PQUseful(0.0f, 0.1f), PQActs::NextFrame,
                    "Of red.")
          .Done();
  return info;
}

const PQClassInfo& TPQWienerFilter::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQWienerFilter>("TPQWienerFilter", "PQWienerFilter", "Reduces noise where the picture varies little.")
          .Inherits<TPQCommonROIMatrixFilter>()
          .Object("NoiseLevels", &TPQWienerFilter::GetNoiseLevels, PQActs::NextFrame,
                  "How much noise there is in each channel, as a variance; 0 estimates it from each frame.")
          .Done();
  return info;
}

TPQWienerFilter::TPQWienerFilter(TComponent* owner) : TPQCommonROIMatrixFilterIntermidiate(owner), noise_levels_(Lock()) {
  Changed(this);
}

void TPQWienerFilter::Stop() {
  auto section = Lock().WriteLock();
  work_.reset();
}

IppStatus TPQWienerFilter::PerformFilter(const std::uint8_t* source, int source_step, std::uint8_t* destination,
                                         int destination_step, IppiSize roi, IppiSize mask, TPoint anchor,
                                         TPQVideoFormat format) {
  int size = 0;
  if (const IppStatus status = ippiFilterWienerGetBufferSize(roi, mask, 3, &size); status < 0) return status;
  std::shared_ptr<Work> work;
  {
    auto section = Lock().WriteLock();
    work = std::move(work_);  // two frames at once must not share it
  }
  if (work == nullptr || work->size() != static_cast<std::size_t>(size)) {
    work = std::make_shared<Work>(static_cast<std::size_t>(size));
  }
  TPQWienerNoiseNumbers noise = noise_levels_.Get();
  const IppStatus status =
      format == vfGrayScale
          ? ippiFilterWiener_8u_C1R(source, source_step, destination, destination_step, roi, mask, anchor, noise.channel,
                                    work->data())
          : ippiFilterWiener_8u_C3R(source, source_step, destination, destination_step, roi, mask, anchor, noise.channel,
                                    work->data());
  auto section = Lock().WriteLock();
  work_ = std::move(work);
  return status;
}

void PQWienerFilter::Register() {
  const PQClassInfo* const classes[] = {&TPQWienerFilter::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
