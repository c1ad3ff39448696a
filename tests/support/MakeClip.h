// Small clips for tests: pictures that carry their own number, sound, files made by the library's own writer or by
// ffmpeg.
#pragma once
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "pantiq/platform/PQMediaModule.h"

namespace pantiq::test {

// A folder of its own that goes away with the object.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  std::string File(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

void WriteFile(const std::string& path, const std::string& bytes);
std::string ReadFile(const std::string& path);

// Packed blue, green, red rows: gradients under a strip of eight cells along the top with the number in binary. At
// least 64 by 16 pixels if the number is to be read again.
std::vector<std::uint8_t> TestPicture(int width, int height, int number);
int NumberOf(const std::uint8_t* pixels, std::int64_t step, int width);

struct ClipForm {
  int width = 320, height = 240, frames = 25;
  std::int64_t period = 400000;  // 100 ns
  int sample_rate = 0;           // 0: no sound
  int channels = 2;
  bool index = true;
};

// Writes a clip of numbered pictures with the media module; the text says what failed, empty if nothing did.
std::string MakeClip(PQMediaModule& module, const std::string& path, const ClipForm& form);

bool HaveProgram(const std::string& name);
// Runs ffmpeg with these arguments; false if it is not installed or fails.
bool RunFfmpeg(const std::string& arguments);

}  // namespace pantiq::test
