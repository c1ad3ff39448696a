#include "pantiq/platform/av/PQAvTags.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/log.h>
}
#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

namespace pantiq::av {
namespace {

constexpr std::uint32_t Tag(const char (&text)[5]) { return PQFourCC(text[0], text[1], text[2], text[3]); }

// In each of these the decoder does not read what the encoder wrote under that tag, or a block is not a frame. Ut Video
// (UL..) writes blocks of noise that it cannot read, at some sizes.
constexpr std::array kRefused = {Tag("VCR2"), Tag("ULRG"), Tag("ULRA"), Tag("ULY0"), Tag("PNG1"),
                                 Tag("SHQ0"), Tag("YV12"), Tag("AV01"), Tag("theo")};

constexpr std::array kForms = {
    StreamForm{AV_CODEC_ID_MJPEG, QualityKind::Scale},
    StreamForm{AV_CODEC_ID_MPEG4, QualityKind::Scale},
    StreamForm{AV_CODEC_ID_H264, QualityKind::X264},
    StreamForm{AV_CODEC_ID_H263, QualityKind::Scale},
    StreamForm{AV_CODEC_ID_WMV1, QualityKind::Scale},
    StreamForm{AV_CODEC_ID_WMV2, QualityKind::Scale, true},
    StreamForm{AV_CODEC_ID_MSMPEG4V3, QualityKind::Scale},
    StreamForm{AV_CODEC_ID_MSMPEG4V2, QualityKind::Scale},
    StreamForm{AV_CODEC_ID_MPEG1VIDEO, QualityKind::Scale},
    StreamForm{AV_CODEC_ID_MPEG2VIDEO, QualityKind::Scale},
    StreamForm{AV_CODEC_ID_FLV1, QualityKind::Scale},
    StreamForm{AV_CODEC_ID_VP8, QualityKind::Vpx},
    StreamForm{AV_CODEC_ID_VP9, QualityKind::Vpx},
    StreamForm{AV_CODEC_ID_HUFFYUV, QualityKind::None, true},
    StreamForm{AV_CODEC_ID_FFVHUFF, QualityKind::None, true},
    StreamForm{AV_CODEC_ID_FFV1},
    StreamForm{AV_CODEC_ID_MAGICYUV},
    StreamForm{AV_CODEC_ID_PNG},
    StreamForm{AV_CODEC_ID_ZMBV},
    StreamForm{AV_CODEC_ID_JPEGLS},
    StreamForm{AV_CODEC_ID_JPEG2000},
    StreamForm{AV_CODEC_ID_SNOW, QualityKind::Scale, false, 2},
    // Their header holds the quality, so they have one only.
    StreamForm{AV_CODEC_ID_ASV1, QualityKind::None, true},
    StreamForm{AV_CODEC_ID_ASV2, QualityKind::None, true},
    StreamForm{AV_CODEC_ID_CINEPAK},
    StreamForm{AV_CODEC_ID_MSVIDEO1},
    StreamForm{AV_CODEC_ID_SVQ1, QualityKind::Scale},
    StreamForm{AV_CODEC_ID_CFHD, QualityKind::None, false, 32},
    StreamForm{AV_CODEC_ID_CLJR},
    StreamForm{AV_CODEC_ID_DVVIDEO},
    StreamForm{AV_CODEC_ID_RAWVIDEO},
};

constexpr std::array kKnown = {
    Tag("MJPG"), Tag("LJPG"), Tag("XVID"), Tag("DIVX"), Tag("DX50"), Tag("FMP4"), Tag("mp4v"), Tag("X264"), Tag("H264"),
    Tag("avc1"), Tag("MP43"), Tag("DIV3"), Tag("MP42"), Tag("WMV1"), Tag("WMV2"), Tag("mpg1"), Tag("mpg2"), Tag("FLV1"),
    Tag("VP80"), Tag("VP90"), Tag("H263"), Tag("HFYU"), Tag("FFVH"), Tag("FFV1"), Tag("M8RG"), Tag("MPNG"), Tag("ZMBV"),
    Tag("MJLS"), kTagBitmap,  Tag("MJ2C"), Tag("SNOW"), Tag("ASV1"), Tag("ASV2"), Tag("cvid"), Tag("CRAM"), Tag("SVQ1"),
    Tag("CFHD"), Tag("CLJR"), Tag("dvsd"), Tag("YUY2"), Tag("UYVY"), Tag("I420"), Tag("I263"), Tag("WMV3"), Tag("MPG4"),
    Tag("LAGS"), Tag("IV32"), Tag("IV50"), Tag("CSCD"), Tag("tscc"), Tag("mrle"), Tag("DUCK"), Tag("FSV1"),
};

}  // namespace

AVCodecID IdOfTag(std::uint32_t tag) {
  if (tag == 0 || tag == kTagBitmap) return AV_CODEC_ID_RAWVIDEO;
  if (std::find(kRefused.begin(), kRefused.end(), tag) != kRefused.end()) return AV_CODEC_ID_NONE;
  const AVCodecTag* const tables[] = {avformat_get_riff_video_tags(), nullptr};
  const AVCodecID id = av_codec_get_id(tables, tag);
  // Of the pictures that are not compressed only those whose order of planes both ends read in the same way.
  if (id == AV_CODEC_ID_RAWVIDEO && tag != Tag("YUY2") && tag != Tag("UYVY") && tag != Tag("I420")) {
    return AV_CODEC_ID_NONE;
  }
  return id;
}

const StreamForm* FormOf(AVCodecID id) {
  const auto found = std::find_if(kForms.begin(), kForms.end(), [id](const StreamForm& form) { return form.id == id; });
  return found == kForms.end() ? nullptr : &*found;
}

std::span<const std::uint32_t> KnownTags() { return kKnown; }

std::string TagText(std::uint32_t tag) {
  std::string text;
  for (int i = 0; i < 4; ++i) text += static_cast<char>(tag >> (8 * i) & 0xff);
  if (std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7f; })) return text;
  char hex[16];
  std::snprintf(hex, sizeof hex, "$%08x", static_cast<unsigned>(tag));
  return hex;
}

