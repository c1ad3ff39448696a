// One open decoder: blocks in, bitmaps out.
#pragma once
#include <vector>

#include "pantiq/platform/av/PQAvTags.h"

namespace pantiq::av {

class Decoder {
 public:
  // Opens a decoder of the tag for pictures of the size; null with a result if there is none. `bits` as the stream's
  // header states them.
  static std::unique_ptr<Decoder> Open(std::uint32_t tag, const PictureSize& size, int bits, PQPlatformResult& result);

  const PictureSize& Size() const { return size_; }
  // The decoder's name in libav.
  std::string Name() const;

  // Decompresses one block into a bitmap, bottom row first.
  PQPlatformResult Decode(const std::uint8_t* block, std::size_t bytes, const PQCodecPicture& picture);

 private:
  Decoder() = default;
  bool OpenContext(PQPlatformResult& result);
  // The newest picture of a block.
  PQPlatformResult DecodePicture(const std::uint8_t* block, std::size_t bytes);
  PQPlatformResult DecodeBitmap(const std::uint8_t* block, std::size_t bytes, const PQCodecPicture& picture) const;
  PQPlatformResult Draw(const AVFrame& frame, const PQCodecPicture& picture);

  std::uint32_t tag_ = 0;
  PictureSize size_;
  int bits_ = 24;
  CodecPtr context_;  // null for plain bitmaps
  FramePtr frame_, newest_;
  PacketPtr packet_;
  std::int64_t number_ = 0;  // of the block
  int failures_ = 0;         // without a good picture since
  ScalerPtr scaler_;
  AVPixelFormat scaler_format_ = AV_PIX_FMT_NONE;
  int scaler_space_ = -1;
  bool scaler_full_range_ = false;
  std::vector<std::uint8_t> upright_;  // a picture with padded rows
};

}  // namespace pantiq::av
