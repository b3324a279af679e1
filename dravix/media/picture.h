// Picture: one uncompressed video picture in planar YUV 4:2:0, the form the
// encoders take, the decoders give and the imaging scalers work on.
//
// Planes are tightly packed (no row padding): luma width x height bytes,
// each chroma plane (width / 2) x (height / 2) bytes, the layout
// Y_downsample and UV_downsample expect. Width and height are even.
// `fullRange` tells which luma range the samples use: 0..255 (JPEG) or
// 16..235 (video). Copyable and movable.
#pragma once

#include <cstdint>
#include <vector>

namespace dravix::media {

struct Picture {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> y;
  std::vector<uint8_t> u;
  std::vector<uint8_t> v;
  bool fullRange = false;
  int64_t timeMs = 0;  // time from the source's first picture

  // Sizes the planes for a `width` x `height` picture (odd sizes are rounded
  // down to even); the sample values are left as they were or zero.
  void Resize(int width, int height);
  int ChromaWidth() const { return width / 2; }
  int ChromaHeight() const { return height / 2; }
};

}  // namespace dravix::media
