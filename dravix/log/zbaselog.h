// ZBaseLog: an append-only text log that stays near 3 MB.
//
// The host names the file once with SetFilename(); after that any thread
// appends text with Write() or WriteV(). Text is written exactly as given
// (no time stamp, no line end: callers end their lines with "\r\n"). Each
// Write is one append to the file, so lines written concurrently by several
// threads or processes never tear.
//
// Every 100th write checks the disk (a write is dropped while the disk
// holding the log has less than 30 MB free) and the size: a log longer than
// 0x300000 bytes is moved to "OLD" + its name in the program folder
// (replacing the previous old generation) and a new empty log is started.
// So a log may pass 3 MB by up to 99 writes.
//
// Concurrent writes land in the order the kernel takes them. Internally a
// light gate (dravix/log/write_gate.h) keeps a rotation or SetFilename from
// closing the file under a write in progress; writes never wait for each
// other.
#pragma once

#include "dravix/log/write_gate.h"
#include "dravix/platform/append_file.h"
#include "dravix/platform/wintypes.h"

#include <atomic>
#include <string>

class ZBaseLog {
 public:
  static constexpr int64_t kRotateSize = 0x300000;     // 3,145,728 bytes
  static constexpr int kCheckEvery = 100;              // writes between checks
  static constexpr int64_t kMinFreeSpace = 0x1E00000;  // 31,457,280 bytes

  ZBaseLog() = default;
  ZBaseLog(const ZBaseLog&) = delete;
  ZBaseLog& operator=(const ZBaseLog&) = delete;

  // Appends the text's bytes. FALSE when the log is closed, when this is a
  // checking write and the disk is below 30 MB free (the text is dropped;
  // the next write checks again), or when the log had to be rotated and
  // could not be reopened (it stays closed).
  virtual BOOL Write(const char* text);
  // printf-style formatting passed to Write() through its virtual slot.
  // FALSE only when the log is closed; TRUE whatever Write returned.
  virtual BOOL WriteV(const char* format, ...) __attribute__((format(printf, 2, 3)));
  // Opens base folder + name (created when missing, never truncated) and
  // rotates it at once when it is already longer than 0x300000 bytes. The
  // base folder is the program folder, or the embedded base folder
  // (dravix::log::EmbeddedBaseFolder) when the EnableZeploEmbeded switch is
  // on. FALSE, with the log closed, when the file cannot be opened.
  virtual BOOL SetFilename(const char* name);
  // Moves the current log file to program folder + "OLD" + name, deleting
  // an older file of that name first. Always TRUE.
  virtual BOOL RangeFile(const char* name);
  virtual ~ZBaseLog();

  BOOL IsOpen() const { return m_opened.load(std::memory_order_acquire); }
  // The full path of the log file ("" until SetFilename succeeded).
  std::string GetFilePath() const;

 private:
  // Opens m_filePath; called with the gate held exclusively.
  bool Reopen();
  // The size check of every 100th write.
  BOOL CheckSize();
  std::string BareName() const;

  dravix::platform::AppendFile m_file;
  std::atomic<int> m_opened{0};
  std::atomic<int> m_writeCount{0};
  std::string m_filePath;
  mutable dravix::log::WriteGate m_gate;  // shared: Write; exclusive: open, close, rotate
};

namespace dravix::log {

// The folder that stands for drive "d:\" of the embedded recorder, where
// logs go when EnableZeploEmbeded is on: the folder set here, else
// $DRAVIX_DRIVE_D, else "/mnt/d/". Always ends with a separator.
std::string EmbeddedBaseFolder();
// Sets the embedded base folder; null or "" returns to the default.
void SetEmbeddedBaseFolder(const char* folder);

// Free bytes of the disk holding a path; negative when unknown.
using FreeSpaceProbe = __int64 (*)(const char* path);
// Replaces the free-space query the logs use (tests); null restores the
// real one (the total free bytes of the file system holding the log).
void SetFreeSpaceProbe(FreeSpaceProbe probe);

}  // namespace dravix::log
