// The fixed-mask filters in plain code: the reference of the other variants. A row pass, then a column pass over rows
// of 32-bit integers, one a sample, that turn in a ring.
#include "pantiq/kernels/PQFixedMask.h"

#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {
namespace {

using u8 = std::uint8_t;
using Size = std::ptrdiff_t;

constexpr Size kCh = 3;

u8 Clamp(int v) { return static_cast<u8>(v < 0 ? 0 : v > 255 ? 255 : v); }

// `rows` rows of n integers; null if they cannot be had.
class Rows {
 public:
  Rows(Size rows, Size n)
      : n_(n), base_(rows * n <= 0x7FFFFFFF ? ippsMalloc_32s(static_cast<int>(rows * n)) : nullptr) {}
  ~Rows() { ippsFree(base_); }
  Rows(const Rows&) = delete;
  Rows& operator=(const Rows&) = delete;
  explicit operator bool() const { return base_ != nullptr; }
  int* operator[](Size row) const { return base_ + row * n_; }

 private:
  Size n_;
  int* base_;
};

// ---- Row passes; s starts one pixel left of the region, two pixels for masks of five.

void ownFixedSumRow3_8u(const u8* s, int* out, Size n) {
  for (Size i = 0; i < n; ++i) out[i] = s[i] + s[i + kCh] + s[i + 2 * kCh];
}

void ownFixedSubRow3_8u(const u8* s, int* out, Size n) {
  for (Size i = 0; i < n; ++i) out[i] = s[i] - s[i + 2 * kCh];
}

void WeightedRow3(const u8* s, int* out, Size n) {
  for (Size i = 0; i < n; ++i) out[i] = s[i] + 2 * s[i + kCh] + s[i + 2 * kCh];
}

// Running sums of five pixels.
void ownFixedSumRow5_8u_C3(const u8* s, int* out, Size n) {
  for (Size i = 0; i < kCh; ++i) out[i] = s[i] + s[i + kCh] + s[i + 2 * kCh] + s[i + 3 * kCh] + s[i + 4 * kCh];
  for (Size i = kCh; i < n; ++i) out[i] = out[i - kCh] + s[i + 4 * kCh] - s[i - kCh];
}

void ownFixedGaussRow5_8u_C3(const u8* s, int* outer, int* inner, int* centre, Size n) {
  for (Size i = 0; i < n; ++i) {
    const int p2 = s[i] + s[i + 4 * kCh], p1 = s[i + kCh] + s[i + 3 * kCh], p0 = s[i + 2 * kCh];
    outer[i] = 2 * p2 + 7 * p1 + 12 * p0;
    inner[i] = 7 * p2 + 31 * p1 + 52 * p0;
    centre[i] = 12 * p2 + 52 * p1 + 127 * p0;
  }
}

void ownFixedLaplaceRow5_8u_C3(const u8* s, int* outer, int* inner, int* centre, Size n) {
  for (Size i = 0; i < n; ++i) {
    const int p2 = s[i] + s[i + 4 * kCh], p1 = s[i + kCh] + s[i + 3 * kCh], p0 = s[i + 2 * kCh];
    outer[i] = -p2 - 3 * p1 - 4 * p0;
    inner[i] = -3 * p2 + 6 * p0;
    centre[i] = -4 * p2 + 6 * p1 + 20 * p0;
  }
}

// ---- Column passes. a, b, c: rows from above; s: the centre row of the source.

void ownFixedSubCol3_8u(const int* below, const int* above, u8* dst, Size n) {
  for (Size i = 0; i < n; ++i) dst[i] = Clamp(below[i] - above[i]);
}

void ownFixedAddCol3_8u(const int* a, const int* b, const int* c, u8* dst, Size n) {
  for (Size i = 0; i < n; ++i) dst[i] = Clamp(a[i] + b[i] + c[i]);
}

void ownFixedSumCol5(const int* const (&r)[5], int* out, Size n) {
  for (Size i = 0; i < n; ++i) out[i] = r[0][i] + r[1][i] + r[2][i] + r[3][i] + r[4][i];
}

// One step of the running total of 5 x 5: the new row's running sums replace those of the leaving row, in the total
// and in its buffer.
void ownFixedPass5_8u_C3(const u8* s, int* leaving, int* total, Size n) {
  int sum[kCh];
  for (Size c = 0; c < kCh; ++c) sum[c] = s[c] + s[c + kCh] + s[c + 2 * kCh] + s[c + 3 * kCh] + s[c + 4 * kCh];
  for (Size i = 0; i < n; ++i) {
    int& v = sum[i % kCh];
    if (i >= kCh) v += s[i + 4 * kCh] - s[i - kCh];
    total[i] += v - leaving[i];
    leaving[i] = v;
  }
}

void ownFixedHipass5x5_8u(const int* total, const u8* s, u8* dst, Size n) {
  for (Size i = 0; i < n; ++i) dst[i] = Clamp(25 * s[i] - total[i]);
}

// The 13 is in the total already.
void ownFixedLowpass5x5_8u(const int* total, u8* dst, Size n) {
  for (Size i = 0; i < n; ++i) dst[i] = static_cast<u8>((total[i] * 10485) >> 18);
}

void ownFixedGaussCol5_8u(const int* const (&r)[5], u8* dst, Size n) {
  for (Size i = 0; i < n; ++i) {
    const unsigned t = static_cast<unsigned>(r[0][i] + r[1][i] + r[2][i] + r[3][i] + r[4][i]);
    dst[i] = static_cast<u8>(((t + 286) * 29382) >> 24);
  }
}

void ownFixedLaplaceCol5_8u(const int* const (&r)[5], u8* dst, Size n) {
  for (Size i = 0; i < n; ++i) dst[i] = Clamp(r[0][i] + r[1][i] + r[2][i] + r[3][i] + r[4][i]);
}

// ---- Three-row drivers.

// row(s, out, n) fills one row; column(a, b, c, s, dst, n) writes an output row.
template <class RowPass, class ColumnPass>
IppStatus ThreeRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, RowPass row, ColumnPass column) {
  const Size n = roi.width * kCh;
  const Rows rows(3, n);
  if (!rows) return ippStsMemAllocErr;
  int *a = rows[0], *b = rows[1], *c = rows[2];
  const u8* s = src - src_step - kCh;
  row(s, a, n);
  row(s += src_step, b, n);
  for (int y = 0; y < roi.height; ++y) {
    row(s += src_step, c, n);
    column(a, b, c, s - src_step + kCh, dst, n);
    int* oldest = a;
    a = b;
    b = c;
    c = oldest;
    dst += dst_step;
  }
  return ippStsNoErr;
}

