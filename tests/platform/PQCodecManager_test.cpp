// The codec manager on libav: every tag that is offered, at many sizes, with good blocks and with bad ones.
#include "pantiq/platform/PQCodecManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <thread>

#include "pantiq/platform/PQModules.h"
#include "support/MakeClip.h"

namespace pantiq {
namespace {

using Pixels = std::vector<std::uint8_t>;

constexpr std::uint32_t Tag(const char (&text)[5]) { return PQFourCC(text[0], text[1], text[2], text[3]); }

std::string Name(std::uint32_t tag) {
  char text[5] = "";
  std::memcpy(text, &tag, 4);
  return text;
}

BITMAPINFOHEADER Header(int width, int height, int bits = 24) {
  BITMAPINFOHEADER header;
  header.biWidth = width, header.biHeight = height, header.biPlanes = 1;
  header.biBitCount = static_cast<std::uint16_t>(bits);
  return header;
}

// A numbered picture, its bottom row first.
Pixels Picture(int width, int height, int number) {
  const Pixels upright = test::TestPicture(width, height, number);
  const std::size_t step = static_cast<std::size_t>(width) * 3;
  Pixels pixels(upright.size());
  for (int y = 0; y < height; ++y) {
    const auto from = static_cast<std::size_t>(y), to = static_cast<std::size_t>(height - 1 - y);
    std::memcpy(&pixels[step * to], &upright[step * from], step);
  }
  return pixels;
}

Pixels Noise(int width, int height, unsigned seed) {
  std::mt19937 random(seed);
  Pixels pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);
  for (auto& byte : pixels) byte = static_cast<std::uint8_t>(random());
  return pixels;
}

double Psnr(const Pixels& a, const Pixels& b) {
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += (a[i] - b[i]) * (a[i] - b[i]);
  return sum == 0 ? 999 : 10 * std::log10(65025.0 * static_cast<double>(a.size()) / sum);
}

class Codecs : public ::testing::Test {
 protected:
  void SetUp() override {
    PQPlatformResult result;
    manager = LoadCodecManager(result);
    if (manager == nullptr) GTEST_SKIP() << result.detail;
  }
  PQCodecManager* manager = nullptr;
};

// A tag, opened to compress, and what it makes opened again to decompress.
class Pair {
 public:
  Pair(PQCodecManager& manager, std::uint32_t tag, int width, int height)
      : manager_(manager), input_(Header(width, height)) {
    result = manager_.ICLocate(kVideoCodecType, tag, input_, nullptr, kCodecCompress, compress_);
    if (result.Ok()) result = manager_.ICCompressGetFormat(compress_, input_, form);
    std::size_t bytes = 0;
    if (result.Ok()) result = manager_.ICCompressGetSize(compress_, input_, form, bytes);
    if (result.Ok()) result = manager_.ICCompressBegin(compress_, input_, form);
    memory_.resize(bytes);
    if (result.Ok()) {
      result = manager_.ICLocate(kVideoCodecType, form.biCompression, form, &input_, kCodecDecompress, decompress_);
    }
    if (result.Ok()) result = manager_.ICDecompressBegin(decompress_, form, input_);
  }
  ~Pair() {
    if (compress_ != 0) (void)manager_.ICClose(compress_);
    if (decompress_ != 0) (void)manager_.ICClose(decompress_);
  }
  Pixels Compress(const Pixels& pixels, std::uint32_t quality = 0) {
    Pixels padded = pixels;
    padded.resize(pixels.size() + 64);
    PQPlatformBlock frame;
    frame.data = padded.data(), frame.step = std::int64_t{input_.biWidth} * 3, frame.size = pixels.size();
    std::uint32_t chunk = 0;
    result = manager_.ICCompress(compress_, 0, form, {memory_.data(), memory_.size()}, input_, frame, chunk, flags,
                                 number_++, 0, quality, nullptr, nullptr);
    return result.Ok() ? Pixels(memory_.begin(), memory_.begin() + form.biSizeImage) : Pixels();
  }
  // Empty if there is no picture. Nothing beside the picture is written.
  Pixels Decompress(const Pixels& block) {
    const std::size_t size = static_cast<std::size_t>(input_.biWidth) * static_cast<std::size_t>(input_.biHeight) * 3;
    constexpr std::size_t kGuard = 256;
    Pixels around(size + 2 * kGuard, 0xa5);
    BITMAPINFOHEADER header = form;
    header.biSizeImage = static_cast<std::uint32_t>(block.size());
    result = manager_.ICDecompress(decompress_, 0, header, block.data(), input_,
                                   {around.data() + kGuard, std::int64_t{input_.biWidth} * 3, size});
    const auto whole = [](std::uint8_t byte) { return byte == 0xa5; };
    EXPECT_TRUE(std::all_of(around.begin(), around.begin() + kGuard, whole));
    EXPECT_TRUE(std::all_of(around.end() - kGuard, around.end(), whole));
    return result.Ok() ? Pixels(around.begin() + kGuard, around.end() - kGuard) : Pixels();
  }
  PQPlatformResult result;
  BITMAPINFOHEADER form;
  std::uint32_t flags = 0;

