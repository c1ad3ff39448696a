#include "support/MakeClip.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <system_error>

#if defined(__SANITIZE_THREAD__)
// GStreamer and the decoders are not instrumented: what they do to memory is theirs, and the sanitizer cannot see how
// they order it.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
  return "ignore_noninstrumented_modules=1";
}
#endif

namespace pantiq::test {

TempFolder::TempFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "pantiq-test-XXXXXX").string();
  if (mkdtemp(name.data()) != nullptr) path_ = name;
}

TempFolder::~TempFolder() {
  std::error_code error;
  if (!path_.empty()) std::filesystem::remove_all(path_, error);
}

void WriteFile(const std::string& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

std::string ReadFile(const std::string& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

std::vector<std::uint8_t> TestPicture(int width, int height, int number) {
  std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);
  const int cell = std::max(width / 8, 1);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      std::uint8_t* p =
          &pixels[(static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) * 3];
      p[0] = static_cast<std::uint8_t>(40 + x * 170 / width);
      p[1] = static_cast<std::uint8_t>(40 + y * 170 / height);
      p[2] = 128;
      if (y < 16) p[0] = p[1] = p[2] = (number >> std::min(x / cell, 7)) & 1 ? 220 : 30;
    }
  }
  return pixels;
}

int NumberOf(const std::uint8_t* pixels, std::int64_t step, int width) {
  int number = 0;
  const int cell = width / 8;
  for (int bit = 0; bit < 8; ++bit) {
    if (pixels[8 * step + (bit * cell + cell / 2) * 3 + 1] > 125) number |= 1 << bit;
  }
  return number;
}

namespace {

PQPlatformBlock Block(std::vector<std::uint8_t> bytes, std::int64_t step, std::int64_t begin, std::int64_t end) {
  const auto memory = std::make_shared<std::vector<std::uint8_t>>(std::move(bytes));
  PQPlatformBlock block;
  block.data = memory->data(), block.size = memory->size(), block.step = step;
  block.begin = begin, block.end = end, block.keep_alive = memory;
  return block;
}

std::vector<std::uint8_t> Tone(int first, int samples, int rate, int channels) {
  std::vector<std::uint8_t> bytes;
  for (int i = first; i < first + samples; ++i) {
    const auto value = static_cast<std::int16_t>(8000 * std::sin(i * 2 * 3.14159265 * 440 / rate));
    for (int c = 0; c < channels; ++c) {
      bytes.push_back(static_cast<std::uint8_t>(value & 0xff));
      bytes.push_back(static_cast<std::uint8_t>((value >> 8) & 0xff));
    }
  }
  return bytes;
}

}  // namespace

std::string MakeClip(PQMediaModule& module, const std::string& path, const ClipForm& form) {
  PQPlatformResult result;
  const auto graph = module.CreateGraph(result);
  PQRecordingRequest request;
  request.file_name = path, request.width = form.width, request.height = form.height;
  PQRecordingProfile profile;
  PQFilterId writer = 0, audio = 0, video = 0;
  const auto ok = [&result](PQPlatformResult answer) {
    if (result.Ok()) result = std::move(answer);
    return result.Ok();
  };
  if (!ok(module.ResolveProfile(request, profile)) || !ok(graph->CreateGraph()) ||
      !ok(graph->CreateFilter(PQFilterKind::AsfWriter, PQVideoSubtype::Rgb24, writer)) ||
      !ok(graph->AddFilter(writer, "writer")) || !ok(graph->SetFileName(writer, path)) ||
      !ok(graph->ConfigureUsingProfile(writer, profile)) || !ok(graph->SetIndexMode(writer, form.index))) {
    return result.detail;
  }
  if (form.sample_rate > 0 && (!ok(graph->CreateFilter(PQFilterKind::AudioSource, PQVideoSubtype::Rgb24, audio)) ||
                               !ok(graph->SetAudioFormat(audio, {form.sample_rate, form.channels, 16}, false, 1000)) ||
                               !ok(graph->AddFilter(audio, "audio")) || !ok(graph->Render(audio, 0, writer)))) {
    return result.detail;
  }
  if (!ok(graph->CreateFilter(PQFilterKind::VideoSource, PQVideoSubtype::Rgb24, video)) ||
      !ok(graph->SetVideoSize(video, form.width, form.height, form.period)) || !ok(graph->AddFilter(video, "video")) ||
      !ok(graph->Render(video, 0, writer)) || !ok(graph->Run())) {
    return result.detail;
  }
  std::int64_t samples = 0;
  for (int i = 0; i < form.frames; ++i) {
    const std::int64_t begin = i * form.period, end = begin + form.period;
    if (!ok(graph->SendVideo(video, Block(TestPicture(form.width, form.height, i), form.width * 3, begin, end)))) break;
    if (audio == 0) continue;
    const std::int64_t until = end * form.sample_rate / 10000000;
    const auto time = [&](std::int64_t sample) { return sample * 10000000 / form.sample_rate; };
    if (!ok(graph->SendAudio(audio, Block(Tone(static_cast<int>(samples), static_cast<int>(until - samples),
                                               form.sample_rate, form.channels),
                                          0, time(samples), time(until))))) {
      break;
    }
    samples = until;
  }
  if (result.Ok() && audio != 0) ok(graph->EndOfStream(audio));
  if (result.Ok()) ok(graph->EndOfStream(video));
  if (result.Ok()) ok(graph->Drain(20000));
  (void)graph->Stop();
  return result.Ok() ? std::string() : "failed: " + result.detail;
}

bool HaveProgram(const std::string& name) {
  return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

bool RunFfmpeg(const std::string& arguments) {
  return HaveProgram("ffmpeg") &&
         std::system(("ffmpeg -v error -nostdin -y " + arguments + " >/dev/null 2>&1").c_str()) == 0;
}

}  // namespace pantiq::test
