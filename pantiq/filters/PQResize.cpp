#include "pantiq/filters/PQResize.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQResizeDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQResize::kTag{"TPQResize", &TPQCommonMoveFilter::kTag};

const PQClassInfo& TPQResize::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQResize>("TPQResize", "PQResize", "Gives frames another size.")
          .Inherits<TPQCommonMoveFilter>()
          .Property("Interpolation", &TPQResize::GetInterpolation, &TPQResize::SetInterpolation, PQDefault(imLinear),
                    PQActs::NextFrame,
                    "How values between pixels are found. imSuper averages areas and is the best for making frames smaller; it "
                    "cannot make them larger. imCubic and imLanczos keep edges sharp.")
          .Object("OutputSize", &TPQResize::GetOutputSize, PQActs::NextStart,
                  "Size of the output; 0 keeps the input's size on that axis.")
          .Done();
  return info;
}

IppStatus TPQResize::MovePixels(const Move& m) {
  const double x_factor = static_cast<double>(m.destination_size.width) / m.source_rect.width;
  const double y_factor = static_cast<double>(m.destination_size.height) / m.source_rect.height;
  return m.gray ? PQ_SLOT(ippiResize_8u_C1R)(m.source, m.source_size, m.source_step, m.source_rect, m.destination,
                                             m.destination_step, m.destination_size, x_factor, y_factor, m.code)
                : PQ_SLOT(ippiResize_8u_C3R)(m.source, m.source_size, m.source_step, m.source_rect, m.destination,
                                             m.destination_step, m.destination_size, x_factor, y_factor, m.code);
}

void PQResize::Register() {
  const PQClassInfo* const classes[] = {&TPQResize::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
