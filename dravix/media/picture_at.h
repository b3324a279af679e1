// The picture a recording shows at a moment: what a timeline or `dravix
// frame` displays.
//
// The picture is that of the last video record at or before the moment.
// For MJPEG it is the record's own JPEG bytes; for H.263 the records from
// the key record at or before it are decoded up to it. The records are
// walked from the data offset under the check's validity rules and the walk
// stops at the first invalid or incomplete record, so a damaged file, or
// one still being written, shows what it holds up to there. Reads only.
#pragma once

#include "dravix/media/picture.h"

#include <cstdint>
#include <string>
#include <vector>

namespace dravix::media {

struct PictureAtMoment {
  int codec = 0;              // kCodecH263 or kCodecMJPEG
  uint32_t timeMs = 0;        // the record's time from the file's start time
  uint64_t frame = 0;         // ordinal of the video record, from 0
  std::vector<uint8_t> jpeg;  // MJPEG: the record's payload, as stored
  Picture picture;            // decoded (always for H.263; for MJPEG when asked)
};

// `fileTime` is a FILETIME on the recording's clock. False with `error`
// when the file is not a readable recording with a video stream of one of
// the two codecs, when the moment lies before its first picture or more
// than a second after its last, or when a picture cannot be decoded.
bool FindPictureAt(const char* path, int64_t fileTime, bool decodeMjpeg, PictureAtMoment* out, std::string* error);

}  // namespace dravix::media
