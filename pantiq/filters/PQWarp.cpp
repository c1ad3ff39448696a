#include "pantiq/filters/PQWarp.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQWarp::kTag{"TPQWarp", &TPQCommonSmoothMoveFilter::kTag};

const PQClassInfo& TPQWarp::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQWarp>("TPQWarp", "PQWarp", "Moves the corners of frames.")
          .Inherits<TPQCommonSmoothMoveFilter>()
          .Property("WarpType", &TPQWarp::GetWarpType, &TPQWarp::SetWarpType, PQDefault(wtBilinear), PQActs::NextFrame,
                    "wtBilinear keeps distances along the sides, wtPerspective keeps straight lines.")
          .Property("InverseTransform", &TPQWarp::GetInverseTransform, &TPQWarp::SetInverseTransform, PQDefault(false),
                    PQActs::NextFrame, "True takes the quadrangle that the corners make back to the whole picture.")
          .Object("LeftTopOffset", &TPQWarp::GetLeftTopOffset, PQActs::NextFrame, "Move of the left top corner.")
          .Object("RightTopOffset", &TPQWarp::GetRightTopOffset, PQActs::NextFrame, "Move of the right top corner.")
          .Object("LeftBottomOffset", &TPQWarp::GetLeftBottomOffset, PQActs::NextFrame, "Move of the left bottom corner.")
          .Object("RightBottomOffset", &TPQWarp::GetRightBottomOffset, PQActs::NextFrame, "Move of the right bottom corner.")
          .Property("Interpolation", &TPQWarp::GetInterpolation, &TPQWarp::SetInterpolation, PQDefault(imLinear),
                    PQActs::NextFrame,
                    "How values between pixels are found: imNearest, imLinear or imCubic; frames are black with the others.")
          .Done();
  return info;
}

TPQWarp::TPQWarp(TComponent* owner)
    : TPQCommonSmoothMoveFilter(owner),
      left_top_(Lock(), 0, 0),
      right_top_(Lock(), 0, 0),
      left_bottom_(Lock(), 0, 0),
      right_bottom_(Lock(), 0, 0) {}

void TPQWarp::SetInverseTransform(bool inverse) {
  if (inverse == GetInverseTransform()) return;
  auto section = Lock().WriteLock();
  inverse_.store(inverse, std::memory_order_relaxed);
}

void TPQWarp::SetWarpType(TPQWarpType type) {
  if (type == GetWarpType()) return;
  auto section = Lock().WriteLock();
  warp_type_.store(type, std::memory_order_relaxed);
}

void TPQWarp::Corners(const Move& m, double quad[4][2]) const {
  TPQOffset::Values offsets[4];
  {
    auto section = Lock().ReadLock();
    offsets[0] = left_top_.Get(), offsets[1] = right_top_.Get();
    offsets[2] = right_bottom_.Get(), offsets[3] = left_bottom_.Get();
  }
  const int w = m.source_rect.width, h = m.source_rect.height;
  const int dx = (m.destination_size.width - w) / 2, dy = (m.destination_size.height - h) / 2;
  const int x[4] = {dx, w + dx, w + dx, dx}, y[4] = {dy, dy, h + dy, h + dy};
  for (int i = 0; i < 4; ++i) {
    quad[i][0] = static_cast<double>(offsets[i].x) + x[i];
    quad[i][1] = static_cast<double>(offsets[i].y) + y[i];
  }
}

// The corners stand one pixel outside the last column and row, so a warp that moves nothing would not give the frame back.
bool TPQWarp::IsIdentity(const Move& m) const {
  constexpr TPQOffset::Values kNone{0, 0};
  const TPQImageRect& r = m.source_rect;
  return r.x == 0 && r.y == 0 && r.width == m.source_size.width && r.height == m.source_size.height &&
         r.width == m.destination_size.width && r.height == m.destination_size.height && left_top_.Get() == kNone &&
         right_top_.Get() == kNone && left_bottom_.Get() == kNone && right_bottom_.Get() == kNone;
}

IppStatus TPQWarp::MovePixels(const Move& m) {
  double quad[4][2];
  Corners(m, quad);
  const int code = Code(m);
  const auto call = [&](auto colour, auto gray, const auto& matrix) {
    return (m.gray ? gray : colour)(m.source, m.source_size, m.source_step, m.source_rect, m.destination, m.destination_step,
                                    m.destination_rect, matrix, code);
  };
  if (GetWarpType() == wtPerspective) {
    double matrix[3][3] = {};  // stays so if there is no transform; the warp then refuses
    PQ_SLOT(ippiGetPerspectiveTransform)(m.source_rect, quad, &matrix[0][0]);
    return GetInverseTransform()
               ? call(PQ_SLOT(ippiWarpPerspectiveBack_8u_C3R), PQ_SLOT(ippiWarpPerspectiveBack_8u_C1R), matrix)
               : call(PQ_SLOT(ippiWarpPerspective_8u_C3R), PQ_SLOT(ippiWarpPerspective_8u_C1R), matrix);
  }
  double matrix[2][4] = {};
  PQ_SLOT(ippiGetBilinearTransform)(m.source_rect, quad, &matrix[0][0]);
  return GetInverseTransform() ? call(PQ_SLOT(ippiWarpBilinearBack_8u_C3R), PQ_SLOT(ippiWarpBilinearBack_8u_C1R), matrix)
                               : call(PQ_SLOT(ippiWarpBilinear_8u_C3R), PQ_SLOT(ippiWarpBilinear_8u_C1R), matrix);
}

void PQWarp::Register() {
  const PQClassInfo* const classes[] = {&TPQWarp::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
