#include "pantiq/platform/gst/PQAsfFile.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace pantiq::gst {
namespace {

using Guid = std::array<std::uint8_t, 16>;
constexpr Guid kHeader = {0x30, 0x26, 0xb2, 0x75, 0x8e, 0x66, 0xcf, 0x11,
                          0xa6, 0xd9, 0x00, 0xaa, 0x00, 0x62, 0xce, 0x6c};
constexpr Guid kData = {0x36, 0x26, 0xb2, 0x75, 0x8e, 0x66, 0xcf, 0x11, 0xa6, 0xd9, 0x00, 0xaa, 0x00, 0x62, 0xce, 0x6c};
constexpr Guid kFileProperties = {0xa1, 0xdc, 0xab, 0x8c, 0x47, 0xa9, 0xcf, 0x11,
                                  0x8e, 0xe4, 0x00, 0xc0, 0x0c, 0x20, 0x53, 0x65};
constexpr Guid kHeaderExtension = {0xb5, 0x03, 0xbf, 0x5f, 0x2e, 0xa9, 0xcf, 0x11,
                                   0x8e, 0xe3, 0x00, 0xc0, 0x0c, 0x20, 0x53, 0x65};
constexpr Guid kStreamProperties = {0x91, 0x07, 0xdc, 0xb7, 0xb7, 0xa9, 0xcf, 0x11,
                                    0x8e, 0xe6, 0x00, 0xc0, 0x0c, 0x20, 0x53, 0x65};
constexpr Guid kExtendedStream = {0xcb, 0xa5, 0xe6, 0x14, 0x72, 0xc6, 0x32, 0x43,
                                  0x83, 0x99, 0xa9, 0x69, 0x52, 0x06, 0x5b, 0x5a};
constexpr Guid kPadding = {0x74, 0xd4, 0x06, 0x18, 0xdf, 0xca, 0x09, 0x45,
                           0xa4, 0xba, 0x9a, 0xab, 0xcb, 0x96, 0xaa, 0xe8};

constexpr std::size_t kObjectHead = 24;  // GUID and 64-bit size
constexpr std::size_t kHeaderHead = 30;  // object head, count of objects, two reserved bytes
constexpr std::size_t kExtendedSize = 88;
constexpr std::size_t kFileSizeAt = 40;       // of the file properties object
constexpr std::size_t kExtensionSizeAt = 42;  // of the header extension object
constexpr std::uint64_t kGreatestHeader = 1 << 20;

template <class T>
T Get(const std::uint8_t* at) {
  T value = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) value |= static_cast<T>(at[i]) << (8 * i);
  return value;
}
template <class T>
void Put(std::uint8_t* at, T value) {
  for (std::size_t i = 0; i < sizeof(T); ++i) at[i] = static_cast<std::uint8_t>(value >> (8 * i));
}
bool Is(const std::uint8_t* at, const Guid& guid) { return std::memcmp(at, guid.data(), guid.size()) == 0; }

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, CloseFile>;

bool ReadAt(std::FILE* file, std::uint64_t at, std::uint8_t* data, std::size_t size) {
  return fseeko(file, static_cast<off_t>(at), SEEK_SET) == 0 && std::fread(data, 1, size, file) == size;
}

std::vector<std::uint8_t> ExtendedStream(int stream, std::int64_t average_frame_time) {
  std::vector<std::uint8_t> object(kExtendedSize, 0);
  std::copy(kExtendedStream.begin(), kExtendedStream.end(), object.begin());
  Put<std::uint64_t>(&object[16], kExtendedSize);
  Put<std::uint32_t>(&object[68], 2);  // flags: seekable
  Put<std::uint16_t>(&object[72], static_cast<std::uint16_t>(stream));
  Put<std::uint64_t>(&object[76], static_cast<std::uint64_t>(average_frame_time));
  return object;
}

