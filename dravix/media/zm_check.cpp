// The check's walk, shared by the plan (read only) and the repair.
//
// It reads the header bytes itself (not through the header reader: only the
// magic and the first stream's types matter here), walks the records
// judging each one, and works out how the header is trimmed to the valid
// records and where the index stops pointing at record heads. Applying the
// plan is two writes: the header at offset 0 and the index's new length.
#include "dravix/media/zm_check.h"

#include "dravix/base/ztime.h"
#include "dravix/media/zm_record_walk.h"
#include "dravix/platform/file_io.h"

#include <cerrno>
#include <cstring>

namespace dravix::media {
namespace {

using platform::File;

std::string OpenError(const char* path, const char* how) {
  std::string why;
  bool missing = false;
  if (!platform::CheckRegularFile(path, &why, &missing)) return why;
  return std::string("cannot be opened ") + how + ": " + platform::FileErrorText(platform::LastFileError());
}

// The rules a record of this file must keep: its stream count, its length
// in time and, when stream 0 is video, that stream's picture-start test.
ZMRecordRules RulesFor(const File& file, const ZMFileHeader& header) {
  ZMRecordRules rules;
  rules.streamCount = header.StreamCount();
  rules.durationMs = header.Duration() / kTicksPerMs;
  uint8_t stream0[kStrSubtype + 16] = {};
  if (file.PRead(stream0, sizeof stream0, kZMHeaderSize) == static_cast<int64_t>(sizeof stream0) &&
      std::memcmp(stream0 + kStrMajorType, "vids", 4) == 0) {
    rules.videoStream = 0;
    rules.picture = PictureCheckFor(LoadGuid(stream0 + kStrSubtype));
  }
  return rules;
}

// Where the walk over the records from the data offset stopped.
struct WalkEnd {
  int64_t pos = 0;   // the first byte not taken by a valid record
  int64_t last = 0;  // the offset of the last valid record
  uint32_t lastTime = 0;
  uint32_t beforeLastTime = 0;  // the record before the last valid one (the first while only one is)
  int64_t valid = 0;
  int64_t videoCount = 0;  // valid records of the video stream
};

WalkEnd WalkRecords(ZMReadWindow& window, int64_t dataOffset, int64_t end, const ZMRecordRules& rules) {
  WalkEnd w;
  w.pos = w.last = dataOffset;
  while (end - w.pos >= kZMRecordHeadSize) {
    ZMRecordAt r;
    if (LoadRecordAt(window, static_cast<uint64_t>(w.pos), &r) != 1) break;
    if (!IsValidRecord(r.head, r.payload, r.payloadBytes, rules)) break;
    if (static_cast<uint64_t>(w.pos) + r.head.Size() > static_cast<uint64_t>(end)) break;
    w.beforeLastTime = w.valid == 0 ? r.head.time : w.lastTime;
    w.last = w.pos;
    w.lastTime = r.head.time;
    ++w.valid;
    if (rules.videoStream == 0 && r.head.stream == 0) ++w.videoCount;
    w.pos += static_cast<int64_t>(r.head.Size());
  }
  if (w.valid == 0) {
    // No valid record: both stand at the data offset, with whatever time
    // the bytes there hold.
    ZMRecordAt r;
    if (LoadRecordAt(window, static_cast<uint64_t>(dataOffset), &r) == 1) w.lastTime = w.beforeLastTime = r.head.time;
  }
  return w;
}

// The reported end: the start time plus the time of the record before the
// last valid one, as a ZM time.
__int64 EndZMTime(const ZMFileHeader& header, uint32_t beforeLastTime) {
  SYSTEMTIME st{};
  FileTimeToSystemTime(Int64ToFileTime(WrapAdd(header.StartTime(), static_cast<int64_t>(beforeLastTime) * kTicksPerMs)),
                       &st);
  return SysTimeToZMTime(st);
}

// The length the index is cut to, or -1. After a repair, entries for the
// dropped tail go first: they would send the end-time scan past the new end
// of data (it would then report the start as the end). Then the index stops
// at the first entry that no longer leads to a record head.
int64_t IndexCut(ZMReadWindow& window, const File& index, const WalkEnd& w, const ZMRecordRules& rules, bool repaired) {
  int64_t indexSize = index.Size();
  if (indexSize < kZMIndexHeaderSize + kZMIndexEntrySize) return -1;
  ZMReadWindow entries(index);
  auto entryAt = [&entries](int64_t at, ZMIndexEntry* e) {
    const uint8_t* p = nullptr;
    if (entries.Get(static_cast<uint64_t>(at), kZMIndexEntrySize, &p) < kZMIndexEntrySize) return false;
    *e = ParseIndexEntry(p);
    return true;
  };
  int64_t cut = -1;
  ZMIndexEntry e;
  if (repaired) {
    for (int64_t at = kZMIndexHeaderSize; at + kZMIndexEntrySize <= indexSize && entryAt(at, &e);
         at += kZMIndexEntrySize) {
      if (e.offset >= static_cast<uint64_t>(w.last)) {
        cut = indexSize = at;
        break;
      }
    }
  }
  int64_t baseFrame = 0;
  for (int64_t at = kZMIndexHeaderSize; at + kZMIndexEntrySize <= indexSize && entryAt(at, &e);
       at += kZMIndexEntrySize) {
    if (at == kZMIndexHeaderSize) baseFrame = e.frame;
    if (e.time >= w.lastTime) break;
    if (static_cast<int64_t>(e.frame) >= w.videoCount - baseFrame) break;
    if (e.offset >= static_cast<uint64_t>(w.last)) break;
    ZMRecordAt target;
    if (LoadRecordAt(window, e.offset, &target) != 1 || !IsPlausibleHead(target.head, rules.streamCount)) return at;
  }
  return cut;
}

// Fills `plan` from the open recording: header, record walk, end time,
// header repair, index cut. The index is opened with `openIndex`.
template <typename OpenIndex>
HRESULT Walk(const char* path, const File& file, ZMCheckPlan* plan, OpenIndex openIndex, File* index) {
  const int64_t size = file.Size();
  ZMFileHeader header;
  if (size < kZMHeaderSize || file.PRead(header.bytes, kZMHeaderSize, 0) != kZMHeaderSize) {
    plan->notChecked = "shorter than a recording header";
    return E_UNEXPECTED;
  }
  if (!header.HasMagic()) {
    plan->notChecked = "not a recording (no \"ZMFF\" at its start)";
    return E_UNEXPECTED;
  }
  plan->checked = true;
  plan->before = header;

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

  const ZMRecordRules rules = RulesFor(file, header);
  ZMReadWindow window(file);
  const int64_t end = static_cast<int64_t>(dataOffset) + (usable > 0 ? usable : 0);
  WalkEnd w = WalkRecords(window, dataOffset, end, rules);
  plan->validRecords = w.valid;
  plan->endZMTime = EndZMTime(header, w.beforeLastTime);

  const bool repaired = end - w.pos > 0 || shortFile;
  if (repaired) {
    // A damaged or incomplete tail: the last valid record goes too.
    header.SetDataLength(static_cast<uint32_t>(w.last - static_cast<int64_t>(dataOffset)));
    header.SetDuration(static_cast<int64_t>(w.lastTime) * kTicksPerMs);
    const uint8_t* p = nullptr;
    if (rules.videoStream == 0 && end - w.pos > 0 && window.Get(static_cast<uint64_t>(w.pos), 1, &p) >= 1 && p[0] == 0)
      --w.videoCount;
  }
  plan->after = header;

  plan->indexPath = IndexNameLastDotOrAppend(path);
  if (!openIndex(index, plan->indexPath.c_str())) return S_OK;
  plan->indexSize = index->Size();
  plan->indexCutTo = IndexCut(window, *index, w, rules, repaired);
  return S_OK;
}

}  // namespace

bool ZMCheckPlan::RepairsHeader() const {
  return checked && std::memcmp(before.bytes, after.bytes, kZMHeaderSize) != 0;
}

HRESULT PlanZMCheck(const char* path, ZMCheckPlan* plan) {
  if (path == nullptr || plan == nullptr) return E_POINTER;
  *plan = ZMCheckPlan{};
  File file;
  if (!file.OpenRead(path)) {
    plan->notChecked = OpenError(path, "for reading");
    return E_FAIL;
  }
  File index;
  return Walk(
      path, file, plan, [](File* f, const char* p) { return f->OpenRead(p); }, &index);
}

HRESULT ApplyZMCheck(const char* path, ZMCheckPlan* plan, bool strict) {
  if (path == nullptr || plan == nullptr) return E_POINTER;
  *plan = ZMCheckPlan{};
  File file;
  if (!file.OpenExclusive(path)) {
    plan->notChecked = OpenError(path, "exclusively (in use, still being written, or not writable)");
    return E_FAIL;
  }
  File index;
  int indexError = 0;
  const HRESULT hr = Walk(
      path, file, plan,
      [&indexError](File* f, const char* p) {
        if (f->OpenExclusive(p)) return true;
        indexError = platform::LastFileError();
        return false;
      },
      &index);
  if (hr != S_OK) return hr;
  if (strict && indexError != 0 && indexError != ENOENT) {
    plan->writeError = "cannot open the index " + plan->indexPath +
                       " exclusively: " + platform::FileErrorText(indexError) + "; nothing was repaired";
    return E_FAIL;
  }
  // The index first: if the header cannot be written afterwards, the file
  // still shows its damage and the next check repairs it, cutting the index
  // to the same length again. The other order could leave a trimmed header
  // beside an index that points past it, which a check leaves alone.
  if (plan->CutsIndex() && !index.Truncate(plan->indexCutTo)) {
    plan->writeError =
        "cannot cut the index " + plan->indexPath + ": " + platform::FileErrorText(platform::LastFileError());
    return E_FAIL;
  }
  if (plan->RepairsHeader() && !file.PWrite(plan->after.bytes, kZMHeaderSize, 0)) {
    plan->writeError =
        "cannot write the header of " + std::string(path) + ": " + platform::FileErrorText(platform::LastFileError());
    return E_FAIL;
  }
  return S_OK;
}

}  // namespace dravix::media