IppStatus ownippiFilterPrewittHoriz_8u(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  return ThreeRows(
      src, src_step, dst, dst_step, roi, ownFixedSumRow3_8u,
      [](const int* a, const int*, const int* c, const u8*, u8* o, Size n) { ownFixedSubCol3_8u(c, a, o, n); });
}

IppStatus ownippiFilterPrewittVert_8u(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  return ThreeRows(
      src, src_step, dst, dst_step, roi, ownFixedSubRow3_8u,
      [](const int* a, const int* b, const int* c, const u8*, u8* o, Size n) { ownFixedAddCol3_8u(a, b, c, o, n); });
}

IppStatus ownippiFilterSobelHoriz_8u(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  return ThreeRows(
      src, src_step, dst, dst_step, roi, WeightedRow3,
      [](const int* a, const int*, const int* c, const u8*, u8* o, Size n) { ownFixedSubCol3_8u(c, a, o, n); });
}

IppStatus ownippiFilterSobelVert_8u(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  return ThreeRows(src, src_step, dst, dst_step, roi, ownFixedSubRow3_8u,
                   [](const int* a, const int* b, const int* c, const u8*, u8* o, Size n) {
                     for (Size i = 0; i < n; ++i) o[i] = Clamp(a[i] + 2 * b[i] + c[i]);
                   });
}

