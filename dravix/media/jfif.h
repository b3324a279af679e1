// JFIF marking of JPEG pictures.
//
// A recording's MJPEG records must begin FF D8 FF E0: the picture start
// followed by a JFIF APP0 segment. Encoders and cameras often give plain
// JPEG (FF D8 then a comment, quantisation tables or an Adobe/Exif APPn);
// such a picture gets a JFIF APP0 segment inserted right after FF D8. The
// segment says version 1.01, no density unit, aspect 1:1, no thumbnail,
// which every decoder reads as "plain YCbCr JPEG".
#pragma once

#include <cstdint>
#include <vector>

namespace dravix::media {

// The 18 bytes inserted: FF E0, length 16, "JFIF\0", 1.01, units 0,
// density 1x1, thumbnail 0x0.
inline constexpr uint8_t kJfifApp0[18] = {0xFF, 0xE0, 0x00, 0x10, 'J',  'F',  'I',  'F',  0x00,
                                          0x01, 0x01, 0x00, 0x00, 0x01, 0x00, 0x01, 0x00, 0x00};

// Makes `jpeg` begin FF D8 FF E0. Returns false (and leaves it alone) when
// it does not begin with the JPEG picture start FF D8 FF; true when it
// already had an APP0 segment first or one was inserted.
bool EnsureJfifApp0(std::vector<uint8_t>* jpeg);

}  // namespace dravix::media
