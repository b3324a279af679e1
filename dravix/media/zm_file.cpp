// The readers and the check.
//
// GetZMFileEndTime and ZCheckZMFile walk every record of a file, so they
// share the 256 KiB read window of zm_record_walk.h rather than reading
// record by record (end time) or mapping the file (check): the window gives
// the same bytes at about the speed of a plain read() loop, while touching a
// mapping page by page costs several times more in page-table work. Both
// keep the results of the record-by-record reading and of the mapped walk.
#include "dravix/media/zm_file.h"

#include "dravix/base/ztime.h"
#include "dravix/media/zm_check.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_header_reader.h"
#include "dravix/media/zm_record_walk.h"
#include "dravix/platform/file_io.h"

#include <cstring>
#include <string>

using dravix::platform::File;

namespace dravix::media {
namespace {

bool PathFits(const char* path) { return std::strlen(path) <= kZMMaxNarrowPath; }

// Whether the file holds `end` bytes, looking again at a file that grows.
bool FileReaches(const File& file, int64_t* knownSize, uint64_t end) {
  if (static_cast<int64_t>(end) >= 0 && static_cast<int64_t>(end) <= *knownSize) return true;
  *knownSize = file.Size();
  return static_cast<int64_t>(end) >= 0 && static_cast<int64_t>(end) <= *knownSize;
}

// The end-time function's index scan: the recording "stands at" the offset
// of the last entry. A short final read keeps the bytes of the entry before
// it beyond what was read. Returns false when an offset cannot be sought.
bool LastIndexOffset(const std::string& indexPath, int64_t* position) {
  File index;
  if (!index.OpenRead(indexPath.c_str())) return true;  // no index: stay put
  ZMReadWindow window(index, 4 << 10);                  // a sparse index is small
  uint8_t entry[kZMIndexEntrySize] = {};
  uint64_t pos = kZMIndexHeaderSize;
  for (;;) {
    const uint8_t* p = nullptr;
    const int64_t n = window.Get(pos, kZMIndexEntrySize, &p);
    if (n <= 0) return true;
    const size_t got = n < kZMIndexEntrySize ? static_cast<size_t>(n) : kZMIndexEntrySize;
    std::memcpy(entry, p, got);
    const auto offset = static_cast<int64_t>(LoadLE<uint64_t>(entry + 8));
    if (offset < 0) return false;
    *position = offset;
    pos += got;
  }
}

}  // namespace
}  // namespace dravix::media

using namespace dravix::media;

HRESULT GetZMFileStartTime(const char* path, FILETIME* start) {
  if (path == nullptr || start == nullptr) return E_POINTER;
  if (!PathFits(path)) return E_FAIL;
  ZMHeaderReader reader;
  File file;
  if (FAILED(reader.Open(path, &file, true))) return E_FAIL;
  ZMRecordHead h;
  if (!reader.FirstRecordHead(&h)) {
    uint8_t head[kZMRecordHeadSize];
    if (file.PRead(head, sizeof head, kZMDefaultDataOffset) != kZMRecordHeadSize) return E_FAIL;
    h = ParseRecordHead(head);
  }
  if (h.length == 0) return E_FAIL;
  *start = Int64ToFileTime(WrapAdd(reader.header().StartTime(), static_cast<int64_t>(h.time) * kTicksPerMs));
  return S_OK;
}

