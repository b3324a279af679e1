// The recorder's own lines in the text logs, written and read back:
//   live log:     Record Event : <time> , CameraNN SOURCE_OFFLINE <why>
//                 Record Event : <time> , CameraNN SOURCE_ONLINE
//                 Record Event : <time> , CameraNN DISK_FULL
//                 Record Event : <time> , CameraNN DISK_OK
//   recycle log:  Recycle Event : <time> , CameraNN RECYCLED <start> ~ <end> , <path>
// Times are written as FormatSTTIME writes them (local wall clock); NN is
// the camera number minus one, as in the schedule's "Schedule Event" lines.
// A timeline reads them back to tell why recordings are missing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace dravix::recorder {

// Times are FILETIME ticks on the local wall clock; cameras count from 1.
std::string SourceOfflineLine(int camera, int64_t at, const std::string& why);
std::string SourceOnlineLine(int camera, int64_t at);
std::string DiskLine(int camera, int64_t at, bool full);
std::string RecycledLine(int camera, int64_t at, int64_t start, int64_t end, const std::string& path);

// A spell without recording: the source offline, or the disk full.
struct SourceOutage {
  int camera = 0;
  int64_t start = 0;
  int64_t end = 0;  // 0 while the log tells no end
  std::string why;
  bool diskFull = false;
};
struct RecycledRecording {
  int camera = 0;
  int64_t start = 0;
  int64_t end = 0;
  std::string path;
};

// The outages and disk-full spells in a live log's text, in order; other
// lines are passed over.
std::vector<SourceOutage> ReadOutages(const std::string& text);
// The recordings a recycle log's text says were deleted.
std::vector<RecycledRecording> ReadRecycled(const std::string& text);

}  // namespace dravix::recorder