 private:
  PQCodecManager& manager_;
  const BITMAPINFOHEADER input_;
  PQCodecHandle compress_ = 0, decompress_ = 0;
  Pixels memory_;
  std::int32_t number_ = 0;
};

constexpr std::uint32_t kLossless[] = {Tag("HFYU"), Tag("FFVH"), Tag("FFV1"), Tag("M8RG"),
                                       Tag("MPNG"), Tag("ZMBV"), Tag("MJLS"), Tag("DIB ")};

// Noise, too: no block is larger than its memory.
TEST_F(Codecs, WithoutLossEveryByteComesBackAtEverySize) {
  constexpr int kSizes[][2] = {{1, 1},   {2, 3},   {5, 17},  {16, 16},  {31, 4},   {32, 9},
                               {33, 10}, {64, 48}, {97, 61}, {160, 33}, {641, 479}};
  for (const std::uint32_t tag : kLossless) {
    for (const auto& size : kSizes) {
      SCOPED_TRACE(Name(tag) + " " + std::to_string(size[0]) + "x" + std::to_string(size[1]));
      Pair pair(*manager, tag, size[0], size[1]);
      ASSERT_TRUE(pair.result.Ok()) << pair.result.detail;
      for (int i = 0; i < 4; ++i) {
        const Pixels pixels = i == 2 ? Noise(size[0], size[1], 7) : Picture(size[0], size[1], i);
        const Pixels block = pair.Compress(pixels);
        ASSERT_FALSE(block.empty()) << pair.result.detail;
        ASSERT_EQ(pair.Decompress(block), pixels) << pair.result.detail;
      }
    }
  }
}

// The number in each picture shows that a block is its own frame's.
TEST_F(Codecs, WithLossPicturesComeBackFairly) {
  struct Case {
    const char tag[5];
    double least;  // dB
    int width = 128, height = 64;
  };
  constexpr Case kCases[] = {
      {"MJPG", 38},           {"LJPG", 38},           {"XVID", 32},          {"DIVX", 32},
      {"FMP4", 32},           {"X264", 32},           {"H264", 32},          {"WMV1", 32},
      {"WMV2", 32},           {"MP43", 32},           {"DIV3", 32},          {"MP42", 32},
      {"mpg1", 32},           {"mpg2", 32},           {"FLV1", 32},          {"VP80", 28},
      {"VP90", 32},           {"MJ2C", 30},           {"SNOW", 30},          {"ASV1", 28},
      {"ASV2", 28},           {"cvid", 25},           {"CRAM", 25},          {"SVQ1", 20},
      {"CFHD", 35},           {"CLJR", 20},           {"YUY2", 28},          {"UYVY", 28},
      {"I420", 28},           {"X264", 32, 129, 65},  {"XVID", 32, 129, 65}, {"MJPG", 38, 129, 65},
      {"H263", 28, 352, 288}, {"dvsd", 30, 720, 576}, {"dvsd", 24, 720, 480}};
  for (const Case& one : kCases) {
    SCOPED_TRACE(std::string(one.tag) + " " + std::to_string(one.width) + "x" + std::to_string(one.height));
    Pair pair(*manager, Tag(one.tag), one.width, one.height);
    if (pair.result.code == kPlatformMissing) continue;
    ASSERT_TRUE(pair.result.Ok()) << pair.result.detail;
    for (int i = 0; i < 15; ++i) {
      const Pixels pixels = Picture(one.width, one.height, i * 17);
      const Pixels block = pair.Compress(pixels, kBestCodecQuality);
      ASSERT_FALSE(block.empty()) << pair.result.detail;
      const Pixels back = pair.Decompress(block);
      ASSERT_FALSE(back.empty()) << pair.result.detail;
      EXPECT_GE(Psnr(pixels, back), one.least) << i;
      const std::int64_t step = std::int64_t{one.width} * 3;
      EXPECT_EQ(test::NumberOf(back.data() + step * (one.height - 1), -step, one.width), i * 17);
    }
  }
}

TEST_F(Codecs, QualityGradesTheBlocks) {
  for (const std::uint32_t tag : {Tag("MJPG"), Tag("XVID"), Tag("X264"), Tag("VP80"), Tag("SVQ1")}) {
    SCOPED_TRACE(Name(tag));
    const Pixels pixels = Noise(64, 48, 1);
    std::size_t last = 0;
    for (const std::uint32_t quality : {1u, 3000u, 7000u, kBestCodecQuality}) {
      Pair pair(*manager, tag, 64, 48);
      const std::size_t bytes = pair.Compress(pixels, quality).size();
      EXPECT_GT(bytes, last) << quality;
      last = bytes;
    }
  }
  // In the middle of a stream: a key frame begins anew, and the decoder follows.
  Pair pair(*manager, Tag("XVID"), 64, 48);
  for (const std::uint32_t quality : {0u, 0u, 9000u, 9000u, 60000u}) {
    const Pixels pixels = Picture(64, 48, 3);
    const Pixels block = pair.Compress(pixels, quality);
    ASSERT_FALSE(block.empty()) << pair.result.detail;
    EXPECT_GE(Psnr(pair.Decompress(block), pixels), 30) << quality;
  }
}

TEST_F(Codecs, TagZeroCompressesWithAnyCodecThatTakesTheFrames) {
  for (const auto& size : {std::pair(1, 1), std::pair(33, 7), std::pair(640, 480)}) {
    Pair pair(*manager, 0, size.first, size.second);
    EXPECT_TRUE(pair.result.Ok()) << pair.result.detail;
    EXPECT_EQ(pair.form.biCompression, Tag("MJPG"));
  }
}

// Cut, scribbled over, and made up blocks. Nothing is printed, nothing beside the picture is written, and a good block
// still comes back afterwards.
TEST_F(Codecs, BadBlocksAreRefusedAndDoNoHarm) {
  std::vector<std::uint32_t> tags(std::begin(kLossless), std::end(kLossless));
  for (const auto tag :
       {Tag("MJPG"), Tag("XVID"), Tag("X264"), Tag("WMV1"), Tag("WMV2"), Tag("MP43"), Tag("MP42"), Tag("mpg1"),
        Tag("mpg2"), Tag("FLV1"), Tag("VP80"), Tag("VP90"), Tag("MJ2C"), Tag("SNOW"), Tag("ASV1"), Tag("ASV2"),
        Tag("cvid"), Tag("CRAM"), Tag("SVQ1"), Tag("CFHD"), Tag("CLJR"), Tag("YUY2"), Tag("I420")}) {
    tags.push_back(tag);
  }
  const int rounds = std::getenv("PANTIQ_TEST_LONG") != nullptr ? 4000 : 40;
  testing::internal::CaptureStderr();
  for (const std::uint32_t tag : tags) {
    SCOPED_TRACE(Name(tag));
    Pair pair(*manager, tag, 96, 64);
    if (pair.result.code == kPlatformMissing) continue;
    ASSERT_TRUE(pair.result.Ok()) << pair.result.detail;
    const Pixels good = pair.Compress(Picture(96, 64, 1), kBestCodecQuality);
    const Pixels second = pair.Compress(Picture(96, 64, 2), kBestCodecQuality);
    ASSERT_FALSE(good.empty() || second.empty());
    std::mt19937 random(tag);
    for (const Pixels* block : {&good, &second}) {
      for (std::size_t part = 0; part <= 8; ++part) {
        const auto kept = static_cast<std::ptrdiff_t>(block->size() * part / 9);
        (void)pair.Decompress(Pixels(block->begin(), block->begin() + kept));
      }
      for (int round = 0; round < rounds; ++round) {
        Pixels bad = *block;
        const int hits = 1 + round % 40;
        for (int hit = 0; hit < hits; ++hit) {
          // Mostly in the beginning, where sizes stand.
          const std::size_t span = hit % 2 == 0 ? std::min<std::size_t>(bad.size(), 64) : bad.size();
          bad[random() % span] = static_cast<std::uint8_t>(random());
        }
        (void)pair.Decompress(bad);
      }
    }
    for (const std::uint8_t fill : {std::uint8_t{0}, std::uint8_t{0xff}}) (void)pair.Decompress(Pixels(4000, fill));
    EXPECT_TRUE(pair.Decompress({}).empty());
    // A whole group of frames, as the first may be taken for a part of what went before.
    Pair fresh(*manager, tag, 96, 64);
    Pixels back, pixels;
    for (int i = 0; i < 14; ++i) {
      pixels = Picture(96, 64, 40 + i);
      back = pair.Decompress(fresh.Compress(pixels, kBestCodecQuality));
    }
    ASSERT_FALSE(back.empty()) << pair.result.detail;
    EXPECT_GE(Psnr(back, pixels), 20);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// A block of another size than announced, as the block of a stream from elsewhere may be.
TEST_F(Codecs, ABlockOfAnotherSizeGivesNoPicture) {
  for (const std::uint32_t tag : {Tag("MJPG"), Tag("X264"), Tag("MPNG"), Tag("VP80"), Tag("MJLS")}) {
    SCOPED_TRACE(Name(tag));
    Pair small(*manager, tag, 64, 48), large(*manager, tag, 640, 480);
    EXPECT_TRUE(small.Decompress(large.Compress(Picture(640, 480, 1))).empty());
    EXPECT_TRUE(large.Decompress(small.Compress(Picture(64, 48, 1))).empty());
    EXPECT_EQ(large.result.code, kPlatformFormat);
  }
}

TEST_F(Codecs, HeadersThatCannotBeAreRefused) {
  struct Case {
    BITMAPINFOHEADER input, output;
    std::uint32_t type = kVideoCodecType;
  };
  const auto compressed = [](BITMAPINFOHEADER header) {
    header.biCompression = Tag("MJPG");
    return header;
  };
  constexpr int kLeast = std::numeric_limits<std::int32_t>::min(), kMost = std::numeric_limits<std::int32_t>::max();
  const BITMAPINFOHEADER good = Header(16, 16);
  const Case cases[] = {{Header(0, 16), Header(0, 16)},
                        {Header(16, 0), Header(16, 0)},
                        {Header(-16, 16), Header(-16, 16)},
                        {Header(kMost, kMost), Header(kMost, kMost)},
                        {Header(16, kLeast), Header(16, kLeast)},
                        {Header(32767, 32767), Header(32767, 32767)},
                        {good, Header(16, 17)},
                        {good, Header(16, 16, 32)},
                        {good, Header(16, 16, 8)},
                        {good, compressed(good)},
                        {good, good, Tag("audc")}};
  for (const Case& one : cases) {
    SCOPED_TRACE(std::to_string(one.input.biWidth) + "x" + std::to_string(one.input.biHeight));
    PQCodecHandle handle = 1;
    EXPECT_FALSE(
        manager->ICLocate(one.type, Tag("MJPG"), compressed(one.input), &one.output, kCodecDecompress, handle).Ok());
    EXPECT_EQ(handle, 0u);
    // The frames to compress are the output of the one that decompresses.
    if (one.output != good || one.type != kVideoCodecType) {
      if (one.output == Header(16, 17)) continue;
      handle = 1;
      EXPECT_FALSE(manager->ICLocate(one.type, Tag("MJPG"), one.output, nullptr, kCodecCompress, handle).Ok());
      EXPECT_EQ(handle, 0u);
    }
  }
  // Tags that are unknown, can only be decompressed, or must not be used; nothing of it is a handle.
  for (const char* tag : {"ABCD", "I263", "YV12", "AV01", "\xff\xff\xff\xff"}) {
    PQCodecHandle handle = 1;
    std::uint32_t number = 0;
    std::memcpy(&number, tag, 4);
    const auto result = manager->ICLocate(kVideoCodecType, number, good, nullptr, kCodecCompress, handle);
    EXPECT_FALSE(result.Ok()) << tag;
    EXPECT_FALSE(result.detail.empty());
    EXPECT_EQ(handle, 0u);
  }
  // Calls for no codec fail; memory of nothing is none.
  BITMAPINFOHEADER header = good;
  PQCodecInfo info;
  std::size_t bytes = 0;
  PQCodecMemory memory = 1;
  EXPECT_FALSE(manager->ICCompressGetFormat(0, good, header).Ok());
  EXPECT_EQ(header, good);
  EXPECT_FALSE(manager->ICGetInfo(0, info).Ok());
  EXPECT_FALSE(manager->ICCompressGetSize(0, good, good, bytes).Ok());
  EXPECT_FALSE(manager->ICDecompressBegin(0, good, good).Ok());
  EXPECT_FALSE(manager->ICClose(0).Ok());
  EXPECT_FALSE(manager->GlobalAlloc(0, memory).Ok());
  EXPECT_EQ(memory, 0u);
}

TEST_F(Codecs, HandlesAreIndependentOnTheirThreads) {
  std::vector<std::thread> threads;
  for (const std::uint32_t tag : {Tag("MJPG"), Tag("FFV1"), Tag("HFYU"), Tag("XVID")}) {
    threads.emplace_back([this, tag] {
      Pair pair(*manager, tag, 64, 48);
      for (int i = 0; i < 10; ++i) {
        const Pixels pixels = Picture(64, 48, i);
        EXPECT_GE(Psnr(pair.Decompress(pair.Compress(pixels, kBestCodecQuality)), pixels), 25) << Name(tag);
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

TEST_F(Codecs, TheListHoldsWhatWorks) {
  std::vector<PQCodecEntry> list;
  ASSERT_TRUE(manager->ListCodecs(list).Ok());
  const auto find = [&list](std::uint32_t tag) {
    return std::find_if(list.begin(), list.end(), [tag](const PQCodecEntry& entry) { return entry.tag == tag; });
  };
  for (const PQCodecEntry& entry : list) {
    SCOPED_TRACE(Name(entry.tag));
    EXPECT_FALSE(entry.name.empty());
    EXPECT_FALSE(entry.decoder.empty());
    EXPECT_EQ(find(entry.tag)->encoder, entry.encoder);  // each once
    if (entry.encoder.empty() || !entry.sizes.empty()) continue;
    // The limits hold: a multiple opens, what lies between two does not.
    const int side = entry.align * 10;
    EXPECT_TRUE(Pair(*manager, entry.tag, side, side).result.Ok());
    EXPECT_TRUE(Pair(*manager, entry.tag, entry.least, entry.least).result.Ok());
    EXPECT_EQ(Pair(*manager, entry.tag, side + entry.align / 2, side).result.Ok(), entry.align == 1);
  }
  for (const std::uint32_t tag : kLossless) {
    ASSERT_NE(find(tag), list.end()) << Name(tag);
    EXPECT_TRUE(find(tag)->lossless) << Name(tag);
  }
  ASSERT_NE(find(Tag("MJPG")), list.end());
  EXPECT_FALSE(find(Tag("MJPG"))->lossless);
  EXPECT_TRUE(find(Tag("MJPG"))->every_frame_key);
  EXPECT_TRUE(find(Tag("MJPG"))->quality);
  EXPECT_FALSE(find(Tag("XVID"))->every_frame_key);
}

}  // namespace
}  // namespace pantiq
