// A codec manager: finds a video codec by its four-character tag and runs it, synchronously, one frame in and one block
// out, or the other way round. One virtual call for each step; each answers with a code, 0 for success.
//
// Frames cross as bitmaps of 24 bits: blue, green, red, the bottom row first, `step` bytes from one row to the next.
// Nothing is copied at the crossing, in either direction.
//
// Threads. The calls for one handle come from one thread at a time; handles are independent of each other.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "pantiq/platform/PQPlatform.h"

namespace pantiq {

// The form of a bitmap, or of a compressed picture. A whole record of 40 bytes, as it stands in files.
struct BITMAPINFOHEADER {
  std::uint32_t biSize = 40;
  std::int32_t biWidth = 0;   // pixels
  std::int32_t biHeight = 0;  // pixels
  std::uint16_t biPlanes = 0;
  std::uint16_t biBitCount = 0;
  std::uint32_t biCompression = 0;  // 0: not compressed, otherwise the codec's tag
  std::uint32_t biSizeImage = 0;    // bytes
  std::int32_t biXPelsPerMeter = 0;
  std::int32_t biYPelsPerMeter = 0;
  std::uint32_t biClrUsed = 0;
  std::uint32_t biClrImportant = 0;
  bool operator==(const BITMAPINFOHEADER&) const = default;
};
static_assert(sizeof(BITMAPINFOHEADER) == 40);

// Four characters as a number, the first in the lowest byte: PQFourCC('M', 'J', 'P', 'G').
constexpr std::uint32_t PQFourCC(char a, char b, char c, char d) noexcept {
  const auto byte = [](char value) { return static_cast<std::uint32_t>(static_cast<unsigned char>(value)); };
  return byte(a) | byte(b) << 8 | byte(c) << 16 | byte(d) << 24;
}
inline constexpr std::uint32_t kVideoCodecType = PQFourCC('v', 'i', 'd', 'c');

// 0 is no codec, and no memory.
using PQCodecHandle = std::uintptr_t;
using PQCodecMemory = std::uintptr_t;

enum PQCodecMode : int { kCodecCompress = 1, kCodecDecompress = 2 };

// The longest side that a codec is asked for, in pixels.
inline constexpr std::int32_t kMostCodecSide = 32767;
// The best quality. 0 is the codec's own choice, 1 the smallest blocks.
inline constexpr std::uint32_t kBestCodecQuality = 10000;

// Flags of a compressed block.
inline constexpr std::uint32_t kCodecKeyFrame = 0x10;

struct PQCodecInfo {
  std::uint32_t fccType = 0;
  std::uint32_t fccHandler = 0;  // the tag of the codec
  std::string name;              // "MJPEG (Motion JPEG)"
};

// Memory that a codec writes to: a block of at most `capacity` bytes.
struct PQCodecBlock {
  std::uint8_t* data = nullptr;
  std::size_t capacity = 0;
};

// A picture that a codec writes to: rows of 24 bits, the bottom row first.
struct PQCodecPicture {
  std::uint8_t* data = nullptr;
  std::int64_t step = 0;  // bytes
  std::size_t size = 0;   // bytes
};

// What was found out about a tag by trying it on small pictures.
struct PQCodecEntry {
  std::uint32_t tag = 0;
  std::string name;                // of the form of the stream
  std::string encoder;             // empty: can only be decompressed
  std::string decoder;             // empty: can only be compressed
  bool lossless = false;           // a picture of noise came back byte for byte
  bool every_frame_key = false;    // each block can be decompressed without the others
  bool quality = false;            // Quality changes the size of the blocks
  int align = 1;                   // width and height are multiples of it
  int least = 1, most = 0;         // pixels of a side that were tried and taken
  std::vector<std::string> sizes;  // "352x288": only these, if there are any
};

class PQ_EXPORT PQCodecManager {
 public:
  virtual ~PQCodecManager() = default;

