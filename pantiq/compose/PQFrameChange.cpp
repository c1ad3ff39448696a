#include "pantiq/compose/PQFrameChange.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {

constinit const PQClassTag TPQFrameChange::kTag{"TPQFrameChange", &TPQCommonFilter::kTag};

const PQClassInfo& TPQFrameChange::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQFrameChange>("TPQFrameChange", "PQFrameChange", "Computes each frame with the frame before it.")
          .Inherits<TPQCommonFilter>()
          .Property(
              "FrameChangeOperation", &TPQFrameChange::GetFrameChangeOperation,
              &TPQFrameChange::SetFrameChangeOperation, PQDefault(fcoAbsDiff), PQActs::NextFrame,
              "What becomes of the present frame (in) and the one before (prev), byte by byte: fcoAdd in + prev, "
              "fcoSubtractOld prev - in, fcoSubtractNew in - prev, fcoMultiply in * prev, fcoDivideOld prev / in, "
              "fcoDivideNew in / prev, all kept within 0 and 255; fcoOr, fcoAnd, fcoXor, fcoAbsDiff the "
              "difference without its sign. The first frame after a start passes unchanged.")
          .Done();
  return info;
}

TPQFrameChange::TPQFrameChange(TComponent* owner) : TPQCommonFilter(owner), previous_(PQMakeRef<TPQImageBuffer>()) {
  SerialiseFrames();
}

void TPQFrameChange::SetFrameChangeOperation(TPQFrameChangeOperation operation) {
  auto section = Lock().WriteLock();
  operation_.store(operation, std::memory_order_relaxed);
}

void TPQFrameChange::Reset() {
  TPQCommonFilter::Reset();
  have_previous_ = false;
}

namespace {

using Scaled = IppStatus (*)(const std::uint8_t*, int, const std::uint8_t*, int, std::uint8_t*, int, IppiSize, int);
using Plain = IppStatus (*)(const std::uint8_t*, int, const std::uint8_t*, int, std::uint8_t*, int, IppiSize);

// A kernel of either form, for colour and for gray, and whether the frame before is its first operand.
struct Operation {
  Scaled scaled_c3, scaled_c1;
  Plain plain_c3, plain_c1;
  bool previous_first;
};

constexpr Operation kOperations[] = {
    {ippiAdd_8u_C3RSfs, ippiAdd_8u_C1RSfs, nullptr, nullptr, false},
    {ippiSub_8u_C3RSfs, ippiSub_8u_C1RSfs, nullptr, nullptr, false},
    {ippiSub_8u_C3RSfs, ippiSub_8u_C1RSfs, nullptr, nullptr, true},
    {ippiMul_8u_C3RSfs, ippiMul_8u_C1RSfs, nullptr, nullptr, false},
    {ippiDiv_8u_C3RSfs, ippiDiv_8u_C1RSfs, nullptr, nullptr, false},
    {ippiDiv_8u_C3RSfs, ippiDiv_8u_C1RSfs, nullptr, nullptr, true},
    {nullptr, nullptr, ippiOr_8u_C3R, ippiOr_8u_C1R, false},
    {nullptr, nullptr, ippiAnd_8u_C3R, ippiAnd_8u_C1R, false},
    {nullptr, nullptr, ippiXor_8u_C3R, ippiXor_8u_C1R, false},
};

}  // namespace

void TPQFrameChange::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  const TPQFrameChangeOperation operation = GetFrameChangeOperation();
  const bool alike = have_previous_ && previous_->GetWidth() == in->GetWidth() &&
                     previous_->GetHeight() == in->GetHeight() && previous_->GetFormat() == in->GetFormat();
  have_previous_ = true;
  if (alike && operation <= fcoAbsDiff) {
    IppiSize roi = in->GetSize();
    const std::uint8_t *first = in->Read(), *second = previous_->Read();
    const int step = in->GetStep();
    std::uint8_t* const to = out->Write();
    const bool gray = in->GetFormat() == vfGrayScale;
    if (operation == fcoAbsDiff) {
      roi.width *= in->GetPixelSize();
      ippiAbsDiff_8u_C1R(first, step, second, step, to, out->GetStep(), roi);
    } else {
      const Operation& kernels = kOperations[operation];
      if (kernels.previous_first) std::swap(first, second);
      if (const Scaled scaled = gray ? kernels.scaled_c1 : kernels.scaled_c3) {
        scaled(first, step, second, step, to, out->GetStep(), roi, 0);
      } else {
        (gray ? kernels.plain_c1 : kernels.plain_c3)(first, step, second, step, to, out->GetStep(), roi);
      }
    }
  }
  previous_->Assign(*in);
}

void PQFrameChange::Register() {
  const PQClassInfo* const classes[] = {&TPQFrameChange::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
