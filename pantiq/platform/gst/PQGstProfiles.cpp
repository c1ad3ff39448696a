#include "pantiq/platform/gst/PQGstProfiles.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <string>

#include "pantiq/platform/gst/PQGstCommon.h"

namespace pantiq::gst {
namespace {

struct Container {
  const char* name;
  const char* muxer;
  // What it takes, separated by blanks; the first is the automatic choice.
  const char* video;
  const char* audio;
};
constexpr std::array kContainers = {
    Container{"asf", "avmux_asf", "WMV2 WMV1 MP43", "WMA2 WMA1 MP3"},
    Container{"mkv", "matroskamux", "H264 MPEG4 MP43", "AAC MP3"},
    Container{"mp4", "mp4mux", "H264 MPEG4", "AAC MP3"},
    Container{"avi", "avimux", "MPEG4 MP43", "MP3 PCM"},
};

struct Codec {
  const char* name;
  const char* element;
};
constexpr std::array kCodecs = {
    Codec{"WMV2", "avenc_wmv2"},   Codec{"WMV1", "avenc_wmv1"}, Codec{"MP43", "avenc_msmpeg4"},
    Codec{"MPEG4", "avenc_mpeg4"}, Codec{"H264", "x264enc"},    Codec{"WMA2", "avenc_wmav2"},
    Codec{"WMA1", "avenc_wmav1"},  Codec{"MP3", "lamemp3enc"},  Codec{"AAC", "avenc_aac"},
    Codec{"PCM", "identity"},
};

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

bool Same(const std::string& a, const std::string& b) { return Lower(a) == Lower(b); }
bool IsAuto(const std::string& text) { return text.empty() || Same(text, "auto"); }

const Container* FindContainer(const PQRecordingRequest& request) {
  std::string name = Lower(request.container);
  const bool is_auto = IsAuto(name);
  if (is_auto) {
    const std::size_t dot = request.file_name.rfind('.');
    name = dot == std::string::npos ? "" : Lower(request.file_name.substr(dot + 1));
  }
  if (name == "wmv" || name == "wma") name = "asf";
  for (const Container& container : kContainers) {
    if (name == container.name) return &container;
  }
  return is_auto ? &kContainers[0] : nullptr;
}

std::string First(const std::string& list) { return list.substr(0, list.find(' ')); }

bool Holds(const std::string& list, const std::string& name) {
  return (" " + list + " ").find(" " + name + " ") != std::string::npos;
}

const Codec* FindCodec(const std::string& name) {
  for (const Codec& codec : kCodecs) {
    if (Same(name, codec.name)) return &codec;
  }
  return nullptr;
}

// Quality 1 to 100 to a quantizer of 31 to 2, each step of quality the same factor: 85 gives 3.
int Quantizer(int quality) {
  const double steps = (100 - std::clamp(quality, 1, 100)) / 99.0;
  return std::clamp(static_cast<int>(std::lround(2.0 * std::pow(15.5, steps))), 2, 31);
}

// Quality 1 to 100 to H.264's scale of 51 to 10; 85 gives 16.
int H264Quantizer(int quality) {
  return static_cast<int>(std::lround(10.0 + (100 - std::clamp(quality, 1, 100)) * 41.0 / 99.0));
}

std::string VideoEncoder(const Codec& codec, const PQRecordingRequest& request) {
  const std::string interval = std::to_string(std::clamp(request.key_frame_interval, 1, 10000));
  if (std::string(codec.name) == "H264") {
    return "video/x-raw,format=I420 ! x264enc pass=quant quantizer=" + std::to_string(H264Quantizer(request.quality)) +
           " speed-preset=veryfast bframes=0 key-int-max=" + interval;
  }
  const std::string q = std::to_string(Quantizer(request.quality));
  return std::string(codec.element) + " qmin=" + q + " qmax=" + q + " gop-size=" + interval;
}

// Begins with what the encoder takes. The WMA encoders read with aligned vector loads, and avenc hands them mono blocks
// wherever these lie: real sound in mono ends the process. Planes of stereo are copied to aligned memory first.
std::string AudioEncoder(const Codec& codec, const PQRecordingRequest& request) {
  const std::string name = codec.name;
  const std::string takes = "audio/x-raw,rate=[8000,48000],channels=";
  if (name == "PCM") return takes + "[1,2],format=S16LE";
  if (name == "MP3") {
    return takes + "[1,2] ! lamemp3enc name=encoder target=bitrate cbr=true bitrate=" +
           std::to_string(std::clamp(request.audio_bit_rate / 1000, 32, 320));
  }
  return takes + (name == "AAC" ? "[1,2] ! " : "2 ! ") + codec.element +
         " name=encoder bitrate=" + std::to_string(std::clamp(request.audio_bit_rate, 24000, 512000));
}

}  // namespace

PQPlatformResult ResolveProfile(const PQRecordingRequest& request, PQRecordingProfile& profile) {
  const Container* container = FindContainer(request);
  if (container == nullptr) {
    return {kPlatformFormat, "Container '" + request.container + "' is none of auto, asf, wmv, mkv, mp4, avi"};
  }
  std::string video = request.video_codec, audio = request.audio_codec;
  if (IsAuto(video)) {
    video = First(container->video);
    const bool odd = (request.width % 2 != 0) || (request.height % 2 != 0);
    if (odd && video == "WMV2") video = "MP43";  // takes odd sizes
    if (video == "H264" && (odd || !HasElement("x264enc"))) video = "MPEG4";
  }
  if (IsAuto(audio)) audio = First(container->audio);
  const Codec* video_codec = FindCodec(video);
  const Codec* audio_codec = FindCodec(audio);
  if (video_codec == nullptr || !Holds(container->video, video_codec->name)) {
    return {kPlatformFormat,
            "VideoCodec '" + video + "' does not go into " + container->name + "; it takes " + container->video};
  }
  if (audio_codec == nullptr || !Holds(container->audio, audio_codec->name)) {
    return {kPlatformFormat,
            "AudioCodec '" + audio + "' does not go into " + container->name + "; it takes " + container->audio};
  }
  for (const char* element : {container->muxer, video_codec->element, audio_codec->element, "videoconvert",
                              "audioconvert", "audioresample", "appsrc"}) {
    if (!HasElement(element)) return MissingElement(element);
  }
  profile.container = container->name;
  profile.video_codec = video_codec->name;
  profile.audio_codec = audio_codec->name;
  profile.muxer = container->muxer;
  profile.video_encoder = VideoEncoder(*video_codec, request);
  profile.audio_encoder = AudioEncoder(*audio_codec, request);
  return {};
}

int SilenceAhead(const std::string& audio_codec, int sample_rate) {
  if (audio_codec == "AAC") return 1024;
  if (audio_codec == "MP3") return 576 + 529;  // of the encoder, and of every decoder
  if (audio_codec != "WMA1" && audio_codec != "WMA2") return 0;
  if (sample_rate <= 16000) return 512;
  return sample_rate <= 22050 || (sample_rate <= 32000 && audio_codec == "WMA1") ? 1024 : 2048;
}

}  // namespace pantiq::gst