// The header with the extended stream properties in its extension. Room for them comes from the descriptive objects
// (codec names, name of the encoder), which no reader needs; what is left of it becomes padding. Empty if it does not
// fit.
std::vector<std::uint8_t> WithFrameTime(const std::vector<std::uint8_t>& header, const PQAsfCorrections& corrections) {
  std::vector<std::uint8_t> result(header.begin(), header.begin() + kHeaderHead);
  std::uint32_t count = 0;
  bool extended = false;
  for (std::size_t at = kHeaderHead; at + kObjectHead <= header.size();) {
    const std::uint64_t size = Get<std::uint64_t>(&header[at + 16]);
    if (size < kObjectHead || size > header.size() - at) return {};
    const std::uint8_t* object = &header[at];
    const std::size_t place = result.size();
    if (Is(object, kFileProperties) || Is(object, kStreamProperties) || Is(object, kHeaderExtension)) {
      result.insert(result.end(), object, object + size);
      ++count;
    }
    if (Is(object, kHeaderExtension) && size >= kExtensionSizeAt + 4 && !extended) {
      const auto extra = ExtendedStream(corrections.video_stream, corrections.average_frame_time);
      result.insert(result.end(), extra.begin(), extra.end());
      Put<std::uint64_t>(&result[place + 16], size + extra.size());
      Put<std::uint32_t>(&result[place + kExtensionSizeAt], Get<std::uint32_t>(&result[place + kExtensionSizeAt]) +
                                                                static_cast<std::uint32_t>(extra.size()));
      extended = true;
    }
    at += static_cast<std::size_t>(size);
  }
  if (!extended || result.size() > header.size()) return {};
  const std::size_t rest = header.size() - result.size();
  if (rest != 0) {
    if (rest < kObjectHead) return {};
    const std::size_t place = result.size();
    result.resize(header.size(), 0);
    std::copy(kPadding.begin(), kPadding.end(), result.begin() + static_cast<std::ptrdiff_t>(place));
    Put<std::uint64_t>(&result[place + 16], rest);
    ++count;
  }
  Put<std::uint32_t>(&result[24], count);
  return result;
}

std::uint8_t* FindFileProperties(std::vector<std::uint8_t>& header) {
  for (std::size_t at = kHeaderHead; at + kObjectHead <= header.size();) {
    const std::uint64_t size = Get<std::uint64_t>(&header[at + 16]);
    if (size < kObjectHead || size > header.size() - at) return nullptr;
    if (Is(&header[at], kFileProperties) && size >= kFileSizeAt + 8) return &header[at];
    at += static_cast<std::size_t>(size);
  }
  return nullptr;
}

}  // namespace

bool IsAsfFile(const std::string& path) {
  const FilePtr file(std::fopen(path.c_str(), "rbe"));
  std::uint8_t guid[16];
  return file != nullptr && ReadAt(file.get(), 0, guid, sizeof guid) && Is(guid, kHeader);
}

PQPlatformResult CorrectAsfFile(const std::string& path, const PQAsfCorrections& corrections) {
  const FilePtr file(std::fopen(path.c_str(), "r+be"));
  if (file == nullptr) return {kPlatformIo, "cannot open " + path + " again"};
  const PQPlatformResult refused(kPlatformFormat, path + " is not a complete ASF file");
  std::uint8_t head[kHeaderHead];
  if (!ReadAt(file.get(), 0, head, sizeof head) || !Is(head, kHeader)) return refused;
  const std::uint64_t header_size = Get<std::uint64_t>(head + 16);
  if (header_size < kHeaderHead || header_size > kGreatestHeader) return refused;
  std::vector<std::uint8_t> header(static_cast<std::size_t>(header_size));
  std::uint8_t data_head[kObjectHead];
  if (!ReadAt(file.get(), 0, header.data(), header.size()) ||
      !ReadAt(file.get(), header_size, data_head, sizeof data_head) || !Is(data_head, kData)) {
    return refused;
  }

  bool fits = true;
  if (corrections.average_frame_time > 0 && corrections.video_stream > 0) {
    auto changed = WithFrameTime(header, corrections);
    fits = !changed.empty();
    if (fits) header = std::move(changed);
  }
  std::uint64_t file_size = 0;
  if (corrections.drop_index) {
    const std::uint64_t data_size = Get<std::uint64_t>(data_head + 16);
    std::uint8_t* properties = FindFileProperties(header);
    if (properties == nullptr || data_size < kObjectHead) return refused;
    if (fseeko(file.get(), 0, SEEK_END) != 0) return refused;
    const auto present = static_cast<std::uint64_t>(ftello(file.get()));
    if (data_size > present - header_size) return refused;
    file_size = header_size + data_size;
    Put<std::uint64_t>(properties + kFileSizeAt, file_size);
  }
  if (fseeko(file.get(), 0, SEEK_SET) != 0 ||
      std::fwrite(header.data(), 1, header.size(), file.get()) != header.size() || std::fflush(file.get()) != 0) {
    return {kPlatformIo, "cannot correct the header of " + path};
  }
  if (corrections.drop_index && ftruncate(fileno(file.get()), static_cast<off_t>(file_size)) != 0) {
    return {kPlatformIo, "cannot cut the index of " + path};
  }
  if (!fits) return {kPlatformFormat, "the header of " + path + " has no room for the frame time"};
  return {};
}

}  // namespace pantiq::gst
