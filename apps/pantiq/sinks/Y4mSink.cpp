#include "Y4mSink.h"

#include <numeric>

namespace pantiq::app {

constinit const PQClassTag Y4mSink::kTag{"y4m", &ImageSink::kTag};

const PQClassInfo& Y4mSink::Class() {
  static const PQClassInfo& info =
      PQDescribe<Y4mSink>("y4m", "Y4mSink", "Writes raw video (YUV4MPEG2: 4:4:4, full range; gray frames as mono).")
          .Inherits<ImageSink>()
          .Property("FileName", &Y4mSink::GetFileName, &Y4mSink::SetFileName, PQDefault("-"), PQBareValue{},
                    PQFile(PQFileUse::Write), PQActs::NextStart, "File for the video; - is standard output.")
          .Done();
  return info;
}

void PlanesOf(const std::uint8_t* bgr, std::size_t pixels, std::uint8_t* planes) {
  std::uint8_t* y = planes;
  std::uint8_t* cb = planes + pixels;
  std::uint8_t* cr = planes + 2 * pixels;
  constexpr int kMiddle = (128 << 16) + 32767;
  for (std::size_t i = 0; i < pixels; ++i, bgr += 3) {
    const int b = bgr[0], g = bgr[1], r = bgr[2];
    y[i] = static_cast<std::uint8_t>((19595 * r + 38470 * g + 7471 * b + 32768) >> 16);
    cb[i] = static_cast<std::uint8_t>((-11059 * r - 21709 * g + 32768 * b + kMiddle) >> 16);
    cr[i] = static_cast<std::uint8_t>((32768 * r - 27439 * g - 5329 * b + kMiddle) >> 16);
  }
}

FrameRate FrameRateOf(std::int64_t delay) {
  if (delay < 1) return {0, 0};
  for (std::int64_t rate = 1; rate <= 240; ++rate) {
    if ((20000000 / rate + 1) / 2 == delay) return {rate, 1};
    if ((20020000 / rate + 1) / 2 == delay) return {rate * 1000, 1001};
  }
  const std::int64_t common = std::gcd(std::int64_t{10000000}, delay);
  return {10000000 / common, delay / common};
}

PQStatus Y4mSink::Frame(const TPQImageBuffer& frame, std::int64_t number) {
  if (frame.GetByteSize() == 0) {
    return PQStatus(PQCode::BadValue, "frame " + std::to_string(number) + " has no pixels (" + SizeText(frame) + ")");
  }
  const bool gray = frame.GetFormat() == vfGrayScale;
  if (headed_ && (gray != gray_ || frame.GetWidth() != width_ || frame.GetHeight() != height_)) {
    return PQStatus(PQCode::Refused,
                    "frame " + std::to_string(number) + " is " + SizeText(frame) + (gray ? " in gray" : " in colour") +
                        " in a stream of " + std::to_string(width_) + "x" + std::to_string(height_) +
                        (gray_ ? " in gray" : " in colour") + "; y4m holds one size and kind of frame");
  }
  if (PQStatus status = file_.Open(GetFileName()); !status.Ok()) return status;
  if (!headed_) {
    headed_ = true, gray_ = gray, width_ = frame.GetWidth(), height_ = frame.GetHeight();
    const FrameRate rate = FrameRateOf(FrameDelay());
    const std::string header = "YUV4MPEG2 W" + std::to_string(width_) + " H" + std::to_string(height_) + " F" +
                               std::to_string(rate.numerator) + ":" + std::to_string(rate.denominator) + " Ip A1:1 " +
                               (gray ? "Cmono" : "C444") + " XCOLORRANGE=FULL\n";
    if (PQStatus status = file_.Write(header); !status.Ok()) return status;
  }
  if (PQStatus status = file_.Write("FRAME\n"); !status.Ok()) return status;
  if (gray) return file_.Write(frame.Read(), static_cast<std::size_t>(frame.GetByteSize()));
  const PQRef<TPQImageBuffer> colour = PQMakeRef<TPQImageBuffer>(frame);
  colour->SetFormat(vfRGB24);
  const std::size_t pixels = static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_);
  planes_.resize(3 * pixels);
  PlanesOf(colour->Read(), pixels, planes_.data());
  return file_.Write(planes_.data(), planes_.size());
}

}  // namespace pantiq::app
