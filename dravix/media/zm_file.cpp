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
  ZMReadWindow window(index);
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
  uint8_t head[kZMRecordHeadSize];
  if (file.PRead(head, sizeof head, kZMDefaultDataOffset) != kZMRecordHeadSize) return E_FAIL;
  const ZMRecordHead h = ParseRecordHead(head);
  if (h.length == 0) return E_FAIL;
  *start = Int64ToFileTime(WrapAdd(reader.header().StartTime(), static_cast<int64_t>(h.time) * kTicksPerMs));
  return S_OK;
}

HRESULT GetZMFileEndTime(const char* path, FILETIME* end) {
  if (path == nullptr || end == nullptr) return E_POINTER;
  if (!PathFits(path)) return E_FAIL;
  ZMHeaderReader reader;
  File file;
  if (FAILED(reader.Open(path, &file, true))) return E_FAIL;
  const uint64_t dataEnd = reader.header().DataEnd();

  int64_t pos = kZMDefaultDataOffset;
  const std::string indexPath = IndexNameLastDot(path);
  if (!indexPath.empty() && !LastIndexOffset(indexPath, &pos)) return E_FAIL;

  ZMReadWindow window(file);
  int64_t knownSize = file.Size();
  uint32_t lastTime = 0;
  for (;;) {
    if (static_cast<uint64_t>(pos) >= dataEnd) {
      *end = Int64ToFileTime(WrapAdd(reader.header().StartTime(), static_cast<int64_t>(lastTime) * kTicksPerMs));
      return S_OK;
    }
    ZMRecordAt r;
    if (LoadRecordAt(window, static_cast<uint64_t>(pos), &r) != 1) return E_FAIL;
    if (r.head.length == 0) return E_FAIL;
    lastTime = r.head.time;
    const uint64_t next = static_cast<uint64_t>(pos) + r.head.Size();
    if (!FileReaches(file, &knownSize, next)) return E_FAIL;  // the payload read would come up short
    pos = static_cast<int64_t>(next);
  }
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
    const int code = PictureSizeCode(LoadLE<int32_t>(s.format.data() + kVihWidth),
                                     LoadLE<int32_t>(s.format.data() + kVihHeight));
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

// The check. It reads the header bytes itself (not through the header
// reader: only the magic and the first stream's types matter here), walks
// the records judging each one, trims a bad tail from the header and cuts
// the index where it stops pointing at record heads.
HRESULT ZCheckZMFile(const char* path, __int64* endZMTime) {
  if (path == nullptr) return S_OK;
  File file;
  if (!file.OpenExclusive(path)) return S_OK;
  const int64_t size = file.Size();
  ZMFileHeader header;
  if (size < kZMHeaderSize || file.PRead(header.bytes, kZMHeaderSize, 0) != kZMHeaderSize) return S_OK;
  if (!header.HasMagic()) return S_OK;  // E_UNEXPECTED, no change

  const int64_t durationMs = header.Duration() / kTicksPerMs;
  const uint32_t dataOffset = header.DataOffset();
  // Usable bytes: the data length, capped by what the file holds, both taken
  // as signed 32-bit values as the recorder stores them.
  int32_t usable = static_cast<int32_t>(static_cast<uint32_t>(header.DataLength()));
  const auto inFile = static_cast<int32_t>(static_cast<uint32_t>(size - static_cast<int64_t>(dataOffset)));
  // A data length the file does not hold is an incomplete tail as much as a
  // damaged record is, even when the file ends exactly between two records
  // (the usual shape of a crash): it gets the same repair.
  const bool shortFile = usable > inFile && inFile >= 0;
  if (usable > inFile) usable = inFile;

  ZMRecordRules rules;
  rules.streamCount = header.StreamCount();
  rules.durationMs = durationMs;
  uint8_t stream0[kStrSubtype + 16] = {};
  if (file.PRead(stream0, sizeof stream0, kZMHeaderSize) == static_cast<int64_t>(sizeof stream0) &&
      std::memcmp(stream0 + kStrMajorType, "vids", 4) == 0) {
    rules.videoStream = 0;
    rules.picture = PictureCheckFor(LoadGuid(stream0 + kStrSubtype));
  }

  ZMReadWindow window(file);
  const int64_t end = static_cast<int64_t>(dataOffset) + (usable > 0 ? usable : 0);
  int64_t pos = dataOffset;
  int64_t last = dataOffset;
  uint32_t lastTime = 0, beforeLastTime = 0;
  int64_t valid = 0, videoCount = 0;
  while (end - pos >= kZMRecordHeadSize) {
    ZMRecordAt r;
    if (LoadRecordAt(window, static_cast<uint64_t>(pos), &r) != 1) break;
    if (!IsValidRecord(r.head, r.payload, r.payloadBytes, rules)) break;
    if (static_cast<uint64_t>(pos) + r.head.Size() > static_cast<uint64_t>(end)) break;
    // The record before the last valid one (the first itself while only one is valid).
    beforeLastTime = valid == 0 ? r.head.time : lastTime;
    last = pos;
    lastTime = r.head.time;
    ++valid;
    if (rules.videoStream == 0 && r.head.stream == 0) ++videoCount;
    pos += static_cast<int64_t>(r.head.Size());
  }
  if (valid == 0) {
    // No valid record: both stand at the data offset, with whatever time
    // the bytes there hold.
    ZMRecordAt r;
    if (LoadRecordAt(window, dataOffset, &r) == 1) lastTime = beforeLastTime = r.head.time;
  }

  if (endZMTime != nullptr) {
    SYSTEMTIME st{};
    FileTimeToSystemTime(
        Int64ToFileTime(WrapAdd(header.StartTime(), static_cast<int64_t>(beforeLastTime) * kTicksPerMs)), &st);
    *endZMTime = SysTimeToZMTime(st);
  }

  const bool repaired = end - pos > 0 || shortFile;
  if (repaired) {
    // A damaged or incomplete tail: the last valid record goes too.
    header.SetDataLength(static_cast<uint32_t>(last - static_cast<int64_t>(dataOffset)));
    header.SetDuration(static_cast<int64_t>(lastTime) * kTicksPerMs);
    file.PWrite(header.bytes, kZMHeaderSize, 0);
    const uint8_t* p = nullptr;
    if (rules.videoStream == 0 && end - pos > 0 && window.Get(static_cast<uint64_t>(pos), 1, &p) >= 1 && p[0] == 0)
      --videoCount;
  }

  // The index, up to the last valid record.
  File index;
  const std::string indexPath = IndexNameLastDotOrAppend(path);
  if (!index.OpenExclusive(indexPath.c_str())) return S_OK;
  int64_t indexSize = index.Size();
  if (indexSize < kZMIndexHeaderSize + kZMIndexEntrySize) return S_OK;
  ZMReadWindow entries(index);
  if (repaired) {
    // Entries for the dropped tail would send the end-time scan past the new
    // end of data (it would then report the start as the end): they go. On
    // an intact file the walk below stops at them without change.
    for (int64_t at = kZMIndexHeaderSize; at + kZMIndexEntrySize <= indexSize; at += kZMIndexEntrySize) {
      const uint8_t* p = nullptr;
      if (entries.Get(static_cast<uint64_t>(at), kZMIndexEntrySize, &p) < kZMIndexEntrySize) break;
      if (ParseIndexEntry(p).offset >= static_cast<uint64_t>(last)) {
        index.Truncate(at);
        indexSize = at;
        break;
      }
    }
  }
  int64_t baseFrame = 0;
  for (int64_t at = kZMIndexHeaderSize; at + kZMIndexEntrySize <= indexSize; at += kZMIndexEntrySize) {
    const uint8_t* p = nullptr;
    if (entries.Get(static_cast<uint64_t>(at), kZMIndexEntrySize, &p) < kZMIndexEntrySize) break;
    const ZMIndexEntry e = ParseIndexEntry(p);
    if (at == kZMIndexHeaderSize) baseFrame = e.frame;
    if (e.time >= lastTime) break;
    if (static_cast<int64_t>(e.frame) >= videoCount - baseFrame) break;
    if (e.offset >= static_cast<uint64_t>(last)) break;
    ZMRecordAt target;
    if (LoadRecordAt(window, e.offset, &target) != 1 || !IsPlausibleHead(target.head, rules.streamCount)) {
      index.Truncate(at);
      break;
    }
  }
  return S_OK;
}
