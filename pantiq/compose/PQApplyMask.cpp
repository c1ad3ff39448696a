#include "pantiq/compose/PQApplyMask.h"

#include <algorithm>

#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {

constinit const PQClassTag TPQApplyMask::kTag{"TPQApplyMask", &TPQCommonROIFilter::kTag};

const PQClassInfo& TPQApplyMask::Class() {
  using T = TPQApplyMask;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQApplyMask", "PQApplyMask", "Lays a still picture over frames; one colour of it is transparent.")
          .Inherits<TPQCommonROIFilter>()
          .Picture(
              "Picture", &T::GetPicture, PQActs::NextFrame, PQBareValue{},
              "The picture: a PNG, JPEG or BMP file. It lies with its upper left corner in that of the frame, or of "
              "an enabled Region.")
          .Property("TransparentColor", &T::GetTransparentColor, &T::SetTransparentColor, PQDefault(TColor{0}),
                    PQActs::NextFrame, "The colour of the picture that lets the frame through with tsCustom, $BBGGRR.")
          .Property(
              "Stretched", &T::GetStretched, &T::SetStretched, PQDefault(false), PQActs::NextFrame,
              "Fits the picture to the region or, without one, to the stream; acts when the picture or one of its "
              "settings changes while the stream runs.")
          .Property(
              "TransparentSource", &T::GetTransparentSource, &T::SetTransparentSource, PQDefault(tsTopLeft),
              PQActs::NextFrame,
              "Where the transparent colour comes from: the pixel in a corner of the picture, or TransparentColor.")
          .Done();
  return info;
}

TPQApplyMask::TPQApplyMask(TComponent* owner)
    : TPQCommonROIFilter(owner), overlay_(PQMakeRef<TPQImageBuffer>()), mask_(PQMakeRef<TPQImageBuffer>()) {
  picture_.OnChange = [this] { PictureChanged(); };
}

void TPQApplyMask::SetPicture(const TPicture& picture) { picture_.Assign(picture); }

void TPQApplyMask::SetTransparentColor(TColor color) {
  {
    auto section = Lock().WriteLock();
    if (color == GetTransparentColor()) return;
    transparent_color_.store(color, std::memory_order_relaxed);
  }
  PictureChanged();
}

void TPQApplyMask::SetStretched(bool stretched) {
  {
    auto section = Lock().WriteLock();
    if (stretched == GetStretched()) return;
    stretched_.store(stretched, std::memory_order_relaxed);
  }
  PictureChanged();
}

void TPQApplyMask::SetTransparentSource(TPQTransparentSource source) {
  {
    auto section = Lock().WriteLock();
    if (source == GetTransparentSource()) return;
    transparent_source_.store(source, std::memory_order_relaxed);
  }
  PictureChanged();
}

std::int32_t TPQApplyMask::GetMaskWidth() {
  const TPQRectRegion::Values region = GetRegion().Get();
  return region.enabled ? region.width : std::max(StreamWidth(), 0);
}

std::int32_t TPQApplyMask::GetMaskHeight() {
  const TPQRectRegion::Values region = GetRegion().Get();
  return region.enabled ? region.height : std::max(StreamHeight(), 0);
}

void TPQApplyMask::PictureChanged() {
  std::string refused;
  {
    std::lock_guard preparing(preparing_);
    Prepare(refused);
  }
  if (!refused.empty()) {
    Report(this, PQSeverity::Warning, refused, 0,
           "at most " + std::to_string(kPQMostPicturePixels) + " pixels are possible; make the Region smaller");
  }
}

