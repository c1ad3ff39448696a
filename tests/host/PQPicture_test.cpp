#include "pantiq/host/PQPicture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

namespace pantiq {
namespace {

#ifdef PANTIQ_PICTURES
constexpr bool kHasPictures = true;
#else
constexpr bool kHasPictures = false;
#endif

// A PNG writer of its own, without compression: what the reader under test gets comes from nobody's library.
class PngMaker {
 public:
  PngMaker(std::uint32_t width, std::uint32_t height, int depth, int color, int interlace = 0) {
    bytes_ = {0x89, 'P', 'N', 'G', 0x0d, 0x0a, 0x1a, 0x0a};
    PQBytes header;
    Put(header, width, 4), Put(header, height, 4);
    for (const int byte : {depth, color, 0, 0, interlace}) header.push_back(static_cast<std::uint8_t>(byte));
    Chunk("IHDR", header);
  }
  void Chunk(const char* name, const PQBytes& data) {
    Put(bytes_, static_cast<std::uint32_t>(data.size()), 4);
    PQBytes checked(name, name + 4);
    checked.insert(checked.end(), data.begin(), data.end());
    bytes_.insert(bytes_.end(), checked.begin(), checked.end());
    Put(bytes_, Crc(checked), 4);
  }
  PQBytes Finish(const PQBytes& rows) {  // each row with its filter byte
    PQBytes data = {0x78, 0x01, 0x01};
    const std::uint32_t size = static_cast<std::uint32_t>(rows.size());
    for (const std::uint32_t word : {size, ~size}) {
      data.push_back(static_cast<std::uint8_t>(word)), data.push_back(static_cast<std::uint8_t>(word >> 8));
    }
    data.insert(data.end(), rows.begin(), rows.end());
    std::uint32_t a = 1, b = 0;
    for (const std::uint8_t byte : rows) a = (a + byte) % 65521, b = (b + a) % 65521;
    Put(data, b << 16 | a, 4);
    Chunk("IDAT", data);
    Chunk("IEND", {});
    return bytes_;
  }

