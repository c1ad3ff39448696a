#include "pantiq/kernels/PQMorphology.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "kernels/PQCheck.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Kernel = decltype(&_px_ippiErode_8u_C3R);

struct Form {
  const char* name;
  int channels;
  bool greatest;
};
const Form kForms[] = {{"ippiErode_8u_C1R", 1, false},
                       {"ippiErode_8u_C3R", 3, false},
                       {"ippiDilate_8u_C1R", 1, true},
                       {"ippiDilate_8u_C3R", 3, true}};

struct Mask {
  IppiSize size;
  Bytes cells;
};

// Shapes that differ in their runs: full, cross, ellipse, chequered, single cells, gaps, random.
Mask DrawMask(check::Random& random, int most_width, int most_height) {
  Mask mask{{random.Between(1, most_width), random.Between(1, most_height)}, {}};
  const auto [w, h] = mask.size;
  const int shape = random.Below(8), dense = random.Between(1, 8);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      bool set;
      switch (shape) {
        case 0:
          set = true;
          break;
        case 1:
          set = x == w / 2 || y == h / 2;
          break;
        case 2:
          set = (2 * x + 1 - w) * (2 * x + 1 - w) * h * h + (2 * y + 1 - h) * (2 * y + 1 - h) * w * w <= w * w * h * h;
          break;
        case 3:
          set = (x + y) % 2 == 0;
          break;
        case 4:
          set = false;
          break;
        case 5:
          set = y % 3 != 1 && (x < w / 3 || x > w / 2);
          break;
        default:
          set = random.Below(9) < dense;
      }
      mask.cells.push_back(set ? static_cast<std::uint8_t>(random.OneIn(2) ? 255 : random.Between(1, 255)) : 0);
    }
  }
  if (shape == 4 || *std::max_element(mask.cells.begin(), mask.cells.end()) == 0) {
    mask.cells[static_cast<std::size_t>(random.Below(w * h))] = 1;
  }
  return mask;
}

TEST(PQMorphology, WorkedWindow) {
  // 4 x 3 samples of one channel; the mask's upper right cell is clear, its anchor is not in its middle.
  const Bytes src = {50, 10, 90, 20,  //
                     30, 70, 60, 40,  //
                     80, 25, 35, 15};
  const Bytes mask = {1, 0, 200, 255};
  const auto check = [&](const char* name, const Bytes& expected) {
    check::ForEachVariant<Kernel>(name, [&](Kernel kernel) {
      Bytes out(6);
      EXPECT_EQ(kernel(src.data() + 5, 4, out.data(), 3, {3, 2}, mask.data(), {2, 2}, {1, 1}), ippStsNoErr);
      EXPECT_EQ(out, expected);
    });
  };
  check("ippiErode_8u_C1R", {30, 10, 40, 25, 25, 15});
  check("ippiDilate_8u_C1R", {70, 70, 90, 80, 70, 60});
}

TEST(PQMorphology, OneCellCopies) {
  check::Random random(3);
  for (const Form& form : kForms) {
    check::ForEachVariant<Kernel>(form.name, [&](Kernel kernel) {
      const int step = 90 * form.channels;
      Bytes src(static_cast<std::size_t>(step) * 9), mask(5 * 5), out(static_cast<std::size_t>(80 * form.channels) * 5);
      for (std::uint8_t& v : src) v = random.Byte();
      for (const std::uint8_t value : {std::uint8_t{1}, std::uint8_t{128}, std::uint8_t{255}}) {
        mask[2 * 5 + 3] = value;
        const std::uint8_t* first = src.data() + 2 * step + 3 * form.channels;
        ASSERT_EQ(kernel(first, step, out.data(), 80 * form.channels, {80, 5}, mask.data(), {5, 5}, {3, 2}), 0);
        for (int y = 0; y < 5; ++y) {
          EXPECT_TRUE(
              std::equal(first + y * step, first + y * step + 80 * form.channels, out.data() + y * 80 * form.channels))
              << y;
        }
      }
    });
  }
}