namespace {

thread_local LogEar* t_ear = nullptr;

void TakeLog(void* object, int level, const char* format, va_list arguments) {
  if (t_ear == nullptr || level > AV_LOG_ERROR) return;
  char line[256] = "";
  int prefix = 0;
  av_log_format_line2(object, level, format, arguments, line, sizeof line, &prefix);
  t_ear->Hear(std::strchr(line, ']') != nullptr && line[0] == '[' ? std::strrchr(line, ']') + 1 : line);
}

}  // namespace

void KeepLogQuiet() { av_log_set_callback(&TakeLog); }

LogEar::LogEar() : outer_(std::exchange(t_ear, this)) {}
LogEar::~LogEar() { t_ear = outer_; }

void LogEar::Hear(const char* line) {
  while (*line == ' ') ++line;
  std::string text(line);
  while (!text.empty() && static_cast<unsigned char>(text.back()) <= ' ') text.pop_back();
  if (!text.empty()) heard_ = std::move(text);
}

PQPlatformResult LogEar::Result(int error, const std::string& what) const {
  char text[AV_ERROR_MAX_STRING_SIZE] = "";
  av_strerror(error, text, sizeof text);
  long code = kPlatformFailed;
  if (error == AVERROR_INVALIDDATA || error == AVERROR(EINVAL) || error == AVERROR_PATCHWELCOME) code = kPlatformFormat;
  return {code, what + ": " + text + (heard_.empty() ? "" : " (" + heard_ + ")")};
}

void SetUpContext(AVCodecContext& context, std::uint32_t tag, const PictureSize& size) {
  context.width = size.width;
  context.height = size.height;
  context.codec_tag = tag;
  context.thread_count = 1;
  context.flags |= AV_CODEC_FLAG_LOW_DELAY;
  context.strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
}

AVPixelFormat PlainFormat(AVPixelFormat format, bool& full_range) {
  full_range = true;
  switch (format) {
    case AV_PIX_FMT_YUVJ420P:
      return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
      return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
      return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P:
      return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ411P:
      return AV_PIX_FMT_YUV411P;
    default:
      full_range = false;
      return format;
  }
}

}  // namespace pantiq::av
