// Conversions of a Picture for output: another luma range, or packed RGB.
// Both run through libswscale (no size change).
#pragma once

#include "dravix/media/picture.h"

#include <cstdint>
#include <string>
#include <vector>

namespace dravix::media {

// `out` = `in` in the luma range `fullRange` (a copy when it already is).
bool ConvertPictureRange(const Picture& in, bool fullRange, Picture* out, std::string* error);

// Packed 8-bit RGB, width x height x 3 bytes, rows top to bottom (BT.601).
bool PictureToRgb(const Picture& in, std::vector<uint8_t>* rgb, std::string* error);

}  // namespace dravix::media