IppStatus ownippiFilterSharpen_8u(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  return ThreeRows(src, src_step, dst, dst_step, roi, ownFixedSumRow3_8u,
                   [](const int* a, const int* b, const int* c, const u8* s, u8* o, Size n) {
                     for (Size i = 0; i < n; ++i) {
                       const int v = 17 * s[i] - (a[i] + b[i] + c[i]), t = (v + ((v & 8) >> 3) + 3) >> 3;
                       o[i] = static_cast<u8>(v <= 0 ? 0 : t > 255 ? 255 : t);
                     }
                   });
}

IppStatus ownippiFilterLaplace3x3_8u(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  return ThreeRows(src, src_step, dst, dst_step, roi, ownFixedSumRow3_8u,
                   [](const int* a, const int* b, const int* c, const u8* s, u8* o, Size n) {
                     for (Size i = 0; i < n; ++i) o[i] = Clamp(9 * s[i] - (a[i] + b[i] + c[i]));
                   });
}

IppStatus ownippiFilterGauss3x3_8u(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  return ThreeRows(src, src_step, dst, dst_step, roi, WeightedRow3,
                   [](const int* a, const int* b, const int* c, const u8*, u8* o, Size n) {
                     for (Size i = 0; i < n; ++i) {
                       const int t = a[i] + 2 * b[i] + c[i];
                       o[i] = static_cast<u8>((t + ((t >> 4) & 1) + 7) >> 4);
                     }
                   });
}

IppStatus ownippiFilterLowpass3x3_8u(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi) {
  return ThreeRows(src, src_step, dst, dst_step, roi, ownFixedSumRow3_8u,
                   [](const int* a, const int* b, const int* c, const u8*, u8* o, Size n) {
                     for (Size i = 0; i < n; ++i) o[i] = static_cast<u8>(((a[i] + b[i] + c[i] + 5) * 455) >> 12);
                   });
}

// ---- Five-row drivers.

// Fifteen rows: row(s, outer, inner, centre, n) fills three for each of five source rows; column(r, dst, n) adds the
// outer ones of rows y - 2 and y + 2, the inner ones of y - 1 and y + 1 and the centre one of y.
template <class RowPass, class ColumnPass>
IppStatus FiveRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, RowPass row, ColumnPass column) {
  const Size n = roi.width * kCh;
  const Rows rows(15, n);
  if (!rows) return ippStsMemAllocErr;
  int place = 0;
  const u8* s = src - 2 * static_cast<Size>(src_step) - 2 * kCh;
  const auto next = [&] {
    row(s, rows[place * 3], rows[place * 3 + 1], rows[place * 3 + 2], n);
    s += src_step;
    place = (place + 1) % 5;
  };
  for (int i = 0; i < 4; ++i) next();
  for (int y = 0; y < roi.height; ++y) {
    next();
    const auto at = [&](int i, int kind) { return rows[(place + i) % 5 * 3 + kind]; };
    const int* const r[5] = {at(0, 0), at(1, 1), at(2, 2), at(3, 1), at(4, 0)};
    column(r, dst, n);
    dst += dst_step;
  }
  return ippStsNoErr;
}

// Six rows: running sums of five source rows and their total, which starts `bias` higher. out(total, s, dst, n) writes
// an output row; s is the centre row.
template <class Out>
IppStatus RunningTotal(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi, int bias, Out out) {
  const Size n = roi.width * kCh;
  const Rows rows(6, n);
  if (!rows) return ippStsMemAllocErr;
  int* total = rows[5];
  const u8* s = src - 2 * static_cast<Size>(src_step) - 2 * kCh;
  for (int i = 0; i < 5; ++i, s += src_step) ownFixedSumRow5_8u_C3(s, rows[i], n);
  const int* const r[5] = {rows[0], rows[1], rows[2], rows[3], rows[4]};
  ownFixedSumCol5(r, total, n);
  for (Size i = 0; i < n; ++i) total[i] += bias;
  out(total, src, dst, n);
  for (int y = 1; y < roi.height; ++y, s += src_step) {
    ownFixedPass5_8u_C3(s, rows[(y - 1) % 5], total, n);
    out(total, src += src_step, dst += dst_step, n);
  }
  return ippStsNoErr;
}