 private:
  static void Put(PQBytes& to, std::uint32_t value, int count) {
    for (int i = count - 1; i >= 0; --i) to.push_back(static_cast<std::uint8_t>(value >> 8 * i));
  }
  static std::uint32_t Crc(const PQBytes& bytes) {
    std::uint32_t crc = ~0u;
    for (const std::uint8_t byte : bytes) {
      crc ^= byte;
      for (int i = 0; i < 8; ++i) crc = crc >> 1 ^ (crc & 1 ? 0xedb88320u : 0);
    }
    return ~crc;
  }
  PQBytes bytes_;
};

PQBytes PixelsOf(const PQBytes& file) {
  TPicture picture;
  const PQStatus status = picture.LoadFromMemory(file);
  EXPECT_TRUE(status.Ok()) << status.Text();
  const TBitmap& bitmap = *picture.GetSnapshot();
  return PQBytes(bitmap.Data(), bitmap.Data() + bitmap.GetStep() * static_cast<std::size_t>(bitmap.GetHeight()));
}

TBitmap Noise(int width, int height, unsigned seed) {
  TBitmap bitmap(width, height);
  std::mt19937 random(seed);
  for (std::size_t i = 0; i < bitmap.GetStep() * static_cast<std::size_t>(height); ++i) {
    bitmap.Data()[i] = static_cast<std::uint8_t>(random());
  }
  return bitmap;
}

class PictureFile : public testing::Test {
 protected:
  void SetUp() override {
    folder_ = std::filesystem::path(testing::TempDir()) /
              ("pantiq_picture_" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()));
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }
  std::string Path(const char* name) const { return (folder_ / name).string(); }
  PQBytes Bytes(const char* name) const {
    std::ifstream file(Path(name), std::ios::binary);
    return PQBytes(std::istreambuf_iterator<char>(file), {});
  }
  std::filesystem::path folder_;
};

TEST(TPicture, PngOfEveryPixelForm) {
  if (!kHasPictures) GTEST_SKIP() << "built without PNG";
  // Red 10, green 20, blue 30, then red 40, ...: a row of two pixels is {30 20 10 60 50 40} here.
  const PQBytes two = {30, 20, 10, 60, 50, 40};
  EXPECT_EQ(PixelsOf(PngMaker(2, 1, 8, 2).Finish({0, 10, 20, 30, 40, 50, 60})), two);
  // 16 bits: the high byte, whatever the low one says.
  EXPECT_EQ(PixelsOf(PngMaker(2, 1, 16, 2).Finish({0, 10, 255, 20, 0, 30, 127, 40, 128, 50, 1, 60, 255})), two);
  // Alpha over black: c * a / 255, rounded.
  EXPECT_EQ(PixelsOf(PngMaker(2, 1, 8, 6).Finish({0, 10, 20, 30, 255, 255, 100, 7, 128})),
            (PQBytes{30, 20, 10, 4, 50, 128}));
  EXPECT_EQ(PixelsOf(PngMaker(1, 1, 16, 6).Finish({0, 200, 9, 100, 9, 50, 9, 0, 200})), (PQBytes{0, 0, 0}));
  // Gray: 8, 16, 4, 1 bits, and with alpha.
  EXPECT_EQ(PixelsOf(PngMaker(1, 2, 8, 0).Finish({0, 77, 0, 78})), (PQBytes{77, 77, 77, 78, 78, 78}));
  EXPECT_EQ(PixelsOf(PngMaker(1, 1, 16, 0).Finish({0, 77, 255})), (PQBytes{77, 77, 77}));
  EXPECT_EQ(PixelsOf(PngMaker(2, 1, 4, 0).Finish({0, 0x3f})), (PQBytes{51, 51, 51, 255, 255, 255}));
  EXPECT_EQ(PixelsOf(PngMaker(2, 1, 1, 0).Finish({0, 0x40})), (PQBytes{0, 0, 0, 255, 255, 255}));
  EXPECT_EQ(PixelsOf(PngMaker(1, 1, 8, 4).Finish({0, 100, 51})), (PQBytes{20, 20, 20}));
  // A palette, and one with transparent entries.
  PngMaker palette(2, 1, 2, 3);
  palette.Chunk("PLTE", {10, 20, 30, 1, 2, 3, 40, 50, 60});
  EXPECT_EQ(PixelsOf(palette.Finish({0, 0x20})), two);
  PngMaker clear(2, 1, 2, 3);
  clear.Chunk("PLTE", {10, 20, 30, 1, 2, 3, 40, 50, 60});
  clear.Chunk("tRNS", {0, 255, 255});
  EXPECT_EQ(PixelsOf(clear.Finish({0, 0x20})), (PQBytes{0, 0, 0, 60, 50, 40}));
  // A gamma chunk changes nothing.
  PngMaker gamma(2, 1, 8, 2);
  gamma.Chunk("gAMA", {0, 1, 0x86, 0xa0});
  EXPECT_EQ(PixelsOf(gamma.Finish({0, 10, 20, 30, 40, 50, 60})), two);
  // Interlaced: the first pass holds pixel (0, 0), the sixth pixel (1, 0).
  EXPECT_EQ(PixelsOf(PngMaker(2, 1, 8, 2, 1).Finish({0, 10, 20, 30, 0, 40, 50, 60})), two);
}

TEST_F(PictureFile, SavesByEndingAndLoadsByContent) {
  const TBitmap bitmap = Noise(37, 19, 5);
  TPicture picture;
  picture.SetBitmap(bitmap);
  for (const char* name : {"a.png", "a.BMP"}) {
    if (!kHasPictures && std::string(name) == "a.png") continue;
    ASSERT_TRUE(picture.SaveToFile(Path(name)).Ok());
    std::filesystem::copy_file(Path(name), Path("no ending"), std::filesystem::copy_options::overwrite_existing);
    TPicture loaded;
    ASSERT_TRUE(loaded.LoadFromFile(Path("no ending")).Ok());
    EXPECT_EQ(*loaded.GetSnapshot(), bitmap) << name;
    EXPECT_EQ(loaded.GetFileName(), Path("no ending"));
  }
  if (kHasPictures) {  // JPEG is lossy: a smooth picture comes back nearly the same
    TBitmap smooth(64, 48);
    for (int y = 0; y < 48; ++y) {
      for (int x = 0; x < 64; ++x) {
        smooth.Row(y)[3 * x] = static_cast<std::uint8_t>(4 * x),
                          smooth.Row(y)[3 * x + 1] = static_cast<std::uint8_t>(5 * y);
        smooth.Row(y)[3 * x + 2] = 100;
      }
    }
    picture.SetBitmap(smooth);
    for (const char* name : {"b.jpg", "b.JPEG"}) {
      ASSERT_TRUE(picture.SaveToFile(Path(name)).Ok());
      TPicture loaded;
      ASSERT_TRUE(loaded.LoadFromFile(Path(name)).Ok());
      ASSERT_EQ(loaded.GetWidth(), 64);
      for (std::size_t i = 0; i < 64 * 48 * 3; ++i) {
        ASSERT_NEAR(loaded.GetSnapshot()->Data()[i], smooth.Data()[i], 8) << i;
      }
    }
  }
  EXPECT_EQ(picture.SaveToFile(Path("a.gif")).Code(), PQCode::BadValue);
  EXPECT_EQ(picture.SaveToFile(Path("no folder/a.bmp")).Code(), PQCode::NotFound);
  picture.Clear();
  EXPECT_EQ(picture.SaveToFile(Path("a.bmp")).Code(), PQCode::BadValue);
}

TEST_F(PictureFile, DamageIsAnsweredAndTheOldPictureStays) {
  TPicture source, target;
  source.SetBitmap(Noise(9, 7, 1));
  target.SetBitmap(Noise(2, 2, 2));
  const TBitmap before = *target.GetSnapshot();
  int changes = 0;
  target.OnChange = [&] { ++changes; };
  for (const char* name : {"a.png", "a.jpg", "a.bmp"}) {
    if (!kHasPictures && std::string(name) != "a.bmp") continue;
    ASSERT_TRUE(source.SaveToFile(Path(name)).Ok());
    const PQBytes bytes = Bytes(name);
    for (std::size_t size = 0; size < bytes.size(); ++size) {
      EXPECT_FALSE(target.LoadFromMemory(std::span(bytes).first(size)).Ok()) << name << " " << size;
    }
    EXPECT_EQ(*target.GetSnapshot(), before);
    EXPECT_EQ(changes, 0);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      PQBytes other = bytes;
      other[i] = static_cast<std::uint8_t>(other[i] ^ 0xa5);
      TPicture any;
      any.LoadFromMemory(other).IgnoreError();
    }
  }
  EXPECT_EQ(target.LoadFromFile(Path("none.png")).Code(), PQCode::NotFound);
  EXPECT_EQ(target.LoadFromFile(folder_.string()).Code(), PQCode::Io);
  EXPECT_EQ(target.LoadFromMemory(PQBytes{1, 2, 3}).Text(),
            "the content is no picture that is known; expected PNG, JPEG or BMP");
  EXPECT_EQ(changes, 0);
}

