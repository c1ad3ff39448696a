#include "pantiq/platform/av/PQAvManager.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace pantiq::av {
namespace {

// What a handle points to.
struct Codec {
  std::uint32_t tag = 0;
  std::unique_ptr<Encoder> encoder;
  std::unique_ptr<Decoder> decoder;
};

Codec* CodecOf(PQCodecHandle handle) { return reinterpret_cast<Codec*>(handle); }
PQPlatformResult NoCodec() { return {kPlatformState, "there is no codec"}; }

// The size that a header states; false with a result if no codec is to be asked for it.
bool SizeOf(const BITMAPINFOHEADER& header, PictureSize& size, PQPlatformResult& result) {
  const std::int64_t width = header.biWidth, height = std::abs(static_cast<std::int64_t>(header.biHeight));
  const bool sides = width >= 1 && height >= 1 && width <= kMostCodecSide && height <= kMostCodecSide;
  if (!sides || width * height * 3 > std::numeric_limits<std::int32_t>::max()) {
    result = {kPlatformFormat, "frames of " + std::to_string(header.biWidth) + " by " +
                                   std::to_string(header.biHeight) + " pixels; a side has 1 to " +
                                   std::to_string(kMostCodecSide) + ", a frame at most 2 GB"};
    return false;
  }
  size = {static_cast<int>(width), static_cast<int>(height)};
  return true;
}

bool IsBitmap(const BITMAPINFOHEADER& header) { return header.biCompression == 0 && header.biBitCount == 24; }
PQPlatformResult NoBitmap() { return {kPlatformFormat, "only bitmaps of 24 bits are taken and given"}; }

bool Holds(std::size_t bytes, std::int64_t step, const PictureSize& size) {
  const std::int64_t row = std::int64_t{size.width} * 3;
  return step >= row && step <= std::numeric_limits<std::int32_t>::max() &&
         bytes >= static_cast<std::size_t>(step * (size.height - 1) + row);
}

// Compresses anything, at any size, in this order.
constexpr std::uint32_t kAnyTags[] = {PQFourCC('M', 'J', 'P', 'G'), PQFourCC('X', 'V', 'I', 'D'),
                                      PQFourCC('M', 'P', 'N', 'G'), kTagBitmap};

}  // namespace

PQPlatformResult Manager::ICLocate(std::uint32_t type, std::uint32_t tag, const BITMAPINFOHEADER& input,
                                   const BITMAPINFOHEADER* output, PQCodecMode mode, PQCodecHandle& handle) {
  handle = 0;
  if (type != kVideoCodecType) return {kPlatformFormat, "only codecs of the type 'vidc' are known"};
  PQPlatformResult result;
  PictureSize size, output_size;
  if (!SizeOf(input, size, result)) return result;
  if (output != nullptr && (!SizeOf(*output, output_size, result) || output_size != size)) {
    return result.Ok() ? PQPlatformResult(kPlatformFormat, "a codec does not change the size") : result;
  }
  auto codec = std::make_unique<Codec>();
  if (mode == kCodecCompress) {
    if (!IsBitmap(input)) return NoBitmap();
    if (tag == 0) {
      PQPlatformResult first;
      for (const std::uint32_t any : kAnyTags) {
        codec->tag = any;
        codec->encoder = Encoder::Open(any, size, 0, result);
        if (codec->encoder != nullptr) break;
        if (first.Ok()) first = result;
      }
      if (codec->encoder == nullptr) return first;
    } else {
      codec->tag = tag;
      codec->encoder = Encoder::Open(tag, size, 0, result);
    }
  } else {
    if (output != nullptr && !IsBitmap(*output)) return NoBitmap();
    codec->tag = tag;
    codec->decoder = Decoder::Open(tag, size, input.biBitCount, result);
  }
  if (result.Ok()) handle = reinterpret_cast<PQCodecHandle>(codec.release());
  return result;
}

