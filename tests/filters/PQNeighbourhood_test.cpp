// Box, fixed, morphology and Wiener filters as components: regions, masks, anchors, formats. What the kernels compute is
// tested in tests/kernels.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <thread>

#include "pantiq/core/PQGraph.h"
#include "pantiq/filters/PQBoxFilter.h"
#include "pantiq/filters/PQFixedFilter.h"
#include "pantiq/filters/PQMorphFilter.h"
#include "pantiq/filters/PQWienerFilter.h"
#include "pantiq/host/PQBinaryStream.h"
#include "pantiq/host/PQTextStream.h"
#include "tests/filters/Chain.h"

namespace pantiq {
namespace {

// Scattered values, the same on every machine.
PQImageRef Noise(int width, int height, TPQVideoFormat format = vfRGB24) {
  PQImageRef frame = PQMakeRef<TPQImageBuffer>(width, height, format);
  std::uint32_t state = 12345;
  std::uint8_t* to = frame->Write();
  for (int i = 0; i < frame->GetByteSize(); ++i) to[i] = static_cast<std::uint8_t>((state = state * 1664525 + 1013904223) >> 24);
  return frame;
}

// The rectangle of pixels, x0 to x1 and y0 to y1, in which two frames differ anywhere; empty if they are equal.
struct Extent {
  int x0 = 1 << 30, y0 = 1 << 30, x1 = -1, y1 = -1;
  bool operator==(const Extent&) const = default;
};
void PrintTo(const Extent& e, std::ostream* out) { *out << e.x0 << ".." << e.x1 << " x " << e.y0 << ".." << e.y1; }
Extent Changed(const IPQImageBuffer& a, const IPQImageBuffer& b) {
  Extent e;
  for (int y = 0; y < a.GetHeight(); ++y) {
    for (int x = 0; x < a.GetWidth(); ++x) {
      if (a.GetPixel(x, y) == b.GetPixel(x, y)) continue;
      e.x0 = std::min(e.x0, x), e.x1 = std::max(e.x1, x), e.y0 = std::min(e.y0, y), e.y1 = std::max(e.y1, y);
    }
  }
  return e;
}

// The frame goes on as it came whatever the block held before.
template <class C>
void ExpectUnchanged(C& chain, const PQImageRef& frame) {
  for (int fill : {0x11, 0xEE}) {
    PQFramePool::SetFillByte(fill);
    EXPECT_EQ(Bytes(*chain.Send(frame)), Bytes(*frame));
  }
  PQFramePool::SetFillByte(-1);
}

// The size of the mask, which is loaded first, moves an anchor in the centre: one that stood elsewhere has to come back,
// also where it has the values that a new filter's has.
TEST(PQBoxFilter, AnchorsComeBackFromEveryPlace) {
  PQBoxFilter::Register();
  for (const TPQSize::Values mask : {TPQSize::Values{3, 3}, {5, 5}, {3, 5}, {1, 1}, {7, 3}}) {
    for (const TPQAnchor::Values anchor : {TPQAnchor::Values{1, 1}, {2, 1}, {1, 2}, {2, 2}, {0, 0}, {3, 1}}) {
      PQGraph graph, from_text, from_bytes;
      std::vector<PQFault> faults;
      auto* const filter = PQCast<TPQBoxFilter>(graph.Add(TPQBoxFilter::Class(), "box"));
      filter->GetMaskSize().Set(mask);
      filter->GetAnchor().Set(anchor);
      std::string text;
      std::vector<std::uint8_t> bytes;
      ASSERT_TRUE(graph.SaveText(text).Ok() && graph.SaveBinary(bytes).Ok());
      ASSERT_TRUE(from_text.LoadText(text, faults) && from_bytes.LoadBinary(bytes, faults));
      for (const PQGraph* loaded : {&from_text, &from_bytes}) {
        EXPECT_TRUE(PQCast<TPQBoxFilter>(loaded->Find("box"))->GetAnchor().Get() == anchor)
            << mask.width << "x" << mask.height << " " << anchor.x << "," << anchor.y << "\n" << text;
      }
    }
  }
}

TEST(PQBoxFilter, MaskAnchorAndRegionDecideWhatIsWritten) {
  Chain<TPQBoxFilter> chain;
  PQImageRef frame = Noise(40, 30);
  for (auto mode : {bfmAverage, bfmMin, bfmMax, bfmMedian}) {
    chain.filter.SetFilterMode(mode);
    chain.filter.GetMaskSize().Set({5, 7});
    EXPECT_EQ(chain.filter.GetAnchor().GetX(), 2) << "an anchor in the middle stays there";
    EXPECT_EQ(Changed(*frame, *chain.Send(frame)), (Extent{2, 3, 37, 26})) << mode;
    chain.filter.GetAnchor().Set({0, 6});
    EXPECT_EQ(Changed(*frame, *chain.Send(frame)), (Extent{0, 6, 35, 29})) << mode;
    chain.filter.GetRegion().Set({true, 10, 5, 12, 15});
    EXPECT_EQ(Changed(*frame, *chain.Send(frame)), (Extent{10, 11, 17, 19})) << mode;
    chain.filter.GetRegion().SetEnabled(false);
    chain.filter.GetAnchor().Set({2, 3});
  }
}

TEST(PQBoxFilter, ComputesWhatItSays) {
  Chain<TPQBoxFilter> chain;
  PQImageRef frame = Noise(9, 9);
  for (auto mode : {bfmMin, bfmMax, bfmMedian}) {
    chain.filter.SetFilterMode(mode);
    PQImageRef out = chain.Send(frame);
    std::vector<int> window;
    for (int y = 3; y <= 5; ++y) {
      for (int x = 3; x <= 5; ++x) window.push_back(static_cast<int>(frame->GetPixel(x, y) >> 8 & 255));
    }
    std::sort(window.begin(), window.end());
    EXPECT_EQ(static_cast<int>(out->GetPixel(4, 4) >> 8 & 255), window[mode == bfmMin ? 0 : mode == bfmMax ? 8 : 4]);
  }
  chain.filter.SetFilterMode(bfmAverage);
  chain.filter.GetMaskSize().Set({9, 9});
  PQImageRef white = PQMakeRef<TPQImageBuffer>(9, 9, vfRGB24);
  white->Fill(0xffffff);
  EXPECT_EQ(Bytes(*chain.Send(white)), Bytes(*white));
}

TEST(PQBoxFilter, WhatCannotBeFilteredPasses) {
  Chain<TPQBoxFilter> chain;
  chain.filter.GetMaskSize().Set({31, 3});
  ExpectUnchanged(chain, Noise(30, 30));
  ExpectUnchanged(chain, Noise(1, 1));
  chain.filter.GetMaskSize().Set({0, 3});
  ExpectUnchanged(chain, Noise(30, 30));
  chain.filter.GetMaskSize().Set({4, 3});
  chain.filter.SetFilterMode(bfmMedian);
  ExpectUnchanged(chain, Noise(30, 30));
  chain.filter.GetMaskSize().Set({3, 3});
  chain.filter.GetAnchor().Set({3, 0});
  ExpectUnchanged(chain, Noise(30, 30));
  chain.filter.GetAnchor().Set({65535, 65535});
  ExpectUnchanged(chain, Noise(30, 30));
  chain.filter.GetAnchor().Set({1, 1});
  chain.filter.GetRegion().Set({true, 29, 29, 5, 5});
  ExpectUnchanged(chain, Noise(30, 30));
  EXPECT_EQ(chain.Send(Noise(8, 8, vfGrayScale))->GetFormat(), vfRGB24);
}

TEST(PQFixedFilter, EveryTypeWritesInsideItsRim) {
  Chain<TPQFixedFilter> chain;
  PQImageRef frame = Noise(20, 18);
  for (int type = ftPrewittHoriz; type <= ftMedianColor; ++type) {
    chain.filter.SetFilterType(static_cast<TPQFixedFilterType>(type));
    const bool masked = type >= ftLaplace && type <= ftLowpass;
    for (auto size : {fms3x3, fms5x5}) {
      SCOPED_TRACE(type);
      chain.filter.SetMaskSize(size);
      const Extent whole = size == fms5x5 && masked ? Extent{3, 3, 17, 15} : Extent{2, 2, 18, 16};
      const Extent out = Changed(*frame, *chain.Send(frame));
      EXPECT_TRUE(out.x0 >= whole.x0 && out.x1 <= whole.x1 && out.y0 >= whole.y0 && out.y1 <= whole.y1);
      EXPECT_GE(out.x1 - out.x0, whole.x1 - whole.x0 - 2) << "and nearly all of it changes";
    }
  }
}

TEST(PQFixedFilter, TheRegionMovesByTheFramesWidth) {
  Chain<TPQFixedFilter> chain;
  chain.filter.SetFilterType(ftSharpen);
  PQImageRef frame = Noise(10, 10);
  EXPECT_EQ(Changed(*frame, *chain.Send(frame)), (Extent{2, 2, 8, 8})) << "7 by 7 from row 2, column 2";
  chain.filter.GetRegion().Set({true, 1, 2, 6, 6});
  EXPECT_EQ(Changed(*frame, *chain.Send(frame)), (Extent{3, 4, 5, 6}));
  ExpectUnchanged(chain, Noise(3, 3));
  ExpectUnchanged(chain, Noise(1, 200));
  chain.filter.GetRegion().Set({true, 9, 9, 6, 6});
  ExpectUnchanged(chain, frame);
}

// The window of the 5 by 5 medians reaches past the right and lower end: what it finds there is always the same.
TEST(PQFixedFilter, MediansOfFiveAtTheEndOfTheFrame) {
  for (auto type : {ftMedianCross, ftMedianColor}) {
    Chain<TPQFixedFilter> chain;
    chain.filter.SetFilterType(type);
    chain.filter.SetMaskSize(fms5x5);
    PQImageRef frame = Noise(8, 8);
    std::vector<int> first;
    for (int fill : {0x11, 0xEE}) {
      PQFramePool::SetFillByte(fill);
      const std::vector<int> bytes = Bytes(*chain.Send(frame));
      if (first.empty()) first = bytes;
      EXPECT_EQ(bytes, first);
    }
    PQFramePool::SetFillByte(-1);
  }
}

std::string Rows(TPQMorphFilter& filter) {
  const auto mask = filter.GetMorphShape().InUse();
  std::string text;
  for (std::size_t i = 0; i < mask->size(); ++i) {
    if (i > 0 && i % filter.GetMorphShape().GetWidth() == 0) text += ' ';
    text += (*mask)[i] != 0 ? '1' : '0';
  }
  return text;
}

TEST(PQMorphShape, Shapes) {
  TPQMorphFilter filter;
  TPQMorphShape& shape = filter.GetMorphShape();
  const auto rows = [&](int width, int height, TPQMorphShapeType type) {
    filter.GetMaskSize().Set({static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height)});
    shape.SetShapeType(type);
    return Rows(filter);
  };
  EXPECT_EQ(Rows(filter), "000 000 000") << "nothing is computed below 4 by 4";
  EXPECT_EQ(rows(5, 5, stRect), "11111 11111 11111 11111 11111");
  EXPECT_EQ(rows(3, 3, stRect), "111 111 111") << "what the array held stays";
  EXPECT_EQ(rows(5, 5, stCross), "00100 00100 11111 00100 00100");
  EXPECT_EQ(rows(4, 4, stCross), "0110 1111 1111 0110");
  EXPECT_EQ(rows(5, 5, stEllipse), "00100 01110 11111 01110 00100");
  EXPECT_EQ(rows(7, 7, stEllipse), "0001000 0111110 0111110 1111111 0111110 0111110 0001000");
  EXPECT_EQ(rows(4, 4, stEllipse), "0110 1111 1111 0110");
  EXPECT_EQ(rows(6, 4, stEllipse), "001100 111111 111111 001100");
  EXPECT_EQ(rows(65535, 65535, stRect), "") << "more than is made";
  EXPECT_EQ(rows(4, 4, stRect), "1111 1111 1111 1111");
}

TEST(PQMorphShape, TheCustomMaskIsKept) {
  TPQMorphFilter filter;
  TPQMorphShape& shape = filter.GetMorphShape();
  filter.GetMaskSize().Set({4, 4});
  shape.SetShapeType(stCustom);
  for (std::uint32_t i = 0; i < 4; ++i) shape.SetItem(i, i, true);
  shape.SetItem(4, 0, true);
  shape.SetItem(0, 0xffffffff, true);
  EXPECT_FALSE(shape.GetItem(4, 0));
  EXPECT_EQ(Rows(filter), "1000 0100 0010 0001");
  shape.SetShapeType(stEllipse);
  shape.SetShapeType(stCustom);
  EXPECT_EQ(Rows(filter), "1000 0100 0010 0001");
  filter.GetMaskSize().Set({3, 4});
  EXPECT_EQ(Rows(filter), "100 010 001 000") << "the first cells of each row";
  filter.GetMaskSize().Set({5, 3});
  EXPECT_EQ(Rows(filter), "10000 01000 00100");

  TPQMorphFilter other;
  other.GetMaskSize().Set({5, 3});
  other.SetMorphShape(shape);
  EXPECT_EQ(Rows(other), Rows(filter));
  TPQMorphFilter small;  // of another size than the mask that it is given
  small.SetMorphShape(shape);
  EXPECT_EQ(Rows(small), "100 000 100");
}

TEST(PQMorphShape, StoredForms) {
  TPQMorphFilter filter;
  filter.GetMaskSize().Set({3, 2});
  TPQMorphShape& shape = filter.GetMorphShape();
  shape.SetShapeType(stCustom);
  shape.SetItem(1, 0, true);
  shape.SetItem(2, 1, true);
  const std::string text = PQWriteText(filter);
  EXPECT_NE(text.find("MatrixData = (6 0 1 0 0 0 1)"), std::string::npos) << text;

  PQBytes old = {6, 0, 0, 0};
  for (int cell : {1, 0, 7, 0, 256, 1}) {
    for (int shift : {0, 8, 16, 24}) old.push_back(static_cast<std::uint8_t>(cell >> shift));
  }
  EXPECT_TRUE(shape.SetMatrix(old).Ok());
  EXPECT_EQ(Rows(filter), "101 001") << "the low byte counts";
  old.pop_back();
  EXPECT_NE(shape.SetMatrix(old).Text().find("27 bytes"), std::string::npos);
  EXPECT_FALSE(shape.SetMatrix({}).Ok());
  EXPECT_EQ(Rows(filter), "101 001") << "a refused mask changes nothing";

  const auto ints = [](std::initializer_list<int> values) {
    PQValue::List list;
    for (int v : values) list.emplace_back(static_cast<std::int64_t>(v));
    return list;
  };
  EXPECT_TRUE(shape.SetMatrixData(ints({2, 1, 5})).Ok());
  EXPECT_EQ(Rows(filter), "110 000") << "short masks are filled with zeros";
  shape.SetItem(2, 1, true);
  EXPECT_EQ(Rows(filter), "110 001") << "and grow with a cell that is set behind them";
  EXPECT_NE(shape.SetMatrixData(ints({1000000, 1})).Text().find("says 1000000 cells and holds 1"), std::string::npos);
  EXPECT_FALSE(shape.SetMatrixData(ints({-1})).Ok());
  EXPECT_FALSE(shape.SetMatrixData({PQValue(std::string("x"))}).Ok());
  EXPECT_TRUE(shape.SetMatrixData({}).Ok());
}

TEST(PQMorphFilter, AllShapesAtAllMaskSizesInBothFormats) {
  for (TPQVideoFormat format : {vfRGB24, vfGrayScale}) {
    Chain<TPQMorphFilter> chain;
    PQImageRef frame = Noise(24, 20, format);
    for (int type = stRect; type <= stCustom; ++type) {
      chain.filter.GetMorphShape().SetShapeType(static_cast<TPQMorphShapeType>(type));
      for (std::uint16_t width = 1; width <= 9; ++width) {
        for (std::uint16_t height = 1; height <= 9; height += 2) {
          chain.filter.GetMaskSize().Set({width, height});
          const auto mask = chain.filter.GetMorphShape().InUse();
          const TPQAnchor::Values anchor = chain.filter.GetAnchor().Get();
          for (auto morph : {mtErode, mtDilate}) {
            chain.filter.SetMorphType(morph);
            PQImageRef out = chain.Send(frame);
            ASSERT_EQ(out->GetFormat(), format);
            const int pixel = frame->GetPixelSize(), step = frame->GetStep();
            bool empty = true;
            for (const std::uint8_t cell : *mask) empty &= cell == 0;
            for (int y = 0; y < 20; ++y) {
              for (int x = 0; x < 24; ++x) {
                const int left = x - anchor.x, top = y - anchor.y;
                int expected = frame->Read()[y * step + x * pixel];
                if (!empty && left >= 0 && top >= 0 && left + width <= 24 && top + height <= 20) {
                  expected = morph == mtErode ? 255 : 0;
                  for (int j = 0; j < height; ++j) {
                    for (int i = 0; i < width; ++i) {
                      if ((*mask)[static_cast<std::size_t>(j * width + i)] == 0) continue;
                      const int value = frame->Read()[(top + j) * step + (left + i) * pixel];
                      expected = morph == mtErode ? std::min(expected, value) : std::max(expected, value);
                    }
                  }
                }
                ASSERT_EQ(out->Read()[y * step + x * pixel], expected) << width << "x" << height << " at " << x << "," << y;
              }
            }
          }
        }
      }
    }
  }
}

TEST(PQMorphFilter, AnEmptyMaskLetsFramesPass) {
  Chain<TPQMorphFilter> chain;
  ExpectUnchanged(chain, Noise(16, 16));
  chain.filter.GetMaskSize().Set({65535, 65535});
  ExpectUnchanged(chain, Noise(16, 16));
  EXPECT_EQ(chain.Send(Noise(16, 16, vfGrayScale))->GetFormat(), vfGrayScale);
}

// Frames and settings on two threads: masks are replaced as a whole.
TEST(PQMorphFilter, TheMaskChangesWhileFramesRun) {
  Chain<TPQMorphFilter> chain;
  chain.sink.on_op = [](IJCNotifyOperation&) {};
  std::atomic<bool> end{false};
  std::thread frames([&] {
    while (!end) chain.source.OutputPin.SubmitBuffer(Noise(32, 24));
  });
  for (std::uint16_t i = 0; i < 400; ++i) {
    chain.filter.GetMaskSize().Set({static_cast<std::uint16_t>(i % 11), static_cast<std::uint16_t>(i % 7)});
    chain.filter.GetMorphShape().SetShapeType(static_cast<TPQMorphShapeType>(i % 4));
    chain.filter.GetMorphShape().SetItem(i % 5u, i % 3u, i % 2 == 0);
  }
  end = true;
  frames.join();
}

TEST(PQWienerFilter, SmoothsWhatTheNoiseExplains) {
  for (TPQVideoFormat format : {vfRGB24, vfGrayScale}) {
    Chain<TPQWienerFilter> chain;
    PQImageRef frame = Noise(24, 20, format);
    chain.source.Start(24, 20);
    chain.filter.GetNoiseLevels().SetChannel1(1);  // all is noise: the mean of the window
    PQImageRef out = chain.Send(frame);
    ASSERT_EQ(out->GetFormat(), format);
    const int pixel = frame->GetPixelSize();
    int sum = 0;
    for (int y = 4; y <= 6; ++y) {
      for (int x = 4; x <= 6; ++x) sum += frame->Read()[y * frame->GetStep() + x * pixel];
    }
    EXPECT_EQ(out->Read()[5 * frame->GetStep() + 5 * pixel], static_cast<int>(std::lround(sum / 9.0)));
    EXPECT_EQ(out->GetPixel(0, 0), frame->GetPixel(0, 0)) << "the rim stays";
    chain.source.OutputPin.Stop();
    chain.source.Start(9, 9);
    EXPECT_EQ(chain.Send(Noise(9, 9, format))->GetWidth(), 9);
    chain.filter.GetMaskSize().Set({10, 3});
    ExpectUnchanged(chain, Noise(9, 9, format));
  }
}

}  // namespace
}  // namespace pantiq
