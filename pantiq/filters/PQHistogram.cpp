#include "pantiq/filters/PQHistogram.h"

#include <algorithm>

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQHistogram::kTag{"TPQHistogram", &TPQCommonPlaneSink::kTag};

const PQClassInfo& TPQHistogram::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQHistogram>("TPQHistogram", "PQHistogram", "Counts the values of each frame, channel by channel.")
          .Inherits<TPQSinkFilter>()
          .Property("LowerLevel", &TPQHistogram::GetLowerLevel, &TPQHistogram::SetLowerLevel, PQDefault(std::uint16_t{0}),
                    PQUseful(std::uint16_t{0}, std::uint16_t{255}), PQActs::NextFrame,
                    "First value counted, 0 to 255; above UpperLevel it moves that along.")
          .Property("UpperLevel", &TPQHistogram::GetUpperLevel, &TPQHistogram::SetUpperLevel, PQDefault(std::uint16_t{255}),
                    PQUseful(std::uint16_t{0}, std::uint16_t{255}), PQActs::NextFrame,
                    "Last value counted, 0 to 255; below LowerLevel it moves that along.")
          .Property("ColorMode", &TPQHistogram::GetColorMode, &TPQHistogram::SetColorMode, PQDefault(cmRGB), PQActs::NextFrame,
                    "The colour space whose channels are counted. The three outputs are named after its channels.")
          .Pin("OutputPins", &TPQHistogram::OutputPins, "The three histograms, a block of numbers for each frame.")
          .Done();
  return info;
}

TPQHistogram::TPQHistogram(TComponent* owner) : TPQCommonPlaneSink(owner) { AddPlanes<TRWJCRealSourcePin>(); }

void TPQHistogram::SetLowerLevel(std::uint16_t level) {
  level = std::min<std::uint16_t>(level, 255);
  auto section = Lock().WriteLock();
  levels_ = {level, std::max(level, levels_.upper)};
}

void TPQHistogram::SetUpperLevel(std::uint16_t level) {
  level = std::min<std::uint16_t>(level, 255);
  auto section = Lock().WriteLock();
  levels_ = {std::min(level, levels_.lower), level};
}

void TPQHistogram::SendStart(TJCStartFrameOperation& start) {
  const int n = GetLevels().Count();
  NotifyOutputs(*PQMakeRef<TJCStartIntensityOperation>(n, n * static_cast<double>(start.Rate)));
}

void TPQHistogram::ProcessImage(PQImageRef buffer) {
  const TPQColorMode mode = GetColorMode();
  const Levels levels = GetLevels();
  const int n = levels.Count();
  const IppiSize size = buffer->GetSize();
  if (PQModeNeedsColor(mode)) buffer->SetFormat(vfRGB24);

  std::int32_t counts[3][256] = {};
  int level_array[258];
  if (buffer->GetFormat() == vfGrayScale) {
    PQ_SLOT(ippiHistogramEven_8u_C1R)
    (buffer->Read(), buffer->GetStep(), size, counts[0], level_array, n + 1, levels.lower, levels.upper + 1);
    const auto move = [&](int to) { std::copy_n(counts[0], n, counts[to]); };
    const auto clear = [&](int k) { std::fill_n(counts[k], n, 0); };
    if (mode == cmRGB) move(1), move(2);
    if (mode == cmHLS) move(1), clear(0);
    if (mode == cmHSV) move(2), clear(0);
    // All chroma counts as the level 127, which may lie outside what is counted.
    if (mode == cmYUV && n > 127) counts[1][127] = counts[2][127] = size.width * size.height;
  } else {
    buffer->SetFormat(vfRGB24);
    std::int32_t part[3][256];
    int* level_arrays[3] = {level_array, level_array, level_array};
    int level_counts[3] = {n + 1, n + 1, n + 1};
    int lower[3] = {levels.lower, levels.lower, levels.lower};
    int upper[3] = {levels.upper + 1, levels.upper + 1, levels.upper + 1};
    if (mode == cmRGB) {  // the frame's own channels, the last one first
      int* histograms[3] = {counts[2], counts[1], counts[0]};
      PQ_SLOT(ippiHistogramEven_8u_C3R)
      (buffer->Read(), buffer->GetStep(), size, histograms, level_arrays, level_counts, lower, upper);
    } else {
      int* histograms[3] = {part[0], part[1], part[2]};
      PQForColorRows(*buffer, mode, [&](std::int32_t, const std::uint8_t* rows, int step, IppiSize roi) {
        PQ_SLOT(ippiHistogramEven_8u_C3R)(rows, step, roi, histograms, level_arrays, level_counts, lower, upper);
        for (int k = 0; k < 3; ++k) {
          for (int i = 0; i < n; ++i) counts[k][i] += part[k][i];
        }
      });
    }
  }
  for (int k = 0; k < 3; ++k) {
    auto block = PQMakeRef<TRWRealBuffer>(n);
    block->GetTimeStamp() = buffer->GetTimeStamp();
    block->GetSequenceStamp() = buffer->GetSequenceStamp();
    ippsConvert_32s64f(counts[k], block->Write(), n);
    SubmitPlane(k, std::move(block));
  }
}

void PQHistogram::Register() {
  const PQClassInfo* const classes[] = {&TPQHistogram::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
