#include "pantiq/platform/av/PQAvEncoder.h"

extern "C" {
#include <libavutil/opt.h>
}
#include <algorithm>
#include <cstring>
#include <string_view>

namespace pantiq::av {
namespace {

// The number on the way from the best to the worst that a quality means; 0 takes the usual one.
double Grade(std::uint32_t quality, double best, double worst, double usual) {
  if (quality == 0) return usual;
  const double share = static_cast<double>(std::min(quality, kBestCodecQuality) - 1) / (kBestCodecQuality - 1);
  return worst + (best - worst) * share;
}

AVPixelFormat FormatFor(const AVCodec& codec, std::uint32_t tag, const PictureSize& size) {
  if (codec.id == AV_CODEC_ID_RAWVIDEO) {
    if (tag == PQFourCC('Y', 'U', 'Y', '2')) return AV_PIX_FMT_YUYV422;
    return tag == PQFourCC('U', 'Y', 'V', 'Y') ? AV_PIX_FMT_UYVY422 : AV_PIX_FMT_YUV420P;
  }
  if (codec.id == AV_CODEC_ID_H264) {
    return (size.width | size.height) % 2 != 0 ? AV_PIX_FMT_YUV444P : AV_PIX_FMT_YUV420P;
  }
  if (codec.id == AV_CODEC_ID_DVVIDEO) return size.height == 480 ? AV_PIX_FMT_YUV411P : AV_PIX_FMT_YUV420P;
  if (codec.pix_fmts == nullptr) return AV_PIX_FMT_YUV420P;
  int loss = 0;
  return avcodec_find_best_pix_fmt_of_list(codec.pix_fmts, AV_PIX_FMT_BGR24, 0, &loss);
}

}  // namespace

std::size_t Encoder::MostBytes(const PictureSize& size) {
  return BitmapStep(size.width) * static_cast<std::size_t>(size.height) / 2 * 5 + 4096;
}

std::unique_ptr<Encoder> Encoder::Open(std::uint32_t tag, const PictureSize& size, std::uint32_t quality,
                                       PQPlatformResult& result) {
  std::unique_ptr<Encoder> encoder(new Encoder);
  encoder->tag_ = tag;
  encoder->size_ = size;
  encoder->quality_ = quality;
  result = {};
  if (tag == kTagBitmap) return encoder;
  const AVCodecID id = IdOfTag(tag);
  const StreamForm* const form = FormOf(id);
  if (form == nullptr) {
    const char* const why = id == AV_CODEC_ID_NONE ? " is not known" : " can only be decompressed";
    result = {kPlatformFormat, "the codec tag '" + TagText(tag) + "'" + why};
    return nullptr;
  }
  if (std::min(size.width, size.height) < form->least) {
    result = {kPlatformFormat, TagText(tag) + " takes frames from " + std::to_string(form->least) + " by " +
                                   std::to_string(form->least) + " pixels"};
    return nullptr;
  }
  const AVCodec* const usual = avcodec_find_encoder(id);
  if (usual == nullptr) {
    result = {kPlatformMissing, std::string("libavcodec has no encoder for ") + avcodec_get_name(id)};
    return nullptr;
  }
  if (encoder->OpenWith(*usual, *form, result)) return encoder;
  const PQPlatformResult first = result;
  void* place = nullptr;
  while (const AVCodec* other = av_codec_iterate(&place)) {
    const bool plain = (other->capabilities & (AV_CODEC_CAP_HARDWARE | AV_CODEC_CAP_HYBRID)) == 0;
    if (other->id != id || other == usual || !av_codec_is_encoder(other) || !plain) continue;
    if (encoder->OpenWith(*other, *form, result)) return encoder;
  }
  result = first;
  return nullptr;
}

bool Encoder::OpenWith(const AVCodec& codec, const StreamForm& form, PQPlatformResult& result) {
  const LogEar ear;
  const std::string what = TagText(tag_) + " with the encoder " + codec.name + " for " + std::to_string(size_.width) +
                           " by " + std::to_string(size_.height) + " pixels";
  context_.reset(avcodec_alloc_context3(&codec));
  if (context_ == nullptr) {
    result = ear.Result(AVERROR(ENOMEM), what);
    return false;
  }
  AVCodecContext& context = *context_;
  SetUpContext(context, tag_, size_);
  context.time_base = {1, 25};
  context.framerate = {25, 1};
  if (codec.id == AV_CODEC_ID_DVVIDEO && size_.height == 480) {
    context.time_base = {1001, 30000};
    context.framerate = {30000, 1001};
  }
  context.max_b_frames = 0;
  context.gop_size = codec.id == AV_CODEC_ID_FFV1 ? 1 : 12;
  context.bit_rate = 4000000;  // stands in headers; the quality counts
  context.pix_fmt = FormatFor(codec, tag_, size_);
  const auto option = [&](const char* name, const char* value) { av_opt_set(context.priv_data, name, value, 0); };
  switch (form.quality) {
    case QualityKind::X264:
      context.bit_rate = 0;
      option("tune", "zerolatency");
      option("preset", "superfast");
      option("crf", std::to_string(Grade(quality_, 4, 40, 18)).c_str());
      break;
    case QualityKind::Vpx:
      context.qmin = context.qmax = static_cast<int>(Grade(quality_, 2, 63, 10) + 0.5);
      option("lag-in-frames", "0");
      option("deadline", "realtime");
      option("cpu-used", "8");
      break;
    case QualityKind::Scale:
    case QualityKind::None:  // some of them want a scale all the same
      context.flags |= AV_CODEC_FLAG_QSCALE;
      context.global_quality =
          static_cast<int>(FF_QP2LAMBDA * Grade(form.quality == QualityKind::None ? 0 : quality_, 2, 31, 3) + 0.5);
      if (codec.id == AV_CODEC_ID_SNOW) option("motion_est", "epzs");
      break;
  }
  if (codec.id == AV_CODEC_ID_FFV1) context.level = 1;  // with its header in each block
  const int error = avcodec_open2(&context, &codec, nullptr);
  if (error < 0) {
    result = ear.Result(error, what);
    context_.reset();
    return false;
  }
  result = {};
  return MakeScaler(result);
}

bool Encoder::MakeScaler(PQPlatformResult& result) {
  bool full_range = false;
  const AVPixelFormat format = PlainFormat(context_->pix_fmt, full_range);
  frame_.reset(av_frame_alloc());
  packet_.reset(av_packet_alloc());
  scaler_.reset(sws_getContext(size_.width, size_.height, AV_PIX_FMT_BGR24, size_.width, size_.height, format,
                               SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP, nullptr, nullptr, nullptr));
  if (frame_ != nullptr) {
    frame_->width = size_.width;
    frame_->height = size_.height;
    frame_->format = context_->pix_fmt;
    frame_->color_range = full_range ? AVCOL_RANGE_JPEG : AVCOL_RANGE_UNSPECIFIED;
  }
  if (frame_ == nullptr || packet_ == nullptr || scaler_ == nullptr || av_frame_get_buffer(frame_.get(), 0) < 0) {
    result = {kPlatformFailed, TagText(tag_) + ": no conversion to " + av_get_pix_fmt_name(format) + ", or no memory"};
    context_.reset();
    return false;
  }
  const int* const coefficients = sws_getCoefficients(SWS_CS_ITU601);
  sws_setColorspaceDetails(scaler_.get(), coefficients, 1, coefficients, full_range ? 1 : 0, 0, 1 << 16, 1 << 16);
  return true;
}

std::string Encoder::Name() const { return context_ == nullptr ? "bitmap" : context_->codec->name; }

int Encoder::Bits() const {
  return context_ != nullptr && context_->bits_per_coded_sample > 0 ? context_->bits_per_coded_sample : 24;
}

std::span<const std::uint8_t> Encoder::Header() const {
  if (context_ == nullptr || context_->extradata_size < 1) return {};
  return {context_->extradata, static_cast<std::size_t>(context_->extradata_size)};
}

PQPlatformResult Encoder::EncodeBitmap(const PQPlatformBlock& frame, const PQCodecBlock& block,
                                       std::size_t& bytes) const {
  const std::size_t row = static_cast<std::size_t>(size_.width) * 3, step = BitmapStep(size_.width);
  bytes = step * static_cast<std::size_t>(size_.height);
  if (bytes > block.capacity) return {kPlatformFormat, "the block has no room for the bitmap"};
  for (int y = 0; y < size_.height; ++y) {
    std::uint8_t* const to = block.data + step * static_cast<std::size_t>(y);
    std::memcpy(to, frame.data + frame.step * y, row);
    std::memset(to + row, 0, step - row);
  }
  return {};
}

PQPlatformResult Encoder::Encode(const PQPlatformBlock& frame, std::int64_t number, const PQCodecBlock& block,
                                 std::size_t& bytes, bool& key_frame) {
  if (tag_ == kTagBitmap) {
    key_frame = true;
    return EncodeBitmap(frame, block, bytes);
  }
  const LogEar ear;
  int error = av_frame_make_writable(frame_.get());
  if (error < 0) return ear.Result(error, "no memory for a frame");
  // The stream's pictures begin with their top row.
  const std::uint8_t* const source[4] = {frame.data + frame.step * (size_.height - 1)};
  const int steps[4] = {static_cast<int>(-frame.step)};
  sws_scale(scaler_.get(), source, steps, 0, size_.height, frame_->data, frame_->linesize);
  frame_->pts = number;
  frame_->quality = context_->global_quality;
  error = avcodec_send_frame(context_.get(), frame_.get());
  if (error >= 0) error = avcodec_receive_packet(context_.get(), packet_.get());
  if (error < 0) return ear.Result(error, std::string("the encoder ") + context_->codec->name);
  const auto size = static_cast<std::size_t>(packet_->size);
  const bool fits = size <= block.capacity;
  if (fits) std::memcpy(block.data, packet_->data, size);
  bytes = fits ? size : 0;
  key_frame = (packet_->flags & AV_PKT_FLAG_KEY) != 0;
  av_packet_unref(packet_.get());
  if (!fits)
    return {kPlatformFormat, "a block of " + std::to_string(size) + " bytes does not fit into the memory for it"};
  // A second one would belong to no frame.
  if (avcodec_receive_packet(context_.get(), packet_.get()) >= 0) {
    av_packet_unref(packet_.get());
    return {kPlatformFailed, std::string("the encoder ") + context_->codec->name + " gives two blocks for a frame"};
  }
  return {};
}

}  // namespace pantiq::av
