#include "pantiq/media/PQBXASFProfile.h"

#include "pantiq/host/PQReport.h"
#include "pantiq/platform/PQModules.h"

namespace pantiq {

constinit const PQClassTag TBXASFProfile::kTag{"TBXASFProfile", &TPersistent::kTag};

const PQClassInfo& TBXASFProfile::Class() {
  static const PQClassInfo& info =
      PQDescribe<TBXASFProfile>("TBXASFProfile", "PQBXASFProfile", "What a recording is made of.")
          .Property("Container", &TBXASFProfile::GetContainer, &TBXASFProfile::SetContainer, PQDefault(bcAuto),
                    PQActs::NextStart,
                    "Form of the file; auto goes by the file name's ending, asf where it says nothing.")
          .Property("VideoCodec", &TBXASFProfile::GetVideoCodec, &TBXASFProfile::SetVideoCodec, PQDefault(bvAuto),
                    PQActs::NextStart, "Compression of the video; auto is what suits the container and the size.")
          .Property("Quality", &TBXASFProfile::GetQuality, &TBXASFProfile::SetQuality, PQDefault(85), PQUseful(1, 100),
                    PQActs::NextStart, "Quality of the video, 1 (small file) to 100 (good picture).")
          .Property("KeyFrameInterval", &TBXASFProfile::GetKeyFrameInterval, &TBXASFProfile::SetKeyFrameInterval,
                    PQDefault(12), PQUseful(1, 300), PQUnit("frames"), PQActs::NextStart,
                    "Distance of frames that can be jumped to.")
          .Property("AudioCodec", &TBXASFProfile::GetAudioCodec, &TBXASFProfile::SetAudioCodec, PQDefault(baAuto),
                    PQActs::NextStart, "Compression of the sound; auto is what suits the container.")
          .Property("AudioBitRate", &TBXASFProfile::GetAudioBitRate, &TBXASFProfile::SetAudioBitRate, PQDefault(128000),
                    PQUseful(24000, 320000), PQUnit("bits per second"), PQActs::NextStart,
                    "Size of the compressed sound.")
          .Done();
  return info;
}

namespace {

template <class E>
std::string Word(E value) {
  for (const PQWord& word : PQEnumWords<E>::words) {
    if (word.value == static_cast<std::int64_t>(value)) return std::string(word.name);
  }
  return std::to_string(static_cast<int>(value));
}

}  // namespace

bool TBXASFProfile::LoadProfile(PQRecordingProfile& profile, const std::string& file_name, std::int32_t width,
                                std::int32_t height) {
  Values values;
  {
    auto section = lock_.ReadLock();
    values = values_;
  }
  PQRecordingRequest request;
  request.file_name = file_name;
  request.container = Word(values.container);
  request.video_codec = Word(values.video_codec);
  request.quality = values.quality;
  request.key_frame_interval = values.key_frame_interval;
  request.audio_codec = Word(values.audio_codec);
  request.audio_bit_rate = values.audio_bit_rate;
  request.width = width, request.height = height;
  PQPlatformResult result;
  PQMediaModule* module = LoadMediaModule(result);
  if (module != nullptr) result = module->ResolveProfile(request, profile);
  if (result.Ok()) return true;
  Report(&owner_, PQSeverity::Error, "The recording profile cannot be loaded.", result.code, result.detail);
  return false;
}

}  // namespace pantiq