PQPlatformResult Manager::ICGetInfo(PQCodecHandle handle, PQCodecInfo& info) {
  if (handle == 0) return NoCodec();
  info.fccType = kVideoCodecType;
  info.fccHandler = CodecOf(handle)->tag;
  const AVCodecDescriptor* const form = avcodec_descriptor_get(IdOfTag(info.fccHandler));
  info.name = form != nullptr && form->long_name != nullptr ? form->long_name : TagText(info.fccHandler);
  return {};
}

PQPlatformResult Manager::ICClose(PQCodecHandle handle) {
  if (handle == 0) return NoCodec();
  delete CodecOf(handle);
  return {};
}

PQPlatformResult Manager::ICCompressGetFormat(PQCodecHandle handle, const BITMAPINFOHEADER& input,
                                              BITMAPINFOHEADER& output) {
  if (handle == 0) return NoCodec();
  const Codec& codec = *CodecOf(handle);
  if (codec.encoder == nullptr) return {kPlatformState, "the codec was not opened to compress"};
  PictureSize size;
  PQPlatformResult result;
  if (!SizeOf(input, size, result)) return result;
  output = BITMAPINFOHEADER();
  output.biWidth = size.width;
  output.biHeight = size.height;
  output.biPlanes = 1;
  output.biBitCount = static_cast<std::uint16_t>(codec.encoder->Bits());
  output.biCompression = codec.tag;
  output.biSizeImage = static_cast<std::uint32_t>(
      std::min<std::size_t>(Encoder::MostBytes(size), std::numeric_limits<std::int32_t>::max()));
  return {};
}

PQPlatformResult Manager::ICCompressGetSize(PQCodecHandle handle, const BITMAPINFOHEADER& input,
                                            const BITMAPINFOHEADER&, std::size_t& bytes) {
  bytes = 0;
  if (handle == 0) return NoCodec();
  PictureSize size;
  PQPlatformResult result;
  if (!SizeOf(input, size, result)) return result;
  bytes = std::min<std::size_t>(Encoder::MostBytes(size), std::numeric_limits<std::int32_t>::max());
  return {};
}

PQPlatformResult Manager::ICCompressBegin(PQCodecHandle handle, const BITMAPINFOHEADER& input,
                                          const BITMAPINFOHEADER& output) {
  if (handle == 0) return NoCodec();
  Codec& codec = *CodecOf(handle);
  PictureSize size;
  PQPlatformResult result;
  if (!SizeOf(input, size, result)) return result;
  if (!IsBitmap(input)) return NoBitmap();
  if (output.biCompression != codec.tag) return {kPlatformFormat, "the codec makes '" + TagText(codec.tag) + "'"};
  if (codec.encoder == nullptr || codec.encoder->Size() != size) {
    codec.encoder = Encoder::Open(codec.tag, size, 0, result);
  }
  return result;
}

PQPlatformResult Manager::ICCompress(PQCodecHandle handle, std::uint32_t, BITMAPINFOHEADER& output,
                                     const PQCodecBlock& block, const BITMAPINFOHEADER& input,
                                     const PQPlatformBlock& frame, std::uint32_t& chunk_id, std::uint32_t& result_flags,
                                     std::int32_t frame_number, std::uint32_t, std::uint32_t quality,
                                     const BITMAPINFOHEADER*, const std::uint8_t*) {
  if (handle == 0) return NoCodec();
  Codec& codec = *CodecOf(handle);
  PictureSize size;
  PQPlatformResult result;
  output.biSizeImage = 0;
  if (!SizeOf(input, size, result)) return result;
  if (!Holds(frame.size, frame.step, size)) return {kPlatformFormat, "the frame is smaller than its header says"};
  quality = std::min(quality, kBestCodecQuality);
  // One encoder has one quality. It is also made anew after a failure, to begin with a key frame.
  if (codec.encoder == nullptr || codec.encoder->Size() != size || codec.encoder->Quality() != quality) {
    codec.encoder = Encoder::Open(codec.tag, size, quality, result);
    if (codec.encoder == nullptr) return result;
  }
  std::size_t bytes = 0;
  bool key_frame = false;
  result = codec.encoder->Encode(frame, frame_number, block, bytes, key_frame);
  if (!result.Ok()) {
    codec.encoder.reset();
    return result;
  }
  output.biSizeImage = static_cast<std::uint32_t>(bytes);
  chunk_id = PQFourCC('0', '0', 'd', codec.tag == kTagBitmap ? 'b' : 'c');
  result_flags = key_frame ? kCodecKeyFrame : 0;
  return {};
}

