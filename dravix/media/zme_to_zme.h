// ZMEtoZME: cuts the records between two moments of a recording into a new
// recording file on a worker thread, and reports progress in percent.
//
// The worker copies the data records from the record that TimeToFilePos
// picks for "from" up to (not including) the record it picks for "to",
// writes a new index for them, then finishes the new file's header from
// the source's: same start time (so record times stay valid), the lead-in
// set to from - start when "from" lies after the start (0 otherwise), the
// duration and data length of the clip's own records, and the caller's text
// list stored after the stream records. See ConvertZMEToZMEThread.
//
// Paths are the platform's narrow (UTF-8) paths, used as they are. The
// bounds of the recorder's conversion buffers remain: GetSize refuses a
// path of 512 bytes or more, and TimeToFilePos does not look for an index
// beside a path of 260 bytes or more.
//
// Threads: in synchronous mode (the default) ConvertZMEToZME returns when
// the job has ended. Otherwise the caller polls GetPercent/IsValidThread
// and may set m_bStop to end the copy early; the worker looks at it between
// pieces of at most 256 KiB (well within 200 ms), closes the new file as it
// stands and leaves its header unfinished. The counters are atomics, so
// polling from another thread is safe. Starting a new job first waits for
// the previous one; destroying the object that started a running job stops
// and joins it.
//
// Copying a ZMEtoZME copies every member, sharing the parameter block and
// the worker with the original (both stay alive while any copy holds them).
#pragma once

#include "dravix/platform/wintypes.h"

#include <atomic>
#include <memory>

class ZMEtoZME;
class ZMEtoZMEWorker;

// The job's parameters. The strings and SYSTEMTIMEs belong to the caller
// and must live until the job ends (with synchronous mode they do).
struct ZMEtoZMEJob {
  ZMEtoZME* owner = nullptr;
  const char* destination = nullptr;
  const char* source = nullptr;
  const SYSTEMTIME* from = nullptr;
  const SYSTEMTIME* to = nullptr;
  // NUL-terminated strings ended by an empty one (may be null).
  const char* textList = nullptr;
};

class ZMEtoZME {
 public:
  ZMEtoZME();
  virtual ~ZMEtoZME();
  ZMEtoZME(const ZMEtoZME& other);
  ZMEtoZME& operator=(const ZMEtoZME& other);

  // Starts the job on a worker thread and, in synchronous mode, waits for
  // it. Always 0: judge the result from the new file and GetPercent().
  int ConvertZMEToZME(const char* destination, const char* source, const SYSTEMTIME* from, const SYSTEMTIME* to,
                      const char* textList);
  // The worker's body; `job` is a ZMEtoZMEJob*. Returns 0 when the job ran
  // to its end (header finished or deliberately left), else a step number.
  static DWORD ConvertZMEToZMEThread(void* job);

  // (current - start) * 100 / total in signed 64-bit arithmetic, truncated
  // and not clamped; 0 when total is 0. Returned as unsigned 64 bits.
  ULONGLONG GetPercent() const;
  // 1 while a job runs.
  int IsValidThread() const { return m_bRunning.load(); }
  // Waits for a job started in asynchronous mode (no-op without one).
  void Wait();
  // After a job: 0 when it ran to its end (or was stopped), otherwise the
  // step that failed (4 reading the source or creating the new file, 5
  // finding the moments in the source, 6 copying, 7 closing the new file,
  // 9 finishing its header), with the OS error of that step in
  // LastJobError() (errno, see dravix/platform/file_io.h).
  DWORD LastJobResult() const { return m_result.load(); }
  int LastJobError() const { return m_lastError.load(); }

  // Bytes between the two moments (to offset - from offset as TimeToFilePos
  // reports them, 0 when negative) into `*size`. 1, or 0 when the path
  // cannot be taken (null, 512 bytes or more) or `size` is null.
  static int GetSize(const char* path, SYSTEMTIME from, SYSTEMTIME to, __int64* size);
  // The byte offset at which the moment `*fileTime` (a FILETIME as signed
  // 64 bits) begins: see dravix/media/zm_locate.h. S_OK, S_FALSE when the
  // data ran out first, E_POINTER, E_FAIL or the header reader's code.
  static HRESULT TimeToFilePos(const char* path, const __int64* fileTime, __int64* offset);

  // Wait for the job in ConvertZMEToZME (1 at construction).
  std::atomic<int> m_bSync{1};
  // Set non-zero to end a running copy early.
  std::atomic<int> m_bStop{0};

 private:
  std::shared_ptr<ZMEtoZMEWorker> m_pWorker;
  std::shared_ptr<ZMEtoZMEJob> m_pJob;
  std::atomic<int64_t> m_llCurrent{0};  // 100 ns, relative to the source's start
  std::atomic<int64_t> m_llStart{0};
  std::atomic<int64_t> m_llTotal{0};
  std::atomic<int> m_bRunning{0};
  std::atomic<DWORD> m_result{0};
  std::atomic<int> m_lastError{0};

  friend DWORD RunClipJob(ZMEtoZMEJob& job);
  friend DWORD KeepError(ZMEtoZME& self, DWORD step);
};
