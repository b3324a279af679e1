// PictureDecoder: a recording's video records back to pictures.
//
// Feed it the payloads of one video stream in record order, starting at a
// key record (any MJPEG record; an H.263 record with flag 1). Each payload
// gives at most one picture; neither codec holds pictures back, so a
// picture comes out for the record that carried it. A damaged payload is
// an error for that record only: decoding can go on with the next one.
//
// Not thread-safe; not copyable or movable.
#pragma once

#include "dravix/media/picture.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace dravix::media {

class PictureDecoder {
 public:
  PictureDecoder();
  ~PictureDecoder();
  PictureDecoder(const PictureDecoder&) = delete;
  PictureDecoder& operator=(const PictureDecoder&) = delete;

  // kCodecH263 (baseline and H.263+) or kCodecMJPEG.
  bool Open(int codec, std::string* error);

  // Decodes one payload. True when it was accepted; `*got` says whether a
  // picture came out (in `picture`, range as the codec gives it: full for
  // MJPEG, video range for H.263). An odd width or height loses its last
  // column or row.
  bool Decode(const uint8_t* data, size_t size, Picture* picture, bool* got, std::string* error);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace dravix::media
