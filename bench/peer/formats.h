// Pantiq's side of the rows that time SetFormat: a view of a held frame changes its format, storage from the pool included.
#pragma once
#include <cstring>
#include <memory>
#include <string>

#include "pantiq/core/PQSimpleImageBuffer.h"

namespace subject {

inline bench::Fn bind_formats(const std::string& kernel, const std::string&, const Work& w, const Params&) {
  using namespace pantiq;
  TPQVideoFormat from, to;
  if (kernel == "SetFormat RGB24 to GrayScale") {
    from = vfRGB24, to = vfGrayScale;
  } else if (kernel == "SetFormat GrayScale to RGB24") {
    from = vfGrayScale, to = vfRGB24;
  } else if (kernel == "SetFormat YUY2 to RGB24") {
    from = vfYUY2, to = vfRGB24;
  } else {
    return {};
  }
  auto frame = std::make_shared<PQRef<TPQImageBuffer>>(PQMakeRef<TPQImageBuffer>(w.width, w.height, from));
  std::uint8_t* pixels = (*frame)->Write();
  const Plane& source = from == vfGrayScale && w.plane[0].data != nullptr ? w.plane[0] : w.src;
  for (int y = 0; y < w.height; ++y) {
    std::memcpy(pixels + std::ptrdiff_t{y} * (*frame)->GetStep(), source.data + std::ptrdiff_t{y} * source.step,
                static_cast<std::size_t>((*frame)->GetStep()));
  }
  return [frame, to] { PQMakeRef<TPQImageBuffer>(**frame)->SetFormat(to); };
}

}  // namespace subject
