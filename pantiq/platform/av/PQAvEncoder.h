// One open encoder: bitmaps in, one block for each.
#pragma once
#include <span>

#include "pantiq/platform/av/PQAvTags.h"

namespace pantiq::av {

class Encoder {
 public:
  // Opens an encoder of the tag for pictures of the size; null with a result if there is none that takes it. `quality`
  // from 0 to kBestCodecQuality.
  static std::unique_ptr<Encoder> Open(std::uint32_t tag, const PictureSize& size, std::uint32_t quality,
                                       PQPlatformResult& result);

  // Another number wants an encoder of its own.
  std::uint32_t Quality() const { return quality_; }
  const PictureSize& Size() const { return size_; }
  // The encoder's name in libav.
  std::string Name() const;
  // Bits of a pixel of the stream, as its header states them.
  int Bits() const;
  // What stands in no block; usually nothing.
  std::span<const std::uint8_t> Header() const;

  // Compresses a bitmap, bottom row first. `bytes` of `block` hold the result. After a failure the encoder is of no
  // use.
  PQPlatformResult Encode(const PQPlatformBlock& frame, std::int64_t number, const PQCodecBlock& block,
                          std::size_t& bytes, bool& key_frame);

  // The most bytes of a block of pictures of this size. Noise may need more than what is not compressed.
  static std::size_t MostBytes(const PictureSize& size);

 private:
  Encoder() = default;
  bool OpenWith(const AVCodec& codec, const StreamForm& form, PQPlatformResult& result);
  bool MakeScaler(PQPlatformResult& result);
  PQPlatformResult EncodeBitmap(const PQPlatformBlock& frame, const PQCodecBlock& block, std::size_t& bytes) const;

  std::uint32_t tag_ = 0;
  PictureSize size_;
  std::uint32_t quality_ = 0;
  CodecPtr context_;  // null for plain bitmaps
  FramePtr frame_;
  PacketPtr packet_;
  ScalerPtr scaler_;
};

// Bytes of a row of a plain bitmap: a multiple of four.
inline std::size_t BitmapStep(int width) { return (static_cast<std::size_t>(width) * 3 + 3) / 4 * 4; }

}  // namespace pantiq::av
