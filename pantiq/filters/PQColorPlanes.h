// What the components that take frames apart into colour planes share: the kernels of each colour mode, pins and stamps.
//
// Frames hold blue, green, red. Every mode but cmLab wants red first, so channels are exchanged before and after.
#pragma once
#include <atomic>
#include <functional>

#include "pantiq/core/PQSinkFilter.h"

namespace pantiq {

// cmLUV and all later modes work on colour alone; the earlier ones have a short way for gray frames.
constexpr bool PQModeNeedsColor(TPQColorMode mode) { return mode >= cmLUV; }

// Rows of a frame as packed pixels of a mode's three channels, in the order of PQPlaneNames: the first row's number, its first
// pixel, the step in bytes and the size in pixels.
using PQColorRows = std::function<void(std::int32_t row, const std::uint8_t* pixels, int step, IppiSize roi)>;

// Converts a vfRGB24 frame to the mode, some rows at a time, so that what `rows` does with them happens in the nearest cache.
// The pixels are good during the call. The frame is only read.
void PQForColorRows(const IPQImageBuffer& frame, TPQColorMode mode, const PQColorRows& rows);

// The reverse, in place: three channels of the mode to blue, green, red.
void PQFromColorMode(IPQImageBuffer& frame, TPQColorMode mode);

// Names the three pins of a list after the planes of the mode.
void PQNamePlanes(TJCPinList& pins, TPQColorMode mode);

// A consumer with three outputs, one for each channel of ColorMode and named after it. Subclasses describe the property.
class PQ_EXPORT TPQCommonPlaneSink : public TPQSinkFilter {
 public:
  static const PQClassTag kTag;
  const PQClassTag& Tag() const noexcept override { return kTag; }

  TPQColorMode GetColorMode() const { return color_mode_.load(std::memory_order_relaxed); }
  void SetColorMode(TPQColorMode mode);

 protected:
  explicit TPQCommonPlaneSink(TComponent* owner) : TPQSinkFilter(owner) {}
  // The three outputs, for constructors.
  template <class Pin>
  void AddPlanes() {
    for (int i = 0; i < 3; ++i) AddOutput<Pin>();
    UpdatePinNames();
  }
  // Sends a buffer on the output of channel 0, 1 or 2.
  void SubmitPlane(int channel, PQDataBufferRef buffer) {
    static_cast<TRWJCSourcePin*>(OutputPins.GetPin(channel))->SubmitBuffer(std::move(buffer));
  }

 private:
  void UpdatePinNames() { PQNamePlanes(OutputPins, GetColorMode()); }
  std::atomic<TPQColorMode> color_mode_{cmRGB};
};

}  // namespace pantiq
