// Synthetic recordings: plausible H.263 or MJPEG frames (right picture
// starts, key frames at a fixed interval, varying sizes) and PCM audio
// blocks, written with ZMRecordingWriter. For the demo, the test fixtures,
// the fuzz seeds and the benchmarks; the payload bytes are noise.
#pragma once

#include "dravix/platform/wintypes.h"

#include <string>

namespace dravix::media {

struct ZMSampleOptions {
  int64_t startTime = 0;     // FILETIME of the time origin
  uint32_t seconds = 10;     // recording length (ignored when targetBytes is set)
  uint64_t targetBytes = 0;  // stop once the data area reaches this size
  int codec = 0;             // kCodecH263 or kCodecMJPEG
  int sizeCode = 2;          // picture-size code 0..6
  uint32_t framesPerSecond = 25;
  uint32_t keyInterval = 25;  // frames from one key frame to the next
  uint32_t meanFrameBytes = 6000;
  bool audio = true;  // 8 kHz 16-bit mono, one block per 100 ms
  int64_t leadIn = 0;
  uint64_t seed = 1;
  bool finish = true;   // false: abandon the file as a crash would
  bool staged = false;  // whole or absent: both files appear only when finished
};

struct ZMSampleStats {
  uint64_t records = 0;
  uint64_t videoRecords = 0;
  uint64_t indexEntries = 0;
  uint64_t dataLength = 0;
  uint32_t lastTime = 0;  // ms
};

// S_OK, or the writer's error (with `error` saying why for a staged file).
HRESULT WriteSampleRecording(const char* path, const ZMSampleOptions& options, ZMSampleStats* stats = nullptr,
                             std::string* error = nullptr);

}  // namespace dravix::media
