#include "pantiq/filters/PQColorSplit.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQColorSplit::kTag{"TPQColorSplit", &TPQCommonPlaneSink::kTag};

const PQClassInfo& TPQColorSplit::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQColorSplit>("TPQColorSplit", "PQColorSplit", "Takes frames apart into three gray planes.")
          .Inherits<TPQSinkFilter>()
          .Property("ColorMode", &TPQColorSplit::GetColorMode, &TPQColorSplit::SetColorMode, PQDefault(cmRGB),
                    PQActs::NextFrame,
                    "The colour space whose channels are sent. The three outputs are named after its channels.")
          .Pin("OutputPins", &TPQColorSplit::OutputPins, "The three planes, as gray frames.")
          .Done();
  return info;
}

TPQColorSplit::TPQColorSplit(TComponent* owner) : TPQCommonPlaneSink(owner) { AddPlanes<TPQJCImageSourcePin>(); }

void TPQColorSplit::ProcessImage(PQImageRef buffer) {
  const TPQColorMode mode = GetColorMode();
  if (PQModeNeedsColor(mode)) buffer->SetFormat(vfRGB24);
  PQImageRef planes[3];
  if (buffer->GetFormat() == vfGrayScale) {
    for (PQImageRef& plane : planes) plane = PQMakeRef<TPQImageBuffer>(*buffer);
    const auto is_zero = [&](int i) { planes[i]->Clear(); };
    if (mode == cmHLS) is_zero(0), is_zero(2);
    if (mode == cmHSV) is_zero(0), is_zero(1);
    if (mode == cmYUV) planes[1]->Fill(0x808080), planes[2]->Fill(0x808080);
  } else {
    buffer->SetFormat(vfRGB24);
    const IppiSize size = buffer->GetSize();
    std::uint8_t* pixels[3];
    for (int i = 0; i < 3; ++i) {
      planes[i] = PQMakeRef<TPQImageBuffer>(size.width, size.height, vfGrayScale);
      PQCopyStamps(*buffer, *planes[i]);
      pixels[i] = planes[i]->Write();
    }
    const int step = planes[0]->GetStep();
    if (mode == cmRGB) {  // the frame's own channels, the last one first
      std::uint8_t* const reversed[3] = {pixels[2], pixels[1], pixels[0]};
      PQ_SLOT(ippiCopy_8u_C3P3R)(buffer->Read(), buffer->GetStep(), reversed, step, size);
    } else {
      PQForColorRows(*buffer, mode, [&](std::int32_t row, const std::uint8_t* rows, int rows_step, IppiSize roi) {
        const std::ptrdiff_t offset = std::ptrdiff_t{row} * step;
        std::uint8_t* const to[3] = {pixels[0] + offset, pixels[1] + offset, pixels[2] + offset};
        PQ_SLOT(ippiCopy_8u_C3P3R)(rows, rows_step, to, step, roi);
      });
    }
  }
  for (int i = 0; i < 3; ++i) SubmitPlane(i, std::move(planes[i]));
}

void PQColorSplit::Register() {
  const PQClassInfo* const classes[] = {&TPQColorSplit::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
