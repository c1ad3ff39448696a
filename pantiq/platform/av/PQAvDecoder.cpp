#include "pantiq/platform/av/PQAvDecoder.h"

extern "C" {
#include <libavutil/mem.h>
}
#include <cstring>
#include <limits>

#include "pantiq/platform/av/PQAvEncoder.h"

namespace pantiq::av {
namespace {

constexpr int kMostFailures = 2;    // that a decoder is trusted to get over by itself
constexpr int kAlignedPixels = 32;  // a conversion may write up to this many pixels at once

int RoundUp(int value, int to) { return (value + to - 1) / to * to; }

}  // namespace

std::unique_ptr<Decoder> Decoder::Open(std::uint32_t tag, const PictureSize& size, int bits, PQPlatformResult& result) {
  std::unique_ptr<Decoder> decoder(new Decoder);
  decoder->tag_ = tag == 0 ? kTagBitmap : tag;
  decoder->size_ = size;
  decoder->bits_ = bits;
  result = {};
  if (decoder->tag_ == kTagBitmap || decoder->OpenContext(result)) return decoder;
  return nullptr;
}

bool Decoder::OpenContext(PQPlatformResult& result) {
  const AVCodecID id = IdOfTag(tag_);
  const AVCodec* const codec = id == AV_CODEC_ID_NONE ? nullptr : avcodec_find_decoder(id);
  if (codec == nullptr) {
    if (id == AV_CODEC_ID_NONE) {
      result = {kPlatformFormat, "the codec tag '" + TagText(tag_) + "' is not known"};
    } else {
      result = {kPlatformMissing, std::string("libavcodec has no decoder for ") + avcodec_get_name(id)};
    }
    return false;
  }
  const LogEar ear;
  const std::string what = TagText(tag_) + " with the decoder " + codec->name;
  context_.reset(avcodec_alloc_context3(codec));
  frame_.reset(av_frame_alloc());
  newest_.reset(av_frame_alloc());
  packet_.reset(av_packet_alloc());
  if (!context_ || !frame_ || !newest_ || !packet_) {
    result = ear.Result(AVERROR(ENOMEM), what);
    return false;
  }
  AVCodecContext& context = *context_;
  SetUpContext(context, tag_, size_);
  context.bits_per_coded_sample = bits_;
  // A block that claims another size must not make the decoder take memory for it. Frames have wide margins inside it.
  context.max_pixels = (std::int64_t{size_.width} + 1024) * (std::int64_t{size_.height} + 512);
  const StreamForm* const form = FormOf(id);
  if (form != nullptr && form->header_apart) {
    PQPlatformResult ignored;
    if (const auto encoder = Encoder::Open(tag_, size_, 0, ignored); encoder != nullptr && !encoder->Header().empty()) {
      const auto header = encoder->Header();
      context.extradata = static_cast<std::uint8_t*>(av_mallocz(header.size() + AV_INPUT_BUFFER_PADDING_SIZE));
      if (context.extradata != nullptr) {
        std::memcpy(context.extradata, header.data(), header.size());
        context.extradata_size = static_cast<int>(header.size());
      }
    }
  }
  if (const int error = avcodec_open2(&context, codec, nullptr); error < 0) {
    result = ear.Result(error, what);
    return false;
  }
  failures_ = 0;
  return true;
}

std::string Decoder::Name() const { return context_ == nullptr ? "bitmap" : context_->codec->name; }

PQPlatformResult Decoder::DecodeBitmap(const std::uint8_t* block, std::size_t bytes,
                                       const PQCodecPicture& picture) const {
  const std::size_t step = BitmapStep(size_.width);
  if (bytes < step * static_cast<std::size_t>(size_.height)) return {kPlatformFormat, "the block is cut short"};
  for (int y = 0; y < size_.height; ++y) {
    std::memcpy(picture.data + picture.step * y, block + step * static_cast<std::size_t>(y),
                static_cast<std::size_t>(size_.width) * 3);
  }
  return {};
}

PQPlatformResult Decoder::Decode(const std::uint8_t* block, std::size_t bytes, const PQCodecPicture& picture) {
  if (bytes < 1 || bytes > std::numeric_limits<int>::max() - AV_INPUT_BUFFER_PADDING_SIZE) {
    return {kPlatformFormat, "a block of " + std::to_string(bytes) + " bytes"};
  }
  if (tag_ == kTagBitmap) return DecodeBitmap(block, bytes, picture);
  PQPlatformResult result;
  // A block that was made up may have left it with settings that no later block undoes.
  if (failures_ >= kMostFailures && !OpenContext(result)) return result;
  result = DecodePicture(block, bytes);
  if (result.Ok()) result = Draw(*newest_, picture);
  av_frame_unref(newest_.get());
  failures_ = result.Ok() ? 0 : failures_ + 1;
  return result;
}

PQPlatformResult Decoder::DecodePicture(const std::uint8_t* block, std::size_t bytes) {
  const LogEar ear;
  const std::string what = std::string("the decoder ") + context_->codec->name;
  // The packet owns no memory, so that the decoder makes a copy with the padding that it wants.
  av_packet_unref(packet_.get());
  packet_->data = const_cast<std::uint8_t*>(block);
  packet_->size = static_cast<int>(bytes);
  packet_->pts = packet_->dts = ++number_;
  const int error = avcodec_send_packet(context_.get(), packet_.get());
  packet_->data = nullptr;
  packet_->size = 0;
  // The newest picture is the block's; a stream that was made elsewhere may hold one or more back.
  bool any = false;
  while (avcodec_receive_frame(context_.get(), frame_.get()) >= 0) {
    any = true;
    std::swap(frame_, newest_);
  }
  if (error < 0) return ear.Result(error, what);
  if (!any) return {kPlatformFormat, what + " finds no picture in the block"};
  if ((newest_->flags & AV_FRAME_FLAG_CORRUPT) != 0 || newest_->decode_error_flags != 0) {
    return {kPlatformFormat, what + " finds a damaged picture"};
  }
  if (newest_->width != size_.width || newest_->height != size_.height) {
    return {kPlatformFormat, "the block holds a picture of " + std::to_string(newest_->width) + " by " +
                                 std::to_string(newest_->height) + " pixels, announced were " +
                                 std::to_string(size_.width) + " by " + std::to_string(size_.height)};
  }
  if (failures_ > 0 && newest_->pts != number_) return {kPlatformFormat, what + " has fallen behind"};
  return {};
}

PQPlatformResult Decoder::Draw(const AVFrame& frame, const PQCodecPicture& picture) {
  bool full_range = false;
  const AVPixelFormat format = PlainFormat(static_cast<AVPixelFormat>(frame.format), full_range);
  full_range = full_range || frame.color_range == AVCOL_RANGE_JPEG;
  const int space = frame.colorspace == AVCOL_SPC_RGB || frame.colorspace == AVCOL_SPC_UNSPECIFIED
                        ? SWS_CS_DEFAULT
                        : static_cast<int>(frame.colorspace);
  if (scaler_ == nullptr || format != scaler_format_ || space != scaler_space_ || full_range != scaler_full_range_) {
    if (sws_isSupportedInput(format) > 0) {
      scaler_.reset(sws_getContext(size_.width, size_.height, format, size_.width, size_.height, AV_PIX_FMT_BGR24,
                                   SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr, nullptr, nullptr));
    } else {
      scaler_.reset();
    }
    if (scaler_ == nullptr) {
      const char* const name = av_get_pix_fmt_name(format);
      return {kPlatformFormat, std::string("pictures of the format ") + (name != nullptr ? name : "?") +
                                   " cannot be turned into bitmaps"};
    }
    sws_setColorspaceDetails(scaler_.get(), sws_getCoefficients(space), full_range ? 1 : 0,
                             sws_getCoefficients(SWS_CS_ITU601), 1, 0, 1 << 16, 1 << 16);
    scaler_format_ = format;
    scaler_space_ = space;
    scaler_full_range_ = full_range;
  }
  if (size_.width % kAlignedPixels == 0) {
    std::uint8_t* const to[4] = {picture.data + picture.step * (size_.height - 1)};
    const int steps[4] = {static_cast<int>(-picture.step)};
    sws_scale(scaler_.get(), frame.data, frame.linesize, 0, size_.height, to, steps);
    return {};
  }
  // Vectors write over the end of a row into the next one, which upside down is finished already.
  const auto step = static_cast<std::size_t>(RoundUp(size_.width, kAlignedPixels)) * 3;
  upright_.resize(step * static_cast<std::size_t>(size_.height) + 64);
  std::uint8_t* const to[4] = {upright_.data()};
  const int steps[4] = {static_cast<int>(step)};
  sws_scale(scaler_.get(), frame.data, frame.linesize, 0, size_.height, to, steps);
  for (int y = 0; y < size_.height; ++y) {
    std::memcpy(picture.data + picture.step * (size_.height - 1 - y),
                upright_.data() + step * static_cast<std::size_t>(y), static_cast<std::size_t>(size_.width) * 3);
  }
  return {};
}

}  // namespace pantiq::av