TEST(TPicture, GiantSizesAreRefusedBeforeMemoryIsTaken) {
  TPicture picture;
  if (kHasPictures) {
    EXPECT_EQ(picture.LoadFromMemory(PngMaker(0x7fffffff, 0x7fffffff, 8, 2).Finish({0})).Code(), PQCode::Refused);
    EXPECT_EQ(picture.LoadFromMemory(PngMaker(10000, 10000, 8, 2).Finish({0})).Text(),
              "the file is cut off: 69 bytes cannot hold 10000x10000 pixels; expected at least 288461");
    const PQStatus zero = picture.LoadFromMemory(PngMaker(0, 5, 8, 2).Finish({0}));
    EXPECT_EQ(zero.Code(), PQCode::BadFormat);
  }
  PQBytes bmp(54, 0);
  bmp[0] = 'B', bmp[1] = 'M', bmp[14] = 40, bmp[28] = 24;
  for (const int at : {20, 24}) bmp[static_cast<std::size_t>(at)] = 0x10;  // 2^20 by 2^20
  EXPECT_EQ(picture.LoadFromMemory(bmp).Code(), PQCode::Refused);
  bmp[20] = bmp[24] = 0, bmp[19] = bmp[23] = 0x10;  // 4096 by 4096
  EXPECT_EQ(picture.LoadFromMemory(bmp).Text(),
            "the file is cut off: 54 bytes cannot hold 4096x4096 pixels; expected at least 50331648");
  bmp[25] = 0x80, bmp[23] = 0;  // height -2^31
  EXPECT_FALSE(picture.LoadFromMemory(bmp).Ok());
}