// The order of faults, each argument list with all faults from one on; and the least steps that pass.
TEST(PQMorphology, ChecksInOrder) {
  for (const Form& form : kForms) {
    check::ForEachVariant<Kernel>(form.name, [&](Kernel kernel) {
      const int c = form.channels;
      const Bytes src(200), zeros(9);
      Bytes mask(9), out(100, 77);
      mask[8] = 1;
      const std::uint8_t* s = src.data();
      std::uint8_t* d = out.data();
      EXPECT_EQ(kernel(nullptr, 0, d, 0, {0, 0}, zeros.data(), {0, 0}, {-1, 0}), ippStsNullPtrErr);
      EXPECT_EQ(kernel(s, 0, nullptr, 0, {0, 0}, zeros.data(), {0, 0}, {-1, 0}), ippStsNullPtrErr);
      EXPECT_EQ(kernel(s, 0, d, 0, {0, 0}, nullptr, {0, 0}, {-1, 0}), ippStsNullPtrErr);
      EXPECT_EQ(kernel(s, 0, d, 1, {0, 0}, zeros.data(), {0, 0}, {-1, 0}), ippStsStepErr);
      EXPECT_EQ(kernel(s, 1, d, -1, {0, 0}, zeros.data(), {0, 0}, {-1, 0}), ippStsStepErr);
      EXPECT_EQ(kernel(s, 1, d, 1, {0, 1}, zeros.data(), {0, 0}, {-1, 0}), ippStsSizeErr);
      EXPECT_EQ(kernel(s, 1, d, 1, {1, 0}, zeros.data(), {0, 0}, {-1, 0}), ippStsSizeErr);
      EXPECT_EQ(kernel(s, 1, d, 1, {5, 1}, zeros.data(), {0, 3}, {-1, 0}), ippStsMaskSizeErr);
      EXPECT_EQ(kernel(s, 1, d, 1, {5, 1}, zeros.data(), {3, -1}, {-1, 0}), ippStsMaskSizeErr);
      EXPECT_EQ(kernel(s, 1, d, 1, {5, 1}, zeros.data(), {3, 3}, {-1, 0}), ippStsZeroMaskValuesErr);
      EXPECT_EQ(kernel(s, 1, d, 1, {5, 1}, mask.data(), {2, 4}, {-1, 0}), ippStsZeroMaskValuesErr);  // 8 cells only
      for (const TPoint anchor : {TPoint{-1, 0}, TPoint{0, -1}, TPoint{3, 0}, TPoint{0, 3}}) {
        EXPECT_EQ(kernel(s, 1, d, 1, {5, 1}, mask.data(), {3, 3}, anchor), ippStsAnchorErr);
      }
      EXPECT_EQ(kernel(s, 7 * c - 1, d, 1, {5, 1}, mask.data(), {3, 3}, {0, 0}), ippStsStrideErr);
      EXPECT_EQ(kernel(s, 7 * c, d, 5 * c - 1, {5, 1}, mask.data(), {3, 3}, {0, 0}), ippStsStrideErr);
      EXPECT_EQ(kernel(s, 0x7FFFFFFF, d, 0x7FFFFFFF, {0x7FFFFFFF, 1}, mask.data(), {3, 3}, {0, 0}), ippStsStrideErr);
      EXPECT_EQ(out, Bytes(100, 77));
      EXPECT_EQ(kernel(s, 7 * c, d, 5 * c, {5, 1}, mask.data(), {3, 3}, {0, 0}), ippStsNoErr);
      EXPECT_EQ(out[static_cast<std::size_t>(5 * c) - 1], 0);
    });
  }
}

TEST(PQMorphology, ErosionOfTheInverseIsTheInverseOfDilation) {
  check::Random random(11);
  for (int round = 0; round < 20; ++round) {
    const Mask mask = DrawMask(random, 9, 9);
    const int step = 60 * 3;
    Bytes src(static_cast<std::size_t>(step) * 30), inverse;
    random.Fill(src.data(), src.size());
    for (const std::uint8_t v : src) inverse.push_back(static_cast<std::uint8_t>(255 - v));
    Bytes dilated(50 * 3 * 20), eroded(dilated.size());
    const TPoint anchor{mask.size.width - 1, 0};
    const int first = (mask.size.width - 1) * 3;
    ASSERT_EQ(PQ_SLOT(ippiDilate_8u_C3R)(src.data() + first, step, dilated.data(), 150, {50, 20}, mask.cells.data(),
                                         mask.size, anchor),
              0);
    ASSERT_EQ(PQ_SLOT(ippiErode_8u_C3R)(inverse.data() + first, step, eroded.data(), 150, {50, 20}, mask.cells.data(),
                                        mask.size, anchor),
              0);
    for (std::size_t i = 0; i < eroded.size(); ++i) ASSERT_EQ(eroded[i], 255 - dilated[i]) << i;
  }
}

// The margin round the region is as wide as the largest mask.
void CheckMasks(int most, double cases, int width, int height) {
  for (const Form& form : kForms) {
    check::CheckShape shape;
    shape.sources = 1;
    shape.src_channels = shape.dst_channels = form.channels;
    shape.margin = most - 1;
    shape.max_width = width;
    shape.max_height = height;
    shape.cases = cases;
    check::CheckVariants<Kernel>(
        form.name, shape, [most, channels = form.channels](Kernel kernel, check::CheckCase& c) {
          const Mask mask = DrawMask(c.random, most, most);
          const TPoint anchor{c.random.Below(mask.size.width), c.random.Below(mask.size.height)};
          // The windows' rectangle ends where the readable pixels end or begins where they begin.
          const auto move = [&](int size, int at) { return c.random.OneIn(2) ? most - size + at : at - (most - 1); };
          const int dx = move(mask.size.width, anchor.x), dy = move(mask.size.height, anchor.y);
          const std::uint8_t* src = c.src[0].data + static_cast<long>(dy) * c.src[0].step + dx * channels;
          return kernel(src, c.src[0].step, c.dst.data, c.dst.step, c.roi, mask.cells.data(), mask.size, anchor);
        });
  }
}

