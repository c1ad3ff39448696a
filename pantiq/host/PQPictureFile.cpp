// The only file that knows libpng and libjpeg. Both report errors by a long jump; no object with a destructor lives in
// the functions that they jump out of.
#include "pantiq/host/PQPictureFile.h"

#ifdef PANTIQ_PICTURES
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <jerror.h>
#include <jpeglib.h>
#include <png.h>
#endif

namespace pantiq::detail {
namespace {

bool IsPng(std::span<const std::uint8_t> bytes) {
  static constexpr std::uint8_t kMagic[] = {0x89, 'P', 'N', 'G', 0x0d, 0x0a, 0x1a, 0x0a};
  return bytes.size() >= sizeof kMagic && std::equal(std::begin(kMagic), std::end(kMagic), bytes.begin());
}

bool IsJpeg(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= 3 && bytes[0] == 0xff && bytes[1] == 0xd8 && bytes[2] == 0xff;
}

#ifdef PANTIQ_PICTURES

PQStatus Wrong(const char* kind, const char* message) {
  return {PQCode::BadFormat,
          std::string("the ") + kind + " data is damaged or cut off (" + message + "); expected a whole file"};
}

// What a jump leaves behind for the function that waits outside.
struct Trouble {
  std::jmp_buf jump;
  char message[256] = "";
};

// --- PNG ---

struct PngInput {
  const std::uint8_t* at;
  std::size_t left;
};

struct PngReader {
  png_structp png = nullptr;
  png_infop info = nullptr;
  PngInput input{};
  Trouble trouble;
  png_uint_32 width = 0, height = 0;
  int depth = 0, color = 0, passes = 1;
  bool alpha = false;
  ~PngReader() { png_destroy_read_struct(&png, &info, nullptr); }
};

[[noreturn]] void PngError(png_structp png, png_const_charp message) {
  auto* trouble = static_cast<Trouble*>(png_get_error_ptr(png));
  std::snprintf(trouble->message, sizeof trouble->message, "%s", message);
  std::longjmp(trouble->jump, 1);
}
void PngWarning(png_structp, png_const_charp) {}

void PngRead(png_structp png, png_bytep to, std::size_t count) {
  auto* input = static_cast<PngInput*>(png_get_io_ptr(png));
  if (count > input->left) png_error(png, "the file ends too early");
  std::memcpy(to, input->at, count);
  input->at += count, input->left -= count;
}

bool ReadPngHeader(PngReader& r) {
  if (setjmp(r.trouble.jump) != 0) return false;
  png_set_user_limits(r.png, 0x7fffffff, 0x7fffffff);
  png_set_chunk_malloc_max(r.png, 16 << 20);
  png_set_read_fn(r.png, &r.input, PngRead);
  png_read_info(r.png, r.info);
  png_get_IHDR(r.png, r.info, &r.width, &r.height, &r.depth, &r.color, nullptr, nullptr, nullptr);
  return true;
}

bool PreparePngRows(PngReader& r) {
  if (setjmp(r.trouble.jump) != 0) return false;
  if (r.depth == 16) png_set_strip_16(r.png);
  png_set_expand(r.png);  // palettes, fewer than 8 bits, transparency as an entry or colour
  if ((r.color & PNG_COLOR_MASK_COLOR) == 0) png_set_gray_to_rgb(r.png);
  png_set_bgr(r.png);
  r.passes = png_set_interlace_handling(r.png);
  png_read_update_info(r.png, r.info);
  const int channels = png_get_channels(r.png, r.info);
  if ((channels != 3 && channels != 4) || png_get_bit_depth(r.png, r.info) != 8) png_error(r.png, "unknown pixel form");
  r.alpha = channels == 4;
  return true;
}

bool ReadPngRows(PngReader& r, std::uint8_t* pixels, std::size_t step) {
  if (setjmp(r.trouble.jump) != 0) return false;
  for (int pass = 0; pass < r.passes; ++pass) {
    for (png_uint_32 y = 0; y < r.height; ++y) png_read_row(r.png, pixels + step * y, nullptr);
  }
  png_read_end(r.png, nullptr);
  return true;
}

PQStatus DecodePng(std::span<const std::uint8_t> bytes, TBitmap& bitmap) {
  PngReader r;
  r.input = {bytes.data(), bytes.size()};
  r.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &r.trouble, PngError, PngWarning);
  if (r.png != nullptr) r.info = png_create_info_struct(r.png);
  if (r.info == nullptr) return {PQCode::Failed, "libpng cannot be started"};
  if (!ReadPngHeader(r)) return Wrong("PNG", r.trouble.message);
  // Deflate shrinks data to at most a thousandth.
  const std::int64_t samples = (r.color & PNG_COLOR_MASK_PALETTE) != 0 ? 1
                               : (r.color & PNG_COLOR_MASK_COLOR) != 0 ? 3
                                                                       : 1;
  const std::int64_t raw_bits = std::int64_t{r.width} * samples * r.depth;
  if (PQStatus status = CheckPictureSize(r.width, r.height, 0, bytes.size()); !status.Ok()) return status;
  const std::int64_t needed = (raw_bits + 7) / 8 * std::int64_t{r.height} / 1040;
  if (PQStatus status = CheckPictureSize(r.width, r.height, needed, bytes.size()); !status.Ok()) return status;
  if (!PreparePngRows(r)) return Wrong("PNG", r.trouble.message);

