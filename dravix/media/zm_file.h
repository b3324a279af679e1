// Questions about one recording file: when it starts and ends, how long it
// is, what it carries, and the check that repairs it after a crash.
//
// Paths: the recorder's interface took 16-bit wide paths for the start and
// end times and the length. Here every path is the platform's own narrow
// path, UTF-8 on Linux, passed through unchanged. The old conversion
// buffers still bound the path length: a path of 520 bytes or more cannot
// be converted for GetZMFileStartTime and GetZMFileEndTime (E_FAIL).
//
// Readers open files shared and never modify them; ZCheckZMFile needs the
// file to itself (see zm_format.h for the layout and file_io.h for how
// sharing is enforced). No function keeps state between calls.
#pragma once

#include "dravix/media/zm_format.h"
#include "dravix/platform/file_io.h"
#include "dravix/platform/wintypes.h"

#include <string>

namespace dravix::media {
// Longest path (in bytes, excluding the terminator) the start and end times accept.
inline constexpr size_t kZMMaxNarrowPath = 519;
}  // namespace dravix::media

// Start time + time of the first data record (read at byte 4096, whatever
// the header's data offset says). S_OK; E_POINTER for a null argument;
// E_FAIL when the file cannot be read, its header is bad, or the first
// record's head is short or has payload length 0.
HRESULT GetZMFileStartTime(const char* path, FILETIME* start);

// Start time + time of the last record before the end of the data area.
// The walk begins at the last entry of "path-up-to-its-last-dot.idx" (at
// byte 4096 without an index) and reads every record after it. E_POINTER,
// or E_FAIL for an unreadable file or header, an index entry whose offset
// cannot be sought, a short head, a payload length of 0 or a payload cut
// off by the end of the file.
HRESULT GetZMFileEndTime(const char* path, FILETIME* end);

namespace dravix::media {
// The walk behind GetZMFileEndTime, with what it found when it stops short.
struct ZMFileTail {
  int64_t end = 0;        // start + time of the last whole record walked (FILETIME ticks)
  uint64_t records = 0;   // whole records walked after the index's last entry
  bool whole = false;     // the walk reached the end of the data area
  int64_t fileSize = -1;  // the file's size as last seen by the walk
};
// S_OK with `*out` filled, also when the records stop before the end of the
// data (a head cut off, a payload length of 0, a payload past the end of
// the file: then `whole` is false). E_POINTER, or E_FAIL when the file, its
// header or an index offset cannot be read.
HRESULT WalkZMFileTail(const char* path, ZMFileTail* out);
// The same on a recording already open, with its header read.
HRESULT WalkZMFileTail(const std::string& path, const platform::File& file, const ZMFileHeader& header,
                       ZMFileTail* out);
}  // namespace dravix::media

// Video description from the header: the calendar form of start + lead-in,
// the duration, the codec code (0 H.263, 1 MJPEG; otherwise left as the
// caller set it) and the picture-size code (0..6, from a VIDEOINFOHEADER;
// any other size leaves it as set). 1 on success, 0 on any failure.
int GetVideoData(const char* path, SYSTEMTIME* start, __int64* duration, int* codec, int* sizeCode);

// Checks the recording and repairs it in place: a damaged or incomplete
// tail is cut from the header's data length (the last whole record goes
// with it) and the duration set to that record's time; an index entry that
// does not point at a record head is cut with everything after it.
// `*endZMTime` receives start + time of the record before the last whole
// one, as a ZM time. Always S_OK. A file that cannot be opened exclusively
// (still being written, or being read) is left untouched and `*endZMTime`
// is not written.
HRESULT ZCheckZMFile(const char* path, __int64* endZMTime);

// Merging recordings into AVI files; only the length query lives here.
class ZMergeAVI {
 public:
  // The file's length in 100 ns units: duration - lead-in when the
  // duration is greater, else the duration. E_POINTER, or the header
  // reader's code (E_FAIL, E_UNEXPECTED, E_OUTOFMEMORY).
  static HRESULT GetZMFileTime(const char* path, __int64* length);
};
