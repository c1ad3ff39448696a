// Frames. A frame is a buffer of pixels with a size, a format and four stamps, shared until somebody writes to it.
//
// Pixels lie row by row from the top of the picture down, without padding: the step is the width times the pixel size.
// In vfRGB24 byte 0 of a pixel is blue, byte 1 green, byte 2 red. A TColor is 0x00BBGGRR.
//
// Writing. `Write` gives a private block whose old pixels are lost, `Modify` one that keeps them; both leave the other
// holders of the storage alone. A component never writes through `Read`.
#pragma once
#include <cstdint>

#include "pantiq/core/RWDataBuffer.h"
#include "pantiq/host/PQClassInfo.h"
#include "pantiq/host/PQPicture.h"
#include "pantiq/kernels/PQImageDefs.h"

namespace pantiq {

enum TPQVideoFormat : std::uint8_t {
  vfRGB24 = 0,       // 3 bytes a pixel: blue, green, red
  vfYUY2 = 1,        // 2 bytes a pixel: Y0 U Y1 V for a pair of pixels
  vfGrayScale = 2,   // 1 byte a pixel
  vfUnspecified = 3  // no layout of its own
};

enum TPQColorMode : std::uint8_t { cmRGB, cmHLS, cmHSV, cmYUV, cmLUV, cmXYZ, cmYCbCr, cmYCC, cmLab };

template <>
struct PQEnumWords<TPQVideoFormat> {
  static constexpr std::string_view name = "TPQVideoFormat";
  static constexpr PQWord words[] = {{"vfRGB24", 0}, {"vfYUY2", 1}, {"vfGrayScale", 2}, {"vfUnspecified", 3}};
};
template <>
struct PQEnumWords<TPQColorMode> {
  static constexpr std::string_view name = "TPQColorMode";
  static constexpr PQWord words[] = {{"cmRGB", 0},   {"cmHLS", 1}, {"cmHSV", 2}, {"cmYUV", 3}, {"cmLUV", 4}, {"cmXYZ", 5},
                                     {"cmYCbCr", 6}, {"cmYCC", 7}, {"cmLab", 8}};
};
// The three plane names of a colour mode, as the pins of colour plane components are called.
PQ_EXPORT const char* const* PQPlaneNames(TPQColorMode mode) noexcept;

using TColor = std::uint32_t;  // 0x00BBGGRR

// Frame number within the stream; 0 marks the first frame.
class TPQTimeCode {
 public:
  std::int32_t GetFrame() const { return frame_; }
  void SetFrame(std::int32_t frame) { frame_ = frame; }

 private:
  std::int32_t frame_ = 0;
};

// Wall-clock time in 100 ns since 1970-01-01 UTC.
class TPQDateTime {
 public:
  bool GetAvailable() const { return available_; }
  void SetAvailable(bool available) { available_ = available; }
  std::int64_t GetTime() const { return time_; }
  void SetTime(std::int64_t time) { time_ = time, available_ = true; }

 private:
  std::int64_t time_ = 0;
  bool available_ = false;
};

// Bytes per pixel; 0 for vfUnspecified.
constexpr std::int32_t PQPixelSize(TPQVideoFormat format) noexcept {
  return format == vfRGB24 ? 3 : format == vfYUY2 ? 2 : format == vfGrayScale ? 1 : 0;
}

class IPQImageBuffer : public IRWDataBuffer {
 public:
  PQ_EXPORT static const PQClassTag kTag;

  // First pixel of the first row: for reading, for overwriting, for changing in place.
  virtual const std::uint8_t* Read() const noexcept = 0;
  virtual std::uint8_t* Write() = 0;
  virtual std::uint8_t* Modify() = 0;

  // Fills the frame from a bitmap of its size; a frame of another size takes the bitmap's, vfRGB24.
  virtual void LoadBitmap(const TBitmap& bitmap) = 0;
  void LoadPQBitmap(const TPQBitmap& bitmap) { LoadBitmap(bitmap); }

  std::int32_t GetWidth() const noexcept { return width_; }
  std::int32_t GetHeight() const noexcept { return height_; }
  // Converts the pixels, keeping width, height and stamps; nothing if the format is the one asked for or vfUnspecified.
  // Gray is (19595 R + 38470 G + 7471 B + 32768) / 65536 (ITU-R BT.601 luma in 16-bit fixed point); YUY2 uses the integers
  // of the YCbCr kernels, chroma averaged over a pair.
  virtual void SetFormat(TPQVideoFormat format) = 0;
  TPQVideoFormat GetFormat() const noexcept { return format_; }
  // The pixel as a colour; 0 outside the frame; a gray value v as v * 0x010101.
  virtual TColor GetPixel(std::int32_t x, std::int32_t y) const = 0;
  std::int32_t GetRowPixels() const noexcept { return width_; }
  std::int32_t GetPixelSize() const noexcept { return PQPixelSize(format_); }
  // Width and height at once, ready as a kernel's roi.
  IppiSize GetSize() const noexcept { return {width_, height_}; }
  // Row step in bytes.
  std::int32_t GetStep() const noexcept { return width_ * PQPixelSize(format_); }

