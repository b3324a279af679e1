#include "dravix/live/picture_scale.h"

#include "dravix/imaging/scale.h"

#include <cstddef>
#include <vector>

namespace dravix::live {

bool ScalePicture(const media::Picture& in, int width, int height, media::Picture* out) {
  const int w = width & ~1, h = height & ~1;
  const int sw = in.width, sh = in.height;
  const size_t lumaIn = static_cast<size_t>(sw > 0 ? sw : 0) * static_cast<size_t>(sh > 0 ? sh : 0);
  if (out == nullptr || out == &in || w <= 0 || h <= 0 || lumaIn == 0 || in.y.size() < lumaIn ||
      in.u.size() < lumaIn / 4 || in.v.size() < lumaIn / 4)
    return false;
  out->Resize(w, h);
  out->fullRange = in.fullRange;
  out->timeMs = in.timeMs;
  if (w <= sw && h <= sh) {
    Y_downsample(in.y.data(), out->y.data(), sw, sh, w, h);
    UV_downsample(in.u.data(), out->u.data(), sw, sh, w, h);
    UV_downsample(in.v.data(), out->v.data(), sw, sh, w, h);
    return true;
  }
  const int cw = sw / 2;
  std::vector<BYTE> packed(lumaIn * 3);
  for (int y = 0; y < sh; ++y) {
    for (int x = 0; x < sw; ++x) {
      const size_t c = static_cast<size_t>(y / 2) * cw + static_cast<size_t>(x / 2);
      BYTE* p = packed.data() + (static_cast<size_t>(y) * sw + x) * 3;
      p[0] = in.y[static_cast<size_t>(y) * sw + x];
      p[1] = in.u[c];
      p[2] = in.v[c];
    }
  }
  std::vector<BYTE> scaled(static_cast<size_t>(w) * h * 3);
  Resample(sw, sh, w, h, packed.data(), scaled.data());
  const int ow = w / 2;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) out->y[static_cast<size_t>(y) * w + x] = scaled[(static_cast<size_t>(y) * w + x) * 3];
  for (int y = 0; y < h / 2; ++y) {
    for (int x = 0; x < ow; ++x) {
      const BYTE* a = scaled.data() + (static_cast<size_t>(2 * y) * w + 2 * x) * 3;
      const BYTE* b = a + static_cast<size_t>(w) * 3;
      out->u[static_cast<size_t>(y) * ow + x] = static_cast<uint8_t>((a[1] + a[4] + b[1] + b[4] + 2) / 4);
      out->v[static_cast<size_t>(y) * ow + x] = static_cast<uint8_t>((a[2] + a[5] + b[2] + b[5] + 2) / 4);
    }
  }
  return true;
}

}  // namespace dravix::live
