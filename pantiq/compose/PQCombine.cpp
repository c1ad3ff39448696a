#include "pantiq/compose/PQCombine.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {

constinit const PQClassTag TPQCombine::kTag{"TPQCombine", &TPQCommonCombine::kTag};

const PQClassInfo& TPQCombine::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQCombine>("TPQCombine", "PQCombine", "Mixes two streams pixel by pixel.")
          .Inherits<TPQCommonCombine>()
          .Property(
              "CombineOperation", &TPQCombine::GetCombineOperation, &TPQCombine::SetCombineOperation, PQDefault(coAdd),
              PQActs::NextFrame,
              "What becomes of a (image 1) and b (image 2) where they overlap, byte by byte: coAdd a + b, "
              "coSubtract b - a, coMultiply a * b, coDivide b / a, all kept within 0 and 255; coOr, coAnd, coXor, "
              "coAbsDiff the difference without its sign; coCopy shows b.")
          .Pin("InputPins", &TPQCombine::InputPins, "The two images: the first is image 1, the second image 2.")
          .Done();
  return info;
}

TPQCombine::TPQCombine(TComponent* owner) : TPQCommonCombine(owner), InputPins(this, true) {
  for (int i = 0; i < 2; ++i) {
    auto pin = std::make_unique<TPQJCQueuedImageSinkPin>(*this, JCDispatch::To<&TPQMultiInput::SinkDispatch>(this));
    AddInput(static_cast<TPQJCQueuedImageSinkPin&>(InputPins.Own(std::move(pin))));
  }
}

void TPQCombine::SetCombineOperation(TPQCombineOperation operation) {
  auto section = Lock().WriteLock();
  operation_.store(operation, std::memory_order_relaxed);
}

void TPQCombine::DoCombineOp(const std::uint8_t* a, int a_step, const std::uint8_t* b, int b_step, std::uint8_t* dst,
                             int dst_step, IppiSize size, int pixel_size) {
  switch (GetCombineOperation()) {
    case coAdd:
      ippiAdd_8u_C3RSfs(a, a_step, b, b_step, dst, dst_step, size, 0);
      break;
    case coSubtract:
      ippiSub_8u_C3RSfs(a, a_step, b, b_step, dst, dst_step, size, 0);
      break;
    case coMultiply:
      ippiMul_8u_C3RSfs(a, a_step, b, b_step, dst, dst_step, size, 0);
      break;
    case coDivide:
      ippiDiv_8u_C3RSfs(a, a_step, b, b_step, dst, dst_step, size, 0);
      break;
    case coOr:
      ippiOr_8u_C3R(a, a_step, b, b_step, dst, dst_step, size);
      break;
    case coAnd:
      ippiAnd_8u_C3R(a, a_step, b, b_step, dst, dst_step, size);
      break;
    case coXor:
      ippiXor_8u_C3R(a, a_step, b, b_step, dst, dst_step, size);
      break;
    case coAbsDiff:
      ippiAbsDiff_8u_C1R(a, a_step, b, b_step, dst, dst_step, {size.width * pixel_size, size.height});
      break;
    case coCopy:
      ippiCopy_8u_C3R(b, b_step, dst, dst_step, size);
      break;
    default:
      ippiCopy_8u_C3R(a, a_step, dst, dst_step, size);
  }
}

void PQCombine::Register() {
  const PQClassInfo* const classes[] = {&TPQCombine::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