PQPlatformResult Manager::ICCompressEnd(PQCodecHandle handle) {
  if (handle == 0) return NoCodec();
  CodecOf(handle)->encoder.reset();
  return {};
}

PQPlatformResult Manager::ICDecompressBegin(PQCodecHandle handle, const BITMAPINFOHEADER& input,
                                            const BITMAPINFOHEADER& output) {
  if (handle == 0) return NoCodec();
  Codec& codec = *CodecOf(handle);
  PictureSize size, output_size;
  PQPlatformResult result;
  if (!SizeOf(input, size, result) || !SizeOf(output, output_size, result)) return result;
  if (!IsBitmap(output)) return NoBitmap();
  if (size != output_size) return {kPlatformFormat, "a codec does not change the size"};
  if (codec.decoder == nullptr || codec.decoder->Size() != size) {
    codec.decoder = Decoder::Open(codec.tag, size, input.biBitCount, result);
  }
  return result;
}

PQPlatformResult Manager::ICDecompress(PQCodecHandle handle, std::uint32_t, const BITMAPINFOHEADER& input,
                                       const std::uint8_t* block, const BITMAPINFOHEADER& output,
                                       const PQCodecPicture& picture) {
  if (handle == 0) return NoCodec();
  const Codec& codec = *CodecOf(handle);
  PictureSize size;
  PQPlatformResult result;
  if (codec.decoder == nullptr) return {kPlatformState, "decompression has not begun"};
  if (!SizeOf(output, size, result)) return result;
  if (codec.decoder->Size() != size) return {kPlatformFormat, "a codec does not change the size"};
  if (!Holds(picture.size, picture.step, size)) return {kPlatformFormat, "the memory is smaller than the picture"};
  return codec.decoder->Decode(block, input.biSizeImage, picture);
}

PQPlatformResult Manager::ICDecompressEnd(PQCodecHandle handle) {
  if (handle == 0) return NoCodec();
  CodecOf(handle)->decoder.reset();
  return {};
}

PQPlatformResult Manager::GlobalAlloc(std::size_t bytes, PQCodecMemory& memory) {
  memory = bytes > 0 ? reinterpret_cast<PQCodecMemory>(std::calloc(bytes, 1)) : 0;
  if (memory == 0) return {kPlatformFailed, "no memory for a block of " + std::to_string(bytes) + " bytes"};
  return {};
}

PQPlatformResult Manager::GlobalLock(PQCodecMemory memory, std::uint8_t*& data) {
  data = reinterpret_cast<std::uint8_t*>(memory);
  return memory != 0 ? PQPlatformResult() : PQPlatformResult(kPlatformState, "there is no memory");
}

PQPlatformResult Manager::GlobalUnlock(PQCodecMemory) { return {}; }

PQPlatformResult Manager::GlobalFree(PQCodecMemory memory) {
  std::free(reinterpret_cast<void*>(memory));
  return {};
}

}  // namespace pantiq::av

extern "C" PQ_EXPORT pantiq::PQCodecManager* pantiq_codec_manager(int abi) {
  if (abi != pantiq::kCodecManagerAbi) return nullptr;
  static auto* manager = [] {
    pantiq::av::KeepLogQuiet();
    return new pantiq::av::Manager;  // lives as long as the process
  }();
  return manager;
}
