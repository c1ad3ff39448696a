#include "pantiq/media/PQASFLogger.h"

#include "pantiq/host/PQRegistry.h"

namespace pantiq {

using namespace PQGraphStep;

constinit const PQClassTag TPQASFLogger::kTag{"TPQASFLogger", &TPQDSCommonLogger::kTag};

namespace {

constexpr int kAudioBufferMilliseconds = 1000;
constexpr const char* kNoWriter = "Can't create ASF writer.";
constexpr const char* kNoConfiguration = "Can't configure ASF writer.";

}  // namespace

const PQClassInfo& TPQASFLogger::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQASFLogger>("TPQASFLogger", "PQASFLogger", "Records video and sound to a file.")
          .Inherits<TPQDSCommonLogger>()
          .Object("Profile", &TPQASFLogger::GetProfile, PQActs::NextStart, "What the recording is made of.")
          .Property("FrameIndexing", &TPQASFLogger::GetFrameIndexing, &TPQASFLogger::SetFrameIndexing, PQDefault(true),
                    PQActs::NextStart, "Builds a frame index in the file.")
          .Done();
  return info;
}

TPQASFLogger::TPQASFLogger(TComponent* owner) : TPQDSCommonLogger(owner), profile_(*this, Lock()) {}

void TPQASFLogger::SetFrameIndexing(bool on) {
  auto section = Lock().WriteLock();
  frame_indexing_.store(on, std::memory_order_relaxed);
}

bool TPQASFLogger::BuildGraph() {
  if (graph_.GetInterface() != nullptr) return true;
  const std::string name = GetFileName();
  PQRecordingProfile profile;
  if (name.empty() || !profile_.LoadProfile(profile, name, width_, height_) || !graph_.CreateGraph()) return false;
  const auto graph = graph_.GetInterface();
  PQPlatformResult result;
  // Reports the text if the step before it failed.
  const auto failed = [&](const std::string& text) { return graph_.Failed(result, text); };

  graph_.RegisterAdditionalFilters();
  result = graph->CreateCaptureBuilder();
  if (failed(kNoBuilder)) return false;
  result = graph->QueryMediaControl();
  if (failed(kNoControl)) return false;
  result = graph->SetFiltergraph();
  if (failed(kNoBuilder)) return false;
  result = graph->CreateFilter(PQFilterKind::AsfWriter, PQVideoSubtype::Rgb24, writer_);
  if (failed(kNoWriter)) return false;
  result = graph->AddFilter(writer_, "ASF Writer");
  if (failed(kNoWriter)) return false;
  result = graph->QueryFileSink(writer_);
  if (failed(kNoWriter)) return false;
  result = graph->SetFileName(writer_, name);
  if (failed("Can't create file : " + name + " .")) return false;
  result = graph->QueryAsfConfig(writer_);
  if (failed(kNoConfiguration)) return false;
  result = graph->ConfigureUsingProfile(writer_, profile);
  if (failed(kNoConfiguration)) return false;
  if (GetFrameIndexing()) {
    result = graph->SetIndexMode(writer_, true);
    if (!result.Ok()) graph_.Warning("Can't set frame indexing.", result);
  }

  // The writer's inputs are taken in this order: sound, then video.
  if (has_audio_) {
    result = graph->CreateFilter(PQFilterKind::AudioSource, PQVideoSubtype::Rgb24, audio_source_);
    if (failed(kNoAudioSource)) return false;
    const PQAudioFormat format{wave_format_.samples_per_second, wave_format_.channels, wave_format_.bits_per_sample};
    result = graph->SetAudioFormat(audio_source_, format, false, kAudioBufferMilliseconds);
    if (failed(kNoAudioSource)) return false;
    result = graph->AddFilter(audio_source_, "AudioSource");
    if (failed(kNoAudioSource)) return false;
    result = graph->Render(audio_source_, 0, writer_);
    if (failed(kNoAudioOutput)) return false;
  }
  // Frames of half a pair of pixels exist in no encoder's input: odd widths are recorded from RGB.
  if (frame_format_ != vfYUY2 || width_ % 2 != 0) frame_format_ = vfRGB24;
  const PQVideoSubtype subtype = frame_format_ == vfYUY2 ? PQVideoSubtype::Yuy2 : PQVideoSubtype::Rgb24;
  result = graph->CreateFilter(PQFilterKind::VideoSource, subtype, video_source_);
  if (failed(kNoVideoSource)) return false;
  result = graph->SetVideoSize(video_source_, width_, height_, period_);
  if (failed(kNoVideoSource)) return false;
  result = graph->AddFilter(video_source_, "VideoSource");
  if (failed(kNoVideoSource)) return false;
  result = graph->Render(video_source_, 0, writer_);
  if (failed(kNoVideoOutput)) return false;

  graph_.BeforeRun();
  result = graph->Run();
  if (!result.Ok()) {
    (void)graph->Stop();
    graph_.Error(kNoLogger, result);
    return false;
  }
  graph_.RegisterGraph();
  running_.store(true);
  return true;
}

void PQASFLogger::Register() {
  const PQClassInfo* const classes[] = {&TPQASFLogger::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
