// The scaling formulas written out the plain way, one pixel at a time: the
// yardstick every implementation of dravix/imaging/scale.h is held to.
#pragma once

#include "dravix/platform/wintypes.h"

#include <algorithm>

namespace dravix::test {

inline void ReferenceYDownsample(const BYTE* src, BYTE* dst, int sw, int sh, int dw, int dh) {
  if (dw <= 0 || dh <= 0) return;
  double hstep = static_cast<double>(sw) / dw;
  double vstep = static_cast<double>(sh) / dh;
  if (hstep <= 1.0) hstep = 1.0;
  if (vstep <= 1.0) vstep = 1.0;
  for (int y = 0; y < dh; ++y) {
    const int srcRow = static_cast<int>(y * vstep);
    for (int x = 0; x < dw; ++x) {
      dst[y * dw + x] = src[static_cast<long long>(srcRow * sw + x * hstep)];
    }
  }
}

inline void ReferenceUVDownsample(const BYTE* src, BYTE* dst, int sw, int sh, int dw, int dh) {
  if (dw <= 0 || dh / 2 < 1) return;
  double hstep = static_cast<double>(sw) / dw;
  double vstep = static_cast<double>(sh) / dh;
  if (hstep <= 1.0) hstep = 1.0;
  if (vstep <= 1.0) vstep = 1.0;
  for (int y = 0; y < dh / 2; ++y) {
    const int srcRow = static_cast<int>(y * vstep);
    for (int x = 0; x < dw / 2; ++x) {
      dst[y * (dw / 2) + x] = src[static_cast<long long>(srcRow * (sw / 2) + x * hstep)];
    }
  }
}

// Single-precision rounding through a volatile float: GCC 12 can vectorize
// neighbouring double-to-float-to-double conversions and then fold the round
// trip away, which would make the yardstick itself skip the rounding.
inline double ToSingle(double x) {
  volatile float f = static_cast<float>(x);
  return f;
}

inline void ReferenceResample(int sw, int sh, int dw, int dh, const BYTE* src, BYTE* dst) {
  if (dw <= 0 || dh <= 0) return;
  const double hratio = ToSingle(static_cast<double>(sw) / dw);
  const double vratio = ToSingle(static_cast<double>(sh) / dh);
  for (int j = 0; j < dh; ++j) {
    const double fy = j * vratio;
    const int y0 = static_cast<int>(fy);
    const int y1 = std::min(y0 + 1, sh - 1);
    const double wy = ToSingle(fy - y0);
    for (int i = 0; i < dw; ++i) {
      const double fx = i * hratio;
      const int x0 = static_cast<int>(fx);
      const int x1 = std::min(x0 + 1, sw - 1);
      const double wx = fx - x0;
      const BYTE* p00 = src + 3 * (static_cast<long long>(y0) * sw + x0);
      const BYTE* p01 = src + 3 * (static_cast<long long>(y0) * sw + x1);
      const BYTE* p10 = src + 3 * (static_cast<long long>(y1) * sw + x0);
      const BYTE* p11 = src + 3 * (static_cast<long long>(y1) * sw + x1);
      for (int c = 0; c < 3; ++c) {
        const double v = (p01[c] * (1 - wy) + p11[c] * wy) * wx + (p00[c] * (1 - wy) + p10[c] * wy) * (1 - wx);
        dst[3 * (static_cast<long long>(j) * dw + i) + c] = static_cast<BYTE>(static_cast<int>(v));
      }
    }
  }
}

}  // namespace dravix::test