TEST(PQMorphology, VariantsAgree) { CheckMasks(7, 0.6, 300, 20); }
TEST(PQMorphology, VariantsAgreeOnLargeMasks) { CheckMasks(40, 0.05, 120, 12); }
// Several strips.
TEST(PQMorphology, VariantsAgreeOnWideRows) { CheckMasks(12, 0.02, 3000, 10); }

TEST(PQMorphology, Record) {
  PQ_FOR_EACH_VARIANT(ippiMorphologyInitAlloc_8u_C3R, [](auto init) {
    const int mask[] = {0, 1, -1, 256, 0, 7};
    IppiMorphState* state = nullptr;
    ASSERT_EQ(init(100, mask, {3, 2}, {1, 0}, state), ippStsNoErr);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(state->data) % 16, 0u);
    EXPECT_EQ(state->data, reinterpret_cast<std::uint8_t*>(state) + 96);
    EXPECT_EQ(state->maskCopy, state->data);
    EXPECT_EQ(state->maskCopy2, state->data);
    EXPECT_EQ(state->rowArea, state->data + 16);
    EXPECT_EQ(Bytes(state->data, state->data + 6), (Bytes{0, 1, 1, 1, 0, 1}));
    const int fields[] = {state->reserved,    state->maskWidth,    state->maskHeight, state->anchorX,   state->anchorY,
                          state->rightExtent, state->bottomExtent, state->rowSize,    state->totalSize, state->dataType,
                          state->channels,    state->roiWidth,     state->lastRow,    state->flag};
    // A row: 103 pixels of three bytes, up to 16; the block: 96, 16 of cells, 2 * 2 rows.
    const int expected[] = {0, 3, 2, 1, 0, 1, 1, 320, 96 + 16 + 4 * 320, 1, 3, 100, -1, 0};
    EXPECT_TRUE(std::equal(std::begin(fields), std::end(fields), expected));
    std::fill(state->rowArea, state->rowArea + 4 * 320, std::uint8_t{1});  // the rows are the block's
    EXPECT_EQ(PQ_SLOT(ippiMorphologyFree)(state), ippStsNoErr);
    EXPECT_EQ(state, nullptr);
    EXPECT_EQ(PQ_SLOT(ippiMorphologyFree)(state), ippStsNullPtrErr);

    EXPECT_EQ(init(0, nullptr, {0, 2}, {5, 0}, state), ippStsNullPtrErr);
    EXPECT_EQ(init(0, mask, {3, 2}, {5, 0}, state), ippStsSizeErr);
    EXPECT_EQ(init(1, mask, {3, 0}, {5, 0}, state), ippStsSizeErr);
    EXPECT_EQ(init(1, mask, {3, 2}, {3, 0}, state), ippStsAnchorErr);
    EXPECT_EQ(init(1, mask, {3, 2}, {0, -1}, state), ippStsAnchorErr);
    EXPECT_EQ(init(0x7FFFFFFF, mask, {3, 2}, {0, 0}, state), ippStsMemAllocErr);
    EXPECT_EQ(state, nullptr);
  });
}

TEST(PQMorphology, RecordInTheCallersMemory) {
  const int mask[] = {1, 1, 0};
  int size = 0;
  ASSERT_EQ(ownMorphologyInitAlloc(0, 1, 10, mask, {3, 1}, {0, 0}, nullptr, 0, &size), ippStsNoErr);
  EXPECT_EQ(size, 96 + 16 + 2 * 64);  // (10 + 3) * 4 bytes a row, up to 16
  EXPECT_EQ(ownMorphologyInitAlloc(0, 1, 10, mask, {3, 1}, {0, 0}, nullptr, 0, nullptr), ippStsNullPtrErr);
  EXPECT_EQ(ownMorphologyInitAlloc(0, 1, 10, mask, {3, 1}, {0, 0}, nullptr, 1, nullptr), ippStsNullPtrErr);
  for (const int shift : {0, 8}) {
    alignas(16) std::uint8_t memory[96 + 16 + 128 + 8];
    IppiMorphState* state = reinterpret_cast<IppiMorphState*>(memory + shift);
    ASSERT_EQ(ownMorphologyInitAlloc(0, 1, 10, mask, {3, 1}, {0, 0}, &state, 1, nullptr), ippStsNoErr);
    EXPECT_EQ(state, reinterpret_cast<IppiMorphState*>(memory + shift));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(state->data) % 16, 0u);
    EXPECT_LE(state->rowArea + 128, memory + shift + size);
  }
}

}  // namespace
}  // namespace pantiq
