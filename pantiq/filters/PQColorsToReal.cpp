#include "pantiq/filters/PQColorsToReal.h"

#include <algorithm>

#include "pantiq/host/PQRegistry.h"

namespace pantiq {

constinit const PQClassTag TPQColorsToReal::kTag{"TPQColorsToReal", &TPQCommonPlaneSink::kTag};

namespace {

// A block of `count` numbers with the time of the frame.
PQRef<TRWRealBuffer> MakeBlock(std::int32_t count, const IPQImageBuffer& frame) {
  auto block = PQMakeRef<TRWRealBuffer>(count);
  block->GetTimeStamp() = frame.GetTimeStamp();
  block->GetSequenceStamp() = frame.GetSequenceStamp();
  return block;
}

}  // namespace

const PQClassInfo& TPQColorsToReal::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQColorsToReal>("TPQColorsToReal", "PQColorsToReal", "Turns the planes of frames into real-number streams.")
          .Inherits<TPQSinkFilter>()
          .Property("ColorMode", &TPQColorsToReal::GetColorMode, &TPQColorsToReal::SetColorMode, PQDefault(cmRGB),
                    PQActs::NextFrame,
                    "The colour space whose channels are sent. The three outputs are named after its channels.")
          .Property("ScanMode", &TPQColorsToReal::GetScanMode, &TPQColorsToReal::SetScanMode, PQDefault(smLine),
                    PQActs::NextFrame, "smLine sends a block for each row, smFrame one for each frame.")
          .Pin("OutputPins", &TPQColorsToReal::OutputPins, "The three planes, as numbers from 0 to 255.")
          .Done();
  return info;
}

TPQColorsToReal::TPQColorsToReal(TComponent* owner) : TPQCommonPlaneSink(owner) { AddPlanes<TRWJCRealSourcePin>(); }

void TPQColorsToReal::SetScanMode(TPQScanMode mode) {
  auto section = Lock().WriteLock();
  scan_mode_.store(mode, std::memory_order_relaxed);
}

void TPQColorsToReal::SendStart(TJCStartFrameOperation& start) {
  const float rate = static_cast<float>(start.Width) * static_cast<float>(start.Height) * start.Rate;
  const std::int64_t height = GetScanMode() == smLine ? 1 : start.Height;
  const std::int64_t block = std::clamp<std::int64_t>(start.Width * height, 0, 2147483647);
  NotifyOutputs(*PQMakeRef<TJCStartSampleRateOperation>(static_cast<std::int32_t>(block), rate));
}

void TPQColorsToReal::ProcessImage(PQImageRef buffer) {
  const TPQColorMode mode = GetColorMode();
  const bool by_line = GetScanMode() == smLine;
  if (PQModeNeedsColor(mode)) buffer->SetFormat(vfRGB24);
  const bool gray = buffer->GetFormat() == vfGrayScale;
  if (!gray) buffer->SetFormat(vfRGB24);
  const IppiSize size = buffer->GetSize();
  if (size.width < 1 || size.height < 1) return;
  const std::int32_t count = by_line ? size.width : size.width * size.height;
  Blocks blocks;
  if (gray) {
    const std::uint8_t* from = buffer->Read();
    for (int y = 0; y < (by_line ? size.height : 1); ++y) {
      blocks[0] = MakeBlock(count, *buffer);
      std::copy_n(from, count, blocks[0]->Write());
      SubmitGrayScale(blocks, mode);
      from += count;
    }
    return;
  }
  double* to[3];
  PQForColorRows(*buffer, mode, [&](std::int32_t first, const std::uint8_t* pixels, int step, IppiSize roi) {
    for (std::int32_t y = first; y < first + roi.height; ++y, pixels += step) {
      if (by_line || y == 0) {
        for (int k = 0; k < 3; ++k) {
          blocks[k] = MakeBlock(count, *buffer);
          to[k] = blocks[k]->Write();
        }
      }
      for (int x = 0; x < roi.width; ++x) {
        to[0][x] = pixels[3 * x];
        to[1][x] = pixels[3 * x + 1];
        to[2][x] = pixels[3 * x + 2];
      }
      for (double*& next : to) next += roi.width;
      if (by_line || y == size.height - 1) Submit(blocks);
    }
  });
}

void TPQColorsToReal::SubmitGrayScale(Blocks& blocks, TPQColorMode mode) {
  const std::int32_t count = blocks[0]->GetCount();
  for (int k = 1; k < 3; ++k) {
    blocks[k] = PQMakeRef<TRWRealBuffer>(count);
    blocks[k]->Assign(*blocks[0]);
  }
  const auto fill = [&](int k, double value) { std::fill_n(blocks[k]->Write(), count, value); };
  if (mode == cmHLS) fill(0, 0), fill(2, 0);
  if (mode == cmHSV) fill(0, 0), fill(1, 0);
  if (mode == cmYUV) fill(1, 128), fill(2, 128);
  Submit(blocks);
}

void TPQColorsToReal::Submit(Blocks& blocks) {
  for (int k = 0; k < 3; ++k) SubmitPlane(k, std::move(blocks[k]));
}

void PQColorsToReal::Register() {
  const PQClassInfo* const classes[] = {&TPQColorsToReal::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
