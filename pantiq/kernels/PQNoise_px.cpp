#include "pantiq/kernels/PQNoise.h"

#include <cmath>
#include <cstddef>

namespace pantiq {
namespace noise {
namespace {

// The two sequences during one call.
struct Source {
  explicit Source(std::uint32_t seed) : x1(seed), x2(seed * kMultiplier + kIncrement) {
    x3 = x2 * kMultiplier + kIncrement;
  }

  std::int32_t Draw() {
    l = l * kMultiplier + kIncrement;
    std::uint32_t t = x2 - x3 + borrow;
    borrow = static_cast<std::int32_t>(t) < 0 ? ~0u : 0u;
    if (borrow) t -= 18;
    x3 = x2;
    x2 = x1;
    x1 = t;
    return static_cast<std::int32_t>(t + l);
  }

  std::uint32_t x1, x2, x3;  // X[n-1], X[n-2], X[n-3]
  std::uint32_t borrow = ~0u;
  std::uint32_t l = kFirstL;
};

std::uint8_t Clamp(int value) { return static_cast<std::uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value); }

std::uint32_t LoadSeed(const std::uint16_t* seed) {
  std::uint32_t value;
  __builtin_memcpy(&value, seed, sizeof value);
  return value;
}

void StoreSeed(std::uint16_t* seed, std::uint32_t value) { __builtin_memcpy(seed, &value, sizeof value); }

__attribute__((noinline)) void AddUniform(std::uint8_t* pixels, int step, IppiSize roi, std::uint8_t low,
                                          std::uint8_t high, std::uint16_t* seed) {
  const double scale = (high - low) * 2.3283064365387e-10;
  const double offset = (low + high) * 0.5;
  const std::int64_t samples = std::int64_t{roi.width} * 3;
  Source source(LoadSeed(seed));
  for (int y = 0; y < roi.height; ++y) {
    std::uint8_t* row = pixels + std::ptrdiff_t{y} * step;
    for (std::int64_t i = 0; i < samples; ++i) row[i] = Clamp(row[i] + UniformNoise(source.Draw(), scale, offset));
  }
  StoreSeed(seed, source.x1);
}

__attribute__((noinline)) void AddGauss(std::uint8_t* pixels, int step, IppiSize roi, std::uint8_t mean,
                                        std::uint8_t std_dev, std::uint16_t* seed) {
  const std::int64_t samples = std::int64_t{roi.width} * 3;
  Source source(LoadSeed(seed));
  int pair[2];
  int used = 2;
  for (int y = 0; y < roi.height; ++y) {
    std::uint8_t* row = pixels + std::ptrdiff_t{y} * step;
    for (std::int64_t i = 0; i < samples; ++i) {
      if (used == 2) {
        std::int32_t r1, r2;
        do {
          r1 = source.Draw();
          r2 = source.Draw();
        } while (!GaussNoise(r1, r2, mean, std_dev, pair));
        used = 0;
      }
      row[i] = Clamp(row[i] + pair[used++]);
    }
  }
  StoreSeed(seed, source.x1);
}

constexpr BlockTables MakeBlockTables() {
  BlockTables tables{};
  // The recurrence without borrows, from each of the three start values alone.
  for (int part = 0; part < 3; ++part) {
    std::uint32_t z3 = part == 0, z2 = part == 1, z1 = part == 2;
    for (int k = 0; k < kBlock; ++k) {
      const std::uint32_t z = z2 - z3;
      (part == 0 ? tables.p : part == 1 ? tables.q : tables.r)[k] = z;
      z3 = z2;
      z2 = z1;
      z1 = z;
    }
  }
  // y[m]: what a borrow of -1 takes from the draw m behind its own.
  std::int32_t y[kBlock] = {};
  for (int m = 0; m < kBlock; ++m) {
    y[m] = (m >= 2 ? y[m - 2] : 0) - (m >= 3 ? y[m - 3] : 0) + (m == 0 ? 18 : 0) + (m == 1 ? 1 : 0);
  }
  std::int32_t low = 0, high = 0;
  for (int k = 0; k < kBlock; ++k) {
    if (k > 0 && y[k] > 0) low -= y[k];
    if (k > 0 && y[k] < 0) high -= y[k];
    tables.low[k] = static_cast<std::uint32_t>(low);
    tables.high[k] = static_cast<std::uint32_t>(high);
  }
  std::uint32_t l = kFirstL;
  tables.l_multiplier = 1;
  tables.l_increment = 0;
  for (int k = 0; k < kBlock; ++k) {
    l = l * kMultiplier + kIncrement;
    tables.first_l[k] = l;
    tables.l_multiplier *= kMultiplier;
    tables.l_increment = tables.l_increment * kMultiplier + kIncrement;
  }
  for (int i = 0; i < 9; ++i) {
    for (int bits = 0; bits < 16; ++bits) {
      for (int lane = 0; lane < 16; ++lane) {
        for (int bit = 0; bit < 4; ++bit) {
          const int m = 4 * i - 12 + lane - bit;
          if ((bits >> bit & 1) != 0 && m >= 0 && m < kBlock) {
            tables.response[i][bits][lane] -= static_cast<std::uint32_t>(y[m]);
          }
        }
      }
    }
  }
  return tables;
}

}  // namespace

constinit const BlockTables kBlockTables = MakeBlockTables();

int UniformNoise(std::int32_t draw, double scale, double offset) {
  return static_cast<int>(std::lrint(draw * scale + offset));
}

bool GaussNoise(std::int32_t draw1, std::int32_t draw2, std::uint8_t mean, std::uint8_t std_dev, int (&noise)[2]) {
  const double u = draw1 * 4.656612873077e-10;
  const double v = draw2 * 4.656612873077e-10;
  const double q = u * u + v * v;
  if (q >= 1 || q == 0) return false;
  const double f = std::sqrt(-2 * std::log(q) / q);
  noise[0] = static_cast<int>(std::lrint(std_dev * f * u + mean));
  noise[1] = static_cast<int>(std::lrint(std_dev * f * v + mean));
  return true;
}

void StepBlock(std::uint32_t (&state)[3], std::uint32_t (&x)[kBlock]) {
  for (int k = 0; k < kBlock; ++k) {
    const std::uint32_t t = state[1] - state[0];
    const std::uint32_t borrowed = t >> 31;
    x[k] = t - 18 * borrowed;
    state[0] = state[1] + borrowed;
    state[1] = state[2];
    state[2] = x[k];
  }
}

// (1 + sin) * 127.99999 for dx * dx + dy * dy = squares; sine_sign of -1 gives the value half a turn on.
double JaehneShade(double squares, double sine_sign, double height) {
  return (1 + sine_sign * std::sin(6.283185307179586 * squares / (4 * height))) * 127.99999;
}

std::uint8_t JaehneValue(int x, int y, IppiSize roi) {
  const double dx = x - (roi.width - 1) * 0.5;
  const double dy = y - (roi.height - 1) * 0.5;
  return static_cast<std::uint8_t>(JaehneShade(dx * dx + dy * dy, 1, roi.height));
}

__attribute__((noinline)) void JaehnePlain(std::uint8_t* pixels, int step, IppiSize roi) {
  for (int y = 0; y < roi.height; ++y) {
    std::uint8_t* row = pixels + std::ptrdiff_t{y} * step;
    for (int x = 0; x < roi.width; ++x) {
      const std::uint8_t value = JaehneValue(x, y, roi);
      for (int channel = 0; channel < 3; ++channel) *row++ = value;
    }
  }
}

}  // namespace noise

