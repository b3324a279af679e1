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
#include <system_error>
#include <utility>

namespace dravix::recorder {
namespace {

namespace fs = std::filesystem;

uint64_t FreeBytes(const std::string& folder) {
  platform::DiskSpace space{};
  return platform::QueryDiskSpace(folder, &space) ? space.freeToCaller : 0;
}

}  // namespace

RecycleResult RecycleOldest(const std::string& folder, uint64_t needFree,
                            const std::function<bool(const std::string& path)>& isHeld,
                            const std::function<uint64_t(const std::string& folder)>& freeSpace) {
  const auto freeBytes = [&] { return freeSpace ? freeSpace(folder) : FreeBytes(folder); };
  RecycleResult r;
  r.freeAfter = freeBytes();
  if (r.freeAfter >= needFree) return r;

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
    r.freeAfter = freeBytes();
  }
  if (r.freeAfter < needFree)
    r.error = "only " + std::to_string(r.freeAfter) + " bytes free on the disk of " + folder + " after recycling " +
              std::to_string(r.deleted.size()) + " recordings; the rest are held open or cannot be deleted";
  return r;
}

}  // namespace dravix::recorder
