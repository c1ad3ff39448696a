// `y4m`: raw video as YUV4MPEG2, for players and encoders behind a pipe. Gray frames become Cmono, all others C444 in
// full range (XCOLORRANGE=FULL) with the matrix of ITU-R BT.601 as ITU-T T.871 gives it, in 16-bit fixed point:
//   Y  = (19595 R + 38470 G + 7471 B + 32768) / 65536
//   Cb = (-11059 R - 21709 G + 32768 B + 8421375) / 65536
//   Cr = (32768 R - 27439 G - 5329 B + 8421375) / 65536
// A stream that changes its size or its kind cannot go on in one file: that is an error.
#pragma once
#include <vector>

#include "ProgramSink.h"

namespace pantiq::app {

class Y4mSink final : public ImageSink {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit Y4mSink(TComponent* owner) : ImageSink(owner, "-") {}
  ~Y4mSink() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 protected:
  PQStatus Frame(const TPQImageBuffer& frame, std::int64_t number) override;
  PQStatus Stop() override { return file_.Close(); }

 private:
  OutputFile file_;
  bool headed_ = false, gray_ = false;
  std::int32_t width_ = 0, height_ = 0;
  std::vector<std::uint8_t> planes_;
};

// Three planes of `pixels` bytes each, Y, Cb, Cr, from packed pixels of blue, green, red.
void PlanesOf(const std::uint8_t* bgr, std::size_t pixels, std::uint8_t* planes);

// Frames per second as a fraction, from the time between frames in 100 ns: whole rates up to 240 and their 1000/1001
// are recognised; 0/0 for a delay below 1.
struct FrameRate {
  std::int64_t numerator, denominator;
};
FrameRate FrameRateOf(std::int64_t delay);

}  // namespace pantiq::app