  TPQTimeCode& GetTimeCode() noexcept { return time_code_; }
  const TPQTimeCode& GetTimeCode() const noexcept { return time_code_; }
  TPQDateTime& GetDateTime() noexcept { return date_time_; }
  const TPQDateTime& GetDateTime() const noexcept { return date_time_; }

  // Pixels are undefined afterwards unless the size did not change; stamps stay. Negative counts as 0.
  virtual void SetSize(std::int32_t width, std::int32_t height) = 0;
  // Every pixel becomes the colour (gray: its luma).
  virtual void Fill(TColor color) = 0;
  // Every byte becomes 0.
  virtual void Clear() = 0;

 protected:
  using IRWDataBuffer::IRWDataBuffer;
  // TPQImageBuffer is the only implementation, so a buffer of this class can be taken for one.
  IPQImageBuffer(const PQClassTag& tag, const IRWDataBuffer& source) noexcept : IRWDataBuffer(tag, source) {}
  // Takes over size, format and stamps.
  IPQImageBuffer(const PQClassTag& tag, const IPQImageBuffer& source) noexcept
      : IRWDataBuffer(tag, source),
        width_(source.width_),
        height_(source.height_),
        format_(source.format_),
        time_code_(source.time_code_),
        date_time_(source.date_time_) {}
  std::int32_t width_ = 0, height_ = 0;
  TPQVideoFormat format_ = vfRGB24;
  TPQTimeCode time_code_;
  TPQDateTime date_time_;
};

using PQImageRef = PQRef<IPQImageBuffer>;

// Makes all four stamps of `to` those of `from`.
inline void PQCopyStamps(const IPQImageBuffer& from, IPQImageBuffer& to) noexcept {
  to.GetSequenceStamp() = from.GetSequenceStamp();
  to.GetTimeStamp() = from.GetTimeStamp();
  to.GetTimeCode() = from.GetTimeCode();
  to.GetDateTime() = from.GetDateTime();
}

class PQ_EXPORT TPQImageBuffer final : public IPQImageBuffer {
 public:
  static const PQClassTag kTag;

  // An empty frame, 0 by 0, vfRGB24.
  TPQImageBuffer() noexcept : IPQImageBuffer(kTag) {}
  // A frame with storage of its own, contents undefined. vfUnspecified counts as vfRGB24.
  TPQImageBuffer(std::int32_t width, std::int32_t height, TPQVideoFormat format);
  // A copy of packed pixels in plain memory.
  TPQImageBuffer(const void* data, std::int32_t width, std::int32_t height, TPQVideoFormat format);
  // A frame equal to the source, storage shared until one of them writes.
  explicit TPQImageBuffer(const IPQImageBuffer& source) noexcept
      : IPQImageBuffer(kTag, source), block_(static_cast<const TPQImageBuffer&>(source).block_) {}
  // A view of the frame in an operation's buffer. A buffer that is no frame gives an empty frame with its stamps.
  explicit TPQImageBuffer(const IRWDataBuffer& source) noexcept : IPQImageBuffer(kTag, source) { ViewOf(source); }
  TPQImageBuffer(const TPQImageBuffer& source) noexcept : TPQImageBuffer(static_cast<const IPQImageBuffer&>(source)) {}

  void Assign(const IRWDataBuffer& source) override;
  const void* ReadData() const noexcept override { return Read(); }
  void* WriteData() override { return Write(); }
  void* ModifyData() override { return Modify(); }
  std::int32_t GetByteSize() const noexcept override { return GetStep() * height_; }
  // Bytes of the frame.
  std::int32_t GetCount() const noexcept override { return GetByteSize(); }

  const std::uint8_t* Read() const noexcept override { return block_ ? block_->Data() : nullptr; }
  std::uint8_t* Write() override;
  std::uint8_t* Modify() override;
  void LoadBitmap(const TBitmap& bitmap) override;
  void SetFormat(TPQVideoFormat format) override;
  TColor GetPixel(std::int32_t x, std::int32_t y) const override;
  void SetSize(std::int32_t width, std::int32_t height) override;
  void Fill(TColor color) override;
  void Clear() override;

  // The storage, for those that hand frames on without a copy: hold the reference as long as the pointer is used.
  PQRef<PQFrameBlock> Storage() const noexcept { return block_; }
  // Takes over `block`, which holds width * height packed pixels.
  void SetStorage(PQRef<PQFrameBlock> block, std::int32_t width, std::int32_t height, TPQVideoFormat format);

 private:
  void CopyFrom(const IPQImageBuffer& source) noexcept;
  void ViewOf(const IRWDataBuffer& source) noexcept;
  PQRef<PQFrameBlock> block_;
};

// The image at the top left of a frame of `width` by `height` in its format, with its stamps; what it leaves free is
// black, what reaches beyond is cut off. For frames that have to have another size than they came with.
PQ_EXPORT PQRef<TPQImageBuffer> PQOnPage(const IPQImageBuffer& image, std::int32_t width, std::int32_t height);

}  // namespace pantiq
