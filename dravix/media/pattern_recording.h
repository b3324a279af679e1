// Recordings of real video made from a moving test pattern: for
// demonstrations, tests, benchmarks and `dravix write-test-recording`.
//
// Every picture of libavfilter's testsrc2 pattern carries a frame code
// (frame_code.h: the picture's ordinal from 0 and its wall-clock second on
// the recording's clock) and is encoded with VideoEncoder to the codec
// asked for; picture n has the time n * 1000 / fps ms. With `audio` a
// 440 Hz tone goes along as 8 kHz 16-bit mono PCM in 100 ms blocks, each
// placed after the video record of its millisecond.
//
// Both files are staged (ZMRecordingWriter::CreateStaged): the recording
// and its index appear whole when the call succeeds and not at all
// otherwise, also when the process is killed.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace dravix::media {

struct PatternRecordingOptions {
  int64_t startTime = 0;  // FILETIME of the time origin (local wall clock)
  int codec = 0;          // kCodecH263 or kCodecMJPEG
  int width = 640;
  int height = 480;
  uint32_t framesPerSecond = 25;
  uint32_t seconds = 10;  // at least 1
  bool audio = false;
  int mjpegQuality = 70;
  int zmediaQuality = 0;
  // Called after each picture with (pictures done, pictures in all); a
  // false return stops the work (nothing is written).
  std::function<bool(uint64_t, uint64_t)> progress;
};

struct PatternRecordingStats {
  uint64_t records = 0;
  uint64_t videoRecords = 0;
  uint64_t indexEntries = 0;
  uint64_t dataLength = 0;
  bool stopped = false;  // the progress callback stopped it
};

// True when the recording was written; false with `error` saying why
// (nothing written then).
bool WritePatternRecording(const char* path, const PatternRecordingOptions& options, PatternRecordingStats* stats,
                           std::string* error);

}  // namespace dravix::media
