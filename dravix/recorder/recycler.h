// Recycling a record folder: when its disk runs short of free space, the
// oldest recordings go first.
//
// Only files named as the recorder names them (media/recording_name.h) are
// candidates, oldest start first whatever the camera; a file held in the
// live-file registry (being written or played, by any process) is never
// deleted. Each deleted recording (its .dat and .idx) is one line of the
// recycle log (IRecycleLog):
//   Recycle Event : <now> , CameraNN RECYCLED <start> ~ <end> , <path>
// with the times as FormatSTTIME writes them and NN the camera number minus
// one, as in the live log's lines, so a timeline can tell why a span of
// recordings is missing.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace dravix::recorder {

struct RecycleResult {
  std::vector<std::string> deleted;  // the recordings removed, oldest first
  uint64_t freeAfter = 0;            // the disk's free bytes at the end
  std::string error;                 // why the free space could not be reached
};

// Deletes the oldest recordings under `folder` until the disk holding it
// has `needFree` bytes free. `isHeld` says whether a file is held open
// (unset: none is); `freeSpace` gives the disk's free bytes (unset: asked
// of the file system).
RecycleResult RecycleOldest(const std::string& folder, uint64_t needFree,
                            const std::function<bool(const std::string& path)>& isHeld,
                            const std::function<uint64_t(const std::string& folder)>& freeSpace = {});

}  // namespace dravix::recorder
