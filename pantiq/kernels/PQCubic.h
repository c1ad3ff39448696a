// The cubic of the geometry kernels: Newton's form of the polynomial through four samples at -1, 0, 1 and 2, in single
// precision, in this order of evaluation. For resize and warps; plain code alone (vectors have their own copy).
#pragma once

namespace pantiq {
namespace cubic {

// a, b, c for the fraction t; outside the picture's inner part t leaves 0..1.
static inline void Weights(float t, float (&abc)[3]) {
  const float a = 1 + t;
  const float b = t * a * 0.5f;
  abc[0] = a;
  abc[1] = b;
  abc[2] = (t - 1) * b / 3;
}

static inline float Value(float p0, float p1, float p2, float p3, const float* abc) {
  const float d1 = p1 - p0;
  const float d2 = (p2 - p1) - d1;
  const float d3 = (p3 + (p1 - p2) - p2) - d2;
  return p0 + abc[0] * d1 + abc[1] * d2 + abc[2] * d3;
}

// + 0.5, truncated, clamped.
static inline unsigned char Sample(float value) {
  const float v = value + 0.5f;
  return v >= 255 ? 255 : v <= 0 ? 0 : static_cast<unsigned char>(v);
}

}  // namespace cubic
}  // namespace pantiq
