#include "pantiq/core/PQSimpleImageBuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "tests/core/TestComponents.h"

namespace pantiq {
namespace {

PQRef<TPQImageBuffer> Frame(int width, int height, TPQVideoFormat format = vfRGB24) {
  auto frame = PQMakeRef<TPQImageBuffer>(width, height, format);
  frame->Assign(*MakeFrame(width, height, format));
  return frame;
}

TEST(PQSimpleImageBuffer, SharesUntilSomebodyWrites) {
  auto a = Frame(4, 3);
  auto b = PQMakeRef<TPQImageBuffer>(*a);
  EXPECT_EQ(a->Read(), b->Read());
  const std::uint64_t copied = PQFramePool::CopiedBytes();

  std::memset(b->Write(), 7, 36);
  EXPECT_NE(a->Read(), b->Read());
  EXPECT_EQ(a->Read()[35], 35);
  EXPECT_EQ(PQFramePool::CopiedBytes(), copied) << "Write copies nothing";

  auto c = PQMakeRef<TPQImageBuffer>();
  c->Assign(*a);
  EXPECT_EQ(c->Modify()[20], 20);
  EXPECT_EQ(PQFramePool::CopiedBytes(), copied + 36);
  c->Modify()[20] = 99;
  EXPECT_EQ(a->Read()[20], 20);
  EXPECT_EQ(PQFramePool::CopiedBytes(), copied + 36) << "alone, Modify copies nothing";
  c->Assign(*c);
  EXPECT_EQ(c->Read()[20], 99);
}

TEST(PQSimpleImageBuffer, SizesStepsAndEmptyFrames) {
  auto empty = PQMakeRef<TPQImageBuffer>();
  EXPECT_EQ(empty->GetWidth(), 0);
  EXPECT_EQ(empty->GetCount(), 0);
  empty->SetFormat(vfGrayScale);
  EXPECT_EQ(empty->GetFormat(), vfGrayScale);
  auto frame = Frame(5, 2);
  EXPECT_EQ(frame->GetStep(), 15);
  frame->SetFormat(vfGrayScale);
  EXPECT_EQ(frame->GetStep(), 5);
  EXPECT_EQ(frame->GetCount(), 10);
  frame->Assign(*PQMakeRef<TPQImageBuffer>());
  EXPECT_EQ(frame->GetWidth(), 0);
  EXPECT_EQ(PQMakeRef<TPQImageBuffer>(-3, 4, vfRGB24)->GetWidth(), 0);
  EXPECT_EQ(PQMakeRef<TPQImageBuffer>(2, 2, vfUnspecified)->GetFormat(), vfRGB24);
  EXPECT_THROW(PQMakeRef<TPQImageBuffer>(65535, 65535, vfRGB24), std::bad_alloc);
  EXPECT_THROW(frame->SetSize(2147483647, 2147483647), std::bad_alloc);
}

TEST(PQSimpleImageBuffer, FormatChangesLeaveOtherHoldersAlone) {
  auto frame = Frame(6, 2);
  auto other = PQMakeRef<TPQImageBuffer>(*frame);
  frame->SetFormat(vfGrayScale);
  EXPECT_EQ(other->GetFormat(), vfRGB24);
  EXPECT_EQ(other->Read()[17], 17);
  frame->SetSize(3, 1);
  EXPECT_EQ(other->GetWidth(), 6);
  other->SetFormat(vfUnspecified);
  EXPECT_EQ(other->GetFormat(), vfRGB24);
}

TEST(PQSimpleImageBuffer, ConversionsAreThoseOfTheirFormulas) {
  auto pixel = PQMakeRef<TPQImageBuffer>(1, 1, vfRGB24);
  for (int seed = 0; seed < 4096; ++seed) {
    const int b = seed * 37 % 256, g = seed * 91 % 256, r = seed * 151 % 256;
    std::uint8_t* to = pixel->Write();
    to[0] = static_cast<std::uint8_t>(b), to[1] = static_cast<std::uint8_t>(g), to[2] = static_cast<std::uint8_t>(r);
    auto gray = PQMakeRef<TPQImageBuffer>(*pixel);
    gray->SetFormat(vfGrayScale);
    ASSERT_EQ(gray->Read()[0], (19595 * r + 38470 * g + 7471 * b + 32768) >> 16);
    const int v = gray->Read()[0];
    gray->SetFormat(vfRGB24);
    ASSERT_EQ(Bytes(*gray), (std::vector<int>{v, v, v}));
    gray->SetFormat(vfGrayScale);
    ASSERT_EQ(gray->Read()[0], v) << "gray survives the way through colour";
  }
  // Colour through packed pairs: gray stays within the rounding of the 16 to 235 range, an odd last pixel has its own pair.
  auto odd = Frame(5, 2);
  odd->Fill(0x00808080);
  odd->SetFormat(vfYUY2);
  EXPECT_EQ(odd->GetCount(), 20);
  EXPECT_EQ(odd->Read()[1], 128);
  EXPECT_EQ(odd->GetPixel(4, 1), odd->GetPixel(0, 0));
  odd->SetFormat(vfRGB24);
  for (int byte : Bytes(*odd)) EXPECT_NEAR(byte, 128, 1);
  odd->SetFormat(vfYUY2);
  odd->SetFormat(vfGrayScale);
  EXPECT_EQ(odd->GetFormat(), vfGrayScale);
}

TEST(PQSimpleImageBuffer, FillGetPixelClear) {
  auto frame = Frame(3, 2);
  frame->Fill(0x000000FF);
  EXPECT_EQ(Bytes(*frame), (std::vector<int>{0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 255}));
  EXPECT_EQ(frame->GetPixel(2, 1), 0x000000FFu);
  EXPECT_EQ(frame->GetPixel(3, 0), 0u);
  EXPECT_EQ(frame->GetPixel(0, -1), 0u);
  auto gray = Frame(2, 2, vfGrayScale);
  gray->Fill(0x808080);
  EXPECT_EQ(Bytes(*gray), (std::vector<int>(4, 128)));
  EXPECT_EQ(gray->GetPixel(0, 0), 0x808080u);
  gray->Clear();
  EXPECT_EQ(Bytes(*gray), (std::vector<int>(4, 0)));
  auto packed = Frame(4, 1, vfYUY2);
  packed->Fill(0x2040E0);
  auto unpacked = Frame(4, 1, vfYUY2);
  unpacked->Assign(*packed);
  unpacked->SetFormat(vfRGB24);
  for (int x = 0; x < 4; ++x) EXPECT_EQ(packed->GetPixel(x, 0), unpacked->GetPixel(x, 0)) << x;
}

TEST(PQSimpleImageBuffer, StampsTravelByValue) {
  auto frame = Frame(2, 2);
  frame->GetTimeCode().SetFrame(9);
  frame->GetSequenceStamp().SetBufferNumber(11);
  frame->GetTimeStamp().SetAvailable(true);
  frame->GetTimeStamp().SetBegin(400000);
  frame->GetDateTime().SetTime(5);
  auto view = PQMakeRef<TPQImageBuffer>(static_cast<const IRWDataBuffer&>(*frame));
  view->SetSize(7, 7);
  view->SetFormat(vfGrayScale);
  EXPECT_EQ(view->GetTimeCode().GetFrame(), 9);
  EXPECT_EQ(view->GetSequenceStamp().GetBufferNumber(), 11);
  EXPECT_EQ(view->GetTimeStamp().GetBegin(), 400000);
  EXPECT_TRUE(view->GetDateTime().GetAvailable());
  view->GetTimeCode().SetFrame(1);
  EXPECT_EQ(frame->GetTimeCode().GetFrame(), 9);

  TRWBlockBuffer* block = new TRWBlockBuffer("abc", 3);
  auto held = PQRef<TRWBlockBuffer>::Adopt(block);
  block->GetSequenceStamp().SetBufferNumber(4);
  auto none = PQMakeRef<TPQImageBuffer>(static_cast<const IRWDataBuffer&>(*block));
  EXPECT_EQ(none->GetWidth(), 0);
  EXPECT_EQ(none->GetSequenceStamp().GetBufferNumber(), 4);
}

TEST(PQSimpleImageBuffer, SlackIsZeroAroundEveryBlock) {
  PQFramePool::SetFillByte(0xA5);
  for (int round = 0; round < 3; ++round) {  // also in blocks that are used again
    for (int width : {1, 5, 100}) {
      auto frame = PQMakeRef<TPQImageBuffer>(width, 9, vfRGB24);
      const std::uint8_t* data = frame->Read();
      EXPECT_EQ(data[0], 0xA5);
      const int size = frame->GetByteSize(), behind = frame->GetStep() + 64;
      for (int i = 1; i <= 64; ++i) ASSERT_EQ(data[-i], 0);
      for (int i = 0; i < behind; ++i) ASSERT_EQ(data[size + i], 0);
    }
  }
  PQFramePool::SetFillByte(-1);
}

TEST(PQSimpleImageBuffer, BuffersOfNumbersShareAndDetachToo) {
  auto a = PQMakeRef<TRWRealBuffer>(3);
  for (int i = 0; i < 3; ++i) a->Write()[i] = i;
  auto b = PQMakeRef<TRWRealBuffer>(0);
  b->Assign(*a);
  b->SetElement(1, 42);
  b->SetElement(3, 1);   // ignored
  b->SetElement(-1, 1);  // ignored
  EXPECT_EQ(a->GetElement(1), 1.0);
  EXPECT_EQ(b->GetElement(1), 42.0);
  EXPECT_EQ(b->GetElement(9), 0.0);
  b->Assign(*PQMakeRef<TRWIntegerBuffer>(5));
  EXPECT_EQ(b->GetCount(), 0) << "another kind of elements";
  THTAudioBuffer* audio = new THTAudioBuffer(10, 2, 16);
  EXPECT_EQ(PQRef<THTAudioBuffer>::Adopt(audio)->GetByteSize(), 40);
}

}  // namespace
}  // namespace pantiq
