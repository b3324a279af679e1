#include "dravix/recorder/recycler.h"

#include "dravix/base/ztime.h"
#include "dravix/log/ilog.h"
#include "dravix/media/folder_scan.h"
#include "dravix/media/recording_name.h"
#include "dravix/media/zm_record_walk.h"
#include "dravix/platform/files.h"
#include "dravix/recorder/record_events.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

namespace dravix::recorder {
namespace {

namespace fs = std::filesystem;

// The free bytes of the folder's disk; nothing when they cannot be had.
std::optional<uint64_t> FreeBytes(const std::string& folder) {
  platform::DiskSpace space{};
  if (!platform::QueryDiskSpace(folder, &space)) return std::nullopt;
  return space.freeToCaller;
}

}  // namespace

RecycleResult RecycleOldest(const std::string& folder, uint64_t needFree,
                            const std::function<bool(const std::string& path)>& isHeld,
                            const std::function<uint64_t(const std::string& folder)>& freeSpace) {
  // Free space that cannot be read stops the recycling: read as none, it
  // would delete every recording not held.
  RecycleResult r;
  const auto measure = [&] {
    const std::optional<uint64_t> free = freeSpace ? freeSpace(folder) : FreeBytes(folder);
    if (!free) r.error = "cannot read the free space of the disk of " + folder + "; nothing more is recycled";
    r.freeAfter = free.value_or(0);
    return free.has_value();
  };
  if (!measure() || r.freeAfter >= needFree) return r;

  // The candidates, oldest start first (the names tell the start).
  std::vector<std::pair<std::string, std::string>> files;  // sortable start, path
  std::error_code ec;
  for (fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec), end;
       !ec && it != end; it.increment(ec)) {
    media::RecordingName name;
    if (!it->is_regular_file() || !media::ParseRecordingPath(it->path().string(), &name)) continue;
    files.emplace_back(FormatSTTIME(name.start), it->path().string());
  }
  std::sort(files.begin(), files.end());

  for (const auto& [start, path] : files) {
    if (r.freeAfter >= needFree) return r;
    if (isHeld && isHeld(path)) continue;
    const media::ZMScannedFile seen = media::ScanRecording(path, {});
    const std::string index = media::IndexNameLastDot(path);
    if (!platform::DeleteFileAt(path)) continue;  // gone meanwhile, or not ours to delete
    platform::DeleteFileAt(index);
    IRecycleLog::Instance()->Write(
        RecycledLine(seen.cameraNumber, media::LocalFileTimeNow(), seen.start, seen.end, path).c_str());
    r.deleted.push_back(path);
    if (!measure()) return r;
  }
  if (r.freeAfter < needFree)
    r.error = "only " + std::to_string(r.freeAfter) + " bytes free on the disk of " + folder + " after recycling " +
              std::to_string(r.deleted.size()) + " recordings; the rest are held open or cannot be deleted";
  return r;
}

}  // namespace dravix::recorder
