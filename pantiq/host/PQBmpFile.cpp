// BMP in own code: uncompressed files of 1, 4, 8, 16, 24 and 32 bits with the headers of 12, 40 and more bytes. Every
// read is checked against the file's length.
#include <array>
#include <bit>

#include "pantiq/host/PQPictureFile.h"

namespace pantiq::detail {
namespace {

constexpr std::uint32_t kFileHeader = 14, kCoreHeader = 12, kInfoHeader = 40;

class Reader {
 public:
  explicit Reader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
  // Little-endian; 0 beyond the end.
  std::uint32_t Get(std::size_t at, int count) const {
    std::uint32_t value = 0;
    for (int i = 0; i < count; ++i) {
      const std::size_t k = at + static_cast<std::size_t>(i);
      if (k < bytes_.size()) value |= static_cast<std::uint32_t>(bytes_[k]) << 8 * i;
    }
    return value;
  }

 private:
  std::span<const std::uint8_t> bytes_;
};

bool Recognise(std::span<const std::uint8_t> bytes) { return bytes.size() >= 2 && bytes[0] == 'B' && bytes[1] == 'M'; }

// One sample of a pixel by its mask, spread over 0..255.
struct Channel {
  std::uint32_t mask = 0;
  int shift = 0;
  std::uint32_t top = 0;
  explicit Channel(std::uint32_t m) : mask(m), shift(m != 0 ? std::countr_zero(m) : 0), top(m >> shift) {}
  std::uint32_t Get(std::uint32_t pixel) const {
    return top == 0 ? 0 : static_cast<std::uint32_t>(((pixel & mask) >> shift) * std::uint64_t{255} / top);
  }
};

PQStatus Bad(const std::string& what, const char* expected) {
  return {PQCode::BadFormat, "the BMP file " + what + "; expected " + expected};
}

PQStatus Decode(std::span<const std::uint8_t> bytes, TBitmap& bitmap) {
  const Reader in(bytes);
  const std::uint32_t header = in.Get(kFileHeader, 4);
  const bool core = header == kCoreHeader;
  if ((!core && header < kInfoHeader) || header > 4096 || bytes.size() < kFileHeader + header) {
    return Bad("has no whole header", "a header of 12, 40 or more bytes");
  }
  const std::int64_t width = core ? std::int64_t{in.Get(18, 2)} : static_cast<std::int32_t>(in.Get(18, 4));
  const std::int64_t signed_height = core ? std::int64_t{in.Get(20, 2)} : static_cast<std::int32_t>(in.Get(22, 4));
  const bool top_down = signed_height < 0;
  const std::int64_t height = top_down ? -signed_height : signed_height;
  const std::uint32_t bits = core ? in.Get(24, 2) : in.Get(28, 2);
  const std::uint32_t compression = core ? 0 : in.Get(30, 4);
  if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32) {
    return Bad("has " + std::to_string(bits) + " bits a pixel", "1, 4, 8, 16, 24 or 32");
  }
  const bool masks = compression == 3 || compression == 6;
  if (compression != 0 && !(masks && (bits == 16 || bits == 32))) {
    return Bad("is compressed (method " + std::to_string(compression) + ")", "one that is not");
  }
  if (PQStatus status = CheckPictureSize(width, height, 0, bytes.size()); !status.Ok()) return status;
  const std::int64_t step = (width * bits + 31) / 32 * 4;
  const std::int64_t offset = in.Get(10, 4);
  if (PQStatus status = CheckPictureSize(width, height, offset + step * height, bytes.size()); !status.Ok()) {
    return status;
  }

