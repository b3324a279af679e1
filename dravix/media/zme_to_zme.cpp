// Clip extraction.
//
// The recorder drove a graph of four closed filters (reader, splitter,
// muxer, writer) and watched its position every 200 ms. Here the worker is
// the graph: data records are contiguous, so the cut is one byte range of
// the source, read in 256 KiB pieces and handed to ZMRecordingWriter, which
// follows the record heads through the bytes to build the new index and
// cuts off a trailing partial record. Between pieces the worker publishes
// its position (the copied fraction of the range, scaled onto the time
// range from start to stop) and looks at the stop request.
#include "dravix/media/zme_to_zme.h"

#include "dravix/base/zthread.h"
#include "dravix/base/ztime.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_header_reader.h"
#include "dravix/media/zm_locate.h"
#include "dravix/media/zm_writer.h"
#include "dravix/platform/file_io.h"

#include <cstring>
#include <string>
#include <vector>

using dravix::platform::File;
using namespace dravix::media;

class ZMEtoZMEWorker : public ZThread {
 public:
  explicit ZMEtoZMEWorker(ZMEtoZMEJob* job) : job_(job) {}
  ~ZMEtoZMEWorker() override { Close(); }

 protected:
  DWORD ThreadProc() override { return ZMEtoZME::ConvertZMEToZMEThread(job_); }

 private:
  ZMEtoZMEJob* job_;
};

namespace {

constexpr size_t kGetSizePathLimit = 512;
constexpr int64_t kTextListLimit = 2000;

// The stream records as they are stored, for the new file.
std::vector<uint8_t> EncodeStreams(const ZMHeaderReader& reader) {
  std::vector<uint8_t> out;
  for (const ZMStreamEntry& s : reader.streams()) {
    uint8_t head[kZMStreamHeadSize];
    std::memcpy(head, s.tag, 4);
    StoreLE<uint32_t>(head + 4, s.length);
    out.insert(out.end(), head, head + sizeof head);
    out.insert(out.end(), s.mediaType, s.mediaType + kZMMediaTypeSize);
    out.insert(out.end(), s.format.begin(), s.format.end());
  }
  return out;
}

// The bytes the text list leaves after the stream records. The running
// total is kept exactly as the recorder kept it: the next string is looked
// for at list + total + 1, which finds the second string but lands on the
// NUL ending the second for the third, so at most two strings are stored.
std::vector<uint8_t> TextListBytes(const char* list) {
  std::vector<uint8_t> out;
  if (list != nullptr && list[0] != '\0') {
    int64_t total = 0;
    const char* s = list;
    while (*s != '\0') {
      const auto length = static_cast<int64_t>(std::strlen(s));
      if (total + length >= kTextListLimit) break;
      out.insert(out.end(), s, s + length);
      out.push_back(0);
      total += length;
      s = list + total + 1;
    }
  }
  out.push_back(0);
  return out;
}

// Step 9: the new file's header from the source's, and the text list.
// False when a write failed (not when the header is deliberately left).
bool FinishHeader(const ZMEtoZMEJob& job, int64_t from, uint64_t clipDataLength, int64_t clipDuration) {
  ZMHeaderReader source;
  File sourceFile;
  if (FAILED(source.Open(job.source, &sourceFile, false))) return false;
  ZMFileHeader h = source.header();
  h.SetLeadIn(from > h.StartTime() ? WrapSub(from, h.StartTime()) : 0);
  h.SetDataLength(clipDataLength);
  h.SetDuration(clipDuration);

  File out;
  if (job.owner->m_bStop.load() != 0) return true;
  if (!out.OpenUpdate(job.destination)) return false;
  ZMFileHeader back;
  if (!out.PWrite(h.bytes, kZMHeaderSize, 0) || out.PRead(back.bytes, kZMHeaderSize, 0) != kZMHeaderSize) return false;
  const int64_t at = back.HeaderLength();
  if (at == 0) return true;
  std::vector<uint8_t> text = TextListBytes(job.textList);
  // Never into the data records, whatever the header length claims.
  const int64_t room = static_cast<int64_t>(back.DataOffset()) - at;
  if (room <= 0) return true;
  if (static_cast<int64_t>(text.size()) > room) text.resize(static_cast<size_t>(room));
  return out.PWrite(text.data(), text.size(), at);
}

}  // namespace

