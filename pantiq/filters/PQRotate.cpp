#include "pantiq/filters/PQRotate.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQRotate::kTag{"TPQRotate", &TPQCommonSmoothMoveFilter::kTag};

const PQClassInfo& TPQRotate::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQRotate>("TPQRotate", "PQRotate", "Turns frames about their centre.")
          .Inherits<TPQCommonSmoothMoveFilter>()
          .Property("Angle", &TPQRotate::GetAngle, &TPQRotate::SetAngle, PQDefault(0.0), PQUseful(-360.0, 360.0),
                    PQUnit("degrees"), PQActs::NextFrame,
                    "The turn, counter-clockwise. It is what it says only with TrueDegrees: without, the picture turns by "
                    "Angle * pi / 180 degrees, a 57th of it, and its centre is placed for a turn by Angle.")
          .Property("TrueDegrees", &TPQRotate::GetTrueDegrees, &TPQRotate::SetTrueDegrees, PQDefault(false), PQActs::NextFrame,
                    "True turns the picture by Angle degrees about its centre, as people expect. False keeps the arithmetic of "
                    "older graphs.")
          .Property("Interpolation", &TPQRotate::GetInterpolation, &TPQRotate::SetInterpolation, PQDefault(imLinear),
                    PQActs::NextFrame,
                    "How values between pixels are found: imNearest, imLinear or imCubic; frames are black with the others.")
          .Done();
  return info;
}

double TPQRotate::GetAngle() const {
  auto section = Lock().ReadLock();
  return angle_;
}

void TPQRotate::SetAngle(double angle) {
  constexpr long double kPi = 3.14159265358979323846264338327950288L;
  auto section = Lock().WriteLock();
  if (angle == angle_) return;
  angle_ = angle;
  radians_ = static_cast<double>(angle * kPi / 180);
}

void TPQRotate::SetTrueDegrees(bool degrees) {
  if (degrees == GetTrueDegrees()) return;
  auto section = Lock().WriteLock();
  true_degrees_.store(degrees, std::memory_order_relaxed);
}

IppStatus TPQRotate::MovePixels(const Move& m) {
  double angle, turn;
  {
    auto section = Lock().ReadLock();
    angle = angle_;
    turn = GetTrueDegrees() ? angle_ : radians_;
  }
  double x_shift = 0, y_shift = 0;
  PQ_SLOT(ippiGetRotateShift)(m.source_size.width >> 1, m.source_size.height >> 1, angle, &x_shift, &y_shift);
  x_shift += (static_cast<double>(m.destination_size.width) - m.source_size.width) / 2;
  y_shift += (static_cast<double>(m.destination_size.height) - m.source_size.height) / 2;
  const int code = Code(m);
  return m.gray ? PQ_SLOT(ippiRotate_8u_C1R)(m.source, m.source_size, m.source_step, m.source_rect, m.destination,
                                             m.destination_step, m.destination_rect, turn, x_shift, y_shift, code)
                : PQ_SLOT(ippiRotate_8u_C3R)(m.source, m.source_size, m.source_step, m.source_rect, m.destination,
                                             m.destination_step, m.destination_rect, turn, x_shift, y_shift, code);
}

void PQRotate::Register() {
  const PQClassInfo* const classes[] = {&TPQRotate::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
