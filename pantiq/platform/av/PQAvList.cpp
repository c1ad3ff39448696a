// What works here, found out by trying.
#include <algorithm>
#include <array>
#include <cmath>

#include "pantiq/platform/av/PQAvManager.h"

namespace pantiq::av {
namespace {

using Pixels = std::vector<std::uint8_t>;

constexpr double kFairPicture = 30;  // dB; a block that belongs to another frame stays below
// Pictures to try a codec on, small ones first, then those that some forms want.
constexpr std::array kTrialSizes = {PictureSize{64, 48},   PictureSize{128, 96},  PictureSize{176, 144},
                                    PictureSize{352, 288}, PictureSize{704, 576}, PictureSize{720, 480},
                                    PictureSize{720, 576}};

std::size_t BytesOf(const PictureSize& size) {
  return static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * 3;
}

// A smooth picture, each number of another lightness.
Pixels Smooth(const PictureSize& size, int number) {
  Pixels pixels(BytesOf(size));
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      std::uint8_t* const p =
          &pixels[(static_cast<std::size_t>(y) * static_cast<std::size_t>(size.width) + static_cast<std::size_t>(x)) *
                  3];
      const int light = 60 + number * 12;
      p[0] = static_cast<std::uint8_t>(light + x * 30 / size.width);
      p[1] = static_cast<std::uint8_t>(light + y * 30 / size.height);
      p[2] = static_cast<std::uint8_t>(light + 15);
    }
  }
  return pixels;
}

Pixels Noise(const PictureSize& size) {
  Pixels pixels(BytesOf(size));
  std::uint32_t state = 12345;
  for (std::uint8_t& byte : pixels) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<std::uint8_t>(state >> 24);
  }
  return pixels;
}

double Psnr(const Pixels& a, const Pixels& b) {
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const double difference = static_cast<double>(a[i]) - b[i];
    sum += difference * difference;
  }
  return sum == 0 ? 999 : 10 * std::log10(65025.0 * static_cast<double>(a.size()) / sum);
}

bool Opens(std::uint32_t tag, const PictureSize& size) {
  PQPlatformResult ignored;
  return Encoder::Open(tag, size, 0, ignored) != nullptr;
}

// The compressed block of a picture; empty if there is none.
Pixels Compress(Encoder& encoder, const Pixels& pixels, int number, bool& key_frame) {
  const PictureSize& size = encoder.Size();
  Pixels block(Encoder::MostBytes(size));
  // Conversions may read a little behind the last pixel.
  Pixels padded = pixels;
  padded.resize(pixels.size() + 64);
  PQPlatformBlock frame;
  frame.data = padded.data(), frame.step = std::int64_t{size.width} * 3, frame.size = pixels.size();
  std::size_t bytes = 0;
  if (!encoder.Encode(frame, number, {block.data(), block.size()}, bytes, key_frame).Ok()) bytes = 0;
  block.resize(bytes);
  return block;
}

// Whether three pictures and one of noise, twice, come back, each for its own block. The second time a codec that knows
// the frame before makes no key frame.
bool ComesBack(std::uint32_t tag, const PictureSize& size, PQCodecEntry& entry) {
  PQPlatformResult result;
  const auto encoder = Encoder::Open(tag, size, kBestCodecQuality, result);
  if (encoder == nullptr) return false;
  const auto decoder = Decoder::Open(tag, size, encoder->Bits(), result);
  if (decoder == nullptr) return false;
  Pixels back(BytesOf(size));
  const PQCodecPicture picture{back.data(), std::int64_t{size.width} * 3, back.size()};
  for (int number = 0; number < 5; ++number) {
    const Pixels pixels = number < 3 ? Smooth(size, number) : Noise(size);
    const Pixels block = Compress(*encoder, pixels, number, entry.every_frame_key);
    if (block.empty() || !decoder->Decode(block.data(), block.size(), picture).Ok()) return false;
    if (number < 3 && Psnr(pixels, back) < kFairPicture) return false;
    if (number >= 3) entry.lossless = pixels == back;
  }
  return true;
}

