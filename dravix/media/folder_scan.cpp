#include "dravix/media/folder_scan.h"

#include "dravix/media/recording_name.h"
#include "dravix/media/zm_file.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_header_reader.h"
#include "dravix/platform/file_io.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace dravix::media {
namespace {

namespace fs = std::filesystem;

// A name (or path) ending in ".dat" or ".zmf", case ignored, with a name
// before it.
bool IsRecordingName(const std::string& path) {
  if (path.size() < 5 || path[path.size() - 5] == '/') return false;
  char ext[5] = {};
  for (int i = 0; i < 4; ++i)
    ext[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(path[path.size() - 4 + i])));
  return std::string_view(ext) == ".dat" || std::string_view(ext) == ".zmf";
}

std::string CameraOf(const std::string& path, int* number) {
  RecordingName name;
  if (ParseRecordingPath(path, &name)) {
    *number = name.camera;
    char text[16];
    std::snprintf(text, sizeof text, "cam%02d", name.camera);
    return text;
  }
  *number = 0;
  const fs::path parent = fs::path(path).parent_path();
  return parent.has_filename() ? parent.filename().string() : parent.string();
}

}  // namespace

const char* ZMScanStateName(ZMScanState state) {
  switch (state) {
    case ZMScanState::kIntact:
      return "intact";
    case ZMScanState::kDamaged:
      return "damaged";
    case ZMScanState::kBeingWritten:
      return "being written";
    case ZMScanState::kUnreadable:
      return "unreadable";
  }
  return "?";
}

ZMScannedFile ScanRecording(const std::string& path, const ZMScanOptions& options) {
  ZMScannedFile f;
  f.path = path;
  f.camera = CameraOf(path, &f.cameraNumber);
  if (options.isBeingWritten && options.isBeingWritten(path)) f.state = ZMScanState::kBeingWritten;

  ZMHeaderReader reader;
  platform::File file;
  if (FAILED(reader.Open(path.c_str(), &file, false))) {
    f.state = ZMScanState::kUnreadable;
    f.why = reader.error().empty() ? "cannot be opened for reading" : reader.error();
    return f;
  }
  if (!reader.streams().empty()) {
    const ZMStreamEntry& s = reader.streams().front();
    if (s.Subtype() == kSubtypeH263) f.codec = "H.263";
    if (s.Subtype() == kSubtypeMJPEG) f.codec = "MJPEG";
    if (s.FormatType() == kFormatVideoInfo && s.format.size() >= kVihHeight + 4) {
      f.width = LoadLE<int32_t>(s.format.data() + kVihWidth);
      f.height = LoadLE<int32_t>(s.format.data() + kVihHeight);
    }
  }

  // The start as GetZMFileStartTime reads it: the first record's time.
  ZMRecordHead first;
  if (!reader.FirstRecordHead(&first)) {
    uint8_t head[kZMRecordHeadSize];
    if (file.PRead(head, sizeof head, kZMDefaultDataOffset) == kZMRecordHeadSize) first = ParseRecordHead(head);
  }
  if (first.length == 0) {
    if (f.state != ZMScanState::kBeingWritten) {
      f.state = ZMScanState::kUnreadable;
      f.why = "no first record at byte " + std::to_string(kZMDefaultDataOffset);
    }
    f.bytes = file.Size();
    return f;
  }
  f.start = WrapAdd(reader.header().StartTime(), static_cast<int64_t>(first.time) * kTicksPerMs);
  const uint64_t claimed = reader.header().DataEnd();
  ZMFileTail tail;
  const bool tailReads = SUCCEEDED(WalkZMFileTail(path, file, reader.header(), &tail));
  f.end = tailReads ? std::max(tail.end, f.start) : f.start;
  f.bytes = tail.fileSize >= 0 ? tail.fileSize : file.Size();
  if (f.state == ZMScanState::kBeingWritten) return f;
  if (claimed > static_cast<uint64_t>(f.bytes)) {
    f.state = ZMScanState::kDamaged;
    f.why = "torn: the header claims data up to byte " + std::to_string(claimed) + ", the file ends at byte " +
            std::to_string(f.bytes);
  } else if (!tailReads || !tail.whole) {
    f.state = ZMScanState::kDamaged;
    f.why = "a record after the index's last entry is cut off or empty";
  }
  return f;
}

bool ScanRecordings(const std::string& folder, const ZMScanOptions& options,
                    const std::function<bool(const ZMScannedFile&)>& visit, std::string* error) {
  std::error_code ec;
  if (!fs::is_directory(folder, ec)) {
    if (error) *error = folder + ": " + (ec ? ec.message() : std::string("not a folder"));
    return false;
  }
  fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec);
  if (ec) {
    if (error) *error = folder + ": " + ec.message();
    return false;
  }
  for (const fs::recursive_directory_iterator end; it != end; it.increment(ec)) {
    const fs::directory_entry& e = *it;
    std::error_code kind;
    if (!IsRecordingName(e.path().native()) || !e.is_regular_file(kind)) continue;
    if (!visit(ScanRecording(e.path().native(), options))) break;
  }
  if (ec) {  // the walk stopped early; what was visited stands
    if (error) *error = folder + ": " + ec.message();
    return false;
  }
  return true;
}

}  // namespace dravix::media
