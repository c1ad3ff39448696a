// Noise and the test picture, on three channels of 8 bits.
//
// Regions are in pixels, steps in bytes. All arithmetic rounds to nearest whatever rounding mode the caller has set;
// its mode is put back. Any thread.
//
// The random numbers of the noise: X is a subtract-with-borrow sequence, L a linear congruence, all in 32 bits,
// wrapping.
//       X[0] = seed,  X[-1] = X[0] * 69069 + 1013904243,  X[-2] = X[-1] * 69069 + 1013904243
//       borrow = -1,  L = 1131199209
// A draw is
//       L = L * 69069 + 1013904243
//       t = X[n-2] - X[n-3] + borrow
//       borrow = t < 0 (signed) ? -1 : 0
//       X[n] = t + 18 * borrow
//       R = X[n] + L as a signed value
// Samples are walked row by row, width * 3 a row; the sequences run on across rows. The new seed is the last X drawn.
// The seed is 32 bits wide whatever its declared type, low half first; it is read at the start and overwritten at the
// end, so a stream of frames goes on from call to call, and the same seed on the same picture gives the same result.
//
// ippiAddRandUniform_Direct_8u_C3IR
//   Adds to every sample, in place, with low and high (a and b) sample values of 0..255,
//       v = sample + round(R * ((high - low) * 2.3283064365387e-10) + (low + high) * 0.5)
//   halves to even, clamped to 0..255. What is added lies between low and high, ends included; low above high reverses
//   the range. Faults in the order in which they are found: srcDst or seed null -8, width or height below 1 -6, step
//   below 1 -14.
// ippiAddRandGauss_Direct_8u_C3IR
//   Adds normally distributed noise in place, with mean and stdDev (a and b) sample values of 0..255, by the polar
//   method of Marsaglia. u and v are two draws times 4.656612873077e-10; draws with q = 0 or q >= 1 are dropped.
//       q = u * u + v * v
//       f = sqrt(-2 * log(q) / q)
//       the next sample gets     stdDev * f * u + mean
//       the one after it         stdDev * f * v + mean
//   Each is rounded to nearest (halves to even) before it is added and the sum clamped. f * u stays below 9.3, so the
//   noise lies within -2400..2700. Pairs run on across rows; a half pair left at the end is dropped. Faults as of the
//   uniform noise.
// ippiImageJaehne_8u_C3R
//   Draws the zone plate of Jaehne, sine rings whose frequency grows with the distance from the centre, into all three
//   channels: with dx = x - (width - 1) / 2 and dy = y - (height - 1) / 2,
//       v = trunc((1 + sin(6.283185307179586 * (dx * dx + dy * dy) / (4 * height))) * 127.99999)
//   in doubles, evaluated left to right; 0 <= v < 256. The height alone sets the scale. Faults in the order in which
//   they are found: srcDst null -8, step below 1 -14, width or height below 1 -6, no memory -9 (nothing is drawn).
#pragma once

#include "pantiq/kernels/PQRounding.h"
#include "pantiq/kernels/PQVariants.h"

namespace pantiq {

// The argument checks of the two noise kernels.
static inline IppStatus PQCheckNoise(const std::uint8_t* pixels, int step, IppiSize roi, const std::uint16_t* seed) {
  // A reference is never null to the language, but callers in other languages pass an address: look at it unoptimised.
  const std::uint16_t* volatile given = seed;
  if (pixels == nullptr || given == nullptr) return ippStsNullPtrErr;
  if (roi.width < 1 || roi.height < 1) return ippStsSizeErr;
  if (step < 1) return ippStsStepErr;
  return ippStsNoErr;
}

// The argument checks of the test picture.
static inline IppStatus PQCheckJaehne(const std::uint8_t* pixels, int step, IppiSize roi) {
  if (pixels == nullptr) return ippStsNullPtrErr;
  if (step < 1) return ippStsStepErr;
  if (roi.width < 1 || roi.height < 1) return ippStsSizeErr;
  return ippStsNoErr;
}

// What the variants share; defined in PQNoise_px.cpp.
namespace noise {

inline constexpr std::uint32_t kMultiplier = 69069;
inline constexpr std::uint32_t kIncrement = 1013904243;
inline constexpr std::uint32_t kFirstL = 1131199209;
inline constexpr int kBlock = 32;  // draws that the tuned variants make at once

// The exact results, for the plain form and for the few samples that a tuned form cannot decide. Round to nearest must
// be set.
int UniformNoise(std::int32_t draw, double scale, double offset);
bool GaussNoise(std::int32_t draw1, std::int32_t draw2, std::uint8_t mean, std::uint8_t std_dev, int (&noise)[2]);
double JaehneShade(double squares, double sine_sign, double height);
std::uint8_t JaehneValue(int x, int y, IppiSize roi);
void JaehnePlain(std::uint8_t* pixels, int step, IppiSize roi);

// Makes kBlock numbers X one by one. state: X[n-3] - borrow, X[n-2], X[n-1]; moved on behind the block.
void StepBlock(std::uint32_t (&state)[3], std::uint32_t (&x)[kBlock]);

// How the tuned forms make a block of X at once. If the borrows were known, X would be a linear recurrence, z[k] =
// z[k-2]
// - z[k-3] from z[-2] = p = X[-2] - borrow, z[-1] = q = X[-1], z[0] = r = X[0], plus what the borrows of the block
// itself add. A borrow of draw j adds -y[k-j] to X[k], with y = 18, 1, 18, -17, ... (y[m] = y[m-2] - y[m-3] behind the
// first two). So t[k], whose sign is the next borrow, lies in z[k] + low[k] .. z[k] + high[k] with fixed bounds; unless
// that interval holds a change of sign (about one block in a thousand, made by StepBlock instead) the sign of z[k] +
// low[k] is the borrow, for all k at once.
struct BlockTables {
  alignas(64) std::uint32_t p[kBlock], q[kBlock], r[kBlock];  // z[k] = p[k] * p + q[k] * q + r[k] * r, k from 1
  alignas(64) std::uint32_t low[kBlock], high[kBlock];        // bounds of t[k] - z[k]
  alignas(64) std::uint32_t first_l[kBlock];                  // the first L of a call
  std::uint32_t l_multiplier, l_increment;                    // L, kBlock draws on
  // response[i][n][lane]: what the four borrows of bit pattern n add to the draws 4 * i - 12 + lane behind the first.
  alignas(64) std::uint32_t response[9][16][16];
};
extern const BlockTables kBlockTables;

}  // namespace noise
}  // namespace pantiq
