#include "pantiq/kernels/PQResize.h"

#include <cmath>
#include <cstddef>
#include <limits>

#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/kernels/PQCubic.h"

namespace pantiq {
namespace resize {
namespace {

constexpr double kPi = 3.14159265358979323846;

// sin(x) for x of 0 to pi, by its series; at compile time.
constexpr double Sine(double x) {
  double term = x, sum = x;
  for (int n = 2; n < 32; n += 2) {
    term *= -x * x / (n * (n + 1));
    sum += term;
  }
  return sum;
}

// sinc(u) * sinc(u / 3) at u = 0, 0.01, ... 3, as 32-bit floats; one more entry keeps the last interval inside.
struct LanczosKernel {
  float entry[302];
};
constexpr LanczosKernel MakeLanczosKernel() {
  LanczosKernel kernel{};
  kernel.entry[0] = 1;
  for (int i = 1; i < 300; ++i) {
    if (i % 100 == 0) continue;
    const double u = i / 100.0, wave = Sine(kPi * (i % 100) / 100) * (i / 100 == 1 ? -1 : 1);
    kernel.entry[i] = static_cast<float>(wave * Sine(kPi * i / 300) * 3 / (kPi * u * (kPi * u)));
  }
  return kernel;
}
constexpr LanczosKernel kLanczosKernel = MakeLanczosKernel();

// The pixels of the result on an axis; 0: none.
int Extent(int n, double factor, int limit) {
  const double v = n * factor + 0.0000001;
  if (v >= limit) return limit;
  if (v < 1) return v < 0.5 ? 0 : 1;
  return static_cast<int>(v);
}

double Step(const Axis& axis) {
  const double length = axis.n * axis.factor;
  return length > 1 ? (axis.n - 1) / (length - 1) : 0;
}

// The whole part of a position, at most n - 1, and the rest.
int Whole(const Axis& axis, double position, double* rest) {
  if (position >= axis.n - 1) {
    *rest = 0;
    return axis.n - 1;
  }
  const int whole = static_cast<int>(position);
  *rest = position - whole;
  return whole;
}

void NearestTable(const Axis& axis, int* index) {
  const double step = 1 / axis.factor;
  for (int i = 0; i < axis.extent; ++i) {
    const double position = (i + 0.5) * step;
    index[i] = axis.first + (position >= axis.n - 1 ? axis.n - 1 : static_cast<int>(position));
  }
}

void LinearTable(const Axis& axis, int* index, int* weight) {
  const double step = Step(axis);
  for (int i = 0; i < axis.extent; ++i) {
    double rest;
    int k = Whole(axis, i * step, &rest);
    int second = static_cast<int>(std::floor(static_cast<float>(rest) * 16384.0 + 0.5));
    if (k == axis.n - 1 && axis.n > 1) {
      --k;
      second = 16384;
    }
    index[i] = axis.first + k;
    weight[i] = second;
  }
}

// Moves a window of `taps` samples that starts at `start` into 0 .. picture - 1.
int InsidePicture(int start, int taps, int picture) {
  return start < 0 ? 0 : start > picture - taps ? picture - taps : start;
}

void CubicTable(const Axis& axis, int* index, float (*abc)[3]) {
  const double step = Step(axis);
  for (int i = 0; i < axis.extent; ++i) {
    double rest;
    const int start = axis.first + Whole(axis, i * step, &rest) - 1;
    index[i] = InsidePicture(start, 4, axis.picture);
    cubic::Weights(static_cast<float>(rest + (start - index[i])), abc[i]);
  }
}

void LanczosTable(const Axis& axis, int* index, float (*weights)[6]) {
  const double step = Step(axis);
  for (int i = 0; i < axis.extent; ++i) {
    double rest;
    const int start = axis.first + Whole(axis, i * step, &rest) - 2;
    const float t = static_cast<float>(rest);
    index[i] = InsidePicture(start, 6, axis.picture);
    float sum = 0;
    for (int n = 0; n < 6; ++n) {
      const int tap = n + index[i] - start;
      const float u = -2 - t + tap;
      float weight = 0;
      if (tap >= 0 && tap < 6 && u > -3 && u < 3) {
        const float s = std::fabs(u) * 100;
        const int entry = static_cast<int>(s);
        weight =
            kLanczosKernel.entry[entry] + (kLanczosKernel.entry[entry + 1] - kLanczosKernel.entry[entry]) * (s - entry);
      }
      weights[i][n] = weight;
      sum += weight;
    }
    for (int n = 0; n < 6; ++n) weights[i][n] /= sum;
  }
}

void AreaTable(const Axis& axis, Cell* cells) {
  const double step = 1 / axis.factor;
  for (int i = 0; i < axis.extent; ++i) {
    const double start = i * step, end = (i + 1) * step;
    Cell& cell = cells[i];
    if (start >= axis.n) {
      cell = {axis.n - 1, axis.n - 1, 0, 0};
    } else {
      cell.first = static_cast<int>(start);
      const double last = std::ceil(end) - 1;
      cell.last = last > axis.n - 1 ? axis.n - 1 : last < cell.first ? cell.first : static_cast<int>(last);
      cell.first_weight = (cell.first == cell.last && end < cell.first + 1 ? end : cell.first + 1) - start;
      cell.last_weight = end < cell.last + 1 ? end - cell.last : 1;
    }
    cell.first += axis.first;
    cell.last += axis.first;
  }
}

std::int64_t Padded(std::int64_t bytes) { return (bytes + 63) & ~std::int64_t{63}; }

std::int64_t TableBytes(const Axis& axis, int code) {
  const std::int64_t entry = code == kNearest  ? sizeof(int)
                             : code == kLinear ? 2 * sizeof(int)
                             : code == kCubic  ? sizeof(int) + 3 * sizeof(float)
                             : code == kArea   ? sizeof(Cell)
                                               : sizeof(int) + 6 * sizeof(float);
  return Padded(entry * axis.extent) + 64;
}

Table MakeTable(const Axis& axis, int code, std::uint8_t* memory) {
  Table table{};
  if (code == kArea) {
    table.cells = reinterpret_cast<Cell*>(memory);
    AreaTable(axis, table.cells);
    return table;
  }
  table.index = reinterpret_cast<int*>(memory);
  int* const rest = table.index + axis.extent;
  if (code == kNearest) {
    NearestTable(axis, table.index);
  } else if (code == kLinear) {
    table.weight = rest;
    LinearTable(axis, table.index, table.weight);
  } else if (code == kCubic) {
    table.abc = reinterpret_cast<float(*)[3]>(rest);
    CubicTable(axis, table.index, table.abc);
  } else {
    table.lanczos = reinterpret_cast<float(*)[6]>(rest);
    LanczosTable(axis, table.index, table.lanczos);
  }
  return table;
}

const std::uint8_t* Row(const Plan& plan, int y) { return plan.base + y * plan.src_step; }
std::uint8_t* Result(const Plan& plan, int y) { return plan.dst + y * plan.dst_step; }

template <int kChannels>
void DrawNearest(const Plan& plan, const Work& work) {
  for (int y = 0; y < plan.y.extent; ++y) {
    const std::uint8_t* row = Row(plan, work.y.index[y]);
    std::uint8_t* out = Result(plan, y);
    for (int x = 0; x < plan.x.extent; ++x) {
      const std::uint8_t* p = row + std::ptrdiff_t{work.x.index[x]} * kChannels;
      for (int c = 0; c < kChannels; ++c) *out++ = p[c];
    }
  }
}

// Calls draw(y, rows) for each destination row with its kTaps source rows in expanded form; expand(row, buffer) makes
// one, each once.
template <class Sample, int kTaps, class Expand, class Draw>
void WalkRows(const Plan& plan, const Work& work, int taps, Expand expand, Draw draw) {
  Sample* rows[kTaps];
  int held[kTaps];
  for (int n = 0; n < kTaps; ++n) held[n] = -1;
  for (int y = 0; y < plan.y.extent; ++y) {
    for (int n = 0; n < kTaps; ++n) {
      const int row = work.y.index[y] + (n < taps ? n : 0);
      Sample* buffer = reinterpret_cast<Sample*>(work.rows + work.row_bytes * (row % kTaps));
      if (held[row % kTaps] != row) expand(row, buffer);
      held[row % kTaps] = row;
      rows[n] = buffer;
    }
    draw(y, rows);
  }
}

template <int kChannels>
void DrawLinear(const Plan& plan, const Work& work) {
  const std::ptrdiff_t samples = std::ptrdiff_t{plan.x.extent} * kChannels;
  const int next = PairDistance(plan.x) * kChannels;
  WalkRows<std::uint16_t, 2>(
      plan, work, 1 + PairDistance(plan.y),
      [&](int row, std::uint16_t* r) {
        const std::uint8_t* line = Row(plan, row);
        for (int x = 0; x < plan.x.extent; ++x) {
          const std::uint8_t* p = line + std::ptrdiff_t{work.x.index[x]} * kChannels;
          const int c1 = work.x.weight[x], c0 = 16384 - c1;
          for (int c = 0; c < kChannels; ++c) {
            *r++ = static_cast<std::uint16_t>((c0 * p[c] + c1 * p[c + next] + 0x80) >> 8);
          }
        }
      },
      [&](int y, std::uint16_t* const* r) {
        std::uint8_t* out = Result(plan, y);
        const int f = work.y.weight[y];
        for (std::ptrdiff_t i = 0; i < samples; ++i) {
          out[i] = static_cast<std::uint8_t>((r[0][i] * (0x4000 - f) + r[1][i] * f + 0x80000) >> 20);
        }
      });
}

template <int kChannels>
void DrawCubic(const Plan& plan, const Work& work) {
  const std::ptrdiff_t samples = std::ptrdiff_t{plan.x.extent} * kChannels;
  WalkRows<float, 4>(
      plan, work, 4,
      [&](int row, float* r) {
        const std::uint8_t* line = Row(plan, row);
        for (int x = 0; x < plan.x.extent; ++x) {
          const std::uint8_t* p = line + std::ptrdiff_t{work.x.index[x]} * kChannels;
          for (int c = 0; c < kChannels; ++c) {
            *r++ = cubic::Value(p[c], p[c + kChannels], p[c + 2 * kChannels], p[c + 3 * kChannels], work.x.abc[x]);
          }
        }
      },
      [&](int y, float* const* r) {
        std::uint8_t* out = Result(plan, y);
        for (std::ptrdiff_t i = 0; i < samples; ++i) {
          out[i] = cubic::Sample(cubic::Value(r[0][i], r[1][i], r[2][i], r[3][i], work.y.abc[y]));
        }
      });
}

template <int kChannels>
void DrawLanczos(const Plan& plan, const Work& work) {
  const std::ptrdiff_t samples = std::ptrdiff_t{plan.x.extent} * kChannels;
  WalkRows<float, 6>(
      plan, work, 6,
      [&](int row, float* r) {
        const std::uint8_t* line = Row(plan, row);
        for (int x = 0; x < plan.x.extent; ++x) {
          const std::uint8_t* p = line + std::ptrdiff_t{work.x.index[x]} * kChannels;
          const float* w = work.x.lanczos[x];
          for (int c = 0; c < kChannels; ++c) {
            float sum = w[0] * p[c];
            for (int n = 1; n < 6; ++n) sum += w[n] * p[c + n * kChannels];
            *r++ = sum;
          }
        }
      },
      [&](int y, float* const* r) {
        std::uint8_t* out = Result(plan, y);
        const float* w = work.y.lanczos[y];
        for (std::ptrdiff_t i = 0; i < samples; ++i) out[i] = LanczosColumn(r, i, w);
      });
}

// The samples of one row under a cell. row: the channel's sample of the picture's first pixel.
double CellSum(const std::uint8_t* row, const Cell& cell, int channels) {
  const std::uint8_t* p = row + std::ptrdiff_t{cell.first} * channels;
  double sum = cell.first_weight * *p;
  for (int k = cell.first + 1; k < cell.last; ++k) sum += *(p += channels);
  if (cell.last > cell.first) sum += cell.last_weight * p[channels];
  return sum;
}

double RowWeight(const Cell& rows, int row) {
  return row == rows.first ? rows.first_weight : row == rows.last ? rows.last_weight : 1;
}

template <int kChannels>
void DrawArea(const Plan& plan, const Work& work) {
  const std::ptrdiff_t samples = std::ptrdiff_t{plan.x.extent} * kChannels;
  const double norm = plan.x.factor * plan.y.factor;
  double* const sums = reinterpret_cast<double*>(work.rows);
  double* const line = reinterpret_cast<double*>(work.rows + work.row_bytes);
  int held = -1;
  for (int y = 0; y < plan.y.extent; ++y) {
    const Cell& rows = work.y.cells[y];
    for (std::ptrdiff_t i = 0; i < samples; ++i) sums[i] = 0;
    for (int row = rows.first; row <= rows.last; ++row) {
      if (row != held) {  // a row that two cells share is summed once
        const std::uint8_t* source = Row(plan, row);
        for (int x = 0; x < plan.x.extent; ++x) {
          for (int c = 0; c < kChannels; ++c) {
            line[std::ptrdiff_t{x} * kChannels + c] = CellSum(source + c, work.x.cells[x], kChannels);
          }
        }
        held = row;
      }
      const double weight = RowWeight(rows, row);
      for (std::ptrdiff_t i = 0; i < samples; ++i) sums[i] += weight * line[i];
    }
    std::uint8_t* out = Result(plan, y);
    for (std::ptrdiff_t i = 0; i < samples; ++i) out[i] = AreaValue(sums[i] * norm);
  }
}

template <int kChannels>
void Draw(const Plan& plan, const Work& work) {
  switch (plan.code) {
    case kNearest:
      return DrawNearest<kChannels>(plan, work);
    case kLinear:
      return DrawLinear<kChannels>(plan, work);
    case kCubic:
      return DrawCubic<kChannels>(plan, work);
    case kLanczos:
      return DrawLanczos<kChannels>(plan, work);
    default:
      return DrawArea<kChannels>(plan, work);
  }
}

}  // namespace

std::uint8_t LanczosColumn(const float* const* rows, std::ptrdiff_t i, const float* weights) {
  double sum = static_cast<double>(rows[0][i]) * weights[0];
  for (int n = 1; n < 6; ++n) sum += static_cast<double>(rows[n][i]) * weights[n];
  sum += 0.5;
  return sum >= 255 ? 255 : sum <= 0 ? 0 : static_cast<std::uint8_t>(sum);
}

std::uint8_t AreaValue(double scaled) {
  const double v = scaled + 0.5;
  return v >= 255 ? 255 : static_cast<std::uint8_t>(v);
}

std::uint8_t AreaSample(const Plan& plan, const Work& work, int channels, int i, int y) {
  const Cell& rows = work.y.cells[y];
  double sum = 0;
  for (int row = rows.first; row <= rows.last; ++row) {
    sum += RowWeight(rows, row) * CellSum(Row(plan, row) + i % channels, work.x.cells[i / channels], channels);
  }
  return AreaValue(sum * (plan.x.factor * plan.y.factor));
}

IppStatus MakePlan(Plan& plan, const std::uint8_t* src, IppiSize srcSize, int srcStep, TPQImageRect srcRoi,
                   std::uint8_t* dst, int dstStep, IppiSize dstSize, double xFactor, double yFactor,
                   int interpolation) {
  if (src == nullptr || dst == nullptr) return ippStsNullPtrErr;
  if (srcSize.width < 1 || srcSize.height < 1 || srcRoi.x < 0 || srcRoi.y < 0 || srcRoi.width < 1 ||
      srcRoi.height < 1) {
    return ippStsSizeErr;
  }
  if (srcRoi.x >= srcSize.width || srcRoi.y >= srcSize.height) return ippStsWrongIntersectROI;
  if (dstSize.width < 1 || dstSize.height < 1) return ippStsSizeErr;
  constexpr double kLargest = std::numeric_limits<double>::max();
  if (!(xFactor > 0 && xFactor <= kLargest && yFactor > 0 && yFactor <= kLargest)) return ippStsResizeFactorErr;
  plan.code = interpolation;
  if (interpolation != kArea || xFactor > 1 || yFactor > 1) {
    if (interpolation != kNearest && interpolation != kLinear && interpolation != kCubic && interpolation != kLanczos) {
      return ippStsInterpolationErr;
    }
    const int least = srcSize.width < srcSize.height ? srcSize.width : srcSize.height;
    if (plan.code == kLanczos && least < 8) plan.code = kCubic;
    if (plan.code == kCubic && least < 4) plan.code = kLinear;
    if (least < 2) plan.code = kNearest;
  }
  const auto axis = [](int first, int extent, int picture, double factor, int limit) {
    const int n = extent < picture - first ? extent : picture - first;
    return Axis{first, n, picture, factor, Extent(n, factor, limit)};
  };
  plan.x = axis(srcRoi.x, srcRoi.width, srcSize.width, xFactor, dstSize.width);
  plan.y = axis(srcRoi.y, srcRoi.height, srcSize.height, yFactor, dstSize.height);
  if (plan.x.extent == 0 || plan.y.extent == 0) return ippStsResizeNoOperationErr;
  plan.base = src;
  plan.src_step = srcStep;
  plan.dst = dst;
  plan.dst_step = dstStep;
  return ippStsNoErr;
}

bool MakeWork(Work& work, const Plan& plan, int row_count, std::int64_t row_bytes, std::int64_t extra_bytes) {
  const std::int64_t row = Padded(row_bytes), extra = Padded(extra_bytes);
  const std::int64_t x_bytes = TableBytes(plan.x, plan.code), y_bytes = TableBytes(plan.y, plan.code);
  const std::int64_t size = 64 + x_bytes + y_bytes + row * row_count + 64 + extra;
  if (row > (std::int64_t{1} << 40) || size > std::numeric_limits<int>::max()) return false;
  work.memory = ippsMalloc_8u(static_cast<int>(size));
  if (work.memory == nullptr) return false;
  std::uint8_t* next = work.memory + (-reinterpret_cast<std::uintptr_t>(work.memory) & 63);
  work.x = MakeTable(plan.x, plan.code, next);
  next += x_bytes;
  work.y = MakeTable(plan.y, plan.code, next);
  next += y_bytes;
  work.rows = next;
  work.row_bytes = row;
  work.extra = next + row * row_count + 64;
  return true;
}

IppStatus Plain(const Plan& plan, int channels) {
  const int rows = plan.code == kNearest                        ? 0
                   : plan.code == kLinear || plan.code == kArea ? 2
                   : plan.code == kCubic                        ? 4
                                                                : 6;
  const int bytes = plan.code == kLinear ? 2 : plan.code == kArea ? 8 : 4;
  Work work;
  if (!MakeWork(work, plan, rows, std::int64_t{plan.x.extent} * channels * bytes, 0)) return ippStsMemAllocErr;
  if (channels == 3) {
    Draw<3>(plan, work);
  } else {
    Draw<1>(plan, work);
  }
  ippsFree(work.memory);
  return ippStsNoErr;
}

namespace {

__attribute__((noinline)) IppStatus Resize(const std::uint8_t* src, IppiSize srcSize, int srcStep, TPQImageRect srcRoi,
                                           std::uint8_t* dst, int dstStep, IppiSize dstSize, double xFactor,
                                           double yFactor, int interpolation, int channels) {
  Plan plan;
  if (const IppStatus status =
          MakePlan(plan, src, srcSize, srcStep, srcRoi, dst, dstStep, dstSize, xFactor, yFactor, interpolation)) {
    return status;
  }
  return Plain(plan, channels);
}

}  // namespace
}  // namespace resize

IppStatus PQ_VARIANT(ippiResize_8u_C3R) PQ_PARAMS_Resize {
  const int mode = PQRoundToNearest();
  const IppStatus status =
      resize::Resize(src, srcSize, srcStep, srcRoi, dst, dstStep, dstSize, xFactor, yFactor, interpolation, 3);
  PQRestoreRounding(mode);
  return status;
}

IppStatus PQ_VARIANT(ippiResize_8u_C1R) PQ_PARAMS_Resize {
  const int mode = PQRoundToNearest();
  const IppStatus status =
      resize::Resize(src, srcSize, srcStep, srcRoi, dst, dstStep, dstSize, xFactor, yFactor, interpolation, 1);
  PQRestoreRounding(mode);
  return status;
}

}  // namespace pantiq
