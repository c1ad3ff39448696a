// Erosion and dilation with vectors: one source for a6, w7 and t7.
//
// The rows of the mask are cut into runs of set cells. For every length of run that occurs, the extreme of that many
// neighbours is found once for a source row, from that of a shorter length, and kept in a ring of rows; an output row
// is the extreme of one shifted row a run. Wide pictures are walked in strips whose rings stay in near caches.
#include "pantiq/kernels/PQMorphology.h"
#include "pantiq/kernels/PQVec.h"

namespace pantiq {
namespace PQ_TARGET {
namespace {

using Size = std::ptrdiff_t;

template <class T>
PQ_INLINE T LoadAs(const u8* p) {
  if constexpr (sizeof(T) == sizeof(S)) {
    return LoadS(p);
  } else {
    return Load(p);
  }
}

// Least or greatest of two samples or vectors of them.
template <bool kGreatest, class T>
PQ_INLINE T Extreme(T a, T b) {
  if constexpr (sizeof(T) == 1) {
    return kGreatest == (a > b) ? a : b;
  } else if constexpr (kGreatest) {
    return Max8(a, b);
  } else {
    return Min8(a, b);
  }
}

// dst[i]: the extreme of rows[0 .. k - 1][i], for n bytes, n at least a vector. The last vector overlaps.
template <bool kGreatest, int k, class T>
void FewRows(const u8* const* rows, u8* dst, Size n) {
  constexpr Size kT = sizeof(T);
  const u8* p[k];
  for (int j = 0; j < k; ++j) p[j] = rows[j];
  const auto at = [&](Size i) {
    T v = LoadAs<T>(p[0] + i);
#pragma GCC unroll 8
    for (int j = 1; j < k; ++j) v = Extreme<kGreatest>(v, LoadAs<T>(p[j] + i));
    Store(dst + i, v);
  };
  Size i = 0;
  for (; i + kT <= n; i += kT) at(i);
  if (i < n) at(n - kT);
}

template <bool kGreatest, class T>
void ManyRows(const u8* const* rows, Size k, u8* dst, Size n) {
  constexpr Size kT = sizeof(T);
  const auto four = [&](Size i) {
    T a = LoadAs<T>(rows[0] + i), b = LoadAs<T>(rows[0] + i + kT), c = LoadAs<T>(rows[0] + i + 2 * kT),
      d = LoadAs<T>(rows[0] + i + 3 * kT);
    for (Size j = 1; j < k; ++j) {
      const u8* p = rows[j] + i;
      a = Extreme<kGreatest>(a, LoadAs<T>(p));
      b = Extreme<kGreatest>(b, LoadAs<T>(p + kT));
      c = Extreme<kGreatest>(c, LoadAs<T>(p + 2 * kT));
      d = Extreme<kGreatest>(d, LoadAs<T>(p + 3 * kT));
    }
    Store(dst + i, a), Store(dst + i + kT, b), Store(dst + i + 2 * kT, c), Store(dst + i + 3 * kT, d);
  };
  const auto one = [&](Size i) {
    T v = LoadAs<T>(rows[0] + i);
    for (Size j = 1; j < k; ++j) v = Extreme<kGreatest>(v, LoadAs<T>(rows[j] + i));
    Store(dst + i, v);
  };
  Size i = 0;
  for (; i + 4 * kT <= n; i += 4 * kT) four(i);
  for (; i + kT <= n; i += kT) one(i);
  if (i < n) one(n - kT);
}

template <bool kGreatest, class T>
void Rows(const u8* const* rows, Size k, u8* dst, Size n) {
  switch (k) {
    case 1:
      return FewRows<kGreatest, 1, T>(rows, dst, n);
    case 2:
      return FewRows<kGreatest, 2, T>(rows, dst, n);
    case 3:
      return FewRows<kGreatest, 3, T>(rows, dst, n);
    case 4:
      return FewRows<kGreatest, 4, T>(rows, dst, n);
    case 5:
      return FewRows<kGreatest, 5, T>(rows, dst, n);
    case 6:
      return FewRows<kGreatest, 6, T>(rows, dst, n);
    case 7:
      return FewRows<kGreatest, 7, T>(rows, dst, n);
    default:
      return ManyRows<kGreatest, T>(rows, k, dst, n);
  }
}

template <bool kGreatest>
void ExtremeOfRows(const u8* const* rows, Size k, u8* dst, Size n) {
#if PQ_WIDE
  if (n >= kV) return Rows<kGreatest, V>(rows, k, dst, n);
#endif
  if (n >= kS) return Rows<kGreatest, S>(rows, k, dst, n);
  for (Size i = 0; i < n; ++i) {
    u8 v = rows[0][i];
    for (Size j = 1; j < k; ++j) v = Extreme<kGreatest>(v, rows[j][i]);
    dst[i] = v;
  }
}

// kCount vectors of two output rows: `shared` rows that both look at, then `own` for the first and `own` for the
// second.
template <bool kGreatest, class T, int kCount>
PQ_INLINE void TwoRowsAt(const u8* const* rows, Size shared, Size own, u8* first, u8* second, Size i) {
  constexpr Size kT = sizeof(T);
  T a[kCount], b[kCount];
#pragma GCC unroll 4
  for (int k = 0; k < kCount; ++k) a[k] = LoadAs<T>(rows[0] + i + k * kT);
  for (Size j = 1; j < shared; ++j) {
#pragma GCC unroll 4
    for (int k = 0; k < kCount; ++k) a[k] = Extreme<kGreatest>(a[k], LoadAs<T>(rows[j] + i + k * kT));
  }
#pragma GCC unroll 4
  for (int k = 0; k < kCount; ++k) b[k] = a[k];
  for (Size j = shared; j < shared + own; ++j) {
#pragma GCC unroll 4
    for (int k = 0; k < kCount; ++k) {
      a[k] = Extreme<kGreatest>(a[k], LoadAs<T>(rows[j] + i + k * kT));
      b[k] = Extreme<kGreatest>(b[k], LoadAs<T>(rows[j + own] + i + k * kT));
    }
  }
#pragma GCC unroll 4
  for (int k = 0; k < kCount; ++k) Store(first + i + k * kT, a[k]), Store(second + i + k * kT, b[k]);
}

template <bool kGreatest, class T>
void TwoRows(const u8* const* rows, Size shared, Size own, u8* first, u8* second, Size n) {
  constexpr Size kT = sizeof(T);
  Size i = 0;
  for (; i + 4 * kT <= n; i += 4 * kT) TwoRowsAt<kGreatest, T, 4>(rows, shared, own, first, second, i);
  for (; i + kT <= n; i += kT) TwoRowsAt<kGreatest, T, 1>(rows, shared, own, first, second, i);
  if (i < n) TwoRowsAt<kGreatest, T, 1>(rows, shared, own, first, second, n - kT);
}

template <bool kGreatest>
void ExtremeOfTwoRows(const u8* const* rows, Size shared, Size own, u8* first, u8* second, Size n) {
#if PQ_WIDE
  if (n >= kV) return TwoRows<kGreatest, V>(rows, shared, own, first, second, n);
#endif
  TwoRows<kGreatest, S>(rows, shared, own, first, second, n);
}

// At most this many shifted rows make a longer length; where more were needed, lengths in between grow by kGrowth.
constexpr int kMostParts = 6;
constexpr int kGrowth = 4;
// Output rows go by two where they look at this many rows together, and at half of their rows.
constexpr Size kLeastShared = 4;
// Bytes that all rings of a strip should not pass, and a strip's least width.
constexpr Size kCache = 65536, kLeastStrip = 512;

// A run of set cells: row and first column in the mask, and the place of its length among the plan's. The mask's next
// row may have the same run.
struct Run {
  int row, column, length;
  bool same_above, same_below;
};

// A length of run, made of `parts` shifted rows of a shorter one. Place 0 is length 1, the source itself.
struct Length {
  int cells, from, parts;
  int first_row;  // of the mask's rows that have such a run
  Size depth;     // rows of the ring, for mask rows first_row to the plan's last_row
  Size slot;      // where the row of first_row lies at present
  Size pitch;     // bytes of a row
  u8* ring;
};

// A mask, cut into runs.
struct Plan {
  Run* runs;
  const u8** rows;  // 2 * run_count pointers, at least kMostParts
  Length* lengths;
  Size run_count = 0;
  Size shared = 0;     // runs with the same run above them
  bool pairs = false;  // output rows go by two
  int length_count = 1;
  int first_row = 0, last_row = -1;  // of the mask rows with a run above length 1
};

// Memory for the time of a call.
class Scratch {
 public:
  Scratch() = default;
  ~Scratch() { ippsFree(memory_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  u8* Take(Size bytes) {
    memory_ = bytes <= 0x7FFFFFFF ? ippsMalloc_8u(static_cast<int>(bytes)) : nullptr;
    return memory_;
  }

 private:
  u8* memory_ = nullptr;
};

PQ_INLINE Size Up64(Size v) { return (v + 63) & ~Size{63}; }

// Calls f(row, column, cells) for every run, in reading order.
template <class F>
PQ_INLINE void ForEachRun(const u8* mask, IppiSize size, F f) {
  for (int y = 0; y < size.height; ++y, mask += size.width) {
    for (int x = 0; x < size.width; ++x) {
      if (mask[x] == 0) continue;
      const int start = x;
      while (x + 1 < size.width && mask[x + 1] != 0) ++x;
      f(y, start, x + 1 - start);
    }
  }
}

// Cuts the mask; the plan's arrays lie in `scratch`. False if there is no memory.
bool MakePlan(const u8* mask, IppiSize size, Scratch& scratch, Plan& plan) {
  ForEachRun(mask, size, [&](int, int, int) { ++plan.run_count; });
  const Size most_lengths = static_cast<Size>(size.width) + 1;
  const Size row_count = 2 * plan.run_count > kMostParts ? 2 * plan.run_count : kMostParts;
  const Size of_lengths = most_lengths * static_cast<Size>(sizeof(Length));
  const Size of_rows = row_count * static_cast<Size>(sizeof(u8*));
  const Size of_runs = plan.run_count * static_cast<Size>(sizeof(Run));
  u8* memory = scratch.Take(of_lengths + of_rows + of_runs + most_lengths * static_cast<Size>(sizeof(int)));
  if (memory == nullptr) return false;
  plan.lengths = reinterpret_cast<Length*>(memory);
  plan.rows = reinterpret_cast<const u8**>(memory + of_lengths);
  plan.runs = reinterpret_cast<Run*>(memory + of_lengths + of_rows);
  int* place = reinterpret_cast<int*>(memory + of_lengths + of_rows + of_runs);  // by length; 0: none such
  __builtin_memset(place, 0, static_cast<std::size_t>(most_lengths) * sizeof(int));
  Size next = 0;
  ForEachRun(mask, size, [&](int row, int column, int cells) {
    plan.runs[next++] = {row, column, cells, false, false};
    place[cells] = 1;
    if (cells == 1) return;
    if (plan.last_row < 0) plan.first_row = row;
    plan.last_row = row;
  });
  Size above = 0;  // runs of the row above, from left to right
  for (Size i = 0; i < plan.run_count; ++i) {
    Run& run = plan.runs[i];
    while (above < i && (plan.runs[above].row < run.row - 1 ||
                         (plan.runs[above].row == run.row - 1 && plan.runs[above].column < run.column))) {
      ++above;
    }
    Run& other = plan.runs[above];
    if (other.row == run.row - 1 && other.column == run.column && other.length == run.length) {
      run.same_above = other.same_below = true;
      ++plan.shared;
    }
  }
  plan.pairs = plan.shared >= kLeastShared && 2 * plan.shared >= plan.run_count;
  plan.lengths[0] = {1, 0, 0, 0, 0, 0, 0, nullptr};
  place[1] = 0;
  const auto add = [&](int cells) {
    const int from = plan.length_count - 1, shorter = plan.lengths[from].cells;
    place[cells] = plan.length_count;
    plan.lengths[plan.length_count++] = {cells, from, (cells + shorter - 1) / shorter, plan.last_row, 0, 0, 0, nullptr};
  };
  for (int cells = 2; cells <= size.width; ++cells) {
    if (place[cells] == 0) continue;
    for (;;) {
      const int shorter = plan.lengths[plan.length_count - 1].cells;
      if (cells <= Size{shorter} * kMostParts) break;
      add(shorter * kGrowth);
    }
    add(cells);
  }
  for (Size i = 0; i < plan.run_count; ++i) {
    Run& run = plan.runs[i];
    run.length = place[run.length];
    Length& length = plan.lengths[run.length];
    if (run.row < length.first_row) length.first_row = run.row;
  }
  for (int l = 1; l < plan.length_count; ++l) {
    plan.lengths[l].depth = plan.last_row - plan.lengths[l].first_row + (plan.pairs ? 2 : 1);
  }
  return true;
}

// One strip: n bytes of every row. src is the window's top left for the strip's first sample.
template <bool kGreatest, int kChannels>
void Strip(Plan& plan, int mask_width, const u8* src, Size src_step, u8* dst, Size dst_step, Size n, int height) {
  // Finds all lengths for the source row that mask row `row` looks at from output row y.
  const auto enter = [&](int y, int row) {
    const u8* source = src + (static_cast<Size>(y) + row) * src_step;
    for (int l = 1; l < plan.length_count; ++l) {
      Length& length = plan.lengths[l];
      const Length& shorter = plan.lengths[length.from];
      const auto slot = [row](const Length& of) {
        if (row < of.first_row) return of.ring;  // nobody looks at it from here
        const Size s = of.slot + row - of.first_row;
        return of.ring + (s < of.depth ? s : s - of.depth) * of.pitch;
      };
      const u8* from = length.from == 0 ? source : slot(shorter);
      for (int k = 0; k < length.parts; ++k) {
        const Size cells = k + 1 < length.parts ? Size{k} * shorter.cells : length.cells - shorter.cells;
        plan.rows[k] = from + cells * kChannels;
      }
      ExtremeOfRows<kGreatest>(plan.rows, length.parts, slot(length), n + Size{mask_width - length.cells} * kChannels);
    }
  };
  for (int l = 1; l < plan.length_count; ++l) plan.lengths[l].slot = 0;
  for (int row = plan.first_row; row < plan.last_row; ++row) enter(0, row);
  // The row that a run looks at, `down` rows below output row y's.
  const auto look = [&](const Run& run, int y, int down) {
    const Length& length = plan.lengths[run.length];
    const u8* row;
    if (run.length == 0) {
      row = src + (static_cast<Size>(y) + run.row + down) * src_step;
    } else {
      const Size at = length.slot + run.row + down - length.first_row;
      row = length.ring + (at < length.depth ? at : at - length.depth) * length.pitch;
    }
    return row + Size{run.column} * kChannels;
  };
  const bool pairs = plan.pairs && n >= kS;
  for (int y = 0; y < height;) {
    const int rows = pairs && y + 1 < height ? 2 : 1;
    for (int k = 0; plan.last_row >= 0 && k < rows; ++k) enter(y, plan.last_row + k);
    if (rows == 2) {
      const Size own = plan.run_count - plan.shared;
      Size shared = 0, first = plan.shared, second = plan.shared + own;
      for (Size i = 0; i < plan.run_count; ++i) {
        const Run& run = plan.runs[i];
        plan.rows[run.same_above ? shared++ : first++] = look(run, y, 0);
        if (!run.same_below) plan.rows[second++] = look(run, y, 1);
      }
      ExtremeOfTwoRows<kGreatest>(plan.rows, plan.shared, own, dst, dst + dst_step, n);
    } else {
      for (Size i = 0; i < plan.run_count; ++i) plan.rows[i] = look(plan.runs[i], y, 0);
      ExtremeOfRows<kGreatest>(plan.rows, plan.run_count, dst, n);
    }
    for (int l = 1; l < plan.length_count; ++l) {
      Length& length = plan.lengths[l];
      length.slot = (length.slot + rows) % length.depth;
    }
    y += rows;
    dst += rows * dst_step;
  }
}

template <bool kGreatest, int kChannels>
IppStatus Morphology(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, const u8* mask, IppiSize size,
                     TPoint anchor) {
  if (const IppStatus status = PQCheckMorphology(src, src_step, dst, dst_step, roi, mask, size, anchor, kChannels)) {
    return status;
  }
  Scratch plan_memory, ring_memory;
  Plan plan;
  if (!MakePlan(mask, size, plan_memory, plan)) return ippStsMemAllocErr;
  const Size n = Size{roi.width} * kChannels;
  Size rows = 0;
  for (int l = 1; l < plan.length_count; ++l) rows += plan.lengths[l].depth;
  Size width = rows == 0 ? n : kCache / rows - Size{size.width} * kChannels;
  width = width < kLeastStrip ? kLeastStrip : width;
  const Size strips = (n + width - 1) / width;
  width = Up64((n + strips - 1) / strips);
  Size bytes = 0;
  for (int l = 1; l < plan.length_count; ++l) {
    Length& length = plan.lengths[l];
    length.pitch = Up64(width + Size{size.width - length.cells} * kChannels);
    bytes += length.pitch * length.depth;
  }
  if (bytes > 0) {
    u8* ring = ring_memory.Take(bytes);
    if (ring == nullptr) return ippStsMemAllocErr;
    for (int l = 1; l < plan.length_count; ++l) {
      plan.lengths[l].ring = ring;
      ring += plan.lengths[l].pitch * plan.lengths[l].depth;
    }
  }
  src -= Size{anchor.x} * kChannels + Size{anchor.y} * src_step;
  for (Size x = 0; x < n; x += width) {
    Strip<kGreatest, kChannels>(plan, size.width, src + x, src_step, dst + x, dst_step, x + width < n ? width : n - x,
                                roi.height);
  }
  return ippStsNoErr;
}

}  // namespace
}  // namespace PQ_TARGET

using namespace PQ_TARGET;

#define PQ_MORPHOLOGY(name, greatest, channels)                                                              \
  IppStatus PQ_VARIANT(name)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi, const u8* mask, \
                             IppiSize maskSize, TPoint anchor) {                                             \
    return Morphology<greatest, channels>(src, srcStep, dst, dstStep, roi, mask, maskSize, anchor);          \
  }
PQ_MORPHOLOGY(ippiErode_8u_C1R, false, 1)
PQ_MORPHOLOGY(ippiErode_8u_C3R, false, 3)
PQ_MORPHOLOGY(ippiDilate_8u_C1R, true, 1)
PQ_MORPHOLOGY(ippiDilate_8u_C3R, true, 3)

IppStatus PQ_VARIANT(ippiMorphologyInitAlloc_8u_C3R)(int roiWidth, const int* mask, IppiSize maskSize, TPoint anchor,
                                                     IppiMorphState*& state) {
  return ownMorphologyInitAlloc(1, 3, roiWidth, mask, maskSize, anchor, &state, 2, nullptr);
}

IppStatus PQ_VARIANT(ippiMorphologyFree)(IppiMorphState*& state) { return PQFreeMorphology(state); }

}  // namespace pantiq
