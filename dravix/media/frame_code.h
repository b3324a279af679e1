// A code drawn into a picture so that a test, or a person with a decoder,
// can read back which frame it is and when it was taken, after the picture
// went through a lossy codec.
//
// Layout, in the luma plane, from the top-left corner: four rows of sixteen
// blocks of 8x8 pixels (128x32 pixels, inside the smallest picture size
// 128x96, each block on the 8x8 grid codecs transform, so a block stays
// flat). Rows 0-1 hold the frame number, rows 2-3 the wall-clock time as
// seconds since 1970-01-01 00:00 local time; each a 32-bit number, most
// significant bit first, left to right, top row first. A set bit is a light
// block (luma 235), a clear bit a dark one (luma 16). Reading takes the mean
// of each block's inner 4x4 pixels and compares it with the middle (126), so
// the code survives quantisation and a slightly shifted chroma.
#pragma once

#include <cstdint>

namespace dravix::media {

struct FrameCode {
  uint32_t frame = 0;
  uint32_t seconds = 0;  // wall-clock time of the frame, whole seconds
};

inline constexpr int kFrameCodeWidth = 128;
inline constexpr int kFrameCodeHeight = 32;

// Draws `code` into a luma plane of at least 128x32 pixels. Returns false
// (nothing drawn) when the plane is smaller.
bool DrawFrameCode(uint8_t* luma, int stride, int width, int height, const FrameCode& code);

// Reads a code drawn by DrawFrameCode. Returns false when the plane is
// smaller than 128x32.
bool ReadFrameCode(const uint8_t* luma, int stride, int width, int height, FrameCode* code);

}  // namespace dravix::media
