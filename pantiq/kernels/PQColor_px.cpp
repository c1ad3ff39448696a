// Colour conversions in plain code: the reference of the other variants.
#include "pantiq/kernels/PQColor.h"

#include <cmath>

namespace pantiq {
namespace color {

const std::uint8_t kLuminance[256] = {
    // clang-format off
    0, 9, 18, 26, 33, 39, 44, 48, 52, 56, 60, 63, 66, 69, 72, 74, 77, 79, 81, 84, 86, 88, 90, 92, 94, 96, 97, 99, 101,
    103, 104, 106, 107, 109, 110, 112, 113, 115, 116, 117, 119, 120, 121, 123, 124, 125, 126, 128, 129, 130, 131, 132,
    133, 134, 136, 137, 138, 139, 140, 141, 142, 143, 144, 145, 146, 147, 148, 149, 150, 151, 151, 152, 153, 154, 155,
    156, 157, 158, 159, 159, 160, 161, 162, 163, 163, 164, 165, 166, 167, 167, 168, 169, 170, 171, 171, 172, 173, 174,
    174, 175, 176, 176, 177, 178, 179, 179, 180, 181, 181, 182, 183, 183, 184, 185, 185, 186, 187, 187, 188, 189, 189,
    190, 191, 191, 192, 192, 193, 194, 194, 195, 196, 196, 197, 197, 198, 198, 199, 200, 200, 201, 201, 202, 203, 203,
    204, 204, 205, 205, 206, 206, 207, 208, 208, 209, 209, 210, 210, 211, 211, 212, 212, 213, 213, 214, 215, 215, 216,
    216, 217, 217, 218, 218, 219, 219, 220, 220, 221, 221, 222, 222, 223, 223, 224, 224, 225, 225, 225, 226, 226, 227,
    227, 228, 228, 229, 229, 230, 230, 231, 231, 232, 232, 232, 233, 233, 234, 234, 235, 235, 236, 236, 236, 237, 237,
    238, 238, 239, 239, 240, 240, 240, 241, 241, 242, 242, 242, 243, 243, 244, 244, 245, 245, 245, 246, 246, 247, 247,
    247, 248, 248, 249, 249, 249, 250, 250, 251, 251, 251, 252, 252, 253, 253, 253, 254, 254, 255, 255,
    // clang-format on
};

}  // namespace color

namespace {

using namespace color;
using u8 = std::uint8_t;

u8 Limit(int v) { return static_cast<u8>(v < 0 ? 0 : v > 255 ? 255 : v); }
u8 Limit(double v) { return static_cast<u8>(v > 0 ? v < 255 ? v : 255 : 0); }  // truncates
u8 Byte(double v) { return static_cast<u8>(static_cast<int>(v)); }

// Calls convert(p, o) for every pixel; p is a copy, so that source and destination may be one.
template <class Convert>
__attribute__((noinline)) void ConvertRows(const u8* src, int src_step, u8* dst, int dst_step, IppiSize roi,
                                           Convert convert) {
  for (int y = 0; y < roi.height; ++y) {
    const u8* p = src + static_cast<std::ptrdiff_t>(y) * src_step;
    u8* o = dst + static_cast<std::ptrdiff_t>(y) * dst_step;
    for (int x = 0; x < roi.width; ++x, p += 3, o += 3) {
      const int pixel[3] = {p[0], p[1], p[2]};
      convert(pixel, o);
    }
  }
}

// ---- Integers.

void RGBToYCbCr(const int (&p)[3], u8* o) {
  const int r = p[0], g = p[1], b = p[2];
  o[0] = static_cast<u8>((0x41CB * r + 0x8106 * g + 0x1917 * b + 0x108000) >> 16);
  o[1] = static_cast<u8>((-0x25E3 * r - 0x4A7F * g + 0x7062 * b + 0x808000) >> 16);
  o[2] = static_cast<u8>((0x7062 * r - 0x5E35 * g - 0x122D * b + 0x808000) >> 16);
}

void YCbCrToRGB(const int (&p)[3], u8* o) {
  const int y = 0x129FC * (p[0] - 16), u = p[1] - 128, v = p[2] - 128;
  o[0] = Limit((y + 0x19893 * v) >> 16);
  o[1] = Limit((y - 0x645A * u - 0xD021 * v) >> 16);
  o[2] = Limit((y + 0x2045A * u) >> 16);
}

void RGBToYUV(const int (&p)[3], u8* o) {
  const int r = p[0], g = p[1], b = p[2];
  const int t = 0x4C8B * r + 0x9646 * g + 0x1D2F * b;
  o[0] = static_cast<u8>(t >> 16);
  o[1] = static_cast<u8>((((b * 65536 - t + 0x7FFF) >> 16) * 0x7DF4 >> 16) + 128);
  o[2] = Limit((((r * 65536 - t + 0x7FFF) >> 16) * 0xE083 >> 16) + 128);
}

void YUVToRGB(const int (&p)[3], u8* o) {
  const int y = 65536 * p[0], u = p[1] - 128, v = p[2] - 128;
  o[0] = Limit((y + 0x123D7 * v) >> 16);
  o[1] = Limit((y - 0x64DD * u - 0x94BC * v) >> 16);
  o[2] = Limit((y + 0x20831 * u) >> 16);
}

void RGBToYCC(const int (&p)[3], u8* o) {
  const int r = p[0], g = p[1], b = p[2];
  const int t = 0x1322 * r + 0x2591 * g + 0x74B * b;
  o[0] = static_cast<u8>((t >> 10) * 0xB69 >> 16);
  o[1] = static_cast<u8>((((b * 0x4000 - t) >> 10) * 0x6FD >> 16) + 156);
  o[2] = static_cast<u8>((((r * 0x4000 - t) >> 10) * 0x882 >> 16) + 137);
}

void YCCToRGB(const int (&p)[3], u8* o) {
  const int y = p[0], c1 = 0x237C * p[1] - 0x159F90, c2 = 0x1D24 * p[2] - 0xF9844;
  o[0] = Limit((0x15BC * y + c2) >> 12);
  o[1] = Limit((0x15BC0 * y - 0x31A * (c1 >> 8) - 0x824 * (c2 >> 8)) >> 16);
  o[2] = Limit((0x15BC * y + c1) >> 12);
}

void RGBToXYZ(const int (&p)[3], u8* o) {
  const int r = p[0], g = p[1], b = p[2];
  o[0] = static_cast<u8>((0x6996 * r + 0x5B8A * g + 0x2E30 * b) >> 16);
  o[1] = static_cast<u8>((0x3671 * r + 0xB714 * g + 0x1279 * b) >> 16);
  o[2] = Limit((0x4F3 * r + 0x1E83 * g + 0xF342 * b) >> 16);
}

void XYZToRGB(const int (&p)[3], u8* o) {
  const int x = p[0], y = p[1], z = p[2];
  o[0] = Limit((0x33D90 * x - 0x18982 * y - 0x7F9F * z) >> 16);
  o[1] = Limit((-0xF821 * x + 0x1E040 * y + 0xAA3 * z) >> 16);
  o[2] = Limit((0xE3E * x - 0x343C * y + 0x10EAB * z) >> 16);
}

// ---- Floats.

void RGBToHLS(const int (&p)[3], u8* o) {
  const double r = p[0] / 255.0, g = p[1] / 255.0, b = p[2] / 255.0;
  const double mx = std::fmax(std::fmax(r, g), b), mn = std::fmin(std::fmin(r, g), b);
  const double d = mx - mn, l = 0.5 * (mx + mn);
  double s = mx + mn, h = 0, sat = 0;
  if (d != 0) {
    if (l > 0.5) s = 2 - s;
    if (r == mx) {
      h = 60 * (g - b) / d;
    } else if (g == mx) {
      h = 60 * (b - r) / d + 120;
    } else {
      h = 60 * (r - g) / d + 240;
    }
    sat = d / s;
    if (h < 0) h += 360;
  }
  o[0] = Byte(h * 255 / 360 + kHalf);
  o[1] = Byte(l * 255 + kHalf);
  o[2] = Byte(255 * sat + kHalf);
}

void HLSToRGB(const int (&p)[3], u8* o) {
  const double h = p[0] * 360.0 / 255, l = p[1] / 255.0, s = p[2] / 255.0;
  const double m2 = l > 0.5 ? (l + s) - s * l : (1 + s) * l, m1 = 2 * l - m2;
  const double red = h + 120, blue = h - 120;
  const double hue[3] = {red > 360 ? red - 360 : red, h, blue < 0 ? blue + 360 : blue};
  for (int k = 0; k < 3; ++k) {
    const double t = hue[k];
    double v = m1;
    if (p[2] == 0) {
      v = l;
    } else if (t < 60) {
      v = m1 + (m2 - m1) * t / 60;
    } else if (t < 180) {
      v = m2;
    } else if (t < 240) {
      v = m1 + (m2 - m1) * (240 - t) / 60;
    }
    o[k] = Byte(v * 255 + kHalf);
  }
}

void RGBToHSV(const int (&p)[3], u8* o) {
  const int r = p[0], g = p[1], b = p[2];
  const int rg = r > g ? r : g, low = r < g ? r : g;
  const int mx = rg > b ? rg : b, mn = low < b ? low : b;
  o[2] = static_cast<u8>(mx);
  if (mx == mn) {
    o[0] = o[1] = 0;
    return;
  }
  const double c = 1.0 / (mx - mn);
  double e = 0;
  if (r == mx) e = (g - b) * c;
  if (g == mx) e = (2 + (mx - r) * c) - (mx - b) * c;
  if (b == mx) e = (mx - g) * c + (4 - (mx - r) * c);
  double h = e * 255 / 6;
  if (h < 0) h += 255;
  o[0] = Byte(h + kHalf);
  o[1] = Byte((mx - mn) / static_cast<double>(mx) * 255 + kHalf);
}

void HSVToRGB(const int (&p)[3], u8* o) {
  const double s = p[1] / 255.0, v = p[2];
  const double e = p[0] == 255 ? 0.0 : (p[0] * 360.0 / 255) / 60;
  const int i = static_cast<int>(e);
  const double f = e - i;
  const u8 value = static_cast<u8>(p[2]);
  const u8 low = p[1] == 0 ? value : Byte((1 - s) * v + kHalf);
  const u8 falling = p[1] == 0 ? value : Byte((1 - s * f) * v + kHalf);
  const u8 rising = p[1] == 0 ? value : Byte((1 - s * (1 - f)) * v + kHalf);
  const u8 colors[6][3] = {{value, rising, low},  {falling, value, low}, {low, value, rising},
                           {low, falling, value}, {rising, low, value},  {value, low, falling}};
  for (int k = 0; k < 3; ++k) o[k] = colors[i][k];
}

void RGBToLUV(const int (&p)[3], u8* o) {
  const double r = p[0], g = p[1], b = p[2];
  const double x = (kXR * r + kXG * g + kXB * b) / 255, z = (kZR * r + kZG * g + kZB * b) / 255;
  const double luminance = kYR * r + kYG * g + kYB * b;
  const int i = static_cast<int>(luminance + kHalf);
  const int l = kLuminance[i];
  double u = 0, v = 0;
  if (i != 0) {
    const double y = luminance / 255, d = 15 * y + x + 3 * z;
    u = 4 * x / d;
    v = 9 * y / d;
  }
  o[0] = static_cast<u8>(l);
  o[1] = Byte((u - kLuvU) * kLuvUScale * l + kLuvUOffset);
  o[2] = Byte((v - kLuvV) * l * kLuvVScale + kLuvVOffset);
}

void FromXYZ(double x, double y, double z, double half, u8& r, u8& g, u8& b) {
  r = Limit(kRX * x + kRY * y + kRZ * z + half);
  g = Limit(kGX * x + kGY * y + kGZ * z + half);
  b = Limit(kBX * x + kBY * y + kBZ * z + half);
}

void LUVToRGB(const int (&p)[3], u8* o) {
  const double l = p[0] * 100.0 / 255;
  if (l < kLuvBlack) {
    o[0] = o[1] = o[2] = 0;
    return;
  }
  const double root = (16 + l) / 116;
  const double y = 255 * (l < kLuvLinear ? l / kSlope : root * root * root);
  const double u = (p[1] * 354.0 / 255 - 134) / (13 * l) + kLuvBackU;
  const double v = (p[2] * 262.0 / 255 - 140) / (13 * l) + kLuvBackV;
  const double t = y / v, x = 2.25 * t * u, z = (3 * t - 5 * y) - x / 3;
  FromXYZ(x, y, z, kHalf, o[0], o[1], o[2]);
}

double LabRoot(double w) { return w <= kLabLinear ? kLabSlope * w + kLabOffset : std::pow(w, kLabPower); }

void BGRToLab(const int (&p)[3], u8* o) {
  const double b = p[0], g = p[1], r = p[2];
  const double x = (kXR * r + kXG * g + kXB * b) / kLabX;
  const double y = (kYR * r + kYG * g + kYB * b) / 255;
  const double z = (kZR * r + kZG * g + kZB * b) / kLabZ;
  const double fx = LabRoot(x), fy = LabRoot(y), fz = LabRoot(z);
  const double l = y <= kLabLinear ? kSlope * y : 116 * fy - 16;
  o[0] = Byte(l * 255 / 100 + 0.5);
  o[1] = Byte((fx - fy) * 500 + 128.5);
  o[2] = Byte((fy - fz) * 200 + 128.5);
}

void LabToBGR(const int (&p)[3], u8* o) {
  const double fy = (p[0] * 100.0 / 255 + 16) / 116;
  const double fx = fy + (p[1] - 128) / 500.0, fz = fy - (p[2] - 128) / 200.0;
  FromXYZ(kLabX * fx * fx * fx, 255 * fy * fy * fy, kLabZ * fz * fz * fz, 0.5, o[2], o[1], o[0]);
}

}  // namespace

#define PQ_CONVERSION(name)                                                                                   \
  IppStatus PQ_VARIANT(ippi##name##_8u_C3R)(const u8* src, int srcStep, u8* dst, int dstStep, IppiSize roi) { \
    if (const IppStatus status = PQCheckColor(src, dst, roi)) return status;                                  \
    const int mode = PQRoundToNearest();                                                                      \
    ConvertRows(src, srcStep, dst, dstStep, roi, [](const int(&p)[3], u8* o) { name(p, o); });                \
    PQRestoreRounding(mode);                                                                                  \
    return ippStsNoErr;                                                                                       \
  }
PQ_CONVERSION(RGBToHLS)
PQ_CONVERSION(RGBToHSV)
PQ_CONVERSION(RGBToLUV)
PQ_CONVERSION(RGBToYCC)
PQ_CONVERSION(RGBToYCbCr)
PQ_CONVERSION(RGBToYUV)
PQ_CONVERSION(BGRToLab)
PQ_CONVERSION(RGBToXYZ)
PQ_CONVERSION(HLSToRGB)
PQ_CONVERSION(XYZToRGB)
PQ_CONVERSION(YCCToRGB)
PQ_CONVERSION(LUVToRGB)
PQ_CONVERSION(LabToBGR)
PQ_CONVERSION(YCbCrToRGB)
PQ_CONVERSION(YUVToRGB)
PQ_CONVERSION(HSVToRGB)
#undef PQ_CONVERSION

IppStatus PQ_VARIANT(ippiCopy_8u_C3P3R)(const u8* src, int srcStep, const u8* const* dst, int dstStep, IppiSize roi) {
  if (const IppStatus status = PQCheckPlanes(src, dst, roi)) return status;
  for (int y = 0; y < roi.height; ++y) {
    for (int c = 0; c < 3; ++c) {
      const u8* p = src + static_cast<std::ptrdiff_t>(y) * srcStep + c;
      u8* o = const_cast<u8*>(dst[c]) + static_cast<std::ptrdiff_t>(y) * dstStep;
      for (int x = 0; x < roi.width; ++x) o[x] = p[3 * static_cast<std::ptrdiff_t>(x)];
    }
  }
  return ippStsNoErr;
}

}  // namespace pantiq