void TPQApplyMask::Prepare(std::string& refused) {
  const auto picture = picture_.GetSnapshot();
  auto overlay = PQMakeRef<TPQImageBuffer>(), mask = PQMakeRef<TPQImageBuffer>();
  const TBitmap* bitmap = picture.get();
  TPQBitmap fitted;
  if (running_.load(std::memory_order_relaxed) && GetStretched() && !picture->IsEmpty()) {
    const std::int32_t width = GetMaskWidth(), height = GetMaskHeight();
    if (std::int64_t{width} * height <= kPQMostPicturePixels) {
      fitted.SetSize(width, height);
      fitted.StretchDraw(*picture);
    } else {
      refused = "the picture cannot be fitted to " + std::to_string(width) + " by " + std::to_string(height) +
                " pixels, frames pass without it";
    }
    bitmap = &fitted;
  }
  if (!bitmap->IsEmpty()) {
    overlay->LoadPQBitmap(*bitmap);
    mask->LoadPQBitmap(*bitmap);
    const int right = bitmap->GetWidth() - 1, bottom = bitmap->GetHeight() - 1;
    TColor key = GetTransparentColor();
    switch (GetTransparentSource()) {
      case tsTopLeft:
        key = mask->GetPixel(0, 0);
        break;
      case tsTopRight:
        key = mask->GetPixel(right, 0);
        break;
      case tsBottomLeft:
        key = mask->GetPixel(0, bottom);
        break;
      case tsBottomRight:
        key = mask->GetPixel(right, bottom);
        break;
      default:
        break;
    }
    std::uint8_t* const pixels = mask->Modify();
    const int step = mask->GetStep();
    const IppiSize size = mask->GetSize();
    for (int y = 0; y < size.height; ++y) {
      std::uint8_t* pixel = pixels + std::ptrdiff_t{y} * step;
      for (int x = 0; x < size.width; ++x, pixel += 3) {
        const TColor color = pixel[2] | TColor{pixel[1]} << 8 | TColor{pixel[0]} << 16;
        pixel[0] = pixel[1] = pixel[2] = color == key ? 0xff : 0;
      }
    }
    ippiNot_8u_C3IR(pixels, step, size);
    ippiAnd_8u_C3IR(pixels, step, overlay->Modify(), overlay->GetStep(), size);
    ippiNot_8u_C3IR(pixels, step, size);
  }
  auto section = Lock().WriteLock();
  overlay_ = std::move(overlay), mask_ = std::move(mask);
}

void TPQApplyMask::Stop() {
  TPQCommonROIFilter::Stop();
  running_.store(false, std::memory_order_relaxed);
}

void TPQApplyMask::SetSizeRate(std::int32_t& width, std::int32_t& height, std::int64_t frame_delay) {
  TPQCommonROIFilter::SetSizeRate(width, height, frame_delay);
  running_.store(true, std::memory_order_relaxed);
}

void TPQApplyMask::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  if (out != in) out->Assign(*in);
  PQRef<TPQImageBuffer> overlay, mask;
  {
    auto section = Lock().ReadLock();
    overlay = overlay_, mask = mask_;
  }
  if (overlay->GetWidth() == 0 || overlay->GetHeight() == 0) return;
  int width, height, left = 0, top = 0;
  const TPQRectRegion::Values region = GetRegion().Get();
  if (region.enabled) {
    left = region.left, top = region.top;
    width = std::min<int>(mask->GetWidth(), region.width), height = std::min<int>(mask->GetHeight(), region.height);
    if (left + width > in->GetWidth()) width = in->GetWidth() - left;
    if (top + height > in->GetHeight()) height = in->GetHeight() - top;
  } else {
    width = std::min(in->GetWidth(), mask->GetWidth()), height = std::min(in->GetHeight(), mask->GetHeight());
  }
  if (width < 1 || height < 1) return;
  std::uint8_t* const to =
      out->Modify() + std::ptrdiff_t{top} * out->GetStep() + std::ptrdiff_t{left} * out->GetPixelSize();
  ippiAnd_8u_C3IR(mask->Read(), mask->GetStep(), to, out->GetStep(), {width, height});
  ippiOr_8u_C3IR(overlay->Read(), overlay->GetStep(), to, out->GetStep(), {width, height});
}

void PQApplyMask::Register() {
  const PQClassInfo* const classes[] = {&TPQApplyMask::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
