// TBXASFProfile: what a recording is made of. Acts at the next start.
#pragma once
#include <cstdint>
#include <string>

#include "pantiq/core/JCStdTypes.h"
#include "pantiq/host/PQComponent.h"
#include "pantiq/platform/PQMediaGraph.h"

namespace pantiq {

enum TBXContainer : std::uint8_t { bcAuto, bcASF, bcWMV, bcMKV, bcMP4, bcAVI };
enum TBXVideoCodec : std::uint8_t { bvAuto, bvWMV2, bvWMV1, bvMP43, bvMPEG4, bvH264 };
enum TBXAudioCodec : std::uint8_t { baAuto, baWMA2, baWMA1, baMP3, baAAC, baPCM };
template <>
struct PQEnumWords<TBXContainer> {
  static constexpr std::string_view name = "TBXContainer";
  static constexpr PQWord words[] = {{"auto", 0}, {"asf", 1}, {"wmv", 2}, {"mkv", 3}, {"mp4", 4}, {"avi", 5}};
};
template <>
struct PQEnumWords<TBXVideoCodec> {
  static constexpr std::string_view name = "TBXVideoCodec";
  static constexpr PQWord words[] = {{"auto", 0}, {"WMV2", 1}, {"WMV1", 2}, {"MP43", 3}, {"MPEG4", 4}, {"H264", 5}};
};
template <>
struct PQEnumWords<TBXAudioCodec> {
  static constexpr std::string_view name = "TBXAudioCodec";
  static constexpr PQWord words[] = {{"auto", 0}, {"WMA2", 1}, {"WMA1", 2}, {"MP3", 3}, {"AAC", 4}, {"PCM", 5}};
};

// Setters on any thread; they take the owner's lock.
class PQ_EXPORT TBXASFProfile final : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  // `lock` belongs to the owner and outlives the profile.
  TBXASFProfile(TComponent& owner, const TJCObject& lock) : owner_(owner), lock_(lock) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TBXContainer GetContainer() const { return Read(&Values::container); }
  void SetContainer(TBXContainer value) { Store(&Values::container, value); }
  TBXVideoCodec GetVideoCodec() const { return Read(&Values::video_codec); }
  void SetVideoCodec(TBXVideoCodec value) { Store(&Values::video_codec, value); }
  // 1 (small) to 100 (good); what lies outside counts as the nearer end.
  std::int32_t GetQuality() const { return Read(&Values::quality); }
  void SetQuality(std::int32_t value) { Store(&Values::quality, value); }
  // Frames from one key frame to the next.
  std::int32_t GetKeyFrameInterval() const { return Read(&Values::key_frame_interval); }
  void SetKeyFrameInterval(std::int32_t value) { Store(&Values::key_frame_interval, value); }
  TBXAudioCodec GetAudioCodec() const { return Read(&Values::audio_codec); }
  void SetAudioCodec(TBXAudioCodec value) { Store(&Values::audio_codec, value); }
  // Bits per second.
  std::int32_t GetAudioBitRate() const { return Read(&Values::audio_bit_rate); }
  void SetAudioBitRate(std::int32_t value) { Store(&Values::audio_bit_rate, value); }

  // Chooses the elements of a recording to `file_name` with frames of this size. False if something is missing or does
  // not go together; what it is has been reported then.
  bool LoadProfile(PQRecordingProfile& profile, const std::string& file_name, std::int32_t width, std::int32_t height);

 private:
  struct Values {
    TBXContainer container = bcAuto;
    TBXVideoCodec video_codec = bvAuto;
    TBXAudioCodec audio_codec = baAuto;
    std::int32_t quality = 85, key_frame_interval = 12, audio_bit_rate = 128000;
  };
  template <class V>
  V Read(V Values::*field) const {
    auto section = lock_.ReadLock();
    return values_.*field;
  }
  template <class V>
  void Store(V Values::*field, V value) {
    auto section = lock_.WriteLock();
    values_.*field = value;
  }
  TComponent& owner_;
  const TJCObject& lock_;
  Values values_;
};

}  // namespace pantiq