// Keeps the worker thread's last file error for the caller; returns `step`.
DWORD KeepError(ZMEtoZME& self, DWORD step) {
  self.m_lastError = dravix::platform::LastFileError();
  return step;
}

DWORD RunClipJob(ZMEtoZMEJob& job) {
  ZMEtoZME& self = *job.owner;
  FILETIME ftFrom{}, ftTo{};
  if (job.from == nullptr || job.to == nullptr || job.source == nullptr || job.destination == nullptr) return 2;
  if (!SystemTimeToFileTime(*job.from, &ftFrom) || !SystemTimeToFileTime(*job.to, &ftTo)) return 2;
  const int64_t from = FileTimeToInt64(ftFrom);
  const int64_t to = FileTimeToInt64(ftTo);

  // The source and the new file ("building the graph").
  ZMHeaderReader source;
  File sourceFile;
  dravix::platform::SetLastFileError(0);
  if (FAILED(source.Open(job.source, &sourceFile, false)) || source.streams().empty()) return KeepError(self, 4);
  ZMMoment first, last;
  if (FAILED(LocateMoment(job.source, from, &first))) return KeepError(self, 5);
  dravix::platform::SetLastFileError(0);
  if (FAILED(LocateMoment(job.source, to, &last))) {
    // The data end before the header says (a recording still being
    // written): take what the file holds. A read that failed is no such
    // end.
    if (dravix::platform::LastFileError() != 0) return KeepError(self, 5);
    last.record = sourceFile.Size();
  }

  const int64_t base = source.header().StartTime();
  const int64_t start = WrapSub(from, base) > 0 ? WrapSub(from, base) : 0;
  const int64_t stop = WrapSub(to, base) > 0 ? WrapSub(to, base) : 0;
  // The position stands at the start from here on; total goes last, so a
  // poller never pairs the new total with a stale position.
  self.m_llCurrent = start;
  self.m_llStart = start;
  self.m_llTotal = WrapSub(to, from);

  ZMRecordingWriter writer;
  self.m_lastError = 0;
  if (FAILED(writer.CreateRaw(job.destination, base, EncodeStreams(source), source.header().StreamCount(),
                              source.header().DataOffset())))
    return KeepError(self, 4);

  const int64_t bytes = last.record > first.record ? WrapSub(last.record, first.record) : 0;
  std::vector<uint8_t> buffer(kZMWalkBuffer);
  int64_t copied = 0;
  bool stopped = false;
  while (copied < bytes) {
    if (self.m_bStop.load() != 0) {
      stopped = true;
      break;
    }
    const int64_t want =
        bytes - copied < static_cast<int64_t>(buffer.size()) ? bytes - copied : static_cast<int64_t>(buffer.size());
    const int64_t n = sourceFile.PRead(buffer.data(), static_cast<size_t>(want), WrapAdd(first.record, copied));
    if (n < 0) {
      writer.Close();
      return KeepError(self, 6);
    }
    if (n == 0) break;  // the source ends early
    if (FAILED(writer.AppendRecordBytes(buffer.data(), static_cast<size_t>(n)))) {
      writer.Close();
      return KeepError(self, 6);
    }
    copied += n;
    self.m_llCurrent = start + static_cast<int64_t>((static_cast<__int128>(stop - start) * copied) / bytes);
  }
  if (!stopped && self.m_bStop.load() != 0) stopped = true;
  const uint64_t clipLength = writer.DataLength();
  const int64_t clipDuration = static_cast<int64_t>(writer.LastTime()) * kTicksPerMs;
  if (FAILED(writer.Close())) return KeepError(self, 7);
  if (stopped) return 0;  // the file stays as written; its header is not finished
  self.m_llCurrent = stop;
  if (!FinishHeader(job, from, clipLength, clipDuration)) return KeepError(self, 9);
  return 0;
}

ZMEtoZME::ZMEtoZME() : m_pJob(std::make_shared<ZMEtoZMEJob>()) {}

ZMEtoZME::~ZMEtoZME() {
  if (m_pWorker && m_pJob && m_pJob->owner == this) {
    if (m_bRunning.load() != 0) m_bStop = 1;
    m_pWorker->Close();
  }
}