  std::array<std::uint8_t, 256 * 3> palette{};
  if (bits <= 8) {
    const std::uint32_t entry_size = core ? 3 : 4;
    const std::uint32_t used = core ? 0 : in.Get(46, 4);
    const std::uint32_t count = used == 0 || used > 256 ? 1u << bits : used;
    for (std::uint32_t i = 0; i < count && i < 256; ++i) {
      for (std::uint32_t c = 0; c < 3; ++c) {
        palette[3 * i + c] = static_cast<std::uint8_t>(in.Get(kFileHeader + header + entry_size * i + c, 1));
      }
    }
  }
  const std::size_t mask_at = kFileHeader + kInfoHeader;  // behind the short header, inside the longer ones
  const Channel red(masks ? in.Get(mask_at, 4) : bits == 16 ? 0x7c00 : 0xff0000);
  const Channel green(masks ? in.Get(mask_at + 4, 4) : bits == 16 ? 0x03e0 : 0x00ff00);
  const Channel blue(masks ? in.Get(mask_at + 8, 4) : bits == 16 ? 0x001f : 0x0000ff);
  const Channel alpha(masks && (header >= 56 || compression == 6) ? in.Get(mask_at + 12, 4) : 0);

  bitmap.SetSize(static_cast<int>(width), static_cast<int>(height));
  for (std::int64_t y = 0; y < height; ++y) {
    const std::uint8_t* from = bytes.data() + offset + step * (top_down ? y : height - 1 - y);
    std::uint8_t* to = bitmap.Row(static_cast<int>(y));
    for (std::int64_t x = 0; x < width; ++x, to += 3) {
      if (bits <= 8) {
        const std::uint32_t per_byte = 8 / bits;
        const std::uint32_t shift = 8 - bits * (static_cast<std::uint32_t>(x) % per_byte + 1);
        const std::uint32_t index = from[x / per_byte] >> shift & ((1u << bits) - 1);
        for (int c = 0; c < 3; ++c) to[c] = palette[3 * index + static_cast<std::uint32_t>(c)];
      } else if (bits == 24) {
        for (int c = 0; c < 3; ++c) to[c] = from[3 * x + c];
      } else {
        std::uint32_t pixel = 0;
        for (std::uint32_t i = 0; i < bits / 8; ++i)
          pixel |= static_cast<std::uint32_t>(from[x * (bits / 8) + i]) << 8 * i;
        const std::uint32_t a = alpha.mask != 0 ? alpha.Get(pixel) : 255;
        to[0] = static_cast<std::uint8_t>((blue.Get(pixel) * a + 127) / 255);
        to[1] = static_cast<std::uint8_t>((green.Get(pixel) * a + 127) / 255);
        to[2] = static_cast<std::uint8_t>((red.Get(pixel) * a + 127) / 255);
      }
    }
  }
  return {};
}

PQStatus Encode(const TBitmap& bitmap, PQBytes& bytes) {
  const std::uint64_t step = (bitmap.GetStep() + 3) / 4 * 4;
  const std::uint64_t size = kFileHeader + kInfoHeader + step * static_cast<std::uint64_t>(bitmap.GetHeight());
  const auto put = [&](std::uint64_t value, int count) {
    for (int i = 0; i < count; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> 8 * i));
  };
  bytes.clear();
  bytes.reserve(size);
  put('B' | 'M' << 8, 2), put(size, 4), put(0, 4), put(kFileHeader + kInfoHeader, 4);
  put(kInfoHeader, 4), put(static_cast<std::uint32_t>(bitmap.GetWidth()), 4);
  put(static_cast<std::uint32_t>(bitmap.GetHeight()), 4), put(1, 2), put(24, 2), put(0, 4);
  put(step * static_cast<std::uint64_t>(bitmap.GetHeight()), 4), put(2835, 4), put(2835, 4), put(0, 8);
  for (int y = bitmap.GetHeight() - 1; y >= 0; --y) {
    bytes.insert(bytes.end(), bitmap.Row(y), bitmap.Row(y) + bitmap.GetStep());
    bytes.insert(bytes.end(), step - bitmap.GetStep(), 0);
  }
  return {};
}

}  // namespace

constinit const PQPictureCodec kBmpCodec{"BMP", ".bmp;.dib", Recognise, Decode, Encode};

}  // namespace pantiq::detail