namespace dravix::media {

HRESULT WalkZMFileTail(const char* path, ZMFileTail* out) {
  if (path == nullptr || out == nullptr) return E_POINTER;
  *out = ZMFileTail{};
  if (!PathFits(path)) return E_FAIL;
  ZMHeaderReader reader;
  File file;
  if (FAILED(reader.Open(path, &file, true))) return E_FAIL;
  return WalkZMFileTail(path, file, reader.header(), out);
}

HRESULT WalkZMFileTail(const std::string& path, const File& file, const ZMFileHeader& header, ZMFileTail* out) {
  *out = ZMFileTail{};
  const uint64_t dataEnd = header.DataEnd();
  int64_t pos = kZMDefaultDataOffset;
  const std::string indexPath = IndexNameLastDot(path);
  if (!indexPath.empty() && !LastIndexOffset(indexPath, &pos)) return E_FAIL;

  // The walk covers the records after the last index entry and needs only
  // their heads: a small window copies little of the payloads it passes.
  ZMReadWindow window(file, 16 << 10);
  window.StopAt(dataEnd);
  int64_t knownSize = file.Size();
  uint32_t lastTime = 0;
  for (;;) {
    out->end = WrapAdd(header.StartTime(), static_cast<int64_t>(lastTime) * kTicksPerMs);
    out->fileSize = knownSize;
    if (static_cast<uint64_t>(pos) >= dataEnd) {
      out->whole = true;
      return S_OK;
    }
    ZMRecordAt r;
    if (LoadRecordAt(window, static_cast<uint64_t>(pos), &r) != 1) return S_OK;
    if (r.head.length == 0) return S_OK;
    const uint64_t next = static_cast<uint64_t>(pos) + r.head.Size();
    if (!FileReaches(file, &knownSize, next)) return S_OK;  // the payload read would come up short
    lastTime = r.head.time;
    ++out->records;
    pos = static_cast<int64_t>(next);
  }
}

}  // namespace dravix::media

HRESULT GetZMFileEndTime(const char* path, FILETIME* end) {
  if (path == nullptr || end == nullptr) return E_POINTER;
  ZMFileTail tail;
  if (FAILED(WalkZMFileTail(path, &tail)) || !tail.whole) return E_FAIL;
  *end = Int64ToFileTime(tail.end);
  return S_OK;
}

int GetVideoData(const char* path, SYSTEMTIME* start, __int64* duration, int* codec, int* sizeCode) {
  if (path == nullptr || start == nullptr || duration == nullptr || codec == nullptr || sizeCode == nullptr) return 0;
  ZMHeaderReader reader;
  File file;
  if (FAILED(reader.Open(path, &file, false)) || reader.streams().empty()) return 0;
  const ZMFileHeader& h = reader.header();
  SYSTEMTIME st{};
  if (!FileTimeToSystemTime(Int64ToFileTime(WrapAdd(h.StartTime(), h.LeadIn())), &st)) return 0;
  *start = st;
  *duration = h.Duration();
  const ZMStreamEntry& s = reader.streams().front();
  if (s.Subtype() == kSubtypeH263) *codec = kCodecH263;
  if (s.Subtype() == kSubtypeMJPEG) *codec = kCodecMJPEG;
  if (s.FormatType() == kFormatVideoInfo && s.format.size() >= kVihHeight + 4) {
    const int code =
        PictureSizeCode(LoadLE<int32_t>(s.format.data() + kVihWidth), LoadLE<int32_t>(s.format.data() + kVihHeight));
    if (code >= 0) *sizeCode = code;
  }
  return 1;
}

HRESULT ZMergeAVI::GetZMFileTime(const char* path, __int64* length) {
  if (path == nullptr || length == nullptr) return E_POINTER;
  ZMHeaderReader reader;
  File file;
  const HRESULT hr = reader.Open(path, &file, true);
  if (FAILED(hr)) return hr;
  const int64_t duration = reader.header().Duration();
  const int64_t leadIn = reader.header().LeadIn();
  *length = duration > leadIn ? WrapSub(duration, leadIn) : duration;
  return S_OK;
}

HRESULT ZCheckZMFile(const char* path, __int64* endZMTime) {
  if (path == nullptr) return S_OK;
  ZMCheckPlan plan;
  ApplyZMCheck(path, &plan);
  if (plan.checked && endZMTime != nullptr) *endZMTime = plan.endZMTime;
  return S_OK;
}