  bitmap.SetSize(static_cast<int>(r.width), static_cast<int>(r.height));
  if (!r.alpha) {
    return ReadPngRows(r, bitmap.Data(), bitmap.GetStep()) ? PQStatus() : Wrong("PNG", r.trouble.message);
  }
  std::vector<std::uint8_t> four(std::size_t{4} * r.width * r.height);
  if (!ReadPngRows(r, four.data(), std::size_t{4} * r.width)) return Wrong("PNG", r.trouble.message);
  std::uint8_t* to = bitmap.Data();
  for (const std::uint8_t* from = four.data(); from != four.data() + four.size(); from += 4, to += 3) {
    for (int c = 0; c < 3; ++c) to[c] = static_cast<std::uint8_t>((from[c] * from[3] + 127) / 255);
  }
  return {};
}

struct PngWriter {
  png_structp png = nullptr;
  png_infop info = nullptr;
  Trouble trouble;
  ~PngWriter() { png_destroy_write_struct(&png, &info); }
};

void PngWrite(png_structp png, png_bytep from, std::size_t count) {
  auto* bytes = static_cast<PQBytes*>(png_get_io_ptr(png));
  bool enough = true;
  try {
    bytes->insert(bytes->end(), from, from + count);
  } catch (...) {
    enough = false;  // an exception must not pass through the library's frames
  }
  if (!enough) png_error(png, "out of memory");
}

bool WritePng(PngWriter& w, const TBitmap& bitmap, PQBytes& bytes) {
  if (setjmp(w.trouble.jump) != 0) return false;
  png_set_write_fn(w.png, &bytes, PngWrite, [](png_structp) {});
  png_set_IHDR(w.png, w.info, static_cast<png_uint_32>(bitmap.GetWidth()), static_cast<png_uint_32>(bitmap.GetHeight()),
               8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(w.png, w.info);
  png_set_bgr(w.png);
  for (int y = 0; y < bitmap.GetHeight(); ++y) png_write_row(w.png, bitmap.Row(y));
  png_write_end(w.png, w.info);
  return true;
}

PQStatus EncodePng(const TBitmap& bitmap, PQBytes& bytes) {
  PngWriter w;
  bytes.clear();
  w.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &w.trouble, PngError, PngWarning);
  if (w.png != nullptr) w.info = png_create_info_struct(w.png);
  if (w.info == nullptr) return {PQCode::Failed, "libpng cannot be started"};
  if (!WritePng(w, bitmap, bytes)) return {PQCode::Failed, std::string("PNG: ") + w.trouble.message};
  return {};
}

// --- JPEG ---

struct JpegErrors {
  jpeg_error_mgr manager;  // first: the library hands back its address
  Trouble trouble;
};

[[noreturn]] void JpegError(j_common_ptr jpeg) {
  auto* errors = reinterpret_cast<JpegErrors*>(jpeg->err);
  char text[JMSG_LENGTH_MAX];
  errors->manager.format_message(jpeg, text);
  std::snprintf(errors->trouble.message, sizeof errors->trouble.message, "%s", text);
  std::longjmp(errors->trouble.jump, 1);
}

// The library goes on after damage and fills in gray; here damage is an error. Warnings about markers are not damage.
void JpegMessage(j_common_ptr jpeg, int level) {
  if (level >= 0) return;
  const int code = jpeg->err->msg_code;
  if (code == JWRN_EXTRANEOUS_DATA || code == JWRN_ADOBE_XFORM || code == JWRN_JFIF_MAJOR) return;
  JpegError(jpeg);
}
void JpegSilence(j_common_ptr) {}

void SetJpegErrors(JpegErrors& errors) {
  jpeg_std_error(&errors.manager);
  errors.manager.error_exit = JpegError;
  errors.manager.emit_message = JpegMessage;
  errors.manager.output_message = JpegSilence;
}

struct JpegReader {
  jpeg_decompress_struct jpeg{};
  JpegErrors errors;
  JpegReader() { jpeg.err = &errors.manager; }
  ~JpegReader() { jpeg_destroy_decompress(&jpeg); }
};

bool ReadJpegHeader(JpegReader& r, std::span<const std::uint8_t> bytes) {
  if (setjmp(r.errors.trouble.jump) != 0) return false;
  jpeg_create_decompress(&r.jpeg);
  r.jpeg.mem->max_memory_to_use = 1 << 30;
  jpeg_mem_src(&r.jpeg, const_cast<std::uint8_t*>(bytes.data()), static_cast<unsigned long>(bytes.size()));
  jpeg_read_header(&r.jpeg, TRUE);
  return true;
}

bool ReadJpegRows(JpegReader& r, std::uint8_t* row, TBitmap& bitmap) {
  if (setjmp(r.errors.trouble.jump) != 0) return false;
  const bool four = r.jpeg.jpeg_color_space == JCS_CMYK || r.jpeg.jpeg_color_space == JCS_YCCK;
  r.jpeg.out_color_space = four ? JCS_CMYK : r.jpeg.jpeg_color_space == JCS_GRAYSCALE ? JCS_GRAYSCALE : JCS_RGB;
  const bool gray = r.jpeg.out_color_space == JCS_GRAYSCALE;
  const bool inverted = r.jpeg.saw_Adobe_marker != 0;
  jpeg_start_decompress(&r.jpeg);
  const int width = bitmap.GetWidth();
  while (r.jpeg.output_scanline < r.jpeg.output_height) {
    std::uint8_t* to = bitmap.Row(static_cast<int>(r.jpeg.output_scanline));
    JSAMPROW rows[] = {row};
    if (jpeg_read_scanlines(&r.jpeg, rows, 1) != 1) ERREXIT(&r.jpeg, JERR_INPUT_EMPTY);
    for (int x = 0; x < width; ++x, to += 3) {
      if (gray) {
        to[0] = to[1] = to[2] = row[x];
      } else if (four) {
        const std::uint8_t* from = row + 4 * x;
        const int flip = inverted ? 0 : 255;
        for (int c = 0; c < 3; ++c)
          to[2 - c] = static_cast<std::uint8_t>(((from[c] ^ flip) * (from[3] ^ flip) + 127) / 255);
      } else {
        to[0] = row[3 * x + 2], to[1] = row[3 * x + 1], to[2] = row[3 * x];
      }
    }
  }
  jpeg_finish_decompress(&r.jpeg);
  return true;
}

PQStatus DecodeJpeg(std::span<const std::uint8_t> bytes, TBitmap& bitmap) {
  JpegReader r;
  SetJpegErrors(r.errors);
  if (!ReadJpegHeader(r, bytes)) return Wrong("JPEG", r.errors.trouble.message);
  // A block of 64 pixels takes at least one bit.
  const std::int64_t width = r.jpeg.image_width, height = r.jpeg.image_height;
  if (PQStatus status = CheckPictureSize(width, height, width * height / 512 / 8, bytes.size()); !status.Ok()) {
    return status;
  }
  bitmap.SetSize(static_cast<int>(width), static_cast<int>(height));
  std::vector<std::uint8_t> row(static_cast<std::size_t>(width) * 4);
  if (!ReadJpegRows(r, row.data(), bitmap)) return Wrong("JPEG", r.errors.trouble.message);
  return {};
}

struct JpegWriter {
  jpeg_compress_struct jpeg{};
  JpegErrors errors;
  unsigned char* memory = nullptr;
  unsigned long size = 0;
  JpegWriter() { jpeg.err = &errors.manager; }
  ~JpegWriter() {
    jpeg_destroy_compress(&jpeg);
    std::free(memory);
  }
};

constexpr int kJpegQuality = 95;

bool WriteJpeg(JpegWriter& w, const TBitmap& bitmap, std::uint8_t* row) {
  if (setjmp(w.errors.trouble.jump) != 0) return false;
  jpeg_create_compress(&w.jpeg);
  jpeg_mem_dest(&w.jpeg, &w.memory, &w.size);
  w.jpeg.image_width = static_cast<JDIMENSION>(bitmap.GetWidth());
  w.jpeg.image_height = static_cast<JDIMENSION>(bitmap.GetHeight());
  w.jpeg.input_components = 3;
  w.jpeg.in_color_space = JCS_RGB;
  jpeg_set_defaults(&w.jpeg);
  jpeg_set_quality(&w.jpeg, kJpegQuality, TRUE);
  jpeg_start_compress(&w.jpeg, TRUE);
  for (int y = 0; y < bitmap.GetHeight(); ++y) {
    const std::uint8_t* from = bitmap.Row(y);
    for (int x = 0; x < bitmap.GetWidth(); ++x) {
      row[3 * x] = from[3 * x + 2], row[3 * x + 1] = from[3 * x + 1], row[3 * x + 2] = from[3 * x];
    }
    JSAMPROW rows[] = {row};
    jpeg_write_scanlines(&w.jpeg, rows, 1);
  }
  jpeg_finish_compress(&w.jpeg);
  return true;
}

PQStatus EncodeJpeg(const TBitmap& bitmap, PQBytes& bytes) {
  if (bitmap.GetWidth() > JPEG_MAX_DIMENSION || bitmap.GetHeight() > JPEG_MAX_DIMENSION) {
    return {PQCode::BadValue, "a picture of " + std::to_string(bitmap.GetWidth()) + "x" +
                                  std::to_string(bitmap.GetHeight()) +
                                  " pixels has no JPEG form; expected sides of at most 65500"};
  }
  JpegWriter w;
  SetJpegErrors(w.errors);
  std::vector<std::uint8_t> row(bitmap.GetStep());
  if (!WriteJpeg(w, bitmap, row.data())) return {PQCode::Failed, std::string("JPEG: ") + w.errors.trouble.message};
  bytes.assign(w.memory, w.memory + w.size);
  return {};
}

#else

PQStatus Missing(const char* kind, const char* package) {
  return {PQCode::Missing, std::string(kind) +
                               " pictures need a part that this library was built without; expected a " +
                               "BMP file, or a build with PANTIQ_PICTURES=ON and the package " + package};
}
PQStatus DecodePng(std::span<const std::uint8_t>, TBitmap&) { return Missing("PNG", "libpng-dev"); }
PQStatus EncodePng(const TBitmap&, PQBytes&) { return Missing("PNG", "libpng-dev"); }
PQStatus DecodeJpeg(std::span<const std::uint8_t>, TBitmap&) { return Missing("JPEG", "libjpeg-dev"); }
PQStatus EncodeJpeg(const TBitmap&, PQBytes&) { return Missing("JPEG", "libjpeg-dev"); }

#endif

}  // namespace

constinit const PQPictureCodec kPngCodec{"PNG", ".png", IsPng, DecodePng, EncodePng};
constinit const PQPictureCodec kJpegCodec{"JPEG", ".jpg;.jpeg", IsJpeg, DecodeJpeg, EncodeJpeg};
#ifdef PANTIQ_PICTURES
constinit const bool kHasPictureLibraries = true;
#else
constinit const bool kHasPictureLibraries = false;
#endif

}  // namespace pantiq::detail