TEST(TPicture, BmpOfEveryDepth) {
  const auto bmp = [](int bits, int width, int height, const PQBytes& behind, int compression = 0, int header = 40) {
    PQBytes bytes(static_cast<std::size_t>(14 + header), 0);
    bytes[0] = 'B', bytes[1] = 'M', bytes[14] = static_cast<std::uint8_t>(header), bytes[26] = 1;
    const auto put = [&](std::size_t at, int value) {
      for (int i = 0; i < 4; ++i) bytes[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value >> 8 * i);
    };
    put(18, width), put(22, height), bytes[28] = static_cast<std::uint8_t>(bits), put(30, compression);
    std::copy(behind.begin(), behind.end(), std::back_inserter(bytes));
    const int row = (width * bits + 31) / 32 * 4;
    put(10, static_cast<int>(bytes.size()) - row * std::abs(height));
    return bytes;
  };
  const PQBytes palette = {1, 2, 3, 0, 4, 5, 6, 0};
  const auto with = [](PQBytes a, const PQBytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
  };
  PQBytes palette16 = with(palette, PQBytes(14 * 4, 0)), palette256 = with(palette, PQBytes(254 * 4, 0));
  const PQBytes expected = {4, 5, 6, 1, 2, 3};
  EXPECT_EQ(PixelsOf(bmp(1, 2, 1, with(palette, {0x80, 0, 0, 0}))), expected);
  EXPECT_EQ(PixelsOf(bmp(4, 2, 1, with(palette16, {0x10, 0, 0, 0}))), expected);
  EXPECT_EQ(PixelsOf(bmp(8, 2, 1, with(palette256, {1, 0, 0, 0}))), expected);
  EXPECT_EQ(PixelsOf(bmp(24, 1, 2, {1, 2, 3, 0, 4, 5, 6, 0})), expected);   // rows from the bottom up
  EXPECT_EQ(PixelsOf(bmp(24, 1, -2, {4, 5, 6, 0, 1, 2, 3, 0})), expected);  // and from the top down
  EXPECT_EQ(PixelsOf(bmp(32, 2, 1, {4, 5, 6, 9, 1, 2, 3, 0})), expected);   // the fourth byte is nothing
  EXPECT_EQ(PixelsOf(bmp(16, 2, 1, {0x1f, 0x00, 0xe0, 0x7f})), (PQBytes{255, 0, 0, 0, 255, 255}));
  EXPECT_EQ(PixelsOf(bmp(16, 1, 1, {0, 0xf8, 0, 0, 0xe0, 7, 0, 0, 0x1f, 0, 0, 0, 0xe0, 7, 0, 0}, 3)),
            (PQBytes{0, 255, 0}));  // masks of 5, 6 and 5 bits
  EXPECT_FALSE(TPicture().LoadFromMemory(bmp(8, 2, 1, with(palette256, {1, 0, 0, 0}), 1)).Ok());  // run lengths
  EXPECT_FALSE(TPicture().LoadFromMemory(bmp(5, 2, 1, PQBytes(8, 0))).Ok());
}

TEST_F(PictureFile, StoredForms) {
  TPicture picture;
  EXPECT_TRUE(picture.GetStored().IsEmpty());
  const std::uint8_t pixels[] = {1, 2, 3, 9, 4, 5, 6, 9};
  picture.SetPixels(1, 2, pixels, 4);
  EXPECT_EQ(picture.GetSnapshot()->Row(1)[2], 6);
  const PQValue inside = picture.GetStored();
  ASSERT_NE(inside.Bytes(), nullptr);
  TPicture other;
  int changes = 0;
  other.OnChange = [&] { ++changes; };
  ASSERT_TRUE(other.SetStored(inside).Ok());
  EXPECT_EQ(*other.GetSnapshot(), *picture.GetSnapshot());
  EXPECT_TRUE(other.GetStored() == inside);
  EXPECT_EQ(changes, 1);

  ASSERT_TRUE(picture.SaveToFile(Path("p.bmp")).Ok());
  ASSERT_TRUE(other.SetStored(PQValue(Path("p.bmp"))).Ok());
  EXPECT_TRUE(other.GetStored() == PQValue(Path("p.bmp")));
  EXPECT_NE(other.GetStored(false).Bytes(), nullptr);
  TPicture copy;
  copy.Assign(other);
  EXPECT_EQ(copy.GetFileName(), Path("p.bmp"));
  EXPECT_EQ(copy.GetSnapshot(), other.GetSnapshot());  // shared until somebody changes
  other.SetPixels(1, 1, pixels, 3);
  EXPECT_EQ(other.GetFileName(), "");
  EXPECT_EQ(copy.GetHeight(), 2);
  EXPECT_TRUE(other.SetStored(PQValue("")).Ok());
  EXPECT_TRUE(other.IsEmpty());
}

TEST(TBitmap, DrawsAndStretches) {
  TBitmap bitmap(3, 2), source(2, 2);
  for (int i = 0; i < 12; ++i) source.Data()[i] = static_cast<std::uint8_t>(i + 1);
  bitmap.Draw(2, -1, source);  // only the source's lower left pixel lands inside
  for (int i = 0; i < 18; ++i) EXPECT_EQ(bitmap.Data()[i], i >= 6 && i < 9 ? i + 1 : 0) << i;
  bitmap.Draw(-5, 0, source), bitmap.Draw(3, 0, source), bitmap.Draw(0, 0x7fffffff, source);
  TBitmap wide(5, 1);
  wide.StretchDraw(source);
  const int columns[] = {0, 0, 0, 1, 1};  // x * 2 / 5
  for (int x = 0; x < 5; ++x) EXPECT_EQ(wide.Data()[3 * x], 3 * columns[x] + 1);
  wide.StretchDraw(TBitmap());
  bitmap.SetSize(-1, 5);
  EXPECT_TRUE(bitmap.IsEmpty());
  EXPECT_THROW(bitmap.SetSize(40000, 40000), std::bad_alloc);
}

}  // namespace
}  // namespace pantiq
