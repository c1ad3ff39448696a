#include "FramesSink.h"

#include <algorithm>
#include <charconv>
#include <filesystem>

#include "pantiq/host/PQPicture.h"

namespace pantiq::app {

constinit const PQClassTag FramesSink::kTag{"frames", &ImageSink::kTag};

const PQClassInfo& FramesSink::Class() {
  static const PQClassInfo& info =
      PQDescribe<FramesSink>("frames", "FramesSink", "Writes each frame as a picture file: PNG, JPEG or BMP.")
          .Inherits<ImageSink>()
          .Property("FileName", &FramesSink::GetFileName, &FramesSink::SetFileName, PQDefault("frame-%04d.png"),
                    PQBareValue{}, PQFile(PQFileUse::Write), PQActs::NextStart,
                    "Pattern of the files' names with one %d form for the number, from 0; .png, .jpg, .jpeg or .bmp.")
          .Done();
  return info;
}

std::string NamePattern::Name(std::int64_t number) const {
  std::string digits = std::to_string(number);
  if (const auto least = static_cast<std::size_t>(width); digits.size() < least) {
    digits.insert(0, least - digits.size(), zeros ? '0' : ' ');
  }
  return before + digits + after;
}

bool NamePattern::Matches(std::string_view name) const {
  if (name.size() <= before.size() + after.size() || !name.starts_with(before) || !name.ends_with(after)) return false;
  std::string_view digits = name.substr(before.size(), name.size() - before.size() - after.size());
  digits.remove_prefix(std::min(digits.find_first_not_of(zeros ? '0' : ' '), digits.size() - 1));
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return error == std::errc() && end == digits.data() + digits.size() && number >= 0 && Name(number) == name;
}

PQStatus NamePattern::Parse(std::string_view text, NamePattern& pattern) {
  pattern = {};
  bool found = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::string& part = found ? pattern.after : pattern.before;
    if (text[i] != '%') {
      part += text[i];
      continue;
    }
    if (i + 1 < text.size() && text[i + 1] == '%') {
      part += text[i++];
      continue;
    }
    std::size_t end = i + 1;
    int width = 0;
    const bool zeros = end < text.size() && text[end] == '0';
    while (end < text.size() && text[end] >= '0' && text[end] <= '9' && width < 100)
      width = 10 * width + (text[end++] - '0');
    if (end == text.size() || text[end] != 'd' || width > 20) {
      return PQStatus(PQCode::BadValue, "'" + std::string(text.substr(i, end + 1 - i)) + "' is no form of %d");
    }
    if (found) return PQStatus(PQCode::BadValue, "more than one %d form");
    found = true, pattern.width = width, pattern.zeros = zeros;
    i = end;
  }
  return found ? PQStatus() : PQStatus(PQCode::BadValue, "no %d form, so that every frame would have the same name");
}

bool IsPictureName(const std::string& name) {
  std::string ending = std::filesystem::path(name).extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return ending == ".png" || ending == ".jpg" || ending == ".jpeg" || ending == ".bmp";
}

PQStatus FramesSink::SetFileName(const std::string& name) {
  const auto refuse = [&](const std::string& why) {
    return PQStatus(PQCode::BadValue, "'" + name + "': " + why + "; a pattern is like 'out-%04d.png'");
  };
  NamePattern pattern;
  if (PQStatus status = NamePattern::Parse(name, pattern); !status.Ok()) return refuse(status.Text());
  if (pattern.after.find('/') != std::string::npos) return refuse("the %d form stands in a folder's name");
  if (!IsPictureName(name)) return refuse("the ending is none of .png, .jpg, .jpeg, .bmp");
  return ImageSink::SetFileName(name);
}

std::string FramesSink::OutputFolder() const {
  const std::string folder = std::filesystem::path(GetFileName()).parent_path().string();
  return folder.empty() ? "." : folder;
}

std::vector<std::string> FramesSink::ExistingOutputs() const {
  NamePattern pattern;
  if (!NamePattern::Parse(GetFileName(), pattern).Ok()) return {};
  const std::string folder = OutputFolder();
  const bool bare = pattern.before.find('/') == std::string::npos;
  std::vector<std::string> existing;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    const std::string leaf = entry->path().filename().string();
    const std::string name = bare ? leaf : pattern.before.substr(0, pattern.before.rfind('/') + 1) + leaf;
    if (pattern.Matches(name)) existing.push_back(name);
  }
  std::sort(existing.begin(), existing.end());
  return existing;
}

PQStatus FramesSink::Frame(const TPQImageBuffer& frame, std::int64_t number) {
  if (frame.GetByteSize() == 0) {
    return PQStatus(PQCode::BadValue, "frame " + std::to_string(number) + " has no pixels (" + SizeText(frame) + ")");
  }
  NamePattern pattern;
  if (PQStatus status = NamePattern::Parse(GetFileName(), pattern); !status.Ok()) return status;
  const PQRef<TPQImageBuffer> colour = PQMakeRef<TPQImageBuffer>(frame);
  colour->SetFormat(vfRGB24);
  TPicture picture;
  picture.SetPixels(colour->GetWidth(), colour->GetHeight(), colour->Read(),
                    static_cast<std::size_t>(colour->GetStep()));
  return picture.SaveToFile(pattern.Name(number));
}

}  // namespace pantiq::app
