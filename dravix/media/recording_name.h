// Where the recorder puts a camera's recordings, and reading camera, day
// and start back from such a path:
//   <record folder>/<YYYY-MM-DD>/cam<NN>/<hhmmssmmm>-<NN>.dat   (+ ".idx")
// NN is the camera number from 01, hhmmssmmm the local hour, minute, second
// and millisecond of the first picture. Names sort by time within a folder,
// and the 16-character name keeps open files apart in the live-file
// registry, which keeps 16 bytes of a title.
#pragma once

#include "dravix/platform/wintypes.h"

#include <cstdint>
#include <string>

namespace dravix::media {

// Camera, day and start read back from a recording's path.
struct RecordingName {
  int camera = 0;
  SYSTEMTIME start{};
};

// Now as a FILETIME on the local wall clock, the clock of the names (its
// second from platform::Now() while a test clock is set).
int64_t LocalFileTimeNow();

// The path of camera `camera`'s file starting at `localFileTime` (FILETIME
// on the local wall clock).
std::string RecordingPath(const std::string& folder, int camera, int64_t localFileTime);
// False when `path` does not end in "<YYYY-MM-DD>/cam<NN>/<hhmmssmmm>-<NN>.dat"
// with matching camera numbers.
bool ParseRecordingPath(const std::string& path, RecordingName* out);

}  // namespace dravix::media
