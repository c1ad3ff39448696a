// Turns the planes of frames into streams of real numbers.
#pragma once
#include "pantiq/filters/PQColorPlanes.h"

namespace pantiq {

enum TPQScanMode : std::uint8_t {
  smLine,  // a block for each row
  smFrame  // a block for each frame
};
template <>
struct PQEnumWords<TPQScanMode> {
  static constexpr std::string_view name = "TPQScanMode";
  static constexpr PQWord words[] = {{"smLine", 0}, {"smFrame", 1}};
};

// Each output carries one channel of ColorMode as numbers from 0 to 255, row by row, width * height * frame rate of them per
// second. A block has the time stamp of its frame.
class PQ_EXPORT TPQColorsToReal final : public TPQCommonPlaneSink {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQColorsToReal(TComponent* owner = nullptr);
  ~TPQColorsToReal() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQScanMode GetScanMode() const { return scan_mode_.load(std::memory_order_relaxed); }
  void SetScanMode(TPQScanMode mode);

 protected:
  void ProcessImage(PQImageRef buffer) override;
  void SendStart(TJCStartFrameOperation& start) override;

 private:
  using Blocks = PQRef<TRWRealBuffer>[3];
  void Submit(Blocks& blocks);
  // Makes the other two blocks of a gray frame out of the first and sends all three.
  void SubmitGrayScale(Blocks& blocks, TPQColorMode mode);
  std::atomic<TPQScanMode> scan_mode_{smLine};
};

namespace PQColorsToReal {
PQ_EXPORT void Register();
}

}  // namespace pantiq