IppStatus PQ_VARIANT(ippiAddRandUniform_Direct_8u_C3IR)(std::uint8_t* srcDst, int step, IppiSize roi, std::uint8_t low,
                                                        std::uint8_t high, std::uint16_t& seed) {
  if (const IppStatus status = PQCheckNoise(srcDst, step, roi, &seed)) return status;
  const int mode = PQRoundToNearest();
  noise::AddUniform(srcDst, step, roi, low, high, &seed);
  PQRestoreRounding(mode);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiAddRandGauss_Direct_8u_C3IR)(std::uint8_t* srcDst, int step, IppiSize roi, std::uint8_t mean,
                                                      std::uint8_t stdDev, std::uint16_t& seed) {
  if (const IppStatus status = PQCheckNoise(srcDst, step, roi, &seed)) return status;
  const int mode = PQRoundToNearest();
  noise::AddGauss(srcDst, step, roi, mean, stdDev, &seed);
  PQRestoreRounding(mode);
  return ippStsNoErr;
}

IppStatus PQ_VARIANT(ippiImageJaehne_8u_C3R)(std::uint8_t* srcDst, int step, IppiSize roi) {
  if (const IppStatus status = PQCheckJaehne(srcDst, step, roi)) return status;
  const int mode = PQRoundToNearest();
  noise::JaehnePlain(srcDst, step, roi);
  PQRestoreRounding(mode);
  return ippStsNoErr;
}

}  // namespace pantiq
