#include "pantiq/core/PQStreamTypes.h"

#include <algorithm>

namespace pantiq {

constinit const PQClassTag TJCStartFrameOperation::kTag{"TJCStartFrameOperation", &TJCStartSampleRateOperation::kTag};
constinit const PQClassTag TPQJCImageSinkPin::kTag{"TPQJCImageSinkPin", &TRWJCSinkPin::kTag};
constinit const PQClassTag TPQJCImageSourcePin::kTag{"TPQJCImageSourcePin", &TRWJCSourcePin::kTag};

const JCStreamType kPQImageStream{{0x6d1f6a10, 0x0b5e, 0x4c55, {0x9a, 0x01, 0x50, 0x51, 0x53, 0x54, 0x00, 0x20}}, "image"};

TJCStartFrameOperation::TJCStartFrameOperation(std::int32_t width, std::int32_t height, std::int64_t frame_delay,
                                               TPQVideoFormat format) noexcept
    : TJCStartSampleRateOperation(kTag, 0, 0),
      Width(width),
      Height(height),
      FrameDelay(std::clamp<std::int64_t>(frame_delay, 0, 2147483647)),
      Format(format) {
  SampleRate = pq_rate(FrameDelay);
  Rate = static_cast<float>(SampleRate);
}

}  // namespace pantiq
