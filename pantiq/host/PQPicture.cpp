#include "pantiq/host/PQPicture.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "pantiq/host/PQPictureFile.h"

namespace pantiq {
namespace {

struct Codecs {
  std::mutex mutex;
  std::vector<const PQPictureCodec*> list{&detail::kBmpCodec, &detail::kPngCodec, &detail::kJpegCodec};
};

Codecs& TheCodecs() {
  static Codecs& codecs = *new Codecs;  // never destroyed, like every table of the library
  return codecs;
}

std::vector<const PQPictureCodec*> AllCodecs() {
  Codecs& codecs = TheCodecs();
  const std::lock_guard lock(codecs.mutex);
  return codecs.list;
}

std::string EndingOf(std::string_view file_name) {
  const std::size_t point = file_name.rfind('.');
  std::string ending(point == std::string_view::npos ? std::string_view() : file_name.substr(point));
  for (char& c : ending) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return ending;
}

bool HasEnding(const PQPictureCodec& codec, std::string_view ending) {
  for (std::string_view rest = codec.endings; !rest.empty();) {
    const std::size_t end = rest.find(';');
    if (rest.substr(0, end) == ending) return true;
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
  }
  return false;
}

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

PQStatus IoFault(const std::string& file_name, const char* doing, int error) {
  return {error == ENOENT ? PQCode::NotFound : PQCode::Io,
          "'" + file_name + "' cannot be " + doing + ": " + std::strerror(error) + "; expected a picture file"};
}

PQStatus ReadFile(const std::string& file_name, PQBytes& bytes) {
  const File file(std::fopen(file_name.c_str(), "rb"));
  if (!file) return IoFault(file_name, "opened", errno);
  std::uint8_t block[65536];
  for (std::size_t count; (count = std::fread(block, 1, sizeof block, file.get())) != 0;) {
    if (bytes.size() > (std::size_t{1} << 30)) {
      return {PQCode::BadFormat, "'" + file_name + "' is too long for a picture; expected at most 1 GiB"};
    }
    bytes.insert(bytes.end(), block, block + count);
  }
  if (std::ferror(file.get()) != 0) return IoFault(file_name, "read", errno);
  return {};
}

}  // namespace

void TBitmap::SetSize(int width, int height) {
  width = std::max(width, 0), height = std::max(height, 0);
  const std::uint64_t size = std::uint64_t{3} * static_cast<unsigned>(width) * static_cast<unsigned>(height);
  if (size > 0x7fffffffu) throw std::bad_alloc();
  pixels_.assign(static_cast<std::size_t>(size), 0);
  width_ = width, height_ = height;
}

void TBitmap::Draw(int x, int y, const TBitmap& source) {
  const std::int64_t left = std::max(x, 0), right = std::min<std::int64_t>(std::int64_t{x} + source.width_, width_);
  const std::int64_t top = std::max(y, 0), bottom = std::min<std::int64_t>(std::int64_t{y} + source.height_, height_);
  if (left >= right) return;
  for (std::int64_t row = top; row < bottom; ++row) {
    std::memmove(Row(static_cast<int>(row)) + 3 * left, source.Row(static_cast<int>(row - y)) + 3 * (left - x),
                 static_cast<std::size_t>(3 * (right - left)));
  }
}

void TBitmap::StretchDraw(const TBitmap& source) {
  if (source.IsEmpty()) return;
  for (int y = 0; y < height_; ++y) {
    const std::uint8_t* from = source.Row(static_cast<int>(std::int64_t{y} * source.height_ / height_));
    std::uint8_t* to = Row(y);
    for (int x = 0; x < width_; ++x, to += 3) {
      std::memcpy(to, from + 3 * (std::int64_t{x} * source.width_ / width_), 3);
    }
  }
}

constinit const PQClassTag TPicture::kTag{"TPicture", &TPersistent::kTag};

const PQClassInfo& TPicture::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPicture>("TPicture", "PQPicture", "A picture of 24-bit pixels.").Inherits<TPersistent>().Done();
  return info;
}

TPicture::TPicture() : bitmap_(std::make_shared<const TBitmap>()) {}

std::shared_ptr<const TBitmap> TPicture::GetSnapshot() const {
  const std::lock_guard lock(mutex_);
  return bitmap_;
}

std::string TPicture::GetFileName() const {
  const std::lock_guard lock(mutex_);
  return file_name_;
}

void TPicture::Set(std::shared_ptr<const TBitmap> bitmap, std::string file_name,
                   std::shared_ptr<const PQBytes> encoded) {
  {
    const std::lock_guard lock(mutex_);
    bitmap_.swap(bitmap);
    file_name_.swap(file_name);
    encoded_.swap(encoded);
  }
  if (OnChange) OnChange();
}

PQStatus TPicture::LoadFromFile(const std::string& file_name) {
  PQBytes bytes;
  if (PQStatus status = ReadFile(file_name, bytes); !status.Ok()) return status;
  auto bitmap = std::make_shared<TBitmap>();
  if (const PQStatus status = PQDecodePicture(bytes, *bitmap); !status.Ok()) {
    return {status.Code(), "'" + file_name + "': " + status.Text()};
  }
  Set(std::move(bitmap), file_name, nullptr);
  return {};
}