bool QualityCounts(std::uint32_t tag, const PictureSize& size) {
  PQPlatformResult result;
  std::size_t bytes[2] = {0, 0};
  for (const int best : {0, 1}) {
    const auto encoder = Encoder::Open(tag, size, best != 0 ? kBestCodecQuality : 1, result);
    bool key_frame = false;
    if (encoder != nullptr) bytes[best] = Compress(*encoder, Noise(size), 0, key_frame).size();
  }
  return bytes[1] > bytes[0];
}

// Longest sides that forms of streams have, from the top. Trying more would find a few odd numbers between and take
// long.
constexpr std::array kLongSides = {kMostCodecSide, 16384, 16383, 8192, 8191, 4096, 4095, 2048, 2047, 1024};

// The longest of these, as a multiple of `align`, that opens while the other side is short.
int MostSide(std::uint32_t tag, int align) {
  for (const int most : kLongSides) {
    const int side = most / align * align;
    if (Opens(tag, {side, 64}) && Opens(tag, {64, side})) return side;
  }
  return 0;
}

void FindLimits(PQCodecEntry& entry) {
  for (const int align : {1, 2, 4, 8, 16}) {
    // Odd multiples of it, so that no smaller one would do as well.
    if (!Opens(entry.tag, {128 + align, 128 + align})) continue;
    entry.align = align;
    entry.least = align;
    while (entry.least < 64 && !Opens(entry.tag, {entry.least, entry.least})) entry.least *= 2;
    entry.most = MostSide(entry.tag, align);
    return;
  }
  for (const PictureSize& size : kTrialSizes) {
    if (Opens(entry.tag, size)) entry.sizes.push_back(std::to_string(size.width) + "x" + std::to_string(size.height));
  }
}

}  // namespace

PQPlatformResult Manager::ListCodecs(std::vector<PQCodecEntry>& codecs) {
  codecs.clear();
  for (const std::uint32_t tag : KnownTags()) {
    const AVCodecID id = IdOfTag(tag);
    // Several tags of one form: what holds for the first holds for all.
    const auto same = std::find_if(codecs.begin(), codecs.end(), [id](const PQCodecEntry& other) {
      return id != AV_CODEC_ID_RAWVIDEO && IdOfTag(other.tag) == id;
    });
    PQCodecEntry entry;
    if (same != codecs.end()) {
      entry = *same;
      entry.tag = tag;
      codecs.push_back(std::move(entry));
      continue;
    }
    entry.tag = tag;
    if (const AVCodecDescriptor* form = avcodec_descriptor_get(id)) {
      entry.name = form->long_name != nullptr ? form->long_name : form->name;
      if (id == AV_CODEC_ID_RAWVIDEO) entry.name = tag == kTagBitmap ? "Bitmap, not compressed" : "YUV, not compressed";
    }
    PQPlatformResult result;
    const auto decoder = Decoder::Open(tag, {352, 288}, 24, result);
    const auto size = std::find_if(kTrialSizes.begin(), kTrialSizes.end(),
                                   [tag](const PictureSize& trial) { return Opens(tag, trial); });
    if (size != kTrialSizes.end()) {
      const auto encoder = Encoder::Open(tag, *size, 0, result);
      if (encoder == nullptr || !ComesBack(tag, *size, entry)) continue;
      entry.encoder = encoder->Name();
      if (decoder != nullptr) entry.decoder = decoder->Name();
      entry.quality = FormOf(id) != nullptr && FormOf(id)->quality != QualityKind::None && QualityCounts(tag, *size);
      FindLimits(entry);
    } else {
      if (decoder == nullptr) continue;
      entry.decoder = decoder->Name();
    }
    codecs.push_back(std::move(entry));
  }
  if (codecs.empty()) {
    return {kPlatformMissing, "libavcodec was built without video codecs; install libavcodec59 or libavcodec-extra59"};
  }
  return {};
}

}  // namespace pantiq::av
