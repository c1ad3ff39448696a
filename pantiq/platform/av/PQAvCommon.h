// What the parts of the codec module share: libav's headers, owners of its objects, results.
#pragma once
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}
#include <cstdint>
#include <memory>
#include <string>

#include "pantiq/platform/PQCodecManager.h"

namespace pantiq::av {

struct FreeCodec {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FreeFrame {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreePacket {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FreeScaler {
  void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
using CodecPtr = std::unique_ptr<AVCodecContext, FreeCodec>;
using FramePtr = std::unique_ptr<AVFrame, FreeFrame>;
using PacketPtr = std::unique_ptr<AVPacket, FreePacket>;
using ScalerPtr = std::unique_ptr<SwsContext, FreeScaler>;

struct PictureSize {
  int width = 0, height = 0;
  bool operator==(const PictureSize&) const = default;
};

// "MJPG", or "$67706a6d" where a character cannot be shown.
std::string TagText(std::uint32_t tag);
// Takes libav's log away from the process's standard error, for good. A program that wants it there, or elsewhere,
// calls av_log_set_callback after the module was loaded.
void KeepLogQuiet();

// While it lives, errors that libav tells on this thread are kept.
class LogEar {
 public:
  LogEar();
  ~LogEar();
  LogEar(const LogEar&) = delete;
  LogEar& operator=(const LogEar&) = delete;
  // Code and text of one of libav's own errors: what was being done, the error, what was told last.
  PQPlatformResult Result(int error, const std::string& what) const;
  void Hear(const char* line);

 private:
  LogEar* outer_;
  std::string heard_;
};

// On one thread, one picture for each block: what holds for every context.
void SetUpContext(AVCodecContext& context, std::uint32_t tag, const PictureSize& size);

// The format under its present name; `full_range` is true for those that are named after their range.
AVPixelFormat PlainFormat(AVPixelFormat format, bool& full_range);

}  // namespace pantiq::av
