#include "pantiq/core/PQRegion.h"

#include "pantiq/host/PQClassInfo.h"

namespace pantiq {

constinit const PQClassTag TPQSize::kTag{"TPQSize", &TPersistent::kTag};
constinit const PQClassTag TPQOffset::kTag{"TPQOffset", &TPersistent::kTag};
constinit const PQClassTag TPQAnchor::kTag{"TPQAnchor", &TPersistent::kTag};
constinit const PQClassTag TPQRectRegion::kTag{"TPQRectRegion", &TPersistent::kTag};

const PQClassInfo& TPQSize::Class() {
  static const PQClassInfo& info = PQDescribe<TPQSize>("TPQSize", "PQRegion", "A width and a height.")
                                       .Property("Width", &TPQSize::GetWidth, &TPQSize::SetWidth, PQDefault(0),
                                                 PQUseful(0, 16384), PQUnit("pixels"), "Width.")
                                       .Property("Height", &TPQSize::GetHeight, &TPQSize::SetHeight, PQDefault(0),
                                                 PQUseful(0, 16384), PQUnit("pixels"), "Height.")
                                       .Done();
  return info;
}

const PQClassInfo& TPQOffset::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQOffset>("TPQOffset", "PQRegion", "A horizontal and a vertical distance.")
          .Property("X", &TPQOffset::GetX, &TPQOffset::SetX, PQDefault(0), PQUseful(-16384, 16384), PQUnit("pixels"),
                    "To the right.")
          .Property("Y", &TPQOffset::GetY, &TPQOffset::SetY, PQDefault(0), PQUseful(-16384, 16384), PQUnit("pixels"),
                    "Downward.")
          .Done();
  return info;
}

const PQClassInfo& TPQAnchor::Class() {
  const auto kept = [](const TPersistent& anchor) { return PQCast<const TPQAnchor>(&anchor)->IsAway(); };
  static const PQClassInfo& info =
      PQDescribe<TPQAnchor>("TPQAnchor", "PQRegion", "A place inside a mask, from its top left.")
          .Property("X", &TPQAnchor::GetX, &TPQAnchor::SetX, PQDefault(0), PQUseful(0, 255), PQUnit("pixels"),
                    PQKept(kept), "Column.")
          .Property("Y", &TPQAnchor::GetY, &TPQAnchor::SetY, PQDefault(0), PQUseful(0, 255), PQUnit("pixels"),
                    PQKept(kept), "Row.")
          .Done();
  return info;
}

const PQClassInfo& TPQRectRegion::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQRectRegion>("TPQRectRegion", "PQRegion", "A rectangle of a frame.")
          .Property("Enabled", &TPQRectRegion::GetEnabled, &TPQRectRegion::SetEnabled, PQDefault(false),
                    "Whether a filter works on the rectangle only.")
          .Property("Width", &TPQRectRegion::GetWidth, &TPQRectRegion::SetWidth, PQDefault(240), PQUseful(1, 16384),
                    PQUnit("pixels"), "Width of the rectangle.")
          .Property("Height", &TPQRectRegion::GetHeight, &TPQRectRegion::SetHeight, PQDefault(180), PQUseful(1, 16384),
                    PQUnit("pixels"), "Height of the rectangle.")
          .Property("Left", &TPQRectRegion::GetLeft, &TPQRectRegion::SetLeft, PQDefault(0), PQUseful(0, 16384),
                    PQUnit("pixels"), "First column.")
          .Property("Top", &TPQRectRegion::GetTop, &TPQRectRegion::SetTop, PQDefault(0), PQUseful(0, 16384),
                    PQUnit("pixels"), "First row.")
          .Done();
  return info;
}

}  // namespace pantiq
