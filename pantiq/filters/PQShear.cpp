#include "pantiq/filters/PQShear.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQShear::kTag{"TPQShear", &TPQCommonSmoothMoveFilter::kTag};

const PQClassInfo& TPQShear::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQShear>("TPQShear", "PQShear", "Slants frames.")
          .Inherits<TPQCommonSmoothMoveFilter>()
          .Property("XShear", &TPQShear::GetXShear, &TPQShear::SetXShear, PQDefault(0), PQUseful(-2000, 2000), PQUnit("pixels"),
                    PQActs::NextFrame, "How far the bottom row is shifted right against the top row.")
          .Property("YShear", &TPQShear::GetYShear, &TPQShear::SetYShear, PQDefault(0), PQUseful(-2000, 2000), PQUnit("pixels"),
                    PQActs::NextFrame, "How far the right column is shifted down against the left column.")
          .Property("Interpolation", &TPQShear::GetInterpolation, &TPQShear::SetInterpolation, PQDefault(imLinear),
                    PQActs::NextFrame,
                    "How values between pixels are found: imNearest, imLinear or imCubic; frames are black with the others.")
          .Object("OutputSize", &TPQShear::GetOutputSize, PQActs::NextStart,
                  "Size of the output; 0 keeps the input's size on that axis. A size below the input's gives black frames.")
          .Done();
  return info;
}

void TPQShear::SetXShear(std::int32_t pixels) {
  auto section = Lock().WriteLock();
  x_shear_.store(pixels, std::memory_order_relaxed);
}

void TPQShear::SetYShear(std::int32_t pixels) {
  auto section = Lock().WriteLock();
  y_shear_.store(pixels, std::memory_order_relaxed);
}

IppStatus TPQShear::MovePixels(const Move& m) {
  const std::int32_t x = GetXShear(), y = GetYShear();
  const double x_factor = static_cast<double>(x) / m.source_size.height, y_factor = static_cast<double>(y) / m.source_size.width;
  const auto difference = [](int output, int source) {
    return static_cast<double>(static_cast<float>(static_cast<std::uint32_t>(output) - static_cast<std::uint32_t>(source)));
  };
  const double x_shift = difference(m.destination_size.width, m.source_size.width) / 2 - x / 2;
  const double y_shift = difference(m.destination_size.height, m.source_size.height) / 2 - y / 2;
  const int code = Code(m);
  return m.gray ? PQ_SLOT(ippiShear_8u_C1R)(m.source, m.source_size, m.source_step, m.source_rect, m.destination,
                                            m.destination_step, m.destination_rect, x_factor, y_factor, x_shift, y_shift, code)
                : PQ_SLOT(ippiShear_8u_C3R)(m.source, m.source_size, m.source_step, m.source_rect, m.destination,
                                            m.destination_step, m.destination_rect, x_factor, y_factor, x_shift, y_shift, code);
}

void PQShear::Register() {
  const PQClassInfo* const classes[] = {&TPQShear::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
