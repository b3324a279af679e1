// Export of recordings to standard containers that any player opens.
//
// A Matroska output (".mkv") is a stream copy: every video record's payload
// becomes one frame as it is (MJPEG and H.263 are not re-encoded) and the
// audio records become 16-bit PCM. An MP4 output (".mp4") re-encodes the
// video to H.264 (libx264) and the audio to AAC for phones and browsers.
//
// Time stamps come from the record times: the origin is the recording's
// start time plus its lead-in (or "from" when a range is given), moved back
// to the first exported record when that lies earlier, so the output starts
// at 0 and follows the wall clock across several sources (a gap between two
// files stays a gap in the time stamps).
//
// The Matroska output also carries: DateUTC set to the origin's local wall
// clock (the recorder keeps no time zone; a tag says so), the camera's name
// and the text list as tags, a subtitle track with the wall-clock time of
// every second that has pictures, and chapters: one per index entry, one at
// the requested "from" moment, and one at every gap between two sources.
//
// Range: records are selected as a cut selects them, from the first record
// at or after "from" up to, not including, the first record at or after
// "to". A Matroska output starts at the key video record at or before that
// first record (MJPEG records are all key), so its first picture decodes;
// an MP4 output starts exactly at "from".
//
// Damage: each source is read up to its last complete record (a file still
// being written, or torn by a power cut) or up to its first invalid record
// (a damaged file); the sources are only read, never changed, and the
// report says where and why a source was cut short.
//
// The output is written to a nameless file in its folder and appears under
// its name only when complete and readable again (platform::StagedFile); an
// interrupted or failed export leaves the previous file, or nothing.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace dravix::media {

enum class ZMExportFormat { kMatroska, kMP4 };

// The format named by the output's extension (".mkv" or ".mp4", any case).
// False for any other name.
bool ExportFormatFor(const std::string& path, ZMExportFormat* format);

struct ZMExportRequest {
  // Recordings of one camera, in any order: they are exported in time order.
  std::vector<std::string> sources;
  std::string output;
  bool hasRange = false;
  int64_t from = 0;  // FILETIME (local wall clock)
  int64_t to = 0;
  std::vector<std::string> texts;
  // The camera's name for the tags; empty: for a file in the recorder's
  // layout its camera folder ("cam03"), else the first source's file name
  // without folder and extension.
  std::string camera;
  // Called with 0..100 as the work advances; returning false stops the
  // export (the output is then not written).
  std::function<bool(int percent)> progress;
};

enum class ZMExportStatus {
  kOk,           // the output is in place
  kUsage,        // the request itself is wrong (see error)
  kFailed,       // nothing written (see error)
  kInterrupted,  // stopped by the progress callback; nothing written
};

struct ZMExportReport {
  ZMExportStatus status = ZMExportStatus::kFailed;
  std::string error;
  // One line for every source that was cut short (still being written,
  // torn, damaged) or partly skipped; the export went on without the rest.
  std::vector<std::string> notes;
  // True when a source held an invalid record (damage, not just an
  // unfinished tail).
  bool damaged = false;
  uint64_t videoFrames = 0;   // frames written
  uint64_t audioRecords = 0;  // audio records read into the output
  uint64_t chapters = 0;
  uint64_t subtitles = 0;
  int64_t origin = 0;  // FILETIME of time stamp 0
};

ZMExportReport ExportRecordings(const ZMExportRequest& request);

}  // namespace dravix::media
