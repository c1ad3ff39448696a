#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>

#include "pantiq/filters/PQGaussNoise.h"
#include "pantiq/filters/PQImageGen.h"
#include "pantiq/filters/PQJaehneGen.h"
#include "pantiq/filters/PQUniformNoise.h"
#include "tests/filters/Chain.h"

namespace pantiq {
namespace {

TEST(PQUniformNoise, KeepsItsBoundsInOrder) {
  Chain<TPQUniformNoise> chain;
  chain.filter.SetHigh(100);
  chain.filter.SetLow(200);
  EXPECT_EQ(chain.filter.GetHigh(), 200);
  PQImageRef frame = MakeFrame(9, 9);
  std::vector<int> out = Bytes(*chain.Send(frame));
  for (int i = 0; i < 243; ++i) ASSERT_EQ(out[static_cast<std::size_t>(i)], std::min(frame->Read()[i] + 200, 255));
  chain.filter.SetHigh(10);
  EXPECT_EQ(chain.filter.GetLow(), 10);
}

template <class Noise>
class NoiseTest : public testing::Test {};
using Noises = testing::Types<TPQUniformNoise, TPQGaussNoise>;
TYPED_TEST_SUITE(NoiseTest, Noises);

TYPED_TEST(NoiseTest, ASeedBeginsAgainAtEachStart) {
  Chain<TypeParam> chain;
  PQImageRef frame = PQMakeRef<TPQImageBuffer>(64, 16, vfRGB24);
  frame->Fill(0x808080);
  EXPECT_EQ(chain.filter.GetSeed(), 31192);
  chain.source.Start(64, 16);
  const std::vector<int> first = Bytes(*chain.Send(frame));
  const std::uint16_t moved = chain.filter.GetSeed();
  EXPECT_NE(moved, 31192);
  const std::vector<int> second = Bytes(*chain.Send(frame));
  EXPECT_NE(first, second);
  EXPECT_EQ(frame->Read()[0], 128) << "the sender's frame stays";
  chain.filter.SetSeed(31192);
  chain.source.Start(64, 16);
  EXPECT_EQ(Bytes(*chain.Send(frame)), first);
  // Without a start the low half is 0 at first: another sequence.
  Chain<TypeParam> fresh;
  EXPECT_NE(Bytes(*fresh.Send(frame)), first);
}

// A seed that is set while a frame is worked on is not overwritten by that frame's end.
class SetsItsSeed final : public TPQCommonNoiseFilter {
 public:
  explicit SetsItsSeed(TComponent* owner = nullptr) : TPQCommonNoiseFilter(owner) {}
  ~SetsItsSeed() override { BeforeDestructionOnce(); }

 protected:
  void AddNoise(std::uint8_t*, int, IppiSize, std::uint16_t& seed) override {
    SetSeed(7);
    (&seed)[0] = (&seed)[1] = 99;
  }
};
TEST(PQNoiseFilter, ASeedThatIsSetDuringAFrameStays) {
  Chain<SetsItsSeed> chain;
  chain.Send(MakeFrame(4, 3));
  EXPECT_EQ(chain.filter.GetSeed(), 7);
}

TYPED_TEST(NoiseTest, ARegionAloneGetsNoise) {
  Chain<TypeParam> chain;
  chain.filter.GetRegion().Set({true, 3, 2, 5, 4});
  PQImageRef frame = PQMakeRef<TPQImageBuffer>(16, 12, vfRGB24);
  frame->Fill(0x646464);
  chain.source.Start(16, 12);
  chain.Send(frame);
  int inside = 0;
  for (int y = 0; y < 12; ++y) {
    for (int x = 0; x < 16; ++x) {
      const bool changed = chain.sink.last->GetPixel(x, y) != 0x646464;
      const bool in = x >= 3 && x < 8 && y >= 2 && y < 6;
      ASSERT_TRUE(in || !changed) << x << "," << y;
      inside += changed;
    }
  }
  EXPECT_GT(inside, 10);
}

// A generator whose frames are asked for by the test.
template <class Gen>
struct Source {
  Gen gen;
  TestSink sink;
  std::vector<PQImageRef> frames;
  Source() {
    sink.on_op = [this](IJCNotifyOperation& op) {
      if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) request->Master = this, request->Kind = 3;
      if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
        frames.push_back(PQMakeRef<TPQImageBuffer>(*supplied->Buffer));
      }
    };
    EXPECT_TRUE(gen.OutputPin.Connect(sink.InputPin).Ok());
  }
  IPQImageBuffer& Next() {
    if (frames.empty()) sink.InputPin.Notify(*PQMakeRef<TJCStartOperation>());
    sink.InputPin.MasterPump(this);
    return *frames.back();
  }
};

TEST(PQJaehneGen, MakesTheSameSymmetricPictureAgain) {
  Source<TPQJaehneGen> source;
  source.gen.GetImageSizeObject().Set({33, 33});
  IPQImageBuffer& first = source.Next();
  EXPECT_EQ(first.GetPixel(16, 16), 0x7F7F7Fu) << "the centre is sin 0";
  for (int i = 0; i < 33; ++i) {
    EXPECT_EQ(first.GetPixel(i, 0), first.GetPixel(32 - i, 32));
    EXPECT_EQ(first.GetPixel(i, 5), first.GetPixel(5, i));
  }
  EXPECT_EQ(Bytes(source.Next()), Bytes(*source.frames.front()));
  EXPECT_EQ(source.frames.back()->GetTimeCode().GetFrame(), 1);
}

TEST(PQImageGen, SendsThePictureWithItsOwnStamps) {
  Source<TPQImageGen> source;
  EXPECT_EQ(source.Next().GetWidth(), 0) << "no picture, no pixels";
  const std::uint8_t pixels[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  source.gen.GetPicture().SetPixels(2, 2, pixels, 6);
  EXPECT_EQ(Bytes(source.Next()), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(source.frames.back()->GetTimeCode().GetFrame(), 1);
  EXPECT_EQ(source.frames.back()->GetTimeStamp().GetBegin(), 400000);
  EXPECT_EQ(source.gen.GetImageSizeObject().GetWidth(), 2);
  const std::uint64_t copied = PQFramePool::CopiedBytes();
  source.Next();
  EXPECT_EQ(PQFramePool::CopiedBytes(), copied) << "every frame shares the picture's storage";

  const std::string file = (std::filesystem::temp_directory_path() / ("pantiq-gen-" + std::to_string(getpid()) + ".bmp")).string();
  ASSERT_TRUE(source.gen.GetPicture().SaveToFile(file).Ok());
  Source<TPQImageGen> other;
  ASSERT_TRUE(other.gen.GetPicture().LoadFromFile(file).Ok());
  EXPECT_EQ(Bytes(other.Next()), Bytes(source.Next()));
  EXPECT_FALSE(other.gen.GetPicture().LoadFromFile(file + ".missing").Ok());
  EXPECT_EQ(other.Next().GetWidth(), 2) << "a picture that cannot be loaded changes nothing";
  std::filesystem::remove(file);
}

}  // namespace
}  // namespace pantiq
