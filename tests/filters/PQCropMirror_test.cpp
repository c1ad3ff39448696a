#include <gtest/gtest.h>

#include "pantiq/filters/PQCrop.h"
#include "pantiq/filters/PQMirror.h"
#include "tests/filters/Chain.h"

namespace pantiq {
namespace {

void SetRegion(TPQCrop& crop, int left, int top, int width, int height) {
  crop.GetRegion().Set({false, static_cast<std::uint16_t>(left), static_cast<std::uint16_t>(top),
                        static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height)});
}

TEST(PQCrop, CutsClipsAndAnnounces) {
  for (TPQVideoFormat format : {vfRGB24, vfGrayScale}) {
    Chain<TPQCrop> chain;
    SetRegion(chain.filter, 50, 60, 100, 100);
    chain.source.Start(120, 90, 400000, format);
    EXPECT_EQ(chain.sink.log.back(), "TJCStartFrameOperation 100x100 400000 " + std::to_string(format))
        << "announced as it stands, delivered clipped";
    PQImageRef frame = MakeFrame(120, 90, format);
    PQImageRef out = chain.Send(frame);
    ASSERT_EQ(out->GetWidth(), 70);
    ASSERT_EQ(out->GetHeight(), 30);
    ASSERT_EQ(out->GetFormat(), format);
    for (int y = 0; y < 30; ++y) {
      for (int x = 0; x < 70; ++x) ASSERT_EQ(out->GetPixel(x, y), frame->GetPixel(50 + x, 60 + y));
    }
  }
}

TEST(PQCrop, ARegionOutsideLetsTheFramePassWhole) {
  Chain<TPQCrop> chain;
  PQImageRef frame = MakeFrame(20, 10);
  for (auto [left, top] : {std::pair{20, 0}, {0, 10}, {65535, 65535}}) {
    SetRegion(chain.filter, left, top, 5, 5);
    EXPECT_EQ(Bytes(*chain.Send(frame)), Bytes(*frame));
  }
  SetRegion(chain.filter, 0, 0, 0, 5);
  EXPECT_EQ(chain.Send(frame)->GetWidth(), 0) << "an empty region gives an empty frame";
  EXPECT_EQ(chain.Send(MakeFrame(0, 0))->GetWidth(), 0);
  SetRegion(chain.filter, 19, 9, 1, 1);
  EXPECT_EQ(Bytes(*chain.Send(frame)), (std::vector<int>{(9 * 60 + 57) % 256, (9 * 60 + 58) % 256, (9 * 60 + 59) % 256}));
}

TEST(PQMirror, FlipsAboutEachAxis) {
  for (TPQVideoFormat format : {vfRGB24, vfGrayScale}) {
    for (int width : {1, 2, 7, 33, 64}) {
      Chain<TPQMirror> chain;
      PQImageRef frame = MakeFrame(width, 5, format, 3);
      for (TPQMirrorType type : {mtHorizontal, mtVertical, mtBoth}) {
        chain.filter.SetMirrorType(type);
        PQImageRef out = chain.Send(frame);
        ASSERT_EQ(out->GetFormat(), format);
        for (int y = 0; y < 5; ++y) {
          for (int x = 0; x < width; ++x) {
            const int sx = type == mtHorizontal ? x : width - 1 - x, sy = type == mtVertical ? y : 4 - y;
            ASSERT_EQ(out->GetPixel(x, y), frame->GetPixel(sx, sy)) << width << " wide, type " << type;
          }
        }
      }
      EXPECT_EQ(Bytes(*chain.Send(chain.Send(frame))), Bytes(*frame)) << "mtBoth twice gives the frame back";
    }
  }
}

TEST(PQMirror, TakesPackedPairsAsColour) {
  Chain<TPQMirror> chain;
  PQImageRef pairs = MakeFrame(8, 2);
  pairs->SetFormat(vfYUY2);
  PQImageRef colour = PQMakeRef<TPQImageBuffer>(8, 2, vfRGB24);
  colour->Assign(*pairs);
  colour->SetFormat(vfRGB24);
  PQImageRef out = chain.Send(pairs);
  EXPECT_EQ(out->GetFormat(), vfRGB24);
  EXPECT_EQ(out->GetPixel(3, 0), colour->GetPixel(3, 1));
}

// What the pixels of a block held before it was used must never show.
TEST(PQMirror, GivesTheSameFrameWhateverTheBlockHeld) {
  std::vector<int> first;
  for (int fill : {0x11, 0xEE}) {
    PQFramePool::SetFillByte(fill);
    Chain<TPQMirror> chain;
    std::vector<int> bytes = Bytes(*chain.Send(MakeFrame(31, 17)));
    if (first.empty()) first = bytes;
    EXPECT_EQ(bytes, first);
  }
  PQFramePool::SetFillByte(-1);
  Chain<TPQMirror> chain;
  chain.filter.SetMirrorType(static_cast<TPQMirrorType>(9));
  const PQImageRef frame = MakeFrame(31, 17);
  EXPECT_EQ(Bytes(*chain.Send(frame)), Bytes(*frame)) << "there is no such axis";
}

}  // namespace
}  // namespace pantiq