// The second sample lies `d` bytes from the first and a row higher; a `d` of 1 or -1 means one channel.
void ownippiFilterRoberts_8u(const u8* src, int src_step, u8* dst, int dst_step, int width, int height, int d) {
  const Size n = d == 1 || d == -1 ? width : width * kCh;
  for (int y = 0; y < height; ++y, src += src_step, dst += dst_step) {
    const u8* other = src + d - src_step;
    for (Size i = 0; i < n; ++i) dst[i] = Clamp(src[i] - other[i]);
  }
}

}  // namespace

#define PQ_FIXED(name, driver)                                                                 \
  IppStatus PQ_VARIANT(name)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) { \
    if (const IppStatus status = PQCheckFixed(src, srcStep, dst, dstStep, roi)) return status; \
    return driver(src, srcStep, dst, dstStep, roi);                                            \
  }
PQ_FIXED(ippiFilterPrewittHoriz_8u_C3R, ownippiFilterPrewittHoriz_8u)
PQ_FIXED(ippiFilterPrewittVert_8u_C3R, ownippiFilterPrewittVert_8u)
PQ_FIXED(ippiFilterSobelHoriz_8u_C3R, ownippiFilterSobelHoriz_8u)
PQ_FIXED(ippiFilterSobelVert_8u_C3R, ownippiFilterSobelVert_8u)
PQ_FIXED(ippiFilterSharpen_8u_C3R, ownippiFilterSharpen_8u)

#define PQ_ROBERTS(name, d)                                                                    \
  IppStatus PQ_VARIANT(name)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) { \
    if (const IppStatus status = PQCheckFixed(src, srcStep, dst, dstStep, roi)) return status; \
    ownippiFilterRoberts_8u(src, srcStep, dst, dstStep, roi.width, roi.height, d);             \
    return ippStsNoErr;                                                                        \
  }
PQ_ROBERTS(ippiFilterRobertsDown_8u_C3R, -3)
PQ_ROBERTS(ippiFilterRobertsUp_8u_C3R, 3)

IppStatus PQ_VARIANT(ippiFilterLaplace_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi,
                                               int maskCode) {
  if (const IppStatus status = PQCheckFixedCode(src, srcStep, dst, dstStep, roi, maskCode)) return status;
  if (maskCode == ippMskSize3x3) return ownippiFilterLaplace3x3_8u(src, srcStep, dst, dstStep, roi);
  return FiveRows(src, srcStep, dst, dstStep, roi, ownFixedLaplaceRow5_8u_C3, ownFixedLaplaceCol5_8u);
}

IppStatus PQ_VARIANT(ippiFilterGauss_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi,
                                             int maskCode) {
  if (const IppStatus status = PQCheckFixedCode(src, srcStep, dst, dstStep, roi, maskCode)) return status;
  if (maskCode == ippMskSize3x3) return ownippiFilterGauss3x3_8u(src, srcStep, dst, dstStep, roi);
  return FiveRows(src, srcStep, dst, dstStep, roi, ownFixedGaussRow5_8u_C3, ownFixedGaussCol5_8u);
}

IppStatus PQ_VARIANT(ippiFilterHipass_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi,
                                              int maskCode) {
  if (const IppStatus status = PQCheckFixedCode(src, srcStep, dst, dstStep, roi, maskCode)) return status;
  if (maskCode == ippMskSize3x3) return ownippiFilterLaplace3x3_8u(src, srcStep, dst, dstStep, roi);
  return RunningTotal(src, srcStep, dst, dstStep, roi, 0, ownFixedHipass5x5_8u);
}

IppStatus PQ_VARIANT(ippiFilterLowpass_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi,
                                               int maskCode) {
  if (const IppStatus status = PQCheckFixedCode(src, srcStep, dst, dstStep, roi, maskCode)) return status;
  if (maskCode == ippMskSize3x3) return ownippiFilterLowpass3x3_8u(src, srcStep, dst, dstStep, roi);
  return RunningTotal(src, srcStep, dst, dstStep, roi, 13,
                      [](const int* total, const u8*, u8* o, Size n) { ownFixedLowpass5x5_8u(total, o, n); });
}

}  // namespace pantiq
