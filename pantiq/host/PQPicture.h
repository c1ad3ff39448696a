// TBitmap: an array of 24-bit pixels; TPicture: a published picture that loads and saves files.
//
// Pixels are blue, green, red, one byte each; rows run from the top down without gaps (step = 3 * width). Whatever a
// file holds is brought to this form: 16-bit samples to their high byte, palettes and gray to colour, and alpha drawn
// over black with c * a / 255, rounded. Samples are taken as they are; gamma and colour profiles are not applied.
#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pantiq/host/PQPersistent.h"

namespace pantiq {

// Not safe for use by several threads while one of them changes it.
class PQ_EXPORT TBitmap {
 public:
  TBitmap() = default;
  TBitmap(int width, int height) { SetSize(width, height); }

  int GetWidth() const { return width_; }
  int GetHeight() const { return height_; }
  bool IsEmpty() const { return pixels_.empty(); }
  // Bytes from one row to the next.
  std::size_t GetStep() const { return 3 * static_cast<std::size_t>(width_); }

  // The new bitmap is black. A negative side counts as 0; above 2^31 - 1 bytes std::bad_alloc is thrown.
  void SetSize(int width, int height);
  void SetWidth(int width) { SetSize(width, height_); }
  void SetHeight(int height) { SetSize(width_, height); }

  std::uint8_t* Data() { return pixels_.data(); }
  const std::uint8_t* Data() const { return pixels_.data(); }
  // y from 0 to height - 1.
  std::uint8_t* Row(int y) { return pixels_.data() + GetStep() * static_cast<std::size_t>(y); }
  const std::uint8_t* Row(int y) const { return pixels_.data() + GetStep() * static_cast<std::size_t>(y); }

  // Copies `source` to the place (x, y); what lies outside of this bitmap is left out.
  void Draw(int x, int y, const TBitmap& source);
  // Fills the whole bitmap with the nearest pixels of `source`: sx = x * source width / width, in integers.
  void StretchDraw(const TBitmap& source);

  bool operator==(const TBitmap& other) const = default;

 private:
  int width_ = 0, height_ = 0;
  std::vector<std::uint8_t> pixels_;
};

// The same under the name of the toolkit's off-screen bitmap.
using TPQBitmap = TBitmap;

// Changed by the owner-thread; GetSnapshot may be called on any thread.
class PQ_EXPORT TPicture : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  TPicture();
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  int GetWidth() const { return GetSnapshot()->GetWidth(); }
  int GetHeight() const { return GetSnapshot()->GetHeight(); }
  bool IsEmpty() const { return GetSnapshot()->IsEmpty(); }
  // The present picture; a later change makes a new one and leaves this untouched. Never null.
  std::shared_ptr<const TBitmap> GetSnapshot() const;

  // Loads PNG, JPEG or BMP, told apart by content. On failure the picture stays as it is and the status says which file
  // is wrong in which way.
  PQStatus LoadFromFile(const std::string& file_name);
  PQStatus LoadFromMemory(std::span<const std::uint8_t> bytes);
  // PNG, JPEG or BMP by the name's ending: .png, .jpg, .jpeg, .bmp, in any case.
  PQStatus SaveToFile(const std::string& file_name) const;

  // Takes a copy of `height` rows of `width` pixels of three bytes; `step` is the distance between rows in bytes.
  void SetPixels(int width, int height, const std::uint8_t* pixels, std::size_t step);
  void SetBitmap(TBitmap bitmap);
  void Clear();

  void Assign(const TPersistent& source) override;

  // The file that the picture was loaded from; empty if it came from elsewhere or was changed since.
  std::string GetFileName() const;

  // Stored form: the file's name as text, or the picture itself as a block of bytes (PNG, or BMP where PNG support is
  // missing; a picture that was loaded from memory keeps its bytes); nothing if the picture is empty. With `by_name`
  // false a picture with a file's name is stored itself as well.
  PQValue GetStored(bool by_name = true) const;
  PQStatus SetStored(const PQValue& stored);

  // Called on the changing thread after each change. Set it before the picture is shared.
  std::function<void()> OnChange;

 private:
  void Set(std::shared_ptr<const TBitmap> bitmap, std::string file_name, std::shared_ptr<const PQBytes> encoded);

  mutable std::mutex mutex_;  // a leaf: nothing is called under it
  std::shared_ptr<const TBitmap> bitmap_;
  std::string file_name_;
  std::shared_ptr<const PQBytes> encoded_;  // the bytes of a picture that was loaded from memory
};

// Readers and writers of picture files. BMP is always there; a codec is asked in the order of registration.
struct PQPictureCodec {
  std::string_view name;     // "PNG"
  std::string_view endings;  // ".png;.apng", lower case
  bool (*recognise)(std::span<const std::uint8_t> bytes);
  PQStatus (*decode)(std::span<const std::uint8_t> bytes, TBitmap& bitmap);
  PQStatus (*encode)(const TBitmap& bitmap, PQBytes& bytes);
};

// Adds a codec; the record has to live as long as the process. Any thread.
PQ_EXPORT void PQRegisterPictureCodec(const PQPictureCodec& codec);

// Any picture in memory or file, without a TPicture. The bitmap is left alone on failure.
PQ_EXPORT PQStatus PQDecodePicture(std::span<const std::uint8_t> bytes, TBitmap& bitmap);
PQ_EXPORT PQStatus PQEncodePicture(const TBitmap& bitmap, std::string_view ending, PQBytes& bytes);

// The most pixels that a picture may have; larger ones are refused before memory is taken for them.
inline constexpr std::int64_t kPQMostPicturePixels = std::int64_t{1} << 27;

}  // namespace pantiq