  // Finds a codec that takes the picture `input` and, if `output` is not null, gives that form. Tag 0 to compress: any
  // codec that takes it. Not found is a failure, and handle 0; the detail says why.
  virtual PQPlatformResult ICLocate(std::uint32_t type, std::uint32_t tag, const BITMAPINFOHEADER& input,
                                    const BITMAPINFOHEADER* output, PQCodecMode mode, PQCodecHandle& handle) = 0;
  virtual PQPlatformResult ICGetInfo(PQCodecHandle handle, PQCodecInfo& info) = 0;
  virtual PQPlatformResult ICClose(PQCodecHandle handle) = 0;

  // The form of the compressed picture that is made of `input`.
  virtual PQPlatformResult ICCompressGetFormat(PQCodecHandle handle, const BITMAPINFOHEADER& input,
                                               BITMAPINFOHEADER& output) = 0;
  // The most bytes that a block may have.
  virtual PQPlatformResult ICCompressGetSize(PQCodecHandle handle, const BITMAPINFOHEADER& input,
                                             const BITMAPINFOHEADER& output, std::size_t& bytes) = 0;
  virtual PQPlatformResult ICCompressBegin(PQCodecHandle handle, const BITMAPINFOHEADER& input,
                                           const BITMAPINFOHEADER& output) = 0;
  // Compresses one frame; `biSizeImage` of the output header tells the bytes of the block. `frame_number` counts up
  // from 0. `frame_size` 0: no size is aimed at. `previous` and `previous_frame` may be null.
  virtual PQPlatformResult ICCompress(PQCodecHandle handle, std::uint32_t flags, BITMAPINFOHEADER& output,
                                      const PQCodecBlock& block, const BITMAPINFOHEADER& input,
                                      const PQPlatformBlock& frame, std::uint32_t& chunk_id,
                                      std::uint32_t& result_flags, std::int32_t frame_number, std::uint32_t frame_size,
                                      std::uint32_t quality, const BITMAPINFOHEADER* previous,
                                      const std::uint8_t* previous_frame) = 0;
  virtual PQPlatformResult ICCompressEnd(PQCodecHandle handle) = 0;

  // Also takes a handle that was opened to compress.
  virtual PQPlatformResult ICDecompressBegin(PQCodecHandle handle, const BITMAPINFOHEADER& input,
                                             const BITMAPINFOHEADER& output) = 0;
  // Decompresses one block of `biSizeImage` bytes into `picture`. Whatever the block holds, nothing outside is read or
  // written; a block that gives no picture of the announced size is a failure.
  virtual PQPlatformResult ICDecompress(PQCodecHandle handle, std::uint32_t flags, const BITMAPINFOHEADER& input,
                                        const std::uint8_t* block, const BITMAPINFOHEADER& output,
                                        const PQCodecPicture& picture) = 0;
  virtual PQPlatformResult ICDecompressEnd(PQCodecHandle handle) = 0;

  // Zeroed memory for compressed blocks.
  virtual PQPlatformResult GlobalAlloc(std::size_t bytes, PQCodecMemory& memory) = 0;
  virtual PQPlatformResult GlobalLock(PQCodecMemory memory, std::uint8_t*& data) = 0;
  virtual PQPlatformResult GlobalUnlock(PQCodecMemory memory) = 0;
  virtual PQPlatformResult GlobalFree(PQCodecMemory memory) = 0;

  // Tries every tag that is known to work in general; takes seconds.
  virtual PQPlatformResult ListCodecs(std::vector<PQCodecEntry>& codecs) = 0;
};

// Goes up with every change of this header.
inline constexpr int kCodecManagerAbi = 1;
// The function of a codec module: `PQCodecManager* pantiq_codec_manager(int abi)`; null if the numbers differ. The
// object lives as long as the process.
using PQCodecManagerEntry = PQCodecManager* (*)(int abi);
inline constexpr const char* kCodecManagerEntry = "pantiq_codec_manager";

}  // namespace pantiq