PQStatus TPicture::LoadFromMemory(std::span<const std::uint8_t> bytes) {
  auto bitmap = std::make_shared<TBitmap>();
  if (PQStatus status = PQDecodePicture(bytes, *bitmap); !status.Ok()) return status;
  Set(std::move(bitmap), {}, std::make_shared<const PQBytes>(bytes.begin(), bytes.end()));
  return {};
}

PQStatus TPicture::SaveToFile(const std::string& file_name) const {
  PQBytes bytes;
  if (const PQStatus status = PQEncodePicture(*GetSnapshot(), EndingOf(file_name), bytes); !status.Ok()) {
    return {status.Code(), "'" + file_name + "': " + status.Text()};
  }
  File file(std::fopen(file_name.c_str(), "wb"));
  if (!file) return IoFault(file_name, "written", errno);
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
  if (std::fclose(file.release()) != 0 || !written) return IoFault(file_name, "written", errno);
  return {};
}

void TPicture::SetPixels(int width, int height, const std::uint8_t* pixels, std::size_t step) {
  TBitmap bitmap(width, height);
  for (int y = 0; y < bitmap.GetHeight() && bitmap.GetStep() != 0; ++y) {
    std::memcpy(bitmap.Row(y), pixels + step * static_cast<std::size_t>(y), bitmap.GetStep());
  }
  SetBitmap(std::move(bitmap));
}

void TPicture::SetBitmap(TBitmap bitmap) { Set(std::make_shared<const TBitmap>(std::move(bitmap)), {}, nullptr); }

void TPicture::Clear() { Set(std::make_shared<const TBitmap>(), {}, nullptr); }

void TPicture::Assign(const TPersistent& source) {
  const TPicture* other = PQCast<const TPicture>(&source);
  if (other == nullptr || other == this) return;
  std::shared_ptr<const TBitmap> bitmap;
  std::string file_name;
  std::shared_ptr<const PQBytes> encoded;
  {
    const std::lock_guard lock(other->mutex_);
    bitmap = other->bitmap_, file_name = other->file_name_, encoded = other->encoded_;
  }
  Set(std::move(bitmap), std::move(file_name), std::move(encoded));
}

PQValue TPicture::GetStored(bool by_name) const {
  std::shared_ptr<const TBitmap> bitmap;
  {
    const std::lock_guard lock(mutex_);
    if (by_name && !file_name_.empty()) return PQValue(file_name_);
    if (encoded_ != nullptr) return PQValue(*encoded_);
    bitmap = bitmap_;
  }
  if (bitmap->IsEmpty()) return {};
  PQBytes bytes;
  if (!PQEncodePicture(*bitmap, detail::kHasPictureLibraries ? ".png" : ".bmp", bytes).Ok()) return {};
  return PQValue(std::move(bytes));
}

PQStatus TPicture::SetStored(const PQValue& stored) {
  if (const std::string* name = stored.Text(); name != nullptr && !name->empty()) return LoadFromFile(*name);
  if (const PQBytes* bytes = stored.Bytes(); bytes != nullptr && !bytes->empty()) return LoadFromMemory(*bytes);
  Clear();
  return {};
}

void PQRegisterPictureCodec(const PQPictureCodec& codec) {
  Codecs& codecs = TheCodecs();
  const std::lock_guard lock(codecs.mutex);
  codecs.list.push_back(&codec);
}

PQStatus PQDecodePicture(std::span<const std::uint8_t> bytes, TBitmap& bitmap) {
  for (const PQPictureCodec* codec : AllCodecs()) {
    if (!codec->recognise(bytes)) continue;
    TBitmap decoded;
    if (PQStatus status = codec->decode(bytes, decoded); !status.Ok()) return status;
    bitmap = std::move(decoded);
    return {};
  }
  return {PQCode::BadFormat, "the content is no picture that is known; expected PNG, JPEG or BMP"};
}

PQStatus PQEncodePicture(const TBitmap& bitmap, std::string_view ending, PQBytes& bytes) {
  if (bitmap.IsEmpty()) return {PQCode::BadValue, "an empty picture cannot be saved; expected at least one pixel"};
  for (const PQPictureCodec* codec : AllCodecs()) {
    if (HasEnding(*codec, ending) && codec->encode != nullptr) return codec->encode(bitmap, bytes);
  }
  return {PQCode::BadValue,
          "'" + std::string(ending) + "' is no ending of a picture file; expected .png, .jpg, .jpeg or .bmp"};
}

namespace detail {

PQStatus CheckPictureSize(std::int64_t width, std::int64_t height, std::int64_t bytes_needed, std::size_t size) {
  const auto shown = [&] { return std::to_string(width) + "x" + std::to_string(height); };
  if (width <= 0 || height <= 0)
    return {PQCode::BadFormat, "a picture of " + shown() + " pixels; expected at least 1x1"};
  if (width > kPQMostPicturePixels || height > kPQMostPicturePixels || width * height > kPQMostPicturePixels) {
    return {PQCode::Refused, "a picture of " + shown() + " pixels; expected at most " +
                                 std::to_string(kPQMostPicturePixels) + " pixels"};
  }
  if (bytes_needed > static_cast<std::int64_t>(size)) {
    return {PQCode::BadFormat, "the file is cut off: " + std::to_string(size) + " bytes cannot hold " + shown() +
                                   " pixels; expected at least " + std::to_string(bytes_needed)};
  }
  return {};
}

}  // namespace detail
}  // namespace pantiq