ZMEtoZME::ZMEtoZME(const ZMEtoZME& other)
    : m_bSync(other.m_bSync.load()),
      m_bStop(other.m_bStop.load()),
      m_pWorker(other.m_pWorker),
      m_pJob(other.m_pJob),
      m_llCurrent(other.m_llCurrent.load()),
      m_llStart(other.m_llStart.load()),
      m_llTotal(other.m_llTotal.load()),
      m_bRunning(other.m_bRunning.load()),
      m_result(other.m_result.load()),
      m_lastError(other.m_lastError.load()) {}

ZMEtoZME& ZMEtoZME::operator=(const ZMEtoZME& other) {
  if (this == &other) return *this;
  m_bSync = other.m_bSync.load();
  m_bStop = other.m_bStop.load();
  m_pWorker = other.m_pWorker;
  m_pJob = other.m_pJob;
  m_llCurrent = other.m_llCurrent.load();
  m_llStart = other.m_llStart.load();
  m_llTotal = other.m_llTotal.load();
  m_bRunning = other.m_bRunning.load();
  m_result = other.m_result.load();
  m_lastError = other.m_lastError.load();
  return *this;
}

int ZMEtoZME::ConvertZMEToZME(const char* destination, const char* source, const SYSTEMTIME* from, const SYSTEMTIME* to,
                              const char* textList) {
  Wait();  // one job at a time: the parameter block is shared with the worker
  if (!m_pJob || m_pJob->owner != nullptr) m_pJob = std::make_shared<ZMEtoZMEJob>();
  *m_pJob = ZMEtoZMEJob{this, destination, source, from, to, textList};
  m_bRunning = 1;
  m_result = 0;
  m_lastError = 0;
  m_pWorker = std::make_shared<ZMEtoZMEWorker>(m_pJob.get());
  if (!m_pWorker->Create()) {
    m_bRunning = 0;
    return 0;
  }
  if (m_bSync.load() != 0) m_pWorker->Close();
  return 0;
}

void ZMEtoZME::Wait() {
  if (m_pWorker) m_pWorker->Close();
}

DWORD ZMEtoZME::ConvertZMEToZMEThread(void* param) {
  auto* job = static_cast<ZMEtoZMEJob*>(param);
  if (job == nullptr || job->owner == nullptr) return 1;
  ZMEtoZME& self = *job->owner;
  if (self.m_bStop.load() != 0) {
    self.m_bRunning = 0;
    return 1;
  }
  self.m_llCurrent = 0;
  self.m_llTotal = 0;
  const DWORD rc = RunClipJob(*job);
  self.m_result = rc;
  self.m_bRunning = 0;
  return rc;
}

ULONGLONG ZMEtoZME::GetPercent() const {
  const int64_t total = m_llTotal.load();
  if (total == 0) return 0;
  const __int128 done = static_cast<__int128>(m_llCurrent.load()) - m_llStart.load();
  return static_cast<ULONGLONG>(static_cast<int64_t>(static_cast<uint64_t>(done * 100 / total)));
}

int ZMEtoZME::GetSize(const char* path, SYSTEMTIME from, SYSTEMTIME to, __int64* size) {
  if (path == nullptr || size == nullptr || std::strlen(path) >= kGetSizePathLimit) return 0;
  FILETIME ftFrom{}, ftTo{};
  SystemTimeToFileTime(from, &ftFrom);
  SystemTimeToFileTime(to, &ftTo);
  const __int64 tFrom = FileTimeToInt64(ftFrom), tTo = FileTimeToInt64(ftTo);
  __int64 offFrom = 0, offTo = 0;
  TimeToFilePos(path, &tFrom, &offFrom);
  TimeToFilePos(path, &tTo, &offTo);
  *size = WrapSub(offTo, offFrom) > 0 ? WrapSub(offTo, offFrom) : 0;
  return 1;
}

HRESULT ZMEtoZME::TimeToFilePos(const char* path, const __int64* fileTime, __int64* offset) {
  if (path == nullptr || fileTime == nullptr || offset == nullptr) return E_POINTER;
  ZMMoment m;
  const HRESULT hr = LocateMoment(path, *fileTime, &m);
  if (SUCCEEDED(hr)) *offset = m.reported;
  return hr;
}
