// Image streams: the start that announces a picture's form, and the pins that carry frames.
#pragma once
#include "pantiq/core/PQNumbers.h"
#include "pantiq/core/PQSimpleImageBuffer.h"
#include "pantiq/core/RWStreamTypes.h"

namespace pantiq {

PQ_EXPORT extern const JCStreamType kPQImageStream;

// Announces frames of `width` by `height` pixels, `frame_delay` apart in 100 ns. May come again at any time: that is how a
// change of size, rate or format travels. The frames' own format counts; `format` is only what the source announced.
class PQ_EXPORT TJCStartFrameOperation : public TJCStartSampleRateOperation {
 public:
  static const PQClassTag kTag;
  // The delay is kept within 0..2147483647. Rate is frames per second, 0 for a delay below 1; SampleRate the same in
  // double precision; BlockSize 0.
  TJCStartFrameOperation(std::int32_t width, std::int32_t height, std::int64_t frame_delay, TPQVideoFormat format) noexcept;
  std::int32_t Width, Height;
  std::int64_t FrameDelay;
  TPQVideoFormat Format;
};

class PQ_EXPORT TPQJCImageSinkPin : public TRWJCSinkPin {
 public:
  static const PQClassTag kTag;
  TPQJCImageSinkPin(TComponent& owner, JCDispatch dispatch) : TRWJCSinkPin(owner, kPQImageStream, dispatch) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
};
class PQ_EXPORT TPQJCImageSourcePin : public TRWJCSourcePin {
 public:
  static const PQClassTag kTag;
  TPQJCImageSourcePin(TComponent& owner, JCDispatch dispatch) : TRWJCSourcePin(owner, kPQImageStream, dispatch) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
};

}  // namespace pantiq
